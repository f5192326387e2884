// The dictionaries below the catalog: the interactive form and optional
// content (read and written), the name dictionary's closure, and the walks of
// logical structure and document parts through which a destination that
// names a structure element or a document part finds its page.
#include <gtest/gtest.h>

#include <map>
#include <regex>

#include "facade_test_util.h"
#include "pdfkiln_destfile.h"
#include "pdfkiln_obj_struct.h"

using namespace PDF_KILN;
using pagestest::Doc;
using pagestest::buildPdf;

namespace {

// A source opened by the reader alone.
struct Opened {
    explicit Opened(const std::string& pdf) : s(pdf) { rc = s.file.CheckAndInit(); }
    pdftest::Source s;
    int rc;
    CSourFile& file() { return s.file; }
};

std::map<int, std::string> onePage(const std::string& catalogExtra, const std::string& pageExtra = "") {
    return {{1, "<< /Type /Catalog /Pages 2 0 R " + catalogExtra + " >>"},
            {2, "<< /Type /Pages /Kids [3 0 R] /Count 1 >>"},
            {3, "<< /Type /Page /Parent 2 0 R /MediaBox [0 0 200 200] " + pageExtra + " >>"}};
}

std::vector<int> nums(const std::vector<SObj>& v) {
    std::vector<int> n;
    for (const SObj& o : v) n.push_back(o.num);
    return n;
}

// Every object text the facade delivered for the current page, by new number.
std::map<int, std::string> delivered(CPDFKilnPage& f) {
    std::map<int, std::string> m;
    for (auto it = f.begin(); it != f.end(); f.next(it)) m[it->first.first] = it->second;
    return m;
}

std::vector<int> referencesIn(const std::string& text) {
    static const std::regex ref(R"((\d+)\s+(\d+)\s+R\b)");
    std::vector<int> v;
    for (std::sregex_iterator it(text.begin(), text.end(), ref), end; it != end; ++it)
        v.push_back(std::stoi((*it)[1].str()));
    return v;
}

// ---------------------------------------------------------------------------
// The interactive form

TEST(AcroForm, FieldsAreKeptAndWhatTheFormReachesJoinsTheClosure) {
    for (bool direct : {true, false}) {
        const std::string form = "<< /Fields [10 0 R 11 0 R 10 0 R] /CO [11 0 R] /DA (/Helv 0 Tf 0 g) "
                                 "/DR << /Font << /Helv 20 0 R /ZaDb 21 0 R >> >> /NeedAppearances true >>";
        auto o = onePage(direct ? "/AcroForm " + form + " /PageMode /UseNone" : "/AcroForm 9 0 R /PageMode /UseNone",
                         "/Annots [10 0 R]");
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
        ASSERT_EQ(f.setPageNo(1), 0);
        f.setStartObjNo(30);
        const auto objs = delivered(f);
        std::string all;
        for (const auto& e : objs) all += e.second + "\n";
        // The /DR fonts and what they reach are delivered once the page list
        // stands; the field of /CO that is on no page is not.
        EXPECT_NE(all.find("/BaseFont /Helvetica"), std::string::npos) << all;
        EXPECT_NE(all.find("/BaseFont /ZapfDingbats"), std::string::npos) << all;
        EXPECT_NE(all.find("/Differences"), std::string::npos) << all;
        EXPECT_EQ(all.find("(b)"), std::string::npos) << all;
        EXPECT_TRUE(d.src().formObjects.count(SObj(20, 0)));

        // The form's text names only objects of the run: the fonts by their
        // new numbers, the field of no page dropped.
        const std::string* text = nullptr;
        ASSERT_EQ(f.getAcroFormFields(&text, 0), 0);
        ASSERT_NE(text, nullptr);
        EXPECT_NE(text->find("/NeedAppearances"), std::string::npos) << *text;
        for (int n : referencesIn(*text)) EXPECT_TRUE(objs.count(n)) << n << " in " << *text;
        EXPECT_NE(text->find("/Helv"), std::string::npos) << *text;
        EXPECT_EQ(referencesIn(*text).size(), 4u) << *text;  // field a (listed twice), two fonts

        // Numbering the page again brings nothing of the form again.
        f.setStartObjNo(60);
        EXPECT_EQ(delivered(f).size(), objs.size());
    }
}

TEST(AcroForm, WriteMergesTheFieldsOfAllSourcesAndStopsAtAMissingOne) {
    auto a = onePage("/AcroForm << /Fields [10 0 R 11 0 R] >>");
    a[10] = "<< /FT /Tx >>";
    a[11] = "<< /FT /Btn >>";
    auto b = onePage("/AcroForm 9 0 R");
    b[9] = "<< /Fields [7 0 R] /DA (x) >>";
    b[7] = "<< /FT /Ch >>";
    Opened sa(buildPdf(a)), sb(buildPdf(b));
    ASSERT_EQ(sa.rc, 0);
    ASSERT_EQ(sb.rc, 0);
    CDestFile out;
    out.addSource(&sa.file());
    out.addSource(&sb.file());
    out.insertNewObjTab(NewObjTable{0, 1, 10, 0}, SObj(100, 0));
    out.insertNewObjTab(NewObjTable{0, 1, 11, 0}, SObj(101, 0));
    out.insertNewObjTab(NewObjTable{0, 2, 7, 0}, SObj(102, 0));
    out.catalog.acroForm.self = SObj(50, 0);
    EXPECT_TRUE(out.catalog.acroForm.Write(out, sa.file()));
    EXPECT_EQ(static_cast<const std::string&>(out), "50 0 obj\n<</Fields[100 0 R 101 0 R 102 0 R ] >>\nendobj\n");
    EXPECT_EQ(out.fileInfo.ownTable.count(SObj(50, 0)), 1u);

    // A field that did not come along ends the write with the dictionary open.
    CDestFile partial;
    partial.addSource(&sa.file());
    partial.insertNewObjTab(NewObjTable{0, 1, 10, 0}, SObj(100, 0));
    partial.catalog.acroForm.self = SObj(50, 0);
    EXPECT_FALSE(partial.catalog.acroForm.Write(partial, sa.file()));
    EXPECT_EQ(static_cast<const std::string&>(partial), "50 0 obj\n<</Fields[100 0 R ");
    out.sources.clear();
    partial.sources.clear();
}

TEST(AcroForm, DamagedFormsEndAndLeaveTheCatalogWhole) {
    // A form whose value runs to the end of the input, and one that is no
    // dictionary: the catalog still reads its pages.
    for (const std::string form : {"<< /Fields [10 0 R (unclosed", "[1 2 3]", "<< /DR << /Font 5 0 R >>"}) {
        auto o = onePage("/Pages 2 0 R /AcroForm 9 0 R");
        o[9] = form;
        Opened s(buildPdf(o));
        EXPECT_EQ(s.rc, 0) << form;
        EXPECT_EQ(s.file().pages.size(), 1u) << form;
    }
}

// ---------------------------------------------------------------------------
// Optional content

TEST(OCProperties, ListsOfTheDefaultConfigurationAreRead) {
    for (bool viaRef : {false, true}) {
        auto o = onePage("/OCProperties " + std::string(viaRef ? "8 0 R" : "<< /OCGs [5 0 R 6 0 R 7 0 R] /D "
                                                                           "<< /Name (x) /BaseState /OFF /ON [5 0 R] "
                                                                           "/OFF 9 0 R /Order [5 0 R [(label) 6 0 R "
                                                                           "[7 0 R]]] >> >>"));
        o[5] = "<< /Type /OCG /Name (a) >>";
        o[6] = "<< /Type /OCG /Name (b) >>";
        o[7] = "<< /Type /OCG /Name (c) >>";
        o[8] = "<< /OCGs [5 0 R 6 0 R 7 0 R] /D 10 0 R >>";
        o[9] = "[6 0 R 7 0 R]";
        o[10] = "<< /BaseState /OFF /ON [5 0 R] /OFF 9 0 R /Order [5 0 R [(label) 6 0 R [7 0 R]]] >>";
        Opened s(buildPdf(o));
        ASSERT_EQ(s.rc, 0);
        const COCProperties& oc = s.file().catalog.ocProperties;
        EXPECT_EQ(oc.heldByReference, viaRef);
        EXPECT_EQ(nums(oc.ocgs), (std::vector<int>{5, 6, 7}));
        EXPECT_EQ(nums(oc.on), (std::vector<int>{5}));
        EXPECT_EQ(nums(oc.off), (std::vector<int>{6, 7})) << "an array held by reference";
        EXPECT_EQ(nums(oc.order), (std::vector<int>{5, 6, 7})) << "nested lists flattened";
        EXPECT_EQ(oc.baseState, "/OFF");
        // Reading the catalog again gives the same lists, not twice as many.
        s.file().CheckAndInit();
        EXPECT_EQ(nums(s.file().catalog.ocProperties.on), (std::vector<int>{5}));
    }
}

TEST(OCProperties, WriteKeepsOnlyTheDefaultListsWithNullForGroupsLeftOut) {
    COCProperties oc;
    oc.self = SObj(40, 0);
    oc.off = {SObj(6, 0), SObj(7, 0)};
    oc.on = {SObj(5, 0)};
    oc.ocgs = {SObj(5, 0), SObj(6, 0), SObj(7, 0)};
    CDestFile out;
    out.insertNewObjTab(NewObjTable{0, 0, 5, 0}, SObj(105, 0));
    out.insertNewObjTab(NewObjTable{0, 0, 7, 0}, SObj(107, 0));
    pdftest::Source any(pdftest::minimalPdf());
    EXPECT_TRUE(oc.Write(out, any.file));
    EXPECT_EQ(static_cast<const std::string&>(out), "40 0 obj\n<</D<</OFF[ null  107 0 R]/ON[ 105 0 R]>> >>\nendobj\n");
}

TEST(OCProperties, BrokenListsEnd) {
    for (const std::string oc : {"<< /D << /ON [5 0 R", "<< /D 8 0 R >>", "<< /OCGs 8 0 R /D << /OFF 8 0 R >> >>"}) {
        auto o = onePage("/OCProperties 9 0 R");
        o[9] = oc;
        o[8] = "8 0 R";  // an array that is a reference to itself
        Opened s(buildPdf(o));
        EXPECT_EQ(s.rc, 0) << oc;
    }
}

// ---------------------------------------------------------------------------
// The name dictionary

TEST(Names, WhatANameTreeNeedsIsDeliveredAndPagesStayOut) {
    auto o = onePage("/Names 8 0 R");
    o[8] = "<< /Dests 9 0 R /JavaScript << /Names [(init) 12 0 R] >> >>";
    o[9] = "<< /Kids [10 0 R] >>";
    o[10] = "<< /Limits [(a) (b)] /Names [(a) [3 0 R /Fit] (b) 11 0 R] >>";
    o[11] = "<< /D [3 0 R /XYZ 0 0 0] >>";
    o[12] = "<< /S /JavaScript /JS 13 0 R >>";
    o[13] = "stream:app.alert(1);";
    Doc d(buildPdf(o));
    ASSERT_EQ(d.rc, 0);
    CPDFKilnPage& f = *d.page;
    ASSERT_EQ(f.setPageNo(1), 0);
    f.setStartObjNo(20);
    const auto objs = delivered(f);
    // The dictionary's own references are of the name kind; what they reach
    // is closure like any other.
    for (int n : {9, 12}) EXPECT_TRUE(d.src().formObjects.count(SObj(n, 0))) << n;
    for (int n : {9, 10, 11, 12, 13}) EXPECT_TRUE(d.src().fileObjects.count(SObj(n, 0))) << n;
    EXPECT_EQ(objs.size(), 5u);  // the page itself is no object of the map
    std::string all;
    for (const auto& e : objs) all += e.second + "\n";
    EXPECT_NE(all.find("app.alert(1);"), std::string::npos) << all;
    EXPECT_NE(all.find("/Limits"), std::string::npos) << all;
    // getNames names only objects of the run.
    const std::string* names = nullptr;
    ASSERT_EQ(f.getNames(&names), 0);
    ASSERT_NE(names, nullptr);
    ASSERT_FALSE(referencesIn(*names).empty()) << *names;
    for (int n : referencesIn(*names)) EXPECT_TRUE(objs.count(n)) << n << " in " << *names;
    // Numbering again brings the tree no more.
    f.setStartObjNo(60);
    EXPECT_EQ(delivered(f).size(), objs.size());
}

TEST(Names, ADirectNameDictionaryIsWalkedOnce) {
    auto o = onePage("/Names << /EmbeddedFiles << /Names [(f) 9 0 R] >> >>");
    o[9] = "<< /Type /Filespec /EF << /F 10 0 R >> >>";
    o[10] = "stream:data";
    Doc d(buildPdf(o));
    ASSERT_EQ(d.rc, 0);
    ASSERT_EQ(d.page->setPageNo(1), 0);
    d.page->setStartObjNo(20);
    EXPECT_EQ(delivered(*d.page).size(), 2u);
    EXPECT_TRUE(d.src().catalog.names.walked);
}

// ---------------------------------------------------------------------------
// Logical structure and document parts

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
        // Opening notes the roots; the first destination that names no page
        // has the trees walked.
        EXPECT_EQ(d.src().catalog.structTreeRootRef.num, 9);
        EXPECT_EQ(d.src().catalog.dPartRootRef.num, 19);
        EXPECT_TRUE(d.src().tagPages.empty());
        ASSERT_EQ(d.page->setPageNo(1), 0);
        const auto& tags = d.src().tagPages;
        EXPECT_EQ(tags.size(), 2u) << "an element without /Pg enters nothing";
        EXPECT_EQ(tags.at(SObj(11, 0)).num, 3);
        EXPECT_EQ(tags.at(SObj(12, 0)).num, 4);
        const auto& parts = d.src().partPages;
        EXPECT_EQ(parts.size(), 2u);
        EXPECT_EQ(parts.at(SObj(21, 0)).num, 4);
        EXPECT_EQ(parts.at(SObj(22, 0)).num, 3);

        CPDFKilnPage& f = *d.page;
        f.setStartObjNo(40);
        const auto dests = f.getDestVector();
        ASSERT_EQ(dests.size(), 2u);
        std::vector<int> pages{dests[0].page, dests[1].page};
        std::sort(pages.begin(), pages.end());
        EXPECT_EQ(pages, (std::vector<int>{2, 2})) << "element 12 and part 21 both lead to page 2";
        // The go-to of a part is written as a go-to of the link's target.
        std::string all;
        for (const auto& e : delivered(f)) all += e.second + "\n";
        EXPECT_EQ(all.find("GoToDp"), std::string::npos) << all;
        EXPECT_NE(all.find("/S/GoTo "), std::string::npos) << all;
        for (const DestTD& t : dests) {
            const std::string ref = " " + std::to_string(t.number) + " 0 R";
            EXPECT_TRUE(all.find("/Dest" + ref) != std::string::npos || all.find("/D" + ref) != std::string::npos)
                << ref << " in " << all;
        }
    }
}

TEST(Structure, CyclesRepeatsDepthAndTruncationEnd) {
    // /K leading back to an ancestor, and an element reached twice.
    auto o = twoPages("/StructTreeRoot 9 0 R");
    o[9] = "<< /K [10 0 R 10 0 R] >>";
    o[10] = "<< /K [11 0 R] /Pg 3 0 R >>";
    o[11] = "<< /K [10 0 R 9 0 R 11 0 R] /Pg 4 0 R >>";
    {
        Opened s(buildPdf(o));
        ASSERT_EQ(s.rc, 0);
        s.file().catalog.readStructure(s.file());
        EXPECT_EQ(s.file().tagPages.size(), 2u);
        EXPECT_EQ(s.file().tagPages.count(SObj(9, 0)), 0u);
        CStructTreeRoot root(SObj(9, 0));
        root.fromStream(s.file());
        EXPECT_EQ(root.nodesRead, 3);
    }
    // A chain deeper than any stack: 100,000 elements, each the /K of the last.
    {
        pdftest::PdfBuilder b;
        b.object(1, "<< /Type /Catalog /Pages 2 0 R /StructTreeRoot 9 0 R >>");
        b.object(2, "<< /Type /Pages /Kids [3 0 R] /Count 1 >>");
        b.object(3, "<< /Type /Page /Parent 2 0 R /MediaBox [0 0 1 1] >>");
        b.object(9, "<< /K 10 0 R >>");
        const int n = 30000;
        for (int i = 10; i < 10 + n; ++i) b.object(i, "<< /K " + std::to_string(i + 1) + " 0 R /Pg 3 0 R >>");
        const long x = b.xrefTable("/Root 1 0 R");
        b.startxref(x);
        Opened s(b.str());
        ASSERT_EQ(s.rc, 0);
        s.file().catalog.readStructure(s.file());
        EXPECT_EQ(s.file().tagPages.size(), static_cast<std::size_t>(n));
    }
    // A root whose /K runs into the end of the input.
    {
        std::string pdf = buildPdf(twoPages("/StructTreeRoot 9 0 R"));
        pdf += "9 0 obj << /K [10 0 R 11";
        pdftest::Source s(pdf);
        CStructTreeRoot root;
        root.flags &= ~CObj::kIndirect;
        s.file.CheckAndInit();
        s.file.clear();
        s.file.seekg(static_cast<std::streamoff>(pdf.rfind("9 0 obj")));
        EXPECT_FALSE(root.Read(s.file));
    }
}

TEST(Structure, ASecondCatalogReadVisitsNoNode) {
    auto o = twoPages("/StructTreeRoot 9 0 R");
    o[9] = "<< /K 10 0 R >>";
    o[10] = "<< /Pg 3 0 R >>";
    Opened s(buildPdf(o));
    ASSERT_EQ(s.rc, 0);
    s.file().catalog.readStructure(s.file());
    ASSERT_EQ(s.file().tagPages.size(), 1u);
    // A map entry of the first walk stays; reading the catalog again and
    // asking again walks nothing.
    s.file().tagPages[SObj(10, 0)] = SObj(4, 0);
    s.file().CheckAndInit();
    s.file().catalog.readStructure(s.file());
    EXPECT_EQ(s.file().tagPages.at(SObj(10, 0)).num, 4);
}

TEST(Structure, DocumentPartsStopBehindTheirPartsArray) {
    pdftest::Source s(pdftest::minimalPdf());
    CDPart part(SObj(5, 0));
    part.flags &= ~CObj::kIndirect;
    std::string body = "<< /DParts [[3 0 R 4 0 R]] /Start 7 0 R >>";
    pdftest::Source view(body);
    EXPECT_TRUE(part.Read(view.file));
    EXPECT_EQ(nums(part.children), (std::vector<int>{3, 4}));
    EXPECT_EQ(part.page.num, 0) << "the read ends at the closing bracket of /DParts";
}

}  // namespace
