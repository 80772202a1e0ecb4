// source_view.js: one source: its newest values, and how they were over time.

import { apiAddress, RANGES, rangeNamed, writePlace } from "./address.js";
import { now, showTime } from "./clock.js";
import { h, reconcile, setAttribute, setText } from "./dom.js";
import { noNumber, noRows, noStore, notFound } from "./empty.js";
import { Feed } from "./feed.js";
import { PlotBoard } from "./plot_board.js";
import { moveWindow, zoomWindow } from "./plot.js";
import { STATE_WORDS } from "./sources.js";
import { Texts } from "./texts.js";
import { formatAge, formatDuration, isoTime, parseTime } from "./times.js";
import { isText, valueNamed } from "./values.js";

export class SourceView {
  element = h("div", { class: "source-view" });
  feed = null;
  #zoomed = null; // a feed of its own for a window that the live one holds only thinned
  #place;
  #context;
  #attributes = ""; // as JSON: another registration makes another view
  #isOpen = false; // the live stream
  #latest = { time: -1, values: {} };
  #title;
  #state = h("span", { class: "state" });
  #age = h("time");
  #ranges = h("nav", { class: "chips", "aria-label": "Range of time" });
  #tools;
  #csv = h("a", { class: "quiet", download: "" }, "Download CSV");
  #message = h("p", { class: "hint", role: "status" });
  #body = h("div");
  #board = null;
  #texts = null;

  /** @param {import("./address.js").Place} place with a source @param {Object} context of main.js */
  constructor(place, context) {
    this.#place = place;
    this.#context = context;
    this.#title = h("h1", { tabindex: "-1" }, place.source);
    const tool = (name, words, act) => h("button", { type: "button", class: "quiet", "data-tool": name, click: act }, words);
    const moved = (part) => () => this.#zoom(...moveWindow(...this.#window(), part));
    const zoomed = (factor) => () => this.#zoom(...zoomWindow(...this.#window(), factor));
    this.#tools = h("div", { class: "tools", role: "group", "aria-label": "Part of the range" },
      tool("earlier", "← Earlier", moved(-0.5)), tool("later", "Later →", moved(0.5)),
      tool("in", "Zoom in", zoomed(0.5)), tool("out", "Zoom out", zoomed(2)),
      tool("live", "Back to live", () => this.#zoom(null, null)), this.#csv);
    this.element.append(
      h("div", { class: "title" }, this.#title, h("p", { class: "summary" }, this.#state, " ", this.#age)),
      context.attention.element, h("div", { class: "bar" }, this.#ranges, this.#tools), this.#message, this.#body);
    this.update();
  }

  /** Another range or window of the same source. */
  move(place) {
    const isOtherRange = place.range !== this.#place.range;
    this.#place = place;
    if (isOtherRange && this.feed) this.#follow();
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
    const { link, groups } = this.#context;
    this.#showRanges();
    if (!link.applications || !link.state) return;
    const { application, group, source: name } = this.#place;
    const found = groups.find((each) => each.application.name === application && each.name === group);
    const source = found?.sources.find((each) => each.name === name);
    if (!source) {
      if (!this.feed) this.#body.replaceChildren(notFound([application, group, name]));
      setText(this.#state, "not registered");
      return;
    }
    if (source.lastRow !== null && source.lastRow > this.#latest.time) this.#latest = { time: source.lastRow, values: source.values };
    const attributes = JSON.stringify(found.attributes);
    if (attributes !== this.#attributes) this.#start(attributes, found.attributes);
    this.#showState(source);
    this.#board.changed();
  }

  #start(text, attributes) {
    this.#attributes = text;
    this.#board?.close();
    const numbers = attributes.filter((each) => !isText(each));
    this.#board = new PlotBoard(numbers, (from, until) => this.#zoom(from, until), () => this.#draw());
    this.#texts = new Texts(attributes.filter(isText));
    this.attributes = attributes;
    this.numbers = numbers;
    this.#body.replaceChildren(
      this.#hasStore ? "" : noStore(),
      h("h2", { class: "unseen" }, "Plots"),
      numbers.length ? this.#board.element : noNumber(this.#place.application), this.#texts.element);
    this.#follow();
    this.#showZoom();
  }

  get #hasStore() {
    return this.#context.link.state.state !== "memory";
  }

  #newFeed(range, timeline) {
    const { application, group, source } = this.#place;
    return new Feed({ application, group, source, hasStore: this.#hasStore, ...range }, this.attributes, () => this.#board.changed(), timeline);
  }

  /** A feed for the place's range, up to now and on. */
  #follow() {
    const before = this.feed;
    this.feed = this.#newFeed({ length: rangeNamed(this.#place.range).length }, before?.timeline);
    before?.close();
    if (this.#isOpen) this.feed.opened();
  }

  /** Looks for a finer view of the place's window where the live feed has only thinned rows. */
  #showZoom() {
    this.#zoomed?.close();
    this.#zoomed = null;
    const { from, until } = this.#place;
    if (from === null || !this.feed || !this.#hasStore) return;
    const { timeline, isLoading } = this.feed;
    const isRaw = !isLoading && !timeline.isEmpty && timeline.times.length &&
      (timeline.times[0] <= from || (!timeline.buckets.times.length && now() - (rangeNamed(this.#place.range).length ?? Infinity) <= from));
    if (isRaw) return;
    this.#zoomed = this.#newFeed({ from, until });
    this.#zoomed.load();
  }

  #zoom(from, until) {
    if (from !== null) {
      from = Math.max(0, from);
      until = Math.min(until, now() + 60e6);
      if (until - from < 1e6) return;
    }
    location.hash = writePlace({ ...this.#place, from, until });
  }

  /** @returns {[number, number]} what is shown */
  #window() {
    const { from, until, range } = this.#place;
    if (from !== null) return [from, until];
    const { length } = rangeNamed(range);
    const end = now();
    if (length !== null) return [end - length, end];
    return [Math.min(this.feed?.timeline.firstTime ?? end, end - 60e6), end];
  }

  #shownFeed() {
    return this.#zoomed && !this.#zoomed.timeline.isEmpty ? this.#zoomed : this.feed;
  }

  #draw() {
    const feed = this.#shownFeed();
    this.#texts.update(feed.timeline.newestTexts);
    setText(this.#message, this.#messageText());
    this.#showAge();
    return { timeline: feed.timeline, window: this.#window(), latest: (each) => valueNamed(this.#latest.values, each.name) };
  }

  #messageText() {
    const feed = this.#zoomed ?? this.feed;
    if (feed.error) return `The kept rows could not be fetched: ${feed.error.message}`;
    if (feed.isLoading && feed.timeline.isEmpty) return "Fetching the kept rows…";
    if (feed.timeline.isEmpty && this.#hasStore) return noRows(this.#zoomed ? "part of time shown" : rangeNamed(this.#place.range).long);
    return "";
  }

  #showState(source) {
    this.state = source.state;
    setAttribute(this.element, "class", `source-view ${source.state}`);
    setText(this.#state, STATE_WORDS[source.state]);
    this.#showAge();
    const [from, until] = this.#window();
    const { application, group, source: name } = this.#place;
    setAttribute(this.#csv, "href", apiAddress("/api/rows", { application, group, source: name, format: "csv",
      since: this.#place.range === "all" && this.#place.from === null ? null : isoTime(from), until: this.#place.from === null ? null : isoTime(until) }));
    this.#csv.hidden = !this.#hasStore;
  }

  #showAge() {
    const { time } = this.#latest;
    if (time < 0) return;
    showTime(this.#age, time, this.state === "silent" ? `for ${formatDuration(now() - time)}` : `last row ${formatAge(time, now())}`);
  }

  #showRanges() {
    reconcile(this.#ranges, RANGES, (range) => range.name, (range) => h("a", { "aria-label": range.long }, range.words), (element, range) => {
      setAttribute(element, "href", writePlace({ ...this.#place, range: range.name, from: null, until: null }));
      setAttribute(element, "aria-current", range.name === this.#place.range && this.#place.from === null ? "true" : null);
    });
    this.#tools.querySelector("[data-tool=live]").hidden = this.#place.from === null;
  }
}
