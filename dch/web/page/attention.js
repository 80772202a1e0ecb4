// attention.js: what needs somebody's attention, where it cannot be overlooked.

import { writePlace } from "./address.js";
import { now, showTime } from "./clock.js";
import { Rises, troublesOf } from "./counters.js";
import { h, reconcile, setText } from "./dom.js";
import { formatAge } from "./times.js";
import { formatValue } from "./values.js";

const SILENT_SHOWN = 5;

/**
 * The list of troubles: the server's own health, what was lost or refused, sources that fell
 * silent. On other views than the overview one line of it.
 */
export class Attention {
  element;
  #rises = new Rises();
  #title = h("h2", { id: "attention-title", class: "unseen" }, "Needs attention");
  #list = h("ul", { class: "troubles" });
  #line = h("p", { class: "trouble-line" });

  constructor() {
    this.element = h("section", { class: "attention", "aria-labelledby": "attention-title", hidden: true },
      this.#title, this.#line, this.#list);
  }

  /**
   * @param {import("./link.js").Link} link
   * @param {import("./sources.js").Source[]} silent longest silent last
   * @param {boolean} isShort one line is enough
   * @returns {number} how many troubles there are
   */
  update(link, silent, isShort) {
    const counted = link.state ? troublesOf(link.state) : [];
    if (link.state) this.#rises.see(counted, now());
    const items = [...this.#serverTroubles(link), ...counted.map((trouble) => this.#counted(trouble)), ...silentTroubles(silent)];
    this.element.hidden = !items.length;
    this.#list.hidden = isShort;
    this.#line.hidden = !isShort;
    if (isShort) this.#showLine(counted, silent, items);
    else reconcile(this.#list, items, (item) => item.key, createTrouble, showTrouble);
    return items.length;
  }

  #serverTroubles(link) {
    const found = [];
    if (link.health) found.push({ key: "health", kind: "lost", text: `The server is not well: ${link.health}`, advice: "Look at its log: journalctl -u zordchd" });
    if (link.refusal) found.push({ key: "refusal", kind: "lost", text: `The server could not tell everything: ${link.refusal}`, advice: "It is asked again in a moment." });
    return found;
  }

  #counted({ key, kind, count, words, advice }) {
    return { key, kind, count: formatValue(count), text: words, advice, risen: this.#rises.risen(key) };
  }

  #showLine(counted, silent, items) {
    const lost = counted.filter((each) => each.kind === "lost").length;
    const refused = counted.length - lost;
    const other = items.length - counted.length - Math.min(silent.length, SILENT_SHOWN + 1);
    const parts = [
      other > 0 && "the server is not well", lost > 0 && `${lost} ${lost === 1 ? "kind" : "kinds"} of loss`,
      refused > 0 && `${refused} ${refused === 1 ? "kind" : "kinds"} of refusal`,
      silent.length > 0 && `${silent.length} ${silent.length === 1 ? "source" : "sources"} silent`,
    ].filter(Boolean);
    const text = `Needs attention: ${parts.join(", ")}`;
    if (this.#line.textContent !== text) this.#line.replaceChildren(h("a", { href: "#" }, text));
  }
}

function silentTroubles(silent) {
  const shown = silent.slice(0, SILENT_SHOWN).map((source) => ({
    key: source.key, kind: "silent", text: `${source.application} / ${source.group} / ${source.name} is silent`,
    href: writePlace(source && { application: source.application, group: source.group, source: source.name }),
    since: source.lastRow,
  }));
  if (silent.length > SILENT_SHOWN) {
    shown.push({ key: "more", kind: "silent", text: `${formatValue(silent.length - SILENT_SHOWN)} more are silent`, href: "#show=silent" });
  }
  return shown;
}

function createTrouble(item) {
  const words = item.href ? h("a", { href: item.href, class: "words" }) : h("span", { class: "words" });
  return h("li", { class: `trouble ${item.kind}`, "data-trouble": item.key },
    h("strong", { class: "count" }), " ", words, " ",
    h("span", { class: "when" }, h("time", {})),
    h("span", { class: "advice" }, item.advice ?? ""));
}

function showTrouble(element, item) {
  setText(element.querySelector(".count"), item.count ?? "");
  setText(element.querySelector(".words"), item.text);
  const time = element.querySelector("time");
  if (item.kind === "silent") showTime(time, item.since ?? null, item.since ? `for ${formatAge(item.since, now()).replace(" ago", "")}` : "");
  else showTime(time, item.risen ?? null, item.risen ? `rose ${formatAge(item.risen, now())}` : "");
  element.classList.toggle("rising", Boolean(item.risen) && now() - item.risen < 300e6);
}
