// router.h: what is answered under which address.
#ifndef DCH_WEB_ROUTER_H
#define DCH_WEB_ROUTER_H

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "dch/core/counters.h"
#include "dch/core/site_state.h"
#include "dch/web/access.h"
#include "dch/web/answer.h"
#include "dch/web/channel_view.h"
#include "dch/web/health.h"
#include "dch/web/kept_rows.h"
#include "dch/web/live_streams.h"
#include "dch/web/metrics_text.h"
#include "dch/web/request_target.h"
#include "dch/web/shared_bodies.h"
#include "dch/web/state_json.h"
#include "dch/web/web_request.h"

namespace dch {

// What requests are answered from.
struct RouterParts {
  ChannelView& channel;
  LiveStreams& live;
  KeptRows& rows;
  Counters& counters;
  const Health& health;
  ServerFacts facts;
  // The other sites, or null.
  std::function<std::shared_ptr<const std::vector<SiteState>>()> sites;
};

// One thread, the web's.
class Router {
 public:
  using Respond = std::function<void(Answer&&)>;

  // What the parts refer to outlives it.
  explicit Router(const RouterParts& parts) : _parts(parts) {}

  void setAccess(Access access) { _access = std::move(access); }
  const Access& access() const { return _access; }

  // Answers, within the call or later: with a sentence what cannot be done.
  void handle(const WebRequest& request, const Respond& respond);

 private:
  struct Route;
  static const Route* findRoute(std::string_view path);

  void answer(const WebRequest& request, const Respond& respond);
  std::shared_ptr<const std::vector<SiteState>> sites() const;
  void count(int status);
  void refuseWithoutToken(const WebRequest& request, std::string_view path, const Respond& respond);
  void answerFile(std::string_view path, const Respond& respond);

  void answerApplications(const WebRequest& request, const Parameters& asked,
                          const Respond& respond);
  void answerRows(const WebRequest& request, const Parameters& asked, const Respond& respond);
  void answerLive(const WebRequest& request, const Parameters& asked, const Respond& respond);
  void answerState(const WebRequest& request, const Parameters& asked, const Respond& respond);
  void answerMetrics(const WebRequest& request, const Parameters& asked, const Respond& respond);
  void answerHealth(const WebRequest& request, const Parameters& asked, const Respond& respond);

  Answer sharedAnswer(const std::shared_ptr<const Snapshot>& snapshot, SharedBodies::Kind kind,
                      const std::string& type, const std::function<std::string()>& make);

  const RouterParts _parts;
  Access _access;
  SharedBodies _bodies;
};

}  // namespace dch

#endif  // DCH_WEB_ROUTER_H
