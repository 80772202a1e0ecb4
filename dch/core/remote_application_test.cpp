#include "dch/core/remote_application.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "dch/testkit/registry_changes.h"

namespace dch {
namespace {

class RemoteApplicationTest : public ::testing::Test {
 protected:
  RemoteApplication::Shared* add(const std::string& text) {
    RemoteApplication::Shared* const shared = _application.enter(
        std::make_shared<const suite::Registration>(testkit::registrationOf(text)));
    ++shared->sites;
    return shared;
  }

  // One of a group of this name, as long as this.
  void addLong(const std::string& group, std::size_t bytes) {
    std::string text = "appl:A,KEY;group:" + group + ";";
    for (int i = 0; text.size() < bytes; ++i)
      text += "attr:a" + std::to_string(i) + ",D,9," + std::string(100, 'h') + ";";
    add(text);
  }

  std::string groups() const {
    std::string text;
    for (const std::string_view group : _application.groupNames()) text.append(group).append(" ");
    return text;
  }

  RemoteApplication _application{"A"};
};

TEST_F(RemoteApplicationTest, TellsWhatItsSitesHaveInTheOrderOfTheTexts) {
  RemoteApplication::Shared* const last = add("appl:A,KEY;group:h;attr:a,C,1;");
  RemoteApplication::Shared* const first = add("appl:A,KEY;group:g;attr:a,C,1;");
  EXPECT_EQ(groups(), "g h ");
  EXPECT_EQ(&_application.first(), first->registration.get());
  EXPECT_FALSE(_application.hasOnly(first->registration->text));
  EXPECT_EQ(add("appl:A,KEY;group:g;attr:a,C,1;"), first) << "two sites have it";
  _application.remove(first);
  EXPECT_EQ(groups(), "g h ");
  _application.remove(first);
  EXPECT_EQ(groups(), "h ");
  EXPECT_TRUE(_application.hasOnly(last->registration->text));
  _application.remove(last);
  EXPECT_FALSE(_application.isRegistered());
}

TEST_F(RemoteApplicationTest, OfVeryManyRegistrationsTellsTheFirst) {
  for (std::size_t i = 0; i < RemoteApplication::mostToMerge + 5; ++i)
    add("appl:A,KEY;group:g" + std::to_string(i) + ";attr:a,C,1;");
  EXPECT_EQ(_application.registrations().size(), RemoteApplication::mostToMerge);
  EXPECT_EQ(_application.groupNames().size(), RemoteApplication::mostToMerge);
}

TEST_F(RemoteApplicationTest, OfVeryLongRegistrationsTellsTheFirst) {
  for (const char* group : {"g", "h", "i"})
    addLong(group, RemoteApplication::mostBytesToMerge / 2 - 200);
  EXPECT_EQ(groups(), "g h ");
}

TEST_F(RemoteApplicationTest, TellsTheFirstRegistrationHoweverLongItIs) {
  addLong("g", RemoteApplication::mostBytesToMerge + 1);
  add("appl:A,KEY;group:h;attr:a,C,1;");
  EXPECT_EQ(groups(), "g ");
}

}  // namespace
}  // namespace dch
