#include "foundation/base64.h"

#include <gtest/gtest.h>

#include <string>

namespace {

std::string Encode(const std::string& s) {
  return LBase64Encode(s.data(), s.size());
}

TEST(Base64, TheVectorsOfRfc4648BothWays) {
  const std::pair<const char*, const char*> vectors[] = {
      {"", ""},
      {"f", "Zg=="},
      {"fo", "Zm8="},
      {"foo", "Zm9v"},
      {"foob", "Zm9vYg=="},
      {"fooba", "Zm9vYmE="},
      {"foobar", "Zm9vYmFy"},
  };
  for (const auto& [plain, coded] : vectors) {
    EXPECT_EQ(Encode(plain), coded);
    std::string out = "stale";
    EXPECT_TRUE(LBase64Decode(coded, out)) << coded;
    EXPECT_EQ(out, plain);
  }
}

TEST(Base64, EveryByteValueAtEveryOffsetComesBack) {
  std::string all;
  for (int i = 0; i < 256; ++i) all += static_cast<char>(i);
  EXPECT_EQ(Encode(std::string("\xFB\xFF\xBF", 3)), "+/+/");  // the last two letters of the alphabet
  for (std::size_t n = 0; n <= all.size(); n += 1 + n / 8) {
    const std::string part = all.substr(all.size() - n);  // the high bytes are where sign errors show
    const std::string coded = Encode(part);
    EXPECT_EQ(coded.size() % 4, 0u);
    std::string back;
    ASSERT_TRUE(LBase64Decode(coded, back)) << n;
    EXPECT_EQ(back, part) << n;
  }
}

TEST(Base64, AnythingTheEncoderWouldNotWriteIsRefused) {
  const std::string bad[] = {
      "Zg",        // no padding
      "Zg=",       // short padding
      "Zm9vY",     // not a whole group
      "Z===",      // three padding characters
      "====",      // padding alone
      "Zg==Zm8=",  // padding in the middle
      "Zm=v",      // padding inside a group
      "Zh==",      // bits left over under the padding
      "Zm9=",      // the same with one padding character
      "Zm9v\n",    // a line break
      "Zm 9",      // a space
      "Zm9v-_==",  // the URL alphabet
      std::string("Zm\0v", 4),
      "Zm\xC3\xA9",  // a letter outside the alphabet
  };
  for (const std::string& text : bad) {
    std::string out = "stale";
    EXPECT_FALSE(LBase64Decode(text, out)) << text;
    EXPECT_TRUE(out.empty()) << text;
  }
}

}  // namespace
