// The plot of the last minutes: requests and results per second.

import { clock, element, number } from './text.js';

const SVG = 'http://www.w3.org/2000/svg';
const SECONDS = 300;
const LEAST_MS = 900;
const WIDTH = 600;
const HEIGHT = 120;
const LINES = [
  { counter: 'requests', word: 'requests' },
  { counter: 'results', word: 'results' },
];

function shape(tag, attributes, text) {
  const made = document.createElementNS(SVG, tag);
  for (const [name, value] of Object.entries(attributes)) made.setAttribute(name, value);
  if (text !== undefined) made.textContent = text;
  return made;
}

// The least of 1, 2, 5, 10, 20 ... that is not below `value`.
function roundUp(value) {
  const power = 10 ** Math.floor(Math.log10(Math.max(1, value)));
  return [1, 2, 5, 10].map((factor) => factor * power).find((limit) => limit >= value);
}

export class RatePlot {
  /** @param {HTMLElement} place where the plot goes; its content is replaced. */
  constructor(place) {
    this.samples = [];
    this.svg = shape('svg', { viewBox: `0 0 ${WIDTH} ${HEIGHT}`, role: 'img', preserveAspectRatio: 'none' });
    this.paths = LINES.map(({ counter }) => shape('path', { class: `line line-${counter}` }));
    this.svg.append(shape('path', { class: 'axis', d: `M0 ${HEIGHT}H${WIDTH}M0 1H${WIDTH}` }), ...this.paths);
    this.begin = element('span');
    this.limit = element('span');
    this.legend = element('p', { class: 'plot-legend' });
    place.replaceChildren(element('p', { class: 'plot-scale' }, this.begin, this.limit), this.svg, this.legend);
  }

  /** Begins again with what the manager has kept. */
  reset(samples) {
    this.samples = [];
    for (const { time_ms, ...counters } of samples) this.#keep(time_ms, counters);
    if (this.samples.length > 0) this.#draw();
  }

  /** Adds the counters at a time, if that is at least a second after the last one. */
  add(ms, counters) {
    this.#keep(ms, counters);
    this.#draw();
  }

  #keep(ms, counters) {
    if (this.samples.length > 0 && ms - this.samples.at(-1).ms < LEAST_MS) return;
    this.samples.push({ ms, counters });
    while (ms - this.samples[0].ms > SECONDS * 1000) this.samples.shift();
  }

  #rates(counter) {
    return this.samples.slice(1).map((sample, index) => {
      const before = this.samples[index];
      const seconds = (sample.ms - before.ms) / 1000;
      return { ms: sample.ms, rate: (sample.counters[counter] - before.counters[counter]) / seconds };
    });
  }

  #draw() {
    const rates = LINES.map(({ counter }) => this.#rates(counter));
    const peak = Math.max(0, ...rates.flat().map(({ rate }) => rate));
    const limit = roundUp(peak);
    const end = this.samples.at(-1).ms;
    rates.forEach((line, index) => {
      const points = line.map(({ ms, rate }) => {
        const x = WIDTH * (1 - (end - ms) / (SECONDS * 1000));
        return `${x.toFixed(1)} ${(HEIGHT - (HEIGHT - 1) * (rate / limit)).toFixed(1)}`;
      });
      this.paths[index].setAttribute('d', points.length > 0 ? `M${points.join('L')}` : '');
    });
    const now = LINES.map(({ word }, index) => ({ word, rate: rates[index].at(-1)?.rate ?? 0 }));
    this.begin.textContent = `since ${clock(this.samples[0].ms)}`;
    this.limit.textContent = `${number(limit)}/s`;
    this.legend.replaceChildren(
      ...now.map(({ word, rate }) => element('span', { class: `key key-${word}` }, `${word} ${number(rate)}/s`)));
    this.svg.setAttribute('aria-label',
      `The last ${SECONDS / 60} minutes; peak ${number(peak)} per second. Now: ` +
      now.map(({ word, rate }) => `${number(rate)} ${word} per second`).join(', '));
  }
}
