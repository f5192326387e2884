// libFuzzer target over Jbig2ToRGB_New, the embedded JBIG2 decoder
// with /JBIG2Globals. The input is split in two at its leading length byte
// L: of the R bytes behind it, the first R*L/255 are the globals and the rest
// the page data. Every segment type is reached, in either part.
//
// Jbig2ToRGB_New returns 0 in every case and nothing is a required abort, so
// any crash, sanitizer report, leak or timeout is a finding. The harness
// also checks the entry's contract: *out is always set to a malloc block, and
// its size is the page's line size times its height as JBIG2Dec reports it.
//
// Under PDFKILN_FUZZ the library is built with a 128 KiB raster limit and a
// budget of 256 Ki units whatever the input's size (JBIG2DEC_MAX_IMAGE_BYTES,
// JBIG2DEC_BUDGET_FLOOR, JBIG2DEC_BUDGET_CAP), so hostile sizes stop at once
// and no unit runs for long under the sanitizers; every corpus page still fits.
//
// Seeds: Fuzz/seed_jbig2_globals.sh DIR writes every corpus file in this
// form, its dictionaries and code tables moved to the globals; then
//   fuzz_jbig2_globals -max_len=65536 -timeout=5 -max_total_time=1800 DIR
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "jbig2/jbig2streamdec.h"

namespace {
volatile unsigned sink;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1 || size > (1u << 20)) return 0;
    const size_t rest = size - 1;
    const size_t split = rest * data[0] / 255;
    const char* globals = reinterpret_cast<const char*>(data + 1);
    const char* page = reinterpret_cast<const char*>(data + 1 + split);
    const int globalsSize = static_cast<int>(split);
    const int pageSize = static_cast<int>(rest - split);

    unsigned char* out = nullptr;
    unsigned int outSize = 0;
    if (Jbig2ToRGB_New(page, pageSize, globals, globalsSize, &out, &outSize) != 0) __builtin_trap();
    if (!out) __builtin_trap();
    unsigned acc = 0;
    for (unsigned int k = 0; k < outSize; k += 61) acc += out[k];
    if (outSize) acc += out[outSize - 1];
    std::free(out);

    // The same decode through the class: the size must agree, and the
    // bytes handed out in pieces must be the inverse of the entry's.
    const std::string g(globals, split), d(page, rest - split);
    JBIG2Dec dec(&d, &g);
    dec.decode();
    const JBIG2Bitmap* bm = dec.getPageBitmap();
    const unsigned expected = bm ? static_cast<unsigned>(bm->getLineSize()) * static_cast<unsigned>(bm->getHeight()) : 0;
    if (static_cast<unsigned>(dec.getStmSize()) != expected || expected != outSize) __builtin_trap();
    char buf[333];
    int got;
    while ((got = dec.getBlock(buf, sizeof buf)) > 0)
        for (int k = 0; k < got; k += 17) acc ^= static_cast<unsigned char>(buf[k]);
    if (dec.getStmSize() != 0) __builtin_trap();
    sink = acc;
    return 0;
}
