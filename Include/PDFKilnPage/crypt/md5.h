// MD5 message digest (RFC 1321).
#pragma once

#include <cstdint>
#include <string>

namespace pcrypt {

struct MD5_CTX {
    uint32_t state[4];   // A, B, C, D
    uint32_t count[2];   // message length in bits, low word first
    unsigned char buffer[64];
};

class PDFEncryptionMD5 {
public:
    PDFEncryptionMD5() = default;
    virtual ~PDFEncryptionMD5() = default;

    // Digest of `size` bytes; the first `outSize` bytes of the 16-byte digest
    // go to `out` (an outSize above 16 is taken as 16, below 0 as 0). The length
    // has 16 bits, so this form hashes at most 65535 bytes.
    void MD5(unsigned char* data, unsigned short size, unsigned char* out, int outSize);
    // Digest of the whole string; `out` becomes its first `outSize` bytes.
    void MD5(const std::string& data, std::string& out, int outSize);

    void MD5Init(MD5_CTX* context);
    void MD5Update(MD5_CTX* context, const unsigned char* input, size_t inputLen);
    void MD5Final(unsigned char digest[16], MD5_CTX* context);

    static void MD5Transform(uint32_t state[4], const unsigned char block[64]);
    // Little-endian conversion between 32-bit words and bytes; len in bytes,
    // a multiple of 4.
    static void Encode(unsigned char* output, const uint32_t* input, size_t len);
    static void Decode(uint32_t* output, const unsigned char* input, size_t len);
    static void MD5_memcpy(unsigned char* output, const unsigned char* input, size_t len);
    static void MD5_memset(unsigned char* output, int value, size_t len);
};

} // namespace pcrypt
