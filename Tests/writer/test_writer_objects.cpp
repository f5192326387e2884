// The span copier: text copied as it stands, references rewritten through
// the sink's table (or kept), /Length slots, strings and stream bodies.
#include <gtest/gtest.h>

#include "writer_test_util.h"

using namespace PDF_KILN;
using writertest::Doc;
using writertest::document;
using writertest::render;

namespace {

// A sink that renumbers through a table: file 0, old -> new.
void map(CDestFile& sink, int oldNum, int newNum) {
    sink.insertNewObjTab(NewObjTable{0, 0, oldNum, 0}, SObj(newNum, 0, 0));
}

TEST(KeepNumbers, CopiesTheBodyWithItsSpacingAndComments) {
    Doc d(document({{5, "<<  /Type /Font % a comment\n /Sub [1 0 R  2 0 R] >>"}}));
    ASSERT_EQ(d.rc, 0);
    EXPECT_EQ(render(d, 5), "<<  /Type /Font % a comment\n /Sub [1 0 R  2 0 R] >>\nendobj\n");
}

TEST(KeepNumbers, ObjectInsideAnObjectStreamComesOutAsPlainText) {
    pdftest::PdfBuilder b;
    b.object(1, "<< /Type /Catalog /Pages 2 0 R >>");
    b.objectStream(3, {{2, "<< /Type /Pages /Kids [] /Count 0 >>"}, {4, "<< /A 2 0 R /B (x) >>"}});
    b.startxref(b.xrefStream(9, "/Root 1 0 R"));
    Doc d(b.str());
    ASSERT_EQ(d.rc, 0);
    // The object stream's own separator stays in front of the keyword.
    EXPECT_EQ(render(d, 4), "<< /A 2 0 R /B (x) >>\n\nendobj\n");
}

TEST(Renumbering, ReferencesTakeTheirNewNumbers) {
    Doc d(document({{5, "<< /Font 6 0 R /Kids [6 0 R 7 0 R] >>"}, {6, "<< >>"}, {7, "<< >>"}}));
    CDestFile sink;
    map(sink, 6, 57);
    map(sink, 7, 58);
    ASSERT_TRUE(render(d, 5, sink));
    // The span keeps the blank before a reference and the new reference
    // brings its own, so rewritten references stand behind two blanks.
    EXPECT_EQ(std::string(sink), "<< /Font  57 0 R /Kids [ 57 0 R  58 0 R] >>\nendobj\n");
}

TEST(Renumbering, AnUnmappedReferenceTakesItsKeyAlong) {
    Doc d(document({{5, "<< /A 6 0 R /B 7 0 R >>"}, {6, "1"}, {7, "2"}}));
    CDestFile sink;
    map(sink, 7, 40);
    ASSERT_TRUE(render(d, 5, sink));
    EXPECT_EQ(std::string(sink), "<<  /B  40 0 R >>\nendobj\n");
}

TEST(Renumbering, AnUnmappedArrayElementLeavesNoPlaceholder) {
    Doc d(document({{5, "[6 0 R 7 0 R]"}, {6, "1"}, {7, "2"}}));
    CDestFile sink;
    map(sink, 7, 40);
    ASSERT_TRUE(render(d, 5, sink));
    EXPECT_EQ(std::string(sink), "[  40 0 R]\nendobj\n");
}

TEST(Renumbering, AnEmptyTableThatWasSetUpStillDropsReferences) {
    Doc d(document({{5, "<< /A 6 0 R >>"}, {6, "1"}}));
    CDestFile sink;
    sink.setRenumbering(true);
    ASSERT_TRUE(render(d, 5, sink));
    EXPECT_EQ(std::string(sink), "<<  >>\nendobj\n");
}

TEST(LengthSlot, AnIndirectLengthBecomesADirectNumber) {
    pdftest::PdfBuilder b;
    b.object(1, "<< /Type /Catalog /Pages 2 0 R >>");
    b.object(2, "<< /Type /Pages /Kids [] /Count 0 >>");
    b.stream(5, "", "hello world", "12 0 R");
    b.object(12, "11");
    b.startxref(b.xrefTable("/Size 13 /Root 1 0 R"));
    Doc d(b.str());
    ASSERT_EQ(d.rc, 0);
    const std::string text = render(d, 5);
    EXPECT_NE(text.find("/Length 11 "), std::string::npos) << text;
    EXPECT_EQ(text.find("12 0 R"), std::string::npos) << text;
    EXPECT_NE(text.find("stream\r\nhello world"), std::string::npos) << text;
}

TEST(LengthSlot, TheSlotTakesTheSizeOfTheDataActuallyRead) {
    pdftest::PdfBuilder b;
    b.object(1, "<< /Type /Catalog /Pages 2 0 R >>");
    b.object(2, "<< /Type /Pages /Kids [] /Count 0 >>");
    b.stream(5, "", "0123456789abcdef", "4");  // declared far too short
    b.startxref(b.xrefTable("/Size 6 /Root 1 0 R"));
    Doc d(b.str());
    CDestFile sink;
    ASSERT_TRUE(render(d, 5, sink));
    ASSERT_GT(sink.streamDataSize, 0u);
    const std::string data = sink.substr(sink.streamDataPos, sink.streamDataSize);
    EXPECT_EQ(data.substr(0, 16), "0123456789abcdef");
    EXPECT_NE(sink.find("/Length " + std::to_string(data.size()) + " "), std::string::npos) << sink;
}

TEST(LengthSlot, ALengthWithNoStreamKeepsItsValue) {
    Doc d(document({{5, "<< /Filter /Standard /Length 128 /R 3 >>"}}));
    const std::string text = render(d, 5);
    EXPECT_NE(text.find("/Length 128 "), std::string::npos) << text;
}

TEST(Strings, LiteralAndHexStringsAreRewrittenInTheirOwnForm) {
    Doc d(document({{5, "<< /A (a\\(b\\)\\n) /B <414243> /C <41 4> >>"}}));
    EXPECT_EQ(render(d, 5), "<< /A (a\\(b\\)\\n) /B <414243> /C <4140> >>\nendobj\n");
}

TEST(Strings, AnUnbalancedParenthesisEndsTheStringAtTheFirstClose) {
    // The reader does not count parentheses: "(a(b)c)" is the string "a(b".
    Doc d(document({{5, "[(a(b)c)]"}}));
    EXPECT_EQ(render(d, 5), "[(a\\(b)c)]\nendobj\n");
}

TEST(StringWriter, EscapesAndBreaksLongLines) {
    std::string out;
    CStringType::WrtString(out, std::string("\r\t\b\f\\()x"));
    EXPECT_EQ(out, "\\r\\t\\b\\f\\\\\\(\\)x)");
    out.clear();
    CStringType::WrtString(out, std::string(150, 'a'));
    EXPECT_EQ(out, std::string(100, 'a') + "\\\n" + std::string(50, 'a') + ")");
}

TEST(StringWriter, HexFormBreaksAfterEightyBytesAndHasNoOpener) {
    std::string out;
    CStringType::WrtHexString(out, std::string(81, '\x0a'));
    std::string expected;
    for (int i = 0; i < 80; ++i) expected += "0a";
    expected += "\n0a>";
    EXPECT_EQ(out, expected);
}

TEST(Numbers, FacadeStreamFormatsLikeADefaultStream) {
    Facade_stringstream s;
    s << 612 << ' ' << 0.5 << ' ' << 1250000.0 << ' ' << -3;
    EXPECT_EQ(std::string(s), "612 0.5 1.25e+06 -3");
}

TEST(Numbers, WriterNumbersHaveFiveDecimalsAtMostAndATrailingBlank) {
    const struct {
        float value;
        const char* text;
    } cases[] = {
        {612.0f, "612 "},          {0.25f, "0.25 "},       {1.0f / 3.0f, "0.33333 "},
        {1250000.0f, "1250000 "},  {-72.5f, "-72.5 "},     {0.000004f, "0 "},
        {-0.000004f, "0 "},        {0.00002f, "0.00002 "}, {0.0f, "0 "},
        {3.4e38f, nullptr},  // no exponent form even at the top of the range
    };
    for (const auto& c : cases) {
        std::string s;
        CFileBlock::wrtNumberFtoStr(s, c.value);
        if (c.text) {
            EXPECT_EQ(s, c.text) << c.value;
        }
        EXPECT_EQ(s.find_first_of("eE"), std::string::npos) << s;
        EXPECT_EQ(s.back(), ' ');
    }
}

TEST(ObjWrite, RenumberedObjectsAreFramedAndRecorded) {
    Doc d(document({{5, "<< /A 6 0 R >>"}, {6, "(six)"}}));
    CDestFile out;
    out.sources[1] = &d.file();
    out.sourceCount = 1;
    out.curFile = 1;
    out.insertNewObjTab(NewObjTable{0, 1, 5, 0}, SObj(3, 0, 0));
    out.insertNewObjTab(NewObjTable{0, 1, 6, 0}, SObj(4, 0, 0));
    CObj five(SObj(5, 0));
    EXPECT_TRUE(five.Write(out, d.file()));
    CObj seven(SObj(7, 0));
    EXPECT_FALSE(seven.Write(out, d.file())) << "an object with no new number is not written";
    EXPECT_EQ(std::string(out), "3 0 obj << /A  4 0 R >>\nendobj\n");
    ASSERT_EQ(out.fileInfo.ownTable.count(SObj(3, 0)), 1u);
    EXPECT_EQ(out.fileInfo.ownTable.at(SObj(3, 0)).pos, 0);
    out.sources.clear();
}

}  // namespace
