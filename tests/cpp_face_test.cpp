// zorgenreg.hpp as a user meets it, above the classes and above the C interface: records, loops,
// updates and errors of each kind of registry.
#include <cerrno>
#include <charconv>
#include <filesystem>

#include "support/registry_fixture.h"
#include "support/stored_record.h"
#include "sysservices/environment.h"

// As <windows.h> has them where a program does not say NOMINMAX.
#define min(a, b) (((a) < (b)) ? (a) : (b))
#define max(a, b) (((a) > (b)) ? (a) : (b))
#include "zorgenreg.hpp"

namespace {

#ifdef ZOR_OVER_C
constexpr bool overC = true;
#else
constexpr bool overC = false;
#endif
constexpr std::uint64_t nineOne = 0x0009000100000000;

// A kind: a record in two forms that differ in what its class does not compare, how it is asked for
// and removed, and what the file holds of the first form.
struct OfVariables : zor::Variables {
  using Variables::Variables;
  static Record record(bool other) { return {"Timeout", -30, other ? "minutes" : "seconds"}; }
  auto find() { return get("Timeout"); }
  bool drop() { return remove("Timeout"); }
  static std::string bytes() { return frame(variable("Timeout", -30, "seconds")); }
};
struct OfProfile : zor::Profile {
  using Profile::Profile;
  static Record record(bool other) { return {"Path", "/a b", other ? "\xF6." : "\x01."}; }
  auto find() { return get("Path"); }
  bool drop() { return remove("Path"); }
  static std::string bytes() { return "Path = /a b # \x01.\n"; }
};
struct OfServices : zor::Services {
  using Services::Services;
  static Record record(bool other) {
    return {"web", 8080, "tcp", {"www", other ? "http" : "w3"}, "mine"};
  }
  std::optional<Record> find() {
    EXPECT_TRUE(get("web") == get("web", "tcp") && !get(8080, "udp") && !get("w3"));
    return get(8080, "tcp");
  }
  bool drop() { return remove("web", "tcp") || remove(8080, "tcp"); }
  static std::string bytes() { return "web\t\t8080/tcp\twww w3\t\t# mine\n"; }
};
struct OfGlobal : zor::Global {
  using Global::Global;
  static Record record(bool other) {
    zor::GlobalServices services{"ZOR", nineOne, "/opt", "2", "3", 4, 5, std::uint8_t{6}, 7, 0, -8};
    if (other) services.number3.reset();
    return services;
  }
  std::optional<Record> find() { return get<zor::GlobalServices>("ZOR"); }
  bool drop() { return remove<zor::GlobalServices>("ZOR"); }
  static std::string bytes() {
    return framed(stored(2, 0x3FF,
                         {text("ZOR"), number(nineOne, 8), text("/opt"), text("2"), text("3"),
                          number(4, 4), number(5, 4), number(6, 1), number(7, 4), number(0, 4)},
                         0, -8));
  }
};

template <typename Kind>
class CppFace : public RegistryTest {};
using Kinds = ::testing::Types<OfVariables, OfProfile, OfServices, OfGlobal>;
TYPED_TEST_SUITE(CppFace, Kinds);
using CppFaceCases = RegistryTest;

// The code of what `work` throws, 0 when nothing; the words go to `words`.
template <typename Work>
Code thrown(Work work, std::string* words = nullptr) {
  try {
    work();
  } catch (const zor::Error& error) {
    if (words != nullptr) *words = error.what();
    return zor::codeOf(error.code());
  } catch (const std::bad_alloc&) {
    return OSS_RC_NO_MEMORY;
  }
  return 0;
}

TYPED_TEST(CppFace, ARecordBecomesWhatIsSetAndNothingIsWrittenForOneThatIsSo) {
  TypeParam registry(this->path("new/r"));
  registry.cacheReads(true);
  const auto first = TypeParam::record(false);
  const auto other = TypeParam::record(true);
  EXPECT_FALSE(registry.find() || registry.drop() || registry.begin() != registry.end());
  EXPECT_EQ(thrown([&] { registry.change(first); }), notFound);
  EXPECT_FALSE(exists(this->path("new")));

  EXPECT_TRUE(registry.set(first));
  EXPECT_EQ(readFile(this->path("new/r")), TypeParam::bytes());
  const FaultPlan writes(0, 0, false, "rename");
  EXPECT_FALSE(registry.set(first) || registry.change(first));
  EXPECT_EQ(thrown([&] { registry.add(other); }), duplicate);
  EXPECT_EQ(writes.calls(), 0u);
  EXPECT_TRUE(registry.find() == first && registry.change(other) && registry.find() == other);
  for (const auto& record : registry) EXPECT_TRUE(record == other);
  EXPECT_TRUE(registry.drop());
  EXPECT_EQ(readFile(this->path("new/r")), "");
}

TYPED_TEST(CppFace, AnUpdateIsCommittedAsAWholeOrAbandonsItselfAlsoWhenItsRegistryMoves) {
  TypeParam made(this->registry());
  {
    const zor::Update update(made);
    made.add(TypeParam::record(false));
    EXPECT_EQ(thrown([&] { zor::Update another(made); }), GENREG_RC_UPDATE_OPEN);
  }
  EXPECT_FALSE(made.find());
  zor::Update update(made);
  made.add(TypeParam::record(false));
  TypeParam moved(std::move(made));
  EXPECT_TRUE(moved.set(TypeParam::record(true)));
  TypeParam second(this->registry());
  second.lockTimeout(std::chrono::milliseconds(1));
  std::error_code error;
  EXPECT_FALSE(second.set(TypeParam::record(false), error) || second.find());
  EXPECT_EQ(error, std::errc::device_or_resource_busy);
  update.commit();
  EXPECT_TRUE(second.find() == TypeParam::record(true));
  EXPECT_EQ(thrown([&] { update.commit(); }), GENREG_RC_NO_UPDATE);
  EXPECT_EQ(thrown([&] { made.find(); }), GENREG_RC_NOT_READY);  // NOLINT: that is its promise
}

TYPED_TEST(CppFace, ALoopThatIsLeftEarlyLetsTheRegistryBeChanged) {
  TypeParam registry(this->registry());
  registry.add(TypeParam::record(false));
  std::error_code error;
  for (const auto& record : registry.scan(error)) {
    EXPECT_TRUE(registry.find() == record);
    EXPECT_EQ(thrown([&] { registry.set(record); }), GENREG_RC_UPDATE_IN_SCAN);
    EXPECT_EQ(thrown([&] { registry.begin(); }), GENREG_RC_SCAN_OPEN);
    break;
  }
  EXPECT_TRUE(!error && registry.set(TypeParam::record(true)));
  const zor::Update update(registry);
  for (const auto& record : registry) EXPECT_TRUE(registry.find() == record);
}

TYPED_TEST(CppFace, AnEndOfMemoryLeavesNothingOpenAndStoresNothingButWhatIsReported) {
  using Stored = const typename TypeParam::Record*;
  const auto first = TypeParam::record(false);
  const auto other = TypeParam::record(true);
  // Has `now` be what is stored, as far as it is reported.
  const std::function<void(int, TypeParam&, Stored&)> work = [&](int i, auto& to, Stored& now) {
    if (i == 0) to.add(first), now = &first;
    if (i == 1) to.set(other), now = &other;
    if (i == 2) to.change(first), now = &first;
    if (i == 3) to.drop(), now = nullptr;
    if (i == 4) (void)std::distance(to.begin(), to.end());
    if (i < 5) return;
    Stored then = now;
    zor::Update update(to);
    for (const int each : {3, 0, 1}) (void)thrown([&] { work(each, to, then); });
    update.commit();
    now = then;
  };
  for (int i = 0; i < 12; ++i) {
    bool hasEnded = true;
    for (long n = 1; hasEnded; ++n) {
      this->clearDirectory();
      if (i % 2 == 1) writeFile(this->registry(), TypeParam::bytes());
      Stored now = i % 2 == 1 ? &first : nullptr;
      TypeParam registry(this->registry());
      hasEnded = endsInTheMidst(n, [&] { work(i / 2, registry, now); });
      TypeParam another(this->registry());
      another.lockTimeout(std::chrono::milliseconds(1));
      const auto found = another.find();
      ASSERT_TRUE(now == nullptr ? !found : found == *now) << i << " " << n;
      ASSERT_EQ(thrown([&] { registry.set(other), another.change(first); }), 0u) << i << " " << n;
    }
  }
}

TEST_F(CppFaceCases, WhatCannotBeStoredAsItIsFailsInBothForms) {
  zor::Variables bin(path("bin"));
  zor::Profile var(path("var"));
  zor::Services services(path("services"));
  zor::Global global(path("global"));
  const auto expect = [](auto& registry, const auto& record, Code code, const char* words) {
    std::error_code error;
    EXPECT_FALSE(registry.set(record, error));
    EXPECT_EQ(zor::codeOf(error), code) << registry.cause();
    std::string what;
    EXPECT_EQ(thrown([&] { registry.set(record); }, &what), code);
    EXPECT_TRUE(what.find(words) != what.npos && what.find(registry.file()) == 0) << what;
  };
  const std::string nul("a\0b", 3);
  using Bin = zor::Variable;
  using Var = zor::Assignment;
  using Entry = zor::Service;
  expect(bin, Bin{"sixteen letters."}, OSS_RC_BUFFER_TOO_SMALL, "Variable has at most 15");
  expect(bin, Bin{"a", 1, nul}, GENREG_RC_BAD_ARGUMENT, "Comment");
  expect(bin, Bin{}, GENREG_RC_NO_ARGUMENT, "Variable");
  expect(var, Var{"a", "b\nc = d"}, GENREG_RC_BAD_ARGUMENT, "Value");
  expect(var, Var{"a", "b", "c\rd"}, GENREG_RC_BAD_ARGUMENT, "Comment");
  expect(var, Var{"a", "b#c"}, overC ? GENREG_RC_BAD_VALUE : verifying, "");
  expect(var, Var{"a", std::string(3000, 'x')}, overC ? GENREG_RC_BAD_VALUE : packLineFailed, "");
  expect(services, Entry{"a", 0, "tcp"}, GENREG_RC_SERVICES_PACK_NO_PORT, "Port");
  expect(services, Entry{"a", 1, "xyz"}, GENREG_RC_SERVICES_BAD_PROTOCOL, "Protocol");
  expect(services, Entry{"a", 1, "tcp", {"b c"}}, GENREG_RC_BAD_ARGUMENT, "Aliases");
  expect(services, Entry{"a", 1, "tcp", std::vector<std::string>(128, "b")},
         OSS_RC_BUFFER_TOO_SMALL, "127");
  expect(global, zor::GlobalInstance{{}, {}, std::string(64, 'x')}, OSS_RC_BUFFER_TOO_SMALL, "63");
  expect(global, zor::GlobalInstance{{}, {}, ""}, rejected, "");
  EXPECT_EQ(thrown([] { zor::Variables(""); }), GENREG_RC_NO_ARGUMENT);
}

TEST_F(CppFaceCases, ANameThatNoRecordCanHaveIsNotFound) {
  const std::string longest(16, 'x');  // fills its field without a terminator
  const std::string nul("a\0b", 3);
  writeFile(path("bin"), frameBytes(36, longest + little(7, 4) + std::string(16, '\0')));
  writeFile(path("services"), "a 1/tcp\n");
  zor::Variables bin(path("bin"));
  zor::Profile var(path("var"));
  zor::Services services(path("services"));
  zor::Global global(path("global"));
  for (const std::string& name : {longest + "x", nul, std::string("a\nb")}) {
    EXPECT_FALSE(bin.get(name) || bin.remove(name) || var.get(name) || var.remove(name));
    EXPECT_FALSE(services.get(name) || services.get("a", name) || services.remove(1, name));
  }
  const std::string tooLong(300, 'x');
  EXPECT_FALSE(global.get<zor::GlobalVariable>("S", tooLong));
  EXPECT_FALSE(global.remove<zor::GlobalInstance>(tooLong));
  EXPECT_TRUE(bin.get(longest)->value == 7 && bin.remove(longest));
  EXPECT_EQ(thrown([&] { bin.get(""); }), GENREG_RC_NO_ARGUMENT);
}

TEST_F(CppFaceCases, APathIsThatVeryFileOrAnErrorWhereItCannotBeSpelled) {
  const auto name =
      std::filesystem::path(registry()).parent_path() / std::filesystem::u8path("\xE6\x97\xA5");
  std::error_code error;
  zor::Variables variables(name, error);
  const bool isText = sizeof(std::filesystem::path::value_type) == 1;
  if (!isText && zor::codeOf(error) == GENREG_RC_PATH_ENCODING) return;
  ASSERT_FALSE(error);
  variables.add({"a"});
  EXPECT_TRUE(std::filesystem::exists(name));
}

TEST_F(CppFaceCases, AnErrorKnowsThatTheChangeIsCommittedAllTheSame) {
  zor::Variables variables(registry());
  unsigned long last = 0;
  {
    const FaultPlan counting(0, 0, false, "unlink");
    variables.add({"Retries", 5});
    last = counting.calls();
  }
  const FaultPlan unlocking(last, EIO, false, "unlink");
  EXPECT_EQ(thrown([&] { variables.add({"Timeout", 30}); }), GENREG_RC_UNLOCK_FAILED);
  EXPECT_TRUE(variables.committed() && variables.get("Timeout")->value == 30);
}

TEST_F(CppFaceCases, ALoopHandsOutWhatIsBeforeTheDamageAndThenFails) {
  writeFile(registry(), frame(variable("a")) + frameBytes(36, "half"));
  zor::Variables variables{std::filesystem::path(registry())};
  std::string names;
  std::error_code error;
  for (const auto& each : variables.scan(error)) names += each.name;
  EXPECT_EQ(names + std::to_string(zor::codeOf(error)), "a" + std::to_string(readFailed));
  EXPECT_EQ(thrown([&] { (void)std::distance(variables.begin(), variables.end()); }), readFailed);
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

TEST_F(CppFaceCases, FieldsOfALaterVersionSurviveAChangeOfTheGlobalRegistry) {
  const auto bytes = [](const char* value) {
    return framed(stored(4, 0x17, {text("S"), text("V"), text(value), text("later")}));
  };
  writeFile(registry(), bytes("old"));
  (void)ossEnvironmentSet("ZOR_GLOBAL_REG_PATHNAME", registry().c_str());
  zor::Global global;
  (void)ossEnvironmentSet("ZOR_GLOBAL_REG_PATHNAME", nullptr);
  EXPECT_TRUE(global.set(zor::GlobalVariable{"S", "V", "new"}));
  EXPECT_EQ(readFile(registry()), bytes("new"));
}

}  // namespace
