// Processor extensions the ciphers and hashes can use, found by CPUID at run
// time. Every primitive keeps its portable form; the fast forms are taken only
// where the processor has what they need.
#pragma once

namespace pcrypt {

struct CpuFeatures {
    bool ssse3 = false;
    bool sse41 = false;
    bool aesni = false; // AESENC, AESDEC and friends
    bool sha = false;   // SHA256RNDS2, SHA256MSG1, SHA256MSG2
    bool avx512vl = false; // AVX-512 F and VL, with the system saving their registers
};

// Asks the processor; the answer is the same on every call.
CpuFeatures probeCpuFeatures();
// probeCpuFeatures, asked once per process.
const CpuFeatures& cpuFeatures();

// Whether a feature set carries the AES-NI form of Rijndael (AES-NI on top of
// the SSE2 of every x86-64 processor) and the SHA-extensions form of SHA-256
// (the SHA instructions with the SSSE3 byte shuffle and the SSE4.1 blend).
bool aesHardwareUsable(const CpuFeatures& features);
bool shaHardwareUsable(const CpuFeatures& features);
// Whether SHA-512 can run four messages at once in 256-bit registers with the
// AVX-512 rotates and three-input logic.
bool sha512LanesUsable(const CpuFeatures& features);

} // namespace pcrypt
