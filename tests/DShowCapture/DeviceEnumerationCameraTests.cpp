// Device enumeration and format listing through the real device enumerator, with devices of
// the virtual camera. Every text of a device is unique to its test, so that devices of other
// tests running at the same time never match.

#include "DShowCapture/DeviceEnumeration.h"
#include "DShowCapture/PinSearch.h"
#include "DShowCapture/VideoCapture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cwchar>
#include <functional>
#include <string>
#include <vector>

#include "FakeCom.h"
#include "tools/VirtualCamera/VirtualCameraSetup.h"

using namespace DShow;

namespace {

std::string Narrow(const std::wstring& text) {
    return std::string(text.begin(), text.end());
}

class CameraDevices : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        std::wstring error;
        ASSERT_TRUE(VirtualCamera::RegisterServer(&error)) << Narrow(error);
    }

    void SetUp() override {
        m_comInitialized = SUCCEEDED(CoInitializeEx(nullptr, COINIT_MULTITHREADED));
        const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
        // Short names: the test's own name is too long for a device instance name.
        const std::string name = std::string(info->test_suite_name()) + "." + info->name();
        wchar_t prefix[32];
        swprintf(prefix, 32, L"ds%08zx", std::hash<std::string>()(name) & 0xFFFFFFFFu);
        m_prefix = prefix;
    }

    void TearDown() override {
        for (const std::wstring& instance : m_instances) {
            VirtualCamera::RemoveDevice(instance);
        }
        if (m_comInitialized) {
            CoUninitialize();
        }
    }

    // A text unique to this test.
    std::wstring Unique(const std::wstring& suffix) const { return m_prefix + L"-" + suffix; }

    // Registers one device; `settings` are the description's key lines.
    void AddDevice(const std::wstring& instance, const std::wstring& settings) {
        const std::wstring name = Unique(instance);
        std::wstring error;
        ASSERT_TRUE(VirtualCamera::AddDevices(L"[device " + name + L"]\n" + settings, &error))
            << Narrow(error);
        m_instances.push_back(name);
    }

    static std::vector<VideoDevice> WithId(const std::vector<VideoDevice>& devices,
                                           const std::wstring& id) {
        std::vector<VideoDevice> found;
        for (const VideoDevice& device : devices) {
            if (device.id == id) {
                found.push_back(device);
            }
        }
        return found;
    }

    static VideoDevice Device(const std::wstring& id) {
        return VideoDevice(std::wstring(L"ignored"), std::wstring(id));
    }

    // The name a virtual camera's filter reports outside a graph: its FriendlyName.
    static std::wstring FilterName(IBaseFilter* filter) {
        FILTER_INFO info = {};
        if (FAILED(filter->QueryFilterInfo(&info))) {
            return L"(no filter information)";
        }
        if (info.pGraph != nullptr) {
            info.pGraph->Release();
        }
        return info.achName;
    }

    // The capture pin of the device with this id.
    static ComPtr<IPin> CapturePinOf(const std::wstring& id) {
        ComPtr<IBaseFilter> filter;
        if (!GetDeviceFilter(Device(id), CLSID_VideoInputDeviceCategory, filter)) {
            return nullptr;
        }
        return GetPinByCategory(filter.Get(), PINDIR_OUTPUT, PIN_CATEGORY_CAPTURE);
    }

private:
    bool m_comInitialized = false;
    std::wstring m_prefix;
    std::vector<std::wstring> m_instances;
};

}  // namespace

TEST_F(CameraDevices, DescriptionNamesTheDeviceAndDevicePathIsItsId) {
    AddDevice(L"cam", L"FriendlyName = " + Unique(L"friendly") + L"\nDescription = " +
                          Unique(L"described") + L"\nDevicePath = " + Unique(L"path") +
                          L"\nmode = YUY2 videoinfo 640 480 333333\n");
    std::vector<VideoDevice> devices;
    ASSERT_TRUE(GetVideoDevices(devices));
    const std::vector<VideoDevice> mine = WithId(devices, Unique(L"path"));
    ASSERT_EQ(mine.size(), 1u);
    EXPECT_EQ(mine[0].name, Unique(L"described"));
}

TEST_F(CameraDevices, FriendlyNameServesWhenThereIsNoDescription) {
    AddDevice(L"cam", L"FriendlyName = " + Unique(L"friendly") + L"\nDevicePath = " +
                          Unique(L"path") + L"\nmode = YUY2 videoinfo 640 480 333333\n");
    std::vector<VideoDevice> devices;
    ASSERT_TRUE(GetVideoDevices(devices));
    const std::vector<VideoDevice> mine = WithId(devices, Unique(L"path"));
    ASSERT_EQ(mine.size(), 1u);
    EXPECT_EQ(mine[0].name, Unique(L"friendly"));
}

TEST_F(CameraDevices, NoDescriptionAndNumericFriendlyNameIsSkipped) {
    AddDevice(L"cam", L"FriendlyName:i4 = 42\nDevicePath = " + Unique(L"path") +
                          L"\nmode = YUY2 videoinfo 640 480 333333\n");
    FakeCom::LogCapture log;
    std::vector<VideoDevice> devices;
    ASSERT_TRUE(GetVideoDevices(devices));
    EXPECT_TRUE(WithId(devices, Unique(L"path")).empty());
    // Skipped without a message of its own.
    for (const std::string& message : log.Messages()) {
        EXPECT_EQ(message.find("BindToObject"), std::string::npos) << message;
    }
}

TEST_F(CameraDevices, WithoutDevicePathTheNameIsTheIdAndFindsTheDevice) {
    AddDevice(L"described", L"Description = " + Unique(L"described") +
                                L"\nmode = YUY2 videoinfo 640 480 333333\n");
    AddDevice(L"friendly", L"FriendlyName = " + Unique(L"friendly") +
                               L"\nmode = MJPG videoinfo 320 240 333333\n");
    std::vector<VideoDevice> devices;
    ASSERT_TRUE(GetVideoDevices(devices));
    const std::vector<VideoDevice> described = WithId(devices, Unique(L"described"));
    ASSERT_EQ(described.size(), 1u);
    EXPECT_EQ(described[0].name, described[0].id);
    ASSERT_EQ(WithId(devices, Unique(L"friendly")).size(), 1u);

    ComPtr<IBaseFilter> filter;
    ASSERT_TRUE(GetDeviceFilter(described[0], CLSID_VideoInputDeviceCategory, filter));
    std::vector<VideoFormat> formats;
    ASSERT_TRUE(VideoCapture::GetFilterFormats(filter.Get(), formats));
    ASSERT_EQ(formats.size(), 1u);
    EXPECT_EQ(formats[0].format, PIXEL_FORMAT_YUY2);

    filter.Reset();
    ASSERT_TRUE(
        GetDeviceFilter(Device(Unique(L"friendly")), CLSID_VideoInputDeviceCategory, filter));
    formats.clear();
    ASSERT_TRUE(VideoCapture::GetFilterFormats(filter.Get(), formats));
    ASSERT_EQ(formats.size(), 1u);
    EXPECT_EQ(formats[0].format, PIXEL_FORMAT_MJPEG);
}

TEST_F(CameraDevices, DeviceWhoseFilterWillNotLoadIsLeftOutSilently) {
    AddDevice(L"broken", L"FriendlyName = " + Unique(L"broken") + L"\nDevicePath = " +
                             Unique(L"path") + L"\nfault = create\n");
    FakeCom::LogCapture log;
    std::vector<VideoDevice> devices;
    ASSERT_TRUE(GetVideoDevices(devices));
    EXPECT_TRUE(WithId(devices, Unique(L"path")).empty());
    for (const std::string& message : log.Messages()) {
        EXPECT_EQ(message.find("BindToObject"), std::string::npos) << message;
    }
}

TEST_F(CameraDevices, AnalogListBindsFirstAndLogsAFilterThatWillNotLoad) {
    AddDevice(L"broken", L"FriendlyName = " + Unique(L"broken") + L"\nDevicePath = " +
                             Unique(L"broken-path") + L"\nmediums = analog\nfault = create\n");
    FakeCom::LogCapture log;
    std::vector<VideoDevice> devices;
    ASSERT_TRUE(GetAnalogDevices(devices));
    EXPECT_TRUE(WithId(devices, Unique(L"broken-path")).empty());
    const std::vector<std::string> messages = log.Messages();
    const bool logged =
        std::any_of(messages.begin(), messages.end(), [](const std::string& message) {
            return message.rfind("Failed to BindToObject(IBaseFilter,0x", 0) == 0;
        });
    EXPECT_TRUE(logged);
}

TEST_F(CameraDevices, AnalogDevicesHaveAMediumOfTheirOwn) {
    AddDevice(L"digital", L"FriendlyName = " + Unique(L"digital") + L"\nDevicePath = " +
                              Unique(L"digital-path") + L"\nmediums = standard\n");
    AddDevice(L"analog", L"FriendlyName = " + Unique(L"analog") + L"\nDevicePath = " +
                             Unique(L"analog-path") + L"\nmediums = zero,analog\n");
    std::vector<VideoDevice> devices;
    ASSERT_TRUE(GetAnalogDevices(devices));
    EXPECT_TRUE(WithId(devices, Unique(L"digital-path")).empty());
    const std::vector<VideoDevice> analog = WithId(devices, Unique(L"analog-path"));
    ASSERT_EQ(analog.size(), 1u);
    EXPECT_EQ(analog[0].name, Unique(L"analog"));

    // Both are video devices all the same.
    std::vector<VideoDevice> all;
    ASSERT_TRUE(GetVideoDevices(all));
    EXPECT_EQ(WithId(all, Unique(L"digital-path")).size(), 1u);
    EXPECT_EQ(WithId(all, Unique(L"analog-path")).size(), 1u);
}

TEST_F(CameraDevices, FilterByMediumFindsTheDeviceOnThatMedium) {
    const GUID mediumSet = {
        0x6D5A0C1E, 0x2B3C, 0x4D5E, {0x8F, 0x90, 0xA1, 0xB2, 0xC3, 0xD4, 0xE5, 0xF6}};
    AddDevice(L"tuner", L"FriendlyName = " + Unique(L"tuner") +
                            L"\nmediums = standard,{6D5A0C1E-2B3C-4D5E-8F90-A1B2C3D4E5F6}:7:0\n"
                            L"mode = UYVY videoinfo 720 576 400000\n");
    REGPINMEDIUM medium = {};
    medium.clsMedium = mediumSet;
    medium.dw1 = 7;
    ComPtr<IBaseFilter> filter;
    ASSERT_TRUE(GetFilterByMedium(CLSID_VideoInputDeviceCategory, medium, filter));
    std::vector<VideoFormat> formats;
    ASSERT_TRUE(VideoCapture::GetFilterFormats(filter.Get(), formats));
    ASSERT_EQ(formats.size(), 1u);
    EXPECT_EQ(formats[0].ToString(), "UYUY,720*576,25.000");

    medium.dw1 = 8;
    filter.Reset();
    EXPECT_FALSE(GetFilterByMedium(CLSID_VideoInputDeviceCategory, medium, filter));
}

TEST_F(CameraDevices, EqualIdsAreBothListed) {
    const std::wstring path = L"DevicePath = " + Unique(L"shared-path") + L"\n";
    AddDevice(L"one", L"FriendlyName = " + Unique(L"one") + L"\n" + path +
                          L"mode = YUY2 videoinfo 640 480 333333\n");
    AddDevice(L"two", L"FriendlyName = " + Unique(L"two") + L"\n" + path +
                          L"mode = MJPG videoinfo 640 480 333333\n");
    std::vector<VideoDevice> devices;
    ASSERT_TRUE(GetVideoDevices(devices));
    EXPECT_EQ(WithId(devices, Unique(L"shared-path")).size(), 2u);
}

// The enumerator lists devices by instance name, compared without case, so the suffixes "a-..."
// and "b-..." put the devices of these two tests in a known order.

TEST_F(CameraDevices, FirstOfTwoBindableDevicesWithOneIdIsFound) {
    const std::wstring path = L"DevicePath = " + Unique(L"shared-path") + L"\n";
    AddDevice(L"b-second", L"FriendlyName = " + Unique(L"second") + L"\n" + path +
                               L"mode = YUY2 videoinfo 640 480 333333\n");
    AddDevice(L"a-first", L"FriendlyName = " + Unique(L"first") + L"\n" + path +
                              L"mode = YUY2 videoinfo 640 480 333333\n");
    ComPtr<IBaseFilter> filter;
    ASSERT_TRUE(
        GetDeviceFilter(Device(Unique(L"shared-path")), CLSID_VideoInputDeviceCategory, filter));
    EXPECT_EQ(FilterName(filter.Get()), Unique(L"first"));
}

TEST_F(CameraDevices, DeviceThatWillNotBindLeavesTheNextWithTheSameIdItsChance) {
    const std::wstring path = L"DevicePath = " + Unique(L"shared-path") + L"\n";
    AddDevice(L"a-broken",
              L"FriendlyName = " + Unique(L"broken") + L"\n" + path + L"fault = create\n");
    AddDevice(L"b-working", L"FriendlyName = " + Unique(L"working") + L"\n" + path +
                                L"mode = I420 videoinfo 320 240 333333\n");
    ComPtr<IBaseFilter> filter;
    ASSERT_TRUE(
        GetDeviceFilter(Device(Unique(L"shared-path")), CLSID_VideoInputDeviceCategory, filter));
    EXPECT_EQ(FilterName(filter.Get()), Unique(L"working"));
}

TEST_F(CameraDevices, UnknownDeviceGivesFalseWithoutMessage) {
    FakeCom::LogCapture log;
    std::vector<VideoFormat> formats(1);
    EXPECT_FALSE(VideoCapture::GetDeviceFormats(Device(Unique(L"nowhere")), formats));
    EXPECT_EQ(formats.size(), 1u);
    for (const std::string& message : log.Messages()) {
        EXPECT_EQ(message.find("GetPinByCategory"), std::string::npos) << message;
    }
}

TEST_F(CameraDevices, GetDeviceFormatsListsSortsAndComputesRates) {
    AddDevice(L"cam",
              L"FriendlyName = " + Unique(L"cam") + L"\nDevicePath = " + Unique(L"path") +
                  L"\nmode = YUY2 videoinfo 1280 720 333333\n"
                  L"mode = YUY2 videoinfo 640 480 0 min_interval=333333 max_interval=2000000\n"
                  L"mode = MJPG videoinfo2 1280 720 333333\n"
                  L"mode = YV12 videoinfo 640 480 333333\n"
                  L"mode = ARGB32 videoinfo 320 240 400000\n"
                  L"mode = RGB24 videoinfo 640 -480 333333 min_output=160x120 max_output=0x0\n"
                  L"mode = YUY2 videoinfo 320 240 333333 max_interval=-2000000\n"
                  L"mode = YUY2 videoinfo 320 240 333333 max_interval=-2000000\n");
    std::vector<VideoFormat> formats;
    ASSERT_TRUE(VideoCapture::GetDeviceFormats(Device(Unique(L"path")), formats));
    std::vector<std::string> texts;
    for (const VideoFormat& format : formats) {
        texts.push_back(format.ToString());
    }
    // Listed in the order 1280, 640, ARGB32, RGB24, 320, 320 (MJPG/VideoInfo2 and YV12 are
    // skipped). Insertion: 640 and then the first 320 are less than the front record and jump
    // to the front; the second 320 is not less than the front 320 nor than RGB24 before it, so
    // it stays last. Both duplicates are listed.
    const std::vector<std::string> expected = {"YUY2,320*240,30.000",   "YUY2,640*480,0.000",
                                               "YUY2,1280*720,30.000",  ",320*240,25.000",
                                               "RGB24,640*-480,30.000", "YUY2,320*240,30.000"};
    EXPECT_EQ(texts, expected);
    ASSERT_EQ(formats.size(), 6u);
    EXPECT_EQ(static_cast<double>(formats[2].rate), 30.000030517578125);
    EXPECT_EQ(formats[1].rate, 0.0f);
    EXPECT_EQ(formats[1].minRate, 5.0f);
    EXPECT_EQ(static_cast<double>(formats[1].maxRate), 30.000030517578125);
    EXPECT_EQ(formats[0].minRate, -5.0f);
    EXPECT_EQ(formats[5].minRate, -5.0f);
    EXPECT_EQ(formats[3].format, 7);
    EXPECT_EQ(formats[4].size.cy, -480);
    EXPECT_EQ(formats[4].minSize.cy, -480);
    EXPECT_EQ(formats[4].maxSize.cy, -480);
}

TEST_F(CameraDevices, GetDeviceFormatsWithCategoryLooksInThatCategory) {
    AddDevice(L"cam", L"FriendlyName = " + Unique(L"cam") + L"\nDevicePath = " + Unique(L"path") +
                          L"\nmode = NV12 videoinfo 640 480 333333\n");
    std::vector<VideoFormat> formats;
    ASSERT_TRUE(VideoCapture::GetDeviceFormats(Device(Unique(L"path")),
                                               CLSID_VideoInputDeviceCategory, formats));
    ASSERT_EQ(formats.size(), 1u);
    EXPECT_EQ(formats[0].format, PIXEL_FORMAT_NV12);
    formats.clear();
    EXPECT_FALSE(VideoCapture::GetDeviceFormats(Device(Unique(L"path")),
                                                CLSID_AudioInputDeviceCategory, formats));
}

TEST_F(CameraDevices, GetDeviceFormatsFailurePaths) {
    AddDevice(L"nocategory", L"FriendlyName = x\nDevicePath = " + Unique(L"nocategory") +
                                 L"\ncategory = short\nmode = YUY2 videoinfo 640 480 333333\n");
    AddDevice(L"noconfig", L"FriendlyName = x\nDevicePath = " + Unique(L"noconfig") +
                               L"\nstream_config = off\n");
    AddDevice(L"nocount", L"FriendlyName = x\nDevicePath = " + Unique(L"nocount") +
                              L"\nfault = caps_count\nmode = YUY2 videoinfo 640 480 333333\n");
    AddDevice(L"nocaps", L"FriendlyName = x\nDevicePath = " + Unique(L"nocaps") +
                             L"\nfault = caps_at:1\nmode = YUY2 videoinfo 640 480 333333\n"
                             L"mode = YUY2 videoinfo 320 240 333333\n");
    FakeCom::LogCapture log;
    std::vector<VideoFormat> formats;
    EXPECT_FALSE(VideoCapture::GetDeviceFormats(Device(Unique(L"nocategory")), formats));
    EXPECT_FALSE(VideoCapture::GetDeviceFormats(Device(Unique(L"noconfig")), formats));
    EXPECT_FALSE(VideoCapture::GetDeviceFormats(Device(Unique(L"nocount")), formats));
    EXPECT_TRUE(formats.empty());
    EXPECT_FALSE(VideoCapture::GetDeviceFormats(Device(Unique(L"nocaps")), formats));
    ASSERT_EQ(formats.size(), 1u);
    EXPECT_EQ(formats[0].size.cx, 640);

    ASSERT_EQ(log.Messages().size(), 4u);
    EXPECT_EQ(log.Messages()[0], "Failed to GetPinByCategory");
    EXPECT_EQ(log.Messages()[1], "Failed to QueryInterface(IAMStreamConfig,0x80004002)");
    EXPECT_EQ(log.Messages()[2].rfind("Failed to GetNumberOfCapabilities(0x", 0), 0u);
    EXPECT_EQ(log.Messages()[3].rfind("Failed to GetStreamCaps(0x", 0), 0u);
}

// Drivers that lie about the sizes of what they hand out.

TEST_F(CameraDevices, ModeWhoseFormatBlockIsShorterThanItsHeaderIsNotListed) {
    AddDevice(L"cam", L"FriendlyName = x\nDevicePath = " + Unique(L"path") +
                          L"\nfault = short_format:0\n"
                          L"mode = YUY2 videoinfo 640 480 333333\n"
                          L"mode = YUY2 videoinfo 320 240 333333\n");
    std::vector<VideoFormat> formats;
    ASSERT_TRUE(VideoCapture::GetDeviceFormats(Device(Unique(L"path")), formats));
    ASSERT_EQ(formats.size(), 1u);
    EXPECT_EQ(formats[0].ToString(), "YUY2,320*240,30.000");
}

TEST_F(CameraDevices, Rgb32MediaTypeWithAShortHeaderIsPassedOver) {
    AddDevice(L"cam", L"FriendlyName = x\nDevicePath = " + Unique(L"path") +
                          L"\nfault = short_format:0\n"
                          L"mode = RGB32 videoinfo 640 480 333333\n"
                          L"mode = RGB32 videoinfo 320 240 333333\n");
    const ComPtr<IPin> pin = CapturePinOf(Unique(L"path"));
    ASSERT_TRUE(pin);
    ScopedMediaType mediaType;
    ASSERT_TRUE(GetPinMediaTypeRGB32(pin.Get(), mediaType));
    ASSERT_EQ(mediaType->cbFormat, sizeof(VIDEOINFOHEADER));
    EXPECT_EQ(reinterpret_cast<const VIDEOINFOHEADER*>(mediaType->pbFormat)->bmiHeader.biWidth,
              320);
}

TEST_F(CameraDevices, CapabilitySizeStatedTooSmallListsModesByTheirMediaTypesAlone) {
    // The driver states 8 bytes but writes a whole capability: its intervals and output sizes
    // lie beyond what it stated, and are not taken.
    AddDevice(L"cam", L"FriendlyName = x\nDevicePath = " + Unique(L"path") +
                          L"\nfault = caps_size:8\n"
                          L"mode = YUY2 videoinfo 640 480 400000 min_interval=333333 "
                          L"max_interval=2000000 min_output=160x120 max_output=1280x960\n");
    std::vector<VideoFormat> formats;
    ASSERT_TRUE(VideoCapture::GetDeviceFormats(Device(Unique(L"path")), formats));
    ASSERT_EQ(formats.size(), 1u);
    EXPECT_EQ(formats[0].rate, 25.0f);
    EXPECT_EQ(formats[0].minRate, 25.0f);
    EXPECT_EQ(formats[0].maxRate, 25.0f);
    EXPECT_EQ(formats[0].minSize.cx, 640);
    EXPECT_EQ(formats[0].minSize.cy, 480);
    EXPECT_EQ(formats[0].maxSize.cx, 640);
    EXPECT_EQ(formats[0].maxSize.cy, 480);
}

TEST_F(CameraDevices, VideoStreamPinIsFoundWhenTheDriverStatesNoRoomForCapabilities) {
    // A driver that states a size of 0 still writes its capability: the block it is given must
    // hold one all the same.
    AddDevice(L"cam", L"FriendlyName = x\nDevicePath = " + Unique(L"path") +
                          L"\nfault = caps_size:0\nmode = YUY2 videoinfo 640 480 333333\n");
    ComPtr<IBaseFilter> filter;
    ASSERT_TRUE(GetDeviceFilter(Device(Unique(L"path")), CLSID_VideoInputDeviceCategory, filter));
    const ComPtr<IPin> pin = GetVideoStreamPin(filter.Get(), PINDIR_OUTPUT, PIN_CATEGORY_CAPTURE);
    EXPECT_TRUE(pin);
}

TEST_F(CameraDevices, MediumListWhoseSizeFallsShortOfItsCountIsNoAnswer) {
    // The analog medium is there in memory, second in the list, but outside the list's Size.
    AddDevice(L"tuner", L"FriendlyName = x\nDevicePath = " + Unique(L"path") +
                            L"\nmediums = standard,analog\nfault = short_mediums\n");
    std::vector<VideoDevice> devices;
    ASSERT_TRUE(GetAnalogDevices(devices));
    EXPECT_TRUE(WithId(devices, Unique(L"path")).empty());

    ComPtr<IBaseFilter> filter;
    ASSERT_TRUE(GetDeviceFilter(Device(Unique(L"path")), CLSID_VideoInputDeviceCategory, filter));
    const ComPtr<IPin> pin = GetFirstPin(filter.Get());
    ASSERT_TRUE(pin);
    REGPINMEDIUM medium = {};
    medium.dw1 = 7;
    EXPECT_FALSE(GetPinMedium(pin.Get(), medium));
    EXPECT_EQ(medium.dw1, 7u) << "left as it was, as after a failed query";
}
