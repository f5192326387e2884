// getType, getValue, getDecompressStream, trimParenthes and the composed
// message of the exceptions they raise.
#include <gtest/gtest.h>
#include <zlib.h>

#include <string>

#include "pdfkiln_findingvalue.h"
#include "yard/pdf_rules.h"

using namespace PDF_KILN;

namespace {

EPDFType typeOf2(const std::string& s) { return utility::getType(s.data(), s.data() + s.size()); }

std::string valueOf(const std::string& s, EPDFType t) { return utility::getValue(s.data(), s.data() + s.size(), t); }

std::string deflate(const std::string& data) {
    uLongf size = compressBound(static_cast<uLong>(data.size()));
    std::string out(size, '\0');
    compress(reinterpret_cast<Bytef*>(&out[0]), &size, reinterpret_cast<const Bytef*>(data.data()),
             static_cast<uLong>(data.size()));
    out.resize(size);
    return out;
}

// The message of an exception of the finder's unit: `word`, the value part if
// any, then the file and line of the throwing statement.
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

}  // namespace

// ---- getType ---------------------------------------------------------------

TEST(GetType, EarliestHitWins) {
    EXPECT_EQ(typeOf2("true"), ePDFBoolean);
    EXPECT_EQ(typeOf2("  -3.5 /A"), ePDFNumber);
    EXPECT_EQ(typeOf2("(x) 1"), ePDFString);
    EXPECT_EQ(typeOf2("<41>"), ePDFString);
    EXPECT_EQ(typeOf2("/true"), ePDFName);
    EXPECT_EQ(typeOf2("[1 2]"), ePDFArray);
    EXPECT_EQ(typeOf2("<< /A 1 >>"), ePDFDictionary);
    EXPECT_EQ(typeOf2("<<>>"), ePDFDictionary);
    EXPECT_EQ(typeOf2(">>stream"), ePDFStream);
    EXPECT_EQ(typeOf2("null 1"), ePDFNull);
    // A search, not a check of the first byte.
    EXPECT_EQ(typeOf2("abc true"), ePDFBoolean);
    EXPECT_EQ(typeOf2("-.5"), ePDFNumber);
}

TEST(GetType, LaterSearchWinsATie) {
    // The number rule also hits at "1", but the reference is tried later.
    EXPECT_EQ(typeOf2("12 0 R"), ePDFIndirect);
    EXPECT_EQ(utility::getType(std::string("  5 0 R endobj")), ePDFIndirect);
    EXPECT_EQ(typeOf2("12 0 obj"), ePDFNumber);
}

TEST(GetType, NothingFound) {
    EXPECT_EQ(typeOf2(""), ePDFNone);
    EXPECT_EQ(typeOf2("xyz {}"), ePDFNone);
    EXPECT_EQ(utility::getType(nullptr, nullptr), ePDFNone);
    EXPECT_EQ(utility::getType(std::string()), ePDFNone);
}

TEST(GetType, StringFormStopsAtTheStreamBegin) {
    const std::string obj = "<< /Length 3 >>\nstream\n(x)\nendstream\nendobj";
    EXPECT_EQ(utility::getType(obj), ePDFDictionary);
    // Type 8 comes only out of the two-pointer form, on a fragment.
    EXPECT_EQ(typeOf2("/Length 3 >>\nstream"), ePDFName);
    EXPECT_EQ(typeOf2(">>\nstream\n"), ePDFStream);
    EXPECT_EQ(utility::getType(std::string(">>\nstream\n")), ePDFNone);
    // Stream data is never classified.
    EXPECT_EQ(utility::getType(std::string("x>>stream true")), ePDFNone);
}

// ---- getValue ----------------------------------------------------------------

TEST(GetValue, EmptyRangeYieldsEmptyForEveryType) {
    const char* p = "x";
    for (int t = 0; t <= 11; ++t) {
        EXPECT_EQ(utility::getValue(p, p, static_cast<EPDFType>(t)), "") << t;
        EXPECT_EQ(utility::getValue(nullptr, nullptr, static_cast<EPDFType>(t)), "") << t;
    }
}

TEST(GetValue, SearchesForTheFirstValueOfTheType) {
    const std::string t = " /Type /Page /Count 3 /Kids [4 0 R] /T (a(b)) /N null /B false /D <</X 1>>";
    EXPECT_EQ(valueOf(t, ePDFName), "/Type");
    EXPECT_EQ(valueOf(t, ePDFNumber), "3");
    EXPECT_EQ(valueOf(t, ePDFArray), "[4 0 R]");
    EXPECT_EQ(valueOf(t, ePDFIndirect), "4 0 R");
    EXPECT_EQ(valueOf(t, ePDFString), "(a(b))");
    EXPECT_EQ(valueOf(t, ePDFNull), "null");
    EXPECT_EQ(valueOf(t, ePDFBoolean), "false");
    EXPECT_EQ(valueOf(t, ePDFDictionary), "<</X 1>>");
    EXPECT_EQ(valueOf(t, ePDFNone), "");
    EXPECT_EQ(valueOf(t, static_cast<EPDFType>(10)), "");
    EXPECT_EQ(valueOf("/A", ePDFNumber), "");
}

TEST(GetValue, StreamTypeDecodesTheRange) {
    EXPECT_EQ(valueOf("<< /Length 3 >>\nstream\nabc\nendstream", ePDFStream), "abc");
}

TEST(ParseValue, CopiesTheTokenizerGiven) {
    yard::Tokenizer<PDF_RULES::MatchNameObject> tok;
    const std::string t = "1 /B /C";
    EXPECT_EQ(parseValue(tok, t.data(), t.data() + t.size()), "/B");
    EXPECT_TRUE(tok.empty());
    EXPECT_EQ(parseValue(tok, t.data(), t.data() + 1), "");
}

// ---- getDecompressStream --------------------------------------------------------

TEST(DecompressStream, NoStreamYieldsEmpty) {
    EXPECT_EQ(utility::getDecompressStream(""), "");
    EXPECT_EQ(utility::getDecompressStream("<< /A 1 >>"), "");
    // "stream" without "endstream": no data.
    EXPECT_EQ(utility::getDecompressStream("<< /A 1 >>stream\nabc"), "");
    // Only the tail of "endstream" is found as "stream": no data either.
    EXPECT_EQ(utility::getDecompressStream("abc endstream"), "");
}

TEST(DecompressStream, UnfilteredDataLosesLineEndsAtBothEnds) {
    EXPECT_EQ(utility::getDecompressStream("<< /Length 5 >>\nstream\r\nhello\r\n\nendstream\nendobj"), "hello");
    // By byte value: data that ends in a line end loses it, /Length or not.
    EXPECT_EQ(utility::getDecompressStream("<< /Length 6 >>stream\n\nab\n\r\nendstream"), "ab");
    EXPECT_EQ(utility::getDecompressStream("<<>>stream\n\r\n\nendstream"), "");
    // The last "endstream" ends the data.
    EXPECT_EQ(utility::getDecompressStream("<<>>stream\na endstream b\nendstream"), "a endstream b");
    // Binary data, NUL bytes included, passes untouched.
    const std::string bin("\0\x01\xff\r", 4);
    EXPECT_EQ(utility::getDecompressStream("<<>>stream\n" + bin + "x\nendstream"), bin + "x");
}

TEST(DecompressStream, FiltersAreApplied) {
    const std::string data = "BT /F1 12 Tf (Hello) Tj ET";
    EXPECT_EQ(utility::getDecompressStream("<< /Filter /FlateDecode >>\nstream\n" + deflate(data) + "\nendstream"),
              data);
    EXPECT_EQ(utility::getDecompressStream("<< /Filter /AHx >>\nstream\n48656C6C6F>\nendstream"), "Hello");
    EXPECT_EQ(utility::getDecompressStream("<< /Filter [/AHx /Fl] >>stream\n" +
                                           std::string("789C4B4C4A0600024D0127>") + "\nendstream"),
              "abc");
}

TEST(DecompressStream, UnknownFilterNameLeavesDataAsItIs) {
    // The full name "/ASCIIHexDecode" is no filter of the library ("/AHx" is).
    EXPECT_EQ(utility::getDecompressStream("<< /Filter /ASCIIHexDecode >>\nstream\n4142>\nendstream"), "4142>");
}

TEST(DecompressStream, FirstFilterNameAnywhereCounts) {
    // The dictionary's only "/Filter" stands inside a string value.
    EXPECT_EQ(utility::getDecompressStream("<< /Note (/Filter /AHx) /Length 5 >>\nstream\n4142>\nendstream"), "AB");
    // In a /DecodeParms value before the real entry.
    EXPECT_EQ(utility::getDecompressStream(
                  "<< /DecodeParms << /Filter /AHx >> /Filter /Fl >>\nstream\n4142>\nendstream"),
              "AB");
}

TEST(DecompressStream, DecodeFailureRaises) {
    try {
        utility::getDecompressStream("<< /Filter /FlateDecode >>\nstream\nnot zlib data at all\nendstream");
        FAIL() << "no exception";
    } catch (const std::exception& e) {
        expectComposed(e.what(), "Decomress error", nullptr);
    }
}

// ---- trimParenthes and toString -------------------------------------------------------

TEST(TrimParenthes, CutsEveryLeadingOpenAndTrailingClose) {
    EXPECT_EQ(trimParenthes("((a))"), "a");
    EXPECT_EQ(trimParenthes("(a\\)b)"), "a\\)b");
    EXPECT_EQ(trimParenthes("(Hello \\(x\\))"), "Hello \\(x\\");
    EXPECT_EQ(trimParenthes("<41>"), "<41>");
    EXPECT_EQ(trimParenthes("()"), "");
    EXPECT_EQ(trimParenthes("((("), "");
    EXPECT_EQ(trimParenthes(")))"), "");
    EXPECT_EQ(trimParenthes(""), "");
    EXPECT_EQ(trimParenthes(")("), ")(");
    EXPECT_EQ(trimParenthes(" (a) "), " (a) ");
}

TEST(Utility, ToString) {
    EXPECT_EQ(utility::toString(0), "0");
    EXPECT_EQ(utility::toString(-42), "-42");
}
