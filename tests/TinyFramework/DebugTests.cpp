#include "TinyFramework/Common/TinyDebug.h"
#include "tests/support/LogCapture.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using TinyFramework::AdjustPrivilege;

constexpr DWORD kPrintException = 0x40010006;      // DBG_PRINTEXCEPTION_C
constexpr DWORD kWidePrintException = 0x4001000A;  // DBG_PRINTEXCEPTION_WIDE_C
constexpr DWORD kNoSuchPrivilege = 1313;           // ERROR_NO_SUCH_PRIVILEGE
constexpr DWORD kAccessDenied = 5;

// What reaches a debugger: OutputDebugString raises a print exception with the text's length
// and address, which a vectored handler sees before anybody else. Only the calling thread's
// texts are kept, so that output of other threads cannot mix in.
class DebugOutputCapture {
public:
    DebugOutputCapture() : m_thread(GetCurrentThreadId()) {
        s_current = this;
        m_handler = AddVectoredExceptionHandler(1, &DebugOutputCapture::Handler);
    }
    ~DebugOutputCapture() {
        RemoveVectoredExceptionHandler(m_handler);
        s_current = nullptr;
    }
    DebugOutputCapture(const DebugOutputCapture&) = delete;
    DebugOutputCapture& operator=(const DebugOutputCapture&) = delete;

    std::vector<std::string> Narrow() const { return m_narrow; }
    std::vector<std::wstring> Wide() const { return m_wide; }

private:
    static LONG CALLBACK Handler(EXCEPTION_POINTERS* pointers) {
        const EXCEPTION_RECORD* record = pointers->ExceptionRecord;
        DebugOutputCapture* capture = s_current;
        if (capture == nullptr || GetCurrentThreadId() != capture->m_thread) {
            return EXCEPTION_CONTINUE_SEARCH;
        }
        // The length counts the terminating null.
        if (record->ExceptionCode == kPrintException && record->NumberParameters >= 2) {
            const char* text = reinterpret_cast<const char*>(record->ExceptionInformation[1]);
            capture->m_narrow.emplace_back(text, record->ExceptionInformation[0] - 1);
        } else if (record->ExceptionCode == kWidePrintException && record->NumberParameters >= 2) {
            const wchar_t* text = reinterpret_cast<const wchar_t*>(record->ExceptionInformation[1]);
            capture->m_wide.emplace_back(text, record->ExceptionInformation[0] - 1);
        }
        return EXCEPTION_CONTINUE_SEARCH;
    }

    static DebugOutputCapture* s_current;
    DWORD m_thread;
    PVOID m_handler;
    std::vector<std::string> m_narrow;
    std::vector<std::wstring> m_wide;
};

DebugOutputCapture* DebugOutputCapture::s_current = nullptr;

std::string ThreadPrefix() {
    return "[" + std::to_string(GetCurrentThreadId()) + "] ";
}

// Whether the process's token has the privilege enabled.
bool IsPrivilegeEnabled(LPCWSTR name) {
    LUID luid = {};
    if (!LookupPrivilegeValueW(nullptr, name, &luid)) {
        return false;
    }
    HANDLE token = nullptr;
    if (!OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &token)) {
        return false;
    }
    DWORD size = 0;
    GetTokenInformation(token, TokenPrivileges, nullptr, 0, &size);
    std::vector<unsigned char> buffer(size);
    bool enabled = false;
    if (GetTokenInformation(token, TokenPrivileges, buffer.data(), size, &size)) {
        const TOKEN_PRIVILEGES* privileges =
            reinterpret_cast<const TOKEN_PRIVILEGES*>(buffer.data());
        for (DWORD index = 0; index < privileges->PrivilegeCount; ++index) {
            const LUID_AND_ATTRIBUTES& entry = privileges->Privileges[index];
            if (entry.Luid.LowPart == luid.LowPart && entry.Luid.HighPart == luid.HighPart) {
                enabled = (entry.Attributes & SE_PRIVILEGE_ENABLED) != 0;
            }
        }
    }
    CloseHandle(token);
    return enabled;
}

// Under Wine, OutputDebugStringW raises only the narrow print exception, with the text
// converted; Windows raises the wide one first and then, with no debugger attached, the narrow
// one as well. The narrow text is what both show.
TEST(TraceOutput, TraceAFormatsIntoOneDebuggerText) {
    DebugOutputCapture capture;
    TinyFramework::TraceA("value %d and %s", 42, "text");
    EXPECT_EQ(capture.Narrow(), std::vector<std::string>{"value 42 and text"});
}

TEST(TraceOutput, TraceAGrowsItsBufferForALongText) {
    const std::string text(10000, 'a');
    DebugOutputCapture capture;
    TinyFramework::TraceA("%s!", text.c_str());
    EXPECT_EQ(capture.Narrow(), std::vector<std::string>{text + "!"});
}

TEST(TraceOutput, TraceWFormatsIntoOneDebuggerText) {
    DebugOutputCapture capture;
    TinyFramework::TraceW(L"wide %d %ls", 7, L"word");
    EXPECT_EQ(capture.Narrow(), std::vector<std::string>{"wide 7 word"});
}

TEST(TraceOutput, TraceWKeepsGrowingItsBufferForLongerTexts) {
    const std::wstring shorter(3000, L'b');
    const std::wstring longer(20000, L'c');
    DebugOutputCapture capture;
    TinyFramework::TraceW(L"%ls", shorter.c_str());
    TinyFramework::TraceW(L"%ls.", longer.c_str());
    TinyFramework::TraceW(L"short");
    EXPECT_EQ(capture.Narrow(), (std::vector<std::string>{std::string(3000, 'b'),
                                                          std::string(20000, 'c') + ".", "short"}));
}

TEST(TraceOutput, TraceThreadAPrefixesTheThreadId) {
    DebugOutputCapture capture;
    TinyFramework::TraceThreadA("step %d", 3);
    EXPECT_EQ(capture.Narrow(), std::vector<std::string>{ThreadPrefix() + "step 3"});
}

TEST(TraceOutput, TraceThreadACutsTheTextAt4096Characters) {
    const std::string text(5000, 'x');
    DebugOutputCapture capture;
    TinyFramework::TraceThreadA("%s", text.c_str());
    const std::string expected = ThreadPrefix() + text;
    EXPECT_EQ(capture.Narrow(), std::vector<std::string>{expected.substr(0, 4096)});
}

TEST(TraceOutput, TraceThreadWPrefixesTheThreadIdAndCutsAt4096Characters) {
    const std::wstring text(5000, L'y');
    DebugOutputCapture capture;
    TinyFramework::TraceThreadW(L"%d:%ls", 5, L"w");
    TinyFramework::TraceThreadW(L"%ls", text.c_str());
    const std::string expected = ThreadPrefix() + std::string(5000, 'y');
    EXPECT_EQ(capture.Narrow(),
              (std::vector<std::string>{ThreadPrefix() + "5:w", expected.substr(0, 4096)}));
}

TEST(Privileges, AnUnknownPrivilegeNameIsLoggedWithItsError) {
    TestSupport::LogCapture log;
    HANDLE token = nullptr;
    ASSERT_TRUE(
        OpenProcessToken(GetCurrentProcess(), TOKEN_ADJUST_PRIVILEGES | TOKEN_QUERY, &token));
    EXPECT_FALSE(AdjustPrivilege(token, L"SeNoSuchPrivilege", TRUE));
    CloseHandle(token);
    EXPECT_EQ(log.Messages(), std::vector<std::string>{"Failed to LookupPrivilegeValue(" +
                                                       std::to_string(kNoSuchPrivilege) + ")"});
    EXPECT_NE(log.Records().at(0).find("TinyDebug.cpp("), std::string::npos);
}

TEST(Privileges, ATokenOpenedOnlyForQueriesCannotBeAdjusted) {
    TestSupport::LogCapture log;
    HANDLE token = nullptr;
    ASSERT_TRUE(OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &token));
    EXPECT_FALSE(AdjustPrivilege(token, L"SeDebugPrivilege", TRUE));
    CloseHandle(token);
    EXPECT_EQ(log.Messages(), std::vector<std::string>{"Failed to AdjustTokenPrivileges(" +
                                                       std::to_string(kAccessDenied) + ")"});
}

TEST(Privileges, TheDebugPrivilegeIsSwitchedOnAndOff) {
    const bool before = IsPrivilegeEnabled(L"SeDebugPrivilege");
    EXPECT_TRUE(TinyFramework::EnableDebugPrivilege(TRUE));
    EXPECT_TRUE(IsPrivilegeEnabled(L"SeDebugPrivilege"));
    EXPECT_TRUE(TinyFramework::EnableDebugPrivilege(FALSE));
    EXPECT_FALSE(IsPrivilegeEnabled(L"SeDebugPrivilege"));
    TinyFramework::EnableDebugPrivilege(before ? TRUE : FALSE);
}

TEST(Privileges, TheBasePriorityPrivilegeIsSwitchedOnAndOff) {
    const bool before = IsPrivilegeEnabled(L"SeIncreaseBasePriorityPrivilege");
    EXPECT_TRUE(TinyFramework::EnableBasePriorityPrivilege(TRUE));
    EXPECT_TRUE(IsPrivilegeEnabled(L"SeIncreaseBasePriorityPrivilege"));
    EXPECT_TRUE(TinyFramework::EnableBasePriorityPrivilege(FALSE));
    EXPECT_FALSE(IsPrivilegeEnabled(L"SeIncreaseBasePriorityPrivilege"));
    TinyFramework::EnableBasePriorityPrivilege(before ? TRUE : FALSE);
}

TEST(AppContainer, AnOrdinaryProcessIsNoAppContainer) {
    BOOL isAppContainer = 7;
    EXPECT_TRUE(TinyFramework::IsAppContainer(GetCurrentProcess(), &isAppContainer));
    EXPECT_EQ(isAppContainer, FALSE);
}

TEST(AppContainer, AProcessWhoseTokenCannotBeOpenedAnswersNo) {
    BOOL isAppContainer = 7;
    EXPECT_FALSE(TinyFramework::IsAppContainer(nullptr, &isAppContainer));
    EXPECT_EQ(isAppContainer, FALSE);
    EXPECT_EQ(TinyFramework::GetAppContainerSid(nullptr), nullptr);
}

TEST(AppContainer, AnOrdinaryProcessHasNoAppContainerSid) {
    EXPECT_EQ(TinyFramework::GetAppContainerSid(GetCurrentProcess()), nullptr);
}

}  // namespace
