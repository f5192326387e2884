// pdfkiln jbig2 IN -o OUT.png|OUT.pbm [--embedded]
// pdfkiln jbig2 IN --embedded --globals G -o OUT.png|OUT.pbm
// pdfkiln jbig2 FILE.pdf --object N -o OUT.png|OUT.pbm
// pdfkiln jbig2 FILE.pdf --all -o OUT.png|OUT.pbm
//
// Decodes a JBIG2 file (or, with --embedded, a PDF-embedded JBIG2 stream)
// with jbig2::Jbig2Decoder and writes its first page as an image: PBM (P4) or
// a 1-bit greyscale PNG. With --globals (or --new) the embedded stream is
// decoded by JBIG2Dec, the second decoder, with G as its /JBIG2Globals. With
// --object N, image object N of a PDF is read through the library, its
// /JBIG2Decode data and its /JBIG2Globals stream are decoded with
// Jbig2ToRGB_New, and the image is written at the object's /Width and
// /Height; --all does so for every JBIG2 image of the PDF, writing OUT with
// "-N" (the object number) before its extension, or with N in place of a
// "%d" in OUT. The PNG is written with stored deflate blocks and its own CRC
// and Adler sums.
#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

#include <zlib.h>

#include "PDFKilnPage/PDFKilnPage.h"
#include "commands.h"
#include "jbig2/jbig2decoder.h"
#include "jbig2/jbig2streamdec.h"

namespace {

struct Raster {
    uint32_t width = 0;
    uint32_t height = 0;
    uint32_t stride = 0;
    std::vector<unsigned char> bits;  // 1 is black, rows from the top
};

bool endsWith(const std::string& s, const char* suffix) {
    const std::size_t n = std::strlen(suffix);
    if (s.size() < n) return false;
    std::string tail = s.substr(s.size() - n);
    for (char& c : tail) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return tail == suffix;
}

bool writePbm(const std::string& path, const Raster& r) {
    std::ofstream out(path, std::ios::binary);
    if (!out) return false;
    out << "P4\n" << r.width << " " << r.height << "\n";
    // P4 rows are (width+7)/8 bytes, 1 is black: the decoder's own layout.
    const uint32_t rowBytes = (r.width + 7) / 8;
    for (uint32_t y = 0; y < r.height; ++y)
        out.write(reinterpret_cast<const char*>(r.bits.data() + static_cast<std::size_t>(y) * r.stride), rowBytes);
    return static_cast<bool>(out);
}

uint32_t crc32Of(const unsigned char* p, std::size_t n, uint32_t crc = 0) {
    static uint32_t table[256];
    static bool made = false;
    if (!made) {
        for (uint32_t i = 0; i < 256; ++i) {
            uint32_t c = i;
            for (int k = 0; k < 8; ++k) c = (c & 1) ? 0xEDB88320u ^ (c >> 1) : c >> 1;
            table[i] = c;
        }
        made = true;
    }
    crc = ~crc;
    for (std::size_t i = 0; i < n; ++i) crc = table[(crc ^ p[i]) & 0xFF] ^ (crc >> 8);
    return ~crc;
}

void put32(std::vector<unsigned char>& v, uint32_t x) {
    v.push_back(static_cast<unsigned char>(x >> 24));
    v.push_back(static_cast<unsigned char>(x >> 16));
    v.push_back(static_cast<unsigned char>(x >> 8));
    v.push_back(static_cast<unsigned char>(x));
}

void chunk(std::vector<unsigned char>& png, const char* type, const std::vector<unsigned char>& data) {
    put32(png, static_cast<uint32_t>(data.size()));
    std::vector<unsigned char> body(type, type + 4);
    body.insert(body.end(), data.begin(), data.end());
    png.insert(png.end(), body.begin(), body.end());
    put32(png, crc32Of(body.data(), body.size()));
}

bool writePng(const std::string& path, const Raster& r) {
    // Scanlines: filter byte 0, then the row inverted (PNG greyscale 0 is black).
    const uint32_t rowBytes = (r.width + 7) / 8;
    std::vector<unsigned char> raw;
    raw.reserve(static_cast<std::size_t>(r.height) * (rowBytes + 1));
    for (uint32_t y = 0; y < r.height; ++y) {
        raw.push_back(0);
        const unsigned char* row = r.bits.data() + static_cast<std::size_t>(y) * r.stride;
        for (uint32_t i = 0; i < rowBytes; ++i) raw.push_back(static_cast<unsigned char>(~row[i]));
    }
    // zlib stream of stored blocks.
    std::vector<unsigned char> z = {0x78, 0x01};
    std::size_t pos = 0;
    do {
        const std::size_t n = std::min<std::size_t>(65535, raw.size() - pos);
        z.push_back(pos + n == raw.size() ? 1 : 0);
        z.push_back(static_cast<unsigned char>(n));
        z.push_back(static_cast<unsigned char>(n >> 8));
        z.push_back(static_cast<unsigned char>(~n));
        z.push_back(static_cast<unsigned char>(~n >> 8));
        z.insert(z.end(), raw.begin() + static_cast<std::ptrdiff_t>(pos), raw.begin() + static_cast<std::ptrdiff_t>(pos + n));
        pos += n;
    } while (pos < raw.size());
    uint32_t a = 1, b = 0;
    for (unsigned char c : raw) {
        a = (a + c) % 65521;
        b = (b + a) % 65521;
    }
    put32(z, (b << 16) | a);

    std::vector<unsigned char> png = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
    std::vector<unsigned char> ihdr;
    put32(ihdr, r.width);
    put32(ihdr, r.height);
    ihdr.insert(ihdr.end(), {1, 0, 0, 0, 0});  // 1 bit, greyscale, deflate, no filter, no interlace
    chunk(png, "IHDR", ihdr);
    chunk(png, "IDAT", z);
    chunk(png, "IEND", {});
    std::ofstream out(path, std::ios::binary);
    if (!out) return false;
    out.write(reinterpret_cast<const char*>(png.data()), static_cast<std::streamsize>(png.size()));
    return static_cast<bool>(out);
}

int usage() {
    std::fprintf(stderr,
                 "usage: pdfkiln jbig2 IN -o OUT.png|OUT.pbm [--embedded [--globals G | --new]]\n"
                 "       pdfkiln jbig2 FILE.pdf (--object N | --all) -o OUT.png|OUT.pbm\n"
                 "  --globals G   decode the embedded stream IN with /JBIG2Globals G (JBIG2Dec)\n"
                 "  --new         decode the embedded stream IN by JBIG2Dec, without globals\n"
                 "  --object N    image object N of the PDF: its /JBIG2Decode data and /JBIG2Globals\n"
                 "                through Jbig2ToRGB_New, written at its /Width and /Height\n"
                 "  --all         every JBIG2 image of the PDF; OUT gets -N (the object number)\n"
                 "                before its extension, or N in place of %%d\n");
    return 2;
}

bool readWholeFile(const std::string& path, std::vector<unsigned char>& data) {
    std::ifstream file(path, std::ios::binary);
    if (!file) return false;
    data.assign((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    return true;
}

bool writeRaster(const std::string& path, const Raster& r) {
    return endsWith(path, ".png") ? writePng(path, r) : writePbm(path, r);
}

// ---- PDF objects, through the library ------------------------------------

using namespace PDF_KILN;

struct PdfObject {
    std::string dict;    // the object's text before its stream data
    std::string stream;  // the raw (still filtered) stream data
    bool ok = false;
};

PdfObject fetchObject(CSourFile& src, int num, int gen) {
    PdfObject o;
    CDestFile sink;
    sink.modeFlags |= CDestFile::kKeepNumbers;
    CObj obj(SObj(num, gen));
    src.clear();
    if (!obj.Write(sink, src)) return o;
    const std::string text(sink.data(), sink.size());
    if (sink.streamDataSize || text.find("stream") != std::string::npos) {
        o.dict = text.substr(0, std::min(sink.streamDataPos, text.size()));
        o.stream = text.substr(std::min(sink.streamDataPos, text.size()), sink.streamDataSize);
    } else {
        o.dict = text;
    }
    o.ok = true;
    return o;
}

bool isDelimiter(char c) {
    return std::isspace(static_cast<unsigned char>(c)) || c == '/' || c == '[' || c == ']' || c == '<' || c == '>' ||
           c == '(' || c == ')' || c == '%' || c == '{' || c == '}';
}

// Where the value of /Key starts in `dict` (npos when absent): the name must
// end at a delimiter, so /Width does not find /WidthX.
std::size_t findKey(const std::string& dict, const std::string& key) {
    std::size_t at = 0;
    while ((at = dict.find(key, at)) != std::string::npos) {
        const std::size_t end = at + key.size();
        if (end >= dict.size() || isDelimiter(dict[end])) {
            std::size_t v = end;
            while (v < dict.size() && std::isspace(static_cast<unsigned char>(dict[v]))) ++v;
            return v;
        }
        at = end;
    }
    return std::string::npos;
}

// An integer, or a reference "N G R" (then *isRef and the numbers).
bool readNumberOrRef(const std::string& dict, std::size_t at, long* value, bool* isRef, int* refGen) {
    if (at == std::string::npos) return false;
    char* end = nullptr;
    const long a = std::strtol(dict.c_str() + at, &end, 10);
    if (end == dict.c_str() + at) return false;
    *value = a;
    *isRef = false;
    char* end2 = nullptr;
    const long g = std::strtol(end, &end2, 10);
    if (end2 != end) {
        const char* p = end2;
        while (*p && std::isspace(static_cast<unsigned char>(*p))) ++p;
        if (*p == 'R' && (p[1] == 0 || isDelimiter(p[1]))) {
            *isRef = true;
            *refGen = static_cast<int>(g);
        }
    }
    return true;
}

// A direct integer or one behind a reference.
bool intValue(CSourFile& src, const std::string& dict, const std::string& key, long* out) {
    long v;
    bool ref;
    int gen = 0;
    if (!readNumberOrRef(dict, findKey(dict, key), &v, &ref, &gen)) return false;
    if (!ref) {
        *out = v;
        return true;
    }
    const PdfObject target = fetchObject(src, static_cast<int>(v), gen);
    const std::size_t obj = target.dict.find("obj");
    if (!target.ok || obj == std::string::npos) return false;
    char* end = nullptr;
    const char* start = target.dict.c_str() + obj + 3;
    *out = std::strtol(start, &end, 10);
    return end != start;
}

// The names of /Filter, in order.
std::vector<std::string> filterNames(const std::string& dict) {
    std::vector<std::string> names;
    std::size_t at = findKey(dict, "/Filter");
    if (at == std::string::npos) return names;
    const bool array = dict[at] == '[';
    if (array) ++at;
    while (at < dict.size()) {
        while (at < dict.size() && std::isspace(static_cast<unsigned char>(dict[at]))) ++at;
        if (at >= dict.size() || dict[at] != '/') break;
        std::size_t end = at + 1;
        while (end < dict.size() && !isDelimiter(dict[end])) ++end;
        names.push_back(dict.substr(at, end - at));
        at = end;
        if (!array) break;
    }
    return names;
}

bool inflate(const std::string& in, std::string& out) {
    z_stream z;
    std::memset(&z, 0, sizeof z);
    if (inflateInit(&z) != Z_OK) return false;
    z.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(in.data()));
    z.avail_in = static_cast<uInt>(in.size());
    char buf[65536];
    int rc;
    do {
        z.next_out = reinterpret_cast<Bytef*>(buf);
        z.avail_out = sizeof buf;
        rc = ::inflate(&z, Z_NO_FLUSH);
        out.append(buf, sizeof buf - z.avail_out);
    } while (rc == Z_OK && (z.avail_in > 0 || z.avail_out == 0));
    inflateEnd(&z);
    return rc == Z_STREAM_END || rc == Z_OK || rc == Z_BUF_ERROR;
}

// The stream's data with the filters before /JBIG2Decode undone (Flate
// only); `jbig2` tells whether /JBIG2Decode is the last filter.
bool unfilter(const PdfObject& o, bool wantJbig2, std::string& data, std::string& why) {
    std::vector<std::string> names = filterNames(o.dict);
    if (wantJbig2) {
        if (names.empty() || names.back() != "/JBIG2Decode") {
            why = "its last filter is not /JBIG2Decode";
            return false;
        }
        names.pop_back();
    }
    data = o.stream;
    for (const std::string& n : names) {
        if (n != "/FlateDecode" && n != "/Fl") {
            why = "filter " + n + " before the JBIG2 data is not supported";
            return false;
        }
        std::string out;
        if (!inflate(data, out)) {
            why = "its Flate data does not inflate";
            return false;
        }
        data.swap(out);
    }
    return true;
}

// Decodes image object (num, gen) and writes it to `out`.
bool decodePdfImage(CSourFile& src, int num, int gen, const std::string& out) {
    const PdfObject o = fetchObject(src, num, gen);
    if (!o.ok) {
        std::fprintf(stderr, "pdfkiln jbig2: object %d %d cannot be located\n", num, gen);
        return false;
    }
    std::string data, why;
    if (!unfilter(o, true, data, why)) {
        std::fprintf(stderr, "pdfkiln jbig2: object %d: %s\n", num, why.c_str());
        return false;
    }
    long width = 0, height = 0;
    if (!intValue(src, o.dict, "/Width", &width) || !intValue(src, o.dict, "/Height", &height) || width <= 0 ||
        height <= 0 || width > 0x7fffffffL || height > 0x7fffffffL) {
        std::fprintf(stderr, "pdfkiln jbig2: object %d has no usable /Width and /Height\n", num);
        return false;
    }
    std::string globals;
    long gnum;
    bool ref = false;
    int ggen = 0;
    if (readNumberOrRef(o.dict, findKey(o.dict, "/JBIG2Globals"), &gnum, &ref, &ggen) && ref) {
        const PdfObject g = fetchObject(src, static_cast<int>(gnum), ggen);
        if (!g.ok || !unfilter(g, false, globals, why)) {
            std::fprintf(stderr, "pdfkiln jbig2: object %d: its /JBIG2Globals %ld cannot be read%s%s\n", num, gnum,
                         why.empty() ? "" : ": ", why.c_str());
            return false;
        }
    }
    unsigned char* bytes = nullptr;
    unsigned int size = 0;
    Jbig2ToRGB_New(data.data(), static_cast<int>(data.size()), globals.data(), static_cast<int>(globals.size()), &bytes,
                   &size);
    // The image at the object's size: rows the decoder didn't give are white.
    Raster r;
    r.width = static_cast<uint32_t>(width);
    r.height = static_cast<uint32_t>(height);
    r.stride = (r.width + 7) / 8;
    const uint64_t need = static_cast<uint64_t>(r.stride) * r.height;
    // The raster is decoded data too: --max-decoded bounds it, with room for
    // the some four copies of it that writing a PNG holds.
    const uint64_t most = decodedBudget() ? decodedBudget() / 4 : (uint64_t(1) << 31);
    if (need > most) {
        std::free(bytes);
        std::fprintf(stderr, "pdfkiln jbig2: object %d: %ldx%ld is too large\n", num, width, height);
        return false;
    }
    r.bits.assign(static_cast<std::size_t>(need), 0);
    const std::size_t copy = std::min<std::size_t>(size, r.bits.size());
    // Jbig2ToRGB_New gives 0 for black; the raster keeps 1 for black.
    for (std::size_t i = 0; i < copy; ++i) r.bits[i] = static_cast<unsigned char>(~bytes[i]);
    std::free(bytes);
    if (!writeRaster(out, r)) {
        std::fprintf(stderr, "pdfkiln jbig2: cannot write %s\n", out.c_str());
        return false;
    }
    std::printf("%s: %u x %u, object %d of the PDF (%u bytes decoded, %zu of globals)\n", out.c_str(), r.width,
                r.height, num, size, globals.size());
    return true;
}

std::string outputFor(const std::string& pattern, int num) {
    const std::size_t pct = pattern.find("%d");
    if (pct != std::string::npos) return pattern.substr(0, pct) + std::to_string(num) + pattern.substr(pct + 2);
    const std::size_t dot = pattern.rfind('.');
    const std::size_t slash = pattern.rfind('/');
    if (dot == std::string::npos || (slash != std::string::npos && dot < slash))
        return pattern + "-" + std::to_string(num);
    return pattern.substr(0, dot) + "-" + std::to_string(num) + pattern.substr(dot);
}

int cmdJbig2Pdf(const std::string& in, long object, bool all, const std::string& out) {
    CPDFKilnPage doc(in.c_str(), "");
    doc.setDecodedBudget(decodedBudget());
    const int rc = doc.init();
    if (rc != 0 && rc != kResultNotLocalised) {
        std::fprintf(stderr, "pdfkiln jbig2: %s: cannot open (%d)\n", in.c_str(), rc);
        return 1;
    }
    CSourFile& src = *doc.getSource();
    if (!all) return decodePdfImage(src, static_cast<int>(object), 0, out) ? 0 : 1;
    std::vector<std::pair<int, int>> images;
    for (const auto& e : *src.fileInfo.objTable) {
        if (e.second.kind == 0) continue;
        const PdfObject o = fetchObject(src, e.first.num, e.first.gen);
        if (!o.ok || o.stream.empty()) continue;
        const std::vector<std::string> names = filterNames(o.dict);
        if (std::find(names.begin(), names.end(), "/JBIG2Decode") != names.end())
            images.emplace_back(e.first.num, e.first.gen);
    }
    int failed = 0;
    for (const auto& im : images)
        if (!decodePdfImage(src, im.first, im.second, outputFor(out, im.first))) ++failed;
    std::printf("%zu JBIG2 image(s) in %s, %d failed\n", images.size(), in.c_str(), failed);
    return failed ? 1 : 0;
}

}  // namespace

int cmdJbig2(int argc, char** argv) {
    std::string in, out, globalsPath;
    bool embedded = false, useNew = false, all = false;
    long object = -1;
    for (int i = 1; i < argc; ++i) {
        const std::string a = argv[i];
        if (a == "-o" && i + 1 < argc)
            out = argv[++i];
        else if (a == "--embedded")
            embedded = true;
        else if (a == "--globals" && i + 1 < argc)
            globalsPath = argv[++i];
        else if (a == "--new")
            useNew = true;
        else if (a == "--object" && i + 1 < argc)
            object = std::strtol(argv[++i], nullptr, 10);
        else if (a == "--all")
            all = true;
        else if (!a.empty() && a[0] != '-' && in.empty())
            in = a;
        else
            return usage();
    }
    if (in.empty() || out.empty()) return usage();
    const bool pdf = all || object >= 0;
    if ((pdf && (embedded || !globalsPath.empty() || useNew)) || (all && object >= 0)) return usage();
    // Globals exist only for the embedded form: --globals implies --embedded.
    if (!globalsPath.empty()) embedded = true;
    if (!endsWith(out, ".png") && !endsWith(out, ".pbm")) {
        std::fprintf(stderr, "pdfkiln jbig2: output must end in .png or .pbm\n");
        return 2;
    }
    if (pdf) return cmdJbig2Pdf(in, object, all, out);
    const bool png = endsWith(out, ".png");
    std::vector<unsigned char> data;
    if (!readWholeFile(in, data)) {
        std::fprintf(stderr, "pdfkiln jbig2: cannot open %s\n", in.c_str());
        return 1;
    }

    if (!globalsPath.empty() || useNew) {
        // JBIG2Dec, the decoder of Jbig2ToRGB_New, which reads globals.
        std::vector<unsigned char> globals;
        if (!globalsPath.empty() && !readWholeFile(globalsPath, globals)) {
            std::fprintf(stderr, "pdfkiln jbig2: cannot open %s\n", globalsPath.c_str());
            return 1;
        }
        const std::string d(data.begin(), data.end()), g(globals.begin(), globals.end());
        JBIG2Dec dec(&d, &g);
        dec.decode();
        const JBIG2Bitmap* page = dec.getPageBitmap();
        if (!page) {
            std::fprintf(stderr, "pdfkiln jbig2: no page information in %s\n", in.c_str());
            return 1;
        }
        Raster r;
        r.width = static_cast<uint32_t>(page->getWidth());
        r.height = static_cast<uint32_t>(page->getHeight());
        r.stride = static_cast<uint32_t>(page->getLineSize());
        r.bits.assign(page->getDataPtr(), page->getDataPtr() + page->getDataSize());
        if (!writeRaster(out, r)) {
            std::fprintf(stderr, "pdfkiln jbig2: cannot write %s\n", out.c_str());
            return 1;
        }
        std::printf("%s: %u x %u, the page of %s%s%s\n", out.c_str(), r.width, r.height, in.c_str(),
                    globalsPath.empty() ? "" : " with globals ", globalsPath.c_str());
        return 0;
    }
    if (data.empty()) {
        std::fprintf(stderr, "pdfkiln jbig2: %s is empty\n", in.c_str());
        return 1;
    }

    Raster r;
    try {
        jbig2::Jbig2Decoder decoder(data.data(), static_cast<unsigned int>(data.size()), embedded);
        const jbig2::JBIG2_RESULT result = decoder.decodeImage();
        if (result != jbig2::JBIG2_SUCCESS) {
            std::fprintf(stderr, "pdfkiln jbig2: decoding failed with result %d\n", static_cast<int>(result));
            return 1;
        }
        // The accessors assert a valid page; look before asking.
        if (decoder.getPageNumber() == 0) {
            std::fprintf(stderr, "pdfkiln jbig2: no page information in %s\n", in.c_str());
            return 1;
        }
        jbig2::ImageProcessor<jbig2::ImageDataBits>* image = decoder.getImage(0);
        if (!image) {
            std::fprintf(stderr, "pdfkiln jbig2: page 1 has no image\n");
            return 1;
        }
        r.width = image->getWidth();
        r.height = image->getHeight();
        r.stride = image->getStride();
        const unsigned char* bits = image->getData();
        r.bits.assign(bits, bits + static_cast<std::size_t>(r.stride) * r.height);
    } catch (jbig2::JBIG2_RESULT result) {
        std::fprintf(stderr, "pdfkiln jbig2: decoding failed with result %d\n", static_cast<int>(result));
        return 1;
    } catch (const std::out_of_range&) {
        std::fprintf(stderr, "pdfkiln jbig2: the page count names a page the stream doesn't hold\n");
        return 1;
    }
    if (!(png ? writePng(out, r) : writePbm(out, r))) {
        std::fprintf(stderr, "pdfkiln jbig2: cannot write %s\n", out.c_str());
        return 1;
    }
    std::printf("%s: %u x %u, page 1 of %s\n", out.c_str(), r.width, r.height, in.c_str());
    return 0;
}
