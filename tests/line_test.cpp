// The exported line reader and writer.
#include <cstring>

#include "support/registry_fixture.h"

namespace {

struct StreamCloser {
  void operator()(std::FILE* stream) const { (void)std::fclose(stream); }
};
using Stream = std::unique_ptr<std::FILE, StreamCloser>;

Stream streamOf(const std::string& bytes) {
  Stream stream(scratchStream());
  EXPECT_EQ(std::fwrite(bytes.data(), 1, bytes.size(), stream.get()), bytes.size());
  std::rewind(stream.get());
  return stream;
}

// What one call gives: the raw buffer, the line buffer, the code.
using Line = std::tuple<std::string, std::string, Code>;

std::vector<Line> readAll(const std::string& bytes, bool join, std::size_t size) {
  const Stream stream = streamOf(bytes);
  std::vector<char> raw(size, '?');
  std::vector<char> text(size, '?');
  std::vector<Line> lines;
  for (;;) {
    unsigned int code = 0xFFFF;
    char* got = GenRegReadLine(raw.data(), text.data(), size, stream.get(), &code, join);
    if (got == nullptr) {
      EXPECT_EQ(code, GENREG_RC_NO_LINE);
      return lines;
    }
    EXPECT_EQ(got, raw.data());
    lines.emplace_back(raw.data(), text.data(), code);
  }
}

TEST(LineReader, TurnsPhysicalLinesIntoLogicalOnes) {
  constexpr unsigned int cut = GENREG_RC_NO_LINE;
  const std::string longest(2046, 'x');
  const struct {
    std::string bytes;
    bool join;
    std::vector<Line> lines;
    std::size_t size = GENREG_LINE_SIZE;
  } cases[] = {
      {"", false, {}},
      {"abc\n", false, {{"abc\n", "abc\n", 0}}},
      {"abc\n", true, {{"abc\n", "abc\n", 0}}},
      {"abc\\\ndef\n", true, {{"abc\\\ndef\n", "abcdef\n", 0}}},
      {"abc\\\ndef\n", false, {{"abc\\\n", "abc\\\n", 0}, {"def\n", "def\n", 0}}},
      {"a\\tb\n", true, {{"a\\tb\n", "a\\tb\n", 0}}},
      {"a\\\\\nb\n", true, {{"a\\\\\nb\n", "a\\b\n", 0}}},
      {"abc\\", true, {{"abc\\", "abc", 0}}},
      {"abc\\", false, {{"abc\\", "abc", 0}}},
      {"abc\\\n", true, {{"abc\\\n", "abc", cut}}},
      {"a\nlast", false, {{"a\n", "a\n", 0}, {"last", "last", 0}}},
      {"a\r\n\r\nb\r\n", false, {{"a\r\n", "a\n", 0}, {"\r\n", "\n", 0}, {"b\r\n", "b\n", 0}}},
      {"a\\\r\nb\r\n", true, {{"a\\\r\nb\r\n", "ab\n", 0}}},
      {"a\rb\r\r\n", false, {{"a\rb\r\r\n", "a\rb\r\n", 0}}},
      {longest + "\n", false, {{longest + "\n", longest + "\n", 0}}},
      {longest + "y\n", false, {{longest + "y", longest + "y", 0}, {"\n", "\n", 0}}},
      {"abcdefg\n", false, {{"abc", "abc", 0}, {"def", "def", 0}, {"g\n", "g\n", 0}}, 4},
      {"ab\\\ncd\n", true, {{"ab\\\nc", "abc", 0}, {"d\n", "d\n", 0}}, 6},
      {"ab\\\ncd\n", true, {{"ab\\\n", "ab", 0}, {"cd\n", "cd\n", 0}}, 5},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.bytes.substr(0, 20) + (row.join ? ", joined" : ""));
    const std::vector<Line> lines = readAll(row.bytes, row.join, row.size);
    EXPECT_EQ(lines, row.lines);
  }
}

TEST(LineReader, RefusesWhatItCannotReadInto) {
  const Stream stream = streamOf("abc\n");
  char buffer[8];
  unsigned int code = 0;
  EXPECT_EQ(GenRegReadLine(nullptr, buffer, 8, stream.get(), &code, false), nullptr);
  EXPECT_EQ(code, GENREG_RC_BAD_ARGUMENT);
  EXPECT_EQ(GenRegReadLine(buffer, nullptr, 8, stream.get(), nullptr, false), nullptr);
  EXPECT_EQ(GenRegReadLine(buffer, buffer, 8, nullptr, nullptr, false), nullptr);
  EXPECT_EQ(GenRegReadLine(buffer, buffer, 0, stream.get(), nullptr, false), nullptr);
  const Stream empty = streamOf("");
  Diagnostics diagnostics;
  g_pGTCB->enabled = 1;
  EXPECT_EQ(GenRegReadLine(buffer, buffer, 8, empty.get(), &code, false), nullptr);
  g_pGTCB->enabled = 0;
  EXPECT_EQ(diagnostics.records.back().code, GENREG_RC_NO_LINE);
}

TEST(LineWriter, FoldsSoThatTheReaderJoins) {
  constexpr unsigned int bad = GENREG_RC_BAD_ARGUMENT;
  const struct {
    std::string line;
    std::uint64_t width;
    unsigned int code;
    std::string written;
  } cases[] = {
      {"abcdefgh", 4, 0, "abc\\\nde\\\nfg\\\nh"},
      {"abc", 4, 0, "abc\\\n"},
      {"", 4, 0, ""},
      {"abc\n", 80, 0, "abc\n"},
      {"abc", 0, bad, ""},
      {"abc", 2, bad, ""},
      {std::string(2040, 'x'), 3000, 0, std::string(2040, 'x')},
      {std::string(2048, 'x'), 3000, bad, ""},
      {std::string(2046, 'x'), 2047, bad, ""},  // no room for the break
  };
  for (const auto& row : cases) {
    const Stream stream = streamOf("");
    std::string line = row.line;
    EXPECT_EQ(GenRegWriteLine(line.data(), row.width, stream.get()), row.code);
    std::rewind(stream.get());
    std::string written(4096, '\0');
    written.resize(std::fread(written.data(), 1, written.size(), stream.get()));
    EXPECT_EQ(written, row.written);
    if (row.code != 0 || row.line.empty()) continue;
    const std::vector<Line> read = readAll(written, true, GENREG_LINE_SIZE);
    ASSERT_EQ(read.size(), 1u);
    EXPECT_EQ(std::get<1>(read[0]), row.line) << "width " << row.width;
  }
  EXPECT_EQ(GenRegWriteLine(nullptr, 4, stdout), bad);
  char text[] = "abc";
  EXPECT_EQ(GenRegWriteLine(text, 4, nullptr), bad);
}

}  // namespace
