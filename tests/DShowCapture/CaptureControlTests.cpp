// VideoCapture's graph control and event poll: thin calls on the real graph, their failure
// records through stand-ins where Wine's graph never fails, the event poll over real graph
// events (posted through the graph's own event sink, or sent by an unplugged camera), and the
// frame path with no callback.

#include <windows.h>

#include <dshow.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "CaptureTestSupport.h"

using namespace DShow;
using namespace CaptureTests;

namespace {

const VideoFormat kYuy2At64(TinySize(64, 48), 30.0f, PIXEL_FORMAT_YUY2);

class CaptureControl : public CaptureTest {
protected:
    void TearDown() override {
        m_capture.Uninitialize();
        CaptureTest::TearDown();
    }

    // Puts a stand-in graph control in place of the graph's own.
    ScriptedMediaControl* ScriptControl() {
        auto* control = new ScriptedMediaControl;
        m_capture.MediaControl() = control;
        control->Release();  // the capture object holds the one reference left
        return control;
    }
    ScriptedMediaEvent* ScriptEvents() {
        auto* events = new ScriptedMediaEvent;
        m_capture.MediaEvent() = events;
        events->Release();
        return events;
    }
    // Posts an event into the real graph's queue, as a filter would.
    void Post(long code, LONG_PTR param1 = 0, LONG_PTR param2 = 0) {
        ComPtr<IMediaEventSink> sink;
        ASSERT_EQ(m_capture.Graph()->QueryInterface(IID_IMediaEventSink,
                                                    reinterpret_cast<void**>(sink.GetAddressOf())),
                  S_OK);
        ASSERT_EQ(sink->Notify(code, param1, param2), S_OK);
    }

    TestableCapture m_capture;
};

TEST_F(CaptureControl, EveryControlBeforeInitializeFailsWithoutARecord) {
    TestSupport::LogCapture log;
    FILTER_STATE state = State_Paused;
    EXPECT_FALSE(m_capture.Run());
    EXPECT_FALSE(m_capture.Stop());
    EXPECT_FALSE(m_capture.Pause());
    EXPECT_FALSE(m_capture.GetState(state));
    EXPECT_FALSE(m_capture.CheckEvents());
    EXPECT_EQ(state, State_Paused);
    EXPECT_TRUE(log.Messages().empty());
}

TEST_F(CaptureControl, ARunRefusedAsInUseNamesTheLikelyCause) {
    ScriptControl()->runResult = static_cast<HRESULT>(0x8007001F);
    TestSupport::LogCapture log;
    EXPECT_FALSE(m_capture.Run());
    EXPECT_EQ(log.Messages(),
              std::vector<std::string>{"Failed to Run(0x8007001F) sometimes caused by a device "
                                       "already in use by other application"});
}

TEST_F(CaptureControl, AnyOtherRunFailureIsReportedWithItsCode) {
    ScriptControl()->runResult = E_FAIL;
    TestSupport::LogCapture log;
    EXPECT_FALSE(m_capture.Run());
    EXPECT_EQ(log.Messages(), std::vector<std::string>{"Failed to Run(0x80004005)"});
}

TEST_F(CaptureControl, StopAndPauseFailuresAreReportedWithTheirCodes) {
    ScriptedMediaControl* control = ScriptControl();
    control->stopResult = E_UNEXPECTED;
    control->pauseResult = E_OUTOFMEMORY;
    TestSupport::LogCapture log;
    EXPECT_FALSE(m_capture.Stop());
    EXPECT_FALSE(m_capture.Pause());
    EXPECT_EQ(log.Messages(), (std::vector<std::string>{"Failed to Stop(0x8000FFFF)",
                                                        "Failed to Pause(0x8007000E)"}));
}

TEST_F(CaptureControl, AFailedGetStateLeavesTheStateUnwritten) {
    ScriptedMediaControl* control = ScriptControl();
    control->stateResult = E_FAIL;
    control->state = State_Running;
    TestSupport::LogCapture log;
    FILTER_STATE state = State_Paused;
    EXPECT_FALSE(m_capture.GetState(state));
    EXPECT_EQ(state, State_Paused);
    EXPECT_EQ(log.Messages(), std::vector<std::string>{"Failed to GetState(0x80004005)"});
}

TEST_F(CaptureControl, ARunStillUnderWaySucceedsAndGetStateAsksWithoutWaiting) {
    ScriptedMediaControl* control = ScriptControl();
    control->runResult = S_FALSE;
    control->stateResult = VFW_S_STATE_INTERMEDIATE;
    control->state = State_Paused;
    TestSupport::LogCapture log;
    EXPECT_TRUE(m_capture.Run());
    FILTER_STATE state = State_Stopped;
    EXPECT_TRUE(m_capture.GetState(state));
    EXPECT_EQ(state, State_Paused);
    EXPECT_EQ(control->lastTimeout, 0);
    EXPECT_TRUE(log.Messages().empty());
}

TEST_F(CaptureControl, RunPauseAndStopMoveTheRealGraph) {
    ASSERT_TRUE(m_capture.Initialize(AddCamera(L"mode = YUY2 videoinfo 64 48 333333\n")));
    ASSERT_TRUE(m_capture.Allocate(kYuy2At64));
    FILTER_STATE state = State_Stopped;
    ASSERT_TRUE(m_capture.Run());
    ASSERT_TRUE(m_capture.WaitForDeliveries(1));
    ASSERT_TRUE(m_capture.GetState(state));
    EXPECT_EQ(state, State_Running);
    // A live source cannot cue: the graph answers a success code with the state Paused.
    ASSERT_TRUE(m_capture.Pause());
    ASSERT_TRUE(m_capture.GetState(state));
    EXPECT_EQ(state, State_Paused);
    ASSERT_TRUE(m_capture.Stop());
    ASSERT_TRUE(m_capture.GetState(state));
    EXPECT_EQ(state, State_Stopped);
}

TEST_F(CaptureControl, AnEmptyQueueLeavesThePollTrue) {
    ASSERT_TRUE(m_capture.Initialize(AddCamera(L"mode = YUY2 videoinfo 64 48 333333\n")));
    TestSupport::LogCapture log;
    EXPECT_TRUE(m_capture.CheckEvents());
    EXPECT_TRUE(log.Messages().empty());
}

TEST_F(CaptureControl, AUserAbortIsFreedWithoutARecord) {
    ASSERT_TRUE(m_capture.Initialize(AddCamera(L"mode = YUY2 videoinfo 64 48 333333\n")));
    Post(EC_USERABORT);
    TestSupport::LogCapture log;
    EXPECT_TRUE(m_capture.CheckEvents());
    EXPECT_TRUE(log.Messages().empty());
    EXPECT_TRUE(m_capture.CheckEvents());  // the event was taken
}

TEST_F(CaptureControl, AnErrorAbortFailsThePoll) {
    ASSERT_TRUE(m_capture.Initialize(AddCamera(L"mode = YUY2 videoinfo 64 48 333333\n")));
    Post(EC_ERRORABORT, E_FAIL);
    TestSupport::LogCapture log;
    EXPECT_FALSE(m_capture.CheckEvents());
    EXPECT_EQ(log.Messages(), std::vector<std::string>{"Failed to GetEvent(3)"});
    EXPECT_TRUE(m_capture.CheckEvents());
}

TEST_F(CaptureControl, ACompleteStreamFailsThePoll) {
    ASSERT_TRUE(m_capture.Initialize(AddCamera(L"mode = YUY2 videoinfo 64 48 333333\n")));
    // The graph keeps EC_COMPLETE to itself unless asked to pass it on.
    ASSERT_EQ(m_capture.MediaEvent()->CancelDefaultHandling(EC_COMPLETE), S_OK);
    Post(EC_COMPLETE, S_OK);
    TestSupport::LogCapture log;
    EXPECT_FALSE(m_capture.CheckEvents());
    EXPECT_EQ(log.Messages(), std::vector<std::string>{"Failed to GetEvent(1)"});
}

TEST_F(CaptureControl, TwoFatalEventsInOnePollGiveTwoRecordsAndOneFalse) {
    ASSERT_TRUE(m_capture.Initialize(AddCamera(L"mode = YUY2 videoinfo 64 48 333333\n")));
    Post(EC_ERRORABORT, E_FAIL);
    Post(EC_USERABORT);
    Post(EC_DEVICE_LOST, 0, 0);
    TestSupport::LogCapture log;
    EXPECT_FALSE(m_capture.CheckEvents());
    EXPECT_EQ(log.Messages(), (std::vector<std::string>{"Failed to GetEvent(3)",
                                                        "Failed to GetEvent(EC_DEVICE_LOST)"}));
}

TEST_F(CaptureControl, AnUnpluggedCameraIsReportedAsALostDevice) {
    ASSERT_TRUE(m_capture.Initialize(
        AddCamera(L"fault = unplug_after:3\nmode = YUY2 videoinfo 64 48 333333\n")));
    ASSERT_TRUE(m_capture.Allocate(kYuy2At64));
    ASSERT_TRUE(m_capture.Run());
    ASSERT_TRUE(m_capture.WaitForDeliveries(3));
    TestSupport::LogCapture log;
    // The camera posts its event after its last frame; poll until it is there.
    const ULONGLONG deadline = GetTickCount64() + kStateDeadlineMs;
    bool lost = false;
    while (!lost && GetTickCount64() < deadline) {
        lost = !m_capture.CheckEvents();
        if (!lost) {
            Sleep(10);
        }
    }
    ASSERT_TRUE(lost);
    EXPECT_EQ(log.Messages(), std::vector<std::string>{"Failed to GetEvent(EC_DEVICE_LOST)"});
}

TEST_F(CaptureControl, AFailedGetEventCountsAsTheEventBeforeItAndThePollGoesOn) {
    ScriptedMediaEvent* events = ScriptEvents();
    events->script = {{S_OK, EC_COMPLETE, 11, 12}, {E_FAIL, 0, 0, 0}, {S_OK, EC_USERABORT, 21, 22}};
    TestSupport::LogCapture log;
    EXPECT_FALSE(m_capture.CheckEvents());
    EXPECT_EQ(events->getEventCalls, 4);
    ASSERT_EQ(events->freed.size(), 3u);
    // The failed call left the values of the event before it, which counts a second time.
    EXPECT_EQ(events->freed[1].code, EC_COMPLETE);
    EXPECT_EQ(events->freed[1].param1, 11);
    EXPECT_EQ(events->freed[1].param2, 12);
    EXPECT_EQ(events->freed[2].code, EC_USERABORT);
    EXPECT_EQ(log.Messages(),
              (std::vector<std::string>{"Failed to GetEvent(1)", "Failed to GetEvent(1)"}));
}

TEST_F(CaptureControl, WithoutACallbackFramesFlowAndAreDroppedWithoutARecord) {
    ASSERT_TRUE(m_capture.Initialize(AddCamera(L"mode = YUY2 videoinfo 64 48 333333\n")));
    ASSERT_TRUE(m_capture.Allocate(kYuy2At64));
    TestSupport::LogCapture log;
    ASSERT_TRUE(m_capture.Run());
    EXPECT_TRUE(m_capture.WaitForDeliveries(5));
    ASSERT_TRUE(m_capture.Stop());
    EXPECT_TRUE(log.Messages().empty());
}

}  // namespace
