// JBIG2Dec: halftone regions (ISO/IEC 14492 6.6, 7.4.5 and Annex C): the
// grey-scale image by Gray-coded bit planes, then a pattern per grid cell.
#include <cstdlib>
#include <memory>
#include <vector>

#include "jbig2/jbig2streamdec.h"

void JBIG2Dec::readHalftoneRegionSeg(uint32_t segNum, bool imm, const uint32_t* refSegs, uint32_t nRefSegs) {
    uint32_t w, h, x, y;
    unsigned segInfoFlags, flags;
    if (!readRegionInfo(&w, &h, &x, &y, &segInfoFlags) || !segInput.readUByte(&flags)) return;
    const bool mmr = flags & 1;
    const int templ = (flags >> 1) & 3;
    const bool enableSkip = (flags >> 3) & 1;
    const unsigned combOp = (flags >> 4) & 7;
    const unsigned defPixel = (flags >> 7) & 1;
    uint32_t gridW, gridH, gridXu, gridYu;
    unsigned stepX, stepY;
    if (!segInput.readULong(&gridW) || !segInput.readULong(&gridH) || !segInput.readULong(&gridXu) ||
        !segInput.readULong(&gridYu) || !segInput.readUWord(&stepX) || !segInput.readUWord(&stepY))
        return;
    const int64_t gridX = static_cast<int32_t>(gridXu), gridY = static_cast<int32_t>(gridYu);
    if (w > 0x7fffffffu || h > 0x7fffffffu || gridW > 0x7fffffffu || gridH > 0x7fffffffu) return;

    // Exactly one referred pattern dictionary.
    if (nRefSegs != 1) return;
    JBIG2Segment* seg = findSegment(refSegs[0]);
    if (!seg || seg->getType() != jbig2SegPatternDict) return;
    const JBIG2PatternDict* patternDict = static_cast<JBIG2PatternDict*>(seg);
    if (patternDict->getSize() == 0 || !patternDict->getBitmap(0)) return;
    const int patternW = patternDict->getBitmap(0)->getWidth();
    const int patternH = patternDict->getBitmap(0)->getHeight();
    uint32_t bpp = 0;
    while (bpp < 32 && (uint64_t(1) << bpp) < patternDict->getSize()) ++bpp;

    std::unique_ptr<JBIG2Bitmap> bitmap(new JBIG2Bitmap(segNum, static_cast<int>(w), static_cast<int>(h)));
    if (defPixel) bitmap->clearToOne();

    // The grey-scale values cost their memory before they are allocated.
    const uint64_t cells = static_cast<uint64_t>(gridW) * gridH;
    JBIG2DecBudget::charge(cells * sizeof(uint32_t));
    std::vector<uint32_t> grayImg(static_cast<std::size_t>(cells), 0);

    std::unique_ptr<JBIG2Bitmap> skipBitmap;
    if (enableSkip) {
        // 6.6.5.1: a cell whose pattern falls wholly outside the region is skipped.
        skipBitmap.reset(new JBIG2Bitmap(0, static_cast<int>(gridW), static_cast<int>(gridH)));
        for (uint32_t m = 0; m < gridH; ++m) {
            for (uint32_t n = 0; n < gridW; ++n) {
                const int64_t xx = (gridX + static_cast<int64_t>(m) * stepY + static_cast<int64_t>(n) * stepX) >> 8;
                const int64_t yy = (gridY + static_cast<int64_t>(m) * stepX - static_cast<int64_t>(n) * stepY) >> 8;
                if (xx + patternW <= 0 || xx >= static_cast<int64_t>(w) || yy + patternH <= 0 ||
                    yy >= static_cast<int64_t>(h))
                    skipBitmap->setPixel(n, m);
            }
        }
    }

    // Annex C: the planes from the most significant, each Gray-decoded
    // against the one above it.
    const int atx[4] = {templ <= 1 ? 3 : 2, -3, 2, -2};
    const int aty[4] = {-1, -1, -2, -2};
    if (!mmr) {
        resetGenericStats(templ, nullptr);
        arithDecoder.start();
    }
    for (int j = static_cast<int>(bpp) - 1; j >= 0; --j) {
        std::unique_ptr<JBIG2Bitmap> grayBitmap(readGenericBitmap(mmr, static_cast<int>(gridW), static_cast<int>(gridH),
                                                                  templ, false, enableSkip, skipBitmap.get(), atx, aty,
                                                                  -1));
        std::size_t i = 0;
        for (uint32_t m = 0; m < gridH; ++m) {
            for (uint32_t n = 0; n < gridW; ++n, ++i) {
                const uint32_t bit = static_cast<uint32_t>(grayBitmap->getPixel(n, m)) ^ (grayImg[i] & 1);
                grayImg[i] = (grayImg[i] << 1) | bit;
            }
        }
    }

    // 6.6.5.2: each cell's pattern at its grid position.
    std::size_t i = 0;
    const uint64_t patternCost = static_cast<uint64_t>(patternDict->getBitmap(0)->getDataSize()) + 8;
    for (uint32_t m = 0; m < gridH; ++m) {
        int64_t xx = gridX + static_cast<int64_t>(m) * stepY;
        int64_t yy = gridY + static_cast<int64_t>(m) * stepX;
        for (uint32_t n = 0; n < gridW; ++n, ++i) {
            if (!(enableSkip && skipBitmap->getPixel(n, m))) {
                JBIG2DecBudget::charge(patternCost);
                uint32_t v = grayImg[i];
                if (v >= patternDict->getSize()) v = patternDict->getSize() - 1;
                const JBIG2Bitmap* patternBitmap = patternDict->getBitmap(v);
                if (patternBitmap) bitmap->combine(patternBitmap, xx >> 8, yy >> 8, combOp);
            }
            xx += stepX;
            yy -= stepY;
        }
    }

    if (imm) {
        composeWithPage(bitmap.get(), x, y, segInfoFlags & 7);
    } else {
        segments->append(bitmap.get());
        bitmap.release();
    }
}
