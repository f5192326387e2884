// Opening through the facade: result codes, what init reads, the password entry, the text utilities and the file key.
#include <gtest/gtest.h>

#include <cstring>
#include <tuple>

#include "facade_test_util.h"
#include "test_util.h"

using namespace PDF_KILN;
using pagestest::Doc;
using pdftest::PdfBuilder;

namespace {

const char* const kStandard = "<< /Filter /Standard /V 2 /R 3 /Length 128 /P -1068 /O <0102> /U <0304> >>";

std::string encryptedPdf(const std::string& encryptBody) {
    PdfBuilder b;
    b.catalog();
    b.object(3, "<< /Title (t) >>");
    b.object(4, encryptBody);
    b.startxref(b.xrefTable("/Root 1 0 R /Info 3 0 R /Encrypt 4 0 R /ID [<0011223344><5566>]"));
    return b.str();
}

}  // namespace

TEST(FacadeOpening, ResultCodesOfFilesThatDoNotOpen) {
    CPDFKilnPage unopenable("/nonexistent/dir/file.pdf", "");
    EXPECT_EQ(unopenable.init(), 1000);
    // The fallback search for "startxref" runs out of input: CFileError.
    PdfBuilder noStartxref;
    noStartxref.catalog();
    noStartxref.xrefTable("/Root 1 0 R");
    noStartxref.raw("%" + std::string(700, '-') + "\n");
    noStartxref.startxref(3);
    // A negative /Length in a cross-reference stream: std::length_error.
    PdfBuilder negative("%PDF-1.5");
    negative.catalog();
    const long x = negative.here();
    negative.raw("3 0 obj\n<< /Type /XRef /W [1 4 2] /Size 3 /Root 1 0 R /Length -4 >>\nstream\nxx\nendstream\nendobj\n");
    negative.startxref(x);
    const struct {
        std::string pdf;
        bool failedStream;
        int rc;
    } cases[] = {{pdftest::minimalPdf(), true, 1000},
                 {"just text\n", false, 1000},
                 {noStartxref.str(), false, 1000},
                 {negative.str(), false, 6000}};
    for (const auto& c : cases) {
        std::stringstream in(c.pdf);
        if (c.failedStream) in.setstate(std::ios::failbit);
        CPDFKilnPage page(in, "");
        EXPECT_EQ(page.init(), c.rc) << c.pdf.substr(0, 40);
    }
}

TEST(FacadeOpening, PlainFileOpensAndHasNothingToDecrypt) {
    PdfBuilder b("%PDF-1.6");
    b.catalog();
    b.startxref(b.xrefTable("/Root 1 0 R /ID [<41420043> (CD)]"));
    Doc d(b.str());
    EXPECT_EQ(d.rc, 0);
    EXPECT_EQ(d.page->getVersionText(), "%PDF-1.6");
    EXPECT_EQ(d.page->getFileIdText(), "ABCD") << "each identifier string ends at its first zero byte";
    EXPECT_EQ(d.page->SetSourcePassword(), 8) << "not encrypted: nothing to do";
    EXPECT_EQ(d.page->getPageCount(), 0);
    SFileInfo info;
    EXPECT_TRUE(d.page->GetSourceFileInfo(info));
    EXPECT_EQ(std::make_tuple(info.securityVersion, info.keyOpenWithEmpty, info.passwordNeeded),
              std::make_tuple(0, false, false));
    EXPECT_STREQ(info.versionName, "PDF-1.3");
    PASSWORD_TYPE type = ePasswordRequired;
    int permissions = 0;
    EXPECT_EQ(d.page->getSecurity(type, permissions), 0);
    EXPECT_EQ(std::make_pair(type, permissions), std::make_pair(ePasswordNone, -4));
    EXPECT_TRUE(d.page->getEncryptString().empty());
}

TEST(FacadeOpening, CallersStreamOutlivesTheFacadeAndAFailedInitThrowsItsCodeOnAPassword) {
    std::stringstream in(pdftest::minimalPdf());
    EXPECT_EQ(CPDFKilnPage(in, "").init(), 0);
    in.clear();
    in.seekg(0);
    std::string first;
    in >> first;
    EXPECT_EQ(first, "%PDF-1.4");
    Doc d("no pdf at all\n");
    EXPECT_EQ(d.rc, 1000);
    ASSERT_NE(d.page->getSource(), nullptr);
    int thrown = -1;
    try {
        d.page->SetSourcePassword(std::string("pw"));
    } catch (int code) {
        thrown = code;
    }
    EXPECT_EQ(thrown, 1000);
}

// Another handler than /Standard is refused; a missing /Info object stops reading before /Encrypt: not encrypted.
TEST(FacadePassword, OtherHandlerAndMissingInfoObject) {
    PdfBuilder b;
    b.catalog();
    b.object(4, kStandard);
    b.startxref(b.xrefTable("/Root 1 0 R /Info 3 0 R /Encrypt 4 0 R"));
    const struct {
        std::string pdf;
        int handler, rc;
    } cases[] = {{encryptedPdf("<< /Filter /Adobe.PubSec /V 4 /R 4 >>"), -1, 1}, {b.str(), 0, 8}};
    for (const auto& c : cases) {
        Doc d(c.pdf);
        ASSERT_EQ(d.rc, 0);
        if (c.handler >= 0) { EXPECT_EQ(d.src().fileInfo.encrypt.handlerKind, c.handler); }
        EXPECT_EQ(d.page->SetSourcePassword(), c.rc);
    }
}

TEST(FacadePassword, StandardHandlerReopeningAndThePasswordLengthLimit) {
    Doc d(encryptedPdf(kStandard));
    ASSERT_EQ(d.rc, 0);
    CEncrypt& enc = d.src().fileInfo.encrypt;
    EXPECT_EQ((std::vector<long long>{enc.handlerKind, enc.V, enc.R, enc.Length, enc.P, enc.OLength, enc.ID[4]}),
              (std::vector<long long>{1, 2, 3, 128, -1068, 2, 0x44}));
    EXPECT_EQ(enc.IDLength, 5u);
    EXPECT_GT(enc.passwordState, 0);
    EXPECT_EQ(d.src().fileInfo.info.title, "t");
    // Reopening twice keeps the object table and the catalog.
    const std::size_t entries = d.src().fileInfo.objTable->size();
    d.page->SetSourcePassword(std::string("pw"));
    d.page->SetSourcePassword(std::string("pw"));
    EXPECT_EQ(d.src().fileInfo.objTable->size(), entries);
    EXPECT_EQ(d.src().catalog.pagesRef, SObj(2, 0));
    EXPECT_EQ(d.page->getPageCount(), 0);
    EXPECT_EQ(d.page->getFileIdText(), "\x55\x66") << "the first identifier starts with a zero byte: empty";

    Doc l(encryptedPdf(kStandard));
    CEncrypt& lim = l.src().fileInfo.encrypt;
    lim.passwordFlagOwner = true;  // stands in for the key trial's verdict: the empty password opened it
    std::memset(lim.suppliedPassword, 0, sizeof lim.suppliedPassword);
    std::memcpy(lim.suppliedPassword, "keep", 4);
    EXPECT_EQ(l.page->SetSourcePassword(std::string(33, 'x')), 1);
    EXPECT_STREQ(lim.suppliedPassword, "keep") << "a refused password leaves the field";
    lim.passwordFlagOwner = true;
    // 32 bytes go to the key trial, not refused for their length.
    const std::string exact(32, 'y');
    EXPECT_NE(l.page->SetSourcePassword(exact), 1);
    EXPECT_EQ(std::string(lim.suppliedPassword, 32), exact);
    EXPECT_EQ(lim.suppliedPassword[32], '\0');
}

// A direct /Encrypt in the trailer: the trailer goes on behind it, and both openings see the /Prev chain.
TEST(FacadePassword, DirectEncryptDictionaryInTheTrailer) {
    PdfBuilder one;
    one.catalog();
    one.startxref(one.xrefTable("/Encrypt << /Filter /Standard /V 1 /R 2 /O (o) /U (u) /P -4 >> /Root 1 0 R"));
    Doc d(one.str());
    ASSERT_EQ(d.rc, 0);
    const CEncrypt& enc = d.src().fileInfo.encrypt;
    EXPECT_EQ(std::make_pair(enc.handlerKind, enc.Length), std::make_pair(1, 40));
    EXPECT_EQ(d.src().catalog.pagesRef, SObj(2, 0));

    PdfBuilder b;
    b.catalog();
    const long x1 = b.xrefTable("/Root 1 0 R");
    b.startxref(x1);
    b.object(3, "(new)");
    b.startxref(b.xrefTable("/Root 1 0 R /Encrypt << /Filter /Standard /V 4 /R 4 /CF << /StdCF << /CFM /AESV2 "
                            "/Length 16 >> >> /StmF /StdCF /StrF /StdCF /O <01> /U <02> /P -4 >> /Prev " +
                            std::to_string(x1)));
    Doc r(b.str());
    ASSERT_EQ(r.rc, 0);
    const CFileInfo& fi = r.src().fileInfo;
    EXPECT_EQ(std::make_pair(fi.classicSections, fi.encrypt.cipherMode), std::make_pair(2, 2));
    r.src().fileInfo.encrypt.passwordFlagOwner = true;
    EXPECT_NO_THROW(r.page->SetSourcePassword(std::string("secret")));
    EXPECT_EQ(r.src().fileInfo.classicSections, 2);
    EXPECT_EQ(r.src().fileInfo.GetObjState(1, 0).kind, 1);
}

// Catches window-edge faults: a file is read through windows, a caller's stream whole; both must give the same pages.
TEST(FacadeOpening, FileWindowsReadAsTheWholeStream) {
    PdfBuilder b("%PDF-1.7");
    const int pages = 150;
    b.object(1, "<< /Type /Catalog /Pages 2 0 R >>");
    std::string kids;
    for (int p = 0; p < pages; ++p) kids += std::to_string(10 + 3 * p) + " 0 R ";
    b.object(2, "<< /Type /Pages /Kids [" + kids + "] /Count " + std::to_string(pages) + " >>");
    b.object(3, "<< /Type /Font /Subtype /Type1 /BaseFont /Helvetica >>");
    for (int p = 0; p < pages; ++p) {
        const int page = 10 + 3 * p;
        // Odd sizes move every object's start across the window edges.
        b.object(page, "<< /Type /Page /Parent 2 0 R /MediaBox [0 0 612 792]" + std::string(700 + 37 * p, ' ') +
                           "/Contents " + std::to_string(page + 1) + " 0 R /Resources << /Font << /F1 3 0 R >> "
                           "/XObject << /X " + std::to_string(page + 2) + " 0 R >> >> >>");
        std::string data;
        for (int i = 0; data.size() < 1500u + 11u * p; ++i)
            data += "BT /F1 9 Tf 20 " + std::to_string(700 - i) + " Td (page " + std::to_string(p) + ") Tj ET\n";
        b.stream(page + 1, "", data);
        b.stream(page + 2, "/Type /XObject /Subtype /Form /BBox [0 0 9 9]", std::string(300 + p, 'x'));
    }
    b.startxref(b.xrefTable("/Root 1 0 R"));
    ASSERT_GT(b.str().size(), 4u * 64 * 1024);
    testutil::TempDir tmp;
    testutil::writeFile(tmp.file("windows.pdf"), b.str());

    Doc whole(b.str());
    CPDFKilnPage windowed(tmp.file("windows.pdf").c_str(), "");
    ASSERT_EQ(whole.rc, 0);
    ASSERT_EQ(windowed.init(), 0);
    EXPECT_EQ(windowed.getVersionText(), "%PDF-1.7");
    ASSERT_EQ(windowed.getPageCount(), pages);
    int next = 100;
    // Reading the pages backwards makes every fetch seek across windows.
    for (int p = pages; p >= 1; --p) {
        for (CPDFKilnPage* f : {whole.page.get(), &windowed}) {
            ASSERT_EQ(f->setPageNo(p), 0);
            f->setStartObjNo(next);
        }
        using Map = std::map<std::pair<int, int>, std::string>;
        ASSERT_EQ(Map(whole.page->begin(), whole.page->end()), Map(windowed.begin(), windowed.end())) << "page " << p;
        const std::string content = pagestest::got(*whole.page, &CPDFKilnPage::getPageContents);
        EXPECT_EQ(pagestest::got(windowed, &CPDFKilnPage::getPageContents), content) << "page " << p;
        EXPECT_NE(content.find("(page " + std::to_string(p - 1) + ")"), std::string::npos);
        EXPECT_EQ(pagestest::got(windowed, &CPDFKilnPage::getPageRes, 1),
                  pagestest::got(*whole.page, &CPDFKilnPage::getPageRes, 1)) << "page " << p;
        next += static_cast<int>(whole.page->size());
    }
}

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
    Doc withId(pagestest::buildPdf(objs, "/Root 1 0 R /Info 3 0 R /ID [<0102> <0304>]"));
    ASSERT_EQ(withId.rc, 0);
    const SFileKey k = withId.page->getFileKey();
    EXPECT_STREQ(k.text, "01020304");
    EXPECT_EQ(k.size, static_cast<int32_t>(withId.in->str().size()));
    EXPECT_EQ(k.pageCount, 0);

    std::string plain = pagestest::buildPdf(objs, "/Root 1 0 R");
    Doc a(plain);
    plain[plain.find("(T)") + 1] = 'U';
    Doc b(plain);
    EXPECT_STREQ(a.page->getFileKey().text, "");
    EXPECT_NE(a.page->getFileKey().hash, b.page->getFileKey().hash) << "without /ID a byte change changes the key";
}
