// JBIG2Dec: pattern dictionaries (ISO/IEC 14492 6.7 and 7.4.4): one
// collective bitmap, cut into GRAYMAX+1 patterns.
#include <memory>

#include "jbig2/jbig2streamdec.h"

void JBIG2Dec::readPatternDictSeg(uint32_t segNum) {
    unsigned flags, patternW, patternH;
    uint32_t grayMax;
    if (!segInput.readUByte(&flags) || !segInput.readUByte(&patternW) || !segInput.readUByte(&patternH) ||
        !segInput.readULong(&grayMax))
        return;
    const bool mmr = flags & 1;
    const int templ = (flags >> 1) & 3;
    const uint64_t count = static_cast<uint64_t>(grayMax) + 1;
    const uint64_t collW = count * patternW;
    if (collW > 0x7fffffffu) return;
    // Every pattern costs its slot before any is made.
    JBIG2DecBudget::charge(count * 8);
    const int atx[4] = {-static_cast<int>(patternW), -3, 2, -2};
    const int aty[4] = {0, -1, -2, -2};
    if (!mmr) {
        resetGenericStats(templ, nullptr);
        arithDecoder.start();
    }
    std::unique_ptr<JBIG2Bitmap> bitmap(readGenericBitmap(mmr, static_cast<int>(collW), static_cast<int>(patternH),
                                                          templ, false, false, nullptr, atx, aty,
                                                          static_cast<int64_t>(segInput.remaining())));
    std::unique_ptr<JBIG2PatternDict> dict(new JBIG2PatternDict(segNum, static_cast<uint32_t>(count)));
    int64_t x = 0;
    for (uint64_t i = 0; i < count; ++i) {
        dict->setBitmap(static_cast<uint32_t>(i),
                        bitmap->getSlice(x, 0, static_cast<int>(patternW), static_cast<int>(patternH)));
        x += patternW;
    }
    segments->append(dict.get());
    dict.release();
}
