// The client's own texts of system errors: whole, without the system's line end, and safe to make
// on many threads at once.
#include "TinyFramework/Common/TinyCore.h"
#include "client/SystemErrorText.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

namespace {

using QueryClient::DescribeFailure;
using QueryClient::SystemErrorText;

// A code with the customer bit set: the system has no text for it.
constexpr DWORD kCodeWithoutText = 0x20001234;

TEST(SystemErrorText, EndsWithoutTheSystemsLineEnd) {
    const std::string text = SystemErrorText(ERROR_FILE_NOT_FOUND);
    ASSERT_FALSE(text.empty());
    EXPECT_NE(text, "unknown error");
    EXPECT_EQ(text.find_first_of("\r\n"), std::string::npos) << text;
    EXPECT_NE(text.back(), ' ') << text;
}

TEST(SystemErrorText, CodeWithoutATextIsAnUnknownError) {
    EXPECT_EQ(SystemErrorText(kCodeWithoutText), "unknown error");
}

TEST(SystemErrorText, FailureNamesTheCallTheCodeAndTheText) {
    EXPECT_EQ(DescribeFailure("CreateEvent", ERROR_ACCESS_DENIED),
              "CreateEvent failed with error 5: " + SystemErrorText(ERROR_ACCESS_DENIED));
}

TEST(SystemErrorText, LeavesTheFrameworksSharedTextAlone) {
    const char* shared = TinyFramework::GetErrorText(ERROR_ACCESS_DENIED);
    const std::string before = shared;
    SystemErrorText(ERROR_FILE_NOT_FOUND);
    DescribeFailure("CreateProcess", ERROR_BAD_EXE_FORMAT);
    EXPECT_EQ(std::string(shared), before);
}

TEST(SystemErrorText, EachThreadGetsTheTextOfItsOwnCode) {
    const DWORD codes[] = {ERROR_FILE_NOT_FOUND, ERROR_ACCESS_DENIED, ERROR_BAD_EXE_FORMAT,
                           ERROR_PIPE_BUSY};
    std::vector<std::string> expected;
    for (DWORD code : codes) {
        expected.push_back(SystemErrorText(code));
    }
    constexpr int kRounds = 300;
    std::vector<int> mismatches(std::size(codes), 0);
    std::vector<std::thread> threads;
    for (size_t index = 0; index < std::size(codes); ++index) {
        threads.emplace_back([&, index] {
            for (int round = 0; round < kRounds; ++round) {
                if (SystemErrorText(codes[index]) != expected[index]) {
                    ++mismatches[index];
                }
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(mismatches, std::vector<int>(std::size(codes), 0));
}

}  // namespace
