#pragma once
// Turns the test picture into JPEG images with the platform's imaging codecs (WIC). The picture
// repeats after kPhases frames, so each phase is encoded once and then reused.

#include <windows.h>
#include <wincodec.h>
#include <wrl/client.h>

#include <cstdint>
#include <map>
#include <vector>

#include "tools/VirtualCamera/Config/PictureSettings.h"

namespace VirtualCamera {

class JpegEncoder {
public:
    static constexpr uint32_t kPhases = 16;

    JpegEncoder(LONG width, LONG height) : m_width(width), m_height(height) {}

    // The JPEG of the picture for this frame (without the counter segment); empty on failure.
    // Call on a thread where COM is initialized. Other settings than last time empty the cache.
    const std::vector<BYTE>& PictureFor(uint32_t frameCounter,
                                        const PictureSettings& picture = PictureSettings());

private:
    HRESULT Encode(uint32_t phase, std::vector<BYTE>* jpeg);
    HRESULT EnsureFactory();

    LONG m_width;
    LONG m_height;
    Microsoft::WRL::ComPtr<IWICImagingFactory> m_factory;
    PictureSettings m_cachedPicture;
    std::map<uint32_t, std::vector<BYTE>> m_cache;
    std::vector<BYTE> m_empty;
};

}  // namespace VirtualCamera
