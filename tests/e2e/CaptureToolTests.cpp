// CaptureTool's parts that need no device: the command line, the choice of mode, the counting of
// frames and drops, and what it prints.
#include "tools/CaptureTool/CaptureArguments.h"
#include "tools/CaptureTool/CaptureSummary.h"
#include "tools/CaptureTool/FrameStatistics.h"
#include "tools/CaptureTool/ModeChoice.h"
#include "tools/CaptureTool/Snapshot.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using CaptureTool::CaptureArguments;
using DShow::VideoFormat;

// 30 frames per second as a 100-ns interval of 333333 gives it.
constexpr float kRate30 = 30.000030517578125f;
constexpr double kInterval30Ns = 1e9 / 30.0;

bool Parse(const std::vector<std::wstring>& words, CaptureArguments& parsed, std::string& error) {
    return CaptureTool::ParseCaptureArguments(words, parsed, error);
}

// The error line of a command line that must be refused.
std::string Refusal(const std::vector<std::wstring>& words) {
    CaptureArguments parsed;
    std::string error;
    EXPECT_FALSE(Parse(words, parsed, error));
    return error;
}

VideoFormat Mode(DShow::VideoPixelFormat format, int32_t cx, int32_t cy, float minRate = 5.0f,
                 float maxRate = kRate30) {
    VideoFormat mode(DShow::TinySize(cx, cy), kRate30, format);
    mode.minRate = minRate;
    mode.maxRate = maxRate;
    return mode;
}

TEST(CaptureToolArguments, ADeviceIdAloneTakesTheDefaults) {
    CaptureArguments parsed;
    std::string error;
    ASSERT_TRUE(Parse({L"cam"}, parsed, error)) << error;
    EXPECT_EQ(parsed.deviceId, L"cam");
    EXPECT_FALSE(parsed.hasFormat);
    EXPECT_FALSE(parsed.hasSize);
    EXPECT_FALSE(parsed.hasRate);
    EXPECT_EQ(parsed.frames, 30);
    EXPECT_EQ(parsed.seconds, 0.0);
    EXPECT_TRUE(parsed.mjpegDecoder);
    EXPECT_FALSE(parsed.json);
}

TEST(CaptureToolArguments, EveryOptionIsRead) {
    CaptureArguments parsed;
    std::string error;
    ASSERT_TRUE(Parse({L"--format", L"YUY2", L"--size", L"1280x720", L"--rate", L"15", L"cam",
                       L"--frames", L"7", L"--no-mjpeg-decoder", L"--json"},
                      parsed, error))
        << error;
    EXPECT_EQ(parsed.deviceId, L"cam");
    EXPECT_EQ(parsed.format, DShow::PIXEL_FORMAT_YUY2);
    EXPECT_EQ(parsed.width, 1280);
    EXPECT_EQ(parsed.height, 720);
    EXPECT_EQ(parsed.rate, 15.0f);
    EXPECT_EQ(parsed.frames, 7);
    EXPECT_FALSE(parsed.mjpegDecoder);
    EXPECT_TRUE(parsed.json);
}

TEST(CaptureToolArguments, PropertiesWithoutALimitRunsUntilTheFrameCloses) {
    CaptureArguments parsed;
    std::string error;
    ASSERT_TRUE(Parse({L"cam", L"--properties"}, parsed, error)) << error;
    EXPECT_TRUE(parsed.properties);
    EXPECT_EQ(parsed.frames, 0);
    EXPECT_EQ(parsed.seconds, 0.0);
}

TEST(CaptureToolArguments, PropertiesKeepAGivenLimit) {
    CaptureArguments byFrames;
    std::string error;
    ASSERT_TRUE(Parse({L"--properties", L"cam", L"--frames", L"5"}, byFrames, error)) << error;
    EXPECT_TRUE(byFrames.properties);
    EXPECT_EQ(byFrames.frames, 5);
    CaptureArguments bySeconds;
    ASSERT_TRUE(Parse({L"cam", L"--seconds", L"2", L"--properties"}, bySeconds, error)) << error;
    EXPECT_EQ(bySeconds.seconds, 2.0);
    EXPECT_EQ(bySeconds.frames, 30);
    CaptureArguments without;
    ASSERT_TRUE(Parse({L"cam"}, without, error)) << error;
    EXPECT_FALSE(without.properties);
}

TEST(CaptureToolArguments, SnapshotTakesThePathThatFollows) {
    CaptureArguments parsed;
    std::string error;
    ASSERT_TRUE(Parse({L"cam", L"--snapshot", L"C:\\shots\\last.png", L"--json"}, parsed, error))
        << error;
    EXPECT_EQ(parsed.snapshotPath, L"C:\\shots\\last.png");
    EXPECT_EQ(parsed.deviceId, L"cam");
    EXPECT_TRUE(parsed.json);
}

TEST(CaptureToolArguments, WithoutSnapshotNoPathIsSet) {
    CaptureArguments parsed;
    std::string error;
    ASSERT_TRUE(Parse({L"cam"}, parsed, error)) << error;
    EXPECT_EQ(parsed.snapshotPath, L"");
}

TEST(CaptureToolArguments, SnapshotWithoutAValueIsRefused) {
    EXPECT_EQ(Refusal({L"cam", L"--snapshot"}), "--snapshot needs a value");
}

TEST(CaptureToolArguments, SnapshotWithAnEmptyValueIsRefused) {
    EXPECT_EQ(Refusal({L"cam", L"--snapshot", L""}), "--snapshot takes a file name");
}

TEST(CaptureToolArguments, SecondsAreReadWithAFraction) {
    CaptureArguments parsed;
    std::string error;
    ASSERT_TRUE(Parse({L"cam", L"--seconds", L"2.5", L"--size", L"640X480"}, parsed, error));
    EXPECT_EQ(parsed.seconds, 2.5);
    EXPECT_EQ(parsed.width, 640);
    EXPECT_EQ(parsed.height, 480);
}

TEST(CaptureToolArguments, HelpNeedsNoDevice) {
    CaptureArguments parsed;
    std::string error;
    ASSERT_TRUE(Parse({L"--help"}, parsed, error));
    EXPECT_TRUE(parsed.help);
}

TEST(CaptureToolArguments, BadInputsAreRefusedWithALineNamingThem) {
    EXPECT_EQ(Refusal({}), "expected a device id");
    EXPECT_EQ(Refusal({L"a", L"b"}), "expected one device id, got 2 words");
    EXPECT_EQ(Refusal({L"cam", L"--fast"}), "unknown option --fast");
    EXPECT_EQ(Refusal({L"cam", L"-x"}), "unknown option -x");
    EXPECT_EQ(Refusal({L"cam", L"--format"}), "--format needs a value");
    EXPECT_EQ(Refusal({L"cam", L"--frames"}), "--frames needs a value");
    EXPECT_EQ(Refusal({L"cam", L"--format", L"H264"}), "unknown pixel format H264");
    EXPECT_EQ(Refusal({L"cam", L"--format", L"UNKNOWN"}), "unknown pixel format UNKNOWN");
    EXPECT_EQ(Refusal({L"cam", L"--frames", L"5", L"--seconds", L"1"}),
              "--frames and --seconds cannot be given together");
}

TEST(CaptureToolArguments, BadSizesAreRefused) {
    for (const wchar_t* size :
         {L"640", L"640x", L"x480", L"0x480", L"640x0", L"-640x480", L"640x-480", L"640x480x2",
          L"640*480", L"99999x480", L"+640x480", L""}) {
        EXPECT_EQ(Refusal({L"cam", L"--size", size}), "--size takes WIDTHxHEIGHT in pixels, not " +
                                                          CaptureTool::ToUtf8(std::wstring(size)));
    }
}

TEST(CaptureToolArguments, BadRatesAreRefused) {
    for (const wchar_t* rate : {L"0", L"-5", L"abc", L"30fps", L"1e2", L"nan", L"inf", L"5000"}) {
        EXPECT_EQ(Refusal({L"cam", L"--rate", rate}),
                  "--rate takes a positive number of frames per second, not " +
                      CaptureTool::ToUtf8(std::wstring(rate)));
    }
}

TEST(CaptureToolArguments, BadFrameCountsAndSecondsAreRefused) {
    for (const wchar_t* frames : {L"0", L"-3", L"1.5", L"ten", L"99999999999"}) {
        EXPECT_EQ(Refusal({L"cam", L"--frames", frames}),
                  "--frames takes a positive whole number, not " +
                      CaptureTool::ToUtf8(std::wstring(frames)));
    }
    for (const wchar_t* seconds : {L"0", L"-1", L"x", L"0.0"}) {
        EXPECT_EQ(Refusal({L"cam", L"--seconds", seconds}),
                  "--seconds takes a positive number of seconds, not " +
                      CaptureTool::ToUtf8(std::wstring(seconds)));
    }
}

TEST(CaptureToolFormatNames, TheListingsNamesAreTaken) {
    const std::pair<const wchar_t*, DShow::VideoPixelFormat> names[] = {
        {L"I420", DShow::PIXEL_FORMAT_I420},   {L"NV12", DShow::PIXEL_FORMAT_NV12},
        {L"UYUY", DShow::PIXEL_FORMAT_UYVY},   {L"YUY2", DShow::PIXEL_FORMAT_YUY2},
        {L"RGB24", DShow::PIXEL_FORMAT_RGB24}, {L"RGBA", DShow::PIXEL_FORMAT_RGBA},
        {L"MJPEG", DShow::PIXEL_FORMAT_MJPEG}, {L"NV12_MS", DShow::PIXEL_FORMAT_NV12_MS},
    };
    for (const auto& name : names) {
        DShow::VideoPixelFormat format = DShow::PIXEL_FORMAT_UNKNOWN;
        EXPECT_TRUE(CaptureTool::ParsePixelFormatName(name.first, format));
        EXPECT_EQ(format, name.second);
    }
}

TEST(CaptureToolFormatNames, FourCcSpellingsNameTheSameFormats) {
    DShow::VideoPixelFormat format = DShow::PIXEL_FORMAT_UNKNOWN;
    ASSERT_TRUE(CaptureTool::ParsePixelFormatName(L"UYVY", format));
    EXPECT_EQ(format, DShow::PIXEL_FORMAT_UYVY);
    ASSERT_TRUE(CaptureTool::ParsePixelFormatName(L"MJPG", format));
    EXPECT_EQ(format, DShow::PIXEL_FORMAT_MJPEG);
}

TEST(CaptureToolFormatNames, CaseDoesNotMatter) {
    DShow::VideoPixelFormat format = DShow::PIXEL_FORMAT_UNKNOWN;
    ASSERT_TRUE(CaptureTool::ParsePixelFormatName(L"mjpg", format));
    EXPECT_EQ(format, DShow::PIXEL_FORMAT_MJPEG);
    ASSERT_TRUE(CaptureTool::ParsePixelFormatName(L"yuy2", format));
    EXPECT_EQ(format, DShow::PIXEL_FORMAT_YUY2);
}

TEST(CaptureToolFormatNames, OtherTextsNameNoFormat) {
    DShow::VideoPixelFormat format = DShow::PIXEL_FORMAT_YUY2;
    EXPECT_FALSE(CaptureTool::ParsePixelFormatName(L"", format));
    EXPECT_FALSE(CaptureTool::ParsePixelFormatName(L"H264", format));
    EXPECT_FALSE(CaptureTool::ParsePixelFormatName(L"UNKNOWN", format));
    EXPECT_FALSE(CaptureTool::ParsePixelFormatName(L"YUY", format));
    EXPECT_EQ(format, DShow::PIXEL_FORMAT_YUY2);
}

class CaptureToolModeChoice : public ::testing::Test {
protected:
    std::vector<VideoFormat> m_modes = {
        Mode(DShow::PIXEL_FORMAT_YUY2, 640, 480),
        Mode(DShow::PIXEL_FORMAT_YUY2, 1280, -720, 5.0f, 10.0f),
        Mode(DShow::PIXEL_FORMAT_MJPEG, 1280, 720),
        Mode(DShow::PIXEL_FORMAT_YUY2, 1280, 720),
    };
    CaptureArguments m_request;
    VideoFormat m_chosen;
};

TEST_F(CaptureToolModeChoice, NothingGivenTakesTheFirstListedMode) {
    ASSERT_TRUE(CaptureTool::ChooseMode(m_modes, m_request, m_chosen));
    EXPECT_EQ(m_chosen.ToString(), "YUY2,640*480,30.000");
}

TEST_F(CaptureToolModeChoice, AFormatAloneTakesItsFirstMode) {
    m_request.hasFormat = true;
    m_request.format = DShow::PIXEL_FORMAT_MJPEG;
    ASSERT_TRUE(CaptureTool::ChooseMode(m_modes, m_request, m_chosen));
    EXPECT_EQ(m_chosen.ToString(), "MJPEG,1280*720,30.000");
}

TEST_F(CaptureToolModeChoice, ASizeMatchesATopDownModeByTheHeightsMagnitude) {
    m_request.hasSize = true;
    m_request.width = 1280;
    m_request.height = 720;
    ASSERT_TRUE(CaptureTool::ChooseMode(m_modes, m_request, m_chosen));
    EXPECT_EQ(m_chosen.size.cy, -720);
    EXPECT_EQ(m_chosen.format, DShow::PIXEL_FORMAT_YUY2);
}

TEST_F(CaptureToolModeChoice, ARateOutsideAModesRangeSkipsItAndTheChosenModeCarriesTheRate) {
    m_request.hasSize = true;
    m_request.width = 1280;
    m_request.height = 720;
    m_request.hasRate = true;
    m_request.rate = 25.0f;
    ASSERT_TRUE(CaptureTool::ChooseMode(m_modes, m_request, m_chosen));
    // The top-down mode ends at 10 fps; the MJPEG mode is the next to reach 25.
    EXPECT_EQ(m_chosen.format, DShow::PIXEL_FORMAT_MJPEG);
    EXPECT_EQ(m_chosen.rate, 25.0f);
}

TEST_F(CaptureToolModeChoice, ATyped30MeetsARangeEndingAtTheIntervalsRate) {
    m_request.hasRate = true;
    m_request.rate = 30.0f;
    ASSERT_TRUE(CaptureTool::ChooseMode(m_modes, m_request, m_chosen));
    EXPECT_EQ(m_chosen.size.cx, 640);
    m_request.rate = 30.5f;
    EXPECT_FALSE(CaptureTool::ChooseMode(m_modes, m_request, m_chosen));
}

TEST_F(CaptureToolModeChoice, NoMatchingModeIsReported) {
    m_request.hasFormat = true;
    m_request.format = DShow::PIXEL_FORMAT_UYVY;
    EXPECT_FALSE(CaptureTool::ChooseMode(m_modes, m_request, m_chosen));
    EXPECT_FALSE(CaptureTool::ChooseMode({}, CaptureArguments(), m_chosen));
}

TEST_F(CaptureToolModeChoice, RequestTextNamesWhatWasGiven) {
    EXPECT_EQ(CaptureTool::RequestText(m_request), "any format, any size, any rate");
    m_request.hasFormat = true;
    m_request.format = DShow::PIXEL_FORMAT_UYVY;
    m_request.hasSize = true;
    m_request.width = 320;
    m_request.height = 240;
    m_request.hasRate = true;
    m_request.rate = 29.97f;
    EXPECT_EQ(CaptureTool::RequestText(m_request), "format UYUY, size 320x240, rate 29.97");
}

TEST(CaptureToolDrops, ASteadyStreamDropsNothing) {
    CaptureTool::DropCounter counter(kInterval30Ns);
    for (int frame = 0; frame < 100; ++frame) {
        counter.Add(static_cast<int64_t>(frame * kInterval30Ns));
    }
    EXPECT_EQ(counter.Drops(), 0);
}

TEST(CaptureToolDrops, AGapOfOneAndAHalfIntervalsIsNoDropButMoreIsOne) {
    CaptureTool::DropCounter counter(1000.0);
    counter.Add(0);
    counter.Add(1500);
    EXPECT_EQ(counter.Drops(), 0);
    counter.Add(3100);
    EXPECT_EQ(counter.Drops(), 1);
}

TEST(CaptureToolDrops, AGapCountsTheMissingFramesBetween) {
    CaptureTool::DropCounter counter(1000.0);
    counter.Add(-500);  // the first stream times can be negative
    counter.Add(2500);  // three intervals: two frames missing
    counter.Add(7400);  // 4.9 intervals, rounded to five: four missing
    EXPECT_EQ(counter.Drops(), 6);
}

TEST(CaptureToolDrops, ATimeStampThatGoesBackCountsNothing) {
    CaptureTool::DropCounter counter(1000.0);
    counter.Add(10000);
    counter.Add(0);
    counter.Add(1000);
    EXPECT_EQ(counter.Drops(), 0);
}

TEST(CaptureToolDrops, WithoutARateNothingIsCounted) {
    CaptureTool::DropCounter counter(CaptureTool::FrameIntervalNs(0.0f));
    counter.Add(0);
    counter.Add(1000000000);
    EXPECT_EQ(counter.Drops(), 0);
    EXPECT_DOUBLE_EQ(CaptureTool::FrameIntervalNs(25.0f), 40000000.0);
}

TEST(CaptureToolTally, CountsUpToTheLimitAndSignalsIt) {
    CaptureTool::FrameTally tally(3, 1000.0);
    tally.TakeAt(0, 100);
    tally.TakeAt(1000, 200);
    EXPECT_EQ(WaitForSingleObject(tally.Done(), 0), static_cast<DWORD>(WAIT_TIMEOUT));
    tally.TakeAt(4000, 300);
    EXPECT_EQ(WaitForSingleObject(tally.Done(), 0), static_cast<DWORD>(WAIT_OBJECT_0));
    tally.TakeAt(5000, 400);  // after the limit: not counted
    const CaptureTool::FrameCounts counts = tally.Counts();
    EXPECT_EQ(counts.frames, 3);
    EXPECT_EQ(counts.drops, 2);
    EXPECT_EQ(counts.firstArrivalNs, 100);
    EXPECT_EQ(counts.lastArrivalNs, 300);
}

TEST(CaptureToolTally, FramesPerSecondCountsTheIntervalsOverTheSpan) {
    CaptureTool::FrameCounts counts;
    counts.frames = 11;
    counts.firstArrivalNs = 1000000000;
    counts.lastArrivalNs = 1500000000;
    EXPECT_DOUBLE_EQ(CaptureTool::CountedSeconds(counts), 0.5);
    EXPECT_DOUBLE_EQ(CaptureTool::FramesPerSecond(counts), 20.0);
    counts.frames = 1;
    counts.lastArrivalNs = counts.firstArrivalNs;
    EXPECT_EQ(CaptureTool::FramesPerSecond(counts), 0.0);
}

CaptureTool::CaptureSummary ExampleSummary() {
    CaptureTool::CaptureSummary summary;
    summary.deviceId = "\\\\?\\cam\"1";
    summary.requested = VideoFormat(DShow::TinySize(640, 480), kRate30, DShow::PIXEL_FORMAT_YUY2);
    summary.current = VideoFormat(DShow::TinySize(640, -480), 30.0f, DShow::PIXEL_FORMAT_RGBA);
    summary.path = "avi";
    summary.frames = 10;
    summary.seconds = 0.5;
    summary.fps = 18.0;
    summary.drops = 2;
    summary.deviceLost = true;
    return summary;
}

TEST(CaptureToolOutput, SummaryJsonIsOneObjectWithTheKeysInOrder) {
    EXPECT_EQ(CaptureTool::SummaryJson(ExampleSummary()),
              "{\"current\":{\"format\":\"RGBA\",\"height\":-480,\"rate\":30.0,\"width\":640},"
              "\"device_id\":\"\\\\\\\\?\\\\cam\\\"1\",\"device_lost\":true,\"drops\":2,"
              "\"fps\":18.0,\"frames\":10,\"path\":\"avi\","
              "\"requested\":{\"format\":\"YUY2\",\"height\":480,\"rate\":30.000030517578125,"
              "\"width\":640},\"seconds\":0.5,\"snapshot\":null}");
}

TEST(CaptureToolOutput, SummaryJsonNamesTheSnapshotWritten) {
    CaptureTool::CaptureSummary summary = ExampleSummary();
    summary.hasSnapshot = true;
    summary.snapshot = "C:\\shots\\last.png";
    const std::string json = CaptureTool::SummaryJson(summary);
    EXPECT_EQ(json.substr(json.rfind("\"seconds\"")),
              "\"seconds\":0.5,\"snapshot\":\"C:\\\\shots\\\\last.png\"}");
}

TEST(CaptureToolOutput, SummaryTextEndsWithTheSnapshotLine) {
    CaptureTool::CaptureSummary summary = ExampleSummary();
    summary.hasSnapshot = true;
    summary.snapshot = "C:\\shots\\last.png";
    const std::string text = CaptureTool::SummaryText(summary);
    EXPECT_EQ(text.substr(text.find("device lost:")),
              "device lost: yes\nsnapshot: C:\\shots\\last.png\n");
}

TEST(CaptureToolOutput, ANamelessFormatIsAnEmptyNameInJsonAndItsNumberInText) {
    CaptureTool::CaptureSummary summary = ExampleSummary();
    summary.current.format = static_cast<DShow::VideoPixelFormat>(7);
    EXPECT_NE(CaptureTool::SummaryJson(summary).find("\"current\":{\"format\":\"\","),
              std::string::npos);
    EXPECT_EQ(CaptureTool::ModeText(summary.current), "#7 640x-480 at 30.000 fps");
}

TEST(CaptureToolOutput, SummaryTextHasOneLineForEachFact) {
    EXPECT_EQ(CaptureTool::SummaryText(ExampleSummary()),
              "device:    \\\\?\\cam\"1\n"
              "requested: YUY2 640x480 at 30.000 fps\n"
              "current:   RGBA 640x-480 at 30.000 fps\n"
              "path:      avi\n"
              "frames:    10 in 0.500 s, 18.00 fps, 2 dropped\n"
              "device lost: yes\n");
}

TEST(CaptureToolOutput, ProgressLineGivesFramesRateAndDrops) {
    EXPECT_EQ(CaptureTool::ProgressLine(2, 61, 30.0, 1), "2 s: 61 frames, 30.0 fps, 1 dropped");
}

TEST(CaptureToolOutput, PathNamesTellTheFeed) {
    using Feed = DShow::VideoCapture::SinkFeed;
    EXPECT_STREQ(CaptureTool::PathName(Feed::kDevice), "direct");
    EXPECT_STREQ(CaptureTool::PathName(Feed::kAviDecoder), "avi");
    EXPECT_STREQ(CaptureTool::PathName(Feed::kMjpegDecoder), "mjpeg");
    EXPECT_STREQ(CaptureTool::PathName(Feed::kOtherFilter), "other");
    EXPECT_STREQ(CaptureTool::PathName(Feed::kNone), "none");
}

// One row of YUY2 (Y0 U Y1 V per pixel pair) converted to BGR.
std::vector<uint8_t> Yuy2Row(const std::vector<uint8_t>& yuy2) {
    const int width = static_cast<int>(yuy2.size() / 2);
    std::vector<uint8_t> bgr(static_cast<size_t>(width) * 3, 0xAA);
    CaptureTool::Yuy2ToBgr(yuy2.data(), width, 1, bgr.data());
    return bgr;
}

TEST(CaptureToolYuy2ToBgr, BlackAndWhiteOfTheLimitedRangeBecomeTheFullRange) {
    EXPECT_EQ(Yuy2Row({16, 128, 235, 128}), (std::vector<uint8_t>{0, 0, 0, 255, 255, 255}));
}

TEST(CaptureToolYuy2ToBgr, MidGreyKeepsItsLevelScaled) {
    // (126 - 16) * 255 / 219 = 128.08
    EXPECT_EQ(Yuy2Row({126, 128, 126, 128}), (std::vector<uint8_t>{128, 128, 128, 128, 128, 128}));
}

TEST(CaptureToolYuy2ToBgr, PrimaryRedAndBlueComeOutPure) {
    // BT.601 limited range: red is Y 81 U 90 V 240, blue is Y 41 U 240 V 110.
    EXPECT_EQ(Yuy2Row({81, 90, 81, 240}), (std::vector<uint8_t>{0, 0, 255, 0, 0, 255}));
    EXPECT_EQ(Yuy2Row({41, 240, 41, 110}), (std::vector<uint8_t>{255, 0, 0, 255, 0, 0}));
}

TEST(CaptureToolYuy2ToBgr, BothPixelsOfAPairShareTheirChromaButKeepTheirLuma) {
    // Y 16 and 235 with U 88 V 168: B = (298*(Y-16) + 516*(U-128) + 128) >> 8 and so on,
    // each channel clamped to 0..255.
    EXPECT_EQ(Yuy2Row({16, 88, 235, 168}), (std::vector<uint8_t>{0, 0, 64, 174, 238, 255}));
}

TEST(CaptureToolYuy2ToBgr, RowsAreConvertedEachInItsPlace) {
    const std::vector<uint8_t> yuy2 = {16, 128, 16, 128, 235, 128, 235, 128};
    std::vector<uint8_t> bgr(12, 0xAA);
    CaptureTool::Yuy2ToBgr(yuy2.data(), 2, 2, bgr.data());
    EXPECT_EQ(bgr, (std::vector<uint8_t>{0, 0, 0, 0, 0, 0, 255, 255, 255, 255, 255, 255}));
}

TEST(CaptureToolYuy2ToBgr, AnOddLastPixelIsLeftAlone) {
    const std::vector<uint8_t> yuy2 = {235, 128, 235, 128, 16, 128};
    std::vector<uint8_t> bgr(9, 0xAA);
    CaptureTool::Yuy2ToBgr(yuy2.data(), 3, 1, bgr.data());
    EXPECT_EQ(bgr, (std::vector<uint8_t>{255, 255, 255, 255, 255, 255, 0xAA, 0xAA, 0xAA}));
}

}  // namespace
