#include "install/export_log.h"

#include "sysservices/diagnostics.h"

namespace install {
namespace {
std::uint32_t thread() { return static_cast<std::uint32_t>(ossThreadID()); }
}  // namespace

unsigned int logCallee(genreg::Function routine, genreg::Function callee, unsigned int calleeCode,
                       unsigned int code, unsigned int point) noexcept {
  genreg::handOverNames();
  ossLogRC(0, genreg::probeOf(routine), genreg::probeOf(callee), calleeCode, code, point,
           genreg::failureSeverity, 0);
  return code;
}

void traceCode(genreg::Function routine, unsigned int point, unsigned int code) noexcept {
  if (!genreg::tracingOn()) return;
  _gtraceVar(thread(), genreg::probeOf(routine), point, 3, 1, 0, sizeof code, &code);
}

void traceErrorCode(genreg::Function routine, unsigned int point, unsigned int code) noexcept {
  if (!genreg::tracingOn()) return;
  _gtraceErrorVar(thread(), genreg::probeOf(routine), point, 4, 0, 1, 0, sizeof code, &code);
}

unsigned int mapRegistryError(genreg::Function routine, unsigned int error) noexcept {
  genreg::handOverNames();
  return ossErrorMapSystem(genreg::probeOf(routine), 10, OSS_SYSCALL_REGISTRY,
                           static_cast<int>(error), 0);
}

}  // namespace install
