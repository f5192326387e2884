// Object text: the span copier that renders an object for a destination,
// and the writers of strings and stream bodies.
#include <cstdio>
#include <cstring>
#include <vector>

#include "pdfkiln_cobjectposition.h"
#include "pdfkiln_destfile.h"
#include "pdfkiln_sourfile.h"
#include "pfdecrypt.h"

namespace PDF_KILN {

namespace {

// A /Length value whose blanks wait in the buffer for the stream's size.
struct LengthSlot {
    std::size_t pos;
    std::size_t width;
    int value;
};

// Copies the source bytes [from, to) to the end of `out`; the read position
// is left where it was.
void copySpan(CSourFile& in, std::streampos from, std::streampos to, std::string& out) {
    if (from == std::streampos(-1) || to == std::streampos(-1) || to <= from) return;
    // Bytes already in memory are appended directly; the stream's state and
    // position stay as they are, as the seeking path below leaves them.
    if (in.good())
        if (CMemoryBuf* m = in.memory())
            if (m->copyRange(static_cast<std::size_t>(std::streamoff(from)), static_cast<std::size_t>(std::streamoff(to)),
                             out))
                return;
    const std::streampos here = in.tellg();
    const bool wasEof = in.eof();
    in.clear();
    in.seekg(from);
    const std::size_t n = static_cast<std::size_t>(to - from);
    const std::size_t old = out.size();
    out.resize(old + n);
    in.read(&out[old], static_cast<std::streamsize>(n));
    out.resize(old + static_cast<std::size_t>(in.gcount()));
    in.clear();
    if (here != std::streampos(-1)) in.seekg(here);
    else in.seekg(0, std::ios::end);
    if (wasEof) in.setstate(std::ios::eofbit);
}

std::streampos endOf(std::istream& in) {
    in.clear();
    in.seekg(0, std::ios::end);
    return in.tellg();
}

bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '\f' || c == 0; }

// Removes a key name that stands at the buffer's end (behind it only blanks).
void dropTrailingName(std::string& out, const std::string& name) {
    std::size_t p = out.rfind(name);
    if (p == std::string::npos) return;
    for (std::size_t i = p + name.size(); i < out.size(); ++i)
        if (!isBlank(out[i])) return;
    out.erase(p);
}

void patchSlot(CDestFile& out, const LengthSlot& slot, long long value) {
    std::string text = " " + std::to_string(value) + " ";
    if (slot.pos + slot.width <= out.size()) out.replace(slot.pos, slot.width, text);
}

}  // namespace

bool CObj::Write(CDestFile& out, CSourFile& in) {
    if (out.keepNumbers()) {
        out << self.num << ' ' << self.gen << ' ' << kwobj << ' ';
        return LocalObj(out, in);
    }
    const SObj* mapped = out.newNumber(self.num, self.gen);
    if (!mapped) return false;
    const SObj target(mapped->num, mapped->gen);
    out.RecordObjInfo(target);
    out << target.num << ' ' << target.gen << ' ' << kwobj << ' ';
    out.curObj = target;
    LocalObj(out, in);
    return true;
}

bool CObj::WriteObj(CDestFile& out, CSourFile& in) { return CopyBody(out, in, CopyRules::Object); }

int CObj::rewriteAnnotValue(CDestFile&, CSourFile&, const std::string&, int) { return 0; }
void CObj::annotDictEvent(int, bool) {}
bool CObj::rewriteAnnotRef(CDestFile&, const std::string&, int, int) { return false; }

// Keys that a page's copier leaves out with their values: the embedding
// program supplies the content, the annotations and the boxes itself.
static bool droppedPageKey(const std::string& key) {
    return tokenIs(key, nmAnnots) || tokenIs(key, nmContents) || tokenIs(key, nmMediaBox) || tokenIs(key, nmCropBox);
}

bool CObj::CopyBody(CDestFile& out, CSourFile& in, CopyRules rules) {
    const bool pageRules = rules == CopyRules::Page;
    const bool annotRules = rules == CopyRules::Annot;
    int dictDepth = 0;
    in.setf(std::ios::skipws);
    const bool keep = out.keepNumbers();
    CObjectPosition positions(&in);
    const bool bounded = !in.objectStreamView && positions.getObjType(self) == 1;
    const int64_t end = bounded ? positions.getEndPosition(self) : CObjectPosition::unknownPosition;
    CSourFile& root = in.root();
    const bool isSourceEncrypt = self.num > 0 && self == root.fileInfo.encrypt.self;
    const bool isOutputEncrypt = out.curObj.num > 0 && out.curObj == out.fileInfo.encrypt.self;

    std::vector<LengthSlot> slots;
    std::streampos flushed = in.tell();
    std::string prev, token;

    auto finish = [&](bool ok) {
        // A /Length that no stream followed keeps its own value.
        for (auto it = slots.rbegin(); it != slots.rend(); ++it) patchSlot(out, *it, it->value);
        out.lengthSlotOpen = false;
        return ok;
    };

    for (;;) {
        if (bounded && in.good() && static_cast<int64_t>(in.tell()) > end) {
            // No endobj before the next object: stop at the next object's start.
            copySpan(in, flushed, std::streampos(static_cast<std::streamoff>(end)), out);
            out.writtenLength = static_cast<int>(out.size());
            return finish(true);
        }
        if (!in.good()) {
            in.clear();
            copySpan(in, flushed, endOf(in), out);
            return finish(false);
        }
        in.skipWs();
        if (!in.good()) continue;
        const std::streampos tokStart = in.tell();

        // A page's /Contents and /Annots references go whatever the mode.
        if (!keep || (pageRules && (tokenIs(prev, nmAnnots) || tokenIs(prev, nmContents)))) {
            CObjRef ref;
            if (ref.Read(in)) {
                copySpan(in, flushed, tokStart, out);
                flushed = in.tell();
                if (pageRules && (tokenIs(prev, nmAnnots) || tokenIs(prev, nmContents))) {
                    // nothing stands in for it: the key went before
                } else if (annotRules && rewriteAnnotRef(out, prev, ref.num, ref.gen)) {
                    // the annotation wrote its own value (its page, its target)
                } else if (const SObj* mapped = out.newNumber(ref.num, ref.gen)) {
                    out << ' ' << mapped->num << ' ' << mapped->gen << ' ' << kwR;
                } else if (pageRules || annotRules) {
                    // The page keeps the key; the value it cannot map is null.
                    out << " null ";
                } else if (!prev.empty() && prev[0] == '/') {
                    dropTrailingName(out, prev);
                }
                prev = kwR;
                continue;
            }
        }

        readPDFString(in, token);
        std::streampos tokEnd = in.tell();
        // Most tokens are numbers, names of no interest or brackets: the
        // first byte rules out the comparisons below for them.
        char lead = token.empty() ? '\0' : token[0];
        const bool isName = lead == '/';
        if (tokEnd == std::streampos(-1)) tokEnd = endOf(in);

        if (pageRules && isName && droppedPageKey(token)) {
            copySpan(in, flushed, tokStart, out);
            flushed = tokEnd;
            // An array value goes to its closer, and a string behind
            // /Contents to its end; anything else is read as usual.
            in.skipWs();
            const std::streampos valueStart = in.tell();
            std::string next;
            readPDFString(in, next);
            if (tokenIs(next, "[")) {
                int depth = 1;
                while (depth > 0 && in.good()) {
                    readPDFString(in, next);
                    if (tokenIs(next, "[")) {
                        ++depth;
                    } else if (tokenIs(next, "]")) {
                        --depth;
                    } else if (tokenIs(next, "(") || tokenIs(next, "<")) {
                        CStringType skipped(self);
                        skipped.isHex = tokenIs(next, "<");
                        skipped.Read(in);
                    } else if (tokenIs(next, kwendobj) || tokenIs(next, kwstream) || (!in.good() && next.back() == '\0')) {
                        break;
                    }
                }
                flushed = in.tell();
                if (flushed == std::streampos(-1)) flushed = endOf(in);
            } else if (tokenIs(next, "(") && tokenIs(token, nmContents)) {
                CStringType skipped(self);
                skipped.Read(in);
                flushed = in.tell();
                if (flushed == std::streampos(-1)) flushed = endOf(in);
            } else {
                in.clear();
                in.seekg(valueStart);
                flushed = valueStart;
            }
            prev = token;
            continue;
        }

        if (annotRules) {
            if (tokenIs(token, "<<")) {
                annotDictEvent(++dictDepth, true);
            } else if (tokenIs(token, ">>")) {
                annotDictEvent(dictDepth--, false);
            } else if (!tokenIs(token, nmLength) && token.size() > 1 && token[0] == '/') {
                const std::streampos keyEnd = tokEnd;
                in.clear();
                in.seekg(keyEnd);
                const std::size_t mark = out.size();
                copySpan(in, flushed, keyEnd, out);
                const int done = rewriteAnnotValue(out, in, token, dictDepth);
                if (done != 0) {
                    if (done < 0) {
                        in.clear();
                        return finish(false);
                    }
                    in.clear(in.rdstate() & ~std::ios::failbit);
                    flushed = in.tell();
                    if (flushed == std::streampos(-1)) flushed = endOf(in);
                    prev = token;
                    continue;
                }
                // Not rewritten: the key is copied with what follows it.
                out.resize(mark);
                in.clear();
                in.seekg(keyEnd);
            }
        }

        if (isName && tokenIs(token, nmLength)) {
            CLength len(self);
            const std::streampos keyEnd = tokEnd;
            in.skipWs();
            const std::streampos valueStart = in.tell();
            if (!len.ReadLen(in) || in.fail()) {
                in.clear();
                copySpan(in, flushed, keyEnd, out);
                return finish(false);
            }
            std::streampos valueEnd = in.tell();
            if (valueEnd == std::streampos(-1)) valueEnd = endOf(in);
            copySpan(in, flushed, keyEnd, out);
            const std::size_t width = static_cast<std::size_t>(valueEnd - valueStart);
            slots.push_back({out.size(), width, len.length});
            out.append(width, ' ');
            flushed = valueEnd;
            prev = token;
            continue;
        }

        bool plain = true;  // false: the value is written unencrypted
        if (isName && (tokenIs(token, nmRC) || tokenIs(token, nmDS))) {
            const std::streampos back = in.tell();
            std::string next;
            readPDFString(in, next);
            in.clear();
            in.seekg(back);
            if (tokenIs(next, "(") || tokenIs(next, "<") || tokenIs(next, kwstream)) {
                copySpan(in, flushed, tokEnd, out);
                flushed = tokEnd;
                prev = token;
                in.skipWs();
                const std::streampos valueStart = in.tell();
                readPDFString(in, token);
                lead = token.empty() ? '\0' : token[0];
                tokEnd = in.tell();
                if (tokEnd == std::streampos(-1)) tokEnd = endOf(in);
                plain = false;
                (void)valueStart;
                copySpan(in, flushed, valueStart, out);
                flushed = valueStart;
            }
        }

        if ((lead == '(' || lead == '<') && (tokenIs(token, "(") || tokenIs(token, "<"))) {
            const std::streampos start = plain ? tokStart : flushed;
            copySpan(in, flushed, start, out);
            const SObj saved = out.curObj;
            if (!plain) out.curObj = SObj();
            CStringType s(self);
            s.noDecrypt = isSourceEncrypt;
            s.noEncrypt = isOutputEncrypt;
            s.isHex = tokenIs(token, "<");
            s.Read(in);
            s.Write(out, in);
            out.curObj = saved;
            flushed = in.tell();
            if (flushed == std::streampos(-1)) flushed = endOf(in);
            prev = token;
            continue;
        }
        if (lead == 's' && tokenIs(token, kwstream)) {
            copySpan(in, flushed, tokEnd, out);
            const SObj saved = out.curObj;
            if (!plain) out.curObj = SObj();
            CStreamType st(self);
            st.length = slots.empty() ? 0 : slots.back().value;
            st.isEncryptObject = isSourceEncrypt;
            if (!slots.empty()) {
                out.lengthSlotOpen = true;
                out.lengthSlotPos = slots.back().pos;
                out.lengthSlotWidth = slots.back().width;
                slots.pop_back();
            }
            const bool ok = st.Read(in);
            in.clear();
            st.Write(out, in);
            out.curObj = saved;
            flushed = in.tell();
            if (flushed == std::streampos(-1)) flushed = endOf(in);
            if (!ok && in.tell() == endOf(in)) return finish(false);
            prev = token;
            continue;
        }
        if (lead == 'e' && tokenIs(token, kwendobj)) {
            copySpan(in, flushed, tokEnd, out);
            out << '\n';
            out.writtenLength = static_cast<int>(out.size());
            return finish(true);
        }
        prev = token;
    }
}

bool CStringType::Write(CDestFile& out, CSourFile&) {
    std::string bytes = text;
    const CEncrypt& enc = out.fileInfo.encrypt;
    if (!noEncrypt && enc.encrypted() && !bytes.empty() && out.curObj.num > 0) {
        SObj key = out.curObj;
        encryptString(enc, &key, bytes);
    }
    if (isHex) {
        out += '<';
        WrtHexString(out, bytes);
    } else {
        out += '(';
        WrtString(out, bytes);
    }
    return true;
}

void CStringType::WrtString(std::string& out, const std::string& bytes) {
    std::size_t column = 0;
    for (char c : bytes) {
        if (column == 100) {
            out += "\\\n";
            column = 0;
        }
        char letter = 0;
        for (const EscPair& p : EscTab) {
            if (p.byte == c) {
                letter = p.letter;
                break;
            }
        }
        if (letter) {
            out += '\\';
            out += letter;
        } else {
            out += c;
        }
        ++column;
    }
    out += ')';
}

void CStringType::WrtHexString(std::string& out, const std::string& bytes) {
    static const char digits[] = "0123456789abcdef";
    std::size_t n = 0;
    for (unsigned char c : bytes) {
        out += digits[c >> 4];
        out += digits[c & 15];
        if (++n % 80 == 0 && n < bytes.size()) out += '\n';
    }
    out += '>';
}

bool CStreamType::Write(CDestFile& out, CSourFile&) {
    out << kw_r_n;
    std::string bytes = data;
    const CEncrypt& enc = out.fileInfo.encrypt;
    if (enc.encrypted() && !bytes.empty() && out.curObj.num > 0) {
        SObj key = out.curObj;
        encryptString(enc, &key, bytes);
    }
    if (out.lengthSlotOpen) {
        patchSlot(out, LengthSlot{out.lengthSlotPos, out.lengthSlotWidth, 0},
                  static_cast<long long>(bytes.size()));
        out.lengthSlotOpen = false;
    }
    out.streamDataPos = out.size();
    out.streamDataSize = bytes.size();
    out += bytes;
    return true;
}

}  // namespace PDF_KILN
