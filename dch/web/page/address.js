// address.js: what is shown, as the address bar keeps it.

/** The ranges of time, microseconds before now; null: all there is. */
export const RANGES = [
  { name: "15m", words: "15 min", long: "last 15 minutes", length: 900e6 },
  { name: "1h", words: "1 h", long: "last hour", length: 3600e6 },
  { name: "6h", words: "6 h", long: "last 6 hours", length: 6 * 3600e6 },
  { name: "24h", words: "24 h", long: "last 24 hours", length: 86400e6 },
  { name: "7d", words: "7 d", long: "last 7 days", length: 7 * 86400e6 },
  { name: "30d", words: "30 d", long: "last 30 days", length: 30 * 86400e6 },
  { name: "all", words: "All", long: "all that is kept", length: null },
];

export const rangeNamed = (name) => RANGES.find((range) => range.name === name);

/**
 * @typedef {Object} Place
 * @property {?string} application null: all
 * @property {?string} group
 * @property {?string} source
 * @property {string} range one of RANGES' names, or "": the usual one
 * @property {?number} from,until a part of the range, microseconds since 1970; both or none
 * @property {string} find what is searched for, or ""
 * @property {string} show "", "silent" or "offline": only such sources
 */

const moment = (text) => (/^\d{1,16}$/.test(text ?? "") ? Number(text) : null);

/** @returns {Place} what location.hash says, which may be anything; what makes no sense in it does not count */
export function readPlace(hash) {
  const said = new URLSearchParams(hash.replace(/^#/, ""));
  const application = said.get("application") || null;
  const group = application === null ? null : said.get("group") || null;
  const source = group === null ? null : said.get("source") || null;
  let from = moment(said.get("from"));
  let until = moment(said.get("until"));
  if (from === null || until === null || from >= until) from = until = null;
  const show = said.get("show");
  return {
    application, group, source, from, until,
    range: rangeNamed(said.get("range"))?.name ?? "",
    find: said.get("find") ?? "",
    show: show === "silent" || show === "offline" ? show : "",
  };
}

/** @returns {string} the address of a place, of which anything may be left out: "#" and so on */
export function writePlace(place) {
  const said = new URLSearchParams();
  for (const name of ["application", "group", "source", "range", "from", "until", "find", "show"]) {
    if ((place[name] ?? "") !== "") said.set(name, place[name]);
  }
  return "#" + said.toString();
}

/** Of the parameters undefined and null ones are left out, true ones stand without a value. */
export function apiAddress(path, parameters) {
  const said = [];
  for (const [name, value] of Object.entries(parameters)) {
    if ((value ?? false) !== false) said.push(value === true ? name : `${name}=${encodeURIComponent(value)}`);
  }
  return said.length ? `${path}?${said.join("&")}` : path;
}
