// zordlpc.h: the local-procedure-call transport. It carries no traffic on this platform: every
// operation succeeds at once and moves no data, so that a client can be built under IPC type 2.
#ifndef ZORDLPC_ZORDLPC_H
#define ZORDLPC_ZORDLPC_H

#include "zordipc/zordipc.h"

// An object is used by one thread at a time.
class ipcLPC : public DCHipc {
 public:
  ipcLPC();  // not to be used
  ipcLPC(short typeOfService, void* clientArg, ZORA_Long connectTo);
  ~ipcLPC();

  ZORA_Long ipcRead(void** readBuffer, ZORA_Long initialWait) override;
  ZORA_Long ipcWrite(void* buffer, ZORA_Long length, unsigned int connectedSockFD) override;
  void setClientAddr(void* clientAddr, ZORA_Long clientAddrLen) override;
  ZORA_Long IPCServer() override;
  ZORA_Long IPCClient(void* clientArg, ZORA_Long connectTo, ZORA_Long typeOfService) override;
  ZORA_Long allocateIPC() override;
  ZORA_Long releaseIPC() override;

  ZORA_Long _lpcError;  // what the operations return: 0, 1 after the default constructor
};

#endif  // ZORDLPC_ZORDLPC_H
