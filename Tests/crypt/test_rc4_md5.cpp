// RC4 and MD5 against published vectors and OpenSSL.
#include <gtest/gtest.h>

#include "crypt_test_util.h"

#include <openssl/md5.h>
#include <openssl/rc4.h>

#include "PDFKilnPage/crypt/md5.h"
#include "PDFKilnPage/crypt/rc4.h"

using namespace crypt_test;
using pcrypt::PDFEncryptionMD5;
using pcrypt::PDFEncryptionRC4;

namespace {

std::string ourRc4(const std::string& key, std::string data)
{
    PDFEncryptionRC4 rc4;
    rc4.RC4(ub(data), static_cast<int>(data.size()), const_cast<unsigned char*>(ub(key)),
            static_cast<int>(key.size()));
    return data;
}

std::string sslRc4(const std::string& key, std::string data)
{
    RC4_KEY k;
    RC4_set_key(&k, static_cast<int>(key.size()), ub(key));
    RC4(&k, data.size(), ub(data), ub(data));
    return data;
}

std::string ourMd5(const std::string& data)
{
    PDFEncryptionMD5 md;
    std::string out;
    md.MD5(data, out, 16);
    return out;
}

} // namespace

TEST(RC4, PublishedVectors)
{
    // Keystream of RFC 6229 at offsets 0, 16, 240 and 256.
    struct Case { const char* key; size_t offset; const char* stream; };
    const Case cases[] = {
        {"0102030405", 0, "b2396305f03dc027ccc3524a0a1118a8"},
        {"0102030405", 16, "6982944f18fc82d589c403a47a0d0919"},
        {"0102030405", 240, "28cb1132c96ce286421dcaadb8b69eae"},
        {"0102030405", 256, "1cfcf62b03eddb641d77dfcf7f8d8c93"},
        {"0102030405060708090a0b0c0d0e0f10", 0, "9ac7cc9a609d1ef7b2932899cde41b97"},
        {"0102030405060708090a0b0c0d0e0f10", 16, "5248c4959014126a6e8a84f11d1a9e1c"},
    };
    for (const Case& c : cases) {
        std::string zeros(c.offset + 16, '\0');
        std::string ks = ourRc4(fromHex(c.key), zeros);
        EXPECT_EQ(toHex(ks.substr(c.offset, 16)), c.stream) << c.key << " @" << c.offset;
    }
    // The classic text vectors.
    EXPECT_EQ(toHex(ourRc4("Key", "Plaintext")), "bbf316e8d940af0ad3");
    EXPECT_EQ(toHex(ourRc4("Wiki", "pedia")), "1021bf0420");
    EXPECT_EQ(toHex(ourRc4("Secret", "Attack at dawn")), "45a01f645fc35b383552544b9bf5");
}

TEST(RC4, MatchesOpenSSLForEveryForm)
{
    Rng rng(0x5243345f31);
    const int keySizes[] = {5, 16, 0 /* random 1..256 */};
    for (int ks : keySizes) {
        for (int i = 0; i < 10000; ++i) {
            const std::string key = rng.bytes(static_cast<size_t>(ks ? ks : rng.uniform(1, 256)));
            const std::string data = rng.bytes(static_cast<size_t>(rng.uniform(0, 300)));
            const std::string expect = sslRc4(key, data);
            ASSERT_EQ(ourRc4(key, data), expect) << "key size " << key.size() << " len " << data.size();
            if (i % 10 == 0) {
                // Stored key, string form, and the two halves split at random.
                PDFEncryptionRC4 stored(const_cast<unsigned char*>(ub(key)), static_cast<int>(key.size()));
                std::string a = data;
                stored.newRC4(ub(a), static_cast<int>(a.size()));
                ASSERT_EQ(a, expect);
                std::string b = data;
                stored.RC4(b, static_cast<int>(b.size()), key);
                ASSERT_EQ(b, expect);
                pcrypt::RC4_KEY st;
                PDFEncryptionRC4::PrepareKey(ub(key), static_cast<int>(key.size()), &st);
                std::string c = data;
                const int cut = rng.uniform(0, static_cast<int>(c.size()));
                PDFEncryptionRC4::RC4Imp(ub(c), cut, &st);
                PDFEncryptionRC4::RC4Imp(ub(c) + cut, static_cast<int>(c.size()) - cut, &st);
                ASSERT_EQ(c, expect);
            }
        }
    }
}

TEST(RC4, StringFormCutsOrExtendsToSize)
{
    PDFEncryptionRC4 rc4;
    const std::string key = "k3y";
    std::string s = "abcdefgh";
    rc4.RC4(s, 3, key);
    EXPECT_EQ(s, sslRc4(key, "abc"));

    std::string t = "ab";
    rc4.RC4(t, 6, key);
    EXPECT_EQ(t, sslRc4(key, std::string("ab\0\0\0\0", 6)));

    std::string u = "xyz";
    rc4.RC4(u, -4, key);
    EXPECT_EQ(u, "");
}

TEST(RC4, DegenerateArgumentsLeaveDataAlone)
{
    PDFEncryptionRC4 rc4;
    std::string data = "unchanged";
    rc4.RC4(ub(data), static_cast<int>(data.size()), nullptr, 5);
    unsigned char key[1] = {7};
    rc4.RC4(ub(data), static_cast<int>(data.size()), key, 0);
    rc4.RC4(ub(data), -1, key, 1);
    rc4.RC4(nullptr, 10, key, 1);
    rc4.newRC4(ub(data), static_cast<int>(data.size())); // no stored key
    EXPECT_EQ(data, "unchanged");
    rc4.RC4(data, static_cast<int>(data.size()), std::string());
    EXPECT_EQ(data, "unchanged");
}

TEST(MD5, PublishedVectors)
{
    const std::pair<const char*, const char*> cases[] = {
        {"", "d41d8cd98f00b204e9800998ecf8427e"},
        {"a", "0cc175b9c0f1b6a831c399e269772661"},
        {"abc", "900150983cd24fb0d6963f7d28e17f72"},
        {"message digest", "f96b697d7cb7938d525a2f31aaf161d0"},
        {"abcdefghijklmnopqrstuvwxyz", "c3fcd3d76192e4007dfb496cca67e13b"},
        {"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789", "d174ab98d277d9f5a5611c2c9f419d9f"},
        {"12345678901234567890123456789012345678901234567890123456789012345678901234567890",
         "57edf4a22be3c955ac49da2e2107b67a"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(toHex(ourMd5(c.first)), c.second) << '"' << c.first << '"';
        std::string in = c.first;
        unsigned char out[16];
        PDFEncryptionMD5().MD5(ub(in), static_cast<unsigned short>(in.size()), out, 16);
        EXPECT_EQ(toHex(out, 16), c.second);
    }
}

TEST(MD5, MatchesOpenSSLWithRandomSplits)
{
    Rng rng(0x4d4435);
    PDFEncryptionMD5 md;
    for (int i = 0; i < 10000; ++i) {
        std::string data = rng.bytes(static_cast<size_t>(rng.uniform(0, 700)));
        const std::string expect = evpDigest(EVP_md5(), data);
        ASSERT_EQ(toHex(ourMd5(data)), toHex(expect)) << "len " << data.size();

        // Incremental updates in random pieces.
        pcrypt::MD5_CTX ctx;
        md.MD5Init(&ctx);
        size_t pos = 0;
        while (pos < data.size()) {
            size_t piece = std::min<size_t>(data.size() - pos, static_cast<size_t>(rng.uniform(0, 130)));
            md.MD5Update(&ctx, ub(data) + pos, piece);
            pos += piece;
        }
        unsigned char digest[16];
        md.MD5Final(digest, &ctx);
        ASSERT_EQ(toHex(digest, 16), toHex(expect));
    }
}

TEST(MD5, OutputIsCutAndLengthHas16Bits)
{
    PDFEncryptionMD5 md;
    const std::string full = ourMd5("abc");
    std::string out;
    md.MD5(std::string("abc"), out, 5);
    EXPECT_EQ(out, full.substr(0, 5));
    md.MD5(std::string("abc"), out, 40);
    EXPECT_EQ(out, full);
    md.MD5(std::string("abc"), out, -3);
    EXPECT_EQ(out, "");

    // The buffer form writes only outSize bytes.
    unsigned char buf[16];
    std::memset(buf, 0xEE, sizeof buf);
    std::string abc = "abc";
    md.MD5(ub(abc), 3, buf, 4);
    EXPECT_EQ(toHex(buf, 4), toHex(full.substr(0, 4)));
    EXPECT_EQ(buf[4], 0xEE);

    // 65536 bytes passed through the 16-bit length hash as 0 bytes.
    std::string big(65536, 'x');
    md.MD5(ub(big), static_cast<unsigned short>(big.size()), buf, 16);
    EXPECT_EQ(toHex(buf, 16), "d41d8cd98f00b204e9800998ecf8427e");
    // The string form has no such limit.
    md.MD5(big, out, 16);
    EXPECT_EQ(toHex(out), toHex(evpDigest(EVP_md5(), big)));
}
