// Helpers of the page tests: small documents built in the test, opened
// through the facade.
#ifndef PDFKILN_TESTS_FACADE_UTIL_H
#define PDFKILN_TESTS_FACADE_UTIL_H

#include <map>
#include <memory>
#include <sstream>
#include <string>

#include "pdf_builder.h"
#include "pdfkiln_page.h"
#include "pdfkiln_sourfile.h"

namespace pagestest {

// A document of the given object bodies; bodies that start with "stream:"
// are written as "<dict>" "stream:" "<data>" stream objects. Without objects 1
// and 2 of their own, 1 is the catalog and 2 a page tree of the one page 3.
inline std::string buildPdf(std::map<int, std::string> objects, const std::string& trailer = "/Root 1 0 R") {
    objects.emplace(1, "<< /Type /Catalog /Pages 2 0 R >>");
    objects.emplace(2, "<< /Type /Pages /Kids [3 0 R] /Count 1 >>");
    pdftest::PdfBuilder b;
    for (const auto& o : objects) {
        const std::size_t cut = o.second.find("stream:");
        if (cut != std::string::npos) b.stream(o.first, o.second.substr(0, cut), o.second.substr(cut + 7));
        else b.object(o.first, o.second);
    }
    const long x = b.xrefTable(trailer);
    b.startxref(x);
    return b.str();
}

// A facade opened on an in-memory document.
struct Doc {
    explicit Doc(const std::string& pdf) : in(new std::stringstream(pdf)), page(new PDF_KILN::CPDFKilnPage(*in, "")) {
        rc = page->init();
    }
    Doc(Doc&&) = default;
    PDF_KILN::CSourFile& src() const { return *page->getSource(); }
    std::unique_ptr<std::stringstream> in;
    std::unique_ptr<PDF_KILN::CPDFKilnPage> page;
    int rc = -1;
};

}  // namespace pagestest

#endif
