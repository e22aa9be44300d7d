#include "tools/TestDecoders/Codec/CodecFormats.h"

#include <vfw.h>

namespace TestDecoders {
namespace {

struct KnownSource {
    DWORD compression;
    SourceFormat format;
    WORD bitCount;
};

const KnownSource kKnownSources[] = {
    {MAKEFOURCC('Y', 'U', 'Y', '2'), SourceFormat::YUY2, 16},
    {MAKEFOURCC('U', 'Y', 'V', 'Y'), SourceFormat::UYVY, 16},
    {MAKEFOURCC('I', '4', '2', '0'), SourceFormat::I420, 12},
    {MAKEFOURCC('I', 'Y', 'U', 'V'), SourceFormat::I420, 12},
    {MAKEFOURCC('Y', 'V', '1', '2'), SourceFormat::YV12, 12},
    {MAKEFOURCC('N', 'V', '1', '2'), SourceFormat::NV12, 12},
    {MAKEFOURCC('M', 'J', 'P', 'G'), SourceFormat::MJPG, 24},
};

const KnownSource* FindSource(DWORD compression) {
    for (const auto& known : kKnownSources) {
        if (known.compression == compression) {
            return &known;
        }
    }
    return nullptr;
}

bool IsPlanar(SourceFormat format) {
    return format == SourceFormat::I420 || format == SourceFormat::YV12 ||
           format == SourceFormat::NV12;
}

bool IsPacked(SourceFormat format) {
    return format == SourceFormat::YUY2 || format == SourceFormat::UYVY;
}

// Width and height within the codec's limits. The height is tested before it is negated, so
// that LONG_MIN never reaches the negation.
bool SizeInRange(const BITMAPINFOHEADER& header) {
    if (header.biWidth <= 0 || header.biWidth > kMaxDimension) {
        return false;
    }
    return header.biHeight != 0 && header.biHeight >= -kMaxDimension &&
           header.biHeight <= kMaxDimension;
}

// 4:2:2 shares one colour pair between two pixels of a row, 4:2:0 also between two rows.
bool SizeFitsSubsampling(SourceFormat format, LONG width, LONG rows) {
    if (IsPacked(format)) {
        return width % 2 == 0;
    }
    if (IsPlanar(format)) {
        return width % 2 == 0 && rows % 2 == 0;
    }
    return true;
}

bool HasCommonFields(const BITMAPINFOHEADER* header) {
    return header && header->biSize >= sizeof(BITMAPINFOHEADER) && header->biPlanes == 1 &&
           SizeInRange(*header);
}

}  // namespace

bool SourceFormatOf(const BITMAPINFOHEADER& header, SourceFormat* format) {
    const KnownSource* known = FindSource(header.biCompression);
    if (!known) {
        return false;
    }
    *format = known->format;
    return true;
}

LONG RowsOf(const BITMAPINFOHEADER& header) {
    return header.biHeight < 0 ? -header.biHeight : header.biHeight;
}

DWORD SourceFrameBytes(SourceFormat format, LONG width, LONG rows) {
    const DWORD pixels = static_cast<DWORD>(width) * static_cast<DWORD>(rows);
    if (IsPacked(format)) {
        return pixels * 2;
    }
    if (IsPlanar(format)) {
        return pixels + pixels / 2;
    }
    return 0;
}

DWORD DibStride(LONG width, WORD bitCount) {
    return ((static_cast<DWORD>(width) * bitCount + 31) / 32) * 4;
}

DWORD DibFrameBytes(LONG width, LONG rows, WORD bitCount) {
    return DibStride(width, bitCount) * static_cast<DWORD>(rows);
}

LRESULT CheckInputHeader(const BITMAPINFOHEADER* input) {
    if (!HasCommonFields(input)) {
        return ICERR_BADFORMAT;
    }
    const KnownSource* known = FindSource(input->biCompression);
    if (!known || input->biBitCount != known->bitCount) {
        return ICERR_BADFORMAT;
    }
    const LONG rows = RowsOf(*input);
    if (!SizeFitsSubsampling(known->format, input->biWidth, rows)) {
        return ICERR_BADFORMAT;
    }
    // An uncompressed frame must hold all of its pixels; 0 means "as large as the frame".
    const DWORD needed = SourceFrameBytes(known->format, input->biWidth, rows);
    if (input->biSizeImage != 0 && input->biSizeImage < needed) {
        return ICERR_BADFORMAT;
    }
    return ICERR_OK;
}

LRESULT CheckOutputHeader(const BITMAPINFOHEADER* input, const BITMAPINFOHEADER* output) {
    if (CheckInputHeader(input) != ICERR_OK || !HasCommonFields(output)) {
        return ICERR_BADFORMAT;
    }
    if (output->biCompression != BI_RGB || (output->biBitCount != 32 && output->biBitCount != 24)) {
        return ICERR_BADFORMAT;
    }
    const LONG rows = RowsOf(*input);
    if (output->biWidth != input->biWidth || RowsOf(*output) != rows) {
        return ICERR_BADFORMAT;
    }
    const DWORD needed = DibFrameBytes(output->biWidth, rows, output->biBitCount);
    if (output->biSizeImage != 0 && output->biSizeImage < needed) {
        return ICERR_BADFORMAT;
    }
    return ICERR_OK;
}

void FillPreferredOutput(const BITMAPINFOHEADER& input, BITMAPINFOHEADER* output) {
    ZeroMemory(output, sizeof(*output));
    output->biSize = sizeof(BITMAPINFOHEADER);
    output->biWidth = input.biWidth;
    output->biHeight = RowsOf(input);
    output->biPlanes = 1;
    output->biBitCount = 32;
    output->biCompression = BI_RGB;
    output->biSizeImage = DibFrameBytes(output->biWidth, output->biHeight, 32);
}

}  // namespace TestDecoders
