// Password trials of the standard security handler, revisions 2 to 6.
#include "PDFKilnPage/crypt/decryptionmanager.h"

#include "PDFKilnPage/crypt/rc4.h"

namespace pcrypt {

namespace {

// RC4 over the whole of `buf` with `key`.
void rc4(std::string& buf, const std::string& key)
{
    PDFEncryptionRC4 cipher;
    cipher.RC4(buf, static_cast<int>(buf.size()), key);
}

std::string padding()
{
    return std::string(reinterpret_cast<const char*>(ori_key), 32);
}

bool isAesRevision(const EncryptInfo& info)
{
    return info.R == 5 || info.R == 6;
}

// The AES-256 revisions are opened only with a 256-bit key: with another
// Length the MD5 key derivation would run and give a key that can't serve
// AES-256, so every trial is refused.
bool aesKeyLengthUsable(const EncryptInfo& info)
{
    return info.Length == 256;
}

} // namespace

bool PDFDecryptionManager::PdfTryKey(EncryptInfo& info, const std::string& password)
{
    std::string pw = password;
    createKey(info, pw, false, false);
    if (info.key.empty() || info.Length < 1)
        return false;
    if (info.R == 5)
        return isUserPWDR5(info, password);
    if (info.R == 6)
        return isUserPWDR6(info, password);

    if (info.U.size() < 32)
        return false;
    if (info.R < 3) {
        std::string buf = info.U.substr(0, 32);
        rc4(buf, info.key);
        return buf == padding();
    }
    // Undo the 20 RC4 passes over /U and compare with the hash of the padding
    // and the ID. Only n bytes take part, so a 40-bit key compares 5 bytes.
    const int n = keyBytes(info);
    std::string buf = info.U.substr(0, static_cast<size_t>(n));
    for (int i = 19; i >= 1; --i)
        rc4(buf, xorKey(info.key, i));
    rc4(buf, info.key);
    return buf == md5(padding() + info.ID, n);
}

bool PDFDecryptionManager::isUserPWDR5(EncryptInfo& info, const std::string& password)
{
    if (!aesKeyLengthUsable(info) || info.U.size() < 40)
        return false;
    const std::string p = getUTF8Str(password);
    if (saltedStart(info, p, false, false) != info.U.substr(0, 32))
        return false;
    info.userPassword = password;
    return true;
}

bool PDFDecryptionManager::isUserPWDR6(EncryptInfo& info, const std::string& password)
{
    if (!aesKeyLengthUsable(info) || info.U.size() < 40)
        return false;
    const std::string p = getUTF8Str(password);
    std::string h = saltedStart(info, p, false, false);
    h = hashR6(info, p, h, true);
    if (h == info.U.substr(0, 32)) {
        info.userPassword = password;
        return true;
    }
    // A file key known already (after an owner trial) is accepted when it
    // deciphers /Perms to a block that carries "adb" in bytes 9 to 11.
    if (info.key.empty() || info.key.size() != 32 || info.Perms.size() < 16)
        return false;
    const std::string perms = aes256Ecb(info.key, info.Perms.substr(0, 16), false);
    return perms.size() == 16 && perms.compare(9, 3, "adb") == 0;
}

bool PDFDecryptionManager::isOwnerPWD5(EncryptInfo& info, const std::string& password)
{
    if (!aesKeyLengthUsable(info) || info.O.size() < 40 || info.U.size() < 48)
        return false;
    const std::string p = getUTF8Str(password);
    if (saltedStart(info, p, true, false) != info.O.substr(0, 32))
        return false;
    info.ownerPassword = password;
    std::string pw = password;
    createKey(info, pw, false, true);
    return true;
}

bool PDFDecryptionManager::isOwnerPWD6(EncryptInfo& info, const std::string& password)
{
    if (!aesKeyLengthUsable(info) || info.O.size() < 40 || info.U.size() < 48)
        return false;
    const std::string p = getUTF8Str(password);
    std::string h = saltedStart(info, p, true, false);
    h = hashR6(info, p, h, false);
    if (h != info.O.substr(0, 32))
        return false;
    info.ownerPassword = password;
    std::string pw = password;
    createKey(info, pw, false, true);
    return true;
}

bool PDFDecryptionManager::isUserPWD(EncryptInfo& info, const std::string& password)
{
    if (info.R == 5)
        return isUserPWDR5(info, password);
    if (info.R == 6)
        return isUserPWDR6(info, password);
    std::string padded = padPassword(password);
    if (info.R >= 3)
        return isUserPWDR3(info, padded, true);

    // R2: the key stays in `padded`; the file key of `info` is not touched.
    createKey(info, padded, true, false);
    if (padded.empty() || info.U.size() < 32)
        return false;
    std::string buf = info.U.substr(0, 32);
    rc4(buf, padded);
    if (buf != padding())
        return false;
    info.userPassword = password;
    return true;
}

bool PDFDecryptionManager::isUserPWDR3(EncryptInfo& info, const std::string& password, bool tryFirst)
{
    if (tryFirst)
        PdfTryKey(info, password);
    if (info.key.empty())
        return false;
    const int n = keyBytes(info);
    if (info.U.size() < static_cast<size_t>(n))
        return false;
    // An ID whose first byte is 0 is left out of the hash.
    std::string in = padding();
    if (!info.ID.empty() && info.ID[0] != '\0')
        in += info.ID;
    std::string buf = md5(in, n);
    rc4(buf, info.key);
    for (int i = 1; i <= 19; ++i)
        rc4(buf, xorKey(info.key, i));
    const bool equal = buf == info.U.substr(0, static_cast<size_t>(n));
    if (equal)
        info.userPassword.clear();
    return equal;
}

bool PDFDecryptionManager::isOwnerPWD(EncryptInfo& info, const std::string& password)
{
    if (info.R == 5)
        return isOwnerPWD5(info, password);
    if (info.R == 6)
        return isOwnerPWD6(info, password);

    // The owner key, derived from the padded password alone.
    std::string ownerKey = padPassword(password);
    createKey(info, ownerKey, true, true);
    const std::string kept = info.key.substr(0, static_cast<size_t>(keyBytes(info)));
    if (ownerKey.empty() || info.O.size() < 32)
        return false;

    // Deciphering /O gives the padded user password.
    std::string result = info.O.substr(0, 32);
    if (info.R >= 3) {
        for (int i = 19; i >= 0; --i)
            rc4(result, xorKey(ownerKey, i));
    } else {
        rc4(result, ownerKey);
    }

    // The block is tested whole: it is exactly the padded user password.
    const bool ok = info.R >= 3 ? isUserPWDR3(info, result, true) : isUserPWD(info, result);
    if (ok) {
        // The user password ends where the padding string starts, at its first
        // "(" from position 1 on; a user password holding "(" comes out short.
        const size_t pos = result.find('(');
        info.userPassword = (pos != std::string::npos && pos >= 1) ? result.substr(0, pos) : result;
        info.ownerPassword = password;
    }
    if (!kept.empty())
        info.key = kept;
    return ok;
}

bool PDFDecryptionManager::getFileKey(EncryptInfo& info, const std::string& password, bool& nonEmptyTried,
                                      bool& emptyWorked)
{
    nonEmptyTried = false;
    emptyWorked = false;
    const bool aes = isAesRevision(info);

    // 1. The empty user password (asked as the owner's too below only when it
    // is the given one). A password given at opening is asked for next
    // wherever the empty one is not the user's: its hashes run with these.
    if (password.empty())
        deriveR6Ahead(info, {{std::string(), true}});
    else
        deriveR6Ahead(info, {{std::string(), false}, {password, true}});
    if (PdfTryKey(info, aes ? std::string() : padding())) {
        emptyWorked = true;
        return true;
    }
    // 2. The given password as the user's.
    deriveR6Ahead(info, {{password, true}});
    if (PdfTryKey(info, aes ? password : padPassword(password))) {
        if (!password.empty())
            nonEmptyTried = true;
        return true;
    }
    // 3. The given password as the owner's.
    nonEmptyTried = true;
    if (aes)
        return info.R == 5 ? isOwnerPWD5(info, password) : isOwnerPWD6(info, password);

    // Below R5, /O deciphered with the owner key is the padded user password.
    const int n = keyBytes(info);
    std::string ownerKey = md5(padPassword(password), n);
    if (info.R >= 3)
        for (int i = 0; i < 50; ++i)
            ownerKey = md5(ownerKey, n);
    if (ownerKey.empty() || info.O.size() < 32)
        return false;
    std::string user = info.O.substr(0, 32);
    if (info.R >= 3) {
        for (int i = 19; i >= 0; --i)
            rc4(user, xorKey(ownerKey, i));
    } else {
        rc4(user, ownerKey);
    }
    return PdfTryKey(info, user);
}

int PDFDecryptionManager::calPassWordState(EncryptInfo& info, const std::string& password)
{
    const bool aes = isAesRevision(info);

    // 1. The empty password opens the file: only the owner question is left.
    deriveR6Ahead(info, {{std::string(), password.empty()}});
    if (PdfTryKey(info, aes ? std::string() : padding())) {
        info.passwordRequired = true;
        info.passwordChecked = false;
        if (isOwnerPWD(info, password)) {
            info.userPassword.clear();
            info.ownerPassword = password;
            return EMPTY_OPENS_GIVEN_IS_OWNER;
        }
        return EMPTY_OPENS_GIVEN_NOT_OWNER;
    }

    // 2. The given password as the user's; 3. otherwise a single owner pass.
    // Either way all three of its revision 6 hashes are asked for.
    deriveR6Ahead(info, {{password, true}});
    if (PdfTryKey(info, aes ? password : padPassword(password)) && !password.empty()) {
        info.passwordChecked = true;
    } else {
        bool ok;
        if (!aes) {
            // One RC4 pass only: right for R2; at R3 and R4 it is too few and
            // the decision falls to the checks below.
            std::string user = info.O.substr(0, 32);
            rc4(user, md5(padPassword(password), keyBytes(info)));
            ok = info.O.size() >= 32 && PdfTryKey(info, user);
        } else {
            ok = isOwnerPWD(info, password);
        }
        info.passwordChecked = true;
        if (!ok)
            info.key.clear();
    }

    // 4. Which of the two passwords the given one is.
    bool u;
    if (info.R == 5)
        u = isUserPWDR5(info, password);
    else if (info.R == 6)
        u = isUserPWDR6(info, password);
    else if (info.R >= 3)
        u = isUserPWDR3(info, std::string(), false);
    else
        u = isUserPWD(info, password);
    const bool o = isOwnerPWD(info, password);

    if (u && o) {
        info.passwordRequired = false;
        info.passwordChecked = true;
        info.ownerPassword.clear();
        return GIVEN_IS_BOTH;
    }
    if (u || o) {
        info.passwordRequired = true;
        info.passwordChecked = true;
        return u ? GIVEN_IS_USER_ONLY : GIVEN_IS_OWNER_ONLY;
    }
    return GIVEN_IS_NEITHER;
}

} // namespace pcrypt
