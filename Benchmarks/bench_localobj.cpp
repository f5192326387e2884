// Object text: rendering every object of a corpus file with CObj::LocalObj,
// beside qpdf rendering the same objects (qpdf --json with inline raw stream
// data, one process per pass) in the same run. Reports objects per second
// and the time ratio.
#include <benchmark/benchmark.h>

#include <chrono>
#include <functional>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "PDFKilnPage/PDFKilnPage.h"

using namespace PDF_KILN;

namespace {

const char* const kFiles[] = {
    "qpdf/qtest/qpdf/image-streams.pdf",  // the largest file of the corpus
    "qpdf/qtest/qpdf/pclm-out.pdf",       // the file with the most objects
};

std::string path(const char* rel) { return std::string(PDFKILN_CORPUS_DIR) + "/qpdf/" + rel; }

std::string slurp(const std::string& p) {
    std::ifstream f(p, std::ios::binary);
    std::ostringstream s;
    s << f.rdbuf();
    return s.str();
}

// Opens the file from memory and renders every object; returns the count.
std::size_t renderAll(const std::string& bytes, std::size_t* outBytes) {
    std::istringstream in(bytes);
    CPDFKilnPage doc(in, "");
    if (doc.init() != 0) return 0;
    CSourFile& src = *doc.getSource();
    std::size_t n = 0, total = 0;
    for (const auto& e : *src.fileInfo.objTable) {
        if (e.second.kind == 0) continue;
        CDestFile sink;
        CObj obj(e.first);
        src.clear();
        obj.LocalObj(sink, src);
        total += sink.size();
        ++n;
    }
    if (outBytes) *outBytes = total;
    return n;
}

void BM_LocalObjAll(benchmark::State& state) {
    const std::string bytes = slurp(path(kFiles[state.range(0)]));
    std::size_t objects = 0, out = 0;
    for (auto _ : state) {
        objects = renderAll(bytes, &out);
        benchmark::DoNotOptimize(out);
    }
    state.SetLabel(kFiles[state.range(0)]);
    state.counters["objects/s"] =
        benchmark::Counter(static_cast<double>(objects), benchmark::Counter::kIsIterationInvariantRate);
}
BENCHMARK(BM_LocalObjAll)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

void BM_QpdfJson(benchmark::State& state) {
    const std::string cmd = "qpdf --json=2 --json-key=qpdf --json-stream-data=inline --decode-level=none '" +
                            path(kFiles[state.range(0)]) + "' > /dev/null 2>&1";
    for (auto _ : state) {
        int rc = std::system(cmd.c_str());
        benchmark::DoNotOptimize(rc);
    }
    state.SetLabel(kFiles[state.range(0)]);
}
BENCHMARK(BM_QpdfJson)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

double seconds(const std::function<void()>& f, int reps) {
    auto t0 = std::chrono::steady_clock::now();
    for (int i = 0; i < reps; ++i) f();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count() / reps;
}

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    std::printf("\nratio (our time / qpdf time, same objects):\n");
    for (const char* rel : kFiles) {
        const std::string bytes = slurp(path(rel));
        std::size_t objects = renderAll(bytes, nullptr);
        const std::string cmd = "qpdf --json=2 --json-key=qpdf --json-stream-data=inline --decode-level=none '" +
                                path(rel) + "' > /dev/null 2>&1";
        double ours = seconds([&] { renderAll(bytes, nullptr); }, 20);
        double theirs = seconds([&] { (void)std::system(cmd.c_str()); }, 20);
        std::printf("  %-40s %5zu objects  ours %8.3f ms  qpdf %8.3f ms  ratio %.3f\n", rel, objects, ours * 1e3,
                    theirs * 1e3, ours / theirs);
    }
    benchmark::Shutdown();
    return 0;
}
