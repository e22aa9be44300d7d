#pragma once
// TestMjpegDecoder.dll: the class of the MJPEG decompressor (CLSID_MjpegDec), for systems that
// do not have that filter (Wine registers no such class).
//
// Why the platform's AVI decompressor is a faithful stand-in: what a capture graph needs of the
// MJPEG decompressor is a filter, created under CLSID_MjpegDec, with one input pin that accepts
// the camera's MJPG media type and one output pin that offers RGB32 of the same size, decoding
// every sample it receives. The AVI decompressor is exactly that once a Video for Windows codec
// for MJPG is installed (TestCodec.dll): its input takes any video type a codec decodes, its
// output offers the codec's RGB formats, and it decodes on the streaming thread like any
// transform filter. So the class factory here creates the platform's AVI decompressor
// (CoCreateInstance(CLSID_AVIDec)) and hands it out as the object of CLSID_MjpegDec. The filter
// so made is the platform's own code, graph behaviour and all; only its GetClassID tells
// CLSID_AVIDec, which no caller of the MJPEG decompressor looks at.
//
// Lifetime: the filters handed out belong to the platform's DLL, not to this one, so only the
// class factories and IClassFactory::LockServer keep this DLL loaded (DllCanUnloadNow).
//
// Threads and references: a factory has its own atomic count, starting at 1 for its creator;
// it keeps no reference to anything, takes no lock, and may be called on any thread.

#include <windows.h>
#include <unknwn.h>

#include <atomic>

namespace TestDecoders {

class MjpegDecoderFactory final : public IClassFactory {
public:
    MjpegDecoderFactory();

    STDMETHODIMP QueryInterface(REFIID riid, void** object) override;
    STDMETHODIMP_(ULONG) AddRef() override;
    STDMETHODIMP_(ULONG) Release() override;

    // Creates the platform's AVI decompressor, aggregated by `outer` when given (the platform's
    // filter decides whether it can be).
    STDMETHODIMP CreateInstance(IUnknown* outer, REFIID riid, void** object) override;
    STDMETHODIMP LockServer(BOOL lock) override;

private:
    ~MjpegDecoderFactory();

    std::atomic<ULONG> m_references{1};
};

// What keeps the DLL loaded: live factories and server locks.
bool MjpegDecoderModuleCanUnload();

}  // namespace TestDecoders
