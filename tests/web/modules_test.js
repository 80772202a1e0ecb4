// modules_test.js: the page's modules that need no page. Each test ends in a line of the document;
// the title says when all are done.

import { apiAddress, readPlace, writePlace } from "/address.js";
import { troublesOf, Rises } from "/counters.js";
import { parseExactly } from "/json.js";
import { Merge } from "/merge.js";
import { gapLimit, median, Paces, silenceLimit, UNKNOWN_LIMIT, usualInterval } from "/pace.js";
import { zoomWindow } from "/plot.js";
import { chosenGroups, countStates, groupsOf } from "/sources.js";
import { pointsToDraw } from "/thin.js";
import { ROWS_KEPT, Timeline } from "/timeline.js";
import { formatAge, formatDuration, formatTick, formatTime, isoTime, parseTime, zoneName } from "/times.js";
import { formatMean, formatTickValue, formatValue, isText, valueNamed } from "/values.js";

const text = (value) => JSON.stringify(value, (_key, each) => (typeof each === "bigint" ? `${each}n` : each));

function equal(found, wanted) {
  if (text(found) !== text(wanted)) throw new Error(`found ${text(found)}, wanted ${text(wanted)}`);
}

const row = (time, number, texts = []) => ({ time, numbers: [number], texts });
const rows = (count, begin = 0, step = 1e6) => Array.from({ length: count }, (_each, i) => row(begin + i * step, i));

const tests = {
  "whole numbers are exact to 64 bits"() {
    equal(parseExactly('{"a":9007199254740993,"b":-9223372036854775808,"c":18446744073709551615,"d":17,"e":1.5}'),
      { a: 9007199254740993n, b: -9223372036854775808n, c: 18446744073709551615n, d: 17, e: 1.5 });
  },
  "digits in texts and exponents are left as they are"() {
    equal(parseExactly('["12345678901234567890", 1e30, 12345678901234567890.5]'), ["12345678901234567890", 1e30, 12345678901234567890.5]);
  },
  "a name like __proto__ is only a name"() {
    const values = parseExactly('{"__proto__": 5}');
    equal(valueNamed(values, "__proto__"), 5);
    equal(valueNamed(values, "constructor"), null);
  },
  "times are read and written to the microsecond"() {
    equal(parseTime("2026-11-22T21:00:00.123456Z"), 1795381200123456);
    equal(parseTime("2026-11-22T21:00:00.5Z"), 1795381200500000);
    equal(parseTime("2026-11-22T21:00:00Z"), 1795381200000000);
    equal(parseTime("yesterday"), null);
    equal(parseTime(null), null);
    equal(isoTime(1795381200000007), "2026-11-22T21:00:00.000007Z");
  },
  "times read in UTC and in the reader's zone"() { // Europe/Berlin
    const time = 1795381200000000;
    equal(formatTime(time, time, true), "21:00:00");
    equal(formatTime(time, time, false), "22:00:00");
    equal(formatTime(time, time + 86400e6, true), "2026-11-22 21:00:00");
    equal(zoneName(time), "UTC+01:00");
  },
  "labels of the time axis are as short as may be"() {
    const time = 1795381205250000;
    equal([86400e6, 3600e6, 5e6, 1e5].map((step) => formatTick(time, step, true)), ["22 Nov", "21:00", "21:00:05", "00:05.250"]);
  },
  "ages and durations"() {
    equal([0, 1e6, 59e6, 60e6, 3600e6, 7800e6, 86400e6, 97200e6].map(formatDuration), ["0 s", "1 s", "59 s", "1 min", "1 h", "2 h 10 min", "1 d", "1 d 3 h"]);
    equal(formatAge(100e6, 100e6), "now");
    equal(formatAge(100e6, 90e6), "now");
    equal(formatAge(100e6, 104e6), "4 s ago");
  },
  "values read whole"() {
    equal([17, -3, 1234, 12345, 18446744073709551615n, -9223372036854775808n, 17.25, null, "0x00ff", "<b>"].map(formatValue),
      ["17", "−3", "1234", "12\u2009345", "18\u2009446\u2009744\u2009073\u2009709\u2009551\u2009615", "−9\u2009223\u2009372\u2009036\u2009854\u2009775\u2009808", "17.25", "–", "0x00ff", "<b>"]);
    equal([17, 17.123456, 123456.7].map(formatMean), ["17", "17.12", "123\u2009457"]);
    equal(["D", "R", "T", "G", "L"].map((letter) => isText({ letter })), [true, true, true, false, false]);
  },
  "labels of the value axis are short"() {
    equal([0, 15000, 8e9, 1500000, 10000, -10250, 500, 0.1 + 0.2, -2e6].map(formatTickValue),
      ["0", "15k", "8G", "1.5M", "10k", "−10.25k", "500", "0.3", "−2M"]);
  },
  "the address keeps a place, whatever the names are"() {
    const place = { application: "A&B=#", group: "g/<b>", source: "ü ?", range: "7d", from: 5, until: 9, find: "x y", show: "silent" };
    const read = readPlace(writePlace(place));
    equal(Object.keys(place).map((name) => read[name]), Object.values(place));
  },
  "an address that makes no sense is the overview"() {
    equal(readPlace("#source=web1&range=2y&from=9&until=5&show=x"), { application: null, group: null, source: null, from: null, until: null, range: "", find: "", show: "" });
    equal(writePlace({ range: "" }), "#");
  },
  "parameters of a question are escaped"() {
    equal(apiAddress("/api/live", { application: "A&B", group: "g+1", status: true, source: null }), "/api/live?application=A%26B&group=g%2B1&status");
  },
  "rows that came two ways count once, equal ones as often as they were there"() {
    const merge = new Merge();
    equal(merge.live([row(1, 0), row(2, 0), row(2, 0)]).length, 3);
    equal(merge.kept([row(1, 0), row(2, 0), row(2, 0), row(2, 0), row(3, 0)]), [row(2, 0), row(3, 0)]);
    equal(merge.kept([row(2, 0), row(2, 0), row(2, 0), row(3, 0)]), []);
    equal(merge.live([row(2, 0), row(3, 0), row(3, 0)]), [row(3, 0)]);
  },
  "a pace is the usual interval, and silence and gaps are much longer"() {
    equal(median([]), null);
    equal(median([3, 1, 2]), 2);
    equal(usualInterval([0, 1e6, 2e6, 3e6, 60e6]), 1e6);
    equal(silenceLimit(null), UNKNOWN_LIMIT);
    equal(silenceLimit(60e6), 300e6);
    equal(gapLimit(60e6), 300e6);
    equal(gapLimit(1000), 2.5e6);
  },
  "paces are learned from what is seen and from the store"() {
    const paces = new Paces();
    equal(paces.isUnknown("a"), true);
    for (const time of [0, 60e6, 120e6]) paces.see("a", time);
    equal(paces.isUnknown("a"), false);
    equal(paces.limit("a"), 300e6);
    paces.learn("b", 3600e6);
    equal(paces.limit("b"), 5 * 3600e6);
    paces.learn("c", null);
    equal([paces.isUnknown("c"), paces.limit("c")], [false, UNKNOWN_LIMIT]);
  },
  "sources are sorted by urgency and found by every word"() {
    const source = (name, online, last) => ({ name, handle: 1, online, last_row: last, values: {} });
    const applications = [{ name: "A", groups: [{ name: "g", attributes: [{ name: "load1", letter: "G" }], sources: [
      source("web10", true, "2026-11-22T20:59:59Z"), source("web9", true, "2026-11-22T20:59:59Z"), source("gone", false, "2026-11-22T20:00:00Z"),
      source("quiet", true, "2026-11-22T20:00:00Z"), source("new", true, null)] }] },
      { name: "0", groups: [{ name: "none", attributes: [], sources: [] }] }];
    const groups = groupsOf(applications, new Paces(), parseTime("2026-11-22T21:00:00Z"));
    equal(groups.map((group) => group.name), ["g", "none"]);
    equal(groups[0].sources.map((each) => [each.name, each.state]),
      [["quiet", "silent"], ["new", "waiting"], ["web9", "online"], ["web10", "online"], ["gone", "offline"]]);
    equal(countStates(groups), { all: 5, silent: 1, waiting: 1, online: 2, offline: 1, unregistered: 0 });
    const found = (find, show = "") => chosenGroups(groups, { application: null, group: null, find, show }).map((group) => group.sources.map((each) => each.name));
    equal(found("WEB"), [["web9", "web10"]]);
    equal(found("load1 9"), [["web9"]]);
    equal(found("nothing"), []);
    equal(found("", "offline"), [["gone"]]);
    equal(found("none"), [[]]);
  },
  "rows stay in order of time, and as many as came"() {
    const timeline = new Timeline(1);
    timeline.add([row(5, 5), row(1, 1), row(3, 3)]);
    timeline.add([row(2, 2)]);
    equal([timeline.times, timeline.values[0], timeline.lastTime], [[1, 2, 3, 5], [1, 2, 3, 5], 2]);
  },
  "a timeline is bounded: its older half is thinned, extremes stay"() {
    const timeline = new Timeline(1);
    const many = rows(ROWS_KEPT, 0, 1000);
    many[10].numbers[0] = 1e9;
    timeline.add(many);
    equal(timeline.buckets.times.length, 0);
    timeline.add([row(ROWS_KEPT * 1000, 5)]);
    equal(timeline.times.length < ROWS_KEPT, true);
    equal(timeline.buckets.times.length <= 501, true);
    equal(Math.max(...timeline.buckets.columns[0].high), 1e9);
    equal(timeline.firstTime, 0);
  },
  "numbers too large for a double stay exact in a timeline"() {
    const timeline = new Timeline(1);
    timeline.add([row(1, 18446744073709551615n), row(2, "0xff"), row(3, null)]);
    equal(timeline.values[0], [18446744073709551615n, null, null]);
    equal(pointsToDraw(timeline, 0, 0, 5, 100).map((point) => point.high), [18446744073709551615n]);
  },
  "few rows are drawn as they are"() {
    const timeline = new Timeline(1);
    timeline.add(rows(10));
    equal(pointsToDraw(timeline, 0, 0, 9e6, 100).map((point) => point.low), [0, 1, 2, 3, 4, 5, 6, 7, 8, 9]);
    equal(pointsToDraw(timeline, 0, 4e6, 5e6, 100).map((point) => point.low), [3, 4, 5, 6]);
  },
  "many rows are drawn as least, mean and most of each pixel, and none is left out"() {
    const timeline = new Timeline(1);
    timeline.add(rows(1000, 0, 1000));
    const points = pointsToDraw(timeline, 0, 0, 1e6, 100);
    equal(points.length, 100);
    equal([points[0].low, points[0].mean, points[0].high, points[0].count], [0, 4.5, 9, 10]);
    equal(points.reduce((sum, point) => sum + point.count, 0), 1000);
  },
  "a line is broken where rows stayed away, not where they were thinned"() {
    const timeline = new Timeline(1);
    timeline.add([...rows(10), ...rows(10, 100e6)]);
    const points = pointsToDraw(timeline, 0, 0, 120e6, 1000);
    equal(points.indexOf(null), 10);
    equal(points.filter((point) => point === null).length, 1);
    timeline.setBuckets([-400e6, -300e6, -200e6, -100e6], [{ low: [1, 1, 1, 1], high: [3, 3, 3, 3], mean: [2, 2, 2, 2] }], 100e6);
    equal(pointsToDraw(timeline, 0, -500e6, 0, 1000).indexOf(null), -1);
  },
  "zooming keeps the middle in its place"() {
    equal(zoomWindow(0, 100e6, 0.5, 25e6), [12500000, 62500000]);
    equal(zoomWindow(0, 100e6, 2, 100e6), [-100e6, 100e6]);
  },
  "counters that should be zero are told, what was lost first"() {
    const state = { counters: { rows_kept: 9, not_allowed: 7, pushes_lost: 3, write_failures: 0, later_frames_lost: 2, link_rows_after_gaps: 1 }, help: { later_frames_lost: "frames lost", link_rows_after_gaps: "rows after gaps" },
      requests: [{ request: "data", code: 4128, status: 0, text: "done", count: 9 }, { request: "data", code: 4128, status: 104, text: "unknown", count: 4 }] };
    equal(troublesOf(state).map((trouble) => [trouble.kind, trouble.count, trouble.words]), [
      ["lost", 3, "rows or status events did not reach a subscriber"], ["lost", 2, "frames lost"],
      ["lost", 1, "rows after gaps"],
      ["refused", 7, "datagrams or connections came from where none are allowed"], ["refused", 4, "rows were refused: unknown (status 104)"]]);
  },
  "a count that rises is noticed, one that was there is not"() {
    const rises = new Rises();
    const seen = (count, time) => {
      rises.see([{ key: "a", count }], time);
      return rises.risen("a");
    };
    equal([seen(3, 1), seen(3, 2), seen(4, 3), seen(4, 4)], [null, null, 3, 3]);
  },
  "rows of the same time are told apart by what they hold"() {
    const merge = new Merge();
    const batch = [1, 2, 3, 4, 5].map((number) => row(9, number));
    equal(merge.kept(batch.slice(0, 3)), batch.slice(0, 3));
    equal(merge.live(batch.slice(1)), batch.slice(3)); // the first came before the stream was open
    equal(merge.kept(batch), []);
    equal(merge.live([row(9, 1, ["a"]), row(9, 1, ["b"])]).length, 2);
    equal(merge.kept([row(9, 1, ["b"]), row(9, 1, ["a"])]), []);
  },
  "rows that are fetched anew are all shown, and those that come live after it are not shown again"() {
    const merge = new Merge();
    merge.live([row(1, 0)]);
    merge.clear();
    equal(merge.kept([row(1, 0), row(2, 0)]).length, 2);
    equal(merge.live([row(2, 0), row(1, 0)]), [row(1, 0)]); // another one like the first
  },
  "least and most beyond 2^53 are exact, and a mean there has no more digits than it knows"() {
    const timeline = new Timeline(1);
    const largest = 9223372036854775807n;
    timeline.add([row(1, largest), row(2, largest - 1n), row(3, 5), row(3, -largest)]);
    const [point] = pointsToDraw(timeline, 0, 1, 5, 1);
    equal([point.low, point.high, point.count], [-largest, largest, 4]);
    timeline.add(rows(ROWS_KEPT, 5));
    equal([timeline.buckets.columns[0].low[0], timeline.buckets.columns[0].high[0]], [-largest, largest]);
    equal([largest, 9.223372036854775e18, -1e300, 2 ** 53, 2 ** 53 - 1].map(formatMean),
      ["9\u2009223\u2009372\u2009036\u2009854\u2009775\u2009807", "≈ 9.223e18", "≈ −1.000e300", "≈ 9.007e15", "9\u2009007\u2009199\u2009254\u2009740\u2009991"]);
    equal(formatValue(2 ** 63), "≈ 9.223e18");
  },
};

let failures = 0;
for (const [name, test] of Object.entries(tests)) {
  const line = document.createElement("p");
  line.textContent = name;
  try {
    test();
  } catch (error) {
    ++failures;
    line.className = "failed";
    line.textContent += `: ${error.message}`;
  }
  document.body.append(line);
}
document.title = `${Object.keys(tests).length} tests, ${failures} failed`;
