// The cross-reference chain, trailers, /Info and /ID.
#include "pdfkiln_fileinfo.h"

#include <climits>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <memory>

#include "crypt_bridge.h"
#include "pdfkiln_cobjectposition.h"
#include "pdfkiln_sourfile.h"

namespace PDF_KILN {

const char* const FORMATDATE = "D:%04i%02i%02i%02i%02i%02i%c%02i'%02i'";

namespace {

// One "offset generation mark" entry of a classic section, read off the
// bytes in memory as `>> offset >> gen >> mark` would read it. False, with
// nothing consumed, where the entry is not in the plain digits form or not
// whole in memory: the stream reads it then.
bool readEntryFast(CSourFile& in, int& offset, int& gen, char& mark) {
    CMemoryBuf* m = in.memory();
    if (!m || !in.good() || !(in.flags() & std::ios::skipws)) return false;
    const char* p = m->cursor();
    const char* const e = m->limit();
    auto blanks = [&]() {
        p = skipStreamBlanks(p, e);
    };
    auto number = [&](int& v) {
        blanks();
        const char* const start = p;
        long long x = 0;
        while (p != e && *p >= '0' && *p <= '9' && p - start < 10) x = x * 10 + (*p++ - '0');
        // Not a number, one of 11 digits or more, or one that may go on
        // past what is in memory: left to the stream.
        if (p == start || p == e || (*p >= '0' && *p <= '9') || x > INT_MAX) return false;
        v = static_cast<int>(x);
        return true;
    };
    int o = 0, g = 0;
    if (!number(o) || !number(g)) return false;
    blanks();
    if (p == e) return false;
    offset = o;
    gen = g;
    mark = *p++;
    m->moveTo(p);
    return true;
}

// Bytes of the tail searched for the last "startxref".
constexpr int kTailBytes = 300;
// Upper bound of entries taken from one cross-reference stream subsection.
constexpr long long kMaxXRefEntries = 10000000;

bool readInt(std::istream& in, int& v) { return static_cast<bool>(in >> v); }

// Reads "num gen R"-like triples: two ints and one non-blank character.
bool readRefTriple(std::istream& in, int& num, int& gen) {
    char c = 0;
    return (in >> num) && (in >> gen) && (in >> c);
}

}  // namespace

// ---------------------------------------------------------------------------

CFileInfo::CFileInfo() : objTable(&ownTable) {}

void CFileInfo::Init() {
    size = 0;
    rootRef = SObj();
    ownTable.clear();
}

SObjState CFileInfo::GetObjState(const int& num, const int& gen) const {
    const SObjState* st = static_cast<const ObjTable*>(objTable)->state(num, gen);
    return st ? *st : SObjState();
}

SObjState CFileInfo::GetObjState(const SObj& key) const { return GetObjState(key.num, key.gen); }

// Opens a dictionary: comments are skipped; "[" or "<<" opens it.
bool CFileInfo::openDict(CSourFile& in) {
    char c = 0;
    if (!(in >> c)) return false;
    while (c == '%') {
        char d = 0;
        while (in.get(d) && d != '\n' && d != '\r') {
        }
        if (!(in >> c)) return false;
    }
    if (c == '[') return true;
    if (c == '<') {
        char d = 0;
        if (in >> d) {
            if (d == '<') return true;
            in.unget();
        } else {
            in.clear();
        }
    }
    in.unget();
    return false;
}

void CFileInfo::readTrailerRoot(CSourFile& in) {
    int num = 0, gen = 0;
    if (!readRefTriple(in, num, gen)) return;
    if (rootRef.num == 0) rootRef = SObj(num, gen);
}

// /Encrypt in a trailer: a reference, null, or a direct dictionary.
bool CFileInfo::readTrailerEncrypt(CSourFile& in) {
    std::streampos at = in.tellg();
    int num = 0;
    if (!(in >> num)) {
        in.clear();
        in.seekg(at);
        std::string token;
        readPDFString(in, token);
        if (tokenIs(token, "null")) return true;
        if (tokenIs(token, "<<")) {
            in.seekg(at);
            if (encrypt.handlerKind == 0 && encrypt.self.num == 0) {
                encrypt.passwordState = 2;
                encrypt.flags &= ~CObj::kIndirect;
                encrypt.fromStream(in);
            } else {
                // Known already, from a newer trailer or an earlier opening:
                // pass over the whole dictionary, its nested crypt filter
                // dictionaries included, so that the trailer goes on behind it.
                std::string t;
                int depth = 0;
                do {
                    readPDFString(in, t);
                    if (tokenIs(t, "<<")) ++depth;
                    else if (tokenIs(t, ">>")) --depth;
                } while (depth > 0 && in.good());
            }
            return true;
        }
        return true;
    }
    int gen = 0;
    char c = 0;
    if (!(in >> gen) || !(in >> c)) return false;
    if (encrypt.self.num == 0) encrypt.self = SObj(num, gen);
    return true;
}

bool CFileInfo::readIDString(CSourFile& in, const std::string& opener, unsigned char* dst, std::size_t& len) {
    CStringType s;
    s.noDecrypt = true;  // file identifiers are never encrypted
    s.isHex = tokenIs(opener, "<");
    s.Read(in);
    len = std::min<std::size_t>(s.text.size(), 256);
    std::memcpy(dst, s.text.data(), len);
    return true;
}

// /ID: two strings in an array. Kept only from the newest trailer.
bool CFileInfo::readTrailerID(CSourFile& in) {
    std::string token;
    readPDFString(in, token);
    if (tokenIs(token, "[")) readPDFString(in, token);
    if (tokenIs(token, "%")) {
        in.seekg(-1, std::ios::cur);
        skipComment(in);
        readPDFString(in, token);
    }
    if (!tokenIs(token, "<") && !tokenIs(token, "(")) return false;
    const bool keep = fileId.id1[0] == 0;
    unsigned char scratch[256];
    std::size_t len = 0;
    readIDString(in, token, keep ? fileId.id1 : scratch, len);
    if (keep) fileId.id1Length = len;
    std::streampos at = in.tellg();
    readPDFString(in, token);
    if (tokenIs(token, "<") || tokenIs(token, "(")) {
        readIDString(in, token, keep ? fileId.id2 : scratch, len);
        if (keep) fileId.id2Length = len;
    } else {
        in.clear();
        in.seekg(at);
    }
    return true;
}

int CFileInfo::GetPrev(CSourFile& in, bool expectTrailer) {
    std::string token;
    if (expectTrailer) {
        readPDFString(in, token);
        if (!tokenIs(token, kwtrailer)) return -1;
    }
    if (!openDict(in)) return -1;
    int prev = -1;
    int depth = 1;
    for (;;) {
        if (!in.good()) break;
        readPDFString(in, token);
        if (tokenIs(token, ">>")) {
            if (--depth == 0) break;
        } else if (tokenIs(token, "<<")) {
            ++depth;
        } else if (tokenIs(token, nmSize)) {
            int v = 0;
            if (readInt(in, v) && size < 1) size = v;
        } else if (tokenIs(token, nmPrev)) {
            int v = 0;
            if (readInt(in, v)) prev = v;
        } else if (tokenIs(token, nmRoot)) {
            readTrailerRoot(in);
        } else if (tokenIs(token, nmEncrypt)) {
            readTrailerEncrypt(in);
        } else if (tokenIs(token, nmInfo)) {
            if (self.num != 0) {
                int a = 0, b = 0;
                readRefTriple(in, a, b);
            } else {
                std::streampos at = in.tellg();
                readPDFString(in, token);
                if (tokenIs(token, "<<")) {
                    try {
                        FindStr(in, ">>");
                    } catch (const CFileError&) {
                        break;
                    }
                } else {
                    in.clear();
                    in.seekg(at);
                    int num = 0, gen = 0;
                    if (readRefTriple(in, num, gen)) info.self = SObj(num, gen);
                }
            }
        } else if (tokenIs(token, nmID)) {
            if (!readTrailerID(in)) break;
        }
    }
    return prev;
}

bool CFileInfo::ReadCrt(CSourFile& in) {
    CSourFile& file = in;
    for (;;) {
        std::streampos at = file.tellg();
        int first = 0;
        if (!(file >> first)) {
            file.clear();
            file.seekg(at);
            std::string token;
            readPDFString(file, token);
            if (tokenIs(token, kwtrailer)) {
                file.seekg(at);
                return true;
            }
            if (!tokenIs(token, "%")) return false;
            // A stray comment: look for the trailer keyword.
            for (;;) {
                if (!file.good()) return false;
                std::streampos before = file.tellg();
                readPDFString(file, token);
                if (tokenIs(token, kwtrailer)) {
                    file.clear();
                    file.seekg(before);
                    return true;
                }
            }
        }
        int count = 0;
        if (!(file >> count)) return false;
        if (count < 1) continue;
        for (int i = 0; i < count; ++i) {
            int offset = 0, gen = 0;
            char mark = 0;
            if (!readEntryFast(file, offset, gen, mark) && (!(file >> offset) || !(file >> gen) || !(file >> mark)))
                return false;
            if (offset <= 0) continue;
            // Numbers and offsets past what an int holds name no object:
            // their entries are read over and not entered.
            const long long number = static_cast<long long>(first) + i;
            const long long pos = static_cast<long long>(offset) + in.headerOffset;
            if (number > INT_MAX || pos > INT_MAX) continue;
            SObjState st;
            st.pos = static_cast<int>(pos);
            st.index = gen;
            st.kind = mark == 'f' ? 0 : 1;
            st.mark = mark;
            // The offset index takes the positions of the table's own entries
            // from the table: only an entry that an earlier-read section
            // already holds leaves its position here.
            const bool entered = ownTable.insert({SObj(static_cast<int>(number), gen), st}).second;
            if (st.kind == 1 && !entered) positions.push_back(st.pos);
        }
    }
}

bool CFileInfo::ReadXRefObj(CSourFile& in, int& inOut) {
    const int ownNum = inOut;
    inOut = -1;
    int prev = -1;
    int gen = 0;
    if (!(in >> gen)) return false;
    std::string token;
    readPDFString(in, token);
    if (!tokenIs(token, kwobj)) return false;
    self = SObj(ownNum, gen);
    self.aux |= 4;
    in.xrefStreamObjects.insert(self);
    if (!openDict(in)) return false;

    CStreamType stm(self);
    stm.isEncryptObject = true;  // cross-reference streams are never encrypted
    long decodeParmsAt = 0;
    int w[3] = {0, 0, 0};
    bool haveW = false;
    int localSize = 0;
    std::map<int, std::pair<int, int>> index;  // running number -> (first, count)
    for (;;) {
        std::streampos at = in.tellg();
        (void)at;
        readPDFString(in, token);
        if (!in.good()) return false;
        if (tokenIs(token, kwendobj)) {
            inOut = prev;
            return true;
        }
        if (tokenIs(token, nmType)) {
            readPDFString(in, token);
            if (!tokenIs(token, nmXRef)) return false;
        } else if (tokenIs(token, nmSize)) {
            if (!readInt(in, localSize)) return false;
            if (size < 1) size = localSize;
        } else if (tokenIs(token, nmLength)) {
            std::streampos p = in.tellg();
            if (!stm.ReadLen(in)) return false;
            in.clear();
            in.seekg(p);
        } else if (tokenIs(token, nmDecodeParms)) {
            decodeParmsAt = static_cast<long>(in.tellg()) - static_cast<long>(token.size());
        } else if (tokenIs(token, nmFilter)) {
            if (!stm.ReadFilter(in, decodeParmsAt)) return false;
        } else if (tokenIs(token, nmW)) {
            readPDFString(in, token);
            if (!tokenIs(token, "[")) return false;
            if (!readInt(in, w[0]) || !readInt(in, w[1]) || !readInt(in, w[2])) return false;
            readPDFString(in, token);
            if (!tokenIs(token, "]")) return false;
            haveW = true;
        } else if (tokenIs(token, nmIndex)) {
            readPDFString(in, token);
            if (!tokenIs(token, "[")) return false;
            int n = 0;
            for (;;) {
                readPDFString(in, token);
                if (tokenIs(token, "]")) break;
                if (!in.good() || token.empty() || !IsNum(token)) return false;
                int count = 0;
                if (!readInt(in, count)) return false;
                index[n++] = {static_cast<int>(std::strtol(token.c_str(), nullptr, 10)), count};
            }
        } else if (tokenIs(token, nmPrev)) {
            if (!readInt(in, prev)) return false;
        } else if (tokenIs(token, nmRoot)) {
            readTrailerRoot(in);
        } else if (tokenIs(token, nmInfo)) {
            int num = 0, g = 0;
            if (readRefTriple(in, num, g)) info.self.num = num;
        } else if (tokenIs(token, nmID)) {
            if (!readTrailerID(in)) return false;
        } else if (tokenIs(token, nmEncrypt)) {
            int num = 0, g = 0;
            if (readRefTriple(in, num, g) && encrypt.self.num == 0) encrypt.self = SObj(num, g);
        } else if (tokenIs(token, kwstream)) {
            if (!stm.Read(in)) return false;
            stm.decodedBudget = in.root().decodeBudget;
            int len = static_cast<int>(stm.data.size());
            if (stm.filterStreamType(stm.data, len) != 0) return false;
            if (!haveW) return false;
            for (int k = 0; k < 3; ++k)
                if (w[k] < 0 || w[k] > 8) return false;
            if (index.empty()) index[0] = {0, localSize};
            const std::string& d = stm.data;
            const long long rowBytes = static_cast<long long>(w[0]) + w[1] + w[2];
            int pos = 0;
            for (const auto& pair : index) {
                const int first = pair.second.first;
                const long long count = std::min<long long>(pair.second.second, kMaxXRefEntries);
                for (long long i = 0; i < count; ++i) {
                    // Stop where the decoded data end: a /Size or /Index that
                    // promises more entries than the data hold is not read past.
                    if (rowBytes == 0 || static_cast<long long>(pos) + rowBytes > static_cast<long long>(d.size()))
                        break;
                    int type = 0, f2 = 0, f3 = 0;
                    ExtStr2Int(d.data(), pos, w[0], type);
                    SObjState st;
                    if (type == 0 || type == 1) {
                        ExtStr2Int(d.data(), pos, w[1], f2);
                        ExtStr2Int(d.data(), pos, w[2], f3);
                        const long long at = static_cast<long long>(f2) + in.headerOffset;
                        st.pos = at > INT_MAX ? -1 : static_cast<int>(at);
                        st.index = w[2] >= 1 ? f3 : 0;
                    } else if (type == 2) {
                        ExtStr2Int(d.data(), pos, w[1], f2);
                        ExtStr2Int(d.data(), pos, w[2], f3);
                        st.pos = f2;
                        st.index = w[2] >= 1 ? f3 : 0;
                    }
                    st.kind = static_cast<unsigned char>(type);
                    // Numbers past what an int holds name no object.
                    if (static_cast<long long>(first) + i > INT_MAX) break;
                    ownTable.insert({SObj(first + static_cast<int>(i), 0), st});
                }
            }
        }
    }
}

bool CFileInfo::Read(CSourFile& in) {
    CSourFile& file = in;
    file.clear();
    file.seekg(0, std::ios::end);
    const long long fileSize = static_cast<long long>(file.tellg());

    // The last "startxref" of the tail wins.
    bool found = false;
    bool fromWholeScan = false;
    std::streampos behind = 0;
    if (fileSize >= kTailBytes) {
        file.seekg(fileSize - kTailBytes);
        for (;;) {
            std::streampos at = file.tellg();
            try {
                FindStr(file, kwstartxref);
                found = true;
            } catch (const CFileError&) {
                file.clear();
                file.seekg(at);
                break;
            }
        }
        if (found) behind = file.tellg();
    }
    if (!found) {
        file.clear();
        file.seekg(0);
        for (;;) {
            try {
                FindStr(file, kwstartxref);
                found = true;
                fromWholeScan = true;
                behind = file.tellg();
            } catch (const CFileError&) {
                break;
            }
        }
        file.clear();
        file.seekg(found ? behind : std::streampos(0));
    }

    positions.push_back(static_cast<long long>(file.tellg()));
    std::string token;
    readPDFString(file, token);
    long long start = -1;
    if (!token.empty() && IsNum(token) && std::atoll(token.c_str()) >= 10) {
        start = std::atoll(token.c_str());
    } else if (!fromWholeScan) {
        // Jump ahead (to twice the present offset) and look for a later
        // keyword with a usable number.
        const long long kept = IsNum(token) && !token.empty() ? std::atoll(token.c_str()) : 0;
        file.clear();
        file.seekg(file.tellg(), std::ios::cur);
        for (;;) {
            FindStr(file, kwstartxref);  // CFileError leaves Read
            readPDFString(file, token);
            if (!token.empty() && IsNum(token)) {
                long long v = std::atoll(token.c_str());
                if (v >= 11) start = v;
                break;
            }
            if (static_cast<long long>(file.tellg()) >= fileSize || file.tellg() == std::streampos(-1)) {
                start = kept;
                break;
            }
        }
    }

    // An offset past the file's end names no section, however large: the
    // seek fails alike, without the sum below overflowing.
    if (start > fileSize) start = fileSize + 1;
    if (start >= 0) {
        // Walk the chain newest first; a section visited twice ends it.
        std::set<long long> visited;
        file.clear();
        file.seekg(start + in.headerOffset);
        long long cur = -1;
        visited.insert(start);
        for (;;) {
            if (cur != -1) {
                if (!visited.insert(cur).second) break;
                file.clear();
                file.seekg(cur + in.headerOffset);
                if (file.fail() || file.bad()) break;
            }
            readPDFString(file, token);
            if (tokenIs(token, kwxref)) {
                if (!ReadCrt(file)) break;
                ++classicSections;
                cur = GetPrev(file, true);
            } else if (!token.empty() && IsNum(token)) {
                int inOut = static_cast<int>(std::strtol(token.c_str(), nullptr, 10));
                if (!ReadXRefObj(file, inOut)) break;
                ++xrefStreams;
                cur = inOut;
            } else {
                break;
            }
            if (cur == -1) break;
        }
    }

    return ReadInfoAndEncrypt(in);
}

bool CFileInfo::ReadInfoAndEncrypt(CSourFile& in) {
    CSourFile& file = in;
    // Anything read during the walk (a direct /Encrypt) saw a partial table:
    // let the position index be built anew from the whole one.
    offsets.clear();

    // /Info
    if (info.self.num > 0) {
        auto it = objTable->find(info.self);
        if (it == objTable->end()) return true;
        file.clear();
        if (it->second.kind == 2) {
            info.flags |= CObj::kIndirect;
        } else {
            file.seekg(it->second.pos);
        }
        info.fromStream(file);
    }

    // /Encrypt
    if (encrypt.self.num > 0) {
        encrypt.passwordState = 2;
        SObjState st = GetObjState(encrypt.self);
        file.clear();
        file.seekg(st.pos);
        encrypt.flags |= CObj::kIndirect;
        encrypt.fromStream(file);
    }

    if (encrypt.handlerKind > 0 || encrypt.V > 0) {
        if (std::strcmp(encrypt.Filter, nmStandard) != 0) return false;
        std::size_t n = std::min<std::size_t>(fileId.id1Length, sizeof encrypt.ID);
        std::memcpy(encrypt.ID, fileId.id1, n);
        encrypt.IDLength = n;
        return tryFileKey(encrypt);
    }
    return true;
}

void CFileInfo::Tidy() {
    // Keep the highest generation of each number: entries come in key order,
    // so the last one of a number replaces those before it.
    ObjTable kept;
    for (const auto& e : *objTable) {
        int gen = 0;
        if (kept.lowestOf(e.first.num, &gen)) kept.erase(SObj(e.first.num, gen));
        kept.insert({SObj(e.first.num, e.first.gen), e.second});
    }
    *objTable = kept;
    if (objTable->empty()) return;
    const int highest = objTable->highestNumber();
    int next = 0;
    for (int n = highest - 1; n >= 0; --n) {
        int gen = 0;
        SObjState* st = objTable->lowestOf(n, &gen);
        if (!st || gen < 0) {
            SObjState fresh;
            fresh.pos = next;
            fresh.index = 65535;
            fresh.mark = 'f';
            objTable->insert({SObj(n, 65535), fresh});
            next = n;
        } else if (st->mark == 'f') {
            st->pos = next;
            next = n;
        }
    }
}

// ---------------------------------------------------------------------------
// CInfo

// The values a written /Info carries when the source gave none; reading
// overwrites them.
CFileInfo::CInfo::CInfo()
    : title("PDF_KILN"), author("pdfkiln@zarnoth.example"), subject("Pdf-Merge(Split)-Kiln"),
      keywords("PDF<KILN>"), creator("PDF_KILN"), producer("Zarnoth.Co.Ltd"), trapped("Unknown") {}

bool CFileInfo::CInfo::Read(CSourFile& in) {
    CObjectPosition positions(&in);
    const int64_t end = positions.getEndPosition(self);
    const bool bounded = positions.getObjType(self) == 1;
    std::streampos at = in.tellg();
    if (!IsObjStart(in)) {
        in.clear();
        in.seekg(at);
    }
    char c = 0;
    if (!(in >> c)) return false;
    while (c == '%') {
        char d = 0;
        while (in.get(d) && d != '\n' && d != '\r') {
        }
        if (!(in >> c)) return false;
    }
    if (c == '<') {
        char d = 0;
        if (!(in >> d) || d != '<') return false;
    } else if (c != '[') {
        return false;
    }
    std::string token;
    for (;;) {
        readPDFString(in, token);
        if (bounded && static_cast<int64_t>(in.tellg()) > end) return true;
        if (tokenIs(token, kwendobj)) return true;
        if (tokenIs(token, nmTrapped) || tokenIs(token, nmTitle) || tokenIs(token, nmAuthor) || tokenIs(token, nmSubject) ||
            tokenIs(token, nmKeywords) || tokenIs(token, nmCreator) || tokenIs(token, nmCreationDate) || tokenIs(token, nmModDate) ||
            tokenIs(token, nmProducer)) {
            if (!ReadInfo(in, token)) return false;
        }
        if (!in.good()) return false;
    }
}

bool CFileInfo::CInfo::ReadInfo(CSourFile& in, const std::string& key) { return readInfo(in, key, 0); }

bool CFileInfo::CInfo::readInfo(CSourFile& in, const std::string& key, int depth) {
    CObjRef ref;
    if (ref.Read(in)) {
        if (depth >= 16) return false;
        CSourFile& root = in.root();
        std::streampos back = root.tellg();
        bool ok = false;
        {
            CObjReader at(in, SObj(ref.num, ref.gen));
            if (at) ok = readInfo(at.stream(), key, depth + 1);
        }
        if (ok && root.good()) root.seekg(back);
        else {
            root.clear();
            root.seekg(back);
        }
        return true;
    }
    std::string token;
    if (tokenIs(key, nmTrapped)) {
        readPDFString(in, token);
        trapped = token;
        return true;
    }
    CStringType s(self);
    readPDFString(in, token);
    if (tokenIs(token, "<")) s.isHex = true;
    else if (!tokenIs(token, "(")) return true;  // not a string: passed over
    if (!s.Read(in)) return false;
    std::string* slot = nullptr;
    if (tokenIs(key, nmTitle)) slot = &title;
    else if (tokenIs(key, nmAuthor)) slot = &author;
    else if (tokenIs(key, nmSubject)) slot = &subject;
    else if (tokenIs(key, nmKeywords)) slot = &keywords;
    else if (tokenIs(key, nmCreator)) slot = &creator;
    else if (tokenIs(key, nmProducer)) slot = &producer;
    else if (tokenIs(key, nmCreationDate)) slot = &creationDate;
    else if (tokenIs(key, nmModDate)) slot = &modDate;
    if (slot) *slot = s.text;
    return true;
}

void CFileInfo::CInfo::SetInfo(InfoDic d) {
    auto take = [](std::string& member, const char* v) {
        std::size_t n = strnlen(v, 256);
        if (n) member.assign(v, n);
    };
    take(author, d.author);
    take(creator, d.creator);
    take(producer, d.producer);
    take(title, d.title);
    take(subject, d.subject);
    take(keywords, d.keywords);
    take(trapped, d.trapped);
    char buf[256];
    auto date = [&](const InfoDate& t, std::string& member) {
        std::snprintf(buf, sizeof buf, FORMATDATE, t.year, t.month, t.day, t.hour, t.minute, t.second, t.zoneSign,
                      t.zoneHour, t.zoneMinute);
        member = buf;
    };
    date(d.creationDate, creationDate);
    date(d.modDate, modDate);
}

void CFileInfo::CInfo::createdate(std::string& out) {
    std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    tzset();
    long zone = -timezone;
    char sign = zone < 0 ? '-' : '+';
    long az = zone < 0 ? -zone : zone;
    char buf[256];
    std::snprintf(buf, sizeof buf, FORMATDATE, local.tm_year + 1900, local.tm_mon + 1, local.tm_mday,
                  local.tm_hour, local.tm_min, local.tm_sec, sign, static_cast<int>(az / 3600),
                  static_cast<int>((az % 3600) / 60));
    out = buf;
}

// ---------------------------------------------------------------------------
// CFileID

CFileInfo::CFileID::CFileID() {
    std::memset(id1, 0, sizeof id1);
    std::memset(id2, 0, sizeof id2);
}


}  // namespace PDF_KILN
