#include "platform/ipc/linux/frames.h"

#include <gmock/gmock.h>
#include <malloc.h>

namespace platform::ipc {
namespace {

using testing::Eq;
using testing::Optional;

Data bytes(std::initializer_list<int> values) {
  return Data(values.begin(), values.end());
}

TEST(IPCFrames, EncodesToKnownBytes) {
  // [5, {"a": h'01ff', "b": true, "c": "é", "d": -2, "e": 618}]
  Frame frame{5, {{"e", std::int64_t{618}}, {"d", std::int64_t{-2}}, {"c", "é"}, {"b", true}, {"a", bytes({1, 255})}}};
  Data expected = bytes({0,    0,    0,   24,   0x82, 0x05, 0xA5, 0x61, 'a',  0x42, 1,   255,  0x61, 'b',
                         0xF5, 0x61, 'c', 0x62, 0xC3, 0xA9, 0x61, 'd',  0x21, 0x61, 'e', 0x19, 0x02, 0x6A});
  EXPECT_THAT(encodeFrame(frame), Optional(Eq(expected)));

  auto decoded = decodeFrame(std::span(expected).subspan(4));
  ASSERT_TRUE(decoded);
  EXPECT_EQ(decoded->id, 5u);
  EXPECT_EQ(decoded->dictionary, frame.dictionary);
}

TEST(IPCFrames, IntegersOfEverySizeComeBack) {
  for (std::uint64_t id : {0ULL, 23ULL, 24ULL, 255ULL, 256ULL, 65'535ULL, 65'536ULL, 1ULL << 32, 1ULL << 33, ~0ULL}) {
    auto number = static_cast<std::int64_t>(id >> 1);
    Frame frame{id, {{"number", number}, {"negative", -1 - number}}};
    auto encoded = *encodeFrame(frame);
    auto decoded = decodeFrame(std::span(encoded).subspan(4));
    ASSERT_TRUE(decoded) << id;
    EXPECT_EQ(decoded->id, id);
    EXPECT_EQ(decoded->dictionary, frame.dictionary) << id;
  }
}

TEST(IPCFrames, FramesThatWereReadAreFreed) {
  auto inUse = [] { return mallinfo2().uordblks + mallinfo2().hblkhd; };
  auto whole = *encodeFrame({1, {{"k", Data(100'000)}}});
  Data endAndBegin(whole.begin() + 5'000, whole.end());
  endAndBegin.insert(endAndBegin.end(), whole.begin(), whole.begin() + 5'000);
  FrameReader reader;
  reader.append(std::span(whole).first(5'000));
  const auto before = inUse();
  for (int frame = 0; frame < 100; ++frame) {
    reader.append(endAndBegin);
    ASSERT_TRUE(reader.next());
    EXPECT_EQ(reader.frameLength(), whole.size() - 4);
  }
  EXPECT_LT(inUse(), before + 1'000'000);
}

TEST(IPCFrames, RefusesToEncodeAFrameThatNoPeerAccepts) {
  EXPECT_TRUE(encodeFrame({1, {{"k", Data(maximumFrameLength - 10)}}}));
  EXPECT_FALSE(encodeFrame({1, {{"k", Data(maximumFrameLength)}}}));
}

TEST(IPCFrames, ValuesOfOtherTypesReadAsAbsent) {
  // [1, {"f": 1.5, "n": null, "l": [1, {}], "t": 1(2), "u": 2^63, "s": simple(0), "x": simple(255), "i": (_ "a", "b"),
  // "j": (_ h'01', h'02'), "b": false, "v": simple(19), "w": simple(32)}]
  auto frame = decodeFrame(
      bytes({0x82, 1,    0xAC, 0x61, 'f',  0xF9, 0x3E, 0x00, 0x61, 'n',  0xF6, 0x61, 'l',  0x82, 1,    0xA0,
             0x61, 't',  0xC1, 2,    0x61, 'u',  0x1B, 128,  0,    0,    0,    0,    0,    0,    0,    0x61,
             's',  0xE0, 0x61, 'x',  0xF8, 255,  0x61, 'i',  0x7F, 0x61, 'a',  0x61, 'b',  0xFF, 0x61, 'j',
             0x5F, 0x41, 1,    0x41, 2,    0xFF, 0x61, 'b',  0xF4, 0x61, 'v',  0xF3, 0x61, 'w',  0xF8, 32}));
  ASSERT_TRUE(frame);
  EXPECT_EQ(frame->dictionary, (Dictionary{{"i", "ab"}, {"j", bytes({1, 2})}, {"b", false}}));
}

TEST(IPCFrames, RefusesEverythingButAnIDAndADictionary) {
  EXPECT_TRUE(decodeFrame(bytes({0x82, 0, 0xA0})));
  EXPECT_TRUE(decodeFrame(bytes({0x9F, 0, 0xBF, 0xFF, 0xFF})));  // indefinite lengths are well-formed
  for (const Data& item : {
           bytes({}),
           bytes({0xA0}),
           bytes({0x81, 0}),
           bytes({0x83, 0, 0xA0}),
           bytes({0xA2, 0, 0xA0}),
           bytes({0x82, 0, 0xA1, 0xFF}),
           bytes({0x82, 0, 0xA1, 0x61, 'a', 0x5F, 0x5F, 0xFF}),
           bytes({0x82, 0x20, 0xA0}),                                  // the ID is negative
           bytes({0x82, 0, 0xA0, 0}),                                  // another item follows
           bytes({0x82, 0, 0xA1, 1, 1}),                               // a key is not a text
           bytes({0x82, 0, 0xA1, 0x61, 0xFF, 1}),                      // a key is not UTF-8
           bytes({0x82, 0, 0xA1, 0x61, 'a', 0x62, 0xC0, 0x80}),        // an overlong encoding of a character
           bytes({0x82, 0, 0xA1, 0x61, 'a', 0x63, 0xED, 0xA0, 0x80}),  // a surrogate
           bytes({0x82, 0, 0xA2, 0x61, 'a', 1, 0x61, 'a', 2}),         // a key occurs twice
           // a key occurs twice, first with a value that reads as absent
           bytes({0x82, 0, 0xA2, 0x61, 'a', 0xF6, 0x61, 'a', 2}),
           bytes({0x82, 0, 0xA1, 0x61, 'a', 0x5F, 0x61, 'x', 0xFF}),  // a text inside data of indefinite length
           bytes({0x82, 0, 0xA1, 0x61, 'a', 0xFF}),
           bytes({0x9F, 0, 0xA0}),                         // an array of indefinite length does not end
           bytes({0x82, 0, 0xA1, 0x61, 'a', 0xF8, 0x10}),  // a simple value in the wrong form
           bytes({0x82, 0, 0xA1, 0x61, 'a', 0x5B, 255, 255, 255, 255, 255, 255, 255, 255}),  // longer than any memory
           bytes({0x82, 0, 0xBB, 255, 255, 255, 255, 255, 255, 255, 255}),
       }) {
    EXPECT_FALSE(decodeFrame(item)) << testing::PrintToString(item);
  }
}

TEST(IPCFrames, NestsEightDeepAndNoDeeper) {
  auto nested = [](int items, std::uint8_t head) {
    Data item = bytes({0x82, 0, 0xA1, 0x61, 'a'});
    item.insert(item.end(), static_cast<std::size_t>(items - 1), head);
    item.push_back(0x80);
    return item;
  };
  for (std::uint8_t head : bytes({0x81, 0xC1})) {  // an array, a tag
    EXPECT_TRUE(decodeFrame(nested(6, head)));
    EXPECT_FALSE(decodeFrame(nested(7, head)));
    EXPECT_FALSE(decodeFrame(nested(1'000'000, head)));
  }
}

TEST(IPCFrames, NothingFollowsAMalformedFrame) {
  for (auto [begin, isMalformed] : {std::pair(bytes({0, 0, 0, 0}), true),
                                    {bytes({0, 0, 0, 1, 0xFF}), true},
                                    {bytes({1, 0, 0, 0}), false},
                                    {bytes({1, 0, 0, 1}), true}}) {
    FrameReader reader;
    reader.append(begin);
    EXPECT_FALSE(reader.next());
    EXPECT_EQ(reader.isMalformed(), isMalformed);
    EXPECT_EQ(reader.missing(), isMalformed ? 0 : maximumFrameLength);
    reader.append(*encodeFrame({}));
    EXPECT_FALSE(reader.next());
    EXPECT_EQ(reader.isMalformed(), isMalformed);
  }
}

}  // namespace
}  // namespace platform::ipc
