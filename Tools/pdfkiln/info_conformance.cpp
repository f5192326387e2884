// pdfkiln info: the version code in words, the marked flag and the output
// intents of a file.
#include <zlib.h>

#include <cstdio>
#include <exception>
#include <string>

#include "PDFKilnPage/PDFKilnPage.h"
#include "conformance.h"

using namespace PDF_KILN;

namespace {

std::string json(const std::string& v) {
    std::string s = "\"";
    for (unsigned char c : v) {
        if (c == '"' || c == '\\') {
            s += '\\';
            s += static_cast<char>(c);
        } else if (c < 0x20 || c >= 0x7f) {
            char b[8];
            std::snprintf(b, sizeof b, "\\u%04x", c);
            s += b;
        } else {
            s += static_cast<char>(c);
        }
    }
    return s + "\"";
}

std::string utf8(const icu::UnicodeString& u) {
    std::string s;
    u.toUTF8String(s);
    return s;
}

// The colour space signature of an ICC profile's header (bytes 16 to 19),
// without its padding blanks; "" for a profile too short to have one.
std::string iccColorSpace(const std::string& profile) {
    if (profile.size() < 128) return std::string();
    std::string s = profile.substr(16, 4);
    while (!s.empty() && s.back() == ' ') s.pop_back();
    for (char& c : s)
        if (static_cast<unsigned char>(c) < 0x20 || static_cast<unsigned char>(c) >= 0x7f) c = '?';
    return s;
}

}  // namespace

std::string versionWords(unsigned int code) {
    static const char* const xKinds[16] = {nullptr,         "PDF/X-1:2001",  "PDF/X-1a:2001", "PDF/X-3:2002",
                                           "PDF/X-1a:2003", "PDF/X-2:2003",  "PDF/X-3:2003",  "PDF/X-4",
                                           "PDF/X-4p",      "PDF/X-5g",      "PDF/X-5n",      "PDF/X-5pg",
                                           "PDF/X (kind 12)", "PDF/X (kind 13)", "PDF/X (kind 14)", "PDF/X (other)"};
    static const char* const aKinds[16] = {nullptr,       "PDF/A-1a",      "PDF/A-1b",      "PDF/A-2A",
                                           "PDF/A-2B",    "PDF/A-2U",      "PDF/A-3A",      "PDF/A-3B",
                                           "PDF/A-3U",    "PDF/A (kind 9)", "PDF/A (kind 10)", "PDF/A (kind 11)",
                                           "PDF/A (kind 12)", "PDF/A (kind 13)", "PDF/A (kind 14)", "PDF/A (other)"};
    const unsigned int v = code & 0xFF;
    std::string words = v <= 7 ? "PDF 1." + std::to_string(v) : v == 10 ? "PDF 2.0" : "PDF (" + std::to_string(v) + ")";
    if (const char* x = xKinds[(code >> 8) & 15]) words += std::string(", ") + x;
    if (const char* a = aKinds[(code >> 12) & 15]) words += std::string(", ") + a;
    return words;
}

void printConformance(CPDFKilnPage& doc, bool asJson) {
    unsigned int code = 0;
    std::string error;
    try {
        code = doc.getVersion();
    } catch (const std::exception& e) {
        error = e.what();
    }
    // What the XMP's attribute form of pdfaid would give, when it differs.
    unsigned int withAttributes = code;
    if (error.empty()) {
        doc.setReadXmpAttributes(true);
        try {
            withAttributes = doc.getVersion();
        } catch (const std::exception&) {
        }
        doc.setReadXmpAttributes(false);
    }
    const int count = doc.getOutputIntentsCount();
    if (asJson) {
        std::printf("  \"conformance\": {");
        if (error.empty())
            std::printf("\"versionCode\": %u, \"version\": %s", code, json(versionWords(code)).c_str());
        else
            std::printf("\"versionCode\": null, \"versionError\": %s", json(error).c_str());
        if (withAttributes != code)
            std::printf(", \"versionCodeXmpAttributes\": %u, \"versionXmpAttributes\": %s", withAttributes,
                        json(versionWords(withAttributes)).c_str());
        std::printf(", \"marked\": %s, \"outputIntents\": [", doc.isMarked() ? "true" : "false");
    } else {
        if (error.empty()) std::printf("conformance:     %s (code %u)\n", versionWords(code).c_str(), code);
        else std::printf("conformance:     unknown: the XMP metadata does not read (%s)\n", error.c_str());
        if (withAttributes != code)
            std::printf("  with the XMP's pdfaid attributes read: %s (code %u)\n", versionWords(withAttributes).c_str(),
                        withAttributes);
        std::printf("marked:          %s\n", doc.isMarked() ? "yes" : "no");
        if (count) std::printf("output intents:  %d\n", count);
    }
    for (int i = 0; i < count; ++i) {
        const unsigned short n = static_cast<unsigned short>(i);
        icu::UnicodeString condition, info;
        doc.getOPIOutputCondition(n, condition);
        doc.getOPIInfo(n, info);
        const std::string profile = doc.getOPIDestOutputProfile(n);
        const std::string space = iccColorSpace(profile);
        if (asJson) {
            std::printf("%s{\"S\": %s, \"OutputConditionIdentifier\": %s, \"RegistryName\": %s, "
                        "\"OutputCondition\": %s, \"Info\": %s, \"profileSize\": %zu, \"profileCrc32\": %lu, "
                        "\"profileColorSpace\": %s}",
                        i ? ", " : "", json(doc.getOPIS(n)).c_str(),
                        json(doc.getOPIOutputConditionIdentifier(n)).c_str(), json(doc.getOPIRegistryName(n)).c_str(),
                        json(utf8(condition)).c_str(), json(utf8(info)).c_str(), profile.size(),
                        crc32(0L, reinterpret_cast<const Bytef*>(profile.data()), static_cast<uInt>(profile.size())),
                        space.empty() ? "null" : json(space).c_str());
        } else {
            std::printf("  intent %d:      %s (%s)", i + 1, doc.getOPIS(n).c_str(),
                        doc.getOPIOutputConditionIdentifier(n).c_str());
            const std::string registry = doc.getOPIRegistryName(n);
            if (!registry.empty()) std::printf(" registry %s", registry.c_str());
            if (profile.empty()) std::printf(", no profile\n");
            else std::printf(", profile %zu bytes %s\n", profile.size(), space.empty() ? "(no ICC header)" : space.c_str());
        }
    }
    if (asJson) std::printf("]},\n");
}
