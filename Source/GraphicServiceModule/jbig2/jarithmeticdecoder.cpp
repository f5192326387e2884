// The MQ arithmetic decoder of JBIG2Dec (ISO/IEC 14492 Annex E, with the
// interval in the high half of 32-bit registers) and the integer and IAID
// procedures of Annex A.
#include "jbig2/jarithmeticdecoder.h"

#include <climits>
#include <cstdlib>
#include <cstring>

#include "jbig2/jbig2decinput.h"
#include "jbig2/jbig2decsegments.h"

// Table E.1 of ISO/IEC 14492: Qe (shifted into the high half), NMPS, NLPS, SWITCH.
const JArithmeticQe jArithmeticQeTable[47] = {
    {0x56010000u, 1, 1, 1},   {0x34010000u, 2, 6, 0},   {0x18010000u, 3, 9, 0},   {0x0AC10000u, 4, 12, 0},
    {0x05210000u, 5, 29, 0},  {0x02210000u, 38, 33, 0}, {0x56010000u, 7, 6, 1},   {0x54010000u, 8, 14, 0},
    {0x48010000u, 9, 14, 0},  {0x38010000u, 10, 14, 0}, {0x30010000u, 11, 17, 0}, {0x24010000u, 12, 18, 0},
    {0x1C010000u, 13, 20, 0}, {0x16010000u, 29, 21, 0}, {0x56010000u, 15, 14, 1}, {0x54010000u, 16, 14, 0},
    {0x51010000u, 17, 15, 0}, {0x48010000u, 18, 16, 0}, {0x38010000u, 19, 17, 0}, {0x34010000u, 20, 18, 0},
    {0x30010000u, 21, 19, 0}, {0x28010000u, 22, 19, 0}, {0x24010000u, 23, 20, 0}, {0x22010000u, 24, 21, 0},
    {0x1C010000u, 25, 22, 0}, {0x18010000u, 26, 23, 0}, {0x16010000u, 27, 24, 0}, {0x14010000u, 28, 25, 0},
    {0x12010000u, 29, 26, 0}, {0x11010000u, 30, 27, 0}, {0x0AC10000u, 31, 28, 0}, {0x09C10000u, 32, 29, 0},
    {0x08A10000u, 33, 30, 0}, {0x05210000u, 34, 31, 0}, {0x04410000u, 35, 32, 0}, {0x02A10000u, 36, 33, 0},
    {0x02210000u, 37, 34, 0}, {0x01410000u, 38, 35, 0}, {0x01110000u, 39, 36, 0}, {0x00850000u, 40, 37, 0},
    {0x00490000u, 41, 38, 0}, {0x00250000u, 42, 39, 0}, {0x00150000u, 43, 40, 0}, {0x00090000u, 44, 41, 0},
    {0x00050000u, 45, 42, 0}, {0x00010000u, 45, 43, 0}, {0x56010000u, 46, 46, 0}};


JArithmeticDecoderStats::JArithmeticDecoderStats(int contextSizeA) : cxTab(nullptr), contextSize(0) {
    resizeAndReset(contextSizeA);
}

JArithmeticDecoderStats::~JArithmeticDecoderStats() { std::free(cxTab); }

JArithmeticDecoderStats* JArithmeticDecoderStats::copy() const {
    JArithmeticDecoderStats* stats = new JArithmeticDecoderStats(contextSize);
    std::memcpy(stats->cxTab, cxTab, static_cast<std::size_t>(contextSize));
    return stats;
}

void JArithmeticDecoderStats::reset() { std::memset(cxTab, 0, static_cast<std::size_t>(contextSize)); }

void JArithmeticDecoderStats::resizeAndReset(int contextSizeA) {
    if (contextSizeA < 1) contextSizeA = 1;
    if (contextSizeA != contextSize || !cxTab) {
        unsigned char* p = static_cast<unsigned char*>(std::malloc(static_cast<std::size_t>(contextSizeA)));
        if (!p) throw JBIG2DecStop();
        std::free(cxTab);
        cxTab = p;
        contextSize = contextSizeA;
    }
    reset();
}

void JArithmeticDecoderStats::copyFrom(const JArithmeticDecoderStats& other) {
    resizeAndReset(other.contextSize);
    std::memcpy(cxTab, other.cxTab, static_cast<std::size_t>(contextSize));
}

void JArithmeticDecoderStats::setEntry(uint32_t cx, int i, int mps) {
    if (i < 0) i = 0;
    if (i > 46) i = 46;
    if (cx < static_cast<uint32_t>(contextSize)) cxTab[cx] = static_cast<unsigned char>((i << 1) | (mps & 1));
}

JArithmeticDecoder::JArithmeticDecoder()
    : input(nullptr), buf0(0), buf1(0), c(0), a(0), ct(0), prev(0), nBytesRead(0) {}

void JArithmeticDecoder::start() {
    buf0 = readByte();
    buf1 = readByte();
    // INITDEC
    c = (buf0 ^ 0xff) << 16;
    byteIn();
    c <<= 7;
    ct -= 7;
    a = 0x80000000u;
}

int JArithmeticDecoder::decodeIntBit(JArithmeticDecoderStats* stats) {
    const int bit = decodeBit(prev, stats);
    if (prev < 0x100)
        prev = (prev << 1) | static_cast<uint32_t>(bit);
    else
        prev = (((prev << 1) | static_cast<uint32_t>(bit)) & 0x1ff) | 0x100;
    return bit;
}

bool JArithmeticDecoder::decodeInt(int* x, JArithmeticDecoderStats* stats) {
    prev = 1;
    const int s = decodeIntBit(stats);
    int bits;
    uint64_t offset;
    if (!decodeIntBit(stats)) {
        bits = 2;
        offset = 0;
    } else if (!decodeIntBit(stats)) {
        bits = 4;
        offset = 4;
    } else if (!decodeIntBit(stats)) {
        bits = 6;
        offset = 20;
    } else if (!decodeIntBit(stats)) {
        bits = 8;
        offset = 84;
    } else if (!decodeIntBit(stats)) {
        bits = 12;
        offset = 340;
    } else {
        bits = 32;
        offset = 4436;
    }
    uint64_t v = 0;
    for (int i = 0; i < bits; ++i) v = (v << 1) | static_cast<uint64_t>(decodeIntBit(stats));
    v += offset;
    if (s) {
        if (v == 0) return false;
        *x = v > static_cast<uint64_t>(INT_MAX) ? INT_MIN + 1 : -static_cast<int>(v);
    } else {
        *x = v > static_cast<uint64_t>(INT_MAX) ? INT_MAX : static_cast<int>(v);
    }
    return true;
}

uint32_t JArithmeticDecoder::decodeIAID(uint32_t codeLen, JArithmeticDecoderStats* stats) {
    if (codeLen == 0) return 0;
    if (codeLen > 31) codeLen = 31;
    prev = 1;
    for (uint32_t i = 0; i < codeLen; ++i) {
        const int bit = decodeBit(prev, stats);
        prev = (prev << 1) | static_cast<uint32_t>(bit);
    }
    return prev - (1u << codeLen);
}
