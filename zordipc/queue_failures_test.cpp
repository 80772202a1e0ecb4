// The queue when memory, locks and conditions fail.
#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <future>
#include <string>

#include "tests/support/failing_calls.h"
#include "tests/support/trace_capture.h"
#include "tests/support/trace_lines.h"
#include "zordipc/test_queue.h"

namespace {

constexpr int someError = 4711;
constexpr char shownSender[] = ": clientAddr <16<02001f900a141e280000000000000000>>\n";

void putWithoutMemory(TestQueue& queue, const std::string& message) {
  const NoMemory failing;
  queue.put(message);
}

void getWithoutMemory(TestQueue& queue) {
  const NoMemory failing;
  queue.get();
}

TraceLine savingLine(const std::string& message, int slot) {
  return detailLine(
      textOf("Saving @%p into data<%d>\n", static_cast<const void*>(message.data()), slot));
}

// ---- Memory ----------------------------------------------------------------------------------

TEST(NewQueueWithoutMemory, IsMissing) {
  expectTrace("DCHipc::ipc_new_cb", [] {
    TestTransport server(SERVICE_SERVER);
    {
      const NoMemory failing;
      server.ipc_new_cb();
    }
    EXPECT_EQ(server.ipcGetError(), 1);
    EXPECT_EQ(server._ipcCircularBuffer, nullptr);
    return Lines{entryLine(), errorLine("Error: failed to allocate a circular buffer.\n"),
                 exitLine()};
  });
}

// The text names one step for every size.
TEST(PutWithoutMemory, StoresNothingInANewSlot) {
  for (const std::size_t size : {std::size_t{5}, std::size_t{10000}}) {
    expectTrace("DCHipc::ipc_put_data", [&] {
      TestQueue queue;
      const std::string message(size, 'm');
      putWithoutMemory(queue, message);
      EXPECT_EQ(NoMemory::lastRefusedBytes(), size < 4096 ? 4096 : size + 1);
      EXPECT_EQ(queue.ipcGetError(), 0);
      EXPECT_EQ(queue.record().num_full, 0);
      EXPECT_EQ(queue.record().data[0], nullptr);
      return Lines{entryLine(), detailLine("start_idx=0 and num_full=0\n"), savingLine(message, 0),
                   errorLine("Error: allocating 4096 bytes.\n"), exitLine()};
    });
  }
}

TEST(PutWithoutMemory, LosesTheBufferThatWasToGrow) {
  expectTrace("DCHipc::ipc_put_data", [] {
    TestQueue queue;
    for (int slot = 0; slot < 5; ++slot) queue.pass("first");
    const void* const oldBuffer = queue.record().data[0];
    TraceCapture::forget();
    const std::string message(9000, 'm');
    putWithoutMemory(queue, message);
    EXPECT_EQ(NoMemory::lastRefusedBytes(), 12288u);
    EXPECT_EQ(queue.ipcGetError(), 0);
    EXPECT_EQ(queue.record().num_full, 0);
    EXPECT_EQ(queue.record().data[0], nullptr);
    return Lines{entryLine(),
                 detailLine("start_idx=0 and num_full=0\n"),
                 savingLine(message, 0),
                 detailLine("Note: reallocating buffer to 12288 bytes.\n"),
                 storageLine(textOf("Deleting ipcCircularBuffer @%p\n", oldBuffer)),
                 errorLine("Error: allocating 12288 bytes.\n"),
                 storageLine("Allocated ipcCircularBuffer @(nil) for length 12288\n"),
                 exitLine()};
  });
}

TEST(PutWithoutMemory, LetsALaterPutStartAfresh) {
  TestQueue queue;
  for (int slot = 0; slot < 5; ++slot) queue.pass("first");
  putWithoutMemory(queue, std::string(9000, 'm'));
  queue.put("hello");
  EXPECT_EQ(queue.record().dataSize[0], 4096);
  queue.get();
  EXPECT_EQ(queue.ipcGetError(), 0);
  EXPECT_STREQ(queue.buffer, "hello");
}

TEST(PutWithoutMemory, LeavesTheQueuedMessagesAlone) {
  TestQueue queue;
  queue.put("first");
  putWithoutMemory(queue, "lost");
  queue.put("second");
  queue.get();
  EXPECT_STREQ(queue.buffer, "first");
  queue.get();
  EXPECT_STREQ(queue.buffer, "second");
}

TEST(PutWithoutMemory, WakesTheConsumerAllTheSame) {
  TestQueue queue;
  const TraceCapture trace("0,zordipc/*=0x10");
  const auto get = std::async(std::launch::async, [&] { queue.get(); });
  ASSERT_TRUE(trace.waitFor(waitingForMessage));
  putWithoutMemory(queue, "lost");
  EXPECT_TRUE(trace.waitFor(waitingForMessage, 2));
  queue.put("hello");
  ASSERT_EQ(get.wait_for(longestWait), std::future_status::ready);
  EXPECT_STREQ(queue.buffer, "hello");
}

Lines failedGetLines(const TraceLine& errorOfTheBuffer) {
  return {entryLine(), detailLine("Entry: start_idx=0 and num_full=1\n"), errorOfTheBuffer,
          exitLine()};
}

TEST(GetWithoutMemory, LeavesTheMessageInTheQueue) {
  expectTrace("DCHipc::ipc_get_data", [] {
    TestQueue queue;
    queue.put("hello");
    getWithoutMemory(queue);
    EXPECT_EQ(queue.ipcGetError(), 1);
    EXPECT_EQ(queue.buffer, nullptr);
    EXPECT_EQ(queue.record().num_full, 1);
    EXPECT_EQ(queue.record().start_idx, 0);
    EXPECT_EQ(queue.addressLength, -1);
    return failedGetLines(errorLine("Error: allocating 4096 bytes.\n"));
  });
}

TEST(GetWithoutMemory, LosesTheBufferThatWasToBeReplaced) {
  expectTrace("DCHipc::ipc_get_data", [] {
    TestQueue queue;
    queue.put("hello");
    queue.buffer = new char[16];
    queue.bufferSize = 16;
    const void* const oldBuffer = queue.buffer;
    getWithoutMemory(queue);
    EXPECT_EQ(queue.ipcGetError(), 1);
    EXPECT_EQ(queue.buffer, nullptr);
    EXPECT_EQ(queue.record().num_full, 1);
    return Lines{entryLine(), detailLine("Entry: start_idx=0 and num_full=1\n"),
                 storageLine(textOf("Note: deleting and reallocating buffer @%p to 4096 bytes.\n",
                                    oldBuffer)),
                 errorLine("Error: reallocating 4096 bytes.\n"), exitLine()};
  });
}

TEST(GetWithoutMemory, LetsALaterGetSucceed) {
  TestQueue queue;
  queue.put("hello");
  queue.buffer = new char[16];
  queue.bufferSize = 16;
  getWithoutMemory(queue);
  queue.get();
  EXPECT_EQ(queue.ipcGetError(), 0);
  EXPECT_STREQ(queue.buffer, "hello");
  EXPECT_EQ(queue.bufferSize, 4096);
}

TEST(GetWithoutASlotBuffer, Fails) {
  expectTrace("DCHipc::ipc_get_data", [] {
    TestQueue queue;
    queue.record().num_full = 1;  // what no put does: an entry without a buffer
    queue.get();
    EXPECT_EQ(queue.ipcGetError(), 1);
    EXPECT_EQ(queue.record().num_full, 1);
    return failedGetLines(errorLine("Error: _ipcCircularBuffer->data<0> was NULL\n"));
  });
}

TEST(SteadyFlow, AllocatesNothing) {
  TestQueue queue;
  for (int slot = 0; slot < 5; ++slot) queue.pass("first");
  const std::string longest(4095, 'm');
  const std::size_t before = allocationCount();
  for (int i = 0; i < 1000; ++i) queue.pass(longest);
  EXPECT_EQ(allocationCount(), before);
  queue.pass(longest + "m");
  EXPECT_GT(allocationCount(), before);
}

// ---- Locks -----------------------------------------------------------------------------------

TEST(PutWithoutTheLock, StoresNothingAndDoesNotUnlock) {
  expectTrace("DCHipc::ipc_put_data", [] {
    TestQueue queue;
    const CallCounter unlocks({SystemCall::unlockMutex, &queue.record().lock});
    const FailingCall failing({SystemCall::lockMutex, &queue.record().lock}, EINVAL, someError);
    queue.put("hello");
    EXPECT_EQ(unlocks.count(), 0);
    EXPECT_EQ(queue.ipcGetError(), 1);
    EXPECT_EQ(queue.record().num_full, 0);
    return Lines{entryLine(), detailLine("start_idx=0 and num_full=0\n"),
                 errorLine("Error: unable to acquire ipcCircularBuffer lock\n"), exitLine()};
  });
}

TEST(GetWithoutTheLock, TakesNothingAndDoesNotUnlock) {
  expectTrace("DCHipc::ipc_get_data", [] {
    TestQueue queue;
    queue.put("hello");
    const CallCounter unlocks({SystemCall::unlockMutex, &queue.record().lock});
    const FailingCall failing({SystemCall::lockMutex, &queue.record().lock}, EINVAL, someError);
    queue.get();
    EXPECT_EQ(unlocks.count(), 0);
    EXPECT_EQ(queue.ipcGetError(), 1);
    EXPECT_EQ(queue.record().num_full, 1);
    EXPECT_EQ(queue.buffer, nullptr);
    return failedGetLines(errorLine("Error: unable to acquire ipcCircularBuffer lock\n"));
  });
}

TEST(QueueLock, IsTakenInTheNameOfTheEndpoint) {
  TestQueue queue;
  const TraceCapture trace("0x80");
  const FailingCall failing({SystemCall::lockMutex, &queue.record().lock}, EINVAL, someError);
  queue.put("hello");
  queue.get();
  const std::string error = textOf("Error: pthread_mutex_lock failed, rc=%d errno=4711 [@%p]\n",
                                   EINVAL, static_cast<void*>(static_cast<DCHipc*>(&queue)));
  EXPECT_EQ(trace.textsOf("ZORA_GetLock"), (std::vector<std::string>{error, error}));
}

TEST(PutWithAFailedUnlock, ReportsItsErrno) {
  TestQueue queue;
  const FailingCall failing({SystemCall::unlockMutex, &queue.record().lock}, EPERM, someError);
  queue.put("hello");
  EXPECT_EQ(queue.ipcGetError(), someError);
  EXPECT_EQ(queue.record().num_full, 1);
}

TEST(GetWithAFailedUnlock, ReportsOne) {
  TestQueue queue;
  queue.put("hello");
  const FailingCall failing({SystemCall::unlockMutex, &queue.record().lock}, EPERM, someError);
  queue.get();
  EXPECT_EQ(queue.ipcGetError(), 1);
  EXPECT_STREQ(queue.buffer, "hello");
  EXPECT_EQ(queue.record().num_full, 0);
}

// ---- Conditions ------------------------------------------------------------------------------

// Whether the queue's lock is free again.
bool isUnlocked(const TestQueue& queue) {
  if (pthread_mutex_trylock(&queue.record().lock) != 0) return false;
  pthread_mutex_unlock(&queue.record().lock);
  return true;
}

TEST(PutWithAFailedWait, StoresNothingAndWakesNobody) {
  expectTrace("DCHipc::ipc_put_data", [] {
    TestQueue queue;
    for (int i = 0; i < 4; ++i) queue.put("queued");
    TraceCapture::forget();
    const CallCounter signals({SystemCall::signalCondition, &queue.record().notEmpty});
    const FailingCall failing({SystemCall::waitCondition, &queue.record().notFull}, EINVAL,
                              someError);
    queue.put("hello");
    EXPECT_EQ(signals.count(), 0);
    EXPECT_EQ(queue.ipcGetError(), 0);
    EXPECT_EQ(queue.record().num_full, 4);
    EXPECT_EQ(queue.record().data[4], nullptr);
    EXPECT_TRUE(isUnlocked(queue));
    return Lines{entryLine(), detailLine("start_idx=0 and num_full=4\n"),
                 detailLine("Waiting for circular buffers to be freed.\n"),
                 errorLine(textOf("Error: pthread_cond_wait failed. rc=%d errno=4711\n", EINVAL)),
                 exitLine()};
  });
}

TEST(GetWithAFailedWait, TakesNothingAndWakesNobody) {
  expectTrace("DCHipc::ipc_get_data", [] {
    TestQueue queue;
    const CallCounter signals({SystemCall::signalCondition, &queue.record().notFull});
    const FailingCall failing({SystemCall::waitCondition, &queue.record().notEmpty}, EINVAL,
                              someError);
    queue.get();
    EXPECT_EQ(signals.count(), 0);
    EXPECT_EQ(queue.ipcGetError(), 1);
    EXPECT_EQ(queue.buffer, nullptr);
    EXPECT_TRUE(isUnlocked(queue));
    return Lines{entryLine(), detailLine("Entry: start_idx=0 and num_full=0\n"),
                 detailLine(waitingForMessage),
                 errorLine(textOf("Error: pthread_cond_wait failed. rc=%d errno=4711\n", EINVAL)),
                 exitLine()};
  });
}

TEST(PutWithAFailedSignal, StoresTheMessageAndSaysSo) {
  expectTrace("DCHipc::ipc_put_data", [] {
    TestQueue queue;
    for (int slot = 0; slot < 5; ++slot) queue.pass("first");
    TraceCapture::forget();
    const FailingCall failing({SystemCall::signalCondition, &queue.record().notEmpty}, EINVAL,
                              someError);
    const std::string message = "hello";
    queue.put(message);
    EXPECT_EQ(queue.ipcGetError(), 0);
    EXPECT_EQ(queue.record().num_full, 1);
    EXPECT_TRUE(isUnlocked(queue));
    return Lines{entryLine(),
                 detailLine("start_idx=0 and num_full=0\n"),
                 savingLine(message, 0),
                 detailLine(textOf("Copying 5 bytes into existing buffer @%p of size 4096\n",
                                   static_cast<void*>(queue.record().data[0]))),
                 detailLine(std::string("Saving clientAddr ") + shownSender),
                 errorLine(textOf("Error: pthread_cond_signal failed. rc=%d errno=4711\n", EINVAL)),
                 exitLine()};
  });
}

TEST(GetWithAFailedSignal, TakesTheMessageAndReportsOne) {
  expectTrace("DCHipc::ipc_get_data", [] {
    TestQueue queue;
    queue.put("hello", senderName, 17);
    const FailingCall failing({SystemCall::signalCondition, &queue.record().notFull}, EINVAL,
                              someError);
    queue.get();
    EXPECT_EQ(queue.ipcGetError(), 1);
    EXPECT_STREQ(queue.buffer, "hello");
    EXPECT_EQ(queue.record().num_full, 0);
    EXPECT_TRUE(isUnlocked(queue));
    return Lines{entryLine(),
                 detailLine("Entry: start_idx=0 and num_full=1\n"),
                 storageLine("Allocated *buffer @{address}\n"),
                 detailLine("Copying 5 bytes from @{address} to @{address}\n"),
                 detailLine("Copying ptr @{address} to clientName @{address} for length 11 "
                            "sizeof(clientName) 4\n"),
                 detailLine(">> clientName set to <10.20.30.40>\n"),
                 detailLine(std::string("clientAddr set to ") + shownSender),
                 detailLine("connectedSockFD set to <17>\n"),
                 detailLine("Exit: start_idx=1 and num_full=0\n"),
                 errorLine(textOf("Error: pthread_cond_signal failed. rc=%d errno=4711\n", EINVAL)),
                 exitLine()};
  });
}

TEST(Signals, WakeOneWaiterForEachMessage) {
  TestQueue queue;
  {
    const CallCounter signals({SystemCall::signalCondition, &queue.record().notEmpty});
    queue.put("hello");
    EXPECT_EQ(signals.count(), 1);
    putWithoutMemory(queue, "lost");
    EXPECT_EQ(signals.count(), 2);
  }
  const CallCounter signals({SystemCall::signalCondition, &queue.record().notFull});
  queue.get();
  EXPECT_EQ(signals.count(), 1);
}

}  // namespace
