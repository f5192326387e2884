// The security layer: ciphers, hashes and the standard security handler.
#pragma once

#include "cpufeatures.h"
#include "rc4.h"
#include "md5.h"
#include "rijndael.h"
#include "sha256.h"
#include "sha512.h"
#include "encryptinfo.h"
#include "encryptionbase.h"
#include "keycache.h"
#include "decryptionmanager.h"
#include "objectdecryptor.h"
#include "encryptionmanager.h"
