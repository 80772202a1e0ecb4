// Which trace points are on.
#include <fnmatch.h>

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <new>
#include <string>
#include <string_view>
#include <vector>

#include "suite/errno_keeper.h"
#include "suite/locking.h"
#include "suite/trc1.h"
#include "suite/trc1_sink.h"
#include "suite/trimmed.h"

// Nothing in this file is destroyed: detached threads trace while the process ends.

namespace {

constexpr unsigned defaultMask = TRC1_CLASS_ERROR;

struct Rule {
  std::string pattern;
  unsigned mask;
};

bool parseMask(std::string_view text, unsigned* mask) {
  int base = 10;
  if (text.starts_with("0x") || text.starts_with("0X")) {
    base = 16;
    text.remove_prefix(2);
  }
  const char* end = text.data() + text.size();
  const auto [stopped, error] = std::from_chars(text.data(), end, *mask, base);
  return error == std::errc() && stopped == end;
}

std::vector<Rule> parseRules(std::string_view text) {
  std::vector<Rule> rules;
  while (!text.empty()) {
    const std::size_t comma = text.find(',');
    const std::string_view item = trimmed(text.substr(0, comma));
    text.remove_prefix(comma == std::string_view::npos ? text.size() : comma + 1);
    if (item.empty()) continue;

    // A mask holds no '=', the name of an operator may.
    const std::size_t equals = item.rfind('=');
    const bool isBareMask = equals == std::string_view::npos;
    const std::string_view pattern = isBareMask ? "" : trimmed(item.substr(0, equals));
    unsigned mask = 0;
    if (parseMask(isBareMask ? item : trimmed(item.substr(equals + 1)), &mask))
      rules.push_back({std::string(pattern.empty() ? "*" : pattern), mask});
    else
      suite::complain(
          "ZORA_TRACE: rule <%.*s> skipped: its mask is not a number such as 64 or 0x40\n",
          static_cast<int>(std::min<std::size_t>(item.size(), 300)), item.data());
  }
  return rules;
}

class Rules {
 public:
  // Returns false, and changes nothing, without memory.
  bool set(const char* text) {
    try {
      auto* rules = new std::vector<Rule>(parseRules(text != nullptr ? text : ""));
      delete _rules;
      _rules = rules;
    } catch (const std::bad_alloc&) {
      suite::complain("ZORA_TRACE: no memory for the rules\n");
      return false;
    }
    return true;
  }

  unsigned maskOf(const TRC1_Block& block) const {
    if (_rules == nullptr) return defaultMask;
    char name[256];
    std::snprintf(name, sizeof name, "%s/%s", block.unit->name, block.function);
    for (auto rule = _rules->rbegin(); rule != _rules->rend(); ++rule)
      if (fnmatch(rule->pattern.c_str(), name, 0) == 0) return rule->mask;
    return defaultMask;
  }

 private:
  std::vector<Rule>* _rules = nullptr;
};

constinit std::mutex configurationMutex;
const suite::HeldWhileForking<configurationMutex> configurationHeldWhileForking;

// Rules in force, the stamp that stands for them, and the units whose functions cache masks.
class Configuration {
 public:
  unsigned sync(TRC1_Block* block) {
    const suite::Lock lock(configurationMutex);
    if (!lock.isHeld()) return defaultMask;  // for this call; the next one asks again
    readEnvironmentOnce();
    enlist(block->unit);
    const unsigned flags = _rules.maskOf(*block);
    // In this order: whoever sees the stamp sees the flags that belong to it, or newer ones.
    block->flags.store(flags, std::memory_order_relaxed);
    block->stamp.store(_stamp, std::memory_order_release);
    return flags;
  }

  void configure(const char* rules) {
    const suite::Lock lock(configurationMutex);
    if (!lock.isHeld() || !_rules.set(rules)) return;
    _isConfigured = true;
    if (++_stamp == neverSynced) ++_stamp;
    for (TRC1_Unit* unit = _units; unit != nullptr; unit = unit->nextEnlisted)
      unit->stamp.store(_stamp, std::memory_order_relaxed);
  }

 private:
  static constexpr unsigned neverSynced = 0;  // the stamp of a fresh block

  void readEnvironmentOnce() {
    if (_isConfigured) return;
    _isConfigured = true;
    _rules.set(std::getenv("ZORA_TRACE"));
  }

  void enlist(TRC1_Unit* unit) {
    if (unit->isEnlisted) return;
    unit->isEnlisted = true;
    unit->nextEnlisted = _units;
    _units = unit;
    unit->stamp.store(_stamp, std::memory_order_relaxed);
  }

  Rules _rules;
  bool _isConfigured = false;
  unsigned _stamp = 1;
  TRC1_Unit* _units = nullptr;
};

constinit Configuration configuration;

}  // namespace

unsigned TRC1_Sync(TRC1_Block* block) {
  const suite::ErrnoKeeper errnoKeeper;
  return configuration.sync(block);
}

void TRC1_Configure(const char* rules) {
  const suite::ErrnoKeeper errnoKeeper;
  configuration.configure(rules);
}
