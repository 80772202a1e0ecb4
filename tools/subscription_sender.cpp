#include "tools/subscription_sender.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sysexits.h>
#include <unistd.h>

#include "tools/common/failure.h"
#include "zordchcl/DCHclient.h"
#include "zordsock/zordsock.h"

namespace tools {
namespace {

const ipcSock& transportOf(void* handle) {
  return *static_cast<const ipcSock*>(static_cast<const DCHclient*>(handle)->_ipcClient);
}

void send(int socket, const sockaddr_in& dch, const char* request,
          const DCH_MessageBuilder& built) {
  sendto(socket, request, static_cast<std::size_t>(built.length()), 0,
         reinterpret_cast<const sockaddr*>(&dch), sizeof dch);
}

}  // namespace

SubscriptionSender::SubscriptionSender(void* handle)
    : _socket(fcntl(transportOf(handle).sockUDP(), F_DUPFD_CLOEXEC, 0)),
      _dch(transportOf(handle)._sockAddress) {
  if (_socket < 0) throw Failure(EX_OSERR, "no descriptor is left for the subscription");
}

SubscriptionSender::~SubscriptionSender() {
  close(_socket);
}

void SubscriptionSender::startRows(const std::string& applName,
                                   const std::string& attrGroup) const {
  char request[128];  // both names at their longest fit
  DCH_MessageBuilder message(request, sizeof request);
  message.add(DCH_requestType, short{DCH_REQUEST_DATA_SUBSCRIPTION})
      .add(DCH_applName, applName.c_str())
      .add(DCH_attrGroup, attrGroup.c_str())
      .add(DCH_status, ZORA_Long{DCH_SUBSCRIPTION_START});
  send(_socket, _dch, request, message);
}

void SubscriptionSender::startStatus() const {
  char request[32];
  DCH_MessageBuilder message(request, sizeof request);
  message.add(DCH_requestType, short{DCH_REQUEST_STATUS_SUBSCRIPTION})
      .add(DCH_status, ZORA_Long{DCH_SUBSCRIPTION_START});
  send(_socket, _dch, request, message);
}

}  // namespace tools
