// InputPinBase: IMemInputPin on the video sink's pin. Allocator negotiation with the platform's
// memory allocator, Receive with the platform's samples, and, with scripted samples, the
// failures that the platform's samples never show.

#include "DShowCapture/InputPinBase.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "DShowCapture/VideoSinkFilter.h"
#include "SinkTestSupport.h"
#include "TinyFramework/Common/TinyLogging_win32.h"
#include "tests/support/LogCapture.h"

using namespace DShow;
using namespace SinkTests;

namespace {

class InputPinBaseTest : public ComTest {
protected:
    void SetUp() override {
        ComTest::SetUp();
        m_observer.SetUserData(&m_userData);
        m_sink = new VideoSinkFilter(&m_observer);
        m_sink->AddRef();
        m_pin = SinkPin(*m_sink);
    }
    void TearDown() override {
        m_sink->Release();
        ComTest::TearDown();
    }

    ComPtr<IMemAllocator> NewAllocator() {
        ComPtr<IMemAllocator> allocator;
        EXPECT_EQ(
            CoCreateInstance(CLSID_MemoryAllocator, nullptr, CLSCTX_INPROC_SERVER,
                             IID_IMemAllocator, reinterpret_cast<void**>(allocator.GetAddressOf())),
            S_OK);
        return allocator;
    }

    // A sample that the platform cannot produce, owned by the test.
    ComPtr<ScriptedSample> Scripted() { return AdoptReference(new ScriptedSample()); }

    std::vector<ObservedCall> Frames() {
        std::vector<ObservedCall> frames;
        for (const ObservedCall& call : m_observer.Calls()) {
            if (call.kind == ObservedCall::FrameReceived) {
                frames.push_back(call);
            }
        }
        return frames;
    }

    int m_userData = 0;
    RecordingObserver m_observer;
    VideoSinkFilter* m_sink = nullptr;
    VideoSinkInputPin* m_pin = nullptr;
};

TEST_F(InputPinBaseTest, MemInputPinSharesThePinsIdentity) {
    IMemInputPin* input = nullptr;
    ASSERT_EQ(m_pin->QueryInterface(IID_IMemInputPin, reinterpret_cast<void**>(&input)), S_OK);
    EXPECT_EQ(input, static_cast<IMemInputPin*>(m_pin));
    IUnknown* unknown = nullptr;
    ASSERT_EQ(input->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(&unknown)), S_OK);
    EXPECT_EQ(unknown, static_cast<IUnknown*>(static_cast<IPin*>(m_pin)));
    IPin* pin = nullptr;
    ASSERT_EQ(input->QueryInterface(IID_IPin, reinterpret_cast<void**>(&pin)), S_OK);
    EXPECT_EQ(pin, static_cast<IPin*>(m_pin));
    IMemInputPin* again = nullptr;
    ASSERT_EQ(pin->QueryInterface(IID_IMemInputPin, reinterpret_cast<void**>(&again)), S_OK);
    EXPECT_EQ(again, input);
    EXPECT_EQ(CountOf(m_pin), 5u);
    again->Release();
    pin->Release();
    unknown->Release();
    EXPECT_EQ(input->Release(), 1u);
}

TEST_F(InputPinBaseTest, MemInputPinRefusesOtherInterfaces) {
    IMemInputPin* input = m_pin;
    void* object = reinterpret_cast<void*>(1);
    EXPECT_EQ(input->QueryInterface(IID_IQualityControl, &object), E_NOINTERFACE);
    EXPECT_EQ(object, nullptr);
    EXPECT_EQ(input->QueryInterface(IID_IMemInputPin, nullptr), E_POINTER);
}

TEST_F(InputPinBaseTest, WithoutOwnAllocatorGetAllocatorSaysNoAllocatorEvenToNull) {
    IMemAllocator* allocator = nullptr;
    EXPECT_EQ(m_pin->GetAllocator(&allocator), VFW_E_NO_ALLOCATOR);
    EXPECT_EQ(allocator, nullptr);
    EXPECT_EQ(m_pin->GetAllocator(nullptr), VFW_E_NO_ALLOCATOR);
}

TEST_F(InputPinBaseTest, WithoutOwnAllocatorNotifyAllocatorKeepsNothing) {
    ComPtr<IMemAllocator> allocator = NewAllocator();
    ASSERT_TRUE(allocator);
    const ULONG before = CountOf(allocator.Get());
    EXPECT_EQ(m_pin->NotifyAllocator(allocator.Get(), TRUE), S_OK);
    EXPECT_EQ(CountOf(allocator.Get()), before);
    EXPECT_FALSE(m_pin->IsReadOnly());
    // Still no allocator of its own to hand out.
    IMemAllocator* given = nullptr;
    EXPECT_EQ(m_pin->GetAllocator(&given), VFW_E_NO_ALLOCATOR);
}

TEST_F(InputPinBaseTest, NotifyAllocatorRefusesNull) {
    EXPECT_EQ(m_pin->NotifyAllocator(nullptr, FALSE), E_POINTER);
    m_pin->SetUseAllocator(1);
    EXPECT_EQ(m_pin->NotifyAllocator(nullptr, FALSE), E_POINTER);
}

TEST_F(InputPinBaseTest, WithOwnAllocatorGetAllocatorRefusesNull) {
    m_pin->SetUseAllocator(1);
    EXPECT_EQ(m_pin->GetAllocator(nullptr), E_POINTER);
}

TEST_F(InputPinBaseTest, WithOwnAllocatorGetAllocatorGivesTheSameAllocatorCounted) {
    m_pin->SetUseAllocator(1);
    IMemAllocator* first = nullptr;
    IMemAllocator* second = nullptr;
    ASSERT_EQ(m_pin->GetAllocator(&first), S_OK);
    ASSERT_NE(first, nullptr);
    ASSERT_EQ(m_pin->GetAllocator(&second), S_OK);
    EXPECT_EQ(first, second);
    // The pin's reference and the two handed out.
    EXPECT_EQ(CountOf(first), 3u);
    second->Release();
    EXPECT_EQ(first->Release(), 1u);
}

TEST_F(InputPinBaseTest, NotifyingAFirstAllocatorAddsTwoReferences) {
    m_pin->SetUseAllocator(1);
    ComPtr<IMemAllocator> allocator = NewAllocator();
    ASSERT_TRUE(allocator);
    const ULONG before = CountOf(allocator.Get());
    EXPECT_EQ(m_pin->NotifyAllocator(allocator.Get(), TRUE), S_OK);
    EXPECT_EQ(CountOf(allocator.Get()), before + 2);
    EXPECT_TRUE(m_pin->IsReadOnly());
}

TEST_F(InputPinBaseTest, NotifyingTheSameAllocatorAgainLeavesTheCount) {
    m_pin->SetUseAllocator(1);
    ComPtr<IMemAllocator> allocator = NewAllocator();
    ASSERT_TRUE(allocator);
    ASSERT_EQ(m_pin->NotifyAllocator(allocator.Get(), FALSE), S_OK);
    const ULONG before = CountOf(allocator.Get());
    EXPECT_EQ(m_pin->NotifyAllocator(allocator.Get(), FALSE), S_OK);
    EXPECT_EQ(CountOf(allocator.Get()), before);
    EXPECT_FALSE(m_pin->IsReadOnly());
}

TEST_F(InputPinBaseTest, NotifyingAnotherAllocatorTakesTwoReferencesFromTheOld) {
    m_pin->SetUseAllocator(1);
    ComPtr<IMemAllocator> first = NewAllocator();
    ComPtr<IMemAllocator> second = NewAllocator();
    ASSERT_TRUE(first && second);
    ASSERT_EQ(m_pin->NotifyAllocator(first.Get(), FALSE), S_OK);
    const ULONG firstBefore = CountOf(first.Get());
    const ULONG secondBefore = CountOf(second.Get());
    EXPECT_EQ(m_pin->NotifyAllocator(second.Get(), FALSE), S_OK);
    EXPECT_EQ(CountOf(first.Get()), firstBefore - 2);
    EXPECT_EQ(CountOf(second.Get()), secondBefore + 2);
}

TEST_F(InputPinBaseTest, TheNotifiedAllocatorIsTheOneGetAllocatorGives) {
    m_pin->SetUseAllocator(1);
    ComPtr<IMemAllocator> allocator = NewAllocator();
    ASSERT_EQ(m_pin->NotifyAllocator(allocator.Get(), FALSE), S_OK);
    ComPtr<IMemAllocator> given;
    ASSERT_EQ(m_pin->GetAllocator(given.GetAddressOf()), S_OK);
    EXPECT_EQ(given.Get(), allocator.Get());
}

TEST_F(InputPinBaseTest, AllocatorRequirementsAreNotImplemented) {
    ALLOCATOR_PROPERTIES properties = {};
    EXPECT_EQ(m_pin->GetAllocatorRequirements(&properties), E_NOTIMPL);
}

TEST_F(InputPinBaseTest, ReceiveRefusesNull) {
    ASSERT_EQ(m_sink->Pause(), S_OK);
    EXPECT_EQ(m_pin->Receive(nullptr), E_POINTER);
}

TEST_F(InputPinBaseTest, ReceiveOnAStoppedFilterSaysWrongState) {
    AllocatorSamples samples(1, 64);
    ComPtr<IMediaSample> sample = samples.Sample(32);
    EXPECT_EQ(m_pin->Receive(sample.Get()), VFW_E_WRONG_STATE);
    EXPECT_EQ(m_observer.FrameCount(), 0u);
}

TEST_F(InputPinBaseTest, ReceiveOnAStoppedFilterSaysWrongStateAlsoWhileFlushing) {
    AllocatorSamples samples(1, 64);
    ComPtr<IMediaSample> sample = samples.Sample(32);
    ASSERT_EQ(m_pin->BeginFlush(), S_OK);
    EXPECT_EQ(m_pin->Receive(sample.Get()), VFW_E_WRONG_STATE);
    EXPECT_EQ(m_observer.FrameCount(), 0u);
}

TEST_F(InputPinBaseTest, ReceiveWhileFlushingSaysSFalseAndDropsTheSample) {
    AllocatorSamples samples(1, 64);
    ComPtr<IMediaSample> sample = samples.Sample(32);
    ASSERT_EQ(m_sink->Run(0), S_OK);
    ASSERT_EQ(m_pin->BeginFlush(), S_OK);
    EXPECT_EQ(m_pin->Receive(sample.Get()), S_FALSE);
    EXPECT_EQ(m_observer.FrameCount(), 0u);
    ASSERT_EQ(m_pin->EndFlush(), S_OK);
    EXPECT_EQ(m_pin->Receive(sample.Get()), S_OK);
    EXPECT_EQ(m_observer.FrameCount(), 1u);
}

TEST_F(InputPinBaseTest, APausedFilterReceivesLikeARunningOne) {
    AllocatorSamples samples(1, 64);
    ComPtr<IMediaSample> sample = samples.Sample(32, 0x5A);
    ASSERT_EQ(m_sink->Pause(), S_OK);
    EXPECT_EQ(m_pin->CheckStreaming(), S_OK);
    EXPECT_EQ(m_pin->Receive(sample.Get()), S_OK);
    ASSERT_EQ(Frames().size(), 1u);
    EXPECT_EQ(Frames()[0].head[0], 0x5A);
}

TEST_F(InputPinBaseTest, TheFrameIsTheSamplesOwnBufferWithItsActualLength) {
    AllocatorSamples samples(1, 64);
    ComPtr<IMediaSample> sample = samples.Sample(40, 0x11);
    BYTE* data = nullptr;
    ASSERT_EQ(sample->GetPointer(&data), S_OK);
    ASSERT_EQ(m_sink->Run(0), S_OK);
    ASSERT_EQ(m_pin->Receive(sample.Get()), S_OK);
    const std::vector<ObservedCall> frames = Frames();
    ASSERT_EQ(frames.size(), 1u);
    EXPECT_EQ(frames[0].bits, data);
    EXPECT_EQ(frames[0].size, 40);
    EXPECT_EQ(frames[0].userData, &m_userData);
}

TEST_F(InputPinBaseTest, AStampOf1000IsDeliveredAs100000) {
    AllocatorSamples samples(1, 64);
    ComPtr<IMediaSample> sample = samples.Sample(32);
    REFERENCE_TIME start = 1000;
    REFERENCE_TIME stop = 2000;
    ASSERT_EQ(sample->SetTime(&start, &stop), S_OK);
    ASSERT_EQ(m_sink->Run(0), S_OK);
    ASSERT_EQ(m_pin->Receive(sample.Get()), S_OK);
    ASSERT_EQ(Frames().size(), 1u);
    EXPECT_EQ(Frames()[0].timestamp, 100000);
}

TEST_F(InputPinBaseTest, ASampleWithoutTimeGetsTheMonotonicClock) {
    AllocatorSamples samples(1, 64);
    ComPtr<IMediaSample> sample = samples.Sample(32);
    ASSERT_EQ(sample->SetTime(nullptr, nullptr), S_OK);
    ASSERT_EQ(m_sink->Run(0), S_OK);
    const long long before = TinyFramework::GetMonotonicNanos();
    ASSERT_EQ(m_pin->Receive(sample.Get()), S_OK);
    const long long after = TinyFramework::GetMonotonicNanos();
    ASSERT_EQ(Frames().size(), 1u);
    EXPECT_GE(Frames()[0].timestamp, before);
    EXPECT_LE(Frames()[0].timestamp, after);
}

TEST_F(InputPinBaseTest, ANewMediaTypeIsReportedBeforeTheFrame) {
    AllocatorSamples samples(1, 64);
    ComPtr<IMediaSample> sample = samples.Sample(32);
    VideoType type(MEDIASUBTYPE_RGB24, 8, 8);
    ASSERT_EQ(sample->SetMediaType(type.Get()), S_OK);
    ASSERT_EQ(m_sink->Run(0), S_OK);
    ASSERT_EQ(m_pin->Receive(sample.Get()), S_OK);
    const std::vector<ObservedCall> calls = m_observer.Calls();
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_EQ(calls[0].kind, ObservedCall::MediaTypeChanged);
    EXPECT_EQ(calls[0].subtype, MEDIASUBTYPE_RGB24);
    EXPECT_EQ(calls[0].userData, &m_userData);
    EXPECT_EQ(calls[1].kind, ObservedCall::FrameReceived);
}

TEST_F(InputPinBaseTest, ANewMediaTypeLeavesThePinsConnectionTypeAlone) {
    AllocatorSamples samples(1, 64);
    ComPtr<IMediaSample> sample = samples.Sample(32);
    VideoType type(MEDIASUBTYPE_RGB24, 8, 8);
    ASSERT_EQ(sample->SetMediaType(type.Get()), S_OK);
    ASSERT_EQ(m_sink->Run(0), S_OK);
    ASSERT_EQ(m_pin->Receive(sample.Get()), S_OK);
    EXPECT_EQ(m_sink->GetFormat()->format, PIXEL_FORMAT_UNKNOWN);
}

TEST_F(InputPinBaseTest, ReceiveMultipleStopsAtTheFirstSampleThatIsNotSOk) {
    AllocatorSamples samples(4, 64);
    ComPtr<IMediaSample> owned[4];
    IMediaSample* batch[4];
    for (int i = 0; i < 4; ++i) {
        owned[i] = samples.Sample(16, static_cast<unsigned char>(i));
        batch[i] = owned[i].Get();
    }
    // The observer starts a flush after the second frame, so the third sample gets S_FALSE.
    m_observer.SetAfterFrame(
        2, [](void* pin) { static_cast<VideoSinkInputPin*>(pin)->BeginFlush(); }, m_pin);
    ASSERT_EQ(m_sink->Run(0), S_OK);
    long processed = -1;
    EXPECT_EQ(m_pin->ReceiveMultiple(batch, 4, &processed), S_FALSE);
    EXPECT_EQ(processed, 2);
    EXPECT_EQ(m_observer.FrameCount(), 2u);
}

TEST_F(InputPinBaseTest, ReceiveMultipleOfNothingSucceeds) {
    long processed = -1;
    EXPECT_EQ(m_pin->ReceiveMultiple(nullptr, 0, &processed), S_OK);
    EXPECT_EQ(processed, 0);
}

TEST_F(InputPinBaseTest, ReceiveMultipleCountsEverySampleOnSuccess) {
    AllocatorSamples samples(2, 64);
    ComPtr<IMediaSample> first = samples.Sample(16);
    ComPtr<IMediaSample> second = samples.Sample(16);
    IMediaSample* batch[] = {first.Get(), second.Get()};
    ASSERT_EQ(m_sink->Run(0), S_OK);
    long processed = -1;
    EXPECT_EQ(m_pin->ReceiveMultiple(batch, 2, &processed), S_OK);
    EXPECT_EQ(processed, 2);
}

TEST_F(InputPinBaseTest, SamplePropertiesComeFromTheSample) {
    AllocatorSamples samples(1, 64);
    ComPtr<IMediaSample> sample = samples.Sample(24);
    REFERENCE_TIME start = 70;
    REFERENCE_TIME stop = 80;
    ASSERT_EQ(sample->SetTime(&start, &stop), S_OK);
    ASSERT_EQ(m_sink->Run(0), S_OK);
    ASSERT_EQ(m_pin->Receive(sample.Get()), S_OK);
    const AM_SAMPLE2_PROPERTIES* properties = m_pin->GetSampleProperties();
    EXPECT_EQ(properties->lActual, 24);
    EXPECT_EQ(properties->tStart, 70);
    EXPECT_EQ(properties->tStop, 80);
    BYTE* data = nullptr;
    sample->GetPointer(&data);
    EXPECT_EQ(properties->pbBuffer, data);
}

// Every platform sample offers IMediaSample2; only a scripted one takes the other path.
TEST_F(InputPinBaseTest, WithoutSample2ThePropertiesAreReadCallByCall) {
    ComPtr<ScriptedSample> sample = Scripted();
    sample->discontinuity = true;
    sample->preroll = true;
    sample->syncPoint = true;
    sample->timeResult = S_OK;
    sample->start = 5;
    sample->stop = 6;
    sample->actualLength = 20;
    ASSERT_EQ(m_sink->Run(0), S_OK);
    ASSERT_EQ(m_pin->Receive(sample.Get()), S_OK);
    const AM_SAMPLE2_PROPERTIES* properties = m_pin->GetSampleProperties();
    EXPECT_EQ(properties->cbData, 64u);
    EXPECT_EQ(properties->dwStreamId, 0u);
    EXPECT_EQ(properties->dwSampleFlags, 0x4u | 0x2u | 0x1u | 0x110u);
    EXPECT_EQ(properties->tStart, 5);
    EXPECT_EQ(properties->tStop, 6);
    EXPECT_EQ(properties->lActual, 20);
    EXPECT_EQ(properties->cbBuffer, 64);
    EXPECT_EQ(properties->pbBuffer, sample->buffer);
    ASSERT_EQ(Frames().size(), 1u);
    EXPECT_EQ(Frames()[0].timestamp, 500);
    EXPECT_EQ(sample->RefCount(), 1);
}

// A platform sample never fails GetProperties.
TEST_F(InputPinBaseTest, AFailedGetPropertiesIsLoggedAndReturned) {
    TestSupport::LogCapture log;
    ComPtr<ScriptedSample> sample = Scripted();
    sample->offersSample2 = true;
    sample->propertiesResult = E_UNEXPECTED;
    ASSERT_EQ(m_sink->Run(0), S_OK);
    EXPECT_EQ(m_pin->Receive(sample.Get()), E_UNEXPECTED);
    EXPECT_TRUE(log.Contains("Failed to GetProperties(0x8000FFFF)"));
    EXPECT_EQ(log.RecordsContaining("InputPinBase.cpp(").size(), 1u);
    EXPECT_EQ(log.RecordsContaining(":ERROR] ").size(), 1u);
    EXPECT_TRUE(m_observer.Calls().empty());
    // The IMediaSample2 reference is given back on this path too.
    EXPECT_EQ(sample->RefCount(), 1);
}

// A platform sample runs out of memory for its type only when the machine does.
TEST_F(InputPinBaseTest, NoMemoryForTheTypeIsLoggedAndReturned) {
    TestSupport::LogCapture log;
    ComPtr<ScriptedSample> sample = Scripted();
    sample->offersSample2 = true;
    sample->typeResult = E_OUTOFMEMORY;
    ASSERT_EQ(m_sink->Run(0), S_OK);
    EXPECT_EQ(m_pin->Receive(sample.Get()), E_OUTOFMEMORY);
    EXPECT_TRUE(log.Contains("Failed to GetMediaType(0x8007000E)"));
    EXPECT_TRUE(m_observer.Calls().empty());
}

// A platform sample either has a type (S_OK) or none (S_FALSE); other failures need a script.
TEST_F(InputPinBaseTest, AnotherTypeFailureCountsAsNoNewType) {
    TestSupport::LogCapture log;
    ComPtr<ScriptedSample> sample = Scripted();
    sample->offersSample2 = true;
    sample->typeResult = E_FAIL;
    ASSERT_EQ(m_sink->Run(0), S_OK);
    EXPECT_EQ(m_pin->Receive(sample.Get()), S_OK);
    const std::vector<ObservedCall> calls = m_observer.Calls();
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].kind, ObservedCall::FrameReceived);
    EXPECT_TRUE(log.Records().empty());
}

// A platform sample's GetPointer does not fail.
TEST_F(InputPinBaseTest, AFailedGetPointerIsLoggedAfterTheTypeWasReported) {
    TestSupport::LogCapture log;
    ComPtr<ScriptedSample> sample = Scripted();
    sample->offersSample2 = true;
    sample->typeResult = S_OK;
    sample->pointerResult = E_POINTER;
    ASSERT_EQ(m_sink->Run(0), S_OK);
    EXPECT_EQ(m_pin->Receive(sample.Get()), E_POINTER);
    EXPECT_TRUE(log.Contains("Failed to GetPointer(0x80004003)"));
    const std::vector<ObservedCall> calls = m_observer.Calls();
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].kind, ObservedCall::MediaTypeChanged);
}

// A platform sample's buffer is never null.
TEST_F(InputPinBaseTest, ANullBufferDeliversNothingAfterTheTypeWasReported) {
    TestSupport::LogCapture log;
    ComPtr<ScriptedSample> sample = Scripted();
    sample->offersSample2 = true;
    sample->typeResult = S_OK;
    sample->nullPointer = true;
    ASSERT_EQ(m_sink->Run(0), S_OK);
    EXPECT_EQ(m_pin->Receive(sample.Get()), S_OK);
    const std::vector<ObservedCall> calls = m_observer.Calls();
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].kind, ObservedCall::MediaTypeChanged);
    EXPECT_TRUE(log.Records().empty());
}

TEST_F(InputPinBaseTest, TheGoodPathWritesNoLogRecord) {
    TestSupport::LogCapture log;
    AllocatorSamples samples(1, 64);
    ComPtr<IMediaSample> sample = samples.Sample(32);
    ASSERT_EQ(m_sink->Run(0), S_OK);
    ASSERT_EQ(m_pin->Receive(sample.Get()), S_OK);
    EXPECT_TRUE(log.Records().empty());
}

TEST_F(InputPinBaseTest, TheSinkMayBlockInReceive) {
    EXPECT_EQ(m_pin->ReceiveCanBlock(), S_OK);
}

// A filter of our own with an input pin of the sink's kind and one output pin, connected (as
// far as the walk can tell) to `downstream`.
class PassThroughFilter {
public:
    PassThroughFilter(RecordingObserver* observer, IPin* downstream)
        : m_filter(new RecordingFilter(observer)) {
        m_filter->AddRef();
        m_input = new VideoSinkInputPin(m_filter, observer);
        m_filter->AddOwnPin(m_input);
        m_output = m_filter->AddPin("out", PINDIR_OUTPUT);
        m_output->PretendConnected(downstream);
    }
    ~PassThroughFilter() {
        m_output->PretendConnected(nullptr);
        m_filter->Release();
    }
    VideoSinkInputPin* Input() { return m_input; }
    RecordingPin* Output() { return m_output; }

private:
    RecordingFilter* m_filter;
    VideoSinkInputPin* m_input;
    RecordingPin* m_output;
};

TEST_F(InputPinBaseTest, AnUnconnectedOutputLeavesTheFilterBlocking) {
    PassThroughFilter filter(&m_observer, nullptr);
    EXPECT_EQ(filter.Input()->ReceiveCanBlock(), S_OK);
}

TEST_F(InputPinBaseTest, AnOutputIntoAPinThatNeverBlocksMakesTheFilterNonBlocking) {
    RecordingFilter* downstream = new RecordingFilter(&m_observer);
    downstream->AddRef();
    NonBlockingPin* nonBlocking = new NonBlockingPin(downstream, &m_observer);
    downstream->AddOwnPin(nonBlocking);
    {
        PassThroughFilter filter(&m_observer, nonBlocking);
        EXPECT_EQ(filter.Input()->ReceiveCanBlock(), S_FALSE);
    }
    downstream->Release();
}

TEST_F(InputPinBaseTest, AnOutputIntoAPinThatMayBlockMakesTheFilterBlocking) {
    PassThroughFilter filter(&m_observer, m_pin);
    EXPECT_EQ(filter.Input()->ReceiveCanBlock(), S_OK);
}

TEST_F(InputPinBaseTest, AnOutputIntoAPinWithoutMemInputPinMakesTheFilterBlocking) {
    RecordingFilter* downstream = new RecordingFilter(&m_observer);
    downstream->AddRef();
    RecordingPin* plain = downstream->AddPin("plain");
    {
        PassThroughFilter filter(&m_observer, plain);
        EXPECT_EQ(filter.Input()->ReceiveCanBlock(), S_OK);
    }
    downstream->Release();
}

TEST_F(InputPinBaseTest, InactiveWithoutAllocatorSaysNoAllocator) {
    EXPECT_EQ(m_pin->Inactive(), VFW_E_NO_ALLOCATOR);
    EXPECT_EQ(m_pin->BreakConnect(), S_OK);
}

TEST_F(InputPinBaseTest, InactiveDecommitsAndEndsTheFlush) {
    m_pin->SetUseAllocator(1);
    ComPtr<IMemAllocator> allocator;
    ASSERT_EQ(m_pin->GetAllocator(allocator.GetAddressOf()), S_OK);
    ALLOCATOR_PROPERTIES wanted = {1, 64, 1, 0};
    ALLOCATOR_PROPERTIES actual = {};
    ASSERT_EQ(allocator->SetProperties(&wanted, &actual), S_OK);
    ASSERT_EQ(allocator->Commit(), S_OK);
    ASSERT_EQ(m_pin->BeginFlush(), S_OK);
    EXPECT_EQ(m_pin->Inactive(), S_OK);
    EXPECT_FALSE(m_pin->IsFlushing());
    // A decommitted allocator hands out no buffer.
    IMediaSample* sample = nullptr;
    EXPECT_EQ(allocator->GetBuffer(&sample, nullptr, nullptr, 0), VFW_E_NOT_COMMITTED);
}

TEST_F(InputPinBaseTest, BreakConnectDropsTheAllocator) {
    m_pin->SetUseAllocator(1);
    ComPtr<IMemAllocator> allocator;
    ASSERT_EQ(m_pin->GetAllocator(allocator.GetAddressOf()), S_OK);
    const ULONG before = CountOf(allocator.Get());
    EXPECT_EQ(m_pin->BreakConnect(), S_OK);
    EXPECT_EQ(CountOf(allocator.Get()), before - 1);
}

TEST_F(InputPinBaseTest, PassNotifyWithoutSinkOrPeerFindsNobody) {
    Quality quality = {};
    EXPECT_EQ(m_pin->PassNotify(quality), VFW_E_NOT_FOUND);
}

TEST_F(InputPinBaseTest, PassNotifyGoesToTheQualitySink) {
    // Any IQualityControl serves as sink; the library's own pins have one that says E_NOTIMPL.
    RecordingObserver observer;
    RecordingFilter* filter = new RecordingFilter(&observer);
    filter->AddRef();
    RecordingPin* other = filter->AddPin("other");
    ASSERT_EQ(m_pin->SetSink(other), S_OK);
    Quality quality = {};
    EXPECT_EQ(m_pin->PassNotify(quality), E_NOTIMPL);
    m_pin->SetSink(nullptr);
    filter->Release();
}

TEST_F(InputPinBaseTest, PassNotifyAsksAPeerForQualityControl) {
    // The peer is a pin of the library, which does not offer IQualityControl.
    RecordingObserver observer;
    RecordingFilter* filter = new RecordingFilter(&observer);
    filter->AddRef();
    RecordingPin* output = filter->AddPin("out", PINDIR_OUTPUT);
    VideoType type(MEDIASUBTYPE_YUY2, 640, 480);
    ASSERT_EQ(m_pin->ReceiveConnection(output, type.Get()), S_OK);
    Quality quality = {};
    EXPECT_EQ(m_pin->PassNotify(quality), VFW_E_NOT_FOUND);
    m_pin->Disconnect();
    filter->Release();
}

}  // namespace

namespace {

// Without COM on the thread the platform refuses to create the allocator: the one failure of
// CoCreateInstance that a test can bring about for real.
TEST(InputPinBaseWithoutComTest, AFailedAllocatorCreationIsLoggedAndReturned) {
    TestSupport::LogCapture log;
    RecordingObserver observer;
    VideoSinkFilter* sink = new VideoSinkFilter(&observer);
    sink->AddRef();
    VideoSinkInputPin* pin = SinkPin(*sink);
    pin->SetUseAllocator(1);
    IMemAllocator* allocator = nullptr;
    EXPECT_EQ(pin->GetAllocator(&allocator), CO_E_NOTINITIALIZED);
    EXPECT_EQ(allocator, nullptr);
    EXPECT_TRUE(log.Contains("Failed to CoCreateInstance(0x800401F0)"));
    EXPECT_EQ(log.RecordsContaining(":ERROR] ").size(), 1u);
    sink->Release();
}

}  // namespace
