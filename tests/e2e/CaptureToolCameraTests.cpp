// CaptureTool.exe end to end: a real capture graph in the tool's own process, against virtual
// cameras registered by this test program.
#include "tests/e2e/CameraTest.h"
#include "tests/e2e/ToolRun.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <string>

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

}  // namespace
