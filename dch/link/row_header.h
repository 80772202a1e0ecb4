// row_header.h: what a row in the stream says of itself, in its header Zord-Row.
#ifndef DCH_LINK_ROW_HEADER_H
#define DCH_LINK_ROW_HEADER_H

#include <optional>
#include <string>
#include <string_view>

#include "dch/core/message.h"
#include "dch/core/row_name.h"
#include "zora/zora.h"

namespace dch {

struct RowHeader {
  RowName name;
  RowName previous;  // no row of the site lies between it and this one
  Time time = 0;
  ZORA_Long handle = 0;
  std::string source;

  friend bool operator==(const RowHeader&, const RowHeader&) = default;
};

// "1 EPOCH NUMBER PREVIOUS_EPOCH PREVIOUS_NUMBER TIME HANDLE SOURCE": the version of this form; "-"
// as the epoch of the previous row when it is this one's; microseconds since 1970, UTC; the source
// with all but A-Z a-z 0-9 _ as %XX, "%" when it is empty.
std::string rowHeaderText(const RowHeader& header);

// Takes any bytes. Nothing unless rowHeaderText wrote them.
std::optional<RowHeader> parseRowHeader(std::string_view text);

}  // namespace dch

#endif  // DCH_LINK_ROW_HEADER_H
