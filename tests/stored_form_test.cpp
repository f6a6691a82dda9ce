// Lines and records that are told from a key as they stand must come to what parsing and unpacking
// them would: the same code, record and log. A handle whose UnpackRecord is another function looks
// at every record in full.
#include "support/registry_fixture.h"
#include "support/stored_record.h"

namespace {

template <typename Flavour>
GenRegUnpackHook ownUnpack;

// Behaves as the flavour itself, but as somebody else's function.
template <typename Flavour>
unsigned int unpackLine(void* record, char* line) {
  return ownUnpack<Flavour>.text(record, line);
}

// What a Get, and then a scan for the key to its end, came to.
template <typename Flavour, typename Record, typename Tell>
std::string outcome(const std::string& path, std::uint64_t features, std::uint64_t mask, Record key,
                    bool full, Tell tell) {
  Diagnostics log;
  Exposed<Flavour> handle(path);
  if (features != 0) (void)handle.setFeature(features);
  ownUnpack<Flavour> = handle.UnpackRecord;
  if (full) handle.UnpackRecord = unpackLine<Flavour>;
  Record record{};
  std::string told = std::to_string(handle.Get(mask, &key, &record)) + tell(record);
  (void)handle.OpenScan();
  for (Code code = 0; code == 0;) {
    record = {};
    code = handle.GetNext(mask, &key, &record);
    told += " " + std::to_string(code) + tell(record);
  }
  (void)handle.CloseScan();
  for (const Diagnostics::Record& each : log.records) {
    told += " " + std::to_string(each.probe) + ":" + std::to_string(each.code);
  }
  return told;
}

// What each kind of update of the same file came to, and what it left in the file.
template <typename Flavour, typename Record>
std::string updated(const std::string& path, std::uint64_t features, Record key, Record made,
                    bool full) {
  const std::string before = readFile(path);
  Diagnostics log;
  Exposed<Flavour> handle(path, features);
  ownUnpack<Flavour> = handle.UnpackRecord;
  if (full) handle.UnpackRecord = unpackLine<Flavour>;
  std::string told;
  const auto tell = [&](Code code) {
    told += std::to_string(code) + "\n" + readFile(path);
    writeFile(path, before);
  };
  tell(handle.Add(1, &made));
  tell(handle.Change(1, &key, &made));
  tell(handle.Delete(1, &key));
  for (const Diagnostics::Record& each : log.records) {
    told += " " + std::to_string(each.probe) + ":" + std::to_string(each.code);
  }
  return told;
}

std::string shown(const char* text) { return text == nullptr ? "|-" : std::string("|") + text; }

std::string tellVariable(const VarValRecord& record) {
  return shown(record.Variable) + shown(record.Value) + shown(record.Comment);
}
std::string tellService(const ServiceEntryRecord& record) {
  return shown(record.name) + shown(record.protocol) + shown(record.comment) +
         std::to_string(record.port);
}

const std::string longLine(GENREG_LINE_SIZE + 100, 'x');
const std::string manyAliases = [] {
  std::string line = "many 1/tcp";
  for (std::size_t i = 0; i < SERVICES_ALIAS_SLOTS; ++i) line += " a";
  return line + "\n";
}();

// Each is followed by lines that hold the key plainly.
const std::string trickyLines[] = {
    "",
    "\n\r\n  \n",
    "# key = 1\n",
    " key = 1\n",
    "key\t=\t1\r\n",
    "keys = 1\nke = 1\n",
    "key two = 1\n",
    "\"key\" = 1\n",
    "k\"e y\" = 1\n",
    "other = \"open\n",
    "other = \"closed\" x\n",
    "other =\r\"open\n",
    "other # = 1\n",
    "no equals\n",
    "= 1\n",
    "key # comment = 2\n",
    "other = 1\\\nkey = 2\n",
    "other = 1\\\r\nkey = 2\n",
    "key \\\n = 1\n",
    "other 1/udp \\\nkey 1/tcp\n",
    "other 1/udp \\\r\nkey 1/tcp\n",
    std::string("ot\0her = 1\nkey = 2\n", 19),
    std::string("other = 1\0\nkey = 2\n", 19),
    "\xE4\xF6 = 1\n",
    longLine + "key = 1\n",
    longLine + " 1/tcp\n",
    manyAliases,
    "key 1/tcp\n",
    "key 0/tcp\n",
    "other 1/tcp#x\n",
    "other 1/tcp\rkey\n",
    "other x/tcp\n",
    "other 1 /tcp\n",
    "other 1xtcp\n",
    "other 1/\n",
    "other 1/xyz\n",
    "other 1/tcpx\n",
    "other 99999999999999999999/udp\n",
    "other\n",
    "other /tcp\n",
    "o\"ther 1/tcp\n",
};

class StoredFormTest : public RegistryTest {
 protected:
  template <typename Flavour, typename Record, typename Tell>
  void expectSame(std::uint64_t mask, const Record& key, Tell tell) {
    for (const std::uint64_t features : {std::uint64_t{0}, GENREG_JOIN_CONTINUED_LINES}) {
      EXPECT_EQ((outcome<Flavour, Record>(registry(), features, mask, key, false, tell)),
                (outcome<Flavour, Record>(registry(), features, mask, key, true, tell)));
    }
  }
};

TEST_F(StoredFormTest, LinesAreToldFromAKeyAsParsingWouldTellThem) {
  const VarValRecord variables[] = {assignment("key", "2"), assignment("key two", "1"),
                                    assignment("", "1")};
  ServiceEntryRecord services[3]{};
  services[0] = {SERVICES_HAS_SERVICE, nullptr, "key", nullptr, "tcp", 0x0100, {}, {}};
  services[1] = {SERVICES_HAS_SERVICE, nullptr, "other", nullptr, "udp", 0x0200, {}, {}};
  services[2] = {SERVICES_HAS_COMMENT, " key = 1", nullptr, nullptr, nullptr, 0, {}, {}};
  for (const std::string& lines : trickyLines) {
    SCOPED_TRACE(lines.substr(0, 40));
    writeFile(registry(), lines + "key = 2\nkey 1/tcp\nother 2/udp\nkey = 2");
    for (const VarValRecord& key : variables) {
      for (const std::uint64_t mask : {0u, 1u, 2u, 3u}) {
        expectSame<GenRegVarVal>(mask, key, tellVariable);
      }
    }
    for (const ServiceEntryRecord& key : services) {
      const bool named = key.name != nullptr;
      for (std::uint64_t mask = 0; mask < (named ? 8u : 1u); ++mask) {
        expectSame<GenRegServices>(mask, key, tellService);
      }
    }
  }
}

TEST_F(StoredFormTest, UpdatesKeepAndChangeWhatTheyWouldIfTheyParsedEveryLine) {
  const VarValRecord variable = assignment("key", "2");
  const VarValRecord changed = assignment("key", "3");
  const ServiceEntryRecord service{
      SERVICES_HAS_SERVICE, nullptr, "other", nullptr, "tcp", 0x0100, {}, {}};
  const ServiceEntryRecord renamed{
      SERVICES_HAS_SERVICE, nullptr, "key", nullptr, "tcp", 0x0300, {}, {}};
  for (const std::string& lines : trickyLines) {
    SCOPED_TRACE(lines.substr(0, 40));
    writeFile(registry(), lines + "key = 2\nkey 1/tcp\nother 2/udp\nlast = 2");
    const std::uint64_t joins =
        lines.find('\\') == std::string::npos ? 0 : GENREG_JOIN_CONTINUED_LINES;
    EXPECT_EQ((updated<GenRegVarVal>(registry(), unique | joins, variable, changed, false)),
              (updated<GenRegVarVal>(registry(), unique | joins, variable, changed, true)));
    EXPECT_EQ((updated<GenRegServices>(registry(), unique | joins, service, renamed, false)),
              (updated<GenRegServices>(registry(), unique | joins, service, renamed, true)));
  }
}

// Files of so many records are larger than a buffer, which ends in the records 6553 and 17476.
class LargeFileTest : public RegistryTest {
 protected:
  template <typename Handle, typename Record, typename Stored>
  void expectOneTouched(Record (*make)(std::size_t index, int value), Stored stored) {
    std::vector<std::string> pieces;
    for (std::size_t i = 0; i < 20000; ++i) pieces.push_back(stored(i, 7));
    const std::string all = joined(pieces);
    for (const std::size_t index : {0u, 1u, 6552u, 6553u, 6554u, 17475u, 17476u, 17477u, 19999u}) {
      SCOPED_TRACE(index);
      Record key = make(index, 0);
      Record changed = make(index, 8);
      Record added = make(30000 + index, 9);
      Handle handle(registry(), unique);
      writeFile(registry(), all);
      EXPECT_EQ(handle.Change(1, &key, &changed), 0u);
      EXPECT_TRUE(readFile(registry()) == with(pieces, index, stored(index, 8)));
      writeFile(registry(), all);
      EXPECT_EQ(handle.Delete(1, &key), 0u);
      EXPECT_TRUE(readFile(registry()) == with(pieces, index, ""));
      writeFile(registry(), all);
      EXPECT_EQ(handle.Add(1, &added), 0u);
      EXPECT_TRUE(readFile(registry()) == all + stored(30000 + index, 9));
      EXPECT_EQ(handle.Add(1, &changed), duplicate);
    }
  }

 private:
  static std::string joined(const std::vector<std::string>& pieces) {
    std::string all;
    for (const std::string& piece : pieces) all += piece;
    return all;
  }
  static std::string with(std::vector<std::string> pieces, std::size_t index,
                          const std::string& piece) {
    pieces[index] = piece;
    return joined(pieces);
  }
};

std::string nameAt(std::size_t index) { return "named" + std::to_string(10000 + index); }

TEST_F(LargeFileTest, AnUpdateOfABinaryRegistryTouchesOneRecord) {
  const auto make = [](std::size_t index, int value) { return variable(nameAt(index), value); };
  expectOneTouched<TestRegistry, BinVarValRecord>(
      make, [&](std::size_t index, int value) { return frame(make(index, value)); });
}

TEST_F(LargeFileTest, AnUpdateOfATextRegistryTouchesOneLine) {
  const auto make = [](std::size_t index, int value) {
    static std::string names[3];
    static std::string values[3];
    static int turn = 0;
    turn = (turn + 1) % 3;
    names[turn] = nameAt(index);
    values[turn] = std::to_string(value);
    return assignment(names[turn].c_str(), values[turn].c_str());
  };
  expectOneTouched<Exposed<GenRegVarVal>, VarValRecord>(make, [](std::size_t index, int value) {
    return nameAt(index) + " = " + std::to_string(value) + "\n";
  });
}

TEST_F(StoredFormTest, AVariableRecordOfAnyLengthIsComparedAsTheEngineFillsIt) {
  // Shorter than nominal, longer, without a terminator, and with the key as its beginning.
  const struct {
    std::string stored;
    std::int32_t value;
  } rows[] = {{frameBytes(3, "key"), 0},
              {frameBytes(40, frame(variable("key", 5)).substr(4) + "rest"), 5},
              {frameBytes(36, std::string(36, 'k')), 7},
              {frame(variable("keys", 1)), 7}};
  for (const auto& row : rows) {
    writeFile(registry(), frame(variable("other", 9)) + row.stored + frame(variable("key", 7)));
    TestRegistry handle(registry());
    BinVarValRecord key = variable("key");
    BinVarValRecord found{};
    ASSERT_EQ(handle.Get(byName, &key, &found), 0u);
    EXPECT_EQ(found.Value, row.value);
    EXPECT_STREQ(found.Variable, "key");
  }
}

TEST_F(StoredFormTest, WhatStandsBehindTheEndThatAScannedFileHadIsNoRecord) {
  const std::string record = frame(variable("key", 7));
  std::string grown = record + record;
  grown += record;
  for (const bool full : {false, true}) {
    SCOPED_TRACE(full);
    writeFile(registry(), record);
    TestRegistry handle(registry());
    static GenRegCompareHook own;
    own = handle.compareHook();
    if (full) {
      handle.compareHook() = [](std::uint64_t mask, void* left, void* right) {
        return own(mask, left, right);
      };
    }
    BinVarValRecord key = variable("key");
    BinVarValRecord found{};
    ASSERT_EQ(handle.OpenScan(), 0u);
    writeFile(registry(), grown);
    std::int64_t behind = static_cast<std::int64_t>(2 * record.size());
    EXPECT_EQ(handle.setRegFilePosition(&behind), 0u);
    EXPECT_EQ(handle.GetNext(byName, &key, &found), readFailed);
    EXPECT_EQ(handle.CloseScan(), 0u);
  }
}

}  // namespace
