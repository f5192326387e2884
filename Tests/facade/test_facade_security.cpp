// Protected files (made with qpdf) through the facade: passwords, getSecurity, and the page content once opened.
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

// Page 1 of the sample is Flate-encoded, so its decoded text does not depend on how qpdf frames the stream.
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

// Each password on a fresh opening: level, verdict and pages; R6 hashes computed once each (3 at init: key, /U, /O).
TEST_F(Protected, PasswordsOpenThePagesAndGetSecurityTellsTheSituation) {
    const struct {
        const char* password;
        int state, olderState;  // olderState: also accepted below R6
        std::size_t r6Hashes;
    } trials[] = {{"user", 4, 4, 3 + 3}, {"owner", 7, 3, 3 + 4}, {"nope", 5, 5, 3 + 3}};
    for (const char* args : {"user owner 40", "user owner 128 --use-aes=n", "user owner 128 --use-aes=y",
                             "user owner 256"}) {
        const bool r6 = std::string(args) == "user owner 256";
        const std::string path = encrypted(args);
        // Without a password: the file opens, but says a password is needed.
        CPDFKilnPage doc(path.c_str(), "");
        ASSERT_EQ(doc.init(), 0);
        PASSWORD_TYPE type = ePasswordNone;
        int permissions = 0;
        EXPECT_EQ(doc.getSecurity(type, permissions), 0);
        EXPECT_EQ(std::make_pair(type, permissions), std::make_pair(ePasswordRequired, -4)) << args;
        EXPECT_NE(doc.getEncryptString().find("/Standard"), std::string::npos);
        for (const auto& t : trials) {
            CPDFKilnPage p(path.c_str(), "");
            ASSERT_EQ(p.init(), 0);
            const DerivedKeyCache& cache = *p.getSource()->fileInfo.encrypt.derivedKeys;
            if (r6) { EXPECT_EQ(cache.computed(DerivedKeyCache::HashR6), 3u); }
            const int state = p.SetSourcePassword(std::string(t.password));
            EXPECT_TRUE(state == t.state || (!r6 && state == t.olderState)) << state << " " << args;
            if (r6) { EXPECT_EQ(cache.computed(DerivedKeyCache::HashR6), t.r6Hashes) << t.password; }
            p.getSecurity(type, permissions);  // the trials once more, all known
            if (r6) { EXPECT_EQ(cache.computed(DerivedKeyCache::HashR6), t.r6Hashes) << t.password; }
            if (t.state == 4) { EXPECT_EQ(type, ePasswordPartial) << args; }
            if (t.state == 5) continue;
            EXPECT_EQ(p.getPageCount(), 2);
            EXPECT_EQ(content(p, 1), expected) << args << " " << t.password;
            if (!r6) continue;
            // Catches a reopening skipped because the password equals the constructor's: init read with the empty one.
            CPDFKilnPage given(path.c_str(), t.password);
            ASSERT_EQ(given.init(), 0);
            given.SetSourcePassword(std::string(t.password));
            EXPECT_EQ(given.getPageCount(), 2) << t.password;
            EXPECT_EQ(content(given, 1), expected) << t.password;
            given.SetSourcePassword(std::string(t.password));  // the same key again: nothing changes
            EXPECT_EQ(given.getPageCount(), 2) << t.password;
        }
    }
}

// A password set right after init re-reads only what the key changes when nothing read so far went through the
// key (no object streams); with object streams it is a full reading. Either way the document is what a full
// reading gives, forced here by an option change: /Info deciphered, the key state, the pages. Opening with the
// password from the start gives the same again, without the empty password's owner hash.
TEST_F(Protected, PasswordAfterInitOrAtOpeningGivesWhatAFullReadingGives) {
    for (const char* layout : {"--object-streams=disable", "--object-streams=preserve"}) {
        for (const char* cipher : {"user owner 256", "'' owner 256", "user owner 128 --use-aes=n"}) {
            const std::string path = tmp.file("layout.pdf");
            ASSERT_EQ(testutil::run(std::string("qpdf --allow-weak-crypto ") + layout + " --encrypt " + cipher + " -- " +
                                    testutil::quote(kSample) + " " + testutil::quote(path)), 0);
            for (const char* password : {"user", "owner", "nope"}) {
                const std::string where = std::string(layout) + " " + cipher + " " + password;
                CPDFKilnPage quick(path.c_str(), ""), full(path.c_str(), ""), opening(path.c_str(), password);
                ASSERT_EQ(quick.init(), 0);
                ASSERT_EQ(full.init(), 0);
                opening.setPasswordAtOpening(true);
                ASSERT_EQ(opening.init(), 0) << where;
                full.setDecodedBudget(0);  // the default again, but the reading no longer counts as untouched
                int states[3] = {0, 0, 0};
                CPDFKilnPage* docs[3] = {&quick, &full, &opening};
                for (int i = 0; i < 3; ++i) {
                    try {
                        states[i] = docs[i]->SetSourcePassword(std::string(password));
                    } catch (int code) {
                        states[i] = 1000 + code;
                    }
                }
                if (std::string(cipher) == "user owner 256") {
                    // The empty password's key and /U check, the given one's key, /U and /O checks (and the
                    // owner's key from /OE): one fewer than a reading with the empty password first.
                    const std::size_t hashes = std::string(password) == "owner" ? 6u : 5u;
                    EXPECT_EQ(opening.getSource()->fileInfo.encrypt.derivedKeys->computed(DerivedKeyCache::HashR6), hashes)
                        << where;
                }
                const std::string contents[3] = {content(quick, 1), content(full, 1), content(opening, 1)};
                for (int i = 1; i < 3; ++i) {
                    const std::string which = where + (i == 1 ? " full" : " at opening");
                    EXPECT_EQ(states[0], states[i]) << which;
                    const CEncrypt& a = quick.getSource()->fileInfo.encrypt;
                    const CEncrypt& b = docs[i]->getSource()->fileInfo.encrypt;
                    EXPECT_EQ(std::string(reinterpret_cast<const char*>(a.fileKey), sizeof a.fileKey),
                              std::string(reinterpret_cast<const char*>(b.fileKey), sizeof b.fileKey)) << which;
                    EXPECT_EQ(std::make_tuple(a.passwordState, a.passwordFlagOwner, a.passwordFlagUser),
                              std::make_tuple(b.passwordState, b.passwordFlagOwner, b.passwordFlagUser)) << which;
                    // Where the empty password opens the file and the key stays, the first reading stands, /Info
                    // as it read it before any key; a full reading reads it with the key.
                    const auto& ia = quick.getSource()->fileInfo.info;
                    const auto& ib = docs[i]->getSource()->fileInfo.info;
                    if (i == 2 || !a.passwordFlagOwner) {
                        EXPECT_EQ(std::make_tuple(ia.title, ia.author, ia.producer, ia.creationDate),
                                  std::make_tuple(ib.title, ib.author, ib.producer, ib.creationDate)) << which;
                    }
                    EXPECT_EQ(quick.getPageCount(), docs[i]->getPageCount()) << which;
                    EXPECT_EQ(contents[0], contents[i]) << which;
                }
                if (std::string(password) != "nope") { EXPECT_EQ(contents[0], expected) << where; }
            }
        }
    }
}

TEST_F(Protected, EmptyUserPasswordOpensWithoutAsking) {
    CPDFKilnPage doc(encrypted("'' owner 128 --use-aes=y").c_str(), "");
    ASSERT_EQ(doc.init(), 0);
    SFileInfo info;
    doc.GetSourceFileInfo(info);
    EXPECT_EQ(std::make_pair(info.keyOpenWithEmpty, info.passwordNeeded), std::make_pair(true, false));
    EXPECT_EQ(doc.getPageCount(), 2);
    EXPECT_EQ(content(doc, 1), expected);
}

}  // namespace
