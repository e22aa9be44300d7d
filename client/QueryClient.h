#pragma once

#include "client/DeviceList.h"
#include "client/FormatList.h"
#include "client/ProblemDevices.h"
#include "client/QueryOutcome.h"

#include <windows.h>

#include <cstdint>
#include <string>
#include <vector>

namespace QueryClient {

// Fills `buffer` with random bytes and returns an NTSTATUS: negative when it failed.
using RandomSource = LONG (*)(uint8_t* buffer, ULONG size);

// The system's cryptographic random source: BCryptGenRandom with the preferred generator.
LONG SystemRandom(uint8_t* buffer, ULONG size);

struct QueryOptions {
    // The server executable; empty means QueryServer.exe beside the running program.
    std::wstring serverPath;
    // Deadline of the whole query, retry included. On expiry the server is ended.
    DWORD timeoutMs = 10000;
    // Pause between the server's event and opening its pipe. The server sets its event just
    // before it starts accepting the pipe's client, and a client that opens the pipe in between
    // makes it drop the reply. Measured under Wine (bench/ConnectPauseBench): without a pause
    // about half the replies are lost; with 1 or 2 ms none in 100, at no cost that stands out
    // of the noise of a ~90 ms query; 5 ms and more begin to show. A lost reply is still
    // detected and retried.
    DWORD connectPauseMs = 2;
    // Retry once when the server reports that it dropped its reply.
    bool retryLostReply = true;
    // Deadline of one format query, which loads one device's driver; 0 means timeoutMs.
    DWORD formatTimeoutMs = 0;
    // When set, format queries leave the devices in this list alone, and a device whose query
    // hangs or crashes the server is added to it (and the list saved). Not owned.
    ProblemDevices* problemDevices = nullptr;
    // Where the ids of queries come from. Only tests replace it: the system's source does not
    // fail in practice, yet a query must end cleanly if it ever does.
    RandomSource randomSource = SystemRandom;
};

// The bytes of one query and how it ended.
struct RawReply {
    Outcome outcome = Outcome::Ok;
    std::string detail;          // one line for a person when the outcome is not Ok
    std::vector<uint8_t> bytes;  // everything read, also when the query failed half-way
    DWORD serverExitCode = STILL_ACTIVE;
    int attempts = 0;
    std::wstring id;  // the id of the last attempt
};

struct DeviceListReply {
    Outcome outcome = Outcome::Ok;
    std::string detail;
    std::vector<Device> devices;  // the complete pairs that arrived
};

struct FormatListReply {
    Outcome outcome = Outcome::Ok;
    std::string detail;
    std::vector<Mode> modes;
    std::string json;  // the reply as it came
};

// The parent's side of the query server: starts it, waits for it, reads its reply.
class Client {
public:
    explicit Client(QueryOptions options = QueryOptions());

    DeviceListReply GetVideoDevices();
    DeviceListReply GetAnalogDevices();
    // The modes of the device with this id. The name is passed along and changes nothing.
    // Within formatTimeoutMs, and minding the problem devices when the options name a list.
    FormatListReply GetDeviceFormats(const std::wstring& deviceId,
                                     const std::wstring& deviceName = std::wstring());

    // One query with a fresh random id; `method` and the device values become the arguments.
    RawReply Query(const std::wstring& method, const std::wstring& deviceId = std::wstring(),
                   const std::wstring& deviceName = std::wstring());
    // The same within another deadline than the options'.
    RawReply QueryWithin(DWORD timeoutMs, const std::wstring& method, const std::wstring& deviceId,
                         const std::wstring& deviceName);

    // One attempt with the arguments exactly as given, and the pipe and event names built from
    // `id` whether or not the arguments pass it. No retry. For tests and diagnosis.
    RawReply QueryRaw(const std::vector<std::wstring>& arguments, const std::wstring& id);

    const QueryOptions& Options() const { return m_options; }

private:
    DeviceListReply GetDevices(const wchar_t* method);

    QueryOptions m_options;
};

// The device list of a reply: a cut stream is a malformed reply when the query itself went well,
// and the complete pairs before the cut are kept whatever the outcome.
DeviceListReply ToDeviceListReply(const RawReply& raw);

// The modes of a reply: text that does not decode is a malformed reply when the query itself
// went well.
FormatListReply ToFormatListReply(const RawReply& raw);

struct RandomId {
    std::wstring text;  // 16 hexadecimal digits; empty when the source failed
    LONG status = 0;    // what the source returned: negative when it failed
};

// A fresh id from a cryptographic random source, so that the names of a query's pipe and event
// cannot be guessed in advance.
RandomId MakeRandomId(RandomSource source = SystemRandom);

// QueryServer.exe in the directory of the running program.
std::wstring DefaultServerPath();

}  // namespace QueryClient
