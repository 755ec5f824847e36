// SPDX-License-Identifier: GPL-3.0-or-later
// Shows the folder that the URL names after its '#', and one of its pictures at a time in the viewer. File names are
// inserted into the page as text and as attributes, never as markup.
'use strict';

const widths = {small: 120, medium: 360, big: 640, large: 1280};
const byId = (id) => document.getElementById(id);
const crumbs = byId('crumbs'), main = byId('main'), folders = byId('folders'), grid = byId('grid');
const viewer = byId('viewer'), stage = byId('stage');

let files = [];      // in the current folder
let address = null;  // of that folder, as after '#/'
let current = 0;     // in the viewer
let turns = 0;       // quarter turns clockwise, of the picture in the viewer

function make(tag, attributes, ...content) {
  const element = document.createElement(tag);
  for (const [name, value] of Object.entries(attributes)) element.setAttribute(name, value);
  element.append(...content);
  return element;
}

const counted = (count, one, many) => `${count} ${count === 1 ? one : many}`;
const isModified = (event) => event.ctrlKey || event.metaKey || event.altKey;

// ---- Pictures

const hasPicture = (file) => file.screenshot !== false;
const thumb = (file, size, more = '') => `thumb/${file.url}?size=${size}${more}`;
const placeholder = (text) => make('span', {class: 'placeholder'}, text);

// 0 without a connection.
async function statusOf(url) {
  try {
    return (await fetch(url, {method: 'HEAD'})).status;
  } catch {
    return 0;
  }
}

// Loads an image again while the service is busy or gone, after longer and longer pauses. One that can't be shown becomes
// a placeholder.
function reloadWhileBusy(image) {
  const reload = () => { if (image.isConnected) image.srcset = image.srcset; };
  let pause = 1000;  // milliseconds
  let wasAnswered = false;
  image.addEventListener('error', async () => {
    const status = await statusOf(image.currentSrc);
    if ([0, 503, 504].includes(status)) {
      setTimeout(reload, pause);
      pause = Math.min(2 * pause, 60000);
    } else if (status === 200 && !wasAnswered) {
      wasAnswered = true;  // by now, the service is there
      reload();
    } else {
      image.replaceWith(placeholder('Cannot be shown'));
    }
  });
}

// An image in the sizes that a browser may choose from.
function picture(file, sizes, more, attributes) {
  if (!hasPicture(file)) return placeholder('Video');
  const image = make('img', {alt: file.name, ...attributes});
  reloadWhileBusy(image);
  image.srcset = sizes.map((size) => `${thumb(file, size, more)} ${widths[size]}w`).join(', ');
  image.src = thumb(file, sizes.at(-1), more);
  return image;
}

// The name below a picture is hidden from screen readers, which already read it as the picture's text.
function tile(file, index) {
  const image = picture(file, ['small', 'medium', 'big'], '', {
    width: 360, height: 360, loading: 'lazy', decoding: 'async', sizes: '(max-width: 30rem) 66vw, 18rem'});
  const name = make('span', {class: 'name', 'aria-hidden': hasPicture(file)}, file.name);
  image.addEventListener('error', () => name.removeAttribute('aria-hidden'));
  const link = hasPicture(file) ? make('a', {href: thumb(file, 'large')}) : make('button', {type: 'button'});
  link.className = file.screenshot ? 'tile film' : 'tile';
  link.title = file.name;
  link.dataset.index = index;
  link.append(image, name);
  return make('li', {}, link);
}

// ---- Folders

// The folders in an address, each with its part of the URL and its name. None leads upwards, whatever was typed.
function foldersIn(text) {
  const parts = text.split('/').filter((part) => part).map((part) => part.replace(/[?#\\]/g, encodeURIComponent));
  return parts.map((url) => ({url, name: decoded(url)})).filter(({name}) => name !== '.' && name !== '..');
}

function decoded(url) {
  try {
    return decodeURIComponent(url);
  } catch {
    return url;  // not UTF-8
  }
}

function showCrumbs(path) {
  const links = [make('a', {href: '#/'}, 'All')];
  let url = '#';
  for (const folder of path) {
    url += `/${folder.url}`;
    links.push(make('a', {href: url}, folder.name));
  }
  links.at(-1).setAttribute('aria-current', 'page');
  crumbs.replaceChildren(...links.map((link) => make('li', {}, link)));
  document.title = path.length ? `${path.at(-1).name} – Photos` : 'Photos';
}

function fill(list, entries) {
  list.hidden = entries.length === 0;
  list.replaceChildren(...entries);
}

function showFolder(listing) {
  stage.replaceChildren();
  viewer.close();
  files = listing.files;
  fill(folders, listing.folders.map((folder) => make('li', {}, make('a', {href: `#/${folder.url}`}, folder.name))));
  fill(grid, files.map(tile));
  const note = [];
  if (files.length) note.push(`${counted(files.length, 'file', 'files')}.`);
  else if (listing.folders.length === 0) note.push('There are no photos here.');
  if (listing.unreadable) note.push(`${counted(listing.unreadable, 'folder', 'folders')} cannot be read.`);
  byId('note').textContent = note.join(' ');
}

async function fetchFolder(url) {
  const response = await fetch(`list/${url}`, {headers: {Accept: 'application/json'}});
  if (response.ok) return response.json();
  const hasReason = response.headers.get('Content-Type')?.startsWith('text/plain');
  throw new Error(hasReason ? (await response.text()).trim() : `status ${response.status}`);
}

async function openFolder() {
  const path = foldersIn(location.hash.slice(1));
  const wanted = path.map(({url}) => url).join('/');
  if (wanted === address) return;
  const left = address;
  address = wanted;
  main.setAttribute('aria-busy', 'true');
  let listing = {folders: [], files: [], unreadable: 0};
  let problem = '';
  try {
    listing = await fetchFolder(wanted);
  } catch (error) {
    problem = `This folder cannot be shown (${error.message}).`;
  }
  if (wanted !== address) return;  // another folder has been requested meanwhile
  showCrumbs(path);
  showFolder(listing);
  byId('error').textContent = problem;
  byId('error').hidden = !problem;
  byId('note').hidden = Boolean(problem);
  main.removeAttribute('aria-busy');
  if (left !== null) focusAfter(left);
}

// On the way back out of a folder, focuses that folder; otherwise starts at the top.
function focusAfter(left) {
  scrollTo(0, 0);
  const cameFrom = [...folders.querySelectorAll('a')].find((link) => link.hash === `#/${left}`);
  (cameFrom ?? crumbs.querySelector('[aria-current]')).focus();
}

// ---- The viewer

function showPicture() {
  const file = files[current];
  const more = (turns ? `&rotate=${turns}` : '') + (file.type === 'gif' ? '&animate=1' : '');
  stage.replaceChildren(picture(file, ['big', 'large'], more, {sizes: '100vw'}));
  byId('title').textContent = file.name;
  byId('place').textContent = `${current + 1} of ${files.length}`;
  byId('said').textContent = `${file.name}, ${byId('place').textContent}, rotated by ${turns * 90}°`;
  byId('original').hidden = !file.original;
  byId('original').href = `original/${file.url}`;
  byId('left').hidden = byId('right').hidden = file.kind === 'video';
  byId('previous').setAttribute('aria-disabled', current === 0);
  byId('next').setAttribute('aria-disabled', current === files.length - 1);
}

function openViewer(index) {
  current = index;
  turns = 0;
  if (!viewer.open) viewer.showModal();
  showPicture();
}

function step(by) {
  if (files[current + by]) openViewer(current + by);
}

function rotate(by) {
  if (files[current].kind === 'video') return;
  turns = (turns + by + 4) % 4;
  showPicture();
}

function closeViewer() {
  viewer.close();
  stage.replaceChildren();
  grid.querySelectorAll('.tile')[current]?.focus();
}

const viewerKeys = {
  Escape: closeViewer,
  ArrowLeft: () => step(-1), ArrowUp: () => step(-1), ArrowRight: () => step(1), ArrowDown: () => step(1),
  Home: () => openViewer(0), End: () => openViewer(files.length - 1), r: () => rotate(1), R: () => rotate(-1)};

viewer.addEventListener('keydown', (event) => {
  const key = event.key.toLowerCase() === 'r' ? (event.shiftKey ? 'R' : 'r') : event.key;
  if (isModified(event) || !viewerKeys[key]) return;
  event.preventDefault();
  viewerKeys[key]();
});

viewer.addEventListener('close', () => {
  if (!viewer.open && stage.firstChild) closeViewer();  // by the browser itself, for example on a gesture
});

byId('previous').addEventListener('click', () => step(-1));
byId('next').addEventListener('click', () => step(1));
byId('left').addEventListener('click', () => rotate(-1));
byId('right').addEventListener('click', () => rotate(1));
byId('close').addEventListener('click', closeViewer);

// ---- The grid

grid.addEventListener('click', (event) => {
  const clicked = event.target.closest('.tile');
  if (!clicked || isModified(event) || event.shiftKey) return;
  event.preventDefault();
  openViewer(Number(clicked.dataset.index));
});

// Arrow keys move through the rows of folders and pictures; each list continues into the other.
function linkFrom(focused, key) {
  const links = [...main.querySelectorAll('.folders a, .tile')];
  const index = links.indexOf(focused);
  if (index === -1) return key === 'ArrowRight' || key === 'ArrowDown' ? links[0] : undefined;
  const list = focused.closest('ul');
  const columns = getComputedStyle(list).gridTemplateColumns.split(' ').length;
  const steps = {ArrowLeft: -1, ArrowRight: 1, ArrowUp: -columns, ArrowDown: columns, Home: -index, End: links.length};
  const target = links[Math.max(0, Math.min(index + steps[key], links.length - 1))];  // none for any other key
  if (!key.startsWith('Arrow') || list.contains(target)) return target;
  return steps[key] < 0 ? folders.lastChild.firstChild : grid.firstChild.firstChild;
}

addEventListener('keydown', (event) => {
  if (viewer.open || isModified(event) || event.shiftKey) return;
  const link = linkFrom(document.activeElement, event.key);
  if (!link) return;
  event.preventDefault();
  link.focus();
});

addEventListener('hashchange', openFolder);
openFolder();
