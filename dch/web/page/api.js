// api.js: questions to the server.

import { apiAddress } from "./address.js";
import { learnServerTime } from "./clock.js";
import { parseExactly } from "./json.js";

/** Columns of kept rows: time, time_us, source, handle, code, then the attributes. */
export const FIRST_VALUE = 5;

/** The server answered, but not with what was asked for. */
export class Refusal extends Error {
  constructor(status, sentence) {
    super(sentence);
    this.status = status;
  }
}

async function ask(path, parameters, seconds) {
  const response = await fetch(apiAddress(path, parameters), {
    cache: "no-store", signal: AbortSignal.timeout(seconds * 1000),
  });
  if (response.status === 401) location.reload(); // then the server asks for the token
  return { response, text: await response.text() };
}

/**
 * @returns {Promise<*>} the JSON of the answer
 * @throws {Refusal} of another answer than 200; other errors: no answer
 */
export async function get(path, parameters = {}, seconds = 15) {
  const { response, text } = await ask(path, parameters, seconds);
  if (response.ok) {
    learnServerTime(response.headers.get("Date"));
    return parseExactly(text);
  }
  let sentence = `The server answered ${response.status}.`;
  try {
    sentence = JSON.parse(text).error ?? sentence;
  } catch { /* Then the number has to do. */ }
  throw new Refusal(response.status, sentence);
}

/**
 * @returns {Promise<string>} why the server is not well, or ""
 * @throws no answer
 */
export async function getHealth() {
  const { response, text } = await ask("/healthz", {}, 8);
  return response.ok ? "" : text.trim() || `it answers ${response.status}`;
}
