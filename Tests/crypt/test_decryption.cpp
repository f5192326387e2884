// The decryption manager's helpers, per-object cipher and the unusual inputs of
// its password trials.
#include <gtest/gtest.h>

#include "crypt_test_util.h"

#include <openssl/rc4.h>

#include "PDFKilnPage/crypt/decryptionmanager.h"
#include "PDFKilnPage/crypt/encryptionmanager.h"
#include "pfdecrypt.h"

using namespace crypt_test;
using pcrypt::EncryptInfo;
using pcrypt::PDFDecryptionManager;

namespace {

const std::string kPad(reinterpret_cast<const char*>(pcrypt::ori_key), 32);

// Algorithm 2.B written against OpenSSL, as the reference for caculateHashR6.
std::string referenceHashR6(const std::string& password, const std::string& start, const std::string& U,
                            bool isUser)
{
    const std::string p = password.substr(0, 127);
    const std::string u = isUser ? "" : U.substr(0, 48);
    std::string K = start.substr(0, 32);
    for (int round = 0;; ++round) {
        std::string K1;
        for (int i = 0; i < 64; ++i)
            K1 += p + K + u;
        const std::string E = evpCipher(EVP_aes_128_cbc(), K.substr(0, 16), K.substr(16, 16), K1, true, false);
        int sum = 0;
        for (int i = 0; i < 16; ++i)
            sum += static_cast<unsigned char>(E[static_cast<size_t>(i)]);
        const EVP_MD* md = sum % 3 == 0 ? EVP_sha256() : sum % 3 == 1 ? EVP_sha384() : EVP_sha512();
        K = evpDigest(md, E);
        if (round >= 63 && static_cast<unsigned char>(E.back()) <= round - 31)
            break;
    }
    return K.substr(0, 32);
}

std::string objectKey(const EncryptInfo& info, int obj, int gen)
{
    std::string k;
    PDFDecryptionManager().calculateKey(obj, gen, info, k);
    return k;
}

} // namespace

TEST(DecryptionHelpers, PaddingIntegersAndPasswordCut)
{
    PDFDecryptionManager m;
    std::string s = "abc";
    m.padKey(s, 3);
    EXPECT_EQ(s, "abc" + kPad.substr(0, 29));
    std::string t;
    m.padKey(t, 0);
    EXPECT_EQ(t, kPad);
    std::string u = "x";
    m.padKey(u, 40);
    EXPECT_EQ(u, "x");
    std::string v;
    m.padKey(v, -7);
    EXPECT_EQ(v, kPad);

    unsigned char buf[32];
    std::memset(buf, 'z', sizeof buf);
    m.padKey(buf, 30);
    EXPECT_EQ(buf[29], 'z');
    EXPECT_EQ(buf[30], pcrypt::ori_key[0]);
    EXPECT_EQ(buf[31], pcrypt::ori_key[1]);

    std::string w;
    m.padInteger(w, -4, 4);
    EXPECT_EQ(toHex(w), "fcffffff");
    w.clear();
    m.padInteger(w, 0x12345678, 3);
    EXPECT_EQ(toHex(w), "785634");
    w.clear();
    m.padInteger(w, 0x12345678, 6);
    EXPECT_EQ(toHex(w), "785634120000");
    w.clear();
    m.padInteger(w, 5, 0);
    EXPECT_EQ(w, "");
    unsigned char b[8] = {0};
    m.padInteger(b, 2, 0x0a0b0c0d, 2);
    EXPECT_EQ(toHex(b, 8), "00000d0c00000000");

    EXPECT_EQ(pcrypt::getUTF8Str(std::string(200, 'p')).size(), 127u);
    EXPECT_EQ(pcrypt::getUTF8Str("\xc3\xa9t\xc3\xa9"), "\xc3\xa9t\xc3\xa9"); // bytes as given
}

TEST(DecryptionHelpers, ObjectKeys)
{
    EncryptInfo info;
    info.key = fromHex("0102030405");
    info.cipherMode = 1;
    // RC4: MD5 of key, 3 bytes object, 2 bytes generation, cut to n + 5.
    EXPECT_EQ(objectKey(info, 0x123456 + (7 << 24), 0x10002),
              evpDigest(EVP_md5(), fromHex("0102030405" "563412" "0200")).substr(0, 10));
    // AES-128 adds "sAlT", and the cut counts it: n + 9 bytes.
    info.cipherMode = 2;
    EXPECT_EQ(objectKey(info, 12, 0), evpDigest(EVP_md5(), fromHex("0102030405" "0c0000" "0000") + "sAlT").substr(0, 14));
    info.key = std::string(16, '\x33');
    EXPECT_EQ(objectKey(info, 12, 0).size(), 16u);
    // AES-256 and a caller's object key use the key as it stands.
    info.cipherMode = 3;
    info.key = std::string(32, '\x44');
    EXPECT_EQ(objectKey(info, 12, 3), info.key);
    info.cipherMode = 1;
    info.keyIsObjectKey = true;
    EXPECT_EQ(objectKey(info, 12, 3), info.key);
}

TEST(DecryptionHelpers, HashR6MatchesReference)
{
    Rng rng(0x6b6a);
    PDFDecryptionManager m;
    for (int i = 0; i < 12; ++i) {
        const std::string pw = rng.bytes(static_cast<size_t>(rng.uniform(0, i == 0 ? 200 : 40)));
        const std::string start = rng.bytes(32 + static_cast<size_t>(rng.uniform(0, 32)));
        const std::string U = rng.bytes(48);
        const bool isUser = i % 2 == 0;
        ASSERT_EQ(toHex(m.caculateHashR6(pw, start, U, isUser)), toHex(referenceHashR6(pw, start, U, isUser)));
    }
    EXPECT_THROW(m.caculateHashR6("pw", std::string(31, 'h'), std::string(48, 'u'), true), std::out_of_range);
}

TEST(DecryptData, Rc4MatchesOpenSSL)
{
    Rng rng(0xdd);
    PDFDecryptionManager m;
    EncryptInfo info;
    info.cipherMode = 1;
    for (int i = 0; i < 2000; ++i) {
        info.key = rng.bytes(static_cast<size_t>(rng.uniform(5, 16)));
        const int obj = rng.uniform(1, 100000), gen = rng.uniform(0, 3);
        const std::string plain = rng.bytes(static_cast<size_t>(rng.uniform(1, 300)));
        // The low-level RC4 of libcrypto: its EVP form lives in the legacy provider.
        const std::string k = objectKey(info, obj, gen);
        RC4_KEY rk;
        RC4_set_key(&rk, static_cast<int>(k.size()), ub(k));
        std::string cipher = plain;
        RC4(&rk, cipher.size(), ub(cipher), ub(cipher));
        std::string buf = cipher;
        int size = static_cast<int>(buf.size());
        m.DecryptData(info, obj, gen, ub(buf), size);
        ASSERT_EQ(size, static_cast<int>(plain.size()));
        ASSERT_EQ(buf, plain);
    }
}

TEST(DecryptData, AesDropsVectorAndPadding)
{
    Rng rng(0xae);
    PDFDecryptionManager m;
    for (int mode : {2, 3}) {
        EncryptInfo info;
        info.cipherMode = mode;
        for (int i = 0; i < 2000; ++i) {
            info.key = rng.bytes(mode == 2 ? 16 : 32);
            const int obj = rng.uniform(1, 5000), gen = rng.uniform(0, 2);
            const std::string k = objectKey(info, obj, gen);
            const std::string iv = rng.bytes(16);
            const std::string plain = rng.bytes(static_cast<size_t>(rng.uniform(0, 200)));
            const std::string cipher =
                iv + evpCipher(mode == 2 ? EVP_aes_128_cbc() : EVP_aes_256_cbc(), k, iv, plain, true, true);
            std::string buf = cipher;
            int size = static_cast<int>(buf.size());
            m.DecryptData(info, obj, gen, ub(buf), size);
            ASSERT_EQ(size, static_cast<int>(plain.size()));
            ASSERT_EQ(buf.substr(0, plain.size()), plain);
        }
    }
}

TEST(DecryptData, UndecipherableDataStaysAsItIs)
{
    PDFDecryptionManager m;
    EncryptInfo info;
    info.cipherMode = 2;
    info.key = std::string(16, 'k');

    // The vector alone is an empty text.
    std::string vec(16, 'v');
    int size = 16;
    m.DecryptData(info, 1, 0, ub(vec), size);
    EXPECT_EQ(size, 0);
    EXPECT_EQ(vec[0], '\0');

    // No multiple of 16, bad padding, a padding-only result below 16 bytes.
    std::string odd(33, 'o');
    size = 33;
    m.DecryptData(info, 1, 0, ub(odd), size);
    EXPECT_EQ(size, 33);
    EXPECT_EQ(odd, std::string(33, 'o'));

    const std::string k = objectKey(info, 1, 0);
    std::string badPad = std::string(16, 'i') +
                         evpCipher(EVP_aes_128_cbc(), k, std::string(16, 'i'), std::string(16, '\x00'), true, false);
    const std::string before = badPad;
    size = 32;
    m.DecryptData(info, 1, 0, ub(badPad), size);
    EXPECT_EQ(size, 32);
    EXPECT_EQ(badPad, before);

    // A key too short for AES-128 (40-bit AES: n + 9 = 14 bytes) or AES-256.
    EncryptInfo shortKey;
    shortKey.cipherMode = 2;
    shortKey.key = std::string(5, 'k');
    std::string data(32, 'd');
    size = 32;
    m.DecryptData(shortKey, 1, 0, ub(data), size);
    EXPECT_EQ(size, 32);
    EXPECT_EQ(data, std::string(32, 'd'));
    shortKey.cipherMode = 3;
    shortKey.key = std::string(16, 'k');
    m.DecryptData(shortKey, 1, 0, ub(data), size);
    EXPECT_EQ(data, std::string(32, 'd'));

    // Nothing to do.
    size = 0;
    m.DecryptData(info, 1, 0, ub(data), size);
    EXPECT_EQ(size, 0);
    size = -4;
    m.DecryptData(info, 1, 0, ub(data), size);
    EXPECT_EQ(size, -4);
    size = 10;
    m.DecryptData(info, 1, 0, nullptr, size);
    EXPECT_EQ(size, 10);
}

TEST(DecryptString, KeptRecordGivesWhatDecryptDataGives)
{
    // DecryptString keeps one record per CEncrypt and the last object's key.
    // Here the key, cipher and state change behind its back between strings,
    // as a caller's key or a new password changes them, and objects repeat;
    // every result, and the next number rand() gives, must be those of
    // DecryptData on a record made afresh.
    Rng rng(0xd5);
    PDF_KILN::CEncrypt enc;
    for (int i = 0; i < 3000; ++i) {
        if (i % 9 == 0) {
            enc.cipherMode = 1 + (i / 9) % 3;
            enc.Length = enc.cipherMode == 3 ? 256 : (i / 9) % 2 ? 128 : 40;
            enc.R = enc.cipherMode == 3 ? 6 : 4;
            enc.V = enc.cipherMode == 3 ? 5 : 4;
            enc.passwordState = 2 + (i / 9) % 2;
            const std::string key = rng.bytes(32);
            std::memcpy(enc.fileKey, key.data(), key.size());
        } else if (i % 9 == 5) {
            enc.fileKey[rng.uniform(0, 31)] ^= 1;
        }
        PDF_KILN::SObj object(rng.uniform(1, 4), rng.uniform(0, 1));
        EncryptInfo info;
        PDF_KILN::saveEncryptInfo(enc, info);

        std::string data;
        const int shape = rng.uniform(0, 5);
        if (enc.cipherMode >= 2 && shape < 3) {
            // Well-formed AES data under the object's key (when it has one).
            const std::string k = objectKey(info, object.num, object.gen);
            const std::string iv = rng.bytes(16);
            if (k.size() >= (enc.cipherMode == 3 ? 32u : 16u))
                data = iv + evpCipher(enc.cipherMode == 3 ? EVP_aes_256_cbc() : EVP_aes_128_cbc(),
                                      k.substr(0, enc.cipherMode == 3 ? 32 : 16), iv,
                                      rng.bytes(static_cast<size_t>(rng.uniform(0, 300))), true, true);
        } else {
            // Anything: empty, the vector alone, whole blocks with bad padding, odd lengths.
            const int lengths[] = {0, 16, 48, rng.uniform(1, 200)};
            data = rng.bytes(static_cast<size_t>(lengths[rng.uniform(0, 3)]));
        }

        std::srand(static_cast<unsigned>(i));
        std::string expected = data;
        int size = static_cast<int>(expected.size());
        PDFDecryptionManager().DecryptData(info, object.num, object.gen, ub(expected), size);
        expected.resize(static_cast<size_t>(std::max(size, 0)));
        const int nextExpected = std::rand();

        std::srand(static_cast<unsigned>(i));
        std::string got = data;
        EXPECT_EQ(PDF_KILN::DecryptString(enc, &object, got), 0);
        ASSERT_EQ(toHex(got), toHex(expected)) << i << " mode " << enc.cipherMode << " size " << data.size();
        ASSERT_EQ(std::rand(), nextExpected) << i;
    }
}

TEST(PasswordTrials, FortyBitR3ComparesFiveBytes)
{
    const auto [base, fileKey] = make(3, 40, "user", "owner");
    ASSERT_EQ(fileKey.size(), 5u);
    PDFDecryptionManager m;
    bool nonEmpty, empty;
    EncryptInfo info = base;
    for (size_t i = 5; i < 32; ++i)
        info.U[i] = static_cast<char>(info.U[i] ^ 0x5a);
    EXPECT_TRUE(m.getFileKey(info, "user", nonEmpty, empty));
    EXPECT_EQ(info.key, fileKey);
    info = base;
    info.U[4] = static_cast<char>(info.U[4] ^ 1);
    EXPECT_FALSE(m.getFileKey(info, "user", nonEmpty, empty));
}

TEST(PasswordTrials, R6UsesThe127FirstBytesOfAPassword)
{
    const std::string pw127(127, 'q');
    const auto [base, fileKey] = make(6, 256, pw127, "owner");
    PDFDecryptionManager m;
    bool nonEmpty, empty;
    EncryptInfo info = base;
    EXPECT_TRUE(m.getFileKey(info, pw127 + std::string(73, 'x'), nonEmpty, empty));
    EXPECT_EQ(info.key, fileKey);
    info = base;
    EXPECT_FALSE(m.getFileKey(info, std::string(126, 'q'), nonEmpty, empty));
}

TEST(PasswordTrials, R6PermsCheckNeedsAKnownKey)
{
    const auto [base, fileKey] = make(6, 256, "user", "owner");
    PDFDecryptionManager m;
    EncryptInfo info = base;
    // Wrong password and no key: false, /Perms is not used.
    info.Perms = std::string(3, 'x'); // would be unreadable
    EXPECT_FALSE(m.isUserPWDR6(info, "wrong"));
    // With the file key known, /Perms decides even for a wrong password.
    info = base;
    info.key = fileKey;
    EXPECT_TRUE(m.isUserPWDR6(info, "wrong"));
    EXPECT_EQ(info.userPassword, "");
    info.key = std::string(32, '\x01');
    EXPECT_FALSE(m.isUserPWDR6(info, "wrong"));
}

TEST(PasswordTrials, AesRevisionsWithoutA256BitLengthAreRefused)
{
    for (int R : {5, 6}) {
        EncryptInfo info = make(R, 256, "user", "owner").info;
        info.Length = 128;
        PDFDecryptionManager m;
        bool nonEmpty, empty;
        for (const char* pw : {"user", "owner", ""}) {
            EncryptInfo trial = info;
            EXPECT_FALSE(m.getFileKey(trial, pw, nonEmpty, empty)) << R << " " << pw;
            trial = info;
            EXPECT_EQ(m.calPassWordState(trial, pw), 5) << R << " " << pw;
        }
    }
}

TEST(PasswordTrials, UserPasswordWorkedOutFromOwnerStopsAtParenthesis)
{
    PDFDecryptionManager m;
    for (int R : {2, 3, 4}) {
        const int length = R == 2 ? 40 : 128;
        EncryptInfo info = make(R, length, "ab(cd", "owner").info;
        EXPECT_EQ(m.calPassWordState(info, "owner"), 3) << R;
        EXPECT_EQ(info.userPassword, "ab") << R;
        EXPECT_EQ(info.ownerPassword, "owner");

        // A "(" in front keeps the whole padded block.
        info = make(R, length, "(x", "owner").info;
        EXPECT_EQ(m.calPassWordState(info, "owner"), 3) << R;
        EXPECT_EQ(info.userPassword, "(x" + kPad.substr(0, 30)) << R;

        // A user password of 32 bytes without "(" is kept whole.
        const std::string full(32, 'u');
        info = make(R, length, full, "owner").info;
        EXPECT_EQ(m.calPassWordState(info, "owner"), 3) << R;
        EXPECT_EQ(info.userPassword, full) << R;
    }
}

TEST(PasswordTrials, R3UserCheckClearsUserPasswordAndSkipsZeroId)
{
    PDFDecryptionManager m;
    // /U made with no ID; the record's ID starts with 0 and is left out.
    auto [info, fileKey] = make(4, 128, "user", "owner", true, -3904, "");
    info.ID = std::string("\0abc", 4);
    info.key = fileKey;
    info.userPassword = "stale";
    EXPECT_TRUE(m.isUserPWDR3(info, "", false));
    EXPECT_EQ(info.userPassword, "");
    info.ID = "zabc";
    EXPECT_FALSE(m.isUserPWDR3(info, "", false));
}

TEST(PasswordTrials, LongPasswordsAreCutTo32BytesBelowR5)
{
    const std::string pw32(32, 'L');
    const auto [base, fileKey] = make(4, 128, pw32, "owner");
    PDFDecryptionManager m;
    bool nonEmpty, empty;
    EncryptInfo info = base;
    EXPECT_TRUE(m.getFileKey(info, pw32 + "tail beyond the padding", nonEmpty, empty));
    EXPECT_EQ(info.key, fileKey);
}

TEST(PasswordTrials, DamagedRecordsAreRefusedQuietly)
{
    PDFDecryptionManager m;
    bool nonEmpty, empty;
    for (int R : {0, 1, 2, 3, 4, 5, 6, 7}) {
        for (int length : {-8, 0, 5, 40, 128, 256, 4096}) {
            EncryptInfo info;
            info.R = R;
            info.Length = length;
            info.cipherMode = R >= 5 ? 3 : 1;
            // Short or missing values of every kind.
            info.O = std::string(static_cast<size_t>(R * 3), 'o');
            info.U = std::string(static_cast<size_t>(R * 5), 'u');
            info.OE = "x";
            info.Perms = "p";
            EncryptInfo a = info;
            EXPECT_FALSE(m.getFileKey(a, "pw", nonEmpty, empty)) << R << "/" << length;
            EncryptInfo b = info;
            EXPECT_EQ(m.calPassWordState(b, "pw"), 5) << R << "/" << length;
            EncryptInfo c = info;
            EXPECT_FALSE(m.isOwnerPWD(c, "pw"));
            EXPECT_FALSE(m.isUserPWD(c, "pw"));
        }
    }
    // A /Length of 5 bits gives a key of no bytes, which no trial accepts.
    auto [info, fileKey] = make(3, 128, "", "owner");
    info.Length = 5;
    EXPECT_FALSE(m.getFileKey(info, "", nonEmpty, empty));
    EXPECT_TRUE(info.key.empty());
}
