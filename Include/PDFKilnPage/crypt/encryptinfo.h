// The exchange record of the standard security handler: everything the
// password trials and the per-object cipher need to know about one document.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

namespace pcrypt {

class DerivedKeyCache;

// The 32-byte password padding string of the standard security handler.
extern const unsigned char ori_key[32];

struct EncryptInfo {
    bool reserved = false;          // not used by the security layer
    bool encryptMetadata = true;    // /EncryptMetadata
    std::string O;                  // /O: 32 bytes up to R4, 48 for R5 and R6
    std::string OE;                 // /OE, 32 bytes
    std::string U;                  // /U, as /O
    std::string UE;                 // /UE, 32 bytes
    std::string key;                // the file key
    int32_t P = -4;                 // /P
    std::string Perms;              // /Perms, 16 bytes
    std::string ID;                 // first element of the trailer's /ID
    int32_t R = 0;                  // /R
    int32_t V = 1;                  // /V
    int32_t Length = 0;             // key length in bits
    int32_t reservedWord = 0;       // not used by the security layer
    int32_t cipherMode = 0;         // 1 RC4, 2 AES-128, 3 AES-256
    bool passwordRequired = false;  // set by calPassWordState
    bool passwordChecked = false;   // set by calPassWordState
    std::string ownerPassword;      // the password that matched as the owner's
    std::string userPassword;       // the password that matched as the user's, or was recovered from /O
    bool keyIsObjectKey = false;    // calculateKey then uses `key` as it stands
    // Derivations already made for this document (keycache.h), shared by the
    // records made from it; without one the manager keeps its own.
    std::shared_ptr<DerivedKeyCache> derivedKeys;
};

// The password as the AES-256 revisions use it: its first 127 bytes. No
// normalisation is applied; the bytes are used as given.
std::string getUTF8Str(const std::string& password);

} // namespace pcrypt
