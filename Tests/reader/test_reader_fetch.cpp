// Object fetch: locating objects by key, object streams (also nested through
// /Length), the readers of numbers and number arrays behind references, and
// the primitive values: strings, references, arrays and stream bodies with the
// repairs of a wrong /Length.
#include <gtest/gtest.h>

#include <map>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "pdfkiln_destfile.h"
#include "reader_util.h"

using namespace PDF_KILN;
using namespace rtest;

namespace {

// The full text that ParseObj leaves for object `key`, "<in file>" when it
// points into the file itself, or "" when it fails.
std::string fetchText(CSourFile& src, const SObj& key) {
    std::stringstream text;
    CSourFile* owned = new CSourFile(text);
    CSourFile* view = owned;
    std::string out;
    if (CObj::ParseObj(src, view, text, key)) out = view == owned ? text.str() : "<in file>";
    delete owned;  // the caller's view stays the caller's
    src.clear();
    return out;
}

// A file of a catalog, a page tree and object stream 5 holding `objs`.
std::string packed(const std::vector<std::pair<int, std::string>>& objs, const std::string& filter = "") {
    PdfBuilder b = catalogFile("%PDF-1.5");
    b.objectStream(5, objs, filter);
    return withStream(b, 6);
}

// Sets the file's position behind the word PROBE that the test appended.
void toProbe(Opened& s) {
    const std::string text = s.stream.str();
    s.file.clear();
    s.file.seekg(static_cast<std::streamoff>(text.find("PROBE") + 5));
}

std::string nextToken(CSourFile& in) {
    std::string t;
    in >> t;
    return t;
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
    for (const char* filter : {"", "/AHx"}) {
        const std::string pdf = packed({{3, "[1 2 3]"}, {4, "<< /A 1 >>"}, {7, "(last one)"}}, filter);
        // The last entry runs to the end of the decoded data. Fetched in another
        // order, and after a second opening, the texts are the same.
        const std::map<int, std::string> want = {{3, "3 0 obj\n[1 2 3]\n\nendobj\r\n"},
                                                 {4, "4 0 obj\n<< /A 1 >>\n\nendobj\r\n"},
                                                 {7, "7 0 obj\n(last one)\n\nendobj\r\n"}};
        Opened s(pdf), fresh(pdf);
        for (int n : {4, 7, 3}) EXPECT_EQ(fetchText(s.file, SObj(n, 0)), want.at(n)) << filter;
        for (int n : {3, 4}) EXPECT_EQ(fetchText(fresh.file, SObj(n, 0)), want.at(n)) << filter;
        ASSERT_EQ(s.file.CheckAndInit(), 0);
        EXPECT_EQ(fetchText(s.file, SObj(7, 0)), want.at(7)) << filter;
    }
}

TEST(ObjectFetch, PlainAbsentAndRefusedObjects) {
    Opened s(pdftest::minimalPdf());
    EXPECT_EQ(fetchText(s.file, SObj(2, 0)), "<in file>");
    EXPECT_EQ(fetchText(s.file, SObj(9, 0)), "");
    Opened t(packed({{3, kPages}}));
    CDestFile sink;
    EXPECT_TRUE(CObj(SObj(1, 0)).LocalObj(sink, t.file));
    EXPECT_TRUE(CObj(SObj(3, 0)).LocalObj(sink, t.file));
    EXPECT_FALSE(CObj(SObj(4, 0)).LocalObj(sink, t.file));
    EXPECT_FALSE(CObj(SObj(1, 1)).LocalObj(sink, t.file));
    std::string text = packed({{3, "(three)"}});
    const std::size_t at = text.find("stream\n3 0 ");
    ASSERT_NE(at, std::string::npos);
    text[at + 7] = '7';  // the stream now says it holds object 7
    Opened u(text);
    EXPECT_EQ(fetchText(u.file, SObj(3, 0)), "");
    Opened v(packed({{3, "(three)"}}));
    (*v.fi().objTable)[SObj(3, 0)].index = 4;
    EXPECT_EQ(fetchText(v.file, SObj(3, 0)), "");
}

TEST(ObjectFetch, ObjectStreamLengthInAnotherObjectStreamOrInItself) {
    // Container 10 holds the catalog; its /Length is object 9, in container 8.
    const std::vector<std::pair<int, std::string>> inner = {{1, kCatalog}, {2, kPages}};
    PdfBuilder b("%PDF-1.5");
    b.objectStream(8, {{9, std::to_string(PdfBuilder::objectStreamData(inner).size())}});
    b.objectStream(10, inner, "", "9 0 R");
    Opened s(withStream(b, 11));
    EXPECT_EQ(s.file.catalog.type, "/Catalog");
    EXPECT_EQ(s.file.catalog.pagesRef, SObj(2, 0));
    // A /Length inside the container itself fails cleanly.
    PdfBuilder c("%PDF-1.5");
    c.objectStream(10, {{1, kCatalog}, {2, kPages}, {3, "64"}}, "", "3 0 R");
    Opened t(withStream(c, 11), kAnyRc);
    EXPECT_TRUE(t.file.catalog.type.empty());
    EXPECT_EQ(fetchText(t.file, SObj(2, 0)), "");
}

TEST(ObjectFetch, ReadIntObjFollowsReferencesAndComesBackBehindThem) {
    PdfBuilder b = catalogFile("%PDF-1.5");
    b.object(3, "42");
    b.object(4, "3 0 R");
    b.objectStream(7, {{5, "4 0 R"}, {6, "17"}});
    b.object(8, "8 0 R");
    Opened s(withStream(b, 9) + "PROBE 3 0 R /Next 4 0 R /N 5 0 R /M 6 0 R /Plain 99 /Loop 8 0 R /Gone 77 0 R /End ");
    toProbe(s);
    // Directly, through a chain, from an object stream into the file, plain.
    const std::pair<int, const char*> reads[] = {{42, "/Next"}, {42, "/N"}, {42, "/M"}, {17, "/Plain"}, {99, "/Loop"}};
    for (const auto& r : reads) {
        int v = 0;
        EXPECT_TRUE(CObj::ReadIntObj(s.file, v));
        EXPECT_EQ(v, r.first);
        EXPECT_EQ(nextToken(s.file), r.second);
    }
    int v = 0;
    EXPECT_FALSE(CObj::ReadIntObj(s.file, v)) << "a reference to itself is stopped";
    EXPECT_EQ(nextToken(s.file), "/Gone");
    CObj::ReadIntObj(s.file, v);
    EXPECT_EQ(nextToken(s.file), "/End");
}

TEST(ObjectFetch, ReadNumArrayObjReadsNumbersAndReferences) {
    PdfBuilder b = catalogFile("%PDF-1.5");
    b.object(3, "7.5");
    b.object(4, "[0 0 612 3 0 R]");
    b.objectStream(6, {{5, "-2"}});
    Opened s(withStream(b, 7) + "PROBE [1 2.5 3 0 R 5 0 R] /A 4 0 R /B /NotArray /C");
    toProbe(s);
    std::vector<float> v;
    EXPECT_TRUE(CObj::ReadNumArrayObj(s.file, v));
    EXPECT_EQ(v, (std::vector<float>{1, 2.5f, 7.5f, -2}));
    EXPECT_EQ(nextToken(s.file), "/A");
    v.clear();
    EXPECT_TRUE(CObj::ReadNumArrayObj(s.file, v));
    EXPECT_EQ(v, (std::vector<float>{0, 0, 612, 7.5f}));
    EXPECT_EQ(nextToken(s.file), "/B");
    v.clear();
    EXPECT_FALSE(CObj::ReadNumArrayObj(s.file, v));
    EXPECT_EQ(nextToken(s.file), "/NotArray") << "a failed read sets the stream back";
}

TEST(ObjectFetch, FromStreamReadsAnIndirectObjectByItsKey) {
    Opened s(packed({{3, "<< /Type /Catalog /Pages 9 0 R >>"}}));
    CCatalog other;
    other.self = SObj(3, 0);
    other.fromStream(s.file);
    EXPECT_EQ(other.pagesRef, SObj(9, 0));
    EXPECT_TRUE(other.flags & CObj::kFromObjectStream);
}

TEST(StringValue, EscapesContinuationsHexAndUnbalancedInput) {
    const struct { const char* in; std::string out; } cases[] = {
        // Unbalanced parentheses end at the first close.
        {"(a(b)c)", "a(b"},
        // Octal escapes always take two more bytes.
        {"(\\101)", "A"}, {"(\\123)", std::string(1, 83)}, {"(\\5xy)", std::string(1, 64)}, {"(\\7777)", "\xFF" "7"},
        {"(\\0a)", std::string(1, '\0')}, {"(\\n\\r\\t\\b\\f\\\\\\(\\))", "\n\r\t\b\f\\()"}, {"(\\q)", "q"},
        // Line continuations; a bare line end stays.
        {"(ab\\\ncd)", "abcd"}, {"(ab\\\n\rcd)", "abcd"}, {"(ab\\\rcd)", "abcd"}, {"(a\nb)", "a\nb"},
        {"(abc", "abc"}, {"()", ""},
        // Hex strings skip blanks, drop junk and pad an odd digit.
        {"<ABC>", "\xAB\xC0"}, {"<41 4\n2\r43>", "ABC"}, {"<4x1zz>", "A"}, {"<>", ""}, {"<6162", "ab"},
    };
    for (const auto& c : cases) {
        Source s(c.in);
        CStringType str;
        str.isHex = nextToken(s.file) == "<";
        EXPECT_TRUE(str.Read(s.file)) << c.in;
        EXPECT_EQ(str.text, c.out) << c.in;
        EXPECT_EQ(str.length, static_cast<int>(str.text.size())) << c.in;
        if (c.in != std::string("(a(b)c)")) continue;
        std::string rest;
        s.file.clear();
        std::getline(s.file, rest);
        EXPECT_EQ(rest, "c)");
    }
}

TEST(Values, ReferencesAndArrays) {
    const struct { const char* text; bool ok; const char* next; } cases[] = {
        {"12 0 obj", false, "12"}, {"  12 3 R /Next ", true, "/Next"}, {"12 /Name", false, "12"}};
    for (const auto& c : cases) {
        Source s(c.text);
        CObjRef r;
        EXPECT_EQ(r.Read(s.file), c.ok) << c.text;
        EXPECT_EQ(r.isRef, c.ok) << c.text;
        EXPECT_FALSE(s.file.fail()) << c.text;
        EXPECT_EQ(nextToken(s.file), c.next) << c.text;
        if (c.ok) { EXPECT_EQ(std::make_pair(r.num, r.gen), std::make_pair(12, 3)); }
    }
    // An array's raw text is the stretch behind the bracket as long as the array.
    Source s("1 2] ABCDEFG");
    CArrayType a;
    a >> s.file;
    EXPECT_EQ(a.raw, " ABC");
    Source none("1 2 3");
    CArrayType b;
    EXPECT_THROW(b >> none.file, CFileError);
}

TEST(StreamBody, LineEndsAndTheRepairsOfAWrongLength) {
    const std::string body(3000, 'x');
    const struct { std::string in; int length; bool ok; std::string data; int lengthAfter; std::string next; }
    cases[] = {
        {"stream\nHello\nendstream\nendobj", 5, true, "Hello", 5, "endstream"},
        {"stream\r\nHello\r\nendstream\nendobj", 5, true, "Hello", 5, "endstream"},
        {"stream\rHello\rendstream\nendobj", 5, true, "Hello", 5, "endstream"},
        // The keyword must be followed by a line end.
        {"stream Hello\nendstream\nendobj", 5, false, "", -1, ""},
        // One too long: the data end with a line feed.
        {"stream\nHello\rendstream\nendobj", 7, true, "Hello\r\n", 7, "endstream"},
        // Too short or zero: the data grow up to the keyword.
        {"stream\nHello world, a longer body\nendstream\nendobj", 2, true, "Hello world, a longer body\n", 27,
         "endstream"},
        {"stream\n" + body + "\nendstream\nendobj", 0, true, body + "\n", 3001, "endstream"},
        // Too long: the keyword stays inside the data, the stream at the end.
        {"stream\nHello\nendstream\nendobj\n", 20, true, "Hello\nendstream\nendo", 20, std::string(1, '\0')},
        // A keyword split over the declared end is found.
        {"stream\nHelloendstream\nendobj", 8, true, "Hello", 5, "endstream"},
        // No keyword: failure at the end of the input.
        {"stream\nabc def ghi", 2, false, "", -1, ""},
        {"stream\nabc def ghi", 500, false, "", -1, ""},
    };
    for (const auto& c : cases) {
        Source s(c.in);
        ASSERT_EQ(nextToken(s.file), "stream");
        CStreamType st;
        st.length = c.length;
        EXPECT_EQ(st.Read(s.file), c.ok) << c.in;
        if (!c.ok) continue;
        EXPECT_EQ(st.data, c.data) << c.in;
        EXPECT_EQ(st.length, c.lengthAfter) << c.in;
        s.file.clear();
        EXPECT_EQ(nextToken(s.file), c.next) << c.in;
    }
    Source s("stream\nabc\nendstream");
    nextToken(s.file);
    CStreamType st;
    st.length = -4;
    EXPECT_THROW(st.Read(s.file), std::length_error);
}

TEST(StreamBody, LengthReadThroughAReference) {
    PdfBuilder b = catalogFile();
    b.object(3, "5");
    b.stream(4, "", "Hello", "3 0 R");
    Opened s(withTable(b));
    s.file.seekg(b.offsetOf(4));
    ASSERT_TRUE(CFileBlock::FindStr(s.file, "/Length"));
    CStreamType st;
    ASSERT_TRUE(st.ReadLen(s.file));
    EXPECT_EQ(st.length, 5);
    EXPECT_EQ(nextToken(s.file), ">>");
    ASSERT_EQ(nextToken(s.file), "stream");
    EXPECT_TRUE(st.Read(s.file));
    EXPECT_EQ(st.data, "Hello");
}
