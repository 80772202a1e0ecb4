// A real producer and a real consumer at the queue.
#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <random>
#include <string>
#include <thread>

#include "tests/support/trace_capture.h"
#include "zordipc/test_queue.h"

namespace {

constexpr std::chrono::seconds now{0};
constexpr char waitingForRoom[] = "Waiting for circular buffers to be freed.\n";

bool isDone(const std::future<void>& operation, std::chrono::seconds wait) {
  return operation.wait_for(wait) == std::future_status::ready;
}

void fill(TestQueue& queue) {
  for (int i = 0; i < 4; ++i) queue.put("message " + std::to_string(i));
}

TEST(FullQueue, HoldsFourMessagesAndBlocksTheFifth) {
  TestQueue queue;
  const TraceCapture trace("0,zordipc/*=0x10");
  fill(queue);
  EXPECT_FALSE(trace.has(waitingForRoom));

  const auto fifth = std::async(std::launch::async, [&] { queue.put("message 4"); });
  ASSERT_TRUE(trace.waitFor(waitingForRoom));
  EXPECT_FALSE(isDone(fifth, now));
  EXPECT_EQ(queue.record().num_full, 4);
  EXPECT_EQ(queue.record().data[4], nullptr);

  queue.get();
  ASSERT_TRUE(isDone(fifth, longestWait));
  EXPECT_EQ(queue.record().start_idx, 1);
  EXPECT_EQ(queue.record().num_full, 4);
  // In the slot that stayed unused: four after the one that was the oldest.
  EXPECT_STREQ(queue.record().data[4], "message 4");
  EXPECT_EQ(trace.count(waitingForRoom), 1);
  for (int i = 1; i <= 4; ++i) {
    queue.get();
    EXPECT_STREQ(queue.buffer, ("message " + std::to_string(i)).c_str());
  }
}

TEST(FullQueue, GoesOnWaitingWhenItIsWokenForNothing) {
  TestQueue queue;
  const TraceCapture trace("0,zordipc/*=0x10");
  fill(queue);
  const auto fifth = std::async(std::launch::async, [&] { queue.put("message 4"); });
  ASSERT_TRUE(trace.waitFor(waitingForRoom));
  ZORA_GetLock(&queue.record(), nullptr);  // from here on the producer waits on the condition
  pthread_cond_signal(&queue.record().notFull);
  ZORA_ReleaseLock(&queue.record(), nullptr);
  ASSERT_TRUE(trace.waitFor(waitingForRoom, 2));
  EXPECT_FALSE(isDone(fifth, now));
  queue.get();
  EXPECT_TRUE(isDone(fifth, longestWait));
}

TEST(EmptyQueue, BlocksTheConsumerUntilAMessageComes) {
  TestQueue queue;
  const TraceCapture trace("0,zordipc/*=0x10");
  const auto get = std::async(std::launch::async, [&] { queue.get(); });
  ASSERT_TRUE(trace.waitFor(waitingForMessage));
  EXPECT_FALSE(isDone(get, now));
  queue.put("hello");
  ASSERT_TRUE(isDone(get, longestWait));
  EXPECT_STREQ(queue.buffer, "hello");
  EXPECT_EQ(trace.count(waitingForMessage), 1);
}

TEST(EmptyQueue, GoesOnWaitingWhenItIsWokenForNothing) {
  TestQueue queue;
  const TraceCapture trace("0,zordipc/*=0x10");
  const auto get = std::async(std::launch::async, [&] { queue.get(); });
  ASSERT_TRUE(trace.waitFor(waitingForMessage));
  ZORA_GetLock(&queue.record(), nullptr);
  pthread_cond_signal(&queue.record().notEmpty);
  ZORA_ReleaseLock(&queue.record(), nullptr);
  ASSERT_TRUE(trace.waitFor(waitingForMessage, 2));
  EXPECT_FALSE(isDone(get, now));
  queue.put("hello");
  EXPECT_TRUE(isDone(get, longestWait));
}

// ---- Many messages ---------------------------------------------------------------------------

constexpr unsigned int seed = 410;
constexpr int messageCount = 3000;

// The messages of a seed, one after the other. Producer and consumer each have their own.
class Messages {
 public:
  explicit Messages(unsigned int seedOfAll) : _random(seedOfAll) {}

  void next() {
    // Mostly short, as messages are; now and then one that makes a buffer grow.
    std::uniform_int_distribution<std::size_t> shortSizes(0, 600);
    std::uniform_int_distribution<std::size_t> longSizes(0, 20000);
    const bool isLong = _random() % 16 == 0;
    text.resize(isLong ? longSizes(_random) : shortSizes(_random));
    for (char& byte : text) byte = static_cast<char>(_random());
    hasName = _random() % 4 != 0;
    name = std::to_string(_random() % 256) + "." + std::to_string(_random() % 256) + ".0.1";
    address.resize(_random() % 2 == 0 ? 16 : _random() % 257);
    for (char& byte : address) byte = static_cast<char>(_random());
    connection = static_cast<unsigned int>(_random());
  }

  std::string text;
  std::string address;
  std::string name;
  bool hasName = false;
  unsigned int connection = 0;

 private:
  std::mt19937 _random;
};

TEST(Queue, KeepsOrderAndContentUnderARealProducerAndConsumer) {
  SCOPED_TRACE("seed " + std::to_string(seed));
  TestQueue queue;
  std::thread producer([&] {
    Messages sent(seed);
    for (int i = 0; i < messageCount; ++i) {
      sent.next();
      queue.ipc_put_data(static_cast<ZORA_Long>(sent.text.size()), sent.text.data(),
                         sent.address.data(), static_cast<ZORA_Long>(sent.address.size()),
                         sent.hasName ? sent.name.c_str() : nullptr, sent.connection);
    }
  });
  Messages expected(seed);
  int intact = 0;
  for (int i = 0; i < messageCount; ++i) {
    expected.next();
    queue.get();
    const std::string name = expected.hasName ? expected.name : std::string(255, ' ');
    const bool isIntact = queue.bufferSize > static_cast<ZORA_Long>(expected.text.size()) &&
                          queue.taken(expected.text.size()) == expected.text &&
                          queue.isZeroFrom(expected.text.size()) && queue.name == name &&
                          queue.addressLength == static_cast<ZORA_Long>(expected.address.size()) &&
                          expected.address.compare(0, std::string::npos, queue.address,
                                                   expected.address.size()) == 0 &&
                          queue.connection == expected.connection;
    if (!isIntact) ADD_FAILURE() << "message " << i;
    intact += isIntact ? 1 : 0;
  }
  producer.join();
  EXPECT_EQ(intact, messageCount);
  EXPECT_EQ(queue.record().num_full, 0);
  EXPECT_EQ(queue.record().start_idx, messageCount % 5);
}

// A server queues notices of its own beside those of its receiver thread.
TEST(Queue, KeepsTheOrderOfEachOfTwoProducers) {
  constexpr int countOfEach = 2000;
  TestQueue queue;
  const auto produce = [&](unsigned int producer) {
    for (int i = 0; i < countOfEach; ++i) queue.put(std::to_string(i), senderName, producer);
  };
  std::thread first(produce, 0u);
  std::thread second(produce, 1u);
  int next[2] = {0, 0};
  for (int i = 0; i < 2 * countOfEach; ++i) {
    queue.get();
    ASSERT_LT(queue.connection, 2u);
    EXPECT_EQ(queue.buffer, std::to_string(next[queue.connection]++));
  }
  first.join();
  second.join();
  EXPECT_EQ(queue.record().num_full, 0);
}

}  // namespace
