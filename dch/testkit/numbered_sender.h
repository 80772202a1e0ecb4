// numbered_sender.h: a provider that numbers its rows and keeps a book of what it was told, while
// its server dies again and again.
#ifndef DCH_TESTKIT_NUMBERED_SENDER_H
#define DCH_TESTKIT_NUMBERED_SENDER_H

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "dch/testkit/clients.h"
#include "dch/testkit/kept_rows.h"
#include "zora/zora.h"

namespace dch::testkit {

// An action that was asked for.
struct ActionBook {
  ZORA_Long id;
  std::optional<ZORA_Long> result;  // of its program, when that was told
};

struct SenderBook {
  std::string application;
  int version = 0;  // of its registration, as far as that was acknowledged
  bool isRegistered = false;
  bool isChanging = false;  // a registration or the end of one is asked for, and not answered
  unsigned unregistrations = 0;
  std::vector<SourceBook> sources;
  std::vector<ZORA_Long> deferred;  // the IDs that were sent; nobody answers them
  std::vector<ActionBook> actions;
};

// The list of actions that a server of such senders has to have.
inline constexpr char actionsOfSenders[] = "succeed /bin/true\nfail /bin/false\n";

// The lives of a server on one port: their count, which goes up when it is ready again. What was
// asked in a life is answered in it, or not at all.
using Lives = std::atomic<int>;

// Registers its application in ever new versions and takes that back, takes sources on line and
// off, sends rows of any of them, defers reports and starts actions, on a thread of its own: each
// request until it is answered, again in each life.
class NumberedSender {
 public:
  enum class Carrier { datagrams, stream };

  // In the first life. `lives` outlives it.
  NumberedSender(int number, Carrier carrier, int port, const Lives& lives, std::uint32_t seed);
  // Waits for the answer to its last request, which a server has to give.
  ~NumberedSender() { stop(); }
  NumberedSender(const NumberedSender&) = delete;
  NumberedSender& operator=(const NumberedSender&) = delete;
  void stop();

  // Any thread.
  SenderBook book() const;
  // What it was told that is wrong, empty when nothing was. Any thread.
  std::string failure() const;
  // How many rows were acknowledged. Any thread.
  std::uint64_t rows() const { return _rows; }
  // In which life one was acknowledged last. Any thread.
  int lastLife() const { return _lastLife; }

  // After stop(): asks the server for its registration, the handles of its sources, which are on
  // line then, and the result of its last action. Returns what is not as in the book.
  std::string compareWithServer();

 private:
  using Noted = std::function<void(SenderBook&)>;

  void run();
  void work();
  void workUnregistered();
  void registerNext();
  void unregister();
  void goOnline(std::size_t index);
  void goOffline(std::size_t index);
  void sendRow(std::size_t index);
  void defer();
  void act();
  void send(const std::string& message);
  unsigned below(unsigned end) { return static_cast<unsigned>(_random() % end); }
  // A source that is on line, as one may be.
  std::optional<std::size_t> anyOnline();

  void connect(int life);
  std::string ask(const std::string& message, const Noted& beforeEach = nullptr);
  std::optional<std::string> exchange(const std::string& message, int life);
  void note(const Noted& change);
  void expect(bool isRight, const std::string& what, const std::string& answer);

  const int _number;
  const Carrier _carrier;
  const int _port;
  const Lives& _lives;
  std::mt19937 _random;
  // What was asked over the sockets of the life before may be answered in this one when it came
  // late. So nobody gets their ports until that one is over too.
  std::unique_ptr<UdpClient> _datagrams, _formerDatagrams;
  std::unique_ptr<TcpClient> _stream;
  int _connectedIn = 0;
  bool _isFirstOfLife = false;

  mutable std::mutex _mutex;
  SenderBook _book;
  std::string _failure;
  std::atomic<std::uint64_t> _rows{0};
  std::atomic<int> _lastLife{0};
  std::atomic<bool> _isStopping{false};
  std::thread _thread;
};

}  // namespace dch::testkit

#endif  // DCH_TESTKIT_NUMBERED_SENDER_H
