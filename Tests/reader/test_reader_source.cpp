// Opening a source file: the header scan, the version list, the catalog and
// what a second opening keeps.
#include <gtest/gtest.h>

#include <string>

#include "pdf_builder.h"
#include "pdfkiln_sourfile.h"

using namespace PDF_KILN;
using pdftest::PdfBuilder;
using pdftest::Source;

TEST(SourceHeader, PlainFileOpensWithVersionAndCatalog) {
    Source s(pdftest::minimalPdf("%PDF-1.7"));
    EXPECT_EQ(s.file.CheckAndInit(), 0);
    EXPECT_EQ(s.file.version, "%PDF-1.7");
    EXPECT_EQ(s.file.headerOffset, 0);
    EXPECT_EQ(s.file.catalog.type, "/Catalog");
    EXPECT_EQ(s.file.catalog.pagesRef, SObj(2, 0));
    EXPECT_EQ(s.file.curPageNo, 0);
}

TEST(SourceHeader, JunkLineBeforeHeaderShiftsEveryOffset) {
    const std::string junk = "garbage that some mailer added\n";
    Source s(pdftest::minimalPdf("%PDF-1.4", junk));
    ASSERT_EQ(s.file.CheckAndInit(), 0);
    EXPECT_EQ(s.file.headerOffset, static_cast<int>(junk.size()));
    SObjState st = s.file.fileInfo.GetObjState(1, 0);
    EXPECT_EQ(st.kind, 1);
    EXPECT_EQ(s.stream.str().substr(st.pos, 7), "1 0 obj") << "offsets are taken relative to the header";
    EXPECT_EQ(s.file.catalog.pagesRef, SObj(2, 0));
}

TEST(SourceHeader, HeaderBehindOtherTextOnItsLine) {
    Source s(pdftest::minimalPdf("%PDF-1.5", "xyz "));
    ASSERT_EQ(s.file.CheckAndInit(), 0);
    EXPECT_EQ(s.file.headerOffset, 4);
    EXPECT_EQ(s.file.version, "%PDF-1.5");
    EXPECT_EQ(s.file.catalog.type, "/Catalog");
}

TEST(SourceHeader, UnknownVersionOrNoHeaderIsRefused) {
    Source v19(pdftest::minimalPdf("%PDF-1.9"));
    EXPECT_EQ(v19.file.CheckAndInit(), 1000);
    Source v21(pdftest::minimalPdf("%PDF-2.1"));
    EXPECT_EQ(v21.file.CheckAndInit(), 1000);
    Source none("no header here\nat all\n");
    EXPECT_EQ(none.file.CheckAndInit(), 1000);
    Source empty("");
    EXPECT_EQ(empty.file.CheckAndInit(), 1000);
}

TEST(SourceHeader, VersionIsTheFirstListedTextFoundInTheLine) {
    // "%PDF-1.10" holds "%PDF-1.1", which is tested before anything later.
    Source s(pdftest::minimalPdf("%PDF-1.10"));
    ASSERT_EQ(s.file.CheckAndInit(), 0);
    EXPECT_EQ(s.file.version, "%PDF-1.1");
}

TEST(SourceHeader, OverlongJunkLineEndsTheScan) {
    std::string junk(3000, 'j');
    junk += "\n";
    Source s(pdftest::minimalPdf("%PDF-1.4", junk));
    EXPECT_EQ(s.file.CheckAndInit(), 1000);
}

TEST(SourceHeader, CarriageReturnOnlyFileIsOneLongLineThatStillHasItsHeader) {
    // Old Mac-style files end lines with CR alone: the whole file is one line,
    // much longer than the line buffer, and its header stands at its start.
    PdfBuilder b("%PDF-1.3");
    b.object(1, "<< /Type /Catalog /Pages 2 0 R >>");
    b.object(2, "<< /Type /Pages /Kids [] /Count 0 /Pad (" + std::string(1500, 'p') + ") >>");
    long x = b.xrefTable("/Root 1 0 R");
    b.startxref(x);
    std::string text = b.str();
    for (char& c : text)
        if (c == '\n') c = '\r';
    // The classic entries end in CR LF; with LF turned into CR they are CR CR,
    // still 20 bytes, still white space.
    Source s(text);
    ASSERT_EQ(s.file.CheckAndInit(), 0);
    EXPECT_EQ(s.file.version, "%PDF-1.3");
    EXPECT_EQ(s.file.catalog.pagesRef, SObj(2, 0));
}

TEST(SourceFile, MissingRootGivesBadFile) {
    PdfBuilder b;
    b.object(1, "<< /Type /Catalog /Pages 2 0 R >>");
    long x = b.xrefTable("");
    b.startxref(x);
    Source s(b.str());
    EXPECT_EQ(s.file.CheckAndInit(), 1000);
    EXPECT_EQ(s.file.fileInfo.rootRef.num, 0);
}

TEST(SourceFile, RootPointingNowhereGivesBadFile) {
    PdfBuilder b;
    b.object(1, "<< /Type /Catalog /Pages 2 0 R >>");
    long x = b.xrefTable("/Root 7 0 R");
    b.startxref(x);
    Source s(b.str());
    EXPECT_EQ(s.file.CheckAndInit(), 1000);
}

TEST(SourceFile, SecondOpeningRebuildsTheSameState) {
    Source s(pdftest::minimalPdf());
    ASSERT_EQ(s.file.CheckAndInit(), 0);
    const auto table = *s.file.fileInfo.objTable;
    const auto positions = s.file.fileInfo.positions;
    ASSERT_EQ(s.file.CheckAndInit(), 0);
    EXPECT_EQ(s.file.fileInfo.objTable->size(), table.size());
    EXPECT_EQ(s.file.fileInfo.positions, positions);
    EXPECT_EQ(s.file.catalog.pagesRef, SObj(2, 0));
    EXPECT_TRUE(s.file.pages.empty());
}

TEST(SourceFile, FindStrDoesNotThrowAtEnd) {
    Source s("a b c");
    EXPECT_TRUE(s.file.FindStr("b"));
    EXPECT_FALSE(s.file.FindStr("zz"));
}

TEST(SourceFile, DefaultsOfTheInfoValues) {
    Source s("");
    const auto& info = s.file.fileInfo.info;
    EXPECT_EQ(info.title, "PDF_KILN");
    EXPECT_EQ(info.subject, "Pdf-Merge(Split)-Kiln");
    EXPECT_EQ(info.keywords, "PDF<KILN>");
    EXPECT_EQ(info.creator, "PDF_KILN");
    EXPECT_EQ(info.producer, "Zarnoth.Co.Ltd");
    EXPECT_EQ(info.trapped, "Unknown");
    EXPECT_FALSE(info.author.empty());
    EXPECT_EQ(s.file.fileInfo.encrypt.versionText, "%PDF-1.3");
}

TEST(SourceFile, CatalogInsideAnObjectStream) {
    PdfBuilder b("%PDF-1.5");
    b.objectStream(3, {{1, "<< /Type /Catalog /Pages 2 0 R /Version /1.6 >>"}, {2, "<< /Type /Pages /Kids [] /Count 0 >>"}});
    long x = b.xrefStream(4, "/Root 1 0 R");
    b.startxref(x);
    Source s(b.str());
    ASSERT_EQ(s.file.CheckAndInit(), 0);
    EXPECT_EQ(s.file.catalog.type, "/Catalog");
    EXPECT_EQ(s.file.catalog.pagesRef, SObj(2, 0));
    EXPECT_EQ(s.file.catalog.versionName, "/1.6");
}

// What the catalog accepts, and what makes opening fail: the keys the
// reader needs must be references, /Version is held to its exact form, and
// an unknown key's value must balance.
TEST(SourceCatalog, ReadOrFailOpening) {
    const char* const pages = "<< /Type /Pages /Kids [] /Count 0 >>";
    const struct {
        const char* catalog;
        const char* extra;  // body of object 5, or null
        int code;
        int minor;          // /Version read, when the file opens
        bool compressed;    // catalog stored in an object stream
    } cases[] = {
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
        // Values that hold the reader's own keys are skipped whole.
        {"<< /Type /Catalog /Foo [ << /Pages 9 0 R >> (x) ] /Pages 2 0 R /Version /1.4 >>", nullptr, 0, 4, false},
        {"<< /Type /Catalog /AcroForm << /Fields [] /DA (x) >> /Pages 2 0 R /Version /1.5 >>", nullptr, 0, 5,
         false},
    };
    for (const auto& c : cases) {
        PdfBuilder b("%PDF-1.5");
        long x;
        if (c.compressed) {
            b.objectStream(3, {{1, c.catalog}, {2, pages}});
            x = b.xrefStream(4, "/Root 1 0 R");
        } else {
            b.object(1, c.catalog);
            b.object(2, pages);
            if (c.extra) b.object(5, c.extra);
            x = b.xrefTable("/Root 1 0 R");
        }
        b.startxref(x);
        Source s(b.str());
        EXPECT_EQ(s.file.CheckAndInit(), c.code) << c.catalog;
        if (c.code == 0) {
            EXPECT_EQ(s.file.catalog.minorVersion, c.minor) << c.catalog;
            EXPECT_EQ(s.file.catalog.pagesRef, SObj(2, 0)) << c.catalog;
        }
    }
}
