// Generated command lines against the real QueryServer.exe: whatever the arguments, each run
// ends, with an empty stream or the correct one, and exits with 0.
#include "client/QueryClient.h"
#include "client/ServerProcess.h"
#include "protocol/QueryProtocol.h"
#include "tests/support/ArgumentGenerator.h"
#include "tests/support/RawParent.h"
#include "tests/e2e/CameraTest.h"

#include <gtest/gtest.h>

namespace {

// Past this the system refuses to start a process with the command line at all.
constexpr size_t kCommandLineLimit = 32767;
constexpr size_t kLongCommandLine = 16384;
// Each run starts a Wine process: a few dozen keep the kinds of command lines the generator makes
// while the argument reader itself meets thousands of them in the server's own tests.
constexpr int kRounds = 36;

size_t CommandLineLength(const std::vector<std::wstring>& arguments) {
    size_t length = QueryClient::DefaultServerPath().size() + 2;
    for (const std::wstring& argument : arguments) {
        length += QueryClient::QuoteArgument(argument).size() + 1;
    }
    return length;
}

// One raw query with a fresh id as the last argument (the last usable id wins, so the names are
// known). The raw path does not retry, and on a loaded machine the parent can still open the pipe
// in the instant between the server's event and its connect, which makes the server drop its
// reply by design; such a run says nothing about the arguments, so it is made again. Wine's
// CreateProcess also fails now and then with error 1359 on a busy machine for a command line it
// starts the next time; only a refusal that stays is the command line's.
QueryClient::RawReply QueryUntilNotLost(QueryClient::Client& client,
                                        const std::vector<std::wstring>& arguments) {
    constexpr int kAttempts = 10;
    QueryClient::RawReply reply;
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        const std::wstring id = QueryClient::MakeRandomId().text;
        std::vector<std::wstring> withId = arguments;
        withId.push_back(L"id=" + id);
        reply = client.QueryRaw(withId, id);
        if (reply.outcome != QueryClient::Outcome::ReplyLost &&
            reply.outcome != QueryClient::Outcome::ServerNotStarted) {
            break;
        }
    }
    return reply;
}

// With no device at all, every device list is empty and every format list is "[]".
class HostileServerArguments : public CameraTest {};

TEST_F(HostileServerArguments, EveryRunEndsWithAnEmptyOrCorrectStream) {
    std::mt19937 random(7011);
    QueryClient::Client client(TestSupport::GenerousOptions());
    int formatQueries = 0;
    int refusedLongLines = 0;
    for (int round = 0; round < kRounds; ++round) {
        std::vector<std::wstring> arguments = ArgumentGenerator::CommandLine(random);
        arguments.erase(arguments.begin());  // the program path is the client's to give
        if (round % 3 == 0) {
            // Real methods among the noise, at a random place; a later argument may still win.
            const wchar_t* methods[] = {L" method = GetVideoDeviceFormats ",
                                        L"method=GetVideoDevices", L"method=GetAnalogDevices"};
            const size_t at = std::uniform_int_distribution<size_t>(0, arguments.size())(random);
            arguments.insert(arguments.begin() + at, methods[round / 3 % 3]);
        }
        std::vector<std::wstring> argv = {QueryClient::DefaultServerPath()};
        argv.insert(argv.end(), arguments.begin(), arguments.end());
        const std::wstring method = ArgumentGenerator::ModelValues(argv)[L"method"];

        const QueryClient::RawReply reply = QueryUntilNotLost(client, arguments);
        arguments.push_back(L"id=" + reply.id);
        const size_t length = CommandLineLength(arguments);
        if (length > kCommandLineLimit) {
            EXPECT_EQ(reply.outcome, QueryClient::Outcome::ServerNotStarted) << round;
            continue;
        }
        // Wine refuses some long command lines below that limit when they hold much non-ASCII
        // text (error 1359); the parent must then get that clear outcome, nothing worse.
        if (length > kLongCommandLine && reply.outcome == QueryClient::Outcome::ServerNotStarted) {
            ++refusedLongLines;
            continue;
        }
        ASSERT_EQ(reply.outcome, QueryClient::Outcome::Ok) << round << ": " << reply.detail;
        EXPECT_EQ(reply.serverExitCode, 0u) << round;
        const std::string text(reply.bytes.begin(), reply.bytes.end());
        if (method == QueryProtocol::kMethodDeviceFormats) {
            ++formatQueries;
            EXPECT_EQ(text, "[]") << round;
        } else {
            EXPECT_TRUE(text.empty()) << round;
        }
    }
    EXPECT_GT(formatQueries, 0) << "the generator never reached the format method";
    EXPECT_LT(refusedLongLines, kRounds / 2) << "most command lines must reach the server";
}

}  // namespace
