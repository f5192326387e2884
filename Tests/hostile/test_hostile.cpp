// Hostile input: each point on the input that showed it.
#include <gtest/gtest.h>

#include <string>

#include "../facade/facade_test_util.h"
#include "filter_test_util.h"
#include "pdfkiln_destfile.h"
#include "pdfkiln_filter.h"
#include "resource_text.h"
#include "test_util.h"

using namespace ZQGraphicService_NS;
using filtertest::z;

namespace {

// One page whose content is the streams given, each "<dict>" "stream:" "<data>".
std::string pageWith(const std::vector<std::string>& streams) {
    std::map<int, std::string> objs;
    std::string contents;
    for (std::size_t i = 0; i < streams.size(); ++i) {
        objs[10 + static_cast<int>(i)] = streams[i];
        contents += std::to_string(10 + i) + " 0 R ";
    }
    objs[3] = "<< /Type /Page /Parent 2 0 R /MediaBox [0 0 612 792] /Contents [" + contents + "] >>";
    return pagestest::buildPdf(objs);
}

std::string flateStream(std::size_t zeros) { return "/Filter /FlateDecode stream:" + z(std::string(zeros, '\0')); }

struct BudgetCase { const char* name; std::vector<std::string> streams; std::size_t budget; int rc; std::size_t size; };

TEST(DecodedBudget, BoundsEachStreamAndThePageAsAWhole) {
    const std::size_t mib = 1 << 20;
    const std::string badPredictor = "/Filter /FlateDecode /DecodeParms << /Predictor 9 >> stream:" + z("q Q");
    const BudgetCase cases[] = {
        {"no budget: the stream decodes whole", {flateStream(4 * mib)}, 0, 0, 4 * mib + 1},
        {"a bomb past the budget is the filter failure", {flateStream(4 * mib)}, mib, 5000, 0},
        {"within the budget nothing changes", {flateStream(4 * mib)}, 8 * mib, 0, 4 * mib + 1},
        {"two streams within it one by one, past it together", {flateStream(600 << 10), flateStream(600 << 10)},
         mib, 5000, 0},
        {"two streams within it together", {flateStream(600 << 10), flateStream(600 << 10)}, 2 * mib, 0,
         2 * (600 << 10) + 2},
        {"two stages, the second past it", {"/Filter [/FlateDecode /FlateDecode] stream:" +
                                            z(z(std::string(4 * mib, '\0')))}, mib, 5000, 0},
        {"a decoder's own code without a budget", {badPredictor}, 0, ZQ_BAD_ARGUMENT, 0},
        {"the filter failure code under a budget", {badPredictor}, mib, 5000, 0},
    };
    for (const BudgetCase& c : cases) {
        SCOPED_TRACE(c.name);
        std::stringstream in(pageWith(c.streams));
        PDF_KILN::CPDFKilnPage page(in, "");
        page.setDecodedBudget(c.budget);
        ASSERT_EQ(page.init(), 0);
        ASSERT_EQ(page.setPageNo(1), 0);
        const std::string* text = nullptr;
        EXPECT_EQ(page.getPageContents(&text), c.rc);
        ASSERT_NE(text, nullptr);
        if (c.rc == 0) { EXPECT_EQ(text->size(), c.size); }
    }
}

TEST(DecodedBudget, ObjectStreamsPastItAreNotRead) {
    // The font of the page lives in an object stream of 2 MiB (its padding
    // behind the object): read without a budget, not with one of 1 MiB.
    const std::string inside = "<< /Type /Font /Subtype /Type1 /BaseFont /Helvetica >>" + std::string(2 << 20, ' ');
    for (std::size_t budget : {std::size_t(0), std::size_t(1) << 20}) {
        SCOPED_TRACE(budget);
        pdftest::PdfBuilder b("%PDF-1.5");
        b.object(1, "<< /Type /Catalog /Pages 2 0 R >>");
        b.object(2, "<< /Type /Pages /Kids [3 0 R] /Count 1 >>");
        b.object(3, "<< /Type /Page /Parent 2 0 R /MediaBox [0 0 612 792] /Resources << /Font << /F1 4 0 R >> >> >>");
        b.objectStream(5, {{4, inside}}, "/AHx");
        b.startxref(b.xrefStream(6, "/Root 1 0 R"));
        std::stringstream in(b.str());
        PDF_KILN::CPDFKilnPage page(in, "");
        page.setDecodedBudget(budget);
        ASSERT_EQ(page.init(), 0);
        PDF_KILN::CDestFile sink{std::string()};
        PDF_KILN::CObj font(PDF_KILN::SObj(4, 0));
        font.flags |= PDF_KILN::CObj::kIndirect;
        EXPECT_EQ(font.LocalObj(sink, *page.getSource()), budget == 0);
    }
}

TEST(InflateInto, GivesWhatTheBlockEntryGivesAndStopsAtItsLimit) {
    using namespace filtertest;
    const Bytes plain = randomBytes(70000, 7);
    const Bytes zeros(300000, 0);
    struct { const char* name; Bytes data; FilterPropTD prop; } cases[] = {
        {"flate", zlibCompress(plain), props(FILTER_FLATE)},
        {"flate of zeros", zlibCompress(zeros), props(FILTER_FLATE)},
        {"ascii hex", bytes(std::string(50000, 'A') + ">"), props(FILTER_ASCIIHEX)},
        {"ascii 85", bytes(std::string(50000, 'z') + "~>"), props(FILTER_ASCII85)},
        {"run length", bytes(std::string(20000, '\x81') + "x"), props(FILTER_RUNLENGTH)},
        {"damaged flate", bytes(std::string(64, '\0')), props(FILTER_FLATE)},
        // The limit holds for what the decoder holds: here the rows before
        // the predictor takes their type bytes out.
        {"flate with the PNG predictor", bytes(z(std::string(2000, '\x02'))), props(FILTER_FLATE, 12, 1, 8, 9)},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const Result whole = decode(c.data, c.prop);
        std::string out = "left over";
        EXPECT_EQ(Zq_InflateInto(c.data.data(), c.data.size(), out, c.prop, 0), whole.rc);
        EXPECT_EQ(out, whole.rc == ZQ_OK ? text(whole.data) : std::string());
        if (whole.rc != ZQ_OK || whole.data.size() < 2 || c.prop.predictor) continue;
        EXPECT_EQ(Zq_InflateInto(c.data.data(), c.data.size(), out, c.prop, whole.data.size()), ZQ_OK);
        EXPECT_EQ(Zq_InflateInto(c.data.data(), c.data.size(), out, c.prop, whole.data.size() - 1), ZQ_TOO_LARGE);
        EXPECT_TRUE(out.empty());
    }
}

TEST(ResourceText, KeepsStringsAndBalancesBrackets) {
    const struct { const char* in; const char* out; } cases[] = {
        // An escaped parenthesis and a bracket inside a string are the string's.
        {"<< /Properties << /P0 << /Name (a\\)]b) >> >> >>", "<</Properties <</P0 <</Name (a\\)]b) >> >> >>"},
        {"<< /P << /N (a(b)]c) >> >>", "<</P <</N (a(b)]c) >> >>"},
        // The merged text may close a name list it never opened, or leave one open.
        {"<< /Font << /F1 4 0 R >> ]>>", "<</Font <</F1 4 0 R >> >>"},
        {"<< /ProcSet [/PDF /Text >>", "<</ProcSet [/PDF /Text ] >>"},
        // A key twice: the later value, in the place of the first.
        {"<< /Font << /F1 1 0 R /F2 2 0 R /F1 3 0 R >> >>", "<</Font <</F1 3 0 R /F2 2 0 R >> >>"},
        {"", "<<>>"},
        {"  \r\n", "<<>>"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.in);
        EXPECT_EQ(cleanResources(c.in), c.out);
    }
}

TEST(ResourceText, InputSizedNestingAndCollections) {
    const int n = 100000;
    // Nesting 100,000 deep: no recursion, and past the rebuilt depth the
    // text stands as it is.
    std::string open, close;
    for (int i = 0; i < n; ++i) open += "<< /A ", close += " >>";
    const std::string deep = "<< /Properties " + open + "1" + close + " >>";
    EXPECT_EQ(cleanResources(deep), deep);
    const std::string arrays = "<< /ColorSpace << /C " + std::string(n, '[') + std::string(n, ']') + " >> >>";
    EXPECT_EQ(cleanResources(arrays), "<</ColorSpace <</C " + std::string(n, '[') + std::string(n, ']') + " >> >>");
    const std::string unclosed = "<< /Font " + std::string(n, '[');
    EXPECT_EQ(balancedResources(unclosed), unclosed + std::string(n, ']'));
    // 100,000 font names, each given twice: each once, the second value.
    std::string fonts = "<< /Font << ", expected = "<</Font <<";
    for (int round = 0; round < 2; ++round)
        for (int i = 0; i < n; ++i) fonts += "/F" + std::to_string(i) + " " + std::to_string(round + 1) + " 0 R ";
    for (int i = 0; i < n; ++i) expected += "/F" + std::to_string(i) + " 2 0 R ";
    EXPECT_EQ(cleanResources(fonts + ">> >>"), expected + ">> >>");
}

TEST(ComposeStatus, APageWhoseContentDoesNotDecodeIsAPartialResult) {
    // Content that compose decodes: a single stream of Flate alone would be
    // copied as stored.
    const std::string good = pageWith({"stream:q Q"});
    const std::string broken = pageWith({"/Filter /LZWDecode stream:" + std::string(64, '\xff')});
    const std::string bomb = pageWith({"/Filter [/AHx /FlateDecode] stream:" +
                                       pdftest::hexEncode(z(std::string(8 << 20, '\0')))});
    const struct { const char* name; std::string pdf, flags; int status; bool wrote; } cases[] = {
        {"valid", good, "", 0, true},
        {"damaged content stops the run", broken, "", 3, false},
        {"damaged content with --keep-going", broken, "--keep-going", 3, true},
        {"a bomb past --max-decoded", bomb, "--max-decoded 1M", 3, false},
        {"a bomb within --max-decoded", bomb, "--max-decoded 16M", 0, true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        testutil::TempDir dir;
        testutil::writeFile(dir.file("in.pdf"), c.pdf);
        std::string err;
        const int status = testutil::run("(" + testutil::quote(PDFKILN_TOOL) + " compose --quiet " + c.flags + " -o " +
                                         dir.file("out.pdf") + " " + dir.file("in.pdf") + " 2>&1)", &err);
        EXPECT_EQ(status, c.status) << err;
        EXPECT_EQ(testutil::exists(dir.file("out.pdf")), c.wrote);
        if (c.status == 3) pagestest::expectParts(err, {"page 1", "(5000)"});
    }
}

}  // namespace
