// Updates of many changes: they answer as the operations would one by one, nobody sees them before
// their commit, and they are committed as a whole or not at all.
#include <cerrno>
#include <chrono>
#include <random>
#include <thread>

#include "support/flavours.h"

namespace {

template <typename Flavour>
using ManyChangesTest = FlavourTest<Flavour>;
TYPED_TEST_SUITE(ManyChangesTest, AllFlavours);

// What a scan finds: values and codes of every record of a name, or of all.
template <typename Flavour>
std::string scanned(typename Operations<Flavour>::Handle& handle, const std::string& name) {
  std::string seen = std::to_string(handle.OpenScan());
  for (std::int64_t value = 1; value > 0;) {
    value = Operations<Flavour>::get(handle, name, true);
    seen += " " + std::to_string(value);
  }
  return seen + " " + std::to_string(handle.CloseScan());
}

TYPED_TEST(ManyChangesTest, AnswersAsTheSameOperationsDoneOneByOne) {
  // What the flavour cannot compare as it stands lies between the records.
  const std::vector<std::string> odd = TypeParam::isText
                                           ? std::vector<std::string>{"# x\n",
                                                                      "\n",
                                                                      "  a = 5\n",
                                                                      "odd \"\n",
                                                                      std::string("b\0c\n", 4),
                                                                      std::string(5000, 'l') + "\n",
                                                                      "c 7/tcp x\\\n"}
                                           : std::vector<std::string>{frameBytes(3, "abc")};
  std::mt19937 random(20261125);
  const auto below = [&](std::size_t count) { return static_cast<int>(random() % count); };
  const auto nameBelow = [&](std::size_t count) {
    return std::string(1, static_cast<char>(97 + below(count)));
  };
  const std::string other = this->path("other");
  for (int round = 0; round < 180; ++round) {
    std::uint64_t features = std::vector<std::uint64_t>{unique, verified, unverified}[below(3)];
    if (TypeParam::isText && below(4) == 0) features |= GENREG_JOIN_CONTINUED_LINES;
    std::string before;
    for (int i = below(8); i > 0; --i) {
      const bool isOdd = TypeParam::always == 0 && below(3) == 0;
      before += isOdd ? odd[below(odd.size())] : TypeParam::stored(nameBelow(6), 1 + below(3));
    }
    if (TypeParam::isText && !before.empty() && below(3) == 0) before.pop_back();
    if (!TypeParam::isText && below(20) == 0) before += "torn";
    SCOPED_TRACE(std::to_string(round) + ", features " + std::to_string(features));
    writeFile(this->registry(), before);
    writeFile(other, before);
    typename TestFixture::Handle handle(this->registry(), features);
    typename TestFixture::Handle single(other, features);
    ASSERT_EQ(handle.BeginUpdate(), 0u);
    std::string steps;
    bool asFarAsItGot = false;
    for (int i = 0; i < 12 && !asFarAsItGot; ++i) {
      const std::string name = nameBelow(7);
      const int value = 1 + below(3);
      const int verb = below(5);
      const auto run = [&](auto& to) -> std::string {
        switch (verb) {
          case 0:
            return std::to_string(TestFixture::Run::add(to, name, value));
          case 1:
            return std::to_string(TestFixture::Run::change(to, name, value));
          case 2:
            return std::to_string(TestFixture::Run::remove(to, name));
          case 3:
            return std::to_string(TestFixture::Run::get(to, name));
          default:
            return scanned<TypeParam>(to, name);
        }
      };
      steps += std::to_string(verb) + name + std::to_string(value) + " ";
      const std::string expected = run(single);
      ASSERT_EQ(run(handle), expected) << steps << " on " << before;
      EXPECT_EQ(readFile(this->registry()), before) << "nobody sees what is pending";
      // Without verification such a Change is committed as far as it got.
      asFarAsItGot = expected == std::to_string(unchanged) && (features & unique) == 0;
    }
    if (::testing::Test::HasFailure()) return;
    const std::string outcome = readFile(other);
    if (asFarAsItGot) {
      EXPECT_EQ(handle.AbandonUpdate(), 0u);
      EXPECT_EQ(readFile(this->registry()), before);
    } else {
      EXPECT_EQ(handle.CommitUpdate(), 0u);
      EXPECT_EQ(readFile(this->registry()), outcome) << steps << " on " << before;
      EXPECT_EQ(handle.isUpdateCommitted(), outcome != before);
    }
    EXPECT_EQ(handle.status, GENREG_STATUS_IDLE | GENREG_STATUS_READY);
    (void)std::remove(this->temporary().c_str());
    (void)std::remove((other + ".tmp").c_str());
    (void)std::remove((other + ".cor").c_str());
  }
}

TYPED_TEST(ManyChangesTest, ItIsCommittedOnceOrNotAtAll) {
  const std::string before = this->bytesOf("a1 b1 c1");
  const auto update = [&](auto& handle) {
    EXPECT_EQ(handle.BeginUpdate(), 0u);
    EXPECT_EQ(TestFixture::Run::change(handle, "b", 9), 0u);
    EXPECT_EQ(TestFixture::Run::remove(handle, "a"), 0u);
    EXPECT_EQ(TestFixture::Run::add(handle, "d", 4), 0u);
    return handle.CommitUpdate();
  };
  const std::string after =
      TypeParam::stored("b", 9) + TypeParam::stored("c", 1) + TypeParam::stored("d", 4);
  const auto flip = [&](const std::string& name) {
    std::string bytes = readFile(name);
    bytes[bytes.size() / 2] ^= 1;
    writeFile(name, bytes);
  };
  const struct {
    const char* name;
    std::function<void()> act;  // at the first sync
    Code verified, unverified;
  } cases[] = {
      {"nothing", [] {}, 0, 0},
      {"a bit turns in the temporary file", [&] { flip(this->temporary()); }, verifying, 0},
      {"another program writes", [&] { writeFile(this->registry(), before + before); }, verifying,
       closing},
  };
  for (const auto& row : cases) {
    for (const std::uint64_t features : {unique, unverified}) {
      SCOPED_TRACE(std::string(row.name) + ", features " + std::to_string(features));
      this->clearDirectory();
      writeFile(this->registry(), before);
      typename TestFixture::Handle handle(this->registry(), features);
      int syncs = 0;
      Code code = 0;
      {
        const FaultHook watching([&](const std::string& call) {
          if (call == "fsync" && ++syncs == 1) row.act();
          return 0;
        });
        code = update(handle);
      }
      EXPECT_EQ(code, features == unique ? row.verified : row.unverified);
      EXPECT_EQ(handle.isUpdateCommitted(), code == 0);
      EXPECT_TRUE(code != 0 || syncs == 2) << "the file and its directory, once";
      const std::string now = readFile(this->registry());
      EXPECT_TRUE(row.verified != 0 || now == after);
      EXPECT_TRUE(code == 0 || now.substr(0, before.size()) == before);
      EXPECT_FALSE(exists(this->lockFile()) || exists(this->backup()));
      EXPECT_EQ(std::string(handle.getLastCause()).empty(), code == 0);
      EXPECT_EQ(exists(this->temporary()), code == verifying) << "what is refused stays";
    }
  }
}

TYPED_TEST(ManyChangesTest, AFirstOneMakesTheRegistryAndOneWithoutAChangeMakesNothing) {
  const std::string name = this->path("new") + "/r";
  typename TestFixture::Handle handle(name, unique);
  ASSERT_EQ(handle.BeginUpdate(), 0u);
  EXPECT_EQ(TestFixture::Run::get(handle, "a"),
            -std::int64_t{TypeParam::isText ? opening : GENREG_RC_NO_FILE});
  EXPECT_EQ(TestFixture::Run::remove(handle, "a"), opening);
  EXPECT_EQ(handle.OpenScan(), GENREG_RC_OPEN_FAILED);
  EXPECT_EQ(handle.CommitUpdate(), 0u);
  EXPECT_FALSE(exists(name));
  ASSERT_EQ(handle.BeginUpdate(), 0u);
  EXPECT_EQ(TestFixture::Run::add(handle, "a", 1), 0u);
  EXPECT_EQ(TestFixture::Run::get(handle, "a"), 1);
  EXPECT_FALSE(exists(name));
  EXPECT_EQ(handle.CommitUpdate(), 0u);
  EXPECT_EQ(readFile(name), this->bytesOf("a1"));
  // What came into being meanwhile is somebody else's.
  typename TestFixture::Handle late(this->registry(), unique);
  ASSERT_EQ(late.BeginUpdate(), 0u);
  EXPECT_EQ(TestFixture::Run::add(late, "a", 1), 0u);
  writeFile(this->registry(), this->bytesOf("z1"));
  EXPECT_EQ(late.CommitUpdate(), opening);
  EXPECT_FALSE(exists(this->temporary()));
  EXPECT_EQ(readFile(this->registry()), this->bytesOf("z1"));
  // There and back again.
  const FaultPlan syncs(0, 0, false, "fsync");
  ASSERT_EQ(handle.BeginUpdate(), 0u);
  EXPECT_EQ(TestFixture::Run::change(handle, "a", 2), 0u);
  EXPECT_EQ(TestFixture::Run::change(handle, "a", 1), 0u);
  EXPECT_EQ(TestFixture::Run::add(handle, "b", 1), 0u);
  EXPECT_EQ(TestFixture::Run::remove(handle, "b"), 0u);
  EXPECT_EQ(handle.CommitUpdate(), 0u);
  EXPECT_EQ(syncs.calls(), 0u);
  EXPECT_FALSE(handle.isUpdateCommitted());
}

// What is known by its hash alone is asked for its name: these two have one hash.
TYPED_TEST(ManyChangesTest, AnIndexTellsNamesOfOneHashApart) {
  const auto first = TypeParam::stored("costarring", 1);
  const auto second = TypeParam::stored("liquid", 2);
  for (const bool both : {false, true}) {
    writeFile(this->registry(), both ? first + second : first);
    typename TestFixture::Handle handle(this->registry(), unique);
    handle.setCachedReads(true);  // of a file that has not just been changed
    std::this_thread::sleep_for(std::chrono::milliseconds(80));
    for (const bool updates : {false, true}) {
      EXPECT_EQ(updates ? handle.BeginUpdate() : 0, 0u);
      for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(TestFixture::Run::get(handle, "liquid"), both ? 2 : -std::int64_t{notFound});
      }
    }
    EXPECT_EQ(TestFixture::Run::remove(handle, "liquid"), both ? 0 : notFound);
    EXPECT_EQ(handle.CommitUpdate(), 0u);
    EXPECT_EQ(readFile(this->registry()), first);
  }
}

// Beside no others of the same update, beside many, and alone.
TYPED_TEST(ManyChangesTest, AnOperationWithoutMemoryChangesNothingAndTheUpdateGoesOn) {
  const std::string odd = TypeParam::isText ? "x  \"y  z\n" : frameBytes(50, std::string(50, 'o'));
  std::string before = this->bytesOf("a1 b1");
  before += (TypeParam::always == 0 ? odd : "") + this->bytesOf("c1");
  if (TypeParam::isText) before.pop_back();
  const std::function<Code(typename TestFixture::Handle&)> operations[] = {
      [](auto& handle) { return TestFixture::Run::add(handle, "d", 4); },
      [](auto& handle) { return TestFixture::Run::change(handle, "c", 9); },
      [](auto& handle) { return TestFixture::Run::remove(handle, "a"); },
      [](auto& handle) {
        const std::int64_t found = TestFixture::Run::get(handle, "c");
        return found == 1 ? 0 : static_cast<Code>(-found);
      }};
  for (const std::uint64_t features : {unique, unverified, GENREG_NOTIFY_CHANGE}) {
    for (const auto& operation : operations) {
      for (const int others : {-1, 0, 60}) {
        std::string after;
        for (unsigned long k = 0, calls = 1; k <= calls; ++k) {
          writeFile(this->registry(), before);
          typename TestFixture::Handle handle(this->registry(), features);
          if (!TypeParam::isText) {
            handle.NotifyChange = [](GenRegBase*, std::uint64_t, void*, void*) { return 0u; };
          }
          EXPECT_EQ(others < 0 ? 0 : handle.BeginUpdate(), 0u);
          for (int i = 0; i < others; ++i) {
            EXPECT_EQ(TestFixture::Run::add(handle, "x" + std::to_string(i), 1), 0u);
          }
          Code code = 0;
          {
            const FaultPlan plan(k, ENOMEM, false, "malloc");
            code = operation(handle);
            calls = plan.calls();
          }
          EXPECT_TRUE(k == 0 || code == 0 || others < 0 || code == GENREG_RC_BUFFER_ALLOC) << code;
          EXPECT_TRUE(code != 0 || others >= 0 || k == 0 || readFile(this->registry()) == after);
          EXPECT_EQ(code == 0 ? 0 : operation(handle), 0u) << "it can be done again";
          EXPECT_EQ(others < 0 ? 0 : handle.CommitUpdate(), 0u);
          if (k == 0) after = readFile(this->registry());
          EXPECT_EQ(readFile(this->registry()), after) << "call " << k;
        }
      }
    }
  }
}

using ManyLinesTest = ManyChangesTest<VariableLines>;

TEST_F(ManyLinesTest, ALineThatNoIndexKnowsIsFoundWhateverMemoryWasLacking) {
  for (unsigned long k = 1, calls = 0; k <= calls + 1; ++k) {
    writeFile(registry(), "a = 1\nb = 2");  // a line without its end
    Run::Handle handle(registry(), verified);
    ASSERT_EQ(handle.BeginUpdate(), 0u);
    {
      const FaultPlan plan(k, ENOMEM, false, "malloc");
      (void)Run::get(handle, "a");
      calls = plan.calls();
    }
    EXPECT_EQ(Run::get(handle, "b"), 2);
    EXPECT_EQ(handle.AbandonUpdate(), 0u);
  }
}

using ManyVariablesTest = ManyChangesTest<BinaryVariables>;

TEST_F(ManyVariablesTest, WhatDoesNotFitHasACodeAndChangesNothing) {
  writeFile(registry(), bytesOf("a1 b1"));
  Run::Handle handle(registry(), verified);
  Run::Handle other(registry(), verified);
  EXPECT_EQ(handle.CommitUpdate(), GENREG_RC_NO_UPDATE);
  EXPECT_EQ(handle.AbandonUpdate(), GENREG_RC_NO_UPDATE);
  ASSERT_EQ(handle.OpenScan(), 0u);
  EXPECT_EQ(handle.BeginUpdate(), GENREG_RC_UPDATE_IN_SCAN);
  EXPECT_EQ(handle.CloseScan(), 0u);
  ASSERT_EQ(handle.BeginUpdate(GENREG_LOCK_NOWAIT), 0u);
  EXPECT_EQ(Run::remove(handle, "a"), 0u);
  EXPECT_EQ(handle.BeginUpdate(), GENREG_RC_UPDATE_OPEN);
  EXPECT_EQ(handle.RepairRegistry(), GENREG_RC_UPDATE_OPEN);
  EXPECT_EQ(handle.UnlockRegistry(), GENREG_RC_UPDATE_OPEN);
  EXPECT_EQ(handle.OpenRegFile(GENREG_OP_READ), GENREG_RC_UPDATE_OPEN);
  EXPECT_EQ(other.BeginUpdate(GENREG_LOCK_NOWAIT), GENREG_RC_BUSY);
  EXPECT_EQ(other.setLockTimeout(20), 0u);
  Diagnostics diagnostics;
  EXPECT_EQ(Run::add(other, "c", 3), GENREG_RC_BUSY) << "it would wait for itself";
  EXPECT_EQ(diagnostics.logs(0x081A0009u, OSS_RC_LOCK_BUSY), 1u);
  EXPECT_NE(std::string(other.getLastCause()).find(registry() + ": "), std::string::npos);
  // Inside, a scan keeps updates away as it does outside, and ends with the update.
  ASSERT_EQ(handle.OpenScan(), 0u);
  EXPECT_EQ(Run::add(handle, "c", 3), opening);
  EXPECT_EQ(Run::get(handle, "b"), -std::int64_t{opening});
  EXPECT_EQ(Run::get(handle, "b", true), 1);
  EXPECT_EQ(handle.Rewind(), 0u);
  std::int64_t start = 0;
  EXPECT_EQ(handle.getRegFilePosition(&start), 0u);
  EXPECT_EQ(Run::get(handle, "b", true), 1);
  EXPECT_EQ(handle.setRegFilePosition(&start), 0u);
  EXPECT_EQ(Run::get(handle, "b", true), 1);
  EXPECT_EQ(handle.AbandonUpdate(), 0u);
  EXPECT_EQ(handle.status, GENREG_STATUS_IDLE | GENREG_STATUS_READY);
  EXPECT_EQ(readFile(registry()), bytesOf("a1 b1"));
  {
    Run::Handle forgotten(registry(), verified);
    EXPECT_EQ(forgotten.BeginUpdate(), 0u);
    EXPECT_EQ(Run::remove(forgotten, "a"), 0u);
  }
  EXPECT_EQ(readFile(registry()), bytesOf("a1 b1"));
  EXPECT_EQ(files(), "r");
}

TEST_F(ManyVariablesTest, HooksHearOfItAfterTheCommitInOrder) {
  static std::string heard;
  static Code answer;
  heard.clear();
  answer = 0;
  writeFile(registry(), bytesOf("a1 b1"));
  Run::Handle handle(registry(), verified | GENREG_NOTIFY_CHANGE | GENREG_POST_UPDATE);
  handle.NotifyChange = [](GenRegBase*, std::uint64_t kind, void* first, void* second) -> Code {
    const auto shown = [](void* record) {
      const auto* fields = static_cast<BinVarValRecord*>(record);
      return fields == nullptr ? "" : fields->Variable + std::to_string(fields->Value);
    };
    heard += std::to_string(kind) + shown(first) + shown(second) + " ";
    return answer;
  };
  handle.PostUpdate = [] { return heard += "post", 0u; };
  ASSERT_EQ(handle.BeginUpdate(), 0u);
  EXPECT_EQ(Run::add(handle, "c", 3), 0u);
  EXPECT_EQ(Run::change(handle, "b", 2), 0u);
  EXPECT_EQ(Run::add(handle, "c", 3), 0u);
  EXPECT_EQ(Run::remove(handle, "c"), 0u);
  EXPECT_EQ(Run::change(handle, "none", 2), notFound);
  EXPECT_EQ(heard, "");
  EXPECT_EQ(handle.CommitUpdate(), 0u);
  EXPECT_EQ(heard, "4c3 2b1b2 4c3 8c1 post");
  // A Change that the hook refuses keeps the other from being called; one that fails, both.
  answer = 1;
  for (const int fault : {0, EIO}) {
    heard.clear();
    ASSERT_EQ(handle.BeginUpdate(), 0u);
    EXPECT_EQ(Run::add(handle, "d", 4), 0u);
    EXPECT_EQ(Run::change(handle, "b", 5 + fault), 0u);
    const FaultPlan plan(fault == 0 ? 0 : 1, fault, false, "fsync");
    EXPECT_EQ(handle.CommitUpdate() == 0, fault == 0);
    EXPECT_EQ(heard, fault == 0 ? "4d4 2b1b5 " : "");
  }
}

// A class with hooks of its own has no index, and the same answers.
TEST_F(ManyVariablesTest, ForeignHooksAreAskedOfEveryRecord) {
  writeFile(registry(), bytesOf("a1 b1"));
  Run::Handle handle(registry(), unique);
  handle.compareHook() = [](std::uint64_t, void* record, void* key) -> Code {
    return (static_cast<BinVarValRecord*>(record)->Variable[0] | 32) ==
           (static_cast<BinVarValRecord*>(key)->Variable[0] | 32);
  };
  ASSERT_EQ(handle.BeginUpdate(), 0u);
  EXPECT_EQ(Run::add(handle, "A", 7), duplicate);
  EXPECT_EQ(Run::remove(handle, "B"), 0u);
  EXPECT_EQ(Run::add(handle, "B", 7), 0u);
  EXPECT_EQ(Run::get(handle, "b"), 7);
  EXPECT_EQ(handle.CommitUpdate(), 0u);
  EXPECT_EQ(readFile(registry()), bytesOf("a1") + BinaryVariables::stored("B", 7));
}

}  // namespace
