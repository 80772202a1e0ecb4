#include "dch/core/epoch.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

namespace dch {
namespace {

constexpr Epoch countedUp{{0x00, 0x01, 0x12, 0x23, 0x34, 0x45, 0x56, 0x67, 0x78, 0x89, 0x9a, 0xab,
                           0xbc, 0xcd, 0xde, 0xff}};
constexpr char countedUpText[] = "000112233445566778899aabbccddeff";

TEST(Epoch, IsWrittenAsSmallHexadecimalDigits) {
  EXPECT_EQ(countedUpText, epochText(countedUp));
  EXPECT_EQ(std::string(32, '0'), epochText(Epoch()));
}

TEST(Epoch, IsReadAsItWasWritten) {
  EXPECT_EQ(countedUp, parseEpoch(countedUpText));
  EXPECT_EQ(Epoch(), parseEpoch(std::string(32, '0')));
  const Epoch epoch = newEpoch();
  EXPECT_EQ(epoch, parseEpoch(epochText(epoch)));
}

TEST(Epoch, IsNotReadFromAnythingElse) {
  const std::string text = countedUpText;
  std::string capital = text;
  capital.back() = 'F';
  std::string withNull = text;
  withNull[7] = '\0';
  for (const std::string& each :
       {std::string(), std::string("-"), text.substr(1), text + "0", text.substr(1) + " ",
        "0x" + text.substr(2), text.substr(1) + "g", text.substr(1) + "/", capital, withNull})
    EXPECT_EQ(std::nullopt, parseEpoch(each)) << each;
}

// That no byte ever differs happens by chance once in 2^500 runs.
TEST(Epoch, IsRandomInEachOfItsBytes) {
  std::vector<Epoch> epochs(64);
  std::generate(epochs.begin(), epochs.end(), newEpoch);
  for (std::size_t byte = 0; byte < epochs[0].bytes.size(); ++byte)
    EXPECT_TRUE(std::any_of(epochs.begin(), epochs.end(), [&](const Epoch& each) {
      return each.bytes[byte] != epochs[0].bytes[byte];
    })) << byte;
}

}  // namespace
}  // namespace dch
