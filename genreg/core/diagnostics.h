// Trace, log and result of one routine.
//
//   Routine routine(Function::openScan);                    // entry record
//   if (!opened) routine.fail(GENREG_RC_OPEN_FAILED, 20, text(path));
//   return routine.code();                                  // exit record with the first failure
//
// Entry, exit and values are recorded only while tracing is on, which is asked before each record;
// failures are logged always, where they are detected (fail); a routine that turns a callee's code
// into its own logs again, naming the callee (failFrom). The first failure is the routine's result;
// one of a clean-up step (cleanUpFailed) only when nothing else failed.
#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>

#include "genreg/core/routine_numbers.h"
#include "sysservices/diagnostics.h"

namespace genreg {

using Code = unsigned int;

using LogValue = OSSDiagnosticValue;

constexpr unsigned int failureSeverity = 2;

inline bool tracingOn() noexcept { return g_pGTCB != nullptr && g_pGTCB->enabled != 0; }

// Gives the log the names of routines and codes, once; for whoever logs without a Routine.
void handOverNames() noexcept;

// Values that describe a failure. The referenced object must live until the call ends.
LogValue text(const char* value) noexcept;
LogValue number(const std::int32_t& value) noexcept;
LogValue number(const std::uint32_t& value) noexcept;  // also a code
LogValue number(const std::uint64_t& value) noexcept;
LogValue flag(const std::uint8_t& value) noexcept;

// Logs a failure of a routine that is not traced, and gives back `code`.
Code logFailure(Function function, Code code, unsigned int point) noexcept;

// What first went wrong in an operation on a handle, in words.
class Cause {
 public:
  explicit Cause(const char* path) noexcept : path_(path) {}

  const char* text() const noexcept { return text_; }
  // Whether what failed first was that there is no such file.
  bool isMissingFile() const noexcept;
  void clear() noexcept {
    text_[0] = '\0';
    root_ = 0;
  }
  // A failure, made of what codes mean and of a text, unless there is one already.
  void explain(Code code, Code calleeCode = 0, const char* more = nullptr) noexcept;

  // The cause of this thread's operation, in which routines explain their failures; or null. Of the
  // static model: every record that is read sets it.
  [[gnu::tls_model("initial-exec")]] static thread_local Cause* active;

 private:
  const char* path_;
  char text_[512] = "";
  Code root_ = 0;  // the first failure's innermost code
};

class Routine {
 public:
  explicit Routine(Function function) noexcept : probe_(probeOf(function)) {
    if (tracingOn()) traceEntry();
  }
  ~Routine() {
    if (tracingOn()) traceExit();
  }
  Routine(const Routine&) = delete;
  Routine& operator=(const Routine&) = delete;

  bool ok() const noexcept { return failure_ == 0; }
  Code code() const noexcept { return failure_ != 0 ? failure_ : cleanUpFailure_; }

  // Keeps a result that is nothing to log about. False unless it is 0.
  bool end(Code code) noexcept {
    if (failure_ == 0) failure_ = code;
    return code == 0;
  }
  // For a routine that answers with something else than a code: gives it back.
  unsigned int answer(unsigned int value) noexcept {
    failure_ = value;
    return value;
  }
  // Replaces whatever the result was.
  void replace(Code code) noexcept { failure_ = code; }

  // A failure found here, with up to four values. Always false.
  template <typename... Values>
  bool fail(Code code, unsigned int point, const Values&... values) noexcept {
    log(code, point, failureSeverity, {values...});
    if (Cause::active != nullptr) explain(code, {values...});
    return end(code);
  }
  // The same for a routine without steps: gives back the code.
  template <typename... Values>
  Code refuse(Code code, unsigned int point, const Values&... values) noexcept {
    (void)fail(code, point, values...);
    return code;
  }
  // A callee's failure, which becomes `code`. Always false.
  bool failFrom(unsigned int calleeProbe, Code calleeCode, Code code, unsigned int point,
                unsigned int severity = failureSeverity) noexcept;
  bool failFrom(Function callee, Code calleeCode, Code code, unsigned int point,
                unsigned int severity = failureSeverity) noexcept {
    return failFrom(probeOf(callee), calleeCode, code, point, severity);
  }
  // The same, and at the next point what it is about.
  template <typename... Values>
  bool failAbout(unsigned int calleeProbe, Code calleeCode, Code code, unsigned int point,
                 const Values&... values) noexcept {
    (void)failFrom(calleeProbe, calleeCode, code, point);
    return fail(code, point + 1, values...);
  }
  // The same for a routine without steps: gives back the code.
  template <typename Callee>
  Code refuseFrom(Callee callee, Code calleeCode, Code code, unsigned int point) noexcept {
    (void)failFrom(callee, calleeCode, code, point);
    return code;
  }
  // A system error with the name of the file it is about. `systemCall` is one of OSS_SYSCALL_...
  // Always false.
  bool failSystem(int error, Code code, unsigned int point, const char* path,
                  unsigned int systemCall = OSS_SYSCALL_RUNTIME) noexcept;

  // A clean-up step's failure, logged by the caller through one of the above.
  class CleanUp {
   public:
    explicit CleanUp(Routine& routine) noexcept : routine_(routine), before_(routine.failure_) {
      routine_.failure_ = 0;
    }
    ~CleanUp() {
      if (routine_.cleanUpFailure_ == 0) routine_.cleanUpFailure_ = routine_.failure_;
      routine_.failure_ = before_;
    }
    CleanUp(const CleanUp&) = delete;
    CleanUp& operator=(const CleanUp&) = delete;

   private:
    Routine& routine_;
    Code before_;
  };

  // Logs something odd that is no failure of the routine, with a severity of its own.
  template <typename... Values>
  void note(Code code, unsigned int point, unsigned int severity,
            const Values&... values) const noexcept {
    log(code, point, severity, {values...});
  }

  // Records a value while tracing is on.
  void trace(unsigned int point, LogValue value) const noexcept;

 private:
  void traceEntry() const noexcept;
  void traceExit() const noexcept;
  void log(Code code, unsigned int point, unsigned int severity,
           std::initializer_list<LogValue> values) const noexcept;

  static void explain(Code code, std::initializer_list<LogValue> values) noexcept;

  unsigned int probe_;
  Code failure_ = 0;
  Code cleanUpFailure_ = 0;
};

}  // namespace genreg
