// kept_rows.h: numbered rows in a state file, compared with what their senders were told.
#ifndef DCH_TESTKIT_KEPT_ROWS_H
#define DCH_TESTKIT_KEPT_ROWS_H

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "zora/zora.h"

namespace dch::testkit {

// What a sender knows of one of its sources. Rows have the numbers from 1.
struct SourceBook {
  std::string name;
  ZORA_Long handle = 0;  // 0 until it was told
  bool isOnline = false;
  std::uint32_t sent = 0;
  std::uint32_t acknowledged = 0;                // this one and all before it
  std::map<std::uint32_t, std::uint32_t> sends;  // of rows that were sent more than once, how often
};

struct KeptRows {
  std::uint64_t acknowledged = 0;
  std::uint64_t unanswered = 0;  // they are there, and nobody was told so
  std::uint64_t repeated = 0;    // again, of those that were sent again without an answer
  std::uint64_t lost = 0;
  std::uint64_t doubled = 0;  // although they were sent once
  std::uint64_t outOfOrder = 0;
  std::uint64_t strange = 0;  // nobody sent them

  bool areRight() const { return lost + doubled + outOfOrder + strange == 0; }
};

// Adds what the view of a group has of these sources, which are all of its sources. With
// `removesOld` rows may be missing before the first one that is there. `condition` (SQL) says which
// of the view's rows count.
void compareRows(const std::string& path, const std::string& view,
                 const std::vector<SourceBook>& sources, KeptRows* found, bool removesOld = false,
                 const std::string& condition = "true");

}  // namespace dch::testkit

#endif  // DCH_TESTKIT_KEPT_ROWS_H
