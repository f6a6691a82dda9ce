// The one seam through which tests make system calls fail, fall short, or end the process.
//
// Every memory and file operation of the system services and of the stream layer passes
// ossFaultPoint just before its system call. Without a hook that is one load and one branch.
#pragma once

#include "sysservices/export.h"

// What a hook answers: 0 lets the call happen; a positive number is the errno the call fails with;
// OSS_FAULT_SHORT makes a write or read transfer about half of what was asked, ossFaultAtMost(n) at
// most n bytes (n at least 1).
constexpr int OSS_FAULT_SHORT = -1;
constexpr int ossFaultAtMost(int bytes) { return OSS_FAULT_SHORT - bytes; }

// `operation` is the system call's name ("open", "flock", "write", "fsync", "malloc", "free", ...);
// `path` the file's path where the call takes one, else null.
using OSSFaultHook = int (*)(const char* operation, const char* path, void* context);

// Installs a hook for the whole process; null removes it. Not to be called while another thread is
// inside the library.
ZOROSSE_API void ossSetFaultHook(OSSFaultHook hook, void* context);

ZOROSSE_API int ossFaultPoint(const char* operation, const char* path);
