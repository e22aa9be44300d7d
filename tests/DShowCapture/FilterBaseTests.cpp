// FilterBase: COM identity and counting, the state machine and its walk over the pins, the
// clock, graph membership, names, and registration without setup data.

#include "DShowCapture/FilterBase.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "DShowCapture/PinBase.h"
#include "DShowCapture/VideoSinkFilter.h"
#include "SinkTestSupport.h"

using namespace DShow;
using namespace SinkTests;

namespace {

using Entries = std::vector<std::string>;

class FilterBaseTest : public ComTest {
protected:
    void SetUp() override {
        ComTest::SetUp();
        m_filter = new RecordingFilter(&m_observer, &m_log);
        m_filter->AddRef();
    }
    void TearDown() override {
        m_filter->Release();
        ComTest::TearDown();
    }

    // A pin of the filter that counts as connected (to a pin of another filter of ours).
    RecordingPin* AddConnectedPin(const char* name) {
        RecordingPin* pin = m_filter->AddPin(name);
        pin->PretendConnected(m_peers.AddPin("peer", PINDIR_OUTPUT));
        return pin;
    }

    ComPtr<IReferenceClock> SystemClock() {
        ComPtr<IReferenceClock> clock;
        EXPECT_EQ(
            CoCreateInstance(CLSID_SystemClock, nullptr, CLSCTX_INPROC_SERVER, IID_IReferenceClock,
                             reinterpret_cast<void**>(clock.GetAddressOf())),
            S_OK);
        return clock;
    }

    RecordingObserver m_observer;
    HookLog m_log;
    RecordingFilter* m_filter = nullptr;
    RecordingFilter m_peers{&m_observer};
};

TEST(RefTimeTest, StartsAtZero) {
    EXPECT_EQ(RefTime().GetUnits(), 0);
}

TEST(RefTimeTest, MillisecondsAreTenThousandUnits) {
    EXPECT_EQ(RefTime(25).GetUnits(), 250000);
    EXPECT_EQ(RefTime(-3).GetUnits(), -30000);
}

TEST(RefTimeTest, MillisecondsRoundTowardZero) {
    RefTime time;
    time = 19999;
    EXPECT_EQ(time.Milliseconds(), 1);
    time = -19999;
    EXPECT_EQ(time.Milliseconds(), -1);
}

TEST(RefTimeTest, AddsAndSubtracts) {
    RefTime time(10);
    time += RefTime(5);
    EXPECT_EQ(time.GetUnits(), 150000);
    time -= RefTime(20);
    EXPECT_EQ(time.GetUnits(), -50000);
}

TEST(FilterObserverTest, UserDataStartsNullAndIsKept) {
    RecordingObserver observer;
    EXPECT_EQ(observer.GetUserData(), nullptr);
    int value = 0;
    observer.SetUserData(&value);
    EXPECT_EQ(observer.GetUserData(), &value);
}

TEST_F(FilterBaseTest, NewFilterStartsWithCountZero) {
    RecordingFilter* filter = new RecordingFilter(&m_observer);
    EXPECT_EQ(filter->RefCount(), 0);
    EXPECT_EQ(filter->AddRef(), 1u);
    EXPECT_EQ(filter->AddRef(), 2u);
    EXPECT_EQ(filter->Release(), 1u);
    EXPECT_EQ(filter->Release(), 0u);
}

TEST_F(FilterBaseTest, LastReleaseDestroysTheFilter) {
    bool destroyed = false;
    auto* filter = new WatchedSinkFilter(&m_observer, &destroyed);
    filter->AddRef();
    filter->AddRef();
    EXPECT_EQ(filter->Release(), 1u);
    EXPECT_FALSE(destroyed);
    EXPECT_EQ(filter->Release(), 0u);
    EXPECT_TRUE(destroyed);
}

TEST_F(FilterBaseTest, FilterInterfacesShareOneIdentity) {
    IUnknown* unknown = nullptr;
    IPersist* persist = nullptr;
    IMediaFilter* mediaFilter = nullptr;
    IBaseFilter* baseFilter = nullptr;
    ASSERT_EQ(m_filter->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(&unknown)), S_OK);
    ASSERT_EQ(m_filter->QueryInterface(IID_IPersist, reinterpret_cast<void**>(&persist)), S_OK);
    ASSERT_EQ(m_filter->QueryInterface(IID_IMediaFilter, reinterpret_cast<void**>(&mediaFilter)),
              S_OK);
    ASSERT_EQ(m_filter->QueryInterface(IID_IBaseFilter, reinterpret_cast<void**>(&baseFilter)),
              S_OK);
    IBaseFilter* expected = m_filter;
    EXPECT_EQ(unknown, static_cast<IUnknown*>(expected));
    EXPECT_EQ(persist, static_cast<IPersist*>(expected));
    EXPECT_EQ(mediaFilter, static_cast<IMediaFilter*>(expected));
    EXPECT_EQ(baseFilter, expected);
    EXPECT_EQ(m_filter->RefCount(), 5);
    unknown->Release();
    persist->Release();
    mediaFilter->Release();
    EXPECT_EQ(baseFilter->Release(), 1u);
}

TEST_F(FilterBaseTest, MovieSetupLeadsBackToTheSameIdentity) {
    IAMovieSetup* setup = nullptr;
    ASSERT_EQ(m_filter->QueryInterface(IID_IAMovieSetup, reinterpret_cast<void**>(&setup)), S_OK);
    EXPECT_EQ(setup, static_cast<IAMovieSetup*>(m_filter));
    IUnknown* fromSetup = nullptr;
    ASSERT_EQ(setup->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(&fromSetup)), S_OK);
    EXPECT_EQ(fromSetup, static_cast<IUnknown*>(static_cast<IBaseFilter*>(m_filter)));
    IBaseFilter* back = nullptr;
    ASSERT_EQ(setup->QueryInterface(IID_IBaseFilter, reinterpret_cast<void**>(&back)), S_OK);
    IAMovieSetup* again = nullptr;
    ASSERT_EQ(back->QueryInterface(IID_IAMovieSetup, reinterpret_cast<void**>(&again)), S_OK);
    EXPECT_EQ(again, setup);
    EXPECT_EQ(m_filter->RefCount(), 5);
    // The count is one for the whole object, whichever interface it is taken through.
    EXPECT_EQ(setup->AddRef(), 6u);
    EXPECT_EQ(back->Release(), 5u);
    again->Release();
    fromSetup->Release();
    setup->Release();
    EXPECT_EQ(setup->Release(), 1u);
}

TEST_F(FilterBaseTest, OtherInterfacesAreRefusedWithNull) {
    const IID* refused[] = {&IID_IPin, &IID_IMediaSeeking, &IID_IQualityControl, &IID_IMemInputPin,
                            &IID_IAMFilterMiscFlags};
    for (const IID* iid : refused) {
        void* object = reinterpret_cast<void*>(1);
        EXPECT_EQ(m_filter->QueryInterface(*iid, &object), E_NOINTERFACE);
        EXPECT_EQ(object, nullptr);
    }
    EXPECT_EQ(m_filter->RefCount(), 1);
}

TEST_F(FilterBaseTest, ClassIdIsTheTinyCaptureFilters) {
    CLSID clsid = GUID_NULL;
    ASSERT_EQ(m_filter->GetClassID(&clsid), S_OK);
    const GUID expected = {
        0x88CDBBDC, 0xA73B, 0x4AFA, {0xAC, 0xBF, 0x15, 0xD5, 0xE2, 0xCE, 0x12, 0xC3}};
    EXPECT_EQ(clsid, expected);
    EXPECT_EQ(m_filter->GetClassID(nullptr), E_POINTER);
}

TEST_F(FilterBaseTest, WithoutLockTheLockingOperationsSayEPointer) {
    RecordingFilter* filter = new RecordingFilter(nullptr);
    filter->AddRef();
    IReferenceClock* clock = nullptr;
    IPin* pin = nullptr;
    EXPECT_EQ(filter->Stop(), E_POINTER);
    EXPECT_EQ(filter->Pause(), E_POINTER);
    EXPECT_EQ(filter->Run(0), E_POINTER);
    EXPECT_EQ(filter->SetSyncSource(nullptr), E_POINTER);
    EXPECT_EQ(filter->JoinFilterGraph(nullptr, nullptr), E_POINTER);
    EXPECT_EQ(filter->GetSyncSource(&clock), E_POINTER);
    EXPECT_EQ(filter->FindPin(L"x", &pin), E_POINTER);
    EXPECT_EQ(filter->State(), State_Stopped);
    filter->Release();
}

TEST_F(FilterBaseTest, GetStateGivesTheStateAndRefusesNull) {
    FILTER_STATE state = State_Running;
    EXPECT_EQ(m_filter->GetState(INFINITE, &state), S_OK);
    EXPECT_EQ(state, State_Stopped);
    EXPECT_EQ(m_filter->GetState(0, nullptr), E_POINTER);
}

TEST_F(FilterBaseTest, RunOnAStoppedFilterPausesOnceThenRuns) {
    AddConnectedPin("a");
    EXPECT_EQ(m_filter->Run(12345), S_OK);
    FILTER_STATE state = State_Stopped;
    m_filter->GetState(0, &state);
    EXPECT_EQ(state, State_Running);
    EXPECT_EQ(m_filter->StartTime(), 12345);
    EXPECT_EQ(m_filter->pauseCalls, 1);
    EXPECT_EQ(m_log.entries, (Entries{"filter.pause", "a.active", "a.run@12345"}));
}

TEST_F(FilterBaseTest, PauseOnARunningFilterTellsNoPin) {
    AddConnectedPin("a");
    ASSERT_EQ(m_filter->Run(0), S_OK);
    m_log.entries.clear();
    EXPECT_EQ(m_filter->Pause(), S_OK);
    EXPECT_EQ(m_filter->State(), State_Paused);
    EXPECT_EQ(m_log.entries, (Entries{"filter.pause"}));
}

TEST_F(FilterBaseTest, RunFromPausedTellsThePinsToRun) {
    AddConnectedPin("a");
    ASSERT_EQ(m_filter->Pause(), S_OK);
    m_log.entries.clear();
    EXPECT_EQ(m_filter->Run(7), S_OK);
    EXPECT_EQ(m_filter->State(), State_Running);
    EXPECT_EQ(m_log.entries, (Entries{"a.run@7"}));
}

TEST_F(FilterBaseTest, RunWhileRunningTellsNoPinButTakesTheStart) {
    AddConnectedPin("a");
    ASSERT_EQ(m_filter->Run(1), S_OK);
    m_log.entries.clear();
    EXPECT_EQ(m_filter->Run(99), S_OK);
    EXPECT_EQ(m_filter->StartTime(), 99);
    EXPECT_TRUE(m_log.entries.empty());
}

TEST_F(FilterBaseTest, StopOnAStoppedFilterTellsNoPin) {
    AddConnectedPin("a");
    EXPECT_EQ(m_filter->Stop(), S_OK);
    EXPECT_EQ(m_filter->State(), State_Stopped);
    EXPECT_TRUE(m_log.entries.empty());
}

TEST_F(FilterBaseTest, StopFromRunningDeactivatesThePins) {
    AddConnectedPin("a");
    AddConnectedPin("b");
    ASSERT_EQ(m_filter->Run(0), S_OK);
    m_log.entries.clear();
    EXPECT_EQ(m_filter->Stop(), S_OK);
    EXPECT_EQ(m_filter->State(), State_Stopped);
    EXPECT_EQ(m_log.entries, (Entries{"a.inactive", "b.inactive"}));
}

TEST_F(FilterBaseTest, OnlyConnectedPinsAreTold) {
    AddConnectedPin("a");
    m_filter->AddPin("loose");
    AddConnectedPin("c");
    ASSERT_EQ(m_filter->Pause(), S_OK);
    EXPECT_EQ(m_log.entries, (Entries{"filter.pause", "a.active", "c.active"}));
}

TEST_F(FilterBaseTest, TheWalkEndsAtTheFirstMissingPin) {
    AddConnectedPin("a");
    m_filter->AddMissingPin();
    AddConnectedPin("c");
    ASSERT_EQ(m_filter->Pause(), S_OK);
    EXPECT_EQ(m_log.entries, (Entries{"filter.pause", "a.active"}));
}

TEST_F(FilterBaseTest, AFailingPinAbortsTheChangeAfterTheEarlierPins) {
    AddConnectedPin("a");
    AddConnectedPin("b")->SetHookResult(E_UNEXPECTED);
    AddConnectedPin("c");
    EXPECT_EQ(m_filter->Pause(), E_UNEXPECTED);
    EXPECT_EQ(m_filter->State(), State_Stopped);
    EXPECT_EQ(m_log.entries, (Entries{"filter.pause", "a.active", "b.active"}));
}

TEST_F(FilterBaseTest, SFalseFromAPinAbortsToo) {
    AddConnectedPin("a")->SetHookResult(S_FALSE);
    ASSERT_EQ(m_filter->Pause(), S_FALSE);
    EXPECT_EQ(m_filter->State(), State_Stopped);
}

TEST_F(FilterBaseTest, AFailedPauseInsideRunLeavesTheFilterStoppedWithTheStartTaken) {
    AddConnectedPin("a")->SetHookResult(E_FAIL);
    EXPECT_EQ(m_filter->Run(555), E_FAIL);
    EXPECT_EQ(m_filter->State(), State_Stopped);
    EXPECT_EQ(m_filter->StartTime(), 555);
    EXPECT_EQ(m_log.entries, (Entries{"filter.pause", "a.active"}));
}

TEST_F(FilterBaseTest, AFailedRunHookLeavesTheFilterPaused) {
    RecordingPin* pin = AddConnectedPin("a");
    ASSERT_EQ(m_filter->Pause(), S_OK);
    pin->SetHookResult(E_FAIL);
    EXPECT_EQ(m_filter->Run(0), E_FAIL);
    EXPECT_EQ(m_filter->State(), State_Paused);
}

TEST_F(FilterBaseTest, SyncSourceIsCountedAndGivenBack) {
    ComPtr<IReferenceClock> clock = SystemClock();
    ASSERT_TRUE(clock);
    const ULONG before = CountOf(clock.Get());
    ASSERT_EQ(m_filter->SetSyncSource(clock.Get()), S_OK);
    EXPECT_EQ(CountOf(clock.Get()), before + 1);
    // The same clock again takes no second reference.
    ASSERT_EQ(m_filter->SetSyncSource(clock.Get()), S_OK);
    EXPECT_EQ(CountOf(clock.Get()), before + 1);
    IReferenceClock* given = nullptr;
    ASSERT_EQ(m_filter->GetSyncSource(&given), S_OK);
    EXPECT_EQ(given, clock.Get());
    EXPECT_EQ(CountOf(clock.Get()), before + 2);
    given->Release();
    ASSERT_EQ(m_filter->SetSyncSource(nullptr), S_OK);
    EXPECT_EQ(CountOf(clock.Get()), before);
}

TEST_F(FilterBaseTest, GetSyncSourceRefusesNull) {
    EXPECT_EQ(m_filter->GetSyncSource(nullptr), E_POINTER);
}

TEST_F(FilterBaseTest, StreamTimeWithoutClockSaysNoClock) {
    RefTime time;
    EXPECT_EQ(m_filter->StreamTime(time), VFW_E_NO_CLOCK);
}

TEST_F(FilterBaseTest, StreamTimeIsTheClockLessTheStart) {
    // The filter's clock must not be read before the filter reads it: a clock answers S_FALSE
    // for a time equal to the one it gave last, and StreamTime passes that on. A second system
    // clock, on the same time base, gives the lower bound.
    ComPtr<IReferenceClock> clock = SystemClock();
    ComPtr<IReferenceClock> witness = SystemClock();
    ASSERT_TRUE(clock && witness);
    ASSERT_EQ(m_filter->SetSyncSource(clock.Get()), S_OK);
    const REFERENCE_TIME start = 5000000;
    ASSERT_EQ(m_filter->Run(start), S_OK);
    REFERENCE_TIME before = 0;
    REFERENCE_TIME after = 0;
    RefTime time;
    ASSERT_TRUE(SUCCEEDED(witness->GetTime(&before)));
    ASSERT_EQ(m_filter->StreamTime(time), S_OK);
    ASSERT_TRUE(SUCCEEDED(clock->GetTime(&after)));
    EXPECT_GE(time.GetUnits(), before - start);
    EXPECT_LE(time.GetUnits(), after - start);
    m_filter->SetSyncSource(nullptr);
}

TEST_F(FilterBaseTest, FindPinFindsThePinByItsExactId) {
    RecordingPin* pin = m_filter->AddPin("a");
    IPin* found = nullptr;
    ASSERT_EQ(m_filter->FindPin(L"Tiny Video Capture", &found), S_OK);
    EXPECT_EQ(found, static_cast<IPin*>(pin));
    EXPECT_EQ(pin->RefCount(), 2);
    found->Release();
}

TEST_F(FilterBaseTest, FindPinComparesCaseSensitively) {
    m_filter->AddPin("a");
    IPin* found = reinterpret_cast<IPin*>(1);
    EXPECT_EQ(m_filter->FindPin(L"tiny video capture", &found), VFW_E_NOT_FOUND);
    EXPECT_EQ(found, nullptr);
}

TEST_F(FilterBaseTest, FindPinRefusesNullArguments) {
    IPin* found = nullptr;
    EXPECT_EQ(m_filter->FindPin(nullptr, &found), E_POINTER);
    EXPECT_EQ(m_filter->FindPin(L"Tiny Video Capture", nullptr), E_POINTER);
}

TEST_F(FilterBaseTest, QueryFilterInfoWithoutNameOrGraph) {
    FILTER_INFO info;
    info.achName[0] = L'x';
    info.pGraph = reinterpret_cast<IFilterGraph*>(1);
    ASSERT_EQ(m_filter->QueryFilterInfo(&info), S_OK);
    EXPECT_EQ(info.achName[0], L'\0');
    EXPECT_EQ(info.pGraph, nullptr);
    EXPECT_EQ(m_filter->QueryFilterInfo(nullptr), E_POINTER);
}

TEST_F(FilterBaseTest, QueryFilterInfoCutsALongNameTo127Units) {
    std::wstring name;
    for (int i = 0; i < 200; ++i) {
        name += static_cast<wchar_t>(L'A' + i % 26);
    }
    ASSERT_EQ(m_filter->JoinFilterGraph(nullptr, name.c_str()), S_OK);
    FILTER_INFO info = {};
    ASSERT_EQ(m_filter->QueryFilterInfo(&info), S_OK);
    EXPECT_EQ(std::wstring(info.achName), name.substr(0, 127));
    // The filter keeps the whole name: only the copy is cut.
    EXPECT_EQ(std::wstring(m_filter->Name()), name);
}

TEST_F(FilterBaseTest, JoinFilterGraphKeepsGraphAndSinkWithoutCountingThem) {
    ComPtr<IFilterGraph> graph;
    ASSERT_EQ(CoCreateInstance(CLSID_FilterGraph, nullptr, CLSCTX_INPROC_SERVER, IID_IFilterGraph,
                               reinterpret_cast<void**>(graph.GetAddressOf())),
              S_OK);
    const ULONG before = CountOf(graph.Get());
    ASSERT_EQ(m_filter->JoinFilterGraph(graph.Get(), L"Joined"), S_OK);
    EXPECT_EQ(m_filter->Graph(), graph.Get());
    ComPtr<IMediaEventSink> sink;
    ASSERT_EQ(
        graph->QueryInterface(IID_IMediaEventSink, reinterpret_cast<void**>(sink.GetAddressOf())),
        S_OK);
    EXPECT_EQ(m_filter->EventSink(), sink.Get());
    sink.Reset();
    EXPECT_EQ(CountOf(graph.Get()), before);
    FILTER_INFO info = {};
    ASSERT_EQ(m_filter->QueryFilterInfo(&info), S_OK);
    EXPECT_EQ(std::wstring(info.achName), L"Joined");
    EXPECT_EQ(info.pGraph, graph.Get());
    EXPECT_EQ(CountOf(graph.Get()), before + 1);
    info.pGraph->Release();
    m_filter->JoinFilterGraph(nullptr, nullptr);
}

TEST_F(FilterBaseTest, LeavingTheGraphClearsGraphSinkAndName) {
    ComPtr<IFilterGraph> graph;
    ASSERT_EQ(CoCreateInstance(CLSID_FilterGraph, nullptr, CLSCTX_INPROC_SERVER, IID_IFilterGraph,
                               reinterpret_cast<void**>(graph.GetAddressOf())),
              S_OK);
    ASSERT_EQ(m_filter->JoinFilterGraph(graph.Get(), L"Joined"), S_OK);
    ASSERT_NE(m_filter->EventSink(), nullptr);
    EXPECT_EQ(m_filter->JoinFilterGraph(nullptr, nullptr), S_OK);
    EXPECT_EQ(m_filter->Graph(), nullptr);
    EXPECT_EQ(m_filter->EventSink(), nullptr);
    EXPECT_EQ(m_filter->Name(), nullptr);
}

TEST_F(FilterBaseTest, QueryVendorInfoIsNotImplemented) {
    LPWSTR info = nullptr;
    EXPECT_EQ(m_filter->QueryVendorInfo(&info), E_NOTIMPL);
}

TEST_F(FilterBaseTest, ReconnectPinWithoutGraphSaysNoInterface) {
    EXPECT_EQ(m_filter->ReconnectPin(nullptr, nullptr), E_NOINTERFACE);
}

TEST_F(FilterBaseTest, RegisterWithoutSetupDataSaysSFalseAndWritesNothing) {
    EXPECT_EQ(m_filter->Register(), S_FALSE);
    EXPECT_EQ(m_filter->setupDataCalls, 1);
    // The filter mapper keeps its filters under HKCR\Filter; nothing may have been written.
    HKEY key = nullptr;
    EXPECT_EQ(RegOpenKeyExW(HKEY_CLASSES_ROOT, L"Filter\\{88CDBBDC-A73B-4AFA-ACBF-15D5E2CE12C3}", 0,
                            KEY_READ, &key),
              ERROR_FILE_NOT_FOUND);
}

TEST_F(FilterBaseTest, UnregisterWithoutSetupDataSaysSFalse) {
    EXPECT_EQ(m_filter->Unregister(), S_FALSE);
}

TEST_F(FilterBaseTest, EnumPinsHandsOutACountedEnumerator) {
    IEnumPins* pins = nullptr;
    ASSERT_EQ(m_filter->EnumPins(&pins), S_OK);
    ASSERT_NE(pins, nullptr);
    EXPECT_EQ(pins->AddRef(), 2u);
    EXPECT_EQ(pins->Release(), 1u);
    // The enumerator does not count its filter.
    EXPECT_EQ(m_filter->RefCount(), 1);
    EXPECT_EQ(pins->Release(), 0u);
}

}  // namespace
