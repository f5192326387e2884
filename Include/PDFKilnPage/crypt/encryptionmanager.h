// Values of the /Encrypt dictionary for a document to be written with new
// passwords.
#pragma once

#include <string>

#include "encryptionbase.h"
#include "encryptinfo.h"

namespace pcrypt {

struct EncryptOption {
    std::string userPassword;
    std::string ownerPassword;
    int P = -4;                  // the permission word /P
    bool encryptMetadata = true; // "T" or "F" in /Perms

    // Null is taken as the empty password.
    void saveUPW(const char* password);
    void saveOPW(const char* password);
};

// Fills O, U, key, and for R5/R6 OE, UE and Perms, of an EncryptInfo whose
// R, V, Length, P, ID and encryptMetadata the caller has set.
//
// Order of the calls:
//   R2 to R4: calculateOKey, createKey(info, user password), calculateUKey.
//   R5, R6:   createKey, calculateUKey, calculateOKey, calculatePerms
//             (the owner hash covers /U, so /U must exist first).
class PDFEncryptionManager : public PDFEncryptionBase {
public:
    // R5/R6 with Length 256: a fixed 32-byte file key; the passwords protect
    // the document through /OE and /UE alone. Otherwise the MD5 key derivation
    // from the padded password, O, P, ID and, with encryptMetadata false,
    // 4 bytes 0xFF; 50 further rounds above R2.
    void createKey(EncryptInfo& info, const std::string& password);
    void calculateOKey(const EncryptOption& option, EncryptInfo& info);
    void calculateUKey(const EncryptOption& option, EncryptInfo& info);
    // R5/R6 only: P, 0xFFFFFFFF, "T"/"F", "adb" and 4 filler bytes, enciphered
    // with the file key.
    void calculatePerms(const EncryptOption& option, EncryptInfo& info);
};

} // namespace pcrypt
