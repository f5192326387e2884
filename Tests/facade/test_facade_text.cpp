// Text utilities of the facade: escapes, text strings, values cut out of object text and the file key.
#include <gtest/gtest.h>

#include "facade_test_util.h"

using namespace PDF_KILN;
using pagestest::Doc;
using pagestest::buildPdf;

TEST(TextEscapes, StringsNamesAndFileSpecifications) {
    using Unescape = bool (*)(const std::string&, std::string&);
    const Unescape str = CPDFKilnPage::unescapeStringObj, name = CPDFKilnPage::unescapeNameObj,
                   path = CPDFKilnPage::unescapeFilseSpecification;
    const struct {
        Unescape f;
        std::string in;
        bool ok;
        std::string out;
    } cases[] = {
        {str, "a\\053b", true, "a+b"},
        {str, "\\0053", true, std::string("\x05" "3", 2)},
        {str, "(a", false, "(a"},
        // Line ends become LF, an unknown escape drops its backslash.
        {str, "x\r\ny\rz\\n\\(\\q\\", true, "x\ny\nz\n(q"},
        {str, "", true, ""},
        {name, "A#20B", true, "A B"},
        {name, "A#2", true, "A"},
        {name, "#2f#2F", true, "//"},
        {path, "a\\/b", true, "a/b"},
        // The second piece is copied with the separator's position as its length.
        {path, "ab\\/cd\\/e", true, "ab/cd\\/e/e"},
    };
    for (const auto& c : cases) {
        std::string out;
        EXPECT_EQ(c.f(c.in, out), c.ok) << c.in;
        EXPECT_EQ(out, c.out) << c.in;
    }
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
