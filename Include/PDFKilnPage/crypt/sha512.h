// SHA-384 and SHA-512 (FIPS 180-4).
#pragma once

#include <cstddef>
#include <cstdint>

namespace pcrypt {

struct _SHA512Context {
    uint64_t hash[8];
    uint64_t totalLength[2]; // message length in bytes, 128 bits, low word first
    uint32_t bufferLength;   // bytes waiting in `buffer`
    uint8_t buffer[128];
};

// SHA-384 is SHA-512 with another initial value and a cut digest.
struct _SHA384Context : _SHA512Context {};

typedef _SHA512Context SHA512Context;
typedef _SHA384Context SHA384Context;

const int SHA384_HASH_SIZE = 48;
const int SHA512_HASH_SIZE = 64;

void SHA512Init(_SHA512Context* sc);
void SHA512Update(_SHA512Context* sc, const void* data, size_t len);
// Writes the 64-byte digest and wipes the context.
void SHA512Final(_SHA512Context* sc, uint8_t hash[64]);

void SHA384Init(_SHA384Context* sc);
void SHA384Update(_SHA384Context* sc, const void* data, size_t len);
// Writes the 48-byte digest and wipes the context.
void SHA384Final(_SHA384Context* sc, uint8_t hash[48]);

// Overwrites at least `size` bytes of the stack below the caller, 128 bytes at
// a time, so that no intermediate values of a compression step stay there.
void burnStack(int size);

} // namespace pcrypt
