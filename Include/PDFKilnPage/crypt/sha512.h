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

// Up to kSha512Lanes messages hashed side by side: out[i] receives SHA-384 of
// data[i] (48 bytes) where is384[i], else SHA-512 (64 bytes). Where the
// processor has AVX-512 (sha512LanesUsable) the blocks that two or more
// messages have run through one compression on all of them at once; the rest,
// and everything elsewhere, as one message at a time. Same digests either way.
constexpr int kSha512Lanes = 4;
void SHA512Lanes(const uint8_t* const data[], const size_t lengths[], const bool is384[], uint8_t* const out[],
                 int count);

// Overwrites at least `size` bytes of the stack below the caller, 128 bytes at
// a time, so that no intermediate values of a compression step stay there.
void burnStack(int size);

} // namespace pcrypt
