// row_fetch.h: what is said when rows of a site are asked for, beside the rows.
//
// Whoever reads the stream and finds that a row is missing asks the site itself: it sends to
// zord.fetch.SITE how far it has rows, and gets those behind that, some at a time.
#ifndef DCH_LINK_ROW_FETCH_H
#define DCH_LINK_ROW_FETCH_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "dch/core/epoch.h"
#include "dch/core/row_name.h"

namespace dch {

// zord.fetch.SITE
std::string fetchSubject(std::string_view site);

// A line for each name, "EPOCH NUMBER": the asker has all rows of that epoch up to there. None: he
// has nothing. A site reads this many.
inline constexpr std::size_t mostFetchNames = 64;
std::string fetchRequestText(const std::vector<RowName>& names);

// Takes any bytes. Nothing unless fetchRequestText wrote them.
std::optional<std::vector<RowName>> parseFetchRequest(std::string_view text);

// The header Zord-Fetched of the message behind the rows.
struct FetchEnd {
  RowName upTo;            // the site has no other row that the asker did not have
  std::uint64_t rows = 0;  // that were sent: the asker may not have got them all
  bool isAll = false;      // else there are more at once, for another request
  Epoch run{};             // of the server that says so: there may be two of that name

  friend bool operator==(const FetchEnd&, const FetchEnd&) = default;
};

// "1 EPOCH NUMBER ROWS all RUN", or "more" in the place of "all".
std::string fetchEndText(const FetchEnd& end);

// Takes any bytes. Nothing unless fetchEndText wrote them.
std::optional<FetchEnd> parseFetchEnd(std::string_view text);

}  // namespace dch

#endif  // DCH_LINK_ROW_FETCH_H
