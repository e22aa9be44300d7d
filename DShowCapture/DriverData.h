#pragma once

// Checks on the records that capture drivers hand out, made before any of them is read.
//
// A driver's format block, capability block and medium list all come with a size that the
// driver states itself, and a driver may state one thing and hand out another. Every place that
// reads such a record goes through these checks, so that a lying driver costs a mode or a medium
// and never a read past the driver's memory. A well-behaved driver passes them all unchanged.
//
// Only platform calls and no logging here, so that the floor server of the benchmarks, which
// links none of the project's libraries, reads drivers the same way.

#include <windows.h>

#include <dshow.h>
#include <ks.h>

#include <algorithm>
#include <cstddef>
#include <vector>

namespace DShow {

// The VIDEOINFOHEADER of a media type, or null when the type does not carry a whole one: another
// format type, no format block, or a block (cbFormat) shorter than the header.
inline const VIDEOINFOHEADER* GetVideoInfoHeader(const AM_MEDIA_TYPE& mediaType) {
    if (!IsEqualGUID(mediaType.formattype, FORMAT_VideoInfo) || mediaType.pbFormat == nullptr ||
        mediaType.cbFormat < sizeof(VIDEOINFOHEADER)) {
        return nullptr;
    }
    return reinterpret_cast<const VIDEOINFOHEADER*>(mediaType.pbFormat);
}

// Whether a medium list (the KSMULTIPLE_ITEM that IKsPin::KsQueryMediums gives) holds as many
// mediums as its Count says within the Size it states.
inline bool MediumListIsWhole(const KSMULTIPLE_ITEM& list) {
    if (list.Size < sizeof(KSMULTIPLE_ITEM)) {
        return false;
    }
    const ULONG roomForMediums = list.Size - static_cast<ULONG>(sizeof(KSMULTIPLE_ITEM));
    return list.Count <= roomForMediums / sizeof(REGPINMEDIUM);
}

// Reads the stream capabilities of a pin through IAMStreamConfig, one block for all of them.
//
// GetStreamCaps writes a capability block of the size that GetNumberOfCapabilities stated. A
// driver may state less than a VIDEO_STREAM_CONFIG_CAPS and still write a whole one, so the
// block is never smaller than that record; and it is cleared before each capability, so that a
// driver that writes less than it stated never hands on the previous capability's numbers.
class StreamCapabilityReader {
public:
    explicit StreamCapabilityReader(IAMStreamConfig* config)
        : m_config(config), m_block(sizeof(VIDEO_STREAM_CONFIG_CAPS)) {}
    StreamCapabilityReader(const StreamCapabilityReader&) = delete;
    StreamCapabilityReader& operator=(const StreamCapabilityReader&) = delete;

    // GetNumberOfCapabilities, with its result as the driver gave it; each caller judges that
    // result by its own test. The block grows to the stated size when that is larger.
    HRESULT Open() {
        int count = 0;
        int statedSize = 0;
        const HRESULT hr = m_config->GetNumberOfCapabilities(&count, &statedSize);
        m_count = count;
        m_statedSize = statedSize;
        m_block.resize(std::max(m_block.size(), static_cast<size_t>(std::max(statedSize, 0))));
        return hr;
    }

    // The number of capabilities that Open was told.
    int Count() const { return m_count; }

    // GetStreamCaps for one index, with its result as the driver gave it. The media type goes to
    // the caller, who frees it; the capability block stays here until the next Read.
    HRESULT Read(int index, AM_MEDIA_TYPE** mediaType) {
        std::fill(m_block.begin(), m_block.end(), BYTE{0});
        return m_config->GetStreamCaps(index, mediaType, m_block.data());
    }

    // The block of the last Read as a video capability, or null when the driver stated room for
    // less than one: what lies beyond the stated size is not the driver's answer.
    const VIDEO_STREAM_CONFIG_CAPS* VideoCapability() const {
        if (m_statedSize < static_cast<int>(sizeof(VIDEO_STREAM_CONFIG_CAPS))) {
            return nullptr;
        }
        return reinterpret_cast<const VIDEO_STREAM_CONFIG_CAPS*>(m_block.data());
    }

private:
    IAMStreamConfig* m_config;
    int m_count = 0;
    int m_statedSize = 0;
    std::vector<BYTE> m_block;
};

}  // namespace DShow
