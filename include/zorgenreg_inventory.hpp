// The installed copies of the product and the instances made from them, as vectors.
//
// copies() and instances() each read the machine's installation directory anew; there is nothing to
// open or close. What cannot be read does not hide the rest where a std::error_code is given.
//
//   for (const zor::Copy& copy : zor::copies()) {
//     std::cout << copy.name << ' ' << zor::versionText(copy.versionCode) << '\n';
//   }
//   std::error_code unread;
//   for (const zor::Instance& each : zor::instances("ZOR", unread)) std::cout << each.name << '\n';
//   if (unread) std::cout << "not all: " << unread.message() << '\n';
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <string>
#include <system_error>
#include <type_traits>
#include <utility>
#include <vector>

#include "ossinstall.h"
#include "zorgenreg_records.hpp"

namespace zor {

// An installed copy; what ossinstall.h says of the fields of OSSServiceInfo_t.
struct Copy {
  std::string name;               // empty for the copy of the older layout
  std::string service;            // "ZOR" or "ZEM"
  std::uint64_t versionCode = 0;  // as ossVersionStringToCode makes it
  std::string installPath;        // its directory
};

// An instance; what ossinstall.h says of the fields of OSSInstanceInfo_t.
struct Instance {
  std::string name;               // as stored
  std::string service;            // "ZOR" or "ZEM"
  std::uint64_t versionCode = 0;  // of its copy
  std::string instancePath;       // its profile's directory
  std::string installPath;        // of its copy
  std::string hostName;           // the machine or cluster that holds the profile, else empty
  std::string copyName;           // of the copy it was made from
  std::uint64_t flags = 0;        // OSS_INSTANCE_... bits
};

namespace detail {

#ifdef ZOR_OVER_C

inline std::string textOf(const zorreg_record* record, const char* field) {
  const char* text = zorreg_record_get(record, field);
  return text == nullptr ? "" : text;
}
inline std::uint64_t versionIn(const zorreg_record* record) {
  std::uint64_t code = 0;
  (void)ossVersionStringToCode(textOf(record, "version").c_str(), &code);
  return code;
}

inline void read(const zorreg_record* info, Copy& copy) {
  copy = {textOf(info, "copyName"), textOf(info, "service"), versionIn(info),
          textOf(info, "installPath")};
}
inline void read(const zorreg_record* info, Instance& instance) {
  instance = {textOf(info, "instanceName"),
              textOf(info, "kind"),
              versionIn(info),
              textOf(info, "instancePath"),
              textOf(info, "installPath"),
              textOf(info, "hostName"),
              textOf(info, "copyName"),
              0};
  const std::string words = " " + textOf(info, "flags") + " ";
  for (const OSSInstanceFlag& row : ossInstanceFlags) {
    const bool isSet = words.find(" " + std::string(row.name) + " ") != std::string::npos;
    if (isSet) instance.flags |= row.bit;
  }
}

// All entries that can be read; the first failure, and of which entry.
template <typename Entry>
std::vector<Entry> readList(unsigned int code, zorreg_list* list, std::error_code& error) {
  const std::unique_ptr<zorreg_list, void (*)(zorreg_list*)> closing(list, zorreg_list_close);
  const std::unique_ptr<zorreg_record, void (*)(zorreg_record*)> info(zorreg_record_new(),
                                                                      zorreg_record_free);
  std::vector<Entry> entries;
  std::string which;
  if (info == nullptr) throw std::bad_alloc();
  unsigned int next = list == nullptr ? GENREG_RC_END : 0;
  while (next != GENREG_RC_END) {
    next = zorreg_list_next(list, info.get());
    if (next == OSS_RC_NO_MEMORY) throw std::bad_alloc();  // `info` does not say of which entry
    if (next == 0) read(info.get(), entries.emplace_back());
    if (next == 0 || next == GENREG_RC_END || code != 0) continue;
    code = next;
    const char* name = zorreg_record_get(info.get(), "instanceName");
    which =
        (name == nullptr ? "" : name + std::string(" of copy ")) + textOf(info.get(), "copyName");
  }
  report(code, which, error);
  return entries;
}

inline std::vector<Copy> readCopies(std::error_code& error) {
  zorreg_list* list = nullptr;
  const unsigned int code = zorreg_copies(&list);
  return readList<Copy>(code, list, error);
}
inline std::vector<Instance> readInstances(const char* kind, std::error_code& error) {
  zorreg_list* list = nullptr;
  const unsigned int code = zorreg_instances(kind, &list);
  return readList<Instance>(code, list, error);
}

#else

template <std::size_t size>
std::string textOf(const char (&field)[size]) {
  return textIn(field, size);
}

inline Copy read(const OSSServiceInfo_t& info) {
  return {textOf(info.copyName), textOf(info.service), info.versionCode, textOf(info.installPath)};
}
inline Instance read(const OSSInstanceInfo_t& info) {
  return {textOf(info.instanceName), textOf(info.service),
          info.versionCode,          textOf(info.instancePath),
          textOf(info.installPath),  textOf(info.hostName),
          textOf(info.copyName),     info.flags};
}

inline std::string entryOf(const OSSServiceInfo_t& info) { return textOf(info.copyName); }
inline std::string entryOf(const OSSInstanceInfo_t& info) {
  return textOf(info.instanceName) + " of copy " + textOf(info.copyName);
}

// All entries that can be read; the first failure, and of which entry. An instance may fail for
// ever; three times in a row the same one does.
template <typename Entry, typename Info>
std::vector<Entry> readAll(void* list, unsigned int (*next)(void*, Info*),
                           unsigned int (*close)(void*), unsigned int* failed, std::string* which) {
  const AtEnd closing([&] { (void)close(list); });
  std::vector<Entry> entries;
  const auto info = std::make_unique<Info>();
  constexpr bool mayStick = std::is_same_v<Info, OSSInstanceInfo_t>;
  std::string before;
  unsigned int code = 0;
  for (int row = 0; (code = next(list, info.get())) != GENREG_RC_END;) {
    if (code == 0) {
      entries.push_back(read(*info));
      row = 0;
      continue;
    }
    std::string entry = entryOf(*info);
    if (*failed == 0) {
      *failed = code;
      *which = entry;
    }
    row = row > 0 && entry == before ? row + 1 : 1;
    if (mayStick && row == 3) break;
    before = std::move(entry);
  }
  return entries;
}

template <typename Entry, typename Info>
std::vector<Entry> readList(unsigned int code, void* list, unsigned int (*next)(void*, Info*),
                            unsigned int (*close)(void*), std::error_code& error) {
  std::string which;
  std::vector<Entry> entries;
  if (list != nullptr) entries = readAll<Entry, Info>(list, next, close, &code, &which);
  report(code, which, error);
  return entries;
}

inline std::vector<Copy> readCopies(std::error_code& error) {
  void* list = nullptr;
  const unsigned int code = ossOpenServiceList(&list);
  return readList<Copy, OSSServiceInfo_t>(code, list, ossGetNextService, ossCloseServiceList,
                                          error);
}
inline std::vector<Instance> readInstances(const char* kind, std::error_code& error) {
  void* list = nullptr;
  unsigned int code = ossOpenInstanceList(kind, &list);
  if (code == GENREG_RC_KEY_NOT_FOUND) code = 0;  // no copy has any
  return readList<Instance, OSSInstanceInfo_t>(code, list, ossGetNextInstance, ossCloseInstanceList,
                                               error);
}

#endif

}  // namespace detail

// The copies of the product that this machine has. What cannot be read is thrown, or `error` is the
// first failure and the copies that can be read are given all the same. Either form may throw
// std::bad_alloc.
inline std::vector<Copy> copies(std::error_code& error = throws()) {
  return detail::readCopies(error);
}

// The instances of kind "ZOR" or "ZEM". Reading one may ask the service control manager or another
// machine. Errors as copies'.
inline std::vector<Instance> instances(const std::string& kind = "ZOR",
                                       std::error_code& error = throws()) {
  return detail::readInstances(kind.c_str(), error);
}

// A version code as people write it: "9.1.0.0".
inline std::string versionText(std::uint64_t versionCode) {
  char text[24] = "";
  (void)ossVersionCodeToString(versionCode, text, sizeof text);
  return text;
}

}  // namespace zor
