// DCHclient.h: one client-side conversation with the DCH.
//
// The exported functions create one per call; a consumer's subscription keeps one across calls.
// Every request method reports through the caller's status variable, where it has one, and returns
// the error latch. The fields are a binary interface: their order stays.
//
// A request waits for its answer in read(), for _DCHtimeout or _ipcReadTimeout seconds; the wait
// itself, and what 0 means, is ipcRead, in zordsock/read.cpp for sockets.
#ifndef ZORDCHCL_DCHCLIENT_H
#define ZORDCHCL_DCHCLIENT_H

#include <netinet/in.h>

#include <atomic>

#include "zora/trc1.h"
#include "zordchcl/messages.h"
#include "zordchcl/status.h"
#include "zordchcl/zordchcl.h"
#include "zordipc/zordipc.h"

struct DCH_CatalogueQuery;

// An object is used by one thread at a time, but for dc_waitOnDataCancel, which another thread
// calls while dc_waitOnData waits.
class DCHclient {
 public:
  // Sets up the transport. A process that cannot is ended with exit status 1. A failure to open the
  // interrupt socket, where one is asked for, sets the latch.
  DCHclient(ZORA_Long openInterruptSocket, ZORA_Long useFromSockPool);
  ~DCHclient();
  DCHclient(const DCHclient&) = delete;
  DCHclient& operator=(const DCHclient&) = delete;

  // Read timeout for the answers to data, in seconds; 0 goes back to the transport's own.
  void setReadTimeout(ZORA_Long seconds);

  // Further looks for an answer that did not come in time.
  void setRetryRead(ZORA_Long count);

  ZORA_Long dp_register(ZORA_Long* status, const char* registration);
  ZORA_Long dp_online(ZORA_Long* status, ZORA_Long* handle, const char* applName,
                      const char* attrGroup, const char* sourceName);
  ZORA_Long dp_offline(ZORA_Long* status, ZORA_Long handle);
  ZORA_Long dp_unregister(ZORA_Long* status, const char* applName);
  ZORA_Long dp_cancel(ZORA_Long* status, ZORA_Long handle);
  ZORA_Long dp_formatData(ZORA_Long* status, char** workBuffer, ZORA_Long* size,
                          const char* attrName, const void* attrValue, ZORA_Long valueSize,
                          char attrType);
  ZORA_Long dp_data(ZORA_Long* status, ZORA_Long handle, short dataCode, char** workBuffer);

  ZORA_Long dc_waitOnDataInitialize(const char* applName, const char* attrGroup);
  ZORA_Long dc_waitOnData(char* buffer, short bufferLength);
  ZORA_Long dc_waitOnDataCancel();
  ZORA_Long dc_waitOnDataDestroy();

  ZORA_Long dc_waitForDPStatusInitialize();
  // The next notification as text in _msgBuffer, valid until the object is used again; or null.
  char* dc_waitForDPStatus();
  ZORA_Long dc_waitForDPStatusDestroy();

  // The length of the answer, 0 on failure, and the answer in a new malloc block in `*buffer`.
  ZORA_Long dc_getApplications(char** buffer, const char* applName, ZORA_Long wait);
  ZORA_Long dc_getApplAttributes(char** buffer, const char* applName, ZORA_Long wait);
  ZORA_Long dc_getApplHelp(char** buffer, const char* applName, ZORA_Long wait);

  ZORA_Long dc_provideAction(short actionType, const char* actionOwner, const char* actionNode,
                             const char* subNode, const char* actionName, ZORA_Long actionID,
                             const char* actionParms);
  ZORA_Long dc_waitForActionResults(ZORA_Long actionID);
  ZORA_Long dc_deferReportRequest(void* peltaObject, ZORA_Long actionID, ZORA_Long currentTime,
                                  const char* applKey, const char* tableName,
                                  const char* sourceName);

  // Reserved: no message is defined for these.
  void dp_waitForAction(ZORA_Long value);
  void dp_provideActionResults(ZORA_Long first, ZORA_Long second);
  void shutdown(ZORA_Long value);

  ZORA_Long _clientIpcType;  // as ZORA_GetIPCtype answered
  DCHipc* _ipcClient;        // the transport, owned
  char* _readBuffer;         // the response last read, owned while a request handles it
  char _msgBuffer[ZOR0_MAX_REQUEST_SIZE];   // where requests are built
  char _applName[DCH_MAX_APPL_NAME + 1];    // of a data subscription
  char _attrGroup[DCH_MAX_ATTR_GROUP + 1];  // of a data subscription
  ZORA_Long _interruptFD;                   // NO_SOCKET when there is none
  ZORA_Long _DCHtimeout;                    // seconds: ZORA_DCH_TIMEOUT
  ZORA_Long _ipcReadTimeout;                // seconds, for the answers to data
  // 0 clear; above 0 set, which stops every later request; -1 after a cancelled wait.
  std::atomic<ZORA_Long> _clientError;
  ZORA_Long _interruptPort;

 private:
  bool failed() const { return latch() > 0; }
  ZORA_Long latch() const { return _clientError.load(std::memory_order_relaxed); }
  void fail() { _clientError.store(1, std::memory_order_relaxed); }
  void fail(ZORA_Long* status, ZORA_Long value);

  // The steps below trace on behalf of the method whose scope they are given. `request` is its
  // name.

  void openSocketTransport(const TRC1_Scope& trc1Scope, ZORA_Long openInterruptSocket,
                           ZORA_Long useFromSockPool);
  void openInterrupt(const TRC1_Scope& trc1Scope);

  // Starts a request in _msgBuffer.
  DCH_MessageBuilder newRequest(DCH_RequestCode code);
  // Reports a request that is larger than its buffer and sets the latch.
  bool reportUnlessFits(const TRC1_Scope& trc1Scope, const char* request, bool fits);
  // Under the dump class: the heading, with the length and the name, and the message.
  void traceDump(const TRC1_Scope& trc1Scope, const char* headingFormat, const char* request,
                 const char* message, ZORA_Long length);
  // Sends a message without a line of its own; false when not all of it went out.
  bool transmit(char* message, ZORA_Long length);
  // Traces and sends a message; false when not all of it went out. The second also reports it and
  // sets the latch.
  bool write(const TRC1_Scope& trc1Scope, const char* request, char* message, ZORA_Long length);
  bool writeOrReport(const TRC1_Scope& trc1Scope, const char* request, char* message,
                     ZORA_Long length);
  void traceWaiting(const TRC1_Scope& trc1Scope, const char* request);
  // Reads a message into _readBuffer. The second reports a failure and sets status 5 and the latch.
  bool read(ZORA_Long timeout);
  bool readAnswer(const TRC1_Scope& trc1Scope, ZORA_Long* status, ZORA_Long timeout);
  ZOR0_FieldCursor answerFields();
  void extractStatus(const TRC1_Scope& trc1Scope, ZOR0_FieldCursor* fields, ZORA_Long* status,
                     ZORA_Long statusWhenMissing, const char* format);
  void releaseReadBuffer(const TRC1_Scope& trc1Scope);
  // Reads an answer that is a status alone.
  void awaitStatus(const TRC1_Scope& trc1Scope, ZORA_Long* status, ZORA_Long timeout);

  void sendOnline(const TRC1_Scope& trc1Scope, ZORA_Long* status, const char* applName,
                  const char* attrGroup, const char* sourceName);
  void extractHandle(const TRC1_Scope& trc1Scope, ZOR0_FieldCursor* fields, ZORA_Long* status,
                     ZORA_Long* handle);
  void sendForStatus(const TRC1_Scope& trc1Scope, const char* request,
                     const DCH_MessageBuilder& message, ZORA_Long* status);

  bool prepareRow(const TRC1_Scope& trc1Scope, ZORA_Long* status, char** workBuffer,
                  ZORA_Long* size);

  void sendSubscription(const TRC1_Scope& trc1Scope, const char* request,
                        DCH_Subscription subscription);
  bool usesSockets(const TRC1_Scope& trc1Scope);
  void waitForRow(const TRC1_Scope& trc1Scope, char* buffer, short bufferLength);
  void takeRow(const TRC1_Scope& trc1Scope, char* buffer, short bufferLength);
  bool interruptAddress(const TRC1_Scope& trc1Scope, sockaddr_in* address);
  bool sendInterrupt(const TRC1_Scope& trc1Scope, const sockaddr_in& address, bool isDumped);

  void sendStatusSubscription(const TRC1_Scope& trc1Scope, const char* request,
                              const char* writingFormat, DCH_Subscription subscription);

  ZORA_Long queryCatalogue(const TRC1_Scope& trc1Scope, const DCH_CatalogueQuery& query,
                           char** buffer, const char* applName, ZORA_Long wait);
  ZORA_Long takeCatalogueAnswer(const TRC1_Scope& trc1Scope, const DCH_CatalogueQuery& query,
                                char** buffer);
};

#endif  // ZORDCHCL_DCHCLIENT_H
