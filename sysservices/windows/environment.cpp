#include "sysservices/environment.h"

#include <cstdlib>
#include <memory>
#include <new>

#include "sysservices/return_codes.h"
#include "sysservices/windows/wide_text.h"

namespace {

constexpr std::size_t longestName = 256;    // UTF-16 units, terminator included
constexpr std::size_t longestValue = 8192;  // likewise; a longer one is read all the same

}  // namespace

// The system's own copy: each runtime library has one of its own, and of the code page's texts.
std::ptrdiff_t ossEnvironmentGet(const char* name, char* value, std::size_t size) {
  const oss::Wide<longestName> wideName(name, oss::Spelled::Text);
  // How long the value is or, where there is too little room, how much it needs.
  const auto read = [&](wchar_t* wide, DWORD room) {
    ::SetLastError(ERROR_SUCCESS);  // which an empty value leaves as it is
    return ::GetEnvironmentVariableW(wideName.get(), wide, room);
  };
  wchar_t usual[longestValue];
  std::unique_ptr<wchar_t[]> longer;
  DWORD room = longestValue;
  DWORD units = read(usual, room);
  while (units >= room) {
    room = units;
    longer.reset(new (std::nothrow) wchar_t[room]);
    if (longer == nullptr) return ossNoValue;
    units = read(longer.get(), room);
  }
  if (units == 0 && ::GetLastError() == ERROR_ENVVAR_NOT_FOUND) return ossNoVariable;
  const wchar_t* const wide = longer == nullptr ? usual : longer.get();
  const std::size_t length = oss::narrow(wide, units, oss::Spelled::Path, value, size);
  if (length == oss::noText) return ossNoValue;
  if (length < size) value[length] = '\0';
  return static_cast<std::ptrdiff_t>(length);
}

unsigned int ossEnvironmentSet(const char* name, const char* value) {
  if (name == nullptr) return OSS_RC_NULL_ARGUMENT;
  const oss::Wide<longestName> wideName(name, oss::Spelled::Text);
  const oss::Wide<longestValue> wideValue(value == nullptr ? "" : value, oss::Spelled::Path);
  if (!wideName || !wideValue) return OSS_RC_SYSTEM_ERROR;
  // The runtime library's own copy of the environment, which getenv reads, is changed with it.
  const int failed = ::_wputenv_s(wideName.get(), wideValue.get());
  return failed == 0 ? OSS_RC_OK : OSS_RC_SYSTEM_ERROR;
}

const char* ossMachineRegistryName() { return "HKEY_LOCAL_MACHINE"; }
