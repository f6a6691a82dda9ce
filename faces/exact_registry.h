// The flavours with comparisons that know every field: two records that differ in anything that a
// person can set are not equal, so that a change of it is a change. One of them leaves keys to the
// flavour, which finds names by its index; the other takes keys of any field and reads every byte,
// so that what is written back is what was there. One call switches between the two.
#pragma once

#include <algorithm>
#include <atomic>
#include <cstring>
#include <new>
#include <string>
#include <type_traits>

#include "faces/carried_fields.h"
#include "faces/content.h"
#include "faces/line_layout.h"
#include "faces/record_fields.h"
#include "faces/unknown_fields.h"
#include "faces/value_text.h"
#include "genreg.h"
#include "genreg/core/handle.h"
#include "platform/path_text.h"
#include "sysservices/file_system.h"

namespace faces {

inline const char* commentOf(const VarValRecord& record) noexcept { return record.Comment; }
inline const char* commentOf(const ServiceEntryRecord& record) noexcept { return record.comment; }

template <typename Record>
constexpr bool isLine =
    std::is_same_v<Record, VarValRecord> || std::is_same_v<Record, ServiceEntryRecord>;

template <typename Record>
constexpr bool isGlobal = std::is_same_v<Record, GlobalRegRecord>;

// The mask of all that a record has.
inline constexpr std::uint64_t everything = ~(asFound | byIdentity | isMade);

// Whether a terminal shows a byte as itself.
inline bool isShown(char byte) noexcept { return (byte >= ' ' && byte <= '~') || byte == '\t'; }

inline bool equalTexts(const char* left, const char* right) noexcept {
  return std::strcmp(left == nullptr ? "" : left, right == nullptr ? "" : right) == 0;
}

// A comment that is given is written behind a blank, which one that was found has.
template <typename Record>
bool sameComment(std::uint64_t mask, const Record& stored, const Record& given) noexcept {
  const char* comment = commentOf(given);
  if ((mask & asFound) != 0) comment = bareComment(comment);
  return equalTexts(bareComment(commentOf(stored)), comment);
}
inline bool sameComment(std::uint64_t, const BinVarValRecord& stored,
                        const BinVarValRecord& given) noexcept {
  return std::strncmp(stored.Comment, given.Comment, sizeof stored.Comment) == 0;
}
inline bool sameComment(std::uint64_t, const GlobalRegRecord&, const GlobalRegRecord&) noexcept {
  return true;  // the flavour compares it
}

// Whether what the flavour reads of a comment, with a "." for each byte that no terminal shows, may
// be the given one.
template <typename Record>
bool showsSame(const Record& stored, const Record& given) noexcept {
  if constexpr (isLine<Record>) {
    const char* left = bareComment(commentOf(stored));
    const char* right = commentOf(given);
    if (left == nullptr || right == nullptr) return equalTexts(left, right);
    for (; *left != '\0'; ++left, ++right) {
      if (*left != *right && (*left != '.' || isShown(*right))) return false;
    }
    return *right == '\0';
  } else {
    return sameComment(everything, stored, given);
  }
}

template <typename Record>
bool sameAliases(const Record&, const Record&) noexcept {
  return true;
}
inline bool sameAliases(const ServiceEntryRecord& stored,
                        const ServiceEntryRecord& given) noexcept {
  const char* none[] = {nullptr};
  const char** left = stored.aliases == nullptr ? none : stored.aliases;
  const char** right = given.aliases == nullptr ? none : given.aliases;
  while (*left != nullptr && *right != nullptr && std::strcmp(*left, *right) == 0) ++left, ++right;
  return *left == *right;
}

// What a mask asks for beyond what the flavour compares. A number that is absent is not 0.
template <typename Record>
bool sameBeyond(std::uint64_t, const Record&, const Record&) noexcept {
  return true;
}
inline bool sameBeyond(std::uint64_t mask, const GlobalRegRecord& stored,
                       const GlobalRegRecord& given) noexcept {
  const GlobalRegType* const type = globalRegFindType(stored.RecordType);
  const std::uint64_t known = type == nullptr ? 0 : type->knownMask;
  const std::uint64_t compared = ((mask & byUnknownFields) != 0 ? ~known : 0) | (mask & known);
  return ((stored.FieldMask ^ given.FieldMask) & compared) == 0 &&
         ((mask & byCheckSum) == 0 || stored.CheckSum == given.CheckSum);
}

template <typename Flavour, typename Stored>
class Exact : public Flavour {
 public:
  using Record = Stored;

  // *code: that of the construction.
  Exact(const char* path, unsigned int* code) noexcept : Flavour(path, code) {
    if (*code != 0) return;
    plainCompare.store(this->GenRegFile::CompareRecord, std::memory_order_relaxed);
    const genreg::HandleAccess access(*this);
    static const genreg::RecordForm whole = knowingAll(*access.installed());
    access.exchange(whole);
    this->GenRegFile::CompareRecord = compareWhole;
    plainValidate.store(this->GenRegFile::ValidateKey, std::memory_order_relaxed);
    plainUnpack.store(this->GenRegFile::UnpackRecord.text, std::memory_order_relaxed);
    unpackHook_ = this->GenRegFile::UnpackRecord;
    if constexpr (isGlobal<Record>) {
      CarriedFields::flavourUnpacks.store(unpackHook_.binary, std::memory_order_relaxed);
      CarriedFields::flavourPacks.store(this->PackRecord.binary, std::memory_order_relaxed);
    }
  }

  void compareExactly(bool exactly) noexcept {
    this->GenRegFile::CompareRecord = exactly ? compare : compareWhole;
    this->GenRegFile::ValidateKey =
        exactly ? validate : plainValidate.load(std::memory_order_relaxed);
    if constexpr (isLine<Record>) {
      this->GenRegFile::UnpackRecord = exactly ? GenRegUnpackHook(unpack) : unpackHook_;
    } else if constexpr (isGlobal<Record>) {
      this->GenRegFile::UnpackRecord =
          exactly ? GenRegUnpackHook(CarriedFields::unpack) : unpackHook_;
    }
  }

  // A text's lines keep their carriage returns, and new ones get one where the others have it.
  void keepReturns(bool on) noexcept {
    genreg::Session* const own = genreg::HandleAccess(*this).session();
    if (own != nullptr) own->keepReturns(on);
  }

  // From now on a text's lines are written like those of the file, or, `compact`, NAME=VALUE.
  void takeLayout(bool compact) {
    static_assert(isLine<Record>);
    std::string content;
    (void)readContent(contentPath(), std::string::npos, content);
    layout_ = std::is_same_v<Record, ServiceEntryRecord> ? layoutOfServices(content)
                                                         : layoutOfProfile(content);
    if (compact) layout_.makeCompact();
    plainPack.store(this->GenRegFile::PackRecord.text, std::memory_order_relaxed);
    this->GenRegFile::PackRecord = GenRegPackHook(packLaidOut);
  }

  unsigned int Add(std::uint64_t mask, void* record) noexcept {
    const LayoutScope scope(layout_);
    return Flavour::Add(mask, record);
  }
  unsigned int Change(std::uint64_t mask, void* key, void* record) noexcept {
    const LayoutScope scope(layout_);
    return Flavour::Change(mask, key, record);
  }

  // As the flavour's; what the record has that the flavour does not know is in unknownFields()
  // then, when it is read exactly.
  unsigned int Get(std::uint64_t mask, void* key, void* record) noexcept {
    return reading([&] { return Flavour::Get(mask, key, record); });
  }
  unsigned int GetNext(std::uint64_t mask, void* key, void* record) noexcept {
    return reading([&] { return Flavour::GetNext(mask, key, record); });
  }
  NamedFields unknownFields() const { return unknownFieldsOf(carried_.stored); }

  // Adds a global record with those of the given fields that the flavour does not know, exactly.
  unsigned int addWith(std::uint64_t mask, const GlobalRegRecord& record,
                       const NamedFields& given) {
    const std::string stored = storedFormOf(given, *globalRegFindType(record.RecordType));
    std::vector<std::uint64_t> memory(std::max(sizeof record, stored.size()) / 8 + 1);
    std::memcpy(memory.data(), &record, sizeof record);
    const CarriedFields::Scope scope(carried_, &stored, memory.size() * 8);
    const GenRegPackHook pack = this->PackRecord;
    const GenRegSizeHook size = this->GetRecordSize;
    this->PackRecord = CarriedFields::pack;
    this->GetRecordSize = CarriedFields::size;
    const unsigned int code = this->Add(mask, memory.data());
    this->PackRecord = pack;
    this->GetRecordSize = size;
    return code;
  }

  const char* givenPath() const noexcept { return this->registryPath; }
  bool isScanning() const noexcept { return (this->status & GENREG_STATUS_SCAN_OPEN) != 0; }
  // Whether the last operation found no file; somebody may have made one since.
  bool wasMissing() noexcept {
    genreg::Session* const opened = genreg::HandleAccess(*this).session();
    return opened != nullptr && opened->cause().isMissingFile();
  }
  bool isMissing() const noexcept {
    return isAbsent(this->registryPath) && isAbsent(this->backupPath);
  }
  // A directory, a device or the like stands in its place.
  bool isNoPlainFile() const noexcept {
    return ossPathExists(this->registryPath) && !ossIsFile(this->registryPath);
  }
  // The file that holds the registry, also where a crash left it under the backup's name.
  const char* contentPath() const noexcept {
    return ossPathExists(this->registryPath) ? this->registryPath : this->backupPath;
  }
  // Why the file must not be changed as one of this kind: it is clearly none.
  std::string reasonAgainstFile(bool bigEndian) const {
    const char* const file = contentPath();
    const std::string reason = reasonAgainst(guessKind(file), KindOf<Record>::kind, bigEndian);
    return reason.empty() ? reason : platform::utf8FromSystem(file) + " " + reason;
  }

  static bool isSame(Record& stored, Record& given) noexcept {
    return compare(GENREG_ALL_FIELDS, &stored, &given) == 1;
  }
  static bool isSameBy(std::uint64_t mask, Record& stored, Record& given) noexcept {
    return compare(mask, &stored, &given) == 1;
  }

  // A line's hooks, called without a file.
  unsigned int readLine(Record& record, char* line) const {
    return this->UnpackRecord.text(&record, line);
  }
  unsigned int writeLine(Record& record, char* line) const {
    return this->PackRecord.text(&record, line);
  }

  // Why a record's line would not be read back as the record is, or could not be changed later;
  // nothing where records are no lines.
  Complaint judgeLine(Record& record) const {
    if constexpr (isLine<Record>) {
      char line[GENREG_LINE_SIZE] = "";
      // The second line is written over the first one, as a change does it.
      for (int i = 0; i < 2; ++i) {
        const unsigned int code = this->PackRecord.text(&record, line);
        if (code == 0) continue;
        const GenRegReturnCode* const row = genRegFindReturnCode(code);
        return complain(record, nullptr,
                        std::string("cannot be written in a line: ") +
                            (row == nullptr ? "unknown code" : row->meaning));
      }
      Record read;
      const bool isRead = unpack(&read, line) == 0;
      if (isRead && isSame(read, record)) return {};
      const NamedFields fields = isRead ? fieldsOf(read) : NamedFields();
      return complain(
          record, isRead ? &fields : nullptr,
          "would be read back as something else: a \"#\", a quote, blanks or an unknown "
          "word stand where they must not");
    } else {
      return {};
    }
  }

 private:
  // What may not be looked at is not known to be missing.
  static bool isAbsent(const char* path) noexcept {
    const OSSFileInfoRequest request{OSS_PARAM_LEVEL, path};
    OSSFileInfo info{};
    return ossFileGetInfoV9(&request, &info) == OSS_RC_FILE_NOT_FOUND && !ossPathExists(path);
  }

  // The flavour's form with another comparison, since it knows its own comparison by its form.
  static genreg::RecordForm knowingAll(genreg::RecordForm flavours) noexcept {
    flavours.compareRecord = compareWhole;
    return flavours;
  }

  // Keys as the flavour compares them; of whole records, all that a reading by the flavour shows.
  static unsigned int compareWhole(std::uint64_t mask, void* stored, void* given) noexcept {
    const GenRegCompareHook plain = plainCompare.load(std::memory_order_relaxed);
    const unsigned int code = plain(mask, stored, given);
    if (mask != GENREG_ALL_FIELDS || code != 1) return code;
    const auto& left = *static_cast<const Record*>(stored);
    const auto& right = *static_cast<const Record*>(given);
    return showsSame(left, right) && sameAliases(left, right) && sameBeyond(everything, left, right)
               ? 1
               : 0;
  }

  static unsigned int compare(std::uint64_t mask, void* stored, void* given) noexcept {
    const auto& left = *static_cast<const Record*>(stored);
    const auto& right = *static_cast<const Record*>(given);
    const bool wholly = mask == GENREG_ALL_FIELDS || mask == asFound;
    // All bits are set in the mask of all fields.
    if (wholly) mask = mask == asFound ? mask | everything : everything;
    if constexpr (std::is_same_v<Record, GlobalRegRecord>) {
      if (!wholly && (mask & byIdentity) != 0) {
        if (left.RecordType != right.RecordType || identityOf(left) != identityOf(right)) return 0;
        mask = identityOf(right);
      }
    }
    const GenRegCompareHook plain = plainCompare.load(std::memory_order_relaxed);
    const std::uint64_t flavours = wholly ? GENREG_ALL_FIELDS : mask & ~beyondFlavours;
    if (plain(flavours, stored, given) != 1) return 0;
    const bool same = ((mask & byComment) == 0 || sameComment(mask, left, right)) &&
                      ((mask & byAliases) == 0 || sameAliases(left, right)) &&
                      sameBeyond(mask, left, right);
    return same ? 1 : 0;
  }

  // Of the first field that is not as in `read`; where nothing could be read, of the first that
  // holds a mark of the lines themselves, or the longest.
  static Complaint complain(const Record& record, const NamedFields* read,
                            const std::string& cause) {
    const NamedFields fields = fieldsOf(record);
    const NamedFields::Field* wrong = nullptr;
    for (const NamedFields::Field& field : fields.all()) {
      const std::string* const back = read == nullptr ? nullptr : read->find(field.first);
      const bool isMarked = field.second.find_first_of("#\"") != std::string::npos;
      if (read == nullptr ? isMarked : back == nullptr || *back != field.second) {
        wrong = &field;
        break;
      }
      if (wrong == nullptr || field.second.size() > wrong->second.size()) wrong = &field;
    }
    if (wrong == nullptr) return {GENREG_RC_BAD_VALUE, "the record " + cause, std::nullopt};
    return {GENREG_RC_BAD_VALUE, wrong->first + " " + cause, wrong->second};
  }

  template <typename Work>
  unsigned int reading(Work work) noexcept {
    if constexpr (!isGlobal<Record>) return work();
    const CarriedFields::Scope scope(carried_);
    const unsigned int code = work();
    return code == 0 && carried_.isLost ? OSS_RC_NO_MEMORY : code;
  }

  static unsigned int validate(std::uint64_t mask, void* keyOrRecord) noexcept {
    if (keyOrRecord != nullptr && (mask & isMade) != 0) return 0;
    return plainValidate.load(std::memory_order_relaxed)(mask, keyOrRecord);
  }

  // A text flavour shows every byte of a comment that no terminal shows as a "."; what is written
  // back must be what was there. The texts have the same length.
  static unsigned int unpack(void* record, char* line) noexcept {
    const unsigned int code = plainUnpack.load(std::memory_order_relaxed)(record, line);
    if constexpr (isLine<Record>) {
      if (const char* comment = commentOf(*static_cast<const Record*>(record));
          comment != nullptr && code == 0) {
        if (const char* const hash = std::strchr(line, '#'); hash != nullptr) {
          std::memcpy(const_cast<char*>(comment), hash + 1, std::strlen(comment));
        }
      }
    }
    return code;
  }

  // While it lives, the hooks on this thread write lines so.
  class LayoutScope {
   public:
    explicit LayoutScope(const LineLayout& layout) noexcept : outer_(current) { current = &layout; }
    ~LayoutScope() { current = outer_; }
    LayoutScope(const LayoutScope&) = delete;
    LayoutScope& operator=(const LayoutScope&) = delete;
    static inline thread_local const LineLayout* current = nullptr;

   private:
    const LineLayout* outer_;
  };

  static std::string withoutEnd(const char* line) {
    const std::string_view text(line);
    return std::string(text.substr(0, text.find_last_not_of("\r\n") + 1));
  }
  static unsigned int packLaidOut(void* record, char* line) noexcept try {
    const auto pack = plainPack.load(std::memory_order_relaxed);
    const LineLayout* const layout = LayoutScope::current;
    if (layout == nullptr) return pack(record, line);
    const std::string replaced = withoutEnd(line);
    const std::size_t newline = std::strcspn(line, "\n");
    const bool isEnded = line[newline] == '\n';
    const bool returns = isEnded ? newline > 0 && line[newline - 1] == '\r' : layout->endsInReturn;
    if (const unsigned int code = pack(record, line); code != 0) return code;
    const std::string written = withoutEnd(line);
    const std::string shaped =
        (std::is_same_v<Record, ServiceEntryRecord> ? reshapedServices(*layout, replaced, written)
                                                    : reshapedProfile(*layout, replaced, written)) +
        (returns ? "\r\n" : "\n");
    // A layout that makes the line too long is left out.
    if (shaped.size() < GENREG_LINE_SIZE) std::memcpy(line, shaped.c_str(), shaped.size() + 1);
    return 0;
  } catch (const std::bad_alloc&) {
    return OSS_RC_NO_MEMORY;
  }

  // The same for every object.
  static inline std::atomic<GenRegCompareHook> plainCompare{nullptr};
  static inline std::atomic<GenRegValidateHook> plainValidate{nullptr};
  static inline std::atomic<unsigned int (*)(void*, char*)> plainUnpack{nullptr};
  static inline std::atomic<unsigned int (*)(void*, char*)> plainPack{nullptr};
  GenRegUnpackHook unpackHook_;
  LineLayout layout_;
  CarriedFields carried_;
};

}  // namespace faces
