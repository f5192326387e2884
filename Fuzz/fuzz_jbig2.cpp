// libFuzzer target over jbig2::Jbig2Decoder, in both the file form and the
// embedded form, and over the C entry Jbig2ToRGB. Every segment type is
// decoded: generic and refinement regions, symbol dictionaries, text regions,
// pattern dictionaries, halftone regions, code tables and extensions.
//
// Required aborts. The decoder must end the process on five hard assertions,
// all printed as "GraphicServiceModule/jbig2/jbig2decoder.cpp:
// <line>: <function>: Assertion `<text>' failed." with these texts:
//     m_istream->good()
//     m_jdi
//     inputstream.good()
//     (unsigned int)pageno < m_jdi->getPageCount()
//     page!=__null
// They are preconditions of the caller, so this harness keeps them: it never
// calls an accessor before decodeImage (m_jdi), decodes only fresh memory
// streams (m_istream->good(), inputstream.good()), asks for a page only below
// getPageNumber(), and calls Jbig2ToRGB only after the same bytes decoded to a
// page through the class (Jbig2ToRGB asks for page 0 without looking). A crash
// report that carries one of the texts above therefore means the harness
// broke its own rule, not a finding in the decoder; any other report is one.
//
// Other outcomes that are the decoder's specified behaviour, not findings:
// JBIG2_RESULT thrown out of decodeImage (a segment header view below 11
// bytes), and std::out_of_range from an accessor when a file header
// promised more pages than the stream holds. Both are caught here.
//
// Under PDFKILN_FUZZ the library is built with a 128 KiB image limit
// (JBIG2_MAX_IMAGE_BYTES), so hostile sizes fail with result 5 at once.
//
// Seeds: Fuzz/seed_jbig2.sh DIR copies the corpus files into DIR (outside the
// repository); then: fuzz_jbig2 -max_len=65536 DIR
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <stdexcept>
#include <vector>

#include "jbig2/jbig2decoder.h"

namespace {

volatile unsigned sink;

// Decodes and reads every accessor of every page; true when page 0 exists.
bool decodeOnce(const uint8_t* data, size_t size, bool embedded) {
    std::vector<unsigned char> copy(data, data + size);
    jbig2::Jbig2Decoder decoder(copy.data(), static_cast<unsigned int>(copy.size()), embedded);
    bool havePage0 = false;
    try {
        if (decoder.decodeImage() != jbig2::JBIG2_SUCCESS) return false;
        const unsigned pages = decoder.getPageNumber();
        for (unsigned i = 0; i < pages && i < 8; ++i) {
            try {
                const int p = static_cast<int>(i);
                unsigned acc = decoder.getCurPageWidth(p) ^ decoder.getCurPageHeight(p) ^
                               decoder.getCurPageStripe(p) ^ decoder.getCurPageXResolution(p) ^
                               decoder.getCurPageYResolution(p);
                const uint32_t bytes = decoder.getCurPageDataSize(p);
                const unsigned char* bits = decoder.getCurPageData(p);
                for (uint32_t k = 0; bits && k < bytes; k += 61) acc += bits[k];
                if (bits && bytes) acc += bits[bytes - 1];
                sink = acc;
                if (i == 0) havePage0 = true;
            } catch (const std::out_of_range&) {
                break;
            }
        }
    } catch (jbig2::JBIG2_RESULT) {
        return false;
    }
    return havePage0;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size > (1u << 20)) return 0;
    decodeOnce(data, size, false);
    if (decodeOnce(data, size, true)) {
        std::vector<unsigned char> copy(data, data + size);
        void* out = nullptr;
        unsigned int outSize = 0;
        try {
            if (Jbig2ToRGB(copy.data(), static_cast<unsigned int>(copy.size()), &out, &outSize) == 0) {
                if (outSize) sink = static_cast<unsigned char*>(out)[outSize - 1];
                std::free(out);
            }
        } catch (jbig2::JBIG2_RESULT) {
        }
    }
    return 0;
}
