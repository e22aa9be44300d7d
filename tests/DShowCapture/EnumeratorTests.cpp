// PinEnumerator and TypeEnumerator: COM identity and counting, and every result of Next, Skip,
// Reset and Clone, on the video sink and on a filter of our own with more pins.

#include "DShowCapture/PinEnumerator.h"
#include "DShowCapture/TypeEnumerator.h"

#include <gtest/gtest.h>

#include "DShowCapture/MediaTypes.h"
#include "DShowCapture/VideoSinkFilter.h"
#include "SinkTestSupport.h"

using namespace DShow;
using namespace SinkTests;

namespace {

class EnumeratorTest : public ComTest {
protected:
    void SetUp() override {
        ComTest::SetUp();
        m_sink = new VideoSinkFilter(&m_observer);
        m_sink->AddRef();
        m_pin = SinkPin(*m_sink);
        m_sink->SetFormat(VideoFormat(TinySize(640, 480), 30.0f, PIXEL_FORMAT_YUY2));
    }
    void TearDown() override {
        m_sink->Release();
        ComTest::TearDown();
    }

    PinEnumerator* Pins() {
        IEnumPins* pins = nullptr;
        EXPECT_EQ(m_sink->EnumPins(&pins), S_OK);
        return static_cast<PinEnumerator*>(pins);
    }

    TypeEnumerator* Types() {
        IEnumMediaTypes* types = nullptr;
        EXPECT_EQ(m_pin->EnumMediaTypes(&types), S_OK);
        return static_cast<TypeEnumerator*>(types);
    }

    RecordingObserver m_observer;
    VideoSinkFilter* m_sink = nullptr;
    VideoSinkInputPin* m_pin = nullptr;
};

TEST_F(EnumeratorTest, PinEnumeratorAnswersItsInterfaceAndUnknownOnly) {
    PinEnumerator* pins = Pins();
    IUnknown* unknown = nullptr;
    IEnumPins* same = nullptr;
    ASSERT_EQ(pins->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(&unknown)), S_OK);
    ASSERT_EQ(pins->QueryInterface(IID_IEnumPins, reinterpret_cast<void**>(&same)), S_OK);
    EXPECT_EQ(unknown, static_cast<IUnknown*>(pins));
    EXPECT_EQ(same, static_cast<IEnumPins*>(pins));
    void* other = reinterpret_cast<void*>(1);
    EXPECT_EQ(pins->QueryInterface(IID_IEnumMediaTypes, &other), E_NOINTERFACE);
    EXPECT_EQ(other, nullptr);
    EXPECT_EQ(pins->QueryInterface(IID_IEnumPins, nullptr), E_POINTER);
    EXPECT_EQ(CountOf(pins), 3u);
    unknown->Release();
    same->Release();
    EXPECT_EQ(pins->Release(), 0u);
}

TEST_F(EnumeratorTest, TypeEnumeratorAnswersItsInterfaceAndUnknownOnly) {
    TypeEnumerator* types = Types();
    IUnknown* unknown = nullptr;
    ASSERT_EQ(types->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(&unknown)), S_OK);
    EXPECT_EQ(unknown, static_cast<IUnknown*>(types));
    void* other = reinterpret_cast<void*>(1);
    EXPECT_EQ(types->QueryInterface(IID_IEnumPins, &other), E_NOINTERFACE);
    EXPECT_EQ(other, nullptr);
    EXPECT_EQ(unknown->Release(), 1u);
    EXPECT_EQ(types->Release(), 0u);
}

TEST_F(EnumeratorTest, TypeEnumeratorCountsItsPinUntilItGoes) {
    TypeEnumerator* types = Types();
    EXPECT_EQ(CountOf(m_pin), 2u);
    EXPECT_EQ(types->Release(), 0u);
    EXPECT_EQ(CountOf(m_pin), 1u);
}

TEST_F(EnumeratorTest, PinEnumeratorDoesNotCountItsFilter) {
    const ULONG before = CountOf(static_cast<IBaseFilter*>(m_sink));
    PinEnumerator* pins = Pins();
    EXPECT_EQ(CountOf(static_cast<IBaseFilter*>(m_sink)), before);
    pins->Release();
}

TEST_F(EnumeratorTest, PinNextWithoutFetchedRefusesMoreThanOne) {
    PinEnumerator* pins = Pins();
    IPin* items[2] = {};
    EXPECT_EQ(pins->Next(2, items, nullptr), E_INVALIDARG);
    EXPECT_EQ(items[0], nullptr);
    EXPECT_EQ(pins->GetPosition(), 0u);
    pins->Release();
}

TEST_F(EnumeratorTest, TypeNextWithoutFetchedRefusesMoreThanOne) {
    TypeEnumerator* types = Types();
    AM_MEDIA_TYPE* items[2] = {};
    EXPECT_EQ(types->Next(2, items, nullptr), E_INVALIDARG);
    EXPECT_EQ(items[0], nullptr);
    types->Release();
}

TEST_F(EnumeratorTest, TheSinkHasOnePinThenNoMore) {
    PinEnumerator* pins = Pins();
    IPin* pin = nullptr;
    ULONG fetched = 7;
    ASSERT_EQ(pins->Next(1, &pin, &fetched), S_OK);
    EXPECT_EQ(fetched, 1u);
    EXPECT_EQ(pin, static_cast<IPin*>(m_pin));
    EXPECT_EQ(CountOf(m_pin), 2u);
    pin->Release();
    IPin* none = nullptr;
    EXPECT_EQ(pins->Next(1, &none, &fetched), S_FALSE);
    EXPECT_EQ(fetched, 0u);
    EXPECT_EQ(none, nullptr);
    pins->Release();
}

TEST_F(EnumeratorTest, PinNextOfOneWithoutFetchedWorks) {
    PinEnumerator* pins = Pins();
    IPin* pin = nullptr;
    ASSERT_EQ(pins->Next(1, &pin, nullptr), S_OK);
    EXPECT_EQ(pin, static_cast<IPin*>(m_pin));
    pin->Release();
    EXPECT_EQ(pins->Next(1, &pin, nullptr), S_FALSE);
    pins->Release();
}

TEST_F(EnumeratorTest, PinNextOfZeroSaysSOk) {
    PinEnumerator* pins = Pins();
    ULONG fetched = 7;
    EXPECT_EQ(pins->Next(0, nullptr, &fetched), S_OK);
    EXPECT_EQ(fetched, 0u);
    pins->Release();
}

TEST_F(EnumeratorTest, PinNextOfMoreThanThereAreSaysSFalseWithTheCount) {
    RecordingFilter* filter = new RecordingFilter(&m_observer);
    filter->AddRef();
    filter->AddPin("a");
    filter->AddPin("b");
    IEnumPins* pins = nullptr;
    ASSERT_EQ(filter->EnumPins(&pins), S_OK);
    IPin* items[3] = {};
    ULONG fetched = 0;
    EXPECT_EQ(pins->Next(3, items, &fetched), S_FALSE);
    EXPECT_EQ(fetched, 2u);
    EXPECT_EQ(items[0], static_cast<IPin*>(filter->GetPin(0)));
    EXPECT_EQ(items[1], static_cast<IPin*>(filter->GetPin(1)));
    items[0]->Release();
    items[1]->Release();
    pins->Release();
    filter->Release();
}

TEST_F(EnumeratorTest, AMissingPinIsOutOfSyncAndKeepsWhatWasDelivered) {
    RecordingFilter* filter = new RecordingFilter(&m_observer);
    filter->AddRef();
    RecordingPin* first = filter->AddPin("a");
    filter->AddMissingPin();
    IEnumPins* pins = nullptr;
    ASSERT_EQ(filter->EnumPins(&pins), S_OK);
    IPin* items[2] = {};
    ULONG fetched = 9;
    EXPECT_EQ(pins->Next(2, items, &fetched), VFW_E_ENUM_OUT_OF_SYNC);
    EXPECT_EQ(fetched, 0u);
    EXPECT_EQ(items[0], static_cast<IPin*>(first));
    EXPECT_EQ(first->RefCount(), 2);
    items[0]->Release();
    pins->Release();
    filter->Release();
}

TEST_F(EnumeratorTest, ThePinCountIsReadOnceAtCreation) {
    RecordingFilter* filter = new RecordingFilter(&m_observer);
    filter->AddRef();
    filter->AddPin("a");
    IEnumPins* pins = nullptr;
    ASSERT_EQ(filter->EnumPins(&pins), S_OK);
    filter->AddPin("b");
    IPin* items[2] = {};
    ULONG fetched = 0;
    EXPECT_EQ(pins->Next(2, items, &fetched), S_FALSE);
    EXPECT_EQ(fetched, 1u);
    items[0]->Release();
    // Reset does not count again; a clone does.
    ASSERT_EQ(pins->Reset(), S_OK);
    EXPECT_EQ(pins->Next(2, items, &fetched), S_FALSE);
    EXPECT_EQ(fetched, 1u);
    items[0]->Release();
    IEnumPins* clone = nullptr;
    ASSERT_EQ(pins->Clone(&clone), S_OK);
    ASSERT_EQ(clone->Reset(), S_OK);
    EXPECT_EQ(clone->Next(2, items, &fetched), S_OK);
    EXPECT_EQ(fetched, 2u);
    items[0]->Release();
    items[1]->Release();
    clone->Release();
    pins->Release();
    filter->Release();
}

TEST_F(EnumeratorTest, PinSkipToTheEndRewindsAndSaysSFalse) {
    PinEnumerator* pins = Pins();
    EXPECT_EQ(pins->Skip(1), S_FALSE);
    EXPECT_EQ(pins->GetPosition(), 0u);
    IPin* pin = nullptr;
    ULONG fetched = 0;
    ASSERT_EQ(pins->Next(1, &pin, &fetched), S_OK);
    EXPECT_EQ(pin, static_cast<IPin*>(m_pin));
    pin->Release();
    pins->Release();
}

TEST_F(EnumeratorTest, PinSkipPastTheEndRewindsToo) {
    PinEnumerator* pins = Pins();
    EXPECT_EQ(pins->Skip(5), S_FALSE);
    EXPECT_EQ(pins->GetPosition(), 0u);
    pins->Release();
}

TEST_F(EnumeratorTest, PinSkipWithinTheListMoves) {
    RecordingFilter* filter = new RecordingFilter(&m_observer);
    filter->AddRef();
    filter->AddPin("a");
    filter->AddPin("b");
    filter->AddPin("c");
    IEnumPins* pins = nullptr;
    ASSERT_EQ(filter->EnumPins(&pins), S_OK);
    EXPECT_EQ(pins->Skip(2), S_OK);
    EXPECT_EQ(static_cast<PinEnumerator*>(pins)->GetPosition(), 2u);
    IPin* pin = nullptr;
    ASSERT_EQ(pins->Next(1, &pin, nullptr), S_OK);
    EXPECT_EQ(pin, static_cast<IPin*>(filter->GetPin(2)));
    pin->Release();
    pins->Release();
    filter->Release();
}

TEST_F(EnumeratorTest, TheSinkOffersOneType) {
    TypeEnumerator* types = Types();
    AM_MEDIA_TYPE* type = nullptr;
    ULONG fetched = 0;
    ASSERT_EQ(types->Next(1, &type, &fetched), S_OK);
    EXPECT_EQ(fetched, 1u);
    ASSERT_NE(type, nullptr);
    EXPECT_EQ(type->subtype, MEDIASUBTYPE_YUY2);
    DeleteMediaType(type);
    AM_MEDIA_TYPE* none = nullptr;
    EXPECT_EQ(types->Next(1, &none, &fetched), S_FALSE);
    EXPECT_EQ(fetched, 0u);
    EXPECT_EQ(none, nullptr);
    types->Release();
}

TEST_F(EnumeratorTest, TypeNextPastTheEndKeepsMovingUntilReset) {
    TypeEnumerator* types = Types();
    AM_MEDIA_TYPE* items[3] = {};
    ULONG fetched = 0;
    EXPECT_EQ(types->Next(3, items, &fetched), S_FALSE);
    EXPECT_EQ(fetched, 1u);
    EXPECT_EQ(types->GetPosition(), 2u);
    DeleteMediaType(items[0]);
    EXPECT_EQ(types->Next(1, items, &fetched), S_FALSE);
    EXPECT_EQ(types->GetPosition(), 3u);
    ASSERT_EQ(types->Reset(), S_OK);
    EXPECT_EQ(types->GetPosition(), 0u);
    ASSERT_EQ(types->Next(1, items, &fetched), S_OK);
    DeleteMediaType(items[0]);
    types->Release();
}

TEST_F(EnumeratorTest, TypeSkipOfOneLandsOnOneThenNextMovesToTwo) {
    TypeEnumerator* types = Types();
    EXPECT_EQ(types->Skip(1), S_OK);
    EXPECT_EQ(types->GetPosition(), 1u);
    AM_MEDIA_TYPE* type = nullptr;
    ULONG fetched = 5;
    EXPECT_EQ(types->Next(1, &type, &fetched), S_FALSE);
    EXPECT_EQ(fetched, 0u);
    EXPECT_EQ(types->GetPosition(), 2u);
    types->Release();
}

TEST_F(EnumeratorTest, TypeSkipPastTheEndSaysWhatThePinSays) {
    TypeEnumerator* types = Types();
    EXPECT_EQ(types->Skip(2), E_FAIL);
    EXPECT_EQ(types->GetPosition(), 2u);
    types->Release();
}

TEST_F(EnumeratorTest, TypeSkipOfZeroSaysSOk) {
    TypeEnumerator* types = Types();
    EXPECT_EQ(types->Skip(0), S_OK);
    EXPECT_EQ(types->GetPosition(), 0u);
    types->Release();
}

TEST_F(EnumeratorTest, PinCloneKeepsThePositionAndMovesAlone) {
    RecordingFilter* filter = new RecordingFilter(&m_observer);
    filter->AddRef();
    filter->AddPin("a");
    filter->AddPin("b");
    filter->AddPin("c");
    IEnumPins* pins = nullptr;
    ASSERT_EQ(filter->EnumPins(&pins), S_OK);
    ASSERT_EQ(pins->Skip(1), S_OK);
    IEnumPins* clone = nullptr;
    ASSERT_EQ(pins->Clone(&clone), S_OK);
    EXPECT_EQ(CountOf(clone), 1u);
    EXPECT_EQ(static_cast<PinEnumerator*>(clone)->GetPosition(), 1u);
    ASSERT_EQ(clone->Skip(1), S_OK);
    EXPECT_EQ(static_cast<PinEnumerator*>(clone)->GetPosition(), 2u);
    EXPECT_EQ(static_cast<PinEnumerator*>(pins)->GetPosition(), 1u);
    EXPECT_EQ(clone->Release(), 0u);
    EXPECT_EQ(pins->Release(), 0u);
    filter->Release();
}

TEST_F(EnumeratorTest, TypeCloneKeepsThePositionAndMovesAlone) {
    TypeEnumerator* types = Types();
    ASSERT_EQ(types->Skip(1), S_OK);
    IEnumMediaTypes* clone = nullptr;
    ASSERT_EQ(types->Clone(&clone), S_OK);
    EXPECT_EQ(CountOf(clone), 1u);
    // Both count the pin.
    EXPECT_EQ(CountOf(m_pin), 3u);
    auto* typedClone = static_cast<TypeEnumerator*>(clone);
    EXPECT_EQ(typedClone->GetPosition(), 1u);
    ASSERT_EQ(clone->Reset(), S_OK);
    AM_MEDIA_TYPE* type = nullptr;
    ASSERT_EQ(clone->Next(1, &type, nullptr), S_OK);
    DeleteMediaType(type);
    EXPECT_EQ(typedClone->GetPosition(), 1u);
    EXPECT_EQ(types->GetPosition(), 1u);
    ASSERT_EQ(clone->Skip(3), E_FAIL);
    EXPECT_EQ(types->GetPosition(), 1u);
    EXPECT_EQ(clone->Release(), 0u);
    EXPECT_EQ(types->Release(), 0u);
    EXPECT_EQ(CountOf(m_pin), 1u);
}

TEST_F(EnumeratorTest, PinResetGoesBackToTheStart) {
    PinEnumerator* pins = Pins();
    IPin* pin = nullptr;
    ASSERT_EQ(pins->Next(1, &pin, nullptr), S_OK);
    pin->Release();
    EXPECT_EQ(pins->Reset(), S_OK);
    EXPECT_EQ(pins->GetPosition(), 0u);
    ASSERT_EQ(pins->Next(1, &pin, nullptr), S_OK);
    pin->Release();
    pins->Release();
}

}  // namespace
