#include "dch/link/stream_settings.h"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <new>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <vector>

namespace dch {

namespace {

using nlohmann::json;
using std::chrono::steady_clock;

constexpr char rowSubjects[] = "zord.rows.>";
constexpr std::int64_t largestMessage = 1 << 20;

// JetStream's numbers of errors.
enum ErrorCode {
  nameInUse = 10058,
  streamNotFound = 10059,
  replicasNeedCluster = 10074,
};

json wantedSettings(int replicas) {
  using namespace std::chrono;
  return {
      {"name", rowsStreamName},
      {"subjects", {rowSubjects}},
      {"retention", "limits"},
      {"storage", "file"},
      {"num_replicas", replicas},
      // Age is the only limit: with many subjects a server removes rows more slowly than it takes
      // them, whichever limit they have reached. What it has no room for the site keeps.
      {"max_consumers", -1},
      {"max_msgs", -1},
      {"max_bytes", -1},
      {"max_msgs_per_subject", -1},
      {"max_msg_size", -1},
      {"discard", "old"},
      {"max_age", nanoseconds(days(7)).count()},
      // Longer than a cluster takes to choose another leader, after which rows are sent again. Each
      // server remembers the IDs of the rows of that time, some 260 bytes each.
      {"duplicate_window", nanoseconds(seconds(30)).count()},
      // Whoever may send a row may name any subject for the answer, those on which JetStream is
      // asked among them, and the answer can be read as a wish to remove rows.
      {"deny_delete", true},
      {"deny_purge", true},
  };
}

class JetStream {
 public:
  explicit JetStream(ServerConnection& connection) : _connection(connection) {}

  // Throws json::exception when the answer cannot be read.
  json ask(const std::string& question, const json& body = nullptr) {
    const std::string subject = "$JS.API.STREAM." + question + "." + rowsStreamName;
    const std::string text = body.is_null() ? std::string() : body.dump();
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(_end - steady_clock::now());
    const auto [message, nobodyTakesIt] =
        _connection.ask(subject, text, std::max(left, std::chrono::milliseconds(1)));
    if (nobodyTakesIt) _connection.fail("JetStream, which is to keep the rows, is not enabled");
    if (message == nullptr)
      _connection.fail("JetStream does not answer: it may have no leader now");
    const std::string_view answer(natsMsg_GetData(message.get()),
                                  static_cast<std::size_t>(natsMsg_GetDataLength(message.get())));
    return json::parse(answer);
  }

 private:
  ServerConnection& _connection;
  const steady_clock::time_point _end = steady_clock::now() + ServerConnection::longestAsking;
};

// Of a refusal; 0: it is none.
int errorCode(const json& answer) {
  return answer.contains("error") ? answer.at("error").value("err_code", -1) : 0;
}

json makeStream(ServerConnection& connection, JetStream& jetStream) {
  try {
    json answer = jetStream.ask("CREATE", wantedSettings(3));
    if (errorCode(answer) == replicasNeedCluster) return jetStream.ask("CREATE", wantedSettings(1));
    // Another site was faster.
    if (errorCode(answer) == nameInUse) return jetStream.ask("INFO");
    return answer;
  } catch (const NotPermitted&) {
    connection.fail(std::string("there is no stream ") + rowsStreamName +
                    ", and this user may not make it: somebody who may has to, for the subjects " +
                    rowSubjects);
  }
}

std::vector<std::string> tokensOf(const std::string& subject) {
  std::vector<std::string> tokens(1);
  for (const char each : subject) {
    if (each == '.')
      tokens.emplace_back();
    else
      tokens.back() += each;
  }
  return tokens;
}

// Whether each row's subject, zord.rows.SITE.APPLICATION.GROUP, is one of those.
bool takesRows(const std::string& subjects) {
  const std::vector<std::string> row{"zord", "rows", "*", "*", "*"};
  const std::vector<std::string> taken = tokensOf(subjects);
  for (std::size_t i = 0; i < row.size(); ++i) {
    if (i == taken.size()) return false;
    if (taken[i] == ">") return true;
    if (taken[i] != "*" && taken[i] != row[i]) return false;
  }
  return taken.size() == row.size();
}

// What rows would suffer from.
std::string faultsOf(const json& settings) {
  std::string faults;
  const auto note = [&](const char* name, const std::string& wanted) {
    faults += (faults.empty() ? "" : "; ") + std::string(name) + " is " +
              settings.value(name, json()).dump() + ", has to be " + wanted;
  };
  const auto have = [&](const char* name, const auto& otherwise) {
    return settings.value(name, otherwise);
  };

  const auto subjects = have("subjects", std::vector<std::string>());
  if (std::none_of(subjects.begin(), subjects.end(), takesRows))
    note("subjects", '"' + std::string(rowSubjects) + '"');
  if (have("retention", std::string()) != "limits") note("retention", "\"limits\"");
  if (have("storage", std::string()) != "file") note("storage", "\"file\"");
  if (have("max_msgs_per_subject", std::int64_t{-1}) > 0) note("max_msgs_per_subject", "-1");
  const auto largest = have("max_msg_size", std::int64_t{-1});
  if (largest >= 0 && largest < largestMessage)
    note("max_msg_size", "-1, or at least " + std::to_string(largestMessage));
  if (have("no_ack", false)) note("no_ack", "false");
  if (have("sealed", false)) note("sealed", "false");
  // With it a header of a row removes those before it, of all sites.
  if (have("allow_rollup_hdrs", false)) note("allow_rollup_hdrs", "false");
  if (settings.contains("mirror")) note("mirror", "nothing");
  return faults;
}

}  // namespace

StreamState provideRowsStream(ServerConnection& connection) {
  const std::string stream = std::string("the stream ") + rowsStreamName;
  try {
    JetStream jetStream(connection);
    json answer = jetStream.ask("INFO");
    if (errorCode(answer) == streamNotFound) answer = makeStream(connection, jetStream);
    if (errorCode(answer) != 0)
      connection.fail(stream + " is not to be had: " +
                      answer.at("error").value("description", std::string("no reason given")));
    const std::string faults = faultsOf(answer.at("config"));
    if (!faults.empty())
      connection.fail(stream + " has settings that rows cannot do with: " + faults);
    return {answer.value("created", std::string()),
            answer.value("/state/last_seq"_json_pointer, std::uint64_t{0})};
  } catch (const json::exception&) {
    connection.fail("what JetStream says of " + stream + " cannot be read");
  }
}

}  // namespace dch
