// file_remote_tables.h: rows of other sites in the file, and how far they are known.
#ifndef DCH_STORE_FILE_REMOTE_TABLES_H
#define DCH_STORE_FILE_REMOTE_TABLES_H

#include "dch/store/providers.h"
#include "dch/store/remote_tables.h"
#include "dch/store/sqlite.h"

namespace dch {

// After a transaction that did not succeed it is made anew.
class FileRemoteTables : public RemoteTables {
 public:
  // `providers` outlive it.
  FileRemoteTables(sqlite::Connection& connection, Providers& providers);

  void makeRoomFor(std::vector<const RemoteRow*>* rows,
                   const std::function<std::size_t()>& mostNew) override {
    _providers.makeRoomFor(rows, mostNew);
  }
  RemoteRowSink& enter(const RemoteRow& row,
                       const std::vector<std::string_view>& attributes) override {
    return _providers.enter(row, attributes);
  }
  void defineEntered() override { _providers.defineEntered(); }

  std::optional<std::int64_t> findEpoch(std::string_view site, const Epoch& epoch) override;
  void setEpoch(std::string_view site, const RowName& known, std::int64_t changed) override;
  void forgetEpochs(std::string_view site) override;
  void setSite(std::string_view site, const std::optional<std::uint64_t>& passedFrom) override;
  void setStream(const StreamRead& read) override;

 private:
  Providers& _providers;
  sqlite::Statement _findEpoch;
  sqlite::Statement _setEpoch;
  sqlite::Statement _forgetEpochs;
  sqlite::Statement _setSite;
  sqlite::Statement _setStream;
};

}  // namespace dch

#endif  // DCH_STORE_FILE_REMOTE_TABLES_H
