// Version codes: what each text and code is turned into, and a packed number that zorreg version
// refuses.
#include <gtest/gtest.h>

#include "ossinstall.h"

namespace {

constexpr std::uint64_t untouched = 0x1122334455667788;

TEST(VersionCode, TextBecomesTheCodeOrIsRefused) {
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
      {"65535.65536.65535.65535", 0, 0xFFFF0000FFFFFFFF},
      {"9.1.0.0.1", syntax, untouched},
      {"9.1.a", syntax, untouched},
      {"-9", syntax, untouched},
      {" 9", syntax, untouched},
      {"1.2.3.00000000000000004x", 0, 0x0001000200030004},  // the 24th character is not seen
      {"1.2.3.0000000000000000x", syntax, untouched},       // the 23rd is
      {nullptr, GENREG_RC_VERSION_ARGUMENT, untouched},
  };
  for (const auto& row : cases) {
    std::uint64_t code = untouched;
    EXPECT_EQ(ossVersionStringToCode(row.text, &code), row.result);
    EXPECT_EQ(code, row.code);
  }
  EXPECT_EQ(ossVersionStringToCode("9", nullptr), GENREG_RC_VERSION_ARGUMENT);
}

TEST(VersionCode, CodeBecomesTextWhereItFits) {
  char buffer[] = "~~~~~~~~~";
  EXPECT_EQ(ossVersionCodeToString(0x0009000100000000, buffer, 7), GENREG_RC_VERSION_BUFFER);
  EXPECT_STREQ(buffer, "~~~~~~~~~");
  EXPECT_EQ(ossVersionCodeToString(0x0009000100000000, buffer, 8), 0u);
  EXPECT_EQ(std::string(buffer, 9), std::string("9.1.0.0\0~", 9));
  EXPECT_EQ(ossVersionCodeToString(0, nullptr, 24), GENREG_RC_VERSION_ARGUMENT);
}

TEST(VersionCode, PackedNumbersOutOfRangeDoNoHarm) {
  EXPECT_EQ(ossVersionCodeZORToService(123456789), 0x0017002D00430059u);
  (void)ossVersionCodeServiceToZOR(0xFFFFFFFFFFFFFFFF);
}

}  // namespace
