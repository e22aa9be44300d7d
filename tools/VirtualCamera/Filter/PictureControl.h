#pragma once
// The picture settings of one capture filter, shared between the threads that change them (the
// property page's, any caller of IVirtualCameraPicture) and the streaming thread that paints
// each frame with them. Its own small lock, not the filter's: the streaming thread must never
// wait for the filter's lock, whose owner may be joining it.

#include <mutex>

#include "tools/VirtualCamera/Config/PictureSettings.h"

namespace VirtualCamera {

class PictureControl {
public:
    PictureControl() = default;
    PictureControl(const PictureControl&) = delete;
    PictureControl& operator=(const PictureControl&) = delete;

    PictureSettings Get() const {
        std::lock_guard<std::mutex> lock(m_lock);
        return m_settings;
    }
    void Set(const PictureSettings& settings) {
        std::lock_guard<std::mutex> lock(m_lock);
        m_settings = settings;
    }

private:
    mutable std::mutex m_lock;  // guards m_settings only; held for a copy
    PictureSettings m_settings;
};

}  // namespace VirtualCamera
