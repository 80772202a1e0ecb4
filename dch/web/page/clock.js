// clock.js: what time it is at the server, and how the reader wants to see times.

import { formatTime, isoTime } from "./times.js";

let offset = 0; // of the server's clock, microseconds
let standing = null;
let utc = false;

/** @returns {number} microseconds since 1970 by the server's clock, as far as that is known */
export function now() {
  return standing ?? Math.floor((performance.timeOrigin + performance.now()) * 1000) + offset;
}

/** While the server is away its time stands still: nothing ages that cannot be heard. @param {?number} time null: it goes on */
export function standStill(time) {
  standing = time;
}

/** Takes an answer's Date for the server's time; small differences are the way's and do not count. */
export function learnServerTime(header) {
  const difference = (Date.parse(header) - Date.now()) * 1000;
  if (!Number.isNaN(difference)) offset = Math.abs(difference) > 3e6 ? difference : 0;
}

/** Whether times are shown in UTC. */
export const showsUtc = () => utc;

export function setUtc(value) {
  utc = value;
  try {
    localStorage.setItem("zord410_utc", value ? "1" : "0");
  } catch { /* A reader without storage sets it again next time. */ }
}

/** Shows times as the reader wanted them last time. */
export function restoreUtc() {
  try {
    utc = localStorage.getItem("zord410_utc") === "1";
  } catch { /* Then in the reader's zone. */ }
}

/** Lets a <time> show a moment or a text instead, the exact one in UTC at hand; null: none. */
export function showTime(element, time, text) {
  const shown = time === null ? "" : text ?? formatTime(time, now(), utc);
  if (element.textContent !== shown) element.textContent = shown;
  if (time === null || element.shownTime === time) return;
  element.shownTime = time;
  element.dateTime = isoTime(time);
  element.title = isoTime(time).replace("T", " ").replace("Z", " UTC");
}
