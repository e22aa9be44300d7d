#pragma once

#include "client/QueryClient.h"

#include <windows.h>

namespace TestSupport {

// The deadline of a query through the real server in a test. The client's default suits a user's
// machine; a test machine loaded by parallel builds can take many times longer to start a Wine
// process and load a driver, and there a deadline must only end a hang.
constexpr DWORD kGenerousDeadlineMs = 60000;

// What a test that does run into a short deadline allows on top of it: ending the server and
// collecting it, on a loaded machine. Still well below the hangs those tests provoke.
constexpr DWORD kDeadlineMarginMs = 30000;

// The client's options with the generous deadline, for every test that does not test the
// deadline itself.
inline QueryClient::QueryOptions GenerousOptions() {
    QueryClient::QueryOptions options;
    options.timeoutMs = kGenerousDeadlineMs;
    return options;
}

}  // namespace TestSupport
