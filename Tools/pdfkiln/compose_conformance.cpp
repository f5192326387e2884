// pdfkiln compose: the 7-bit output of --ascii, and the output intent that
// the sources agree on.
#include <cstdio>
#include <cstring>
#include <string>

#include "PDFKilnPage/PDFKilnPage.h"
#include "conformance.h"

using namespace PDF_KILN;
using namespace ZQGraphicService_NS;

namespace {

// Where the stream data of an object's text lies; [size, size) without one.
void dataBounds(const std::string& text, std::size_t& first, std::size_t& last) {
    first = last = text.size();
    const std::size_t dictEnd = text.find(">>");
    if (dictEnd == std::string::npos) return;
    std::size_t at = text.find("stream", dictEnd);
    if (at == std::string::npos) return;
    const std::size_t stop = text.rfind("endstream");
    if (stop == std::string::npos || stop < at + 6) return;
    at += 6;
    if (at < text.size() && text[at] == '\r') ++at;
    if (at < text.size() && text[at] == '\n') ++at;
    first = at;
    last = stop;
}

void appendEscaped(std::string& out, unsigned char c, bool inString) {
    char b[8];
    std::snprintf(b, sizeof b, inString ? "\\%03o" : "#%02X", c);
    out += b;
}

// The profile as a PDF string value as the library gave it: hexadecimal
// strings keep their brackets, literal ones lost their parentheses.
std::string stringValue(const std::string& v) { return !v.empty() && v[0] == '<' ? v : "(" + v + ")"; }

int componentsOf(const std::string& profile) {
    if (profile.size() < 128) return 0;
    const std::string space = profile.substr(16, 4);
    if (space == "GRAY") return 1;
    if (space == "RGB " || space == "Lab ") return 3;
    if (space == "CMYK") return 4;
    return 0;
}

}  // namespace

std::string sevenBitText(const std::string& text) {
    std::size_t first = 0, last = 0;
    dataBounds(text, first, last);
    std::string out;
    out.reserve(text.size());
    int depth = 0;        // literal string nesting
    bool comment = false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (i == first && last > first) {
            out.append(text, first, last - first);
            i = last - 1;
            depth = 0;
            continue;
        }
        const unsigned char c = static_cast<unsigned char>(text[i]);
        if (depth > 0 && c == '\\' && i + 1 < text.size()) {
            const unsigned char e = static_cast<unsigned char>(text[i + 1]);
            ++i;
            if (e & 0x80) {
                appendEscaped(out, e, true);
            } else {
                out += '\\';
                out += static_cast<char>(e);
            }
            continue;
        }
        if (comment) {
            if (c == '\r' || c == '\n') comment = false;
            out += (c & 0x80) ? '?' : static_cast<char>(c);
            continue;
        }
        if (depth == 0 && c == '%') comment = true;
        if (c == '(') ++depth;
        else if (c == ')' && depth > 0) --depth;
        if (c & 0x80) appendEscaped(out, c, depth > 0);
        else out += static_cast<char>(c);
    }
    return out;
}

std::string ascii85(const std::string& data) {
    FilterMemBlock in, out;
    Zq_MemInit(&in);
    Zq_MemInit(&out);
    in.data = data.empty() ? nullptr : reinterpret_cast<unsigned char*>(const_cast<char*>(data.data()));
    in.length = in.capacity = static_cast<int32_t>(data.size());
    FilterPropTD prop;
    std::memset(&prop, 0, sizeof prop);
    prop.type = FILTER_ASCII85;
    std::string encoded;
    if (Zq_DeflateStream(&in, &out, &prop, 0) == ZQ_OK && out.data)
        encoded.assign(reinterpret_cast<const char*>(out.data), static_cast<std::size_t>(out.length));
    Zq_MemClear(&out);
    return encoded;
}

std::string carriedOutputIntent(const std::vector<CPDFKilnPage*>& sources,
                                const std::function<int(const std::string&, const std::string&)>& addStream,
                                std::string& note) {
    note.clear();
    if (sources.empty()) return std::string();
    struct Intent {
        std::string s, identifier, registry, profile;
    };
    std::vector<Intent> intents;
    for (CPDFKilnPage* doc : sources) {
        if (doc->getOutputIntentsCount() < 1) {
            // Nothing to say when the first source has none.
            if (!intents.empty()) note = "output intent not carried: not every source has one";
            return std::string();
        }
        intents.push_back(Intent{doc->getOPIS(0), doc->getOPIOutputConditionIdentifier(0),
                                 doc->getOPIRegistryName(0), doc->getOPIDestOutputProfile(0)});
    }
    const Intent& first = intents.front();
    for (const Intent& i : intents) {
        if (i.s != first.s || i.identifier != first.identifier || i.registry != first.registry ||
            i.profile != first.profile) {
            note = "output intent not carried: the sources' output intents differ";
            return std::string();
        }
    }
    if (first.s.empty()) return std::string();
    std::string entry = "/OutputIntents [<< /Type /OutputIntent /S " + first.s;
    entry += " /OutputConditionIdentifier " + stringValue(first.identifier);
    if (!first.registry.empty()) entry += " /RegistryName " + stringValue(first.registry);
    const int n = componentsOf(first.profile);
    if (n > 0) {
        const int profile = addStream("/N " + std::to_string(n), first.profile);
        entry += " /DestOutputProfile " + std::to_string(profile) + " 0 R";
    }
    entry += " >>] ";
    note = "output intent " + first.s + " (" + first.identifier + ") of the sources carried into the output";
    if (!first.profile.empty() && n == 0) note += ", without its profile (no ICC colour space in its header)";
    return entry;
}
