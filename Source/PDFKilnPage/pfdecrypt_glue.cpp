// Calls from the reader into the standard security handler.
#include "crypt_bridge.h"

namespace PDF_KILN {

bool tryFileKey(CEncrypt&) { return true; }

int DecryptString(const CEncrypt&, SObj*, std::string&) { return 0; }

int encryptString(const CEncrypt&, SObj*, std::string&) { return 0; }

int encryptAES(std::string&, unsigned char*, int) { return 0; }

}  // namespace PDF_KILN
