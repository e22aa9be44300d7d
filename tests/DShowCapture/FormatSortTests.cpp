#include "DShowCapture/FormatSort.h"
#include "DShowCapture/VideoCapture.h"
#include "DShowCapture/VideoFormat.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

using namespace DShow;

namespace {

VideoFormat Mode(int format, int32_t cx, int32_t cy) {
    return VideoFormat(TinySize(cx, cy), 30.0f, static_cast<VideoPixelFormat>(format));
}

std::string Describe(const std::vector<VideoFormat>& formats) {
    std::string text;
    for (const VideoFormat& format : formats) {
        text += std::to_string(format.format) + ":" + std::to_string(format.size.cx) + "x" +
                std::to_string(format.size.cy) + " ";
    }
    return text;
}

bool SameOrder(const std::vector<VideoFormat>& a, const std::vector<VideoFormat>& b) {
    return Describe(a) == Describe(b);
}

// A second, index-based transcription of the platform library's sort, written apart from the
// one under test and fully recursive, to check it against on inputs too large to follow by
// hand. The output does not depend on the order in which disjoint ranges are finished.
class ReferenceSort {
public:
    explicit ReferenceSort(std::vector<VideoFormat>& v) : m_v(v) {}

    void Sort() { Run(0, static_cast<long>(m_v.size()), static_cast<long>(m_v.size())); }
    void HeapSortAll() { HeapSort(0, static_cast<long>(m_v.size())); }

private:
    bool Lt(long a, long b) const { return FormatLess(m_v[a], m_v[b]); }
    void Swap(long a, long b) { std::swap(m_v[a], m_v[b]); }

    void Run(long lo, long hi, long ideal) {
        if (hi - lo <= 32) {
            Insertion(lo, hi);
            return;
        }
        if (ideal <= 0) {
            HeapSort(lo, hi);
            return;
        }
        const std::pair<long, long> mid = Partition(lo, hi);
        ideal = (ideal >> 1) + (ideal >> 2);
        Run(lo, mid.first, ideal);
        Run(mid.second, hi, ideal);
    }

    void Insertion(long lo, long hi) {
        for (long i = lo + 1; i < hi; ++i) {
            const VideoFormat value = m_v[i];
            if (FormatLess(value, m_v[lo])) {
                for (long k = i; k > lo; --k) {
                    m_v[k] = m_v[k - 1];
                }
                m_v[lo] = value;
            } else {
                long hole = i;
                while (FormatLess(value, m_v[hole - 1])) {
                    m_v[hole] = m_v[hole - 1];
                    --hole;
                }
                m_v[hole] = value;
            }
        }
    }

    void Med3(long a, long b, long c) {
        if (Lt(b, a)) Swap(b, a);
        if (Lt(c, b)) {
            Swap(c, b);
            if (Lt(b, a)) Swap(b, a);
        }
    }

    std::pair<long, long> Partition(long lo, long hi) {
        const long mid = lo + ((hi - lo) >> 1);
        const long last = hi - 1;
        const long count = last - lo;
        if (count > 40) {
            const long step = (count + 1) >> 3;
            Med3(lo, lo + step, lo + 2 * step);
            Med3(mid - step, mid, mid + step);
            Med3(last - 2 * step, last - step, last);
            Med3(lo + step, mid, last - step);
        } else {
            Med3(lo, mid, last);
        }
        long pf = mid, pl = mid + 1;
        while (lo < pf && !Lt(pf - 1, pf) && !Lt(pf, pf - 1)) --pf;
        while (pl < hi && !Lt(pl, pf) && !Lt(pf, pl)) ++pl;
        long gf = pl, gl = pf;
        for (;;) {
            for (; gf < hi; ++gf) {
                if (Lt(pf, gf)) continue;
                if (Lt(gf, pf)) break;
                if (pl != gf) Swap(pl, gf);
                ++pl;
            }
            for (; lo < gl; --gl) {
                if (Lt(gl - 1, pf)) continue;
                if (Lt(pf, gl - 1)) break;
                --pf;
                if (pf != gl - 1) Swap(pf, gl - 1);
            }
            if (gl == lo && gf == hi) return {pf, pl};
            if (gl == lo) {
                if (pl != gf) Swap(pf, pl);
                ++pl;
                Swap(pf, gf);
                ++pf;
                ++gf;
            } else if (gf == hi) {
                --gl;
                --pf;
                if (gl != pf) Swap(gl, pf);
                --pl;
                Swap(pf, pl);
            } else {
                --gl;
                Swap(gf, gl);
                ++gf;
            }
        }
    }

    // Heap of [lo, lo + n): index arithmetic relative to lo.
    void SiftUp(long lo, long hole, long top, const VideoFormat& value) {
        long parent = (hole - 1) >> 1;
        while (top < hole && FormatLess(m_v[lo + parent], value)) {
            m_v[lo + hole] = m_v[lo + parent];
            hole = parent;
            parent = (hole - 1) >> 1;
        }
        m_v[lo + hole] = value;
    }

    void Adjust(long lo, long hole, long bottom, const VideoFormat& value) {
        const long top = hole;
        long idx = hole;
        const long maxNonLeaf = (bottom - 1) >> 1;
        while (idx < maxNonLeaf) {
            idx = 2 * idx + 2;
            if (Lt(lo + idx, lo + idx - 1)) --idx;
            m_v[lo + hole] = m_v[lo + idx];
            hole = idx;
        }
        if (idx == maxNonLeaf && bottom % 2 == 0) {
            m_v[lo + hole] = m_v[lo + bottom - 1];
            hole = bottom - 1;
        }
        SiftUp(lo, hole, top, value);
    }

    void HeapSort(long lo, long hi) {
        const long n = hi - lo;
        for (long hole = n >> 1; hole > 0;) {
            --hole;
            const VideoFormat value = m_v[lo + hole];
            Adjust(lo, hole, n, value);
        }
        for (long end = n; end >= 2; --end) {
            const VideoFormat value = m_v[lo + end - 1];
            m_v[lo + end - 1] = m_v[lo];
            Adjust(lo, 0, end - 1, value);
        }
    }

    std::vector<VideoFormat>& m_v;
};

// Deterministic mixed lists: a few pixel formats, sizes from a small grid so that equal,
// crossing and nested sizes all occur.
std::vector<VideoFormat> MixedList(uint32_t seed, size_t count, int formats) {
    uint32_t state = seed * 2654435761u + 12345u;
    auto next = [&state](uint32_t range) {
        state = state * 1664525u + 1013904223u;
        return (state >> 8) % range;
    };
    static const int32_t widths[] = {160, 320, 352, 640, 800, 1280, 1920};
    static const int32_t heights[] = {120, 240, 288, 480, 600, 720, 1080};
    std::vector<VideoFormat> list;
    for (size_t i = 0; i < count; ++i) {
        const int format = formats == 1 ? 6 : static_cast<int>(next(formats)) + 1;
        list.push_back(Mode(format, widths[next(7)], heights[next(7)]));
    }
    return list;
}

std::vector<VideoFormat> PlatformSorted(std::vector<VideoFormat> list) {
    SortFormats(list);
    return list;
}

std::vector<VideoFormat> ReferenceSorted(std::vector<VideoFormat> list) {
    ReferenceSort(list).Sort();
    return list;
}

// Same format, width growing while height shrinks: no record is less than another.
std::vector<VideoFormat> Antichain(size_t count) {
    std::vector<VideoFormat> list;
    for (size_t i = 0; i < count; ++i) {
        list.push_back(Mode(6, 100 + static_cast<int32_t>(i), 1000 - static_cast<int32_t>(i)));
    }
    return list;
}

}  // namespace

TEST(PlatformSort, EmptyAndSingle) {
    std::vector<VideoFormat> empty;
    SortFormats(empty);
    EXPECT_TRUE(empty.empty());
    std::vector<VideoFormat> one = {Mode(6, 640, 480)};
    SortFormats(one);
    EXPECT_EQ(one[0].size.cx, 640);
}

TEST(PlatformSort, UsualLadderComesOutAscending) {
    std::vector<VideoFormat> list = {Mode(6, 1280, 720), Mode(6, 320, 240), Mode(6, 1920, 1080),
                                     Mode(6, 640, 480), Mode(6, 160, 120)};
    SortFormats(list);
    EXPECT_EQ(Describe(list), "6:160x120 6:320x240 6:640x480 6:1280x720 6:1920x1080 ");
}

TEST(PlatformSort, InsertionComparesWithTheFrontFirst) {
    // 320x240 is not less than its predecessor (another format) but less than the front record,
    // so it jumps to the very front. A plain backward walk would leave it last.
    std::vector<VideoFormat> list = {Mode(6, 640, 480), Mode(13, 100, 100), Mode(6, 320, 240)};
    SortFormats(list);
    EXPECT_EQ(Describe(list), "6:320x240 6:640x480 13:100x100 ");
}

TEST(PlatformSort, InsertionStopsAtFirstPredecessorNotGreater) {
    // 160x120 walks back past 640x480 and stops behind the MJPEG record, although 320x240
    // further back is greater than it.
    std::vector<VideoFormat> list = {Mode(6, 100, 900), Mode(6, 320, 240), Mode(13, 50, 50),
                                     Mode(6, 640, 480), Mode(6, 160, 120)};
    SortFormats(list);
    EXPECT_EQ(Describe(list), "6:100x900 6:320x240 13:50x50 6:160x120 6:640x480 ");
}

TEST(PlatformSort, AntichainIsLeftAsItIsAtEveryLength) {
    // Every record is equivalent to the pivot, so the first partition takes the whole range
    // as its pivot block and nothing moves; up to 32 the insertion sort moves nothing either.
    for (size_t count : {5u, 32u, 33u, 41u, 42u, 100u}) {
        const std::vector<VideoFormat> list = Antichain(count);
        EXPECT_TRUE(SameOrder(PlatformSorted(list), list)) << count;
    }
}

TEST(PlatformSort, MatchesReferenceAboveInsertionThreshold) {
    // 33..41 records: one median of three; 42 and more: the ninther.
    for (size_t count : {33u, 36u, 41u, 42u, 43u, 50u, 64u, 65u, 100u, 257u}) {
        for (uint32_t seed = 1; seed <= 25; ++seed) {
            for (int formats : {1, 2, 4}) {
                const std::vector<VideoFormat> list = MixedList(seed, count, formats);
                ASSERT_EQ(Describe(PlatformSorted(list)), Describe(ReferenceSorted(list)))
                    << "count " << count << " seed " << seed << " formats " << formats;
            }
        }
    }
}

TEST(PlatformSort, MatchesReferenceBelowInsertionThreshold) {
    for (size_t count = 0; count <= 32; ++count) {
        for (uint32_t seed = 1; seed <= 10; ++seed) {
            const std::vector<VideoFormat> list = MixedList(seed, count, 3);
            ASSERT_EQ(Describe(PlatformSorted(list)), Describe(ReferenceSorted(list)))
                << "count " << count << " seed " << seed;
        }
    }
}

TEST(PlatformSort, HeapSortStepMatchesReference) {
    // A budget of zero sends a range above 32 records straight to heap sort.
    for (size_t count : {33u, 34u, 48u, 77u}) {
        for (uint32_t seed = 1; seed <= 10; ++seed) {
            std::vector<VideoFormat> sorted = MixedList(seed, count, 2);
            std::vector<VideoFormat> expected = sorted;
            PlatformSortSteps::SortWithBudget(sorted.begin(), sorted.end(), 0, FormatLess);
            ReferenceSort(expected).HeapSortAll();
            ASSERT_EQ(Describe(sorted), Describe(expected)) << count << " " << seed;
        }
    }
}

TEST(PlatformSort, HeapSortOfALadderIsAscending) {
    std::vector<VideoFormat> list;
    for (int i = 40; i > 0; --i) {
        list.push_back(Mode(6, i * 10, i * 10));
    }
    PlatformSortSteps::SortWithBudget(list.begin(), list.end(), 0, FormatLess);
    for (size_t i = 1; i < list.size(); ++i) {
        EXPECT_TRUE(FormatLess(list[i - 1], list[i])) << i;
    }
}

TEST(PlatformSort, SortsAStrictWeakOrderCorrectly) {
    uint32_t state = 7;
    for (size_t count : {0u, 1u, 2u, 31u, 32u, 33u, 41u, 42u, 200u, 1000u}) {
        std::vector<int> values;
        for (size_t i = 0; i < count; ++i) {
            state = state * 1664525u + 1013904223u;
            values.push_back(static_cast<int>((state >> 8) % 50));
        }
        std::vector<int> expected = values;
        std::sort(expected.begin(), expected.end());
        PlatformSort(values.begin(), values.end(), [](int a, int b) { return a < b; });
        EXPECT_EQ(values, expected) << count;
    }
}
