#include "tools/VirtualCamera/Filter/BrokenDriver.h"

#include <cstdint>

namespace VirtualCamera {

void CrashLikeABrokenDriver() {
    // The address goes through a volatile variable so the compiler cannot see it is invalid.
    volatile uintptr_t address = 0x10;
    *reinterpret_cast<volatile int*>(address) = 1;
}

}  // namespace VirtualCamera
