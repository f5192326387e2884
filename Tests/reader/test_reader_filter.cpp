// The filter chain as the reader builds it: /Filter and /DecodeParms parsing
// into stage records, and running data through the stages.
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <tuple>

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
    const std::pair<const char*, int> names[] = {
        {"/FlateDecode", FILTER_FLATE},  {"/Fl", FILTER_FLATE},           {"/LZW", FILTER_LZW},
        {"/AHx", FILTER_ASCIIHEX},       {"/ASCIIHexDecod", FILTER_ASCIIHEX},
        // The full name is not the kept spelling.
        {"/ASCIIHexDecode", FILTER_UNKNOWN}, {"/A85", FILTER_ASCII85},    {"/RunLengthDecode", FILTER_RUNLENGTH},
        {"/CCF", FILTER_CCITTFAX},       {"/DCTDecode", FILTER_DCT},      {"/JBIG2Decode", FILTER_UNKNOWN},
        {"/JPXDecode", FILTER_UNKNOWN},  {"null", FILTER_UNKNOWN},        {"12", FILTER_UNKNOWN},
    };
    CFilter f;
    for (const auto& n : names) EXPECT_EQ(f.GetFilterType(n.first), n.second) << n.first;
    EXPECT_TRUE(f.IsNeedCompType(FILTER_FLATE));
    EXPECT_TRUE(f.IsNeedCompType(FILTER_DCT));
    EXPECT_FALSE(f.IsNeedCompType(FILTER_UNKNOWN));
    EXPECT_FALSE(f.IsNeedCompType(FILTER_NONE));
}

TEST(FilterParsing, StagesParametersAndWhereReadingStops) {
    // Of the first stage: type and predictor; -1 and "" are not looked at; next is the token behind.
    const struct { const char* text; bool ok; int stages; int type; int predictor; const char* next; } cases[] = {
        {"[] /Length 3", true, 0, 0, -1, ""},
        // An unsupported stage ends the array, keeping the earlier stages.
        {"[/ASCII85Decode /JBIG2Decode]", false, 1, FILTER_ASCII85, -1, ""},
        {"[/AHx /Fl] /Length 9", true, 2, FILTER_ASCIIHEX, -1, "/Length"},
        // A single name finds its parameters behind it; the position is restored behind the name.
        {"/FlateDecode /DecodeParms << /Predictor 12 /Columns 5 >> /Length 4", true, 1, FILTER_FLATE, 12,
         "/DecodeParms"},
        // An array ignores parameters outside its brackets; inside them they end it with false.
        {"[/FlateDecode] /DecodeParms [<< /Predictor 12 >>]", true, 1, FILTER_FLATE, 0, ""},
        {"[/FlateDecode /DecodeParms << /Predictor 12 >> /AHx]", false, 1, FILTER_FLATE, 12, ""},
        // A single name with a parameter array, reference or null fails.
        {"/FlateDecode /DecodeParms [<< /Predictor 12 >>]", false, 0, 0, -1, ""},
        {"/FlateDecode /DecodeParms 7 0 R", false, -1, 0, -1, ""},
        {"/FlateDecode /DecodeParms null", false, -1, 0, -1, ""},
        {"/JBIG2Decode", false, 0, 0, -1, ""},
        {"/ASCIIHexDecode", false, 0, 0, -1, ""},
        {"12 0 R", false, 0, 0, -1, ""},
        // The search for parameters stops at "stream"; a nested dictionary ends them early.
        {"/Fl /Length 3 >>\nstream\n/DecodeParms << /Predictor 12 >>", true, 1, FILTER_FLATE, 0, ""},
        {"/Fl /DecodeParms << /Other << /A 1 >> /Predictor 12 >>", true, 1, FILTER_FLATE, 0, ""},
        // An unclosed parameter dictionary stops at the end of the input.
        {"/Fl /DecodeParms << /Unknown", false, -1, 0, -1, ""},
    };
    for (const auto& c : cases) {
        CFilter f;
        std::string next;
        EXPECT_EQ(readFilter(f, c.text, 0, &next), c.ok) << c.text;
        if (*c.next) { EXPECT_EQ(next, c.next) << c.text; }
        if (c.stages < 0) continue;
        ASSERT_EQ(f.stages.size(), static_cast<std::size_t>(c.stages)) << c.text;
        if (c.stages == 0) continue;
        EXPECT_EQ(f.stages.at(0).type, c.type) << c.text;
        EXPECT_EQ(f.stages.at(0).earlyChange, 1) << c.text;
        if (c.predictor >= 0) { EXPECT_EQ(f.stages.at(0).predictor, c.predictor) << c.text; }
        if (c.stages == 2) { EXPECT_EQ(f.stages.at(1).type, FILTER_FLATE); }
    }
}

TEST(FilterParsing, ParametersOfAllKnownKeysAndDefaultsAtRunTime) {
    CFilter f;
    EXPECT_TRUE(readFilter(f, "/LZWDecode /DecodeParms << /K -1 /EarlyChange 0 /Colors 3 /BitsPerComponent 4 "
                              "/Columns 7 /Predictor 2 /BlackIs1 true >> stream"));
    const FilterPropTD& p = f.stages.at(0);
    // earlyChange, colors, bitsPerComponent, columns, predictor
    EXPECT_EQ(std::make_tuple(p.earlyChange, p.colors, p.bitsPerComponent, p.columns, p.predictor),
              std::make_tuple(0, 3, 4, 7, 2));

    CFilter g;
    EXPECT_TRUE(readFilter(g, "/FlateDecode /DecodeParms << /Predictor 12 /Columns 5 >> /Length 4"));
    const FilterPropTD& q = g.stages.at(0);
    EXPECT_EQ(std::make_tuple(q.colors, q.bitsPerComponent, q.columns), std::make_tuple(0, 0, 5));
    // Running the stage (on data that is no zlib stream) applies the defaults first.
    std::string data = "not deflated", result;
    EXPECT_NE(g.filterStream(data, result), 0);
    EXPECT_EQ(std::make_tuple(q.colors, q.bitsPerComponent, q.aux16, q.predictor, q.columns),
              std::make_tuple(1, 8, 100, 12, 5));
}

TEST(FilterParsing, ParametersBeforeTheFilterAreFoundOnlyFromTheDictionaryStart) {
    const std::string dict =
        "<< /DecodeParms << /Columns 4 /Predictor 12 >> /Filter /FlateDecode /Length 3 >>\nstream\n";
    for (long dictStart : {0, 1}) {
        CFilter f;
        std::istringstream in(dict);
        in.seekg(static_cast<std::streamoff>(dict.find("/FlateDecode")));
        EXPECT_TRUE(f.ReadFilter(in, dictStart));
        EXPECT_EQ(f.stages.at(0).predictor, dictStart ? 12 : 0);
        if (!dictStart) continue;
        EXPECT_EQ(f.stages.at(0).columns, 4);
        std::string next;
        readPDFString(in, next);
        EXPECT_EQ(next, "/Length");
    }
}

TEST(FilterParsing, ReadParameterAndASecondRead) {
    CFilter g;
    FilterPropTD p{};
    std::istringstream in("<< /Columns");
    EXPECT_FALSE(g.ReadParameter(in, p));
    std::istringstream bad("<< /Columns x >>");
    EXPECT_FALSE(g.ReadParameter(bad, p));
    // A second read keeps the first stage.
    CFilter f;
    EXPECT_TRUE(readFilter(f, "/AHx >>"));
    EXPECT_TRUE(readFilter(f, "/Fl >>"));
    ASSERT_EQ(f.stages.size(), 1u);
    EXPECT_EQ(f.stages.at(0).type, FILTER_ASCIIHEX);
}

TEST(FilterRun, StagesLengthsAndFailures) {
    // A length of -2 is the data's size, a lengthAfter of -2 unchanged; a null `after` is not looked at.
    const struct { const char* filter; std::string data; int length, rc; const char* after; int lengthAfter; }
    cases[] = {
        // "3431>" becomes "41", then "A"; what stands behind the length is cut off first.
        {"[/AHx /AHx]", "3431>garbage behind", 5, 0, "A", 1},
        // A negative length keeps the whole data.
        {"/AHx >>", "414243>", -1, 0, "ABC", 3},
        // Corrupt data give the filter failure code and keep the length.
        {"/FlateDecode >>", "\x78\x9c definitely not deflate data", -2, 5000, nullptr, -2},
    };
    for (const auto& c : cases) {
        CFilter f;
        ASSERT_TRUE(readFilter(f, c.filter));
        std::string data = c.data;
        int length = c.length == -2 ? static_cast<int>(data.size()) : c.length;
        const int before = length;
        EXPECT_EQ(f.filterStreamType(data, length), c.rc) << c.filter;
        if (c.after) { EXPECT_EQ(data, c.after) << c.filter; }
        EXPECT_EQ(length, c.lengthAfter == -2 ? before : c.lengthAfter) << c.filter;
    }
    CFilter none;
    EXPECT_TRUE(readFilter(none, "[] /Length 3"));
    std::string bytes = "abc", result = "untouched";
    EXPECT_EQ(none.filterStream(bytes, result), 0);
    EXPECT_EQ(bytes, "abc");
    EXPECT_EQ(result, "untouched");

    CFilter g;
    ASSERT_TRUE(readFilter(g, "[/AHx /Fl]"));
    bytes = "4142>";
    result.clear();
    EXPECT_NE(g.filterStream(bytes, result), 0);
    EXPECT_EQ(bytes, "AB");
    EXPECT_EQ(result, "AB");
}
