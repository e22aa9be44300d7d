// The real QueryServer.exe, through the client, against virtual cameras registered in the prefix:
// the device lists and the format reply byte for byte, and drivers that hang or crash.
#include "DShowCapture/DeviceEnumeration.h"
#include "client/QueryClient.h"
#include "protocol/QueryProtocol.h"
#include "tests/support/LogCapture.h"
#include "tests/support/RawParent.h"
#include "tests/e2e/CameraTest.h"

#include <gtest/gtest.h>

#include <objbase.h>

namespace {

using QueryClient::Client;
using QueryClient::Outcome;
using QueryClient::RawReply;
using TestSupport::GenerousOptions;
using TestSupport::kDeadlineMarginMs;
using TestSupport::kGenerousDeadlineMs;
using TestSupport::Utf16Bytes;

// A driver that hangs does so for longer than a short deadline and its margin together, so that
// only the deadline can end the query in time.
constexpr DWORD kHangDeadlineMs = 1500;
constexpr DWORD kDriverHangMs = 120000;

// A device description line that makes the driver hang at `point` (bind or caps).
std::wstring HangFault(const wchar_t* point) {
    return L"fault = delay_" + std::wstring(point) + L":" + std::to_wstring(kDriverHangMs) + L"\n";
}

std::string Text(const RawReply& reply) {
    return std::string(reply.bytes.begin(), reply.bytes.end());
}

class CameraEndToEnd : public CameraTest {
protected:
    static RawReply Devices(const wchar_t* method = QueryProtocol::kMethodVideoDevices) {
        return Client(GenerousOptions()).Query(method);
    }

    static RawReply Formats(const std::wstring& deviceId, DWORD timeoutMs = kGenerousDeadlineMs) {
        QueryClient::QueryOptions options = GenerousOptions();
        options.timeoutMs = timeoutMs;
        return Client(options).Query(QueryProtocol::kMethodDeviceFormats, deviceId, L"any name");
    }
};

TEST_F(CameraEndToEnd, NoDevicesGiveAnEmptyStream) {
    const RawReply reply = Devices();
    EXPECT_EQ(reply.outcome, Outcome::Ok) << reply.detail;
    EXPECT_TRUE(reply.bytes.empty());
    EXPECT_TRUE(Devices(QueryProtocol::kMethodAnalogDevices).bytes.empty());
}

TEST_F(CameraEndToEnd, EmptyCategoryIsAFailureLoggedWithTheValueOne) {
    TestSupport::LogCapture capture;
    std::vector<DShow::VideoDevice> devices = {
        DShow::VideoDevice(std::wstring(L"kept"), std::wstring(L"kept"))};
    EXPECT_FALSE(DShow::GetVideoDevices(devices));
    EXPECT_EQ(devices.size(), 1u) << "the list is left untouched";
    EXPECT_EQ(capture.RecordsContaining("Failed to CreateClassEnumerator(IEnumMoniker,0x1)").size(),
              1u);
}

TEST_F(CameraEndToEnd, OneDeviceByteForByte) {
    AddDevices(
        L"[device one]\nFriendlyName = Cam One\nDevicePath = \\\\?\\vcam#one\nmode = YUY2 "
        L"videoinfo 640 480 333333\n");
    const RawReply reply = Devices();
    EXPECT_EQ(reply.outcome, Outcome::Ok) << reply.detail;
    EXPECT_EQ(reply.bytes, Utf16Bytes(L"\\\\?\\vcam#one\nCam One\n"));
}

TEST_F(CameraEndToEnd, SeveralDevicesInTheEnumeratorsOrder) {
    AddDevices(
        L"[device a]\nFriendlyName = Cam A\nDevicePath = path-a\n"
        L"[device b]\nFriendlyName = Cam B\nDevicePath = path-b\n"
        L"[device c]\nFriendlyName = Cam C\nDevicePath = path-c\n");
    std::vector<DShow::VideoDevice> here;
    ASSERT_TRUE(DShow::GetVideoDevices(here));
    ASSERT_EQ(here.size(), 3u);
    std::wstring expected;
    for (const DShow::VideoDevice& device : here) {
        expected += device.id + L"\n" + device.name + L"\n";
    }
    EXPECT_EQ(Devices().bytes, Utf16Bytes(expected));
}

TEST_F(CameraEndToEnd, DescriptionNamesTheDeviceOverFriendlyName) {
    AddDevices(L"[device d]\nFriendlyName = Friendly\nDescription = Described\nDevicePath = p\n");
    EXPECT_EQ(Devices().bytes, Utf16Bytes(L"p\nDescribed\n"));
}

TEST_F(CameraEndToEnd, WithoutDevicePathBothLinesAreTheName) {
    AddDevices(L"[device n]\nFriendlyName = Only A Name\n");
    EXPECT_EQ(Devices().bytes, Utf16Bytes(L"Only A Name\nOnly A Name\n"));
}

TEST_F(CameraEndToEnd, NonStringNamesAreSkippedOrFallBack) {
    AddDevices(
        L"[device i4]\nFriendlyName:i4 = 5\nDevicePath = numeric\n"
        L"[device pathi4]\nFriendlyName = Named\nDevicePath:i4 = 7\n");
    EXPECT_EQ(Devices().bytes, Utf16Bytes(L"Named\nNamed\n"));
}

TEST_F(CameraEndToEnd, TwoDevicesWithTheSameIdAreBothListed) {
    AddDevices(
        L"[device s1]\nFriendlyName = First\nDevicePath = same\n"
        L"[device s2]\nFriendlyName = Second\nDevicePath = same\n");
    const std::vector<uint8_t> bytes = Devices().bytes;
    EXPECT_TRUE(bytes == Utf16Bytes(L"same\nFirst\nsame\nSecond\n") ||
                bytes == Utf16Bytes(L"same\nSecond\nsame\nFirst\n"));
}

TEST_F(CameraEndToEnd, DeviceWhoseFilterWillNotBeCreatedIsLeftOut) {
    AddDevices(
        L"[device ok]\nFriendlyName = Works\nDevicePath = ok\n"
        L"[device broken]\nFriendlyName = Broken\nDevicePath = broken\nfault = create\n");
    EXPECT_EQ(Devices().bytes, Utf16Bytes(L"ok\nWorks\n"));
}

TEST_F(CameraEndToEnd, AnalogDevicesAreFoundByTheirMedium) {
    AddDevices(
        L"[device plain]\nFriendlyName = Plain\nDevicePath = plain\n"
        L"[device tuner]\nFriendlyName = Tuner\nDevicePath = tuner\nmediums = zero,analog\n"
        L"[device std]\nFriendlyName = Standard\nDevicePath = std\nmediums = zero,standard\n");
    EXPECT_EQ(Devices(QueryProtocol::kMethodAnalogDevices).bytes, Utf16Bytes(L"tuner\nTuner\n"));
    EXPECT_EQ(Devices().bytes.size(),
              Utf16Bytes(L"plain\nPlain\ntuner\nTuner\nstd\nStandard\n").size());
}

TEST_F(CameraEndToEnd, NonAsciiNamesArriveAsTheSameUtf16) {
    const std::wstring name = L"Kam\u00e9ra \u6444\u50cf\u5934 \u0436";
    AddDevices(L"[device u]\nFriendlyName = " + name + L"\nDevicePath = \\\\?\\\u00e9\n");
    const QueryClient::DeviceListReply reply = Client(GenerousOptions()).GetVideoDevices();
    ASSERT_EQ(reply.outcome, Outcome::Ok) << reply.detail;
    ASSERT_EQ(reply.devices.size(), 1u);
    EXPECT_EQ(reply.devices[0].name, name);
    EXPECT_EQ(reply.devices[0].id, L"\\\\?\\\u00e9");
}

TEST_F(CameraEndToEnd, DriverThatHangsWhileBeingBoundEndsInATimeout) {
    AddDevices(L"[device hang]\nFriendlyName = Hang\nDevicePath = hang\n" + HangFault(L"bind"));
    QueryClient::QueryOptions options = GenerousOptions();
    options.timeoutMs = kHangDeadlineMs;
    const ULONGLONG start = GetTickCount64();
    const RawReply reply = Client(options).Query(QueryProtocol::kMethodVideoDevices);
    EXPECT_EQ(reply.outcome, Outcome::TimedOutWaitingForEvent) << reply.detail;
    EXPECT_LT(GetTickCount64() - start, kHangDeadlineMs + kDeadlineMarginMs);
}

TEST_F(CameraEndToEnd, DriverThatCrashesIsReportedAsAServerThatDied) {
    AddDevices(
        L"[device crash]\nFriendlyName = Crash\nDevicePath = crash\nmode = YUY2 videoinfo 640 480 "
        L"333333\nfault = crash_caps\n");
    const RawReply reply = Formats(L"crash");
    EXPECT_EQ(reply.outcome, Outcome::ServerDied) << reply.detail;
    EXPECT_EQ(reply.serverExitCode, static_cast<DWORD>(EXCEPTION_ACCESS_VIOLATION));
}

TEST_F(CameraEndToEnd, OneYuy2ModeAtThirtyFramesReplyByteForByte) {
    AddDevices(
        L"[device ex]\nFriendlyName = Example\nDevicePath = ex\n"
        L"mode = YUY2 videoinfo 640 480 333333 min_interval=333333 max_interval=2000000 "
        L"min_output=0x0 max_output=0x0\n");
    const RawReply reply = Formats(L"ex");
    EXPECT_EQ(reply.outcome, Outcome::Ok) << reply.detail;
    EXPECT_EQ(Text(reply),
              "[{\"flip\": 0, \"format\": 6, \"maxRate\": 30.000030517578125, \"maxSize_cx\": 640, "
              "\"maxSize_cy\": 480, \"minRate\": 5, \"minSize_cx\": 640, \"minSize_cy\": 480, "
              "\"rate\": 30.000030517578125, \"scale_x\": 0, \"scale_y\": 0, \"size_x\": 640, "
              "\"size_y\": 480}]");
}

TEST_F(CameraEndToEnd, UsualLadderOfSizesComesOutAscending) {
    AddDevices(
        L"[device ladder]\nFriendlyName = Ladder\nDevicePath = ladder\n"
        L"mode = YUY2 videoinfo 1280 720 333333\nmode = YUY2 videoinfo 320 240 333333\n"
        L"mode = YUY2 videoinfo 1920 1080 333333\nmode = YUY2 videoinfo 640 480 333333\n");
    const std::string text = Text(Formats(L"ladder"));
    const size_t at320 = text.find("\"size_x\": 320");
    const size_t at640 = text.find("\"size_x\": 640");
    const size_t at1280 = text.find("\"size_x\": 1280");
    const size_t at1920 = text.find("\"size_x\": 1920");
    ASSERT_NE(at1920, std::string::npos) << text;
    EXPECT_LT(at320, at640);
    EXPECT_LT(at640, at1280);
    EXPECT_LT(at1280, at1920);
}

TEST_F(CameraEndToEnd, UnlistableModesAreSkippedAndOddOnesKept) {
    AddDevices(
        L"[device odd]\nFriendlyName = Odd\nDevicePath = odd\n"
        L"mode = YUY2 videoinfo2 640 480 333333\n"
        L"mode = YV12 videoinfo 640 480 333333\n"
        L"mode = RGB565 videoinfo 640 480 333333\n"
        L"mode = ARGB32 videoinfo 320 -240 0 min_interval=333333 max_interval=2000000\n");
    EXPECT_EQ(Text(Formats(L"odd")),
              "[{\"flip\": 0, \"format\": 7, \"maxRate\": 30.000030517578125, \"maxSize_cx\": 320, "
              "\"maxSize_cy\": -240, \"minRate\": 5, \"minSize_cx\": 320, \"minSize_cy\": -240, "
              "\"rate\": 0, \"scale_x\": 0, \"scale_y\": 0, \"size_x\": 320, \"size_y\": -240}]");
}

TEST_F(CameraEndToEnd, IntervalAndOutputSizeRules) {
    AddDevices(
        L"[device rules]\nFriendlyName = Rules\nDevicePath = rules\n"
        L"mode = NV12 videoinfo 640 480 400000 min_interval=0 max_interval=0 min_output=160x120 "
        L"max_output=0x0\n"
        L"mode = NV12 videoinfo 1280 960 400000 min_interval=-1 max_interval=-2000000 "
        L"min_output=160x120 max_output=1920x1440\n");
    EXPECT_EQ(
        Text(Formats(L"rules")),
        "[{\"flip\": 0, \"format\": 3, \"maxRate\": 25, \"maxSize_cx\": 640, \"maxSize_cy\": 480, "
        "\"minRate\": 25, \"minSize_cx\": 640, \"minSize_cy\": 480, \"rate\": 25, \"scale_x\": 0, "
        "\"scale_y\": 0, \"size_x\": 640, \"size_y\": 480}, "
        "{\"flip\": 0, \"format\": 3, \"maxRate\": 25, \"maxSize_cx\": 1920, \"maxSize_cy\": 1440, "
        "\"minRate\": -5, \"minSize_cx\": 160, \"minSize_cy\": 120, \"rate\": 25, \"scale_x\": 0, "
        "\"scale_y\": 0, \"size_x\": 1280, \"size_y\": 960}]");
}

TEST_F(CameraEndToEnd, IdenticalModesAreBothKept) {
    AddDevices(
        L"[device dup]\nFriendlyName = Dup\nDevicePath = dup\n"
        L"mode = YUY2 videoinfo 640 480 333333\nmode = YUY2 videoinfo 640 480 333333\n");
    EXPECT_EQ(QueryClient::ToFormatListReply(Formats(L"dup")).modes.size(), 2u);
}

TEST_F(CameraEndToEnd, CapabilityFailingAtKGivesTheRecordsBeforeItUnsorted) {
    AddDevices(
        L"[device fail]\nFriendlyName = Fail\nDevicePath = fail\n"
        L"mode = YUY2 videoinfo 1280 720 333333\nmode = YUY2 videoinfo 320 240 333333\n"
        L"mode = YUY2 videoinfo 640 480 333333\nfault = caps_at:2\n");
    const QueryClient::FormatListReply reply = QueryClient::ToFormatListReply(Formats(L"fail"));
    ASSERT_EQ(reply.outcome, Outcome::Ok) << reply.detail;
    ASSERT_EQ(reply.modes.size(), 2u);
    EXPECT_EQ(reply.modes[0].size_x, 1280);
    EXPECT_EQ(reply.modes[1].size_x, 320);
}

TEST_F(CameraEndToEnd, DevicesThatCannotBeListedGiveAnEmptyArray) {
    AddDevices(
        L"[device nocap]\nFriendlyName = NoCap\nDevicePath = nocap\ncategory = none\nmode = YUY2 "
        L"videoinfo 640 480 333333\n"
        L"[device nocfg]\nFriendlyName = NoCfg\nDevicePath = nocfg\nstream_config = off\nmode = "
        L"YUY2 videoinfo 640 480 333333\n"
        L"[device nocount]\nFriendlyName = NoCount\nDevicePath = nocount\nfault = caps_count\nmode "
        L"= YUY2 videoinfo 640 480 333333\n");
    for (const wchar_t* id : {L"nocap", L"nocfg", L"nocount", L"unknown-device", L""}) {
        const RawReply reply = Formats(id);
        EXPECT_EQ(reply.outcome, Outcome::Ok) << reply.detail;
        EXPECT_EQ(Text(reply), "[]") << Narrow(id);
    }
}

TEST_F(CameraEndToEnd, ReplyLargerThanThePipeBufferArrivesWhole) {
    std::wstring description = L"[device big]\nFriendlyName = Big\nDevicePath = big\n";
    for (int index = 0; index < 120; ++index) {
        description += L"mode = MJPG videoinfo " + std::to_wstring(100 + index) + L" " +
                       std::to_wstring(100 + index) + L" 333333\n";
    }
    AddDevices(description);
    const QueryClient::FormatListReply reply = QueryClient::ToFormatListReply(Formats(L"big"));
    ASSERT_EQ(reply.outcome, Outcome::Ok) << reply.detail;
    EXPECT_GT(reply.json.size(), 16384u);
    ASSERT_EQ(reply.modes.size(), 120u);
    EXPECT_EQ(reply.modes.front().size_x, 100);
    EXPECT_EQ(reply.modes.back().size_x, 219);
}

TEST_F(CameraEndToEnd, DriverThatHangsInTheCapabilitiesEndsInATimeoutAndTheNextQueryWorks) {
    AddDevices(
        L"[device slow]\nFriendlyName = Slow\nDevicePath = slow\nmode = YUY2 videoinfo 640 480 "
        L"333333\n" +
        HangFault(L"caps") +
        L"[device fine]\nFriendlyName = Fine\nDevicePath = fine\nmode = YUY2 videoinfo 640 480 "
        L"333333\n");
    const RawReply hung = Formats(L"slow", kHangDeadlineMs);
    EXPECT_EQ(hung.outcome, Outcome::TimedOutWaitingForEvent) << hung.detail;
    const QueryClient::FormatListReply next = QueryClient::ToFormatListReply(Formats(L"fine"));
    EXPECT_EQ(next.outcome, Outcome::Ok) << next.detail;
    EXPECT_EQ(next.modes.size(), 1u);
}

}  // namespace
