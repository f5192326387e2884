// Opening a source file: the header scan, the version list, the catalog, what
// a second opening keeps, the document information (/Info) and the file
// identifier (/ID).
#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <string>
#include <vector>

#include "reader_util.h"

using namespace PDF_KILN;
using namespace rtest;

namespace {

// A classic file whose trailer adds `trailer`, with `extra` objects from 3 on.
std::string withTrailer(const std::string& trailer, const std::vector<std::string>& extra = {}) {
    PdfBuilder b = catalogFile();
    int n = 3;
    for (const std::string& body : extra) b.object(n++, body);
    return withTable(b, "/Root 1 0 R " + trailer);
}

std::string bytes(const unsigned char* p, std::size_t n) { return std::string(reinterpret_cast<const char*>(p), n); }

}  // namespace

TEST(SourceHeader, HeaderScanAndVersionList) {
    const std::string junk = "garbage that some mailer added\n";
    const struct { std::string text; int rc; const char* version; int headerOffset; } cases[] = {
        {pdftest::minimalPdf("%PDF-1.7"), 0, "%PDF-1.7", 0},
        // Offsets are taken relative to the header, which may follow junk.
        {pdftest::minimalPdf("%PDF-1.4", junk), 0, "%PDF-1.4", static_cast<int>(junk.size())},
        {pdftest::minimalPdf("%PDF-1.5", "xyz "), 0, "%PDF-1.5", 4},
        // "%PDF-1.10" holds "%PDF-1.1", which is tested before anything later.
        {pdftest::minimalPdf("%PDF-1.10"), 0, "%PDF-1.1", 0},
        {pdftest::minimalPdf("%PDF-1.9"), 1000, "", 0},
        {pdftest::minimalPdf("%PDF-2.1"), 1000, "", 0},
        {"no header here\nat all\n", 1000, "", 0},
        {"", 1000, "", 0},
        // An overlong junk line ends the scan.
        {pdftest::minimalPdf("%PDF-1.4", std::string(3000, 'j') + "\n"), 1000, "", 0},
    };
    for (const auto& c : cases) {
        Opened s(c.text, c.rc);
        if (c.rc) continue;
        EXPECT_EQ(s.file.version, c.version);
        EXPECT_EQ(s.file.headerOffset, c.headerOffset);
        EXPECT_EQ(s.st(1).kind, 1);
        EXPECT_EQ(c.text.substr(s.st(1).pos, 7), "1 0 obj");
        EXPECT_EQ(s.file.catalog.type, "/Catalog");
        EXPECT_EQ(s.file.catalog.pagesRef, SObj(2, 0));
        EXPECT_EQ(s.file.curPageNo, 0);
    }
}

TEST(SourceHeader, CarriageReturnOnlyFileIsOneLongLineThatStillHasItsHeader) {
    // The whole file is one line, longer than the line buffer; the classic rows
    // end in CR CR then, still 20 bytes, still white space.
    PdfBuilder b("%PDF-1.3");
    b.object(1, kCatalog);
    b.object(2, "<< /Type /Pages /Kids [] /Count 0 /Pad (" + std::string(1500, 'p') + ") >>");
    std::string text = withTable(b);
    for (char& c : text)
        if (c == '\n') c = '\r';
    Opened s(text);
    EXPECT_EQ(s.file.version, "%PDF-1.3");
    EXPECT_EQ(s.file.catalog.pagesRef, SObj(2, 0));
}

TEST(SourceFile, BadRootAndASecondOpening) {
    for (const char* trailer : {"", "/Root 7 0 R"}) {
        PdfBuilder b;
        b.object(1, kCatalog);
        Opened s(withTable(b, trailer), 1000);
        if (!*trailer) { EXPECT_EQ(s.fi().rootRef.num, 0); }
    }
    Opened t(pdftest::minimalPdf());
    const auto table = *t.fi().objTable;
    const auto positions = t.fi().positions;
    ASSERT_EQ(t.file.CheckAndInit(), 0);
    EXPECT_EQ(t.fi().objTable->size(), table.size());
    EXPECT_EQ(t.fi().positions, positions);
    EXPECT_EQ(t.file.catalog.pagesRef, SObj(2, 0));
    EXPECT_TRUE(t.file.pages.empty());
}

TEST(SourceFile, FindStrAndDefaultsBeforeOpening) {
    Source s("a b c");
    EXPECT_TRUE(s.file.FindStr("b"));
    EXPECT_FALSE(s.file.FindStr("zz")) << "no throw at the end";
    const auto& i = s.file.fileInfo.info;
    EXPECT_EQ(std::vector<std::string>({i.title, i.subject, i.keywords, i.creator, i.producer, i.trapped}),
              std::vector<std::string>({"PDF_KILN", "Pdf-Merge(Split)-Kiln", "PDF<KILN>", "PDF_KILN",
                                        "Zarnoth.Co.Ltd", "Unknown"}));
    EXPECT_FALSE(i.author.empty());
    EXPECT_EQ(s.file.fileInfo.encrypt.versionText, "%PDF-1.3");
}

// What the catalog accepts, and what makes opening fail: the keys the reader
// needs must be references, /Version is held to its exact form, and an
// unknown key's value must balance.
TEST(SourceCatalog, ReadOrFailOpening) {
    // extra: the body of object 5; minor: the /Version read; compressed: the catalog in an object stream.
    const struct { const char* catalog; const char* extra; int code; int minor; bool compressed; } cases[] = {
        {"<< /Type /Catalog /Pages 2 0 R /Version /1.7 >>", nullptr, 0, 7, false},
        {"<< /Type /Catalog /Pages 2 0 R /Version /2.0 >>", nullptr, 0, 10, false},
        {"<< /Type /Catalog /Pages 2 0 R /Version 5 0 R >>", "/1.6", 0, 6, false},
        {"<< /Type /Catalog /Version /1.8 /Pages 2 0 R >>", nullptr, 1000, 0, false},
        {"<< /Type /Catalog /Pages 2 0 R /Version 1.7 >>", nullptr, 1000, 0, false},
        {"<< /Type /Catalog /Pages 2 0 R /Version /1.7x >>", nullptr, 1000, 0, false},
        {"<< /Type /Catalog /Pages 2 0 R /Version 9 0 R >>", nullptr, 1000, 0, false},
        {"<< /Type /Catalog /Pages /Foo >>", nullptr, 1000, 0, false},
        {"<< /Type /Catalog /Metadata 12 /Pages 2 0 R >>", nullptr, 1000, 0, false},
        {"<< /Type /Catalog /Pages 2 0 R /Lang ] >>", nullptr, 1000, 0, false},
        {"<< /Type /Catalog /Pages 2 0 R /Lang >> >>", nullptr, 1000, 0, false},
        // An escaped "(" counts as nesting: such a string never closes.
        {"<< /Type /Catalog /Pages 2 0 R /Lang (a\\( b) >>", nullptr, 1000, 0, false},
        {"<< /Type /Catalog /Pages 2 0 R /Version /1.8 >>", nullptr, 1000, 0, true},
        {"<< /Type /Catalog /Pages 2 0 R /Version /1.6 >>", nullptr, 0, 6, true},
        // Values that hold the reader's own keys are skipped whole.
        {"<< /Type /Catalog /Foo [ << /Pages 9 0 R >> (x) ] /Pages 2 0 R /Version /1.4 >>", nullptr, 0, 4, false},
        {"<< /Type /Catalog /AcroForm << /Fields [] /DA (x) >> /Pages 2 0 R /Version /1.5 >>", nullptr, 0, 5,
         false},
    };
    for (const auto& c : cases) {
        PdfBuilder b("%PDF-1.5");
        if (c.compressed) {
            b.objectStream(3, {{1, c.catalog}, {2, kPages}});
            b.startxref(b.xrefStream(4, "/Root 1 0 R"));
        } else {
            b.object(1, c.catalog);
            b.object(2, kPages);
            if (c.extra) b.object(5, c.extra);
            b.startxref(b.xrefTable("/Root 1 0 R"));
        }
        Opened s(b.str(), c.code);
        if (c.code) continue;
        EXPECT_EQ(s.file.catalog.type, "/Catalog") << c.catalog;
        EXPECT_EQ(s.file.catalog.minorVersion, c.minor) << c.catalog;
        EXPECT_EQ(s.file.catalog.pagesRef, SObj(2, 0)) << c.catalog;
        if (c.compressed) { EXPECT_EQ(s.file.catalog.versionName, "/1.6"); }
    }
}

TEST(InfoDictionary, LiteralHexAndReferencedValuesAreRead) {
    Opened s(withTrailer("/Info 3 0 R", {"<< /Title <48656C6C6F> /Author 4 0 R /Subject (S\\(1\\)) "
                                          "/Custom (skip me) /Keywords (k) /Creator (c) /Producer (p) "
                                          "/CreationDate (D:2020) /ModDate (D:2021) /Trapped /True >>",
                                          "(Jane)"}));
    // The author's reference to a string object is resolved and reading goes on
    // behind it; /Trapped is kept as the name token with its slash.
    const auto& i = s.fi().info;
    EXPECT_EQ(std::vector<std::string>({i.title, i.author, i.subject, i.keywords, i.creator, i.producer,
                                        i.creationDate, i.modDate, i.trapped}),
              std::vector<std::string>({"Hello", "Jane", "S(1)", "k", "c", "p", "D:2020", "D:2021", "/True"}));
    EXPECT_TRUE(i.lastString.empty());
}

TEST(InfoDictionary, DefaultsStayWithoutAReadableInfo) {
    // author: null: not looked at.
    const struct { std::string pdf; const char* author; } cases[] = {
        {withTrailer(""), nullptr},
        // A direct dictionary in the trailer is skipped, the trailer read on behind it.
        {withTrailer("/Info << /Title (direct) >> /ID [<01><02>]"), nullptr},
        {withTrailer("/Info 9 0 R"), nullptr},
        // A reference cycle of a value is stopped.
        {withTrailer("/Info 3 0 R", {"<< /Title 4 0 R /Author (after) >>", "4 0 R"}), "after"},
    };
    for (const auto& c : cases) {
        Opened s(c.pdf);
        EXPECT_EQ(s.fi().info.title, "PDF_KILN");
        EXPECT_EQ(s.fi().info.trapped, "Unknown");
        if (c.author) { EXPECT_EQ(s.fi().info.author, c.author); }
    }
    EXPECT_EQ(Opened(cases[1].pdf).fi().fileId.id1Length, 1u);
}

TEST(InfoDictionary, InfoWithoutEndobjOrInsideStreams) {
    PdfBuilder b;
    b.object(1, kCatalog);
    const long three = b.here();
    b.raw("3 0 obj\n<< /Title (first) \n");  // damaged: never closed
    b.object(2, "<< /Type /Pages /Kids [] /Count 0 /Title (wrong) >>");
    Opened s(withRaw(b, "xref\n0 4\n" + row(0, 65535, 'f') + row(b.offsetOf(1)) + row(b.offsetOf(2)) + row(three) +
                            "trailer\n<< /Size 4 /Root 1 0 R /Info 3 0 R >>\n"));
    EXPECT_EQ(s.fi().info.title, "first");
    PdfBuilder c("%PDF-1.5");
    c.objectStream(5, {{1, kCatalog}, {2, kPages}, {3, "<< /Title (packed) /Author 4 0 R >>"}, {4, "(Ann)"}});
    Opened t(withStream(c, 6, "/Root 1 0 R /Info 3 0 R /ID [<1234><5678>]"));
    EXPECT_EQ(t.fi().info.title, "packed");
    EXPECT_EQ(t.fi().info.author, "Ann");
    EXPECT_EQ(t.fi().fileId.id1Length, 2u);
    EXPECT_EQ(t.fi().fileId.id2[1], 0x78);
}

TEST(InfoDictionary, SetInfoAndCreationDate) {
    CFileInfo::CInfo info;
    info.title = "old title";
    info.author = "old author";
    InfoDic d;
    std::snprintf(d.title, sizeof d.title, "%s", "New");
    d.creationDate = InfoDate{2024, 2, 29, 13, 5, 9, '+', 1, 30};
    d.modDate = InfoDate{1999, 12, 31, 23, 59, 58, '-', 5, 0};
    info.SetInfo(d);
    EXPECT_EQ(std::vector<std::string>({info.title, info.author, info.creationDate, info.modDate}),
              std::vector<std::string>({"New", "old author", "D:20240229130509+01'30'", "D:19991231235958-05'00'"}));
    EXPECT_STREQ(FORMATDATE, "D:%04i%02i%02i%02i%02i%02i%c%02i'%02i'");
    const char* old = std::getenv("TZ");
    const std::string saved = old ? old : "";
    setenv("TZ", "EST5", 1);
    tzset();
    std::string date;
    CFileInfo::CInfo::createdate(date);
    if (old) setenv("TZ", saved.c_str(), 1);
    else unsetenv("TZ");
    tzset();
    ASSERT_EQ(date.size(), 23u) << date;
    EXPECT_EQ(date.substr(0, 2), "D:");
    EXPECT_EQ(date.substr(16), "-05'00'");
}

TEST(FileIdentifier, HexLiteralOverlongAndNewest) {
    Opened hex(withTrailer("/ID [<0102FF> <A0B0>]"));
    EXPECT_EQ(hex.fi().fileId.id1Length, 3u);
    EXPECT_EQ(bytes(hex.fi().fileId.id1, 3), "\x01\x02\xFF");
    EXPECT_EQ(bytes(hex.fi().fileId.id2, 2), "\xA0\xB0");
    // Comments before the strings; literal strings with escapes.
    Opened lit(withTrailer("/ID [ % the identifier\n (ab\\051) (cd)] /Size 3"));
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(lit.fi().fileId.id1)), "ab)");
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(lit.fi().fileId.id2)), "cd");
    // Overlong strings are bounded, and reading goes on behind them.
    Opened big(withTrailer("/ID [(" + std::string(1200, 'Z') + ") <" + std::string(1000, 'A') + ">] /Size 3"));
    EXPECT_LE(big.fi().fileId.id1Length, 256u);
    EXPECT_EQ(big.fi().fileId.id1[255], 'Z');
    EXPECT_EQ(big.fi().size, 3);
    // The newest trailer wins.
    PdfBuilder b = catalogFile();
    long x1 = b.xrefTable("/Root 1 0 R /ID [<AA><AA>]");
    b.startxref(x1);
    b.object(3, "(x)");
    Opened newest(withTable(b, "/Root 1 0 R /ID [<BB><CC>] /Prev " + std::to_string(x1)));
    EXPECT_EQ(newest.fi().fileId.id1[0], 0xBB);
    EXPECT_EQ(newest.fi().fileId.id2[0], 0xCC);
}
