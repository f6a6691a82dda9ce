// The system services have a spelling for every text (sysservices/windows/wide_text.h).
#include "platform/path_text.h"

#include <cstring>

#include "sysservices/windows/wide_text.h"

using oss::Spelled;

namespace {

// The conversions between UTF-8 and UTF-16; false when the text is none.
bool widen(const char* utf8, std::wstring& wide) {
  const int size = ::MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, utf8, -1, nullptr, 0);
  if (size <= 0) return false;
  wide.resize(static_cast<std::size_t>(size));
  (void)::MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, utf8, -1, wide.data(), size);
  wide.pop_back();
  return true;
}
std::string utf8Of(const std::wstring& wide) {
  const int units = static_cast<int>(wide.size());
  const int size =
      ::WideCharToMultiByte(CP_UTF8, 0, wide.data(), units, nullptr, 0, nullptr, nullptr);
  std::string utf8(static_cast<std::size_t>(size), '\0');
  (void)::WideCharToMultiByte(CP_UTF8, 0, wide.data(), units, utf8.data(), size, nullptr, nullptr);
  return utf8;
}

}  // namespace

bool platform::pathFromUtf8(const char* utf8, std::string& path) {
  std::wstring wide;
  if (!widen(utf8, wide)) return false;
  path.resize(oss::narrow(wide.data(), wide.size(), Spelled::Path, nullptr, 0));
  (void)oss::narrow(wide.data(), wide.size(), Spelled::Path, path.data(), path.size());
  return true;
}

std::string platform::utf8FromSystem(const char* text) {
  const std::size_t count = std::strlen(text);
  std::wstring wide(count + 1, L'\0');
  const std::size_t units = oss::widen(text, count, Spelled::Path, wide.data(), wide.size());
  if (units == oss::noText) return text;
  wide.resize(units);
  return utf8Of(wide);
}
