// The page facade: output intents, the version code with the PDF/X and PDF/A
// claims, the marked flag, and the document's optional-content state.
#include <cstring>
#include <sstream>

#include "ZQXml/ZQXml.h"
#include "pdfkiln_destfile.h"
#include "pdfkiln_findingvalue.h"
#include "pdfkiln_page.h"
#include "pdfkiln_sourfile.h"
#include "yard/pdf_rules.h"

namespace PDF_KILN {

namespace {

using namespace PDF_RULES;

// The keys of an output intent dictionary, in the order the hints hold them.
const struct {
    const char* key;
    EPDFType type;
} kIntentKeys[] = {
    {"/Info", ePDFString},         {"/DestOutputProfile", ePDFStream}, {"/OutputConditionIdentifier", ePDFString},
    {"/RegistryName", ePDFString}, {"/OutputCondition", ePDFString},   {"/S", ePDFName},
    {"/ProfileName", ePDFString},  {"/F", ePDFString},                 {"/FS", ePDFString},
    {"/ProfileCS", ePDFString},    {"/CheckSum", ePDFString},          {"/ICCVersion", ePDFString},
};

FindingHint* newIntentHint(bool byReference) {
    FindingHint* hint = new FindingHint;
    if (byReference) hint->insertHintInfo(nmOutputIntents, ePDFNone);
    for (const auto& k : kIntentKeys) hint->insertHintInfo(k.key, k.type);
    return hint;
}

// The namespace of the PDF/A identification schema.
const char kPdfaIdNamespace[] = "http://www.aiim.org/pdfa/ns/id/";

// The PDF/A kind of an XMP part and conformance, or 0 when they decide nothing.
unsigned int xmpPdfaCode(const std::string& part, const std::string& conformance) {
    if (conformance.empty()) return 0;
    unsigned int first = 0;
    if (part == "2") first = 0x3000;
    else if (part == "3") first = 0x6000;
    else return 0;
    if (conformance == "A") return first;
    if (conformance == "B") return first + 0x1000;
    if (conformance == "U") return first + 0x2000;
    return 0;
}

// Reads the XMP packet for pdfaid:part and pdfaid:conformance in element
// form, under an rdf:Description that declares the schema's namespace.
// Returns the PDF/A kind bits of a PDF/A-2 or -3 claim, 0 for none.
unsigned int readXmpPdfa(const char* data, std::size_t size, bool attributeForm) {
    ZQRef<ZQMemStream> memory(new ZQMemStream(nullptr, 0, 8192));
    if (!memory->write(data, size)) return 0;
    ZQRef<ZQXmlParser> parser = ZQXmlUtil::getRootParser(memory);
    if (!parser) return 0;
    ZQNameTable& names = parser->nameTable();
    const std::string& rdf = names.getSharedNameString("rdf");
    const std::string& description = names.getSharedNameString("Description");
    const std::string& xmlns = names.getSharedNameString("xmlns");
    const std::string& pdfaid = names.getSharedNameString("pdfaid");
    const std::string& part = names.getSharedNameString("part");
    const std::string& amd = names.getSharedNameString("amd");
    const std::string& conformance = names.getSharedNameString("conformance");

    int schemaDepth = -2;  // depth of the rdf:Description that declares pdfaid
    std::string fields[3];  // part, amd, conformance
    std::string* pending = nullptr;
    while (ZQRef<ZQNode> node = parser->next()) {
        if (node->kind() == eZQElement) {
            const ZQName& name = node->name();
            if (&name.prefix() == &rdf && &name.localName() == &description) {
                bool declares = false;
                for (auto a = node->attributes().rbegin(); a != node->attributes().rend(); ++a) {
                    const ZQName& an = (*a)->name();
                    if (&an.localName() == &pdfaid && &an.prefix() == &xmlns) {
                        declares = (*a)->value() == kPdfaIdNamespace;
                        if (declares) schemaDepth = node->depth();
                        break;
                    }
                }
                if (declares && attributeForm) {
                    std::string attrPart, attrConformance;
                    for (const ZQRef<ZQNode>& a : node->attributes()) {
                        if (&a->name().prefix() != &pdfaid) continue;
                        if (&a->name().localName() == &part) attrPart = a->value();
                        else if (&a->name().localName() == &conformance) attrConformance = a->value();
                    }
                    if (const unsigned int code = xmpPdfaCode(attrPart, attrConformance)) return code;
                }
            } else if (&name.prefix() == &pdfaid && node->depth() == schemaDepth + 1) {
                if (&name.localName() == &part) pending = &fields[0];
                else if (&name.localName() == &amd) pending = &fields[1];
                else if (&name.localName() == &conformance) pending = &fields[2];
            }
        } else if (node->kind() == eZQText) {
            if (pending) {
                *pending = node->value();
                pending = nullptr;
            }
            if (const unsigned int code = xmpPdfaCode(fields[0], fields[2])) return code;
        }
    }
    return 0;
}

// The data of the stream in an object's text: from behind "stream" and its
// line end to "endstream". False when the text has no such stream.
bool streamData(const std::string& text, const char*& begin, const char*& end) {
    OneTokenizer<MatchStreamBegin> start;
    start.Tokenize(text.data(), text.data() + text.size());
    if (start.empty()) return false;
    std::size_t at = static_cast<std::size_t>(start.GetTokens().front().second - text.data());
    if (at < text.size() && text[at] == '\r') ++at;
    if (at < text.size() && text[at] == '\n') ++at;
    const std::size_t stop = text.rfind(kwendstream);
    if (stop == std::string::npos || stop <= at) return false;
    begin = text.data() + at;
    end = text.data() + stop;
    return true;
}

// The X code of a /GTS_PDFXVersion value (with its /GTS_PDFXConformance).
unsigned int pdfxCode(const std::string& version, const std::string& conformance, unsigned int pdfVersion) {
    if (aIncludeB(version, "PDF/X-1:2001"))
        return !conformance.empty() && aIncludeB(conformance, "PDF/X-1a:2001") ? 515 : 259;
    static const struct {
        const char* name;
        unsigned int code;
    } whole[] = {{"PDF/X-1a:2001", 515}, {"PDF/X-3:2002", 771}, {"PDF/X-1a:2003", 1028},
                 {"PDF/X-2:2003", 1284}, {"PDF/X-3:2003", 1540}};
    for (const auto& w : whole)
        if (aIncludeB(version, w.name)) return w.code;
    // "PDF/X-4p" before "PDF/X-4", which it contains.
    static const struct {
        const char* name;
        unsigned int kind;
    } kinds[] = {{"PDF/X-4p", 8}, {"PDF/X-4", 7}, {"PDF/X-5g", 9}, {"PDF/X-5n", 10}, {"PDF/X-5pg", 11}};
    for (const auto& k : kinds)
        if (aIncludeB(version, k.name)) return k.kind << 8 | pdfVersion;
    return 15u << 8 | pdfVersion;
}

}  // namespace

void CPDFKilnPage::findValue() {
    // A second opening (with a password) reads the intents anew.
    for (FindingHint* h : hints) delete h;
    hints.clear();
    outputIntentsCount = 0;

    FindingHint top;
    top.insertHintInfo(nmOutputIntents, ePDFArray);
    FindingValue catalog(top, source);
    catalog.find(true);
    if (top.getPropertyValueCount(nmOutputIntents) == 0) return;
    const std::string array = top.getPropertyValue(nmOutputIntents);
    const char* first = array.data();
    const char* last = first + array.size();

    // Every dictionary the scan meets, nested ones too, from each start byte.
    std::vector<std::string> dictionaries;
    yard::TextStream scan(first, last);
    for (const char* p = first; p < last; ++p) {
        if (*p != '<') continue;
        scan.SetPos(p);
        if (MatchDictionaryObject::Accept(scan) && scan.GetPos() > p) dictionaries.emplace_back(p, scan.GetPos());
    }
    if (!dictionaries.empty()) {
        outputIntentsCount = static_cast<int>(dictionaries.size());
        for (const std::string& d : dictionaries) {
            FindingHint* hint = newIntentHint(false);
            hints.push_back(hint);
            FindingValue intent(*hint, source, d);
            intent.find(true);
        }
        return;
    }

    Tokenizer<MatchIndirectObject> refs;
    refs.Tokenize(first, last);
    if (refs.empty()) return;
    outputIntentsCount = static_cast<int>(refs.size());
    for (const yard::Token& ref : refs) {
        FindingHint* hint = newIntentHint(true);
        hints.push_back(hint);
        std::istringstream in(ref.str());
        int number = 0, generation = 0;
        in >> number >> generation;
        FindingValue intent(*hint, source, number, generation);
        intent.find(true);
    }
}

int CPDFKilnPage::getOutputIntentsCount() const { return outputIntentsCount; }

std::string CPDFKilnPage::outputIntentValue(unsigned short index, const char* key) const {
    // The count is set before the hints are filled: a search that failed
    // half-way leaves fewer hints than intents.
    if (index >= outputIntentsCount || index >= hints.size()) return std::string();
    return hints[index]->getPropertyValue(key);
}

std::string CPDFKilnPage::getOPIOutputConditionIdentifier(unsigned short i) const {
    return outputIntentValue(i, "/OutputConditionIdentifier");
}
std::string CPDFKilnPage::getOPIS(unsigned short i) const { return outputIntentValue(i, "/S"); }
std::string CPDFKilnPage::getOPIRegistryName(unsigned short i) const { return outputIntentValue(i, "/RegistryName"); }
std::string CPDFKilnPage::getOPIDestOutputProfile(unsigned short i) const {
    return outputIntentValue(i, "/DestOutputProfile");
}
std::string CPDFKilnPage::getOPIProfileName(unsigned short i) const { return outputIntentValue(i, "/ProfileName"); }
std::string CPDFKilnPage::getOPIF(unsigned short i) const { return outputIntentValue(i, "/F"); }
std::string CPDFKilnPage::getOPIFS(unsigned short i) const { return outputIntentValue(i, "/FS"); }
std::string CPDFKilnPage::getOPIProfileCS(unsigned short i) const { return outputIntentValue(i, "/ProfileCS"); }
std::string CPDFKilnPage::getOPICheckSum(unsigned short i) const { return outputIntentValue(i, "/CheckSum"); }
std::string CPDFKilnPage::getOPIICCVersion(unsigned short i) const { return outputIntentValue(i, "/ICCVersion"); }

void CPDFKilnPage::getOPIInfo(unsigned short i, icu::UnicodeString& out) const {
    out.remove();
    if (i < outputIntentsCount && i < hints.size()) out = getXFString(outputIntentValue(i, "/Info"));
}

void CPDFKilnPage::getOPIOutputCondition(unsigned short i, icu::UnicodeString& out) const {
    out.remove();
    if (i < outputIntentsCount && i < hints.size()) out = getXFString(outputIntentValue(i, "/OutputCondition"));
}

bool CPDFKilnPage::isMarked() const { return source && source->catalog.markInfo.marked; }

void CPDFKilnPage::getCatalogOCProperties(std::map<std::pair<int, int>, bool>& state,
                                          std::vector<std::pair<int, int>>& order) const {
    if (!source) return;
    // The caller's identifier of a source group: numbered for this page
    // first, else delivered with an earlier one.
    auto mapped = [this](const SObj& o, std::pair<int, int>& out) {
        const std::pair<int, int> key(o.num, o.gen);
        auto it = old2newMap.find(key);
        if (it == old2newMap.end()) {
            it = deliveredMap.find(key);
            if (it == deliveredMap.end()) return false;
        }
        out = it->second;
        return true;
    };
    const COCProperties& oc = source->catalog.ocProperties;
    std::pair<int, int> id;
    for (const SObj& o : oc.on)
        if (mapped(o, id)) state.emplace(id, true);
    for (const SObj& o : oc.off)
        if (mapped(o, id)) state.emplace(id, false);
    for (const SObj& o : oc.order)
        if (mapped(o, id)) order.push_back(id);
}

unsigned int CPDFKilnPage::getVersion() const {
    // The header's version; anything but 1.0 to 1.7 counts as 2.0.
    unsigned int version = 10;
    static const char* const headers[] = {"PDF-1.0", "PDF-1.1", "PDF-1.2", "PDF-1.3",
                                          "PDF-1.4", "PDF-1.5", "PDF-1.6", "PDF-1.7"};
    for (unsigned int v = 0; v < 8; ++v) {
        if (aIncludeB(versionText, headers[v])) {
            version = v;
            break;
        }
    }
    if (!source) return version;
    if (source->catalog.minorVersion > static_cast<int>(version))
        version = static_cast<unsigned int>(source->catalog.minorVersion);

    // XMP: a PDF/A-2 or PDF/A-3 claim decides at once.
    const SObj& metadata = source->catalog.metadataRef;
    if (metadata.num > 0) {
        CDestFile sink{std::string()};
        CObj obj(SObj(metadata.num, metadata.gen));
        StreamRecover<CSourFile> keep(*source);
        if (obj.LocalObj(sink, *source)) {
            const char* begin = nullptr;
            const char* end = nullptr;
            if (streamData(sink, begin, end)) {
                if (const unsigned int a = readXmpPdfa(begin, static_cast<std::size_t>(end - begin), readXmpAttributes))
                    return version | a;
            }
        }
    }

    // Output intents: the first PDF/A or PDF/X one gives the starting codes.
    unsigned int x = 0, a = 0;
    bool seen = false;
    for (int i = 0; i < outputIntentsCount && !seen; ++i) {
        const std::string s = getOPIS(static_cast<unsigned short>(i));
        if (s == "/GTS_PDFA1") {
            x = 0;
            a = 4100;
            seen = true;
        } else if (s == "/GTS_PDFX") {
            x = 515;
            a = 0;
            seen = true;
        }
    }
    if (!seen) return version;

    // /Info.
    const SObj& info = source->fileInfo.info.self;
    if (info.num <= 0) return version;
    FindingHint hint;
    hint.insertHintInfo("/GTS_PDFXVersion", ePDFString);
    hint.insertHintInfo("/GTS_PDFAVersion", ePDFString);
    hint.insertHintInfo("/GTS_PDFXConformance", ePDFString);
    FindingValue finder(hint, source, info.num, info.gen);
    finder.find(true);
    if (hint.getPropertyValueCount("/GTS_PDFXVersion") > 0)
        x = pdfxCode(hint.getPropertyValue("/GTS_PDFXVersion"), hint.getPropertyValue("/GTS_PDFXConformance"),
                     version);
    if (hint.getPropertyValueCount("/GTS_PDFAVersion") > 0) {
        const std::string v = hint.getPropertyValue("/GTS_PDFAVersion");
        a = aIncludeB(v, "PDF/A-1a") ? 4100 : aIncludeB(v, "PDF/A-1b") ? 8196 : (version | 0xF000);
    }

    // The two codes are combined by a test of their bits, not of their
    // presence: PDF/X-1a:2001 (515) with PDF/A-1a (4100) share no bit and
    // give the X code alone.
    if ((x & a) == 0) return x ? x : a ? a : version;
    if (a == 4100 || a == 8196) {
        const unsigned int shift = a == 4100 ? 0 : 4096;
        switch (x) {
            case 1284: return 5380 + shift;
            case 1540: return 5636 + shift;
            case 1028: return 5124 + shift;
            default: return version | 15u << 8;
        }
    }
    return version | 0xF000;
}

}  // namespace PDF_KILN
