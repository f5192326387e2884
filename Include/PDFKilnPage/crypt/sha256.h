// SHA-256 (FIPS 180-4).
#pragma once

#include <cstddef>
#include <cstdint>

namespace pcrypt {

// After Sha256Calc_calculate the 32-byte digest stands at the start of the
// object (`Value`), so a caller may read it from the object's address.
typedef struct _Sha256Calc {
    unsigned char Value[32];
    uint32_t H[8];
    unsigned char block[64];
    size_t blockLength;   // bytes waiting in `block`
    uint64_t totalLength; // bytes hashed so far
} Sha256Calc;

void Sha256Calc_init(Sha256Calc* calc);
// Back to the initial hash value, with an empty message and a zero digest.
void Sha256Calc_reset(Sha256Calc* calc);
// Hashes the whole message of `size` bytes in one call; the digest goes to
// calc->Value. Returns 1, or 0 for a null object or a null data pointer with
// a non-zero size.
int Sha256Calc_calculate(Sha256Calc* calc, const void* data, size_t size);
// Wipes the object.
void Sha256Calc_uninit(Sha256Calc* calc);
// One compression step over a 64-byte block.
void Sha256Calc_calcBlock(Sha256Calc* calc, const unsigned char* block);

// The compression function over `count` consecutive 64-byte blocks, in its two
// forms: the portable one, and the one on the SHA extensions, which may be
// called only where shaHardwareUsable(cpuFeatures()) holds (cpufeatures.h).
// The calls above take the second wherever it is usable.
void Sha256Calc_compressPortable(uint32_t H[8], const unsigned char* blocks, size_t count);
void Sha256Calc_compressHardware(uint32_t H[8], const unsigned char* blocks, size_t count);

} // namespace pcrypt
