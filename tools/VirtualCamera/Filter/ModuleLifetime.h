#pragma once
// Counts the objects and server locks that keep VirtualCamera.dll loaded (DllCanUnloadNow).

#include <windows.h>

namespace VirtualCamera {

void ModuleObjectCreated();
void ModuleObjectDestroyed();
void ModuleLock(bool lock);
bool ModuleCanUnload();
HMODULE ModuleHandle();
void SetModuleHandle(HMODULE module);

// Keeps the module counted for as long as the owning object lives.
class ModuleReference {
public:
    ModuleReference() { ModuleObjectCreated(); }
    ~ModuleReference() { ModuleObjectDestroyed(); }
    ModuleReference(const ModuleReference&) = delete;
    ModuleReference& operator=(const ModuleReference&) = delete;
};

}  // namespace VirtualCamera
