// Every file of serenity/decodes-to-bitmap.txt decodes, in the file form and in
// the embedded form (Jbig2ToRGB), to reference/bitmap.bmp; the files where a
// deviation the decoder must keep applies are in explained-deviations.txt.
#include <gtest/gtest.h>

#include "jbig2/jbig2decoder.h"
#include "jbig2_test_support.h"

using namespace jbig2test;

namespace {

Bitmap decodeEmbedded(const Bytes& data, uint32_t width, int& result) {
    Bytes embedded = toEmbedded(data);
    void* out = nullptr;
    unsigned int size = 0;
    const int thrown = thrownBy(
        [&] { result = Jbig2ToRGB(embedded.data(), static_cast<unsigned int>(embedded.size()), &out, &size); });
    if (thrown >= 0) result = kThrown + thrown;
    if (result != 0) return Bitmap();
    const Bitmap b = fromRows(Bytes(static_cast<unsigned char*>(out), static_cast<unsigned char*>(out) + size), width);
    std::free(out);
    return b;
}

}  // namespace

TEST(Jbig2Corpus, EveryListedFileMatchesReference) {
    if (!haveCorpus()) GTEST_SKIP() << "corpus not present";
    const Bitmap reference = readBmp(kCorpus + "/reference/bitmap.bmp");
    ASSERT_TRUE(reference.ok);
    Bitmap fileForm, embedded;
    const auto differs = [&](const std::string&, const Bytes& data) -> std::string {
        const Decoded file = decodeJbig2(data, Form::File);
        fileForm = file.image;
        int result = -1;
        embedded = decodeEmbedded(data, fileForm.ok ? fileForm.width : reference.width, result);
        const bool fileOk = samePixels(fileForm, reference), embeddedOk = samePixels(embedded, reference);
        if (fileOk && embeddedOk) return "";
        char what[120];
        std::snprintf(what, sizeof what, "file form %s (%ux%u, r=%d), embedded %s (r=%d)", fileOk ? "exact" : "differs",
                      fileForm.width, fileForm.height, file.result, embeddedOk ? "exact" : "differs", result);
        return what;
    };
    // The rule must account for the whole difference where it can be checked:
    // a striped page is the reference's top rows.
    walkCorpus("explained-deviations.txt", differs, [&](const std::string& name, const std::string& rule) {
        if (rule != "striped-page-keeps-first-height") return;
        EXPECT_TRUE(samePixels(fileForm, reference, true)) << name << ": not the reference's top rows";
        EXPECT_TRUE(samePixels(embedded, reference, true)) << name << " (embedded): not the reference's top rows";
    });
}

// annex-h.jbig2 is the standard's own test stream: page 1 holds a text region
// over two dictionaries, a generic region and a halftone region over a
// pattern dictionary. None of the kept deviations touches it, so it must
// equal the oracle's first page.
TEST(Jbig2Corpus, AnnexHFirstPageMatchesJbig2dec) {
    const std::string path = kCorpus + "/annex-h.jbig2";
    if (!testutil::exists(path)) GTEST_SKIP() << "corpus not present";
    const Decoded ours = decodeJbig2(readFile(path), Form::File);
    ASSERT_EQ(ours.result, 0);
    EXPECT_EQ(ours.image.width, 64u);
    EXPECT_EQ(ours.image.height, 56u);
    if (!haveJbig2dec()) GTEST_SKIP() << "no jbig2dec to compare with";
    testutil::TempDir tmp;
    EXPECT_TRUE(samePixels(ours.image, jbig2dec(testutil::quote(path), tmp.file("oracle.pbm"))));
}
