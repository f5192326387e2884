// The page tree and page geometry: listing leaves, inheritance through the
// running slots, rotation, boxes and sizes.
#include <gtest/gtest.h>

#include "facade_test_util.h"

using namespace PDF_KILN;
using pagestest::Doc;
using pagestest::buildPdf;

namespace {

using Box = CPDFKilnPage::EBox;

std::vector<int> pageNumbers(const Doc& d) {
    std::vector<int> v;
    for (const SObj& p : d.src().pages) v.push_back(p.num);
    return v;
}

}  // namespace

TEST(PageTree, LeavesComeDepthFirstInDocumentOrder) {
    Doc d(buildPdf({{2, "<< /Type /Pages /Kids [3 0 R 6 0 R] /Count 3 >>"},
                    {3, "<< /Type /Pages /Kids [4 0 R 5 0 R] /Parent 2 0 R /Count 2 >>"},
                    {4, "<< /Type /Page /Parent 3 0 R /MediaBox [0 0 100 100] >>"},
                    {5, "<< /Type /Page /Parent 3 0 R /MediaBox [0 0 100 100] >>"},
                    {6, "<< /Type /Page /Parent 2 0 R /MediaBox [0 0 100 100] >>"}}));
    ASSERT_EQ(d.rc, 0);
    EXPECT_EQ(d.page->getPageCount(), 3);
    EXPECT_EQ(pageNumbers(d), (std::vector<int>{4, 5, 6}));
}

TEST(PageTree, KidsThroughAReferenceReadAsADirectArray) {
    Doc d(buildPdf({{2, "<< /Type /Pages /Kids 8 0 R /Count 2 >>"},
                    {8, "[4 0 R 5 0 R]"},
                    {4, "<< /Type /Page /Parent 2 0 R >>"},
                    {5, "<< /Type /Page /Parent 2 0 R >>"}}));
    ASSERT_EQ(d.rc, 0);
    EXPECT_EQ(pageNumbers(d), (std::vector<int>{4, 5}));
}

TEST(PageTree, KidsCycleAndSharedNodesEnd) {
    // 3 lists its own ancestor 2: each node is walked once.
    Doc d(buildPdf({{3, "<< /Type /Pages /Kids [4 0 R 2 0 R 3 0 R] /Parent 2 0 R /Count 1 >>"},
                    {4, "<< /Type /Page /Parent 3 0 R >>"}}));
    ASSERT_EQ(d.rc, 0);
    EXPECT_EQ(pageNumbers(d), (std::vector<int>{4}));
}

TEST(PageTree, EmptyKidsAndMissingTreeGiveNoPages) {
    Doc empty(buildPdf({{2, "<< /Type /Pages /Kids [] /Count 0 >>"}}));
    EXPECT_EQ(empty.rc, 0);
    EXPECT_EQ(empty.page->getPageCount(), 0);
    Doc none(buildPdf({{1, "<< /Type /Catalog >>"}}));
    EXPECT_EQ(none.rc, 0);
    EXPECT_EQ(none.page->getPageCount(), 0);
}

TEST(PageTree, NodeOfUnknownTypeFailsTheOpening) {
    Doc d(buildPdf({{3, "<< /Type /Annot /Parent 2 0 R >>"}}));
    EXPECT_EQ(d.rc, 1000);
}

TEST(PageTree, NestedTypeKeysBelongToTheirOwnDictionaries) {
    // A /Group's /Type /Group stands before the page's own /Type.
    Doc d(buildPdf({{3, "<< /Group << /Type /Group /S /Transparency >> /Type /Page /Parent 2 0 R "
                        "/MediaBox [0 0 10 20] >>"}}));
    ASSERT_EQ(d.rc, 0);
    EXPECT_EQ(d.page->getPageCount(), 1);
}

TEST(PageTree, OpeningTwiceListsEachPageOnce) {
    Doc d(buildPdf({{3, "<< /Type /Page /Parent 2 0 R >>"}}));
    ASSERT_EQ(d.rc, 0);
    EXPECT_EQ(d.src().CheckAndInit(), 0);
    EXPECT_EQ(d.page->getPageCount(), 1);
}

TEST(PageTreeInheritance, RunningSlotLeaksIntoALaterSiblingSubtree) {
    // Page 6 states no /MediaBox and its parent 5 none either: it takes the
    // value read last from any /Pages node, that of the sibling subtree 3.
    Doc d(buildPdf({{2, "<< /Type /Pages /Kids [3 0 R 5 0 R] /MediaBox [0 0 612 792] /Count 2 >>"},
                    {3, "<< /Type /Pages /Kids [4 0 R] /Parent 2 0 R /MediaBox [0 0 200 300] /Rotate 90 /Count 1 >>"},
                    {4, "<< /Type /Page /Parent 3 0 R >>"},
                    {5, "<< /Type /Pages /Kids [6 0 R] /Parent 2 0 R /Count 1 >>"},
                    {6, "<< /Type /Page /Parent 5 0 R >>"}}));
    ASSERT_EQ(d.rc, 0);
    float x1, y1, x2, y2;
    ASSERT_EQ(d.page->getPageBox(2, Box::eMediaBox, x1, y1, x2, y2), 0);
    EXPECT_EQ(x2, 200);
    EXPECT_EQ(y2, 300);
    int r = -1;
    EXPECT_EQ(d.page->getPageRotate(2, r), 0);
    EXPECT_EQ(r, 90);
}

TEST(PageTreeInheritance, OwnValuesWinOverTheSlot) {
    Doc d(buildPdf({{2, "<< /Type /Pages /Kids [3 0 R] /MediaBox [0 0 612 792] /CropBox [1 1 5 5] /Count 1 >>"},
                    {3, "<< /Type /Page /Parent 2 0 R /MediaBox [0 0 50 60] >>"}}));
    ASSERT_EQ(d.rc, 0);
    float x1, y1, x2, y2;
    d.page->getPageBox(1, Box::eMediaBox, x1, y1, x2, y2);
    EXPECT_EQ(x2, 50);
    d.page->getPageBox(1, Box::eCropBox, x1, y1, x2, y2);
    EXPECT_EQ(x1, 1);
    EXPECT_EQ(y2, 5);
}

TEST(PageTreeInheritance, IndirectBoxesAndRotationAreFollowed) {
    Doc d(buildPdf({{3, "<< /Type /Page /Parent 2 0 R /MediaBox 7 0 R /Rotate 8 0 R /CropBox [0 0 5] >>"},
                    {7, "[0 0 321 123]"},
                    {8, "270"}}));
    ASSERT_EQ(d.rc, 0);
    float x1, y1, x2, y2;
    d.page->getPageBox(1, Box::eMediaBox, x1, y1, x2, y2);
    EXPECT_EQ(x2, 321);
    d.page->getPageBox(1, Box::eCropBox, x1, y1, x2, y2);
    EXPECT_EQ(x2, 0) << "a box of fewer than four numbers is ignored";
    int r = 0;
    d.page->getPageRotate(1, r);
    EXPECT_EQ(r, 270);
}

namespace {

Doc rotatedDoc(const std::string& rotate) {
    return Doc(buildPdf({{3, "<< /Type /Page /Parent 2 0 R /MediaBox [0 0 200 100] /Rotate " + rotate + " >>"}}));
}

}  // namespace

TEST(PageGeometry, RotationIsKeptAsGivenUnlessNotAMultipleOf90) {
    struct Case {
        const char* given;
        int reads;
        bool swaps;
    } cases[] = {{"45", 0, false}, {"-90", -90, true}, {"450", 450, true}, {"90", 90, true}, {"180", 180, false}};
    for (const Case& c : cases) {
        Doc d = rotatedDoc(c.given);
        ASSERT_EQ(d.rc, 0);
        int r = 12345;
        EXPECT_EQ(d.page->getPageRotate(1, r), 0);
        EXPECT_EQ(r, c.reads) << c.given;
        float w = 0, h = 0;
        EXPECT_EQ(d.page->getPageSize(1, w, h, Box::eVisibleBox), 0);
        EXPECT_EQ(w, c.swaps ? 100 : 200) << c.given;
        ASSERT_EQ(d.page->setPageNo(1), 0);
        d.page->getPageSize(w, h);
        EXPECT_EQ(w, c.swaps ? 100 : 200) << c.given;
        float x = 0, y = 0;
        d.page->getPageSizeEx(x, y, w, h);
        EXPECT_EQ(w, 200) << "getPageSizeEx never swaps";
        d.page->getPageRotate(r);
        EXPECT_EQ(r, c.reads);
    }
}

TEST(PageGeometry, SizeOfBoxesZeroToFourIsTheCropRectangle) {
    Doc d(buildPdf({{2, "<< /Type /Pages /Kids [3 0 R 4 0 R] /Count 2 >>"},
                    {3, "<< /Type /Page /Parent 2 0 R /MediaBox [0 0 200 100] /CropBox [-50 10 150 90] "
                        "/TrimBox [0 0 1 1] >>"},
                    {4, "<< /Type /Page /Parent 2 0 R /MediaBox [0 0 200 100] /CropBox [5 5 5 50] >>"}}));
    ASSERT_EQ(d.rc, 0);
    float w = 0, h = 0;
    for (int b = 0; b <= 4; ++b) {
        EXPECT_EQ(d.page->getPageSize(1, w, h, static_cast<Box>(b)), 0);
        EXPECT_EQ(w, 200) << "box " << b << " answers with the unclipped crop box";
        EXPECT_EQ(h, 80);
    }
    d.page->getPageSize(1, w, h, Box::eVisibleBox);
    EXPECT_EQ(w, 150) << "the visible area is the crop box cut by the media box";
    d.page->getPageSize(2, w, h, Box::eTrimBox);
    EXPECT_EQ(w, 200) << "a crop box of zero width falls back to the media box";
    EXPECT_EQ(h, 100);
}

TEST(PageGeometry, UnknownPagesAndBadBoxes) {
    Doc d = rotatedDoc("0");
    ASSERT_EQ(d.rc, 0);
    float x1 = 9, y1 = 9, x2 = 9, y2 = 9;
    EXPECT_EQ(d.page->getPageBox(2, Box::eMediaBox, x1, y1, x2, y2), 8000);
    EXPECT_EQ(x2, 0);
    x2 = 9;
    EXPECT_EQ(d.page->getPageBox(1, Box::eVisibleBox, x1, y1, x2, y2), 1006);
    EXPECT_EQ(x2, 0);
    float w = 9, h = 9;
    EXPECT_EQ(d.page->getPageSize(7, w, h, Box::eVisibleBox), 0) << "an unknown page gives 0 with zero outputs";
    EXPECT_EQ(w, 0);
    EXPECT_EQ(h, 0);
    int r = 9;
    EXPECT_EQ(d.page->getPageRotate(0, r), 8000);
    EXPECT_EQ(r, 0);
    EXPECT_EQ(d.page->setPageNo(5), 8000);
}

TEST(PageGeometry, CurrentPageBoxComesFromThePageTextOnly) {
    Doc d(buildPdf({{2, "<< /Type /Pages /Kids [3 0 R 4 0 R 5 0 R] /CropBox [1 2 3 4] /Count 3 >>"},
                    {3, "<< /Type /Page /Parent 2 0 R /MediaBox [0 0 200 100] >>"},
                    {4, "<< /Type /Page /Parent 2 0 R /MediaBox [0 0 200 100] /CropBox [1 2 3 4 5] >>"},
                    {5, "<< /Type /Page /Parent 2 0 R /MediaBox [0 0 200 100] /CropBox [10 .5 30 40] >>"}}));
    ASSERT_EQ(d.rc, 0);
    float x1, y1, x2, y2;
    ASSERT_EQ(d.page->setPageNo(1), 0);
    d.page->getPageBox(Box::eCropBox, x1, y1, x2, y2);
    EXPECT_EQ(x2, 200) << "an inherited crop box is answered with the media box";
    ASSERT_EQ(d.page->setPageNo(2), 0);
    d.page->getPageBox(Box::eCropBox, x1, y1, x2, y2);
    EXPECT_EQ(x2, 200) << "five numbers are no box";
    ASSERT_EQ(d.page->setPageNo(3), 0);
    d.page->getPageBox(Box::eCropBox, x1, y1, x2, y2);
    EXPECT_EQ(x1, 10);
    EXPECT_EQ(y1, 5) << "the number rule reads .5 as 5";
    d.page->getPageBox(Box::eVisibleBox, x1, y1, x2, y2);
    EXPECT_EQ(x1, 10);
    EXPECT_FLOAT_EQ(y1, 0.5f) << "the visible area comes from the page record, not the text";
}

TEST(PageSelection, SameNumberKeepsTheMapAndZeroFirstIsANoOp) {
    Doc d(buildPdf({{3, "<< /Type /Page /Parent 2 0 R /Resources << /Font << /F1 4 0 R >> >> >>"},
                    {4, "<< /Type /Font /Subtype /Type1 /BaseFont /Helvetica >>"}}));
    ASSERT_EQ(d.rc, 0);
    EXPECT_EQ(d.page->setPageNo(0), 0);
    ASSERT_EQ(d.page->setPageNo(1), 0);
    d.page->setStartObjNo(10);
    ASSERT_EQ(d.page->size(), 1u);
    EXPECT_EQ(d.page->setPageNo(1), 0);
    EXPECT_EQ(d.page->size(), 1u);
}
