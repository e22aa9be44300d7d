#include "tools/DumpTool/DumpReader.h"

#include "TinyFramework/Common/TinyCrashHandler.h"
#include "TinyFramework/Common/TinyTextConversion.h"

#include <dbghelp.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace DumpTool {

namespace {

// "MDMP" as the file's first four bytes read as a little-endian number.
constexpr ULONG32 kMinidumpSignature = 0x504D444D;

// A module image larger than this is taken for a corrupt header rather than laid out in memory.
constexpr uint32_t kMaxImageSize = 512u << 20;

// Room for a symbol name; longer C++ names are cut by dbghelp.
constexpr ULONG kMaxSymbolName = 1024;

// dbghelp asks the walk's user for every byte of the crashed process it needs; the walk passes the
// reader itself as the process handle (see SymbolSession), so the handle leads back to it.
BOOL CALLBACK ReadDumpMemory(HANDLE process, DWORD64 address, PVOID buffer, DWORD size,
                             LPDWORD read) {
    const auto* reader = static_cast<const DumpReader*>(static_cast<void*>(process));
    if (!reader->ReadMemory(address, buffer, size)) {
        if (read) *read = 0;
        return FALSE;
    }
    if (read) *read = size;
    return TRUE;
}

}  // namespace

std::string ExceptionName(uint32_t code) {
    // The crash report's own names, so a dump and its log name an exception alike; other codes
    // print in full eight digits, as a reader of dumps expects them.
    const std::string name = TinyFramework::ExceptionCodeName(code);
    if (name.compare(0, 2, "0x") != 0) {
        return name;
    }
    char text[16];
    snprintf(text, sizeof(text), "0x%08x", code);
    return text;
}

std::wstring FileNameOf(const std::wstring& path) {
    const size_t separator = path.find_last_of(L"\\/");
    return separator == std::wstring::npos ? path : path.substr(separator + 1);
}

// One module image laid out as the loader maps it (headers and sections at their relative
// addresses), so that the stack walk can read unwind data that the dump does not hold.
struct DumpReader::LoadedImage {
    uint64_t base = 0;
    std::vector<uint8_t> bytes;
    uint64_t preferredBase = 0;
};

// The symbol handler's state for the dump's modules. dbghelp keys its state by a process handle;
// no process exists, so the reader's own address stands for one: it is unique while the reader
// lives and no handle of this process has such a value.
class DumpReader::SymbolSession {
public:
    explicit SymbolSession(DumpReader* reader) : m_process(static_cast<HANDLE>(reader)) {
        SymSetOptions(SYMOPT_UNDNAME | SYMOPT_DEFERRED_LOADS | SYMOPT_LOAD_LINES |
                      SYMOPT_FAIL_CRITICAL_ERRORS);
        m_initialized = SymInitializeW(m_process, nullptr, FALSE) != FALSE;
        if (m_initialized) {
            for (const DumpModule& module : reader->Modules()) {
                SymLoadModuleExW(m_process, nullptr, module.path.c_str(), nullptr, module.base,
                                 module.size, nullptr, 0);
            }
        }
    }
    ~SymbolSession() {
        if (m_initialized) {
            SymCleanup(m_process);
        }
    }
    SymbolSession(const SymbolSession&) = delete;
    SymbolSession& operator=(const SymbolSession&) = delete;

    bool IsReady() const { return m_initialized; }
    HANDLE Process() const { return m_process; }

private:
    HANDLE m_process;
    bool m_initialized = false;
};

DumpReader::DumpReader() = default;

DumpReader::~DumpReader() {
    Clear();
}

void DumpReader::Clear() {
    m_symbols.reset();
    m_images.clear();
    m_memory.clear();
    m_modules.clear();
    m_threads.clear();
    m_exception = DumpException();
    m_context.reset();
    m_view.reset();
    m_viewSize = 0;
    m_mapping.Reset();
    m_file.Reset();
    m_openError = 0;
}

DumpOpenResult DumpReader::Open(const std::wstring& path) {
    Clear();
    m_file.Reset(CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                             FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!m_file.IsValid()) {
        m_openError = GetLastError();
        const bool missing =
            m_openError == ERROR_FILE_NOT_FOUND || m_openError == ERROR_PATH_NOT_FOUND;
        return missing ? DumpOpenResult::fileMissing : DumpOpenResult::cannotOpen;
    }
    LARGE_INTEGER fileSize = {};
    if (!GetFileSizeEx(m_file.Get(), &fileSize)) {
        m_openError = GetLastError();
        Clear();
        return DumpOpenResult::cannotOpen;
    }
    // An empty file cannot be mapped at all; anything shorter than a header is no dump either.
    if (static_cast<uint64_t>(fileSize.QuadPart) < sizeof(MINIDUMP_HEADER)) {
        Clear();
        return DumpOpenResult::notMinidump;
    }
    m_mapping.Reset(CreateFileMappingW(m_file.Get(), nullptr, PAGE_READONLY, 0, 0, nullptr));
    if (m_mapping.IsValid()) {
        m_view.reset(
            static_cast<const uint8_t*>(MapViewOfFile(m_mapping.Get(), FILE_MAP_READ, 0, 0, 0)));
    }
    if (!m_view) {
        m_openError = GetLastError();
        Clear();
        return DumpOpenResult::cannotOpen;
    }
    m_viewSize = static_cast<uint64_t>(fileSize.QuadPart);
    if (!ReadDirectory()) {
        Clear();
        return DumpOpenResult::notMinidump;
    }
    if (!ReadException()) {
        Clear();
        return DumpOpenResult::noException;
    }
    ReadThreads();
    ReadModules();
    ReadMemoryLists();
    for (const DumpModule& module : m_modules) {
        LoadImageOf(module);
    }
    return DumpOpenResult::opened;
}

bool DumpReader::InFile(ULONG rva, uint64_t size) const {
    return rva <= m_viewSize && size <= m_viewSize - rva;
}

bool DumpReader::ReadDirectory() {
    const auto* header = reinterpret_cast<const MINIDUMP_HEADER*>(m_view.get());
    if (header->Signature != kMinidumpSignature) {
        return false;
    }
    // dbghelp trusts the directory; a truncated or damaged file must not lead it past the view.
    if (!InFile(header->StreamDirectoryRva,
                uint64_t{header->NumberOfStreams} * sizeof(MINIDUMP_DIRECTORY))) {
        return false;
    }
    const auto* directory =
        reinterpret_cast<const MINIDUMP_DIRECTORY*>(m_view.get() + header->StreamDirectoryRva);
    for (ULONG index = 0; index < header->NumberOfStreams; ++index) {
        if (!InFile(directory[index].Location.Rva, directory[index].Location.DataSize)) {
            return false;
        }
    }
    return true;
}

const void* DumpReader::StreamOfType(ULONG type, ULONG* size) const {
    MINIDUMP_DIRECTORY* entry = nullptr;
    void* stream = nullptr;
    ULONG streamSize = 0;
    if (!MiniDumpReadDumpStream(const_cast<uint8_t*>(m_view.get()), type, &entry, &stream,
                                &streamSize) ||
        stream == nullptr) {
        return nullptr;
    }
    *size = streamSize;
    return stream;
}

bool DumpReader::ReadException() {
    ULONG size = 0;
    const auto* stream =
        static_cast<const MINIDUMP_EXCEPTION_STREAM*>(StreamOfType(ExceptionStream, &size));
    if (stream == nullptr || size < sizeof(MINIDUMP_EXCEPTION_STREAM)) {
        return false;
    }
    const MINIDUMP_EXCEPTION& record = stream->ExceptionRecord;
    m_exception.threadId = stream->ThreadId;
    m_exception.code = record.ExceptionCode;
    m_exception.flags = record.ExceptionFlags;
    m_exception.address = record.ExceptionAddress;
    const ULONG count = std::min<ULONG>(record.NumberParameters, EXCEPTION_MAXIMUM_PARAMETERS);
    m_exception.parameters.assign(record.ExceptionInformation, record.ExceptionInformation + count);
    const MINIDUMP_LOCATION_DESCRIPTOR& context = stream->ThreadContext;
    // The registers up to Rip are what the walk starts from; a shorter context is of no use.
    if (context.DataSize >= offsetof(CONTEXT, Rip) + sizeof(DWORD64) &&
        InFile(context.Rva, context.DataSize)) {
        m_context.reset(new CONTEXT());
        memcpy(m_context.get(), m_view.get() + context.Rva,
               std::min<size_t>(context.DataSize, sizeof(CONTEXT)));
    }
    return true;
}

void DumpReader::ReadThreads() {
    ULONG size = 0;
    const auto* list =
        static_cast<const MINIDUMP_THREAD_LIST*>(StreamOfType(ThreadListStream, &size));
    if (list == nullptr || size < sizeof(ULONG) ||
        (size - sizeof(ULONG)) / sizeof(MINIDUMP_THREAD) < list->NumberOfThreads) {
        return;
    }
    for (ULONG index = 0; index < list->NumberOfThreads; ++index) {
        const MINIDUMP_THREAD& thread = list->Threads[index];
        m_threads.push_back(
            {thread.ThreadId, thread.Stack.StartOfMemoryRange, thread.Stack.Memory.DataSize});
        if (InFile(thread.Stack.Memory.Rva, thread.Stack.Memory.DataSize)) {
            m_memory.push_back({thread.Stack.StartOfMemoryRange, thread.Stack.Memory.DataSize,
                                m_view.get() + thread.Stack.Memory.Rva});
        }
    }
}

void DumpReader::ReadModules() {
    static_assert(sizeof(MINIDUMP_MODULE) == 108, "the file's module records are packed");
    ULONG size = 0;
    const auto* list =
        static_cast<const MINIDUMP_MODULE_LIST*>(StreamOfType(ModuleListStream, &size));
    if (list == nullptr || size < sizeof(ULONG) ||
        (size - sizeof(ULONG)) / sizeof(MINIDUMP_MODULE) < list->NumberOfModules) {
        return;
    }
    for (ULONG index = 0; index < list->NumberOfModules; ++index) {
        const MINIDUMP_MODULE& module = list->Modules[index];
        DumpModule entry;
        entry.base = module.BaseOfImage;
        entry.size = module.SizeOfImage;
        if (InFile(module.ModuleNameRva, sizeof(ULONG))) {
            const auto* name =
                reinterpret_cast<const MINIDUMP_STRING*>(m_view.get() + module.ModuleNameRva);
            if (InFile(module.ModuleNameRva + sizeof(ULONG), name->Length)) {
                entry.path.assign(name->Buffer, name->Length / sizeof(WCHAR));
            }
        }
        m_modules.push_back(entry);
    }
}

void DumpReader::ReadMemoryLists() {
    ULONG size = 0;
    if (const auto* list =
            static_cast<const MINIDUMP_MEMORY_LIST*>(StreamOfType(MemoryListStream, &size))) {
        if (size >= sizeof(ULONG) && (size - sizeof(ULONG)) / sizeof(MINIDUMP_MEMORY_DESCRIPTOR) >=
                                         list->NumberOfMemoryRanges) {
            for (ULONG index = 0; index < list->NumberOfMemoryRanges; ++index) {
                const MINIDUMP_MEMORY_DESCRIPTOR& range = list->MemoryRanges[index];
                if (InFile(range.Memory.Rva, range.Memory.DataSize)) {
                    m_memory.push_back({range.StartOfMemoryRange, range.Memory.DataSize,
                                        m_view.get() + range.Memory.Rva});
                }
            }
        }
    }
    // A full-memory dump keeps its ranges one after the other from a single base offset.
    if (const auto* list =
            static_cast<const MINIDUMP_MEMORY64_LIST*>(StreamOfType(Memory64ListStream, &size))) {
        if (size >= offsetof(MINIDUMP_MEMORY64_LIST, MemoryRanges) &&
            (size - offsetof(MINIDUMP_MEMORY64_LIST, MemoryRanges)) /
                    sizeof(MINIDUMP_MEMORY_DESCRIPTOR64) >=
                list->NumberOfMemoryRanges) {
            uint64_t offset = list->BaseRva;
            for (ULONG64 index = 0; index < list->NumberOfMemoryRanges; ++index) {
                const MINIDUMP_MEMORY_DESCRIPTOR64& range = list->MemoryRanges[index];
                if (offset > m_viewSize || range.DataSize > m_viewSize - offset) {
                    break;
                }
                m_memory.push_back(
                    {range.StartOfMemoryRange, range.DataSize, m_view.get() + offset});
                offset += range.DataSize;
            }
        }
    }
}

namespace {

// The whole file, or nothing.
std::vector<uint8_t> ReadWholeFile(const std::wstring& path) {
    std::vector<uint8_t> bytes;
    QueryClient::UniqueHandle file(CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr,
                                               OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    LARGE_INTEGER size = {};
    if (!file.IsValid() || !GetFileSizeEx(file.Get(), &size) || size.QuadPart > kMaxImageSize) {
        return bytes;
    }
    bytes.resize(static_cast<size_t>(size.QuadPart));
    DWORD read = 0;
    if (!bytes.empty() &&
        (!ReadFile(file.Get(), bytes.data(), static_cast<DWORD>(bytes.size()), &read, nullptr) ||
         read != bytes.size())) {
        bytes.clear();
    }
    return bytes;
}

// Lays out a 64-bit PE file as the loader maps it; false for anything else.
bool LayOutImage(const std::vector<uint8_t>& file, std::vector<uint8_t>* image,
                 uint64_t* preferredBase) {
    if (file.size() < sizeof(IMAGE_DOS_HEADER)) {
        return false;
    }
    const auto* dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(file.data());
    if (dos->e_magic != IMAGE_DOS_SIGNATURE || dos->e_lfanew < 0 ||
        static_cast<size_t>(dos->e_lfanew) + sizeof(IMAGE_NT_HEADERS64) > file.size()) {
        return false;
    }
    const auto* nt = reinterpret_cast<const IMAGE_NT_HEADERS64*>(file.data() + dos->e_lfanew);
    if (nt->Signature != IMAGE_NT_SIGNATURE ||
        nt->OptionalHeader.Magic != IMAGE_NT_OPTIONAL_HDR64_MAGIC ||
        nt->OptionalHeader.SizeOfImage > kMaxImageSize) {
        return false;
    }
    image->assign(nt->OptionalHeader.SizeOfImage, 0);
    const size_t headers =
        std::min<size_t>({nt->OptionalHeader.SizeOfHeaders, file.size(), image->size()});
    memcpy(image->data(), file.data(), headers);
    const auto* section = IMAGE_FIRST_SECTION(nt);
    const size_t sectionsEnd = reinterpret_cast<const uint8_t*>(section) - file.data() +
                               size_t{nt->FileHeader.NumberOfSections} * sizeof(*section);
    if (sectionsEnd > file.size()) {
        return false;
    }
    for (WORD index = 0; index < nt->FileHeader.NumberOfSections; ++index, ++section) {
        const size_t raw = section->PointerToRawData;
        const size_t target = section->VirtualAddress;
        if (raw >= file.size() || target >= image->size()) {
            continue;
        }
        const size_t length =
            std::min<size_t>({section->SizeOfRawData, file.size() - raw, image->size() - target});
        memcpy(image->data() + target, file.data() + raw, length);
    }
    *preferredBase = nt->OptionalHeader.ImageBase;
    return true;
}

}  // namespace

void DumpReader::LoadImageOf(const DumpModule& module) {
    auto image = std::make_unique<LoadedImage>();
    if (!LayOutImage(ReadWholeFile(module.path), &image->bytes, &image->preferredBase) ||
        image->bytes.size() != module.size) {
        // Not on this machine, or another build of it: its bytes would mislead the walk.
        return;
    }
    image->base = module.base;
    m_images.push_back(std::move(image));
}

bool DumpReader::AddImage(const std::wstring& path, uint64_t base) {
    auto image = std::make_unique<LoadedImage>();
    if (!LayOutImage(ReadWholeFile(path), &image->bytes, &image->preferredBase)) {
        return false;
    }
    image->base = base != 0 ? base : image->preferredBase;
    DumpModule module;
    module.path = path;
    module.base = image->base;
    module.size = static_cast<uint32_t>(image->bytes.size());
    module.listedInDump = false;
    m_modules.push_back(module);
    m_images.push_back(std::move(image));
    // The symbol handler learns of modules when it starts: a later one needs a new start.
    m_symbols.reset();
    return true;
}

const DumpModule* DumpReader::ModuleAt(uint64_t address) const {
    for (const DumpModule& module : m_modules) {
        if (address >= module.base && address - module.base < module.size) {
            return &module;
        }
    }
    return nullptr;
}

bool DumpReader::ReadMemory(uint64_t address, void* buffer, size_t size) const {
    auto* out = static_cast<uint8_t*>(buffer);
    // A read may cross from one range into the next; each piece comes from the range holding it,
    // the dump's own memory before an image file's.
    while (size > 0) {
        const uint8_t* source = nullptr;
        uint64_t available = 0;
        for (const MemoryRange& range : m_memory) {
            if (address >= range.start && address - range.start < range.size) {
                source = range.data + (address - range.start);
                available = range.size - (address - range.start);
                break;
            }
        }
        if (source == nullptr) {
            for (const auto& image : m_images) {
                if (address >= image->base && address - image->base < image->bytes.size()) {
                    source = image->bytes.data() + (address - image->base);
                    available = image->bytes.size() - (address - image->base);
                    break;
                }
            }
        }
        if (source == nullptr) {
            return false;
        }
        const size_t piece = static_cast<size_t>(std::min<uint64_t>(available, size));
        memcpy(out, source, piece);
        out += piece;
        address += piece;
        size -= piece;
    }
    return true;
}

DumpFrame DumpReader::DescribeFrame(uint64_t address, bool isReturnAddress) {
    DumpFrame frame;
    frame.address = address;
    if (const DumpModule* module = ModuleAt(address)) {
        frame.module = FileNameOf(module->path);
        frame.moduleOffset = address - module->base;
    }
    if (!m_symbols || !m_symbols->IsReady()) {
        return frame;
    }
    // A return address points behind its call, which can be the first byte of the next line or
    // even of the next function: the call itself is one byte earlier.
    const uint64_t lookup = isReturnAddress ? address - 1 : address;
    alignas(SYMBOL_INFOW)
        uint8_t storage[sizeof(SYMBOL_INFOW) + kMaxSymbolName * sizeof(WCHAR)] = {};
    auto* symbol = reinterpret_cast<SYMBOL_INFOW*>(storage);
    symbol->SizeOfStruct = sizeof(SYMBOL_INFOW);
    symbol->MaxNameLen = kMaxSymbolName;
    DWORD64 displacement = 0;
    if (SymFromAddrW(m_symbols->Process(), lookup, &displacement, symbol)) {
        frame.function = TinyFramework::ToUtf8(std::wstring(symbol->Name, symbol->NameLen));
        frame.displacement = address - symbol->Address;
    }
    IMAGEHLP_LINEW64 line = {};
    line.SizeOfStruct = sizeof(line);
    DWORD lineDisplacement = 0;
    if (SymGetLineFromAddrW64(m_symbols->Process(), lookup, &lineDisplacement, &line) &&
        line.FileName != nullptr) {
        frame.file = line.FileName;
        frame.line = line.LineNumber;
    }
    return frame;
}

std::vector<DumpFrame> DumpReader::WalkCrashingStack() {
    std::vector<DumpFrame> frames;
    if (!m_context) {
        return frames;
    }
    if (!m_symbols) {
        m_symbols = std::make_unique<SymbolSession>(this);
    }
    // StackWalk64 moves the context along as it unwinds: it works on a copy.
    auto context = std::make_unique<CONTEXT>(*m_context);
    STACKFRAME64 frame = {};
    frame.AddrPC.Offset = context->Rip;
    frame.AddrPC.Mode = AddrModeFlat;
    frame.AddrFrame.Offset = context->Rbp;
    frame.AddrFrame.Mode = AddrModeFlat;
    frame.AddrStack.Offset = context->Rsp;
    frame.AddrStack.Mode = AddrModeFlat;
    uint64_t previousPc = 0;
    uint64_t previousSp = 0;
    while (frames.size() < kMaxFrames && m_symbols->IsReady()) {
        if (!StackWalk64(IMAGE_FILE_MACHINE_AMD64, m_symbols->Process(), m_symbols->Process(),
                         &frame, context.get(), ReadDumpMemory, SymFunctionTableAccess64,
                         SymGetModuleBase64, nullptr) ||
            frame.AddrPC.Offset == 0) {
            break;
        }
        // A walk that stands still would repeat the same frame up to the limit.
        if (!frames.empty() && frame.AddrPC.Offset == previousPc &&
            frame.AddrStack.Offset == previousSp) {
            break;
        }
        previousPc = frame.AddrPC.Offset;
        previousSp = frame.AddrStack.Offset;
        frames.push_back(DescribeFrame(frame.AddrPC.Offset, !frames.empty()));
    }
    // Without a symbol handler the crash address is still known: one frame, named by module.
    if (frames.empty()) {
        frames.push_back(DescribeFrame(m_context->Rip, false));
    }
    return frames;
}

}  // namespace DumpTool
