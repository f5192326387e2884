// Password trials and decryption on files qpdf encrypted at every revision, and on the corpus's encrypted files.
#include <gtest/gtest.h>

#include "crypt_test_util.h"

#include "PDFKilnPage/crypt/decryptionmanager.h"
#include "pdfkiln_sourfile.h"
#include "pfdecrypt.h"

using namespace crypt_test;
using pcrypt::EncryptInfo;
using pcrypt::PDFDecryptionManager;
using testutil::TempDir;

namespace {

const char* kContent = "BT /F1 12 Tf 20 20 Td (Kiln content stream) Tj ET\n";
const char* kTitle = "A title (with parentheses) to decrypt";
const char* kId = "5a112233445566778899aabbccddeeff";

struct Encrypted {
    EncryptInfo info;                 // as the reader fills it from the dictionary
    std::string qpdfKey;              // the file key qpdf reports
    std::string rawStream, rawTitle;  // the still encrypted content stream and /Title
    int streamObj = 0, titleObj = 0;
};

// A page with a content stream and an /Info title, encrypted by qpdf, with its still encrypted stream and title.
Encrypted encrypt(const TempDir& dir, const std::string& name, const std::vector<std::string>& encryptArgs,
                  const std::string& user, const std::string& owner, const std::string& id = kId) {
    const std::string content = kContent, base = dir.file("base.pdf"), path = dir.file(name + ".pdf");
    testutil::writeFile(
        base, buildPdf({"<< /Type /Catalog /Pages 2 0 R >>", "<< /Type /Pages /Kids [3 0 R] /Count 1 >>",
                        "<< /Type /Page /Parent 2 0 R /MediaBox [0 0 200 200] /Contents 4 0 R >>",
                        "<< /Length " + std::to_string(content.size()) + " >>\nstream\n" + content + "\nendstream",
                        "<< /Title (A title \\(with parentheses\\) to decrypt) >>"},
                       "/Root 1 0 R /Info 5 0 R /ID [<" + id + "><" + id + ">]"));
    std::vector<std::string> args = {"--allow-weak-crypto", "--object-streams=disable", "--compress-streams=n",
                                     "--decode-level=none", "--encrypt", user, owner};
    args.insert(args.end(), encryptArgs.begin(), encryptArgs.end());
    args.insert(args.end(), {"--", base, path});
    int status = -1;
    runQpdf(args, &status);
    EXPECT_TRUE(status == 0 || status == 3) << name;

    Encrypted e;
    e.info = readInfo(path);
    e.qpdfKey = qpdfKey(path, owner.empty() ? user : owner);
    const std::string raw = testutil::readFile(path);  // written without object streams
    for (int n = 1; n < 20; ++n) {
        const size_t at = raw.find("\n" + std::to_string(n) + " 0 obj"), end = raw.find("endobj", at);
        if (at == std::string::npos || end == std::string::npos) continue;
        const std::string obj = raw.substr(at, end - at);
        size_t p = obj.find("stream");
        const size_t len = obj.find("/Length");
        if (p != std::string::npos && len != std::string::npos) {
            if (e.streamObj) continue;
            e.streamObj = n;
            p += obj[p + 6] == '\r' ? 8 : 7;
            e.rawStream = obj.substr(p, std::strtoul(obj.c_str() + len + 7, nullptr, 10));
        } else if ((p = obj.find("/Title")) != std::string::npos && !e.titleObj) {
            e.titleObj = n;
            pdftest::Source src(obj.substr(p + 6));
            std::string token;
            PDF_KILN::readPDFString(src.file, token);
            PDF_KILN::CStringType s;
            s.noDecrypt = true;
            s.isHex = token == "<";
            s.Read(src.file);
            e.rawTitle = s.text;
        }
    }
    return e;
}

struct Config {
    const char* name;
    std::vector<std::string> args;
    int R, cipherMode;
    bool encryptMetadata;
};

void PrintTo(const Config& c, std::ostream* os) { *os << c.name; }

class QpdfRevision : public ::testing::TestWithParam<Config> {};

}  // namespace

TEST_P(QpdfRevision, PasswordStatesKeysAndData) {
    if (!haveQpdf()) GTEST_SKIP() << "qpdf not available";
    const Config& cfg = GetParam();
    TempDir dir;
    PDFDecryptionManager m;

    // Distinct user and owner passwords.
    const Encrypted e = encrypt(dir, cfg.name, cfg.args, "user-pw", "owner-pw");
    ASSERT_EQ(e.info.R, cfg.R);
    ASSERT_EQ(e.info.cipherMode, cfg.cipherMode);
    ASSERT_EQ(e.info.encryptMetadata, cfg.encryptMetadata);
    ASSERT_FALSE(e.qpdfKey.empty());
    ASSERT_EQ(e.qpdfKey.size(), static_cast<size_t>(e.info.Length / 8));
    for (const std::string pw : {"user-pw", "owner-pw", "wrong"}) {
        const Trial t = tryKey(e.info, pw);
        EXPECT_EQ(t.ok, pw != "wrong") << pw;
        EXPECT_TRUE(t.nonEmpty);
        EXPECT_FALSE(t.empty);
        EXPECT_EQ(toHex(t.info.key) == toHex(e.qpdfKey), t.ok) << pw;
    }
    // The key deciphers qpdf's strings and streams.
    const EncryptInfo user = tryKey(e.info, "user-pw").info;
    EXPECT_EQ(decrypt(user, e.streamObj, 0, e.rawStream), kContent);
    EXPECT_EQ(decrypt(user, e.titleObj, 0, e.rawTitle), kTitle);

    EncryptInfo info = e.info;
    EXPECT_EQ(m.calPassWordState(info, "user-pw"), 4);
    EXPECT_TRUE(info.passwordRequired);
    EXPECT_TRUE(info.passwordChecked);
    EXPECT_EQ(toHex(info.key), toHex(e.qpdfKey));
    // At R6 the owner trial's key opens /Perms, so the owner password counts as both; below R5 /O gives the user's.
    info = e.info;
    EXPECT_EQ(m.calPassWordState(info, "owner-pw"), cfg.R == 6 ? 7 : 3);
    EXPECT_EQ(info.ownerPassword, cfg.R == 6 ? "" : "owner-pw");
    if (cfg.R < 5) {
        EXPECT_EQ(info.userPassword, "user-pw");
    }
    EXPECT_EQ(toHex(info.key), toHex(e.qpdfKey));
    // Failed trials clear the key, but at R3/R4 the last owner trial leaves its key (none to restore).
    info = e.info;
    EXPECT_EQ(m.calPassWordState(info, "wrong"), 5);
    EXPECT_EQ(info.key.empty(), cfg.R == 2 || cfg.R >= 5);
    EXPECT_NE(toHex(info.key), toHex(e.qpdfKey));

    // The same password for both.
    const Encrypted same = encrypt(dir, std::string(cfg.name) + "-same", cfg.args, "both-pw", "both-pw");
    EXPECT_EQ(toHex(tryKey(same.info, "both-pw").info.key), toHex(same.qpdfKey));
    info = same.info;
    EXPECT_EQ(m.calPassWordState(info, "both-pw"), 7);
    EXPECT_FALSE(info.passwordRequired);
    EXPECT_TRUE(info.passwordChecked);
    EXPECT_EQ(info.ownerPassword, "");

    // An empty user password: any password opens, only the owner's is known.
    const Encrypted open = encrypt(dir, std::string(cfg.name) + "-open", cfg.args, "", "owner-only");
    const Trial any = tryKey(open.info, "anything");
    EXPECT_TRUE(any.ok && any.empty && !any.nonEmpty);
    EXPECT_EQ(toHex(any.info.key), toHex(open.qpdfKey));
    EXPECT_EQ(decrypt(any.info, open.streamObj, 0, open.rawStream), kContent);
    info = open.info;
    EXPECT_EQ(m.calPassWordState(info, "owner-only"), 2);
    EXPECT_TRUE(info.passwordRequired);
    EXPECT_FALSE(info.passwordChecked);
    EXPECT_EQ(info.ownerPassword, "owner-only");
    EXPECT_EQ(info.userPassword, "");
    for (const char* pw : {"wrong", ""}) EXPECT_EQ(passwordState(open.info, pw), 6) << pw;
}

INSTANTIATE_TEST_SUITE_P(
    Crypt, QpdfRevision,
    ::testing::Values(
        Config{"R2", {"40"}, 2, 1, true},
        Config{"R3", {"128", "--use-aes=n"}, 3, 1, true},
        Config{"R4_RC4", {"128", "--use-aes=n", "--force-V4"}, 4, 1, true},
        Config{"R4_AES", {"128", "--use-aes=y"}, 4, 2, true},
        Config{"R4_AES_ClearMeta", {"128", "--use-aes=y", "--cleartext-metadata"}, 4, 2, false},
        Config{"R4_RC4_ClearMeta", {"128", "--use-aes=n", "--force-V4", "--cleartext-metadata"}, 4, 1, false},
        Config{"R5", {"256", "--force-R5"}, 5, 3, true},
        Config{"R6", {"256"}, 6, 3, true},
        Config{"R6_ClearMeta", {"256", "--cleartext-metadata"}, 6, 3, false}),
    [](const ::testing::TestParamInfo<Config>& p) { return std::string(p.param.name); });

TEST(QpdfFiles, IdStartingWithZeroIsLeftOutOfTheR3UserCheck) {
    if (!haveQpdf()) GTEST_SKIP() << "qpdf not available";
    TempDir dir;
    const Encrypted e =
        encrypt(dir, "zero-id", {"128", "--use-aes=y"}, "user-pw", "owner-pw", "00112233445566778899aabbccddeeff");
    ASSERT_EQ(e.info.ID[0], '\0');
    // Opening hashes the whole ID and works.
    const Trial t = tryKey(e.info, "user-pw");
    EXPECT_TRUE(t.ok);
    EXPECT_EQ(toHex(t.info.key), toHex(e.qpdfKey));
    // The classification's user check leaves the ID out, so neither password matches /U there.
    for (const char* pw : {"user-pw", "owner-pw"}) EXPECT_EQ(passwordState(e.info, pw), 5) << pw;
}

TEST(QpdfCorpus, KnownPasswordsGiveQpdfKeys) {
    const std::string dir = std::string(PDFKILN_CORPUS_DIR) + "/qpdf/qpdf/qtest/qpdf/";
    if (!haveQpdf() || !testutil::exists(dir)) GTEST_SKIP() << "qpdf or the corpus not available";
    // File names carry the passwords: U= user, O= owner, none given = empty.
    const struct {
        const char *file, *user, *owner;
    } cases[] = {
        {"enc-R2,V1,U=view,O=master.pdf", "view", "master"}, {"enc-R2,V1,O=master.pdf", "", "master"},
        {"enc-R3,V2,U=view,O=master.pdf", "view", "master"}, {"enc-R3,V2,O=master.pdf", "", "master"},
        {"enc-R3,V2,U=view,O=view.pdf", "view", "view"},
        {"enc-XI-R6,V5,U=view,O=master.pdf", "view", "master"}, {"enc-XI-R6,V5,O=master.pdf", "", "master"},
        {"enc-XI-R6,V5,U=wwwww,O=wwwww.pdf", "wwwww", "wwwww"},
    };
    int checked = 0;
    for (const auto& c : cases) {
        const std::string path = dir + c.file;
        if (!testutil::exists(path)) continue;
        const EncryptInfo read = readInfo(path);
        const std::string key = qpdfKey(path, c.owner);
        const bool openFile = c.user[0] == '\0';
        ASSERT_FALSE(key.empty()) << c.file;
        for (const char* pw : {c.user, c.owner}) {
            const Trial t = tryKey(read, pw);
            EXPECT_TRUE(t.ok) << c.file << " / " << pw;
            EXPECT_EQ(t.empty, openFile) << c.file;
            EXPECT_EQ(toHex(t.info.key), toHex(key)) << c.file << " / " << pw;
        }
        const int expected = openFile ? 2 : std::string(c.user) == c.owner || read.R == 6 ? 7 : 3;
        EXPECT_EQ(passwordState(read, c.owner), expected) << c.file;
        EXPECT_EQ(passwordState(read, "not-the-password"), openFile ? 6 : 5) << c.file;
        ++checked;
    }
    if (checked == 0) GTEST_SKIP() << "no encrypted corpus files found";
}
