#include "TinyFramework/Common/TinyObject.h"
#include "TinyFramework/IO/TinyFile.h"
#include "TinyFramework/IO/TinyIO.h"
#include "TinyFramework/IO/TinyMemoryFile.h"
#include "TinyFramework/IO/TinyStdioFile.h"

#include <gtest/gtest.h>

// A small class tree of the tests' own, registered like the framework's classes: an I/O root, a
// file under it and a file under that, beside an unrelated handle class. It stands in where a
// test needs to make an object of a base class, which the framework's I/O root, being abstract,
// does not allow.
namespace ObjectModelTree {

class TestIO : public TinyFramework::TinyObject {
    DECLARE_DYNAMIC(TestIO)
};
class TestFile : public TestIO {
    DECLARE_DYNAMIC(TestFile)
};
class TestMemoryFile : public TestFile {
    DECLARE_DYNAMIC(TestMemoryFile)
};
class TestHandle : public TinyFramework::TinyObject {
    DECLARE_DYNAMIC(TestHandle)
};
// Declares no record of its own, so it answers with its base's.
class TestUnregisteredFile : public TestFile {};

using TinyFramework::TinyObject;
IMPLEMENT_DYNAMIC(TestIO, TinyObject)
IMPLEMENT_DYNAMIC(TestFile, TestIO)
IMPLEMENT_DYNAMIC(TestMemoryFile, TestFile)
IMPLEMENT_DYNAMIC(TestHandle, TinyObject)

}  // namespace ObjectModelTree

namespace {

using namespace ObjectModelTree;
using TinyFramework::g_firstRuntimeClass;
using TinyFramework::TinyObject;
using TinyFramework::TinyRuntimeClass;
using TinyFramework::IO::TinyFile;
using TinyFramework::IO::TinyIO;
using TinyFramework::IO::TinyMemoryFile;
using TinyFramework::IO::TinyStdioFile;

TEST(TinyObjectTest, MemoryFileIsKindOfItsBasesAndNotOfItsSiblings) {
    const TinyMemoryFile file;
    EXPECT_TRUE(file.IsKindOf(&TinyMemoryFile::classTinyMemoryFile));
    EXPECT_TRUE(file.IsKindOf(&TinyIO::classTinyIO));
    EXPECT_TRUE(file.IsKindOf(&TinyObject::classTinyObject));
    EXPECT_FALSE(file.IsKindOf(&TinyFile::classTinyFile));
    EXPECT_FALSE(file.IsKindOf(&TinyStdioFile::classTinyStdioFile));
    EXPECT_FALSE(file.IsKindOf(&TestHandle::classTestHandle));
}

TEST(TinyObjectTest, StandInFileIsKindOfItsWholeChain) {
    const TestMemoryFile file;
    EXPECT_TRUE(file.IsKindOf(&TestFile::classTestFile));
    EXPECT_TRUE(file.IsKindOf(&TestIO::classTestIO));
    EXPECT_TRUE(file.IsKindOf(&TinyObject::classTinyObject));
}

TEST(TinyObjectTest, BaseIsNotKindOfItsDerivedClass) {
    const TestIO io;
    EXPECT_FALSE(io.IsKindOf(&TestFile::classTestFile));
}

TEST(TinyObjectTest, IsKindOfNullRecordIsFalse) {
    const TestFile file;
    EXPECT_FALSE(file.IsKindOf(static_cast<const TinyRuntimeClass*>(nullptr)));
}

TEST(TinyObjectTest, IsKindOfAnotherObjectComparesWithThatObjectsRecord) {
    const TestMemoryFile memoryFile;
    const TestIO io;
    const TestHandle handle;
    EXPECT_TRUE(memoryFile.IsKindOf(&io));
    EXPECT_FALSE(io.IsKindOf(&memoryFile));
    EXPECT_FALSE(memoryFile.IsKindOf(&handle));
}

TEST(TinyObjectTest, ClassWithoutARecordAnswersWithItsBasesRecord) {
    const TestUnregisteredFile file;
    EXPECT_EQ(file.GetRuntimeClass(), &TestFile::classTestFile);
}

TEST(TinyObjectTest, RootAnswersWithItsOwnRecord) {
    const TinyObject object;
    EXPECT_EQ(object.GetRuntimeClass(), &TinyObject::classTinyObject);
    EXPECT_STREQ(TinyObject::classTinyObject.m_className, L"TinyObject");
    EXPECT_EQ(TinyObject::classTinyObject.m_base, nullptr);
}

TEST(TinyRuntimeClassTest, RecordNamesItsClassSizeAndBase) {
    const TinyRuntimeClass& record = TinyMemoryFile::classTinyMemoryFile;
    EXPECT_STREQ(record.m_className, L"TinyMemoryFile");
    EXPECT_EQ(record.m_objectSize, sizeof(TinyMemoryFile));
    EXPECT_EQ(record.m_factory, nullptr);
    EXPECT_EQ(record.m_base, &TinyIO::classTinyIO);
}

TEST(TinyRuntimeClassTest, FromNameFindsARegisteredClassByItsExactName) {
    EXPECT_EQ(TinyObject::FromName(L"TinyFile"), &TinyFile::classTinyFile);
    EXPECT_EQ(TinyObject::FromName(L"TinyMemoryFile"), &TinyMemoryFile::classTinyMemoryFile);
}

TEST(TinyRuntimeClassTest, FromNameIsCaseSensitive) {
    EXPECT_EQ(TinyObject::FromName(L"tinyfile"), nullptr);
}

TEST(TinyRuntimeClassTest, RootIsNotRegistered) {
    EXPECT_EQ(TinyObject::FromName(L"TinyObject"), nullptr);
    for (const TinyRuntimeClass* record = g_firstRuntimeClass; record != nullptr;
         record = record->m_next) {
        EXPECT_NE(record, &TinyObject::classTinyObject);
    }
}

TEST(TinyRuntimeClassTest, EveryRegisteredClassIsInTheRegistryOnce) {
    int found = 0;
    for (const TinyRuntimeClass* record = g_firstRuntimeClass; record != nullptr;
         record = record->m_next) {
        if (record == &TestIO::classTestIO || record == &TestFile::classTestFile ||
            record == &TestMemoryFile::classTestMemoryFile ||
            record == &TestHandle::classTestHandle) {
            ++found;
        }
    }
    EXPECT_EQ(found, 4);
}

TEST(TinyRuntimeClassTest, CreateObjectGivesNullWithoutAFactory) {
    EXPECT_EQ(TinyObject::CreateObject(L"TinyMemoryFile"), nullptr);
    EXPECT_EQ(TinyObject::CreateObject(L"NoSuchClass"), nullptr);
}

}  // namespace
