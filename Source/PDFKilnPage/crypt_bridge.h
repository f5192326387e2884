// The reader's calls into the security layer.
#ifndef PDFKILN_CRYPT_BRIDGE_H
#define PDFKILN_CRYPT_BRIDGE_H

#include "pfdecrypt.h"

namespace PDF_KILN {

// Tries the password held in `enc` (empty at the first opening) and sets the
// file key and password state. Returns the key trial's truth value.
bool tryFileKey(CEncrypt& enc);

}  // namespace PDF_KILN

#endif
