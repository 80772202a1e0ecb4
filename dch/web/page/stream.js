// stream.js: what happens at the server, as it happens.

import { parseExactly } from "./json.js";

const LONGEST_PAUSE = 4000; // ms between tries

/**
 * One connection for live events. Opens itself again after a failure; closed while nobody looks at
 * the page, as a browser has few connections for all its pages together.
 */
export class Stream {
  #address;
  #handlers;
  #source = null;
  #timer = 0;
  #pause = 500;
  #watchVisibility = () => (document.hidden ? this.#hangUp() : this.#connect());

  /**
   * @param {Object} handlers functions row(object), status(object), lost(object), opened() after
   * each (re)connection: what came before it is to be fetched; failed()
   */
  constructor(address, handlers) {
    this.#address = address;
    this.#handlers = handlers;
    document.addEventListener("visibilitychange", this.#watchVisibility);
    if (!document.hidden) this.#connect();
  }

  /** Whether events come. */
  get isOpen() {
    return this.#source?.readyState === EventSource.OPEN;
  }

  /** Ends it for good. */
  close() {
    document.removeEventListener("visibilitychange", this.#watchVisibility);
    this.#hangUp();
  }

  #hangUp() {
    clearTimeout(this.#timer);
    this.#source?.close();
    this.#source = null;
  }

  #connect() {
    this.#hangUp();
    const source = new EventSource(this.#address);
    this.#source = source;
    source.onopen = () => {
      this.#pause = 500;
      this.#handlers.opened();
    };
    source.onerror = () => {
      if (source !== this.#source) return;
      this.#hangUp();
      this.#handlers.failed();
      this.#timer = setTimeout(() => this.#connect(), this.#pause);
      this.#pause = Math.min(2 * this.#pause, LONGEST_PAUSE);
    };
    for (const name of ["row", "status", "lost"]) {
      source.addEventListener(name, (event) => this.#handlers[name](parseExactly(event.data)));
    }
  }
}
