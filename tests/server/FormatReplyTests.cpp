#include "server/FormatReply.h"
#include "server/JsonText.h"

#include <gtest/gtest.h>

#include <cmath>

namespace {

using DShow::TinySize;
using DShow::VideoFormat;
using QueryServer::FormatsToJson;
using QueryServer::JsonDouble;

VideoFormat Mode(int format, int cx, int cy, float rate, float minRate, float maxRate) {
    VideoFormat mode;
    mode.format = static_cast<DShow::VideoPixelFormat>(format);
    mode.size = TinySize(cx, cy);
    mode.minSize = mode.size;
    mode.maxSize = mode.size;
    mode.rate = rate;
    mode.minRate = minRate;
    mode.maxRate = maxRate;
    return mode;
}

TEST(FormatReplyTest, OneYuy2ModeAtThirtyFramesByteForByte) {
    const float rate = 10000000.0f / 333333.0f;
    const std::vector<VideoFormat> formats = {
        Mode(6, 640, 480, rate, 10000000.0f / 2000000.0f, rate)};
    EXPECT_EQ(FormatsToJson(formats),
              "[{\"flip\": 0, \"format\": 6, \"maxRate\": 30.000030517578125, \"maxSize_cx\": 640, "
              "\"maxSize_cy\": 480, \"minRate\": 5, \"minSize_cx\": 640, \"minSize_cy\": 480, "
              "\"rate\": 30.000030517578125, \"scale_x\": 0, \"scale_y\": 0, \"size_x\": 640, "
              "\"size_y\": 480}]");
}

TEST(FormatReplyTest, NoModesIsAnEmptyArray) {
    EXPECT_EQ(FormatsToJson({}), "[]");
}

TEST(FormatReplyTest, ElementsAreSeparatedByCommaAndBlank) {
    const std::string text = FormatsToJson({Mode(1, 1, 2, 0, 0, 0), Mode(3, 4, 5, 0, 0, 0)});
    EXPECT_NE(text.find("\"size_y\": 2}, {\"flip\": 0, \"format\": 3,"), std::string::npos) << text;
    EXPECT_EQ(text.front(), '[');
    EXPECT_EQ(text.back(), ']');
}

TEST(FormatReplyTest, NegativeHeightKeepsItsSign) {
    const std::string text = FormatsToJson({Mode(6, 640, -480, 25, 25, 25)});
    EXPECT_NE(text.find("\"size_y\": -480}"), std::string::npos) << text;
    EXPECT_NE(text.find("\"minSize_cy\": -480,"), std::string::npos) << text;
}

TEST(FormatReplyTest, ZeroAndWholeRatesHaveNoPoint) {
    const std::string text = FormatsToJson({Mode(6, 1, 1, 0.0f, 5.0f, 10000000.0f / 400000.0f)});
    EXPECT_NE(text.find("\"rate\": 0,"), std::string::npos) << text;
    EXPECT_NE(text.find("\"minRate\": 5,"), std::string::npos) << text;
    EXPECT_NE(text.find("\"maxRate\": 25,"), std::string::npos) << text;
}

TEST(FormatReplyTest, FlipAndScaleAreWrittenFromTheRecord) {
    VideoFormat mode = Mode(7, 2, 3, 1, 1, 1);
    mode.SetFlip();
    mode.SetScale(9, -9);
    const std::string text = FormatsToJson({mode});
    EXPECT_NE(text.find("{\"flip\": 1, \"format\": 7,"), std::string::npos) << text;
    EXPECT_NE(text.find("\"scale_x\": 9, \"scale_y\": -9,"), std::string::npos) << text;
}

TEST(JsonTextTest, KeysComeInByteOrderWhateverTheInsertionOrder) {
    QueryServer::JsonObject forward;
    QueryServer::JsonObject backward;
    const char* keys[] = {"size_y",     "size_x",     "scale_y", "scale_x",    "rate",
                          "minSize_cy", "minSize_cx", "minRate", "maxSize_cy", "maxSize_cx",
                          "maxRate",    "format",     "flip"};
    for (int index = 0; index < 13; ++index) {
        forward.SetInteger(keys[index], index);
        backward.SetInteger(keys[12 - index], 12 - index);
    }
    EXPECT_EQ(forward.Dump(), backward.Dump());
    EXPECT_EQ(forward.Dump().rfind("{\"flip\": 12, \"format\": 11, \"maxRate\": 10, ", 0), 0u)
        << forward.Dump();
}

TEST(JsonTextTest, DoublesAsSeventeenSignificantDigits) {
    // Expected texts from a correctly rounding "%.17g" of each float widened to double.
    const struct {
        float value;
        const char* text;
    } cases[] = {
        {10000000.0f / 333333.0f, "30.000030517578125"},
        {10000000.0f / 400000.0f, "25"},
        {0.1f, "0.10000000149011612"},
        {29.97f, "29.969999313354492"},
        {59.94f, "59.939998626708984"},
        {1e-8f, "9.9999999392252903e-09"},
        {3e38f, "3.0000000054977558e+38"},
        {-5.0f, "-5"},
        {10000000.0f, "10000000"},
        {12345678.0f, "12345678"},
        {0.5f, "0.5"},
        {10000000.0f / 666667.0f, "14.999992370605469"},
        {0.0f, "0"},
    };
    for (const auto& entry : cases) {
        EXPECT_EQ(JsonDouble(entry.value), entry.text);
    }
}

TEST(JsonTextTest, NonFiniteDoublesAreNull) {
    EXPECT_EQ(JsonDouble(1.0 / 0.0), "null");
    EXPECT_EQ(JsonDouble(std::nan("")), "null");
}

TEST(JsonTextTest, IntegersAsPercentD) {
    EXPECT_EQ(QueryServer::JsonInteger(0), "0");
    EXPECT_EQ(QueryServer::JsonInteger(-2147483647 - 1), "-2147483648");
    EXPECT_EQ(QueryServer::JsonInteger(2147483647), "2147483647");
}

TEST(JsonTextTest, QuotedKeysEscapeWhatJsonRequires) {
    EXPECT_EQ(QueryServer::JsonQuoted("a\"b\\c\n"), "\"a\\\"b\\\\c\\u000a\"");
}

}  // namespace
