// A page's closure, its content and resources, and the renumbered object map.
#include <gtest/gtest.h>

#include <regex>
#include <set>

#include "facade_test_util.h"
#include "pdfkiln_destfile.h"

using namespace PDF_KILN;
using pagestest::Doc;
using pagestest::buildPdf;

namespace {

const char* const kCatalog = "<< /Type /Catalog /Pages 2 0 R >>";

std::set<int> closureNumbers(const Doc& d) {
    std::set<int> s;
    for (const SObj& o : d.src().fileObjects) s.insert(o.num);
    return s;
}

std::string contents(Doc& d) {
    const std::string* out = nullptr;
    EXPECT_EQ(d.page->getPageContents(&out), 0);
    return out ? *out : std::string();
}

std::string resources(Doc& d, int newNumber = 0) {
    const std::string* out = nullptr;
    EXPECT_EQ(d.page->getPageRes(&out, newNumber), 0);
    return out ? *out : std::string();
}

}  // namespace

TEST(PageClosure, ThumbIllustratorAndParentStayOut) {
    Doc d(buildPdf({{1, kCatalog},
                    {2, "<< /Type /Pages /Kids [3 0 R] /Count 1 >>"},
                    {3, "<< /Type /Page /Parent 2 0 R /Thumb 9 0 R /Illustrator 10 0 R /Metadata 11 0 R "
                        "/Resources << /Font << /F1 4 0 R >> >> >>"},
                    {4, "<< /Type /Font /Subtype /Type1 /BaseFont /Helvetica /Widths 5 0 R >>"},
                    {5, "[500 600]"},
                    {9, "<< /Thumbnail true >>"},
                    {10, "<< /Private true >>"},
                    {11, "<< /Type /Metadata >>"}}));
    ASSERT_EQ(d.rc, 0);
    ASSERT_EQ(d.page->setPageNo(1), 0);
    EXPECT_EQ(closureNumbers(d), (std::set<int>{4, 5, 11})) << "the closure follows references transitively";
}

TEST(PageClosure, ReferenceBackToAPageAbortsThePage) {
    Doc d(buildPdf({{1, kCatalog},
                    {2, "<< /Type /Pages /Kids [3 0 R 4 0 R] /Count 2 >>"},
                    {3, "<< /Type /Page /Parent 2 0 R /Metadata 4 0 R >>"},
                    {4, "<< /Type /Page /Parent 2 0 R /Resources << /XObject << /X 5 0 R >> >> >>"},
                    {5, "<< /Type /XObject /Subtype /Form /P 3 0 R >>"}}));
    ASSERT_EQ(d.rc, 0);
    EXPECT_EQ(d.page->setPageNo(1), 1000);
    // Deeper down a page reference is just not followed.
    EXPECT_EQ(d.page->setPageNo(2), 0);
    EXPECT_EQ(closureNumbers(d).count(3), 0u);
}

TEST(PageClosure, ParentCycleWithoutResourcesEnds) {
    Doc d(buildPdf({{1, kCatalog},
                    {2, "<< /Type /Pages /Kids [3 0 R] /Count 1 /Parent 6 0 R >>"},
                    {6, "<< /Type /Pages /Kids [] /Count 0 /Parent 2 0 R >>"},
                    {3, "<< /Type /Page /Parent 2 0 R >>"}}));
    ASSERT_EQ(d.rc, 0);
    EXPECT_EQ(d.page->setPageNo(1), 0);
    EXPECT_EQ(resources(d, 20), "<< >>");
}

TEST(PageContent, NoContentsGivesEmptyText) {
    Doc d(buildPdf({{1, kCatalog}, {2, "<< /Type /Pages /Kids [3 0 R] /Count 1 >>"}, {3, "<< /Type /Page /Parent 2 0 R >>"}}));
    ASSERT_EQ(d.page->setPageNo(1), 0);
    EXPECT_EQ(contents(d), "");
    EXPECT_EQ(resources(d), "<< >>") << "a page with no resources still gets a dictionary";
}

TEST(PageContent, StreamsAreJoinedEachEndedByCR) {
    Doc d(buildPdf({{1, kCatalog},
                    {2, "<< /Type /Pages /Kids [3 0 R] /Count 1 >>"},
                    {3, "<< /Type /Page /Parent 2 0 R /Contents [4 0 R 5 0 R] >>"},
                    {4, "stream:q"},
                    {5, "/Filter /AHx stream:510A>"}}));
    ASSERT_EQ(d.page->setPageNo(1), 0);
    // The unfiltered stream keeps its line ends; the filtered one is trimmed
    // before decoding.
    EXPECT_EQ(contents(d), "\r\nq\n\rQ\n\r");
    EXPECT_EQ(closureNumbers(d), (std::set<int>{4, 5}));
    EXPECT_EQ(d.page->size(), 0u);
    d.page->setStartObjNo(40);
    EXPECT_EQ(d.page->size(), 0u) << "content streams are delivered decoded, not as objects";
}

TEST(PageContent, ArrayObjectIsListedAndContributesItsCR) {
    // /Contents 6 0 R names an array whose members are walked in first-seen
    // order; the array object itself comes first with only its CR.
    Doc d(buildPdf({{1, kCatalog},
                    {2, "<< /Type /Pages /Kids [3 0 R] /Count 1 >>"},
                    {3, "<< /Type /Page /Parent 2 0 R /Contents 6 0 R >>"},
                    {6, "[4 0 R 7 0 R]"},
                    {7, "[5 0 R 4 0 R]"},
                    {4, "/Filter /AHx stream:41>"},
                    {5, "/Filter /AHx stream:42>"}}));
    ASSERT_EQ(d.page->setPageNo(1), 0);
    const std::vector<SObj>& v = d.src().contentsVector;
    ASSERT_EQ(v.size(), 3u);
    EXPECT_EQ(v[0].num, 6);
    EXPECT_EQ(v[1].num, 4);
    EXPECT_EQ(v[2].num, 7);
    EXPECT_EQ(contents(d), "\rA\r\r") << "the walk ends at the first stream it fetches";
}

TEST(PageResources, InlineResourcesAreRenumberedThroughTheMap) {
    Doc d(buildPdf({{1, kCatalog},
                    {2, "<< /Type /Pages /Kids [3 0 R] /Count 1 >>"},
                    {3, "<< /Type /Page /Parent 2 0 R /Resources << /Font << /F1 4 0 R >> /ProcSet [/PDF] >> >>"},
                    {4, "<< /Type /Font /Subtype /Type1 /BaseFont /Helvetica >>"}}));
    ASSERT_EQ(d.page->setPageNo(1), 0);
    d.page->setStartObjNo(30);
    EXPECT_EQ(resources(d), "<< /Font << /F1  30 0 R >> /ProcSet [/PDF] >>");
    ASSERT_EQ(d.page->count({30, 0}), 1u);
    EXPECT_NE(d.page->at({30, 0}).find("/BaseFont /Helvetica"), std::string::npos);
}

TEST(PageResources, InheritedReferenceIsFoundOnlyWithANewNumberOrAList) {
    Doc d(buildPdf({{1, kCatalog},
                    {2, "<< /Type /Pages /Kids [3 0 R] /Count 1 /Resources 8 0 R >>"},
                    {3, "<< /Type /Page /Parent 2 0 R >>"},
                    {8, "<< /Font << /F1 4 0 R >> >>"},
                    {4, "<< /Type /Font /Subtype /Type1 /BaseFont /Helvetica >>"}}));
    ASSERT_EQ(d.page->setPageNo(1), 0);
    ASSERT_EQ(d.src().resourcesVector.size(), 1u);
    EXPECT_EQ(d.src().resourcesVector[0].num, 8);
    d.page->setStartObjNo(50);
    EXPECT_EQ(resources(d), "<< /Font << /F1  50 0 R >> >>\n");
    EXPECT_EQ(d.page->size(), 1u) << "the resource dictionary itself is not delivered";
}

TEST(PageResources, InlineAndInheritedAreMergedWithTheOddProcSetCloser) {
    Doc d(buildPdf({{1, kCatalog},
                    {2, "<< /Type /Pages /Kids [3 0 R] /Count 1 /Resources 8 0 R >>"},
                    {3, "<< /Type /Page /Parent 2 0 R /Resources << /Font << /F1 4 0 R >> >> >>"},
                    {8, "<< /Font << /F2 5 0 R >> /ProcSet [/PDF /Text] >>"},
                    {4, "<< /Type /Font /Subtype /Type1 /BaseFont /Helvetica >>"},
                    {5, "<< /Type /Font /Subtype /Type1 /BaseFont /Courier >>"}}));
    ASSERT_EQ(d.page->setPageNo(1), 0);
    d.page->setStartObjNo(60);
    // Only the resource object has /ProcSet: its names are copied from two
    // bytes behind the "[", and "]>>" closes whatever was written.
    EXPECT_EQ(resources(d), "<</Font<< /F1  60 0 R  /F2  61 0 R >>/ProcSet[PDF /Text]>>");
}

TEST(PageResources, MergeWithoutProcSetStillEndsInBracket) {
    Doc d(buildPdf({{1, kCatalog},
                    {2, "<< /Type /Pages /Kids [3 0 R] /Count 1 /Resources 8 0 R >>"},
                    {3, "<< /Type /Page /Parent 2 0 R /Resources << /ExtGState << /G 4 0 R >> >> >>"},
                    {8, "<< /Font << /F2 5 0 R >> >>"},
                    {4, "<< /Type /ExtGState >>"},
                    {5, "<< /Type /Font /Subtype /Type1 /BaseFont /Courier >>"}}));
    ASSERT_EQ(d.page->setPageNo(1), 0);
    d.page->setStartObjNo(1);
    const std::string r = resources(d);
    EXPECT_EQ(r.substr(r.size() - 3), "]>>");
    EXPECT_EQ(r.find("/ProcSet"), std::string::npos);
}

TEST(PageRootString, WalksUpOnlyWithANewNumberAndReturnsTheStoppingNode) {
    Doc d(buildPdf({{1, kCatalog},
                    {2, "<< /Type /Pages /Kids [3 0 R] /Count 1 /Resources << /Font << /F1 4 0 R >> >> >>"},
                    {3, "<< /Type /Page /Parent 2 0 R /Rotate 90 >>"},
                    {4, "<< /Type /Font /Subtype /Type1 /BaseFont /Helvetica >>"}}));
    ASSERT_EQ(d.page->setPageNo(1), 0);
    d.page->setStartObjNo(5);
    const std::string page = d.page->getPageRootString(0);
    EXPECT_NE(page.find("/Rotate 90"), std::string::npos);
    EXPECT_EQ(page.substr(0, 2), "<<") << "no object frame before the body: " << page;
    EXPECT_EQ(page.find("obj"), std::string::npos) << page;
    const std::string node = d.page->getPageRootString(77);
    EXPECT_EQ(node.find("/Rotate"), std::string::npos) << "the node where the walk stops comes alone";
    EXPECT_NE(node.find("/F1  5 0 R"), std::string::npos);
    EXPECT_EQ(resources(d, 77), "<< /Font << /F1  5 0 R >> >>");
    EXPECT_NE(d.page->getRootString(0).find("/Type /Catalog"), std::string::npos);
}

TEST(PageNumbering, EachObjectIsDeliveredOnceAcrossPagesOfOneFacade) {
    Doc d(buildPdf({{1, kCatalog},
                    {2, "<< /Type /Pages /Kids [3 0 R 6 0 R] /Count 2 >>"},
                    {3, "<< /Type /Page /Parent 2 0 R /Resources << /Font << /F1 4 0 R >> >> >>"},
                    {6, "<< /Type /Page /Parent 2 0 R /Resources << /Font << /F1 4 0 R /F2 5 0 R >> >> >>"},
                    {4, "<< /Type /Font /Subtype /Type1 /BaseFont /Helvetica /Encoding 7 0 R >>"},
                    {5, "<< /Type /Font /Subtype /Type1 /BaseFont /Courier /Encoding 7 0 R >>"},
                    {7, "<< /Type /Encoding /Differences [32 /space] >>"}}));
    ASSERT_EQ(d.page->setPageNo(1), 0);
    d.page->setStartObjNo(100);
    std::map<std::pair<int, int>, std::string> first(d.page->begin(), d.page->end());
    EXPECT_EQ(first.size(), 2u);
    ASSERT_EQ(d.page->setPageNo(2), 0);
    int next = 100 + static_cast<int>(first.size());
    d.page->setStartObjNo(next);
    ASSERT_EQ(d.page->size(), 1u) << "only the new font comes";
    const std::string& courier = d.page->begin()->second;
    EXPECT_EQ(d.page->begin()->first, std::make_pair(next, 0));
    // Its /Encoding refers to the object the first page delivered.
    const std::pair<int, int> enc = first.begin()->second.find("/Differences") != std::string::npos
                                        ? first.begin()->first
                                        : std::next(first.begin())->first;
    EXPECT_NE(courier.find(" " + std::to_string(enc.first) + " 0 R"), std::string::npos) << courier;
    EXPECT_NE(resources(d).find("/F1  " + std::to_string(first.count({100, 0}) ? 100 : 101)), std::string::npos);
}

TEST(PageNumbering, VectorCarriesMappingsToANewFacade) {
    const std::string pdf = buildPdf({{1, kCatalog},
                                      {2, "<< /Type /Pages /Kids [3 0 R 6 0 R] /Count 2 >>"},
                                      {3, "<< /Type /Page /Parent 2 0 R /Resources << /Font << /F1 4 0 R >> >> >>"},
                                      {6, "<< /Type /Page /Parent 2 0 R /Resources << /Font << /F1 4 0 R >> >> >>"},
                                      {4, "<< /Type /Font /Subtype /Type1 /BaseFont /Helvetica >>"}});
    Doc a(pdf);
    ASSERT_EQ(a.page->setPageNo(1), 0);
    a.page->setStartObjNo(10);
    const auto vec = a.page->getOld2NewObjectVector();
    ASSERT_EQ(vec.size(), 1u);
    Doc b(pdf);
    ASSERT_EQ(b.page->setPageNo(2), 0);
    b.page->setOld2NewObjectVector(vec);
    b.page->setStartObjNo(11);
    EXPECT_EQ(b.page->size(), 0u);
    EXPECT_EQ(resources(b), "<< /Font << /F1  10 0 R >> >>");
}

TEST(PageNumbering, TextsLoseEndobjAndLengthsFollowTheMap) {
    Doc d(buildPdf({{1, kCatalog},
                    {2, "<< /Type /Pages /Kids [3 0 R] /Count 1 >>"},
                    {3, "<< /Type /Page /Parent 2 0 R /Resources << /XObject << /X 4 0 R >> >> >>"},
                    {4, "\n\n<< /Type /XObject /Subtype /Image /Width 1 /Height 1 /BitsPerComponent 8 "
                        "/ColorSpace /DeviceGray /Length 5 0 R >>\nstream\nA\nendstream"},
                    {5, "1"}}));
    ASSERT_EQ(d.page->setPageNo(1), 0);
    d.page->setStartObjNo(1);
    ASSERT_EQ(d.page->size(), 2u);
    for (const auto& e : *d.page) {
        EXPECT_EQ(e.second.find("endobj"), std::string::npos);
    }
    // The image takes 1 and its length object 2; the copier writes the
    // stream's own size in place of the indirect /Length.
    const std::string& image = d.page->at({1, 0});
    EXPECT_EQ(image.substr(0, 2), "<<");
    EXPECT_NE(image.find("/Length 1 "), std::string::npos) << image;
    EXPECT_EQ(d.page->at({2, 0}), "1\n");
}

TEST(PageNumbering, ClosureObjectsGoThroughThePageCopier) {
    // A font that points back at a page keeps the key with null; keys that
    // the embedding program supplies are dropped from every closure object;
    // a stream keeps its data and length.
    Doc d(buildPdf({{1, kCatalog},
                    {2, "<< /Type /Pages /Kids [3 0 R] /Count 1 >>"},
                    {3, "<< /Type /Page /Parent 2 0 R /Resources << /Font << /F1 4 0 R >> /XObject << /X 5 0 R >> >> >>"},
                    {4, "<< /Type /Font /Subtype /Type1 /BaseFont /Helvetica /Owner 3 0 R /MediaBox [0 0 1 1] "
                        "/Contents (note) /Encoding /WinAnsiEncoding >>"},
                    {5, "/Type /XObject /Subtype /Form /BBox [0 0 9 9] /CropBox [0 0 2 2] stream:0 0 m 9 9 l S"}}));
    ASSERT_EQ(d.page->setPageNo(1), 0);
    d.page->setStartObjNo(20);
    ASSERT_EQ(d.page->size(), 2u);
    const std::string& font = d.page->at({20, 0});
    EXPECT_NE(font.find("/Owner  null "), std::string::npos) << font;
    EXPECT_EQ(font.find("/MediaBox"), std::string::npos) << font;
    EXPECT_EQ(font.find("/Contents"), std::string::npos) << font;
    EXPECT_NE(font.find("/Encoding /WinAnsiEncoding"), std::string::npos) << font;
    const std::string& form = d.page->at({21, 0});
    EXPECT_EQ(form.find("/CropBox"), std::string::npos) << form;
    EXPECT_NE(form.find("/BBox [0 0 9 9]"), std::string::npos) << form;
    EXPECT_NE(form.find("/Length 13 "), std::string::npos) << form;
    EXPECT_NE(form.find("stream\r\n0 0 m 9 9 l S"), std::string::npos) << form;
}

TEST(PageNumbering, StreamObjectMapHitIsNotDeliveredButReferenced) {
    const std::string image =
        "/Type /XObject /Subtype /Image /Width 1 /Height 1 /BitsPerComponent 8 stream:Z";
    Doc d(buildPdf({{1, kCatalog},
                    {2, "<< /Type /Pages /Kids [3 0 R] /Count 1 >>"},
                    {3, "<< /Type /Page /Parent 2 0 R /Resources << /XObject << /X 4 0 R >> >> >>"},
                    {4, image}}));
    ASSERT_EQ(d.page->setPageNo(1), 0);
    // The digest of the image's data, as isStreamObj computes it.
    CDestFile sink{std::string()};
    CObj obj(SObj(4, 0));
    ASSERT_TRUE(obj.LocalObj(sink, d.src()));
    std::string digest;
    ASSERT_TRUE(CPDFKilnPage::isStreamObj(sink, digest));
    std::map<std::string, std::pair<int, int>> known{{digest, {777, 0}}};
    d.page->setStreamObjMap(&known);
    d.page->setStartObjNo(5);
    EXPECT_EQ(d.page->size(), 0u);
    EXPECT_EQ(resources(d), "<< /XObject << /X  777 0 R >> >>");
}

TEST(PageNumbering, AesTargetRoundsStreamLengthsIncludingIndirectOnes) {
    Doc d(buildPdf({{1, kCatalog},
                    {2, "<< /Type /Pages /Kids [3 0 R] /Count 1 >>"},
                    {3, "<< /Type /Page /Parent 2 0 R /Resources << /XObject << /A 4 0 R /B 6 0 R >> >> >>"},
                    {4, "/Subtype /Form stream:0123456789abcdefg"},
                    {6, "<< /Subtype /Form /Length 7 0 R >>\nstream\n0123456789abcdef\nendstream"},
                    {7, "16"}}));
    ASSERT_EQ(d.page->setPageNo(1), 0);
    unsigned char key[16] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};
    ASSERT_EQ(d.page->setEncryptKey(key, 16, 4), 0);
    EXPECT_EQ(d.page->targetCipher(), 2);
    d.page->setStartObjNo(1);
    ASSERT_EQ(d.page->size(), 3u);
    // Encrypted AES data is whole blocks plus the vector: the length in the
    // text follows it, rounded up to a multiple of 16.
    for (auto it = d.page->begin(); it != d.page->end(); ++it) {
        const int n = d.page->calcStreamLength(it);
        if (n == 0) continue;
        char* b = nullptr;
        char* e = nullptr;
        auto where = d.page->end();
        d.page->findLengthPos(it, b, e, where);
        ASSERT_NE(where, d.page->end());
        ASSERT_NE(b, nullptr);
        EXPECT_EQ(std::stoi(std::string(b, e)) % 16, 0);
    }
}

TEST(PageNumbering, KeyLengthsAndCipherChoice) {
    Doc d(buildPdf({{1, kCatalog}, {2, "<< /Type /Pages /Kids [] /Count 0 >>"}}));
    unsigned char key[40] = {};
    EXPECT_EQ(d.page->setEncryptKey(key, 4, 2), 8003);
    EXPECT_EQ(d.page->setEncryptKey(key, 33, 2), 8003);
    EXPECT_EQ(d.page->targetCipher(), 0);
    EXPECT_EQ(d.page->setEncryptKey(key, 16, 2), 0);
    EXPECT_EQ(d.page->targetCipher(), 1) << "16 bytes with mode 2 is RC4";
    EXPECT_EQ(d.page->setEncryptKey(key, 32, 5), 0);
    EXPECT_EQ(d.page->targetCipher(), 3);
}

TEST(PageNumbering, StreamLengthAndLengthPositions) {
    Doc d(buildPdf({{1, kCatalog}, {2, "<< /Type /Pages /Kids [] /Count 0 >>"}}));
    auto& m = *d.page;
    m[{1, 0}] = "<< /Length 2 0 R >>stream\r\n\r\n0123456789abcdefg\r\nendstream\n";
    m[{2, 0}] = "17 ";
    m[{3, 0}] = "<< /Length 5 >>stream\nabcde\nendstream";
    EXPECT_EQ(m.calcStreamLength(m.find({1, 0})), 17) << "white space behind the keyword is not counted";
    EXPECT_EQ(m.calcStreamLength(m.find({2, 0})), 0);
    char* b = nullptr;
    char* e = nullptr;
    auto where = m.end();
    m.findLengthPos(m.find({1, 0}), b, e, where);
    EXPECT_EQ(where, m.find({2, 0})) << "an indirect /Length is corrected in the number object";
    EXPECT_EQ(std::string(b, e), "17");
    m.findLengthPos(m.find({3, 0}), b, e, where);
    EXPECT_EQ(where, m.find({3, 0}));
    EXPECT_EQ(std::string(b, e), "5");
    // The length objects are collected once for the facade's life.
    EXPECT_FALSE(m.check(m.find({2, 0})));
    m[{9, 0}] = "<< /Length 10 0 R >>";
    m[{10, 0}] = "4";
    EXPECT_TRUE(m.check(m.find({10, 0}))) << "a later length object is not added";
}

// The stored form of a page's content: one stream with its filter written
// out is handed over as it stands (the bytes between "stream" and
// "endstream"), anything else is left to getPageContents.
TEST(PageContentStored, OneStreamWithDirectFilterOnly) {
    struct Case {
        const char* contents;  // the page's /Contents value
        std::map<int, std::string> extra;
        int rc;
        const char* data;
        const char* filter;
        const char* parms;
    };
    const Case cases[] = {
        {"5 0 R", {{5, "/Filter /FlateDecode stream:xyz\r\n"}}, 0, "xyz\r\n", "/FlateDecode", ""},
        {"5 0 R", {{5, "/Filter [/AHx /Fl] /DecodeParms [null << /K 1 >>] stream:41>"}}, 0, "41>",
         "[/AHx /Fl]", "[null << /K 1 >>]"},
        {"5 0 R", {{5, "stream:q Q"}}, 0, "q Q", "", ""},
        {"5 0 R", {{5, "/Filter 6 0 R stream:xyz"}, {6, "/FlateDecode"}}, 8001, "", "", ""},
        {"5 0 R", {{5, "/Filter /Fl /DecodeParms << /Predictor 7 0 R >> stream:xyz"}, {7, "12"}}, 8001, "",
         "", ""},
        {"[5 0 R 6 0 R]", {{5, "stream:q"}, {6, "stream:Q"}}, 8001, "", "", ""},
    };
    for (const Case& c : cases) {
        std::map<int, std::string> objs = c.extra;
        objs[1] = kCatalog;
        objs[2] = "<< /Type /Pages /Kids [3 0 R] /Count 1 >>";
        objs[3] = std::string("<< /Type /Page /Parent 2 0 R /MediaBox [0 0 10 10] /Contents ") + c.contents + " >>";
        Doc d(buildPdf(objs));
        ASSERT_EQ(d.rc, 0);
        ASSERT_EQ(d.page->setPageNo(1), 0);
        const std::string* data = nullptr;
        std::string filter = "?", parms = "?";
        EXPECT_EQ(d.page->getPageContentsEncoded(&data, filter, parms), c.rc) << c.contents << c.extra.begin()->second;
        ASSERT_NE(data, nullptr);
        EXPECT_EQ(*data, c.data) << c.extra.begin()->second;
        EXPECT_EQ(filter, c.filter) << c.extra.begin()->second;
        EXPECT_EQ(parms, c.parms) << c.extra.begin()->second;
    }
}
