// The page facade: opening a document and entering its password.
#include "pdfkiln_page.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <fstream>
#include <set>
#include <sstream>

#include "crypt/pcrypt.h"
#include "pdfkiln_destfile.h"
#include "pdfkiln_findingvalue.h"
#include "pdfkiln_sourfile.h"
#include "pfdecrypt.h"
#include "yard/pdf_rules.h"

namespace PDF_KILN {

namespace {

// Runs the body of a facade entry so that nothing thrown beneath it leaves the
// library: an int code thrown below comes back as the result, the end of the
// stream as 1000 and any other exception as 6000.
template <class Body>
int guardedEntry(Body&& body) {
    try {
        return body();
    } catch (int code) {
        return code;
    } catch (const CFileError&) {
        return kResultBadFile;
    } catch (...) {
        return kResultStdException;
    }
}

}  // namespace

CPDFKilnPage::CPDFKilnPage(std::istream& in, const std::string& pwd) : stream(&in), password(pwd) {}

// The file is mapped once and parsed from memory; the facade's stream reads
// the same bytes.
CPDFKilnPage::CPDFKilnPage(const char* name, const std::string& pwd) : fileName(name ? name : ""), password(pwd) {
    const bool loaded = input.loadFile(name);
    stream = new std::istream(loaded ? input.buffer() : nullptr);
    ownsStream = true;
}

CPDFKilnPage::~CPDFKilnPage() {
    for (FindingHint* h : hints) delete h;
    delete source;
    if (ownsStream) delete stream;
}

int CPDFKilnPage::getPageCount() const { return source ? static_cast<int>(source->pages.size()) : 0; }

// Renders the catalog into a scratch sink and takes the version and /ID texts.
int CPDFKilnPage::readCatalogText() {
    CDestFile sink{std::string()};
    CObj cat(source->catalog.self);
    if (!cat.LocalObj(sink, *source)) return kResultNotLocalised;
    catalogText = sink;
    versionText = source->version;
    const CFileInfo::CFileID& id = source->fileInfo.fileId;
    fileIdText.assign(reinterpret_cast<const char*>(id.id1), strnlen(reinterpret_cast<const char*>(id.id1), 256));
    fileIdText.append(reinterpret_cast<const char*>(id.id2), strnlen(reinterpret_cast<const char*>(id.id2), 256));
    return kResultOk;
}

// The password the next key trial of a reading takes (at most 32 bytes, up to
// the first zero byte).
void CPDFKilnPage::supplyPassword(CEncrypt& enc, const std::string& pwd) {
    std::memset(enc.suppliedPassword, 0, sizeof enc.suppliedPassword);
    std::strncpy(enc.suppliedPassword, pwd.c_str(), 32);
}

// The key and the password state the source decrypts with, as one value.
std::string CPDFKilnPage::keyState(const CEncrypt& enc) {
    std::string s(reinterpret_cast<const char*>(enc.fileKey), sizeof enc.fileKey);
    const int32_t words[] = {enc.passwordState, enc.handlerKind, enc.cipherMode, enc.Length,
                             enc.passwordFlagOwner ? 1 : 0, enc.passwordFlagUser ? 1 : 0};
    s.append(reinterpret_cast<const char*>(words), sizeof words);
    return s;
}

int CPDFKilnPage::init() {
    try {
        if (!stream->good()) return kResultBadFile;
        if (!source) {
            // A caller's stream is read once into memory, where seeks are free.
            if (!ownsStream && !input.loadStream(*stream)) return kResultBadFile;
            source = new CSourFile(input.buffer());
        }
        source->decodeBudget = decodedBudget;
        source->nestedStrings = balancedStrings;
        source->rebuildTable = rebuildObjectTable;
        const bool givenFirst = passwordAtOpening && !password.empty() && password.size() <= 32;
        if (givenFirst) supplyPassword(source->fileInfo.encrypt, password);
        int rc = source->CheckAndInit();
        if (rc != 0) return rc;
        readingKeyState = keyState(source->fileInfo.encrypt);
        rc = readCatalogText();
        if (rc != 0) return rc;
        (void)SetSourcePassword();
        if (givenFirst) {
            rc = settleGivenPassword();
            if (rc != 0) return rc;
        }
        findValue();
        openedAsIs = true;
        return kResultOk;
    } catch (const CFileError&) {
        return kResultBadFile;
    } catch (const std::exception&) {
        return kResultStdException;
    }
}

int CPDFKilnPage::settleGivenPassword() {
    const CEncrypt& enc = source->fileInfo.encrypt;
    if (enc.handlerKind != 1 || (!enc.passwordFlagOwner && !enc.passwordFlagUser)) return kResultOk;
    if (enc.passwordFlagOwner) {
        // The empty password opened the file: the trial never came to the
        // given one, so this reading is the empty password's, and what
        // SetSourcePassword does next is what it does after that one.
        return keyState(enc) == readingKeyState ? kResultOk : readAgain(true);
    }
    // The empty password's reading would have had another key, so the
    // password's reads again: here the document was read with the key the new
    // trial gives, and only /Info (read before any key) and the trial are
    // read again; a trial that gives another key reads anew.
    if (source->ReadInfoAndEncryptAgain() && keyState(enc) == readingKeyState) return readCatalogText();
    return readAgain(false);
}

int CPDFKilnPage::readAgain(bool keepStructure) {
    const int code = keepStructure ? source->ReadAgainWithKey() : source->CheckAndInit();
    if (code != 0) return code;
    readingKeyState = keyState(source->fileInfo.encrypt);
    return readCatalogText();
}

void CPDFKilnPage::setPasswordAtOpening(bool on) {
    openedAsIs = false;
    passwordAtOpening = on;
}

void CPDFKilnPage::setBalancedStrings(bool on) {
    openedAsIs = false;
    balancedStrings = on;
    if (source) source->nestedStrings = on;
}

void CPDFKilnPage::setRebuildObjectTable(bool on) {
    openedAsIs = false;
    rebuildObjectTable = on;
    if (source) source->rebuildTable = on;
}

bool CPDFKilnPage::isObjectTableRebuilt() const { return source && source->tableRebuilt; }

int CPDFKilnPage::SetSourcePassword() const {
    const CEncrypt& enc = source->fileInfo.encrypt;
    if (enc.handlerKind == 0) return kResultNotEncrypted;
    if (enc.handlerKind == 3) return kResultPasswordRefused;
    if (enc.handlerKind != 1) return kResultNotEncrypted;
    SFileInfo info;
    GetSourceFileInfo(info);
    if (!info.keyOpenWithEmpty && !info.passwordNeeded) return kResultNotEncrypted;
    if (password.size() > 32) return kResultPasswordRefused;
    CEncrypt& field = source->fileInfo.encrypt;
    supplyPassword(field, password);
    pcrypt::PDFDecryptionManager manager;
    pcrypt::EncryptInfo record;
    saveEncryptInfo(field, record);
    const int state = manager.calPassWordState(record, password);
    resaveEncryptInfo(record, field);
    return state;
}

int CPDFKilnPage::SetSourcePassword(const std::string& pwd) {
    password = pwd;
    if (!source) throw static_cast<int>(kResultBadFile);
    int result = SetSourcePassword();
    // Where the password leaves the key and the state as they were when the
    // document was read, reading it again would give everything it gave
    // then: the reading stands (as long as nothing was selected since).
    if (openedAsIs && keyState(source->fileInfo.encrypt) == readingKeyState) return result;
    // Codes reach the caller thrown, as int; so does whatever else went wrong
    // beneath, turned into a code.
    const int rc = guardedEntry([&]() -> int { return readAgain(openedAsIs); });
    if (rc != 0) throw rc;
    findValue();
    return result;
}

bool CPDFKilnPage::GetSourceFileInfo(SFileInfo& info) const {
    info = SFileInfo();
    info.pageCount = getPageCount();
    if (!source) return true;
    const CEncrypt& enc = source->fileInfo.encrypt;
    info.securityVersion = enc.V;
    info.keyOpenWithEmpty = enc.passwordFlagOwner;
    info.passwordNeeded = enc.passwordFlagUser;
    const std::string& v = enc.versionText;
    if (v.size() > 1) std::strncpy(info.versionName, v.c_str() + 1, sizeof info.versionName - 1);
    return true;
}

}  // namespace PDF_KILN

// ---------------------------------------------------------------------------
// Page selection and geometry

namespace PDF_KILN {

namespace {

// The blank form that stands in for an object marked private by /PieceInfo.
const char kBlankForm[] =
    "<</Type/XObject /Subtype/Form /Length 0 /BBox[0.0 0.0 1.0 1.0] >>\r\nstream\r\nendstream\r\n";

// How far getPageRootString climbs the /Parent chain.
constexpr int kMaxClimb = 256;

std::pair<int, int> key(const SObj& o) { return {o.num, o.gen}; }

void cutAtLastEndobj(std::string& text) {
    const std::size_t p = text.rfind(kwendobj);
    if (p != std::string::npos) text.erase(p);
}

// The value of `key` in the outermost dictionary of text[0, end): a name,
// an array or a dictionary as written, or empty where the key is absent.
// False where the value is anything else (a reference, say) or the text
// does not read.
bool directValue(const std::string& text, std::size_t end, const char* key, std::string& value) {
    value.clear();
    const std::size_t keyLen = std::strlen(key);
    int depth = 0;  // dictionaries and arrays open
    std::size_t i = 0;
    auto isDelim = [](char c) { return std::strchr("()<>[]{}/% \t\r\n\f", c) != nullptr || c == 0; };
    // Skips one value that starts at i; false where it does not end.
    auto skipString = [&](std::size_t& at) {
        if (text[at] == '(') {
            int nest = 0;
            for (; at < end; ++at) {
                if (text[at] == '\\') { ++at; continue; }
                if (text[at] == '(') ++nest;
                else if (text[at] == ')' && --nest == 0) { ++at; return true; }
            }
            return false;
        }
        const std::size_t close = text.find('>', at);  // a hex string
        if (close == std::string::npos || close >= end) return false;
        at = close + 1;
        return true;
    };
    while (i < end) {
        const char c = text[i];
        if (c == '(' || (c == '<' && i + 1 < end && text[i + 1] != '<')) {
            if (!skipString(i)) return false;
        } else if (c == '<' || c == '>') {
            if (i + 1 >= end || text[i + 1] != c) return false;
            depth += c == '<' ? 1 : -1;
            i += 2;
        } else if (c == '[' || c == ']') {
            depth += c == '[' ? 1 : -1;
            ++i;
        } else if (c == '/' && depth == 1 && text.compare(i, keyLen, key) == 0 &&
                   (i + keyLen >= end || isDelim(text[i + keyLen]))) {
            std::size_t v = i + keyLen;
            while (v < end && std::strchr(" \t\r\n\f", text[v]) && text[v]) ++v;
            if (v >= end) return false;
            std::size_t stop = v;
            if (text[v] == '/') {
                ++stop;
                while (stop < end && !isDelim(text[stop])) ++stop;
            } else if (text[v] == '[' || (text[v] == '<' && v + 1 < end && text[v + 1] == '<')) {
                int nest = 0;
                while (stop < end) {
                    const char d = text[stop];
                    if (d == '(' || (d == '<' && stop + 1 < end && text[stop + 1] != '<')) {
                        if (!skipString(stop)) return false;
                        continue;
                    }
                    if (d == '[' || (d == '<' && text[stop + 1] == '<')) ++nest;
                    if (d == ']' || (d == '>' && stop + 1 < end && text[stop + 1] == '>')) --nest;
                    stop += (d == '<' || d == '>') ? 2 : 1;
                    if (nest == 0) break;
                    // A reference inside the value is not copied as it stands.
                    if (d == 'R' && stop < end && isDelim(text[stop])) return false;
                }
                if (nest != 0) return false;
            } else {
                return false;
            }
            value.assign(text, v, stop - v);
            return true;
        } else {
            ++i;
        }
    }
    return true;
}

}  // namespace

namespace privated {

void getIntersectRect(const RectTD& a, const RectTD& b, RectTD& out) {
    out.left = std::max(a.left, b.left);
    out.bottom = std::max(a.bottom, b.bottom);
    out.right = std::min(a.right, b.right);
    out.top = std::min(a.top, b.top);
}

}  // namespace privated

template <typename Tokenizer_T>
int helpFunction_getPageBox(const Tokenizer_T& tokenizer, float& x1, float& y1, float& x2, float& y2) {
    const auto& tokens = tokenizer.GetTokens();
    if (tokens.size() != 4) return -1;
    float* outs[4] = {&x1, &y1, &x2, &y2};
    int i = 0;
    for (const auto& t : tokens) {
        std::istringstream s(t.str());
        float v = 0;
        s >> v;
        *outs[i++] = v;
    }
    return 0;
}

template int helpFunction_getPageBox(const PDF_RULES::MediaBoxTokenizer&, float&, float&, float&, float&);
template int helpFunction_getPageBox(const PDF_RULES::CropBoxTokenizer&, float&, float&, float&, float&);
template int helpFunction_getPageBox(const PDF_RULES::BleedBoxTokenizer&, float&, float&, float&, float&);
template int helpFunction_getPageBox(const PDF_RULES::TrimBoxTokenizer&, float&, float&, float&, float&);
template int helpFunction_getPageBox(const PDF_RULES::ArtBoxTokenizer&, float&, float&, float&, float&);

int CPDFKilnPage::setPageNo(int page) {
    if (page == curPage) return kResultOk;
    openedAsIs = false;
    try {
        clear();
        curPage = page;
        source->curPageNo = page;
        if (static_cast<unsigned>(page) > static_cast<unsigned>(source->pages.size()) || page == 0)
            return kResultBadPage;
        CPage reader(source->pages[static_cast<std::size_t>(page - 1)]);
        reader.fromStream(*source);
        source->clear();
        pageGroupText = reader.groupText;
        pageText = getPageRootString(0);
        return kResultOk;
    } catch (int code) {
        source->clear();
        return code;
    } catch (const std::exception&) {
        source->clear();
        return kResultStdException;
    }
}

int CPDFKilnPage::setBoxOption(EBox box) {
    boxOption = box;
    return kResultOk;
}

namespace {

const CPaperInfo* paperOf(const CSourFile* src, int page) {
    if (!src || page < 1 || static_cast<std::size_t>(page) > src->pages.size()) return nullptr;
    return src->getPaperInfo(src->pages[static_cast<std::size_t>(page - 1)]);
}

template <typename Tokenizer_T>
int boxFromText(const std::string& text, float& x1, float& y1, float& x2, float& y2) {
    Tokenizer_T t;
    t.Tokenize(text.data(), text.data() + text.size());
    return helpFunction_getPageBox(t, x1, y1, x2, y2);
}

// The crop rectangle, or the media rectangle where the crop box has no area.
RectTD sizeRect(const CPaperInfo& p) {
    RectTD r = p.box[1];
    if (r.right - r.left <= 1e-5f || r.top - r.bottom <= 1e-5f) r = p.box[0];
    return r;
}

}  // namespace

int CPDFKilnPage::getPageBox(EBox box, float& x1, float& y1, float& x2, float& y2) const {
    if (box > 5) return kResultOk;
    const CPaperInfo* p = paperOf(source, curPage);
    if (!p) return kResultOk;
    if (box == eVisibleBox) {
        RectTD out;
        privated::getIntersectRect(sizeRect(*p), p->box[0], out);
        x1 = out.left, y1 = out.bottom, x2 = out.right, y2 = out.top;
        return kResultOk;
    }
    const std::string text = getPageRootString(0);
    int rc = -1;
    switch (box) {
        case eMediaBox: rc = boxFromText<PDF_RULES::MediaBoxTokenizer>(text, x1, y1, x2, y2); break;
        case eCropBox: rc = boxFromText<PDF_RULES::CropBoxTokenizer>(text, x1, y1, x2, y2); break;
        case eBleedBox: rc = boxFromText<PDF_RULES::BleedBoxTokenizer>(text, x1, y1, x2, y2); break;
        case eTrimBox: rc = boxFromText<PDF_RULES::TrimBoxTokenizer>(text, x1, y1, x2, y2); break;
        case eArtBox: rc = boxFromText<PDF_RULES::ArtBoxTokenizer>(text, x1, y1, x2, y2); break;
        default: break;
    }
    if (rc != 0) {
        // Only the page object's own text is searched; anything else answers
        // with the media box.
        x1 = p->box[0].left, y1 = p->box[0].bottom, x2 = p->box[0].right, y2 = p->box[0].top;
    }
    return kResultOk;
}

int CPDFKilnPage::getPageBox(int page, EBox box, float& x1, float& y1, float& x2, float& y2) const {
    if (!source || source->pages.empty()) return kResultOk;
    const CPaperInfo* p = paperOf(source, page);
    if (!p) {
        x1 = y1 = x2 = y2 = 0;
        return kResultBadPage;
    }
    if (box > 4) {
        x1 = y1 = x2 = y2 = 0;
        return kResultBadBox;
    }
    const RectTD& r = p->box[box];
    x1 = r.left, y1 = r.bottom, x2 = r.right, y2 = r.top;
    return kResultOk;
}

int CPDFKilnPage::getPageSize(int page, float& w, float& h, EBox box) const {
    w = h = 0;
    const CPaperInfo* p = paperOf(source, page);
    if (!p) return kResultOk;
    RectTD r = sizeRect(*p);
    // Boxes 0 to 4 all answer with the crop (or media) rectangle: only the
    // visible area is clipped.
    if (box == eVisibleBox) {
        RectTD cut;
        privated::getIntersectRect(r, p->box[0], cut);
        r = cut;
    }
    w = r.right - r.left;
    h = r.top - r.bottom;
    if ((p->rotate / 90) % 2 != 0) std::swap(w, h);
    if (std::fabs(static_cast<double>(w)) < 1e-5 && std::fabs(static_cast<double>(h)) < 1e-5) return kResultBadPage;
    return kResultOk;
}

int CPDFKilnPage::getPageSize(float& w, float& h) const {
    w = h = 0;
    const CPaperInfo* p = paperOf(source, curPage);
    if (!p) return kResultBadPage;
    return getPageSize(curPage, w, h, static_cast<EBox>(boxOption));
}

int CPDFKilnPage::getPageSizeEx(float& x, float& y, float& w, float& h) const {
    x = y = w = h = 0;
    const CPaperInfo* p = paperOf(source, curPage);
    if (!p) return kResultBadPage;
    RectTD r = sizeRect(*p);
    if (boxOption == eVisibleBox) {
        RectTD cut;
        privated::getIntersectRect(r, p->box[0], cut);
        r = cut;
    }
    x = r.left;
    y = r.bottom;
    w = r.right - r.left;
    h = r.top - r.bottom;
    if (std::fabs(static_cast<double>(w)) < 1e-5 && std::fabs(static_cast<double>(h)) < 1e-5) return kResultBadPage;
    return kResultOk;
}

int CPDFKilnPage::getPageRotate(int& rotate) const {
    if (!source || source->pages.empty()) return kResultOk;
    const CPaperInfo* p = paperOf(source, curPage);
    if (p) rotate = p->rotate;
    return kResultOk;
}

int CPDFKilnPage::getPageRotate(int page, int& rotate) const {
    rotate = 0;
    const CPaperInfo* p = paperOf(source, page);
    if (!p) return kResultBadPage;
    rotate = p->rotate;
    return kResultOk;
}

int CPDFKilnPage::setPageCm(const PgCmTD& cm) {
    const float v[6] = {cm.a, cm.b, cm.c, cm.d, cm.e, cm.f};
    std::memcpy(source->pageCm, v, sizeof v);
    return kResultOk;
}

void CPDFKilnPage::setCurPageObj(int number, int generation) {
    curPageObj[0] = number;
    curPageObj[1] = generation;
}

void CPDFKilnPage::setAnnotsEnable(PDF_KILN_AnnotsEnableE mask) {
    openedAsIs = false;
    if (source) source->annotsEnable = mask;
}

void CPDFKilnPage::setAcroFormsEnable(PDF_KILN_AcroFormsEnableE mask) {
    openedAsIs = false;
    if (source) source->acroFormsEnable = mask;
}

void CPDFKilnPage::setAnnotsCustomSubtype(const std::vector<std::string>& subtypes) {
    openedAsIs = false;
    if (source) source->annotSubtypes = subtypes;
}

// ---------------------------------------------------------------------------
// Content and resources

bool CPDFKilnPage::KnownNumbers::findNumber(int num, int gen, SObj& out) const {
    const CSourFile* src = facade.source;
    if (!src) return false;
    auto entry = src->fileObjects.find(SObj(num, gen));
    if (entry == src->fileObjects.end() || (entry->aux & 48)) return false;
    const std::pair<int, int> k{num, gen};
    auto a = facade.old2newMap.find(k);
    if (a != facade.old2newMap.end()) {
        out = SObj(a->second.first, a->second.second);
        return true;
    }
    auto b = facade.deliveredMap.find(k);
    if (b != facade.deliveredMap.end()) {
        out = SObj(b->second.first, b->second.second);
        return true;
    }
    return false;
}

std::vector<SObj> CPDFKilnPage::unnumberedObjects() const {
    std::vector<SObj> fresh;
    fresh.reserve(source->freshObjects.size());
    for (const SObj& f : source->freshObjects) {
        auto entry = source->fileObjects.find(f);
        if (entry == source->fileObjects.end() || (entry->aux & 48)) continue;
        const auto k = key(*entry);
        if (old2newMap.count(k) || deliveredMap.count(k)) continue;
        fresh.push_back(*entry);
    }
    std::sort(fresh.begin(), fresh.end());
    fresh.erase(std::unique(fresh.begin(), fresh.end(),
                            [](const SObj& a, const SObj& b) { return a.num == b.num && a.gen == b.gen; }),
                fresh.end());
    return fresh;
}

// Mapped entries come from the facade's maps through the sink's numbers
// source; the others count up from the start number, in key order.
void CPDFKilnPage::fillRenumbering(CDestFile& dest) const {
    dest.setRenumbering(true);
    dest.moreNumbers = &knownNumbers;
    int counter = startObjNo;
    for (const SObj& o : unnumberedObjects()) dest.insertNewObjTab(NewObjTable{0, 0, o.num, o.gen}, SObj(counter++, 0));
}

std::string CPDFKilnPage::getPageRootString(int newNumber) const {
    if (!source || curPage < 1 || static_cast<std::size_t>(curPage) > source->pages.size()) return std::string();
    CDestFile dest{std::string()};
    fillRenumbering(dest);
    SObj cur = source->pages[static_cast<std::size_t>(curPage - 1)];
    std::set<SObj> climbed;
    std::string text;
    for (int step = 0; step < kMaxClimb && climbed.insert(cur).second; ++step) {
        // A mapping the table has already stands.
        if (!dest.newNumber(cur.num, cur.gen))
            dest.insertNewObjTab(NewObjTable{0, 0, cur.num, cur.gen}, SObj(newNumber ? newNumber : cur.num, 0));
        dest.clear();
        renderObject(dest, cur, newNumber);
        // The caller gets the body: no "n g obj" before it, no "endobj" behind.
        text = dest;
        cutAtLastEndobj(text);
        if (!text.empty() && text[0] == '\n') text.erase(0, 1);
        if (!newNumber) break;
        if (text.find(nmResources) != std::string::npos) break;
        auto p = source->parentMap.find(cur);
        if (p == source->parentMap.end()) break;
        cur = SObj(p->second.num, p->second.gen);
    }
    return text;
}

// Renders object `key` into `dest`; with a new number, the sink writes it
// under that number and encrypts for the caller's output.
bool CPDFKilnPage::renderObject(CDestFile& dest, const SObj& key, int newNumber) const {
    if (newNumber) {
        dest.curObj = SObj(newNumber, 0);
        getEncryptInfo(dest.fileInfo.encrypt);
    }
    CObj obj(SObj(key.num, key.gen));
    obj.flags |= CObj::kIndirect;
    StreamRecover<CSourFile> keep(*source);
    // The getters of text built on this return strings, not codes: an object
    // whose reading throws is one that could not be rendered.
    return guardedEntry([&]() -> int { return obj.LocalObj(dest, *source) ? kResultOk : kResultNotLocalised; }) ==
           kResultOk;
}

std::string CPDFKilnPage::getRootString(int newNumber) const {
    if (!source) return std::string();
    CDestFile dest{std::string()};
    dest.setRenumbering(true);
    for (const auto& m : old2newMap)
        dest.insertNewObjTab(NewObjTable{0, 0, m.first.first, m.first.second}, SObj(m.second.first, m.second.second));
    const SObj& cat = source->catalog.self;
    dest.insertNewObjTab(NewObjTable{0, 0, cat.num, cat.gen}, SObj(newNumber ? newNumber : cat.num, 0));
    renderObject(dest, cat, newNumber);
    return dest;
}

void CPDFKilnPage::setDecodedBudget(std::size_t bytes) {
    openedAsIs = false;
    decodedBudget = bytes;
    if (source) source->decodeBudget = bytes;
}

int CPDFKilnPage::getPageContents(const std::string** out) {
    contentsText.clear();
    try {
        for (const SObj& c : source->contentsVector) {
            std::string text;
            if (source->pieceSet.count(c)) {
                text = kBlankForm;
            } else {
                CDestFile dest{std::string()};
                getEncryptInfo(dest.fileInfo.encrypt);
                CObj obj(SObj(c.num, c.gen));
                obj.flags |= CObj::kIndirect;
                StreamRecover<CSourFile> keep(*source);
                if (obj.LocalObj(dest, *source)) text = dest;
            }
            std::size_t from = text.find(kwstream);
            from = from == std::string::npos ? text.size() : from + std::strlen(kwstream);
            std::size_t to = text.rfind(kwendstream);
            if (to == std::string::npos || to < from) to = from;
            const std::size_t filterAt = text.find(nmFilter);
            if (filterAt == std::string::npos) {
                contentsText.append(text, from, to - from);
            } else {
                while (from < to && (text[from] == '\r' || text[from] == '\n')) ++from;
                while (to > from && (text[to - 1] == '\r' || text[to - 1] == '\n')) --to;
                if (to > from) {
                    std::string data = text.substr(from, to - from);
                    CFilter filter;
                    {
                        std::stringstream in(text.substr(filterAt + std::strlen(nmFilter)));
                        filter.ReadFilter(in, 0);
                    }
                    // Only the stream's own bytes stay while it decodes.
                    std::string().swap(text);
                    // The budget holds for all the page's content together.
                    if (decodedBudget > 0) {
                        if (contentsText.size() >= decodedBudget) {
                            *out = &contentsText;
                            return kResultFilterFailed;
                        }
                        filter.decodedBudget = decodedBudget - contentsText.size();
                    }
                    int length = static_cast<int>(data.size());
                    const int rc = filter.filterStreamType(data, length);
                    if (rc != 0) {
                        *out = &contentsText;
                        return rc;
                    }
                    if (contentsText.empty()) contentsText.swap(data);
                    else contentsText += data;
                }
            }
            contentsText += '\r';
        }
    } catch (int code) {
        *out = &contentsText;
        return code;
    } catch (const std::exception&) {
        *out = &contentsText;
        return kResultStdException;
    }
    *out = &contentsText;
    return kResultOk;
}

int CPDFKilnPage::getPageContentsEncoded(const std::string** out, std::string& filter, std::string& parms) {
    contentsText.clear();
    filter.clear();
    parms.clear();
    *out = &contentsText;
    if (!source || source->contentsVector.size() != 1) return kResultNotLocalised;
    const SObj& c = source->contentsVector.front();
    if (source->pieceSet.count(c)) return kResultNotLocalised;
    try {
        CDestFile dest{std::string()};
        getEncryptInfo(dest.fileInfo.encrypt);
        CObj obj(SObj(c.num, c.gen));
        obj.flags |= CObj::kIndirect;
        StreamRecover<CSourFile> keep(*source);
        if (!obj.LocalObj(dest, *source) || dest.streamDataPos == 0) return kResultNotLocalised;
        const std::string& text = dest;
        if (dest.streamDataPos + dest.streamDataSize > text.size()) return kResultNotLocalised;
        const std::size_t dictEnd = text.rfind(kwstream, dest.streamDataPos);
        if (dictEnd == std::string::npos) return kResultNotLocalised;
        if (!directValue(text, dictEnd, "/Filter", filter) || !directValue(text, dictEnd, "/DecodeParms", parms)) {
            filter.clear();
            parms.clear();
            return kResultNotLocalised;
        }
        contentsText.assign(text, dest.streamDataPos, dest.streamDataSize);
    } catch (int code) {
        return code;
    } catch (const std::exception&) {
        return kResultStdException;
    }
    return kResultOk;
}

int CPDFKilnPage::getPageRes(const std::string** out, int newNumber) {
    if (!source) {
        *out = &resourceText;
        return kResultBadFile;
    }
    const int rc = guardedEntry([&]() -> int {
        resourceText.clear();
        if (source->resourcesVector.empty()) {
            const std::string page = getPageRootString(newNumber);
            CPageInfo info(page);
            const std::string group = info.getValueString("Group");
            if (!group.empty()) pageGroupText = group;
            resourceText = info.getValueString("Resources");
        } else {
            CDestFile dest{std::string()};
            fillRenumbering(dest);
            for (const SObj& r : source->resourcesVector) {
                if (source->pieceSet.count(r)) {
                    dest += kBlankForm;
                    continue;
                }
                CObj obj(SObj(r.num, r.gen));
                obj.flags |= CObj::kIndirect;
                StreamRecover<CSourFile> keep(*source);
                if (!obj.LocalObj(dest, *source)) {
                    *out = &resourceText;
                    return kResultNotLocalised;
                }
            }
            resourceText = dest;
            cutAtLastEndobj(resourceText);
            const std::string page = getPageRootString(newNumber);
            const std::string r2 = CPageInfo(page).getValueString("Resources");
            if (resourceText.empty()) {
                resourceText = r2;
            } else if (!r2.empty()) {
                const ResourceDictMerger merger(r2, resourceText);
                std::string merged = "<<";
                for (const char* k : {"/ExtGState", "/ColorSpace", "/Pattern", "/Shading", "/XObject", "/Font",
                                      "/Properties"})
                    merger.dictValMerge(k, merged);
                const std::size_t inR2 = r2.find("/ProcSet");
                const std::size_t inRes = resourceText.find("/ProcSet");
                if (inR2 != std::string::npos || inRes != std::string::npos) merged += "/ProcSet[";
                auto copyNames = [&merged](const std::string& t, std::size_t at, std::size_t skip) {
                    const std::size_t open = t.find('[', at);
                    if (open == std::string::npos) return;
                    const std::size_t close = t.find(']', open);
                    const std::size_t from = open + skip;
                    if (close == std::string::npos || from > close) return;
                    merged.append(t, from, close - from);
                };
                if (inR2 != std::string::npos) copyNames(r2, inR2, 1);
                else if (inRes != std::string::npos) copyNames(resourceText, inRes, 2);
                // The closer of the name list is written whether or not a list was
                // opened: a merged text can end in "]>>".
                merged += "]>>";
                resourceText = merged;
            }
        }
        if (resourceText.empty()) resourceText = "<< >>";
        *out = &resourceText;
        return kResultOk;
    });
    if (rc != kResultOk) *out = &resourceText;
    return rc;
}

int CPDFKilnPage::getNames(const std::string** out) {
    if (!source) {
        *out = &namesText;
        return kResultBadFile;
    }
    const int rc = guardedEntry([&]() -> int {
        namesText.clear();
        if (source->catalog.names.self.num >= 1) {
            CDestFile dest{std::string()};
            fillRenumbering(dest);
            CObj obj(SObj(source->catalog.names.self.num, source->catalog.names.self.gen));
            obj.flags |= CObj::kIndirect;
            StreamRecover<CSourFile> keep(*source);
            if (!obj.LocalObj(dest, *source)) {
                *out = &namesText;
                return kResultNotLocalised;
            }
            namesText = dest;
            cutAtLastEndobj(namesText);
        } else {
            namesText = CPageInfo(getPageRootString(0)).getValueString("Names");
        }
        const std::size_t lt = namesText.find('<');
        const std::size_t gt = namesText.rfind('>');
        if (lt != std::string::npos && gt != std::string::npos) {
            const std::size_t from = lt + 2;
            const long len = static_cast<long>(gt) - 3;
            namesText = from <= namesText.size() && len > 0 ? namesText.substr(from, static_cast<std::size_t>(len))
                                                            : std::string();
        }
        *out = &namesText;
        return kResultOk;
    });
    if (rc != kResultOk) *out = &namesText;
    return rc;
}

// ---------------------------------------------------------------------------
// Numbering

void CPDFKilnPage::setOld2NewObjectVector(const Old2NewVector& v) { old2newVector = v; }

CPDFKilnPage::Old2NewVector CPDFKilnPage::getOld2NewObjectVector() const {
    Old2NewVector v;
    for (const auto& m : old2newMap) v.push_back(m);
    for (const auto& m : deliveredMap) v.push_back(m);
    return v;
}

void CPDFKilnPage::setStreamObjMap(std::map<std::string, std::pair<int, int>>* map) { streamObjMap = map; }

int CPDFKilnPage::next(iterator& it) {
    ++it;
    return 0;
}

int CPDFKilnPage::next(const_iterator& it) const {
    ++it;
    return 0;
}

int CPDFKilnPage::setStartObjNo(int start) {
    if (!source) return kResultBadFile;
    return guardedEntry([&]() -> int {
        // The catalog's second pass: /Names, whose objects join the closure.
        if (source->catalog.namesPending) {
            StreamRecover<CSourFile> keep(*source);
            source->catalog.self = source->fileInfo.rootRef;
            source->catalog.fromStream(*source);
        }
        for (const auto& p : old2newVector) old2newMap.insert(p);
        startObjNo = start;
        CDestFile dest{std::string()};
        dest.setRenumbering(true);
        getEncryptInfo(dest.fileInfo.encrypt);

        // Numbering: known mappings first, then streams the caller already has,
        // then the next free number. Mapped entries are consulted where they
        // stand, in the facade's maps; only a stream map makes every entry of
        // the closure be looked at again.
        dest.moreNumbers = &knownNumbers;
        int counter = start;
        std::vector<SObj> fresh;
        if (streamObjMap) {
            for (const SObj& o : source->fileObjects) {
                if (o.aux & 48) continue;
                const auto k = key(o);
                std::string digest = o.text;
                if (digest.empty()) {
                    CDestFile look{std::string()};
                    CObj obj(SObj(o.num, o.gen));
                    obj.flags |= CObj::kIndirect;
                    StreamRecover<CSourFile> keep(*source);
                    if (obj.LocalObj(look, *source)) isStreamObj(look, digest);
                }
                auto hit = digest.empty() ? streamObjMap->end() : streamObjMap->find(digest);
                if (hit != streamObjMap->end()) {
                    dest.insertNewObjTab(NewObjTable{0, 0, o.num, o.gen}, SObj(hit->second.first, hit->second.second));
                    old2newMap.insert({k, hit->second});
                    deliveredMap.insert({k, hit->second});
                    continue;
                }
                if (old2newMap.count(k) || deliveredMap.count(k)) continue;
                dest.insertNewObjTab(NewObjTable{0, 0, o.num, o.gen}, SObj(counter++, 0));
                fresh.push_back(o);
            }
        } else {
            fresh = unnumberedObjects();
            for (const SObj& o : fresh) dest.insertNewObjTab(NewObjTable{0, 0, o.num, o.gen}, SObj(counter++, 0));
        }
        source->freshObjects.clear();
        for (auto& c : source->createdObjects) {
            c.second = SObj(counter++, 0);
            dest.linkTable[NewObjTable{c.first.aux, 0, c.first.num, c.first.gen}] = c.second;
        }

        // Text: every object not delivered before (the annotation copier looks
        // its link targets up in the link table).
        int local = start;
        for (const SObj& o : fresh) {
            const auto k = key(o);
            const SObj* mapped = dest.newNumber(o.num, o.gen);
            const SObj target = mapped ? SObj(mapped->num, mapped->gen) : SObj(local, 0);
            const std::size_t before = dest.size();
            bool ok = true;
            if (source->pieceSet.count(o)) {
                dest += kBlankForm;
            } else {
                // Closure objects go through the page's copier: a reference that
                // has no new number reads null with its key kept. Annotation
                // objects (flags 0x1002) take the plain copier until the
                // annotation classes render them with the caller's page.
                dest.curObj = target;
                StreamRecover<CSourFile> keep(*source);
                if (o.aux & 4098) {
                    CAnnot obj(SObj(o.num, o.gen, o.aux));
                    obj.setCurPageObj(curPageObj[0], curPageObj[1]);
                    ok = obj.LocalObj(dest, *source);
                } else {
                    CPage obj{SObj(o.num, o.gen)};
                    obj.flags |= CObj::kIndirect;
                    ok = obj.LocalObj(dest, *source);
                }
            }
            (*this)[{target.num, target.gen}] = ok ? dest.substr(before) : std::string();
            deliveredMap[k] = {target.num, target.gen};
            ++local;
        }

        // Trimming.
        for (iterator it = begin(); it != end(); ++it) {
            std::string& text = it->second;
            if (cipherKind != 0 && text.find(kwendstream) == std::string::npos && !check(it))
                text = decryptObject(text, it->first.first, it->first.second);
            cutAtLastEndobj(text);
            if (!text.empty() && text[0] == '\n') text.erase(0, 1);
        }

        // AES data grows to whole blocks: the lengths follow.
        if (cipherKind == 2) {
            for (iterator it = begin(); it != end(); ++it) {
                const int n = calcStreamLength(it);
                if (n <= 0) continue;
                const int rounded = (n + 15) / 16 * 16;
                char* b = nullptr;
                char* e = nullptr;
                iterator where = end();
                findLengthPos(it, b, e, where);
                if (!b || !e || where == end() || e < b) continue;
                std::string& t = where->second;
                const std::size_t at = static_cast<std::size_t>(b - &t[0]);
                t.replace(at, static_cast<std::size_t>(e - b), std::to_string(rounded) + " ");
            }
        }
        return 0;
    });
}

// ---------------------------------------------------------------------------
// Annotations and form fields

int CPDFKilnPage::getPageAnnots(const std::string** out) {
    annotsText.clear();
    try {
        if (source && !source->annotsSet.empty()) {
            // The array is an object of its own: rendered through the
            // annotation copier with the numbering of this page.
            CDestFile dest{std::string()};
            fillRenumbering(dest);
            // Created objects keep the numbers the numbering gave them.
            int counter = startObjNo + static_cast<int>(unnumberedObjects().size());
            for (auto& c : source->createdObjects) {
                if (c.second.num <= 0) c.second = SObj(counter++, 0);
                dest.linkTable[NewObjTable{c.first.aux, 0, c.first.num, c.first.gen}] = c.second;
            }
            for (const SObj& a : source->annotsSet) {
                CAnnot annot(SObj(a.num, a.gen, kClassAnnots));
                annot.setCurPageObj(curPageObj[0], curPageObj[1]);
                StreamRecover<CSourFile> keep(*source);
                if (!annot.LocalObj(dest, *source)) break;
                annotsText = dest;
                cutAtLastEndobj(annotsText);
            }
        } else if (source) {
            const std::string page = getPageRootString(0);
            annotsText = CPageInfo(page).getValueString("Annots");
            if (!annotsText.empty()) rewriteInlineAnnots();
        }
    } catch (int) {
    } catch (const std::exception&) {
    }
    const std::size_t open = annotsText.find('[');
    const std::size_t close = annotsText.rfind(']');
    if (open != std::string::npos) annotsText[open] = ' ';
    if (close != std::string::npos && close != open) annotsText[close] = ' ';
    if (annotsText.find_first_not_of(" \r\n") == std::string::npos) annotsText.clear();
    *out = &annotsText;
    return kResultOk;
}

// The inline array's own dictionaries: /Rect moved by the page matrix
// ("%f" numbers), /Dest replaced by the next created object.
void CPDFKilnPage::rewriteInlineAnnots() {
    CMemoryBuf buf;
    buf.reset(annotsText.data(), annotsText.size());
    CSourFile in(&buf);
    in.makeView(*source, false);
    std::string result;
    std::size_t copied = 0;
    int depth = 0;
    auto created = source->createdObjects.begin();
    std::string token;
    const PgCmTD m = CAnnot::sourceCm(*source);
    auto at = [&]() {
        std::streampos p = in.tellg();
        if (p == std::streampos(-1)) return annotsText.size();
        return static_cast<std::size_t>(p);
    };
    for (int n = 0; n < (1 << 20) && in.good(); ++n) {
        readPDFString(in, token);
        if (!in.good() && (token.empty() || token.back() == '\0')) break;
        if (token == "[") {
            ++depth;
        } else if (token == "]") {
            if (--depth <= 0) break;
        } else if (token == "(" || token == "<") {
            CStringType skipped;
            skipped.isHex = token == "<";
            skipped.noDecrypt = true;
            skipped.Read(in);
        } else if (token == nmRect) {
            const std::size_t keyEnd = at();
            result.append(annotsText, copied, keyEnd - copied);
            result += "[ ";
            std::vector<float> v;
            if (!CObj::ReadNumArrayObj(in, v) || v.size() < 4) return;  // the text stays as it was
            RectTD r;
            CAnnot::TransRect(RectTD{v[0], v[1], v[2], v[3]}, m, r, true);
            char num[256];
            std::snprintf(num, sizeof num, "%f %f %f %f", r.left, r.bottom, r.right, r.top);
            result += num;
            // Copying goes on at the old array's "]".
            const std::size_t after = at();
            copied = after > 0 ? after - 1 : after;
        } else if (token == nmDest) {
            const std::size_t keyEnd = at();
            const std::size_t close = annotsText.find(']', keyEnd);
            const std::size_t openAt = annotsText.find('[', keyEnd);
            const bool replace = close != std::string::npos && (openAt == std::string::npos || close < openAt ||
                                                                annotsText.find_first_not_of(" \r\n\t", keyEnd) == openAt);
            if (replace && created != source->createdObjects.end()) {
                result.append(annotsText, copied, keyEnd - copied);
                result += " " + std::to_string(created->second.num) + " 0 R ";
                ++created;
                const std::size_t valueEnd = annotsText.find(']', keyEnd);
                // A named target ends at its own token; an array at its "]".
                const std::size_t first = annotsText.find_first_not_of(" \r\n\t", keyEnd);
                std::size_t resume = valueEnd + 1;
                if (first != std::string::npos && annotsText[first] != '[') {
                    std::size_t e = first + 1;
                    while (e < annotsText.size() && !isspace(static_cast<unsigned char>(annotsText[e])) &&
                           annotsText[e] != '/' && annotsText[e] != ']' && annotsText[e] != '>')
                        ++e;
                    resume = e;
                }
                copied = resume;
                in.clear();
                in.seekg(static_cast<std::streamoff>(resume));
            }
        }
    }
    if (copied < annotsText.size()) result.append(annotsText, copied, std::string::npos);
    annotsText = result;
}

int CPDFKilnPage::getAcroFormFields(const std::string** out, int newNumber) {
    if (!source) {
        *out = &formFieldsText;
        return kResultBadFile;
    }
    const int rc = guardedEntry([&]() -> int {
        formFieldsText.clear();
        if (!source || source->acroFormsEnable == 0) return kResultOk;
        const CAcroForm& form = source->catalog.acroForm;
        if (form.self.num >= 1 && form.heldByReference) {
            CDestFile dest{std::string()};
            fillRenumbering(dest);
            if (!renderObject(dest, form.self, newNumber)) return kResultNotLocalised;
            formFieldsText = dest;
            cutAtLastEndobj(formFieldsText);
        } else {
            // The catalog as getRootString renders it, with every number this
            // facade delivered: fields delivered on earlier pages stay listed.
            CDestFile dest{std::string()};
            fillRenumbering(dest);
            const SObj& cat = source->catalog.self;
            dest.insertNewObjTab(NewObjTable{0, 0, cat.num, cat.gen}, SObj(newNumber ? newNumber : cat.num, 0));
            renderObject(dest, cat, newNumber);
            const std::string catalog = dest;
            formFieldsText = CPageInfo(catalog).getValueString("AcroForm");
        }
        const std::size_t lt = formFieldsText.find('<');
        const std::size_t gt = formFieldsText.rfind('>');
        if (lt != std::string::npos && gt != std::string::npos) {
            // The inside of the dictionary: two bytes behind the first "<", and
            // one byte less than up to the last ">".
            const long len = static_cast<long>(gt) - static_cast<long>(lt) - 3;
            formFieldsText = lt + 2 <= formFieldsText.size() && len > 0
                                 ? formFieldsText.substr(lt + 2, static_cast<std::size_t>(len))
                                 : std::string();
        }
        *out = &formFieldsText;
        return kResultOk;
    });
    if (rc != kResultOk) *out = &formFieldsText;
    return rc;
}

std::vector<DestTD> CPDFKilnPage::getDestVector() const {
    std::vector<DestTD> v;
    if (!source) return v;
    for (const auto& c : source->createdObjects) {
        DestTD d;
        d.number = c.second.num;
        auto info = source->destMap.find(SDestObjKey{c.first.aux, c.first.num, c.first.gen});
        if (info != source->destMap.end()) {
            if (!info->second.name.empty()) {
                StreamRecover<CSourFile> keep(*source);
                source->getNameDest(info->second.name, d);
                d.named = 1;
            } else {
                d.page = info->second.page;
                d.style = info->second.style;
                std::copy(info->second.pos, info->second.pos + 4, d.pos);
            }
        }
        v.push_back(d);
    }
    return v;
}

}  // namespace PDF_KILN
