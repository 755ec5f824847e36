// SPDX-License-Identifier: GPL-3.0-or-later
// Loads images: few at a time, those in view first, none that has left the page; again while the service is busy.
import {coalesced} from './dom.js';

const most = 6;  // as many connections as browsers have to a server
const waiting = new Map();  // images, and what starts them
const loading = new Map();
let isPaused = false;

// 0 without a connection.
const statusOf = (url) => fetch(url, {method: 'HEAD'}).then((response) => response.status, () => 0);

// Calls `load` again while the service is busy or gone, after longer and longer pauses, and `giveUp` if the image can't
// be shown.
export function reloadWhileBusy(image, load, giveUp) {
  let pause = 1000;  // milliseconds
  let wasAnswered = false;
  const again = () => { if (image.isConnected) load(); };
  image.addEventListener('error', async () => {
    const status = await statusOf(image.currentSrc);
    if ([0, 503, 504].includes(status)) {
      setTimeout(again, pause);
      pause = Math.min(2 * pause, 60000);
    } else if (status === 200 && !wasAnswered) {
      wasAnswered = true;  // by now, the service is there
      again();
    } else {
      giveUp();
    }
  });
}

export function setSources(image, {sizes, srcset, src}) {
  image.sizes = sizes;
  image.srcset = srcset;
  image.src = src;
}

// How far an image is out of view, in pixels.
function distanceOf(image) {
  const {top, bottom} = image.getBoundingClientRect();
  return Math.max(0, -bottom, top - innerHeight);
}

function nearest(images, direction) {
  const ranked = [...images].map((image) => [direction * distanceOf(image), image]);
  return ranked.reduce((one, other) => (other[0] < one[0] ? other : one), [Infinity, null])[1];
}

function abort(image) {
  image.removeAttribute('srcset');
  image.removeAttribute('src');
}

// An image out of view gives way to one in view.
function makeRoom() {
  const furthest = nearest(loading.keys(), -1);
  if (!distanceOf(furthest) || distanceOf(nearest(waiting.keys(), 1))) return false;
  waiting.set(furthest, loading.get(furthest));
  loading.delete(furthest);
  abort(furthest);
  return true;
}

function startNext() {
  while (!isPaused && waiting.size > 0 && (loading.size < most || makeRoom())) {
    const image = nearest(waiting.keys(), 1);
    const start = waiting.get(image);
    waiting.delete(image);
    loading.set(image, start);
    start();
  }
}

// Once for all images that are enqueued at the same time, after they have a place in the page.
const schedule = coalesced(queueMicrotask, startNext);

function finish(image) {
  loading.delete(image);
  schedule();
}

// Loads an image when it is its turn. If it can't be shown, `giveUp` is called.
export function enqueue(image, sources, giveUp) {
  const start = () => {
    abort(image);
    setSources(image, sources);
  };
  const wait = () => {
    waiting.set(image, start);
    schedule();
  };
  image.addEventListener('load', () => finish(image));
  image.addEventListener('error', () => finish(image));
  reloadWhileBusy(image, wait, giveUp);
  wait();
}

// The image has left the page: its request is aborted.
export function forget(image) {
  waiting.delete(image);
  if (loading.has(image)) abort(image);
  finish(image);
}

// While paused, no further image is started: the viewer has the line to itself.
export function pause(whether) {
  isPaused = whether;
  schedule();
}
