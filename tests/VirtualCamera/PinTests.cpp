// What the capture pin tells about the device: category, stream configuration, mediums, modes.

#include "VirtualCameraFixture.h"

#include <dvdmedia.h>
#include <ks.h>
#include <vfwmsgs.h>

#include "tools/VirtualCamera/Config/Guids.h"
#include "tools/VirtualCamera/Config/KsPin.h"
#include "tools/VirtualCamera/Config/MediaFormats.h"

namespace VirtualCameraTests {
namespace {

using VirtualCamera::DeleteMediaType;

const GUID kCustomCategory = {
    0x11111111, 0x2222, 0x3333, {0x44, 0x44, 0x55, 0x55, 0x55, 0x55, 0x55, 0x55}};

class VirtualCameraPinTest : public VirtualCameraTest {
protected:
    ComPtr<IPin> PinOf(const std::wstring& settings) {
        const std::wstring name = UniqueName();
        AddDevices(L"[device " + name + L"]\n" + settings);
        filter_ = BindFilterOrFail(name);
        return OutputPin(filter_.Get());
    }

    HRESULT QueryCategory(IPin* pin, GUID* category, DWORD* returned) {
        ComPtr<IKsPropertySet> properties;
        HRESULT hr = pin->QueryInterface(IID_PPV_ARGS(&properties));
        if (FAILED(hr)) return hr;
        *category = GUID_NULL;
        return properties->Get(AMPROPSETID_Pin, AMPROPERTY_PIN_CATEGORY, nullptr, 0, category,
                               sizeof(GUID), returned);
    }

    std::vector<REGPINMEDIUM> Mediums(IPin* pin) {
        std::vector<REGPINMEDIUM> result;
        ComPtr<VirtualCamera::IKsPin> ksPin;
        EXPECT_EQ(pin->QueryInterface(IID_IKsPin, reinterpret_cast<void**>(ksPin.GetAddressOf())),
                  S_OK);
        if (!ksPin) return result;
        KSMULTIPLE_ITEM* list = nullptr;
        EXPECT_EQ(ksPin->KsQueryMediums(&list), S_OK);
        if (!list) return result;
        EXPECT_EQ(list->Size, sizeof(KSMULTIPLE_ITEM) + list->Count * sizeof(REGPINMEDIUM));
        const auto* items = reinterpret_cast<const REGPINMEDIUM*>(list + 1);
        result.assign(items, items + list->Count);
        CoTaskMemFree(list);
        return result;
    }

    ComPtr<IBaseFilter> filter_;
};

TEST_F(VirtualCameraPinTest, CategoryIsCaptureByDefault) {
    ComPtr<IPin> pin = PinOf(L"mode = YUY2 videoinfo 64 48 333333\n");
    GUID category;
    DWORD returned = 0;
    ASSERT_EQ(QueryCategory(pin.Get(), &category, &returned), S_OK);
    EXPECT_EQ(returned, sizeof(GUID));
    EXPECT_TRUE(IsEqualGUID(category, PIN_CATEGORY_CAPTURE));
}

TEST_F(VirtualCameraPinTest, CategoryCanBeOffAnotherGuidOrShort) {
    GUID category;
    DWORD returned = 0;
    ComPtr<IPin> none = PinOf(L"category = none\n");
    ComPtr<IKsPropertySet> properties;
    EXPECT_EQ(none.As(&properties), E_NOINTERFACE);

    ComPtr<IPin> custom = PinOf(L"category = {11111111-2222-3333-4444-555555555555}\n");
    ASSERT_EQ(QueryCategory(custom.Get(), &category, &returned), S_OK);
    EXPECT_TRUE(IsEqualGUID(category, kCustomCategory));

    ComPtr<IPin> shortAnswer = PinOf(L"category = short\n");
    ASSERT_EQ(QueryCategory(shortAnswer.Get(), &category, &returned), S_OK);
    EXPECT_LT(returned, sizeof(GUID));
}

TEST_F(VirtualCameraPinTest, StreamConfigCanBeSwitchedOff) {
    ComPtr<IPin> pin = PinOf(L"stream_config = off\nmode = YUY2 videoinfo 64 48 333333\n");
    ComPtr<IAMStreamConfig> config;
    EXPECT_EQ(pin.As(&config), E_NOINTERFACE);
    ComPtr<IPin> withConfig = PinOf(L"mode = YUY2 videoinfo 64 48 333333\n");
    EXPECT_EQ(withConfig.As(&config), S_OK);
}

TEST_F(VirtualCameraPinTest, MediumsAreStandardByDefault) {
    ComPtr<IPin> pin = PinOf(L"mode = YUY2 videoinfo 64 48 333333\n");
    const auto mediums = Mediums(pin.Get());
    ASSERT_EQ(mediums.size(), 1u);
    EXPECT_TRUE(IsEqualGUID(mediums[0].clsMedium, KSMEDIUMSETID_Standard));
    EXPECT_EQ(mediums[0].dw1, 0u);
    EXPECT_EQ(mediums[0].dw2, 0u);
}

TEST_F(VirtualCameraPinTest, MediumsComeInTheGivenOrder) {
    ComPtr<IPin> pin = PinOf(L"mediums = zero,analog,{11111111-2222-3333-4444-555555555555}:5:7\n");
    const auto mediums = Mediums(pin.Get());
    ASSERT_EQ(mediums.size(), 3u);
    EXPECT_TRUE(IsEqualGUID(mediums[0].clsMedium, GUID_NULL));
    EXPECT_EQ(mediums[0].dw1 | mediums[0].dw2, 0u);
    EXPECT_TRUE(IsEqualGUID(mediums[1].clsMedium, VirtualCamera::MEDIUMSETID_VirtualCameraAnalog));
    EXPECT_FALSE(IsEqualGUID(mediums[1].clsMedium, KSMEDIUMSETID_Standard));
    EXPECT_TRUE(IsEqualGUID(mediums[2].clsMedium, kCustomCategory));
    EXPECT_EQ(mediums[2].dw1, 5u);
    EXPECT_EQ(mediums[2].dw2, 7u);
}

TEST_F(VirtualCameraPinTest, CapabilitiesDescribeEveryModeInOrder) {
    ComPtr<IPin> pin = PinOf(
        L"mode = YUY2 videoinfo 640 480 333333 min_interval=166666 max_interval=2000000\n"
        L"mode = NV12 videoinfo2 320 -240 400000 min_output=0x0 max_output=-1x-2\n"
        L"mode = MJPG none 1280 720 0 min_interval=-5 max_interval=0\n");
    ComPtr<IAMStreamConfig> config;
    ASSERT_EQ(pin.As(&config), S_OK);
    int count = 0;
    int size = 0;
    ASSERT_EQ(config->GetNumberOfCapabilities(&count, &size), S_OK);
    ASSERT_EQ(count, 3);
    ASSERT_EQ(size, static_cast<int>(sizeof(VIDEO_STREAM_CONFIG_CAPS)));

    AM_MEDIA_TYPE* type = nullptr;
    VIDEO_STREAM_CONFIG_CAPS caps = {};
    ASSERT_EQ(config->GetStreamCaps(0, &type, reinterpret_cast<BYTE*>(&caps)), S_OK);
    EXPECT_TRUE(IsEqualGUID(type->majortype, MEDIATYPE_Video));
    EXPECT_TRUE(IsEqualGUID(type->subtype, MEDIASUBTYPE_YUY2));
    ASSERT_TRUE(IsEqualGUID(type->formattype, FORMAT_VideoInfo));
    ASSERT_GE(type->cbFormat, sizeof(VIDEOINFOHEADER));
    const auto* info = reinterpret_cast<const VIDEOINFOHEADER*>(type->pbFormat);
    EXPECT_EQ(info->bmiHeader.biWidth, 640);
    EXPECT_EQ(info->bmiHeader.biHeight, 480);
    EXPECT_EQ(info->bmiHeader.biSizeImage, 640u * 480u * 2u);
    EXPECT_EQ(info->AvgTimePerFrame, 333333);
    EXPECT_EQ(caps.MinFrameInterval, 166666);
    EXPECT_EQ(caps.MaxFrameInterval, 2000000);
    EXPECT_EQ(caps.MinOutputSize.cx, 640);
    EXPECT_EQ(caps.MaxOutputSize.cy, 480);
    DeleteMediaType(type);

    ASSERT_EQ(config->GetStreamCaps(1, &type, reinterpret_cast<BYTE*>(&caps)), S_OK);
    EXPECT_TRUE(IsEqualGUID(type->subtype, MEDIASUBTYPE_NV12));
    ASSERT_TRUE(IsEqualGUID(type->formattype, FORMAT_VideoInfo2));
    ASSERT_GE(type->cbFormat, sizeof(VIDEOINFOHEADER2));
    const auto* info2 = reinterpret_cast<const VIDEOINFOHEADER2*>(type->pbFormat);
    EXPECT_EQ(info2->bmiHeader.biWidth, 320);
    EXPECT_EQ(info2->bmiHeader.biHeight, -240);
    EXPECT_EQ(info2->AvgTimePerFrame, 400000);
    EXPECT_TRUE(IsEqualGUID(caps.guid, FORMAT_VideoInfo2));
    EXPECT_EQ(caps.MinFrameInterval, 400000);
    EXPECT_EQ(caps.MaxFrameInterval, 400000);
    EXPECT_EQ(caps.MinOutputSize.cx, 0);
    EXPECT_EQ(caps.MinOutputSize.cy, 0);
    EXPECT_EQ(caps.MaxOutputSize.cx, -1);
    EXPECT_EQ(caps.MaxOutputSize.cy, -2);
    DeleteMediaType(type);

    ASSERT_EQ(config->GetStreamCaps(2, &type, reinterpret_cast<BYTE*>(&caps)), S_OK);
    EXPECT_TRUE(IsEqualGUID(type->subtype, MEDIASUBTYPE_MJPG));
    EXPECT_TRUE(IsEqualGUID(type->formattype, FORMAT_None));
    EXPECT_EQ(type->cbFormat, 0u);
    EXPECT_EQ(type->pbFormat, nullptr);
    EXPECT_EQ(caps.MinFrameInterval, -5);
    EXPECT_EQ(caps.MaxFrameInterval, 0);
    DeleteMediaType(type);

    type = nullptr;
    EXPECT_EQ(config->GetStreamCaps(3, &type, reinterpret_cast<BYTE*>(&caps)), S_FALSE);
    EXPECT_EQ(type, nullptr);
}

TEST_F(VirtualCameraPinTest, SetFormatSelectsOneOfferedMode) {
    ComPtr<IPin> pin = PinOf(
        L"mode = YUY2 videoinfo 640 480 333333\n"
        L"mode = RGB24 videoinfo 320 240 666666\n"
        L"mode = I420 videoinfo 160 120 333333\n");
    ComPtr<IAMStreamConfig> config;
    ASSERT_EQ(pin.As(&config), S_OK);
    auto countTypes = [&] {
        ComPtr<IEnumMediaTypes> types;
        EXPECT_EQ(pin->EnumMediaTypes(&types), S_OK);
        int count = 0;
        AM_MEDIA_TYPE* type = nullptr;
        while (types && types->Next(1, &type, nullptr) == S_OK) {
            ++count;
            DeleteMediaType(type);
        }
        return count;
    };
    EXPECT_EQ(countTypes(), 3);

    AM_MEDIA_TYPE* current = nullptr;
    ASSERT_EQ(config->GetFormat(&current), S_OK);
    EXPECT_TRUE(IsEqualGUID(current->subtype, MEDIASUBTYPE_YUY2));
    DeleteMediaType(current);

    AM_MEDIA_TYPE* wanted = nullptr;
    VIDEO_STREAM_CONFIG_CAPS caps = {};
    ASSERT_EQ(config->GetStreamCaps(1, &wanted, reinterpret_cast<BYTE*>(&caps)), S_OK);
    EXPECT_EQ(config->SetFormat(wanted), S_OK);
    ASSERT_EQ(config->GetFormat(&current), S_OK);
    EXPECT_TRUE(VirtualCamera::MediaTypesEqual(*current, *wanted));
    DeleteMediaType(current);
    EXPECT_EQ(countTypes(), 1);
    EXPECT_EQ(pin->QueryAccept(wanted), S_OK);

    // A size the camera does not offer is refused.
    reinterpret_cast<VIDEOINFOHEADER*>(wanted->pbFormat)->bmiHeader.biWidth = 999;
    EXPECT_EQ(config->SetFormat(wanted), VFW_E_INVALIDMEDIATYPE);
    wanted->subtype = MEDIASUBTYPE_UYVY;
    EXPECT_EQ(config->SetFormat(wanted), VFW_E_INVALIDMEDIATYPE);
    DeleteMediaType(wanted);
}

}  // namespace
}  // namespace VirtualCameraTests
