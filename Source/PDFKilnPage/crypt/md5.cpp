#include "PDFKilnPage/crypt/md5.h"

#include <algorithm>
#include <cstring>

namespace pcrypt {

namespace {

constexpr unsigned char kPadding[64] = {0x80};

inline uint32_t rotl(uint32_t x, int n) { return (x << n) | (x >> (32 - n)); }

inline uint32_t F(uint32_t x, uint32_t y, uint32_t z) { return (x & y) | (~x & z); }
inline uint32_t G(uint32_t x, uint32_t y, uint32_t z) { return (x & z) | (y & ~z); }
inline uint32_t H(uint32_t x, uint32_t y, uint32_t z) { return x ^ y ^ z; }
inline uint32_t I(uint32_t x, uint32_t y, uint32_t z) { return y ^ (x | ~z); }

#define MD5_STEP(f, a, b, c, d, x, s, ac) \
    (a) = rotl((a) + f((b), (c), (d)) + (x) + static_cast<uint32_t>(ac), (s)) + (b)

} // namespace

void PDFEncryptionMD5::MD5_memcpy(unsigned char* output, const unsigned char* input, size_t len)
{
    if (len)
        std::memmove(output, input, len);
}

void PDFEncryptionMD5::MD5_memset(unsigned char* output, int value, size_t len)
{
    if (len)
        std::memset(output, value, len);
}

void PDFEncryptionMD5::Encode(unsigned char* output, const uint32_t* input, size_t len)
{
    for (size_t i = 0, j = 0; j + 3 < len; ++i, j += 4) {
        output[j] = static_cast<unsigned char>(input[i]);
        output[j + 1] = static_cast<unsigned char>(input[i] >> 8);
        output[j + 2] = static_cast<unsigned char>(input[i] >> 16);
        output[j + 3] = static_cast<unsigned char>(input[i] >> 24);
    }
}

void PDFEncryptionMD5::Decode(uint32_t* output, const unsigned char* input, size_t len)
{
    for (size_t i = 0, j = 0; j + 3 < len; ++i, j += 4)
        output[i] = static_cast<uint32_t>(input[j]) | (static_cast<uint32_t>(input[j + 1]) << 8) |
                    (static_cast<uint32_t>(input[j + 2]) << 16) | (static_cast<uint32_t>(input[j + 3]) << 24);
}

void PDFEncryptionMD5::MD5Transform(uint32_t state[4], const unsigned char block[64])
{
    uint32_t a = state[0], b = state[1], c = state[2], d = state[3], x[16];
    Decode(x, block, 64);

    MD5_STEP(F, a, b, c, d, x[0], 7, 0xd76aa478);
    MD5_STEP(F, d, a, b, c, x[1], 12, 0xe8c7b756);
    MD5_STEP(F, c, d, a, b, x[2], 17, 0x242070db);
    MD5_STEP(F, b, c, d, a, x[3], 22, 0xc1bdceee);
    MD5_STEP(F, a, b, c, d, x[4], 7, 0xf57c0faf);
    MD5_STEP(F, d, a, b, c, x[5], 12, 0x4787c62a);
    MD5_STEP(F, c, d, a, b, x[6], 17, 0xa8304613);
    MD5_STEP(F, b, c, d, a, x[7], 22, 0xfd469501);
    MD5_STEP(F, a, b, c, d, x[8], 7, 0x698098d8);
    MD5_STEP(F, d, a, b, c, x[9], 12, 0x8b44f7af);
    MD5_STEP(F, c, d, a, b, x[10], 17, 0xffff5bb1);
    MD5_STEP(F, b, c, d, a, x[11], 22, 0x895cd7be);
    MD5_STEP(F, a, b, c, d, x[12], 7, 0x6b901122);
    MD5_STEP(F, d, a, b, c, x[13], 12, 0xfd987193);
    MD5_STEP(F, c, d, a, b, x[14], 17, 0xa679438e);
    MD5_STEP(F, b, c, d, a, x[15], 22, 0x49b40821);

    MD5_STEP(G, a, b, c, d, x[1], 5, 0xf61e2562);
    MD5_STEP(G, d, a, b, c, x[6], 9, 0xc040b340);
    MD5_STEP(G, c, d, a, b, x[11], 14, 0x265e5a51);
    MD5_STEP(G, b, c, d, a, x[0], 20, 0xe9b6c7aa);
    MD5_STEP(G, a, b, c, d, x[5], 5, 0xd62f105d);
    MD5_STEP(G, d, a, b, c, x[10], 9, 0x02441453);
    MD5_STEP(G, c, d, a, b, x[15], 14, 0xd8a1e681);
    MD5_STEP(G, b, c, d, a, x[4], 20, 0xe7d3fbc8);
    MD5_STEP(G, a, b, c, d, x[9], 5, 0x21e1cde6);
    MD5_STEP(G, d, a, b, c, x[14], 9, 0xc33707d6);
    MD5_STEP(G, c, d, a, b, x[3], 14, 0xf4d50d87);
    MD5_STEP(G, b, c, d, a, x[8], 20, 0x455a14ed);
    MD5_STEP(G, a, b, c, d, x[13], 5, 0xa9e3e905);
    MD5_STEP(G, d, a, b, c, x[2], 9, 0xfcefa3f8);
    MD5_STEP(G, c, d, a, b, x[7], 14, 0x676f02d9);
    MD5_STEP(G, b, c, d, a, x[12], 20, 0x8d2a4c8a);

    MD5_STEP(H, a, b, c, d, x[5], 4, 0xfffa3942);
    MD5_STEP(H, d, a, b, c, x[8], 11, 0x8771f681);
    MD5_STEP(H, c, d, a, b, x[11], 16, 0x6d9d6122);
    MD5_STEP(H, b, c, d, a, x[14], 23, 0xfde5380c);
    MD5_STEP(H, a, b, c, d, x[1], 4, 0xa4beea44);
    MD5_STEP(H, d, a, b, c, x[4], 11, 0x4bdecfa9);
    MD5_STEP(H, c, d, a, b, x[7], 16, 0xf6bb4b60);
    MD5_STEP(H, b, c, d, a, x[10], 23, 0xbebfbc70);
    MD5_STEP(H, a, b, c, d, x[13], 4, 0x289b7ec6);
    MD5_STEP(H, d, a, b, c, x[0], 11, 0xeaa127fa);
    MD5_STEP(H, c, d, a, b, x[3], 16, 0xd4ef3085);
    MD5_STEP(H, b, c, d, a, x[6], 23, 0x04881d05);
    MD5_STEP(H, a, b, c, d, x[9], 4, 0xd9d4d039);
    MD5_STEP(H, d, a, b, c, x[12], 11, 0xe6db99e5);
    MD5_STEP(H, c, d, a, b, x[15], 16, 0x1fa27cf8);
    MD5_STEP(H, b, c, d, a, x[2], 23, 0xc4ac5665);

    MD5_STEP(I, a, b, c, d, x[0], 6, 0xf4292244);
    MD5_STEP(I, d, a, b, c, x[7], 10, 0x432aff97);
    MD5_STEP(I, c, d, a, b, x[14], 15, 0xab9423a7);
    MD5_STEP(I, b, c, d, a, x[5], 21, 0xfc93a039);
    MD5_STEP(I, a, b, c, d, x[12], 6, 0x655b59c3);
    MD5_STEP(I, d, a, b, c, x[3], 10, 0x8f0ccc92);
    MD5_STEP(I, c, d, a, b, x[10], 15, 0xffeff47d);
    MD5_STEP(I, b, c, d, a, x[1], 21, 0x85845dd1);
    MD5_STEP(I, a, b, c, d, x[8], 6, 0x6fa87e4f);
    MD5_STEP(I, d, a, b, c, x[15], 10, 0xfe2ce6e0);
    MD5_STEP(I, c, d, a, b, x[6], 15, 0xa3014314);
    MD5_STEP(I, b, c, d, a, x[13], 21, 0x4e0811a1);
    MD5_STEP(I, a, b, c, d, x[4], 6, 0xf7537e82);
    MD5_STEP(I, d, a, b, c, x[11], 10, 0xbd3af235);
    MD5_STEP(I, c, d, a, b, x[2], 15, 0x2ad7d2bb);
    MD5_STEP(I, b, c, d, a, x[9], 21, 0xeb86d391);

    state[0] += a;
    state[1] += b;
    state[2] += c;
    state[3] += d;
    std::memset(x, 0, sizeof x);
}

#undef MD5_STEP

void PDFEncryptionMD5::MD5Init(MD5_CTX* context)
{
    context->count[0] = context->count[1] = 0;
    context->state[0] = 0x67452301;
    context->state[1] = 0xefcdab89;
    context->state[2] = 0x98badcfe;
    context->state[3] = 0x10325476;
    MD5_memset(context->buffer, 0, sizeof context->buffer);
}

void PDFEncryptionMD5::MD5Update(MD5_CTX* context, const unsigned char* input, size_t inputLen)
{
    if (input == nullptr || inputLen == 0)
        return;
    size_t index = (context->count[0] >> 3) & 0x3F;
    // Bit count kept modulo 2^64, as the length field of the padding.
    uint64_t bits = (static_cast<uint64_t>(context->count[1]) << 32) | context->count[0];
    bits += static_cast<uint64_t>(inputLen) << 3;
    context->count[0] = static_cast<uint32_t>(bits);
    context->count[1] = static_cast<uint32_t>(bits >> 32);

    size_t partLen = 64 - index;
    size_t i = 0;
    if (inputLen >= partLen) {
        MD5_memcpy(&context->buffer[index], input, partLen);
        MD5Transform(context->state, context->buffer);
        for (i = partLen; i + 63 < inputLen; i += 64)
            MD5Transform(context->state, &input[i]);
        index = 0;
    }
    MD5_memcpy(&context->buffer[index], &input[i], inputLen - i);
}

void PDFEncryptionMD5::MD5Final(unsigned char digest[16], MD5_CTX* context)
{
    unsigned char bits[8];
    Encode(bits, context->count, 8);
    size_t index = (context->count[0] >> 3) & 0x3f;
    size_t padLen = (index < 56) ? (56 - index) : (120 - index);
    MD5Update(context, kPadding, padLen);
    MD5Update(context, bits, 8);
    Encode(digest, context->state, 16);
    MD5_memset(reinterpret_cast<unsigned char*>(context), 0, sizeof *context);
}

void PDFEncryptionMD5::MD5(unsigned char* data, unsigned short size, unsigned char* out, int outSize)
{
    if (out == nullptr)
        return;
    MD5_CTX ctx;
    unsigned char digest[16];
    MD5Init(&ctx);
    if (data != nullptr)
        MD5Update(&ctx, data, size);
    MD5Final(digest, &ctx);
    MD5_memcpy(out, digest, static_cast<size_t>(std::clamp(outSize, 0, 16)));
}

void PDFEncryptionMD5::MD5(const std::string& data, std::string& out, int outSize)
{
    MD5_CTX ctx;
    unsigned char digest[16];
    MD5Init(&ctx);
    MD5Update(&ctx, reinterpret_cast<const unsigned char*>(data.data()), data.size());
    MD5Final(digest, &ctx);
    out.assign(reinterpret_cast<const char*>(digest), static_cast<size_t>(std::clamp(outSize, 0, 16)));
}

} // namespace pcrypt
