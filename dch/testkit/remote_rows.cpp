#include "dch/testkit/remote_rows.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <sstream>
#include <utility>

#include "dch/core/epoch.h"
#include "dch/testkit/store_test.h"

namespace dch::testkit {

namespace {

std::string hexOf(const std::string& bytes) {
  std::string text;
  for (const char byte : bytes) {
    char digits[3];
    std::snprintf(digits, sizeof digits, "%02X",
                  static_cast<unsigned>(static_cast<unsigned char>(byte)));
    text += digits;
  }
  return text;
}

unsigned below(std::mt19937* random, unsigned end) {
  return static_cast<unsigned>((*random)() % end);
}

}  // namespace

RemoteRow remoteRow(const RowName& name, const std::string& application, const std::string& group,
                    const std::string& source, const std::vector<Value>& values) {
  return {name, name.number, application, group, source, dataMessage(7, values)};
}

Epoch epochOf(std::uint32_t number) {
  Epoch epoch;
  epoch.bytes.fill(0xE0);
  std::memcpy(epoch.bytes.data(), &number, sizeof number);
  return epoch;
}

void RemoteModel::apply(const Change& change) {
  if (const auto* const rows = std::get_if<RemoteRows>(&change))
    apply(*rows);
  else if (const auto* const read = std::get_if<StreamRead>(&change))
    _stream = *read;
}

void RemoteModel::apply(const RemoteRows& change) {
  for (const RemoteRow& row : change.rows) {
    Known& known = _known[epochText(row.name.epoch)];
    if (row.name.number <= known.number) continue;
    known = {change.site, row.name.number, ++_changes};
    _rows.push_back(change.site + " " + row.application + "." + row.group + "/" + row.source + " " +
                    std::to_string(row.time) + " " + hexOf(row.message));
    _times.push_back(row.time);
  }
  for (auto each = change.known.rbegin(); each != change.known.rend(); ++each) {
    Known& known = _known[epochText(each->epoch)];
    known = {change.site, std::max(known.number, each->number), ++_changes};
  }
  _passedFrom[change.site] = change.passedFrom;
}

std::string RemoteModel::places() const {
  RemotePlaces found;
  for (const auto& [name, passedFrom] : _passedFrom) {
    RemotePlaces::Site site{name, {}, passedFrom};
    std::vector<std::pair<std::int64_t, RowName>> known;
    for (const auto& [epoch, each] : _known)
      if (each.site == name) known.push_back({each.changed, {*parseEpoch(epoch), each.number}});
    std::sort(known.begin(), known.end(),
              [](const auto& left, const auto& right) { return left.first > right.first; });
    for (const auto& [changed, each] : known) site.known.push_back(each);
    found.sites.push_back(std::move(site));
  }
  found.stream = _stream;
  return textOf(found);
}

std::string textOf(const RemotePlaces& places) {
  std::string text;
  for (const RemotePlaces::Site& site : places.sites) {
    text += site.name + " " + (site.passedFrom ? std::to_string(*site.passedFrom) : "-");
    for (const RowName& each : site.known)
      text += " " + epochText(each.epoch).substr(0, 8) + ":" + std::to_string(each.number);
    text += "\n";
  }
  return text + "stream '" + places.stream.stream + "' " + std::to_string(places.stream.sequence);
}

std::vector<std::string> remoteRowsInFile(const std::string& path) {
  std::string sql;
  std::istringstream tables(query(
      path, "SELECT name FROM sqlite_schema WHERE type = 'table' AND name GLOB 'remote_rows_*'"));
  for (std::string table; std::getline(tables, table);)
    sql += std::string(sql.empty() ? "" : " UNION ALL ") +
           "SELECT number, s.site || ' ' || a.name || '.' || g.name || '/' || s.name || ' ' || "
           "time_us || ' ' || hex(message) AS row FROM " +
           table +
           " AS r JOIN remote_sources AS s ON s.handle = r.handle JOIN known_groups AS g ON "
           "'remote_rows_' || g.id = '" +
           table +
           "' AND g.name = s.\"group\" JOIN known_applications AS a ON a.id = g.application AND "
           "a.name = s.application";
  if (sql.empty()) return {};
  std::istringstream lines(query(path, "SELECT row FROM (" + sql + ") ORDER BY number"));
  std::vector<std::string> rows;
  for (std::string line; std::getline(lines, line);) rows.push_back(line);
  return rows;
}

Change RandomSites::make(std::mt19937* random, Time time) {
  if (below(random, 4) == 0)
    return StreamRead{"stream" + std::to_string(below(random, 2)), below(random, 1'000)};
  const unsigned number = below(random, 3);
  Site& site = _sites[number];
  RemoteRows change{"site" + std::to_string(number), {}, {}, std::nullopt};
  for (unsigned count = below(random, 12); count > 0; --count) {
    if (!site.sent.empty() && below(random, 8) == 0)
      change.rows.push_back(site.sent[below(random, static_cast<unsigned>(site.sent.size()))]);
    else
      change.rows.push_back(next(&site, random, time));
  }
  if (below(random, 3) == 0) {
    site.last.number += below(random, 3);
    change.known.push_back(site.last);
    if (below(random, 2) == 0) change.known.push_back({epochOf(++_epochs), 4711});
  }
  if (below(random, 2) == 0) change.passedFrom = below(random, 1'000);
  return change;
}

// Some are of groups that the server itself has, or is going to have.
RemoteRow RandomSites::next(Site* site, std::mt19937* random, Time time) {
  if (site->last.number == 0 || below(random, 10) == 0) site->last = {epochOf(++_epochs), 0};
  site->last.number += 1 + below(random, 3);
  std::vector<Value> values = {{"a", 'N', bytesOf(static_cast<std::int32_t>(site->last.number))}};
  if (below(random, 3) == 0)
    values.push_back({"x" + std::to_string(below(random, 14)), 'D', std::string("text\0", 5)});
  RemoteRow row = remoteRow(
      site->last, (below(random, 3) == 0 ? "OTHER" : "APPL") + std::to_string(below(random, 2)),
      "g" + std::to_string(below(random, 3)), "source" + std::to_string(below(random, 3)), values);
  row.time = time;
  if (below(random, 10) == 0) row.message.resize(below(random, 30));
  site->sent.push_back(row);
  return row;
}

}  // namespace dch::testkit
