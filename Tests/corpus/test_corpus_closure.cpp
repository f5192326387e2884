// Every page of every corpus file through one facade per file: every object is delivered once over the run, and
// every reference in a delivered object or a page's resources names an object of the run (delivered now or
// earlier, or known through the old-to-new vector).
#include <gtest/gtest.h>

#include <regex>

#include "corpus_util.h"
#include "pdfkiln_page.h"
#include "pdfkiln_sourfile.h"

using namespace PDF_KILN;

namespace {

// The references in an object's text before its stream data.
std::vector<int> referencesIn(const std::string& text) {
    static const std::regex ref(R"((^|[\s\[\]<>/(){}])(\d+)\s+(\d+)\s+R(?=[\s\[\]<>/(){}]|$))");
    std::string head = text.substr(0, text.find("stream"));
    std::vector<int> v;
    for (std::sregex_iterator it(head.begin(), head.end(), ref), end; it != end; ++it)
        v.push_back(std::stoi((*it)[2].str()));
    return v;
}

// The pages run; the first problem found, if any, in *problem.
int runFile(const std::string& path, std::string* problem) {
    int pages = 0;
    CPDFKilnPage doc(path.c_str(), "");
    if (doc.init() != 0) return 0;
    std::set<int> delivered;
    int next = 1;
    const auto fail = [&](int p, const std::string& what) {
        if (problem->empty()) *problem = "page " + std::to_string(p) + ": " + what;
    };
    const int count = std::min(doc.getPageCount(), 200);
    for (int p = 1; p <= count; ++p) {
        if (doc.setPageNo(p) != 0) continue;
        ++pages;
        const int form = next++;
        delivered.insert(form);
        doc.setStartObjNo(next);
        std::vector<std::string> texts;
        for (auto it = doc.begin(); it != doc.end(); doc.next(it)) {
            if (!delivered.insert(it->first.first).second)
                fail(p, "object " + std::to_string(it->first.first) + " delivered twice");
            next = std::max(next, it->first.first + 1);
            texts.push_back(it->second);
        }
        // Link targets are objects the caller writes under the numbers the
        // library gave them.
        for (const auto& d : doc.getDestVector()) {
            delivered.insert(d.number);
            next = std::max(next, d.number + 1);
        }
        const std::string* res = nullptr;
        doc.getPageRes(&res, form);
        texts.push_back(*res);
        std::set<int> known = delivered;
        for (const auto& m : doc.getOld2NewObjectVector()) known.insert(m.second.first);
        for (const std::string& t : texts)
            for (int n : referencesIn(t))
                if (!known.count(n)) fail(p, "reference to " + std::to_string(n) + " that the run does not hold");
    }
    return pages;
}

}  // namespace

TEST(CorpusClosure, EveryReferenceOfARunIsHeldAndEveryObjectComesOnce) {
    if (!corpus::available()) GTEST_SKIP() << "corpus not found at " << corpus::root();
    const std::string base = corpus::root() + "/qpdf/";
    int files = 0, pages = 0;
    std::vector<std::string> failures;
    for (const std::string& rel : corpus::qpdfFiles()) {
        std::string problem;
        const int n = runFile(base + rel, &problem);
        if (n == 0) continue;
        ++files;
        pages += n;
        if (!problem.empty()) failures.push_back(rel + ": " + problem);
    }
    std::printf("%d files, %d pages run\n", files, pages);
    for (const std::string& f : failures) ADD_FAILURE() << f;
    EXPECT_GT(pages, 0);
}
