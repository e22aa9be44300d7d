// The floor of the query benchmark: a server that makes only the platform calls a query needs
// (pipe, event, COM, the device enumerator, the capture pin's capabilities) with no framework
// around them: no argument splitting, no logging, no sorting, one buffer for the reply. It speaks
// the same rendezvous and gives the same bytes for the benchmark's devices, so that the client
// cannot tell it from the real server. Of the project it uses only the protocol's names and
// the header-only checks of what drivers hand out, which are platform calls themselves.
#include "DShowCapture/DriverData.h"
#include "protocol/QueryProtocol.h"

#include <windows.h>

#include <dshow.h>

#include <cstdio>
#include <cwchar>
#include <string>
#include <utility>

namespace {

std::wstring Argument(int argc, wchar_t** argv, const wchar_t* key) {
    const size_t length = wcslen(key);
    for (int index = 1; index < argc; ++index) {
        if (wcsncmp(argv[index], key, length) == 0 &&
            argv[index][length] == QueryProtocol::kKeyValueSeparator) {
            return argv[index] + length + 1;
        }
    }
    return std::wstring();
}

std::wstring ReadString(IPropertyBag* bag, const wchar_t* name) {
    VARIANT value;
    VariantInit(&value);
    std::wstring text;
    if (SUCCEEDED(bag->Read(name, &value, nullptr)) && value.vt == VT_BSTR) {
        text = value.bstrVal;
    }
    VariantClear(&value);
    return text;
}

// Calls `visit(moniker, bag)` for each video input device until it returns false.
template <typename Visit>
void ForEachDevice(Visit visit) {
    ICreateDevEnum* devices = nullptr;
    IEnumMoniker* monikers = nullptr;
    if (FAILED(CoCreateInstance(CLSID_SystemDeviceEnum, nullptr, CLSCTX_INPROC_SERVER,
                                IID_ICreateDevEnum, reinterpret_cast<void**>(&devices)))) {
        return;
    }
    if (devices->CreateClassEnumerator(CLSID_VideoInputDeviceCategory, &monikers, 0) == S_OK) {
        IMoniker* moniker = nullptr;
        bool more = true;
        while (more && monikers->Next(1, &moniker, nullptr) == S_OK) {
            IPropertyBag* bag = nullptr;
            if (SUCCEEDED(moniker->BindToStorage(nullptr, nullptr, IID_IPropertyBag,
                                                 reinterpret_cast<void**>(&bag)))) {
                more = visit(moniker, bag);
                bag->Release();
            }
            moniker->Release();
        }
        monikers->Release();
    }
    devices->Release();
}

std::wstring DeviceLines() {
    std::wstring lines;
    ForEachDevice([&lines](IMoniker* moniker, IPropertyBag* bag) {
        std::wstring name = ReadString(bag, L"Description");
        if (name.empty()) {
            name = ReadString(bag, L"FriendlyName");
        }
        std::wstring id = ReadString(bag, L"DevicePath");
        IBaseFilter* filter = nullptr;
        if (SUCCEEDED(moniker->BindToObject(nullptr, nullptr, IID_IBaseFilter,
                                            reinterpret_cast<void**>(&filter)))) {
            filter->Release();
            lines +=
                (id.empty() ? name : id) + QueryProtocol::kLineEnd + name + QueryProtocol::kLineEnd;
        }
        return true;
    });
    return lines;
}

// The analog list binds every device and looks at its first pin; none of the benchmark's devices
// is analog, so the reply stays empty.
void TouchFirstPins() {
    ForEachDevice([](IMoniker* moniker, IPropertyBag*) {
        IBaseFilter* filter = nullptr;
        if (SUCCEEDED(moniker->BindToObject(nullptr, nullptr, IID_IBaseFilter,
                                            reinterpret_cast<void**>(&filter)))) {
            IEnumPins* pins = nullptr;
            if (SUCCEEDED(filter->EnumPins(&pins))) {
                IPin* pin = nullptr;
                if (pins->Next(1, &pin, nullptr) == S_OK) {
                    pin->Release();
                }
                pins->Release();
            }
            filter->Release();
        }
        return true;
    });
}

IPin* CapturePin(IBaseFilter* filter) {
    IEnumPins* pins = nullptr;
    IPin* found = nullptr;
    if (FAILED(filter->EnumPins(&pins))) {
        return nullptr;
    }
    IPin* pin = nullptr;
    while (found == nullptr && pins->Next(1, &pin, nullptr) == S_OK) {
        IKsPropertySet* properties = nullptr;
        GUID category = {};
        DWORD size = 0;
        if (SUCCEEDED(
                pin->QueryInterface(IID_IKsPropertySet, reinterpret_cast<void**>(&properties)))) {
            if (SUCCEEDED(properties->Get(AMPROPSETID_Pin, AMPROPERTY_PIN_CATEGORY, nullptr, 0,
                                          &category, sizeof(category), &size)) &&
                size == sizeof(category) && IsEqualGUID(category, PIN_CATEGORY_CAPTURE)) {
                found = pin;
                pin->AddRef();
            }
            properties->Release();
        }
        pin->Release();
    }
    pins->Release();
    return found;
}

float Rate(REFERENCE_TIME interval) {
    return 10000000.0f / static_cast<float>(interval);
}

std::string Integer(long value) {
    char text[16];
    snprintf(text, sizeof(text), "%ld", value);
    return text;
}

std::string Double(float value) {
    char text[40];
    snprintf(text, sizeof(text), "%.17g", static_cast<double>(value));
    return text;
}

// `caps` is null when the driver stated no room for a whole capability.
void AppendMode(std::string& json, const AM_MEDIA_TYPE& type, const VIDEOINFOHEADER& header,
                const VIDEO_STREAM_CONFIG_CAPS* caps) {
    const float rate = header.AvgTimePerFrame > 0 ? Rate(header.AvgTimePerFrame) : 0.0f;
    const float minRate =
        caps != nullptr && caps->MaxFrameInterval != 0 ? Rate(caps->MaxFrameInterval) : rate;
    const float maxRate =
        caps != nullptr && caps->MinFrameInterval > 0 ? Rate(caps->MinFrameInterval) : rate;
    const LONG width = header.bmiHeader.biWidth;
    const LONG height = header.bmiHeader.biHeight;
    const long format = IsEqualGUID(type.subtype, MEDIASUBTYPE_MJPG)
                            ? QueryProtocol::kPixelFormatMjpeg
                            : QueryProtocol::kPixelFormatYuy2;
    // In the reply's key order, so that no sorting is needed.
    const std::pair<const char*, std::string> members[] = {
        {QueryProtocol::kModeFlip, "0"},
        {QueryProtocol::kModeFormat, Integer(format)},
        {QueryProtocol::kModeMaxRate, Double(maxRate)},
        {QueryProtocol::kModeMaxSizeCx, Integer(width)},
        {QueryProtocol::kModeMaxSizeCy, Integer(height)},
        {QueryProtocol::kModeMinRate, Double(minRate)},
        {QueryProtocol::kModeMinSizeCx, Integer(width)},
        {QueryProtocol::kModeMinSizeCy, Integer(height)},
        {QueryProtocol::kModeRate, Double(rate)},
        {QueryProtocol::kModeScaleX, "0"},
        {QueryProtocol::kModeScaleY, "0"},
        {QueryProtocol::kModeSizeX, Integer(width)},
        {QueryProtocol::kModeSizeY, Integer(height)},
    };
    json += json.size() > 1 ? ", {" : "{";
    for (const auto& member : members) {
        json += json.back() == '{' ? "" : ", ";
        json += std::string("\"") + member.first + "\": " + member.second;
    }
    json += "}";
}

std::string FormatsJson(const std::wstring& deviceId) {
    std::string json = "[";
    ForEachDevice([&](IMoniker* moniker, IPropertyBag* bag) {
        if (ReadString(bag, L"DevicePath") != deviceId) {
            return true;
        }
        IBaseFilter* filter = nullptr;
        if (FAILED(moniker->BindToObject(nullptr, nullptr, IID_IBaseFilter,
                                         reinterpret_cast<void**>(&filter)))) {
            return true;
        }
        IPin* pin = CapturePin(filter);
        IAMStreamConfig* config = nullptr;
        if (pin != nullptr && SUCCEEDED(pin->QueryInterface(IID_IAMStreamConfig,
                                                            reinterpret_cast<void**>(&config)))) {
            // The same checks of the driver's sizes as the real server's.
            DShow::StreamCapabilityReader capabilities(config);
            capabilities.Open();
            for (int index = 0; index < capabilities.Count(); ++index) {
                AM_MEDIA_TYPE* type = nullptr;
                if (capabilities.Read(index, &type) == S_OK) {
                    if (const VIDEOINFOHEADER* header = DShow::GetVideoInfoHeader(*type)) {
                        AppendMode(json, *type, *header, capabilities.VideoCapability());
                    }
                    CoTaskMemFree(type->pbFormat);
                    CoTaskMemFree(type);
                }
            }
            config->Release();
        }
        if (pin != nullptr) {
            pin->Release();
        }
        filter->Release();
        return false;
    });
    return json + "]";
}

}  // namespace

int wmain(int argc, wchar_t** argv) {
    const std::wstring method = Argument(argc, argv, QueryProtocol::kKeyMethod);
    const std::wstring id = Argument(argc, argv, QueryProtocol::kKeyId);
    const std::wstring pipeName = QueryProtocol::kPipeNamePrefix + id;
    const std::wstring eventName = QueryProtocol::kEventNamePrefix + id;
    HANDLE pipe = CreateNamedPipeW(pipeName.c_str(), PIPE_ACCESS_DUPLEX | FILE_FLAG_WRITE_THROUGH,
                                   0, 1, 16384, 16384, 3000, nullptr);
    HANDLE event = OpenEventW(EVENT_MODIFY_STATE, FALSE, eventName.c_str());
    CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
    std::string reply;
    if (method == QueryProtocol::kMethodVideoDevices) {
        const std::wstring lines = DeviceLines();
        reply.assign(reinterpret_cast<const char*>(lines.data()), lines.size() * sizeof(wchar_t));
    } else if (method == QueryProtocol::kMethodAnalogDevices) {
        TouchFirstPins();
    } else if (method == QueryProtocol::kMethodDeviceFormats) {
        reply = FormatsJson(Argument(argc, argv, QueryProtocol::kKeyDeviceId));
    }
    SetEvent(event);
    ConnectNamedPipe(pipe, nullptr);
    DWORD written = 0;
    if (!reply.empty()) {
        WriteFile(pipe, reply.data(), static_cast<DWORD>(reply.size()), &written, nullptr);
    }
    FlushFileBuffers(pipe);
    DisconnectNamedPipe(pipe);
    CloseHandle(pipe);
    CloseHandle(event);
    return 0;
}
