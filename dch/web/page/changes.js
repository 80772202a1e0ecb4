// changes.js: changes of status as they come.

import { now, showsUtc, showTime } from "./clock.js";
import { h, reconcile, setText } from "./dom.js";
import { writePlace } from "./address.js";
import { formatTime, parseTime } from "./times.js";

const KEPT = 100;
const SHOWN = 20;
const WORDS = { registered: "registered", unregistered: "unregistered", online: "on line", offline: "off line" };

/** The list of what changed since the page was opened, the newest first. */
export class Changes {
  element;
  #events = [];
  #since = now();
  #list = h("ol", { class: "changes", "aria-labelledby": "changes-title" });
  #empty = h("p", { class: "hint" });

  constructor() {
    this.element = h("section", {}, h("h2", { id: "changes-title" }, "Changes of status"), this.#empty, this.#list);
    this.update();
  }

  /** An event of the live stream. */
  add(event) {
    this.#events.unshift({ ...event, time: parseTime(event.time) });
    this.#events.length = Math.min(this.#events.length, KEPT);
  }

  update() {
    this.#empty.hidden = this.#events.length > 0;
    setText(this.#empty, `None since this page was opened at ${formatTime(this.#since, now(), showsUtc())}. They appear here as they happen.`);
    this.#list.hidden = !this.#events.length;
    reconcile(this.#list, this.#events.slice(0, SHOWN), (event) => event, createChange,
      (element, event) => showTime(element.firstElementChild, event.time));
  }
}

function createChange(event) {
  const { application, group, source, change } = event;
  const names = [application, group, source].filter(Boolean);
  return h("li", { "data-change": change },
    h("time", {}),
    h("span", { class: `change ${change}` }, WORDS[change] ?? change),
    h("a", { href: writePlace({ application, group, source }) }, names.join(" / ")));
}
