// JBIG2Dec: code table segments (7.4.13 and B.2): the lines of a user
// Huffman table, read to their end.
#include <cstdlib>
#include <memory>

#include "jbig2/jbig2streamdec.h"

void JBIG2Dec::readCodeTableSeg(uint32_t segNum) {
    unsigned flags;
    int32_t lowVal, highVal;
    if (!segInput.readUByte(&flags) || !segInput.readLong(&lowVal) || !segInput.readLong(&highVal)) return;
    if (lowVal > highVal) return;
    const bool oob = flags & 1;
    const uint32_t prefixBits = ((flags >> 1) & 7) + 1;
    const uint32_t rangeBits = ((flags >> 4) & 7) + 1;
    // Every line takes prefixBits + rangeBits bits of the data, so the data
    // bounds the count of lines.
    const uint64_t maxLines = segInput.remaining() * 8 / (prefixBits + rangeBits) + 4;
    uint64_t cap = 16;
    JBIG2HuffmanTable* table = static_cast<JBIG2HuffmanTable*>(std::malloc(cap * sizeof(JBIG2HuffmanTable)));
    if (!table) return;
    std::unique_ptr<JBIG2HuffmanTable, decltype(&std::free)> holder(table, &std::free);
    uint64_t n = 0;
    auto add = [&](int32_t val, uint32_t prefixLen, uint32_t rangeLen) -> bool {
        if (n + 1 >= cap) {
            cap *= 2;
            JBIG2HuffmanTable* p =
                static_cast<JBIG2HuffmanTable*>(std::realloc(holder.get(), cap * sizeof(JBIG2HuffmanTable)));
            if (!p) return false;
            holder.release();
            holder.reset(p);
        }
        holder.get()[n++] = JBIG2HuffmanTable{val, prefixLen, rangeLen, 0};
        return true;
    };
    huffDecoder.reset();
    int64_t val = lowVal;
    while (val < highVal) {
        if (n >= maxLines) return;
        const uint32_t prefixLen = huffDecoder.readBits(prefixBits);
        const uint32_t rangeLen = huffDecoder.readBits(rangeBits);
        if (rangeLen > 31) return;
        if (!add(static_cast<int32_t>(val), prefixLen, rangeLen)) return;
        val += int64_t(1) << rangeLen;
    }
    // The lower range line, the upper range line, and the OOB line.
    if (!add(lowVal == INT32_MIN ? INT32_MIN : lowVal - 1, huffDecoder.readBits(prefixBits), jbig2HuffmanLOW)) return;
    if (!add(highVal, huffDecoder.readBits(prefixBits), 32)) return;
    if (oob && !add(0, huffDecoder.readBits(prefixBits), jbig2HuffmanOOB)) return;
    if (!add(0, 0, jbig2HuffmanEOT)) return;
    --n;  // the EOT line is not counted
    if (!JBIG2HuffmanDecoder::buildTable(holder.get(), static_cast<uint32_t>(n))) return;
    JBIG2CodeTable* codeTable = new JBIG2CodeTable(segNum, holder.release());
    std::unique_ptr<JBIG2CodeTable> tableHolder(codeTable);
    segments->append(codeTable);
    tableHolder.release();
}
