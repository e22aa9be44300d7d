#pragma once
// Decodes one frame of a checked input format into a checked RGB output (see CodecFormats.h).

#include <windows.h>

#include <vector>

namespace TestDecoders {

// Decodes `source` (described by `input`) into `target` (described by `output`). Both headers
// must have passed CheckOutputHeader. For MJPG, input.biSizeImage is the length of the JPEG
// data. `scratch` keeps the decoded rows of a JPEG between frames, so that a stream reuses one
// buffer.
//
// Returns ICERR_OK; ICERR_BADFORMAT when an MJPG frame has no length or its picture is not the
// header's size; ICERR_ERROR when the data is no JPEG the platform can decode.
LRESULT DecodeFrame(const BITMAPINFOHEADER& input, const BYTE* source,
                    const BITMAPINFOHEADER& output, BYTE* target, std::vector<BYTE>* scratch);

}  // namespace TestDecoders
