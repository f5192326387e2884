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

JBIG2Bitmap* JBIG2Dec::readGenericRefinementRegion(int w, int h, int templ, bool tpgrOn, const JBIG2Bitmap* ref,
                                                   int refDX, int refDY, const int* atx, const int* aty) {
    // Refining costs its pixels (a unit per 4: each reads thirteen) beyond the raster.
    JBIG2DecBudget::charge((static_cast<uint64_t>(w) * static_cast<uint64_t>(h) >> 2) + static_cast<uint64_t>(h) + 1);
    std::unique_ptr<JBIG2Bitmap> bitmap(new JBIG2Bitmap(0, w, h));
    JBIG2Bitmap* bm = bitmap.get();
    JArithmeticDecoderStats* stats = &refinementRegionStats;
    // The typical-prediction context: the reference pixel itself, alone.
    const uint32_t ltpContext = templ ? 0x080 : 0x100;
    int ltp = 0;
    for (int y = 0; y < h; ++y) {
        if (tpgrOn) ltp ^= arithDecoder.decodeBit(ltpContext, stats);
        const int64_t ry = static_cast<int64_t>(y) - refDY;
        for (int x = 0; x < w; ++x) {
            const int64_t rx = static_cast<int64_t>(x) - refDX;
            if (ltp) {
                const int v = ref->getPixel(rx, ry);
                bool same = true;
                for (int j = -1; j <= 1 && same; ++j)
                    for (int i = -1; i <= 1 && same; ++i)
                        if (ref->getPixel(rx + i, ry + j) != v) same = false;
                if (same) {
                    if (v) bm->setPixel(x, y);
                    continue;
                }
            }
            uint32_t cx;
            if (templ == 0) {
                cx = static_cast<uint32_t>(bm->getPixel(x - 1, y)) | (bm->getPixel(x + 1, y - 1) << 1) |
                     (bm->getPixel(x, y - 1) << 2) | (bm->getPixel(x + atx[0], y + aty[0]) << 3) |
                     (ref->getPixel(rx + 1, ry + 1) << 4) | (ref->getPixel(rx, ry + 1) << 5) |
                     (ref->getPixel(rx - 1, ry + 1) << 6) | (ref->getPixel(rx + 1, ry) << 7) |
                     (ref->getPixel(rx, ry) << 8) | (ref->getPixel(rx - 1, ry) << 9) |
                     (ref->getPixel(rx + 1, ry - 1) << 10) | (ref->getPixel(rx, ry - 1) << 11) |
                     (ref->getPixel(rx + atx[1], ry + aty[1]) << 12);
            } else {
                cx = static_cast<uint32_t>(bm->getPixel(x - 1, y)) | (bm->getPixel(x + 1, y - 1) << 1) |
                     (bm->getPixel(x, y - 1) << 2) | (bm->getPixel(x - 1, y - 1) << 3) |
                     (ref->getPixel(rx + 1, ry + 1) << 4) | (ref->getPixel(rx, ry + 1) << 5) |
                     (ref->getPixel(rx + 1, ry) << 6) | (ref->getPixel(rx, ry) << 7) |
                     (ref->getPixel(rx - 1, ry) << 8) | (ref->getPixel(rx, ry - 1) << 9);
            }
            if (arithDecoder.decodeBit(cx, stats)) bm->setPixel(x, y);
        }
    }
    return bitmap.release();
}
