// The README's table of settings: the variables are those that the sources read, the defaults those
// that the library has.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <string>

#include "suite/sockets.h"
#include "tests/support/process.h"
#include "tests/support/temporary_files.h"
#include "tests/support/trace_capture.h"
#include "zordchcl/zordchcl.h"

namespace {

std::string read(const std::filesystem::path& path) {
  std::ostringstream text;
  text << std::ifstream(path).rdbuf();
  return text.str();
}

// The defaults by the names of their variables, as the table has them.
std::map<std::string, std::string> settingsTable() {
  static const std::regex row(R"(\n\| `(ZOR[A0]_\w+)` \| ([^|]*) \|)");
  const std::string page = read(SOURCE_DIRECTORY "/README.md");
  std::map<std::string, std::string> defaults;
  for (std::sregex_iterator match(page.begin(), page.end(), row), end; match != end; ++match)
    defaults[(*match)[1]] = (*match)[2];
  return defaults;
}

std::string firstMatch(const std::string& text, const char* expression) {
  std::smatch match;
  return std::regex_search(text, match, std::regex(expression)) ? match[1].str() : "";
}

bool isShippedSource(const std::filesystem::path& path) {
  const std::string name = path.filename();
  return path.extension() == ".cpp" && !name.ends_with("_test.cpp") && !name.starts_with("test_") &&
         path.string().find("/testkit/") == std::string::npos;
}

// All that is shipped, in one text.
std::string shippedSources() {
  std::string sources;
  for (const char* folder :
       {"suite", "zora", "zordipc", "zordlpc", "zordsock", "zordchcl", "dch", "tools"}) {
    const std::filesystem::path root = std::filesystem::path(SOURCE_DIRECTORY) / folder;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(root))
      if (isShippedSource(entry.path())) sources += read(entry.path());
  }
  return sources;
}

std::set<std::string> variablesRead() {
  static const std::regex call(R"re(get_?env\("(ZOR[A0]_\w+)")re", std::regex::icase);
  const std::string sources = shippedSources();
  std::set<std::string> names;
  for (std::sregex_iterator match(sources.begin(), sources.end(), call), end; match != end; ++match)
    names.insert((*match)[1]);
  return names;
}

// What a process without any setting says of those it has read.
class Defaults : public testing::Test {
 protected:
  Defaults() {
    for (const auto& setting : table) unsetenv(setting.first.c_str());
    setenv("ZOR0_PRODUCT_SPEC", "/nowhere/product.spec", 1);
  }

  // Makes a client, which reads the settings, and sends nothing.
  static void makeClient() {
    ZORA_Long status = 0;
    dp_cancel(&status, 0);
  }

  const std::map<std::string, std::string> table = settingsTable();
};

TEST(SettingsTable, HasTheVariablesThatAreRead) {
  std::set<std::string> named;
  for (const auto& setting : settingsTable()) named.insert(setting.first);
  EXPECT_EQ(named, variablesRead());
}

TEST_F(Defaults, OfTheTransportAreThoseOfTheTable) {
  const TraceCapture trace("0x10");
  makeClient();
  const std::string host = firstMatch(table.at("ZORA_DCH_ADDR"), "`(.*)`");
  const std::string port = firstMatch(table.at("ZORA_DCH_PORT"), "else (\\d+)$");
  EXPECT_EQ(table.at("ZORA_DCH_TRAPEMIT"), "off");
  EXPECT_TRUE(trace.has("_envDCHname[" + host + "] _envPortNo[" + port + "] _envDCHtimeout[" +
                        table.at("ZORA_DCH_TIMEOUT") + "] _envTRAPEMIT[0]\n"));
  EXPECT_TRUE(
      trace.has("Initializing " + table.at("ZORA_DCH_UDP_SOCKETS_IN_POOL") + " UDP sockets.\n"));
}

TEST_F(Defaults, OfThePortIsTheProductSettingOfTheTable) {
  const std::string item = firstMatch(table.at("ZORA_DCH_PORT"), "setting\\S* (\\d+),");
  const SettingsFile settings(item + "=4711\n");
  const TraceCapture trace("0x10");
  makeClient();
  EXPECT_TRUE(trace.has("Assigned DCH port number to 4711\n"));
}

TEST_F(Defaults, OfServersIsTheAddressOfTheTable) {
  sockaddr_in address{};
  int descriptor = -1;
  for (int tries = 0; tries < 20 && descriptor < 0; ++tries) {
    sockaddr_in anywhere{};
    ZOR0_CloseTheSocket(
        ZOR0_OpenLocalSocket(SOCK_KIND_UDP, 0, &anywhere, ZOR0_SOCKET_LOOPBACK, nullptr));
    descriptor = ZOR0_OpenLocalSocket(SOCK_KIND_UDP, anywhere.sin_port, &address, ZOR0_SOCKET_PLAIN,
                                      nullptr);
  }
  ASSERT_GE(descriptor, 0);
  ZOR0_CloseTheSocket(descriptor);
  in_addr expected{};
  inet_pton(AF_INET, firstMatch(table.at("ZOR0_BIND_ADDR"), "`(.*)`").c_str(), &expected);
  EXPECT_EQ(address.sin_addr.s_addr, expected.s_addr);
}

TEST_F(Defaults, OfTheTraceAreErrorsOnStandardError) {
  const ProcessResult result = runInChild([] {
    makeClient();
    ZORA_GetLock(nullptr, nullptr);
    return 0;
  });
  EXPECT_EQ(table.at("ZORA_TRACE"), "`0x80`, errors");
  EXPECT_EQ(table.at("ZORA_TRACE_FILE"), "standard error");
  EXPECT_NE(result.standardError.find("Error: pthread_mutex_lock failed"), std::string::npos);
  EXPECT_EQ(result.standardError.find("_envDCHname"), std::string::npos) << "a detail";
}

TEST_F(Defaults, OfTheOthersAreThoseOfTheTable) {
  EXPECT_EQ(std::to_string(ZORA_GetIPCtype()), table.at("ZORA_DCH_IPCTYPE"));
  EXPECT_EQ(VX_Debug(), 0);
  EXPECT_EQ(table.at("ZORA_VERBOSE"), "off");
  // Nobody can look there in a test: whether it exists is the machine's affair.
  const std::string path = firstMatch(table.at("ZOR0_PRODUCT_SPEC"), "`(.*)`");
  EXPECT_NE(shippedSources().find('"' + path + '"'), std::string::npos);
}

}  // namespace
