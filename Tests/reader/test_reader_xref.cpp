// The cross-reference chain: finding "startxref", classic sections and
// trailers, cross-reference streams, revisions, and the repairs of damaged
// tails and sections.
#include <algorithm>
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

#include "pdf_builder.h"
#include "pdfkiln_sourfile.h"

using namespace PDF_KILN;
using pdftest::PdfBuilder;
using pdftest::Source;

namespace {

const char* const kCatalog = "<< /Type /Catalog /Pages 2 0 R >>";
const char* const kPages = "<< /Type /Pages /Kids [] /Count 0 >>";

// A classic file of objects 1 and 2 padded so that its first revision is
// well away from the tail.
PdfBuilder baseRevision(long* xrefAt) {
    PdfBuilder b;
    b.object(1, kCatalog);
    b.object(2, kPages);
    *xrefAt = b.xrefTable("/Root 1 0 R");
    return b;
}

std::string pad(std::size_t n) { return "%" + std::string(n, '-') + "\n"; }

}  // namespace

TEST(XRefTail, SmallFileFindsStartxrefByTheWholeFileScan) {
    const std::string pdf = pdftest::minimalPdf();
    ASSERT_LT(pdf.size(), 300u);
    Source s(pdf);
    ASSERT_EQ(s.file.CheckAndInit(), 0);
    EXPECT_EQ(s.file.fileInfo.classicSections, 1);
    EXPECT_EQ(s.file.fileInfo.GetObjState(2, 0).kind, 1);
}

TEST(XRefTail, StartxrefOutsideTheTailIsFoundByTheWholeFileScan) {
    std::string pdf = pdftest::minimalPdf() + pad(400);
    Source s(pdf);
    ASSERT_EQ(s.file.CheckAndInit(), 0);
    EXPECT_EQ(s.file.catalog.pagesRef, SObj(2, 0));
}

TEST(XRefTail, TheLastStartxrefOfTheTailCounts) {
    long x = 0;
    PdfBuilder b = baseRevision(&x);
    b.raw(pad(200));
    b.startxref(99999);
    b.startxref(x);
    Source s(b.str());
    ASSERT_EQ(s.file.CheckAndInit(), 0);
    EXPECT_EQ(s.file.catalog.type, "/Catalog");
}

TEST(XRefTail, AnOffsetBeyondAnyNumberEndsLikeOnePastTheEnd) {
    // 2^63 - 1 and more: the offset plus the header's position must not
    // overflow; the section is not there, as for any offset past the end.
    for (const char* huge : {"9223372036854775807", "99999999999999999999999"}) {
        Source s(pdftest::minimalPdf() + "startxref\n" + huge + "\n%%EOF\n");
        s.file.CheckAndInit();
        EXPECT_EQ(s.file.fileInfo.classicSections, 0) << huge;
    }
}

TEST(XRefTail, PositionBelowTenIsNoTablePositionTenIs) {
    // A section right behind the header: "%PDF-1.4\n" is 9 bytes.
    const std::string section = "xref\n0 1\n0000000000 65535 f\r\ntrailer\n<< /Size 1 >>\n";
    {
        Source s("%PDF-1.4\n " + section + "startxref\n10\n%%EOF\n");
        s.file.CheckAndInit();
        EXPECT_EQ(s.file.fileInfo.classicSections, 1) << "10 is accepted";
    }
    {
        Source s("%PDF-1.4\n" + section + "startxref\n9\n%%EOF\n");
        EXPECT_EQ(s.file.CheckAndInit(), 1000);
        EXPECT_EQ(s.file.fileInfo.classicSections, 0) << "9 is taken as bad; the scan found it, so the chain is given up";
    }
}

TEST(XRefTail, BadNumberInTheTailLooksForALaterKeywordAndEndsAtEndOfInput) {
    // Behind the keyword of the tail stands 9; the fallback jumps ahead and
    // runs out of input, which ends the opening.
    long x = 0;
    PdfBuilder b = baseRevision(&x);
    b.raw(pad(600));
    b.startxref(9);
    Source s(b.str());
    EXPECT_THROW(s.file.CheckAndInit(), CFileError);
}

TEST(XRefTail, NoStartxrefAnywhereEndsTheOpening) {
    PdfBuilder b;
    b.object(1, kCatalog);
    b.object(2, kPages);
    b.xrefTable("/Root 1 0 R");
    Source s(b.str());
    EXPECT_THROW(s.file.CheckAndInit(), CFileError);
}

TEST(XRefChain, ClassicRevisionsNewestEntryWinsAndOldObjectsStay) {
    long x1 = 0;
    PdfBuilder b = baseRevision(&x1);
    b.startxref(x1);
    const long oldPages = b.offsetOf(2);
    b.object(2, "<< /Type /Pages /Kids [] /Count 0 /Rev 2 >>");
    b.object(3, "(new)");
    long x2 = b.xrefTable("/Root 1 0 R /Prev " + std::to_string(x1));
    b.startxref(x2);
    Source s(b.str());
    ASSERT_EQ(s.file.CheckAndInit(), 0);
    EXPECT_EQ(s.file.fileInfo.classicSections, 2);
    EXPECT_EQ(s.file.fileInfo.GetObjState(2, 0).pos, b.offsetOf(2));
    EXPECT_NE(s.file.fileInfo.GetObjState(2, 0).pos, oldPages);
    EXPECT_EQ(s.file.fileInfo.GetObjState(1, 0).kind, 1);
    EXPECT_EQ(s.file.fileInfo.GetObjState(3, 0).kind, 1);
}

TEST(XRefChain, ClassicSectionWhosePrevIsACrossReferenceStream) {
    PdfBuilder b("%PDF-1.5");
    b.objectStream(3, {{1, kCatalog}, {2, kPages}});
    long xs = b.xrefStream(4, "/Root 1 0 R");
    b.startxref(xs);
    b.object(5, "(added later)");
    long xc = b.xrefTable("/Root 1 0 R /Size 6 /Prev " + std::to_string(xs));
    b.startxref(xc);
    Source s(b.str());
    ASSERT_EQ(s.file.CheckAndInit(), 0);
    EXPECT_EQ(s.file.fileInfo.classicSections, 1);
    EXPECT_EQ(s.file.fileInfo.xrefStreams, 1);
    EXPECT_EQ(s.file.fileInfo.GetObjState(1, 0).kind, 2);
    EXPECT_EQ(s.file.fileInfo.GetObjState(1, 0).pos, 3);
    EXPECT_EQ(s.file.fileInfo.GetObjState(5, 0).kind, 1);
    EXPECT_EQ(s.file.fileInfo.size, 6) << "the newest /Size wins";
    EXPECT_EQ(s.file.catalog.pagesRef, SObj(2, 0));
    EXPECT_EQ(s.file.xrefStreamObjects.count(SObj(4, 0)), 1u);
}

TEST(XRefChain, InfoOfAClassicTrailerIsDroppedOnceAStreamWasRead) {
    // Oldest revision classic with /Info 5, newest a stream with /Info 6.
    PdfBuilder b("%PDF-1.5");
    b.object(1, kCatalog);
    b.object(2, kPages);
    b.object(5, "<< /Title (classic) >>");
    long xc = b.xrefTable("/Root 1 0 R /Info 5 0 R");
    b.startxref(xc);
    b.object(6, "<< /Title (stream) >>");
    long xs = b.xrefStream(7, "/Root 1 0 R /Info 6 0 R /Prev " + std::to_string(xc));
    b.startxref(xs);
    Source s(b.str());
    ASSERT_EQ(s.file.CheckAndInit(), 0);
    EXPECT_EQ(s.file.fileInfo.info.self.num, 6);
    EXPECT_EQ(s.file.fileInfo.info.title, "stream");
}

TEST(XRefChain, InfoOfTheOldestClassicTrailerWins) {
    long x1 = 0;
    PdfBuilder b;
    b.object(1, kCatalog);
    b.object(2, kPages);
    b.object(5, "<< /Title (old) >>");
    x1 = b.xrefTable("/Root 1 0 R /Info 5 0 R");
    b.startxref(x1);
    b.object(6, "<< /Title (new) >>");
    long x2 = b.xrefTable("/Root 1 0 R /Info 6 0 R /Prev " + std::to_string(x1));
    b.startxref(x2);
    Source s(b.str());
    ASSERT_EQ(s.file.CheckAndInit(), 0);
    EXPECT_EQ(s.file.fileInfo.info.title, "old");
}

TEST(XRefChain, PrevZeroSeeksToTheHeaderAndEndsTheWalk) {
    PdfBuilder b;
    b.object(1, kCatalog);
    b.object(2, kPages);
    long x = b.xrefTable("/Root 1 0 R /Prev 0");
    b.startxref(x);
    Source s(b.str());
    ASSERT_EQ(s.file.CheckAndInit(), 0);
    EXPECT_EQ(s.file.fileInfo.classicSections, 1);
}

TEST(XRefChain, PrevPointingToItselfEndsTheWalk) {
    PdfBuilder b;
    b.object(1, kCatalog);
    b.object(2, kPages);
    const long x = b.here();
    b.xrefTable("/Root 1 0 R /Prev " + std::to_string(x));
    b.startxref(x);
    Source s(b.str());
    ASSERT_EQ(s.file.CheckAndInit(), 0);
    EXPECT_EQ(s.file.fileInfo.classicSections, 1);
}

TEST(XRefChain, TwoSectionsPointingAtEachOtherEndAfterBoth) {
    PdfBuilder b;
    b.object(1, kCatalog);
    b.object(2, kPages);
    const long x1 = b.xrefTable("/Root 1 0 R /Prev PPPPPPPPPP");
    b.object(3, "(three)");
    const long x2 = b.xrefTable("/Root 1 0 R /Prev " + std::to_string(x1));
    b.startxref(x2);
    std::string text = b.str();
    char prev[16];
    std::snprintf(prev, sizeof prev, "%010ld", x2);
    text.replace(text.find("PPPPPPPPPP"), 10, prev);
    Source s(text);
    ASSERT_EQ(s.file.CheckAndInit(), 0);
    EXPECT_EQ(s.file.fileInfo.classicSections, 2);
    EXPECT_EQ(s.file.fileInfo.GetObjState(3, 0).kind, 1);
}

TEST(XRefChain, NewerFreeEntryWithOffsetZeroLeavesTheOlderEntry) {
    long x1 = 0;
    PdfBuilder b = baseRevision(&x1);
    b.object(3, "(three)");
    long x2 = b.xrefTable("/Root 1 0 R /Prev " + std::to_string(x1));
    b.startxref(x2);
    const long x3 = b.here();
    b.raw("xref\n3 1\n0000000000 00000 f\r\ntrailer\n<< /Size 4 /Root 1 0 R /Prev " + std::to_string(x2) + " >>\n");
    b.startxref(x3);
    Source s(b.str());
    ASSERT_EQ(s.file.CheckAndInit(), 0);
    EXPECT_EQ(s.file.fileInfo.classicSections, 3);
    SObjState st = s.file.fileInfo.GetObjState(3, 0);
    EXPECT_EQ(st.kind, 1);
    EXPECT_EQ(st.mark, 'n');
}

TEST(XRefChain, FreeEntryWithAnOffsetIsEnteredAsFree) {
    PdfBuilder b;
    b.object(1, kCatalog);
    b.object(2, kPages);
    const long x = b.here();
    b.raw("xref\n0 4\n0000000003 65535 f\r\n");
    char line[32];
    std::snprintf(line, sizeof line, "%010ld 00000 n\r\n", b.offsetOf(1));
    b.raw(line);
    std::snprintf(line, sizeof line, "%010ld 00000 n\r\n", b.offsetOf(2));
    b.raw(line);
    b.raw("0000000000 00001 f\r\ntrailer\n<< /Size 4 /Root 1 0 R >>\n");
    b.startxref(x);
    Source s(b.str());
    ASSERT_EQ(s.file.CheckAndInit(), 0);
    SObjState free0 = s.file.fileInfo.GetObjState(0, 65535);
    EXPECT_EQ(free0.kind, 0);
    EXPECT_EQ(free0.mark, 'f');
    EXPECT_EQ(free0.pos, 3);
    EXPECT_EQ(s.file.fileInfo.objTable->count(SObj(3, 1)), 0u) << "offset 0 enters nothing";
    EXPECT_EQ(std::count(s.file.fileInfo.positions.begin(), s.file.fileInfo.positions.end(), 3), 0) << "free entries are no positions";
}

TEST(XRefChain, AbsentKeyHasAZeroState) {
    Source s(pdftest::minimalPdf());
    ASSERT_EQ(s.file.CheckAndInit(), 0);
    SObjState st = s.file.fileInfo.GetObjState(SObj(42, 0));
    EXPECT_EQ(st.pos, 0);
    EXPECT_EQ(st.kind, 0);
    EXPECT_EQ(s.file.fileInfo.GetObjState(1, 1).kind, 0) << "another generation is another object";
}

TEST(XRefChain, EntriesNeedNoFixedLayout) {
    PdfBuilder b;
    b.object(1, kCatalog);
    b.object(2, kPages);
    const long x = b.here();
    b.raw("xref\n0 3\n0 65535 f\n" + std::to_string(b.offsetOf(1)) + " 0 n " + std::to_string(b.offsetOf(2)) +
          "   0\tn\ntrailer\n<</Size 3/Root 1 0 R>>\n");
    b.startxref(x);
    Source s(b.str());
    ASSERT_EQ(s.file.CheckAndInit(), 0);
    EXPECT_EQ(s.file.catalog.pagesRef, SObj(2, 0));
}

TEST(XRefRepair, StrayCommentAfterEntriesSearchesForTheTrailer) {
    PdfBuilder b;
    b.object(1, kCatalog);
    b.object(2, kPages);
    long x = b.xrefTable("/Root 1 0 R");
    std::string text = b.str();
    text.insert(text.find("trailer"), "% a note the writer left\n1 junk words\n");
    text += "startxref\n" + std::to_string(x) + "\n%%EOF\n";
    Source s(text);
    ASSERT_EQ(s.file.CheckAndInit(), 0);
    EXPECT_EQ(s.file.catalog.pagesRef, SObj(2, 0));
}

TEST(XRefRepair, CommentWordInPlaceOfASubsectionEndsTheWalkKeepingEntries) {
    PdfBuilder b;
    b.object(1, kCatalog);
    b.object(2, kPages);
    long x = b.xrefTable("/Root 1 0 R");
    std::string text = b.str();
    text.insert(text.find("trailer"), "%note\n");
    text += "startxref\n" + std::to_string(x) + "\n%%EOF\n";
    Source s(text);
    EXPECT_EQ(s.file.CheckAndInit(), 1000) << "the trailer with /Root is never read";
    EXPECT_EQ(s.file.fileInfo.GetObjState(1, 0).kind, 1) << "entries read before stay";
}

TEST(XRefRepair, CommentWithoutAnyTrailerStopsAtEndOfInput) {
    PdfBuilder b;
    b.object(1, kCatalog);
    const long x = b.here();
    b.raw("xref\n% damaged\n");
    b.startxref(x);
    Source s(b.str());
    EXPECT_EQ(s.file.CheckAndInit(), 1001) << "the search ran out of input and left the stream failed";
}

TEST(XRefRepair, TruncatedSectionKeepsWhatWasRead) {
    PdfBuilder b;
    b.object(1, kCatalog);
    b.object(2, kPages);
    const long x = b.here();
    char line[32];
    std::snprintf(line, sizeof line, "%010ld 00000 n\r\n", b.offsetOf(1));
    b.raw(std::string("xref\n0 3\n0000000000 65535 f\r\n") + line + "00000\n");
    b.startxref(x);
    Source s(b.str());
    s.file.CheckAndInit();
    EXPECT_EQ(s.file.fileInfo.GetObjState(1, 0).kind, 1);
    EXPECT_EQ(s.file.fileInfo.GetObjState(2, 0).kind, 0);
}

TEST(XRefStream, UnfilteredAndHexFilteredTablesList) {
    for (const char* filter : {"", "/AHx"}) {
        PdfBuilder b("%PDF-1.5");
        b.object(1, kCatalog);
        b.objectStream(5, {{2, kPages}, {3, "(three)"}});
        long x = b.xrefStream(6, "/Root 1 0 R", filter);
        b.startxref(x);
        Source s(b.str());
        ASSERT_EQ(s.file.CheckAndInit(), 0) << filter;
        EXPECT_EQ(s.file.fileInfo.xrefStreams, 1);
        EXPECT_EQ(s.file.fileInfo.GetObjState(1, 0).pos, b.offsetOf(1));
        SObjState three = s.file.fileInfo.GetObjState(3, 0);
        EXPECT_EQ(three.kind, 2);
        EXPECT_EQ(three.pos, 5);
        EXPECT_EQ(three.index, 1);
        EXPECT_EQ(three.mark, 0);
        EXPECT_EQ(s.file.fileInfo.self, SObj(6, 0));
        EXPECT_TRUE(s.file.fileInfo.self.aux & 4);
    }
}

TEST(XRefStream, WithoutIndexTheTableRunsFromZeroToSize) {
    PdfBuilder b("%PDF-1.5");
    b.object(1, kCatalog);
    b.object(2, kPages);
    long x = b.xrefStream(3, "/Root 1 0 R", "", "none");
    b.startxref(x);
    Source s(b.str());
    ASSERT_EQ(s.file.CheckAndInit(), 0);
    EXPECT_EQ(s.file.fileInfo.GetObjState(2, 0).pos, b.offsetOf(2));
    EXPECT_EQ(s.file.fileInfo.GetObjState(3, 0).pos, x);
}

TEST(XRefStream, GenerationIsNotPartOfAStreamKey) {
    PdfBuilder b("%PDF-1.5");
    b.object(1, kCatalog);
    b.object(2, kPages);
    b.object(4, "(gen three)", 3);
    long x = b.xrefStream(5, "/Root 1 0 R");
    b.startxref(x);
    Source s(b.str());
    ASSERT_EQ(s.file.CheckAndInit(), 0);
    EXPECT_EQ(s.file.fileInfo.GetObjState(4, 0).kind, 1);
    EXPECT_EQ(s.file.fileInfo.GetObjState(4, 0).index, 3);
    EXPECT_EQ(s.file.fileInfo.GetObjState(4, 3).kind, 0);
}

TEST(XRefStream, IndexPromisingMoreEntriesThanTheDataHoldStopsAtTheData) {
    PdfBuilder b("%PDF-1.5");
    b.object(1, kCatalog);
    b.object(2, kPages);
    long x = b.xrefStream(3, "/Root 1 0 R /Size 100000", "", "[0 100000]");
    b.startxref(x);
    Source s(b.str());
    ASSERT_EQ(s.file.CheckAndInit(), 0);
    EXPECT_EQ(s.file.fileInfo.objTable->size(), 4u);
}

TEST(XRefStream, EntryOfTypeAboveTwoLeavesItsFieldsUnread) {
    // Rows of W [1 2 1]: object 0 is of type 3, so object 1 is read from the
    // bytes of object 0's fields.
    PdfBuilder b("%PDF-1.5");
    b.object(1, kCatalog);
    const long x = b.here();
    std::string data;
    data += std::string("\x03\x00\x01\x00", 4);  // 0: type 3
    data += std::string("\x01\x00\x20\x00", 4);  // 1: type 1 at 0x20
    b.raw("9 0 obj\n<< /Type /XRef /W [1 2 1] /Size 2 /Root 1 0 R /Length 8 >>\nstream\n" + data +
          "\nendstream\nendobj\n");
    b.startxref(x);
    Source s(b.str());
    s.file.CheckAndInit();
    EXPECT_EQ(s.file.fileInfo.GetObjState(0, 0).kind, 3);
    EXPECT_EQ(s.file.fileInfo.GetObjState(0, 0).pos, 0);
    // Object 1 starts at byte 1: type 0, field 2 = 0x0100, field 3 = 0x00.
    SObjState one = s.file.fileInfo.GetObjState(1, 0);
    EXPECT_EQ(one.kind, 0);
    EXPECT_EQ(one.pos, 0x0100);
}

TEST(XRefStream, WrongTypeEndsTheWalk) {
    PdfBuilder b("%PDF-1.5");
    b.object(1, kCatalog);
    b.object(2, kPages);
    long x = b.xrefStream(3, "/Root 1 0 R");
    std::string text = b.str();
    text.replace(text.find("/Type /XRef"), 11, "/Type /XRel");
    text += "startxref\n" + std::to_string(x) + "\n%%EOF\n";
    Source s(text);
    EXPECT_EQ(s.file.CheckAndInit(), 1000);
    EXPECT_EQ(s.file.fileInfo.xrefStreams, 0);
}

TEST(XRefTidy, KeepsTheHighestGenerationAndLinksFreeNumbers) {
    CFileInfo fi;
    SObjState used;
    used.kind = 1;
    used.mark = 'n';
    used.pos = 100;
    fi.ownTable[SObj(1, 0)] = used;
    fi.ownTable[SObj(3, 0)] = used;
    fi.ownTable[SObj(3, 2)] = used;
    fi.ownTable[SObj(5, 0)] = used;
    fi.Tidy();
    EXPECT_EQ(fi.ownTable.count(SObj(3, 0)), 0u);
    EXPECT_EQ(fi.ownTable.count(SObj(3, 2)), 1u);
    // Free list: 0 -> 2 -> 4 -> 0.
    ASSERT_EQ(fi.ownTable.count(SObj(0, 65535)), 1u);
    EXPECT_EQ(fi.ownTable[SObj(0, 65535)].pos, 2);
    EXPECT_EQ(fi.ownTable[SObj(2, 65535)].pos, 4);
    EXPECT_EQ(fi.ownTable[SObj(4, 65535)].pos, 0);
    EXPECT_EQ(fi.ownTable[SObj(4, 65535)].mark, 'f');
}

TEST(XRefOracle, BuilderFilesPassThePeerChecker) {
    if (std::system("qpdf --version > /dev/null 2>&1") != 0) GTEST_SKIP() << "qpdf not installed";
    PdfBuilder classic;
    classic.object(1, kCatalog);
    classic.object(2, kPages);
    long x1 = classic.xrefTable("/Root 1 0 R");
    classic.startxref(x1);
    PdfBuilder streams("%PDF-1.5");
    streams.object(1, kCatalog);
    streams.objectStream(5, {{2, kPages}, {3, "(three)"}});
    long x2 = streams.xrefStream(6, "/Root 1 0 R");
    streams.startxref(x2);
    int n = 0;
    for (const PdfBuilder* b : {&classic, &streams}) {
        const std::string path = ::testing::TempDir() + "reader_oracle_" + std::to_string(n++) + ".pdf";
        {
            std::ofstream f(path, std::ios::binary);
            f << b->str();
        }
        const std::string cmd = "qpdf --check '" + path + "' > /dev/null 2>&1";
        EXPECT_EQ(std::system(cmd.c_str()), 0) << b->str();
        std::remove(path.c_str());
    }
}

// Subsection numbers and offsets near the top of the int range: the entries
// that would pass it are read over, the others stand, and nothing overflows.
TEST(XRefClassic, NumbersPastTheIntRangeAreNotEntered) {
    PdfBuilder b;
    const long cat = b.object(1, kCatalog);
    const long pages = b.object(2, kPages);
    const long x = b.here();
    char entry[32];
    std::string table = "xref\n0 3\n0000000000 65535 f \n";
    std::snprintf(entry, sizeof entry, "%010ld 00000 n \n", cat);
    table += entry;
    std::snprintf(entry, sizeof entry, "%010ld 00000 n \n", pages);
    table += entry;
    table += "2147483645 6\n";
    for (int i = 0; i < 5; ++i) table += "0000099999 00000 n \n";
    table += "2147483647 00000 n \n";
    table += "trailer\n<< /Size 3 /Root 1 0 R >>\n";
    b.raw(table);
    b.startxref(x);
    Source s(b.str());
    ASSERT_EQ(s.file.CheckAndInit(), 0);
    EXPECT_EQ(s.file.fileInfo.GetObjState(2147483647, 0).kind, 1);
    EXPECT_EQ(s.file.catalog.pagesRef, SObj(2, 0));
}
