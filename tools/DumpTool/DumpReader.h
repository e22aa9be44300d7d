#pragma once

// Reads a minidump written by a crashed program: its exception, threads, modules and memory, and
// walks the crashing thread's stack from the exception's context with the modules' symbols.
// Everything is read from a read-only view of the file; the crashed process is long gone.

#include "client/UniqueHandle.h"

#include <windows.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace DumpTool {

enum class DumpOpenResult {
    opened,
    fileMissing,  // the path names no file
    cannotOpen,   // the file is there but could not be opened or mapped
    notMinidump,  // no "MDMP" signature, or a directory that runs past the file's end
    noException,  // a minidump without an exception stream: not a crash dump
};

struct DumpException {
    uint32_t threadId = 0;
    uint32_t code = 0;
    uint32_t flags = 0;
    uint64_t address = 0;
    std::vector<uint64_t> parameters;
};

struct DumpThread {
    uint32_t id = 0;
    uint64_t stackStart = 0;
    uint32_t stackSize = 0;
};

struct DumpModule {
    std::wstring path;
    uint64_t base = 0;
    uint32_t size = 0;
    // False for a module that the reader's user added because the dump does not list it.
    bool listedInDump = true;
};

struct DumpFrame {
    uint64_t address = 0;
    // The module that holds the address, as its file name; empty when no module does.
    std::wstring module;
    uint64_t moduleOffset = 0;
    // The function, when the module's symbols name it.
    std::string function;
    uint64_t displacement = 0;
    // The source line, when the module's line information has it.
    std::wstring file;
    uint32_t line = 0;
};

// The name of an exception code as a crash report prints it: the platform's constant name for the
// codes a crash report knows, otherwise "0x" and eight lower-case hexadecimal digits.
std::string ExceptionName(uint32_t code);

// The last component of a path ("C:\x\a.exe" gives "a.exe").
std::wstring FileNameOf(const std::wstring& path);

class DumpReader {
public:
    DumpReader();
    ~DumpReader();
    DumpReader(const DumpReader&) = delete;
    DumpReader& operator=(const DumpReader&) = delete;

    // Maps the file and reads its streams. Anything but `opened` leaves the reader empty.
    DumpOpenResult Open(const std::wstring& path);
    // The system error behind `fileMissing` or `cannotOpen`.
    DWORD OpenError() const { return m_openError; }

    const DumpException& Exception() const { return m_exception; }
    const std::vector<DumpThread>& Threads() const { return m_threads; }
    const std::vector<DumpModule>& Modules() const { return m_modules; }
    // Whether the dump holds a thread context for the crash, without which no stack can be walked.
    bool HasExceptionContext() const { return m_context != nullptr; }
    const CONTEXT& ExceptionContext() const { return *m_context; }

    // Adds a module that the dump does not list, from its file. Some dumps leave every module out
    // (a module filter of the crashed program may drop them), yet the person reading the dump has
    // the program: with its file at hand, addresses inside it get names again. A `base` of 0 puts
    // the image at its preferred base, where it normally loads. False when the file is no image.
    bool AddImage(const std::wstring& path, uint64_t base);

    // The module whose range holds `address`, or null.
    const DumpModule* ModuleAt(uint64_t address) const;

    // Copies `size` bytes of the crashed process's memory at `address`, from the dump's memory
    // ranges or, for code and unwind data that dumps leave out, from the modules' image files.
    bool ReadMemory(uint64_t address, void* buffer, size_t size) const;

    // The crashing thread's stack, innermost frame first, at most kMaxFrames frames.
    std::vector<DumpFrame> WalkCrashingStack();

    static constexpr size_t kMaxFrames = 64;

private:
    struct MemoryRange {
        uint64_t start;
        uint64_t size;
        const uint8_t* data;
    };
    struct LoadedImage;
    class SymbolSession;

    const void* StreamOfType(ULONG type, ULONG* size) const;
    bool InFile(ULONG rva, uint64_t size) const;
    bool ReadDirectory();
    bool ReadException();
    void ReadThreads();
    void ReadModules();
    void ReadMemoryLists();
    void LoadImageOf(const DumpModule& module);
    DumpFrame DescribeFrame(uint64_t address, bool isReturnAddress);
    void Clear();

    // Unmaps the view of the dump file.
    struct ViewUnmapper {
        void operator()(const uint8_t* view) const { UnmapViewOfFile(view); }
    };

    QueryClient::UniqueHandle m_file;
    QueryClient::UniqueHandle m_mapping;
    std::unique_ptr<const uint8_t, ViewUnmapper> m_view;
    uint64_t m_viewSize = 0;
    DWORD m_openError = 0;

    DumpException m_exception;
    std::unique_ptr<CONTEXT> m_context;
    std::vector<DumpThread> m_threads;
    std::vector<DumpModule> m_modules;
    std::vector<MemoryRange> m_memory;
    std::vector<std::unique_ptr<LoadedImage>> m_images;
    std::unique_ptr<SymbolSession> m_symbols;
};

}  // namespace DumpTool
