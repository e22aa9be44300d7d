#include "TinyFramework/Common/TinyLogging_win32.h"

#include <gtest/gtest.h>

TEST(Smoke, Builds) { EXPECT_EQ(TinyFramework::GetLogFloodGuard(), 1); }
