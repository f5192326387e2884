// Text utilities of the facade: escapes, text strings, values cut out of
// object text, hashes and the file key.
#include <gtest/gtest.h>

#include "facade_test_util.h"

using namespace PDF_KILN;
using pagestest::Doc;
using pagestest::buildPdf;

TEST(TextEscapes, LiteralStringEscapes) {
    std::string out;
    EXPECT_TRUE(CPDFKilnPage::unescapeStringObj("a\\053b", out));
    EXPECT_EQ(out, "a+b");
    out.clear();
    EXPECT_TRUE(CPDFKilnPage::unescapeStringObj("\\0053", out));
    EXPECT_EQ(out, std::string("\x05" "3", 2));
    out.clear();
    EXPECT_FALSE(CPDFKilnPage::unescapeStringObj("(a", out));
    EXPECT_EQ(out, "(a");
    out.clear();
    EXPECT_TRUE(CPDFKilnPage::unescapeStringObj("x\r\ny\rz\\n\\(\\q\\", out));
    EXPECT_EQ(out, "x\ny\nz\n(q") << "line ends become LF, an unknown escape drops its backslash";
    out.clear();
    EXPECT_TRUE(CPDFKilnPage::unescapeStringObj("", out));
}

TEST(TextEscapes, NamesAndFileSpecifications) {
    std::string out;
    EXPECT_TRUE(CPDFKilnPage::unescapeNameObj("A#20B", out));
    EXPECT_EQ(out, "A B");
    out.clear();
    CPDFKilnPage::unescapeNameObj("A#2", out);
    EXPECT_EQ(out, "A");
    out.clear();
    CPDFKilnPage::unescapeNameObj("#2f#2F", out);
    EXPECT_EQ(out, "//");
    out.clear();
    EXPECT_TRUE(CPDFKilnPage::unescapeFilseSpecification("a\\/b", out));
    EXPECT_EQ(out, "a/b");
    out.clear();
    // The second piece is copied with the separator's position as its length.
    CPDFKilnPage::unescapeFilseSpecification("ab\\/cd\\/e", out);
    EXPECT_EQ(out, "ab/cd\\/e/e");
}

TEST(TextStrings, UnicodeForms) {
    EXPECT_EQ(getXFString(std::string("\xFE\xFF\x00\x41\x00\x42", 6)), icu::UnicodeString(u"AB"));
    EXPECT_EQ(getXFString(std::string("\xFF\xFE\x41\x00", 4)), icu::UnicodeString(u"A"));
    EXPECT_EQ(getXFString("<FEFF00410042>"), icu::UnicodeString(u"AB"));
    EXPECT_EQ(getXFString("<4142>"), icu::UnicodeString(u"AB"));
    EXPECT_EQ(getXFString("plain"), icu::UnicodeString(u"plain"));
    EXPECT_EQ((GetDataFromHexString<char16_t, 4>::axtoi("feff")), 0xFEFFu);
    EXPECT_EQ((GetDataFromHexString<char16_t, 4>::axtoi("1g")), 1u);
}

TEST(TextValues, DictionariesArraysAndReferences) {
    EXPECT_EQ(getDicStr(" << /A (>>) /B << /C 1 >> >> /D 2"), "<< /A (>>) /B << /C 1 >> >>");
    EXPECT_EQ(getDicStr(" 12 0 R /X"), "12 0 R");
    EXPECT_EQ(getDicStr(" /Name"), "");
    EXPECT_EQ(getArrayStr(" [1 [2] (]) <</A [3]>>] x"), "[1 [2] (]) <</A [3]>>]");
    const std::string page = "<< /Type /Page /Resources << /Font << /F1 4 0 R >> >> /Annots [5 0 R] /P 7 0 R/Q >>";
    CPageInfo info(page);
    EXPECT_EQ(info.getValueString("Resources"), "<< /Font << /F1 4 0 R >> >>");
    EXPECT_EQ(info.getValueString("Annots"), "[5 0 R]");
    EXPECT_EQ(info.getValueString("/P"), "age ") << "the first /P is that of /Page";
    EXPECT_EQ(info.getValueString("Missing"), "");
    EXPECT_EQ(info.getValueString("Type"), "") << "other keys give nothing";
}

TEST(TextValues, DictionaryMergeKeepsDuplicatesAndIgnoresNesting) {
    const std::string a = "<< /Font << /F1 1 0 R >> >>";
    const std::string b = "<< /Font << /F1 2 0 R /F2 3 0 R >> /XObject << /X 4 0 R >> >>";
    ResourceDictMerger m(a, b);
    std::string out;
    m.dictValMerge("/Font", out);
    m.dictValMerge("/Shading", out);
    m.dictValMerge("/XObject", out);
    EXPECT_EQ(out, "/Font<< /F1 1 0 R  /F1 2 0 R /F2 3 0 R >>/XObject<< /X 4 0 R >>");
}

TEST(TextHashes, HashAndInclusion) {
    EXPECT_EQ(hashstr("", 0), 0u);
    EXPECT_EQ(hashstr("a", 1), 97u);
    EXPECT_EQ(hashstr("ab", 2), 97u * 16 + 98);
    EXPECT_EQ(hashstr("\xff", 1), 0xFFFFFFFFu ^ 0xF0000000u ^ 0xF0u);
    EXPECT_TRUE(aIncludeB("abc", "bc"));
    EXPECT_FALSE(aIncludeB("abc", "cb"));
}

TEST(TextFileKey, IdentifierOrChecksum) {
    const std::map<int, std::string> objs = {{2, "<< /Type /Pages /Kids [] /Count 0 >>"},
                                             {3, "<< /Title (T) >>"}};
    Doc withId(buildPdf(objs, "/Root 1 0 R /Info 3 0 R /ID [<0102> <0304>]"));
    ASSERT_EQ(withId.rc, 0);
    const SFileKey k = withId.page->getFileKey();
    EXPECT_STREQ(k.text, "01020304");
    EXPECT_EQ(k.size, static_cast<int32_t>(withId.in->str().size()));
    EXPECT_EQ(k.pageCount, 0);

    std::string plain = buildPdf(objs, "/Root 1 0 R");
    Doc a(plain);
    plain[plain.find("(T)") + 1] = 'U';
    Doc b(plain);
    EXPECT_STREQ(a.page->getFileKey().text, "");
    EXPECT_NE(a.page->getFileKey().hash, b.page->getFileKey().hash) << "without /ID a byte change changes the key";
}
