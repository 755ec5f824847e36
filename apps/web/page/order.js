// SPDX-License-Identifier: GPL-3.0-or-later
// The order of the files in a folder, which this browser remembers, and the search by name.
import {keyOf} from './address.js';
import {byId, remember, remembered} from './dom.js';

const collator = new Intl.Collator(undefined, {numeric: true});
const choice = byId('order');

// A list comes sorted by name, character by character; sorting is stable.
const comparisons = {
  natural: (one, other) => collator.compare(one.name, other.name),
  name: () => 0,
  taken: (one, other) => one.time - other.time,
  newest: (one, other) => other.modified - one.modified,
};

if (comparisons[remembered('localStorage', 'order')]) choice.value = remembered('localStorage', 'order');

export const needsDates = () => choice.value === 'taken';

export function onChange(act) {
  choice.addEventListener('change', () => {
    remember('localStorage', 'order', choice.value);
    act();
  });
}

// Cameras give no time zone: their clock counts as the time here, to compare it with the time of files without a date.
const timeOf = (file, taken) => Date.parse(taken[keyOf(file)]) / 1000 || file.modified;

// The files, ordered; `taken` are the dates that are known.
export function ordered(files, taken) {
  const timed = needsDates() ? files.map((file) => ({...file, time: timeOf(file, taken)})) : [...files];
  return timed.sort(comparisons[choice.value]);
}

// Letters without their marks, in lower case.
const plain = (text) => text.normalize('NFKD').replace(/\p{M}/gu, '').toLowerCase();

export function matching(entries, words) {
  const wanted = plain(words).split(/\s+/).filter((word) => word);
  if (wanted.length === 0) return entries;
  return entries.filter(({name}) => wanted.every((word) => plain(name).includes(word)));
}
