// Helpers of the corpus tests: listing the shared corpus and its explained differences.
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

// A checked-in list of explained differences, by its path in the repository.
inline std::map<std::string, std::string> explained(const std::string& file) {
    return testutil::explained(std::string(PDFKILN_SOURCE_DIR) + "/" + file);
}

}  // namespace corpus

#endif
