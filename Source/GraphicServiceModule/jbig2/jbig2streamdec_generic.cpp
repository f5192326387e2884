// JBIG2Dec: generic regions (ISO/IEC 14492 6.2 and 7.4.6), arithmetic with
// the four templates and typical prediction, or MMR.
#include <memory>
#include <vector>

#include "jbig2/jbig2streamdec.h"

namespace {

inline int px(const unsigned char* row, int64_t x, int w) {
    return (row && x >= 0 && x < w) ? (row[x >> 3] >> (7 - (x & 7))) & 1 : 0;
}

inline void fillRun(unsigned char* row, int from, int to) {
    for (int x = from; x < to; ++x) row[x >> 3] |= static_cast<unsigned char>(0x80 >> (x & 7));
}

// The typical-prediction contexts (Figures 8 to 11 of ISO/IEC 14492) in this
// decoder's order of bits: the rows from the top, each from the left, the
// AT pixels last.
const uint32_t kLtpContext[4] = {0x3953, 0x079a, 0x0e3, 0x18b};

}  // namespace

void JBIG2Dec::readGenericRegionSeg(uint32_t segNum, bool imm, bool unknownLength) {
    uint32_t w, h, x, y;
    unsigned segInfoFlags, flags;
    if (!readRegionInfo(&w, &h, &x, &y, &segInfoFlags) || !segInput.readUByte(&flags)) return;
    const bool mmr = flags & 1;
    const int templ = (flags >> 1) & 3;
    const bool tpgdOn = (flags >> 3) & 1;
    int atx[4] = {0, 0, 0, 0}, aty[4] = {0, 0, 0, 0};
    if (!mmr) {
        const int n = templ == 0 ? 4 : 1;
        for (int i = 0; i < n; ++i)
            if (!segInput.readByte(&atx[i]) || !segInput.readByte(&aty[i])) return;
    }
    std::size_t dataLen = segInput.remaining();
    if (unknownLength) {
        // The data ends with the 2-byte end marker and the row count.
        if (dataLen < 6) return;
        const unsigned char* tail = segInput.here() + dataLen - 4;
        const uint32_t rows = (static_cast<uint32_t>(tail[0]) << 24) | (static_cast<uint32_t>(tail[1]) << 16) |
                              (static_cast<uint32_t>(tail[2]) << 8) | tail[3];
        if (rows < h) h = rows;
        dataLen -= 6;
    }
    if (w > 0x7fffffffu || h > 0x7fffffffu) return;
    if (!mmr) {
        resetGenericStats(templ, nullptr);
        arithDecoder.start();
    }
    std::unique_ptr<JBIG2Bitmap> bitmap(readGenericBitmap(mmr, static_cast<int>(w), static_cast<int>(h), templ, tpgdOn,
                                                          false, nullptr, atx, aty, static_cast<int64_t>(dataLen)));
    if (imm) {
        composeWithPage(bitmap.get(), x, y, segInfoFlags & 7);
    } else {
        bitmap->setSegNum(segNum);
        segments->append(bitmap.get());
        bitmap.release();
    }
}

JBIG2Bitmap* JBIG2Dec::readGenericBitmap(bool mmr, int w, int h, int templ, bool tpgdOn, bool useSkip,
                                         const JBIG2Bitmap* skip, const int* atx, const int* aty,
                                         int64_t mmrDataLength) {
    // Decoding costs its pixels (a unit per 8) beyond the raster itself.
    JBIG2DecBudget::charge((static_cast<uint64_t>(w) * static_cast<uint64_t>(h) >> 3) + static_cast<uint64_t>(h) + 1);
    if (mmr) return readMMRBitmap(w, h, mmrDataLength);
    std::unique_ptr<JBIG2Bitmap> bitmap(new JBIG2Bitmap(0, w, h));
    JBIG2Bitmap* bm = bitmap.get();
    JArithmeticDecoderStats* stats = &genericRegionStats;
    templ &= 3;
    const bool nominalAT = templ == 0 && atx[0] == 3 && aty[0] == -1 && atx[1] == -3 && aty[1] == -1 &&
                           atx[2] == 2 && aty[2] == -2 && atx[3] == -2 && aty[3] == -2;
    int ltp = 0;
    for (int y = 0; y < h; ++y) {
        if (tpgdOn) {
            ltp ^= arithDecoder.decodeBit(kLtpContext[templ], stats);
            if (ltp) {
                if (y > 0) bm->duplicateRow(y, y - 1);
                continue;
            }
        }
        const unsigned char* r2 = y >= 2 ? bm->getRow(y - 2) : nullptr;
        const unsigned char* r1 = y >= 1 ? bm->getRow(y - 1) : nullptr;
        unsigned char* r0 = bm->getRow(y);
        uint32_t c2, c1, c0 = 0;
        switch (templ) {
        case 0:
            if (nominalAT) {
                // The AT pixels at their nominal places come from wider row
                // registers: row y-2 from x-2 to x+2, row y-1 from x-3 to x+3.
                uint32_t w2 = static_cast<uint32_t>((px(r2, 0, w) << 1) | px(r2, 1, w));
                uint32_t w1 = static_cast<uint32_t>((px(r1, 0, w) << 2) | (px(r1, 1, w) << 1) | px(r1, 2, w));
                for (int x = 0; x < w; ++x) {
                    w2 = ((w2 << 1) | static_cast<uint32_t>(px(r2, x + 2, w))) & 0x1f;
                    w1 = ((w1 << 1) | static_cast<uint32_t>(px(r1, x + 3, w))) & 0x7f;
                    int bit = 0;
                    if (!(useSkip && skip->getPixel(x, y))) {
                        const uint32_t cx = (((w2 >> 1) & 7) << 13) | (((w1 >> 1) & 0x1f) << 8) | (c0 << 4) |
                                            ((w1 & 1) << 3) | (((w1 >> 6) & 1) << 2) | ((w2 & 1) << 1) |
                                            ((w2 >> 4) & 1);
                        bit = arithDecoder.decodeBit(cx, stats);
                        if (bit) r0[x >> 3] |= static_cast<unsigned char>(0x80 >> (x & 7));
                    }
                    c0 = ((c0 << 1) | static_cast<uint32_t>(bit)) & 0xf;
                }
                break;
            }
            c2 = static_cast<uint32_t>(px(r2, 0, w));
            c1 = static_cast<uint32_t>((px(r1, 0, w) << 1) | px(r1, 1, w));
            for (int x = 0; x < w; ++x) {
                c2 = ((c2 << 1) | static_cast<uint32_t>(px(r2, x + 1, w))) & 7;
                c1 = ((c1 << 1) | static_cast<uint32_t>(px(r1, x + 2, w))) & 0x1f;
                int bit = 0;
                if (!(useSkip && skip->getPixel(x, y))) {
                    const uint32_t cx = (c2 << 13) | (c1 << 8) | (c0 << 4) |
                                        (static_cast<uint32_t>(bm->getPixel(x + atx[0], y + aty[0])) << 3) |
                                        (static_cast<uint32_t>(bm->getPixel(x + atx[1], y + aty[1])) << 2) |
                                        (static_cast<uint32_t>(bm->getPixel(x + atx[2], y + aty[2])) << 1) |
                                        static_cast<uint32_t>(bm->getPixel(x + atx[3], y + aty[3]));
                    bit = arithDecoder.decodeBit(cx, stats);
                    if (bit) r0[x >> 3] |= static_cast<unsigned char>(0x80 >> (x & 7));
                }
                c0 = ((c0 << 1) | static_cast<uint32_t>(bit)) & 0xf;
            }
            break;
        case 1:
            c2 = static_cast<uint32_t>((px(r2, 0, w) << 1) | px(r2, 1, w));
            c1 = static_cast<uint32_t>((px(r1, 0, w) << 1) | px(r1, 1, w));
            for (int x = 0; x < w; ++x) {
                c2 = ((c2 << 1) | static_cast<uint32_t>(px(r2, x + 2, w))) & 0xf;
                c1 = ((c1 << 1) | static_cast<uint32_t>(px(r1, x + 2, w))) & 0x1f;
                int bit = 0;
                if (!(useSkip && skip->getPixel(x, y))) {
                    const uint32_t cx = (c2 << 9) | (c1 << 4) | (c0 << 1) |
                                        static_cast<uint32_t>(bm->getPixel(x + atx[0], y + aty[0]));
                    bit = arithDecoder.decodeBit(cx, stats);
                    if (bit) r0[x >> 3] |= static_cast<unsigned char>(0x80 >> (x & 7));
                }
                c0 = ((c0 << 1) | static_cast<uint32_t>(bit)) & 0x7;
            }
            break;
        case 2:
            c2 = static_cast<uint32_t>(px(r2, 0, w));
            c1 = static_cast<uint32_t>(px(r1, 0, w));
            for (int x = 0; x < w; ++x) {
                c2 = ((c2 << 1) | static_cast<uint32_t>(px(r2, x + 1, w))) & 7;
                c1 = ((c1 << 1) | static_cast<uint32_t>(px(r1, x + 1, w))) & 0xf;
                int bit = 0;
                if (!(useSkip && skip->getPixel(x, y))) {
                    const uint32_t cx = (c2 << 7) | (c1 << 3) | (c0 << 1) |
                                        static_cast<uint32_t>(bm->getPixel(x + atx[0], y + aty[0]));
                    bit = arithDecoder.decodeBit(cx, stats);
                    if (bit) r0[x >> 3] |= static_cast<unsigned char>(0x80 >> (x & 7));
                }
                c0 = ((c0 << 1) | static_cast<uint32_t>(bit)) & 0x3;
            }
            break;
        default:
            c1 = static_cast<uint32_t>(px(r1, 0, w));
            for (int x = 0; x < w; ++x) {
                c1 = ((c1 << 1) | static_cast<uint32_t>(px(r1, x + 1, w))) & 0x1f;
                int bit = 0;
                if (!(useSkip && skip->getPixel(x, y))) {
                    const uint32_t cx =
                        (c1 << 5) | (c0 << 1) | static_cast<uint32_t>(bm->getPixel(x + atx[0], y + aty[0]));
                    bit = arithDecoder.decodeBit(cx, stats);
                    if (bit) r0[x >> 3] |= static_cast<unsigned char>(0x80 >> (x & 7));
                }
                c0 = ((c0 << 1) | static_cast<uint32_t>(bit)) & 0xf;
            }
            break;
        }
    }
    return bitmap.release();
}

// MMR (6.2.6): each row by the two-dimensional codes of T.6 against the row
// above (an all-white row above the first). A row ends at its width, at the
// end of the data or at a code that isn't one; its rest stays white.
JBIG2Bitmap* JBIG2Dec::readMMRBitmap(int w, int h, int64_t mmrDataLength) {
    std::unique_ptr<JBIG2Bitmap> bitmap(new JBIG2Bitmap(0, w, h));
    const std::size_t avail = segInput.remaining();
    const bool lengthKnown = mmrDataLength >= 0;
    mmrDecoder.setInput(&segInput, lengthKnown && static_cast<uint64_t>(mmrDataLength) < avail
                                       ? static_cast<std::size_t>(mmrDataLength)
                                       : avail);
    // Changing elements of the row above (ref) and of this row (cur), each
    // closed by two entries of w. They grow with the codes read, so the data
    // bounds them, not the width.
    std::vector<int> ref(2, w), cur;
    for (int y = 0; y < h; ++y) {
        unsigned char* row = bitmap->getRow(y);
        cur.clear();
        int a0 = -1;  // before the first pixel
        int color = 0;
        std::size_t bi = 0;
        // b1: the first change on the row above, right of a0, to the colour
        // opposite a0's (even entries turn black, odd ones white).
        auto findB1 = [&]() -> std::size_t {
            while (bi > 0 && ref[bi - 1] > a0) --bi;
            while (bi < ref.size() - 2 && (ref[bi] <= a0 || static_cast<int>(bi & 1) != color)) ++bi;
            return bi;
        };
        auto addChange = [&](int at) {
            if (!cur.empty() && at < cur.back()) at = cur.back();
            cur.push_back(at);
        };
        bool rowEnded = false;
        for (int guard = 0; a0 < w && !rowEnded && guard < 4 * w + 64; ++guard) {
            const int start = a0 < 0 ? 0 : a0;
            const int code = mmrDecoder.get2DCode();
            switch (code) {
            case JBIG2MMRDecoder::twoDimPass: {
                const std::size_t b1 = findB1();
                int b2 = b1 + 1 < ref.size() ? ref[b1 + 1] : w;
                if (b2 > w) b2 = w;
                if (b2 < start) b2 = start;
                if (color) fillRun(row, start, b2);
                a0 = b2;
                break;
            }
            case JBIG2MMRDecoder::twoDimHoriz: {
                int64_t runs[2] = {0, 0};
                for (int k = 0; k < 2 && !rowEnded; ++k) {
                    const bool black = (color ^ k) != 0;
                    for (;;) {
                        const int code3 = black ? mmrDecoder.getBlackCode() : mmrDecoder.getWhiteCode();
                        if (code3 < 0) {
                            rowEnded = true;
                            break;
                        }
                        runs[k] += code3;
                        if (runs[k] > w) runs[k] = w;
                        if (code3 < 64) break;
                    }
                }
                if (rowEnded) break;
                int a1 = static_cast<int>(start + runs[0] > w ? w : start + runs[0]);
                int a2 = static_cast<int>(a1 + runs[1] > w ? w : a1 + runs[1]);
                if (color)
                    fillRun(row, start, a1);
                else
                    fillRun(row, a1, a2);
                addChange(a1);
                addChange(a2);
                a0 = a2;
                // A row that ends inside the second run still has both changes.
                if (a0 >= w) a0 = w;
                break;
            }
            case JBIG2MMRDecoder::twoDimVert0:
            case JBIG2MMRDecoder::twoDimVertR1:
            case JBIG2MMRDecoder::twoDimVertR2:
            case JBIG2MMRDecoder::twoDimVertR3:
            case JBIG2MMRDecoder::twoDimVertL1:
            case JBIG2MMRDecoder::twoDimVertL2:
            case JBIG2MMRDecoder::twoDimVertL3: {
                static const int delta[] = {0, 1, 2, 3, -1, -2, -3};
                const int d = delta[code - JBIG2MMRDecoder::twoDimVert0];
                const std::size_t b1 = findB1();
                int a1 = ref[b1] + d;
                if (a1 > w) a1 = w;
                if (a1 < start) a1 = start;
                if (color) fillRun(row, start, a1);
                addChange(a1);
                a0 = a1;
                color ^= 1;
                break;
            }
            default:  // the end of the data, or no code: the rest stays white
                rowEnded = true;
                break;
            }
        }
        // The changes of this row are the reference of the next; past the
        // width they are dropped.
        ref.clear();
        for (int c : cur)
            if (c < w) ref.push_back(c);
        ref.push_back(w);
        ref.push_back(w);
    }
    if (!lengthKnown) {
        // Data of unknown length closes with EOFB (000000000001 twice).
        if (mmrDecoder.get24Bits() != 0x001001) {
            // No EOFB: leave the position after the rows.
        }
        mmrDecoder.skipToByteBoundary();
    }
    mmrDecoder.finish(lengthKnown);
    return bitmap.release();
}
