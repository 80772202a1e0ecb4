// values.js: how values read.

const THIN_SPACE = "\u2009";

/** Whether values of an attribute are text. @param {{letter: string}} attribute */
export const isText = (attribute) => "DRT".includes(attribute.letter);

/** @returns {*} an attribute's value in an object from outside, whatever the attribute's name is */
export const valueNamed = (values, name) => (Object.hasOwn(values, name) ? values[name] : null);

/** A number, a BigInt, a text, or nothing: all of it; digits in threes from five on. */
export function formatValue(value) {
  if ((value ?? null) === null) return "–";
  if (typeof value === "string") return value;
  if (typeof value === "number" && !Number.isSafeInteger(value)) return formatMean(value);
  const digits = String(value).replace("-", "");
  const grouped = digits.length < 5 ? digits : digits.replace(/\B(?=(\d{3})+$)/g, THIN_SPACE);
  return (value < 0 ? "−" : "") + grouped;
}

/** How many, such as 1 row or 5 rows. @param {string} word for one */
export const countOf = (number, word) => `${formatValue(number)} ${word}${number === 1 ? "" : "s"}`;

/** A mean: four digits are enough; beyond 2^53 one sees that it is not exact. */
export function formatMean(value) {
  if (typeof value === "bigint" || Number.isSafeInteger(value)) return formatValue(value);
  if (Math.abs(value) > Number.MAX_SAFE_INTEGER) return "≈ " + value.toPrecision(4).replace("+", "").replace("-", "−");
  if (Math.abs(value) >= 1e4) return formatValue(Math.round(value));
  return String(Number(value.toPrecision(4))).replace("-", "−");
}

const UNITS = [[1e18, "E"], [1e15, "P"], [1e12, "T"], [1e9, "G"], [1e6, "M"], [1e3, "k"]];

/** A label of a value axis: short, and without what floating point adds to a round number. */
export function formatTickValue(value) {
  const [size, name] = UNITS.find((unit) => Math.abs(value) >= Math.max(unit[0], 1e4)) ?? [1, ""];
  return String(Number((value / size).toPrecision(9))).replace("-", "−") + name;
}
