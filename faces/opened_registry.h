// A registry file of one flavour, opened by its path: how an operation went, keys, and reading.
#pragma once

#include <optional>
#include <string>
#include <utility>

#include "faces/exact_registry.h"
#include "faces/known_names.h"
#include "faces/record_rules.h"
#include "faces/registry.h"

namespace faces {

// How a registry is read and written, beside its kind.
struct RegistryOptions {
  bool bigEndian = false;
  bool joined = false;
  bool alike = false;
  bool compact = false;
  bool bytes = false;
  bool getInScan = false;
};

template <typename Flavour, typename Record>
class OpenedRegistry : public Registry {
 public:
  OpenedRegistry(const char* path, const RegistryOptions& options, unsigned int* code)
      : file_(path, code), options_(options) {
    if (*code != 0) return;
    path_ = platform::utf8FromSystem(file_.givenPath());
    if (options.bigEndian) (void)file_.setFeature(GENREG_BIG_ENDIAN_LENGTH);
    if (options.joined) (void)file_.setFeature(GENREG_JOIN_CONTINUED_LINES);
    // Lines that look like most others get their carriage returns with their layout.
    file_.keepReturns(!options.alike);
    if (options.getInScan) (void)file_.setFeature(GENREG_GET_IN_SCAN);
  }

  unsigned int get(const NamedFields& key, NamedFields& found) override {
    Key wanted;
    if ((!options_.getInScan && !start()) || !readKey(key, wanted)) return code_;
    Record record;
    if (judge(read(wanted, record)) == 0) found = shown(record);
    return refuseOdd(key);
  }

  unsigned int scan() override {
    file_.compareExactly(hidesBytes);
    return judge(file_.OpenScan());
  }

  unsigned int next(NamedFields& found) override {
    file_.compareExactly(hidesBytes);
    Record key{};
    Record record;
    unsigned int code = file_.GetNext(0, &key, &record);
    while (code == 0 && !isEntry(record)) code = file_.GetNext(0, &key, &record);
    if (judge(code) == 0) found = shown(record);
    return code_;
  }

  unsigned int endScan() override { return judge(file_.CloseScan()); }
  void setLockTimeout(std::uint64_t milliseconds) override {
    (void)file_.setLockTimeout(milliseconds);
  }
  void setCachedReads(bool on) override { file_.setCachedReads(on); }

 protected:
  // The flavour's own reading does not show every byte of such records.
  static constexpr bool hidesBytes = isLine<Record> || isGlobal<Record>;

  struct Key {
    Made<Record> made;
    std::uint64_t mask = 0;
    bool isNamed = true;  // nothing but identifying fields
    bool isExact() const noexcept { return (mask & beyondFlavours) != 0; }
  };

  // --- how it went ---

  unsigned int succeed() noexcept {
    cause_.clear();
    return code_ = 0;
  }
  unsigned int fail(unsigned int code, std::string&& cause) noexcept {
    cause_ = std::move(cause);
    return code_ = code;
  }
  bool isFine(const Complaint& wrong) {
    if (!wrong) return true;
    (void)fail(wrong.code, (wrong.value ? inQuotes(*wrong.value) + ": " : "") + wrong.cause);
    return false;
  }

  // What an operation on the file has returned, with its cause.
  unsigned int judge(unsigned int code) {
    const bool notOpened = code == GENREG_RC_OPEN_FOR_OPERATION || code == GENREG_RC_OPEN_FAILED;
    if (notOpened && file_.wasMissing()) code = GENREG_RC_NO_FILE;
    if ((notOpened || code == GENREG_RC_NO_FILE) && file_.isNoPlainFile()) {
      return fail(GENREG_RC_OPEN_FAILED,
                  platform::utf8FromSystem(file_.contentPath()) + ": it is no plain file");
    }
    if (code == 0 || code == GENREG_RC_END) {
      cause_.clear();
      return code_ = code;
    }
    std::string cause = platform::utf8FromSystem(file_.getLastCause());
    const GenRegReturnCode* const row = genRegFindReturnCode(code);
    return fail(code, !cause.empty() || row == nullptr ? std::move(cause) : row->meaning);
  }

  bool start() {
    if (!file_.isScanning()) return true;
    (void)fail(GENREG_RC_SCAN_OPEN, "a scan is open");
    return false;
  }

  // Bytes that are no UTF-8 are nobody's to give, save where they stand already.
  Complaint judgeText(const NamedFields& given) const {
    if (options_.bytes) return {};
    for (const auto& [name, value] : given.all()) {
      if (!isUtf8(value)) return {GENREG_RC_BAD_VALUE, name + " is no UTF-8", value};
    }
    return {};
  }
  unsigned int refuseOdd(const NamedFields& key) {
    if (code_ == GENREG_RC_NOT_FOUND) (void)isFine(judgeText(key));
    return code_;
  }

  // --- keys ---

  bool readKey(const NamedFields& key, Key& wanted) {
    if (key.all().empty()) {
      (void)fail(GENREG_RC_KEY_EMPTY, "the key holds no fields");
      return false;
    }
    if (!isFine(makeRecord(key, nullptr, wanted.made, Use::Key))) return false;
    wanted.mask = maskOf(key, wanted.made);
    if constexpr (std::is_same_v<Record, GlobalRegRecord>) {
      const GlobalRegType* const type = globalRegFindType(wanted.made.record.RecordType);
      wanted.isNamed = wanted.mask != 0 && (wanted.mask & ~type->identity) == 0;
    }
    return true;
  }

  bool readIdentity(const NamedFields& given, Key& wanted) {
    if (!isFine(makeRecord(given, nullptr, wanted.made, Use::Key))) return false;
    wanted.mask = identityOfKind(wanted.made.record);
    if constexpr (std::is_same_v<Record, GlobalRegRecord>) {
      return isFine(judgeContent(wanted.made.record));
    } else {
      for (const FieldRow& row : KindOf<Record>::fields) {
        if ((row.mask & wanted.mask) != 0 && !isGiven(given, row.name)) return false;
      }
      return true;
    }
  }

  // A name that is empty is one that a program forgot to fill.
  bool isGiven(const NamedFields& given, const char* name) {
    const std::string* const value = given.find(name);
    if (value != nullptr && !value->empty()) return true;
    (void)fail(value == nullptr ? GENREG_RC_FIELD_MISSING : GENREG_RC_BAD_VALUE,
               std::string(name) + (value == nullptr ? " is missing" : " is empty"));
    return false;
  }

  // --- reading ---

  // The first record that matches, wholly. In an update what the flavour does not show of comments
  // is learnt of all records at once.
  unsigned int read(Key& wanted, Record& record) {
    file_.compareExactly(wanted.isExact());
    const unsigned int code = file_.Get(wanted.mask, &wanted.made.record, &record);
    if (code != 0 || wanted.isExact()) return code;
    if (mayHide(record) && isUpdating_ && !file_.isScanning()) learnNames();
    const bool isWhole = !mayHide(record) || (isUpdating_ && names_ && names_->complete(record));
    if (isWhole && !hasUnknown(record)) return code;
    file_.compareExactly(true);
    return file_.Get(wanted.mask, &wanted.made.record, &record);
  }

  // The fields of a record that was read last, and wholly.
  NamedFields shown(const Record& record) const {
    NamedFields fields = fieldsOf(record);
    if (hasUnknown(record)) {
      fields.remove("UnknownFields");
      const NamedFields unknown = file_.unknownFields();
      for (const auto& [name, value] : unknown.all()) fields.set(name, value);
    }
    return fields;
  }

  // In an update by begin. Without them each record is looked for.
  void learnNames() {
    if (names_) return;
    KnownNames<Record> learnt;
    Key all;
    Record record;
    const auto learn = [&] {
      if (isEntry(record)) learnt.learn(record);
      return true;
    };
    if (forEachMatch(all, record, learn) == GENREG_RC_END) names_ = std::move(learnt);
    if (names_) names_->endLearning();
    code_ = 0;
  }

  // In an update, reads each record that matches into `record` and calls `visit` until that is
  // false. Gives 0, or visit's own failure, then; GENREG_RC_END behind the last; or what failed.
  template <typename Visit>
  unsigned int forEachMatch(Key& wanted, Record& record, Visit visit, bool exactly = true) {
    file_.compareExactly(exactly);
    if (judge(file_.OpenScan()) != 0) return code_;
    struct Closed {
      Exact<Flavour, Record>& file;
      ~Closed() { (void)file.CloseScan(); }
    } const closed{file_};
    do {
      if (judge(file_.GetNext(wanted.mask, &wanted.made.record, &record)) != 0) return code_;
    } while (visit());
    return code_;
  }

  Exact<Flavour, Record> file_;
  RegistryOptions options_;
  unsigned int code_ = 0;
  bool isUpdating_ = false;                  // by begin
  std::optional<KnownNames<Record>> names_;  // of an update by begin, once they are needed
};

}  // namespace faces
