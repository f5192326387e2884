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

} // namespace aes_hw
} // namespace pcrypt
