// A device that changes its mode in the middle of a run (change_after = N:M): the sample after
// the first N carries mode M's media type, the frames from then on are M's, and the input pin
// that refuses the new type keeps the stream as it was.

#include <dshow.h>
#include <vfwmsgs.h>

#include "VirtualCameraFixture.h"
#include "tools/VirtualCamera/Config/DeviceConfig.h"
#include "tools/VirtualCamera/Config/MediaFormats.h"

namespace VirtualCameraTests {
namespace {

using VirtualCamera::ImageSize;
using VirtualCamera::MediaType;

constexpr long kYuy2Bytes = 64 * 48 * 2;

class VirtualCameraModeChangeTest : public VirtualCameraTest {
protected:
    // YUY2 64x48 first, then `target` after three frames.
    std::wstring AddChangingDevice(const std::wstring& target) {
        return AddDevice(L"change_after = 3:1\nmode = YUY2 videoinfo 64 48 200000\nmode = " +
                         target + L"\n");
    }

    // The media type the device hands out for mode `index` of `description`.
    static MediaType TypeOfMode(const std::wstring& modeLine) {
        VirtualCamera::DeviceSettings settings;
        std::wstring error;
        MediaType type;
        EXPECT_TRUE(VirtualCamera::ParseDeviceSettings(L"mode = " + modeLine, &settings, &error));
        EXPECT_EQ(VirtualCamera::BuildMediaType(settings.modes.at(0), type.get()), S_OK);
        return type;
    }
};

TEST_F(VirtualCameraModeChangeTest, SampleAfterTheFirstThreeCarriesTheNewTypeAndFramesFollowIt) {
    const std::wstring target = L"RGB24 videoinfo 32 24 200000";
    const std::wstring name = AddChangingDevice(target);
    CaptureGraph graph;
    BuildGraph(name, &graph);
    const auto frames = RunFor(&graph, 7);
    ASSERT_GE(frames.size(), 7u);
    for (size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(frames[i].mediaTypeResult, S_FALSE) << i;
        EXPECT_EQ(frames[i].actualLength, kYuy2Bytes) << i;
    }
    EXPECT_EQ(frames[3].mediaTypeResult, S_OK);
    EXPECT_TRUE(VirtualCamera::MediaTypesEqual(*frames[3].mediaType, *TypeOfMode(target)));
    for (size_t i = 3; i < frames.size(); ++i) {
        if (i > 3) {
            EXPECT_EQ(frames[i].mediaTypeResult, S_FALSE) << i;
        }
        EXPECT_EQ(static_cast<DWORD>(frames[i].actualLength), ImageSize(MEDIASUBTYPE_RGB24, 32, 24))
            << i;
    }
    // One counter runs on through the change.
    for (size_t i = 0; i < frames.size(); ++i) {
        EXPECT_TRUE(frames[i].counterDecoded) << i;
        EXPECT_EQ(frames[i].counter, frames[0].counter + i) << i;
    }
}

TEST_F(VirtualCameraModeChangeTest, ConnectionKeepsTheNewTypeAndTheNextRunStaysInIt) {
    const std::wstring target = L"RGB24 videoinfo 32 24 200000";
    const std::wstring name = AddChangingDevice(target);
    CaptureGraph graph;
    BuildGraph(name, &graph);
    const size_t firstRun = RunFor(&graph, 5).size();
    ComPtr<IPin> pin = OutputPin(graph.camera.Get());
    MediaType connection;
    ASSERT_EQ(pin->ConnectionMediaType(connection.get()), S_OK);
    EXPECT_TRUE(VirtualCamera::MediaTypesEqual(*connection, *TypeOfMode(target)));
    const auto frames = RunFor(&graph, 4);
    for (size_t i = firstRun; i < frames.size(); ++i) {
        EXPECT_EQ(frames[i].mediaTypeResult, S_FALSE) << i;
        EXPECT_EQ(static_cast<DWORD>(frames[i].actualLength), ImageSize(MEDIASUBTYPE_RGB24, 32, 24))
            << i;
    }
}

TEST_F(VirtualCameraModeChangeTest, InputPinThatRefusesTheNewTypeKeepsTheStreamAsItWas) {
    const std::wstring name = AddChangingDevice(L"RGB24 videoinfo 32 24 200000");
    CaptureGraph graph;
    BuildGraph(name, &graph);
    graph.sink->AcceptNewTypes(false);
    const auto frames = RunFor(&graph, 6);
    for (size_t i = 0; i < frames.size(); ++i) {
        EXPECT_EQ(frames[i].mediaTypeResult, S_FALSE) << i;
        EXPECT_EQ(frames[i].actualLength, kYuy2Bytes) << i;
    }
}

TEST_F(VirtualCameraModeChangeTest, ChangeToALargerMjpgModeDeliversJpegs) {
    const std::wstring target = L"MJPG videoinfo 160 120 200000";
    const std::wstring name = AddChangingDevice(target);
    CaptureGraph graph;
    BuildGraph(name, &graph);
    const auto frames = RunFor(&graph, 6);
    ASSERT_GE(frames.size(), 6u);
    EXPECT_EQ(frames[3].mediaTypeResult, S_OK);
    EXPECT_TRUE(VirtualCamera::MediaTypesEqual(*frames[3].mediaType, *TypeOfMode(target)));
    EXPECT_FALSE(frames[2].validJpeg);
    for (size_t i = 3; i < frames.size(); ++i) {
        EXPECT_TRUE(frames[i].validJpeg) << i;
        EXPECT_TRUE(frames[i].counterDecoded) << i;
        EXPECT_EQ(frames[i].counter, frames[0].counter + i) << i;
        // The buffers were sized for the larger mode from the start.
        EXPECT_LE(frames[i].actualLength, frames[i].bufferSize) << i;
    }
}

}  // namespace
}  // namespace VirtualCameraTests
