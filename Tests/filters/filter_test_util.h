// Helpers shared by the filter tests: call the C entry points with vectors.
#ifndef PDFKILN_TESTS_FILTER_TEST_UTIL_H
#define PDFKILN_TESTS_FILTER_TEST_UTIL_H

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

// A record as the library's caller fills it for a stage: Flate/LZW defaults
// applied, columns left at 0 when absent.
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
    b.capacity = static_cast<int32_t>(in.size());
    b.length = static_cast<int32_t>(in.size());
    b.data = const_cast<unsigned char*>(in.data());
    return b;
}

inline Result decode(const Bytes& in, FilterPropTD prop) {
    FilterMemBlock src = inputBlock(in);
    FilterMemBlock out;
    Zq_MemInit(&out);
    Result r{Zq_InflateStream(&src, &out, &prop), {}};
    if (r.rc == 0) r.data.assign(out.data, out.data + out.length);
    Zq_MemClear(&out);
    return r;
}

inline Result decode(const Bytes& in, int type) { return decode(in, props(type)); }

inline Result encode(const Bytes& in, int type, int mode = 2) {
    FilterMemBlock src = inputBlock(in);
    FilterMemBlock out;
    Zq_MemInit(&out);
    FilterPropTD prop{};
    prop.type = type;
    Result r{Zq_DeflateStream(&src, &out, &prop, mode), {}};
    if (r.rc == 0) r.data.assign(out.data, out.data + out.length);
    Zq_MemClear(&out);
    return r;
}

inline Bytes bytes(const std::string& s) { return Bytes(s.begin(), s.end()); }
inline std::string text(const Bytes& b) { return std::string(b.begin(), b.end()); }

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
    Bytes b;
    while (b.size() < n) {
        const char* w = words[rng() % 10];
        b.insert(b.end(), w, w + std::char_traits<char>::length(w));
    }
    b.resize(n);
    return b;
}

inline Bytes zlibCompress(const Bytes& in, int level = Z_DEFAULT_COMPRESSION) {
    uLongf n = compressBound(in.size());
    Bytes out(n);
    if (compress2(out.data(), &n, in.data(), in.size(), level) != Z_OK) return {};
    out.resize(n);
    return out;
}

// Raw deflate (no zlib header or checksum).
inline Bytes rawDeflate(const Bytes& in) {
    z_stream zs{};
    deflateInit2(&zs, 9, Z_DEFLATED, -15, 8, Z_DEFAULT_STRATEGY);
    Bytes out(deflateBound(&zs, in.size()));
    zs.next_in = const_cast<Bytef*>(in.data());
    zs.avail_in = static_cast<uInt>(in.size());
    zs.next_out = out.data();
    zs.avail_out = static_cast<uInt>(out.size());
    deflate(&zs, Z_FINISH);
    out.resize(zs.total_out);
    deflateEnd(&zs);
    return out;
}

}  // namespace filtertest

#endif
