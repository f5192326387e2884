#include "PDFKilnPage/crypt/sha256.h"

#include <cstddef>
#include <cstring>

namespace pcrypt {

static_assert(offsetof(_Sha256Calc, Value) == 0, "the digest must open the object");

namespace {

constexpr uint32_t K[64] = {
    0x428a2f98, 0x71374491, 0xb5c0fbcf, 0xe9b5dba5, 0x3956c25b, 0x59f111f1, 0x923f82a4, 0xab1c5ed5,
    0xd807aa98, 0x12835b01, 0x243185be, 0x550c7dc3, 0x72be5d74, 0x80deb1fe, 0x9bdc06a7, 0xc19bf174,
    0xe49b69c1, 0xefbe4786, 0x0fc19dc6, 0x240ca1cc, 0x2de92c6f, 0x4a7484aa, 0x5cb0a9dc, 0x76f988da,
    0x983e5152, 0xa831c66d, 0xb00327c8, 0xbf597fc7, 0xc6e00bf3, 0xd5a79147, 0x06ca6351, 0x14292967,
    0x27b70a85, 0x2e1b2138, 0x4d2c6dfc, 0x53380d13, 0x650a7354, 0x766a0abb, 0x81c2c92e, 0x92722c85,
    0xa2bfe8a1, 0xa81a664b, 0xc24b8b70, 0xc76c51a3, 0xd192e819, 0xd6990624, 0xf40e3585, 0x106aa070,
    0x19a4c116, 0x1e376c08, 0x2748774c, 0x34b0bcb5, 0x391c0cb3, 0x4ed8aa4a, 0x5b9cca4f, 0x682e6ff3,
    0x748f82ee, 0x78a5636f, 0x84c87814, 0x8cc70208, 0x90befffa, 0xa4506ceb, 0xbef9a3f7, 0xc67178f2};

constexpr uint32_t H0[8] = {0x6a09e667, 0xbb67ae85, 0x3c6ef372, 0xa54ff53a,
                            0x510e527f, 0x9b05688c, 0x1f83d9ab, 0x5be0cd19};

inline uint32_t rotr(uint32_t x, int n) { return (x >> n) | (x << (32 - n)); }

} // namespace

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
    uint32_t w[64];
    for (int t = 0; t < 16; ++t)
        w[t] = (uint32_t(block[4 * t]) << 24) | (uint32_t(block[4 * t + 1]) << 16) |
               (uint32_t(block[4 * t + 2]) << 8) | uint32_t(block[4 * t + 3]);
    for (int t = 16; t < 64; ++t) {
        uint32_t s0 = rotr(w[t - 15], 7) ^ rotr(w[t - 15], 18) ^ (w[t - 15] >> 3);
        uint32_t s1 = rotr(w[t - 2], 17) ^ rotr(w[t - 2], 19) ^ (w[t - 2] >> 10);
        w[t] = w[t - 16] + s0 + w[t - 7] + s1;
    }
    uint32_t a = calc->H[0], b = calc->H[1], c = calc->H[2], d = calc->H[3];
    uint32_t e = calc->H[4], f = calc->H[5], g = calc->H[6], h = calc->H[7];
    for (int t = 0; t < 64; ++t) {
        uint32_t t1 = h + (rotr(e, 6) ^ rotr(e, 11) ^ rotr(e, 25)) + ((e & f) ^ (~e & g)) + K[t] + w[t];
        uint32_t t2 = (rotr(a, 2) ^ rotr(a, 13) ^ rotr(a, 22)) + ((a & b) ^ (a & c) ^ (b & c));
        h = g; g = f; f = e; e = d + t1;
        d = c; c = b; b = a; a = t1 + t2;
    }
    calc->H[0] += a; calc->H[1] += b; calc->H[2] += c; calc->H[3] += d;
    calc->H[4] += e; calc->H[5] += f; calc->H[6] += g; calc->H[7] += h;
}

int Sha256Calc_calculate(Sha256Calc* calc, const void* data, size_t size)
{
    if (!calc || (data == nullptr && size != 0))
        return 0;
    Sha256Calc_reset(calc);
    const unsigned char* p = static_cast<const unsigned char*>(data);
    size_t done = 0;
    for (; size - done >= 64; done += 64)
        Sha256Calc_calcBlock(calc, p + done);
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
    Sha256Calc_calcBlock(calc, tail);
    if (tailLen == 128)
        Sha256Calc_calcBlock(calc, tail + 64);
    std::memset(tail, 0, sizeof tail);

    for (int i = 0; i < 8; ++i) {
        calc->Value[4 * i] = static_cast<unsigned char>(calc->H[i] >> 24);
        calc->Value[4 * i + 1] = static_cast<unsigned char>(calc->H[i] >> 16);
        calc->Value[4 * i + 2] = static_cast<unsigned char>(calc->H[i] >> 8);
        calc->Value[4 * i + 3] = static_cast<unsigned char>(calc->H[i]);
    }
    return 1;
}

} // namespace pcrypt
