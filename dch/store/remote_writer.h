// remote_writer.h: writes rows of other sites into the store, and how far they are known.
#ifndef DCH_STORE_REMOTE_WRITER_H
#define DCH_STORE_REMOTE_WRITER_H

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "dch/core/change.h"
#include "dch/store/remote_sources.h"
#include "dch/store/remote_tables.h"

namespace dch {

// Writes in the transaction of its caller; after one that did not succeed it is made anew. One
// thread at a time.
class RemoteWriter {
 public:
  // Both outlive it.
  RemoteWriter(RemoteTables& tables, RemoteSourceTable& sources)
      : _tables(tables), _sources(sources) {}

  // So many groups that a site may bring: who makes them up leaves room for those of others.
  static constexpr std::size_t mostGroupsOfSite = 500;

  // Each row is written at a position of its own, the next one. Those for whose groups or sources
  // there is no room are refused: they are known then, and nowhere in the store.
  void write(const RemoteRows& change, const std::function<std::int64_t()>& usePosition);
  void write(const StreamRead& change);
  void write(RemoteSourceSeen* change);

  SourcesAdded takeSourcesAdded() { return _sources.takeAdded(); }

  // Rows that were refused since it was asked last.
  struct RowsRefused {
    std::uint64_t rows = 0;
    std::string first;  // whose it is
  };
  RowsRefused takeRowsRefused() { return std::exchange(_refused, {}); }

 private:
  // How far the rows of an epoch are known.
  struct Known {
    Epoch epoch;
    std::int64_t number = 0;
    bool isInStore = false;
    std::int64_t changed = 0;  // the position of it; 0: it is as it is in the store
  };
  // Those of a change: few, and the same one most of the time.
  using KnownEpochs = std::vector<Known>;
  // Where a row belongs.
  struct Place {
    RemoteRowSink* table;
    bool isRow;
  };

  Known& find(KnownEpochs* epochs, std::string_view site, const Epoch& epoch);
  std::vector<const RemoteRow*> newRows(const RemoteRows& change, KnownEpochs* epochs);
  void refuseGroupsWithoutRoom(std::string_view site, std::vector<const RemoteRow*>* rows);
  void refuse(std::string_view site, const RemoteRow& row);
  std::vector<Place> placesOf(const std::vector<const RemoteRow*>& rows);
  void writeEpochs(std::string_view site, const KnownEpochs& epochs);

  RemoteTables& _tables;
  RemoteSources _sources;
  RowsRefused _refused;
};

}  // namespace dch

#endif  // DCH_STORE_REMOTE_WRITER_H
