#include "DecoderFixture.h"

#include <gtest/gtest.h>

#include "tools/TestDecoders/TestDecodersSetup.h"

namespace DecoderTests {

void InstallOrFail() {
    std::wstring error;
    ASSERT_TRUE(TestDecoders::InstallDecoders(&error)) << std::string(error.begin(), error.end());
}

bool DecoderTest::s_installedBefore = false;

void DecoderTest::SetUpTestSuite() {
    VirtualCameraTests::VirtualCameraTest::SetUpTestSuite();
    s_installedBefore = TestDecoders::QueryDecoderStatus().Installed();
    InstallOrFail();
}

void DecoderTest::TearDownTestSuite() {
    if (!s_installedBefore) {
        std::wstring error;
        EXPECT_TRUE(TestDecoders::UninstallDecoders(&error))
            << std::string(error.begin(), error.end());
    }
}

std::wstring DecoderTest::AddCamera(const std::wstring& settings) {
    const std::wstring name = UniqueName(std::to_wstring(++m_cameras));
    AddDevices(L"[device " + name + L"]\n" + settings);
    return name;
}

ComPtr<IBaseFilter> FindFilterOfClass(IFilterGraph* graph, const CLSID& clsid) {
    ComPtr<IEnumFilters> filters;
    if (FAILED(graph->EnumFilters(&filters))) return nullptr;
    ComPtr<IBaseFilter> filter;
    while (filters->Next(1, filter.ReleaseAndGetAddressOf(), nullptr) == S_OK) {
        CLSID found = GUID_NULL;
        if (SUCCEEDED(filter->GetClassID(&found)) && IsEqualCLSID(found, clsid)) return filter;
    }
    return nullptr;
}

ComPtr<IPin> PinOf(IBaseFilter* filter, PIN_DIRECTION direction) {
    ComPtr<IEnumPins> pins;
    if (!filter || FAILED(filter->EnumPins(&pins))) return nullptr;
    ComPtr<IPin> pin;
    while (pins->Next(1, pin.ReleaseAndGetAddressOf(), nullptr) == S_OK) {
        PIN_DIRECTION found = PINDIR_INPUT;
        if (SUCCEEDED(pin->QueryDirection(&found)) && found == direction) return pin;
    }
    return nullptr;
}

void StopGraphAndEveryFilter(IGraphBuilder* graph) {
    ComPtr<IMediaControl> control;
    if (SUCCEEDED(graph->QueryInterface(IID_PPV_ARGS(&control)))) control->Stop();
    ComPtr<IEnumFilters> filters;
    if (FAILED(graph->EnumFilters(&filters))) return;
    ComPtr<IBaseFilter> filter;
    while (filters->Next(1, filter.ReleaseAndGetAddressOf(), nullptr) == S_OK) filter->Stop();
}

ULONG ReferenceCount(IUnknown* object) {
    object->AddRef();
    return object->Release();
}

}  // namespace DecoderTests
