// Opens every PDF of the qpdf test corpus with the pdfkiln tool, under a time
// bound, and compares the object table with what qpdf reports for each file
// that qpdf --check accepts. Differences must be listed, with the rule of
// this reader that explains them, in Tests/corpus/xref-explained.txt.
#include <gtest/gtest.h>

#include <regex>

#include "corpus_util.h"

namespace {

// In-use and compressed entries, one line each; qpdf does not list free ones.
std::set<std::string> usedEntries(const std::string& text) {
    static const std::regex entry(R"(^\d+/\d+: (uncompressed|compressed).*$)");
    std::set<std::string> s;
    for (const std::string& l : corpus::lines(text))
        if (std::regex_match(l, entry)) s.insert(l);
    return s;
}

TEST(CorpusXref, EveryFileOpensAndTablesAgreeWithQpdf) {
    if (!corpus::available()) GTEST_SKIP() << "corpus not found at " << corpus::root();
    if (corpus::run("qpdf --version") != 0) GTEST_SKIP() << "qpdf is not installed";
    const auto explained = corpus::explained("Tests/corpus/xref-explained.txt");
    const std::string base = corpus::root() + "/qpdf/";
    int opened = 0, accepted = 0, agree = 0, explainedCount = 0;
    std::vector<std::string> unexplained, crashed, staleExplanations;
    for (const std::string& rel : corpus::qpdfFiles()) {
        const std::string path = corpus::quote(base + rel);
        std::string ours;
        int rc = corpus::runTool("xref --strict " + path, &ours);
        if (corpus::crashedOrHung(rc)) {
            crashed.push_back(rel + " (exit " + std::to_string(rc) + ")");
            continue;
        }
        ++opened;
        if (corpus::run("qpdf --check " + path) != 0) continue;
        ++accepted;
        std::string theirs;
        corpus::run("qpdf --show-xref " + path, &theirs);
        const bool same = usedEntries(ours) == usedEntries(theirs);
        const bool listed = explained.count(rel) != 0;
        if (same) {
            ++agree;
            if (listed) staleExplanations.push_back(rel);
        } else if (listed) {
            ++explainedCount;
        } else {
            unexplained.push_back(rel);
        }
    }
    std::printf("%d agree, %d explained, %d unexplained (%d files opened, %d accepted by qpdf --check)\n", agree,
                explainedCount, static_cast<int>(unexplained.size()), opened, accepted);
    for (const auto& f : unexplained) ADD_FAILURE() << "object table differs from qpdf: " << f;
    for (const auto& f : crashed) ADD_FAILURE() << "crashed or hung: " << f;
    for (const auto& f : staleExplanations)
        std::printf("note: %s is listed as explained but agrees now\n", f.c_str());
    ASSERT_GT(accepted, 0);
    EXPECT_GE(agree * 100, accepted * 95) << "fewer than 95 % of the accepted files agree";
}

}  // namespace
