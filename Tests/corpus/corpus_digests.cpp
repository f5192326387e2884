// Digests of what the facade delivers for every page (the first 200) of a set of
// PDF files, one facade per file, run as an embedding program runs it: per page
// setPageNo, a number reserved for the form, setStartObjNo with the next free
// number, the object map, getPageContents, getPageRes and getPageRootString.
// Any change to a delivered byte, number or result code changes a digest.
// usage: corpus_digests BASE [RELATIVE_PATH...] (without paths, every *.pdf below BASE)
// One line per file: <path> <pages> <objects> <contents> <resources> <root>
// [threw-at-page-<n>], or <path> open-failed <code>, or <path> password-required.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "PDFKilnPage/PDFKilnPage.h"

using namespace PDF_KILN;

namespace {

const int kMaxPages = 200;

// 64-bit FNV-1a. Every field is preceded by its length, so that the fields
// of one stream cannot run into each other.
class Digest {
public:
    void add(const std::string& s) { addRaw(std::to_string(s.size()) + ":" + s); }
    void add(long v) { addRaw(std::to_string(v) + ";"); }
    std::string hex() const {
        char b[20];
        std::snprintf(b, sizeof b, "%016llx", static_cast<unsigned long long>(h));
        return b;
    }

private:
    void addRaw(const std::string& s) {
        for (unsigned char c : s) h = (h ^ c) * 0x100000001b3ULL;
    }
    std::uint64_t h = 0xcbf29ce484222325ULL;
};

std::string digestFile(const std::string& path) {
    CPDFKilnPage doc(path.c_str(), "");
    const int rc = doc.init();
    if (rc != 0) return "open-failed " + std::to_string(rc);
    SFileInfo info;
    doc.GetSourceFileInfo(info);
    if (info.passwordNeeded) return "password-required";

    Digest objects, contents, resources, root;
    const int count = doc.getPageCount();
    int page = 0;
    std::string threw;
    try {
        int next = 1;
        for (page = 1; page <= std::min(count, kMaxPages); ++page) {
            const int code = doc.setPageNo(page);
            objects.add(page);
            objects.add(code);
            if (code != 0) continue;
            const int form = next++;
            doc.setStartObjNo(next);
            for (auto it = doc.begin(); it != doc.end(); doc.next(it)) {
                objects.add(it->first.first);
                objects.add(it->first.second);
                objects.add(it->second);
                next = std::max(next, it->first.first + 1);
            }
            const std::string* text = nullptr;
            contents.add(doc.getPageContents(&text));
            contents.add(text ? *text : std::string("(none)"));
            text = nullptr;
            resources.add(doc.getPageRes(&text, form));
            resources.add(text ? *text : std::string("(none)"));
            root.add(doc.getPageRootString(0));
            root.add(doc.getPageRootString(form));
            for (const auto& m : doc.getOld2NewObjectVector()) {
                objects.add(m.first.first);
                objects.add(m.first.second);
                objects.add(m.second.first);
                objects.add(m.second.second);
            }
        }
    } catch (...) {
        threw = " threw-at-page-" + std::to_string(page);
    }
    return std::to_string(count) + " " + objects.hex() + " " + contents.hex() + " " + resources.hex() + " " +
           root.hex() + threw;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fputs("usage: corpus_digests BASE [RELATIVE_PATH...]\n", stderr);
        return 2;
    }
    const std::filesystem::path base = argv[1];
    std::vector<std::string> files(argv + 2, argv + argc);
    if (files.empty()) {
        std::error_code ec;
        for (std::filesystem::recursive_directory_iterator it(base, ec), end; !ec && it != end; it.increment(ec))
            if (it->is_regular_file() && it->path().extension() == ".pdf")
                files.push_back(std::filesystem::relative(it->path(), base).string());
        std::sort(files.begin(), files.end());
    }
    for (const std::string& rel : files) {
        std::string line;
        try {
            line = digestFile((base / rel).string());
        } catch (...) {
            line = "open-threw";
        }
        std::printf("%s %s\n", rel.c_str(), line.c_str());
        std::fflush(stdout);
    }
    return 0;
}
