// Rijndael on the AES instructions. Each function carries its own target
// attribute, so the rest of the library is built for the baseline processor
// and this code runs only where CPUID reported AES-NI.
#include "aes_hw.h"

#include <algorithm>

#if defined(__x86_64__)

#include <wmmintrin.h>

#define PDFKILN_AES_TARGET __attribute__((target("aes,sse2")))

namespace pcrypt {
namespace aes_hw {

namespace {

// Decryption keeps this many blocks in flight: AESDEC has a latency of several
// cycles but can start a new block every cycle or two, and CBC decryption has
// no dependency from one block to the next.
constexpr std::size_t kLanes = 8;

// The round count is a template argument, so that the compiler unrolls every
// loop below and keeps the blocks in flight in registers.
template <int Rounds>
struct Keys {
    __m128i k[Rounds + 1];
};

template <int Rounds>
PDFKILN_AES_TARGET inline void load(Keys<Rounds>& keys, const unsigned char* roundKeys)
{
#pragma GCC unroll 15
    for (int i = 0; i <= Rounds; ++i)
        keys.k[i] = _mm_loadu_si128(reinterpret_cast<const __m128i*>(roundKeys + 16 * i));
}

template <bool Decrypt, int Rounds>
PDFKILN_AES_TARGET inline __m128i cipherOne(const Keys<Rounds>& keys, __m128i b)
{
    b = _mm_xor_si128(b, keys.k[0]);
#pragma GCC unroll 15
    for (int r = 1; r < Rounds; ++r)
        b = Decrypt ? _mm_aesdec_si128(b, keys.k[r]) : _mm_aesenc_si128(b, keys.k[r]);
    return Decrypt ? _mm_aesdeclast_si128(b, keys.k[Rounds]) : _mm_aesenclast_si128(b, keys.k[Rounds]);
}

// kLanes blocks through the cipher side by side.
template <bool Decrypt, int Rounds>
PDFKILN_AES_TARGET inline void cipherLanes(const Keys<Rounds>& keys, __m128i b[kLanes])
{
#pragma GCC unroll 8
    for (std::size_t j = 0; j < kLanes; ++j)
        b[j] = _mm_xor_si128(b[j], keys.k[0]);
#pragma GCC unroll 15
    for (int r = 1; r < Rounds; ++r) {
        const __m128i k = keys.k[r];
#pragma GCC unroll 8
        for (std::size_t j = 0; j < kLanes; ++j)
            b[j] = Decrypt ? _mm_aesdec_si128(b[j], k) : _mm_aesenc_si128(b[j], k);
    }
    const __m128i k = keys.k[Rounds];
#pragma GCC unroll 8
    for (std::size_t j = 0; j < kLanes; ++j)
        b[j] = Decrypt ? _mm_aesdeclast_si128(b[j], k) : _mm_aesenclast_si128(b[j], k);
}

PDFKILN_AES_TARGET inline __m128i loadBlock(const unsigned char* p)
{
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
}

PDFKILN_AES_TARGET inline void storeBlock(unsigned char* p, __m128i v)
{
    _mm_storeu_si128(reinterpret_cast<__m128i*>(p), v);
}

template <bool Decrypt, int Rounds>
PDFKILN_AES_TARGET void ecb(const unsigned char* roundKeys, const unsigned char* in, unsigned char* out,
                            std::size_t blocks)
{
    Keys<Rounds> keys;
    load(keys, roundKeys);
    std::size_t n = 0;
    for (; n + kLanes <= blocks; n += kLanes) {
        __m128i b[kLanes];
#pragma GCC unroll 8
        for (std::size_t j = 0; j < kLanes; ++j)
            b[j] = loadBlock(in + 16 * (n + j));
        cipherLanes<Decrypt>(keys, b);
#pragma GCC unroll 8
        for (std::size_t j = 0; j < kLanes; ++j)
            storeBlock(out + 16 * (n + j), b[j]);
    }
    for (; n < blocks; ++n)
        storeBlock(out + 16 * n, cipherOne<Decrypt>(keys, loadBlock(in + 16 * n)));
}

template <int Rounds>
PDFKILN_AES_TARGET void cbcEncrypt(const unsigned char* roundKeys, unsigned char chain[16], const unsigned char* in,
                                   unsigned char* out, std::size_t blocks)
{
    // Each block needs the previous ciphertext: one block at a time.
    Keys<Rounds> keys;
    load(keys, roundKeys);
    __m128i c = loadBlock(chain);
    for (std::size_t n = 0; n < blocks; ++n) {
        c = cipherOne<false>(keys, _mm_xor_si128(loadBlock(in + 16 * n), c));
        storeBlock(out + 16 * n, c);
    }
    storeBlock(chain, c);
}

template <int Rounds>
PDFKILN_AES_TARGET void cbcDecrypt(const unsigned char* roundKeys, unsigned char chain[16], const unsigned char* in,
                                   unsigned char* out, std::size_t blocks)
{
    Keys<Rounds> keys;
    load(keys, roundKeys);
    __m128i prev = loadBlock(chain);
    std::size_t n = 0;
    for (; n + kLanes <= blocks; n += kLanes) {
        // All ciphertext of the group is read before anything is stored.
        __m128i b[kLanes];
#pragma GCC unroll 8
        for (std::size_t j = 0; j < kLanes; ++j)
            b[j] = loadBlock(in + 16 * (n + j));
        const __m128i lastIn = b[kLanes - 1];
        cipherLanes<true>(keys, b);
        // The chaining values are read again from the input, which no store
        // has touched yet, rather than held in registers through the rounds.
        __m128i c[kLanes - 1];
#pragma GCC unroll 8
        for (std::size_t j = 0; j + 1 < kLanes; ++j)
            c[j] = loadBlock(in + 16 * (n + j));
        storeBlock(out + 16 * n, _mm_xor_si128(b[0], prev));
#pragma GCC unroll 8
        for (std::size_t j = 1; j < kLanes; ++j)
            storeBlock(out + 16 * (n + j), _mm_xor_si128(b[j], c[j - 1]));
        prev = lastIn;
    }
    for (; n < blocks; ++n) {
        const __m128i c = loadBlock(in + 16 * n);
        storeBlock(out + 16 * n, _mm_xor_si128(cipherOne<true>(keys, c), prev));
        prev = c;
    }
    storeBlock(chain, prev);
}

// Calls the form of `Kernel` for the round count of the key: 10, 12 or 14.
#define PDFKILN_AES_BY_ROUNDS(kernel, ...)                                                                    \
    do {                                                                                                     \
        if (rounds == 10)                                                                                    \
            kernel<10>(__VA_ARGS__);                                                                         \
        else if (rounds == 12)                                                                               \
            kernel<12>(__VA_ARGS__);                                                                         \
        else                                                                                                 \
            kernel<14>(__VA_ARGS__);                                                                         \
    } while (0)

template <int Rounds>
PDFKILN_AES_TARGET void ecbEncrypt(const unsigned char* roundKeys, const unsigned char* in, unsigned char* out,
                                   std::size_t blocks)
{
    ecb<false, Rounds>(roundKeys, in, out, blocks);
}

template <int Rounds>
PDFKILN_AES_TARGET void ecbDecrypt(const unsigned char* roundKeys, const unsigned char* in, unsigned char* out,
                                   std::size_t blocks)
{
    ecb<true, Rounds>(roundKeys, in, out, blocks);
}

} // namespace

PDFKILN_AES_TARGET void encryptEcb(const unsigned char* roundKeys, int rounds, const unsigned char* in,
                                   unsigned char* out, std::size_t blocks)
{
    PDFKILN_AES_BY_ROUNDS(ecbEncrypt, roundKeys, in, out, blocks);
}

PDFKILN_AES_TARGET void decryptEcb(const unsigned char* roundKeys, int rounds, const unsigned char* in,
                                   unsigned char* out, std::size_t blocks)
{
    PDFKILN_AES_BY_ROUNDS(ecbDecrypt, roundKeys, in, out, blocks);
}

PDFKILN_AES_TARGET void encryptCbc(const unsigned char* roundKeys, int rounds, unsigned char chain[16],
                                   const unsigned char* in, unsigned char* out, std::size_t blocks)
{
    PDFKILN_AES_BY_ROUNDS(cbcEncrypt, roundKeys, chain, in, out, blocks);
}

PDFKILN_AES_TARGET void decryptCbc(const unsigned char* roundKeys, int rounds, unsigned char chain[16],
                                   const unsigned char* in, unsigned char* out, std::size_t blocks)
{
    PDFKILN_AES_BY_ROUNDS(cbcDecrypt, roundKeys, chain, in, out, blocks);
}

#undef PDFKILN_AES_BY_ROUNDS

namespace {

// One step of the key schedule: `assist` is AESKEYGENASSIST of the previous
// round key, whose last word (RotWord, SubWord and the round constant) is
// added to every word of the running XOR of the previous key's words.
PDFKILN_AES_TARGET inline __m128i nextRoundKey(__m128i key, __m128i assist)
{
    assist = _mm_shuffle_epi32(assist, 0xff);
    key = _mm_xor_si128(key, _mm_slli_si128(key, 4));
    key = _mm_xor_si128(key, _mm_slli_si128(key, 4));
    key = _mm_xor_si128(key, _mm_slli_si128(key, 4));
    return _mm_xor_si128(key, assist);
}

template <int Count>
PDFKILN_AES_TARGET void cbcEncryptChains(const unsigned char* const roundKeys[], unsigned char* const chains[],
                                         unsigned char* const data[], std::size_t blocks)
{
    Keys<10> keys[Count];
    __m128i c[Count];
#pragma GCC unroll 6
    for (int j = 0; j < Count; ++j) {
        load(keys[j], roundKeys[j]);
        c[j] = loadBlock(chains[j]);
    }
    for (std::size_t n = 0; n < blocks; ++n) {
#pragma GCC unroll 6
        for (int j = 0; j < Count; ++j) {
            c[j] = cipherOne<false>(keys[j], _mm_xor_si128(loadBlock(data[j] + 16 * n), c[j]));
            storeBlock(data[j] + 16 * n, c[j]);
        }
    }
#pragma GCC unroll 6
    for (int j = 0; j < Count; ++j)
        storeBlock(chains[j], c[j]);
}

} // namespace

PDFKILN_AES_TARGET void expandKey128(const unsigned char key[16], unsigned char roundKeys[176])
{
    __m128i k = loadBlock(key);
    storeBlock(roundKeys, k);
    // The round constants must be immediates.
#define PDFKILN_AES_EXPAND(i, rcon)                                                                           \
    k = nextRoundKey(k, _mm_aeskeygenassist_si128(k, rcon));                                                 \
    storeBlock(roundKeys + 16 * (i), k)
    PDFKILN_AES_EXPAND(1, 0x01);
    PDFKILN_AES_EXPAND(2, 0x02);
    PDFKILN_AES_EXPAND(3, 0x04);
    PDFKILN_AES_EXPAND(4, 0x08);
    PDFKILN_AES_EXPAND(5, 0x10);
    PDFKILN_AES_EXPAND(6, 0x20);
    PDFKILN_AES_EXPAND(7, 0x40);
    PDFKILN_AES_EXPAND(8, 0x80);
    PDFKILN_AES_EXPAND(9, 0x1b);
    PDFKILN_AES_EXPAND(10, 0x36);
#undef PDFKILN_AES_EXPAND
}

PDFKILN_AES_TARGET void encryptCbc128Chains(const unsigned char* const roundKeys[], unsigned char* const chains[],
                                            unsigned char* const data[], const std::size_t blocks[], int count)
{
    if (count < 1 || count > kMaxCbcChains)
        return;
    // Chains in order of length, shortest first. All of them run side by side
    // up to the end of the shortest, the others on to the end of the next, and
    // so on: every block is in a group as large as the chains still going.
    int order[kMaxCbcChains];
    for (int j = 0; j < count; ++j)
        order[j] = j;
    std::sort(order, order + count, [&](int a, int b) { return blocks[a] < blocks[b]; });
    std::size_t done = 0;
    for (int first = 0; first < count; ++first) {
        const std::size_t upTo = blocks[order[first]];
        if (upTo <= done)
            continue;
        const unsigned char* keys[kMaxCbcChains];
        unsigned char* vectors[kMaxCbcChains];
        unsigned char* at[kMaxCbcChains];
        const int going = count - first;
        for (int j = 0; j < going; ++j) {
            const int c = order[first + j];
            keys[j] = roundKeys[c];
            vectors[j] = chains[c];
            at[j] = data[c] + 16 * done;
        }
        const std::size_t n = upTo - done;
        switch (going) {
        case 1: cbcEncrypt<10>(keys[0], vectors[0], at[0], at[0], n); break;
        case 2: cbcEncryptChains<2>(keys, vectors, at, n); break;
        case 3: cbcEncryptChains<3>(keys, vectors, at, n); break;
        case 4: cbcEncryptChains<4>(keys, vectors, at, n); break;
        case 5: cbcEncryptChains<5>(keys, vectors, at, n); break;
        default: cbcEncryptChains<6>(keys, vectors, at, n); break;
        }
        done = upTo;
    }
}

} // namespace aes_hw
} // namespace pcrypt

#else // not x86-64: never selected, see aesHardwareUsable

namespace pcrypt {
namespace aes_hw {
void encryptEcb(const unsigned char*, int, const unsigned char*, unsigned char*, std::size_t) {}
void decryptEcb(const unsigned char*, int, const unsigned char*, unsigned char*, std::size_t) {}
void encryptCbc(const unsigned char*, int, unsigned char*, const unsigned char*, unsigned char*, std::size_t) {}
void decryptCbc(const unsigned char*, int, unsigned char*, const unsigned char*, unsigned char*, std::size_t) {}
void expandKey128(const unsigned char*, unsigned char*) {}
void encryptCbc128Chains(const unsigned char* const*, unsigned char* const*, unsigned char* const*, const std::size_t*,
                         int)
{
}
} // namespace aes_hw
} // namespace pcrypt

#endif
