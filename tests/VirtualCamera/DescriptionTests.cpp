// The description parser and the frame counter, independent of any registered device.

#include <gtest/gtest.h>

#include <dshow.h>

#include <random>

#include "tools/VirtualCamera/Config/DeviceConfig.h"
#include "tools/VirtualCamera/Config/FramePattern.h"
#include "tools/VirtualCamera/Config/Guids.h"
#include "tools/VirtualCamera/Config/MediaFormats.h"
#include "tools/VirtualCamera/VirtualCameraSetup.h"

namespace VirtualCameraTests {
namespace {

using namespace VirtualCamera;

std::string Narrow(const std::wstring& text) {
    return std::string(text.begin(), text.end());
}

std::wstring ParseError(const std::wstring& text) {
    std::vector<DeviceDescription> devices;
    std::wstring error;
    EXPECT_FALSE(ParseDescription(text, &devices, &error)) << Narrow(text);
    return error;
}

TEST(VirtualCameraDescription, DefaultCameraHasThreeModesAndNames) {
    std::vector<DeviceDescription> devices;
    std::wstring error;
    ASSERT_TRUE(ParseDescription(DefaultCameraDescription(), &devices, &error)) << Narrow(error);
    ASSERT_EQ(devices.size(), 1u);
    const DeviceDescription& camera = devices[0];
    EXPECT_EQ(camera.friendlyName.kind, NameKind::Text);
    EXPECT_EQ(camera.friendlyName.text, L"Virtual Camera");
    EXPECT_EQ(camera.devicePath.kind, NameKind::Text);
    EXPECT_EQ(camera.description.kind, NameKind::Absent);
    ASSERT_EQ(camera.settings.modes.size(), 3u);
    EXPECT_EQ(SubtypeName(camera.settings.modes[0].subtype), L"YUY2");
    EXPECT_EQ(camera.settings.modes[0].width, 640);
    EXPECT_EQ(camera.settings.modes[0].height, 480);
    EXPECT_EQ(camera.settings.modes[0].avgTimePerFrame, 333333);
    EXPECT_EQ(camera.settings.modes[0].minFrameInterval, 333333);
    EXPECT_EQ(camera.settings.modes[0].maxFrameInterval, 2000000);
    EXPECT_EQ(camera.settings.modes[1].width, 1280);
    EXPECT_EQ(SubtypeName(camera.settings.modes[2].subtype), L"MJPG");
    EXPECT_EQ(camera.settings.modes[2].height, 720);
}

TEST(VirtualCameraDescription, ModeDefaultsFollowTheFrameAndOptionsOverrideThem) {
    std::vector<DeviceDescription> devices;
    std::wstring error;
    ASSERT_TRUE(
        ParseDescription(L"[device a]\n"
                         L"mode = NV12 videoinfo2 320 -240 400000\n"
                         L"mode = ABCD none 16 16 0 min_interval=0 max_interval=-5 "
                         L"min_output=0x0 max_output=-1x-2\n",
                         &devices, &error))
        << Narrow(error);
    const auto& modes = devices.at(0).settings.modes;
    ASSERT_EQ(modes.size(), 2u);
    EXPECT_EQ(modes[0].format, FormatBlock::VideoInfo2);
    EXPECT_EQ(modes[0].height, -240);
    EXPECT_EQ(modes[0].minFrameInterval, 400000);
    EXPECT_EQ(modes[0].maxFrameInterval, 400000);
    EXPECT_EQ(modes[0].minOutputSize.cx, 320);
    EXPECT_EQ(modes[0].maxOutputSize.cy, -240);
    EXPECT_EQ(modes[1].format, FormatBlock::None);
    EXPECT_EQ(modes[1].subtype.Data1, 0x44434241u);  // 'ABCD'
    EXPECT_EQ(modes[1].minFrameInterval, 0);
    EXPECT_EQ(modes[1].maxFrameInterval, -5);
    EXPECT_EQ(modes[1].minOutputSize.cx, 0);
    EXPECT_EQ(modes[1].maxOutputSize.cx, -1);
    EXPECT_EQ(modes[1].maxOutputSize.cy, -2);
}

TEST(VirtualCameraDescription, BehaviourKeysAreParsed) {
    std::vector<DeviceDescription> devices;
    std::wstring error;
    ASSERT_TRUE(
        ParseDescription(L"# two devices\n\n[device one]\nFriendlyName:i4 = -7\n"
                         L"category = {11111111-2222-3333-4444-555555555555}\n"
                         L"stream_config = off\n"
                         L"mediums = zero,analog,{11111111-2222-3333-4444-555555555555}:5:7\n"
                         L"fault = caps_at:2, delay_run:40\nfault = unplug_after:3\n"
                         L"[device two]\ncategory = short\n"
                         L"fault = caps_size:8, short_format:1, short_mediums\n",
                         &devices, &error))
        << Narrow(error);
    ASSERT_EQ(devices.size(), 2u);
    const DeviceDescription& one = devices[0];
    EXPECT_EQ(one.friendlyName.kind, NameKind::Number);
    EXPECT_EQ(one.friendlyName.number, -7);
    EXPECT_EQ(one.settings.category, CategoryAnswer::Custom);
    EXPECT_FALSE(one.settings.streamConfig);
    ASSERT_EQ(one.settings.mediums.size(), 3u);
    EXPECT_TRUE(IsEqualGUID(one.settings.mediums[0].set, GUID_NULL));
    EXPECT_TRUE(IsEqualGUID(one.settings.mediums[1].set, MEDIUMSETID_VirtualCameraAnalog));
    EXPECT_EQ(one.settings.mediums[2].id, 5u);
    EXPECT_EQ(one.settings.mediums[2].flags, 7u);
    EXPECT_EQ(one.settings.faults.failCapsAt, 2);
    EXPECT_EQ(one.settings.faults.delayRunMs, 40u);
    EXPECT_EQ(one.settings.faults.unplugAfterFrames, 3);
    EXPECT_EQ(one.settings.faults.statedCapsSize, -1);
    EXPECT_EQ(one.settings.faults.shortFormatAt, -1);
    EXPECT_FALSE(one.settings.faults.shortMediumList);
    EXPECT_EQ(devices[1].settings.category, CategoryAnswer::Short);
    EXPECT_EQ(devices[1].settings.faults.statedCapsSize, 8);
    EXPECT_EQ(devices[1].settings.faults.shortFormatAt, 1);
    EXPECT_TRUE(devices[1].settings.faults.shortMediumList);
    ASSERT_EQ(devices[1].settings.mediums.size(), 1u);
    EXPECT_TRUE(IsEqualGUID(devices[1].settings.mediums[0].set, KSMEDIUMSETID_Standard));
    // What the device reads back from its bag is the same behaviour.
    DeviceSettings reread;
    ASSERT_TRUE(ParseDeviceSettings(one.settingsText, &reread, &error)) << Narrow(error);
    EXPECT_EQ(reread.mediums.size(), 3u);
    EXPECT_EQ(reread.faults.unplugAfterFrames, 3);
}

TEST(VirtualCameraDescription, ErrorsNameTheLine) {
    EXPECT_NE(ParseError(L"[device a]\n\nbogus = 1\n").find(L"line 3"), std::wstring::npos);
    EXPECT_NE(ParseError(L"mode = YUY2 videoinfo 1 1 1\n").find(L"line 1"), std::wstring::npos);
    EXPECT_NE(ParseError(L"[device a]\nmode = YUY2 videoinfo 1 x 1\n").find(L"line 2"),
              std::wstring::npos);
    EXPECT_NE(ParseError(L"[device a]\nmode = TOOLONG videoinfo 1 1 1\n").find(L"subtype"),
              std::wstring::npos);
    EXPECT_NE(ParseError(L"[device a]\nfault = explode\n").find(L"explode"), std::wstring::npos);
    EXPECT_NE(ParseError(L"[device a]\nmediums = {nope}:1:2\n").find(L"line 2"),
              std::wstring::npos);
    EXPECT_NE(ParseError(L"[device ]\n").find(L"instance name"), std::wstring::npos);
    EXPECT_NE(ParseError(L"# nothing\n").find(L"no device"), std::wstring::npos);
    EXPECT_NE(ParseError(L"[device a]\nFriendlyName:i4 = ten\n").find(L"integer"),
              std::wstring::npos);
}

TEST(VirtualCameraDescription, ModeChangeFillTimeAndPowerLineKeysAreParsed) {
    std::vector<DeviceDescription> devices;
    std::wstring error;
    ASSERT_TRUE(
        ParseDescription(L"[device one]\n"
                         L"change_after = 5:1\n"
                         L"mode = YUY2 videoinfo 64 48 333333\n"
                         L"mode = RGB24 videoinfo 32 24 333333\n"
                         L"stamp_fill_time = on\n"
                         L"fault = powerline_read_only\n"
                         L"[device two]\nfault = powerline_unsupported\n",
                         &devices, &error))
        << Narrow(error);
    ASSERT_EQ(devices.size(), 2u);
    const DeviceSettings& one = devices[0].settings;
    EXPECT_EQ(one.modeChange.afterFrames, 5);
    EXPECT_EQ(one.modeChange.toMode, 1u);
    EXPECT_TRUE(one.stampFillTime);
    EXPECT_EQ(one.faults.powerLine, PowerLineFault::ReadOnly);
    const DeviceSettings& two = devices[1].settings;
    EXPECT_EQ(two.modeChange.afterFrames, -1);
    EXPECT_FALSE(two.stampFillTime);
    EXPECT_EQ(two.faults.powerLine, PowerLineFault::Unsupported);
    DeviceSettings reread;
    ASSERT_TRUE(ParseDeviceSettings(devices[0].settingsText, &reread, &error)) << Narrow(error);
    EXPECT_EQ(reread.modeChange.afterFrames, 5);
    EXPECT_EQ(reread.modeChange.toMode, 1u);
    EXPECT_TRUE(reread.stampFillTime);
    EXPECT_EQ(reread.faults.powerLine, PowerLineFault::ReadOnly);
}

TEST(VirtualCameraDescription, ModeChangeMustNameAModeTheDeviceHas) {
    EXPECT_EQ(ParseError(L"[device a]\nchange_after = 3:2\n"
                         L"mode = YUY2 videoinfo 64 48 1\nmode = YUY2 videoinfo 32 24 1\n"),
              L"device 'a': change_after names mode 2, but the device has 2 modes");
    DeviceSettings settings;
    std::wstring error;
    EXPECT_FALSE(ParseDeviceSettings(L"change_after = 0:0\n", &settings, &error));
    EXPECT_EQ(error, L"change_after names mode 0, but the device has 0 modes");
}

TEST(VirtualCameraDescription, ModeChangeAndFillTimeRefuseMalformedValues) {
    EXPECT_EQ(ParseError(L"[device a]\nchange_after = 3\n"),
              L"line 2: change_after needs <frames>:<mode index>, got '3'");
    EXPECT_EQ(ParseError(L"[device a]\nchange_after = -1:0\n"),
              L"line 2: change_after needs <frames>:<mode index>, got '-1:0'");
    EXPECT_EQ(ParseError(L"[device a]\nchange_after = 1:x\n"),
              L"line 2: change_after needs <frames>:<mode index>, got '1:x'");
    EXPECT_EQ(ParseError(L"[device a]\nstamp_fill_time = yes\n"),
              L"line 2: expected on or off, got 'yes'");
    EXPECT_EQ(ParseError(L"[device a]\nfault = powerline_read_only:1\n"),
              L"line 2: unknown fault 'powerline_read_only:1'");
}

TEST(VirtualCameraDescription, ArbitraryInputNeverCrashesTheParser) {
    std::mt19937 random(1234);
    const std::wstring alphabet = L"[]=:#,{}-x \n\tdevicemodeYUY2videoinfo0123456789fault_";
    for (int round = 0; round < 500; ++round) {
        std::wstring text;
        const int length = static_cast<int>(random() % 200);
        for (int i = 0; i < length; ++i) text += alphabet[random() % alphabet.size()];
        std::vector<DeviceDescription> devices;
        std::wstring error;
        if (!ParseDescription(text, &devices, &error)) {
            EXPECT_FALSE(error.empty());
        }
    }
}

class VirtualCameraFrameCounterRoundTrip : public ::testing::TestWithParam<const wchar_t*> {};

TEST_P(VirtualCameraFrameCounterRoundTrip, PaintedCounterDecodes) {
    GUID subtype;
    ASSERT_TRUE(SubtypeFromName(GetParam(), &subtype));
    const LONG width = 64;
    const LONG height = 8;
    std::vector<BYTE> frame(ImageSize(subtype, width, height));
    ASSERT_FALSE(frame.empty());
    for (uint32_t counter : {0u, 1u, 0x80000001u, 123456789u}) {
        PaintFrame(subtype, width, height, counter, frame.data(), frame.size());
        uint32_t decoded = 0;
        ASSERT_TRUE(DecodeFrameCounter(subtype, frame.data(), frame.size(), &decoded));
        EXPECT_EQ(decoded, counter);
    }
}

INSTANTIATE_TEST_SUITE_P(AllLayouts, VirtualCameraFrameCounterRoundTrip,
                         ::testing::Values(L"YUY2", L"UYVY", L"I420", L"IYUV", L"YV12", L"NV12",
                                           L"RGB24", L"RGB32", L"ARGB32", L"RGB565"));

TEST(VirtualCameraFrameCounter, JpegSegmentRoundTrip) {
    const std::vector<BYTE> jpeg = {0xFF, 0xD8, 0xFF, 0xD9};
    const std::vector<BYTE> framed = AddCounterToJpeg(jpeg, 0x01020304);
    GUID mjpg;
    ASSERT_TRUE(SubtypeFromName(L"MJPG", &mjpg));
    uint32_t decoded = 0;
    ASSERT_TRUE(DecodeFrameCounter(mjpg, framed.data(), framed.size(), &decoded));
    EXPECT_EQ(decoded, 0x01020304u);
    EXPECT_EQ(framed.back(), 0xD9);
}

class VirtualCameraFillTimeRoundTrip : public ::testing::TestWithParam<const wchar_t*> {};

TEST_P(VirtualCameraFillTimeRoundTrip, FillTimeDecodesBesideTheCounter) {
    GUID subtype;
    ASSERT_TRUE(SubtypeFromName(GetParam(), &subtype));
    const LONG width = 96;
    const LONG height = 8;
    std::vector<BYTE> frame(ImageSize(subtype, width, height));
    for (uint64_t fillTime : {0ull, 1ull, 0x8000000000000001ull, 0x0123456789ABCDEFull}) {
        PaintFrame(subtype, width, height, 77, frame.data(), frame.size());
        WriteFillTime(subtype, width, fillTime, frame.data(), frame.size());
        uint64_t decoded = 0;
        ASSERT_TRUE(DecodeFillTime(subtype, frame.data(), frame.size(), &decoded));
        EXPECT_EQ(decoded, fillTime);
        uint32_t counter = 0;
        ASSERT_TRUE(DecodeFrameCounter(subtype, frame.data(), frame.size(), &counter));
        EXPECT_EQ(counter, 77u);
    }
}

INSTANTIATE_TEST_SUITE_P(AllLayouts, VirtualCameraFillTimeRoundTrip,
                         ::testing::Values(L"YUY2", L"UYVY", L"I420", L"IYUV", L"YV12", L"NV12",
                                           L"RGB24", L"RGB32", L"ARGB32", L"RGB565"));

TEST(VirtualCameraFillTime, FrameNarrowerThanCounterAndStampCarriesNoStamp) {
    const LONG width = 64;
    std::vector<BYTE> frame(ImageSize(MEDIASUBTYPE_YUY2, width, 1));
    PaintFrame(MEDIASUBTYPE_YUY2, width, 1, 5, frame.data(), frame.size());
    WriteFillTime(MEDIASUBTYPE_YUY2, width, ~0ull, frame.data(), frame.size());
    uint64_t decoded = 0;
    EXPECT_FALSE(DecodeFillTime(MEDIASUBTYPE_YUY2, frame.data(), frame.size(), &decoded));
    uint32_t counter = 0;
    ASSERT_TRUE(DecodeFrameCounter(MEDIASUBTYPE_YUY2, frame.data(), frame.size(), &counter));
    EXPECT_EQ(counter, 5u);
}

TEST(VirtualCameraFillTime, JpegSegmentFollowsTheCounterSegment) {
    const std::vector<BYTE> jpeg = {0xFF, 0xD8, 0xFF, 0xD9};
    const std::vector<BYTE> stamped =
        AddFillTimeToJpeg(AddCounterToJpeg(jpeg, 0x01020304), 0x1122334455667788ull);
    GUID mjpg;
    ASSERT_TRUE(SubtypeFromName(L"MJPG", &mjpg));
    uint32_t counter = 0;
    ASSERT_TRUE(DecodeFrameCounter(mjpg, stamped.data(), stamped.size(), &counter));
    EXPECT_EQ(counter, 0x01020304u);
    uint64_t fillTime = 0;
    ASSERT_TRUE(DecodeFillTime(mjpg, stamped.data(), stamped.size(), &fillTime));
    EXPECT_EQ(fillTime, 0x1122334455667788ull);
    const std::vector<BYTE> segment(stamped.begin() + 14, stamped.begin() + 22);
    EXPECT_EQ(segment, std::vector<BYTE>({0xFF, 0xFE, 0x00, 0x0E, 'V', 'C', 'T', 'S'}));
    EXPECT_EQ(stamped.size(), jpeg.size() + 12 + 16);
    EXPECT_EQ(stamped.back(), 0xD9);
    uint64_t none = 0;
    EXPECT_FALSE(DecodeFillTime(mjpg, AddCounterToJpeg(jpeg, 1).data(), 18, &none));
}

}  // namespace
}  // namespace VirtualCameraTests
