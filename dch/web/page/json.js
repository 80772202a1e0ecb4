// json.js: JSON whose whole numbers stay exact.

/**
 * Numbers of 17 digits and more, and those of 16 that begin with 9, may be too large for a double.
 * Anything else of that form (a digit string in a text) only costs the slower way.
 */
const MAY_BE_TOO_LARGE = /\d{17}|9\d{15}/;
const WHOLE_NUMBER = /^-?\d+$/;

/**
 * Parses JSON; a whole number that a double cannot hold exactly becomes a BigInt.
 * @throws {SyntaxError}
 */
export function parseExactly(text) {
  if (!MAY_BE_TOO_LARGE.test(text)) return JSON.parse(text);
  return JSON.parse(text, (_key, value, context) =>
    typeof value === "number" && !Number.isSafeInteger(value) && context && WHOLE_NUMBER.test(context.source)
      ? BigInt(context.source) : value);
}
