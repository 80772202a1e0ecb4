#include "dch/web/router.h"

#include <algorithm>
#include <new>
#include <optional>
#include <string_view>
#include <utility>

#include "dch/clock.h"
#include "dch/core/registry.h"
#include "dch/core/status_events.h"
#include "dch/web/applications_json.h"
#include "dch/web/http_status.h"
#include "dch/web/moment.h"
#include "dch/web/page_file.h"
#include "dch/web/text_parts.h"
#include "dch/web/web_error.h"

namespace dch {

namespace {

constexpr std::string_view startPage = "index.html";
constexpr std::string_view askingPage = "login.html";
constexpr long long mostRows = 1'000'000'000;
constexpr long long mostPoints = 100'000;

constexpr char liveType[] = "text/event-stream";
constexpr char noMemory[] = "the server has no memory for the answer";

Answer fileAnswer(int status, const PageFile& file) {
  return {.status = status,
          .type = pageFileType(file.name),
          .body = shareText(std::string(file.content))};
}

std::optional<Time> momentIn(const Parameters& asked, std::string_view name, Time now) {
  const std::optional<std::string_view> text = asked.find(name);
  if (!text) return std::nullopt;
  const std::optional<Time> moment = parseMoment(*text, now);
  if (!moment)
    throw WebError(http_status::badRequest,
                   "'" + std::string(name) +
                       "' has to be a time such as 2026-01-31T23:59:59Z, seconds since "
                       "1970, or -90s, -15m, -24h or -7d, not " +
                       shown(*text));
  return moment;
}

bool isCsv(const Parameters& asked) {
  const std::string_view format = asked.find("format").value_or("json");
  if (format != "json" && format != "csv")
    throw WebError(http_status::badRequest, "'format' has to be json or csv, not " + shown(format));
  return format == "csv";
}

std::size_t sizeOf(long long number) {
  return static_cast<std::size_t>(number);
}

RowsQuestion questionIn(const Parameters& asked) {
  RowsQuestion question;
  question.application = asked.get("application");
  question.group = asked.get("group");
  if (const auto source = asked.find("source")) question.source = *source;
  const Time present = now();
  question.since = momentIn(asked, "since", present);
  question.until = momentIn(asked, "until", present);
  if (question.since && question.until && *question.since > *question.until)
    throw WebError(http_status::badRequest, "'since' is later than 'until'");
  if (const auto limit = asked.number("limit", 1, mostRows)) question.limit = sizeOf(*limit);
  if (const auto points = asked.number("points", 1, mostPoints)) question.points = sizeOf(*points);
  if (question.limit && question.points)
    throw WebError(http_status::badRequest, "'limit' and 'points' exclude each other");
  question.asCsv = isCsv(asked);
  return question;
}

// As a sentence; nothing when both are known.
std::string whatIsUnknown(const Snapshot& snapshot, std::string_view application,
                          std::string_view group) {
  const auto& known = *snapshot.applications;
  const auto found = std::find_if(known.begin(), known.end(),
                                  [&](const auto& each) { return each->applName == application; });
  if (found == known.end()) return "there is no application " + shown(application);
  const auto& groups = (*found)->groups;
  const bool hasGroup = std::any_of(groups.begin(), groups.end(),
                                    [&](const auto& each) { return each.name == group; });
  return hasGroup ? "" : "application " + shown(application) + " has no group " + shown(group);
}

// A program of another site's that a browser runs has no business here. Browsers tell the site only
// where they trust the connection, the origin everywhere.
bool isOfAnotherSite(const WebRequest& request) {
  if (request.fetchSite == "cross-site" && request.fetchMode != "navigate") return true;
  const std::string_view origin = request.origin;
  const std::size_t scheme = origin.find("://");
  return !origin.empty() && (scheme == std::string_view::npos || !request.host ||
                             !isSameName(origin.substr(scheme + 3), *request.host));
}

}  // namespace

struct Router::Route {
  std::string_view path;
  std::initializer_list<std::string_view> parameters;
  void (Router::*answer)(const WebRequest& request, const Parameters& asked,
                         const Respond& respond);
  bool isForEverybody = false;
};

const Router::Route* Router::findRoute(std::string_view path) {
  static const Route routes[] = {
      {"/api/applications", {}, &Router::answerApplications},
      {"/api/rows",
       {"application", "group", "source", "since", "until", "limit", "points", "format"},
       &Router::answerRows},
      {"/api/live", {"application", "group", "status"}, &Router::answerLive},
      {"/api/state", {}, &Router::answerState},
      {"/metrics", {}, &Router::answerMetrics},
      {"/healthz", {}, &Router::answerHealth, true},
  };
  for (const Route& each : routes)
    if (each.path == path) return &each;
  return nullptr;
}

void Router::handle(const WebRequest& request, const Respond& respond) {
  const auto counted = [this, respond](Answer&& answer) {
    if (!answer.isExpected) count(answer.status);
    respond(std::move(answer));
  };
  try {
    answer(request, counted);
  } catch (const WebError& error) {
    counted(errorAnswer(error.status(), error.what()));
  } catch (const std::bad_alloc&) {
    counted(errorAnswer(http_status::serviceUnavailable, noMemory));
  }
}

void Router::count(int status) {
  if (status == http_status::unauthorized || status == http_status::forbidden)
    _parts.counters.add(Counter::webRequestsRefused);
  if (status == http_status::serviceUnavailable) _parts.counters.add(Counter::webFailures);
}

void Router::answer(const WebRequest& request, const Respond& respond) {
  if (request.host && !_access.allowsHost(*request.host))
    throw WebError(http_status::forbidden,
                   "this server is not " + shown(*request.host) +
                       "; ask for it by its address, or have its name added to hosts "
                       "in [web]");
  if (isOfAnotherSite(request))
    throw WebError(http_status::forbidden, "pages of other sites may not read what is here");
  if (!request.isRead) {
    Answer answer =
        errorAnswer(http_status::methodNotAllowed, "what is here can only be read: GET or HEAD");
    answer.fields.emplace_back("Allow", "GET, HEAD");
    return respond(std::move(answer));
  }
  const RequestTarget target = parseTarget(request.target);
  const Route* const route = findRoute(target.path);
  const bool isForEverybody = route != nullptr && route->isForEverybody;
  if (!isForEverybody && !_access.allowsToken(request.authorization, request.cookies))
    return refuseWithoutToken(request, target.path, respond);
  if (route == nullptr) return answerFile(target.path, respond);
  const Parameters asked(target.query);
  asked.allow(route->parameters);
  (this->*route->answer)(request, asked, respond);
}

void Router::refuseWithoutToken(const WebRequest& request, std::string_view path,
                                const Respond& respond) {
  const std::string_view name = path.substr(1);
  if (isForAskingToken(name))
    if (const PageFile* const file = findPageFile(name))
      return respond(fileAnswer(http_status::ok, *file));
  Answer answer = name.empty() ? fileAnswer(http_status::unauthorized, *findPageFile(askingPage))
                               : errorAnswer(http_status::unauthorized,
                                             "a token is needed: Authorization: Bearer TOKEN");
  answer.fields.emplace_back("WWW-Authenticate", "Bearer");
  // Who shows no token at all is only asked for it.
  answer.isExpected = !Access::showsToken(request.authorization, request.cookies);
  respond(std::move(answer));
}

// What stands behind the question mark is the page's own.
void Router::answerFile(std::string_view path, const Respond& respond) {
  const std::string_view name = path == "/" ? startPage : path.substr(1);
  const PageFile* const file = findPageFile(name);
  if (file == nullptr) throw WebError(http_status::notFound, "there is nothing at " + shown(path));
  respond(fileAnswer(http_status::ok, *file));
}

void Router::answerApplications(const WebRequest&, const Parameters&, const Respond& respond) {
  _parts.channel.askForSnapshot([this, respond](const std::shared_ptr<const Snapshot>& snapshot) {
    respond(sharedAnswer(snapshot, SharedBodies::Kind::applications, jsonType,
                         [&] { return applicationsJson(*snapshot); }));
  });
}

Answer Router::sharedAnswer(const std::shared_ptr<const Snapshot>& snapshot,
                            SharedBodies::Kind kind, const std::string& type,
                            const std::function<std::string()>& make) {
  try {
    if (snapshot == nullptr) throw std::bad_alloc();
    SharedText body = _bodies.of(snapshot, kind, make);
    if (body == nullptr)
      return errorAnswer(http_status::serviceUnavailable,
                         "too many large answers are being read already");
    return {.type = type, .body = std::move(body)};
  } catch (const std::bad_alloc&) {
    return errorAnswer(http_status::serviceUnavailable, noMemory);
  }
}

void Router::answerRows(const WebRequest&, const Parameters& asked, const Respond& respond) {
  _parts.rows.answer(questionIn(asked), respond);
}

void Router::answerLive(const WebRequest&, const Parameters& asked, const Respond& respond) {
  const bool wantsStatus = asked.flag("status");
  const bool wantsRows = asked.find("application") || asked.find("group") || !wantsStatus;
  const std::string application(wantsRows ? asked.get("application") : "");
  const std::string group(wantsRows ? asked.get("group") : "");
  std::vector<std::string> topics;
  if (wantsRows) topics.push_back(topicOf(application, group));
  if (wantsStatus) topics.emplace_back(statusTopic);
  _parts.channel.askForSnapshot([=, this](const std::shared_ptr<const Snapshot>& snapshot) {
    if (snapshot == nullptr) return respond(errorAnswer(http_status::serviceUnavailable, noMemory));
    const std::string problem = wantsRows ? whatIsUnknown(*snapshot, application, group) : "";
    if (!problem.empty()) return respond(errorAnswer(http_status::notFound, problem));
    _parts.live.open(topics, [respond](std::unique_ptr<Pieces> pieces) {
      if (pieces == nullptr)
        return respond(
            errorAnswer(http_status::serviceUnavailable, "too many pages are live already"));
      respond({.type = liveType, .pieces = std::move(pieces)});
    });
  });
}

void Router::answerState(const WebRequest&, const Parameters&, const Respond& respond) {
  _parts.channel.askForFigures([this, respond](const std::shared_ptr<const Figures>& figures) {
    if (figures == nullptr) return respond(errorAnswer(http_status::serviceUnavailable, noMemory));
    respond({.type = jsonType,
             .body = shareText(stateJson(_parts.facts, _parts.counters, *figures, *sites()))});
  });
}

void Router::answerMetrics(const WebRequest& request, const Parameters&, const Respond& respond) {
  const MetricsForm form = metricsFormFor(request.accept);
  const auto kind =
      form == MetricsForm::text ? SharedBodies::Kind::metricsText : SharedBodies::Kind::openMetrics;
  _parts.channel.askForFigures([=, this](const std::shared_ptr<const Figures>& figures) {
    _parts.channel.askForSnapshot([=, this](const std::shared_ptr<const Snapshot>& snapshot) {
      respond(sharedAnswer(figures != nullptr ? snapshot : nullptr, kind, metricsType(form), [&] {
        return metricsText(form, _parts.counters, *figures, *snapshot, *sites());
      }));
    });
  });
}

std::shared_ptr<const std::vector<SiteState>> Router::sites() const {
  auto sites = _parts.sites();
  return sites != nullptr ? sites : std::make_shared<const std::vector<SiteState>>();
}

void Router::answerHealth(const WebRequest&, const Parameters&, const Respond& respond) {
  const std::string trouble = _parts.health.trouble(Health::Clock::now());
  respond({.status = trouble.empty() ? http_status::ok : http_status::serviceUnavailable,
           .type = "text/plain; charset=utf-8",
           .body = shareText((trouble.empty() ? "ok" : trouble) + "\n"),
           .isExpected = true});
}

}  // namespace dch
