// The four kinds of registry, with handles that show their protected side, and the operations on a
// record of a name and a number.
#pragma once

#include "bench/flavours.h"
#include "support/registry_fixture.h"
#include "support/stored_record.h"

// `features` are those that its files cannot be read without.
template <typename Described, typename Library, bool text, std::uint64_t features = 0>
struct Tested : Described {
  using Handle = Exposed<Library>;
  static constexpr bool isText = text;
  static constexpr std::uint64_t always = features;
  static std::string stored(const std::string& name, int value) {
    return Described::stored({name, value});
  }
};
using BinaryVariables = Tested<flavours::BinaryVariables, GenRegBinVarVal, false>;
using GlobalVariables = Tested<flavours::GlobalRegistry, GlobalReg, false, GENREG_PACKED_RECORDS>;
using VariableLines = Tested<flavours::ProfileVariables, GenRegVarVal, true>;
using ServiceLines = Tested<flavours::Services, GenRegServices, true>;

template <typename Flavour>
struct Operations {
  struct Handle : Flavour::Handle {
    Handle(const std::string& path, std::uint64_t wanted)
        : Flavour::Handle(path, wanted | Flavour::always) {}
  };
  struct Record : Flavour::Record {
    explicit Record(const Entry& of) : Flavour::Record{}, entry(of) { Flavour::fill(*this, entry); }
    const Entry entry;  // what the record points to
  };

  static Code add(typename Flavour::Handle& handle, const std::string& name, int value) {
    Record record({name, value});
    return handle.Add(Flavour::mask, &record);
  }
  static Code change(typename Flavour::Handle& handle, const std::string& name, int value) {
    Record key({name, 1});
    Record record({name, value});
    return handle.Change(Flavour::mask, &key, &record);
  }
  static Code remove(typename Flavour::Handle& handle, const std::string& name) {
    Record key({name, 1});
    return handle.Delete(Flavour::mask, &key);
  }
  // The value found, or minus the code; `next` in the scan that is open.
  static std::int64_t get(typename Flavour::Handle& handle, const std::string& name,
                          bool next = false) {
    Record key({name, 1});
    typename Flavour::Record record;
    const Code code = next ? handle.GetNext(Flavour::mask, &key, &record)
                           : handle.Get(Flavour::mask, &key, &record);
    return code == 0 ? Flavour::entryOf(record).value : -std::int64_t{code};
  }
};

using AllFlavours = ::testing::Types<BinaryVariables, GlobalVariables, VariableLines, ServiceLines>;

template <typename Flavour>
class FlavourTest : public RegistryTest {
 protected:
  using Run = Operations<Flavour>;
  using Handle = typename Run::Handle;

  // A file of records, each given by its name and its value's digit: "a1 b2".
  static std::string bytesOf(const std::string& records) {
    std::string bytes;
    for (std::size_t i = 0; i + 1 < records.size(); i += 3) {
      bytes += Flavour::stored(records.substr(i, 1), records[i + 1] - '0');
    }
    return bytes;
  }
};
