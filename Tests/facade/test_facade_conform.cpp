// Conformance: the version code with its PDF/X and PDF/A claims, output intents, the marked flag, the ASCII85 layer.
#include <gtest/gtest.h>

#include "../filters/filter_test_util.h"
#include "ZQXml/ZQXml.h"
#include "cpdfkilnpage_encode.h"
#include "facade_test_util.h"

using namespace PDF_KILN;
using pagestest::Doc;
using pagestest::buildPdf;

namespace {

// A document of no pages with catalog extras, objects 3.. and an /Info dictionary 9 (left out when empty).
Doc conformDoc(const std::string& header, const std::string& catalogExtra, std::map<int, std::string> more,
               const std::string& info) {
    more[1] = "<< /Type /Catalog /Pages 2 0 R " + catalogExtra + " >>";
    more[2] = "<< /Type /Pages /Kids [] /Count 0 >>";
    if (!info.empty()) more[9] = info;
    return Doc(buildPdf(more, info.empty() ? "/Root 1 0 R" : "/Root 1 0 R /Info 9 0 R", header));
}

std::string intent(const std::string& s) { return "/OutputIntents [<< /Type /OutputIntent /S " + s + " >>]"; }

std::string xmp(const std::string& description, const std::string& body) {
    return "<?xpacket begin='' id='W5M0MpCehiHzreSzNTczkc9d'?><x:xmpmeta xmlns:x='adobe:ns:meta/'>"
           "<rdf:RDF xmlns:rdf='http://www.w3.org/1999/02/22-rdf-syntax-ns#'><rdf:Description rdf:about='' " +
           description + ">" + body + "</rdf:Description></rdf:RDF></x:xmpmeta><?xpacket end='w'?>";
}
const std::string kPdfaNs = "xmlns:pdfaid='http://www.aiim.org/pdfa/ns/id/'";

std::string flate(const std::string& data) { return filtertest::z(data); }

// One decoding stage of the support library, "<failed>" when it fails.
std::string inflateStage(const std::string& data, int kind) {
    const filtertest::Result r = filtertest::decode(filtertest::bytes(data), kind);
    return r.rc == 0 ? filtertest::text(r.data) : "<failed>";
}

}  // namespace

// Header, catalog /Version, intents and /Info, the X and A codes combined by a bit-wise AND, and the marked flag.
TEST(Conformance, VersionCodeTable) {
    const std::string pdfx = intent("/GTS_PDFX"), pdfa = intent("/GTS_PDFA1");
    auto xInfo = [](const std::string& v) { return "<< /GTS_PDFXVersion (" + v + ") >>"; };
    const struct {
        const char* header;
        std::string catalog, info;
        unsigned int code;
        bool marked = false;
    } rows[] = {
        {"%PDF-1.4", "", "", 4},
        {"%PDF-1.4", "/MarkInfo << /Marked true >> /Lang (en)", "", 4, true},
        {"%PDF-1.4", "/MarkInfo << /Suspects false /Marked true /UserProperties false >>", "", 4, true},
        {"%PDF-1.4", "/MarkInfo << /Marked false >>", "", 4, false},
        {"%PDF-1.4", "/MarkInfo 3 0 R", "", 4, true},
        {"%PDF-1.0", "", "", 0},
        {"%PDF-2.0", "", "", 10},
        {"%PDF-1.3", "/Version /1.6", "", 6},
        {"%PDF-1.7", "/Version /1.5", "", 7},
        {"%PDF-1.4", pdfx, "", 4},  // no /Info: the version alone, though the intent was seen
        {"%PDF-1.4", pdfx, "<< /Title (t) >>", 515},
        {"%PDF-1.4", intent("/GTS_Other"), xInfo("PDF/X-3:2002"), 4},
        {"%PDF-1.4", pdfx, xInfo("PDF/X-1:2001"), 259},
        {"%PDF-1.4", pdfx, "<< /GTS_PDFXVersion (PDF/X-1:2001) /GTS_PDFXConformance (PDF/X-1a:2001) >>", 515},
        {"%PDF-1.4", pdfx, xInfo("PDF/X-1a:2001"), 515},
        {"%PDF-1.4", pdfx, xInfo("PDF/X-3:2002"), 771},
        {"%PDF-1.4", pdfx, xInfo("PDF/X-1a:2003"), 1028},
        {"%PDF-1.4", pdfx, xInfo("PDF/X-2:2003"), 1284},
        {"%PDF-1.4", pdfx, xInfo("PDF/X-3:2003"), 1540},
        {"%PDF-1.6", pdfx, xInfo("PDF/X-4"), 0x706},
        {"%PDF-1.6", pdfx, xInfo("PDF/X-4p"), 0x806},
        {"%PDF-1.6", pdfx, xInfo("PDF/X-5g"), 0x906},
        {"%PDF-1.6", pdfx, xInfo("PDF/X-5n"), 0xA06},
        {"%PDF-1.6", pdfx, xInfo("PDF/X-5pg"), 0xB06},
        {"%PDF-1.6", pdfx, xInfo("PDF/X-9"), 0xF06},
        {"%PDF-1.4", pdfa, "<< >>", 4100},
        {"%PDF-1.4", pdfa, "<< /GTS_PDFAVersion (PDF/A-1b) >>", 8196},
        {"%PDF-1.6", pdfa, "<< /GTS_PDFAVersion (PDF/A-2u) >>", 0xF006},
        // The first PDF/A or PDF/X intent counts.
        {"%PDF-1.4", "/OutputIntents [<< /S /GTS_Other >> << /S /GTS_PDFA1 >> << /S /GTS_PDFX >>]", "<< >>", 4100},
        // Combination: X 515 and A 4100 share no bit, so the X code stands.
        {"%PDF-1.4", pdfx, "<< /GTS_PDFAVersion (PDF/A-1a) >>", 515},
        {"%PDF-1.4", pdfx, "<< /GTS_PDFXVersion (PDF/X-3:2002) /GTS_PDFAVersion (PDF/A-1b) >>", 771},
        {"%PDF-1.4", pdfx, "<< /GTS_PDFXVersion (PDF/X-2:2003) /GTS_PDFAVersion (PDF/A-1a) >>", 5380},
        {"%PDF-1.4", pdfx, "<< /GTS_PDFXVersion (PDF/X-3:2003) /GTS_PDFAVersion (PDF/A-1a) >>", 5636},
        {"%PDF-1.4", pdfx, "<< /GTS_PDFXVersion (PDF/X-1a:2003) /GTS_PDFAVersion (PDF/A-1a) >>", 5124},
        {"%PDF-1.4", pdfx, "<< /GTS_PDFXVersion (PDF/X-2:2003) /GTS_PDFAVersion (PDF/A-1b) >>", 9476},
        {"%PDF-1.4", pdfx, "<< /GTS_PDFXVersion (PDF/X-3:2003) /GTS_PDFAVersion (PDF/A-1b) >>", 9732},
        {"%PDF-1.4", pdfx, "<< /GTS_PDFXVersion (PDF/X-1a:2003) /GTS_PDFAVersion (PDF/A-1b) >>", 9220},
        {"%PDF-1.4", pdfx, "<< /GTS_PDFXVersion (PDF/X-4) /GTS_PDFAVersion (PDF/A-1a) >>", 0xF04},
        {"%PDF-1.4", pdfx, "<< /GTS_PDFXVersion (PDF/X-2:2003) /GTS_PDFAVersion (PDF/A-3) >>", 0xF004},
    };
    for (const auto& r : rows) {
        Doc o(conformDoc(r.header, r.catalog, {{3, "<< /Marked true >>"}}, r.info));
        ASSERT_EQ(o.rc, 0) << r.header << " " << r.catalog;
        EXPECT_EQ(o.page->getVersion(), r.code) << r.header << " | " << r.catalog << " | " << r.info;
        EXPECT_EQ(o.page->isMarked(), r.marked) << r.catalog;
    }
}

// XMP: pdfaid:part 2 or 3 with a conformance decides, as elements under an rdf:Description declaring the schema.
TEST(Conformance, XmpPdfaIdentification) {
    const std::string info = "<< /GTS_PDFAVersion (PDF/A-1b) >>";  // what decides when the XMP does not
    auto el = [](const char* part, const char* conf) {
        return std::string("<pdfaid:part>") + part + "</pdfaid:part><pdfaid:conformance>" + conf +
               "</pdfaid:conformance>";
    };
    const struct {
        std::string packet;
        bool attributes;
        unsigned int code;
    } rows[] = {
        {xmp(kPdfaNs, el("2", "B")), false, 0x4007},
        {xmp(kPdfaNs, el("2", "A")), false, 0x3007},
        {xmp(kPdfaNs, el("2", "U")), false, 0x5007},
        {xmp(kPdfaNs, el("3", "A")), false, 0x6007},
        {xmp(kPdfaNs, el("3", "B")), false, 0x7007},
        {xmp(kPdfaNs, "<pdfaid:conformance>U</pdfaid:conformance><pdfaid:amd>1</pdfaid:amd><pdfaid:part>3</pdfaid:part>"),
         false, 0x8007},
        {xmp(kPdfaNs, el("2", "b")), false, 8196},  // no case folding
        {xmp(kPdfaNs, el("1", "B")), false, 8196},  // PDF/A-1 is read from the intent and /Info only
        {xmp(kPdfaNs, el("4", "B")), false, 8196},
        {xmp("xmlns:pdfaid='http://www.aiim.org/pdfa/ns/id'", el("2", "B")), false, 8196},  // not the exact URI
        {xmp(kPdfaNs, "<x:y>" + el("2", "B") + "</x:y>"), false, 8196},  // not directly under the description
        {xmp(kPdfaNs + " pdfaid:part='2' pdfaid:conformance='B'", ""), false, 8196},  // attribute form
        {xmp(kPdfaNs + " pdfaid:part='2' pdfaid:conformance='B'", ""), true, 0x4007},
        {xmp(kPdfaNs + " pdfaid:part='3' pdfaid:conformance='U'", ""), true, 0x8007},
        {xmp(kPdfaNs, el("2", "B")) + "<unclosed", false, 0},  // damage within the reader's look-ahead: throws
        {"<x:xmpmeta xmlns:x='adobe:ns:meta/'>\xff\xfe\x00", false, 0},  // throws
        {xmp(kPdfaNs, "<pdfaid:part>2</pdfaid:part><open>"), false, 0},   // unclosed elements: throws
        {"<!DOCTYPE x [<!ENTITY a 'aaaaaaaaaa'><!ENTITY b '&a;&a;&a;&a;&a;&a;&a;&a;&a;&a;'>"
         "<!ENTITY c '&b;&b;&b;&b;&b;&b;&b;&b;&b;&b;'><!ENTITY d '&c;&c;&c;&c;&c;&c;&c;&c;&c;&c;'>"
         "<!ENTITY e '&d;&d;&d;&d;&d;&d;&d;&d;&d;&d;'><!ENTITY f '&e;&e;&e;&e;&e;&e;&e;&e;&e;&e;'>"
         "<!ENTITY g '&f;&f;&f;&f;&f;&f;&f;&f;&f;&f;'><!ENTITY h '&g;&g;&g;&g;&g;&g;&g;&g;&g;&g;'>]><x>&h;</x>",
         false, 0},
        {"<!DOCTYPE x SYSTEM 'file:///etc/passwd'><x>&xxe;</x>", false, 0},
        {"<x>" + std::string(50u << 20, 'a') + "</x>", false, 0},  // a 50 MB text node passes libxml2's limit
    };
    for (const auto& r : rows) {
        Doc o(conformDoc("%PDF-1.7", "/Metadata 5 0 R " + intent("/GTS_PDFA1"),
                            {{5, "/Type /Metadata /Subtype /XML stream:" + r.packet}}, info));
        ASSERT_EQ(o.rc, 0);
        o.page->setReadXmpAttributes(r.attributes);
        if (r.code == 0) EXPECT_THROW(o.page->getVersion(), ZQXmlException) << r.packet.substr(0, 120);
        else EXPECT_EQ(o.page->getVersion(), r.code) << r.packet.substr(0, 300);
    }
}

// Output intents held directly (nested dictionaries count too), by reference, and through a referenced array.
TEST(Conformance, OutputIntentsDirectAndByReference) {
    const std::string profile = std::string(16, 'p') + "CMYK" + std::string(108, '\x01') + "\xff\n";
    const std::string fogra = "/S /GTS_PDFX /OutputConditionIdentifier (FOGRA39) /RegistryName (http://www.color.org) "
                              "/Info <FEFF00C4> /OutputCondition (Coated) /DestOutputProfile 5 0 R";
    const std::map<int, std::string> objects = {{4, "<< /Type /OutputIntent " + fogra + " >>"},
                                                {5, "/N 4 /Filter /FlateDecode stream:" + flate(profile)},
                                                {6, "<< /S /GTS_PDFA1 /OutputConditionIdentifier (sRGB) >>"},
                                                {7, "[4 0 R 6 0 R]"}};
    const struct {
        std::string catalog;
        int count;
        std::vector<std::string> s;
    } rows[] = {
        {"/OutputIntents [4 0 R 6 0 R]", 2, {"/GTS_PDFX", "/GTS_PDFA1"}},
        {"/OutputIntents 7 0 R", 2, {"/GTS_PDFX", "/GTS_PDFA1"}},
        {"/OutputIntents [<< " + fogra + " >>]", 1, {"/GTS_PDFX"}},
        // A nested dictionary is one more intent, met where it starts.
        {"/OutputIntents [<< " + fogra + " /X << /S /Inner >> >>]", 2, {"/GTS_PDFX", "/Inner"}},
        {"/OutputIntents []", 0, {}},
        {"", 0, {}},
    };
    for (const auto& r : rows) {
        Doc o(conformDoc("%PDF-1.4", r.catalog, objects, ""));
        ASSERT_EQ(o.rc, 0) << r.catalog;
        ASSERT_EQ(o.page->getOutputIntentsCount(), r.count) << r.catalog;
        for (int i = 0; i < r.count; ++i) EXPECT_EQ(o.page->getOPIS(static_cast<unsigned short>(i)), r.s[i]);
        EXPECT_EQ(o.page->getOPIS(static_cast<unsigned short>(r.count)), "") << "an index equal to the count";
        if (r.count == 0) continue;
        EXPECT_EQ(std::make_tuple(o.page->getOPIOutputConditionIdentifier(0), o.page->getOPIRegistryName(0),
                                  o.page->getOPIDestOutputProfile(0)),
                  std::make_tuple("FOGRA39", "http://www.color.org", profile));
        icu::UnicodeString u("stale");
        o.page->getOPIInfo(0, u);
        EXPECT_TRUE(u == icu::UnicodeString(static_cast<UChar>(0xC4)));
        o.page->getOPIOutputCondition(0, u);
        EXPECT_TRUE(u == icu::UnicodeString("Coated"));
        o.page->getOPIInfo(static_cast<unsigned short>(r.count), u);
        EXPECT_TRUE(u.isEmpty()) << "cleared for an index out of range";
    }
}

// Filtered binary streams get the ASCII85 layer; ASCII, unfiltered and already ASCII85 data do not.
TEST(AsciiEncode, StreamsOfAPage) {
    std::string binary;
    for (int i = 0; i < 600; ++i) binary += static_cast<char>((i * 37) & 0xFF);
    const std::string packed = flate(binary);
    const struct {
        std::string dict, data;
        bool wrapped;
    } rows[] = {
        {"/Name /S1 /Filter /FlateDecode", packed, true},
        {"/Name /S2 /Filter /FlateDecode", "plain text only", false},
        {"/Name /S3", binary, false},
        {"/Name /S4 /Filter [/ASCII85Decode /FlateDecode]", "\x80\x81~>", false},
        {"/Name /S5 /Filter [/FlateDecode /ASCII85Decode]", packed, true},
        {"/Name /S6 /Filter /FlateDecode /DecodeParms << /Predictor 1 >>", packed, true},
    };
    for (bool options : {false, true}) {
        std::map<int, std::string> objects = {{3, "<< /Type /Page /Parent 2 0 R /MediaBox [0 0 10 10] /Resources "
                                                  "<< /XObject << /A 4 0 R /B 5 0 R /C 6 0 R /D 7 0 R /E 8 0 R "
                                                  "/F 9 0 R >> >> >>"}};
        for (int i = 0; i < 6; ++i) objects[4 + i] = rows[i].dict + " stream:" + rows[i].data;
        std::stringstream in(buildPdf(objects));
        CPDFKilnPage_Encode e(in, "");
        EXPECT_EQ(e.constructFilterEntity("/Filter /FlateDecode"), "/Filter  [/ASCII85Decode/FlateDecode ]");
        EXPECT_EQ(e.constructFilterEntity("/Filter[/LZWDecode /FlateDecode]"),
                  "/Filter  [/ASCII85Decode/LZWDecode /FlateDecode ]");
        EXPECT_EQ(e.constructFilterEntity(""), "/Filter /ASCII85Decode ");
        ASSERT_EQ(e.init(), 0);
        e.setDecodeParmsFollow(options);
        e.setEncodeUnfiltered(options);
        ASSERT_EQ(e.setPageNo(1), 0);
        e.setStartObjNo(10);
        for (int i = 0; i < 6; ++i) {
            const std::string name = "/Name /S" + std::to_string(i + 1);
            auto it = e.begin();
            while (it != e.end() && it->second.find(name) == std::string::npos) ++it;
            ASSERT_NE(it, e.end()) << name;
            const std::string& t = it->second;
            const bool wrapped = rows[i].wrapped || (options && i == 2);
            EXPECT_EQ(t.find("/ASCII85Decode") < t.find("stream"), wrapped || i == 3 || i == 4)
                << t.substr(0, 120);
            if (!wrapped) {
                EXPECT_NE(t.find(rows[i].data), std::string::npos) << name << " left as it was";
                continue;
            }
            for (unsigned char c : t) ASSERT_LT(c, 128) << name;
            const std::size_t start = t.find("stream") + 6;
            const std::size_t data = t.find_first_not_of("\r\n", start);
            const std::size_t length = std::stoul(t.substr(t.find("/Length") + 8));
            const std::string layer = t.substr(data, length);
            EXPECT_EQ(layer.substr(layer.size() - 2), "~>") << "the /Length covers the new data: " << name;
            EXPECT_EQ(inflateStage(layer, 4), i == 2 ? binary : packed) << name;
            if (i == 0) pagestest::expectParts(t, {"/Filter  [/ASCII85Decode/FlateDecode ]"});
            if (i == 5)
                pagestest::expectParts(t, {options ? "/DecodeParms [null << /Predictor 1 >>]"
                                                   : "/DecodeParms << /Predictor 1 >>"});
        }
    }
}

TEST(Conformance, OptionalContentInTheCallersNumbering) {
    // C, on no page, is left out of the caller's numbering; /ON is taken first, so A stays on though /OFF lists it.
    pagestest::Doc d(pagestest::buildPdf(
        {{1, "<< /Type /Catalog /Pages 2 0 R /OCProperties << /OCGs [5 0 R 6 0 R 7 0 R] "
             "/D << /ON [5 0 R] /OFF [6 0 R 5 0 R] /Order [7 0 R 6 0 R 5 0 R] >> >> >>"},
         {3, "<< /Type /Page /Parent 2 0 R /MediaBox [0 0 10 10] "
             "/Resources << /Properties << /a 5 0 R /b 6 0 R >> >> >>"},
         {5, "<< /Type /OCG /Name (A) >>"},
         {6, "<< /Type /OCG /Name (B) >>"},
         {7, "<< /Type /OCG /Name (C) >>"}}));
    ASSERT_EQ(d.rc, 0);
    std::map<std::pair<int, int>, bool> state;
    std::vector<std::pair<int, int>> order;
    d.page->getCatalogOCProperties(state, order);
    EXPECT_TRUE(state.empty()) << "nothing numbered yet";
    ASSERT_TRUE(d.select(1, 40));
    std::map<std::string, std::pair<int, int>> byName;  // the delivered number of each group
    for (auto it = d.page->begin(); it != d.page->end(); d.page->next(it))
        for (const char* n : {"(A)", "(B)", "(C)"})
            if (it->second.find(n) != std::string::npos) byName[n] = {it->first.first, it->first.second};
    ASSERT_EQ(byName.count("(A)") + byName.count("(B)"), 2u);
    EXPECT_EQ(byName.count("(C)"), 0u);
    d.page->getCatalogOCProperties(state, order);
    const std::map<std::pair<int, int>, bool> wantState{{byName["(A)"], true}, {byName["(B)"], false}};
    EXPECT_EQ(state, wantState);
    const std::vector<std::pair<int, int>> wantOrder{byName["(B)"], byName["(A)"]};
    EXPECT_EQ(order, wantOrder);
}
