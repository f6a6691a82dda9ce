// The installation directory: which copies of the product a machine has, which instances were made
// from them, and the version codes that both carry.
//
// A list is opened, walked entry by entry into a record of the caller, and closed:
//
//   void* list = nullptr;
//   if (ossOpenServiceList(&list) == 0) {
//     OSSServiceInfo_t copy;
//     while (ossGetNextService(list, &copy) == 0) std::puts(copy.installPath);
//     (void)ossCloseServiceList(list);
//   }
//
// Everything is read from the machine's registry and nothing is ever written. On Linux the registry
// is the export file that the environment variable ZOROSSE_REGISTRY_FILE names (and, for another
// machine, <machine>.reg beside it). An export is parsed once per process as long as its file stays
// the same, and a list sees the registry as it was when the list was opened. An export that cannot
// be read as a whole is logged with its path, the line and the reason, and is an empty registry.
//
// A list serves one thread at a time; different lists may be used by different threads. Codes are
// those of genreg_codes.h and sysservices/return_codes.h, 0 is success; text is in the system's
// 8-bit encoding (UTF-8 on Linux). No function throws.
#pragma once

#include <cstdint>

#include "genreg_codes.h"
#include "genreg_export.h"

// One installed copy. All text is NUL-terminated.
struct OSSServiceInfo_t {
  std::uint64_t flags;        // 0
  std::uint64_t versionCode;  // as ossVersionStringToCode makes it
  char service[64];           // "ZOR", or "ZEM" for the one copy that provides it
  char installPath[1024];     // its directory, at most 259 bytes
  char text2[1024];           // empty
  char text3[256];            // empty
  std::uint32_t level;        // the modification part of versionCode
  std::uint32_t number1;      // 0
  std::uint8_t byte1;         // 0
  std::uint32_t number2;      // 0
  std::uint32_t number3;      // 0
  char copyName[129];         // empty for the copy of the older layout, which has no name
};

// Bits of OSSInstanceInfo_t::flags.
constexpr std::uint64_t OSS_INSTANCE_AUTOSTART = 0x1;  // its service starts with the machine
constexpr std::uint64_t OSS_INSTANCE_REMOTE = 0x4;     // another machine holds its profile
constexpr std::uint64_t OSS_INSTANCE_CLUSTER = 0x8;    // the cluster holds its profile
constexpr std::uint64_t OSS_INSTANCE_DISABLED = 0x10;  // its service cannot be started

// The bits as words, in the order in which they are shown.
struct OSSInstanceFlag {
  std::uint64_t bit;  // OSS_INSTANCE_...
  const char* name;   // one word
};
// All of them.
inline constexpr OSSInstanceFlag ossInstanceFlags[] = {{OSS_INSTANCE_AUTOSTART, "autostart"},
                                                       {OSS_INSTANCE_DISABLED, "disabled"},
                                                       {OSS_INSTANCE_REMOTE, "remote"},
                                                       {OSS_INSTANCE_CLUSTER, "cluster"}};

// One instance. All text is NUL-terminated.
struct OSSInstanceInfo_t {
  std::uint64_t flags;        // OSS_INSTANCE_... bits
  std::uint64_t versionCode;  // of the copy
  char instanceName[64];      // of a longer name, the whole characters of the first 63 bytes
  char service[64];           // "ZOR" or "ZEM", the kind of the list
  char instancePath[1024];    // profile directory; for kind "ZOR" it ends in "\" and the whole name
  char usage[64];             // empty
  char installPath[1024];     // of the copy
  char hostName[64];          // the machine or cluster that holds the profile, else empty
  char comment[256];          // empty
  char copyName[129];         // as in OSSServiceInfo_t
};

// Opens the list of installed copies: first those with a name, in the registry's order, then the
// copy of the older layout when its version is 8 or less. The first copy with ZEM profiles comes
// twice: as "ZEM", then as "ZOR" (the copy of the older layout as "ZEM" only).
// Returns 0 and the handle at *list, to be closed with ossCloseServiceList; or
// GENREG_RC_LIST_OPEN when there is no registry, no key of installed copies, no memory, or `list`
// is null; *list is untouched then, and the log says why.
GENREG_API unsigned int ossOpenServiceList(void** list) noexcept;

// Clears `record` and fills it with the next copy.
// Returns 0; GENREG_RC_END after the last; GENREG_RC_NO_LIST and GENREG_RC_NO_SERVICE_RECORD for a
// null argument; GENREG_RC_NEXT_SERVICE when this copy cannot be read (its version is missing, its
// path is missing or longer than 259 bytes, its name longer than 128): the record's copyName then
// says which one it was, empty when there is no name, its other fields are not to be used, and the
// next call goes on with the next entry.
GENREG_API unsigned int ossGetNextService(void* list, OSSServiceInfo_t* record) noexcept;

// Closes a list; the handle must not be used again, whatever the result.
// Returns 0; GENREG_RC_NO_LIST for null; GENREG_RC_LIST_CLOSE when its memory could not be
// released.
GENREG_API unsigned int ossCloseServiceList(void* list) noexcept;

// Finds the first copy that agrees with every given argument: `service` and `installPath` are
// compared exactly, null matches any; `versionCode` 0 matches any. The longer form compares the
// copy's name too ("" is the copy of the older layout).
// Returns 0 and the copy in `record`; GENREG_RC_NO_SERVICE_RECORD when `record` is null;
// GENREG_RC_SERVICE_INFO when none matches, a copy before it cannot be read, or the list cannot be
// opened; the record then holds whatever was read last.
GENREG_API unsigned int ossGetServiceInfo(const char* service, std::uint64_t versionCode,
                                          const char* installPath,
                                          OSSServiceInfo_t* record) noexcept;
GENREG_API unsigned int ossGetServiceInfo(const char* service, std::uint64_t versionCode,
                                          const char* installPath, const char* copyName,
                                          OSSServiceInfo_t* record) noexcept;

// Not possible on this platform; nothing changes. Return OSS_RC_NOT_SUPPORTED, or
// GENREG_RC_NO_SERVICE_RECORD for a null record.
GENREG_API unsigned int ossSetServiceInfo(OSSServiceInfo_t* record) noexcept;
GENREG_API unsigned int ossRemoveServiceInfo(const char* service,
                                             std::uint64_t versionCode) noexcept;

// Opens the list of instances of `kind`, exactly "ZOR" or "ZEM": copy by copy in the registry's
// order, those of the copy of the older layout last and only when its version is 8 or less.
// Returns 0 and the handle at *list, to be closed with ossCloseInstanceList; GENREG_RC_NO_KIND for
// a null kind; GENREG_RC_LIST_OPEN for another kind, a null `list`, or when the copies cannot be
// walked; GENREG_RC_KEY_NOT_FOUND when no copy has instances of the kind; OSS_RC_NO_MEMORY; or,
// where the registry refuses to open the copies' key, what its error stands for:
// OSS_RC_ACCESS_DENIED, OSS_RC_IO_ERROR, OSS_RC_TOO_MANY_FILES, OSS_RC_BAD_PARAMETER or another
// code of sysservices/return_codes.h, OSS_RC_SYSTEM_ERROR for an error that has none. *list is
// untouched after a failure.
GENREG_API unsigned int ossOpenInstanceList(const char* kind, void** list) noexcept;

// Clears `record` and fills it with the next instance. Reading one may ask the service control
// manager, another machine's registry or the cluster. Returns 0; GENREG_RC_END after the last;
// GENREG_RC_NO_LIST and GENREG_RC_NO_INSTANCE_RECORD for a null argument; GENREG_RC_NEXT_INSTANCE
// when this instance cannot be read. When its profile could not be read (another machine or the
// cluster does not answer, the directory would be too long) the next call goes on with the next
// instance; when the copy's version or path, the instance's own key or memory is missing, the next
// call meets the same instance again. The record's instanceName and copyName then say which one it
// was. instanceName is empty when the instances or copies themselves cannot be walked further;
// where it was the next copy that could not be reached (its name is longer than 128 bytes), that
// ends the list. The record's other fields are not to be used after a failure.
GENREG_API unsigned int ossGetNextInstance(void* list, OSSInstanceInfo_t* record) noexcept;

// Closes a list; the handle must not be used again, whatever the result.
// Returns 0; GENREG_RC_NO_LIST for null; GENREG_RC_LIST_CLOSE when its memory could not be
// released.
GENREG_API unsigned int ossCloseInstanceList(void* list) noexcept;

// Finds the first instance that agrees with every given argument. `kind` null or "ZOR" searches the
// "ZOR" instances, any other text the "ZEM" ones. `instanceName` is taken in upper case and
// compared exactly, so it finds names stored in upper case; null matches any. `versionCode` 0
// matches any. The longer form compares the copy's name too, exactly; null matches any.
// Returns 0 and the instance in `record`; GENREG_RC_NO_INSTANCE_RECORD when `record` is null;
// GENREG_RC_INSTANCE_INFO when none matches, an instance before it cannot be read, or the list
// cannot be opened; the record then holds whatever was read last.
GENREG_API unsigned int ossGetInstanceInfo(const char* kind, std::uint64_t versionCode,
                                           const char* instanceName,
                                           OSSInstanceInfo_t* record) noexcept;
GENREG_API unsigned int ossGetInstanceInfo(const char* kind, std::uint64_t versionCode,
                                           const char* instanceName, const char* copyName,
                                           OSSInstanceInfo_t* record) noexcept;

// Not possible on this platform; nothing changes. Return OSS_RC_NOT_SUPPORTED, or
// GENREG_RC_NO_INSTANCE_RECORD for a null record.
GENREG_API unsigned int ossSetInstanceInfo(OSSInstanceInfo_t* record) noexcept;
GENREG_API unsigned int ossRemoveInstanceInfo(const char* kind, std::uint64_t versionCode,
                                              const char* instanceName) noexcept;

// Version codes: version, release, modification and service level, 16 bits each, the version in the
// highest bits. 9.1.0.0 is 0x0009000100000000, and 9010000 as a packed decimal number. These four
// functions may be called from any thread and neither trace nor log.
extern "C" {

// Reads up to four decimal parts separated by "."; an empty or missing part is 0, a part keeps its
// low 16 bits, and only the first 23 characters count.
// Returns 0 and the code at *versionCode; GENREG_RC_VERSION_ARGUMENT for a null argument;
// GENREG_RC_VERSION_SYNTAX for a fifth part or anything but digits. *versionCode is untouched after
// a failure.
GENREG_API unsigned int ossVersionStringToCode(const char* text,
                                               std::uint64_t* versionCode) noexcept;

// Writes the four parts, separated by ".", into `buffer` of `size` bytes; 24 always suffice.
// Returns 0; GENREG_RC_VERSION_ARGUMENT for a null buffer; GENREG_RC_VERSION_BUFFER when text and
// terminator do not fit; GENREG_RC_VERSION_FORMAT when the C library cannot make the text. The
// buffer is untouched after a failure.
GENREG_API unsigned int ossVersionCodeToString(std::uint64_t versionCode, char* buffer,
                                               std::uint64_t size) noexcept;

// The packed decimal number of a code: two digits for each part below the version. Exact for parts
// up to 99; a larger part is written in full and moves those before it, and a number that an int
// cannot hold is of no use.
GENREG_API int ossVersionCodeServiceToZOR(std::uint64_t versionCode) noexcept;

// The code of a packed decimal number; digits above the eighth are dropped.
GENREG_API std::uint64_t ossVersionCodeZORToService(unsigned int packed) noexcept;
}
