// What the four flavours of registries differ in: the record, the mask, and the bytes in the file.
// The benchmarks and the proofs work with the same ones.
#pragma once

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <memory>
#include <vector>

#include "bench/subject.h"
#include "genreg.h"

namespace flavours {

inline void copyText(char* field, const std::string& text) {
  std::memcpy(field, text.c_str(), text.size() + 1);
}

// A text that another program may have stored without its terminator.
template <std::size_t Size>
std::string textIn(const char (&field)[Size]) {
  return {field, ::strnlen(field, Size)};
}

// A little-endian number of so many bytes.
inline std::string number(std::size_t width, std::uint64_t value) {
  std::string bytes;
  for (std::size_t i = 0; i < width; ++i) bytes += static_cast<char>(value >> (8 * i));
  return bytes;
}

struct BinaryVariables {
  using Handle = GenRegBinVarVal;
  using Record = BinVarValRecord;
  static constexpr std::uint64_t mask = BINVARVAL_VARIABLE;

  static Handle open(const std::string& path) { return Handle(path.c_str(), nullptr); }
  static void fill(Record& record, const Entry& entry) {
    record = {};  // what stands behind the texts is stored, too
    copyText(record.Variable, entry.name);
    record.Value = entry.value;
    copyText(record.Comment, entry.comment);
  }
  static std::int32_t valueOf(const Record& record) { return record.Value; }
  static Entry entryOf(const Record& record) {
    return {textIn(record.Variable), valueOf(record), textIn(record.Comment)};
  }
  static std::string stored(const Entry& entry) {
    Record record{};
    fill(record, entry);
    return number(4, sizeof record) + std::string(reinterpret_cast<char*>(&record), sizeof record);
  }
};

struct GlobalRegistry {
  using Handle = GlobalReg;
  using Record = GlobalRegRecord;
  static constexpr std::uint64_t mask = 0x3;  // service and variable

  static Handle open(const std::string& path) { return Handle(path.c_str(), nullptr); }
  static void fill(Record& record, const Entry& entry) {
    record.RecordType = GLOBALREG_RECORD_VARIABLE;
    record.FieldMask = entry.comment.empty() ? 0x7 : 0xF;
    copyText(record.Variable.Service, "zor");
    copyText(record.Variable.Variable, entry.name);
    copyText(record.Variable.Value, std::to_string(entry.value));
    copyText(record.Variable.Comment, entry.comment);
  }
  static std::int32_t valueOf(const Record& record) { return std::atoi(record.Variable.Value); }
  // Without a name where it is no variable of ours.
  static Entry entryOf(const Record& record) {
    if (record.RecordType != GLOBALREG_RECORD_VARIABLE || textIn(record.Variable.Service) != "zor")
      return {};
    return {record.Variable.Variable, valueOf(record),
            (record.FieldMask & 0x8) != 0 ? record.Variable.Comment : ""};
  }
  static std::string stored(const Entry& entry) {
    const bool commented = !entry.comment.empty();
    const auto field = [](const std::string& text) {
      return number(2, text.size() + 1) + text + '\0';
    };
    const std::string bytes = number(4, GLOBALREG_RECORD_VARIABLE) +
                              number(8, commented ? 0xF : 0x7) + number(8, 0) + field("zor") +
                              field(entry.name) + field(std::to_string(entry.value)) +
                              (commented ? field(entry.comment) : "") + number(4, 0);
    return number(4, bytes.size()) + bytes;
  }
};

struct ProfileVariables {
  using Handle = GenRegVarVal;
  using Record = VarValRecord;
  static constexpr std::uint64_t mask = VARVAL_VARIABLE;

  static Handle open(const std::string& path) { return Handle(path.c_str(), nullptr); }
  static void fill(Record& record, const Entry& entry) {
    thread_local std::string value;
    value = std::to_string(entry.value);
    record.Contains = VARVAL_HAS_VARIABLE;
    if (!entry.comment.empty()) record.Contains |= VARVAL_HAS_COMMENT;
    record.Variable = entry.name.c_str();
    record.Value = value.c_str();
    record.Comment = entry.comment.empty() ? nullptr : entry.comment.c_str();
  }
  static std::int32_t valueOf(const Record& record) { return std::atoi(record.Value); }
  // Without a name where the line holds no variable.
  static Entry entryOf(const Record& record) {
    if ((record.Contains & VARVAL_HAS_VARIABLE) == 0) return {};
    const bool commented = (record.Contains & VARVAL_HAS_COMMENT) != 0;
    return {record.Variable, valueOf(record), commented ? record.Comment : ""};
  }
  static std::string stored(const Entry& entry) {
    return entry.name + " = " + std::to_string(entry.value) +
           (entry.comment.empty() ? "" : " # " + entry.comment) + "\n";
  }
};

struct Services {
  using Handle = GenRegServices;
  using Record = ServiceEntryRecord;
  static constexpr std::uint64_t mask = SERVICES_NAME | SERVICES_PROTOCOL;

  static Handle open(const std::string& path) { return Handle(path.c_str(), nullptr); }
  static void fill(Record& record, const Entry& entry) {
    record.Contains = SERVICES_HAS_SERVICE;
    if (!entry.comment.empty()) record.Contains |= SERVICES_HAS_COMMENT;
    record.name = entry.name.c_str();
    record.protocol = "tcp";
    const auto port = static_cast<std::uint16_t>(entry.value);
    record.port = static_cast<std::uint16_t>((port << 8) | (port >> 8));
    record.comment = entry.comment.empty() ? nullptr : entry.comment.c_str();
  }
  static std::int32_t valueOf(const Record& record) {
    return static_cast<std::uint16_t>((record.port << 8) | (record.port >> 8));
  }
  // Without a name where the line holds no service of ours.
  static Entry entryOf(const Record& record) {
    const bool holdsService = (record.Contains & SERVICES_HAS_SERVICE) != 0;
    if (!holdsService || record.protocol == nullptr || std::string(record.protocol) != "tcp")
      return {};
    const bool commented = (record.Contains & SERVICES_HAS_COMMENT) != 0;
    return {record.name, valueOf(record), commented ? record.comment : ""};
  }
  static std::string stored(const Entry& entry) {
    return entry.name + (entry.name.size() < 8 ? "\t\t" : "\t") + std::to_string(entry.value) +
           "/tcp" + (entry.comment.empty() ? "" : "\t\t\t# " + entry.comment) + "\n";
  }
};

// Writes a registry by hand: adding its records one by one would take as many updates.
template <typename Flavour>
void writeAll(const std::string& path, std::size_t count) {
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  for (std::size_t i = 0; i < count; ++i) file << Flavour::stored(entryAt(i));
}

// Many: one update that changes the record "b" to 22, deletes "a" and adds as many as the entry's
// value says.
enum class Verb { Add, Change, Delete, Get, Scan, Many };
inline Entry addedAt(int index) { return {"m" + std::to_string(index), 1 + index}; }

// One handle of a registry of any flavour. Each operation gives its return code.
class Handle {
 public:
  virtual ~Handle() = default;
  virtual unsigned int run(Verb verb, const Entry& entry) = 0;
  // An update of many changes around what `work` does; abandoned when that fails.
  virtual unsigned int inOneUpdate(const std::function<unsigned int()>& work) = 0;
  virtual unsigned int openScan() = 0;
  virtual unsigned int next() = 0;
  virtual unsigned int closeScan() = 0;
  virtual unsigned int repair() = 0;
  virtual bool committed() const = 0;  // what the last update changed
  virtual void keepReads() = 0;        // from now on
  virtual Entry found() const = 0;     // by the last Get or next()

  // Counts the records up to the end or the first failure, and keeps them where they are wanted.
  unsigned int scan(std::size_t* count, std::vector<Entry>* kept = nullptr) {
    unsigned int code = openScan();
    if (code != 0) return code;
    for (*count = 0; (code = next()) == 0; ++*count) {
      if (kept != nullptr) kept->push_back(found());
    }
    const unsigned int closed = closeScan();
    return code == GENREG_RC_END ? closed : code;
  }
};

template <typename Flavour>
class HandleOf : public Handle {
 public:
  // `features` 0: the flavour's own; else its duplicates and verification are those of `features`.
  explicit HandleOf(const std::string& path, std::uint64_t features = 0)
      : handle_(Flavour::open(path)) {
    constexpr std::uint64_t modes = GENREG_VERIFY_UPDATES | GENREG_ALLOW_DUPLICATES;
    std::uint64_t& own = handle_.*Access::field();
    if (features != 0) own = (own & ~modes) | features;
  }

  unsigned int run(Verb verb, const Entry& entry) override {
    if (verb == Verb::Scan) {
      std::size_t count = 0;
      return scan(&count);
    }
    if (verb == Verb::Many) return changeMany(entry.value);
    if (verb == Verb::Get) return get(Flavour::mask, entry);
    Flavour::fill(record_, entry);
    switch (verb) {
      case Verb::Add:
        return handle_.Add(Flavour::mask, &record_);
      case Verb::Change:
        return handle_.Change(Flavour::mask, &record_, &record_);
      default:
        return handle_.Delete(Flavour::mask, &record_);
    }
  }
  // A record that equals the entry's in what the mask selects.
  unsigned int get(std::uint64_t mask, const Entry& entry) {
    Flavour::fill(record_, entry);
    return handle_.Get(mask, &record_, &found_);
  }
  unsigned int inOneUpdate(const std::function<unsigned int()>& work) override {
    unsigned int code = handle_.BeginUpdate();
    if (code != 0) return code;
    code = work();
    if (code == 0) return handle_.CommitUpdate();
    (void)handle_.AbandonUpdate();
    return code;
  }
  unsigned int openScan() override {
    Flavour::fill(record_, any_);
    return handle_.OpenScan();
  }
  unsigned int next() override { return handle_.GetNext(0, &record_, &found_); }
  unsigned int closeScan() override { return handle_.CloseScan(); }
  unsigned int repair() override { return handle_.RepairRegistry(); }
  bool committed() const override { return handle_.isUpdateCommitted(); }
  void keepReads() override { handle_.setCachedReads(true); }
  Entry found() const override { return Flavour::entryOf(found_); }
  std::int32_t value() const { return Flavour::valueOf(found_); }  // of what was found

 private:
  unsigned int changeMany(int adds) {
    return inOneUpdate([&] {
      unsigned int code = run(Verb::Change, {"b", 22});
      if (code == 0) code = run(Verb::Delete, {"a"});
      for (int i = 0; code == 0 && i < adds; ++i) code = run(Verb::Add, addedAt(i));
      return code;
    });
  }

  struct Access : Flavour::Handle {
    static auto field() { return &Access::features; }
  };

  const Entry any_;  // what the key of a scan points to
  typename Flavour::Handle handle_;
  alignas(64) typename Flavour::Record record_{};
  alignas(64) typename Flavour::Record found_{};
};

struct Row {
  const char* name;
  std::unique_ptr<Handle> (*open)(const std::string& path, std::uint64_t features);
  std::string (*stored)(const Entry& entry);
};
template <typename Flavour>
Row rowOf(const char* name) {
  return {name,
          [](const std::string& path, std::uint64_t features) -> std::unique_ptr<Handle> {
            return std::make_unique<HandleOf<Flavour>>(path, features);
          },
          Flavour::stored};
}
inline const Row rows[] = {rowOf<BinaryVariables>("binary"), rowOf<GlobalRegistry>("global"),
                           rowOf<ProfileVariables>("profile"), rowOf<Services>("services")};

}  // namespace flavours
