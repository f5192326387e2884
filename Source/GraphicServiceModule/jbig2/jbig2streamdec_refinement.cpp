// JBIG2Dec: generic refinement regions (ISO/IEC 14492 6.3 and 7.4.7), with
// both templates and typical prediction.
#include <memory>

#include "jbig2/jbig2streamdec.h"

void JBIG2Dec::readGenericRefinementRegionSeg(uint32_t segNum, bool imm, const uint32_t* refSegs, uint32_t nRefSegs) {
    uint32_t w, h, x, y;
    unsigned segInfoFlags, flags;
    if (!readRegionInfo(&w, &h, &x, &y, &segInfoFlags) || !segInput.readUByte(&flags)) return;
    const int templ = flags & 1;
    const bool tpgrOn = (flags >> 1) & 1;
    int atx[2] = {0, 0}, aty[2] = {0, 0};
    if (templ == 0)
        for (int i = 0; i < 2; ++i)
            if (!segInput.readByte(&atx[i]) || !segInput.readByte(&aty[i])) return;
    if (w > 0x7fffffffu || h > 0x7fffffffu) return;
    if (nRefSegs > 1) return;

    // The reference: the one referred region's bitmap, or, with none, the
    // part of the page under this region (7.4.7.5).
    std::unique_ptr<JBIG2Bitmap> pageSlice;
    const JBIG2Bitmap* refBitmap = nullptr;
    if (nRefSegs == 1) {
        JBIG2Segment* seg = findSegment(refSegs[0]);
        if (!seg || seg->getType() != jbig2SegBitmap) return;
        refBitmap = static_cast<JBIG2Bitmap*>(seg);
    } else {
        if (!pageBitmap) return;
        pageSlice.reset(pageBitmap->getSlice(x, y, static_cast<int>(w), static_cast<int>(h)));
        refBitmap = pageSlice.get();
    }
    resetRefinementStats(templ, nullptr);
    arithDecoder.start();
    std::unique_ptr<JBIG2Bitmap> bitmap(
        readGenericRefinementRegion(static_cast<int>(w), static_cast<int>(h), templ, tpgrOn, refBitmap, 0, 0, atx, aty));
    // A referred intermediate region is used up by its refinement.
    if (nRefSegs == 1) discardSegment(refSegs[0]);
    if (imm) {
        // The refined part replaces the page's own pixels when it refined
        // them; else it is composed by the region's operator.
        composeWithPage(bitmap.get(), x, y, nRefSegs == 0 ? 4 : (segInfoFlags & 7));
    } else {
        bitmap->setSegNum(segNum);
        segments->append(bitmap.get());
        bitmap.release();
    }
}

namespace {
inline uint32_t pxr(const unsigned char* row, int64_t x, int w) {
    return (row && x >= 0 && x < w) ? static_cast<uint32_t>((row[x >> 3] >> (7 - (x & 7))) & 1) : 0u;
}
}  // namespace

// 6.3.5: each pixel's context from the row above and the pixel to the left in
// the region, and a 3x3 neighbourhood of the reference at (x - refDX,
// y - refDY); the rows are carried in 3-pixel registers that move with x. The
// bit order of the context is this decoder's own (the typical-prediction
// context below is in the same order).
JBIG2Bitmap* JBIG2Dec::readGenericRefinementRegion(int w, int h, int templ, bool tpgrOn, const JBIG2Bitmap* ref,
                                                   int refDX, int refDY, const int* atx, const int* aty) {
    // Refining costs its pixels (a unit per 4: each reads thirteen) beyond the raster.
    JBIG2DecBudget::charge((static_cast<uint64_t>(w) * static_cast<uint64_t>(h) >> 2) + static_cast<uint64_t>(h) + 1);
    std::unique_ptr<JBIG2Bitmap> bitmap(new JBIG2Bitmap(0, w, h));
    JBIG2Bitmap* bm = bitmap.get();
    JArithmeticDecoderStats* stats = &refinementRegionStats;
    // The typical-prediction context: the reference pixel itself, alone.
    const uint32_t ltpContext = templ ? 0x080 : 0x100;
    // The AT pixels at their nominal places (-1, -1) come from the registers.
    const bool nominal0 = templ == 0 && atx[0] == -1 && aty[0] == -1;
    const bool nominal1 = templ == 0 && atx[1] == -1 && aty[1] == -1;
    const int rw = ref->getWidth(), rh = ref->getHeight();
    auto refRow = [&](int64_t ry) -> const unsigned char* {
        return (ry >= 0 && ry < rh) ? ref->getRow(static_cast<int>(ry)) : nullptr;
    };
    int ltp = 0;
    for (int y = 0; y < h; ++y) {
        if (tpgrOn) ltp ^= arithDecoder.decodeBit(ltpContext, stats);
        const int64_t ry = static_cast<int64_t>(y) - refDY;
        const unsigned char* rm = refRow(ry - 1);
        const unsigned char* r0 = refRow(ry);
        const unsigned char* rp = refRow(ry + 1);
        const unsigned char* cp = y > 0 ? bm->getRow(y - 1) : nullptr;
        unsigned char* cc = bm->getRow(y);
        const int64_t rx0 = -static_cast<int64_t>(refDX);
        // Registers of (rx-1, rx, rx+1) and (x-1, x, x+1), most significant first.
        uint32_t wm = (pxr(rm, rx0 - 1, rw) << 1) | pxr(rm, rx0, rw);
        uint32_t w0 = (pxr(r0, rx0 - 1, rw) << 1) | pxr(r0, rx0, rw);
        uint32_t wp = (pxr(rp, rx0 - 1, rw) << 1) | pxr(rp, rx0, rw);
        uint32_t cw = pxr(cp, 0, w);
        uint32_t c0 = 0;
        for (int x = 0; x < w; ++x) {
            const int64_t rx = rx0 + x;
            wm = ((wm << 1) | pxr(rm, rx + 1, rw)) & 7;
            w0 = ((w0 << 1) | pxr(r0, rx + 1, rw)) & 7;
            wp = ((wp << 1) | pxr(rp, rx + 1, rw)) & 7;
            cw = ((cw << 1) | pxr(cp, x + 1, w)) & 7;
            if (ltp) {
                // Typical prediction: a uniform neighbourhood is copied.
                if ((wm | w0 | wp) == 0) {
                    c0 = 0;
                    continue;
                }
                if ((wm & w0 & wp) == 7) {
                    cc[x >> 3] |= static_cast<unsigned char>(0x80 >> (x & 7));
                    c0 = 1;
                    continue;
                }
            }
            uint32_t cx;
            if (templ == 0) {
                const uint32_t a1 = nominal0 ? (cw >> 2) & 1 : static_cast<uint32_t>(bm->getPixel(x + atx[0], y + aty[0]));
                const uint32_t a2 = nominal1 ? (wm >> 2) & 1 : static_cast<uint32_t>(ref->getPixel(rx + atx[1], ry + aty[1]));
                cx = c0 | ((cw & 1) << 1) | (((cw >> 1) & 1) << 2) | (a1 << 3) | ((wp & 1) << 4) |
                     (((wp >> 1) & 1) << 5) | (((wp >> 2) & 1) << 6) | ((w0 & 1) << 7) | (((w0 >> 1) & 1) << 8) |
                     (((w0 >> 2) & 1) << 9) | ((wm & 1) << 10) | (((wm >> 1) & 1) << 11) | (a2 << 12);
            } else {
                cx = c0 | ((cw & 1) << 1) | (((cw >> 1) & 1) << 2) | (((cw >> 2) & 1) << 3) | ((wp & 1) << 4) |
                     (((wp >> 1) & 1) << 5) | ((w0 & 1) << 6) | (((w0 >> 1) & 1) << 7) | (((w0 >> 2) & 1) << 8) |
                     (((wm >> 1) & 1) << 9);
            }
            c0 = static_cast<uint32_t>(arithDecoder.decodeBit(cx, stats));
            if (c0) cc[x >> 3] |= static_cast<unsigned char>(0x80 >> (x & 7));
        }
    }
    return bitmap.release();
}
