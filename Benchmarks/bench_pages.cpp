// Embedding every page of a generated document through one facade: opening
// (page tree), and per page setPageNo, setStartObjNo, getPageContents and
// getPageRes. Scales over 500 to 4,000 pages; beside it, qpdf copying the
// same pages into a new file (qpdf --empty --pages IN 1-z -- OUT) as a
// yardstick, when qpdf is installed.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "PDFKilnPage/PDFKilnPage.h"
#include "bench_support.h"

using namespace PDF_KILN;

namespace {

// N pages under a two-level tree (nodes of 50 pages), one shared font, a
// shared form, and one short content stream per page.
std::string makeDocument(int pages) {
    bench::DocOptions o;
    o.pages = pages;
    o.contentBytes = 0;
    o.sharedImage = false;
    return bench::makeDocument(o);
}

const std::string& document(int pages) {
    static std::map<int, std::string> cache;
    auto it = cache.find(pages);
    if (it == cache.end()) it = cache.emplace(pages, makeDocument(pages)).first;
    return it->second;
}

void BM_OpenPageTree(benchmark::State& state) {
    const std::string& pdf = document(static_cast<int>(state.range(0)));
    for (auto _ : state) {
        std::istringstream in(pdf);
        CPDFKilnPage doc(in, "");
        if (doc.init() != 0 || doc.getPageCount() != state.range(0)) state.SkipWithError("open failed");
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_OpenPageTree)->Arg(500)->Arg(1000)->Arg(2000)->Arg(4000)->Unit(benchmark::kMillisecond);

void BM_EmbedEveryPage(benchmark::State& state) {
    const std::string& pdf = document(static_cast<int>(state.range(0)));
    for (auto _ : state) {
        std::istringstream in(pdf);
        CPDFKilnPage doc(in, "");
        if (doc.init() != 0) {
            state.SkipWithError("open failed");
            break;
        }
        int next = 1;
        std::size_t bytes = 0;
        for (int p = 1; p <= doc.getPageCount(); ++p) {
            doc.setPageNo(p);
            doc.setStartObjNo(next);
            for (auto it = doc.begin(); it != doc.end(); doc.next(it)) {
                next = std::max(next, it->first.first + 1);
                bytes += it->second.size();
            }
            const std::string* text = nullptr;
            doc.getPageContents(&text);
            bytes += text->size();
            doc.getPageRes(&text, next++);
            bytes += text->size();
        }
        benchmark::DoNotOptimize(bytes);
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_EmbedEveryPage)->Arg(500)->Arg(1000)->Arg(2000)->Arg(4000)->Unit(benchmark::kMillisecond);

// The yardstick: qpdf copying all pages of the same document.
void BM_QpdfCopyPages(benchmark::State& state) {
    if (std::system("qpdf --version >/dev/null 2>&1") != 0) {
        state.SkipWithError("qpdf is not installed");
        return;
    }
    const std::string in = "/tmp/pdfkiln_bench_pages_in.pdf", out = "/tmp/pdfkiln_bench_pages_out.pdf";
    {
        std::ofstream f(in, std::ios::binary);
        f << document(static_cast<int>(state.range(0)));
    }
    const std::string cmd = "qpdf --empty --pages " + in + " 1-z -- " + out + " >/dev/null 2>&1";
    for (auto _ : state) {
        if (std::system(cmd.c_str()) != 0) state.SkipWithError("qpdf failed");
    }
    std::remove(in.c_str());
    std::remove(out.c_str());
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_QpdfCopyPages)->Arg(2000)->Unit(benchmark::kMillisecond);

// The main job against qpdf on the same input, one process each, best of 3.
void sideBySide(const std::string& tool, const std::string& label, const std::string& in) {
    const std::string ours = "/tmp/pdfkiln_bench_compose.pdf", theirs = "/tmp/pdfkiln_bench_qpdf.pdf";
    double bestOurs = 1e9, bestTheirs = 1e9, memOurs = 0, memTheirs = 0;
    for (int i = 0; i < 3; ++i) {
        const bench::Measured a = bench::runMeasured({tool, "compose", "--quiet", "-o", ours, in});
        if (a.ok && a.seconds < bestOurs) {
            bestOurs = a.seconds;
            memOurs = a.peakMiB;
        }
        const bench::Measured b = bench::runMeasured({"qpdf", "--empty", "--pages", in, "1-z", "--", theirs});
        if (b.ok && b.seconds < bestTheirs) {
            bestTheirs = b.seconds;
            memTheirs = b.peakMiB;
        }
    }
    std::printf("  %-34s ours %8.1f ms %7.1f MiB   qpdf %8.1f ms %7.1f MiB   time ratio %.2f  memory ratio %.2f\n",
                label.c_str(), bestOurs * 1e3, memOurs, bestTheirs * 1e3, memTheirs, bestOurs / bestTheirs,
                memOurs / memTheirs);
    std::remove(ours.c_str());
    std::remove(theirs.c_str());
}

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    // The tool sits beside the benchmarks in the build tree.
    const std::string tool = bench::toolBeside(argv[0]);
    if (std::system("qpdf --version >/dev/null 2>&1") != 0) return 0;
    std::printf("\nembedding every page (pdfkiln compose) beside qpdf --empty --pages IN 1-z:\n");
    const std::string generated = "/tmp/pdfkiln_bench_2000.pdf";
    {
        std::ofstream f(generated, std::ios::binary);
        f << document(2000);
    }
    sideBySide(tool, "generated, 2,000 pages", generated);
    std::remove(generated.c_str());
    sideBySide(tool, "image-streams.pdf (largest corpus)",
               std::string(PDFKILN_CORPUS_DIR) + "/qpdf/qpdf/qtest/qpdf/image-streams.pdf");
    return 0;
}
