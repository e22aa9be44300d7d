// VirtualCameraTool: registers the virtual camera and manages its virtual devices.

#include <windows.h>
#include <fcntl.h>
#include <io.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>

#include "TinyFramework/Common/TinyTextConversion.h"
#include "tools/VirtualCamera/VirtualCameraSetup.h"

namespace {

const wchar_t* const kUsage =
    LR"(Usage: VirtualCameraTool <command>
  register        register VirtualCamera.dll (next to this tool) as a COM server
  unregister      remove the COM registration
  add FILE        add the devices described in FILE ('-' reads standard input)
  add-default     add the default "Virtual Camera" device
  list            list the virtual devices: instance name, friendly name, device path
  remove NAME     remove the virtual device with this instance name
  report NAME     what the device's filters were told: the power-line frequency last set
  clear           remove every virtual device
  --help          show this text and the description format
Exit code 0 on success; otherwise a one-line reason on standard error.
)";

using TinyFramework::ToUtf8;

void Print(FILE* stream, const std::wstring& text) {
    const std::string utf8 = ToUtf8(text);
    fwrite(utf8.data(), 1, utf8.size(), stream);
    fflush(stream);
}

int Failure(const std::wstring& reason) {
    Print(stderr, L"VirtualCameraTool: " + reason + L"\n");
    return 1;
}

bool ReadAll(const std::wstring& path, std::string* bytes) {
    if (path == L"-") {
        _setmode(_fileno(stdin), _O_BINARY);
        std::ostringstream buffer;
        char chunk[4096];
        size_t read = 0;
        while ((read = fread(chunk, 1, sizeof(chunk), stdin)) > 0) {
            buffer.write(chunk, read);
        }
        *bytes = buffer.str();
        return !ferror(stdin);
    }
    std::ifstream file(path.c_str(), std::ios::binary);
    if (!file) {
        return false;
    }
    bytes->assign(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
    return !file.bad();
}

int AddFromFile(const std::wstring& path) {
    std::string bytes;
    if (!ReadAll(path, &bytes)) {
        return Failure(L"cannot read '" + path + L"'");
    }
    std::wstring text;
    if (!VirtualCamera::Utf8ToWide(bytes, &text)) {
        return Failure(L"'" + path + L"' is not UTF-8");
    }
    std::wstring error;
    if (!VirtualCamera::AddDevices(text, &error)) {
        return Failure(error);
    }
    return 0;
}

int AddDefault() {
    std::wstring error;
    if (!VirtualCamera::AddDevices(VirtualCamera::DefaultCameraDescription(), &error)) {
        return Failure(error);
    }
    return 0;
}

int List() {
    for (const auto& device : VirtualCamera::ListDeviceRecords()) {
        Print(stdout, device.instanceName + L"\t" + device.friendlyName + L"\t" +
                          device.devicePath + L"\n");
    }
    return 0;
}

int Report(const std::wstring& name) {
    bool known = false;
    for (const auto& device : VirtualCamera::ListDevices()) {
        known = known || _wcsicmp(device.c_str(), name.c_str()) == 0;
    }
    if (!known) {
        return Failure(L"no virtual device named '" + name + L"'");
    }
    VirtualCamera::PowerLineReport report;
    if (VirtualCamera::ReadPowerLineReport(name, &report)) {
        Print(stdout, L"power-line frequency: value " + std::to_wstring(report.value) +
                          L", flags " + std::to_wstring(report.flags) + L"\n");
    } else {
        Print(stdout, L"power-line frequency: not set\n");
    }
    return 0;
}

int Run(int argc, wchar_t** argv) {
    if (argc < 2) {
        return Failure(L"no command given; see --help");
    }
    const std::wstring command = argv[1];
    const bool hasArgument = argc >= 3;
    if (argc > 3 ||
        (hasArgument && command != L"add" && command != L"remove" && command != L"report")) {
        return Failure(L"too many arguments for '" + command + L"'");
    }
    std::wstring error;
    if (command == L"--help" || command == L"-h" || command == L"help") {
        Print(stdout, std::wstring(kUsage) + L"\n" + VirtualCamera::DescriptionHelp());
        return 0;
    }
    if (command == L"register") {
        return VirtualCamera::RegisterServer(&error) ? 0 : Failure(error);
    }
    if (command == L"unregister") {
        return VirtualCamera::UnregisterServer(&error) ? 0 : Failure(error);
    }
    if (command == L"add") {
        return hasArgument ? AddFromFile(argv[2]) : Failure(L"add needs a FILE");
    }
    if (command == L"add-default") {
        return AddDefault();
    }
    if (command == L"list") {
        return List();
    }
    if (command == L"remove") {
        if (!hasArgument) {
            return Failure(L"remove needs a NAME");
        }
        return VirtualCamera::RemoveDevice(argv[2])
                   ? 0
                   : Failure(L"no virtual device named '" + std::wstring(argv[2]) + L"'");
    }
    if (command == L"report") {
        return hasArgument ? Report(argv[2]) : Failure(L"report needs a NAME");
    }
    if (command == L"clear") {
        return VirtualCamera::RemoveAllDevices() ? 0
                                                 : Failure(L"some devices could not be removed");
    }
    return Failure(L"unknown command '" + command + L"'; see --help");
}

}  // namespace

int main() {
    int argc = 0;
    wchar_t** argv = CommandLineToArgvW(GetCommandLineW(), &argc);
    if (!argv) {
        return Failure(L"cannot read the command line");
    }
    const int code = Run(argc, argv);
    LocalFree(argv);
    return code;
}
