// source_table.js: the sources of a group as a table: state, newest values, and how old they are.

import { writePlace } from "./address.js";
import { now, showTime } from "./clock.js";
import { h, reconcile, setAttribute, setText } from "./dom.js";
import { noSource } from "./empty.js";
import { STATE_WORDS } from "./sources.js";
import { formatAge } from "./times.js";
import { countOf, formatValue, isText, valueNamed } from "./values.js";

const ROWS_MORE = 100;
const COLUMNS_AT_A_GLANCE = 8;

/** A group's table with its heading. */
export class SourceTable {
  element;
  #limit;
  #attributes = "";
  #head = h("tr");
  #body = h("tbody");
  #counts = h("span", { class: "counts" });
  #more = h("button", { type: "button", class: "quiet more", click: () => this.#showMore() });
  #empty;
  #scroller;
  #changed;
  #columns = [];

  /**
   * @param {Group} group
   * @param {{limit: number, isOnly: boolean}} options sources shown at first; whether the view has
   * a heading of its own and room for all attributes
   * @param {() => void} changed more are to be shown
   */
  constructor(group, { limit, isOnly }, changed) {
    this.#limit = limit;
    this.#changed = changed;
    const { application: { name: application }, name } = group;
    const names = `${application} / ${name}`;
    const table = h("table", { class: "sources" }, h("caption", { class: "unseen" }, `Sources of ${names}`),
      h("thead", {}, this.#head), this.#body);
    this.#scroller = h("div", { class: "scroller", role: "region", tabindex: "0", "aria-label": `Sources of ${names}` }, table);
    this.#empty = noSource(application, name);
    this.isOnly = isOnly;
    this.element = h("section", { class: "group", "data-group": group.key },
      isOnly ? null : h("h3", {},
        h("a", { href: writePlace({ application }) }, application), " / ", h("a", { href: writePlace({ application, group: name }) }, name)),
      this.#counts, this.#scroller, this.#empty, this.#more);
  }

  /** @param {Group} group @param {string} range kept in the links */
  update(group, range) {
    this.#showHead(group);
    const { sources } = group;
    const isEmpty = !sources.length;
    this.#scroller.hidden = isEmpty;
    this.#empty.hidden = !isEmpty;
    setText(this.#counts, countsText(sources));
    reconcile(this.#body, sources.slice(0, this.#limit), (source) => source.key,
      (source) => createRow(source, range), (row, source) => this.#showRow(row, source));
    const hidden = sources.length - this.#limit;
    this.#more.hidden = hidden <= 0;
    setText(this.#more, `Show ${formatValue(Math.min(hidden, ROWS_MORE))} more of ${formatValue(sources.length)}`);
  }

  #showMore() {
    const focused = this.#limit;
    this.#limit += ROWS_MORE;
    this.#changed();
    this.#body.children[focused]?.querySelector("a")?.focus();
  }

  #showHead(group) {
    const names = JSON.stringify(group.attributes);
    if (names === this.#attributes) return;
    this.#attributes = names;
    this.#columns = this.isOnly ? group.attributes : group.attributes.slice(0, COLUMNS_AT_A_GLANCE);
    const hidden = group.attributes.length - this.#columns.length;
    this.#head.replaceChildren(
      h("th", { scope: "col" }, "Source"), h("th", { scope: "col", class: "age" }, "Last row"),
      ...this.#columns.map((each) => h("th", { scope: "col", class: isText(each) ? "text" : "number", title: each.help || false }, each.name)),
      ...(hidden > 0 ? [h("th", { scope: "col", class: "text" }, `and ${hidden} more`)] : []));
    this.#body.querySelectorAll("tr").forEach((row) => { row.cells_ = null; });
  }

  #showRow(row, source) {
    setAttribute(row, "class", source.state);
    const [state, time] = row.parts;
    setText(state, STATE_WORDS[source.state]);
    showTime(time, source.lastRow, source.lastRow === null ? "" : formatAge(source.lastRow, now()));
    row.cells_ ??= this.#createCells(row);
    row.cells_.forEach((cell, i) => {
      setText(cell, formatValue(valueNamed(source.values, this.#columns[i].name)));
      if (cell.classList.contains("text")) cell.title = cell.textContent;
    });
  }

  #createCells(row) {
    while (row.children.length > 2) row.lastElementChild.remove();
    const cells = this.#columns.map((each) => h("td", { class: isText(each) ? "text" : "number" }));
    row.append(...cells);
    return cells;
  }
}

function createRow(source, range) {
  const state = h("span", { class: "state" });
  const time = h("time", {});
  const row = h("tr", { "data-source": source.name },
    h("th", { scope: "row" },
      h("a", { href: writePlace({ application: source.application, group: source.group, source: source.name, range }) }, source.name),
      state),
    h("td", { class: "age" }, time));
  row.parts = [state, time];
  return row;
}

/** How many, and how many in trouble. */
function countsText(sources) {
  if (!sources.length) return "";
  const parts = [countOf(sources.length, "source")];
  for (const state of ["silent", "waiting", "offline", "unregistered"]) {
    const number = sources.filter((source) => source.state === state).length;
    if (number) parts.push(`${formatValue(number)} ${STATE_WORDS[state]}`);
  }
  return parts.join(" · ");
}
