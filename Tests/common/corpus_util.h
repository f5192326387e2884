// Helpers of the corpus tests: listing the shared corpus and running the tools as subprocesses.
#ifndef PDFKILN_TESTS_CORPUS_UTIL_H
#define PDFKILN_TESTS_CORPUS_UTIL_H

#include <algorithm>
#include <set>

#include "test_util.h"

namespace corpus {

using testutil::lines;
using testutil::quote;
using testutil::run;

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

// The pdfkiln tool under a time bound; sanitizer reports get exit codes apart from the tool's own.
inline int runTool(const std::string& args, std::string* out, int seconds = 10) {
    return run("ASAN_OPTIONS=exitcode=86:detect_leaks=1 UBSAN_OPTIONS=halt_on_error=1:exitcode=87 timeout " +
                   std::to_string(seconds) + " " + quote(PDFKILN_TOOL) + " " + args,
               out);
}

inline bool crashedOrHung(int rc) { return rc == 124 || rc >= 86; }

// A checked-in list of explained differences, by its path in the repository.
inline std::map<std::string, std::string> explained(const std::string& file) {
    return testutil::explained(std::string(PDFKILN_SOURCE_DIR) + "/" + file);
}

}  // namespace corpus

#endif
