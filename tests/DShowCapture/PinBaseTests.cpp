// PinBase: COM identity and counting, the connection protocol (Connect with its two passes,
// ReceiveConnection, Disconnect), the connection's queries, flushing and segments, and the
// quality-control stub. The pins under test are the video sink's input pin and pins on the
// library's own PinBase; their peers are pins of the same kind pointing the other way.

#include "DShowCapture/PinBase.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "DShowCapture/MediaTypes.h"
#include "DShowCapture/VideoSinkFilter.h"
#include "SinkTestSupport.h"

using namespace DShow;
using namespace SinkTests;

namespace {

class PinBaseTest : public ComTest {
protected:
    void SetUp() override {
        ComTest::SetUp();
        m_sink = new VideoSinkFilter(&m_observer);
        m_sink->AddRef();
        m_pin = SinkPin(*m_sink);
        m_peers = new RecordingFilter(&m_observer);
        m_peers->AddRef();
        m_output = m_peers->AddPin("out", PINDIR_OUTPUT);
        m_sameWay = m_peers->AddPin("in", PINDIR_INPUT);
    }
    void TearDown() override {
        m_pin->Disconnect();
        m_output->Disconnect();
        m_sameWay->Disconnect();
        m_sink->Release();
        m_peers->Release();
        ComTest::TearDown();
    }

    // The sink offers YUY2 at 640x480 and 30 frames a second.
    void OfferYuy2() {
        m_sink->SetFormat(VideoFormat(TinySize(640, 480), 30.0f, PIXEL_FORMAT_YUY2));
    }

    RecordingObserver m_observer;
    VideoSinkFilter* m_sink = nullptr;
    VideoSinkInputPin* m_pin = nullptr;
    RecordingFilter* m_peers = nullptr;
    RecordingPin* m_output = nullptr;
    RecordingPin* m_sameWay = nullptr;
};

TEST_F(PinBaseTest, PinAndUnknownAreOneInterface) {
    IUnknown* unknown = nullptr;
    IPin* pin = nullptr;
    ASSERT_EQ(m_pin->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(&unknown)), S_OK);
    ASSERT_EQ(m_pin->QueryInterface(IID_IPin, reinterpret_cast<void**>(&pin)), S_OK);
    EXPECT_EQ(unknown, static_cast<IUnknown*>(static_cast<IPin*>(m_pin)));
    EXPECT_EQ(pin, static_cast<IPin*>(m_pin));
    EXPECT_EQ(unknown->Release(), 2u);
    EXPECT_EQ(pin->Release(), 1u);
}

TEST_F(PinBaseTest, QualityControlIsNotOfferedThoughItExists) {
    void* object = reinterpret_cast<void*>(1);
    EXPECT_EQ(m_pin->QueryInterface(IID_IQualityControl, &object), E_NOINTERFACE);
    EXPECT_EQ(object, nullptr);
    IQualityControl* quality = m_pin;
    Quality message = {};
    EXPECT_EQ(quality->Notify(nullptr, message), E_NOTIMPL);
    EXPECT_EQ(quality->SetSink(nullptr), S_OK);
    EXPECT_EQ(CountOf(m_pin), 1u);
}

TEST_F(PinBaseTest, QueryInterfaceRefusesANullOutPointer) {
    EXPECT_EQ(m_pin->QueryInterface(IID_IPin, nullptr), E_POINTER);
}

TEST_F(PinBaseTest, FilterHoldsThePinsOnlyReference) {
    EXPECT_EQ(m_pin->AddRef(), 2u);
    EXPECT_EQ(m_pin->Release(), 1u);
}

TEST_F(PinBaseTest, AReferenceToThePinDoesNotKeepTheFilter) {
    RecordingObserver observer;
    bool destroyed = false;
    auto* filter = new WatchedSinkFilter(&observer, &destroyed);
    filter->AddRef();
    IPin* pin = filter->GetPin(0);
    pin->AddRef();
    EXPECT_EQ(filter->Release(), 0u);
    EXPECT_TRUE(destroyed);
    EXPECT_EQ(pin->Release(), 0u);
}

TEST_F(PinBaseTest, ConnectWithoutTypeIsRefusedBeforeAnyNegotiation) {
    EXPECT_EQ(m_pin->Connect(m_output, nullptr), E_POINTER);
    EXPECT_EQ(m_output->directionQueries, 0);
    EXPECT_EQ(m_output->typeEnumerations, 0);
    EXPECT_EQ(m_output->receivedConnections, 0);
    EXPECT_FALSE(m_pin->IsConnected());
}

TEST_F(PinBaseTest, ConnectWithoutPeerIsRefused) {
    VideoType type(MEDIASUBTYPE_YUY2, 640, 480);
    EXPECT_EQ(m_pin->Connect(nullptr, type.Get()), E_POINTER);
}

TEST_F(PinBaseTest, ConnectWithAFullTypeConnectsBothSides) {
    VideoType type(MEDIASUBTYPE_YUY2, 640, 480);
    ASSERT_EQ(m_pin->Connect(m_output, type.Get()), S_OK);
    EXPECT_TRUE(m_pin->IsConnected());
    EXPECT_TRUE(m_output->IsConnected());
    IPin* peer = nullptr;
    ASSERT_EQ(m_pin->ConnectedTo(&peer), S_OK);
    EXPECT_EQ(peer, static_cast<IPin*>(m_output));
    peer->Release();
    AM_MEDIA_TYPE connected = {};
    ASSERT_EQ(m_pin->ConnectionMediaType(&connected), S_OK);
    EXPECT_EQ(connected.subtype, MEDIASUBTYPE_YUY2);
    EXPECT_EQ(connected.cbFormat, sizeof(VIDEOINFOHEADER));
    EXPECT_EQ(std::memcmp(connected.pbFormat, type.Get()->pbFormat, connected.cbFormat), 0);
    FreeMediaType(connected);
}

TEST_F(PinBaseTest, ConnectToAPinOfTheSameDirectionWithAFullTypeSaysSFalse) {
    VideoType type(MEDIASUBTYPE_YUY2, 640, 480);
    EXPECT_EQ(m_pin->Connect(m_sameWay, type.Get()), S_FALSE);
    EXPECT_FALSE(m_pin->IsConnected());
    EXPECT_EQ(m_sameWay->receivedConnections, 0);
}

TEST_F(PinBaseTest, ConnectToAPinOfTheSameDirectionWithAPartTypeFindsNoType) {
    OfferYuy2();
    m_sameWay->AddOfferedSubtype(MEDIASUBTYPE_YUY2);
    AM_MEDIA_TYPE partial = {};
    partial.majortype = MEDIATYPE_Video;
    EXPECT_EQ(m_pin->Connect(m_sameWay, &partial), VFW_E_NO_ACCEPTABLE_TYPES);
    EXPECT_FALSE(m_pin->IsConnected());
    // The peer's types were tried, and none reached the peer as a connection.
    EXPECT_EQ(m_sameWay->typeEnumerations, 1);
    EXPECT_EQ(m_sameWay->receivedConnections, 0);
}

TEST_F(PinBaseTest, ReceiveConnectionFromAPinOfTheSameDirectionSaysInvalidDirection) {
    VideoType type(MEDIASUBTYPE_YUY2, 640, 480);
    EXPECT_EQ(m_pin->ReceiveConnection(m_sameWay, type.Get()), VFW_E_INVALID_DIRECTION);
    EXPECT_FALSE(m_pin->IsConnected());
}

TEST_F(PinBaseTest, APartTypeTriesThePeersTypesThenThePinsOwn) {
    // The peer's own type has no format, which the sink refuses; the sink's offer connects.
    OfferYuy2();
    m_output->AddOfferedSubtype(MEDIASUBTYPE_RGB24);
    AM_MEDIA_TYPE partial = {};
    partial.majortype = MEDIATYPE_Video;
    ASSERT_EQ(m_pin->Connect(m_output, &partial), S_OK);
    EXPECT_EQ(m_output->typeEnumerations, 1);
    AM_MEDIA_TYPE connected = {};
    ASSERT_EQ(m_output->ConnectionMediaType(&connected), S_OK);
    EXPECT_EQ(connected.subtype, MEDIASUBTYPE_YUY2);
    EXPECT_EQ(connected.formattype, FORMAT_VideoInfo);
    FreeMediaType(connected);
}

TEST_F(PinBaseTest, APartTypeTriesOnlyTheTypesThatMatchIt) {
    OfferYuy2();
    AM_MEDIA_TYPE partial = {};
    partial.majortype = MEDIATYPE_Video;
    partial.subtype = MEDIASUBTYPE_RGB24;
    EXPECT_EQ(m_pin->Connect(m_output, &partial), VFW_E_NO_ACCEPTABLE_TYPES);
    EXPECT_EQ(m_output->receivedConnections, 0);
}

TEST_F(PinBaseTest, APeerThatRefusesEveryTypeLeavesNoConnection) {
    OfferYuy2();
    m_output->SetAcceptedSubtype(MEDIASUBTYPE_RGB24);
    AM_MEDIA_TYPE partial = {};
    partial.majortype = MEDIATYPE_Video;
    EXPECT_EQ(m_pin->Connect(m_output, &partial), VFW_E_NO_ACCEPTABLE_TYPES);
    EXPECT_EQ(m_output->receivedConnections, 1);
    EXPECT_FALSE(m_pin->IsConnected());
    EXPECT_FALSE(m_output->IsConnected());
    EXPECT_EQ(CountOf(m_output), 1u);  // its filter's, and no reference left by the attempt
}

TEST_F(PinBaseTest, AFailedAttemptAnswersNotConnectedWithTheDefaultRecord) {
    OfferYuy2();
    m_output->SetAcceptedSubtype(MEDIASUBTYPE_RGB24);
    VideoType type(MEDIASUBTYPE_YUY2, 320, 240);
    EXPECT_EQ(m_pin->Connect(m_output, type.Get()), VFW_E_TYPE_NOT_ACCEPTED);
    AM_MEDIA_TYPE connected;
    std::memset(&connected, 0xCC, sizeof(connected));
    EXPECT_EQ(m_pin->ConnectionMediaType(&connected), VFW_E_NOT_CONNECTED);
    EXPECT_EQ(connected.majortype, GUID_NULL);
    EXPECT_EQ(connected.pbFormat, nullptr);
    EXPECT_EQ(connected.bFixedSizeSamples, TRUE);
    EXPECT_EQ(connected.lSampleSize, 1u);
}

TEST_F(PinBaseTest, ConnectWhileConnectedSaysAlreadyConnected) {
    VideoType type(MEDIASUBTYPE_YUY2, 640, 480);
    ASSERT_EQ(m_pin->Connect(m_output, type.Get()), S_OK);
    EXPECT_EQ(m_pin->Connect(m_output, type.Get()), VFW_E_ALREADY_CONNECTED);
    EXPECT_EQ(m_pin->ReceiveConnection(m_output, type.Get()), VFW_E_ALREADY_CONNECTED);
}

TEST_F(PinBaseTest, ReceiveConnectionRefusesNullArguments) {
    VideoType type(MEDIASUBTYPE_YUY2, 640, 480);
    EXPECT_EQ(m_pin->ReceiveConnection(nullptr, type.Get()), E_POINTER);
    EXPECT_EQ(m_pin->ReceiveConnection(m_output, nullptr), E_POINTER);
}

TEST_F(PinBaseTest, ReceiveConnectionTurnsAPlainRefusalIntoTypeNotAccepted) {
    // E_FAIL (an unknown subtype) and E_INVALIDARG (another format type) alike.
    VideoType rgb565(MEDIASUBTYPE_RGB565, 640, 480);
    EXPECT_EQ(m_pin->ReceiveConnection(m_output, rgb565.Get()), VFW_E_TYPE_NOT_ACCEPTED);
    VideoType videoInfo2(MEDIASUBTYPE_YUY2, 640, 480);
    videoInfo2.Get()->formattype = FORMAT_VideoInfo2;
    EXPECT_EQ(m_pin->ReceiveConnection(m_output, videoInfo2.Get()), VFW_E_TYPE_NOT_ACCEPTED);
    EXPECT_FALSE(m_pin->IsConnected());
}

TEST_F(PinBaseTest, ReceiveConnectionWhileTheFilterRunsSucceeds) {
    ASSERT_EQ(m_sink->Run(0), S_OK);
    VideoType type(MEDIASUBTYPE_YUY2, 640, 480);
    EXPECT_EQ(m_pin->ReceiveConnection(m_output, type.Get()), S_OK);
    EXPECT_TRUE(m_pin->IsConnected());
    EXPECT_EQ(m_pin->Disconnect(), S_OK);
    m_sink->Stop();
}

TEST_F(PinBaseTest, ReceiveConnectionCountsThePeer) {
    VideoType type(MEDIASUBTYPE_YUY2, 640, 480);
    const ULONG before = CountOf(m_output);
    ASSERT_EQ(m_pin->ReceiveConnection(m_output, type.Get()), S_OK);
    EXPECT_EQ(CountOf(m_output), before + 1);
    ASSERT_EQ(m_pin->Disconnect(), S_OK);
    EXPECT_EQ(CountOf(m_output), before);
}

TEST_F(PinBaseTest, DisconnectOnAnUnconnectedPinSaysSFalse) {
    EXPECT_EQ(m_pin->Disconnect(), S_FALSE);
}

TEST_F(PinBaseTest, DisconnectEndsTheConnection) {
    VideoType type(MEDIASUBTYPE_YUY2, 640, 480);
    ASSERT_EQ(m_pin->ReceiveConnection(m_output, type.Get()), S_OK);
    EXPECT_EQ(m_pin->Disconnect(), S_OK);
    IPin* peer = reinterpret_cast<IPin*>(1);
    EXPECT_EQ(m_pin->ConnectedTo(&peer), VFW_E_NOT_CONNECTED);
    EXPECT_EQ(peer, nullptr);
}

TEST_F(PinBaseTest, ConnectionQueriesRefuseNull) {
    EXPECT_EQ(m_pin->ConnectedTo(nullptr), E_POINTER);
    EXPECT_EQ(m_pin->ConnectionMediaType(nullptr), E_POINTER);
    EXPECT_EQ(m_pin->QueryPinInfo(nullptr), E_POINTER);
    EXPECT_EQ(m_pin->QueryDirection(nullptr), E_POINTER);
    EXPECT_EQ(m_pin->EnumMediaTypes(nullptr), E_POINTER);
}

TEST_F(PinBaseTest, PinInfoNamesThePinAndCountsTheFilter) {
    PIN_INFO info = {};
    const ULONG before = CountOf(static_cast<IBaseFilter*>(m_sink));
    ASSERT_EQ(m_pin->QueryPinInfo(&info), S_OK);
    EXPECT_EQ(std::wstring(info.achName), L"Tiny Video Capture");
    EXPECT_EQ(info.dir, PINDIR_INPUT);
    EXPECT_EQ(info.pFilter, static_cast<IBaseFilter*>(m_sink));
    EXPECT_EQ(CountOf(static_cast<IBaseFilter*>(m_sink)), before + 1);
    info.pFilter->Release();
}

TEST_F(PinBaseTest, IdIsThePinsName) {
    LPWSTR id = nullptr;
    ASSERT_EQ(m_pin->QueryId(&id), S_OK);
    EXPECT_EQ(std::wstring(id), L"Tiny Video Capture");
    CoTaskMemFree(id);
}

TEST_F(PinBaseTest, DirectionIsInput) {
    PIN_DIRECTION direction = PINDIR_OUTPUT;
    EXPECT_EQ(m_pin->QueryDirection(&direction), S_OK);
    EXPECT_EQ(direction, PINDIR_INPUT);
}

TEST_F(PinBaseTest, QueryAcceptSaysSOkOrSFalse) {
    VideoType yuy2(MEDIASUBTYPE_YUY2, 640, 480);
    VideoType audio(MEDIASUBTYPE_YUY2, 640, 480);
    audio.Get()->majortype = MEDIATYPE_Audio;
    EXPECT_EQ(m_pin->QueryAccept(yuy2.Get()), S_OK);
    EXPECT_EQ(m_pin->QueryAccept(audio.Get()), S_FALSE);
}

TEST_F(PinBaseTest, InternalConnectionsAreNotImplementedAndEndOfStreamDoesNothing) {
    ULONG count = 0;
    EXPECT_EQ(m_pin->QueryInternalConnections(nullptr, &count), E_NOTIMPL);
    EXPECT_EQ(m_pin->EndOfStream(), S_OK);
}

TEST_F(PinBaseTest, FlushingLastsFromBeginToEnd) {
    EXPECT_FALSE(m_pin->IsFlushing());
    EXPECT_EQ(m_pin->BeginFlush(), S_OK);
    EXPECT_TRUE(m_pin->IsFlushing());
    EXPECT_EQ(m_pin->EndFlush(), S_OK);
    EXPECT_FALSE(m_pin->IsFlushing());
}

TEST_F(PinBaseTest, RateStartsAtZeroAndFollowsNewSegment) {
    EXPECT_EQ(m_pin->CurrentRate(), 0.0);
    EXPECT_EQ(m_pin->NewSegment(10, 20, 1.5), S_OK);
    EXPECT_EQ(m_pin->CurrentRate(), 1.5);
}

TEST_F(PinBaseTest, IsStoppedAsksTheFilter) {
    EXPECT_TRUE(m_pin->IsStopped());
    ASSERT_EQ(m_sink->Pause(), S_OK);
    EXPECT_FALSE(m_pin->IsStopped());
    ASSERT_EQ(m_sink->Stop(), S_OK);
    EXPECT_TRUE(m_pin->IsStopped());
}

TEST_F(PinBaseTest, APinWithoutFilterIsNotStopped) {
    RecordingPin* pin = new RecordingPin(nullptr, &m_observer, "alone", nullptr);
    pin->AddRef();
    EXPECT_FALSE(pin->IsStopped());
    EXPECT_EQ(pin->Release(), 0u);
}

TEST_F(PinBaseTest, ReadOnlyStartsFalse) {
    EXPECT_FALSE(m_pin->IsReadOnly());
}

TEST(MediaTypesMatchTest, NullFieldsMatchAnythingOnEitherSide) {
    VideoType full(MEDIASUBTYPE_YUY2, 640, 480);
    AM_MEDIA_TYPE partial = {};
    partial.majortype = MEDIATYPE_Video;
    EXPECT_TRUE(MediaTypesMatch(*full.Get(), partial));
    EXPECT_TRUE(MediaTypesMatch(partial, *full.Get()));
}

TEST(MediaTypesMatchTest, DifferentSubtypesDoNotMatch) {
    VideoType a(MEDIASUBTYPE_YUY2, 640, 480);
    AM_MEDIA_TYPE partial = {};
    partial.subtype = MEDIASUBTYPE_RGB24;
    EXPECT_FALSE(MediaTypesMatch(*a.Get(), partial));
    EXPECT_FALSE(MediaTypesMatch(partial, *a.Get()));
}

TEST(MediaTypesMatchTest, EqualFormatTypesNeedEqualBlocks) {
    VideoType a(MEDIASUBTYPE_YUY2, 640, 480);
    VideoType b(MEDIASUBTYPE_YUY2, 640, 480);
    EXPECT_TRUE(MediaTypesMatch(*a.Get(), *b.Get()));
    b.Header()->bmiHeader.biWidth = 320;
    EXPECT_FALSE(MediaTypesMatch(*a.Get(), *b.Get()));
    b.Header()->bmiHeader.biWidth = 640;
    b.Get()->cbFormat = sizeof(VIDEOINFOHEADER) - 4;
    EXPECT_FALSE(MediaTypesMatch(*a.Get(), *b.Get()));
    b.Get()->cbFormat = sizeof(VIDEOINFOHEADER);
}

}  // namespace
