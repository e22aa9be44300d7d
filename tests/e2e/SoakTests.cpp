// Many queries in a row and in parallel against three virtual cameras: every reply correct, no
// server left running, and the client's handles and memory flat once warmed up. SOAK_QUERIES sets
// the length of the serial soak and turns the parallel one up to eight clients (scripts/soak.sh
// runs 1000); without it, CI runs short ones that fit a slow machine's time limit per test.
#include "DShowCapture/DeviceEnumeration.h"
#include "DShowCapture/VideoCapture.h"
#include "client/QueryClient.h"
#include "protocol/QueryProtocol.h"
#include "server/FormatReply.h"
#include "tests/support/RawParent.h"
#include "tests/e2e/CameraTest.h"

#include <gtest/gtest.h>

#include <objbase.h>
#include <psapi.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <set>
#include <thread>

namespace {

using QueryClient::Outcome;

constexpr int kDefaultSoakQueries = 24;
constexpr int kWarmUpQueries = 15;
// The parallel soak: small in CI, eight clients for the long run.
constexpr int kDefaultParallelClients = 4;
constexpr int kDefaultQueriesPerClient = 3;
constexpr int kSoakParallelClients = 8;
// Growth allowed after warm-up: a few handles and a little heap that the runtime keeps.
constexpr DWORD kHandleSlack = 8;
constexpr SIZE_T kPrivateBytesSlack = 2 * 1024 * 1024;

struct Expected {
    std::vector<uint8_t> videoDevices;
    std::vector<uint8_t> analogDevices;
    std::vector<std::string> formats;  // one per camera, by camera index
};

const wchar_t* const kCameraIds[] = {L"soak-a", L"soak-b", L"soak-c"};

// The length that SOAK_QUERIES asks for, 0 when it asks for none.
int RequestedSoakQueries() {
    const char* text = std::getenv("SOAK_QUERIES");
    const int count = text != nullptr ? std::atoi(text) : 0;
    return std::max(count, 0);
}

int SoakQueries() {
    return RequestedSoakQueries() > 0 ? RequestedSoakQueries() : kDefaultSoakQueries;
}

int ParallelClients() {
    return RequestedSoakQueries() > 0 ? kSoakParallelClients : kDefaultParallelClients;
}

// The long run shares its length among the parallel clients.
int QueriesPerParallelClient() {
    return RequestedSoakQueries() > 0
               ? std::max(kDefaultQueriesPerClient, RequestedSoakQueries() / kSoakParallelClients)
               : kDefaultQueriesPerClient;
}

std::vector<uint8_t> DeviceBytes(bool analog) {
    std::vector<DShow::VideoDevice> devices;
    analog ? DShow::GetAnalogDevices(devices) : DShow::GetVideoDevices(devices);
    std::vector<QueryClient::Device> list;
    for (const DShow::VideoDevice& device : devices) {
        list.push_back(QueryClient::Device{device.id, device.name});
    }
    return QueryClient::EncodeDeviceList(list);
}

std::string FormatsJson(const std::wstring& id) {
    std::vector<DShow::VideoFormat> formats;
    DShow::VideoCapture::GetDeviceFormats(DShow::VideoDevice(std::wstring(L"x"), std::wstring(id)),
                                          formats);
    return QueryServer::FormatsToJson(formats);
}

// One query of the mix, checked against what this process finds itself. Returns the id used.
std::wstring QueryAndCheck(QueryClient::Client& client, int index, const Expected& expected) {
    const int kind = index % 5;
    QueryClient::RawReply reply;
    if (kind < 2) {
        reply = client.Query(kind == 0 ? QueryProtocol::kMethodVideoDevices
                                       : QueryProtocol::kMethodAnalogDevices);
        EXPECT_EQ(reply.bytes, kind == 0 ? expected.videoDevices : expected.analogDevices)
            << "query " << index;
    } else {
        reply = client.Query(QueryProtocol::kMethodDeviceFormats, kCameraIds[kind - 2], L"Soak");
        EXPECT_EQ(std::string(reply.bytes.begin(), reply.bytes.end()), expected.formats[kind - 2])
            << "query " << index;
    }
    EXPECT_EQ(reply.outcome, Outcome::Ok) << "query " << index << ": " << reply.detail;
    EXPECT_EQ(reply.serverExitCode, 0u) << "query " << index;
    return reply.id;
}

struct Usage {
    DWORD handles = 0;
    SIZE_T privateBytes = 0;
};

// Open handles of this process. Wine answers GetProcessHandleCount with 0 (no process has no
// handle on Windows); there, the lowest free handle slot stands in for the count: a handle that
// leaks keeps its slot for good, so leaks push the next new handle's value up.
DWORD OpenHandles() {
    DWORD count = 0;
    if (GetProcessHandleCount(GetCurrentProcess(), &count) && count > 0) {
        return count;
    }
    const HANDLE probe = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    CloseHandle(probe);
    return static_cast<DWORD>(reinterpret_cast<uintptr_t>(probe) / 4);
}

// Private committed bytes; Wine fills PagefileUsage, which on Windows is the same figure.
SIZE_T PrivateBytes() {
    PROCESS_MEMORY_COUNTERS_EX counters = {};
    GetProcessMemoryInfo(GetCurrentProcess(), reinterpret_cast<PROCESS_MEMORY_COUNTERS*>(&counters),
                         sizeof(counters));
    return counters.PrivateUsage != 0 ? counters.PrivateUsage : counters.PagefileUsage;
}

Usage CurrentUsage() {
    return Usage{OpenHandles(), PrivateBytes()};
}

TEST(SoakMeasures, SeeLeakedHandlesAndMemory) {
    const Usage before = CurrentUsage();
    ASSERT_GT(before.handles, 0u);
    ASSERT_GT(before.privateBytes, 0u);
    std::vector<HANDLE> leaked;
    for (int index = 0; index < 20; ++index) {
        leaked.push_back(CreateEventW(nullptr, FALSE, FALSE, nullptr));
    }
    std::vector<char> memory(8 * 1024 * 1024, 1);
    const Usage after = CurrentUsage();
    EXPECT_GE(after.handles, before.handles + 20);
    EXPECT_GE(after.privateBytes, before.privateBytes + memory.size() / 2);
    for (HANDLE handle : leaked) {
        CloseHandle(handle);
    }
}

class Soak : public CameraTest {
protected:
    void SetUp() override {
        CameraTest::SetUp();
        AddDevices(
            L"[device soak-a]\nFriendlyName = Soak A\nDevicePath = soak-a\n"
            L"mode = YUY2 videoinfo 640 480 333333\nmode = MJPG videoinfo 1280 720 333333\n"
            L"[device soak-b]\nFriendlyName = Soak B\nDevicePath = soak-b\nmediums = zero,analog\n"
            L"mode = NV12 videoinfo 320 240 400000\nmode = NV12 videoinfo 160 120 400000\n"
            L"mode = RGB24 videoinfo 640 -480 0 min_interval=333333 max_interval=2000000\n"
            L"[device soak-c]\nFriendlyName = Soak \u00c7\nDevicePath = soak-c\n"
            L"mode = I420 videoinfo 1920 1080 666666\n");
        m_expected.videoDevices = DeviceBytes(false);
        m_expected.analogDevices = DeviceBytes(true);
        for (const wchar_t* id : kCameraIds) {
            m_expected.formats.push_back(FormatsJson(id));
        }
        ASSERT_FALSE(m_expected.videoDevices.empty());
        ASSERT_FALSE(m_expected.analogDevices.empty());
    }
    Expected m_expected;
};

TEST_F(Soak, QueriesInARowStayCorrectAndFlat) {
    const int queries = SoakQueries();
    QueryClient::Client client(TestSupport::GenerousOptions());
    Usage warm;
    for (int index = 0; index < queries; ++index) {
        QueryAndCheck(client, index, m_expected);
        if (index + 1 == kWarmUpQueries) {
            warm = CurrentUsage();
        }
        ASSERT_FALSE(HasFailure()) << "stopped at query " << index;
    }
    const Usage end = CurrentUsage();
    printf(
        "soak: %d queries; handles %lu after warm-up, %lu at the end; private bytes %zu after "
        "warm-up, %zu at the end\n",
        queries, warm.handles, end.handles, static_cast<size_t>(warm.privateBytes),
        static_cast<size_t>(end.privateBytes));
    EXPECT_LE(end.handles, warm.handles + kHandleSlack)
        << "handles after warm-up " << warm.handles << ", at the end " << end.handles;
    EXPECT_LE(end.privateBytes, warm.privateBytes + kPrivateBytesSlack)
        << "private bytes after warm-up " << warm.privateBytes << ", at the end "
        << end.privateBytes;
}

TEST_F(Soak, ClientsInParallelWithDistinctIds) {
    const int clients = ParallelClients();
    const int queriesEach = QueriesPerParallelClient();
    std::mutex lock;
    std::set<std::wstring> ids;
    std::vector<std::thread> threads;
    for (int clientIndex = 0; clientIndex < clients; ++clientIndex) {
        threads.emplace_back([&, clientIndex] {
            CoInitializeEx(nullptr, COINIT_MULTITHREADED);
            QueryClient::Client client(TestSupport::GenerousOptions());
            for (int query = 0; query < queriesEach; ++query) {
                const std::wstring id = QueryAndCheck(client, clientIndex + query, m_expected);
                std::lock_guard<std::mutex> hold(lock);
                ids.insert(id);
            }
            CoUninitialize();
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(ids.size(), static_cast<size_t>(clients * queriesEach));
}

}  // namespace
