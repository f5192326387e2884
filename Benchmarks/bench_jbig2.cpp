// Decodes every JBIG2 file of the corpus in-process, with jbig2::Jbig2Decoder
// and with jbig2dec's library (libjbig2dec), file by file, and prints each
// file's time beside the other's, heaviest first, then the summed times and
// their ratio.
//
// Each file is timed in rounds that alternate between the two decoders; a
// round runs a decoder on the file often enough to take about 2 ms of the
// thread's processor time, and the fastest round counts, which keeps other
// load on the machine out of the figures. Both decode the file form from
// memory to the finished page.
//
// A file counts in the comparison when both decoders give the same first
// page. jbig2dec gives up early on some files (intermediate regions, reused
// contexts) and decodes others differently from the reference; those are
// listed with their times but kept out of the sums and the verdicts, since
// the two decoders did not do the same work.
//
//   bench_jbig2 [--rounds N] [--filter TEXT]
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <string>
#include <time.h>
#include <vector>

#include "jbig2/jbig2decoder.h"

#ifdef PDFKILN_HAVE_LIBJBIG2DEC
extern "C" {
#include <jbig2.h>
}
#endif

namespace {

const std::string kDir = std::string(PDFKILN_CORPUS_DIR) + "/jbig2/serenity";

typedef std::vector<unsigned char> Bytes;

struct Page {
    bool ok = false;
    uint32_t width = 0, height = 0, stride = 0;
    Bytes bits;
};

bool samePixels(const Page& a, const Page& b) {
    if (!a.ok || !b.ok || a.width != b.width || a.height != b.height) return false;
    for (uint32_t y = 0; y < a.height; ++y)
        for (uint32_t x = 0; x < a.width; ++x) {
            const int pa = (a.bits[y * a.stride + x / 8] >> (7 - x % 8)) & 1;
            const int pb = (b.bits[y * b.stride + x / 8] >> (7 - x % 8)) & 1;
            if (pa != pb) return false;
        }
    return true;
}

// One decode by this library; the first page when `page` is given.
void decodeOurs(const Bytes& data, Page* page) {
    Bytes copy = data;
    jbig2::Jbig2Decoder decoder(copy.data(), static_cast<unsigned int>(copy.size()), false);
    try {
        if (decoder.decodeImage() != jbig2::JBIG2_SUCCESS || !page || decoder.getPageNumber() == 0) return;
        const jbig2::ImageProcessor<jbig2::ImageDataBits>* img = decoder.getImage(0);
        page->ok = true;
        page->width = img->getWidth();
        page->height = img->getHeight();
        page->stride = img->getStride();
        page->bits.assign(img->getData(), img->getData() + static_cast<std::size_t>(page->stride) * page->height);
    } catch (...) {
    }
}

#ifdef PDFKILN_HAVE_LIBJBIG2DEC
void quiet(void*, const char*, Jbig2Severity, uint32_t) {}

// One decode by libjbig2dec, as its command-line tool does it: all data in,
// the page completed, every page taken out.
void decodeJbig2dec(const Bytes& data, Page* page) {
    Jbig2Ctx* ctx = jbig2_ctx_new(nullptr, static_cast<Jbig2Options>(0), nullptr, quiet, nullptr);
    if (!ctx) return;
    jbig2_data_in(ctx, data.data(), data.size());
    jbig2_complete_page(ctx);
    bool first = true;
    while (Jbig2Image* img = jbig2_page_out(ctx)) {
        if (first && page) {
            page->ok = true;
            page->width = img->width;
            page->height = img->height;
            page->stride = img->stride;
            page->bits.assign(img->data, img->data + static_cast<std::size_t>(img->stride) * img->height);
        }
        first = false;
        jbig2_release_page(ctx, img);
    }
    jbig2_ctx_free(ctx);
}
#endif

typedef void (*Decode)(const Bytes&, Page*);

double threadSeconds() {
    timespec t;
    ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_nsec) * 1e-9;
}

// Seconds per decode over `reps` decodes, in this thread's processor time:
// time the machine spends on other work doesn't count.
double timeBatch(Decode decode, const Bytes& data, int reps) {
    const double start = threadSeconds();
    for (int i = 0; i < reps; ++i) decode(data, nullptr);
    return (threadSeconds() - start) / reps;
}

struct Result {
    std::string name;
    double ours = 1e30, theirs = 1e30;  // seconds per decode, best round
    bool comparable = false;
    std::string note;
};

std::vector<std::string> corpusFiles(const std::string& filter) {
    std::vector<std::string> names;
    if (DIR* dir = ::opendir(kDir.c_str())) {
        while (dirent* e = ::readdir(dir)) {
            const std::string name = e->d_name;
            if (name.size() > 6 && name.compare(name.size() - 6, 6, ".jbig2") == 0 &&
                name.find(filter) != std::string::npos)
                names.push_back(name);
        }
        ::closedir(dir);
    }
    std::sort(names.begin(), names.end());
    return names;
}

Bytes readFile(const std::string& path) {
    Bytes out;
    if (FILE* fp = std::fopen(path.c_str(), "rb")) {
        unsigned char buf[65536];
        std::size_t n;
        while ((n = std::fread(buf, 1, sizeof(buf), fp)) > 0) out.insert(out.end(), buf, buf + n);
        std::fclose(fp);
    }
    return out;
}

}  // namespace

int main(int argc, char** argv) {
    int rounds = 7;
    std::string filter;
    for (int i = 1; i + 1 < argc; i += 2) {
        if (std::strcmp(argv[i], "--rounds") == 0) rounds = std::max(1, std::atoi(argv[i + 1]));
        if (std::strcmp(argv[i], "--filter") == 0) filter = argv[i + 1];
    }
    const std::vector<std::string> names = corpusFiles(filter);
    if (names.empty()) {
        std::fprintf(stderr, "no corpus files in %s\n", kDir.c_str());
        return 1;
    }
#ifndef PDFKILN_HAVE_LIBJBIG2DEC
    std::printf("libjbig2dec was not found when this was built (package libjbig2dec0-dev): this library only\n");
#endif
    const double batch = 0.002;
    std::vector<Result> results;
    for (const std::string& name : names) {
        const Bytes data = readFile(kDir + "/" + name);
        Result r;
        r.name = name;
        Page ours, theirs;
        decodeOurs(data, &ours);
#ifdef PDFKILN_HAVE_LIBJBIG2DEC
        decodeJbig2dec(data, &theirs);
        r.comparable = ours.ok && samePixels(ours, theirs);
        r.note = r.comparable ? "" : (!theirs.ok ? "jbig2dec gives no page" : !ours.ok ? "no page here" : "pages differ");
#endif
        // Repetitions for a batch of about 2 ms, from one decode of each.
        double once = timeBatch(decodeOurs, data, 1);
#ifdef PDFKILN_HAVE_LIBJBIG2DEC
        once = std::max(once, timeBatch(decodeJbig2dec, data, 1));
#endif
        const int reps = std::max(1, static_cast<int>(batch / std::max(once, 1e-7)));
        for (int k = 0; k < rounds; ++k) {
            r.ours = std::min(r.ours, timeBatch(decodeOurs, data, reps));
#ifdef PDFKILN_HAVE_LIBJBIG2DEC
            r.theirs = std::min(r.theirs, timeBatch(decodeJbig2dec, data, reps));
#endif
        }
        results.push_back(r);
    }

    std::sort(results.begin(), results.end(), [](const Result& a, const Result& b) { return a.theirs > b.theirs; });
    double sumOurs = 0, sumTheirs = 0, allOurs = 0, allTheirs = 0;
    int compared = 0, slower = 0;
    std::printf("%-56s %12s %12s %7s\n", "file (heaviest for jbig2dec first)", "ours us", "jbig2dec us", "ratio");
    for (const Result& r : results) {
        allOurs += r.ours;
        allTheirs += r.theirs;
        if (r.comparable) {
            sumOurs += r.ours;
            sumTheirs += r.theirs;
            ++compared;
            if (r.ours > r.theirs) ++slower;
        }
#ifdef PDFKILN_HAVE_LIBJBIG2DEC
        std::printf("%-56s %12.1f %12.1f %7.3f %s%s\n", r.name.c_str(), r.ours * 1e6, r.theirs * 1e6, r.ours / r.theirs,
                    r.comparable && r.ours > r.theirs ? "SLOWER " : "", r.note.c_str());
#else
        std::printf("%-56s %12.1f\n", r.name.c_str(), r.ours * 1e6);
#endif
    }
#ifdef PDFKILN_HAVE_LIBJBIG2DEC
    std::printf("\nsame page from both: %d of %zu files\n", compared, results.size());
    std::printf("summed over those:   ours %.1f us, jbig2dec %.1f us, ratio %.3f (goal at most 0.67)\n", sumOurs * 1e6,
                sumTheirs * 1e6, sumOurs / sumTheirs);
    std::printf("slower than jbig2dec on %d of them (goal 0)\n", slower);
    std::printf("summed over all files: ours %.1f us, jbig2dec %.1f us, ratio %.3f\n", allOurs * 1e6, allTheirs * 1e6,
                allOurs / allTheirs);
#else
    std::printf("\nsummed over all files: ours %.1f us\n", allOurs * 1e6);
#endif
    return 0;
}
