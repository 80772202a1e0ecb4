// list_view.js: the overview, an application or a group: which sources there are and how they are.

import { writePlace } from "./address.js";
import { now } from "./clock.js";
import { h, reconcile, setAttribute, setText } from "./dom.js";
import { noApplication, notFound, nothingFound } from "./empty.js";
import { chosenGroups, countStates } from "./sources.js";
import { SourceTable } from "./source_table.js";
import { formatDuration, parseTime } from "./times.js";
import { countOf, formatValue } from "./values.js";

const GROUPS_MORE = 20;

/** What the address names of applications, groups and sources. */
export class ListView {
  element = h("div", { class: "list-view" });
  #place;
  #context;
  #groupsShown = GROUPS_MORE;
  #title = h("h1", { tabindex: "-1" });
  #summary = h("p", { class: "summary" });
  #chips = h("nav", { class: "chips", "aria-label": "Which sources" });
  #heading = h("h2", { class: "unseen" }, "Sources");
  #list = h("div", { class: "groups" });
  #more = h("button", { type: "button", class: "quiet more", click: () => { this.#groupsShown += GROUPS_MORE; this.update(); } });
  #empty = h("div");
  #emptyKind = "";

  /** @param {Place} place @param {Object} context of main.js */
  constructor(place, context) {
    this.#place = place;
    this.#context = context;
    this.element.append(h("div", { class: "title" }, this.#title, this.#summary), context.attention.element,
      this.#chips, this.#heading, this.#list, this.#more, this.#empty);
    this.update();
  }

  /** Another search or choice. */
  move(place) {
    this.#place = place;
    this.update();
  }

  /** Other rows or states came. */
  update() {
    const { link, groups } = this.#context;
    if (!link.applications) {
      setText(this.#title, link.lostSince === null ? "Asking the server…" : "The server cannot be reached");
      return;
    }
    const inPlace = chosenGroups(groups, { ...this.#place, find: "", show: "" });
    const chosen = this.#place.find || this.#place.show ? chosenGroups(groups, this.#place) : inPlace;
    const counts = countStates(inPlace);
    this.#showTitle(counts, inPlace);
    this.#showChips(counts);
    this.#showGroups(chosen);
    this.#showEmpty(inPlace, chosen);
  }

  #showTitle(counts, inPlace) {
    const { link, troubles } = this.#context;
    const { application, group } = this.#place;
    if (application !== null) {
      setText(this.#title, group === null ? application : `${application} / ${group}`);
      setText(this.#summary, describe(inPlace, group));
      return;
    }
    setText(this.#title, headline(link, counts, troubles));
    const isUneasy = link.lostSince !== null || link.health || troubles;
    setAttribute(this.#title, "class", isUneasy ? "uneasy" : counts.online + counts.waiting ? "well" : "idle");
    setText(this.#summary, link.state ? serverLine(link.state, counts) : "");
  }

  #showChips(counts) {
    const { application, group, find, show } = this.#place;
    const chips = [["", "All", counts.all], ["silent", "Silent", counts.silent], ["offline", "Off line", counts.offline]];
    this.#chips.hidden = !counts.all;
    reconcile(this.#chips, chips, ([name]) => name, () => h("a", {}), (chip, [name, words, count]) => {
      setText(chip, `${words} ${formatValue(count)}`);
      setAttribute(chip, "href", writePlace({ application, group, find, show: name }));
      setAttribute(chip, "aria-current", show === name ? "true" : null);
    });
  }

  #showGroups(chosen) {
    const { application, group, range } = this.#place;
    const isOnly = group !== null;
    const limit = isOnly ? 100 : chosen.length > 8 ? 5 : 10;
    reconcile(this.#list, chosen.slice(0, this.#groupsShown), (each) => each.key, (each) => {
      const table = new SourceTable(each, { limit, isOnly }, () => this.update());
      table.element.table = table;
      return table.element;
    }, (element, each) => element.table.update(each, range));
    const hidden = chosen.length - this.#groupsShown;
    this.#more.hidden = hidden <= 0;
    setText(this.#more, `Show ${Math.min(hidden, GROUPS_MORE)} more of ${formatValue(chosen.length)} groups`);
  }

  #showEmpty(inPlace, chosen) {
    const { application, group, find, show } = this.#place;
    let kind = "";
    if (!inPlace.length) kind = application === null ? "none" : this.#context.kept === null ? "" : "unknown";
    else if (!chosen.length) kind = `nothing ${find} ${show}`;
    if (kind === this.#emptyKind) return;
    this.#emptyKind = kind;
    this.#empty.replaceChildren(...(kind === "none" ? [noApplication()]
      : kind === "unknown" ? [notFound([application, group].filter((name) => name !== null))]
        : kind ? [nothingFound(find)] : []));
  }
}

/** The answer to the first question of whoever opens the page. */
function headline(link, counts, troubles) {
  if (link.lostSince !== null) return "The server cannot be reached";
  if (link.health) return "The server is not well";
  if (counts.silent) return `${formatValue(counts.silent)} of ${countOf(counts.online + counts.waiting + counts.silent, "source")} on line ${counts.silent === 1 ? "is" : "are"} silent`;
  if (troubles) return `${counts.all ? "All sources are heard" : "The server is up"}, but something was lost or refused`;
  if (!counts.all) return "The server is up";
  const online = counts.online + counts.waiting;
  if (!online) return "The server is up, no source is on line";
  return online === 1 ? "The one source on line is heard" : `All ${formatValue(online)} sources on line are heard`;
}

function serverLine(state, counts) {
  const started = parseTime(state.started);
  return [`zordchd ${state.version}`, started === null ? "" : `up ${formatDuration(now() - started)}`,
    state.state === "memory" ? "state in memory" : `state in ${state.state}`,
    `${formatValue(counts.online + counts.waiting + counts.silent)} on line, ${formatValue(counts.offline)} off line`]
    .filter(Boolean).join(" · ");
}

function describe(groups, group) {
  if (!groups.length) return "";
  const { key, type, help } = groups[0].application;
  if (group === null) return [help, `key ${key}`, `type ${type}`].filter(Boolean).join(" · ");
  return [help, countOf(groups[0].attributes.length, "attribute")].filter(Boolean).join(" · ");
}
