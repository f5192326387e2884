// Annotations: the geometry chain, the masks, and a page's annotations moved by the caller's matrix.
#include <gtest/gtest.h>

#include <tuple>

#include "facade_test_util.h"
#include "pdfkiln_destfile.h"

using namespace PDF_KILN;
using namespace pagestest;

namespace {

std::vector<float> corners(const RectTD& r) { return {r.left, r.bottom, r.right, r.top}; }

TEST(AnnotGeometry, RectPointsRotationMasksAndFieldKinds) {
    RectTD r;
    CAnnot::TransRect(RectTD{0, 0, 10, 10}, PgCmTD{0, 1, -1, 0, 0, 0}, r, false);
    EXPECT_EQ(corners(r), (std::vector<float>{0, 0, -10, 10}));
    CAnnot::TransRect(RectTD{0, 0, 10, 10}, PgCmTD{0, 1, -1, 0, 0, 0}, r, true);
    EXPECT_EQ(corners(r), (std::vector<float>{-10, 0, 0, 10}));
    // A result below the float nearest 1e-4 is exactly zero.
    CAnnot::TransRect(RectTD{0.00005f, 0, 1, 1}, PgCmTD{}, r, true);
    EXPECT_EQ(corners(r), (std::vector<float>{0, 0, 1, 1}));
    std::string s;
    CAnnot::outputCm(s, PgCmTD{0.5f, 0, 0, 2, 7, 8});
    EXPECT_EQ(s, "0.5 0 0 2 0 0 cm ");
    const struct {
        int rotate;
        std::vector<float> out;
    } rows[] = {{90, {10, 40, 40, 60}}, {180, {-10, 40, 10, 70}}, {270, {-20, 20, 10, 40}}, {-90, {10, 10, 30, 40}}};
    for (const auto& row : rows) {
        CAnnot::RestoreRect(RectTD{10, 10, 30, 40}, row.rotate, r);
        EXPECT_EQ(corners(r), row.out) << row.rotate;
    }
    CStringType da;
    da.text = "/Helv 12 Tf 0 g";
    da.Translate4Annot(PgCmTD{0.5f, 0, 0, 0.5f, 0, 0});
    EXPECT_EQ(da.text, "/Helv 6 Tf 0 g");
    // The masks by subtype, and the field kinds.
    const std::vector<std::string> custom{"/MyNote"};
    const struct {
        const char* subtype;
        int mask;
        bool off;
    } masks[] = {{"/Link", 0, false},         {"/Link", 1, true},         {"/Text", 1, false},
                {"/Link", -1, true},         {"/Foo", 0x40000000, true}, {"/Link", 0x40000000, false},
                {"/MyNote", int(0x80000000u), true}, {"/Other", int(0x80000000u), false}};
    for (const auto& row : masks) {
        int flags = 0;
        CAnnot::checkEnableAnnots(row.subtype, row.mask, flags, custom);
        EXPECT_EQ((flags & kAnnotDisabled) != 0, row.off) << row.subtype << " " << row.mask;
    }
    EXPECT_EQ((std::vector<int>{CAnnot::getFieldType(0x10000, "/Btn"), CAnnot::getFieldType(0x8000, "/Btn"),
                                CAnnot::getFieldType(0, "/Btn"), CAnnot::getFieldType(0x20000, "/Ch"),
                                CAnnot::getFieldType(0, "/Tx")}),
              (std::vector<int>{0, 1, 2, 4, 5}));
    int flags = 0;
    CAnnot::checkEnableAcroForms(5, "/Tx", 32, flags);
    EXPECT_EQ(flags, kAnnotDisabled | kFieldDisabled);
}

// A page with a link to page 2, a text field and an inline /Annots form.
std::string annotatedPdf(bool inlineArray) {
    return buildPdf(
        {{1, "<< /Type /Catalog /Pages 2 0 R /AcroForm << /Fields [6 0 R] /NeedAppearances true >> >>"},
         {2, "<< /Type /Pages /Kids [3 0 R 4 0 R] /Count 2 >>"},
         {3, std::string("<< /Type /Page /Parent 2 0 R /MediaBox [0 0 200 200] /Annots ") +
                 (inlineArray ? "[5 0 R 6 0 R << /Subtype /Square /Rect [10 10 20 20] >>] >>" : "7 0 R >>")},
         {4, "<< /Type /Page /Parent 2 0 R /MediaBox [0 0 200 200] >>"},
         {5, "<< /Type /Annot /Subtype /Link /Rect [10 10 30 20] /Dest [4 0 R /XYZ 5 6 null] /P 3 0 R >>"},
         {6, "<< /Type /Annot /Subtype /Widget /FT /Tx /V (x) /DA (/Helv 12 Tf 0 g) /Rect [40 40 80 60] /P 3 0 R >>"},
         {7, "[5 0 R 6 0 R]"}});
}

TEST(FacadeAnnots, AnnotationsMoveWithThePageLinksGetTargetsAndMasksSwitchOff) {
    for (bool inlineArray : {false, true}) {
        Doc d(annotatedPdf(inlineArray));
        ASSERT_EQ(d.rc, 0);
        CPDFKilnPage& f = *d.page;
        f.setAcroFormsEnable(0x100);
        ASSERT_EQ(f.setPageNo(1), 0);
        f.setPageCm(PgCmTD{0.5f, 0, 0, 0.5f, 100, 0});
        f.setCurPageObj(99, 0);
        f.setStartObjNo(20);
        const std::string all = deliveredText(f);
        const std::vector<DestTD> dests = f.getDestVector();
        ASSERT_EQ(dests.size(), 1u);
        EXPECT_EQ(std::make_tuple(dests[0].page, dests[0].style, dests[0].pos[0]), std::make_tuple(2, 1, 5.0f));
        expectParts(all, {"/Rect [105 5 115 10]", "/P  99 0 R", "(/Helv 6 Tf 0 g)",
                          "/Dest " + std::to_string(dests[0].number) + " 0 R"});
        const std::string annots = got(f, &CPDFKilnPage::getPageAnnots);
        EXPECT_EQ(annots.find('['), inlineArray ? annots.find("[ ") : std::string::npos) << annots;
        // The inline path writes its rectangles with "%f".
        if (inlineArray) expectParts(annots, {"105.000000 5.000000 110.000000 10.000000"});
        expectParts(got(f, &CPDFKilnPage::getAcroFormFields, 0), {"/NeedAppearances"});
    }
    // The annotation mask switches the link off; a form mask of zero leaves the form alone.
    Doc d(annotatedPdf(false));
    d.page->setAnnotsEnable(-1);
    ASSERT_TRUE(d.select(1, 20));
    expectParts(deliveredText(*d.page), {"/Widget"}, {"/Link"});
    EXPECT_EQ(got(*d.page, &CPDFKilnPage::getAcroFormFields, 0), "<null>");
}

// Kept quirk: a three-number /Rect ends the inline rewrite, the first rectangle included.
TEST(FacadeAnnots, AThreeNumberRectEndsTheInlineRewriteAndTheTextStays) {
    Doc d(buildPdf({{3, "<< /Type /Page /Parent 2 0 R /MediaBox [0 0 200 200] /Annots [<< /Subtype /Square "
                        "/Rect [1 2 3 4] >> << /Subtype /Circle /Rect [10 10 20] >>] >>"}}));
    ASSERT_EQ(d.rc, 0);
    ASSERT_EQ(d.page->setPageNo(1), 0);
    d.page->setPageCm(PgCmTD{2, 0, 0, 2, 0, 0});
    d.page->setStartObjNo(20);
    expectParts(got(*d.page, &CPDFKilnPage::getPageAnnots), {"/Rect [1 2 3 4]", "/Rect [10 10 20]"}, {"2.000000"});
}

// Kept quirk: the form text is cut from two bytes behind the first "<", last - first - 3 bytes long.
TEST(FacadeAnnots, TheFormTextIsTheDictionarysInside) {
    for (const char* form : {"<</DA(x)>>", "9 0 R"}) {
        Doc d(buildPdf({{1, std::string("<< /Type /Catalog /Pages 2 0 R /AcroForm ") + form + " >>"},
                        {3, "<< /Type /Page /Parent 2 0 R /MediaBox [0 0 200 200] >>"},
                        {9, "<</DA(x)>>"}}));
        d.page->setAcroFormsEnable(0x100);
        ASSERT_TRUE(d.select(1, 20));
        EXPECT_EQ(got(*d.page, &CPDFKilnPage::getAcroFormFields, 0), "/DA(x)") << form;
    }
}

}  // namespace
