#include "DShowCapture/PinSearch.h"

#include <gtest/gtest.h>

#include <cstring>

#include "FakeCom.h"

using namespace DShow;
using FakeCom::Capability;
using FakeCom::FakeFilter;
using FakeCom::FakePin;

namespace {

const GUID kOtherCategory = {
    0x12345678, 0x1234, 0x1234, {0x12, 0x34, 0x56, 0x78, 0x9A, 0xBC, 0xDE, 0xF0}};
const GUID kProperMedium = {
    0xAAAA0001, 0x0000, 0x0000, {0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x08}};

REGPINMEDIUM Medium(const GUID& set, DWORD dw1, DWORD dw2) {
    REGPINMEDIUM medium = {};
    medium.clsMedium = set;
    medium.dw1 = dw1;
    medium.dw2 = dw2;
    return medium;
}

FakePin* CapturePin(FakeFilter* filter, PIN_DIRECTION direction = PINDIR_OUTPUT) {
    FakePin* pin = filter->AddPin(direction);
    pin->hasPropertySet = true;
    pin->category = PIN_CATEGORY_CAPTURE;
    return pin;
}

class PinSearch : public ::testing::Test {
protected:
    void SetUp() override { m_filter = FakeCom::Own(new FakeFilter()); }
    FakeFilter* Filter() { return m_filter.Get(); }

private:
    ComPtr<FakeFilter> m_filter;
};

}  // namespace

TEST_F(PinSearch, GuidConstantsHavePublishedValues) {
    const GUID ksPin = {
        0xB61178D1, 0xA2D9, 0x11CF, {0x9E, 0x53, 0x00, 0xAA, 0x00, 0xA2, 0x16, 0xA1}};
    const GUID standard = {
        0x4747B320, 0x62CE, 0x11CF, {0xA5, 0xD6, 0x28, 0xDB, 0x04, 0xC1, 0x00, 0x00}};
    const GUID capture = {
        0xFB6C4281, 0x0353, 0x11D1, {0x90, 0x5F, 0x00, 0x00, 0xC0, 0xCC, 0x16, 0xBA}};
    const GUID pinSet = {
        0x9B00F101, 0x1567, 0x11D1, {0xB3, 0xF1, 0x00, 0xAA, 0x00, 0x37, 0x61, 0xC5}};
    EXPECT_TRUE(IsEqualGUID(IID_IKsPin, ksPin));
    EXPECT_TRUE(IsEqualGUID(KSMEDIUMSETID_Standard, standard));
    EXPECT_TRUE(IsEqualGUID(PIN_CATEGORY_CAPTURE, capture));
    EXPECT_TRUE(IsEqualGUID(AMPROPSETID_Pin, pinSet));
}

TEST_F(PinSearch, PinWithoutPropertySetHasNoCategory) {
    FakePin* pin = Filter()->AddPin();
    EXPECT_FALSE(PinHasCategory(pin, PIN_CATEGORY_CAPTURE));
    EXPECT_FALSE(PinHasCategory(pin, GUID_NULL));
}

TEST_F(PinSearch, PinHasCategoryMatchesAllSixteenBytes) {
    FakePin* pin = CapturePin(Filter());
    EXPECT_TRUE(PinHasCategory(pin, PIN_CATEGORY_CAPTURE));
    EXPECT_FALSE(PinHasCategory(pin, kOtherCategory));
}

TEST_F(PinSearch, ShortCategoryAnswerIsFalseEvenWhenBytesMatch) {
    FakePin* pin = CapturePin(Filter());
    pin->categoryBytesReturned = 15;
    EXPECT_FALSE(PinHasCategory(pin, PIN_CATEGORY_CAPTURE));
    pin->categoryBytesReturned = 17;
    EXPECT_FALSE(PinHasCategory(pin, PIN_CATEGORY_CAPTURE));
}

TEST_F(PinSearch, FailedCategoryQueryIsFalse) {
    FakePin* pin = CapturePin(Filter());
    pin->categoryResult = E_PROP_ID_UNSUPPORTED;
    EXPECT_FALSE(PinHasCategory(pin, PIN_CATEGORY_CAPTURE));
    // A positive result still counts as success.
    pin->categoryResult = S_FALSE;
    EXPECT_TRUE(PinHasCategory(pin, PIN_CATEGORY_CAPTURE));
}

TEST_F(PinSearch, ZeroCategoryTakesFirstPinOfDirectionWithoutAskingItsCategory) {
    FakePin* input = Filter()->AddPin(PINDIR_INPUT);
    FakePin* first = Filter()->AddPin(PINDIR_OUTPUT);
    FakePin* second = CapturePin(Filter());
    ComPtr<IPin> pin = GetPinByCategory(Filter(), PINDIR_OUTPUT, GUID_NULL);
    EXPECT_EQ(pin.Get(), static_cast<IPin*>(first));
    EXPECT_EQ(first->categoryQueries, 0);
    EXPECT_EQ(second->categoryQueries, 0);
    EXPECT_EQ(input->categoryQueries, 0);
}

TEST_F(PinSearch, GetPinByCategoryChecksDirectionThenCategory) {
    FakePin* inputCapture = CapturePin(Filter(), PINDIR_INPUT);
    FakePin* preview = Filter()->AddPin(PINDIR_OUTPUT);
    preview->hasPropertySet = true;
    preview->category = PIN_CATEGORY_PREVIEW;
    FakePin* brokenDirection = CapturePin(Filter());
    brokenDirection->queryDirectionResult = E_FAIL;
    FakePin* capture = CapturePin(Filter());

    ComPtr<IPin> pin = GetPinByCategory(Filter(), PINDIR_OUTPUT, PIN_CATEGORY_CAPTURE);
    EXPECT_EQ(pin.Get(), static_cast<IPin*>(capture));
    EXPECT_EQ(inputCapture->categoryQueries, 0);
    EXPECT_EQ(brokenDirection->categoryQueries, 0);
    // Rejected pins were let go; the result holds one extra reference to its pin.
    EXPECT_EQ(preview->RefCount(), 1u);
    EXPECT_EQ(inputCapture->RefCount(), 1u);
    EXPECT_EQ(capture->RefCount(), 2u);
}

TEST_F(PinSearch, NoMatchingPinGivesEmptyResult) {
    CapturePin(Filter(), PINDIR_INPUT);
    EXPECT_FALSE(GetPinByCategory(Filter(), PINDIR_OUTPUT, PIN_CATEGORY_CAPTURE));
}

TEST_F(PinSearch, FailedEnumPinsGivesEmptyResultWithoutMessage) {
    CapturePin(Filter());
    Filter()->enumPinsResult = E_UNEXPECTED;
    FakeCom::LogCapture log;
    EXPECT_FALSE(GetPinByCategory(Filter(), PINDIR_OUTPUT, PIN_CATEGORY_CAPTURE));
    EXPECT_FALSE(GetPinByMajorType(Filter(), PINDIR_OUTPUT, MEDIATYPE_Video));
    EXPECT_FALSE(GetFirstPin(Filter()));
    EXPECT_FALSE(GetPinByMedium(Filter(), Medium(kProperMedium, 0, 0)));
    EXPECT_FALSE(GetVideoStreamPin(Filter(), PINDIR_OUTPUT, GUID_NULL));
    EXPECT_TRUE(log.Messages().empty());
}

TEST_F(PinSearch, PinHasMajorType) {
    FakePin* pin = Filter()->AddPin();
    Capability audio;
    audio.majorType = MEDIATYPE_Audio;
    Capability video;
    pin->mediaTypes = {audio, video};
    EXPECT_TRUE(PinHasMajorType(pin, MEDIATYPE_Video));
    EXPECT_TRUE(PinHasMajorType(pin, MEDIATYPE_Audio));
    EXPECT_FALSE(PinHasMajorType(pin, MEDIATYPE_Interleaved));
}

TEST_F(PinSearch, PinHasMajorTypeLogsFailedEnumeration) {
    FakePin* pin = Filter()->AddPin();
    pin->enumMediaTypesResult = E_OUTOFMEMORY;
    FakeCom::LogCapture log;
    EXPECT_FALSE(PinHasMajorType(pin, MEDIATYPE_Video));
    EXPECT_TRUE(log.Contains("Failed to EnumMediaTypes(IEnumMediaTypes,0x8007000E)"));
}

TEST_F(PinSearch, GetPinByMajorType) {
    FakePin* audio = Filter()->AddPin();
    Capability audioType;
    audioType.majorType = MEDIATYPE_Audio;
    audio->mediaTypes = {audioType};
    FakePin* videoInput = Filter()->AddPin(PINDIR_INPUT);
    videoInput->mediaTypes = {Capability()};
    FakePin* video = Filter()->AddPin();
    video->mediaTypes = {Capability()};
    EXPECT_EQ(GetPinByMajorType(Filter(), PINDIR_OUTPUT, MEDIATYPE_Video).Get(),
              static_cast<IPin*>(video));
    EXPECT_EQ(GetPinByMajorType(Filter(), PINDIR_INPUT, MEDIATYPE_Video).Get(),
              static_cast<IPin*>(videoInput));
    EXPECT_EQ(GetPinByMajorType(Filter(), PINDIR_OUTPUT, MEDIATYPE_Audio).Get(),
              static_cast<IPin*>(audio));
}

TEST_F(PinSearch, GetFirstPinTakesFirstAnsweringPinWhateverItsDirection) {
    FakePin* silent = Filter()->AddPin(PINDIR_OUTPUT);
    silent->queryDirectionResult = E_FAIL;
    FakePin* noInfo = Filter()->AddPin(PINDIR_OUTPUT);
    noInfo->queryPinInfoResult = E_FAIL;
    FakePin* input = Filter()->AddPin(PINDIR_INPUT);
    Filter()->AddPin(PINDIR_OUTPUT);
    EXPECT_EQ(GetFirstPin(Filter()).Get(), static_cast<IPin*>(input));
}

TEST_F(PinSearch, GetPinMediumWithoutKsPinLeavesMediumAlone) {
    FakePin* pin = Filter()->AddPin();
    REGPINMEDIUM medium = Medium(kProperMedium, 7, 8);
    EXPECT_FALSE(GetPinMedium(pin, medium));
    EXPECT_TRUE(IsEqualGUID(medium.clsMedium, kProperMedium));
    EXPECT_EQ(medium.dw1, 7u);
    EXPECT_FALSE(GetPinMedium(nullptr, medium));
    EXPECT_EQ(medium.dw2, 8u);
}

TEST_F(PinSearch, GetPinMediumFailedQueryLeavesMediumAlone) {
    FakePin* pin = Filter()->AddPin();
    pin->hasKsPin = true;
    pin->mediumsResult = E_NOTIMPL;
    REGPINMEDIUM medium = Medium(kProperMedium, 7, 8);
    EXPECT_FALSE(GetPinMedium(pin, medium));
    EXPECT_EQ(medium.dw1, 7u);
}

TEST_F(PinSearch, OnlyStandardMediumZeroesMediumAndGivesFalse) {
    FakePin* pin = Filter()->AddPin();
    pin->hasKsPin = true;
    pin->mediums = {Medium(KSMEDIUMSETID_Standard, 0, 0)};
    REGPINMEDIUM medium = Medium(kProperMedium, 7, 8);
    EXPECT_FALSE(GetPinMedium(pin, medium));
    EXPECT_TRUE(IsEqualGUID(medium.clsMedium, GUID_NULL));
    EXPECT_EQ(medium.dw1, 0u);
    EXPECT_EQ(medium.dw2, 0u);
}

TEST_F(PinSearch, ZeroMediumThenProperMediumGivesTheProperOne) {
    FakePin* pin = Filter()->AddPin();
    pin->hasKsPin = true;
    pin->mediums = {Medium(GUID_NULL, 1, 2), Medium(KSMEDIUMSETID_Standard, 3, 4),
                    Medium(kProperMedium, 5, 6), Medium(kOtherCategory, 9, 9)};
    REGPINMEDIUM medium = {};
    EXPECT_TRUE(GetPinMedium(pin, medium));
    EXPECT_TRUE(IsEqualGUID(medium.clsMedium, kProperMedium));
    EXPECT_EQ(medium.dw1, 5u);
    EXPECT_EQ(medium.dw2, 6u);
}

TEST_F(PinSearch, GetPinByMediumComparesAllThreeParts) {
    FakePin* other = Filter()->AddPin();
    other->hasKsPin = true;
    other->mediums = {Medium(kProperMedium, 5, 7)};
    FakePin* wanted = Filter()->AddPin(PINDIR_INPUT);
    wanted->hasKsPin = true;
    wanted->mediums = {Medium(kProperMedium, 5, 6)};
    EXPECT_EQ(GetPinByMedium(Filter(), Medium(kProperMedium, 5, 6)).Get(),
              static_cast<IPin*>(wanted));
    EXPECT_FALSE(GetPinByMedium(Filter(), Medium(kProperMedium, 4, 6)));
}

TEST_F(PinSearch, GetVideoStreamPinNeedsAVideoCapability) {
    FakePin* noConfig = CapturePin(Filter());
    (void)noConfig;
    FakePin* audioOnly = CapturePin(Filter());
    audioOnly->hasStreamConfig = true;
    Capability audio;
    audio.majorType = MEDIATYPE_Audio;
    audioOnly->capabilities = {audio};
    FakePin* video = CapturePin(Filter());
    video->hasStreamConfig = true;
    Capability failing;
    failing.result = E_FAIL;
    video->capabilities = {failing, Capability()};

    FakeCom::LogCapture log;
    EXPECT_EQ(GetVideoStreamPin(Filter(), PINDIR_OUTPUT, PIN_CATEGORY_CAPTURE).Get(),
              static_cast<IPin*>(video));
    EXPECT_EQ(GetAudioStreamPin(Filter(), PINDIR_OUTPUT, GUID_NULL).Get(),
              static_cast<IPin*>(audioOnly));
    EXPECT_FALSE(GetVideoStreamPin(Filter(), PINDIR_OUTPUT, PIN_CATEGORY_PREVIEW));
    EXPECT_FALSE(GetVideoStreamPin(Filter(), PINDIR_INPUT, GUID_NULL));
}

TEST_F(PinSearch, OnlyTheAudioFormLogs) {
    FakePin* noConfig = CapturePin(Filter());
    (void)noConfig;
    FakePin* noCount = CapturePin(Filter());
    noCount->hasStreamConfig = true;
    noCount->numberOfCapabilitiesResult = E_UNEXPECTED;
    FakePin* empty = CapturePin(Filter());
    empty->hasStreamConfig = true;

    {
        FakeCom::LogCapture log;
        EXPECT_FALSE(GetVideoStreamPin(Filter(), PINDIR_OUTPUT, GUID_NULL));
        EXPECT_TRUE(log.Messages().empty());
    }
    {
        FakeCom::LogCapture log;
        EXPECT_FALSE(GetAudioStreamPin(Filter(), PINDIR_OUTPUT, GUID_NULL));
        ASSERT_EQ(log.Messages().size(), 2u);
        EXPECT_EQ(log.Messages()[0], "Failed to QueryInterface(IID_IAMStreamConfig,0x80004002)");
        EXPECT_EQ(log.Messages()[1], "Failed to GetNumberOfCapabilities(0x8000FFFF)");
    }
    Filter()->enumPinsResult = E_FAIL;
    {
        FakeCom::LogCapture log;
        EXPECT_FALSE(GetAudioStreamPin(Filter(), PINDIR_OUTPUT, GUID_NULL));
        EXPECT_EQ(log.Messages(), std::vector<std::string>{"Failed to EnumPins(0x80004005)"});
    }
}

TEST_F(PinSearch, GetPinMediaTypeRgb32HolderTakesTheRecord) {
    FakePin* pin = Filter()->AddPin();
    Capability yuy2;
    Capability rgb32Info2;
    rgb32Info2.subtype = MEDIASUBTYPE_RGB32;
    rgb32Info2.formatType = FORMAT_VideoInfo2;
    Capability rgb32;
    rgb32.subtype = MEDIASUBTYPE_RGB32;
    rgb32.width = 320;
    pin->mediaTypes = {yuy2, rgb32Info2, rgb32};

    ScopedMediaType mediaType;
    EXPECT_TRUE(GetPinMediaTypeRGB32(pin, mediaType));
    ASSERT_NE(mediaType.Get(), nullptr);
    EXPECT_TRUE(IsEqualGUID(mediaType->subtype, MEDIASUBTYPE_RGB32));
    EXPECT_TRUE(IsEqualGUID(mediaType->formattype, FORMAT_VideoInfo));
    EXPECT_EQ(reinterpret_cast<VIDEOINFOHEADER*>(mediaType->pbFormat)->bmiHeader.biWidth, 320);
}

TEST_F(PinSearch, GetPinMediaTypeRgb32CopiesOverAHeldRecord) {
    FakePin* pin = Filter()->AddPin();
    Capability rgb32;
    rgb32.subtype = MEDIASUBTYPE_RGB32;
    rgb32.width = 800;
    pin->mediaTypes = {rgb32};

    ScopedMediaType mediaType;
    *mediaType.Receive() = FakeCom::NewMediaType(Capability());
    AM_MEDIA_TYPE* record = mediaType.Get();
    EXPECT_TRUE(GetPinMediaTypeRGB32(pin, mediaType));
    EXPECT_EQ(mediaType.Get(), record);
    EXPECT_TRUE(IsEqualGUID(mediaType->subtype, MEDIASUBTYPE_RGB32));
    EXPECT_EQ(reinterpret_cast<VIDEOINFOHEADER*>(mediaType->pbFormat)->bmiHeader.biWidth, 800);
}

TEST_F(PinSearch, GetPinMediaTypeRgb32WithoutMatchOrEnumeration) {
    FakePin* pin = Filter()->AddPin();
    pin->mediaTypes = {Capability()};
    ScopedMediaType mediaType;
    EXPECT_FALSE(GetPinMediaTypeRGB32(pin, mediaType));
    EXPECT_EQ(mediaType.Get(), nullptr);

    pin->enumMediaTypesResult = E_FAIL;
    FakeCom::LogCapture log;
    EXPECT_FALSE(GetPinMediaTypeRGB32(pin, mediaType));
    EXPECT_TRUE(log.Contains("Failed to EnumMediaTypes(IEnumMediaTypes,0x80004005)"));
}
