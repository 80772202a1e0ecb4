#include "dch/web/live_streams.h"

#include <algorithm>
#include <deque>
#include <new>
#include <utility>

#include "dch/web/applications_json.h"
#include "dch/web/moment.h"

namespace dch {

namespace {

// A line that nobody is told of.
const SharedText& signOfLife() {
  static const SharedText sign = shareText(":\n\n");
  return sign;
}

std::string eventText(const char* name, Json&& json) {
  return std::string("event: ") + name + "\ndata: " + json.take() + "\n\n";
}

std::string rowText(const LiveEvent& event) {
  Json json;
  json.beginObject();
  json.key("time").text(momentText(event.time));
  json.key("handle").number(event.handle);
  json.key("source").text(event.source);
  json.key("values");
  writeValues(&json, event.message);
  json.endObject();
  return eventText("row", std::move(json));
}

std::string statusText(const LiveEvent& event) {
  Json json;
  json.beginObject();
  json.key("time").text(momentText(event.time));
  json.key("change").text(event.change);
  json.key("application").text(event.application);
  json.key("group").text(event.group);
  json.key("source").text(event.source);
  json.endObject();
  return eventText("status", std::move(json));
}

std::string lostText(std::uint64_t events) {
  Json json;
  json.beginObject().key("rows").number(static_cast<std::int64_t>(events)).endObject();
  return eventText("lost", std::move(json));
}

}  // namespace

// What waits for one who watches.
class LiveStreams::Stream {
 public:
  Stream(LiveStreams* streams, std::vector<std::string> topics)
      : owner(streams), topicNames(std::move(topics)) {}

  // Returns false when too much waits, or there is no memory for more.
  bool add(const SharedText& text) noexcept {
    try {
      _waiting.push_back(text);
    } catch (const std::bad_alloc&) {
      return false;
    }
    _bytes += text->size();
    return _bytes <= mostWaitingBytes;
  }

  void next(Pieces::Take take) {
    _take = std::move(take);
    deliver();
  }

  void deliver() {
    if (_hasEnded && _end) return std::exchange(_end, nullptr)();
    if (!_take || _waiting.empty()) return;
    _bytes = 0;
    std::exchange(_take, nullptr)(Piece{std::exchange(_waiting, {})});
  }

  // With the next delivery.
  void end() {
    _waiting.clear();
    _hasEnded = true;
  }
  void setEnd(std::function<void()> end) { _end = std::move(end); }
  bool hasEnded() const { return _hasEnded; }

  // The connection is gone.
  void abandon() {
    _take = nullptr;
    _end = nullptr;
  }

  LiveStreams* owner;  // null when there is none any more
  const std::vector<std::string> topicNames;

 private:
  std::vector<SharedText> _waiting;
  std::size_t _bytes = 0;
  bool _hasEnded = false;
  Pieces::Take _take;
  std::function<void()> _end;
};

// The connection's side of it.
class LiveStreams::Handle : public Pieces {
 public:
  explicit Handle(std::shared_ptr<Stream> stream) : _stream(std::move(stream)) {}
  ~Handle() override {
    _stream->abandon();
    if (_stream->owner != nullptr) _stream->owner->remove(_stream.get());
  }
  Handle(const Handle&) = delete;
  Handle& operator=(const Handle&) = delete;

  void next(Take take) override { _stream->next(std::move(take)); }
  bool areEndless() const override { return true; }
  void setEnd(const std::function<void()>& end) override { _stream->setEnd(end); }
  void peerHasEnded() override {
    _stream->add(signOfLife());
    _stream->deliver();
  }

 private:
  const std::shared_ptr<Stream> _stream;
};

struct LiveStreams::Topic {
  std::shared_ptr<WatchedTopic> watched;
  std::uint64_t lostHere = 0;  // besides those that did not come here
  std::uint64_t lostTold = 0;
  std::vector<std::shared_ptr<Stream>> streams = {};
};

// One who is told when what he wants is watched.
struct LiveStreams::Opening {
  std::uint64_t inForceFrom;
  std::unique_ptr<Pieces> pieces;
  std::function<void(std::unique_ptr<Pieces>)> begin;
};

LiveStreams::LiveStreams(EventLoop& loop, Counters& counters)
    : _counters(counters),
      _flushing(loop, [this] { flush(); }),
      _signs(loop, [this] { giveSign(); }) {
  _signs.set(sign);
}

LiveStreams::~LiveStreams() {
  for (const auto& each : _streams) each->owner = nullptr;
}

void LiveStreams::open(const std::vector<std::string>& topics,
                       std::function<void(std::unique_ptr<Pieces>)> begin) {
  if (_streams.size() >= mostStreams) return begin(nullptr);
  const auto stream = std::make_shared<Stream>(this, topics);
  auto handle = std::make_unique<Handle>(stream);  // which takes out again what follows
  _streams.push_back(stream);
  _counters.set(Counter::liveClients, _streams.size());
  for (const std::string& name : topics) {
    auto topic = _topics.find(name);
    if (topic == _topics.end()) {
      auto fresh =
          std::make_unique<Topic>(Topic{std::make_shared<WatchedTopic>(name, ++_lastNumber)});
      topic = _topics.emplace(name, std::move(fresh)).first;
      _byNumber.emplace(_lastNumber, topic->second.get());
    }
    topic->second->streams.push_back(stream);
  }
  share();
  _openings.push_back({watch(), std::move(handle), std::move(begin)});
}

void LiveStreams::endAll() {
  for (const auto& each : _streams) each->end();
  deliverAll();
}

void LiveStreams::happened(const LiveEvent& event) noexcept {
  const auto known = _byNumber.find(event.topic);
  if (known == _byNumber.end()) return;
  Topic& topic = *known->second;
  try {
    write(event.topic, event.change == nullptr ? rowText(event) : statusText(event));
  } catch (const std::bad_alloc&) {
    ++topic.lostHere;
  }
}

void LiveStreams::told() noexcept {
  try {
    begin();
    if (_flushing.isSet()) return;
    const auto due = _lastFlush + pause;
    if (due <= Alarm::Clock::now())
      flush();
    else
      _flushing.set(due);
  } catch (const std::bad_alloc&) {
    // The next time there is more of it.
  }
}

void LiveStreams::tellLost(Topic* topic) {
  const std::uint64_t lost = topic->watched->lost.load(std::memory_order_relaxed) + topic->lostHere;
  if (lost == topic->lostTold) return;
  write(topic->watched->number, lostText(lost - topic->lostTold));
  topic->lostTold = lost;
}

// Who watches several topics gets all in its order.
void LiveStreams::write(std::uint64_t topic, const std::string& text) {
  if (_written.empty() || _written.back().topic != topic) _written.push_back({topic});
  _written.back().text += text;
}

void LiveStreams::begin() {
  const std::uint64_t inForce = _view->inForce();
  const auto first = std::partition(_openings.begin(), _openings.end(), [&](const Opening& each) {
    return each.inForceFrom > inForce;
  });
  std::vector<Opening> ready(std::make_move_iterator(first),
                             std::make_move_iterator(_openings.end()));
  _openings.erase(first, _openings.end());
  for (Opening& each : ready) each.begin(std::move(each.pieces));
}

void LiveStreams::flush() {
  _lastFlush = Alarm::Clock::now();
  for (const auto& [name, topic] : _topics) tellLost(topic.get());
  for (Run& run : std::exchange(_written, {})) {
    const auto topic = _byNumber.find(run.topic);
    if (topic != _byNumber.end()) send(std::move(run.text), topic->second->streams);
  }
  deliverAll();
}

// Whoever cannot get it comes back and looks into the store.
void LiveStreams::send(std::string&& text, const std::vector<std::shared_ptr<Stream>>& streams) {
  SharedText shared;
  try {
    shared = shareText(std::move(text));
  } catch (const std::bad_alloc&) {
    // All of them are dropped.
  }
  for (const auto& each : streams) {
    if (each->hasEnded() || (shared != nullptr && each->add(shared))) continue;
    each->end();
    _counters.add(Counter::liveClientsDropped);
  }
}

void LiveStreams::giveSign() {
  _signs.set(sign);
  for (const auto& each : _streams) each->add(signOfLife());
  deliverAll();
}

void LiveStreams::deliverAll() {
  const auto streams = _streams;  // those that end meanwhile leave it
  for (const auto& each : streams) each->deliver();
}

void LiveStreams::remove(Stream* stream) noexcept {
  const auto isIt = [&](const std::shared_ptr<Stream>& each) { return each.get() == stream; };
  for (const std::string& name : stream->topicNames) {
    const auto topic = _topics.find(name);
    if (topic == _topics.end()) continue;
    std::erase_if(topic->second->streams, isIt);
    if (!topic->second->streams.empty()) continue;
    _byNumber.erase(topic->second->watched->number);
    _topics.erase(topic);
  }
  std::erase_if(_streams, isIt);
  _counters.set(Counter::liveClients, _streams.size());
  share();
  try {
    watch();
  } catch (const std::bad_alloc&) {
    // What nobody looks at any more is watched until somebody comes or goes.
  }
}

void LiveStreams::share() noexcept {
  for (const auto& [name, topic] : _topics)
    topic->watched->limitTo(mostBytesASecond / _streams.size());
}

std::uint64_t LiveStreams::watch() {
  LiveFeed::Topics topics;
  for (const auto& [name, topic] : _topics) topics.push_back(topic->watched);
  return _view->watch(topics);
}

}  // namespace dch
