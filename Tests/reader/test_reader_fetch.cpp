// Object fetch: locating objects by key, object streams (also nested through
// /Length), and the readers of numbers and number arrays behind references.
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "pdf_builder.h"
#include "pdfkiln_destfile.h"
#include "pdfkiln_sourfile.h"

using namespace PDF_KILN;
using pdftest::PdfBuilder;
using pdftest::Source;

namespace {

const char* const kCatalog = "<< /Type /Catalog /Pages 2 0 R >>";
const char* const kPages = "<< /Type /Pages /Kids [] /Count 0 >>";

// The full text that ParseObj leaves for object `key`, or "" when it fails.
std::string fetchText(CSourFile& src, const SObj& key) {
    std::stringstream text;
    CSourFile* owned = new CSourFile(text);
    CSourFile* view = owned;
    std::string out;
    if (CObj::ParseObj(src, view, text, key)) {
        if (view == owned) out = text.str();
        else out = "<in file>";
    }
    delete owned;  // the caller's view stays the caller's
    src.clear();
    return out;
}


}  // namespace

TEST(ObjectFetch, IsObjStartReadsTheHeaderAndSkipsComments) {
    std::istringstream in("12 0 obj % note\n% more\n<< /A 1 >>");
    EXPECT_TRUE(CObj::IsObjStart(in));
    EXPECT_EQ(in.peek(), '<');
    std::istringstream ref("12 0 R");
    EXPECT_FALSE(CObj::IsObjStart(ref));
    std::istringstream end("12 0 obj");
    EXPECT_FALSE(CObj::IsObjStart(end)) << "a keyword touching the end carries its zero byte";
}

TEST(ObjectFetch, ObjectStreamEntriesComeOutAsPlainObjectText) {
    PdfBuilder b("%PDF-1.5");
    b.objectStream(5, {{1, kCatalog}, {2, kPages}, {3, "(last one)"}});
    long x = b.xrefStream(6, "/Root 1 0 R");
    b.startxref(x);
    Source s(b.str());
    ASSERT_EQ(s.file.CheckAndInit(), 0);
    EXPECT_EQ(fetchText(s.file, SObj(2, 0)), std::string("2 0 obj\n") + kPages + "\n\nendobj\r\n");
    // The last entry runs to the end of the decoded data.
    EXPECT_EQ(fetchText(s.file, SObj(3, 0)), "3 0 obj\n(last one)\n\nendobj\r\n");
    EXPECT_EQ(fetchText(s.file, SObj(1, 0)), std::string("1 0 obj\n") + kCatalog + "\n\nendobj\r\n");
}

TEST(ObjectFetch, HexFilteredObjectStreamDecodesOnceAndFetchesAlike) {
    PdfBuilder b("%PDF-1.5");
    b.objectStream(5, {{1, kCatalog}, {2, kPages}, {3, "[1 2 3]"}}, "/AHx");
    long x = b.xrefStream(6, "/Root 1 0 R");
    b.startxref(x);
    Source cached(b.str());
    ASSERT_EQ(cached.file.CheckAndInit(), 0);
    const std::string three = fetchText(cached.file, SObj(3, 0));
    const std::string two = fetchText(cached.file, SObj(2, 0));
    EXPECT_EQ(three, "3 0 obj\n[1 2 3]\n\nendobj\r\n");
    // A fresh source that fetches in the other order sees the same texts.
    Source fresh(b.str());
    ASSERT_EQ(fresh.file.CheckAndInit(), 0);
    EXPECT_EQ(fetchText(fresh.file, SObj(2, 0)), two);
    EXPECT_EQ(fetchText(fresh.file, SObj(3, 0)), three);
    // And so does a second opening of the same source.
    ASSERT_EQ(cached.file.CheckAndInit(), 0);
    EXPECT_EQ(fetchText(cached.file, SObj(3, 0)), three);
}

TEST(ObjectFetch, IndexPairOfAnotherNumberIsRefused) {
    PdfBuilder b("%PDF-1.5");
    b.catalog();
    b.objectStream(5, {{3, "(three)"}});
    long x = b.xrefStream(6, "/Root 1 0 R");
    b.startxref(x);
    std::string text = b.str();
    const std::size_t at = text.find("stream\n3 0 ");
    ASSERT_NE(at, std::string::npos);
    text[at + 7] = '7';  // the stream now says it holds object 7
    Source s(text);
    ASSERT_EQ(s.file.CheckAndInit(), 0);
    EXPECT_EQ(fetchText(s.file, SObj(3, 0)), "");
}

TEST(ObjectFetch, IndexBeyondTheStreamCountIsRefused) {
    PdfBuilder b("%PDF-1.5");
    b.catalog();
    b.objectStream(5, {{3, "(three)"}});
    long x = b.xrefStream(6, "/Root 1 0 R");
    b.startxref(x);
    Source s(b.str());
    ASSERT_EQ(s.file.CheckAndInit(), 0);
    (*s.file.fileInfo.objTable)[SObj(3, 0)].index = 4;
    EXPECT_EQ(fetchText(s.file, SObj(3, 0)), "");
}

TEST(ObjectFetch, ObjectStreamWhoseLengthLivesInAnotherObjectStream) {
    // Container 10 holds the catalog; its /Length is object 9, which lies in
    // container 8.
    const std::vector<std::pair<int, std::string>> inner = {{1, kCatalog}, {2, kPages}};
    const std::string innerData = PdfBuilder::objectStreamData(inner);
    PdfBuilder b("%PDF-1.5");
    b.objectStream(8, {{9, std::to_string(innerData.size())}});
    b.objectStream(10, inner, "", "9 0 R");
    long x = b.xrefStream(11, "/Root 1 0 R");
    b.startxref(x);
    Source s(b.str());
    ASSERT_EQ(s.file.CheckAndInit(), 0);
    EXPECT_EQ(s.file.catalog.type, "/Catalog");
    EXPECT_EQ(s.file.catalog.pagesRef, SObj(2, 0));
}

TEST(ObjectFetch, ObjectStreamWhoseLengthLivesInsideItselfFailsCleanly) {
    PdfBuilder b("%PDF-1.5");
    b.objectStream(10, {{1, kCatalog}, {2, kPages}, {3, "64"}}, "", "3 0 R");
    long x = b.xrefStream(11, "/Root 1 0 R");
    b.startxref(x);
    Source s(b.str());
    s.file.CheckAndInit();
    EXPECT_TRUE(s.file.catalog.type.empty());
    EXPECT_EQ(fetchText(s.file, SObj(2, 0)), "");
}

TEST(ObjectFetch, PlainObjectIsFoundInTheFileAndAbsentOneIsNot) {
    Source s(pdftest::minimalPdf());
    ASSERT_EQ(s.file.CheckAndInit(), 0);
    EXPECT_EQ(fetchText(s.file, SObj(2, 0)), "<in file>");
    EXPECT_EQ(fetchText(s.file, SObj(9, 0)), "");
}

TEST(ObjectFetch, LocalObjFindsPlainAndCompressedObjectsAndRefusesAbsentOnes) {
    PdfBuilder b("%PDF-1.5");
    b.object(1, kCatalog);
    b.objectStream(5, {{2, kPages}});
    long x = b.xrefStream(6, "/Root 1 0 R");
    b.startxref(x);
    Source s(b.str());
    ASSERT_EQ(s.file.CheckAndInit(), 0);
    CDestFile sink;
    EXPECT_TRUE(CObj(SObj(1, 0)).LocalObj(sink, s.file));
    EXPECT_TRUE(CObj(SObj(2, 0)).LocalObj(sink, s.file));
    EXPECT_FALSE(CObj(SObj(3, 0)).LocalObj(sink, s.file));
    EXPECT_FALSE(CObj(SObj(1, 1)).LocalObj(sink, s.file));
}

TEST(ObjectFetch, ReadIntObjFollowsReferencesAndComesBackBehindThem) {
    PdfBuilder b("%PDF-1.5");
    b.catalog();
    b.object(3, "42");
    b.object(4, "3 0 R");
    b.objectStream(7, {{5, "4 0 R"}, {6, "17"}});
    b.object(8, "8 0 R");
    long x = b.xrefStream(9, "/Root 1 0 R");
    b.startxref(x);
    b.raw("PROBE 3 0 R /Next 4 0 R /N 5 0 R /M 6 0 R /Plain 99 /Loop 8 0 R /Gone 77 0 R /End ");
    Source s(b.str());
    ASSERT_EQ(s.file.CheckAndInit(), 0);
    const std::string text = s.stream.str();
    s.file.clear();
    s.file.seekg(static_cast<std::streamoff>(text.find("PROBE") + 5));
    std::string token;
    int v = 0;

    EXPECT_TRUE(CObj::ReadIntObj(s.file, v));
    EXPECT_EQ(v, 42);
    s.file >> token;
    EXPECT_EQ(token, "/Next");
    EXPECT_TRUE(CObj::ReadIntObj(s.file, v));
    EXPECT_EQ(v, 42) << "a chain of references";
    s.file >> token;
    EXPECT_TRUE(CObj::ReadIntObj(s.file, v));
    EXPECT_EQ(v, 42) << "from an object stream into the file";
    s.file >> token;
    EXPECT_TRUE(CObj::ReadIntObj(s.file, v));
    EXPECT_EQ(v, 17);
    s.file >> token;
    EXPECT_EQ(token, "/Plain");
    EXPECT_TRUE(CObj::ReadIntObj(s.file, v));
    EXPECT_EQ(v, 99);
    s.file >> token;
    EXPECT_EQ(token, "/Loop");
    EXPECT_FALSE(CObj::ReadIntObj(s.file, v)) << "a reference to itself is stopped";
    s.file >> token;
    EXPECT_EQ(token, "/Gone");
    CObj::ReadIntObj(s.file, v);
    s.file >> token;
    EXPECT_EQ(token, "/End");
}

TEST(ObjectFetch, ReadNumArrayObjReadsNumbersAndReferences) {
    PdfBuilder b("%PDF-1.5");
    b.catalog();
    b.object(3, "7.5");
    b.object(4, "[0 0 612 3 0 R]");
    b.objectStream(6, {{5, "-2"}});
    long x = b.xrefStream(7, "/Root 1 0 R");
    b.startxref(x);
    b.raw("PROBE [1 2.5 3 0 R 5 0 R] /A 4 0 R /B /NotArray /C");
    Source s(b.str());
    ASSERT_EQ(s.file.CheckAndInit(), 0);
    const std::string text = s.stream.str();
    s.file.clear();
    s.file.seekg(static_cast<std::streamoff>(text.find("PROBE") + 5));
    std::vector<float> v;
    EXPECT_TRUE(CObj::ReadNumArrayObj(s.file, v));
    EXPECT_EQ(v, (std::vector<float>{1, 2.5f, 7.5f, -2}));
    std::string token;
    s.file >> token;
    EXPECT_EQ(token, "/A");
    v.clear();
    EXPECT_TRUE(CObj::ReadNumArrayObj(s.file, v));
    EXPECT_EQ(v, (std::vector<float>{0, 0, 612, 7.5f}));
    s.file >> token;
    EXPECT_EQ(token, "/B");
    v.clear();
    EXPECT_FALSE(CObj::ReadNumArrayObj(s.file, v));
    s.file >> token;
    EXPECT_EQ(token, "/NotArray") << "a failed read sets the stream back";
}

TEST(ObjectFetch, FromStreamReadsAnIndirectObjectByItsKey) {
    PdfBuilder b("%PDF-1.5");
    b.catalog();
    b.objectStream(5, {{3, "<< /Type /Catalog /Pages 9 0 R >>"}});
    long x = b.xrefStream(6, "/Root 1 0 R");
    b.startxref(x);
    Source s(b.str());
    ASSERT_EQ(s.file.CheckAndInit(), 0);
    CCatalog other;
    other.self = SObj(3, 0);
    other.fromStream(s.file);
    EXPECT_EQ(other.pagesRef, SObj(9, 0));
    EXPECT_TRUE(other.flags & CObj::kFromObjectStream);
}
