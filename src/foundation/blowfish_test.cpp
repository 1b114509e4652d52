#include "foundation/blowfish.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

namespace {

std::vector<std::uint8_t> Hex(const std::string& hex) {
  std::vector<std::uint8_t> bytes;
  for (std::size_t i = 0; i + 1 < hex.size(); i += 2)
    bytes.push_back(static_cast<std::uint8_t>(std::stoul(hex.substr(i, 2), nullptr, 16)));
  return bytes;
}

std::string ToHex(const std::uint8_t* p, std::size_t n) {
  static const char digits[] = "0123456789ABCDEF";
  std::string s;
  for (std::size_t i = 0; i < n; ++i) {
    s += digits[p[i] >> 4];
    s += digits[p[i] & 15];
  }
  return s;
}

struct Vector {
  const char* key;
  const char* plain;
  const char* cipher;
};

// Eric Young's ECB vectors, as published with the cipher (vectors.txt),
// numbers 1 to 26 and 30.
const Vector kEcbVectors[] = {
    {"0000000000000000", "0000000000000000", "4EF997456198DD78"},
    {"FFFFFFFFFFFFFFFF", "FFFFFFFFFFFFFFFF", "51866FD5B85ECB8A"},
    {"3000000000000000", "1000000000000001", "7D856F9A613063F2"},
    {"1111111111111111", "1111111111111111", "2466DD878B963C9D"},
    {"0123456789ABCDEF", "1111111111111111", "61F9C3802281B096"},
    {"1111111111111111", "0123456789ABCDEF", "7D0CC630AFDA1EC7"},
    {"FEDCBA9876543210", "0123456789ABCDEF", "0ACEAB0FC6A0A28D"},
    {"7CA110454A1A6E57", "01A1D6D039776742", "59C68245EB05282B"},
    {"0131D9619DC1376E", "5CD54CA83DEF57DA", "B1B8CC0B250F09A0"},
    {"07A1133E4A0B2686", "0248D43806F67172", "1730E5778BEA1DA4"},
    {"3849674C2602319E", "51454B582DDF440A", "A25E7856CF2651EB"},
    {"04B915BA43FEB5B6", "42FD443059577FA2", "353882B109CE8F1A"},
    {"0113B970FD34F2CE", "059B5E0851CF143A", "48F4D0884C379918"},
    {"0170F175468FB5E6", "0756D8E0774761D2", "432193B78951FC98"},
    {"43297FAD38E373FE", "762514B829BF486A", "13F04154D69D1AE5"},
    {"07A7137045DA2A16", "3BDD119049372802", "2EEDDA93FFD39C79"},
    {"04689104C2FD3B2F", "26955F6835AF609A", "D887E0393C2DA6E3"},
    {"37D06BB516CB7546", "164D5E404F275232", "5F99D04F5B163969"},
    {"1F08260D1AC2465E", "6B056E18759F5CCA", "4A057A3B24D3977B"},
    {"584023641ABA6176", "004BD6EF09176062", "452031C1E4FADA8E"},
    {"025816164629B007", "480D39006EE762F2", "7555AE39F59B87BD"},
    {"49793EBC79B3258F", "437540C8698F3CFA", "53C55F9CB49FC019"},
    {"4FB05E1515AB73A7", "072D43A077075292", "7A8E7BFA937E89A3"},
    {"49E95D6D4CA229BF", "02FE55778117F12A", "CF9C5D7A4986ADB5"},
    {"018310DC409B26D6", "1D9D5C5018F728C2", "D1ABB290658BC778"},
    {"1C587F1C13924FEF", "305532286D6F295A", "55CB3774D13EF201"},
    {"0000000000000000", "FFFFFFFFFFFFFFFF", "014933E0CDAFF6E4"},
};

// The same publication's keys of other lengths: the first n bytes of
// F0E1D2C3B4A5968778695A4B3C2D1E0F0011223344556677, plaintext FEDCBA9876543210.
// Lengths that are no multiple of four test how the key wraps round the P-array.
const Vector kKeyLengthVectors[] = {
    {"F0E1D2C3B4", "FEDCBA9876543210", "B39E44481BDB1E6E"},
    {"F0E1D2C3B4A5968778", "FEDCBA9876543210", "15750E7A4F4EC577"},
    {"F0E1D2C3B4A5968778695A4B3C2D1E0F", "FEDCBA9876543210", "93142887EE3BE15C"},
    {"F0E1D2C3B4A5968778695A4B3C2D1E0F00", "FEDCBA9876543210", "03429E838CE2D14B"},
    {"F0E1D2C3B4A5968778695A4B3C2D1E0F0011223344556677", "FEDCBA9876543210", "05044B62FA52D080"},
};

void CheckVector(const Vector& v) {
  const auto key = Hex(v.key);
  const LBlowfish bf(key.data(), key.size());
  auto block = Hex(v.plain);
  bf.EncryptBlock(block.data());
  EXPECT_EQ(ToHex(block.data(), 8), v.cipher) << "key " << v.key;
  bf.DecryptBlock(block.data());
  EXPECT_EQ(ToHex(block.data(), 8), v.plain) << "key " << v.key;
}

TEST(Blowfish, PublishedVectorsOfEightByteKeys) {
  for (const Vector& v : kEcbVectors) CheckVector(v);
}

TEST(Blowfish, PublishedVectorsOfOtherKeyLengths) {
  for (const Vector& v : kKeyLengthVectors) CheckVector(v);
}

TEST(Blowfish, WordHalvesAreTheBigEndianHalvesOfTheBlock) {
  const auto key = Hex("FEDCBA9876543210");
  const LBlowfish bf(key.data(), key.size());
  std::uint32_t l = 0x01234567, r = 0x89ABCDEF;
  bf.EncryptBlock(l, r);
  EXPECT_EQ(l, 0x0ACEAB0Fu);
  EXPECT_EQ(r, 0xC6A0A28Du);
  bf.DecryptBlock(l, r);
  EXPECT_EQ(l, 0x01234567u);
  EXPECT_EQ(r, 0x89ABCDEFu);
}

TEST(Blowfish, AKeyRepeatedToAnyLengthIsTheSameKey) {
  // Published with the repeating-key example of the Crypt::Blowfish tutorial.
  for (const char* key :
       {"1122334455667788", "11223344556677881122334455667788", "112233445566778811223344556677881122334455667788"}) {
    CheckVector({key, "0123456789ABCDEF", "103248F0EEA98E89"});
  }
  // An empty key is a key of zero bytes, and does not divide by its length.
  const LBlowfish empty("", 0);
  std::uint8_t block[8] = {};
  empty.EncryptBlock(block);
  EXPECT_EQ(ToHex(block, 8), "4EF997456198DD78");
}

TEST(Blowfish, ECBTakesWholeBlocksOnly) {
  const auto key = Hex("0123456789ABCDEF");
  const LBlowfish bf(key.data(), key.size());
  auto data = Hex("11111111111111110000000000000000FFFFFFFFFFFFFFFF");
  const auto original = data;

  // Each block on its own: equal blocks would give equal cipher blocks.
  ASSERT_TRUE(bf.EncryptECB(data.data(), data.size()));
  EXPECT_EQ(ToHex(data.data(), 8), "61F9C3802281B096");
  auto second = Hex("0000000000000000");
  bf.EncryptBlock(second.data());
  EXPECT_EQ(ToHex(data.data() + 8, 8), ToHex(second.data(), 8));

  const auto enciphered = data;
  EXPECT_FALSE(bf.EncryptECB(data.data(), 20));
  EXPECT_FALSE(bf.DecryptECB(data.data(), 7));
  EXPECT_EQ(data, enciphered);  // a refused call changes nothing

  ASSERT_TRUE(bf.DecryptECB(data.data(), data.size()));
  EXPECT_EQ(data, original);
}

}  // namespace
