#include "DShowCapture/DeviceEnumeration.h"

#include <gtest/gtest.h>

#include <thread>

#include "DShowCapture/VideoCapture.h"
#include "FakeCom.h"

using namespace DShow;
using FakeCom::FakePropertyBag;

namespace {

// A category that no device is registered in.
const GUID kEmptyCategory = {
    0x5EB0C0DE, 0x7A11, 0x4E55, {0x80, 0x1D, 0x3C, 0x0F, 0xFE, 0xE1, 0x55, 0x01}};

class ComApartment : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(SUCCEEDED(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED)));
    }
    void TearDown() override { CoUninitialize(); }
};

ComPtr<FakePropertyBag> NewBag() {
    return FakeCom::Own(new FakePropertyBag());
}

}  // namespace

TEST(VideoDevice, DefaultIsEmpty) {
    VideoDevice device;
    EXPECT_TRUE(device.IsEmpty());
    EXPECT_TRUE(device.name.empty());
    EXPECT_TRUE(device.GetId().empty());
}

TEST(VideoDevice, MoveConstructionEmptiesTheSources) {
    std::wstring name = L"Camera";
    std::wstring id = L"\\\\?\\usb#vid_1234";
    VideoDevice device(std::move(name), std::move(id));
    EXPECT_EQ(device.name, L"Camera");
    EXPECT_EQ(device.GetId(), L"\\\\?\\usb#vid_1234");
    EXPECT_TRUE(name.empty());
    EXPECT_TRUE(id.empty());
    EXPECT_FALSE(device.IsEmpty());
}

TEST(VideoDevice, EqualityLooksAtIdAloneCaseSensitively) {
    const VideoDevice a(std::wstring(L"One"), std::wstring(L"path"));
    const VideoDevice b(std::wstring(L"Two"), std::wstring(L"path"));
    const VideoDevice c(std::wstring(L"One"), std::wstring(L"PATH"));
    const VideoDevice d(std::wstring(L"One"), std::wstring(L"path2"));
    EXPECT_TRUE(a == b);
    EXPECT_FALSE(a == c);
    EXPECT_FALSE(a == d);
    EXPECT_TRUE(a != d);

    VideoDevice copy(a);
    EXPECT_EQ(copy.name, L"One");
    copy = c;
    EXPECT_EQ(copy.GetId(), L"PATH");
    EXPECT_EQ(copy.name, L"One");
}

TEST(ReadDeviceNameAndId, DescriptionWinsOverFriendlyName) {
    auto bag = NewBag();
    bag->SetString(L"FriendlyName", L"Friendly");
    bag->SetString(L"Description", L"Described");
    bag->SetString(L"DevicePath", L"\\\\?\\path");
    VideoDevice device;
    ASSERT_TRUE(ReadDeviceNameAndId(bag.Get(), device));
    EXPECT_EQ(device.name, L"Described");
    EXPECT_EQ(device.id, L"\\\\?\\path");
    EXPECT_EQ(bag->reads, (std::vector<std::wstring>{L"Description", L"DevicePath"}));
}

TEST(ReadDeviceNameAndId, FriendlyNameWhenDescriptionFails) {
    auto bag = NewBag();
    bag->SetString(L"FriendlyName", L"Friendly");
    VideoDevice device;
    ASSERT_TRUE(ReadDeviceNameAndId(bag.Get(), device));
    EXPECT_EQ(device.name, L"Friendly");
}

TEST(ReadDeviceNameAndId, FailedDescriptionAndNonStringFriendlyNameIsSkipped) {
    auto bag = NewBag();
    bag->SetFailure(L"Description", E_FAIL);
    bag->SetNumber(L"FriendlyName", 42);
    bag->SetString(L"DevicePath", L"\\\\?\\path");
    VideoDevice device;
    EXPECT_FALSE(ReadDeviceNameAndId(bag.Get(), device));
}

TEST(ReadDeviceNameAndId, NonStringDescriptionIsNotReplacedByFriendlyName) {
    // The Description read succeeded, so FriendlyName is not asked, and the type fails.
    auto bag = NewBag();
    bag->SetNumber(L"Description", 1);
    bag->SetString(L"FriendlyName", L"Friendly");
    VideoDevice device;
    EXPECT_FALSE(ReadDeviceNameAndId(bag.Get(), device));
    EXPECT_EQ(bag->reads, std::vector<std::wstring>{L"Description"});
}

TEST(ReadDeviceNameAndId, WithoutDevicePathIdIsTheName) {
    auto bag = NewBag();
    bag->SetString(L"FriendlyName", L"Friendly");
    VideoDevice device;
    ASSERT_TRUE(ReadDeviceNameAndId(bag.Get(), device));
    EXPECT_EQ(device.id, L"Friendly");

    auto numberPath = NewBag();
    numberPath->SetString(L"Description", L"Described");
    numberPath->SetNumber(L"DevicePath", 5);
    ASSERT_TRUE(ReadDeviceNameAndId(numberPath.Get(), device));
    EXPECT_EQ(device.id, L"Described");
}

TEST(ReadDeviceLookupText, FallsBackLikeTheDeviceLists) {
    auto full = NewBag();
    full->SetString(L"Description", L"Described");
    full->SetString(L"FriendlyName", L"Friendly");
    full->SetString(L"DevicePath", L"\\\\?\\path");
    std::wstring text;
    ASSERT_TRUE(ReadDeviceLookupText(full.Get(), text));
    EXPECT_EQ(text, L"\\\\?\\path");
    EXPECT_EQ(full->reads, std::vector<std::wstring>{L"DevicePath"});

    auto noPath = NewBag();
    noPath->SetString(L"Description", L"Described");
    noPath->SetString(L"FriendlyName", L"Friendly");
    ASSERT_TRUE(ReadDeviceLookupText(noPath.Get(), text));
    EXPECT_EQ(text, L"Described");

    auto friendlyOnly = NewBag();
    friendlyOnly->SetNumber(L"DevicePath", 3);
    friendlyOnly->SetString(L"FriendlyName", L"Friendly");
    ASSERT_TRUE(ReadDeviceLookupText(friendlyOnly.Get(), text));
    EXPECT_EQ(text, L"Friendly");

    auto nothing = NewBag();
    nothing->SetNumber(L"FriendlyName", 3);
    text = L"unchanged";
    EXPECT_FALSE(ReadDeviceLookupText(nothing.Get(), text));
    EXPECT_EQ(text, L"unchanged");
}

TEST(ReadDeviceLookupText, AnIdFromTheListFindsItsDeviceAgain) {
    auto bag = NewBag();
    bag->SetString(L"FriendlyName", L"Friendly");
    VideoDevice device;
    ASSERT_TRUE(ReadDeviceNameAndId(bag.Get(), device));
    std::wstring text;
    ASSERT_TRUE(ReadDeviceLookupText(bag.Get(), text));
    EXPECT_EQ(text, device.id);
}

TEST_F(ComApartment, EmptyCategoryFailsWithValueOneAndLeavesTheListAlone) {
    std::vector<VideoDevice> devices(1, VideoDevice(std::wstring(L"n"), std::wstring(L"i")));
    FakeCom::LogCapture log;
    EXPECT_FALSE(GetDevicesInCategory(kEmptyCategory, devices));
    ASSERT_EQ(devices.size(), 1u);
    EXPECT_EQ(devices[0].id, L"i");
    EXPECT_EQ(log.Messages(),
              std::vector<std::string>{"Failed to CreateClassEnumerator(IEnumMoniker,0x1)"});

    EXPECT_FALSE(GetAnalogDevicesInCategory(kEmptyCategory, devices));
    EXPECT_EQ(devices.size(), 1u);
}

TEST_F(ComApartment, FilterLookupsInAnEmptyCategoryFail) {
    FakeCom::LogCapture log;
    ComPtr<IBaseFilter> filter;
    EXPECT_FALSE(GetDeviceFilter(VideoDevice(std::wstring(L"n"), std::wstring(L"i")),
                                 kEmptyCategory, filter));
    EXPECT_FALSE(GetFilterByMedium(kEmptyCategory, REGPINMEDIUM{}, filter));
    EXPECT_FALSE(filter);
    std::vector<VideoFormat> formats;
    EXPECT_FALSE(VideoCapture::GetDeviceFormats(VideoDevice(std::wstring(L"n"), std::wstring(L"i")),
                                                kEmptyCategory, formats));
    EXPECT_EQ(log.Messages().size(), 3u);
    for (const std::string& message : log.Messages()) {
        EXPECT_EQ(message, "Failed to CreateClassEnumerator(IEnumMoniker,0x1)");
    }
}

TEST(CreateComInstance, EntersTheMultithreadedApartmentOnAThreadWithoutCom) {
    HRESULT created = E_FAIL;
    HRESULT laterInit = E_FAIL;
    std::thread worker([&] {
        ComPtr<ICreateDevEnum> deviceEnum;
        created = CreateComInstance(CLSID_SystemDeviceEnum, CLSCTX_INPROC_SERVER,
                                    IID_ICreateDevEnum, deviceEnum);
        deviceEnum.Reset();
        // The thread is in the multithreaded apartment now, so a single-threaded one is refused.
        laterInit = CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
        if (SUCCEEDED(laterInit)) {
            CoUninitialize();
        }
        CoUninitialize();
    });
    worker.join();
    EXPECT_EQ(created, S_OK);
    EXPECT_EQ(laterInit, RPC_E_CHANGED_MODE);
}

TEST(CreateComInstance, PassesOtherFailuresThrough) {
    ASSERT_TRUE(SUCCEEDED(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED)));
    ComPtr<IUnknown> object;
    EXPECT_EQ(CreateComInstance(kEmptyCategory, CLSCTX_INPROC_SERVER, IID_IUnknown, object),
              REGDB_E_CLASSNOTREG);
    CoUninitialize();
}

// Not tested: an IEnumMoniker::Next that fails with an error rather than S_FALSE. The loops end
// on any result but S_OK and report the enumeration as complete, but the platform's enumerator
// gives no way to make Next fail, and it is not ours to stand in for.
