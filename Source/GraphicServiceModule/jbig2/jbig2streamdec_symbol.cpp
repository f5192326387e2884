// JBIG2Dec: symbol dictionaries (ISO/IEC 14492 6.5 and 7.4.2): height
// classes, symbols by generic, refinement or aggregate coding or by one
// collective bitmap, and the export flags. Contexts are taken over from the
// last referred dictionary and kept for later ones as flag bits 8 and 9 ask.
#include <memory>
#include <vector>

#include "jbig2/jbig2streamdec.h"

namespace {

// The next user table of the referred code tables, or null.
const JBIG2HuffmanTable* nextUserTable(const std::vector<const JBIG2CodeTable*>& tables, std::size_t& next) {
    return next < tables.size() ? tables[next++]->getHuffTable() : nullptr;
}

}  // namespace

void JBIG2Dec::readSymbolDictSeg(uint32_t segNum, const uint32_t* refSegs, uint32_t nRefSegs) {
    unsigned flags;
    if (!segInput.readUWord(&flags)) return;
    const bool huff = flags & 1;
    const bool refAgg = (flags >> 1) & 1;
    const unsigned huffDH = (flags >> 2) & 3;
    const unsigned huffDW = (flags >> 4) & 3;
    const unsigned huffBMSize = (flags >> 6) & 1;
    const unsigned huffAggInst = (flags >> 7) & 1;
    const bool contextUsed = (flags >> 8) & 1;
    const bool contextRetained = (flags >> 9) & 1;
    const int sdTemplate = (flags >> 10) & 3;
    const int sdrTemplate = (flags >> 12) & 1;
    int sdATX[4] = {0, 0, 0, 0}, sdATY[4] = {0, 0, 0, 0};
    if (!huff) {
        const int n = sdTemplate == 0 ? 4 : 1;
        for (int i = 0; i < n; ++i)
            if (!segInput.readByte(&sdATX[i]) || !segInput.readByte(&sdATY[i])) return;
    }
    int sdrATX[2] = {0, 0}, sdrATY[2] = {0, 0};
    if (refAgg && sdrTemplate == 0)
        for (int i = 0; i < 2; ++i)
            if (!segInput.readByte(&sdrATX[i]) || !segInput.readByte(&sdrATY[i])) return;
    uint32_t numExSyms, numNewSyms;
    if (!segInput.readULong(&numExSyms) || !segInput.readULong(&numNewSyms)) return;

    // The referred dictionaries give the input symbols; code tables the user tables.
    std::vector<const JBIG2SymbolDict*> inputDicts;
    std::vector<const JBIG2CodeTable*> codeTables;
    uint64_t numInputSyms = 0;
    for (uint32_t k = 0; k < nRefSegs; ++k) {
        const JBIG2Segment* seg = findSegment(refSegs[k]);
        if (!seg) continue;
        if (seg->getType() == jbig2SegSymbolDict) {
            inputDicts.push_back(static_cast<const JBIG2SymbolDict*>(seg));
            numInputSyms += inputDicts.back()->getSize();
        } else if (seg->getType() == jbig2SegCodeTable) {
            codeTables.push_back(static_cast<const JBIG2CodeTable*>(seg));
        }
    }
    const uint64_t total = numInputSyms + numNewSyms;
    if (total > 0x7fffffffu) return;
    // The symbol slots cost their memory before they are made.
    JBIG2DecBudget::charge(total * 2 * sizeof(void*));
    std::vector<JBIG2Bitmap*> bitmaps;
    bitmaps.reserve(static_cast<std::size_t>(total));
    for (const JBIG2SymbolDict* d : inputDicts)
        for (uint32_t k = 0; k < d->getSize(); ++k) bitmaps.push_back(d->getBitmap(k));
    std::vector<std::unique_ptr<JBIG2Bitmap>> newSyms(numNewSyms);
    bitmaps.resize(static_cast<std::size_t>(total), nullptr);

    uint32_t symCodeLen = 0;
    while ((uint64_t(1) << symCodeLen) < total) ++symCodeLen;

    // Tables of the Huffman coding.
    std::size_t nextTable = 0;
    const JBIG2HuffmanTable *huffDHTable = nullptr, *huffDWTable = nullptr, *huffBMSizeTable = nullptr,
                            *huffAggInstTable = nullptr;
    if (huff) {
        huffDHTable = huffDH == 0 ? jbig2StandardTable('D') : huffDH == 1 ? jbig2StandardTable('E')
                                                          : huffDH == 3 ? nextUserTable(codeTables, nextTable)
                                                                        : nullptr;
        huffDWTable = huffDW == 0 ? jbig2StandardTable('B') : huffDW == 1 ? jbig2StandardTable('C')
                                                          : huffDW == 3 ? nextUserTable(codeTables, nextTable)
                                                                        : nullptr;
        huffBMSizeTable = huffBMSize ? nextUserTable(codeTables, nextTable) : jbig2StandardTable('A');
        huffAggInstTable = huffAggInst ? nextUserTable(codeTables, nextTable) : jbig2StandardTable('A');
        if (!huffDHTable || !huffDWTable || !huffBMSizeTable || !huffAggInstTable) return;
    }

    // Contexts: fresh, or those the last referred dictionary kept.
    const JBIG2SymbolDict* lastInput = inputDicts.empty() ? nullptr : inputDicts.back();
    if (!huff)
        resetGenericStats(sdTemplate, contextUsed && lastInput ? lastInput->getGenericRegionStats() : nullptr);
    if (refAgg)
        resetRefinementStats(sdrTemplate, contextUsed && lastInput ? lastInput->getRefinementRegionStats() : nullptr);
    resetIntStats(symCodeLen);
    huffDecoder.reset();
    if (!huff) arithDecoder.start();

    const JBIG2HuffmanTable* tableA = jbig2StandardTable('A');
    const JBIG2HuffmanTable* tableO = jbig2StandardTable('O');
    std::vector<uint32_t> symWidths;
    uint32_t symHeight = 0;
    uint32_t i = 0;
    while (i < numNewSyms) {
        JBIG2DecBudget::charge(16);
        int dh;
        if (huff ? !huffDecoder.decodeInt(&dh, huffDHTable) : !arithDecoder.decodeInt(&dh, &iadhStats)) return;
        if (dh < 0 && static_cast<uint64_t>(-static_cast<int64_t>(dh)) >= symHeight) return;
        if (static_cast<int64_t>(symHeight) + dh > 0x7fffffff) return;
        symHeight = static_cast<uint32_t>(static_cast<int64_t>(symHeight) + dh);
        uint32_t symWidth = 0;
        uint64_t totalWidth = 0;
        const uint32_t firstOfClass = i;
        symWidths.clear();
        for (;;) {
            int dw;
            if (huff ? !huffDecoder.decodeInt(&dw, huffDWTable) : !arithDecoder.decodeInt(&dw, &iadwStats)) break;
            if (dw < 0 && static_cast<uint64_t>(-static_cast<int64_t>(dw)) >= symWidth) return;
            if (static_cast<int64_t>(symWidth) + dw > 0x7fffffff) return;
            symWidth = static_cast<uint32_t>(static_cast<int64_t>(symWidth) + dw);
            if (i >= numNewSyms) return;
            JBIG2DecBudget::charge(16);
            const std::size_t slot = static_cast<std::size_t>(numInputSyms) + i;
            if (huff && !refAgg) {
                // Cut from the class's collective bitmap below.
                symWidths.push_back(symWidth);
                totalWidth += symWidth;
                if (totalWidth > 0x7fffffffu) return;
            } else if (refAgg) {
                int refAggNum;
                if (huff ? !huffDecoder.decodeInt(&refAggNum, huffAggInstTable)
                         : !arithDecoder.decodeInt(&refAggNum, &iaaiStats))
                    return;
                if (refAggNum < 1) return;
                if (refAggNum == 1) {
                    uint32_t symID;
                    int refDX = 0, refDY = 0, bmSize = 0;
                    std::size_t dataStart = 0;
                    if (huff) {
                        symID = huffDecoder.readBits(symCodeLen);
                        if (!huffDecoder.decodeInt(&refDX, tableO) || !huffDecoder.decodeInt(&refDY, tableO) ||
                            !huffDecoder.decodeInt(&bmSize, tableA))
                            return;
                        huffDecoder.reset();
                        dataStart = segInput.getPos();
                        arithDecoder.start();
                    } else {
                        symID = arithDecoder.decodeIAID(symCodeLen, &iaidStats);
                        if (!arithDecoder.decodeInt(&refDX, &iardxStats) ||
                            !arithDecoder.decodeInt(&refDY, &iardyStats))
                            return;
                    }
                    if (symID >= numInputSyms + i || !bitmaps[symID]) return;
                    newSyms[i].reset(readGenericRefinementRegion(static_cast<int>(symWidth), static_cast<int>(symHeight),
                                                                 sdrTemplate, false, bitmaps[symID], refDX, refDY,
                                                                 sdrATX, sdrATY));
                    if (huff) {
                        // The refinement's bytes are BMSIZE; the Huffman data goes on behind them.
                        segInput.setPos(dataStart + static_cast<uint32_t>(bmSize));
                        huffDecoder.reset();
                    }
                } else {
                    // An aggregate: a text region of 6.5.8.2 over the symbols so far.
                    newSyms[i].reset(readTextRegion(huff, true, static_cast<int>(symWidth), static_cast<int>(symHeight),
                                                    static_cast<uint32_t>(refAggNum), 0,
                                                    static_cast<uint32_t>(numInputSyms) + i, nullptr, symCodeLen,
                                                    bitmaps.data(), 0, 0, 0, 1, 0, jbig2StandardTable('F'),
                                                    jbig2StandardTable('H'), jbig2StandardTable('K'), tableO, tableO,
                                                    tableO, tableO, tableA, static_cast<unsigned>(sdrTemplate), sdrATX,
                                                    sdrATY));
                }
                bitmaps[slot] = newSyms[i].get();
            } else {
                newSyms[i].reset(readGenericBitmap(false, static_cast<int>(symWidth), static_cast<int>(symHeight),
                                                   sdTemplate, false, false, nullptr, sdATX, sdATY, 0));
                bitmaps[slot] = newSyms[i].get();
            }
            ++i;
        }

        if (huff && !refAgg) {
            // The collective bitmap of the class: stored, or MMR of BMSIZE bytes.
            int bmSize;
            if (!huffDecoder.decodeInt(&bmSize, huffBMSizeTable)) return;
            huffDecoder.reset();
            std::unique_ptr<JBIG2Bitmap> collBitmap;
            if (bmSize == 0) {
                collBitmap.reset(new JBIG2Bitmap(0, static_cast<int>(totalWidth), static_cast<int>(symHeight)));
                const std::size_t lineBytes = static_cast<std::size_t>(collBitmap->getLineSize());
                for (uint32_t row = 0; row < symHeight; ++row) {
                    unsigned char* dst = collBitmap->getRow(static_cast<int>(row));
                    for (std::size_t b = 0; b < lineBytes; ++b) dst[b] = static_cast<unsigned char>(segInput.getByteOr(0));
                }
            } else {
                if (bmSize < 0) return;
                collBitmap.reset(readGenericBitmap(true, static_cast<int>(totalWidth), static_cast<int>(symHeight), 0,
                                                   false, false, nullptr, nullptr, nullptr, bmSize));
            }
            int64_t x = 0;
            for (uint32_t k = firstOfClass; k < i; ++k) {
                const uint32_t wk = symWidths[k - firstOfClass];
                newSyms[k].reset(collBitmap->getSlice(x, 0, static_cast<int>(wk), static_cast<int>(symHeight)));
                bitmaps[static_cast<std::size_t>(numInputSyms) + k] = newSyms[k].get();
                x += wk;
            }
        }
    }

    // The export flags: runs of not exported and exported symbols, in turn.
    std::unique_ptr<JBIG2SymbolDict> dict(new JBIG2SymbolDict(segNum, numExSyms));
    uint64_t at = 0, exported = 0;
    bool ex = false;
    for (uint64_t rounds = 0; at < total; ++rounds) {
        // Runs of 0 move nothing; no honest dictionary needs more rounds.
        if (rounds > 2 * total + 64) return;
        int run;
        if (huff ? !huffDecoder.decodeInt(&run, tableA) : !arithDecoder.decodeInt(&run, &iaexStats)) return;
        if (run < 0 || at + static_cast<uint64_t>(run) > total) return;
        if (ex) {
            if (exported + static_cast<uint64_t>(run) > numExSyms) return;
            for (int cnt = 0; cnt < run; ++cnt, ++at, ++exported) {
                const JBIG2Bitmap* b = bitmaps[static_cast<std::size_t>(at)];
                dict->setBitmap(static_cast<uint32_t>(exported), b ? b->copy() : nullptr);
            }
        } else {
            at += static_cast<uint64_t>(run);
        }
        ex = !ex;
    }
    if (contextRetained) {
        if (!huff) dict->setGenericRegionStats(genericRegionStats.copy());
        if (refAgg) dict->setRefinementRegionStats(refinementRegionStats.copy());
    }
    segments->append(dict.get());
    dict.release();
}
