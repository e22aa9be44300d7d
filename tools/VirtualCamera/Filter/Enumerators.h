#pragma once
// The enumerators the filter and its pin hand out: over a snapshot of pins or media types.

#include <windows.h>
#include <strmif.h>
#include <wrl/client.h>

#include <new>
#include <utility>
#include <vector>

#include "tools/VirtualCamera/Config/MediaFormats.h"
#include "tools/VirtualCamera/Filter/ComObject.h"

namespace VirtualCamera {

// An enumerator of one COM enumeration interface (IEnumPins, IEnumMediaTypes) over a snapshot of
// items. `Items` says what the interface hands out and how: its IID (kIid), the item type kept in
// the snapshot, and HandOut, which gives the caller its own copy or reference of an item (false
// when that fails, which ends Next early).
template <class Interface, class Items>
class SnapshotEnumerator final : public SingleInterfaceObject<Interface, Items::kIid> {
public:
    using Item = typename Items::Item;
    using Element = typename Items::Element;

    explicit SnapshotEnumerator(std::vector<Item> items, ULONG position = 0)
        : m_items(std::move(items)), m_position(position) {}

    STDMETHODIMP Next(ULONG count, Element* elements, ULONG* fetched) override {
        if (!elements) {
            return E_POINTER;
        }
        if (count > 1 && !fetched) {
            return E_INVALIDARG;
        }
        ULONG copied = 0;
        while (copied < count && m_position < m_items.size() &&
               Items::HandOut(m_items[m_position], &elements[copied])) {
            ++copied;
            ++m_position;
        }
        if (fetched) {
            *fetched = copied;
        }
        return copied == count ? S_OK : S_FALSE;
    }
    STDMETHODIMP Skip(ULONG count) override {
        const ULONG available = static_cast<ULONG>(m_items.size()) - m_position;
        if (count > available) {
            m_position = static_cast<ULONG>(m_items.size());
            return S_FALSE;
        }
        m_position += count;
        return S_OK;
    }
    STDMETHODIMP Reset() override {
        m_position = 0;
        return S_OK;
    }
    STDMETHODIMP Clone(Interface** clone) override {
        if (!clone) {
            return E_POINTER;
        }
        *clone = new (std::nothrow) SnapshotEnumerator(m_items, m_position);
        return *clone ? S_OK : E_OUTOFMEMORY;
    }

private:
    ~SnapshotEnumerator() override = default;

    std::vector<Item> m_items;
    ULONG m_position;
};

// Pins are handed out as references to the same pins.
struct PinItems {
    using Item = Microsoft::WRL::ComPtr<IPin>;
    using Element = IPin*;
    static constexpr const IID* kIid = &IID_IEnumPins;
    static bool HandOut(const Item& pin, IPin** element) {
        *element = pin.Get();
        (*element)->AddRef();
        return true;
    }
};

// Media types are handed out as task-allocated copies, which the caller deletes.
struct MediaTypeItems {
    using Item = MediaType;
    using Element = AM_MEDIA_TYPE*;
    static constexpr const IID* kIid = &IID_IEnumMediaTypes;
    static bool HandOut(const Item& type, AM_MEDIA_TYPE** element) {
        *element = CreateMediaTypeCopy(*type);
        return *element != nullptr;
    }
};

using PinEnumerator = SnapshotEnumerator<IEnumPins, PinItems>;
using MediaTypeEnumerator = SnapshotEnumerator<IEnumMediaTypes, MediaTypeItems>;

}  // namespace VirtualCamera
