// Protected files through the facade: opening with the empty password, then with SetSourcePassword, the password
// situation getSecurity reports, and the page content once the right password is in. Files are made with qpdf.
#include <gtest/gtest.h>

#include "PDFKilnPage/PDFKilnPage.h"
#include "PDFKilnPage/crypt/keycache.h"
#include "test_util.h"

using namespace PDF_KILN;
using pcrypt::DerivedKeyCache;

namespace {

const std::string kSample = std::string(PDFKILN_SOURCE_DIR) + "/samples/sample.pdf";

std::string content(CPDFKilnPage& doc, int page) {
    const std::string* text = nullptr;
    if (doc.setPageNo(page) != 0 || doc.getPageContents(&text) != 0 || !text) return "<no content>";
    return *text;
}

// Each test encrypts the sample with qpdf and compares page 1 (Flate-encoded, so its decoded bytes do not depend on how
// qpdf frames the stream) with the plain sample's.
class Protected : public ::testing::Test {
protected:
    void SetUp() override {
        if (testutil::run("qpdf --version") != 0) GTEST_SKIP() << "qpdf is not installed";
        CPDFKilnPage plain(kSample.c_str(), "");
        ASSERT_EQ(plain.init(), 0);
        expected = content(plain, 1);
    }
    std::string encrypted(const std::string& args) {
        const std::string out = tmp.file("protected.pdf");
        EXPECT_EQ(testutil::run("qpdf --allow-weak-crypto --encrypt " + args + " -- " + testutil::quote(kSample) + " " +
                                testutil::quote(out)), 0) << args;
        return out;
    }
    testutil::TempDir tmp;
    std::string expected;
};

TEST_F(Protected, PasswordsOpenThePagesAndGetSecurityTellsTheSituation) {
    for (const char* args : {"user owner 40", "user owner 128 --use-aes=n", "user owner 128 --use-aes=y",
                             "user owner 256"}) {
        const std::string path = encrypted(args);
        // Without a password: the file opens, but says a password is needed.
        CPDFKilnPage doc(path.c_str(), "");
        ASSERT_EQ(doc.init(), 0);
        PASSWORD_TYPE type = ePasswordNone;
        int permissions = 0;
        EXPECT_EQ(doc.getSecurity(type, permissions), 0);
        EXPECT_EQ(type, ePasswordRequired) << args;
        EXPECT_EQ(permissions, -4);
        EXPECT_NE(doc.getEncryptString().find("/Standard"), std::string::npos);
        // The user password: one level matched.
        CPDFKilnPage user(path.c_str(), "");
        ASSERT_EQ(user.init(), 0);
        EXPECT_EQ(user.SetSourcePassword(std::string("user")), 4) << args;
        EXPECT_EQ(user.getPageCount(), 2);
        EXPECT_EQ(content(user, 1), expected) << args;
        user.getSecurity(type, permissions);
        EXPECT_EQ(type, ePasswordPartial) << args;
        // The owner password opens the pages too.
        CPDFKilnPage owner(path.c_str(), "");
        ASSERT_EQ(owner.init(), 0);
        const int state = owner.SetSourcePassword(std::string("owner"));
        EXPECT_TRUE(state == 3 || state == 7) << state << " " << args;
        EXPECT_EQ(content(owner, 1), expected) << args;
        // A wrong password: no level matched.
        CPDFKilnPage wrong(path.c_str(), "");
        ASSERT_EQ(wrong.init(), 0);
        EXPECT_EQ(wrong.SetSourcePassword(std::string("nope")), 5) << args;
    }
}

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

TEST_F(Protected, EmptyUserPasswordOpensWithoutAsking) {
    CPDFKilnPage doc(encrypted("'' owner 128 --use-aes=y").c_str(), "");
    ASSERT_EQ(doc.init(), 0);
    SFileInfo info;
    doc.GetSourceFileInfo(info);
    EXPECT_TRUE(info.keyOpenWithEmpty);
    EXPECT_FALSE(info.passwordNeeded);
    EXPECT_EQ(doc.getPageCount(), 2);
    EXPECT_EQ(content(doc, 1), expected);
}

TEST_F(Protected, ConstructorPasswordIsReadWithBySetSourcePassword) {
    // The opening reads with the empty password whatever the constructor got; setting that same password afterwards
    // must read the document again, since its key is not the one the opening read with.
    const std::string path = encrypted("user owner 256");
    for (const char* pw : {"user", "owner"}) {
        CPDFKilnPage doc(path.c_str(), pw);
        ASSERT_EQ(doc.init(), 0);
        doc.SetSourcePassword(std::string(pw));
        EXPECT_EQ(doc.getPageCount(), 2) << pw;
        EXPECT_EQ(content(doc, 1), expected) << pw;
        doc.SetSourcePassword(std::string(pw));  // the same key again: nothing changes
        EXPECT_EQ(doc.getPageCount(), 2) << pw;
    }
}

TEST_F(Protected, EachR6HashRunsOncePerDocument) {
    // Opening runs the trials of the empty password (its key, its /U check, its /O check); setting a password runs them
    // again and those of the new one. Each distinct hash is computed once; the rest come from the document's cache,
    // with the results of every trial as before.
    const std::string path = encrypted("user owner 256");
    const struct {
        const char* password;
        int state;
        std::size_t hashes;  // after init, 3: the empty password's key, /U and /O checks
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
        doc.getSecurity(type, permissions);  // the trials once more, all known
        EXPECT_EQ(cache.computed(DerivedKeyCache::HashR6), c.hashes) << c.password;
        if (c.state != 5) { EXPECT_EQ(content(doc, 1), expected); }
    }
}

}  // namespace
