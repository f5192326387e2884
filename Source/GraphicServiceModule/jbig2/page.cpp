// Page information segment, type 48, and the page image.
#include "jbig2/page.h"

#include "jbig2/segment.h"

namespace jbig2 {

Page::Page()
    : pageNumber(0), width(0), height(0xFFFFFFFFu), xResolution(0), yResolution(0), lossless(0),
      refinements(0), defaultPixel(0), reserved(0), auxiliary(0), striped(0), maxStripe(0), defaultOp(0),
      image(nullptr) {}

Page::~Page() { delete image; }

void Page::decode(StepDataReader& reader) {
    width = reader.getInt();
    height = reader.getInt();
    xResolution = reader.getInt();
    yResolution = reader.getInt();
    const unsigned char flags = reader.getByte();
    lossless = flags & 1;
    refinements = (flags >> 1) & 1;
    defaultPixel = (flags >> 2) & 1;
    reserved = (flags >> 4) & 1;
    auxiliary = (flags >> 5) & 1;
    // Bits 4 and 5, not 3 and 4 as the standard lays them out: kept as the
    // behaviour. No path of this decoder uses it, since regions carry their own.
    defaultOp = getPageOp((flags >> 4) & 3);
    const uint16_t striping = reader.getShort();
    striped = (striping >> 15) & 1;
    maxStripe = striping & 0x7FFF;

    ImageProcessor<ImageDataBits>* img = new ImageProcessor<ImageDataBits>();
    try {
        if (!striped) {
            if (height != 0xFFFFFFFFu) {
                img->create(width, height);
            } else {
                // Unknown height without striping: an empty image.
                striped = 1;
                img->create(width, 0);
            }
        } else {
            img->create(width, maxStripe);
        }
        img->fill(defaultPixel ? 0xFF : 0x00);
    } catch (...) {
        delete img;
        throw;
    }
    delete image;
    image = img;
}

}  // namespace jbig2
