// CaptureTool: captures from one video device through VideoCapture and sums up what arrived.
#include <windows.h>

#include <objbase.h>

#include <cstdio>
#include <string>
#include <vector>

#include "tools/CaptureTool/CaptureArguments.h"
#include "tools/CaptureTool/CaptureRun.h"
#include "tools/CaptureTool/CaptureSummary.h"

namespace {

constexpr char kUsage[] =
    "usage: CaptureTool <device_id> [--format NAME] [--size WxH] [--rate FPS]\n"
    "                   [--frames N | --seconds S] [--no-mjpeg-decoder] [--snapshot FILE.png]\n"
    "                   [--properties] [--json]\n"
    "\n"
    "  --format NAME       pixel format: YUY2, UYUY (or UYVY), MJPEG (or MJPG), I420, NV12,\n"
    "                      RGB24, RGBA, ...\n"
    "  --size WxH          frame size in pixels\n"
    "  --rate FPS          frames per second, within the mode's range\n"
    "                      (the first listed mode that matches what is given; with none of the\n"
    "                      three, the device's first listed mode)\n"
    "  --frames N          stop after N frames (default 30)\n"
    "  --seconds S         stop S seconds after the first frame\n"
    "  --no-mjpeg-decoder  hand MJPEG frames over as they come, not decoded\n"
    "  --snapshot FILE.png write the last frame received as a PNG\n"
    "  --properties        open the device's property frame while capturing; closing it ends\n"
    "                      the run (unless --frames or --seconds ends it first)\n"
    "  --json              print the summary as one JSON object, and no line per second\n"
    "\n"
    "Exit code 0 on success; 1 with one line on stderr when the capture failed; 2 for bad\n"
    "arguments.\n";

constexpr int kBadArguments = 2;

// The main thread's membership of the multithreaded apartment, for the length of the run.
class ComApartment {
public:
    ComApartment() : m_result(CoInitializeEx(nullptr, COINIT_MULTITHREADED)) {}
    ~ComApartment() {
        if (SUCCEEDED(m_result)) {
            CoUninitialize();
        }
    }
    ComApartment(const ComApartment&) = delete;
    ComApartment& operator=(const ComApartment&) = delete;

    HRESULT Result() const { return m_result; }

private:
    HRESULT m_result;
};

void PrintLine(const std::string& line) {
    fprintf(stdout, "%s\n", line.c_str());
    fflush(stdout);
}

int Failure(int exitCode, const std::string& line) {
    fprintf(stderr, "CaptureTool: %s\n", line.c_str());
    return exitCode;
}

}  // namespace

int wmain(int argc, wchar_t** argv) {
    CaptureTool::CaptureArguments arguments;
    std::string error;
    if (!CaptureTool::ParseCaptureArguments(std::vector<std::wstring>(argv + 1, argv + argc),
                                            arguments, error)) {
        fprintf(stderr, "%s", kUsage);
        return Failure(kBadArguments, error);
    }
    if (arguments.help) {
        fprintf(stdout, "%s", kUsage);
        return 0;
    }
    ComApartment apartment;
    if (FAILED(apartment.Result())) {
        return Failure(1, "could not enter the multithreaded COM apartment");
    }
    const bool json = arguments.json;
    const CaptureTool::RunResult result =
        CaptureTool::RunCapture(arguments, [json](const std::string& line) {
            if (!json) {
                PrintLine(line);
            }
        });
    if (result.hasSummary) {
        if (json) {
            PrintLine(CaptureTool::SummaryJson(result.summary));
        } else {
            fprintf(stdout, "%s", CaptureTool::SummaryText(result.summary).c_str());
        }
    }
    return result.failure.empty() ? result.exitCode : Failure(result.exitCode, result.failure);
}
