// The manager's API: a function for each path that the page asks.

// The manager reads up to 131,072 objects for one answer, which takes a busy one a moment.
const PATIENCE_MS = 10_000;

/** The manager's answer says what is wrong with the question. */
export class Refusal extends Error {
  constructor(status, message) {
    super(message);
    this.status = status;
  }
}

async function ask(path, parameters = {}) {
  const given = Object.entries(parameters).filter(([, value]) => value !== '' && value !== undefined);
  const query = new URLSearchParams(given).toString();
  const answer = await fetch(query ? `${path}?${query}` : path, { signal: AbortSignal.timeout(PATIENCE_MS) });
  if (answer.ok) return answer;
  const { error } = await answer.json().catch(() => ({ error: `HTTP status ${answer.status}` }));
  throw new Refusal(answer.status, error);
}

const json = async (...question) => (await ask(...question)).json();

// "mpls:232" is api/objects/mpls/232.
const objectPath = (key) => `api/objects/${key.split(':').map(encodeURIComponent).join('/')}`;

export const EVENTS = 'api/events';
export const rates = () => json('api/rates');
export const objects = (parameters) => json('api/objects', parameters);
export const object = (key) => json(objectPath(key));
export const explanation = (key) => json(`${objectPath(key)}/explain`);
export const changes = (parameters) => json('api/changes', parameters);
export const graph = (key, depth) => json('api/graph', { around: key, depth, format: 'json' });
export const drawing = async (key, depth) => (await ask('api/graph', { around: key, depth })).text();
