// RC4, MD5, SHA-2 and AES against published vectors (RFC 6229, RFC 1321, FIPS 180-4, FIPS-197, SP 800-38A) and OpenSSL.
#include <gtest/gtest.h>

#include "crypt_test_util.h"

#include <openssl/md5.h>

#include "PDFKilnPage/crypt/cpufeatures.h"
#include "PDFKilnPage/crypt/md5.h"
#include "PDFKilnPage/crypt/rc4.h"
#include "PDFKilnPage/crypt/rijndael.h"
#include "PDFKilnPage/crypt/sha256.h"
#include "PDFKilnPage/crypt/sha512.h"

using namespace crypt_test;
using pcrypt::PDFEncryptionRC4;
using pcrypt::Rijndael;

namespace {

std::string ourRc4(const std::string& key, std::string data) {
    PDFEncryptionRC4().RC4(ub(data), static_cast<int>(data.size()), const_cast<unsigned char*>(ub(key)),
                           static_cast<int>(key.size()));
    return data;
}

enum Digest { Md5, Sha256, Sha384, Sha512 };
const EVP_MD* evpMd(Digest d) {
    return d == Md5 ? EVP_md5() : d == Sha256 ? EVP_sha256() : d == Sha384 ? EVP_sha384() : EVP_sha512();
}

// Our digest of `data` in pieces of the given sizes (cycled); SHA-256 is one-shot, read as the handler does.
std::string digest(Digest d, const std::string& data, const std::vector<size_t>& pieces = {}) {
    size_t pos = 0, k = 0;
    auto feed = [&](auto update, auto* ctx) {
        while (pos < data.size()) {
            const size_t n = pieces.empty() ? data.size() : std::min(pieces[k++ % pieces.size()], data.size() - pos);
            update(ctx, ub(data) + pos, n);
            pos += n;
        }
    };
    uint8_t out[64];
    if (d == Md5 && pieces.empty()) {
        std::string s;
        pcrypt::PDFEncryptionMD5().MD5(data, s, 16);
        return s;
    }
    if (d == Md5) {
        pcrypt::PDFEncryptionMD5 md;
        pcrypt::MD5_CTX ctx;
        md.MD5Init(&ctx);
        feed([&md](pcrypt::MD5_CTX* c, const unsigned char* p, size_t n) { md.MD5Update(c, p, n); }, &ctx);
        md.MD5Final(out, &ctx);
        return std::string(reinterpret_cast<char*>(out), 16);
    }
    if (d == Sha256) {
        pcrypt::Sha256Calc calc;
        pcrypt::Sha256Calc_init(&calc);
        EXPECT_EQ(pcrypt::Sha256Calc_calculate(&calc, data.data(), data.size()), 1);
        std::string s(reinterpret_cast<const char*>(&calc), 32);
        pcrypt::Sha256Calc_uninit(&calc);
        return s;
    }
    if (d == Sha384) {
        pcrypt::SHA384Context ctx;
        pcrypt::SHA384Init(&ctx);
        feed(pcrypt::SHA384Update, &ctx);
        pcrypt::SHA384Final(&ctx, out);
        return std::string(reinterpret_cast<char*>(out), 48);
    }
    pcrypt::SHA512Context ctx;
    pcrypt::SHA512Init(&ctx);
    feed(pcrypt::SHA512Update, &ctx);
    pcrypt::SHA512Final(&ctx, out);
    return std::string(reinterpret_cast<char*>(out), 64);
}

Rijndael::KeyLength keyLength(size_t bytes) {
    return bytes == 16 ? Rijndael::Key16Bytes : bytes == 24 ? Rijndael::Key24Bytes : Rijndael::Key32Bytes;
}

const EVP_CIPHER* evpAes(Rijndael::Mode mode, size_t keyBytes) {
    const int k = keyBytes == 16 ? 0 : keyBytes == 24 ? 1 : 2;
    const EVP_CIPHER* (*const table[3][3])() = {{EVP_aes_128_ecb, EVP_aes_192_ecb, EVP_aes_256_ecb},
                                                {EVP_aes_128_cbc, EVP_aes_192_cbc, EVP_aes_256_cbc},
                                                {EVP_aes_128_cfb1, EVP_aes_192_cfb1, EVP_aes_256_cfb1}};
    return table[mode == Rijndael::ECB ? 0 : mode == Rijndael::CBC ? 1 : 2][k]();
}

// Runs our cipher over `data`: padded form or whole blocks.
std::string ours(Rijndael::Mode mode, Rijndael::Direction dir, const std::string& key, const std::string& iv,
                 const std::string& data, bool padded, int* result = nullptr) {
    Rijndael aes;
    EXPECT_EQ(aes.init(mode, dir, ub(key), keyLength(key.size()), iv.empty() ? nullptr : ub(iv)), 0);
    std::string out(data.size() + 16, '\0');
    const int n = static_cast<int>(data.size());
    const bool enc = dir == Rijndael::Encrypt;
    const int r =
        padded ? (enc ? aes.padEncrypt(ub(data), n, ub(out)) : aes.padDecrypt(ub(data), n, ub(out)))
               : (enc ? aes.blockEncrypt(ub(data), n * 8, ub(out)) : aes.blockDecrypt(ub(data), n * 8, ub(out))) / 8;
    if (result) *result = r;
    out.resize(r > 0 ? static_cast<size_t>(r) : 0);
    return out;
}

}  // namespace

TEST(RC4, PublishedVectors) {
    // RFC 6229 keystream at offsets 0..256 (plain text of zeros), then the classic text vectors.
    const struct {
        std::string key, plain;
        size_t offset;
        const char* hex;
    } cases[] = {
        {fromHex("0102030405"), "", 0, "b2396305f03dc027ccc3524a0a1118a8"},
        {fromHex("0102030405"), "", 16, "6982944f18fc82d589c403a47a0d0919"},
        {fromHex("0102030405"), "", 240, "28cb1132c96ce286421dcaadb8b69eae"},
        {fromHex("0102030405"), "", 256, "1cfcf62b03eddb641d77dfcf7f8d8c93"},
        {fromHex("0102030405060708090a0b0c0d0e0f10"), "", 0, "9ac7cc9a609d1ef7b2932899cde41b97"},
        {fromHex("0102030405060708090a0b0c0d0e0f10"), "", 16, "5248c4959014126a6e8a84f11d1a9e1c"},
        {"Key", "Plaintext", 0, "bbf316e8d940af0ad3"}, {"Wiki", "pedia", 0, "1021bf0420"},
        {"Secret", "Attack at dawn", 0, "45a01f645fc35b383552544b9bf5"},
    };
    for (const auto& c : cases) {
        const std::string plain = c.plain.empty() ? std::string(c.offset + 16, '\0') : c.plain;
        EXPECT_EQ(toHex(ourRc4(c.key, plain).substr(c.offset)), c.hex) << toHex(c.key) << " @" << c.offset;
    }
}

TEST(RC4, MatchesOpenSSLForEveryForm) {
    Rng rng(0x5243345f31);
    for (int ks : {5, 16, 0 /* random 1..256 */}) {
        for (int i = 0; i < 10000; ++i) {
            const std::string key = rng.bytes(static_cast<size_t>(ks ? ks : rng.uniform(1, 256)));
            const std::string data = rng.bytes(static_cast<size_t>(rng.uniform(0, 300)));
            const std::string expect = sslRc4(key, data);
            ASSERT_EQ(ourRc4(key, data), expect) << "key size " << key.size() << " len " << data.size();
            if (i % 10) continue;
            // Stored key, string form, and the two halves split at random.
            PDFEncryptionRC4 stored(const_cast<unsigned char*>(ub(key)), static_cast<int>(key.size()));
            std::string a = data, b = data, c = data;
            stored.newRC4(ub(a), static_cast<int>(a.size()));
            ASSERT_EQ(a, expect);
            stored.RC4(b, static_cast<int>(b.size()), key);
            ASSERT_EQ(b, expect);
            pcrypt::RC4_KEY st;
            PDFEncryptionRC4::PrepareKey(ub(key), static_cast<int>(key.size()), &st);
            const int cut = rng.uniform(0, static_cast<int>(c.size()));
            PDFEncryptionRC4::RC4Imp(ub(c), cut, &st);
            PDFEncryptionRC4::RC4Imp(ub(c) + cut, static_cast<int>(c.size()) - cut, &st);
            ASSERT_EQ(c, expect);
        }
    }
}

TEST(RC4, StringFormSizesAndDegenerateArguments) {
    // The string form cuts or extends the data to the size given.
    PDFEncryptionRC4 rc4;
    const std::string key = "k3y";
    const std::tuple<std::string, int, std::string> sized[] = {
        {"abcdefgh", 3, sslRc4(key, "abc")}, {"ab", 6, sslRc4(key, std::string("ab\0\0\0\0", 6))}, {"xyz", -4, ""}};
    for (auto [s, size, expect] : sized) {
        rc4.RC4(s, size, key);
        EXPECT_EQ(s, expect) << size;
    }

    // Degenerate arguments leave the data alone.
    std::string data = "unchanged";
    rc4.RC4(ub(data), static_cast<int>(data.size()), nullptr, 5);
    unsigned char k[1] = {7};
    rc4.RC4(ub(data), static_cast<int>(data.size()), k, 0);
    rc4.RC4(ub(data), -1, k, 1);
    rc4.RC4(nullptr, 10, k, 1);
    rc4.newRC4(ub(data), static_cast<int>(data.size()));  // no stored key
    rc4.RC4(data, static_cast<int>(data.size()), std::string());
    EXPECT_EQ(data, "unchanged");
}

TEST(Digests, PublishedVectors) {
    const std::string two256 = "abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq";
    const std::string two512 =
        "abcdefghbcdefghicdefghijdefghijkefghijklfghijklmghijklmnhijklmno"
        "ijklmnopjklmnopqklmnopqrlmnopqrsmnopqrstnopqrstu";
    const std::string million(1000000, 'a');
    const struct {
        Digest d;
        std::string in;
        std::vector<size_t> pieces;
        const char* hex;
    } cases[] = {
        {Md5, "", {}, "d41d8cd98f00b204e9800998ecf8427e"}, {Md5, "a", {}, "0cc175b9c0f1b6a831c399e269772661"},
        {Md5, "abc", {}, "900150983cd24fb0d6963f7d28e17f72"},
        {Md5, "message digest", {}, "f96b697d7cb7938d525a2f31aaf161d0"},
        {Md5, "abcdefghijklmnopqrstuvwxyz", {}, "c3fcd3d76192e4007dfb496cca67e13b"},
        {Md5, "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789", {}, "d174ab98d277d9f5a5611c2c9f419d9f"},
        {Md5, "12345678901234567890123456789012345678901234567890123456789012345678901234567890", {},
         "57edf4a22be3c955ac49da2e2107b67a"},
        {Sha256, "", {}, "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855"},
        {Sha256, "abc", {}, "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"},
        {Sha256, two256, {}, "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1"},
        {Sha256, million, {}, "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0"},
        {Sha384, "", {},
         "38b060a751ac96384cd9327eb1b1e36a21fdb71114be07434c0cc7bf63f6e1da274edebfe76f65fbd51ad2f14898b95b"},
        {Sha384, "abc", {},
         "cb00753f45a35e8bb5a03d699ac65007272c32ab0eded1631a8b605a43ff5bed8086072ba1e7cc2358baeca134c825a7"},
        {Sha384, two512, {},
         "09330c33f71147e83d192fc782cd1b4753111b173b3b05d22fa08086e3b0f712fcc7c71a557e2db966c3e9fa91746039"},
        {Sha384, million, {997},
         "9d0e1809716474cb086e834e310a4a1ced149e9c00f248527972cec5704c2a5b07b8b3dc38ecc4ebae97ddd87f3d8985"},
        {Sha512, "", {}, "cf83e1357eefb8bdf1542850d66d8007d620e4050b5715dc83f4a921d36ce9ce"
                         "47d0d13c5d85f2b0ff8318d2877eec2f63b931bd47417a81a538327af927da3e"},
        {Sha512, "abc", {}, "ddaf35a193617abacc417349ae20413112e6fa4e89a97ea20a9eeee64b55d39a"
                            "2192992a274fc1a836ba3c23a3feebbd454d4423643ce80e2a9ac94fa54ca49f"},
        {Sha512, two512, {}, "8e959b75dae313da8cf4f72814fc143f8f7779c6eb9f7fa17299aeadb6889018"
                             "501d289e4900f7e4331b99dec4b5433ac7d329eeb6dd26545e96e55b874be909"},
        {Sha512, million, {128}, "e718483d0ce769644e2e42c7bc15b4638e1f98b13b2044285632a803afa973eb"
                                 "de0ff244877ea60a4cb0432ce577c31beb009c5c2c49aa2e4eadb217ad8cc09b"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(toHex(digest(c.d, c.in, c.pieces)), c.hex) << c.d << " \"" << c.in.substr(0, 80) << '"';
        if (c.d == Md5) {  // the buffer form, with its 16-bit length
            unsigned char out[16];
            std::string in = c.in;
            pcrypt::PDFEncryptionMD5().MD5(ub(in), static_cast<unsigned short>(in.size()), out, 16);
            EXPECT_EQ(toHex(out, 16), c.hex);
        }
    }
}

TEST(Digests, MatchOpenSSLOnRandomInputsAndPieces) {
    Rng rng(0x5ba2);
    for (int i = 0; i < 10000; ++i) {
        // Lengths across the padding boundaries of both block sizes.
        const std::string data = rng.bytes(static_cast<size_t>(rng.uniform(0, 700)));
        const std::vector<size_t> pieces = {static_cast<size_t>(rng.uniform(1, 200)),
                                            static_cast<size_t>(rng.uniform(0, 3)),
                                            static_cast<size_t>(rng.uniform(0, 130))};
        for (Digest d : {Md5, Sha256, Sha384, Sha512}) {
            const std::string expect = toHex(evpDigest(evpMd(d), data));
            ASSERT_EQ(toHex(digest(d, data)), expect) << d << " " << data.size();
            if (d != Sha256) {
                ASSERT_EQ(toHex(digest(d, data, pieces)), expect) << d << " " << data.size();
            }
        }
    }
}

// Several messages at once (four lanes in AVX-512 where the processor has it): the digests of one at a time, for
// lengths around whole blocks, equal and unlike lengths, SHA-384 and SHA-512 mixed.
TEST(Digests, Sha512LanesGiveOneMessageDigests) {
    Rng rng(0x51a4);
    for (int i = 0; i < 400; ++i) {
        const int count = 1 + i % pcrypt::kSha512Lanes;
        std::string data[pcrypt::kSha512Lanes], got[pcrypt::kSha512Lanes];
        const uint8_t* in[pcrypt::kSha512Lanes];
        size_t lengths[pcrypt::kSha512Lanes];
        bool is384[pcrypt::kSha512Lanes];
        uint8_t* out[pcrypt::kSha512Lanes];
        for (int j = 0; j < count; ++j) {
            const size_t blocks = static_cast<size_t>(rng.uniform(0, i % 7 == 0 ? 60 : 6));
            data[j] = rng.bytes(j > 0 && i % 5 == 0 ? data[0].size() : 128 * blocks + static_cast<size_t>(rng.uniform(0, 3) * 56));
            in[j] = reinterpret_cast<const uint8_t*>(data[j].data());
            lengths[j] = data[j].size();
            is384[j] = rng.uniform(0, 1) == 1;
            got[j].assign(64, '\0');
            out[j] = reinterpret_cast<uint8_t*>(got[j].data());
        }
        pcrypt::SHA512Lanes(in, lengths, is384, out, count);
        for (int j = 0; j < count; ++j) {
            const Digest d = is384[j] ? Sha384 : Sha512;
            ASSERT_EQ(toHex(got[j].substr(0, is384[j] ? 48 : 64)), toHex(evpDigest(evpMd(d), data[j])))
                << "lane " << j << " of " << count << ", " << lengths[j] << " bytes";
        }
    }
}

TEST(Digests, CutOutputsShortLengthsStatesAndArguments) {
    // MD5's string form cuts its output to the size asked.
    pcrypt::PDFEncryptionMD5 md;
    const std::string full = digest(Md5, "abc");
    std::string out;
    for (const auto& [size, expect] : {std::pair<int, std::string>{5, full.substr(0, 5)}, {40, full}, {-3, ""}}) {
        md.MD5(std::string("abc"), out, size);
        EXPECT_EQ(out, expect) << size;
    }

    // The buffer form writes only outSize bytes.
    unsigned char buf[16];
    std::memset(buf, 0xEE, sizeof buf);
    std::string abc = "abc";
    md.MD5(ub(abc), 3, buf, 4);
    EXPECT_EQ(toHex(buf, 4), toHex(full.substr(0, 4)));
    EXPECT_EQ(buf[4], 0xEE);

    // 65536 bytes through the 16-bit length hash as 0 bytes; the string form has no such limit.
    std::string big(65536, 'x');
    md.MD5(ub(big), static_cast<unsigned short>(big.size()), buf, 16);
    EXPECT_EQ(toHex(buf, 16), "d41d8cd98f00b204e9800998ecf8427e");
    md.MD5(big, out, 16);
    EXPECT_EQ(toHex(out), toHex(evpDigest(EVP_md5(), big)));

    pcrypt::Sha256Calc calc;
    pcrypt::Sha256Calc_init(&calc);
    // calculate restarts every time: the same message gives the same digest.
    const std::string m = "message";
    pcrypt::Sha256Calc_calculate(&calc, m.data(), m.size());
    const std::string first = toHex(calc.Value, 32);
    pcrypt::Sha256Calc_calculate(&calc, m.data(), m.size());
    EXPECT_EQ(toHex(calc.Value, 32), first);
    EXPECT_EQ(pcrypt::Sha256Calc_calculate(&calc, nullptr, 5), 0);
    EXPECT_EQ(pcrypt::Sha256Calc_calculate(nullptr, m.data(), m.size()), 0);
    EXPECT_EQ(pcrypt::Sha256Calc_calculate(&calc, nullptr, 0), 1);
    EXPECT_EQ(toHex(calc.Value, 32), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
    pcrypt::Sha256Calc_reset(&calc);
    EXPECT_EQ(toHex(calc.Value, 32), std::string(64, '0'));

    // Empty updates change nothing; burnStack of any size is harmless.
    pcrypt::SHA512Context ctx;
    pcrypt::SHA512Init(&ctx);
    pcrypt::SHA512Update(&ctx, nullptr, 0);
    pcrypt::SHA512Update(&ctx, "abc", 0);
    uint8_t out512[64];
    pcrypt::SHA512Final(&ctx, out512);
    EXPECT_EQ(toHex(out512, 64), toHex(evpDigest(EVP_sha512(), "")));
    for (int n : {-5, 0, 1, 128, 129, 5000}) pcrypt::burnStack(n);
}

TEST(Digests, Sha256FormsAgree) {
    // The SHA-extensions form against the portable one; the portable one against OpenSSL.
    const bool hardware = pcrypt::shaHardwareUsable(pcrypt::cpuFeatures());
    Rng rng(0x5a256);
    for (int i = 0; i < 300; ++i) {
        const size_t blocks = static_cast<size_t>(rng.uniform(1, i % 50 == 0 ? 200 : 6));
        const std::string data = rng.bytes(64 * blocks);
        uint32_t portable[8], fast[8];
        for (uint32_t& w : portable) w = static_cast<uint32_t>(rng.gen());
        std::memcpy(fast, portable, sizeof portable);
        pcrypt::Sha256Calc_compressPortable(portable, ub(data), blocks);
        if (hardware) {
            pcrypt::Sha256Calc_compressHardware(fast, ub(data), blocks);
            ASSERT_EQ(toHex(fast, 32), toHex(portable, 32)) << blocks;
        }
        // From the initial value with padding added by hand, the portable form alone gives the digest.
        const std::string message = data.substr(0, data.size() - 9 - static_cast<size_t>(i % 55));
        std::string padded = message + '\x80';
        padded.append(64 * blocks - 8 - padded.size(), '\0');
        for (int b = 7; b >= 0; --b) padded += static_cast<char>((uint64_t(message.size()) * 8) >> (8 * b));
        uint32_t h[] = {0x6a09e667, 0xbb67ae85, 0x3c6ef372, 0xa54ff53a, 0x510e527f, 0x9b05688c, 0x1f83d9ab, 0x5be0cd19};
        pcrypt::Sha256Calc_compressPortable(h, ub(padded), blocks);
        std::string digest;
        for (uint32_t w : h)
            for (int b = 3; b >= 0; --b) digest += static_cast<char>(w >> (8 * b));
        ASSERT_EQ(toHex(digest), toHex(evpDigest(EVP_sha256(), message))) << message.size();
    }
}

TEST(AES, PublishedVectors) {
    // FIPS-197 C (three key sizes) and B, SP 800-38A CBC, and the 16 bits of its CFB1 vector.
    const std::string spKey = "2b7e151628aed2a6abf7158809cf4f3c", spIv = "000102030405060708090a0b0c0d0e0f";
    const std::string spPlain = "6bc1bee22e409f96e93d7e117393172aae2d8a571e03ac9c9eb76fac45af8e51";
    const struct {
        Rijndael::Mode mode;
        std::string key, iv, plain, cipher;
    } cases[] = {
        {Rijndael::ECB, "000102030405060708090a0b0c0d0e0f", "", "00112233445566778899aabbccddeeff",
         "69c4e0d86a7b0430d8cdb78070b4c55a"},
        {Rijndael::ECB, "000102030405060708090a0b0c0d0e0f1011121314151617", "", "00112233445566778899aabbccddeeff",
         "dda97ca4864cdfe06eaf70a0ec0d7191"},
        {Rijndael::ECB, "000102030405060708090a0b0c0d0e0f101112131415161718191a1b1c1d1e1f", "",
         "00112233445566778899aabbccddeeff", "8ea2b7ca516745bfeafc49904b496089"},
        {Rijndael::ECB, spKey, "", "3243f6a8885a308d313198a2e0370734", "3925841d02dc09fbdc118597196a0b32"},
        {Rijndael::CBC, spKey, spIv, spPlain, "7649abac8119b246cee98e9b12e9197d5086cb9b507219ee95db113a917678b2"},
        {Rijndael::CFB1, spKey, spIv, spPlain.substr(0, 32), "68b3"},
    };
    for (const auto& c : cases) {
        const std::string key = fromHex(c.key), iv = fromHex(c.iv), plain = fromHex(c.plain);
        const std::string enc = ours(c.mode, Rijndael::Encrypt, key, iv, plain, false);
        ASSERT_EQ(enc.size(), plain.size());
        EXPECT_EQ(toHex(enc).substr(0, c.cipher.size()), c.cipher) << c.key;
        EXPECT_EQ(ours(c.mode, Rijndael::Decrypt, key, iv, enc, false), plain) << c.key;
    }
}

TEST(AES, EveryModeMatchesOpenSSL) {
    Rng rng(0xae5);
    for (size_t keyBytes : {16u, 24u, 32u}) {
        for (int i = 0; i < 10000; ++i) {
            const std::string key = rng.bytes(keyBytes), iv = rng.bytes(16);
            // Padded ECB and CBC over lengths from 0, mostly not multiples of 16.
            const Rijndael::Mode padMode = (i & 1) ? Rijndael::CBC : Rijndael::ECB;
            const std::string padIv = padMode == Rijndael::CBC ? iv : std::string();
            const std::string data = rng.bytes(static_cast<size_t>(rng.uniform(0, 120)));
            const std::string expect = evpCipher(evpAes(padMode, keyBytes), key, padIv, data, true, true);
            const std::string enc = ours(padMode, Rijndael::Encrypt, key, padIv, data, true);
            ASSERT_EQ(toHex(enc), toHex(expect)) << "key " << keyBytes << " mode " << padMode << " len " << data.size();
            ASSERT_EQ(ours(padMode, Rijndael::Decrypt, key, padIv, enc, true), data);
            if (padMode == Rijndael::CBC) {  // the streaming form: whole blocks, then the end
                Rijndael s, d;
                ASSERT_EQ(s.init(Rijndael::CBC, Rijndael::Encrypt, ub(key), keyLength(keyBytes), ub(iv)), 0);
                ASSERT_EQ(d.init(Rijndael::CBC, Rijndael::Decrypt, ub(key), keyLength(keyBytes), ub(iv)), 0);
                std::string out(data.size() + 16, '\0'), back(enc.size(), '\0');
                const int head = s.pdfEncrypt(ub(data), static_cast<int>(data.size()), ub(out));
                ASSERT_EQ(head % 16, 0);
                out.resize(static_cast<size_t>(
                    head + s.pdfEncryptEnd(ub(data) + head, static_cast<int>(data.size()) - head, ub(out) + head)));
                ASSERT_EQ(out, expect);
                const int h = d.pdfDecrypt(ub(enc), static_cast<int>(enc.size()) - 16, ub(back));
                const int t = d.pdfDecryptEnd(ub(enc) + h, static_cast<int>(enc.size()) - h, ub(back) + h);
                ASSERT_GE(t, 0);
                ASSERT_EQ(back.substr(0, static_cast<size_t>(h + t)), data);
            }

            // Whole blocks in every mode; CFB1 costs a block cipher call per bit, so its inputs stay short.
            const Rijndael::Mode mode = static_cast<Rijndael::Mode>(i % 3);
            const std::string modeIv = mode == Rijndael::ECB ? std::string() : iv;
            const size_t nBlocks = static_cast<size_t>(rng.uniform(0, mode == Rijndael::CFB1 ? 1 : 4));
            const std::string blocks = rng.bytes(16 * nBlocks);
            const std::string bexpect = evpCipher(evpAes(mode, keyBytes), key, modeIv, blocks, true, false);
            ASSERT_EQ(toHex(ours(mode, Rijndael::Encrypt, key, modeIv, blocks, false)), toHex(bexpect))
                << "key " << keyBytes << " mode " << mode << " len " << blocks.size();
            ASSERT_EQ(toHex(ours(mode, Rijndael::Decrypt, key, modeIv, bexpect, false)), toHex(blocks));
        }
    }
}

TEST(AES, ChainingCarriesAcrossCallsAndInPlaceWorks) {
    Rng rng(77);
    for (Rijndael::Mode mode : {Rijndael::CBC, Rijndael::CFB1}) {
        const std::string key = rng.bytes(32), iv = rng.bytes(16), data = rng.bytes(64);
        const std::string whole = ours(mode, Rijndael::Encrypt, key, iv, data, false);
        Rijndael aes, dec;
        ASSERT_EQ(aes.init(mode, Rijndael::Encrypt, ub(key), Rijndael::Key32Bytes, ub(iv)), 0);
        std::string split = data;  // in place, in two calls
        aes.blockEncrypt(ub(split), 16 * 8, ub(split));
        aes.blockEncrypt(ub(split) + 16, 48 * 8, ub(split) + 16);
        EXPECT_EQ(split, whole) << "mode " << mode;
        ASSERT_EQ(dec.init(mode, Rijndael::Decrypt, ub(key), Rijndael::Key32Bytes, ub(iv)), 0);
        dec.blockDecrypt(ub(split), 32 * 8, ub(split));
        dec.blockDecrypt(ub(split) + 32, 32 * 8, ub(split) + 32);
        EXPECT_EQ(split, data) << "mode " << mode;
    }
    // A null vector is a zero vector.
    const std::string key(16, '\x01'), data(32, '\x02');
    EXPECT_EQ(ours(Rijndael::CBC, Rijndael::Encrypt, key, "", data, false),
              ours(Rijndael::CBC, Rijndael::Encrypt, key, std::string(16, '\0'), data, false));
}

TEST(AES, ResultCodesBitLengthsAndPadding) {
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
    EXPECT_EQ(aes.padEncrypt(buf, 0, out), 16);  // an empty input is one block of padding
    EXPECT_EQ(aes.padEncrypt(buf, 17, out), 32);
    EXPECT_EQ(aes.padEncrypt(nullptr, 5, out), 0);
    EXPECT_EQ(aes.padEncrypt(buf, -1, out), 0);
    // Bit lengths count whole blocks only.
    EXPECT_EQ(aes.blockEncrypt(buf, 40 * 8, out), 256);
    EXPECT_EQ(aes.blockEncrypt(buf, 127, out), 0);
    EXPECT_EQ(aes.blockEncrypt(buf, 0, out), 0);
    EXPECT_EQ(aes.blockEncrypt(nullptr, 128, out), 0);
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

    // Chosen last blocks: a whole block of padding is valid, 0, 17 and mixed bytes are not.
    const std::string k16(16, 'K');
    const std::pair<std::string, int> last[] = {{std::string(15, 'x') + '\x01', 15}, {std::string(16, '\x10'), 0},
                                                {std::string(15, 'x') + '\0', -7}, {std::string(15, 'x') + '\x11', -7},
                                                {std::string(13, '\x03') + "\x04\x03\x03", -7}};
    for (const auto& [block, expect] : last) {
        int r = 0;
        const std::string enc = ours(Rijndael::ECB, Rijndael::Encrypt, k16, "", block, false);
        ours(Rijndael::ECB, Rijndael::Decrypt, k16, "", enc, true, &r);
        EXPECT_EQ(r, expect) << toHex(block);
    }
    // The streaming form is CBC only.
    ASSERT_EQ(aes.init(Rijndael::ECB, Rijndael::Encrypt, key, Rijndael::Key16Bytes), 0);
    EXPECT_EQ(aes.pdfEncrypt(buf, 16, out), Rijndael::RIJNDAEL_UNSUPPORTED_MODE);
}

TEST(AES, HardwareAndTableFormsAgree) {
    if (!pcrypt::aesHardwareUsable(pcrypt::cpuFeatures())) GTEST_SKIP() << "no AES-NI on this processor";
    Rng rng(0xae51);
    // Lengths around the eight blocks CBC decryption keeps in flight; two calls, the second in place (chaining).
    for (size_t keyBytes : {16u, 24u, 32u}) {
        for (int i = 0; i < 300; ++i) {
            const std::string key = rng.bytes(keyBytes), iv = rng.bytes(16);
            const std::string data = rng.bytes(16 * static_cast<size_t>(i % 40 == 0 ? 300 : rng.uniform(0, 25)));
            const int bits = static_cast<int>(data.size() * 8), head = 16 * (static_cast<int>(data.size()) / 32);
            for (Rijndael::Mode mode : {Rijndael::ECB, Rijndael::CBC}) {
                for (Rijndael::Direction dir : {Rijndael::Encrypt, Rijndael::Decrypt}) {
                    std::string out[2] = {data, data};
                    for (int hw = 0; hw < 2; ++hw) {
                        Rijndael aes;
                        aes.setHardware(hw == 1);
                        ASSERT_EQ(aes.init(mode, dir, ub(key), keyLength(keyBytes), ub(iv)), 0);
                        auto step = dir == Rijndael::Encrypt ? &Rijndael::blockEncrypt : &Rijndael::blockDecrypt;
                        (aes.*step)(ub(data), head * 8, ub(out[hw]));
                        (aes.*step)(ub(out[hw]) + head, bits - head * 8, ub(out[hw]) + head);
                    }
                    ASSERT_EQ(toHex(out[1]), toHex(out[0]))
                        << "key " << keyBytes << " mode " << mode << " dir " << dir << " len " << data.size();
                }
            }
        }
    }
    // CBC decryption written one block below its input, as the per-object cipher drops the vector in place.
    const std::string key = rng.bytes(16), data = rng.bytes(16 * 37);
    std::string shifted[2] = {data, data};
    for (int hw = 0; hw < 2; ++hw) {
        Rijndael aes;
        aes.setHardware(hw == 1);
        ASSERT_EQ(aes.init(Rijndael::CBC, Rijndael::Decrypt, ub(key), Rijndael::Key16Bytes, ub(data)), 0);
        aes.blockDecrypt(ub(shifted[hw]) + 16, static_cast<int>(data.size() - 16) * 8, ub(shifted[hw]));
    }
    EXPECT_EQ(shifted[1], shifted[0]);
    EXPECT_EQ(shifted[0].substr(0, data.size() - 16),
              evpCipher(EVP_aes_128_cbc(), key, data.substr(0, 16), data.substr(16), false, false));
}
