// Decodes every JBIG2 file of the corpus 100 times with jbig2::Jbig2Decoder,
// and runs jbig2dec (a separate process per file, via posix_spawn) as many
// times, reporting both and their ratio. jbig2dec's time includes starting a
// process for each file, which dominates for small files: the ratio is an
// upper bound on how much slower the library's decoding is, not a like-for-
// like codec comparison. Every file is decoded in full: generic, refinement,
// symbol, text, pattern and halftone segments alike.
#include <benchmark/benchmark.h>

#include <chrono>
#include <dirent.h>
#include <fcntl.h>
#include <spawn.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "jbig2/jbig2decoder.h"

extern char** environ;

namespace {

const std::string kDir = std::string(PDFKILN_CORPUS_DIR) + "/jbig2/serenity";
const int kRounds = 100;

struct CorpusFile {
    std::string path;
    std::vector<unsigned char> data;
};

const std::vector<CorpusFile>& corpus() {
    static std::vector<CorpusFile> files = [] {
        std::vector<CorpusFile> out;
        DIR* dir = ::opendir(kDir.c_str());
        if (!dir) return out;
        while (dirent* e = ::readdir(dir)) {
            const std::string name = e->d_name;
            if (name.size() < 6 || name.compare(name.size() - 6, 6, ".jbig2") != 0) continue;
            CorpusFile f;
            f.path = kDir + "/" + name;
            FILE* fp = std::fopen(f.path.c_str(), "rb");
            if (!fp) continue;
            unsigned char buf[65536];
            size_t n;
            while ((n = std::fread(buf, 1, sizeof(buf), fp)) > 0) f.data.insert(f.data.end(), buf, buf + n);
            std::fclose(fp);
            out.push_back(std::move(f));
        }
        ::closedir(dir);
        return out;
    }();
    return files;
}

double g_oursSeconds = 0;

void BM_Jbig2Decoder_Corpus(benchmark::State& state) {
    const auto& files = corpus();
    if (files.empty()) {
        state.SkipWithError("corpus not found");
        return;
    }
    const auto start = std::chrono::steady_clock::now();
    for (auto _ : state) {
        for (const CorpusFile& f : files) {
            std::vector<unsigned char> copy = f.data;
            jbig2::Jbig2Decoder d(copy.data(), static_cast<unsigned>(copy.size()), false);
            try {
                benchmark::DoNotOptimize(d.decodeImage());
            } catch (jbig2::JBIG2_RESULT) {
            }
        }
    }
    g_oursSeconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    state.counters["files"] = static_cast<double>(files.size());
    state.counters["decodes"] = static_cast<double>(files.size() * state.iterations());
}
BENCHMARK(BM_Jbig2Decoder_Corpus)->Iterations(kRounds)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_jbig2dec_Corpus(benchmark::State& state) {
    const auto& files = corpus();
    if (files.empty() || ::access("/usr/bin/jbig2dec", X_OK) != 0) {
        state.SkipWithError("corpus or /usr/bin/jbig2dec not found");
        return;
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
    const auto start = std::chrono::steady_clock::now();
    for (auto _ : state) {
        for (const CorpusFile& f : files) {
            std::vector<std::string> args = {"/usr/bin/jbig2dec", "-q", "-t", "pbm", "-o", "/dev/null", f.path};
            std::vector<char*> argv;
            for (std::string& a : args) argv.push_back(&a[0]);
            argv.push_back(nullptr);
            pid_t pid;
            if (posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ) == 0) {
                int status = 0;
                ::waitpid(pid, &status, 0);
            }
        }
    }
    const double theirs = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    posix_spawn_file_actions_destroy(&actions);
    state.counters["files"] = static_cast<double>(files.size());
    state.counters["jbig2dec_s"] = theirs;
    state.counters["ours_s"] = g_oursSeconds;
    // Time of this decoder over time of jbig2dec for the same work.
    if (theirs > 0 && g_oursSeconds > 0) state.counters["ratio_ours_over_jbig2dec"] = g_oursSeconds / theirs;
}
BENCHMARK(BM_jbig2dec_Corpus)->Iterations(kRounds)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
