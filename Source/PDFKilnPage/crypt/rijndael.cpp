#include "PDFKilnPage/crypt/rijndael.h"

#include <array>
#include <cstring>

#include "PDFKilnPage/crypt/cpufeatures.h"
#include "aes_hw.h"

namespace pcrypt {

namespace {

// ---------------------------------------------------------------------------
// Tables. They are derived at compile time from the field GF(2^8) with the
// polynomial x^8 + x^4 + x^3 + x + 1, which gives exactly the published
// S-box, its inverse, the round constants and the combined round tables.
// ---------------------------------------------------------------------------

constexpr uint8_t xtime(uint8_t a)
{
    return static_cast<uint8_t>((a << 1) ^ ((a & 0x80) ? 0x1b : 0x00));
}

constexpr uint8_t gmul(uint8_t a, uint8_t b)
{
    uint8_t r = 0;
    while (b) {
        if (b & 1)
            r ^= a;
        a = xtime(a);
        b >>= 1;
    }
    return r;
}

constexpr uint8_t ginv(uint8_t a)
{
    // a^254 is the multiplicative inverse; 0 maps to 0.
    uint8_t r = 1;
    uint8_t base = a;
    int e = 254;
    while (e) {
        if (e & 1)
            r = gmul(r, base);
        base = gmul(base, base);
        e >>= 1;
    }
    return a ? r : 0;
}

constexpr uint8_t rotl8(uint8_t x, int n)
{
    return static_cast<uint8_t>((x << n) | (x >> (8 - n)));
}

constexpr std::array<uint8_t, 256> makeS()
{
    std::array<uint8_t, 256> s{};
    for (int i = 0; i < 256; ++i) {
        uint8_t b = ginv(static_cast<uint8_t>(i));
        s[i] = static_cast<uint8_t>(b ^ rotl8(b, 1) ^ rotl8(b, 2) ^ rotl8(b, 3) ^ rotl8(b, 4) ^ 0x63);
    }
    return s;
}

constexpr std::array<uint8_t, 256> S = makeS();

constexpr std::array<uint8_t, 256> makeS5()
{
    std::array<uint8_t, 256> r{};
    for (int i = 0; i < 256; ++i)
        r[S[i]] = static_cast<uint8_t>(i);
    return r;
}

// Inverse S-box.
constexpr std::array<uint8_t, 256> S5 = makeS5();

constexpr uint32_t word(uint8_t b0, uint8_t b1, uint8_t b2, uint8_t b3)
{
    return (uint32_t(b0) << 24) | (uint32_t(b1) << 16) | (uint32_t(b2) << 8) | uint32_t(b3);
}

constexpr uint32_t ror(uint32_t x, int n) { return (x >> n) | (x << (32 - n)); }

using Table = std::array<uint32_t, 256>;

// Encryption: SubBytes and one column of MixColumns, (2 1 1 3) times S[a].
constexpr Table makeT1()
{
    Table t{};
    for (int a = 0; a < 256; ++a) {
        uint8_t s = S[a];
        t[a] = word(gmul(s, 2), s, s, gmul(s, 3));
    }
    return t;
}

// Decryption: InvSubBytes and one column of InvMixColumns, (e 9 d b) times S5[a].
constexpr Table makeT5()
{
    Table t{};
    for (int a = 0; a < 256; ++a) {
        uint8_t s = S5[a];
        t[a] = word(gmul(s, 0x0e), gmul(s, 0x09), gmul(s, 0x0d), gmul(s, 0x0b));
    }
    return t;
}

// InvMixColumns alone, used to turn encryption round keys into those of the
// equivalent inverse cipher.
constexpr Table makeU1()
{
    Table t{};
    for (int a = 0; a < 256; ++a) {
        uint8_t s = static_cast<uint8_t>(a);
        t[a] = word(gmul(s, 0x0e), gmul(s, 0x09), gmul(s, 0x0d), gmul(s, 0x0b));
    }
    return t;
}

constexpr Table rotated(const Table& in, int n)
{
    Table t{};
    for (int a = 0; a < 256; ++a)
        t[a] = ror(in[a], n);
    return t;
}

constexpr Table T1 = makeT1();
constexpr Table T2 = rotated(T1, 8);
constexpr Table T3 = rotated(T1, 16);
constexpr Table T4 = rotated(T1, 24);
constexpr Table T5 = makeT5();
constexpr Table T6 = rotated(T5, 8);
constexpr Table T7 = rotated(T5, 16);
constexpr Table T8 = rotated(T5, 24);
constexpr Table U1 = makeU1();
constexpr Table U2 = rotated(U1, 8);
constexpr Table U3 = rotated(U1, 16);
constexpr Table U4 = rotated(U1, 24);

constexpr std::array<uint32_t, 10> makeRcon()
{
    std::array<uint32_t, 10> r{};
    uint8_t c = 1;
    for (int i = 0; i < 10; ++i) {
        r[i] = uint32_t(c) << 24;
        c = xtime(c);
    }
    return r;
}

constexpr std::array<uint32_t, 10> rcon = makeRcon();

static_assert(S[0x00] == 0x63 && S[0x53] == 0xed && S[0xff] == 0x16, "S-box");
static_assert(S5[0x63] == 0x00 && S5[0x16] == 0xff, "inverse S-box");
static_assert(rcon[8] == 0x1b000000u && rcon[9] == 0x36000000u, "round constants");

inline uint32_t load32(const unsigned char* p)
{
    return word(p[0], p[1], p[2], p[3]);
}

inline void store32(unsigned char* p, uint32_t v)
{
    p[0] = static_cast<unsigned char>(v >> 24);
    p[1] = static_cast<unsigned char>(v >> 16);
    p[2] = static_cast<unsigned char>(v >> 8);
    p[3] = static_cast<unsigned char>(v);
}

inline uint32_t subWord(uint32_t w)
{
    return word(S[w >> 24], S[(w >> 16) & 0xff], S[(w >> 8) & 0xff], S[w & 0xff]);
}

inline void xor16(unsigned char* dst, const unsigned char* a, const unsigned char* b)
{
    for (int i = 0; i < 16; ++i)
        dst[i] = static_cast<unsigned char>(a[i] ^ b[i]);
}

} // namespace

Rijndael::Rijndael()
    : m_state(Invalid), m_mode(ECB), m_direction(Encrypt), m_keyWords(4), m_rounds(10),
      m_hardware(aesHardwareUsable(cpuFeatures()))
{
    std::memset(m_initVector, 0, sizeof m_initVector);
    std::memset(m_expandedKey, 0, sizeof m_expandedKey);
    std::memset(m_roundKeys, 0, sizeof m_roundKeys);
}

Rijndael::~Rijndael()
{
    wipe();
}

void Rijndael::wipe()
{
    volatile unsigned char* p = reinterpret_cast<volatile unsigned char*>(m_expandedKey);
    for (size_t i = 0; i < sizeof m_expandedKey; ++i)
        p[i] = 0;
    volatile unsigned char* v = m_initVector;
    for (size_t i = 0; i < sizeof m_initVector; ++i)
        v[i] = 0;
    volatile unsigned char* r = m_roundKeys;
    for (size_t i = 0; i < sizeof m_roundKeys; ++i)
        r[i] = 0;
}

void Rijndael::setInitVector(const unsigned char* initVector)
{
    if (initVector)
        std::memcpy(m_initVector, initVector, 16);
    else
        std::memset(m_initVector, 0, 16);
}

bool Rijndael::setHardware(bool wanted)
{
    m_hardware = wanted && aesHardwareUsable(cpuFeatures());
    return m_hardware;
}

void Rijndael::makeRoundKeyBytes()
{
    for (int i = 0; i < 4 * (m_rounds + 1); ++i)
        store32(m_roundKeys + 4 * i, m_expandedKey[i]);
}

int Rijndael::init(Mode mode, Direction dir, const unsigned char* key, KeyLength keyLen,
                   const unsigned char* initVector)
{
    m_state = Invalid;
    if (mode != ECB && mode != CBC && mode != CFB1)
        return RIJNDAEL_UNSUPPORTED_MODE;
    if (dir != Encrypt && dir != Decrypt)
        return RIJNDAEL_UNSUPPORTED_DIRECTION;
    switch (keyLen) {
    case Key16Bytes: m_keyWords = 4; break;
    case Key24Bytes: m_keyWords = 6; break;
    case Key32Bytes: m_keyWords = 8; break;
    default: return RIJNDAEL_UNSUPPORTED_KEY_LENGTH;
    }
    if (key == nullptr)
        return RIJNDAEL_BAD_KEY;

    m_mode = mode;
    m_direction = dir;
    m_rounds = m_keyWords + 6;
    setInitVector(initVector);

    keySched(key);
    // CFB1 runs the forward cipher in both directions.
    if (dir == Decrypt && mode != CFB1)
        keyEncToDec();
    // The decryption schedule of the table form is that of the equivalent
    // inverse cipher, which is also what AESDEC takes.
    makeRoundKeyBytes();
    m_state = Valid;
    return RIJNDAEL_SUCCESS;
}

void Rijndael::keySched(const unsigned char* key)
{
    const int nk = m_keyWords;
    const int total = 4 * (m_rounds + 1);
    for (int i = 0; i < nk; ++i)
        m_expandedKey[i] = load32(key + 4 * i);
    for (int i = nk; i < total; ++i) {
        uint32_t temp = m_expandedKey[i - 1];
        if (i % nk == 0)
            temp = subWord((temp << 8) | (temp >> 24)) ^ rcon[i / nk - 1];
        else if (nk > 6 && i % nk == 4)
            temp = subWord(temp);
        m_expandedKey[i] = m_expandedKey[i - nk] ^ temp;
    }
}

void Rijndael::keyEncToDec()
{
    // Reverse the order of the round keys and pass the inner ones through
    // InvMixColumns, so that decryption runs with the same table structure.
    uint32_t* w = m_expandedKey;
    for (int i = 0, j = 4 * m_rounds; i < j; i += 4, j -= 4)
        for (int k = 0; k < 4; ++k) {
            uint32_t t = w[i + k];
            w[i + k] = w[j + k];
            w[j + k] = t;
        }
    for (int i = 4; i < 4 * m_rounds; ++i) {
        uint32_t x = w[i];
        w[i] = U1[x >> 24] ^ U2[(x >> 16) & 0xff] ^ U3[(x >> 8) & 0xff] ^ U4[x & 0xff];
    }
}

void Rijndael::encrypt(const unsigned char a[16], unsigned char b[16]) const
{
    const uint32_t* rk = m_expandedKey;
    uint32_t s0 = load32(a) ^ rk[0];
    uint32_t s1 = load32(a + 4) ^ rk[1];
    uint32_t s2 = load32(a + 8) ^ rk[2];
    uint32_t s3 = load32(a + 12) ^ rk[3];
    for (int r = 1; r < m_rounds; ++r) {
        rk += 4;
        uint32_t t0 = T1[s0 >> 24] ^ T2[(s1 >> 16) & 0xff] ^ T3[(s2 >> 8) & 0xff] ^ T4[s3 & 0xff] ^ rk[0];
        uint32_t t1 = T1[s1 >> 24] ^ T2[(s2 >> 16) & 0xff] ^ T3[(s3 >> 8) & 0xff] ^ T4[s0 & 0xff] ^ rk[1];
        uint32_t t2 = T1[s2 >> 24] ^ T2[(s3 >> 16) & 0xff] ^ T3[(s0 >> 8) & 0xff] ^ T4[s1 & 0xff] ^ rk[2];
        uint32_t t3 = T1[s3 >> 24] ^ T2[(s0 >> 16) & 0xff] ^ T3[(s1 >> 8) & 0xff] ^ T4[s2 & 0xff] ^ rk[3];
        s0 = t0; s1 = t1; s2 = t2; s3 = t3;
    }
    rk += 4;
    store32(b, word(S[s0 >> 24], S[(s1 >> 16) & 0xff], S[(s2 >> 8) & 0xff], S[s3 & 0xff]) ^ rk[0]);
    store32(b + 4, word(S[s1 >> 24], S[(s2 >> 16) & 0xff], S[(s3 >> 8) & 0xff], S[s0 & 0xff]) ^ rk[1]);
    store32(b + 8, word(S[s2 >> 24], S[(s3 >> 16) & 0xff], S[(s0 >> 8) & 0xff], S[s1 & 0xff]) ^ rk[2]);
    store32(b + 12, word(S[s3 >> 24], S[(s0 >> 16) & 0xff], S[(s1 >> 8) & 0xff], S[s2 & 0xff]) ^ rk[3]);
}

void Rijndael::decrypt(const unsigned char a[16], unsigned char b[16]) const
{
    const uint32_t* rk = m_expandedKey;
    uint32_t s0 = load32(a) ^ rk[0];
    uint32_t s1 = load32(a + 4) ^ rk[1];
    uint32_t s2 = load32(a + 8) ^ rk[2];
    uint32_t s3 = load32(a + 12) ^ rk[3];
    for (int r = 1; r < m_rounds; ++r) {
        rk += 4;
        uint32_t t0 = T5[s0 >> 24] ^ T6[(s3 >> 16) & 0xff] ^ T7[(s2 >> 8) & 0xff] ^ T8[s1 & 0xff] ^ rk[0];
        uint32_t t1 = T5[s1 >> 24] ^ T6[(s0 >> 16) & 0xff] ^ T7[(s3 >> 8) & 0xff] ^ T8[s2 & 0xff] ^ rk[1];
        uint32_t t2 = T5[s2 >> 24] ^ T6[(s1 >> 16) & 0xff] ^ T7[(s0 >> 8) & 0xff] ^ T8[s3 & 0xff] ^ rk[2];
        uint32_t t3 = T5[s3 >> 24] ^ T6[(s2 >> 16) & 0xff] ^ T7[(s1 >> 8) & 0xff] ^ T8[s0 & 0xff] ^ rk[3];
        s0 = t0; s1 = t1; s2 = t2; s3 = t3;
    }
    rk += 4;
    store32(b, word(S5[s0 >> 24], S5[(s3 >> 16) & 0xff], S5[(s2 >> 8) & 0xff], S5[s1 & 0xff]) ^ rk[0]);
    store32(b + 4, word(S5[s1 >> 24], S5[(s0 >> 16) & 0xff], S5[(s3 >> 8) & 0xff], S5[s2 & 0xff]) ^ rk[1]);
    store32(b + 8, word(S5[s2 >> 24], S5[(s1 >> 16) & 0xff], S5[(s0 >> 8) & 0xff], S5[s3 & 0xff]) ^ rk[2]);
    store32(b + 12, word(S5[s3 >> 24], S5[(s2 >> 16) & 0xff], S5[(s1 >> 8) & 0xff], S5[s0 & 0xff]) ^ rk[3]);
}

void Rijndael::processBlocks(const unsigned char* input, int blocks, unsigned char* output)
{
    if (blocks <= 0)
        return;
    if (m_hardware && m_mode != CFB1) {
        const size_t n = static_cast<size_t>(blocks);
        if (m_mode == ECB) {
            if (m_direction == Encrypt)
                aes_hw::encryptEcb(m_roundKeys, m_rounds, input, output, n);
            else
                aes_hw::decryptEcb(m_roundKeys, m_rounds, input, output, n);
        } else if (m_direction == Encrypt) {
            aes_hw::encryptCbc(m_roundKeys, m_rounds, m_initVector, input, output, n);
        } else {
            aes_hw::decryptCbc(m_roundKeys, m_rounds, m_initVector, input, output, n);
        }
        return;
    }
    unsigned char in[16];
    unsigned char tmp[16];
    for (int n = 0; n < blocks; ++n, input += 16, output += 16) {
        // Copy first: input and output may be the same buffer.
        std::memcpy(in, input, 16);
        switch (m_mode) {
        case ECB:
            if (m_direction == Encrypt)
                encrypt(in, output);
            else
                decrypt(in, output);
            break;
        case CBC:
            if (m_direction == Encrypt) {
                xor16(tmp, in, m_initVector);
                encrypt(tmp, m_initVector);
                std::memcpy(output, m_initVector, 16);
            } else {
                decrypt(in, tmp);
                xor16(output, tmp, m_initVector);
                std::memcpy(m_initVector, in, 16);
            }
            break;
        case CFB1:
            // One bit at a time, most significant bit of each byte first; the
            // shift register takes in the ciphertext bit.
            for (int bit = 0; bit < 128; ++bit) {
                if (m_hardware)
                    aes_hw::encryptEcb(m_roundKeys, m_rounds, m_initVector, tmp, 1);
                else
                    encrypt(m_initVector, tmp);
                const int byte = bit >> 3;
                const int shift = 7 - (bit & 7);
                const unsigned inBit = (in[byte] >> shift) & 1u;
                const unsigned outBit = inBit ^ (tmp[0] >> 7);
                const unsigned feed = (m_direction == Encrypt) ? outBit : inBit;
                for (int i = 0; i < 15; ++i)
                    m_initVector[i] = static_cast<unsigned char>((m_initVector[i] << 1) | (m_initVector[i + 1] >> 7));
                m_initVector[15] = static_cast<unsigned char>((m_initVector[15] << 1) | feed);
                if (shift == 7)
                    output[byte] = 0;
                output[byte] = static_cast<unsigned char>(output[byte] | (outBit << shift));
            }
            break;
        }
    }
    std::memset(in, 0, sizeof in);
    std::memset(tmp, 0, sizeof tmp);
}

int Rijndael::checkUse(Direction wanted) const
{
    if (m_state != Valid)
        return RIJNDAEL_NOT_INITIALIZED;
    if (m_direction != wanted)
        return RIJNDAEL_BAD_DIRECTION;
    return RIJNDAEL_SUCCESS;
}

int Rijndael::blockEncrypt(const unsigned char* input, int inputLen, unsigned char* outBuffer)
{
    if (int rc = checkUse(Encrypt))
        return rc;
    if (input == nullptr || outBuffer == nullptr || inputLen <= 0)
        return 0;
    const int blocks = inputLen / 128;
    processBlocks(input, blocks, outBuffer);
    return 128 * blocks;
}

int Rijndael::blockDecrypt(const unsigned char* input, int inputLen, unsigned char* outBuffer)
{
    if (int rc = checkUse(Decrypt))
        return rc;
    if (input == nullptr || outBuffer == nullptr || inputLen <= 0)
        return 0;
    const int blocks = inputLen / 128;
    processBlocks(input, blocks, outBuffer);
    return 128 * blocks;
}

int Rijndael::padEncrypt(const unsigned char* input, int inputOctets, unsigned char* outBuffer)
{
    if (int rc = checkUse(Encrypt))
        return rc;
    if (outBuffer == nullptr || inputOctets < 0 || (input == nullptr && inputOctets > 0))
        return 0;
    // The largest input whose padded length still fits an int.
    if (inputOctets > 0x7fffffef)
        return 0;
    const int full = inputOctets / 16;
    const int rest = inputOctets - 16 * full;
    processBlocks(input, full, outBuffer);
    unsigned char last[16];
    const unsigned char pad = static_cast<unsigned char>(16 - rest);
    if (rest)
        std::memcpy(last, input + 16 * full, static_cast<size_t>(rest));
    std::memset(last + rest, pad, static_cast<size_t>(16 - rest));
    processBlocks(last, 1, outBuffer + 16 * full);
    std::memset(last, 0, sizeof last);
    return 16 * (full + 1);
}

int Rijndael::padDecrypt(const unsigned char* input, int inputOctets, unsigned char* outBuffer)
{
    if (int rc = checkUse(Decrypt))
        return rc;
    if (input == nullptr || outBuffer == nullptr || inputOctets < 1)
        return 0;
    if (inputOctets % 16 != 0)
        return RIJNDAEL_CORRUPTED_DATA;
    const int full = inputOctets / 16 - 1;
    processBlocks(input, full, outBuffer);
    unsigned char last[16];
    processBlocks(input + 16 * full, 1, last);
    const unsigned pad = last[15];
    bool good = pad >= 1 && pad <= 16;
    for (unsigned i = 16 - (good ? pad : 0); i < 16; ++i)
        good = good && last[i] == pad;
    int result = RIJNDAEL_CORRUPTED_DATA;
    if (good) {
        std::memcpy(outBuffer + 16 * full, last, 16 - pad);
        result = 16 * full + static_cast<int>(16 - pad);
    }
    std::memset(last, 0, sizeof last);
    return result;
}

int Rijndael::pdfEncrypt(const unsigned char* input, int inputOctets, unsigned char* outBuffer)
{
    if (m_state == Valid && m_mode != CBC)
        return RIJNDAEL_UNSUPPORTED_MODE;
    if (int rc = checkUse(Encrypt))
        return rc;
    if (input == nullptr || outBuffer == nullptr || inputOctets <= 0)
        return 0;
    const int blocks = inputOctets / 16;
    processBlocks(input, blocks, outBuffer);
    return 16 * blocks;
}

int Rijndael::pdfEncryptEnd(const unsigned char* input, int inputOctets, unsigned char* outBuffer)
{
    if (m_state == Valid && m_mode != CBC)
        return RIJNDAEL_UNSUPPORTED_MODE;
    return padEncrypt(input, inputOctets, outBuffer);
}

int Rijndael::pdfDecrypt(const unsigned char* input, int inputOctets, unsigned char* outBuffer)
{
    if (m_state == Valid && m_mode != CBC)
        return RIJNDAEL_UNSUPPORTED_MODE;
    if (int rc = checkUse(Decrypt))
        return rc;
    if (input == nullptr || outBuffer == nullptr || inputOctets <= 0)
        return 0;
    const int blocks = inputOctets / 16;
    processBlocks(input, blocks, outBuffer);
    return 16 * blocks;
}

int Rijndael::pdfDecryptEnd(const unsigned char* input, int inputOctets, unsigned char* outBuffer)
{
    if (m_state == Valid && m_mode != CBC)
        return RIJNDAEL_UNSUPPORTED_MODE;
    return padDecrypt(input, inputOctets, outBuffer);
}

} // namespace pcrypt
