// QueryTool: its JSON of modes, and what it says of an unknown device and of the remembered
// problem devices, through QueryTool.exe and the real server against virtual cameras.
#include "client/FormatList.h"
#include "client/ProblemDevices.h"
#include "tests/e2e/CameraTest.h"
#include "tests/e2e/ToolRun.h"
#include "tools/QueryTool/ToolOutput.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using TestSupport::RunTool;
using TestSupport::ToolRun;

// The tool writes its output and errors in the C runtime's text mode: each line ends in CR LF.
const std::string kToolLineEnd = "\r\n";

// The documented format reply of one YUY2 mode, and the same mode as the tool prints it.
const char kReplyOfOneMode[] =
    "[{\"flip\": 0, \"format\": 6, \"maxRate\": 30.000030517578125, \"maxSize_cx\": 640, "
    "\"maxSize_cy\": 480, \"minRate\": 5, \"minSize_cx\": 640, \"minSize_cy\": 480, "
    "\"rate\": 30.000030517578125, \"scale_x\": 0, \"scale_y\": 0, \"size_x\": 640, "
    "\"size_y\": 480}]";
const char kToolsModeJson[] =
    "{\"flip\": 0, \"format\": 6, \"format_name\": \"YUY2\", \"maxRate\": 30.000030517578125, "
    "\"maxSize_cx\": 640, \"maxSize_cy\": 480, \"minRate\": 5, \"minSize_cx\": 640, "
    "\"minSize_cy\": 480, \"rate\": 30.000030517578125, \"scale_x\": 0, \"scale_y\": 0, "
    "\"size_x\": 640, \"size_y\": 480}";

QueryClient::Mode DecodedMode(const std::string& reply) {
    const QueryClient::FormatListDecoding decoding = QueryClient::DecodeFormatList(reply);
    EXPECT_TRUE(decoding.complete) << decoding.problem;
    return decoding.modes.empty() ? QueryClient::Mode() : decoding.modes[0];
}

TEST(ToolOutput, ModeJsonIsTheRepliesObjectWithTheFormatsNameBesideItsNumber) {
    EXPECT_EQ(QueryTool::ModeJson(DecodedMode(kReplyOfOneMode)), kToolsModeJson);
}

TEST(ToolOutput, NamelessFormatHasAnEmptyName) {
    QueryClient::Mode mode;
    mode.format = 7;
    EXPECT_NE(QueryTool::ModeJson(mode).find("\"format\": 7, \"format_name\": \"\", "),
              std::string::npos)
        << QueryTool::ModeJson(mode);
}

TEST(ToolOutput, ModesJsonOfNoModesIsAnEmptyArray) {
    EXPECT_EQ(QueryTool::ModesJson({}), "[]");
}

TEST(ToolOutput, PixelFormatLabelIsTheNameOrTheNumber) {
    EXPECT_EQ(QueryTool::PixelFormatLabel(5), "UYUY");
    EXPECT_EQ(QueryTool::PixelFormatLabel(7), "#7");
}

TEST(ToolOutput, UnknownDeviceTextQuotesTheId) {
    EXPECT_EQ(QueryTool::UnknownDeviceText(L"no \"such\""),
              "no video capture device has the id \"no \\\"such\\\"\"");
}

class QueryToolWithCamera : public CameraTest {};

TEST_F(QueryToolWithCamera, FormatsOfAnIdThatNoDeviceHasSaySo) {
    AddDevices(L"[device bare]\nFriendlyName = Bare\nDevicePath = bare\n");
    const ToolRun run = RunTool(L"--no-remember formats nosuch");
    EXPECT_EQ(run.exitCode, 1u);
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(run.err, "QueryTool: no video capture device has the id \"nosuch\"" + kToolLineEnd);
}

TEST_F(QueryToolWithCamera, FormatsOfADeviceWithoutModesFindsNoModes) {
    AddDevices(L"[device bare]\nFriendlyName = Bare\nDevicePath = bare\n");
    const ToolRun run = RunTool(L"--no-remember formats bare");
    EXPECT_EQ(run.exitCode, 0u) << run.err;
    EXPECT_EQ(run.out, "No modes found." + kToolLineEnd);
}

TEST_F(QueryToolWithCamera, JsonListGivesEachModesFormatName) {
    AddDevices(
        L"[device ex]\nFriendlyName = Example\nDevicePath = ex\n"
        L"mode = YUY2 videoinfo 640 480 333333 min_interval=333333 max_interval=2000000 "
        L"min_output=0x0 max_output=0x0\n");
    const ToolRun run = RunTool(L"--no-remember --json list");
    EXPECT_EQ(run.exitCode, 0u) << run.err;
    EXPECT_EQ(run.out, std::string("[{\"id\": \"ex\", \"name\": \"Example\", \"modes\": [") +
                           kToolsModeJson + "]}]" + kToolLineEnd);
}

// The tool keeps its list under LOCALAPPDATA; these tests give it a folder of their own.
class QueryToolWithOwnList : public ::testing::Test {
protected:
    void SetUp() override {
        wchar_t saved[MAX_PATH] = {};
        m_hadAppData = GetEnvironmentVariableW(L"LOCALAPPDATA", saved, MAX_PATH) > 0;
        m_savedAppData = saved;
        const std::wstring appData = TestSupport::TempFolder(L"own-list");
        CreateDirectoryW(appData.c_str(), nullptr);
        SetEnvironmentVariableW(L"LOCALAPPDATA", appData.c_str());
    }
    void TearDown() override {
        SetEnvironmentVariableW(L"LOCALAPPDATA", m_hadAppData ? m_savedAppData.c_str() : nullptr);
    }

private:
    bool m_hadAppData = false;
    std::wstring m_savedAppData;
};

TEST_F(QueryToolWithOwnList, NoRememberStillShowsTheList) {
    QueryClient::ProblemDevices problems(QueryClient::ProblemDevices::DefaultPath());
    problems.Remember(L"crashy", QueryClient::Outcome::ServerDied);
    ASSERT_TRUE(problems.Save());

    const ToolRun run = RunTool(L"--no-remember problems");
    EXPECT_EQ(run.exitCode, 0u) << run.err;
    EXPECT_EQ(run.out, "OUTCOME" + std::string(23, ' ') + "ID" + kToolLineEnd + "server-died" +
                           std::string(19, ' ') + "crashy" + kToolLineEnd);
}

}  // namespace
