// What the comments of the public headers say, tried on the library where no unit's own test does.
#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <sstream>
#include <string>

#include "suite/zorp.h"
#include "tests/support/leaks_on_purpose.h"
#include "tests/support/scripted_dch.h"
#include "zora/trc1.h"
#include "zordchcl/status.h"
#include "zordchcl/zordchcl.h"

namespace {

// Every send fails: the system does not let an ordinary socket reach everybody.
constexpr char unreachable[] = "255.255.255.255";
constexpr char tooLong[] = "a name of too many letters";

std::ptrdiff_t openDescriptors() {
  const std::filesystem::directory_iterator entries("/proc/self/fd");
  return std::distance(begin(entries), end(entries));
}

class Statements : public testing::Test {
 protected:
  Statements() {
    setenv("ZORA_DCH_UDP_SOCKETS_IN_POOL", "1", 1);
    TRC1_Configure("0");  // errors are what is asked for here
    DCH_api_init();
  }
};

// A header or a page with each comment on one line.
std::string withoutLineEnds(const std::string& path) {
  std::ostringstream file;
  file << std::ifstream(SOURCE_DIRECTORY + path).rdbuf();
  return std::regex_replace(file.str(), std::regex("\n \\* *"), " ");
}

TEST_F(Statements, TheDchsStatusesAreThoseOfTheHeader) {
  const std::string header = withoutLineEnds("/zordchcl/zordchcl.h");
  for (const DCH_StatusEntry& status : DCH_statusTable) {
    if (status.number < DCH_STATUS_MALFORMED) continue;
    const std::string told = " " + std::to_string(status.number) + " " + status.text;
    EXPECT_NE(header.find(told), std::string::npos) << told;
  }
}

// ---- Registration texts ------------------------------------------------------------------------

bool isGood(const std::string& registration) {
  char* message = nullptr;
  return ZORP_ConstructDPregisterBuffer(registration.c_str(), &message) == 1;
}

// A text of `size` bytes in its shortest form.
std::string textOfSize(std::size_t size, const std::string& name) {
  const std::string beginning = "appl:" + name + ",KEY;help:";
  const std::string end = ";group:g;attr:a,N,4;";
  return beginning + std::string(size - beginning.size() - end.size(), 'h') + end;
}

TEST_F(Statements, ARegistrationTextAndTheNameHave4061Bytes) {
  for (const std::string name : {"A", "HOSTMON", "12345678901234567890"}) {
    EXPECT_TRUE(isGood(textOfSize(4061 - name.size(), name))) << name;
    EXPECT_FALSE(isGood(textOfSize(4062 - name.size(), name))) << name;
    EXPECT_TRUE(isGood(" \t\n" + textOfSize(4061 - name.size(), name) + "\r\n ")) << name;
  }
}

TEST_F(Statements, ThoseOfARegistrationsClausesAreItsLimits) {
  const std::string letters(33, 'x');
  const auto text = [](const std::string& name, const std::string& group, const std::string& attr) {
    return "appl:" + name + ",KEY;group:" + group + ";attr:" + attr + ";";
  };
  EXPECT_TRUE(isGood(text(letters.substr(0, 20), letters.substr(0, 32), "a,A,1")));
  EXPECT_FALSE(isGood(text(letters.substr(0, 21), "g", "a,A,1")));
  EXPECT_FALSE(isGood(text("n", letters, "a,A,1")));
  EXPECT_TRUE(isGood(text("n", "g", letters.substr(0, 32) + ",A,4096")));
  EXPECT_FALSE(isGood(text("n", "g", letters + ",A,4")));
  EXPECT_FALSE(isGood(text("n", "g", "a,A,4097")));
  EXPECT_FALSE(isGood(text("n", "g", "a,A,0")));
  EXPECT_FALSE(isGood(text("n", "g", "a,A,4;group:g;attr:a,A,4"))) << "a group twice";
  EXPECT_FALSE(isGood(text("n", "g", "a,A,4;attr:a,A,4"))) << "an attribute twice";
  EXPECT_TRUE(isGood(text("n", "g", "a,A,4;group:h;attr:a,A,4")));
  for (const char letter : std::string("ACGLNISDRT"))
    EXPECT_TRUE(isGood(text("n", "g", std::string("a,") + letter + ",2"))) << letter;
  for (const char other : std::string("BEFHJKMOPQUVWXYZa1"))
    EXPECT_FALSE(isGood(text("n", "g", std::string("a,") + other + ",2"))) << other;
}

TEST_F(Statements, TheTypesAreThoseOfTheHeaderAndTheGuide) {
  std::string names;
  for (const char* const name : ZORA_DPTypeNames) {
    EXPECT_TRUE(isGood(std::string("appl:A,KEY;type:") + name + ";group:g;attr:a,A,4;"));
    names += std::string(" ") + name;
  }
  EXPECT_NE(withoutLineEnds("/zora/zora.h").find(":" + names + ". */"), std::string::npos) << names;
  EXPECT_NE(withoutLineEnds("/docs/guide.md").find("one of" + names + " |"), std::string::npos);
}

// ---- Subscriptions -----------------------------------------------------------------------------

TEST_F(Statements, ARowSubscriptionThatFailsLeavesTwoSockets) {
  setenv("ZORA_DCH_ADDR", unreachable, 1);
  const LeaksOnPurpose leaks;
  for (const char* name : {tooLong, static_cast<const char*>(nullptr), "HOSTMON"}) {
    const std::ptrdiff_t before = openDescriptors();
    EXPECT_EQ(dc_waitOnDataInitialize(name, "load"), nullptr);
    EXPECT_EQ(openDescriptors(), before + 2);
  }
}

TEST_F(Statements, AStatusSubscriptionThatFailsLeavesOneSocket) {
  setenv("ZORA_DCH_ADDR", unreachable, 1);
  const LeaksOnPurpose leaks;
  const std::ptrdiff_t before = openDescriptors();
  EXPECT_EQ(dc_waitForDPStatusInitialize(), nullptr);
  EXPECT_EQ(openDescriptors(), before + 1);
}

TEST_F(Statements, ADatagramThatIsNoMessageEndsASubscriptionAndANewOneGoesOn) {
  const ScriptedDch dch(never());
  const std::string row =
      messageOf([](DCH_MessageBuilder& message) { message.add(DCH_attrName, "load1"); });
  char buffer[100];
  std::size_t requests = 0;
  for (const std::string& bad : {std::string(), row + 'x'}) {
    void* const handle = dc_waitOnDataInitialize("HOSTMON", "load");
    dch.waitForRequests(++requests);
    dch.push(row);
    EXPECT_EQ(dc_waitOnData(handle, buffer, sizeof buffer), 0);
    dch.push(bad);
    EXPECT_EQ(dc_waitOnData(handle, buffer, sizeof buffer), 1);
    dch.push(row);
    EXPECT_EQ(dc_waitOnData(handle, buffer, sizeof buffer), 1) << "only good to be destroyed";
    EXPECT_EQ(dc_waitOnDataDestroy(handle), 1);
  }
}

TEST_F(Statements, AChangeOfStatusThatIsNoneEndsASubscription) {
  const ScriptedDch dch(never());
  void* const handle = dc_waitForDPStatusInitialize();
  dch.waitForRequests(1);
  dch.push(statusAnswer(0));
  EXPECT_EQ(dc_waitForDPStatus(handle), nullptr);
  EXPECT_EQ(dc_waitForDPStatusDestroy(handle), 1);
}

// With another errno the handle stays: consumer_api_failures_test.
TEST_F(Statements, AfterTheEndOfTheLocksAHandleIsFreedWhileErrnoIsZero) {
  const ScriptedDch dch(never());
  const std::ptrdiff_t before = openDescriptors();
  void* const handle = dc_waitOnDataInitialize("HOSTMON", "load");
  DCH_api_destroy();
  errno = 0;
  EXPECT_EQ(dc_waitOnDataDestroy(handle), 0);
  EXPECT_EQ(openDescriptors(), before);
}

// ---- The local stub ----------------------------------------------------------------------------

TEST_F(Statements, OverTheLocalStubEveryRequestFailsAtOnce) {
  setenv("ZORA_DCH_IPCTYPE", "2", 1);
  ZORA_Long status = 0, handle = 0, size = 0;
  char* row = nullptr;
  const int load = 42;
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(dp_register(&status, "appl:DEMO,DMO;group:load;attr:load1,G,4;"), 1);
  EXPECT_EQ(status, 5);
  EXPECT_EQ(dp_online(&status, &handle, "DEMO", "load", "web1"), 1);
  EXPECT_EQ(status, 5);
  EXPECT_EQ(dp_formatData(&status, &row, &size, "load1", &load, sizeof load, 'G'), 0);
  EXPECT_EQ(dp_data(&status, handle, 0, &row), 1);
  EXPECT_EQ(status, 2);
  EXPECT_EQ(dp_offline(&status, handle), 1);
  EXPECT_EQ(status, 2);
  EXPECT_EQ(dc_provideAction(1, "me", "web1", "web1:DMO00", "restart", 7, nullptr), 1);
  EXPECT_EQ(dc_waitForActionResults(7), -1);
  const LeaksOnPurpose leaks;
  EXPECT_EQ(dc_waitOnDataInitialize("DEMO", "load"), nullptr);
  EXPECT_EQ(dc_waitForDPStatusInitialize(), nullptr);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(20));
}

}  // namespace
