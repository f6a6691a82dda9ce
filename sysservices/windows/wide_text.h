// Text between its 8-bit spelling, in which the services take and give it, and the system's UTF-16.
//
// The spelling is that of the process's code page, as what a program passes has always meant: one
// whose code page is UTF-8, or that has called ossUseUtf8, has UTF-8 alone. In any other, a run of
// characters behind 0x7F that the code page does not spell exactly is the byte 0x01 and the run's
// UTF-8. No file name holds that byte, so nothing that a program could name before means another
// file, and every name has a spelling. A path that the services spelled may be taken apart at its
// ASCII characters; in one that a program passes a second byte may look like one of them.
#pragma once

#include <windows.h>

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "sysservices/export.h"
#include "sysservices/file_handle.h"

namespace oss {

// Which code page a text has: a path follows SetFileApisToOEM. A path's spelling has no separator
// as the second byte of a character.
enum class Spelled { Path, Text };

constexpr std::size_t noText = SIZE_MAX;

// The UTF-16 of `count` bytes, terminated, into `wide` of `room` units; returns its length. noText
// with GetLastError: ERROR_FILENAME_EXCED_RANGE when it does not fit, ERROR_NO_UNICODE_TRANSLATION
// when it is no text.
ZOROSSE_API std::size_t widen(const char* text, std::size_t count, Spelled spelled, wchar_t* wide,
                              std::size_t room) noexcept;

// The spelling of `count` units into `text` of `room` bytes, as far as it fits; returns how long
// the whole is. Not terminated. noText with GetLastError for half a surrogate pair.
ZOROSSE_API std::size_t narrow(const wchar_t* wide, std::size_t count, Spelled spelled, char* text,
                               std::size_t room) noexcept;

// How many bytes of `text`, at most `room`, are whole characters.
ZOROSSE_API std::size_t wholeCharacters(const char* text, std::size_t room,
                                        Spelled spelled = Spelled::Text) noexcept;

// A terminated text as the system takes it; empty, and false, with GetLastError when it is none.
template <std::size_t Room>
class Wide {
 public:
  explicit Wide(const char* text, Spelled spelled) noexcept
      : length_(text == nullptr ? 0 : widen(text, std::strlen(text), spelled, text_, Room)) {
    if (text == nullptr || length_ == noText) text_[0] = L'\0';
  }
  explicit operator bool() const noexcept { return length_ != noText; }
  const wchar_t* get() const noexcept { return text_; }

 private:
  wchar_t text_[Room];
  std::size_t length_;
};

struct WidePath : Wide<OSS_FULL_PATH_SIZE> {
  explicit WidePath(const char* path) noexcept : Wide(path, Spelled::Path) {}
};

}  // namespace oss
