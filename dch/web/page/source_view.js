// source_view.js: one source: its newest values, and how they were over time.

import { apiAddress, RANGES, rangeNamed, writePlace } from "./address.js";
import { now, showTime } from "./clock.js";
import { h, reconcile, setAttribute, setText } from "./dom.js";
import { noNumber, noRows, noStore, notFound } from "./empty.js";
import { Feed } from "./feed.js";
import { PlotBoard } from "./plot_board.js";
import { moveWindow, zoomWindow } from "./plot.js";
import { findSource, STATE_WORDS } from "./sources.js";
import { Texts } from "./texts.js";
import { formatAge, formatDuration, isoTime, parseTime } from "./times.js";
import { isText, valueNamed } from "./values.js";

const TEXTS_SHOWN = 50;
const LEAST_WINDOW = 1e6; // microseconds
const HANDS = "Drag over a plot to zoom. Keys in a plot: + and − zoom, arrows read values, Page Up and Down move, Esc goes back.";

export class SourceView {
  element = h("div", { class: "source-view" });
  feed = null;
  #zoomed = null; // a feed of its own for a window that the live one holds only thinned
  #place;
  #context;
  #attributes = ""; // as JSON: another registration, or none, makes another view
  #end = null; // of what is kept of a source that is not registered
  #isOpen = false; // the live stream
  #latest = { time: -1, values: {} };
  #state = h("span", { class: "state" });
  #age = h("time");
  #ranges = h("nav", { class: "chips", "aria-label": "Range of time" });
  #tools;
  #later;
  #csv = h("a", { class: "quiet", download: "" }, "Download CSV");
  #bar;
  #message = h("p", { role: "status" });
  #body = h("div");
  #board = null;
  #texts = null;

  /** @param {Place} place with a source @param {Object} context of main.js */
  constructor(place, context) {
    this.#place = place;
    this.#context = context;
    const tool = (name, words, act) => h("button", { type: "button", class: "quiet", "data-tool": name, click: act }, words);
    const moved = (part) => () => this.#zoom(...moveWindow(...this.#window(), part));
    const zoomed = (factor) => () => this.#zoom(...zoomWindow(...this.#window(), factor));
    this.#tools = h("div", { class: "tools", role: "group", "aria-label": "Part of the range" },
      tool("earlier", "← Earlier", moved(-0.5)), this.#later = tool("later", "Later →", moved(0.5)),
      tool("in", "Zoom in", zoomed(0.5)), tool("out", "Zoom out", zoomed(2)),
      tool("live", "Back to live", () => this.#zoom(null, null)), this.#csv);
    this.#bar = h("div", { class: "bar", hidden: true }, this.#ranges, this.#tools);
    this.element.append(
      h("div", { class: "title" },
        h("h1", { tabindex: "-1" }, place.source, " ", h("small", {}, `${place.application} / ${place.group}`)),
        h("p", { class: "summary" }, this.#state, this.#age)),
      context.attention.element, this.#bar, this.#message, this.#body);
    this.update();
  }

  /** Another range or window of the same source. */
  move(place) {
    const before = this.feed && this.#range;
    this.#place = place;
    if (this.feed && this.#range !== before) this.#follow();
    this.#showZoom();
    this.update();
  }

  close() {
    this.feed?.close();
    this.#zoomed?.close();
    this.#board?.close();
  }

  /** A row of the group came. */
  row(event) {
    if (event.source !== this.#place.source) return;
    this.#latest = { time: parseTime(event.time), values: event.values };
    this.feed?.take(event);
    this.#board?.changed();
  }

  /** The live stream is open. */
  opened() {
    this.#isOpen = true;
    this.feed?.opened();
  }

  /** The live stream left out rows. */
  lost() {
    this.feed?.lost();
  }

  /** The server told of its applications and of itself. */
  update() {
    const { link, groups, kept } = this.#context;
    if (!link.applications || !link.state) return;
    const found = findSource(groups, this.#place);
    if (!found) {
      const { application, group, source } = this.#place;
      if (!this.feed && kept !== null) this.#body.replaceChildren(notFound([application, group, source]));
      this.#showState("unregistered");
      return;
    }
    const { group: { attributes }, source } = found;
    if ((source.lastRow ?? -1) > this.#latest.time) this.#latest = { time: source.lastRow, values: source.values };
    this.#end = source.state === "unregistered" ? source.lastRow : null;
    const text = JSON.stringify([attributes, this.#end]);
    if (text !== this.#attributes) this.#start(text, attributes);
    this.#showState(source.state);
    this.#showRanges();
    this.#board.changed();
  }

  #start(text, attributes) {
    this.#attributes = text;
    this.attributes = attributes;
    this.#board?.close();
    const numbers = attributes.filter((each) => !isText(each));
    this.#board = new PlotBoard(numbers, (from, until) => this.#zoom(from, until), () => this.#draw());
    this.#texts = new Texts(attributes.filter(isText));
    this.#body.replaceChildren(
      this.#hasStore ? "" : noStore(),
      h("h2", { class: "unseen" }, "Plots"),
      ...(numbers.length ? [this.#board.element, h("p", { class: "hint" }, HANDS)] : [noNumber(this.#place.application)]),
      this.#texts.element);
    this.#bar.hidden = false;
    this.feed?.close();
    this.feed = null; // Its columns may be others.
    this.#follow();
    this.#showZoom();
  }

  get #hasStore() {
    return this.#context.link.state.state !== "memory";
  }

  /** Without a store there is little before now to be seen. */
  get #range() {
    return rangeNamed(this.#place.range || (this.#hasStore ? "1h" : "15m"));
  }

  #newFeed(range, timeline) {
    const { application, group, source } = this.#place;
    return new Feed({ application, group, source, hasStore: this.#hasStore, ...range }, this.attributes, () => this.#board.changed(), timeline);
  }

  /** A feed for the place's range, up to now and on. */
  #follow() {
    const before = this.feed;
    this.feed = this.#newFeed({ length: this.#range.length, end: this.#end }, before?.timeline);
    before?.close();
    if (this.#isOpen || this.#end !== null) this.feed.opened();
  }

  /** Looks for a finer view of the place's window where the live feed has only thinned rows. */
  #showZoom() {
    this.#zoomed?.close();
    this.#zoomed = null;
    const { from, until } = this.#place;
    if (from === null || !this.feed || !this.#hasStore) return;
    const { timeline, isLoading } = this.feed;
    const isRaw = !isLoading && timeline.times.length &&
      (timeline.times[0] <= from || (!timeline.buckets.times.length && this.#wholeWindow()[0] <= from));
    const hasTexts = !timeline.newestTexts.length || timeline.newestTexts.at(-1).time <= from;
    if (isRaw && hasTexts) return;
    this.#zoomed = this.#newFeed({ from, until });
    this.#zoomed.load();
  }

  #zoom(from, until) {
    if (from !== null) {
      const beyond = Math.max(0, until - (this.#end ?? now())); // There is nothing to see in the future.
      [from, until] = [Math.max(0, from - beyond), until - beyond];
      if (until - from < LEAST_WINDOW || (beyond && this.#isAtEnd && from >= this.#window()[0] - LEAST_WINDOW)) return;
    }
    location.hash = writePlace({ ...this.#place, from, until });
  }

  /** @returns {[number, number]} what is shown */
  #window() {
    const { from, until } = this.#place;
    return from === null ? this.#wholeWindow() : [from, until];
  }

  /** @returns {[number, number]} the range */
  #wholeWindow() {
    const { length } = this.#range;
    const end = this.#end ?? now();
    if (length !== null) return [end - length, end];
    return [Math.min(this.feed?.timeline.firstTime ?? end, end - 60e6), end];
  }

  get #isAtEnd() {
    const [from, until] = this.#window();
    return until >= (this.#end ?? now()) - Math.max(LEAST_WINDOW, (until - from) / 50);
  }

  #draw() {
    const { timeline } = this.#zoomed && !this.#zoomed.timeline.isEmpty ? this.#zoomed : this.feed;
    const [from, until] = this.#window();
    const feed = this.#zoomed ?? this.feed;
    const isComing = feed.isLoading || !this.#isOpen;
    const absence = feed.error ? "Not fetched." : isComing ? "Fetching…" : "None in this range.";
    this.#texts.update(timeline.newestTexts.filter(({ time }) => time >= from && time <= until).slice(0, TEXTS_SHOWN), absence);
    setText(this.#message, this.#messageText(feed, isComing));
    setAttribute(this.#message, "class", feed.error ? "bad" : "hint");
    setAttribute(this.#later, "aria-disabled", String(this.#isAtEnd));
    this.#showAge();
    return { timeline, window: [from, until], latest: (each) => valueNamed(this.#latest.values, each.name), absence };
  }

  #messageText(feed, isComing) {
    if (feed.error) return `The kept rows could not be fetched: ${feed.error.message}`;
    if (feed.timeline.isEmpty && this.#hasStore) {
      return isComing ? "Fetching the kept rows…" : noRows(this.#zoomed ? "part of time shown" : this.#range.long);
    }
    return this.#end === null ? "" : "It is not registered at this server now. These are its kept rows, up to the last.";
  }

  #showState(state) {
    this.state = state;
    setAttribute(this.element, "class", `source-view ${state}`);
    setText(this.#state, STATE_WORDS[state]);
    this.#showAge();
  }

  #showRanges() {
    const isLive = this.#place.from === null;
    reconcile(this.#ranges, RANGES, (range) => range.name, (range) => h("a", { "aria-label": range.long }, range.words), (element, range) => {
      setAttribute(element, "href", writePlace({ ...this.#place, range: range.name, from: null, until: null }));
      setAttribute(element, "aria-current", range === this.#range && isLive ? "true" : null);
    });
    this.#tools.querySelector("[data-tool=live]").hidden = isLive;
    const [from, until] = this.#window();
    const { application, group, source } = this.#place;
    setAttribute(this.#csv, "href", apiAddress("/api/rows", { application, group, source, format: "csv",
      since: isLive && this.#range.length === null ? null : isoTime(from), until: isLive ? null : isoTime(until) }));
    this.#csv.hidden = !this.#hasStore;
  }

  #showAge() {
    const { time } = this.#latest;
    if (time < 0) return;
    showTime(this.#age, time, this.state === "silent" ? ` for ${formatDuration(now() - time)}` : ` · last row ${formatAge(time, now())}`);
  }
}
