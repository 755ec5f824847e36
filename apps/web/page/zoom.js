// SPDX-License-Identifier: GPL-3.0-or-later
// Gestures on the picture in the viewer: pinch, wheel and double tap zoom, a drag moves what is zoomed and else swipes.
import {byId} from './dom.js';

const stage = byId('stage'), sheet = byId('sheet');
const mostScale = 8;
const swipeLength = 60;    // pixels
const tapInterval = 300;   // milliseconds between two taps

let view = {scale: 1, x: 0, y: 0};  // the sheet's scale and shift
let react = {};                     // to gestures: swipe(by), zoom()
const pointers = new Map();
let start = null;    // of a drag by one pointer
let lastTap = 0;

const clamp = (value, most) => Math.max(-most, Math.min(most, value));

function apply() {
  const {scale, x, y} = view;
  sheet.style.transform = scale === 1 && x === 0 ? '' : `translate(${x}px, ${y}px) scale(${scale})`;
  stage.classList.toggle('zoomed', scale > 1);
}

// The picture covers the stage as far as it is large enough.
function moveTo(scale, x, y) {
  const {clientWidth, clientHeight} = stage;
  view = {scale, x: clamp(x, (scale - 1) * clientWidth / 2), y: clamp(y, (scale - 1) * clientHeight / 2)};
  apply();
}

// Zooms around the middle of the stage, or the point that is so far from it.
export function zoomBy(factor, {x, y} = {x: 0, y: 0}) {
  const scale = Math.max(1, Math.min(mostScale, view.scale * factor));
  const ratio = scale / view.scale;
  moveTo(scale, x - (x - view.x) * ratio, y - (y - view.y) * ratio);
  if (scale > 1) react.zoom();
}

function fromMiddle({clientX, clientY}) {
  const {left, top, width, height} = stage.getBoundingClientRect();
  return {x: clientX - left - width / 2, y: clientY - top - height / 2};
}

export const reset = () => moveTo(1, 0, 0);

function between([one, other]) {
  return {x: (one.x + other.x) / 2, y: (one.y + other.y) / 2, distance: Math.hypot(one.x - other.x, one.y - other.y)};
}

function pinch(event) {
  const before = between([...pointers.values()]);
  pointers.set(event.pointerId, fromMiddle(event));
  const after = between([...pointers.values()]);
  moveTo(view.scale, view.x + after.x - before.x, view.y + after.y - before.y);
  if (before.distance > 0) zoomBy(after.distance / before.distance, after);
}

// How far a drag has come.
const way = (event) => ({x: event.clientX - start.x, y: event.clientY - start.y});

function drag(event) {
  const {x, y} = way(event);
  if (view.scale > 1) moveTo(view.scale, start.view.x + x, start.view.y + y);
  else view = {scale: 1, x, y: 0};
  apply();
}

function tap(event) {
  const isDouble = event.timeStamp - lastTap < tapInterval;
  lastTap = isDouble ? 0 : event.timeStamp;
  if (isDouble && view.scale > 1) reset();
  else if (isDouble) zoomBy(3, fromMiddle(event));
}

// A drag that was long enough shows the next picture, any other springs back.
function drop(event) {
  const {x, y} = way(event);
  if (view.scale === 1) reset();
  if (Math.hypot(x, y) < 5) tap(event);
  else if (view.scale === 1 && Math.abs(x) > Math.max(swipeLength, 2 * Math.abs(y))) react.swipe(x < 0 ? 1 : -1);
}

stage.addEventListener('pointerdown', (event) => {
  if (event.target.closest('video') || event.button !== 0) return;
  stage.setPointerCapture(event.pointerId);
  pointers.set(event.pointerId, fromMiddle(event));
  start = pointers.size === 1 ? {x: event.clientX, y: event.clientY, view} : null;
});

stage.addEventListener('pointermove', (event) => {
  if (!pointers.has(event.pointerId)) return;
  if (pointers.size === 2) pinch(event);
  else if (start) drag(event);
});

function lift(event) {
  if (!pointers.delete(event.pointerId)) return;
  if (start && event.type === 'pointerup') drop(event);
  else if (view.scale === 1) reset();
  start = null;
}

stage.addEventListener('pointerup', lift);
stage.addEventListener('pointercancel', lift);
stage.addEventListener('wheel', (event) => {
  event.preventDefault();
  zoomBy(Math.exp(-event.deltaY / 500), fromMiddle(event));
}, {passive: false});

export const onGestures = (reactions) => { react = reactions; };
