#pragma once
// What the test codec decodes and into what: the checks of every BITMAPINFOHEADER it is handed,
// and the sizes of the frames on both sides.
//
// Inputs (biCompression): YUY2 and UYVY (4:2:2 packed, 16 bits), I420, IYUV and YV12 (4:2:0
// planar, 12 bits), NV12 (4:2:0 with interleaved chroma, 12 bits), MJPG (one JPEG image a
// frame, 24 bits). The YUV layouts have no row padding: a row of luma is biWidth bytes (packed:
// 2 * biWidth), and they are top-down whatever the sign of biHeight, as YUV frames are.
//
// Outputs: uncompressed RGB (BI_RGB) of 32 or 24 bits, the size of the input. A positive biHeight
// is a bottom-up DIB (the last row of the picture first in memory), a negative one top-down. Rows
// are padded to whole DWORDs. RGB32 pixels are B, G, R, 255.

#include <windows.h>

namespace TestDecoders {

enum class SourceFormat { YUY2, UYVY, I420, YV12, NV12, MJPG };

// The largest width and height the codec takes: frames of this size and format stay far below
// 4 GB, so no size computed here can overflow 32 bits.
inline constexpr LONG kMaxDimension = 16384;

// The format a header's biCompression names; false for one the codec does not decode.
bool SourceFormatOf(const BITMAPINFOHEADER& header, SourceFormat* format);

// ICERR_OK when the codec decodes frames described by `input`, else ICERR_BADFORMAT.
LRESULT CheckInputHeader(const BITMAPINFOHEADER* input);
// ICERR_OK when `output` is an RGB frame the codec can write from `input`, else ICERR_BADFORMAT.
LRESULT CheckOutputHeader(const BITMAPINFOHEADER* input, const BITMAPINFOHEADER* output);
// The codec's preferred output for a checked input: RGB32, bottom-up, the input's size.
void FillPreferredOutput(const BITMAPINFOHEADER& input, BITMAPINFOHEADER* output);

// The number of rows of a header: the magnitude of biHeight.
LONG RowsOf(const BITMAPINFOHEADER& header);
// The bytes of one uncompressed input frame; 0 for MJPG, whose frames vary.
DWORD SourceFrameBytes(SourceFormat format, LONG width, LONG rows);
DWORD DibStride(LONG width, WORD bitCount);
DWORD DibFrameBytes(LONG width, LONG rows, WORD bitCount);

}  // namespace TestDecoders
