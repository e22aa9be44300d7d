// TestDecodersTool: installs the decoder stand-ins (TestCodec.dll, TestMjpegDecoder.dll, both
// beside the tool) into the Wine prefix it runs in, removes them, or tells what is installed.

#include <windows.h>

#include <cstdio>
#include <string>

#include "TinyFramework/Common/TinyTextConversion.h"
#include "tools/TestDecoders/TestDecodersSetup.h"

namespace {

const wchar_t* const kUsage =
    LR"(Usage: TestDecodersTool <command>
  install     copy TestCodec.dll into the system directory, name it in the Drivers32 values
              vidc.yuy2 vidc.uyvy vidc.i420 vidc.iyuv vidc.yv12 vidc.nv12 vidc.mjpg, and
              register TestMjpegDecoder.dll (beside this tool) as CLSID_MjpegDec; Wine only
  uninstall   remove all of that again (only what names these two DLLs)
  status      print what is installed; the last line is "state: installed", "state: not
              installed" or "state: partly installed"
  --help      show this text
Both install and uninstall may be repeated. Exit code 0 on success; otherwise a one-line
reason on standard error.
)";

using TinyFramework::ToUtf8;

void Print(FILE* stream, const std::wstring& text) {
    const std::string utf8 = ToUtf8(text);
    fwrite(utf8.data(), 1, utf8.size(), stream);
    fflush(stream);
}

int Failure(const std::wstring& reason) {
    Print(stderr, L"TestDecodersTool: " + reason + L"\n");
    return 1;
}

int Run(int argc, wchar_t** argv) {
    if (argc != 2) {
        return Failure(argc < 2 ? L"no command given; see --help"
                                : L"too many arguments; see --help");
    }
    const std::wstring command = argv[1];
    std::wstring error;
    if (command == L"--help" || command == L"-h" || command == L"help") {
        Print(stdout, kUsage);
        return 0;
    }
    if (command == L"install") {
        return TestDecoders::InstallDecoders(&error) ? 0 : Failure(error);
    }
    if (command == L"uninstall") {
        return TestDecoders::UninstallDecoders(&error) ? 0 : Failure(error);
    }
    if (command == L"status") {
        Print(stdout, TestDecoders::DescribeStatus(TestDecoders::QueryDecoderStatus()));
        return 0;
    }
    return Failure(L"unknown command '" + command + L"'; see --help");
}

}  // namespace

int main() {
    int argc = 0;
    wchar_t** argv = CommandLineToArgvW(GetCommandLineW(), &argc);
    if (!argv) {
        return Failure(L"cannot read the command line");
    }
    const int code = Run(argc, argv);
    LocalFree(argv);
    return code;
}
