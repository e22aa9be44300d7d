#include "TinyFramework/Common/TinyCpuFeatures.h"
#include "TinyFramework/Common/TinyMemoryCopy.h"
#include "tests/support/TestDeadlines.h"

#include <gtest/gtest.h>

#include <windows.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <mutex>
#include <string>
#include <vector>

namespace {

using TinyFramework::CopyImageRows;
using TinyFramework::ParallelCopy;
using TinyFramework::ParallelMemcpy;
using TinyFramework::ParallelStreamCopy;
using TinyFramework::StreamCopy16;
using TinyFramework::StreamCopy32;
using TinyFramework::TinyCopyFunction;

// Only ends a hang: a healthy run waits milliseconds.
constexpr DWORD kDeadlineMs = TestSupport::kGenerousDeadlineMs;

constexpr size_t kAlignment = 64;
constexpr size_t kGuardBytes = 64;
constexpr BYTE kGuardFill = 0xEE;
constexpr size_t kFullHdYuy2Frame = 1920 * 2 * 1080;

const size_t kSmallSizes[] = {0,  1,  2,  15, 16,  17,  31,  32,  33,  47,
                              48, 63, 64, 65, 127, 128, 129, 255, 256, 257};
const size_t kLargeSizes[] = {0x3FFFF, 0x40000,          0x40001,
                              0x40050, kFullHdYuy2Frame, kFullHdYuy2Frame + 13};
const size_t kLargeOffsets[][2] = {{0, 0},  {0, 1},  {1, 0},   {15, 17}, {16, 16},
                                   {16, 0}, {0, 16}, {31, 31}, {17, 15}, {8, 24}};

// Bytes that differ along the whole buffer, so a block copied to the wrong place shows.
void FillPattern(BYTE* data, size_t size, uint32_t seed) {
    uint32_t state = seed * 2654435761u + 1;
    for (size_t index = 0; index < size; ++index) {
        state = state * 1664525u + 1013904223u;
        data[index] = static_cast<BYTE>(state >> 24);
    }
}

// A buffer whose data starts `offset` bytes past a 64-byte boundary, with guard bytes around it
// that a copy must leave alone.
class GuardedBuffer {
public:
    explicit GuardedBuffer(size_t capacity)
        : m_storage(capacity + 32 + 2 * kGuardBytes + kAlignment), m_data(nullptr), m_size(0) {}

    BYTE* Place(size_t offset, size_t size) {
        const uintptr_t raw = reinterpret_cast<uintptr_t>(m_storage.data());
        BYTE* aligned = reinterpret_cast<BYTE*>((raw + kAlignment - 1) & ~(kAlignment - 1));
        m_data = aligned + kGuardBytes + offset;
        m_size = size;
        std::fill(m_storage.begin(), m_storage.end(), kGuardFill);
        return m_data;
    }

    bool GuardsIntact() const {
        const BYTE* begin = m_storage.data();
        const BYTE* end = begin + m_storage.size();
        const BYTE* data = m_data;
        return std::all_of(begin, data, [](BYTE b) { return b == kGuardFill; }) &&
               std::all_of(data + m_size, end, [](BYTE b) { return b == kGuardFill; });
    }

private:
    std::vector<BYTE> m_storage;
    BYTE* m_data;
    size_t m_size;
};

// Copies `size` bytes from a source at `srcOffset` to a destination at `dstOffset` (each past a
// 64-byte boundary) and says what went wrong, or nothing.
std::string CheckCopy(TinyCopyFunction copy, GuardedBuffer& source, GuardedBuffer& target,
                      size_t size, size_t srcOffset, size_t dstOffset) {
    BYTE* src = source.Place(srcOffset, size);
    FillPattern(src, size, static_cast<uint32_t>(size + srcOffset * 33 + dstOffset));
    BYTE* dst = target.Place(dstOffset, size);
    void* result = copy(dst, src, size);
    std::string failure;
    if (result != dst) {
        failure += " returned another pointer;";
    }
    if (std::memcmp(dst, src, size) != 0) {
        failure += " bytes differ;";
    }
    if (!target.GuardsIntact()) {
        failure += " wrote outside the destination;";
    }
    if (!failure.empty()) {
        failure = "size " + std::to_string(size) + " src+" + std::to_string(srcOffset) + " dst+" +
                  std::to_string(dstOffset) + ":" + failure;
    }
    return failure;
}

void ExpectSmallCopiesMatch(TinyCopyFunction copy) {
    GuardedBuffer source(512);
    GuardedBuffer target(512);
    int failures = 0;
    for (size_t size : kSmallSizes) {
        for (size_t srcOffset = 0; srcOffset < 32; ++srcOffset) {
            for (size_t dstOffset = 0; dstOffset < 32 && failures < 10; ++dstOffset) {
                const std::string failure =
                    CheckCopy(copy, source, target, size, srcOffset, dstOffset);
                if (!failure.empty()) {
                    ADD_FAILURE() << failure;
                    ++failures;
                }
            }
        }
    }
}

void ExpectLargeCopiesMatch(TinyCopyFunction copy) {
    GuardedBuffer source(kFullHdYuy2Frame + 64);
    GuardedBuffer target(kFullHdYuy2Frame + 64);
    for (size_t size : kLargeSizes) {
        for (const auto& offsets : kLargeOffsets) {
            EXPECT_EQ(CheckCopy(copy, source, target, size, offsets[0], offsets[1]), "");
        }
    }
}

bool HasAvx2() {
    return TinyFramework::g_hasAvx2 != 0;
}

// ---- StreamCopy16 / StreamCopy32
// -----------------------------------------------------------------

TEST(StreamCopyTest, StreamCopy16WithAnUnalignedPointerGivesMemcpysBytes) {
    GuardedBuffer source(4096);
    GuardedBuffer target(4096);
    GuardedBuffer expected(4096);
    BYTE* src = source.Place(3, 4000);
    FillPattern(src, 4000, 1);
    BYTE* reference = expected.Place(5, 4000);
    std::memcpy(reference, src, 4000);
    BYTE* dst = target.Place(5, 4000);
    EXPECT_EQ(StreamCopy16(dst, src, 4000), dst);
    EXPECT_EQ(std::memcmp(dst, reference, 4000), 0);
    EXPECT_TRUE(target.GuardsIntact());
}

TEST(StreamCopyTest, StreamCopy16WithNullPointersGivesNull) {
    BYTE buffer[16] = {};
    EXPECT_EQ(StreamCopy16(nullptr, buffer, sizeof(buffer)), nullptr);
    EXPECT_EQ(StreamCopy16(buffer, nullptr, sizeof(buffer)), nullptr);
}

TEST(StreamCopyTest, StreamCopy32WithNullPointersGivesNull) {
    BYTE buffer[32] = {};
    EXPECT_EQ(StreamCopy32(nullptr, buffer, sizeof(buffer)), nullptr);
    EXPECT_EQ(StreamCopy32(buffer, nullptr, sizeof(buffer)), nullptr);
}

TEST(StreamCopyTest, StreamCopy16MatchesMemcpyForSmallSizesAtEveryOffset) {
    ExpectSmallCopiesMatch(&StreamCopy16);
}

TEST(StreamCopyTest, StreamCopy16MatchesMemcpyForLargeSizes) {
    ExpectLargeCopiesMatch(&StreamCopy16);
}

// StreamCopy32's aligned path runs 256-bit loads: a processor without AVX2 cannot run it.
TEST(StreamCopyTest, StreamCopy32MatchesMemcpyForSmallSizesAtEveryOffset) {
    if (!HasAvx2()) {
        GTEST_SKIP() << "this processor has no AVX2";
    }
    ExpectSmallCopiesMatch(&StreamCopy32);
}

TEST(StreamCopyTest, StreamCopy32MatchesMemcpyForLargeSizes) {
    if (!HasAvx2()) {
        GTEST_SKIP() << "this processor has no AVX2";
    }
    ExpectLargeCopiesMatch(&StreamCopy32);
}

// ---- ParallelCopy
// --------------------------------------------------------------------------------

struct CopyCall {
    size_t dstOffset;
    size_t srcOffset;
    size_t size;
    DWORD threadId;
};

// A copy function that records each call it gets, from any thread, and copies.
struct CopyRecorder {
    std::mutex lock;
    const BYTE* dstBase = nullptr;
    const BYTE* srcBase = nullptr;
    std::vector<CopyCall> calls;
    void* answer = nullptr;  // what a call returns; null: its destination

    void Start(const void* dst, const void* src) {
        std::lock_guard<std::mutex> hold(lock);
        dstBase = static_cast<const BYTE*>(dst);
        srcBase = static_cast<const BYTE*>(src);
        calls.clear();
        answer = nullptr;
    }

    std::vector<CopyCall> SortedCalls() {
        std::lock_guard<std::mutex> hold(lock);
        std::vector<CopyCall> sorted = calls;
        std::sort(sorted.begin(), sorted.end(),
                  [](const CopyCall& a, const CopyCall& b) { return a.dstOffset < b.dstOffset; });
        return sorted;
    }
};

CopyRecorder g_recorder;

void* RecordingCopy(void* dst, const void* src, size_t size) {
    std::memcpy(dst, src, size);
    std::lock_guard<std::mutex> hold(g_recorder.lock);
    g_recorder.calls.push_back(
        {static_cast<size_t>(static_cast<BYTE*>(dst) - g_recorder.dstBase),
         static_cast<size_t>(static_cast<const BYTE*>(src) - g_recorder.srcBase), size,
         GetCurrentThreadId()});
    return g_recorder.answer != nullptr ? g_recorder.answer : dst;
}

std::string Describe(const std::vector<CopyCall>& calls) {
    std::string text;
    char item[64];
    for (const CopyCall& call : calls) {
        snprintf(item, sizeof(item), "[0x%zX,0x%zX,0x%zX]", call.dstOffset, call.srcOffset,
                 call.size);
        text += item;
    }
    return text;
}

std::string RecordedParallelCopy(size_t size) {
    std::vector<BYTE> source(size, 0x5A);
    std::vector<BYTE> target(size, 0);
    g_recorder.Start(target.data(), source.data());
    EXPECT_EQ(ParallelCopy(target.data(), source.data(), size, &RecordingCopy), target.data());
    EXPECT_TRUE(target == source);
    return Describe(g_recorder.SortedCalls());
}

TEST(ParallelCopyTest, BelowTheThresholdMakesOneCall) {
    EXPECT_EQ(RecordedParallelCopy(0x3FFFF), "[0x0,0x0,0x3FFFF]");
}

TEST(ParallelCopyTest, BelowTheThresholdReturnsWhatTheCopyReturned) {
    BYTE source[64] = {1, 2, 3};
    BYTE target[64] = {};
    BYTE elsewhere = 0;
    g_recorder.Start(target, source);
    g_recorder.answer = &elsewhere;
    EXPECT_EQ(ParallelCopy(target, source, sizeof(source), &RecordingCopy), &elsewhere);
    g_recorder.answer = nullptr;
}

TEST(ParallelCopyTest, AtTheThresholdMakesTwoEqualHalves) {
    EXPECT_EQ(RecordedParallelCopy(0x40000), "[0x0,0x0,0x20000][0x20000,0x20000,0x20000]");
}

TEST(ParallelCopyTest, OddSizeSplitsAtTheHalfAndTheSecondHalfTakesTheRest) {
    EXPECT_EQ(RecordedParallelCopy(0x40001), "[0x0,0x0,0x20000][0x20000,0x20000,0x20001]");
}

TEST(ParallelCopyTest, SplitIsRoundedDownToAThirtyTwoByteBoundary) {
    // Half of 0x40050 is 0x20028; the halves meet at 0x20020.
    EXPECT_EQ(RecordedParallelCopy(0x40050), "[0x0,0x0,0x20020][0x20020,0x20020,0x20030]");
}

TEST(ParallelCopyTest, FullHdFrameSplitsInTwo) {
    EXPECT_EQ(RecordedParallelCopy(kFullHdYuy2Frame),
              "[0x0,0x0,0x1FA400][0x1FA400,0x1FA400,0x1FA400]");
}

TEST(ParallelCopyTest, NullPointersGiveNullWithoutACall) {
    BYTE buffer[64] = {};
    g_recorder.Start(buffer, buffer);
    EXPECT_EQ(ParallelCopy(nullptr, buffer, 0x40000, &RecordingCopy), nullptr);
    EXPECT_EQ(ParallelCopy(buffer, nullptr, 16, &RecordingCopy), nullptr);
    EXPECT_EQ(g_recorder.SortedCalls().size(), 0u);
}

TEST(ParallelCopyTest, FirstHalfRunsOnTheCallingThreadAndTheSecondOnAnother) {
    const size_t size = 0x40000;
    std::vector<BYTE> source(size, 1);
    std::vector<BYTE> target(size, 0);
    g_recorder.Start(target.data(), source.data());
    ParallelCopy(target.data(), source.data(), size, &RecordingCopy);
    const std::vector<CopyCall> calls = g_recorder.SortedCalls();
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_EQ(calls[0].threadId, GetCurrentThreadId());
    EXPECT_NE(calls[1].threadId, GetCurrentThreadId());
}

// Each half waits until the other has started: the copy only finishes if both run at once.
std::atomic<int> g_halvesStarted{0};
HANDLE g_bothHalvesStarted = nullptr;
std::atomic<int> g_halvesThatMet{0};

void* MeetingCopy(void* dst, const void* src, size_t size) {
    if (++g_halvesStarted == 2) {
        SetEvent(g_bothHalvesStarted);
    }
    if (WaitForSingleObject(g_bothHalvesStarted, kDeadlineMs) == WAIT_OBJECT_0) {
        ++g_halvesThatMet;
    }
    return std::memcpy(dst, src, size);
}

TEST(ParallelCopyTest, HalvesRunConcurrently) {
    g_bothHalvesStarted = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    ASSERT_NE(g_bothHalvesStarted, nullptr);
    g_halvesStarted = 0;
    g_halvesThatMet = 0;
    std::vector<BYTE> source(0x80000, 7);
    std::vector<BYTE> target(0x80000, 0);

    ParallelCopy(target.data(), source.data(), source.size(), &MeetingCopy);

    EXPECT_EQ(g_halvesThatMet, 2);
    EXPECT_TRUE(target == source);
    CloseHandle(g_bothHalvesStarted);
    g_bothHalvesStarted = nullptr;
}

TEST(ParallelCopyTest, ParallelMemcpyMatchesMemcpyForSmallSizesAtEveryOffset) {
    ExpectSmallCopiesMatch(&ParallelMemcpy);
}

TEST(ParallelCopyTest, ParallelMemcpyMatchesMemcpyForLargeSizes) {
    ExpectLargeCopiesMatch(&ParallelMemcpy);
}

TEST(ParallelCopyTest, ParallelStreamCopyMatchesMemcpyForSmallSizesAtEveryOffset) {
    ExpectSmallCopiesMatch(&ParallelStreamCopy);
}

TEST(ParallelCopyTest, ParallelStreamCopyMatchesMemcpyForLargeSizes) {
    ExpectLargeCopiesMatch(&ParallelStreamCopy);
}

// ---- CopyImageRows ---------------------------------------------------------------------------

// Rows of `pitch` bytes, each filled with its own letter: "AAA", "BBB", ...
std::string LetterRows(uint32_t pitch, uint32_t height) {
    std::string rows;
    for (uint32_t row = 0; row < height; ++row) {
        rows.append(pitch, static_cast<char>('A' + row));
    }
    return rows;
}

std::string CopyRows(const std::string& source, uint32_t srcPitch, uint32_t srcHeight,
                     uint32_t dstPitch, uint32_t dstHeight, BOOL flip) {
    std::string target(static_cast<size_t>(dstPitch) * dstHeight, '.');
    CopyImageRows(reinterpret_cast<BYTE*>(&target[0]), dstPitch, dstHeight,
                  reinterpret_cast<const BYTE*>(source.data()), srcPitch, srcHeight, flip);
    return target;
}

TEST(CopyImageRowsTest, SameShapeCopiesTheWholeImage) {
    EXPECT_EQ(CopyRows(LetterRows(3, 4), 3, 4, 3, 4, FALSE), "AAABBBCCCDDD");
}

TEST(CopyImageRowsTest, SameShapeWithFlipReversesTheRows) {
    EXPECT_EQ(CopyRows(LetterRows(3, 4), 3, 4, 3, 4, TRUE), "DDDCCCBBBAAA");
}

TEST(CopyImageRowsTest, SmallerDestinationHeightTakesTheFirstSourceRows) {
    EXPECT_EQ(CopyRows(LetterRows(3, 4), 3, 4, 3, 2, FALSE), "AAABBB");
}

TEST(CopyImageRowsTest, SmallerDestinationHeightWithFlipTakesTheLastSourceRowsUpsideDown) {
    EXPECT_EQ(CopyRows(LetterRows(3, 4), 3, 4, 3, 2, TRUE), "DDDCCC");
}

TEST(CopyImageRowsTest, LargerDestinationHeightLeavesTheRowsBelowAlone) {
    EXPECT_EQ(CopyRows(LetterRows(3, 2), 3, 2, 3, 4, FALSE), "AAABBB......");
    EXPECT_EQ(CopyRows(LetterRows(3, 2), 3, 2, 3, 4, TRUE), "BBBAAA......");
}

TEST(CopyImageRowsTest, WiderDestinationRowsKeepTheirPadding) {
    EXPECT_EQ(CopyRows(LetterRows(2, 3), 2, 3, 4, 3, FALSE), "AA..BB..CC..");
    EXPECT_EQ(CopyRows(LetterRows(2, 3), 2, 3, 4, 3, TRUE), "CC..BB..AA..");
}

TEST(CopyImageRowsTest, NarrowerDestinationRowsTakeTheStartOfEachSourceRow) {
    const std::string source = "abcdefghijkl";  // three rows of four
    EXPECT_EQ(CopyRows(source, 4, 3, 3, 3, FALSE), "abcefgijk");
    EXPECT_EQ(CopyRows(source, 4, 3, 3, 3, TRUE), "ijkefgabc");
}

TEST(CopyImageRowsTest, EmptySourceWritesNothing) {
    EXPECT_EQ(CopyRows("", 3, 0, 3, 2, TRUE), "......");
    EXPECT_EQ(CopyRows("", 3, 0, 3, 2, FALSE), "......");
}

// The rows copy as a plain loop over rows and bytes would copy them.
std::vector<BYTE> ReferenceRows(const std::vector<BYTE>& source, uint32_t srcPitch,
                                uint32_t srcHeight, uint32_t dstPitch, uint32_t dstHeight,
                                BOOL flip) {
    std::vector<BYTE> target(static_cast<size_t>(dstPitch) * dstHeight, kGuardFill);
    const uint32_t rows = std::min(srcHeight, dstHeight);
    const uint32_t width = std::min(srcPitch, dstPitch);
    for (uint32_t row = 0; row < rows; ++row) {
        const uint32_t sourceRow = flip ? srcHeight - 1 - row : row;
        for (uint32_t column = 0; column < width; ++column) {
            target[static_cast<size_t>(row) * dstPitch + column] =
                source[static_cast<size_t>(sourceRow) * srcPitch + column];
        }
    }
    return target;
}

void ExpectRowsLikeTheReference(uint32_t srcPitch, uint32_t srcHeight, uint32_t dstPitch,
                                uint32_t dstHeight, BOOL flip) {
    std::vector<BYTE> source(static_cast<size_t>(srcPitch) * srcHeight);
    FillPattern(source.data(), source.size(), srcPitch + srcHeight);
    std::vector<BYTE> target(static_cast<size_t>(dstPitch) * dstHeight, kGuardFill);
    CopyImageRows(target.data(), dstPitch, dstHeight, source.data(), srcPitch, srcHeight, flip);
    EXPECT_TRUE(target == ReferenceRows(source, srcPitch, srcHeight, dstPitch, dstHeight, flip))
        << "src " << srcPitch << "x" << srcHeight << " dst " << dstPitch << "x" << dstHeight
        << " flip " << flip;
}

TEST(CopyImageRowsTest, OddWidthsAndStridesMatchAPlainRowLoop) {
    const uint32_t pitches[] = {1, 3, 7, 17, 641 * 2, 1283};
    const uint32_t heights[] = {1, 2, 5, 33};
    for (uint32_t srcPitch : pitches) {
        for (uint32_t dstPitch : pitches) {
            for (uint32_t srcHeight : heights) {
                for (uint32_t dstHeight : heights) {
                    ExpectRowsLikeTheReference(srcPitch, srcHeight, dstPitch, dstHeight, FALSE);
                    ExpectRowsLikeTheReference(srcPitch, srcHeight, dstPitch, dstHeight, TRUE);
                }
            }
        }
    }
}

TEST(CopyImageRowsTest, FullHdYuy2FrameMatchesAPlainRowLoop) {
    ExpectRowsLikeTheReference(3840, 1080, 3840, 1080, FALSE);
    ExpectRowsLikeTheReference(3840, 1080, 3840, 1080, TRUE);
    ExpectRowsLikeTheReference(3840, 1080, 3842, 1079, TRUE);
}

}  // namespace
