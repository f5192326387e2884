// Flate decoding throughput: Zq_InflateStream against zlib's uncompress() on
// the same data, for text-like content and for a PNG-predicted image (where
// the library also undoes the predictor). Throughput is reported as decoded
// bytes per second.
//
// The benchmark links only the PDFKilnPage library, so zlib's entry points
// are looked up in the already-loaded libz through the dynamic loader.
#include <benchmark/benchmark.h>

#include <dlfcn.h>

#include <cstdint>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "ZQGraphicService/ZqFilter.h"

using namespace ZQGraphicService_NS;

namespace {

using Bytes = std::vector<unsigned char>;
using CompressFn = int (*)(unsigned char*, unsigned long*, const unsigned char*, unsigned long, int);
using UncompressFn = int (*)(unsigned char*, unsigned long*, const unsigned char*, unsigned long);

struct Zlib {
    CompressFn compress2 = nullptr;
    UncompressFn uncompress = nullptr;
    Zlib() {
        compress2 = reinterpret_cast<CompressFn>(dlsym(RTLD_DEFAULT, "compress2"));
        uncompress = reinterpret_cast<UncompressFn>(dlsym(RTLD_DEFAULT, "uncompress"));
        if (!compress2 || !uncompress) {
            if (void* h = dlopen("libz.so.1", RTLD_NOW)) {
                compress2 = reinterpret_cast<CompressFn>(dlsym(h, "compress2"));
                uncompress = reinterpret_cast<UncompressFn>(dlsym(h, "uncompress"));
            }
        }
    }
};

const Zlib& zlib() {
    static Zlib z;
    return z;
}

Bytes compress(const Bytes& in) {
    unsigned long n = in.size() + in.size() / 1000 + 64;
    Bytes out(n);
    zlib().compress2(out.data(), &n, in.data(), in.size(), 6);
    out.resize(n);
    return out;
}

// Content-stream-like text, 8 MiB.
const Bytes& textPlain() {
    static Bytes data = [] {
        static const char* words[] = {"BT ", "/F1 12 Tf ", "72 712 Td ", "(Lorem ipsum dolor) Tj ", "ET\n",
                                      "q 0.5 0 0 0.5 0 0 cm ", "/Im1 Do Q\n", "0.2 0.4 0.6 rg ", "re f\n", "1 w "};
        std::mt19937 rng(42);
        Bytes b;
        while (b.size() < (8u << 20)) {
            const char* w = words[rng() % 10];
            b.insert(b.end(), w, w + std::char_traits<char>::length(w));
            if (rng() % 7 == 0) b.push_back(static_cast<unsigned char>('0' + rng() % 10));
        }
        return b;
    }();
    return data;
}

constexpr int kWidth = 1600, kHeight = 1200, kColors = 3;

// A smooth RGB image with noise, PNG "Up"/"Paeth" filtered row by row, the way
// image XObjects and cross-reference streams are commonly written.
const Bytes& imagePredicted() {
    static Bytes data = [] {
        const std::size_t rb = std::size_t(kWidth) * kColors;
        std::mt19937 rng(7);
        Bytes img(rb * kHeight);
        for (int y = 0; y < kHeight; ++y)
            for (int x = 0; x < kWidth; ++x)
                for (int c = 0; c < kColors; ++c)
                    img[(std::size_t(y) * kWidth + x) * kColors + c] =
                        static_cast<unsigned char>((x / 7 + y / 5 + c * 40) + rng() % 4);
        Bytes out;
        for (int y = 0; y < kHeight; ++y) {
            const unsigned char type = (y % 2) ? 2 : 4;
            out.push_back(type);
            for (std::size_t i = 0; i < rb; ++i) {
                int a = i >= kColors ? img[y * rb + i - kColors] : 0;
                int b = y ? img[(y - 1) * rb + i] : 0;
                int c = (y && i >= kColors) ? img[(y - 1) * rb + i - kColors] : 0;
                int pred = b;
                if (type == 4) {
                    int p = a + b - c, pa = std::abs(p - a), pb = std::abs(p - b), pc = std::abs(p - c);
                    pred = (pa <= pb && pa <= pc) ? a : (pb <= pc ? b : c);
                }
                out.push_back(static_cast<unsigned char>(img[y * rb + i] - pred));
            }
        }
        return out;
    }();
    return data;
}

void runZq(benchmark::State& state, const Bytes& z, FilterPropTD prop, std::size_t expected) {
    FilterMemBlock in{};
    in.data = const_cast<unsigned char*>(z.data());
    in.length = in.capacity = int32_t(z.size());
    for (auto _ : state) {
        FilterMemBlock out;
        Zq_MemInit(&out);
        if (Zq_InflateStream(&in, &out, &prop) != ZQ_OK || std::size_t(out.length) != expected) {
            state.SkipWithError("decode failed");
            break;
        }
        benchmark::DoNotOptimize(out.data);
        Zq_MemClear(&out);
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(expected));
}

void runZlib(benchmark::State& state, const Bytes& z, std::size_t expected) {
    Bytes out(expected);
    for (auto _ : state) {
        unsigned long n = out.size();
        if (zlib().uncompress(out.data(), &n, z.data(), z.size()) != 0 || n != expected) {
            state.SkipWithError("uncompress failed");
            break;
        }
        benchmark::DoNotOptimize(out.data());
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(expected));
}

FilterPropTD flateProps(int predictor, int colors, int columns) {
    FilterPropTD p{};
    p.type = FILTER_FLATE;
    p.predictor = predictor;
    p.colors = colors;
    p.bitsPerComponent = 8;
    p.columns = columns;
    p.aux16 = 100;
    return p;
}

void BM_Text_ZqInflate(benchmark::State& state) {
    static const Bytes z = compress(textPlain());
    runZq(state, z, flateProps(0, 1, 0), textPlain().size());
}
void BM_Text_ZlibUncompress(benchmark::State& state) {
    static const Bytes z = compress(textPlain());
    runZlib(state, z, textPlain().size());
}
// The predicted image: the library returns the unfiltered pixels; zlib alone
// returns the filtered rows (one byte per row more) without undoing them.
void BM_PNGImage_ZqInflatePredictor(benchmark::State& state) {
    static const Bytes z = compress(imagePredicted());
    runZq(state, z, flateProps(15, kColors, kWidth), std::size_t(kWidth) * kColors * kHeight);
}
void BM_PNGImage_ZqInflateOnly(benchmark::State& state) {
    static const Bytes z = compress(imagePredicted());
    runZq(state, z, flateProps(0, 1, 0), imagePredicted().size());
}
void BM_PNGImage_ZlibUncompress(benchmark::State& state) {
    static const Bytes z = compress(imagePredicted());
    runZlib(state, z, imagePredicted().size());
}

}  // namespace

BENCHMARK(BM_Text_ZqInflate)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Text_ZlibUncompress)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_PNGImage_ZqInflatePredictor)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_PNGImage_ZqInflateOnly)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_PNGImage_ZlibUncompress)->Unit(benchmark::kMillisecond);
BENCHMARK_MAIN();
