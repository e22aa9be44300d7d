// TestCodec.dll: a Video for Windows decompressor that turns the uncompressed YUV formats and
// MJPG of capture devices into RGB, for systems whose codecs lack them (Wine ships none). It is
// an installable driver: the system finds it by its Drivers32 values (vidc.<fourcc>), loads it,
// and talks to it through DriverProc alone.
//
// Instances: DRV_OPEN makes one CodecInstance for every ICOpen, DRV_CLOSE deletes it; the
// driver id the system passes with every later message is that instance. A caller may use one
// instance from several threads (a decompressor filter begins on the graph's thread and
// decompresses on the streaming thread), so each instance has a lock of its own; different
// instances share nothing but the count of open instances.

#include <windows.h>
#include <mmsystem.h>
#include <vfw.h>

#include <atomic>
#include <cwchar>
#include <mutex>
#include <new>
#include <vector>

#include "tools/TestDecoders/Codec/CodecFormats.h"
#include "tools/TestDecoders/Codec/FrameDecoder.h"

namespace TestDecoders {
namespace {

constexpr const wchar_t* kCodecName = L"TestCodec";
constexpr const wchar_t* kCodecDescription = L"Test codec: YUV and MJPG to RGB";

std::atomic<LONG> g_openInstances{0};

struct CodecInstance {
    std::mutex lock;
    DWORD handler = 0;
    std::vector<BYTE> scratch;  // Decoded JPEG rows, reused from frame to frame.
};

DWORD LowerFourCC(DWORD fourcc) {
    DWORD lower = 0;
    for (int shift = 0; shift < 32; shift += 8) {
        DWORD c = (fourcc >> shift) & 0xFF;
        if (c >= 'A' && c <= 'Z') {
            c += 'a' - 'A';
        }
        lower |= c << shift;
    }
    return lower;
}

// DRV_OPEN. `open` is null when the driver is opened for configuration rather than by ICOpen;
// that instance answers the codec's messages all the same.
LRESULT OpenInstance(ICOPEN* open) {
    if (open && LowerFourCC(open->fccType) != ICTYPE_VIDEO) {
        return 0;
    }
    auto* instance = new (std::nothrow) CodecInstance();
    if (!instance) {
        if (open) {
            open->dwError = ICERR_MEMORY;
        }
        return 0;
    }
    instance->handler = open ? open->fccHandler : 0;
    if (open) {
        open->dwError = ICERR_OK;
    }
    ++g_openInstances;
    return reinterpret_cast<LRESULT>(instance);
}

void CloseInstance(CodecInstance* instance) {
    if (!instance) {
        return;
    }
    delete instance;
    --g_openInstances;
}

LRESULT GetInfo(const CodecInstance& instance, ICINFO* info, DWORD size) {
    if (!info) {
        return sizeof(ICINFO);
    }
    if (size < sizeof(ICINFO)) {
        return 0;
    }
    ZeroMemory(info, sizeof(ICINFO));
    info->dwSize = sizeof(ICINFO);
    info->fccType = ICTYPE_VIDEO;
    info->fccHandler = instance.handler;
    info->dwFlags = 0;
    info->dwVersion = 1;
    info->dwVersionICM = ICVERSION;
    wcsncpy(info->szName, kCodecName, ARRAYSIZE(info->szName) - 1);
    wcsncpy(info->szDescription, kCodecDescription, ARRAYSIZE(info->szDescription) - 1);
    return sizeof(ICINFO);
}

LRESULT QueryDecompress(const BITMAPINFOHEADER* input, const BITMAPINFOHEADER* output) {
    // No output format asks only whether the input can be decoded at all.
    return output ? CheckOutputHeader(input, output) : CheckInputHeader(input);
}

LRESULT GetDecompressFormat(const BITMAPINFOHEADER* input, BITMAPINFOHEADER* output) {
    if (CheckInputHeader(input) != ICERR_OK) {
        return ICERR_BADFORMAT;
    }
    // Without room for the format the caller asks for its size.
    if (!output) {
        return sizeof(BITMAPINFOHEADER);
    }
    FillPreferredOutput(*input, output);
    return ICERR_OK;
}

LRESULT Decompress(CodecInstance& instance, const ICDECOMPRESS* request, DWORD size) {
    if (!request || size < sizeof(ICDECOMPRESS)) {
        return ICERR_BADPARAM;
    }
    // A null frame repeats the previous picture: there is nothing to decode.
    if (request->dwFlags & ICDECOMPRESS_NULLFRAME) {
        return ICERR_OK;
    }
    const LRESULT result = CheckOutputHeader(request->lpbiInput, request->lpbiOutput);
    if (result != ICERR_OK) {
        return result;
    }
    if (!request->lpInput || !request->lpOutput) {
        return ICERR_BADPARAM;
    }
    return DecodeFrame(*request->lpbiInput, static_cast<const BYTE*>(request->lpInput),
                       *request->lpbiOutput, static_cast<BYTE*>(request->lpOutput),
                       &instance.scratch);
}

LRESULT HandleCodecMessage(CodecInstance& instance, UINT message, LPARAM param1, LPARAM param2) {
    std::lock_guard<std::mutex> lock(instance.lock);
    const auto* input = reinterpret_cast<const BITMAPINFOHEADER*>(param1);
    switch (message) {
        case ICM_GETINFO:
            return GetInfo(instance, reinterpret_cast<ICINFO*>(param1), static_cast<DWORD>(param2));
        case ICM_DECOMPRESS_QUERY:
            return QueryDecompress(input, reinterpret_cast<const BITMAPINFOHEADER*>(param2));
        case ICM_DECOMPRESS_GET_FORMAT:
            return GetDecompressFormat(input, reinterpret_cast<BITMAPINFOHEADER*>(param2));
        case ICM_DECOMPRESS_BEGIN:
            // Every frame brings both its formats along and is checked by itself, so nothing is
            // kept here, and only the input is judged: Wine's AVI decompressor passes the
            // input's header in the place of the output's when it begins.
            return CheckInputHeader(input);
        case ICM_DECOMPRESS:
            return Decompress(instance, reinterpret_cast<const ICDECOMPRESS*>(param1),
                              static_cast<DWORD>(param2));
        case ICM_DECOMPRESS_END:
            return ICERR_OK;
        default:
            // No palettes (the outputs are true colour), no compression, no dialogs, no state.
            return ICERR_UNSUPPORTED;
    }
}

}  // namespace
}  // namespace TestDecoders

using TestDecoders::CodecInstance;

extern "C" BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID) {
    if (reason == DLL_PROCESS_ATTACH) {
        DisableThreadLibraryCalls(instance);
    }
    return TRUE;
}

extern "C" LRESULT WINAPI DriverProc(DWORD_PTR driverId, HDRVR driver, UINT message, LPARAM param1,
                                     LPARAM param2) {
    auto* instance = reinterpret_cast<CodecInstance*>(driverId);
    switch (message) {
        case DRV_LOAD:
        case DRV_FREE:
        case DRV_ENABLE:
        case DRV_DISABLE:
            return 1;
        case DRV_OPEN:
            return TestDecoders::OpenInstance(reinterpret_cast<ICOPEN*>(param2));
        case DRV_CLOSE:
            TestDecoders::CloseInstance(instance);
            return 1;
        case DRV_QUERYCONFIGURE:
            return 0;
        case DRV_INSTALL:
        case DRV_REMOVE:
            return DRVCNF_OK;
        default:
            break;
    }
    if (message < DRV_USER) {
        return DefDriverProc(driverId, driver, message, param1, param2);
    }
    if (!instance) {
        return ICERR_BADHANDLE;
    }
    return TestDecoders::HandleCodecMessage(*instance, message, param1, param2);
}

// How many instances are open: lets a test see that every ICOpen of the codec was closed.
extern "C" LONG WINAPI TestCodecOpenInstances() {
    return TestDecoders::g_openInstances;
}
