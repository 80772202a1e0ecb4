// remote_tables.h: rows and sources of other sites in the database, and how far they are known.
#ifndef DCH_POSTGRES_REMOTE_TABLES_H
#define DCH_POSTGRES_REMOTE_TABLES_H

#include "dch/postgres/groups.h"
#include "dch/store/remote_source_table.h"
#include "dch/store/remote_tables.h"

namespace dch::pg {

class RemoteSourceRows : public dch::RemoteSourceTable {
 public:
  explicit RemoteSourceRows(Connection& connection);

  ZORA_Long find(const RemoteNames& names) override;
  ZORA_Long add(const RemoteNames& names) override;
  std::size_t count() override;
  std::size_t countOf(std::string_view site) override;
  std::size_t countGroupsOf(std::string_view site) override;

 private:
  std::size_t countIn(std::string_view sql, std::string_view site);

  Connection& _connection;
  std::int64_t _highest;
  std::string _key;
};

// After a transaction that did not succeed both are made anew.
class RemotePlaceTables : public dch::RemoteTables {
 public:
  // `groups` outlive it.
  RemotePlaceTables(Connection& connection, Groups& groups)
      : _connection(connection), _groups(groups) {}

  void makeRoomFor(std::vector<const RemoteRow*>* rows,
                   const std::function<std::size_t()>& mostNew) override {
    _groups.makeRoomFor(rows, mostNew);
  }
  RemoteRowSink& enter(const RemoteRow& row,
                       const std::vector<std::string_view>& attributes) override {
    return _groups.enter(row, attributes);
  }
  void defineEntered() override { _groups.defineEntered(); }

  std::optional<std::int64_t> findEpoch(std::string_view site, const Epoch& epoch) override;
  void setEpoch(std::string_view site, const RowName& known, std::int64_t changed) override;
  void forgetEpochs(std::string_view site) override;
  void setSite(std::string_view site, const std::optional<std::uint64_t>& passedFrom) override;
  void setStream(const StreamRead& read) override;

 private:
  Connection& _connection;
  Groups& _groups;
};

// The bytes of an epoch in the database.
std::string_view bytesOf(const Epoch& epoch);
// Throws Error when they are none.
Epoch epochOf(std::string_view bytes);

}  // namespace dch::pg

#endif  // DCH_POSTGRES_REMOTE_TABLES_H
