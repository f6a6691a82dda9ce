// Tracing and logging of one routine in short lines.
//
//   Routine routine(Function::openScan);              // entry record
//   ...
//   return routine.exit(routine.fail(code, 20, text(path)));  // failure log, exit record
//
// Entry, exit and values are recorded only while tracing is on, which is asked before each record;
// failures are logged always. Every failure is logged where it is detected (fail); a routine that
// turns a callee's code into its own logs again, naming the callee (failFrom).
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "genreg/core/routine_numbers.h"
#include "sysservices/diagnostics.h"

namespace genreg {

struct LogValue {
  const void* address;
  std::size_t length;
  int type;
};

constexpr unsigned int failureSeverity = 2;
constexpr unsigned int readOpenSeverity = 4;  // a registry that cannot be opened for Get

inline bool tracingOn() noexcept { return g_pGTCB != nullptr && g_pGTCB->enabled != 0; }

// Tells the log how routines and codes are called, once; for whoever logs without a Routine.
void handOverNames() noexcept;

// Values that describe a failure. The referenced object must live until the call ends.
LogValue text(const char* value) noexcept;
LogValue number(const std::int32_t& value) noexcept;
LogValue number(const std::uint32_t& value) noexcept;
LogValue wide(const std::uint64_t& value) noexcept;
LogValue flag(const std::uint8_t& value) noexcept;

// Logs a failure of a routine that is not traced, and gives back `code`.
unsigned int logFailure(Function function, unsigned int code, unsigned int point) noexcept;

class Routine {
 public:
  explicit Routine(Function function) noexcept : probe_(probeOf(function)), result_(0) {
    if (tracingOn()) traceEntry();
  }
  ~Routine() {
    if (tracingOn()) traceExit();
  }
  Routine(const Routine&) = delete;
  Routine& operator=(const Routine&) = delete;

  // Notes the code the routine is about to return and gives it back.
  unsigned int exit(unsigned int code) noexcept {
    result_ = code;
    return code;
  }

  // Logs a failure found here, with up to three values, and gives back `code`.
  unsigned int fail(unsigned int code, unsigned int point) const noexcept;
  unsigned int fail(unsigned int code, unsigned int point, LogValue first) const noexcept;
  unsigned int fail(unsigned int code, unsigned int point, LogValue first,
                    LogValue second) const noexcept;
  unsigned int fail(unsigned int code, unsigned int point, LogValue first, LogValue second,
                    LogValue third) const noexcept;

  // Logs something odd that is no failure of the routine, with a severity of its own.
  void note(unsigned int code, unsigned int point, unsigned int severity,
            LogValue value) const noexcept;

  // Logs that a callee failed and gives back `code`, the routine's own.
  unsigned int failFrom(unsigned int calleeProbe, unsigned int calleeCode, unsigned int code,
                        unsigned int point, unsigned int severity = failureSeverity) const noexcept;
  unsigned int failFrom(Function callee, unsigned int calleeCode, unsigned int code,
                        unsigned int point, unsigned int severity = failureSeverity) const noexcept;

  // Logs a system error of the stream layer with the file's name and gives back `code`.
  // `systemCall` is one of OSS_SYSCALL_...
  unsigned int failSystem(int error, unsigned int code, unsigned int point, const char* path,
                          unsigned int systemCall = OSS_SYSCALL_RUNTIME) const noexcept;

  // Records a value while tracing is on.
  void trace(unsigned int point, LogValue value) const noexcept;

 private:
  void traceEntry() const noexcept;
  void traceExit() const noexcept;
  void log(unsigned int code, unsigned int point, unsigned int severity, unsigned int count,
           const LogValue (&values)[3]) const noexcept;

  unsigned int probe_;
  unsigned int result_;
};

// The result of an operation of several steps: the first failure wins.
class Outcome {
 public:
  bool ok() const noexcept { return code_ == 0; }
  unsigned int code() const noexcept { return code_; }
  void note(unsigned int code) noexcept {
    if (code_ == 0) code_ = code;
  }
  void replace(unsigned int code) noexcept { code_ = code; }

 private:
  unsigned int code_ = 0;
};

}  // namespace genreg
