// Version codes: what each text, code and packed number is turned into.
#include <gtest/gtest.h>

#include <cstring>

#include "ossinstall.h"

namespace {

TEST(VersionCode, TextBecomesTheCodeOrIsRefused) {
  constexpr std::uint64_t untouched = 0x1122334455667788;
  constexpr unsigned int syntax = GENREG_RC_VERSION_SYNTAX;
  const struct {
    const char* text;
    unsigned int result;
    std::uint64_t code;
  } cases[] = {
      {"9.7.5.3", 0, 0x0009000700050003},
      {"9", 0, 0x0009000000000000},
      {"9..1", 0, 0x0009000000010000},
      {"", 0, 0},
      {"...", 0, 0},
      {"....", syntax, untouched},
      {"9.65536", 0, 0x0009000000000000},
      {"65535.65535.65535.65535", 0, 0xFFFFFFFFFFFFFFFF},
      {"9.1.0.0.1", syntax, untouched},
      {"9.1.0.", 0, 0x0009000100000000},
      {"9.1.a", syntax, untouched},
      {"-9", syntax, untouched},
      {" 9", syntax, untouched},
      {"1.2.3.00000000000000004x", 0, 0x0001000200030004},  // the 24th character is not seen
      {"1.2.3.0000000000000000x", syntax, untouched},       // the 23rd is
      {nullptr, GENREG_RC_VERSION_ARGUMENT, untouched},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.text == nullptr ? "null" : row.text);
    std::uint64_t code = untouched;
    EXPECT_EQ(ossVersionStringToCode(row.text, &code), row.result);
    EXPECT_EQ(code, row.code);
  }
  EXPECT_EQ(ossVersionStringToCode("9", nullptr), GENREG_RC_VERSION_ARGUMENT);
  std::uint64_t code = untouched;
  EXPECT_EQ(ossVersionStringToCode("99999999999999999999999", &code), 0u);  // any value will do
}

TEST(VersionCode, CodeBecomesTextWhereItFits) {
  constexpr unsigned int tooSmall = GENREG_RC_VERSION_BUFFER;
  const struct {
    std::uint64_t code, size;
    unsigned int result;
    const char* text;
  } cases[] = {{0x0009000100000000, 8, 0, "9.1.0.0"},
               {0x0009000100000000, 7, tooSmall, "~~~~~~~"},
               {0x0009000100000000, 0, tooSmall, "~~~~~~~"},
               {0xFFFFFFFFFFFFFFFF, 24, 0, "65535.65535.65535.65535"}};
  for (const auto& row : cases) {
    char buffer[32];
    std::memset(buffer, '~', sizeof buffer);
    EXPECT_EQ(ossVersionCodeToString(row.code, buffer, row.size), row.result);
    EXPECT_EQ(std::string(buffer, std::strlen(row.text)), row.text);
    EXPECT_EQ(buffer[24], '~');
  }
  EXPECT_EQ(ossVersionCodeToString(0, nullptr, 24), GENREG_RC_VERSION_ARGUMENT);
}

TEST(VersionCode, PackedNumbersHoldTwoDigitsForEachPart) {
  const std::pair<std::uint64_t, int> cases[] = {{0x0009000100000000, 9010000},
                                                 {0x000A000500000003, 10050003},
                                                 {0x0063006300630063, 99999999},
                                                 {0x0001006400000000, 11000000},
                                                 {0, 0}};
  for (const auto& [code, packed] : cases) EXPECT_EQ(ossVersionCodeServiceToZOR(code), packed);
  EXPECT_EQ(ossVersionCodeZORToService(9010000), 0x0009000100000000u);
  EXPECT_EQ(ossVersionCodeZORToService(10050003), 0x000A000500000003u);
  EXPECT_EQ(ossVersionCodeZORToService(123456789), 0x0017002D00430059u);
  (void)ossVersionCodeServiceToZOR(0xFFFFFFFFFFFFFFFF);  // out of range, yet no harm
}

}  // namespace
