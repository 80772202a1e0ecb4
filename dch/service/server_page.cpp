#include "dch/service/server_page.h"

#include <utility>

#include "dch/clock.h"

namespace dch {

ServerPage::ServerPage(EventLoop& loop, Counters& counters,
                       const std::optional<WebAddress>& address)
    : _counters(counters), _health(Health::Clock::now()) {
  if (!address) return;
  _port = openWebPort(*address);
  _channel.emplace(loop, counters);
}

void ServerPage::start(const Core& core, std::function<void()> setGauges,
                       const Settings& settings) {
  if (!_channel) return;
  _channel->attach(core, std::move(setGauges), [this] { _server->wake(); });
  _server = std::make_unique<WebServer>(
      std::move(*_port), WebSettings{settings.access, {.connections = settings.connections}},
      WebSources{.channel = *_channel,
                 .counters = _counters,
                 .health = _health,
                 .facts = {ZORD410_VERSION, now(), settings.state},
                 .statePlaces = settings.places,
                 .sites = settings.sites});
}

void ServerPage::stop() noexcept {
  _server.reset();
  if (_channel) _channel->detach();
}

void ServerPage::setAccess(const Access& access) {
  if (_server) _server->setAccess(access);
}

void ServerPage::tick(const Health::Store& store) noexcept {
  _health.tick(Health::Clock::now(), store);
}

std::string ServerPage::announcement() const {
  return _port ? "zordchd: page on http://" + _port->address.text() + "/\n" : "";
}

}  // namespace dch
