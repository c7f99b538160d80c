// Wires the parts of the page: the address bar says what to show, and the manager's events say when
// to show it again.

import { Address } from './address.js';
import * as api from './api.js';
import { Changes } from './changes.js';
import { Detail } from './detail.js';
import { Events } from './events.js';
import { ObjectList } from './list.js';
import { Overview } from './overview.js';
import { RatePlot } from './plot.js';
import { element } from './text.js';

const TYPING_MS = 200;
const place = (id) => document.getElementById(id);

const overview = new Overview();
const plot = new RatePlot(place('rates'));
const list = new ObjectList(place('list'), place('objects-summary'), (key) => address.go({ object: key }));
const changes = new Changes(place('changes-list'), place('changes-summary'));
const detail = new Detail(place('detail'));
const search = place('filter-q');
const choices = { kind: place('filter-kind'), state: place('filter-state') };

function offer(select, values) {
  const offered = [...select.options].map((option) => option.value);
  select.append(...values.filter((value) => !offered.includes(value)).map((value) => element('option', { value }, value)));
}

function choose(select, value) {
  offer(select, [value]);
  select.value = value;
}

let listed;
let chosen;
const address = new Address(({ object, view, kind, state, q }) => {
  const isList = view !== 'changes';
  place('objects').hidden = search.hidden = choices.kind.hidden = !isList;
  place('changes').hidden = isList;
  place('view-objects').setAttribute('aria-current', isList);
  place('view-changes').setAttribute('aria-current', !isList);
  if (document.activeElement !== search) search.value = q;
  choose(choices.kind, kind);
  choose(choices.state, state);
  const wanted = JSON.stringify([isList, kind, state, q]);
  if (wanted !== listed) {
    // On a small screen, the list may be out of sight.
    if (listed && !chosen) place('browse').scrollIntoView();
    listed = wanted;
    if (isList) list.show({ kind, state, q });
    else changes.show(state);
  }
  if (object !== chosen) {
    list.mark(object);
    detail.show(object);
    document.body.classList.toggle('chosen', object !== '');
    if (chosen !== undefined) place(object ? 'detail' : 'browse').scrollIntoView();
    if (chosen !== undefined && object) place('detail').focus({ preventScroll: true });
    chosen = object;
  }
});

let typing;
search.addEventListener('input', () => {
  clearTimeout(typing);
  typing = setTimeout(() => address.go({ q: search.value.trim() }, { replace: true }), TYPING_MS);
});
for (const [field, select] of Object.entries(choices)) {
  select.addEventListener('change', () => address.go({ [field]: select.value }));
}
place('filter').addEventListener('submit', (event) => event.preventDefault());
document.addEventListener('keydown', (event) => {
  if (event.ctrlKey || event.metaKey || event.altKey) return;
  if (event.key === '/' && !event.target.matches('input, select')) {
    event.preventDefault();
    search.focus();
  } else if (event.key === 'Escape' && !event.target.matches('input, select')) {
    address.go({ object: '' });
    place('list').focus();
  } else if (event.key === 'ArrowDown' && event.target === search) {
    event.preventDefault();
    place('list').focus();
  }
});

let program;
const events = {
  async hello(hello) {
    // Another version of the program has another page.
    if (program !== undefined && program !== hello.program) location.reload();
    program = hello.program;
    plot.reset((await api.rates()).samples);
    list.refresh();
    changes.refresh();
    detail.refresh();
  },
  status(status) {
    overview.show(status);
    plot.add(status.now_ms, status.hal);
    list.setCounts(status.objects);
    offer(choices.kind, Object.keys(status.objects));
    offer(choices.state, Object.keys(Object.values(status.objects)[0]));
  },
  objects(objects) {
    list.update(objects);
    changes.refresh();
    detail.update(objects);
  },
  missed() {
    list.refresh();
    changes.refresh();
    detail.refresh();
  },
  silent() {
    overview.showGone();
  },
};

address.start();
new Events(events);
