// pdfkiln compose: places pages of existing PDF files on the pages of a new
// one. Each source page becomes a Form XObject made of the page's decoded
// content, its resources and the objects they reach (renumbered by the
// library, every object written once per source), drawn one per sheet or
// n-up, with the page's rotation applied.
#include <zlib.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "PDFKilnPage/PDFKilnPage.h"
#include "PDFKilnPage/pdfkiln_obj_page.h"
#include "commands.h"
#include "conformance.h"
#include "resource_text.h"
#include "tool_common.h"

using namespace PDF_KILN;

namespace {

struct Input {
    std::string file;
    std::string pages;  // "" for all
};

struct Options {
    std::string out;
    int cols = 1, rows = 1;
    double sheetW = 0, sheetH = 0;  // 0: the page's own size (one per sheet) or A4 (n-up)
    std::string password;
    bool strict = false;
    bool quiet = false;
    // Pages skipped or emptied: without it the first one stops the run.
    bool keepGoing = false;
    std::vector<Input> inputs;
    // Output encryption: "aes-128" (standard security handler, revision 4).
    std::string encrypt;
    std::string user, owner;
    bool userGiven = false, ownerGiven = false;
    int permissions = -4;
    // Annotations and form fields: kept unless switched off.
    bool noAnnots = false, noForms = false;
    int annotsDisable = 0;
    // Decode every page's content and compress it again, instead of copying
    // a Flate-compressed content stream as it is stored.
    bool recompress = false;
    // A 7-bit output: streams in an ASCII85 layer, other bytes escaped.
    bool ascii = false;
};

void usage(FILE* to) {
    std::fputs("usage: pdfkiln compose -o OUT.pdf [--nup CxR] [--sheet WxH] [--password P] [--strict] [--quiet]\n"
               "                       [--encrypt aes-128 --user U --owner O [--permissions P]]\n"
               "                       [--no-annots] [--no-forms] [--annots-disable MASK] [--recompress]\n"
               "                       [--ascii] [--keep-going] [--max-decoded SIZE] IN[:PAGES]...\n"
               "  PAGES: comma-separated numbers and ranges (3-7, 5-z); all pages when left out\n"
               "  annotations and form fields are kept, moved with their page; --no-annots drops the\n"
               "  annotations, --no-forms the form fields, --annots-disable MASK the annotation subtypes\n"
               "  whose bits are set (1 /Link, 2 /Text, ... as the library's annotation mask)\n"
               "  a page whose content is one Flate-compressed stream is copied as stored;\n"
               "  --recompress decodes every page's content and compresses it again\n"
               "  a file named more than once is read once: its objects are written once\n"
               "  --encrypt needs both --user and --owner; --permissions takes a number (the /P value)\n"
               "  --strict reads by the library's own rules only (see pdfkiln --help)\n"
               "  --ascii writes only 7-bit bytes: binary streams get an ASCII85 layer (their\n"
               "  /DecodeParms kept with their filter), other bytes above 127 are escaped\n"
               "  the first source's output intent is carried when all sources agree on it\n"
               "  a page that cannot be read, or whose content does not decode, stops the run with\n"
               "  status 3 and no output; --keep-going writes the rest (that page skipped or left\n"
               "  empty) and still ends with status 3\n"
               "  --max-decoded SIZE: largest decoded stream, and decoded content of a page (bytes,\n"
               "  or with K, M, G; default 256M; 0 for the library's own cap of 1G per stage)\n",
               to);
}

// Names the bad argument; false when there is one.
bool bad(const std::string& message) {
    tool::usageError("compose", message);
    return false;
}

bool parseArgs(int argc, char** argv, Options& o) {
    for (int i = 1; i < argc; ++i) {
        const std::string a = argv[i];
        static const char* const valued[] = {"-o", "--output", "--nup", "--sheet", "--password", "--annots-disable",
                                             "--encrypt", "--user", "--owner", "--permissions"};
        for (const char* v : valued)
            if (a == v && i + 1 >= argc) return bad(a + " needs a value");
        if (a == "-o" || a == "--output") {
            o.out = argv[++i];
        } else if (a == "--nup") {
            char tail = 0;
            if (std::sscanf(argv[++i], "%dx%d%c", &o.cols, &o.rows, &tail) != 2 || o.cols < 1 || o.rows < 1 ||
                o.cols > 64 || o.rows > 64)
                return bad(std::string("--nup wants COLSxROWS, each from 1 to 64, not '") + argv[i] + "'");
        } else if (a == "--sheet") {
            char tail = 0;
            if (std::sscanf(argv[++i], "%lfx%lf%c", &o.sheetW, &o.sheetH, &tail) != 2 || !(o.sheetW > 0) ||
                !(o.sheetH > 0) || o.sheetW > 14400 || o.sheetH > 14400)
                return bad(std::string("--sheet wants WIDTHxHEIGHT in points, up to 14400, not '") + argv[i] + "'");
        } else if (a == "--password") {
            o.password = argv[++i];
        } else if (a == "--strict") {
            o.strict = true;
        } else if (a == "--no-annots") {
            o.noAnnots = true;
        } else if (a == "--no-forms") {
            o.noForms = true;
        } else if (a == "--recompress") {
            o.recompress = true;
        } else if (a == "--annots-disable") {
            char* end = nullptr;
            const unsigned long v = std::strtoul(argv[++i], &end, 0);
            if (!*argv[i] || *end || v > 0x7fffffffUL || argv[i][0] == '-')
                return bad(std::string("--annots-disable wants a mask (a number), not '") + argv[i] + "'");
            o.annotsDisable = static_cast<int>(v);
        } else if (a == "--ascii") {
            o.ascii = true;
        } else if (a == "--quiet") {
            o.quiet = true;
        } else if (a == "--keep-going") {
            o.keepGoing = true;
        } else if (a == "--encrypt") {
            o.encrypt = argv[++i];
            if (o.encrypt != "aes-128") return bad("--encrypt knows aes-128 only, not '" + o.encrypt + "'");
        } else if (a == "--user") {
            o.user = argv[++i];
            o.userGiven = true;
        } else if (a == "--owner") {
            o.owner = argv[++i];
            o.ownerGiven = true;
        } else if (a == "--permissions") {
            char* end = nullptr;
            const long v = std::strtol(argv[++i], &end, 0);
            if (!*argv[i] || *end || v < INT32_MIN || v > INT32_MAX)
                return bad(std::string("--permissions wants a number (the /P value), not '") + argv[i] + "'");
            o.permissions = static_cast<int>(v);
        } else if (!a.empty() && a[0] == '-') {
            return bad("unknown option '" + a + "'");
        } else {
            // IN:PAGES, where the colon is the last one and PAGES is made of
            // digits, commas, dashes and 'z' (a file name may hold colons).
            // A name that is no file but whose part before the last colon
            // is one takes what follows as a selection, to be checked.
            Input in{a, ""};
            const std::size_t c = a.rfind(':');
            if (c != std::string::npos && c + 1 < a.size() &&
                (a.find_first_not_of("0123456789,-z", c + 1) == std::string::npos ||
                 (!tool::fileProblem(a.substr(0, c)).empty() ? false : !tool::fileProblem(a).empty()))) {
                in.file = a.substr(0, c);
                in.pages = a.substr(c + 1);
            }
            o.inputs.push_back(in);
        }
    }
    if (o.out.empty()) return bad("no output given (-o OUT)");
    if (o.inputs.empty()) return bad("no input given");
    if (!o.encrypt.empty() && (!o.userGiven || !o.ownerGiven))
        return bad("--encrypt needs --user and --owner passwords (either may be \"\")");
    if (o.encrypt.empty() && (o.userGiven || o.ownerGiven || o.permissions != -4))
        return bad("--user, --owner and --permissions go with --encrypt");
    for (const Input& in : o.inputs)
        if (in.file == o.out || tool::sameFile(in.file, o.out))
            return bad("-o '" + o.out + "' is an input: the output must be another file");
    return true;
}

// Page numbers of a selection; false on a malformed one.
bool selectPages(const std::string& text, int count, std::vector<int>& out) {
    if (text.empty()) {
        for (int p = 1; p <= count; ++p) out.push_back(p);
        return true;
    }
    std::size_t at = 0;
    auto number = [&](int& v) {
        if (at < text.size() && text[at] == 'z') {
            v = count;
            ++at;
            return true;
        }
        const std::size_t start = at;
        long n = 0;
        while (at < text.size() && text[at] >= '0' && text[at] <= '9' && n < 10000000) n = n * 10 + (text[at++] - '0');
        v = static_cast<int>(n);
        return at > start;
    };
    while (at < text.size()) {
        int a = 0, b = 0;
        if (!number(a)) return false;
        b = a;
        if (at < text.size() && text[at] == '-') {
            ++at;
            if (!number(b)) return false;
        }
        if (a < 1 || b < 1 || a > count || b > count) return false;
        for (int p = a; a <= b ? p <= b : p >= b; p += a <= b ? 1 : -1) out.push_back(p);
        if (at < text.size()) {
            if (text[at] != ',') return false;
            ++at;
        }
    }
    return true;
}

// One deflate state for the whole run, reset between streams: setting a
// state up costs more than compressing a page's content.
class Deflater {
public:
    Deflater() { ok_ = deflateInit(&z_, 6) == Z_OK; }
    ~Deflater() {
        if (ok_) deflateEnd(&z_);
    }
    Deflater(const Deflater&) = delete;
    Deflater& operator=(const Deflater&) = delete;

    // The output grows as deflate fills it, so that a large page content that
    // compresses well never costs a buffer of its own size.
    std::string run(const std::string& data) {
        if (!ok_ || deflateReset(&z_) != Z_OK) return std::string();
        std::string out;
        std::size_t room = std::min<std::size_t>(deflateBound(&z_, static_cast<uLong>(data.size())), 1 << 16);
        z_.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(data.data()));
        std::size_t left = data.size();
        for (;;) {
            const std::size_t have = out.size();
            out.resize(have + room);
            z_.next_out = reinterpret_cast<Bytef*>(&out[have]);
            z_.avail_out = static_cast<uInt>(room);
            const uInt feed = static_cast<uInt>(std::min<std::size_t>(left, 1u << 30));
            z_.avail_in = feed;
            const int rc = ::deflate(&z_, left > feed ? Z_NO_FLUSH : Z_FINISH);
            left -= feed - z_.avail_in;
            out.resize(out.size() - z_.avail_out);
            if (rc == Z_STREAM_END) return out;
            if (rc != Z_OK && rc != Z_BUF_ERROR) return std::string();
            room = std::min<std::size_t>(std::max<std::size_t>(out.size(), 1 << 16), 1 << 30);
        }
    }

private:
    z_stream z_{};
    bool ok_ = false;
};

std::string deflate(const std::string& data) {
    static Deflater state;
    return state.run(data);
}

// The current page's content as stored, when that is one stream compressed
// with Flate alone: the form takes those bytes as they are, which saves
// decoding and compressing them again.
bool storedFlate(CPDFKilnPage& doc, std::string& data) {
    const std::string* stored = nullptr;
    std::string filter, parms;
    if (doc.getPageContentsEncoded(&stored, filter, parms) != 0 || !parms.empty() || !stored || stored->empty())
        return false;
    std::string names;
    for (char c : filter)
        if (c != '[' && c != ']' && c != ' ' && c != '\r' && c != '\n' && c != '\t') names += c;
    if (names != "/FlateDecode") return false;
    data = *stored;
    return true;
}

std::string num(double v) {
    if (std::fabs(v) < 1e-9) v = 0;
    char b[64];
    std::snprintf(b, sizeof b, "%.4f", v);
    std::string s = b;
    s.erase(s.find_last_not_of('0') + 1);
    if (!s.empty() && s.back() == '.') s.pop_back();
    return s;
}

// The output file: objects in the order written, with their offsets.
class Writer {
public:
    int reserve() { return next++; }
    void object(int n, const std::string& body) {
        if (offsets.size() <= static_cast<std::size_t>(n)) offsets.resize(static_cast<std::size_t>(n) + 1, -1);
        offsets[static_cast<std::size_t>(n)] = static_cast<long>(text.size());
        text += std::to_string(n) + " 0 obj\n" + (ascii ? sevenBitText(body) : body) + "\nendobj\n";
    }
    void stream(int n, const std::string& dict, const std::string& plain) {
        if (ascii) {
            const std::size_t f = dict.find("/Filter /FlateDecode");
            const std::string layered = f == std::string::npos
                                            ? dict + " /Filter /ASCII85Decode"
                                            : dict.substr(0, f) + "/Filter [/ASCII85Decode /FlateDecode]" + dict.substr(f + 20);
            ascii = false;
            stream(n, sevenBitText(layered), ascii85(plain));
            ascii = true;
            return;
        }
        std::string data = plain;
        if (encrypt.encrypted()) {
            SObj key(n, 0);
            encryptString(encrypt, &key, data);
        }
        object(n, "<< " + dict + " /Length " + std::to_string(data.size()) + " >>\nstream\n" + data + "\nendstream");
    }
    void finish(int root) {
        // Numbers handed out but never written (an object the library could
        // not deliver) become null objects.
        for (int n = 1; n < next; ++n)
            if (static_cast<std::size_t>(n) >= offsets.size() || offsets[static_cast<std::size_t>(n)] < 0)
                object(n, "null");
        dropUnreferenced(root);
        const long xref = static_cast<long>(text.size());
        text += "xref\n0 " + std::to_string(next) + "\n0000000000 65535 f \n";
        char entry[32];
        for (int n = 1; n < next; ++n) {
            std::snprintf(entry, sizeof entry, "%010ld 00000 n \n", offsets[static_cast<std::size_t>(n)]);
            text += entry;
        }
        text += "trailer\n<< /Size " + std::to_string(next) + " /Root " + std::to_string(root) + " 0 R" +
                trailerExtra + " >>\nstartxref\n" + std::to_string(xref) + "\n%%EOF\n";
    }
    // The output's security state: what the tool writes itself is encrypted
    // with it, as the library encrypts what it delivers.
    CEncrypt encrypt;
    bool ascii = false;
    std::string trailerExtra;
    std::string text = "%PDF-1.7\n%\xE2\xE3\xCF\xD3\n";
    int next = 1;

private:
    // Objects that nothing reachable from the catalog or the trailer refers
    // to (a source's name trees, say, which the library delivers with the
    // first page but the output has no /Names for) become null objects, their
    // bytes given back in place. A "n g R" inside stream data counts as a
    // reference too: that keeps an object at worst, never drops one in use.
    void dropUnreferenced(int root) {
        const std::size_t count = static_cast<std::size_t>(next);
        // Each object's bytes run to the next object's start (or the end).
        std::vector<std::pair<long, int>> order;
        for (std::size_t n = 1; n < count; ++n) order.emplace_back(offsets[n], static_cast<int>(n));
        std::sort(order.begin(), order.end());
        std::vector<long> ends(count, static_cast<long>(text.size()));
        for (std::size_t i = 0; i + 1 < order.size(); ++i)
            ends[static_cast<std::size_t>(order[i].second)] = order[i + 1].first;
        std::vector<char> reached(count, 0);
        std::vector<int> work;
        auto refer = [&](const char* b, const char* e) {
            for (const char* r = b; r < e; ++r) {
                if (*r != 'R' || (r + 1 < e && std::isalnum(static_cast<unsigned char>(r[1])))) continue;
                const char* q = r;
                auto blanks = [&]() { while (q > b && std::isspace(static_cast<unsigned char>(q[-1]))) --q; };
                auto digits = [&]() {
                    const char* end = q;
                    while (q > b && std::isdigit(static_cast<unsigned char>(q[-1]))) --q;
                    return end - q;
                };
                blanks();
                if (digits() == 0) continue;
                blanks();
                const char* numEnd = q;
                if (digits() == 0 || numEnd - q > 9) continue;
                const long n = std::strtol(q, nullptr, 10);
                if (n > 0 && static_cast<std::size_t>(n) < count && !reached[static_cast<std::size_t>(n)]) {
                    reached[static_cast<std::size_t>(n)] = 1;
                    work.push_back(static_cast<int>(n));
                }
            }
        };
        const std::string start = " " + std::to_string(root) + " 0 R " + trailerExtra + " ";
        refer(start.data(), start.data() + start.size());
        while (!work.empty()) {
            const std::size_t n = static_cast<std::size_t>(work.back());
            work.pop_back();
            refer(text.data() + offsets[n], text.data() + ends[n]);
        }
        // Compact in file order: kept objects move down, dropped ones shrink
        // to "n 0 obj null endobj" (never longer than what they replace).
        long to = order.empty() ? static_cast<long>(text.size()) : order.front().first;
        for (const auto& o : order) {
            const std::size_t n = static_cast<std::size_t>(o.second);
            const long from = o.first, size = ends[n] - from;
            offsets[n] = to;
            const std::string stub = std::to_string(n) + " 0 obj\nnull\nendobj\n";
            if (reached[n] || static_cast<long>(stub.size()) > size) {
                if (to != from) std::memmove(&text[static_cast<std::size_t>(to)], &text[static_cast<std::size_t>(from)],
                                             static_cast<std::size_t>(size));
                to += size;
            } else {
                text.replace(static_cast<std::size_t>(to), stub.size(), stub);
                to += static_cast<long>(stub.size());
            }
        }
        text.resize(static_cast<std::size_t>(to));
    }

    std::vector<long> offsets;
};

// One placed source page.
struct Placed {
    int form;
    float box[4];
    int rotate;
    std::size_t job;
    int page;
    double cm[6];
};

// A link target the library created for a page: written once every page is
// placed, since it may lead to a later one.
struct Target {
    DestTD dest;
    std::size_t job;
};

// The matrix that takes page space to sheet space: the page's box moved to
// the origin, turned by its /Rotate, scaled and moved into its cell.
void placement(const Placed& pl, double s, double tx, double ty, double m[6]) {
    const double w0 = pl.box[2] - pl.box[0], h0 = pl.box[3] - pl.box[1];
    double r[6] = {1, 0, 0, 1, 0, 0};
    switch (((pl.rotate % 360) + 360) % 360) {
        case 90: r[1] = -1; r[2] = 1; r[0] = r[3] = 0; r[5] = w0; break;
        case 180: r[0] = r[3] = -1; r[4] = w0; r[5] = h0; break;
        case 270: r[0] = r[3] = 0; r[1] = 1; r[2] = -1; r[4] = h0; break;
        default: break;
    }
    // p' = ((p - origin) x R) x S
    const double ox = -pl.box[0], oy = -pl.box[1];
    const double a = r[0] * s, b = r[1] * s, c = r[2] * s, d = r[3] * s;
    m[0] = a;
    m[1] = b;
    m[2] = c;
    m[3] = d;
    m[4] = ox * a + oy * c + r[4] * s + tx;
    m[5] = ox * b + oy * d + r[5] * s + ty;
}

// The value of `key` in a dictionary's inside, as text ("" when absent).
std::string dictValue(const std::string& inside, const std::string& key) {
    std::size_t at = 0;
    while ((at = inside.find(key, at)) != std::string::npos) {
        const std::size_t end = at + key.size();
        if (end < inside.size() && (std::isalnum(static_cast<unsigned char>(inside[end])))) {
            at = end;
            continue;
        }
        std::size_t v = inside.find_first_not_of(" \t\r\n", end);
        if (v == std::string::npos) return std::string();
        const char open = inside[v];
        if (open == '[' || open == '<' || open == '(') {
            const char close = open == '[' ? ']' : open == '(' ? ')' : '>';
            int depth = 0;
            for (std::size_t i = v; i < inside.size(); ++i) {
                if (open == '(' && inside[i] == '\\') {
                    ++i;
                    continue;
                }
                if (inside[i] == open) ++depth;
                else if (inside[i] == close && --depth == 0) return inside.substr(v, i - v + 1);
            }
            return std::string();
        }
        std::size_t e = v + 1;
        while (e < inside.size() && !std::isspace(static_cast<unsigned char>(inside[e])) && inside[e] != '/' &&
               inside[e] != '>')
            ++e;
        // A reference: "n g R".
        const std::string rest = inside.substr(v, 24);
        int n1 = 0, n2 = 0;
        char r = 0;
        if (std::sscanf(rest.c_str(), "%d %d %c", &n1, &n2, &r) == 3 && r == 'R') {
            const std::size_t rp = inside.find('R', v);
            return inside.substr(v, rp - v + 1);
        }
        return inside.substr(v, e - v);
    }
    return std::string();
}

std::string hexOf(const std::string& bytes) {
    static const char* digits = "0123456789abcdef";
    std::string h;
    for (unsigned char c : bytes) {
        h += digits[c >> 4];
        h += digits[c & 15];
    }
    return h;
}

// AES-128 with the standard security handler, revision 4: /O, /U and the file
// key from the encryption manager; the /Encrypt object and /ID go to the writer.
std::string setUpEncryption(const Options& o, Writer& w) {
    pcrypt::EncryptInfo info;
    info.R = 4;
    info.V = 4;
    info.Length = 128;
    info.P = o.permissions;
    info.cipherMode = 2;
    info.encryptMetadata = true;
    // A file identifier from the output's name, its options and the time.
    std::string seed = o.out + "|" + o.user + "|" + std::to_string(std::time(nullptr)) + "|" + std::to_string(std::rand());
    pcrypt::PDFEncryptionMD5().MD5(seed, info.ID, 16);
    pcrypt::EncryptOption option;
    option.userPassword = o.user;
    option.ownerPassword = o.owner.empty() ? o.user : o.owner;
    option.P = o.permissions;
    pcrypt::PDFEncryptionManager manager;
    manager.calculateOKey(option, info);
    manager.createKey(info, o.user);
    manager.calculateUKey(option, info);

    CEncrypt& enc = w.encrypt;
    enc.Length = 128;
    enc.R = 4;
    enc.V = 4;
    enc.cipherMode = 2;
    enc.passwordState = 2;
    std::memcpy(enc.fileKey, info.key.data(), std::min<std::size_t>(info.key.size(), 16));

    const int encryptObj = w.reserve();
    w.object(encryptObj, "<< /Filter /Standard /V 4 /R 4 /Length 128 /CF << /StdCF << /AuthEvent /DocOpen "
                         "/CFM /AESV2 /Length 16 >> >> /StmF /StdCF /StrF /StdCF /O <" +
                             hexOf(info.O.substr(0, 32)) + "> /U <" + hexOf(info.U.substr(0, 32)) + "> /P " +
                             std::to_string(o.permissions) + " >>");
    w.trailerExtra = " /Encrypt " + std::to_string(encryptObj) + " 0 R /ID [<" + hexOf(info.ID) + "> <" +
                     hexOf(info.ID) + ">]";
    return info.key.substr(0, 16);
}

void displayedSize(const Placed& pl, double& dw, double& dh) {
    dw = pl.box[2] - pl.box[0];
    dh = pl.box[3] - pl.box[1];
    const int r = ((pl.rotate % 360) + 360) % 360;
    if (r == 90 || r == 270) std::swap(dw, dh);
}

// The size of the sheet a page goes on: the one asked for, the first page's
// own for one page per sheet, A4 for n-up.
void sheetSize(const Options& o, const std::vector<Placed>& placed, const Placed& pl, std::size_t perSheet,
               double& W, double& H) {
    W = o.sheetW;
    H = o.sheetH;
    if (W <= 0) {
        if (perSheet == 1) {
            const std::size_t first = placed.size() / perSheet * perSheet;
            displayedSize(first < placed.size() ? placed[first] : pl, W, H);
        } else {
            W = 595.276, H = 841.89;
        }
        if (!(W > 0) || !(H > 0)) W = 612, H = 792;
    }
}

const char* resultText(int rc) {
    switch (rc) {
        case kResultBadFile: return "not a usable PDF file";
        case kResultBadXRef: return "the cross-reference chain could not be read";
        case kResultNotLocalised: return "the catalog could not be located";
        case kResultBadPage: return "bad page";
        case kResultStdException: return "internal error while reading";
        case kResultFilterFailed: return "filter failure";
        default: return "failed";
    }
}

}  // namespace

int cmdCompose(int argc, char** argv) {
    Options o;
    for (int i = 1; i < argc; ++i) {
        if (!std::strcmp(argv[i], "--help") || !std::strcmp(argv[i], "-h")) {
            usage(stdout);
            return 0;
        }
    }
    if (!parseArgs(argc, argv, o)) return tool::kExitUsage;
    if (o.ascii && !o.encrypt.empty()) {
        std::fputs("pdfkiln: --ascii cannot be combined with --encrypt\n", stderr);
        return tool::kExitUsage;
    }
    Writer w;
    if (o.ascii) {
        w.ascii = true;
        w.text = "%PDF-1.7\n";
    }
    const int catalog = w.reserve();
    const int root = w.reserve();
    std::string fileKey;
    if (!o.encrypt.empty()) fileKey = setUpEncryption(o, w);
    std::vector<Placed> placed;
    int failures = 0;
    // The status of a run that a skipped or emptied page ends.
    const auto stopped = [] {
        std::fputs("pdfkiln: stopped, no output written (--keep-going writes the other pages)\n", stderr);
        return tool::kExitPartial;
    };

    // Pages to do, for the progress report.
    struct Job {
        std::shared_ptr<CPDFKilnPage> doc;
        std::vector<int> pages;
        std::string file;
    };
    std::vector<Job> jobs;
    std::size_t total = 0;
    tool::ReadOptions read;
    read.password = o.password;
    read.strict = o.strict;
    for (std::size_t k = 0; k < o.inputs.size(); ++k) {
        const Input& in = o.inputs[k];
        Job j;
        j.file = in.file;
        // A file named again shares the facade of its first naming, so that
        // the objects its pages share are delivered once.
        for (std::size_t m = 0; m < k && !j.doc; ++m)
            if (o.inputs[m].file == in.file || tool::sameFile(o.inputs[m].file, in.file)) j.doc = jobs[m].doc;
        if (!j.doc) {
            if (o.ascii) {
                CPDFKilnPage_Encode* encode = new CPDFKilnPage_Encode(in.file.c_str(), o.password);
                encode->setDecodeParmsFollow(true);
                encode->setEncodeUnfiltered(true);
                encode->setExactStreamStart(true);
                j.doc.reset(encode);
            } else {
                j.doc.reset(new CPDFKilnPage(in.file.c_str(), o.password));
            }
            if (int status = tool::openDocument(*j.doc, in.file, read)) return status;
        }
        if (!selectPages(in.pages, j.doc->getPageCount(), j.pages)) {
            std::fprintf(stderr, "pdfkiln compose: %s: bad page selection '%s' (the file has %d pages)\n",
                         in.file.c_str(), in.pages.c_str(), j.doc->getPageCount());
            return tool::kExitUsage;
        }
        // Everything the library delivers for this source is encrypted for
        // the output: AES with a 16-byte key (cipher mode 4).
        if (!fileKey.empty())
            j.doc->setEncryptKey(reinterpret_cast<const unsigned char*>(fileKey.data()), 16, 4);
        // A form mask that switches off no kind of field keeps the form.
        j.doc->setAnnotsEnable(o.noAnnots ? -1 : o.annotsDisable);
        j.doc->setAcroFormsEnable(o.noForms ? -1 : 0x100);
        total += j.pages.size();
        jobs.push_back(std::move(j));
    }

    const std::size_t perSheet = static_cast<std::size_t>(o.cols) * static_cast<std::size_t>(o.rows);
    std::vector<int> sheetObjs;
    std::vector<std::string> sheetAnnots;
    std::vector<Target> targets;
    const int acroForm = o.noForms ? 0 : w.reserve();
    std::string fields, formExtra;
    bool needAppearances = false;
    std::size_t done = 0;
    for (std::size_t ji = 0; ji < jobs.size(); ++ji) {
        Job& j = jobs[ji];
        CPDFKilnPage& doc = *j.doc;
        for (int p : j.pages) {
            ++done;
            // A shared facade may stand on this page from an earlier naming:
            // leave it, so that the page is read afresh.
            if (j.doc.use_count() > 1) doc.setPageNo(0);
            int rc = doc.setPageNo(p);
            if (rc != 0) {
                std::fprintf(stderr, "pdfkiln: %s: page %d skipped: %s (%d)\n", j.file.c_str(), p, resultText(rc), rc);
                ++failures;
                if (!o.keepGoing) return stopped();
                continue;
            }
            const int form = w.reserve();
            Placed pl{form, {0, 0, 0, 0}, 0, ji, p, {1, 0, 0, 1, 0, 0}};
            doc.getPageBox(CPDFKilnPage::eVisibleBox, pl.box[0], pl.box[1], pl.box[2], pl.box[3]);
            doc.getPageRotate(pl.rotate);
            // Where the page lands, so that its annotations move with it.
            const std::size_t cell = placed.size() % perSheet;
            if (cell == 0) {
                sheetObjs.push_back(w.reserve());
                sheetAnnots.emplace_back();
            }
            {
                double W = 0, H = 0, dw = 0, dh = 0;
                sheetSize(o, placed, pl, perSheet, W, H);
                displayedSize(pl, dw, dh);
                const double cw = W / o.cols, ch = H / o.rows;
                if (dw > 0 && dh > 0) {
                    const double ox = static_cast<double>(cell % static_cast<std::size_t>(o.cols)) * cw;
                    const double oy = H - static_cast<double>(cell / static_cast<std::size_t>(o.cols) + 1) * ch;
                    const double s = std::min(cw / dw, ch / dh);
                    placement(pl, s, ox + (cw - dw * s) / 2, oy + (ch - dh * s) / 2, pl.cm);
                }
            }
            doc.setPageCm(PgCmTD{static_cast<float>(pl.cm[0]), static_cast<float>(pl.cm[1]),
                                 static_cast<float>(pl.cm[2]), static_cast<float>(pl.cm[3]),
                                 static_cast<float>(pl.cm[4]), static_cast<float>(pl.cm[5])});
            doc.setCurPageObj(sheetObjs.back(), 0);
            doc.setStartObjNo(w.next);
            for (auto it = doc.begin(); it != doc.end(); doc.next(it)) {
                const int n = it->first.first;
                w.object(n, it->second.empty() ? std::string("null") : it->second);
                w.next = std::max(w.next, n + 1);
            }
            for (const DestTD& d : doc.getDestVector()) {
                targets.push_back(Target{d, ji});
                w.next = std::max(w.next, d.number + 1);
            }
            if (!o.noAnnots || !o.noForms) {
                const std::string* annots = nullptr;
                doc.getPageAnnots(&annots);
                if (annots && !annots->empty()) sheetAnnots.back() += *annots + " ";
            }
            const std::string* contents = nullptr;
            const std::string* res = nullptr;
            std::string data;
            if (!o.recompress && storedFlate(doc, data)) {
                // copied as stored
            } else {
                rc = doc.getPageContents(&contents);
                if (rc != 0) {
                    // A decoder's own code is below the facade's range: the
                    // content failed in a filter all the same.
                    if (rc < 1000) rc = kResultFilterFailed;
                    std::fprintf(stderr, "pdfkiln: %s: page %d emptied: content does not decode: %s (%d)\n",
                                 j.file.c_str(), p, resultText(rc), rc);
                    ++failures;
                    if (!o.keepGoing) return stopped();
                }
                data = deflate(*contents);
            }
            doc.getPageRes(&res, form);
            w.stream(form,
                     "/Type /XObject /Subtype /Form /BBox [" + num(pl.box[0]) + " " + num(pl.box[1]) + " " +
                         num(pl.box[2]) + " " + num(pl.box[3]) + "] /Resources " + cleanResources(*res) +
                         " /Filter /FlateDecode",
                     data);
            placed.push_back(pl);
            if (!o.quiet && total >= 50 && (done % 50 == 0 || done == total))
                std::fprintf(stderr, "pdfkiln: %zu/%zu pages\n", done, total);
        }
        // The source's form: its fields that came along, merged into one.
        const std::string* formText = nullptr;
        bool lastNaming = true;
        for (std::size_t m = ji + 1; m < jobs.size(); ++m) lastNaming = lastNaming && jobs[m].doc != j.doc;
        if (acroForm && lastNaming && doc.getAcroFormFields(&formText, acroForm) == 0 && formText) {
            const std::string f = dictValue(*formText, "/Fields");
            if (f.size() > 2 && f.front() == '[') fields += f.substr(1, f.size() - 2) + " ";
            if (dictValue(*formText, "/NeedAppearances") == "true") needAppearances = true;
            if (formExtra.empty()) {
                const std::string dr = dictValue(*formText, "/DR");
                if (!dr.empty()) formExtra += " /DR " + dr;
                const std::string da = dictValue(*formText, "/DA");
                if (!da.empty()) formExtra += " /DA " + da;
            }
        }
    }
    if (placed.empty()) {
        std::fputs("pdfkiln: no page could be placed\n", stderr);
        return failures ? tool::kExitPartial : 1;
    }

    // Link targets: the sheet that shows the page, at the point the page's
    // placement takes the target to; null for a page left out.
    for (const Target& t : targets) {
        const Placed* at = nullptr;
        std::size_t index = 0;
        for (std::size_t i = 0; i < placed.size(); ++i) {
            if (placed[i].job == t.job && placed[i].page == t.dest.page && t.dest.page > 0) {
                at = &placed[i];
                index = i;
                break;
            }
        }
        if (!at || t.dest.number <= 0) {
            if (t.dest.number > 0) w.object(t.dest.number, "null");
            continue;
        }
        const double* m = at->cm;
        const int sheet = sheetObjs[index / perSheet];
        std::string text = "[" + std::to_string(sheet) + " 0 R ";
        if (t.dest.style == 1) {
            const bool hasX = t.dest.pos[0] < 3e38f, hasY = t.dest.pos[1] < 3e38f;
            const double x = hasX ? t.dest.pos[0] : at->box[0], y = hasY ? t.dest.pos[1] : at->box[3];
            text += "/XYZ " + (hasX ? num(m[0] * x + m[2] * y + m[4]) : std::string("null")) + " " +
                    (hasY ? num(m[1] * x + m[3] * y + m[5]) : std::string("null")) + " null]";
        } else {
            text += "/Fit]";
        }
        w.object(t.dest.number, text);
    }
    if (acroForm) {
        w.object(acroForm, "<< /Fields [" + fields + "]" + (needAppearances ? " /NeedAppearances true" : "") +
                               formExtra + " >>");
    }

    // Sheets: cells left to right, top to bottom.
    std::string kids;
    int sheets = 0;
    for (std::size_t first = 0; first < placed.size(); first += perSheet) {
        const std::size_t last = std::min(placed.size(), first + perSheet);
        auto displayed = [](const Placed& pl, double& dw, double& dh) {
            dw = pl.box[2] - pl.box[0];
            dh = pl.box[3] - pl.box[1];
            const int r = ((pl.rotate % 360) + 360) % 360;
            if (r == 90 || r == 270) std::swap(dw, dh);
        };
        double W = o.sheetW, H = o.sheetH;
        if (W <= 0) {
            if (perSheet == 1) displayed(placed[first], W, H);
            else W = 595.276, H = 841.89;
            if (!(W > 0) || !(H > 0)) W = 612, H = 792;
        }
        const double cw = W / o.cols, ch = H / o.rows;
        std::string content, xobjects;
        for (std::size_t i = first; i < last; ++i) {
            const Placed& pl = placed[i];
            const std::size_t cell = i - first;
            const double ox = static_cast<double>(cell % static_cast<std::size_t>(o.cols)) * cw;
            const double oy = H - static_cast<double>(cell / static_cast<std::size_t>(o.cols) + 1) * ch;
            double dw, dh;
            displayed(pl, dw, dh);
            if (!(dw > 0) || !(dh > 0)) continue;
            const double s = std::min(cw / dw, ch / dh);
            const double tx = ox + (cw - dw * s) / 2, ty = oy + (ch - dh * s) / 2;
            const double w0 = pl.box[2] - pl.box[0], h0 = pl.box[3] - pl.box[1];
            // /Rotate turns the page clockwise: map the box onto [0 dw]x[0 dh].
            std::string rot;
            switch (((pl.rotate % 360) + 360) % 360) {
                case 90: rot = "0 -1 1 0 0 " + num(w0); break;
                case 180: rot = "-1 0 0 -1 " + num(w0) + " " + num(h0); break;
                case 270: rot = "0 1 -1 0 " + num(h0) + " 0"; break;
                default: rot = "1 0 0 1 0 0"; break;
            }
            const std::string name = "/P" + std::to_string(i - first);
            content += "q " + num(s) + " 0 0 " + num(s) + " " + num(tx) + " " + num(ty) + " cm " + rot + " cm 1 0 0 1 " +
                       num(-pl.box[0]) + " " + num(-pl.box[1]) + " cm " + name + " Do Q\n";
            xobjects += name + " " + std::to_string(pl.form) + " 0 R ";
        }
        const int contentObj = w.reserve();
        const std::size_t sheetIndex = first / perSheet;
        const int pageObj = sheetObjs[sheetIndex];
        const std::string& annotRefs = sheetAnnots[sheetIndex];
        // A sheet's few placements are not worth compressing.
        if (content.size() < 512) w.stream(contentObj, "", content);
        else w.stream(contentObj, "/Filter /FlateDecode", deflate(content));
        w.object(pageObj, "<< /Type /Page /Parent " + std::to_string(root) + " 0 R /MediaBox [0 0 " + num(W) + " " +
                              num(H) + "] /Resources << /XObject << " + xobjects + ">> >> /Contents " +
                              std::to_string(contentObj) + " 0 R" +
                              (annotRefs.empty() ? std::string() : " /Annots [" + annotRefs + "]") + " >>");
        kids += std::to_string(pageObj) + " 0 R ";
        ++sheets;
    }
    w.object(root, "<< /Type /Pages /Kids [" + kids + "] /Count " + std::to_string(sheets) + " >>");
    std::vector<CPDFKilnPage*> sources;
    for (Job& j : jobs) sources.push_back(j.doc.get());
    std::string intentNote;
    const std::string intent = carriedOutputIntent(
        sources,
        [&w](const std::string& dict, const std::string& data) {
            const int n = w.reserve();
            w.stream(n, dict + " /Filter /FlateDecode", deflate(data));
            return n;
        },
        intentNote);
    if (!o.quiet && !intentNote.empty()) std::fprintf(stderr, "pdfkiln: %s\n", intentNote.c_str());
    w.object(catalog, "<< /Type /Catalog " + intent + "/Pages " + std::to_string(root) + " 0 R" +
                          (acroForm && !fields.empty() ? " /AcroForm " + std::to_string(acroForm) + " 0 R" : "") +
                          " >>");
    w.finish(catalog);

    std::ofstream out(o.out, std::ios::binary);
    out.write(w.text.data(), static_cast<std::streamsize>(w.text.size()));
    out.close();
    if (!out) {
        std::fprintf(stderr, "pdfkiln: cannot write %s\n", o.out.c_str());
        return 1;
    }
    if (!o.quiet)
        std::fprintf(stderr, "pdfkiln: %zu page(s) on %d sheet(s) written to %s%s\n", placed.size(), sheets,
                     o.out.c_str(), failures ? " (some pages skipped or emptied)" : "");
    return failures ? tool::kExitPartial : 0;
}
