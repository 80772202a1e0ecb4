#include "bench/nats_connection.h"

#include <stdexcept>

void require(natsStatus status) {
  if (status != NATS_OK) throw std::runtime_error(natsStatus_GetText(status));
}

natsConnection* openConnection(const std::string& url) {
  natsOptions* options = nullptr;
  natsConnection* connection = nullptr;
  require(natsOptions_Create(&options));
  require(natsOptions_SetURL(options, url.c_str()));
  require(natsOptions_SetSendAsap(options, true));
  require(natsConnection_Connect(&connection, options));
  natsOptions_Destroy(options);
  return connection;
}
