// change.h: what the server comes to know. Each change owns what it tells, and all that the server
// knows follows from the changes that were kept, in their order.
#ifndef DCH_CORE_CHANGE_H
#define DCH_CORE_CHANGE_H

#include <cstddef>
#include <cstdint>
#include <list>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "dch/core/deferrals.h"
#include "dch/core/message.h"
#include "dch/core/row_name.h"
#include "suite/registration.h"

namespace dch {

struct Registered {
  suite::Registration registration;
};

struct Unregistered {
  std::string application;
};

struct WentOnline {
  std::string application;
  std::string group;
  std::string source;
  ZORA_Long handle = 0;
};

struct WentOffline {
  ZORA_Long handle = 0;
};

struct Row {
  ZORA_Long handle = 0;
  Time time = 0;
  std::string message;    // as it came
  bool isCurrent = true;  // its source has not gone on line since
};

struct Deferred {
  std::list<Deferral> deferral;  // one, as a node that joins the others without asking for memory
};

// Kept before its program runs. An earlier result of the same ID counts no more. The parameters of
// an action are not among its changes: they may hold a password.
struct ActionStarted {
  ZORA_Long id = 0;
  std::string name;
  std::string owner;
  Time time = 0;
};

struct ActionEnded {
  ZORA_Long id = 0;
  Time time = 0;
  ZORA_Long status = 0;
};

// The rows up to this position of the store were published: they need not be again. It is not among
// what the server knows, and is not told when that is loaded.
struct RowsPublished {
  std::int64_t position = 0;
};

// A row of another site, as it came from there. Names and message may be any bytes.
struct RemoteRow {
  RowName name;
  Time time = 0;
  std::string application;
  std::string group;
  std::string source;
  std::string message;
};

// Of a site: those that were changed longest ago are forgotten. More runs than one has in the days
// for which its rows are kept, unless it dies all the time: then rows may be kept twice. Whoever
// makes up more takes no more room and time.
inline constexpr std::size_t mostKnownEpochs = 1'024;

// Rows of one site, in its order, and how far they are known with them: all of it is kept or
// nothing. It is not among what the server knows, and is not told when that is loaded.
struct RemoteRows {
  std::string site;
  // One of which the name, or a later one of its epoch, is known already is not kept again.
  std::vector<RemoteRow> rows;
  // An epoch each, the one that was changed last first: its rows are known up to there, those that
  // cannot be had any more too. The epochs of `rows` are known up to the last of them at least.
  std::vector<RowName> known;
  // The place in the stream of the site's first row that was passed over there and may not be had
  // otherwise.
  std::optional<std::uint64_t> passedFrom;
};

// The rows of the stream up to this sequence were kept, or are behind the RemoteRows::passedFrom of
// their sites: those changes were kept before it. Another stream, which has another text, has other
// rows. It is not told when what is known is loaded.
struct StreamRead {
  std::string stream;
  std::uint64_t sequence = 0;
};

// A source of another site is to have a handle, whether or not rows of it are kept. The store fills
// it in: that which the source has, or the next one. It is the source's for good, and of use only
// when the change was kept: what was not kept comes back without one. 0 in a change that was kept:
// there is no room for it. It is not told when what is known is loaded.
struct RemoteSourceSeen {
  std::string site;
  std::string application;
  std::string group;
  std::string source;
  ZORA_Long handle = 0;
};

using Change =
    std::variant<Registered, Unregistered, WentOnline, WentOffline, Row, Deferred, ActionStarted,
                 ActionEnded, RowsPublished, RemoteRows, StreamRead, RemoteSourceSeen>;

}  // namespace dch

#endif  // DCH_CORE_CHANGE_H
