// The embedded JBIG2 form with /JBIG2Globals, as PDF carries it: every file
// of the corpus list serenity/decodes-to-bitmap.txt, split into globals (its
// symbol and pattern dictionaries and code tables) and page data, decoded in
// process by Jbig2ToRGB_New (JBIG2Dec) and, beside it on the same streams
// and also in process, by jbig2dec's library (libjbig2dec.so.0, opened with
// dlopen, so the benchmark needs no headers or link flags of its own). The
// counter ratio_ours_over_jbig2dec is our time over jbig2dec's for the same
// work, in thread CPU time (so that other load on the machine does not
// enter it; ratio_wall is the same in wall time); both include handing out
// the page (jbig2dec's page_out, our malloc block and its inversion).
//   Benchmarks/bench_jbig2_embedded --benchmark_counters_tabular=true
#include <benchmark/benchmark.h>

#include <chrono>
#include <ctime>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "jbig2/jbig2streamdec.h"

namespace {

const std::string kDir = std::string(PDFKILN_CORPUS_DIR) + "/jbig2/serenity";
const int kRounds = 20;

struct Stream {
    std::string name;
    std::string globals;
    std::string data;
};

uint32_t be32(const std::string& d, std::size_t p) {
    return (static_cast<uint32_t>(static_cast<unsigned char>(d[p])) << 24) |
           (static_cast<uint32_t>(static_cast<unsigned char>(d[p + 1])) << 16) |
           (static_cast<uint32_t>(static_cast<unsigned char>(d[p + 2])) << 8) |
           static_cast<unsigned char>(d[p + 3]);
}

// A file's segments (ISO/IEC 14492 7.2, both organisations) split for PDF:
// types 0, 16 and 53 to the globals, the rest but end of file to the data.
bool split(const std::string& d, Stream& s) {
    struct Seg {
        int type;
        std::size_t hs, he;
        uint32_t len;
    };
    std::size_t p = 0;
    bool random = false;
    static const char id[8] = {'\x97', 'J', 'B', '2', '\r', '\n', '\x1a', '\n'};
    if (d.size() >= 9 && std::memcmp(d.data(), id, 8) == 0) {
        const unsigned flags = static_cast<unsigned char>(d[8]);
        random = !(flags & 1);
        p = 9 + ((flags & 2) ? 0 : 4);
    }
    std::vector<Seg> heads;
    auto put = [&](int type, std::size_t hs, std::size_t he, std::size_t ds, std::size_t de) {
        if (type == 51) return;
        std::string& to = (type == 0 || type == 16 || type == 53) ? s.globals : s.data;
        to.append(d, hs, he - hs);
        to.append(d, ds, de - ds);
    };
    while (p + 11 <= d.size()) {
        const std::size_t hs = p;
        const uint32_t num = be32(d, p);
        const unsigned flags = static_cast<unsigned char>(d[p + 4]);
        p += 5;
        uint32_t count = static_cast<unsigned char>(d[p]) >> 5;
        if (count == 7) {
            count = be32(d, p) & 0x1fffffff;
            p += 4 + (count + 8) / 8;
        } else {
            p += 1;
        }
        p += count * (num <= 256 ? 1 : num <= 65536 ? 2 : 4) + ((flags & 0x40) ? 4 : 1);
        if (p + 4 > d.size()) return false;
        uint32_t len = be32(d, p);
        p += 4;
        const int type = flags & 0x3f;
        if (random) {
            heads.push_back(Seg{type, hs, p, len});
            if (type == 51) break;
            continue;
        }
        if (len == 0xffffffffu) {
            const bool mmr = p + 17 < d.size() && (static_cast<unsigned char>(d[p + 17]) & 1);
            const std::size_t e = d.find(mmr ? std::string("\0\0", 2) : std::string("\xff\xac"), p + 18);
            if (e == std::string::npos) return false;
            len = static_cast<uint32_t>(e + 6 - p);
        }
        if (p + len > d.size()) return false;
        put(type, hs, p, p, p + len);
        p += len;
        if (type == 51) break;
    }
    for (const Seg& h : heads) {
        if (p + h.len > d.size()) return false;
        put(h.type, h.hs, h.he, p, p + h.len);
        p += h.len;
    }
    return true;
}

const std::vector<Stream>& streams() {
    static std::vector<Stream> all = [] {
        std::vector<Stream> out;
        std::ifstream list(kDir + "/decodes-to-bitmap.txt");
        std::string name;
        while (std::getline(list, name)) {
            if (name.empty() || name[0] == '#') continue;
            std::ifstream f(kDir + "/" + name, std::ios::binary);
            const std::string bytes((std::istreambuf_iterator<char>(f)), std::istreambuf_iterator<char>());
            Stream s;
            s.name = name;
            if (split(bytes, s)) out.push_back(std::move(s));
        }
        return out;
    }();
    return all;
}

// jbig2dec's library, by dlopen.
struct Jbig2decLib {
    using CtxNew = void* (*)(void*, int, void*, void (*)(void*, const char*, int, uint32_t), void*, int, int);
    CtxNew ctxNew = nullptr;
    int (*dataIn)(void*, const unsigned char*, std::size_t) = nullptr;
    void* (*makeGlobalCtx)(void*) = nullptr;
    void* (*globalCtxFree)(void*) = nullptr;
    int (*completePage)(void*) = nullptr;
    void* (*pageOut)(void*) = nullptr;
    void (*releasePage)(void*, void*) = nullptr;
    void* (*ctxFree)(void*) = nullptr;
    bool ok = false;

    Jbig2decLib() {
        void* h = dlopen("libjbig2dec.so.0", RTLD_NOW | RTLD_LOCAL);
        if (!h) return;
        ctxNew = reinterpret_cast<CtxNew>(dlsym(h, "jbig2_ctx_new_imp"));
        dataIn = reinterpret_cast<int (*)(void*, const unsigned char*, std::size_t)>(dlsym(h, "jbig2_data_in"));
        makeGlobalCtx = reinterpret_cast<void* (*)(void*)>(dlsym(h, "jbig2_make_global_ctx"));
        globalCtxFree = reinterpret_cast<void* (*)(void*)>(dlsym(h, "jbig2_global_ctx_free"));
        completePage = reinterpret_cast<int (*)(void*)>(dlsym(h, "jbig2_complete_page"));
        pageOut = reinterpret_cast<void* (*)(void*)>(dlsym(h, "jbig2_page_out"));
        releasePage = reinterpret_cast<void (*)(void*, void*)>(dlsym(h, "jbig2_release_page"));
        ctxFree = reinterpret_cast<void* (*)(void*)>(dlsym(h, "jbig2_ctx_free"));
        ok = ctxNew && dataIn && makeGlobalCtx && globalCtxFree && completePage && pageOut && releasePage && ctxFree;
    }
};

void quiet(void*, const char*, int, uint32_t) {}

const int kEmbedded = 1;  // JBIG2_OPTIONS_EMBEDDED
// The version this was written against (0.19); the library checks only the major.
const int kMajor = 0, kMinor = 19;

double g_oursSeconds = 0, g_oursCpu = 0;

double threadCpu() {
    timespec ts;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
    return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) * 1e-9;
}

void BM_Jbig2ToRGB_New_Embedded(benchmark::State& state) {
    const auto& all = streams();
    if (all.empty()) {
        state.SkipWithError("corpus not found");
        return;
    }
    const auto start = std::chrono::steady_clock::now();
    const double cpu0 = threadCpu();
    for (auto _ : state) {
        for (const Stream& s : all) {
            unsigned char* out = nullptr;
            unsigned int size = 0;
            Jbig2ToRGB_New(s.data.data(), static_cast<int>(s.data.size()), s.globals.data(),
                           static_cast<int>(s.globals.size()), &out, &size);
            benchmark::DoNotOptimize(out);
            std::free(out);
        }
    }
    g_oursSeconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    g_oursCpu = threadCpu() - cpu0;
    state.counters["streams"] = static_cast<double>(all.size());
}
BENCHMARK(BM_Jbig2ToRGB_New_Embedded)->Iterations(kRounds)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_jbig2dec_Embedded(benchmark::State& state) {
    static Jbig2decLib lib;
    const auto& all = streams();
    if (all.empty() || !lib.ok) {
        state.SkipWithError("corpus or libjbig2dec.so.0 not found");
        return;
    }
    const auto start = std::chrono::steady_clock::now();
    const double cpu0 = threadCpu();
    for (auto _ : state) {
        for (const Stream& s : all) {
            void* global = nullptr;
            if (!s.globals.empty()) {
                void* g = lib.ctxNew(nullptr, kEmbedded, nullptr, quiet, nullptr, kMajor, kMinor);
                lib.dataIn(g, reinterpret_cast<const unsigned char*>(s.globals.data()), s.globals.size());
                global = lib.makeGlobalCtx(g);
            }
            void* ctx = lib.ctxNew(nullptr, kEmbedded, global, quiet, nullptr, kMajor, kMinor);
            lib.dataIn(ctx, reinterpret_cast<const unsigned char*>(s.data.data()), s.data.size());
            lib.completePage(ctx);
            if (void* page = lib.pageOut(ctx)) {
                benchmark::DoNotOptimize(page);
                lib.releasePage(ctx, page);
            }
            lib.ctxFree(ctx);
            if (global) lib.globalCtxFree(global);
        }
    }
    const double theirs = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    const double theirsCpu = threadCpu() - cpu0;
    state.counters["streams"] = static_cast<double>(all.size());
    state.counters["jbig2dec_cpu_s"] = theirsCpu;
    state.counters["ours_cpu_s"] = g_oursCpu;
    if (theirsCpu > 0 && g_oursCpu > 0) state.counters["ratio_ours_over_jbig2dec"] = g_oursCpu / theirsCpu;
    if (theirs > 0 && g_oursSeconds > 0) state.counters["ratio_wall"] = g_oursSeconds / theirs;
}
BENCHMARK(BM_jbig2dec_Embedded)->Iterations(kRounds)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
