// pace.js: how often rows come, and from when on their absence means something.

const SECOND = 1e6;
/** Of a source whose pace is not known. */
export const UNKNOWN_LIMIT = 300 * SECOND;
const LEAST_SILENCE = 15 * SECOND;
const LEAST_GAP = 2.5 * SECOND;
const TIMES_LONGER = 5;
const INTERVALS_KEPT = 16;

/** @returns {?number} of numbers the one in the middle; null of none */
export function median(numbers) {
  if (!numbers.length) return null;
  return Float64Array.from(numbers).sort()[numbers.length >> 1];
}

/** @returns {?number} the usual interval of times, ascending, of which the last ones count; null where there is none */
export function usualInterval(times, newest = 64) {
  const intervals = [];
  for (let i = Math.max(1, times.length - newest); i < times.length; ++i) {
    if (times[i] > times[i - 1]) intervals.push(times[i] - times[i - 1]);
  }
  return median(intervals);
}

/** From when on a source counts as silent. @param {?number} interval the usual one */
export const silenceLimit = (interval) =>
  interval === null ? UNKNOWN_LIMIT : Math.max(TIMES_LONGER * interval, LEAST_SILENCE);

/** From when on a line between two rows is broken. */
export const gapLimit = (interval) =>
  interval === null ? Infinity : Math.max(TIMES_LONGER * interval, LEAST_GAP);

/**
 * Learns the paces of sources from their newest rows' times as they are seen. One that is faster
 * than one looks seems as slow as one looks: good enough to tell silence.
 */
export class Paces {
  #seen = new Map(); // key → { last, intervals }

  /** A source's newest row has this time. */
  see(key, time) {
    if (time === null) return;
    const known = this.#seen.get(key);
    if (!known) {
      this.#seen.set(key, { last: time, intervals: [] });
    } else if (time > known.last) {
      known.intervals.push(time - known.last);
      if (known.intervals.length > INTERVALS_KEPT) known.intervals.shift();
      known.last = time;
    }
  }

  /** The kept rows say this, or nothing. */
  learn(key, interval) {
    const known = this.#seen.get(key) ?? { last: 0, intervals: [] };
    known.isAsked = true;
    if (interval !== null) known.intervals = [interval];
    this.#seen.set(key, known);
  }

  /** Whether the kept rows were not asked yet and would tell more. */
  isUnknown(key) {
    const known = this.#seen.get(key);
    return !known || (!known.isAsked && !known.intervals.length);
  }

  /** From what age of its newest row on a source is silent. */
  limit(key) {
    return silenceLimit(median(this.#seen.get(key)?.intervals ?? []));
  }
}
