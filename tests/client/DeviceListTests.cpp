#include "client/DeviceList.h"
#include "tests/support/RawParent.h"

#include <gtest/gtest.h>

namespace {

using QueryClient::DecodeDeviceList;
using QueryClient::Device;
using QueryClient::EncodeDeviceList;
using TestSupport::Utf16Bytes;

TEST(DeviceListDecoding, OneDeviceFromTheServersBytes) {
    const std::vector<uint8_t> bytes = {0x41, 0x00, 0x0A, 0x00, 0x42, 0x00, 0x0A, 0x00};
    const auto decoding = DecodeDeviceList(bytes);
    EXPECT_TRUE(decoding.complete);
    ASSERT_EQ(decoding.devices.size(), 1u);
    EXPECT_EQ(decoding.devices[0].id, L"A");
    EXPECT_EQ(decoding.devices[0].name, L"B");
}

TEST(DeviceListDecoding, EmptyStreamIsACompleteEmptyList) {
    const auto decoding = DecodeDeviceList({});
    EXPECT_TRUE(decoding.complete);
    EXPECT_TRUE(decoding.devices.empty());
}

TEST(DeviceListDecoding, KeepsOrderDuplicatesAndEmptyLines) {
    const auto decoding = DecodeDeviceList(Utf16Bytes(L"x\nCam\nx\nCam\n\n\n"));
    EXPECT_TRUE(decoding.complete);
    ASSERT_EQ(decoding.devices.size(), 3u);
    EXPECT_EQ(decoding.devices[1].id, L"x");
    EXPECT_EQ(decoding.devices[2].id, L"");
    EXPECT_EQ(decoding.devices[2].name, L"");
}

TEST(DeviceListDecoding, NonAsciiTextArrivesAsTheSameUtf16) {
    const std::wstring name = L"Kam\u00e9ra \u6444\u50cf\u5934 \xD83D\xDCF7";
    const auto decoding = DecodeDeviceList(Utf16Bytes(L"id\n" + name + L"\n"));
    ASSERT_EQ(decoding.devices.size(), 1u);
    EXPECT_EQ(decoding.devices[0].name, name);
}

TEST(DeviceListDecoding, CutInTheMiddleOfAUnit) {
    std::vector<uint8_t> bytes = Utf16Bytes(L"a\nb\nc");
    bytes.pop_back();
    const auto decoding = DecodeDeviceList(bytes);
    EXPECT_FALSE(decoding.complete);
    EXPECT_EQ(decoding.devices.size(), 1u);
    EXPECT_NE(decoding.problem.find("UTF-16 unit"), std::string::npos);
}

TEST(DeviceListDecoding, CutInTheMiddleOfALine) {
    const auto decoding = DecodeDeviceList(Utf16Bytes(L"a\nb\nc"));
    EXPECT_FALSE(decoding.complete);
    EXPECT_EQ(decoding.devices.size(), 1u);
    EXPECT_NE(decoding.problem.find("middle of a line"), std::string::npos);
}

TEST(DeviceListDecoding, IdWithoutItsNameIsDropped) {
    const auto decoding = DecodeDeviceList(Utf16Bytes(L"a\nb\nc\n"));
    EXPECT_FALSE(decoding.complete);
    ASSERT_EQ(decoding.devices.size(), 1u);
    EXPECT_EQ(decoding.devices[0].id, L"a");
    EXPECT_NE(decoding.problem.find("without its name"), std::string::npos);
}

TEST(DeviceListDecoding, CarriageReturnIsPartOfTheText) {
    const auto decoding = DecodeDeviceList(Utf16Bytes(L"a\r\nb\n"));
    ASSERT_EQ(decoding.devices.size(), 1u);
    EXPECT_EQ(decoding.devices[0].id, L"a\r");
}

TEST(DeviceListDecoding, EncodeAndDecodeAgree) {
    const std::vector<Device> devices = {{L"\\\\?\\usb#1", L"One"}, {L"two", L"two"}};
    const auto decoding = DecodeDeviceList(EncodeDeviceList(devices));
    EXPECT_TRUE(decoding.complete);
    ASSERT_EQ(decoding.devices.size(), 2u);
    EXPECT_EQ(decoding.devices[0].id, devices[0].id);
    EXPECT_EQ(decoding.devices[1].name, devices[1].name);
}

}  // namespace
