// Embedding every page of a generated document through one facade: opening
// (page tree), and per page setPageNo, setStartObjNo, getPageContents and
// getPageRes. Scales over 500 to 4,000 pages; beside it, qpdf copying the
// same pages into a new file (qpdf --empty --pages IN 1-z -- OUT) as a
// yardstick, when qpdf is installed.
#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "PDFKilnPage/PDFKilnPage.h"

extern char** environ;

using namespace PDF_KILN;

namespace {

// N pages under a two-level tree (nodes of 50 pages), one shared font, a
// shared form, and one content stream per page.
std::string makeDocument(int pages) {
    std::string out = "%PDF-1.7\n";
    std::map<int, long> offsets;
    auto put = [&](int n, const std::string& body) {
        offsets[n] = static_cast<long>(out.size());
        out += std::to_string(n) + " 0 obj\n" + body + "\nendobj\n";
    };
    const int font = 3, form = 4;
    const int groups = (pages + 49) / 50;
    const int firstGroup = 10, firstPage = firstGroup + groups;
    put(1, "<< /Type /Catalog /Pages 2 0 R >>");
    std::string kids;
    for (int g = 0; g < groups; ++g) kids += std::to_string(firstGroup + g) + " 0 R ";
    put(2, "<< /Type /Pages /Kids [" + kids + "] /Count " + std::to_string(pages) + " /MediaBox [0 0 612 792] >>");
    put(font, "<< /Type /Font /Subtype /Type1 /BaseFont /Helvetica /Encoding /WinAnsiEncoding >>");
    const std::string formData = "0 0 1 rg 0 0 50 50 re f\n";
    put(form, "<< /Type /XObject /Subtype /Form /BBox [0 0 50 50] /Length " + std::to_string(formData.size()) +
                  " >>\nstream\n" + formData + "\nendstream");
    for (int g = 0; g < groups; ++g) {
        std::string k;
        const int n = std::min(50, pages - g * 50);
        for (int i = 0; i < n; ++i) k += std::to_string(firstPage + 2 * (g * 50 + i)) + " 0 R ";
        put(firstGroup + g, "<< /Type /Pages /Parent 2 0 R /Kids [" + k + "] /Count " + std::to_string(n) + " >>");
    }
    for (int p = 0; p < pages; ++p) {
        const int page = firstPage + 2 * p, content = page + 1;
        put(page, "<< /Type /Page /Parent " + std::to_string(firstGroup + p / 50) + " 0 R /Contents " +
                      std::to_string(content) + " 0 R /Resources << /Font << /F1 3 0 R >> /XObject << /X 4 0 R >> >> >>");
        const std::string data = "BT /F1 24 Tf 72 700 Td (Page " + std::to_string(p + 1) + ") Tj ET q 1 0 0 1 72 600 cm /X Do Q\n";
        put(content, "<< /Length " + std::to_string(data.size()) + " >>\nstream\n" + data + "\nendstream");
    }
    const int size = firstPage + 2 * pages;
    const long xref = static_cast<long>(out.size());
    out += "xref\n0 " + std::to_string(size) + "\n0000000000 65535 f \n";
    char entry[32];
    for (int n = 1; n < size; ++n) {
        auto it = offsets.find(n);
        if (it == offsets.end()) std::snprintf(entry, sizeof entry, "0000000000 00001 f \n");
        else std::snprintf(entry, sizeof entry, "%010ld 00000 n \n", it->second);
        out += entry;
    }
    out += "trailer\n<< /Size " + std::to_string(size) + " /Root 1 0 R >>\nstartxref\n" + std::to_string(xref) +
           "\n%%EOF\n";
    return out;
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

// Runs a command as a child process; returns wall seconds and the child's
// peak resident set in MiB.
bool runMeasured(const std::vector<std::string>& args, double& seconds, double& peakMiB) {
    std::vector<char*> argv;
    for (const std::string& a : args) argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
    const auto t0 = std::chrono::steady_clock::now();
    pid_t pid = 0;
    int rc = posix_spawnp(&pid, argv[0], &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (rc != 0) return false;
    int status = 0;
    struct rusage usage {};
    if (wait4(pid, &status, 0, &usage) < 0) return false;
    seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    peakMiB = usage.ru_maxrss / 1024.0;
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

// The main job against qpdf on the same input, one process each, best of 3.
void sideBySide(const std::string& tool, const std::string& label, const std::string& in) {
    const std::string ours = "/tmp/pdfkiln_bench_compose.pdf", theirs = "/tmp/pdfkiln_bench_qpdf.pdf";
    double bestOurs = 1e9, bestTheirs = 1e9, memOurs = 0, memTheirs = 0;
    for (int i = 0; i < 3; ++i) {
        double t = 0, m = 0;
        if (runMeasured({tool, "compose", "--quiet", "-o", ours, in}, t, m) && t < bestOurs) {
            bestOurs = t;
            memOurs = m;
        }
        if (runMeasured({"qpdf", "--empty", "--pages", in, "1-z", "--", theirs}, t, m) && t < bestTheirs) {
            bestTheirs = t;
            memTheirs = m;
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
    std::string self = argv[0];
    const std::string dir = self.substr(0, self.rfind('/') + 1);
    const std::string tool = dir + "../Tools/pdfkiln/pdfkiln";
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
