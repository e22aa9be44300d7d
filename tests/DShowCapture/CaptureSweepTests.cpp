// VideoCapture end to end for every pixel format the virtual camera streams, through the real
// graph under Wine: each format takes its way to the sink (directly, through Wine's AVI
// decompressor with the test codec, decoded from MJPEG, or MJPEG as it is), streams two modes in
// turn, and every frame is checked against the picture the camera painted for its number. After
// each test no reference on the graph or its filters and no thread of the process is left.

#include <windows.h>

#include <dshow.h>
#include <tlhelp32.h>

#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "CaptureTestSupport.h"
#include "FramePictures.h"
#include "TinyFramework/Common/TinyCallback.h"
#include "tools/TestDecoders/TestDecodersSetup.h"
#include "tools/VirtualCamera/Config/FramePattern.h"
#include "tools/VirtualCamera/Config/MediaFormats.h"
#include "tools/VirtualCamera/VirtualCameraSetup.h"

using namespace DShow;
using namespace CaptureTests;
using VirtualCameraTests::RgbPicture;

namespace {

// Small modes keep the suite short; both are whole multiples of the JPEG blocks and of four
// pixels, so that no format pads its rows, and wide enough for the camera's 32-pixel counter.
constexpr LONG kFirstWidth = 64;
constexpr LONG kFirstRows = 48;
constexpr LONG kSecondWidth = 96;
constexpr LONG kSecondRows = 64;
constexpr size_t kFramesPerRun = 3;

// The test codec computes BT.601 in fixed point with its coefficients rounded to 1/256: each
// differs from the exact one by less than 0.42/256, which over the largest Y, U and V offsets
// (219 and 112) adds up to about a quarter of a level before rounding, never half. So a decoded
// channel is at most one level away from the exact conversion, rounded.
constexpr int kYuvConversionTolerance = 1;
// JPEG loses detail at the bars' edges: at these sizes a decoded picture differs from the one the
// camera encoded by about 1 level on average (4 at most), while the pictures of two neighbouring
// frame numbers differ by about 11.5 on average. A bound of 3 leaves the loss room threefold and
// lets no frame pass for its neighbour.
constexpr double kJpegMeanTolerance = 3.0;

std::string Narrow(const std::wstring& text) {
    return std::string(text.begin(), text.end());
}

std::string GuidText(const GUID& guid) {
    return Narrow(VirtualCamera::SubtypeName(guid));
}

// How a format reaches the sink.
enum class Path {
    kDirect,        // the sink takes the camera's format as it is
    kAvi,           // Wine's AVI decompressor with the test codec turns it into RGB32
    kMjpegDecoded,  // MJPEG, decoder switch on: decoded into RGB32 by the AVI decompressor with
                    // the test codec, which the graph's intelligent Connect brings in itself
    kMjpegAsItIs,   // MJPEG, decoder switch off: the sink takes the compressed frames
};

struct SweepCase {
    const char* name;
    const wchar_t* cameraSubtype;  // as the camera's mode line names it
    Path path;
    VideoPixelFormat formatAtSink;  // what GetCurrentFormat reports once connected
    int flipAtSink;
    bool listed;  // whether the format listing names the modes; else they are asked for as 0
};

// Every layout the camera paints: the YUV family, the RGB family and MJPG. RGB565 and other
// FourCCs have their own test below: no way leads from them to the sink.
const SweepCase kCases[] = {
    {"Yuy2", L"YUY2", Path::kDirect, PIXEL_FORMAT_YUY2, 0, true},
    {"I420", L"I420", Path::kDirect, PIXEL_FORMAT_I420, 0, true},
    {"Nv12", L"NV12", Path::kDirect, PIXEL_FORMAT_NV12, 0, true},
    {"Rgb24", L"RGB24", Path::kDirect, PIXEL_FORMAT_BGR24, 1, true},
    {"Rgb32", L"RGB32", Path::kDirect, PIXEL_FORMAT_BGRA, 1, true},
    {"Argb32", L"ARGB32", Path::kDirect, PIXEL_FORMAT_BGRA, 1, true},
    {"Uyvy", L"UYVY", Path::kAvi, PIXEL_FORMAT_BGRA, 1, true},
    {"Iyuv", L"IYUV", Path::kAvi, PIXEL_FORMAT_BGRA, 1, true},
    {"Yv12", L"YV12", Path::kAvi, PIXEL_FORMAT_BGRA, 1, false},
    {"Mjpg", L"MJPG", Path::kMjpegDecoded, PIXEL_FORMAT_BGRA, 1, true},
    {"MjpgAsItIs", L"MJPG", Path::kMjpegAsItIs, PIXEL_FORMAT_MJPEG, 0, true},
};

// One frame as the callback saw it, with its bytes.
struct SweepFrame {
    long size = 0;
    long long timestamp = 0;
    void* userData = nullptr;
    std::vector<BYTE> bytes;
};

// The receiver of the capture callback: keeps every frame whole. Thread-safe: frames come on the
// streaming thread.
class FrameRecorder {
public:
    void Take(const unsigned char* bits, long size, long long timestamp, void* userData) {
        SweepFrame frame;
        frame.size = size;
        frame.timestamp = timestamp;
        frame.userData = userData;
        if (size > 0) {
            frame.bytes.assign(bits, bits + size);
        }
        {
            std::lock_guard<std::mutex> hold(m_mutex);
            m_frames.push_back(std::move(frame));
        }
        m_arrived.notify_all();
    }
    VideoCapture::FrameCallback Callback() {
        return TinyFramework::BindCallback<void(const unsigned char*, long, long long, void*)>(
            &FrameRecorder::Take, this);
    }
    bool WaitForFrames(size_t count) {
        std::unique_lock<std::mutex> hold(m_mutex);
        return m_arrived.wait_for(hold, std::chrono::milliseconds(kStateDeadlineMs),
                                  [&] { return m_frames.size() >= count; });
    }
    std::vector<SweepFrame> Frames() {
        std::lock_guard<std::mutex> hold(m_mutex);
        return m_frames;
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_arrived;
    std::vector<SweepFrame> m_frames;
};

class SnapshotHandle {
public:
    explicit SnapshotHandle(HANDLE handle) : m_handle(handle) {}
    ~SnapshotHandle() {
        if (m_handle != INVALID_HANDLE_VALUE) {
            CloseHandle(m_handle);
        }
    }
    SnapshotHandle(const SnapshotHandle&) = delete;
    SnapshotHandle& operator=(const SnapshotHandle&) = delete;
    HANDLE Get() const { return m_handle; }

private:
    HANDLE m_handle;
};

// The threads of this process, from a snapshot of the system's threads; empty when no snapshot
// could be taken.
std::vector<DWORD> ThreadsOfThisProcess() {
    std::vector<DWORD> threads;
    const SnapshotHandle snapshot(CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0));
    if (snapshot.Get() == INVALID_HANDLE_VALUE) {
        return threads;
    }
    THREADENTRY32 entry = {};
    entry.dwSize = sizeof(entry);
    const DWORD self = GetCurrentProcessId();
    for (BOOL more = Thread32First(snapshot.Get(), &entry); more;
         more = Thread32Next(snapshot.Get(), &entry)) {
        if (entry.th32OwnerProcessID == self) {
            threads.push_back(entry.th32ThreadID);
        }
    }
    return threads;
}

bool Contains(const std::vector<DWORD>& threads, DWORD thread) {
    return std::find(threads.begin(), threads.end(), thread) != threads.end();
}

// The threads running now that `known` does not list.
std::vector<DWORD> ThreadsBeyond(const std::vector<DWORD>& known) {
    std::vector<DWORD> beyond;
    for (DWORD thread : ThreadsOfThisProcess()) {
        if (!Contains(known, thread)) {
            beyond.push_back(thread);
        }
    }
    return beyond;
}

// Waits until no thread runs beyond `known`; the ones still there at the deadline. Threads of a
// graph end shortly after the graph lets them go, so a test waits for that rather than looking
// at once. A thread of `known` that ends meanwhile (a pool thread's idle timeout) is no leak,
// which is why threads are compared by identity and not counted.
std::vector<DWORD> WaitForNoThreadBeyond(const std::vector<DWORD>& known) {
    const ULONGLONG deadline = GetTickCount64() + kStateDeadlineMs;
    std::vector<DWORD> beyond = ThreadsBeyond(known);
    while (!beyond.empty() && GetTickCount64() < deadline) {
        Sleep(10);
        beyond = ThreadsBeyond(known);
    }
    return beyond;
}

// Waits until `thread` is gone from the snapshot; whether it went.
bool WaitForThreadGone(DWORD thread) {
    const ULONGLONG deadline = GetTickCount64() + kStateDeadlineMs;
    while (Contains(ThreadsOfThisProcess(), thread)) {
        if (GetTickCount64() >= deadline) {
            return false;
        }
        Sleep(10);
    }
    return true;
}

// Where a thread started, as module+offset, for a failure message that names a thread left over.
std::string StartOfThread(DWORD threadId) {
    using QueryThread = LONG(WINAPI*)(HANDLE, int, void*, ULONG, ULONG*);
    const auto query = reinterpret_cast<QueryThread>(reinterpret_cast<void*>(
        GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "NtQueryInformationThread")));
    const HANDLE thread = OpenThread(THREAD_QUERY_INFORMATION, FALSE, threadId);
    if (query == nullptr || thread == nullptr) {
        return "unknown";
    }
    void* start = nullptr;
    constexpr int kThreadQuerySetWin32StartAddress = 9;
    const LONG status =
        query(thread, kThreadQuerySetWin32StartAddress, &start, sizeof(start), nullptr);
    CloseHandle(thread);
    HMODULE module = nullptr;
    wchar_t path[MAX_PATH] = {};
    if (status != 0 ||
        !GetModuleHandleExW(
            GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
            static_cast<LPCWSTR>(start), &module) ||
        GetModuleFileNameW(module, path, MAX_PATH) == 0) {
        return "unknown";
    }
    const std::wstring name(path);
    char offset[32] = {};
    snprintf(offset, sizeof(offset), "+0x%llx",
             static_cast<unsigned long long>(static_cast<BYTE*>(start) -
                                             reinterpret_cast<BYTE*>(module)));
    return Narrow(name.substr(name.find_last_of(L"\\/") + 1)) + offset;
}

// The threads that are not among `known`, each with where it started.
std::string DescribeThreadsBeyond(const std::vector<DWORD>& known) {
    std::string text;
    for (DWORD thread : ThreadsBeyond(known)) {
        text += " thread " + std::to_string(thread) + " from " + StartOfThread(thread);
    }
    return text.empty() ? " none" : text;
}

// The frame size at the sink for the format GetCurrentFormat reports; 0 for MJPEG, whose frames
// each have a length of their own.
long FrameBytesAtSink(const VideoFormat& format) {
    const long pixels = static_cast<long>(format.size.cx) * format.size.cy;
    switch (format.format) {
        case PIXEL_FORMAT_I420:
        case PIXEL_FORMAT_YV12:
        case PIXEL_FORMAT_NV12:
            return pixels * 3 / 2;
        case PIXEL_FORMAT_UYVY:
        case PIXEL_FORMAT_YUY2:
            return pixels * 2;
        case PIXEL_FORMAT_RGB24:
        case PIXEL_FORMAT_BGR24:
            return pixels * 3;
        case PIXEL_FORMAT_RGBA:
        case PIXEL_FORMAT_BGRA:
            return pixels * 4;
        default:
            return 0;
    }
}

VideoCapture::SinkFeed FeedOf(Path path) {
    switch (path) {
        case Path::kDirect:
        case Path::kMjpegAsItIs:
            return VideoCapture::SinkFeed::kDevice;
        default:
            // With the test codec installed, the graph's intelligent Connect brings in the AVI
            // decompressor by itself for MJPEG as well, before VideoCapture would make its own
            // MJPEG decompressor (whose stand-in would be an AVI decompressor too).
            return VideoCapture::SinkFeed::kAviDecoder;
    }
}

// Which of the camera's pictures a decoded MJPEG frame shows: the one it differs least from.
// The decoded frame has lost the counter segment of the JPEG, and so its number.
uint32_t ClosestJpegPicture(const RgbPicture& picture, double* mean) {
    uint32_t closest = 0;
    *mean = 1e9;
    for (uint32_t number = 0; number < VirtualCameraTests::JpegPictureCount(); ++number) {
        const VirtualCameraTests::PictureDifference difference =
            VirtualCameraTests::ComparePictures(
                picture, VirtualCameraTests::ReferencePicture(MEDIASUBTYPE_MJPG, picture.width,
                                                              picture.rows, number));
        if (difference.mean < *mean) {
            *mean = difference.mean;
            closest = number;
        }
    }
    return closest;
}

// The fixture of the sweep: the virtual camera server and the decoder stand-ins for the suite,
// and the process's thread count as it stands once a first graph has run.
class CaptureSweepTest : public CaptureTest {
protected:
    static void SetUpTestSuite() {
        CaptureTest::SetUpTestSuite();
        std::wstring error;
        ASSERT_TRUE(s_decoders.Install(&error)) << Narrow(error);
        if (s_threadBaseline.empty()) {
            s_threadBaseline = WarmUpAndListThreads();
        }
        ASSERT_FALSE(s_threadBaseline.empty());
    }
    static void TearDownTestSuite() {
        std::wstring error;
        EXPECT_TRUE(s_decoders.Restore(&error)) << Narrow(error);
    }

    // The graph goes before the apartment does; then every thread a test's graph started must
    // have ended.
    void TearDown() override {
        m_capture.Uninitialize();
        CaptureTest::TearDown();
        EXPECT_TRUE(WaitForNoThreadBeyond(s_threadBaseline).empty())
            << "threads beyond the baseline:" << DescribeThreadsBeyond(s_threadBaseline);
    }

    // The threads a process keeps once it has run graphs: the baseline of every test. Wine keeps
    // a thread after the first graph: the graph's intelligent Connect loads the audio devices
    // (mmdevapi), whose thread stays for the life of the process, and a baseline counted before
    // that would count it against the first test. So the baseline is counted after one graph of
    // each way to the sink (direct, AVI decompressor, decoded MJPEG) has run and been taken
    // apart, in an apartment of its own like a test's, so that whatever a way loads once for the
    // process is in place before the count.
    static std::vector<DWORD> WarmUpAndListThreads();

    // The listed mode of the camera with this size, as a user would pick it.
    static VideoFormat ListedMode(const VideoDevice& device, LONG width, LONG rows) {
        std::vector<VideoFormat> formats;
        EXPECT_TRUE(VideoCapture::GetDeviceFormats(device, formats));
        for (const VideoFormat& format : formats) {
            if (format.size.cx == width && format.size.cy == rows) {
                return format;
            }
        }
        ADD_FAILURE() << "no mode of " << width << "x" << rows << " is listed";
        return VideoFormat();
    }

    // Allocates the mode, streams it until `count` frames arrived, and stops.
    std::vector<SweepFrame> StreamMode(const VideoFormat& mode, size_t count) {
        FrameRecorder recorder;
        m_capture.SetCallback(recorder.Callback());
        EXPECT_TRUE(m_capture.Allocate(mode));
        EXPECT_TRUE(m_capture.Run());
        EXPECT_TRUE(recorder.WaitForFrames(count));
        EXPECT_TRUE(m_capture.Stop());
        // The recorder goes out of scope: no frame may reach it any more.
        m_capture.SetCallback(VideoCapture::FrameCallback());
        return recorder.Frames();
    }

    // Takes the graph apart and checks that the capture object let go of everything: the graph
    // and the sink are held by the test alone, the camera by the test and the decompressors the
    // graph brought in by itself, and these go with the graph.
    void UninitializeAndExpectNoReferenceLeft() {
        ComPtr<IGraphBuilder> graph = m_capture.Graph();
        ASSERT_TRUE(graph);
        ComPtr<IBaseFilter> sink = m_capture.Sink();
        ASSERT_TRUE(sink);
        ComPtr<IBaseFilter> camera;
        std::vector<ComPtr<IBaseFilter>> decoders;
        for (const ComPtr<IBaseFilter>& filter : m_capture.Filters()) {
            CLSID clsid = GUID_NULL;
            ASSERT_EQ(filter->GetClassID(&clsid), S_OK);
            if (IsEqualGUID(clsid, VirtualCamera::VirtualCameraClsid())) {
                camera = filter;
            } else if (filter.Get() != sink.Get()) {
                decoders.push_back(filter);
            }
        }
        ASSERT_TRUE(camera);
        m_capture.Uninitialize();
        EXPECT_EQ(CountOf(graph.Get()), 1u);
        // A decompressor that the graph brought in by itself is unknown to the capture object:
        // Deallocate disconnects the camera's side of the connection only, and the
        // decompressor's input pin keeps its counted reference on the camera's pin, and so on
        // the camera, until the graph and its filters go.
        EXPECT_EQ(CountOf(camera.Get()), 1u + decoders.size());
        EXPECT_EQ(CountOf(sink.Get()), 1u);
        // Ours are the last references: each Release destroys its object.
        EXPECT_EQ(graph.Detach()->Release(), 0u);
        EXPECT_EQ(camera.Detach()->Release(), 0u);
        EXPECT_EQ(sink.Detach()->Release(), 0u);
        for (ComPtr<IBaseFilter>& decoder : decoders) {
            EXPECT_EQ(decoder.Detach()->Release(), 0u);
        }
    }

    static TestDecoders::ScopedDecoderInstall s_decoders;
    static std::vector<DWORD> s_threadBaseline;
    TestableCapture m_capture;
};

TestDecoders::ScopedDecoderInstall CaptureSweepTest::s_decoders;
std::vector<DWORD> CaptureSweepTest::s_threadBaseline;

std::vector<DWORD> CaptureSweepTest::WarmUpAndListThreads() {
    // GoogleTest starts a thread of its own (the watcher of its thread-local registry) the first
    // time a thread uses its per-thread result reporter, which a failure does, and keeps it for
    // the life of the process. Using the reporter here starts it before the count, so that one
    // failing test does not make every later one count a thread too many.
    {
        ::testing::TestPartResultArray unused;
        const ::testing::ScopedFakeTestPartResultReporter reporter(
            ::testing::ScopedFakeTestPartResultReporter::INTERCEPT_ONLY_CURRENT_THREAD, &unused);
    }
    const bool com = SUCCEEDED(CoInitializeEx(nullptr, COINIT_MULTITHREADED));
    const std::wstring name = L"capturesweep-warmup";
    std::wstring error;
    const bool added = VirtualCamera::AddDevices(
        L"[device " + name +
            L"]\nFriendlyName = Sweep Warm-up\nDevicePath = \\\\?\\capturesweep#warmup\n"
            L"mode = YUY2 videoinfo 64 48 333333\nmode = UYVY videoinfo 64 48 333333\n"
            L"mode = MJPG videoinfo 64 48 333333\n",
        &error);
    const VideoDevice device(std::wstring(L"Sweep Warm-up"),
                             std::wstring(L"\\\\?\\capturesweep#warmup"));
    const VideoPixelFormat formats[] = {PIXEL_FORMAT_YUY2, PIXEL_FORMAT_UYVY, PIXEL_FORMAT_MJPEG};
    for (VideoPixelFormat format : formats) {
        TestableCapture capture;
        if (added && capture.Initialize(device) &&
            capture.Allocate(VideoFormat(TinySize(64, 48), 30.0f, format)) && capture.Run()) {
            capture.WaitForDeliveries(2);
            capture.Stop();
        }
    }
    VirtualCamera::RemoveDevice(name);
    if (com) {
        CoUninitialize();
    }
    return added ? ThreadsOfThisProcess() : std::vector<DWORD>();
}

class CaptureSweep : public CaptureSweepTest, public ::testing::WithParamInterface<SweepCase> {
protected:
    void SetUp() override {
        CaptureSweepTest::SetUp();
        ASSERT_TRUE(VirtualCamera::SubtypeFromName(GetParam().cameraSubtype, &m_cameraSubtype));
        const std::wstring subtype = GetParam().cameraSubtype;
        m_device = AddCamera(L"mode = " + subtype + L" videoinfo " + std::to_wstring(kFirstWidth) +
                             L" " + std::to_wstring(kFirstRows) + L" 333333\nmode = " + subtype +
                             L" videoinfo " + std::to_wstring(kSecondWidth) + L" " +
                             std::to_wstring(kSecondRows) + L" 333333\n");
    }

    // The mode of this size as a user asks for it: as the listing names it, or, for a subtype
    // that the listing leaves out, as format 0, which takes the first capability of the size
    // whose subtype has no pixel format.
    VideoFormat Mode(LONG width, LONG rows) const {
        if (GetParam().listed) {
            return ListedMode(m_device, width, rows);
        }
        return VideoFormat(TinySize(width, rows), 30.0f, PIXEL_FORMAT_UNKNOWN);
    }

    // The subtype the frames have at the sink.
    GUID SubtypeAtSink() const {
        const Path path = GetParam().path;
        return path == Path::kAvi || path == Path::kMjpegDecoded ? MEDIASUBTYPE_RGB32
                                                                 : m_cameraSubtype;
    }

    // How many filters the graph holds once the `allocation`th mode (counted from 1) is
    // connected. The graph's own decompressor of an earlier mode stays in the graph, unconnected,
    // after Deallocate: the capture object does not know it, and the next Connect brings in
    // another one.
    size_t FiltersInGraph(size_t allocation) const {
        return FeedOf(GetParam().path) == VideoCapture::SinkFeed::kDevice ? 2u : 2u + allocation;
    }

    // Checks the way to the sink and the frames of one run of a width x rows mode, the
    // `allocation`th: their size, the user data, rising time stamps, the camera's counter rising
    // by one, and the picture of each frame. The counter of the last frame goes to
    // `lastCounter`.
    void ExpectRun(size_t allocation, const std::vector<SweepFrame>& frames, LONG width, LONG rows,
                   void* userData, uint32_t* lastCounter) {
        const VideoFormat& current = m_capture.GetCurrentFormat();
        EXPECT_EQ(current.format, GetParam().formatAtSink);
        EXPECT_EQ(current.GetFlip(), GetParam().flipAtSink);
        EXPECT_EQ(current.size.cx, width);
        EXPECT_EQ(current.size.cy, rows);
        EXPECT_EQ(m_capture.GetSinkFeed(), FeedOf(GetParam().path));
        EXPECT_EQ(m_capture.Filters().size(), FiltersInGraph(allocation));
        EXPECT_EQ(GuidText(m_capture.SinkSubtype()), GuidText(SubtypeAtSink()));
        ASSERT_GE(frames.size(), kFramesPerRun);
        const long size = FrameBytesAtSink(current);
        for (size_t i = 0; i < frames.size(); ++i) {
            const SweepFrame& frame = frames[i];
            if (size != 0) {
                EXPECT_EQ(frame.size, size) << "frame " << i;
            }
            EXPECT_EQ(frame.userData, userData) << "frame " << i;
            if (i > 0) {
                EXPECT_GT(frame.timestamp, frames[i - 1].timestamp) << "frame " << i;
            }
        }
        if (GetParam().path == Path::kMjpegDecoded) {
            ExpectDecodedJpegPictures(frames, width, rows);
            return;
        }
        std::vector<uint32_t> counters;
        for (size_t i = 0; i < frames.size(); ++i) {
            uint32_t counter = 0;
            ASSERT_TRUE(MatchesCameraPicture(frames[i], width, rows, &counter)) << "frame " << i;
            if (!counters.empty()) {
                EXPECT_EQ(counter, counters.back() + 1) << "frame " << i;
            }
            counters.push_back(counter);
        }
        *lastCounter = counters.back();
    }

    // Checks one frame against the camera's picture of the frame's number, which it also reads.
    ::testing::AssertionResult MatchesCameraPicture(const SweepFrame& frame, LONG width, LONG rows,
                                                    uint32_t* counter) {
        switch (GetParam().path) {
            case Path::kDirect:
                return SameAsPainted(frame, width, rows, counter);
            case Path::kAvi:
                return ConvertedFromPainted(frame, width, rows, counter);
            default:
                return JpegOfPainted(frame, width, rows, counter);
        }
    }

    // A frame the sink took as the camera sent it: byte for byte the camera's frame.
    ::testing::AssertionResult SameAsPainted(const SweepFrame& frame, LONG width, LONG rows,
                                             uint32_t* counter) {
        if (!VirtualCamera::DecodeFrameCounter(m_cameraSubtype, frame.bytes.data(),
                                               frame.bytes.size(), counter)) {
            return ::testing::AssertionFailure() << "no counter in the frame";
        }
        if (frame.bytes !=
            VirtualCameraTests::ReferenceFrameBytes(m_cameraSubtype, width, rows, *counter)) {
            return ::testing::AssertionFailure() << "not the camera's frame " << *counter;
        }
        return ::testing::AssertionSuccess();
    }

    // A YUV frame that the codec turned into bottom-up RGB32: the camera's picture within the
    // codec's rounding.
    ::testing::AssertionResult ConvertedFromPainted(const SweepFrame& frame, LONG width, LONG rows,
                                                    uint32_t* counter) {
        const RgbPicture picture =
            VirtualCameraTests::PictureOfRgb32(frame.bytes.data(), frame.bytes.size(), width, rows);
        *counter = VirtualCameraTests::CounterOfPicture(picture);
        const VirtualCameraTests::PictureDifference difference =
            VirtualCameraTests::ComparePictures(
                picture,
                VirtualCameraTests::ReferencePicture(m_cameraSubtype, width, rows, *counter));
        if (difference.largest > kYuvConversionTolerance) {
            return ::testing::AssertionFailure()
                   << "frame " << *counter << " differs " << difference.where;
        }
        return ::testing::AssertionSuccess();
    }

    // An MJPEG frame as the camera sent it: the counter in its comment segment, and a JPEG of the
    // camera's picture within what JPEG loses.
    ::testing::AssertionResult JpegOfPainted(const SweepFrame& frame, LONG width, LONG rows,
                                             uint32_t* counter) {
        if (!VirtualCamera::DecodeFrameCounter(MEDIASUBTYPE_MJPG, frame.bytes.data(),
                                               frame.bytes.size(), counter)) {
            return ::testing::AssertionFailure() << "no counter segment in the JPEG";
        }
        RgbPicture picture;
        if (!VirtualCameraTests::PictureOfJpeg(frame.bytes.data(), frame.bytes.size(), &picture)) {
            return ::testing::AssertionFailure() << "frame " << *counter << " is no JPEG image";
        }
        const VirtualCameraTests::PictureDifference difference =
            VirtualCameraTests::ComparePictures(
                picture,
                VirtualCameraTests::ReferencePicture(MEDIASUBTYPE_MJPG, width, rows, *counter));
        if (difference.mean > kJpegMeanTolerance) {
            return ::testing::AssertionFailure()
                   << "frame " << *counter << " differs by " << difference.mean << " on average";
        }
        return ::testing::AssertionSuccess();
    }

    // Decoded MJPEG frames have lost their number with the JPEG's comment segment: each shows
    // one of the camera's pictures within what JPEG loses, and the pictures follow one another.
    void ExpectDecodedJpegPictures(const std::vector<SweepFrame>& frames, LONG width, LONG rows) {
        uint32_t previous = 0;
        for (size_t i = 0; i < frames.size(); ++i) {
            const RgbPicture picture = VirtualCameraTests::PictureOfRgb32(
                frames[i].bytes.data(), frames[i].bytes.size(), width, rows);
            double mean = 0.0;
            const uint32_t number = ClosestJpegPicture(picture, &mean);
            EXPECT_LE(mean, kJpegMeanTolerance) << "frame " << i;
            if (i > 0) {
                EXPECT_EQ(number, (previous + 1) % VirtualCameraTests::JpegPictureCount())
                    << "frame " << i;
            }
            previous = number;
        }
    }

    GUID m_cameraSubtype = GUID_NULL;
    VideoDevice m_device;
};

TEST_P(CaptureSweep, StreamsTwoModesInTurnWithTheCamerasPictureInEveryFrame) {
    m_capture.EnableMjpegDec(GetParam().path == Path::kMjpegAsItIs ? FALSE : TRUE);
    ASSERT_TRUE(m_capture.Initialize(m_device));
    int userData = 0;
    m_capture.SetUserData(&userData);

    const std::vector<SweepFrame> first = StreamMode(Mode(kFirstWidth, kFirstRows), kFramesPerRun);
    uint32_t firstLast = 0;
    ExpectRun(1, first, kFirstWidth, kFirstRows, &userData, &firstLast);

    m_capture.Deallocate();
    EXPECT_EQ(m_capture.GetSinkFeed(), VideoCapture::SinkFeed::kNone);
    const std::vector<SweepFrame> second =
        StreamMode(Mode(kSecondWidth, kSecondRows), kFramesPerRun);
    uint32_t secondLast = 0;
    ExpectRun(2, second, kSecondWidth, kSecondRows, &userData, &secondLast);
    if (GetParam().path != Path::kMjpegDecoded) {
        // The camera counts on from the first run.
        EXPECT_GT(secondLast, firstLast);
    }

    UninitializeAndExpectNoReferenceLeft();
}

INSTANTIATE_TEST_SUITE_P(EveryFormat, CaptureSweep, ::testing::ValuesIn(kCases),
                         [](const ::testing::TestParamInfo<SweepCase>& info) {
                             return std::string(info.param.name);
                         });

// Subtypes the camera paints that neither the sink nor any codec of the prefix takes: the listing
// leaves them out, and a request of format 0 finds them but connects nothing.
struct UnconnectedCase {
    const char* name;
    const wchar_t* cameraSubtype;
};

const UnconnectedCase kWithoutAWay[] = {{"Rgb565", L"RGB565"}, {"Yvyu", L"YVYU"}};

class CaptureSweepWithoutAWay : public CaptureSweepTest,
                                public ::testing::WithParamInterface<UnconnectedCase> {};

TEST_P(CaptureSweepWithoutAWay, AllocatesWithNothingConnectedAndTheRefusedSizeAsCurrent) {
    const VideoDevice device = AddCamera(L"mode = " + std::wstring(GetParam().cameraSubtype) +
                                         L" videoinfo 64 48 333333\n");
    std::vector<VideoFormat> listed;
    ASSERT_TRUE(VideoCapture::GetDeviceFormats(device, listed));
    EXPECT_TRUE(listed.empty());
    ASSERT_TRUE(m_capture.Initialize(device));
    EXPECT_TRUE(m_capture.Allocate(VideoFormat(TinySize(64, 48), 30.0f, PIXEL_FORMAT_UNKNOWN)));
    EXPECT_EQ(m_capture.GetSinkFeed(), VideoCapture::SinkFeed::kNone);
    EXPECT_EQ(m_capture.Filters().size(), 2u);
    const VideoFormat& current = m_capture.GetCurrentFormat();
    EXPECT_EQ(current.format, PIXEL_FORMAT_UNKNOWN);
    EXPECT_EQ(current.size.cx, 64);
    EXPECT_EQ(current.size.cy, 48);
    UninitializeAndExpectNoReferenceLeft();
}

INSTANTIATE_TEST_SUITE_P(EveryOtherFormat, CaptureSweepWithoutAWay,
                         ::testing::ValuesIn(kWithoutAWay),
                         [](const ::testing::TestParamInfo<UnconnectedCase>& info) {
                             return std::string(info.param.name);
                         });

// The lost device and the teardown of a running graph, which the capture tests check on the
// direct way, here with a decoder between the camera and the sink.
class CaptureSweepDecoded : public CaptureSweepTest {};

TEST_F(CaptureSweepDecoded, ACameraUnpluggedBehindTheAviDecompressorIsLostAndLeavesNothing) {
    const VideoDevice device =
        AddCamera(L"fault = unplug_after:3\nmode = UYVY videoinfo 64 48 333333\n");
    ASSERT_TRUE(m_capture.Initialize(device));
    ASSERT_TRUE(m_capture.Allocate(VideoFormat(TinySize(64, 48), 30.0f, PIXEL_FORMAT_UYVY)));
    ASSERT_EQ(m_capture.GetSinkFeed(), VideoCapture::SinkFeed::kAviDecoder);
    ASSERT_TRUE(m_capture.Run());
    ASSERT_TRUE(m_capture.WaitForDeliveries(3));
    TestSupport::LogCapture log;
    // The camera posts its event after its last frame; poll until it is there.
    const ULONGLONG deadline = GetTickCount64() + kStateDeadlineMs;
    bool lost = false;
    while (!lost && GetTickCount64() < deadline) {
        lost = !m_capture.CheckEvents();
        if (!lost) {
            Sleep(10);
        }
    }
    ASSERT_TRUE(lost);
    EXPECT_EQ(log.Messages(), std::vector<std::string>{"Failed to GetEvent(EC_DEVICE_LOST)"});
    ASSERT_TRUE(m_capture.Stop());
    UninitializeAndExpectNoReferenceLeft();
}

TEST_F(CaptureSweepDecoded, UninitializeStopsARunningDecodedGraphAndLeavesNothing) {
    const VideoDevice device = AddCamera(L"mode = MJPG videoinfo 64 48 333333\n");
    ASSERT_TRUE(m_capture.Initialize(device));
    ASSERT_TRUE(m_capture.Allocate(VideoFormat(TinySize(64, 48), 30.0f, PIXEL_FORMAT_MJPEG)));
    ASSERT_EQ(m_capture.GetSinkFeed(), VideoCapture::SinkFeed::kAviDecoder);
    ASSERT_TRUE(m_capture.Run());
    ASSERT_TRUE(m_capture.WaitForDeliveries(2));
    // Asked after the graph is gone: the control is one of the graph's own interfaces, and this
    // reference keeps it alive past the check that nothing else holds the graph.
    IMediaControl* control = m_capture.MediaControl().Get();
    control->AddRef();
    ComPtr<IGraphBuilder> graph = m_capture.Graph();
    m_capture.Uninitialize();
    OAFilterState state = State_Running;
    EXPECT_TRUE(SUCCEEDED(control->GetState(0, &state)));
    EXPECT_EQ(state, State_Stopped);
    control->Release();
    EXPECT_EQ(graph.Detach()->Release(), 0u);
}

// The measure the sweep relies on: the system's thread snapshot sees this process's threads come
// and go under Wine as on Windows.
TEST(CaptureSweepThreadCount, ASnapshotListsAThreadOfThisProcessWhileItRuns) {
    ASSERT_FALSE(ThreadsOfThisProcess().empty());
    std::mutex mutex;
    std::condition_variable changed;
    DWORD started = 0;
    bool release = false;
    std::thread thread([&] {
        std::unique_lock<std::mutex> hold(mutex);
        started = GetCurrentThreadId();
        changed.notify_all();
        changed.wait(hold, [&] { return release; });
    });
    DWORD threadId = 0;
    {
        std::unique_lock<std::mutex> hold(mutex);
        changed.wait(hold, [&] { return started != 0; });
        threadId = started;
    }
    EXPECT_TRUE(Contains(ThreadsOfThisProcess(), threadId));
    {
        std::lock_guard<std::mutex> hold(mutex);
        release = true;
    }
    changed.notify_all();
    thread.join();
    EXPECT_TRUE(WaitForThreadGone(threadId));
}

}  // namespace
