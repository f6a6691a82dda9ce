// Capital letters by the system's own character data, whatever locale the program has chosen.
#include <locale.h>
#include <wctype.h>

#include "platform/registry_export/unicode.h"

namespace platform {
namespace {

constexpr char32_t lastOfBasicPlane = 0xFFFF;
constexpr char32_t finalSigma = 0x3C2;

// Every letter of Unicode. A system without this locale matches ASCII letters alone.
class AllLetters {
 public:
  AllLetters() noexcept : locale_(::newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr)) {}
  ~AllLetters() {
    if (locale_ != nullptr) ::freelocale(locale_);
  }
  AllLetters(const AllLetters&) = delete;
  AllLetters& operator=(const AllLetters&) = delete;

  // A capital that leads back to another small letter (dotless i, long s, the micro sign) is not
  // one for the registry, which keeps such names apart; a sigma is one wherever it stands.
  char32_t capital(char32_t letter) const noexcept {
    if (locale_ == nullptr) return letter;
    const wint_t capital = ::towupper_l(letter, locale_);
    const bool pair = ::towlower_l(capital, locale_) == letter || letter == finalSigma;
    return pair ? static_cast<char32_t>(capital) : letter;
  }

 private:
  locale_t locale_;
};

}  // namespace

char32_t capitalOf(char32_t letter) noexcept {
  if (letter < 0x80) return letter >= 'a' && letter <= 'z' ? letter - 32 : letter;
  if (letter > lastOfBasicPlane) return letter;
  static const AllLetters letters;
  return letters.capital(letter);
}

}  // namespace platform
