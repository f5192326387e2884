#include "PDFKilnPage/crypt/sha256.h"

#include <cstddef>
#include <cstring>

#include "PDFKilnPage/crypt/cpufeatures.h"
#include "sha256_k.h"

namespace pcrypt {

static_assert(offsetof(_Sha256Calc, Value) == 0, "the digest must open the object");

namespace {

constexpr uint32_t H0[8] = {0x6a09e667, 0xbb67ae85, 0x3c6ef372, 0xa54ff53a,
                            0x510e527f, 0x9b05688c, 0x1f83d9ab, 0x5be0cd19};

inline uint32_t rotr(uint32_t x, int n) { return (x >> n) | (x << (32 - n)); }

inline uint32_t loadBig(const unsigned char* p)
{
    uint32_t v;
    std::memcpy(&v, p, 4);
    return __builtin_bswap32(v);
}

using Compress = void (*)(uint32_t*, const unsigned char*, size_t);

Compress chosenCompress()
{
    static const Compress fn =
        shaHardwareUsable(cpuFeatures()) ? Sha256Calc_compressHardware : Sha256Calc_compressPortable;
    return fn;
}

} // namespace

void Sha256Calc_compressPortable(uint32_t H[8], const unsigned char* blocks, size_t count)
{
    // The message schedule is kept as a ring of 16 words, so each step needs
    // only the words it reads; the working variables rotate through the names
    // of the ROUND macro instead of being moved.
    uint32_t w[16];
    for (; count > 0; --count, blocks += 64) {
        uint32_t a = H[0], b = H[1], c = H[2], d = H[3], e = H[4], f = H[5], g = H[6], h = H[7];
#define PDFKILN_SHA256_ROUND(a, b, c, d, e, f, g, h, t, wt)                                                   \
    do {                                                                                                     \
        const uint32_t t1 = h + (rotr(e, 6) ^ rotr(e, 11) ^ rotr(e, 25)) + (g ^ (e & (f ^ g))) +            \
                            sha256_k::K[t] + (wt);                                                          \
        const uint32_t t2 = (rotr(a, 2) ^ rotr(a, 13) ^ rotr(a, 22)) + ((a & b) | (c & (a | b)));          \
        d += t1;                                                                                             \
        h = t1 + t2;                                                                                         \
    } while (0)
#define PDFKILN_SHA256_EIGHT(t, W)                                                                           \
    PDFKILN_SHA256_ROUND(a, b, c, d, e, f, g, h, (t) + 0, W((t) + 0));                                       \
    PDFKILN_SHA256_ROUND(h, a, b, c, d, e, f, g, (t) + 1, W((t) + 1));                                       \
    PDFKILN_SHA256_ROUND(g, h, a, b, c, d, e, f, (t) + 2, W((t) + 2));                                       \
    PDFKILN_SHA256_ROUND(f, g, h, a, b, c, d, e, (t) + 3, W((t) + 3));                                       \
    PDFKILN_SHA256_ROUND(e, f, g, h, a, b, c, d, (t) + 4, W((t) + 4));                                       \
    PDFKILN_SHA256_ROUND(d, e, f, g, h, a, b, c, (t) + 5, W((t) + 5));                                       \
    PDFKILN_SHA256_ROUND(c, d, e, f, g, h, a, b, (t) + 6, W((t) + 6));                                       \
    PDFKILN_SHA256_ROUND(b, c, d, e, f, g, h, a, (t) + 7, W((t) + 7))
#define PDFKILN_SHA256_LOAD(t) (w[(t)] = loadBig(blocks + 4 * (t)))
#define PDFKILN_SHA256_NEXT(t)                                                                               \
    (w[(t) & 15] += (rotr(w[((t) - 2) & 15], 17) ^ rotr(w[((t) - 2) & 15], 19) ^ (w[((t) - 2) & 15] >> 10)) + \
                    w[((t) - 7) & 15] +                                                                      \
                    (rotr(w[((t) - 15) & 15], 7) ^ rotr(w[((t) - 15) & 15], 18) ^ (w[((t) - 15) & 15] >> 3)))
        PDFKILN_SHA256_EIGHT(0, PDFKILN_SHA256_LOAD);
        PDFKILN_SHA256_EIGHT(8, PDFKILN_SHA256_LOAD);
        for (int t = 16; t < 64; t += 16) {
            PDFKILN_SHA256_EIGHT(t, PDFKILN_SHA256_NEXT);
            PDFKILN_SHA256_EIGHT(t + 8, PDFKILN_SHA256_NEXT);
        }
#undef PDFKILN_SHA256_NEXT
#undef PDFKILN_SHA256_LOAD
#undef PDFKILN_SHA256_EIGHT
#undef PDFKILN_SHA256_ROUND
        H[0] += a; H[1] += b; H[2] += c; H[3] += d;
        H[4] += e; H[5] += f; H[6] += g; H[7] += h;
    }
    std::memset(w, 0, sizeof w);
}

void Sha256Calc_init(Sha256Calc* calc)
{
    if (calc)
        Sha256Calc_reset(calc);
}

void Sha256Calc_reset(Sha256Calc* calc)
{
    if (!calc)
        return;
    std::memset(calc, 0, sizeof *calc);
    std::memcpy(calc->H, H0, sizeof H0);
}

void Sha256Calc_uninit(Sha256Calc* calc)
{
    if (!calc)
        return;
    volatile unsigned char* p = reinterpret_cast<volatile unsigned char*>(calc);
    for (size_t i = 0; i < sizeof *calc; ++i)
        p[i] = 0;
}

void Sha256Calc_calcBlock(Sha256Calc* calc, const unsigned char* block)
{
    chosenCompress()(calc->H, block, 1);
}

int Sha256Calc_calculate(Sha256Calc* calc, const void* data, size_t size)
{
    if (!calc || (data == nullptr && size != 0))
        return 0;
    Sha256Calc_reset(calc);
    const unsigned char* p = static_cast<const unsigned char*>(data);
    const size_t whole = size / 64;
    const Compress compress = chosenCompress();
    if (whole)
        compress(calc->H, p, whole);
    const size_t done = 64 * whole;
    calc->totalLength = size;

    // Final block(s): the rest, a one bit, zeros, and the length in bits.
    unsigned char tail[128];
    const size_t rest = size - done;
    std::memset(tail, 0, sizeof tail);
    if (rest)
        std::memcpy(tail, p + done, rest);
    tail[rest] = 0x80;
    const size_t tailLen = (rest < 56) ? 64 : 128;
    const uint64_t bits = static_cast<uint64_t>(size) << 3;
    for (int i = 0; i < 8; ++i)
        tail[tailLen - 1 - i] = static_cast<unsigned char>(bits >> (8 * i));
    compress(calc->H, tail, tailLen / 64);
    std::memset(tail, 0, sizeof tail);

    for (int i = 0; i < 8; ++i) {
        const uint32_t v = __builtin_bswap32(calc->H[i]);
        std::memcpy(calc->Value + 4 * i, &v, 4);
    }
    return 1;
}

} // namespace pcrypt
