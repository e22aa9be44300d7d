#pragma once

#include <cstdint>

namespace TinyFramework {

class TinyObject;

// One static record per registered class: its name, its size and its place in the class tree.
// Records are chained into one process-wide registry while static objects are initialised, so a
// class can be found by name and an object asked what it is without the compiler's RTTI.
struct TinyRuntimeClass {
    const wchar_t* m_className;
    uint32_t m_objectSize;
    TinyObject* (*m_factory)();
    TinyRuntimeClass* m_base;
    TinyRuntimeClass* m_next;
};

// Head of the registry. Constant-initialised to null, so registrations made by static objects of
// any translation unit find it ready.
extern TinyRuntimeClass* g_firstRuntimeClass;

// Enters a record into the registry: the record's link takes the present head first, then the
// head takes the record.
struct TinyClassRegistration {
    explicit TinyClassRegistration(TinyRuntimeClass* record);
};

// Root of the framework's polymorphic classes. No data of its own.
class TinyObject {
public:
    virtual ~TinyObject();
    // The record of the object's class; classes without a record of their own answer with the
    // nearest base's.
    virtual TinyRuntimeClass* GetRuntimeClass() const;

    // Walks the class tree from this object's record towards the root, comparing record addresses.
    bool IsKindOf(const TinyRuntimeClass* record) const;
    // The same walk against the other object's record, asked of it anew at every step.
    bool IsKindOf(const TinyObject* other) const;

    // Exact, case-sensitive search of the registry; the root's record is not in it.
    static TinyRuntimeClass* FromName(const wchar_t* name);
    // FromName, then the record's factory when it has one; null otherwise.
    static TinyObject* CreateObject(const wchar_t* name);

    static TinyRuntimeClass classTinyObject;
};

}  // namespace TinyFramework

// In a class body: gives the class a record of its own.
#define DECLARE_DYNAMIC(ClassName)                             \
public:                                                        \
    static ::TinyFramework::TinyRuntimeClass class##ClassName; \
    ::TinyFramework::TinyRuntimeClass* GetRuntimeClass() const override;

// In one source file, inside the class's namespace: defines the record and registers it.
#define IMPLEMENT_DYNAMIC(ClassName, BaseClassName)                                \
    ::TinyFramework::TinyRuntimeClass ClassName::class##ClassName = {              \
        L## #ClassName, static_cast<uint32_t>(sizeof(ClassName)), nullptr,         \
        &BaseClassName::class##BaseClassName, nullptr};                            \
    static const ::TinyFramework::TinyClassRegistration g_registration##ClassName( \
        &ClassName::class##ClassName);                                             \
    ::TinyFramework::TinyRuntimeClass* ClassName::GetRuntimeClass() const {        \
        return &ClassName::class##ClassName;                                       \
    }
