// core_run.h: the core over one input, with all that it works through and a model of what it knows.
#ifndef FUZZ_SUPPORT_CORE_RUN_H
#define FUZZ_SUPPORT_CORE_RUN_H

#include <netinet/in.h>

#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "dch/core/core.h"
#include "dch/testkit/known_state.h"
#include "fuzz/support/answer_model.h"
#include "fuzz/support/remembering_store.h"
#include "fuzz/support/seeming_programs.h"

namespace fuzz {

// The addresses that the input's clients have.
sockaddr_in clientAddress(unsigned number);

// The length word of `message` made to fit.
void makeLengthRight(std::string* message);

// What the core works through: it sees what comes of each message.
struct Witness : dch::Answers, dch::RowsOut, dch::Timer, dch::Log {
  void send(const dch::Origin& receiver, std::string_view message) noexcept override;
  void finished(const dch::Origin& asker) noexcept override { underWay.erase(asker.connection); }
  bool push(std::string_view message, const dch::PeerAddress& receiver) override;
  void takeGone(std::vector<dch::PeerAddress>*) override {}
  void start() override { isTimerStarted = true; }
  bool isEnabled() const override { return true; }
  void writeLine(dch::Priority priority, std::string_view line) const override;

  Outcome outcome;
  bool isTimerStarted = false;
  std::set<std::uint64_t> underWay;  // connections whose last message is not done
};

// A core that is told what happens, and after the death of a process a new one with what the store
// has. What it answers, sends and knows is checked after each step.
class CoreRun {
 public:
  CoreRun() { _life.emplace(_store, _witness); }

  // Not from a connection that is busy.
  void receive(const std::string& bytes, const dch::Origin& origin);
  void receiveBroken(const dch::Origin& origin);
  void endConnection(const dch::Origin& origin);
  bool isBusy(const dch::Origin& origin) const {
    return _witness.underWay.contains(origin.connection);
  }
  // Time passes, if it is waited for, and a program may end.
  void goOn();

  // From now on changes wait until they are concluded. When it is slow no more, all of them are.
  void setSlow(bool isSlow);
  bool isSlow() const { return _store.isSlow(); }
  // The first change that waits is kept, or could not be.
  void conclude(bool isKept);

  // The process dies, and of the changes that wait so many are kept nevertheless. The next one
  // knows all that was acknowledged.
  void restart(std::size_t kept);

  void checkReport() const;

 private:
  // What goes with the process.
  struct Life {
    Life(RememberingStore& store, Witness& witness)
        : core({witness, witness, store, witness, programs}, actionRules, counters, witness) {
      core.load();
    }

    dch::Counters counters;
    SeemingPrograms programs;
    const dch::ActionRules actionRules{
        .list = {{"restart", {"/bin/true"}}, {"broken", {brokenProgram}}}};
    dch::Core core;
    // Who is to be told the result of which action.
    std::map<ZORA_Long, std::vector<dch::Origin>> waiters;
  };

  void passTime();
  void endProgram();
  void checkRow(std::string_view message);
  void noteWaiter(std::string_view message, const dch::Origin& origin);
  void checkEndOfAction(ZORA_Long id, ZORA_Long result);
  bool wasToldOk() const;
  void noteKept();
  void checkKnown(bool isNew) const;
  void checkResults();

  Witness _witness;
  RememberingStore _store;
  std::optional<Life> _life;
  // What follows from the changes that were kept, as far as they are noted.
  std::size_t _noted = 0;
  dch::testkit::KnownState _known;
  std::map<ZORA_Long, std::string> _namesOfHandles;
  std::map<std::string, ZORA_Long> _handlesOfNames;
  std::multiset<std::string> _keptRows;
  std::multiset<std::string> _acknowledgedRows;
};

}  // namespace fuzz

#endif  // FUZZ_SUPPORT_CORE_RUN_H
