#include "dch/service/action_list.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <sstream>

#include "dch/service/configuration_error.h"
#include "tests/support/temporary_files.h"

namespace dch {
namespace {

ActionList listOf(const std::string& text) {
  std::istringstream input(text);
  return readActionList(input, "actions.conf");
}

std::string errorOf(const std::string& text) {
  try {
    listOf(text);
    return "no error";
  } catch (const ConfigurationError& error) {
    return error.what();
  }
}

TEST(ActionListTest, ReadsNamesProgramsAndArguments) {
  const ActionList actions = listOf(
      "# what consumers may start\n"
      "\n"
      "restart /usr/bin/systemctl restart  some.service\n"
      "\tflush\t/usr/bin/flush # now and then\r\n"
      "mark /usr/bin/mark a#b");
  EXPECT_EQ(actions.size(), 3u);
  EXPECT_EQ(actions.at("restart"),
            (ActionCommand{"/usr/bin/systemctl", "restart", "some.service"}));
  EXPECT_EQ(actions.at("flush"), ActionCommand{"/usr/bin/flush"});
  EXPECT_EQ(actions.at("mark"), (ActionCommand{"/usr/bin/mark", "a#b"}));
}

TEST(ActionListTest, IsEmptyWithoutLines) {
  EXPECT_TRUE(listOf("").empty());
  EXPECT_TRUE(listOf("# nothing\n").empty());
}

TEST(ActionListTest, SaysWhichLineIsWrongAndWhy) {
  EXPECT_EQ(errorOf("a /a\nb b\n"), "actions.conf:2: program 'b' is not an absolute path");
  EXPECT_EQ(errorOf("\nalone\n"), "actions.conf:2: action 'alone' has no program");
  EXPECT_EQ(errorOf("alone # /a\n"), "actions.conf:1: action 'alone' has no program");
  EXPECT_EQ(errorOf("a /a\na /b\n"), "actions.conf:2: action 'a' is listed twice");
  EXPECT_EQ(errorOf(std::string("a /a\0b\n", 7)), "actions.conf:1: the line holds a zero byte");
}

std::string errorOfFile(const std::string& path) {
  try {
    readActionList(path);
    return "no error";
  } catch (const ConfigurationError& error) {
    return error.what();
  }
}

TEST(ActionListTest, SaysWhyAFileCannotBeRead) {
  EXPECT_EQ(errorOfFile("/nowhere/actions.conf"),
            "/nowhere/actions.conf: No such file or directory");
  EXPECT_EQ(errorOfFile("/"), "/: Is a directory");
}

TEST(ActionListTest, ReadsAFileOfAMegabyteAndNoMore) {
  constexpr char action[] = "a /a\n";
  const TemporaryFile file(action + std::string((1 << 20) - 5, '\n'));
  EXPECT_EQ(readActionList(file.path()).size(), 1u);
  file.write(action + std::string((1 << 20) - 4, '\n'));
  EXPECT_EQ(errorOfFile(file.path()),
            file.path() + ": it is larger than a megabyte, more than it may be");
}

TEST(ActionListTest, DoesNotWaitForWhoWritesIntoAPipe) {
  const TemporaryFolder folder;
  const std::string pipe = folder.path() + "/pipe";
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  EXPECT_EQ(errorOfFile(pipe), pipe + ": it is no file, but a pipe, a socket or a device");
}

}  // namespace
}  // namespace dch
