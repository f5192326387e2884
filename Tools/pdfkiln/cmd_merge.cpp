// pdfkiln merge / pdfkiln split: the library's merge and split engine
// (CDestFile: SetReadFileAndPage, Read, TidyObj, Write) driven from the
// command line. The engine writes page dictionaries without /Contents,
// /MediaBox, /CropBox and /Annots, leaving them to the program that embeds
// the pages; this tool is that program, and adds the page's content,
// boxes, annotations, inherited /Resources and /Rotate, and the /Parent of
// the output tree, before the catalog and the tail are written.
#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "PDFKilnPage/PDFKilnPage.h"
#include "commands.h"
#include "tool_common.h"

using namespace PDF_KILN;

namespace {

const char kSelectionHelp[] =
    "Selection text (the engine's own): items separated by blanks, each FILE:PAGES, where FILE is\n"
    "the input's number in the order named (1, 2, ...) and PAGES is\n"
    "  N          one page                      1:3\n"
    "  N,M,...    several pages                 1:3,7,9\n"
    "  N~M, N-M   pages N to M (N below M)      1:1~5  2:4-6\n"
    "  0          every page of the file        2:0\n"
    "and 0:0 selects every page of every file (the default). Pages are written in the order\n"
    "selected; a page past the end of a file, in a comma list, is left out; a selection that\n"
    "selects nothing is an error.\n";

bool isDelimiter(char c) { return std::strchr("()<>[]{}/%", c) != nullptr; }
bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '\f' || c == '\0'; }

// Where the value behind `from` ends: a dictionary, array or string with
// its nesting, a reference "N G R", or one token.
std::size_t valueEnd(const std::string& t, std::size_t p) {
    while (p < t.size() && isBlank(t[p])) ++p;
    if (p >= t.size()) return p;
    if (t.compare(p, 2, "<<") == 0 || t[p] == '[' || t[p] == '(') {
        int depth = 0, strDepth = 0;
        for (std::size_t i = p; i < t.size(); ++i) {
            const char c = t[i];
            if (strDepth > 0) {
                if (c == '\\') ++i;
                else if (c == '(') ++strDepth;
                else if (c == ')' && --strDepth == 0 && depth == 0) return i + 1;
                continue;
            }
            if (c == '(') ++strDepth;
            else if (c == '[') ++depth;
            else if (c == ']' && --depth == 0) return i + 1;
            else if (t.compare(i, 2, "<<") == 0) ++depth, ++i;
            else if (t.compare(i, 2, ">>") == 0) {
                ++i;
                if (--depth == 0) return i + 1;
            }
        }
        return t.size();
    }
    // A token, and " G R" behind a number.
    std::size_t e = p + 1;
    while (e < t.size() && !isBlank(t[e]) && !isDelimiter(t[e])) ++e;
    std::size_t q = e;
    auto word = [&](std::size_t& at) {
        while (at < t.size() && isBlank(t[at])) ++at;
        const std::size_t s = at;
        while (at < t.size() && !isBlank(t[at]) && !isDelimiter(t[at])) ++at;
        return t.substr(s, at - s);
    };
    const std::string g = word(q);
    if (!g.empty() && std::isdigit(static_cast<unsigned char>(g[0])) && word(q) == "R") return q;
    return e;
}

// The value of `key` in the outermost dictionary of `t`, and where it stands.
bool findValue(const std::string& t, const std::string& key, std::size_t& keyAt, std::size_t& begin,
               std::size_t& end) {
    int depth = 0;
    for (std::size_t i = 0; i < t.size(); ++i) {
        const char c = t[i];
        if (c == '(') {
            i = valueEnd(t, i) - 1;
        } else if (t.compare(i, 2, "<<") == 0) {
            ++depth;
            ++i;
        } else if (t.compare(i, 2, ">>") == 0) {
            --depth;
            ++i;
        } else if (c == '[' && depth == 1) {
            i = valueEnd(t, i) - 1;
        } else if (c == '/' && depth == 1 && t.compare(i, key.size(), key) == 0 &&
                   (i + key.size() == t.size() || isBlank(t[i + key.size()]) || isDelimiter(t[i + key.size()]))) {
            keyAt = i;
            begin = i + key.size();
            end = valueEnd(t, begin);
            return true;
        } else if (c == '/' && depth == 1) {
            // Another key: step over its value.
            std::size_t e = i + 1;
            while (e < t.size() && !isBlank(t[e]) && !isDelimiter(t[e])) ++e;
            i = valueEnd(t, e) - 1;
        }
    }
    return false;
}

// References of `value` through the engine's table for `file`; a reference
// the output does not hold becomes null.
std::string renumber(const CDestFile& out, int file, const std::string& value) {
    std::string r;
    std::size_t i = 0;
    while (i < value.size()) {
        const char c = value[i];
        if (c == '(') {
            const std::size_t e = valueEnd(value, i);
            r += value.substr(i, e - i);
            i = e;
            continue;
        }
        if (std::isdigit(static_cast<unsigned char>(c)) && (i == 0 || isBlank(value[i - 1]) || isDelimiter(value[i - 1]))) {
            std::size_t e = valueEnd(value, i);
            const std::string item = value.substr(i, e - i);
            int n = 0, g = 0;
            char rr = 0;
            if (item.find('R') != std::string::npos && std::sscanf(item.c_str(), "%d %d %c", &n, &g, &rr) == 3 &&
                rr == 'R') {
                auto it = out.newObjTable.find(NewObjTable{0, file, n, g});
                r += it == out.newObjTable.end() ? std::string("null")
                                                 : std::to_string(it->second.num) + " " +
                                                       std::to_string(it->second.gen) + " R";
                i = e;
                continue;
            }
        }
        r += c;
        ++i;
    }
    return r;
}

// An object's text with its numbers kept, as the reader gives it.
std::string objectText(CSourFile& src, const SObj& key) {
    CDestFile sink;
    sink.modeFlags |= CDestFile::kKeepNumbers;
    CObj obj(key);
    src.clear();
    try {
        obj.LocalObj(sink, src);
    } catch (...) {
    }
    src.clear();
    return sink;
}

std::string rect(const RectTD& r) {
    char b[128];
    std::snprintf(b, sizeof b, "[%.6g %.6g %.6g %.6g]", r.left, r.bottom, r.right, r.top);
    return b;
}

class Output {
public:
    explicit Output(CDestFile& out) : out_(out) {}
    // Replaces [at, at + length) of the buffer, moving recorded offsets behind it.
    void replace(std::size_t at, std::size_t length, const std::string& text) {
        out_.replace(at, length, text);
        const long shift = static_cast<long>(text.size()) - static_cast<long>(length);
        for (auto&& e : out_.fileInfo.ownTable)
            if (e.second.kind == 1 && static_cast<std::size_t>(e.second.pos) > at)
                e.second.pos = static_cast<int>(e.second.pos + shift);
        out_.writtenLength = static_cast<int>(out_.size());
    }

private:
    CDestFile& out_;
};

// What the engine leaves to the embedding program, added to the page
// dictionary of `page` of source `file` as written in `out`.
void completePage(CDestFile& out, int file, CSourFile& src, const SObj& page) {
    auto mapped = out.newObjTable.find(NewObjTable{0, file, page.num, page.gen});
    if (mapped == out.newObjTable.end()) return;
    auto entry = out.fileInfo.ownTable.find(SObj(mapped->second.num, mapped->second.gen));
    if (entry == out.fileInfo.ownTable.end()) return;
    const std::size_t start = static_cast<std::size_t>(entry->second.pos + out.baseOffset);
    const std::size_t stop = out.find("endobj", start);
    const std::size_t open = out.find("<<", start);
    if (stop == std::string::npos || open == std::string::npos || open > stop) return;
    std::string written = out.substr(open, stop - open);

    const std::string source = objectText(src, page);
    std::string add;
    std::size_t k = 0, b = 0, e = 0;
    if (findValue(source, "/Contents", k, b, e)) add += " /Contents " + renumber(out, file, source.substr(b, e - b));
    // The engine writes a page's annotations (they are in its closure) but
    // leaves /Annots out of the page: the list comes back, renumbered.
    std::size_t wk = 0, wb = 0, we = 0;
    if (findValue(source, "/Annots", k, b, e) && !findValue(written, "/Annots", wk, wb, we))
        add += " /Annots " + renumber(out, file, source.substr(b, e - b));
    const CPaperInfo* paper = src.getPaperInfo(page);
    if (paper) {
        add += " /MediaBox " + rect(paper->box[0]);
        const RectTD& crop = paper->box[1];
        if (crop.left != 0 || crop.bottom != 0 || crop.right != 0 || crop.top != 0) add += " /CropBox " + rect(crop);
        if (paper->rotate != 0 && !findValue(written, "/Rotate", k, b, e))
            add += " /Rotate " + std::to_string(paper->rotate);
    }
    // Inherited resources: the nearest node above the page that has them.
    if (!findValue(source, "/Resources", k, b, e)) {
        SObj node = page;
        for (int climb = 0; climb < 256; ++climb) {
            auto up = src.parentMap.find(node);
            if (up == src.parentMap.end()) break;
            node = up->second;
            const std::string text = objectText(src, node);
            if (findValue(text, "/Resources", k, b, e)) {
                add += " /Resources " + renumber(out, file, text.substr(b, e - b));
                break;
            }
        }
    }
    if (findValue(written, "/Parent", k, b, e)) written.erase(k, e - k);
    add += " /Parent " + std::to_string(src.groupNo.num) + " " + std::to_string(src.groupNo.gen) + " R";
    written.insert(2, add);
    Output(out).replace(open, stop - open, written);
}

struct Source {
    std::string file;
    std::unique_ptr<CPDFKilnPage> doc;
};

// Opens every input; the exit status on a problem.
int openAll(const char* command, const std::vector<std::string>& files, const tool::ReadOptions& read,
            std::vector<Source>& sources) {
    for (std::size_t i = 0; i < files.size(); ++i) {
        for (std::size_t j = 0; j < i; ++j)
            if (files[j] == files[i] || tool::sameFile(files[j], files[i]))
                return tool::usageError(command, "'" + files[i] + "' is named twice: name it once and select "
                                                 "its pages in one --select item");
        Source s;
        s.file = files[i];
        s.doc.reset(new CPDFKilnPage(files[i].c_str(), read.password));
        if (int status = tool::openDocument(*s.doc, files[i], read)) return status;
        sources.push_back(std::move(s));
    }
    return 0;
}

// Runs the engine over `sources` with `selection` into the file `path`.
int writeMerged(const char* command, std::vector<Source>& sources, const std::string& selection,
                const std::string& path) {
    CDestFile out;
    for (Source& s : sources) out.addSource(s.doc->getSource());
    struct Detach {
        CDestFile& out;
        ~Detach() { out.sources.clear(); }  // the facades own the sources
    } detach{out};
    if (out.SetReadFileAndPage(selection) != 0)
        return tool::usageError(command, "--select '" + selection + "' selects no page");
    try {
        out.Read();
        out.TidyObj();
    } catch (int code) {
        std::fprintf(stderr, "pdfkiln: a selected page cannot be read (%d)\n", code);
        return tool::kExitFailed;
    }
    const std::string version = out.versionText.empty() ? std::string("%PDF-1.4") : out.versionText;
    out.assign(version + "\n%\xE2\xE3\xCF\xD3\n");
    out.Write();
    for (std::size_t i = 0; i < sources.size(); ++i) {
        CSourFile& src = *sources[i].doc->getSource();
        for (const SObj& page : src.pages) completePage(out, static_cast<int>(i + 1), src, page);
    }
    CSourFile& first = *sources.front().doc->getSource();
    out.catalog.self = SObj(out.nextObjNo++, 0);
    out.catalog.Write(out, first);
    // The output's /Info says who wrote it and nothing else.
    CFileInfo::CInfo& info = out.fileInfo.info;
    info.title.clear();
    info.author.clear();
    info.subject.clear();
    info.keywords.clear();
    info.creator.clear();
    info.trapped.clear();
    info.producer = "pdfkiln";
    info.self = SObj(out.nextObjNo++, 0);
    out.fileInfo.Write(out, first);
    std::ofstream f(path, std::ios::binary);
    f.write(out.data(), static_cast<std::streamsize>(out.size()));
    f.close();
    if (!f) {
        std::fprintf(stderr, "pdfkiln: %s: cannot be written\n", path.c_str());
        return tool::kExitFailed;
    }
    return 0;
}

// Options shared by merge and split; false (with the message printed) on a bad one.
bool readOption(const char* command, int argc, char** argv, int& i, tool::ReadOptions& read, std::string& out,
                int& status) {
    const std::string a = argv[i];
    const bool needs = a == "-o" || a == "--output" || a == "--password";
    if (needs && i + 1 >= argc) {
        status = tool::usageError(command, a + " needs a value");
        return false;
    }
    if (a == "-o" || a == "--output") out = argv[++i];
    else if (a == "--password") read.password = argv[++i];
    else if (a == "--strict") read.strict = true;
    else return false;
    return true;
}

int checkOutput(const char* command, const std::string& out, const std::vector<std::string>& inputs) {
    if (out.empty()) return tool::usageError(command, "no output given (-o OUT)");
    for (const std::string& in : inputs)
        if (in == out || tool::sameFile(in, out))
            return tool::usageError(command, "-o '" + out + "' is an input: the output must be another file");
    return 0;
}

}  // namespace

int cmdMerge(int argc, char** argv) {
    tool::ReadOptions read;
    std::string out, selection = "0:0";
    std::vector<std::string> inputs;
    for (int i = 1; i < argc; ++i) {
        const std::string a = argv[i];
        int status = 0;
        if (a == "--help" || a == "-h") {
            std::printf("usage: pdfkiln merge -o OUT IN... [--select TEXT] [--password P] [--strict]\n"
                        "Writes the selected pages of the inputs into OUT through the library's merge engine:\n"
                        "each object a source's selected pages reach is written once, renumbered; the output\n"
                        "page tree has one node per input. Annotations come along with their pages.\n%s"
                        "Examples:\n"
                        "  pdfkiln merge -o all.pdf a.pdf b.pdf                  every page of both\n"
                        "  pdfkiln merge -o out.pdf a.pdf b.pdf --select '2:1 1:0' page 1 of b, then all of a\n"
                        "  pdfkiln merge -o out.pdf a.pdf --select '1:1~3 1:7,9'   pages 1-3, 7 and 9 of a\n",
                        kSelectionHelp);
            return 0;
        }
        if (a == "--select") {
            if (i + 1 >= argc) return tool::usageError("merge", "--select needs a value");
            selection = argv[++i];
        } else if (readOption("merge", argc, argv, i, read, out, status)) {
        } else if (status) {
            return status;
        } else if (a.size() > 1 && a[0] == '-') {
            return tool::usageError("merge", "unknown option '" + a + "'");
        } else {
            inputs.push_back(a);
        }
    }
    if (inputs.empty()) return tool::usageError("merge", "no input given");
    if (int status = checkOutput("merge", out, inputs)) return status;
    std::vector<Source> sources;
    if (int status = openAll("merge", inputs, read, sources)) return status;
    return writeMerged("merge", sources, selection, out);
}

int cmdSplit(int argc, char** argv) {
    tool::ReadOptions read;
    std::string out;
    std::vector<std::string> inputs;
    int per = 0;
    for (int i = 1; i < argc; ++i) {
        const std::string a = argv[i];
        int status = 0;
        if (a == "--help" || a == "-h") {
            std::printf("usage: pdfkiln split IN --pages-per-file N -o PATTERN [--password P] [--strict]\n"
                        "Cuts IN into files of N pages each (the last may have fewer), each written by the\n"
                        "library's merge engine with the selection 1:A~B. PATTERN names the files: %%d in it\n"
                        "(or %%02d, %%03d, ...) takes the part number from 1; without one, -%%d is put before\n"
                        "the extension. Example:\n"
                        "  pdfkiln split book.pdf --pages-per-file 10 -o part-%%02d.pdf\n");
            return 0;
        }
        if (a == "--pages-per-file") {
            if (i + 1 >= argc) return tool::usageError("split", "--pages-per-file needs a value");
            if (!tool::parseCount("split", "--pages-per-file", argv[++i], 1 << 20, per)) return tool::kExitUsage;
        } else if (readOption("split", argc, argv, i, read, out, status)) {
        } else if (status) {
            return status;
        } else if (a.size() > 1 && a[0] == '-') {
            return tool::usageError("split", "unknown option '" + a + "'");
        } else {
            inputs.push_back(a);
        }
    }
    if (inputs.size() != 1) return tool::usageError("split", inputs.empty() ? "no input given" : "one input only");
    if (!per) return tool::usageError("split", "--pages-per-file N is needed");
    // The pattern: one %d (with an optional 0 and width), or -%d before the extension.
    std::string pattern = out;
    const std::size_t pct = pattern.find('%');
    if (pct == std::string::npos) {
        const std::size_t dot = pattern.rfind('.');
        const std::size_t slash = pattern.rfind('/');
        pattern.insert(dot != std::string::npos && (slash == std::string::npos || dot > slash) ? dot : pattern.size(),
                       "-%d");
    } else {
        std::size_t q = pct + 1;
        while (q < pattern.size() && std::isdigit(static_cast<unsigned char>(pattern[q]))) ++q;
        if (q >= pattern.size() || pattern[q] != 'd' || pattern.find('%', q) != std::string::npos)
            return tool::usageError("split", "-o '" + out + "': the pattern may hold one %d (or %0Nd) and no other %");
    }
    if (int status = checkOutput("split", out, inputs)) return status;
    int pages = 0;
    {
        CPDFKilnPage probe(inputs[0].c_str(), read.password);
        if (int status = tool::openDocument(probe, inputs[0], read)) return status;
        pages = probe.getPageCount();
    }
    if (pages == 0) {
        std::fprintf(stderr, "pdfkiln: %s: the file has no pages\n", inputs[0].c_str());
        return tool::kExitFailed;
    }
    for (int first = 1, part = 1; first <= pages; first += per, ++part) {
        const int last = std::min(pages, first + per - 1);
        char name[4096];
        std::snprintf(name, sizeof name, pattern.c_str(), part);
        if (tool::sameFile(name, inputs[0]))
            return tool::usageError("split", std::string("'") + name + "' is the input: the output must be another file");
        // Each part from a fresh opening, so that it holds only what its pages reach.
        std::vector<Source> sources;
        if (int status = openAll("split", inputs, read, sources)) return status;
        const std::string selection =
            "1:" + std::to_string(first) + (last > first ? "~" + std::to_string(last) : std::string());
        if (int status = writeMerged("split", sources, selection, name)) return status;
    }
    return 0;
}
