#include "TinyFramework/Common/TinyOSVersion.h"

#include <gtest/gtest.h>

#include <windows.h>

#include <cwchar>
#include <string>
#include <vector>

namespace {

using TinyFramework::DecideWindowsVersion;
using TinyFramework::g_osRevision;
using TinyFramework::GetVersionFromFile;
using TinyFramework::GetVersionFromRegistry;
using TinyFramework::GetVersionFromRegistryKey;
using TinyFramework::GetVersionFromSystem;
using TinyFramework::GetWindowsVersion;
using TinyFramework::TinyOSVersion;
using TinyFramework::TinyOSVersionNumbers;
using TinyFramework::TinyOSVersionSources;

constexpr wchar_t kVersionKey[] = L"SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion";

TinyOSVersion Record(DWORD major, DWORD minor, DWORD build) {
    TinyOSVersion record = {};
    record.dwOSVersionInfoSize = sizeof(record);
    record.dwMajorVersion = major;
    record.dwMinorVersion = minor;
    record.dwBuildNumber = build;
    return record;
}

TinyOSVersionNumbers Numbers(DWORD major, DWORD minor, DWORD build, DWORD revision = 0) {
    TinyOSVersionNumbers numbers;
    numbers.major = major;
    numbers.minor = minor;
    numbers.build = build;
    numbers.revision = revision;
    return numbers;
}

std::string Text(const TinyOSVersionNumbers& version) {
    return std::to_string(version.major) + "." + std::to_string(version.minor) + "." +
           std::to_string(version.build) + "." + std::to_string(version.revision);
}

// What the fake sources answer: one machine shows only one combination of the three, so the
// decision is fed every other combination through these.
struct FakeMachine {
    TinyOSVersion system = {};
    BOOL systemResult = TRUE;
    TinyOSVersion kernelFile = {};
    DWORD kernelFileRevision = 0;
    BOOL kernelFileResult = TRUE;
    TinyOSVersion registry = {};
    BOOL hasUpdateRevision = FALSE;
    DWORD updateRevision = 0;
    int updateRevisionReads = 0;
};

FakeMachine g_machine;

BOOL FakeSystem(TinyOSVersion* record) {
    *record = g_machine.system;
    return g_machine.systemResult;
}

BOOL FakeKernelFile(TinyOSVersion* record, DWORD* revision) {
    *record = g_machine.kernelFile;
    if (g_machine.kernelFileResult) {
        *revision = g_machine.kernelFileRevision;
    }
    return g_machine.kernelFileResult;
}

BOOL FakeRegistry(TinyOSVersion* record) {
    *record = g_machine.registry;
    return TRUE;
}

BOOL FakeUpdateRevision(DWORD* revision) {
    ++g_machine.updateRevisionReads;
    if (!g_machine.hasUpdateRevision) {
        return FALSE;
    }
    *revision = g_machine.updateRevision;
    return TRUE;
}

const TinyOSVersionSources kFakeSources = {&FakeSystem, &FakeKernelFile, &FakeRegistry,
                                           &FakeUpdateRevision};

class VersionDecisionTest : public ::testing::Test {
protected:
    void SetUp() override { g_machine = FakeMachine(); }

    static std::string Decide(DWORD revisionBefore = 0) {
        return Text(DecideWindowsVersion(kFakeSources, revisionBefore));
    }
};

TEST_F(VersionDecisionTest, KernelFileAboveALyingSystemWinsWithItsRevision) {
    g_machine.system = Record(6, 2, 9200);
    g_machine.kernelFile = Record(10, 0, 19041);
    g_machine.kernelFileRevision = 4291;
    g_machine.hasUpdateRevision = TRUE;
    g_machine.updateRevision = 1237;
    EXPECT_EQ(Decide(), "10.0.19041.4291");
}

TEST_F(VersionDecisionTest, KernelFileWinsAndALargerUpdateRevisionRaisesTheRevision) {
    g_machine.system = Record(6, 2, 9200);
    g_machine.kernelFile = Record(10, 0, 19041);
    g_machine.kernelFileRevision = 1;
    g_machine.hasUpdateRevision = TRUE;
    g_machine.updateRevision = 3693;
    EXPECT_EQ(Decide(), "10.0.19041.3693");
    EXPECT_EQ(g_machine.updateRevisionReads, 1);
}

TEST_F(VersionDecisionTest, MissingUpdateRevisionKeepsTheKernelFilesRevision) {
    g_machine.system = Record(10, 0, 19045);
    g_machine.kernelFile = Record(10, 0, 19041);
    g_machine.kernelFileRevision = 572;
    EXPECT_EQ(Decide(), "10.0.19045.572");
    EXPECT_EQ(g_machine.updateRevisionReads, 1);
}

TEST_F(VersionDecisionTest, UpdateRevisionIsNotReadBelowMajorTen) {
    g_machine.system = Record(6, 3, 9600);
    g_machine.kernelFile = Record(6, 3, 9600);
    g_machine.kernelFileRevision = 17415;
    g_machine.hasUpdateRevision = TRUE;
    g_machine.updateRevision = 99999;
    EXPECT_EQ(Decide(), "6.3.9600.17415");
    EXPECT_EQ(g_machine.updateRevisionReads, 0);
}

TEST_F(VersionDecisionTest, UpdateRevisionIsNotReadAboveMajorTen) {
    g_machine.registry = Record(11, 0, 100);
    g_machine.hasUpdateRevision = TRUE;
    g_machine.updateRevision = 5;
    EXPECT_EQ(Decide(), "11.0.100.0");
    EXPECT_EQ(g_machine.updateRevisionReads, 0);
}

TEST_F(VersionDecisionTest, RegistryWithoutMajorNumberDoesNotWin) {
    g_machine.system = Record(6, 1, 7601);
    g_machine.kernelFile = Record(6, 1, 7601);
    g_machine.kernelFileRevision = 24545;
    // Only the build number: the major and minor numbers are missing.
    g_machine.registry = Record(0, 0, 22631);
    EXPECT_EQ(Decide(), "6.1.7601.24545");
}

TEST_F(VersionDecisionTest, RegistryAboveBothWins) {
    g_machine.system = Record(6, 2, 9200);
    g_machine.kernelFile = Record(6, 3, 9600);
    g_machine.kernelFileRevision = 7;
    g_machine.registry = Record(10, 0, 22631);
    g_machine.hasUpdateRevision = TRUE;
    g_machine.updateRevision = 3880;
    EXPECT_EQ(Decide(), "10.0.22631.3880");
}

TEST_F(VersionDecisionTest, RegistryBetweenSystemAndKernelFileLosesToTheKernelFile) {
    g_machine.system = Record(6, 2, 9200);
    g_machine.kernelFile = Record(10, 0, 22000);
    g_machine.registry = Record(10, 0, 19041);
    EXPECT_EQ(Decide(), "10.0.22000.0");
}

TEST_F(VersionDecisionTest, MajorDecidesBeforeMinorAndBuild) {
    g_machine.system = Record(10, 0, 10240);
    g_machine.kernelFile = Record(6, 3, 20000);
    g_machine.registry = Record(6, 9, 30000);
    EXPECT_EQ(Decide(), "10.0.10240.0");
}

TEST_F(VersionDecisionTest, MinorDecidesBeforeBuild) {
    g_machine.system = Record(6, 2, 9600);
    g_machine.kernelFile = Record(6, 3, 9200);
    EXPECT_EQ(Decide(), "6.3.9200.0");
}

TEST_F(VersionDecisionTest, HigherBuildOfTheSameVersionWins) {
    g_machine.system = Record(10, 0, 19041);
    g_machine.kernelFile = Record(10, 0, 19045);
    EXPECT_EQ(Decide(), "10.0.19045.0");
}

TEST_F(VersionDecisionTest, EqualSourcesKeepTheSystemsAnswer) {
    g_machine.system = Record(6, 1, 7601);
    g_machine.kernelFile = Record(6, 1, 7601);
    g_machine.registry = Record(6, 1, 7601);
    g_machine.kernelFileRevision = 21863;
    EXPECT_EQ(Decide(), "6.1.7601.21863");
}

TEST_F(VersionDecisionTest, FailedSystemSourceLeavesTheOthersToDecide) {
    g_machine.systemResult = FALSE;
    g_machine.kernelFile = Record(6, 1, 7601);
    g_machine.registry = Record(0, 0, 7601);
    EXPECT_EQ(Decide(), "6.1.7601.0");
}

TEST_F(VersionDecisionTest, AllSourcesFailingGiveZeroAndTheRevisionKnownBefore) {
    g_machine.systemResult = FALSE;
    g_machine.kernelFileResult = FALSE;
    g_machine.kernelFileRevision = 1234;
    EXPECT_EQ(Decide(77), "0.0.0.77");
}

// ---- The registry without a major version number, read from a real key --------------------

class ScratchKey {
public:
    ScratchKey() : m_key(nullptr) {
        m_path =
            L"Software\\TinyFrameworkTests\\OSVersion-" + std::to_wstring(GetCurrentProcessId());
        RegCreateKeyExW(HKEY_CURRENT_USER, m_path.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr,
                        &m_key, nullptr);
    }
    ~ScratchKey() {
        if (m_key != nullptr) {
            RegCloseKey(m_key);
            RegDeleteKeyW(HKEY_CURRENT_USER, m_path.c_str());
        }
    }
    ScratchKey(const ScratchKey&) = delete;
    ScratchKey& operator=(const ScratchKey&) = delete;

    HKEY Get() const { return m_key; }
    bool SetString(const wchar_t* name, const wchar_t* value) {
        return RegSetValueExW(m_key, name, 0, REG_SZ, reinterpret_cast<const BYTE*>(value),
                              static_cast<DWORD>((wcslen(value) + 1) * sizeof(wchar_t))) ==
               ERROR_SUCCESS;
    }
    bool SetDword(const wchar_t* name, DWORD value) {
        return RegSetValueExW(m_key, name, 0, REG_DWORD, reinterpret_cast<const BYTE*>(&value),
                              sizeof(value)) == ERROR_SUCCESS;
    }

private:
    std::wstring m_path;
    HKEY m_key;
};

TEST(RegistryVersionTest, KeyWithoutMajorNumberGivesZeroZeroAndTheBuild) {
    ScratchKey key;
    ASSERT_NE(key.Get(), nullptr);
    ASSERT_TRUE(key.SetString(L"CurrentBuildNumber", L"22631"));
    ASSERT_TRUE(key.SetString(L"CurrentVersion", L"6.3"));
    TinyOSVersion record = {};
    GetVersionFromRegistryKey(key.Get(), &record);
    EXPECT_EQ(record.dwMajorVersion, 0u);
    EXPECT_EQ(record.dwMinorVersion, 0u);
    EXPECT_EQ(record.dwBuildNumber, 22631u);
}

TEST(RegistryVersionTest, KeyWithAllNumbersGivesThem) {
    ScratchKey key;
    ASSERT_NE(key.Get(), nullptr);
    ASSERT_TRUE(key.SetDword(L"CurrentMajorVersionNumber", 10));
    ASSERT_TRUE(key.SetDword(L"CurrentMinorVersionNumber", 0));
    ASSERT_TRUE(key.SetString(L"CurrentBuildNumber", L"19045"));
    TinyOSVersion record = {};
    GetVersionFromRegistryKey(key.Get(), &record);
    EXPECT_EQ(record.dwMajorVersion, 10u);
    EXPECT_EQ(record.dwMinorVersion, 0u);
    EXPECT_EQ(record.dwBuildNumber, 19045u);
}

TEST(RegistryVersionTest, EmptyKeyLeavesEveryFieldZero) {
    ScratchKey key;
    ASSERT_NE(key.Get(), nullptr);
    TinyOSVersion record = {};
    GetVersionFromRegistryKey(key.Get(), &record);
    EXPECT_EQ(record.dwMajorVersion, 0u);
    EXPECT_EQ(record.dwMinorVersion, 0u);
    EXPECT_EQ(record.dwBuildNumber, 0u);
}

// ---- The real sources ------------------------------------------------------------------------

bool ReadMachineDword(const wchar_t* name, DWORD* value) {
    DWORD size = sizeof(*value);
    return RegGetValueW(HKEY_LOCAL_MACHINE, kVersionKey, name, RRF_RT_REG_DWORD, nullptr, value,
                        &size) == ERROR_SUCCESS;
}

DWORD ReadMachineBuildNumber() {
    wchar_t text[64] = {};
    DWORD size = sizeof(text);
    if (RegGetValueW(HKEY_LOCAL_MACHINE, kVersionKey, L"CurrentBuildNumber", RRF_RT_REG_SZ, nullptr,
                     text, &size) != ERROR_SUCCESS) {
        return 0;
    }
    return static_cast<DWORD>(wcstol(text, nullptr, 10));
}

// The kernel file's version as the version library reports it to a program linked with it.
bool ReadKernelFileVersion(TinyOSVersionNumbers* version) {
    DWORD handle = 0;
    const DWORD size = GetFileVersionInfoSizeW(L"ntoskrnl.exe", &handle);
    std::vector<BYTE> block(size);
    void* value = nullptr;
    UINT length = 0;
    if (size == 0 || !GetFileVersionInfoW(L"ntoskrnl.exe", 0, size, block.data()) ||
        !VerQueryValueW(block.data(), L"\\", &value, &length)) {
        return false;
    }
    const VS_FIXEDFILEINFO* fixed = static_cast<const VS_FIXEDFILEINFO*>(value);
    *version = Numbers(HIWORD(fixed->dwFileVersionMS), LOWORD(fixed->dwFileVersionMS),
                       HIWORD(fixed->dwFileVersionLS), LOWORD(fixed->dwFileVersionLS));
    return true;
}

bool IsNotBelow(const TinyOSVersionNumbers& version, DWORD major, DWORD minor, DWORD build) {
    if (version.major != major) {
        return version.major > major;
    }
    if (version.minor != minor) {
        return version.minor > minor;
    }
    return version.build >= build;
}

TinyOSVersionNumbers ProcessVersion() {
    TinyOSVersionNumbers version;
    GetWindowsVersion(&version.major, &version.minor, &version.build, &version.revision);
    return version;
}

TEST(SystemVersionTest, RtlGetVersionAnswersForAnNtSystem) {
    TinyOSVersion record = Record(1, 2, 3);
    ASSERT_TRUE(GetVersionFromSystem(&record));
    EXPECT_EQ(record.dwOSVersionInfoSize, 284u);
    EXPECT_EQ(record.dwPlatformId, static_cast<DWORD>(VER_PLATFORM_WIN32_NT));
    // This system needs Windows 7 at least, and Wine says 6.1.7601 unless configured otherwise.
    EXPECT_TRUE(IsNotBelow(
        Numbers(record.dwMajorVersion, record.dwMinorVersion, record.dwBuildNumber), 6, 1, 7600));
}

TEST(SystemVersionTest, KernelFileVersionMatchesTheVersionLibrary) {
    TinyOSVersionNumbers expected;
    ASSERT_TRUE(ReadKernelFileVersion(&expected));
    const DWORD revisionBefore = g_osRevision;
    TinyOSVersion record = Record(1, 2, 3);
    ASSERT_TRUE(GetVersionFromFile(L"ntoskrnl.exe", &record));
    const DWORD revisionRead = g_osRevision;
    g_osRevision = revisionBefore;
    EXPECT_EQ(record.dwMajorVersion, expected.major);
    EXPECT_EQ(record.dwMinorVersion, expected.minor);
    EXPECT_EQ(record.dwBuildNumber, expected.build);
    EXPECT_EQ(revisionRead, expected.revision);
    EXPECT_EQ(record.dwOSVersionInfoSize, 0u);
}

TEST(SystemVersionTest, MissingFileGivesFalseAZeroRecordAndKeepsTheRevision) {
    const DWORD revisionBefore = g_osRevision;
    TinyOSVersion record = Record(1, 2, 3);
    EXPECT_FALSE(GetVersionFromFile(L"C:\\NoSuchFolder\\ntoskrnl.exe", &record));
    EXPECT_EQ(record.dwMajorVersion, 0u);
    EXPECT_EQ(record.dwMinorVersion, 0u);
    EXPECT_EQ(record.dwBuildNumber, 0u);
    EXPECT_EQ(g_osRevision, revisionBefore);
}

TEST(SystemVersionTest, RegistryRecordMatchesTheKeysValues) {
    DWORD major = 0;
    DWORD minor = 0;
    const bool hasMajor = ReadMachineDword(L"CurrentMajorVersionNumber", &major);
    const bool hasMinor = ReadMachineDword(L"CurrentMinorVersionNumber", &minor);
    TinyOSVersion record = Record(1, 2, 3);
    ASSERT_TRUE(GetVersionFromRegistry(&record));
    // Wine's Windows 7 prefix has neither number: the record then says 0.0.
    EXPECT_EQ(record.dwMajorVersion, hasMajor ? major : 0u);
    EXPECT_EQ(record.dwMinorVersion, hasMinor ? minor : 0u);
    EXPECT_EQ(record.dwBuildNumber, ReadMachineBuildNumber());
    EXPECT_NE(record.dwBuildNumber, 0u);
}

TEST(SystemVersionTest, UpdateRevisionIsReadWhenTheKeyHasIt) {
    DWORD expected = 0;
    const bool present = ReadMachineDword(L"UBR", &expected);
    DWORD revision = 0xDEADBEEF;
    EXPECT_EQ(TinyFramework::GetUpdateRevisionFromRegistry(&revision) != FALSE, present);
    EXPECT_EQ(revision, present ? expected : 0xDEADBEEF);
}

TEST(SystemVersionTest, ProcessVersionIsTheHighestOfTheThreeSources) {
    TinyOSVersion system = {};
    GetVersionFromSystem(&system);
    TinyOSVersionNumbers kernelFile;
    ASSERT_TRUE(ReadKernelFileVersion(&kernelFile));
    DWORD registryMajor = 0;
    DWORD registryMinor = 0;
    ReadMachineDword(L"CurrentMajorVersionNumber", &registryMajor);
    ReadMachineDword(L"CurrentMinorVersionNumber", &registryMinor);

    const TinyOSVersionNumbers version = ProcessVersion();

    EXPECT_TRUE(
        IsNotBelow(version, system.dwMajorVersion, system.dwMinorVersion, system.dwBuildNumber))
        << Text(version);
    EXPECT_TRUE(IsNotBelow(version, kernelFile.major, kernelFile.minor, kernelFile.build))
        << Text(version);
    EXPECT_TRUE(IsNotBelow(version, registryMajor, registryMinor, ReadMachineBuildNumber()))
        << Text(version);
    if (version.major != 10) {
        EXPECT_EQ(version.revision, kernelFile.revision);
    } else {
        EXPECT_GE(version.revision, kernelFile.revision);
    }
}

TEST(SystemVersionTest, ProcessVersionIsKeptInTheProcessWideNumbers) {
    const TinyOSVersionNumbers first = ProcessVersion();
    const TinyOSVersionNumbers second = ProcessVersion();
    EXPECT_TRUE(TinyFramework::g_osVersionKnown);
    EXPECT_EQ(Text(first), Text(second));
    EXPECT_EQ(TinyFramework::g_osMajor, first.major);
    EXPECT_EQ(TinyFramework::g_osMinor, first.minor);
    EXPECT_EQ(TinyFramework::g_osBuild, first.build);
    EXPECT_EQ(TinyFramework::g_osRevision, first.revision);
}

// ---- Predicates --------------------------------------------------------------------------------

TEST(VersionPredicateTest, ThisSystemIsWindows7OrLater) {
    EXPECT_TRUE(TinyFramework::IsWindows7OrLater());
}

TEST(VersionPredicateTest, PredicatesAgreeWithTheProcessVersion) {
    const TinyOSVersionNumbers v = ProcessVersion();
    EXPECT_EQ(TinyFramework::IsWindows7(), v.major == 6 && v.minor == 1);
    EXPECT_EQ(TinyFramework::IsWindows8(), v.major == 6 && v.minor == 2);
    EXPECT_EQ(TinyFramework::IsWindows81(), v.major == 6 && v.minor == 3);
    EXPECT_EQ(TinyFramework::IsWindows10(), v.major == 10);
    EXPECT_EQ(TinyFramework::IsWindows11RTM(), v.major == 10 && v.build == 22000);
    EXPECT_EQ(TinyFramework::IsWindows7OrLater(), v.major > 6 || (v.major == 6 && v.minor > 0));
    EXPECT_EQ(TinyFramework::IsWindows8OrLater(), v.major > 6 || (v.major == 6 && v.minor >= 2));
    EXPECT_EQ(TinyFramework::IsWindows10OrLater(), v.major >= 10);
    EXPECT_EQ(TinyFramework::IsWindows11OrLater(), v.major >= 10 && v.build >= 22000);
}

TEST(VersionPredicateTest, Windows7SP1ComesFromTheSystemAlone) {
    TinyOSVersion system = {};
    ASSERT_TRUE(GetVersionFromSystem(&system));
    EXPECT_EQ(TinyFramework::IsWindows7SP1(), system.dwMajorVersion == 6 &&
                                                  system.dwMinorVersion == 1 &&
                                                  system.wServicePackMajor == 1);
}

TEST(VersionPredicateTest, Windows7SP1NeedsServicePackOne) {
    TinyOSVersion record = Record(6, 1, 7601);
    record.wServicePackMajor = 1;
    EXPECT_TRUE(TinyFramework::IsWindows7SP1(record));
    record.wServicePackMajor = 0;
    EXPECT_FALSE(TinyFramework::IsWindows7SP1(record));
    record = Record(6, 2, 9200);
    record.wServicePackMajor = 1;
    EXPECT_FALSE(TinyFramework::IsWindows7SP1(record));
}

TEST(VersionPredicateTest, ExactVersionPredicates) {
    EXPECT_TRUE(TinyFramework::IsWindows7(Numbers(6, 1, 7601)));
    EXPECT_FALSE(TinyFramework::IsWindows7(Numbers(6, 2, 7601)));
    EXPECT_TRUE(TinyFramework::IsWindows8(Numbers(6, 2, 9200)));
    EXPECT_FALSE(TinyFramework::IsWindows8(Numbers(6, 3, 9200)));
    EXPECT_TRUE(TinyFramework::IsWindows81(Numbers(6, 3, 9600)));
    EXPECT_FALSE(TinyFramework::IsWindows81(Numbers(10, 3, 9600)));
    EXPECT_TRUE(TinyFramework::IsWindows10(Numbers(10, 0, 22631)));
    EXPECT_FALSE(TinyFramework::IsWindows10(Numbers(11, 0, 22631)));
    EXPECT_TRUE(TinyFramework::IsWindows11RTM(Numbers(10, 0, 22000)));
    EXPECT_FALSE(TinyFramework::IsWindows11RTM(Numbers(10, 0, 22001)));
}

TEST(VersionPredicateTest, OrLaterPredicatesAtTheirBoundaries) {
    EXPECT_FALSE(TinyFramework::IsWindows7OrLater(Numbers(6, 0, 6002)));
    EXPECT_TRUE(TinyFramework::IsWindows7OrLater(Numbers(6, 1, 7600)));
    EXPECT_TRUE(TinyFramework::IsWindows7OrLater(Numbers(7, 0, 0)));
    EXPECT_FALSE(TinyFramework::IsWindows8OrLater(Numbers(6, 1, 7601)));
    EXPECT_TRUE(TinyFramework::IsWindows8OrLater(Numbers(6, 2, 9200)));
    EXPECT_TRUE(TinyFramework::IsWindows8OrLater(Numbers(10, 0, 0)));
    EXPECT_FALSE(TinyFramework::IsWindows10OrLater(Numbers(6, 3, 9600)));
    EXPECT_TRUE(TinyFramework::IsWindows10OrLater(Numbers(10, 0, 10240)));
    EXPECT_FALSE(TinyFramework::IsWindows11OrLater(Numbers(10, 0, 21999)));
    EXPECT_TRUE(TinyFramework::IsWindows11OrLater(Numbers(10, 0, 22000)));
    EXPECT_TRUE(TinyFramework::IsWindows11OrLater(Numbers(10, 0, 26100)));
}

}  // namespace
