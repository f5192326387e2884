// The main job from outside, one process per run: `pdfkiln compose -o OUT IN`
// over every page of a generated document, beside `qpdf --empty --pages IN
// 1-z -- OUT` and `mutool merge -o OUT IN` on the same file. Wall time and
// peak resident set of each process, as ratios, for three shapes of page tree
// at 500 to 8,000 pages; the cost per page against that of the smallest size
// shows how the work grows. Then opening a 20,000-page file and a ~100 MB
// file (large image streams): `pdfkiln info` beside `qpdf --show-npages`.
//
// usage: bench_mainjob [--shapes shared,unique,flat] [--sizes 500,1000,...]
//                      [--max PAGES] [--runs N] [--no-open] [--open-only]
//                      [--pdfkiln PATH] [--workdir DIR]
// Sizes up to 2,000 pages take the median of --runs runs (3), larger sizes one.
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "bench_support.h"

namespace {

struct Options {
    std::vector<bench::Shape> shapes{bench::Shape::Shared, bench::Shape::Unique, bench::Shape::Flat};
    std::vector<int> sizes{500, 1000, 2000, 4000, 8000};
    int runs = 3;
    bool mainJob = true, open = true;
    bool keep = false;
    bool encrypted = true;  // the AES-256 section  // leave the generated inputs in the work directory (for profiling)
    std::string tool;
    std::string workdir;
};

void usage() {
    std::fputs("usage: bench_mainjob [--shapes shared,unique,flat] [--sizes 500,1000,...] [--max PAGES]\n"
               "                     [--runs N] [--no-open] [--open-only] [--pdfkiln PATH] [--workdir DIR]\n"
               "                     [--keep] [--no-encrypted] [--encrypted-only]\n",
               stderr);
}

std::vector<std::string> split(const std::string& s) {
    std::vector<std::string> v;
    std::size_t at = 0;
    while (at <= s.size()) {
        const std::size_t comma = std::min(s.find(',', at), s.size());
        if (comma > at) v.push_back(s.substr(at, comma - at));
        at = comma + 1;
    }
    return v;
}

bool parse(int argc, char** argv, Options& o) {
    int max = 0;
    for (int i = 1; i < argc; ++i) {
        const std::string a = argv[i];
        const bool hasValue = i + 1 < argc;
        if (a == "--shapes" && hasValue) {
            o.shapes.clear();
            for (const std::string& s : split(argv[++i])) {
                if (s == "shared") o.shapes.push_back(bench::Shape::Shared);
                else if (s == "unique") o.shapes.push_back(bench::Shape::Unique);
                else if (s == "flat") o.shapes.push_back(bench::Shape::Flat);
                else return false;
            }
        } else if (a == "--sizes" && hasValue) {
            o.sizes.clear();
            for (const std::string& s : split(argv[++i])) {
                const int n = std::atoi(s.c_str());
                if (n < 1) return false;
                o.sizes.push_back(n);
            }
        } else if (a == "--max" && hasValue) {
            max = std::atoi(argv[++i]);
            if (max < 1) return false;
        } else if (a == "--runs" && hasValue) {
            o.runs = std::atoi(argv[++i]);
            if (o.runs < 1) return false;
        } else if (a == "--no-open") {
            o.open = false;
        } else if (a == "--open-only") {
            o.mainJob = false;
            o.encrypted = false;
        } else if (a == "--no-encrypted") {
            o.encrypted = false;
        } else if (a == "--encrypted-only") {
            o.mainJob = false;
            o.open = false;
        } else if (a == "--pdfkiln" && hasValue) {
            o.tool = argv[++i];
        } else if (a == "--keep") {
            o.keep = true;
        } else if (a == "--workdir" && hasValue) {
            o.workdir = argv[++i];
        } else {
            return false;
        }
    }
    if (max > 0) o.sizes.erase(std::remove_if(o.sizes.begin(), o.sizes.end(), [&](int n) { return n > max; }),
                               o.sizes.end());
    std::sort(o.sizes.begin(), o.sizes.end());
    return true;
}

// The median of `runs` runs of a command, time and peak memory taken
// separately; not ok when any run failed.
bench::Measured median(const std::vector<std::string>& args, int runs) {
    std::vector<double> seconds, mib;
    bench::Measured last;
    for (int i = 0; i < runs; ++i) {
        last = bench::runMeasured(args);
        if (!last.ok) return last;
        seconds.push_back(last.seconds);
        mib.push_back(last.peakMiB);
    }
    std::sort(seconds.begin(), seconds.end());
    std::sort(mib.begin(), mib.end());
    last.seconds = seconds[seconds.size() / 2];
    last.peakMiB = mib[mib.size() / 2];
    return last;
}

std::string ms(const bench::Measured& m) {
    char b[32];
    if (m.ok) std::snprintf(b, sizeof b, "%.0f", m.seconds * 1e3);
    else if (m.status < 0) std::snprintf(b, sizeof b, "-");
    else std::snprintf(b, sizeof b, "fail(%d)", m.status);
    return b;
}

std::string mib(const bench::Measured& m) {
    char b[32];
    if (m.ok) std::snprintf(b, sizeof b, "%.1f", m.peakMiB);
    else std::snprintf(b, sizeof b, "-");
    return b;
}

std::string ratio(double a, double b, bool ok) {
    char r[32];
    if (ok && b > 0) std::snprintf(r, sizeof r, "%.2f", a / b);
    else std::snprintf(r, sizeof r, "-");
    return r;
}

struct Peers {
    bool qpdf = false, mutool = false;
};

void mainJob(const Options& o, const Peers& peers, const std::string& dir, bench::Shape shape) {
    std::printf("\n%s: %s\n", bench::shapeName(shape),
                shape == bench::Shape::Shared   ? "two-level tree (nodes of 50), shared font, image and form"
                : shape == bench::Shape::Unique ? "as shared, plus a small image of each page's own"
                                                : "as shared, every page a kid of the root /Pages");
    std::printf("%7s %8s %9s %9s %10s %10s %10s %5s %8s %8s %10s %9s\n", "pages", "MB", "ours ms", "qpdf ms",
                "mutool ms", "ours/qpdf", "ours/mut", "runs", "ours MiB", "qpdf MiB", "mutool MiB", "mem o/q");
    double basePerPage = 0;
    int basePages = 0;
    std::vector<std::string> growth;
    for (int pages : o.sizes) {
        bench::DocOptions d;
        d.pages = pages;
        d.shape = shape;
        const std::string in = dir + "/" + bench::shapeName(shape) + "-" + std::to_string(pages) + ".pdf", ours = dir + "/ours.pdf", qout = dir + "/qpdf.pdf",
                          mout = dir + "/mutool.pdf";
        const std::size_t size = bench::writeDocument(d, in);
        if (size == 0) {
            std::printf("cannot write %s\n", in.c_str());
            return;
        }
        const int runs = pages <= 2000 ? o.runs : 1;
        const bench::Measured a = median({o.tool, "compose", "-o", ours, in}, runs);
        bench::Measured q, m;
        if (peers.qpdf) q = median({"qpdf", "--empty", "--pages", in, "1-z", "--", qout}, runs);
        if (peers.mutool) m = median({"mutool", "merge", "-o", mout, in}, runs);
        std::printf("%7d %8.1f %9s %9s %10s %10s %10s %5d %8s %8s %10s %9s", pages, size / 1e6, ms(a).c_str(),
                    ms(q).c_str(), ms(m).c_str(), ratio(a.seconds, q.seconds, a.ok && q.ok).c_str(),
                    ratio(a.seconds, m.seconds, a.ok && m.ok).c_str(), runs, mib(a).c_str(), mib(q).c_str(),
                    mib(m).c_str(), ratio(a.peakMiB, q.peakMiB, a.ok && q.ok).c_str());
        if (a.ok) {
            const double perPage = a.seconds / pages;
            if (basePages == 0) {
                basePages = pages;
                basePerPage = perPage;
            }
            char g[64];
            std::snprintf(g, sizeof g, "%d: %.2f", pages, perPage / basePerPage);
            growth.push_back(g);
        }
        std::printf("\n");
        std::fflush(stdout);
        for (const std::string* f : {&in, &ours, &qout, &mout})
            if (!o.keep || f != &in) std::remove(f->c_str());
    }
    if (!growth.empty()) {
        std::printf("  our cost per page relative to %d pages:", basePages);
        for (const std::string& g : growth) std::printf("  %s", g.c_str());
        std::printf("\n");
    }
}

void opening(const Options& o, const Peers& peers, const std::string& dir) {
    std::printf("\nopening: pdfkiln object FILE 1 beside qpdf --show-npages FILE (median of %d)\n", o.runs);
    std::printf("%-44s %8s %9s %9s %10s %8s %8s %9s\n", "file", "MB", "ours ms", "qpdf ms", "ours/qpdf", "ours MiB",
                "qpdf MiB", "mem o/q");
    struct Case {
        const char* label;
        bench::DocOptions doc;
    };
    bench::DocOptions many;
    many.pages = 20000;
    bench::DocOptions big;  // 48 pages, each with a 2 MB image of its own
    big.pages = 48;
    big.shape = bench::Shape::Unique;
    big.ownImageWidth = big.ownImageHeight = 1448;
    for (const Case& c : {Case{"20,000 pages, shared (two-level tree)", many},
                          Case{"48 pages with a 2 MB image each", big}}) {
        const std::string in = dir + (c.doc.pages == 20000 ? "/open-20000.pdf" : "/open-big.pdf");
        const std::size_t size = bench::writeDocument(c.doc, in);
        if (size == 0) {
            std::printf("cannot write %s\n", in.c_str());
            return;
        }
        const bench::Measured a = median({o.tool, "object", in, "1"}, o.runs);
        bench::Measured q;
        if (peers.qpdf) q = median({"qpdf", "--show-npages", in}, o.runs);
        std::printf("%-44s %8.1f %9s %9s %10s %8s %8s %9s\n", c.label, size / 1e6, ms(a).c_str(), ms(q).c_str(),
                    ratio(a.seconds, q.seconds, a.ok && q.ok).c_str(), mib(a).c_str(), mib(q).c_str(),
                    ratio(a.peakMiB, q.peakMiB, a.ok && q.ok).c_str());
        std::fflush(stdout);
        if (!o.keep) std::remove(in.c_str());
    }
}

// The main job on a 500-page file encrypted with AES-256 (revision 6, by
// qpdf), opened with its user password, beside the same job on the file
// unencrypted and beside qpdf's page copy of the encrypted file.
void encryptedJob(const Options& o, const Peers& peers, const std::string& dir) {
    std::printf("\nencrypted: 500 pages (shared), AES-256 R6 by qpdf, composed with the user password "
                "(median of %d)\n", o.runs);
    if (!peers.qpdf) {
        std::printf("  needs qpdf to encrypt the input\n");
        return;
    }
    bench::DocOptions d;
    d.pages = 500;
    const std::string plain = dir + "/enc-plain.pdf", enc = dir + "/enc-aes256.pdf", out = dir + "/enc-out.pdf";
    if (bench::writeDocument(d, plain) == 0 ||
        !bench::runMeasured({"qpdf", "--encrypt", "user", "owner", "256", "--", plain, enc}).ok) {
        std::printf("  cannot write the inputs\n");
        return;
    }
    const bench::Measured p = median({o.tool, "compose", "-o", out, plain}, o.runs);
    const bench::Measured a = median({o.tool, "compose", "--password", "user", "-o", out, enc}, o.runs);
    const bench::Measured q = median({"qpdf", "--empty", "--pages", enc, "--password=user", "1-z", "--", out}, o.runs);
    std::printf("%-26s %9s %9s %9s %14s %10s\n", "", "ours ms", "plain ms", "qpdf ms", "ours/plain", "ours/qpdf");
    std::printf("%-26s %9s %9s %9s %14s %10s\n", "500 pages, AES-256 R6", ms(a).c_str(), ms(p).c_str(), ms(q).c_str(),
                ratio(a.seconds, p.seconds, a.ok && p.ok).c_str(), ratio(a.seconds, q.seconds, a.ok && q.ok).c_str());
    for (const std::string* f : {&plain, &enc, &out})
        if (!o.keep || f == &out) std::remove(f->c_str());
}

}  // namespace

int main(int argc, char** argv) {
    Options o;
    if (!parse(argc, argv, o)) {
        usage();
        return 2;
    }
    if (o.tool.empty()) o.tool = bench::toolBeside(argv[0]);
    if (access(o.tool.c_str(), X_OK) != 0) {
        std::fprintf(stderr, "bench_mainjob: no pdfkiln tool at %s (give --pdfkiln PATH)\n", o.tool.c_str());
        return 2;
    }
    Peers peers;
    peers.qpdf = bench::available({"qpdf", "--version"});
    peers.mutool = bench::available({"mutool", "-v"}, {0, 1});
    bool ownDir = false;
    if (o.workdir.empty()) {
        char templ[] = "/tmp/pdfkiln_bench_mainjob.XXXXXX";
        if (!mkdtemp(templ)) {
            std::perror("mkdtemp");
            return 1;
        }
        o.workdir = templ;
        ownDir = true;
    }
    std::printf("pdfkiln: %s\nqpdf: %s, mutool: %s; wall time and peak RSS of each process\n", o.tool.c_str(),
                peers.qpdf ? "yes" : "not installed", peers.mutool ? "yes" : "not installed");
    std::printf("main job: pdfkiln compose -o OUT IN | qpdf --empty --pages IN 1-z -- OUT | mutool merge -o OUT IN\n");
    std::printf("each page about 2.3 KB of content (Flate); median of %d runs up to 2,000 pages, one run above\n",
                o.runs);
    if (o.mainJob)
        for (bench::Shape s : o.shapes) mainJob(o, peers, o.workdir, s);
    if (o.open) opening(o, peers, o.workdir);
    if (o.encrypted) encryptedJob(o, peers, o.workdir);
    if (ownDir) std::filesystem::remove_all(o.workdir);
    return 0;
}
