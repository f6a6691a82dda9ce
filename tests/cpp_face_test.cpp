// zorgenreg.hpp as a user meets it: records, loops, updates and errors of each kind of registry.
#include <filesystem>

#include "support/registry_fixture.h"
#include "support/stored_record.h"
#include "zorgenreg.hpp"

namespace {

// A kind's registry, a record in two forms that differ in what its class does not compare, and what
// the file holds of the first.
struct OfVariables {
  using Registry = zor::Variables;
  static zor::Variable record(bool other) { return {"Timeout", 30, other ? "minutes" : "seconds"}; }
  static auto get(Registry& registry) { return registry.get("Timeout"); }
  static bool remove(Registry& registry) { return registry.remove("Timeout"); }
  static bool isOther(const zor::Variable& found) {
    EXPECT_EQ(found.name + std::to_string(found.value), "Timeout30");
    return found.comment == "minutes";
  }
  static std::string bytes() { return frame(variable("Timeout", 30, "seconds")); }
};
struct OfProfile {
  using Registry = zor::Profile;
  static zor::Assignment record(bool other) { return {"Path", "/a b", other ? "ö." : "\x01."}; }
  static auto get(Registry& registry) { return registry.get("Path"); }
  static bool remove(Registry& registry) { return registry.remove("Path"); }
  static bool isOther(const zor::Assignment& found) {
    EXPECT_EQ(found.name + found.value, "Path/a b");
    return found.comment == "ö.";
  }
  static std::string bytes() { return "Path = /a b # \x01.\n"; }
};
struct OfServices {
  using Registry = zor::Services;
  static zor::Service record(bool other) {
    return {"web", 8080, "tcp", {"www", other ? "http" : "w3"}, "mine"};
  }
  static auto get(Registry& registry) {
    EXPECT_EQ(registry.get("web").has_value(), registry.get(8080, "tcp").has_value());
    EXPECT_FALSE(registry.get(8080, "udp") || registry.get("web", "udp") || registry.get("w3"));
    return registry.get("web", "tcp");
  }
  static bool remove(Registry& registry) { return registry.remove(8080, "tcp"); }
  static bool isOther(const zor::Service& found) {
    EXPECT_EQ(found.name + std::to_string(found.port) + found.protocol + *found.comment,
              "web8080tcpmine");
    return found.aliases == std::vector<std::string>{"www", "http"};
  }
  static std::string bytes() { return "web\t\t8080/tcp\twww w3\t\t# mine\n"; }
};
struct OfGlobal {
  using Registry = zor::Global;
  static zor::GlobalRecord record(bool other) {
    zor::GlobalInstance instance;
    instance.instanceName = "one";
    instance.versionCode = 0x0009000100000000;
    if (!other) instance.startAtBoot = false;
    return instance;
  }
  static auto get(Registry& registry) { return registry.get<zor::GlobalInstance>("one"); }
  static bool remove(Registry& registry) { return registry.remove<zor::GlobalInstance>("one"); }
  static bool isOther(const zor::GlobalInstance& found) {
    EXPECT_EQ(*found.instanceName + zor::versionText(*found.versionCode), "one9.1.0.0");
    return !found.startAtBoot;
  }
  static bool isOther(const zor::GlobalRecord& found) {
    return isOther(std::get<zor::GlobalInstance>(found));
  }
  static std::string bytes() {
    return framed(stored(1, 0x26, {number(0x0009000100000000, 8), text("one"), number(0, 4)}));
  }
};

template <typename Kind>
class CppFace : public RegistryTest {};
using Kinds = ::testing::Types<OfVariables, OfProfile, OfServices, OfGlobal>;
TYPED_TEST_SUITE(CppFace, Kinds);
using CppFaceCases = RegistryTest;

template <typename Work>
std::error_code thrownBy(Work work) {
  try {
    work();
  } catch (const zor::Error& error) {
    return error.code();
  }
  return {};
}

TYPED_TEST(CppFace, ARecordBecomesWhatIsSetAndNothingIsWrittenForOneThatIsSo) {
  typename TypeParam::Registry registry(this->path("new/r"));
  registry.cacheReads(true);
  const auto first = TypeParam::record(false);
  const auto other = TypeParam::record(true);
  EXPECT_FALSE(TypeParam::get(registry) || TypeParam::remove(registry));
  EXPECT_TRUE(registry.begin() == registry.end());
  EXPECT_EQ(thrownBy([&] { registry.change(first); }), std::errc::no_such_file_or_directory);
  EXPECT_FALSE(exists(this->path("new")));

  EXPECT_TRUE(registry.set(first));
  EXPECT_EQ(readFile(this->path("new/r")), TypeParam::bytes());
  const FaultPlan writes(0, 0, false, "rename");
  EXPECT_FALSE(registry.set(first) || registry.change(first));
  EXPECT_EQ(thrownBy([&] { registry.add(other); }), std::errc::file_exists);
  EXPECT_EQ(writes.calls(), 0u);
  EXPECT_FALSE(TypeParam::isOther(*TypeParam::get(registry)));
  EXPECT_TRUE(registry.change(other));
  EXPECT_TRUE(TypeParam::isOther(*TypeParam::get(registry)));
  for (const auto& record : registry) EXPECT_TRUE(TypeParam::isOther(record));
  EXPECT_TRUE(TypeParam::remove(registry));
  EXPECT_EQ(readFile(this->path("new/r")), "");
}

TYPED_TEST(CppFace, AnUpdateIsCommittedAsAWholeOrAbandonsItselfAlsoWhenItsRegistryMoves) {
  typename TypeParam::Registry made(this->registry());
  {
    const zor::Update update(made);
    made.add(TypeParam::record(false));
    EXPECT_EQ(thrownBy([&] { zor::Update another(made); }).value(),
              zor::errorCode(GENREG_RC_UPDATE_OPEN).value());
  }
  EXPECT_FALSE(TypeParam::get(made));
  zor::Update update(made);
  made.add(TypeParam::record(false));
  typename TypeParam::Registry registry(std::move(made));
  EXPECT_TRUE(registry.set(TypeParam::record(true)));
  typename TypeParam::Registry second(this->registry());
  second.lockTimeout(std::chrono::milliseconds(1));
  std::error_code error;
  EXPECT_FALSE(second.set(TypeParam::record(false), error));
  EXPECT_EQ(error, std::errc::device_or_resource_busy);
  EXPECT_NE(second.cause().find(this->registry()), std::string::npos) << second.cause();
  EXPECT_FALSE(TypeParam::get(second));
  update.commit();
  EXPECT_TRUE(TypeParam::isOther(*TypeParam::get(second)));
  update.commit(error);
  EXPECT_EQ(zor::codeOf(error), GENREG_RC_NO_UPDATE);
  EXPECT_EQ(zor::codeOf(thrownBy([&] { TypeParam::get(made); })), GENREG_RC_NOT_READY);  // NOLINT
}

TYPED_TEST(CppFace, ALoopThatIsLeftEarlyLetsTheRegistryBeChanged) {
  typename TypeParam::Registry registry(this->registry());
  registry.add(TypeParam::record(false));
  std::error_code error;
  for (const auto& record : registry.scan(error)) {
    EXPECT_TRUE(TypeParam::get(registry));
    EXPECT_EQ(zor::codeOf(thrownBy([&] { registry.set(record); })), GENREG_RC_UPDATE_IN_SCAN);
    break;
  }
  EXPECT_FALSE(error);
  EXPECT_TRUE(registry.set(TypeParam::record(true)));
}

TEST_F(CppFaceCases, WhatCannotBeStoredAsItIsFailsInBothForms) {
  using Call = std::function<void(std::error_code*)>;
  zor::Variables variables(path("v"));
  zor::Profile profile(path("p"));
  zor::Services services(path("s"));
  zor::Global global(path("g"));
  // Sets a record in the form that throws, or in the other.
  const auto setting = [](auto& registry, auto record) -> Call {
    return [&registry, record](std::error_code* error) {
      error == nullptr ? registry.set(record) : registry.set(record, *error);
    };
  };
  zor::GlobalInstance wide, empty;
  wide.instanceName = std::string(GLOBALREG_NAME_SIZE, 'x');
  empty.instanceName = "";
  const std::string nul("a\0b", 3);
  const struct {
    Call call;
    Code code;
    const char* words;
  } rows[] = {
      {setting(variables, zor::Variable{"sixteen letters.", 1}), OSS_RC_BUFFER_TOO_SMALL, "15"},
      {setting(variables, zor::Variable{"a", 1, nul}), GENREG_RC_BAD_ARGUMENT, "Comment"},
      {setting(variables, zor::Variable{}), GENREG_RC_NO_ARGUMENT, "Variable"},
      {setting(profile, zor::Assignment{"a", "b\nc = d"}), GENREG_RC_BAD_ARGUMENT, "Value"},
      {setting(profile, zor::Assignment{"a", "b", "c\rd"}), GENREG_RC_BAD_ARGUMENT, "Comment"},
      {setting(profile, zor::Assignment{"a", "b#c"}), verifying, "/p"},
      {setting(profile, zor::Assignment{"a b", std::string(3000, 'x')}), packLineFailed, "/p"},
      {setting(services, zor::Service{"a", 0, "tcp"}), GENREG_RC_SERVICES_PACK_NO_PORT, "Port"},
      {setting(services, zor::Service{"a", 1, "tcp", {"b c"}}), GENREG_RC_BAD_ARGUMENT, "Aliases"},
      {setting(services, zor::Service{"a", 1, ""}), GENREG_RC_NO_ARGUMENT, "Protocol"},
      {setting(services, zor::Service{"a", 1, "tcp", std::vector<std::string>(128, "b")}),
       OSS_RC_BUFFER_TOO_SMALL, "127"},
      {setting(global, zor::GlobalRecord(wide)), OSS_RC_BUFFER_TOO_SMALL, "InstanceName"},
      {setting(global, zor::GlobalRecord(empty)), rejected, "/g"},
  };
  for (const auto& row : rows) {
    std::error_code error;
    row.call(&error);
    EXPECT_EQ(zor::codeOf(error), row.code) << row.words;
    EXPECT_EQ(thrownBy([&] { row.call(nullptr); }), error);
    try {
      row.call(nullptr);
    } catch (const zor::Error& thrown) {
      EXPECT_EQ(thrown.file().substr(0, directory_.size()), directory_);
      EXPECT_NE(std::string(thrown.what()).find(row.words), std::string::npos) << thrown.what();
      EXPECT_FALSE(thrown.committed());
    }
  }
  std::error_code error;
  const zor::Variables nowhere("", error);
  EXPECT_EQ(error, std::errc::invalid_argument);
}

TEST_F(CppFaceCases, AnErrorKnowsThatTheChangeIsCommittedAllTheSame) {
  zor::Variables registry(this->registry());
  unsigned long last = 0;
  {
    const FaultPlan counting(0, 0, false, "unlink");
    registry.add({"Retries", 5});
    last = counting.calls();
  }
  const FaultPlan unlocking(last, EIO, false, "unlink");
  try {
    registry.add({"Timeout", 30});
    FAIL();
  } catch (const zor::Error& error) {
    EXPECT_TRUE(error.committed() && registry.committed()) << error.what();
  }
  EXPECT_EQ(registry.get("Timeout")->value, 30);
}

TEST_F(CppFaceCases, ALoopHandsOutWhatIsBeforeTheDamageAndThenFails) {
  writeFile(registry(), frame(variable("a")) + frameBytes(36, "half"));
  zor::Variables variables{std::filesystem::path(registry())};
  std::string names;
  std::error_code error;
  for (const zor::Variable& each : variables.scan(error)) names += each.name;
  EXPECT_EQ(names, "a");
  EXPECT_EQ(zor::codeOf(error), readFailed);
  EXPECT_EQ(thrownBy([&] {
              for (const auto& each : variables) names += each.name;
            }),
            error);
}

TEST_F(CppFaceCases, ANameThatStandsTwiceIsSetInBothPlaces) {
  writeFile(registry(), "a = 1\n# text\na = 2 # x\n");
  zor::Profile profile(registry().c_str());
  EXPECT_TRUE(profile.set({"a", "1", "y"}));
  EXPECT_EQ(readFile(registry()), "a = 1 # y\n# text\na = 1 # y\n");
  EXPECT_FALSE(profile.set({"a", "1", "y"}));
  EXPECT_TRUE(profile.remove("a"));
  EXPECT_EQ(readFile(registry()), "# text\n");
}

TEST_F(CppFaceCases, FieldsOfALaterVersionSurviveAChange) {
  writeFile(registry(),
            framed(stored(4, 0x17, {text("S"), text("V"), text("old"), text("later")}, 8)));
  zor::Global global(registry());
  auto record = *global.get<zor::GlobalVariable>("S", "V");
  record.value = "new";
  EXPECT_TRUE(global.set(record));
  EXPECT_EQ(readFile(registry()),
            framed(stored(4, 0x17, {text("S"), text("V"), text("new"), text("later")})));
}

// A flavour of one's own: pairs of numbers, the first of which identifies them.
struct Pair {
  std::uint64_t key, value;
};
class Pairs : public GenRegBin {
 public:
  Pairs(const std::string& path, Code* code) : GenRegBin(path.c_str(), code) {
    GenRegBase::CompareRecord = [](std::uint64_t mask, void* record, void* key) {
      const auto& left = *static_cast<const Pair*>(record);
      const auto& right = *static_cast<const Pair*>(key);
      const bool same =
          left.key == right.key && (mask != GENREG_ALL_FIELDS || left.value == right.value);
      return same ? 1u : 0u;
    };
    GenRegBase::ValidateKey = [](std::uint64_t, void*) { return 0u; };
    GenRegFile::GetRecordSize = [](std::uint64_t* size) { return *size = sizeof(Pair), 0u; };
    GenRegFile::GetRecordLength = [](const void*, std::uint64_t* length) {
      return *length = sizeof(Pair), 0u;
    };
    (void)setFeature(GENREG_VERIFY_UPDATES);
  }
};

TEST_F(CppFaceCases, AFlavourOfOnesOwnIsMadeFromAPath) {
  Code code = 1;
  Pairs pairs(registry(), &code);
  ASSERT_EQ(code, 0u);
  Pair pair{7, 1};
  Pair changed{7, 2};
  EXPECT_EQ(pairs.Add(1, &pair), 0u);
  EXPECT_EQ(pairs.Add(1, &pair), duplicate);
  EXPECT_EQ(pairs.Change(1, &pair, &changed), 0u);
  EXPECT_EQ(readFile(registry()), frameBytes(16, little(7, 8) + little(2, 8)));
  const Pairs nowhere("", &code);
  EXPECT_EQ(code, GENREG_RC_NO_ARGUMENT);
}

}  // namespace
