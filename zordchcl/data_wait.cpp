// A consumer's subscription to rows: started, waited on, interrupted from another thread, ended.
#include <arpa/inet.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstring>

#include "suite/cancellation.h"
#include "suite/descriptor_set.h"
#include "suite/dump.h"
#include "suite/names.h"
#include "zordchcl/DCHclient.h"
#include "zordchcl/trace_unit.h"
#include "zordsock/zordsock.h"

namespace {

constexpr ZORA_Long cancelled = -1;

}  // namespace

ZORA_Long DCHclient::dc_waitOnDataInitialize(const char* applName, const char* attrGroup) {
  TRC1_FUNCTION("DCHclient::dc_waitOnDataInitialize");
  if (failed()) TRC1_RETURN(latch());
  if (applName == nullptr || attrGroup == nullptr) {
    TRC1_ERROR("Error: applName and/or attrGroup were NULL\n");
    fail();
    TRC1_RETURN(latch());
  }
  const std::size_t applLength = std::strlen(applName);
  const std::size_t groupLength = std::strlen(attrGroup);
  if (applLength > DCH_MAX_APPL_NAME || groupLength > DCH_MAX_ATTR_GROUP) {
    TRC1_ERROR("Error: max length exceeded: applName[%d:%s] attrGroup[%d:%s]",
               static_cast<int>(applLength), applName, static_cast<int>(groupLength), attrGroup);
    fail();
    TRC1_RETURN(latch());
  }
  std::memcpy(_applName, applName, applLength + 1);
  std::memcpy(_attrGroup, attrGroup, groupLength + 1);
  sendSubscription(trc1Scope, "dc_waitOnDataInitialize", DCH_SUBSCRIPTION_START);
  TRC1_RETURN(latch());
}

ZORA_Long DCHclient::dc_waitOnDataDestroy() {
  TRC1_FUNCTION("DCHclient::dc_waitOnDataDestroy");
  if (!failed()) sendSubscription(trc1Scope, "dc_waitOnDataDestroy", DCH_SUBSCRIPTION_STOP);
  TRC1_RETURN(latch());
}

void DCHclient::sendSubscription(const TRC1_Scope& trc1Scope, const char* request,
                                 DCH_Subscription subscription) {
  DCH_MessageBuilder message = newRequest(DCH_REQUEST_DATA_SUBSCRIPTION);
  message.add(DCH_applName, _applName)
      .add(DCH_attrGroup, _attrGroup)
      .add(DCH_status, ZORA_Long{subscription});
  writeOrReport(trc1Scope, request, _msgBuffer, message.length());
}

ZORA_Long DCHclient::dc_waitOnData(char* buffer, short bufferLength) {
  TRC1_FUNCTION("DCHclient::dc_waitOnData");
  if (failed()) TRC1_RETURN(latch());
  if (usesSockets(trc1Scope)) {
    if (bufferLength < 1 || buffer == nullptr) {
      TRC1_ERROR("Error: User must specify an allocated buffer.\n");
      fail();
    } else {
      waitForRow(trc1Scope, buffer, bufferLength);
    }
  }
  TRC1_RETURN(latch());
}

bool DCHclient::usesSockets(const TRC1_Scope& trc1Scope) {
  if (_clientIpcType == IPC_TYPE_SOCKET) return true;
  if (_clientIpcType == IPC_TYPE_LPC)
    TRC1_ERROR("FINISH ME UP!!!!");
  else
    TRC1_ERROR("Error: Unrecognized IPC type %d\n", _clientIpcType);
  fail();
  return false;
}

void DCHclient::waitForRow(const TRC1_Scope& trc1Scope, char* buffer, short bufferLength) {
  auto* const transport = static_cast<ipcSock*>(_ipcClient);
  const ZORA_Long rows = transport->sockUDP();
  const ZORA_Long highest = std::max(rows, _interruptFD);
  TRC1_DETAIL("Waiting for dc_waitOnData response message\n");
  TRC1_DETAIL("Waiting for sockUDP[%d] port[%d] and interruptFD[%d]\n", rows,
              transport->sockPortUDP(), _interruptFD);
  ZOR0_DescriptorSet readable;
  int count = -1;
  if (readable.reset(highest)) {
    readable.add(rows);
    readable.add(_interruptFD);
    count = select(highest + 1, readable.get(), nullptr, nullptr, nullptr);
  }
  if (count < 0) {
    TRC1_ERROR("Error: select (indefinitely) failed.\n");
    fail();
  } else if (readable.contains(rows)) {
    TRC1_DETAIL("[@%p] dc_waitOnData data ready.\n", TRC1_Pointer(_ipcClient));
    takeRow(trc1Scope, buffer, bufferLength);
  } else if (readable.contains(_interruptFD)) {
    TRC1_DETAIL("dc_waitOnDataCancel signal ready.\n");
    recvfrom(_interruptFD, buffer, static_cast<std::size_t>(bufferLength), 0, nullptr, nullptr);
    _clientError.store(cancelled, std::memory_order_relaxed);
  } else {
    TRC1_ERROR("Error: unrecognize FD from select\n");
    fail();
  }
}

void DCHclient::takeRow(const TRC1_Scope& trc1Scope, char* buffer, short bufferLength) {
  if (!read(_DCHtimeout)) {
    TRC1_ERROR("Error: while waiting %d second(s) for dc_waitOnData response.\n", _DCHtimeout);
    fail();
  } else {
    // The length word, not the count that was read: that is the last datagram's alone.
    const std::uint32_t length = ZOR0_MessageLength(_readBuffer);
    if (length <= static_cast<std::uint32_t>(bufferLength)) {
      std::memcpy(buffer, _readBuffer, length);
    } else {
      TRC1_ERROR("Error: buflen=%d > bytesRead=%d.\n", bufferLength, static_cast<int>(length));
      fail();
    }
  }
  releaseReadBuffer(trc1Scope);
}

ZORA_Long DCHclient::dc_waitOnDataCancel() {
  TRC1_FUNCTION("DCHclient::dc_waitOnDataCancel");
  if (failed() || !usesSockets(trc1Scope)) TRC1_RETURN(latch());
  // The waiting thread marks the client as cancelled as soon as the datagram is there, so what
  // tells a first cancel from a further one is read before.
  const ZORA_Long before = latch();
  sockaddr_in address{};
  if (!interruptAddress(trc1Scope, &address) || !sendInterrupt(trc1Scope, address, before == 0))
    TRC1_RETURN(latch());
  TRC1_RETURN(before);
}

bool DCHclient::interruptAddress(const TRC1_Scope& trc1Scope, sockaddr_in* address) {
  const char* const host = ZOR0_LocalHostNameString();
  if (host == nullptr) {
    TRC1_ERROR("Error: ZOR0_LocalHostNameString failed.\n");
    fail();
  }
  const auto port = static_cast<short>(_interruptPort);
  if (ZOR0_ConvertNameToAddr(host, port, address) == 0) {
    TRC1_ERROR("Error: ZOR0_ConvertNameToAddr failed for[%s]\n", host != nullptr ? host : "");
    fail();
    return false;
  }
  if (trc1Scope.on(TRC1_CLASS_DETAIL)) {
    char dotted[INET_ADDRSTRLEN] = "";
    inet_ntop(AF_INET, &address->sin_addr, dotted, sizeof dotted);
    TRC1_DETAIL(">> interruptFD=%d, sockAddress <%s[%d]>\n", _interruptFD, dotted, port);
  }
  return !failed();
}

bool DCHclient::sendInterrupt(const TRC1_Scope& trc1Scope, const sockaddr_in& address,
                              bool isDumped) {
  const suite::CancellationOff cancellationOff;  // the caller holds a lock
  std::memset(_msgBuffer, 0, sizeof _msgBuffer);
  DCH_MessageBuilder message(_msgBuffer, sizeof _msgBuffer);
  message.add(DCH_sourceName, DCH_TERMINATE_TEXT);
  const ZORA_Long length = message.length();
  const auto sent =
      static_cast<ZORA_Long>(sendto(_interruptFD, _msgBuffer, static_cast<std::size_t>(length), 0,
                                    reinterpret_cast<const sockaddr*>(&address), sizeof address));
  if (sent < length) {
    TRC1_ERROR("Error: SENDTO - Sent %d bytes out of %d\n", sent, length);
    fail();
    return false;
  }
  if (isDumped && trc1Scope.on(TRC1_CLASS_DUMP)) {
    TRC1_LINE(TRC1_CLASS_DUMP, "DUMP[%d] of dc_waitOnDataCancel request.\n", length);
    ZOR0_PrintDump(_msgBuffer, 0, length);
  }
  return true;
}
