// thin.js: from a timeline's rows to the points that a plot can show.

import { least, lowerBound, most } from "./timeline.js";
import { gapLimit } from "./pace.js";

/** What of a column lies between two times, and a neighbour on each side so that lines go on. */
function* samples(timeline, column, from, until) {
  const { times, columns } = timeline.buckets;
  const { low, high, mean } = columns[column];
  const rows = timeline.times;
  for (let i = Math.max(0, lowerBound(times, from) - 1); i < times.length; ++i) {
    if (mean[i] !== null) {
      yield { time: times[i], low: low[i], high: high[i], mean: Number(mean[i]), count: 0 };
    }
    if (times[i] > until) return;
  }
  const values = timeline.values[column];
  for (let i = Math.max(0, lowerBound(rows, from) - 1); i < rows.length; ++i) {
    const value = values[i];
    if (value !== null) yield { time: rows[i], low: value, high: value, mean: Number(value), count: 1 };
    if (rows[i] > until) return;
  }
}

/**
 * As many points as a plot of that width in pixels can show: each row, or for each pixel the least
 * and the largest (exact), the mean and the count of what falls on it (0: thinned by the store) and
 * the time of its first row. Where no rows came for much longer than usual stands a null.
 */
export function pointsToDraw(timeline, column, from, until, width) {
  const rows = lowerBound(timeline.times, until) - lowerBound(timeline.times, from);
  const buckets = lowerBound(timeline.buckets.times, until) - lowerBound(timeline.buckets.times, from);
  const step = rows + buckets > width ? (until - from) / width : 0;
  const gap = gapLimit(timeline.interval);
  const bucketGap = Math.max(gap === Infinity ? 0 : gap, 2.1 * timeline.bucketWidth);
  const points = [];
  let open = null; // the last point, while more may fall on it
  let last = null;
  let end = -Infinity; // of the pixel that the open point stands for
  for (const sample of samples(timeline, column, from, until)) {
    if (last && sample.time - last.time > (last.count && sample.count ? gap : bucketGap)) {
      points.push(null);
      end = -Infinity;
    }
    if (step && sample.time < end) {
      join(open, sample);
    } else {
      open = sample;
      points.push(open);
      end = (Math.floor(sample.time / step) + 1) * step; // the same while the window moves on
    }
    last = { time: sample.time, count: sample.count };
  }
  return points;
}

function join(point, sample) {
  const weight = point.count || 1;
  const more = sample.count || 1;
  point.mean = (point.mean * weight + sample.mean * more) / (weight + more);
  point.low = least(point.low, sample.low);
  point.high = most(point.high, sample.high);
  point.count = point.count && sample.count ? point.count + sample.count : 0;
}
