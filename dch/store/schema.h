// schema.h: what is in the file of a state.
//
//   state              one line: the highest position that was in use when it was written, and from
//                      which row on `newest_rows` does not know the rows
//   known_...          the providers as the registry knows them. The `place` of a group is null
//                      when it is not registered, and has_remote_rows once it has a table of
//                      those, whether or not there are any now
//   newest_rows        the newest row of each source that has sent one
//   rows_N             the rows of the group with that ID: the message as it came, and a column
//                      `vN` for each attribute that the group ever had
//   clock_steps        the numbers of the rows before which the clock was set back
//   epochs             from which position on the changes are of which run of a server (epoch.h)
//   publishing         one line: the rows up to this position were published, and which row was the
//                      last that retention has removed unpublished
//   kept_actions, kept_deferrals
//
// and, empty unless the server keeps rows of other sites, too:
//
//   remote_sources     their sources by their names, whose handles are their own (core/handles.h),
//                      whether or not there are rows of theirs
//   remote_rows_N      the rows of other sites of the group with that ID, with the columns of
//                      rows_N and an index by time. A group that is not registered here is among
//                      the known ones all the same
//   remote_epochs      up to which number the rows of which run of another server are known, and
//                      the position at which that was changed
//   remote_sites       from where on the stream has rows of a site that were passed over
//   stream_read        one line: how far the stream was read
//
// Positions count all changes in the order in which they were kept. A position never comes to mean
// another change that somebody could have seen, unless the file goes back to what it was: with its
// epoch it does not even then.
//
// People and programs that read the file use the views: `applications`, `sources`, `actions`,
// `deferrals` and one for each group (group_view.h).
#ifndef DCH_STORE_SCHEMA_H
#define DCH_STORE_SCHEMA_H

#include <string>
#include <string_view>

#include "dch/store/sqlite.h"

namespace dch {

// Of the file, in its header.
inline constexpr int stateFileId = 0x5A444348;
inline constexpr int newestSchema = 4;

// Brings the file from an older version to the newest one; 0 is an empty file. Each step is in a
// transaction with its version number.
void upgradeSchema(sqlite::Connection& connection, int version);

// A time in microseconds since 1970 as a text in SQL.
std::string timeText(std::string_view microseconds);

}  // namespace dch

#endif  // DCH_STORE_SCHEMA_H
