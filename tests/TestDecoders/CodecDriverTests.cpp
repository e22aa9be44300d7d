// The codec as the system's Video for Windows functions (msvfw32) find, open and use it, once
// installed: what it reports, which formats it takes, and that no header makes it fail other
// than with ICERR_BADFORMAT.

#include <vfw.h>

#include <gtest/gtest.h>

#include <climits>
#include <functional>
#include <string>
#include <vector>

#include "DecoderFixture.h"
#include "tests/VirtualCamera/FramePictures.h"
#include "tools/TestDecoders/Codec/CodecFormats.h"
#include "tools/VirtualCamera/Config/FramePattern.h"
#include "tools/VirtualCamera/Config/MediaFormats.h"

namespace DecoderTests {
namespace {

using VirtualCameraTests::PictureDifference;
using VirtualCameraTests::PictureOfRgb32;
using VirtualCameraTests::ReferencePicture;
using VirtualCameraTests::RgbPicture;

// One opened codec, closed at the end of the scope.
class OpenCodec {
public:
    explicit OpenCodec(HIC codec) : m_codec(codec) {}
    ~OpenCodec() {
        if (m_codec) ICClose(m_codec);
    }
    OpenCodec(const OpenCodec&) = delete;
    OpenCodec& operator=(const OpenCodec&) = delete;
    HIC get() const { return m_codec; }

private:
    HIC m_codec;
};

BITMAPINFOHEADER Yuy2Input() {
    BITMAPINFOHEADER header = Header(kYuy2, 16, 64, 48);
    header.biSizeImage = 64 * 48 * 2;
    return header;
}

BITMAPINFOHEADER Rgb32Output() {
    return Header(BI_RGB, 32, 64, 48);
}

class CodecDriverTest : public DecoderTest {
protected:
    HIC OpenForDecompress(const char* handler) {
        return ICOpen(ICTYPE_VIDEO, mmioFOURCC(handler[0], handler[1], handler[2], handler[3]),
                      ICMODE_DECOMPRESS);
    }
};

TEST_F(CodecDriverTest, OpensUnderEveryFourccItIsInstalledFor) {
    for (const char* handler : {"yuy2", "uyvy", "i420", "iyuv", "yv12", "nv12", "mjpg"}) {
        OpenCodec codec(OpenForDecompress(handler));
        EXPECT_NE(codec.get(), nullptr) << handler;
    }
}

TEST_F(CodecDriverTest, ReportsItsNameTypeAndInterfaceVersion) {
    OpenCodec codec(OpenForDecompress("yuy2"));
    ASSERT_NE(codec.get(), nullptr);
    ICINFO info = {};
    ASSERT_EQ(ICGetInfo(codec.get(), &info, sizeof(info)), static_cast<LRESULT>(sizeof(info)));
    EXPECT_EQ(info.fccType, ICTYPE_VIDEO);
    EXPECT_EQ(info.dwVersionICM, static_cast<DWORD>(ICVERSION));
    EXPECT_STREQ(info.szName, L"TestCodec");
    EXPECT_STREQ(info.szDescription, L"Test codec: YUV and MJPG to RGB");
}

TEST_F(CodecDriverTest, IsFoundByTheSystemsCodecSearchForEveryFormat) {
    const std::vector<BITMAPINFOHEADER> inputs = {
        Header(kYuy2, 16, 64, 48), Header(kUyvy, 16, 64, 48), Header(kI420, 12, 64, 48),
        Header(kIyuv, 12, 64, 48), Header(kYv12, 12, 64, 48), Header(kNv12, 12, 64, 48),
        Header(kMjpg, 24, 64, 48),
    };
    BITMAPINFOHEADER output = Rgb32Output();
    for (const BITMAPINFOHEADER& input : inputs) {
        BITMAPINFOHEADER in = input;
        OpenCodec codec(ICLocate(ICTYPE_VIDEO, 0, &in, &output, ICMODE_DECOMPRESS));
        ASSERT_NE(codec.get(), nullptr)
            << std::string(reinterpret_cast<const char*>(&input.biCompression), 4);
        ICINFO info = {};
        ASSERT_EQ(ICGetInfo(codec.get(), &info, sizeof(info)), static_cast<LRESULT>(sizeof(info)));
        EXPECT_STREQ(info.szName, L"TestCodec");
    }
}

TEST_F(CodecDriverTest, ProposesBottomUpRgb32OfTheInputsSize) {
    OpenCodec codec(OpenForDecompress("i420"));
    ASSERT_NE(codec.get(), nullptr);
    BITMAPINFOHEADER input = Header(kI420, 12, 320, -240);
    EXPECT_EQ(ICDecompressGetFormatSize(codec.get(), &input),
              static_cast<LRESULT>(sizeof(BITMAPINFOHEADER)));
    BITMAPINFOHEADER output = {};
    ASSERT_EQ(ICDecompressGetFormat(codec.get(), &input, &output), ICERR_OK);
    EXPECT_EQ(output.biSize, sizeof(BITMAPINFOHEADER));
    EXPECT_EQ(output.biWidth, 320);
    EXPECT_EQ(output.biHeight, 240);
    EXPECT_EQ(output.biPlanes, 1);
    EXPECT_EQ(output.biBitCount, 32);
    EXPECT_EQ(output.biCompression, static_cast<DWORD>(BI_RGB));
    EXPECT_EQ(output.biSizeImage, 320u * 240u * 4u);
}

TEST_F(CodecDriverTest, TakesRgb32AndRgb24BothWaysUp) {
    OpenCodec codec(OpenForDecompress("yuy2"));
    ASSERT_NE(codec.get(), nullptr);
    BITMAPINFOHEADER input = Yuy2Input();
    EXPECT_EQ(ICDecompressQuery(codec.get(), &input, nullptr), ICERR_OK);
    for (WORD bits : {WORD{32}, WORD{24}}) {
        for (LONG height : {48L, -48L}) {
            BITMAPINFOHEADER output = Header(BI_RGB, bits, 64, height);
            EXPECT_EQ(ICDecompressQuery(codec.get(), &input, &output), ICERR_OK)
                << bits << " bits, height " << height;
        }
    }
}

TEST_F(CodecDriverTest, OffersNoCompression) {
    OpenCodec codec(OpenForDecompress("yuy2"));
    ASSERT_NE(codec.get(), nullptr);
    BITMAPINFOHEADER rgb = Rgb32Output();
    BITMAPINFOHEADER yuy2 = Yuy2Input();
    EXPECT_EQ(ICCompressQuery(codec.get(), &rgb, &yuy2), ICERR_UNSUPPORTED);
}

// One way of spoiling a header that is otherwise fine.
struct BadHeader {
    const char* name;
    std::function<void(BITMAPINFOHEADER* input, BITMAPINFOHEADER* output)> spoil;
};

const BadHeader kBadHeaders[] = {
    {"InputHeaderSizeTooSmall", [](auto* in, auto*) { in->biSize = 39; }},
    {"InputTwoPlanes", [](auto* in, auto*) { in->biPlanes = 2; }},
    {"InputZeroWidth", [](auto* in, auto* out) { in->biWidth = out->biWidth = 0; }},
    {"InputNegativeWidth", [](auto* in, auto* out) { in->biWidth = out->biWidth = -64; }},
    {"InputWidthBeyondTheLimit",
     [](auto* in, auto* out) {
         in->biWidth = out->biWidth = TestDecoders::kMaxDimension + 2;
         in->biSizeImage = 0;
     }},
    {"InputZeroHeight", [](auto* in, auto* out) { in->biHeight = out->biHeight = 0; }},
    {"InputHeightBeyondTheLimit",
     [](auto* in, auto* out) {
         in->biHeight = out->biHeight = TestDecoders::kMaxDimension + 2;
         in->biSizeImage = 0;
     }},
    {"InputNegativeHeightBeyondTheLimit",
     [](auto* in, auto*) {
         in->biHeight = -(TestDecoders::kMaxDimension + 2);
         in->biSizeImage = 0;
     }},
    {"InputHeightLongMin", [](auto* in, auto*) { in->biHeight = LONG_MIN; }},
    {"InputOddWidthOfPackedYuv",
     [](auto* in, auto* out) {
         in->biWidth = out->biWidth = 63;
         in->biSizeImage = 0;
     }},
    {"InputOddHeightOfPlanarYuv",
     [](auto* in, auto* out) {
         *in = Header(kI420, 12, 64, 47);
         out->biHeight = 47;
     }},
    {"InputBitCountNotOfTheFormat", [](auto* in, auto*) { in->biBitCount = 12; }},
    {"InputPlanarWithPackedBitCount", [](auto* in, auto*) { *in = Header(kI420, 16, 64, 48); }},
    {"InputMjpgWithSixteenBits", [](auto* in, auto*) { *in = Header(kMjpg, 16, 64, 48); }},
    {"InputUnknownFourcc",
     [](auto* in, auto*) { in->biCompression = MAKEFOURCC('H', '2', '6', '4'); }},
    {"InputAlreadyRgb", [](auto* in, auto*) { *in = Header(BI_RGB, 32, 64, 48); }},
    {"InputLowerCaseFourcc",
     [](auto* in, auto*) { in->biCompression = MAKEFOURCC('y', 'u', 'y', '2'); }},
    {"InputImageSizeOneByteShort", [](auto* in, auto*) { in->biSizeImage = 64 * 48 * 2 - 1; }},
    {"OutputHeaderSizeTooSmall", [](auto*, auto* out) { out->biSize = 39; }},
    {"OutputNoPlanes", [](auto*, auto* out) { out->biPlanes = 0; }},
    {"OutputBitfields", [](auto*, auto* out) { out->biCompression = BI_BITFIELDS; }},
    {"OutputYuv", [](auto*, auto* out) { *out = Header(kYuy2, 16, 64, 48); }},
    {"OutputSixteenBits", [](auto*, auto* out) { out->biBitCount = 16; }},
    {"OutputEightBits", [](auto*, auto* out) { out->biBitCount = 8; }},
    {"OutputOtherWidth", [](auto*, auto* out) { out->biWidth = 32; }},
    {"OutputOtherHeight", [](auto*, auto* out) { out->biHeight = 24; }},
    {"OutputImageSizeOneByteShort", [](auto*, auto* out) { out->biSizeImage = 64 * 48 * 4 - 1; }},
};

class CodecBadHeaderTest : public CodecDriverTest,
                           public ::testing::WithParamInterface<BadHeader> {};

TEST_P(CodecBadHeaderTest, QueryAnswersBadFormat) {
    OpenCodec codec(OpenForDecompress("yuy2"));
    ASSERT_NE(codec.get(), nullptr);
    BITMAPINFOHEADER input = Yuy2Input();
    BITMAPINFOHEADER output = Rgb32Output();
    GetParam().spoil(&input, &output);
    EXPECT_EQ(ICDecompressQuery(codec.get(), &input, &output), ICERR_BADFORMAT);
}

TEST_P(CodecBadHeaderTest, BeginAnswersBadFormatForABadInputOnly) {
    OpenCodec codec(OpenForDecompress("yuy2"));
    ASSERT_NE(codec.get(), nullptr);
    BITMAPINFOHEADER input = Yuy2Input();
    BITMAPINFOHEADER output = Rgb32Output();
    GetParam().spoil(&input, &output);
    // Beginning judges the input alone (Wine's AVI decompressor hands over the input's header
    // as the output's); the output is judged with every frame.
    const bool inputSpoilt = std::string(GetParam().name).rfind("Input", 0) == 0;
    EXPECT_EQ(ICDecompressBegin(codec.get(), &input, &output),
              inputSpoilt ? ICERR_BADFORMAT : ICERR_OK);
}

TEST_P(CodecBadHeaderTest, DecompressAnswersBadFormatAndLeavesTheOutputAlone) {
    OpenCodec codec(OpenForDecompress("yuy2"));
    ASSERT_NE(codec.get(), nullptr);
    BITMAPINFOHEADER input = Yuy2Input();
    BITMAPINFOHEADER output = Rgb32Output();
    GetParam().spoil(&input, &output);
    // Buffers of the unspoilt sizes: a codec that trusted a spoilt header would run past them.
    std::vector<BYTE> source(64 * 48 * 2, 128);
    std::vector<BYTE> target(64 * 48 * 4, 0xCD);
    EXPECT_EQ(ICDecompress(codec.get(), 0, &input, source.data(), &output, target.data()),
              ICERR_BADFORMAT);
    EXPECT_EQ(target, std::vector<BYTE>(target.size(), 0xCD));
}

INSTANTIATE_TEST_SUITE_P(Spoilt, CodecBadHeaderTest, ::testing::ValuesIn(kBadHeaders),
                         [](const ::testing::TestParamInfo<BadHeader>& info) {
                             return std::string(info.param.name);
                         });

TEST_F(CodecDriverTest, QueryWithoutAHeaderAnswersBadFormat) {
    OpenCodec codec(OpenForDecompress("yuy2"));
    ASSERT_NE(codec.get(), nullptr);
    BITMAPINFOHEADER output = Rgb32Output();
    EXPECT_EQ(ICDecompressQuery(codec.get(), nullptr, &output), ICERR_BADFORMAT);
    EXPECT_EQ(ICDecompressGetFormat(codec.get(), nullptr, &output), ICERR_BADFORMAT);
}

TEST_F(CodecDriverTest, DecompressWithoutBuffersAnswersBadParameter) {
    OpenCodec codec(OpenForDecompress("yuy2"));
    ASSERT_NE(codec.get(), nullptr);
    BITMAPINFOHEADER input = Yuy2Input();
    BITMAPINFOHEADER output = Rgb32Output();
    std::vector<BYTE> target(64 * 48 * 4);
    std::vector<BYTE> source(64 * 48 * 2);
    EXPECT_EQ(ICDecompress(codec.get(), 0, &input, nullptr, &output, target.data()),
              ICERR_BADPARAM);
    EXPECT_EQ(ICDecompress(codec.get(), 0, &input, source.data(), &output, nullptr),
              ICERR_BADPARAM);
}

TEST_F(CodecDriverTest, DecompressesACameraFrameToItsReferencePicture) {
    OpenCodec codec(OpenForDecompress("yuy2"));
    ASSERT_NE(codec.get(), nullptr);
    BITMAPINFOHEADER input = Yuy2Input();
    BITMAPINFOHEADER output = Rgb32Output();
    std::vector<BYTE> source(input.biSizeImage);
    const uint32_t counter = 0x00C0FFEE;
    VirtualCamera::PaintFrame(MEDIASUBTYPE_YUY2, 64, 48, counter, source.data(), source.size());
    std::vector<BYTE> target(64 * 48 * 4);
    ASSERT_EQ(ICDecompressBegin(codec.get(), &input, &output), ICERR_OK);
    ASSERT_EQ(ICDecompress(codec.get(), 0, &input, source.data(), &output, target.data()),
              ICERR_OK);
    EXPECT_EQ(ICDecompressEnd(codec.get()), ICERR_OK);
    const RgbPicture picture = PictureOfRgb32(target.data(), target.size(), 64, 48);
    EXPECT_EQ(CounterOfPicture(picture), counter);
    const PictureDifference difference =
        ComparePictures(picture, ReferencePicture(MEDIASUBTYPE_YUY2, 64, 48, counter));
    EXPECT_LE(difference.largest, 2) << difference.where;
}

TEST_F(CodecDriverTest, EveryOpenIsClosedAgain) {
    {
        OpenCodec first(OpenForDecompress("yuy2"));
        ASSERT_NE(first.get(), nullptr);
        // Under Wine the first open of the driver in a process brings one more instance, which
        // the system opens for the module itself (DRV_OPEN without ICOPEN): count from here.
        const LONG withOne = CodecInstancesOpen();
        {
            OpenCodec second(OpenForDecompress("mjpg"));
            ASSERT_NE(second.get(), nullptr);
            EXPECT_EQ(CodecInstancesOpen(), withOne + 1);
        }
        EXPECT_EQ(CodecInstancesOpen(), withOne);
    }
    // All closed: the system may unload the driver as well.
    const LONG open = CodecInstancesOpen();
    EXPECT_TRUE(open == 0 || open == kCodecNotLoaded) << open;
}

}  // namespace
}  // namespace DecoderTests
