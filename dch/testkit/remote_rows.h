// remote_rows.h: rows of other sites, and what a store is to have of them.
#ifndef DCH_TESTKIT_REMOTE_ROWS_H
#define DCH_TESTKIT_REMOTE_ROWS_H

#include <cstdint>
#include <map>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "dch/core/change.h"
#include "dch/store/remote_places.h"
#include "dch/testkit/messages.h"

namespace dch::testkit {

// As a site sends it. Its time is its number.
RemoteRow remoteRow(const RowName& name, const std::string& application, const std::string& group,
                    const std::string& source, const std::vector<Value>& values = {});
// Another one for each number.
Epoch epochOf(std::uint32_t number);

// What a store has of other sites after a number of changes.
class RemoteModel {
 public:
  void apply(const Change& change);

  // As of remoteRowsInFile.
  const std::vector<std::string>& rows() const { return _rows; }
  // Their times.
  const std::vector<Time>& times() const { return _times; }
  // As textOf() says it.
  std::string places() const;

 private:
  struct Known {
    std::string site;
    std::int64_t number = 0;
    std::int64_t changed = 0;
  };

  void apply(const RemoteRows& change);

  std::vector<std::string> _rows;
  std::vector<Time> _times;
  std::int64_t _changes = 0;
  std::map<std::string, Known> _known;  // of the text of an epoch
  std::map<std::string, std::optional<std::uint64_t>> _passedFrom;
  StreamRead _stream;
};

std::string textOf(const RemotePlaces& places);

// The rows of other sites in the order of their numbers: site, names, time, message.
std::vector<std::string> remoteRowsInFile(const std::string& path);

// Rows of some sites as they come to a hub: of several runs of theirs, some of them again, some
// that are no rows at all.
class RandomSites {
 public:
  Change make(std::mt19937* random, Time time);

 private:
  struct Site {
    RowName last;
    std::vector<RemoteRow> sent;
  };

  RemoteRow next(Site* site, std::mt19937* random, Time time);

  std::map<unsigned, Site> _sites;
  std::uint32_t _epochs = 0;
};

}  // namespace dch::testkit

#endif  // DCH_TESTKIT_REMOTE_ROWS_H
