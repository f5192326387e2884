// Assembles small PDF files with correct offsets; a test damages one by a left-out call, raw text or a wrong value.
#ifndef PDFKILN_TESTS_READER_PDF_BUILDER_H
#define PDFKILN_TESTS_READER_PDF_BUILDER_H

#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "pdfkiln_sourfile.h"

namespace pdftest {

class PdfBuilder {
public:
    // `junk` goes before the header line; all offsets count from the header.
    explicit PdfBuilder(const std::string& header = "%PDF-1.4", const std::string& junk = "");

    // "num gen obj\n<body>\nendobj\n"; returns its offset.
    long object(int num, const std::string& body, int gen = 0);
    // "<< <dict> /Length L >>" and the data; L is the data size unless `lengthValue` (any text) is given.
    long stream(int num, const std::string& dict, const std::string& data, const std::string& lengthValue = "");
    // An object stream of `objs`, compressed entries of the next cross-reference stream; `filter` is "" or "/AHx".
    long objectStream(int num, const std::vector<std::pair<int, std::string>>& objs,
                      const std::string& filter = "", const std::string& lengthValue = "");
    void raw(const std::string& s);
    // Catalog 1 and an empty page tree 2.
    void catalog() {
        object(1, "<< /Type /Catalog /Pages 2 0 R >>");
        object(2, "<< /Type /Pages /Kids [] /Count 0 >>");
    }
    // The decoded data of an object stream holding `objs`, as objectStream writes it.
    static std::string objectStreamData(const std::vector<std::pair<int, std::string>>& objs, int* first = nullptr);

    // Classic section of the entries since the last section and "trailer\n<< /Size n <trailer> >>\n" (no /Size if
    // `trailer` has one). Returns the offset of "xref".
    long xrefTable(const std::string& trailer);
    // Cross-reference stream `num` over the same entries and its own; `index` replaces the computed /Index ("none":
    // left out). Returns its offset.
    long xrefStream(int num, const std::string& dict, const std::string& filter = "",
                    const std::string& index = "");
    // "startxref\n<value>\n%%EOF\n".
    void startxref(long value);
    void startxref(const std::string& value);

    long here() const { return static_cast<long>(text_.size()) - base_; }
    long headerOffset() const { return base_; }
    long offsetOf(int num) const;
    const std::string& str() const { return text_; }

private:
    struct Entry {
        int type;  // 0 free, 1 in use, 2 compressed
        long f2;
        int f3;
    };
    // The pending entries (with the free head in the first section) in runs of consecutive numbers.
    std::vector<std::pair<int, std::vector<Entry>>> takeSections();
    std::string text_;
    long base_ = 0;
    bool firstSection_ = true;
    int maxNum_ = 0;
    std::map<std::pair<int, int>, Entry> pending_;
    std::map<int, long> offsets_;
};

std::string hexEncode(const std::string& data);

// The smallest valid document: catalog 1, an empty page tree 2, classic table.
std::string minimalPdf(const std::string& header = "%PDF-1.4", const std::string& junk = "");

// A document of the given bodies ("<dict> stream:<data>" is a stream); 1 and 2 default to catalog and tree of page 3.
std::string buildPdf(std::map<int, std::string> objects, const std::string& trailer = "/Root 1 0 R",
                     const std::string& header = "%PDF-1.4");

// A CSourFile over an in-memory copy of `pdf`.
struct Source {
    explicit Source(const std::string& pdf) : stream(pdf), file(stream) {}
    std::stringstream stream;
    PDF_KILN::CSourFile file;
};

// A source opened by the reader alone; rc is what CheckAndInit returned.
struct Opened : Source {
    explicit Opened(const std::string& pdf) : Source(pdf), rc(file.CheckAndInit()) {}
    int rc;
};

}  // namespace pdftest

#endif
