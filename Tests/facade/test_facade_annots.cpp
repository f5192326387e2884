// Annotations: the geometry chain, the masks, and a page's annotations as
// the facade delivers them moved by the caller's matrix.
#include <gtest/gtest.h>

#include <map>

#include "facade_test_util.h"
#include "pdfkiln_destfile.h"

using namespace PDF_KILN;
using pagestest::Doc;
using pagestest::buildPdf;

namespace {

TEST(AnnotGeometry, RectPointsAndRotationFollowTheChain) {
    RectTD r;
    CAnnot::TransRect(RectTD{0, 0, 10, 10}, PgCmTD{0, 1, -1, 0, 0, 0}, r, false);
    EXPECT_EQ(r.left, 0);
    EXPECT_EQ(r.bottom, 0);
    EXPECT_EQ(r.right, -10);
    EXPECT_EQ(r.top, 10);
    CAnnot::TransRect(RectTD{0, 0, 10, 10}, PgCmTD{0, 1, -1, 0, 0, 0}, r, true);
    EXPECT_EQ(r.left, -10);
    EXPECT_EQ(r.right, 0);
    // A result below the float nearest 1e-4 is exactly zero.
    CAnnot::TransRect(RectTD{0.00005f, 0, 1, 1}, PgCmTD{}, r, true);
    EXPECT_EQ(r.left, 0);
    std::string s;
    CAnnot::outputCm(s, PgCmTD{0.5f, 0, 0, 2, 7, 8});
    EXPECT_EQ(s, "0.5 0 0 2 0 0 cm ");
    struct {
        int rotate;
        RectTD out;
    } const rows[] = {{90, {10, 40, 40, 60}}, {180, {-10, 40, 10, 70}}, {270, {-20, 20, 10, 40}}, {-90, {10, 10, 30, 40}}};
    for (const auto& row : rows) {
        RectTD o;
        CAnnot::RestoreRect(RectTD{10, 10, 30, 40}, row.rotate, o);
        EXPECT_EQ(o.left, row.out.left) << row.rotate;
        EXPECT_EQ(o.bottom, row.out.bottom) << row.rotate;
        EXPECT_EQ(o.right, row.out.right) << row.rotate;
        EXPECT_EQ(o.top, row.out.top) << row.rotate;
    }
    CStringType da;
    da.text = "/Helv 12 Tf 0 g";
    da.Translate4Annot(PgCmTD{0.5f, 0, 0, 0.5f, 0, 0});
    EXPECT_EQ(da.text, "/Helv 6 Tf 0 g");
}

TEST(AnnotMasks, SubtypesAndFieldKinds) {
    const std::vector<std::string> custom{"/MyNote"};
    struct {
        const char* subtype;
        int mask;
        bool off;
    } const rows[] = {{"/Link", 0, false},        {"/Link", 1, true},         {"/Text", 1, false},
                      {"/Link", -1, true},        {"/Foo", 0x40000000, true}, {"/Link", 0x40000000, false},
                      {"/MyNote", int(0x80000000u), true}, {"/Other", int(0x80000000u), false}};
    for (const auto& row : rows) {
        int flags = 0;
        CAnnot::checkEnableAnnots(row.subtype, row.mask, flags, custom);
        EXPECT_EQ((flags & kAnnotDisabled) != 0, row.off) << row.subtype << " " << row.mask;
    }
    EXPECT_EQ(CAnnot::getFieldType(0x10000, "/Btn"), 0);
    EXPECT_EQ(CAnnot::getFieldType(0x8000, "/Btn"), 1);
    EXPECT_EQ(CAnnot::getFieldType(0, "/Btn"), 2);
    EXPECT_EQ(CAnnot::getFieldType(0x20000, "/Ch"), 4);
    EXPECT_EQ(CAnnot::getFieldType(0, "/Tx"), 5);
    int flags = 0;
    CAnnot::checkEnableAcroForms(5, "/Tx", 32, flags);
    EXPECT_EQ(flags, kAnnotDisabled | kFieldDisabled);
}

// A page with a link to page 2, a text field and an inline /Annots form.
std::string annotatedPdf(bool inlineArray) {
    std::map<int, std::string> o{
        {1, "<< /Type /Catalog /Pages 2 0 R /AcroForm << /Fields [6 0 R] /NeedAppearances true >> >>"},
        {2, "<< /Type /Pages /Kids [3 0 R 4 0 R] /Count 2 >>"},
        {4, "<< /Type /Page /Parent 2 0 R /MediaBox [0 0 200 200] >>"},
        {5, "<< /Type /Annot /Subtype /Link /Rect [10 10 30 20] /Dest [4 0 R /XYZ 5 6 null] /P 3 0 R >>"},
        {6, "<< /Type /Annot /Subtype /Widget /FT /Tx /V (x) /DA (/Helv 12 Tf 0 g) /Rect [40 40 80 60] /P 3 0 R >>"},
        {7, "[5 0 R 6 0 R]"}};
    o[3] = inlineArray ? "<< /Type /Page /Parent 2 0 R /MediaBox [0 0 200 200] /Annots [5 0 R 6 0 R "
                         "<< /Subtype /Square /Rect [10 10 20 20] >>] >>"
                       : "<< /Type /Page /Parent 2 0 R /MediaBox [0 0 200 200] /Annots 7 0 R >>";
    return buildPdf(o);
}

TEST(FacadeAnnots, AnnotationsMoveWithThePageAndLinksGetTargets) {
    for (bool inlineArray : {false, true}) {
        Doc d(annotatedPdf(inlineArray));
        ASSERT_EQ(d.rc, 0);
        CPDFKilnPage& f = *d.page;
        f.setAcroFormsEnable(0x100);
        ASSERT_EQ(f.setPageNo(1), 0);
        f.setPageCm(PgCmTD{0.5f, 0, 0, 0.5f, 100, 0});
        f.setCurPageObj(99, 0);
        f.setStartObjNo(20);
        std::string all;
        for (auto it = f.begin(); it != f.end(); f.next(it)) all += it->second + "\n";
        EXPECT_NE(all.find("/Rect [105 5 115 10]"), std::string::npos) << all;
        EXPECT_NE(all.find("/P  99 0 R"), std::string::npos) << all;
        EXPECT_NE(all.find("(/Helv 6 Tf 0 g)"), std::string::npos) << all;
        const std::vector<DestTD> dests = f.getDestVector();
        ASSERT_EQ(dests.size(), 1u);
        EXPECT_EQ(dests[0].page, 2);
        EXPECT_EQ(dests[0].style, 1);
        EXPECT_EQ(dests[0].pos[0], 5);
        EXPECT_NE(all.find("/Dest " + std::to_string(dests[0].number) + " 0 R"), std::string::npos) << all;
        const std::string* annots = nullptr;
        EXPECT_EQ(f.getPageAnnots(&annots), 0);
        ASSERT_NE(annots, nullptr);
        EXPECT_EQ(annots->find('['), inlineArray ? annots->find("[ ") : std::string::npos) << *annots;
        if (inlineArray) {
            // The inline path writes its rectangles with "%f".
            EXPECT_NE(annots->find("105.000000 5.000000 110.000000 10.000000"), std::string::npos) << *annots;
        }
        const std::string* form = nullptr;
        EXPECT_EQ(f.getAcroFormFields(&form, 0), 0);
        ASSERT_NE(form, nullptr);
        EXPECT_NE(form->find("/NeedAppearances"), std::string::npos) << *form;
    }
}

TEST(FacadeAnnots, MasksSwitchOffAndFormMaskZeroLeavesTheFormAlone) {
    Doc d(annotatedPdf(false));
    ASSERT_EQ(d.rc, 0);
    CPDFKilnPage& f = *d.page;
    f.setAnnotsEnable(-1);
    ASSERT_EQ(f.setPageNo(1), 0);
    f.setStartObjNo(20);
    std::string all;
    for (auto it = f.begin(); it != f.end(); f.next(it)) all += it->second;
    EXPECT_EQ(all.find("/Link"), std::string::npos) << all;
    EXPECT_NE(all.find("/Widget"), std::string::npos) << all;
    const std::string* form = nullptr;
    EXPECT_EQ(f.getAcroFormFields(&form, 0), 0);
    EXPECT_EQ(form, nullptr);
}

}  // namespace

namespace {

// Kept quirks of the annotation export.
TEST(FacadeAnnots, AThreeNumberRectEndsTheInlineRewriteAndTheTextStays) {
    std::map<int, std::string> o{
        {1, "<< /Type /Catalog /Pages 2 0 R >>"},
        {2, "<< /Type /Pages /Kids [3 0 R] /Count 1 >>"},
        {3, "<< /Type /Page /Parent 2 0 R /MediaBox [0 0 200 200] /Annots [<< /Subtype /Square /Rect [1 2 3 4] >> "
            "<< /Subtype /Circle /Rect [10 10 20] >>] >>"}};
    Doc d(buildPdf(o));
    ASSERT_EQ(d.rc, 0);
    CPDFKilnPage& f = *d.page;
    ASSERT_EQ(f.setPageNo(1), 0);
    f.setPageCm(PgCmTD{2, 0, 0, 2, 0, 0});
    f.setStartObjNo(20);
    const std::string* annots = nullptr;
    EXPECT_EQ(f.getPageAnnots(&annots), 0);
    ASSERT_NE(annots, nullptr);
    // Nothing is rewritten, not even the first rectangle; only the outer
    // brackets give way to blanks.
    EXPECT_NE(annots->find("/Rect [1 2 3 4]"), std::string::npos) << *annots;
    EXPECT_NE(annots->find("/Rect [10 10 20]"), std::string::npos) << *annots;
    EXPECT_EQ(annots->find("2.000000"), std::string::npos) << *annots;
}

TEST(FacadeAnnots, TheFormTextIsTheInsideAsThePartComputesIt) {
    for (bool direct : {true, false}) {
        std::map<int, std::string> o{
            {1, std::string("<< /Type /Catalog /Pages 2 0 R /AcroForm ") + (direct ? "<</DA(x)>>" : "9 0 R") + " >>"},
            {2, "<< /Type /Pages /Kids [3 0 R] /Count 1 >>"},
            {3, "<< /Type /Page /Parent 2 0 R /MediaBox [0 0 200 200] >>"},
            {9, "<</DA(x)>>"}};
        Doc d(buildPdf(o));
        ASSERT_EQ(d.rc, 0);
        CPDFKilnPage& f = *d.page;
        f.setAcroFormsEnable(0x100);
        ASSERT_EQ(f.setPageNo(1), 0);
        f.setStartObjNo(20);
        const std::string* form = nullptr;
        ASSERT_EQ(f.getAcroFormFields(&form, 0), 0);
        ASSERT_NE(form, nullptr);
        // From two bytes behind the first "<", last - first - 3 bytes: the
        // dictionary's inside, whatever stands before its "<<" (getNames,
        // whose length does not take the first's position off, differs).
        EXPECT_EQ(*form, "/DA(x)") << direct;
    }
}

}  // namespace
