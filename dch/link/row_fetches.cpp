#include "dch/link/row_fetches.h"

#include <utility>
#include <vector>

#include "dch/link/outgoing_row.h"
#include "dch/link/row_fetch.h"

namespace dch {

namespace {

std::string notUnderstood() {
  return "each line is to be EPOCH NUMBER, and " + std::to_string(mostFetchNames) +
         " lines are to be sent at most";
}

}  // namespace

RowFetches::RowFetches(std::string site, const Epoch& run, ServerConnection& connection,
                       RowsInOrder& rows)
    : _site(std::move(site)),
      _run(run),
      _connection(connection),
      _rows(rows),
      _requests(connection.share(fetchSubject(_site))) {}

bool RowFetches::answerNext() {
  const NatsMessage request = _connection.received(_requests.get());
  if (request == nullptr) return false;
  const char* const asker = natsMsg_GetReply(request.get());
  if (asker != nullptr && *asker == '_')
    answer(asker, {natsMsg_GetData(request.get()),
                   static_cast<std::size_t>(natsMsg_GetDataLength(request.get()))});
  return true;
}

// The rows are sent when the file is left: a server may take them slowly.
void RowFetches::answer(const std::string& asker, std::string_view request) {
  const auto names = parseFetchRequest(request);
  if (!names) return sendLast(asker, "Zord-Error", notUnderstood());
  const RowsInOrder::Place place = _rows.placeOf(*names);
  std::optional<RowName> previous;
  std::vector<OutgoingRow> found;
  const auto pass = _rows.read(place.position, {}, [&](const OrderedRow& row) {
    const RowName first{place.epoch.value_or(row.name.epoch), place.position};
    found.push_back(outgoingRow(_site, row, previous.value_or(first)));
    previous = row.name;
  });
  std::uint64_t sent = 0;
  for (const OutgoingRow& row : found)
    if (_connection.send(asker, {},
                         {{"Zord-Row", row.header.c_str()}, {"Zord-Subject", row.subject.c_str()}},
                         row.message) == NATS_OK)
      ++sent;
  sendLast(asker, "Zord-Fetched", fetchEndText({{pass.epoch, pass.upTo}, sent, !pass.isCut, _run}));
}

void RowFetches::sendLast(const std::string& asker, const char* header, const std::string& value) {
  _connection.send(asker, {}, {{header, value.c_str()}}, {});
}

}  // namespace dch
