// LZW decoding: the published example, and streams from an encoder written
// plainly here that follows the code-width rules for both /EarlyChange values.
#include <gtest/gtest.h>

#include <map>

#include "filter_test_util.h"

using namespace filtertest;
using namespace ZQGraphicService_NS;

namespace {

class BitWriter {
public:
    void put(unsigned code, unsigned width) {
        for (int b = int(width) - 1; b >= 0; --b) {
            acc_ = (acc_ << 1) | ((code >> b) & 1);
            if (++n_ == 8) {
                out_.push_back(static_cast<unsigned char>(acc_));
                acc_ = 0;
                n_ = 0;
            }
        }
    }
    Bytes finish() {
        if (n_) out_.push_back(static_cast<unsigned char>(acc_ << (8 - n_)));
        n_ = 0;
        acc_ = 0;
        return out_;
    }

private:
    Bytes out_;
    unsigned acc_ = 0, n_ = 0;
};

Bytes packCodes(const std::vector<unsigned>& codes, unsigned width = 9) {
    BitWriter w;
    for (unsigned c : codes) w.put(c, width);
    return w.finish();
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
    return w.finish();
}

FilterPropTD lzwProps(int early, int predictor = 0, int colors = 1, int bpc = 8, int columns = 0) {
    FilterPropTD p = props(FILTER_LZW, predictor, colors, bpc, columns);
    p.earlyChange = early;
    return p;
}

}  // namespace

TEST(LZW, PublishedExample) {
    // The reference example: "-----A---B" encodes as 256 45 258 258 65 259 66 257.
    Bytes codes = packCodes({256, 45, 258, 258, 65, 259, 66, 257});
    EXPECT_EQ(text(decode(codes, lzwProps(1)).data), "-----A---B");
    EXPECT_EQ(text(decode(codes, lzwProps(0)).data), "-----A---B");
    EXPECT_EQ(lzwEncode(bytes("-----A---B"), true), codes);
    // Without the leading clear and without the end code.
    EXPECT_EQ(text(decode(packCodes({45, 258, 258, 65, 259, 66}), lzwProps(1)).data), "-----A---B");
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
            Result wrong = decode(enc, lzwProps(1 - early));
            EXPECT_NE(wrong.data, data) << early;
        }
    }
}

TEST(LZW, TruncatedAndCorrupt) {
    Bytes data = sampleText(50000, 4);
    Bytes enc = lzwEncode(data, true);
    // No end code: everything decoded is returned.
    EXPECT_EQ(decode(lzwEncode(data, true, false), lzwProps(1)).data, data);
    // Cut in the middle: a prefix.
    Result cut = decode(Bytes(enc.begin(), enc.begin() + enc.size() / 3), lzwProps(1));
    ASSERT_EQ(cut.rc, ZQ_OK);
    ASSERT_GT(cut.data.size(), 0u);
    EXPECT_TRUE(std::equal(cut.data.begin(), cut.data.end(), data.begin()));
    // A code beyond the table before any output, or codes 256/257 misused.
    EXPECT_EQ(decode(packCodes({256, 300}), lzwProps(1)).rc, ZQ_CORRUPT);
    EXPECT_EQ(decode(packCodes({256, 258}), lzwProps(1)).rc, ZQ_CORRUPT);
    // After output, damage ends decoding with what was produced.
    Result partial = decode(packCodes({256, 65, 66, 400, 67}), lzwProps(1));
    EXPECT_EQ(partial.rc, ZQ_OK);
    EXPECT_EQ(text(partial.data), "AB");
    // Data after the end code is ignored.
    EXPECT_EQ(text(decode(packCodes({256, 72, 105, 257, 65, 66}), lzwProps(1)).data), "Hi");
}

TEST(LZW, WithPredictors) {
    // Four rows of 5 RGB pixels, each row PNG "Up" filtered.
    const int columns = 5, colors = 3, rowBytes = columns * colors;
    Bytes image = randomBytes(4 * rowBytes, 11), encoded;
    for (int r = 0; r < 4; ++r) {
        encoded.push_back(2);
        for (int i = 0; i < rowBytes; ++i) {
            unsigned char up = r ? image[(r - 1) * rowBytes + i] : 0;
            encoded.push_back(static_cast<unsigned char>(image[r * rowBytes + i] - up));
        }
    }
    EXPECT_EQ(decode(lzwEncode(encoded, true), lzwProps(1, 12, colors, 8, columns)).data, image);
    // TIFF predictor 2 on one 8-bit grey row.
    Bytes row = {10, 1, 1, 1, 250, 10};
    EXPECT_EQ(decode(lzwEncode(row, false), lzwProps(0, 2, 1, 8, 6)).data, (Bytes{10, 11, 12, 13, 7, 17}));
}
