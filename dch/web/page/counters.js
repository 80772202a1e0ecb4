// counters.js: which of the server's counters mean trouble, in the words of those who run it.

const LOST = "lost"; // something is gone
const REFUSED = "refused"; // somebody was told no, or was cut off

/** Those that should be zero, where there is more to say than the server's own words: {of one|of many}. */
const TROUBLES = {
  changes_not_kept: [LOST, "change{s} could not be kept", "Their senders were told (status 105). Look at the disk and at the log."],
  changes_refused: [LOST, "change{s} {was|were} not taken by the state file", "Look at the disk: is it full, is the file writable?"],
  write_failures: [LOST, "write{s} of the state file failed", "Look at the disk and at the log. It goes on by itself when it can."],
  pushes_lost: [LOST, "row{s} or status event{s} did not reach a subscriber", "A subscriber reads too slowly. The rows are kept, the subscriber missed them."],
  datagrams_thrown_away: [LOST, "datagram{s} {was|were} thrown away for want of room", "Their senders got no answer."],
  answers_dropped: [LOST, "answer{s} could not be sent", "Whoever asked got no answer."],
  live_events_lost: [LOST, "live row{s} or change{s} did not reach a page", "Pages ask the store for such rows: the plots have them."],
  live_clients_dropped: [REFUSED, "live page{s} {was|were} cut off for not reading", "They come back by themselves."],
  web_failures: [LOST, "request{s} of pages failed", "Look at the log."],
  web_requests_refused: [REFUSED, "request{s} of pages named another host, or not the token", "See [web] hosts and token_file."],
  connections_refused: [REFUSED, "connection{s} {was|were} refused for want of room", "Raise channel.connections, or look who opens so many."],
  not_allowed: [REFUSED, "datagram{s} or connection{s} came from where none are allowed", "See channel.allow, or find out who sends them."],
  broken_messages: [REFUSED, "message{s} on connections {was|were} broken", "Somebody speaks something else to the port."],
  actions_not_allowed: [REFUSED, "action{s} {was|were} asked for from where none may be", "See actions.allow."],
  actions_not_started: [REFUSED, "action{s} {was|were} not started", "Not listed, running already, too many at once, or failed."],
};

/** What comes of a state file that cannot be written, pages' questions for its rows among it. */
const OF_THE_STORE = ["changes_not_kept", "changes_refused", "write_failures", "web_failures"];
const NOT_STORED = 105; // status

/** Signs of trouble in other names. */
const SIGNS_OF_LOSS = /lost|dropped|forgotten|thrown|gaps/;
const SIGNS = /refused|(?<!link_)fail|stalled|crowded|too_large/;

/** @returns {string} "row{s} {was|were} lost" as it reads after that count */
const inNumber = (words, count) =>
  words.replace(/\{(?:(\w+)\|)?(\w+)\}/g, (_all, one = "", many) => (Number(count) === 1 ? one : many));

function countedTrouble(name, count, help) {
  const isLoss = SIGNS_OF_LOSS.test(name);
  if (!(name in TROUBLES) && !isLoss && !SIGNS.test(name)) return null;
  const [kind, words, advice] = TROUBLES[name] ?? [isLoss ? LOST : REFUSED, help ?? name, ""];
  return { key: name, kind, count, words: inNumber(words, count), advice, isOfStore: OF_THE_STORE.includes(name) };
}

function requestTrouble({ request, code, status, text, count }) {
  const isData = request === "data";
  return {
    key: `request/${code}/${status}`, kind: REFUSED, count, isOfStore: status === NOT_STORED,
    words: inNumber(`${isData ? "row{s}" : `request{s} “${request}”`} {was|were} refused: ${text} (status ${status})`, count),
    advice: isData ? "Their providers were told; the rows are not kept." : "Whoever asked was told.",
  };
}

/** What was lost, then what was refused, the most first: { key, kind, count, words to be read after it, advice, isOfStore }. */
export function troublesOf(state) {
  return [
    ...Object.entries(state.counters ?? {}).map(([name, count]) => count && countedTrouble(name, count, state.help?.[name])),
    ...(state.requests ?? []).map((each) => each.status && each.count && requestTrouble(each)),
  ].filter(Boolean).sort((a, b) => (a.kind === b.kind ? Number(b.count) - Number(a.count) : a.kind === LOST ? -1 : 1));
}

/** Remembers since when a count has been what it is. */
export class Rises {
  #known = new Map(); // key → { count, risen }
  #hasSeen = false;

  /** The troubles are these now. */
  see(troubles, now) {
    const isFirst = !this.#hasSeen;
    this.#hasSeen = true;
    for (const { key, count } of troubles) {
      const known = this.#known.get(key);
      if (!known) this.#known.set(key, { count, risen: isFirst ? null : now });
      else if (known.count !== count) Object.assign(known, { count, risen: now });
    }
  }

  /** @returns {?number} when it was last seen to rise; null: not since the page was opened */
  risen(key) {
    return this.#known.get(key)?.risen ?? null;
  }
}
