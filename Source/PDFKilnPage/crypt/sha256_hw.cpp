// SHA-256 compression on the SHA extensions. The state lives in two registers
// in the order the instructions want, ABEF and CDGH; SHA256RNDS2 does two
// rounds from the low half of a register of message words plus constants, and
// SHA256MSG1 and SHA256MSG2 with one PALIGNR extend the message schedule four
// words at a time. The function carries its own target attribute and is
// called only where CPUID reported the extensions.
#include "PDFKilnPage/crypt/sha256.h"

#include "sha256_k.h"

#if defined(__x86_64__)

#include <immintrin.h>

namespace pcrypt {

__attribute__((target("sha,sse4.1,ssse3"))) void Sha256Calc_compressHardware(uint32_t H[8],
                                                                            const unsigned char* blocks,
                                                                            size_t count)
{
    // Byte order within each 32-bit word: the message is big-endian.
    const __m128i byteSwap = _mm_set_epi64x(0x0c0d0e0f08090a0bLL, 0x0405060700010203LL);

    // H[0..3] = A B C D and H[4..7] = E F G H, lane 0 first.
    __m128i dcba = _mm_loadu_si128(reinterpret_cast<const __m128i*>(H));
    __m128i hgfe = _mm_loadu_si128(reinterpret_cast<const __m128i*>(H + 4));
    const __m128i cdab = _mm_shuffle_epi32(dcba, 0xB1);
    const __m128i efgh = _mm_shuffle_epi32(hgfe, 0x1B);
    __m128i abef = _mm_alignr_epi8(cdab, efgh, 8);
    __m128i cdgh = _mm_blend_epi16(efgh, cdab, 0xF0);

    for (; count > 0; --count, blocks += 64) {
        const __m128i abefStart = abef;
        const __m128i cdghStart = cdgh;
        // m[i & 3] holds message words 4i .. 4i+3 of the group being used.
        __m128i m[4];
        for (int i = 0; i < 4; ++i)
            m[i] = _mm_shuffle_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(blocks + 16 * i)), byteSwap);
        for (int group = 0; group < 16; ++group) {
            if (group >= 4) {
                // W[4g..4g+3] from the four groups before it:
                // msg2(msg1(W[g-4], W[g-3]) + W[t-7 ..], W[g-1]).
                const __m128i g4 = m[group & 3];
                const __m128i g3 = m[(group + 1) & 3];
                const __m128i g2 = m[(group + 2) & 3];
                const __m128i g1 = m[(group + 3) & 3];
                __m128i x = _mm_sha256msg1_epu32(g4, g3);
                x = _mm_add_epi32(x, _mm_alignr_epi8(g1, g2, 4));
                m[group & 3] = _mm_sha256msg2_epu32(x, g1);
            }
            __m128i wk = _mm_add_epi32(m[group & 3],
                                       _mm_load_si128(reinterpret_cast<const __m128i*>(sha256_k::K + 4 * group)));
            cdgh = _mm_sha256rnds2_epu32(cdgh, abef, wk);
            wk = _mm_shuffle_epi32(wk, 0x0E);
            abef = _mm_sha256rnds2_epu32(abef, cdgh, wk);
        }
        abef = _mm_add_epi32(abef, abefStart);
        cdgh = _mm_add_epi32(cdgh, cdghStart);
    }

    const __m128i feba = _mm_shuffle_epi32(abef, 0x1B);
    const __m128i dchg = _mm_shuffle_epi32(cdgh, 0xB1);
    dcba = _mm_blend_epi16(feba, dchg, 0xF0);
    hgfe = _mm_alignr_epi8(dchg, feba, 8);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(H), dcba);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(H + 4), hgfe);
}

} // namespace pcrypt

#else // not x86-64: never selected, see shaHardwareUsable

namespace pcrypt {
void Sha256Calc_compressHardware(uint32_t H[8], const unsigned char* blocks, size_t count)
{
    Sha256Calc_compressPortable(H, blocks, count);
}
} // namespace pcrypt

#endif
