// Page output: the page's own span copier, group nodes and boxes.
#include <gtest/gtest.h>

#include "facade_test_util.h"
#include "pdfkiln_destfile.h"

using namespace PDF_KILN;
using pagestest::Doc;
using pagestest::buildPdf;
using pagestest::expectParts;

namespace {

// Renders object `num` of the document with CPage's copier, renumbering the objects of `mapped` to 100, 101, ...
std::string renderPage(Doc& d, int num, std::initializer_list<int> mapped) {
    CDestFile out{std::string()};
    out.setRenumbering(true);
    int n = 100;
    for (int m : mapped) out.insertNewObjTab(NewObjTable{0, 0, m, 0}, SObj(n++, 0));
    CPage page(SObj(num, 0));
    EXPECT_TRUE(page.LocalObj(out, d.src()));
    return out;
}

}  // namespace

TEST(PageOutput, SuppliedKeysNeverReachTheOutput) {
    Doc d(buildPdf({{2, "<< /Type /Pages /Kids [3 0 R 4 0 R] /Count 2 >>"},
                    {3, "<< /Type /Page /Parent 2 0 R /Annots 5 0 R /Contents [6 0 R 7 0 R] /MediaBox [0 0 612 792] "
                        "/CropBox [0 0 10 10] /Thumb 9 0 R /Resources 8 0 R /Rotate 90 >>"},
                    {4, "<< /Type /Page /Parent 2 0 R /Annots [5 0 R] /Contents 6 0 R /Title (a/b) >>"},
                    {5, "[]"},
                    {8, "<< >>"}}));
    ASSERT_EQ(d.rc, 0);
    // An unmapped reference keeps its key.
    expectParts(renderPage(d, 3, {2, 8}), {"/Thumb  null ", "/Resources  101 0 R", "/Parent  100 0 R", "/Rotate 90"},
                {"/Annots", "/Contents", "/MediaBox", "/CropBox"});
    expectParts(renderPage(d, 4, {}), {"/Title (a/b)"}, {"/Annots", "/Contents"});
}

TEST(PageOutput, GroupNodesCountTheirPages) {
    Doc d(buildPdf({{2, "<< /Type /Pages /Kids [3 0 R 4 0 R 5 0 R] /Count 3 >>"},
                    {3, "<< /Type /Page /Parent 2 0 R >>"},
                    {4, "<< /Type /Page /Parent 2 0 R >>"},
                    {5, "<< /Type /Page /Parent 2 0 R >>"}}));
    ASSERT_EQ(d.rc, 0);
    CDestFile out{std::string()};
    out.curFile = 1;
    out.insertNewObjTab(NewObjTable{0, 1, 3, 0}, SObj(20, 0));
    out.insertNewObjTab(NewObjTable{0, 1, 5, 0}, SObj(21, 0));
    for (int n : {3, 4, 5}) {
        CPage p(SObj(n, 0));
        EXPECT_EQ(p.Write(out, d.src()), n != 4) << "a page without a new number is dropped";
    }
    ASSERT_TRUE(d.src().groupNode);
    CPages& group = *d.src().groupNode;
    EXPECT_EQ(group.count, 2);
    ASSERT_EQ(group.kids.size(), 2u);
    EXPECT_EQ(group.kids[1].num, 21);
    group.self = SObj(30, 0);
    out.rootPages = SObj(31, 0);
    out.clear();
    group.Write(out, d.src());
    EXPECT_EQ(std::string(out), "30 0 obj\n<</Type/Pages/Count 2/Kids[20 0 R 21 0 R ]\n/Parent 31 0 R >>endobj\n");
}

TEST(PageOutput, RectanglesAreWrittenAsNumbers) {
    CDestFile out{std::string()};
    RectTD r;
    r.right = 612;
    r.top = 792;
    CPaperInfo::WriteRect(out, r);
    EXPECT_EQ(std::string(out), " [0 0 612 792 ] ");
}
