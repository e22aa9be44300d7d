#include "VirtualCameraFixture.h"

#include <cstdio>

#include "tools/VirtualCamera/Config/DeviceConfig.h"
#include "tools/VirtualCamera/Config/MediaFormats.h"
#include "tools/VirtualCamera/VirtualCameraSetup.h"

namespace VirtualCameraTests {
namespace {

std::wstring ExecutableDirectory() {
    wchar_t path[MAX_PATH] = {};
    GetModuleFileNameW(nullptr, path, MAX_PATH);
    std::wstring text = path;
    return text.substr(0, text.find_last_of(L"\\/") + 1);
}

class Handle {
public:
    explicit Handle(HANDLE handle = nullptr) : handle_(handle) {}
    ~Handle() {
        if (handle_ && handle_ != INVALID_HANDLE_VALUE) CloseHandle(handle_);
    }
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;
    HANDLE get() const { return handle_; }
    HANDLE* put() { return &handle_; }

private:
    HANDLE handle_;
};

}  // namespace

CaptureGraph::~CaptureGraph() {
    if (control) control->Stop();
    // Take the filters out so the graph's references to them go before ours.
    if (graph && sink) graph->RemoveFilter(sink.Get());
    if (graph && camera) graph->RemoveFilter(camera.Get());
}

void VirtualCameraTest::SetUpTestSuite() {
    std::wstring error;
    ASSERT_TRUE(VirtualCamera::RegisterServer(&error)) << std::string(error.begin(), error.end());
}

void VirtualCameraTest::SetUp() {
    comInitialized_ = SUCCEEDED(CoInitializeEx(nullptr, COINIT_MULTITHREADED));
}

void VirtualCameraTest::TearDown() {
    for (const auto& name : addedDevices_) VirtualCamera::RemoveDevice(name);
    if (comInitialized_) CoUninitialize();
}

std::wstring VirtualCameraTest::UniqueName(const std::wstring& suffix) const {
    const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
    const std::string name = std::string(info->test_suite_name()) + "." + info->name();
    return L"vcamtest-" + std::wstring(name.begin(), name.end()) + suffix;
}

void VirtualCameraTest::AddDevices(const std::wstring& description) {
    std::vector<VirtualCamera::DeviceDescription> devices;
    std::wstring error;
    ASSERT_TRUE(VirtualCamera::ParseDescription(description, &devices, &error))
        << std::string(error.begin(), error.end());
    for (const auto& device : devices) addedDevices_.push_back(device.instanceName);
    ASSERT_TRUE(VirtualCamera::AddDevices(description, &error))
        << std::string(error.begin(), error.end());
}

std::wstring VirtualCameraTest::AddDevice(const std::wstring& settings) {
    const std::wstring name = UniqueName(std::to_wstring(++deviceCount_));
    AddDevices(L"[device " + name + L"]\n" + settings);
    return name;
}

ComPtr<IMoniker> VirtualCameraTest::FindMoniker(const std::wstring& instanceName) {
    ComPtr<ICreateDevEnum> devices;
    if (FAILED(CoCreateInstance(CLSID_SystemDeviceEnum, nullptr, CLSCTX_INPROC_SERVER,
                                IID_PPV_ARGS(&devices)))) {
        return nullptr;
    }
    ComPtr<IEnumMoniker> monikers;
    if (devices->CreateClassEnumerator(CLSID_VideoInputDeviceCategory, &monikers, 0) != S_OK) {
        return nullptr;
    }
    ComPtr<IMoniker> moniker;
    while (monikers->Next(1, &moniker, nullptr) == S_OK) {
        LPOLESTR displayName = nullptr;
        if (SUCCEEDED(moniker->GetDisplayName(nullptr, nullptr, &displayName))) {
            const std::wstring name = displayName;
            CoTaskMemFree(displayName);
            const std::wstring suffix = L"\\" + instanceName;
            if (name.size() >= suffix.size() &&
                name.compare(name.size() - suffix.size(), suffix.size(), suffix) == 0) {
                return moniker;
            }
        }
        moniker.Reset();
    }
    return nullptr;
}

HRESULT VirtualCameraTest::BindFilter(const std::wstring& instanceName,
                                      ComPtr<IBaseFilter>* filter) {
    ComPtr<IMoniker> moniker = FindMoniker(instanceName);
    if (!moniker) return E_FAIL;
    return moniker->BindToObject(nullptr, nullptr, IID_PPV_ARGS(filter->ReleaseAndGetAddressOf()));
}

ComPtr<IBaseFilter> VirtualCameraTest::BindFilterOrFail(const std::wstring& instanceName) {
    ComPtr<IBaseFilter> filter;
    const HRESULT hr = BindFilter(instanceName, &filter);
    EXPECT_EQ(hr, S_OK);
    return filter;
}

BagValue VirtualCameraTest::ReadBag(const std::wstring& instanceName, const wchar_t* property) {
    BagValue result;
    ComPtr<IMoniker> moniker = FindMoniker(instanceName);
    ComPtr<IPropertyBag> bag;
    if (!moniker || FAILED(moniker->BindToStorage(nullptr, nullptr, IID_PPV_ARGS(&bag)))) {
        ADD_FAILURE() << "no property bag";
        return result;
    }
    VARIANT value;
    VariantInit(&value);
    if (SUCCEEDED(bag->Read(property, &value, nullptr))) {
        result.present = true;
        result.type = value.vt;
        if (value.vt == VT_BSTR && value.bstrVal) result.text = value.bstrVal;
        if (value.vt == VT_I4) result.number = value.lVal;
    }
    VariantClear(&value);
    return result;
}

ComPtr<IPin> VirtualCameraTest::OutputPin(IBaseFilter* filter) {
    ComPtr<IEnumPins> pins;
    ComPtr<IPin> pin;
    if (!filter || FAILED(filter->EnumPins(&pins)) || pins->Next(1, &pin, nullptr) != S_OK) {
        ADD_FAILURE() << "the filter has no pin";
        return nullptr;
    }
    return pin;
}

ComPtr<IAMStreamConfig> VirtualCameraTest::StreamConfig(const std::wstring& instanceName) {
    ComPtr<IBaseFilter> filter = BindFilterOrFail(instanceName);
    ComPtr<IPin> pin = OutputPin(filter.Get());
    ComPtr<IAMStreamConfig> config;
    if (pin) {
        EXPECT_EQ(pin.As(&config), S_OK);
    }
    return config;
}

void VirtualCameraTest::BuildGraph(const std::wstring& instanceName, CaptureGraph* graph,
                                   int modeIndex) {
    ASSERT_EQ(CoCreateInstance(CLSID_FilterGraph, nullptr, CLSCTX_INPROC_SERVER,
                               IID_PPV_ARGS(&graph->graph)),
              S_OK);
    ASSERT_EQ(graph->graph.As(&graph->control), S_OK);
    // IMediaEvent has no uuid declaration in these headers, so ask by IID.
    ASSERT_EQ(graph->graph->QueryInterface(IID_IMediaEvent,
                                           reinterpret_cast<void**>(graph->events.GetAddressOf())),
              S_OK);
    graph->camera = BindFilterOrFail(instanceName);
    ASSERT_TRUE(graph->camera);
    // Adopts the creator's reference: MinGW's ComPtr::Attach would add one of its own.
    *graph->sink.ReleaseAndGetAddressOf() = new FrameSink();
    ASSERT_EQ(graph->graph->AddFilter(graph->camera.Get(), L"Camera"), S_OK);
    ASSERT_EQ(graph->graph->AddFilter(graph->sink.Get(), L"Sink"), S_OK);
    ComPtr<IPin> out = OutputPin(graph->camera.Get());
    ASSERT_TRUE(out);
    if (modeIndex >= 0) {
        ComPtr<IAMStreamConfig> config;
        ASSERT_EQ(out.As(&config), S_OK);
        AM_MEDIA_TYPE* type = nullptr;
        VIDEO_STREAM_CONFIG_CAPS caps = {};
        ASSERT_EQ(config->GetStreamCaps(modeIndex, &type, reinterpret_cast<BYTE*>(&caps)), S_OK);
        const HRESULT hr = config->SetFormat(type);
        VirtualCamera::DeleteMediaType(type);
        ASSERT_EQ(hr, S_OK);
    }
    ASSERT_EQ(graph->graph->ConnectDirect(out.Get(), graph->sink->InputPin(), nullptr), S_OK);
}

std::vector<long> VirtualCameraTest::DrainEvents(IMediaEvent* events) {
    std::vector<long> codes;
    long code = 0;
    LONG_PTR param1 = 0;
    LONG_PTR param2 = 0;
    while (events->GetEvent(&code, &param1, &param2, 0) == S_OK) {
        codes.push_back(code);
        events->FreeEventParams(code, param1, param2);
    }
    return codes;
}

bool VirtualCameraTest::WaitForEvent(IMediaEvent* events, long wanted, DWORD timeoutMs,
                                     LONG_PTR* firstParam) {
    const LONGLONG deadline = NowMilliseconds() + timeoutMs;
    while (NowMilliseconds() < deadline) {
        long code = 0;
        LONG_PTR param1 = 0;
        LONG_PTR param2 = 0;
        if (events->GetEvent(&code, &param1, &param2, 50) == S_OK) {
            events->FreeEventParams(code, param1, param2);
            if (code == wanted) {
                if (firstParam) *firstParam = param1;
                return true;
            }
        }
    }
    return false;
}

std::vector<ReceivedFrame> VirtualCameraTest::RunFor(CaptureGraph* graph, size_t frames) {
    const size_t before = graph->sink->FrameCount();
    EXPECT_EQ(graph->control->Run(), S_OK);
    EXPECT_TRUE(graph->sink->WaitForFrames(before + frames, kStateDeadlineMs));
    EXPECT_EQ(graph->control->Stop(), S_OK);
    return graph->sink->Frames();
}

LONGLONG NowMilliseconds() {
    LARGE_INTEGER frequency;
    LARGE_INTEGER now;
    QueryPerformanceFrequency(&frequency);
    QueryPerformanceCounter(&now);
    return now.QuadPart * 1000 / frequency.QuadPart;
}

DWORD RunProgram(const std::wstring& program, const std::wstring& arguments, DWORD timeoutMs,
                 const std::string& input, std::string* output) {
    // Output goes through a file: a pipe could be held open by Wine's own services.
    wchar_t tempDirectory[MAX_PATH] = {};
    wchar_t outputPath[MAX_PATH] = {};
    wchar_t inputPath[MAX_PATH] = {};
    GetTempPathW(MAX_PATH, tempDirectory);
    GetTempFileNameW(tempDirectory, L"vco", 0, outputPath);
    GetTempFileNameW(tempDirectory, L"vci", 0, inputPath);
    {
        FILE* file = _wfopen(inputPath, L"wb");
        if (file) {
            fwrite(input.data(), 1, input.size(), file);
            fclose(file);
        }
    }
    SECURITY_ATTRIBUTES inherit = {sizeof(inherit), nullptr, TRUE};
    Handle outputFile(CreateFileW(outputPath, GENERIC_WRITE, FILE_SHARE_READ, &inherit,
                                  CREATE_ALWAYS, 0, nullptr));
    Handle inputFile(
        CreateFileW(inputPath, GENERIC_READ, FILE_SHARE_READ, &inherit, OPEN_EXISTING, 0, nullptr));
    STARTUPINFOW startup = {};
    startup.cb = sizeof(startup);
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdInput = inputFile.get();
    startup.hStdOutput = outputFile.get();
    startup.hStdError = outputFile.get();
    std::wstring commandLine = L"\"" + ExecutableDirectory() + program + L"\" " + arguments;
    PROCESS_INFORMATION process = {};
    DWORD exitCode = static_cast<DWORD>(-1);
    if (CreateProcessW(nullptr, &commandLine[0], nullptr, nullptr, TRUE, 0, nullptr, nullptr,
                       &startup, &process)) {
        Handle processHandle(process.hProcess);
        Handle threadHandle(process.hThread);
        if (WaitForSingleObject(process.hProcess, timeoutMs) == WAIT_OBJECT_0) {
            GetExitCodeProcess(process.hProcess, &exitCode);
        } else {
            TerminateProcess(process.hProcess, 1);
        }
    }
    CloseHandle(*outputFile.put());
    *outputFile.put() = nullptr;
    if (output) {
        output->clear();
        FILE* file = _wfopen(outputPath, L"rb");
        if (file) {
            char buffer[4096];
            size_t read = 0;
            while ((read = fread(buffer, 1, sizeof(buffer), file)) > 0)
                output->append(buffer, read);
            fclose(file);
        }
    }
    DeleteFileW(outputPath);
    DeleteFileW(inputPath);
    return exitCode;
}

}  // namespace VirtualCameraTests
