// The drawing of an object's neighbourhood.

import { link } from './address.js';

const SVG = 'http://www.w3.org/2000/svg';
const TAGS = new Set(['svg', 'g', 'a', 'title', 'text', 'polygon', 'polyline', 'ellipse', 'path']);
const ATTRIBUTES = new Set(['viewBox', 'class', 'transform', 'points', 'd', 'cx', 'cy', 'rx', 'ry', 'x', 'y',
  'text-anchor', 'font-size', 'stroke-dasharray']);
const PIXELS_PER_POINT = 4 / 3;

// Copies what a drawing consists of, and no more.
function copy(node) {
  if (node.nodeType === Node.TEXT_NODE) return document.createTextNode(node.data);
  if (node.nodeType !== Node.ELEMENT_NODE || !TAGS.has(node.localName)) return null;
  const made = document.createElementNS(SVG, node.localName);
  for (const { name, value } of node.attributes) {
    if (ATTRIBUTES.has(name)) made.setAttribute(name, value);
  }
  if (node.localName === 'a') {
    made.setAttribute('href', link({ object: node.closest('.node')?.id ?? '' }));
    made.setAttribute('aria-label', [...node.querySelectorAll('text')].map((text) => text.textContent).join(', '));
  }
  made.append(...[...node.childNodes].map((child) => copy(child)).filter((child) => child !== null));
  return made;
}

/**
 * Turns the manager's SVG into an element of the page.
 *
 * @param {string} chosen the key of the object in the middle.
 */
export function drawingOf(text, chosen) {
  const parsed = new DOMParser().parseFromString(text, 'image/svg+xml').documentElement;
  const svg = copy(parsed);
  if (svg?.localName !== 'svg') throw new Error('the manager sent no drawing');
  svg.setAttribute('role', 'group');
  svg.setAttribute('aria-label', `What ${chosen} rides on, and what rides on it`);
  // In a narrow place it shrinks a little, then scrolls.
  const width = parseFloat(parsed.getAttribute('width')) * PIXELS_PER_POINT;
  svg.setAttribute('width', width);
  svg.style.minWidth = `${0.75 * width}px`;
  for (const node of svg.querySelectorAll('.node')) {
    node.classList.toggle('chosen', node.querySelector('title')?.textContent === chosen);
  }
  return svg;
}
