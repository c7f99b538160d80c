// The manager's events, as they happen, and whether it still sends any.

import { EVENTS } from './api.js';

const RETRY_MS = 1000;
// It sends its status every second, so that a silence means that it hangs.
const SILENCE_MS = 1700;
const GIVE_UP_MS = 10_000;

export class Events {
  /**
   * Follows the events while the page is visible: a browser opens only six connections to a server,
   * for all of its tabs together.
   *
   * @param {Object} handlers a function for each event that matters, called with the event's data, and
   *   `silent`, called when the connection is lost or nothing has come for SILENCE_MS.
   */
  constructor(handlers) {
    this.handlers = handlers;
    document.addEventListener('visibilitychange', () => (document.hidden ? this.#close() : this.#open()));
    if (!document.hidden) this.#open();
  }

  #open() {
    this.#close();
    this.source = new EventSource(EVENTS);
    this.source.onerror = () => {
      this.handlers.silent();
      // The browser gives up after some errors, and waits longer and longer after others.
      this.#close();
      this.#retryIn(RETRY_MS);
    };
    for (const name of ['hello', 'objects', 'log', 'status', 'missed']) {
      this.source.addEventListener(name, ({ data }) => {
        this.#awaitNext();
        this.handlers[name]?.(JSON.parse(data));
      });
    }
    this.#awaitNext();
  }

  #awaitNext() {
    clearTimeout(this.silence);
    clearTimeout(this.retry);
    this.silence = setTimeout(() => {
      this.handlers.silent();
      this.#retryIn(GIVE_UP_MS);
    }, SILENCE_MS);
  }

  #retryIn(ms) {
    this.retry = setTimeout(() => this.#open(), ms);
  }

  #close() {
    clearTimeout(this.silence);
    clearTimeout(this.retry);
    this.source?.close();
  }
}
