// What the address bar names: the chosen object, the list and its filter, as in
// "#object=mpls:232&state=failed".

const FIELDS = ['object', 'view', 'kind', 'state', 'q'];

function textOf(fields) {
  return `#${new URLSearchParams(fields).toString().replaceAll('%3A', ':')}`;
}

function fieldsIn(hash) {
  const given = new URLSearchParams(hash.slice(1));
  return Object.fromEntries(FIELDS.filter((field) => given.has(field)).map((field) => [field, given.get(field)]));
}

/** A link that changes these fields and keeps the others. */
export function link(changes) {
  return textOf(changes);
}

export class Address {
  /** Calls `onChange` with all fields whenever one changes. `start` calls it for the first time. */
  constructor(onChange) {
    this.onChange = onChange;
    addEventListener('popstate', () => this.start());
    document.addEventListener('click', (event) => {
      const href = event.target.closest?.('a')?.getAttribute('href');
      if (!href?.startsWith('#') || event.ctrlKey || event.metaKey || event.shiftKey || event.button !== 0) return;
      event.preventDefault();
      this.go(fieldsIn(href));
    });
  }

  start() {
    this.fields = { ...Object.fromEntries(FIELDS.map((field) => [field, ''])), ...fieldsIn(location.hash) };
    this.onChange(this.fields);
  }

  /** Changes some fields. The back button returns, unless `replace`. */
  go(changes, { replace = false } = {}) {
    const fields = { ...this.fields, ...changes };
    if (FIELDS.every((field) => fields[field] === this.fields[field])) return;
    this.fields = fields;
    const text = textOf(FIELDS.filter((field) => fields[field]).map((field) => [field, fields[field]]));
    history[replace ? 'replaceState' : 'pushState'](null, '', text);
    this.onChange(fields);
  }
}
