// Visibility of the registry library's names.
#pragma once

#if defined(_WIN32) && !defined(ZORGENREG64_STATIC)
#if defined(ZORGENREG64_BUILDING)
#define GENREG_API __declspec(dllexport)
#else
#define GENREG_API __declspec(dllimport)
#endif
#else
#define GENREG_API __attribute__((visibility("default")))
#endif
