// The list of state changes, newest first.

import { link } from './address.js';
import * as api from './api.js';
import { clock, element, stateWord } from './text.js';

const LIMIT = 200;
const REFRESH_MS = 1000;

export class Changes {
  constructor(place, summary) {
    this.place = place;
    this.summary = summary;
  }

  /** Shows the changes to a state, or all if the state is ''. */
  show(state) {
    this.state = state;
    this.place.replaceChildren();
    this.#load();
  }

  refresh() {
    this.timer ??= setTimeout(() => {
      this.timer = undefined;
      this.#load();
    }, REFRESH_MS);
  }

  async #load() {
    const { state } = this;
    const { changes, since_ms } = await api.changes({ state, limit: LIMIT });
    if (state !== this.state) return;
    const what = state ? `changes to ${state}` : 'changes';
    this.summary.textContent = changes.length < LIMIT
      ? `All ${what} since ${clock(since_ms)}: ${changes.length}` : `The last ${LIMIT} ${what}`;
    this.place.replaceChildren(element('table', {}, element('tbody', {},
      ...changes.map(({ time_ms, key, name, state: to, reason }) => element('tr', {},
        element('td', { class: 'number' }, clock(time_ms)),
        element('td', {}, stateWord(to)),
        element('td', {}, element('a', { href: link({ object: key }) }, key)),
        element('td', {}, element('bdi', {}, name)),
        element('td', {}, reason))))));
  }
}
