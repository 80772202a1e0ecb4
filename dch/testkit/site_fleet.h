// site_fleet.h: very many sites, as a NATS server and a hub see them.
#ifndef DCH_TESTKIT_SITE_FLEET_H
#define DCH_TESTKIT_SITE_FLEET_H

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "dch/core/epoch.h"
#include "dch/testkit/fleet_providers.h"

namespace dch::testkit {

// Each site has a connection of its own, says as often as it should that it is there, and hears all
// the others. Its rows go to the stream, and it gives them to whoever asks for them. So it does
// with what it has of providers.
class SiteFleet {
 public:
  struct Size {
    int sites = 1'000;
    int sourcesOfSite = 1'000;
  };

  // `url` is of a server that has the stream when rows are published. Throws std::runtime_error, as
  // the others do.
  SiteFleet(std::string url, const Size& size);
  ~SiteFleet();
  SiteFleet(const SiteFleet&) = delete;
  SiteFleet& operator=(const SiteFleet&) = delete;

  // Each source sends as many rows, as fast as the stream takes them; the sites do so in turns.
  // Returns when all are in the stream.
  void publish(int rowsOfSource);

  // They have providers, and each says so when it is its turn from now on. Once.
  void goOnline() { _providers.goOnline(); }
  // So many sites, others each time, have so many sources go on line or off it, and say so at once.
  // After goOnline().
  void change(int sites, int sourcesOfSite);
  long sourcesOnline() const { return _providers.sourcesOnline(); }

  // Nothing is heard of any site, as when the network is cut, until resume(): then all say at once
  // that they are there.
  void fallSilent() { _isSilent = true; }
  void resume();

  // How many messages of other sites all together have got so far.
  std::uint64_t heard() const { return _heard; }
  // How often somebody asked for rows.
  std::uint64_t questions() const { return _questions; }
  // How often somebody asked for providers, and how much was answered.
  std::uint64_t providerQuestions() const { return _providerQuestions; }
  std::uint64_t providerBytes() const { return _providerBytes; }

 private:
  struct Ends;
  struct Row;

  void speakInTurns();
  void say(int site);
  int siteOf(const std::string& subject, std::string (*subjectOf)(std::string_view)) const;
  Row rowOf(int site, std::int64_t number) const;
  void answer(const std::string& subject, const std::string& request, const char* asker);
  void answerKnown(const std::string& subject, const std::string& question, const char* asker);

  const std::string _url;
  const Size _size;
  FleetProviders _providers;
  std::unique_ptr<Ends> _ends;
  // Of each site, whose rows have the numbers from 1 on.
  std::vector<std::atomic<std::int64_t>> _published;
  std::atomic<std::uint64_t> _heard = 0, _questions = 0;
  std::atomic<std::uint64_t> _providerQuestions = 0, _providerBytes = 0;
  std::mutex _speech;                     // a message at a time
  std::vector<std::uint64_t> _timesSaid;  // by each site
  int _nextToChange = 0;
  std::atomic<bool> _isSilent = false;
  std::atomic<bool> _isEnding = false;
  std::thread _speaking;
};

}  // namespace dch::testkit

#endif  // DCH_TESTKIT_SITE_FLEET_H
