// Flate (+ predictor) decoding of a bounded sample of the corpus's streams, byte for byte against qpdf's: the files
// are scanned as text for plain objects whose only filter is FlateDecode and whose /Length is a direct number.
#include <gtest/gtest.h>

#include <cctype>
#include <cstdio>
#include <map>
#include <regex>

#include "corpus_util.h"
#include "filter_test_util.h"

using namespace filtertest;
using namespace ZQGraphicService_NS;

namespace {

struct Candidate {
    std::string file;
    long num = 0, gen = 0;
    Bytes raw;
    int predictor = 0, colors = 1, bpc = 8, columns = 0;
};

bool isDigit(char c) { return std::isdigit(static_cast<unsigned char>(c)) != 0; }

// The value of /Key in dict when a direct number; keys match whole (not /Length1), "12 0 R" is a reference.
bool directInt(const std::string& dict, const std::string& key, long& value) {
    static const std::regex number(R"(\s*(\d+)(?!\d|\s*\d+\s*R))");
    for (std::size_t pos = dict.find(key); pos != std::string::npos; pos = dict.find(key, pos)) {
        pos += key.size();
        if (pos < dict.size() && (std::isalnum(static_cast<unsigned char>(dict[pos])) || dict[pos] == '_')) continue;
        std::smatch m;
        if (!std::regex_search(dict.cbegin() + long(pos), dict.cend(), m, number,
                               std::regex_constants::match_continuous))
            return false;
        value = std::stol(m[1]);
        return true;
    }
    return false;
}

bool onlyFlate(const std::string& dict) {
    if (dict.find("/FlateDecode") == std::string::npos) return false;
    for (const char* other : {"LZWDecode", "ASCIIHex", "ASCII85", "RunLength", "CCITT", "DCTDecode", "JBIG2", "JPX",
                              "Crypt", "/Fl ", "/Fl]", "/AHx", "/A85", "/DecodeParms [", "/DecodeParms[",
                              "/Filter [ /FlateDecode /", "/Filter[/FlateDecode/"})
        if (dict.find(other) != std::string::npos) return false;
    // An indirect /DecodeParms cannot be read from the text here.
    const std::size_t dp = dict.find("/DecodeParms");
    const std::size_t p = dp == std::string::npos ? dp : dict.find_first_not_of(" \t\n\v\f\r", dp + 12);
    return dp == std::string::npos || (p != std::string::npos && dict[p] == '<');
}

void scanFile(const std::string& path, std::map<long, Candidate>& found) {
    const std::string s = testutil::readFile(path);
    if (s.find("/Encrypt") != std::string::npos) return;
    for (std::size_t pos = s.find(" obj"); pos != std::string::npos; pos = s.find(" obj", pos + 4)) {
        // "<num> <gen> obj"
        std::size_t g = pos, n;
        while (g > 0 && isDigit(s[g - 1])) --g;
        if (g == pos || g < 2 || s[g - 1] != ' ') continue;
        for (n = g - 1; n > 0 && isDigit(s[n - 1]); --n) {}
        const std::size_t objEnd = pos + 4, streamKw = s.find("stream", objEnd);
        if (n == g - 1 || streamKw == std::string::npos || s.find("endobj", objEnd) < streamKw ||
            streamKw - objEnd > 4000)
            continue;
        const std::string dict = s.substr(objEnd, streamKw - objEnd);
        long length = 0;
        if (!onlyFlate(dict) || !directInt(dict, "/Length", length) || length <= 0) continue;
        std::size_t data = streamKw + 6;
        if (data < s.size() && s[data] == '\r') ++data;
        if (data < s.size() && s[data] == '\n') ++data;
        if (data + std::size_t(length) > s.size()) continue;
        const std::size_t after = s.find_first_not_of(" \t\n\v\f\r", data + std::size_t(length));
        if (after == std::string::npos || s.compare(after, 9, "endstream") != 0) continue;
        Candidate c;
        c.file = path;
        c.num = std::stol(s.substr(n, g - 1 - n));
        c.gen = std::stol(s.substr(g, pos - g));
        c.raw.assign(s.begin() + long(data), s.begin() + long(data) + length);
        long v;
        if (directInt(dict, "/Predictor", v)) c.predictor = int(v);
        if (directInt(dict, "/Colors", v)) c.colors = int(v);
        if (directInt(dict, "/BitsPerComponent", v) && dict.find("/DecodeParms") < dict.find("/BitsPerComponent"))
            c.bpc = int(v);
        if (directInt(dict, "/Columns", v)) c.columns = int(v);
        found[c.num] = std::move(c);  // the last definition wins, as in an update
    }
}

}  // namespace

TEST(FlateCorpus, MatchesQpdfOnRealStreams) {
    if (!corpus::available()) GTEST_SKIP() << "corpus not present at " << corpus::root();
    if (!testutil::exists(PDFKILN_QPDF)) GTEST_SKIP() << "qpdf not installed";

    // Every predicted stream found (bounded), and a few plain ones per file.
    std::vector<Candidate> sample, plain;
    for (const auto& f : corpus::qpdfFiles()) {
        std::map<long, Candidate> found;
        scanFile(corpus::root() + "/qpdf/" + f, found);
        int plainHere = 0;
        for (auto& kv : found) {
            // Parameters no image has (a /Colors of 2^29+1) are policy: qpdf passes the data through unpredicted,
            // this library decodes it as one partial row.
            if (kv.second.colors > 256 || kv.second.columns > (1 << 24)) continue;
            if (kv.second.predictor >= 2) {
                if (sample.size() < 150) sample.push_back(kv.second);
            } else if (plainHere < 2 && plain.size() < 200) {
                plain.push_back(kv.second);
                ++plainHere;
            }
        }
    }
    sample.insert(sample.end(), plain.begin(), plain.end());

    int compared = 0, comparedPredicted = 0, mismatches = 0;
    for (const Candidate& c : sample) {
        std::string want;
        if (testutil::run(testutil::quote(PDFKILN_QPDF) + " --show-object=" + std::to_string(c.num) + "," +
                              std::to_string(c.gen) + " --filtered-stream-data " + testutil::quote(c.file),
                          &want) != 0)
            continue;  // qpdf itself could not decode it
        Result got = decode(c.raw, props(FILTER_FLATE, c.predictor, c.colors, c.bpc, c.columns));
        ++compared;
        if (c.predictor >= 2) ++comparedPredicted;
        if (got.rc != ZQ_OK || text(got.data) != want) {
            ++mismatches;
            ADD_FAILURE() << c.file << " object " << c.num << " predictor " << c.predictor << " colors " << c.colors
                          << " bpc " << c.bpc << " columns " << c.columns << ": rc " << got.rc << ", "
                          << got.data.size() << " bytes vs qpdf " << want.size();
        }
    }
    std::printf("corpus: %d streams compared with qpdf (%d with predictors), %d mismatches\n", compared,
                comparedPredicted, mismatches);
    EXPECT_GE(compared, 100);
    EXPECT_GE(comparedPredicted, 20);
}
