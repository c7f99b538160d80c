// The part of the manager's list of objects that the page holds: pages of rows, by their place.

import * as api from './api.js';

export const PAGE = 100;
const KEPT = 20;
const ALL = 4294967295;

export class Pages {
  constructor(filter) {
    this.filter = filter;
    this.pages = new Map();
    // Where a page begins: what the manager called `next` at the end of the page before.
    this.cursors = new Map([[0, undefined]]);
    // The rows of the list, as far as anybody has counted them.
    this.total = 0;
  }

  rowAt(index) {
    return this.pages.get(Math.floor(index / PAGE))?.rows[index % PAGE];
  }

  rows() {
    return [...this.pages.values()].flatMap(({ rows }) => rows);
  }

  /** The first of these pages that is to be read, or undefined. */
  firstMissing(begin, end) {
    for (let page = begin; page <= end; ++page) {
      const held = this.pages.get(page);
      if (!held || held.stale) return page;
    }
    return undefined;
  }

  /** From now on, every page is to be read again; until then its rows stay. */
  expire() {
    for (const page of this.pages.values()) page.stale = true;
    // The list may have grown beyond what was its end.
    for (const [page, cursor] of this.cursors) {
      if (cursor === null) this.cursors.delete(page);
    }
  }

  async read(page) {
    const held = this.pages.get(page) ?? { rows: [] };
    held.stale = false;
    const begin = await this.#cursor(page);
    let after = begin;
    const rows = [];
    while (after !== null && rows.length < PAGE) {
      const answer = await api.objects({ ...this.filter, after, limit: PAGE - rows.length });
      rows.push(...answer.objects);
      after = answer.next;
    }
    held.rows = rows;
    this.pages.delete(page);
    this.pages.set(page, held);  // The last one in the map is the newest.
    for (const oldest of this.pages.keys()) {
      if (this.pages.size > KEPT) this.pages.delete(oldest);
    }
    const seen = page * PAGE + rows.length;
    this.atEnd = after === null;
    // A page beyond the end does not say where the end is.
    if (begin !== null) this.total = this.atEnd ? seen : Math.max(this.total, seen);
    this.#begin(page + 1, after);
  }

  /** Counts the list. */
  async count() {
    this.total = (await this.#skip(undefined, ALL)).skipped;
  }

  // Remembers where a page begins. If it began elsewhere before, its rows have moved.
  #begin(page, cursor) {
    const held = this.pages.get(page);
    if (held && this.cursors.get(page) !== cursor) held.stale = true;
    this.cursors.set(page, cursor);
  }

  async #cursor(page) {
    if (this.cursors.has(page)) return this.cursors.get(page);
    let near = 0;
    for (const each of this.cursors.keys()) {
      if (each < page && each > near) near = each;
    }
    const begin = this.cursors.get(near);
    const { after, skipped } = await this.#skip(begin, (page - near) * PAGE);
    if (after === null && begin !== null) this.total = near * PAGE + skipped;
    this.#begin(page, after);
    return after;
  }

  // Skips rows. `after` is null at the end of the list.
  async #skip(after, rows) {
    let skipped = 0;
    // The answer has a row at least, so the last one to skip is read.
    while (after !== null && skipped < rows) {
      const answer = await api.objects({ ...this.filter, after, skip: rows - skipped - 1, limit: 1 });
      skipped += answer.skipped + answer.objects.length;
      after = answer.next;
    }
    return { after, skipped };
  }
}
