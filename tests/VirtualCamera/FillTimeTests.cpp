// The fill time a device can stamp into its frames (stamp_fill_time = on): the performance
// counter at which each frame was finished, beside a frame counter that stays as it was.

#include <dshow.h>

#include "FramePictures.h"
#include "VirtualCameraFixture.h"
#include "tools/VirtualCamera/Config/FramePattern.h"

namespace VirtualCameraTests {
namespace {

class VirtualCameraFillTimeTest : public VirtualCameraTest {
protected:
    static LONGLONG Now() {
        LARGE_INTEGER now = {};
        QueryPerformanceCounter(&now);
        return now.QuadPart;
    }

    // The arrival of a frame, which the sink notes in microseconds, in counter ticks, rounded up.
    static LONGLONG ArrivalTicks(const ReceivedFrame& frame) {
        LARGE_INTEGER frequency = {};
        QueryPerformanceFrequency(&frequency);
        return (frame.arrivalMicroseconds + 1) * frequency.QuadPart / 1000000 + 1;
    }

    static void ExpectStampsBetweenRunAndArrival(const std::vector<ReceivedFrame>& frames,
                                                 LONGLONG before) {
        ASSERT_FALSE(frames.empty());
        for (size_t i = 0; i < frames.size(); ++i) {
            ASSERT_TRUE(frames[i].fillTimeDecoded) << i;
            EXPECT_GE(static_cast<LONGLONG>(frames[i].fillTime), before) << i;
            EXPECT_LE(static_cast<LONGLONG>(frames[i].fillTime), ArrivalTicks(frames[i])) << i;
            if (i > 0) {
                EXPECT_GE(frames[i].fillTime, frames[i - 1].fillTime) << i;
            }
            EXPECT_TRUE(frames[i].counterDecoded) << i;
            EXPECT_EQ(frames[i].counter, frames[0].counter + i) << i;
        }
    }
};

TEST_F(VirtualCameraFillTimeTest, UncompressedFramesCarryTheirFillTimeBesideTheCounter) {
    const std::wstring name =
        AddDevice(L"stamp_fill_time = on\nmode = YUY2 videoinfo 128 16 200000\n");
    CaptureGraph graph;
    BuildGraph(name, &graph);
    const LONGLONG before = Now();
    ExpectStampsBetweenRunAndArrival(RunFor(&graph, 5), before);
}

TEST_F(VirtualCameraFillTimeTest, MjpgFramesCarryTheirFillTimeInASegment) {
    const std::wstring name =
        AddDevice(L"stamp_fill_time = on\nmode = MJPG videoinfo 64 48 200000\n");
    CaptureGraph graph;
    BuildGraph(name, &graph);
    const LONGLONG before = Now();
    const auto frames = RunFor(&graph, 4);
    ExpectStampsBetweenRunAndArrival(frames, before);
    for (const auto& frame : frames) EXPECT_TRUE(frame.validJpeg);
}

TEST_F(VirtualCameraFillTimeTest, WithoutTheSettingMjpgFramesCarryNoStamp) {
    const std::wstring name = AddDevice(L"mode = MJPG videoinfo 64 48 200000\n");
    CaptureGraph graph;
    BuildGraph(name, &graph);
    const auto frames = RunFor(&graph, 3);
    ASSERT_FALSE(frames.empty());
    for (const auto& frame : frames) {
        EXPECT_FALSE(frame.fillTimeDecoded);
        EXPECT_TRUE(frame.counterDecoded);
    }
}

TEST_F(VirtualCameraFillTimeTest, StampChangesNothingButItsOwnPixels) {
    const std::wstring name =
        AddDevice(L"stamp_fill_time = on\nmode = NV12 videoinfo 128 16 200000\n");
    CaptureGraph graph;
    BuildGraph(name, &graph);
    graph.sink->KeepBytes(true);
    const auto frames = RunFor(&graph, 2);
    ASSERT_FALSE(frames.empty());
    for (const auto& frame : frames) {
        ASSERT_TRUE(frame.fillTimeDecoded);
        std::vector<BYTE> expected = ReferenceFrameBytes(MEDIASUBTYPE_NV12, 128, 16, frame.counter);
        VirtualCamera::WriteFillTime(MEDIASUBTYPE_NV12, 128, frame.fillTime, expected.data(),
                                     expected.size());
        EXPECT_EQ(frame.bytes, expected);
    }
}

TEST_F(VirtualCameraFillTimeTest, WithoutTheSettingFramesAreThePlainPicture) {
    const std::wstring name = AddDevice(L"mode = NV12 videoinfo 128 16 200000\n");
    CaptureGraph graph;
    BuildGraph(name, &graph);
    graph.sink->KeepBytes(true);
    const auto frames = RunFor(&graph, 2);
    ASSERT_FALSE(frames.empty());
    for (const auto& frame : frames) {
        EXPECT_EQ(frame.bytes, ReferenceFrameBytes(MEDIASUBTYPE_NV12, 128, 16, frame.counter));
    }
}

}  // namespace
}  // namespace VirtualCameraTests
