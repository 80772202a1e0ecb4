// incoming_rows.h: which rows of a site a hub keeps.
#ifndef DCH_LINK_INCOMING_ROWS_H
#define DCH_LINK_INCOMING_ROWS_H

#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <vector>

#include "dch/core/change.h"
#include "dch/link/passed_rows.h"
#include "dch/link/row_fetch.h"
#include "dch/link/row_header.h"

namespace dch {

// Decides of the rows of ONE site which are kept, so that each row that is in the stream or in the
// site's file is kept once, those of an epoch in their order, though the stream loses, doubles and
// reorders rows and has some that the site has lost. Knows no clock, no thread and no network.
//
// A row is kept when all before it is known. What comes from the stream behind a hole is passed
// over, and stays there. Then the site is asked for what it has, and the stream is read again, up
// to its end. What is in neither is nowhere to be had: another reading takes the rows behind that
// hole. The site has to answer for that; until then nothing is taken across a hole. While there are
// several servers of its name, none of them knows what the files of the others have.
//
// The site tells what is in its file now. Between two rows that it tells one after the other there
// may have been some that it has removed since, and these may still be in the stream. So a row that
// it tells is not taken with its number leaving out some, unless the stream is known to have none
// of them.
class IncomingRows {
 public:
  // To be kept together with the rows, in one transaction.
  struct State {
    // The highest number of each epoch up to which all rows are known: they are kept, or were
    // nowhere to be had. What was changed last comes first; mostKnownEpochs at most.
    std::vector<RowName> have;
    // The sequence in the stream from which on rows may have been passed over.
    std::optional<std::uint64_t> passedFrom;
  };

  // Of which more is noted than where the first one is: whoever makes up others takes no time.
  static constexpr std::size_t mostPassedEpochs = 64;

  explicit IncomingRows(State state = {}, std::size_t passedEpochs = mostPassedEpochs);

  // The first reader's: it reads the rows of all sites, in the stream's order. This and the two
  // below return whether the row is to be kept, now.
  bool fromStream(std::uint64_t sequence, const RowHeader& row);
  // The second reader's.
  bool again(std::uint64_t sequence, const RowHeader& row);
  // The site's, of its answer to the last request alone, in the order in which they are sent. It
  // does not matter if some get lost.
  bool fetched(const RowHeader& row);

  enum class Wants { nothing, fetch, reread };
  Wants wants() const;

  // The site is to be asked for what it has beyond these, mostFetchNames at most. Wanted, or
  // because it was quiet for a while, as the stream may have lost the last row: then nothing is
  // wanted or under way, and the first reader is at the stream's end. A request is under way until
  // its end, or failure.
  std::vector<RowName> beginFetch();
  // `isAlone`: there is no other server of the site's name than that which has answered. Returns
  // whether the answer was good; if not, this was fetchFailed().
  bool fetchEnded(const FetchEnd& end, bool isAlone);
  // There was no end of an answer, or not in time. The next request is to come after a pause.
  void fetchFailed();

  // Wanted: a second reader is to read this site's rows in the stream from the sequence that is
  // returned up to the end that the stream has now, and no less far than the first has come.
  std::uint64_t beginReread();
  void rereadEnded();
  // It has to begin anew.
  void rereadFailed();

  // Rows behind a hole are there, and the site has not what is missing, on the word of one of
  // several servers: another question only helps when that has changed.
  bool waitsForOne() const { return _waitsForOne; }

  // Since the last answer, which was good: all rows that the site had when it gave it are known.
  bool hasAll() const { return _phase == Phase::following && _toldBelow == all; }

  // The stream was lost and made again: its sequences begin again, and so does the first reader.
  void streamBeganAnew();

  const State& state() const { return _state; }
  // Rows of the stream that were taken across a hole. What the site removed before anybody had it
  // is not among that: numbers are left out where it kept something else, too.
  std::uint64_t gaps() const { return _gaps; }

 private:
  enum class Phase { following, toFetch, fetching, toReread, rereading };

  static constexpr std::int64_t all = std::numeric_limits<std::int64_t>::max();

  std::int64_t knownUpTo(const Epoch& epoch) const;
  bool knows(const RowName& name) const { return knownUpTo(name.epoch) >= name.number; }
  bool fits(const RowHeader& row) const { return knows(row.previous); }
  bool mayLeaveOut(const RowHeader& row) const;
  bool isToldOf(const RowName& name) const;
  void readAgainIfUseful(bool mayTakeAcross);
  bool isNextAcross(const RowName& name);
  bool keep(const RowName& name);
  void setKnown(const RowName& name);
  void forgetOldest();
  void passOver(std::uint64_t sequence, const RowHeader& row);

  State _state;
  std::uint64_t _gaps = 0;
  Phase _phase;
  PassedRows _passed;
  bool _isPassedComplete = false;  // no row in the stream is unknown but those in _passed
  bool _hasKept = true;            // some since the last reading again began: others may fit now

  // The last request.
  PassedRows _passedBefore;  // before it
  std::uint64_t _rowsFetched = 0;
  bool _isRowMissing = false;
  std::int64_t _toldBelow = 0;  // all rows in the file with lower numbers were told
  bool _isOfOne = false;        // the file is that of the site's one server

  bool _waitsForOne = false;
  PassedRows _across;  // these may be taken across the holes before them, the lowest first
};

}  // namespace dch

#endif  // DCH_LINK_INCOMING_ROWS_H
