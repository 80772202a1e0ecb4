#include "dch/testkit/false_site.h"

#include <chrono>

#include "dch/link/row_fetch.h"
#include "dch/link/row_header.h"
#include "dch/link/subject.h"
#include "dch/testkit/link_test.h"
#include "dch/testkit/messages.h"
#include "dch/testkit/nats_client.h"

namespace dch::testkit {

struct FalseSite::Ends {
  explicit Ends(const std::string& url) : connection(url) {}

  const NatsClient connection;
  NatsSubscription requests;
};

FalseSite::FalseSite(const std::string& url, const std::string& site)
    : _site(site), _ends(std::make_unique<Ends>(url)) {
  natsSubscription* requests = nullptr;
  requireDone(
      natsConnection_SubscribeSync(&requests, _ends->connection.get(), fetchSubject(site).c_str()));
  _ends->requests.reset(requests);
  flush();
}

FalseSite::~FalseSite() {
  _ends->connection.close();
}

std::string FalseSite::nextAsker() const {
  natsMsg* request = nullptr;
  if (natsSubscription_NextMsg(&request, _ends->requests.get(),
                               std::chrono::milliseconds(linkPatience).count()) != NATS_OK)
    return "";
  const NatsMessage end(request);
  return natsMsg_GetReply(request);
}

void FalseSite::sendRow(int number, const std::string& to) const {
  const Epoch epoch{1};
  const RowHeader header{.name = {epoch, number}, .previous = {epoch, number - 1}, .source = "s"};
  const std::string message = dataMessage(1, {{"load1", 'D', std::to_string(number)}});
  const NatsMessage row = messageFor(to, message);
  setHeader(row, "Zord-Row", rowHeaderText(header));
  setHeader(row, "Zord-Subject", subject());
  requireDone(natsConnection_PublishMsg(_ends->connection.get(), row.get()));
}

std::string FalseSite::subject() const {
  return rowSubject(_site, "HOSTMON", "load");
}

void FalseSite::flush() const {
  requireDone(natsConnection_FlushTimeout(_ends->connection.get(),
                                          std::chrono::milliseconds(linkPatience).count()));
}

}  // namespace dch::testkit
