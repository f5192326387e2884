// The page facade: opening a document and entering its password.
#include "pdfkiln_page.h"

#include <cstring>
#include <fstream>

#include "crypt/pcrypt.h"
#include "pdfkiln_destfile.h"
#include "pdfkiln_sourfile.h"

namespace PDF_KILN {

CPDFKilnPage::CPDFKilnPage(std::istream& in, const std::string& pwd) : stream(&in), password(pwd) {}

CPDFKilnPage::CPDFKilnPage(const char* name, const std::string& pwd) : fileName(name ? name : ""), password(pwd) {
    auto* f = new std::ifstream;
    if (name) f->open(name, std::ios::in | std::ios::binary);
    if (!name || !f->is_open()) f->setstate(std::ios::failbit);
    stream = f;
    ownsStream = true;
}

CPDFKilnPage::~CPDFKilnPage() {
    delete source;
    if (ownsStream) delete stream;
}

int CPDFKilnPage::setStartObjNo(int startNo) {
    startObjNo = startNo;
    return 0;
}

int CPDFKilnPage::getPageCount() const { return source ? static_cast<int>(source->pages.size()) : 0; }

void CPDFKilnPage::findValue() {}

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

int CPDFKilnPage::init() {
    try {
        if (!source) source = new CSourFile(*stream);
        if (!stream->good()) return kResultBadFile;
        int rc = source->CheckAndInit();
        if (rc != 0) return rc;
        rc = readCatalogText();
        if (rc != 0) return rc;
        (void)SetSourcePassword();
        findValue();
        return kResultOk;
    } catch (const CFileError&) {
        return kResultBadFile;
    } catch (const std::exception&) {
        return kResultStdException;
    }
}

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
    std::memset(field.suppliedPassword, 0, sizeof field.suppliedPassword);
    std::strncpy(field.suppliedPassword, password.c_str(), 32);
    pcrypt::PDFDecryptionManager manager;
    pcrypt::EncryptInfo record;
    saveEncryptInfo(field, record);
    const int state = manager.calPassWordState(record, password);
    resaveEncryptInfo(record, field);
    return state;
}

int CPDFKilnPage::SetSourcePassword(const std::string& pwd) {
    password = pwd;
    int result = SetSourcePassword();
    int rc = source->CheckAndInit();
    if (rc != 0) throw rc;
    rc = readCatalogText();
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
