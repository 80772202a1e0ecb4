// test_queue.h: a server's queue, with both of its ends in a test's hands.
#ifndef ZORDIPC_TEST_QUEUE_H
#define ZORDIPC_TEST_QUEUE_H

#include <algorithm>
#include <chrono>
#include <cstring>
#include <string>

#include "zordipc/test_transport.h"

// For what has to come.
constexpr std::chrono::seconds longestWait{20};

// What a reader of an empty queue says before it waits.
constexpr char waitingForMessage[] = "Waiting for circular buffers to be populated.\n";

constexpr char senderName[] = "10.20.30.40";
// As long as the address of a socket.
constexpr unsigned char senderAddress[16] = {2, 0, 0x1f, 0x90, 10, 20, 30, 40};
constexpr ZORA_Long senderAddressLength = sizeof senderAddress;

class TestQueue : public TestTransport {
 public:
  TestQueue() : TestTransport(SERVICE_SERVER) { ipc_new_cb(); }
  ~TestQueue() { delete[] buffer; }

  // The producer's end.
  void put(const std::string& message, const char* fromName = senderName,
           unsigned int fromConnection = 0) {
    ipc_put_data(static_cast<ZORA_Long>(message.size()), message.data(), senderAddress,
                 senderAddressLength, fromName, fromConnection);
  }

  // The consumer's end: what was taken is in the fields below.
  void get() { ipc_get_data(&buffer, &bufferSize, address, &addressLength, name, &connection); }

  // Sends one message through the empty queue, by the slot at start_idx, which moves on.
  void pass(const std::string& message) {
    put(message);
    get();
  }

  // The first `length` bytes of what was taken.
  std::string taken(std::size_t length) const { return {buffer, length}; }
  // Whether everything in the consumer's buffer from `position` on is zero.
  bool isZeroFrom(std::size_t position) const {
    return std::all_of(buffer + position, buffer + bufferSize, [](char byte) { return byte == 0; });
  }

  ipcCircularBuffer& record() const { return *_ipcCircularBuffer; }

  char* buffer = nullptr;
  ZORA_Long bufferSize = 0;
  char address[IPC_ADDRESS_SIZE] = {};
  ZORA_Long addressLength = -1;
  char name[IPC_NAME_SIZE] = {};
  unsigned int connection = 0;
};

#endif  // ZORDIPC_TEST_QUEUE_H
