// What goes into the queue and what comes out of it. Waiting is tested in queue_threads_test.cpp,
// the trace in queue_trace_test.cpp, failures in queue_failures_test.cpp.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/trace_capture.h"
#include "tests/support/trace_lines.h"
#include "zordipc/test_queue.h"

namespace {

std::string messageOfSize(std::size_t size) {
  std::string message(size, '\0');
  for (std::size_t i = 0; i < size; ++i) message[i] = static_cast<char>('a' + i % 26);
  return message;
}

// ---- The record ------------------------------------------------------------------------------

TEST(NewQueue, IsEmptyAndHasNoBuffers) {
  const TestQueue queue;
  EXPECT_EQ(queue.ipcGetError(), 0);
  EXPECT_EQ(queue.record().start_idx, 0);
  EXPECT_EQ(queue.record().num_full, 0);
  for (const char* slotBuffer : queue.record().data) EXPECT_EQ(slotBuffer, nullptr);
}

TEST(NewQueue, BeginsWithItsLock) {
  const TestQueue queue;
  EXPECT_EQ(static_cast<void*>(&queue.record()), static_cast<void*>(&queue.record().lock));
  EXPECT_EQ(ZORA_GetLock(&queue.record(), nullptr), 0);
  EXPECT_NE(pthread_mutex_trylock(&queue.record().lock), 0);
  EXPECT_EQ(ZORA_ReleaseLock(&queue.record(), nullptr), 0);
}

TEST(DeletedQueue, IsGone) {
  TestQueue queue;
  queue.put("hello");
  queue.ipc_delete_cb();
  EXPECT_EQ(queue._ipcCircularBuffer, nullptr);
  queue.ipc_delete_cb();
  EXPECT_EQ(queue._ipcCircularBuffer, nullptr);
}

TEST(MissingQueue, DropsMessagesWithoutAnError) {
  TestTransport server(SERVICE_SERVER);
  server.ipcSetError(1);
  server.ipc_put_data(5, "hello", senderAddress, senderAddressLength, senderName, 0);
  EXPECT_EQ(server.ipcGetError(), 0);
  EXPECT_EQ(server._ipcCircularBuffer, nullptr);
}

// ---- Order and content -----------------------------------------------------------------------

TEST(Queue, HandsOverWhatWasPut) {
  TestQueue queue;
  queue.put("hello", senderName, 17);
  EXPECT_EQ(queue.record().num_full, 1);
  queue.get();
  EXPECT_EQ(queue.ipcGetError(), 0);
  EXPECT_EQ(queue.taken(5), "hello");
  EXPECT_STREQ(queue.name, senderName);
  EXPECT_EQ(queue.addressLength, senderAddressLength);
  EXPECT_EQ(std::memcmp(queue.address, senderAddress, sizeof senderAddress), 0);
  EXPECT_EQ(queue.connection, 17u);
  EXPECT_EQ(queue.record().num_full, 0);
  EXPECT_EQ(queue.record().start_idx, 1);
}

TEST(Queue, IsFirstInFirstOutAroundItsEnd) {
  TestQueue queue;
  int put = 0;
  int taken = 0;
  for (int round = 0; round < 7; ++round) {
    while (queue.record().num_full < 4) queue.put("message " + std::to_string(put++));
    for (int i = 0; i < 3; ++i) {
      queue.get();
      EXPECT_STREQ(queue.buffer, ("message " + std::to_string(taken++)).c_str());
    }
  }
  EXPECT_EQ(queue.record().start_idx, taken % 5);
}

TEST(Queue, CopiesTheMessageAndItsSender) {
  TestQueue queue;
  std::string message = "hello";
  char address[4] = {1, 2, 3, 4};
  std::string name = "1.2.3.4";
  queue.ipc_put_data(5, message.data(), address, 4, name.c_str(), 0);
  message = "XXXXX";
  name = "9.9.9.9";
  address[0] = 9;
  queue.get();
  EXPECT_STREQ(queue.buffer, "hello");
  EXPECT_STREQ(queue.name, "1.2.3.4");
  EXPECT_EQ(queue.address[0], 1);
  EXPECT_NE(static_cast<void*>(queue.buffer), static_cast<void*>(queue.record().data[0]));
}

TEST(Queue, CarriesAnyBytesAndNone) {
  TestQueue queue;
  const std::string bytes("\0\xff\0ab\0", 6);
  queue.pass(bytes);
  EXPECT_EQ(queue.taken(6), bytes);
  EXPECT_EQ(queue.record().dataLen[0], 6);
  queue.pass("");
  EXPECT_EQ(queue.ipcGetError(), 0);
  EXPECT_EQ(queue.record().dataLen[1], 0);
  EXPECT_TRUE(queue.isZeroFrom(0));
}

TEST(Queue, ClearsAnOlderErrorFirst) {
  TestQueue queue;
  queue.ipcSetError(1);
  queue.put("hello");
  EXPECT_EQ(queue.ipcGetError(), 0);
  queue.ipcSetError(1);
  queue.get();
  EXPECT_EQ(queue.ipcGetError(), 0);
}

TEST(Queue, RefusesImpossibleLengths) {
  TestQueue queue;
  const TraceCapture trace("0x80");
  for (const ZORA_Long length : {-1, (1 << 30) + 1}) {
    queue.ipc_put_data(length, "hello", senderAddress, senderAddressLength, senderName, 0);
    EXPECT_EQ(queue.ipcGetError(), 1);
    EXPECT_TRUE(trace.has(
        textOf("Error: a message of %d bytes cannot be queued\n", static_cast<int>(length))));
  }
  EXPECT_EQ(queue.record().num_full, 0);
  EXPECT_EQ(queue.record().data[0], nullptr);
}

// ---- Slot buffers ----------------------------------------------------------------------------

// The capacity of slot 0 after messages of these sizes have passed through it.
ZORA_Long capacityAfter(const std::vector<std::size_t>& sizes) {
  TestQueue queue;
  for (const std::size_t size : sizes) {
    queue.pass(messageOfSize(size));
    EXPECT_EQ(queue.taken(size), messageOfSize(size));
    EXPECT_TRUE(queue.isZeroFrom(size));
    EXPECT_GT(queue.bufferSize, static_cast<ZORA_Long>(size));
    for (int slot = 1; slot < 5; ++slot) queue.pass("");
  }
  return queue.record().dataSize[0];
}

TEST(SlotBuffer, StartsWithOneStepOrTheMessageAndAZero) {
  EXPECT_EQ(capacityAfter({0}), 4096);
  EXPECT_EQ(capacityAfter({4095}), 4096);
  EXPECT_EQ(capacityAfter({4096}), 4097);
  EXPECT_EQ(capacityAfter({9000}), 9001);
}

TEST(SlotBuffer, GrowsInWholeStepsBeyondTheMessage) {
  EXPECT_EQ(capacityAfter({1, 4095}), 4096);
  EXPECT_EQ(capacityAfter({1, 4096}), 8192);
  EXPECT_EQ(capacityAfter({1, 9000}), 12288);
  EXPECT_EQ(capacityAfter({1, 8191}), 8192);
  EXPECT_EQ(capacityAfter({1, 8192}), 12288);
  EXPECT_EQ(capacityAfter({4096, 4097}), 8193);
}

TEST(SlotBuffer, NeverShrinks) {
  EXPECT_EQ(capacityAfter({9000, 1, 100, 9000}), 9001);
}

TEST(SlotBuffer, IsKeptAndReused) {
  TestQueue queue;
  queue.pass(messageOfSize(3000));
  const char* const slotBuffer = queue.record().data[0];
  for (int slot = 1; slot < 5; ++slot) queue.pass("other slot");
  queue.put("short");
  EXPECT_EQ(queue.record().data[0], slotBuffer);
  EXPECT_EQ(std::string(slotBuffer, 4096), "short" + std::string(4091, '\0'));
}

// ---- The consumer's buffer -------------------------------------------------------------------

TEST(ConsumersBuffer, GetsTheCapacityOfTheSlot) {
  TestQueue queue;
  queue.pass("hello");
  EXPECT_EQ(queue.bufferSize, 4096);
  EXPECT_EQ(queue.taken(5), "hello");
  EXPECT_TRUE(queue.isZeroFrom(5));
  queue.pass(messageOfSize(5000));
  EXPECT_EQ(queue.bufferSize, 5001);
  EXPECT_EQ(queue.taken(5000), messageOfSize(5000));
  EXPECT_TRUE(queue.isZeroFrom(5000));
}

TEST(ConsumersBuffer, IsKeptWhenItIsLargeEnough) {
  for (const ZORA_Long size : {4096, 10000}) {
    TestQueue queue;
    queue.bufferSize = size;
    queue.buffer = new char[static_cast<std::size_t>(size)];
    std::memset(queue.buffer, 'x', static_cast<std::size_t>(size));
    char* const kept = queue.buffer;
    queue.pass("hello");
    EXPECT_EQ(queue.buffer, kept);
    EXPECT_EQ(queue.bufferSize, size);
    EXPECT_EQ(queue.taken(5), "hello");
    EXPECT_TRUE(queue.isZeroFrom(5));
  }
}

TEST(ConsumersBuffer, IsReplacedWhenItIsSmaller) {
  TestQueue queue;
  queue.bufferSize = 4095;
  queue.buffer = new char[4095];
  queue.pass("hello");
  EXPECT_EQ(queue.bufferSize, 4096);
  EXPECT_EQ(queue.taken(5), "hello");
  EXPECT_TRUE(queue.isZeroFrom(5));
}

TEST(ConsumersBuffer, GetsNothingOfAnEarlierMessage) {
  TestQueue queue;
  queue.pass(messageOfSize(4000));
  queue.pass("hello");
  EXPECT_TRUE(queue.isZeroFrom(5));
}

// ---- The sender ------------------------------------------------------------------------------

TEST(Sender, WithoutANameIsShownAsBlanks) {
  TestQueue queue;
  queue.put("hello", nullptr);
  queue.get();
  EXPECT_EQ(queue.ipcGetError(), 0);
  EXPECT_EQ(std::string(queue.name), std::string(255, ' '));
}

TEST(Sender, WithAShortNameIsNeverHandedOver) {
  for (const char* const shortName : {"", "a.b", "a.bc"}) {
    TestQueue queue;
    queue.put("hello", shortName, 17);
    EXPECT_EQ(queue.ipcGetError(), 0);
    queue.put("second");
    for (int attempt = 0; attempt < 2; ++attempt) {
      queue.get();
      EXPECT_EQ(queue.ipcGetError(), 1);
      EXPECT_EQ(queue.record().num_full, 2);
      EXPECT_EQ(queue.record().start_idx, 0);
      EXPECT_EQ(queue.addressLength, -1);
      EXPECT_STREQ(queue.name, "");
      EXPECT_EQ(queue.connection, 0u);
    }
  }
}

TEST(Sender, NeedsANameOfFiveCharacters) {
  TestQueue queue;
  queue.put("hello", "a.b.c");
  queue.get();
  EXPECT_EQ(queue.ipcGetError(), 0);
  EXPECT_STREQ(queue.name, "a.b.c");
}

TEST(Sender, NameIsCutToItsField) {
  TestQueue queue;
  queue.put("hello", std::string(255, 'n').c_str());
  queue.get();
  EXPECT_EQ(std::string(queue.name), std::string(255, 'n'));
  queue.put("hello", std::string(1000, 'm').c_str());
  queue.get();
  EXPECT_EQ(std::string(queue.name), std::string(255, 'm'));
}

TEST(Sender, AddressIsCopiedToItsLength) {
  TestQueue queue;
  std::memset(queue.address, 'x', sizeof queue.address);
  queue.ipc_put_data(5, "hello", "\1\2\3", 3, senderName, 0);
  queue.get();
  EXPECT_EQ(queue.addressLength, 3);
  EXPECT_EQ(std::string(queue.address, 5), "\1\2\3xx");
}

TEST(Sender, MayHaveNoAddress) {
  TestQueue queue;
  queue.ipc_put_data(5, "hello", nullptr, 0, senderName, 0);
  queue.get();
  EXPECT_EQ(queue.ipcGetError(), 0);
  EXPECT_EQ(queue.addressLength, 0);
}

TEST(Sender, AddressIsCutToItsField) {
  TestQueue queue;
  const std::string address = messageOfSize(300);
  queue.ipc_put_data(5, "hello", address.data(), 300, senderName, 0);
  queue.get();
  EXPECT_EQ(queue.addressLength, 256);
  EXPECT_EQ(std::string(queue.address, 256), address.substr(0, 256));
  EXPECT_STREQ(queue.name, senderName);
}

TEST(Sender, LeavesNothingOfAnEarlierOne) {
  TestQueue queue;
  const std::string address(256, 'x');
  queue.ipc_put_data(5, "hello", address.data(), 256, nullptr, 17);
  queue.get();
  for (int slot = 1; slot < 5; ++slot) queue.pass("other slot");
  queue.put("hello");
  const ipcClientSlot& slot = queue.record().slot[0];
  EXPECT_EQ(std::string(slot.clientAddr + 16, 240), std::string(240, '\0'));
  EXPECT_STREQ(slot.clientName, senderName);
  EXPECT_EQ(slot.connectedSockFD, 0u);
}

}  // namespace
