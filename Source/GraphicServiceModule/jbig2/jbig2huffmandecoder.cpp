// The Huffman decoder of JBIG2Dec (ISO/IEC 14492 Annex B): table building by
// B.3 and decoding by a walk over the table's lines, each read only as far as
// its prefix length.
#include "jbig2/jbig2huffmandecoder.h"

#include "jbig2/jbig2decinput.h"

JBIG2HuffmanDecoder::JBIG2HuffmanDecoder() : input(nullptr), buf(0), bufLen(0) {}

void JBIG2HuffmanDecoder::reset() {
    buf = 0;
    bufLen = 0;
}

uint32_t JBIG2HuffmanDecoder::readBit() {
    if (bufLen == 0) {
        buf = input ? input->getByteOr(0xFF) : 0xFF;
        bufLen = 8;
    }
    --bufLen;
    return (buf >> bufLen) & 1;
}

uint32_t JBIG2HuffmanDecoder::readBits(uint32_t n) {
    if (n > 32) n = 32;
    uint64_t x = 0;
    for (uint32_t i = 0; i < n; ++i) x = (x << 1) | readBit();
    return static_cast<uint32_t>(x);
}

bool JBIG2HuffmanDecoder::decodeInt(int* x, const JBIG2HuffmanTable* table) {
    uint32_t len = 0;
    uint64_t prefix = 0;
    for (uint32_t i = 0; table[i].rangeLen != jbig2HuffmanEOT; ++i) {
        if (table[i].prefixLen == 0) continue;  // an unused line
        while (len < table[i].prefixLen) {
            prefix = (prefix << 1) | readBit();
            ++len;
        }
        if (prefix != table[i].prefix) continue;
        if (table[i].rangeLen == jbig2HuffmanOOB) return false;
        int64_t v;
        if (table[i].rangeLen == jbig2HuffmanLOW)
            v = static_cast<int64_t>(table[i].val) - static_cast<int64_t>(readBits(32));
        else if (table[i].rangeLen > 0)
            v = static_cast<int64_t>(table[i].val) + static_cast<int64_t>(readBits(table[i].rangeLen));
        else
            v = table[i].val;
        if (v > INT32_MAX) v = INT32_MAX;
        if (v < INT32_MIN + 1) v = INT32_MIN + 1;
        *x = static_cast<int>(v);
        return true;
    }
    return false;
}

bool JBIG2HuffmanDecoder::buildTable(JBIG2HuffmanTable* table, uint32_t len) {
    // Stable selection sort: lines with a prefix length, shortest first; then
    // the EOT line; lines of prefix length 0 are dropped behind it.
    uint32_t i = 0;
    for (i = 0; i < len; ++i) {
        uint32_t j = i;
        while (j < len && table[j].prefixLen == 0) ++j;
        if (j == len) break;
        for (uint32_t k = j + 1; k < len; ++k)
            if (table[k].prefixLen > 0 && table[k].prefixLen < table[j].prefixLen) j = k;
        if (j != i) {
            const JBIG2HuffmanTable tab = table[j];
            for (uint32_t k = j; k > i; --k) table[k] = table[k - 1];
            table[i] = tab;
        }
    }
    table[i] = table[len];
    for (uint32_t k = 0; k < i; ++k)
        if (table[k].prefixLen > 32) return false;
    // Prefixes of B.3: consecutive codes per length, shifted as the length grows.
    uint64_t prefix = 0;
    for (uint32_t k = 0; k < i; ++k) {
        if (k > 0) prefix <<= (table[k].prefixLen - table[k - 1].prefixLen);
        table[k].prefix = static_cast<uint32_t>(prefix);
        ++prefix;
    }
    return true;
}
