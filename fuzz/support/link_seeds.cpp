#include "fuzz/support/link_seeds.h"

#include "fuzz/support/seed_bytes.h"

namespace fuzz {

// As fuzz/row_window.cpp takes them: the limits, then steps. Rows that are new, and that an earlier
// run has sent; what becomes of them and of their answers; a stream that refuses.
std::vector<std::string> windowSeeds() {
  constexpr unsigned wasSentEarlier = 0x01, withGap = 0x40;
  const auto step = [](unsigned kind, unsigned first, unsigned second) {
    return byte(kind) + byte(first) + byte(second);
  };
  const auto add = [&](unsigned choice) { return step(0, choice, 3); };
  const std::string limits = byte(8) + byte(201), settle = byte(1) + byte(7);
  const std::string tooLarge = byte(2) + byte(0), lost = byte(2) + byte(1);
  const std::string doubled = byte(2) + byte(2), sent = byte(2) + byte(3);
  const std::string isRefused = step(3, 0, 0), unanswered = step(3, 0, 1);
  const std::string arrives = step(3, 0, 2), arrivesLast = step(3, 1, 2);
  const std::string isTooLarge = step(3, 0, 3), isRefusedUnnamed = step(3, 0, 4);
  const std::string answered = step(4, 0, 1), answeredTwice = step(4, 0, 0);
  const std::string outOfPlace = step(5, 5, 0), disconnected = byte(6);
  const std::string pause = byte(7) + byte(25), patience = byte(7) + byte(110);
  std::vector<std::string> seeds;
  for (const unsigned choice : {0u, wasSentEarlier}) {
    const std::string three = limits + add(choice) + add(choice | withGap) + add(choice);
    const std::string once = three + sent + sent + sent;
    seeds.push_back(once + arrives + arrives + arrives + answered + answered + answered + settle);
    seeds.push_back(once + arrivesLast + arrivesLast + answeredTwice + outOfPlace + answered);
    seeds.push_back(once + unanswered + isTooLarge + answeredTwice + answered + patience + sent +
                    arrives + answered);
    seeds.push_back(once + arrives + disconnected + outOfPlace + sent + arrives + sent + arrives);
    seeds.push_back(three + tooLarge + lost + doubled + arrives + arrives + answered + answered +
                    patience + sent);
    for (const std::string& refusal : {isRefused, isRefusedUnnamed}) {
      const std::string refused = once + refusal + answered + pause;
      seeds.push_back(refused + sent + refusal + answered + pause + sent + unanswered + pause +
                      sent + sent);
      seeds.push_back(refused + lost + pause + sent + arrivesLast + answered + sent + sent);
      seeds.push_back(refused + tooLarge + sent + disconnected + sent + sent);
    }
  }
  return seeds;
}

// As fuzz/incoming_rows.cpp takes them: how much is fetched at once, then steps. Rows that the
// stream loses, takes in another order or twice, that the site loses, too, and of a clone; each
// with what the hub does about it.
std::vector<std::string> incomingSeeds() {
  const auto step = [](unsigned kind, unsigned choice) { return byte(kind) + byte(choice); };
  const std::string limits = byte(2);
  const std::string write = step(0, 0x0c), writeBeside = step(0, 0xcd), publish = step(2, 0x4c);
  const std::string lose = step(2, 0), publishTwice = step(2, 0xf8), arrive = step(4, 0xe0);
  const std::string arriveLast = step(4, 0x07), read = step(11, 7);
  const std::string restart = step(6, 0) + byte(0), goBack = step(7, 1) + byte(0x20);
  const std::string removeOldest = step(8, 2), clone = byte(9), otherAnswers = step(9, 1);
  const std::string loseStream = step(10, 0), loseOldest = step(10, 1);
  const std::string ask = byte(15), answered = ask + step(15, 0) + step(15, 7),
                    unanswered = ask + step(15, 0xff);
  const std::string readAgain = byte(13) + step(13, 15) + step(13, 15), batch = byte(18),
                    death = byte(19);
  const std::string hole = limits + write + publish + lose + publish + arrive + arrive + read;
  const std::string round = answered + readAgain + readAgain;
  return {hole + round,
          hole + unanswered + readAgain + round + round,
          hole + batch + write + publish + arrive + read + death + round + round,
          hole + goBack + write + publish + arrive + read + round + round,
          hole + removeOldest + round + round + round,
          hole + restart + write + publish + arriveLast + arriveLast + read + round,
          hole + clone + writeBeside + writeBeside + publish + clone + otherAnswers + round + round,
          hole + loseOldest + loseStream + write + publishTwice + arrive + read + round,
          limits + write + write + publish + lose + arrive + read + answered + round};
}

// As fuzz/site_watch.cpp takes them: the run of the first server, which is of the first name, then
// steps. Two servers of one name that start one after the other or are cut apart, each with a
// higher or lower run than the other; those that die, stop, are restarted, stand still and lose
// their connection; words that are lost, come twice and late.
std::vector<std::string> watchSeeds() {
  const auto step = [](unsigned kind, unsigned choice) { return byte(kind) + byte(choice); };
  const auto start = [&](unsigned name, unsigned run) { return step(name << 4, run); };
  // An even choice: without a word.
  const auto end = [&](unsigned server, unsigned word) { return step(1, server) + byte(word); };
  const auto restart = [&](unsigned server, unsigned word, unsigned run) {
    return step(2, server) + byte(word) + byte(run);
  };
  const auto cut = [&](unsigned server, unsigned part) { return step(3, server) + byte(part); };
  const std::string hear = step(6, 0), hearTwice = step(6, 0x40), lose = step(6, 0x80);
  const std::string hearLater = step(6, 3), second = byte(8) + byte(8);
  const std::string minute = byte(9 + 16 * 15), term = byte(9 + 16 * 4);
  const std::string round = second + hear + hear + hear + hear;
  const std::string rounds = round + round + round + round;
  std::vector<std::string> seeds;
  for (const unsigned run : {1u, 200u}) {
    const std::string first = byte(100) + rounds;
    const std::string clash = first + start(0, run) + rounds;
    const std::string others = start(1, 5) + start(2, 6) + rounds;
    seeds.push_back(first + term + others + start(0, run) + rounds + rounds);
    seeds.push_back(clash + end(0, 0) + rounds + term + rounds);
    seeds.push_back(clash + restart(0, 1, run) + hearLater + hearTwice + rounds);
    seeds.push_back(clash + cut(0, 1) + minute + cut(0, 0) + rounds);
    seeds.push_back(clash + step(4, 0) + term + step(4, 0) + rounds + rounds);
    seeds.push_back(clash + step(5, 0) + term + step(5, 0) + rounds + lose + lose + rounds);
    seeds.push_back(byte(100) + start(0, run) + start(0, 150) + start(1, 7) + rounds + end(1, 1) +
                    rounds + others + restart(2, 0, 9) + rounds);
  }
  return seeds;
}

// As fuzz/remote_handles.cpp takes them: the limits, then steps. Rows of several sources that wait,
// and a store that keeps them, does not, or has no room.
std::vector<std::string> handleSeeds() {
  const std::string ample = byte(7) + byte(63) + byte(255) + byte(8),
                    tight = byte(0) + byte(9) + byte(40) + byte(0);
  const std::string row = byte(0) + byte(1) + byte(8), again = byte(0) + byte(1) + byte(3);
  const std::string other = byte(0) + byte(4) + byte(9), another = byte(0) + byte(2) + byte(0);
  const std::string ask = byte(2), refused = byte(3) + byte(0), full = byte(3) + byte(1);
  const std::string kept = byte(3) + byte(2);
  std::vector<std::string> seeds;
  for (const std::string& limits : {ample, tight}) {
    seeds.push_back(limits + row + again + ask + again + kept + again + other + ask + kept + row);
    seeds.push_back(limits + row + other + another + ask + ask + ask + refused + kept + full + row +
                    other + another + ask + full + ask + kept);
    seeds.push_back(limits + row + ask + full + row + other + again + ask + kept + other);
  }
  return seeds;
}

// As fuzz/remote_providers.cpp takes them: the limits, then steps. Sites that have the same and
// other registrations of an application, and sources; copies, silence, and this server's own.
std::vector<std::string> providerSeeds() {
  const std::string ample = byte(40) + byte(200) + byte(255), tight = byte(0) + byte(4) + byte(0);
  const auto registers = [](unsigned site, unsigned which) {
    return byte(0) + byte(site) + byte(0) + byte(which) + byte(0);
  };
  const auto online = [](unsigned site, unsigned which) {
    return byte(0) + byte(site) + byte(1) + byte(which) + byte(0);
  };
  const auto withoutMemory = [](std::string step, unsigned after) {
    return step.replace(4, 1, byte(after));
  };
  const std::string unregisters = byte(0) + byte(1) + byte(2) + byte(0);
  const std::string offline = byte(0) + byte(1) + byte(3) + byte(4), settle = byte(6);
  const std::string begin = byte(7) + byte(1), end = byte(8) + byte(1), silent = byte(9) + byte(1);
  const std::string own = byte(10) + byte(0) + byte(0x47),
                    ownOnline = byte(11) + byte(0x30) + byte(1);
  std::vector<std::string> seeds;
  for (const std::string& limits : {ample, tight}) {
    const std::string all = limits + registers(1, 5) + online(1, 4) + online(1, 8) +
                            registers(2, 5) + registers(3, 0x6e) + online(2, 4);
    seeds.push_back(all + own + ownOnline + offline + unregisters);
    seeds.push_back(all + begin + online(1, 8) + registers(1, 7) + end + online(1, 4) + settle);
    seeds.push_back(all + own + silent + online(1, 8) + settle + begin + silent + end + settle);
    std::string failing = all;
    for (unsigned after = 1; after < 16; ++after)
      failing += withoutMemory(registers(4, after), after) + withoutMemory(online(5, after), after);
    seeds.push_back(failing);
  }
  return seeds;
}

// As fuzz/site_copies.cpp takes them: steps. A site that is copied in pieces while it changes, is
// restarted, has a clone, is silent and is lied about; words and answers that are lost, late and
// doubled; a channel that has no room.
std::vector<std::string> copiesSeeds() {
  const auto step = [](unsigned kind, unsigned choice) { return byte(kind | choice << 4); };
  const auto change = [&](unsigned what) { return step(2, 0) + byte(what); };
  const std::string start = step(0, 0), startOther = step(0, 1), end = step(1, 0);
  const std::string speak = step(5, 0), speakOther = step(5, 2), sayTooMuch = step(5, 1);
  const std::string hear = step(7, 0), hearTwice = step(7, 1), miss = step(7, 2);
  const std::string ask = step(9, 0), answer = step(10, 0), answerMuch = step(10, 3);
  const std::string take = step(11, 0), takeTwice = step(11, 1), lose = step(11, 2);
  const std::string silent = step(12, 0), moment = step(13, 1), pause = step(13, 6);
  const std::string minute = step(13, 14), isFull = step(14, 1), hasRoom = step(14, 2);
  const std::string falseRun = step(15, 0) + byte(0) + byte(9) + byte(1) + "U A\n";
  const std::string falseRevision = step(15, 4) + byte(0) + byte(9) + byte(1) + "U A\n";
  const std::string falseAnswer = step(15, 14) + byte(4) + "S A g a\n";
  const std::string some = change(0) + change(2) + change(4) + change(9);
  const std::string tell = speak + hear, piece = ask + answer + take;
  const std::string first = some + tell + piece, whole = first + piece + piece + piece + piece;
  return {
      whole + change(0) + tell + change(6) + tell,
      first + change(0) + tell + piece + sayTooMuch + hear + piece + pause + piece + piece,
      first + ask + answer + change(0) + tell + take + pause + piece + piece + piece,
      whole + change(0) + speak + miss + change(8) + tell + pause + ask + answerMuch + take,
      whole + end + start + change(1) + speak + hearTwice + piece + pause + hear + piece,
      whole + start + change(5) + speak + speakOther + hear + hear + pause + piece + piece,
      first + ask + answer + takeTwice + piece + take + ask + answer + lose + pause + piece,
      whole + silent + tell + piece + silent + minute + tell + ask + answerMuch + take,
      whole + isFull + change(0) + tell + silent + moment + hasRoom + ask + tell + pause + piece,
      whole + falseRun + piece + pause + falseRevision + tell + minute + tell + piece,
      first + ask + falseAnswer + minute + tell + piece + startOther + first};
}

}  // namespace fuzz
