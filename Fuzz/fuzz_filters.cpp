// libFuzzer target for the stream filters.
//
// Input layout: the first 8 bytes choose a FilterPropTD (stage kind 1..7 and
// parameters, deliberately including out-of-range values), the rest is the
// encoded data handed to Zq_InflateStream. The data is also encoded with
// Zq_DeflateStream for Flate, ASCIIHex and ASCII85 and must decode back to
// itself.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "ZQGraphicService/ZqFilter.h"

using namespace ZQGraphicService_NS;

namespace {

const int32_t kPredictors[] = {0, 1, 2, 10, 11, 12, 13, 14, 15, 3, 9, 16, -1, 255};
const int32_t kDepths[] = {1, 2, 4, 8, 16, 0, 3, 7, 32, -8};
const int32_t kColors[] = {1, 2, 3, 4, 0, -1, 5, 255, 0x20000001, 0x7fffffff};
const int32_t kColumns[] = {0, 1, 7, 1728, -1, 1 << 20, (1 << 20) + 1, 0x7fffffff};

template <typename T, std::size_t N>
T pick(const T (&table)[N], uint8_t b) {
    return table[b % N];
}

// The largest sample count any start-of-frame marker in the data claims;
// keeps the fuzzer from spending its time decoding huge grey JPEGs.
uint64_t jpegClaimedSamples(const uint8_t* d, std::size_t n) {
    uint64_t worst = 0;
    for (std::size_t i = 0; i + 9 < n; ++i) {
        if (d[i] != 0xFF || d[i + 1] < 0xC0 || d[i + 1] > 0xCF) continue;
        if (d[i + 1] == 0xC4 || d[i + 1] == 0xC8 || d[i + 1] == 0xCC) continue;
        uint64_t h = uint64_t(d[i + 5]) << 8 | d[i + 6], w = uint64_t(d[i + 7]) << 8 | d[i + 8];
        uint64_t samples = h * w * (d[i + 9] ? d[i + 9] : 1);
        if (h == 0) samples = w * 65535 * (d[i + 9] ? d[i + 9] : 1);  // height given by DNL later
        if (samples > worst) worst = samples;
    }
    return worst;
}

void roundTrip(const uint8_t* data, std::size_t size, int kind, int mode) {
    FilterMemBlock in{};
    in.data = const_cast<uint8_t*>(data);
    in.length = in.capacity = int32_t(size);
    FilterMemBlock enc, dec;
    Zq_MemInit(&enc);
    Zq_MemInit(&dec);
    FilterPropTD prop{};
    prop.type = kind;
    prop.colors = 1;
    prop.bitsPerComponent = 8;
    if (Zq_DeflateStream(&in, &enc, &prop, mode) != ZQ_OK) std::abort();
    if (Zq_InflateStream(&enc, &dec, &prop) != ZQ_OK) std::abort();
    if (std::size_t(dec.length) != size || (size && std::memcmp(dec.data, data, size) != 0)) std::abort();
    Zq_MemClear(&enc);
    Zq_MemClear(&dec);
    Zq_MemClear(&dec);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    if (size < 8) return 0;
    FilterPropTD prop{};
    prop.type = 1 + data[0] % 7;
    prop.predictor = pick(kPredictors, data[1]);
    prop.bitsPerComponent = pick(kDepths, data[2]);
    prop.colors = pick(kColors, data[3]);
    // Small columns directly most of the time, edge values otherwise.
    const uint16_t col = uint16_t(data[4] << 8 | data[5]);
    prop.columns = (col & 0x8000) ? pick(kColumns, uint8_t(col)) : int32_t(col & 0x7fff);
    prop.earlyChange = data[6] & 1;
    prop.aux16 = 100;
    const int mode = int(data[7] % 12) - 1;  // -1..10: levels and one invalid value
    const uint8_t* body = data + 8;
    const std::size_t n = size - 8;

    if (prop.type == FILTER_DCT && jpegClaimedSamples(body, n) > (uint64_t(1) << 24)) return 0;

    FilterMemBlock in{};
    in.data = const_cast<uint8_t*>(body);
    in.length = in.capacity = int32_t(n);
    FilterMemBlock out;
    Zq_MemInit(&out);
    int rc = Zq_InflateStream(&in, &out, &prop);
    if (rc < 0 || rc > 3) std::abort();
    if (rc == ZQ_OK && (!out.data || out.length < 0 || out.length > out.capacity)) std::abort();
    if (rc == ZQ_OK && out.length > 0) {
        // Touch every byte so ASan checks the whole reported range.
        volatile unsigned sum = 0;
        for (int32_t i = 0; i < out.length; ++i) sum += out.data[i];
        (void)sum;
    }
    Zq_MemClear(&out);

    roundTrip(body, n, FILTER_FLATE, mode);
    roundTrip(body, n, FILTER_ASCIIHEX, mode);
    roundTrip(body, n, FILTER_ASCII85, mode);
    return 0;
}
