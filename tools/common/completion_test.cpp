#include "tools/common/completion.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

#include "tools/common/command_line.h"

namespace tools {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

// A tool with a command of each kind of word.
class Completion : public ::testing::Test {
 protected:
  Completion() {
    setUpCommandLine(_app, "");
    CLI::App* const show = _app.add_subcommand("show", "Show it");
    show->add_option("NAME", _text, "What to show")->required();
    show->add_option("PART", _text, "Which part");
    show->add_option("-F,--format", _text, "How")->check(oneOf({"table", "csv"}));
    show->add_option("--limit", _text, "How much")->check(positiveNumber());
    show->add_flag("-q,--quiet", _flag, "Say less");
    CLI::App* const load = _app.add_subcommand("load", "Load it");
    load->add_option("--from", _text, "From where")->type_name("FILE");
  }

  std::vector<std::string> words(const std::vector<std::string>& typed) {
    std::vector<std::string> found;
    for (const Candidate& each : candidatesFor(_app, typed, _findValues))
      found.push_back(each == anyFile ? "a file" : each.word);
    return found;
  }

  CLI::App _app{"A tool", "tool"};
  FindValues _findValues;

 private:
  std::string _text;
  bool _flag = false;
};

TEST_F(Completion, OffersCommandsWithTheirDescriptions) {
  EXPECT_THAT(candidatesFor(_app, {""}, {}),
              ElementsAre(Candidate{"show", "Show it"}, Candidate{"load", "Load it"}));
}

TEST_F(Completion, OffersTheOptionsOfTheCommand) {
  EXPECT_THAT(words({"-"}), ElementsAre("-V", "--version", "-h", "--help"));
  EXPECT_THAT(candidatesFor(_app, {"load", "--"}, {}),
              ElementsAre(Candidate{"-h", "Print this help and exit"},
                          Candidate{"--help", "Print this help and exit"},
                          Candidate{"--from", "From where"}));
}

TEST_F(Completion, OffersOptionsWhenNothingElseMayStandThere) {
  EXPECT_THAT(words({"load", ""}), ElementsAre("-h", "--help", "--from"));
  EXPECT_THAT(words({"show", "it", ""}), IsEmpty());
  EXPECT_THAT(words({"show", "it", "all", ""}),
              ElementsAre("-h", "--help", "-F", "--format", "--limit", "-q", "--quiet"));
  EXPECT_THAT(words({"show", "it", "all", "--", ""}), IsEmpty());
}

TEST_F(Completion, OffersNoOptionTwice) {
  const auto rest = ElementsAre("-h", "--help", "--limit");
  EXPECT_THAT(words({"show", "-q", "--format", "csv", "-"}), rest);
  EXPECT_THAT(words({"show", "--quiet", "-Fcsv", "-"}), rest);
  EXPECT_THAT(words({"show", "--quiet", "--format=csv", "-"}), rest);
}

TEST_F(Completion, OffersTheWordsThatAnOptionAccepts) {
  EXPECT_THAT(words({"show", "--format", ""}), ElementsAre("table", "csv"));
  EXPECT_THAT(words({"show", "-F", "c"}), ElementsAre("table", "csv"));
  EXPECT_THAT(words({"show", "--format=c"}), ElementsAre("--format=table", "--format=csv"));
  EXPECT_THAT(words({"show", "--limit", ""}), IsEmpty());
  EXPECT_THAT(words({"show", "--quiet="}), IsEmpty());
  EXPECT_THAT(words({"show", "--none="}), IsEmpty());
}

TEST_F(Completion, LeavesFilesToTheShell) {
  EXPECT_THAT(words({"load", "--from", ""}), ElementsAre("a file"));
  EXPECT_THAT(words({"load", "--from="}), ElementsAre("a file"));
}

TEST_F(Completion, AsksForOtherValuesWithWhatWasTypedBefore) {
  GivenValues asked;
  _findValues = [&](const CLI::App& command, const std::string& name, const GivenValues& given) {
    asked = given;
    return std::vector<Candidate>{{command.get_name() + "'s " + name, ""}};
  };
  EXPECT_THAT(words({"show", ""}), ElementsAre("show's NAME"));
  EXPECT_THAT(asked, IsEmpty());
  EXPECT_THAT(words({"show", "-F", "csv", "-q", "it", "--limit", "3", ""}),
              ElementsAre("show's PART"));
  EXPECT_EQ(asked, (GivenValues{{"NAME", "it"}, {"--format", "csv"}, {"--limit", "3"}}));
  EXPECT_THAT(words({"show", "--", "-q", ""}), ElementsAre("show's PART"));
  EXPECT_EQ(asked, (GivenValues{{"NAME", "-q"}}));
  EXPECT_THAT(words({"show", "-F=csv", "--limit", ""}), ElementsAre("show's --limit"));
  EXPECT_THAT(words({"show", "--limit="}), ElementsAre("--limit=show's --limit"));
}

TEST_F(Completion, KnowsNoValuesWhenTheyCannotBeFound) {
  _findValues = [](const CLI::App&, const std::string&, const GivenValues&) {
    return throw std::runtime_error("no server"), std::vector<Candidate>();
  };
  EXPECT_THAT(words({"show", ""}), IsEmpty());
}

TEST_F(Completion, TakesWhatIsWrongAsItIs) {
  EXPECT_THAT(
      words({"--none", "show", "--limit", "none", "--what=ever", "-x", "it", "all", "more", "--f"}),
      ElementsAre("-h", "--help", "-F", "--format", "-q", "--quiet"));
  EXPECT_THAT(words({"none", ""}), ElementsAre("show", "load"));
}

std::string printed(CLI::App* app, std::vector<const char*> arguments) {
  arguments.insert(arguments.begin(), "tool");
  ::testing::internal::CaptureStdout();
  const auto exitStatus = complete(*app, static_cast<int>(arguments.size()), arguments.data());
  const std::string text = ::testing::internal::GetCapturedStdout();
  EXPECT_EQ(exitStatus, 0);
  return text;
}

TEST_F(Completion, PrintsWhatAShellAsksFor) {
  EXPECT_EQ(printed(&_app, {"--complete"}), "show\tShow it\nload\tLoad it\n");
  EXPECT_EQ(printed(&_app, {"--complete", "lo"}), "show\tShow it\nload\tLoad it\n");
  EXPECT_EQ(printed(&_app, {"--complete", "show", "-F", ""}), "table\ncsv\n");
  EXPECT_EQ(printed(&_app, {"--complete", "load", "--from", ""}), "\tfiles\n");
}

TEST_F(Completion, PrintsForBashWhatMatches) {
  EXPECT_EQ(printed(&_app, {"--complete-line", "=", "tool lo"}), "load\n");
  EXPECT_EQ(printed(&_app, {"--complete-line", "=", "tool show --format=c"}), "csv\n");
  EXPECT_EQ(printed(&_app, {"--complete-line", "", "tool show --format=c"}), "--format=csv\n");
  EXPECT_EQ(printed(&_app, {"--complete-line", "=", "tool load --from /x"}), "\tfiles\n");
  EXPECT_EQ(printed(&_app, {"--complete-line", "=", "tool show >"}), "\tfiles\n");
  EXPECT_EQ(printed(&_app, {"--complete-line", "=", "tool"}), "");
  EXPECT_EQ(printed(&_app, {"--complete-line", "="}), "");
}

TEST_F(Completion, LeavesOtherCommandLinesAlone) {
  for (const std::vector<const char*>& arguments :
       {std::vector<const char*>{"tool"}, {"tool", "show", "--complete"}, {"tool", "--version"}})
    EXPECT_EQ(complete(_app, static_cast<int>(arguments.size()), arguments.data()), std::nullopt);
}

}  // namespace
}  // namespace tools
