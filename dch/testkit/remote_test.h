// remote_test.h: a store in which rows of other sites are kept.
#ifndef DCH_TESTKIT_REMOTE_TEST_H
#define DCH_TESTKIT_REMOTE_TEST_H

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "dch/store/remote_places.h"
#include "dch/testkit/remote_rows.h"
#include "dch/testkit/store_test.h"

namespace dch::testkit {

class RemoteTest : public StoreTest {
 protected:
  // Of site s, epoch 1, in A.g.
  static RemoteRow row(std::int64_t number, const std::string& source = "host1",
                       const std::vector<Value>& values = {}) {
    return remoteRow({epochOf(1), number}, "A", "g", source, values);
  }
  static RemoteRow rowOf(const std::string& application, const std::string& group,
                         std::int64_t number, const std::vector<Value>& values = {}) {
    return remoteRow({epochOf(1), number}, application, group, "host1", values);
  }
  static RemoteRows rows(std::vector<RemoteRow> rows, const std::string& site = "s") {
    return {site, std::move(rows), {}, std::nullopt};
  }
  static Value number(const std::string& name, std::int32_t number) {
    return {name, 'N', bytesOf(number)};
  }

  RemotePlaces readPlaces() const {
    return readRemotePlaces([this] { return _store->places(); });
  }
  std::string places() const { return textOf(readPlaces()); }
  std::string columns(const std::string& view) const {
    return read("SELECT group_concat(name) FROM pragma_table_info('" + view + "')");
  }
  // Of the rows of the view, by their times, which are unique in these tests.
  std::string show(const std::string& columns, const std::string& view = "A.g") const {
    return read("SELECT " + columns + " FROM \"" + view + "\" ORDER BY time_us");
  }
};

}  // namespace dch::testkit

#endif  // DCH_TESTKIT_REMOTE_TEST_H
