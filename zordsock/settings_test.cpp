#include "zordsock/settings.h"
#include "tests/support/temporary_files.h"

#include <gmock/gmock.h>

#include "tests/support/trace_capture.h"
#include "tests/support/trace_lines.h"
#include "zordsock/test_endpoint.h"

using namespace zordsock;

namespace {

// An environment without settings, and product settings of this test's own.
class Settings : public testing::Test {
 protected:
  Settings() {
    for (const char* name : {"ZORA_DCH_ADDR", "ZORA_DCH_PORT", "ZORA_DCH_TIMEOUT",
                             "ZORA_DCH_TRAPEMIT", "ZORA_DCH_UDP_SOCKETS_IN_POOL"})
      unsetenv(name);
  }

  static void set(const char* name, const std::string& value) { setenv(name, value.c_str(), 1); }

  void setProductPort(const std::string& port) const {
    _productFile.write(std::to_string(itemPort) + '=' + port + '\n');
  }

  const SettingsFile _productFile;
};

// An endpoint that needs no DCH: it looks up no name.
struct Endpoint : ipcSock {
  Endpoint() : ipcSock(SERVICE_UDP_CLIENT, 1, 0) {}
};

TEST_F(Settings, HaveDefaults) {
  const Endpoint endpoint;
  EXPECT_STREQ(_envDCHname, "localhost");
  EXPECT_EQ(_envPortNo, 1919);
  EXPECT_EQ(_envDCHtimeout, 30);
  EXPECT_EQ(_envTRAPEMIT, 0);
  EXPECT_EQ(_envDCHUDPSocks, 32);
  EXPECT_EQ(_envVarsInit, 1);
}

TEST_F(Settings, AreTakenFromTheEnvironment) {
  set("ZORA_DCH_ADDR", "dch.example");
  set("ZORA_DCH_PORT", "4711");
  set("ZORA_DCH_TIMEOUT", "7");
  set("ZORA_DCH_TRAPEMIT", "Y");
  set("ZORA_DCH_UDP_SOCKETS_IN_POOL", "3");
  const Endpoint endpoint;
  EXPECT_STREQ(_envDCHname, "dch.example");
  EXPECT_EQ(_envPortNo, 4711);
  EXPECT_EQ(_envDCHtimeout, 7);
  EXPECT_EQ(_envTRAPEMIT, 1);
  EXPECT_EQ(_envDCHUDPSocks, 3);
}

TEST_F(Settings, AreReadByTheFirstEndpointOnly) {
  set("ZORA_DCH_PORT", "4711");
  const Endpoint first;
  set("ZORA_DCH_PORT", "4712");
  set("ZORA_DCH_ADDR", "other.example");
  set("ZORA_DCH_TIMEOUT", "9");
  const TraceCapture trace;
  const Endpoint second;
  EXPECT_EQ(_envPortNo, 4711);
  EXPECT_STREQ(_envDCHname, "localhost");
  EXPECT_EQ(_envDCHtimeout, 30);
  EXPECT_THAT(trace.textsOf("ipcSock::getEnvVariables"), testing::IsEmpty());
}

TEST_F(Settings, PortComesFromTheProductSettingsWhenTheEnvironmentHasNone) {
  setProductPort("2020");
  const Endpoint endpoint;
  EXPECT_EQ(_envPortNo, 2020);
}

TEST_F(Settings, EnvironmentsPortComesBeforeThatOfTheProductSettings) {
  setProductPort("2020");
  set("ZORA_DCH_PORT", "4711");
  const Endpoint endpoint;
  EXPECT_EQ(_envPortNo, 4711);
}

TEST_F(Settings, PortIsKeptTo16Bits) {
  set("ZORA_DCH_PORT", "70000");
  const TraceCapture trace("0x10");
  const Endpoint endpoint;
  EXPECT_EQ(_envPortNo, 4464);
  EXPECT_TRUE(trace.has("Assigned DCH port number to 4464\n"));
}

TEST_F(Settings, TextThatIsNoNumberGivesZero) {
  set("ZORA_DCH_PORT", "abc");
  set("ZORA_DCH_TIMEOUT", "abc");
  set("ZORA_DCH_UDP_SOCKETS_IN_POOL", "");
  const Endpoint endpoint;
  EXPECT_EQ(_envPortNo, 0);
  EXPECT_EQ(_envDCHtimeout, 0);
  EXPECT_EQ(_envDCHUDPSocks, 0);
}

TEST_F(Settings, TrapEmissionIsAskedForByALeadingY) {
  Endpoint endpoint;
  const auto trapEmission = [&](const char* value) {
    set("ZORA_DCH_TRAPEMIT", value);
    endpoint.getEnvVariables();
    return _envTRAPEMIT;
  };
  EXPECT_EQ(trapEmission("yes"), 1);
  EXPECT_EQ(trapEmission("No"), 0);
  EXPECT_EQ(trapEmission("Yes"), 1);
  EXPECT_EQ(trapEmission(""), 0);
  EXPECT_EQ(trapEmission(" y"), 0);
}

TEST_F(Settings, AHostNameThatIsTooLongIsCutToItsRoom) {
  set("ZORA_DCH_ADDR", std::string(300, 'h'));
  const Endpoint endpoint;
  EXPECT_EQ(_envDCHname, std::string(255, 'h'));
}

TEST_F(Settings, AShorterHostNameLeavesNothingOfALongerOne) {
  set("ZORA_DCH_ADDR", "long.name.example");
  Endpoint endpoint;
  set("ZORA_DCH_ADDR", "short");
  endpoint.getEnvVariables();
  EXPECT_EQ(std::string(_envDCHname, hostNameSize), "short" + std::string(hostNameSize - 5, '\0'));
}

TEST_F(Settings, TimeoutIsCutTo16BitsAndNotTraced) {
  set("ZORA_DCH_TIMEOUT", "40000");
  Endpoint endpoint;
  const TraceCapture trace;
  EXPECT_EQ(endpoint.DCHtimeout(), 40000 - 65536);
  EXPECT_THAT(trace.texts(), testing::IsEmpty());
  _envDCHtimeout = 70000;
  EXPECT_EQ(endpoint.DCHtimeout(), 4464);
  _envDCHtimeout = 12;
  EXPECT_EQ(endpoint.DCHtimeout(), 12);
}

std::vector<TraceLine> linesOfReading(const ipcSock& endpoint, const char* port,
                                      const char* values) {
  return {entryLine(),
          detailLine(textOf("DCHIpc instance @%p and _envVarsInit=1\n", TRC1_Pointer(&endpoint))),
          detailLine(textOf("Assigned DCH port number to %s\n", port)), detailLine(values),
          exitLine()};
}

TEST_F(Settings, ReadingShowsEveryValue) {
  Endpoint endpoint;
  set("ZORA_DCH_ADDR", "dch.example");
  set("ZORA_DCH_PORT", "4711");
  set("ZORA_DCH_TIMEOUT", "7");
  set("ZORA_DCH_TRAPEMIT", "yes");
  expectTrace("ipcSock::getEnvVariables", [&] {
    endpoint.getEnvVariables();
    return linesOfReading(endpoint, "4711",
                          "_envDCHname[dch.example] _envPortNo[4711] _envDCHtimeout[7] "
                          "_envTRAPEMIT[1]\n");
  });
}

TEST_F(Settings, ReadingShowsThePortOfTheProductSettings) {
  Endpoint endpoint;
  setProductPort("2020");
  expectTrace("ipcSock::getEnvVariables", [&] {
    endpoint.getEnvVariables();
    return linesOfReading(endpoint, "2020",
                          "_envDCHname[localhost] _envPortNo[2020] _envDCHtimeout[30] "
                          "_envTRAPEMIT[0]\n");
  });
}

TEST_F(Settings, ReadingShowsTheDefaultPort) {
  Endpoint endpoint;
  expectTrace("ipcSock::getEnvVariables", [&] {
    endpoint.getEnvVariables();
    return linesOfReading(endpoint, "1919",
                          "_envDCHname[localhost] _envPortNo[1919] _envDCHtimeout[30] "
                          "_envTRAPEMIT[0]\n");
  });
}

}  // namespace
