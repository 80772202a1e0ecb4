#include "dch/service/configuration_file.h"

#include <gmock/gmock.h>
#include <netinet/in.h>

#include "dch/service/configuration_error.h"

namespace dch {
namespace {

using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::StartsWith;

Configuration readText(const std::string& text) {
  return readConfigurationText(text, "zordchd.toml");
}

std::string problemOf(const std::string& text) {
  try {
    readText(text);
    return "no error";
  } catch (const ConfigurationError& error) {
    return error.what();
  }
}

bool isAllowed(const AddressRanges& ranges, std::uint32_t address) {
  PeerAddress peer;
  peer.address = htonl(address);
  return ranges.contains(peer);
}

constexpr std::uint32_t loopback = 0x7f000001;
constexpr std::uint32_t elsewhere = 0x0a000001;

TEST(ConfigurationFileTest, LeavesWhatItDoesNotSay) {
  for (const char* text :
       {"", "# nothing\n", "[channel]\n[store]\n[actions]\n[web]\n[log]\n[link]\n"}) {
    const Configuration configuration = readText(text);
    EXPECT_EQ(configuration.port, std::nullopt);
    EXPECT_EQ(configuration.bindAddress, std::nullopt);
    EXPECT_EQ(configuration.instance, std::nullopt);
    EXPECT_TRUE(isAllowed(configuration.limits.allowed, elsewhere));
    EXPECT_EQ(configuration.limits.streams.connections, 1'024u);
    EXPECT_EQ(configuration.limits.streams.messageBytes, 1'048'576u);
    EXPECT_EQ(configuration.store, std::nullopt);
    EXPECT_EQ(configuration.durability, Durability::process);
    EXPECT_EQ(configuration.retention, (RetentionLimits{30, 1'024}));
    EXPECT_EQ(configuration.actionsFile, std::nullopt);
    EXPECT_TRUE(isAllowed(configuration.actions.allowed, loopback));
    EXPECT_FALSE(isAllowed(configuration.actions.allowed, elsewhere));
    EXPECT_FALSE(configuration.isVerbose);
    EXPECT_THAT(configuration.warnings, IsEmpty());
  }
}

TEST(ConfigurationFileTest, TakesEachKey) {
  const Configuration configuration = readText(R"(
[channel]
bind = "0.0.0.0"
port = 65535
instance = "second"
allow = ["10.0.0.0/8", "192.168.1.5"]
connections = 7
stream_message_bytes = 8192
[store]
path = "memory"
durability = "power"
keep_days = 7
keep_megabytes = 64
[actions]
file = "/etc/actions"
allow = []
[log]
verbose = true
)");
  EXPECT_EQ(configuration.bindAddress, "0.0.0.0");
  EXPECT_EQ(configuration.port, 65'535);
  EXPECT_EQ(configuration.instance, "second");
  EXPECT_TRUE(isAllowed(configuration.limits.allowed, elsewhere));
  EXPECT_TRUE(isAllowed(configuration.limits.allowed, 0xc0a80105));
  EXPECT_FALSE(isAllowed(configuration.limits.allowed, loopback));
  EXPECT_EQ(configuration.limits.streams.connections, 7u);
  EXPECT_EQ(configuration.limits.streams.messageBytes, 8'192u);
  EXPECT_EQ(configuration.store, "memory");
  EXPECT_EQ(configuration.durability, Durability::power);
  EXPECT_EQ(configuration.retention, (RetentionLimits{7, 64}));
  EXPECT_EQ(configuration.actionsFile, "/etc/actions");
  EXPECT_FALSE(isAllowed(configuration.actions.allowed, loopback));
  EXPECT_TRUE(configuration.isVerbose);
}

TEST(ConfigurationFileTest, TakesAnEmptyTextForNone) {
  const Configuration configuration =
      readText("[channel]\nbind = ''\ninstance = ''\n[store]\npath = ''\n[actions]\nfile = ''\n");
  EXPECT_EQ(configuration.bindAddress, std::nullopt);
  EXPECT_EQ(configuration.instance, std::nullopt);
  EXPECT_EQ(configuration.store, std::nullopt);
  EXPECT_EQ(configuration.actionsFile, std::nullopt);
}

struct Wrong {
  const char* text;
  const char* problem;
};

TEST(ConfigurationFileTest, SaysWhichValueIsWrongAndWhatIsRight) {
  for (const Wrong& each : std::initializer_list<Wrong>{
           {"[channel]\nport = 70000",
            "2: port in [channel] has to be a whole number from 0 to 65535, not 70000"},
           {"[channel]\nport = -1", "from 0 to 65535, not -1"},
           {"[channel]\nport = '1919'", "from 0 to 65535, not '1919'"},
           {"[channel]\nport = 1919.0", "from 0 to 65535, not 1919.0"},
           {"[channel]\nport = true", "from 0 to 65535, not true"},
           {"[channel]\nport = [1919]", "from 0 to 65535, not an array"},
           {"[channel]\nport = {}", "from 0 to 65535, not a table"},
           {"[channel]\nbind = 'localhost'", "2: bind in [channel] has to be an IPv4 address"},
           {"[channel]\nbind = \"127.0.0.1\\u0000x\"", "not \"127.0.0.1\\u0000x\""},
           {"[channel]\ninstance = '123456789012345678901'", "up to 20 characters"},
           {"[channel]\nallow = '10.0.0.0/8'", "2: allow in [channel] has to be an array"},
           {"[channel]\nallow = [\n'10.0.0.0/8',\n7]",
            "4: allow in [channel] has to be an address or a range"},
           {"[channel]\nallow = ['10.0.0.1/8']", "10.0.0.0/8, or 10.0.0.1/32"},
           {"[channel]\nconnections = 0", "from 1 to 1000000, not 0"},
           {"[channel]\nstream_message_bytes = 1", "from 64 to 67108864, not 1"},
           {"[store]\npath = 1", "path of a file in quotes, not 1"},
           {"[store]\ndurability = 'disk'", "\"process\" or \"power\", not 'disk'"},
           {"[store]\nkeep_days = 0", "from 1 to 36500, not 0"},
           {"[store]\nkeep_megabytes = 0", "from 1 to 100000000, not 0"},
           {"[store]\npostgresql = 'dbname=x'", "has to be left out"},
           {"[actions]\nallow = ['nobody']", "2: allow in [actions] has to be"},
           {"[log]\nverbose = 1", "true or false, not 1"},
           {"[link]\nservers = 'nats://x:4222'", "2: servers in [link] has to be an array such as"},
           {"[link]\nservers = ['nats://x']", "a server such as \"nats://host:4222\""},
           {"[link]\nservers = ['x:4222']", "a server such as \"nats://host:4222\""},
           {"[link]\nservers = ['http://x:4222']", "a server such as \"nats://host:4222\""},
           {"[link]\nservers = ['nats://me:secret@x:4222']",
            "2: servers in [link] has to be without user and password, which are read from the "
            "file that credentials names"},
           {"[link]\nservers = ['nats://x:65536']", "a server such as"},
           {"[link]\nservers = ['nats://x:0']", "a server such as"},
           {"[link]\nservers = ['nats://[::g]:4222']", "a server such as"},
           {"[link]\nservers = ['nats://x:4222', '']", "a server such as"},
           {"[link]\nsite = 'a b'", "a name of up to 64 English letters, digits, '.', '-' and '_'"},
           {"[link]\nsite = 7", "a name of up to 64 English letters"},
           {"[link]\ncredentials = 7", "path of a file in quotes, not 7"},
           {"[link]\nnodes = ['x']", "left out: this version does not have it"},
           {"[link]\nstore_remote = 1", "true or false, not 1"},
           {"[web]\nlisten = 1980", "an address and port such as \"127.0.0.1:1980\""},
           {"[web]\nlisten = 'localhost:1980'", "an address and port such as"},
           {"[web]\nhosts = 'x'", "an array such as [\"monitor.example\"]"},
           {"[web]\nhosts = ['x:80']", "the name of a host, without a port"},
           {"[web]\nhosts = ['']", "the name of a host, without a port"}})
    EXPECT_THAT(problemOf(each.text), HasSubstr(each.problem)) << each.text;
}

TEST(ConfigurationFileTest, ShowsNoPassword) {
  EXPECT_THAT(problemOf("[link]\nservers = ['nats://me:secret@x:4222']"), Not(HasSubstr("secret")));
}

TEST(ConfigurationFileTest, SaysWhichKeysThereAre) {
  EXPECT_EQ(problemOf("[store]\nkeep = 3"),
            "zordchd.toml:2: there is no key keep in [store]; there are durability, keep_days, "
            "keep_megabytes, path, postgresql");
  EXPECT_EQ(problemOf("\n[chanel]\nport = 1"),
            "zordchd.toml:2: there is no section [chanel]; there are actions, channel, link, log, "
            "store, web");
  EXPECT_EQ(problemOf("port = 1919"),
            "zordchd.toml:1: port has to be in a section, one of actions, channel, link, log, "
            "store, web");
  EXPECT_THAT(problemOf("[[channel]]\nport = 1"), StartsWith("zordchd.toml:1: channel has to be"));
}

TEST(ConfigurationFileTest, SaysAllThatIsWrongInTheOrderOfTheFile) {
  EXPECT_EQ(problemOf("[store]\nkeep_days = 0\n[channel]\nport = 'x'\n"),
            "zordchd.toml:2: keep_days in [store] has to be a whole number from 1 to 36500, not 0\n"
            "zordchd.toml:4: port in [channel] has to be a whole number from 0 to 65535, not 'x'");
}

TEST(ConfigurationFileTest, SaysWhereAFileIsNoToml) {
  EXPECT_THAT(problemOf("[channel]\nport 1919\n"), StartsWith("zordchd.toml:2: "));
  EXPECT_THAT(problemOf("[channel]\nport = 1\nport = 2\n"), StartsWith("zordchd.toml:3: "));
  EXPECT_THAT(problemOf("[channel\n"), StartsWith("zordchd.toml:1: "));
  EXPECT_THAT(problemOf(std::string("\0", 1)), StartsWith("zordchd.toml:1: "));
  for (const char* text : {"\nport = \"\" # \u00e4\n\u00e4 = 1", "\n\n[\u00e4]"})
    EXPECT_EQ(
        problemOf(text),
        "zordchd.toml:3: letters that are not English ones have to be written as \"\\u00e4\"");
  EXPECT_THAT(problemOf("a = \"\"\"x # \n\u00e4\"\"\""),
              StartsWith("zordchd.toml:2: letters that are not English"));
  for (const char* text : {"a = \"\"\"\n", "a = '''x''", "a = \"x\n"})
    EXPECT_THAT(problemOf(text), StartsWith("zordchd.toml:")) << text;
  for (const char* text : {"'''it's''''' # \u00e4", "\"\"\"\n\\\"\"x\"\"\" # \u00e4"})
    EXPECT_EQ(problemOf("[channel]\ninstance = " + std::string(text)), "no error") << text;
  EXPECT_EQ(problemOf("[channel]\ninstance = \"\\\"\\u00e4#\" # \u00e4"), "no error");
  for (const char* text :
       {"\n[", "\n [ +]\n\n", "\n[[[a]]]", "\n[\r\n]", "\n[\x7f]\na = 1", "\na = [1, }\n]"})
    EXPECT_THAT(problemOf(text), StartsWith("zordchd.toml:2: ")) << text;
  EXPECT_THAT(problemOf("\xff"), StartsWith("zordchd.toml:1: "));
  EXPECT_THAT(problemOf("a = " + std::string(100'000, '[')), StartsWith("zordchd.toml:1: "));
}

TEST(ConfigurationFileTest, ShowsNothingThatDrivesATerminal) {
  EXPECT_THAT(problemOf("[channel]\nbind = \"\\u001b[2J\"\n"), HasSubstr("not \"\\u001B[2J\""));
  EXPECT_THAT(problemOf("[channel]\n\"\\u001b[2J\" = 1\n"), HasSubstr("no key \\x1b[2J"));
}

TEST(ConfigurationFileTest, SaysWhereThePageIsAndWhoMayReadIt) {
  const Configuration read =
      readText("[web]\nlisten = '127.0.0.1:1980'\nhosts = ['a.example', 'b']\n");
  EXPECT_EQ((WebAddress{"127.0.0.1", 1980}), read.webAddress);
  EXPECT_THAT(read.webAccess.hosts, ::testing::ElementsAre("a.example", "b"));
  EXPECT_EQ(std::nullopt, readText("[web]\nlisten = ''\n").webAddress);
}

TEST(ConfigurationFileTest, SaysWithWhomASiteIsLinked) {
  const Configuration read = readText(R"(
[link]
servers = ["nats://a.example:4222", "tls://10.0.0.1:4223", "nats://[::1]:65535"]
site = "west-1.example_2"
credentials = "/etc/zord410/credentials"
tls_ca = "/etc/zord410/ca.pem"
nodes = []
store_remote = false
)");
  EXPECT_THAT(
      read.link.servers,
      ::testing::ElementsAre("nats://a.example:4222", "tls://10.0.0.1:4223", "nats://[::1]:65535"));
  EXPECT_EQ(read.link.site, "west-1.example_2");
  EXPECT_EQ(read.link.tlsCa, "/etc/zord410/ca.pem");
  EXPECT_EQ(read.credentialsFile, "/etc/zord410/credentials");
  const Configuration none = readText("[link]\nservers = []\nsite = ''\ncredentials = ''\n");
  EXPECT_THAT(none.link.servers, IsEmpty());
  EXPECT_EQ(none.link.site, "");
  EXPECT_EQ(none.credentialsFile, std::nullopt);
}

TEST(ConfigurationFileTest, SaysThatAHubNeedsServers) {
  constexpr char problem[] = "store_remote in [link] needs servers in [link]";
  EXPECT_THAT(problemOf("[link]\nstore_remote = true"),
              StartsWith(std::string("zordchd.toml:2: ") + problem));
  EXPECT_THAT(problemOf("[link]\nservers = []\nsite = 'hub'\nstore_remote = true\n"),
              StartsWith(std::string("zordchd.toml:4: ") + problem));
  EXPECT_EQ(problemOf("[link]\nstore_remote = true\nservers = ['nats://x:4222']"), "no error");
  EXPECT_THAT(problemOf("[link]\nstore_remote = true\nservers = ['x']"), Not(HasSubstr(problem)))
      << "of servers that are wrong it is said alone";
}

TEST(ConfigurationFileTest, SaysWhyAFileCannotBeRead) {
  for (const auto& [path, reason] : std::initializer_list<std::pair<const char*, const char*>>{
           {"/nowhere/zordchd.toml", "/nowhere/zordchd.toml: No such file or directory"},
           {"/", "/: Is a directory"},
           {"/dev/zero", "/dev/zero: it is no file, but a pipe"}}) {
    try {
      readConfigurationFile(path);
      FAIL() << path;
    } catch (const ConfigurationError& error) {
      EXPECT_THAT(error.what(), HasSubstr(reason));
    }
  }
}

}  // namespace
}  // namespace dch
