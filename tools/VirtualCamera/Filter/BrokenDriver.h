#pragma once
// What the virtual camera does where a broken driver would crash its host process.

namespace VirtualCamera {

// An access violation, as a write through a pointer that was never valid: the process ends
// with EXCEPTION_ACCESS_VIOLATION unless somebody handles it.
void CrashLikeABrokenDriver();

}  // namespace VirtualCamera
