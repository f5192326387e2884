// File key derivation for reading: the MD5 based key of revisions 2 to 4 and
// the key unwrapped from /OE or /UE for the AES-256 revisions.
#include "PDFKilnPage/crypt/decryptionmanager.h"

#include <algorithm>
#include <cstring>

namespace pcrypt {

void PDFDecryptionManager::createKey(EncryptInfo& info, std::string& password, bool keepInPassword,
                                     bool ownerOnly)
{
    if ((info.R == 5 || info.R == 6) && info.Length == 256) {
        createKeyAES256(info, password, keepInPassword, ownerOnly);
        return;
    }
    const int n = keyBytes(info);
    std::string input;
    if (!ownerOnly) {
        input = padPassword(password);
        input += info.O;
        padInteger(input, info.P, 4);
        if (!info.ID.empty())
            input += info.ID;
        if (!info.encryptMetadata)
            input.append(4, '\xff');
    } else {
        input = password;
    }
    std::string k = md5(input, n);
    if (info.R > 2)
        for (int i = 0; i < 50; ++i)
            k = md5(k, n);
    std::fill(input.begin(), input.end(), '\0');
    (keepInPassword ? password : info.key) = k;
}

void PDFDecryptionManager::createKeyAES256(EncryptInfo& info, std::string& password, bool keepInPassword,
                                           bool ownerOnly)
{
    std::string& target = keepInPassword ? password : info.key;
    const std::string& wrapped = ownerOnly ? info.OE : info.UE;
    // Without complete /U, /O, /OE or /UE there is nothing to unwrap.
    if (info.U.size() < 48 || (ownerOnly && info.O.size() < 48) || wrapped.size() < 32) {
        target.clear();
        return;
    }
    const std::string p = getUTF8Str(password);
    std::string input = p;
    if (ownerOnly) {
        input += info.O.substr(40, 8);
        input += info.U.substr(0, 48);
    } else {
        input += info.U.substr(40, 8);
    }
    std::string h = sha256(input);
    if (info.R == 6)
        h = caculateHashR6(p, h, info.U, !ownerOnly);

    // A zero block in front of the wrapped key: its output is dropped, which
    // leaves the wrapped key deciphered with a zero vector.
    std::string block(16, '\0');
    block += wrapped.substr(0, 32);
    const std::string plain = aes256CbcNoPad(h, block, false);
    target = plain.size() == 48 ? plain.substr(16, 32) : std::string();
}

int PDFDecryptionManager::createKey(EncryptInfo& info, unsigned char* password, int passwordLength,
                                    bool keepInPassword, bool ownerOnly)
{
    std::string pw;
    if (password != nullptr && passwordLength > 0)
        pw.assign(reinterpret_cast<const char*>(password), static_cast<size_t>(passwordLength));
    createKey(info, pw, keepInPassword, ownerOnly);
    if (!keepInPassword)
        return static_cast<int>(info.key.size());
    if (password != nullptr && !pw.empty())
        std::memcpy(password, pw.data(), std::min<size_t>(pw.size(), 32));
    return static_cast<int>(std::min<size_t>(pw.size(), 32));
}

} // namespace pcrypt
