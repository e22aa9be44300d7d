#pragma once

#include "tests/support/TestDeadlines.h"
#include "tests/support/OwnProcesses.h"
#include "tests/support/RawParent.h"
#include "tools/VirtualCamera/VirtualCameraSetup.h"

#include <gtest/gtest.h>

#include <objbase.h>

#include <string>

// A test against virtual cameras through the real server: it starts and ends with no virtual
// device at all, so that device lists hold exactly what the test registered, and it checks that
// no server that this test program started outlived the test's queries.
class CameraTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        ASSERT_TRUE(TestSupport::JoinOwnProcessJob());
        std::wstring error;
        ASSERT_TRUE(VirtualCamera::RegisterServer(&error)) << Narrow(error);
    }
    void SetUp() override {
        CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
        VirtualCamera::RemoveAllDevices();
    }
    void TearDown() override {
        VirtualCamera::RemoveAllDevices();
        EXPECT_EQ(TestSupport::OwnProcessesLeftAfter(L"QueryServer.exe",
                                                     TestSupport::kGenerousDeadlineMs),
                  0)
            << "a server outlived its query";
        CoUninitialize();
    }

    static void AddDevices(const std::wstring& description) {
        std::wstring error;
        ASSERT_TRUE(VirtualCamera::AddDevices(description, &error)) << Narrow(error);
    }

    static std::string Narrow(const std::wstring& text) {
        return std::string(text.begin(), text.end());
    }
};
