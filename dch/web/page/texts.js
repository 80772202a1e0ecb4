// texts.js: the text attributes of a source's newest rows, as a table.

import { showTime } from "./clock.js";
import { h, reconcile, setText } from "./dom.js";
import { formatValue } from "./values.js";

export class Texts {
  element;
  #body = h("tbody");
  #empty = h("p", { class: "hint" });
  #scroller;

  /** @param {Array} attributes those that are text */
  constructor(attributes) {
    this.#scroller = h("div", { class: "scroller tall", role: "region", tabindex: "0", "aria-label": "Texts of the newest rows" },
      h("table", { class: "texts" }, h("caption", { class: "unseen" }, "Texts of the newest rows, the newest first"),
        h("thead", {}, h("tr", {}, h("th", { scope: "col" }, "Time"),
          ...attributes.map((each) => h("th", { scope: "col", class: "text", title: each.help || false }, each.name)))), this.#body));
    this.element = h("section", { class: "text-section", hidden: !attributes.length }, h("h2", {}, "Texts"), this.#empty, this.#scroller);
  }

  /** @param {Array<{time: number, texts: Array}>} rows the newest first @param {string} absence why there are none */
  update(rows, absence) {
    this.#empty.hidden = rows.length > 0;
    setText(this.#empty, absence);
    this.#scroller.hidden = !rows.length;
    reconcile(this.#body, rows, (row) => row,
      (row) => h("tr", {}, h("th", { scope: "row" }, h("time", {})), ...row.texts.map(() => h("td", { class: "text" }))),
      (element, row) => {
        showTime(element.querySelector("time"), row.time);
        row.texts.forEach((text, i) => setText(element.children[i + 1], formatValue(text)));
      });
  }
}
