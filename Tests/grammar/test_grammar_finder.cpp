// FindingHint, FindingValue, Linkage and PieceInfoSelector; the helpers they
// use (getType, getValue, getDecompressStream, trimParenthes) and the composed
// message of the exceptions they raise.
#include <gtest/gtest.h>
#include <zlib.h>

#include <fstream>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "pdf_builder.h"
#include "pdfkiln_findingvalue.h"
#include "pdfkiln_sourfile.h"
#include "yard/pdf_rules.h"

using namespace PDF_KILN;

namespace {

typedef std::vector<std::pair<const char*, EPDFType>> Hints;

FindingHint hintOf(const Hints& keys) {
    FindingHint h;
    for (const auto& k : keys) h.insertHintInfo(k.first, k.second);
    return h;
}

// Every collected value as "key=value;", in table order.
std::string dump(const FindingHint& h) {
    std::string out;
    for (const auto& v : h.values()) out += v.first + "=" + v.second + ";";
    return out;
}

// The message of an exception of the finder's unit: `word`, the value part if
// any, then the file and line of the throwing statement.
void expectComposed(const std::string& what, const std::string& word, const char* value) {
    std::string head = word;
    if (value) head += std::string(" error value: ") + value;
    head += "\nException in file: ";
    ASSERT_EQ(what.compare(0, head.size(), head), 0) << what;
    const std::string tail = what.substr(head.size());
    const std::string marker = "pdfkiln_findingvalue.cpp at line: ";
    const std::size_t at = tail.find(marker);
    ASSERT_NE(at, std::string::npos) << tail;
    const std::string line = tail.substr(at + marker.size());
    EXPECT_FALSE(line.empty());
    EXPECT_NE(line[0], '0') << tail;
    EXPECT_EQ(line.find_first_not_of("0123456789"), std::string::npos) << tail;
}

template <typename F>
void expectRaises(F&& f, const std::string& word, const char* value = nullptr) {
    try {
        f();
        ADD_FAILURE() << "no exception";
    } catch (const std::exception& e) {
        expectComposed(e.what(), word, value);
    }
}

EPDFType typeOf(const std::string& s) { return utility::getType(s.data(), s.data() + s.size()); }

std::string valueOf(const std::string& s, EPDFType t) { return utility::getValue(s.data(), s.data() + s.size(), t); }

std::string deflate(const std::string& data) {
    uLongf size = compressBound(static_cast<uLong>(data.size()));
    std::string out(size, '\0');
    compress(reinterpret_cast<Bytef*>(&out[0]), &size, reinterpret_cast<const Bytef*>(data.data()),
             static_cast<uLong>(data.size()));
    out.resize(size);
    return out;
}

}  // namespace


TEST(FindingHint, KeysCompareWithoutSurroundingBlanks) {
    FindingHint h;
    EXPECT_TRUE(h.insertHintInfo("/Key", ePDFName));
    EXPECT_FALSE(h.insertHintInfo(" /Key", ePDFNumber));
    EXPECT_FALSE(h.insertHintInfo("/Key  ", ePDFString));
    EXPECT_EQ(h.getPropertyType("/Key"), ePDFName);  // the old type stays
    EXPECT_EQ(h.getPropertyType("  /Key "), ePDFName);
    EXPECT_TRUE(h.keyExist(" /Key"));
    EXPECT_FALSE(h.keyExist("/Ke"));
    EXPECT_FALSE(h.keyExist("/Key\t"));  // only byte 32 is a blank
    expectRaises([&] { h.getPropertyType("/Other"); }, "Not Found. input param is: ", "/Other");
}

TEST(FindingHint, OrderIsBytewiseSignedPrefixFirst) {
    FindingHint::myLess less;
    // A high byte is negative as a signed char.
    const struct { const char* a; const char* b; bool less; } cases[] = {
        {"/A", "/AB", true}, {"/AB", "/A", false}, {"/\xC3", "/A", true}, {" /A", "/A ", false},
        {"/A ", " /A", false}, {"   ", "/", true}, {"", "  ", false}};
    for (const auto& c : cases) EXPECT_EQ(less(c.a, c.b), c.less) << c.a << " < " << c.b;
}

TEST(FindingHint, ValuesInInsertionOrderAndCopiesWithoutValues) {
    FindingHint h;
    EXPECT_EQ(h.getPropertyValue("/A"), "");
    EXPECT_EQ(h.getPropertyValueCount("/A"), 0);
    h.insertPropertyValue("/B", "b1");
    h.insertPropertyValue("/A", "first");
    h.insertPropertyValue(" /A", "second");
    h.insertPropertyValue("/A", "third");
    EXPECT_EQ(h.getPropertyValue("/A"), "first");
    EXPECT_EQ(h.getPropertyValueCount("/A"), 3);
    EXPECT_EQ(h.getPropertyValue("/AB"), "");
    std::ostringstream out;
    h.outPutValue(out);
    EXPECT_EQ(out.str(), "/A\nfirst\n /A\nsecond\n/A\nthird\n/B\nb1\n");

    h.insertHintInfo("/A", ePDFNumber);
    FindingHint copy(h);
    EXPECT_TRUE(copy.keyExist("/A"));
    EXPECT_EQ(copy.getPropertyValueCount("/A"), 0);
    FindingHint assigned;
    assigned.insertPropertyValue("/Z", "z");
    assigned = h;
    EXPECT_TRUE(assigned.keyExist("/A"));
    EXPECT_EQ(assigned.values().size(), 0u);
}


TEST(FindingValue, CollectsFromText) {
    const struct { Hints hints; std::string text; bool deep; std::string want; } cases[] = {
        // Values of the expected type; a string loses its brackets but keeps its
        // escapes, a hex string keeps its "<>".
        {{{"/Version", ePDFName}, {"/Count", ePDFNumber}, {"/Title", ePDFString}, {"/ID", ePDFString},
          {"/Kids", ePDFArray}, {"/Open", ePDFBoolean}, {"/Ref", ePDFIndirect}, {"/Nothing", ePDFNull},
          {"/Sub", ePDFDictionary}},
         "<< /Version /1.7 /Count 3 /Title (a\\(b) /ID <4142> /Kids [1 0 R] /Open true "
         "/Ref 7 0 R /Nothing null /Sub << /X 1 >> >>\nendobj\n",
         false,
         "/Count=3;/ID=<4142>;/Kids=[1 0 R];/Nothing=null;/Open=true;/Ref=7 0 R;/Sub=<< /X 1 >>;/Title=a\\(b;"
         "/Version=/1.7;"},
        // A value of the wrong type that is no reference yields nothing.
        {{{"/Count", ePDFNumber}, {"/Type", ePDFString}}, "<< /Count (three) /Type /Page >>", true, ""},
        // Every occurrence of a key counts, a name value among them.
        {{{"/N", ePDFNumber}}, "<< /N 1 /K [/N 2] /L << /N 3.5 >> >>", false, "/N=1;/N=2;/N=3.5;"},
        {{{"/S", ePDFName}}, "<< /A /S /S /GTS_PDFX >>", false, "/S=/S;/S=/GTS_PDFX;"},
        // Only the first dictionary is examined, and only up to its end (here
        // the ">>" inside the string).
        {{{"/A", ePDFNumber}}, "/A 0 << /B 1 >> << /A 2 >>", true, ""},
        {{{"/A", ePDFNumber}}, "/A 5", true, ""},
        {{{"/A", ePDFString}, {"/B", ePDFNumber}}, "<< /A (x>>y) /B 2 >>", false, ""},
        // A deep search over text ends when nothing is queued.
        {{{"/OutputIntents", ePDFNone}, {"/S", ePDFName}}, "<< /OutputIntents /None /S /GTS_PDFA1 >>", true,
         "/S=/GTS_PDFA1;"},
    };
    for (const auto& c : cases) {
        FindingHint h = hintOf(c.hints);
        FindingValue f(h, nullptr, c.text);
        f.find(c.deep);
        EXPECT_EQ(dump(h), c.want) << c.text;
        if (!c.deep) continue;
        f.find(true);  // already empty: a second search does nothing
        EXPECT_EQ(dump(h), c.want) << c.text;
    }
}

TEST(FindingValue, WithoutASource) {
    // A none key queues its references from the text alone; the next step fetches.
    FindingHint h = hintOf({{"/OutputIntents", ePDFNone}});
    FindingValue f(h, nullptr, "<< /OutputIntents [4 0 R 5 0 R] >>");
    f.find(false);
    EXPECT_EQ(h.values().size(), 0u);
    expectRaises([&] { f.find(false); }, "PDF_KILN_LocalObjErr");
    // A reference where another type is wanted is fetched too.
    FindingHint info = hintOf({{"/Info", ePDFDictionary}});
    FindingValue g(info, nullptr, "<< /Info 6 0 R >>");
    expectRaises([&] { g.find(false); }, "PDF_KILN_LocalObjErr", "6 0 R");
    expectRaises([&] { FindingValue(info, nullptr); }, "PDF_KILN_LocalObjErr");
    Linkage link(ePDFDictionary, nullptr);
    EXPECT_EQ(link.linkImpl("<< /A 1 >>"), "<< /A 1 >>");
    EXPECT_EQ(link(""), "");
    // An empty mark is no match, decided before anything is fetched.
    EXPECT_FALSE(PieceInfoSelector(nullptr, "", "b", "c", 1, 0).match());
    EXPECT_FALSE(PieceInfoSelector(nullptr, "a", nullptr, "c", 1, 0).match());
    EXPECT_FALSE(PieceInfoSelector(nullptr, "a", "b", "", 1, 0).match());
}


class FinderOnFile : public ::testing::Test {
protected:
    static std::string document() {
        pdftest::PdfBuilder b;
        const char* const bodies[] = {
            nullptr, "<< /Type /Catalog /Pages 2 0 R /OutputIntents [4 0 R 5 0 R] /Info 6 0 R >>",
            "<< /Type /Pages /Kids [] /Count 0 >>", nullptr,
            "<< /Type /OutputIntent /S /GTS_PDFX /OutputConditionIdentifier (FOGRA39) >>",
            "<< /Type /OutputIntent /S /GTS_PDFA1 /OutputConditionIdentifier (sRGB) >>",
            // A chain of two references that ends in a dictionary.
            "8 0 R", nullptr, "9 0 R", "<< /Producer (kiln) >>",
            // A cycle of dictionaries, and a cycle of bare references.
            "<< /Next 11 0 R /Name /Ten >>", "<< /Next 10 0 R /Name /Eleven >>", "13 0 R", "12 0 R",
            "<< /Loop 12 0 R /Bad 99 0 R >>", "<< /Length 5 /Filter /AHx >>\nstream\n4142>\nendstream",
            "<< /Data 15 0 R /Dict 15 0 R /PieceInfo << /Illustrator << /Private 17 0 R >> >> >>",
            "<< /AIPrivateData1 18 0 R >>"};
        for (int n = 1; n < 18; ++n)
            if (bodies[n]) b.object(n, bodies[n]);
        b.startxref(b.xrefTable("/Root 1 0 R"));
        return b.str();
    }
    void SetUp() override { ASSERT_EQ(doc.file.CheckAndInit(), 0); }
    pdftest::Source doc{document()};
};

TEST_F(FinderOnFile, CatalogSearchFollowsNoneKeysDepthFirst) {
    FindingHint h =
        hintOf({{"/OutputIntents", ePDFNone}, {"/S", ePDFName}, {"/OutputConditionIdentifier", ePDFString}});
    FindingValue(h, &doc.file).find(true);
    // The queue is a stack: the last reference found is examined first.
    EXPECT_EQ(dump(h),
              "/OutputConditionIdentifier=sRGB;/OutputConditionIdentifier=FOGRA39;/S=/GTS_PDFA1;/S=/GTS_PDFX;");
}

TEST_F(FinderOnFile, ShallowFindStopsAfterOneStep) {
    FindingHint h = hintOf({{"/OutputIntents", ePDFNone}, {"/S", ePDFName}});
    FindingValue f(h, &doc.file, 1, 0);
    f.find(false);  // fetches and examines the catalog only
    EXPECT_EQ(h.getPropertyValueCount("/S"), 0);
    f.find(false);  // the next step goes on with what is left
    EXPECT_EQ(dump(h), "/S=/GTS_PDFA1;");
}

TEST_F(FinderOnFile, ChainsEndAndCyclesEnd) {
    // A reference asked for as a reference is taken as it stands.
    FindingHint h = hintOf({{"/Info", ePDFDictionary}, {"/Pages", ePDFIndirect}});
    FindingValue(h, &doc.file).find(true);
    EXPECT_EQ(dump(h), "/Info=<< /Producer (kiln) >>;/Pages=2 0 R;");
    // Each object of a cycle is examined once.
    FindingHint cycle = hintOf({{"/Next", ePDFNone}, {"/Name", ePDFName}});
    FindingValue(cycle, &doc.file, 10, 0).find(true);
    EXPECT_EQ(dump(cycle), "/Name=/Ten;/Name=/Eleven;");
    FindingHint loop = hintOf({{"/Loop", ePDFDictionary}});
    FindingValue(loop, &doc.file, 14, 0).find(true);
    EXPECT_EQ(loop.getPropertyValueCount("/Loop"), 0);
    // A missing object raises with the reference.
    FindingHint bad = hintOf({{"/Bad", ePDFDictionary}});
    expectRaises([&] { FindingValue(bad, &doc.file, 14, 0).find(true); }, "PDF_KILN_LocalObjErr", "99 0 R");
}

TEST_F(FinderOnFile, LinkageCutsStreamsUnlessAsked) {
    std::string dict = Linkage(ePDFDictionary, &doc.file).linkImpl("x 15 0 R");
    EXPECT_EQ(dict.substr(dict.size() - 2), ">>");
    EXPECT_EQ(dict.find("stream"), std::string::npos);
    std::string whole = Linkage(ePDFStream, &doc.file).linkImpl("15 0 R");
    EXPECT_NE(whole.find("endstream"), std::string::npos);

    FindingHint h = hintOf({{"/Data", ePDFStream}, {"/Dict", ePDFDictionary}});
    FindingValue(h, &doc.file, 16, 0).find(false);
    EXPECT_EQ(h.getPropertyValue("/Data"), "AB");
    EXPECT_EQ(h.getPropertyValueCount("/Data"), 1);
    ASSERT_EQ(h.getPropertyValueCount("/Dict"), 1);
    const std::string d = h.getPropertyValue("/Dict");
    EXPECT_EQ(d.substr(0, 2), "<<");
    EXPECT_EQ(d.substr(d.size() - 2), ">>");
    EXPECT_NE(d.find("/Filter /AHx"), std::string::npos);
}

TEST_F(FinderOnFile, PieceInfoSelectorIsACharacterSetTest) {
    // Substrings of the collected text; or not, but one byte of each occurs.
    EXPECT_TRUE(PieceInfoSelector(&doc.file, "/Illustrator", "/Private", "17 0 R", 16, 0).match());
    EXPECT_TRUE(PieceInfoSelector(&doc.file, "qI", "Zr", "#7", 16, 0).match());
    EXPECT_FALSE(PieceInfoSelector(&doc.file, "I", "r", "qQ", 16, 0).match());
    // An object without /PieceInfo collects no text.
    EXPECT_FALSE(PieceInfoSelector(&doc.file, "I", "r", "e", 9, 0).match());
}

TEST(FinderOnSample, SampleWithObjectStreams) {
    std::ifstream file(std::string(PDFKILN_SOURCE_DIR) + "/samples/sample.pdf", std::ios::binary);
    if (!file) GTEST_SKIP() << "samples/sample.pdf not found";
    std::stringstream in;
    in << file.rdbuf();
    CSourFile src(in);
    ASSERT_EQ(src.CheckAndInit(), 0);
    FindingHint h = hintOf({{"/Type", ePDFName}, {"/Pages", ePDFNone}, {"/Count", ePDFNumber}});
    FindingValue(h, &src).find(true);
    EXPECT_EQ(h.getPropertyValue("/Type"), "/Catalog");
    EXPECT_GE(h.getPropertyValueCount("/Count"), 1);
}

TEST(Utility, GetTypeAndGetValue) {
    const struct { std::string text; EPDFType type; } cases[] = {
        {"true", ePDFBoolean}, {"  -3.5 /A", ePDFNumber}, {"(x) 1", ePDFString}, {"<41>", ePDFString},
        {"/true", ePDFName}, {"[1 2]", ePDFArray}, {"<< /A 1 >>", ePDFDictionary}, {"<<>>", ePDFDictionary},
        {">>stream", ePDFStream}, {"null 1", ePDFNull},
        // A search, not a check of the first byte.
        {"abc true", ePDFBoolean}, {"-.5", ePDFNumber},
        // The number rule also hits at "1", but the reference is tried later.
        {"12 0 R", ePDFIndirect}, {"12 0 obj", ePDFNumber},
        {"", ePDFNone}, {"xyz {}", ePDFNone},
        // The stream type comes only out of the two-pointer form, on a fragment.
        {"/Length 3 >>\nstream", ePDFName}, {">>\nstream\n", ePDFStream},
    };
    for (const auto& c : cases) EXPECT_EQ(typeOf(c.text), c.type) << c.text;
    EXPECT_EQ(utility::getType(nullptr, nullptr), ePDFNone);
    // The string form stops at the stream begin: stream data is never classified.
    EXPECT_EQ(utility::getType(std::string("  5 0 R endobj")), ePDFIndirect);
    EXPECT_EQ(utility::getType(std::string()), ePDFNone);
    EXPECT_EQ(utility::getType(std::string("<< /Length 3 >>\nstream\n(x)\nendstream\nendobj")), ePDFDictionary);
    EXPECT_EQ(utility::getType(std::string(">>\nstream\n")), ePDFNone);
    EXPECT_EQ(utility::getType(std::string("x>>stream true")), ePDFNone);
    // getValue: the first value of the type.
    const char* p = "x";
    for (int t = 0; t <= 11; ++t) {
        EXPECT_EQ(utility::getValue(p, p, static_cast<EPDFType>(t)), "") << t;
        EXPECT_EQ(utility::getValue(nullptr, nullptr, static_cast<EPDFType>(t)), "") << t;
    }
    const std::string t = " /Type /Page /Count 3 /Kids [4 0 R] /T (a(b)) /N null /B false /D <</X 1>>";
    const std::pair<EPDFType, const char*> firsts[] = {
        {ePDFName, "/Type"},      {ePDFNumber, "3"},       {ePDFArray, "[4 0 R]"},          {ePDFIndirect, "4 0 R"},
        {ePDFString, "(a(b))"},   {ePDFNull, "null"},      {ePDFBoolean, "false"},          {ePDFDictionary, "<</X 1>>"},
        {ePDFNone, ""},           {static_cast<EPDFType>(10), ""}};
    for (const auto& f : firsts) EXPECT_EQ(valueOf(t, f.first), f.second) << f.first;
    EXPECT_EQ(valueOf("/A", ePDFNumber), "");
    // The stream type decodes the range.
    EXPECT_EQ(valueOf("<< /Length 3 >>\nstream\nabc\nendstream", ePDFStream), "abc");

    yard::Tokenizer<PDF_RULES::MatchNameObject> tok;
    const std::string names = "1 /B /C";
    EXPECT_EQ(parseValue(tok, names.data(), names.data() + names.size()), "/B");
    EXPECT_TRUE(tok.empty()) << "parseValue works on a copy of the tokenizer";
    EXPECT_EQ(parseValue(tok, names.data(), names.data() + 1), "");
}


TEST(DecompressStream, DataAndFilters) {
    const std::string text = "BT /F1 12 Tf (Hello) Tj ET";
    const std::string bin("\0\x01\xff\r", 4);
    const struct { std::string in; std::string out; } cases[] = {
        // No stream, "stream" without "endstream", or only the tail of "endstream": no data.
        {"", ""},
        {"<< /A 1 >>", ""},
        {"<< /A 1 >>stream\nabc", ""},
        {"abc endstream", ""},
        // Unfiltered data lose line ends at both ends, by byte value, /Length or not.
        {"<< /Length 5 >>\nstream\r\nhello\r\n\nendstream\nendobj", "hello"},
        {"<< /Length 6 >>stream\n\nab\n\r\nendstream", "ab"},
        {"<<>>stream\n\r\n\nendstream", ""},
        // The last "endstream" ends the data; binary data pass untouched.
        {"<<>>stream\na endstream b\nendstream", "a endstream b"},
        {"<<>>stream\n" + bin + "x\nendstream", bin + "x"},
        {"<< /Filter /FlateDecode >>\nstream\n" + deflate(text) + "\nendstream", text},
        {"<< /Filter /AHx >>\nstream\n48656C6C6F>\nendstream", "Hello"},
        {"<< /Filter [/AHx /Fl] >>stream\n789C4B4C4A0600024D0127>\nendstream", "abc"},
        // The full name "/ASCIIHexDecode" is no filter of the library ("/AHx" is).
        {"<< /Filter /ASCIIHexDecode >>\nstream\n4142>\nendstream", "4142>"},
        // The first "/Filter" anywhere counts: inside a string, or in /DecodeParms.
        {"<< /Note (/Filter /AHx) /Length 5 >>\nstream\n4142>\nendstream", "AB"},
        {"<< /DecodeParms << /Filter /AHx >> /Filter /Fl >>\nstream\n4142>\nendstream", "AB"},
    };
    for (const auto& c : cases) EXPECT_EQ(utility::getDecompressStream(c.in), c.out) << c.in;
    expectRaises([] { utility::getDecompressStream("<< /Filter /FlateDecode >>\nstream\nnot zlib data\nendstream"); },
                 "Decomress error");
}

TEST(TrimParenthes, CutsEveryLeadingOpenAndTrailingClose) {
    const std::pair<const char*, const char*> cases[] = {
        {"((a))", "a"}, {"(a\\)b)", "a\\)b"}, {"(Hello \\(x\\))", "Hello \\(x\\"}, {"<41>", "<41>"},
        {"()", ""},     {"(((", ""},          {")))", ""},                        {"", ""},
        {")(", ")("},   {" (a) ", " (a) "},
    };
    for (const auto& c : cases) EXPECT_EQ(trimParenthes(c.first), c.second) << c.first;
    EXPECT_EQ(utility::toString(0), "0");
    EXPECT_EQ(utility::toString(-42), "-42");
}
