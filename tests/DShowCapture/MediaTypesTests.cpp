#include "DShowCapture/MediaTypes.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "FakeCom.h"

using namespace DShow;

namespace {

// Watches the task allocator: can make the next allocations fail and records what is freed.
// A spy returning 0 from PreAlloc for a non-empty request makes that allocation fail, which
// is the only way to reach the out-of-memory paths of the media type copies.
class AllocatorSpy : public IMallocSpy {
public:
    int failuresToForce = 0;  // how many of the next allocations fail
    int failAllocation = 0;   // or: which one (1-based) of the next allocations fails
    int allocations = 0;
    std::vector<void*> freed;

    bool WasFreed(void* block) const {
        return std::find(freed.begin(), freed.end(), block) != freed.end();
    }

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override {
        if (IsEqualIID(iid, IID_IUnknown) || IsEqualIID(iid, IID_IMallocSpy)) {
            *object = static_cast<IMallocSpy*>(this);
            return S_OK;
        }
        *object = nullptr;
        return E_NOINTERFACE;
    }
    // Lives on the test's stack; COM's references do not decide its lifetime.
    ULONG STDMETHODCALLTYPE AddRef() override { return 2; }
    ULONG STDMETHODCALLTYPE Release() override { return 1; }

    SIZE_T STDMETHODCALLTYPE PreAlloc(SIZE_T request) override {
        ++allocations;
        if (failAllocation != 0 && allocations == failAllocation) {
            return 0;
        }
        if (failuresToForce > 0) {
            --failuresToForce;
            return 0;
        }
        return request;
    }
    void* STDMETHODCALLTYPE PostAlloc(void* actual) override { return actual; }
    void* STDMETHODCALLTYPE PreFree(void* request, BOOL) override {
        if (request != nullptr) {
            freed.push_back(request);
        }
        return request;
    }
    void STDMETHODCALLTYPE PostFree(BOOL) override {}
    SIZE_T STDMETHODCALLTYPE PreRealloc(void* request, SIZE_T size, void** actual, BOOL) override {
        *actual = request;
        return size;
    }
    void* STDMETHODCALLTYPE PostRealloc(void* actual, BOOL) override { return actual; }
    void* STDMETHODCALLTYPE PreGetSize(void* request, BOOL) override { return request; }
    SIZE_T STDMETHODCALLTYPE PostGetSize(SIZE_T actual, BOOL) override { return actual; }
    void* STDMETHODCALLTYPE PreDidAlloc(void* request, BOOL) override { return request; }
    int STDMETHODCALLTYPE PostDidAlloc(void*, BOOL, int actual) override { return actual; }
    void STDMETHODCALLTYPE PreHeapMinimize() override {}
    void STDMETHODCALLTYPE PostHeapMinimize() override {}
};

class MediaTypes : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(CoRegisterMallocSpy(&m_spy), S_OK); }
    void TearDown() override { CoRevokeMallocSpy(); }

    AllocatorSpy& Spy() { return m_spy; }

    // A source record with a 16-byte format block and a counted pUnk.
    AM_MEDIA_TYPE MakeSource(FakeCom::CountedUnknown* unknown) {
        AM_MEDIA_TYPE source = {};
        source.majortype = MEDIATYPE_Video;
        source.subtype = MEDIASUBTYPE_YUY2;
        source.formattype = FORMAT_VideoInfo;
        source.lSampleSize = 614400;
        source.cbFormat = sizeof(m_block);
        source.pbFormat = m_block;
        source.pUnk = unknown;
        return source;
    }

private:
    AllocatorSpy m_spy;
    BYTE m_block[16] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};
};

}  // namespace

TEST_F(MediaTypes, DeleteMediaTypeOfNullIsHarmless) {
    DeleteMediaType(nullptr);
    EXPECT_TRUE(Spy().freed.empty());
}

TEST_F(MediaTypes, FreeMediaTypeWithZeroSizeKeepsTheBlock) {
    BYTE* block = static_cast<BYTE*>(CoTaskMemAlloc(32));
    AM_MEDIA_TYPE type = {};
    type.cbFormat = 0;
    type.pbFormat = block;
    FreeMediaType(type);
    EXPECT_EQ(type.pbFormat, block);
    EXPECT_FALSE(Spy().WasFreed(block));
    CoTaskMemFree(block);
}

TEST_F(MediaTypes, FreeMediaTypeFreesBlockAndReleasesUnknown) {
    auto* unknown = new FakeCom::CountedUnknown();
    unknown->AddRef();  // the record's reference
    AM_MEDIA_TYPE type = {};
    type.cbFormat = 8;
    type.pbFormat = static_cast<BYTE*>(CoTaskMemAlloc(8));
    BYTE* block = type.pbFormat;
    type.pUnk = unknown;
    FreeMediaType(type);
    EXPECT_TRUE(Spy().WasFreed(block));
    EXPECT_EQ(type.cbFormat, 0u);
    EXPECT_EQ(type.pbFormat, nullptr);
    EXPECT_EQ(type.pUnk, nullptr);
    EXPECT_EQ(unknown->RefCount(), 1u);
    unknown->Release();
}

TEST_F(MediaTypes, DeleteMediaTypeFreesRecordAndBlock) {
    AM_MEDIA_TYPE* type = static_cast<AM_MEDIA_TYPE*>(CoTaskMemAlloc(sizeof(AM_MEDIA_TYPE)));
    *type = AM_MEDIA_TYPE{};
    type->cbFormat = 4;
    type->pbFormat = static_cast<BYTE*>(CoTaskMemAlloc(4));
    BYTE* block = type->pbFormat;
    DeleteMediaType(type);
    EXPECT_TRUE(Spy().WasFreed(block));
    EXPECT_TRUE(Spy().WasFreed(type));
}

TEST_F(MediaTypes, CopyMediaTypeCopiesBlockAndReferencesUnknown) {
    auto* unknown = new FakeCom::CountedUnknown();
    const AM_MEDIA_TYPE source = MakeSource(unknown);
    AM_MEDIA_TYPE target = {};
    EXPECT_EQ(CopyMediaType(&target, &source), S_OK);
    EXPECT_TRUE(IsEqualGUID(target.subtype, MEDIASUBTYPE_YUY2));
    EXPECT_EQ(target.lSampleSize, 614400u);
    EXPECT_EQ(target.cbFormat, source.cbFormat);
    EXPECT_NE(target.pbFormat, source.pbFormat);
    EXPECT_EQ(memcmp(target.pbFormat, source.pbFormat, source.cbFormat), 0);
    EXPECT_EQ(target.pUnk, unknown);
    EXPECT_EQ(unknown->RefCount(), 2u);
    FreeMediaType(target);
    EXPECT_EQ(unknown->RefCount(), 1u);
    unknown->Release();
}

TEST_F(MediaTypes, CopyMediaTypeWithZeroSizeAliasesTheBlock) {
    AM_MEDIA_TYPE source = MakeSource(nullptr);
    source.cbFormat = 0;
    AM_MEDIA_TYPE target = {};
    EXPECT_EQ(CopyMediaType(&target, &source), S_OK);
    EXPECT_EQ(target.pbFormat, source.pbFormat);
    EXPECT_EQ(target.cbFormat, 0u);
}

TEST_F(MediaTypes, CopyMediaTypeOutOfMemory) {
    auto* unknown = new FakeCom::CountedUnknown();
    const AM_MEDIA_TYPE source = MakeSource(unknown);
    AM_MEDIA_TYPE target = {};
    Spy().failuresToForce = 1;
    EXPECT_EQ(CopyMediaType(&target, &source), E_OUTOFMEMORY);
    EXPECT_EQ(target.cbFormat, 0u);
    EXPECT_EQ(target.pbFormat, nullptr);
    // The pointer came along with the record, but no reference was taken for it.
    EXPECT_EQ(target.pUnk, unknown);
    EXPECT_EQ(unknown->RefCount(), 1u);
    unknown->Release();
}

TEST_F(MediaTypes, CopyForAHolderOutOfMemoryClearsTheUncountedPointer) {
    auto* unknown = new FakeCom::CountedUnknown();
    const AM_MEDIA_TYPE source = MakeSource(unknown);
    AM_MEDIA_TYPE target = {};
    Spy().failuresToForce = 1;
    EXPECT_EQ(CopyMediaTypeForHolder(&target, &source), E_OUTOFMEMORY);
    EXPECT_EQ(target.pUnk, nullptr);
    // The holder's later free releases nothing that was never counted.
    FreeMediaType(target);
    EXPECT_EQ(unknown->RefCount(), 1u);
    unknown->Release();
}

TEST_F(MediaTypes, CreateMediaTypeOfNullIsNull) {
    EXPECT_EQ(CreateMediaType(nullptr), nullptr);
}

TEST_F(MediaTypes, CreateMediaTypeCopies) {
    auto* unknown = new FakeCom::CountedUnknown();
    const AM_MEDIA_TYPE source = MakeSource(unknown);
    AM_MEDIA_TYPE* copy = CreateMediaType(&source);
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(copy->cbFormat, source.cbFormat);
    EXPECT_EQ(memcmp(copy->pbFormat, source.pbFormat, source.cbFormat), 0);
    EXPECT_EQ(unknown->RefCount(), 2u);
    DeleteMediaType(copy);
    EXPECT_EQ(unknown->RefCount(), 1u);
    unknown->Release();
}

TEST_F(MediaTypes, CreateMediaTypeRecordAllocationFails) {
    const AM_MEDIA_TYPE source = MakeSource(nullptr);
    Spy().failuresToForce = 1;
    EXPECT_EQ(CreateMediaType(&source), nullptr);
}

TEST_F(MediaTypes, CreateMediaTypeBlockAllocationFailsAndFreesTheRecord) {
    auto* unknown = new FakeCom::CountedUnknown();
    const AM_MEDIA_TYPE source = MakeSource(unknown);
    // The record is the first allocation, the format block the second.
    Spy().failAllocation = 2;
    EXPECT_EQ(CreateMediaType(&source), nullptr);
    EXPECT_EQ(Spy().allocations, 2);
    EXPECT_EQ(Spy().freed.size(), 1u);  // the record, nothing else
    EXPECT_EQ(unknown->RefCount(), 1u);
    unknown->Release();
}

TEST_F(MediaTypes, ScopedMediaTypeOwnsItsRecord) {
    ScopedMediaType empty;
    EXPECT_EQ(empty.Get(), nullptr);

    auto* unknown = new FakeCom::CountedUnknown();
    const AM_MEDIA_TYPE source = MakeSource(unknown);
    {
        ScopedMediaType held;
        *held.Receive() = CreateMediaType(&source);
        AM_MEDIA_TYPE* record = held.Get();
        EXPECT_EQ(unknown->RefCount(), 2u);

        ScopedMediaType taker;
        taker = std::move(held);
        EXPECT_EQ(held.Get(), nullptr);
        EXPECT_EQ(taker.Get(), record);
        EXPECT_EQ(taker->cbFormat, source.cbFormat);

        taker.Reset();
        EXPECT_EQ(taker.Get(), nullptr);
        EXPECT_TRUE(Spy().WasFreed(record));
        EXPECT_EQ(unknown->RefCount(), 1u);

        *taker.Receive() = CreateMediaType(&source);
        EXPECT_EQ(unknown->RefCount(), 2u);
    }
    // The destructor deleted the second copy.
    EXPECT_EQ(unknown->RefCount(), 1u);
    unknown->Release();
}
