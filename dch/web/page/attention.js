// attention.js: what needs somebody's attention, where it cannot be overlooked.

import { writePlace } from "./address.js";
import { now, showTime } from "./clock.js";
import { Rises, troublesOf } from "./counters.js";
import { h, reconcile, setText } from "./dom.js";
import { countStates } from "./sources.js";
import { formatAge, formatDuration } from "./times.js";
import { countOf, formatValue } from "./values.js";

const SILENT_SHOWN = 5;
const RISING = 300e6; // microseconds for which a count that rose is marked

/**
 * The list of troubles: the server's own health, sources that fell silent, what was lost or
 * refused. On other views than the overview one line of it.
 */
export class Attention {
  element;
  #rises = new Rises();
  #list = h("ul", { class: "troubles" });
  #line = h("p", { class: "trouble-line" });

  constructor() {
    this.element = h("section", { class: "attention", "aria-labelledby": "attention-title", hidden: true },
      h("h2", { id: "attention-title", class: "unseen" }, "Needs attention"), this.#line, this.#list);
  }

  /** @returns {number} how many troubles there are; shows one line of them where that is enough */
  update(link, groups, isShort) {
    const counted = link.state ? troublesOf(link.state) : [];
    if (link.state) this.#rises.see(counted, now());
    const { server, rest } = this.#sorted(link, counted.map((each) => ({ ...each, risen: this.#rises.risen(each.key) })));
    const items = [...server, ...silentTroubles(groups), ...rest];
    this.element.hidden = !items.length;
    this.#list.hidden = isShort;
    this.#line.hidden = !isShort;
    if (isShort) this.#showLine(items, countStates(groups).silent);
    else reconcile(this.#list, items, (item) => item.key, createTrouble, showTrouble);
    return items.length;
  }

  /** What is wrong with the server now, and the rest. What comes of one cause stands under it. */
  #sorted(link, counted) {
    const server = [];
    const isStoreAway = link.health.includes("state file");
    const ofStore = counted.filter((each) => each.isOfStore);
    const parts = isStoreAway || ofStore.length > 1 ? ofStore : [];
    const rest = counted.filter((each) => !parts.includes(each));
    if (link.health) {
      server.push({ key: "health", kind: "server", words: `The server is not well: ${link.health}`,
        advice: "Look at its log: journalctl -u zordchd", parts: isStoreAway ? parts : [] });
    }
    if (link.refusal) {
      server.push({ key: "refusal", kind: "server", words: `The server could not tell everything: ${link.refusal}`,
        advice: "It is asked again in a moment." });
    }
    if (parts.length && !isStoreAway) {
      rest.unshift({ key: "store", kind: "lost", words: "The state file could not be written for a time", parts,
        advice: "Look at the disk and at the log.", risen: Math.max(...parts.map((each) => each.risen)) || null });
    }
    return { server, rest };
  }

  #showLine(items, silent) {
    const number = (kind) => items.filter((item) => item.kind === kind).length;
    const [lost, refused] = [number("lost"), number("refused")];
    const text = `Needs attention: ${[
      number("server") && "the server is not well", silent && `${countOf(silent, "source")} silent`,
      lost && `${countOf(lost, "kind")} of loss`, refused && `${countOf(refused, "kind")} of refusal`,
    ].filter(Boolean).join(", ")}`;
    if (this.#line.textContent !== text) this.#line.replaceChildren(h("a", { href: "#" }, text));
  }
}

/** A line for each silent source, or for a group whose sources are all silent. */
function silentTroubles(groups) {
  const troubles = [];
  for (const { key, application: { name: application }, name: group, sources } of groups) {
    const silent = sources.filter((source) => source.state === "silent");
    if (silent.length > 1 && silent.length === sources.filter((source) => source.online).length) {
      troubles.push({ key, kind: "silent", sources: silent.length, href: writePlace({ application, group }),
        words: `${application} / ${group}: ${silent.length === 2 ? "both" : `all ${formatValue(silent.length)}`} sources are silent`,
        since: silent.reduce((last, source) => Math.max(last, source.lastRow), 0) });
    } else {
      troubles.push(...silent.map((source) => ({ key: source.key, kind: "silent", sources: 1,
        href: writePlace({ application, group, source: source.name }),
        words: `${application} / ${group} / ${source.name} is silent`, since: source.lastRow })));
    }
  }
  const more = troubles.splice(SILENT_SHOWN).reduce((sum, each) => sum + each.sources, 0);
  if (more) troubles.push({ key: "more", kind: "silent", words: `${formatValue(more)} more ${more === 1 ? "is" : "are"} silent`, href: "#show=silent" });
  return troubles;
}

function createTrouble(item) {
  return h("li", { class: `trouble ${item.kind}`, "data-trouble": item.key },
    h("strong", { class: "count" }), " ", h(item.href ? "a" : "span", { href: item.href, class: "words" }), " ",
    h("span", { class: "when" }, h("time")),
    h("span", { class: "advice" }, item.advice), h("ul", { class: "parts" }));
}

function showTrouble(element, { count, words, since = null, risen = null, parts = [] }) {
  setText(element.querySelector(".count"), count ? formatValue(count) : "");
  setText(element.querySelector(".words"), words);
  showTime(element.querySelector("time"), since ?? risen, since ? `for ${formatDuration(now() - since)}` : `rose ${formatAge(risen, now())}`);
  element.classList.toggle("rising", risen !== null && now() - risen < RISING);
  reconcile(element.querySelector(".parts"), parts, (part) => part.key, () => h("li"),
    (line, part) => setText(line, `${formatValue(part.count)} ${part.words}`));
}
