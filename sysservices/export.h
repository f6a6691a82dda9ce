// Visibility of the system-services library's names.
#pragma once

#if defined(_WIN32) && !defined(ZORGENREG64_STATIC)
#if defined(ZOROSSE_BUILDING)
#define ZOROSSE_API __declspec(dllexport)
#else
#define ZOROSSE_API __declspec(dllimport)
#endif
#else
#define ZOROSSE_API __attribute__((visibility("default")))
#endif
