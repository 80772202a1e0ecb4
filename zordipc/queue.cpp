// The server's circular queue. The producer is the receiver thread, the consumer the server's
// worker; both hold the record's lock while they touch it, and neither does any I/O under it. They
// wake each other after they have released it: whoever is woken earlier, on the same core, stops at
// the lock at once, and each message costs two more switches between the threads.
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>

#include "suite/threads.h"
#include "zordipc/trace_unit.h"
#include "zordipc/zordipc.h"

namespace {

// One slot always stays unused.
constexpr ZORA_Long queueCapacity = IPC_QSIZE - 1;
// The size of a pointer on the first platform, which existing trace readers know.
constexpr int tracedNameSize = 4;

char* allocateBytes(ZORA_Long size) {
  return new (std::nothrow) char[static_cast<std::size_t>(size)];
}

void copyZeroPadded(char* target, ZORA_Long capacity, const void* source, ZORA_Long length) {
  std::memset(target, 0, static_cast<std::size_t>(capacity));
  if (length > 0) std::memcpy(target, source, static_cast<std::size_t>(length));
}

// The lock orders the two counts; that they are atomic is for the trace alone, which reads them
// without it.
void changeUnderLock(std::atomic<ZORA_Long>& count, ZORA_Long value) {
  count.store(value, std::memory_order_relaxed);
}

// Smallest capacity, in whole steps above `capacity`, that is strictly larger than `length`.
ZORA_Long grownCapacity(ZORA_Long capacity, ZORA_Long length) {
  do capacity += IPC_BUFFER_STEP;
  while (capacity <= length);
  return capacity;
}

}  // namespace

void DCHipc::ipc_new_cb() {
  TRC1_FUNCTION("DCHipc::ipc_new_cb");
  _ipcCircularBuffer = new (std::nothrow) ipcCircularBuffer;
  if (_ipcCircularBuffer == nullptr) {
    TRC1_ERROR("Error: failed to allocate a circular buffer.\n");
    ipcSetError(1);
  } else {
    ZOR0_InitializeMutex(&_ipcCircularBuffer->lock);
    ZOR0_InitializeCondVar(&_ipcCircularBuffer->notFull);
    ZOR0_InitializeCondVar(&_ipcCircularBuffer->notEmpty);
    _ipcCircularBuffer->start_idx = 0;
    _ipcCircularBuffer->num_full = 0;
    std::fill_n(_ipcCircularBuffer->data, IPC_QSIZE, nullptr);
    TRC1_STORAGE("Allocated ipcCircularBuffer @%p\n", TRC1_Pointer(_ipcCircularBuffer));
  }
  TRC1_LEAVE();
}

void DCHipc::ipc_delete_cb() {
  TRC1_FUNCTION("DCHipc::ipc_delete_cb");
  if (_ipcCircularBuffer != nullptr) {
    pthread_mutex_destroy(&_ipcCircularBuffer->lock);
    pthread_cond_destroy(&_ipcCircularBuffer->notFull);
    pthread_cond_destroy(&_ipcCircularBuffer->notEmpty);
    for (char* slotBuffer : _ipcCircularBuffer->data) delete[] slotBuffer;
    TRC1_STORAGE("Deleting ipcCircularBuffer @%p\n", TRC1_Pointer(_ipcCircularBuffer));
    delete _ipcCircularBuffer;
    _ipcCircularBuffer = nullptr;
  }
  TRC1_LEAVE();
}

void DCHipc::ipc_put_data(ZORA_Long length, const void* data, const void* clientAddr,
                          ZORA_Long clientAddrLen, const char* clientName,
                          unsigned int connectedSockFD) {
  TRC1_FUNCTION("DCHipc::ipc_put_data");
  ipcSetError(0);
  if (_ipcCircularBuffer == nullptr) {
    // Not an error of the object: a server without a queue drops what it receives.
    TRC1_ERROR("Error: ipcCircularBuffer has not been allocated\n");
    return TRC1_LEAVE();
  }
  if (length < 0 || length > IPC_MAX_MESSAGE_SIZE) {
    TRC1_ERROR("Error: a message of %d bytes cannot be queued\n", length);
    fail();
    return TRC1_LEAVE();
  }
  ipcCircularBuffer& queue = *_ipcCircularBuffer;
  TRC1_DETAIL("start_idx=%d and num_full=%d\n", queue.start_idx.load(), queue.num_full.load());
  if (ZORA_GetLock(&queue, this) != 0) {
    TRC1_ERROR("Error: unable to acquire ipcCircularBuffer lock\n");
    fail();
    return TRC1_LEAVE();
  }
  const bool hasRoom = waitWhile(trc1Scope, queueCapacity, &queue.notFull,
                                 "Waiting for circular buffers to be freed.\n");
  if (hasRoom) {
    const ZORA_Long index = (queue.start_idx + queue.num_full) % IPC_QSIZE;
    if (storeMessage(trc1Scope, index, length, data))
      storeSender(trc1Scope, index, clientAddr, clientAddrLen, clientName, connectedSockFD);
  }
  const int unlockError = ZORA_ReleaseLock(&queue, this);
  // The consumer is woken even when nothing was stored; it looks again and waits on.
  if (hasRoom) signalCondition(trc1Scope, &queue.notEmpty);
  // The receive loop goes on whatever happened to one message: only a failed unlock is reported.
  ipcSetError(unlockError);
  TRC1_LEAVE();
}

void DCHipc::ipc_get_data(char** buffer, ZORA_Long* bufferSize, void* clientAddr,
                          ZORA_Long* clientAddrLen, char* clientName,
                          unsigned int* connectedSockFD) {
  TRC1_FUNCTION("DCHipc::ipc_get_data");
  ipcSetError(0);
  ipcCircularBuffer& queue = *_ipcCircularBuffer;
  TRC1_DETAIL("Entry: start_idx=%d and num_full=%d\n", queue.start_idx.load(),
              queue.num_full.load());
  if (ZORA_GetLock(&queue, this) != 0) {
    TRC1_ERROR("Error: unable to acquire ipcCircularBuffer lock\n");
    fail();
    return TRC1_LEAVE();
  }
  const bool taken =
      waitWhile(trc1Scope, 0, &queue.notEmpty, "Waiting for circular buffers to be populated.\n") &&
      takeMessage(trc1Scope, buffer, bufferSize) &&
      takeSender(trc1Scope, clientAddr, clientAddrLen, clientName, connectedSockFD);
  if (ZORA_ReleaseLock(&queue, this) != 0) fail();
  if (taken) signalCondition(trc1Scope, &queue.notFull);
  TRC1_LEAVE();
}

bool DCHipc::fail() {
  ipcSetError(1);
  return false;
}

bool DCHipc::waitWhile(const TRC1_Scope& trc1Scope, ZORA_Long numFull, pthread_cond_t* condition,
                       const char* text) {
  while (_ipcCircularBuffer->num_full == numFull) {
    TRC1_DETAIL("%s", text);
    const int code = pthread_cond_wait(condition, &_ipcCircularBuffer->lock);
    if (code != 0) {
      TRC1_ERROR("Error: pthread_cond_wait failed. rc=%d errno=%d\n", code, errno);
      return fail();
    }
  }
  return true;
}

void DCHipc::signalCondition(const TRC1_Scope& trc1Scope, pthread_cond_t* condition) {
  const int code = pthread_cond_signal(condition);
  if (code != 0) {
    TRC1_ERROR("Error: pthread_cond_signal failed. rc=%d errno=%d\n", code, errno);
    fail();
  }
}

bool DCHipc::storeMessage(const TRC1_Scope& trc1Scope, ZORA_Long index, ZORA_Long length,
                          const void* data) {
  TRC1_DETAIL("Saving @%p into data<%d>\n", data, index);
  _ipcCircularBuffer->dataLen[index] = length;
  return _ipcCircularBuffer->data[index] == nullptr
             ? storeInNewSlot(trc1Scope, index, length, data)
             : storeInUsedSlot(trc1Scope, index, length, data);
}

bool DCHipc::storeInNewSlot(const TRC1_Scope& trc1Scope, ZORA_Long index, ZORA_Long length,
                            const void* data) {
  const ZORA_Long size = length < IPC_BUFFER_STEP ? IPC_BUFFER_STEP : length + 1;
  char* const slotBuffer = allocateBytes(size);
  _ipcCircularBuffer->dataSize[index] = size;
  _ipcCircularBuffer->data[index] = slotBuffer;
  if (slotBuffer == nullptr) {
    // Names one step whatever the size was: programs that watch the trace know this text.
    TRC1_ERROR("Error: allocating %d bytes.\n", IPC_BUFFER_STEP);
    return fail();
  }
  TRC1_STORAGE("Allocated ipcCircularBuffer @%p for length %d\n", TRC1_Pointer(slotBuffer), size);
  copyZeroPadded(slotBuffer, size, data, length);
  TRC1_DETAIL("Copied %d bytes into new buffer @%p\n", length, TRC1_Pointer(slotBuffer));
  return true;
}

bool DCHipc::storeInUsedSlot(const TRC1_Scope& trc1Scope, ZORA_Long index, ZORA_Long length,
                             const void* data) {
  char*& slotBuffer = _ipcCircularBuffer->data[index];
  ZORA_Long& size = _ipcCircularBuffer->dataSize[index];
  if (size <= length) {
    size = grownCapacity(size, length);
    TRC1_DETAIL("Note: reallocating buffer to %d bytes.\n", size);
    TRC1_STORAGE("Deleting ipcCircularBuffer @%p\n", TRC1_Pointer(slotBuffer));
    delete[] slotBuffer;
    slotBuffer = allocateBytes(size);
    if (slotBuffer == nullptr) TRC1_ERROR("Error: allocating %d bytes.\n", size);
    TRC1_STORAGE("Allocated ipcCircularBuffer @%p for length %d\n", TRC1_Pointer(slotBuffer), size);
    if (slotBuffer == nullptr) return fail();
  }
  TRC1_DETAIL("Copying %d bytes into existing buffer @%p of size %d\n", length,
              TRC1_Pointer(slotBuffer), size);
  copyZeroPadded(slotBuffer, size, data, length);
  return true;
}

void DCHipc::storeSender(const TRC1_Scope& trc1Scope, ZORA_Long index, const void* clientAddr,
                         ZORA_Long clientAddrLen, const char* clientName,
                         unsigned int connectedSockFD) {
  ipcClientSlot& slot = _ipcCircularBuffer->slot[index];
  const ZORA_Long addressLength = std::clamp<ZORA_Long>(clientAddrLen, 0, IPC_ADDRESS_SIZE);
  TRC1_ADDRESS("Saving clientAddr ", clientAddr, addressLength);
  copyZeroPadded(slot.clientAddr, IPC_ADDRESS_SIZE, clientAddr, addressLength);
  slot.clientAddrLen = addressLength;
  const std::size_t nameLength =
      clientName != nullptr ? strnlen(clientName, IPC_NAME_SIZE - 1) : IPC_NAME_SIZE - 1;
  if (clientName != nullptr)
    std::memcpy(slot.clientName, clientName, nameLength);
  else
    std::memset(slot.clientName, ' ', nameLength);
  slot.clientName[nameLength] = '\0';
  slot.connectedSockFD = connectedSockFD;
  changeUnderLock(_ipcCircularBuffer->num_full, _ipcCircularBuffer->num_full + 1);
}

bool DCHipc::takeMessage(const TRC1_Scope& trc1Scope, char** buffer, ZORA_Long* bufferSize) {
  const ZORA_Long head = _ipcCircularBuffer->start_idx;
  const char* const message = _ipcCircularBuffer->data[head];
  if (message == nullptr) {
    TRC1_ERROR("Error: _ipcCircularBuffer->data<%d> was NULL\n", head);
    return fail();
  }
  if (!makeRoom(trc1Scope, buffer, bufferSize, _ipcCircularBuffer->dataSize[head])) return fail();
  const ZORA_Long length = _ipcCircularBuffer->dataLen[head];
  TRC1_DETAIL("Copying %d bytes from @%p to @%p\n", length, TRC1_Pointer(message),
              TRC1_Pointer(*buffer));
  copyZeroPadded(*buffer, *bufferSize, message, length);
  return true;
}

bool DCHipc::makeRoom(const TRC1_Scope& trc1Scope, char** buffer, ZORA_Long* bufferSize,
                      ZORA_Long capacity) {
  const bool replaces = *buffer != nullptr;
  if (replaces && capacity <= *bufferSize) return true;
  *bufferSize = capacity;
  if (replaces)
    TRC1_STORAGE("Note: deleting and reallocating buffer @%p to %d bytes.\n", TRC1_Pointer(*buffer),
                 capacity);
  delete[] * buffer;
  *buffer = allocateBytes(capacity);
  if (*buffer == nullptr) {
    if (replaces)
      TRC1_ERROR("Error: reallocating %d bytes.\n", capacity);
    else
      TRC1_ERROR("Error: allocating %d bytes.\n", capacity);
    return false;
  }
  TRC1_STORAGE("Allocated *buffer @%p\n", TRC1_Pointer(*buffer));
  return true;
}

bool DCHipc::takeSender(const TRC1_Scope& trc1Scope, void* clientAddr, ZORA_Long* clientAddrLen,
                        char* clientName, unsigned int* connectedSockFD) {
  ipcCircularBuffer& queue = *_ipcCircularBuffer;
  const ipcClientSlot& slot = queue.slot[queue.start_idx];
  const int nameLength = static_cast<int>(std::strlen(slot.clientName));
  if (nameLength <= tracedNameSize) {
    TRC1_ERROR("Error: ipcClientName ptr problem: @%p %d sizeof(clientName) %d\n",
               TRC1_Pointer(slot.clientName), nameLength, tracedNameSize);
    return fail();
  }
  TRC1_DETAIL("Copying ptr @%p to clientName @%p for length %d sizeof(clientName) %d\n",
              TRC1_Pointer(slot.clientName), TRC1_Pointer(clientName), nameLength, tracedNameSize);
  std::memcpy(clientName, slot.clientName, static_cast<std::size_t>(nameLength) + 1);
  TRC1_DETAIL(">> clientName set to <%s>\n", clientName);
  *clientAddrLen = slot.clientAddrLen;
  std::memcpy(clientAddr, slot.clientAddr, static_cast<std::size_t>(slot.clientAddrLen));
  TRC1_ADDRESS("clientAddr set to ", clientAddr, *clientAddrLen);
  *connectedSockFD = slot.connectedSockFD;
  TRC1_DETAIL("connectedSockFD set to <%d>\n", static_cast<int>(*connectedSockFD));
  changeUnderLock(queue.start_idx, (queue.start_idx + 1) % IPC_QSIZE);
  changeUnderLock(queue.num_full, queue.num_full - 1);
  TRC1_DETAIL("Exit: start_idx=%d and num_full=%d\n", queue.start_idx.load(),
              queue.num_full.load());
  return true;
}
