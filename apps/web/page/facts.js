// SPDX-License-Identifier: GPL-3.0-or-later
// What is known of the file in the viewer, shown on request. What is not known is left out.
import {byId, make, remember, remembered} from './dom.js';
import {clock, fetchFacts} from './list.js';

const panel = byId('facts'), button = byId('info');
let current = null;

const size = (bytes) => (bytes < 1e6 ? `${Math.ceil(bytes / 1e3)} KB` : `${(bytes / 1e6).toFixed(1)} MB`);
const time = (date, timeZone) => date.toLocaleString(undefined, {dateStyle: 'long', timeStyle: 'short', timeZone});

// The camera's clock has no time zone: its time is shown as it is.
const rows = (file, facts) => [
  ['Taken', facts.taken && time(new Date(`${facts.taken}Z`), 'UTC')],
  ['Camera', facts.camera], ['Lens', facts.lens], ['Exposure', facts.exposure], ['Place', facts.place],
  ['Length', facts.duration && clock(facts.duration)],
  ['Size', facts.width ? `${facts.width} × ${facts.height} pixels` : ''],
  ['File', `${file.type.toUpperCase()}, ${size(file.bytes)}`],
  ['Changed', time(new Date(file.modified * 1000))],
  ['Note', facts.problem],
];

function fill(file, facts) {
  const known = rows(file, facts).filter(([, value]) => value);
  panel.replaceChildren(...known.flatMap(([name, value]) => [make('dt', {}, name), make('dd', {dir: 'auto'}, value)]));
}

// Pictures that are shown on their side have their width and height swapped.
const upright = (facts) => (facts.rotation % 2 ? {...facts, width: facts.height, height: facts.width} : facts);

async function fetchOrExplain(file) {
  try {
    return upright(await fetchFacts(file));
  } catch (error) {
    return {problem: error.message};
  }
}

async function update() {
  const isOpen = remembered('sessionStorage', 'facts') === 'open';
  panel.hidden = !isOpen;
  button.setAttribute('aria-expanded', isOpen);
  if (!isOpen || !current) return;
  const file = current;
  const facts = await fetchOrExplain(file);
  if (file === current) fill(file, facts);
}

export function show(file) {
  current = file;
  panel.replaceChildren();
  update();
}

export function toggle() {
  remember('sessionStorage', 'facts', panel.hidden ? 'open' : 'closed');
  update();
}

button.addEventListener('click', toggle);
