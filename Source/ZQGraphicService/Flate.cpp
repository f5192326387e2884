// Flate (zlib/deflate) decoding and encoding.
//
// Decoding is deliberately lenient, the way PDF viewers are, because damaged
// Flate streams are common in real files:
//  - bytes after the end of the deflate data are ignored;
//  - a missing or wrong adler32 checksum is ignored;
//  - a stream that stops early (truncated) yields what was decoded so far;
//  - damage after some output was produced yields that output with ZQ_OK;
//  - data without a valid zlib header is tried as a raw deflate stream.
// Only data that cannot produce a single byte is reported as ZQ_CORRUPT. (A
// zlib header followed by nothing decodable yet is a truncated stream: empty
// output, ZQ_OK.)
#include <climits>

#include <zlib.h>

#include "ZqCodec.h"

namespace ZQGraphicService_NS {
namespace codec {

namespace {

bool hasZlibHeader(ByteView in) {
    if (in.size < 2) return false;
    unsigned cmf = in.data[0], flg = in.data[1];
    return (cmf & 0x0f) == 8 && (cmf >> 4) <= 7 && ((cmf << 8) | flg) % 31 == 0;
}

enum class InflateEnd { Finished, Truncated, Damaged, NoMemory, TooLarge };

InflateEnd inflateAll(ByteView in, int windowBits, ZqBuffer& out) {
    z_stream zs{};
    if (inflateInit2(&zs, windowBits) != Z_OK) return InflateEnd::NoMemory;
    // Input sizes come from a 32-bit field, so one avail_in covers them all.
    zs.next_in = const_cast<Bytef*>(in.data);
    zs.avail_in = static_cast<uInt>(in.size);
    InflateEnd result = InflateEnd::Truncated;
    for (;;) {
        // Grow by at least 64 KiB or the input size, whichever is larger, so
        // the common case of a 3-5x ratio needs few reallocations.
        std::size_t want = in.size * 4 > 65536 ? in.size * 4 : 65536;
        if (out.spare() < 1024 && !out.reserveExtra(want) && !out.reserveExtra(1)) {
            result = InflateEnd::TooLarge;
            break;
        }
        std::size_t room = out.spare();
        if (room > UINT_MAX) room = UINT_MAX;
        zs.next_out = out.data() + out.size();
        zs.avail_out = static_cast<uInt>(room);
        int rc = inflate(&zs, Z_NO_FLUSH);
        out.commit(room - zs.avail_out);
        if (rc == Z_STREAM_END) {
            result = InflateEnd::Finished;
            break;
        }
        if (rc == Z_DATA_ERROR || rc == Z_NEED_DICT || rc == Z_STREAM_ERROR) {
            result = InflateEnd::Damaged;
            break;
        }
        if (rc == Z_MEM_ERROR) {
            result = InflateEnd::NoMemory;
            break;
        }
        // Z_OK or Z_BUF_ERROR: if output space remains, inflate stopped for
        // want of input, i.e. the stream is truncated.
        if (zs.avail_out != 0) {
            result = InflateEnd::Truncated;
            break;
        }
    }
    inflateEnd(&zs);
    return result;
}

}  // namespace

int flateDecode(ByteView in, ZqBuffer& out) {
    if (in.size == 0) return ZQ_OK;
    const std::size_t start = out.size();
    const bool zlibFormat = hasZlibHeader(in);
    InflateEnd end = inflateAll(in, zlibFormat ? 15 : -15, out);
    switch (end) {
    case InflateEnd::Finished:
    case InflateEnd::Truncated:
        // Without a zlib header, the raw-deflate guess only counts when it
        // produced something; otherwise the data is simply not Flate.
        return zlibFormat || out.size() > start ? ZQ_OK : ZQ_CORRUPT;
    case InflateEnd::Damaged:
        return out.size() > start ? ZQ_OK : ZQ_CORRUPT;
    case InflateEnd::NoMemory:
    case InflateEnd::TooLarge:
        break;
    }
    return ZQ_TOO_LARGE;
}

int flateEncode(ByteView in, int level, ZqBuffer& out) {
    if (level < -1 || level > 9) level = Z_DEFAULT_COMPRESSION;
    uLong bound = compressBound(static_cast<uLong>(in.size));
    if (!out.reserveExtra(bound)) return ZQ_TOO_LARGE;
    uLongf produced = static_cast<uLongf>(out.spare());
    int rc = compress2(out.data() + out.size(), &produced, in.data ? in.data : reinterpret_cast<const Bytef*>(""),
                       static_cast<uLong>(in.size), level);
    if (rc == Z_MEM_ERROR || rc == Z_BUF_ERROR) return ZQ_TOO_LARGE;
    if (rc != Z_OK) return ZQ_BAD_ARGUMENT;
    out.commit(produced);
    return ZQ_OK;
}

}  // namespace codec
}  // namespace ZQGraphicService_NS
