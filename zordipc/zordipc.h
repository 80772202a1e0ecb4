// zordipc.h: the abstract transport between a client and the DCH, and the server's message queue.
//
// One DCHipc is one endpoint. A client endpoint is opened by startup() through the derived class's
// IPCClient; a server endpoint owns a queue that its receiver thread fills and its owner empties.
// The fields and the slots of the virtual operations are a binary interface: their order stays.
#ifndef ZORDIPC_ZORDIPC_H
#define ZORDIPC_ZORDIPC_H

#include <pthread.h>

#include <atomic>

#include "zora/trc1.h"
#include "zora/zora.h"

// Types of service: the role of an endpoint.
enum DCHipc_Service : short {
  SERVICE_CLIENT = 1,      // opens a datagram and a stream socket
  SERVICE_SERVER = 2,      // owns the queue and runs the receiver thread
  SERVICE_UDP_CLIENT = 3,  // opens or borrows a datagram socket
};

// Slots of the server's queue; at most IPC_QSIZE - 1 of them are ever full.
constexpr ZORA_Long IPC_QSIZE = 5;
constexpr ZORA_Long IPC_ADDRESS_SIZE = 256;
constexpr ZORA_Long IPC_NAME_SIZE = 256;
// Slot buffers grow in steps of this many bytes.
constexpr ZORA_Long IPC_BUFFER_STEP = 4096;
// The queue refuses longer messages, so that no size it computes overflows.
constexpr ZORA_Long IPC_MAX_MESSAGE_SIZE = 1 << 30;

// Who sent a queued message.
struct ipcClientSlot {
  char clientAddr[IPC_ADDRESS_SIZE];  // the socket address, raw
  ZORA_Long clientAddrLen;            // bytes of clientAddr in use
  char clientName[IPC_NAME_SIZE];     // zero-terminated; 255 blanks when none was given
  unsigned int connectedSockFD;       // stream connection to answer on, 0 for a datagram
};

// A bounded queue, first in, first out, for one producer and one consumer. `lock` is the first
// member, so that the record's address serves as the lock's.
struct ipcCircularBuffer {
  pthread_mutex_t lock;  // guards every other field
  // Written under the lock; the trace shows them without it.
  std::atomic<ZORA_Long> start_idx;  // the oldest entry
  std::atomic<ZORA_Long> num_full;   // queued entries, 0 to 4
  pthread_cond_t notFull;
  pthread_cond_t notEmpty;
  ipcClientSlot slot[IPC_QSIZE];
  ZORA_Long dataSize[IPC_QSIZE];  // capacity of each data buffer
  ZORA_Long dataLen[IPC_QSIZE];   // bytes of the message in each
  char* data[IPC_QSIZE];          // null until a slot is first used; kept and reused afterwards
};

class DCHipc {
 public:
  // Not to be used: leaves an object whose error state is 1.
  DCHipc();
  explicit DCHipc(short typeOfService);
  DCHipc(const DCHipc&) = delete;
  DCHipc& operator=(const DCHipc&) = delete;

  // Frees a server's queue. Not virtual: a transport is destroyed through its own class. The
  // receiver thread is not stopped, so a server object lives as long as its process.
  ~DCHipc();

  // Waits for one whole message, `initialWait` seconds for its first bytes, without limit when that
  // is 0 or less. Returns a count above 0 and stores the message through `readBuffer`; the caller
  // frees it with delete[]. A count above 0 with the buffer untouched, 0 and -1 are failures.
  // Blocks; call without locks.
  virtual ZORA_Long ipcRead(void** readBuffer, ZORA_Long initialWait) = 0;

  // Sends `length` bytes: on the stream connection `connectedSockFD`, or with 0 as datagrams to the
  // peer address. Returns the bytes sent, -1 on failure. The caller keeps the buffer. May block: a
  // message of several datagrams pauses a second between them.
  virtual ZORA_Long ipcWrite(void* buffer, ZORA_Long length, unsigned int connectedSockFD) = 0;

  // Sets the peer address for later writes; null clears it.
  virtual void setClientAddr(void* clientAddr, ZORA_Long clientAddrLen) = 0;

  // The server's receive loop; runs on the receiver thread. Non-zero when it cannot go on.
  virtual ZORA_Long IPCServer() = 0;

  // Opens the client endpoint. Returns 0 on success.
  virtual ZORA_Long IPCClient(void* clientArg, ZORA_Long connectTo, ZORA_Long typeOfService) = 0;

  // Obtains a datagram endpoint: its descriptor, negative on failure. May wait for a free one.
  virtual ZORA_Long allocateIPC() = 0;

  // Gives back what allocateIPC obtained. Returns 0 on success.
  virtual ZORA_Long releaseIPC() = 0;

  // Default wait for reads from the DCH, in seconds.
  virtual short DCHtimeout();

  void ipcSetError(ZORA_Long error) { _ipcError.store(error, std::memory_order_relaxed); }
  ZORA_Long ipcGetError() const { return _ipcError.load(std::memory_order_relaxed); }
  short ipcTypeOfService() const { return _typeOfService; }
  ZORA_Long ipcGetRetryRead() const { return _retryRead; }
  void ipcSetRetryRead(ZORA_Long retry) { _retryRead = retry; }

  // Opens the endpoint: creates the queue and starts the receiver thread for a server, calls
  // IPCClient for a client. Called by the derived class's constructor. Returns the error state.
  ZORA_Long startup(void* clientArg, ZORA_Long connectTo);

  // Creates the queue. The outcome of this and the next three is in ipcGetError().
  void ipc_new_cb();

  // Frees the queue; without one it does nothing. No other thread may be in one of the next two any
  // more: not even one whose message was taken already.
  void ipc_delete_cb();

  // Appends one message: `length` bytes of `data`, the sender's address (the first 256 bytes
  // count), its name (null, or 5 to 255 characters) and its connection. Copies all of it. Blocks
  // while four messages are queued. For the receiver thread; the lock lets a server queue notices
  // of its own from other threads. Reports an error only when the lock fails or the length is
  // negative or too large; that a message was lost for want of memory shows in the trace alone.
  void ipc_put_data(ZORA_Long length, const void* data, const void* clientAddr,
                    ZORA_Long clientAddrLen, const char* clientName, unsigned int connectedSockFD);

  // Takes the oldest message; blocks while there is none. `*buffer` is the caller's own array of
  // `*bufferSize` bytes, or null: it is replaced when a slot's capacity exceeds it, and the caller
  // frees it with delete[]. The message is followed by at least one zero byte. `clientAddr` and
  // `clientName` have room for 256 bytes each. Called by one thread only.
  void ipc_get_data(char** buffer, ZORA_Long* bufferSize, void* clientAddr,
                    ZORA_Long* clientAddrLen, char* clientName, unsigned int* connectedSockFD);

  std::atomic<ZORA_Long> _ipcError;  // 0 good, 1 failed; two threads of a server write it
  short _dchIpcType = 0;             // as ZORA_GetIPCtype answered at construction
  short _typeOfService = 0;
  ipcCircularBuffer* _ipcCircularBuffer = nullptr;  // a server's queue, owned
  ZORA_Long _retryRead = 0;                         // further tries of a read wait that ran out

 private:
  // Steps of the queue operations, for the thread that holds the lock. They answer whether they
  // succeeded and leave `_ipcError` at 1 when not; it never decides, because both threads write it.
  bool waitWhile(const TRC1_Scope& trc1Scope, ZORA_Long numFull, pthread_cond_t* condition,
                 const char* text);
  bool storeMessage(const TRC1_Scope& trc1Scope, ZORA_Long index, ZORA_Long length,
                    const void* data);
  bool storeInNewSlot(const TRC1_Scope& trc1Scope, ZORA_Long index, ZORA_Long length,
                      const void* data);
  bool storeInUsedSlot(const TRC1_Scope& trc1Scope, ZORA_Long index, ZORA_Long length,
                       const void* data);
  void storeSender(const TRC1_Scope& trc1Scope, ZORA_Long index, const void* clientAddr,
                   ZORA_Long clientAddrLen, const char* clientName, unsigned int connectedSockFD);
  bool takeMessage(const TRC1_Scope& trc1Scope, char** buffer, ZORA_Long* bufferSize);
  bool makeRoom(const TRC1_Scope& trc1Scope, char** buffer, ZORA_Long* bufferSize,
                ZORA_Long capacity);
  bool takeSender(const TRC1_Scope& trc1Scope, void* clientAddr, ZORA_Long* clientAddrLen,
                  char* clientName, unsigned int* connectedSockFD);
  void signalCondition(const TRC1_Scope& trc1Scope, pthread_cond_t* condition);
  bool fail();
};

// Entry of the receiver thread: runs the IPCServer of the DCHipc at `object`. Returns null.
extern "C" void* IPCServerThread(void* object);

#endif  // ZORDIPC_ZORDIPC_H
