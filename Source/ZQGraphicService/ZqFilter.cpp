// The four C entry points: block management and the decode/encode dispatch.
//
// Ownership: a block whose reserved24 holds kOwnedMark has data that this
// library allocated with malloc; Zq_MemClear frees only such data. Any other
// value means the memory belongs to the caller and is never freed here.
//
// Results go to the out block only on success. A successful call first frees
// data the out block already owned (so reusing an out block does not leak;
// in and out may be the same block), then stores the new buffer: data is
// never null, capacity is the allocated size, length the bytes produced. On
// failure the out block is left as it was.
#include <cstdlib>

#include "ZQGraphicService/ZqFilter.h"
#include "ZqCodec.h"

using namespace ZQGraphicService_NS;
using namespace ZQGraphicService_NS::codec;

namespace {

// "ZQMEMBLK": an unlikely value, so a block that was never initialised is
// almost certainly not mistaken for one holding library memory.
constexpr int64_t kOwnedMark = 0x5A514D454D424C4B;

bool viewOf(const FilterMemBlock* in, ByteView& view) {
    if (in->length < 0) return false;
    if (in->length > 0 && !in->data) return false;
    view = ByteView{in->data, std::size_t(in->length)};
    return true;
}

int store(ZqBuffer& buf, FilterMemBlock* out) {
    const std::size_t length = buf.size();
    std::size_t capacity = 0;
    unsigned char* data = buf.release(&capacity);
    if (!data) return ZQ_TOO_LARGE;
    Zq_MemClear(out);
    out->data = data;
    out->capacity = static_cast<int32_t>(capacity);
    out->length = static_cast<int32_t>(length);
    out->reserved24 = kOwnedMark;
    return ZQ_OK;
}

PredictorParams predictorOf(const FilterPropTD& prop) {
    PredictorParams p;
    p.predictor = prop.predictor;
    p.colors = prop.colors < 1 ? 1 : prop.colors;
    p.bitsPerComponent = prop.bitsPerComponent < 1 ? 8 : prop.bitsPerComponent;
    p.columns = prop.columns < 1 ? 1 : prop.columns;
    return p;
}

}  // namespace

namespace ZQGraphicService_NS {
namespace codec {

int decodeStage(ByteView view, const FilterPropTD& prop, ZqBuffer& buf) {
    switch (prop.type) {
    case FILTER_FLATE:
    case FILTER_LZW: {
        // Reject bad predictor parameters before spending time on the data.
        const PredictorParams p = predictorOf(prop);
        int rc = predictorCheck(p);
        if (rc != ZQ_OK) return rc;
        rc = prop.type == FILTER_FLATE ? flateDecode(view, buf) : lzwDecode(view, prop.earlyChange != 0, buf);
        if (rc == ZQ_OK) rc = predictorDecode(p, buf);
        return rc;
    }
    case FILTER_ASCIIHEX: return asciiHexDecode(view, buf);
    case FILTER_ASCII85: return ascii85Decode(view, buf);
    case FILTER_RUNLENGTH: return runLengthDecode(view, buf);
    case FILTER_CCITTFAX: return ccittDecode(view, prop.columns, buf);
    case FILTER_DCT: return dctDecode(view, buf);
    default: return ZQ_BAD_ARGUMENT;
    }
}

}  // namespace codec

int Zq_InflateInto(const unsigned char* in, std::size_t size, std::string& out, const FilterPropTD& prop,
                   std::size_t limit) {
    if (size > 0 && !in) return ZQ_BAD_ARGUMENT;
    if (limit == 0 || limit > kMaxStageOutput) limit = kMaxStageOutput;
    ZqBuffer buf(out, limit);
    const int rc = decodeStage(ByteView{in, size}, prop, buf);
    buf.finish();
    if (rc != ZQ_OK) out.clear();
    return rc;
}

}  // namespace ZQGraphicService_NS

extern "C" {

void Zq_MemInit(FilterMemBlock* block) {
    if (!block) return;
    block->capacity = 0;
    block->reserved4 = 0;
    block->length = 0;
    block->reserved12 = 0;
    block->data = nullptr;
    block->reserved24 = 0;
}

void Zq_MemClear(FilterMemBlock* block) {
    if (!block) return;
    if (block->reserved24 == kOwnedMark) std::free(block->data);
    Zq_MemInit(block);
}

int Zq_InflateStream(FilterMemBlock* in, FilterMemBlock* out, FilterPropTD* prop) {
    if (!in || !out || !prop) return ZQ_BAD_ARGUMENT;
    ByteView view;
    if (!viewOf(in, view)) return ZQ_BAD_ARGUMENT;

    ZqBuffer buf;
    const int rc = decodeStage(view, *prop, buf);
    if (rc != ZQ_OK) return rc;
    return store(buf, out);
}

// mode: for Flate, the zlib compression level 0..9 (-1 for zlib's default;
// any other value also means the default). Ignored by the other kinds.
int Zq_DeflateStream(FilterMemBlock* in, FilterMemBlock* out, FilterPropTD* prop, int mode) {
    if (!in || !out || !prop) return ZQ_BAD_ARGUMENT;
    ByteView view;
    if (!viewOf(in, view)) return ZQ_BAD_ARGUMENT;

    ZqBuffer buf;
    int rc;
    switch (prop->type) {
    case FILTER_FLATE:
        rc = flateEncode(view, mode, buf);
        break;
    case FILTER_ASCIIHEX:
        rc = asciiHexEncode(view, buf);
        break;
    case FILTER_ASCII85:
        rc = ascii85Encode(view, buf);
        break;
    default:
        return ZQ_BAD_ARGUMENT;
    }
    if (rc != ZQ_OK) return rc;
    return store(buf, out);
}

}  // extern "C"
