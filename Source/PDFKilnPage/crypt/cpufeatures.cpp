#include "PDFKilnPage/crypt/cpufeatures.h"

#if defined(__x86_64__) || defined(__i386__)
#include <cpuid.h>
#endif

namespace pcrypt {

CpuFeatures probeCpuFeatures()
{
    CpuFeatures f;
#if defined(__x86_64__) || defined(__i386__)
    unsigned a = 0, b = 0, c = 0, d = 0;
    if (__get_cpuid(1, &a, &b, &c, &d)) {
        f.ssse3 = (c >> 9) & 1u;
        f.sse41 = (c >> 19) & 1u;
        f.aesni = (c >> 25) & 1u;
    }
    const bool osSavesState = (c >> 27) & 1u; // OSXSAVE, from leaf 1
    if (__get_cpuid_max(0, nullptr) >= 7 && __get_cpuid_count(7, 0, &a, &b, &c, &d)) {
        f.sha = (b >> 29) & 1u;
        const bool avx512 = ((b >> 16) & 1u) && ((b >> 31) & 1u); // F and VL
        if (avx512 && osSavesState) {
            // The system must save the vector, mask and upper ZMM state.
            unsigned lo = 0, hi = 0;
            __asm__ __volatile__("xgetbv" : "=a"(lo), "=d"(hi) : "c"(0));
            f.avx512vl = (lo & 0xe6u) == 0xe6u;
        }
    }
#endif
    return f;
}

const CpuFeatures& cpuFeatures()
{
    static const CpuFeatures features = probeCpuFeatures();
    return features;
}

bool aesHardwareUsable(const CpuFeatures& features)
{
#if defined(__x86_64__)
    return features.aesni;
#else
    (void)features;
    return false;
#endif
}

bool sha512LanesUsable(const CpuFeatures& features)
{
#if defined(__x86_64__)
    return features.avx512vl;
#else
    (void)features;
    return false;
#endif
}

bool shaHardwareUsable(const CpuFeatures& features)
{
#if defined(__x86_64__)
    return features.sha && features.ssse3 && features.sse41;
#else
    (void)features;
    return false;
#endif
}

} // namespace pcrypt
