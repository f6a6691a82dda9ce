// Capital letters as the system itself matches names.
#include <windows.h>

#include "platform/registry_export/unicode.h"

namespace platform {

char32_t capitalOf(char32_t letter) noexcept {
  constexpr char32_t lastOfBasicPlane = 0xFFFF;
  if (letter < 0x80) return letter >= 'a' && letter <= 'z' ? letter - 32 : letter;
  if (letter > lastOfBasicPlane) return letter;
  const auto small = static_cast<wchar_t>(letter);
  wchar_t capital = small;
  const int length = ::LCMapStringW(LOCALE_INVARIANT, LCMAP_UPPERCASE, &small, 1, &capital, 1);
  return length == 1 ? capital : letter;
}

}  // namespace platform
