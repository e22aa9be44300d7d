#pragma once
// The IUnknown of the DLL's objects that offer a single interface.

#include <windows.h>
#include <unknwn.h>

#include <atomic>

#include "tools/VirtualCamera/Filter/ModuleLifetime.h"

namespace VirtualCamera {

// Answers QueryInterface for IUnknown and `*Iid`, counts references from 1 for the creator and
// deletes the object at 0. The DLL stays loaded while such an object lives.
template <class Interface, const IID* Iid>
class SingleInterfaceObject : public Interface {
public:
    STDMETHODIMP QueryInterface(REFIID riid, void** object) override {
        if (!object) {
            return E_POINTER;
        }
        if (riid == IID_IUnknown || riid == *Iid) {
            *object = static_cast<Interface*>(this);
            AddRef();
            return S_OK;
        }
        *object = nullptr;
        return E_NOINTERFACE;
    }
    STDMETHODIMP_(ULONG) AddRef() override { return ++m_references; }
    STDMETHODIMP_(ULONG) Release() override {
        const ULONG remaining = --m_references;
        if (remaining == 0) {
            delete this;
        }
        return remaining;
    }

protected:
    SingleInterfaceObject() = default;
    virtual ~SingleInterfaceObject() = default;

private:
    ModuleReference m_module;
    std::atomic<ULONG> m_references{1};
};

}  // namespace VirtualCamera
