// timeline.js: the rows of one source that a view keeps: the newest as they came, older ones thinned.

import { usualInterval } from "./pace.js";

/** So many rows are kept as they came; beyond that the older half is thinned. */
export const ROWS_KEPT = 120000;
const BUCKETS_OF_A_HALF = 500;
const BUCKETS_KEPT = 4000;
const TEXTS_KEPT = 1000;

/** The first index whose time is not before `time`. */
export function lowerBound(times, time) {
  let low = 0;
  let high = times.length;
  while (low < high) {
    const middle = (low + high) >> 1;
    if (times[middle] < time) low = middle + 1;
    else high = middle;
  }
  return low;
}

/** Of numbers and BigInts. */
export const least = (a, b) => (b < a ? b : a);
export const most = (a, b) => (b > a ? b : a);

const asNumber = (value) => (typeof value === "number" || typeof value === "bigint" ? value : null);

export class Timeline {
  times = []; // of the rows, ascending
  values; // for each column one value a row: number, BigInt or null
  buckets; // { times, columns: [{ low, high, mean }] }: what is older than the rows
  bucketWidth = 0;
  lastTime = null; // of the row that came last: it is not the newest after a clock was set back
  newestTexts = []; // { time, texts }, the newest first
  isFull = false; // more buckets than are kept: time to ask the store anew

  constructor(columns) {
    this.values = Array.from({ length: columns }, () => []);
    this.buckets = {
      times: [],
      columns: Array.from({ length: columns }, () => ({ low: [], high: [], mean: [] })),
    };
  }

  get firstTime() {
    return this.buckets.times[0] ?? this.times[0] ?? null;
  }
  get isEmpty() {
    return !this.times.length && !this.buckets.times.length;
  }
  /** @returns {?number} the usual interval between rows */
  get interval() {
    return usualInterval(this.times);
  }

  /** Takes rows in any order: {time, numbers, texts}, one number for each column, null: none. */
  add(rows) {
    if (!rows.length) return;
    this.lastTime = rows.at(-1).time;
    let isInOrder = true;
    let last = this.times.at(-1) ?? -Infinity;
    for (const row of rows) {
      if (row.time < last) isInOrder = false;
      last = row.time;
      this.times.push(row.time);
      this.values.forEach((column, i) => column.push(asNumber(row.numbers[i])));
    }
    if (!isInOrder) this.#sort();
    this.#addTexts(rows);
    if (this.times.length > ROWS_KEPT) this.#thinOlderHalf();
  }

  /**
   * Takes what the store thinned into buckets of that width, in place of all that is thinned here;
   * times are those of their first rows.
   */
  setBuckets(times, columns, width) {
    this.buckets = { times, columns };
    this.bucketWidth = width;
  }

  #sort() {
    const order = Array.from(this.times.keys()).sort((a, b) => this.times[a] - this.times[b]);
    const sorted = (column) => order.map((i) => column[i]);
    this.times = sorted(this.times);
    this.values = this.values.map(sorted);
  }

  #addTexts(rows) {
    const texts = rows.slice(-TEXTS_KEPT).filter((row) => row.texts.some((text) => (text ?? null) !== null));
    if (!texts.length) return;
    this.newestTexts = [...texts.reverse(), ...this.newestTexts]
      .sort((a, b) => b.time - a.time).slice(0, TEXTS_KEPT);
  }

  #thinOlderHalf() {
    const half = this.times.length >> 1;
    const width = (this.times[half] - this.times[0]) / BUCKETS_OF_A_HALF || 1;
    for (let begin = 0; begin < half;) {
      const end = Math.max(begin + 1, Math.min(half, lowerBound(this.times, this.times[begin] + width)));
      this.buckets.times.push(this.times[begin]);
      this.values.forEach((column, i) => {
        for (const [name, value] of Object.entries(summary(column, begin, end))) this.buckets.columns[i][name].push(value);
      });
      begin = end;
    }
    this.bucketWidth = Math.max(this.bucketWidth, width);
    for (const column of [this.times, ...this.values]) column.splice(0, half);
    this.isFull = this.buckets.times.length > BUCKETS_KEPT;
  }

  /** Forgets the oldest thinned ones, where there is no store to ask anew. */
  forgetOldest() {
    const { times, columns } = this.buckets;
    for (const each of [times, ...columns.flatMap(Object.values)]) {
      each.splice(0, each.length - BUCKETS_KEPT / 2);
    }
    this.isFull = false;
  }
}

/** What the numbers, BigInts and nulls of a part of a column were like. */
function summary(column, begin, end) {
  let low = null, high = null, sum = 0, count = 0;
  for (const value of column.slice(begin, end)) {
    if (value === null) continue;
    low = least(low ?? value, value);
    high = most(high ?? value, value);
    sum += Number(value);
    ++count;
  }
  return { low, high, mean: count ? sum / count : null };
}
