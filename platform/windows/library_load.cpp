// What happens when the library is loaded: nothing, but that it asks not to hear of threads.
#include <windows.h>

BOOL WINAPI DllMain(HINSTANCE library, DWORD reason, LPVOID) {
  if (reason == DLL_PROCESS_ATTACH) (void)::DisableThreadLibraryCalls(library);
  return TRUE;
}
