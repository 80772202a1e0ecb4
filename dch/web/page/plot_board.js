// plot_board.js: a source's plots, drawn no more often than is good for whoever looks on.

import { h } from "./dom.js";
import { loadDygraph, Plot } from "./plot.js";

const LEAST_PAUSE = 250; // ms between two rounds of drawing
const SHARE = 5; // a round may take a fifth of the time
const TICK = 1000; // ms: time goes on without rows, too

/** One plot a frame, only those in sight, all on the same window of time. */
export class PlotBoard {
  element = h("div", { class: "plots" });
  #plots;
  #look;
  #Dygraph = null;
  #inSight = new Set();
  #isDirty = true;
  #isDrawing = false;
  #isClosed = false;
  #timer = 0;
  #nextRound = 0;
  #tick;
  #sight;
  #recolour = () => this.changed();
  #colours = matchMedia("(prefers-color-scheme: dark)");

  /**
   * @param {Array} numbers attributes @param {function} zoom of Plot
   * @param {function} look what is to be drawn: { timeline, window, latest(attribute), absence }, asked before each round
   */
  constructor(numbers, zoom, look) {
    this.#look = look;
    this.#plots = numbers.map((each, i) => new Plot(each, i, zoom));
    this.element.append(...this.#plots.map((plot) => plot.element));
    this.#sight = new IntersectionObserver((entries) => {
      for (const { target, isIntersecting } of entries) {
        if (isIntersecting) this.#inSight.add(target);
        else this.#inSight.delete(target);
      }
      this.changed();
    }, { rootMargin: "100px" });
    this.#plots.forEach((plot) => this.#sight.observe(plot.element));
    this.#tick = setInterval(() => this.#load(), TICK);
    this.#colours.addEventListener("change", this.#recolour);
    this.#load();
  }

  /** Something to draw with, and something to draw; without a server it is tried again. */
  #load() {
    this.changed();
    if (this.#Dygraph) return;
    loadDygraph().then((Dygraph) => {
      this.#Dygraph = Dygraph;
      this.changed();
    }, () => {});
  }

  close() {
    this.#isClosed = true;
    clearTimeout(this.#timer);
    clearInterval(this.#tick);
    this.#sight.disconnect();
    this.#colours.removeEventListener("change", this.#recolour);
    this.#plots.forEach((plot) => plot.close());
  }

  /** There is something new: it is drawn soon. */
  changed() {
    this.#isDirty = true;
    if (this.#isDrawing || this.#timer || this.#isClosed) return;
    this.#timer = setTimeout(() => {
      this.#timer = 0;
      requestAnimationFrame(() => this.#round());
    }, Math.max(0, this.#nextRound - performance.now()));
  }

  async #round() {
    if (this.#isClosed || this.#isDrawing) return;
    this.#isDrawing = true;
    this.#isDirty = false;
    let spent = 0;
    const timed = (work) => {
      const begin = performance.now();
      const result = work();
      spent += performance.now() - begin;
      return result;
    };
    const { timeline, window: [from, until], latest, absence } = timed(this.#look);
    for (const plot of this.#plots) {
      plot.showLatest(latest(plot.attribute));
      if (!this.#Dygraph || !this.#inSight.has(plot.element)) continue;
      timed(() => plot.draw(this.#Dygraph, timeline, from, until, absence));
      await new Promise(requestAnimationFrame);
      if (this.#isClosed) return;
    }
    this.#isDrawing = false;
    this.#nextRound = performance.now() + Math.max(LEAST_PAUSE, SHARE * spent);
    if (this.#isDirty) this.changed();
  }
}
