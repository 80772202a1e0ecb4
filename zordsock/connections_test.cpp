#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "suite/descriptor_set.h"
#include "tests/support/trace_lines.h"
#include "zordsock/zordsock.h"

namespace {

using testing::ElementsAre;

constexpr int streamSocket = 7;
constexpr int datagramSocket = 9;
constexpr int allSlots = MAX_TCP_CLIENTS;

// The table needs numbers, not open descriptors; the test closes none.
class Table : public ipcSock {
 public:
  Table() : ipcSock(0, 0, 0) {
    _sockTCP = streamSocket;
    _sockUDP = datagramSocket;
  }
  ~Table() { _sockTCP = _sockUDP = NO_SOCKET; }

  void fill() { std::fill(std::begin(_sockClientFD), std::end(_sockClientFD), 11); }
};

// The result of one step of a scan.
struct Step {
  ZORA_Long descriptor;
  ZORA_Long slot;
  bool operator==(const Step& other) const = default;
};

Step nextStep(Table& table, ZOR0_DescriptorSet& readable) {
  Step step{-99, -99};
  step.descriptor = table.sockCheckReadMask(readable.get(), &step.slot);
  return step;
}

ZOR0_DescriptorSet setOf(const std::vector<int>& descriptors) {
  ZOR0_DescriptorSet set;
  set.reset(*std::max_element(descriptors.begin(), descriptors.end()));
  for (const int descriptor : descriptors) set.add(descriptor);
  return set;
}

std::vector<int> membersUpTo(const ZOR0_DescriptorSet& set, int highest) {
  std::vector<int> members;
  for (int i = 0; i <= highest; ++i)
    if (set.contains(i)) members.push_back(i);
  return members;
}

TEST(ReadMask, HoldsBothSocketsAndEveryConnection) {
  expectTrace("ipcSock::sockSetSelectReadMask", [] {
    Table table;
    table._sockClientFD[0] = 5;
    table._sockClientFD[3] = 40;
    table._sockClientFD[63] = 12;
    ZOR0_DescriptorSet mask = setOf({3, 4, 8, 1000});
    EXPECT_EQ(table.sockSetSelectReadMask(mask.get()), 41);
    EXPECT_THAT(membersUpTo(mask, 1000), ElementsAre(5, 7, 9, 12, 40));
    return std::vector<TraceLine>{
        entryLine(),
        detailLine("_sockTCP[7] and _sockUDP[9] mask set.\n"),
        detailLine("_sockClientFD[0]=[5] mask set, max_fd[9]\n"),
        detailLine("_sockClientFD[3]=[40] mask set, max_fd[40]\n"),
        detailLine("_sockClientFD[63]=[12] mask set, max_fd[40]\n"),
        exitLine(41),
    };
  });
}

TEST(ReadMask, WithoutConnectionsEndsAfterTheHigherSocket) {
  Table table;
  ZOR0_DescriptorSet mask = setOf({1});
  EXPECT_EQ(table.sockSetSelectReadMask(mask.get()), datagramSocket + 1);
  table._sockTCP = 20;
  EXPECT_EQ(table.sockSetSelectReadMask(mask.get()), 21);
  EXPECT_THAT(membersUpTo(mask, 100), ElementsAre(9, 20));
}

TEST(ReadMask, LeavesOutASlotWhoseAcceptFailed) {
  Table table;
  table._sockClientFD[1] = -1;
  ZOR0_DescriptorSet mask = setOf({1});
  EXPECT_EQ(table.sockSetSelectReadMask(mask.get()), 10);
  EXPECT_THAT(membersUpTo(mask, 100), ElementsAre(7, 9));
}

TEST(ReadMask, ReachesBeyondThePlainSetSize) {
  Table table;
  table._sockClientFD[2] = FD_SETSIZE + 100;
  ZOR0_DescriptorSet mask = setOf({FD_SETSIZE + 100});
  EXPECT_EQ(table.sockSetSelectReadMask(mask.get()), FD_SETSIZE + 101);
  EXPECT_THAT(membersUpTo(mask, FD_SETSIZE + 100), ElementsAre(7, 9, FD_SETSIZE + 100));
}

TEST(ConnectionScan, ReportsTheReadableConnectionsWithTheirSlots) {
  Table table;
  table._sockClientFD[0] = 5;
  table._sockClientFD[1] = 6;
  table._sockClientFD[2] = -1;
  ZOR0_DescriptorSet readable = setOf({6});
  table.sockResetIndex();
  EXPECT_EQ(nextStep(table, readable), (Step{0, -1}));  // not readable
  EXPECT_EQ(nextStep(table, readable), (Step{6, 1}));
  EXPECT_EQ(nextStep(table, readable), (Step{0, -1}));  // accept failed
  EXPECT_EQ(nextStep(table, readable), (Step{0, -1}));  // free
  EXPECT_EQ(table._sockIndex, 4);
}

TEST(ConnectionScan, EndsBeforeTheLastSlot) {
  Table table;
  table.fill();
  ZOR0_DescriptorSet readable = setOf({11});
  table.sockResetIndex();
  for (ZORA_Long slot = 0; slot < 63; ++slot)
    EXPECT_EQ(nextStep(table, readable), (Step{11, slot}));
  EXPECT_EQ(nextStep(table, readable), (Step{-1, -1}));
  EXPECT_EQ(nextStep(table, readable), (Step{-1, -1}));
  EXPECT_EQ(table._sockIndex, 65);
}

TEST(ConnectionScan, StartsAgainAfterAReset) {
  Table table;
  table.fill();
  ZOR0_DescriptorSet readable = setOf({11});
  EXPECT_EQ(nextStep(table, readable), (Step{11, 0}));
  EXPECT_EQ(nextStep(table, readable), (Step{11, 1}));
  table.sockResetIndex();
  EXPECT_EQ(table._sockIndex, 0);
  EXPECT_EQ(nextStep(table, readable), (Step{11, 0}));
}

TEST(ConnectionScan, FindsADescriptorBeyondThePlainSetSize) {
  Table table;
  table._sockClientFD[0] = FD_SETSIZE + 5;
  ZOR0_DescriptorSet readable = setOf({FD_SETSIZE + 5});
  EXPECT_EQ(nextStep(table, readable), (Step{FD_SETSIZE + 5, 0}));
}

TEST(ConnectionScan, TracesNothingButItsEvents) {
  expectTrace("ipcSock::sockCheckReadMask", [] {
    Table table;
    table._sockClientFD[0] = 5;
    ZOR0_DescriptorSet readable = setOf({5});
    nextStep(table, readable);
    nextStep(table, readable);
    table._sockIndex = 63;
    nextStep(table, readable);
    return std::vector<TraceLine>{entryLine(), exitLine(5), entryLine(),
                                  exitLine(0), entryLine(), exitLine(-1)};
  });
  expectTrace("ipcSock::sockResetIndex", [] {
    Table().sockResetIndex();
    return std::vector<TraceLine>{entryLine(), exitLine()};
  });
}

TEST(AvailableIndex, IsTheLowestFreeSlot) {
  expectTrace("ipcSock::sockGetAvailableIndex", [] {
    Table table;
    EXPECT_EQ(table.sockGetAvailableIndex(), 0);
    table.fill();
    table._sockClientFD[62] = 0;
    table._sockClientFD[17] = 0;
    EXPECT_EQ(table.sockGetAvailableIndex(), 17);
    return std::vector<TraceLine>{entryLine(), exitLine(0), entryLine(), exitLine(17)};
  });
}

TEST(AvailableIndex, IncludesTheLastSlot) {
  Table table;
  table.fill();
  table._sockClientFD[allSlots - 1] = 0;
  EXPECT_EQ(table.sockGetAvailableIndex(), allSlots - 1);
}

TEST(AvailableIndex, IsNoneWhenAllAreTaken) {
  Table table;
  table.fill();
  EXPECT_EQ(table.sockGetAvailableIndex(), -1);
}

TEST(AvailableIndex, PassesOverASlotWhoseAcceptFailed) {
  Table table;
  table._sockClientFD[0] = -1;
  EXPECT_EQ(table.sockGetAvailableIndex(), 1);
}

}  // namespace
