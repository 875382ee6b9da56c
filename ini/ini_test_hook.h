#pragma once
// Test-only access to the inside of a safe save.

namespace kx::ini {

// Called by a safe save after the temporary file is written and closed, just
// before it is renamed over the target. Tests use it to stop or disturb the
// save at that point. nullptr (the default) calls nothing.
using SafeSaveHook = void (*)(const char* temporaryPath);
void SetSafeSaveHookForTesting(SafeSaveHook hook);

}  // namespace kx::ini
