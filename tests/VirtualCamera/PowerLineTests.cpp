// The capture filter's power-line frequency through its IKsPropertySet: what a capture graph
// sets (a KSPROPERTY_VIDEOPROCAMP_S record of 40 bytes, value 2, flags 2) is answered, read back
// and reported in the device's property bag; the faults refuse it; anything else is unknown.

#include <ks.h>
#include <ksmedia.h>

#include "VirtualCameraFixture.h"
#include "tools/VirtualCamera/Config/Guids.h"
#include "tools/VirtualCamera/VirtualCameraSetup.h"

namespace VirtualCameraTests {
namespace {

using VirtualCamera::PROPSETID_VirtualCameraVideoProcAmp;

constexpr DWORD kPowerLine = KSPROPERTY_VIDEOPROCAMP_POWERLINE_FREQUENCY;
// 40 bytes, as a capture graph passes it.
constexpr DWORD kRecordSize = sizeof(KSPROPERTY_VIDEOPROCAMP_S);
constexpr HRESULT kBufferTooSmall = HRESULT_FROM_WIN32(ERROR_INSUFFICIENT_BUFFER);
// The one mode of every device here.
const std::wstring kYuy2Mode = L"mode = YUY2 videoinfo 64 48 333333\n";

// The record as a capture graph fills it to select 60 Hz.
KSPROPERTY_VIDEOPROCAMP_S PowerLineRecord(LONG value, ULONG flags) {
    KSPROPERTY_VIDEOPROCAMP_S record = {};
    record.Property.Set = PROPSETID_VirtualCameraVideoProcAmp;
    record.Property.Id = kPowerLine;
    record.Property.Flags = KSPROPERTY_TYPE_SET;
    record.Value = value;
    record.Flags = flags;
    return record;
}

HRESULT SetPowerLine(IKsPropertySet* properties, LONG value, ULONG flags,
                     DWORD size = kRecordSize) {
    KSPROPERTY_VIDEOPROCAMP_S record = PowerLineRecord(value, flags);
    return properties->Set(PROPSETID_VirtualCameraVideoProcAmp, kPowerLine, &record, size, &record,
                           size);
}

class VirtualCameraPowerLineTest : public VirtualCameraTest {
protected:
    ComPtr<IKsPropertySet> Properties(const std::wstring& name) {
        filter_ = BindFilterOrFail(name);
        ComPtr<IKsPropertySet> properties;
        if (filter_) {
            EXPECT_EQ(filter_.As(&properties), S_OK);
        }
        return properties;
    }

    static KSPROPERTY_VIDEOPROCAMP_S Get(IKsPropertySet* properties) {
        KSPROPERTY_VIDEOPROCAMP_S answer = {};
        DWORD returned = 0;
        EXPECT_EQ(properties->Get(PROPSETID_VirtualCameraVideoProcAmp, kPowerLine, nullptr, 0,
                                  &answer, kRecordSize, &returned),
                  S_OK);
        EXPECT_EQ(returned, kRecordSize);
        return answer;
    }

    ComPtr<IBaseFilter> filter_;
};

TEST_F(VirtualCameraPowerLineTest, FilterSupportsGettingAndSettingIt) {
    ComPtr<IKsPropertySet> properties = Properties(AddDevice(kYuy2Mode));
    ASSERT_TRUE(properties);
    DWORD support = 0;
    EXPECT_EQ(properties->QuerySupported(PROPSETID_VirtualCameraVideoProcAmp, kPowerLine, &support),
              S_OK);
    EXPECT_EQ(support, static_cast<DWORD>(KSPROPERTY_SUPPORT_GET | KSPROPERTY_SUPPORT_SET));
}

TEST_F(VirtualCameraPowerLineTest, NewFilterRunsAtFiftyHertzAndHasReportedNothing) {
    const std::wstring name = AddDevice(kYuy2Mode);
    ComPtr<IKsPropertySet> properties = Properties(name);
    ASSERT_TRUE(properties);
    const KSPROPERTY_VIDEOPROCAMP_S answer = Get(properties.Get());
    EXPECT_EQ(answer.Value, 1);
    EXPECT_EQ(answer.Flags, static_cast<ULONG>(KSPROPERTY_VIDEOPROCAMP_FLAGS_MANUAL));
    EXPECT_EQ(answer.Capabilities, static_cast<ULONG>(KSPROPERTY_VIDEOPROCAMP_FLAGS_MANUAL));
    EXPECT_TRUE(IsEqualGUID(answer.Property.Set, PROPSETID_VirtualCameraVideoProcAmp));
    EXPECT_EQ(answer.Property.Id, kPowerLine);
    EXPECT_EQ(answer.Property.Flags, static_cast<ULONG>(KSPROPERTY_TYPE_GET));
    VirtualCamera::PowerLineReport report;
    EXPECT_FALSE(VirtualCamera::ReadPowerLineReport(name, &report));
}

TEST_F(VirtualCameraPowerLineTest, SetValueAndFlagsAreAnsweredAndReported) {
    const std::wstring name = AddDevice(kYuy2Mode);
    ComPtr<IKsPropertySet> properties = Properties(name);
    ASSERT_TRUE(properties);
    ASSERT_EQ(SetPowerLine(properties.Get(), 2, 2), S_OK);
    const KSPROPERTY_VIDEOPROCAMP_S answer = Get(properties.Get());
    EXPECT_EQ(answer.Value, 2);
    EXPECT_EQ(answer.Flags, 2u);
    VirtualCamera::PowerLineReport report;
    ASSERT_TRUE(VirtualCamera::ReadPowerLineReport(name, &report));
    EXPECT_EQ(report.value, 2);
    EXPECT_EQ(report.flags, 2u);
}

TEST_F(VirtualCameraPowerLineTest, ReportOutlivesTheFilterUntilTheDeviceIsAddedAgain) {
    const std::wstring name = AddDevice(kYuy2Mode);
    {
        ComPtr<IKsPropertySet> properties = Properties(name);
        ASSERT_TRUE(properties);
        ASSERT_EQ(SetPowerLine(properties.Get(), 0, 1), S_OK);
        filter_.Reset();
    }
    VirtualCamera::PowerLineReport report;
    ASSERT_TRUE(VirtualCamera::ReadPowerLineReport(name, &report));
    EXPECT_EQ(report.value, 0);
    EXPECT_EQ(report.flags, 1u);
    // Every bind makes a new filter, which starts at 50 Hz again.
    ComPtr<IKsPropertySet> again = Properties(name);
    ASSERT_TRUE(again);
    EXPECT_EQ(Get(again.Get()).Value, 1);
    again.Reset();
    filter_.Reset();
    AddDevices(L"[device " + name + L"]\n" + kYuy2Mode);
    EXPECT_FALSE(VirtualCamera::ReadPowerLineReport(name, &report));
}

TEST_F(VirtualCameraPowerLineTest, OtherPropertiesAreRefusedWithTheirExactCodes) {
    const std::wstring name = AddDevice(kYuy2Mode);
    ComPtr<IKsPropertySet> properties = Properties(name);
    ASSERT_TRUE(properties);
    DWORD support = 0;
    KSPROPERTY_VIDEOPROCAMP_S record = PowerLineRecord(2, 2);
    DWORD returned = 0;
    const DWORD brightness = KSPROPERTY_VIDEOPROCAMP_BRIGHTNESS;
    EXPECT_EQ(properties->QuerySupported(PROPSETID_VirtualCameraVideoProcAmp, brightness, &support),
              E_PROP_ID_UNSUPPORTED);
    EXPECT_EQ(properties->Set(PROPSETID_VirtualCameraVideoProcAmp, brightness, &record, kRecordSize,
                              &record, kRecordSize),
              E_PROP_ID_UNSUPPORTED);
    EXPECT_EQ(properties->Get(PROPSETID_VirtualCameraVideoProcAmp, brightness, nullptr, 0, &record,
                              kRecordSize, &returned),
              E_PROP_ID_UNSUPPORTED);
    // The pin's own property set is not the filter's.
    EXPECT_EQ(properties->QuerySupported(AMPROPSETID_Pin, AMPROPERTY_PIN_CATEGORY, &support),
              E_PROP_SET_UNSUPPORTED);
    EXPECT_EQ(
        properties->Set(AMPROPSETID_Pin, kPowerLine, &record, kRecordSize, &record, kRecordSize),
        E_PROP_SET_UNSUPPORTED);
    EXPECT_EQ(properties->Get(AMPROPSETID_Pin, AMPROPERTY_PIN_CATEGORY, nullptr, 0, &record,
                              kRecordSize, &returned),
              E_PROP_SET_UNSUPPORTED);
    VirtualCamera::PowerLineReport report;
    EXPECT_FALSE(VirtualCamera::ReadPowerLineReport(name, &report));
}

TEST_F(VirtualCameraPowerLineTest, UnsupportedFaultRefusesTheProperty) {
    const std::wstring name = AddDevice(kYuy2Mode + L"fault = powerline_unsupported\n");
    ComPtr<IKsPropertySet> properties = Properties(name);
    ASSERT_TRUE(properties);
    DWORD support = 0;
    EXPECT_EQ(properties->QuerySupported(PROPSETID_VirtualCameraVideoProcAmp, kPowerLine, &support),
              E_PROP_ID_UNSUPPORTED);
    EXPECT_EQ(SetPowerLine(properties.Get(), 2, 2), E_PROP_ID_UNSUPPORTED);
    KSPROPERTY_VIDEOPROCAMP_S answer = {};
    DWORD returned = 0;
    EXPECT_EQ(properties->Get(PROPSETID_VirtualCameraVideoProcAmp, kPowerLine, nullptr, 0, &answer,
                              kRecordSize, &returned),
              E_PROP_ID_UNSUPPORTED);
    VirtualCamera::PowerLineReport report;
    EXPECT_FALSE(VirtualCamera::ReadPowerLineReport(name, &report));
}

TEST_F(VirtualCameraPowerLineTest, ReadOnlyFaultOffersNoSetAndRefusesIt) {
    const std::wstring name = AddDevice(kYuy2Mode + L"fault = powerline_read_only\n");
    ComPtr<IKsPropertySet> properties = Properties(name);
    ASSERT_TRUE(properties);
    DWORD support = 0;
    EXPECT_EQ(properties->QuerySupported(PROPSETID_VirtualCameraVideoProcAmp, kPowerLine, &support),
              S_OK);
    EXPECT_EQ(support, static_cast<DWORD>(KSPROPERTY_SUPPORT_GET));
    // What a kernel-streaming driver without a set handler answers.
    EXPECT_EQ(SetPowerLine(properties.Get(), 2, 2), static_cast<HRESULT>(0x80070001));
    EXPECT_EQ(Get(properties.Get()).Value, 1);
    VirtualCamera::PowerLineReport report;
    EXPECT_FALSE(VirtualCamera::ReadPowerLineReport(name, &report));
}

TEST_F(VirtualCameraPowerLineTest, ShortRecordsAndUnknownValuesAreRefused) {
    const std::wstring name = AddDevice(kYuy2Mode);
    ComPtr<IKsPropertySet> properties = Properties(name);
    ASSERT_TRUE(properties);
    EXPECT_EQ(SetPowerLine(properties.Get(), 2, 2, kRecordSize - 4), kBufferTooSmall);
    EXPECT_EQ(SetPowerLine(properties.Get(), 4, 2), E_INVALIDARG);
    EXPECT_EQ(SetPowerLine(properties.Get(), -1, 2), E_INVALIDARG);
    EXPECT_EQ(properties->Set(PROPSETID_VirtualCameraVideoProcAmp, kPowerLine, nullptr, 0, nullptr,
                              kRecordSize),
              E_POINTER);
    KSPROPERTY_VIDEOPROCAMP_S answer = {};
    DWORD returned = 0;
    EXPECT_EQ(properties->Get(PROPSETID_VirtualCameraVideoProcAmp, kPowerLine, nullptr, 0, &answer,
                              kRecordSize - 1, &returned),
              kBufferTooSmall);
    // Without a buffer, Get tells the size of its answer.
    EXPECT_EQ(properties->Get(PROPSETID_VirtualCameraVideoProcAmp, kPowerLine, nullptr, 0, nullptr,
                              0, &returned),
              S_OK);
    EXPECT_EQ(returned, kRecordSize);
    EXPECT_EQ(Get(properties.Get()).Value, 1);
    VirtualCamera::PowerLineReport report;
    EXPECT_FALSE(VirtualCamera::ReadPowerLineReport(name, &report));
}

TEST_F(VirtualCameraPowerLineTest, PropertySetCountsOnTheFilter) {
    ComPtr<IKsPropertySet> properties = Properties(AddDevice(kYuy2Mode));
    ASSERT_TRUE(properties);
    // Ours through the filter and through the property set.
    EXPECT_EQ(properties->AddRef(), 3u);
    EXPECT_EQ(properties->Release(), 2u);
    properties.Reset();
    EXPECT_EQ(filter_->AddRef(), 2u);
    EXPECT_EQ(filter_->Release(), 1u);
}

TEST_F(VirtualCameraPowerLineTest, ToolReportsWhatWasSet) {
    const std::wstring name = AddDevice(kYuy2Mode);
    std::string output;
    EXPECT_EQ(RunProgram(L"VirtualCameraTool.exe", L"report " + name, 2 * kStateDeadlineMs,
                         std::string(), &output),
              0u);
    EXPECT_EQ(output, "power-line frequency: not set\r\n");
    ComPtr<IKsPropertySet> properties = Properties(name);
    ASSERT_TRUE(properties);
    ASSERT_EQ(SetPowerLine(properties.Get(), 2, 2), S_OK);
    EXPECT_EQ(RunProgram(L"VirtualCameraTool.exe", L"report " + name, 2 * kStateDeadlineMs,
                         std::string(), &output),
              0u);
    EXPECT_EQ(output, "power-line frequency: value 2, flags 2\r\n");
    EXPECT_EQ(RunProgram(L"VirtualCameraTool.exe", L"report no-such-device", 2 * kStateDeadlineMs,
                         std::string(), &output),
              1u);
    EXPECT_EQ(output, "VirtualCameraTool: no virtual device named 'no-such-device'\r\n");
}

}  // namespace
}  // namespace VirtualCameraTests
