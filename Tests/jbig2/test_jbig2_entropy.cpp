// Units: the MQ decoder, the integer and IAID procedures, the
// standard Huffman tables, code table segments and MMR lines.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "jbig2/arithmeticdecoder.h"
#include "jbig2/codetablesegment.h"
#include "jbig2/huffman.h"
#include "jbig2/jbig2result.h"
#include "jbig2/mmrdecoder.h"
#include "jbig2_test_support.h"

using namespace jbig2;
using namespace jbig2test;

// ---------------------------------------------------------------- MQ decoder

// The test sequence of ISO/IEC 14492 Annex H.2 (ITU-T T.88): 256 bits coded
// in one context.
TEST(ArithmeticDecoder, PublishedTestSequence) {
    const unsigned char coded[] = {0x84, 0xC7, 0x3B, 0xFC, 0xE1, 0xA1, 0x43, 0x04, 0x02, 0x20, 0x00, 0x00,
                                   0x41, 0x0D, 0xBB, 0x86, 0xF4, 0x31, 0x7F, 0xFF, 0x88, 0xFF, 0x37, 0x47,
                                   0x1A, 0xDB, 0x6A, 0xDF, 0xFF, 0xAC};
    const unsigned char expected[] = {0x00, 0x02, 0x00, 0x51, 0x00, 0x00, 0x00, 0xC0, 0x03, 0x52, 0x87,
                                      0x2A, 0xAA, 0xAA, 0xAA, 0xAA, 0x82, 0xC0, 0x20, 0x00, 0xFC, 0xD7,
                                      0x9E, 0xF6, 0xBF, 0x7F, 0xED, 0x90, 0x4F, 0x46, 0xA3, 0xBF};
    StepDataReader reader(coded, sizeof(coded));
    ArithmeticDecoderState state(&reader);
    state.init();
    unsigned short cx = 0;
    for (int i = 0; i < 32; ++i) {
        unsigned int byte = 0;
        for (int b = 0; b < 8; ++b) byte = (byte << 1) | static_cast<unsigned>(ArithmeticDecoder::decodebit(state, cx));
        EXPECT_EQ(byte, expected[i]) << "byte " << i;
    }
}

TEST(ArithmeticDecoder, EncoderRoundTripManyContexts) {
    MQEncoder enc;
    std::vector<unsigned short> ecx(16, 0), dcx(16, 0);
    std::vector<int> bits;
    unsigned seed = 12345;
    for (int i = 0; i < 5000; ++i) {
        seed = seed * 1103515245 + 12345;
        const int cx = (seed >> 16) & 15;
        const int bit = ((seed >> 8) & 7) < static_cast<unsigned>(cx % 7) ? 1 : 0;
        bits.push_back(cx << 1 | bit);
        enc.encode(ecx[cx], bit);
    }
    const Bytes data = enc.flush();
    StepDataReader reader(data.data(), data.size());
    ArithmeticDecoderState state(&reader);
    state.init();
    for (std::size_t i = 0; i < bits.size(); ++i)
        ASSERT_EQ(ArithmeticDecoder::decodebit(state, dcx[bits[i] >> 1]), bits[i] & 1) << i;
}

// A marker stops the byte flow: the reader never moves past 0xFF 0xAC.
TEST(ArithmeticDecoder, MarkerStopsByteFlow) {
    const unsigned char data[] = {0x12, 0x34, 0xFF, 0xAC, 0x55, 0x66};
    StepDataReader reader(data, sizeof(data));
    ArithmeticDecoderState state(&reader);
    state.init();
    unsigned short cx = 0;
    for (int i = 0; i < 1000; ++i) ArithmeticDecoder::decodebit(state, cx);
    EXPECT_EQ(reader.getPosition(), 4u);
}

// Data that ends early reads as zero and decoding goes on without error.
TEST(ArithmeticDecoder, DecodesPastTheEnd) {
    const unsigned char data[] = {0x84};
    StepDataReader reader(data, sizeof(data));
    ArithmeticDecoderState state(&reader);
    state.init();
    unsigned short cx = 0;
    for (int i = 0; i < 10000; ++i) ArithmeticDecoder::decodebit(state, cx);
    EXPECT_EQ(reader.getPosition(), 1u);
}

// -------------------------------------------------- integer and IAID procedures

TEST(IntArithmeticDecoder, RoundTripOfEveryRangeAndOOB) {
    const std::vector<int64_t> values = {0,    1,     3,     4,     19,    20,    83,      84,      339,
                                         340,  4435,  4436,  65535, 1 << 20, -1,   -3,      -4,      -19,
                                         -20,  -83,   -84,   -339,  -340,  -4435, -4436,  -123456, 2000000000,
                                         -2000000000};
    MQEncoder enc;
    IntEncoder ienc;
    for (int64_t v : values) ienc.encode(enc, v);
    ienc.encode(enc, 0, true);  // OOB
    ienc.encode(enc, 7);
    const Bytes data = enc.flush();

    StepDataReader reader(data.data(), data.size());
    ArithmeticDecoderState state(&reader);
    state.init();
    IntArithmeticDecoder dec;
    for (int64_t v : values) {
        int got = 0;
        ASSERT_FALSE(dec.decode(state, got)) << v;
        EXPECT_EQ(got, v);
    }
    int untouched = 4242;
    EXPECT_TRUE(dec.decode(state, untouched));
    EXPECT_EQ(untouched, 4242) << "OOB leaves the value unwritten";
    bool oob = true;
    EXPECT_EQ(dec.decode(state, oob), 7);
    EXPECT_FALSE(oob);
}

TEST(IAIDArithmeticDecoder, RoundTrip) {
    const unsigned codeLength = 5;
    std::vector<unsigned short> cx(1u << codeLength, 0);
    MQEncoder enc;
    const std::vector<unsigned> ids = {0, 31, 7, 16, 1, 30, 5, 5, 5};
    for (unsigned id : ids) {
        unsigned prev = 1;
        for (int i = codeLength - 1; i >= 0; --i) {
            const int bit = (id >> i) & 1;
            enc.encode(cx[prev], bit);
            prev = (prev << 1) | static_cast<unsigned>(bit);
        }
    }
    const Bytes data = enc.flush();
    StepDataReader reader(data.data(), data.size());
    ArithmeticDecoderState state(&reader);
    state.init();
    IAIDArithmeticDecoder dec(codeLength);
    for (unsigned id : ids) {
        unsigned got = 99;
        dec.decode(state, got);
        EXPECT_EQ(got, id);
    }
}

TEST(IAIDArithmeticDecoder, CodeLengthZeroGivesZero) {
    const unsigned char data[] = {0x55, 0xAA};
    StepDataReader reader(data, sizeof(data));
    ArithmeticDecoderState state(&reader);
    state.init();
    IAIDArithmeticDecoder dec(0);
    unsigned v = 77;
    dec.decode(state, v);
    EXPECT_EQ(v, 0u);
}

// ------------------------------------------------------------ Huffman tables

namespace {

struct Expect {
    std::string code;  // prefix, as in reference/jbig2-tables.md
    int rangeBits;     // bits after the prefix
    uint32_t range;    // their value
    int64_t value;     // decoded value; OOB below
    bool oob;
};

// Decodes each case from its own bit string and checks the value.
void checkTable(const HuffmanParams& params, const std::vector<Expect>& cases) {
    HuffmanTable table(params);
    BitWriter w;
    for (const Expect& e : cases) {
        w.bits(e.code);
        w.value(e.range, e.rangeBits);
    }
    const Bytes data = w.bytes();
    HuffmanDaraReader reader(data.data(), static_cast<uint32_t>(data.size()));
    HuffmanDecoder dec(&reader);
    for (const Expect& e : cases) {
        bool oob = false;
        const int v = dec.decodeint(table, oob);
        EXPECT_EQ(oob, e.oob) << "code " << e.code;
        if (!e.oob) {
            EXPECT_EQ(v, static_cast<int>(e.value)) << "code " << e.code << " range " << e.range;
        }
    }
}

const bool OOB = true;

}  // namespace

TEST(HuffmanTable, B1_A) {
    checkTable(huffman_params_A, {{"0", 4, 0, 0, false}, {"0", 4, 15, 15, false}, {"10", 8, 0, 16, false},
                                  {"10", 8, 255, 271, false}, {"110", 16, 0, 272, false},
                                  {"110", 16, 65535, 65807, false}, {"111", 32, 0, 65808, false},
                                  {"111", 32, 1000000, 1065808, false}});
}

TEST(HuffmanTable, B2_B) {
    checkTable(huffman_params_B, {{"0", 0, 0, 0, false}, {"10", 0, 0, 1, false}, {"110", 0, 0, 2, false},
                                  {"1110", 3, 0, 3, false}, {"1110", 3, 7, 10, false}, {"11110", 6, 0, 11, false},
                                  {"11110", 6, 63, 74, false}, {"111110", 32, 0, 75, false},
                                  {"111110", 32, 25, 100, false}, {"111111", 0, 0, 0, OOB}});
}

TEST(HuffmanTable, B3_C) {
    checkTable(huffman_params_C, {{"11111110", 8, 0, -256, false}, {"11111110", 8, 255, -1, false},
                                  {"0", 0, 0, 0, false}, {"10", 0, 0, 1, false}, {"110", 0, 0, 2, false},
                                  {"1110", 3, 5, 8, false}, {"11110", 6, 63, 74, false},
                                  {"11111111", 32, 0, -257, false}, {"11111111", 32, 43, -300, false},
                                  {"1111110", 32, 0, 75, false}, {"111110", 0, 0, 0, OOB}});
}

TEST(HuffmanTable, B4_D) {
    checkTable(huffman_params_D, {{"0", 0, 0, 1, false}, {"10", 0, 0, 2, false}, {"110", 0, 0, 3, false},
                                  {"1110", 3, 7, 11, false}, {"11110", 6, 0, 12, false}, {"11110", 6, 63, 75, false},
                                  {"11111", 32, 0, 76, false}, {"11111", 32, 4, 80, false}});
}

TEST(HuffmanTable, B5_E) {
    checkTable(huffman_params_E, {{"1111110", 8, 0, -255, false}, {"1111110", 8, 255, 0, false},
                                  {"0", 0, 0, 1, false}, {"10", 0, 0, 2, false}, {"110", 0, 0, 3, false},
                                  {"1110", 3, 0, 4, false}, {"11110", 6, 63, 75, false},
                                  {"1111111", 32, 0, -256, false}, {"1111111", 32, 10, -266, false},
                                  {"111110", 32, 0, 76, false}});
}

TEST(HuffmanTable, B6_F) {
    checkTable(huffman_params_F,
               {{"11100", 10, 0, -2048, false}, {"11100", 10, 1023, -1025, false}, {"1000", 9, 0, -1024, false},
                {"1001", 8, 255, -257, false},  {"1010", 7, 0, -256, false},    {"11101", 6, 63, -65, false},
                {"11110", 5, 0, -64, false},    {"1011", 5, 31, -1, false},     {"00", 7, 0, 0, false},
                {"00", 7, 127, 127, false},     {"010", 7, 0, 128, false},      {"011", 8, 255, 511, false},
                {"1100", 9, 0, 512, false},     {"1101", 10, 1023, 2047, false}, {"111110", 32, 0, -2049, false},
                {"111110", 32, 1, -2050, false}, {"111111", 32, 0, 2048, false}, {"111111", 32, 2, 2050, false}});
}

TEST(HuffmanTable, B7_G) {
    checkTable(huffman_params_G,
               {{"1000", 9, 0, -1024, false},  {"000", 8, 255, -257, false},  {"1001", 7, 0, -256, false},
                {"11010", 6, 0, -128, false},  {"11011", 5, 31, -33, false},  {"1010", 5, 0, -32, false},
                {"1011", 5, 0, 0, false},      {"11100", 5, 31, 63, false},   {"11101", 6, 0, 64, false},
                {"1100", 7, 127, 255, false},  {"001", 8, 0, 256, false},     {"010", 9, 511, 1023, false},
                {"011", 10, 0, 1024, false},   {"011", 10, 1023, 2047, false}, {"11110", 32, 0, -1025, false},
                {"11110", 32, 5, -1030, false}, {"11111", 32, 0, 2048, false}});
}

TEST(HuffmanTable, B8_H) {
    checkTable(huffman_params_H,
               {{"11111100", 3, 0, -15, false},   {"11111100", 3, 7, -8, false},    {"111111100", 1, 1, -6, false},
                {"11111101", 1, 0, -5, false},    {"111111101", 0, 0, -3, false},   {"1111100", 0, 0, -2, false},
                {"1010", 0, 0, -1, false},        {"00", 1, 0, 0, false},           {"00", 1, 1, 1, false},
                {"11010", 0, 0, 2, false},        {"111010", 0, 0, 3, false},       {"100", 4, 15, 19, false},
                {"111011", 1, 1, 21, false},      {"1011", 4, 0, 22, false},        {"1100", 5, 31, 69, false},
                {"11011", 6, 0, 70, false},       {"11100", 7, 127, 261, false},    {"111100", 7, 0, 262, false},
                {"1111101", 8, 255, 645, false},  {"111101", 10, 1023, 1669, false}, {"111111110", 32, 0, -16, false},
                {"111111110", 32, 4, -20, false}, {"111111111", 32, 0, 1670, false}, {"01", 0, 0, 0, OOB}});
}

TEST(HuffmanTable, B9_I) {
    checkTable(huffman_params_I,
               {{"11111100", 4, 0, -31, false},   {"111111100", 2, 3, -12, false},  {"11111101", 2, 0, -11, false},
                {"111111101", 1, 1, -6, false},   {"1111100", 1, 0, -5, false},     {"1010", 1, 1, -2, false},
                {"010", 1, 0, -1, false},         {"010", 1, 1, 0, false},          {"011", 1, 1, 2, false},
                {"11010", 1, 0, 3, false},        {"111010", 1, 1, 6, false},       {"100", 5, 31, 38, false},
                {"111011", 2, 0, 39, false},      {"1011", 5, 31, 74, false},       {"1100", 6, 0, 75, false},
                {"11011", 7, 127, 266, false},    {"11100", 8, 0, 267, false},      {"111100", 8, 255, 778, false},
                {"1111101", 9, 0, 779, false},    {"111101", 11, 2047, 3338, false}, {"111111110", 32, 0, -32, false},
                {"111111111", 32, 1, 3340, false}, {"00", 0, 0, 0, OOB}});
}

TEST(HuffmanTable, B10_J) {
    checkTable(huffman_params_J,
               {{"1111010", 4, 0, -21, false},   {"1111010", 4, 15, -6, false},  {"11111100", 0, 0, -5, false},
                {"1111011", 0, 0, -4, false},    {"11000", 0, 0, -3, false},     {"00", 2, 0, -2, false},
                {"00", 2, 3, 1, false},          {"11001", 0, 0, 2, false},      {"110110", 0, 0, 3, false},
                {"1111100", 0, 0, 4, false},     {"11111101", 0, 0, 5, false},   {"01", 6, 0, 6, false},
                {"01", 6, 63, 69, false},        {"11010", 5, 0, 70, false},     {"110111", 5, 31, 133, false},
                {"111000", 6, 0, 134, false},    {"111001", 7, 127, 325, false}, {"111010", 8, 0, 326, false},
                {"111011", 9, 511, 1093, false}, {"111100", 10, 0, 1094, false}, {"1111101", 11, 2047, 4165, false},
                {"11111110", 32, 0, -22, false}, {"11111111", 32, 0, 4166, false}, {"10", 0, 0, 0, OOB}});
}

TEST(HuffmanTable, B11_K) {
    checkTable(huffman_params_K,
               {{"0", 0, 0, 1, false},          {"10", 1, 1, 3, false},         {"1100", 0, 0, 4, false},
                {"1101", 1, 1, 6, false},       {"11100", 1, 0, 7, false},      {"11101", 2, 3, 12, false},
                {"111100", 2, 0, 13, false},    {"1111010", 2, 3, 20, false},   {"1111011", 3, 0, 21, false},
                {"1111100", 4, 15, 44, false},  {"1111101", 5, 0, 45, false},   {"1111110", 6, 63, 140, false},
                {"1111111", 32, 0, 141, false}, {"1111111", 32, 9, 150, false}});
}

TEST(HuffmanTable, B12_L) {
    checkTable(huffman_params_L,
               {{"0", 0, 0, 1, false},          {"10", 0, 0, 2, false},         {"110", 1, 1, 4, false},
                {"11100", 0, 0, 5, false},      {"11101", 1, 1, 7, false},      {"111100", 1, 0, 8, false},
                {"1111010", 0, 0, 10, false},   {"1111011", 1, 1, 12, false},   {"1111100", 2, 0, 13, false},
                {"1111101", 3, 7, 24, false},   {"1111110", 4, 0, 25, false},   {"11111110", 5, 31, 72, false},
                {"11111111", 32, 0, 73, false}});
}

TEST(HuffmanTable, B13_M) {
    checkTable(huffman_params_M,
               {{"0", 0, 0, 1, false},          {"100", 0, 0, 2, false},        {"1100", 0, 0, 3, false},
                {"11100", 0, 0, 4, false},      {"1101", 1, 1, 6, false},       {"101", 3, 0, 7, false},
                {"101", 3, 7, 14, false},       {"111010", 1, 0, 15, false},    {"111011", 2, 3, 20, false},
                {"111100", 3, 0, 21, false},    {"111101", 4, 15, 44, false},   {"111110", 5, 0, 45, false},
                {"1111110", 6, 63, 140, false}, {"1111111", 32, 0, 141, false}});
}

TEST(HuffmanTable, B14_N) {
    checkTable(huffman_params_N, {{"100", 0, 0, -2, false}, {"101", 0, 0, -1, false}, {"0", 0, 0, 0, false},
                                  {"110", 0, 0, 1, false}, {"111", 0, 0, 2, false}});
}

TEST(HuffmanTable, B15_O) {
    checkTable(huffman_params_O,
               {{"1111100", 4, 0, -24, false},  {"1111100", 4, 15, -9, false}, {"111100", 2, 0, -8, false},
                {"11100", 1, 1, -3, false},     {"1100", 0, 0, -2, false},     {"100", 0, 0, -1, false},
                {"0", 0, 0, 0, false},          {"101", 0, 0, 1, false},       {"1101", 0, 0, 2, false},
                {"11101", 1, 1, 4, false},      {"111101", 2, 3, 8, false},    {"1111101", 4, 15, 24, false},
                {"1111110", 32, 0, -25, false}, {"1111110", 32, 75, -100, false}, {"1111111", 32, 0, 25, false},
                {"1111111", 32, 75, 100, false}});
}

// Every standard table is a complete prefix code: no item is left invalid, and
// the lower-range flag sits only on the lower range line.
TEST(HuffmanTable, StandardTablesAreComplete) {
    const HuffmanParams* all[] = {&huffman_params_A, &huffman_params_B, &huffman_params_C, &huffman_params_D,
                                  &huffman_params_E, &huffman_params_F, &huffman_params_G, &huffman_params_H,
                                  &huffman_params_I, &huffman_params_J, &huffman_params_K, &huffman_params_L,
                                  &huffman_params_M, &huffman_params_N, &huffman_params_O};
    for (std::size_t k = 0; k < sizeof(all) / sizeof(all[0]); ++k) {
        const HuffmanParams* p = all[k];
        HuffmanTable t(*p);
        ASSERT_LE(t.getWidth(), 16u);
        for (std::size_t i = 0; i < t.getItemCount(); ++i) {
            const HuffmanTableItem& it = t.getTableItem(static_cast<uint32_t>(i));
            EXPECT_FALSE(it.flags & HuffmanTable::FLAG_INVALID) << "table " << k << " item " << i;
            if (it.flags & HuffmanTable::FLAG_LOWER) {
                EXPECT_EQ(it.further, 32);
            }
        }
    }
}

TEST(HuffmanDecoder, BadPrefixThrowsInvalidData) {
    // Table B.1 covers every prefix; a table of two lines of length 2 does not.
    const HuffmanLine lines[] = {{2, 0, 5}, {2, 0, 6}, {0, 32, -1}, {0, 32, -1}};
    const HuffmanParams p = {0, 4, lines};
    HuffmanTable table(p);
    const unsigned char data[] = {0xC0};  // 11: no code
    HuffmanDaraReader reader(data, 1);
    HuffmanDecoder dec(&reader);
    bool oob = false;
    try {
        dec.decodeint(table, oob);
        FAIL() << "no throw";
    } catch (JBIG2_RESULT r) {
        EXPECT_EQ(r, JBIG2_INVALID_DATA);
    }
}

TEST(HuffmanTable, ARangeOfMoreThan32BitsIsRefused) {
    const HuffmanLine lines[] = {{1, 33, 0}, {0, 32, -1}, {0, 32, -1}};
    const HuffmanParams p = {0, 3, lines};
    try {
        HuffmanTable table(p);
        FAIL() << "no throw";
    } catch (JBIG2_RESULT r) {
        EXPECT_EQ(r, JBIG2_INVALID_DATA);
    }
}

TEST(HuffmanDaraReader, ReadsSkipsAndMoves) {
    const unsigned char data[] = {0xA5, 0x0F, 0xF0, 0x12, 0x34, 0x56, 0x78, 0x9A, 0xBC};
    HuffmanDaraReader r(data, sizeof(data));
    EXPECT_EQ(r.read(4), 0xAu);
    EXPECT_EQ(r.offSet(), 0u);
    r.skipToByteBoundary();
    EXPECT_EQ(r.offSet(), 1u);
    EXPECT_EQ(r.read(8), 0x0Fu);
    r.moveAhead(2);
    EXPECT_EQ(r.read(16), 0x3456u);
    EXPECT_EQ(r.read(32), 0x789ABC00u);  // zero past the end
}

// A code table segment (7.4.13): the lines' reader sees as many bytes as the
// view has consumed before it (9), as the code stands; the table here fits.
TEST(CodeTableSegment, BuildsLinesAndDecodes) {
    // HTOOB 0, HTPS 2 (field 1), HTRS 2 (field 1): flags 0b0001_0010.
    // Lowest 0, highest 8. Lines: (1,2,0) (2,2,4); lower prefix 3, upper 3.
    BitWriter w;
    w.value(0x12, 8);
    w.value(0, 32);
    w.value(8, 32);
    w.value(1, 2);
    w.value(2, 2);
    w.value(2, 2);
    w.value(2, 2);
    w.value(3, 2);
    w.value(3, 2);
    const Bytes data = w.bytes();
    StepDataReader view(data.data(), data.size());
    CodeTableSegment seg;
    seg.parse(view);
    ASSERT_EQ(seg.getLines().size(), 4u);
    EXPECT_EQ(seg.getLines()[1].rangeLow, 4);
    EXPECT_EQ(seg.getLines()[2].rangeLow, -1);
    EXPECT_EQ(seg.getLines()[3].rangeLow, 7) << "upper line low is highest minus 1, kept";
    // Codes: line 0 "0", line 1 "10", lower "110", upper "111".
    BitWriter v;
    v.bits("0");
    v.value(3, 2);
    v.bits("10");
    v.value(1, 2);
    const Bytes coded = v.bytes();
    HuffmanDaraReader reader(coded.data(), static_cast<uint32_t>(coded.size()));
    HuffmanDecoder dec(&reader);
    bool oob = false;
    EXPECT_EQ(dec.decodeint(seg.getTable(), oob), 3);
    EXPECT_EQ(dec.decodeint(seg.getTable(), oob), 5);
}

// --------------------------------------------------------------------- MMR

namespace {

Bitmap decodeMMR(const Bytes& data, int width, int height) {
    ImageProcessor<ImageDataBits> image(static_cast<uint32_t>(width), static_cast<uint32_t>(height));
    MMRDecoder mmr(image, data.data(), static_cast<unsigned>(data.size()), width, height);
    mmr.decode();
    return fromPacked(image.getWidth(), image.getHeight(), image.getStride(), image.getData());
}

std::string row(const Bitmap& b, uint32_t y) {
    std::string s;
    for (uint32_t x = 0; x < b.width; ++x) s += b.pixel(x, y) ? '#' : '.';
    return s;
}

}  // namespace

TEST(MMRDecoder, ModeCodes) {
    int len = 0;
    EXPECT_EQ(MMRDecoder::getMode(0x80000000u, len), MMRDecoder::MODE_V0);
    EXPECT_EQ(len, 1);
    EXPECT_EQ(MMRDecoder::getMode(0x20000000u, len), MMRDecoder::MODE_HORIZONTAL);
    EXPECT_EQ(MMRDecoder::getMode(0x10000000u, len), MMRDecoder::MODE_PASS);
    EXPECT_EQ(MMRDecoder::getMode(0x60000000u, len), MMRDecoder::MODE_VR1);
    EXPECT_EQ(MMRDecoder::getMode(0x40000000u, len), MMRDecoder::MODE_VL1);
    EXPECT_EQ(MMRDecoder::getMode(0x0C000000u, len), MMRDecoder::MODE_VR2);
    EXPECT_EQ(MMRDecoder::getMode(0x08000000u, len), MMRDecoder::MODE_VL2);
    EXPECT_EQ(MMRDecoder::getMode(0x06000000u, len), MMRDecoder::MODE_VR3);
    EXPECT_EQ(MMRDecoder::getMode(0x04000000u, len), MMRDecoder::MODE_VL3);
    EXPECT_EQ(MMRDecoder::getMode(0x00100000u, len), MMRDecoder::MODE_OTHER);  // EOL
}

TEST(MMRDecoder, RunCodes) {
    int len = 0;
    EXPECT_EQ(MMRDecoder::getWhileCode(0x35000000u, len), 0);  // 00110101
    EXPECT_EQ(len, 8);
    EXPECT_EQ(MMRDecoder::getWhileCode(0xD8000000u, len), 64);  // 11011
    EXPECT_EQ(len, 5);
    EXPECT_EQ(MMRDecoder::getBlackCode(0x0DC00000u, len), 0);  // 0000110111
    EXPECT_EQ(len, 10);
    EXPECT_EQ(MMRDecoder::getBlackCode(0xC0000000u, len), 2);  // 11
    EXPECT_EQ(MMRDecoder::getWhileCode(0x01000000u, len), 1792);  // 00000001000
    EXPECT_EQ(MMRDecoder::getBlackCode(0x01F00000u, len), 2560);  // 000000011111
    EXPECT_EQ(MMRDecoder::getWhileCode(0x00000000u, len), -1);
}

// Horizontal mode on the first line, then vertical modes against it.
TEST(MMRDecoder, HorizontalAndVerticalLines) {
    BitWriter w;
    // Line 0: H, white 3 (1000), black 5 (0011); H, white 4 (1011), black 2 (11); V0 to the end.
    w.bits("001");
    w.bits("1000");
    w.bits("0011");
    w.bits("001");
    w.bits("1011");
    w.bits("11");
    w.bits("1");
    // Line 1: b1 = 3: VR1 (a1 = 4), then VL1 against b1 = 8 (a1 = 7), then
    // V0 (b1 = 12), V0 (b1 = 14), then V0: b1 = width ends the line.
    w.bits("011");
    w.bits("010");
    w.bits("1");
    w.bits("1");
    w.bits("1");
    const Bitmap b = decodeMMR(w.bytes(), 16, 2);
    EXPECT_EQ(row(b, 0), "...#####....##..");
    EXPECT_EQ(row(b, 1), "....###.....##..");
}

TEST(MMRDecoder, PassModeAndMakeUpCodes) {
    BitWriter w;
    // Line 0 (width 80): H, white 64+1 (11011 then 000111), black 3 (10).
    w.bits("001");
    w.bits("11011");
    w.bits("000111");
    w.bits("10");
    w.bits("1");  // V0: b1 = width
    // Line 1: pass (b2 = 68): white stays to 68, then V0 on b1 = 80 ends it.
    w.bits("0001");
    w.bits("1");
    const Bitmap b = decodeMMR(w.bytes(), 80, 2);
    std::string expect0(80, '.');
    for (int x = 65; x < 68; ++x) expect0[x] = '#';
    EXPECT_EQ(row(b, 0), expect0);
    EXPECT_EQ(row(b, 1), std::string(80, '.'));
}

// An EOFB (or any unknown code) ends the line at once, white.
TEST(MMRDecoder, EofbLeavesRowsWhite) {
    BitWriter w;
    w.bits("001");
    w.bits("0111");  // white 2
    w.bits("11");    // black 2
    w.bits("1");
    w.bits("000000000001000000000001");
    const Bitmap b = decodeMMR(w.bytes(), 8, 3);
    EXPECT_EQ(row(b, 0), "..##....");
    EXPECT_EQ(row(b, 1), "........");
    EXPECT_EQ(row(b, 2), "........");
}
