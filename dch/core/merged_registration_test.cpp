#include "dch/core/merged_registration.h"

#include <gtest/gtest.h>

#include <string>

#include "dch/testkit/registry_changes.h"

namespace dch {
namespace {

using testkit::registrationOf;

class MergedRegistrationTest : public ::testing::Test {
 protected:
  void add(const std::string& text) { _registrations.push_back(registrationOf(text)); }

  std::vector<const suite::Registration*> all() const {
    std::vector<const suite::Registration*> all;
    for (const suite::Registration& each : _registrations) all.push_back(&each);
    return all;
  }

  // "group:attribute letter size help;..." of each group.
  std::string groups() const {
    std::string text;
    for (const MergedGroup& group : mergedGroups(all())) {
      text.append(group.name).append(":");
      for (const suite::RegisteredAttribute* each : group.attributes)
        text += each->name + ' ' + each->letter + ' ' + std::to_string(each->size) + ' ' +
                each->help + ';';
    }
    return text;
  }

  std::vector<suite::Registration> _registrations;
};

TEST_F(MergedRegistrationTest, TheFirstGoesBeforeTheOthers) {
  add("appl:A,KEY;type:SOCK;group:g;attr:a,D,16,one;attr:b,N,4;");
  add("appl:A,OTH;type:NODP;help:of the second;group:h;attr:x,C,1;group:g;attr:c,I,2;attr:a,T,9;");
  add("appl:A,THI;help:of the third;group:h;attr:x,C,2;attr:y,C,1;");
  EXPECT_EQ(groups(), "g:a D 16 one;b N 4 ;c I 2 ;h:x C 1 ;y C 1 ;");
  EXPECT_EQ(mergedGroupNames(all()), (std::vector<std::string_view>{"g", "h"}));
  EXPECT_EQ(mergedHelp(all()), "of the second");
}

TEST_F(MergedRegistrationTest, OneStaysAsItIs) {
  add("appl:A,KEY;type:SOCK;help:h;group:g;attr:a,D,16,one;group:b;attr:b,N,4;");
  EXPECT_EQ(mergedHelp(all()), "h");
  EXPECT_EQ(groups(), "g:a D 16 one;b:b N 4 ;");
  EXPECT_EQ(mergedGroupNames(all()), (std::vector<std::string_view>{"g", "b"}));
}

}  // namespace
}  // namespace dch
