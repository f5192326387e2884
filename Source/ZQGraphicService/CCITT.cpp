// CCITT fax decoding through libtiff, for the parameters this library
// receives: K 0 (one-dimensional Modified Huffman), /Columns (1728 when 0),
// rows until the data runs out, BlackIs1 false.
//
// The encoded bytes are presented to libtiff as the single strip of a small
// TIFF image that exists only in the client read procedure: a header and one
// directory built here, followed by the caller's data (not copied).
//
// PDF's default K 0 coding has no EOL codes and no byte alignment of rows.
// libtiff's Modified Huffman codec (compression 2) byte-aligns rows, so that
// alignment is switched off through the FAXMODE pseudo-tag. Writers that do
// put EOLs in (permitted even when /EndOfLine is false) start the data with
// one; such data is decoded as Group 3 1-D (compression 3), which expects
// them.
//
// libtiff writes black pixels as 1 bits; PDF's BlackIs1 false wants 0 for
// black, so rows are inverted. The image height is unknown, so the directory
// claims as many rows as the data could possibly hold and decoding stops at
// the first row libtiff reports a problem with (which is how the end of the
// data shows); only the complete rows before it are returned. Data that gives
// no complete row at all is ZQ_CORRUPT.
#include <cstdint>
#include <cstdio>
#include <vector>

#include <tiffio.h>

#include "ZqCodec.h"

namespace ZQGraphicService_NS {
namespace codec {

namespace {

constexpr int kDefaultColumns = 1728;
// Far above any fax width; bounds libtiff's per-row run tables.
constexpr int kMaxColumns = 1 << 20;

struct VirtualFile {
    std::vector<unsigned char> head;  // TIFF header and directory
    ByteView body;                    // the encoded strip
    uint64_t pos = 0;
    bool problem = false;             // set when libtiff reports anything

    uint64_t size() const { return head.size() + body.size; }
};

tmsize_t readProc(thandle_t h, void* buf, tmsize_t n) {
    auto* f = static_cast<VirtualFile*>(h);
    if (n <= 0) return 0;
    unsigned char* dst = static_cast<unsigned char*>(buf);
    tmsize_t done = 0;
    while (done < n && f->pos < f->size()) {
        const unsigned char* src;
        uint64_t avail;
        if (f->pos < f->head.size()) {
            src = f->head.data() + f->pos;
            avail = f->head.size() - f->pos;
        } else {
            src = f->body.data + (f->pos - f->head.size());
            avail = f->size() - f->pos;
        }
        uint64_t take = avail < uint64_t(n - done) ? avail : uint64_t(n - done);
        std::memcpy(dst + done, src, std::size_t(take));
        done += tmsize_t(take);
        f->pos += take;
    }
    return done;
}

tmsize_t writeProc(thandle_t, void*, tmsize_t) { return -1; }

toff_t seekProc(thandle_t h, toff_t off, int whence) {
    auto* f = static_cast<VirtualFile*>(h);
    uint64_t base = whence == SEEK_CUR ? f->pos : whence == SEEK_END ? f->size() : 0;
    uint64_t target = base + off;
    if (target > f->size()) target = f->size();
    f->pos = target;
    return target;
}

int closeProc(thandle_t) { return 0; }
toff_t sizeProc(thandle_t h) { return static_cast<VirtualFile*>(h)->size(); }
int mapProc(thandle_t, void**, toff_t*) { return 0; }
void unmapProc(thandle_t, void*, toff_t) {}

// libtiff reports a row it could not finish (bad code, data exhausted, row
// too short or too long) as an error or a warning; either one ends decoding.
int problemHandler(TIFF*, void* user, const char*, const char*, va_list) {
    static_cast<VirtualFile*>(user)->problem = true;
    return 1;  // handled: keep libtiff's global handlers quiet
}

void put16(std::vector<unsigned char>& v, uint32_t x) {
    v.push_back(uint8_t(x));
    v.push_back(uint8_t(x >> 8));
}
void put32(std::vector<unsigned char>& v, uint32_t x) {
    put16(v, x & 0xffff);
    put16(v, x >> 16);
}
void entry(std::vector<unsigned char>& v, uint16_t tag, uint16_t type, uint32_t value) {
    put16(v, tag);
    put16(v, type);
    put32(v, 1);
    if (type == TIFF_SHORT) {
        put16(v, value);
        put16(v, 0);
    } else {
        put32(v, value);
    }
}

// Little-endian TIFF with one directory and one strip holding all the data.
std::vector<unsigned char> buildHead(uint32_t columns, uint32_t rows, uint32_t dataSize, bool withEol) {
    const uint16_t count = withEol ? 10 : 9;
    const uint32_t dataOffset = 8 + 2 + 12u * count + 4;
    std::vector<unsigned char> h;
    h.reserve(dataOffset);
    h.push_back('I');
    h.push_back('I');
    put16(h, 42);
    put32(h, 8);
    put16(h, count);
    entry(h, TIFFTAG_IMAGEWIDTH, TIFF_LONG, columns);
    entry(h, TIFFTAG_IMAGELENGTH, TIFF_LONG, rows);
    entry(h, TIFFTAG_BITSPERSAMPLE, TIFF_SHORT, 1);
    entry(h, TIFFTAG_COMPRESSION, TIFF_SHORT, withEol ? COMPRESSION_CCITTFAX3 : COMPRESSION_CCITTRLE);
    entry(h, TIFFTAG_PHOTOMETRIC, TIFF_SHORT, PHOTOMETRIC_MINISWHITE);
    entry(h, TIFFTAG_STRIPOFFSETS, TIFF_LONG, dataOffset);
    entry(h, TIFFTAG_SAMPLESPERPIXEL, TIFF_SHORT, 1);
    entry(h, TIFFTAG_ROWSPERSTRIP, TIFF_LONG, rows);
    entry(h, TIFFTAG_STRIPBYTECOUNTS, TIFF_LONG, dataSize);
    if (withEol) entry(h, TIFFTAG_GROUP3OPTIONS, TIFF_LONG, 0);
    put32(h, 0);
    return h;
}

// True when the data opens with an EOL code: at least 11 zero bits then a 1.
// No Modified Huffman run code starts with more than 7 zero bits.
bool startsWithEol(ByteView in) {
    std::size_t zeros = 0;
    for (std::size_t i = 0; i < in.size; ++i) {
        unsigned char c = in.data[i];
        if (c == 0) {
            zeros += 8;
            continue;
        }
        for (int b = 7; b >= 0 && !(c >> b & 1); --b) ++zeros;
        return zeros >= 11;
    }
    return false;
}

}  // namespace

int ccittDecode(ByteView in, int columns, ZqBuffer& out) {
    if (columns == 0) columns = kDefaultColumns;
    if (columns < 0 || columns > kMaxColumns) return ZQ_BAD_ARGUMENT;
    if (in.size == 0) return ZQ_OK;
    if (in.size > 0x7fffffffu) return ZQ_TOO_LARGE;

    const std::size_t rowBytes = (std::size_t(columns) + 7) / 8;
    // Every coded row takes at least one bit, and the output is bounded.
    uint64_t rows = uint64_t(in.size) * 8;
    if (rows > out.limit() / rowBytes) rows = out.limit() / rowBytes + 1;
    if (rows > 0x7fffffff) rows = 0x7fffffff;

    const bool withEol = startsWithEol(in);
    VirtualFile file;
    file.head = buildHead(uint32_t(columns), uint32_t(rows), uint32_t(in.size), withEol);
    file.body = in;

    TIFFOpenOptions* opts = TIFFOpenOptionsAlloc();
    if (!opts) return ZQ_TOO_LARGE;
    TIFFOpenOptionsSetErrorHandlerExtR(opts, problemHandler, &file);
    TIFFOpenOptionsSetWarningHandlerExtR(opts, problemHandler, &file);
    TIFFOpenOptionsSetMaxSingleMemAlloc(opts, 256 << 20);
    TIFF* tif = TIFFClientOpenExt("ccitt", "rm", &file, readProc, writeProc, seekProc, closeProc, sizeProc,
                                  mapProc, unmapProc, opts);
    TIFFOpenOptionsFree(opts);
    if (!tif) return ZQ_CORRUPT;
    if (!withEol) TIFFSetField(tif, TIFFTAG_FAXMODE, FAXMODE_NORTC | FAXMODE_NOEOL);

    int rc = ZQ_OK;
    const std::size_t start = out.size();
    if (file.problem || std::size_t(TIFFScanlineSize64(tif)) != rowBytes) {
        rc = ZQ_CORRUPT;
    } else {
        for (uint32_t row = 0; row < rows; ++row) {
            if (!out.reserveExtra(rowBytes)) {
                rc = ZQ_TOO_LARGE;
                break;
            }
            unsigned char* dst = out.data() + out.size();
            // libtiff sets only the pixel bits; clear the padding bits too.
            std::memset(dst, 0, rowBytes);
            if (TIFFReadScanline(tif, dst, row, 0) != 1 || file.problem) break;
            for (std::size_t i = 0; i < rowBytes; ++i) dst[i] = static_cast<unsigned char>(~dst[i]);
            out.commit(rowBytes);
        }
        if (rc == ZQ_OK && out.size() == start) rc = ZQ_CORRUPT;
    }
    TIFFClose(tif);
    return rc;
}

}  // namespace codec
}  // namespace ZQGraphicService_NS
