#pragma once
// Decodes one JPEG image with the platform's imaging codecs (WIC).

#include <windows.h>

#include <vector>

namespace TestDecoders {

enum class JpegResult {
    Decoded,
    SizeMismatch,  // A JPEG, but its picture is not the expected size.
    Undecodable,   // No JPEG the platform decodes, or the platform failed.
};

// The bytes of one row of the decoded picture: 24-bit BGR, padded to whole DWORDs.
size_t JpegScratchStride(LONG width);

// Decodes `size` bytes of JPEG data, which must picture `width` x `rows` pixels, into `pixels` as
// top-down rows of JpegScratchStride(width) bytes. Works on any thread: it enters COM for the
// call when the thread is not in an apartment yet.
JpegResult DecodeJpegToBgr(const BYTE* data, DWORD size, LONG width, LONG rows,
                           std::vector<BYTE>* pixels);

}  // namespace TestDecoders
