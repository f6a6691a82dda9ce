// Registries that are larger than the library's buffer: what is kept is kept to the byte, and an
// error far into the file is one.
#include <cerrno>

#include "support/flavours.h"

namespace {

template <typename Flavour>
class LargeFileTest : public FlavourTest<Flavour> {
 protected:
  static std::string nameAt(std::size_t index) { return "named" + std::to_string(10000 + index); }
  static std::vector<std::string> records(std::size_t count) {
    std::vector<std::string> pieces;
    for (std::size_t i = 0; i < count; ++i) pieces.push_back(Flavour::stored(nameAt(i), 7));
    return pieces;
  }
  static std::string joined(const std::vector<std::string>& pieces) {
    std::string all;
    for (const std::string& piece : pieces) all += piece;
    return all;
  }
};

TYPED_TEST_SUITE(LargeFileTest, AllFlavours);

TYPED_TEST(LargeFileTest, AnUpdateTouchesOneRecord) {
  const std::vector<std::string> pieces = this->records(20000);
  const std::string all = this->joined(pieces);
  // The first, the last, and those at the ends of the first two buffers, of 256 KiB.
  std::vector<std::size_t> touched{0, 1, pieces.size() - 1};
  std::size_t end = 0;
  for (std::size_t i = 0, limit = 1; i < pieces.size() && limit < 3; ++i) {
    end += pieces[i].size();
    if (end < limit * 256 * 1024) continue;
    touched.insert(touched.end(), {i - 1, i, i + 1});
    ++limit;
  }
  for (const std::size_t index : touched) {
    SCOPED_TRACE(index);
    const std::string name = this->nameAt(index);
    typename TestFixture::Handle handle(this->registry(), unique);
    std::vector<std::string> expected = pieces;
    writeFile(this->registry(), all);
    EXPECT_EQ(TestFixture::Run::change(handle, name, 8), 0u);
    expected[index] = TypeParam::stored(name, 8);
    EXPECT_TRUE(readFile(this->registry()) == this->joined(expected));
    writeFile(this->registry(), all);
    EXPECT_EQ(TestFixture::Run::add(handle, name, 8), duplicate);
    EXPECT_EQ(TestFixture::Run::remove(handle, name), 0u);
    expected[index].clear();
    EXPECT_TRUE(readFile(this->registry()) == this->joined(expected));
    EXPECT_EQ(TestFixture::Run::add(handle, name, 9), 0u);
    expected.push_back(TypeParam::stored(name, 9));
    EXPECT_TRUE(readFile(this->registry()) == this->joined(expected));
  }
}

TYPED_TEST(LargeFileTest, VerificationSeesAnyBitOfAnyKeptRecord) {
  const std::vector<std::string> pieces = this->records(8000);
  const std::string all = this->joined(pieces);
  const std::size_t last = all.size() - pieces.back().size();
  // Near the start, around the end of the first buffer, and in the last bytes of the last kept one.
  for (const std::size_t at : {pieces[0].size() - 2, std::size_t{262143}, std::size_t{262144},
                               last - 3, last - 2, last - 1}) {
    if (at >= last) continue;
    SCOPED_TRACE(at);
    writeFile(this->registry(), all);
    typename TestFixture::Handle handle(this->registry(), verified);
    int syncs = 0;
    const FaultHook flipping([&](const std::string& call) {
      if (call == "fsync" && ++syncs == 1) {
        std::string bytes = readFile(this->temporary());
        bytes[at] = static_cast<char>(bytes[at] ^ 4);
        writeFile(this->temporary(), bytes);
      }
      return 0;
    });
    EXPECT_EQ(TestFixture::Run::change(handle, this->nameAt(7999), 8), verifying);
    EXPECT_TRUE(readFile(this->registry()) == all);
  }
}

class LargeRecordTest : public RegistryTest {};

TEST_F(LargeRecordTest, LinesThatCannotBeKeptFailTheUpdate) {
  // They fill the buffer to its end, and the first one grows: what is kept does not go into it.
  std::string all;
  for (int i = 10000; i < 30000; ++i) all += "n" + std::to_string(i) + "=12345678\n";
  writeFile(registry(), all);
  Operations<VariableLines>::Handle handle(registry(), unique);
  FaultPlan full(1, ENOSPC, false, "write");
  EXPECT_EQ(Operations<VariableLines>::change(handle, "n10000", 123456789), GENREG_RC_COPY_FAILED);
  EXPECT_EQ(full.calls(), 1u);
  EXPECT_TRUE(readFile(registry()) == all);
}

TEST_F(LargeRecordTest, FailuresInTheMiddleAreDistinguished) {
  // Two frames that fill the buffer of 256 KiB exactly, and more behind them; the same behind a
  // small record, so that a record spans two reads and writes.
  const std::string half = frameBytes(131068, std::string(131068, 'x'));
  const std::string whole = half + half + half + frame(variable("a", 1));
  const std::string shifted = frame(variable("b", 1)) + whole;
  const std::string huge = frameBytes(0x100000, std::string(0x100000, 'x')) + shifted;
  const struct {
    const std::string& bytes;
    const char* call;
    unsigned long nth;
    Code function, logged, result;
  } cases[] = {
      {whole, "read", 2, 33, GENREG_RC_READ_LENGTH_FAILED, readFailed},
      {shifted, "read", 2, 33, GENREG_RC_READ_RECORD_FAILED, readFailed},
      {huge, "read", 2, 33, GENREG_RC_READ_RECORD_FAILED, readFailed},
      {huge, "malloc", 4, 33, GENREG_RC_WORK_ALLOC, readFailed},
      {shifted, "write", 1, 35, GENREG_RC_WRITE_RECORD_FAILED, GENREG_RC_COPY_FAILED},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(std::string(row.call) + " of " + std::to_string(row.bytes.size()));
    writeFile(registry(), row.bytes);
    TestRegistry handle(registry(), verified);
    BinVarValRecord key = variable("a");
    Diagnostics diagnostics;
    const FaultPlan plan(row.nth, EIO, false, row.call);
    EXPECT_EQ(handle.Delete(byName, &key), row.result);
    EXPECT_EQ(diagnostics.logs(0x082A0000u + row.function, row.logged), 1u);
    EXPECT_TRUE(readFile(registry()) == row.bytes);
  }
}

}  // namespace
