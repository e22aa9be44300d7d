#pragma once

#include <cstdint>

namespace TinyFramework {

// What CPUID leaf 1 and leaf 7 and XCR0 said, as Detect reads them.
struct TinyCpuidRegisters {
    uint32_t highestLeaf = 0;
    uint32_t leaf1Ecx = 0;
    uint32_t leaf1Edx = 0;
    // Leaf 7 (subleaf 0); zero when the highest leaf is below 7.
    uint32_t leaf7Ebx = 0;
    // XGETBV(0); zero unless the processor has AVX, XSAVE and OSXSAVE.
    uint64_t xcr0 = 0;
};

// The instruction-set extensions of this processor. AVX and AVX2 count only when the operating
// system saves the AVX registers. A plain value: construct, Detect, read.
class TinyCpuFeatures {
public:
    TinyCpuFeatures();

    // Reads this processor's CPUID and XCR0.
    void Detect();
    // Sets the flags from registers read before (Detect's second half).
    void Decode(const TinyCpuidRegisters& registers);
    static TinyCpuidRegisters ReadRegisters();

    int32_t mmx() const { return m_mmx; }
    int32_t sse() const { return m_sse; }
    int32_t sse2() const { return m_sse2; }
    int32_t sse3() const { return m_sse3; }
    int32_t ssse3() const { return m_ssse3; }
    int32_t sse41() const { return m_sse41; }
    int32_t sse42() const { return m_sse42; }
    int32_t popcnt() const { return m_popcnt; }
    int32_t avx() const { return m_avx; }
    int32_t avx2() const { return m_avx2; }
    int32_t aes() const { return m_aes; }

private:
    int32_t m_mmx;
    int32_t m_sse;
    int32_t m_sse2;
    int32_t m_sse3;
    int32_t m_ssse3;
    int32_t m_sse41;
    int32_t m_sse42;
    int32_t m_popcnt;
    int32_t m_avx;
    int32_t m_avx2;
    int32_t m_aes;
};

// Read from CPUID during static initialisation for the fast copies: SSE4.1 (leaf 1, ecx bit 19)
// and AVX2 (leaf 7, ebx bit 5), from the processor alone, without asking whether the operating
// system saves the AVX registers.
extern int32_t g_hasSse41;
extern int32_t g_hasAvx2;

}  // namespace TinyFramework
