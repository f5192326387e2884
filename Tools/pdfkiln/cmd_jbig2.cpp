// pdfkiln jbig2 IN -o OUT.png|OUT.pbm [--embedded]
//
// Decodes a JBIG2 file (or, with --embedded, a PDF-embedded JBIG2 stream)
// with jbig2::Jbig2Decoder and writes its first page as an image: PBM (P4) or
// a 1-bit greyscale PNG. The PNG is written with stored deflate blocks and
// its own CRC and Adler sums, so the tool needs nothing beyond the library.
#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

#include "commands.h"
#include "jbig2/jbig2decoder.h"

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
    std::fprintf(stderr, "usage: pdfkiln jbig2 IN -o OUT.png|OUT.pbm [--embedded]\n");
    return 2;
}

}  // namespace

int cmdJbig2(int argc, char** argv) {
    std::string in, out;
    bool embedded = false;
    for (int i = 1; i < argc; ++i) {
        const std::string a = argv[i];
        if (a == "-o" && i + 1 < argc)
            out = argv[++i];
        else if (a == "--embedded")
            embedded = true;
        else if (!a.empty() && a[0] != '-' && in.empty())
            in = a;
        else
            return usage();
    }
    if (in.empty() || out.empty()) return usage();
    const bool png = endsWith(out, ".png");
    if (!png && !endsWith(out, ".pbm")) {
        std::fprintf(stderr, "pdfkiln jbig2: output must end in .png or .pbm\n");
        return 2;
    }
    std::ifstream file(in, std::ios::binary);
    if (!file) {
        std::fprintf(stderr, "pdfkiln jbig2: cannot open %s\n", in.c_str());
        return 1;
    }
    std::vector<unsigned char> data((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
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
