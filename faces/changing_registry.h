// A registry of one flavour: what changes it. Each operation finds out first whether it may be
// done, then reads and changes in one update, so that no other writer comes between.
#pragma once

#include <optional>

#include "faces/opened_registry.h"

namespace faces {

template <typename Flavour, typename Record>
class ChangingRegistry final : public OpenedRegistry<Flavour, Record> {
  using Opened = OpenedRegistry<Flavour, Record>;
  using typename Opened::Key;

 public:
  using Opened::Opened;

  unsigned int add(const NamedFields& given) override {
    isRefused_ = true;
    if (!startWriting()) return code_;
    if (KindOf<Record>::mayRepeat) names_.reset();
    return addRecord(given);
  }

  unsigned int change(const NamedFields& key, const NamedFields& given) override {
    Key wanted;
    isRefused_ = true;
    if (!startWriting() || !readKey(key, wanted) || !readGiven(key, given)) return code_;
    (void)update(GENREG_LOCK_WAIT, [&] { return changeMatching(wanted, given); });
    return refuseOdd(key);
  }

  unsigned int set(const NamedFields& given) override {
    Key wanted;
    isRefused_ = true;
    if (!startWriting() || !readIdentity(given, wanted)) return code_;
    return update(GENREG_LOCK_WAIT | GENREG_LOCK_CREATE_DIR, [&] {
      const unsigned int code = changeMatching(wanted, given);
      if (code == GENREG_RC_UNCHANGED) return succeed();
      const bool isThere = code != GENREG_RC_NOT_FOUND && code != GENREG_RC_NO_FILE;
      return isThere ? code : addRecord(given);
    });
  }

  unsigned int remove(const NamedFields& key) override {
    Key wanted;
    isRefused_ = true;
    if (!startWriting() || !readKey(key, wanted)) return code_;
    (void)update(GENREG_LOCK_WAIT, [&] {
      file_.compareExactly(wanted.isExact());
      if (judge(file_.Delete(wanted.mask, &wanted.made.record)) != GENREG_RC_AMBIGUOUS ||
          !narrow(wanted)) {
        return code_;
      }
      return judge(file_.Delete(wanted.mask, &wanted.made.record));
    });
    return refuseOdd(key);
  }

  unsigned int begin() override {
    if (!isUpdating_ && !isOfThisKind()) return code_;
    const unsigned int code = file_.BeginUpdate();
    if (code == 0) {
      names_.reset();
      isRefused_ = false;
      isUpdating_ = true;
    }
    return judge(code);
  }
  unsigned int commit() override {
    isUpdating_ = false;
    isRefused_ = false;
    return judge(file_.CommitUpdate());
  }
  unsigned int abandon() override {
    isUpdating_ = false;
    return judge(file_.AbandonUpdate());
  }
  bool isCommitted() const override { return !isRefused_ && file_.isUpdateCommitted(); }

 private:
  using Opened::code_;
  using Opened::fail;
  using Opened::file_;
  using Opened::forEachMatch;
  using Opened::isFine;
  using Opened::isGiven;
  using Opened::isUpdating_;
  using Opened::judge;
  using Opened::judgeText;
  using Opened::learnNames;
  using Opened::names_;
  using Opened::options_;
  using Opened::read;
  using Opened::readIdentity;
  using Opened::readKey;
  using Opened::refuseOdd;
  using Opened::shown;
  using Opened::start;
  using Opened::succeed;

  bool startWriting() { return start() && (isUpdating_ || isOfThisKind()); }

  // An update of the records of another kind would damage them.
  bool isOfThisKind() {
    std::string reason = file_.reasonAgainstFile(options_.bigEndian);
    if (reason.empty()) return true;
    (void)fail(GENREG_RC_OTHER_KIND, std::move(reason));
    return false;
  }

  // --- records ---

  // Whether the fields to change a record to are such, before the lock is taken for them.
  bool readGiven(const NamedFields& key, NamedFields given) {
    const std::string* const type = key.find("Type");
    if (type != nullptr && !given.has("Type") && std::is_same_v<Record, GlobalRegRecord>) {
      given.set("Type", *type);
    }
    Made<Record> alone;
    return isFine(makeRecord(given, nullptr, alone, Use::Key));
  }

  // Whether a record can be stored and read back as it is.
  bool isStorable(Record& record) {
    if constexpr (std::is_same_v<Record, GlobalRegRecord>) {
      return isFine(judgeContent(record));
    } else {
      return isFine(judgeProtocol(record)) && isFine(file_.judgeLine(record));
    }
  }

  // What `found` becomes.
  bool merge(const NamedFields& given, const Record& found, Made<Record>& merged) {
    for (const FieldRow& row : KindOf<Record>::fields) {
      const bool isIdentity = (row.mask & identityOfKind(found)) != 0;
      if (isIdentity && given.has(row.name) && !isGiven(given, row.name)) return false;
    }
    if (isNotUnderstood(found) && !given.has("Aliases")) {
      return isFine(
          {GENREG_RC_FIELD_MISSING,
           "what stands behind a port and protocol that are not understood would be lost: "
           "Aliases is missing",
           std::nullopt});
    }
    NamedFields changed;
    if (!takeChanged(given, found, changed)) return false;
    if (!isFine(makeRecord(changed, &found, merged)) || !isStorable(merged.record)) return false;
    if (names_ && changed.has("Comment")) names_->changeComment(merged.record);
    return true;
  }

  // The given fields that are not as they stand, and may be such: what stays does so byte for byte.
  bool takeChanged(const NamedFields& given, const Record& found, NamedFields& changed) {
    const NamedFields stands = shown(found);
    for (const auto& [name, value] : given.all()) {
      const std::string* const now = stands.find(name);
      if (now != nullptr && *now == value && !value.empty()) continue;
      if (isUnknown(name, found)) {
        return isFine(
            {GENREG_RC_BAD_VALUE, name + " stays as it is in a record that is there", value});
      }
      changed.set(name, value);
    }
    return isFine(judgeText(changed));
  }

  // --- updates ---

  // Runs `work`, which gives a code, in the update that is open, or in one of its own: what it
  // reads no other writer changes, and it is committed as a whole or not at all.
  template <typename Work>
  unsigned int update(std::uint64_t request, Work work) {
    takeLayout();
    if (isUpdating_) return work();
    const unsigned int begun = file_.BeginUpdate(request);
    // Where there is not even a directory there is nothing to change.
    const bool mayCreate = (request & GENREG_LOCK_CREATE_DIR) != 0;
    if (begun == GENREG_RC_LOCK_FAILED && !mayCreate && file_.isMissing()) {
      return judge(GENREG_RC_OPEN_FAILED);
    }
    if (judge(begun) != 0) return code_;
    struct Abandoned {
      Exact<Flavour, Record>* file;
      ~Abandoned() {
        if (file != nullptr) (void)file->AbandonUpdate();
      }
    } abandoned{&file_};
    isRefused_ = false;
    if (work() != 0) return code_;
    abandoned.file = nullptr;
    return judge(file_.CommitUpdate());
  }

  // From the first change on lines look like those that were there then.
  void takeLayout() {
    if constexpr (isLine<Record>) {
      if (options_.alike || options_.compact) file_.takeLayout(options_.compact);
      options_.alike = options_.compact = false;
    }
  }

  unsigned int addRecord(const NamedFields& given) {
    takeLayout();
    if (const char* const name = lackedBy<Record>(given); name != nullptr) {
      return fail(GENREG_RC_FIELD_MISSING, std::string(name) + " is missing");
    }
    Made<Record> made;
    if (!isFine(judgeText(given)) || !isFine(makeRecord(given, nullptr, made)) ||
        !isStorable(made.record)) {
      return code_;
    }
    const std::uint64_t mask = identityOfKind(made.record);
    for (const FieldRow& row : KindOf<Record>::fields) {
      if ((row.mask & mask) != 0 && !isGiven(given, row.name)) return code_;
    }
    if (names_) names_->changeComment(made.record);
    const bool hasMore = hasUnknown(made.record);
    file_.compareExactly(hasMore || (mask & beyondFlavours) != 0);
    isRefused_ = false;
    if constexpr (isGlobal<Record>) {
      if (hasMore) return judge(file_.addWith(mask, made.record, given));
    }
    return judge(file_.Add(mask, &made.record));
  }

  // In an update, gives every record that matches its new form.
  unsigned int changeMatching(Key& wanted, const NamedFields& given) {
    Record found{};
    if (judge(read(wanted, found)) != 0) return code_;
    Made<Record> merged;
    if (!merge(given, found, merged)) return code_;
    // By its whole identity a record is found at once, and is mostly the only one.
    const std::uint64_t identity = identityOfKind(found);
    const bool isQuick = (wanted.mask & identity) == identity && !wanted.isExact() &&
                         file_.isSameBy(identity, found, merged.record);
    if (!isQuick) return changeEach(wanted, given);
    if (file_.isSame(found, merged.record) && isOnly(wanted, found)) {
      return fail(GENREG_RC_UNCHANGED, "the record is so already");
    }
    if (code_ != 0) return code_;
    const unsigned int code = changeOnly(wanted, merged.record);
    // Equal in what the flavour compares, or not the only one.
    const bool isUnclear = code == GENREG_RC_UNCHANGED || code == GENREG_RC_AMBIGUOUS;
    return isUnclear ? changeEach(wanted, given) : code;
  }

  // Whether one record alone matches, as the flavour compares, which skips the others fast.
  bool isOnly(Key& wanted, const Record& one) {
    if (isUpdating_) learnNames();
    if (isUpdating_ && names_ && names_->standsOnce(one)) return true;
    Record found;
    std::size_t count = 0;
    const auto isFirst = [&] { return ++count == 1; };
    if (forEachMatch(wanted, found, isFirst, false) != GENREG_RC_END) return false;
    code_ = 0;
    return count == 1;
  }

  // With the flavour's comparison, changes the record that matches, which must be the only one.
  unsigned int changeOnly(Key& wanted, Record& record) {
    file_.compareExactly(false);
    if (KindOf<Record>::mayRepeat) (void)file_.unsetFeature(GENREG_ALLOW_DUPLICATES);
    const unsigned int code = file_.Change(wanted.mask, &wanted.made.record, &record);
    if (KindOf<Record>::mayRepeat) (void)file_.setFeature(GENREG_ALLOW_DUPLICATES);
    return judge(code);  // last: it may throw
  }

  // The same for any key and any number of records; nothing is changed before all of them can be.
  unsigned int changeEach(Key& wanted, const NamedFields& given) {
    Record found;
    std::size_t count = 0;
    const unsigned int judged = forEachMatch(wanted, found, [&] {
      Made<Record> merged;
      ++count;
      return merge(given, found, merged);
    });
    if (judged != GENREG_RC_END) return code_;
    if (count == 0) return fail(GENREG_RC_NOT_FOUND, "no record matches the key");
    if (count > 1 && !KindOf<Record>::mayRepeat && !narrow(wanted)) return code_;
    bool isChanged = false;
    for (; count > 0 && changeNext(wanted, given) == 0; --count) isChanged = true;
    return code_ == GENREG_RC_UNCHANGED && isChanged ? succeed() : code_;
  }

  // Changes the first record that matches and is not yet as it should be.
  unsigned int changeNext(Key& wanted, const NamedFields& given) {
    Record found{};
    std::optional<Made<Record>> merged;
    const unsigned int code = forEachMatch(wanted, found, [&] {
      merged.emplace();
      return merge(given, found, *merged) && file_.isSame(found, merged->record);
    });
    if (code == GENREG_RC_END) return fail(GENREG_RC_UNCHANGED, "the record is so already");
    if (code != 0 || !isFree(found, merged->record)) return code_;
    if (!file_.isSameBy(identityOfKind(found), found, merged->record)) names_.reset();
    return judge(file_.Change(asFound, &found, &merged->record));
  }

  // Whether no other record is what `found` is to become: neither could be found any more.
  bool isFree(Record& found, Record& merged) {
    if (KindOf<Record>::mayRepeat || file_.isSameBy(identityOfKind(found), found, merged)) {
      return true;
    }
    Record other;
    const unsigned int code = judge(file_.Get(identityOfKind(merged), &merged, &other));
    if (code == 0) (void)fail(GENREG_RC_DUPLICATE, "another record has the new identity");
    return code == GENREG_RC_NOT_FOUND;
  }

  // Of several global records that hold what a key names, one may be just that, the others more.
  bool narrow(Key& wanted) {
    if constexpr (std::is_same_v<Record, GlobalRegRecord>) {
      Record found;
      std::size_t count = 0;
      if (wanted.isNamed) {
        wanted.mask = byIdentity;
        if (forEachMatch(wanted, found, [&] { return ++count > 0; }) != GENREG_RC_END) return false;
      }
      if (count == 1) return true;
    }
    (void)fail(GENREG_RC_AMBIGUOUS, "more than one record matches the key");
    return false;
  }

  bool isRefused_ = false;  // the last update, before the file was asked
};

}  // namespace faces
