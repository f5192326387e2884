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

TEST(StringValue, UnbalancedParenthesesEndAtTheFirstClose) {
    std::string rest;
    EXPECT_EQ(readString("(a(b)c)", &rest), "a(b");
    EXPECT_EQ(rest, "c)");
}

TEST(StringValue, OctalEscapesAlwaysTakeTwoMoreBytes) {
    EXPECT_EQ(readString("(\\101)"), "A");
    EXPECT_EQ(readString("(\\123)"), std::string(1, 83));
    EXPECT_EQ(readString("(\\5xy)"), std::string(1, 64));
    EXPECT_EQ(readString("(\\7777)"), std::string(1, static_cast<char>(0xFF)) + "7");
    EXPECT_EQ(readString("(\\0a)"), std::string(1, '\0'));
}

TEST(StringValue, LetterEscapesAndOthers) {
    EXPECT_EQ(readString("(\\n\\r\\t\\b\\f\\\\\\(\\))"), "\n\r\t\b\f\\()");
    EXPECT_EQ(readString("(\\q)"), "q");
}

TEST(StringValue, LineContinuations) {
    EXPECT_EQ(readString("(ab\\\ncd)"), "abcd");
    EXPECT_EQ(readString("(ab\\\n\rcd)"), "abcd");
    EXPECT_EQ(readString("(ab\\\rcd)"), "abcd");
    EXPECT_EQ(readString("(a\nb)"), "a\nb");
}

TEST(StringValue, UnterminatedStringStopsAtEndOfInput) { EXPECT_EQ(readString("(abc"), "abc"); }

TEST(StringValue, HexStringsSkipBlanksDropJunkAndPadAnOddDigit) {
    EXPECT_EQ(readString("<ABC>"), "\xAB\xC0");
    EXPECT_EQ(readString("<41 4\n2\r43>"), "ABC");
    EXPECT_EQ(readString("<4x1zz>"), "A");
    EXPECT_EQ(readString("<>"), "");
    EXPECT_EQ(readString("<6162"), "ab");
}

TEST(StringValue, EmptyStringStaysEmpty) {
    EXPECT_EQ(readString("()"), "");
    EXPECT_EQ(readString("<>"), "");
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

TEST(StreamBody, ExactLengthReadsTheDataAndStopsBeforeTheKeyword) {
    StreamResult r = readStream("stream\nHello\nendstream\nendobj", 5);
    EXPECT_TRUE(r.ok);
    EXPECT_EQ(r.data, "Hello");
    EXPECT_EQ(r.next, "endstream");
    StreamResult crlf = readStream("stream\r\nHello\r\nendstream\nendobj", 5);
    EXPECT_EQ(crlf.data, "Hello");
    StreamResult cr = readStream("stream\rHello\rendstream\nendobj", 5);
    EXPECT_EQ(cr.data, "Hello");
}

TEST(StreamBody, KeywordMustBeFollowedByALineEnd) {
    StreamResult r = readStream("stream Hello\nendstream\nendobj", 5);
    EXPECT_FALSE(r.ok);
}

TEST(StreamBody, LengthOneTooLongEndsTheDataWithALineFeed) {
    StreamResult r = readStream("stream\nHello\rendstream\nendobj", 7);
    EXPECT_TRUE(r.ok);
    EXPECT_EQ(r.data, "Hello\r\n");
    EXPECT_EQ(r.length, 7);
    EXPECT_EQ(r.next, "endstream");
}

TEST(StreamBody, LengthTooShortGrowsTheDataUpToTheKeyword) {
    StreamResult r = readStream("stream\nHello world, a longer body\nendstream\nendobj", 2);
    EXPECT_TRUE(r.ok);
    EXPECT_EQ(r.data, "Hello world, a longer body\n");
    EXPECT_EQ(r.length, static_cast<int>(r.data.size()));
    EXPECT_EQ(r.next, "endstream");
}

TEST(StreamBody, LengthZeroReadsUpToTheKeyword) {
    std::string body(3000, 'x');
    StreamResult r = readStream("stream\n" + body + "\nendstream\nendobj", 0);
    EXPECT_TRUE(r.ok);
    EXPECT_EQ(r.data, body + "\n");
    EXPECT_EQ(r.length, 3001);
    EXPECT_EQ(r.next, "endstream");
}

TEST(StreamBody, LengthTooLongKeepsTheKeywordInsideTheData) {
    StreamResult r = readStream("stream\nHello\nendstream\nendobj\n", 20);
    EXPECT_TRUE(r.ok);
    EXPECT_EQ(r.data, "Hello\nendstream\nendo");
    EXPECT_EQ(r.length, 20);
    EXPECT_EQ(r.next, std::string(1, '\0')) << "the stream stays behind the token read, at the end";
}

TEST(StreamBody, KeywordSplitOverTheDeclaredEndIsFound) {
    StreamResult r = readStream("stream\nHelloendstream\nendobj", 8);
    EXPECT_TRUE(r.ok);
    EXPECT_EQ(r.data, "Hello");
    EXPECT_EQ(r.length, 5);
    EXPECT_EQ(r.next, "endstream");
}

TEST(StreamBody, MissingKeywordFailsAtEndOfInput) {
    StreamResult r = readStream("stream\nabc def ghi", 2);
    EXPECT_FALSE(r.ok);
    StreamResult longer = readStream("stream\nabc def ghi", 500);
    EXPECT_FALSE(longer.ok);
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
    b.object(1, "<< /Type /Catalog /Pages 2 0 R >>");
    b.object(2, "<< /Type /Pages /Kids [] /Count 0 >>");
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
