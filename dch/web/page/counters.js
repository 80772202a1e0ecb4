// counters.js: which of the server's counters mean trouble, in the words of those who run it.

const LOST = "lost"; // something is gone
const REFUSED = "refused"; // somebody was told no, or was cut off

/** Those that should be zero, where there is more to say than the server's own words. */
const TROUBLES = {
  changes_not_kept: [LOST, "changes could not be kept", "Their senders were told (status 105). Look at the disk and at the log."],
  changes_refused: [LOST, "changes were not taken by the state file", "Look at the disk: is it full, is the file writable?"],
  write_failures: [LOST, "writes of the state file failed", "Look at the disk and at the log. It goes on by itself when it can."],
  pushes_lost: [LOST, "rows or status events did not reach a subscriber", "A subscriber reads too slowly. The rows are kept, the subscriber missed them."],
  datagrams_thrown_away: [LOST, "datagrams were thrown away for want of room", "Their senders got no answer."],
  answers_dropped: [LOST, "answers could not be sent", "Whoever asked got no answer."],
  live_events_lost: [LOST, "live rows or changes did not reach a page", "Pages ask the store for such rows: the plots have them."],
  live_clients_dropped: [REFUSED, "live pages were cut off as they did not read", "They come back by themselves."],
  web_failures: [LOST, "requests of pages failed", "Look at the log."],
  web_requests_refused: [REFUSED, "requests of pages named another host, or not the token", "See [web] hosts and token_file."],
  connections_refused: [REFUSED, "connections were refused for want of room", "Raise channel.connections, or look who opens so many."],
  not_allowed: [REFUSED, "datagrams or connections came from where none are allowed", "See channel.allow, or find out who sends them."],
  broken_messages: [REFUSED, "messages on connections were broken", "Somebody speaks something else to the port."],
  actions_not_allowed: [REFUSED, "actions were asked for from where none may be", "See actions.allow."],
  actions_not_started: [REFUSED, "actions were not started", "Not listed, running already, too many at once, or failed."],
};

/** Signs of trouble in the names of the others. */
const SIGNS = /lost|refused|dropped|fail|thrown|forgotten|stalled|crowded/;

/**
 * @typedef {Object} Trouble
 * @property {string} key @property {"lost"|"refused"} kind @property {number|bigint} count
 * @property {string} words what happened, to be read after the count
 * @property {string} advice
 */

function countedTrouble(name, count, help) {
  const [kind, words, advice] = TROUBLES[name] ?? [/lost|dropped|forgotten|thrown/.test(name) ? LOST : REFUSED, help ?? name, ""];
  return { key: name, kind, count, words, advice };
}

const isTrouble = (name) => name in TROUBLES || SIGNS.test(name);

function requestTrouble({ request, code, status, text, count }) {
  return {
    key: `request/${code}/${status}`, kind: REFUSED, count,
    words: `${request === "data" ? "rows" : `requests “${request}”`} were refused: ${text} (status ${status})`,
    advice: request === "data" ? "Their providers were told; the rows are not kept." : "Whoever asked was told.",
  };
}

/**
 * @param {Object} state the answer of /api/state
 * @returns {Trouble[]} what was lost, then what was refused, the most first
 */
export function troublesOf(state) {
  const found = [];
  for (const [name, count] of Object.entries(state.counters ?? {})) {
    if (count && isTrouble(name)) found.push(countedTrouble(name, count, state.help?.[name]));
  }
  for (const each of state.requests ?? []) {
    if (each.status !== 0 && each.count) found.push(requestTrouble(each));
  }
  return found.sort((a, b) => (a.kind === b.kind ? Number(b.count) - Number(a.count) : a.kind === LOST ? -1 : 1));
}

/** Remembers since when a count has been what it is. */
export class Rises {
  #known = new Map(); // key → { count, risen }

  /**
   * @param {Trouble[]} troubles as they are now
   * @param {number} now
   */
  see(troubles, now) {
    const isFirst = !this.#known.size && !this.seen;
    this.seen = true;
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
