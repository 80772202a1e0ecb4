// What the trace shows of action parameters, which can hold a logon identity and a password.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <optional>

#include "tests/support/bytes.h"
#include "tests/support/fake_transport.h"
#include "tests/support/scripted_dch.h"
#include "tests/support/trace_capture.h"
#include "zordchcl/test_lines.h"

namespace {

using testing::HasSubstr;
using testing::Not;

const std::string agent = "MONITOR START AGENTINFO=";

// What is shown of `parameters`, nothing when there is no line for them.
using Shown = std::optional<std::string>;
const Shown nothing;

Shown shownOf(const std::string& parameters) {
  FakedClient faked;
  const TraceCapture trace("*/DCHclient::dc_provideAction=0x10");
  faked.client.dc_provideAction(1, "owner", "node", "sub", "act", 2, parameters.c_str());
  EXPECT_THAT(faked.transport.written.at(0), testing::EndsWith(parameters + '\0'))
      << "they are sent in full";
  const std::string begin = "actionParms: <";
  const std::string end = "> ";
  Shown shown;
  for (const std::string& text : trace.texts()) {
    if (text.compare(0, begin.size(), begin) != 0) continue;
    EXPECT_FALSE(shown.has_value()) << "more than one line";
    EXPECT_THAT(text, testing::EndsWith(end));
    shown = text.substr(begin.size(), text.size() - begin.size() - end.size());
  }
  return shown;
}

struct Case {
  std::string parameters;
  Shown shown;
};

void expectShown(const std::vector<Case>& cases) {
  for (const auto& [parameters, shown] : cases)
    EXPECT_EQ(shownOf(parameters), shown) << testing::PrintToString(parameters);
}

TEST(ActionMasking, ShowsNothingWithoutAKeyword) {
  expectShown({
      {"", nothing},
      {"plain parameters", nothing},
      {agent, nothing},
      {agent + "x " + agent, nothing},
      {"PASSWORD=s", nothing},
      {"x PASSWORD=s", nothing},
      {"x PASSWORD=s PASSWORD=t", nothing},
      {"LOGONID=u", nothing},
      {"xLOGONID=u", nothing},
      {"x\tLOGONID=u", nothing},
      {"x LOGONID", nothing},
      {"x LOGONID u", nothing},
      {"x logonid=u", nothing},
      {agent + " password=s", nothing},
      {agent + " PASSWORD s", nothing},
      {"MONITOR START AGENTINFO x PASSWORD=s", nothing},
      {"monitor start agentinfo=x PASSWORD=s", nothing},
      {"MONITOR  START AGENTINFO=x PASSWORD=s", nothing},
  });
}

TEST(ActionMasking, ShowsWhatStandsBeforeThePasswordOfAnAgent) {
  expectShown({
      {agent + "x PASSWORD=s", agent + "x "},
      {agent + "x PASSWORD=", agent + "x "},
      {agent + "PASSWORD=s", agent},
      {agent + "x PASSWORD=s PASSWORD=t", agent + "x "},
      {agent + "x " + agent + "y PASSWORD=s", agent + "x " + agent + "y "},
      {"run " + agent + "x PASSWORD=s y", "run " + agent + "x "},
      {"x PASSWORD=s " + agent, "x "},
      {"x PASSWORD=s " + agent + "y PASSWORD=t", "x "},
      {"x PASSWORD=" + agent, "x "},
      {"xPASSWORD=s " + agent, "x"},
  });
}

TEST(ActionMasking, ShowsNothingOfAnAgentsParametersThatBeginWithThePassword) {
  expectShown({
      {"PASSWORD=s " + agent + "x", nothing},
      {"PASSWORD=" + agent, nothing},
      {"PASSWORD=s " + agent + "x PASSWORD=t", nothing},
  });
}

TEST(ActionMasking, ShowsWhatStandsBeforeTheLogon) {
  expectShown({
      {"x LOGONID=u", "x"},
      {"x LOGONID=", "x"},
      {"x  LOGONID=u", "x "},
      {"x LOGONID=u LOGONID=v", "x"},
      {"xLOGONID=u LOGONID=v", "xLOGONID=u"},
      {agent + "x LOGONID=u", agent + "x"},
      {"x LOGONID=u " + agent, "x"},
      {"x LOGONID=u PASSWORD=s", "x"},
  });
}

TEST(ActionMasking, ShowsNothingOfParametersThatBeginWithTheLogon) {
  expectShown({
      {" LOGONID=u", nothing},
      {" LOGONID=", nothing},
      {" LOGONID=u LOGONID=v", nothing},
      {" LOGONID=u " + agent, nothing},
      {" LOGONID=u PASSWORD=s", nothing},
  });
}

// Only an agent's password is looked for: before a logon any other is shown.
TEST(ActionMasking, ShowsAPasswordBeforeTheLogonThatIsNoAgents) {
  expectShown({
      {"PASSWORD=s LOGONID=u", "PASSWORD=s"},
      {"x PASSWORD=s LOGONID=u", "x PASSWORD=s"},
  });
}

TEST(ActionMasking, OfBothKeywordsTheFirstCounts) {
  expectShown({
      {agent + "x PASSWORD=s LOGONID=u", agent + "x "},
      {agent + "x LOGONID=u PASSWORD=s", agent + "x"},
      {"x PASSWORD=s LOGONID=u " + agent, "x "},
      {"x LOGONID=u PASSWORD=s " + agent, "x"},
      {"x PASSWORD=s " + agent + " LOGONID=u", "x "},
      {"x LOGONID=u " + agent + " PASSWORD=s", "x"},
      {"PASSWORD=s LOGONID=u " + agent, nothing},
      {" LOGONID=u PASSWORD=s " + agent, nothing},
      {agent + "a PASSWORD=s LOGONID=u PASSWORD=t LOGONID=v", agent + "a "},
      {agent + "a LOGONID=u PASSWORD=s LOGONID=v PASSWORD=t", agent + "a"},
  });
}

TEST(ActionMasking, OfKeywordsThatTouchTheFirstCountsToo) {
  expectShown({
      {agent + "PASSWORD= LOGONID=", agent},
      {agent + " LOGONID=PASSWORD=", agent},
      {"x LOGONID=PASSWORD=" + agent, "x"},
      {"xPASSWORD= LOGONID=" + agent, "x"},
      {" LOGONID=PASSWORD=" + agent, nothing},
      {"PASSWORD= LOGONID=" + agent, nothing},
  });
}

TEST(ActionMasking, ShowsFormatsAndLongTextsAsTheyAre) {
  const std::string longText(3000, 'x');
  expectShown({
      {"%s %n %1000d LOGONID=u", "%s %n %1000d"},
      {longText + " LOGONID=u", longText},
      {agent + longText + "PASSWORD=s", agent + longText},
      {"\xc3\xa4\n LOGONID=u", "\xc3\xa4\n"},
  });
}

// The rules, step by step: a mode says which keywords there are.
Shown shownByTheRules(const std::string& parameters) {
  constexpr auto absent = std::string::npos;
  int mode = 0;
  std::size_t password = 0;
  std::size_t logon = 0;
  if (parameters.find(agent) != absent && parameters.find("PASSWORD=") != absent) {
    password = parameters.find("PASSWORD=");
    mode = 2;
  }
  if (parameters.find(" LOGONID=") != absent) {
    logon = parameters.find(" LOGONID=");
    mode = mode == 2 ? 1 : 3;
  }
  std::size_t length = 0;
  if (mode == 2) length = password;
  if (mode == 3) length = logon;
  if (mode == 1) length = password < logon ? password : logon;
  return length > 0 ? Shown(parameters.substr(0, length)) : nothing;
}

TEST(ActionMasking, FollowsItsRulesForEverySequenceOfPieces) {
  const std::string pieces[] = {agent, "PASSWORD=", " LOGONID=", "LOGONID=", "s ", "="};
  std::vector<std::string> sequences = {""};
  for (std::size_t first = 0, count = 0; count < 4; ++count) {
    const std::size_t end = sequences.size();
    for (; first < end; ++first)
      for (const std::string& piece : pieces) sequences.push_back(sequences[first] + piece);
  }
  ASSERT_EQ(sequences.size(), 1u + 6 + 36 + 216 + 1296);
  int shown = 0;
  for (const std::string& parameters : sequences) {
    const Shown expected = shownByTheRules(parameters);
    ASSERT_EQ(shownOf(parameters), expected) << testing::PrintToString(parameters);
    shown += expected.has_value() ? 1 : 0;
  }
  EXPECT_GT(shown, 300);
}

// ---- No other way out ------------------------------------------------------------------------

const std::string secretLogon = "us3r1d";
const std::string secretPassword = "s3cr3t";
const std::vector<std::string> parametersWithSecrets = {
    agent + "x PASSWORD=" + secretPassword + " LOGONID=" + secretLogon,
    agent + "x LOGONID=" + secretLogon + " PASSWORD=" + secretPassword,
    "x LOGONID=" + secretLogon + " PASSWORD=" + secretPassword,
    " LOGONID=" + secretLogon + " PASSWORD=" + secretPassword,
    "x PASSWORD=" + secretPassword + " " + secretLogon,
    agent + secretLogon + secretPassword,
    secretPassword + secretLogon,
};

constexpr unsigned allButTheDump = 0xFF & ~TRC1_CLASS_DUMP;

// Asks for actions with each of the parameters; no record of any function holds a secret.
void expectSecretsKept(int expectedResult, const std::string& padding = "") {
  const TraceCapture trace(textOf("0x%x", allButTheDump).c_str());
  for (const std::string& parameters : parametersWithSecrets)
    EXPECT_EQ(dc_provideAction(1, "owner", "node", "sub", "act", 2, (parameters + padding).c_str()),
              expectedResult);
  EXPECT_TRUE(trace.has("actionName  : <act> "));
  for (const CapturedRecord& record : trace.records()) {
    EXPECT_THAT(record.text, Not(HasSubstr(secretLogon))) << record.function;
    EXPECT_THAT(record.text, Not(HasSubstr(secretPassword))) << record.function;
  }
}

TEST(ActionMasking, KeepsSecretsOutOfEveryClassButTheDump) {
  const ScriptedDch dch(never());
  expectSecretsKept(0);
  const std::vector<std::string> requests = dch.waitForRequests(parametersWithSecrets.size());
  ASSERT_EQ(requests.size(), parametersWithSecrets.size());
  for (std::size_t i = 0; i < requests.size(); ++i)
    EXPECT_THAT(requests[i], testing::EndsWith(parametersWithSecrets[i] + '\0'));
}

TEST(ActionMasking, KeepsSecretsOfARequestThatCannotBeSent) {
  setenv("ZORA_DCH_IPCTYPE", "2", 1);
  expectSecretsKept(1);
}

TEST(ActionMasking, KeepsSecretsOfARequestThatIsTooLong) {
  expectSecretsKept(1, std::string(5000, ' '));
}

// The characters of all dumped bytes, which stand between bars at the end of each line.
std::string dumpedCharacters(const std::vector<std::string>& texts) {
  std::string characters;
  for (const std::string& text : texts) {
    const std::size_t start = text.find('|');
    if (start != std::string::npos)
      characters += text.substr(start + 1, text.rfind('|') - start - 1);
  }
  return characters;
}

TEST(ActionMasking, TheDumpShowsTheWholeMessage) {
  const ScriptedDch dch(never());
  for (const std::string& parameters : parametersWithSecrets) {
    const TraceCapture trace("0x04");
    EXPECT_EQ(dc_provideAction(1, "owner", "node", "sub", "act", 2, parameters.c_str()), 0);
    EXPECT_THAT(dumpedCharacters(trace.texts()), HasSubstr(parameters));
  }
}

}  // namespace
