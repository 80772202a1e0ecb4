#include "fuzz/support/text_seeds.h"

#include "fuzz/support/seed_bytes.h"

namespace fuzz {

const char configurationText[] = R"([channel]
bind = "127.0.0.1"
port = 1919
instance = ""
allow = ["0.0.0.0/0"]
connections = 1024
stream_message_bytes = 1048576
[store]
path = "/var/lib/zord410/zordchd.db"
durability = "process"
keep_days = 30
keep_megabytes = 1024
[actions]
file = "/etc/zord410/actions"
allow = ["127.0.0.0/8"]
[log]
verbose = false
)";

const char runText[] = R"(registration = """
  appl:MACHINE,MCH; group:disks; attr:mount,D,128; attr:used,G,8;
"""
[[rows]]
group = "disks"
source = "web1"
command = '''df --output=target,used | tail -n +2'''  # a comment
every = 10
timeout = 0.5
format = "words"
columns = ["mount", "used"]
[[rows]]
group = "disks"
command = "true"
format = "jsonl"
)";

std::vector<std::string> settingsSeeds() {
  const auto input = [](int item, const std::string& text, const std::string& content) {
    return byte(static_cast<unsigned>(item + 2)) + text + '\n' + content;
  };
  return {input(22, "1919", ""),
          input(22, "1919", "22=1918\n"),
          input(3, "ZORA", "0=Y\n3=OTHER\n23=100\n"),
          input(23, "1000", "# a comment\n22=1\n23=2\n23=3"),
          input(2, "two", "22=1\r\n 2=x\n2=\n"),
          input(0, "a\rb", "0=1\n"),
          input(-1, "", "-1=x")};
}

std::vector<std::string> subnodeSeeds() {
  const auto input = [](unsigned choice, const std::string& source, const std::string& suffix) {
    return byte(choice) + "HMN\nload\n" + source + "\n00\n" + suffix + '\n' + source + ":HMN00";
  };
  std::vector<std::string> seeds;
  for (const unsigned choice : {0u, 1u, 2u, 3u}) {
    seeds.push_back(input(choice, "hostA", "X1"));
    seeds.push_back(input(choice, std::string(30, 'h'), "X1"));
    seeds.push_back(input(choice, std::string(40, 'h'), std::string(28, 's')));
    seeds.push_back(input(choice, "", ""));
    seeds.push_back(input(choice, "a:b", ":"));
  }
  return seeds;
}

}  // namespace fuzz
