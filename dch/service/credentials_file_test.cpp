#include "dch/service/credentials_file.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "dch/service/configuration_error.h"
#include "tests/support/temporary_files.h"

namespace dch {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class CredentialsFileTest : public ::testing::Test {
 protected:
  LinkUser readText(const std::string& text) {
    _file.write(text);
    chmod(_file.path().c_str(), 0600);
    return readCredentialsFile(_file.path(), &_warnings);
  }
  std::string problemOf(const std::string& text) {
    try {
      readText(text);
      return "no error";
    } catch (const ConfigurationError& error) {
      return error.what();
    }
  }

  const TemporaryFile _file{"", "credentials"};
  std::vector<std::string> _warnings;
};

TEST_F(CredentialsFileTest, HasUserAndPasswordInItsOnlyLine) {
  EXPECT_EQ(readText("west:secret\n"), (LinkUser{"west", "secret"}));
  EXPECT_EQ(readText("west:secret"), (LinkUser{"west", "secret"}));
  EXPECT_EQ(readText("west: a:b \r\n"), (LinkUser{"west", " a:b "}));
  EXPECT_THAT(_warnings, IsEmpty());
}

TEST_F(CredentialsFileTest, IsRefusedWhenSomethingIsMissingOrTooMuch) {
  EXPECT_EQ(problemOf(""), _file.path() + ": there is no user and password in it");
  for (const std::string text : {"west", ":secret", "west:", "a:b\nc:d\n", "\nwest:secret\n"})
    EXPECT_EQ(problemOf(text), _file.path() + ": it has to be one line, USER:PASSWORD") << text;
  EXPECT_EQ(problemOf(std::string("a:\0b", 4)),
            _file.path() + ": it has to be one line, USER:PASSWORD");
}

TEST_F(CredentialsFileTest, OthersBeingAbleToReadItIsWarnedOf) {
  readText("west:secret\n");
  chmod(_file.path().c_str(), 0644);
  readCredentialsFile(_file.path(), &_warnings);
  EXPECT_THAT(_warnings, ElementsAre(_file.path() +
                                     ": everybody on this machine may read the user and password"));
}

}  // namespace
}  // namespace dch
