// LZW decoding: the published example, and streams from an encoder written
// plainly here that follows the code-width rules for both /EarlyChange values.
#include <gtest/gtest.h>

#include <map>

#include "filter_test_util.h"

using namespace filtertest;
using namespace ZQGraphicService_NS;

namespace {

// Codes written most significant bit first; the last byte is padded with 0.
struct BitWriter {
    Bytes out;
    unsigned bits = 0;
    void put(unsigned code, unsigned width) {
        for (int b = int(width) - 1; b >= 0; --b, ++bits) {
            if (bits % 8 == 0) out.push_back(0);
            if ((code >> b) & 1) out.back() |= static_cast<unsigned char>(0x80 >> (bits % 8));
        }
    }
};

std::string packCodes(const std::vector<unsigned>& codes) {
    BitWriter w;
    for (unsigned c : codes) w.put(c, 9);
    return text(w.out);
}

// LZW encoder. The code width follows the decoder's table: the decoder adds
// an entry for every code after the first following a clear, and widens the
// codes once (entries + earlyChange) reaches the next power of two. The
// encoder emits a clear whenever its own table fills up.
Bytes lzwEncode(const Bytes& in, bool early, bool writeEnd = true) {
    BitWriter w;
    std::map<std::pair<unsigned, unsigned char>, unsigned> dict;
    unsigned next = 258, width = 9, decoderNext = 258;
    bool firstAfterClear = true;
    auto emit = [&](unsigned code) {
        w.put(code, width);
        if (code == 256) {
            dict.clear();
            next = decoderNext = 258;
            width = 9;
            firstAfterClear = true;
            return;
        }
        if (!firstAfterClear && decoderNext < 4096) {
            ++decoderNext;
            if (decoderNext + (early ? 1 : 0) >= (1u << width) && width < 12) ++width;
        }
        firstAfterClear = false;
    };
    emit(256);
    int cur = -1;
    for (unsigned char c : in) {
        if (cur < 0) {
            cur = c;
            continue;
        }
        auto it = dict.find({unsigned(cur), c});
        if (it != dict.end()) {
            cur = int(it->second);
            continue;
        }
        emit(unsigned(cur));
        dict[{unsigned(cur), c}] = next++;
        cur = c;
        if (next == 4096) emit(256);
    }
    if (cur >= 0) emit(unsigned(cur));
    if (writeEnd) emit(257);
    return w.out;
}

FilterPropTD lzwProps(int early, int predictor = 0, int colors = 1, int bpc = 8, int columns = 0) {
    FilterPropTD p = props(FILTER_LZW, predictor, colors, bpc, columns);
    p.earlyChange = early;
    return p;
}

}  // namespace

TEST(LZW, DecodeRules) {
    // The reference example: "-----A---B" encodes as 256 45 258 258 65 259 66 257.
    const std::string example = packCodes({256, 45, 258, 258, 65, 259, 66, 257});
    EXPECT_EQ(text(lzwEncode(bytes("-----A---B"), true)), example);
    const DecodeCase cases[] = {
        {lzwProps(1), example, ZQ_OK, "-----A---B"},
        {lzwProps(0), example, ZQ_OK, "-----A---B"},
        // Without the leading clear and without the end code.
        {lzwProps(1), packCodes({45, 258, 258, 65, 259, 66}), ZQ_OK, "-----A---B"},
        // A code beyond the table before any output, or codes 256/257 misused.
        {lzwProps(1), packCodes({256, 300}), ZQ_CORRUPT, ""},
        {lzwProps(1), packCodes({256, 258}), ZQ_CORRUPT, ""},
        // After output, damage ends decoding with what was produced.
        {lzwProps(1), packCodes({256, 65, 66, 400, 67}), ZQ_OK, "AB"},
        // Data after the end code is ignored.
        {lzwProps(1), packCodes({256, 72, 105, 257, 65, 66}), ZQ_OK, "Hi"},
        // TIFF predictor 2 on one 8-bit grey row.
        {lzwProps(0, 2, 1, 8, 6), text(lzwEncode({10, 1, 1, 1, 250, 10}, false)), ZQ_OK, "\x0a\x0b\x0c\x0d\x07\x11"},
    };
    expectDecodes(cases);
}

TEST(LZW, EarlyChangeBothWaysAcrossAllWidths) {
    // Large enough to pass 9..12-bit codes and several table resets.
    for (uint32_t seed : {1u, 2u}) {
        Bytes data = seed == 1 ? sampleText(200000, seed) : randomBytes(30000, seed);
        for (int early : {0, 1}) {
            Bytes enc = lzwEncode(data, early == 1);
            Result r = decode(enc, lzwProps(early));
            ASSERT_EQ(r.rc, ZQ_OK) << early;
            EXPECT_EQ(r.data, data) << "early " << early << " seed " << seed;
            // The other width rule misreads the stream once codes widen.
            EXPECT_NE(decode(enc, lzwProps(1 - early)).data, data) << early;
        }
    }
}

TEST(LZW, TruncatedAndPredicted) {
    Bytes data = sampleText(50000, 4);
    Bytes enc = lzwEncode(data, true);
    // No end code: everything decoded is returned.
    EXPECT_EQ(decode(lzwEncode(data, true, false), lzwProps(1)).data, data);
    // Cut in the middle: a prefix.
    Result cut = decode(Bytes(enc.begin(), enc.begin() + enc.size() / 3), lzwProps(1));
    ASSERT_EQ(cut.rc, ZQ_OK);
    ASSERT_GT(cut.data.size(), 0u);
    EXPECT_TRUE(std::equal(cut.data.begin(), cut.data.end(), data.begin()));

    // Four rows of 5 RGB pixels, each row PNG "Up" filtered.
    const int columns = 5, colors = 3, rowBytes = columns * colors;
    Bytes image = randomBytes(4 * rowBytes, 11), encoded;
    for (int r = 0; r < 4; ++r) {
        encoded.push_back(2);
        for (int i = 0; i < rowBytes; ++i)
            encoded.push_back(static_cast<unsigned char>(image[r * rowBytes + i] - (r ? image[(r - 1) * rowBytes + i] : 0)));
    }
    EXPECT_EQ(decode(lzwEncode(encoded, true), lzwProps(1, 12, colors, 8, columns)).data, image);
}
