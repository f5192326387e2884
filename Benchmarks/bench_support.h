// Shared by the page benchmarks: a generator of test documents in a few
// shapes, and a runner that measures a child process's wall time and peak
// resident set.
#ifndef PDFKILN_BENCH_SUPPORT_H
#define PDFKILN_BENCH_SUPPORT_H

#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

extern char** environ;

namespace bench {

// How the page tree is built and what each page brings of its own.
enum class Shape {
    Shared,  // two-level tree, nodes of 50 pages; font, image and form shared by all pages
    Unique,  // as Shared, plus an image XObject of each page's own
    Flat     // as Shared, every page a direct kid of the root /Pages
};

inline const char* shapeName(Shape s) {
    switch (s) {
        case Shape::Shared: return "shared";
        case Shape::Unique: return "unique";
        case Shape::Flat: return "flat";
    }
    return "?";
}

struct DocOptions {
    int pages = 500;
    Shape shape = Shape::Shared;
    // Decoded content per page in bytes, Flate-compressed in the file; 0 gives
    // one short uncompressed line per page.
    std::size_t contentBytes = 2300;
    bool sharedImage = true;  // a shared image beside the shared form
    // The page's own image under Shape::Unique: gray, 8 bits, uncompressed.
    int ownImageWidth = 8, ownImageHeight = 8;
};

inline std::string deflated(const std::string& data) {
    uLongf size = compressBound(static_cast<uLong>(data.size()));
    std::string out(size, '\0');
    compress2(reinterpret_cast<Bytef*>(&out[0]), &size, reinterpret_cast<const Bytef*>(data.data()),
              static_cast<uLong>(data.size()), 6);
    out.resize(size);
    return out;
}

// A page's content: lines of text in the shared font until `bytes` are
// reached, then the shared form and image (and the page's own image) placed.
inline std::string pageContent(int page, std::size_t bytes, bool image, bool ownImage) {
    std::string s;
    static const char* const words[] = {"lorem", "ipsum", "dolor", "sit", "amet", "consectetur", "adipiscing",
                                        "elit", "sed", "do", "eiusmod", "tempor", "incididunt", "labore"};
    std::uint32_t seed = 2166136261u ^ static_cast<std::uint32_t>(page);
    for (int line = 0; s.size() < bytes; ++line) {
        s += "BT /F1 10 Tf 72 " + std::to_string(760 - (line % 60) * 12) + " Td (";
        for (int w = 0; w < 9; ++w) {
            seed = seed * 1664525u + 1013904223u;
            s += words[(seed >> 16) % 14];
            s += ' ';
        }
        s += "p" + std::to_string(page) + ") Tj ET\n";
    }
    s += "q 1 0 0 1 400 60 cm /X Do Q\n";
    if (image) s += "q 64 0 0 64 480 60 cm /Im Do Q\n";
    if (ownImage) s += "q 32 0 0 32 550 60 cm /Own Do Q\n";
    return s;
}

// A complete PDF of o.pages pages. Object numbers: 1 catalog, 2 root /Pages,
// 3 font, 4 form, 5 image, 10... intermediate nodes, then per page the page
// object, its content stream and (Shape::Unique) its own image.
inline std::string makeDocument(const DocOptions& o) {
    const int pages = o.pages;
    const bool flat = o.shape == Shape::Flat, own = o.shape == Shape::Unique;
    const bool compressed = o.contentBytes > 0;
    std::string out = "%PDF-1.7\n%\xe2\xe3\xcf\xd3\n";
    const int groups = flat ? 0 : (pages + 49) / 50;
    const int firstGroup = 10, firstPage = firstGroup + groups, stride = own ? 3 : 2;
    const int size = firstPage + stride * pages;
    std::vector<long> offsets(static_cast<std::size_t>(size), -1);
    auto put = [&](int n, const std::string& body) {
        offsets[static_cast<std::size_t>(n)] = static_cast<long>(out.size());
        out += std::to_string(n) + " 0 obj\n" + body + "\nendobj\n";
    };
    auto stream = [&](int n, const std::string& dict, const std::string& data) {
        offsets[static_cast<std::size_t>(n)] = static_cast<long>(out.size());
        out += std::to_string(n) + " 0 obj\n<< " + dict + " /Length " + std::to_string(data.size()) + " >>\nstream\n";
        out += data;
        out += "\nendstream\nendobj\n";
    };
    auto pageRef = [&](int p) { return std::to_string(firstPage + stride * p) + " 0 R "; };

    put(1, "<< /Type /Catalog /Pages 2 0 R >>");
    std::string kids;
    if (flat)
        for (int p = 0; p < pages; ++p) kids += pageRef(p);
    else
        for (int g = 0; g < groups; ++g) kids += std::to_string(firstGroup + g) + " 0 R ";
    put(2, "<< /Type /Pages /Kids [" + kids + "] /Count " + std::to_string(pages) + " /MediaBox [0 0 612 792] >>");
    put(3, "<< /Type /Font /Subtype /Type1 /BaseFont /Helvetica /Encoding /WinAnsiEncoding >>");
    stream(4, "/Type /XObject /Subtype /Form /BBox [0 0 50 50]", "0 0 1 rg 0 0 50 50 re f\n");
    if (o.sharedImage) {
        std::string pixels;
        for (int i = 0; i < 16 * 16 * 3; ++i) pixels += static_cast<char>((i * 37) & 0xff);
        stream(5, "/Type /XObject /Subtype /Image /Width 16 /Height 16 /ColorSpace /DeviceRGB /BitsPerComponent 8",
               pixels);
    }
    for (int g = 0; g < groups; ++g) {
        std::string k;
        const int n = std::min(50, pages - g * 50);
        for (int i = 0; i < n; ++i) k += pageRef(g * 50 + i);
        put(firstGroup + g, "<< /Type /Pages /Parent 2 0 R /Kids [" + k + "] /Count " + std::to_string(n) + " >>");
    }
    const std::size_t ownBytes =
        static_cast<std::size_t>(o.ownImageWidth) * static_cast<std::size_t>(o.ownImageHeight);
    for (int p = 0; p < pages; ++p) {
        const int page = firstPage + stride * p, content = page + 1, image = page + 2;
        std::string xobjects = "/X 4 0 R";
        if (o.sharedImage) xobjects += " /Im 5 0 R";
        if (own) xobjects += " /Own " + std::to_string(image) + " 0 R";
        put(page, "<< /Type /Page /Parent " + (flat ? std::string("2") : std::to_string(firstGroup + p / 50)) +
                      " 0 R /Contents " + std::to_string(content) +
                      " 0 R /Resources << /Font << /F1 3 0 R >> /XObject << " + xobjects + " >> >> >>");
        if (compressed)
            stream(content, "/Filter /FlateDecode",
                   deflated(pageContent(p + 1, o.contentBytes, o.sharedImage, own)));
        else
            stream(content, "",
                   "BT /F1 24 Tf 72 700 Td (Page " + std::to_string(p + 1) + ") Tj ET q 1 0 0 1 72 600 cm /X Do Q\n");
        if (own) {
            std::string pixels(ownBytes, '\0');
            std::uint32_t seed = static_cast<std::uint32_t>(p) * 2654435761u + 1;
            for (std::size_t i = 0; i < ownBytes; ++i) {
                seed = seed * 1664525u + 1013904223u;
                pixels[i] = static_cast<char>(seed >> 24);
            }
            stream(image,
                   "/Type /XObject /Subtype /Image /Width " + std::to_string(o.ownImageWidth) + " /Height " +
                       std::to_string(o.ownImageHeight) + " /ColorSpace /DeviceGray /BitsPerComponent 8",
                   pixels);
        }
    }
    const long xref = static_cast<long>(out.size());
    out += "xref\n0 " + std::to_string(size) + "\n0000000000 65535 f \n";
    char entry[32];
    for (int n = 1; n < size; ++n) {
        const long at = offsets[static_cast<std::size_t>(n)];
        if (at < 0) std::snprintf(entry, sizeof entry, "0000000000 00001 f \n");
        else std::snprintf(entry, sizeof entry, "%010ld 00000 n \n", at);
        out += entry;
    }
    out += "trailer\n<< /Size " + std::to_string(size) + " /Root 1 0 R >>\nstartxref\n" + std::to_string(xref) +
           "\n%%EOF\n";
    return out;
}

inline bool writeFile(const std::string& path, const std::string& data) {
    FILE* f = std::fopen(path.c_str(), "wb");
    if (!f) return false;
    const bool ok = std::fwrite(data.data(), 1, data.size(), f) == data.size();
    return std::fclose(f) == 0 && ok;
}

// Writes the document of `o` to `path` from a forked child and returns its
// size (0 on failure). The calling process never holds the document: the
// peak resident set that wait4 reports for a child spawned later includes
// the parent's own peak (vfork and exec carry it over), so a benchmark that
// measures children's memory must stay small itself.
inline std::size_t writeDocument(const DocOptions& o, const std::string& path) {
    std::fflush(nullptr);
    const pid_t pid = fork();
    if (pid < 0) return 0;
    if (pid == 0) _exit(writeFile(path, makeDocument(o)) ? 0 : 1);
    int status = 0;
    if (waitpid(pid, &status, 0) < 0 || !WIFEXITED(status) || WEXITSTATUS(status) != 0) return 0;
    struct stat st {};
    return stat(path.c_str(), &st) == 0 ? static_cast<std::size_t>(st.st_size) : 0;
}

// One child process: wall seconds from spawn to exit, and its peak resident
// set from wait4's rusage (see writeDocument on what that peak includes).
struct Measured {
    bool ok = false;  // started and exited with status 0
    int status = -1;  // exit status, 128 + signal when killed, -1 when not started
    double seconds = 0;
    double peakMiB = 0;
};

// Runs args[0] (searched on PATH) with standard output and error sent to
// /dev/null.
inline Measured runMeasured(const std::vector<std::string>& args) {
    Measured m;
    std::vector<char*> argv;
    for (const std::string& a : args) argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
    const auto t0 = std::chrono::steady_clock::now();
    pid_t pid = 0;
    const int rc = posix_spawnp(&pid, argv[0], &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (rc != 0) return m;
    int status = 0;
    struct rusage usage {};
    if (wait4(pid, &status, 0, &usage) < 0) return m;
    m.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    m.peakMiB = static_cast<double>(usage.ru_maxrss) / 1024.0;
    m.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    m.ok = m.status == 0;
    return m;
}

// True when the command runs and exits with one of the given statuses.
inline bool available(const std::vector<std::string>& args, std::vector<int> statuses = {0}) {
    const Measured m = runMeasured(args);
    return m.status >= 0 && std::find(statuses.begin(), statuses.end(), m.status) != statuses.end();
}

// The pdfkiln tool of the build tree that holds the running benchmark.
inline std::string toolBeside(const char* argv0) {
    const std::string self = argv0;
    const std::size_t slash = self.rfind('/');
    const std::string dir = slash == std::string::npos ? std::string("./") : self.substr(0, slash + 1);
    return dir + "../Tools/pdfkiln/pdfkiln";
}

}  // namespace bench

#endif
