// The codec's colour conversion and pixel layouts, on frames small enough to write out by hand.
// The colours are the BT.601 limited-range ones: Y 235 white, Y 16 black, (81, 90, 240) red and
// (41, 240, 110) blue.

#include <objbase.h>
#include <vfw.h>
#include <wincodec.h>
#include <wrl/client.h>

#include <gtest/gtest.h>

#include <vector>

#include "DecoderFixture.h"
#include "tools/TestDecoders/Codec/CodecFormats.h"
#include "tools/TestDecoders/Codec/FrameDecoder.h"
#include "tools/TestDecoders/Codec/YuvToRgb.h"

namespace DecoderTests {
namespace {

using Microsoft::WRL::ComPtr;
using TestDecoders::DecodeFrame;
using TestDecoders::RgbPixel;
using TestDecoders::YuvToRgb;

using Bytes = std::vector<BYTE>;

// RGB32 pixels as the codec writes them: blue, green, red, 255.
const Bytes kWhite32 = {255, 255, 255, 255};
const Bytes kBlack32 = {0, 0, 0, 255};
const Bytes kRed32 = {0, 0, 255, 255};
const Bytes kBlue32 = {255, 0, 0, 255};

Bytes Row(std::initializer_list<Bytes> pixels) {
    Bytes row;
    for (const Bytes& pixel : pixels) row.insert(row.end(), pixel.begin(), pixel.end());
    return row;
}

Bytes Concat(std::initializer_list<Bytes> parts) {
    Bytes all;
    for (const Bytes& part : parts) all.insert(all.end(), part.begin(), part.end());
    return all;
}

// Decodes `source` into RGB of `bitCount` bits and `height` rows (negative: top-down).
Bytes Decode(DWORD compression, WORD sourceBits, LONG width, LONG rows, const Bytes& source,
             WORD bitCount = 32, LONG height = 0) {
    const BITMAPINFOHEADER input = Header(compression, sourceBits, width, rows);
    const BITMAPINFOHEADER output = Header(BI_RGB, bitCount, width, height != 0 ? height : rows);
    Bytes target(TestDecoders::DibFrameBytes(width, rows, bitCount), 0xCD);
    std::vector<BYTE> scratch;
    EXPECT_EQ(TestDecoders::CheckOutputHeader(&input, &output), ICERR_OK);
    EXPECT_EQ(DecodeFrame(input, source.data(), output, target.data(), &scratch), ICERR_OK);
    return target;
}

void ExpectPixel(RgbPixel pixel, BYTE red, BYTE green, BYTE blue) {
    EXPECT_EQ(pixel.red, red);
    EXPECT_EQ(pixel.green, green);
    EXPECT_EQ(pixel.blue, blue);
}

TEST(CodecConversion, LimitedRangeBlackAndWhiteAreTheFullRangeEnds) {
    ExpectPixel(YuvToRgb(16, 128, 128), 0, 0, 0);
    ExpectPixel(YuvToRgb(235, 128, 128), 255, 255, 255);
}

TEST(CodecConversion, MidGreyScalesByTheLumaFactor) {
    // (298 * (126 - 16) + 128) >> 8 = 128.
    ExpectPixel(YuvToRgb(126, 128, 128), 128, 128, 128);
}

TEST(CodecConversion, PrimaryColoursOfBt601ComeOutAsThePrimaries) {
    // Green keeps a 1 in blue: the rounded coefficients leave 0.8 there.
    ExpectPixel(YuvToRgb(81, 90, 240), 255, 0, 0);
    ExpectPixel(YuvToRgb(41, 240, 110), 0, 0, 255);
    ExpectPixel(YuvToRgb(145, 54, 34), 0, 255, 1);
}

TEST(CodecConversion, ValuesOutsideTheLimitedRangeClipInsteadOfWrapping) {
    ExpectPixel(YuvToRgb(0, 128, 128), 0, 0, 0);
    ExpectPixel(YuvToRgb(255, 128, 128), 255, 255, 255);
    ExpectPixel(YuvToRgb(255, 255, 255), 255, 125, 255);
    ExpectPixel(YuvToRgb(0, 0, 0), 0, 135, 0);
}

// A 2x2 picture: white and black on top, red below.
const Bytes kPackedPictureRgb32BottomUp =
    Concat({Row({kRed32, kRed32}), Row({kWhite32, kBlack32})});

TEST(CodecConversion, Yuy2IsLumaULumaVAndComesOutBottomUp) {
    const Bytes yuy2 = {235, 128, 16, 128, 81, 90, 81, 240};
    EXPECT_EQ(Decode(kYuy2, 16, 2, 2, yuy2), kPackedPictureRgb32BottomUp);
}

TEST(CodecConversion, UyvyIsULumaVLuma) {
    const Bytes uyvy = {128, 235, 128, 16, 90, 81, 240, 81};
    EXPECT_EQ(Decode(kUyvy, 16, 2, 2, uyvy), kPackedPictureRgb32BottomUp);
}

TEST(CodecConversion, NegativeOutputHeightWritesTopDown) {
    const Bytes yuy2 = {235, 128, 16, 128, 81, 90, 81, 240};
    EXPECT_EQ(Decode(kYuy2, 16, 2, 2, yuy2, 32, -2),
              Concat({Row({kWhite32, kBlack32}), Row({kRed32, kRed32})}));
}

TEST(CodecConversion, Rgb24OutputPadsRowsToWholeDwords) {
    const Bytes yuy2 = {235, 128, 16, 128, 81, 90, 81, 240};
    EXPECT_EQ(Decode(kYuy2, 16, 2, 2, yuy2, 24),
              Bytes({0, 0, 255, 0, 0, 255, 0xCD, 0xCD, 255, 255, 255, 0, 0, 0, 0xCD, 0xCD}));
}

// A 4x4 picture of four 2x2 blocks: red and blue on top, blue and red below. Each block has one
// colour sample, so a decoder that takes the wrong plane or the wrong row of it mixes them up.
const Bytes kLuma4x4 = {81, 81, 41, 41, 81, 81, 41, 41, 41, 41, 81, 81, 41, 41, 81, 81};
const Bytes kU2x2 = {90, 240, 240, 90};
const Bytes kV2x2 = {240, 110, 110, 240};
const Bytes kBlocksRgb32BottomUp =
    Concat({Row({kBlue32, kBlue32, kRed32, kRed32}), Row({kBlue32, kBlue32, kRed32, kRed32}),
            Row({kRed32, kRed32, kBlue32, kBlue32}), Row({kRed32, kRed32, kBlue32, kBlue32})});

TEST(CodecConversion, I420HasTheUPlaneBeforeTheVPlane) {
    EXPECT_EQ(Decode(kI420, 12, 4, 4, Concat({kLuma4x4, kU2x2, kV2x2})), kBlocksRgb32BottomUp);
}

TEST(CodecConversion, IyuvIsLaidOutAsI420) {
    EXPECT_EQ(Decode(kIyuv, 12, 4, 4, Concat({kLuma4x4, kU2x2, kV2x2})), kBlocksRgb32BottomUp);
}

TEST(CodecConversion, Yv12HasTheVPlaneBeforeTheUPlane) {
    EXPECT_EQ(Decode(kYv12, 12, 4, 4, Concat({kLuma4x4, kV2x2, kU2x2})), kBlocksRgb32BottomUp);
}

TEST(CodecConversion, Nv12InterleavesUAndVInOnePlane) {
    const Bytes uv = {90, 240, 240, 110, 240, 110, 90, 240};
    EXPECT_EQ(Decode(kNv12, 12, 4, 4, Concat({kLuma4x4, uv})), kBlocksRgb32BottomUp);
}

// A JPEG of one colour, made by the platform's encoder.
Bytes SolidJpeg(UINT width, UINT rows, BYTE red, BYTE green, BYTE blue) {
    ComPtr<IWICImagingFactory> factory;
    EXPECT_EQ(CoCreateInstance(CLSID_WICImagingFactory, nullptr, CLSCTX_INPROC_SERVER,
                               IID_PPV_ARGS(&factory)),
              S_OK);
    ComPtr<IStream> stream;
    EXPECT_EQ(CreateStreamOnHGlobal(nullptr, TRUE, &stream), S_OK);
    ComPtr<IWICBitmapEncoder> encoder;
    EXPECT_EQ(factory->CreateEncoder(GUID_ContainerFormatJpeg, nullptr, &encoder), S_OK);
    EXPECT_EQ(encoder->Initialize(stream.Get(), WICBitmapEncoderNoCache), S_OK);
    ComPtr<IWICBitmapFrameEncode> frame;
    ComPtr<IPropertyBag2> options;
    EXPECT_EQ(encoder->CreateNewFrame(&frame, &options), S_OK);
    EXPECT_EQ(frame->Initialize(options.Get()), S_OK);
    EXPECT_EQ(frame->SetSize(width, rows), S_OK);
    WICPixelFormatGUID format = GUID_WICPixelFormat24bppBGR;
    EXPECT_EQ(frame->SetPixelFormat(&format), S_OK);
    const UINT stride = ((width * 3 + 3) / 4) * 4;
    Bytes pixels(stride * rows);
    for (UINT y = 0; y < rows; ++y) {
        for (UINT x = 0; x < width; ++x) {
            pixels[y * stride + x * 3] = blue;
            pixels[y * stride + x * 3 + 1] = green;
            pixels[y * stride + x * 3 + 2] = red;
        }
    }
    EXPECT_EQ(frame->WritePixels(rows, stride, static_cast<UINT>(pixels.size()), pixels.data()),
              S_OK);
    EXPECT_EQ(frame->Commit(), S_OK);
    EXPECT_EQ(encoder->Commit(), S_OK);
    STATSTG stat = {};
    EXPECT_EQ(stream->Stat(&stat, STATFLAG_NONAME), S_OK);
    Bytes jpeg(static_cast<size_t>(stat.cbSize.QuadPart));
    LARGE_INTEGER start = {};
    EXPECT_EQ(stream->Seek(start, STREAM_SEEK_SET, nullptr), S_OK);
    ULONG read = 0;
    EXPECT_EQ(stream->Read(jpeg.data(), static_cast<ULONG>(jpeg.size()), &read), S_OK);
    return jpeg;
}

class CodecJpegConversion : public ::testing::Test {
protected:
    void SetUp() override { m_com = SUCCEEDED(CoInitializeEx(nullptr, COINIT_MULTITHREADED)); }
    void TearDown() override {
        if (m_com) CoUninitialize();
    }

    // Decodes a JPEG whose header states `width` x `rows` and `length` bytes of data.
    LRESULT DecodeJpeg(const Bytes& jpeg, LONG width, LONG rows, DWORD length, Bytes* target) {
        BITMAPINFOHEADER input = Header(kMjpg, 24, width, rows);
        input.biSizeImage = length;
        const BITMAPINFOHEADER output = Header(BI_RGB, 32, width, rows);
        target->assign(TestDecoders::DibFrameBytes(width, rows, 32), 0xCD);
        std::vector<BYTE> scratch;
        return DecodeFrame(input, jpeg.data(), output, target->data(), &scratch);
    }

private:
    bool m_com = false;
};

TEST_F(CodecJpegConversion, MjpgFrameDecodesToItsColourThroughThePlatformCodec) {
    const Bytes jpeg = SolidJpeg(16, 8, 200, 100, 50);
    Bytes target;
    ASSERT_EQ(DecodeJpeg(jpeg, 16, 8, static_cast<DWORD>(jpeg.size()), &target), ICERR_OK);
    for (size_t i = 0; i < target.size(); i += 4) {
        EXPECT_NEAR(target[i], 50, 3) << i;
        EXPECT_NEAR(target[i + 1], 100, 3) << i;
        EXPECT_NEAR(target[i + 2], 200, 3) << i;
        EXPECT_EQ(target[i + 3], 255) << i;
    }
}

TEST_F(CodecJpegConversion, MjpgFrameOfAnotherSizeThanItsHeaderIsABadFormat) {
    const Bytes jpeg = SolidJpeg(16, 8, 200, 100, 50);
    Bytes target;
    EXPECT_EQ(DecodeJpeg(jpeg, 16, 16, static_cast<DWORD>(jpeg.size()), &target), ICERR_BADFORMAT);
}

TEST_F(CodecJpegConversion, MjpgFrameWithoutALengthIsABadFormat) {
    const Bytes jpeg = SolidJpeg(16, 8, 200, 100, 50);
    Bytes target;
    EXPECT_EQ(DecodeJpeg(jpeg, 16, 8, 0, &target), ICERR_BADFORMAT);
}

TEST_F(CodecJpegConversion, DataThatIsNoJpegIsAnErrorAndLeavesTheOutputAlone) {
    const Bytes garbage(512, 0x5A);
    Bytes target;
    EXPECT_EQ(DecodeJpeg(garbage, 16, 8, static_cast<DWORD>(garbage.size()), &target), ICERR_ERROR);
    EXPECT_EQ(target, Bytes(target.size(), 0xCD));
}

TEST_F(CodecJpegConversion, TruncatedJpegIsAnError) {
    const Bytes jpeg = SolidJpeg(16, 8, 200, 100, 50);
    Bytes target;
    EXPECT_EQ(DecodeJpeg(jpeg, 16, 8, 20, &target), ICERR_ERROR);
}

}  // namespace
}  // namespace DecoderTests
