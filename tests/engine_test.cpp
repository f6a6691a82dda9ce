// What holds for both engines and all four kinds of registry: the rules of duplicates, appends that
// were cut off.
#include "support/flavours.h"

namespace {

template <typename Flavour>
using EngineTest = FlavourTest<Flavour>;
TYPED_TEST_SUITE(EngineTest, AllFlavours);

// 'a'dds, 'c'hanges or 'd'eletes a record: "a b2", "c b9", "d b".
template <typename Flavour>
Code run(typename Operations<Flavour>::Handle& handle, const std::string& operation) {
  const std::string name = operation.substr(2, 1);
  const int value = operation.size() > 3 ? operation[3] - '0' : 0;
  if (operation[0] == 'a') return Operations<Flavour>::add(handle, name, value);
  if (operation[0] == 'c') return Operations<Flavour>::change(handle, name, value);
  return Operations<Flavour>::remove(handle, name);
}

TYPED_TEST(EngineTest, UpdatesKeepTheRulesOfDuplicates) {
  const struct {
    std::uint64_t features;
    const char *before, *operation;
    Code result;
    const char* after;
    const char* files = "r";
  } cases[] = {
      {unique, "b1", "a a1", 0, "b1 a1"},
      {unique, "a1", "a a2", duplicate, "a1", "r r.tmp"},
      {verified, "a1", "a a1", 0, "a1 a1"},
      {unverified, "a1", "a a1", 0, "a1 a1"},
      {GENREG_NOTIFY_CHANGE, "b1", "a a1", 0, "b1 a1"},
      {unique, "a1 b1", "c a5", 0, "a5 b1"},
      {unique, "a1", "c b5", notFound, "a1"},
      {unique, "a1 b1", "c a1", unchanged, "a1 b1"},
      {unique, "a1 a2", "c a5", ambiguous, "a1 a2"},
      {verified, "a1 b1 a2", "c a5", 0, "a5 b1 a5"},
      {verified, "a5 a1", "c a5", unchanged, "a5 a1"},
      {unverified, "a5 a1", "c a5", unchanged, "a5 a5"},
      {unique, "a5 a1", "c a5", unchanged, "a5 a1"},
      {unique, "a1 b1", "d a", 0, "b1"},
      {unique, "a1", "d a", 0, ""},
      {unique, "a1", "d b", notFound, "a1"},
      {unique, "a1 b1 a2", "d a", ambiguous, "a1 b1 a2"},
      {verified, "a1 b1 a2 a1", "d a", 0, "b1"},
      {verified, "a1 a2", "d a", 0, ""},
      {unverified, "a1", "d b", notFound, "a1", "r r.tmp"},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(std::string(row.before) + ": " + row.operation);
    writeFile(this->registry(), this->bytesOf(row.before));
    typename TestFixture::Handle handle(this->registry(), row.features);
    EXPECT_EQ(run<TypeParam>(handle, row.operation), row.result);
    EXPECT_EQ(readFile(this->registry()), this->bytesOf(row.after));
    EXPECT_EQ(this->files(), row.files);
    const bool rewritten = row.result == unchanged && row.features == unverified;
    EXPECT_EQ(handle.isUpdateCommitted(), row.result == 0 || rewritten);
    (void)std::remove(this->temporary().c_str());
  }
}

// An append in place as it stands until all of it is on the disk: a mark in the place of what makes
// it a record.
template <typename Flavour>
std::string unfinished(const std::string& name, int value) {
  std::string bytes = Flavour::stored(name, value);
  if (Flavour::isText) return bytes.replace(0, 1, 1, '\0');
  bytes[2] = '\x40';
  bytes[3] = '\xDB';
  return bytes;
}

TYPED_TEST(EngineTest, AnAppendThatWasCutOffIsNoRecord) {
  const std::string before = this->bytesOf("a1");
  const std::string torn = unfinished<TypeParam>("b", 2);
  for (std::size_t cut = TypeParam::isText ? 1 : 4; cut <= torn.size(); ++cut) {
    SCOPED_TRACE(cut);
    writeFile(this->registry(), before + torn.substr(0, cut));
    typename TestFixture::Handle handle(this->registry(), unverified);
    EXPECT_EQ(TestFixture::Run::get(handle, "b"), -std::int64_t{notFound});
    EXPECT_EQ(TestFixture::Run::get(handle, "a"), 1);
    ASSERT_EQ(handle.OpenScan(), 0u);
    EXPECT_EQ(TestFixture::Run::get(handle, "b", true), -std::int64_t{GENREG_RC_END});
    EXPECT_EQ(handle.CloseScan(), 0u);
    EXPECT_EQ(TestFixture::Run::add(handle, "c", 3), 0u);
    // A line stays, as an empty one; a mark goes.
    const std::string left = TypeParam::isText ? torn.substr(0, cut) : "";
    const bool open = !left.empty() && left.back() != '\n';
    EXPECT_EQ(readFile(this->registry()),
              before + left + (open ? "\r\n" : "") + TypeParam::stored("c", 3));
  }
}

}  // namespace
