#include "tools/TestDecoders/Codec/FrameDecoder.h"

#include <vfw.h>

#include "tools/TestDecoders/Codec/CodecFormats.h"
#include "tools/TestDecoders/Codec/JpegDecoder.h"
#include "tools/TestDecoders/Codec/YuvToRgb.h"

namespace TestDecoders {
namespace {

// Writes pixels into an RGB DIB by picture row (row 0 is the top of the picture), whatever the
// DIB's row order.
class DibWriter {
public:
    DibWriter(const BITMAPINFOHEADER& header, BYTE* bits)
        : m_bits(bits),
          m_stride(DibStride(header.biWidth, header.biBitCount)),
          m_rows(RowsOf(header)),
          m_bottomUp(header.biHeight > 0),
          m_bytesPerPixel(header.biBitCount / 8) {}

    BYTE* Row(LONG pictureRow) const {
        const LONG memoryRow = m_bottomUp ? m_rows - 1 - pictureRow : pictureRow;
        return m_bits + static_cast<size_t>(memoryRow) * m_stride;
    }

    void Put(BYTE* row, LONG x, RgbPixel pixel) const {
        BYTE* target = row + static_cast<size_t>(x) * m_bytesPerPixel;
        target[0] = pixel.blue;
        target[1] = pixel.green;
        target[2] = pixel.red;
        if (m_bytesPerPixel == 4) {
            target[3] = 0xFF;
        }
    }

private:
    BYTE* m_bits;
    DWORD m_stride;
    LONG m_rows;
    bool m_bottomUp;
    DWORD m_bytesPerPixel;
};

// Where the bytes of one pixel pair lie in a packed 4:2:2 group of four bytes.
struct PackedOrder {
    int y0;
    int u;
    int y1;
    int v;
};

void DecodePacked(PackedOrder order, const BYTE* source, LONG width, LONG rows,
                  const DibWriter& writer) {
    const size_t stride = static_cast<size_t>(width) * 2;
    for (LONG y = 0; y < rows; ++y) {
        const BYTE* in = source + y * stride;
        BYTE* out = writer.Row(y);
        for (LONG x = 0; x < width; x += 2) {
            const BYTE* group = in + static_cast<size_t>(x) * 2;
            const BYTE u = group[order.u];
            const BYTE v = group[order.v];
            writer.Put(out, x, YuvToRgb(group[order.y0], u, v));
            writer.Put(out, x + 1, YuvToRgb(group[order.y1], u, v));
        }
    }
}

// The planes of a 4:2:0 frame: the luma plane, then the colour samples of each 2x2 block, either
// in two planes of their own (I420: U then V; YV12: V then U) or interleaved U, V (NV12).
struct ChromaPlanes {
    const BYTE* u;
    const BYTE* v;
    size_t rowStride;  // Bytes from one chroma row to the next.
    size_t step;       // Bytes from one chroma sample to the next in a row.
};

ChromaPlanes ChromaPlanesOf(SourceFormat format, const BYTE* source, LONG width, LONG rows) {
    const size_t lumaBytes = static_cast<size_t>(width) * rows;
    const size_t planeBytes = lumaBytes / 4;
    const BYTE* chroma = source + lumaBytes;
    const size_t halfWidth = static_cast<size_t>(width) / 2;
    switch (format) {
        case SourceFormat::YV12:
            return {chroma + planeBytes, chroma, halfWidth, 1};
        case SourceFormat::NV12:
            return {chroma, chroma + 1, static_cast<size_t>(width), 2};
        default:
            return {chroma, chroma + planeBytes, halfWidth, 1};
    }
}

void DecodePlanar(SourceFormat format, const BYTE* source, LONG width, LONG rows,
                  const DibWriter& writer) {
    const ChromaPlanes chroma = ChromaPlanesOf(format, source, width, rows);
    for (LONG y = 0; y < rows; ++y) {
        const BYTE* luma = source + static_cast<size_t>(y) * width;
        const size_t chromaRow = static_cast<size_t>(y / 2) * chroma.rowStride;
        BYTE* out = writer.Row(y);
        for (LONG x = 0; x < width; ++x) {
            const size_t sample = chromaRow + static_cast<size_t>(x / 2) * chroma.step;
            writer.Put(out, x, YuvToRgb(luma[x], chroma.u[sample], chroma.v[sample]));
        }
    }
}

LRESULT DecodeJpegFrame(const BITMAPINFOHEADER& input, const BYTE* source, LONG rows,
                        const DibWriter& writer, std::vector<BYTE>* scratch) {
    if (input.biSizeImage == 0) {
        return ICERR_BADFORMAT;
    }
    const LONG width = input.biWidth;
    switch (DecodeJpegToBgr(source, input.biSizeImage, width, rows, scratch)) {
        case JpegResult::Decoded:
            break;
        case JpegResult::SizeMismatch:
            return ICERR_BADFORMAT;
        case JpegResult::Undecodable:
            return ICERR_ERROR;
    }
    const size_t stride = JpegScratchStride(width);
    for (LONG y = 0; y < rows; ++y) {
        const BYTE* in = scratch->data() + static_cast<size_t>(y) * stride;
        BYTE* out = writer.Row(y);
        for (LONG x = 0; x < width; ++x) {
            const BYTE* bgr = in + static_cast<size_t>(x) * 3;
            writer.Put(out, x, RgbPixel{bgr[2], bgr[1], bgr[0]});
        }
    }
    return ICERR_OK;
}

}  // namespace

LRESULT DecodeFrame(const BITMAPINFOHEADER& input, const BYTE* source,
                    const BITMAPINFOHEADER& output, BYTE* target, std::vector<BYTE>* scratch) {
    SourceFormat format = SourceFormat::YUY2;
    if (!SourceFormatOf(input, &format)) {
        return ICERR_BADFORMAT;
    }
    const DibWriter writer(output, target);
    const LONG width = input.biWidth;
    const LONG rows = RowsOf(input);
    switch (format) {
        case SourceFormat::YUY2:
            DecodePacked({0, 1, 2, 3}, source, width, rows, writer);
            return ICERR_OK;
        case SourceFormat::UYVY:
            DecodePacked({1, 0, 3, 2}, source, width, rows, writer);
            return ICERR_OK;
        case SourceFormat::I420:
        case SourceFormat::YV12:
        case SourceFormat::NV12:
            DecodePlanar(format, source, width, rows, writer);
            return ICERR_OK;
        case SourceFormat::MJPG:
            return DecodeJpegFrame(input, source, rows, writer, scratch);
    }
    return ICERR_BADFORMAT;
}

}  // namespace TestDecoders
