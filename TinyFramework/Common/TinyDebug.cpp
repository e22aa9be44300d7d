#include "TinyFramework/Common/TinyDebug.h"

#include <cstdarg>
#include <cstdio>
#include <cwchar>
#include <vector>

#include "TinyFramework/Common/TinyLock.h"

namespace TinyFramework {
namespace {

constexpr int kThreadTraceLimit = 4096;

// Function-local statics: trace calls may come from other statics' constructors.
TinyLock& CommonTraceLock() {
    static TinyLock lock;
    return lock;
}

TinyLock& ThreadTraceLockA() {
    static TinyLock lock;
    return lock;
}

// The wide buffer of TraceW outlives each call: it is made once and only ever grows.
std::vector<wchar_t>& WideTraceBuffer() {
    static std::vector<wchar_t> buffer(256);
    return buffer;
}

void VTraceA(const char* format, va_list args) {
    va_list measure;
    va_copy(measure, args);
    const int needed = vsnprintf(nullptr, 0, format, measure);
    va_end(measure);
    if (needed < 0) {
        return;
    }
    std::vector<char> buffer(static_cast<size_t>(needed) + 1);
    vsnprintf(buffer.data(), buffer.size(), format, args);
    OutputDebugStringA(buffer.data());
}

void VTraceW(const wchar_t* format, va_list args) {
    std::vector<wchar_t>& buffer = WideTraceBuffer();
    for (;;) {
        va_list attempt;
        va_copy(attempt, args);
        // The wide formatter reports no needed size, only failure, so the buffer doubles
        // until the text fits.
        const int written = _vsnwprintf(buffer.data(), buffer.size() - 1, format, attempt);
        va_end(attempt);
        if (written >= 0 && static_cast<size_t>(written) < buffer.size() - 1) {
            buffer[static_cast<size_t>(written)] = L'\0';
            break;
        }
        if (buffer.size() >= (1u << 24)) {
            buffer[buffer.size() - 1] = L'\0';
            break;
        }
        buffer.resize(buffer.size() * 2);
    }
    OutputDebugStringW(buffer.data());
}

}  // namespace

void TraceA(const char* format, ...) {
    TinyAutoLock guard(CommonTraceLock());
    va_list args;
    va_start(args, format);
    VTraceA(format, args);
    va_end(args);
}

void TraceW(const wchar_t* format, ...) {
    TinyAutoLock guard(CommonTraceLock());
    va_list args;
    va_start(args, format);
    VTraceW(format, args);
    va_end(args);
}

void TraceThreadA(const char* format, ...) {
    TinyAutoLock guard(ThreadTraceLockA());
    char text[kThreadTraceLimit + 1] = {};
    int prefix = snprintf(text, sizeof(text), "[%d] ", static_cast<int>(GetCurrentThreadId()));
    if (prefix < 0) {
        prefix = 0;
    }
    va_list args;
    va_start(args, format);
    vsnprintf(text + prefix, sizeof(text) - static_cast<size_t>(prefix), format, args);
    va_end(args);
    OutputDebugStringA(text);
}

void TraceThreadW(const wchar_t* format, ...) {
    TinyAutoLock guard(CommonTraceLock());
    wchar_t text[kThreadTraceLimit + 1] = {};
    int prefix =
        _snwprintf(text, kThreadTraceLimit, L"[%d] ", static_cast<int>(GetCurrentThreadId()));
    if (prefix < 0) {
        prefix = 0;
    }
    va_list args;
    va_start(args, format);
    _vsnwprintf(text + prefix, static_cast<size_t>(kThreadTraceLimit - prefix), format, args);
    va_end(args);
    text[kThreadTraceLimit] = L'\0';
    OutputDebugStringW(text);
}

}  // namespace TinyFramework
