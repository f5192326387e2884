// Tests of JBIG2Dec and Jbig2ToRGB_New, the second JBIG2 decoder (Part 8.6).
//
// Units, grouped by the rows of Part 8.6's table of differences from the
// jbig2:: decoder and by its edge cases, each on the smallest stream that
// shows it; then the corpus: every file of serenity/decodes-to-bitmap.txt in
// the embedded form (and split into /JBIG2Globals and page data) against
// reference/bitmap.bmp in the inverted sense, with the files that a rule of
// Part 8.6 explains listed in explained-jbig2dec.txt; and the JBIG2 images of
// PDF files against jbig2dec -e on the same globals and data.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include "PDFKilnPage/PDFKilnPage.h"
#include "jbig2_test_support.h"

using namespace jbig2test;

namespace {

const std::string kCorpus = std::string(PDFKILN_CORPUS_DIR) + "/jbig2/serenity";

bool exists(const std::string& p) {
    struct stat st;
    return ::stat(p.c_str(), &st) == 0;
}

// The result of Jbig2ToRGB_New, turned back to 1 is black, with the width
// that the caller knows (as a PDF's /Width).
struct NewResult {
    int rc = -1;
    Bytes bytes;  // as handed out: 0 is black
    bool outSet = false;
};

NewResult callNew(const Bytes& data, const Bytes& globals, bool globalsNull = false) {
    NewResult r;
    unsigned char* out = reinterpret_cast<unsigned char*>(0x1);
    unsigned int size = 12345;
    r.rc = Jbig2ToRGB_New(reinterpret_cast<const char*>(data.data()), static_cast<int>(data.size()),
                          globalsNull ? nullptr : reinterpret_cast<const char*>(globals.data()),
                          static_cast<int>(globals.size()), &out, &size);
    if (out != reinterpret_cast<unsigned char*>(0x1)) {
        r.outSet = out != nullptr;
        if (out) {
            r.bytes.assign(out, out + size);
            std::free(out);
        }
    }
    return r;
}

Bitmap toBitmap(const NewResult& r, uint32_t width) {
    const uint32_t stride = width == 0 ? 1 : ((width - 1) >> 3) + 1;
    Bytes black(r.bytes.size());
    for (std::size_t i = 0; i < r.bytes.size(); ++i) black[i] = static_cast<unsigned char>(~r.bytes[i]);
    return fromPacked(width, static_cast<uint32_t>(black.size() / stride), stride, black.data());
}

// A file's segments split for PDF: dictionaries and code tables (types 0,
// 16, 53) go to the globals, everything else stays with the page.
void splitGlobals(const Bytes& file, Bytes& globals, Bytes& data) {
    const Jbig2File f = listSegments(file);
    globals.clear();
    data.clear();
    for (const SegmentInfo& s : f.segments) {
        if (s.type == 51) continue;
        Bytes& to = (s.type == 0 || s.type == 16 || s.type == 53) ? globals : data;
        to.insert(to.end(), file.begin() + static_cast<std::ptrdiff_t>(s.headerStart),
                  file.begin() + static_cast<std::ptrdiff_t>(s.headerEnd));
        to.insert(to.end(), file.begin() + static_cast<std::ptrdiff_t>(s.dataStart),
                  file.begin() + static_cast<std::ptrdiff_t>(s.dataEnd));
    }
}

std::vector<std::string> listedFiles() {
    std::vector<std::string> out;
    std::ifstream in(kCorpus + "/decodes-to-bitmap.txt");
    std::string line;
    while (std::getline(in, line))
        if (!line.empty() && line[0] != '#') out.push_back(line);
    return out;
}

// file name -> rule
std::map<std::string, std::string> explained(const std::string& file) {
    std::map<std::string, std::string> out;
    std::ifstream in(std::string(JBIG2_TEST_DIR) + "/" + file);
    std::string line;
    while (std::getline(in, line)) {
        if (line.empty() || line[0] == '#') continue;
        std::istringstream ss(line);
        std::string name, rule;
        ss >> name >> rule;
        if (!name.empty()) out[name] = rule;
    }
    return out;
}

}  // namespace

TEST(Jbig2DecCorpus, EveryListedFileMatchesReferenceInverted) {
    if (!exists(kCorpus + "/decodes-to-bitmap.txt")) GTEST_SKIP() << "corpus not present";
    const Bitmap reference = readBmp(kCorpus + "/reference/bitmap.bmp");
    ASSERT_TRUE(reference.ok);
    const std::map<std::string, std::string> rules = explained("explained-jbig2dec.txt");
    int exact = 0, explainedCount = 0, wrong = 0, considered = 0, splitSame = 0;
    std::set<std::string> seen;
    for (const std::string& name : listedFiles()) {
        const Bytes file = readFile(kCorpus + "/" + name);
        ++considered;
        seen.insert(name);
        const NewResult plain = callNew(toEmbedded(file), Bytes());
        EXPECT_EQ(plain.rc, 0) << name;
        const Bitmap got = toBitmap(plain, reference.width);
        // The same segments with the dictionaries moved to /JBIG2Globals.
        Bytes globals, data;
        splitGlobals(file, globals, data);
        const NewResult split = callNew(data, globals);
        EXPECT_EQ(split.rc, 0) << name;
        if (split.bytes == plain.bytes) ++splitSame;
        else ADD_FAILURE() << name << ": the globals form differs from the plain embedded form";
        const bool ok = samePixels(got, reference);
        const auto rule = rules.find(name);
        if (ok) {
            ++exact;
            if (rule != rules.end()) ADD_FAILURE() << name << " is listed (" << rule->second << ") but decodes exactly";
        } else if (rule != rules.end()) {
            ++explainedCount;
            std::printf("  explained: %-50s %s (%ux%u)\n", name.c_str(), rule->second.c_str(), got.width, got.height);
        } else {
            ++wrong;
            ADD_FAILURE() << name << ": differs (" << got.width << "x" << got.height << ", " << plain.bytes.size()
                          << " bytes)";
        }
    }
    for (const auto& r : rules)
        if (!seen.count(r.first)) ADD_FAILURE() << "explained-jbig2dec.txt lists " << r.first << ", not a listed file";
    std::printf("%d exact, %d explained, %d wrong (of %d files); globals form equal on %d\n", exact, explainedCount,
                wrong, considered, splitSame);
    EXPECT_GT(considered, 100);
    EXPECT_EQ(wrong, 0);
}
