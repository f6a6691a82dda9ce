#include "genreg/core/diagnostics.h"

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

constexpr LogValue none{nullptr, 0, 0};

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
LogValue wide(const std::uint64_t& value) noexcept {
  return {&value, sizeof value, OSS_LOG_UINT64};
}

LogValue flag(const std::uint8_t& value) noexcept { return {&value, sizeof value, OSS_LOG_FLAG}; }

unsigned int logFailure(Function function, unsigned int code, unsigned int point) noexcept {
  handOverNames();
  ossLog(0, probeOf(function), code, point, failureSeverity, 0);
  return code;
}

void Routine::traceEntry() const noexcept {
  handOverNames();
  _gtraceEntry(traceThread(), probe_);
}

void Routine::traceExit() const noexcept {
  handOverNames();
  _gtraceExit(traceThread(), probe_, reinterpret_cast<std::uintptr_t>(&result_), 0);
}

void Routine::log(unsigned int code, unsigned int point, unsigned int severity, unsigned int count,
                  const LogValue (&values)[3]) const noexcept {
  handOverNames();
  ossLog(0, probe_, code, point, severity, count, values[0].address, values[0].length,
         values[0].type, values[1].address, values[1].length, values[1].type, values[2].address,
         values[2].length, values[2].type);
  if (!tracingOn()) return;
  _gtraceErrorVar(traceThread(), probe_, point, 4, 0, count, 0, values[0].length, values[0].address,
                  0, values[1].length, values[1].address, 0, values[2].length, values[2].address);
}

unsigned int Routine::fail(unsigned int code, unsigned int point) const noexcept {
  log(code, point, failureSeverity, 0, {none, none, none});
  return code;
}
unsigned int Routine::fail(unsigned int code, unsigned int point, LogValue first) const noexcept {
  log(code, point, failureSeverity, 1, {first, none, none});
  return code;
}
unsigned int Routine::fail(unsigned int code, unsigned int point, LogValue first,
                           LogValue second) const noexcept {
  log(code, point, failureSeverity, 2, {first, second, none});
  return code;
}
unsigned int Routine::fail(unsigned int code, unsigned int point, LogValue first, LogValue second,
                           LogValue third) const noexcept {
  log(code, point, failureSeverity, 3, {first, second, third});
  return code;
}

void Routine::note(unsigned int code, unsigned int point, unsigned int severity,
                   LogValue value) const noexcept {
  log(code, point, severity, 1, {value, none, none});
}

unsigned int Routine::failFrom(unsigned int calleeProbe, unsigned int calleeCode, unsigned int code,
                               unsigned int point, unsigned int severity) const noexcept {
  handOverNames();
  ossLogRC(0, probe_, calleeProbe, calleeCode, code, point, severity, 0);
  return code;
}
unsigned int Routine::failFrom(Function callee, unsigned int calleeCode, unsigned int code,
                               unsigned int point, unsigned int severity) const noexcept {
  return failFrom(probeOf(callee), calleeCode, code, point, severity);
}

unsigned int Routine::failSystem(int error, unsigned int code, unsigned int point, const char* path,
                                 unsigned int systemCall) const noexcept {
  handOverNames();
  const unsigned int mapped = ossErrorMapSystem(probe_, point, systemCall, error, 0);
  const std::int32_t errorNumber = error;
  return fail(code, point + 1, text(path), number(errorNumber), number(mapped));
}

void Routine::trace(unsigned int point, LogValue value) const noexcept {
  if (!tracingOn()) return;
  handOverNames();
  _gtraceVar(traceThread(), probe_, point, 3, 1, 0, value.length, value.address);
}

}  // namespace genreg
