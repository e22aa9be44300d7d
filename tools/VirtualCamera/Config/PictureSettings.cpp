#include "tools/VirtualCamera/Config/PictureSettings.h"

namespace VirtualCamera {

const GUID IID_IVirtualCameraPicture = {
    0x5b0e1f47, 0x93c2, 0x4a7d, {0xb6, 0xe8, 0x0c, 0x2f, 0x4d, 0x9a, 0x1e, 0x36}};

const GUID CLSID_VirtualCameraPicturePage = {
    0xa3c81d52, 0x6f0b, 0x4e97, {0x8d, 0x14, 0x27, 0xb9, 0x5e, 0x0c, 0x6f, 0x81}};

bool operator==(const PictureSettings& left, const PictureSettings& right) {
    return left.pattern == right.pattern && left.brightness == right.brightness &&
           (left.frameCounter != FALSE) == (right.frameCounter != FALSE);
}

bool IsValidPicture(const PictureSettings& settings) {
    const int32_t pattern = static_cast<int32_t>(settings.pattern);
    return pattern >= 0 && pattern < kPatternCount && settings.brightness >= kMinBrightness &&
           settings.brightness <= kMaxBrightness;
}

const wchar_t* PatternName(TestPattern pattern) {
    switch (pattern) {
        case TestPattern::kMovingBars:
            return L"Moving bars";
        case TestPattern::kFlatField:
            return L"Flat field";
        case TestPattern::kCheckerboard:
            return L"Checkerboard";
    }
    return L"";
}

}  // namespace VirtualCamera
