// SHA-256, SHA-384 and SHA-512 against FIPS 180-4 examples and OpenSSL.
#include <gtest/gtest.h>

#include "crypt_test_util.h"

#include "PDFKilnPage/crypt/cpufeatures.h"
#include "PDFKilnPage/crypt/sha256.h"
#include "PDFKilnPage/crypt/sha512.h"

using namespace crypt_test;

namespace {

std::string sha256(const std::string& data)
{
    pcrypt::Sha256Calc calc;
    pcrypt::Sha256Calc_init(&calc);
    EXPECT_EQ(pcrypt::Sha256Calc_calculate(&calc, data.data(), data.size()), 1);
    // The digest is read from the start of the object, as the handler does.
    std::string out(reinterpret_cast<const char*>(&calc), 32);
    pcrypt::Sha256Calc_uninit(&calc);
    return out;
}

// SHA-384 or SHA-512, fed in pieces of the given sizes (cycled).
std::string sha512Family(int bits, const std::string& data, const std::vector<size_t>& pieces = {})
{
    uint8_t out[64];
    size_t pos = 0, k = 0;
    auto feed = [&](auto update, auto* ctx) {
        while (pos < data.size()) {
            size_t n = pieces.empty() ? data.size() : std::min(pieces[k++ % pieces.size()], data.size() - pos);
            update(ctx, data.data() + pos, n);
            pos += n;
        }
    };
    if (bits == 384) {
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

} // namespace

TEST(SHA2, Fips180Examples)
{
    const std::string abc = "abc";
    const std::string two256 = "abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq";
    const std::string two512 = "abcdefghbcdefghicdefghijdefghijkefghijklfghijklmghijklmnhijklmno"
                               "ijklmnopjklmnopqklmnopqrlmnopqrsmnopqrstnopqrstu";
    const std::string million(1000000, 'a');

    EXPECT_EQ(toHex(sha256("")), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
    EXPECT_EQ(toHex(sha256(abc)), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
    EXPECT_EQ(toHex(sha256(two256)), "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1");
    EXPECT_EQ(toHex(sha256(million)), "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0");

    EXPECT_EQ(toHex(sha512Family(384, "")),
              "38b060a751ac96384cd9327eb1b1e36a21fdb71114be07434c0cc7bf63f6e1da274edebfe76f65fbd51ad2f14898b95b");
    EXPECT_EQ(toHex(sha512Family(384, abc)),
              "cb00753f45a35e8bb5a03d699ac65007272c32ab0eded1631a8b605a43ff5bed8086072ba1e7cc2358baeca134c825a7");
    EXPECT_EQ(toHex(sha512Family(384, two512)),
              "09330c33f71147e83d192fc782cd1b4753111b173b3b05d22fa08086e3b0f712fcc7c71a557e2db966c3e9fa91746039");
    EXPECT_EQ(toHex(sha512Family(384, million, {997})),
              "9d0e1809716474cb086e834e310a4a1ced149e9c00f248527972cec5704c2a5b07b8b3dc38ecc4ebae97ddd87f3d8985");

    EXPECT_EQ(toHex(sha512Family(512, "")),
              "cf83e1357eefb8bdf1542850d66d8007d620e4050b5715dc83f4a921d36ce9ce"
              "47d0d13c5d85f2b0ff8318d2877eec2f63b931bd47417a81a538327af927da3e");
    EXPECT_EQ(toHex(sha512Family(512, abc)),
              "ddaf35a193617abacc417349ae20413112e6fa4e89a97ea20a9eeee64b55d39a"
              "2192992a274fc1a836ba3c23a3feebbd454d4423643ce80e2a9ac94fa54ca49f");
    EXPECT_EQ(toHex(sha512Family(512, two512)),
              "8e959b75dae313da8cf4f72814fc143f8f7779c6eb9f7fa17299aeadb6889018"
              "501d289e4900f7e4331b99dec4b5433ac7d329eeb6dd26545e96e55b874be909");
    EXPECT_EQ(toHex(sha512Family(512, million, {128})),
              "e718483d0ce769644e2e42c7bc15b4638e1f98b13b2044285632a803afa973eb"
              "de0ff244877ea60a4cb0432ce577c31beb009c5c2c49aa2e4eadb217ad8cc09b");
}

TEST(SHA2, MatchOpenSSLOnRandomInputs)
{
    Rng rng(0x5ba2);
    for (int i = 0; i < 10000; ++i) {
        // Lengths across the padding boundaries of both block sizes: 0..300 bytes.
        const std::string data = rng.bytes(static_cast<size_t>(rng.uniform(0, 300)));
        ASSERT_EQ(toHex(sha256(data)), toHex(evpDigest(EVP_sha256(), data))) << data.size();
        std::vector<size_t> pieces = {static_cast<size_t>(rng.uniform(1, 200)), static_cast<size_t>(rng.uniform(0, 3))};
        ASSERT_EQ(toHex(sha512Family(384, data, pieces)), toHex(evpDigest(EVP_sha384(), data))) << data.size();
        ASSERT_EQ(toHex(sha512Family(512, data, pieces)), toHex(evpDigest(EVP_sha512(), data))) << data.size();
    }
}

TEST(SHA2, ObjectStatesAndArguments)
{
    pcrypt::Sha256Calc calc;
    pcrypt::Sha256Calc_init(&calc);
    // calculate restarts every time: the same message gives the same digest.
    const std::string m = "message";
    pcrypt::Sha256Calc_calculate(&calc, m.data(), m.size());
    const std::string first(reinterpret_cast<const char*>(calc.Value), 32);
    pcrypt::Sha256Calc_calculate(&calc, m.data(), m.size());
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(calc.Value), 32), first);
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
    uint8_t out[64];
    pcrypt::SHA512Final(&ctx, out);
    EXPECT_EQ(toHex(out, 64), toHex(evpDigest(EVP_sha512(), "")));
    for (int n : {-5, 0, 1, 128, 129, 5000})
        pcrypt::burnStack(n);
}

TEST(SHA2, Sha256FormsAgree)
{
    // The portable form against OpenSSL on whole messages of whole blocks, and
    // the SHA-extensions form against the portable one on the same states.
    const bool hardware = pcrypt::shaHardwareUsable(pcrypt::cpuFeatures());
    Rng rng(0x5a256);
    for (int i = 0; i < 300; ++i) {
        const size_t blocks = static_cast<size_t>(rng.uniform(1, i % 50 == 0 ? 200 : 6));
        const std::string data = rng.bytes(64 * blocks);
        uint32_t start[8];
        for (uint32_t& w : start)
            w = static_cast<uint32_t>(rng.gen());
        uint32_t portable[8], fast[8];
        std::memcpy(portable, start, sizeof start);
        std::memcpy(fast, start, sizeof start);
        pcrypt::Sha256Calc_compressPortable(portable, ub(data), blocks);
        if (hardware) {
            pcrypt::Sha256Calc_compressHardware(fast, ub(data), blocks);
            ASSERT_EQ(toHex(reinterpret_cast<unsigned char*>(fast), 32),
                      toHex(reinterpret_cast<unsigned char*>(portable), 32))
                << blocks;
        }
        // From the initial value with padding added by hand, the portable form
        // alone gives the digest.
        const std::string message = data.substr(0, data.size() - 9 - static_cast<size_t>(i % 55));
        std::string padded = message + '\x80';
        padded.append(64 * blocks - 8 - padded.size(), '\0');
        for (int b = 7; b >= 0; --b)
            padded += static_cast<char>((uint64_t(message.size()) * 8) >> (8 * b));
        uint32_t h[8] = {0x6a09e667, 0xbb67ae85, 0x3c6ef372, 0xa54ff53a, 0x510e527f, 0x9b05688c, 0x1f83d9ab, 0x5be0cd19};
        pcrypt::Sha256Calc_compressPortable(h, ub(padded), blocks);
        std::string digest;
        for (uint32_t w : h)
            for (int b = 3; b >= 0; --b)
                digest += static_cast<char>(w >> (8 * b));
        ASSERT_EQ(toHex(digest), toHex(evpDigest(EVP_sha256(), message))) << message.size();
    }
}
