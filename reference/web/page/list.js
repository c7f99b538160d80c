// The list of objects: a window onto the list that the manager keeps. It asks only for the rows in
// view, so a million objects cost no more than a hundred.

import { Refusal } from './api.js';
import { PAGE, Pages } from './pages.js';
import { counted, element, stateWord } from './text.js';

const ROW = 26;
// Browsers limit the height of an element. A longer list scrolls in proportion.
const MAX_HEIGHT = 8_000_000;
// How long to collect changes, and how often to count what a search finds.
const SCROLL_MS = 50;
const REFRESH_MS = 1000;
const COUNT_MS = 5000;
const COLUMNS = ['State', 'Object', 'Name', 'Interface', 'Reason'];

export class ObjectList {
  /** @param {function(string)} onChoose called with the key of the object that was chosen. */
  constructor(grid, summary, onChoose) {
    this.grid = grid;
    this.summary = summary;
    this.onChoose = onChoose;
    this.space = element('div', { class: 'space', role: 'presentation' });
    this.grid.replaceChildren(
      element('div', { role: 'row', class: 'row head', 'aria-rowindex': 1 },
        ...COLUMNS.map((title) => element('span', { role: 'columnheader' }, title))),
      this.space);
    this.rows = [];
    this.pages = new Pages({});
    this.active = 0;
    this.grid.addEventListener('scroll', () => this.#render());
    this.grid.addEventListener('keydown', (event) => this.#onKey(event));
    this.space.addEventListener('click', (event) => this.#onClick(event));
    new ResizeObserver(() => this.#render()).observe(this.grid);
  }

  /** Lists the objects that the filter leaves, from the first one. */
  show(filter) {
    this.pages = new Pages(filter);
    this.active = 0;
    this.countedAt = 0;
    this.grid.scrollTop = 0;
    this.summary.textContent = '';
    this.#load();
  }

  /** Highlights the object that is shown in detail. */
  mark(key) {
    this.chosen = key;
    this.#render();
  }

  /** Tells how many objects there are, by kind and state. */
  setCounts(counts) {
    const { kind, state, q } = this.pages.filter;
    if (q) return;
    this.pages.total = Object.entries(counts)
      .filter(([name]) => !kind || name === kind)
      .flatMap(([, states]) => Object.entries(states))
      .filter(([name]) => (state ? name === state : name !== 'removed'))
      .reduce((sum, [, count]) => sum + count, 0);
    this.#render();
  }

  /** Shows changes at once, and a little later what they do to the order. */
  update(changes) {
    const rows = new Map(this.pages.rows().map((row) => [row.key, row]));
    for (const { key, name, state, reason } of changes) {
      if (rows.has(key)) Object.assign(rows.get(key), { name, state, reason });
    }
    this.#render();
    this.refresh();
  }

  /** Soon reads again what is in view. */
  refresh() {
    this.refreshTimer ??= setTimeout(() => {
      this.refreshTimer = undefined;
      this.pages.expire();
      this.#load();
    }, REFRESH_MS);
  }

  // The height of the rows in view. The head takes the first row's place.
  get #view() {
    return Math.max(ROW, this.grid.clientHeight - ROW);
  }

  get #height() {
    return Math.min(MAX_HEIGHT, this.pages.total * ROW);
  }

  // The place in the list at the top of the view. A fraction is a part of a row.
  get #top() {
    const hidden = this.#height - this.#view;
    if (hidden <= 0) return 0;
    return Math.min(1, this.grid.scrollTop / hidden) * (this.pages.total - this.#view / ROW);
  }

  #scrollTo(top) {
    const last = this.pages.total - this.#view / ROW;
    if (last > 0) this.grid.scrollTop = (Math.min(top, last) / last) * (this.#height - this.#view);
  }

  #missing() {
    const top = this.#top;
    const bottom = Math.max(0, Math.min(this.pages.total, top + this.#view / ROW) - 1);
    return this.pages.firstMissing(Math.floor(top / PAGE), Math.max(Math.floor(top / PAGE), Math.floor(bottom / PAGE)));
  }

  // Reads one page after the other, each time the first that is missing where the view is by then.
  async #load() {
    if (this.loading) return;
    this.loading = true;
    const { pages } = this;
    try {
      for (let page = this.#missing(); page !== undefined && pages === this.pages; page = this.#missing()) {
        await pages.read(page);
        if (pages === this.pages) this.#render();
      }
      if (pages === this.pages && pages.filter.q && !pages.atEnd && Date.now() - this.countedAt > COUNT_MS) {
        this.countedAt = Date.now();
        await pages.count();
      }
      if (pages === this.pages) this.#render();
    } catch (error) {
      // Without an answer, the page says that the manager is gone, and refreshes when it is back.
      if (error instanceof Refusal && pages === this.pages) this.summary.textContent = error.message;
      if (error.name === 'TimeoutError') this.refresh();
    } finally {
      this.loading = false;
    }
    if (pages !== this.pages) this.#load();
  }

  #render() {
    const height = `${this.#height}px`;
    if (this.space.style.height !== height) this.space.style.height = height;
    this.grid.setAttribute('aria-rowcount', this.pages.total + 1);
    const text = counted(this.pages.total, 'object');
    if (this.pages.pages.size > 0 && this.summary.textContent !== text) this.summary.textContent = text;

    const first = Math.floor(this.#top);
    const count = Math.min(Math.ceil(this.#view / ROW) + 1, this.pages.total - first);
    while (this.rows.length < count) this.rows.push(newRow());
    while (this.rows.length > count) this.rows.pop().remove();
    const above = this.grid.scrollTop - (this.#top - first) * ROW;
    this.rows.forEach((row, offset) => {
      if (!row.parentNode) this.space.append(row);
      row.style.transform = `translateY(${above + offset * ROW}px)`;
      this.#fill(row, first + offset);
    });
    const active = this.rows[this.active - first];
    if (active) this.grid.setAttribute('aria-activedescendant', active.id);
    else this.grid.removeAttribute('aria-activedescendant');

    if (this.#missing() !== undefined && !this.loading) {
      this.scrollTimer ??= setTimeout(() => {
        this.scrollTimer = undefined;
        this.#load();
      }, SCROLL_MS);
    }
  }

  #fill(row, index) {
    const object = this.pages.rowAt(index);
    row.id = `row-${index}`;
    row.dataset.index = index;
    row.setAttribute('aria-rowindex', index + 2);
    row.setAttribute('aria-selected', object !== undefined && object.key === this.chosen);
    row.classList.toggle('active', index === this.active);
    const cells = object
      ? [object.state, object.key, object.name, object.interface ?? '', object.reason]
      : ['', '…', '', '', ''];
    const shown = cells.join('\n');
    if (row.dataset.shown === shown) return;
    row.dataset.shown = shown;
    cells.forEach((text, column) => {
      row.children[column].replaceChildren(column === 0 && object ? stateWord(text) : text);
      row.children[column].title = text;
    });
  }

  #onKey(event) {
    const page = Math.max(1, Math.floor(this.#view / ROW) - 1);
    const steps = { ArrowDown: 1, ArrowUp: -1, PageDown: page, PageUp: -page, Home: -Infinity, End: Infinity };
    if (event.key === 'Enter') {
      this.#choose(this.active);
    } else if (event.key in steps) {
      this.active = Math.max(0, Math.min(this.pages.total - 1, this.active + steps[event.key]));
      const rows = Math.floor(this.#view / ROW);
      if (this.active < this.#top) this.#scrollTo(this.active);
      if (this.active + 1 > this.#top + rows) this.#scrollTo(this.active + 1 - rows);
      this.#render();
    } else {
      return;
    }
    event.preventDefault();
  }

  #onClick(event) {
    const row = event.target.closest('.row');
    if (row) this.#choose(Number(row.dataset.index));
  }

  #choose(index) {
    const object = this.pages.rowAt(index);
    if (!object) return;
    this.active = index;
    this.onChoose(object.key);
  }
}

function newRow() {
  return element('div', { role: 'row', class: 'row' }, ...COLUMNS.map(() => element('span', { role: 'gridcell' })));
}
