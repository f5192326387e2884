// Object positions: where an object's bytes begin and end.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "pdf_builder.h"
#include "pdfkiln_cobjectposition.h"
#include "pdfkiln_sourfile.h"

using namespace PDF_KILN;
using pdftest::PdfBuilder;
using pdftest::Source;

TEST(ObjectPosition, ObjectsEndAtTheNextKnownPositionAndTheLastAtStartxref) {
    PdfBuilder b;
    b.catalog();
    long x = b.xrefTable("/Root 1 0 R");
    b.startxref(x);
    Source s(b.str());
    ASSERT_EQ(s.file.CheckAndInit(), 0);
    CObjectPosition p(&s.file);
    EXPECT_EQ(p.getBeginPosition(SObj(1, 0)), b.offsetOf(1));
    EXPECT_EQ(p.getEndPosition(SObj(1, 0)), b.offsetOf(2));
    EXPECT_EQ(p.getLength(SObj(1, 0)), b.offsetOf(2) - b.offsetOf(1));
    const std::string text = b.str();
    const long behindStartxref = static_cast<long>(text.rfind("startxref") + 9);
    EXPECT_EQ(p.getEndPosition(SObj(2, 0)), behindStartxref);
    EXPECT_EQ(p.getObjType(SObj(2, 0)), 1);
}

TEST(ObjectPosition, AbsentKeyIsUnknownAndItsLengthIsZero) {
    Source s(pdftest::minimalPdf());
    ASSERT_EQ(s.file.CheckAndInit(), 0);
    CObjectPosition p(&s.file);
    EXPECT_EQ(p.getBeginPosition(SObj(7, 0)), CObjectPosition::unknownPosition);
    EXPECT_EQ(p.getEndPosition(SObj(7, 0)), CObjectPosition::unknownPosition);
    EXPECT_EQ(p.getLength(SObj(7, 0)), 0);
    EXPECT_EQ(p.getObjType(SObj(7, 0)), 0);
    EXPECT_EQ(CObjectPosition::unknownPosition, 0x7fffffffffffffffLL);
}

TEST(ObjectPosition, FreeEntryHasABeginButNoEnd) {
    PdfBuilder b;
    b.catalog();
    const long x = b.here();
    char line[64];
    std::string xref = "xref\n0 4\n0000000000 65535 f\r\n";
    std::snprintf(line, sizeof line, "%010ld 00000 n\r\n%010ld 00000 n\r\n", b.offsetOf(1), b.offsetOf(2));
    xref += line;
    xref += "0000000017 00001 f\r\n";
    b.raw(xref + "trailer\n<< /Size 4 /Root 1 0 R >>\n");
    b.startxref(x);
    Source s(b.str());
    ASSERT_EQ(s.file.CheckAndInit(), 0);
    CObjectPosition p(&s.file);
    EXPECT_EQ(p.getBeginPosition(SObj(3, 1)), 17);
    EXPECT_EQ(p.getEndPosition(SObj(3, 1)), CObjectPosition::unknownPosition);
    EXPECT_EQ(p.getObjType(SObj(3, 1)), 0);
}

TEST(ObjectPosition, TwoObjectsAtOneOffsetCountAsOnePosition) {
    PdfBuilder b;
    b.catalog();
    const long x = b.here();
    char line[96];
    std::snprintf(line, sizeof line, "%010ld 00000 n\r\n%010ld 00000 n\r\n%010ld 00000 n\r\n", b.offsetOf(1),
                  b.offsetOf(2), b.offsetOf(1));
    b.raw(std::string("xref\n0 4\n0000000000 65535 f\r\n") + line + "trailer\n<< /Size 4 /Root 1 0 R >>\n");
    b.startxref(x);
    Source s(b.str());
    ASSERT_EQ(s.file.CheckAndInit(), 0);
    CObjectPosition p(&s.file);
    EXPECT_EQ(p.getEndPosition(SObj(1, 0)), b.offsetOf(2));
    EXPECT_EQ(p.getEndPosition(SObj(3, 0)), b.offsetOf(2));
}

TEST(ObjectPosition, CompressedObjectBeginsAtItsContainerNumber) {
    PdfBuilder b("%PDF-1.5");
    b.object(1, "<< /Type /Catalog /Pages 2 0 R >>");
    b.objectStream(5, {{2, "<< /Type /Pages /Kids [] /Count 0 >>"}});
    long x = b.xrefStream(6, "/Root 1 0 R");
    b.startxref(x);
    Source s(b.str());
    ASSERT_EQ(s.file.CheckAndInit(), 0);
    CObjectPosition p(&s.file);
    EXPECT_EQ(p.getObjType(SObj(2, 0)), 2);
    EXPECT_EQ(p.getBeginPosition(SObj(2, 0)), 5);
    // Entries of a stream table are positions too, so object 1 ends where the
    // object stream begins.
    EXPECT_EQ(p.getEndPosition(SObj(1, 0)), b.offsetOf(5));
    EXPECT_EQ(p.getEndPosition(SObj(6, 0)), static_cast<long>(b.str().rfind("startxref") + 9));
}

TEST(ObjectPosition, OffsetsCountFromTheHeader) {
    const std::string junk = "junk line\n";
    PdfBuilder b("%PDF-1.4", junk);
    b.catalog();
    long x = b.xrefTable("/Root 1 0 R");
    b.startxref(x);
    Source s(b.str());
    ASSERT_EQ(s.file.CheckAndInit(), 0);
    CObjectPosition p(&s.file);
    EXPECT_EQ(p.getBeginPosition(SObj(1, 0)), b.offsetOf(1) + static_cast<long>(junk.size()));
    EXPECT_EQ(p.getEndPosition(SObj(1, 0)), b.offsetOf(2) + static_cast<long>(junk.size()));
}
