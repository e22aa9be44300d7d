// VideoCapture in a dozen lines: the first mode of the first video device, 30 frames counted on
// the streaming thread, the device's loss noticed by polling. Built with the tool so that it
// keeps compiling against the library as it changes.
#include <windows.h>

#include <atomic>
#include <cstdio>
#include <vector>

#include "DShowCapture/DeviceEnumeration.h"
#include "DShowCapture/VideoCapture.h"
#include "TinyFramework/Common/TinyCallback.h"

namespace {

std::atomic<long> g_frames{0};

// Runs on the streaming thread; `bits` is valid only during the call.
void OnFrame(const unsigned char*, long, long long, void*) {
    ++g_frames;
}

}  // namespace

int main() {
    CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    std::vector<DShow::VideoDevice> devices;
    std::vector<DShow::VideoFormat> modes;
    if (!DShow::GetVideoDevices(devices) || devices.empty() ||
        !DShow::VideoCapture::GetDeviceFormats(devices[0], modes) || modes.empty()) {
        return 1;
    }
    {
        DShow::VideoCapture capture;
        capture.SetCallback(
            TinyFramework::BindCallback<void(const unsigned char*, long, long long, void*)>(
                &OnFrame));
        if (!capture.Initialize(devices[0]) || !capture.Allocate(modes[0]) || !capture.Run()) {
            return 1;
        }
        while (g_frames < 30 && capture.CheckEvents()) {
            Sleep(10);
        }
        printf("%ld frames of %s\n", g_frames.load(),
               capture.GetCurrentFormat().ToString().c_str());
    }  // the destructor stops the graph and takes it apart
    CoUninitialize();
    return 0;
}
