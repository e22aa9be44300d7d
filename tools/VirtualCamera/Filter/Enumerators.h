#pragma once
// The enumerators the filter and its pin hand out: over a snapshot of pins or media types.

#include <windows.h>
#include <strmif.h>
#include <wrl/client.h>

#include <atomic>
#include <vector>

#include "tools/VirtualCamera/Config/MediaFormats.h"
#include "tools/VirtualCamera/Filter/ModuleLifetime.h"

namespace VirtualCamera {

class PinEnumerator final : public IEnumPins {
public:
    explicit PinEnumerator(std::vector<Microsoft::WRL::ComPtr<IPin>> pins, ULONG position = 0);

    STDMETHODIMP QueryInterface(REFIID riid, void** object) override;
    STDMETHODIMP_(ULONG) AddRef() override;
    STDMETHODIMP_(ULONG) Release() override;

    STDMETHODIMP Next(ULONG count, IPin** pins, ULONG* fetched) override;
    STDMETHODIMP Skip(ULONG count) override;
    STDMETHODIMP Reset() override;
    STDMETHODIMP Clone(IEnumPins** clone) override;

private:
    ~PinEnumerator() = default;
    ModuleReference module_;
    std::atomic<ULONG> references_{1};
    std::vector<Microsoft::WRL::ComPtr<IPin>> pins_;
    ULONG position_;
};

class MediaTypeEnumerator final : public IEnumMediaTypes {
public:
    explicit MediaTypeEnumerator(std::vector<MediaType> types, ULONG position = 0);

    STDMETHODIMP QueryInterface(REFIID riid, void** object) override;
    STDMETHODIMP_(ULONG) AddRef() override;
    STDMETHODIMP_(ULONG) Release() override;

    STDMETHODIMP Next(ULONG count, AM_MEDIA_TYPE** types, ULONG* fetched) override;
    STDMETHODIMP Skip(ULONG count) override;
    STDMETHODIMP Reset() override;
    STDMETHODIMP Clone(IEnumMediaTypes** clone) override;

private:
    ~MediaTypeEnumerator() = default;
    ModuleReference module_;
    std::atomic<ULONG> references_{1};
    std::vector<MediaType> types_;
    ULONG position_;
};

}  // namespace VirtualCamera
