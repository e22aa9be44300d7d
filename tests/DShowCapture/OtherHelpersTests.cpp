#include "DShowCapture/FilterRegistration.h"
#include "DShowCapture/PropertyPages.h"
#include "DShowCapture/ScreenCapture.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "FakeCom.h"

using namespace DShow;

namespace {

const CLSID kFilterClass = {
    0x0BADF00D, 0x1111, 0x2222, {0x33, 0x33, 0x44, 0x44, 0x55, 0x55, 0x66, 0x66}};

// Records the registration calls in order and answers each kind with a scripted result.
class RecordingMapper : public IFilterMapper {
public:
    std::vector<std::wstring> calls;
    HRESULT unregisterResult = S_OK;
    HRESULT registerFilterResult = S_OK;
    std::vector<HRESULT> registerPinResults;  // per call, S_OK when out of entries
    std::vector<HRESULT> registerPinTypeResults;

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void** object) override {
        *object = nullptr;
        return E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return 2; }
    ULONG STDMETHODCALLTYPE Release() override { return 1; }

    HRESULT STDMETHODCALLTYPE RegisterFilter(CLSID, LPCWSTR name, DWORD merit) override {
        calls.push_back(L"filter " + std::wstring(name) + L" " + std::to_wstring(merit));
        return registerFilterResult;
    }
    HRESULT STDMETHODCALLTYPE RegisterFilterInstance(CLSID, LPCWSTR, CLSID*) override {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE RegisterPin(CLSID, LPCWSTR name, BOOL, BOOL output, BOOL, BOOL, CLSID,
                                          LPCWSTR) override {
        calls.push_back(L"pin " + std::wstring(name) + (output ? L" out" : L" in"));
        return Next(registerPinResults, m_pinCalls);
    }
    HRESULT STDMETHODCALLTYPE RegisterPinType(CLSID, LPCWSTR name, CLSID major, CLSID) override {
        calls.push_back(L"type " + std::wstring(name) +
                        (IsEqualGUID(major, MEDIATYPE_Video) ? L" video" : L" other"));
        return Next(registerPinTypeResults, m_typeCalls);
    }
    HRESULT STDMETHODCALLTYPE UnregisterFilter(CLSID) override {
        calls.push_back(L"unregister");
        return unregisterResult;
    }
    HRESULT STDMETHODCALLTYPE UnregisterFilterInstance(CLSID) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE UnregisterPin(CLSID, LPCWSTR) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE EnumMatchingFilters(IEnumRegFilters**, DWORD, BOOL, CLSID, CLSID,
                                                  BOOL, BOOL, CLSID, CLSID) override {
        return E_NOTIMPL;
    }

private:
    static HRESULT Next(const std::vector<HRESULT>& results, size_t& index) {
        const HRESULT hr = index < results.size() ? results[index] : S_OK;
        ++index;
        return hr;
    }
    size_t m_pinCalls = 0;
    size_t m_typeCalls = 0;
};

// A filter with an input pin without media types and an output pin with two.
class TestFilterSetup {
public:
    TestFilterSetup() {
        m_types[0] = {&MEDIATYPE_Video, &MEDIASUBTYPE_YUY2};
        m_types[1] = {&MEDIATYPE_Video, &MEDIASUBTYPE_RGB32};
        m_pins[0] = {
            const_cast<LPWSTR>(L"In"), FALSE, FALSE, FALSE, FALSE, nullptr, nullptr, 0, nullptr};
        m_pins[1] = {
            const_cast<LPWSTR>(L"Out"), FALSE, TRUE, FALSE, FALSE, nullptr, nullptr, 2, m_types};
        m_filter = {&kFilterClass, L"Test Filter", MERIT_DO_NOT_USE, 2, m_pins};
    }
    const AMOVIESETUP_FILTER* Get() const { return &m_filter; }

private:
    AMOVIESETUP_MEDIATYPE m_types[2];
    AMOVIESETUP_PIN m_pins[2];
    AMOVIESETUP_FILTER m_filter;
};

const HRESULT kFileNotFound = static_cast<HRESULT>(0x80070002);

}  // namespace

TEST(RegisterFilterSetup, NullSetupGivesSFalse) {
    RecordingMapper mapper;
    EXPECT_EQ(RegisterFilterSetup(nullptr, &mapper, true), S_FALSE);
    EXPECT_TRUE(mapper.calls.empty());
}

TEST(RegisterFilterSetup, RegistersFilterPinsAndTypesInOrder) {
    RecordingMapper mapper;
    TestFilterSetup setup;
    mapper.unregisterResult = kFileNotFound;
    EXPECT_EQ(RegisterFilterSetup(setup.Get(), &mapper, true), S_OK);
    const std::vector<std::wstring> expected = {L"unregister",     L"filter Test Filter 2097152",
                                                L"pin In in",      L"pin Out out",
                                                L"type Out video", L"type Out video"};
    EXPECT_EQ(mapper.calls, expected);
}

TEST(RegisterFilterSetup, UnregisterOnly) {
    RecordingMapper mapper;
    TestFilterSetup setup;
    EXPECT_EQ(RegisterFilterSetup(setup.Get(), &mapper, false), S_OK);
    EXPECT_EQ(mapper.calls, std::vector<std::wstring>{L"unregister"});
    // An unknown filter is no error.
    mapper.unregisterResult = kFileNotFound;
    EXPECT_EQ(RegisterFilterSetup(setup.Get(), &mapper, false), S_OK);
    mapper.unregisterResult = E_ACCESSDENIED;
    EXPECT_EQ(RegisterFilterSetup(setup.Get(), &mapper, false), E_ACCESSDENIED);
}

TEST(RegisterFilterSetup, FailedFilterRegistrationEndsTheWalk) {
    RecordingMapper mapper;
    TestFilterSetup setup;
    mapper.registerFilterResult = E_ACCESSDENIED;
    EXPECT_EQ(RegisterFilterSetup(setup.Get(), &mapper, true), E_ACCESSDENIED);
    EXPECT_EQ(mapper.calls.size(), 2u);
}

TEST(RegisterFilterSetup, FailedPinEndsTheWalk) {
    RecordingMapper mapper;
    TestFilterSetup setup;
    mapper.registerPinResults = {E_FAIL};
    EXPECT_EQ(RegisterFilterSetup(setup.Get(), &mapper, true), E_FAIL);
    EXPECT_EQ(mapper.calls.back(), L"pin In in");
}

TEST(RegisterFilterSetup, PositivePinResultWithoutTypesEndsTheWalk) {
    RecordingMapper mapper;
    TestFilterSetup setup;
    mapper.registerPinResults = {S_FALSE};
    EXPECT_EQ(RegisterFilterSetup(setup.Get(), &mapper, true), S_FALSE);
    EXPECT_EQ(mapper.calls.back(), L"pin In in");
}

TEST(RegisterFilterSetup, PositivePinResultWithTypesGoesOn) {
    RecordingMapper mapper;
    TestFilterSetup setup;
    mapper.registerPinResults = {S_OK, S_FALSE};
    EXPECT_EQ(RegisterFilterSetup(setup.Get(), &mapper, true), S_OK);
    EXPECT_EQ(mapper.calls.size(), 6u);
}

TEST(RegisterFilterSetup, NonZeroTypeResultEndsTheWalk) {
    RecordingMapper mapper;
    TestFilterSetup setup;
    mapper.registerPinTypeResults = {S_FALSE};
    EXPECT_EQ(RegisterFilterSetup(setup.Get(), &mapper, true), S_FALSE);
    EXPECT_EQ(mapper.calls.size(), 5u);
    // A final "file not found" is mapped to success wherever it comes from.
    RecordingMapper second;
    second.registerPinTypeResults = {kFileNotFound};
    EXPECT_EQ(RegisterFilterSetup(setup.Get(), &second, true), S_OK);
    EXPECT_EQ(second.calls.size(), 5u);
}

class PropertyPages : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(SUCCEEDED(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED)));
    }
    void TearDown() override { CoUninitialize(); }
};

TEST_F(PropertyPages, HasPropertyPages) {
    EXPECT_FALSE(HasPropertyPages(nullptr));
    auto filter = FakeCom::Own(new FakeCom::FakeFilter());
    EXPECT_FALSE(HasPropertyPages(static_cast<IBaseFilter*>(filter.Get())));
    filter->hasPropertyPages = true;
    EXPECT_TRUE(HasPropertyPages(static_cast<IBaseFilter*>(filter.Get())));
    EXPECT_EQ(filter->RefCount(), 1u);
}

TEST_F(PropertyPages, NullFilterGivesNoInterface) {
    EXPECT_EQ(ShowPropertyPages(nullptr, nullptr), E_NOINTERFACE);
}

TEST_F(PropertyPages, ConsumesTheCallersReferenceOnFailure) {
    auto filter = FakeCom::Own(new FakeCom::FakeFilter());
    filter->AddRef();  // the reference handed over
    EXPECT_EQ(ShowPropertyPages(filter.Get(), nullptr), E_NOINTERFACE);
    EXPECT_EQ(filter->RefCount(), 1u);

    filter->hasPropertyPages = true;
    filter->queryFilterInfoResult = E_FAIL;
    filter->AddRef();
    EXPECT_EQ(ShowPropertyPages(filter.Get(), nullptr), E_FAIL);
    EXPECT_EQ(filter->RefCount(), 1u);
}

TEST_F(PropertyPages, ShowsPagesOfAFilterInAGraphAndReleasesTheGraph) {
    ComPtr<IFilterGraph> graph;
    ASSERT_EQ(CoCreateInstance(CLSID_FilterGraph, nullptr, CLSCTX_INPROC_SERVER, IID_IFilterGraph,
                               reinterpret_cast<void**>(graph.GetAddressOf())),
              S_OK);
    const ULONG graphRefs = (graph->AddRef(), graph->Release());
    auto filter = FakeCom::Own(new FakeCom::FakeFilter());
    filter->hasPropertyPages = true;
    filter->graph = graph.Get();

    filter->AddRef();
    EXPECT_EQ(ShowPropertyPages(filter.Get(), nullptr), S_OK);
    EXPECT_EQ(filter->RefCount(), 1u);
    EXPECT_EQ((graph->AddRef(), graph->Release()), graphRefs);

    // A failing GetPages is the result; the graph reference is still given back.
    filter->getPagesResult = E_OUTOFMEMORY;
    filter->AddRef();
    EXPECT_EQ(ShowPropertyPages(filter.Get(), nullptr), E_OUTOFMEMORY);
    EXPECT_EQ(filter->RefCount(), 1u);
    EXPECT_EQ((graph->AddRef(), graph->Release()), graphRefs);
}

TEST(CaptureScreenRect, EmptyRectGivesNull) {
    BITMAPINFO info = {};
    EXPECT_EQ(CaptureScreenRect(RECT{10, 10, 10, 50}, nullptr, &info), nullptr);
    EXPECT_EQ(CaptureScreenRect(RECT{10, 10, 5, 50}, nullptr, &info), nullptr);
}

TEST(CaptureScreenRect, ClampsToTheScreenAndFillsBits) {
    HDC screen = CreateDCW(L"DISPLAY", nullptr, nullptr, nullptr);
    ASSERT_NE(screen, nullptr);
    const int screenWidth = GetDeviceCaps(screen, HORZRES);
    const int screenHeight = GetDeviceCaps(screen, VERTRES);
    DeleteDC(screen);

    const RECT rect = {-20, -10, screenWidth + 100, 30};
    const int width = screenWidth;  // clamped to [0, screenWidth)
    const int height = 30;
    ASSERT_LE(height, screenHeight);
    BITMAPINFO info = {};
    info.bmiHeader.biSize = sizeof(info.bmiHeader);
    info.bmiHeader.biWidth = width;
    info.bmiHeader.biHeight = height;
    info.bmiHeader.biPlanes = 1;
    info.bmiHeader.biBitCount = 32;
    info.bmiHeader.biCompression = BI_RGB;
    std::vector<DWORD> bits(static_cast<size_t>(width) * height, 0xDEADBEEF);

    HBITMAP bitmap = CaptureScreenRect(rect, bits.data(), &info);
    ASSERT_NE(bitmap, nullptr);
    BITMAP description = {};
    ASSERT_NE(GetObjectW(bitmap, sizeof(description), &description), 0);
    EXPECT_EQ(description.bmWidth, width);
    EXPECT_EQ(description.bmHeight, height);
    // The pixels were written (whatever the screen showed), so the marker is gone.
    EXPECT_NE(bits[0], 0xDEADBEEFu);
    DeleteObject(bitmap);
}
