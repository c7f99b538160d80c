// How the page writes: elements, numbers and times.

/**
 * Makes an element. Strings among the children become text, never markup, whatever names and
 * messages contain; the manager has made control characters visible in them. Children that are
 * null or undefined are left out.
 */
export function element(tag, attributes = {}, ...children) {
  const made = document.createElement(tag);
  for (const [name, value] of Object.entries(attributes)) made.setAttribute(name, value);
  made.append(...children.filter((child) => child !== null && child !== undefined));
  return made;
}

const grouped = new Intl.NumberFormat('en', { maximumFractionDigits: 0 });

/** "1,204". */
export function number(value) {
  return grouped.format(value);
}

/** "1 object", "1,204 objects". */
export function counted(value, noun) {
  return `${number(value)} ${noun}${value === 1 ? '' : 's'}`;
}

/** "1.5 ms", "350 ms", "3.2 s", "4 min 10 s". */
export function duration(ms) {
  if (ms < 10) return `${ms.toFixed(1)} ms`;
  if (ms < 1000) return `${Math.round(ms)} ms`;
  const seconds = Math.floor(ms / 1000);
  if (seconds < 60) return `${(ms / 1000).toFixed(1)} s`;
  return `${Math.floor(seconds / 60)} min ${seconds % 60} s`;
}

/** "12 s", "4 min", "2 h", "3 d". */
export function age(ms) {
  const seconds = Math.max(0, Math.floor(ms / 1000));
  if (seconds < 60) return `${seconds} s`;
  if (seconds < 3600) return `${Math.floor(seconds / 60)} min`;
  return seconds < 86400 ? `${Math.floor(seconds / 3600)} h` : `${Math.floor(seconds / 86400)} d`;
}

/** "15:04:05" today, else "2024-05-17 15:04:05", in the browser's time zone. */
export function clock(ms) {
  const two = (value) => String(value).padStart(2, '0');
  const time = new Date(ms);
  const hours = `${two(time.getHours())}:${two(time.getMinutes())}:${two(time.getSeconds())}`;
  if (time.toDateString() === new Date().toDateString()) return hours;
  return `${time.getFullYear()}-${two(time.getMonth() + 1)}-${two(time.getDate())} ${hours}`;
}

/** The word for a state, with its colour. */
export function stateWord(state) {
  return element('span', { class: `state state-${state}` }, state);
}
