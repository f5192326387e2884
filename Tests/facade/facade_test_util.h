// Helpers of the page tests: small documents built in the test, opened through the facade.
#ifndef PDFKILN_TESTS_FACADE_UTIL_H
#define PDFKILN_TESTS_FACADE_UTIL_H

#include <gtest/gtest.h>

#include <initializer_list>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "pdf_builder.h"
#include "pdfkiln_page.h"
#include "pdfkiln_sourfile.h"

namespace pagestest {

using pdftest::buildPdf;

// A facade opened on an in-memory document.
struct Doc {
    explicit Doc(const std::string& pdf) : in(new std::stringstream(pdf)), page(new PDF_KILN::CPDFKilnPage(*in, "")) {
        rc = page->init();
    }
    Doc(Doc&&) = default;
    PDF_KILN::CSourFile& src() const { return *page->getSource(); }
    // Selects page `n` and numbers its closure from `start`: true when opening, selecting and numbering succeed.
    bool select(int n, int start) { return rc == 0 && page->setPageNo(n) == 0 && page->setStartObjNo(start) == 0; }
    std::unique_ptr<std::stringstream> in;
    std::unique_ptr<PDF_KILN::CPDFKilnPage> page;
    int rc = -1;
};

// Checks that `text` holds each of `present` and none of `absent`.
inline void expectParts(const std::string& text, std::initializer_list<std::string> present,
                        std::initializer_list<std::string> absent = {}) {
    for (const std::string& p : present) EXPECT_NE(text.find(p), std::string::npos) << p << " in " << text;
    for (const std::string& a : absent) EXPECT_EQ(text.find(a), std::string::npos) << a << " in " << text;
}

// The text a getter with an out-pointer delivered ("<null>" for none), checking that it returned 0.
template <typename... A, typename... B>
std::string got(PDF_KILN::CPDFKilnPage& f, int (PDF_KILN::CPDFKilnPage::*get)(const std::string**, A...), B... args) {
    const std::string* p = nullptr;
    EXPECT_EQ((f.*get)(&p, args...), 0);
    return p ? *p : "<null>";
}

// Every object text the facade delivered for the current page, by new number.
inline std::map<int, std::string> delivered(PDF_KILN::CPDFKilnPage& f) {
    std::map<int, std::string> m;
    for (auto it = f.begin(); it != f.end(); f.next(it)) m[it->first.first] = it->second;
    return m;
}

// Those texts, each ended by a line feed.
inline std::string joined(const std::map<int, std::string>& texts) {
    std::string all;
    for (const auto& e : texts) all += e.second + "\n";
    return all;
}
inline std::string deliveredText(PDF_KILN::CPDFKilnPage& f) { return joined(delivered(f)); }

// The object numbers of a list of references.
template <typename List>
std::vector<int> nums(const List& objects) {
    std::vector<int> v;
    for (const PDF_KILN::SObj& o : objects) v.push_back(o.num);
    return v;
}

}  // namespace pagestest

#endif
