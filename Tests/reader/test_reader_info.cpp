// Document information (/Info) and the file identifier (/ID).
#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <string>

#include "pdf_builder.h"
#include "pdfkiln_sourfile.h"

using namespace PDF_KILN;
using pdftest::PdfBuilder;
using pdftest::Source;

namespace {

const char* const kCatalog = "<< /Type /Catalog /Pages 2 0 R >>";
const char* const kPages = "<< /Type /Pages /Kids [] /Count 0 >>";

// A classic file whose trailer adds `trailer`, with `extra` objects from 3 on.
std::string withTrailer(const std::string& trailer, const std::vector<std::string>& extra = {}) {
    PdfBuilder b;
    b.catalog();
    int n = 3;
    for (const std::string& body : extra) b.object(n++, body);
    long x = b.xrefTable("/Root 1 0 R " + trailer);
    b.startxref(x);
    return b.str();
}

}  // namespace

TEST(InfoDictionary, LiteralHexAndReferencedValuesAreRead) {
    Source s(withTrailer("/Info 3 0 R", {"<< /Title <48656C6C6F> /Author 4 0 R /Subject (S\\(1\\)) "
                                         "/Custom (skip me) /Keywords (k) /Creator (c) /Producer (p) "
                                         "/CreationDate (D:2020) /ModDate (D:2021) /Trapped /True >>",
                                         "(Jane)"}));
    ASSERT_EQ(s.file.CheckAndInit(), 0);
    const auto& info = s.file.fileInfo.info;
    EXPECT_EQ(info.title, "Hello");
    EXPECT_EQ(info.author, "Jane") << "a reference to a string object is resolved";
    EXPECT_EQ(info.subject, "S(1)") << "reading went on behind the reference";
    EXPECT_EQ(info.keywords, "k");
    EXPECT_EQ(info.creator, "c");
    EXPECT_EQ(info.producer, "p");
    EXPECT_EQ(info.creationDate, "D:2020");
    EXPECT_EQ(info.modDate, "D:2021");
    EXPECT_EQ(info.trapped, "/True") << "kept as the name token with its slash";
    EXPECT_TRUE(info.lastString.empty());
}

TEST(InfoDictionary, WithoutInfoTheDefaultsStay) {
    Source s(withTrailer(""));
    ASSERT_EQ(s.file.CheckAndInit(), 0);
    EXPECT_EQ(s.file.fileInfo.info.title, "PDF_KILN");
    EXPECT_EQ(s.file.fileInfo.info.trapped, "Unknown");
}

TEST(InfoDictionary, DirectInfoDictionaryInATrailerIsSkipped) {
    Source s(withTrailer("/Info << /Title (direct) >> /ID [<01><02>]"));
    ASSERT_EQ(s.file.CheckAndInit(), 0);
    EXPECT_EQ(s.file.fileInfo.info.title, "PDF_KILN");
    EXPECT_EQ(s.file.fileInfo.fileId.id1Length, 1u) << "the trailer is read on behind the dictionary";
}

TEST(InfoDictionary, ReferenceToAMissingObjectLeavesTheDefaults) {
    Source s(withTrailer("/Info 9 0 R"));
    ASSERT_EQ(s.file.CheckAndInit(), 0);
    EXPECT_EQ(s.file.fileInfo.info.title, "PDF_KILN");
}

TEST(InfoDictionary, ValueReferenceCycleIsStopped) {
    Source s(withTrailer("/Info 3 0 R", {"<< /Title 4 0 R /Author (after) >>", "4 0 R"}));
    ASSERT_EQ(s.file.CheckAndInit(), 0);
    EXPECT_EQ(s.file.fileInfo.info.title, "PDF_KILN");
    EXPECT_EQ(s.file.fileInfo.info.author, "after");
}

TEST(InfoDictionary, InfoWithoutEndobjStopsAtTheNextObject) {
    PdfBuilder b;
    b.object(1, kCatalog);
    b.raw("3 0 obj\n<< /Title (first) \n");  // damaged: never closed
    b.object(2, "<< /Type /Pages /Kids [] /Count 0 /Title (wrong) >>");
    std::string text = b.str();
    long x = b.here();
    // The table lists object 3 where its damaged text starts.
    const long three = static_cast<long>(text.find("3 0 obj"));
    char line[32];
    std::string xref = "xref\n0 4\n0000000000 65535 f\r\n";
    for (long off : {b.offsetOf(1), b.offsetOf(2), three}) {
        std::snprintf(line, sizeof line, "%010ld 00000 n\r\n", off);
        xref += line;
    }
    b.raw(xref + "trailer\n<< /Size 4 /Root 1 0 R /Info 3 0 R >>\n");
    b.startxref(x);
    Source s(b.str());
    ASSERT_EQ(s.file.CheckAndInit(), 0);
    EXPECT_EQ(s.file.fileInfo.info.title, "first");
}

TEST(InfoDictionary, InfoInsideAnObjectStream) {
    PdfBuilder b("%PDF-1.5");
    b.objectStream(5, {{1, kCatalog}, {2, kPages}, {3, "<< /Title (packed) /Author 4 0 R >>"}, {4, "(Ann)"}});
    long x = b.xrefStream(6, "/Root 1 0 R /Info 3 0 R");
    b.startxref(x);
    Source s(b.str());
    ASSERT_EQ(s.file.CheckAndInit(), 0);
    EXPECT_EQ(s.file.fileInfo.info.title, "packed");
    EXPECT_EQ(s.file.fileInfo.info.author, "Ann");
}

TEST(InfoDictionary, SetInfoTakesNonEmptyFieldsAndRendersDates) {
    CFileInfo::CInfo info;
    info.title = "old title";
    info.author = "old author";
    InfoDic d;
    std::snprintf(d.title, sizeof d.title, "%s", "New");
    d.creationDate = InfoDate{2024, 2, 29, 13, 5, 9, '+', 1, 30};
    d.modDate = InfoDate{1999, 12, 31, 23, 59, 58, '-', 5, 0};
    info.SetInfo(d);
    EXPECT_EQ(info.title, "New");
    EXPECT_EQ(info.author, "old author");
    EXPECT_EQ(info.creationDate, "D:20240229130509+01'30'");
    EXPECT_EQ(info.modDate, "D:19991231235958-05'00'");
    EXPECT_STREQ(FORMATDATE, "D:%04i%02i%02i%02i%02i%02i%c%02i'%02i'");
}

TEST(InfoDictionary, CreationDateWestOfGreenwichHasAMinusSign) {
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

TEST(FileIdentifier, HexAndLiteralStringsAndCommentsBefore) {
    Source hex(withTrailer("/ID [<0102FF> <A0B0>]"));
    ASSERT_EQ(hex.file.CheckAndInit(), 0);
    const auto& id = hex.file.fileInfo.fileId;
    EXPECT_EQ(id.id1Length, 3u);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(id.id1), 3), "\x01\x02\xFF");
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(id.id2), 2), "\xA0\xB0");

    Source lit(withTrailer("/ID [ % the identifier\n (ab\\051) (cd)] /Size 3"));
    ASSERT_EQ(lit.file.CheckAndInit(), 0);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(lit.file.fileInfo.fileId.id1)), "ab)");
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(lit.file.fileInfo.fileId.id2)), "cd");
}

TEST(FileIdentifier, NewestTrailerWins) {
    PdfBuilder b;
    b.catalog();
    long x1 = b.xrefTable("/Root 1 0 R /ID [<AA><AA>]");
    b.startxref(x1);
    b.object(3, "(x)");
    long x2 = b.xrefTable("/Root 1 0 R /ID [<BB><CC>] /Prev " + std::to_string(x1));
    b.startxref(x2);
    Source s(b.str());
    ASSERT_EQ(s.file.CheckAndInit(), 0);
    EXPECT_EQ(s.file.fileInfo.fileId.id1[0], 0xBB);
    EXPECT_EQ(s.file.fileInfo.fileId.id2[0], 0xCC);
}

TEST(FileIdentifier, OverlongStringsAreBounded) {
    const std::string big(1200, 'Z');
    Source s(withTrailer("/ID [(" + big + ") <" + std::string(1000, 'A') + ">] /Size 3"));
    ASSERT_EQ(s.file.CheckAndInit(), 0);
    EXPECT_LE(s.file.fileInfo.fileId.id1Length, 256u);
    EXPECT_EQ(s.file.fileInfo.fileId.id1[255], 'Z');
    EXPECT_EQ(s.file.fileInfo.size, 3) << "reading went on behind the strings";
}

TEST(FileIdentifier, ReadFromACrossReferenceStream) {
    PdfBuilder b("%PDF-1.5");
    b.catalog();
    long x = b.xrefStream(3, "/Root 1 0 R /ID [<1234><5678>]");
    b.startxref(x);
    Source s(b.str());
    ASSERT_EQ(s.file.CheckAndInit(), 0);
    EXPECT_EQ(s.file.fileInfo.fileId.id1Length, 2u);
    EXPECT_EQ(s.file.fileInfo.fileId.id2[1], 0x78);
}
