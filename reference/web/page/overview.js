// What the manager says about itself: the HAL, a reinstall, the objects by kind and state.

import { link } from './address.js';
import { age, clock, counted, duration, element, number } from './text.js';

// The words of `zuskux-manager status`, each with how good that is.
function conditionOf({ settled, connected, finished, in_sync }) {
  if (settled) return { words: 'settled', mood: 'good' };
  if (!connected) return { words: 'no connection to the HAL: the states are the last known ones', mood: 'bad' };
  if (!finished) return { words: 'at work', mood: 'busy' };
  return { words: in_sync ? 'some objects failed' : 'NOT in sync with the HAL', mood: 'bad' };
}

// A text that screen readers announce: written only when it changes.
function say(place, text) {
  if (place.textContent !== text) place.textContent = text;
}

function facts(status) {
  const { connection, hal, now_ms } = status;
  const last = status.reinstall.last;
  const at = (ms, suffix = '') => `${clock(ms)} (${age(now_ms - ms)}${suffix})`;
  const since = connection.since_ms === null ? '' : ` since ${at(connection.since_ms)}`;
  return [
    ['Site', status.site],
    ['Connection', element('span', { class: connection.up ? 'good' : 'bad' },
      `${connection.up ? 'up' : 'down'}${since}`)],
    ['Last in sync', connection.last_in_sync_ms === null ? 'never' : at(connection.last_in_sync_ms, ' ago')],
    ['Server', connection.server || 'none found yet'],
    ['Generation', connection.generation || 'none'],
    ['HAL', hal.name],
    ['Restarts', number(hal.restarts)],
    ['Requests', `${number(hal.requests)}, ${number(hal.refused)} refused`],
    ['Last reinstall', last === null
      ? 'none yet'
      : `${counted(last.objects, 'object')} in ${duration(last.duration_ms)}, at ${clock(last.ended_ms)}`],
    ['Refused reload', status.refused_reload &&
      `${status.refused_reload.time}: ${status.refused_reload.reason}`],
  ].filter(([, fact]) => fact);
}

function listOf(kind, state) {
  return link({ view: '', kind, state, q: '' });
}

// What needs attention is first.
const STATES = ['failed', 'pending', 'inactive', 'installed', 'sent', 'removed'];

// "mpls  20  6 failed  14 installed": each a link to the objects that it counts.
function countsOf(kind, counts) {
  const shown = STATES.filter((state) => counts[state] > 0);
  const sum = STATES.filter((state) => state !== 'removed').reduce((total, state) => total + counts[state], 0);
  return element('tr', {},
    element('th', { scope: 'row' }, element('a', { href: listOf(kind, '') }, kind || 'all')),
    element('td', { class: 'number' }, number(sum)),
    element('td', {}, ...shown.map((state) => element('a', { href: listOf(kind, state), class: `state state-${state}` },
      `${number(counts[state])} ${state}`))));
}

export class Overview {
  constructor() {
    for (const id of ['news', 'condition', 'connection', 'reinstall', 'counts']) {
      this[id] = document.getElementById(id);
    }
    this.bar = document.getElementById('reinstall-bar');
    this.progress = document.getElementById('reinstall-text');
  }

  /** Shows the status, as /api/status gives it. */
  show(status) {
    document.documentElement.classList.remove('gone');
    this.answeredAt = Date.now();
    say(this.news, '');
    const { words, mood } = conditionOf(status);
    this.condition.className = mood;
    say(this.condition, words);
    document.title = `${words} · zuskux-manager`;
    this.connection.replaceChildren(...facts(status).flatMap(([name, fact]) =>
      [element('dt', {}, name), element('dd', {}, fact)]));
    this.#showReinstall(status);
    this.#showCounts(status.objects);
  }

  /** The manager sends nothing: everything shown is as it was. */
  showGone() {
    document.documentElement.classList.add('gone');
    document.title = 'no news · zuskux-manager';
    say(this.condition, '');
    const since = this.answeredAt ? ` since ${clock(this.answeredAt)}` : '';
    say(this.news, `No news from the manager${since}. Trying again.`);
  }

  #showReinstall({ reinstall, now_ms }) {
    this.reinstall.hidden = !reinstall.running;
    if (!reinstall.running) return;
    this.bar.max = Math.max(1, reinstall.total);
    this.bar.value = reinstall.done;
    this.progress.textContent = `Reinstall: ${number(reinstall.done)} of ${counted(reinstall.total, 'object')}` +
      ` in ${duration(Math.max(0, now_ms - reinstall.started_ms))}`;
  }

  #showCounts(counts) {
    const text = JSON.stringify(counts);
    if (this.countsShown === text) return;
    this.countsShown = text;
    const kinds = Object.entries(counts);
    const all = Object.fromEntries(STATES.map((state) =>
      [state, kinds.reduce((sum, [, of]) => sum + of[state], 0)]));
    // A link that is replaced must not lose the focus.
    const focused = this.counts.contains(document.activeElement) && document.activeElement.getAttribute('href');
    this.counts.replaceChildren(element('tbody', {},
      ...kinds.map(([kind, of]) => countsOf(kind, of)), countsOf('', all)));
    if (focused) [...this.counts.querySelectorAll('a')].find((a) => a.getAttribute('href') === focused)?.focus();
  }
}
