// Primitive values: literal and hexadecimal strings, references, arrays, and
// stream bodies with the repairs of a wrong /Length.
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "pdf_builder.h"
#include "pdfkiln_sourfile.h"

using namespace PDF_KILN;
using pdftest::Source;

namespace {

// Reads the string that follows the opening delimiter at the start of `text`.
std::string readString(const std::string& text, std::string* rest = nullptr) {
    Source s(text);
    std::string token;
    s.file >> token;
    CStringType str;
    str.isHex = token == "<";
    EXPECT_TRUE(str.Read(s.file));
    EXPECT_EQ(str.length, static_cast<int>(str.text.size()));
    if (rest) {
        s.file.clear();
        std::getline(s.file, *rest);
    }
    return str.text;
}

struct StreamResult {
    bool ok = false;
    std::string data;
    int length = 0;
    std::string next;  // the token behind the stream's position afterwards
};

// `text` starts with the keyword "stream".
StreamResult readStream(const std::string& text, int length) {
    Source s(text);
    std::string token;
    s.file >> token;
    EXPECT_EQ(token, "stream");
    CStreamType st;
    st.length = length;
    StreamResult r;
    r.ok = st.Read(s.file);
    r.data = st.data;
    r.length = st.length;
    s.file.clear();
    s.file >> r.next;
    return r;
}

}  // namespace

TEST(StringValue, EscapesContinuationsHexAndUnbalancedInput) {
    const struct {
        const char* in;
        std::string out;
    } cases[] = {
        // Unbalanced parentheses end at the first close.
        {"(a(b)c)", "a(b"},
        // Octal escapes always take two more bytes.
        {"(\\101)", "A"},
        {"(\\123)", std::string(1, 83)},
        {"(\\5xy)", std::string(1, 64)},
        {"(\\7777)", "\xFF" "7"},
        {"(\\0a)", std::string(1, '\0')},
        {"(\\n\\r\\t\\b\\f\\\\\\(\\))", "\n\r\t\b\f\\()"},
        {"(\\q)", "q"},
        // Line continuations; a bare line end stays.
        {"(ab\\\ncd)", "abcd"},
        {"(ab\\\n\rcd)", "abcd"},
        {"(ab\\\rcd)", "abcd"},
        {"(a\nb)", "a\nb"},
        {"(abc", "abc"},
        {"()", ""},
        // Hex strings skip blanks, drop junk and pad an odd digit.
        {"<ABC>", "\xAB\xC0"},
        {"<41 4\n2\r43>", "ABC"},
        {"<4x1zz>", "A"},
        {"<>", ""},
        {"<6162", "ab"},
    };
    for (const auto& c : cases) EXPECT_EQ(readString(c.in), c.out) << c.in;
    std::string rest;
    readString("(a(b)c)", &rest);
    EXPECT_EQ(rest, "c)");
}

TEST(ReferenceValue, ObjectHeaderIsNoReferenceAndTheStreamIsSetBack) {
    Source s("12 0 obj");
    CObjRef r;
    EXPECT_FALSE(r.Read(s.file));
    EXPECT_FALSE(r.isRef);
    std::string token;
    s.file >> token;
    EXPECT_EQ(token, "12");

    Source t("  12 3 R /Next ");
    EXPECT_TRUE(r.Read(t.file));
    EXPECT_EQ(r.num, 12);
    EXPECT_EQ(r.gen, 3);
    EXPECT_TRUE(r.isRef);
    t.file >> token;
    EXPECT_EQ(token, "/Next");

    Source u("12 /Name");
    EXPECT_FALSE(u.file.fail());
    EXPECT_FALSE(r.Read(u.file));
    EXPECT_FALSE(u.file.fail());
    u.file >> token;
    EXPECT_EQ(token, "12");
}

TEST(ArrayValue, RawTextIsTheStretchBehindTheBracketAsLongAsTheArray) {
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
    const struct {
        std::string in;
        int length;
        bool ok;
        std::string data;
        int lengthAfter;  // -1: not looked at
        std::string next;
    } cases[] = {
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
        const StreamResult r = readStream(c.in, c.length);
        EXPECT_EQ(r.ok, c.ok) << c.in;
        if (!c.ok) continue;
        EXPECT_EQ(r.data, c.data) << c.in;
        EXPECT_EQ(r.length, c.lengthAfter) << c.in;
        EXPECT_EQ(r.next, c.next) << c.in;
    }
}

TEST(StreamBody, NegativeLengthThrowsLengthError) {
    Source s("stream\nabc\nendstream");
    std::string token;
    s.file >> token;
    CStreamType st;
    st.length = -4;
    EXPECT_THROW(st.Read(s.file), std::length_error);
}

TEST(StreamBody, LengthReadThroughAReference) {
    pdftest::PdfBuilder b;
    b.catalog();
    b.object(3, "5");
    b.stream(4, "", "Hello", "3 0 R");
    long x = b.xrefTable("/Root 1 0 R");
    b.startxref(x);
    Source s(b.str());
    ASSERT_EQ(s.file.CheckAndInit(), 0);
    s.file.seekg(b.offsetOf(4));
    ASSERT_TRUE(CFileBlock::FindStr(s.file, "/Length"));
    CStreamType st;
    ASSERT_TRUE(st.ReadLen(s.file));
    EXPECT_EQ(st.length, 5);
    std::string token;
    s.file >> token;
    EXPECT_EQ(token, ">>");
    s.file >> token;
    ASSERT_EQ(token, "stream");
    EXPECT_TRUE(st.Read(s.file));
    EXPECT_EQ(st.data, "Hello");
}
