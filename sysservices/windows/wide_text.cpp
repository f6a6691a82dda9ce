#include "sysservices/windows/wide_text.h"

#include <algorithm>
#include <atomic>

#include "sysservices/environment.h"

namespace oss {
namespace {

constexpr char mark = '\x01';
constexpr DWORD notAText = ERROR_NO_UNICODE_TRANSLATION;

std::atomic<bool> isUtf8Process{false};

UINT codePageOf(Spelled spelled) noexcept {
  if (isUtf8Process.load(std::memory_order_relaxed)) return CP_UTF8;
  return spelled == Spelled::Path && ::AreFileApisANSI() == 0 ? ::GetOEMCP() : ::GetACP();
}

bool isAscii(char byte) noexcept { return static_cast<unsigned char>(byte) < 0x80; }
bool isAscii(wchar_t unit) noexcept { return unit < 0x80; }

template <typename Unit>
std::size_t asciiLength(const Unit* text, std::size_t count) noexcept {
  return static_cast<std::size_t>(
      std::find_if(text, text + count, [](Unit unit) { return !isAscii(unit); }) - text);
}

std::size_t runLength(const char* text, std::size_t count) noexcept {
  return static_cast<std::size_t>(
      std::find_if(text, text + count, [](char byte) { return isAscii(byte); }) - text);
}

std::size_t refuse(DWORD error) noexcept {
  ::SetLastError(error);
  return noText;
}

// What a decoding function appends to.
struct WideOutput {
  wchar_t* units;
  std::size_t room;  // a terminator's included
  std::size_t length = 0;

  // False with GetLastError.
  bool add(UINT codePage, const char* text, std::size_t count) noexcept {
    if (count == 0) return true;
    const std::size_t left = room - 1 - length;
    // No text has more units than bytes.
    const int most = static_cast<int>(std::min<std::size_t>(left, INT_MAX));
    const DWORD flags = codePage == CP_UTF8 ? MB_ERR_INVALID_CHARS : 0;
    const int made = most == 0 || count > INT_MAX
                         ? 0
                         : ::MultiByteToWideChar(codePage, flags, text, static_cast<int>(count),
                                                 units + length, most);
    if (made > 0) {
      length += static_cast<std::size_t>(made);
      return true;
    }
    const bool isOdd = most != 0 && ::GetLastError() == notAText;
    ::SetLastError(isOdd ? notAText : ERROR_FILENAME_EXCED_RANGE);
    return false;
  }
};

// Where the next marked run begins, or the end.
std::size_t findRun(const char* text, std::size_t count) noexcept {
  for (std::size_t at = 0; at + 1 < count; ++at) {
    if (text[at] == mark && !isAscii(text[at + 1])) return at;
  }
  return count;
}

// One character of a run, as the code page spells it; 0 bytes when it does not, or not so that the
// bytes of a path could be told from separators.
constexpr int longestCharacter = 8;  // bytes
int spell(UINT codePage, const wchar_t* character, int units, Spelled spelled,
          char (&bytes)[longestCharacter]) noexcept {
  BOOL replaced = FALSE;
  const int made = ::WideCharToMultiByte(codePage, WC_NO_BEST_FIT_CHARS, character, units, bytes,
                                         longestCharacter, nullptr, &replaced);
  if (made <= 0 || replaced != FALSE) return 0;
  const bool hasAscii =
      asciiLength(bytes, 1) == 1 || runLength(bytes, std::size_t(made)) < std::size_t(made);
  return spelled == Spelled::Path && hasAscii ? 0 : made;
}

// What a spelling function appends to: all is counted, what fits is stored.
struct Output {
  char* bytes;
  std::size_t room;
  std::size_t length = 0;

  void add(const char* text, std::size_t count) noexcept {
    if (length < room) std::memcpy(bytes + length, text, std::min(count, room - length));
    length += count;
  }
};

std::size_t unitsOfCharacter(const wchar_t* wide, std::size_t count) noexcept {
  const bool isPair = count > 1 && IS_HIGH_SURROGATE(wide[0]) && IS_LOW_SURROGATE(wide[1]);
  return isPair ? 2 : 1;
}

bool spellsAll(UINT codePage, const wchar_t* run, std::size_t count, Spelled spelled) noexcept {
  char bytes[longestCharacter];
  for (std::size_t at = 0, units = 0; at < count; at += units) {
    units = unitsOfCharacter(run + at, count - at);
    if (spell(codePage, run + at, static_cast<int>(units), spelled, bytes) == 0) return false;
  }
  return true;
}

// False for half a surrogate pair.
bool addUtf8(const wchar_t* run, std::size_t count, Output& output) noexcept {
  for (std::size_t at = 0, units = 0; at < count; at += units) {
    units = unitsOfCharacter(run + at, count - at);
    char bytes[longestCharacter];
    const int made =
        ::WideCharToMultiByte(CP_UTF8, WC_ERR_INVALID_CHARS, run + at, static_cast<int>(units),
                              bytes, longestCharacter, nullptr, nullptr);
    if (made <= 0) return false;
    output.add(bytes, static_cast<std::size_t>(made));
  }
  return true;
}

void addSpelled(UINT codePage, const wchar_t* run, std::size_t count, Spelled spelled,
                Output& output) noexcept {
  char bytes[longestCharacter];
  for (std::size_t at = 0, units = 0; at < count; at += units) {
    units = unitsOfCharacter(run + at, count - at);
    const int made = spell(codePage, run + at, static_cast<int>(units), spelled, bytes);
    output.add(bytes, static_cast<std::size_t>(made));
  }
}

}  // namespace

std::size_t widen(const char* text, std::size_t count, Spelled spelled, wchar_t* wide,
                  std::size_t room) noexcept {
  const std::size_t plain = asciiLength(text, count);
  if (plain >= room) return refuse(ERROR_FILENAME_EXCED_RANGE);
  if (plain == count) {
    std::copy(text, text + count, wide);
    wide[count] = L'\0';
    return count;
  }
  const UINT codePage = codePageOf(spelled);
  WideOutput output{wide, room};
  for (std::size_t at = 0; at < count;) {
    const std::size_t run = codePage == CP_UTF8 ? count - at : findRun(text + at, count - at);
    if (!output.add(codePage, text + at, run)) return noText;
    at += run;
    if (at == count) break;
    ++at;
    const std::size_t length = runLength(text + at, count - at);
    if (!output.add(CP_UTF8, text + at, length)) return noText;
    at += length;
  }
  wide[output.length] = L'\0';
  return output.length;
}

std::size_t narrow(const wchar_t* wide, std::size_t count, Spelled spelled, char* text,
                   std::size_t room) noexcept {
  const UINT codePage = codePageOf(spelled);
  Output output{text, room};
  for (std::size_t at = 0; at < count;) {
    for (; at < count && isAscii(wide[at]); ++at) {
      const char byte = static_cast<char>(wide[at]);
      output.add(&byte, 1);
    }
    std::size_t end = at;
    while (end < count && !isAscii(wide[end])) ++end;
    const wchar_t* const run = wide + at;
    // Behind a 0x01 of the text's own, the code page's bytes would look like marked ones.
    const bool isMarked =
        codePage != CP_UTF8 && end > at &&
        ((at > 0 && wide[at - 1] == wchar_t{mark}) || !spellsAll(codePage, run, end - at, spelled));
    if (isMarked) output.add(&mark, 1);
    if (!isMarked && codePage != CP_UTF8) {
      addSpelled(codePage, run, end - at, spelled, output);
    } else if (!addUtf8(run, end - at, output)) {
      return refuse(notAText);
    }
    at = end;
  }
  return output.length;
}

std::size_t wholeCharacters(const char* text, std::size_t room, Spelled spelled) noexcept {
  const UINT codePage = codePageOf(spelled);
  bool isUtf8 = codePage == CP_UTF8;
  std::size_t length = 0;
  while (text[length] != '\0') {
    std::size_t end = length + 1;
    const bool begins = codePage != CP_UTF8 && text[length] == mark && !isAscii(text[end]);
    if (begins) ++end;  // the mark and the first character behind it
    if (codePage != CP_UTF8) isUtf8 = begins || (isUtf8 && !isAscii(text[length]));
    const auto first = static_cast<BYTE>(text[length]);
    if (!isUtf8 && ::IsDBCSLeadByteEx(codePage, first) != 0 && text[end] != '\0') ++end;
    while (isUtf8 && (text[end] & 0xC0) == 0x80) ++end;
    if (end > room) break;
    length = end;
  }
  return length;
}

}  // namespace oss

void ossUseUtf8() { oss::isUtf8Process.store(true, std::memory_order_relaxed); }
