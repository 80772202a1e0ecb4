// server_panel.js: the server itself: its state file, the other sites, and all that it counts.

import { now, showTime } from "./clock.js";
import { h, reconcile, setText } from "./dom.js";
import { formatDuration, parseTime } from "./times.js";
import { formatMean, formatValue } from "./values.js";

const MICROSECONDS = "_microseconds";
const inWords = (name) => name.replaceAll("_", " ");

/** A table of counts that opens on demand. */
class Counts {
  #body = h("tbody");

  constructor(words, what) {
    this.element = h("details", {}, h("summary", {}, words),
      h("table", { class: "counters" }, h("caption", { class: "unseen" }, words),
        h("thead", { class: "unseen" }, h("tr", {}, h("th", { scope: "col" }, what), h("th", { scope: "col" }, "Count"))), this.#body));
  }

  /** @param {Array<[string, string, string]>} counts name, words, count */
  update(counts) {
    reconcile(this.#body, counts, ([name]) => name, ([name, words]) =>
      h("tr", {}, h("th", { scope: "row" }, words, " ", h("code", {}, name)), h("td", { class: "number" })),
    (row, [, words, count]) => {
      setText(row.firstElementChild.firstChild, words);
      setText(row.lastElementChild, count);
    });
  }
}

/** What /api/state says, for who wants to know more than the troubles. */
export class ServerPanel {
  element;
  #version = h("dd");
  #started = h("time");
  #state = h("dd", { class: "path" });
  #hint = h("p", { class: "hint" }, "Nothing is kept when the server ends. Start it with --store FILE to keep rows.");
  #gauges = h("dl", { class: "facts" });
  #counters = new Counts("All counters", "What");
  #requests = new Counts("Requests", "Request and answer");
  #sites = new Counts("Other sites", "Site");

  constructor() {
    this.element = h("section", { hidden: true }, h("h2", {}, "Server"),
      h("dl", { class: "facts" },
        h("div", {}, h("dt", {}, "Version"), this.#version),
        h("div", {}, h("dt", {}, "Started"), h("dd", {}, this.#started)),
        h("div", {}, h("dt", {}, "State in"), this.#state)),
      this.#hint, this.#gauges, this.#counters.element, this.#requests.element, this.#sites.element);
  }

  /** @param {?Object} state of /api/state */
  update(state) {
    if (!state) return;
    this.element.hidden = false;
    setText(this.#version, state.version);
    showTime(this.#started, parseTime(state.started));
    setText(this.#state, state.state);
    this.#hint.hidden = state.state !== "memory";
    reconcile(this.#gauges, Object.entries(state.gauges), ([name]) => name,
      ([name]) => h("div", {}, h("dt", { title: state.help[name] }, inWords(name)), h("dd")),
      (element, [, value]) => setText(element.lastElementChild, formatValue(value)));
    this.#counters.update(Object.entries(state.counters).map(([name, value]) => [name, state.help[name] ?? inWords(name),
      name.endsWith(MICROSECONDS) ? `${formatMean(Number(value) / 1e6)} s` : formatValue(value)]));
    this.#requests.update(state.requests.map(({ request, code, status, text, count }) =>
      [`${code} ${status || ""}`.trim(), `${request}: ${text}`, formatValue(count)]));
    this.#sites.element.hidden = !state.sites.length;
    this.#sites.update([...state.sites.map(({ site, state: word, since, changes_behind: behind }) =>
      [site, `${word} for ${formatDuration(now() - parseTime(since))}`, behind === null ? "" : `${formatValue(behind)} behind`]),
    ...(state.sites_left_out ? [["", `and ${formatValue(state.sites_left_out)} more`, ""]] : [])]);
  }
}
