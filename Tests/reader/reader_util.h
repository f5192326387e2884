// What the reader suites share: the bodies of a catalog and an empty page
// tree, classic table rows written by hand, and a source opened once.
#ifndef PDFKILN_TESTS_READER_READER_UTIL_H
#define PDFKILN_TESTS_READER_READER_UTIL_H

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "pdf_builder.h"
#include "pdfkiln_sourfile.h"

namespace rtest {

using pdftest::PdfBuilder;
using pdftest::Source;

const char* const kCatalog = "<< /Type /Catalog /Pages 2 0 R >>";
const char* const kPages = "<< /Type /Pages /Kids [] /Count 0 >>";

// A builder that holds catalog 1 and an empty page tree 2.
inline PdfBuilder catalogFile(const std::string& header = "%PDF-1.4", const std::string& junk = "") {
    PdfBuilder b(header, junk);
    b.catalog();
    return b;
}

// One 20-byte classic cross-reference row.
inline std::string row(long offset, int gen = 0, char mark = 'n') {
    char line[32];
    std::snprintf(line, sizeof line, "%010ld %05d %c\r\n", offset, gen, mark);
    return line;
}

// Ends the file with a classic table (or a cross-reference stream object
// `streamNum`) and its startxref; returns the whole text.
inline std::string withTable(PdfBuilder& b, const std::string& trailer = "/Root 1 0 R") {
    b.startxref(b.xrefTable(trailer));
    return b.str();
}
inline std::string withStream(PdfBuilder& b, int streamNum, const std::string& dict = "/Root 1 0 R") {
    b.startxref(b.xrefStream(streamNum, dict));
    return b.str();
}

const int kAnyRc = -1;

// Appends `section`, written by hand, and a startxref pointing at it.
inline std::string withRaw(PdfBuilder& b, const std::string& section) {
    const long at = b.here();
    b.raw(section);
    b.startxref(at);
    return b.str();
}

// A source over `pdf`, opened once; `rc` is what the opening returned, checked
// against `want` unless that is kAnyRc.
struct Opened : Source {
    explicit Opened(const std::string& pdf, int want = 0) : Source(pdf), rc(file.CheckAndInit()) {
        if (want != kAnyRc) { EXPECT_EQ(rc, want) << "what the opening returned"; }
    }
    PDF_KILN::CFileInfo& fi() { return file.fileInfo; }
    PDF_KILN::SObjState st(int num, int gen = 0) { return file.fileInfo.GetObjState(num, gen); }
    int rc;
};

}  // namespace rtest

#endif
