#include "dch/web/earlier_numbers.h"

#include <gtest/gtest.h>

#include <map>
#include <optional>

#include "dch/testkit/messages.h"
#include "dch/testkit/registry_changes.h"

namespace dch {
namespace {

using Numbers = std::map<std::string, std::int64_t>;

class EarlierNumbersTest : public testing::Test {
 protected:
  EarlierNumbersTest() {
    testkit::registerText(_registry,
                          "appl:A,KEY;group:g;attr:a,N,4;attr:b,N,4;attr:c,N,4;attr:t,T,9;");
    testkit::goOnline(_registry, {"A", "g", "s"});
  }

  void take(const std::vector<testkit::Value>& values) {
    const std::string message = testkit::dataMessage(1, values);
    _earlier.take(*_registry.findSource(1), message, _former);
    _former = message;
  }
  Numbers earlier() const {
    Numbers numbers;
    if (const auto* const known = _earlier.find(1))
      for (const NamedNumber& each : *known) numbers[each.name] = each.value;
    return numbers;
  }

  static testkit::Value number(const std::string& name, std::int32_t value) {
    return {name, 'G', testkit::bytesOf(value)};
  }

  Registry _registry;
  EarlierNumbers _earlier;
  std::string _former;
};

TEST_F(EarlierNumbersTest, KnowsTheNewestNumberOfWhatTheNewestRowDoesNotHave) {
  take({number("a", 1)});
  EXPECT_EQ(earlier(), Numbers());
  take({number("b", 2)});
  EXPECT_EQ(earlier(), (Numbers{{"a", 1}}));
  take({number("b", 3)});
  EXPECT_EQ(earlier(), (Numbers{{"a", 1}})) << "the same attributes again";
  take({number("c", 4), {"t", 'T', std::string("text", 5)}});
  EXPECT_EQ(earlier(), (Numbers{{"a", 1}, {"b", 3}}));
  take({number("a", 5)});
  EXPECT_EQ(earlier(), (Numbers{{"b", 3}, {"c", 4}})) << "and no text";
  take({});
  EXPECT_EQ(earlier(), (Numbers{{"a", 5}, {"b", 3}, {"c", 4}}));
}

TEST_F(EarlierNumbersTest, ForgetsThemWithARowThatHasAll) {
  take({number("a", 1)});
  take({number("b", 2)});
  take({number("a", 3), number("b", 4), number("c", 5), {"t", 'T', std::string("x", 2)}});
  EXPECT_TRUE(_earlier.isEmpty());
  take({number("c", 6)});
  EXPECT_EQ(earlier(), (Numbers{{"a", 3}, {"b", 4}}));
  _earlier.forget(1);
  EXPECT_TRUE(_earlier.isEmpty());
}

}  // namespace
}  // namespace dch
