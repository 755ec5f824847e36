// SPDX-License-Identifier: GPL-3.0-or-later
// The viewer: one file at a time. The page opens and closes it, so that each file has an address.
import {byId, isModified, make, placeholder, remember, remembered} from './dom.js';
import * as facts from './facts.js';
import {download, hasPicture, original, sources, thumb} from './list.js';
import {pause, reloadWhileBusy, setSources} from './loader.js';
import * as zoom from './zoom.js';

const viewer = byId('viewer'), sheet = byId('sheet');

let files = [];
let current = 0;
let react = {};           // to the user: step to a file, close; and what the grid has loaded: tilePicture
let ahead = new Map();    // pictures of the files before and after the current one, by their addresses

// ---- Pictures
// Quarter turns clockwise, for this session.
const turnsOf = (file) => Number(remembered('sessionStorage', `turns ${file.url}`));
const rotation = (file) => (turnsOf(file) ? `&rotate=${turnsOf(file)}` : '');
const parameters = (file) => rotation(file) + (file.type === 'gif' ? '&animate=1' : '');

function makePicture(file) {
  const image = make('img', {alt: file.name, class: 'large', fetchpriority: 'high', draggable: false});
  const large = sources(file, ['big', 'large'], '100vw', parameters(file));
  const load = () => setSources(image, large);
  reloadWhileBusy(image, load, () => image.replaceWith(placeholder('Cannot be shown')));
  load();
  return image;
}

// Loaded ahead, unless that has failed.
function pictureOf(file) {
  const image = ahead.get(thumb(file, 'large', parameters(file)));
  return image && (image.naturalWidth || !image.complete) ? image : makePicture(file);
}

function loadNeighbours() {
  const near = [files[current + 1], files[current - 1], files[current]].filter((file) => file && hasPicture(file));
  ahead = new Map(near.map((file) => [thumb(file, 'large', parameters(file)), pictureOf(file)]));
}

// The tile's picture below the large one until that has come, turned like it.
function standIn(file) {
  const image = make('img', {alt: '', class: 'stand-in', draggable: false, 'data-turns': turnsOf(file)});
  image.src = react.tilePicture(current) ?? thumb(file, 'medium');
  return image;
}

function showPicture(file) {
  const image = pictureOf(file);
  if (image.complete && image.naturalWidth) {
    sheet.replaceChildren(image);
    loadNeighbours();
    return;
  }
  const below = standIn(file);
  image.addEventListener('load', () => {
    below.remove();
    if (image.isConnected) loadNeighbours();
  });
  image.addEventListener('error', () => below.remove());
  sheet.replaceChildren(below, image);
}

// ---- Videos
function showStill(file) {
  if (hasPicture(file)) showPicture(file);
  else sheet.replaceChildren(placeholder('Video'));
}

// One that the browser can't play is shown as its picture.
function showVideo(file) {
  const video = make('video', {controls: '', playsinline: '', preload: 'metadata', src: original(file),
    'aria-label': file.name});
  if (hasPicture(file)) video.poster = thumb(file, 'large');
  video.addEventListener('error', () => { if (video.isConnected) showStill(file); });
  sheet.replaceChildren(video);
}

// ---- One file
function describe(file) {
  byId('title').textContent = file.name;
  byId('place').textContent = `${current + 1} of ${files.length}`;
  byId('said').textContent = `${file.name}, ${byId('place').textContent}, rotated by ${turnsOf(file) * 90}°`;
  byId('original').hidden = !file.original;
  byId('original').href = original(file);
  byId('download').href = download(file);
  byId('left').hidden = byId('right').hidden = file.kind === 'video';
  byId('previous').setAttribute('aria-disabled', current === 0);
  byId('next').setAttribute('aria-disabled', current === files.length - 1);
}

function update() {
  const file = files[current];
  describe(file);
  zoom.reset();
  if (file.kind === 'video' && file.original) showVideo(file);
  else showStill(file);
}

// Shows the file at an index of these.
export function open(shown, index) {
  files = shown;
  current = index;
  pause(true);
  if (!viewer.open) viewer.showModal();
  update();
  facts.show(files[current]);
}

export function close() {
  viewer.close();
  sheet.replaceChildren();
  ahead = new Map();
  pause(false);
}

const step = (index) => { if (files[index] && index !== current) react.step(index); };

function rotate(by) {
  const file = files[current];
  if (file.kind === 'video') return;
  remember('sessionStorage', `turns ${file.url}`, (turnsOf(file) + by + 4) % 4);
  update();
}

// When zoomed, the original is sharper than any thumbnail. Only a rotated thumbnail shows the rotation.
function sharpen() {
  const image = sheet.querySelector('img.large');
  const file = files[current];
  if (!image || !file.original || file.kind === 'video' || turnsOf(file) || image.dataset.isOriginal) return;
  image.dataset.isOriginal = true;
  const sharp = new Image();
  sharp.src = original(file);
  sharp.decode().then(() => setSources(image, {sizes: '', srcset: '', src: sharp.src}), () => {});
}

// ---- Keys, buttons, gestures
const keys = {
  Escape: () => react.close(),
  ArrowLeft: () => step(current - 1), ArrowUp: () => step(current - 1),
  ArrowRight: () => step(current + 1), ArrowDown: () => step(current + 1),
  Home: () => step(0), End: () => step(files.length - 1),
  r: () => rotate(1), R: () => rotate(-1), i: facts.toggle,
  '+': () => zoom.zoomBy(1.5), '=': () => zoom.zoomBy(1.5), '-': () => zoom.zoomBy(1 / 1.5), 0: zoom.reset};

viewer.addEventListener('keydown', (event) => {
  const key = event.key.toLowerCase() === 'r' ? (event.shiftKey ? 'R' : 'r') : event.key;
  const isForVideo = event.target.matches('video') && key !== 'Escape';
  if (isModified(event) || isForVideo || !Object.hasOwn(keys, key)) return;
  event.preventDefault();
  keys[key]();
});

viewer.addEventListener('close', () => {
  if (!viewer.open && sheet.firstChild) react.close();  // by the browser itself, for example on a gesture
});

byId('previous').addEventListener('click', () => step(current - 1));
byId('next').addEventListener('click', () => step(current + 1));
byId('left').addEventListener('click', () => rotate(-1));
byId('right').addEventListener('click', () => rotate(1));
byId('close').addEventListener('click', () => react.close());
zoom.onGestures({swipe: (by) => step(current + by), zoom: sharpen});

export const onActions = (reactions) => { react = reactions; };
