// Helpers of the corpus tests: listing the shared corpus and running the
// pdfkiln tool and the peer tools as subprocesses.
#ifndef PDFKILN_TESTS_CORPUS_UTIL_H
#define PDFKILN_TESTS_CORPUS_UTIL_H

#include <sys/wait.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace corpus {

inline std::string root() { return PDFKILN_CORPUS_DIR; }

inline bool available() { return std::filesystem::is_directory(root() + "/qpdf"); }

// Every PDF below the qpdf corpus, as paths relative to corpus/qpdf, sorted.
inline std::vector<std::string> qpdfFiles() {
    std::vector<std::string> files;
    const std::filesystem::path base = root() + "/qpdf";
    for (const auto& e : std::filesystem::recursive_directory_iterator(base)) {
        if (e.is_regular_file() && e.path().extension() == ".pdf")
            files.push_back(std::filesystem::relative(e.path(), base).string());
    }
    std::sort(files.begin(), files.end());
    return files;
}

inline std::string quote(const std::string& s) {
    std::string q = "'";
    for (char c : s) {
        if (c == '\'') q += "'\\''";
        else q += c;
    }
    return q + "'";
}

// Runs a shell command; returns its exit status (128 + signal when killed)
// and its standard output.
inline int run(const std::string& cmd, std::string* out = nullptr) {
    FILE* p = popen((cmd + (out ? " 2>/dev/null" : " >/dev/null 2>&1")).c_str(), "r");
    if (!p) return -1;
    char buf[65536];
    std::size_t n;
    while ((n = fread(buf, 1, sizeof buf, p)) > 0)
        if (out) out->append(buf, n);
    int status = pclose(p);
    if (WIFEXITED(status)) return WEXITSTATUS(status);
    if (WIFSIGNALED(status)) return 128 + WTERMSIG(status);
    return -1;
}

// The pdfkiln tool under a time bound. Sanitizer reports get exit codes of
// their own, so that they are told apart from the tool's own failure code.
inline int runTool(const std::string& args, std::string* out, int seconds = 10) {
    return run("ASAN_OPTIONS=exitcode=86:detect_leaks=1 UBSAN_OPTIONS=halt_on_error=1:exitcode=87 timeout " +
                   std::to_string(seconds) + " " + quote(PDFKILN_TOOL) + " " + args,
               out);
}

inline bool crashedOrHung(int rc) { return rc == 124 || rc >= 86; }

// A checked-in list of explained differences: "path<TAB>rule" per line,
// '#' starts a comment line.
inline std::map<std::string, std::string> explained(const std::string& file) {
    std::map<std::string, std::string> m;
    std::ifstream in(std::string(PDFKILN_SOURCE_DIR) + "/" + file);
    std::string line;
    while (std::getline(in, line)) {
        if (line.empty() || line[0] == '#') continue;
        std::size_t tab = line.find('\t');
        m[line.substr(0, tab)] = tab == std::string::npos ? "" : line.substr(tab + 1);
    }
    return m;
}

inline std::vector<std::string> lines(const std::string& text) {
    std::vector<std::string> v;
    std::istringstream in(text);
    std::string l;
    while (std::getline(in, l)) v.push_back(l);
    return v;
}

}  // namespace corpus

#endif
