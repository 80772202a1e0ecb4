// plot.js: one number of a source over time, as a curve of dygraphs.

import { now, showsUtc, showTime } from "./clock.js";
import { h, setAttribute, setText } from "./dom.js";
import { pointsToDraw } from "./thin.js";
import { least, most } from "./timeline.js";
import { formatTick, formatTime, isoTime } from "./times.js";
import { formatMean, formatTickValue, formatValue } from "./values.js";

const HEIGHT = 168;
const LEAST_ZOOM = 1e6; // microseconds
let loading = null;

/** Loads dygraphs once. */
export function loadDygraph() {
  loading ??= new Promise((resolve, reject) => {
    document.head.append(h("script", { src: "/dygraph.min.js", load: () => resolve(globalThis.Dygraph), error: () => {
      loading = null;
      reject(new Error("The plots could not be loaded."));
    } }));
  }).then((Dygraph) => {
    // Its legend would write style attributes, which the page's policy forbids; the page has its own.
    Dygraph.PLUGINS = [Dygraph.Plugins.Axes, Dygraph.Plugins.Grid];
    return Dygraph;
  });
  return loading;
}

const css = (name) => getComputedStyle(document.documentElement).getPropertyValue(name).trim();

export class Plot {
  element;
  points = []; // as drawn; null: a gap
  attribute;
  #column;
  #zoom;
  #graph = null;
  #window = [0, 1]; // microseconds
  #chosen = null; // index among the points
  #absence = "";
  #latest = h("output", { class: "latest" });
  #readout = h("p", { class: "readout" });
  #readoutTime = h("time");
  #readoutText = h("span");
  #surface;
  #canvas = h("div", { class: "canvas" });
  #selection = h("div", { class: "selection", hidden: true });
  #resizes = new ResizeObserver(() => this.#graph?.resize());

  /**
   * @param {Object} attribute @param {number} column among the timeline's numbers
   * @param {function} zoom (from, until) asks for another window; nulls: for the whole range
   */
  constructor(attribute, column, zoom) {
    this.attribute = attribute;
    this.#column = column;
    this.#zoom = zoom;
    this.#surface = h("div", { class: "surface", tabindex: "0", role: "slider", "aria-label": `${attribute.name} over time`,
      "aria-orientation": "horizontal", "aria-valuemin": "0", "aria-valuemax": "0", "aria-valuenow": "0", "aria-valuetext": "no row",
      keydown: (event) => this.#pressed(event), blur: () => this.#choose(null), dblclick: () => zoom(null, null),
      pointerdown: (event) => this.#drag(event) }, this.#canvas, this.#selection);
    this.#readout.append(this.#readoutTime, this.#readoutText);
    this.element = h("figure", { class: "plot", "data-attribute": attribute.name },
      h("figcaption", {}, h("h3", {}, attribute.name), h("span", { class: "help" }, attribute.help ?? ""), this.#latest),
      this.#surface, this.#readout);
    this.#resizes.observe(this.#surface);
  }

  close() {
    this.#resizes.disconnect();
    this.#graph?.destroy();
    this.#graph = null;
  }

  showLatest(value) {
    setText(this.#latest, formatValue(value));
  }

  /** @param {string} absence why there is nothing, where there is nothing */
  draw(Dygraph, timeline, from, until, absence) {
    this.#window = [from, until];
    this.#absence = absence;
    const width = Math.max(100, this.#surface.clientWidth - 60);
    const chosenTime = this.#chosen === null ? null : this.points[this.#chosen]?.time;
    this.points = pointsToDraw(timeline, this.#column, from, until, width);
    const file = this.points.map((point, i) => (point ? [point.time / 1000, [Number(point.low), point.mean, Number(point.high)]]
      : [this.points[i - 1].time / 1000 + 0.001, [null, null, null]]));
    if (!file.length) file.push([from / 1000, [null, null, null]]);
    if (!this.#graph) this.#create(Dygraph, file);
    else this.#graph.updateOptions({ file, ...this.#options() });
    if (chosenTime !== null) this.#choose(this.#nearest(chosenTime), false);
    else this.#showSummary();
  }

  #options() {
    const [from, until] = this.#window;
    const drawn = this.points.length;
    return { dateWindow: [from / 1000, until / 1000], labelsUTC: showsUtc(), drawPoints: drawn < 80,
      colors: [css("--curve")], gridLineColor: css("--grid"), axisLineColor: css("--grid") };
  }

  #create(Dygraph, file) {
    this.#graph = new Dygraph(this.#canvas, file, {
      labels: ["Time", "value"], customBars: true, height: HEIGHT, interactionModel: {}, showLabelsOnHighlight: false,
      fillAlpha: 0.22, strokeWidth: 1.4, pointSize: 1.8, highlightCircleSize: 4, yRangePad: 8, axisLabelFontSize: 12,
      highlightCallback: (_event, _x, _points, row) => this.#choose(row, false),
      unhighlightCallback: () => this.#choose(null, false),
      axes: {
        x: { ticker: Dygraph.dateTicker, pixelsPerLabel: 76, axisLabelWidth: 70,
          axisLabelFormatter: (x) => formatTick(Math.round(x * 1000), this.#tickStep(), showsUtc()) },
        y: { pixelsPerLabel: 34, axisLabelWidth: 54, axisLabelFormatter: formatTickValue },
      },
      ...this.#options(),
    });
  }

  /** About how far labels of the axis are apart. */
  #tickStep() {
    const [from, until] = this.#window;
    return (until - from) / Math.max(2, this.#surface.clientWidth / 76);
  }

  // What the reader points at.

  #nearest(time) {
    let best = null;
    this.points.forEach((point, i) => {
      if (point && (best === null || Math.abs(point.time - time) < Math.abs(this.points[best].time - time))) best = i;
    });
    return best;
  }

  #choose(index, isByKey = true) {
    const point = index === null ? null : this.points[index];
    this.#chosen = point ? index : null;
    if (!point) {
      if (isByKey) this.#graph?.clearSelection();
      this.#showSummary();
      return;
    }
    if (isByKey || document.activeElement === this.#surface) this.#graph?.setSelection(index);
    showTime(this.#readoutTime, point.time);
    setText(this.#readoutText, pointText(point));
    setAttribute(this.#surface, "aria-valuemax", this.points.length - 1);
    setAttribute(this.#surface, "aria-valuenow", index);
    setAttribute(this.#surface, "aria-valuetext", `${formatTime(point.time, now(), showsUtc())}: ${pointText(point)}`);
  }

  #showSummary() {
    const shown = this.points.filter((point) => point && point.time >= this.#window[0] && point.time <= this.#window[1]);
    showTime(this.#readoutTime, null);
    if (!shown.length) {
      setText(this.#readoutText, this.#absence);
      return;
    }
    const low = shown.map((point) => point.low).reduce(least);
    const high = shown.map((point) => point.high).reduce(most);
    const text = `least ${formatMean(low)} · most ${formatMean(high)}`;
    setText(this.#readoutText, text);
    setAttribute(this.#surface, "aria-valuetext", text);
  }

  #pressed(event) {
    if (event.ctrlKey || event.metaKey || event.altKey) return;
    const [from, until] = this.#window;
    const zoomed = (factor) => this.#zoom(...zoomWindow(from, until, factor, this.points[this.#chosen]?.time));
    const moved = (part) => this.#zoom(...moveWindow(from, until, part));
    const actions = {
      ArrowLeft: () => this.#step(-1), ArrowRight: () => this.#step(1),
      Home: () => this.#step(-Infinity), End: () => this.#step(Infinity),
      "+": () => zoomed(0.5), "=": () => zoomed(0.5), "-": () => zoomed(2), PageUp: () => moved(-0.5), PageDown: () => moved(0.5),
      Escape: () => this.#zoom(null, null),
    };
    const action = actions[event.key];
    if (!action) return;
    event.preventDefault();
    action();
  }

  #step(by) {
    const last = this.points.length - 1;
    if (last < 0) return;
    const direction = by < 0 ? -1 : 1;
    let index = by === -Infinity ? 0 : by === Infinity ? last : (this.#chosen ?? (by < 0 ? last + 1 : -1)) + by;
    index = Math.max(0, Math.min(last, index));
    if (!this.points[index]) index += Math.abs(by) === Infinity ? -direction : direction;
    this.#choose(index);
  }

  // Dragging across the plot zooms.

  #drag(down) {
    if (down.button !== 0 || !this.#graph) return;
    const box = this.#canvas.getBoundingClientRect();
    const begin = down.clientX - box.left;
    const move = (event) => {
      const end = event.clientX - box.left;
      this.#selection.hidden = Math.abs(end - begin) < 6;
      this.#selection.style.left = `${Math.min(begin, end)}px`;
      this.#selection.style.width = `${Math.abs(end - begin)}px`;
    };
    const stop = new AbortController();
    const up = (event) => {
      stop.abort();
      this.#selection.hidden = true;
      const end = event.clientX - box.left;
      if (event.type !== "pointerup" || Math.abs(end - begin) < 6) return;
      const [from, until] = [begin, end].sort((a, b) => a - b).map((x) => Math.round(this.#graph.toDataXCoord(x) * 1000));
      if (until - from >= LEAST_ZOOM) this.#zoom(from, until);
    };
    for (const [name, act] of [["pointermove", move], ["pointerup", up], ["pointercancel", up]]) addEventListener(name, act, { signal: stop.signal });
  }
}

/** @returns {string} the value, or what the many values were like */
function pointText(point) {
  if (point.count === 1) return formatValue(point.low);
  const range = point.low === point.high ? formatMean(point.low) : `${formatMean(point.low)} to ${formatMean(point.high)}, mean ${formatMean(point.mean)}`;
  return point.count ? `${range} (${formatValue(point.count)} rows)` : range;
}

/** @returns {[number, number]} a window moved by a part of its length */
export const moveWindow = (from, until, part) => [from, until].map((time) => Math.round(time + part * (until - from)));

/** @returns {[number, number]} a window `factor` times as long; its middle, or the time given, stays in its place */
export function zoomWindow(from, until, factor, middle = (from + until) / 2) {
  const length = Math.max(LEAST_ZOOM, (until - from) * factor);
  const share = (middle - from) / (until - from);
  const begin = Math.round(middle - share * length);
  return [begin, Math.round(begin + length)];
}
