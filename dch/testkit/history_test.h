// history_test.h: a store, and the history that reads its file meanwhile.
#ifndef DCH_TESTKIT_HISTORY_TEST_H
#define DCH_TESTKIT_HISTORY_TEST_H

#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "dch/store/rows_query.h"
#include "dch/store/thinned_query.h"
#include "dch/testkit/store_test.h"

namespace dch::testkit {

class HistoryTest : public StoreTest {
 protected:
  static constexpr Time second = 1'000'000;

  // A group APPL.g of these attributes, with sources host1 and host2 of handles 1 and 2.
  void begin(const std::string& attributes = "attr:n,N,8;",
             const SqliteStoreSettings& settings = {}) {
    start(settings);
    ASSERT_TRUE(keep(registered("appl:APPL,KEY;group:g;" + attributes)));
    ASSERT_TRUE(keep(WentOnline{"APPL", "g", "host1", 1}));
    ASSERT_TRUE(keep(WentOnline{"APPL", "g", "host2", 2}));
  }
  // To make a message takes longer than all that is done with it.
  void appendRow(ZORA_Long handle, Time time, std::int64_t n) {
    static const std::string number = "numberof";
    std::string& message = _messages[handle];
    if (message.empty()) message = dataMessage(handle, {{"n", 'N', number}});
    Row row{handle, time, message};
    row.message.replace(message.find(number), number.size(), bytesOf(n));
    append(std::move(row));
  }

  HistoryGroup group() {
    const std::optional<std::int64_t> application = _history.findApplication("APPL");
    const auto found = application ? _history.findGroup(*application, "g") : std::nullopt;
    EXPECT_TRUE(found);
    return found.value_or(HistoryGroup());
  }

  static std::string textOf(const AttributeValue& value) {
    switch (value.kind) {
      case AttributeValue::Kind::number:
        return std::to_string(value.number);
      case AttributeValue::Kind::text:
        return "'" + std::string(value.bytes) + "'";
      case AttributeValue::Kind::bytes:
        return "x'" + std::string(value.bytes) + "'";
      case AttributeValue::Kind::none:
        break;
    }
    return "null";
  }
  static std::string textOf(const HistoryRow& row) {
    std::string text = std::to_string(row.time) + " " + std::string(row.source) + " " +
                       std::to_string(row.handle) + " " + std::to_string(row.code);
    for (const AttributeValue& value : row.values) text += " " + textOf(value);
    return text;
  }

  // All rows, of which a step takes some at most.
  static std::vector<std::string> rowsOf(RowsQuery&& query, int mostOfStep = 1'000'000,
                                         History::Clock::duration time = historyStepTime) {
    std::vector<std::string> rows;
    int taken = 0;
    const auto take = [&](const HistoryRow& row) {
      rows.push_back(textOf(row));
      return ++taken < mostOfStep;
    };
    while (query.step(take, time)) taken = 0;
    return rows;
  }

  std::map<ZORA_Long, std::string> _messages;  // with a number to be replaced
  History _history{[this] { return _store->places(); }};
};

}  // namespace dch::testkit

#endif  // DCH_TESTKIT_HISTORY_TEST_H
