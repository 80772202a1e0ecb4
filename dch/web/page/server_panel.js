// server_panel.js: the server itself: its state file and all that it counts.

import { showTime } from "./clock.js";
import { h, reconcile, setText } from "./dom.js";
import { parseTime } from "./times.js";
import { formatValue } from "./values.js";

const inWords = (name) => name.replaceAll("_", " ");
const row = () => h("tr", {}, h("th", { scope: "row" }), h("td", { class: "number" }));

function table(caption, first, second) {
  const body = h("tbody");
  return { body, element: h("table", { class: "counters" }, h("caption", { class: "unseen" }, caption),
    h("thead", { class: "unseen" }, h("tr", {}, h("th", { scope: "col" }, first), h("th", { scope: "col" }, second))), body) };
}

/** What /api/state says, for who wants to know more than the troubles. */
export class ServerPanel {
  element;
  #version = h("dd");
  #started = h("time");
  #state = h("dd", { class: "path" });
  #hint = h("p", { class: "hint" }, "Nothing is kept when the server ends. Start it with --store FILE to keep rows.");
  #gauges = h("dl", { class: "facts" });
  #counters = table("Counters", "What", "Count");
  #requests = table("Requests and how they were answered", "Request and answer", "Count");

  constructor() {
    this.element = h("section", {}, h("h2", {}, "Server"),
      h("dl", { class: "facts" },
        h("div", {}, h("dt", {}, "Version"), this.#version),
        h("div", {}, h("dt", {}, "Started"), h("dd", {}, this.#started)),
        h("div", {}, h("dt", {}, "State in"), this.#state)),
      this.#hint, this.#gauges,
      h("details", {}, h("summary", {}, "All counters"), this.#counters.element),
      h("details", {}, h("summary", {}, "Requests"), this.#requests.element));
    this.element.hidden = true;
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
      ([name]) => h("div", {}, h("dt", { title: state.help[name] ?? false }, inWords(name)), h("dd")),
      (element, [, value]) => setText(element.lastElementChild, formatValue(value)));
    reconcile(this.#counters.body, Object.entries(state.counters), ([name]) => name, row, (element, [name, value]) => {
      setText(element.firstElementChild, state.help[name] ?? inWords(name));
      element.firstElementChild.title = name;
      setText(element.lastElementChild, formatValue(value));
    });
    reconcile(this.#requests.body, state.requests, (each) => `${each.code}/${each.status}`, row, (element, each) => {
      setText(element.firstElementChild, `${each.request}: ${each.text}${each.status ? ` (${each.status})` : ""}`);
      setText(element.lastElementChild, formatValue(each.count));
    });
  }
}
