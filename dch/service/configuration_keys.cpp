#include "dch/service/configuration_keys.h"

#include <cstdint>
#include <optional>

#include "dch/service/setting_checks.h"

namespace dch {

namespace {

using files::WrongValue;

std::int64_t numberIn(const toml::node& value, std::int64_t least, std::int64_t most) {
  const std::optional<std::int64_t> number = value.value_exact<std::int64_t>();
  if (!number || *number < least || *number > most)
    throw WrongValue{
        value, "a whole number from " + std::to_string(least) + " to " + std::to_string(most)};
  return *number;
}

bool switchIn(const toml::node& value) {
  const std::optional<bool> isOn = value.value_exact<bool>();
  if (!isOn) throw WrongValue{value, "true or false"};
  return *isOn;
}

// Nothing when the text is empty.
std::optional<std::string> textIn(const toml::node& value,
                                  const char* whatItHasToBe = "a text in quotes") {
  std::optional<std::string> text = value.value_exact<std::string>();
  if (!text || text->find('\0') != std::string::npos) throw WrongValue{value, whatItHasToBe};
  return text->empty() ? std::nullopt : text;
}

std::optional<std::string> pathIn(const toml::node& value) {
  return textIn(value, "the path of a file in quotes");
}

// The same, and nothing is wrong with it.
std::optional<std::string> textIn(const toml::node& value, const char* whatItHasToBe,
                                  std::string (*check)(const std::string&)) {
  std::optional<std::string> text = textIn(value, whatItHasToBe);
  if (text && !check(*text).empty()) throw WrongValue{value, whatItHasToBe};
  return text;
}

std::optional<std::string> addressIn(const toml::node& value) {
  return textIn(value, "an IPv4 address such as \"127.0.0.1\"", checkAddress);
}

std::optional<std::string> instanceIn(const toml::node& value) {
  return textIn(value, "a name of up to 20 characters", checkInstanceName);
}

const toml::array& arrayIn(const toml::node& value, const char* whatItHasToBe) {
  const toml::array* const array = value.as_array();
  if (array == nullptr) throw WrongValue{value, whatItHasToBe};
  return *array;
}

AddressRanges rangesIn(const toml::node& value) {
  AddressRanges ranges;
  for (const toml::node& each : arrayIn(value, "an array such as [\"10.0.0.0/8\"]")) {
    const std::optional<std::string> text = each.value_exact<std::string>();
    constexpr char expected[] = "an address or a range such as \"10.0.0.0/8\"";
    if (!text) throw WrongValue{each, expected};
    const std::string problem = ranges.add(*text);
    if (!problem.empty()) throw WrongValue{each, std::string(expected) + "; it is " + problem};
  }
  return ranges;
}

// Returns whether there is one.
bool textsIn(const toml::node& value) {
  const toml::array& texts = arrayIn(value, "an array of texts in quotes");
  for (const toml::node& each : texts) textIn(each);
  return !texts.empty();
}

std::optional<WebAddress> webAddressIn(const toml::node& value) {
  const std::optional<std::string> text =
      textIn(value, "an address and port such as \"127.0.0.1:1980\"", checkWebAddress);
  return text ? parseWebAddress(*text) : std::nullopt;
}

std::vector<std::string> hostsIn(const toml::node& value) {
  std::vector<std::string> hosts;
  for (const toml::node& each : arrayIn(value, "an array such as [\"monitor.example\"]")) {
    constexpr char expected[] = "the name of a host, without a port";
    const std::optional<std::string> text = textIn(each, expected, checkHostName);
    if (!text) throw WrongValue{each, expected};
    hosts.push_back(*text);
  }
  return hosts;
}

std::vector<std::string> linkServersIn(const toml::node& value) {
  std::vector<std::string> servers;
  for (const toml::node& each : arrayIn(value, "an array such as [\"nats://host:4222\"]")) {
    constexpr char expected[] = "a server such as \"nats://host:4222\" or \"tls://host:4222\"";
    if (each.value_or(std::string()).find('@') != std::string::npos)
      throw WrongValue{each,
                       "without user and password, which are read from the file that credentials "
                       "names",
                       true};
    const std::optional<std::string> text = textIn(each, expected, checkLinkServer);
    if (!text) throw WrongValue{each, expected};
    servers.push_back(*text);
  }
  return servers;
}

Durability durabilityIn(const toml::node& value) {
  const std::optional<std::string> text = value.value_exact<std::string>();
  if (text == "process") return Durability::process;
  if (text == "power") return Durability::power;
  throw WrongValue{value, "\"process\" or \"power\""};
}

// Keys of what this version does not have take what leaves it out.
constexpr char leftOut[] = "left out: this version does not have it";

void readNoText(const toml::node& value, Configuration*) {
  if (textIn(value, leftOut)) throw WrongValue{value, leftOut};
}

void readNoTexts(const toml::node& value, Configuration*) {
  if (textsIn(value)) throw WrongValue{value, leftOut};
}

constexpr std::int64_t mostConnections = 1'000'000;
constexpr std::int64_t leastMessageBytes = 64;
constexpr std::int64_t mostMessageBytes = StreamLimits{}.heldBytes;  // longer ones never end
constexpr std::int64_t mostDays = 36'500;
constexpr std::int64_t mostMegabytes = 100'000'000;

constexpr ConfigurationKey keys[] = {
    {"channel", "bind",
     [](const toml::node& value, Configuration* to) { to->bindAddress = addressIn(value); }},
    {"channel", "port",
     [](const toml::node& value, Configuration* to) {
       to->port = static_cast<int>(numberIn(value, 0, 65'535));
     }},
    {"channel", "instance",
     [](const toml::node& value, Configuration* to) { to->instance = instanceIn(value); }},
    {"channel", "allow",
     [](const toml::node& value, Configuration* to) { to->limits.allowed = rangesIn(value); }},
    {"channel", "connections",
     [](const toml::node& value, Configuration* to) {
       to->limits.streams.connections =
           static_cast<std::size_t>(numberIn(value, 1, mostConnections));
     }},
    {"channel", "stream_message_bytes",
     [](const toml::node& value, Configuration* to) {
       to->limits.streams.messageBytes =
           static_cast<std::size_t>(numberIn(value, leastMessageBytes, mostMessageBytes));
     }},
    {"store", "path",
     [](const toml::node& value, Configuration* to) { to->store = pathIn(value); }},
    {"store", "durability",
     [](const toml::node& value, Configuration* to) { to->durability = durabilityIn(value); }},
    {"store", "keep_days",
     [](const toml::node& value, Configuration* to) {
       to->retention.days = numberIn(value, 1, mostDays);
     }},
    {"store", "keep_megabytes",
     [](const toml::node& value, Configuration* to) {
       to->retention.megabytes = numberIn(value, 1, mostMegabytes);
     }},
    {"store", "postgresql", readNoText},
    {"actions", "file",
     [](const toml::node& value, Configuration* to) { to->actionsFile = pathIn(value); }},
    {"actions", "allow",
     [](const toml::node& value, Configuration* to) { to->actions.allowed = rangesIn(value); }},
    {"web", "listen",
     [](const toml::node& value, Configuration* to) { to->webAddress = webAddressIn(value); }},
    {"web", "hosts",
     [](const toml::node& value, Configuration* to) { to->webAccess.hosts = hostsIn(value); }},
    {"web", "token_file",
     [](const toml::node& value, Configuration* to) { to->tokenFile = pathIn(value); }},
    {"log", "verbose",
     [](const toml::node& value, Configuration* to) { to->isVerbose = switchIn(value); }},
    {"link", "servers",
     [](const toml::node& value, Configuration* to) { to->link.servers = linkServersIn(value); }},
    {"link", "site",
     [](const toml::node& value, Configuration* to) {
       to->link.site = textIn(value, "a name of up to 64 English letters, digits, '.', '-' and '_'",
                              checkSiteName)
                           .value_or("");
     }},
    {"link", "credentials",
     [](const toml::node& value, Configuration* to) { to->credentialsFile = pathIn(value); }},
    {"link", "tls_ca",
     [](const toml::node& value, Configuration* to) { to->link.tlsCa = pathIn(value); }},
    {"link", "nodes", readNoTexts},
    {"link", "store_remote",
     [](const toml::node& value, Configuration* to) { to->link.storeRemote = switchIn(value); }},
};

}  // namespace

std::span<const ConfigurationKey> configurationKeys() {
  return keys;
}

}  // namespace dch
