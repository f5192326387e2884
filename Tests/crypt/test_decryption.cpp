// The decryption manager's helpers, per-object cipher and the unusual inputs of its password trials.
#include <gtest/gtest.h>

#include "crypt_test_util.h"

#include "PDFKilnPage/crypt/decryptionmanager.h"
#include "PDFKilnPage/crypt/encryptionmanager.h"
#include "pfdecrypt.h"

using namespace crypt_test;
using pcrypt::EncryptInfo;
using pcrypt::PDFDecryptionManager;

namespace {

const std::string kPad(reinterpret_cast<const char*>(pcrypt::ori_key), 32);

// Algorithm 2.B written against OpenSSL, as the reference for caculateHashR6.
std::string referenceHashR6(const std::string& password, const std::string& start, const std::string& U, bool isUser) {
    const std::string p = password.substr(0, 127);
    const std::string u = isUser ? "" : U.substr(0, 48);
    std::string K = start.substr(0, 32);
    for (int round = 0;; ++round) {
        std::string K1;
        for (int i = 0; i < 64; ++i) K1 += p + K + u;
        const std::string E = evpCipher(EVP_aes_128_cbc(), K.substr(0, 16), K.substr(16, 16), K1, true, false);
        int sum = 0;
        for (int i = 0; i < 16; ++i) sum += static_cast<unsigned char>(E[static_cast<size_t>(i)]);
        K = evpDigest(sum % 3 == 0 ? EVP_sha256() : sum % 3 == 1 ? EVP_sha384() : EVP_sha512(), E);
        if (round >= 63 && static_cast<unsigned char>(E.back()) <= round - 31) break;
    }
    return K.substr(0, 32);
}

std::string objectKey(const EncryptInfo& info, int obj, int gen) {
    std::string k;
    PDFDecryptionManager().calculateKey(obj, gen, info, k);
    return k;
}

EncryptInfo cipher(int mode, const std::string& key) {
    EncryptInfo info;
    info.cipherMode = mode;
    info.key = key;
    return info;
}

// Data as a file's writer enciphers it: RC4, or the vector followed by padded AES-CBC.
std::string encipher(const EncryptInfo& info, int obj, int gen, const std::string& plain, const std::string& iv) {
    const std::string k = objectKey(info, obj, gen);
    if (info.cipherMode < 2) return sslRc4(k, plain);
    return iv + evpCipher(info.cipherMode == 2 ? EVP_aes_128_cbc() : EVP_aes_256_cbc(), k, iv, plain, true, true);
}

}  // namespace

TEST(DecryptionHelpers, PaddingIntegersPasswordCutAndObjectKeys) {
    PDFDecryptionManager m;
    const std::tuple<std::string, int, std::string> pads[] = {
        {"abc", 3, "abc" + kPad.substr(0, 29)}, {"", 0, kPad}, {"x", 40, "x"}, {"", -7, kPad}};
    for (auto [s, n, expect] : pads) {
        m.padKey(s, n);
        EXPECT_EQ(s, expect) << n;
    }
    unsigned char buf[32];
    std::memset(buf, 'z', sizeof buf);
    m.padKey(buf, 30);
    EXPECT_EQ(toHex(buf + 29, 3), toHex(std::string("z") + kPad.substr(0, 2)));

    const std::tuple<int, int, const char*> ints[] = {
        {-4, 4, "fcffffff"}, {0x12345678, 3, "785634"}, {0x12345678, 6, "785634120000"}, {5, 0, ""}};
    for (const auto& [value, n, hex] : ints) {
        std::string w;
        m.padInteger(w, value, n);
        EXPECT_EQ(toHex(w), hex) << value << " " << n;
    }
    unsigned char b[8] = {0};
    m.padInteger(b, 2, 0x0a0b0c0d, 2);
    EXPECT_EQ(toHex(b, 8), "00000d0c00000000");

    EXPECT_EQ(pcrypt::getUTF8Str(std::string(200, 'p')).size(), 127u);
    EXPECT_EQ(pcrypt::getUTF8Str("\xc3\xa9t\xc3\xa9"), "\xc3\xa9t\xc3\xa9");  // bytes as given

    // RC4: MD5 of key, 3 bytes object, 2 bytes generation, cut to n + 5.
    EXPECT_EQ(objectKey(cipher(1, fromHex("0102030405")), 0x123456 + (7 << 24), 0x10002),
              evpDigest(EVP_md5(), fromHex("01020304055634120200")).substr(0, 10));
    // AES-128 adds "sAlT", and the cut counts it: n + 9 bytes.
    EXPECT_EQ(objectKey(cipher(2, fromHex("0102030405")), 12, 0),
              evpDigest(EVP_md5(), fromHex("01020304050c00000000") + "sAlT").substr(0, 14));
    EXPECT_EQ(objectKey(cipher(2, std::string(16, '\x33')), 12, 0).size(), 16u);
    // AES-256 and a caller's object key use the key as it stands.
    EXPECT_EQ(objectKey(cipher(3, std::string(32, '\x44')), 12, 3), std::string(32, '\x44'));
    EncryptInfo given = cipher(1, std::string(32, '\x44'));
    given.keyIsObjectKey = true;
    EXPECT_EQ(objectKey(given, 12, 3), given.key);
}

TEST(DecryptionHelpers, HashR6MatchesReference) {
    Rng rng(0x6b6a);
    PDFDecryptionManager m;
    std::vector<PDFDecryptionManager::HashR6Question> questions;
    std::vector<std::string> expected;
    for (int i = 0; i < 21; ++i) {  // 1 + 2 + ... + 6 questions
        const std::string pw = rng.bytes(static_cast<size_t>(rng.uniform(0, i == 0 ? 200 : 40)));
        const std::string start = rng.bytes(32 + static_cast<size_t>(rng.uniform(0, 32)));
        const std::string U = rng.bytes(48);
        expected.push_back(toHex(referenceHashR6(pw, start, U, i % 2 == 0)));
        ASSERT_EQ(toHex(m.caculateHashR6(pw, start, U, i % 2 == 0)), expected.back());
        questions.push_back({pw, start, U, i % 2 == 0});
    }
    // Side by side in groups of 1 to 6 (owner and user questions of unlike lengths, ending in unlike rounds).
    for (size_t first = 0, size = 1; first < questions.size(); first += size, size = size % 6 + 1) {
        const size_t n = std::min(size, questions.size() - first);
        const std::vector<std::string> got =
            m.caculateHashesR6({questions.begin() + static_cast<long>(first), questions.begin() + static_cast<long>(first + n)});
        ASSERT_EQ(got.size(), n);
        for (size_t j = 0; j < n; ++j) ASSERT_EQ(toHex(got[j]), expected[first + j]) << first + j;
    }
    EXPECT_THROW(m.caculateHashR6("pw", std::string(31, 'h'), std::string(48, 'u'), true), std::out_of_range);
    EXPECT_THROW(m.caculateHashesR6(std::vector<PDFDecryptionManager::HashR6Question>(7, questions[0])), std::out_of_range);
}

TEST(DecryptData, EveryCipherMatchesOpenSSL) {
    // RC4 keeps the size; AES drops the vector and the padding.
    Rng rng(0xdd);
    for (int mode : {1, 2, 3}) {
        for (int i = 0; i < 2000; ++i) {
            const size_t keyBytes = mode == 1 ? static_cast<size_t>(rng.uniform(5, 16)) : mode == 2 ? 16 : 32;
            const EncryptInfo info = cipher(mode, rng.bytes(keyBytes));
            const int obj = rng.uniform(1, 100000), gen = rng.uniform(0, 3);
            const std::string plain = rng.bytes(static_cast<size_t>(rng.uniform(mode == 1 ? 1 : 0, 300)));
            ASSERT_EQ(decrypt(info, obj, gen, encipher(info, obj, gen, plain, rng.bytes(16))), plain) << mode;
        }
    }
}

TEST(DecryptData, UndecipherableDataStaysAsItIs) {
    const EncryptInfo aes = cipher(2, std::string(16, 'k'));
    const std::string iv(16, 'i');
    // Whole blocks whose padding byte is 0.
    const std::string badPad =
        iv + evpCipher(EVP_aes_128_cbc(), objectKey(aes, 1, 0), iv, std::string(16, '\0'), true, false);
    // No multiple of 16, bad padding, a key too short for AES-128 (n + 9 = 14 bytes) or AES-256, no size.
    const std::tuple<EncryptInfo, std::string, int> cases[] = {
        {aes, std::string(33, 'o'), 33},       {aes, badPad, 32},
        {cipher(2, std::string(5, 'k')), std::string(32, 'd'), 32},
        {cipher(3, std::string(16, 'k')), std::string(32, 'd'), 32},
        {aes, std::string(32, 'd'), 0},        {aes, std::string(32, 'd'), -4},
    };
    PDFDecryptionManager m;
    for (const auto& [info, data, given] : cases) {
        std::string buf = data;
        int size = given;
        m.DecryptData(info, 1, 0, ub(buf), size);
        EXPECT_EQ(size, given);
        EXPECT_EQ(buf, data);
    }
    int size = 10;
    m.DecryptData(aes, 1, 0, nullptr, size);
    EXPECT_EQ(size, 10);
    // The vector alone is an empty text.
    std::string vec(16, 'v');
    size = 16;
    m.DecryptData(aes, 1, 0, ub(vec), size);
    EXPECT_EQ(size, 0);
    EXPECT_EQ(vec[0], '\0');
}

TEST(DecryptString, KeptRecordGivesWhatDecryptDataGives) {
    // DecryptString's kept record and object key must follow key, cipher and state changed behind its back:
    // every result, and the next rand(), are those of DecryptData on a fresh record.
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
            const std::string iv = rng.bytes(16);
            if (objectKey(info, object.num, object.gen).size() >= (enc.cipherMode == 3 ? 32u : 16u))
                data = encipher(info, object.num, object.gen, rng.bytes(static_cast<size_t>(rng.uniform(0, 300))), iv);
        } else {
            // Anything: empty, the vector alone, whole blocks with bad padding, odd lengths.
            const int lengths[] = {0, 16, 48, rng.uniform(1, 200)};
            data = rng.bytes(static_cast<size_t>(lengths[rng.uniform(0, 3)]));
        }

        std::srand(static_cast<unsigned>(i));
        const std::string expected = decrypt(info, object.num, object.gen, data);
        const int nextExpected = std::rand();

        std::srand(static_cast<unsigned>(i));
        std::string got = data;
        EXPECT_EQ(PDF_KILN::DecryptString(enc, &object, got), 0);
        ASSERT_EQ(toHex(got), toHex(expected)) << i << " mode " << enc.cipherMode << " size " << data.size();
        ASSERT_EQ(std::rand(), nextExpected) << i;
    }
}

TEST(PasswordTrials, KeysFromCutPasswordsAndShortComparisons) {
    // 40-bit R3 compares five bytes of /U: damage after them is ignored, within them not.
    const auto [r3, r3Key] = make(3, 40, "user", "owner");
    ASSERT_EQ(r3Key.size(), 5u);
    EncryptInfo info = r3;
    for (size_t i = 5; i < 32; ++i) info.U[i] = static_cast<char>(info.U[i] ^ 0x5a);
    EXPECT_EQ(openedKey(info, "user"), r3Key);
    info = r3;
    info.U[4] = static_cast<char>(info.U[4] ^ 1);
    EXPECT_EQ(openedKey(info, "user"), "refused");

    // R6 uses the first 127 bytes of a password.
    const std::string pw127(127, 'q');
    const auto [r6, r6Key] = make(6, 256, pw127, "owner");
    EXPECT_EQ(openedKey(r6, pw127 + std::string(73, 'x')), r6Key);
    EXPECT_EQ(openedKey(r6, std::string(126, 'q')), "refused");

    // Below R5 passwords are cut to 32 bytes.
    const std::string pw32(32, 'L');
    const auto [r4, r4Key] = make(4, 128, pw32, "owner");
    EXPECT_EQ(openedKey(r4, pw32 + "tail beyond the padding"), r4Key);
}

TEST(PasswordTrials, UserChecksCalledAlone) {
    PDFDecryptionManager m;
    const auto [base, fileKey] = make(6, 256, "user", "owner");
    EncryptInfo info = base;
    // Wrong password and no key: false, /Perms is not used.
    info.Perms = std::string(3, 'x');  // would be unreadable
    EXPECT_FALSE(m.isUserPWDR6(info, "wrong"));
    // With the file key known, /Perms decides even for a wrong password.
    info = base;
    info.key = fileKey;
    EXPECT_TRUE(m.isUserPWDR6(info, "wrong"));
    EXPECT_EQ(info.userPassword, "");
    info.key = std::string(32, '\x01');
    EXPECT_FALSE(m.isUserPWDR6(info, "wrong"));

    // /U made with no ID; the record's ID starts with 0 and is left out.
    auto [r4, r4Key] = make(4, 128, "user", "owner", true, -3904, "");
    r4.ID = std::string("\0abc", 4);
    r4.key = r4Key;
    r4.userPassword = "stale";
    EXPECT_TRUE(m.isUserPWDR3(r4, "", false));
    EXPECT_EQ(r4.userPassword, "");
    r4.ID = "zabc";
    EXPECT_FALSE(m.isUserPWDR3(r4, "", false));
}

TEST(PasswordTrials, UserPasswordWorkedOutFromOwnerStopsAtParenthesis) {
    // The text before a "(" is kept; a "(" in front keeps the whole padded block, as do 32 bytes without "(".
    PDFDecryptionManager m;
    const std::pair<std::string, std::string> cases[] = {
        {"ab(cd", "ab"}, {"(x", "(x" + kPad.substr(0, 30)}, {std::string(32, 'u'), std::string(32, 'u')}};
    for (int R : {2, 3, 4}) {
        for (const auto& [user, recovered] : cases) {
            EncryptInfo info = make(R, R == 2 ? 40 : 128, user, "owner").info;
            EXPECT_EQ(m.calPassWordState(info, "owner"), 3) << R;
            EXPECT_EQ(info.userPassword, recovered) << R;
            EXPECT_EQ(info.ownerPassword, "owner");
        }
    }
}

TEST(PasswordTrials, DamagedRecordsAreRefusedQuietly) {
    PDFDecryptionManager m;
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
            EXPECT_FALSE(tryKey(info, "pw").ok) << R << "/" << length;
            EXPECT_EQ(passwordState(info, "pw"), 5) << R << "/" << length;
            EncryptInfo c = info;
            EXPECT_FALSE(m.isOwnerPWD(c, "pw"));
            EXPECT_FALSE(m.isUserPWD(c, "pw"));
        }
    }
    // AES revisions without a 256-bit length are refused for every password.
    for (int R : {5, 6}) {
        EncryptInfo info = make(R, 256, "user", "owner").info;
        info.Length = 128;
        for (const char* pw : {"user", "owner", ""}) {
            EXPECT_FALSE(tryKey(info, pw).ok) << R << " " << pw;
            EXPECT_EQ(passwordState(info, pw), 5) << R << " " << pw;
        }
    }
    // A /Length of 5 bits gives a key of no bytes, which no trial accepts.
    EncryptInfo info = make(3, 128, "", "owner").info;
    info.Length = 5;
    const Trial t = tryKey(info, "");
    EXPECT_FALSE(t.ok);
    EXPECT_TRUE(t.info.key.empty());
}
