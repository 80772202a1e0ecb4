// merge.js: rows that come two ways, live and from the store, each shown once.

const KEPT_IN_MIND = 40000; // rows; older ones come neither way any more

/** All of it: rows that came in one go have the same time. */
const keyOf = ({ time, numbers, texts }) => [time, ...numbers, ...texts].join("\0");

/**
 * Either way may be the first to bring a row. Rows may be alike in all: what one way brought n
 * times and the other m times was there max(n, m) times.
 */
export class Merge {
  #live = new Map(); // key → how often it came live
  #shown = new Map();

  /** The next rows that came live. Returns those to show. */
  live(rows) {
    return this.#missing(rows, this.#live);
  }

  /** All rows that the store has of a range. Returns those to show. */
  kept(rows) {
    return this.#missing(rows, new Map());
  }

  /** Nothing is shown any more; what came live does not come again. */
  clear() {
    this.#shown.clear();
  }

  #missing(rows, counts) {
    const missing = rows.filter((row) => {
      const key = keyOf(row);
      const count = (counts.get(key) ?? 0) + 1;
      counts.set(key, count);
      if (count <= (this.#shown.get(key) ?? 0)) return false;
      this.#shown.set(key, count);
      return true;
    });
    for (const known of [this.#live, this.#shown]) {
      for (const oldest of known.keys()) {
        if (known.size <= KEPT_IN_MIND) break;
        known.delete(oldest);
      }
    }
    return missing;
  }
}
