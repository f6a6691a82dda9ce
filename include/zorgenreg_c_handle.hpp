// One open registry behind zorgenreg_registries.hpp over zorreg.h; zorgenreg_handle.hpp is the same
// over the classes. Nothing here is for callers.
//
// A handle belongs to a registry, its updates and its loops together. Each operation returns a
// code, of which it keeps the words:
//
//   auto handle = std::make_shared<HandleOf<VariablesKind>>("settings.reg", &code);
//   if (code == 0) code = handle->store(record, true, &changed);
//   report(code, handle.get(), error);
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <utility>

#include "zorgenreg_c_kinds.hpp"
#include "zorreg.h"

namespace zor::detail {

// What is known of a registry besides its records; registries, updates and loops share it.
struct Handle {
  Handle(std::string path, const char* kind, unsigned int* code) : file(std::move(path)) {
    zorreg* opened = nullptr;
    *code = zorreg_open(kind, file.c_str(), &opened);
    c.reset(opened);
  }

  // Keeps the words of what failed; gives the code.
  unsigned int note(unsigned int code, bool isUpdate) {
    if (code == 0) return code;
    isCommitted = isUpdate && zorreg_committed(c.get()) != 0;
    setCause(zorreg_cause(c.get()));
    return code;
  }
  unsigned int note(const Complaint& complaint) {
    if (complaint.code == 0) return 0;
    isCommitted = false;
    setCause(complaint.words);
    return complaint.code;
  }
  unsigned int begin() {
    const unsigned int code = zorreg_begin(c.get());
    if (code == 0) updating = true;
    return note(code, false);
  }
  unsigned int commit() {
    updating = false;
    return note(zorreg_commit(c.get()), true);
  }
  unsigned int abandon() noexcept {
    updating = false;
    return zorreg_abandon(c.get());
  }
  // What ends an update of one's own, whatever throws: abandoned unless it is committed.
  [[nodiscard]] auto abandoning() noexcept {
    return AtEnd([this] {
      if (updating) (void)abandon();
    });
  }
  void cacheReads(bool on) noexcept { zorreg_set_cached_reads(c.get(), on ? 1 : 0); }
  void lockTimeout(std::uint64_t milliseconds) noexcept {
    zorreg_set_lock_timeout(c.get(), milliseconds);
  }

  // With the file's name, which not every cause has.
  void setCause(const std::string& words) {
    const bool isNamed = words.compare(0, file.size(), file) == 0;
    cause = isNamed ? words : file + ": " + words;
  }

  std::string file;
  std::string cause{};
  bool isCommitted = false;  // what failed last is
  bool updating = false;
  std::unique_ptr<zorreg, void (*)(zorreg*)> c{nullptr, zorreg_close};
};

template <typename Kind>
class HandleOf : public Handle {
 public:
  using Native = typename Kind::Native;

  HandleOf(const std::string& path, unsigned int* code) : Handle(path, Kind::name, code) {}

  // 0 when there is none: *isThere is false then.
  unsigned int get(std::uint64_t, const Native& key, Native& found, bool* isThere) {
    const unsigned int code = zorreg_get(c.get(), key.get(), found.get());
    *isThere = code == 0;
    return isAbsence(code) ? 0 : note(code, false);
  }

  // The C interface adds a second variable of one name.
  unsigned int add(const Native& record) {
    if (const unsigned int code = refuseInScan(); code != 0) return code;
    if (!Kind::mayRepeat) return note(zorreg_add(c.get(), record.get()), true);
    if (updating) return addNew(record);
    if (const unsigned int code = begin(); code != 0) return code;
    const auto atEnd = abandoning();
    const unsigned int code = addNew(record);
    return code == 0 ? commit() : code;
  }

  // The record of the identity becomes `wanted`, or is added when it `mayBeNew`.
  unsigned int store(const Native& wanted, bool mayBeNew, bool* changed) {
    *changed = false;
    if (const unsigned int code = refuseInScan(); code != 0) return code;
    if (mayBeNew && !updating) {
      const unsigned int code = zorreg_set(c.get(), wanted.get());
      *changed = code == 0 && zorreg_committed(c.get()) != 0;
      return note(code, true);
    }
    Native key;
    Kind::takeKey(wanted, key);
    unsigned int code = zorreg_change(c.get(), key.get(), wanted.get());
    if (code == GENREG_RC_UNCHANGED) return 0;
    if (isAbsence(code)) {
      if (!mayBeNew) return note({GENREG_RC_NOT_FOUND, "no record matches"});
      code = zorreg_add(c.get(), wanted.get());
    }
    *changed = code == 0;
    return note(code, true);
  }

  unsigned int remove(std::uint64_t, const Native& key, bool* removed) {
    *removed = false;
    if (const unsigned int code = refuseInScan(); code != 0) return code;
    const unsigned int code = zorreg_delete(c.get(), key.get());
    *removed = code == 0;
    return isAbsence(code) ? 0 : note(code, true);
  }

  // 0 where there is nothing to loop over, too: *isOpen is false then.
  unsigned int openScan(bool* isOpen) {
    if (scans_) return note({GENREG_RC_SCAN_OPEN, "a loop over the registry runs"});
    const unsigned int code = zorreg_scan(c.get());
    *isOpen = scans_ = code == 0;
    return isAbsence(code) ? 0 : note(code, false);
  }
  // GENREG_RC_END behind the last record.
  unsigned int next(const Native& found) {
    const unsigned int code = zorreg_next(c.get(), found.get());
    return code == GENREG_RC_END ? code : note(code, false);
  }
  unsigned int closeScan() noexcept {
    scans_ = false;
    return zorreg_scan_end(c.get());
  }

 private:
  // Whether an operation has failed for want of a record, or of a file.
  static bool isAbsence(unsigned int code) noexcept {
    return code == GENREG_RC_NOT_FOUND || code == GENREG_RC_NO_FILE;
  }
  unsigned int refuseInScan() {
    if (!scans_) return 0;
    return note({GENREG_RC_UPDATE_IN_SCAN, "a loop over the registry runs"});
  }
  // In an update.
  unsigned int addNew(const Native& record) {
    Native key;
    Native found;
    bool isThere = false;
    Kind::takeKey(record, key);
    if (const unsigned int code = get(noMask, key, found, &isThere); code != 0) return code;
    if (isThere) return note({GENREG_RC_DUPLICATE, zorreg_code_meaning(GENREG_RC_DUPLICATE)});
    return note(zorreg_add(c.get(), record.get()), true);
  }

  bool scans_ = false;
};

}  // namespace zor::detail
