// Helpers of the writer tests: open a small document and render one object.
#ifndef PDFKILN_TESTS_WRITER_UTIL_H
#define PDFKILN_TESTS_WRITER_UTIL_H

#include <string>

#include "pdf_builder.h"
#include "pdfkiln_destfile.h"
#include "pdfkiln_sourfile.h"

namespace writertest {

// An opened in-memory document (catalog 1, pages 2) plus whatever the test adds.
struct Doc {
    explicit Doc(const std::string& pdf) : src(pdf) { rc = src.file.CheckAndInit(); }
    pdftest::Source src;
    int rc = -1;
    PDF_KILN::CSourFile& file() { return src.file; }
};

// Builds a document from (number, body) objects behind a catalog and pages node.
inline std::string document(const std::vector<std::pair<int, std::string>>& objs) {
    pdftest::PdfBuilder b;
    b.catalog();
    for (const auto& o : objs) b.object(o.first, o.second);
    b.startxref(b.xrefTable("/Size 40 /Root 1 0 R"));
    return b.str();
}

// Renders object `num` into `sink` (keep-numbers unless the sink renumbers).
inline bool render(Doc& d, int num, PDF_KILN::CDestFile& sink) {
    PDF_KILN::CObj obj(PDF_KILN::SObj(num, 0));
    d.file().clear();
    return obj.LocalObj(sink, d.file());
}

inline std::string render(Doc& d, int num) {
    PDF_KILN::CDestFile sink;
    render(d, num, sink);
    return sink;
}

}  // namespace writertest

#endif
