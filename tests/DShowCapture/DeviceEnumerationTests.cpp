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

namespace {

// The platform's device enumerator never makes IEnumMoniker::Next fail with an error, so this
// process registers a device enumerator of its own for CLSID_SystemDeviceEnum whose monikers
// do. The registration lives in this process only, for the length of one test.
class FailingMonikers final : public IEnumMoniker {
public:
    FAKE_COM_REFCOUNT
    int nextCalls = 0;

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override {
        if (IsEqualIID(iid, IID_IUnknown) || IsEqualIID(iid, IID_IEnumMoniker)) {
            *object = static_cast<IEnumMoniker*>(this);
            AddRef();
            return S_OK;
        }
        *object = nullptr;
        return E_NOINTERFACE;
    }
    HRESULT STDMETHODCALLTYPE Next(ULONG, IMoniker** monikers, ULONG*) override {
        ++nextCalls;
        *monikers = nullptr;
        return E_UNEXPECTED;
    }
    HRESULT STDMETHODCALLTYPE Skip(ULONG) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE Reset() override { return S_OK; }
    HRESULT STDMETHODCALLTYPE Clone(IEnumMoniker**) override { return E_NOTIMPL; }
};

class DeviceEnumeratorWithFailingMonikers final : public ICreateDevEnum, public IClassFactory {
public:
    FAKE_COM_REFCOUNT
    ComPtr<FailingMonikers> monikers = FakeCom::Own(new FailingMonikers());

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override {
        if (IsEqualIID(iid, IID_IUnknown) || IsEqualIID(iid, IID_ICreateDevEnum)) {
            *object = static_cast<ICreateDevEnum*>(this);
        } else if (IsEqualIID(iid, IID_IClassFactory)) {
            *object = static_cast<IClassFactory*>(this);
        } else {
            *object = nullptr;
            return E_NOINTERFACE;
        }
        AddRef();
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE CreateClassEnumerator(REFCLSID, IEnumMoniker** result,
                                                    DWORD) override {
        *result = monikers.Get();
        monikers->AddRef();
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* outer, REFIID iid, void** object) override {
        if (outer != nullptr) {
            return CLASS_E_NOAGGREGATION;
        }
        return QueryInterface(iid, object);
    }
    HRESULT STDMETHODCALLTYPE LockServer(BOOL) override { return S_OK; }
};

class FailingMonikerEnumeration : public ComApartment {
protected:
    void SetUp() override {
        ComApartment::SetUp();
        ASSERT_EQ(CoRegisterClassObject(CLSID_SystemDeviceEnum,
                                        static_cast<IClassFactory*>(m_enumerator.Get()),
                                        CLSCTX_INPROC_SERVER, REGCLS_MULTIPLEUSE, &m_cookie),
                  S_OK);
    }
    void TearDown() override {
        CoRevokeClassObject(m_cookie);
        ComApartment::TearDown();
    }
    int NextCalls() const { return m_enumerator->monikers->nextCalls; }

private:
    ComPtr<DeviceEnumeratorWithFailingMonikers> m_enumerator =
        FakeCom::Own(new DeviceEnumeratorWithFailingMonikers());
    DWORD m_cookie = 0;
};

std::vector<VideoDevice> OneStaleDevice() {
    return {VideoDevice(std::wstring(L"stale"), std::wstring(L"stale-id"))};
}

}  // namespace

TEST_F(FailingMonikerEnumeration, VideoDeviceListEndsAtTheErrorAsAtTheEnd) {
    std::vector<VideoDevice> devices = OneStaleDevice();
    FakeCom::LogCapture log;
    EXPECT_TRUE(GetVideoDevices(devices));
    EXPECT_EQ(NextCalls(), 1);
    EXPECT_TRUE(devices.empty());
    EXPECT_TRUE(log.Messages().empty());
}

TEST_F(FailingMonikerEnumeration, AnalogDeviceListEndsAtTheErrorAsAtTheEnd) {
    std::vector<VideoDevice> devices = OneStaleDevice();
    FakeCom::LogCapture log;
    EXPECT_TRUE(GetAnalogDevices(devices));
    EXPECT_EQ(NextCalls(), 1);
    EXPECT_TRUE(devices.empty());
    EXPECT_TRUE(log.Messages().empty());
}

TEST_F(FailingMonikerEnumeration, FilterLookupEndsAtTheErrorWithoutAFilter) {
    FakeCom::LogCapture log;
    ComPtr<IBaseFilter> filter;
    EXPECT_FALSE(GetDeviceFilter(VideoDevice(std::wstring(L"n"), std::wstring(L"i")),
                                 CLSID_VideoInputDeviceCategory, filter));
    EXPECT_EQ(NextCalls(), 1);
    EXPECT_FALSE(filter);
    EXPECT_TRUE(log.Messages().empty());
}
