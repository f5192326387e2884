// Protected files through the facade: opening with the empty password, then
// with SetSourcePassword, the password situation getSecurity reports, and the
// page content once the right password is in. Files are made with qpdf.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "PDFKilnPage/PDFKilnPage.h"
#include "PDFKilnPage/crypt/keycache.h"

using namespace PDF_KILN;

namespace {

const std::string kSample = std::string(PDFKILN_SOURCE_DIR) + "/samples/sample.pdf";

bool haveQpdf() { return std::system("qpdf --version > /dev/null 2>&1") == 0; }

// Encrypts the sample with qpdf; returns the output path.
std::string encrypted(const std::string& name, const std::string& args) {
    const std::string out = ::testing::TempDir() + "pdfkiln-sec-" + name + ".pdf";
    const std::string cmd = "qpdf --allow-weak-crypto --encrypt " + args + " -- '" + kSample + "' '" + out + "' 2>/dev/null";
    EXPECT_EQ(std::system(cmd.c_str()), 0) << cmd;
    return out;
}

std::string content(CPDFKilnPage& doc, int page) {
    if (doc.setPageNo(page) != 0) return "<no page>";
    const std::string* text = nullptr;
    if (doc.getPageContents(&text) != 0 || !text) return "<no content>";
    return *text;
}

struct Case {
    const char* name;
    const char* qpdfArgs;
};

class Protected : public ::testing::TestWithParam<Case> {};

TEST_P(Protected, PasswordsOpenThePagesAndGetSecurityTellsTheSituation) {
    if (!haveQpdf()) GTEST_SKIP() << "qpdf is not installed";
    CPDFKilnPage plain(kSample.c_str(), "");
    ASSERT_EQ(plain.init(), 0);
    const std::string expected = content(plain, 1);

    const std::string path = encrypted(GetParam().name, GetParam().qpdfArgs);

    // Without a password: the file opens, but says a password is needed.
    CPDFKilnPage doc(path.c_str(), "");
    ASSERT_EQ(doc.init(), 0);
    PASSWORD_TYPE type = ePasswordNone;
    int permissions = 0;
    EXPECT_EQ(doc.getSecurity(type, permissions), 0);
    EXPECT_EQ(type, ePasswordRequired);
    EXPECT_EQ(permissions, -4);
    EXPECT_NE(doc.getEncryptString().find("/Standard"), std::string::npos);

    // The user password: one level matched.
    CPDFKilnPage user(path.c_str(), "");
    ASSERT_EQ(user.init(), 0);
    EXPECT_EQ(user.SetSourcePassword(std::string("user")), 4);
    EXPECT_EQ(user.getPageCount(), 2);
    EXPECT_EQ(content(user, 1), expected);
    user.getSecurity(type, permissions);
    EXPECT_EQ(type, ePasswordPartial);

    // The owner password opens the pages too.
    CPDFKilnPage owner(path.c_str(), "");
    ASSERT_EQ(owner.init(), 0);
    const int state = owner.SetSourcePassword(std::string("owner"));
    EXPECT_TRUE(state == 3 || state == 7) << state;
    EXPECT_EQ(content(owner, 1), expected);

    // A wrong password: no level matched.
    CPDFKilnPage wrong(path.c_str(), "");
    ASSERT_EQ(wrong.init(), 0);
    EXPECT_EQ(wrong.SetSourcePassword(std::string("nope")), 5);
    std::remove(path.c_str());
}

INSTANTIATE_TEST_SUITE_P(Revisions, Protected,
                         ::testing::Values(Case{"r2", "user owner 40"}, Case{"r3", "user owner 128 --use-aes=n"},
                                           Case{"r4aes", "user owner 128 --use-aes=y"},
                                           Case{"r6", "user owner 256"}),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(Unprotected, GetSecurityLeavesTheDefaults) {
    CPDFKilnPage doc(kSample.c_str(), "");
    ASSERT_EQ(doc.init(), 0);
    PASSWORD_TYPE type = ePasswordRequired;
    int permissions = 0;
    EXPECT_EQ(doc.getSecurity(type, permissions), 0);
    EXPECT_EQ(type, ePasswordNone);
    EXPECT_EQ(permissions, -4);
    EXPECT_TRUE(doc.getEncryptString().empty());
    EXPECT_EQ(doc.SetSourcePassword(), 8) << "not encrypted: nothing to do";
}

TEST(EmptyUserPassword, OpensWithoutAsking) {
    if (!haveQpdf()) GTEST_SKIP() << "qpdf is not installed";
    CPDFKilnPage plain(kSample.c_str(), "");
    ASSERT_EQ(plain.init(), 0);
    // Page 1 is Flate-encoded: its decoded bytes do not depend on how qpdf
    // frames the stream when it writes the encrypted copy.
    const std::string expected = content(plain, 1);
    const std::string path = encrypted("empty", "'' owner 128 --use-aes=y");
    CPDFKilnPage doc(path.c_str(), "");
    ASSERT_EQ(doc.init(), 0);
    SFileInfo info;
    doc.GetSourceFileInfo(info);
    EXPECT_TRUE(info.keyOpenWithEmpty);
    EXPECT_FALSE(info.passwordNeeded);
    EXPECT_EQ(doc.getPageCount(), 2);
    EXPECT_EQ(content(doc, 1), expected);
    std::remove(path.c_str());
}

TEST(PasswordEntry, ConstructorPasswordIsReadWithBySetSourcePassword) {
    // The opening reads with the empty password whatever the constructor got;
    // setting that same password afterwards must read the document again,
    // since its key is not the one the opening read with.
    if (!haveQpdf()) GTEST_SKIP() << "qpdf is not installed";
    CPDFKilnPage plain(kSample.c_str(), "");
    ASSERT_EQ(plain.init(), 0);
    const std::string expected = content(plain, 1);
    const std::string path = encrypted("ctorpw", "user owner 256");
    for (const char* pw : {"user", "owner"}) {
        CPDFKilnPage doc(path.c_str(), pw);
        ASSERT_EQ(doc.init(), 0);
        doc.SetSourcePassword(std::string(pw));
        EXPECT_EQ(doc.getPageCount(), 2) << pw;
        EXPECT_EQ(content(doc, 1), expected) << pw;
        doc.SetSourcePassword(std::string(pw));  // the same key again: nothing changes
        EXPECT_EQ(doc.getPageCount(), 2) << pw;
    }
    std::remove(path.c_str());
}

TEST(KeyDerivation, EachR6HashRunsOncePerDocument) {
    // Opening runs the trials of the empty password (its key, its /U check,
    // its /O check); setting a password runs them again and those of the new
    // one. Each distinct hash is computed once; the rest come from the
    // document's cache, with the results of every trial as before.
    if (!haveQpdf()) GTEST_SKIP() << "qpdf is not installed";
    CPDFKilnPage plain(kSample.c_str(), "");
    ASSERT_EQ(plain.init(), 0);
    const std::string expected = content(plain, 1);
    const std::string path = encrypted("r6count", "user owner 256");
    using pcrypt::DerivedKeyCache;
    const struct {
        const char* password;
        int state;
        std::size_t hashes; // after init, 3: the empty password's key, /U and /O checks
    } cases[] = {{"user", 4, 3 + 3}, {"owner", 7, 3 + 4}, {"nope", 5, 3 + 3}};
    for (const auto& c : cases) {
        CPDFKilnPage doc(path.c_str(), "");
        ASSERT_EQ(doc.init(), 0);
        const DerivedKeyCache& cache = *doc.getSource()->fileInfo.encrypt.derivedKeys;
        EXPECT_EQ(cache.computed(DerivedKeyCache::HashR6), 3u);
        EXPECT_EQ(doc.SetSourcePassword(std::string(c.password)), c.state);
        EXPECT_EQ(cache.computed(DerivedKeyCache::HashR6), c.hashes) << c.password;
        PASSWORD_TYPE type = ePasswordNone;
        int permissions = 0;
        doc.getSecurity(type, permissions); // the trials once more, all known
        EXPECT_EQ(cache.computed(DerivedKeyCache::HashR6), c.hashes) << c.password;
        if (c.state != 5) {
            EXPECT_EQ(content(doc, 1), expected);
        }
    }
    std::remove(path.c_str());
}

}  // namespace
