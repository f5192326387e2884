// The AES-NI form of Rijndael's block operations. The round keys are those of
// the table form, as bytes: (rounds + 1) keys of 16 bytes, and for decryption
// the schedule of the equivalent inverse cipher (reversed, inner keys through
// InvMixColumns), which is what AESDEC expects. Call only where
// aesHardwareUsable(cpuFeatures()) holds.
//
// The output may be the input itself or start before it (for instance one
// block below, to drop a leading block in place): every block is read before
// any output that could overwrite it is stored.
#pragma once

#include <cstddef>

namespace pcrypt {
namespace aes_hw {

void encryptEcb(const unsigned char* roundKeys, int rounds, const unsigned char* in, unsigned char* out,
                std::size_t blocks);
void decryptEcb(const unsigned char* roundKeys, int rounds, const unsigned char* in, unsigned char* out,
                std::size_t blocks);
// CBC; `chain` holds the vector on entry and the last ciphertext block on return.
void encryptCbc(const unsigned char* roundKeys, int rounds, unsigned char chain[16], const unsigned char* in,
                unsigned char* out, std::size_t blocks);
void decryptCbc(const unsigned char* roundKeys, int rounds, unsigned char chain[16], const unsigned char* in,
                unsigned char* out, std::size_t blocks);

// The encryption schedule of a 16-byte key: 11 round keys, 176 bytes.
void expandKey128(const unsigned char key[16], unsigned char roundKeys[176]);

// Up to kMaxCbcChains independent CBC encryptions with 16-byte keys, in
// place, run side by side: each chain waits on its own previous block, so
// several chains keep the AES unit busy where one leaves it idle most cycles.
// Chain i enciphers blocks[i] blocks at data[i] with roundKeys[i] (as from
// expandKey128); chains[i] holds its vector on entry and its last block on
// return.
constexpr int kMaxCbcChains = 6;
void encryptCbc128Chains(const unsigned char* const roundKeys[], unsigned char* const chains[],
                         unsigned char* const data[], const std::size_t blocks[], int count);

} // namespace aes_hw
} // namespace pcrypt
