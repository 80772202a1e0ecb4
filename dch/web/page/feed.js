// feed.js: the rows of one source in a range of time: kept ones from the store, then live ones,
// none twice and none missing.

import { FIRST_VALUE, get, Refusal } from "./api.js";
import { isoTime, parseTime } from "./times.js";
import { isText, valueNamed } from "./values.js";
import { Merge } from "./merge.js";
import { Timeline } from "./timeline.js";
import { now } from "./clock.js";

const ROWS_AT_ONCE = 10000; // as they came; what is older comes thinned
const POINTS = 1000;
const CATCH_UP_ROWS = 20000;
/** Rows that a stream did not bring may be older than the last that it brought. */
const LOOK_BACK = 10e6;
const LOST_PAUSE = 500; // ms in which more may be lost
const LEAST_PAUSE = 2000; // ms after a question, whatever became of it

export class Feed {
  error = null; // why there are no kept rows: an Error, or null
  isLoading = false;
  #where;
  #numbers; // attributes
  #texts;
  #columns; // as the server names them
  #timeline;
  #merge = new Merge();
  #waiting = []; // live rows that are not in the timeline yet
  #missingSince = -Infinity; // from then on rows may be missing; -Infinity: all
  #isClosed = false;
  #timer = 0; // of the next question, 0: none
  #mayAskFrom = 0; // ms of performance.now()
  #changed;

  /**
   * @param {Object} where application, group, source; length of the range up to now or up to `end`,
   * null: all; or from, until: a fixed range instead; hasStore: whether rows are kept at the server
   * @param {() => void} changed called whenever rows came
   * @param {Timeline=} timeline what to show until the rows are there
   */
  constructor(where, attributes, changed, timeline) {
    this.#where = where;
    const placed = attributes.map((each, i) => ({ ...each, column: FIRST_VALUE + i }));
    this.#numbers = placed.filter((each) => !isText(each));
    this.#texts = placed.filter(isText);
    this.#changed = changed;
    this.#timeline = timeline ?? new Timeline(this.#numbers.length);
  }

  /** All rows that are there. */
  get timeline() {
    if (!this.isLoading && this.#waiting.length) {
      this.#timeline.add(this.#merge.live(this.#waiting.splice(0)));
      if (this.#timeline.isFull) this.#makeRoom();
    }
    return this.#timeline;
  }

  /** Ends it: what is under way changes nothing any more. */
  close() {
    this.#isClosed = true;
    clearTimeout(this.#timer);
  }

  /** A live row. */
  take(event) {
    const values = (attributes) => attributes.map((each) => valueNamed(event.values, each.name));
    this.#waiting.push({ time: parseTime(event.time), numbers: values(this.#numbers), texts: values(this.#texts) });
    this.#changed();
  }

  /** The stream is open, for the first time or again: fetches what it did not bring. */
  opened() {
    this.#missLast();
    this.load();
  }

  /** The stream says that it left out rows: fetches them, a moment later for all that it says meanwhile. */
  lost() {
    this.#missLast();
    this.#loadLater(LOST_PAUSE);
  }

  #missLast() {
    this.#missingSince = Math.min(this.#missingSince, (this.timeline.lastTime ?? -Infinity) - LOOK_BACK);
  }

  /** Fetches what is missing, at first all. What comes live meanwhile waits for it. */
  async load() {
    if (!this.#where.hasStore || this.#isClosed || this.isLoading) return;
    const since = this.#missingSince;
    this.#missingSince = Infinity;
    this.isLoading = true;
    clearTimeout(this.#timer);
    this.#timer = 0;
    this.#changed();
    try {
      if (since === -Infinity || !(await this.#catchUp(since))) await this.#loadAll();
      this.error = null;
    } catch (error) {
      this.error = error;
      this.#missingSince = Math.min(this.#missingSince, since);
    }
    if (this.#isClosed) return;
    this.isLoading = false;
    this.#mayAskFrom = performance.now() + LEAST_PAUSE;
    const isRefused = this.error instanceof Refusal && this.error.status < 500;
    if (this.#missingSince !== Infinity && !isRefused) this.#loadLater(0);
    this.#changed();
  }

  /** Unless that is to happen anyway. */
  #loadLater(milliseconds) {
    if (this.#timer || this.isLoading || this.#isClosed) return;
    this.#timer = setTimeout(() => this.load(), Math.max(milliseconds, this.#mayAskFrom - performance.now()));
  }

  async #loadAll() {
    const { length, end, from, until } = this.#where;
    const since = from ?? (length === null ? null : (end ?? now()) - length);
    let rows = await this.#rows({ since, until, limit: ROWS_AT_ONCE });
    const timeline = new Timeline(this.#numbers.length);
    if (rows.length >= ROWS_AT_ONCE) {
      const oldest = rows[0].time; // more rows may have this time: all of them come thinned
      await this.#addThinned(timeline, since, oldest);
      rows = rows.filter((row) => row.time > oldest);
    }
    if (this.#isClosed) return;
    this.#merge.clear();
    timeline.add(this.#merge.kept(rows));
    this.#timeline = timeline;
  }

  /** @returns {Promise<boolean>} false: it is too much, all has to come anew */
  async #catchUp(since) {
    const { times, buckets } = this.#timeline;
    if (buckets.times.length && !(times[0] < since)) return false; // rows of then are thinned
    const rows = await this.#rows({ since, limit: CATCH_UP_ROWS });
    if (rows.length >= CATCH_UP_ROWS) return false;
    if (!this.#isClosed) this.#timeline.add(this.#merge.kept(rows));
    return true;
  }

  #makeRoom() {
    if (this.#where.hasStore) {
      this.#missingSince = -Infinity;
      this.#loadLater(0);
    } else {
      this.#timeline.forgetOldest();
    }
  }

  #question({ since, until, ...rest }) {
    const { application, group, source } = this.#where;
    const time = (moment) => ((moment ?? null) === null ? null : isoTime(moment));
    return { application, group, source, since: time(since), until: time(until), ...rest };
  }

  async #rows(question) {
    const { columns, rows } = await get("/api/rows", this.#question(question));
    this.#columns = columns;
    const values = (row, attributes) => attributes.map((each) => row[each.column]);
    return rows.map((row) => ({ time: row[1], numbers: values(row, this.#numbers), texts: values(row, this.#texts) }));
  }

  async #addThinned(timeline, since, until) {
    const { columns: names, rows } = await get("/api/rows", this.#question({ since, until, points: POINTS }));
    const times = rows.map((row) => row[1]);
    const columns = this.#numbers.map((each) => {
      const first = names.indexOf(`${this.#columns[each.column]}_min`);
      const [low, high, mean] = [0, 1, 2].map((i) => rows.map((row) => row[first + i] ?? null));
      return { low, high, mean };
    });
    timeline.setBuckets(times, columns, (until - (since ?? times[0] ?? until)) / POINTS);
  }
}
