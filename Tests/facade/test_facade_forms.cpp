// The catalog's dictionaries: form, optional content, names, and the structure and part trees destinations use.
#include <gtest/gtest.h>

#include <regex>

#include "facade_test_util.h"
#include "pdfkiln_destfile.h"
#include "pdfkiln_obj_struct.h"

using namespace PDF_KILN;
using namespace pagestest;
using pdftest::Opened;

namespace {

std::map<int, std::string> onePage(const std::string& catalogExtra, const std::string& pageExtra = "") {
    return {{1, "<< /Type /Catalog /Pages 2 0 R " + catalogExtra + " >>"},
            {2, "<< /Type /Pages /Kids [3 0 R] /Count 1 >>"},
            {3, "<< /Type /Page /Parent 2 0 R /MediaBox [0 0 200 200] " + pageExtra + " >>"}};
}

// Checks that `text` refers only to objects of `objs`; returns how many references it holds.
std::size_t referencesOnlyTo(const std::string& text, const std::map<int, std::string>& objs) {
    static const std::regex ref(R"((\d+)\s+(\d+)\s+R\b)");
    std::size_t n = 0;
    for (std::sregex_iterator it(text.begin(), text.end(), ref), end; it != end; ++it, ++n)
        EXPECT_TRUE(objs.count(std::stoi((*it)[1].str()))) << (*it)[1].str() << " in " << text;
    return n;
}

TEST(AcroForm, FieldsAreKeptAndWhatTheFormReachesJoinsTheClosure) {
    for (bool direct : {true, false}) {
        const std::string form = "<< /Fields [10 0 R 11 0 R 10 0 R] /CO [11 0 R] /DA (/Helv 0 Tf 0 g) "
                                 "/DR << /Font << /Helv 20 0 R /ZaDb 21 0 R >> >> /NeedAppearances true >>";
        auto o = onePage((direct ? "/AcroForm " + form : "/AcroForm 9 0 R") + " /PageMode /UseNone", "/Annots [10 0 R]");
        if (!direct) o[9] = form;
        o[10] = "<< /Type /Annot /Subtype /Widget /FT /Tx /T (a) /V (filled) /Rect [0 0 10 10] /P 3 0 R >>";
        o[11] = "<< /FT /Tx /T (b) /Kids [12 0 R] >>";
        o[12] = "<< /Type /Annot /Subtype /Widget /Parent 11 0 R /Rect [0 0 5 5] /P 4 0 R >>";
        o[20] = "<< /Type /Font /Subtype /Type1 /BaseFont /Helvetica /Encoding 22 0 R >>";
        o[21] = "<< /Type /Font /Subtype /Type1 /BaseFont /ZapfDingbats >>";
        o[22] = "<< /Type /Encoding /Differences [32 /space] >>";
        Doc d(buildPdf(o));
        ASSERT_EQ(d.rc, 0) << direct;
        const CAcroForm& af = d.src().catalog.acroForm;
        EXPECT_EQ(af.heldByReference, !direct);
        EXPECT_EQ(nums(af.fields), (std::vector<int>{10, 11})) << "each field once, in order";
        EXPECT_EQ(nums(af.calculationOrder), (std::vector<int>{11}));
        EXPECT_TRUE(d.src().fieldSet.count(SObj(11, 0)));
        // The catalog goes on behind a direct form: its next key was read.
        EXPECT_EQ(d.src().catalog.pagesRef.num, 2);

        CPDFKilnPage& f = *d.page;
        f.setAcroFormsEnable(0x100);
        ASSERT_TRUE(d.select(1, 30));
        const auto objs = delivered(f);
        // The /DR fonts and what they reach are delivered; the field of /CO that is on no page is not.
        expectParts(joined(objs), {"/BaseFont /Helvetica", "/BaseFont /ZapfDingbats", "/Differences"}, {"(b)"});
        EXPECT_TRUE(d.src().formObjects.count(SObj(20, 0)));
        // The form's text names only objects of the run: field a (listed twice) and the two fonts.
        const std::string text = got(f, &CPDFKilnPage::getAcroFormFields, 0);
        expectParts(text, {"/NeedAppearances", "/Helv"});
        EXPECT_EQ(referencesOnlyTo(text, objs), 4u);
        // Numbering the page again brings nothing of the form again.
        f.setStartObjNo(60);
        EXPECT_EQ(delivered(f).size(), objs.size());
    }
}

TEST(CatalogWrite, FormFieldsOfAllSourcesStopAtAMissingOneAndOptionalContentKeepsTheDefaultLists) {
    auto a = onePage("/AcroForm << /Fields [10 0 R 11 0 R] >>");
    a[10] = "<< /FT /Tx >>";
    a[11] = "<< /FT /Btn >>";
    auto b = onePage("/AcroForm 9 0 R");
    b[9] = "<< /Fields [7 0 R] /DA (x) >>";
    b[7] = "<< /FT /Ch >>";
    Opened sa(buildPdf(a)), sb(buildPdf(b));
    ASSERT_EQ(std::make_pair(sa.rc, sb.rc), std::make_pair(0, 0));
    CDestFile out, partial;
    out.addSource(&sa.file);
    out.addSource(&sb.file);
    partial.addSource(&sa.file);
    for (CDestFile* o : {&out, &partial}) {
        o->insertNewObjTab(NewObjTable{0, 1, 10, 0}, SObj(100, 0));
        o->catalog.acroForm.self = SObj(50, 0);
    }
    out.insertNewObjTab(NewObjTable{0, 1, 11, 0}, SObj(101, 0));
    out.insertNewObjTab(NewObjTable{0, 2, 7, 0}, SObj(102, 0));
    EXPECT_TRUE(out.catalog.acroForm.Write(out, sa.file));
    EXPECT_EQ(static_cast<const std::string&>(out), "50 0 obj\n<</Fields[100 0 R 101 0 R 102 0 R ] >>\nendobj\n");
    EXPECT_EQ(out.fileInfo.ownTable.count(SObj(50, 0)), 1u);
    // A field that did not come along ends the write with the dictionary open.
    EXPECT_FALSE(partial.catalog.acroForm.Write(partial, sa.file));
    EXPECT_EQ(static_cast<const std::string&>(partial), "50 0 obj\n<</Fields[100 0 R ");
    out.sources.clear();
    partial.sources.clear();
    // Optional content keeps only the default lists, with null for groups left out.
    COCProperties oc;
    oc.self = SObj(40, 0);
    oc.off = {SObj(6, 0), SObj(7, 0)};
    oc.on = {SObj(5, 0)};
    oc.ocgs = {SObj(5, 0), SObj(6, 0), SObj(7, 0)};
    CDestFile ocOut;
    ocOut.insertNewObjTab(NewObjTable{0, 0, 5, 0}, SObj(105, 0));
    ocOut.insertNewObjTab(NewObjTable{0, 0, 7, 0}, SObj(107, 0));
    EXPECT_TRUE(oc.Write(ocOut, sa.file));
    EXPECT_EQ(static_cast<const std::string&>(ocOut),
              "40 0 obj\n<</D<</OFF[ null  107 0 R]/ON[ 105 0 R]>> >>\nendobj\n");
}

TEST(CatalogDictionaries, DamagedOnesEndAndLeaveTheCatalogWhole) {
    // Values running to the end of the input, no dictionary, and arrays that are a reference to themselves (object 8).
    const struct {
        const char* key;
        const char* body;
    } cases[] = {{"/AcroForm", "<< /Fields [10 0 R (unclosed"},
                 {"/AcroForm", "[1 2 3]"},
                 {"/AcroForm", "<< /DR << /Font 5 0 R >>"},
                 {"/OCProperties", "<< /D << /ON [5 0 R"},
                 {"/OCProperties", "<< /D 8 0 R >>"},
                 {"/OCProperties", "<< /OCGs 8 0 R /D << /OFF 8 0 R >> >>"}};
    for (const auto& c : cases) {
        auto o = onePage(std::string("/Pages 2 0 R ") + c.key + " 9 0 R");
        o[9] = c.body;
        o[8] = "8 0 R";
        Opened s(buildPdf(o));
        EXPECT_EQ(s.rc, 0) << c.body;
        EXPECT_EQ(s.file.pages.size(), 1u) << c.body;
    }
}

TEST(OCProperties, ListsOfTheDefaultConfigurationAreRead) {
    const std::string config = "/BaseState /OFF /ON [5 0 R] /OFF 9 0 R /Order [5 0 R [(label) 6 0 R [7 0 R]]]";
    for (bool viaRef : {false, true}) {
        auto o = onePage("/OCProperties " +
                         (viaRef ? "8 0 R" : "<< /OCGs [5 0 R 6 0 R 7 0 R] /D << /Name (x) " + config + " >> >>"));
        o[5] = "<< /Type /OCG /Name (a) >>";
        o[6] = "<< /Type /OCG /Name (b) >>";
        o[7] = "<< /Type /OCG /Name (c) >>";
        o[8] = "<< /OCGs [5 0 R 6 0 R 7 0 R] /D 10 0 R >>";
        o[9] = "[6 0 R 7 0 R]";
        o[10] = "<< " + config + " >>";
        Opened s(buildPdf(o));
        ASSERT_EQ(s.rc, 0);
        const COCProperties& oc = s.file.catalog.ocProperties;
        EXPECT_EQ(oc.heldByReference, viaRef);
        EXPECT_EQ(nums(oc.ocgs), (std::vector<int>{5, 6, 7}));
        EXPECT_EQ(nums(oc.on), (std::vector<int>{5}));
        EXPECT_EQ(nums(oc.off), (std::vector<int>{6, 7})) << "an array held by reference";
        EXPECT_EQ(nums(oc.order), (std::vector<int>{5, 6, 7})) << "nested lists flattened";
        EXPECT_EQ(oc.baseState, "/OFF");
        // Reading the catalog again gives the same lists, not twice as many.
        s.file.CheckAndInit();
        EXPECT_EQ(nums(s.file.catalog.ocProperties.on), (std::vector<int>{5}));
    }
}

TEST(Names, WhatANameTreeNeedsIsDeliveredAndPagesStayOut) {
    auto o = onePage("/Names 8 0 R");
    o[8] = "<< /Dests 9 0 R /JavaScript << /Names [(init) 12 0 R] >> >>";
    o[9] = "<< /Kids [10 0 R] >>";
    o[10] = "<< /Limits [(a) (b)] /Names [(a) [3 0 R /Fit] (b) 11 0 R] >>";
    o[11] = "<< /D [3 0 R /XYZ 0 0 0] >>";
    o[12] = "<< /S /JavaScript /JS 13 0 R >>";
    o[13] = "stream:app.alert(1);";
    Doc d(buildPdf(o));
    CPDFKilnPage& f = *d.page;
    ASSERT_TRUE(d.select(1, 20));
    const auto objs = delivered(f);
    // The dictionary's own references are of the name kind; what they reach is closure like any other.
    for (int n : {9, 12}) EXPECT_TRUE(d.src().formObjects.count(SObj(n, 0))) << n;
    for (int n : {9, 10, 11, 12, 13}) EXPECT_TRUE(d.src().fileObjects.count(SObj(n, 0))) << n;
    EXPECT_EQ(objs.size(), 5u);  // the page itself is no object of the map
    expectParts(joined(objs), {"app.alert(1);", "/Limits"});
    EXPECT_GT(referencesOnlyTo(got(f, &CPDFKilnPage::getNames), objs), 0u) << "getNames names only objects of the run";
    // Numbering again brings the tree no more.
    f.setStartObjNo(60);
    EXPECT_EQ(delivered(f).size(), objs.size());
    // A direct name dictionary is walked once.
    auto direct = onePage("/Names << /EmbeddedFiles << /Names [(f) 9 0 R] >> >>");
    direct[9] = "<< /Type /Filespec /EF << /F 10 0 R >> >>";
    direct[10] = "stream:data";
    Doc e(buildPdf(direct));
    ASSERT_TRUE(e.select(1, 20));
    EXPECT_EQ(delivered(*e.page).size(), 2u);
    EXPECT_TRUE(e.src().catalog.names.walked);
}

// Pages 3 and 4; structure elements from 10 on.
std::map<int, std::string> twoPages(const std::string& catalogExtra) {
    return {{1, "<< /Type /Catalog /Pages 2 0 R " + catalogExtra + " >>"},
            {2, "<< /Type /Pages /Kids [3 0 R 4 0 R] /Count 2 >>"},
            {3, "<< /Type /Page /Parent 2 0 R /MediaBox [0 0 200 200] /Annots [30 0 R 31 0 R] >>"},
            {4, "<< /Type /Page /Parent 2 0 R /MediaBox [0 0 200 200] >>"},
            {30, "<< /Type /Annot /Subtype /Link /Rect [0 0 10 10] /Dest [12 0 R /Fit] >>"},
            {31, "<< /Type /Annot /Subtype /Link /Rect [0 0 10 10] /A << /S /GoToDp /Dp 21 0 R >> >>"}};
}

TEST(Structure, ElementsAndPartsNameTheirPagesAndDestinationsFindThem) {
    for (bool single : {false, true}) {
        auto o = twoPages("/StructTreeRoot 9 0 R /DPartRoot 19 0 R");
        o[9] = single ? "<< /Type /StructTreeRoot /K 10 0 R >>" : "<< /Type /StructTreeRoot /K [10 0 R] >>";
        o[10] = "<< /S /Document /P 9 0 R /K [11 0 R 5 << /Type /MCR /Pg 3 0 R /MCID 0 >> 12 0 R] >>";
        o[11] = "<< /S /P /P 10 0 R /Pg 3 0 R /K 5 /Alt (a \\) b) >>";
        o[12] = "<< /S /P /P 10 0 R /Pg 4 0 R /K [<< /Type /OBJR /Obj 30 0 R /Pg 3 0 R >> 6] >>";
        o[19] = "<< /Type /DPartRoot /DPartRootNode 20 0 R >>";
        o[20] = "<< /Type /DPart /DParts [[21 0 R 22 0 R]] >>";
        o[21] = "<< /Type /DPart /Start 4 0 R /End 4 0 R >>";
        o[22] = "<< /Type /DPart /Start 3 0 R >>";
        Doc d(buildPdf(o));
        ASSERT_EQ(d.rc, 0);
        // Opening notes the roots; the first destination that names no page has the trees walked.
        EXPECT_EQ(d.src().catalog.structTreeRootRef.num, 9);
        EXPECT_EQ(d.src().catalog.dPartRootRef.num, 19);
        EXPECT_TRUE(d.src().tagPages.empty());
        ASSERT_EQ(d.page->setPageNo(1), 0);
        const std::map<SObj, SObj> tags{{SObj(11, 0), SObj(3, 0)}, {SObj(12, 0), SObj(4, 0)}};
        EXPECT_EQ(d.src().tagPages, tags) << "an element without /Pg enters nothing";
        const std::map<SObj, SObj> parts{{SObj(21, 0), SObj(4, 0)}, {SObj(22, 0), SObj(3, 0)}};
        EXPECT_EQ(d.src().partPages, parts);

        CPDFKilnPage& f = *d.page;
        f.setStartObjNo(40);
        const auto dests = f.getDestVector();
        ASSERT_EQ(dests.size(), 2u);
        EXPECT_EQ(dests[0].page, 2) << "element 12 and part 21 both lead to page 2";
        EXPECT_EQ(dests[1].page, 2);
        // The go-to of a part is written as a go-to of the link's target.
        const std::string all = deliveredText(f);
        expectParts(all, {"/S/GoTo "}, {"GoToDp"});
        for (const DestTD& t : dests) {
            const std::string ref = " " + std::to_string(t.number) + " 0 R";
            EXPECT_TRUE(all.find("/Dest" + ref) != std::string::npos || all.find("/D" + ref) != std::string::npos)
                << ref << " in " << all;
        }
    }
}

// Cycles, repeats, depth and truncation end the walks; a second catalog read walks nothing again.
TEST(Structure, CyclesRepeatsDepthTruncationAndASecondRead) {
    // /K leading back to an ancestor, and an element reached twice.
    auto o = twoPages("/StructTreeRoot 9 0 R");
    o[9] = "<< /K [10 0 R 10 0 R] >>";
    o[10] = "<< /K [11 0 R] /Pg 3 0 R >>";
    o[11] = "<< /K [10 0 R 9 0 R 11 0 R] /Pg 4 0 R >>";
    Opened cyclic(buildPdf(o));
    ASSERT_EQ(cyclic.rc, 0);
    cyclic.file.catalog.readStructure(cyclic.file);
    EXPECT_EQ(cyclic.file.tagPages.size(), 2u);
    EXPECT_EQ(cyclic.file.tagPages.count(SObj(9, 0)), 0u);
    CStructTreeRoot root(SObj(9, 0));
    root.fromStream(cyclic.file);
    EXPECT_EQ(root.nodesRead, 3);
    // A chain deeper than any stack: 30,000 elements, each the /K of the last.
    std::map<int, std::string> chain = onePage("/StructTreeRoot 9 0 R");
    chain[9] = "<< /K 10 0 R >>";
    const int n = 30000;
    for (int i = 10; i < 10 + n; ++i) chain[i] = "<< /K " + std::to_string(i + 1) + " 0 R /Pg 3 0 R >>";
    Opened deep(buildPdf(chain));
    ASSERT_EQ(deep.rc, 0);
    deep.file.catalog.readStructure(deep.file);
    EXPECT_EQ(deep.file.tagPages.size(), static_cast<std::size_t>(n));
    // A map entry of the first walk stays: reading the catalog again and asking again walks nothing.
    deep.file.tagPages[SObj(10, 0)] = SObj(4, 0);
    deep.file.CheckAndInit();
    deep.file.catalog.readStructure(deep.file);
    EXPECT_EQ(deep.file.tagPages.at(SObj(10, 0)).num, 4);
    // A root whose /K runs into the end of the input.
    const std::string pdf = buildPdf(twoPages("/StructTreeRoot 9 0 R")) + "9 0 obj << /K [10 0 R 11";
    Opened cut(pdf);
    CStructTreeRoot truncated;
    truncated.flags &= ~CObj::kIndirect;
    cut.file.clear();
    cut.file.seekg(static_cast<std::streamoff>(pdf.rfind("9 0 obj")));
    EXPECT_FALSE(truncated.Read(cut.file));
    // A document part's read ends at the closing bracket of /DParts.
    CDPart part(SObj(5, 0));
    part.flags &= ~CObj::kIndirect;
    pdftest::Source view("<< /DParts [[3 0 R 4 0 R]] /Start 7 0 R >>");
    EXPECT_TRUE(part.Read(view.file));
    EXPECT_EQ(nums(part.children), (std::vector<int>{3, 4}));
    EXPECT_EQ(part.page.num, 0);
}

}  // namespace
