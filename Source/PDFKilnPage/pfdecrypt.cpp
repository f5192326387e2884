// The /Encrypt dictionary and the per-object cipher hooks.
#include "pfdecrypt.h"

#include <cstring>

#include "crypt/keycache.h"
#include "crypt_bridge.h"
#include "pdfkiln_cobjectposition.h"
#include "pdfkiln_sourfile.h"

namespace PDF_KILN {

CEncrypt::CEncrypt() : derivedKeys(std::make_shared<pcrypt::DerivedKeyCache>()) {
    std::memset(O, 0, sizeof O);
    std::memset(U, 0, sizeof U);
    std::memset(OE, 0, sizeof OE);
    std::memset(UE, 0, sizeof UE);
    std::memset(Perms, 0, sizeof Perms);
    std::memset(Filter, 0, sizeof Filter);
    std::memset(ID, 0, sizeof ID);
    std::memset(suppliedPassword, 0, sizeof suppliedPassword);
    std::memset(fileKey, 0, sizeof fileKey);
    std::memset(ownerPasswordText, 0, sizeof ownerPasswordText);
    std::memset(userPasswordText, 0, sizeof userPasswordText);
}

int CEncrypt::EncrptStream(std::string&, int&) { return 1; }
int CEncrypt::EncryptString(std::string&, int&) { return 1; }


namespace {

// Reads a string value into a fixed field, without decryption.
bool readStringField(CSourFile& in, const SObj& key, unsigned char* field, int& fieldLength) {
    std::string token;
    readPDFString(in, token);
    CStringType s(key);
    s.noDecrypt = true;
    if (token == "<") s.isHex = true;
    else if (token != "(") return in.good();
    if (!s.Read(in)) return false;
    std::size_t n = std::min<std::size_t>(s.text.size(), 256);
    std::memset(field, 0, 256);
    std::memcpy(field, s.text.data(), n);
    fieldLength = static_cast<int>(n);
    return true;
}

}  // namespace

bool CEncrypt::Read(CSourFile& in) {
    invalidateDecryptRecord();
    const bool inObjectStream = in.objectStreamView;
    std::streampos at = in.tellg();
    if (!IsObjStart(in)) {
        in.clear();
        in.seekg(at);
    }
    if (!isDictStart(in)) return false;
    std::string token;
    readPDFString(in, token);  // the opening "<<"
    CObjectPosition positions(&in);
    const int64_t end = positions.getEndPosition(self);
    const bool bounded = positions.getObjType(self) == 1;

    std::string cfm;
    int depth = 1;
    for (;;) {
        readPDFString(in, token);
        if (!in.good()) return false;
        if (token == kwendobj) break;
        if (bounded && static_cast<int64_t>(in.tellg()) > end) break;
        if (token == "<<") {
            ++depth;
            continue;
        }
        if (token == ">>") {
            if (--depth <= 0 && !inObjectStream) break;
            continue;
        }
        if (token == nmFilter) {
            readPDFString(in, token);
            if (token == nmStandard) handlerKind = 1;
            else if (token == nmPPKEF || token == nmPPKLite || token == nmPubSec) handlerKind = 3;
            else return false;
            std::strncpy(Filter, token.c_str(), sizeof Filter - 1);
        } else if (token == nmR) {
            in >> R;
        } else if (token == nmV) {
            in >> V;
        } else if (token == nmLength) {
            in >> Length;
        } else if (token == nmP) {
            std::streampos p = in.tellg();
            int32_t v = 0;
            if (in >> v) {
                P = v;
            } else {
                in.clear();
                in.seekg(p);
                uint32_t u = 0;
                in >> u;
                P = static_cast<int32_t>(u);
            }
        } else if (token == nmO) {
            if (!readStringField(in, self, O, OLength)) return false;
        } else if (token == nmU) {
            if (!readStringField(in, self, U, ULength)) return false;
        } else if (token == nmOE) {
            if (!readStringField(in, self, OE, OELength)) return false;
        } else if (token == nmUE) {
            if (!readStringField(in, self, UE, UELength)) return false;
        } else if (token == nmPerms) {
            if (!readStringField(in, self, Perms, PermsLength)) return false;
        } else if (token == nmEncryptMetadata) {
            readPDFString(in, token);
            if (token == "false") EncryptMetadata = false;
        } else if (token == nmCF) {
            handlerKind = 1;
            // Walk the crypt filter dictionaries; only the standard one counts.
            int cfDepth = 0;
            bool inStd = false;
            int stdDepth = 0;
            for (;;) {
                readPDFString(in, token);
                if (!in.good()) return false;
                if (token == "<<") {
                    ++cfDepth;
                } else if (token == ">>") {
                    if (inStd && cfDepth == stdDepth) inStd = false;
                    if (--cfDepth <= 0) break;
                } else if (cfDepth == 1 && (token == nmStdCF || token == "/DefaultCryptFilter")) {
                    inStd = true;
                    stdDepth = cfDepth + 1;
                } else if (inStd && token == nmEncryptMetadata) {
                    readPDFString(in, token);
                    if (token == "false") EncryptMetadata = false;
                } else if (inStd && token == nmCFM) {
                    readPDFString(in, token);
                    if (token == nmAESV2 || token == nmAESV3) cfm = token;
                } else if (inStd && token == nmLength) {
                    readPDFString(in, token);
                } else if (cfDepth == 0) {
                    break;  // /CF not followed by a dictionary
                }
            }
        }
    }

    if (V == 4 && cfm == nmAESV2) cipherMode = 2;
    else if (V == 5 && cfm == nmAESV3) cipherMode = 3;
    else cipherMode = 1;

    if (Length >= 1) {
        if (V < 4 && R < 4) EncryptMetadata = true;
    } else if (V == 1 || V == 2) {
        Length = 40;
        if (R < 4) EncryptMetadata = true;
    } else if (V == 5) {
        Length = 256;
    } else {
        Length = (V < 3 && R == 2) ? 40 : 128;
        if (V < 4 && R < 4) EncryptMetadata = true;
    }
    return true;
}

}  // namespace PDF_KILN
