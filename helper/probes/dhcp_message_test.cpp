// Tests every byte of the DISCOVER, and offers that each have one fault.
#include "helper/probes/dhcp_message.h"

#include <gmock/gmock.h>

#include <vector>

namespace {

constexpr BRHHardwareAddress ourAddress{0x02, 0x42, 0xAC, 0x11, 0x00, 0x09};
constexpr std::uint32_t ourTransaction = 0x8F01A2B3;
using Verdict = BRHDHCPVerdict;

TEST(DHCPMessage, DiscoverToTheByte) {
  BRHDHCPMessage expected{};
  const std::vector<std::uint8_t> head{1, 1, 6, 0, 0x8F, 0x01, 0xA2, 0xB3, 0,    0,   0x80, 0,
                                       0, 0, 0, 0, 0,    0,    0,    0,    0,    0,   0,    0,
                                       0, 0, 0, 0, 0x02, 0x42, 0xAC, 0x11, 0x00, 0x09};
  const std::vector<std::uint8_t> options{99, 130, 83, 99, 53, 1, 1, 255};
  std::copy(head.begin(), head.end(), expected.begin());
  std::copy(options.begin(), options.end(), expected.begin() + 236);
  EXPECT_EQ(BRHMakeDHCPDiscover(ourAddress, ourTransaction), expected);
  EXPECT_EQ(BRHDHCPTransactionID(expected), ourTransaction);
}

/// An offer for our transaction and hardware address, with the given options.
struct Offer {
  BRHDHCPMessage message = BRHMakeDHCPDiscover(ourAddress, ourTransaction);
  std::size_t length;

  explicit Offer(const std::vector<std::uint8_t>& options = {53, 1, 2, 255}) : length(240 + options.size()) {
    message[0] = 2;
    std::fill(message.begin() + 240, message.end(), std::uint8_t{0});
    std::copy(options.begin(), options.end(), message.begin() + 240);
  }
  Offer with(std::size_t offset, std::uint8_t value) const {
    auto copy = *this;
    copy.message[offset] = value;
    return copy;
  }
  Verdict verdict() const { return BRHJudgeDHCPOffer(message, length, ourTransaction, ourAddress); }
};

TEST(DHCPMessage, OfferIsFoundWhereverItsTypeStands) {
  EXPECT_EQ(Offer().verdict(), Verdict::offer);
  EXPECT_EQ(Offer({53, 1, 2}).verdict(), Verdict::offer);  // the end option may be missing
  EXPECT_EQ(Offer({0, 0, 53, 1, 2}).verdict(), Verdict::offer);
  EXPECT_EQ(Offer({54, 4, 192, 0, 2, 1, 0, 1, 0, 53, 1, 2, 53, 1, 5}).verdict(),
            Verdict::offer);  // the first type counts
  EXPECT_EQ(Offer({12, 3, 53, 1, 5, 53, 1, 2}).verdict(),
            Verdict::offer);  // a type inside another option does not count
  std::vector<std::uint8_t> full(308);
  std::copy_n(std::array<std::uint8_t, 3>{53, 1, 2}.begin(), 3, full.end() - 3);
  EXPECT_EQ(Offer(full).verdict(), Verdict::offer);
}

TEST(DHCPMessage, AnySingleFaultIsMalformed) {
  for (auto [offset, value] : {std::pair<std::size_t, std::uint8_t>{0, 1}, {1, 6}, {2, 16}, {236, 98}, {239, 100}}) {
    EXPECT_EQ(Offer().with(offset, value).verdict(), Verdict::malformedOrNoOffer) << offset;
  }
  for (std::size_t length : {0u, 1u, 239u, 240u, 241u, 242u}) {
    auto offer = Offer();
    offer.length = length;
    EXPECT_EQ(offer.verdict(), Verdict::malformedOrNoOffer) << length;
  }
  for (const std::vector<std::uint8_t>& options : {
           std::vector<std::uint8_t>{53, 1, 5},  // ACK
           {53, 2, 2, 0},                        // two bytes long
           {53, 0},                              // empty
           {53, 1},                              // ends before its value
           {53},                                 // ends before its length
           {255, 53, 1, 2},                      // follows the end option
           {54, 4, 192, 0, 2, 1},                // no type
           {54, 5, 192, 0, 2, 1, 53, 1, 2},      // the type lies inside the previous option
           {54, 255, 53, 1, 2},                  // an option that extends past the end
           {53, 1, 5, 53, 1, 2},                 // the first type counts
       }) {
    EXPECT_EQ(Offer(options).verdict(), Verdict::malformedOrNoOffer) << testing::PrintToString(options);
  }
}

TEST(DHCPMessage, ShapeIsJudgedBeforeTransactionBeforeHardwareAddress) {
  EXPECT_EQ(Offer().with(4, 0).verdict(), Verdict::otherTransaction);
  EXPECT_EQ(Offer().with(7, 0).verdict(), Verdict::otherTransaction);
  EXPECT_EQ(Offer().with(28, 0).verdict(), Verdict::otherHardwareAddress);
  EXPECT_EQ(Offer().with(33, 0).verdict(), Verdict::otherHardwareAddress);
  EXPECT_EQ(Offer().with(34, 9).verdict(), Verdict::offer);  // beyond the six bytes of the address
  EXPECT_EQ(Offer().with(28, 0).with(7, 0).verdict(), Verdict::otherTransaction);
  EXPECT_EQ(Offer().with(28, 0).with(7, 0).with(0, 1).verdict(), Verdict::malformedOrNoOffer);
}

}  // namespace
