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
#include "server/QueryProtocol.h"

#include <windows.h>

#include <cwchar>
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

void EndStream() {
    FlushFileBuffers(g_pipe);
    DisconnectNamedPipe(g_pipe);
    CloseHandle(g_pipe);
}

}  // namespace

std::wstring ArgumentValue(int argc, wchar_t** argv, const std::wstring& key) {
    const std::wstring prefix = key + L"=";
    for (int index = 1; index < argc; ++index) {
        if (std::wcsncmp(argv[index], prefix.c_str(), prefix.size()) == 0) {
            return argv[index] + prefix.size();
        }
    }
    return std::wstring();
}

int wmain(int argc, wchar_t** argv) {
    const std::wstring mode = ArgumentValue(argc, argv, L"method");
    const std::wstring id = ArgumentValue(argc, argv, L"id");
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
        Sleep(50);  // the parent connects meanwhile, as in the race the real server can lose
        SetEvent(g_event);
        EndStream();
        return 0;
    }
    WakeAndAccept();
    if (mode == L"stall") {
        WriteText(L"id\n");
        Sleep(INFINITE);
    } else if (mode == L"half-unit") {
        WriteText(L"id\n");
        DWORD written = 0;
        WriteFile(g_pipe, "n", 1, &written, nullptr);
    } else if (mode == L"unpaired") {
        WriteText(L"id0\nname0\nid1\n");
    } else if (mode == L"crash") {
        WriteText(L"id0\nname0\n");
        FlushFileBuffers(g_pipe);
        volatile int* nowhere = nullptr;
        *nowhere = 1;
    } else if (mode == L"json") {
        const std::wstring text = ArgumentValue(argc, argv, L"device_id");
        const std::string narrow(text.begin(), text.end());
        DWORD written = 0;
        WriteFile(g_pipe, narrow.data(), static_cast<DWORD>(narrow.size()), &written, nullptr);
    } else if (mode == L"lines") {
        const int count = _wtoi(ArgumentValue(argc, argv, L"device_id").c_str());
        for (int index = 0; index < count; ++index) {
            WriteText(L"id" + std::to_wstring(index) + L"\nname" + std::to_wstring(index) + L"\n");
        }
    }
    EndStream();
    return 0;
}
