// MMR decoding (ITU-T T.6 as used by ISO/IEC 14492 6.2.6).
#include "jbig2/mmrdecoder.h"

#include <cstring>

namespace jbig2 {

namespace {

struct RunCode {
    int run;
    const char* bits;
};

// ITU-T T.4 run-length codes (reference/ccitt-tables.md).
const RunCode kWhiteCodes[] = {
    {0, "00110101"},   {1, "000111"},     {2, "0111"},       {3, "1000"},       {4, "1011"},
    {5, "1100"},       {6, "1110"},       {7, "1111"},       {8, "10011"},      {9, "10100"},
    {10, "00111"},     {11, "01000"},     {12, "001000"},    {13, "000011"},    {14, "110100"},
    {15, "110101"},    {16, "101010"},    {17, "101011"},    {18, "0100111"},   {19, "0001100"},
    {20, "0001000"},   {21, "0010111"},   {22, "0000011"},   {23, "0000100"},   {24, "0101000"},
    {25, "0101011"},   {26, "0010011"},   {27, "0100100"},   {28, "0011000"},   {29, "00000010"},
    {30, "00000011"},  {31, "00011010"},  {32, "00011011"},  {33, "00010010"},  {34, "00010011"},
    {35, "00010100"},  {36, "00010101"},  {37, "00010110"},  {38, "00010111"},  {39, "00101000"},
    {40, "00101001"},  {41, "00101010"},  {42, "00101011"},  {43, "00101100"},  {44, "00101101"},
    {45, "00000100"},  {46, "00000101"},  {47, "00001010"},  {48, "00001011"},  {49, "01010010"},
    {50, "01010011"},  {51, "01010100"},  {52, "01010101"},  {53, "00100100"},  {54, "00100101"},
    {55, "01011000"},  {56, "01011001"},  {57, "01011010"},  {58, "01011011"},  {59, "01001010"},
    {60, "01001011"},  {61, "00110010"},  {62, "00110011"},  {63, "00110100"},
    {64, "11011"},     {128, "10010"},    {192, "010111"},   {256, "0110111"},  {320, "00110110"},
    {384, "00110111"}, {448, "01100100"}, {512, "01100101"}, {576, "01101000"}, {640, "01100111"},
    {704, "011001100"},  {768, "011001101"},  {832, "011010010"},  {896, "011010011"},
    {960, "011010100"},  {1024, "011010101"}, {1088, "011010110"}, {1152, "011010111"},
    {1216, "011011000"}, {1280, "011011001"}, {1344, "011011010"}, {1408, "011011011"},
    {1472, "010011000"}, {1536, "010011001"}, {1600, "010011010"}, {1664, "011000"},
    {1728, "010011011"}};

const RunCode kBlackCodes[] = {
    {0, "0000110111"},   {1, "010"},          {2, "11"},           {3, "10"},           {4, "011"},
    {5, "0011"},         {6, "0010"},         {7, "00011"},        {8, "000101"},       {9, "000100"},
    {10, "0000100"},     {11, "0000101"},     {12, "0000111"},     {13, "00000100"},    {14, "00000111"},
    {15, "000011000"},   {16, "0000010111"},  {17, "0000011000"},  {18, "0000001000"},  {19, "00001100111"},
    {20, "00001101000"}, {21, "00001101100"}, {22, "00000110111"}, {23, "00000101000"}, {24, "00000010111"},
    {25, "00000011000"}, {26, "000011001010"}, {27, "000011001011"}, {28, "000011001100"},
    {29, "000011001101"}, {30, "000001101000"}, {31, "000001101001"}, {32, "000001101010"},
    {33, "000001101011"}, {34, "000011010010"}, {35, "000011010011"}, {36, "000011010100"},
    {37, "000011010101"}, {38, "000011010110"}, {39, "000011010111"}, {40, "000001101100"},
    {41, "000001101101"}, {42, "000011011010"}, {43, "000011011011"}, {44, "000001010100"},
    {45, "000001010101"}, {46, "000001010110"}, {47, "000001010111"}, {48, "000001100100"},
    {49, "000001100101"}, {50, "000001010010"}, {51, "000001010011"}, {52, "000000100100"},
    {53, "000000110111"}, {54, "000000111000"}, {55, "000000100111"}, {56, "000000101000"},
    {57, "000001011000"}, {58, "000001011001"}, {59, "000000101011"}, {60, "000000101100"},
    {61, "000001011010"}, {62, "000001100110"}, {63, "000001100111"},
    {64, "0000001111"},     {128, "000011001000"},  {192, "000011001001"},  {256, "000001011011"},
    {320, "000000110011"},  {384, "000000110100"},  {448, "000000110101"},  {512, "0000001101100"},
    {576, "0000001101101"}, {640, "0000001001010"}, {704, "0000001001011"}, {768, "0000001001100"},
    {832, "0000001001101"}, {896, "0000001110010"}, {960, "0000001110011"}, {1024, "0000001110100"},
    {1088, "0000001110101"}, {1152, "0000001110110"}, {1216, "0000001110111"}, {1280, "0000001010010"},
    {1344, "0000001010011"}, {1408, "0000001010100"}, {1472, "0000001010101"}, {1536, "0000001011010"},
    {1600, "0000001011011"}, {1664, "0000001100100"}, {1728, "0000001100101"}};

// Extended make-up codes, the same for both colours.
const RunCode kExtendedCodes[] = {
    {1792, "00000001000"},  {1856, "00000001100"},  {1920, "00000001101"},  {1984, "000000010010"},
    {2048, "000000010011"}, {2112, "000000010100"}, {2176, "000000010101"}, {2240, "000000010110"},
    {2304, "000000010111"}, {2368, "000000011100"}, {2432, "000000011101"}, {2496, "000000011110"},
    {2560, "000000011111"}};

const int kLookupBits = 13;

struct RunEntry {
    short run;  // -1: no code
    unsigned char length;
};

// Lookup of the next 13 bits; built once from the code lists above.
struct RunLookup {
    RunEntry entries[1 << kLookupBits];

    template <std::size_t N, std::size_t M>
    RunLookup(const RunCode (&codes)[N], const RunCode (&extended)[M]) {
        for (RunEntry& e : entries) e = RunEntry{-1, 0};
        add(codes, N);
        add(extended, M);
    }
    void add(const RunCode* codes, std::size_t n) {
        for (std::size_t i = 0; i < n; ++i) {
            const int len = static_cast<int>(std::strlen(codes[i].bits));
            unsigned int code = 0;
            for (int b = 0; b < len; ++b) code = (code << 1) | (codes[i].bits[b] == '1');
            const unsigned int shift = static_cast<unsigned int>(kLookupBits - len);
            for (unsigned int j = code << shift; j < ((code + 1) << shift); ++j)
                entries[j] = RunEntry{static_cast<short>(codes[i].run), static_cast<unsigned char>(len)};
        }
    }
};

const RunLookup& whiteLookup() {
    static const RunLookup table(kWhiteCodes, kExtendedCodes);
    return table;
}

const RunLookup& blackLookup() {
    static const RunLookup table(kBlackCodes, kExtendedCodes);
    return table;
}

}  // namespace

MMRDecoder::MMRDecoder(ImageProcessor<ImageDataBits>& image, const unsigned char* data, unsigned int size, int width,
                       int height)
    : m_image(image), m_reader(data, size), m_width(width), m_height(height) {}

int MMRDecoder::getMode(uint32_t word, int& length) {
    if (word & 0x80000000u) { length = 1; return MODE_V0; }
    switch (word >> 29) {  // 3 bits
    case 1: length = 3; return MODE_HORIZONTAL;  // 001
    case 2: length = 3; return MODE_VL1;         // 010
    case 3: length = 3; return MODE_VR1;         // 011
    default: break;
    }
    if ((word >> 28) == 1) { length = 4; return MODE_PASS; }  // 0001
    switch (word >> 26) {                                      // 6 bits
    case 3: length = 6; return MODE_VR2;                       // 000011
    case 2: length = 6; return MODE_VL2;                       // 000010
    default: break;
    }
    switch (word >> 25) {  // 7 bits
    case 3: length = 7; return MODE_VR3;  // 0000011
    case 2: length = 7; return MODE_VL3;  // 0000010
    default: break;
    }
    length = 0;
    return MODE_OTHER;
}

int MMRDecoder::getWhileCode(uint32_t word, int& length) {
    const RunEntry& e = whiteLookup().entries[word >> (32 - kLookupBits)];
    length = e.length;
    return e.run;
}

int MMRDecoder::getBlackCode(uint32_t word, int& length) {
    const RunEntry& e = blackLookup().entries[word >> (32 - kLookupBits)];
    length = e.length;
    return e.run;
}

// A run: make-up codes add up until a terminating code below 64; -1 for a bad code.
int MMRDecoder::getWhileCodeRun() {
    int64_t total = 0;
    for (;;) {
        int length = 0;
        const int run = getWhileCode(m_reader.peekNextDWord(), length);
        if (run < 0) return -1;
        m_reader.getNBitsMore(static_cast<uint32_t>(length));
        total += run;
        if (run < 64) break;
        if (total > m_width) return -1;
    }
    return static_cast<int>(total);
}

int MMRDecoder::getBlackCodeRun() {
    int64_t total = 0;
    for (;;) {
        int length = 0;
        const int run = getBlackCode(m_reader.peekNextDWord(), length);
        if (run < 0) return -1;
        m_reader.getNBitsMore(static_cast<uint32_t>(length));
        total += run;
        if (run < 64) break;
        if (total > m_width) return -1;
    }
    return static_cast<int>(total);
}

void MMRDecoder::collectChanges(const unsigned char* line) {
    // The reference line as its changing elements: positions where a pixel
    // differs from the one before it (pixel -1 is white), so that changes to
    // black stand at even places and changes to white at odd ones. Eight
    // bytes are looked at a time, and a run of one colour costs nothing.
    m_changes.clear();
    m_cursor = 0;
    if (!line || m_width <= 0) return;
    const uint32_t width = static_cast<uint32_t>(m_width);
    const uint32_t bytes = (width + 7) / 8;
    uint64_t before = 0;  // colour of the pixel in front of the word
    for (uint32_t k = 0; k < bytes; k += 8) {
        uint64_t word = 0;
        if (bytes - k >= 8) {
            std::memcpy(&word, line + k, 8);
            word = __builtin_bswap64(word);  // the first pixel to the top
        } else {
            for (uint32_t i = 0; k + i < bytes; ++i) word |= static_cast<uint64_t>(line[k + i]) << (56 - 8 * i);
        }
        uint64_t changed = word ^ ((word >> 1) | (before << 63));
        before = word & 1;
        while (changed) {
            const uint32_t bit = static_cast<uint32_t>(__builtin_clzll(changed));
            const uint32_t p = k * 8 + bit;
            if (p >= width) return;  // past the row's pixels
            m_changes.push_back(static_cast<int>(p));
            changed &= ~(0x8000000000000000ull >> bit);
        }
    }
}

// The first changing element of `color` on the reference line to the right
// of `start` (b1 of T.6 when color is opposite to a0's); the width when there
// is none or no line. `start` is -1 or more.
int MMRDecoder::findPixelColor(const unsigned char* line, int start, int color) {
    if (!line) return m_width;
    const std::size_t n = m_changes.size();
    std::size_t i = m_cursor;
    // a0 moves mostly to the right; a vertical left code can step back a little.
    while (i > 0 && m_changes[i - 1] > start) --i;
    while (i < n && m_changes[i] <= start) ++i;
    m_cursor = i;
    // Changes alternate in colour: the one wanted is this one or the next.
    if (i < n && static_cast<int>(i & 1) == color) ++i;
    return i < n ? m_changes[i] : m_width;
}

void MMRDecoder::fillbits(unsigned char* line, int from, int to) {
    if (from < 0) from = 0;
    if (to > m_width) to = m_width;
    if (from >= to) return;
    const int first = from >> 3, last = (to - 1) >> 3;
    const unsigned int head = 0xFFu >> (from & 7);
    const unsigned int tail = (0xFFu << (7 - ((to - 1) & 7))) & 0xFFu;
    if (first == last) {
        line[first] = static_cast<unsigned char>(line[first] | (head & tail));
        return;
    }
    line[first] = static_cast<unsigned char>(line[first] | head);
    if (last - first > 1) std::memset(line + first + 1, 0xFF, static_cast<std::size_t>(last - first - 1));
    line[last] = static_cast<unsigned char>(line[last] | tail);
}

void MMRDecoder::decodeline(const unsigned char* reference, unsigned char* current) {
    collectChanges(reference);
    int a0 = -1;
    int color = 0;  // white
    while (a0 < m_width) {
        int length = 0;
        const int mode = getMode(m_reader.peekNextDWord(), length);
        if (mode == MODE_OTHER) return;  // the rest stays white
        m_reader.getNBitsMore(static_cast<uint32_t>(length));
        switch (mode) {
        case MODE_PASS: {
            const int b1 = findPixelColor(reference, a0, 1 - color);
            const int b2 = findPixelColor(reference, b1, color);
            if (color) fillbits(current, a0, b2);
            a0 = b2;
            break;
        }
        case MODE_HORIZONTAL: {
            const int r1 = color ? getBlackCodeRun() : getWhileCodeRun();
            if (r1 < 0) return;
            const int r2 = color ? getWhileCodeRun() : getBlackCodeRun();
            if (r2 < 0) return;
            const int start = a0 < 0 ? 0 : a0;
            const int a1 = start + r1;
            const int a2 = a1 + r2;
            if (color)
                fillbits(current, start, a1);
            else
                fillbits(current, a1, a2);
            a0 = a2;
            break;
        }
        default: {
            static const int kDelta[] = {0, 0, 0, 1, 2, 3, -1, -2, -3};
            const int b1 = findPixelColor(reference, a0, 1 - color);
            int a1 = b1 + kDelta[mode];
            // A position to the left that goes negative is not applied.
            if (a1 < 0) a1 = b1;
            if (color) fillbits(current, a0, a1);
            a0 = a1;
            color = 1 - color;
            break;
        }
        }
    }
}

void MMRDecoder::decode() {
    const unsigned char* reference = nullptr;
    for (int y = 0; y < m_height; ++y) {
        unsigned char* line = m_image.getLine(static_cast<uint32_t>(y));
        decodeline(reference, line);
        reference = line;
    }
}

}  // namespace jbig2
