// Devices as the system device enumerator shows them: names, types, removal, the tool.

#include <algorithm>

#include "VirtualCameraFixture.h"
#include "tools/VirtualCamera/Config/Guids.h"
#include "tools/VirtualCamera/VirtualCameraSetup.h"

namespace VirtualCameraTests {
namespace {

bool Contains(const std::vector<std::wstring>& names, const std::wstring& name) {
    return std::find(names.begin(), names.end(), name) != names.end();
}

using VirtualCameraDeviceTest = VirtualCameraTest;

TEST_F(VirtualCameraDeviceTest, AppearsWithItsNamesAndDisappearsWhenRemoved) {
    const std::wstring name = UniqueName();
    AddDevices(L"[device " + name +
               L"]\nFriendlyName = Cam One\nDescription = A test camera\n"
               L"DevicePath = \\\\?\\virtual#one\nmode = YUY2 videoinfo 160 120 333333\n");
    ASSERT_TRUE(FindMoniker(name));
    const BagValue friendly = ReadBag(name, L"FriendlyName");
    EXPECT_EQ(friendly.type, VT_BSTR);
    EXPECT_EQ(friendly.text, L"Cam One");
    const BagValue description = ReadBag(name, L"Description");
    EXPECT_EQ(description.type, VT_BSTR);
    EXPECT_EQ(description.text, L"A test camera");
    const BagValue path = ReadBag(name, L"DevicePath");
    EXPECT_EQ(path.type, VT_BSTR);
    EXPECT_EQ(path.text, L"\\\\?\\virtual#one");
    EXPECT_TRUE(Contains(VirtualCamera::ListDevices(), name));

    EXPECT_TRUE(VirtualCamera::RemoveDevice(name));
    EXPECT_FALSE(FindMoniker(name));
    EXPECT_FALSE(Contains(VirtualCamera::ListDevices(), name));
    EXPECT_FALSE(VirtualCamera::RemoveDevice(name));
}

TEST_F(VirtualCameraDeviceTest, NamesCanBeAbsentOrNumbers) {
    const std::wstring name = UniqueName();
    AddDevices(L"[device " + name + L"]\nDescription:i4 = 42\nDevicePath:i4 = -3\n");
    EXPECT_FALSE(ReadBag(name, L"FriendlyName").present);
    const BagValue description = ReadBag(name, L"Description");
    EXPECT_EQ(description.type, VT_I4);
    EXPECT_EQ(description.number, 42);
    const BagValue path = ReadBag(name, L"DevicePath");
    EXPECT_EQ(path.type, VT_I4);
    EXPECT_EQ(path.number, -3);

    const std::wstring other = UniqueName(L"-numeric");
    AddDevices(L"[device " + other + L"]\nFriendlyName:i4 = 7\n");
    const BagValue friendly = ReadBag(other, L"FriendlyName");
    EXPECT_EQ(friendly.type, VT_I4);
    EXPECT_EQ(friendly.number, 7);
    EXPECT_FALSE(ReadBag(other, L"Description").present);
    EXPECT_FALSE(ReadBag(other, L"DevicePath").present);
}

TEST_F(VirtualCameraDeviceTest, AddingAgainReplacesTheDevice) {
    const std::wstring name = UniqueName();
    AddDevices(L"[device " + name + L"]\nFriendlyName = Old\nDescription = goes away\n");
    AddDevices(L"[device " + name + L"]\nFriendlyName = New\n");
    EXPECT_EQ(ReadBag(name, L"FriendlyName").text, L"New");
    EXPECT_FALSE(ReadBag(name, L"Description").present);
    const auto names = VirtualCamera::ListDevices();
    EXPECT_EQ(std::count(names.begin(), names.end(), name), 1);
}

TEST_F(VirtualCameraDeviceTest, BindingCreatesTheCameraFilter) {
    const std::wstring name = UniqueName();
    AddDevices(L"[device " + name + L"]\nFriendlyName = Bound\nmode = YUY2 videoinfo 64 48 0\n");
    ComPtr<IBaseFilter> filter = BindFilterOrFail(name);
    ASSERT_TRUE(filter);
    CLSID clsid = GUID_NULL;
    ASSERT_EQ(filter->GetClassID(&clsid), S_OK);
    EXPECT_TRUE(IsEqualGUID(clsid, VirtualCamera::CLSID_VirtualCameraFilter));
    ComPtr<IAMFilterMiscFlags> flags;
    ASSERT_EQ(filter.As(&flags), S_OK);
    EXPECT_EQ(flags->GetMiscFlags(), static_cast<ULONG>(AM_FILTER_MISC_FLAGS_IS_SOURCE));
    ComPtr<IPin> pin = OutputPin(filter.Get());
    ASSERT_TRUE(pin);
    PIN_DIRECTION direction = PINDIR_INPUT;
    EXPECT_EQ(pin->QueryDirection(&direction), S_OK);
    EXPECT_EQ(direction, PINDIR_OUTPUT);
    // Each bind makes a new filter.
    ComPtr<IBaseFilter> second = BindFilterOrFail(name);
    EXPECT_NE(filter.Get(), second.Get());
}

TEST_F(VirtualCameraDeviceTest, DefaultCameraIsRegisteredWithThreeModes) {
    const std::wstring name = VirtualCamera::DefaultCameraInstanceName();
    AddDevices(VirtualCamera::DefaultCameraDescription());
    EXPECT_EQ(ReadBag(name, L"FriendlyName").text, L"Virtual Camera");
    EXPECT_FALSE(ReadBag(name, L"DevicePath").text.empty());
    ComPtr<IAMStreamConfig> config = StreamConfig(name);
    ASSERT_TRUE(config);
    int count = 0;
    int size = 0;
    ASSERT_EQ(config->GetNumberOfCapabilities(&count, &size), S_OK);
    EXPECT_EQ(count, 3);
}

TEST_F(VirtualCameraDeviceTest, RemoveAllDevicesRemovesEveryVirtualDevice) {
    const std::wstring first = UniqueName(L"-1");
    const std::wstring second = UniqueName(L"-2");
    AddDevices(L"[device " + first + L"]\n[device " + second + L"]\n");
    ASSERT_TRUE(Contains(VirtualCamera::ListDevices(), first));
    ASSERT_TRUE(Contains(VirtualCamera::ListDevices(), second));
    EXPECT_TRUE(VirtualCamera::RemoveAllDevices());
    EXPECT_TRUE(VirtualCamera::ListDevices().empty());
}

TEST_F(VirtualCameraDeviceTest, ABadDescriptionRegistersNothing) {
    const std::wstring name = UniqueName();
    std::wstring error;
    EXPECT_FALSE(VirtualCamera::AddDevices(L"[device " + name + L"]\nmode = YUY2\n", &error));
    EXPECT_NE(error.find(L"line 2"), std::wstring::npos);
    EXPECT_FALSE(FindMoniker(name));
}

// ---- The command-line tool --------------------------------------------------------------------

TEST_F(VirtualCameraDeviceTest, ToolHelpDocumentsTheFormat) {
    std::string output;
    EXPECT_EQ(RunProgram(L"VirtualCameraTool.exe", L"--help", kStateDeadlineMs, "", &output), 0u);
    EXPECT_NE(output.find("mode = <subtype>"), std::string::npos);
    EXPECT_NE(output.find("unplug_after"), std::string::npos);
    EXPECT_NE(output.find("caps_size:N"), std::string::npos);
    EXPECT_NE(output.find("short_format:K"), std::string::npos);
    EXPECT_NE(output.find("short_mediums"), std::string::npos);
}

TEST_F(VirtualCameraDeviceTest, ToolAddsListsAndRemovesDevices) {
    const std::wstring name = UniqueName(L"-tool");
    const std::string narrowName(name.begin(), name.end());
    std::string output;
    ASSERT_EQ(RunProgram(L"VirtualCameraTool.exe", L"add -", kStateDeadlineMs,
                         "[device " + narrowName + "]\nFriendlyName = From Tool\n", &output),
              0u)
        << output;
    EXPECT_EQ(ReadBag(name, L"FriendlyName").text, L"From Tool");
    ASSERT_EQ(RunProgram(L"VirtualCameraTool.exe", L"list", kStateDeadlineMs, "", &output), 0u);
    EXPECT_NE(output.find(narrowName + "\tFrom Tool"), std::string::npos) << output;
    EXPECT_EQ(RunProgram(L"VirtualCameraTool.exe", L"remove " + name), 0u);
    EXPECT_FALSE(FindMoniker(name));
    EXPECT_NE(
        RunProgram(L"VirtualCameraTool.exe", L"remove " + name, kStateDeadlineMs, "", &output), 0u);
    EXPECT_NE(output.find("no virtual device"), std::string::npos);
}

TEST_F(VirtualCameraDeviceTest, ToolRejectsBadInputWithAReason) {
    std::string output;
    EXPECT_NE(RunProgram(L"VirtualCameraTool.exe", L"add -", kStateDeadlineMs,
                         "[device x]\nfoo = 1\n", &output),
              0u);
    EXPECT_NE(output.find("line 2"), std::string::npos) << output;
    EXPECT_NE(RunProgram(L"VirtualCameraTool.exe", L"frobnicate", kStateDeadlineMs, "", &output),
              0u);
    EXPECT_NE(output.find("unknown command"), std::string::npos) << output;
    EXPECT_NE(RunProgram(L"VirtualCameraTool.exe", L"add C:\\no\\such\\file.txt", kStateDeadlineMs,
                         "", &output),
              0u);
}

}  // namespace
}  // namespace VirtualCameraTests
