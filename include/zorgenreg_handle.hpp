// One open registry behind zorgenreg_registries.hpp: the operations that the classes of its flavour
// do not have in this form. Nothing here is for callers.
//
// A handle belongs to a registry, its updates and its loops together. Each operation returns a
// code, of which it keeps the words:
//
//   auto handle = std::make_shared<HandleOf<VariablesKind>>("settings.reg", &code);
//   if (code == 0) code = handle->store(record, true, &changed);
//   report(code, handle.get(), error);
//
// A flavour compares the fields that identify a record, or all that it says belongs to it. What it
// leaves out, comments above all, is compared here: a change must be seen for one.
#pragma once

#include <cstdint>
#include <cstring>
#include <filesystem>
#include <string>
#include <system_error>
#include <utility>

#include "genreg.h"
#include "sysservices/file_system.h"
#include "zorgenreg_kinds.hpp"

namespace zor::detail {

// What is known of a registry besides its records; registries, updates and loops share it.
struct Handle {
  explicit Handle(std::string path) : file(std::move(path)) {}
  Handle(const Handle&) = delete;
  Handle& operator=(const Handle&) = delete;
  virtual ~Handle() = default;
  virtual GenRegFile& engine() noexcept = 0;

  // Keeps the words of what failed; gives the code.
  unsigned int note(unsigned int code, bool isUpdate) {
    if (code == 0) return code;
    isCommitted = isUpdate && engine().isUpdateCommitted();
    cause = engine().getLastCause();
    return code;
  }
  unsigned int note(const Complaint& complaint) {
    if (complaint.code == 0) return 0;
    isCommitted = false;
    cause = file + ": " + complaint.words;
    return complaint.code;
  }
  unsigned int begin(std::uint64_t request = GENREG_LOCK_WAIT | GENREG_LOCK_CREATE_DIR) {
    const unsigned int code = engine().BeginUpdate(request);
    if (code == 0) updating = true;
    return note(code, false);
  }
  unsigned int commit() {
    updating = false;
    return note(engine().CommitUpdate(), true);
  }
  unsigned int abandon() noexcept {
    updating = false;
    return engine().AbandonUpdate();
  }
  // What ends an update of one's own, whatever throws: abandoned unless it is committed.
  [[nodiscard]] auto abandoning() noexcept {
    return AtEnd([this] {
      if (updating) (void)abandon();
    });
  }
  void cacheReads(bool on) noexcept { engine().setCachedReads(on); }
  void lockTimeout(std::uint64_t milliseconds) noexcept {
    (void)engine().setLockTimeout(milliseconds);
  }

  std::string file;
  std::string cause{};
  bool isCommitted = false;  // what failed last is
  bool updating = false;
};

// A mask bit of exact comparison beside those of the flavours: the record is not wholly the key.
constexpr std::uint64_t differing = std::uint64_t{1} << 62;

template <typename Kind>
class HandleOf : public Handle, private Kind::Flavour {
 public:
  using Native = typename Kind::Native;

  HandleOf(const std::string& path, unsigned int* code)
      : Handle(path), Kind::Flavour(path.c_str(), code) {
    if (*code != 0) return;
    (void)plainHooks(this);
    (void)this->setFeature(GENREG_GET_IN_SCAN);
    char name[GENREG_PATH_SIZE] = "";
    (void)this->getBackupFilePath(name, sizeof name);
    absolute_ = absoluteOf(path.c_str());
    backup_ = absoluteOf(name);
  }
  GenRegFile& engine() noexcept override { return *this; }

  // 0 when there is none: *isThere is false then.
  unsigned int get(std::uint64_t mask, Native& key, Native& found, bool* isThere) {
    unsigned int code = this->Get(mask, &key, &found);
    if (code == 0 && !isWhollyShown(found)) {
      const auto whileHere = exactly();
      code = this->Get(mask, &key, &found);
    }
    *isThere = code == 0;
    return isAbsence(code) ? 0 : note(code, false);
  }

  unsigned int add(Native& record) {
    const auto whileHere = single();
    return note(this->Add(identityOf<Kind>(record), &record), true);
  }

  // In an update of its own when there is none: the record of the identity becomes `wanted`, or is
  // added when it `mayBeNew`.
  unsigned int store(Native& wanted, bool mayBeNew, bool* changed) {
    *changed = false;
    if (updating) return storeNow(wanted, mayBeNew, changed);
    const std::uint64_t create = mayBeNew ? GENREG_LOCK_CREATE_DIR : 0;
    unsigned int code = begin(GENREG_LOCK_WAIT | create);
    if (code != 0) return mayBeNew || !isAbsence(code) ? code : GENREG_RC_NOT_FOUND;
    const auto atEnd = abandoning();
    code = storeNow(wanted, mayBeNew, changed);
    if (code == 0) code = commit();
    *changed = *changed && code == 0;
    return code;
  }

  unsigned int remove(std::uint64_t mask, Native& key, bool* removed) {
    const unsigned int code = this->Delete(mask, &key);
    *removed = code == 0;
    return isAbsence(code) ? 0 : note(code, true);
  }

  // A scan of a text registry shows comments as they are. 0 where there is nothing to loop over,
  // too: *isOpen is false then.
  unsigned int openScan(bool* isOpen) {
    if (scans_) return note({GENREG_RC_SCAN_OPEN, "a loop over the registry runs"});
    if (Kind::isText) useHooks(true);
    const unsigned int code = this->OpenScan();
    *isOpen = scans_ = code == 0;
    if (!scans_ && Kind::isText) useHooks(false);
    return isAbsence(code) ? 0 : note(code, false);
  }
  // GENREG_RC_END behind the last record.
  unsigned int next(Native& found) {
    Native key{};
    unsigned int code = 0;
    do {
      code = this->GetNext(0, &key, &found);
    } while (code == 0 && !Kind::isEntry(found));
    return code == GENREG_RC_END ? code : note(code, false);
  }
  unsigned int closeScan() noexcept {
    const unsigned int code = this->CloseScan();
    scans_ = false;
    if (Kind::isText) useHooks(false);
    return code;
  }

 private:
  struct Hooks {
    GenRegCompareHook compare;
    GenRegUnpackHook unpack;
  };

  // The flavour's own hooks, of the first handle that is made.
  static const Hooks& plainHooks(const HandleOf* made) {
    static const Hooks hooks{made->GenRegBase::CompareRecord, made->GenRegFile::UnpackRecord};
    return hooks;
  }

  void useHooks(bool exact) noexcept {
    const Hooks& plain = plainHooks(this);
    this->GenRegBase::CompareRecord = exact ? compare : plain.compare;
    if constexpr (Kind::isText) {
      this->GenRegFile::UnpackRecord = exact ? GenRegUnpackHook(unpack) : plain.unpack;
    }
  }

  // While it lives, two records that differ in anything are not equal.
  [[nodiscard]] auto exactly() noexcept {
    const Hooks before{this->GenRegBase::CompareRecord, this->GenRegFile::UnpackRecord};
    useHooks(true);
    return AtEnd([this, before] {
      this->GenRegBase::CompareRecord = before.compare;
      this->GenRegFile::UnpackRecord = before.unpack;
    });
  }

  // While it lives, an operation refuses a second record of one identity.
  [[nodiscard]] auto single() noexcept {
    const bool before = this->isFeatureSet(GENREG_ALLOW_DUPLICATES);
    if (before) (void)this->unsetFeature(GENREG_ALLOW_DUPLICATES);
    return AtEnd([this, before] {
      if (before) (void)this->setFeature(GENREG_ALLOW_DUPLICATES);
    });
  }

  static unsigned int compare(std::uint64_t mask, void* stored, void* given) {
    const bool wholly = mask == GENREG_ALL_FIELDS;
    const bool differs = !wholly && (mask & differing) != 0;
    const GenRegCompareHook plain = plainHooks(nullptr).compare;
    if (plain(wholly ? mask : mask & ~differing, stored, given) != 1) return 0;
    if (!wholly && !differs) return 1;
    return isSame(*static_cast<Native*>(stored), *static_cast<Native*>(given)) == differs ? 0 : 1;
  }

  static bool isSame(Native& stored, Native& given) {
    return plainHooks(nullptr).compare(GENREG_ALL_FIELDS, &stored, &given) == 1 &&
           Kind::sameRest(stored, given);
  }

  // The flavour shows every byte of a comment that no terminal shows as a "."; what is handed out
  // is what stands there. The texts have the same length.
  static unsigned int unpack(void* record, char* line) {
    const unsigned int code = plainHooks(nullptr).unpack.text(record, line);
    if constexpr (Kind::isText) {
      const char* comment = commentOf(*static_cast<const Native*>(record));
      const char* hash = std::strchr(line, '#');
      if (comment != nullptr && hash != nullptr) {
        std::memcpy(const_cast<char*>(comment), hash + 1, std::strlen(comment));
      }
    }
    return code;
  }
  // Whether the flavour itself has shown every byte of the comment.
  static bool isWhollyShown(const Native& record) noexcept {
    if constexpr (Kind::isText) {
      const char* comment = commentOf(record);
      return comment == nullptr || std::strchr(comment, '.') == nullptr;
    } else {
      (void)record;
      return true;
    }
  }

  // In an update. What the flavour itself can see to finds records by its index.
  unsigned int storeNow(Native& wanted, bool mayBeNew, bool* changed) {
    const std::uint64_t mask = identityOf<Kind>(wanted);
    Native found{};
    bool isThere = false;
    unsigned int code = get(mask, wanted, found, &isThere);
    if (code != 0) return code;
    if (!isThere) {
      if (!mayBeNew) return note({GENREG_RC_NOT_FOUND, "no record matches"});
      code = add(wanted);
      *changed = code == 0;
      return code;
    }
    if (Kind::isUnique && isSame(found, wanted)) return 0;
    if (plainHooks(this).compare(GENREG_ALL_FIELDS, &found, &wanted) != 1) {
      const auto whileHere = single();
      code = this->Change(mask, &wanted, &wanted);
      *changed = code == 0;
      if (Kind::isUnique || (code != GENREG_RC_UNCHANGED && code != GENREG_RC_AMBIGUOUS)) {
        return note(code, true);
      }
    }
    const auto whileHere = exactly();
    code = this->Change(mask | differing, &wanted, &wanted);
    *changed = code == 0;
    return code == GENREG_RC_NOT_FOUND ? 0 : note(code, true);
  }

  static std::string absoluteOf(const char* path) {
    char full[OSS_FULL_PATH_SIZE];
    return ossAbsolutePath(path, full, sizeof full) == 0 ? full : path;
  }
  // Nothing has this name: neither the library finds it, nor could the reason be another one.
  static bool isMissing(const std::string& path) {
    std::error_code error;
    return !ossPathExists(path.c_str()) && std::filesystem::symlink_status(path, error).type() ==
                                               std::filesystem::file_type::not_found;
  }
  // Whether an operation has failed for want of a record, or of a file.
  bool isAbsence(unsigned int code) const {
    if (code == GENREG_RC_NOT_FOUND || code == GENREG_RC_NO_FILE) return true;
    const bool mayBe = code == GENREG_RC_OPEN_FOR_OPERATION || code == GENREG_RC_OPEN_FAILED ||
                       code == GENREG_RC_LOCK_FAILED;
    return mayBe && isMissing(absolute_) && isMissing(backup_);
  }

  std::string absolute_;
  std::string backup_;
  bool scans_ = false;
};

}  // namespace zor::detail
