// Opening a document: header, cross-reference chain, catalog, page list.
#include "pdfkiln_sourfile.h"

#include <cstring>

namespace PDF_KILN {

namespace {

// Header lines of this length or more are not headers: the scan gives up.
constexpr std::size_t kHeaderLine = 1024;

const char* const kVersions[] = {"%PDF-1.0", "%PDF-1.1", "%PDF-1.2", "%PDF-1.3", "%PDF-1.4",
                                 "%PDF-1.5", "%PDF-1.6", "%PDF-1.7", "%PDF-2.0"};

// The catalog at the trailer's /Root, then the page list.
int readCatalogAndPages(CSourFile& in) {
    in.catalog.Init();
    in.catalog.self = in.fileInfo.rootRef;
    in.catalog.fromStream(in);
    if (!in.good()) return kResultBadFile;
    const int rc = in.readPageTree();
    in.clear();
    if (rc != 0) return rc;
    in.curPageNo = 0;
    return kResultOk;
}

}  // namespace

CSourFile::CSourFile(std::istream& in) : std::istream(nullptr) {
    init(in.rdbuf());
    memory_ = dynamic_cast<CMemoryBuf*>(in.rdbuf());
}

CSourFile::CSourFile(std::streambuf* buf) : std::istream(nullptr) {
    init(buf);
    memory_ = dynamic_cast<CMemoryBuf*>(buf);
}

CSourFile& CSourFile::skipWs() {
    if (!memory_ || !good()) {
        *this >> std::ws;
        return *this;
    }
    const char* p = memory_->cursor();
    const char* const e = memory_->limit();
    p = skipStreamBlanks(p, e);
    memory_->moveTo(p);
    if (p == e) {
        if (memory_->limitIsEnd()) setstate(std::ios::eofbit);
        else *this >> std::ws;  // the next window carries on
    }
    return *this;
}

CSourFile::~CSourFile() { clearPageTree(); }

void CSourFile::makeView(CSourFile& parent, bool shareTable) {
    objectStreamView = true;
    viewParent = &parent;
    annotsEnable = parent.annotsEnable;
    annotSubtypes = parent.annotSubtypes;
    acroFormsEnable = parent.acroFormsEnable;
    std::memcpy(pageCm, parent.pageCm, sizeof pageCm);
    pageRotate = parent.pageRotate;
    headerOffset = 0;
    if (shareTable) fileInfo.objTable = parent.fileInfo.objTable;
}

void CSourFile::cacheObjectStream(int container, std::string data, int first, int count) {
    // Under a budget the decoded streams kept at once stay within it: the
    // others are let go (and decoded again when asked for).
    if (decodeBudget > 0) {
        std::size_t held = data.size();
        for (const auto& c : objStmCache) held += c.second.data.size();
        if (held > decodeBudget) objStmCache.clear();
    }
    DecodedObjStm& d = objStmCache[container];
    d.data = std::move(data);
    d.first = first;
    d.count = count;
}

const CSourFile::DecodedObjStm* CSourFile::decodedObjStm(int container) const {
    auto it = objStmCache.find(container);
    return it == objStmCache.end() ? nullptr : &it->second;
}

CSourFile::DecodedObjStm* CSourFile::decodedObjStm(int container) {
    auto it = objStmCache.find(container);
    return it == objStmCache.end() ? nullptr : &it->second;
}

bool CSourFile::FindStr(const std::string& what) {
    std::string token;
    while (good()) {
        readPDFString(*this, token);
        if (token == what) return true;
    }
    return false;
}

int CSourFile::CheckAndInit() {
    const std::size_t decryptsBefore = fileInfo.encrypt.decryptCount;
    const int rc = readWhole();
    readingUsedKey = fileInfo.encrypt.decryptCount != decryptsBefore || tableRebuilt;
    readingPasswordState = fileInfo.encrypt.passwordState;
    return rc;
}

int CSourFile::ReadAgainWithKey() {
    // Nothing read so far was deciphered: what a full reading would do
    // differently is drop the object streams decoded with the old key, read
    // /Info and /Encrypt and try the key again; the chain it walks, the
    // catalog and the page tree come out as they are.
    if (readingUsedKey || !ReadInfoAndEncryptAgain()) return CheckAndInit();
    objStmCache.clear();
    objStmUndecodable.clear();
    return kResultOk;
}

bool CSourFile::ReadInfoAndEncryptAgain() {
    // A full reading starts from the state the caller left: kept, to return
    // to when this one does not hold.
    const CEncrypt encryptBefore = fileInfo.encrypt;
    const CFileInfo::CInfo infoBefore = fileInfo.info;
    clear();
    const bool held = fileInfo.ReadInfoAndEncrypt(*this) && good() &&
                      fileInfo.encrypt.passwordState == readingPasswordState;
    if (!held) {
        fileInfo.encrypt = encryptBefore;
        fileInfo.info = infoBefore;
    }
    clear();
    curPageNo = 0;
    return held;
}

int CSourFile::readWhole() {
    clear();
    seekg(0);
    unsetf(std::ios::skipws);
    objStmCache.clear();
    objStmUndecodable.clear();

    // Header: the first line that holds "%PDF-"; junk may stand before it.
    char line[kHeaderLine];
    for (;;) {
        std::streampos at = tellg();
        if (at == std::streampos(-1)) return kResultBadFile;
        std::memset(line, 0, sizeof line);
        getline(line, sizeof line, '\n');
        // A line that filled the buffer without its end leaves the stream
        // failed: its first part may still hold the header (a file whose lines
        // end in CR alone is one line), but the scan cannot go on behind it.
        const bool overlong = fail() && !eof();
        const char* hit = nullptr;
        std::size_t n = static_cast<std::size_t>(gcount());
        for (std::size_t i = 0; i + 5 <= n; ++i) {
            if (std::memcmp(line + i, kw_PDF_, 5) == 0) {
                hit = line + i;
                break;
            }
        }
        if (hit) {
            headerOffset = static_cast<int>(at) + static_cast<int>(hit - line);
            std::string text(line, n);
            version.clear();
            for (const char* v : kVersions) {
                if (text.find(v) != std::string::npos) {
                    version = v;
                    break;
                }
            }
            if (version.empty()) return kResultBadFile;
            break;
        }
        if (overlong || eof()) return kResultBadFile;
    }

    clear();
    seekg(-10, std::ios::end);
    char tail[256] = {};
    read(tail, 10);
    setf(std::ios::skipws);
    clear();

    fileInfo.ownTable.clear();
    fileInfo.positions.clear();
    fileInfo.offsets.clear();
    xrefStreamObjects.clear();
    fileInfo.classicSections = fileInfo.xrefStreams = 0;
    tableRebuilt = false;
    fileInfo.fromStream(*this);
    fileInfo.ownTable.shrink();
    fileInfo.positions.shrink_to_fit();
    int rc = good() ? readCatalogAndPages(*this) : kResultBadXRef;
    // The last resort, when asked for: a table made from the file's bytes.
    if (rc != kResultOk && rebuildTable) {
        clear();
        if (rebuildObjectTable()) {
            tableRebuilt = true;
            rc = readCatalogAndPages(*this);
        }
    }
    return rc;
}

int CSourFile::InitOther() {
    catalog.Init();
    catalog.self = fileInfo.rootRef;
    catalog.fromStream(*this);
    if (!good()) return kResultBadXRef;
    const int rc = readPageTree();
    clear();
    if (rc != 0) return rc;
    curPageNo = 0;
    return kResultOk;
}

}  // namespace PDF_KILN
