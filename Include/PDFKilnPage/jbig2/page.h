// Page information and the page image.
#ifndef PDFKILN_JBIG2_PAGE_H
#define PDFKILN_JBIG2_PAGE_H

#include <cstdint>

#include "datareader.h"
#include "imagedata.h"

namespace jbig2 {

class Page {
public:
    Page();
    ~Page();
    Page(const Page&) = delete;
    Page& operator=(const Page&) = delete;

    // Reads a page information segment and allocates the page image.
    void decode(StepDataReader& reader);

    unsigned int pageNumber;  // unused
    uint32_t width;
    uint32_t height;
    uint32_t xResolution;
    uint32_t yResolution;
    unsigned char lossless;
    unsigned char refinements;
    unsigned char defaultPixel;
    unsigned char reserved;
    unsigned char auxiliary;
    unsigned char striped;
    uint32_t maxStripe;  // 15 bits
    int defaultOp;       // from flag bits 4 and 5, kept as the code stands; unused
    ImageProcessor<ImageDataBits>* image;
};

}  // namespace jbig2

#endif
