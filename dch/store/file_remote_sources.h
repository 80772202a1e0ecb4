// file_remote_sources.h: the handles of sources of other sites in the file.
#ifndef DCH_STORE_FILE_REMOTE_SOURCES_H
#define DCH_STORE_FILE_REMOTE_SOURCES_H

#include "dch/store/remote_source_table.h"
#include "dch/store/sqlite.h"

namespace dch {

class FileRemoteSources : public RemoteSourceTable {
 public:
  explicit FileRemoteSources(sqlite::Connection& connection);

  ZORA_Long find(const RemoteNames& names) override;
  ZORA_Long add(const RemoteNames& names) override;
  std::size_t count() override;
  std::size_t countOf(std::string_view site) override;
  std::size_t countGroupsOf(std::string_view site) override;

 private:
  sqlite::Connection& _connection;
  sqlite::Statement _find;
  sqlite::Statement _add;
  sqlite::Statement _countAll;
  sqlite::Statement _countOfSite;
  sqlite::Statement _countGroups;
};

}  // namespace dch

#endif  // DCH_STORE_FILE_REMOTE_SOURCES_H
