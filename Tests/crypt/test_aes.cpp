// AES (Rijndael) against FIPS-197 and SP 800-38A vectors and OpenSSL.
#include <gtest/gtest.h>

#include "crypt_test_util.h"

#include "PDFKilnPage/crypt/cpufeatures.h"
#include "PDFKilnPage/crypt/rijndael.h"

using namespace crypt_test;
using pcrypt::Rijndael;

namespace {

Rijndael::KeyLength keyLength(size_t bytes)
{
    return bytes == 16 ? Rijndael::Key16Bytes : bytes == 24 ? Rijndael::Key24Bytes : Rijndael::Key32Bytes;
}

const EVP_CIPHER* evp(Rijndael::Mode mode, size_t keyBytes)
{
    switch (mode) {
    case Rijndael::ECB:
        return keyBytes == 16 ? EVP_aes_128_ecb() : keyBytes == 24 ? EVP_aes_192_ecb() : EVP_aes_256_ecb();
    case Rijndael::CBC:
        return keyBytes == 16 ? EVP_aes_128_cbc() : keyBytes == 24 ? EVP_aes_192_cbc() : EVP_aes_256_cbc();
    default:
        return keyBytes == 16 ? EVP_aes_128_cfb1() : keyBytes == 24 ? EVP_aes_192_cfb1() : EVP_aes_256_cfb1();
    }
}

// Runs our cipher over `data`: padded form or whole blocks.
std::string ours(Rijndael::Mode mode, Rijndael::Direction dir, const std::string& key, const std::string& iv,
                 const std::string& data, bool padded, int* result = nullptr)
{
    Rijndael aes;
    EXPECT_EQ(aes.init(mode, dir, ub(key), keyLength(key.size()), iv.empty() ? nullptr : ub(iv)), 0);
    std::string out(data.size() + 16, '\0');
    int r;
    const int n = static_cast<int>(data.size());
    if (padded)
        r = dir == Rijndael::Encrypt ? aes.padEncrypt(ub(data), n, ub(out)) : aes.padDecrypt(ub(data), n, ub(out));
    else
        r = dir == Rijndael::Encrypt ? aes.blockEncrypt(ub(data), n * 8, ub(out)) / 8
                                     : aes.blockDecrypt(ub(data), n * 8, ub(out)) / 8;
    if (result)
        *result = r;
    out.resize(r > 0 ? static_cast<size_t>(r) : 0);
    return out;
}

} // namespace

TEST(AES, Fips197Vectors)
{
    const std::string plain = fromHex("00112233445566778899aabbccddeeff");
    const std::pair<const char*, const char*> cases[] = {
        {"000102030405060708090a0b0c0d0e0f", "69c4e0d86a7b0430d8cdb78070b4c55a"},
        {"000102030405060708090a0b0c0d0e0f1011121314151617", "dda97ca4864cdfe06eaf70a0ec0d7191"},
        {"000102030405060708090a0b0c0d0e0f101112131415161718191a1b1c1d1e1f", "8ea2b7ca516745bfeafc49904b496089"},
    };
    for (const auto& c : cases) {
        const std::string key = fromHex(c.first);
        EXPECT_EQ(toHex(ours(Rijndael::ECB, Rijndael::Encrypt, key, "", plain, false)), c.second);
        EXPECT_EQ(ours(Rijndael::ECB, Rijndael::Decrypt, key, "", fromHex(c.second), false), plain);
    }
    // Appendix B.
    EXPECT_EQ(toHex(ours(Rijndael::ECB, Rijndael::Encrypt, fromHex("2b7e151628aed2a6abf7158809cf4f3c"), "",
                         fromHex("3243f6a8885a308d313198a2e0370734"), false)),
              "3925841d02dc09fbdc118597196a0b32");
}

TEST(AES, Sp80038aModeVectors)
{
    const std::string key = fromHex("2b7e151628aed2a6abf7158809cf4f3c");
    const std::string iv = fromHex("000102030405060708090a0b0c0d0e0f");
    const std::string plain = fromHex("6bc1bee22e409f96e93d7e117393172aae2d8a571e03ac9c9eb76fac45af8e51");
    EXPECT_EQ(toHex(ours(Rijndael::CBC, Rijndael::Encrypt, key, iv, plain, false)),
              "7649abac8119b246cee98e9b12e9197d5086cb9b507219ee95db113a917678b2");
    // CFB1: the published vector covers the first 16 bits; CFB output is a
    // prefix-stable function of the input.
    const std::string cfb = ours(Rijndael::CFB1, Rijndael::Encrypt, key, iv, plain.substr(0, 16), false);
    EXPECT_EQ(toHex(cfb.substr(0, 2)), "68b3");
    EXPECT_EQ(ours(Rijndael::CFB1, Rijndael::Decrypt, key, iv, cfb, false), plain.substr(0, 16));
}

TEST(AES, PaddedEcbAndCbcMatchOpenSSL)
{
    Rng rng(0xae5);
    for (size_t keyBytes : {16u, 24u, 32u}) {
        for (int i = 0; i < 10000; ++i) {
            const std::string key = rng.bytes(keyBytes);
            const std::string iv = rng.bytes(16);
            // Lengths from 0, mostly not multiples of 16.
            const std::string data = rng.bytes(static_cast<size_t>(rng.uniform(0, 120)));
            const Rijndael::Mode mode = (i & 1) ? Rijndael::CBC : Rijndael::ECB;
            const std::string modeIv = mode == Rijndael::CBC ? iv : std::string();
            const std::string expect = evpCipher(evp(mode, keyBytes), key, modeIv, data, true, true);
            const std::string enc = ours(mode, Rijndael::Encrypt, key, modeIv, data, true);
            ASSERT_EQ(toHex(enc), toHex(expect)) << "key " << keyBytes << " mode " << mode << " len " << data.size();
            ASSERT_EQ(ours(mode, Rijndael::Decrypt, key, modeIv, enc, true), data);
        }
    }
}

TEST(AES, WholeBlockModesMatchOpenSSL)
{
    Rng rng(0xcfb1);
    for (size_t keyBytes : {16u, 24u, 32u}) {
        for (int i = 0; i < 10000; ++i) {
            const std::string key = rng.bytes(keyBytes);
            const std::string iv = rng.bytes(16);
            const Rijndael::Mode mode = static_cast<Rijndael::Mode>(i % 3);
            // CFB1 costs one block cipher call per bit: keep its inputs short.
            const int maxBlocks = mode == Rijndael::CFB1 ? 1 : 4;
            const std::string data = rng.bytes(16 * static_cast<size_t>(rng.uniform(0, maxBlocks)));
            const std::string modeIv = mode == Rijndael::ECB ? std::string() : iv;
            const std::string expect = evpCipher(evp(mode, keyBytes), key, modeIv, data, true, false);
            ASSERT_EQ(toHex(ours(mode, Rijndael::Encrypt, key, modeIv, data, false)), toHex(expect))
                << "key " << keyBytes << " mode " << mode << " len " << data.size();
            ASSERT_EQ(toHex(ours(mode, Rijndael::Decrypt, key, modeIv, expect, false)), toHex(data));
        }
    }
}

TEST(AES, BitLengthsCountWholeBlocksOnly)
{
    const std::string key(16, 'k');
    const std::string data(40, 'd');
    std::string out(48, '\0');
    Rijndael aes;
    ASSERT_EQ(aes.init(Rijndael::ECB, Rijndael::Encrypt, ub(key), Rijndael::Key16Bytes), 0);
    EXPECT_EQ(aes.blockEncrypt(ub(data), 40 * 8, ub(out)), 256);
    EXPECT_EQ(aes.blockEncrypt(ub(data), 127, ub(out)), 0);
    EXPECT_EQ(aes.blockEncrypt(ub(data), 0, ub(out)), 0);
    EXPECT_EQ(aes.blockEncrypt(nullptr, 128, ub(out)), 0);
}

TEST(AES, ChainingCarriesAcrossCallsAndInPlaceWorks)
{
    Rng rng(77);
    for (Rijndael::Mode mode : {Rijndael::CBC, Rijndael::CFB1}) {
        const std::string key = rng.bytes(32);
        const std::string iv = rng.bytes(16);
        const std::string data = rng.bytes(64);
        const std::string whole = ours(mode, Rijndael::Encrypt, key, iv, data, false);

        Rijndael aes;
        ASSERT_EQ(aes.init(mode, Rijndael::Encrypt, ub(key), Rijndael::Key32Bytes, ub(iv)), 0);
        std::string split = data; // in place, in two calls
        aes.blockEncrypt(ub(split), 16 * 8, ub(split));
        aes.blockEncrypt(ub(split) + 16, 48 * 8, ub(split) + 16);
        EXPECT_EQ(split, whole) << "mode " << mode;

        Rijndael dec;
        ASSERT_EQ(dec.init(mode, Rijndael::Decrypt, ub(key), Rijndael::Key32Bytes, ub(iv)), 0);
        dec.blockDecrypt(ub(split), 32 * 8, ub(split));
        dec.blockDecrypt(ub(split) + 32, 32 * 8, ub(split) + 32);
        EXPECT_EQ(split, data) << "mode " << mode;
    }
    // A null vector is a zero vector.
    const std::string key(16, '\x01');
    const std::string data(32, '\x02');
    EXPECT_EQ(ours(Rijndael::CBC, Rijndael::Encrypt, key, "", data, false),
              ours(Rijndael::CBC, Rijndael::Encrypt, key, std::string(16, '\0'), data, false));
}

TEST(AES, ResultCodes)
{
    const unsigned char key[32] = {1, 2, 3};
    unsigned char buf[64] = {0};
    unsigned char out[64];
    Rijndael aes;
    // Before init every processing call refuses.
    EXPECT_EQ(aes.padEncrypt(buf, 16, out), Rijndael::RIJNDAEL_NOT_INITIALIZED);
    EXPECT_EQ(aes.padDecrypt(buf, 16, out), -5);
    EXPECT_EQ(aes.blockEncrypt(buf, 128, out), -5);
    EXPECT_EQ(aes.blockDecrypt(buf, 128, out), -5);

    EXPECT_EQ(aes.init(static_cast<Rijndael::Mode>(3), Rijndael::Encrypt, key, Rijndael::Key16Bytes), -1);
    EXPECT_EQ(aes.init(Rijndael::CBC, static_cast<Rijndael::Direction>(2), key, Rijndael::Key16Bytes), -2);
    EXPECT_EQ(aes.init(Rijndael::CBC, Rijndael::Encrypt, key, static_cast<Rijndael::KeyLength>(3)), -3);
    EXPECT_EQ(aes.init(Rijndael::CBC, Rijndael::Encrypt, nullptr, Rijndael::Key16Bytes), -4);
    EXPECT_EQ(aes.padEncrypt(buf, 16, out), -5);

    ASSERT_EQ(aes.init(Rijndael::CBC, Rijndael::Encrypt, key, Rijndael::Key16Bytes), 0);
    EXPECT_EQ(aes.padDecrypt(buf, 16, out), Rijndael::RIJNDAEL_BAD_DIRECTION);
    EXPECT_EQ(aes.blockDecrypt(buf, 128, out), -6);
    EXPECT_EQ(aes.padEncrypt(buf, 0, out), 16); // an empty input is one block of padding
    EXPECT_EQ(aes.padEncrypt(buf, 17, out), 32);
    EXPECT_EQ(aes.padEncrypt(nullptr, 5, out), 0);
    EXPECT_EQ(aes.padEncrypt(buf, -1, out), 0);
    // A failed init leaves the object unset.
    EXPECT_EQ(aes.init(Rijndael::CBC, Rijndael::Encrypt, nullptr, Rijndael::Key16Bytes), -4);
    EXPECT_EQ(aes.padEncrypt(buf, 16, out), -5);

    ASSERT_EQ(aes.init(Rijndael::CBC, Rijndael::Decrypt, key, Rijndael::Key16Bytes), 0);
    EXPECT_EQ(aes.padEncrypt(buf, 16, out), -6);
    EXPECT_EQ(aes.padDecrypt(nullptr, 16, out), 0);
    EXPECT_EQ(aes.padDecrypt(buf, 0, out), 0);
    EXPECT_EQ(aes.padDecrypt(buf, -16, out), 0);
    EXPECT_EQ(aes.padDecrypt(buf, 15, out), Rijndael::RIJNDAEL_CORRUPTED_DATA);
    EXPECT_EQ(aes.padDecrypt(buf, 33, out), -7);
}

TEST(AES, InvalidPaddingIsRefused)
{
    const std::string key(16, 'K');
    // Encrypt chosen last blocks without padding, then unpad them.
    auto lastBlock = [&](const std::string& block) {
        const std::string enc = ours(Rijndael::ECB, Rijndael::Encrypt, key, "", block, false);
        int r = 0;
        const std::string dec = ours(Rijndael::ECB, Rijndael::Decrypt, key, "", enc, true, &r);
        return std::make_pair(r, dec);
    };
    std::string good(16, 'x');
    good[15] = 1;
    EXPECT_EQ(lastBlock(good).first, 15);
    std::string full(16, '\x10');
    EXPECT_EQ(lastBlock(full).first, 0); // a whole block of padding
    std::string zero(16, 'x');
    zero[15] = 0;
    EXPECT_EQ(lastBlock(zero).first, -7);
    std::string tooBig(16, 'x');
    tooBig[15] = 17;
    EXPECT_EQ(lastBlock(tooBig).first, -7);
    std::string mixed(16, '\x03');
    mixed[13] = 4;
    EXPECT_EQ(lastBlock(mixed).first, -7);
}

TEST(AES, StreamingCbcMatchesOneShot)
{
    Rng rng(4242);
    for (int i = 0; i < 200; ++i) {
        const std::string key = rng.bytes(16);
        const std::string iv = rng.bytes(16);
        const std::string data = rng.bytes(static_cast<size_t>(rng.uniform(0, 100)));
        const std::string expect = evpCipher(EVP_aes_128_cbc(), key, iv, data, true, true);

        Rijndael enc;
        ASSERT_EQ(enc.init(Rijndael::CBC, Rijndael::Encrypt, ub(key), Rijndael::Key16Bytes, ub(iv)), 0);
        std::string out(data.size() + 16, '\0');
        const int head = enc.pdfEncrypt(ub(data), static_cast<int>(data.size()), ub(out));
        ASSERT_EQ(head % 16, 0);
        const int tail = enc.pdfEncryptEnd(ub(data) + head, static_cast<int>(data.size()) - head, ub(out) + head);
        out.resize(static_cast<size_t>(head + tail));
        ASSERT_EQ(out, expect);

        Rijndael dec;
        ASSERT_EQ(dec.init(Rijndael::CBC, Rijndael::Decrypt, ub(key), Rijndael::Key16Bytes, ub(iv)), 0);
        std::string back(expect.size(), '\0');
        const int keep = static_cast<int>(expect.size()) - 16;
        const int h = dec.pdfDecrypt(ub(expect), keep, ub(back));
        const int t = dec.pdfDecryptEnd(ub(expect) + h, static_cast<int>(expect.size()) - h, ub(back) + h);
        ASSERT_GE(t, 0);
        back.resize(static_cast<size_t>(h + t));
        ASSERT_EQ(back, data);
    }
    Rijndael ecb;
    const std::string key(16, 'e');
    unsigned char buf[32] = {0};
    ASSERT_EQ(ecb.init(Rijndael::ECB, Rijndael::Encrypt, ub(key), Rijndael::Key16Bytes), 0);
    EXPECT_EQ(ecb.pdfEncrypt(buf, 16, buf), Rijndael::RIJNDAEL_UNSUPPORTED_MODE);
}

TEST(AES, HardwarePathFollowsTheProcessor)
{
    using pcrypt::CpuFeatures;
    // AES-NI alone decides for AES; the SHA form also needs the SSSE3 shuffle
    // and the SSE4.1 blend.
    const struct {
        CpuFeatures f;
        bool aes, sha;
    } cases[] = {
        {CpuFeatures{}, false, false},
        {CpuFeatures{true, true, true, false}, true, false},
        {CpuFeatures{false, false, true, true}, true, false},
        {CpuFeatures{true, false, false, true}, false, false},
        {CpuFeatures{true, true, false, true}, false, true},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(pcrypt::aesHardwareUsable(c.f), c.aes);
        EXPECT_EQ(pcrypt::shaHardwareUsable(c.f), c.sha);
    }
    const bool usable = pcrypt::aesHardwareUsable(pcrypt::cpuFeatures());
    Rijndael aes;
    EXPECT_EQ(aes.usesHardware(), usable) << "the fast form is the default where it exists";
    EXPECT_FALSE(aes.setHardware(false));
    EXPECT_EQ(aes.setHardware(true), usable);
}

TEST(AES, HardwareAndTableFormsAgree)
{
    if (!pcrypt::aesHardwareUsable(pcrypt::cpuFeatures()))
        GTEST_SKIP() << "no AES-NI on this processor";
    Rng rng(0xae51);
    // Lengths around the eight blocks the CBC decryption keeps in flight.
    for (size_t keyBytes : {16u, 24u, 32u}) {
        for (int i = 0; i < 300; ++i) {
            const std::string key = rng.bytes(keyBytes);
            const std::string iv = rng.bytes(16);
            const std::string data = rng.bytes(16 * static_cast<size_t>(i % 40 == 0 ? 300 : rng.uniform(0, 25)));
            const int bits = static_cast<int>(data.size() * 8);
            for (Rijndael::Mode mode : {Rijndael::ECB, Rijndael::CBC}) {
                for (Rijndael::Direction dir : {Rijndael::Encrypt, Rijndael::Decrypt}) {
                    std::string out[2];
                    for (int hw = 0; hw < 2; ++hw) {
                        Rijndael aes;
                        aes.setHardware(hw == 1);
                        ASSERT_EQ(aes.init(mode, dir, ub(key), keyLength(keyBytes), ub(iv)), 0);
                        // Two calls, the second in place, so that the chaining
                        // carried between calls is compared too.
                        out[hw] = data;
                        const int head = 16 * (static_cast<int>(data.size()) / 32);
                        if (dir == Rijndael::Encrypt) {
                            aes.blockEncrypt(ub(data), head * 8, ub(out[hw]));
                            aes.blockEncrypt(ub(out[hw]) + head, bits - head * 8, ub(out[hw]) + head);
                        } else {
                            aes.blockDecrypt(ub(data), head * 8, ub(out[hw]));
                            aes.blockDecrypt(ub(out[hw]) + head, bits - head * 8, ub(out[hw]) + head);
                        }
                    }
                    ASSERT_EQ(toHex(out[1]), toHex(out[0]))
                        << "key " << keyBytes << " mode " << mode << " dir " << dir << " len " << data.size();
                }
            }
        }
    }
    // CBC decryption written one block below its input, as the per-object
    // cipher drops the vector in place.
    const std::string key = rng.bytes(16);
    const std::string data = rng.bytes(16 * 37);
    std::string shifted[2];
    for (int hw = 0; hw < 2; ++hw) {
        Rijndael aes;
        aes.setHardware(hw == 1);
        ASSERT_EQ(aes.init(Rijndael::CBC, Rijndael::Decrypt, ub(key), Rijndael::Key16Bytes, ub(data)), 0);
        shifted[hw] = data;
        aes.blockDecrypt(ub(shifted[hw]) + 16, static_cast<int>(data.size() - 16) * 8, ub(shifted[hw]));
    }
    EXPECT_EQ(shifted[1], shifted[0]);
    EXPECT_EQ(shifted[0].substr(0, data.size() - 16),
              evpCipher(EVP_aes_128_cbc(), key, data.substr(0, 16), data.substr(16), false, false));
}
