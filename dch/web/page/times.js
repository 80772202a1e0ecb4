// times.js: moments as microseconds since 1970, and how they read.

const SECOND = 1e6;
const MINUTE = 60 * SECOND;
const HOUR = 60 * MINUTE;
const DAY = 24 * HOUR;
const MONTHS = ["Jan", "Feb", "Mar", "Apr", "May", "Jun", "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"];

/**
 * @param {?string} text such as 2026-01-31T23:59:59.123456Z
 * @returns {?number} microseconds since 1970; null where there is no such time
 */
export function parseTime(text) {
  if (!text) return null;
  const milliseconds = Date.parse(text.slice(0, 19) + "Z");
  if (Number.isNaN(milliseconds)) return null;
  const fraction = text[19] === "." ? text.slice(20, -1).padEnd(6, "0").slice(0, 6) : "0";
  return milliseconds * 1000 + Number(fraction);
}

/** @returns {string} a time as the server takes and gives it, with all six digits */
export function isoTime(time) {
  const seconds = Math.floor(time / SECOND);
  const fraction = String(time - seconds * SECOND).padStart(6, "0");
  return new Date(seconds * 1000).toISOString().slice(0, 19) + "." + fraction + "Z";
}

/** @returns {[string, string]} date and time of day, 2026-11-21 and 21:00:05.123 */
function dateAndClock(time, utc) {
  const date = new Date(Math.floor(time / 1000));
  if (!utc) date.setTime(date.getTime() - date.getTimezoneOffset() * 60000);
  return date.toISOString().slice(0, -1).split("T");
}

/**
 * A time of day; with the date before it when that is not the day of `now`.
 * @param {boolean} utc else in the reader's zone
 * @returns {string} 21:00:05 or 2026-11-21 21:00:05
 */
export function formatTime(time, now, utc) {
  const [date, clock] = dateAndClock(time, utc);
  const [today] = dateAndClock(now, utc);
  return (date === today ? "" : date + " ") + clock.slice(0, 8);
}

/** A label of a time axis: as short as the distance between labels, at least `step`, lets it be. */
export function formatTick(time, step, utc) {
  const [date, clock] = dateAndClock(time, utc);
  if (step >= DAY || clock.startsWith("00:00:00")) return `${Number(date.slice(8))} ${MONTHS[date.slice(5, 7) - 1]}`;
  if (step >= MINUTE) return clock.slice(0, 5);
  return step >= SECOND ? clock.slice(0, 8) : clock.slice(3);
}

/** @returns {string} a duration in at most two units: 5 s, 3 min, 2 h 10 min, 4 d 3 h */
export function formatDuration(duration) {
  if (duration < SECOND) return "0 s";
  if (duration < MINUTE) return `${Math.floor(duration / SECOND)} s`;
  if (duration < HOUR) return `${Math.floor(duration / MINUTE)} min`;
  const [large, small, names] = duration < DAY ? [HOUR, MINUTE, ["h", "min"]] : [DAY, HOUR, ["d", "h"]];
  const rest = Math.floor((duration % large) / small);
  return `${Math.floor(duration / large)} ${names[0]}` + (rest ? ` ${rest} ${names[1]}` : "");
}

/** @returns {string} how long ago a time is */
export function formatAge(time, now) {
  return now - time < SECOND ? "now" : `${formatDuration(now - time)} ago`;
}

/** The reader's zone at a time in words, such as UTC+01:00. */
export function zoneName(time) {
  const minutes = -new Date(time / 1000).getTimezoneOffset();
  if (minutes === 0) return "UTC";
  const size = Math.abs(minutes);
  const two = (number) => String(Math.floor(number)).padStart(2, "0");
  return `UTC${minutes < 0 ? "−" : "+"}${two(size / 60)}:${two(size % 60)}`;
}
