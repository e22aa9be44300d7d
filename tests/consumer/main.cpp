// Lists the video input devices and the modes each offers, through the capture library as
// installed. Exits with 0 once it ran, devices or none: a machine (or Wine prefix) without a
// camera has an empty device category, which the library reports as a failed enumeration.
#include <windows.h>

#include <cstdio>
#include <vector>

#include "DShowCapture/DeviceEnumeration.h"
#include "DShowCapture/VideoCapture.h"
#include "DShowCapture/VideoFormat.h"

int main() {
    if (FAILED(CoInitializeEx(nullptr, COINIT_MULTITHREADED))) {
        fprintf(stderr, "COM could not be initialised\n");
        return 1;
    }
    std::vector<DShow::VideoDevice> devices;
    DShow::GetVideoDevices(devices);
    printf("video devices: %u\n", static_cast<unsigned>(devices.size()));
    for (const DShow::VideoDevice& device : devices) {
        std::vector<DShow::VideoFormat> formats;
        DShow::VideoCapture::GetDeviceFormats(device, formats);
        printf("%ls: %u modes", device.GetName().c_str(), static_cast<unsigned>(formats.size()));
        if (!formats.empty()) {
            printf(", the first %s", formats.front().ToString().c_str());
        }
        printf("\n");
    }
    CoUninitialize();
    return 0;
}
