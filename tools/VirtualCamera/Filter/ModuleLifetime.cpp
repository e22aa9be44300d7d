#include "tools/VirtualCamera/Filter/ModuleLifetime.h"

#include <atomic>

namespace VirtualCamera {
namespace {
std::atomic<long> g_objects{0};
std::atomic<long> g_locks{0};
HMODULE g_module = nullptr;
}  // namespace

void ModuleObjectCreated() {
    ++g_objects;
}
void ModuleObjectDestroyed() {
    --g_objects;
}
void ModuleLock(bool lock) {
    lock ? ++g_locks : --g_locks;
}
bool ModuleCanUnload() {
    return g_objects == 0 && g_locks == 0;
}
HMODULE ModuleHandle() {
    return g_module;
}
void SetModuleHandle(HMODULE module) {
    g_module = module;
}

}  // namespace VirtualCamera
