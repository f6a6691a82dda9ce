// The four kinds of registry, each by a record of a name and a number: what the operations on it
// are called with, and how it stands in the file.
#pragma once

#include <cstdlib>
#include <cstring>

#include "support/stored_record.h"
#include "sysservices/environment.h"

struct BinaryVariables {
  using Handle = TestRegistry;
  using Record = BinVarValRecord;
  static constexpr bool isText = false;
  static constexpr std::uint64_t always = 0;  // features that its files cannot be read without
  static constexpr std::uint64_t mask = BINVARVAL_VARIABLE;

  static void fill(Record& record, const std::string& name, int value) {
    record = variable(name, value);
  }
  static int valueOf(const Record& record) { return record.Value; }
  static std::string stored(const std::string& name, int value) {
    return frame(variable(name, value));
  }
};

// The path of a global registry comes from the environment, which must be set before it is made and
// does not take every value everywhere.
struct GlobalPath {
  explicit GlobalPath(const char* path) {
    (void)ossEnvironmentSet("ZOR_GLOBAL_REG_PATHNAME", path);
    const char* const set = std::getenv("ZOR_GLOBAL_REG_PATHNAME");
    isNamed = set != nullptr && std::strcmp(set, path) == 0;
  }
  bool isNamed;
};
class GlobalAt : public GlobalPath, public GlobalReg {
 public:
  GlobalAt(const char* path, unsigned int*) : GlobalPath(path) {
    (void)ossEnvironmentSet("ZOR_GLOBAL_REG_PATHNAME", nullptr);
  }
};

struct GlobalVariables {
  using Handle = Exposed<GlobalAt>;
  using Record = GlobalRegRecord;
  static constexpr bool isText = false;
  static constexpr std::uint64_t always = GENREG_PACKED_RECORDS;
  static constexpr std::uint64_t mask = 0x2;

  static void fill(Record& record, const std::string& name, int value) {
    record = {};
    record.RecordType = GLOBALREG_RECORD_VARIABLE;
    record.FieldMask = 0x6;
    name.copy(record.Variable.Variable, sizeof record.Variable.Variable - 1);
    std::to_string(value).copy(record.Variable.Value, sizeof record.Variable.Value - 1);
  }
  static int valueOf(const Record& record) { return std::atoi(record.Variable.Value); }
  static std::string stored(const std::string& name, int value) {
    return framed(::stored(4, 0x6, {text(name), text(std::to_string(value))}));
  }
};

struct VariableLines {
  using Handle = Exposed<GenRegVarVal>;
  using Record = VarValRecord;
  static constexpr bool isText = true;
  static constexpr std::uint64_t always = 0;
  static constexpr std::uint64_t mask = VARVAL_VARIABLE;

  static void fill(Record& record, const std::string& name, int value) {
    record = {};
    record.Contains = VARVAL_HAS_VARIABLE;
    record.Variable = record.text;
    record.Value = record.text + 64;
    name.copy(record.text, 63);
    std::to_string(value).copy(record.text + 64, 63);
  }
  static int valueOf(const Record& record) {
    return record.Value == nullptr ? 0 : std::atoi(record.Value);
  }
  static std::string stored(const std::string& name, int value) {
    return name + " = " + std::to_string(value) + "\n";
  }
};

struct ServiceLines {
  using Handle = Exposed<GenRegServices>;
  using Record = ServiceEntryRecord;
  static constexpr bool isText = true;
  static constexpr std::uint64_t always = 0;
  static constexpr std::uint64_t mask = SERVICES_NAME;

  static void fill(Record& record, const std::string& name, int value) {
    record = {};
    record.Contains = SERVICES_HAS_SERVICE;
    record.name = record.text;
    name.copy(record.text, 63);
    record.port = inNetworkOrder(static_cast<unsigned int>(value));
    record.protocol = "tcp";
  }
  static int valueOf(const Record& record) { return inNetworkOrder(record.port); }
  static std::string stored(const std::string& name, int value) {
    return name + (name.size() < 8 ? "\t\t" : "\t") + std::to_string(value) + "/tcp\n";
  }
};

// The operations on a registry of one kind.
template <typename Flavour>
struct Operations {
  using Record = typename Flavour::Record;

  struct Handle : Flavour::Handle {
    Handle(const std::string& path, std::uint64_t wanted)
        : Flavour::Handle(path, wanted | Flavour::always) {}
  };

  static Code add(Handle& handle, const std::string& name, int value) {
    Record record;
    Flavour::fill(record, name, value);
    return handle.Add(Flavour::mask, &record);
  }
  static Code change(Handle& handle, const std::string& name, int value) {
    Record key;
    Record record;
    Flavour::fill(key, name, 1);
    Flavour::fill(record, name, value);
    return handle.Change(Flavour::mask, &key, &record);
  }
  static Code remove(Handle& handle, const std::string& name) {
    Record key;
    Flavour::fill(key, name, 1);
    return handle.Delete(Flavour::mask, &key);
  }
  // The value found, or minus the code; `next` in the scan that is open.
  static std::int64_t get(Handle& handle, const std::string& name, bool next = false) {
    Record key;
    Record record;
    Flavour::fill(key, name, 1);
    const Code code = next ? handle.GetNext(Flavour::mask, &key, &record)
                           : handle.Get(Flavour::mask, &key, &record);
    return code == 0 ? Flavour::valueOf(record) : -std::int64_t{code};
  }
};
