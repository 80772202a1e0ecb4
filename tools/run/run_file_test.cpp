#include "tools/run/run_file.h"

#include <gmock/gmock.h>
#include <sysexits.h>
#include <unistd.h>

#include "tests/support/temporary_files.h"
#include "tools/common/failure.h"

namespace tools {
namespace {

using std::chrono::milliseconds;
using ::testing::ElementsAre;
using ::testing::StartsWith;

constexpr char registrationLine[] =
    "registration = 'appl:WEATHER,WTH; group:sky; attr:clouds,G,4; attr:note,T,20; "
    "group:odd; attr:size3,G,3;'\n";
constexpr char skyTable[] = "[[rows]]\ngroup = 'sky'\ncommand = 'true'\n";

// Of a file that begins with the registration, on line 1.
RunFile read(const std::string& tables) {
  return readRunText(registrationLine + tables, "F");
}

std::string faultsOf(const std::string& text) {
  try {
    readRunText(text, "F");
    return "none";
  } catch (const Failure& failure) {
    EXPECT_EQ(failure.exitStatus(), EX_DATAERR);
    return failure.what();
  }
}
// On line 2 the table begins, on line 5 `key` stands.
std::string faultsOfKey(const std::string& key) {
  return faultsOf(registrationLine + std::string(skyTable) + key + "\n");
}

TEST(RunFile, WhatMayBeLeftOutHasItsDefault) {
  const RunFile file = read(skyTable);
  EXPECT_EQ(file.registration.applName, "WEATHER");
  ASSERT_EQ(file.rows.size(), 1U);
  const RowsTable& table = file.rows[0];
  EXPECT_EQ(table.group.name, "sky");
  EXPECT_EQ(table.command, "true");
  char name[65] = "";
  ASSERT_EQ(gethostname(name, sizeof name - 1), 0);
  EXPECT_EQ(table.source, name);
  EXPECT_EQ(table.every, std::nullopt);
  EXPECT_EQ(table.timeout, std::nullopt);
  EXPECT_EQ(table.format, RowsTable::Format::csv);
  EXPECT_TRUE(table.columns.empty());
}

TEST(RunFile, EveryKeyIsTaken) {
  const RunFile file = read(std::string(skyTable) +
                            "source = 'roof'\nevery = 0.25\ntimeout = 7\nformat = 'words'\n"
                            "columns = ['note', 'clouds']\n" +
                            skyTable + "source = 'cellar'\nformat = 'jsonl'\n");
  ASSERT_EQ(file.rows.size(), 2U);
  EXPECT_EQ(file.rows[0].source, "roof");
  EXPECT_EQ(file.rows[0].every, milliseconds(250));
  EXPECT_EQ(file.rows[0].timeout, milliseconds(7000));
  EXPECT_EQ(file.rows[0].format, RowsTable::Format::words);
  EXPECT_THAT(file.rows[0].columns, ElementsAre("note", "clouds"));
  EXPECT_EQ(file.rows[1].source, "cellar");
  EXPECT_EQ(file.rows[1].format, RowsTable::Format::jsonl);
}

TEST(RunFile, ARunHasItsIntervalForTimeAndAMinuteAtMost) {
  const auto timeoutOf = [](const std::string& keys) {
    return read(skyTable + keys + "\n").rows[0].timeout;
  };
  EXPECT_EQ(timeoutOf("every = 0.1"), milliseconds(100));
  EXPECT_EQ(timeoutOf("every = 60"), milliseconds(60'000));
  EXPECT_EQ(timeoutOf("every = 86400"), milliseconds(60'000));
  EXPECT_EQ(timeoutOf("every = 1\ntimeout = 86400"), milliseconds(86'400'000));
}

TEST(RunFile, ATextMayHaveSeveralLines) {
  const RunFile file = readRunText(
      "registration = \"\"\"\n  appl:WEATHER,WTH;\n  group:sky; attr:note,T,20,\\u00fc;\n\"\"\"\n"
      "[[rows]]\ngroup = 'sky'\ncommand = '''\necho \"it's\"  # no comment of the file\n'''\n",
      "F");
  EXPECT_EQ(file.registration.groups[0].attributes[0].help, "\u00fc");
  EXPECT_EQ(file.rows[0].command, "echo \"it's\"  # no comment of the file\n");
}

TEST(RunFile, AllThatIsWrongIsSaidInTheOrderOfTheFile) {
  EXPECT_EQ(faultsOf("registratio = 1\n"
                     "[[rows]]\n"
                     "grop = 'sky'\n"
                     "[[row]]\n"),
            "F:1: there is no key 'registratio'; there are registration, rows\n"
            "F:1: registration is missing\n"
            "F:2: group is missing in [[rows]]\n"
            "F:2: command is missing in [[rows]]\n"
            "F:3: there is no key 'grop' in [[rows]]; there are columns, command, every, format, "
            "group, source, timeout\n"
            "F:4: there is no key 'row'; there are registration, rows");
}

TEST(RunFile, ValuesAreRefusedAtTheirLine) {
  const std::string seconds = " in [[rows]] has to be a number of seconds from 0.1 to 86400, not ";
  for (const std::string key : {"every", "timeout"})
    for (const std::string value : {"0", "-1", "86401", "nan", "inf", "true"})
      EXPECT_EQ(faultsOfKey(key + " = " + value), "F:5: " + key + seconds + value);
  EXPECT_EQ(faultsOfKey("every = '1'"), "F:5: every" + seconds + "'1'");
  EXPECT_EQ(faultsOfKey("format = 'xml'"),
            "F:5: format in [[rows]] has to be \"csv\", \"jsonl\" or \"words\", not 'xml'");
  for (const std::string& value :
       {std::string("''"), "'" + std::string(33, 'x') + "'", std::string("7")})
    EXPECT_EQ(faultsOfKey("source = " + value),
              "F:5: source in [[rows]] has to be a name of 1 to 32 characters, not " + value);
  EXPECT_EQ(faultsOfKey("source = '" + std::string(32, 'x') + "'"), "none");
  EXPECT_EQ(faultsOf(registrationLine + std::string("[[rows]]\ngroup = 'see'\ncommand = ''\n")),
            "F:3: group in [[rows]] has to be a group of the registration, one of sky, odd, not "
            "'see'\n"
            "F:4: command in [[rows]] has to be a command for the shell in quotes, not ''");
  EXPECT_EQ(faultsOf(registrationLine + std::string("[[rows]]\ngroup = 'odd'\ncommand = 'true'\n")),
            "F:3: group in [[rows]]: attribute 'size3': a number of letter G has size 2, 4 or 8, "
            "not 3");
}

TEST(RunFile, ColumnsAreAttributesOfTheGroupEachOnce) {
  const std::string start = "F:5: columns in [[rows]]";
  EXPECT_EQ(faultsOfKey("columns = ['clouds', 'clouds', 'rain']"),
            start + ": attribute 'clouds': it is named twice\n" + start +
                ": attribute 'rain': the group 'sky' has no such attribute");
  for (const auto& [value, found] :
       {std::pair("[]", "an empty array"), std::pair("'note'", "'note'")})
    EXPECT_EQ(faultsOfKey(std::string("columns = ") + value),
              start + " has to be an array such as [\"mount\", \"used\"], not " + found);
  EXPECT_EQ(faultsOfKey("columns = [1]"),
            start + " has to be the name of an attribute in quotes, not 1");
  EXPECT_EQ(faultsOfKey("columns = ['note']\nformat = 'jsonl'"), start + " are not for \"jsonl\"");
  EXPECT_EQ(faultsOfKey("format = 'words'"), "F:5: columns are missing in [[rows]] of \"words\"");
}

TEST(RunFile, AGroupOfASourceIsThereOnce) {
  const std::string table = std::string(skyTable) + "source = 'roof'\n";
  EXPECT_EQ(faultsOf(registrationLine + table + table),
            "F:6: group 'sky' and source 'roof' are those of line 2, too");
}

TEST(RunFile, TablesAreThereButNotTooMany) {
  EXPECT_EQ(faultsOf(registrationLine), "F:1: there is no table [[rows]]");
  for (const std::string wrong : {"rows = 1", "[rows]", "rows = []", "rows = [1]"})
    EXPECT_THAT(faultsOf(registrationLine + wrong + "\n"),
                StartsWith("F:2: rows has to be tables [[rows]], not "))
        << wrong;
  std::string tables;
  for (std::size_t i = 0; i < mostRowsTables; ++i)
    tables += std::string(skyTable) + "source = 's" + std::to_string(i) + "'\n";
  EXPECT_EQ(read(tables).rows.size(), mostRowsTables);
  EXPECT_EQ(faultsOf(registrationLine + tables + skyTable),
            "F:2: 65 tables [[rows]] are more than 64");
}

TEST(RunFile, ARegistrationIsRefusedWithItsClause) {
  EXPECT_THAT(faultsOf("\nregistration = 'appl:WEATHER,WTH; group:sky; attr:clouds,Q,4;'\n" +
                       std::string(skyTable)),
              StartsWith("F:2: registration: clause 3 "));
  EXPECT_THAT(faultsOf("registration = 7\n" + std::string(skyTable)),
              StartsWith("F:1: registration has to be the text that registers the application"));
}

TEST(RunFile, WhatIsNoTomlIsRefusedAtItsLine) {
  EXPECT_THAT(faultsOf("\n[[rows]\n"), StartsWith("F:2: "));
  EXPECT_THAT(faultsOf("\n[+]\n"), StartsWith("F:2: "));
  EXPECT_EQ(faultsOf("registration = '''\n\u00fc'''\n"),
            "F:2: letters that are not English ones have to be written as \"\\u00e4\"");
}

TEST(RunFile, AFileIsReadAndHasAMegabyteAtMost) {
  const TemporaryFile file(std::string(registrationLine) + skyTable);
  EXPECT_EQ(readRunFile(file.path()).rows.size(), 1U);
  std::string comments;
  for (int i = 0; i < 20'000; ++i) comments += "#" + std::string(60, 'x') + "\n";
  const TemporaryFile large(comments);
  try {
    readRunFile(large.path());
    FAIL() << "a file of " << comments.size() << " bytes was read";
  } catch (const Failure& failure) {
    EXPECT_EQ(failure.exitStatus(), EX_DATAERR);
    EXPECT_EQ(failure.what(), large.path() + ": it is larger than a megabyte, more than it may be");
  }
}

}  // namespace
}  // namespace tools
