// The page tree and page geometry: listing leaves, inheritance through the running slots, rotation, boxes and sizes.
#include <gtest/gtest.h>

#include "facade_test_util.h"

using namespace PDF_KILN;
using pagestest::Doc;
using pagestest::buildPdf;

using Box = CPDFKilnPage::EBox;

TEST(PageTree, LeavesOfTheTree) {
    const struct {
        std::map<int, std::string> objs;
        int rc;
        std::vector<int> pages;
    } cases[] = {
        // Depth first, in document order.
        {{{2, "<< /Type /Pages /Kids [3 0 R 6 0 R] /Count 3 >>"},
          {3, "<< /Type /Pages /Kids [4 0 R 5 0 R] /Parent 2 0 R /Count 2 >>"},
          {4, "<< /Type /Page /Parent 3 0 R /MediaBox [0 0 100 100] >>"},
          {5, "<< /Type /Page /Parent 3 0 R /MediaBox [0 0 100 100] >>"},
          {6, "<< /Type /Page /Parent 2 0 R /MediaBox [0 0 100 100] >>"}}, 0, {4, 5, 6}},
        // Kids through a reference read as a direct array.
        {{{2, "<< /Type /Pages /Kids 8 0 R /Count 2 >>"}, {8, "[4 0 R 5 0 R]"},
          {4, "<< /Type /Page /Parent 2 0 R >>"}, {5, "<< /Type /Page /Parent 2 0 R >>"}}, 0, {4, 5}},
        // 3 lists its own ancestor 2 and itself: each node is walked once.
        {{{3, "<< /Type /Pages /Kids [4 0 R 2 0 R 3 0 R] /Parent 2 0 R /Count 1 >>"},
          {4, "<< /Type /Page /Parent 3 0 R >>"}}, 0, {4}},
        {{{2, "<< /Type /Pages /Kids [] /Count 0 >>"}}, 0, {}},
        {{{1, "<< /Type /Catalog >>"}}, 0, {}},
        {{{3, "<< /Type /Annot /Parent 2 0 R >>"}}, 1000, {}},
        // A /Group's /Type /Group stands before the page's own /Type.
        {{{3, "<< /Group << /Type /Group /S /Transparency >> /Type /Page /Parent 2 0 R /MediaBox [0 0 10 20] >>"}},
         0, {3}},
    };
    for (const auto& c : cases) {
        Doc d(buildPdf(c.objs));
        EXPECT_EQ(d.rc, c.rc) << c.objs.begin()->second;
        if (c.rc != 0) continue;
        std::vector<int> pages;
        for (const SObj& p : d.src().pages) pages.push_back(p.num);
        EXPECT_EQ(pages, c.pages) << c.objs.begin()->second;
        EXPECT_EQ(d.page->getPageCount(), static_cast<int>(c.pages.size()));
        // Opening again lists each page once.
        EXPECT_EQ(d.src().CheckAndInit(), 0);
        EXPECT_EQ(d.page->getPageCount(), static_cast<int>(c.pages.size()));
    }
}

TEST(PageTreeInheritance, BoxesAndRotationOfAPage) {
    // Kept quirk: page 6 and its parent 5 state no /MediaBox nor /Rotate; the page takes those of sibling subtree 3.
    const std::map<int, std::string> leak{
        {2, "<< /Type /Pages /Kids [3 0 R 5 0 R] /MediaBox [0 0 612 792] /Count 2 >>"},
        {3, "<< /Type /Pages /Kids [4 0 R] /Parent 2 0 R /MediaBox [0 0 200 300] /Rotate 90 /Count 1 >>"},
        {4, "<< /Type /Page /Parent 3 0 R >>"},
        {5, "<< /Type /Pages /Kids [6 0 R] /Parent 2 0 R /Count 1 >>"},
        {6, "<< /Type /Page /Parent 5 0 R >>"}};
    const std::map<int, std::string> own{
        {2, "<< /Type /Pages /Kids [3 0 R] /MediaBox [0 0 612 792] /CropBox [1 1 5 5] /Count 1 >>"},
        {3, "<< /Type /Page /Parent 2 0 R /MediaBox [0 0 50 60] >>"}};
    const std::map<int, std::string> indirect{
        {3, "<< /Type /Page /Parent 2 0 R /MediaBox 7 0 R /Rotate 8 0 R /CropBox [0 0 5] >>"},
        {7, "[0 0 321 123]"},
        {8, "270"}};
    const struct {
        const std::map<int, std::string>& objs;
        int page;
        Box box;
        std::vector<float> rect;
        int rotate;
    } cases[] = {
        {leak, 2, Box::eMediaBox, {0, 0, 200, 300}, 90},
        {own, 1, Box::eMediaBox, {0, 0, 50, 60}, 0},
        {own, 1, Box::eCropBox, {1, 1, 5, 5}, 0},
        {indirect, 1, Box::eMediaBox, {0, 0, 321, 123}, 270},
        {indirect, 1, Box::eCropBox, {0, 0, 0, 0}, 270},  // a box of fewer than four numbers is ignored
    };
    for (const auto& c : cases) {
        Doc d(buildPdf(c.objs));
        ASSERT_EQ(d.rc, 0);
        std::vector<float> r(4, -1);
        ASSERT_EQ(d.page->getPageBox(c.page, c.box, r[0], r[1], r[2], r[3]), 0);
        EXPECT_EQ(r, c.rect) << c.objs.at(3) << " box " << static_cast<int>(c.box);
        int rotate = -1;
        EXPECT_EQ(d.page->getPageRotate(c.page, rotate), 0);
        EXPECT_EQ(rotate, c.rotate) << c.objs.at(3);
    }
}

TEST(PageGeometry, RotationIsKeptAsGivenUnlessNotAMultipleOf90AndUnknownPages) {
    const auto rotated = [](const std::string& rotate) {
        return Doc(buildPdf({{3, "<< /Type /Page /Parent 2 0 R /MediaBox [0 0 200 100] /Rotate " + rotate + " >>"}}));
    };
    struct Case {
        const char* given;
        int reads;
        bool swaps;
    } cases[] = {{"45", 0, false}, {"-90", -90, true}, {"450", 450, true}, {"90", 90, true}, {"180", 180, false}};
    for (const Case& c : cases) {
        Doc d = rotated(c.given);
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
    Doc d = rotated("0");
    ASSERT_EQ(d.rc, 0);
    float x1 = 9, y1 = 9, x2 = 9, y2 = 9, w = 9, h = 9;
    EXPECT_EQ(d.page->getPageBox(2, Box::eMediaBox, x1, y1, x2, y2), 8000);
    EXPECT_EQ(x2, 0);
    x2 = 9;
    EXPECT_EQ(d.page->getPageBox(1, Box::eVisibleBox, x1, y1, x2, y2), 1006);
    EXPECT_EQ(x2, 0);
    EXPECT_EQ(d.page->getPageSize(7, w, h, Box::eVisibleBox), 0) << "an unknown page gives 0 with zero outputs";
    EXPECT_EQ(std::make_pair(w, h), std::make_pair(0.0f, 0.0f));
    int r = 9;
    EXPECT_EQ(d.page->getPageRotate(0, r), 8000);
    EXPECT_EQ(r, 0);
    EXPECT_EQ(d.page->setPageNo(5), 8000);
}

// Pages 1-3: the current page's box comes from the page text only; pages 4-5: sizes of boxes 0 to 4 are the crop box.
TEST(PageGeometry, CurrentPageBoxFromThePageTextAndSizesOfBoxesFromTheCropRectangle) {
    Doc d(buildPdf({{2, "<< /Type /Pages /Kids [3 0 R 4 0 R 5 0 R 6 0 R 7 0 R] /CropBox [1 2 3 4] /Count 5 >>"},
                    {3, "<< /Type /Page /Parent 2 0 R /MediaBox [0 0 200 100] >>"},
                    {4, "<< /Type /Page /Parent 2 0 R /MediaBox [0 0 200 100] /CropBox [1 2 3 4 5] >>"},
                    {5, "<< /Type /Page /Parent 2 0 R /MediaBox [0 0 200 100] /CropBox [10 .5 30 40] >>"},
                    {6, "<< /Type /Page /Parent 2 0 R /MediaBox [0 0 200 100] /CropBox [-50 10 150 90] "
                        "/TrimBox [0 0 1 1] >>"},
                    {7, "<< /Type /Page /Parent 2 0 R /MediaBox [0 0 200 100] /CropBox [5 5 5 50] >>"}}));
    ASSERT_EQ(d.rc, 0);
    const struct {
        int page;
        Box box;
        std::vector<float> rect;
    } rows[] = {
        {1, Box::eCropBox, {0, 0, 200, 100}},       // an inherited crop box is answered with the media box
        {2, Box::eCropBox, {0, 0, 200, 100}},       // five numbers are no box
        {3, Box::eCropBox, {10, 5, 30, 40}},        // the number rule reads .5 as 5
        {3, Box::eVisibleBox, {10, 0.5f, 30, 40}},  // the visible area comes from the page record, not the text
    };
    for (const auto& row : rows) {
        ASSERT_EQ(d.page->setPageNo(row.page), 0);
        std::vector<float> r(4, -1);
        d.page->getPageBox(row.box, r[0], r[1], r[2], r[3]);
        EXPECT_EQ(r, row.rect) << row.page;
    }
    float w = 0, h = 0;
    for (int b = 0; b <= 4; ++b) {
        EXPECT_EQ(d.page->getPageSize(4, w, h, static_cast<Box>(b)), 0);
        EXPECT_EQ(std::make_pair(w, h), std::make_pair(200.0f, 80.0f)) << "box " << b << ": the unclipped crop box";
    }
    d.page->getPageSize(4, w, h, Box::eVisibleBox);
    EXPECT_EQ(w, 150) << "the visible area is the crop box cut by the media box";
    d.page->getPageSize(5, w, h, Box::eTrimBox);
    EXPECT_EQ(std::make_pair(w, h), std::make_pair(200.0f, 100.0f)) << "a zero-width crop box gives the media box";
}

TEST(PageSelection, SameNumberKeepsTheMapAndZeroFirstIsANoOp) {
    Doc d(buildPdf({{3, "<< /Type /Page /Parent 2 0 R /Resources << /Font << /F1 4 0 R >> >> >>"},
                    {4, "<< /Type /Font /Subtype /Type1 /BaseFont /Helvetica >>"}}));
    ASSERT_EQ(d.rc, 0);
    EXPECT_EQ(d.page->setPageNo(0), 0);
    ASSERT_TRUE(d.select(1, 10));
    ASSERT_EQ(d.page->size(), 1u);
    EXPECT_EQ(d.page->setPageNo(1), 0);
    EXPECT_EQ(d.page->size(), 1u);
}
