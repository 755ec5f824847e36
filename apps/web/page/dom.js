// SPDX-License-Identifier: GPL-3.0-or-later
// Elements, and what the browser remembers. Text goes into the page as text and as attributes, never as markup.

export const byId = (id) => document.getElementById(id);

export function make(tag, attributes, ...content) {
  const element = document.createElement(tag);
  for (const [name, value] of Object.entries(attributes)) element.setAttribute(name, value);
  element.append(...content);
  return element;
}

export const placeholder = (text) => make('span', {class: 'placeholder'}, text);
export const counted = (count, one, many) => `${count} ${count === 1 ? one : many}`;
export const isModified = (event) => event.ctrlKey || event.metaKey || event.altKey;

// A function that has `act` run once, at the next time that `schedule` gives, however often it is called before.
export function coalesced(schedule, act) {
  let isScheduled = false;
  const run = () => {
    isScheduled = false;
    act();
  };
  return () => {
    if (!isScheduled) schedule(run);
    isScheduled = true;
  };
}

// A browser may forbid its storage; nothing is remembered then.
function attempt(act) {
  try {
    return act();
  } catch {
    return null;
  }
}

export const remembered = (storage, key) => attempt(() => window[storage].getItem(key));
export const remember = (storage, key, value) => attempt(() => window[storage].setItem(key, value));
