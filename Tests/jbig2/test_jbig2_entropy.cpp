// The entropy decoders of both decoders (MQ with the integer and IAID
// procedures, the standard Huffman tables), and jbig2:: code tables and MMR.
#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>

#include "PDFKilnPage/PDFKilnPage.h"
#include "jbig2/arithmeticdecoder.h"
#include "jbig2/codetablesegment.h"
#include "jbig2/huffman.h"
#include "jbig2/mmrdecoder.h"
#include "jbig2_test_support.h"

using namespace jbig2;
using namespace jbig2test;

namespace {

// The two MQ decoders behind one face, each on its own copy of the data with
// numbered contexts and IAIDs of one code length; integer() is false for OOB.
struct Jbig2MQ {
    explicit Jbig2MQ(Bytes d, unsigned codeLength = 5)
        : data(std::move(d)), reader(data.data(), data.size()), state(&reader), ids(codeLength) {
        state.init();
    }
    int bit(uint32_t cx) { return ArithmeticDecoder::decodebit(state, cxs[cx]); }
    // Odd calls take the overload that leaves `v` alone on OOB, even calls the
    // one that reports OOB in a flag.
    bool integer(int& v) {
        if (++calls % 2) return !ints.decode(state, v);
        bool oob = true;
        const int got = ints.decode(state, oob);
        if (!oob) v = got;
        return !oob;
    }
    unsigned iaid() {
        unsigned v = 99;
        ids.decode(state, v);
        return v;
    }
    Bytes data;
    StepDataReader reader;
    ArithmeticDecoderState state;
    std::vector<unsigned short> cxs = std::vector<unsigned short>(16, 0);
    IntArithmeticDecoder ints;
    IAIDArithmeticDecoder ids;
    int calls = 0;
};

struct JBIG2DecMQ {
    explicit JBIG2DecMQ(Bytes d, unsigned codeLength = 5)
        : data(std::move(d)), in(data.data(), data.size()), codeLength(codeLength), ids(1 << codeLength) {
        a.setInput(&in);
        a.start();
    }
    int bit(uint32_t cx) { return a.decodeBit(cx, &cxs); }
    bool integer(int& v) { return a.decodeInt(&v, &ints); }
    unsigned iaid() { return a.decodeIAID(codeLength, &ids); }
    Bytes data;
    JBIG2ByteInput in;
    JArithmeticDecoder a;
    unsigned codeLength;
    JArithmeticDecoderStats cxs{16}, ints{512}, ids;
};

// The standard tables B.1 (A) to B.15 (O): cases "prefix[+range bits:range]=value",
// the value "oob" for the out-of-band line, as in reference/jbig2-tables.md.
const char* const kTableCases[15] = {
    "0+4:0=0 0+4:15=15 10+8:0=16 10+8:255=271 110+16:0=272 110+16:65535=65807 111+32:0=65808 111+32:1000000=1065808",
    "0=0 10=1 110=2 1110+3:0=3 1110+3:7=10 11110+6:0=11 11110+6:63=74 111110+32:0=75 111110+32:25=100 111111=oob",
    "11111110+8:0=-256 11111110+8:255=-1 0=0 10=1 110=2 1110+3:5=8 11110+6:63=74 11111111+32:0=-257 "
    "11111111+32:43=-300 1111110+32:0=75 111110=oob",
    "0=1 10=2 110=3 1110+3:7=11 11110+6:0=12 11110+6:63=75 11111+32:0=76 11111+32:4=80",
    "1111110+8:0=-255 1111110+8:255=0 0=1 10=2 110=3 1110+3:0=4 11110+6:63=75 1111111+32:0=-256 1111111+32:10=-266 "
    "111110+32:0=76",
    "11100+10:0=-2048 11100+10:1023=-1025 1000+9:0=-1024 1001+8:255=-257 1010+7:0=-256 11101+6:63=-65 11110+5:0=-64 "
    "1011+5:31=-1 00+7:0=0 00+7:127=127 010+7:0=128 011+8:255=511 1100+9:0=512 1101+10:1023=2047 111110+32:0=-2049 "
    "111110+32:1=-2050 111111+32:0=2048 111111+32:2=2050",
    "1000+9:0=-1024 000+8:255=-257 1001+7:0=-256 11010+6:0=-128 11011+5:31=-33 1010+5:0=-32 1011+5:0=0 11100+5:31=63 "
    "11101+6:0=64 1100+7:127=255 001+8:0=256 010+9:511=1023 011+10:0=1024 011+10:1023=2047 11110+32:0=-1025 "
    "11110+32:5=-1030 11111+32:0=2048",
    "11111100+3:0=-15 11111100+3:7=-8 111111100+1:1=-6 11111101+1:0=-5 111111101=-3 1111100=-2 1010=-1 00+1:0=0 "
    "00+1:1=1 11010=2 111010=3 100+4:15=19 111011+1:1=21 1011+4:0=22 1100+5:31=69 11011+6:0=70 11100+7:127=261 "
    "111100+7:0=262 1111101+8:255=645 111101+10:1023=1669 111111110+32:0=-16 111111110+32:4=-20 111111111+32:0=1670 "
    "01=oob",
    "11111100+4:0=-31 111111100+2:3=-12 11111101+2:0=-11 111111101+1:1=-6 1111100+1:0=-5 1010+1:1=-2 010+1:0=-1 "
    "010+1:1=0 011+1:1=2 11010+1:0=3 111010+1:1=6 100+5:31=38 111011+2:0=39 1011+5:31=74 1100+6:0=75 11011+7:127=266 "
    "11100+8:0=267 111100+8:255=778 1111101+9:0=779 111101+11:2047=3338 111111110+32:0=-32 111111111+32:1=3340 00=oob",
    "1111010+4:0=-21 1111010+4:15=-6 11111100=-5 1111011=-4 11000=-3 00+2:0=-2 00+2:3=1 11001=2 110110=3 1111100=4 "
    "11111101=5 01+6:0=6 01+6:63=69 11010+5:0=70 110111+5:31=133 111000+6:0=134 111001+7:127=325 111010+8:0=326 "
    "111011+9:511=1093 111100+10:0=1094 1111101+11:2047=4165 11111110+32:0=-22 11111111+32:0=4166 10=oob",
    "0=1 10+1:1=3 1100=4 1101+1:1=6 11100+1:0=7 11101+2:3=12 111100+2:0=13 1111010+2:3=20 1111011+3:0=21 "
    "1111100+4:15=44 1111101+5:0=45 1111110+6:63=140 1111111+32:0=141 1111111+32:9=150",
    "0=1 10=2 110+1:1=4 11100=5 11101+1:1=7 111100+1:0=8 1111010=10 1111011+1:1=12 1111100+2:0=13 1111101+3:7=24 "
    "1111110+4:0=25 11111110+5:31=72 11111111+32:0=73",
    "0=1 100=2 1100=3 11100=4 1101+1:1=6 101+3:0=7 101+3:7=14 111010+1:0=15 111011+2:3=20 111100+3:0=21 "
    "111101+4:15=44 111110+5:0=45 1111110+6:63=140 1111111+32:0=141",
    "100=-2 101=-1 0=0 110=1 111=2",
    "1111100+4:0=-24 1111100+4:15=-9 111100+2:0=-8 11100+1:1=-3 1100=-2 100=-1 0=0 101=1 1101=2 11101+1:1=4 "
    "111101+2:3=8 1111101+4:15=24 1111110+32:0=-25 1111110+32:75=-100 1111111+32:0=25 1111111+32:75=100"};

// The published test sequence of Annex H.2: 256 bits coded in one context.
const Bytes kMQTestCoded = fromHex("84C73BFCE1A1430402200000410DBB86F4317FFF88FF37471ADB6ADFFFAC");
const Bytes kMQTestDecoded = fromHex("00020051000000C00352872AAAAAAAAA82C02000FCD79EF6BF7FED904F46A3BF");

template <typename MQ> class MQDecoder : public ::testing::Test {};
using MQDecoders = ::testing::Types<Jbig2MQ, JBIG2DecMQ>;
TYPED_TEST_SUITE(MQDecoder, MQDecoders);

}  // namespace

TYPED_TEST(MQDecoder, PublishedTestSequence) {
    TypeParam mq(kMQTestCoded);
    for (std::size_t i = 0; i < kMQTestDecoded.size(); ++i) {
        unsigned byte = 0;
        for (int b = 0; b < 8; ++b) byte = (byte << 1) | static_cast<unsigned>(mq.bit(0));
        EXPECT_EQ(byte, kMQTestDecoded[i]) << "byte " << i;
    }
}

TYPED_TEST(MQDecoder, EncoderRoundTripManyContexts) {
    MQEncoder enc;
    std::vector<unsigned short> ecx(16, 0);
    std::vector<int> bits;
    unsigned seed = 12345;
    for (int i = 0; i < 5000; ++i) {
        seed = seed * 1103515245 + 12345;
        const int cx = (seed >> 16) & 15;
        const int bit = ((seed >> 8) & 7) < static_cast<unsigned>(cx % 7) ? 1 : 0;
        bits.push_back(cx << 1 | bit);
        enc.encode(ecx[cx], bit);
    }
    TypeParam mq(enc.flush());
    for (std::size_t i = 0; i < bits.size(); ++i)
        ASSERT_EQ(mq.bit(static_cast<uint32_t>(bits[i] >> 1)), bits[i] & 1) << i;
}

// Integers at both ends of every range and of both signs, OOB and 7, coded
// by Annex A.2 with their own contexts; then IAIDs of code length 5.
TYPED_TEST(MQDecoder, IntegersOobAndIaids) {
    const std::vector<int64_t> values = {0,   1,   3,    4,    19,    20,    83,   84,   339,   340,   4435,    4436,
                                         65535, 1 << 20,  -1,   -3,    -4,    -19,  -20,  -83,   -84,   -339,    -340,
                                         -4435, -4436, -123456, 2000000000, -2000000000};
    MQEncoder enc;
    std::vector<unsigned short> icx(512, 0), idcx(32, 0);
    auto encodeInt = [&](int64_t value, bool oob) {
        static const struct { uint64_t low; int bits; } ranges[] = {{0, 2},   {4, 4},    {20, 6},
                                                                    {84, 8}, {340, 12}, {4436, 32}};
        unsigned prev = 1;
        auto bit = [&](unsigned b) {
            enc.encode(icx[prev], static_cast<int>(b));
            prev = prev < 256 ? (prev << 1) | b : (((prev << 1) | b) & 0x1FF) | 0x100;
        };
        const uint64_t v = oob ? 0 : static_cast<uint64_t>(value < 0 ? -value : value);
        bit(oob || value < 0);
        int r = 0;
        while (r < 5 && v >= ranges[r + 1].low) ++r;
        for (int i = 0; i < r; ++i) bit(1);  // r ones, then a zero unless it is the last range
        if (r < 5) bit(0);
        for (int i = ranges[r].bits - 1; i >= 0; --i) bit(((v - ranges[r].low) >> i) & 1);
    };
    for (int64_t v : values) encodeInt(v, false);
    encodeInt(0, true);
    encodeInt(7, false);
    const std::vector<unsigned> ids = {0, 31, 7, 16, 1, 30, 5, 5, 5};
    for (unsigned id : ids)
        for (unsigned prev = 1, i = 5; i-- > 0;) {
            enc.encode(idcx[prev], static_cast<int>((id >> i) & 1));
            prev = (prev << 1) | ((id >> i) & 1);
        }
    TypeParam mq(enc.flush());
    int got = 0;
    for (int64_t v : values) {
        ASSERT_TRUE(mq.integer(got)) << v;
        EXPECT_EQ(got, v);
    }
    got = 4242;
    EXPECT_FALSE(mq.integer(got));  // an odd call
    EXPECT_EQ(got, 4242) << "OOB leaves the value unwritten";
    ASSERT_TRUE(mq.integer(got));
    EXPECT_EQ(got, 7);
    for (unsigned id : ids) EXPECT_EQ(mq.iaid(), id);
    EXPECT_EQ(TypeParam(Bytes{0x55, 0xAA}, 0).iaid(), 0u) << "code length 0";
}

// The reader never moves past a marker (0xFF 0xAC) nor past the end; data
// that ends early reads as zero and decoding goes on without error.
TEST(MQDecoder, ReaderStopsAtMarkerAndEnd) {
    const struct { Bytes data; std::size_t position; } cases[] = {{{0x12, 0x34, 0xFF, 0xAC, 0x55, 0x66}, 4},
                                                                   {{0x84}, 1}};
    for (const auto& c : cases) {
        Jbig2MQ mq(c.data);
        for (int i = 0; i < 10000; ++i) mq.bit(0);
        EXPECT_EQ(mq.reader.getPosition(), c.position);
    }
    JBIG2DecMQ mq(Bytes{0x12, 0xFF, 0xAC, 0x34});
    for (uint32_t i = 0; i < 10000; ++i) mq.bit(i & 15);
    EXPECT_LE(mq.in.getPos(), 3u) << "JBIG2Dec's reader moved past the marker";
}

// Every standard table decodes the values of its lines in both decoders. The
// jbig2:: tables are complete prefix codes: no item is left invalid, and the
// lower-range flag sits only on the lower range line.
TEST(HuffmanTable, StandardTablesDecodeTheirValuesAndAreComplete) {
    const HuffmanParams* params[] = {&huffman_params_A, &huffman_params_B, &huffman_params_C, &huffman_params_D,
                                     &huffman_params_E, &huffman_params_F, &huffman_params_G, &huffman_params_H,
                                     &huffman_params_I, &huffman_params_J, &huffman_params_K, &huffman_params_L,
                                     &huffman_params_M, &huffman_params_N, &huffman_params_O};
    for (int t = 0; t < 15; ++t) {
        const char name = static_cast<char>('A' + t);
        SCOPED_TRACE(std::string("table ") + name);
        BitWriter w;
        std::vector<std::string> cases;
        std::istringstream in(kTableCases[t]);
        for (std::string c; in >> c; cases.push_back(c)) {
            const std::size_t plus = c.find('+'), colon = c.find(':'), eq = c.find('=');
            w.bits(c.substr(0, std::min(plus, eq)));
            if (plus != std::string::npos)
                w.value(static_cast<uint32_t>(std::stoul(c.substr(colon + 1, eq - colon - 1))),
                        std::stoi(c.substr(plus + 1, colon - plus - 1)));
        }
        HuffmanTable table(*params[t]);
        HuffmanDaraReader reader(w.bytes().data(), static_cast<uint32_t>(w.bytes().size()));
        HuffmanDecoder dec(&reader);
        JBIG2ByteInput in2(w.bytes().data(), w.bytes().size());
        JBIG2HuffmanDecoder other;
        other.setInput(&in2);
        for (const std::string& c : cases) {
            const std::string want = c.substr(c.find('=') + 1);
            bool oob = false;
            const int v = dec.decodeint(table, oob);
            int v2 = 0;
            EXPECT_EQ(oob, want == "oob") << c;
            EXPECT_EQ(other.decodeInt(&v2, jbig2StandardTable(name)), want != "oob") << c << " (JBIG2Dec)";
            if (want != "oob") {
                EXPECT_EQ(v, std::stoi(want)) << c;
                EXPECT_EQ(v2, std::stoi(want)) << c << " (JBIG2Dec)";
            }
        }
        ASSERT_LE(table.getWidth(), 16u);
        for (uint32_t i = 0; i < table.getItemCount(); ++i) {
            const HuffmanTableItem& it = table.getTableItem(i);
            EXPECT_FALSE(it.flags & HuffmanTable::FLAG_INVALID) << "item " << i;
            if (it.flags & HuffmanTable::FLAG_LOWER) { EXPECT_EQ(it.further, 32); }
        }
    }
}

TEST(HuffmanTable, BadPrefixAndARangeOfMoreThan32BitsAreInvalidData) {
    // Two lines of length 2 leave the prefix 11 without a code.
    const HuffmanLine twoLines[] = {{2, 0, 5}, {2, 0, 6}, {0, 32, -1}, {0, 32, -1}};
    HuffmanTable table(HuffmanParams{0, 4, twoLines});
    const unsigned char data[] = {0xC0};
    HuffmanDaraReader reader(data, 1);
    HuffmanDecoder dec(&reader);
    bool oob = false;
    EXPECT_EQ(thrownBy([&] { dec.decodeint(table, oob); }), JBIG2_INVALID_DATA);
    const HuffmanLine wide[] = {{1, 33, 0}, {0, 32, -1}, {0, 32, -1}};
    EXPECT_EQ(thrownBy([&] { HuffmanTable t(HuffmanParams{0, 3, wide}); }), JBIG2_INVALID_DATA);
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

// A code table segment: the lines' reader sees as many bytes as the view has
// consumed before it (9), as the code stands; the table here fits.
TEST(CodeTableSegment, BuildsLinesAndDecodes) {
    // HTOOB 0, HTPS 2, HTRS 2; lowest 0, highest 8; lines (1,2,0) (2,2,4);
    // lower and upper prefix lengths 3.
    BitWriter w;
    w.value(0x12, 8).value(0, 32).value(8, 32).value(1, 2).value(2, 2).value(2, 2).value(2, 2).value(3, 2).value(3, 2);
    StepDataReader view(w.bytes().data(), w.bytes().size());
    CodeTableSegment seg;
    seg.parse(view);
    ASSERT_EQ(seg.getLines().size(), 4u);
    EXPECT_EQ(seg.getLines()[1].rangeLow, 4);
    EXPECT_EQ(seg.getLines()[2].rangeLow, -1);
    EXPECT_EQ(seg.getLines()[3].rangeLow, 7) << "upper line low is highest minus 1, kept";
    // Codes: line 0 "0", line 1 "10", lower "110", upper "111".
    BitWriter v;
    v.bits("0").value(3, 2).bits("10").value(1, 2);
    HuffmanDaraReader reader(v.bytes().data(), static_cast<uint32_t>(v.bytes().size()));
    HuffmanDecoder dec(&reader);
    bool oob = false;
    EXPECT_EQ(dec.decodeint(seg.getTable(), oob), 3);
    EXPECT_EQ(dec.decodeint(seg.getTable(), oob), 5);
}

// Mode and run codes at the top of the word; -1 as length: not checked.
TEST(MMRDecoder, ModeAndRunCodes) {
    using M = MMRDecoder;
    const struct { int (*get)(uint32_t, int&); uint32_t word; int value, length; } cases[] = {
        {M::getMode, 0x80000000u, M::MODE_V0, 1},    {M::getMode, 0x20000000u, M::MODE_HORIZONTAL, 3},
        {M::getMode, 0x10000000u, M::MODE_PASS, 4},  {M::getMode, 0x60000000u, M::MODE_VR1, 3},
        {M::getMode, 0x40000000u, M::MODE_VL1, 3},   {M::getMode, 0x0C000000u, M::MODE_VR2, 6},
        {M::getMode, 0x08000000u, M::MODE_VL2, 6},   {M::getMode, 0x06000000u, M::MODE_VR3, 7},
        {M::getMode, 0x04000000u, M::MODE_VL3, 7},   {M::getMode, 0x00100000u, M::MODE_OTHER, -1},  // EOL
        {M::getWhileCode, 0x35000000u, 0, 8},        {M::getWhileCode, 0xD8000000u, 64, 5},
        {M::getBlackCode, 0x0DC00000u, 0, 10},       {M::getBlackCode, 0xC0000000u, 2, 2},
        {M::getWhileCode, 0x01000000u, 1792, 11},    {M::getBlackCode, 0x01F00000u, 2560, 12},
        {M::getWhileCode, 0x00000000u, -1, -1}};
    for (const auto& c : cases) {
        int length = -1;
        EXPECT_EQ(c.get(c.word, length), c.value) << std::hex << c.word;
        if (c.length >= 0) { EXPECT_EQ(length, c.length) << std::hex << c.word; }
    }
}

TEST(MMRDecoder, DecodesRows) {
    const struct { const char* what; std::string bits; int width; Rows rows; } cases[] = {
        // Line 0: H white 3 black 5, H white 4 black 2, V0. Line 1: VR1
        // against b1 = 3, VL1 against b1 = 8, then V0 three times.
        {"horizontal, then vertical modes", "001" "1000" "0011" "001" "1011" "11" "1" "011" "010" "1" "1" "1", 16,
         {"...#####....##..", "....###.....##.."}},
        // Line 0 (width 80): H white 64+1, black 3, V0. Line 1: pass (b2 =
        // 68), then V0 on b1 = 80 ends it.
        {"pass mode and make-up codes", "001" "11011" "000111" "10" "1" "0001" "1", 80,
         {std::string(65, '.') + "###" + std::string(12, '.'), std::string(80, '.')}},
        // An EOFB (or any unknown code) ends the line at once, white.
        {"EOFB leaves rows white", "001" "0111" "11" "1" "000000000001000000000001", 8,
         {"..##....", "........", "........"}}};
    for (const auto& c : cases) {
        const Bytes data = BitWriter().bits(c.bits).bytes();
        const int height = static_cast<int>(c.rows.size());
        ImageProcessor<ImageDataBits> image(static_cast<uint32_t>(c.width), static_cast<uint32_t>(height));
        MMRDecoder(image, data.data(), static_cast<unsigned>(data.size()), c.width, height).decode();
        EXPECT_EQ(fromPacked(image.getWidth(), image.getHeight(), image.getStride(), image.getData()).rows(), c.rows)
            << c.what;
    }
}
