// Installing and removing the stand-ins, through the setup library and the tool: idempotent,
// complete, and never at the expense of another codec or another MJPEG decompressor.

#include <vfw.h>

#include <gtest/gtest.h>

#include <string>

#include "DecoderFixture.h"
#include "tools/TestDecoders/Common/DecoderNames.h"
#include "tools/TestDecoders/Common/RegistryKey.h"
#include "tools/TestDecoders/TestDecodersSetup.h"

namespace DecoderTests {
namespace {

using TestDecoders::DecoderStatus;
using TestDecoders::RegistryKey;

std::string Narrow(const std::wstring& text) {
    return std::string(text.begin(), text.end());
}

void SetDriverValue(const wchar_t* name, const std::wstring& file) {
    RegistryKey drivers;
    ASSERT_EQ(drivers.Create(HKEY_LOCAL_MACHINE, TestDecoders::kDrivers32Key, KEY_WRITE),
              ERROR_SUCCESS);
    ASSERT_EQ(drivers.WriteString(name, file), ERROR_SUCCESS);
}

void DeleteDriverValue(const wchar_t* name) {
    RegistryKey drivers;
    if (drivers.Open(HKEY_LOCAL_MACHINE, TestDecoders::kDrivers32Key, KEY_WRITE) == ERROR_SUCCESS) {
        drivers.DeleteValue(name);
    }
}

std::wstring DriverValue(const wchar_t* name) {
    RegistryKey drivers;
    std::wstring file;
    if (drivers.Open(HKEY_LOCAL_MACHINE, TestDecoders::kDrivers32Key, KEY_READ) == ERROR_SUCCESS) {
        drivers.ReadString(name, &file);
    }
    return file;
}

// Where Windows registers its own MJPEG decompressor.
const std::wstring kForeignDecoder = L"C:\\windows\\system32\\quartz.dll";

void RegisterForeignMjpegDecoder() {
    RegistryKey server;
    ASSERT_EQ(server.Create(HKEY_CLASSES_ROOT, TestDecoders::kMjpegDecoderServerKey, KEY_WRITE),
              ERROR_SUCCESS);
    ASSERT_EQ(server.WriteString(nullptr, kForeignDecoder), ERROR_SUCCESS);
}

class InstallTest : public DecoderTest {
protected:
    void TearDown() override {
        // Whatever a test left behind, the tests after it find the stand-ins installed.
        for (const wchar_t* name : TestDecoders::kCodecDriverValues) {
            const std::wstring file = DriverValue(name);
            if (!file.empty() && _wcsicmp(file.c_str(), TestDecoders::kCodecFileName) != 0) {
                DeleteDriverValue(name);
            }
        }
        if (TestDecoders::QueryDecoderStatus().mjpegDecoderServer == kForeignDecoder) {
            RegDeleteTreeW(HKEY_CLASSES_ROOT, TestDecoders::kMjpegDecoderClassKey);
        }
        InstallOrFail();
        DecoderTest::TearDown();
    }

    void Uninstall() {
        std::wstring error;
        ASSERT_TRUE(TestDecoders::UninstallDecoders(&error)) << Narrow(error);
    }
    void Install() {
        std::wstring error;
        ASSERT_TRUE(TestDecoders::InstallDecoders(&error)) << Narrow(error);
    }
};

TEST_F(InstallTest, TheProgramRunsUnderWine) {
    // Installing refuses anywhere else; these tests only ever run in the build's prefix.
    EXPECT_TRUE(TestDecoders::IsRunningUnderWine());
}

TEST_F(InstallTest, InstallingTwiceLeavesEverythingInPlace) {
    Install();
    Install();
    const DecoderStatus status = TestDecoders::QueryDecoderStatus();
    EXPECT_TRUE(status.Installed());
    EXPECT_TRUE(status.codecCurrent);
    wchar_t system[MAX_PATH] = {};
    GetSystemDirectoryW(system, MAX_PATH);
    EXPECT_EQ(status.codecPath, std::wstring(system) + L"\\TestCodec.dll");
    ASSERT_EQ(status.driverValues.size(), 7u);
    const wchar_t* const names[] = {L"vidc.yuy2", L"vidc.uyvy", L"vidc.i420", L"vidc.iyuv",
                                    L"vidc.yv12", L"vidc.nv12", L"vidc.mjpg"};
    for (size_t i = 0; i < 7; ++i) {
        EXPECT_EQ(status.driverValues[i].name, names[i]);
        EXPECT_EQ(status.driverValues[i].file, L"TestCodec.dll");
    }
    EXPECT_TRUE(status.mjpegDecoderIsOurs);
    EXPECT_EQ(TestDecoders::FileNameOf(status.mjpegDecoderServer), L"TestMjpegDecoder.dll");
}

TEST_F(InstallTest, UninstallingTwiceLeavesNothingBehind) {
    Uninstall();
    Uninstall();
    const DecoderStatus status = TestDecoders::QueryDecoderStatus();
    EXPECT_TRUE(status.Uninstalled());
    EXPECT_FALSE(status.codecPresent);
    EXPECT_EQ(GetFileAttributesW(status.codecPath.c_str()), INVALID_FILE_ATTRIBUTES);
    for (const auto& value : status.driverValues) {
        EXPECT_EQ(value.file, L"") << Narrow(value.name);
    }
    EXPECT_EQ(status.mjpegDecoderServer, L"");
}

TEST_F(InstallTest, UninstalledCodecIsFoundNoMore) {
    Uninstall();
    EXPECT_EQ(ICOpen(ICTYPE_VIDEO, mmioFOURCC('y', 'u', 'y', '2'), ICMODE_DECOMPRESS), nullptr);
    BITMAPINFOHEADER input = {};
    input.biSize = sizeof(input);
    input.biWidth = 64;
    input.biHeight = 48;
    input.biPlanes = 1;
    input.biBitCount = 16;
    input.biCompression = MAKEFOURCC('Y', 'U', 'Y', '2');
    EXPECT_EQ(ICLocate(ICTYPE_VIDEO, 0, &input, nullptr, ICMODE_DECOMPRESS), nullptr);
}

TEST_F(InstallTest, InstallRefusesWhereAValueNamesAnotherCodecAndWritesNothing) {
    Uninstall();
    SetDriverValue(L"vidc.uyvy", L"other.dll");
    std::wstring error;
    EXPECT_FALSE(TestDecoders::InstallDecoders(&error));
    EXPECT_EQ(error, L"vidc.uyvy names another codec: other.dll");
    EXPECT_EQ(DriverValue(L"vidc.uyvy"), L"other.dll");
    EXPECT_EQ(DriverValue(L"vidc.yuy2"), L"");
}

TEST_F(InstallTest, UninstallLeavesAValueOfAnotherCodec) {
    Install();
    SetDriverValue(L"vidc.nv12", L"other.dll");
    Uninstall();
    EXPECT_EQ(DriverValue(L"vidc.nv12"), L"other.dll");
    EXPECT_EQ(DriverValue(L"vidc.yuy2"), L"");
}

TEST_F(InstallTest, AnotherMjpegDecoderIsNeitherReplacedNorRemoved) {
    Uninstall();
    RegisterForeignMjpegDecoder();
    std::wstring error;
    EXPECT_FALSE(TestDecoders::InstallDecoders(&error));
    EXPECT_EQ(error,
              L"CLSID_MjpegDec {301056D0-6DFF-11D2-9EEB-006008039E37} belongs to another "
              L"server, or cannot be written");
    EXPECT_EQ(TestDecoders::QueryDecoderStatus().mjpegDecoderServer, kForeignDecoder);
    Uninstall();
    const DecoderStatus status = TestDecoders::QueryDecoderStatus();
    EXPECT_EQ(status.mjpegDecoderServer, kForeignDecoder);
    EXPECT_FALSE(status.mjpegDecoderIsOurs);
}

TEST_F(InstallTest, StatusTellsAPartialInstall) {
    Install();
    DeleteDriverValue(L"vidc.mjpg");
    const DecoderStatus status = TestDecoders::QueryDecoderStatus();
    EXPECT_FALSE(status.Installed());
    EXPECT_FALSE(status.Uninstalled());
    const std::wstring text = TestDecoders::DescribeStatus(status);
    EXPECT_NE(text.find(L"\nvidc.mjpg       (absent)\n"), std::wstring::npos) << Narrow(text);
    EXPECT_NE(text.find(L"\nvidc.yuy2       TestCodec.dll\n"), std::wstring::npos);
    const std::wstring last = L"state: partly installed\n";
    ASSERT_GE(text.size(), last.size());
    EXPECT_EQ(text.substr(text.size() - last.size()), last);
}

// What the tool printed, with its line ends as "\n" (the C runtime writes "\r\n" to a file).
std::string RunTool(const std::wstring& arguments, DWORD* exitCode) {
    std::string output;
    *exitCode = VirtualCameraTests::RunProgram(L"TestDecodersTool.exe", arguments,
                                               2 * kStateDeadlineMs, std::string(), &output);
    std::string lines;
    for (char c : output) {
        if (c != '\r') lines += c;
    }
    return lines;
}

bool EndsWith(const std::string& text, const std::string& end) {
    return text.size() >= end.size() &&
           text.compare(text.size() - end.size(), end.size(), end) == 0;
}

TEST_F(InstallTest, ToolInstallsRemovesAndTells) {
    DWORD exitCode = 0;
    EXPECT_EQ(RunTool(L"uninstall", &exitCode), "");
    EXPECT_EQ(exitCode, 0u);
    std::string status = RunTool(L"status", &exitCode);
    EXPECT_EQ(exitCode, 0u);
    EXPECT_TRUE(EndsWith(status, "CLSID_MjpegDec  (not registered)\nstate: not installed\n"))
        << status;
    EXPECT_EQ(RunTool(L"install", &exitCode), "");
    EXPECT_EQ(exitCode, 0u);
    status = RunTool(L"status", &exitCode);
    EXPECT_TRUE(EndsWith(status, "TestMjpegDecoder.dll\nstate: installed\n")) << status;
    EXPECT_NE(status.find(" (current)\nvidc.yuy2       TestCodec.dll\n"), std::string::npos)
        << status;
}

TEST_F(InstallTest, ToolRejectsAnUnknownCommandWithAReason) {
    DWORD exitCode = 0;
    EXPECT_EQ(RunTool(L"reinstall", &exitCode),
              "TestDecodersTool: unknown command 'reinstall'; see --help\n");
    EXPECT_EQ(exitCode, 1u);
    EXPECT_EQ(RunTool(L"install now", &exitCode),
              "TestDecodersTool: too many arguments; see --help\n");
    EXPECT_EQ(exitCode, 1u);
}

}  // namespace
}  // namespace DecoderTests
