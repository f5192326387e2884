// Helpers of the filter tests: the C entry points on vectors, inputs made with zlib, tables of small decoding cases.
#ifndef PDFKILN_TESTS_FILTER_TEST_UTIL_H
#define PDFKILN_TESTS_FILTER_TEST_UTIL_H

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include <zlib.h>

#include "ZQGraphicService/ZqFilter.h"

namespace filtertest {

using Bytes = std::vector<unsigned char>;
using ZQGraphicService_NS::FilterMemBlock;
using ZQGraphicService_NS::FilterPropTD;

// A record as the library's caller fills it for a stage: Flate/LZW defaults applied, columns 0 when absent.
inline FilterPropTD props(int type, int predictor = 0, int colors = 1, int bpc = 8, int columns = 0) {
    FilterPropTD p{};
    p.type = type;
    p.predictor = predictor;
    p.colors = colors;
    p.bitsPerComponent = bpc;
    p.columns = columns;
    p.aux16 = 100;
    p.earlyChange = 1;
    return p;
}

struct Result {
    int rc;
    Bytes data;
};

inline FilterMemBlock inputBlock(const Bytes& in) {
    FilterMemBlock b{};
    b.capacity = b.length = static_cast<int32_t>(in.size());
    b.data = const_cast<unsigned char*>(in.data());
    return b;
}

inline std::string blockText(const FilterMemBlock& b) { return std::string(reinterpret_cast<char*>(b.data), b.length); }

// Decodes with `prop`, or encodes with `mode` when `encodeMode` is given.
inline Result run(const Bytes& in, FilterPropTD prop, const int* encodeMode = nullptr) {
    FilterMemBlock src = inputBlock(in), out;
    Zq_MemInit(&out);
    Result r{encodeMode ? Zq_DeflateStream(&src, &out, &prop, *encodeMode) : Zq_InflateStream(&src, &out, &prop), {}};
    if (r.rc == 0) r.data.assign(out.data, out.data + out.length);
    Zq_MemClear(&out);
    return r;
}

inline Result decode(const Bytes& in, FilterPropTD prop) { return run(in, prop); }
inline Result decode(const Bytes& in, int type) { return run(in, props(type)); }

inline Result encode(const Bytes& in, int type, int mode = 2) {
    FilterPropTD prop{};
    prop.type = type;
    return run(in, prop, &mode);
}

inline Bytes bytes(const std::string& s) { return Bytes(s.begin(), s.end()); }
inline std::string text(const Bytes& b) { return std::string(b.begin(), b.end()); }

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

inline Bytes randomBytes(std::size_t n, uint32_t seed) {
    std::mt19937 rng(seed);
    Bytes b(n);
    for (auto& c : b) c = static_cast<unsigned char>(rng());
    return b;
}

// Text-like data that compresses well but not trivially.
inline Bytes sampleText(std::size_t n, uint32_t seed = 1) {
    static const char* words[] = {"stream ", "endobj ", "BT ", "/F1 12 Tf ", "0 0 1 rg ", "(Hello) Tj ",
                                  "ET\n", "q 1 0 0 1 72 720 cm ", "Q\n", "re f\n"};
    std::mt19937 rng(seed);
    std::string b;
    while (b.size() < n) b += words[rng() % 10];
    b.resize(n);
    return bytes(b);
}

// zlib's deflate: windowBits -15 writes raw deflate (no header or checksum); `dict` sets a preset dictionary.
inline Bytes zlibCompress(const Bytes& in, int level = Z_DEFAULT_COMPRESSION, int windowBits = 15,
                          const std::string& dict = "") {
    z_stream zs{};
    deflateInit2(&zs, level, Z_DEFLATED, windowBits, 8, Z_DEFAULT_STRATEGY);
    if (!dict.empty()) deflateSetDictionary(&zs, reinterpret_cast<const Bytef*>(dict.data()), uInt(dict.size()));
    Bytes out(deflateBound(&zs, in.size()) + 16);
    zs.next_in = const_cast<Bytef*>(in.data());
    zs.avail_in = static_cast<uInt>(in.size());
    zs.next_out = out.data();
    zs.avail_out = static_cast<uInt>(out.size());
    deflate(&zs, Z_FINISH);
    out.resize(zs.total_out);
    deflateEnd(&zs);
    return out;
}
inline std::string z(const std::string& s) { return text(zlibCompress(bytes(s))); }

// One small decoding case: input bytes, the expected code and, on success, the exact output.
struct DecodeCase {
    FilterPropTD prop;
    std::string in;
    int rc;
    std::string out;
};

template <std::size_t N>
void expectDecodes(const DecodeCase (&cases)[N]) {
    for (std::size_t i = 0; i < N; ++i) {
        const Result r = decode(bytes(cases[i].in), cases[i].prop);
        EXPECT_EQ(r.rc, cases[i].rc) << "case " << i;
        if (cases[i].rc == 0 && r.rc == 0) {
            EXPECT_EQ(text(r.data), cases[i].out) << "case " << i;
        }
    }
}

}  // namespace filtertest

#endif
