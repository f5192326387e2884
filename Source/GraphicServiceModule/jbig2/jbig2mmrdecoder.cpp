// The MMR decoder of JBIG2Dec: the mode and run-length codes of ITU-T T.4 and
// T.6, looked up by their next 13 (runs) or 7 (modes) bits, read from a
// bounded view. Bits past the end of the data read as 0, and a mode read at
// the end reports EOF, so a row always ends.
#include "jbig2/jbig2mmrdecoder.h"

#include <mutex>

#include "jbig2/jbig2decinput.h"

namespace {

struct JMMRRunCode {
    int run;
    int len;
    unsigned bits;
};

// Transcribed from shared/reference/ccitt-tables.md: terminating codes,
// make-up codes, and the extended make-up codes common to both colours.
const JMMRRunCode jMMRWhiteCodes[] = {
    {0, 8, 0x35},
    {1, 6, 0x7},
    {2, 4, 0x7},
    {3, 4, 0x8},
    {4, 4, 0xB},
    {5, 4, 0xC},
    {6, 4, 0xE},
    {7, 4, 0xF},
    {8, 5, 0x13},
    {9, 5, 0x14},
    {10, 5, 0x7},
    {11, 5, 0x8},
    {12, 6, 0x8},
    {13, 6, 0x3},
    {14, 6, 0x34},
    {15, 6, 0x35},
    {16, 6, 0x2A},
    {17, 6, 0x2B},
    {18, 7, 0x27},
    {19, 7, 0xC},
    {20, 7, 0x8},
    {21, 7, 0x17},
    {22, 7, 0x3},
    {23, 7, 0x4},
    {24, 7, 0x28},
    {25, 7, 0x2B},
    {26, 7, 0x13},
    {27, 7, 0x24},
    {28, 7, 0x18},
    {29, 8, 0x2},
    {30, 8, 0x3},
    {31, 8, 0x1A},
    {32, 8, 0x1B},
    {33, 8, 0x12},
    {34, 8, 0x13},
    {35, 8, 0x14},
    {36, 8, 0x15},
    {37, 8, 0x16},
    {38, 8, 0x17},
    {39, 8, 0x28},
    {40, 8, 0x29},
    {41, 8, 0x2A},
    {42, 8, 0x2B},
    {43, 8, 0x2C},
    {44, 8, 0x2D},
    {45, 8, 0x4},
    {46, 8, 0x5},
    {47, 8, 0xA},
    {48, 8, 0xB},
    {49, 8, 0x52},
    {50, 8, 0x53},
    {51, 8, 0x54},
    {52, 8, 0x55},
    {53, 8, 0x24},
    {54, 8, 0x25},
    {55, 8, 0x58},
    {56, 8, 0x59},
    {57, 8, 0x5A},
    {58, 8, 0x5B},
    {59, 8, 0x4A},
    {60, 8, 0x4B},
    {61, 8, 0x32},
    {62, 8, 0x33},
    {63, 8, 0x34},
    {64, 5, 0x1B},
    {128, 5, 0x12},
    {192, 6, 0x17},
    {256, 7, 0x37},
    {320, 8, 0x36},
    {384, 8, 0x37},
    {448, 8, 0x64},
    {512, 8, 0x65},
    {576, 8, 0x68},
    {640, 8, 0x67},
    {704, 9, 0xCC},
    {768, 9, 0xCD},
    {832, 9, 0xD2},
    {896, 9, 0xD3},
    {960, 9, 0xD4},
    {1024, 9, 0xD5},
    {1088, 9, 0xD6},
    {1152, 9, 0xD7},
    {1216, 9, 0xD8},
    {1280, 9, 0xD9},
    {1344, 9, 0xDA},
    {1408, 9, 0xDB},
    {1472, 9, 0x98},
    {1536, 9, 0x99},
    {1600, 9, 0x9A},
    {1664, 6, 0x18},
    {1728, 9, 0x9B},
    {1792, 11, 0x8},
    {1856, 11, 0xC},
    {1920, 11, 0xD},
    {1984, 12, 0x12},
    {2048, 12, 0x13},
    {2112, 12, 0x14},
    {2176, 12, 0x15},
    {2240, 12, 0x16},
    {2304, 12, 0x17},
    {2368, 12, 0x1C},
    {2432, 12, 0x1D},
    {2496, 12, 0x1E},
    {2560, 12, 0x1F},
};
const int jMMRWhiteCodeCount = 104;
const JMMRRunCode jMMRBlackCodes[] = {
    {0, 10, 0x37},
    {1, 3, 0x2},
    {2, 2, 0x3},
    {3, 2, 0x2},
    {4, 3, 0x3},
    {5, 4, 0x3},
    {6, 4, 0x2},
    {7, 5, 0x3},
    {8, 6, 0x5},
    {9, 6, 0x4},
    {10, 7, 0x4},
    {11, 7, 0x5},
    {12, 7, 0x7},
    {13, 8, 0x4},
    {14, 8, 0x7},
    {15, 9, 0x18},
    {16, 10, 0x17},
    {17, 10, 0x18},
    {18, 10, 0x8},
    {19, 11, 0x67},
    {20, 11, 0x68},
    {21, 11, 0x6C},
    {22, 11, 0x37},
    {23, 11, 0x28},
    {24, 11, 0x17},
    {25, 11, 0x18},
    {26, 12, 0xCA},
    {27, 12, 0xCB},
    {28, 12, 0xCC},
    {29, 12, 0xCD},
    {30, 12, 0x68},
    {31, 12, 0x69},
    {32, 12, 0x6A},
    {33, 12, 0x6B},
    {34, 12, 0xD2},
    {35, 12, 0xD3},
    {36, 12, 0xD4},
    {37, 12, 0xD5},
    {38, 12, 0xD6},
    {39, 12, 0xD7},
    {40, 12, 0x6C},
    {41, 12, 0x6D},
    {42, 12, 0xDA},
    {43, 12, 0xDB},
    {44, 12, 0x54},
    {45, 12, 0x55},
    {46, 12, 0x56},
    {47, 12, 0x57},
    {48, 12, 0x64},
    {49, 12, 0x65},
    {50, 12, 0x52},
    {51, 12, 0x53},
    {52, 12, 0x24},
    {53, 12, 0x37},
    {54, 12, 0x38},
    {55, 12, 0x27},
    {56, 12, 0x28},
    {57, 12, 0x58},
    {58, 12, 0x59},
    {59, 12, 0x2B},
    {60, 12, 0x2C},
    {61, 12, 0x5A},
    {62, 12, 0x66},
    {63, 12, 0x67},
    {64, 10, 0xF},
    {128, 12, 0xC8},
    {192, 12, 0xC9},
    {256, 12, 0x5B},
    {320, 12, 0x33},
    {384, 12, 0x34},
    {448, 12, 0x35},
    {512, 13, 0x6C},
    {576, 13, 0x6D},
    {640, 13, 0x4A},
    {704, 13, 0x4B},
    {768, 13, 0x4C},
    {832, 13, 0x4D},
    {896, 13, 0x72},
    {960, 13, 0x73},
    {1024, 13, 0x74},
    {1088, 13, 0x75},
    {1152, 13, 0x76},
    {1216, 13, 0x77},
    {1280, 13, 0x52},
    {1344, 13, 0x53},
    {1408, 13, 0x54},
    {1472, 13, 0x55},
    {1536, 13, 0x5A},
    {1600, 13, 0x5B},
    {1664, 13, 0x64},
    {1728, 13, 0x65},
    {1792, 11, 0x8},
    {1856, 11, 0xC},
    {1920, 11, 0xD},
    {1984, 12, 0x12},
    {2048, 12, 0x13},
    {2112, 12, 0x14},
    {2176, 12, 0x15},
    {2240, 12, 0x16},
    {2304, 12, 0x17},
    {2368, 12, 0x1C},
    {2432, 12, 0x1D},
    {2496, 12, 0x1E},
    {2560, 12, 0x1F},
};
const int jMMRBlackCodeCount = 104;

struct LookupEntry {
    short run;           // -1: no code
    unsigned char len;
};

LookupEntry whiteLookup[1 << 13];
LookupEntry blackLookup[1 << 13];
signed char modeLookup[1 << 7];
unsigned char modeLen[1 << 7];

void fill(LookupEntry* table, const JMMRRunCode* codes, int count) {
    for (int i = 0; i < (1 << 13); ++i) table[i] = LookupEntry{-1, 0};
    for (int k = 0; k < count; ++k) {
        const int shift = 13 - codes[k].len;
        const unsigned first = codes[k].bits << shift;
        for (unsigned i = 0; i < (1u << shift); ++i)
            table[first + i] = LookupEntry{static_cast<short>(codes[k].run), static_cast<unsigned char>(codes[k].len)};
    }
}

void buildLookups() {
    fill(whiteLookup, jMMRWhiteCodes, jMMRWhiteCodeCount);
    fill(blackLookup, jMMRBlackCodes, jMMRBlackCodeCount);
    struct {
        int mode;
        int len;
        unsigned bits;
    } const modes[] = {{JBIG2MMRDecoder::twoDimPass, 4, 0x1},   {JBIG2MMRDecoder::twoDimHoriz, 3, 0x1},
                       {JBIG2MMRDecoder::twoDimVert0, 1, 0x1},  {JBIG2MMRDecoder::twoDimVertR1, 3, 0x3},
                       {JBIG2MMRDecoder::twoDimVertR2, 6, 0x3}, {JBIG2MMRDecoder::twoDimVertR3, 7, 0x3},
                       {JBIG2MMRDecoder::twoDimVertL1, 3, 0x2}, {JBIG2MMRDecoder::twoDimVertL2, 6, 0x2},
                       {JBIG2MMRDecoder::twoDimVertL3, 7, 0x2}};
    for (int i = 0; i < (1 << 7); ++i) {
        modeLookup[i] = static_cast<signed char>(JBIG2MMRDecoder::twoDimInvalid);
        modeLen[i] = 0;
    }
    for (const auto& m : modes) {
        const int shift = 7 - m.len;
        for (unsigned i = 0; i < (1u << shift); ++i) {
            modeLookup[(m.bits << shift) + i] = static_cast<signed char>(m.mode);
            modeLen[(m.bits << shift) + i] = static_cast<unsigned char>(m.len);
        }
    }
}

void ensureLookups() {
    static std::once_flag once;
    std::call_once(once, buildLookups);
}

}  // namespace

JBIG2MMRDecoder::JBIG2MMRDecoder() : input(nullptr), data(nullptr), len(0), start(0), bitPos(0) {}

void JBIG2MMRDecoder::setInput(JBIG2ByteInput* in, std::size_t length) {
    ensureLookups();
    input = in;
    data = in->here();
    len = length < in->remaining() ? length : in->remaining();
    start = in->getPos();
    bitPos = 0;
}

uint32_t JBIG2MMRDecoder::peek(int n) const {
    // n <= 24: the next n bits, zeros past the end.
    uint32_t v = 0;
    std::size_t byte = bitPos >> 3;
    for (int k = 0; k < 4; ++k) v = (v << 8) | (byte + k < len ? data[byte + k] : 0u);
    v <<= (bitPos & 7);
    return v >> (32 - n);
}

int JBIG2MMRDecoder::get2DCode() {
    if (atEnd()) return twoDimEOF;
    const uint32_t bits = peek(7);
    const int mode = modeLookup[bits];
    if (mode == twoDimInvalid) return twoDimInvalid;
    consume(modeLen[bits]);
    return mode;
}

int JBIG2MMRDecoder::getRunCode(bool black) {
    if (atEnd()) return -1;
    const LookupEntry& e = (black ? blackLookup : whiteLookup)[peek(13)];
    if (e.run < 0) return -1;
    consume(e.len);
    return e.run;
}

int JBIG2MMRDecoder::getWhiteCode() { return getRunCode(false); }

int JBIG2MMRDecoder::getBlackCode() { return getRunCode(true); }

uint32_t JBIG2MMRDecoder::get24Bits() {
    const uint32_t v = peek(24);
    consume(24);
    return v;
}

void JBIG2MMRDecoder::skipToByteBoundary() { bitPos = (bitPos + 7) & ~static_cast<std::size_t>(7); }

void JBIG2MMRDecoder::finish(bool lengthKnown) {
    if (!input) return;
    const std::size_t used = lengthKnown ? len : (bytesConsumed() < len ? bytesConsumed() : len);
    input->setPos(start + used);
}
