// Flate decoding and encoding, leniency on damaged streams, and the output
// bound.
#include <gtest/gtest.h>

#include "filter_test_util.h"

using namespace filtertest;
using namespace ZQGraphicService_NS;

TEST(Flate, RoundTripsWithZlib) {
    for (std::size_t n : {std::size_t(0), std::size_t(1), std::size_t(1000), std::size_t(300000)})
        for (uint32_t seed : {1u, 2u}) {
            Bytes data = seed == 1 ? sampleText(n, seed) : randomBytes(n, seed);
            Result d = decode(zlibCompress(data), FILTER_FLATE);
            ASSERT_EQ(d.rc, ZQ_OK) << n;
            EXPECT_EQ(d.data, data) << n;
        }
}

TEST(Flate, EncodeModeIsTheZlibLevel) {
    Bytes data = sampleText(100000);
    std::size_t stored = 0, best = 0;
    for (int mode : {-1, 0, 1, 2, 6, 9, 42, -7}) {
        Result e = encode(data, FILTER_FLATE, mode);
        ASSERT_EQ(e.rc, ZQ_OK) << mode;
        // zlib itself must accept the output, checksum included.
        Bytes back(data.size());
        uLongf n = back.size();
        ASSERT_EQ(uncompress(back.data(), &n, e.data.data(), e.data.size()), Z_OK) << mode;
        back.resize(n);
        EXPECT_EQ(back, data) << mode;
        if (mode == 0) stored = e.data.size();
        if (mode == 9) best = e.data.size();
    }
    EXPECT_GT(stored, data.size());  // level 0 stores
    EXPECT_LT(best * 5, data.size());
    Result empty = encode(Bytes{}, FILTER_FLATE, 6);
    ASSERT_EQ(empty.rc, ZQ_OK);
    EXPECT_EQ(decode(empty.data, FILTER_FLATE).data, Bytes{});
}

TEST(Flate, LenientOnDamagedStreams) {
    Bytes data = sampleText(200000, 3);
    Bytes z = zlibCompress(data);
    Bytes trailing = z, badAdler = z, damaged = z;
    for (char c : std::string("\r\nendstream garbage")) trailing.push_back(static_cast<unsigned char>(c));
    badAdler.back() ^= 0x55;
    // Trailing garbage, a missing or wrong adler32, and raw deflate without
    // the zlib wrapper all give the whole data.
    for (const Bytes& in : {trailing, Bytes(z.begin(), z.end() - 4), badAdler, zlibCompress(data, 9, -15)}) {
        Result r = decode(in, FILTER_FLATE);
        EXPECT_EQ(r.rc, ZQ_OK);
        EXPECT_EQ(r.data, data);
    }
    // Truncation yields a correct prefix of the data.
    for (std::size_t cut : {z.size() / 2, z.size() / 10, std::size_t(400)}) {
        Result t = decode(Bytes(z.begin(), z.begin() + cut), FILTER_FLATE);
        ASSERT_EQ(t.rc, ZQ_OK) << cut;
        ASSERT_LE(t.data.size(), data.size());
        EXPECT_GT(t.data.size(), 0u);
        EXPECT_TRUE(std::equal(t.data.begin(), t.data.end(), data.begin())) << cut;
    }
    // Only the header: a stream cut off before any output.
    EXPECT_EQ(decode(Bytes(z.begin(), z.begin() + 2), FILTER_FLATE).data, Bytes{});
    // Damage in the middle: the good prefix is returned.
    for (std::size_t i = z.size() / 2; i < z.size() / 2 + 64; ++i) damaged[i] = 0xff;
    Result dm = decode(damaged, FILTER_FLATE);
    EXPECT_EQ(dm.rc, ZQ_OK);
    EXPECT_GT(dm.data.size(), 0u);
    EXPECT_LT(dm.data.size(), data.size() + 1);
}

TEST(Flate, CorruptWithoutOutputIsAnError) {
    const FilterPropTD flate = props(FILTER_FLATE);
    const DecodeCase cases[] = {
        {flate, "this is not flate data", ZQ_CORRUPT, ""},
        {flate, "\x78\x9c\xff\xff\xff\xff", ZQ_CORRUPT, ""},
        {flate, "\x78", ZQ_CORRUPT, ""},  // no header, no output
        // A preset-dictionary stream cannot be decoded without the dictionary.
        {flate, text(zlibCompress(sampleText(1000), 6, 15, "dictionary")), ZQ_CORRUPT, ""},
    };
    expectDecodes(cases);
}

TEST(Flate, RandomGarbageNeverCrashes) {
    // Every outcome is allowed except crashing; sanitizer builds check memory.
    Bytes z = zlibCompress(sampleText(20000, 9));
    std::mt19937 rng(5);
    for (int i = 0; i < 300; ++i) {
        Bytes m = z;
        for (int k = 0; k < 1 + i % 8; ++k) m[rng() % m.size()] = static_cast<unsigned char>(rng());
        m.resize(rng() % (m.size() + 1));
        for (int kind = 1; kind <= 7; ++kind) {
            Result r = decode(m, props(kind, kind == 1 ? 12 : 0, 3, 8, 7));
            EXPECT_TRUE(r.rc == ZQ_OK || r.rc == ZQ_CORRUPT) << r.rc;
        }
    }
}

// Once the window is all zeros, the sync-flushed encoding of a run of zeros
// decodes the same wherever it is placed, so repeating it builds a stream of
// `chunks` x 8 MiB of zeros from a few KiB per chunk.
static Bytes zeroBomb(std::size_t chunks) {
    const std::size_t chunk = 8u << 20;
    Bytes zeros(chunk, 0);
    z_stream zs{};
    deflateInit(&zs, 9);
    auto run = [&](int flush, std::size_t n) {
        Bytes out(deflateBound(&zs, n) + 64);
        zs.next_in = zeros.data();
        zs.avail_in = uInt(n);
        zs.next_out = out.data();
        zs.avail_out = uInt(out.size());
        deflate(&zs, flush);
        out.resize(out.size() - zs.avail_out);
        return out;
    };
    Bytes bomb = run(Z_SYNC_FLUSH, chunk), repeat = run(Z_SYNC_FLUSH, chunk), tail = run(Z_FINISH, 0);
    deflateEnd(&zs);
    for (std::size_t i = 1; i < chunks; ++i) bomb.insert(bomb.end(), repeat.begin(), repeat.end());
    bomb.insert(bomb.end(), tail.begin(), tail.end());
    return bomb;
}

TEST(Flate, OutputBoundStopsDecompressionBombs) {
    Result r = decode(zeroBomb(3), FILTER_FLATE);
    ASSERT_EQ(r.rc, ZQ_OK);
    EXPECT_EQ(r.data, Bytes(std::size_t(24) << 20, 0));

    Bytes bomb = zeroBomb(kMaxStageOutput / (8u << 20) + 1);
    EXPECT_LT(bomb.size(), std::size_t(4) << 20);
    EXPECT_EQ(decode(bomb, FILTER_FLATE).rc, ZQ_TOO_LARGE);
}
