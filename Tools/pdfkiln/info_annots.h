// pdfkiln info --page N: the page's annotations.
#ifndef PDFKILN_TOOL_INFO_ANNOTS_H
#define PDFKILN_TOOL_INFO_ANNOTS_H

namespace PDF_KILN {
class CPDFKilnPage;
}

// Prints the annotations of `page` (object, subtype, rectangle as the file
// has them) as a text section, or as a JSON member "annotations" followed by
// a comma.
void printPageAnnots(PDF_KILN::CPDFKilnPage& doc, int page, bool json);

#endif
