// A page's closure, its content and resources, the renumbered object map, and the page's own output.
#include <gtest/gtest.h>

#include <optional>
#include <tuple>

#include "facade_test_util.h"
#include "pdfkiln_destfile.h"

using namespace PDF_KILN;
using pagestest::Doc;
using pagestest::buildPdf;
using pagestest::expectParts;
using pagestest::got;
using pagestest::nums;

namespace {

std::string resources(Doc& d, int newNumber = 0) { return got(*d.page, &CPDFKilnPage::getPageRes, newNumber); }

// Renders object `num` of the document with CPage's copier, renumbering the objects of `mapped` to 100, 101, ...
std::string renderPage(Doc& d, int num, std::initializer_list<int> mapped) {
    CDestFile out{std::string()};
    out.setRenumbering(true);
    int n = 100;
    for (int m : mapped) out.insertNewObjTab(NewObjTable{0, 0, m, 0}, SObj(n++, 0));
    CPage page(SObj(num, 0));
    EXPECT_TRUE(page.LocalObj(out, d.src()));
    return out;
}

const char* const kHelvetica = "<< /Type /Font /Subtype /Type1 /BaseFont /Helvetica >>";
const char* const kCourier = "<< /Type /Font /Subtype /Type1 /BaseFont /Courier >>";

}  // namespace

// Page 1 of each document: its closure, content text and resource text, numbered from `start` (when not 0).
TEST(PageClosure, ContentAndResourcesOfPageOne) {
    const struct {
        std::map<int, std::string> objs;
        int start = 0;
        const char* resources = nullptr;  // nullptr and empty lists: not asked
        const char* contents = nullptr;
        std::vector<int> closure = {};
        std::optional<std::size_t> delivered = {};
        std::vector<int> contentsObjs = {}, resourceObjs = {};
        int resourcesNewNumber = 0;
    } cases[] = {
        // Thumb, Illustrator and Parent stay out; references are followed transitively.
        {{{3, "<< /Type /Page /Parent 2 0 R /Thumb 9 0 R /Illustrator 10 0 R /Metadata 11 0 R "
              "/Resources << /Font << /F1 4 0 R >> >> >>"},
          {4, "<< /Type /Font /Subtype /Type1 /BaseFont /Helvetica /Widths 5 0 R >>"}, {5, "[500 600]"},
          {9, "<< /Thumbnail true >>"}, {10, "<< /Private true >>"}, {11, "<< /Type /Metadata >>"}},
         0, nullptr, nullptr, {4, 5, 11}},
        // A /Parent cycle without resources ends.
        {{{2, "<< /Type /Pages /Kids [3 0 R] /Count 1 /Parent 6 0 R >>"},
          {6, "<< /Type /Pages /Kids [] /Count 0 /Parent 2 0 R >>"}, {3, "<< /Type /Page /Parent 2 0 R >>"}},
         0, "<< >>", nullptr, {}, {}, {}, {}, 20},
        // A page with no resources still gets a dictionary.
        {{{3, "<< /Type /Page /Parent 2 0 R >>"}}, 0, "<< >>", ""},
        // Streams are joined, each ended by CR, and delivered decoded, not as objects; only filtered data is trimmed.
        {{{3, "<< /Type /Page /Parent 2 0 R /Contents [4 0 R 5 0 R] >>"}, {4, "stream:q"},
          {5, "/Filter /AHx stream:510A>"}},
         40, nullptr, "\r\nq\n\rQ\n\r", {4, 5}, 0},
        // An array's members in first-seen order, the array first with only its CR; the first stream ends the walk.
        {{{3, "<< /Type /Page /Parent 2 0 R /Contents 6 0 R >>"}, {6, "[4 0 R 7 0 R]"}, {7, "[5 0 R 4 0 R]"},
          {4, "/Filter /AHx stream:41>"}, {5, "/Filter /AHx stream:42>"}},
         0, nullptr, "\rA\r\r", {}, {}, {6, 4, 7}},
        {{{3, "<< /Type /Page /Parent 2 0 R /Resources << /Font << /F1 4 0 R >> /ProcSet [/PDF] >> >>"},
          {4, kHelvetica}},
         30, "<< /Font << /F1  30 0 R >> /ProcSet [/PDF] >>", nullptr, {}, 1},
        // An inherited resource object is listed; it is not delivered itself.
        {{{2, "<< /Type /Pages /Kids [3 0 R] /Count 1 /Resources 8 0 R >>"}, {3, "<< /Type /Page /Parent 2 0 R >>"},
          {8, "<< /Font << /F1 4 0 R >> >>"}, {4, kHelvetica}},
         50, "<< /Font << /F1  50 0 R >> >>\n", nullptr, {}, 1, {}, {8}},
        // Inline and inherited merged: /ProcSet names copied from two bytes behind "[", "]>>" closes what was written.
        {{{2, "<< /Type /Pages /Kids [3 0 R] /Count 1 /Resources 8 0 R >>"},
          {3, "<< /Type /Page /Parent 2 0 R /Resources << /Font << /F1 4 0 R >> >> >>"},
          {8, "<< /Font << /F2 5 0 R >> /ProcSet [/PDF /Text] >>"}, {4, kHelvetica}, {5, kCourier}},
         60, "<</Font<< /F1  60 0 R  /F2  61 0 R >>/ProcSet[PDF /Text]>>"},
        {{{2, "<< /Type /Pages /Kids [3 0 R] /Count 1 /Resources 8 0 R >>"},
          {3, "<< /Type /Page /Parent 2 0 R /Resources << /ExtGState << /G 4 0 R >> >> >>"},
          {8, "<< /Font << /F2 5 0 R >> >>"}, {4, "<< /Type /ExtGState >>"}, {5, kCourier}},
         1, "<</ExtGState<< /G  1 0 R >>/Font<< /F2  2 0 R >>]>>"},
    };
    for (const auto& c : cases) {
        Doc d(buildPdf(c.objs));
        ASSERT_EQ(d.rc, 0);
        ASSERT_EQ(d.page->setPageNo(1), 0);
        const std::string what = c.objs.at(3);
        if (c.start) d.page->setStartObjNo(c.start);
        if (c.resources) { EXPECT_EQ(resources(d, c.resourcesNewNumber), c.resources) << what; }
        if (c.contents) { EXPECT_EQ(got(*d.page, &CPDFKilnPage::getPageContents), c.contents) << what; }
        if (!c.closure.empty()) { EXPECT_EQ(nums(d.src().fileObjects), c.closure) << what; }
        if (c.delivered) { EXPECT_EQ(d.page->size(), *c.delivered) << what; }
        if (!c.contentsObjs.empty()) { EXPECT_EQ(nums(d.src().contentsVector), c.contentsObjs) << what; }
        if (!c.resourceObjs.empty()) { EXPECT_EQ(nums(d.src().resourcesVector), c.resourceObjs) << what; }
    }
}

TEST(PageClosure, ReferenceBackToAPageAbortsThePage) {
    Doc d(buildPdf({{2, "<< /Type /Pages /Kids [3 0 R 4 0 R] /Count 2 >>"},
                    {3, "<< /Type /Page /Parent 2 0 R /Metadata 4 0 R >>"},
                    {4, "<< /Type /Page /Parent 2 0 R /Resources << /XObject << /X 5 0 R >> >> >>"},
                    {5, "<< /Type /XObject /Subtype /Form /P 3 0 R >>"}}));
    ASSERT_EQ(d.rc, 0);
    EXPECT_EQ(d.page->setPageNo(1), 1000);
    // Deeper down a page reference is just not followed.
    EXPECT_EQ(d.page->setPageNo(2), 0);
    EXPECT_EQ(d.src().fileObjects.count(SObj(3, 0)), 0u);
}

TEST(PageRootString, WalksUpOnlyWithANewNumberAndReturnsTheStoppingNode) {
    Doc d(buildPdf({{2, "<< /Type /Pages /Kids [3 0 R] /Count 1 /Resources << /Font << /F1 4 0 R >> >> >>"},
                    {3, "<< /Type /Page /Parent 2 0 R /Rotate 90 >>"},
                    {4, kHelvetica}}));
    ASSERT_TRUE(d.select(1, 5));
    const std::string page = d.page->getPageRootString(0);
    EXPECT_EQ(page.substr(0, 2), "<<") << "no object frame before the body: " << page;
    expectParts(page, {"/Rotate 90"}, {"obj"});
    // The node where the walk stops comes alone.
    expectParts(d.page->getPageRootString(77), {"/F1  5 0 R"}, {"/Rotate"});
    EXPECT_EQ(resources(d, 77), "<< /Font << /F1  5 0 R >> >>");
    expectParts(d.page->getRootString(0), {"/Type /Catalog"});
}

// Each object is delivered once across the pages of one facade, and the vector carries the mappings to another.
TEST(PageNumbering, EachObjectIsDeliveredOnceAndTheVectorCarriesTheMappings) {
    const std::string pdf = buildPdf(
        {{2, "<< /Type /Pages /Kids [3 0 R 6 0 R] /Count 2 >>"},
         {3, "<< /Type /Page /Parent 2 0 R /Resources << /Font << /F1 4 0 R >> >> >>"},
         {6, "<< /Type /Page /Parent 2 0 R /Resources << /Font << /F1 4 0 R /F2 5 0 R >> >> >>"},
         {4, "<< /Type /Font /Subtype /Type1 /BaseFont /Helvetica /Encoding 7 0 R >>"},
         {5, "<< /Type /Font /Subtype /Type1 /BaseFont /Courier /Encoding 7 0 R >>"},
         {7, "<< /Type /Encoding /Differences [32 /space] >>"}});
    Doc d(pdf), other(pdf);
    ASSERT_TRUE(d.select(1, 100));
    std::map<std::pair<int, int>, std::string> first(d.page->begin(), d.page->end());
    EXPECT_EQ(first.size(), 2u);
    ASSERT_TRUE(d.select(2, 102));
    ASSERT_EQ(d.page->size(), 1u) << "only the new font comes";
    EXPECT_EQ(d.page->begin()->first, std::make_pair(102, 0));
    // Its /Encoding refers to the object the first page delivered.
    const bool encodingFirst = first.begin()->second.find("/Differences") != std::string::npos;
    const int encoding = encodingFirst ? 100 : 101;
    expectParts(d.page->begin()->second, {" " + std::to_string(encoding) + " 0 R"});
    const std::string res = resources(d);
    expectParts(res, {"/F1  " + std::to_string(201 - encoding)});
    const auto vec = d.page->getOld2NewObjectVector();
    ASSERT_EQ(vec.size(), 3u);
    ASSERT_EQ(other.page->setPageNo(2), 0);
    other.page->setOld2NewObjectVector(vec);
    other.page->setStartObjNo(103);
    EXPECT_EQ(other.page->size(), 0u);
    EXPECT_EQ(resources(other), res);
}

TEST(PageNumbering, ClosureObjectsGoThroughThePageCopier) {
    // Back-references to a page become null, supplied keys are dropped, indirect lengths written direct, no "endobj".
    Doc d(buildPdf({{3, "<< /Type /Page /Parent 2 0 R /Resources << /Font << /F1 4 0 R >> /XObject << /X 5 0 R "
                        "/Y 6 0 R >> >> >>"},
                    {4, "<< /Type /Font /Subtype /Type1 /BaseFont /Helvetica /Owner 3 0 R /MediaBox [0 0 1 1] "
                        "/Contents (note) /Encoding /WinAnsiEncoding >>"},
                    {5, "/Type /XObject /Subtype /Form /BBox [0 0 9 9] /CropBox [0 0 2 2] stream:0 0 m 9 9 l S"},
                    {6, "\n\n<< /Type /XObject /Subtype /Image /Width 1 /Height 1 /BitsPerComponent 8 "
                        "/ColorSpace /DeviceGray /Length 7 0 R >>\nstream\nA\nendstream"},
                    {7, "1"}}));
    ASSERT_TRUE(d.select(1, 20));
    ASSERT_EQ(d.page->size(), 4u);
    for (const auto& e : *d.page) expectParts(e.second, {}, {"endobj"});
    expectParts(d.page->at({20, 0}), {"/Owner  null ", "/Encoding /WinAnsiEncoding"}, {"/MediaBox", "/Contents"});
    expectParts(d.page->at({21, 0}), {"/BBox [0 0 9 9]", "/Length 13 ", "stream\r\n0 0 m 9 9 l S"}, {"/CropBox"});
    EXPECT_EQ(d.page->at({22, 0}).substr(0, 2), "<<");
    expectParts(d.page->at({22, 0}), {"/Length 1 "});
    EXPECT_EQ(d.page->at({23, 0}), "1\n");
}

TEST(PageNumbering, StreamObjectMapHitIsNotDeliveredButReferenced) {
    Doc d(buildPdf({{3, "<< /Type /Page /Parent 2 0 R /Resources << /XObject << /X 4 0 R >> >> >>"},
                    {4, "/Type /XObject /Subtype /Image /Width 1 /Height 1 /BitsPerComponent 8 stream:Z"}}));
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
    Doc d(buildPdf({{3, "<< /Type /Page /Parent 2 0 R /Resources << /XObject << /A 4 0 R /B 6 0 R >> >> >>"},
                    {4, "/Subtype /Form stream:0123456789abcdefg"},
                    {6, "<< /Subtype /Form /Length 7 0 R >>\nstream\n0123456789abcdef\nendstream"},
                    {7, "16"}}));
    ASSERT_EQ(d.page->setPageNo(1), 0);
    unsigned char key[16] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};
    ASSERT_EQ(d.page->setEncryptKey(key, 16, 4), 0);
    EXPECT_EQ(d.page->targetCipher(), 2);
    d.page->setStartObjNo(1);
    ASSERT_EQ(d.page->size(), 3u);
    // AES data is the vector plus whole blocks, padding included: lengths direct and indirect follow it.
    std::vector<int> lengths;
    for (auto it = d.page->begin(); it != d.page->end(); ++it) {
        if (d.page->calcStreamLength(it) == 0) continue;
        char *b = nullptr, *e = nullptr;
        auto where = d.page->end();
        d.page->findLengthPos(it, b, e, where);
        ASSERT_NE(where, d.page->end());
        ASSERT_NE(b, nullptr);
        lengths.push_back(std::stoi(std::string(b, e)));
    }
    EXPECT_EQ(lengths, (std::vector<int>{48, 48}));
}

TEST(PageNumbering, KeyLengthsCipherChoiceStreamLengthsAndLengthPositions) {
    Doc d(buildPdf({{2, "<< /Type /Pages /Kids [] /Count 0 >>"}}));
    unsigned char key[40] = {};
    EXPECT_EQ(d.page->setEncryptKey(key, 4, 2), 8003);
    EXPECT_EQ(d.page->setEncryptKey(key, 33, 2), 8003);
    EXPECT_EQ(d.page->targetCipher(), 0);
    EXPECT_EQ(d.page->setEncryptKey(key, 16, 2), 0);
    EXPECT_EQ(d.page->targetCipher(), 1) << "16 bytes with mode 2 is RC4";
    EXPECT_EQ(d.page->setEncryptKey(key, 32, 5), 0);
    EXPECT_EQ(d.page->targetCipher(), 3);
    auto& m = *d.page;
    m[{1, 0}] = "<< /Length 2 0 R >>stream\r\n\r\n0123456789abcdefg\r\nendstream\n";
    m[{2, 0}] = "17 ";
    m[{3, 0}] = "<< /Length 5 >>stream\nabcde\nendstream";
    EXPECT_EQ(m.calcStreamLength(m.find({1, 0})), 17) << "white space behind the keyword is not counted";
    EXPECT_EQ(m.calcStreamLength(m.find({2, 0})), 0);
    char *b = nullptr, *e = nullptr;
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

// One content stream with a direct filter is handed over as stored; anything else is left to getPageContents.
TEST(PageContentStored, OneStreamWithDirectFilterOnly) {
    const struct {
        const char* contents;  // the page's /Contents value
        std::map<int, std::string> extra;
        int rc;
        const char* data;
        const char* filter;
        const char* parms;
    } cases[] = {
        {"5 0 R", {{5, "/Filter /FlateDecode stream:xyz\r\n"}}, 0, "xyz\r\n", "/FlateDecode", ""},
        {"5 0 R", {{5, "/Filter [/AHx /Fl] /DecodeParms [null << /K 1 >>] stream:41>"}}, 0, "41>", "[/AHx /Fl]",
         "[null << /K 1 >>]"},
        {"5 0 R", {{5, "stream:q Q"}}, 0, "q Q", "", ""},
        {"5 0 R", {{5, "/Filter 6 0 R stream:xyz"}, {6, "/FlateDecode"}}, 8001, "", "", ""},
        {"5 0 R", {{5, "/Filter /Fl /DecodeParms << /Predictor 7 0 R >> stream:xyz"}, {7, "12"}}, 8001, "", "", ""},
        {"[5 0 R 6 0 R]", {{5, "stream:q"}, {6, "stream:Q"}}, 8001, "", "", ""},
    };
    for (const auto& c : cases) {
        std::map<int, std::string> objs = c.extra;
        objs[3] = std::string("<< /Type /Page /Parent 2 0 R /MediaBox [0 0 10 10] /Contents ") + c.contents + " >>";
        Doc d(buildPdf(objs));
        ASSERT_EQ(d.rc, 0);
        ASSERT_EQ(d.page->setPageNo(1), 0);
        const std::string* data = nullptr;
        std::string filter = "?", parms = "?";
        const std::string what = c.extra.begin()->second;
        EXPECT_EQ(d.page->getPageContentsEncoded(&data, filter, parms), c.rc) << what;
        ASSERT_NE(data, nullptr);
        EXPECT_EQ(std::make_tuple(*data, filter, parms), std::make_tuple(c.data, c.filter, c.parms)) << what;
    }
}

TEST(PageOutput, SuppliedKeysNeverReachTheOutput) {
    Doc d(buildPdf({{2, "<< /Type /Pages /Kids [3 0 R 4 0 R] /Count 2 >>"},
                    {3, "<< /Type /Page /Parent 2 0 R /Annots 5 0 R /Contents [6 0 R 7 0 R] /MediaBox [0 0 612 792] "
                        "/CropBox [0 0 10 10] /Thumb 9 0 R /Resources 8 0 R /Rotate 90 >>"},
                    {4, "<< /Type /Page /Parent 2 0 R /Annots [5 0 R] /Contents 6 0 R /Title (a/b) >>"},
                    {5, "[]"},
                    {8, "<< >>"}}));
    ASSERT_EQ(d.rc, 0);
    // An unmapped reference keeps its key.
    expectParts(renderPage(d, 3, {2, 8}), {"/Thumb  null ", "/Resources  101 0 R", "/Parent  100 0 R", "/Rotate 90"},
                {"/Annots", "/Contents", "/MediaBox", "/CropBox"});
    expectParts(renderPage(d, 4, {}), {"/Title (a/b)"}, {"/Annots", "/Contents"});
}

TEST(PageOutput, GroupNodesCountTheirPages) {
    Doc d(buildPdf({{2, "<< /Type /Pages /Kids [3 0 R 4 0 R 5 0 R] /Count 3 >>"},
                    {3, "<< /Type /Page /Parent 2 0 R >>"},
                    {4, "<< /Type /Page /Parent 2 0 R >>"},
                    {5, "<< /Type /Page /Parent 2 0 R >>"}}));
    ASSERT_EQ(d.rc, 0);
    CDestFile out{std::string()};
    out.curFile = 1;
    out.insertNewObjTab(NewObjTable{0, 1, 3, 0}, SObj(20, 0));
    out.insertNewObjTab(NewObjTable{0, 1, 5, 0}, SObj(21, 0));
    for (int n : {3, 4, 5}) {
        CPage p(SObj(n, 0));
        EXPECT_EQ(p.Write(out, d.src()), n != 4) << "a page without a new number is dropped";
    }
    ASSERT_TRUE(d.src().groupNode);
    CPages& group = *d.src().groupNode;
    EXPECT_EQ(group.count, 2);
    ASSERT_EQ(group.kids.size(), 2u);
    EXPECT_EQ(group.kids[1].num, 21);
    group.self = SObj(30, 0);
    out.rootPages = SObj(31, 0);
    out.clear();
    group.Write(out, d.src());
    EXPECT_EQ(std::string(out), "30 0 obj\n<</Type/Pages/Count 2/Kids[20 0 R 21 0 R ]\n/Parent 31 0 R >>endobj\n");
}

TEST(PageOutput, RectanglesAreWrittenAsNumbers) {
    CDestFile out{std::string()};
    CPaperInfo::WriteRect(out, RectTD{0, 0, 612, 792});
    EXPECT_EQ(std::string(out), " [0 0 612 792 ] ");
}
