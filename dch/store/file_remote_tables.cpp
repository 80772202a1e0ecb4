#include "dch/store/file_remote_tables.h"

#include <string>

#include "dch/store/epoch_table.h"

namespace dch {

FileRemoteTables::FileRemoteTables(sqlite::Connection& connection, Providers& providers)
    : _providers(providers),
      _findEpoch(connection, "SELECT number FROM remote_epochs WHERE site = ? AND epoch = ?"),
      _setEpoch(connection, "INSERT OR REPLACE INTO remote_epochs VALUES (?, ?, ?, ?)"),
      _forgetEpochs(connection,
                    "DELETE FROM remote_epochs WHERE site = ?1 AND changed <= (SELECT changed FROM "
                    "remote_epochs WHERE site = ?1 ORDER BY changed DESC LIMIT 1 OFFSET " +
                        std::to_string(mostKnownEpochs) + ")"),
      _setSite(connection, "INSERT OR REPLACE INTO remote_sites VALUES (?, ?)"),
      _setStream(connection, "UPDATE stream_read SET stream = ?, sequence = ?") {}

std::optional<std::int64_t> FileRemoteTables::findEpoch(std::string_view site, const Epoch& epoch) {
  _findEpoch.bindText(1, site);
  bindEpoch(_findEpoch, 2, epoch);
  std::optional<std::int64_t> number;
  if (_findEpoch.step()) number = _findEpoch.number(0);
  _findEpoch.reset();
  return number;
}

void FileRemoteTables::setEpoch(std::string_view site, const RowName& known, std::int64_t changed) {
  _setEpoch.bindText(1, site);
  bindEpoch(_setEpoch, 2, known.epoch);
  _setEpoch.bind(3, known.number).bind(4, changed).run();
}

void FileRemoteTables::forgetEpochs(std::string_view site) {
  _forgetEpochs.bindText(1, site).run();
}

void FileRemoteTables::setSite(std::string_view site,
                               const std::optional<std::uint64_t>& passedFrom) {
  _setSite.bindText(1, site);
  if (passedFrom)
    _setSite.bind(2, static_cast<std::int64_t>(*passedFrom));
  else
    _setSite.bindNull(2);
  _setSite.run();
}

void FileRemoteTables::setStream(const StreamRead& read) {
  _setStream.bindText(1, read.stream).bind(2, static_cast<std::int64_t>(read.sequence)).run();
}

}  // namespace dch
