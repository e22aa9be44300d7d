// A misbehaving stand-in for the query server, for the client's fault tests. It speaks the same
// rendezvous (event, then pipe) and takes the same arguments, but breaks the rendezvous in the way
// its `method` names:
//   hang               never wakes the parent
//   exit               exits with code 3 before waking the parent
//   no-pipe            wakes the parent without ever creating the pipe, then exits
//   stall              wakes the parent, sends one id line, then never ends the stream
//   half-unit          sends one line and a single further byte, then ends normally
//   unpaired           sends an id line without its name line, then ends normally
//   crash              sends one device, then dies of an access violation
//   drop-reply         behaves as a server whose connect failed: wakes twice, sends nothing
//   lines              sends `device_id` devices "id<k>"/"name<k>" and ends normally
//   json               sends `device_id` as narrow text, as the format reply does, and ends
#include "protocol/QueryProtocol.h"

#include <windows.h>

#include <cwchar>
#include <initializer_list>
#include <string>

namespace {

HANDLE g_pipe = INVALID_HANDLE_VALUE;
HANDLE g_event = nullptr;

void Open(const std::wstring& id) {
    g_pipe = CreateNamedPipeW((QueryProtocol::kPipeNamePrefix + id).c_str(), PIPE_ACCESS_DUPLEX, 0,
                              1, 16384, 16384, 3000, nullptr);
    g_event = OpenEventW(EVENT_MODIFY_STATE, FALSE, (QueryProtocol::kEventNamePrefix + id).c_str());
}

void WakeAndAccept() {
    SetEvent(g_event);
    ConnectNamedPipe(g_pipe, nullptr);
}

void WriteText(const std::wstring& text) {
    DWORD written = 0;
    WriteFile(g_pipe, text.data(), static_cast<DWORD>(text.size() * sizeof(wchar_t)), &written,
              nullptr);
}

// Device-list lines, each ended as the real server ends them.
void WriteLines(std::initializer_list<std::wstring> lines) {
    std::wstring text;
    for (const std::wstring& line : lines) {
        text += line + QueryProtocol::kLineEnd;
    }
    WriteText(text);
}

void EndStream() {
    FlushFileBuffers(g_pipe);
    DisconnectNamedPipe(g_pipe);
    CloseHandle(g_pipe);
}

}  // namespace

std::wstring ArgumentValue(int argc, wchar_t** argv, const std::wstring& key) {
    const std::wstring prefix = key + QueryProtocol::kKeyValueSeparator;
    for (int index = 1; index < argc; ++index) {
        if (std::wcsncmp(argv[index], prefix.c_str(), prefix.size()) == 0) {
            return argv[index] + prefix.size();
        }
    }
    return std::wstring();
}

int wmain(int argc, wchar_t** argv) {
    const std::wstring mode = ArgumentValue(argc, argv, QueryProtocol::kKeyMethod);
    const std::wstring id = ArgumentValue(argc, argv, QueryProtocol::kKeyId);
    if (mode == L"exit") {
        return 3;
    }
    Open(id);
    if (mode == L"hang") {
        Sleep(INFINITE);
    }
    if (mode == L"no-pipe") {
        CloseHandle(g_pipe);
        SetEvent(g_event);
        return 0;
    }
    if (mode == L"drop-reply") {
        SetEvent(g_event);
        // Returns once the parent has opened the pipe, whether it came before this call (the
        // race the real server can lose) or after: the reply is dropped only once it is there,
        // however slowly the parent wakes.
        ConnectNamedPipe(g_pipe, nullptr);
        SetEvent(g_event);
        EndStream();
        return 0;
    }
    WakeAndAccept();
    if (mode == L"stall") {
        WriteLines({L"id"});
        Sleep(INFINITE);
    } else if (mode == L"half-unit") {
        WriteLines({L"id"});
        DWORD written = 0;
        WriteFile(g_pipe, "n", 1, &written, nullptr);
    } else if (mode == L"unpaired") {
        WriteLines({L"id0", L"name0", L"id1"});
    } else if (mode == L"crash") {
        WriteLines({L"id0", L"name0"});
        FlushFileBuffers(g_pipe);
        volatile int* nowhere = nullptr;
        *nowhere = 1;
    } else if (mode == L"json") {
        const std::wstring text = ArgumentValue(argc, argv, QueryProtocol::kKeyDeviceId);
        const std::string narrow(text.begin(), text.end());
        DWORD written = 0;
        WriteFile(g_pipe, narrow.data(), static_cast<DWORD>(narrow.size()), &written, nullptr);
    } else if (mode == L"lines") {
        const int count = _wtoi(ArgumentValue(argc, argv, QueryProtocol::kKeyDeviceId).c_str());
        for (int index = 0; index < count; ++index) {
            WriteLines({L"id" + std::to_wstring(index), L"name" + std::to_wstring(index)});
        }
    }
    EndStream();
    return 0;
}
