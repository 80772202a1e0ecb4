// What the operations of the queue show in the trace: every text, its class, its order.
#include <gtest/gtest.h>

#include <string>

#include "tests/support/trace_capture.h"
#include "tests/support/trace_lines.h"
#include "zordipc/test_queue.h"

namespace {

constexpr char shownSenderAddress[] = "02001f900a141e280000000000000000";

TraceLine allocatedSlotLine(const void* slotBuffer, int size) {
  return storageLine(textOf("Allocated ipcCircularBuffer @%p for length %d\n", slotBuffer, size));
}

TraceLine addressLine(const char* label) {
  return detailLine(textOf("%s: clientAddr <16<%s>>\n", label, shownSenderAddress));
}

TEST(QueueTrace, NewQueue) {
  expectTrace("DCHipc::ipc_new_cb", [] {
    const TestQueue queue;
    return Lines{entryLine(),
                 storageLine(textOf("Allocated ipcCircularBuffer @%p\n",
                                    static_cast<void*>(&queue.record()))),
                 exitLine()};
  });
}

TEST(QueueTrace, DeletedQueue) {
  expectTrace("DCHipc::ipc_delete_cb", [] {
    TestQueue queue;
    queue.put("hello");
    const void* const record = &queue.record();
    queue.ipc_delete_cb();
    // The destructor deletes once more.
    return Lines{entryLine(), storageLine(textOf("Deleting ipcCircularBuffer @%p\n", record)),
                 exitLine(), entryLine(), exitLine()};
  });
}

TEST(QueueTrace, DeletingNoQueue) {
  expectTrace("DCHipc::ipc_delete_cb", [] {
    { const TestTransport server(SERVICE_SERVER); }
    return Lines{entryLine(), exitLine()};
  });
}

TEST(QueueTrace, PutWithoutAQueue) {
  expectTrace("DCHipc::ipc_put_data", [] {
    TestTransport server(SERVICE_SERVER);
    server.ipc_put_data(5, "hello", senderAddress, senderAddressLength, senderName, 0);
    return Lines{entryLine(), errorLine("Error: ipcCircularBuffer has not been allocated\n"),
                 exitLine()};
  });
}

TEST(QueueTrace, PutIntoASlotThatWasNeverUsed) {
  expectTrace("DCHipc::ipc_put_data", [] {
    TestQueue queue;
    queue.put("first");
    TraceCapture::forget();
    const std::string message(4096, 'm');
    queue.put(message);
    const void* const slotBuffer = queue.record().data[1];
    return Lines{
        entryLine(),
        detailLine("start_idx=0 and num_full=1\n"),
        detailLine(textOf("Saving @%p into data<1>\n", static_cast<const void*>(message.data()))),
        allocatedSlotLine(slotBuffer, 4097),
        detailLine(textOf("Copied 4096 bytes into new buffer @%p\n", slotBuffer)),
        addressLine("Saving clientAddr "),
        exitLine()};
  });
}

TEST(QueueTrace, PutIntoAUsedSlot) {
  expectTrace("DCHipc::ipc_put_data", [] {
    TestQueue queue;
    for (int slot = 0; slot < 5; ++slot) queue.pass("first");
    TraceCapture::forget();
    const std::string message = "hello";
    queue.put(message);
    return Lines{
        entryLine(),
        detailLine("start_idx=0 and num_full=0\n"),
        detailLine(textOf("Saving @%p into data<0>\n", static_cast<const void*>(message.data()))),
        detailLine(textOf("Copying 5 bytes into existing buffer @%p of size 4096\n",
                          static_cast<void*>(queue.record().data[0]))),
        addressLine("Saving clientAddr "),
        exitLine()};
  });
}

TEST(QueueTrace, PutIntoASlotThatGrows) {
  expectTrace("DCHipc::ipc_put_data", [] {
    TestQueue queue;
    for (int slot = 0; slot < 5; ++slot) queue.pass("first");
    const void* const oldBuffer = queue.record().data[0];
    TraceCapture::forget();
    const std::string message(9000, 'm');
    queue.put(message);
    const void* const slotBuffer = queue.record().data[0];
    return Lines{
        entryLine(),
        detailLine("start_idx=0 and num_full=0\n"),
        detailLine(textOf("Saving @%p into data<0>\n", static_cast<const void*>(message.data()))),
        detailLine("Note: reallocating buffer to 12288 bytes.\n"),
        storageLine(textOf("Deleting ipcCircularBuffer @%p\n", oldBuffer)),
        allocatedSlotLine(slotBuffer, 12288),
        detailLine(
            textOf("Copying 9000 bytes into existing buffer @%p of size 12288\n", slotBuffer)),
        addressLine("Saving clientAddr "),
        exitLine()};
  });
}

// What a get shows after its buffer lines, for one message of five bytes in slot 0 and a sender's
// name of `nameLength` characters.
Lines handOverLines(const TestQueue& queue, int nameLength) {
  const void* const source = queue.record().data[0];
  const void* const target = queue.buffer;
  const void* const slotName = queue.record().slot[0].clientName;
  const void* const callersName = queue.name;
  return {detailLine(textOf("Copying 5 bytes from @%p to @%p\n", source, target)),
          detailLine(textOf("Copying ptr @%p to clientName @%p for length %d sizeof(clientName) "
                            "4\n",
                            slotName, callersName, nameLength)),
          detailLine(textOf(">> clientName set to <%s>\n", queue.name)),
          addressLine("clientAddr set to "),
          detailLine(textOf("connectedSockFD set to <%d>\n", static_cast<int>(queue.connection))),
          detailLine("Exit: start_idx=1 and num_full=0\n"),
          exitLine()};
}

Lines getLines(const Lines& bufferLines, const Lines& handOver) {
  Lines lines{entryLine(), detailLine("Entry: start_idx=0 and num_full=1\n")};
  lines.insert(lines.end(), bufferLines.begin(), bufferLines.end());
  lines.insert(lines.end(), handOver.begin(), handOver.end());
  return lines;
}

TraceLine allocatedBufferLine(const TestQueue& queue) {
  return storageLine(textOf("Allocated *buffer @%p\n", static_cast<void*>(queue.buffer)));
}

TEST(QueueTrace, GetIntoANewBuffer) {
  expectTrace("DCHipc::ipc_get_data", [] {
    TestQueue queue;
    queue.put("hello", senderName, 17);
    queue.get();
    return getLines({allocatedBufferLine(queue)}, handOverLines(queue, 11));
  });
}

TEST(QueueTrace, GetIntoABufferThatIsReplaced) {
  expectTrace("DCHipc::ipc_get_data", [] {
    TestQueue queue;
    queue.put("hello", nullptr, 0xFFFFFFFFu);
    queue.bufferSize = 16;
    queue.buffer = new char[16];
    const void* const oldBuffer = queue.buffer;
    queue.get();
    return getLines({storageLine(textOf(
                         "Note: deleting and reallocating buffer @%p to 4096 bytes.\n", oldBuffer)),
                     allocatedBufferLine(queue)},
                    handOverLines(queue, 255));
  });
}

TEST(QueueTrace, GetIntoABufferThatIsKept) {
  expectTrace("DCHipc::ipc_get_data", [] {
    TestQueue queue;
    queue.put("hello");
    queue.bufferSize = 5000;
    queue.buffer = new char[5000];
    queue.get();
    return getLines({}, handOverLines(queue, 11));
  });
}

TEST(QueueTrace, GetOfASenderWithAShortName) {
  expectTrace("DCHipc::ipc_get_data", [] {
    TestQueue queue;
    queue.put("hello", "a.b");
    queue.bufferSize = 5000;
    queue.buffer = new char[5000];
    queue.get();
    const ipcCircularBuffer& record = queue.record();
    return getLines(
        {},
        {detailLine(textOf("Copying 5 bytes from @%p to @%p\n", static_cast<void*>(record.data[0]),
                           static_cast<void*>(queue.buffer))),
         errorLine(textOf("Error: ipcClientName ptr problem: @%p 3 sizeof(clientName) 4\n",
                          static_cast<const void*>(record.slot[0].clientName))),
         exitLine()});
  });
}

}  // namespace
