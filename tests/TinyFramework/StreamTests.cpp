#include "TinyFramework/Common/TinyTextConversion.h"
#include "TinyFramework/IO/TinyFileStream.h"
#include "TinyFramework/IO/TinyMemoryStream.h"
#include "tests/support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <windows.h>
#include <malloc.h>
#include <objbase.h>
#include <wincodec.h>
#include <wrl/client.h>

#include <cstdio>
#include <cstring>
#include <functional>
#include <map>
#include <string>
#include <vector>

namespace {

using Microsoft::WRL::ComPtr;
using TestSupport::ReadWholeFile;
using TestSupport::TemporaryFolder;
using TestSupport::WriteWholeFile;
using TinyFramework::IO::CreateStreamOnFile;
using TinyFramework::IO::CreateStreamOnMemory;
using TinyFramework::IO::TinyFileStream;
using TinyFramework::IO::TinyMemoryStream;

constexpr HRESULT kNotImplemented = static_cast<HRESULT>(0x80004001);
constexpr HRESULT kInvalidFunction = static_cast<HRESULT>(0x80030001);
constexpr HRESULT kInvalidParameter = static_cast<HRESULT>(0x80030057);
constexpr HRESULT kFileNotFound = static_cast<HRESULT>(0x80070002);
constexpr DWORD kSharingViolation = 32;
// A mode with a flag that the file stream does not know.
constexpr DWORD kUnknownMode = 0x2000;

LARGE_INTEGER Offset(LONGLONG value) {
    LARGE_INTEGER offset;
    offset.QuadPart = value;
    return offset;
}

ULARGE_INTEGER Count(ULONGLONG value) {
    ULARGE_INTEGER count;
    count.QuadPart = value;
    return count;
}

ULONGLONG PositionOf(IStream* stream) {
    ULARGE_INTEGER position = Count(0xDEAD);
    stream->Seek(Offset(0), STREAM_SEEK_CUR, &position);
    return position.QuadPart;
}

std::string ReadAll(IStream* stream) {
    stream->Seek(Offset(0), STREAM_SEEK_SET, nullptr);
    std::string bytes;
    char chunk[256];
    ULONG read = 0;
    while (SUCCEEDED(stream->Read(chunk, sizeof(chunk), &read)) && read > 0) {
        bytes.append(chunk, read);
    }
    return bytes;
}

std::string Hex(const void* data, size_t size);

std::string HexOf(const std::string& bytes) {
    return Hex(bytes.data(), bytes.size());
}

std::string Hex(const void* data, size_t size) {
    std::string text;
    char digits[3];
    for (size_t i = 0; i < size; ++i) {
        snprintf(digits, sizeof(digits), "%02x", static_cast<const unsigned char*>(data)[i]);
        text += digits;
    }
    return text;
}

// Owns the one reference that a stream factory gives, and drops it once. (MinGW's ComPtr::Attach
// adds a reference of its own, so it cannot take over a factory's reference.)
class OwnedStream {
public:
    OwnedStream() : m_stream(nullptr) {}
    explicit OwnedStream(IStream* stream) : m_stream(stream) {}
    OwnedStream(OwnedStream&& other) noexcept : m_stream(other.m_stream) {
        other.m_stream = nullptr;
    }
    ~OwnedStream() { Reset(); }
    OwnedStream(const OwnedStream&) = delete;
    OwnedStream& operator=(const OwnedStream&) = delete;

    IStream* Get() const { return m_stream; }
    IStream* operator->() const { return m_stream; }
    void Reset() {
        if (m_stream != nullptr) {
            m_stream->Release();
            m_stream = nullptr;
        }
    }

private:
    IStream* m_stream;
};

OwnedStream NewMemoryStream(const std::string& bytes = std::string()) {
    IStream* stream = nullptr;
    EXPECT_EQ(CreateStreamOnMemory(bytes.data(), static_cast<ULONG>(bytes.size()), &stream), S_OK);
    return OwnedStream(stream);
}

TinyMemoryStream* AsMemoryStream(const OwnedStream& stream) {
    return static_cast<TinyMemoryStream*>(stream.Get());
}

// Everything that OutputDebugStringA hands to the debugger on this thread while the object
// lives. The platform raises DBG_PRINTEXCEPTION_C with the text's length (with its terminator)
// and address, and handles the exception itself when no debugger takes it; a vectored handler
// sees it first.
class DebugOutputCapture {
public:
    DebugOutputCapture() : m_handler(nullptr) {
        s_thread = GetCurrentThreadId();
        s_texts.clear();
        s_lengths.clear();
        m_handler = AddVectoredExceptionHandler(1, &DebugOutputCapture::Handle);
    }
    ~DebugOutputCapture() {
        RemoveVectoredExceptionHandler(m_handler);
        s_thread = 0;
    }
    DebugOutputCapture(const DebugOutputCapture&) = delete;
    DebugOutputCapture& operator=(const DebugOutputCapture&) = delete;

    const std::vector<std::string>& Texts() const { return s_texts; }
    const std::vector<ULONG_PTR>& Lengths() const { return s_lengths; }

private:
    static LONG CALLBACK Handle(EXCEPTION_POINTERS* pointers) {
        const EXCEPTION_RECORD* record = pointers->ExceptionRecord;
        if (record->ExceptionCode == DBG_PRINTEXCEPTION_C && record->NumberParameters >= 2 &&
            GetCurrentThreadId() == s_thread) {
            s_lengths.push_back(record->ExceptionInformation[0]);
            s_texts.push_back(reinterpret_cast<const char*>(record->ExceptionInformation[1]));
        }
        return EXCEPTION_CONTINUE_SEARCH;
    }

    PVOID m_handler;
    static DWORD s_thread;
    static std::vector<std::string> s_texts;
    static std::vector<ULONG_PTR> s_lengths;
};

DWORD DebugOutputCapture::s_thread = 0;
std::vector<std::string> DebugOutputCapture::s_texts;
std::vector<ULONG_PTR> DebugOutputCapture::s_lengths;

// The number of allocated blocks of the process heap.
int BusyBlocksOfProcessHeap() {
    const HANDLE heap = GetProcessHeap();
    int busy = 0;
    HeapLock(heap);
    PROCESS_HEAP_ENTRY entry = {};
    while (HeapWalk(heap, &entry)) {
        if ((entry.wFlags & PROCESS_HEAP_ENTRY_BUSY) != 0) {
            ++busy;
        }
    }
    HeapUnlock(heap);
    return busy;
}

// ---------------------------------------------------------------------------------------------
// TinyMemoryStream

TEST(TinyMemoryStreamTest, WriteOfOneByteAtPositionTenZeroFillsTheGap) {
    OwnedStream stream = NewMemoryStream();
    ASSERT_EQ(stream->Seek(Offset(10), STREAM_SEEK_SET, nullptr), S_OK);
    const BYTE byte = 0x5A;
    ULONG written = 0;
    EXPECT_EQ(stream->Write(&byte, 1, &written), S_OK);
    EXPECT_EQ(written, 1u);
    const TinyMemoryStream* memory = AsMemoryStream(stream);
    EXPECT_EQ(memory->Capacity(), 4107u);
    EXPECT_EQ(memory->Size(), 11u);
    EXPECT_EQ(memory->Position(), 11u);
    EXPECT_EQ(Hex(memory->Data(), 11), "000000000000000000005a");
}

TEST(TinyMemoryStreamTest, SeekBeforeTheStartFailsAndKeepsThePosition) {
    OwnedStream stream = NewMemoryStream("0123456789");
    ASSERT_EQ(stream->Seek(Offset(2), STREAM_SEEK_SET, nullptr), S_OK);
    ULARGE_INTEGER position = Count(77);
    EXPECT_EQ(stream->Seek(Offset(-1), STREAM_SEEK_SET, &position), kInvalidFunction);
    EXPECT_EQ(position.QuadPart, 77u);
    EXPECT_EQ(PositionOf(stream.Get()), 2u);
}

TEST(TinyMemoryStreamTest, SeekWithAnUnknownOriginIsAnInvalidParameter) {
    OwnedStream stream = NewMemoryStream("0123456789");
    EXPECT_EQ(stream->Seek(Offset(1), 3, nullptr), kInvalidParameter);
    EXPECT_EQ(PositionOf(stream.Get()), 0u);
}

TEST(TinyMemoryStreamTest, SeekTakesTheLowHalfOfTheOffsetAsASignedNumber) {
    OwnedStream stream = NewMemoryStream("0123456789");
    ULARGE_INTEGER position = Count(0xFFFFFFFFFFFFFFFFull);
    EXPECT_EQ(stream->Seek(Offset(0x100000005ll), STREAM_SEEK_SET, &position), S_OK);
    EXPECT_EQ(position.QuadPart, 5u);
    EXPECT_EQ(stream->Seek(Offset(0xFFFFFFFFll), STREAM_SEEK_CUR, &position), S_OK);
    EXPECT_EQ(position.QuadPart, 4u);
    EXPECT_EQ(stream->Seek(Offset(-3), STREAM_SEEK_END, &position), S_OK);
    EXPECT_EQ(position.QuadPart, 7u);
}

TEST(TinyMemoryStreamTest, SeekBeyondTheEndIsAllowedAndReadsNothingThere) {
    OwnedStream stream = NewMemoryStream("0123456789");
    ULARGE_INTEGER position = Count(0);
    EXPECT_EQ(stream->Seek(Offset(100), STREAM_SEEK_SET, &position), S_OK);
    EXPECT_EQ(position.QuadPart, 100u);
    char buffer[4] = {};
    ULONG read = 99;
    EXPECT_EQ(stream->Read(buffer, 4, &read), S_OK);
    EXPECT_EQ(read, 0u);
    EXPECT_EQ(AsMemoryStream(stream)->Size(), 10u);
}

TEST(TinyMemoryStreamTest, CreateStreamOnMemoryCopiesTheData) {
    std::string source = "abcdef";
    OwnedStream stream = NewMemoryStream(source);
    source[0] = 'X';
    const TinyMemoryStream* memory = AsMemoryStream(stream);
    EXPECT_EQ(memory->Capacity(), 6u);
    EXPECT_EQ(memory->Size(), 6u);
    EXPECT_EQ(memory->Position(), 0u);
    EXPECT_EQ(ReadAll(stream.Get()), "abcdef");
}

TEST(TinyMemoryStreamTest, CreateStreamOnMemoryWithoutDataMakesAnEmptyStream) {
    const char data[] = "abc";
    IStream* stream = nullptr;
    ASSERT_EQ(CreateStreamOnMemory(data, 0, &stream), S_OK);
    ASSERT_NE(stream, nullptr);
    const TinyMemoryStream* memory = static_cast<TinyMemoryStream*>(stream);
    EXPECT_EQ(memory->Data(), nullptr);
    EXPECT_EQ(memory->Capacity(), 0u);
    EXPECT_EQ(memory->Size(), 0u);
    EXPECT_EQ(stream->Release(), 0u);
}

TEST(TinyMemoryStreamTest, ReadCutsTheCountToTheRestAndAlwaysSucceeds) {
    OwnedStream stream = NewMemoryStream("0123456789");
    ASSERT_EQ(stream->Seek(Offset(7), STREAM_SEEK_SET, nullptr), S_OK);
    char buffer[8] = {};
    ULONG read = 0;
    EXPECT_EQ(stream->Read(buffer, 8, &read), S_OK);
    EXPECT_EQ(read, 3u);
    EXPECT_EQ(std::string(buffer, 3), "789");
    EXPECT_EQ(stream->Read(buffer, 8, &read), S_OK);
    EXPECT_EQ(read, 0u);
    EXPECT_EQ(stream->Read(buffer, 8, nullptr), S_OK);
}

TEST(TinyMemoryStreamTest, WriteGrowsWithAReserveOf4096Bytes) {
    OwnedStream stream = NewMemoryStream();
    const TinyMemoryStream* memory = AsMemoryStream(stream);
    const std::string first(10, 'a');
    ASSERT_EQ(stream->Write(first.data(), 10, nullptr), S_OK);
    EXPECT_EQ(memory->Capacity(), 4106u);
    // Up to the capacity nothing grows.
    const std::string second(4096, 'b');
    ASSERT_EQ(stream->Write(second.data(), 4096, nullptr), S_OK);
    EXPECT_EQ(memory->Capacity(), 4106u);
    ASSERT_EQ(stream->Write("c", 1, nullptr), S_OK);
    EXPECT_EQ(memory->Capacity(), 4107u + 4096u);
    EXPECT_EQ(memory->Size(), 4107u);
    EXPECT_EQ(ReadAll(stream.Get()), first + second + "c");
}

TEST(TinyMemoryStreamTest, WriteOfNothingWritesNothing) {
    OwnedStream stream = NewMemoryStream();
    ULONG written = 99;
    EXPECT_EQ(stream->Write("x", 0, &written), S_OK);
    EXPECT_EQ(written, 0u);
    EXPECT_EQ(AsMemoryStream(stream)->Capacity(), 0u);
    EXPECT_EQ(AsMemoryStream(stream)->Size(), 0u);
}

TEST(TinyMemoryStreamTest, SetSizeGrowsExactlyZeroFillsAndKeepsThePosition) {
    OwnedStream stream = NewMemoryStream();
    ASSERT_EQ(stream->Write("abc", 3, nullptr), S_OK);
    const TinyMemoryStream* memory = AsMemoryStream(stream);
    ASSERT_EQ(memory->Capacity(), 4099u);
    EXPECT_EQ(stream->SetSize(Count(10000)), S_OK);
    EXPECT_EQ(memory->Capacity(), 10000u);
    EXPECT_EQ(memory->Size(), 10000u);
    EXPECT_EQ(memory->Position(), 3u);
    EXPECT_EQ(ReadAll(stream.Get()), "abc" + std::string(9997, '\0'));
}

TEST(TinyMemoryStreamTest, SetSizeBelowTheSizeKeepsTheCapacityAndThePosition) {
    OwnedStream stream = NewMemoryStream("0123456789");
    ASSERT_EQ(stream->Seek(Offset(8), STREAM_SEEK_SET, nullptr), S_OK);
    EXPECT_EQ(stream->SetSize(Count(4)), S_OK);
    const TinyMemoryStream* memory = AsMemoryStream(stream);
    EXPECT_EQ(memory->Size(), 4u);
    EXPECT_EQ(memory->Capacity(), 10u);
    EXPECT_EQ(memory->Position(), 8u);
}

TEST(TinyMemoryStreamTest, SetSizeTakesTheLowHalf) {
    OwnedStream stream = NewMemoryStream("0123456789");
    EXPECT_EQ(stream->SetSize(Count(0x100000004ull)), S_OK);
    EXPECT_EQ(AsMemoryStream(stream)->Size(), 4u);
}

TEST(TinyMemoryStreamTest, CopyToCopiesTheCountFromThePosition) {
    OwnedStream stream = NewMemoryStream("0123456789");
    OwnedStream target = NewMemoryStream();
    ASSERT_EQ(stream->Seek(Offset(2), STREAM_SEEK_SET, nullptr), S_OK);
    ULARGE_INTEGER read = Count(99);
    ULARGE_INTEGER written = Count(99);
    EXPECT_EQ(stream->CopyTo(target.Get(), Count(5), &read, &written), S_OK);
    EXPECT_EQ(read.QuadPart, 5u);
    EXPECT_EQ(written.QuadPart, 5u);
    EXPECT_EQ(PositionOf(stream.Get()), 7u);
    EXPECT_EQ(ReadAll(target.Get()), "23456");
}

TEST(TinyMemoryStreamTest, CopyToCopiesNoMoreThanTheRest) {
    OwnedStream stream = NewMemoryStream("0123456789");
    OwnedStream target = NewMemoryStream();
    ASSERT_EQ(stream->Seek(Offset(7), STREAM_SEEK_SET, nullptr), S_OK);
    ULARGE_INTEGER read = Count(0);
    ULARGE_INTEGER written = Count(0);
    EXPECT_EQ(stream->CopyTo(target.Get(), Count(0x100000000ull), &read, &written), S_OK);
    EXPECT_EQ(read.QuadPart, 3u);
    EXPECT_EQ(written.QuadPart, 3u);
    EXPECT_EQ(ReadAll(target.Get()), "789");
}

TEST(TinyMemoryStreamTest, CopyToAtTheEndCopiesNothing) {
    OwnedStream stream = NewMemoryStream("0123456789");
    OwnedStream target = NewMemoryStream();
    ASSERT_EQ(stream->Seek(Offset(0), STREAM_SEEK_END, nullptr), S_OK);
    ULARGE_INTEGER read = Count(99);
    ULARGE_INTEGER written = Count(99);
    EXPECT_EQ(stream->CopyTo(target.Get(), Count(5), &read, &written), S_OK);
    EXPECT_EQ(read.QuadPart, 0u);
    EXPECT_EQ(written.QuadPart, 0u);
    EXPECT_EQ(AsMemoryStream(target)->Size(), 0u);
}

TEST(TinyMemoryStreamTest, StatReportsAReadWriteStreamOfTheSize) {
    OwnedStream stream = NewMemoryStream("0123456789");
    STATSTG stat;
    memset(&stat, 0xCC, sizeof(stat));
    EXPECT_EQ(stream->Stat(&stat, STATFLAG_DEFAULT), S_OK);
    EXPECT_EQ(stat.type, static_cast<DWORD>(STGTY_STREAM));
    EXPECT_EQ(stat.cbSize.QuadPart, 10u);
    EXPECT_EQ(stat.grfMode, static_cast<DWORD>(STGM_READWRITE));
    EXPECT_EQ(stat.pwcsName, nullptr);
    EXPECT_EQ(stat.mtime.dwLowDateTime, 0u);
    EXPECT_EQ(stat.grfLocksSupported, 0u);
    EXPECT_EQ(stat.clsid, GUID_NULL);
}

TEST(TinyMemoryStreamTest, CloneGivesNullAndIsNotImplemented) {
    OwnedStream stream = NewMemoryStream("0123456789");
    IStream* clone = reinterpret_cast<IStream*>(1);
    EXPECT_EQ(stream->Clone(&clone), kNotImplemented);
    EXPECT_EQ(clone, nullptr);
}

TEST(TinyMemoryStreamTest, TransactionsAndRegionLocksAreNotImplemented) {
    OwnedStream stream = NewMemoryStream("0123456789");
    EXPECT_EQ(stream->Commit(STGC_DEFAULT), kNotImplemented);
    EXPECT_EQ(stream->Revert(), kNotImplemented);
    EXPECT_EQ(stream->LockRegion(Count(0), Count(1), LOCK_WRITE), kNotImplemented);
    EXPECT_EQ(stream->UnlockRegion(Count(0), Count(1), LOCK_WRITE), kNotImplemented);
}

TEST(TinyMemoryStreamTest, QueryInterfaceCountsAReference) {
    IStream* stream = nullptr;
    ASSERT_EQ(CreateStreamOnMemory(nullptr, 0, &stream), S_OK);
    IStream* asStream = nullptr;
    EXPECT_EQ(stream->QueryInterface(IID_IStream, reinterpret_cast<void**>(&asStream)), S_OK);
    EXPECT_EQ(asStream, stream);
    IUnknown* asUnknown = nullptr;
    EXPECT_EQ(stream->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(&asUnknown)), S_OK);
    EXPECT_EQ(asUnknown, static_cast<IUnknown*>(stream));
    EXPECT_EQ(stream->AddRef(), 4u);
    EXPECT_EQ(stream->Release(), 3u);
    EXPECT_EQ(asUnknown->Release(), 2u);
    EXPECT_EQ(asStream->Release(), 1u);
    EXPECT_EQ(stream->Release(), 0u);
}

TEST(TinyMemoryStreamTest, QueryInterfaceAnswersNoOtherInterface) {
    OwnedStream stream = NewMemoryStream();
    void* other = reinterpret_cast<void*>(1);
    EXPECT_EQ(stream->QueryInterface(IID_ISequentialStream, &other), E_NOINTERFACE);
    EXPECT_EQ(other, nullptr);
    EXPECT_EQ(stream->AddRef(), 2u);
    EXPECT_EQ(stream->Release(), 1u);
}

TEST(TinyMemoryStreamTest, CountsReferencesAndTheLastReleaseAnswersZero) {
    IStream* stream = nullptr;
    ASSERT_EQ(CreateStreamOnMemory("abc", 3, &stream), S_OK);
    EXPECT_EQ(stream->AddRef(), 2u);
    EXPECT_EQ(stream->AddRef(), 3u);
    EXPECT_EQ(stream->Release(), 2u);
    EXPECT_EQ(stream->Release(), 1u);
    EXPECT_EQ(stream->Release(), 0u);
}

TEST(TinyMemoryStreamTest, TheLastReleaseGivesObjectAndBlockBackToTheirHeap) {
    const std::string data(100, 'd');
    auto cycle = [&data]() {
        IStream* stream = nullptr;
        ASSERT_EQ(CreateStreamOnMemory(data.data(), 100, &stream), S_OK);
        ASSERT_NE(stream, nullptr);
        ASSERT_EQ(stream->Write(data.data(), 100, nullptr), S_OK);
        ASSERT_EQ(stream->Release(), 0u);
    };
    cycle();
    constexpr int kCycles = 500;
    const int before = BusyBlocksOfProcessHeap();
    for (int i = 0; i < kCycles; ++i) {
        cycle();
    }
    const int after = BusyBlocksOfProcessHeap();
    // A stream that kept either its object or its block would leave kCycles blocks behind.
    EXPECT_LT(after - before, kCycles / 2);
    EXPECT_TRUE(HeapValidate(GetProcessHeap(), 0, nullptr));
    EXPECT_TRUE(HeapValidate(reinterpret_cast<HANDLE>(_get_heap_handle()), 0, nullptr));
}

// ---------------------------------------------------------------------------------------------
// TinyMemoryStream beside the platform's stream on global memory, call for call.

struct ComparedStep {
    const char* name;
    std::function<std::string(IStream*)> run;
};

std::string Result(HRESULT result) {
    char text[16];
    snprintf(text, sizeof(text), "0x%08lX", static_cast<unsigned long>(result));
    return text;
}

std::string SeekStep(IStream* stream, LONGLONG offset, DWORD origin) {
    ULARGE_INTEGER position = Count(77);
    const HRESULT result = stream->Seek(Offset(offset), origin, &position);
    return Result(result) + " new=" + std::to_string(position.QuadPart) +
           " at=" + std::to_string(PositionOf(stream));
}

std::string ReadStep(IStream* stream, ULONG count) {
    std::vector<char> buffer(count + 1);
    ULONG read = 99;
    const HRESULT result = stream->Read(buffer.data(), count, &read);
    return Result(result) + " read=" + std::to_string(read) + " " +
           Hex(buffer.data(), read <= count ? read : 0) +
           " at=" + std::to_string(PositionOf(stream));
}

std::string WriteStep(IStream* stream, const std::string& bytes) {
    ULONG written = 99;
    const HRESULT result = stream->Write(bytes.data(), static_cast<ULONG>(bytes.size()), &written);
    return Result(result) + " written=" + std::to_string(written) +
           " at=" + std::to_string(PositionOf(stream));
}

std::string CopyToStep(IStream* stream, ULONGLONG count) {
    IStream* platformTarget = nullptr;
    EXPECT_EQ(CreateStreamOnHGlobal(nullptr, TRUE, &platformTarget), S_OK);
    const OwnedStream target(platformTarget);
    ULARGE_INTEGER read = Count(99);
    ULARGE_INTEGER written = Count(99);
    const HRESULT result = stream->CopyTo(target.Get(), Count(count), &read, &written);
    return Result(result) + " read=" + std::to_string(read.QuadPart) +
           " written=" + std::to_string(written.QuadPart) +
           " copy=" + HexOf(ReadAll(target.Get())) + " at=" + std::to_string(PositionOf(stream));
}

std::vector<ComparedStep> ComparedSteps() {
    return {
        {"write 11", [](IStream* s) { return WriteStep(s, "hello world"); }},
        {"seek to 0", [](IStream* s) { return SeekStep(s, 0, STREAM_SEEK_SET); }},
        {"read 5", [](IStream* s) { return ReadStep(s, 5); }},
        {"read past the end", [](IStream* s) { return ReadStep(s, 16); }},
        {"read at the end", [](IStream* s) { return ReadStep(s, 16); }},
        {"seek to end - 3", [](IStream* s) { return SeekStep(s, -3, STREAM_SEEK_END); }},
        {"seek before the start", [](IStream* s) { return SeekStep(s, -1, STREAM_SEEK_SET); }},
        {"seek from origin 3", [](IStream* s) { return SeekStep(s, 0, 3); }},
        {"seek to 0x100000002", [](IStream* s) { return SeekStep(s, 0x100000002ll, 0); }},
        {"seek beyond the end", [](IStream* s) { return SeekStep(s, 20, STREAM_SEEK_SET); }},
        {"write 1 beyond the end", [](IStream* s) { return WriteStep(s, "!"); }},
        {"write 0", [](IStream* s) { return WriteStep(s, ""); }},
        {"stat",
         [](IStream* s) {
             STATSTG stat;
             memset(&stat, 0xCC, sizeof(stat));
             const HRESULT result = s->Stat(&stat, STATFLAG_NONAME);
             return Result(result) + " type=" + std::to_string(stat.type) +
                    " size=" + std::to_string(stat.cbSize.QuadPart) +
                    " mode=" + std::to_string(stat.grfMode);
         }},
        // The gap's bytes (11 to 19) are left out: the platform's stream does not define them.
        {"bytes written",
         [](IStream* s) {
             const std::string bytes = ReadAll(s);
             return std::to_string(bytes.size()) + " " + bytes.substr(0, 11) + "|" +
                    bytes.substr(20);
         }},
        {"set size 5",
         [](IStream* s) {
             return Result(s->SetSize(Count(5))) + " at=" + std::to_string(PositionOf(s));
         }},
        {"set size 8 and read all",
         [](IStream* s) {
             const HRESULT result = s->SetSize(Count(8));
             const std::string bytes = ReadAll(s);
             return Result(result) + " " + Hex(bytes.data(), bytes.size());
         }},
        {"copy 4 from 1",
         [](IStream* s) {
             s->Seek(Offset(1), STREAM_SEEK_SET, nullptr);
             return CopyToStep(s, 4);
         }},
        {"copy the rest", [](IStream* s) { return CopyToStep(s, ~0ull); }},
        {"commit", [](IStream* s) { return Result(s->Commit(STGC_DEFAULT)); }},
        {"revert", [](IStream* s) { return Result(s->Revert()); }},
        {"lock region",
         [](IStream* s) { return Result(s->LockRegion(Count(0), Count(1), LOCK_WRITE)); }},
        {"unlock region",
         [](IStream* s) { return Result(s->UnlockRegion(Count(0), Count(1), LOCK_WRITE)); }},
        {"clone",
         [](IStream* s) {
             IStream* clone = reinterpret_cast<IStream*>(1);
             const HRESULT result = s->Clone(&clone);
             const std::string made = clone == nullptr ? "null" : "made";
             if (SUCCEEDED(result) && clone != nullptr) {
                 clone->Release();
             }
             return Result(result) + " " + made;
         }},
        {"query ISequentialStream",
         [](IStream* s) {
             IUnknown* other = reinterpret_cast<IUnknown*>(1);
             const HRESULT result =
                 s->QueryInterface(IID_ISequentialStream, reinterpret_cast<void**>(&other));
             const std::string made = other == nullptr ? "null" : "made";
             if (SUCCEEDED(result) && other != nullptr) {
                 other->Release();
             }
             return Result(result) + " " + made;
         }},
    };
}

struct Difference {
    std::string ours;
    std::string platforms;
};

// Where the two differ by design. The platform's values are those of its stream on global
// memory as the test platform implements it.
std::map<std::string, Difference> ExpectedDifferences() {
    return {
        // A seek before the start is an invalid function here and leaves the out value alone;
        // an unknown origin is an invalid parameter.
        {"seek before the start", {"0x80030001 new=77 at=8", "0x80030019 new=8 at=8"}},
        {"seek from origin 3", {"0x80030057 new=77 at=8", "0x80030019 new=8 at=8"}},
        // Opened for reading and writing, as every such stream is.
        {"stat", {"0x00000000 type=2 size=21 mode=2", "0x00000000 type=2 size=21 mode=0"}},
        // Growth by SetSize zero-fills; the platform's stream shows what the block held.
        {"set size 8 and read all", {"0x00000000 68656c6c6f000000", "0x00000000 68656c6c6f20776f"}},
        // What follows from it: the last three bytes.
        {"copy the rest",
         {"0x00000000 read=3 written=3 copy=000000 at=8",
          "0x00000000 read=3 written=3 copy=20776f at=8"}},
        // No transactions, no region locks, no clones, and IStream and IUnknown only.
        {"commit", {"0x80004001", "0x00000000"}},
        {"revert", {"0x80004001", "0x00000000"}},
        {"lock region", {"0x80004001", "0x80030001"}},
        {"unlock region", {"0x80004001", "0x00000000"}},
        {"clone", {"0x80004001 null", "0x00000000 made"}},
        {"query ISequentialStream", {"0x80004002 null", "0x00000000 made"}},
    };
}

TEST(TinyMemoryStreamComparisonTest, AnswersAsThePlatformsStreamExceptWhereDesignedOtherwise) {
    OwnedStream ours = NewMemoryStream();
    IStream* platformStream = nullptr;
    ASSERT_EQ(CreateStreamOnHGlobal(nullptr, TRUE, &platformStream), S_OK);
    const OwnedStream platforms(platformStream);
    const std::map<std::string, Difference> differences = ExpectedDifferences();
    size_t differencesSeen = 0;
    for (const ComparedStep& step : ComparedSteps()) {
        const std::string ourOutcome = step.run(ours.Get());
        const std::string platformOutcome = step.run(platforms.Get());
        const auto difference = differences.find(step.name);
        if (difference == differences.end()) {
            EXPECT_EQ(ourOutcome, platformOutcome) << step.name;
        } else {
            ++differencesSeen;
            EXPECT_EQ(ourOutcome, difference->second.ours) << step.name;
            EXPECT_EQ(platformOutcome, difference->second.platforms) << step.name;
        }
    }
    EXPECT_EQ(differencesSeen, differences.size());
}

TEST(TinyMemoryStreamComparisonTest, OursZeroFillsTheGapOfAWriteBeyondTheEnd) {
    OwnedStream stream = NewMemoryStream("hello world");
    ASSERT_EQ(stream->Seek(Offset(20), STREAM_SEEK_SET, nullptr), S_OK);
    ASSERT_EQ(stream->Write("!", 1, nullptr), S_OK);
    EXPECT_EQ(ReadAll(stream.Get()), std::string("hello world") + std::string(9, '\0') + "!");
}

// ---------------------------------------------------------------------------------------------
// TinyFileStream

class TinyFileStreamTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(m_folder.IsReady()); }

    std::wstring FileWith(const std::wstring& name, const std::string& bytes) {
        const std::wstring path = m_folder.PathOf(name);
        EXPECT_TRUE(WriteWholeFile(path, bytes));
        return path;
    }

    // A stream on the file, owning the factory's reference.
    OwnedStream Open(const std::wstring& path, DWORD mode) {
        IStream* stream = nullptr;
        EXPECT_EQ(CreateStreamOnFile(path.c_str(), mode, &stream), S_OK);
        return OwnedStream(stream);
    }

    TemporaryFolder m_folder;
};

// Whether a second handle on the file can be had with this access, sharing read and write;
// the error of the open otherwise.
DWORD OpenError(const std::wstring& path, DWORD access) {
    const HANDLE handle = CreateFileW(path.c_str(), access, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                      nullptr, OPEN_EXISTING, 0, nullptr);
    if (handle == INVALID_HANDLE_VALUE) {
        return GetLastError();
    }
    CloseHandle(handle);
    return ERROR_SUCCESS;
}

TEST_F(TinyFileStreamTest, UnknownModeIsRefusedWithATrace) {
    const std::wstring path = FileWith(L"a.bin", "abc");
    const DebugOutputCapture capture;
    IStream* stream = reinterpret_cast<IStream*>(1);
    EXPECT_EQ(CreateStreamOnFile(path.c_str(), kUnknownMode, &stream), E_INVALIDARG);
    EXPECT_EQ(stream, nullptr);
    const std::string expected = "CreateSreamOnFile: Invalid STGM_ mode";
    ASSERT_EQ(capture.Texts(), std::vector<std::string>{expected});
    EXPECT_EQ(capture.Lengths(), std::vector<ULONG_PTR>{expected.size() + 1});
}

TEST_F(TinyFileStreamTest, MissingFileAnswersTheLastErrorWithATrace) {
    const std::wstring path = m_folder.PathOf(L"missing.bin");
    const DebugOutputCapture capture;
    IStream* stream = reinterpret_cast<IStream*>(1);
    EXPECT_EQ(CreateStreamOnFile(path.c_str(), STGM_READ, &stream), kFileNotFound);
    EXPECT_EQ(stream, nullptr);
    EXPECT_EQ(capture.Texts(), std::vector<std::string>{"CreateSreamOnFile: CreateFileW() failed " +
                                                        TinyFramework::ToUtf8(path)});
}

TEST_F(TinyFileStreamTest, QueryInterfaceLeavesTheCountAtOne) {
    const std::wstring path = FileWith(L"a.bin", "abc");
    IStream* stream = nullptr;
    ASSERT_EQ(CreateStreamOnFile(path.c_str(), STGM_READ, &stream), S_OK);
    IStream* asStream = nullptr;
    EXPECT_EQ(stream->QueryInterface(IID_IStream, reinterpret_cast<void**>(&asStream)), S_OK);
    EXPECT_EQ(asStream, stream);
    IUnknown* asUnknown = nullptr;
    EXPECT_EQ(stream->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(&asUnknown)), S_OK);
    EXPECT_EQ(asUnknown, static_cast<IUnknown*>(stream));
    // Still the factory's one reference.
    EXPECT_EQ(stream->AddRef(), 2u);
    EXPECT_EQ(stream->Release(), 1u);
    EXPECT_EQ(stream->Release(), 0u);
}

TEST_F(TinyFileStreamTest, QueryInterfaceAnswersNoOtherInterface) {
    const std::wstring path = FileWith(L"a.bin", "abc");
    OwnedStream stream = Open(path, STGM_READ);
    void* other = reinterpret_cast<void*>(1);
    EXPECT_EQ(stream->QueryInterface(IID_ISequentialStream, &other), E_NOINTERFACE);
    EXPECT_EQ(other, nullptr);
}

TEST_F(TinyFileStreamTest, TheLastReleaseClosesTheFile) {
    const std::wstring path = FileWith(L"a.bin", "abc");
    IStream* stream = nullptr;
    ASSERT_EQ(CreateStreamOnFile(path.c_str(), STGM_READWRITE, &stream), S_OK);
    EXPECT_EQ(stream->AddRef(), 2u);
    EXPECT_EQ(stream->AddRef(), 3u);
    EXPECT_EQ(stream->Release(), 2u);
    EXPECT_EQ(stream->Release(), 1u);
    // Opened without delete sharing: the file cannot go while the stream lives.
    EXPECT_FALSE(DeleteFileW(path.c_str()));
    EXPECT_EQ(GetLastError(), kSharingViolation);
    EXPECT_EQ(stream->Release(), 0u);
    EXPECT_TRUE(DeleteFileW(path.c_str()));
}

TEST_F(TinyFileStreamTest, WritesAndReadsBackThroughTheSameHandle) {
    const std::wstring path = m_folder.PathOf(L"new.bin");
    OwnedStream stream = Open(path, STGM_CREATE | STGM_READWRITE);
    ULONG written = 0;
    EXPECT_EQ(stream->Write("0123456789", 10, &written), S_OK);
    EXPECT_EQ(written, 10u);
    ULARGE_INTEGER position = Count(99);
    EXPECT_EQ(stream->Seek(Offset(2), STREAM_SEEK_SET, &position), S_OK);
    EXPECT_EQ(position.QuadPart, 2u);
    char buffer[16] = {};
    ULONG read = 0;
    EXPECT_EQ(stream->Read(buffer, 16, &read), S_OK);
    EXPECT_EQ(std::string(buffer, read), "23456789");
    EXPECT_EQ(stream->Read(buffer, 16, nullptr), S_OK);
    EXPECT_EQ(ReadWholeFile(path), "0123456789");
}

TEST_F(TinyFileStreamTest, ReadAndWriteWithoutABufferAreInvalidArguments) {
    const std::wstring path = FileWith(L"a.bin", "abc");
    OwnedStream stream = Open(path, STGM_READWRITE);
    ULONG count = 99;
    EXPECT_EQ(stream->Read(nullptr, 1, &count), E_INVALIDARG);
    EXPECT_EQ(stream->Write(nullptr, 1, &count), E_INVALIDARG);
    EXPECT_EQ(count, 99u);
}

TEST_F(TinyFileStreamTest, WriteToAReadOnlyStreamFailsWithFalse) {
    const std::wstring path = FileWith(L"a.bin", "abc");
    OwnedStream stream = Open(path, STGM_READ);
    ULONG written = 99;
    EXPECT_EQ(stream->Write("x", 1, &written), S_FALSE);
    EXPECT_EQ(written, 0u);
    EXPECT_EQ(ReadWholeFile(path), "abc");
}

TEST_F(TinyFileStreamTest, ReadFromAWriteOnlyStreamFailsWithFalse) {
    const std::wstring path = FileWith(L"a.bin", "abc");
    OwnedStream stream = Open(path, STGM_WRITE);
    char buffer[4] = {};
    ULONG read = 99;
    EXPECT_EQ(stream->Read(buffer, 3, &read), S_FALSE);
    EXPECT_EQ(read, 0u);
}

TEST_F(TinyFileStreamTest, SeekMovesByTheLowHalfOnly) {
    const std::wstring path = FileWith(L"a.bin", "0123456789");
    OwnedStream stream = Open(path, STGM_READ);
    ULARGE_INTEGER position = Count(0xFFFFFFFFFFFFFFFFull);
    EXPECT_EQ(stream->Seek(Offset(0x100000003ll), STREAM_SEEK_SET, &position), S_OK);
    EXPECT_EQ(position.QuadPart, 3u);
    EXPECT_EQ(stream->Seek(Offset(-2), STREAM_SEEK_END, &position), S_OK);
    EXPECT_EQ(position.QuadPart, 8u);
    EXPECT_EQ(stream->Seek(Offset(-1), STREAM_SEEK_CUR, &position), S_OK);
    EXPECT_EQ(position.QuadPart, 7u);
}

TEST_F(TinyFileStreamTest, SeekWithAnUnknownOriginIsAnInvalidArgument) {
    const std::wstring path = FileWith(L"a.bin", "0123456789");
    OwnedStream stream = Open(path, STGM_READ);
    ULARGE_INTEGER position = Count(77);
    EXPECT_EQ(stream->Seek(Offset(1), 3, &position), E_INVALIDARG);
    EXPECT_EQ(position.QuadPart, 77u);
}

TEST_F(TinyFileStreamTest, CopyToWithACountOf4GiBCopiesNothing) {
    const std::wstring path = FileWith(L"a.bin", "0123456789");
    OwnedStream stream = Open(path, STGM_READ);
    OwnedStream target = NewMemoryStream();
    ULARGE_INTEGER read = Count(99);
    ULARGE_INTEGER written = Count(99);
    EXPECT_EQ(stream->CopyTo(target.Get(), Count(0x100000000ull), &read, &written), S_OK);
    EXPECT_EQ(read.QuadPart, 0u);
    EXPECT_EQ(written.QuadPart, 0u);
    EXPECT_EQ(AsMemoryStream(target)->Size(), 0u);
    EXPECT_EQ(PositionOf(stream.Get()), 0u);
}

TEST_F(TinyFileStreamTest, CopyToCopiesInPiecesUpToTheEnd) {
    std::string bytes;
    for (int i = 0; i < 1300; ++i) {
        bytes += static_cast<char>(i * 7);
    }
    const std::wstring path = FileWith(L"a.bin", bytes);
    OwnedStream stream = Open(path, STGM_READ);
    OwnedStream target = NewMemoryStream();
    ULARGE_INTEGER read = Count(99);
    ULARGE_INTEGER written = Count(99);
    EXPECT_EQ(stream->CopyTo(target.Get(), Count(5000), &read, &written), S_OK);
    EXPECT_EQ(read.QuadPart, 1300u);
    EXPECT_EQ(written.QuadPart, 1300u);
    EXPECT_EQ(ReadAll(target.Get()), bytes);
}

TEST_F(TinyFileStreamTest, CopyToStopsAtTheCount) {
    const std::string bytes(2000, 'q');
    const std::wstring path = FileWith(L"a.bin", bytes);
    OwnedStream stream = Open(path, STGM_READ);
    OwnedStream target = NewMemoryStream();
    ULARGE_INTEGER read = Count(0);
    ULARGE_INTEGER written = Count(0);
    EXPECT_EQ(stream->CopyTo(target.Get(), Count(700), &read, &written), S_OK);
    EXPECT_EQ(read.QuadPart, 700u);
    EXPECT_EQ(written.QuadPart, 700u);
    EXPECT_EQ(PositionOf(stream.Get()), 700u);
    EXPECT_EQ(AsMemoryStream(target)->Size(), 700u);
}

TEST_F(TinyFileStreamTest, OtherOperationsAreNotImplemented) {
    const std::wstring path = FileWith(L"a.bin", "abc");
    OwnedStream stream = Open(path, STGM_READWRITE);
    STATSTG stat = {};
    IStream* clone = nullptr;
    EXPECT_EQ(stream->SetSize(Count(1)), kNotImplemented);
    EXPECT_EQ(stream->Commit(STGC_DEFAULT), kNotImplemented);
    EXPECT_EQ(stream->Revert(), kNotImplemented);
    EXPECT_EQ(stream->LockRegion(Count(0), Count(1), LOCK_WRITE), kNotImplemented);
    EXPECT_EQ(stream->UnlockRegion(Count(0), Count(1), LOCK_WRITE), kNotImplemented);
    EXPECT_EQ(stream->Stat(&stat, STATFLAG_NONAME), kNotImplemented);
    EXPECT_EQ(stream->Clone(&clone), kNotImplemented);
    EXPECT_EQ(ReadWholeFile(path), "abc");
}

TEST_F(TinyFileStreamTest, CreateModeReplacesAnExistingFile) {
    const std::wstring path = FileWith(L"a.bin", "old content");
    OwnedStream stream = Open(path, STGM_CREATE);
    ASSERT_EQ(stream->Write("new", 3, nullptr), S_OK);
    stream.Reset();
    EXPECT_EQ(ReadWholeFile(path), "new");
}

TEST_F(TinyFileStreamTest, WithoutCreateModeAFileMustExist) {
    const std::wstring path = m_folder.PathOf(L"missing.bin");
    IStream* stream = nullptr;
    EXPECT_EQ(CreateStreamOnFile(path.c_str(), STGM_READWRITE, &stream), kFileNotFound);
    EXPECT_EQ(GetFileAttributesW(path.c_str()), INVALID_FILE_ATTRIBUTES);
}

TEST_F(TinyFileStreamTest, ExclusiveModeSharesNothing) {
    const std::wstring path = FileWith(L"a.bin", "abc");
    OwnedStream stream = Open(path, STGM_READ | STGM_SHARE_EXCLUSIVE);
    EXPECT_EQ(OpenError(path, GENERIC_READ), kSharingViolation);
    EXPECT_EQ(OpenError(path, GENERIC_WRITE), kSharingViolation);
}

TEST_F(TinyFileStreamTest, DenyWriteModeSharesReading) {
    const std::wstring path = FileWith(L"a.bin", "abc");
    OwnedStream stream = Open(path, STGM_READ | STGM_SHARE_DENY_WRITE);
    EXPECT_EQ(OpenError(path, GENERIC_READ), static_cast<DWORD>(ERROR_SUCCESS));
    EXPECT_EQ(OpenError(path, GENERIC_WRITE), kSharingViolation);
}

TEST_F(TinyFileStreamTest, DenyReadModeSharesWriting) {
    const std::wstring path = FileWith(L"a.bin", "abc");
    OwnedStream stream = Open(path, STGM_READ | STGM_SHARE_DENY_READ);
    EXPECT_EQ(OpenError(path, GENERIC_READ), kSharingViolation);
    EXPECT_EQ(OpenError(path, GENERIC_WRITE), static_cast<DWORD>(ERROR_SUCCESS));
}

TEST_F(TinyFileStreamTest, DenyNoneModeSharesBoth) {
    const std::wstring path = FileWith(L"a.bin", "abc");
    OwnedStream stream = Open(path, STGM_READWRITE | STGM_SHARE_DENY_NONE);
    EXPECT_EQ(OpenError(path, GENERIC_READ), static_cast<DWORD>(ERROR_SUCCESS));
    EXPECT_EQ(OpenError(path, GENERIC_WRITE), static_cast<DWORD>(ERROR_SUCCESS));
}

// ---------------------------------------------------------------------------------------------
// Both streams under the platform's imaging codecs: a PNG encoded into the stream and decoded
// back from it.

constexpr UINT kImageWidth = 4;
constexpr UINT kImageHeight = 3;
constexpr UINT kImageStride = kImageWidth * 4;

std::vector<BYTE> TestPixels() {
    std::vector<BYTE> pixels(kImageStride * kImageHeight);
    for (size_t i = 0; i < pixels.size(); ++i) {
        pixels[i] = static_cast<BYTE>(i * 21 + 3);
    }
    return pixels;
}

class StreamImagingTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(m_folder.IsReady());
        const HRESULT initialized = CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
        ASSERT_TRUE(SUCCEEDED(initialized)) << std::hex << initialized;
        m_uninitialize = true;
        ASSERT_EQ(CoCreateInstance(CLSID_WICImagingFactory, nullptr, CLSCTX_INPROC_SERVER,
                                   IID_PPV_ARGS(&m_factory)),
                  S_OK);
    }
    void TearDown() override {
        m_factory.Reset();
        if (m_uninitialize) {
            CoUninitialize();
        }
    }

    void EncodePng(IStream* stream, const std::vector<BYTE>& pixels) {
        ComPtr<IWICBitmapEncoder> encoder;
        ASSERT_EQ(m_factory->CreateEncoder(GUID_ContainerFormatPng, nullptr, &encoder), S_OK);
        ASSERT_EQ(encoder->Initialize(stream, WICBitmapEncoderNoCache), S_OK);
        ComPtr<IWICBitmapFrameEncode> frame;
        ComPtr<IPropertyBag2> options;
        ASSERT_EQ(encoder->CreateNewFrame(&frame, &options), S_OK);
        ASSERT_EQ(frame->Initialize(options.Get()), S_OK);
        ASSERT_EQ(frame->SetSize(kImageWidth, kImageHeight), S_OK);
        WICPixelFormatGUID format = GUID_WICPixelFormat32bppBGRA;
        ASSERT_EQ(frame->SetPixelFormat(&format), S_OK);
        ASSERT_EQ(format, GUID_WICPixelFormat32bppBGRA);
        ASSERT_EQ(frame->WritePixels(kImageHeight, kImageStride, static_cast<UINT>(pixels.size()),
                                     const_cast<BYTE*>(pixels.data())),
                  S_OK);
        ASSERT_EQ(frame->Commit(), S_OK);
        ASSERT_EQ(encoder->Commit(), S_OK);
    }

    void DecodePng(IStream* stream, std::vector<BYTE>& pixels) {
        ASSERT_EQ(stream->Seek(Offset(0), STREAM_SEEK_SET, nullptr), S_OK);
        ComPtr<IWICBitmapDecoder> decoder;
        ASSERT_EQ(m_factory->CreateDecoderFromStream(stream, nullptr,
                                                     WICDecodeMetadataCacheOnDemand, &decoder),
                  S_OK);
        GUID container = GUID_NULL;
        ASSERT_EQ(decoder->GetContainerFormat(&container), S_OK);
        ASSERT_EQ(container, GUID_ContainerFormatPng);
        ComPtr<IWICBitmapFrameDecode> frame;
        ASSERT_EQ(decoder->GetFrame(0, &frame), S_OK);
        UINT width = 0;
        UINT height = 0;
        ASSERT_EQ(frame->GetSize(&width, &height), S_OK);
        ASSERT_EQ(width, kImageWidth);
        ASSERT_EQ(height, kImageHeight);
        WICPixelFormatGUID format = GUID_NULL;
        ASSERT_EQ(frame->GetPixelFormat(&format), S_OK);
        ASSERT_EQ(format, GUID_WICPixelFormat32bppBGRA);
        pixels.assign(kImageStride * kImageHeight, 0);
        ASSERT_EQ(frame->CopyPixels(nullptr, kImageStride, static_cast<UINT>(pixels.size()),
                                    pixels.data()),
                  S_OK);
    }

    TemporaryFolder m_folder;
    ComPtr<IWICImagingFactory> m_factory;
    bool m_uninitialize = false;
};

TEST_F(StreamImagingTest, PngRoundTripsThroughAMemoryStream) {
    IStream* stream = nullptr;
    ASSERT_EQ(CreateStreamOnMemory(nullptr, 0, &stream), S_OK);
    const std::vector<BYTE> pixels = TestPixels();
    EncodePng(stream, pixels);
    const std::string signature = "\x89PNG\r\n\x1a\n";
    const TinyMemoryStream* memory = static_cast<TinyMemoryStream*>(stream);
    ASSERT_GT(memory->Size(), signature.size());
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(memory->Data()), signature.size()),
              signature);
    std::vector<BYTE> decoded;
    DecodePng(stream, decoded);
    EXPECT_EQ(Hex(decoded.data(), decoded.size()), Hex(pixels.data(), pixels.size()));
    // The codecs gave back every reference they took.
    EXPECT_EQ(stream->AddRef(), 2u);
    EXPECT_EQ(stream->Release(), 1u);
    EXPECT_EQ(stream->Release(), 0u);
}

TEST_F(StreamImagingTest, PngRoundTripsThroughAFileStream) {
    const std::wstring path = m_folder.PathOf(L"picture.png");
    IStream* stream = nullptr;
    ASSERT_EQ(CreateStreamOnFile(path.c_str(), STGM_CREATE | STGM_READWRITE, &stream), S_OK);
    const std::vector<BYTE> pixels = TestPixels();
    EncodePng(stream, pixels);
    std::vector<BYTE> decoded;
    DecodePng(stream, decoded);
    EXPECT_EQ(Hex(decoded.data(), decoded.size()), Hex(pixels.data(), pixels.size()));
    EXPECT_EQ(stream->AddRef(), 2u);
    EXPECT_EQ(stream->Release(), 1u);
    EXPECT_EQ(stream->Release(), 0u);
    EXPECT_EQ(ReadWholeFile(path).substr(0, 8), "\x89PNG\r\n\x1a\n");
    EXPECT_TRUE(DeleteFileW(path.c_str()));
}

}  // namespace
