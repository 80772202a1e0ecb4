#include "dch/link/outgoing_row.h"

#include "dch/link/row_header.h"
#include "dch/link/subject.h"
#include "dch/store/rows_in_order.h"

namespace dch {

namespace {

// A file may give a number again, so that of the message has some digits of the epoch behind it: a
// server that has one of the same ID drops the other.
std::string messageId(const std::string& site, const RowName& name) {
  constexpr std::uint64_t end = 1'000'000'000;
  std::uint64_t epoch = 0;
  for (const std::uint8_t each : name.epoch.bytes) epoch = (epoch * 256 + each) % end;
  const std::string digits = std::to_string(end + epoch).substr(1);
  return site + ':' + std::to_string(name.number) + digits;
}

}  // namespace

OutgoingRow outgoingRow(const std::string& site, const OrderedRow& row, const RowName& previous) {
  return {
      .number = row.name.number,
      .subject = rowSubject(site, row.application, row.group),
      .id = messageId(site, row.name),
      .header = rowHeaderText({row.name, previous, row.time, row.handle, std::string(row.source)}),
      .message = std::string(row.message)};
}

}  // namespace dch
