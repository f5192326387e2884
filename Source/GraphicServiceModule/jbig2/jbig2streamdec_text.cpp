// JBIG2Dec: text regions (ISO/IEC 14492 6.4 and 7.4.3): strips of symbol
// instances, with refinement, transposition and the four reference corners;
// in Huffman mode the symbol ID table of 7.4.3.1.7.
#include <cstdlib>
#include <memory>
#include <vector>

#include "jbig2/jbig2streamdec.h"

namespace {

const JBIG2HuffmanTable* pick(unsigned sel, char t0, char t1, char t2, const std::vector<const JBIG2CodeTable*>& tables,
                              std::size_t& next) {
    switch (sel) {
    case 0: return jbig2StandardTable(t0);
    case 1: return jbig2StandardTable(t1);
    case 2: return t2 ? jbig2StandardTable(t2) : nullptr;
    default: return next < tables.size() ? tables[next++]->getHuffTable() : nullptr;
    }
}

}  // namespace

void JBIG2Dec::readTextRegionSeg(uint32_t segNum, bool imm, const uint32_t* refSegs, uint32_t nRefSegs) {
    uint32_t w, h, x, y;
    unsigned segInfoFlags, flags;
    if (!readRegionInfo(&w, &h, &x, &y, &segInfoFlags) || !segInput.readUWord(&flags)) return;
    const bool huff = flags & 1;
    const bool refine = (flags >> 1) & 1;
    const uint32_t logStrips = (flags >> 2) & 3;
    const unsigned refCorner = (flags >> 4) & 3;
    const unsigned transposed = (flags >> 6) & 1;
    const unsigned combOp = (flags >> 7) & 3;
    const unsigned defPixel = (flags >> 9) & 1;
    int sOffset = (flags >> 10) & 0x1f;
    if (sOffset & 0x10) sOffset -= 32;
    const unsigned templ = (flags >> 15) & 1;
    unsigned huffFlags = 0;
    if (huff && !segInput.readUWord(&huffFlags)) return;
    int atx[2] = {0, 0}, aty[2] = {0, 0};
    if (refine && templ == 0)
        for (int i = 0; i < 2; ++i)
            if (!segInput.readByte(&atx[i]) || !segInput.readByte(&aty[i])) return;
    uint32_t numInstances;
    if (!segInput.readULong(&numInstances)) return;
    if (w > 0x7fffffffu || h > 0x7fffffffu) return;

    // The symbols of the referred dictionaries, in order; the user tables.
    std::vector<const JBIG2SymbolDict*> dicts;
    std::vector<const JBIG2CodeTable*> codeTables;
    uint64_t numSyms = 0;
    for (uint32_t k = 0; k < nRefSegs; ++k) {
        const JBIG2Segment* seg = findSegment(refSegs[k]);
        if (!seg) continue;
        if (seg->getType() == jbig2SegSymbolDict) {
            dicts.push_back(static_cast<const JBIG2SymbolDict*>(seg));
            numSyms += dicts.back()->getSize();
        } else if (seg->getType() == jbig2SegCodeTable) {
            codeTables.push_back(static_cast<const JBIG2CodeTable*>(seg));
        }
    }
    if (numSyms > 0x7fffffffu) return;
    JBIG2DecBudget::charge(numSyms * sizeof(void*));
    std::vector<JBIG2Bitmap*> syms;
    syms.reserve(static_cast<std::size_t>(numSyms));
    for (const JBIG2SymbolDict* d : dicts)
        for (uint32_t k = 0; k < d->getSize(); ++k) syms.push_back(d->getBitmap(k));
    uint32_t symCodeLen = 0;
    while ((uint64_t(1) << symCodeLen) < numSyms) ++symCodeLen;

    const JBIG2HuffmanTable *huffFSTable = nullptr, *huffDSTable = nullptr, *huffDTTable = nullptr,
                            *huffRDWTable = nullptr, *huffRDHTable = nullptr, *huffRDXTable = nullptr,
                            *huffRDYTable = nullptr, *huffRSizeTable = nullptr;
    std::unique_ptr<JBIG2HuffmanTable, decltype(&std::free)> symCodeTab(nullptr, &std::free);
    if (huff) {
        std::size_t next = 0;
        huffFSTable = pick(huffFlags & 3, 'F', 'G', 0, codeTables, next);
        huffDSTable = pick((huffFlags >> 2) & 3, 'H', 'I', 'J', codeTables, next);
        huffDTTable = pick((huffFlags >> 4) & 3, 'K', 'L', 'M', codeTables, next);
        huffRDWTable = pick((huffFlags >> 6) & 3, 'N', 'O', 0, codeTables, next);
        huffRDHTable = pick((huffFlags >> 8) & 3, 'N', 'O', 0, codeTables, next);
        huffRDXTable = pick((huffFlags >> 10) & 3, 'N', 'O', 0, codeTables, next);
        huffRDYTable = pick((huffFlags >> 12) & 3, 'N', 'O', 0, codeTables, next);
        huffRSizeTable = ((huffFlags >> 14) & 1) ? pick(3, 0, 0, 0, codeTables, next) : jbig2StandardTable('A');
        if (!huffFSTable || !huffDSTable || !huffDTTable || !huffRDWTable || !huffRDHTable || !huffRDXTable ||
            !huffRDYTable || !huffRSizeTable)
            return;

        // 7.4.3.1.7: the code lengths of the run codes, then the symbols'
        // code lengths by those run codes.
        huffDecoder.reset();
        JBIG2HuffmanTable runLengthTab[36];
        for (int k = 0; k < 35; ++k)
            runLengthTab[k] = JBIG2HuffmanTable{k, huffDecoder.readBits(4), 0, 0};
        runLengthTab[35] = JBIG2HuffmanTable{0, 0, jbig2HuffmanEOT, 0};
        if (!JBIG2HuffmanDecoder::buildTable(runLengthTab, 35)) return;
        JBIG2DecBudget::charge(numSyms * sizeof(JBIG2HuffmanTable));
        symCodeTab.reset(static_cast<JBIG2HuffmanTable*>(
            std::malloc(static_cast<std::size_t>(numSyms + 1) * sizeof(JBIG2HuffmanTable))));
        if (!symCodeTab) return;
        JBIG2HuffmanTable* tab = symCodeTab.get();
        uint32_t k = 0;
        while (k < numSyms) {
            int code;
            if (!huffDecoder.decodeInt(&code, runLengthTab) || code < 0 || code > 0x22) return;
            uint32_t len, repeat;
            if (code == 0x20) {
                if (k == 0) return;
                len = tab[k - 1].prefixLen;
                repeat = huffDecoder.readBits(2) + 3;
            } else if (code == 0x21) {
                len = 0;
                repeat = huffDecoder.readBits(3) + 3;
            } else if (code == 0x22) {
                len = 0;
                repeat = huffDecoder.readBits(7) + 11;
            } else {
                len = static_cast<uint32_t>(code);
                repeat = 1;
            }
            for (uint32_t r = 0; r < repeat && k < numSyms; ++r, ++k)
                tab[k] = JBIG2HuffmanTable{static_cast<int32_t>(k), len, 0, 0};
        }
        tab[numSyms] = JBIG2HuffmanTable{0, 0, jbig2HuffmanEOT, 0};
        if (!JBIG2HuffmanDecoder::buildTable(tab, static_cast<uint32_t>(numSyms))) return;
        huffDecoder.reset();
    } else {
        resetIntStats(symCodeLen);
        arithDecoder.start();
    }
    if (refine) resetRefinementStats(static_cast<int>(templ), nullptr);

    std::unique_ptr<JBIG2Bitmap> bitmap(readTextRegion(
        huff, refine, static_cast<int>(w), static_cast<int>(h), numInstances, logStrips,
        static_cast<uint32_t>(numSyms), symCodeTab.get(), symCodeLen, syms.data(), defPixel, combOp, transposed,
        refCorner, sOffset, huffFSTable, huffDSTable, huffDTTable, huffRDWTable, huffRDHTable, huffRDXTable,
        huffRDYTable, huffRSizeTable, templ, atx, aty));
    if (imm) {
        composeWithPage(bitmap.get(), x, y, segInfoFlags & 7);
    } else {
        bitmap->setSegNum(segNum);
        segments->append(bitmap.get());
        bitmap.release();
    }
}

// 6.4.5. Damaged data ends the region where it stands: what was placed stays.
JBIG2Bitmap* JBIG2Dec::readTextRegion(bool huff, bool refine, int w, int h, uint32_t numInstances, uint32_t logStrips,
                                      uint32_t numSyms, const JBIG2HuffmanTable* symCodeTab, uint32_t symCodeLen,
                                      JBIG2Bitmap** syms, unsigned defPixel, unsigned combOp, unsigned transposed,
                                      unsigned refCorner, int sOffset, const JBIG2HuffmanTable* huffFSTable,
                                      const JBIG2HuffmanTable* huffDSTable, const JBIG2HuffmanTable* huffDTTable,
                                      const JBIG2HuffmanTable* huffRDWTable, const JBIG2HuffmanTable* huffRDHTable,
                                      const JBIG2HuffmanTable* huffRDXTable, const JBIG2HuffmanTable* huffRDYTable,
                                      const JBIG2HuffmanTable* huffRSizeTable, unsigned templ, const int* atx,
                                      const int* aty) {
    enum { BOTTOMLEFT = 0, TOPLEFT = 1, BOTTOMRIGHT = 2, TOPRIGHT = 3 };
    const int64_t strips = int64_t(1) << logStrips;
    std::unique_ptr<JBIG2Bitmap> bitmap(new JBIG2Bitmap(0, w, h));
    if (defPixel) bitmap->clearToOne();

    int v;
    if (huff ? !huffDecoder.decodeInt(&v, huffDTTable) : !arithDecoder.decodeInt(&v, &iadtStats))
        return bitmap.release();
    int64_t stripT = -static_cast<int64_t>(v) * strips;
    int64_t firstS = 0;
    uint32_t inst = 0;
    while (inst < numInstances) {
        JBIG2DecBudget::charge(16);
        if (huff ? !huffDecoder.decodeInt(&v, huffDTTable) : !arithDecoder.decodeInt(&v, &iadtStats)) break;
        stripT += static_cast<int64_t>(v) * strips;
        if (huff ? !huffDecoder.decodeInt(&v, huffFSTable) : !arithDecoder.decodeInt(&v, &iafsStats)) break;
        firstS += v;
        int64_t curS = firstS;
        for (;;) {
            JBIG2DecBudget::charge(16);
            int64_t curT = 0;
            if (strips != 1) {
                if (huff) {
                    curT = huffDecoder.readBits(logStrips);
                } else {
                    if (!arithDecoder.decodeInt(&v, &iaitStats)) return bitmap.release();
                    curT = v;
                }
            }
            const int64_t t = stripT + curT;
            uint32_t symID;
            if (huff) {
                if (symCodeTab) {
                    if (!huffDecoder.decodeInt(&v, symCodeTab) || v < 0) return bitmap.release();
                    symID = static_cast<uint32_t>(v);
                } else {
                    symID = huffDecoder.readBits(symCodeLen);
                }
            } else {
                symID = arithDecoder.decodeIAID(symCodeLen, &iaidStats);
            }
            if (symID >= numSyms || !syms[symID]) return bitmap.release();
            int ri = 0;
            if (refine) {
                if (huff)
                    ri = static_cast<int>(huffDecoder.readBit());
                else if (!arithDecoder.decodeInt(&ri, &iariStats))
                    return bitmap.release();
            }
            const JBIG2Bitmap* symbolBitmap = syms[symID];
            std::unique_ptr<JBIG2Bitmap> refined;
            if (ri) {
                int rdw, rdh, rdx, rdy, bmSize = 0;
                std::size_t dataStart = 0;
                if (huff) {
                    if (!huffDecoder.decodeInt(&rdw, huffRDWTable) || !huffDecoder.decodeInt(&rdh, huffRDHTable) ||
                        !huffDecoder.decodeInt(&rdx, huffRDXTable) || !huffDecoder.decodeInt(&rdy, huffRDYTable) ||
                        !huffDecoder.decodeInt(&bmSize, huffRSizeTable))
                        return bitmap.release();
                    huffDecoder.reset();
                    dataStart = segInput.getPos();
                    arithDecoder.start();
                } else if (!arithDecoder.decodeInt(&rdw, &iardwStats) || !arithDecoder.decodeInt(&rdh, &iardhStats) ||
                           !arithDecoder.decodeInt(&rdx, &iardxStats) || !arithDecoder.decodeInt(&rdy, &iardyStats)) {
                    return bitmap.release();
                }
                const int64_t refDX = (rdw >= 0 ? rdw : static_cast<int64_t>(rdw) - 1) / 2 + rdx;
                const int64_t refDY = (rdh >= 0 ? rdh : static_cast<int64_t>(rdh) - 1) / 2 + rdy;
                const int64_t newW = static_cast<int64_t>(rdw) + symbolBitmap->getWidth();
                const int64_t newH = static_cast<int64_t>(rdh) + symbolBitmap->getHeight();
                if (newW < 0 || newH < 0 || newW > 0x7fffffff || newH > 0x7fffffff || refDX < INT32_MIN ||
                    refDX > INT32_MAX || refDY < INT32_MIN || refDY > INT32_MAX)
                    return bitmap.release();
                refined.reset(readGenericRefinementRegion(static_cast<int>(newW), static_cast<int>(newH),
                                                          static_cast<int>(templ), false, symbolBitmap,
                                                          static_cast<int>(refDX), static_cast<int>(refDY), atx, aty));
                if (huff) {
                    segInput.setPos(dataStart + static_cast<uint32_t>(bmSize));
                    huffDecoder.reset();
                }
                symbolBitmap = refined.get();
            }

            // 6.4.5 (3c): the reference corner at (CURS, T), or transposed.
            const int64_t wi = symbolBitmap->getWidth(), hi = symbolBitmap->getHeight();
            if (!transposed && (refCorner == TOPRIGHT || refCorner == BOTTOMRIGHT))
                curS += wi - 1;
            else if (transposed && (refCorner == BOTTOMLEFT || refCorner == BOTTOMRIGHT))
                curS += hi - 1;
            int64_t xx, yy;
            const int64_t sPos = curS, tPos = t;
            if (!transposed) {
                xx = (refCorner == TOPRIGHT || refCorner == BOTTOMRIGHT) ? sPos - wi + 1 : sPos;
                yy = (refCorner == BOTTOMLEFT || refCorner == BOTTOMRIGHT) ? tPos - hi + 1 : tPos;
            } else {
                xx = (refCorner == TOPRIGHT || refCorner == BOTTOMRIGHT) ? tPos - wi + 1 : tPos;
                yy = (refCorner == BOTTOMLEFT || refCorner == BOTTOMRIGHT) ? sPos - hi + 1 : sPos;
            }
            JBIG2DecBudget::charge(symbolBitmap->getDataSize());
            bitmap->combine(symbolBitmap, xx, yy, combOp);
            if (!transposed && (refCorner == TOPLEFT || refCorner == BOTTOMLEFT))
                curS += wi - 1;
            else if (transposed && (refCorner == TOPLEFT || refCorner == TOPRIGHT))
                curS += hi - 1;

            // The strip ends at an OOB, which follows its last instance too
            // (the region's last strip included): it is read, so that a
            // dictionary's aggregate leaves its decoder where it should.
            ++inst;
            if (huff ? !huffDecoder.decodeInt(&v, huffDSTable) : !arithDecoder.decodeInt(&v, &iadsStats)) break;
            curS += static_cast<int64_t>(sOffset) + v;
            if (inst >= numInstances) break;
        }
    }
    return bitmap.release();
}
