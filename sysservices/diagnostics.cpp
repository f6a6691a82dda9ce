// Trace and log records: to the callback, and as lines of key=value pairs to the log file.
//
// The log must never make an operation fail or change errno.
#include "sysservices/diagnostics.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "sysservices/environment.h"
#include "sysservices/file_handle.h"
#include "sysservices/inner/error_codes.h"
#include "sysservices/inner/log_output.h"
#include "sysservices/return_codes.h"

namespace {

bool tracingRequested() {
  const char* setting = std::getenv("ZOROSSE_TRACE");
  return setting != nullptr && std::strcmp(setting, "1") == 0;
}

OSSTraceControlBlock controlBlock{1, tracingRequested() ? 1u : 0u};

std::atomic<OSSDiagnosticCallback> installedCallback{nullptr};
std::atomic<void*> installedContext{nullptr};
std::atomic<OSSNameLookup> routineLookup{nullptr};
std::atomic<OSSNameLookup> codeLookup{nullptr};

constexpr unsigned int maxValues = 8;

const char* systemCodeName(unsigned int code) {
  struct Row {
    unsigned int code;
    const char* name;
  };
#define OSS_CODE_ROW(name, value, meaning) {value, #name},
  static constexpr Row rows[] = {OSS_RETURN_CODES(OSS_CODE_ROW)};
#undef OSS_CODE_ROW
  for (const Row& row : rows) {
    if (row.code == code) return row.name;
  }
  return "-";
}

const char* codeName(unsigned int code) {
  const OSSNameLookup lookup = codeLookup.load(std::memory_order_acquire);
  const char* name = lookup == nullptr ? nullptr : lookup(code);
  return name != nullptr ? name : systemCodeName(code);
}

const char* routineName(unsigned int probe) {
  const OSSNameLookup lookup = routineLookup.load(std::memory_order_acquire);
  const char* name = lookup == nullptr ? nullptr : lookup(probe);
  return name != nullptr ? name : "-";
}

const char* kindName(OSSRecordKind kind) {
  static constexpr const char* names[] = {"log", "log", "entry", "exit", "var", "errorvar"};
  return names[static_cast<std::size_t>(kind)];
}

// One line under construction; what does not fit is cut, the newline always fits.
class Line {
 public:
  __attribute__((format(OSS_PRINTF_FORMS, 2, 3))) void add(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int written = std::vsnprintf(text_ + length_, room(), format, arguments);
    va_end(arguments);
    if (written > 0) length_ += std::min(static_cast<std::size_t>(written), room() - 1);
  }

  // Text of a caller or a file: what could break the line is shown as hexadecimal.
  void addQuoted(const unsigned char* bytes, std::size_t count) {
    add("\"");
    for (std::size_t i = 0; i < count && bytes[i] != 0; ++i) {
      const bool plain = bytes[i] >= 0x20 && bytes[i] < 0x7F && bytes[i] != '"' && bytes[i] != '\\';
      plain ? add("%c", bytes[i]) : add("\\x%02x", bytes[i]);
    }
    add("\"");
  }

  void addHexadecimal(const unsigned char* bytes, std::size_t count) {
    for (std::size_t i = 0; i < count && i < 64; ++i) add("%02x", bytes[i]);
  }

  void write(const char* target, const OSSDiagnosticRecord& record) {
    text_[length_++] = '\n';
    const bool isTrace =
        record.kind != OSSRecordKind::Log && record.kind != OSSRecordKind::LogCallee;
    oss::appendToLog(target, text_, length_, isTrace);
  }

 private:
  std::size_t room() const { return sizeof text_ - 1 - length_; }

  char text_[4096];
  std::size_t length_ = 0;
};

template <typename Number>
Number numberAt(const OSSDiagnosticValue& value) {
  Number number = 0;
  if (value.length == sizeof number) std::memcpy(&number, value.address, sizeof number);
  return number;
}

// A return code among the values is shown as it stands everywhere else, to be searched for.
void addInteger(Line& line, std::uint32_t number) {
  constexpr std::uint32_t space = 0xFFFF0000u;
  if ((number & space) == 0x90000000u) {
    line.add("0x%08X", number);
  } else {
    line.add("%d", static_cast<std::int32_t>(number));
  }
}

void addValue(Line& line, unsigned int index, const OSSDiagnosticValue& value) {
  line.add(" value%u=", index);
  if (value.address == nullptr) {
    line.add("null");
    return;
  }
  const auto* bytes = static_cast<const unsigned char*>(value.address);
  switch (value.type) {
    case OSS_LOG_STRING:
      line.addQuoted(bytes, value.length);
      break;
    case OSS_LOG_UINT64:
      line.add("0x%llx", static_cast<unsigned long long>(numberAt<std::uint64_t>(value)));
      break;
    case OSS_LOG_INT32:
      addInteger(line, numberAt<std::uint32_t>(value));
      break;
    case OSS_LOG_FLAG:
      line.add("%d", static_cast<int>(numberAt<std::uint8_t>(value)));
      break;
    default:
      line.addHexadecimal(bytes, value.length);
  }
}

void formatLine(Line& line, const OSSDiagnosticRecord& record) {
  const oss::LogTime now = oss::logTime();
  line.add("time=%lld.%06ld pid=%d tid=%u event=%s probe=0x%08X code=0x%08X point=%u severity=%u",
           now.seconds, now.microseconds, oss::processNumber(),
           static_cast<unsigned int>(ossThreadID()), kindName(record.kind), record.probe,
           record.code, record.point, record.severity);
  line.add(" routine=%s name=%s", routineName(record.probe), codeName(record.code));
  if (record.kind == OSSRecordKind::LogCallee) {
    line.add(" callee=0x%08X calleecode=0x%08X calleeroutine=%s calleename=%s", record.calleeProbe,
             record.calleeCode, routineName(record.calleeProbe), codeName(record.calleeCode));
  }
  for (unsigned int i = 0; i < record.valueCount; ++i) addValue(line, i + 1, record.values[i]);
}

void writeLine(const OSSDiagnosticRecord& record) {
  char target[OSS_FULL_PATH_SIZE];
  const std::ptrdiff_t length = ossEnvironmentGet("ZOROSSE_LOG", target, sizeof target);
  if (length <= 0 || length >= std::ptrdiff_t{sizeof target}) return;
  Line line;
  formatLine(line, record);
  line.write(target, record);
}

void emit(const OSSDiagnosticRecord& record) {
  const int saved = errno;
  if (const OSSDiagnosticCallback callback = installedCallback.load(std::memory_order_acquire)) {
    callback(record, installedContext.load(std::memory_order_relaxed));
  }
  writeLine(record);
  errno = saved;
}

void emitTraced(OSSRecordKind kind, unsigned int probe, unsigned int point, unsigned int count,
                va_list arguments) {
  OSSDiagnosticValue values[maxValues];
  const unsigned int taken = std::min(count, maxValues);
  for (unsigned int i = 0; i < taken; ++i) {
    (void)va_arg(arguments, int);
    values[i].length = va_arg(arguments, std::size_t);
    values[i].address = va_arg(arguments, const void*);
    values[i].type = 0;
  }
  emit({kind, probe, 0, 0, 0, point, 0, taken, values});
}

}  // namespace

OSSTraceControlBlock* g_pGTCB = &controlBlock;

void ossSetDiagnosticCallback(OSSDiagnosticCallback callback, void* context) {
  installedContext.store(context, std::memory_order_relaxed);
  installedCallback.store(callback, std::memory_order_release);
}

void ossSetDiagnosticNames(OSSNameLookup routineNames, OSSNameLookup codeNames) {
  routineLookup.store(routineNames, std::memory_order_release);
  codeLookup.store(codeNames, std::memory_order_release);
}

void _gtraceEntry(std::uint32_t, unsigned int probe) {
  emit({OSSRecordKind::Entry, probe, 0, 0, 0, 0, 0, 0, nullptr});
}

void _gtraceExit(std::uint32_t, unsigned int probe, std::uint64_t resultAddress, int) {
  unsigned int code = 0;
  // The call hands the address over as a number.
  // NOLINTNEXTLINE(performance-no-int-to-ptr)
  std::memcpy(&code, reinterpret_cast<const void*>(static_cast<std::uintptr_t>(resultAddress)),
              sizeof code);
  emit({OSSRecordKind::Exit, probe, code, 0, 0, 0, 0, 0, nullptr});
}

void _gtraceVar(std::uint32_t, unsigned int probe, unsigned int point, int, unsigned int count,
                ...) {
  va_list arguments;
  va_start(arguments, count);
  emitTraced(OSSRecordKind::Variables, probe, point, count, arguments);
  va_end(arguments);
}

void _gtraceErrorVar(std::uint32_t, unsigned int probe, unsigned int point, int, int,
                     unsigned int count, ...) {
  va_list arguments;
  va_start(arguments, count);
  emitTraced(OSSRecordKind::ErrorVariables, probe, point, count, arguments);
  va_end(arguments);
}

void ossLog(int, unsigned int probe, unsigned int code, unsigned int point, unsigned int severity,
            unsigned int count, ...) {
  OSSDiagnosticValue values[maxValues];
  va_list arguments;
  va_start(arguments, count);
  const unsigned int taken = std::min(count, maxValues);
  for (unsigned int i = 0; i < taken; ++i) {
    values[i].address = va_arg(arguments, const void*);
    values[i].length = va_arg(arguments, std::size_t);
    values[i].type = va_arg(arguments, int);
  }
  va_end(arguments);
  emit({OSSRecordKind::Log, probe, code, 0, 0, point, severity, taken, values});
}

void ossLogRC(int, unsigned int probe, unsigned int calleeProbe, unsigned int calleeCode,
              unsigned int code, unsigned int point, unsigned int severity, int) {
  emit({OSSRecordKind::LogCallee, probe, code, calleeProbe, calleeCode, point, severity, 0,
        nullptr});
}

const char* ossErrorText(int error, char* buffer, std::size_t size) {
  return oss::textOfSystemError(OSS_SYSCALL_RUNTIME, error, buffer, size);
}

unsigned int ossErrorMapSystem(unsigned int probe, unsigned int point, unsigned int systemCall,
                               int error, int) {
  const unsigned int code = oss::codeOfSystemError(systemCall, error);
  const std::uint64_t call = systemCall;
  const std::int32_t number = error;
  char message[128];
  const char* text = oss::textOfSystemError(systemCall, error, message, sizeof message);
  ossLog(0, probe, code, point, 2, 3, &call, sizeof call, OSS_LOG_UINT64, &number, sizeof number,
         OSS_LOG_INT32, text, std::strlen(text), OSS_LOG_STRING);
  return code;
}
