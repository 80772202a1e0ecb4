// feed.js: the rows of one source in a range of time: kept ones from the store, then live ones,
// none twice and none missing.

import { FIRST_VALUE, get, Refusal } from "./api.js";
import { isoTime, parseTime } from "./times.js";
import { isText, valueNamed } from "./values.js";
import { Timeline } from "./timeline.js";
import { now } from "./clock.js";

const ROWS_AT_ONCE = 10000; // as they came; what is older comes thinned
const POINTS = 1000;
const CATCH_UP_ROWS = 20000;
/** Rows that a stream lost may be older than the last that it brought. */
const LOOK_BACK = 10e6;

export class Feed {
  error = null; // why there are no kept rows: an Error, or null
  isLoading = false;
  #where;
  #numbers; // attributes
  #texts;
  #positions; // of the attributes among the columns
  #timeline;
  #waiting = []; // live rows that are not in the timeline yet
  #missingSince = -Infinity; // from then on rows may be missing; -Infinity: all
  #isClosed = false;
  #timer = 0;
  #changed;

  /**
   * @param {Object} where application, group, source; length of the range up to now or up to `end`,
   * null: all; or from, until: a fixed range instead; hasStore: whether rows are kept at the server
   * @param {Array} attributes the group's
   * @param {() => void} changed called whenever rows came
   * @param {Timeline=} timeline what to show until the rows are there
   */
  constructor(where, attributes, changed, timeline) {
    this.#where = where;
    this.#numbers = attributes.filter((each) => !isText(each));
    this.#texts = attributes.filter(isText);
    this.#positions = new Map(attributes.map((each, i) => [each, FIRST_VALUE + i]));
    this.#changed = changed;
    this.#timeline = timeline ?? new Timeline(this.#numbers.length);
  }

  /** All rows that are there. */
  get timeline() {
    if (!this.isLoading && this.#waiting.length) {
      this.#timeline.add(this.#waiting.splice(0));
      if (this.#timeline.isFull) this.#makeRoom();
    }
    return this.#timeline;
  }

  /** Ends it: what is under way changes nothing any more. */
  close() {
    this.#isClosed = true;
    clearTimeout(this.#timer);
  }

  /** A live row. @param {Object} event */
  take(event) {
    this.#waiting.push({
      time: parseTime(event.time), handle: event.handle,
      numbers: this.#numbers.map((each) => valueNamed(event.values, each.name)),
      texts: this.#texts.map((each) => valueNamed(event.values, each.name)),
    });
    this.#changed();
  }

  /** The stream is open, for the first time or again: fetches what it did not bring. */
  opened() {
    return this.#fetchMissing(this.timeline.lastTime ?? -Infinity);
  }

  /** The stream says that it left out rows: fetches them, a moment later for all that it says meanwhile. */
  lost() {
    this.#missingSince = Math.min(this.#missingSince, (this.timeline.lastTime ?? now()) - LOOK_BACK);
    this.#fetchLater(500);
  }

  /** Fetches the whole range anew. */
  load() {
    return this.#fetchMissing(-Infinity);
  }

  async #fetchMissing(since) {
    this.#missingSince = Math.min(this.#missingSince, since);
    if (!this.#where.hasStore || this.#isClosed || this.isLoading) return;
    clearTimeout(this.#timer);
    // What is there is merged by count; what comes from now on waits for what is fetched.
    this.#timeline.add(this.#waiting.splice(0));
    this.isLoading = true;
    this.#changed();
    while (this.#missingSince !== Infinity && !this.#isClosed) {
      const from = this.#missingSince;
      this.#missingSince = Infinity;
      try {
        if (from === -Infinity || !(await this.#catchUp(from))) await this.#loadAll();
        this.error = null;
      } catch (error) {
        this.error = error;
        this.#missingSince = Math.min(this.#missingSince, from);
        break;
      }
    }
    if (this.#isClosed) return;
    this.isLoading = false;
    this.#timeline.addMissing(this.#waiting.splice(0));
    if (this.error && !(this.error instanceof Refusal && this.error.status < 500)) this.#fetchLater(2000);
    this.#changed();
  }

  #fetchLater(milliseconds) {
    clearTimeout(this.#timer);
    if (!this.#isClosed) this.#timer = setTimeout(() => this.#fetchMissing(this.#missingSince), milliseconds);
  }

  async #loadAll() {
    const { length, end, from, until } = this.#where;
    const since = from ?? (length === null ? null : (end ?? now()) - length);
    const rows = await this.#rows({ since, until, limit: ROWS_AT_ONCE });
    const timeline = new Timeline(this.#numbers.length);
    if (rows.length >= ROWS_AT_ONCE) {
      const oldest = rows[0].time; // more rows may have this time: all of them come thinned
      await this.#addThinned(timeline, since, oldest);
      timeline.add(rows.filter((row) => row.time > oldest));
    } else {
      timeline.add(rows);
    }
    if (!this.#isClosed) this.#timeline = timeline;
  }

  /** @returns {Promise<boolean>} false: it is too much, all has to come anew */
  async #catchUp(since) {
    const rows = await this.#rows({ since, limit: CATCH_UP_ROWS });
    if (rows.length >= CATCH_UP_ROWS) return false;
    if (!this.#isClosed) this.#timeline.addMissing(rows);
    return true;
  }

  #makeRoom() {
    if (this.#where.hasStore) this.load();
    else this.#timeline.forgetOldest();
  }

  #question({ since, until, ...rest }) {
    const { application, group, source } = this.#where;
    const time = (moment) => ((moment ?? null) === null ? null : isoTime(moment));
    return { application, group, source, since: time(since), until: time(until), ...rest };
  }

  async #rows(question) {
    const answer = await get("/api/rows", this.#question(question));
    const time = answer.columns.indexOf("time_us");
    const handle = answer.columns.indexOf("handle");
    const numbers = this.#numbers.map((each) => this.#positions.get(each));
    const texts = this.#texts.map((each) => this.#positions.get(each));
    return answer.rows.map((row) => ({
      time: row[time], handle: row[handle], numbers: numbers.map((i) => row[i]), texts: texts.map((i) => row[i]),
    }));
  }

  async #addThinned(timeline, since, until) {
    const { columns: names, rows } = await get("/api/rows", this.#question({ since, until, points: POINTS }));
    const column = (name) => {
      const i = names.indexOf(name);
      return rows.map((row) => (i < 0 || row[i] === null ? null : Number(row[i])));
    };
    const times = rows.map((row) => row[1]);
    const columns = this.#numbers.map(({ name }) => ({ low: column(`${name}_min`), high: column(`${name}_max`), mean: column(`${name}_mean`) }));
    timeline.setBuckets(times, columns, (until - (since ?? times[0] ?? until)) / POINTS);
  }
}
