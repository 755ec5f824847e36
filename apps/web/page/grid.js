// SPDX-License-Identifier: GPL-3.0-or-later
// The tiles of a folder. Only those in view and next to it are in the document: a folder may have any number of files.
import * as address from './address.js';
import {byId, coalesced, make, placeholder} from './dom.js';
import {fetchLength, hasPicture, sources} from './list.js';
import {enqueue, forget} from './loader.js';

const grid = byId('grid');
const mostTiles = 399;   // and the one that has the focus
const heightRatio = 1.12;  // of a tile, as in the style sheet

let files = [];
let layout = {columns: 1, rowHeight: 1, sizes: ''};
const items = new Map();  // those in the document, by the indexes of their files

// A tile shows the middle of a picture of up to 3:2, which is larger than the tile. Twice the density of a plain screen
// is as sharp as people see.
const sizesOf = (width) => `${Math.ceil(width * 1.5 * Math.min(1, 2 / devicePixelRatio))}px`;

function measure() {
  const style = getComputedStyle(grid);
  const tracks = style.gridTemplateColumns.split(' ');
  const width = parseFloat(tracks[0]);
  layout = {columns: tracks.length, rowHeight: width * heightRatio + parseFloat(style.rowGap), sizes: sizesOf(width)};
  grid.style.height = `${Math.ceil(files.length / layout.columns) * layout.rowHeight}px`;
}

export const columns = () => layout.columns;
export const count = () => files.length;
const rowOf = (index) => Math.floor(index / layout.columns);
const topOf = (row) => grid.getBoundingClientRect().top + row * layout.rowHeight;

// ---- One tile
// The name below a picture is hidden from screen readers, which already read it as the picture's text.
function pictureOf(file, name) {
  if (!hasPicture(file)) return placeholder('Video');
  name.setAttribute('aria-hidden', true);
  const image = make('img', {alt: file.name, width: 360, height: 360, decoding: 'async'});
  enqueue(image, sources(file, ['small', 'medium', 'big'], layout.sizes), () => {
    image.replaceWith(placeholder('Cannot be shown'));
    name.removeAttribute('aria-hidden');
  });
  return image;
}

function makeItem(index) {
  const file = files[index];
  const name = make('span', {class: 'name', dir: 'auto'}, file.name);
  const link = make('a', {class: file.kind === 'video' ? 'tile film' : 'tile', href: address.ofFile(file),
    title: file.name, 'data-index': index}, pictureOf(file, name), name);
  if (file.kind === 'video') fetchLength(file).then((length) => { link.dataset.length = length; });
  const item = make('li', {'aria-setsize': files.length, 'aria-posinset': index + 1}, link);
  items.set(index, item);
  return item;
}

function place(item, index) {
  const column = index % layout.columns + 1;
  item.style.gridColumn = `${column} / ${column + 1}`;
  item.style.top = `${rowOf(index) * layout.rowHeight}px`;
}

function remove(index) {
  const image = items.get(index).querySelector('img');
  items.get(index).remove();
  items.delete(index);
  if (image) forget(image);
}

// ---- Those in the document
// The rows in view, and as many before and after them as there may be.
function rowsToShow() {
  const first = Math.floor(-topOf(0) / layout.rowHeight);
  const inView = Math.ceil(innerHeight / layout.rowHeight) + 1;
  const spare = Math.floor((mostTiles / layout.columns - inView) / 2);
  const around = Math.max(0, Math.min(inView, spare));
  return [first - around, first + inView + around];
}

function indexesToShow() {
  const [from, to] = rowsToShow().map((row) => Math.max(0, Math.min(row * layout.columns, files.length)));
  const indexes = Array.from({length: Math.min(to - from, mostTiles)}, (_, offset) => from + offset);
  const focused = indexOf(document.activeElement);
  return focused === -1 || (focused >= from && focused < to) ? indexes : [...indexes, focused].sort((a, b) => a - b);
}

function render() {
  const indexes = indexesToShow();
  const wanted = new Set(indexes);
  for (const index of [...items.keys()]) if (!wanted.has(index)) remove(index);
  let last = null;
  for (const index of indexes) {
    const item = items.get(index) ?? makeItem(index);
    place(item, index);
    const next = last ? last.nextSibling : grid.firstChild;
    if (item !== next) grid.insertBefore(item, next);
    last = item;
  }
}

const renderSoon = coalesced(requestAnimationFrame, render);
addEventListener('scroll', renderSoon, {passive: true});
addEventListener('resize', renderSoon);

// After a change of width, the first row in view has the same file as before.
let width = 0;
new ResizeObserver(() => {
  if (grid.hidden || grid.clientWidth === width) return;
  width = grid.clientWidth;
  const first = Math.floor(-topOf(0) / layout.rowHeight) * layout.columns;
  measure();
  if (first > 0) scrollBy(0, topOf(rowOf(first)));
  render();
}).observe(grid);

// ---- For the page
export function show(shown) {
  for (const index of [...items.keys()]) remove(index);
  files = shown;
  grid.hidden = files.length === 0;
  if (grid.hidden) return;
  measure();
  render();
}

// The index of the file whose tile this is, or -1.
export function indexOf(element) {
  return grid.contains(element) ? Number(element.dataset.index ?? -1) : -1;
}

// The picture of a file as its tile shows it; nothing if the tile has none yet.
export function loadedPicture(index) {
  const image = items.get(index)?.querySelector('img');
  return image?.naturalWidth ? image.currentSrc : undefined;
}

// Scrolls as far as it takes to have the tile in view, and focuses it.
export function focus(index) {
  const top = topOf(rowOf(index)), bottom = top + layout.rowHeight;
  if (top < 0) scrollBy(0, top);
  else if (bottom > innerHeight) scrollBy(0, bottom - innerHeight);
  render();
  items.get(index).firstChild.focus({preventScroll: true});
}
