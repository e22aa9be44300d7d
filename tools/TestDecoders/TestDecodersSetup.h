#pragma once
// Installs the decoder stand-ins into the Wine prefix the program runs in, for tests and for
// TestDecodersTool:
//
// - TestCodec.dll, a Video for Windows codec for YUY2, UYVY, I420, IYUV, YV12, NV12 and MJPG, is
//   copied into the system directory and named by the Drivers32 values vidc.<fourcc>, where the
//   system's codec search (ICLocate) and so the AVI decompressor find it;
// - TestMjpegDecoder.dll registers the class of the MJPEG decompressor, CLSID_MjpegDec, whose
//   objects are the platform's AVI decompressor (see MjpegDecoder/MjpegDecoderFactory.h).
//
// Both DLLs are taken from the directory of the running program. Installing refuses to run
// outside Wine, and never replaces a codec value or a class of another component; uninstalling
// removes only what names these DLLs. Both are idempotent. Neither needs COM.

#include <windows.h>

#include <string>
#include <vector>

namespace TestDecoders {

struct DriverValue {
    std::wstring name;  // "vidc.yuy2", ...
    std::wstring file;  // What the value names; empty when the value is absent.
};

struct DecoderStatus {
    std::wstring codecPath;     // <system directory>\TestCodec.dll
    bool codecPresent = false;  // A file is there...
    bool codecCurrent = false;  // ...with the bytes of the TestCodec.dll beside the program.
    std::vector<DriverValue> driverValues;  // One entry for each value the codec installs.
    std::wstring mjpegDecoderServer;        // The DLL CLSID_MjpegDec is registered to, or empty.
    bool mjpegDecoderIsOurs = false;        // That DLL is a TestMjpegDecoder.dll.

    // Everything in place: the current codec file, every value naming it, the class ours.
    bool Installed() const;
    // Nothing of ours left anywhere.
    bool Uninstalled() const;
};

// True in a process that runs under Wine (ntdll exports wine_get_version).
bool IsRunningUnderWine();

bool InstallDecoders(std::wstring* error);
bool UninstallDecoders(std::wstring* error);
DecoderStatus QueryDecoderStatus();

// The status as the tool prints it, one line for each piece, and a last line
// "state: installed", "state: not installed" or "state: partly installed".
std::wstring DescribeStatus(const DecoderStatus& status);

// Installs the stand-ins for a while (a test suite, a benchmark's run) and then leaves the prefix
// as it found it: Restore, or else the destructor, removes them again only when Install found
// them not (or only partly) installed, so that other programs sharing the prefix see no change.
// A failed Install still leaves Restore to remove whatever it put in place.
class ScopedDecoderInstall {
public:
    ScopedDecoderInstall() = default;
    ~ScopedDecoderInstall();
    ScopedDecoderInstall(const ScopedDecoderInstall&) = delete;
    ScopedDecoderInstall& operator=(const ScopedDecoderInstall&) = delete;

    bool Install(std::wstring* error);
    // True when there was nothing to remove; a second call does nothing.
    bool Restore(std::wstring* error);

private:
    bool m_uninstallOnRestore = false;
};

}  // namespace TestDecoders
