// How long the client should pause between the server's event and opening its pipe.
//
// The server sets its event just before it starts accepting the pipe's client; a client that
// opens the pipe in that instant makes the server drop its reply. For each pause this runs the
// same device-list query many times with the retry switched off, and prints how often the reply
// was lost and what a query costs, beside the pause of 0 ms as the baseline of the same run.
#include "bench/BenchClock.h"
#include "client/QueryClient.h"

#include <windows.h>

#include <algorithm>
#include <cstdio>
#include <cwchar>
#include <vector>

namespace {

struct PauseResult {
    DWORD pauseMs = 0;
    int queries = 0;
    int lost = 0;
    int failed = 0;
    double meanMs = 0;
};

PauseResult Measure(DWORD pauseMs, int queries) {
    QueryClient::QueryOptions options;
    options.connectPauseMs = pauseMs;
    options.retryLostReply = false;
    QueryClient::Client client(options);
    PauseResult result;
    result.pauseMs = pauseMs;
    result.queries = queries;
    const double start = NowMs();
    for (int index = 0; index < queries; ++index) {
        const QueryClient::DeviceListReply reply = client.GetVideoDevices();
        if (reply.outcome == QueryClient::Outcome::ReplyLost) {
            ++result.lost;
        } else if (reply.outcome != QueryClient::Outcome::Ok || reply.devices.empty()) {
            ++result.failed;
        }
    }
    result.meanMs = (NowMs() - start) / queries;
    return result;
}

}  // namespace

int wmain(int argc, wchar_t** argv) {
    const int queries = argc > 1 ? std::max(1, _wtoi(argv[1])) : 40;
    const DWORD pauses[] = {0, 1, 2, 5, 10};
    std::vector<PauseResult> results;
    for (DWORD pause : pauses) {
        results.push_back(Measure(pause, queries));
    }
    const double baseline = results.front().meanMs;
    printf("connect pause: %d GetVideoDevices queries per pause, retry off\n", queries);
    printf("%8s %10s %8s %12s %10s\n", "pause", "lost", "failed", "mean ms", "vs 0 ms");
    for (const PauseResult& result : results) {
        printf("%6lu ms %6d/%-3d %8d %12.2f %9.2fx\n", result.pauseMs, result.lost, result.queries,
               result.failed, result.meanMs, result.meanMs / baseline);
    }
    return 0;
}
