// The encryption manager: its values open with the decryption manager, through the reader, and with qpdf.
#include <gtest/gtest.h>

#include "crypt_test_util.h"

#include "PDFKilnPage/crypt/decryptionmanager.h"
#include "PDFKilnPage/crypt/encryptionmanager.h"

using namespace crypt_test;
using pcrypt::EncryptInfo;

namespace {

std::string hexString(const std::string& s) { return "<" + toHex(s) + ">"; }

// A file with the /Encrypt dictionary of `made` and no strings or streams.
std::string writeEncrypted(const testutil::TempDir& dir, const std::string& name, const Made& made) {
    const EncryptInfo& i = made.info;
    // /V 1 leaves /Length out: the reader's default of 40 bits applies.
    std::string enc = "<< /Filter /Standard /V " + std::to_string(i.V) + " /R " + std::to_string(i.R) +
                      (i.V == 1 ? "" : " /Length " + std::to_string(i.Length)) + " /P " + std::to_string(i.P) + " /O " +
                      hexString(i.O) + " /U " + hexString(i.U);
    if (i.R == 4) enc += " /CF << /StdCF << /CFM /AESV2 /AuthEvent /DocOpen /Length 16 >> >> /StmF /StdCF /StrF /StdCF";
    if (i.R >= 5)
        enc += " /CF << /StdCF << /CFM /AESV3 /AuthEvent /DocOpen /Length 32 >> >> /StmF /StdCF /StrF /StdCF /OE " +
               hexString(i.OE) + " /UE " + hexString(i.UE) + " /Perms " + hexString(i.Perms);
    if (!i.encryptMetadata) enc += " /EncryptMetadata false";
    const std::string path = dir.file(name + ".pdf");
    testutil::writeFile(
        path, buildPdf({"<< /Type /Catalog /Pages 2 0 R >>", "<< /Type /Pages /Kids [] /Count 0 >>", enc + " >>"},
                       "/Root 1 0 R /Encrypt 3 0 R /ID [" + hexString(i.ID) + hexString(i.ID) + "]"));
    return path;
}

}  // namespace

TEST(EncryptionManager, ValuesOpenWithTheDecryptionManagerAndQpdf) {
    const bool qpdf = haveQpdf();
    testutil::TempDir dir;
    const std::pair<int, int> kinds[] = {{2, 40}, {3, 40}, {3, 128}, {4, 128}, {5, 256}, {6, 256}};
    for (const auto& [R, length] : kinds) {
        for (bool metadata : {true, false}) {
            if (R < 4 && !metadata) continue;  // /EncryptMetadata exists from R4 on
            const Made made = make(R, length, "user", "owner", metadata);
            const std::string name = "R" + std::to_string(R) + "-" + std::to_string(length) + (metadata ? "" : "-c");
            SCOPED_TRACE(name);
            EXPECT_EQ(openedKey(made.info, "user"), made.key);
            EXPECT_EQ(openedKey(made.info, "owner"), made.key);
            EXPECT_EQ(openedKey(made.info, "other"), "refused");
            EXPECT_EQ(passwordState(made.info, "user"), 4);
            EXPECT_EQ(passwordState(made.info, "owner"), R == 6 ? 7 : 3);
            // The record the reader makes of the written dictionary opens too.
            const std::string path = writeEncrypted(dir, name, made);
            EXPECT_EQ(openedKey(readInfo(path), "user"), made.key);
            if (!qpdf) continue;
            for (const std::string pw : {"user", "owner"}) {
                const std::string out =
                    runQpdf({"--show-encryption-key", "--show-encryption", "--password=" + pw, path});
                EXPECT_NE(out.find("Supplied password is " + pw + " password"), std::string::npos) << pw << "\n" << out;
                EXPECT_NE(out.find("Encryption key = " + toHex(made.key)), std::string::npos) << out;
                // No warnings (a bad /Perms would give one).
                int status = -1;
                runQpdf({"--check", "--password=" + pw, path}, &status);
                EXPECT_EQ(status, 0) << pw;
            }
        }
    }
}

TEST(EncryptionManager, FixedValuesAndLayout) {
    // R5/R6 at 256 bits: one fixed key of 32 equal bytes whatever the passwords.
    const Made a = make(6, 256, "a", "b");
    const Made b = make(5, 256, "c", "d");
    ASSERT_EQ(a.key.size(), 32u);
    EXPECT_EQ(a.key, std::string(32, a.key[0]));
    EXPECT_EQ(a.key, b.key);
    const std::vector<size_t> sizes = {a.info.O.size(), a.info.U.size(), a.info.OE.size(), a.info.UE.size()};
    EXPECT_EQ(sizes, std::vector<size_t>({48, 48, 32, 32}));  // /O, /U, /OE, /UE
    // The salts are a fixed filler: the same in /O and /U.
    EXPECT_EQ(a.info.O.substr(32), a.info.U.substr(32));

    // /Perms: P, 0xFFFFFFFF, T or F, "adb", 4 filler bytes.
    for (bool metadata : {true, false}) {
        const Made m = make(6, 256, "u", "o", metadata, -3904);
        const std::string perms = evpCipher(EVP_aes_256_ecb(), m.key, "", m.info.Perms, false, false);
        EXPECT_EQ(toHex(perms.substr(0, 8)), "c0f0ffffffffffff");
        EXPECT_EQ(perms.substr(8, 4), std::string(metadata ? "T" : "F") + "adb");
    }

    // R3/R4 /U: 16 bytes of hash, then the first 16 bytes of the padding.
    const Made r4 = make(4, 128, "u", "o");
    ASSERT_EQ(r4.info.U.size(), 32u);
    EXPECT_EQ(r4.info.U.substr(16), std::string(reinterpret_cast<const char*>(pcrypt::ori_key), 16));
    EXPECT_TRUE(r4.info.Perms.empty());

    // An empty owner password takes the user password's place below R5.
    EXPECT_EQ(make(3, 128, "same", "").info.O, make(3, 128, "same", "same").info.O);

    pcrypt::EncryptOption opt;
    opt.saveUPW(nullptr);
    opt.saveOPW("x");
    EXPECT_EQ(opt.userPassword, "");
    EXPECT_EQ(opt.ownerPassword, "x");
}
