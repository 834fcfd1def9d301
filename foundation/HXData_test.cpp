#include "foundation/HXData.h"

#include <gmock/gmock.h>

#include <cstdlib>
#include <cstring>

#include "foundation/HXJSON.h"

namespace {

using namespace std::literals;
using testing::ElementsAre;
using testing::IsEmpty;

TEST(Hexadecimal, WritesTwoLowerCaseDigitsAByte) {
  EXPECT_EQ(hexadecimalString(HXData(std::vector<std::uint8_t>{0x00, 0x0A, 0xFF, 0x7E}).bytes()), "000aff7e");
  EXPECT_EQ(hexadecimalString({}), "");
}

TEST(Hexadecimal, ReadsPairsAndSkipsTheRest) {
  EXPECT_THAT(dataWithHEXString("AF:1b:zz:3"), ElementsAre(0xAF, 0x1B));
  // A digit without a second digit is dropped, together with the character after it.
  EXPECT_THAT(dataWithHEXString("a:b1c2"), ElementsAre(0xB1, 0xC2));
  EXPECT_THAT(dataWithHEXString("1g2\xFF\0ab\0c"sv), ElementsAre(0xAB));
  for (auto text : {""sv, "ab"sv.substr(0, 1), "z"sv, "zz"sv, " "sv, "a "sv, "--f"sv})
    EXPECT_THAT(dataWithHEXString(text), IsEmpty()) << text;
}

TEST(Digests, OfKnownTexts) {
  HXData abc("abc"), empty("");
  EXPECT_EQ(HX_MD5(abc.bytes()), "900150983cd24fb0d6963f7d28e17f72");
  EXPECT_EQ(HX_MD5(empty.bytes()), "d41d8cd98f00b204e9800998ecf8427e");
  EXPECT_EQ(hexadecimalString(HX_SHA256(abc.bytes())),
            "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
  EXPECT_EQ(hexadecimalString(HX_SHA256({})), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
}

TEST(DataNoCopy, RefersToTheCallersBuffer) {
  char buffer[] = "{\"a\":1}";
  auto borrowed = BR_dataWithBytesNoCopy(buffer, 7, false);
  EXPECT_EQ(borrowed.view().data(), buffer);
  EXPECT_EQ(HX_JSONObject(borrowed)->at("a").as_int64(), 1);
  EXPECT_THAT(BR_dataWithBytesNoCopy(nullptr, 7, true).bytes(), IsEmpty());

  // Under asan, the leak and double-free checks verify that it is freed exactly once.
  auto owned = BR_dataWithBytesNoCopy(strdup("text"), 4, true);
  EXPECT_EQ(owned.view(), "text");
}

}  // namespace
