#include "DisplaySupport.h"

#include <wincodec.h>
#include <wrl/client.h>

#include <cstdio>
#include <thread>

namespace DisplayTests {
namespace {

using Microsoft::WRL::ComPtr;

constexpr DWORD kPollMs = 10;

BOOL CALLBACK CollectWindow(HWND window, LPARAM windows) {
    reinterpret_cast<std::vector<HWND>*>(windows)->push_back(window);
    return TRUE;
}

struct DescendantSearch {
    int id;
    HWND found;
};

BOOL CALLBACK MatchDescendant(HWND window, LPARAM search) {
    auto* wanted = reinterpret_cast<DescendantSearch*>(search);
    if (GetDlgCtrlID(window) == wanted->id) {
        wanted->found = window;
        return FALSE;
    }
    return TRUE;
}

// A screen-compatible 24-bit top-down bitmap and the memory DC it is selected into.
class ScreenCopy {
public:
    ScreenCopy(int width, int height) : m_width(width), m_height(height) {
        BITMAPINFO info = {};
        info.bmiHeader.biSize = sizeof(info.bmiHeader);
        info.bmiHeader.biWidth = width;
        info.bmiHeader.biHeight = -height;
        info.bmiHeader.biPlanes = 1;
        info.bmiHeader.biBitCount = 24;
        info.bmiHeader.biCompression = BI_RGB;
        m_screen = GetDC(nullptr);
        m_memory = CreateCompatibleDC(m_screen);
        m_bitmap = CreateDIBSection(m_memory, &info, DIB_RGB_COLORS, &m_bits, nullptr, 0);
        if (m_bitmap) {
            m_previous = SelectObject(m_memory, m_bitmap);
        }
    }
    ~ScreenCopy() {
        if (m_previous) {
            SelectObject(m_memory, m_previous);
        }
        if (m_bitmap) {
            DeleteObject(m_bitmap);
        }
        if (m_memory) {
            DeleteDC(m_memory);
        }
        if (m_screen) {
            ReleaseDC(nullptr, m_screen);
        }
    }
    ScreenCopy(const ScreenCopy&) = delete;
    ScreenCopy& operator=(const ScreenCopy&) = delete;

    bool Copy(int left, int top) {
        return m_bitmap &&
               BitBlt(m_memory, 0, 0, m_width, m_height, m_screen, left, top, SRCCOPY) != FALSE &&
               GdiFlush() != FALSE;
    }
    const BYTE* Bits() const { return static_cast<const BYTE*>(m_bits); }
    UINT Stride() const { return static_cast<UINT>(((m_width * 3) + 3) & ~3); }

private:
    int m_width;
    int m_height;
    HDC m_screen = nullptr;
    HDC m_memory = nullptr;
    HBITMAP m_bitmap = nullptr;
    HGDIOBJ m_previous = nullptr;
    void* m_bits = nullptr;
};

HRESULT WritePng(const BYTE* bits, UINT width, UINT height, UINT stride, const std::wstring& path) {
    ComPtr<IWICImagingFactory> factory;
    HRESULT hr = CoCreateInstance(CLSID_WICImagingFactory, nullptr, CLSCTX_INPROC_SERVER,
                                  IID_PPV_ARGS(&factory));
    ComPtr<IWICStream> stream;
    if (SUCCEEDED(hr)) hr = factory->CreateStream(&stream);
    if (SUCCEEDED(hr)) hr = stream->InitializeFromFilename(path.c_str(), GENERIC_WRITE);
    ComPtr<IWICBitmapEncoder> encoder;
    if (SUCCEEDED(hr)) hr = factory->CreateEncoder(GUID_ContainerFormatPng, nullptr, &encoder);
    if (SUCCEEDED(hr)) hr = encoder->Initialize(stream.Get(), WICBitmapEncoderNoCache);
    ComPtr<IWICBitmapFrameEncode> frame;
    if (SUCCEEDED(hr)) hr = encoder->CreateNewFrame(&frame, nullptr);
    if (SUCCEEDED(hr)) hr = frame->Initialize(nullptr);
    if (SUCCEEDED(hr)) hr = frame->SetSize(width, height);
    WICPixelFormatGUID format = GUID_WICPixelFormat24bppBGR;
    if (SUCCEEDED(hr)) hr = frame->SetPixelFormat(&format);
    if (SUCCEEDED(hr) && !IsEqualGUID(format, GUID_WICPixelFormat24bppBGR)) hr = E_FAIL;
    if (SUCCEEDED(hr)) {
        hr = frame->WritePixels(height, stride, stride * height, const_cast<BYTE*>(bits));
    }
    if (SUCCEEDED(hr)) hr = frame->Commit();
    if (SUCCEEDED(hr)) hr = encoder->Commit();
    return hr;
}

}  // namespace

bool HasDisplay() {
    const HWND probe = CreateWindowExW(0, L"STATIC", L"", WS_POPUP, 0, 0, 1, 1, nullptr, nullptr,
                                       nullptr, nullptr);
    if (!probe) {
        return false;
    }
    DestroyWindow(probe);
    return true;
}

bool WaitUntil(const std::function<bool()>& done, DWORD deadlineMs) {
    const ULONGLONG end = GetTickCount64() + deadlineMs;
    while (!done()) {
        if (GetTickCount64() >= end) {
            return done();
        }
        Sleep(kPollMs);
    }
    return true;
}

std::vector<HWND> WindowsOfThread(DWORD threadId) {
    std::vector<HWND> windows;
    EnumThreadWindows(threadId, &CollectWindow, reinterpret_cast<LPARAM>(&windows));
    return windows;
}

std::vector<HWND> VisibleWindowsOfThread(DWORD threadId) {
    std::vector<HWND> visible;
    for (HWND window : WindowsOfThread(threadId)) {
        if (IsWindowVisible(window)) {
            visible.push_back(window);
        }
    }
    return visible;
}

HWND WaitForWindowOfThread(DWORD threadId) {
    HWND found = nullptr;
    WaitUntil([&] {
        const std::vector<HWND> windows = VisibleWindowsOfThread(threadId);
        found = windows.empty() ? nullptr : windows.front();
        return found != nullptr;
    });
    return found;
}

HWND FindDescendant(HWND window, int id) {
    DescendantSearch search = {id, nullptr};
    EnumChildWindows(window, &MatchDescendant, reinterpret_cast<LPARAM>(&search));
    return search.found;
}

std::wstring WindowText(HWND window) {
    wchar_t text[512] = {};
    // Through a message with a timeout: the window may belong to a thread that is busy.
    DWORD_PTR copied = 0;
    SendMessageTimeoutW(window, WM_GETTEXT, sizeof(text) / sizeof(text[0]),
                        reinterpret_cast<LPARAM>(text), SMTO_NORMAL, kStateDeadlineMs, &copied);
    return text;
}

ThreadHandle::ThreadHandle(DWORD threadId)
    : m_handle(OpenThread(SYNCHRONIZE | THREAD_QUERY_LIMITED_INFORMATION, FALSE, threadId)) {}

ThreadHandle::~ThreadHandle() {
    if (m_handle) {
        CloseHandle(m_handle);
    }
}

bool ThreadHandle::WaitForEnd(DWORD deadlineMs) const {
    return m_handle && WaitForSingleObject(m_handle, deadlineMs) == WAIT_OBJECT_0;
}

HostWindow::HostWindow(int width, int height)
    : m_window(CreateWindowExW(0, L"STATIC", L"Property page host",
                               WS_OVERLAPPEDWINDOW | WS_VISIBLE, 0, 0, width, height, nullptr,
                               nullptr, nullptr, nullptr)) {}

HostWindow::~HostWindow() {
    if (m_window) {
        DestroyWindow(m_window);
    }
}

bool SaveWindowPicture(HWND window, const std::wstring& path, std::string& error) {
    RedrawWindow(window, nullptr, nullptr,
                 RDW_INVALIDATE | RDW_ERASE | RDW_FRAME | RDW_ALLCHILDREN | RDW_UPDATENOW);
    RECT rect = {};
    if (!GetWindowRect(window, &rect) || rect.right <= rect.left || rect.bottom <= rect.top) {
        error = "the window has no area";
        return false;
    }
    const int width = rect.right - rect.left;
    const int height = rect.bottom - rect.top;
    ScreenCopy copy(width, height);
    if (!copy.Copy(rect.left, rect.top)) {
        error = "BitBlt from the screen failed: " + std::to_string(GetLastError());
        return false;
    }
    const size_t slash = path.find_last_of(L"\\/");
    if (slash != std::wstring::npos) {
        CreateDirectoryW(path.substr(0, slash).c_str(), nullptr);
    }
    const HRESULT hr = WritePng(copy.Bits(), static_cast<UINT>(width), static_cast<UINT>(height),
                                copy.Stride(), path);
    if (FAILED(hr)) {
        char text[64];
        snprintf(text, sizeof(text), "writing the PNG failed: 0x%08lX",
                 static_cast<unsigned long>(hr));
        error = text;
        return false;
    }
    return true;
}

std::wstring ArtifactsFolder() {
    wchar_t program[MAX_PATH] = {};
    GetModuleFileNameW(nullptr, program, MAX_PATH);
    std::wstring folder = program;
    folder = folder.substr(0, folder.find_last_of(L"\\/"));  // build\bin
    folder = folder.substr(0, folder.find_last_of(L"\\/"));  // build
    return folder + L"\\artifacts";
}

}  // namespace DisplayTests
