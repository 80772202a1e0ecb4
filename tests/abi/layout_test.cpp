// The layout of the records and the slots of the virtual operations, which programs that were
// compiled against the library have built in.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "zordchcl/DCHclient.h"
#include "zordipc/zordipc.h"
#include "zordlpc/zordlpc.h"
#include "zordsock/settings.h"
#include "zordsock/zordsock.h"

// The records have base classes and constructors; for those, offsetof is conditionally supported.
#pragma GCC diagnostic ignored "-Winvalid-offsetof"

namespace {

constexpr std::size_t at(std::size_t with64Bits, std::size_t with32Bits) {
  return sizeof(void*) == 8 ? with64Bits : with32Bits;
}

constexpr std::size_t pointerSize = sizeof(void*);

#define EXPECT_FIELD(record, field, offset, size) \
  EXPECT_EQ(offsetof(record, field), offset);     \
  EXPECT_EQ(sizeof(record::field), size) << #record "::" #field

TEST(LayoutTest, TypesHaveTheStatedWidths) {
  EXPECT_EQ(sizeof(ZORA_Long), 4u);
  EXPECT_EQ(sizeof(short), 2u);
  EXPECT_EQ(sizeof(DCHipc_Service), 2u);
}

TEST(LayoutTest, DchIpcFieldsStandInOrder) {
  EXPECT_FIELD(DCHipc, _ipcError, at(8, 4), 4u);
  EXPECT_FIELD(DCHipc, _dchIpcType, at(12, 8), 2u);
  EXPECT_FIELD(DCHipc, _typeOfService, at(14, 10), 2u);
  EXPECT_FIELD(DCHipc, _ipcCircularBuffer, at(16, 12), pointerSize);
  EXPECT_FIELD(DCHipc, _retryRead, at(24, 16), 4u);
  EXPECT_EQ(sizeof(DCHipc), at(32, 20));
}

TEST(LayoutTest, SocketTransportFieldsFollowItsBase) {
  EXPECT_FIELD(ipcSock, _sockError, at(28, 20), 4u);
  EXPECT_FIELD(ipcSock, _sockPortTCP, at(32, 24), 2u);
  EXPECT_FIELD(ipcSock, _sockPortUDP, at(34, 26), 2u);
  EXPECT_FIELD(ipcSock, _sockTCP, at(36, 28), 4u);
  EXPECT_FIELD(ipcSock, _sockUDP, at(40, 32), 4u);
  EXPECT_FIELD(ipcSock, _sockIndex, at(44, 36), 4u);
  EXPECT_FIELD(ipcSock, _sockClientFD, at(48, 40), 64 * 4u);
  EXPECT_FIELD(ipcSock, _sockAddress, at(304, 296), 16u);
  EXPECT_FIELD(ipcSock, _sockAddrLen, at(320, 312), 4u);
  EXPECT_FIELD(ipcSock, _useFromSockPool, at(324, 316), 4u);
  EXPECT_EQ(sizeof(ipcSock), at(328, 320));
}

TEST(LayoutTest, LocalTransportFieldFollowsItsBase) {
  EXPECT_FIELD(ipcLPC, _lpcError, at(28, 20), 4u);
  EXPECT_EQ(sizeof(ipcLPC), at(32, 24));
}

TEST(LayoutTest, ClientFieldsStandInOrder) {
  EXPECT_FIELD(DCHclient, _clientIpcType, 0u, 4u);
  EXPECT_FIELD(DCHclient, _ipcClient, at(8, 4), pointerSize);
  EXPECT_FIELD(DCHclient, _readBuffer, at(16, 8), pointerSize);
  EXPECT_FIELD(DCHclient, _msgBuffer, at(24, 12), 4096u);
  EXPECT_FIELD(DCHclient, _applName, at(4120, 4108), 21u);
  EXPECT_FIELD(DCHclient, _attrGroup, at(4141, 4129), 33u);
  EXPECT_FIELD(DCHclient, _interruptFD, at(4176, 4164), 4u);
  EXPECT_FIELD(DCHclient, _DCHtimeout, at(4180, 4168), 4u);
  EXPECT_FIELD(DCHclient, _ipcReadTimeout, at(4184, 4172), 4u);
  EXPECT_FIELD(DCHclient, _clientError, at(4188, 4176), 4u);
  EXPECT_FIELD(DCHclient, _interruptPort, at(4192, 4180), 4u);
  EXPECT_EQ(sizeof(DCHclient), at(4200, 4184));
}

TEST(LayoutTest, QueueFieldsStandInOrder) {
  EXPECT_FIELD(ipcCircularBuffer, lock, 0u, sizeof(pthread_mutex_t));
  EXPECT_FIELD(ipcCircularBuffer, start_idx, at(40, 24), 4u);
  EXPECT_FIELD(ipcCircularBuffer, num_full, at(44, 28), 4u);
  EXPECT_FIELD(ipcCircularBuffer, notFull, at(48, 32), sizeof(pthread_cond_t));
  EXPECT_FIELD(ipcCircularBuffer, notEmpty, at(96, 80), sizeof(pthread_cond_t));
  EXPECT_FIELD(ipcCircularBuffer, slot, at(144, 128), 5 * sizeof(ipcClientSlot));
  EXPECT_FIELD(ipcCircularBuffer, dataSize, at(2744, 2728), 5 * 4u);
  EXPECT_FIELD(ipcCircularBuffer, dataLen, at(2764, 2748), 5 * 4u);
  EXPECT_FIELD(ipcCircularBuffer, data, at(2784, 2768), 5 * pointerSize);
  EXPECT_EQ(sizeof(ipcCircularBuffer), at(2824, 2788));
}

TEST(LayoutTest, QueueSlotFieldsStandInOrder) {
  EXPECT_FIELD(ipcClientSlot, clientAddr, 0u, 256u);
  EXPECT_FIELD(ipcClientSlot, clientAddrLen, 256u, 4u);
  EXPECT_FIELD(ipcClientSlot, clientName, 260u, 256u);
  EXPECT_FIELD(ipcClientSlot, connectedSockFD, 516u, 4u);
  EXPECT_EQ(sizeof(ipcClientSlot), 520u);
}

TEST(LayoutTest, PoolElementFieldsStandInOrder) {
  EXPECT_FIELD(zordsock::UDPSockElement, inUse, 0u, 2u);
  EXPECT_FIELD(zordsock::UDPSockElement, sockUDP, 4u, 4u);
  EXPECT_EQ(sizeof(zordsock::UDPSockElement), 8u);
}

// Records which of its operations was called, with its arguments.
class RecordingTransport : public DCHipc {
 public:
  RecordingTransport() : DCHipc(SERVICE_UDP_CLIENT) {}

  ZORA_Long ipcRead(void** buffer, ZORA_Long wait) override {
    return record("ipcRead", {buffer, this}, {wait}, 100);
  }
  ZORA_Long ipcWrite(void* buffer, ZORA_Long length, unsigned int connection) override {
    return record("ipcWrite", {buffer, this}, {length, static_cast<ZORA_Long>(connection)}, 101);
  }
  void setClientAddr(void* address, ZORA_Long length) override {
    record("setClientAddr", {address, this}, {length}, 0);
  }
  ZORA_Long IPCServer() override { return record("IPCServer", {this}, {}, 103); }
  ZORA_Long IPCClient(void* argument, ZORA_Long connectTo, ZORA_Long service) override {
    return record("IPCClient", {argument, this}, {connectTo, service}, 104);
  }
  ZORA_Long allocateIPC() override { return record("allocateIPC", {this}, {}, 105); }
  ZORA_Long releaseIPC() override { return record("releaseIPC", {this}, {}, 106); }
  short DCHtimeout() override { return static_cast<short>(record("DCHtimeout", {this}, {}, 107)); }

  std::string called;
  std::vector<const void*> pointers;
  std::vector<ZORA_Long> numbers;

 private:
  ZORA_Long record(const char* name, std::vector<const void*> givenPointers,
                   std::vector<ZORA_Long> givenNumbers, ZORA_Long result) {
    called = name;
    pointers = std::move(givenPointers);
    numbers = std::move(givenNumbers);
    return result;
  }
};

// What a program compiled against the interface does: takes the address from the table that the
// object's first word points to.
template <typename Result, typename... Arguments>
Result callSlot(std::size_t slot, DCHipc* object, Arguments... arguments) {
  void* const* table = nullptr;
  std::memcpy(&table, static_cast<const void*>(object), sizeof(table));
  return reinterpret_cast<Result (*)(DCHipc*, Arguments...)>(table[slot])(object, arguments...);
}

class VirtualSlotTest : public testing::Test {
 protected:
  void expectCalled(const char* name, const std::vector<const void*>& pointers,
                    const std::vector<ZORA_Long>& numbers) {
    EXPECT_EQ(transport.called, name);
    EXPECT_EQ(transport.pointers, pointers);
    EXPECT_EQ(transport.numbers, numbers);
  }

  RecordingTransport transport;
  void* buffer = nullptr;
};

TEST_F(VirtualSlotTest, Slot0Reads) {
  EXPECT_EQ((callSlot<ZORA_Long, void**, ZORA_Long>(0, &transport, &buffer, 7)), 100);
  expectCalled("ipcRead", {&buffer, &transport}, {7});
}

TEST_F(VirtualSlotTest, Slot1Writes) {
  EXPECT_EQ((callSlot<ZORA_Long, void*, ZORA_Long, unsigned int>(1, &transport, &buffer, 8, 9)),
            101);
  expectCalled("ipcWrite", {&buffer, &transport}, {8, 9});
}

TEST_F(VirtualSlotTest, Slot2SetsThePeerAddress) {
  callSlot<void, void*, ZORA_Long>(2, &transport, &buffer, 16);
  expectCalled("setClientAddr", {&buffer, &transport}, {16});
}

TEST_F(VirtualSlotTest, Slot3RunsTheServer) {
  EXPECT_EQ(callSlot<ZORA_Long>(3, &transport), 103);
  expectCalled("IPCServer", {&transport}, {});
}

TEST_F(VirtualSlotTest, Slot4OpensTheClient) {
  EXPECT_EQ((callSlot<ZORA_Long, void*, ZORA_Long, ZORA_Long>(4, &transport, &buffer, 1, 3)), 104);
  expectCalled("IPCClient", {&buffer, &transport}, {1, 3});
}

TEST_F(VirtualSlotTest, Slot5Allocates) {
  EXPECT_EQ(callSlot<ZORA_Long>(5, &transport), 105);
  expectCalled("allocateIPC", {&transport}, {});
}

TEST_F(VirtualSlotTest, Slot6Releases) {
  EXPECT_EQ(callSlot<ZORA_Long>(6, &transport), 106);
  expectCalled("releaseIPC", {&transport}, {});
}

TEST_F(VirtualSlotTest, Slot7AnswersTheTimeOut) {
  EXPECT_EQ(callSlot<short>(7, &transport), 107);
  expectCalled("DCHtimeout", {&transport}, {});
}

}  // namespace
