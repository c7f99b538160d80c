// The chosen object: why it is in its state, its fields, its neighbourhood and its history.

import { link } from './address.js';
import * as api from './api.js';
import { drawingOf } from './drawing.js';
import { clock, element, number, stateWord } from './text.js';

const DEPTH = 3;
const REFRESH_MS = 1000;

function section(title, ...content) {
  return element('section', { 'aria-label': title }, element('h3', {}, title), ...content);
}

function valueOf(value) {
  return Array.isArray(value) ? value.join(', ') : value;
}

export class Detail {
  constructor(place) {
    this.place = place;
    this.around = new Set();
  }

  /** Shows the object with this key, or none if it is ''. */
  show(key) {
    this.key = key;
    this.place.hidden = key === '';
    this.place.replaceChildren();
    this.around = new Set([key]);
    if (key) this.#load();
  }

  /** Objects have changed: reads again what is shown, if one of them is a part of it. */
  update(changes) {
    if (changes.some(({ key }) => this.around.has(key))) this.refresh();
  }

  refresh() {
    this.timer ??= setTimeout(() => {
      this.timer = undefined;
      if (this.key) this.#load();
    }, REFRESH_MS);
  }

  async #load() {
    const { key } = this;
    try {
      const [answer, explanation, graph, drawing] = await Promise.all([
        api.object(key), api.explanation(key), api.graph(key, DEPTH), this.#drawing(key)]);
      if (key === this.key) this.#show(answer, explanation, graph, drawing);
    } catch (error) {
      // Without an answer, what is shown stays: the page says that the manager is gone.
      if (!(error instanceof api.Refusal) || key !== this.key) return;
      this.place.replaceChildren(this.#title(key), element('p', {}, error.message));
    }
  }

  // Where Graphviz is missing, the lists show the same without the drawing.
  async #drawing(key) {
    try {
      return drawingOf(await api.drawing(key, DEPTH), key);
    } catch (error) {
      if (error instanceof api.Refusal && error.status === 501) return error.message;
      throw error;
    }
  }

  #show({ object, fields, rides_on, neighbor, vrf, history, history_since_ms }, explanation, graph, drawing) {
    this.around = new Set([this.key, ...graph.nodes.map(({ key }) => key)]);
    const focused = this.place.contains(document.activeElement) && document.activeElement.getAttribute('href');
    const scrolled = this.place.querySelector('.drawing')?.scrollLeft ?? 0;
    this.place.replaceChildren(
      this.#title(object.key, object.name, object.state),
      section('Why', this.#why(explanation)),
      section('Rides on', this.#objects(
        [...rides_on, neighbor && { ...neighbor, role: 'neighbor' }, vrf && { ...vrf, role: 'VRF' }].filter(Boolean))),
      section('What rides on it', this.#objects(this.#above(graph), graph.left_out)),
      section('Drawing', element('div', { class: 'drawing', tabindex: 0, role: 'region', 'aria-label': 'Drawing' },
        drawing)),
      section('Fields', this.#fields(object, fields)),
      section('History', this.#history(history, history_since_ms)));
    this.place.querySelector('.drawing').scrollLeft = scrolled;
    if (focused) [...this.place.querySelectorAll('a')].find((a) => a.getAttribute('href') === focused)?.focus();
  }

  #title(key, name = '', state) {
    return element('header', {},
      element('h2', { id: 'detail-title' }, key, ' ', element('bdi', {}, name)),
      state && stateWord(state),
      element('a', { href: link({ object: '' }), class: 'close', 'aria-keyshortcuts': 'Escape' }, 'Close'));
  }

  #why({ steps, connected }) {
    return element('ol', { class: 'why' },
      ...steps.map(({ key, text }) => element('li', {}, key === null || key === this.key
        ? text
        : element('a', { href: link({ object: key }) }, text))),
      connected ? null : element('li', {}, 'There is no connection to the HAL: this is the last known state.'));
  }

  #above({ nodes, edges }) {
    const byKey = new Map(nodes.map((node) => [node.key, node]));
    const roles = { neighbor: 'as its neighbor', vrf: 'as its VRF' };
    return edges.filter(({ to }) => to === this.key)
      .map(({ from, type }) => ({ ...byKey.get(from), role: roles[type] }));
  }

  #objects(objects, leftOut = 0) {
    const more = leftOut > 0 ? element('p', {}, `${number(leftOut)} more objects are not shown.`) : null;
    if (objects.length === 0) return more ?? element('p', { class: 'none' }, 'nothing');
    const items = objects.map(({ key, name, state, role }) => element('li', {},
      stateWord(state), ' ', element('a', { href: link({ object: key }) }, key), ' ',
      element('bdi', {}, name), role ? ` (${role})` : ''));
    return element('div', {}, element('ul', { class: 'objects' }, ...items), more);
  }

  #fields({ code }, fields) {
    const shown = [
      ['HAL code', code === 0 ? '' : String(code)],
      ...Object.entries(fields).map(([name, value]) => [name.replaceAll('_', ' '), valueOf(value)]),
    ].filter(([, value]) => value !== '');
    return element('dl', {}, ...shown.flatMap(([name, value]) =>
      [element('dt', {}, name), element('dd', {}, value)]));
  }

  #history(history, since) {
    return element('div', {},
      element('table', {}, element('tbody', {}, ...history.map(({ time_ms, state, reason }) =>
        element('tr', {}, element('td', { class: 'number' }, clock(time_ms)), element('td', {}, stateWord(state)),
          element('td', {}, reason))))),
      element('p', { class: 'note' }, `Complete since ${clock(since)}.`));
  }
}
