// The device-list reply over a real pipe, the test playing the parent.
#include "server/DeviceListReply.h"
#include "tests/support/LogCapture.h"
#include "tests/support/RawParent.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

namespace {

using DShow::VideoDevice;
using TestSupport::RawParent;
using TestSupport::Utf16Bytes;

// How long the parent waits for a step of the reply: only a hang reaches it, also on a machine
// loaded many times over.
constexpr DWORD kWaitMs = 60000;
// The parent's pause between the wake and opening the pipe, as a parent makes it.
constexpr DWORD kConnectPauseMs = 5;

std::wstring UniqueId() {
    static std::atomic<int> counter{0};
    return L"list-" + std::to_wstring(GetCurrentProcessId()) + L"-" + std::to_wstring(counter++);
}

VideoDevice Device(const std::wstring& name, const std::wstring& id) {
    return VideoDevice(std::wstring(name), std::wstring(id));
}

// The server's side of one device-list reply, on its own thread.
struct ListRun {
    explicit ListRun(std::vector<VideoDevice> devices) : parent(UniqueId()) {
        EXPECT_TRUE(channel.pipe.Create(parent.PipeName().c_str()));
        EXPECT_TRUE(channel.readyEvent.Open(0, 0, parent.EventName().c_str()));
        list = std::move(devices);
    }
    void Start() {
        server = std::thread([this] {
            QueryServer::SendDeviceList(channel, list);
            channel.Close();
        });
    }
    std::vector<uint8_t> ReadAsParent() {
        std::vector<uint8_t> bytes;
        EXPECT_TRUE(parent.WaitForEvent(kWaitMs));
        Sleep(kConnectPauseMs);
        EXPECT_TRUE(parent.OpenPipe(kWaitMs));
        EXPECT_TRUE(parent.ReadToEnd(kWaitMs, &bytes));
        server.join();
        return bytes;
    }
    RawParent parent;
    QueryServer::ReplyChannel channel;
    std::vector<VideoDevice> list;
    std::thread server;
};

// A parent that opens the pipe between the server's wake and its connect loses the reply by
// design, and the server wakes it a second time. The parent's pause after the wake makes that
// rare; on a loaded machine a server slower than the pause still makes it happen, and such a run
// shows nothing of the reply: it is made again, up to this many times.
constexpr int kRunAttempts = 10;

// Whether the parent's one wake was its last, asked once the run has ended.
bool WasServed(RawParent& parent) {
    return !parent.WaitForEvent(0);
}

void ReportEveryRunLost() {
    ADD_FAILURE() << "the parent was woken twice and lost the reply in each of " << kRunAttempts
                  << " runs";
}

// The bytes a parent reads of the reply of `devices`, from the first run it was served in.
std::vector<uint8_t> ServedReply(const std::vector<VideoDevice>& devices) {
    for (int attempt = 0; attempt < kRunAttempts; ++attempt) {
        ListRun run(devices);
        run.Start();
        std::vector<uint8_t> bytes = run.ReadAsParent();
        if (WasServed(run.parent)) {
            return bytes;
        }
    }
    ReportEveryRunLost();
    return {};
}

TEST(DeviceListReplyTest, OneDeviceIsItsIdAndNameAsUtf16Lines) {
    EXPECT_EQ(ServedReply({Device(L"B", L"A")}),
              (std::vector<uint8_t>{0x41, 0, 0x0A, 0, 0x42, 0, 0x0A, 0}));
}

TEST(DeviceListReplyTest, ZeroDevicesWakeTheParentAtCloseWithAnEmptyStream) {
    EXPECT_TRUE(ServedReply({}).empty());
}

TEST(DeviceListReplyTest, OrderDuplicatesAndSameTextLinesAreKept) {
    EXPECT_EQ(ServedReply({Device(L"Cam", L"Cam"), Device(L"One", L"x"), Device(L"Two", L"x")}),
              Utf16Bytes(L"Cam\nCam\nx\nOne\nx\nTwo\n"));
}

TEST(DeviceListReplyTest, LineLongerThanThePipeBufferArrivesWhole) {
    const std::wstring longName(20000, L'n');
    EXPECT_EQ(ServedReply({Device(longName, L"id")}), Utf16Bytes(L"id\n" + longName + L"\n"));
}

TEST(DeviceListReplyTest, NonAsciiNamesGoOutAsUtf16) {
    const std::wstring name = L"Cam\u00e9ra \u6444\u50cf\u5934";
    EXPECT_EQ(ServedReply({Device(name, L"\\\\?\\usb#\u00e9")}),
              Utf16Bytes(L"\\\\?\\usb#\u00e9\n" + name + L"\n"));
}

TEST(DeviceListReplyTest, ParentConnectedTooEarlyGetsNoLineAndASecondWake) {
    TestSupport::LogCapture capture;
    ListRun run({Device(L"B", L"A"), Device(L"D", L"C")});
    ASSERT_TRUE(run.parent.OpenPipe(kWaitMs));
    run.Start();
    std::vector<uint8_t> bytes;
    EXPECT_TRUE(run.parent.ReadToEnd(kWaitMs, &bytes));
    run.server.join();
    EXPECT_TRUE(bytes.empty());
    EXPECT_TRUE(run.parent.WaitForEvent(0)) << "the event was set again by Close";
    EXPECT_TRUE(capture.RecordsContaining("Failed to WriteFile(").empty());
}

TEST(DeviceListReplyTest, WriteFailureStopsTheListWithOneRecord) {
    std::vector<VideoDevice> devices;
    for (int index = 0; index < 50; ++index) {
        devices.push_back(Device(std::wstring(4000, L'n'), L"id" + std::to_wstring(index)));
    }
    for (int attempt = 0; attempt < kRunAttempts; ++attempt) {
        TestSupport::LogCapture capture;  // each run's own, its flood guard empty too
        ListRun run(devices);
        run.Start();
        ASSERT_TRUE(run.parent.WaitForEvent(kWaitMs));
        Sleep(kConnectPauseMs);
        ASSERT_TRUE(run.parent.OpenPipe(kWaitMs));
        run.parent.ClosePipe();  // the parent goes away before reading
        run.server.join();
        if (WasServed(run.parent)) {
            EXPECT_GE(capture.RecordsContaining("Failed to WriteFile(").size(), 1u);
            // The list stopped at the first failure; the null write of Close may fail too.
            EXPECT_LE(capture.RecordsContaining("Failed to WriteFile(").size(), 2u);
            return;
        }
    }
    ReportEveryRunLost();
}

}  // namespace
