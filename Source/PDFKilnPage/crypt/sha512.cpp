#include "PDFKilnPage/crypt/sha512.h"

#include <algorithm>
#include <cstring>

#include "PDFKilnPage/crypt/cpufeatures.h"

#if defined(__x86_64__)
#include <immintrin.h>
#endif

namespace pcrypt {

namespace {

constexpr uint64_t K[80] = {
    0x428a2f98d728ae22ULL, 0x7137449123ef65cdULL, 0xb5c0fbcfec4d3b2fULL, 0xe9b5dba58189dbbcULL,
    0x3956c25bf348b538ULL, 0x59f111f1b605d019ULL, 0x923f82a4af194f9bULL, 0xab1c5ed5da6d8118ULL,
    0xd807aa98a3030242ULL, 0x12835b0145706fbeULL, 0x243185be4ee4b28cULL, 0x550c7dc3d5ffb4e2ULL,
    0x72be5d74f27b896fULL, 0x80deb1fe3b1696b1ULL, 0x9bdc06a725c71235ULL, 0xc19bf174cf692694ULL,
    0xe49b69c19ef14ad2ULL, 0xefbe4786384f25e3ULL, 0x0fc19dc68b8cd5b5ULL, 0x240ca1cc77ac9c65ULL,
    0x2de92c6f592b0275ULL, 0x4a7484aa6ea6e483ULL, 0x5cb0a9dcbd41fbd4ULL, 0x76f988da831153b5ULL,
    0x983e5152ee66dfabULL, 0xa831c66d2db43210ULL, 0xb00327c898fb213fULL, 0xbf597fc7beef0ee4ULL,
    0xc6e00bf33da88fc2ULL, 0xd5a79147930aa725ULL, 0x06ca6351e003826fULL, 0x142929670a0e6e70ULL,
    0x27b70a8546d22ffcULL, 0x2e1b21385c26c926ULL, 0x4d2c6dfc5ac42aedULL, 0x53380d139d95b3dfULL,
    0x650a73548baf63deULL, 0x766a0abb3c77b2a8ULL, 0x81c2c92e47edaee6ULL, 0x92722c851482353bULL,
    0xa2bfe8a14cf10364ULL, 0xa81a664bbc423001ULL, 0xc24b8b70d0f89791ULL, 0xc76c51a30654be30ULL,
    0xd192e819d6ef5218ULL, 0xd69906245565a910ULL, 0xf40e35855771202aULL, 0x106aa07032bbd1b8ULL,
    0x19a4c116b8d2d0c8ULL, 0x1e376c085141ab53ULL, 0x2748774cdf8eeb99ULL, 0x34b0bcb5e19b48a8ULL,
    0x391c0cb3c5c95a63ULL, 0x4ed8aa4ae3418acbULL, 0x5b9cca4f7763e373ULL, 0x682e6ff3d6b2b8a3ULL,
    0x748f82ee5defb2fcULL, 0x78a5636f43172f60ULL, 0x84c87814a1f0ab72ULL, 0x8cc702081a6439ecULL,
    0x90befffa23631e28ULL, 0xa4506cebde82bde9ULL, 0xbef9a3f7b2c67915ULL, 0xc67178f2e372532bULL,
    0xca273eceea26619cULL, 0xd186b8c721c0c207ULL, 0xeada7dd6cde0eb1eULL, 0xf57d4f7fee6ed178ULL,
    0x06f067aa72176fbaULL, 0x0a637dc5a2c898a6ULL, 0x113f9804bef90daeULL, 0x1b710b35131c471bULL,
    0x28db77f523047d84ULL, 0x32caab7b40c72493ULL, 0x3c9ebe0a15c9bebcULL, 0x431d67c49c100d4cULL,
    0x4cc5d4becb3e42b6ULL, 0x597f299cfc657e2aULL, 0x5fcb6fab3ad6faecULL, 0x6c44198c4a475817ULL};

constexpr uint64_t IV512[8] = {0x6a09e667f3bcc908ULL, 0xbb67ae8584caa73bULL, 0x3c6ef372fe94f82bULL,
                               0xa54ff53a5f1d36f1ULL, 0x510e527fade682d1ULL, 0x9b05688c2b3e6c1fULL,
                               0x1f83d9abfb41bd6bULL, 0x5be0cd19137e2179ULL};

constexpr uint64_t IV384[8] = {0xcbbb9d5dc1059ed8ULL, 0x629a292a367cd507ULL, 0x9159015a3070dd17ULL,
                               0x152fecd8f70e5939ULL, 0x67332667ffc00b31ULL, 0x8eb44a8768581511ULL,
                               0xdb0c2e0d64f98fa7ULL, 0x47b5481dbefa4fa4ULL};

// Stack used by one compression step, with some margin.
constexpr int kBurnBytes = 16 * 8 + 20 * 8 + 128;

inline uint64_t rotr(uint64_t x, int n) { return (x >> n) | (x << (64 - n)); }

inline uint64_t loadBig(const uint8_t* p)
{
    uint64_t v;
    std::memcpy(&v, p, 8);
    return __builtin_bswap64(v);
}

// The message schedule is a ring of 16 words and the working variables rotate
// through the names of the ROUND macro, as in SHA-256.
void compress(uint64_t hash[8], const uint8_t* block)
{
    uint64_t w[16];
    uint64_t a = hash[0], b = hash[1], c = hash[2], d = hash[3];
    uint64_t e = hash[4], f = hash[5], g = hash[6], h = hash[7];
#define PDFKILN_SHA512_ROUND(a, b, c, d, e, f, g, h, t, wt)                                                   \
    do {                                                                                                     \
        const uint64_t t1 = h + (rotr(e, 14) ^ rotr(e, 18) ^ rotr(e, 41)) + (g ^ (e & (f ^ g))) + K[t] + (wt); \
        const uint64_t t2 = (rotr(a, 28) ^ rotr(a, 34) ^ rotr(a, 39)) + ((a & b) | (c & (a | b)));         \
        d += t1;                                                                                             \
        h = t1 + t2;                                                                                         \
    } while (0)
#define PDFKILN_SHA512_EIGHT(t, W)                                                                           \
    PDFKILN_SHA512_ROUND(a, b, c, d, e, f, g, h, (t) + 0, W((t) + 0));                                       \
    PDFKILN_SHA512_ROUND(h, a, b, c, d, e, f, g, (t) + 1, W((t) + 1));                                       \
    PDFKILN_SHA512_ROUND(g, h, a, b, c, d, e, f, (t) + 2, W((t) + 2));                                       \
    PDFKILN_SHA512_ROUND(f, g, h, a, b, c, d, e, (t) + 3, W((t) + 3));                                       \
    PDFKILN_SHA512_ROUND(e, f, g, h, a, b, c, d, (t) + 4, W((t) + 4));                                       \
    PDFKILN_SHA512_ROUND(d, e, f, g, h, a, b, c, (t) + 5, W((t) + 5));                                       \
    PDFKILN_SHA512_ROUND(c, d, e, f, g, h, a, b, (t) + 6, W((t) + 6));                                       \
    PDFKILN_SHA512_ROUND(b, c, d, e, f, g, h, a, (t) + 7, W((t) + 7))
#define PDFKILN_SHA512_LOAD(t) (w[(t)] = loadBig(block + 8 * (t)))
#define PDFKILN_SHA512_NEXT(t)                                                                               \
    (w[(t) & 15] += (rotr(w[((t) - 2) & 15], 19) ^ rotr(w[((t) - 2) & 15], 61) ^ (w[((t) - 2) & 15] >> 6)) +  \
                    w[((t) - 7) & 15] +                                                                      \
                    (rotr(w[((t) - 15) & 15], 1) ^ rotr(w[((t) - 15) & 15], 8) ^ (w[((t) - 15) & 15] >> 7)))
    PDFKILN_SHA512_EIGHT(0, PDFKILN_SHA512_LOAD);
    PDFKILN_SHA512_EIGHT(8, PDFKILN_SHA512_LOAD);
    for (int t = 16; t < 80; t += 16) {
        PDFKILN_SHA512_EIGHT(t, PDFKILN_SHA512_NEXT);
        PDFKILN_SHA512_EIGHT(t + 8, PDFKILN_SHA512_NEXT);
    }
#undef PDFKILN_SHA512_NEXT
#undef PDFKILN_SHA512_LOAD
#undef PDFKILN_SHA512_EIGHT
#undef PDFKILN_SHA512_ROUND
    hash[0] += a; hash[1] += b; hash[2] += c; hash[3] += d;
    hash[4] += e; hash[5] += f; hash[6] += g; hash[7] += h;
}

void init(_SHA512Context* sc, const uint64_t iv[8])
{
    std::memset(sc, 0, sizeof *sc);
    std::memcpy(sc->hash, iv, sizeof sc->hash);
}

void update(_SHA512Context* sc, const void* data, size_t len)
{
    if (data == nullptr || len == 0)
        return;
    const uint8_t* p = static_cast<const uint8_t*>(data);
    const uint64_t before = sc->totalLength[0];
    sc->totalLength[0] += len;
    if (sc->totalLength[0] < before)
        ++sc->totalLength[1];
    bool compressed = false;
    while (len > 0) {
        size_t take = 128 - sc->bufferLength;
        if (take > len)
            take = len;
        if (sc->bufferLength == 0 && len >= 128) {
            compress(sc->hash, p);
            take = 128;
            compressed = true;
        } else {
            std::memcpy(sc->buffer + sc->bufferLength, p, take);
            sc->bufferLength += static_cast<uint32_t>(take);
            if (sc->bufferLength == 128) {
                compress(sc->hash, sc->buffer);
                sc->bufferLength = 0;
                compressed = true;
            }
        }
        p += take;
        len -= take;
    }
    if (compressed)
        burnStack(kBurnBytes);
}

void finish(_SHA512Context* sc, uint8_t* out, int outLen)
{
    // Length in bits, 128 bits big-endian.
    const uint64_t hi = (sc->totalLength[1] << 3) | (sc->totalLength[0] >> 61);
    const uint64_t lo = sc->totalLength[0] << 3;
    uint32_t n = sc->bufferLength;
    sc->buffer[n++] = 0x80;
    if (n > 112) {
        std::memset(sc->buffer + n, 0, 128 - n);
        compress(sc->hash, sc->buffer);
        n = 0;
    }
    std::memset(sc->buffer + n, 0, 112 - n);
    for (int i = 0; i < 8; ++i) {
        sc->buffer[112 + i] = static_cast<uint8_t>(hi >> (56 - 8 * i));
        sc->buffer[120 + i] = static_cast<uint8_t>(lo >> (56 - 8 * i));
    }
    compress(sc->hash, sc->buffer);
    for (int i = 0; i < outLen; ++i)
        out[i] = static_cast<uint8_t>(sc->hash[i / 8] >> (56 - 8 * (i % 8)));
    volatile uint8_t* v = reinterpret_cast<volatile uint8_t*>(sc);
    for (size_t i = 0; i < sizeof *sc; ++i)
        v[i] = 0;
    burnStack(kBurnBytes);
}

#if defined(__x86_64__)

#define PDFKILN_SHA512_LANES_TARGET __attribute__((target("avx512f,avx512vl")))

// Four messages' compression at once: lane j of every vector belongs to
// message j. Rotates and the three-input functions are single AVX-512
// instructions (VPRORQ, VPTERNLOGQ: 0x96 is a ^ b ^ c, 0xCA is a ? b : c,
// 0xE8 the majority).
PDFKILN_SHA512_LANES_TARGET void compressLanes(__m256i state[8], const uint8_t* const blocks[4])
{
    __m256i w[16];
#pragma GCC unroll 16
    for (int t = 0; t < 16; ++t)
        w[t] = _mm256_set_epi64x(static_cast<long long>(loadBig(blocks[3] + 8 * t)),
                                 static_cast<long long>(loadBig(blocks[2] + 8 * t)),
                                 static_cast<long long>(loadBig(blocks[1] + 8 * t)),
                                 static_cast<long long>(loadBig(blocks[0] + 8 * t)));
    __m256i a = state[0], b = state[1], c = state[2], d = state[3];
    __m256i e = state[4], f = state[5], g = state[6], h = state[7];
#pragma GCC unroll 16
    for (int t = 0; t < 80; ++t) {
        if (t >= 16) {
            const __m256i w2 = w[(t - 2) & 15], w15 = w[(t - 15) & 15];
            const __m256i s1 = _mm256_ternarylogic_epi64(_mm256_ror_epi64(w2, 19), _mm256_ror_epi64(w2, 61),
                                                         _mm256_srli_epi64(w2, 6), 0x96);
            const __m256i s0 = _mm256_ternarylogic_epi64(_mm256_ror_epi64(w15, 1), _mm256_ror_epi64(w15, 8),
                                                         _mm256_srli_epi64(w15, 7), 0x96);
            w[t & 15] = _mm256_add_epi64(_mm256_add_epi64(w[t & 15], w[(t - 7) & 15]), _mm256_add_epi64(s0, s1));
        }
        const __m256i kw = _mm256_add_epi64(w[t & 15], _mm256_set1_epi64x(static_cast<long long>(K[t])));
        const __m256i sum1 = _mm256_ternarylogic_epi64(_mm256_ror_epi64(e, 14), _mm256_ror_epi64(e, 18),
                                                       _mm256_ror_epi64(e, 41), 0x96);
        const __m256i t1 = _mm256_add_epi64(_mm256_add_epi64(h, kw),
                                            _mm256_add_epi64(_mm256_ternarylogic_epi64(e, f, g, 0xCA), sum1));
        const __m256i sum0 = _mm256_ternarylogic_epi64(_mm256_ror_epi64(a, 28), _mm256_ror_epi64(a, 34),
                                                       _mm256_ror_epi64(a, 39), 0x96);
        const __m256i t2 = _mm256_add_epi64(sum0, _mm256_ternarylogic_epi64(a, b, c, 0xE8));
        h = g;
        g = f;
        f = e;
        e = _mm256_add_epi64(d, t1);
        d = c;
        c = b;
        b = a;
        a = _mm256_add_epi64(t1, t2);
    }
    state[0] = _mm256_add_epi64(state[0], a);
    state[1] = _mm256_add_epi64(state[1], b);
    state[2] = _mm256_add_epi64(state[2], c);
    state[3] = _mm256_add_epi64(state[3], d);
    state[4] = _mm256_add_epi64(state[4], e);
    state[5] = _mm256_add_epi64(state[5], f);
    state[6] = _mm256_add_epi64(state[6], g);
    state[7] = _mm256_add_epi64(state[7], h);
}

// `blocks` whole blocks of every lane in `lanes` (at most four) compressed
// together, starting `from` blocks into each message, their hash values in
// and out through the contexts.
PDFKILN_SHA512_LANES_TARGET void compressTogether(_SHA512Context* const lanes[], const uint8_t* const data[],
                                                  int count, size_t from, size_t blocks)
{
    alignas(32) uint64_t words[4];
    __m256i state[8];
    for (int i = 0; i < 8; ++i) {
        for (int j = 0; j < 4; ++j)
            words[j] = lanes[j < count ? j : 0]->hash[i];
        state[i] = _mm256_load_si256(reinterpret_cast<const __m256i*>(words));
    }
    const uint8_t* at[4];
    for (size_t n = from; n < from + blocks; ++n) {
        for (int j = 0; j < 4; ++j)
            at[j] = data[j < count ? j : 0] + 128 * n;
        compressLanes(state, at);
    }
    for (int i = 0; i < 8; ++i) {
        _mm256_store_si256(reinterpret_cast<__m256i*>(words), state[i]);
        for (int j = 0; j < count; ++j)
            lanes[j]->hash[i] = words[j];
    }
    // The vectors held message words and hash values: cleared on the way out.
    _mm256_zeroall();
}

#endif

} // namespace

__attribute__((noinline)) void burnStack(int size)
{
    unsigned char buf[128];
    std::memset(buf, 0, sizeof buf);
    // The empty statements claim to read the buffer: the zeros are stored,
    // and the call below cannot become a jump that reuses this frame.
    __asm__ __volatile__("" : : "r"(buf) : "memory");
    size -= static_cast<int>(sizeof buf);
    if (size > 0)
        burnStack(size);
    __asm__ __volatile__("" : : "r"(buf) : "memory");
}

void SHA512Init(_SHA512Context* sc)
{
    if (sc)
        init(sc, IV512);
}

void SHA512Update(_SHA512Context* sc, const void* data, size_t len)
{
    if (sc)
        update(sc, data, len);
}

void SHA512Final(_SHA512Context* sc, uint8_t hash[64])
{
    if (sc && hash)
        finish(sc, hash, SHA512_HASH_SIZE);
}

void SHA384Init(_SHA384Context* sc)
{
    if (sc)
        init(sc, IV384);
}

void SHA384Update(_SHA384Context* sc, const void* data, size_t len)
{
    if (sc)
        update(sc, data, len);
}

void SHA384Final(_SHA384Context* sc, uint8_t hash[48])
{
    if (sc && hash)
        finish(sc, hash, SHA384_HASH_SIZE);
}

void SHA512Lanes(const uint8_t* const data[], const size_t lengths[], const bool is384[], uint8_t* const out[],
                 int count)
{
    if (count < 1 || count > kSha512Lanes)
        return;
    _SHA512Context ctx[kSha512Lanes];
    for (int j = 0; j < count; ++j)
        init(&ctx[j], is384[j] ? IV384 : IV512);
    size_t done = 0;                       // whole blocks compressed in the lanes still going
    size_t doneOf[kSha512Lanes] = {0, 0, 0, 0}; // and in each lane
#if defined(__x86_64__)
    if (count >= 2 && sha512LanesUsable(cpuFeatures())) {
        // Lanes by length, shortest first: all of them go together up to the
        // shortest one's last whole block, the others on to the next, and so
        // on while two or more are left.
        int order[kSha512Lanes];
        for (int j = 0; j < count; ++j)
            order[j] = j;
        std::sort(order, order + count, [&](int x, int y) { return lengths[x] < lengths[y]; });
        for (int first = 0; first + 1 < count; ++first) {
            const size_t upTo = lengths[order[first]] / 128;
            if (upTo <= done)
                continue;
            _SHA512Context* lanes[kSha512Lanes];
            const uint8_t* from[kSha512Lanes];
            const int going = count - first;
            for (int j = 0; j < going; ++j) {
                lanes[j] = &ctx[order[first + j]];
                from[j] = data[order[first + j]];
            }
            compressTogether(lanes, from, going, done, upTo - done);
            done = upTo;
            for (int j = 0; j < going; ++j)
                doneOf[order[first + j]] = done;
        }
        burnStack(kBurnBytes);
    }
#endif
    for (int j = 0; j < count; ++j) {
        // What the lanes did, as one-message updates would have left it.
        ctx[j].totalLength[0] = doneOf[j] * 128;
        update(&ctx[j], data[j] + doneOf[j] * 128, lengths[j] - doneOf[j] * 128);
        finish(&ctx[j], out[j], is384[j] ? SHA384_HASH_SIZE : SHA512_HASH_SIZE);
    }
}

} // namespace pcrypt
