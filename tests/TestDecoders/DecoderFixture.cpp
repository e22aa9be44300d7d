#include "DecoderFixture.h"

#include <gtest/gtest.h>

#include "tools/VirtualCamera/Config/MediaFormats.h"

namespace DecoderTests {

void InstallOrFail() {
    std::wstring error;
    ASSERT_TRUE(TestDecoders::InstallDecoders(&error)) << std::string(error.begin(), error.end());
}

TestDecoders::ScopedDecoderInstall DecoderTest::s_decoders;

void DecoderTest::SetUpTestSuite() {
    VirtualCameraTests::VirtualCameraTest::SetUpTestSuite();
    std::wstring error;
    ASSERT_TRUE(s_decoders.Install(&error)) << std::string(error.begin(), error.end());
}

void DecoderTest::TearDownTestSuite() {
    std::wstring error;
    EXPECT_TRUE(s_decoders.Restore(&error)) << std::string(error.begin(), error.end());
}

std::wstring DecoderTest::AddCamera(const std::wstring& settings) {
    const std::wstring name = UniqueName(std::to_wstring(++m_cameras));
    AddDevices(L"[device " + name + L"]\n" + settings);
    return name;
}

BITMAPINFOHEADER Header(DWORD compression, WORD bitCount, LONG width, LONG height) {
    BITMAPINFOHEADER header = {};
    header.biSize = sizeof(header);
    header.biWidth = width;
    header.biHeight = height;
    header.biPlanes = 1;
    header.biBitCount = bitCount;
    header.biCompression = compression;
    return header;
}

LONG CodecInstancesOpen() {
    HMODULE codec = GetModuleHandleW(L"TestCodec.dll");
    if (!codec) return kCodecNotLoaded;
    using Count = LONG(WINAPI*)();
    const auto count = reinterpret_cast<Count>(
        reinterpret_cast<void*>(GetProcAddress(codec, "TestCodecOpenInstances")));
    return count ? count() : kCodecWithoutCount;
}

DllCanUnloadNowFunction DllCanUnloadNowOf(HMODULE module) {
    return reinterpret_cast<DllCanUnloadNowFunction>(
        reinterpret_cast<void*>(GetProcAddress(module, "DllCanUnloadNow")));
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

void ConnectThroughDecoderOrFail(IGraphBuilder* graph, IPin* capturePin, const CLSID& decoderClass,
                                 IPin* sinkInput, ComPtr<IBaseFilter>* decoder) {
    ASSERT_EQ(CoCreateInstance(decoderClass, nullptr, CLSCTX_INPROC_SERVER | CLSCTX_INPROC_HANDLER,
                               IID_PPV_ARGS(decoder->ReleaseAndGetAddressOf())),
              S_OK);
    ASSERT_EQ(graph->AddFilter(decoder->Get(), nullptr), S_OK);
    AM_MEDIA_TYPE* cameraType = nullptr;
    {
        ComPtr<IAMStreamConfig> config;
        ASSERT_EQ(capturePin->QueryInterface(IID_PPV_ARGS(&config)), S_OK);
        ASSERT_EQ(config->GetFormat(&cameraType), S_OK);
    }
    const HRESULT connected =
        graph->ConnectDirect(capturePin, PinOf(decoder->Get(), PINDIR_INPUT).Get(), cameraType);
    VirtualCamera::DeleteMediaType(cameraType);
    ASSERT_EQ(connected, S_OK);
    ASSERT_EQ(graph->ConnectDirect(PinOf(decoder->Get(), PINDIR_OUTPUT).Get(), sinkInput, nullptr),
              S_OK);
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
