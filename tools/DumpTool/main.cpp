// DumpTool.exe: what a crash dump says, for the person who received it.
//   DumpTool <file.dmp> [--json] [--image <path>[@<base>]]...
// Prints the exception, the crashing thread and the thread list, the modules and the crashing
// thread's stack. --image adds a module that the dump leaves out (at its preferred base, or at
// the hexadecimal <base>), so that addresses inside it get names. Exit code 0 when the dump was
// read, 1 with one line on the error stream otherwise.

#include "TinyFramework/Common/TinyTextConversion.h"
#include "tools/DumpTool/DumpReader.h"
#include "tools/DumpTool/DumpReport.h"

#include <fcntl.h>
#include <io.h>

#include <cstdio>
#include <cwchar>
#include <string>
#include <vector>

namespace {

using TinyFramework::ToUtf8;

constexpr const char kUsage[] = "usage: DumpTool <file.dmp> [--json] [--image <path>[@<base>]]...";

struct ImageArgument {
    std::wstring path;
    uint64_t base = 0;
};

struct Arguments {
    std::wstring dumpPath;
    bool json = false;
    std::vector<ImageArgument> images;
};

int Failure(const std::string& line) {
    fprintf(stderr, "DumpTool: %s\n", line.c_str());
    return 1;
}

// "<path>@0x140000000" or "<path>": a base is only taken from behind the last '@'.
bool ParseImage(const std::wstring& text, ImageArgument* image) {
    const size_t at = text.find_last_of(L'@');
    if (at == std::wstring::npos) {
        image->path = text;
        return !text.empty();
    }
    const std::wstring base = text.substr(at + 1);
    wchar_t* end = nullptr;
    image->base = wcstoull(base.c_str(), &end, 16);
    image->path = text.substr(0, at);
    return !base.empty() && end != nullptr && *end == L'\0' && image->base != 0 &&
           !image->path.empty();
}

bool ParseArguments(int argc, wchar_t** argv, Arguments* parsed, std::string* error) {
    for (int index = 1; index < argc; ++index) {
        const std::wstring argument = argv[index];
        if (argument == L"--json") {
            parsed->json = true;
        } else if (argument == L"--image") {
            ImageArgument image;
            if (index + 1 >= argc || !ParseImage(argv[++index], &image)) {
                *error = "--image takes <path> or <path>@<hexadecimal base>";
                return false;
            }
            parsed->images.push_back(image);
        } else if (argument.rfind(L"--", 0) == 0) {
            *error = "unknown option " + ToUtf8(argument);
            return false;
        } else if (parsed->dumpPath.empty()) {
            parsed->dumpPath = argument;
        } else {
            *error = "more than one dump file given";
            return false;
        }
    }
    if (parsed->dumpPath.empty()) {
        *error = kUsage;
        return false;
    }
    return true;
}

int OpenFailure(DumpTool::DumpOpenResult result, const std::wstring& path, DWORD error) {
    const std::string name = ToUtf8(path);
    switch (result) {
        case DumpTool::DumpOpenResult::fileMissing:
            return Failure("no such file: " + name);
        case DumpTool::DumpOpenResult::cannotOpen:
            return Failure("cannot open " + name + " (error " + std::to_string(error) + ")");
        case DumpTool::DumpOpenResult::notMinidump:
            return Failure("not a minidump: " + name);
        case DumpTool::DumpOpenResult::noException:
            return Failure("no exception in the dump (not a crash dump): " + name);
        default:
            return Failure("cannot read " + name);
    }
}

}  // namespace

int wmain(int argc, wchar_t** argv) {
    // Lines end in a bare line feed on both streams, whether they go to a console, a file or a
    // program that parses the JSON.
    _setmode(_fileno(stdout), _O_BINARY);
    _setmode(_fileno(stderr), _O_BINARY);
    Arguments arguments;
    std::string error;
    if (!ParseArguments(argc, argv, &arguments, &error)) {
        return Failure(error);
    }
    DumpTool::DumpReader reader;
    const DumpTool::DumpOpenResult opened = reader.Open(arguments.dumpPath);
    if (opened != DumpTool::DumpOpenResult::opened) {
        return OpenFailure(opened, arguments.dumpPath, reader.OpenError());
    }
    for (const ImageArgument& image : arguments.images) {
        if (!reader.AddImage(image.path, image.base)) {
            return Failure("not a 64-bit image: " + ToUtf8(image.path));
        }
    }
    const std::vector<DumpTool::DumpFrame> stack = reader.WalkCrashingStack();
    const std::string report = arguments.json
                                   ? DumpTool::FormatJsonReport(arguments.dumpPath, reader, stack)
                                   : DumpTool::FormatTextReport(arguments.dumpPath, reader, stack);
    fwrite(report.data(), 1, report.size(), stdout);
    return 0;
}
