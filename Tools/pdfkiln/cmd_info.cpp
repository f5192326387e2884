// pdfkiln info / pdfkiln xref: what the reader learned about a file.
#include <cstdio>
#include <cstdlib>
#include <cctype>
#include <cstring>
#include <string>

#include "PDFKilnPage/PDFKilnPage.h"
#include "commands.h"
#include "conformance.h"
#include "tool_common.h"
#include "info_annots.h"

using namespace PDF_KILN;

namespace {

std::string hex(const unsigned char* p, std::size_t n) {
    static const char* digits = "0123456789abcdef";
    std::string s;
    for (std::size_t i = 0; i < n; ++i) {
        s += digits[p[i] >> 4];
        s += digits[p[i] & 15];
    }
    return s;
}

std::string jsonString(const std::string& v) {
    std::string s = "\"";
    for (unsigned char c : v) {
        if (c == '"' || c == '\\') {
            s += '\\';
            s += static_cast<char>(c);
        } else if (c < 0x20 || c == 0x7f) {
            char b[8];
            std::snprintf(b, sizeof b, "\\u%04x", c);
            s += b;
        } else {
            s += static_cast<char>(c);
        }
    }
    return s + "\"";
}

// Text for a person: control bytes as \ooo; UTF-8 passes.
std::string printable(const std::string& v) {
    std::string s;
    for (unsigned char c : v) {
        if (c >= 0x20 && c != 0x7f) s += static_cast<char>(c);
        else {
            char b[8];
            std::snprintf(b, sizeof b, "\\%03o", c);
            s += b;
        }
    }
    return s;
}

void appendUtf8(std::string& out, unsigned long c) {
    if (c < 0x80) {
        out += static_cast<char>(c);
    } else if (c < 0x800) {
        out += static_cast<char>(0xC0 | (c >> 6));
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
        out += static_cast<char>(0xE0 | (c >> 12));
        out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else {
        out += static_cast<char>(0xF0 | (c >> 18));
        out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
        out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    }
}

// A PDF text string as UTF-8: UTF-16BE behind its byte order mark, UTF-8
// behind its mark, otherwise one byte per character (PDFDocEncoding, read
// as Latin-1 above 127).
std::string textString(const std::string& v) {
    std::string out;
    if (v.size() >= 2 && static_cast<unsigned char>(v[0]) == 0xFE && static_cast<unsigned char>(v[1]) == 0xFF) {
        for (std::size_t i = 2; i + 1 < v.size(); i += 2) {
            unsigned long c = (static_cast<unsigned char>(v[i]) << 8) | static_cast<unsigned char>(v[i + 1]);
            if (c >= 0xD800 && c < 0xDC00 && i + 3 < v.size()) {
                const unsigned long low =
                    (static_cast<unsigned char>(v[i + 2]) << 8) | static_cast<unsigned char>(v[i + 3]);
                if (low >= 0xDC00 && low < 0xE000) {
                    c = 0x10000 + ((c - 0xD800) << 10) + (low - 0xDC00);
                    i += 2;
                }
            }
            if (c >= 0xD800 && c < 0xE000) c = 0xFFFD;
            appendUtf8(out, c);
        }
        return out;
    }
    if (v.size() >= 3 && v.compare(0, 3, "\xEF\xBB\xBF") == 0) return v.substr(3);
    for (unsigned char c : v) appendUtf8(out, c);
    return out;
}

// Whether the dictionary text has `key` (followed by a delimiter or blank).
bool hasKey(const std::string& text, const std::string& key) {
    for (std::size_t p = text.find(key); p != std::string::npos; p = text.find(key, p + 1)) {
        const std::size_t e = p + key.size();
        if (e >= text.size() || !std::isalnum(static_cast<unsigned char>(text[e]))) return true;
    }
    return false;
}

std::string ref(const SObj& o) { return std::to_string(o.num) + " " + std::to_string(o.gen) + " R"; }

struct Args {
    const char* file = nullptr;
    tool::ReadOptions read;
    bool json = false;
    bool ok = true;
    int page = 0;         // --page N
    bool objects = false; // --objects
};

Args parse(const char* command, int argc, char** argv) {
    Args a;
    for (int i = 1; i < argc && a.ok; ++i) {
        const std::string arg = argv[i];
        const bool hasValue = i + 1 < argc;
        if (arg == "--json") a.json = true;
        else if (arg == "--strict") a.read.strict = true;
        else if (arg == "--password" && hasValue) a.read.password = argv[++i];
        else if (arg == "--page" && hasValue) a.ok = tool::parseCount(command, "--page", argv[++i], 1 << 30, a.page);
        else if (arg == "--objects") a.objects = true;
        else if ((arg == "--password" || arg == "--page") && !hasValue) {
            tool::usageError(command, arg + " needs a value");
            a.ok = false;
        } else if (arg.size() > 1 && arg[0] == '-') {
            tool::usageError(command, "unknown option '" + arg + "'");
            a.ok = false;
        } else if (!a.file) {
            a.file = argv[i];
        } else {
            tool::usageError(command, "one file only; '" + arg + "' is one too many");
            a.ok = false;
        }
    }
    if (a.ok && !a.file) {
        tool::usageError(command, "no FILE given");
        a.ok = false;
    }
    return a;
}

std::string rectText(float x1, float y1, float x2, float y2, bool json) {
    char b[160];
    std::snprintf(b, sizeof b, json ? "[%g, %g, %g, %g]" : "[%g %g %g %g]", x1, y1, x2, y2);
    return b;
}

// Per page: the five boxes, the visible area and the rotation.
void printPages(CPDFKilnPage& doc, bool json) {
    static const char* names[5] = {"MediaBox", "CropBox", "BleedBox", "TrimBox", "ArtBox"};
    const int n = doc.getPageCount();
    if (json) std::printf("  \"pageCount\": %d,\n  \"pages\": [", n);
    else std::printf("pages:           %d\n", n);
    for (int p = 1; p <= n; ++p) {
        float r[4];
        std::string line;
        for (int b = 0; b < 5; ++b) {
            r[0] = r[1] = r[2] = r[3] = 0;
            doc.getPageBox(p, static_cast<CPDFKilnPage::EBox>(b), r[0], r[1], r[2], r[3]);
            // The page tree leaves a box the page does not have at zero.
            const bool absent = r[0] == 0 && r[1] == 0 && r[2] == 0 && r[3] == 0;
            const std::string value = absent ? (json ? "null" : "absent") : rectText(r[0], r[1], r[2], r[3], json);
            if (json) line += std::string(b ? ", " : "") + "\"" + names[b] + "\": " + value;
            else line += std::string(" /") + names[b] + " " + value;
        }
        float w = 0, h = 0;
        doc.getPageSize(p, w, h, CPDFKilnPage::eVisibleBox);
        int rotate = 0;
        doc.getPageRotate(p, rotate);
        if (json)
            std::printf("%s\n    {\"page\": %d, %s, \"visible\": [%g, %g], \"rotate\": %d}", p > 1 ? "," : "", p,
                        line.c_str(), w, h, rotate);
        else
            std::printf("  page %d:%s visible %gx%g /Rotate %d\n", p, line.c_str(), w, h, rotate);
    }
    if (json) std::printf("%s],\n", n ? "\n  " : "");
}

// The renumbered object map of one page, numbered from 1.
int printPageObjects(CPDFKilnPage& doc, int page) {
    int rc = doc.setPageNo(page);
    if (rc != 0) {
        std::fprintf(stderr, "pdfkiln: page %d cannot be read (%d)\n", page, rc);
        return 1;
    }
    doc.setStartObjNo(1);
    for (auto it = doc.begin(); it != doc.end(); doc.next(it))
        std::printf("%d %d obj\n%s\nendobj\n", it->first.first, it->first.second, printable(it->second).c_str());
    const std::string* contents = nullptr;
    doc.getPageContents(&contents);
    const std::string* res = nullptr;
    doc.getPageRes(&res, 0);
    std::printf("%% contents: %zu bytes\n%% resources: %s\n", contents->size(), printable(*res).c_str());
    return 0;
}

}  // namespace

int cmdInfo(int argc, char** argv) {
    Args a = parse("info", argc, argv);
    if (!a.ok) return tool::kExitUsage;
    if (a.objects && a.page < 1) return tool::usageError("info", "--objects needs --page N");
    CPDFKilnPage doc(a.file, a.read.password);
    if (int status = tool::openDocument(doc, a.file, a.read)) return status;
    if (a.page > doc.getPageCount()) {
        std::fprintf(stderr, "pdfkiln: %s: --page %d: the file has %d page(s)\n", a.file, a.page, doc.getPageCount());
        return tool::kExitUsage;
    }
    if (a.objects) return printPageObjects(doc, a.page);
    CSourFile& src = *doc.getSource();
    const CFileInfo& fi = src.fileInfo;
    int byKind[3] = {0, 0, 0};
    for (const auto& e : *fi.objTable)
        if (e.second.kind <= 2) ++byKind[e.second.kind];
    const CFileInfo::CInfo& info = fi.info;
    const CEncrypt& enc = fi.encrypt;
    const std::string id1 = hex(fi.fileId.id1, fi.fileId.id1Length);
    const std::string id2 = hex(fi.fileId.id2, fi.fileId.id2Length);
    // Only the fields the file's /Info has: the reader starts from the
    // writer's defaults, which are no part of the file.
    std::string infoText;
    if (fi.info.self.num > 0) {
        CDestFile sink;
        sink.modeFlags |= CDestFile::kKeepNumbers;
        CObj obj(fi.info.self);
        src.clear();
        try {
            if (obj.LocalObj(sink, src)) infoText = sink;
        } catch (...) {
        }
        src.clear();
    }
    struct Field { const char* key; const std::string* value; };
    const Field fields[] = {{"Title", &info.title},       {"Author", &info.author},
                            {"Subject", &info.subject},   {"Keywords", &info.keywords},
                            {"Creator", &info.creator},   {"Producer", &info.producer},
                            {"CreationDate", &info.creationDate}, {"ModDate", &info.modDate},
                            {"Trapped", &info.trapped}};

    if (a.json) {
        std::printf("{\n  \"file\": %s,\n", jsonString(a.file).c_str());
        std::printf("  \"version\": %s,\n  \"headerOffset\": %d,\n", jsonString(src.version).c_str(), src.headerOffset);
        std::printf("  \"xref\": {\"classicSections\": %d, \"xrefStreams\": %d, \"objects\": %zu, "
                    "\"free\": %d, \"inUse\": %d, \"compressed\": %d, \"rebuilt\": %s},\n",
                    fi.classicSections, fi.xrefStreams, fi.objTable->size(), byKind[0], byKind[1], byKind[2],
                    doc.isObjectTableRebuilt() ? "true" : "false");
        std::printf("  \"trailer\": {\"Size\": %d, \"Root\": %s, \"Info\": %s, \"Encrypt\": %s, \"ID\": [%s, %s]},\n",
                    fi.size, jsonString(ref(fi.rootRef)).c_str(),
                    fi.info.self.num ? jsonString(ref(fi.info.self)).c_str() : "null",
                    enc.self.num ? jsonString(ref(enc.self)).c_str() : (enc.handlerKind ? "\"direct\"" : "null"),
                    jsonString(id1).c_str(), jsonString(id2).c_str());
        std::printf("  \"info\": {");
        for (std::size_t i = 0; i < sizeof fields / sizeof fields[0]; ++i)
            std::printf("%s%s: %s", i ? ", " : "", jsonString(fields[i].key).c_str(),
                        hasKey(infoText, std::string("/") + fields[i].key)
                            ? jsonString(textString(*fields[i].value)).c_str()
                            : "null");
        std::printf("},\n");
        printConformance(doc, true);
        printPages(doc, true);
        if (a.page) printPageAnnots(doc, a.page, true);
        if (enc.handlerKind) {
            std::printf("  \"encrypt\": {\"Filter\": %s, \"V\": %d, \"R\": %d, \"Length\": %d, \"P\": %d, "
                        "\"EncryptMetadata\": %s, \"cipher\": %d, \"O\": %s, \"U\": %s}\n",
                        jsonString(enc.Filter).c_str(), enc.V, enc.R, enc.Length, enc.P,
                        enc.EncryptMetadata ? "true" : "false", enc.cipherMode,
                        jsonString(hex(enc.O, enc.OLength)).c_str(), jsonString(hex(enc.U, enc.ULength)).c_str());
        } else {
            std::printf("  \"encrypt\": null\n");
        }
        std::printf("}\n");
        return 0;
    }

    std::printf("file:            %s\n", a.file);
    printPages(doc, false);
    std::printf("version:         %s (header at offset %d)\n", src.version.c_str(), src.headerOffset);
    printConformance(doc, false);
    std::printf("cross-reference: %d classic section(s), %d stream(s)%s\n", fi.classicSections, fi.xrefStreams,
                doc.isObjectTableRebuilt() ? "; the table was rebuilt from the objects in the file" : "");
    std::printf("objects:         %zu (%d in use, %d in object streams, %d free)\n", fi.objTable->size(), byKind[1],
                byKind[2], byKind[0]);
    std::printf("trailer:\n");
    std::printf("  /Size          %d\n", fi.size);
    std::printf("  /Root          %s\n", ref(fi.rootRef).c_str());
    if (fi.info.self.num) std::printf("  /Info          %s\n", ref(fi.info.self).c_str());
    if (enc.self.num) std::printf("  /Encrypt       %s\n", ref(enc.self).c_str());
    else if (enc.handlerKind) std::printf("  /Encrypt       (direct dictionary)\n");
    if (fi.fileId.id1Length) std::printf("  /ID            <%s> <%s>\n", id1.c_str(), id2.c_str());
    std::printf("info:\n");
    if (infoText.empty()) std::printf("  (none)\n");
    for (const Field& f : fields)
        if (hasKey(infoText, std::string("/") + f.key))
            std::printf("  /%-13s %s\n", f.key, printable(textString(*f.value)).c_str());
    if (enc.handlerKind) {
        std::printf("encrypt:\n");
        std::printf("  /Filter        %s\n", enc.Filter);
        std::printf("  /V %d /R %d /Length %d /P %d%s\n", enc.V, enc.R, enc.Length, enc.P,
                    enc.EncryptMetadata ? "" : " /EncryptMetadata false");
        static const char* ciphers[] = {"none", "RC4", "AES-128", "AES-256"};
        std::printf("  cipher         %s\n", ciphers[enc.cipherMode >= 0 && enc.cipherMode <= 3 ? enc.cipherMode : 0]);
        std::printf("  /O             <%s>\n", hex(enc.O, enc.OLength).c_str());
        std::printf("  /U             <%s>\n", hex(enc.U, enc.ULength).c_str());
    }
    if (a.page) printPageAnnots(doc, a.page, false);
    return 0;
}

int cmdXref(int argc, char** argv) {
    Args a = parse("xref", argc, argv);
    if (!a.ok) return tool::kExitUsage;
    if (a.page || a.objects) return tool::usageError("xref", "takes FILE [--json] [--strict]");
    const std::string problem = tool::fileProblem(a.file);
    if (!problem.empty()) {
        std::fprintf(stderr, "pdfkiln: %s: %s\n", a.file, problem.c_str());
        return tool::kExitFailed;
    }
    CPDFKilnPage doc(a.file, a.read.password);
    doc.setBalancedStrings(!a.read.strict);
    doc.setRebuildObjectTable(!a.read.strict);
    doc.setDecodedBudget(decodedBudget());
    int rc = doc.init();
    if (rc != 0 && rc != kResultNotLocalised) {
        std::fprintf(stderr, "pdfkiln: %s: %s (%d)\n", a.file, tool::resultText(rc), rc);
        return 1;
    }
    const ObjTable& table = *doc.getSource()->fileInfo.objTable;
    if (a.json) std::printf("[\n");
    bool firstRow = true;
    for (const auto& e : table) {
        const SObj& k = e.first;
        const SObjState& s = e.second;
        if (a.json) {
            std::printf("%s  {\"num\": %d, \"gen\": %d, \"kind\": %d, ", firstRow ? "" : ",\n", k.num, k.gen, s.kind);
            if (s.kind == 2) std::printf("\"stream\": %d, \"index\": %d}", s.pos, s.index);
            else std::printf("\"offset\": %d}", s.pos);
        } else if (s.kind == 2) {
            std::printf("%d/%d: compressed; stream = %d, index = %d\n", k.num, k.gen, s.pos, s.index);
        } else if (s.kind == 1) {
            std::printf("%d/%d: uncompressed; offset = %d\n", k.num, k.gen, s.pos);
        } else {
            std::printf("%d/%d: free\n", k.num, k.gen);
        }
        firstRow = false;
    }
    if (a.json) std::printf("\n]\n");
    return 0;
}
