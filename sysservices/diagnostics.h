// Trace and log of the system services.
//
// Log records are made for every failure; trace records only while the trace control block says so.
// Where they go: a callback when one is installed, and one appended line of key=value pairs per
// record on the file named by the environment variable ZOROSSE_LOG ("stderr" for standard error;
// unset or empty: nowhere). On Windows "debugger" is the debugger of the process, or whoever else
// listens to debug output, and "eventlog" the event log "Application", source "zorgenreg64", which
// gets the failures but no trace; elsewhere, and spelled ".\debugger", these are files.
// ZOROSSE_TRACE=1 switches tracing on when the library is loaded.
// All functions may be called from several threads.
#pragma once

#include <cstddef>
#include <cstdint>

#include "sysservices/export.h"

// The trace control block; tracing is on while `enabled` is not zero.
struct OSSTraceControlBlock {
  std::uint32_t version;
  std::uint32_t enabled;
};

extern "C" {
extern ZOROSSE_API OSSTraceControlBlock* g_pGTCB;
}

// Types of a logged value.
constexpr int OSS_LOG_UINT64 = -1;
constexpr int OSS_LOG_FLAG = -2;
constexpr int OSS_LOG_INT32 = -3;
constexpr int OSS_LOG_STRING = -5;

// System-call identifiers given to ossErrorMapSystem.
constexpr unsigned int OSS_SYSCALL_RUNTIME = 0x0814002Cu;
constexpr unsigned int OSS_SYSCALL_REGISTRY = 0x08140093u;
constexpr unsigned int OSS_SYSCALL_CLOSE = 0x08140006u;

enum class OSSRecordKind { Log, LogCallee, Entry, Exit, Variables, ErrorVariables };

struct OSSDiagnosticValue {
  const void* address;
  std::size_t length;  // bytes
  int type;            // one of OSS_LOG_...; 0 for a traced value
};

// One trace or log record as a callback receives it; valid only during the call.
struct OSSDiagnosticRecord {
  OSSRecordKind kind;
  unsigned int probe;
  unsigned int code;
  unsigned int calleeProbe;  // LogCallee only
  unsigned int calleeCode;   // LogCallee only
  unsigned int point;
  unsigned int severity;
  unsigned int valueCount;
  const OSSDiagnosticValue* values;
};

using OSSDiagnosticCallback = void (*)(const OSSDiagnosticRecord& record, void* context);
// Gives the name of a routine's probe or of a return code, or null when it is not known.
using OSSNameLookup = const char* (*)(unsigned int value);

// Installs the callback that receives every record from now on; null removes it. Threads that
// report at once call it at once; while it is exchanged, none may report.
ZOROSSE_API void ossSetDiagnosticCallback(OSSDiagnosticCallback callback, void* context);

// Tells the log how a library on top calls its routines and codes.
ZOROSSE_API void ossSetDiagnosticNames(OSSNameLookup routineName, OSSNameLookup codeName);

// Identifies the calling thread; the low 32 bits open every trace call.
ZOROSSE_API std::uint64_t ossThreadID();

ZOROSSE_API void _gtraceEntry(std::uint32_t thread, unsigned int probe);
// `resultAddress` is the address of the return code (unsigned int), widened to 64 bits.
ZOROSSE_API void _gtraceExit(std::uint32_t thread, unsigned int probe, std::uint64_t resultAddress,
                             int zero);
// `count` values follow, each as: 0 (int), byte length (std::size_t), address (const void*).
ZOROSSE_API void _gtraceVar(std::uint32_t thread, unsigned int probe, unsigned int point, int three,
                            unsigned int count, ...);
ZOROSSE_API void _gtraceErrorVar(std::uint32_t thread, unsigned int probe, unsigned int point,
                                 int four, int zero, unsigned int count, ...);

// Logs a failure that the routine detected itself. `count` values follow, each as: address
// (const void*), byte length (std::size_t), type (int, OSS_LOG_...).
ZOROSSE_API void ossLog(int zero, unsigned int probe, unsigned int code, unsigned int point,
                        unsigned int severity, unsigned int count, ...);

// Logs a failure that came from a callee.
ZOROSSE_API void ossLogRC(int zero, unsigned int probe, unsigned int calleeProbe,
                          unsigned int calleeCode, unsigned int code, unsigned int point,
                          unsigned int severity, int zero2);

// The text of an error number of the system (errno), which may stand in `buffer` of `size` bytes.
ZOROSSE_API const char* ossErrorText(int error, char* buffer, std::size_t size);

// Turns a system error (errno, or the registry's own number for OSS_SYSCALL_REGISTRY) into a code
// of the system-services space and logs it with the error number. Error 0 gives
// OSS_RC_SYSTEM_ERROR: a failure stays a failure.
ZOROSSE_API unsigned int ossErrorMapSystem(unsigned int probe, unsigned int point,
                                           unsigned int systemCall, int error, int zero);
