#include "TinyFramework/Common/TinyCpuFeatures.h"

#include <gtest/gtest.h>

#include <windows.h>

#include <cpuid.h>

namespace {

using TinyFramework::TinyCpuFeatures;
using TinyFramework::TinyCpuidRegisters;

// IsProcessorFeaturePresent's numbers for the extensions newer than the MinGW headers know.
constexpr DWORD kFeatureSsse3 = 36;
constexpr DWORD kFeatureSse41 = 37;
constexpr DWORD kFeatureSse42 = 38;
constexpr DWORD kFeatureAvx = 39;
constexpr DWORD kFeatureAvx2 = 40;

constexpr uint32_t kAvxEcxBits = (1u << 26) | (1u << 27) | (1u << 28);
constexpr uint64_t kXmmYmmState = 0x6;

TinyCpuFeatures Decoded(const TinyCpuidRegisters& registers) {
    TinyCpuFeatures features;
    features.Decode(registers);
    return features;
}

int32_t FlagCount(const TinyCpuFeatures& f) {
    return f.mmx() + f.sse() + f.sse2() + f.sse3() + f.ssse3() + f.sse41() + f.sse42() +
           f.popcnt() + f.avx() + f.avx2() + f.aes();
}

// Every bit set, as a processor with everything would answer.
TinyCpuidRegisters Everything(uint32_t highestLeaf) {
    TinyCpuidRegisters registers;
    registers.highestLeaf = highestLeaf;
    registers.leaf1Ecx = 0xFFFFFFFF;
    registers.leaf1Edx = 0xFFFFFFFF;
    registers.leaf7Ebx = 0xFFFFFFFF;
    registers.xcr0 = 0xFFFFFFFF;
    return registers;
}

TEST(CpuFeaturesTest, NewFeaturesObjectHasEveryFlagClear) {
    EXPECT_EQ(FlagCount(TinyCpuFeatures()), 0);
}

TEST(CpuFeaturesTest, HighestLeafBelowOneLeavesEveryFlagClear) {
    EXPECT_EQ(FlagCount(Decoded(Everything(0))), 0);
}

TEST(CpuFeaturesTest, EveryFlagSetWhenEveryBitIs) {
    const TinyCpuFeatures features = Decoded(Everything(7));
    EXPECT_EQ(FlagCount(features), 11);
}

TEST(CpuFeaturesTest, EachFlagReadsItsOwnBit) {
    struct Case {
        uint32_t ecx;
        uint32_t edx;
        int32_t (TinyCpuFeatures::*flag)() const;
    };
    const Case cases[] = {
        {0, 1u << 23, &TinyCpuFeatures::mmx},   {0, 1u << 25, &TinyCpuFeatures::sse},
        {0, 1u << 26, &TinyCpuFeatures::sse2},  {1u << 0, 0, &TinyCpuFeatures::sse3},
        {1u << 9, 0, &TinyCpuFeatures::ssse3},  {1u << 19, 0, &TinyCpuFeatures::sse41},
        {1u << 20, 0, &TinyCpuFeatures::sse42}, {1u << 23, 0, &TinyCpuFeatures::popcnt},
        {1u << 25, 0, &TinyCpuFeatures::aes},
    };
    for (const Case& c : cases) {
        TinyCpuidRegisters registers;
        registers.highestLeaf = 1;
        registers.leaf1Ecx = c.ecx;
        registers.leaf1Edx = c.edx;
        const TinyCpuFeatures features = Decoded(registers);
        EXPECT_EQ((features.*c.flag)(), 1) << c.ecx << " " << c.edx;
        EXPECT_EQ(FlagCount(features), 1) << c.ecx << " " << c.edx;
    }
}

TEST(CpuFeaturesTest, AvxNeedsAllThreeProcessorBitsAndTheSystemsRegisterState) {
    TinyCpuidRegisters registers;
    registers.highestLeaf = 1;
    registers.leaf1Ecx = kAvxEcxBits;
    registers.xcr0 = kXmmYmmState;
    EXPECT_EQ(Decoded(registers).avx(), 1);
    for (uint32_t bit : {26u, 27u, 28u}) {
        TinyCpuidRegisters missing = registers;
        missing.leaf1Ecx &= ~(1u << bit);
        EXPECT_EQ(Decoded(missing).avx(), 0) << bit;
    }
    for (uint64_t state : {uint64_t{0x2}, uint64_t{0x4}, uint64_t{0}}) {
        TinyCpuidRegisters missing = registers;
        missing.xcr0 = state;
        EXPECT_EQ(Decoded(missing).avx(), 0) << state;
    }
}

TEST(CpuFeaturesTest, Avx2NeedsAvx) {
    TinyCpuidRegisters registers = Everything(7);
    registers.xcr0 = 0;
    const TinyCpuFeatures features = Decoded(registers);
    EXPECT_EQ(features.avx(), 0);
    EXPECT_EQ(features.avx2(), 0);
}

TEST(CpuFeaturesTest, Avx2NeedsLeafSeven) {
    TinyCpuidRegisters registers = Everything(6);
    const TinyCpuFeatures features = Decoded(registers);
    EXPECT_EQ(features.avx(), 1);
    EXPECT_EQ(features.avx2(), 0);
    registers.highestLeaf = 7;
    registers.leaf7Ebx = ~(1u << 5);
    EXPECT_EQ(Decoded(registers).avx2(), 0);
}

TEST(CpuFeaturesTest, DecodeStartsFromClearFlags) {
    TinyCpuFeatures features;
    features.Decode(Everything(7));
    features.Decode(Everything(0));
    EXPECT_EQ(FlagCount(features), 0);
}

TEST(CpuFeaturesTest, DetectHasTheBaselineOfEverySixtyFourBitProcessor) {
    TinyCpuFeatures features;
    features.Detect();
    EXPECT_EQ(features.mmx(), 1);
    EXPECT_EQ(features.sse(), 1);
    EXPECT_EQ(features.sse2(), 1);
}

TEST(CpuFeaturesTest, DetectAgreesWithTheSystemsProcessorFeatures) {
    TinyCpuFeatures features;
    features.Detect();
    EXPECT_EQ(features.mmx(), IsProcessorFeaturePresent(PF_MMX_INSTRUCTIONS_AVAILABLE));
    EXPECT_EQ(features.sse(), IsProcessorFeaturePresent(PF_XMMI_INSTRUCTIONS_AVAILABLE));
    EXPECT_EQ(features.sse2(), IsProcessorFeaturePresent(PF_XMMI64_INSTRUCTIONS_AVAILABLE));
    EXPECT_EQ(features.sse3(), IsProcessorFeaturePresent(PF_SSE3_INSTRUCTIONS_AVAILABLE));
    EXPECT_EQ(features.ssse3(), IsProcessorFeaturePresent(kFeatureSsse3));
    EXPECT_EQ(features.sse41(), IsProcessorFeaturePresent(kFeatureSse41));
    EXPECT_EQ(features.sse42(), IsProcessorFeaturePresent(kFeatureSse42));
    EXPECT_EQ(features.avx(), IsProcessorFeaturePresent(kFeatureAvx));
    EXPECT_EQ(features.avx2(), IsProcessorFeaturePresent(kFeatureAvx2));
}

TEST(CpuFeaturesTest, ReadRegistersReportsTheProcessorsLeaves) {
    const TinyCpuidRegisters registers = TinyCpuFeatures::ReadRegisters();
    unsigned eax = 0;
    unsigned ebx = 0;
    unsigned ecx = 0;
    unsigned edx = 0;
    ASSERT_TRUE(__get_cpuid(1, &eax, &ebx, &ecx, &edx));
    EXPECT_EQ(registers.highestLeaf, __get_cpuid_max(0, nullptr));
    EXPECT_EQ(registers.leaf1Ecx, ecx);
    EXPECT_EQ(registers.leaf1Edx, edx);
}

TEST(CpuFeaturesTest, StaticFlagsFollowTheProcessorBitsAlone) {
    const TinyCpuidRegisters registers = TinyCpuFeatures::ReadRegisters();
    EXPECT_EQ(TinyFramework::g_hasSse41, static_cast<int32_t>((registers.leaf1Ecx >> 19) & 1));
    EXPECT_EQ(TinyFramework::g_hasAvx2,
              registers.highestLeaf >= 7 ? static_cast<int32_t>((registers.leaf7Ebx >> 5) & 1) : 0);
}

}  // namespace
