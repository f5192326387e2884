// The cross-reference chain: finding "startxref", classic sections and
// trailers, cross-reference streams, revisions, the repairs of damaged tails
// and sections, and the object positions drawn from the tables.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <tuple>

#include "pdfkiln_cobjectposition.h"
#include "reader_util.h"
#include "test_util.h"

using namespace PDF_KILN;
using namespace rtest;

namespace {

// A classic file of objects 1 and 2 whose table is at `*xrefAt`.
PdfBuilder baseRevision(long* xrefAt) {
    PdfBuilder b = catalogFile();
    *xrefAt = b.xrefTable("/Root 1 0 R");
    return b;
}

std::string pad(std::size_t n) { return "%" + std::string(n, '-') + "\n"; }

long behindStartxref(const std::string& text) { return static_cast<long>(text.rfind("startxref") + 9); }

}  // namespace

TEST(XRefTail, StartxrefOfTheTailOrOfTheWholeFileScan) {
    const std::string small = pdftest::minimalPdf();
    ASSERT_LT(small.size(), 300u);
    Opened s(small);
    EXPECT_EQ(s.fi().classicSections, 1);
    EXPECT_EQ(s.st(2).kind, 1);
    Opened outside(small + pad(400));
    EXPECT_EQ(outside.file.catalog.pagesRef, SObj(2, 0));
    // The last startxref of the tail counts.
    long x = 0;
    PdfBuilder b = baseRevision(&x);
    b.raw(pad(200));
    b.startxref(99999);
    b.startxref(x);
    Opened last(b.str());
    EXPECT_EQ(last.file.catalog.type, "/Catalog");
}

TEST(XRefTail, OffsetsOutOfRangeOrNoStartxref) {
    // 2^63 - 1 and more must not overflow with the header's position added.
    for (const char* huge : {"9223372036854775807", "99999999999999999999999"})
        EXPECT_EQ(Opened(pdftest::minimalPdf() + "startxref\n" + huge + "\n%%EOF\n", kAnyRc).fi().classicSections, 0);
    // A section right behind the 9-byte header: 10 is a table position, 9 is not
    // (the scan found it, so the chain is given up).
    const std::string section = "xref\n0 1\n0000000000 65535 f\r\ntrailer\n<< /Size 1 >>\n";
    EXPECT_EQ(Opened("%PDF-1.4\n " + section + "startxref\n10\n%%EOF\n", kAnyRc).fi().classicSections, 1);
    Opened nine("%PDF-1.4\n" + section + "startxref\n9\n%%EOF\n", 1000);
    EXPECT_EQ(nine.fi().classicSections, 0);
    // Running out of input ends the opening: behind a bad number in the tail
    // (the fallback looks for a later keyword), or without any startxref.
    long x = 0;
    PdfBuilder b = baseRevision(&x);
    b.raw(pad(600));
    b.startxref(9);
    EXPECT_THROW(Source(b.str()).file.CheckAndInit(), CFileError);
    PdfBuilder none = catalogFile();
    none.xrefTable("/Root 1 0 R");
    EXPECT_THROW(Source(none.str()).file.CheckAndInit(), CFileError);
}

TEST(XRefChain, ClassicRevisionsNewestEntryWinsAndOldObjectsStay) {
    long x1 = 0;
    PdfBuilder b = baseRevision(&x1);
    b.startxref(x1);
    const long oldPages = b.offsetOf(2);
    b.object(2, "<< /Type /Pages /Kids [] /Count 0 /Rev 2 >>");
    b.object(3, "(new)");
    Opened s(withTable(b, "/Root 1 0 R /Prev " + std::to_string(x1)));
    EXPECT_EQ(s.fi().classicSections, 2);
    EXPECT_EQ(s.st(2).pos, b.offsetOf(2));
    EXPECT_NE(s.st(2).pos, oldPages);
    EXPECT_EQ(s.st(1).kind, 1);
    EXPECT_EQ(s.st(3).kind, 1);
}

TEST(XRefChain, ClassicSectionWhosePrevIsACrossReferenceStream) {
    PdfBuilder b("%PDF-1.5");
    b.objectStream(3, {{1, kCatalog}, {2, kPages}});
    long xs = b.xrefStream(4, "/Root 1 0 R");
    b.startxref(xs);
    b.object(5, "(added later)");
    Opened s(withTable(b, "/Root 1 0 R /Size 6 /Prev " + std::to_string(xs)));
    EXPECT_EQ(s.fi().classicSections, 1);
    EXPECT_EQ(s.fi().xrefStreams, 1);
    EXPECT_EQ(s.st(1).kind, 2);
    EXPECT_EQ(s.st(1).pos, 3);
    EXPECT_EQ(s.st(5).kind, 1);
    EXPECT_EQ(s.fi().size, 6) << "the newest /Size wins";
    EXPECT_EQ(s.file.catalog.pagesRef, SObj(2, 0));
    EXPECT_EQ(s.file.xrefStreamObjects.count(SObj(4, 0)), 1u);
}

TEST(XRefChain, InfoOfTheOldestClassicTrailerWinsUntilAStreamWasRead) {
    for (bool newestIsStream : {false, true}) {
        PdfBuilder b = catalogFile(newestIsStream ? "%PDF-1.5" : "%PDF-1.4");
        b.object(5, "<< /Title (old) >>");
        long x1 = b.xrefTable("/Root 1 0 R /Info 5 0 R");
        b.startxref(x1);
        b.object(6, "<< /Title (new) >>");
        const std::string trailer = "/Root 1 0 R /Info 6 0 R /Prev " + std::to_string(x1);
        Opened s(newestIsStream ? withStream(b, 7, trailer) : withTable(b, trailer));
        EXPECT_EQ(s.fi().info.self.num, newestIsStream ? 6 : 5);
        EXPECT_EQ(s.fi().info.title, newestIsStream ? "new" : "old");
    }
}

TEST(XRefChain, PrevToTheHeaderToItselfOrInACycleEndsTheWalk) {
    PdfBuilder zero = catalogFile();
    Opened s(withTable(zero, "/Root 1 0 R /Prev 0"));
    EXPECT_EQ(s.fi().classicSections, 1);

    PdfBuilder self = catalogFile();
    const long x = self.here();
    self.xrefTable("/Root 1 0 R /Prev " + std::to_string(x));
    self.startxref(x);
    Opened t(self.str());
    EXPECT_EQ(t.fi().classicSections, 1);

    PdfBuilder two = catalogFile();
    const long x1 = two.xrefTable("/Root 1 0 R /Prev PPPPPPPPPP");
    two.object(3, "(three)");
    const long x2 = two.xrefTable("/Root 1 0 R /Prev " + std::to_string(x1));
    two.startxref(x2);
    std::string text = two.str();
    text.replace(text.find("PPPPPPPPPP"), 10, row(x2).substr(0, 10));
    Opened u(text);
    EXPECT_EQ(u.fi().classicSections, 2);
    EXPECT_EQ(u.st(3).kind, 1);
}

TEST(XRefChain, FreeEntries) {
    // A newer free entry with offset 0 leaves the older entry.
    long x1 = 0;
    PdfBuilder b = baseRevision(&x1);
    b.object(3, "(three)");
    long x2 = b.xrefTable("/Root 1 0 R /Prev " + std::to_string(x1));
    b.startxref(x2);
    Opened s(withRaw(b, "xref\n3 1\n" + row(0, 0, 'f') + "trailer\n<< /Size 4 /Root 1 0 R /Prev " +
                            std::to_string(x2) + " >>\n"));
    EXPECT_EQ(s.fi().classicSections, 3);
    EXPECT_EQ(s.st(3).kind, 1);
    EXPECT_EQ(s.st(3).mark, 'n');

    // A free entry with an offset is entered as free, and is no position.
    PdfBuilder c = catalogFile();
    Opened t(withRaw(c, "xref\n0 4\n" + row(3, 65535, 'f') + row(c.offsetOf(1)) + row(c.offsetOf(2)) +
                            row(0, 1, 'f') + "trailer\n<< /Size 4 /Root 1 0 R >>\n"));
    EXPECT_EQ(std::make_tuple(t.st(0, 65535).kind, t.st(0, 65535).mark, t.st(0, 65535).pos), std::make_tuple(0, 'f', 3));
    EXPECT_EQ(t.fi().objTable->count(SObj(3, 1)), 0u) << "offset 0 enters nothing";
    EXPECT_EQ(std::count(t.fi().positions.begin(), t.fi().positions.end(), 3), 0);
    // An absent key, or another generation, has a zero state.
    EXPECT_EQ(t.fi().GetObjState(SObj(42, 0)).pos, 0);
    EXPECT_EQ(t.st(42).kind, 0);
    EXPECT_EQ(t.st(1, 1).kind, 0);
}

TEST(XRefChain, RowsOfAnyLayoutOrRange) {
    PdfBuilder b = catalogFile();
    Opened s(withRaw(b, "xref\n0 3\n0 65535 f\n" + std::to_string(b.offsetOf(1)) + " 0 n " +
                            std::to_string(b.offsetOf(2)) + "   0\tn\ntrailer\n<</Size 3/Root 1 0 R>>\n"));
    EXPECT_EQ(s.file.catalog.pagesRef, SObj(2, 0));
    // Subsection numbers and offsets near the top of the int range: the entries
    // that would pass it are read over, the others stand, and nothing overflows.
    PdfBuilder c = catalogFile();
    std::string table = "xref\n0 3\n" + row(0, 65535, 'f') + row(c.offsetOf(1)) + row(c.offsetOf(2)) + "2147483645 6\n";
    for (int i = 0; i < 5; ++i) table += row(99999);
    Opened t(withRaw(c, table + "2147483647 00000 n \ntrailer\n<< /Size 3 /Root 1 0 R >>\n"));
    EXPECT_EQ(t.st(2147483647).kind, 1);
    EXPECT_EQ(t.file.catalog.pagesRef, SObj(2, 0));
}

TEST(XRefRepair, CommentsAmongTheEntries) {
    // A stray comment after the entries: the trailer is searched for. A comment
    // word in place of a subsection ends the walk keeping the entries, and the
    // trailer with /Root is never read.
    for (const char* note : {"% a note the writer left\n1 junk words\n", "%note\n"}) {
        PdfBuilder b = catalogFile();
        long x = b.xrefTable("/Root 1 0 R");
        std::string text = b.str();
        text.insert(text.find("trailer"), note);
        const bool stray = note[1] == ' ';
        Opened s(text + "startxref\n" + std::to_string(x) + "\n%%EOF\n", stray ? 0 : 1000);
        EXPECT_EQ(s.st(1).kind, 1);
        if (stray) { EXPECT_EQ(s.file.catalog.pagesRef, SObj(2, 0)); }
    }
}

TEST(XRefRepair, DamagedOrTruncatedSections) {
    PdfBuilder b;
    b.object(1, kCatalog);
    // The search ran out of input and left the stream failed.
    EXPECT_EQ(Opened(withRaw(b, "xref\n% damaged\n"), kAnyRc).rc, 1001);

    PdfBuilder t = catalogFile();
    Opened s(withRaw(t, "xref\n0 3\n" + row(0, 65535, 'f') + row(t.offsetOf(1)) + "00000\n"), kAnyRc);
    EXPECT_EQ(s.st(1).kind, 1);
    EXPECT_EQ(s.st(2).kind, 0);
}

TEST(XRefStream, UnfilteredAndHexFilteredTablesList) {
    for (const char* filter : {"", "/AHx"}) {
        PdfBuilder b("%PDF-1.5");
        b.object(1, kCatalog);
        b.objectStream(5, {{2, kPages}, {3, "(three)"}});
        b.startxref(b.xrefStream(6, "/Root 1 0 R", filter));
        Opened s(b.str());
        EXPECT_EQ(s.fi().xrefStreams, 1);
        EXPECT_EQ(s.st(1).pos, b.offsetOf(1));
        EXPECT_EQ(std::make_tuple(s.st(3).kind, s.st(3).pos, s.st(3).index, s.st(3).mark),
                  std::make_tuple(2, 5, 1, 0));
        EXPECT_EQ(s.fi().self, SObj(6, 0));
        EXPECT_TRUE(s.fi().self.aux & 4);
    }
}

TEST(XRefStream, IndexAbsentOrPromisingMoreThanTheData) {
    // Without /Index the table runs from zero to /Size.
    PdfBuilder b = catalogFile("%PDF-1.5");
    long x = b.xrefStream(3, "/Root 1 0 R", "", "none");
    b.startxref(x);
    Opened s(b.str());
    EXPECT_EQ(s.st(2).pos, b.offsetOf(2));
    EXPECT_EQ(s.st(3).pos, x);

    PdfBuilder big = catalogFile("%PDF-1.5");
    big.startxref(big.xrefStream(3, "/Root 1 0 R /Size 100000", "", "[0 100000]"));
    Opened t(big.str());
    EXPECT_EQ(t.fi().objTable->size(), 4u);
}

TEST(XRefStream, GenerationsAndTypesAboveTwo) {
    PdfBuilder b = catalogFile("%PDF-1.5");
    b.object(4, "(gen three)", 3);
    Opened s(withStream(b, 5));
    EXPECT_EQ(s.st(4).kind, 1);
    EXPECT_EQ(s.st(4).index, 3);
    EXPECT_EQ(s.st(4, 3).kind, 0);
    // Rows of W [1 2 1]: object 0 is of type 3, so object 1 is read from byte 1
    // on: type 0, field 2 = 0x0100, field 3 = 0x00.
    PdfBuilder c("%PDF-1.5");
    c.object(1, kCatalog);
    Opened t(withRaw(c, "9 0 obj\n<< /Type /XRef /W [1 2 1] /Size 2 /Root 1 0 R /Length 8 >>\nstream\n" +
                            std::string("\x03\x00\x01\x00\x01\x00\x20\x00", 8) + "\nendstream\nendobj\n"),
             kAnyRc);
    EXPECT_EQ(t.st(0).kind, 3);
    EXPECT_EQ(t.st(0).pos, 0);
    EXPECT_EQ(t.st(1).kind, 0);
    EXPECT_EQ(t.st(1).pos, 0x0100);
}

TEST(XRefStream, WrongTypeEndsTheWalk) {
    PdfBuilder b = catalogFile("%PDF-1.5");
    long x = b.xrefStream(3, "/Root 1 0 R");
    std::string text = b.str();
    text.replace(text.find("/Type /XRef"), 11, "/Type /XRel");
    Opened s(text + "startxref\n" + std::to_string(x) + "\n%%EOF\n", 1000);
    EXPECT_EQ(s.fi().xrefStreams, 0);
}

TEST(XRefTidy, KeepsTheHighestGenerationAndLinksFreeNumbers) {
    CFileInfo fi;
    const SObjState used{100, 0, 0, 1, 'n'};  // pos, index, flag, kind, mark
    for (const SObj& key : {SObj(1, 0), SObj(3, 0), SObj(3, 2), SObj(5, 0)}) fi.ownTable[key] = used;
    fi.Tidy();
    EXPECT_EQ(fi.ownTable.count(SObj(3, 0)), 0u);
    EXPECT_EQ(fi.ownTable.count(SObj(3, 2)), 1u);
    // Free list: 0 -> 2 -> 4 -> 0.
    ASSERT_EQ(fi.ownTable.count(SObj(0, 65535)), 1u);
    auto& t = fi.ownTable;
    EXPECT_EQ(std::make_tuple(t[SObj(0, 65535)].pos, t[SObj(2, 65535)].pos, t[SObj(4, 65535)].pos, t[SObj(4, 65535)].mark),
              std::make_tuple(2, 4, 0, 'f'));
}

TEST(XRefOracle, BuilderFilesPassThePeerChecker) {
    if (testutil::run("qpdf --version") != 0) GTEST_SKIP() << "qpdf not installed";
    PdfBuilder classic = catalogFile();
    PdfBuilder streams("%PDF-1.5");
    streams.object(1, kCatalog);
    streams.objectStream(5, {{2, kPages}, {3, "(three)"}});
    testutil::TempDir dir;
    for (const std::string& pdf : {withTable(classic), withStream(streams, 6)}) {
        testutil::writeFile(dir.file("oracle.pdf"), pdf);
        EXPECT_EQ(testutil::run("qpdf --check " + testutil::quote(dir.file("oracle.pdf"))), 0) << pdf;
    }
}

// ---- object positions: where an object's bytes begin and end --------------------------

TEST(ObjectPosition, ObjectsEndAtTheNextKnownPositionAndTheLastAtStartxref) {
    for (const std::string junk : {"", "junk line\n"}) {
        PdfBuilder b = catalogFile("%PDF-1.4", junk);
        Opened s(withTable(b));
        CObjectPosition p(&s.file);
        // Offsets count from the file's start, the header's position added.
        const long shift = static_cast<long>(junk.size());
        EXPECT_EQ(p.getBeginPosition(SObj(1, 0)), b.offsetOf(1) + shift);
        EXPECT_EQ(p.getEndPosition(SObj(1, 0)), b.offsetOf(2) + shift);
        EXPECT_EQ(p.getLength(SObj(1, 0)), b.offsetOf(2) - b.offsetOf(1));
        EXPECT_EQ(p.getEndPosition(SObj(2, 0)), behindStartxref(b.str()));
        EXPECT_EQ(p.getObjType(SObj(2, 0)), 1);
        // An absent key is unknown, its length zero.
        const SObj absent(7, 0);
        EXPECT_EQ(std::make_tuple(p.getBeginPosition(absent), p.getEndPosition(absent), p.getLength(absent),
                                  p.getObjType(absent)),
                  std::make_tuple(CObjectPosition::unknownPosition, CObjectPosition::unknownPosition, 0, 0));
    }
    EXPECT_EQ(CObjectPosition::unknownPosition, 0x7fffffffffffffffLL);
}

TEST(ObjectPosition, FreeSharedAndCompressedEntries) {
    // Object 3 is free with an offset; object 4 shares object 1's offset.
    PdfBuilder b = catalogFile();
    Opened s(withRaw(b, "xref\n0 5\n" + row(0, 65535, 'f') + row(b.offsetOf(1)) + row(b.offsetOf(2)) +
                            row(17, 1, 'f') + row(b.offsetOf(1)) + "trailer\n<< /Size 5 /Root 1 0 R >>\n"));
    CObjectPosition p(&s.file);
    EXPECT_EQ(p.getBeginPosition(SObj(3, 1)), 17);
    EXPECT_EQ(p.getEndPosition(SObj(3, 1)), CObjectPosition::unknownPosition);
    EXPECT_EQ(p.getObjType(SObj(3, 1)), 0);
    EXPECT_EQ(p.getEndPosition(SObj(1, 0)), b.offsetOf(2));
    EXPECT_EQ(p.getEndPosition(SObj(4, 0)), b.offsetOf(2));
    PdfBuilder c("%PDF-1.5");
    c.object(1, kCatalog);
    c.objectStream(5, {{2, kPages}});
    Opened t(withStream(c, 6));
    CObjectPosition q(&t.file);
    EXPECT_EQ(q.getObjType(SObj(2, 0)), 2);
    EXPECT_EQ(q.getBeginPosition(SObj(2, 0)), 5);
    // Entries of a stream table are positions too.
    EXPECT_EQ(q.getEndPosition(SObj(1, 0)), c.offsetOf(5));
    EXPECT_EQ(q.getEndPosition(SObj(6, 0)), behindStartxref(c.str()));
}
