#include "tools/completion_values.h"

#include <sys/time.h>
#include <sysexits.h>
#include <unistd.h>

#include <clocale>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <unordered_set>

#include "tools/catalogue_question.h"
#include "tools/common/failure.h"
#include "tools/common/printable.h"
#include "tools/history_command.h"
#include "tools/page_token.h"
#include "tools/registration_file.h"
#include "tools/web_answer.h"

namespace tools {
namespace {

constexpr suseconds_t patienceMicroseconds = 500'000;

// Whatever waits then: for the DCH, its name's address, its page or a disk. The library's own limit
// is a second at least.
void endSoon() {
  std::signal(SIGALRM, [](int) { _exit(EX_OK); });
  const itimerval once{{0, 0}, {0, patienceMicroseconds}};
  setitimer(ITIMER_REAL, &once, nullptr);
}

// Nor does the library tell anybody what it does.
void beSilent() {
  unsetenv("ZORA_TRACE");
  unsetenv("ZORA_TRACE_FILE");
}

std::string valueOf(const GivenValues& given, const std::string& name,
                    const std::string& otherwise) {
  const auto found = given.find(name);
  return found != given.end() ? found->second : otherwise;
}

class Names {
 public:
  void add(const std::string& name) {
    // What begins with - would be taken for an option.
    if (!name.empty() && name[0] != '-' && printable(name).text == name &&
        _known.insert(name).second)
      _candidates.push_back({name, ""});
  }
  std::vector<Candidate> take() { return std::move(_candidates); }

 private:
  std::vector<Candidate> _candidates;  // in the order in which they came
  std::unordered_set<std::string> _known;
};

std::vector<Candidate> namesOfTheDch(const std::string& name, const GivenValues& given) {
  constexpr short waitSeconds = 1;
  constexpr std::size_t parts = 5;  // of a line, in both answers
  // The groups in the lines of applications are separated by blanks, which their names may hold.
  const std::string answer =
      name == "GROUP"
          ? askCatalogue(&DCHclient::dc_getApplAttributes, given.at("APPL"), waitSeconds)
          : askCatalogue(&DCHclient::dc_getApplications, "", waitSeconds);
  Names names;
  for (const auto& record : catalogueRecords(answer, parts).records) names.add(record[0]);
  return names.take();
}

// As the shell would expand it.
std::string withHome(const std::string& path) {
  const char* const home = std::getenv("HOME");
  return path.starts_with("~/") && home != nullptr ? home + path.substr(1) : path;
}

nlohmann::json applicationsOfThePage(const GivenValues& given) {
  WebQuestion question{valueOf(given, "--web", HistoryOptions().web), "/api/applications", {}, {}};
  const std::string tokenPath = valueOf(given, "--token-file", "");
  if (!tokenPath.empty()) question.token = pageTokenIn(withHome(tokenPath));
  WebAnswer answer(question, [] {});
  if (answer.status() != 200) throw Failure(EX_UNAVAILABLE, "no applications");
  std::string body;
  for (std::string_view piece; !(piece = answer.read()).empty();) body += piece;
  return nlohmann::json::parse(body).at("applications");
}

std::vector<Candidate> namesOfThePage(const std::string& name, const GivenValues& given) {
  Names names;
  for (const auto& application : applicationsOfThePage(given)) {
    const std::string applicationName = application.at("name");
    if (name == "APPL") names.add(applicationName);
    if (name == "APPL" || applicationName != given.at("APPL")) continue;
    for (const auto& group : application.at("groups")) {
      const std::string groupName = group.at("name");
      if (name == "GROUP") names.add(groupName);
      // The source may be typed before the group.
      if (name == "GROUP" || groupName != valueOf(given, "GROUP", groupName)) continue;
      for (const auto& source : group.at("sources")) names.add(source.at("name"));
    }
  }
  return names.take();
}

}  // namespace

std::vector<Candidate> consumerValues(const CLI::App& command, const std::string& name,
                                      const GivenValues& given) {
  const bool asksPage = command.get_name() == "history";
  if (name != "APPL" && name != "GROUP" && !(asksPage && name == "--source")) return {};
  std::setlocale(LC_CTYPE, "");  // what a terminal can show depends on it
  endSoon();
  beSilent();
  return asksPage ? namesOfThePage(name, given) : namesOfTheDch(name, given);
}

std::vector<Candidate> providerValues(const CLI::App& /*command*/, const std::string& name,
                                      const GivenValues& given) {
  if (name != "--group") return {};
  const std::string path = withHome(given.at("--registration"));
  if (!std::filesystem::is_regular_file(path)) return {};  // what a pipe holds is for zordp send
  std::setlocale(LC_CTYPE, "");
  endSoon();
  Names names;
  for (const suite::RegisteredGroup& each : readRegistration(path).groups) names.add(each.name);
  return names.take();
}

}  // namespace tools
