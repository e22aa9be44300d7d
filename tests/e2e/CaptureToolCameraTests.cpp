// CaptureTool.exe end to end: a real capture graph in the tool's own process, against virtual
// cameras registered by this test program.
#include "tests/e2e/CameraTest.h"
#include "tests/e2e/ToolRun.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <wincodec.h>
#include <wrl/client.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "tools/CaptureTool/CaptureArguments.h"
#include "tools/CaptureTool/Snapshot.h"
#include "tools/VirtualCamera/Config/FramePattern.h"

namespace {

using TestSupport::ToolRun;

// The tool writes in the C runtime's text mode: each line ends in CR LF.
const std::string kLineEnd = "\r\n";

ToolRun RunCaptureTool(const std::wstring& arguments) {
    return TestSupport::RunProgram(L"CaptureTool.exe", arguments);
}

// The summary that --json printed, or null when the output is not one JSON object.
nlohmann::json Summary(const ToolRun& run) {
    nlohmann::json summary = nlohmann::json::parse(run.out, nullptr, false);
    EXPECT_TRUE(summary.is_object()) << run.out;
    return summary.is_object() ? summary : nlohmann::json();
}

class CaptureToolWithCamera : public CameraTest {};

TEST_F(CaptureToolWithCamera, Yuy2ConnectsDirectlyAndCountsExactlyTheFramesAsked) {
    AddDevices(
        L"[device cap]\nFriendlyName = Capture Camera\nDevicePath = capcam\n"
        L"mode = MJPG videoinfo 320 240 333333\n"
        L"mode = YUY2 videoinfo 320 240 333333\n"
        L"mode = YUY2 videoinfo 160 120 333333\n");
    const ToolRun run = RunCaptureTool(L"capcam --format YUY2 --size 160x120 --frames 10 --json");
    ASSERT_EQ(run.exitCode, 0u) << run.err;
    EXPECT_EQ(run.err, "");
    const nlohmann::json summary = Summary(run);
    EXPECT_EQ(summary.value("device_id", ""), "capcam");
    EXPECT_EQ(summary.value("path", ""), "direct");
    EXPECT_EQ(summary.value("frames", -1), 10);
    EXPECT_EQ(summary.value("device_lost", true), false);
    EXPECT_EQ(summary["current"].value("format", ""), "YUY2");
    EXPECT_EQ(summary["current"].value("width", 0), 160);
    EXPECT_EQ(summary["current"].value("height", 0), 120);
    EXPECT_EQ(summary["requested"].value("format", ""), "YUY2");
    EXPECT_EQ(summary["requested"].value("width", 0), 160);
}

TEST_F(CaptureToolWithCamera, WithoutAFormatTheFirstListedModeIsTaken) {
    AddDevices(
        L"[device cap]\nFriendlyName = Capture Camera\nDevicePath = capcam\n"
        L"mode = YUY2 videoinfo 176 144 333333\n"
        L"mode = YUY2 videoinfo 320 240 333333\n");
    const ToolRun run = RunCaptureTool(L"capcam --frames 3 --json");
    ASSERT_EQ(run.exitCode, 0u) << run.err;
    const nlohmann::json summary = Summary(run);
    EXPECT_EQ(summary["requested"].value("width", 0), 176);
    EXPECT_EQ(summary["current"].value("height", 0), 144);
}

TEST_F(CaptureToolWithCamera, MjpegWithoutTheDecoderReachesTheSinkAsItIs) {
    AddDevices(
        L"[device cap]\nFriendlyName = Capture Camera\nDevicePath = capcam\n"
        L"mode = MJPG videoinfo 160 120 333333\n");
    const ToolRun run =
        RunCaptureTool(L"capcam --format MJPG --no-mjpeg-decoder --frames 5 --json");
    ASSERT_EQ(run.exitCode, 0u) << run.err;
    const nlohmann::json summary = Summary(run);
    EXPECT_EQ(summary.value("path", ""), "direct");
    EXPECT_EQ(summary.value("frames", -1), 5);
    EXPECT_EQ(summary["current"].value("format", ""), "MJPEG");
    EXPECT_EQ(summary["current"].value("width", 0), 160);
}

TEST_F(CaptureToolWithCamera, TextOutputEndsWithTheSummary) {
    AddDevices(
        L"[device cap]\nFriendlyName = Capture Camera\nDevicePath = capcam\n"
        L"mode = YUY2 videoinfo 160 120 333333\n");
    const ToolRun run = RunCaptureTool(L"capcam --frames 2");
    ASSERT_EQ(run.exitCode, 0u) << run.err;
    EXPECT_NE(run.out.find("requested: YUY2 160x120 at 30.000 fps" + kLineEnd +
                           "current:   YUY2 160x120 at 30.000 fps" + kLineEnd +
                           "path:      direct" + kLineEnd + "frames:    2 in "),
              std::string::npos)
        << run.out;
    EXPECT_NE(run.out.find("device lost: no" + kLineEnd), std::string::npos) << run.out;
}

TEST_F(CaptureToolWithCamera, AnIdThatNoDeviceHasIsNoSuchDevice) {
    AddDevices(
        L"[device cap]\nFriendlyName = Capture Camera\nDevicePath = capcam\n"
        L"mode = YUY2 videoinfo 160 120 333333\n");
    const ToolRun run = RunCaptureTool(L"nosuch --json");
    EXPECT_EQ(run.exitCode, 1u);
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(run.err, "CaptureTool: no such device \"nosuch\"" + kLineEnd);
}

TEST_F(CaptureToolWithCamera, AModeTheCameraLacksIsNoSuchMode) {
    AddDevices(
        L"[device cap]\nFriendlyName = Capture Camera\nDevicePath = capcam\n"
        L"mode = YUY2 videoinfo 160 120 333333\n");
    const ToolRun run = RunCaptureTool(L"capcam --format UYVY");
    EXPECT_EQ(run.exitCode, 1u);
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(run.err, "CaptureTool: no such mode: format UYUY, any size, any rate" + kLineEnd);
}

TEST_F(CaptureToolWithCamera, AnUnpluggedCameraIsADeviceLost) {
    AddDevices(
        L"[device cap]\nFriendlyName = Capture Camera\nDevicePath = capcam\n"
        L"fault = unplug_after:3\nmode = YUY2 videoinfo 160 120 333333\n");
    const ToolRun run = RunCaptureTool(L"capcam --frames 30 --json");
    EXPECT_EQ(run.exitCode, 1u);
    EXPECT_EQ(run.err, "CaptureTool: device lost after 3 frames" + kLineEnd);
    const nlohmann::json summary = Summary(run);
    EXPECT_EQ(summary.value("device_lost", false), true);
    EXPECT_EQ(summary.value("frames", -1), 3);
}

TEST_F(CaptureToolWithCamera, BadArgumentsEndWithTheUsageAndExitCode2) {
    const ToolRun run = RunCaptureTool(L"capcam --size 640");
    EXPECT_EQ(run.exitCode, 2u);
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(run.err.rfind("usage: CaptureTool <device_id>", 0), 0u) << run.err;
    const std::string last = "CaptureTool: --size takes WIDTHxHEIGHT in pixels, not 640" + kLineEnd;
    ASSERT_GE(run.err.size(), last.size());
    EXPECT_EQ(run.err.substr(run.err.size() - last.size()), last);
}

// A PNG read back through the platform's decoder, as top-down 24-bit BGR rows.
struct Picture {
    UINT width = 0;
    UINT height = 0;
    std::vector<uint8_t> bgr;

    const uint8_t* Pixel(UINT x, UINT y) const { return &bgr[(y * width + x) * 3]; }
};

::testing::AssertionResult ReadPng(const std::wstring& path, Picture& picture) {
    using Microsoft::WRL::ComPtr;
    ComPtr<IWICImagingFactory> factory;
    HRESULT hr = CoCreateInstance(CLSID_WICImagingFactory, nullptr, CLSCTX_INPROC_SERVER,
                                  IID_PPV_ARGS(&factory));
    ComPtr<IWICBitmapDecoder> decoder;
    if (SUCCEEDED(hr)) {
        hr = factory->CreateDecoderFromFilename(path.c_str(), nullptr, GENERIC_READ,
                                                WICDecodeMetadataCacheOnDemand, &decoder);
    }
    GUID container{};
    if (SUCCEEDED(hr)) {
        hr = decoder->GetContainerFormat(&container);
    }
    if (SUCCEEDED(hr) && !IsEqualGUID(container, GUID_ContainerFormatPng)) {
        return ::testing::AssertionFailure() << "the file is no PNG";
    }
    ComPtr<IWICBitmapFrameDecode> frame;
    if (SUCCEEDED(hr)) {
        hr = decoder->GetFrame(0, &frame);
    }
    ComPtr<IWICFormatConverter> converter;
    if (SUCCEEDED(hr)) {
        hr = factory->CreateFormatConverter(&converter);
    }
    if (SUCCEEDED(hr)) {
        hr =
            converter->Initialize(frame.Get(), GUID_WICPixelFormat24bppBGR, WICBitmapDitherTypeNone,
                                  nullptr, 0.0, WICBitmapPaletteTypeCustom);
    }
    if (SUCCEEDED(hr)) {
        hr = converter->GetSize(&picture.width, &picture.height);
    }
    if (SUCCEEDED(hr)) {
        picture.bgr.assign(static_cast<size_t>(picture.width) * picture.height * 3, 0);
        hr = converter->CopyPixels(nullptr, picture.width * 3,
                                   static_cast<UINT>(picture.bgr.size()), picture.bgr.data());
    }
    if (FAILED(hr)) {
        return ::testing::AssertionFailure() << "decoding failed with " << std::hex << hr;
    }
    return ::testing::AssertionSuccess();
}

// Approximate BT.601 luma of a BGR pixel, on the 16..235 scale of the camera's YUV frames.
int Luma(const uint8_t* bgr) {
    return ((66 * bgr[2] + 129 * bgr[1] + 25 * bgr[0] + 128) >> 8) + 16;
}

// The frame counter that the camera writes into the first 32 pixels of its first row in memory:
// row `y` of the picture.
uint32_t CounterOfRow(const Picture& picture, UINT y) {
    uint32_t counter = 0;
    for (UINT x = 0; x < 32; ++x) {
        counter = (counter << 1) | (Luma(picture.Pixel(x, y)) >= 128 ? 1u : 0u);
    }
    return counter;
}

// The picture of an RGB frame that the camera painted bottom-up with `bytesPerPixel` bytes a
// pixel, as top-down BGR rows.
std::vector<uint8_t> BottomUpRgbPicture(const GUID& subtype, int bytesPerPixel, uint32_t counter) {
    const size_t stride = 160 * static_cast<size_t>(bytesPerPixel);
    std::vector<BYTE> frame(stride * 120);
    VirtualCamera::PaintFrame(subtype, 160, 120, counter, frame.data(), frame.size());
    std::vector<uint8_t> picture;
    for (int row = 119; row >= 0; --row) {
        for (int x = 0; x < 160; ++x) {
            const BYTE* pixel = &frame[row * stride + x * bytesPerPixel];
            picture.insert(picture.end(), pixel, pixel + 3);
        }
    }
    return picture;
}

class CaptureToolSnapshot : public CaptureToolWithCamera {
protected:
    void SetUp() override {
        CaptureToolWithCamera::SetUp();
        m_path = TestSupport::TempFolder(L"snapshot") + L".png";
        DeleteFileW(m_path.c_str());
    }
    void TearDown() override {
        DeleteFileW(m_path.c_str());
        CaptureToolWithCamera::TearDown();
    }
    // Captures three frames of a camera whose one mode is this bottom-up RGB subtype, and checks
    // that the snapshot is the camera's frame turned the right way up: the first row in memory,
    // where the camera's counter sits, is the bottom of the picture.
    void ExpectBottomUpSnapshot(const wchar_t* subtypeName, const char* formatAtTheSink,
                                const GUID& subtype, int bytesPerPixel) {
        AddDevices(std::wstring(L"[device cap]\nFriendlyName = Capture Camera\nDevicePath = "
                                L"capcam\nmode = ") +
                   subtypeName + L" videoinfo 160 120 333333\n");
        const ToolRun run =
            RunCaptureTool(L"capcam --frames 3 --snapshot \"" + m_path + L"\" --json");
        ASSERT_EQ(run.exitCode, 0u) << run.err;
        EXPECT_EQ(Summary(run)["current"].value("format", ""), formatAtTheSink);
        Picture picture;
        ASSERT_TRUE(ReadPng(m_path, picture));
        ASSERT_EQ(picture.width, 160u);
        ASSERT_EQ(picture.height, 120u);
        const uint32_t counter = CounterOfRow(picture, 119);
        EXPECT_GE(counter, 1u);
        EXPECT_LT(counter, 1000u);
        EXPECT_TRUE(picture.bgr == BottomUpRgbPicture(subtype, bytesPerPixel, counter))
            << "the picture differs from frame " << counter;
    }

    std::wstring m_path;
};

TEST_F(CaptureToolSnapshot, Yuy2FrameIsWrittenExactlyAsTheCameraPaintedItTopRowFirst) {
    AddDevices(
        L"[device cap]\nFriendlyName = Capture Camera\nDevicePath = capcam\n"
        L"mode = YUY2 videoinfo 160 120 333333\n");
    const ToolRun run = RunCaptureTool(
        L"capcam --format YUY2 --size 160x120 --frames 3 --snapshot \"" + m_path + L"\" --json");
    ASSERT_EQ(run.exitCode, 0u) << run.err;
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(Summary(run).value("snapshot", ""), CaptureTool::ToUtf8(m_path));
    Picture picture;
    ASSERT_TRUE(ReadPng(m_path, picture));
    ASSERT_EQ(picture.width, 160u);
    ASSERT_EQ(picture.height, 120u);
    // The camera's counter sits in the first row of its frames; a picture upside down would
    // carry the bars there instead, and match no frame of the camera.
    const uint32_t counter = CounterOfRow(picture, 0);
    EXPECT_GE(counter, 1u);
    EXPECT_LT(counter, 1000u);
    std::vector<BYTE> frame(160 * 120 * 2);
    VirtualCamera::PaintFrame(MEDIASUBTYPE_YUY2, 160, 120, counter, frame.data(), frame.size());
    std::vector<uint8_t> expected(160 * 120 * 3);
    CaptureTool::Yuy2ToBgr(frame.data(), 160, 120, expected.data());
    EXPECT_TRUE(picture.bgr == expected) << "the picture differs from frame " << counter;
}

TEST_F(CaptureToolSnapshot, BottomUpRgb24FrameIsTurnedTheRightWayUp) {
    ExpectBottomUpSnapshot(L"RGB24", "BGR24", MEDIASUBTYPE_RGB24, 3);
}

TEST_F(CaptureToolSnapshot, BottomUpRgb32FrameIsTurnedTheRightWayUpAndOpaque) {
    ExpectBottomUpSnapshot(L"RGB32", "BGRA", MEDIASUBTYPE_RGB32, 4);
}

TEST_F(CaptureToolSnapshot, TextSummaryEndsWithTheSnapshotLine) {
    AddDevices(
        L"[device cap]\nFriendlyName = Capture Camera\nDevicePath = capcam\n"
        L"mode = YUY2 videoinfo 160 120 333333\n");
    const ToolRun run = RunCaptureTool(L"capcam --frames 2 --snapshot \"" + m_path + L"\"");
    ASSERT_EQ(run.exitCode, 0u) << run.err;
    const std::string line = "snapshot: " + CaptureTool::ToUtf8(m_path) + kLineEnd;
    ASSERT_GE(run.out.size(), line.size());
    EXPECT_EQ(run.out.substr(run.out.size() - line.size()), line);
}

TEST_F(CaptureToolSnapshot, WithoutSnapshotTheJsonSaysNull) {
    AddDevices(
        L"[device cap]\nFriendlyName = Capture Camera\nDevicePath = capcam\n"
        L"mode = YUY2 videoinfo 160 120 333333\n");
    const ToolRun run = RunCaptureTool(L"capcam --frames 2 --json");
    ASSERT_EQ(run.exitCode, 0u) << run.err;
    const nlohmann::json summary = Summary(run);
    ASSERT_TRUE(summary.contains("snapshot")) << run.out;
    EXPECT_TRUE(summary["snapshot"].is_null());
}

TEST_F(CaptureToolSnapshot, MjpegFrameIsDecodedAndWrittenAsThePicture) {
    AddDevices(
        L"[device cap]\nFriendlyName = Capture Camera\nDevicePath = capcam\n"
        L"mode = MJPG videoinfo 160 120 333333\n");
    const ToolRun run = RunCaptureTool(
        L"capcam --format MJPG --no-mjpeg-decoder --frames 3 "
        L"--snapshot \"" +
        m_path + L"\" --json");
    ASSERT_EQ(run.exitCode, 0u) << run.err;
    const nlohmann::json summary = Summary(run);
    EXPECT_EQ(summary["current"].value("format", ""), "MJPEG");
    EXPECT_EQ(summary.value("snapshot", ""), CaptureTool::ToUtf8(m_path));
    Picture picture;
    ASSERT_TRUE(ReadPng(m_path, picture));
    ASSERT_EQ(picture.width, 160u);
    ASSERT_EQ(picture.height, 120u);
    // The camera's JPEG picture: blue is the bars' level, green its opposite, red a ramp from
    // the left edge (0) to the right (255). JPEG loses a little, hence the margins.
    const UINT middle = picture.height / 2;
    EXPECT_LT(picture.Pixel(0, middle)[2], 40);
    EXPECT_GT(picture.Pixel(159, middle)[2], 215);
    int blueSeen[2] = {255, 0};
    for (UINT x = 0; x < picture.width; ++x) {
        const uint8_t* pixel = picture.Pixel(x, middle);
        EXPECT_NEAR(pixel[0] + pixel[1], 255, 40) << "x " << x;
        blueSeen[0] = std::min<int>(blueSeen[0], pixel[0]);
        blueSeen[1] = std::max<int>(blueSeen[1], pixel[0]);
    }
    // Not all one colour: the bars span most of the range.
    EXPECT_GT(blueSeen[1] - blueSeen[0], 100);
}

TEST_F(CaptureToolSnapshot, AFolderThatDoesNotExistFailsWithExitCode1AndOneLine) {
    AddDevices(
        L"[device cap]\nFriendlyName = Capture Camera\nDevicePath = capcam\n"
        L"mode = YUY2 videoinfo 160 120 333333\n");
    const std::wstring path = TestSupport::TempFolder(L"no-such-folder") + L"\\shot.png";
    const ToolRun run = RunCaptureTool(L"capcam --frames 2 --snapshot \"" + path + L"\" --json");
    EXPECT_EQ(run.exitCode, 1u);
    const std::string prefix =
        "CaptureTool: cannot write snapshot " + CaptureTool::ToUtf8(path) + ": ";
    EXPECT_EQ(run.err.rfind(prefix, 0), 0u) << run.err;
    EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 1) << run.err;
    EXPECT_TRUE(Summary(run)["snapshot"].is_null());
    EXPECT_EQ(GetFileAttributesW(path.c_str()), INVALID_FILE_ATTRIBUTES);
}

TEST_F(CaptureToolSnapshot, SnapshotWithoutAPathEndsWithTheUsageAndExitCode2) {
    const ToolRun run = RunCaptureTool(L"capcam --snapshot");
    EXPECT_EQ(run.exitCode, 2u);
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(run.err.rfind("usage: CaptureTool <device_id>", 0), 0u) << run.err;
    const std::string last = "CaptureTool: --snapshot needs a value" + kLineEnd;
    ASSERT_GE(run.err.size(), last.size());
    EXPECT_EQ(run.err.substr(run.err.size() - last.size()), last);
}

}  // namespace
