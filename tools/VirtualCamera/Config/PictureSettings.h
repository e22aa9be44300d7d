#pragma once
// What a person can change in the virtual camera's picture while it streams: the test pattern,
// its brightness, and whether the frame counter is painted in. The capture filter keeps the
// values (IVirtualCameraPicture), its property page edits them, and the streaming thread paints
// each frame with the values of that moment. The defaults give the picture the camera always
// had, so a device that nobody touches sends exactly what it sent before.
//
// The interface is the camera's own, reached by QueryInterface on the capture filter; it is
// in-process only (no proxy is registered), which is all a property page needs.

#include <windows.h>
#include <unknwn.h>

#include <cstdint>

namespace VirtualCamera {

enum class TestPattern : int32_t {
    kMovingBars = 0,    // the camera's usual picture: grey bars that scroll left
    kFlatField = 1,     // one grey level over the whole picture, set by the brightness
    kCheckerboard = 2,  // 32-pixel squares that scroll left like the bars
};
inline constexpr int32_t kPatternCount = 3;

inline constexpr int32_t kMinBrightness = 0;
inline constexpr int32_t kMaxBrightness = 255;
// Brightness shifts every luma value by (brightness - kNeutralBrightness), within the video
// range 16..235; the flat field sits at the brightness itself, clamped to that range.
inline constexpr int32_t kNeutralBrightness = 128;

// Plain values of fixed layout: they cross IVirtualCameraPicture.
struct PictureSettings {
    TestPattern pattern = TestPattern::kMovingBars;
    int32_t brightness = kNeutralBrightness;
    BOOL frameCounter = TRUE;
};

bool operator==(const PictureSettings& left, const PictureSettings& right);
inline bool operator!=(const PictureSettings& left, const PictureSettings& right) {
    return !(left == right);
}

// Whether each value lies in its range.
bool IsValidPicture(const PictureSettings& settings);

// The name of a pattern as the property page lists it.
const wchar_t* PatternName(TestPattern pattern);

// {5B0E1F47-93C2-4A7D-B6E8-0C2F4D9A1E36}
extern const GUID IID_IVirtualCameraPicture;

// The capture filter's picture settings. Any thread; the filter serialises the two calls with
// the streaming thread's reads.
struct IVirtualCameraPicture : public IUnknown {
    // E_POINTER for null.
    virtual HRESULT STDMETHODCALLTYPE GetPicture(PictureSettings* settings) = 0;
    // E_POINTER for null, E_INVALIDARG for a value out of its range (nothing changes then). The
    // next frame painted uses the new values, also while the graph runs.
    virtual HRESULT STDMETHODCALLTYPE SetPicture(const PictureSettings* settings) = 0;
};

// The property page that edits the picture: a COM class of VirtualCamera.dll, registered with the
// filter, that the filter names through ISpecifyPropertyPages.
// {A3C81D52-6F0B-4E97-8D14-27B95E0C6F81}
extern const GUID CLSID_VirtualCameraPicturePage;

// The page's title and the identifiers of its controls, for tests that drive it by messages.
inline constexpr const wchar_t* kPicturePageTitle = L"Test Picture";
inline constexpr int kPatternComboId = 1001;       // combo box: one item per TestPattern, in order
inline constexpr int kBrightnessSliderId = 1002;   // trackbar, kMinBrightness..kMaxBrightness
inline constexpr int kBrightnessValueId = 1003;    // static text: the slider's value
inline constexpr int kFrameCounterCheckId = 1004;  // check box

}  // namespace VirtualCamera
