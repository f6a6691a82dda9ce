#include "platform/tool/terminal.h"

#include <io.h>
#include <windows.h>

namespace platform {
namespace {

HANDLE consoleOf(std::FILE* stream) {
  return reinterpret_cast<HANDLE>(::_get_osfhandle(::_fileno(stream)));
}

}  // namespace

std::size_t terminalWidth(std::FILE* stream) noexcept {
  CONSOLE_SCREEN_BUFFER_INFO info;
  if (::GetConsoleOutputCP() != CP_UTF8) return 0;
  if (::GetConsoleScreenBufferInfo(consoleOf(stream), &info) == 0) return 0;
  return static_cast<std::size_t>(info.srWindow.Right - info.srWindow.Left + 1);
}

bool isTerminal(std::FILE* stream) noexcept { return ::_isatty(::_fileno(stream)) != 0; }

// The console shows colours only once it was asked to.
bool showsColours(std::FILE* stream) noexcept {
  constexpr DWORD sequences = 0x0004;  // ENABLE_VIRTUAL_TERMINAL_PROCESSING
  DWORD mode = 0;
  const HANDLE console = consoleOf(stream);
  return ::GetConsoleMode(console, &mode) != 0 && ::SetConsoleMode(console, mode | sequences) != 0;
}

}  // namespace platform
