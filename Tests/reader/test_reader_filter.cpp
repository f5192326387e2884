// The filter chain as the reader builds it: /Filter and /DecodeParms parsing
// into stage records, and running data through the stages.
#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "pdfkiln_filter.h"
#include "pdfkiln_obj.h"

using namespace PDF_KILN;
using namespace ZQGraphicService_NS;

namespace {

// `text` is what follows the key /Filter.
bool readFilter(CFilter& f, const std::string& text, long dictStart = 0, std::string* next = nullptr) {
    std::istringstream in(text);
    bool ok = f.ReadFilter(in, dictStart);
    if (next) {
        in.clear();
        readPDFString(in, *next);
    }
    return ok;
}

}  // namespace

TEST(FilterParsing, FilterTypesByExactName) {
    CFilter f;
    EXPECT_EQ(f.GetFilterType("/FlateDecode"), FILTER_FLATE);
    EXPECT_EQ(f.GetFilterType("/Fl"), FILTER_FLATE);
    EXPECT_EQ(f.GetFilterType("/LZW"), FILTER_LZW);
    EXPECT_EQ(f.GetFilterType("/AHx"), FILTER_ASCIIHEX);
    EXPECT_EQ(f.GetFilterType("/ASCIIHexDecod"), FILTER_ASCIIHEX);
    EXPECT_EQ(f.GetFilterType("/ASCIIHexDecode"), FILTER_UNKNOWN) << "the full name is not the kept spelling";
    EXPECT_EQ(f.GetFilterType("/A85"), FILTER_ASCII85);
    EXPECT_EQ(f.GetFilterType("/RunLengthDecode"), FILTER_RUNLENGTH);
    EXPECT_EQ(f.GetFilterType("/CCF"), FILTER_CCITTFAX);
    EXPECT_EQ(f.GetFilterType("/DCTDecode"), FILTER_DCT);
    EXPECT_EQ(f.GetFilterType("/JBIG2Decode"), FILTER_UNKNOWN);
    EXPECT_EQ(f.GetFilterType("/JPXDecode"), FILTER_UNKNOWN);
    EXPECT_EQ(f.GetFilterType("null"), FILTER_UNKNOWN);
    EXPECT_EQ(f.GetFilterType("12"), FILTER_UNKNOWN);
    EXPECT_TRUE(f.IsNeedCompType(FILTER_FLATE));
    EXPECT_TRUE(f.IsNeedCompType(FILTER_DCT));
    EXPECT_FALSE(f.IsNeedCompType(FILTER_UNKNOWN));
    EXPECT_FALSE(f.IsNeedCompType(FILTER_NONE));
}

TEST(FilterParsing, EmptyArrayHasNoStagesAndLeavesDataAlone) {
    CFilter f;
    EXPECT_TRUE(readFilter(f, "[] /Length 3"));
    EXPECT_TRUE(f.stages.empty());
    std::string data = "abc", result = "untouched";
    EXPECT_EQ(f.filterStream(data, result), 0);
    EXPECT_EQ(data, "abc");
    EXPECT_EQ(result, "untouched");
}

TEST(FilterParsing, UnsupportedStageEndsTheArrayKeepingEarlierStages) {
    CFilter f;
    EXPECT_FALSE(readFilter(f, "[/ASCII85Decode /JBIG2Decode]"));
    ASSERT_EQ(f.stages.size(), 1u);
    EXPECT_EQ(f.stages.at(0).type, FILTER_ASCII85);
    EXPECT_EQ(f.stages.at(0).earlyChange, 1);
}

TEST(FilterParsing, ArrayStagesInOrder) {
    CFilter f;
    std::string next;
    EXPECT_TRUE(readFilter(f, "[/AHx /Fl] /Length 9", 0, &next));
    ASSERT_EQ(f.stages.size(), 2u);
    EXPECT_EQ(f.stages.at(0).type, FILTER_ASCIIHEX);
    EXPECT_EQ(f.stages.at(1).type, FILTER_FLATE);
    EXPECT_EQ(next, "/Length");
}

TEST(FilterParsing, SingleNameFindsParametersBehindAndDefaultsApplyAtRunTime) {
    CFilter f;
    std::string next;
    EXPECT_TRUE(readFilter(f, "/FlateDecode /DecodeParms << /Predictor 12 /Columns 5 >> /Length 4", 0, &next));
    EXPECT_EQ(next, "/DecodeParms") << "the position is restored behind the filter name";
    ASSERT_EQ(f.stages.size(), 1u);
    const FilterPropTD& p = f.stages.at(0);
    EXPECT_EQ(p.type, FILTER_FLATE);
    EXPECT_EQ(p.predictor, 12);
    EXPECT_EQ(p.columns, 5);
    EXPECT_EQ(p.colors, 0);
    EXPECT_EQ(p.earlyChange, 1);
    // Running the stage (on data that is no zlib stream) applies the defaults first.
    std::string data = "not deflated", result;
    EXPECT_NE(f.filterStream(data, result), 0);
    EXPECT_EQ(p.colors, 1);
    EXPECT_EQ(p.bitsPerComponent, 8);
    EXPECT_EQ(p.aux16, 100);
    EXPECT_EQ(p.predictor, 12);
    EXPECT_EQ(p.columns, 5);
}

TEST(FilterParsing, ParametersOfAllKnownKeys) {
    CFilter f;
    EXPECT_TRUE(readFilter(f, "/LZWDecode /DecodeParms << /K -1 /EarlyChange 0 /Colors 3 /BitsPerComponent 4 "
                              "/Columns 7 /Predictor 2 /BlackIs1 true >> stream"));
    const FilterPropTD& p = f.stages.at(0);
    EXPECT_EQ(p.earlyChange, 0);
    EXPECT_EQ(p.colors, 3);
    EXPECT_EQ(p.bitsPerComponent, 4);
    EXPECT_EQ(p.columns, 7);
    EXPECT_EQ(p.predictor, 2);
}

TEST(FilterParsing, ArrayFilterIgnoresParametersOutsideTheBrackets) {
    CFilter f;
    EXPECT_TRUE(readFilter(f, "[/FlateDecode] /DecodeParms [<< /Predictor 12 >>]"));
    EXPECT_EQ(f.stages.at(0).predictor, 0);
}

TEST(FilterParsing, ParametersInsideTheBracketsEndTheArrayWithFalse) {
    CFilter f;
    EXPECT_FALSE(readFilter(f, "[/FlateDecode /DecodeParms << /Predictor 12 >> /AHx]"));
    ASSERT_EQ(f.stages.size(), 1u);
    EXPECT_EQ(f.stages.at(0).predictor, 12);
}

TEST(FilterParsing, SingleNameWithParameterArrayOrReferenceFails) {
    CFilter a, b, c;
    EXPECT_FALSE(readFilter(a, "/FlateDecode /DecodeParms [<< /Predictor 12 >>]"));
    EXPECT_TRUE(a.stages.empty());
    EXPECT_FALSE(readFilter(b, "/FlateDecode /DecodeParms 7 0 R"));
    EXPECT_FALSE(readFilter(c, "/FlateDecode /DecodeParms null"));
}

TEST(FilterParsing, UnsupportedSingleNameFails) {
    CFilter f;
    EXPECT_FALSE(readFilter(f, "/JBIG2Decode"));
    EXPECT_FALSE(readFilter(f, "/ASCIIHexDecode"));
    EXPECT_FALSE(readFilter(f, "12 0 R"));
    EXPECT_TRUE(f.stages.empty());
}

TEST(FilterParsing, ParametersBeforeTheFilterAreFoundOnlyFromTheDictionaryStart) {
    const std::string dict = "<< /DecodeParms << /Columns 4 /Predictor 12 >> /Filter /FlateDecode /Length 3 >>\nstream\n";
    const std::size_t valueAt = dict.find("/FlateDecode");
    {
        CFilter f;
        std::istringstream in(dict);
        in.seekg(static_cast<std::streamoff>(valueAt));
        EXPECT_TRUE(f.ReadFilter(in, 0));
        EXPECT_EQ(f.stages.at(0).predictor, 0);
    }
    {
        CFilter f;
        std::istringstream in(dict);
        in.seekg(static_cast<std::streamoff>(valueAt));
        EXPECT_TRUE(f.ReadFilter(in, 1));
        EXPECT_EQ(f.stages.at(0).predictor, 12);
        EXPECT_EQ(f.stages.at(0).columns, 4);
        std::string next;
        readPDFString(in, next);
        EXPECT_EQ(next, "/Length");
    }
}

TEST(FilterParsing, SearchForParametersStopsAtTheStreamKeyword) {
    CFilter f;
    EXPECT_TRUE(readFilter(f, "/Fl /Length 3 >>\nstream\n/DecodeParms << /Predictor 12 >>"));
    EXPECT_EQ(f.stages.at(0).predictor, 0);
}

TEST(FilterParsing, NestedDictionaryEndsTheParametersEarly) {
    CFilter f;
    EXPECT_TRUE(readFilter(f, "/Fl /DecodeParms << /Other << /A 1 >> /Predictor 12 >>"));
    EXPECT_EQ(f.stages.at(0).predictor, 0);
}

TEST(FilterParsing, UnclosedParameterDictionaryStopsAtEndOfInput) {
    CFilter f;
    EXPECT_FALSE(readFilter(f, "/Fl /DecodeParms << /Unknown"));
    CFilter g;
    FilterPropTD p{};
    std::istringstream in("<< /Columns");
    EXPECT_FALSE(g.ReadParameter(in, p));
    std::istringstream bad("<< /Columns x >>");
    EXPECT_FALSE(g.ReadParameter(bad, p));
}

TEST(FilterParsing, SecondReadKeepsTheFirstStage) {
    CFilter f;
    EXPECT_TRUE(readFilter(f, "/AHx >>"));
    EXPECT_TRUE(readFilter(f, "/Fl >>"));
    ASSERT_EQ(f.stages.size(), 1u);
    EXPECT_EQ(f.stages.at(0).type, FILTER_ASCIIHEX);
}

TEST(FilterRun, StagesRunInOrderAndLengthFollowsTheResult) {
    CFilter f;
    ASSERT_TRUE(readFilter(f, "[/AHx /AHx]"));
    // Stage 1 turns "3431>" into "41", stage 2 turns "41" into "A"; what
    // stands behind the length is cut off first.
    std::string data = "3431>garbage behind";
    int length = 5;
    EXPECT_EQ(f.filterStreamType(data, length), 0);
    EXPECT_EQ(data, "A");
    EXPECT_EQ(length, 1);
}

TEST(FilterRun, NegativeLengthKeepsTheWholeData) {
    CFilter f;
    ASSERT_TRUE(readFilter(f, "/AHx >>"));
    std::string data = "414243>";
    int length = -1;
    EXPECT_EQ(f.filterStreamType(data, length), 0);
    EXPECT_EQ(data, "ABC");
    EXPECT_EQ(length, 3);
}

TEST(FilterRun, CorruptDataGivesTheFilterFailureCodeAndKeepsTheLength) {
    CFilter f;
    ASSERT_TRUE(readFilter(f, "/FlateDecode >>"));
    std::string data = "\x78\x9c definitely not deflate data";
    int length = static_cast<int>(data.size());
    const int before = length;
    EXPECT_EQ(f.filterStreamType(data, length), 5000);
    EXPECT_EQ(length, before);
}

TEST(FilterRun, EarlierStagesStayDoneAfterALaterFailure) {
    CFilter f;
    ASSERT_TRUE(readFilter(f, "[/AHx /Fl]"));
    std::string data = "4142>", result;
    EXPECT_NE(f.filterStream(data, result), 0);
    EXPECT_EQ(data, "AB");
    EXPECT_EQ(result, "AB");
}
