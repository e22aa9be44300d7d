#include "TinyFramework/Common/TinyCore.h"
#include "tests/TinyFramework/SyncTestSupport.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace {

using QueryClient::UniqueHandle;
using SyncTests::UniqueName;
using TinyFramework::InitUnicodeString;
using TinyFramework::SetLastStatus;
using TinyFramework::TinyEvent;
using TinyFramework::TinyObjectAttributes;

constexpr NTSTATUS kSuccess = 0;
constexpr NTSTATUS kInfoLengthMismatch = static_cast<NTSTATUS>(0xC0000004);
constexpr NTSTATUS kAccessDenied = static_cast<NTSTATUS>(0xC0000022);
constexpr NTSTATUS kObjectTypeMismatch = static_cast<NTSTATUS>(0xC0000024);
constexpr NTSTATUS kObjectNameNotFound = static_cast<NTSTATUS>(0xC0000034);

std::wstring GlobalPath(const std::wstring& name) {
    return L"\\BaseNamedObjects\\" + name;
}

std::wstring SessionPath(const std::wstring& name) {
    DWORD session = 0;
    ProcessIdToSessionId(GetCurrentProcessId(), &session);
    return L"\\Sessions\\" + std::to_wstring(session) + L"\\BaseNamedObjects\\" + name;
}

TEST(TinyNativeTest, ObjectAttributesHoldTheCountedPathAndNothingElse) {
    const wchar_t* path = L"\\BaseNamedObjects\\Example";
    TinyObjectAttributes attributes(path);
    const OBJECT_ATTRIBUTES* built = attributes.Get();
    EXPECT_EQ(built->Length, 48u);
    EXPECT_EQ(built->RootDirectory, nullptr);
    EXPECT_EQ(built->ObjectName, &attributes.Name());
    EXPECT_EQ(built->Attributes, 0u);
    EXPECT_EQ(built->SecurityDescriptor, nullptr);
    EXPECT_EQ(built->SecurityQualityOfService, nullptr);
    EXPECT_EQ(attributes.Name().Buffer, path);
    EXPECT_EQ(attributes.Name().Length, 2 * std::wcslen(path));
}

TEST(TinyNativeTest, InitUnicodeStringCountsBytesWithoutTheTerminator) {
    const wchar_t* text = L"abc";
    UNICODE_STRING counted = {};
    InitUnicodeString(&counted, text);
    EXPECT_EQ(counted.Length, 6);
    EXPECT_EQ(counted.MaximumLength, 8);
    EXPECT_EQ(counted.Buffer, text);
}

TEST(TinyNativeTest, InitUnicodeStringOfNullIsEmpty) {
    UNICODE_STRING counted = {7, 7, reinterpret_cast<PWSTR>(1)};
    InitUnicodeString(&counted, nullptr);
    EXPECT_EQ(counted.Length, 0);
    EXPECT_EQ(counted.MaximumLength, 0);
    EXPECT_EQ(counted.Buffer, nullptr);
}

TEST(TinyNativeTest, SetLastStatusStoresTheTranslatedError) {
    SetLastStatus(kObjectNameNotFound);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_FILE_NOT_FOUND));
    SetLastStatus(kAccessDenied);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
    SetLastStatus(kSuccess);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_SUCCESS));
}

TEST(TinyNativeTest, NtOpenMutantOpensAGlobalMutexByItsPath) {
    const std::wstring name = UniqueName(L"mutant");
    const UniqueHandle created(CreateMutexW(nullptr, FALSE, (L"Global\\" + name).c_str()));
    ASSERT_TRUE(created.IsValid());
    const std::wstring path = GlobalPath(name);
    TinyObjectAttributes attributes(path.c_str());
    HANDLE raw = nullptr;
    EXPECT_EQ(TinyFramework::NtOpenMutant(&raw, SYNCHRONIZE, attributes.Get()), kSuccess);
    const UniqueHandle opened(raw);
    EXPECT_TRUE(opened.IsValid());
}

TEST(TinyNativeTest, NtOpenMutantOfAMissingPathIsObjectNameNotFound) {
    const std::wstring path = GlobalPath(UniqueName(L"missing"));
    TinyObjectAttributes attributes(path.c_str());
    HANDLE raw = nullptr;
    EXPECT_EQ(TinyFramework::NtOpenMutant(&raw, SYNCHRONIZE, attributes.Get()),
              kObjectNameNotFound);
    const UniqueHandle opened(raw);
    EXPECT_FALSE(opened.IsValid());
}

TEST(TinyNativeTest, NtOpenEventOfAMutexIsObjectTypeMismatch) {
    const std::wstring name = UniqueName(L"mismatch");
    const UniqueHandle created(CreateMutexW(nullptr, FALSE, (L"Global\\" + name).c_str()));
    ASSERT_TRUE(created.IsValid());
    const std::wstring path = GlobalPath(name);
    TinyObjectAttributes attributes(path.c_str());
    HANDLE raw = nullptr;
    EXPECT_EQ(TinyFramework::NtOpenEvent(&raw, SYNCHRONIZE, attributes.Get()), kObjectTypeMismatch);
    const UniqueHandle opened(raw);
    EXPECT_FALSE(opened.IsValid());
}

TEST(TinyNativeTest, NtOpenSectionOpensANamedMappingWithItsContent) {
    const std::wstring name = UniqueName(L"section");
    const char content[] = "shared bytes";
    const UniqueHandle mapping(CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0,
                                                  4096, (L"Global\\" + name).c_str()));
    ASSERT_TRUE(mapping.IsValid());
    void* written = MapViewOfFile(mapping.Get(), FILE_MAP_WRITE, 0, 0, 0);
    ASSERT_NE(written, nullptr);
    std::memcpy(written, content, sizeof(content));
    UnmapViewOfFile(written);

    const std::wstring path = GlobalPath(name);
    TinyObjectAttributes attributes(path.c_str());
    HANDLE raw = nullptr;
    ASSERT_EQ(TinyFramework::NtOpenSection(&raw, SECTION_MAP_READ, attributes.Get()), kSuccess);
    const UniqueHandle section(raw);
    const void* read = MapViewOfFile(section.Get(), FILE_MAP_READ, 0, 0, 0);
    ASSERT_NE(read, nullptr);
    EXPECT_EQ(std::memcmp(read, content, sizeof(content)), 0);
    UnmapViewOfFile(read);
}

TEST(TinyNativeTest, NtOpenSectionOfAMissingPathIsObjectNameNotFound) {
    const std::wstring path = GlobalPath(UniqueName(L"missing"));
    TinyObjectAttributes attributes(path.c_str());
    HANDLE raw = nullptr;
    EXPECT_EQ(TinyFramework::NtOpenSection(&raw, SECTION_MAP_READ, attributes.Get()),
              kObjectNameNotFound);
    const UniqueHandle section(raw);
    EXPECT_FALSE(section.IsValid());
}

TEST(TinyNativeTest, NtQuerySystemInformationGivesTheBasicInformationOfTheMachine) {
    SYSTEM_BASIC_INFORMATION basic = {};
    ULONG returned = 0;
    ASSERT_EQ(TinyFramework::NtQuerySystemInformation(SystemBasicInformation, &basic, sizeof(basic),
                                                      &returned),
              kSuccess);
    EXPECT_EQ(returned, sizeof(basic));
    SYSTEM_INFO system;
    GetSystemInfo(&system);
    EXPECT_EQ(static_cast<DWORD>(basic.NumberOfProcessors), system.dwNumberOfProcessors);
    EXPECT_EQ(basic.PhysicalPageSize, system.dwPageSize);
    EXPECT_EQ(basic.AllocationGranularity, system.dwAllocationGranularity);
}

TEST(TinyNativeTest, NtQuerySystemInformationIntoATooSmallBufferIsInfoLengthMismatch) {
    SYSTEM_BASIC_INFORMATION basic = {};
    ULONG returned = 0;
    EXPECT_EQ(TinyFramework::NtQuerySystemInformation(SystemBasicInformation, &basic,
                                                      sizeof(basic) - 1, &returned),
              kInfoLengthMismatch);
}

TEST(TinyEventOpenNtTest, OpensAGlobalEventByItsPath) {
    const std::wstring name = UniqueName(L"event");
    const UniqueHandle created(CreateEventW(nullptr, FALSE, FALSE, (L"Global\\" + name).c_str()));
    ASSERT_TRUE(created.IsValid());
    TinyEvent event;
    ASSERT_TRUE(event.OpenNt(EVENT_MODIFY_STATE, GlobalPath(name).c_str()));
    EXPECT_TRUE(event.SetEvent());
    EXPECT_EQ(WaitForSingleObject(created.Get(), 0), WAIT_OBJECT_0);
}

TEST(TinyEventOpenNtTest, OpensASessionEventByItsSessionPath) {
    const std::wstring name = UniqueName(L"event");
    const UniqueHandle created(CreateEventW(nullptr, FALSE, FALSE, name.c_str()));
    ASSERT_TRUE(created.IsValid());
    TinyEvent event;
    ASSERT_TRUE(event.OpenNt(EVENT_MODIFY_STATE, SessionPath(name).c_str()));
    EXPECT_TRUE(event.SetEvent());
    EXPECT_EQ(WaitForSingleObject(created.Get(), 0), WAIT_OBJECT_0);
}

TEST(TinyEventOpenNtTest, GrantsOnlyTheAccessAskedFor) {
    const std::wstring name = UniqueName(L"event");
    const UniqueHandle created(CreateEventW(nullptr, FALSE, FALSE, (L"Global\\" + name).c_str()));
    ASSERT_TRUE(created.IsValid());
    TinyEvent event;
    ASSERT_TRUE(event.OpenNt(SYNCHRONIZE, GlobalPath(name).c_str()));
    SetLastError(0);
    EXPECT_FALSE(event.SetEvent());
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
}

TEST(TinyEventOpenNtTest, MissingPathFailsWithFileNotFound) {
    TinyEvent event;
    SetLastError(0);
    EXPECT_FALSE(event.OpenNt(EVENT_MODIFY_STATE, GlobalPath(UniqueName(L"missing")).c_str()));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_FILE_NOT_FOUND));
    EXPECT_TRUE(event.IsEmpty());
}

TEST(TinyEventOpenNtTest, FailureKeepsTheHeldHandle) {
    TinyEvent event;
    ASSERT_TRUE(event.Create());
    const HANDLE held = event.Handle();
    EXPECT_FALSE(event.OpenNt(EVENT_MODIFY_STATE, GlobalPath(UniqueName(L"missing")).c_str()));
    EXPECT_EQ(event.Handle(), held);
}

}  // namespace
