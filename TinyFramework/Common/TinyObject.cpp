#include "TinyFramework/Common/TinyObject.h"

#include <windows.h>

namespace TinyFramework {

TinyRuntimeClass* g_firstRuntimeClass = nullptr;

TinyClassRegistration::TinyClassRegistration(TinyRuntimeClass* record) {
    record->m_next = g_firstRuntimeClass;
    g_firstRuntimeClass = record;
}

// The root's record is reachable as every chain's last base, but never registered.
TinyRuntimeClass TinyObject::classTinyObject = {L"TinyObject", sizeof(TinyObject), nullptr, nullptr,
                                                nullptr};

TinyObject::~TinyObject() {}

TinyRuntimeClass* TinyObject::GetRuntimeClass() const {
    return &classTinyObject;
}

bool TinyObject::IsKindOf(const TinyRuntimeClass* record) const {
    for (const TinyRuntimeClass* current = GetRuntimeClass(); current != nullptr;
         current = current->m_base) {
        if (current == record) {
            return true;
        }
    }
    return false;
}

bool TinyObject::IsKindOf(const TinyObject* other) const {
    for (const TinyRuntimeClass* current = GetRuntimeClass(); current != nullptr;
         current = current->m_base) {
        if (current == other->GetRuntimeClass()) {
            return true;
        }
    }
    return false;
}

TinyRuntimeClass* TinyObject::FromName(const wchar_t* name) {
    for (TinyRuntimeClass* record = g_firstRuntimeClass; record != nullptr;
         record = record->m_next) {
        if (lstrcmpW(record->m_className, name) == 0) {
            return record;
        }
    }
    return nullptr;
}

TinyObject* TinyObject::CreateObject(const wchar_t* name) {
    TinyRuntimeClass* record = FromName(name);
    if (record != nullptr && record->m_factory != nullptr) {
        return record->m_factory();
    }
    return nullptr;
}

}  // namespace TinyFramework
