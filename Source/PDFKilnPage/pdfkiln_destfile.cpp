// The destination file: selection, renumbering, and the file's tail.
#include "pdfkiln_destfile.h"

#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sstream>

#include "pdfkiln_obj_page.h"
#include "pdfkiln_sourfile.h"
#include "pfdecrypt.h"

namespace PDF_KILN {

namespace {

// The longest page range one selection item may expand to.
constexpr long kMaxRange = 1L << 20;

int digitCount(long v) { return v <= 0 ? 1 : static_cast<int>(std::floor(std::log10(static_cast<double>(v)))) + 1; }

}  // namespace

Facade_stringstream& Facade_stringstream::operator<<(int v) {
    // The decimal form a default stream gives, without building one.
    char digits[16];
    const auto r = std::to_chars(digits, digits + sizeof digits, v);
    append(digits, static_cast<std::size_t>(r.ptr - digits));
    return *this;
}

Facade_stringstream& Facade_stringstream::operator<<(double v) {
    std::ostringstream s;
    s << v;
    append(s.str());
    return *this;
}

CDestFile::CDestFile(std::string n) : name(std::move(n)) {
    fileInfo.encrypt.versionText = "%PDF-1.3";
    catalog.flags |= CObj::kIndirect;
}

CDestFile::~CDestFile() = default;

int CDestFile::Init(std::string n) {
    name = std::move(n);
    versionText.clear();
    order.clear();
    newObjTable.clear();
    fileInfo.Init();
    catalog.Init();
    nextObjNo = startObj + 1;
    modeFlags = 0;
    curFile = 0;
    baseOffset = 0;
    writtenLength = 0;
    curObj = SObj();
    return 1;
}

CSourFile* CDestFile::GetSourFile() { return GetSourFile(curFile); }

CSourFile* CDestFile::GetSourFile(int file) {
    auto it = sources.find(file);
    return it == sources.end() ? nullptr : it->second;
}

int CDestFile::addSource(CSourFile* source) {
    sources[++sourceCount] = source;
    return sourceCount;
}

void CDestFile::DeleteSour() {
    for (auto& s : sources) {
        delete s.second;
        s.second = nullptr;
    }
}

void CDestFile::RecordObjInfo(const SObj& obj) {
    SObjState st;
    st.pos = static_cast<int>(size()) - baseOffset;
    st.kind = 1;
    st.mark = 'n';
    fileInfo.ownTable.insert({SObj(obj.num, obj.gen), st});
}

void CDestFile::insertNewObjTab(const NewObjTable& key, const SObj& value) {
    renumbering = true;
    newObjTable.insert({key, value});
}

const SObj* CDestFile::newNumber(int num, int gen) const {
    auto it = newObjTable.find(NewObjTable{0, curFile, num, gen});
    if (it != newObjTable.end()) return &it->second;
    if (moreNumbers && curFile == 0 && moreNumbers->findNumber(num, gen, foundNumber)) return &foundNumber;
    return nullptr;
}

// The selection text: items "file:page", "file:page,page", "file:page~page",
// "file:page-page", "file:0" and "0:0", separated by blanks.
int CDestFile::SetReadFileAndPage(std::string text) {
    order.clear();
    const char* s = text.c_str();
    const std::size_t n = text.size();
    long file = -1;
    long lastPage = -1;
    std::size_t fileStart = 0;

    auto store = [&](long f, long p) {
        if (f == -1 || p == -1 || f > sourceCount) return;
        if (f != 0) {
            CSourFile* src = GetSourFile(static_cast<int>(f));
            if (!src || p > static_cast<long>(src->pages.size())) return;
        }
        order.emplace_back(static_cast<int>(f), static_cast<int>(p));
    };

    std::size_t i = 0;
    while (i < n) {
        const char c = s[i];
        if (c == ' ') {
            fileStart = i + 1;
            ++i;
        } else if (c == ':') {
            char* endp = nullptr;
            const long f = std::strtol(s + fileStart, &endp, 10);
            if (f < 0) return kResultBadBox;
            if (f == 0 && !(s[fileStart] == '0' || (fileStart + 1 < n && s[fileStart + 1] == ':')))
                return kResultBadBox;
            file = f;
            const long p = std::strtol(s + i + 1, &endp, 10);
            if (p != 0 && f == 0) return kResultBadBox;
            if (p < 0) return kResultBadBox;
            if (p == 0 && (i + 1 >= n || s[i + 1] != '0')) return kResultBadBox;
            store(f, p);
            lastPage = p;
            i += 1 + static_cast<std::size_t>(digitCount(p));
        } else if (c == ',') {
            char* endp = nullptr;
            const long p = std::strtol(s + i + 1, &endp, 10);
            if (p <= 0) return kResultBadBox;
            store(file, p);
            lastPage = p;
            i += 1 + static_cast<std::size_t>(digitCount(p));
        } else if (c == '~' || c == '-') {
            char* endp = nullptr;
            const long upper = std::strtol(s + i + 1, &endp, 10);
            if (lastPage >= upper) return kResultBadBox;
            if (file == -1 || upper == -1 || file > sourceCount) return kResultBadBox;
            if (upper - lastPage > kMaxRange) return kResultBadBox;
            for (long p = lastPage + 1; p <= upper; ++p) order.emplace_back(static_cast<int>(file), static_cast<int>(p));
            lastPage = upper;
            i += 1 + static_cast<std::size_t>(digitCount(upper));
        } else {
            ++i;
        }
    }
    return order.empty() ? kResultBadBox : kResultOk;
}

int CDestFile::Read() {
    int rc = ReadHeader();
    if (rc == 0) rc = ReadPageObj();
    return rc;
}

int CDestFile::ReadHeader() {
    for (const auto& s : sources) {
        if (s.second && versionText < s.second->version) versionText = s.second->version;
    }
    return 0;
}

int CDestFile::ReadPageObj() {
    if (order.empty()) return 0;
    auto readPage = [](CSourFile& src, std::size_t index) {
        // Reading a page collects its closure into the source's object set.
        // The page itself joins the set marked 0x100, so that it is numbered
        // with the rest but written by the page tree, not as a plain object.
        src.readPageClosure(src.pages[index]);
        SObj page = src.pages[index];
        page.aux |= 0x100;
        src.fileObjects.insert(page);
    };
    if (order.front() == FilePageOrder(0, 0)) {
        order.clear();
        for (const auto& s : sources) {
            if (!s.second) continue;
            for (std::size_t p = 0; p < s.second->pages.size(); ++p) {
                order.emplace_back(s.first, static_cast<int>(p + 1));
                readPage(*s.second, p);
            }
        }
        return 0;
    }
    for (const FilePageOrder& e : order) {
        CSourFile* src = GetSourFile(e.file);
        if (!src) continue;
        if (e.page != 0) {
            if (e.page <= static_cast<int>(src->pages.size())) readPage(*src, static_cast<std::size_t>(e.page - 1));
        } else {
            for (std::size_t p = 0; p < src->pages.size(); ++p) readPage(*src, p);
        }
    }
    return 0;
}

int CDestFile::TidyObj() {
    for (const auto& s : sources) {
        if (!s.second) continue;
        for (const SObj& o : s.second->fileObjects) {
            if (newObjTable.insert({NewObjTable{0, s.first, o.num, o.gen}, SObj(nextObjNo, 0, 0)}).second) {
                renumbering = true;
                ++nextObjNo;
            }
        }
    }
    return 0;
}

int CDestFile::Write() {
    SObjState freeHead;
    freeHead.mark = 'f';
    fileInfo.ownTable.insert({SObj(0, 65535), freeHead});
    int rc = WritePageObj();
    if (rc == 0) rc = WritePages();
    return rc;
}

int CDestFile::WritePageObj() {
    for (const auto& s : sources) {
        if (!s.second) continue;
        curFile = s.first;
        for (const SObj& o : s.second->fileObjects) {
            if (o.aux & (1 | 0x100 | 0x800)) continue;
            CObj obj(o);
            obj.toStream(*this);
        }
    }
    curFile = 0;
    return 0;
}

// The output's page tree has two levels above the pages: the root, and one
// group node per source, whose kids are that source's selected pages.
int CDestFile::WritePages() {
    rootPages = SObj(nextObjNo++, 0);
    CPages root(rootPages);
    root.type = nmPages;
    CSourFile* anySource = nullptr;
    int lastFile = -1;
    auto writePage = [&](CSourFile& src, std::size_t index) {
        CPage page(src.pages[index]);
        if (page.toStream(*this)) ++root.count;
    };
    for (const FilePageOrder& e : order) {
        if (e.file > sourceCount) continue;
        CSourFile* src = GetSourFile(e.file);
        if (!src) continue;
        anySource = src;
        if (e.file != lastFile) {
            lastFile = e.file;
            curFile = e.file;
            src->groupNo = SObj(nextObjNo++, 0);
            if (src->groupNode) src->groupNode->self = src->groupNo;
            root.kids.push_back(src->groupNo);
        }
        if (e.page != 0) {
            if (e.page <= static_cast<int>(src->pages.size())) writePage(*src, static_cast<std::size_t>(e.page - 1));
        } else {
            for (std::size_t p = 0; p < src->pages.size(); ++p) writePage(*src, p);
        }
    }
    for (const auto& s : sources) {
        if (!s.second || !s.second->groupNode) continue;
        curFile = s.first;
        s.second->groupNode->toStream(*this);
    }
    curFile = 0;
    if (anySource) root.Write(*this, *anySource);
    return 0;
}

// ---------------------------------------------------------------------------
// The file's tail

bool CFileInfo::Write(CDestFile& out, CSourFile& in) {
    info.Write(out, in);
    if (encrypt.self.num > 0) encrypt.Write(out, in);
    if (out.modeFlags & CDestFile::kKeepNumbers) Tidy();
    WriteXRef(out);
    return true;
}

void CFileInfo::WriteXRef(CDestFile& out) {
    const int startxref = static_cast<int>(out.size()) - out.baseOffset;
    char entry[32];
    out << kwxref << kw_r_n << "0 " << static_cast<int>(objTable->size()) << kw_r_n;
    for (const auto& e : *objTable) {
        std::snprintf(entry, sizeof entry, "%010d %05d %c", e.second.pos, e.first.gen,
                      e.second.mark ? e.second.mark : 'n');
        out << entry << kw_r_n;
    }
    out << kwtrailer << kw_r_n << "<<" << nmSize << ' ' << static_cast<int>(objTable->size()) << ' ';
    out << nmRoot << ' ' << out.catalog.self.num << ' ' << out.catalog.self.gen << " R ";
    if (info.self.num > 0) out << nmInfo << ' ' << info.self.num << ' ' << info.self.gen << " R ";
    if (encrypt.self.num > 0) out << nmEncrypt << ' ' << encrypt.self.num << ' ' << encrypt.self.gen << " R ";
    if (fileId.id1[0] != 0 || encrypt.self.num >= 1) {
        if (fileId.id2[0] == 0) {
            std::memcpy(fileId.id2, fileId.id1, fileId.id1Length);
            fileId.id2Length = fileId.id1Length;
        }
        fileId.WriteID(out);
    }
    out << ">>" << kw_n << kwstartxref << kw_n << startxref << kw_n << kw_EOF;
}

bool CFileInfo::CInfo::Write(CDestFile& out, CSourFile&) {
    out.RecordObjInfo(self);
    out << self.num << ' ' << self.gen << ' ' << kwobj << kw_n << "<<";
    out.curObj = SObj(self.num, self.gen);
    const std::pair<const char*, const std::string*> fields[] = {
        {nmTitle, &title},           {nmAuthor, &author},   {nmSubject, &subject},
        {nmKeywords, &keywords},     {nmCreator, &creator}, {nmProducer, &producer},
        {nmCreationDate, &creationDate}, {nmTrapped, &trapped}, {nmModDate, &modDate}};
    const CEncrypt& enc = out.fileInfo.encrypt;
    for (const auto& f : fields) {
        if (f.second->empty()) continue;
        std::string bytes = *f.second;
        if (enc.encrypted() && out.curObj.num > 0) {
            SObj key = out.curObj;
            encryptString(enc, &key, bytes);
        }
        out << f.first << " (";
        CStringType::WrtString(out, bytes);
        if (f.first != nmModDate) out << kw_n;
    }
    out << ">>" << kwendobj << kw_n;
    out.writtenLength = static_cast<int>(out.size());
    return true;
}

bool CFileInfo::CFileID::Write(CDestFile&, CSourFile&) { return true; }

void CFileInfo::CFileID::WriteID(CDestFile& out) {
    out << nmID << "[<";
    CStringType::WrtHexString(out, std::string(reinterpret_cast<const char*>(id1), id1Length));
    out << '<';
    CStringType::WrtHexString(out, std::string(reinterpret_cast<const char*>(id2), id2Length ? id2Length : id1Length));
    out << ']';
}

bool CEncrypt::Write(CDestFile& out, CSourFile&) {
    out.RecordObjInfo(self);
    out << self.num << ' ' << self.gen << ' ' << kwobj << kw_n << "<<";
    out << nmR << ' ' << static_cast<int>(R) << nmLength << ' ' << static_cast<int>(Length) << nmFilter << ' '
        << nmStandard << nmP << ' ' << static_cast<int>(P) << nmV << ' ' << static_cast<int>(V);
    const SObj saved = out.curObj;
    out.curObj = SObj();
    out << nmO << '(';
    CStringType::WrtString(out, std::string(reinterpret_cast<const char*>(O), 32));
    out << nmU << '(';
    CStringType::WrtString(out, std::string(reinterpret_cast<const char*>(U), 32));
    out.curObj = saved;
    const std::string& version = out.versionText.empty() ? out.fileInfo.encrypt.versionText : out.versionText;
    if (version >= std::string("%PDF-1.6")) {
        out << kw_n << "/CF<</StdCF<</Length 16/CFM/V2/AuthEvent/DocOpen>>>>" << "/StmF/StdCF/StrF/StdCF";
        if (!EncryptMetadata) out << "/EncryptMetadata false";
    }
    out << ">>" << kwendobj << kw_n;
    out.writtenLength = static_cast<int>(out.size());
    return true;
}

}  // namespace PDF_KILN
