// SPDX-License-Identifier: GPL-3.0-or-later
// Arrow keys move through the rows of folders and pictures; each of the two continues into the other.
import {byId, isModified} from './dom.js';
import * as grid from './grid.js';

const folders = byId('folders');

const links = () => [...folders.querySelectorAll('a')];
const columnsOf = (list) => getComputedStyle(list).gridTemplateColumns.split(' ').length;

function focus(position, folderLinks) {
  if (position < folderLinks.length) folderLinks[position].focus();
  else grid.focus(position - folderLinks.length);
}

// The position of an element among the folders and the files after them, or -1.
function positionOf(element, folderLinks) {
  const index = grid.indexOf(element);
  return index === -1 ? folderLinks.indexOf(element) : folderLinks.length + index;
}

function target(position, key, folderLinks) {
  const border = folderLinks.length, count = border + grid.count();
  const isFolder = position < border;
  const columns = isFolder ? columnsOf(folders) : grid.columns();
  const steps = {ArrowLeft: -1, ArrowRight: 1, ArrowUp: -columns, ArrowDown: columns, Home: -count, End: count};
  if (!(key in steps)) return -1;
  const next = Math.max(0, Math.min(position + steps[key], count - 1));
  if (!key.startsWith('Arrow') || (next < border) === isFolder) return next;
  return isFolder ? border : border - 1;
}

addEventListener('keydown', (event) => {
  const isElsewhere = byId('viewer').open || event.target.matches('input, select');
  if (isElsewhere || isModified(event) || event.shiftKey) return;
  const folderLinks = links();
  const position = positionOf(document.activeElement, folderLinks);
  const starts = ['ArrowRight', 'ArrowDown'].includes(event.key) && folderLinks.length + grid.count() > 0;
  const next = position !== -1 ? target(position, event.key, folderLinks) : starts ? 0 : -1;
  if (next === -1) return;
  event.preventDefault();
  focus(next, folderLinks);
});
