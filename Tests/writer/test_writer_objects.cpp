// The span copier: text as it stands, references rewritten (or kept), /Length slots, strings and stream bodies.
#include <gtest/gtest.h>

#include "pdf_builder.h"
#include "pdfkiln_destfile.h"

using namespace PDF_KILN;
using pdftest::Opened;

namespace {

// A document of (number, body) objects behind a catalog and an empty page tree.
std::string document(std::map<int, std::string> objs) {
    objs.emplace(2, "<< /Type /Pages /Kids [] /Count 0 >>");
    return pdftest::buildPdf(objs, "/Size 40 /Root 1 0 R");
}

// Renders object `num` into `sink` (keep-numbers unless the sink renumbers).
bool render(Opened& d, int num, CDestFile& sink) {
    CObj obj(SObj(num, 0));
    d.file.clear();
    return obj.LocalObj(sink, d.file);
}

std::string render(Opened& d, int num) {
    CDestFile sink;
    render(d, num, sink);
    return sink;
}

TEST(SpanCopier, ObjectFiveAsWritten) {
    const struct {
        std::map<int, std::string> objs;
        std::vector<std::pair<int, int>> renumber;  // old -> new; none: numbers are kept
        bool tableSetUp;
        const char* text;
    } cases[] = {
        // Spacing and comments are copied as they stand.
        {{{5, "<<  /Type /Font % a comment\n /Sub [1 0 R  2 0 R] >>"}}, {}, false,
         "<<  /Type /Font % a comment\n /Sub [1 0 R  2 0 R] >>\nendobj\n"},
        // The span keeps the blank before a reference and the new one brings its own.
        {{{5, "<< /Font 6 0 R /Kids [6 0 R 7 0 R] >>"}, {6, "<< >>"}, {7, "<< >>"}}, {{6, 57}, {7, 58}}, false,
         "<< /Font  57 0 R /Kids [ 57 0 R  58 0 R] >>\nendobj\n"},
        {{{5, "<< /A 6 0 R /B 7 0 R >>"}, {6, "1"}, {7, "2"}}, {{7, 40}}, false, "<<  /B  40 0 R >>\nendobj\n"},
        {{{5, "[6 0 R 7 0 R]"}, {6, "1"}, {7, "2"}}, {{7, 40}}, false, "[  40 0 R]\nendobj\n"},
        // An empty table that was set up still drops references.
        {{{5, "<< /A 6 0 R >>"}, {6, "1"}}, {}, true, "<<  >>\nendobj\n"},
        // A /Length with no stream keeps its value, written with the slot's own blank.
        {{{5, "<< /Filter /Standard /Length 128 /R 3 >>"}}, {}, false,
         "<< /Filter /Standard /Length 128  /R 3 >>\nendobj\n"},
        {{{5, "<< /A (a\\(b\\)\\n) /B <414243> /C <41 4> >>"}}, {}, false,
         "<< /A (a\\(b\\)\\n) /B <414243> /C <4140> >>\nendobj\n"},
        // Parentheses are not counted: "(a(b)c)" is the string "a(b".
        {{{5, "[(a(b)c)]"}}, {}, false, "[(a\\(b)c)]\nendobj\n"},
    };
    for (const auto& c : cases) {
        Opened d(document(c.objs));
        ASSERT_EQ(d.rc, 0);
        CDestFile sink;
        sink.setRenumbering(c.tableSetUp);
        for (const auto& m : c.renumber) sink.insertNewObjTab(NewObjTable{0, 0, m.first, 0}, SObj(m.second, 0, 0));
        ASSERT_TRUE(render(d, 5, sink));
        EXPECT_EQ(std::string(sink), c.text) << c.objs.at(5);
    }
}

// Indirect and too short stream lengths take the data's size; an object stream's members come out as plain text.
TEST(SpanCopier, LengthSlotsAndObjectStreamMembers) {
    pdftest::PdfBuilder b;
    b.object(1, "<< /Type /Catalog /Pages 2 0 R >>");
    b.objectStream(3, {{2, "<< /Type /Pages /Kids [] /Count 0 >>"}, {4, "<< /A 2 0 R /B (x) >>"}});
    b.stream(5, "", "hello world", "12 0 R");
    b.stream(6, "", "0123456789abcdef", "4");  // declared far too short
    b.object(12, "11");
    b.startxref(b.xrefStream(13, "/Root 1 0 R"));
    Opened d(b.str());
    ASSERT_EQ(d.rc, 0);
    // The object stream's own separator stays in front of the keyword.
    EXPECT_EQ(render(d, 4), "<< /A 2 0 R /B (x) >>\n\nendobj\n");
    const std::string text = render(d, 5);
    EXPECT_NE(text.find("/Length 11 "), std::string::npos) << text;
    EXPECT_EQ(text.find("12 0 R"), std::string::npos) << text;
    EXPECT_NE(text.find("stream\r\nhello world"), std::string::npos) << text;
    CDestFile sink;
    ASSERT_TRUE(render(d, 6, sink));
    ASSERT_GT(sink.streamDataSize, 0u);
    const std::string data = sink.substr(sink.streamDataPos, sink.streamDataSize);
    EXPECT_EQ(data.substr(0, 16), "0123456789abcdef");
    EXPECT_NE(sink.find("/Length " + std::to_string(data.size()) + " "), std::string::npos) << sink;
}

TEST(Writer, StringsEscapedAndBrokenAndNumbers) {
    std::string out;
    CStringType::WrtString(out, std::string("\r\t\b\f\\()x"));
    EXPECT_EQ(out, "\\r\\t\\b\\f\\\\\\(\\)x)");
    out.clear();
    CStringType::WrtString(out, std::string(150, 'a'));
    EXPECT_EQ(out, std::string(100, 'a') + "\\\n" + std::string(50, 'a') + ")");
    // The hex form breaks after eighty bytes and has no opener.
    out.clear();
    CStringType::WrtHexString(out, std::string(81, '\x0a'));
    std::string expected;
    for (int i = 0; i < 80; ++i) expected += "0a";
    EXPECT_EQ(out, expected + "\n0a>");
    // Numbers have five decimals at most and a trailing blank; the facade stream formats like a default one.
    Facade_stringstream fs;
    fs << 612 << ' ' << 0.5 << ' ' << 1250000.0 << ' ' << -3;
    EXPECT_EQ(std::string(fs), "612 0.5 1.25e+06 -3");
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
        if (c.text) { EXPECT_EQ(s, c.text) << c.value; }
        EXPECT_EQ(s.find_first_of("eE"), std::string::npos) << s;
        EXPECT_EQ(s.back(), ' ');
    }
}

TEST(ObjWrite, RenumberedObjectsAreFramedAndRecorded) {
    Opened d(document({{5, "<< /A 6 0 R >>"}, {6, "(six)"}}));
    CDestFile out;
    out.sources[1] = &d.file;
    out.sourceCount = 1;
    out.curFile = 1;
    out.insertNewObjTab(NewObjTable{0, 1, 5, 0}, SObj(3, 0, 0));
    out.insertNewObjTab(NewObjTable{0, 1, 6, 0}, SObj(4, 0, 0));
    CObj five(SObj(5, 0));
    EXPECT_TRUE(five.Write(out, d.file));
    CObj seven(SObj(7, 0));
    EXPECT_FALSE(seven.Write(out, d.file)) << "an object with no new number is not written";
    EXPECT_EQ(std::string(out), "3 0 obj << /A  4 0 R >>\nendobj\n");
    ASSERT_EQ(out.fileInfo.ownTable.count(SObj(3, 0)), 1u);
    EXPECT_EQ(out.fileInfo.ownTable.at(SObj(3, 0)).pos, 0);
    out.sources.clear();
}

}  // namespace
