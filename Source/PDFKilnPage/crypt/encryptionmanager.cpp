// /O, /U, /OE, /UE, /Perms and the file key for a document to be written.
#include "PDFKilnPage/crypt/encryptionmanager.h"

#include "PDFKilnPage/crypt/rc4.h"

namespace pcrypt {

namespace {

// Fixed values where the handler would take random bytes; no random source is
// used, so the output is reproducible. Any constant of these lengths works.
const std::string kFileKeyAES256(32, '\x6b');
const std::string kSaltFiller("PDFKilnSaltBytes", 16); // validation salt, then key salt
const std::string kPermsFiller("kiln", 4);

void rc4(std::string& buf, const std::string& key)
{
    PDFEncryptionRC4 cipher;
    cipher.RC4(buf, static_cast<int>(buf.size()), key);
}

std::string validationSalt() { return kSaltFiller.substr(0, 8); }
std::string keySalt() { return kSaltFiller.substr(8, 8); }

} // namespace

void EncryptOption::saveUPW(const char* password)
{
    userPassword = password ? password : "";
}

void EncryptOption::saveOPW(const char* password)
{
    ownerPassword = password ? password : "";
}

void PDFEncryptionManager::createKey(EncryptInfo& info, const std::string& password)
{
    if (info.R >= 5 && info.Length == 256) {
        info.key = kFileKeyAES256;
        return;
    }
    const int n = keyBytes(info);
    std::string input = padPassword(password);
    input += info.O;
    padInteger(input, info.P, 4);
    input += info.ID;
    if (!info.encryptMetadata)
        input.append(4, '\xff');
    std::string k = md5(input, n);
    if (info.R > 2)
        for (int i = 0; i < 50; ++i)
            k = md5(k, n);
    info.key = k;
}

void PDFEncryptionManager::calculateOKey(const EncryptOption& option, EncryptInfo& info)
{
    if (info.R >= 5) {
        const std::string p = getUTF8Str(option.ownerPassword);
        const std::string u = info.U.substr(0, 48);
        std::string h = sha256(p + validationSalt() + u);
        if (info.R == 6)
            h = caculateHashR6(p, h, info.U, false);
        info.O = h + validationSalt() + keySalt();

        std::string wrap = sha256(p + keySalt() + u);
        if (info.R == 6)
            wrap = caculateHashR6(p, wrap, info.U, false);
        info.OE = aes256CbcNoPad(wrap, info.key, true);
        return;
    }

    const std::string& ownerPassword = option.ownerPassword.empty() ? option.userPassword : option.ownerPassword;
    const int n = keyBytes(info);
    std::string ownerKey = md5(padPassword(ownerPassword), n);
    if (info.R >= 3)
        for (int i = 0; i < 50; ++i)
            ownerKey = md5(ownerKey, n);
    std::string o = padPassword(option.userPassword);
    rc4(o, ownerKey);
    if (info.R >= 3)
        for (int i = 1; i <= 19; ++i)
            rc4(o, xorKey(ownerKey, i));
    info.O = o;
}

void PDFEncryptionManager::calculateUKey(const EncryptOption& option, EncryptInfo& info)
{
    if (info.R >= 5) {
        const std::string p = getUTF8Str(option.userPassword);
        std::string h = sha256(p + validationSalt());
        if (info.R == 6)
            h = caculateHashR6(p, h, info.U, true);
        info.U = h + validationSalt() + keySalt();

        std::string wrap = sha256(p + keySalt());
        if (info.R == 6)
            wrap = caculateHashR6(p, wrap, info.U, true);
        info.UE = aes256CbcNoPad(wrap, info.key, true);
        return;
    }

    std::string u(reinterpret_cast<const char*>(ori_key), 32);
    if (info.R < 3) {
        rc4(u, info.key);
        info.U = u;
        return;
    }
    u = md5(u + info.ID, 16);
    rc4(u, info.key);
    for (int i = 1; i <= 19; ++i)
        rc4(u, xorKey(info.key, i));
    // Completed to 32 bytes with the start of the padding string.
    padKey(u, 16);
    info.U = u;
}

void PDFEncryptionManager::calculatePerms(const EncryptOption& option, EncryptInfo& info)
{
    if (info.R < 5)
        return;
    std::string block;
    padInteger(block, option.P, 4);
    block.append(4, '\xff');
    block += option.encryptMetadata ? 'T' : 'F';
    block += "adb";
    block += kPermsFiller;
    info.Perms = aes256Ecb(info.key, block, true);
}

} // namespace pcrypt
