// The system services call the system in its 8-bit encoding.
#include "platform/path_text.h"

#include <windows.h>

namespace {

// The wide form of a text; false when the text is none of the code page.
bool widen(UINT codePage, DWORD flags, const char* text, std::wstring& wide) {
  const int size = ::MultiByteToWideChar(codePage, flags, text, -1, nullptr, 0);
  if (size <= 0) return false;
  wide.resize(static_cast<std::size_t>(size));
  return ::MultiByteToWideChar(codePage, flags, text, -1, wide.data(), size) == size;
}

// The 8-bit form, without its terminator; false when a character has none.
bool narrow(UINT codePage, const std::wstring& wide, std::string& text) {
  // UTF-8 has every character, and these two arguments must be none for it.
  const bool isUtf8 = codePage == CP_UTF8;
  const DWORD flags = isUtf8 ? 0 : WC_NO_BEST_FIT_CHARS;
  BOOL replaced = FALSE;
  BOOL* const lossy = isUtf8 ? nullptr : &replaced;
  const int count = static_cast<int>(wide.size());
  const int size =
      ::WideCharToMultiByte(codePage, flags, wide.data(), count, nullptr, 0, nullptr, lossy);
  if (size <= 0 || replaced != FALSE) return false;
  text.resize(static_cast<std::size_t>(size));
  const int made =
      ::WideCharToMultiByte(codePage, flags, wide.data(), count, text.data(), size, nullptr, lossy);
  text.pop_back();
  return made == size && replaced == FALSE;
}

}  // namespace

bool platform::pathFromUtf8(const char* utf8, std::string& path) {
  std::wstring wide;
  return widen(CP_UTF8, MB_ERR_INVALID_CHARS, utf8, wide) && narrow(::GetACP(), wide, path);
}

std::string platform::utf8FromSystem(const char* text) {
  std::wstring wide;
  std::string utf8;
  return widen(::GetACP(), 0, text, wide) && narrow(CP_UTF8, wide, utf8) ? utf8 : text;
}
