#include "tools/TestDecoders/MjpegDecoder/MjpegDecoderFactory.h"

#include <objbase.h>
#include <uuids.h>

namespace TestDecoders {
namespace {

std::atomic<long> g_liveFactories{0};
std::atomic<long> g_serverLocks{0};

}  // namespace

MjpegDecoderFactory::MjpegDecoderFactory() {
    ++g_liveFactories;
}

MjpegDecoderFactory::~MjpegDecoderFactory() {
    --g_liveFactories;
}

STDMETHODIMP MjpegDecoderFactory::QueryInterface(REFIID riid, void** object) {
    if (!object) {
        return E_POINTER;
    }
    if (riid == IID_IUnknown || riid == IID_IClassFactory) {
        *object = static_cast<IClassFactory*>(this);
        AddRef();
        return S_OK;
    }
    *object = nullptr;
    return E_NOINTERFACE;
}

STDMETHODIMP_(ULONG) MjpegDecoderFactory::AddRef() {
    return ++m_references;
}

STDMETHODIMP_(ULONG) MjpegDecoderFactory::Release() {
    const ULONG remaining = --m_references;
    if (remaining == 0) {
        delete this;
    }
    return remaining;
}

STDMETHODIMP MjpegDecoderFactory::CreateInstance(IUnknown* outer, REFIID riid, void** object) {
    if (!object) {
        return E_POINTER;
    }
    *object = nullptr;
    return CoCreateInstance(CLSID_AVIDec, outer, CLSCTX_INPROC_SERVER, riid, object);
}

STDMETHODIMP MjpegDecoderFactory::LockServer(BOOL lock) {
    lock ? ++g_serverLocks : --g_serverLocks;
    return S_OK;
}

bool MjpegDecoderModuleCanUnload() {
    return g_liveFactories == 0 && g_serverLocks == 0;
}

}  // namespace TestDecoders
