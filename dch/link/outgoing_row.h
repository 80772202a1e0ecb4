// outgoing_row.h: a row on its way to the stream.
#ifndef DCH_LINK_OUTGOING_ROW_H
#define DCH_LINK_OUTGOING_ROW_H

#include <cstdint>
#include <string>

#include "dch/core/row_name.h"

namespace dch {

struct OrderedRow;

struct OutgoingRow {
  std::int64_t number = 0;  // in the site's store
  std::string subject;
  std::string id;  // by which the stream knows a row that it has already; empty: by none
  std::string header;
  std::string message;
};

// Of the site; `previous` is the row before it, if it is known, else up to where there is none.
OutgoingRow outgoingRow(const std::string& site, const OrderedRow& row, const RowName& previous);

}  // namespace dch

#endif  // DCH_LINK_OUTGOING_ROW_H
