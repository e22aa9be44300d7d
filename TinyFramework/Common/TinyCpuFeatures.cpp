#include "TinyFramework/Common/TinyCpuFeatures.h"

#include <cpuid.h>

namespace TinyFramework {

namespace {

// Leaf 1, edx.
constexpr uint32_t kMmxBit = 1u << 23;
constexpr uint32_t kSseBit = 1u << 25;
constexpr uint32_t kSse2Bit = 1u << 26;
// Leaf 1, ecx.
constexpr uint32_t kSse3Bit = 1u << 0;
constexpr uint32_t kSsse3Bit = 1u << 9;
constexpr uint32_t kSse41Bit = 1u << 19;
constexpr uint32_t kSse42Bit = 1u << 20;
constexpr uint32_t kPopcntBit = 1u << 23;
constexpr uint32_t kAesBit = 1u << 25;
// XSAVE, OSXSAVE and AVX: the processor has AVX and the system enabled XGETBV.
constexpr uint32_t kAvxBits = (1u << 26) | (1u << 27) | (1u << 28);
// Leaf 7, ebx.
constexpr uint32_t kAvx2Bit = 1u << 5;
// XCR0: the system saves the SSE and the AVX registers.
constexpr uint64_t kXmmYmmStateBits = (1u << 1) | (1u << 2);

int32_t HasBit(uint32_t value, uint32_t bit) {
    return (value & bit) != 0 ? 1 : 0;
}

uint32_t HighestLeaf() {
    return __get_cpuid_max(0, nullptr);
}

// XGETBV faults unless OSXSAVE is set: the caller checks that first.
uint64_t ReadXcr0() {
    uint32_t low = 0;
    uint32_t high = 0;
    __asm__ __volatile__("xgetbv" : "=a"(low), "=d"(high) : "c"(0));
    return (static_cast<uint64_t>(high) << 32) | low;
}

int32_t ReadLeaf1EcxBit(uint32_t bit) {
    uint32_t eax = 0;
    uint32_t ebx = 0;
    uint32_t ecx = 0;
    uint32_t edx = 0;
    if (!__get_cpuid(1, &eax, &ebx, &ecx, &edx)) {
        return 0;
    }
    return HasBit(ecx, bit);
}

int32_t ReadLeaf7EbxBit(uint32_t bit) {
    uint32_t eax = 0;
    uint32_t ebx = 0;
    uint32_t ecx = 0;
    uint32_t edx = 0;
    if (!__get_cpuid_count(7, 0, &eax, &ebx, &ecx, &edx)) {
        return 0;
    }
    return HasBit(ebx, bit);
}

}  // namespace

int32_t g_hasSse41 = ReadLeaf1EcxBit(kSse41Bit);
int32_t g_hasAvx2 = ReadLeaf7EbxBit(kAvx2Bit);

TinyCpuFeatures::TinyCpuFeatures()
    : m_mmx(0),
      m_sse(0),
      m_sse2(0),
      m_sse3(0),
      m_ssse3(0),
      m_sse41(0),
      m_sse42(0),
      m_popcnt(0),
      m_avx(0),
      m_avx2(0),
      m_aes(0) {}

void TinyCpuFeatures::Detect() {
    Decode(ReadRegisters());
}

TinyCpuidRegisters TinyCpuFeatures::ReadRegisters() {
    TinyCpuidRegisters registers;
    registers.highestLeaf = HighestLeaf();
    if (registers.highestLeaf < 1) {
        return registers;
    }
    uint32_t eax = 0;
    uint32_t ebx = 0;
    __cpuid(1, eax, ebx, registers.leaf1Ecx, registers.leaf1Edx);
    if ((registers.leaf1Ecx & kAvxBits) == kAvxBits) {
        registers.xcr0 = ReadXcr0();
    }
    if (registers.highestLeaf >= 7) {
        uint32_t ecx = 0;
        uint32_t edx = 0;
        __cpuid_count(7, 0, eax, registers.leaf7Ebx, ecx, edx);
    }
    return registers;
}

void TinyCpuFeatures::Decode(const TinyCpuidRegisters& registers) {
    *this = TinyCpuFeatures();
    if (registers.highestLeaf < 1) {
        return;
    }
    const uint32_t ecx = registers.leaf1Ecx;
    const uint32_t edx = registers.leaf1Edx;
    m_mmx = HasBit(edx, kMmxBit);
    m_sse = HasBit(edx, kSseBit);
    m_sse2 = HasBit(edx, kSse2Bit);
    m_sse3 = HasBit(ecx, kSse3Bit);
    m_ssse3 = HasBit(ecx, kSsse3Bit);
    m_sse41 = HasBit(ecx, kSse41Bit);
    m_sse42 = HasBit(ecx, kSse42Bit);
    m_popcnt = HasBit(ecx, kPopcntBit);
    m_aes = HasBit(ecx, kAesBit);
    m_avx = (ecx & kAvxBits) == kAvxBits && (registers.xcr0 & kXmmYmmStateBits) == kXmmYmmStateBits
                ? 1
                : 0;
    const uint32_t leaf7Ebx = registers.highestLeaf >= 7 ? registers.leaf7Ebx : 0;
    m_avx2 = m_avx != 0 ? HasBit(leaf7Ebx, kAvx2Bit) : 0;
}

}  // namespace TinyFramework
