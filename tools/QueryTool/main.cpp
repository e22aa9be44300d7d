// QueryTool: asks the query server about the machine's video capture devices.
#include "client/QueryClient.h"
#include "tools/QueryTool/ToolOutput.h"

#include <cstdio>
#include <cwchar>
#include <string>
#include <vector>

namespace {

constexpr char kUsage[] =
    "usage: QueryTool [options] devices | analog | formats <device_id> [device_name] | list\n"
    "                           | problems\n"
    "\n"
    "  devices            list the video capture devices\n"
    "  analog             list the analog capture devices\n"
    "  formats <id>       list the modes of the device with this id (an id that no device\n"
    "                     has is an error)\n"
    "  list               list the video capture devices, each with its modes\n"
    "  problems           list the devices that hung or crashed the server before\n"
    "\n"
    "options:\n"
    "  --json                  print JSON instead of a table (formats: the server's own JSON;\n"
    "                          list: each mode with \"format_name\" beside \"format\")\n"
    "  --timeout <ms>          deadline of a whole query (default 10000)\n"
    "  --format-timeout <ms>   deadline of one device's modes (default: --timeout)\n"
    "  --server <path>         the query server (default: QueryServer.exe beside this tool)\n"
    "  --forget                forget every remembered problem device first\n"
    "  --no-remember           neither skip nor remember problem devices\n"
    "\n"
    "A device whose modes query hangs or crashes the server is remembered and skipped later\n"
    "(outcome skipped-problem-device) until it is forgotten. The list is kept in\n"
    "%LOCALAPPDATA%\\VideoCaptureQuery\\problem-devices.txt.\n"
    "\n"
    "Exit code 0 on success; otherwise 1 and one line naming the outcome on stderr.\n";

struct ToolArguments {
    bool json = false;
    bool help = false;
    bool forget = false;
    bool remember = true;
    QueryClient::QueryOptions options;
    std::vector<std::wstring> positional;
};

bool ParseMilliseconds(const wchar_t* text, DWORD* milliseconds) {
    wchar_t* end = nullptr;
    const unsigned long value = std::wcstoul(text, &end, 10);
    if (end == text || *end != L'\0' || value == 0 || value > 0x7FFFFFFF) {
        return false;
    }
    *milliseconds = static_cast<DWORD>(value);
    return true;
}

bool ParseArguments(int argc, wchar_t** argv, ToolArguments* parsed, std::string* error) {
    for (int index = 1; index < argc; ++index) {
        const std::wstring argument = argv[index];
        const bool hasValue = index + 1 < argc;
        if (argument == L"--json") {
            parsed->json = true;
        } else if (argument == L"--help" || argument == L"-h") {
            parsed->help = true;
        } else if (argument == L"--forget") {
            parsed->forget = true;
        } else if (argument == L"--no-remember") {
            parsed->remember = false;
        } else if ((argument == L"--timeout" || argument == L"--format-timeout") && hasValue) {
            DWORD& target = argument == L"--timeout" ? parsed->options.timeoutMs
                                                     : parsed->options.formatTimeoutMs;
            if (!ParseMilliseconds(argv[++index], &target)) {
                *error = QueryTool::ToUtf8(argument) + " takes a positive number of milliseconds";
                return false;
            }
        } else if (argument == L"--server" && hasValue) {
            parsed->options.serverPath = argv[++index];
        } else if (argument.rfind(L"--", 0) == 0) {
            *error = "unknown or incomplete option " + QueryTool::ToUtf8(argument);
            return false;
        } else {
            parsed->positional.push_back(argument);
        }
    }
    return true;
}

void Print(const std::string& text) {
    fwrite(text.data(), 1, text.size(), stdout);
}

int Failure(const std::string& line) {
    fprintf(stderr, "QueryTool: %s\n", line.c_str());
    return 1;
}

int ReportOutcome(QueryClient::Outcome outcome, const std::string& detail) {
    return Failure(std::string(QueryClient::OutcomeName(outcome)) + ": " + detail);
}

int ListDevices(QueryClient::Client& client, bool analog, bool json) {
    const QueryClient::DeviceListReply reply =
        analog ? client.GetAnalogDevices() : client.GetVideoDevices();
    if (reply.outcome != QueryClient::Outcome::Ok) {
        return ReportOutcome(reply.outcome, reply.detail);
    }
    Print(json ? QueryTool::DeviceJson(reply.devices) : QueryTool::DeviceTable(reply.devices));
    return 0;
}

// The server answers "[]" both for a device without modes and for an id that no device has; the
// device list tells the two apart. When it cannot be had, the empty list stands as it is.
bool NoDeviceHas(QueryClient::Client& client, const std::wstring& id) {
    const QueryClient::DeviceListReply devices = client.GetVideoDevices();
    return devices.outcome == QueryClient::Outcome::Ok &&
           !QueryTool::ListsDevice(devices.devices, id);
}

int ListFormats(QueryClient::Client& client, const std::wstring& id, const std::wstring& name,
                bool json) {
    const QueryClient::FormatListReply reply = client.GetDeviceFormats(id, name);
    if (reply.outcome != QueryClient::Outcome::Ok) {
        return ReportOutcome(reply.outcome, reply.detail);
    }
    if (reply.modes.empty() && NoDeviceHas(client, id)) {
        return Failure(QueryTool::UnknownDeviceText(id));
    }
    // The server's own JSON is printed as it came: it is already the documented form.
    Print(json ? reply.json + "\n" : QueryTool::ModeTable(reply.modes));
    return 0;
}

std::string DeviceWithModesJson(const QueryClient::Device& device, const std::string& modes) {
    return "{\"id\": " + QueryTool::JsonString(device.id) +
           ", \"name\": " + QueryTool::JsonString(device.name) + ", \"modes\": " + modes + "}";
}

// Every device with its modes; a device whose query fails is reported and the others go on.
int ListDevicesWithModes(QueryClient::Client& client, bool json) {
    const QueryClient::DeviceListReply devices = client.GetVideoDevices();
    if (devices.outcome != QueryClient::Outcome::Ok) {
        return ReportOutcome(devices.outcome, devices.detail);
    }
    int status = 0;
    std::vector<std::string> jsonDevices;
    for (const QueryClient::Device& device : devices.devices) {
        const QueryClient::FormatListReply modes = client.GetDeviceFormats(device.id, device.name);
        if (modes.outcome != QueryClient::Outcome::Ok) {
            status =
                ReportOutcome(modes.outcome, QueryTool::ToUtf8(device.name) + ": " + modes.detail);
            continue;
        }
        if (json) {
            jsonDevices.push_back(DeviceWithModesJson(device, QueryTool::ModesJson(modes.modes)));
        } else {
            Print(QueryTool::ToUtf8(device.name) + "  (" + QueryTool::ToUtf8(device.id) + ")\n" +
                  QueryTool::ModeTable(modes.modes) + "\n");
        }
    }
    if (json) {
        std::string list;
        for (const std::string& entry : jsonDevices) {
            list += (list.empty() ? "" : ", ") + entry;
        }
        Print("[" + list + "]\n");
    } else if (devices.devices.empty()) {
        Print("No devices found.\n");
    }
    return status;
}

}  // namespace

int wmain(int argc, wchar_t** argv) {
    ToolArguments arguments;
    std::string error;
    if (!ParseArguments(argc, argv, &arguments, &error)) {
        fprintf(stderr, "%s", kUsage);
        return Failure(error);
    }
    if (arguments.help) {
        Print(kUsage);
        return 0;
    }
    const std::vector<std::wstring>& words = arguments.positional;
    const bool showProblems = words.size() == 1 && words[0] == L"problems";
    QueryClient::ProblemDevices problems(QueryClient::ProblemDevices::DefaultPath());
    // --no-remember only stops queries from skipping and remembering devices; the list is still
    // read to be forgotten or shown.
    if (arguments.remember || arguments.forget || showProblems) {
        problems.Load();
    }
    if (arguments.forget) {
        problems.ForgetAll();
        if (!problems.Save()) {
            return Failure("could not write " + QueryTool::ToUtf8(problems.Path()));
        }
        if (words.empty()) {
            return 0;
        }
    }
    if (arguments.remember) {
        arguments.options.problemDevices = &problems;
    }
    if (showProblems) {
        Print(QueryTool::ProblemTable(problems.Entries()));
        return 0;
    }
    QueryClient::Client client(arguments.options);
    if (words.size() == 1 && (words[0] == L"devices" || words[0] == L"analog")) {
        return ListDevices(client, words[0] == L"analog", arguments.json);
    }
    if ((words.size() == 2 || words.size() == 3) && words[0] == L"formats") {
        return ListFormats(client, words[1], words.size() == 3 ? words[2] : std::wstring(),
                           arguments.json);
    }
    if (words.size() == 1 && words[0] == L"list") {
        return ListDevicesWithModes(client, arguments.json);
    }
    fprintf(stderr, "%s", kUsage);
    return Failure("expected one command: devices, analog, formats <device_id>, list or problems");
}
