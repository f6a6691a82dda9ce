#include "faces/registry.h"

#include <algorithm>
#include <optional>

#include "faces/exact_registry.h"
#include "faces/known_names.h"

namespace faces {
namespace {

// How a registry is read and written, beside its kind.
struct Options {
  bool bigEndian = false;
  bool joined = false;
  bool alike = false;
  bool compact = false;
  bool bytes = false;
};

constexpr unsigned int bitOf(Kind kind) { return 1U << static_cast<unsigned int>(kind); }
constexpr unsigned int ofTexts = bitOf(Kind::Var) | bitOf(Kind::Services);
constexpr unsigned int ofAll = ofTexts | bitOf(Kind::Bin) | bitOf(Kind::Global);
constexpr struct {
  std::string_view name;
  bool Options::*place;
  unsigned int kinds;
} optionRows[] = {{"big-endian", &Options::bigEndian, bitOf(Kind::Bin)},
                  {"joined", &Options::joined, ofTexts},
                  {"alike", &Options::alike, ofTexts},
                  {"compact", &Options::compact, bitOf(Kind::Var)},
                  {"bytes", &Options::bytes, ofAll}};

template <typename Flavour, typename Record>
class RegistryOf final : public Registry {
 public:
  RegistryOf(const char* path, const Options& options, unsigned int* code)
      : file_(path, code), options_(options) {
    if (*code != 0) return;
    if (options.bigEndian) (void)file_.setFeature(GENREG_BIG_ENDIAN_LENGTH);
    if (options.joined) (void)file_.setFeature(GENREG_JOIN_CONTINUED_LINES);
    // Lines that look like most others get their carriage returns with their layout.
    file_.keepReturns(!options.alike);
  }

  unsigned int get(const NamedFields& key, NamedFields& found) override {
    Key wanted;
    if (!start() || !readKey(key, wanted)) return code_;
    Record record;
    if (judge(read(wanted, record)) == 0) found = shown(record);
    return refuseOdd(key);
  }

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
  void setLockTimeout(std::uint64_t milliseconds) override {
    (void)file_.setLockTimeout(milliseconds);
  }
  bool isCommitted() const override { return !isRefused_ && file_.isUpdateCommitted(); }

 private:
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
    if (notOpened && file_.isMissing()) code = GENREG_RC_NO_FILE;
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
  bool startWriting() { return start() && (isUpdating_ || isOfThisKind()); }

  // An update of the records of another kind would damage them.
  bool isOfThisKind() {
    std::string reason = file_.reasonAgainstFile(options_.bigEndian);
    if (reason.empty()) return true;
    (void)fail(GENREG_RC_OTHER_KIND, std::move(reason));
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

  // --- keys and records ---

  static bool isEntry(const Record& record) noexcept {
    if constexpr (std::is_same_v<Record, VarValRecord>) {
      return (record.Contains & VARVAL_HAS_VARIABLE) != 0;
    } else if constexpr (std::is_same_v<Record, ServiceEntryRecord>) {
      return (record.Contains & SERVICES_HAS_SERVICE) != 0;
    } else {
      return true;
    }
  }

  static std::uint64_t identityOfKind(const Record& record) noexcept {
    if constexpr (std::is_same_v<Record, GlobalRegRecord>) {
      const GlobalRegType* const type = globalRegFindType(record.RecordType);
      const bool isWhole = type != nullptr && (record.FieldMask & type->identity) == type->identity;
      return isWhole ? type->identity : byIdentity;
    } else {
      return KindOf<Record>::identity;
    }
  }

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

  // Whether the fields to change a record to are such, before the lock is taken for them.
  bool readGiven(const NamedFields& key, NamedFields given) {
    const std::string* const type = key.find("Type");
    if (type != nullptr && !given.has("Type") && std::is_same_v<Record, GlobalRegRecord>) {
      given.set("Type", *type);
    }
    Made<Record> alone;
    return isFine(makeRecord(given, nullptr, alone, Use::Key));
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

  static Complaint judgeContent(const GlobalRegRecord& record) {
    if (record.FieldMask != 0) return {};
    return {GENREG_RC_FIELD_MISSING, "a record has at least one field beside its Type",
            std::nullopt};
  }

  template <typename Other>
  static bool isNotUnderstood(const Other&) {
    return false;
  }
  static bool isNotUnderstood(const ServiceEntryRecord& record) {
    return (record.Contains & SERVICES_BAD_PORT) != 0;
  }

  template <typename Other>
  static Complaint judgeProtocol(const Other&) {
    return {};
  }
  static Complaint judgeProtocol(const ServiceEntryRecord& record) {
    if (record.protocol == nullptr) return {};
    for (const char* known : {"tcp", "udp", "ddp", "divert"}) {
      if (std::strcmp(record.protocol, known) == 0) return {};
    }
    return {GENREG_RC_BAD_VALUE, "Protocol is tcp, udp, ddp or divert", record.protocol};
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

  // --- reading ---

  // The first record that matches, wholly. In an update what the flavour does not show of comments
  // is learnt of all records at once.
  unsigned int read(Key& wanted, Record& record) {
    file_.compareExactly(wanted.isExact());
    const unsigned int code = file_.Get(wanted.mask, &wanted.made.record, &record);
    if (code != 0 || wanted.isExact()) return code;
    if (mayHide(record) && isUpdating_) learnNames();
    const bool isWhole = !mayHide(record) || (isUpdating_ && names_ && names_->complete(record));
    if (isWhole && !hasUnknown(record)) return code;
    file_.compareExactly(true);
    return file_.Get(wanted.mask, &wanted.made.record, &record);
  }

  // Whether a record that the flavour itself has read may not show every byte of its comment: a "."
  // may stand for one that no terminal shows.
  static bool mayHide(const Record& record) noexcept {
    if constexpr (isLine<Record>) {
      const char* const comment = commentOf(record);
      return comment != nullptr && std::strchr(comment, '.') != nullptr;
    } else {
      return false;
    }
  }
  static bool isUnknown(const std::string& name, const Record& record) {
    if constexpr (isGlobal<Record>) {
      const GlobalRegType* const type = globalRegFindType(record.RecordType);
      return type != nullptr && unknownBitOf(name, *type) != 0;
    } else {
      return false;
    }
  }
  static bool hasUnknown(const Record& record) noexcept {
    if constexpr (isGlobal<Record>) {
      const GlobalRegType* const type = globalRegFindType(record.RecordType);
      return type != nullptr && (record.FieldMask & ~type->knownMask) != 0;
    } else {
      return false;
    }
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
    const unsigned int code = judge(file_.Change(wanted.mask, &wanted.made.record, &record));
    if (KindOf<Record>::mayRepeat) (void)file_.setFeature(GENREG_ALLOW_DUPLICATES);
    return code;
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
  Options options_;
  unsigned int code_ = 0;
  bool isUpdating_ = false;                  // by begin
  bool isRefused_ = false;                   // the last update, before the file was asked
  std::optional<KnownNames<Record>> names_;  // of an update by begin, once they are needed
};

template <typename Flavour, typename Record>
std::unique_ptr<Registry> open(const char* path, const Options& options, unsigned int* code) {
  auto registry = std::make_unique<RegistryOf<Flavour, Record>>(path, options, code);
  if (*code != 0) return nullptr;
  return registry;
}

constexpr struct {
  Kind kind;
  std::unique_ptr<Registry> (*open)(const char* path, const Options& options, unsigned int* code);
} kinds[] = {{KindOf<BinVarValRecord>::kind, open<GenRegBinVarVal, BinVarValRecord>},
             {KindOf<VarValRecord>::kind, open<GenRegVarVal, VarValRecord>},
             {KindOf<ServiceEntryRecord>::kind, open<GenRegServices, ServiceEntryRecord>},
             {KindOf<GlobalRegRecord>::kind, open<GlobalReg, GlobalRegRecord>}};

std::string_view takeWord(std::string_view& words) {
  const std::string_view word = words.substr(0, words.find(','));
  words.remove_prefix(std::min(word.size() + 1, words.size()));
  return word;
}

// The options behind a kind; false when one of them is none.
bool readOptions(std::string_view words, Kind kind, Options& options) {
  while (!words.empty()) {
    const std::string_view word = takeWord(words);
    const auto* const row =
        std::find_if(std::begin(optionRows), std::end(optionRows), [&](const auto& option) {
          return option.name == word && (option.kinds & bitOf(kind)) != 0;
        });
    if (row == std::end(optionRows)) return false;
    options.*row->place = true;
  }
  return true;
}

}  // namespace

unsigned int openRegistry(const char* kind, const char* path, std::unique_ptr<Registry>& registry,
                          std::string& cause) {
  std::string_view words = kind;
  const std::string_view name = takeWord(words);
  Options options;
  for (const auto& row : kinds) {
    if (name != nameOf(row.kind) || !readOptions(words, row.kind, options)) continue;
    unsigned int code = 0;
    std::string spelled;
    if (path != nullptr && !platform::pathFromUtf8(path, spelled)) {
      code = GENREG_RC_PATH_ENCODING;
    } else {
      registry = row.open(path == nullptr ? nullptr : spelled.c_str(), options, &code);
    }
    const GenRegReturnCode* const meaning = genRegFindReturnCode(code);
    if (meaning == nullptr) return code;
    cause =
        (path == nullptr ? "the global registry's path" : inQuotes(path)) + ": " + meaning->meaning;
    return code;
  }
  cause = inQuotes(kind) + ": a kind is bin, var, services or global, and its options";
  return GENREG_RC_UNKNOWN_KIND;
}

}  // namespace faces
