// pace.js: how often rows come, and from when on their absence means something.

const SECOND = 1e6;
/** Of a source whose pace is not known. */
export const UNKNOWN_LIMIT = 300 * SECOND;
const LEAST_SILENCE = 15 * SECOND;
const LEAST_GAP = 2.5 * SECOND;
const TIMES_LONGER = 5;
const INTERVALS_KEPT = 16;

/** @param {number[]} numbers @returns {?number} the one in the middle; null of none */
export function median(numbers) {
  if (!numbers.length) return null;
  return Float64Array.from(numbers).sort()[numbers.length >> 1];
}

/**
 * @param {ArrayLike<number>} times ascending
 * @param {number=} newest how many of the last ones count
 * @returns {?number} the usual interval; null where there is none
 */
export function usualInterval(times, newest = 64) {
  const intervals = [];
  for (let i = Math.max(1, times.length - newest); i < times.length; ++i) {
    if (times[i] > times[i - 1]) intervals.push(times[i] - times[i - 1]);
  }
  return median(intervals);
}

/** @param {?number} interval the usual one @returns {number} from when on a source counts as silent */
export const silenceLimit = (interval) =>
  interval === null ? UNKNOWN_LIMIT : Math.max(TIMES_LONGER * interval, LEAST_SILENCE);

/** @param {?number} interval @returns {number} from when on a line between two rows is broken */
export const gapLimit = (interval) =>
  interval === null ? Infinity : Math.max(TIMES_LONGER * interval, LEAST_GAP);

/**
 * Learns the paces of sources from their newest rows' times as they are seen. One that is faster
 * than one looks seems as slow as one looks: good enough to tell silence.
 */
export class Paces {
  #seen = new Map(); // key → { last, intervals }

  /** @param {string} key a source @param {?number} time of its newest row */
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

  /** What the kept rows say. @param {string} key @param {?number} interval */
  learn(key, interval) {
    const known = this.#seen.get(key) ?? { last: 0, intervals: [] };
    known.isAsked = true;
    if (interval !== null) known.intervals = [interval];
    this.#seen.set(key, known);
  }

  /** Whether the kept rows were not asked yet and would tell more. @param {string} key */
  isUnknown(key) {
    const known = this.#seen.get(key);
    return !known || (!known.isAsked && !known.intervals.length);
  }

  /** @param {string} key @returns {number} from what age of its newest row on it is silent */
  limit(key) {
    return silenceLimit(median(this.#seen.get(key)?.intervals ?? []));
  }
}
