// The whole query as a parent sees it, from starting the server to the end of the stream, for
// each method against the default virtual camera; beside it, in the same run, the floor: the
// same client against FloorServer.exe, which makes only the platform calls the query needs.
// Prints both and their ratio.
#include "bench/BenchClock.h"
#include "client/QueryClient.h"
#include "TinyFramework/Common/TinyTextConversion.h"
#include "protocol/QueryProtocol.h"

#include <windows.h>

#include <algorithm>
#include <cstdio>
#include <cwchar>
#include <string>
#include <vector>

namespace {

struct Method {
    const wchar_t* method;
    bool withDevice;
};

struct Timing {
    double mean = 0;
    double p50 = 0;
    double p99 = 0;
    double perSecond = 0;
    int failures = 0;
    std::vector<uint8_t> lastReply;
};

std::wstring BesideThisProgram(const wchar_t* name) {
    const std::wstring server = QueryClient::DefaultServerPath();
    return server.substr(0, server.size() - wcslen(L"QueryServer.exe")) + name;
}

Timing Run(const std::wstring& server, const Method& method, const std::wstring& deviceId,
           int queries) {
    QueryClient::QueryOptions options;
    options.serverPath = server;
    QueryClient::Client client(options);
    std::vector<double> samples;
    Timing timing;
    const double runStart = NowMs();
    for (int index = 0; index < queries; ++index) {
        const double start = NowMs();
        const QueryClient::RawReply reply =
            client.Query(method.method, method.withDevice ? deviceId : std::wstring());
        samples.push_back(NowMs() - start);
        if (reply.outcome != QueryClient::Outcome::Ok) {
            ++timing.failures;
        }
        timing.lastReply = reply.bytes;
    }
    timing.perSecond = 1000.0 * queries / (NowMs() - runStart);
    std::sort(samples.begin(), samples.end());
    for (double sample : samples) {
        timing.mean += sample / queries;
    }
    timing.p50 = samples[samples.size() / 2];
    timing.p99 = samples[std::min(samples.size() - 1, samples.size() * 99 / 100)];
    return timing;
}

void PrintRow(const char* label, const char* server, const Timing& timing) {
    printf("%-22s %-7s %9.1f %9.1f %9.1f %9.2f\n", label, server, timing.mean, timing.p50,
           timing.p99, timing.perSecond);
}

}  // namespace

int wmain(int argc, wchar_t** argv) {
    const int queries = argc > 1 ? std::max(3, _wtoi(argv[1])) : 30;
    const QueryClient::DeviceListReply devices = QueryClient::Client().GetVideoDevices();
    if (devices.outcome != QueryClient::Outcome::Ok || devices.devices.empty()) {
        fprintf(stderr,
                "QueryBench: no device to query; register the default virtual camera first\n");
        return 1;
    }
    const std::wstring deviceId = devices.devices.front().id;
    const std::wstring realServer = QueryClient::DefaultServerPath();
    const std::wstring floorServer = BesideThisProgram(L"FloorServer.exe");
    const Method methods[] = {{QueryProtocol::kMethodVideoDevices, false},
                              {QueryProtocol::kMethodAnalogDevices, false},
                              {QueryProtocol::kMethodDeviceFormats, true}};
    printf(
        "whole query, client start to end of stream: %d queries per method and server, one "
        "after another\n",
        queries);
    printf("%-22s %-7s %9s %9s %9s %9s\n", "method", "server", "mean ms", "p50 ms", "p99 ms",
           "queries/s");
    int status = 0;
    for (const Method& method : methods) {
        Run(realServer, method, deviceId, 2);  // warm the file cache and the prefix
        const Timing real = Run(realServer, method, deviceId, queries);
        const Timing floor = Run(floorServer, method, deviceId, queries);
        const bool same = real.lastReply == floor.lastReply;
        PrintRow(TinyFramework::ToUtf8(method.method).c_str(), "query", real);
        PrintRow("", "floor", floor);
        printf("%-22s %-7s %8.2fx %8.2fx %8.2fx %8.2fx   same reply: %s\n", "", "ratio",
               real.mean / floor.mean, real.p50 / floor.p50, real.p99 / floor.p99,
               real.perSecond / floor.perSecond, same ? "yes" : "NO");
        if (real.failures + floor.failures > 0 || !same) {
            status = 1;
        }
    }
    return status;
}
