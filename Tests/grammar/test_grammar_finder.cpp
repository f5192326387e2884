// FindingHint, FindingValue, Linkage and PieceInfoSelector.
//
// The tests of the suites whose names end in "OnFile" fetch objects from a
// real document through CObj::LocalObj. While the object renderer
// (CObj::WriteObj) renders nothing they skip themselves; they run as soon as
// fetched objects have text.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "pdfkiln_destfile.h"
#include "pdfkiln_findingvalue.h"
#include "pdfkiln_sourfile.h"

using namespace PDF_KILN;

namespace {

void expectComposed(const std::string& what, const std::string& word, const std::string* value) {
    std::string head = word;
    if (value) head += " error value: " + *value;
    head += "\nException in file: ";
    ASSERT_EQ(what.compare(0, head.size(), head), 0) << what;
    std::string tail = what.substr(head.size());
    // The source path of the throwing unit, then its line number.
    const std::string marker = "pdfkiln_findingvalue.cpp at line: ";
    const std::size_t at = tail.find(marker);
    ASSERT_NE(at, std::string::npos) << tail;
    const std::string line = tail.substr(at + marker.size());
    EXPECT_FALSE(line.empty());
    EXPECT_NE(line[0], '0') << tail;
    EXPECT_EQ(line.find_first_not_of("0123456789"), std::string::npos) << tail;
}

std::vector<std::string> valuesOf(const FindingHint& h, const std::string& key) {
    std::vector<std::string> out;
    auto range = h.values().equal_range(key);
    for (auto it = range.first; it != range.second; ++it) out.push_back(it->second);
    return out;
}

typedef std::vector<std::string> V;

// A classic-xref document from object bodies; object 1 is the catalog.
std::string buildPdf(const std::map<int, std::string>& objects) {
    std::string pdf = "%PDF-1.4\n";
    std::map<int, long> offsets;
    int maxNum = 0;
    for (const auto& o : objects) {
        offsets[o.first] = static_cast<long>(pdf.size());
        pdf += std::to_string(o.first) + " 0 obj\n" + o.second + "\nendobj\n";
        maxNum = std::max(maxNum, o.first);
    }
    long xref = static_cast<long>(pdf.size());
    pdf += "xref\n0 " + std::to_string(maxNum + 1) + "\n0000000000 65535 f \n";
    for (int n = 1; n <= maxNum; ++n) {
        char line[32];
        auto it = offsets.find(n);
        if (it == offsets.end()) std::snprintf(line, sizeof line, "0000000000 65535 f \n");
        else std::snprintf(line, sizeof line, "%010ld 00000 n \n", it->second);
        pdf += line;
    }
    pdf += "trailer\n<< /Size " + std::to_string(maxNum + 1) + " /Root 1 0 R >>\nstartxref\n" +
           std::to_string(xref) + "\n%%EOF\n";
    return pdf;
}

struct OpenDoc {
    explicit OpenDoc(const std::string& pdf) : stream(pdf), file(stream) { rc = file.CheckAndInit(); }
    std::stringstream stream;
    CSourFile file;
    int rc = -1;
};

// True when fetching an object yields its text (the renderer is in place).
bool objectsRender(CSourFile& src, int num) {
    CDestFile sink{std::string()};
    CObj obj(SObj(num, 0));
    return obj.LocalObj(sink, src) && !sink.empty();
}

#define SKIP_UNLESS_OBJECTS_RENDER(src, num)                                                     \
    if (!objectsRender((src), (num))) GTEST_SKIP() << "CObj::LocalObj renders no object text yet"

}  // namespace

// ---- FindingHint ------------------------------------------------------------------

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
}

TEST(FindingHint, OrderIsBytewiseSignedPrefixFirst) {
    FindingHint::myLess less;
    EXPECT_TRUE(less("/A", "/AB"));
    EXPECT_FALSE(less("/AB", "/A"));
    EXPECT_TRUE(less("/\xC3", "/A"));  // a high byte is negative as a signed char
    EXPECT_FALSE(less(" /A", "/A "));
    EXPECT_FALSE(less("/A ", " /A"));
    EXPECT_TRUE(less("   ", "/"));
    EXPECT_FALSE(less("", "  "));
}

TEST(FindingHint, UnknownKeyRaisesComposedMessage) {
    FindingHint h;
    h.insertHintInfo("/Known", ePDFName);
    try {
        h.getPropertyType("/Other");
        FAIL() << "no exception";
    } catch (const std::exception& e) {
        const std::string value = "/Other";
        expectComposed(e.what(), "Not Found. input param is: ", &value);
    }
}

TEST(FindingHint, ValuesInInsertionOrder) {
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
}

TEST(FindingHint, CopyTakesKeysButNoValues) {
    FindingHint h;
    h.insertHintInfo("/A", ePDFNumber);
    h.insertPropertyValue("/A", "1");
    FindingHint copy(h);
    EXPECT_TRUE(copy.keyExist("/A"));
    EXPECT_EQ(copy.getPropertyValueCount("/A"), 0);
    FindingHint assigned;
    assigned.insertPropertyValue("/Z", "z");
    assigned = h;
    EXPECT_TRUE(assigned.keyExist("/A"));
    EXPECT_EQ(assigned.values().size(), 0u);
}

// ---- FindingValue over text ---------------------------------------------------------

TEST(FindingValue, CollectsValuesOfExpectedType) {
    FindingHint h;
    h.insertHintInfo("/Version", ePDFName);
    h.insertHintInfo("/Count", ePDFNumber);
    h.insertHintInfo("/Title", ePDFString);
    h.insertHintInfo("/ID", ePDFString);
    h.insertHintInfo("/Kids", ePDFArray);
    h.insertHintInfo("/Open", ePDFBoolean);
    h.insertHintInfo("/Ref", ePDFIndirect);
    h.insertHintInfo("/Nothing", ePDFNull);
    h.insertHintInfo("/Sub", ePDFDictionary);
    FindingValue f(h, nullptr,
                   "<< /Version /1.7 /Count 3 /Title (a\\(b) /ID <4142> /Kids [1 0 R] /Open true "
                   "/Ref 7 0 R /Nothing null /Sub << /X 1 >> >>\nendobj\n");
    f.find(false);
    EXPECT_EQ(valuesOf(h, "/Version"), V({"/1.7"}));
    EXPECT_EQ(valuesOf(h, "/Count"), V({"3"}));
    // A string without its brackets but with its escapes; hex keeps its "<>".
    EXPECT_EQ(valuesOf(h, "/Title"), V({"a\\(b"}));
    EXPECT_EQ(valuesOf(h, "/ID"), V({"<4142>"}));
    EXPECT_EQ(valuesOf(h, "/Kids"), V({"[1 0 R]"}));
    EXPECT_EQ(valuesOf(h, "/Open"), V({"true"}));
    EXPECT_EQ(valuesOf(h, "/Ref"), V({"7 0 R"}));
    EXPECT_EQ(valuesOf(h, "/Nothing"), V({"null"}));
    EXPECT_EQ(valuesOf(h, "/Sub"), V({"<< /X 1 >>"}));
}

TEST(FindingValue, WrongTypeWithoutReferenceYieldsNothing) {
    FindingHint h;
    h.insertHintInfo("/Count", ePDFNumber);
    h.insertHintInfo("/Type", ePDFString);
    FindingValue f(h, nullptr, "<< /Count (three) /Type /Page >>");
    f.find(true);
    EXPECT_EQ(h.values().size(), 0u);
}

TEST(FindingValue, EveryOccurrenceOfAKeyIsProcessed) {
    FindingHint h;
    h.insertHintInfo("/N", ePDFNumber);
    FindingValue f(h, nullptr, "<< /N 1 /K [/N 2] /L << /N 3.5 >> >>");
    f.find(false);
    EXPECT_EQ(valuesOf(h, "/N"), V({"1", "2", "3.5"}));

    // A name value counts as an occurrence too.
    FindingHint names;
    names.insertHintInfo("/S", ePDFName);
    FindingValue g(names, nullptr, "<< /A /S /S /GTS_PDFX >>");
    g.find(false);
    EXPECT_EQ(valuesOf(names, "/S"), V({"/S", "/GTS_PDFX"}));
    EXPECT_EQ(names.getPropertyValue("/S"), "/S");
}

TEST(FindingValue, OnlyTheFirstDictionaryIsExamined) {
    FindingHint h;
    h.insertHintInfo("/A", ePDFNumber);
    FindingValue f(h, nullptr, "/A 0 << /B 1 >> << /A 2 >>");
    f.find(true);
    EXPECT_EQ(h.values().size(), 0u);
    // No dictionary at all: nothing.
    FindingValue g(h, nullptr, "/A 5");
    g.find(true);
    EXPECT_EQ(h.values().size(), 0u);
}

TEST(FindingValue, ValueIsSearchedUpToTheDictionaryEnd) {
    // The dictionary closes early at the ">>" inside the string, so the number
    // behind it is out of range.
    FindingHint h;
    h.insertHintInfo("/A", ePDFString);
    h.insertHintInfo("/B", ePDFNumber);
    FindingValue f(h, nullptr, "<< /A (x>>y) /B 2 >>");
    f.find(false);
    EXPECT_EQ(h.values().size(), 0u);
}

TEST(FindingValue, NoneKeyQueuesReferencesFromTextAlone) {
    FindingHint h;
    h.insertHintInfo("/OutputIntents", ePDFNone);
    FindingValue f(h, nullptr, "<< /OutputIntents [4 0 R 5 0 R] >>");
    // One step examines the text and queues the references; nothing is fetched.
    f.find(false);
    EXPECT_EQ(h.values().size(), 0u);
    // The next step fetches: with no source, the fetch fails.
    try {
        f.find(false);
        FAIL() << "no exception";
    } catch (const std::exception& e) {
        expectComposed(e.what(), "PDF_KILN_LocalObjErr", nullptr);
    }
}

TEST(FindingValue, DeepFindOnTextEndsWhenNothingIsQueued) {
    FindingHint h;
    h.insertHintInfo("/OutputIntents", ePDFNone);
    h.insertHintInfo("/S", ePDFName);
    FindingValue f(h, nullptr, "<< /OutputIntents /None /S /GTS_PDFA1 >>");
    f.find(true);
    EXPECT_EQ(valuesOf(h, "/S"), V({"/GTS_PDFA1"}));
    // Already empty: a second search does nothing.
    f.find(true);
    EXPECT_EQ(h.values().size(), 1u);
}

TEST(FindingValue, ReferenceOfWrongTypeNeedsASource) {
    FindingHint h;
    h.insertHintInfo("/Info", ePDFDictionary);
    FindingValue f(h, nullptr, "<< /Info 6 0 R >>");
    try {
        f.find(false);
        FAIL() << "no exception";
    } catch (const std::exception& e) {
        const std::string value = "6 0 R";
        expectComposed(e.what(), "PDF_KILN_LocalObjErr", &value);
    }
}

TEST(FindingValue, CatalogConstructorNeedsASource) {
    FindingHint h;
    try {
        FindingValue f(h, nullptr);
        FAIL() << "no exception";
    } catch (const std::exception& e) {
        expectComposed(e.what(), "PDF_KILN_LocalObjErr", nullptr);
    }
}

TEST(Linkage, TextWithoutReferenceComesBackUnchanged) {
    Linkage link(ePDFDictionary, nullptr);
    EXPECT_EQ(link.linkImpl("<< /A 1 >>"), "<< /A 1 >>");
    EXPECT_EQ(link(""), "");
}

TEST(PieceInfoSelector, EmptyMarkIsNoMatch) {
    // Decided before anything is fetched.
    EXPECT_FALSE(PieceInfoSelector(nullptr, "", "b", "c", 1, 0).match());
    EXPECT_FALSE(PieceInfoSelector(nullptr, "a", nullptr, "c", 1, 0).match());
    EXPECT_FALSE(PieceInfoSelector(nullptr, "a", "b", "", 1, 0).match());
}

// ---- on a document (skipped until fetched objects have text) -------------------------

namespace {

std::string findingDoc() {
    std::map<int, std::string> o;
    o[1] = "<< /Type /Catalog /Pages 2 0 R /OutputIntents [4 0 R 5 0 R] /Info 6 0 R >>";
    o[2] = "<< /Type /Pages /Kids [] /Count 0 >>";
    o[4] = "<< /Type /OutputIntent /S /GTS_PDFX /OutputConditionIdentifier (FOGRA39) >>";
    o[5] = "<< /Type /OutputIntent /S /GTS_PDFA1 /OutputConditionIdentifier (sRGB) >>";
    // A chain of two references that ends in a dictionary.
    o[6] = "8 0 R";
    o[8] = "9 0 R";
    o[9] = "<< /Producer (kiln) >>";
    // A cycle of dictionaries, and a cycle of bare references.
    o[10] = "<< /Next 11 0 R /Name /Ten >>";
    o[11] = "<< /Next 10 0 R /Name /Eleven >>";
    o[12] = "13 0 R";
    o[13] = "12 0 R";
    o[14] = "<< /Loop 12 0 R /Bad 99 0 R >>";
    o[15] = "<< /Length 5 /Filter /AHx >>\nstream\n4142>\nendstream";
    o[16] = "<< /Data 15 0 R /Dict 15 0 R /PieceInfo << /Illustrator << /Private 17 0 R >> >> >>";
    o[17] = "<< /AIPrivateData1 18 0 R >>";
    return buildPdf(o);
}

}  // namespace

TEST(FinderOnFile, CatalogSearchFollowsNoneKeysDepthFirst) {
    OpenDoc doc(findingDoc());
    ASSERT_EQ(doc.rc, 0);
    SKIP_UNLESS_OBJECTS_RENDER(doc.file, 1);
    FindingHint h;
    h.insertHintInfo("/OutputIntents", ePDFNone);
    h.insertHintInfo("/S", ePDFName);
    h.insertHintInfo("/OutputConditionIdentifier", ePDFString);
    FindingValue f(h, &doc.file);
    f.find(true);
    // The queue is a stack: the last reference found is examined first.
    EXPECT_EQ(valuesOf(h, "/S"), V({"/GTS_PDFA1", "/GTS_PDFX"}));
    EXPECT_EQ(valuesOf(h, "/OutputConditionIdentifier"), V({"sRGB", "FOGRA39"}));
}

TEST(FinderOnFile, ShallowFindStopsAfterOneStep) {
    OpenDoc doc(findingDoc());
    ASSERT_EQ(doc.rc, 0);
    SKIP_UNLESS_OBJECTS_RENDER(doc.file, 1);
    FindingHint h;
    h.insertHintInfo("/OutputIntents", ePDFNone);
    h.insertHintInfo("/S", ePDFName);
    FindingValue f(h, &doc.file, 1, 0);
    f.find(false);  // fetches and examines the catalog only
    EXPECT_EQ(h.getPropertyValueCount("/S"), 0);
    f.find(false);  // the next step goes on with what is left
    EXPECT_EQ(valuesOf(h, "/S"), V({"/GTS_PDFA1"}));
}

TEST(FinderOnFile, ChainOfReferencesIsFollowedToItsEnd) {
    OpenDoc doc(findingDoc());
    ASSERT_EQ(doc.rc, 0);
    SKIP_UNLESS_OBJECTS_RENDER(doc.file, 1);
    FindingHint h;
    h.insertHintInfo("/Info", ePDFDictionary);
    h.insertHintInfo("/Pages", ePDFIndirect);
    FindingValue f(h, &doc.file);
    f.find(true);
    EXPECT_EQ(valuesOf(h, "/Info"), V({"<< /Producer (kiln) >>"}));
    // A reference asked for as a reference is taken as it stands.
    EXPECT_EQ(valuesOf(h, "/Pages"), V({"2 0 R"}));
}

TEST(FinderOnFile, ReferenceCyclesEnd) {
    OpenDoc doc(findingDoc());
    ASSERT_EQ(doc.rc, 0);
    SKIP_UNLESS_OBJECTS_RENDER(doc.file, 10);
    FindingHint h;
    h.insertHintInfo("/Next", ePDFNone);
    h.insertHintInfo("/Name", ePDFName);
    FindingValue f(h, &doc.file, 10, 0);
    f.find(true);
    // Each object of the cycle is examined once.
    EXPECT_EQ(valuesOf(h, "/Name"), V({"/Ten", "/Eleven"}));

    FindingHint loop;
    loop.insertHintInfo("/Loop", ePDFDictionary);
    FindingValue g(loop, &doc.file, 14, 0);
    g.find(true);
    EXPECT_EQ(loop.getPropertyValueCount("/Loop"), 0);
}

TEST(FinderOnFile, MissingObjectRaisesWithTheReference) {
    OpenDoc doc(findingDoc());
    ASSERT_EQ(doc.rc, 0);
    SKIP_UNLESS_OBJECTS_RENDER(doc.file, 14);
    FindingHint h;
    h.insertHintInfo("/Bad", ePDFDictionary);
    FindingValue f(h, &doc.file, 14, 0);
    try {
        f.find(true);
        FAIL() << "no exception";
    } catch (const std::exception& e) {
        const std::string value = "99 0 R";
        expectComposed(e.what(), "PDF_KILN_LocalObjErr", &value);
    }
}

TEST(FinderOnFile, LinkageCutsStreamsUnlessAsked) {
    OpenDoc doc(findingDoc());
    ASSERT_EQ(doc.rc, 0);
    SKIP_UNLESS_OBJECTS_RENDER(doc.file, 15);
    std::string dict = Linkage(ePDFDictionary, &doc.file).linkImpl("x 15 0 R");
    EXPECT_EQ(dict.substr(dict.size() - 2), ">>");
    EXPECT_EQ(dict.find("stream"), std::string::npos);
    std::string whole = Linkage(ePDFStream, &doc.file).linkImpl("15 0 R");
    EXPECT_NE(whole.find("endstream"), std::string::npos);

    FindingHint h;
    h.insertHintInfo("/Data", ePDFStream);
    h.insertHintInfo("/Dict", ePDFDictionary);
    FindingValue f(h, &doc.file, 16, 0);
    f.find(false);
    EXPECT_EQ(valuesOf(h, "/Data"), V({"AB"}));
    ASSERT_EQ(h.getPropertyValueCount("/Dict"), 1);
    const std::string d = h.getPropertyValue("/Dict");
    EXPECT_EQ(d.substr(0, 2), "<<");
    EXPECT_EQ(d.substr(d.size() - 2), ">>");
    EXPECT_NE(d.find("/Filter /AHx"), std::string::npos);
}

TEST(FinderOnFile, PieceInfoSelectorIsACharacterSetTest) {
    OpenDoc doc(findingDoc());
    ASSERT_EQ(doc.rc, 0);
    SKIP_UNLESS_OBJECTS_RENDER(doc.file, 16);
    // Substrings of the collected text.
    EXPECT_TRUE(PieceInfoSelector(&doc.file, "/Illustrator", "/Private", "17 0 R", 16, 0).match());
    // Not substrings, but one byte of each occurs: still a match.
    EXPECT_TRUE(PieceInfoSelector(&doc.file, "qI", "Zr", "#7", 16, 0).match());
    EXPECT_FALSE(PieceInfoSelector(&doc.file, "I", "r", "qQ", 16, 0).match());
    // An object without /PieceInfo collects no text.
    EXPECT_FALSE(PieceInfoSelector(&doc.file, "I", "r", "e", 9, 0).match());
}

TEST(FinderOnFile, SampleWithObjectStreams) {
    std::stringstream in;
    {
        std::ifstream file(std::string(PDFKILN_SOURCE_DIR) + "/samples/sample.pdf", std::ios::binary);
        if (!file) GTEST_SKIP() << "samples/sample.pdf not found";
        in << file.rdbuf();
    }
    CSourFile src(in);
    ASSERT_EQ(src.CheckAndInit(), 0);
    SKIP_UNLESS_OBJECTS_RENDER(src, src.fileInfo.rootRef.num);
    FindingHint h;
    h.insertHintInfo("/Type", ePDFName);
    h.insertHintInfo("/Pages", ePDFNone);
    h.insertHintInfo("/Count", ePDFNumber);
    FindingValue f(h, &src);
    f.find(true);
    EXPECT_EQ(h.getPropertyValue("/Type"), "/Catalog");
    EXPECT_GE(h.getPropertyValueCount("/Count"), 1);
}
