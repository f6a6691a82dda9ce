// Handles that keep what they have read: they answer and log as others do, ask the system once
// where nothing has changed, and see every change.
#include <algorithm>
#include <chrono>
#include <filesystem>
#include <random>
#include <thread>

#include "support/flavours.h"

namespace {

template <typename Flavour>
class CachedReadsTest : public FlavourTest<Flavour> {
 protected:
  using Handle = typename FlavourTest<Flavour>::Handle;
  using Record = typename Operations<Flavour>::Record;

  // The calls of an operation, and what it answers and logs.
  struct Seen {
    std::string calls;
    std::string answer;
  };
  static Seen get(Handle& handle, std::uint64_t mask, const Entry& wanted) {
    Seen seen;
    const Diagnostics log;
    const FaultHook hook([&](const std::string& call) { return seen.calls += call + " ", 0; });
    Record key(wanted);
    typename Flavour::Record found;
    const Code code = handle.Get(mask, &key, &found);
    seen.answer = std::to_string(code);
    if (code == 0) {
      const Entry entry = Flavour::entryOf(found);
      seen.answer += " " + entry.name + " " + std::to_string(entry.value) + " " + entry.comment;
    }
    for (const OSSDiagnosticRecord& record : log.records) {
      seen.answer += " " + std::to_string(record.probe) + ":" + std::to_string(record.code);
    }
    return seen;
  }
  static std::string scan(Handle& handle) {
    std::string seen = std::to_string(handle.OpenScan());
    Record key({"", 0});
    typename Flavour::Record found;
    for (Code code = 0; code == 0;) {
      code = handle.GetNext(0, &key, &found);
      seen += " " + (code == 0 ? Flavour::entryOf(found).name : std::to_string(code));
    }
    return seen + std::to_string(handle.CloseScan());
  }
  // Until a change of a file shows in its times, and a moment more.
  static void waitForClock() { std::this_thread::sleep_for(std::chrono::milliseconds(80)); }
};

TYPED_TEST_SUITE(CachedReadsTest, AllFlavours);

std::string numbered(const char* name, int index) { return name + std::to_string(index); }

TYPED_TEST(CachedReadsTest, AnswerAndLogAsOthersDo) {
  std::mt19937 random(7);
  const auto below = [&](std::size_t count) { return static_cast<int>(random() % count); };
  // What the flavour cannot compare as it stands, or takes for something else.
  std::vector<std::string> odd{frameBytes(3, "abc"), frameBytes(40, "x" + std::string(39, '\0'))};
  if (TypeParam::isText) {
    odd = {"# n1\n",
           "\n",
           "  n2 = 5 # y\n",
           "n3 \"\n",
           std::string("n4\0c\n", 5),
           "n5 7x/tcp a\n",
           "n6 65543/tcp\n",
           "n7 x/tcp\n",
           "n8 8/abc\n",
           std::string(5000, 'l') + "\n",
           "n1 \\\n"};
  } else if (TypeParam::always != 0) {
    odd = {TypeParam::stored("n9", 9)};
  }
  constexpr int files = 12;
  for (int file = 0; file < files; ++file) {
    std::string bytes;
    for (int i = 0; i < 60; ++i) {
      bytes += below(3) == 0 ? odd[below(odd.size())]
                             : TypeParam::stored(numbered("n", below(40)), 1 + below(9));
    }
    if (below(3) == 0) bytes += "torn";
    writeFile(this->path(numbered("f", file)), bytes);
  }
  this->waitForClock();
  for (int file = 0; file < files; ++file) {
    const std::string path = this->path(numbered("f", file));
    const bool joins = TypeParam::isText && file % 2 != 0;
    std::uint64_t framing = unique | TypeParam::always | (joins ? GENREG_JOIN_CONTINUED_LINES : 0);
    typename TestFixture::Handle cached(path, framing);
    typename TestFixture::Handle plain(path, framing);
    cached.setCachedReads(true);
    for (int i = 0; i < 100; ++i) {
      const auto mask = static_cast<std::uint64_t>(below(8));
      const Entry wanted{numbered("n", below(42)), 1 + below(10)};
      const auto seen = this->get(cached, mask, wanted);
      ASSERT_EQ(seen.answer, this->get(plain, mask, wanted).answer)
          << path << ": " << wanted.name << " " << wanted.value << ", mask " << mask;
      EXPECT_EQ(seen.calls.find("open") != std::string::npos, i == 0) << seen.calls;
      EXPECT_EQ(this->scan(cached), this->scan(plain));
      // A scan that was far behind its end, and features that say where records end.
      if (i % 20 == 0) {
        std::int64_t position = 1000000;
        EXPECT_EQ(cached.OpenScan(), 0u);
        EXPECT_EQ(cached.setRegFilePosition(&position), 0u);
        EXPECT_EQ(cached.CloseScan(), 0u);
      } else if (i % 30 == 15) {
        framing ^= TypeParam::isText ? GENREG_JOIN_CONTINUED_LINES : GENREG_BIG_ENDIAN_LENGTH;
        cached.useFeatures(framing);
        plain.useFeatures(framing);
      }
    }
  }
}

TYPED_TEST(CachedReadsTest, SeeWhatBecomesOfTheFile) {
  namespace fs = std::filesystem;
  const std::string first = TypeParam::stored("a", 1) + TypeParam::stored("b", 1);
  const std::string other = TypeParam::stored("a", 2) + TypeParam::stored("b", 1);
  writeFile(this->registry(), first);
  this->waitForClock();
  typename TestFixture::Handle cached(this->registry(), unique);
  typename TestFixture::Handle plain(this->registry(), unique);
  cached.setCachedReads(true);
  const auto lastWritten = fs::last_write_time(this->registry());
  const std::function<void()> changes[] = {
      [] {},
      [&] {  // by hand, as if nothing had happened
        writeFile(this->registry(), other);
        fs::last_write_time(this->registry(), lastWritten);
      },
      [&] { EXPECT_EQ(TestFixture::Run::change(plain, "a", 3), 0u); },
      [&] { EXPECT_EQ(TestFixture::Run::change(cached, "a", 4), 0u); },
      [&] { fs::rename(this->registry(), this->backup()); },
      [&] { fs::remove(this->backup()); },
      [&] { fs::create_directory(this->registry()); },
      [&] { fs::remove(this->registry()); },
      [&] { writeFile(this->registry(), ""); },
      [&] { writeFile(this->registry(), first); },
      [&] { cached.setCachedReads(false); },
  };
  for (const auto& change : changes) {
    SCOPED_TRACE(&change - changes);
    change();
    for (const char* name : {"a", "b", "a"}) {
      EXPECT_EQ(this->get(cached, TypeParam::mask, {name, 1}).answer,
                this->get(plain, TypeParam::mask, {name, 1}).answer);
    }
    EXPECT_EQ(this->scan(cached), this->scan(plain));
  }
}

// What an open scan reads stays until it is closed.
TYPED_TEST(CachedReadsTest, AScanStandsWhereItIsWhateverHappens) {
  writeFile(this->registry(), TypeParam::stored("a", 1) + TypeParam::stored("b", 1));
  typename TestFixture::Handle cached(this->registry(), unique);
  typename TestFixture::Handle other(this->registry(), unique);
  cached.setCachedReads(true);
  ASSERT_EQ(cached.OpenScan(), 0u);
  EXPECT_EQ(TestFixture::Run::get(cached, "a", true), 1);
  EXPECT_EQ(TestFixture::Run::remove(other, "b"), 0u);
  const std::int64_t refused = -std::int64_t{GENREG_RC_OPEN_FOR_OPERATION};
  EXPECT_EQ(TestFixture::Run::get(cached, "b"), refused);
  cached.setCachedReads(false);
  std::int64_t position = 0;
  EXPECT_EQ(cached.getRegFilePosition(&position), 0u);
  EXPECT_EQ(position, std::ftell(cached.mainStream));
  EXPECT_EQ(TestFixture::Run::get(cached, "b"), refused);
  EXPECT_EQ(TestFixture::Run::get(cached, "b", true), 1);
  EXPECT_EQ(cached.Rewind(), 0u);
  EXPECT_EQ(TestFixture::Run::get(cached, "a", true), 1);
  EXPECT_EQ(cached.CloseScan(), 0u);
  EXPECT_EQ(TestFixture::Run::get(cached, "b"), -std::int64_t{GENREG_RC_NOT_FOUND});
}

TYPED_TEST(CachedReadsTest, EachScanHasAStreamOfItsOwn) {
  writeFile(this->registry(), TypeParam::stored("a", 1));
  std::this_thread::sleep_for(std::chrono::milliseconds(80));  // else it is read for each of them
  typename TestFixture::Handle cached(this->registry(), unique);
  cached.setCachedReads(true);
  for (int times = 0; times < 2; ++times) {
    ASSERT_EQ(cached.OpenScan(), 0u);
    EXPECT_NE(std::fgetc(cached.mainStream), EOF);
    while (std::fgetc(cached.mainStream) != EOF) continue;
    EXPECT_EQ(cached.CloseScan(), 0u);
  }
}

}  // namespace
