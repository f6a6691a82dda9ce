#include "genreg/core/diagnostics.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "genreg_codes.h"

namespace genreg {
namespace {

const char* routineName(unsigned int probe) {
  switch (probe) {
#define GENREG_ROUTINE_NAME(identifier, number, name) \
  case probeBase + (number):                          \
    return name;
    GENREG_ROUTINES(GENREG_ROUTINE_NAME)
#undef GENREG_ROUTINE_NAME
#define GENREG_PROBE_NAME(identifier, probe, name) \
  case probe:                                      \
    return name;
    GENREG_SYSTEM_PROBES(GENREG_PROBE_NAME)
#undef GENREG_PROBE_NAME
    default:
      return nullptr;
  }
}

const char* codeName(unsigned int code) {
  const GenRegReturnCode* row = genRegFindReturnCode(code);
  return row == nullptr ? nullptr : row->name;
}

// The log's names are handed over before the first record instead of at load, where the library
// does nothing, and taken back when it is unloaded.
struct HandedNames {
  HandedNames() noexcept { ossSetDiagnosticNames(routineName, codeName); }
  ~HandedNames() { ossSetDiagnosticNames(nullptr, nullptr); }
};

std::uint32_t traceThread() noexcept { return static_cast<std::uint32_t>(ossThreadID()); }

}  // namespace

void handOverNames() noexcept { static const HandedNames names; }

LogValue text(const char* value) noexcept {
  return {value, value == nullptr ? 0 : std::strlen(value), OSS_LOG_STRING};
}
LogValue number(const std::int32_t& value) noexcept {
  return {&value, sizeof value, OSS_LOG_INT32};
}
LogValue number(const std::uint32_t& value) noexcept {
  return {&value, sizeof value, OSS_LOG_INT32};
}
LogValue number(const std::uint64_t& value) noexcept {
  return {&value, sizeof value, OSS_LOG_UINT64};
}

LogValue flag(const std::uint8_t& value) noexcept { return {&value, sizeof value, OSS_LOG_FLAG}; }

Code logFailure(Function function, Code code, unsigned int point) noexcept {
  handOverNames();
  ossLog(0, probeOf(function), code, point, failureSeverity, 0);
  return code;
}

thread_local Cause* Cause::active = nullptr;

bool Cause::isMissingFile() const noexcept {
  return root_ == GENREG_RC_NO_FILE || root_ == OSS_RC_FILE_NOT_FOUND;
}

void Cause::explain(Code code, Code calleeCode, const char* more) noexcept {
  if (text_[0] != '\0') return;
  root_ = calleeCode != 0 ? calleeCode : code;
  std::size_t length = 0;
  const auto add = [&](const char* part) {
    if (part == nullptr || *part == '\0' || length + 1 >= sizeof text_) return;
    const int made =
        std::snprintf(text_ + length, sizeof text_ - length, "%s%s", length == 0 ? "" : ": ", part);
    length = std::min(length + static_cast<std::size_t>(made), sizeof text_ - 1);
  };
  const auto meaning = [](Code value) {
    const GenRegReturnCode* row = value == 0 ? nullptr : genRegFindReturnCode(value);
    return row == nullptr ? nullptr : row->meaning;
  };
  add(path_);
  add(meaning(code));
  if (calleeCode != code) add(meaning(calleeCode));
  if (more != nullptr && std::strcmp(more, path_) != 0) add(more);
}

// The last text among the values says most.
void Routine::explain(Code code, std::initializer_list<LogValue> values) noexcept {
  const char* more = nullptr;
  for (const LogValue& value : values) {
    if (value.type == OSS_LOG_STRING) more = static_cast<const char*>(value.address);
  }
  Cause::active->explain(code, 0, more);
}

void Routine::traceEntry() const noexcept {
  handOverNames();
  _gtraceEntry(traceThread(), probe_);
}

void Routine::traceExit() const noexcept {
  handOverNames();
  const Code result = code();
  _gtraceExit(traceThread(), probe_, reinterpret_cast<std::uintptr_t>(&result), 0);
}

void Routine::log(Code code, unsigned int point, unsigned int severity,
                  std::initializer_list<LogValue> values) const noexcept {
  constexpr std::size_t mostValues = 4;
  handOverNames();
  LogValue v[mostValues] = {};
  const std::size_t count = std::min(values.size(), mostValues);
  std::copy_n(values.begin(), count, v);
  const auto passed = static_cast<unsigned int>(count);
  ossLog(0, probe_, code, point, severity, passed, v[0].address, v[0].length, v[0].type,
         v[1].address, v[1].length, v[1].type, v[2].address, v[2].length, v[2].type, v[3].address,
         v[3].length, v[3].type);
  if (!tracingOn()) return;
  _gtraceErrorVar(traceThread(), probe_, point, 4, 0, passed, 0, v[0].length, v[0].address, 0,
                  v[1].length, v[1].address, 0, v[2].length, v[2].address, 0, v[3].length,
                  v[3].address);
}

bool Routine::failFrom(unsigned int calleeProbe, Code calleeCode, Code code, unsigned int point,
                       unsigned int severity) noexcept {
  handOverNames();
  ossLogRC(0, probe_, calleeProbe, calleeCode, code, point, severity, 0);
  if (Cause::active != nullptr) Cause::active->explain(code, calleeCode);
  return end(code);
}

bool Routine::failSystem(int error, Code code, unsigned int point, const char* path,
                         unsigned int systemCall) noexcept {
  handOverNames();
  const unsigned int mapped = ossErrorMapSystem(probe_, point, systemCall, error, 0);
  const std::int32_t errorNumber = error;
  if (Cause::active != nullptr) Cause::active->explain(code, mapped, path);
  return fail(code, point + 1, text(path), number(errorNumber), number(mapped));
}

void Routine::trace(unsigned int point, LogValue value) const noexcept {
  if (!tracingOn()) return;
  handOverNames();
  _gtraceVar(traceThread(), probe_, point, 3, 1, 0, value.length, value.address);
}

}  // namespace genreg
