// times.js: moments as microseconds since 1970, and how they read.

const SECOND = 1e6;
const MINUTE = 60 * SECOND;
const HOUR = 60 * MINUTE;
const DAY = 24 * HOUR;

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

/**
 * @param {number} time microseconds since 1970
 * @returns {string} as the server takes and gives it, with all six digits
 */
export function isoTime(time) {
  const seconds = Math.floor(time / SECOND);
  const fraction = String(time - seconds * SECOND).padStart(6, "0");
  return new Date(seconds * 1000).toISOString().slice(0, 19) + "." + fraction + "Z";
}

const two = (number) => String(number).padStart(2, "0");

function parts(time, utc) {
  const date = new Date(Math.floor(time / 1000));
  return utc
    ? { date, year: date.getUTCFullYear(), month: date.getUTCMonth() + 1, day: date.getUTCDate(),
        hour: date.getUTCHours(), minute: date.getUTCMinutes(), second: date.getUTCSeconds() }
    : { date, year: date.getFullYear(), month: date.getMonth() + 1, day: date.getDate(),
        hour: date.getHours(), minute: date.getMinutes(), second: date.getSeconds() };
}

/**
 * A time of day; with the date before it when that is not the day of `now`.
 * @param {number} time
 * @param {number} now
 * @param {boolean} utc else in the reader's zone
 * @returns {string} 21:00:05 or 2026-11-21 21:00:05
 */
export function formatTime(time, now, utc) {
  const at = parts(time, utc);
  const today = parts(now, utc);
  const clock = `${two(at.hour)}:${two(at.minute)}:${two(at.second)}`;
  if (at.year === today.year && at.month === today.month && at.day === today.day) return clock;
  return `${at.year}-${two(at.month)}-${two(at.day)} ${clock}`;
}

/**
 * A label of a time axis: as short as the distance between labels lets it be.
 * @param {number} time
 * @param {number} step microseconds between two labels, or less
 * @param {boolean} utc
 */
export function formatTick(time, step, utc) {
  const at = parts(time, utc);
  const date = `${two(at.month)}-${two(at.day)}`;
  if (step >= DAY || (at.hour === 0 && at.minute === 0 && at.second === 0)) return date;
  const clock = `${two(at.hour)}:${two(at.minute)}`;
  if (step >= MINUTE) return clock;
  const seconds = `${clock}:${two(at.second)}`;
  return step >= SECOND ? seconds : `${seconds.slice(3)}.${String(at.date.getUTCMilliseconds()).padStart(3, "0")}`;
}

/**
 * @param {number} duration microseconds; less than none counts as none
 * @returns {string} in at most two units: 5 s, 3 min, 2 h 10 min, 4 d 3 h
 */
export function formatDuration(duration) {
  if (duration < SECOND) return "0 s";
  if (duration < MINUTE) return `${Math.floor(duration / SECOND)} s`;
  if (duration < HOUR) return `${Math.floor(duration / MINUTE)} min`;
  const [large, small, names] = duration < DAY ? [HOUR, MINUTE, ["h", "min"]] : [DAY, HOUR, ["d", "h"]];
  const rest = Math.floor((duration % large) / small);
  return `${Math.floor(duration / large)} ${names[0]}` + (rest ? ` ${rest} ${names[1]}` : "");
}

/**
 * @param {number} time
 * @param {number} now
 * @returns {string} how long ago
 */
export function formatAge(time, now) {
  return now - time < SECOND ? "now" : `${formatDuration(now - time)} ago`;
}

/** The reader's zone in words, such as UTC+01:00. @param {number} time */
export function zoneName(time) {
  const minutes = -new Date(time / 1000).getTimezoneOffset();
  if (minutes === 0) return "UTC";
  const size = Math.abs(minutes);
  return `UTC${minutes < 0 ? "−" : "+"}${two(Math.floor(size / 60))}:${two(size % 60)}`;
}
