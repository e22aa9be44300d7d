#include "TinyFramework/Common/TinyArray.h"
#include "TinyFramework/Common/TinyString.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

namespace {

using TinyFramework::TinyArray;
using TinyFramework::TinyStringW;

std::wstring Text(const TinyStringW& string) {
    return string.GetBuffer();
}

TEST(TinyStringWTest, NullTextGivesAnEmptyString) {
    const TinyStringW string(nullptr);
    EXPECT_TRUE(string.IsEmpty());
    EXPECT_EQ(string.GetSize(), 0u);
    EXPECT_STREQ(string.GetBuffer(), L"");
}

TEST(TinyStringWTest, SubstringClampsTheCount) {
    const TinyStringW string(L"abcdef");
    EXPECT_EQ(Text(string.Substring(2, 3)), L"cde");
    EXPECT_EQ(Text(string.Substring(4, 100)), L"ef");
    EXPECT_EQ(Text(string.Substring(0, 6)), L"abcdef");
}

TEST(TinyStringWTest, SubstringAtOrPastTheEndIsEmpty) {
    const TinyStringW string(L"abc");
    EXPECT_TRUE(string.Substring(3, 1).IsEmpty());
    EXPECT_TRUE(string.Substring(10, 1).IsEmpty());
}

TEST(TinyStringWTest, TrimRemovesOnlyTheGivenCharactersAtBothEnds) {
    TinyStringW string(L"  a b  ");
    EXPECT_EQ(Text(string.Trim(L" ")), L"a b");
    TinyStringW tabs(L"\t a \n");
    EXPECT_EQ(Text(tabs.Trim(L" ")), L"\t a \n");
}

TEST(TinyStringWTest, TrimOfNothingButTrimmedCharactersIsEmpty) {
    TinyStringW string(L"     ");
    EXPECT_TRUE(string.Trim(L" ").IsEmpty());
    EXPECT_STREQ(string.GetBuffer(), L"");
}

TEST(TinyStringWTest, CompareIsExactAndCaseSensitive) {
    const TinyStringW string(L"method");
    EXPECT_EQ(string.Compare(L"method"), 0);
    EXPECT_NE(string.Compare(L"Method"), 0);
    EXPECT_NE(string.Compare(L"metho"), 0);
    EXPECT_NE(string.Compare(L"methods"), 0);
    EXPECT_EQ(string.Compare(nullptr), -1);
    EXPECT_EQ(TinyStringW().Compare(L""), 0);
}

TEST(TinyStringWTest, GrowthTakesTheLargerOfRequestOr15AndHalfAgain) {
    TinyStringW string(L"abc");
    EXPECT_EQ(string.GetCapacity(), 15u);  // 3 | 15
    string.Append(std::wstring(13, L'x').c_str(), 13);
    EXPECT_EQ(string.GetCapacity(), 31u);  // 16 | 15 = 31 beats 15 * 1.5 = 22
    string.Append(std::wstring(16, L'y').c_str(), 16);
    EXPECT_EQ(string.GetCapacity(), 47u);  // 32 | 15 = 47 beats 31 * 1.5 = 46
    string.Append(std::wstring(16, L'z').c_str(), 16);
    EXPECT_EQ(string.GetCapacity(), 70u);  // 47 * 1.5 = 70 beats 48 | 15 = 63
}

TEST(TinyStringWTest, MoveLeavesTheSourceEmpty) {
    TinyStringW source(L"moved");
    TinyStringW target(std::move(source));
    EXPECT_EQ(Text(target), L"moved");
    EXPECT_TRUE(source.IsEmpty());  // NOLINT: the moved-from state is what is tested
}

TEST(TinyArrayTest, AddMovesInAndLeavesTheSourceEmpty) {
    TinyArray<TinyStringW> array;
    TinyStringW value(L"value");
    EXPECT_TRUE(array.Add(std::move(value)));
    EXPECT_TRUE(value.IsEmpty());  // NOLINT: the moved-from state is what is tested
    EXPECT_EQ(array.GetSize(), 1);
    EXPECT_EQ(Text(array[0]), L"value");
}

TEST(TinyArrayTest, CapacityGoesFromZeroToOneAndThenDoubles) {
    TinyArray<int> array;
    EXPECT_EQ(array.GetCapacity(), 0);
    const int expected[] = {1, 2, 4, 4, 8, 8, 8, 8, 16};
    for (int index = 0; index < 9; ++index) {
        ASSERT_TRUE(array.Add(int(index)));
        EXPECT_EQ(array.GetCapacity(), expected[index]) << index;
    }
    for (int index = 0; index < 9; ++index) {
        EXPECT_EQ(array[index], index);
    }
}

TEST(TinyArrayTest, IndexOutsideTheSizeThrowsInvalidIndex) {
    TinyArray<int> array;
    array.Add(1);
    try {
        array[1];
        FAIL() << "no exception";
    } catch (const std::out_of_range& error) {
        EXPECT_STREQ(error.what(), "invalid index");
    }
    EXPECT_THROW(array[-1], std::out_of_range);
}

TEST(TinyArrayTest, RefusesToGrowPastTheElementLimit) {
    // 2^26 one-byte elements fit; doubling again would pass the limit of 89478485 elements.
    TinyArray<char> array;
    constexpr int32_t kFull = 1 << 26;
    for (int32_t index = 0; index < kFull; ++index) {
        ASSERT_TRUE(array.Add(char(index & 0x7F)));
    }
    EXPECT_EQ(array.GetCapacity(), kFull);
    EXPECT_FALSE(array.Add('x'));
    EXPECT_EQ(array.GetSize(), kFull);
    EXPECT_EQ(array[kFull - 1], char((kFull - 1) & 0x7F));
}

TEST(TinyArrayTest, DestructorDestroysEveryElement) {
    static int destroyed = 0;
    struct Counted {
        Counted() = default;
        Counted(Counted&&) noexcept {}
        ~Counted() { ++destroyed; }
    };
    destroyed = 0;
    {
        TinyArray<Counted> array;
        for (int index = 0; index < 5; ++index) {
            array.Add(Counted());
        }
        destroyed = 0;  // temporaries and moved-from elements of the growth steps
    }
    EXPECT_EQ(destroyed, 5);
}

}  // namespace
