// link.js: what the server says of itself, asked for again and again, and whether it is there.

import { get, getHealth, Refusal } from "./api.js";
import { now, standStill } from "./clock.js";

const SMALL = 500; // sources
const SOON = 2000; // ms
const LATER = 5000;
const AGAIN = 1000; // while it is lost
const LEAST = 200; // between two, however much happens; ten times that when there are many sources

/**
 * Asks while the page is visible. `lostSince` is when the server was first missed, null while it
 * is there; `refusal` a sentence when it answers, but not this.
 */
export class Link {
  state = null; // of /api/state
  applications = null; // of /api/applications
  health = ""; // why the server is not well
  lostSince = null;
  refusal = "";
  #changed;
  #timer = 0;
  #isAsking = false;
  #wantsMore = false;
  #lastAsked = -Infinity;
  #lastAnswered = null;

  /** @param {() => void} changed called after each answer, and when the server is missed */
  constructor(changed) {
    this.#changed = changed;
    document.addEventListener("visibilitychange", () => {
      if (!document.hidden) this.askNow();
    });
    this.askNow();
  }

  /** Asks soon; when that is under way already, once more after it. */
  askNow() {
    if (this.#isAsking) this.#wantsMore = true;
    else this.#askIn(this.#lastAsked + LEAST * (this.#isLarge ? 10 : 1) - performance.now());
  }

  #askIn(milliseconds) {
    clearTimeout(this.#timer);
    this.#timer = setTimeout(() => this.#ask(), milliseconds);
  }

  async #ask() {
    this.#isAsking = true;
    this.#wantsMore = false;
    this.#lastAsked = performance.now();
    try {
      const applications = get("/api/applications");
      const others = Promise.all([get("/api/state"), getHealth()]);
      others.catch(() => {}); // Looked at below, after the applications.
      this.applications = (await applications).applications;
      [this.state, this.health] = await others;
      this.#answered("");
    } catch (error) {
      if (error instanceof Refusal) {
        this.#answered(error.message);
      } else if (this.lostSince === null) {
        this.lostSince = now();
        standStill(this.#lastAnswered);
      }
    }
    this.#isAsking = false;
    this.#changed();
    if (document.hidden) return;
    if (this.#wantsMore) this.askNow();
    else this.#askIn(this.lostSince !== null ? AGAIN : this.#isLarge ? LATER : SOON);
  }

  #answered(refusal) {
    standStill(null);
    this.lostSince = null;
    this.refusal = refusal;
    this.#lastAnswered = now();
  }

  get #isLarge() {
    const groups = (this.applications ?? []).flatMap((each) => each.groups);
    return groups.reduce((sum, each) => sum + each.sources.length, 0) > SMALL;
  }
}
