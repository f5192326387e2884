// Row registers shared by the generic and the refinement region decoders.
//
// Both decoders carry a pixel's context along the row instead of fetching
// each neighbour by position. A window register holds bytes of one row
// around the current group of eight pixels: at the group's start the pixel
// x+k (x the group's first pixel) is at bit 15-k, and the i-th pixel of the
// group sees the window shifted left by i. A window takes in the row's next
// byte once per group and reaches from x-16 to x+8 for every pixel of the
// group. The current-row register holds the pixel x-k at bit k-1, for k from
// 1 to 32 (see RowCursor).
#ifndef PDFKILN_JBIG2_ROWWINDOWS_H
#define PDFKILN_JBIG2_ROWWINDOWS_H

#include <cstdint>

#include "jbig2/imagedata.h"

namespace jbig2 {
namespace rows {

const int kWindowLeft = -16;
const int kWindowRight = 8;
const int kCurrentReach = 32;

// Byte j of a row, 0 past either end or for no row.
inline uint32_t rowByte(const unsigned char* row, uint32_t j, uint32_t stride) {
    return (row && j < stride) ? row[j] : 0u;
}

// Pixel x of a row, 0 outside [0, width) or for no row.
inline uint32_t pixelAt(const unsigned char* row, int64_t x, int64_t width) {
    if (!row || x < 0 || x >= width) return 0;
    return (row[x >> 3] >> (7 - (x & 7))) & 1u;
}

// An AT pixel of the image being decoded, at (x+dx, y+dy): taken from the
// current-row register or a window where those reach, 0 where nothing is
// decoded yet, and read by position otherwise.
struct AtPixel {
    enum Kind { kZero, kRow1, kRow2, kCurrent, kFar };
    Kind kind = kZero;
    unsigned int shift = 0;  // in its register
    unsigned int bit = 0;    // in the context
    int dx = 0, dy = 0;
    const unsigned char* row = nullptr;  // kFar: the row for this line, or none

    // `windowRows` is the number of rows above with a window (1 or 2).
    void place(int atx, int aty, unsigned int contextBit, int windowRows) {
        dx = atx;
        dy = aty;
        bit = contextBit;
        if (aty > 0 || (aty == 0 && atx >= 0)) {
            kind = kZero;  // the image starts zeroed and isn't decoded there yet
        } else if (aty == 0 && atx >= -kCurrentReach) {
            kind = kCurrent;
            shift = static_cast<unsigned int>(-atx - 1);
        } else if (aty < 0 && -aty <= windowRows && atx >= kWindowLeft && atx <= kWindowRight) {
            kind = aty == -1 ? kRow1 : kRow2;
            shift = static_cast<unsigned int>(15 - atx);
        } else {
            // Further away the row is complete: a row above, or bytes of the
            // current row that are already stored.
            kind = kFar;
        }
    }
    // The current pixel x-1 is the pixel this AT pixel reads.
    bool isLast() const { return kind == kCurrent && shift == 0; }

    void setLine(const ImageProcessor<ImageDataBits>& img, uint32_t y) {
        const int64_t ay = static_cast<int64_t>(y) + dy;
        row = (kind == kFar && ay >= 0 && ay < static_cast<int64_t>(img.getHeight()))
                  ? img.getLine(static_cast<uint32_t>(ay))
                  : nullptr;
    }

    // w1 and w2 are the windows of rows y-1 and y-2 as the pixel sees them,
    // hist the current row before x-1.
    uint32_t read(uint32_t w1, uint32_t w2, uint32_t hist, int64_t x, int64_t width) const {
        switch (kind) {
        case kRow1: return ((w1 >> shift) & 1) << bit;
        case kRow2: return ((w2 >> shift) & 1) << bit;
        case kCurrent: return ((hist >> shift) & 1) << bit;
        case kFar: return pixelAt(row, x + dx, width) << bit;
        default: return 0;
        }
    }
};

}  // namespace rows
}  // namespace jbig2

#endif
