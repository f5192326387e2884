// Filter stages of the support library: decoding (and a few encodings) of PDF
// stream data between memory blocks.
//
// The record layouts are part of the binary interface and fixed: FilterPropTD
// is 80 bytes of 32-bit signed integers at the offsets noted, FilterMemBlock
// is 32 bytes.
#ifndef ZQ_GRAPHICSERVICE_FILTER_H
#define ZQ_GRAPHICSERVICE_FILTER_H

#include <cstddef>
#include <cstdint>
#include <string>

namespace ZQGraphicService_NS {

enum FILTER_TYPE {
    FILTER_NONE = 0,
    FILTER_FLATE = 1,
    FILTER_LZW = 2,
    FILTER_ASCIIHEX = 3,
    FILTER_ASCII85 = 4,
    FILTER_RUNLENGTH = 5,
    FILTER_CCITTFAX = 6,
    FILTER_DCT = 7,
    FILTER_UNKNOWN = 10
};

struct FilterPropTD {
    int32_t type;             // 0: stage kind, a FILTER_TYPE
    int32_t reserved4;        // 4
    int32_t columns;          // 8: /Columns
    int32_t reserved12;       // 12
    int32_t aux16;            // 16: no PDF key; Flate default 100
    int32_t colors;           // 20: /Colors
    int32_t aux24;            // 24: no PDF key
    int32_t aux28;            // 28: no PDF key
    int32_t predictor;        // 32: /Predictor
    int32_t bitsPerComponent; // 36: /BitsPerComponent
    int32_t reserved40;       // 40
    int32_t reserved44;       // 44
    int32_t aux48;            // 48: no PDF key
    int32_t aux52;            // 52: no PDF key
    int32_t earlyChange;      // 56: /EarlyChange
    int32_t aux60;            // 60: no PDF key
    int32_t reserved64[4];    // 64..79
};
static_assert(sizeof(FilterPropTD) == 80, "FilterPropTD is an 80-byte record");
static_assert(offsetof(FilterPropTD, columns) == 8, "layout");
static_assert(offsetof(FilterPropTD, colors) == 20, "layout");
static_assert(offsetof(FilterPropTD, predictor) == 32, "layout");
static_assert(offsetof(FilterPropTD, bitsPerComponent) == 36, "layout");
static_assert(offsetof(FilterPropTD, earlyChange) == 56, "layout");

struct FilterMemBlock {
    int32_t capacity;         // 0
    int32_t reserved4;        // 4
    int32_t length;           // 8: bytes used
    int32_t reserved12;       // 12
    unsigned char* data;      // 16
    int64_t reserved24;       // 24: nonzero when the library owns data
};
static_assert(sizeof(FilterMemBlock) == 32, "FilterMemBlock is a 32-byte record");
static_assert(offsetof(FilterMemBlock, length) == 8, "layout");
static_assert(offsetof(FilterMemBlock, data) == 16, "layout");

// Result codes of the stage calls.
enum {
    ZQ_OK = 0,
    ZQ_BAD_ARGUMENT = 1,   // null block, unknown stage kind, bad parameters
    ZQ_CORRUPT = 2,        // the encoded data is damaged
    ZQ_TOO_LARGE = 3       // the output would exceed the decoder's bound
};

// Largest output one stage produces; protects callers from decompression bombs.
constexpr std::size_t kMaxStageOutput = std::size_t(1) << 30;

// Decodes `size` bytes at `in` with the stage kind prop.type, writing straight
// into `out`, which is replaced: the output exists once, in `out`, and grows
// as the decoder produces it. `limit` bounds it (0, or anything above
// kMaxStageOutput, means kMaxStageOutput); passing it gives ZQ_TOO_LARGE.
// Results are those of Zq_InflateStream; on failure `out` is empty. `in`
// must not point into `out`.
int Zq_InflateInto(const unsigned char* in, std::size_t size, std::string& out, const FilterPropTD& prop,
                   std::size_t limit);

}  // namespace ZQGraphicService_NS

// Zq_MemInit makes a block empty (all fields zero).
// Zq_MemClear frees the data of a block when this library allocated it (it
// marks such blocks in reserved24), never caller memory, then makes the block
// empty; clearing twice is harmless.
//
// Zq_InflateStream decodes in->length bytes at in->data with the stage kind
// prop->type into a new buffer for `out`. On ZQ_OK, data `out` owned is freed
// first (in and out may be the same block), then out->data (never null),
// out->length and out->capacity describe the result. On any other result
// `out` is left as it was.
//  - Flate and LZW are lenient like PDF viewers: trailing bytes, a missing or
//    wrong checksum, a missing end code, truncation and damage after some
//    output all yield the output decoded so far with ZQ_OK; damage before any
//    output is ZQ_CORRUPT. Flate data without a zlib header is tried as raw
//    deflate. Both apply /Predictor 2 (TIFF) or 10..15 (PNG) afterwards, with
//    /Columns < 1 taken as 1; other predictor values and /BitsPerComponent
//    other than 1, 2, 4, 8, 16 (when a predictor is used) are
//    ZQ_BAD_ARGUMENT, an unknown PNG row type is ZQ_CORRUPT, and a short last
//    row is decoded as far as it goes.
//  - ASCIIHex and ASCII85 reject characters outside their alphabets with
//    ZQ_CORRUPT; a missing end marker is accepted.
//  - CCITTFax decodes K 0 data (EOL codes optional) of /Columns (1728 when
//    0) pixels per row, BlackIs1 false, until the data runs out; only
//    complete rows are returned.
//  - DCT returns 8-bit interleaved samples; a truncated image is completed
//    by the decoder, as viewers do.
//  - Every stage's output is bounded by kMaxStageOutput (ZQ_TOO_LARGE).
//
// Zq_DeflateStream encodes with kind 1 (Flate: `mode` is the zlib level 0..9,
// anything else means zlib's default), 3 (ASCIIHex, ends with '>') or 4
// (ASCII85, ends with "~>"); `mode` is ignored by the ASCII kinds.
extern "C" {
void Zq_MemInit(ZQGraphicService_NS::FilterMemBlock* block);
void Zq_MemClear(ZQGraphicService_NS::FilterMemBlock* block);
int Zq_InflateStream(ZQGraphicService_NS::FilterMemBlock* in, ZQGraphicService_NS::FilterMemBlock* out,
                     ZQGraphicService_NS::FilterPropTD* prop);
int Zq_DeflateStream(ZQGraphicService_NS::FilterMemBlock* in, ZQGraphicService_NS::FilterMemBlock* out,
                     ZQGraphicService_NS::FilterPropTD* prop, int mode);
}

#endif
