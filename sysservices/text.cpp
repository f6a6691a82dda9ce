#include "sysservices/text.h"

#include <strings.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "sysservices/return_codes.h"

namespace {

// Runs one of the runtime's converters and refuses everything but a whole number in range.
template <typename Convert>
auto convertWhole(const char* text, char** end, Convert convert) -> decltype(convert(nullptr)) {
  if (text == nullptr || end == nullptr) return 0;
  const int saved = errno;
  errno = 0;
  const auto value = convert(end);
  const bool whole = errno == 0 && *end != text && **end == '\0';
  errno = saved;
  if (whole) return value;
  // A caller judges by the end pointer alone, and an empty text has its NUL right at the start:
  // only a null end pointer tells that there was nothing to convert.
  *end = *text == '\0' ? nullptr : const_cast<char*>(text);
  return 0;
}

}  // namespace

std::uint64_t ossStrToUint64(const char* text, char** end, int base) {
  if (text != nullptr && end != nullptr && std::strchr(text, '-') != nullptr) {
    *end = const_cast<char*>(text);
    return 0;
  }
  return convertWhole(
      text, end, [&](char** stop) -> std::uint64_t { return std::strtoull(text, stop, base); });
}

std::int64_t ossStrToSint64(const char* text, char** end, int base) {
  return convertWhole(text, end,
                      [&](char** stop) -> std::int64_t { return std::strtoll(text, stop, base); });
}

unsigned int ossStrToBoolean(const char* text, bool* flag) {
  if (text == nullptr || flag == nullptr) return OSS_RC_NULL_ARGUMENT;
  struct Row {
    const char* text;
    bool flag;
  };
  static constexpr Row rows[] = {{"true", true}, {"false", false}, {"yes", true}, {"no", false},
                                 {"on", true},   {"off", false},   {"1", true},   {"0", false}};
  for (const Row& row : rows) {
    if (strcasecmp(text, row.text) == 0) {
      *flag = row.flag;
      return OSS_RC_OK;
    }
  }
  return OSS_RC_BAD_PARAMETER;
}
