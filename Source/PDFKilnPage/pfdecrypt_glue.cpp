// Between the document's security state (CEncrypt) and the security layer:
// the exchange record, the key trial at opening, and the per-object ciphers.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "crypt/pcrypt.h"
#include "crypt_bridge.h"

namespace PDF_KILN {

namespace {

std::string bytes(const unsigned char* p, std::size_t n) { return std::string(reinterpret_cast<const char*>(p), n); }

void copyBack(const std::string& from, unsigned char* to, std::size_t capacity) {
    std::memset(to, 0, capacity);
    std::memcpy(to, from.data(), std::min(from.size(), capacity));
}

}  // namespace

void saveEncryptInfo(const CEncrypt& enc, pcrypt::EncryptInfo& info) {
    if (enc.R > 4) {
        info.UE.append(bytes(enc.UE, 32));
        info.OE.append(bytes(enc.OE, 32));
        info.Perms.append(bytes(enc.Perms, 16));
        info.O.append(bytes(enc.O, 48));
        info.U.append(bytes(enc.U, 48));
    } else {
        info.O.append(bytes(enc.O, 32));
        info.U.append(bytes(enc.U, 32));
    }
    info.encryptMetadata = enc.EncryptMetadata;
    info.P = enc.P;
    info.Length = enc.Length;
    info.R = enc.R;
    info.V = enc.V;
    info.cipherMode = enc.cipherMode;
    info.ID.append(bytes(enc.ID, std::min<std::size_t>(enc.IDLength, sizeof enc.ID)));
    const int keyBytes = std::clamp(enc.Length / 8, 0, 256);
    info.key.append(bytes(enc.fileKey, static_cast<std::size_t>(keyBytes)));
    info.derivedKeys = enc.derivedKeys;
}

void resaveEncryptInfo(const pcrypt::EncryptInfo& info, CEncrypt& enc) {
    copyBack(info.UE, enc.UE, sizeof enc.UE);
    copyBack(info.OE, enc.OE, sizeof enc.OE);
    copyBack(info.Perms, enc.Perms, sizeof enc.Perms);
    copyBack(info.O, enc.O, sizeof enc.O);
    copyBack(info.U, enc.U, sizeof enc.U);
    enc.EncryptMetadata = info.encryptMetadata;
    enc.P = info.P;
    enc.Length = info.Length;
    enc.R = info.R;
    enc.V = info.V;
    enc.cipherMode = info.cipherMode;
    copyBack(info.ID, enc.ID, sizeof enc.ID);
    enc.IDLength = std::min(info.ID.size(), sizeof enc.ID);
    copyBack(info.key, enc.fileKey, sizeof enc.fileKey);
    enc.invalidateDecryptRecord();
}

bool tryFileKey(CEncrypt& enc) {
    pcrypt::EncryptInfo info;
    saveEncryptInfo(enc, info);
    pcrypt::PDFDecryptionManager manager;
    bool nonEmptyTried = false, emptyWorked = false;
    const std::string password(enc.suppliedPassword, strnlen(enc.suppliedPassword, 32));
    const bool ok = manager.getFileKey(info, password, nonEmptyTried, emptyWorked);
    enc.passwordFlagOwner = false;
    enc.passwordFlagUser = false;
    if (emptyWorked) {
        enc.passwordState = 2;
        enc.passwordFlagOwner = true;
    } else if (nonEmptyTried) {
        enc.passwordState = 3;
        enc.passwordFlagUser = true;
    }
    resaveEncryptInfo(info, enc);
    enc.invalidateDecryptRecord();
    return ok;
}

CEncrypt::DecryptRecord::DecryptRecord() = default;
CEncrypt::DecryptRecord::DecryptRecord(const DecryptRecord&) {}
CEncrypt::DecryptRecord& CEncrypt::DecryptRecord::operator=(const DecryptRecord&) {
    decryptor.reset();
    return *this;
}
CEncrypt::DecryptRecord::~DecryptRecord() = default;

void CEncrypt::invalidateDecryptRecord() const { decryptRecord.decryptor.reset(); }

int DecryptString(const CEncrypt& enc, SObj* object, std::string& data) {
    // The record is made on first use and kept while the fields it was made
    // from stand as they were; DecryptData needs only the key and the cipher
    // of it, the rest is compared so that any change of state renews it.
    ++enc.decryptCount;
    CEncrypt::DecryptRecord& slot = enc.decryptRecord;
    const std::size_t keyBytes = static_cast<std::size_t>(std::clamp(enc.Length / 8, 0, 256));
    const bool current = slot.decryptor && slot.Length == enc.Length && slot.R == enc.R && slot.V == enc.V &&
                         slot.cipherMode == enc.cipherMode && slot.passwordState == enc.passwordState &&
                         slot.decryptor->record().key.size() == keyBytes &&
                         std::memcmp(slot.decryptor->record().key.data(), enc.fileKey, keyBytes) == 0;
    if (!current) {
        pcrypt::EncryptInfo info;
        saveEncryptInfo(enc, info);
        slot.decryptor = std::make_unique<pcrypt::ObjectDecryptor>(info);
        slot.Length = enc.Length;
        slot.R = enc.R;
        slot.V = enc.V;
        slot.cipherMode = enc.cipherMode;
        slot.passwordState = enc.passwordState;
    }
    // In place: AES only ever shortens the data.
    int size = static_cast<int>(data.size());
    if (size <= 0) {
        data.clear();
        return 0;
    }
    slot.decryptor->decrypt(object ? object->num : 0, object ? object->gen : 0,
                            reinterpret_cast<unsigned char*>(data.data()), size);
    data.resize(static_cast<std::size_t>(std::max(size, 0)));
    return 0;
}

int encryptString(const CEncrypt& enc, SObj* object, std::string& data) {
    pcrypt::EncryptInfo info;
    const int keyBytes = std::clamp(enc.Length / 8, 0, 256);
    info.key = bytes(enc.fileKey, static_cast<std::size_t>(keyBytes));
    info.R = enc.cipherMode == 2 ? 4 : enc.cipherMode == 3 ? 5 : 3;
    info.V = enc.V;
    info.cipherMode = enc.cipherMode;
    info.Length = enc.Length;
    info.encryptMetadata = enc.EncryptMetadata;
    std::string key;
    pcrypt::PDFEncryptionBase().calculateKey(object ? object->num : 0, object ? object->gen : 0, info, key);
    if (enc.V < 4) {
        pcrypt::PDFEncryptionRC4().RC4(data, static_cast<int>(data.size()), key);
        return 0;
    }
    std::vector<unsigned char> k(32, 0);
    std::memcpy(k.data(), key.data(), std::min<std::size_t>(key.size(), 32));
    return encryptAES(data, k.data(), enc.V);
}

int encryptAES(std::string& data, unsigned char* key, int V) {
    unsigned char iv[16];
    for (unsigned char& b : iv) {
        b = static_cast<unsigned char>(std::rand() % 255);
        if (b == 0) b = 1;
    }
    pcrypt::Rijndael aes;
    aes.init(pcrypt::Rijndael::CBC, pcrypt::Rijndael::Encrypt, key,
             V == 5 ? pcrypt::Rijndael::Key32Bytes : pcrypt::Rijndael::Key16Bytes, iv);
    std::vector<unsigned char> out(data.size() + 16);
    int n = aes.padEncrypt(reinterpret_cast<const unsigned char*>(data.data()), static_cast<int>(data.size()),
                           out.data());
    data.assign(reinterpret_cast<const char*>(iv), 16);
    if (n > 0) data.append(reinterpret_cast<const char*>(out.data()), static_cast<std::size_t>(n));
    return 0;
}

}  // namespace PDF_KILN
