// The framework's copies against the C library's memcpy, measured in the same run on the same
// buffers: ParallelMemcpy, ParallelStreamCopy and StreamCopy16 on 64 KiB, 1 MiB, one 1080p YUY2
// frame and 32 MiB; and CopyImageRows with flip against a plain loop of one memcpy per row.
// Prints GB/s (10^9 bytes per second; the median of several rounds) and the ratio to the
// baseline. Both buffers are ordinary write-back memory, 64-byte aligned, touched before timing.
// Argument: rounds per figure (default 9).
#include "TinyFramework/Common/TinyCpuFeatures.h"
#include "TinyFramework/Common/TinyMemoryCopy.h"
#include "bench/BenchClock.h"

#include <windows.h>

#include <malloc.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <cwchar>
#include <vector>

namespace {

using TinyFramework::TinyCopyFunction;

// Each round copies at least this much, so that a round of small copies lasts long enough to
// time, and at least this many times.
constexpr double kBytesPerRound = 1024.0 * 1024 * 1024;
constexpr int kMinCopiesPerRound = 4;
constexpr size_t kAlignment = 64;

struct AlignedBuffer {
    explicit AlignedBuffer(size_t size)
        : data(static_cast<BYTE*>(_aligned_malloc(size, kAlignment))), size(size) {
        if (data != nullptr) {
            for (size_t index = 0; index < size; ++index) {
                data[index] = static_cast<BYTE>(index * 7 + 3);
            }
        }
    }
    ~AlignedBuffer() { _aligned_free(data); }
    AlignedBuffer(const AlignedBuffer&) = delete;
    AlignedBuffer& operator=(const AlignedBuffer&) = delete;

    BYTE* data;
    size_t size;
};

void* PlainMemcpy(void* dst, const void* src, size_t size) {
    return std::memcpy(dst, src, size);
}

double Median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

int CopiesPerRound(size_t bytes) {
    return std::max(kMinCopiesPerRound, static_cast<int>(kBytesPerRound / bytes));
}

// GB/s of one round of `copies` calls of `work`.
template <typename Work>
double Round(size_t bytes, int copies, Work work) {
    const double start = NowMs();
    for (int index = 0; index < copies; ++index) {
        work();
    }
    const double seconds = (NowMs() - start) / 1000.0;
    return static_cast<double>(bytes) * copies / seconds / 1e9;
}

struct Contender {
    const char* name;
    TinyCopyFunction copy;
};

void MeasureCopies(size_t size, const char* label, int rounds) {
    AlignedBuffer source(size);
    AlignedBuffer target(size);
    if (source.data == nullptr || target.data == nullptr) {
        printf("%-12s could not allocate the buffers\n", label);
        return;
    }
    const Contender contenders[] = {
        {"memcpy", &PlainMemcpy},
        {"ParallelMemcpy", &TinyFramework::ParallelMemcpy},
        {"ParallelStreamCopy", &TinyFramework::ParallelStreamCopy},
        {"StreamCopy16", &TinyFramework::StreamCopy16},
    };
    constexpr size_t kCount = sizeof(contenders) / sizeof(contenders[0]);
    std::vector<double> samples[kCount];
    const int copies = CopiesPerRound(size);
    // Rounds interleave the contenders, so that a busy moment of the machine hits them alike.
    for (int round = 0; round <= rounds; ++round) {
        for (size_t index = 0; index < kCount; ++index) {
            const TinyCopyFunction copy = contenders[index].copy;
            const double rate =
                Round(size, copies, [&] { copy(target.data, source.data, source.size); });
            if (round > 0) {  // the first round only warms caches, pages and the thread pool
                samples[index].push_back(rate);
            }
        }
    }
    const double baseline = Median(samples[0]);
    for (size_t index = 0; index < kCount; ++index) {
        const double rate = Median(samples[index]);
        printf("%-12s %-20s %8.2f GB/s %7.2fx\n", label, contenders[index].name, rate,
               rate / baseline);
    }
}

void PlainFlippedRows(BYTE* dst, uint32_t pitch, const BYTE* src, uint32_t height) {
    for (uint32_t row = 0; row < height; ++row) {
        std::memcpy(dst + static_cast<size_t>(row) * pitch,
                    src + static_cast<size_t>(height - 1 - row) * pitch, pitch);
    }
}

void MeasureRows(uint32_t width, uint32_t height, int rounds) {
    const uint32_t pitch = width * 2;  // YUY2: two bytes a pixel
    const size_t size = static_cast<size_t>(pitch) * height;
    AlignedBuffer source(size);
    AlignedBuffer target(size);
    if (source.data == nullptr || target.data == nullptr) {
        printf("rows         could not allocate the buffers\n");
        return;
    }
    const int copies = CopiesPerRound(size);
    std::vector<double> loop;
    std::vector<double> rows;
    std::vector<double> whole;
    for (int round = 0; round <= rounds; ++round) {
        const double loopRate =
            Round(size, copies, [&] { PlainFlippedRows(target.data, pitch, source.data, height); });
        const double rowsRate = Round(size, copies, [&] {
            TinyFramework::CopyImageRows(target.data, pitch, height, source.data, pitch, height,
                                         TRUE);
        });
        const double wholeRate =
            Round(size, copies, [&] { std::memcpy(target.data, source.data, size); });
        if (round > 0) {
            loop.push_back(loopRate);
            rows.push_back(rowsRate);
            whole.push_back(wholeRate);
        }
    }
    char label[32];
    snprintf(label, sizeof(label), "%ux%u", width, height);
    const double baseline = Median(loop);
    printf("%-12s %-20s %8.2f GB/s %7.2fx\n", label, "row loop (flip)", baseline, 1.0);
    printf("%-12s %-20s %8.2f GB/s %7.2fx\n", label, "CopyImageRows flip", Median(rows),
           Median(rows) / baseline);
    printf("%-12s %-20s %8.2f GB/s %7.2fx\n", label, "memcpy (no flip)", Median(whole),
           Median(whole) / baseline);
}

}  // namespace

int wmain(int argc, wchar_t** argv) {
    const int rounds = argc > 1 ? std::max(3, _wtoi(argv[1])) : 9;
    printf("CopyBench: SSE4.1 %d, AVX2 %d, %d rounds per figure, median shown\n",
           TinyFramework::g_hasSse41, TinyFramework::g_hasAvx2, rounds);
    printf("%-12s %-20s %13s %8s\n", "size", "copy", "rate", "vs memcpy");
    MeasureCopies(64 * 1024, "64 KiB", rounds);
    MeasureCopies(1024 * 1024, "1 MiB", rounds);
    MeasureCopies(1920 * 2 * 1080, "1080p YUY2", rounds);
    MeasureCopies(32 * 1024 * 1024, "32 MiB", rounds);
    printf("\n%-12s %-20s %13s %8s\n", "frame", "copy", "rate", "vs loop");
    MeasureRows(1280, 720, rounds);
    MeasureRows(1920, 1080, rounds);
    return 0;
}
