// SPDX-License-Identifier: GPL-3.0-or-later
// Shows the folder that the URL names after its '#', and in the viewer the file that it names.
import * as address from './address.js';
import {byId, counted, isModified, make} from './dom.js';
import * as grid from './grid.js';
import './keys.js';
import {fetchDates, fetchFolder, thumb} from './list.js';
import {reloadWhileBusy} from './loader.js';
import {matching, needsDates, onChange, ordered} from './order.js';
import * as viewer from './viewer.js';

const main = byId('main'), folders = byId('folders'), crumbs = byId('crumbs'), search = byId('search');

let listing = {folders: [], files: [], unreadable: 0};
let files = [];       // those that are shown, in their order
let folder = null;    // its address
let dates = null;     // of the photos in it, once they have been asked for
let openedAt = -1;    // the index of the file in the viewer
let isLeaving = false;  // the browser is going back from the viewer

// ---- The folder
function showCrumbs(path) {
  const links = [make('a', {href: address.ofFolder('')}, 'All')];
  path.forEach(({name}, depth) => {
    const url = path.slice(0, depth + 1).map((part) => part.url).join('/');
    links.push(make('a', {href: address.ofFolder(url), dir: 'auto'}, name));
  });
  links.at(-1).setAttribute('aria-current', 'page');
  crumbs.replaceChildren(...links.map((link) => make('li', {}, link)));
}

function folderLink({name, url, photos, cover}) {
  const link = make('a', {href: address.ofFolder(url)}, make('span', {class: 'name', dir: 'auto'}, name));
  if (cover) {
    const image = make('img', {alt: '', width: 48, height: 48, loading: 'lazy', decoding: 'async'});
    const load = () => { image.src = thumb({url: cover}, 'small'); };
    reloadWhileBusy(image, load, () => image.remove());
    load();
    link.prepend(image);
  }
  if (photos) link.append(make('span', {class: 'count'}, counted(photos, 'file', 'files')));
  return make('li', {}, link);
}

function note() {
  const found = files.length === listing.files.length ? '' : `${files.length} of `;
  const notes = [];
  if (listing.files.length) notes.push(`${found}${counted(listing.files.length, 'file', 'files')}.`);
  else if (listing.folders.length === 0) notes.push('There are no photos here.');
  if (needsDates() && !dates) notes.push('Reading their dates…');
  if (listing.unreadable) notes.push(`${counted(listing.unreadable, 'folder', 'folders')} cannot be read.`);
  if (listing.files.length && listing.not_stored) notes.push(`New thumbnails of a photo here are not stored: ${listing.not_stored}.`);
  return notes.join(' ');
}

function showMatching() {
  const found = matching(listing.folders, search.value);
  folders.hidden = found.length === 0;
  folders.replaceChildren(...found.map(folderLink));
  files = ordered(matching(listing.files, search.value), dates ?? {});
  grid.show(files);
  byId('note').textContent = note();
}

// In the order of their dates once these are known; if they can't be had, by the dates of the files.
async function readDates() {
  const wanted = folder;
  const taken = await fetchDates(wanted, () => wanted === folder).catch(() => ({}));
  if (wanted !== folder) return;
  dates = taken;
  showMatching();
}

function showFolder(path) {
  showCrumbs(path);
  search.value = '';
  byId('tools').hidden = listing.files.length + listing.folders.length === 0;
  showMatching();
}

async function fetchOrExplain(url) {
  const nothing = {folders: [], files: [], unreadable: 0};
  try {
    return [{...nothing, ...await fetchFolder(url)}, ''];
  } catch (error) {
    return [nothing, `This folder cannot be shown (${error.message}).`];
  }
}

function showProblem(problem) {
  byId('error').textContent = problem;
  byId('note').hidden = Boolean(problem);
}

async function openFolder({path, folder: wanted}) {
  const left = folder;
  folder = wanted;
  main.setAttribute('aria-busy', 'true');
  const [answer, problem] = await fetchOrExplain(wanted);
  if (wanted !== folder) return;  // another folder has been requested meanwhile
  listing = answer;
  dates = null;
  openedAt = -1;
  viewer.close();
  showFolder(path);
  showProblem(problem);
  main.removeAttribute('aria-busy');
  if (left !== null) focusAfter(left);
  if (needsDates() && listing.files.length) await readDates();
}

// On the way back out of a folder, focuses that folder; otherwise starts at the top.
function focusAfter(left) {
  scrollTo(0, 0);
  const cameFrom = [...folders.querySelectorAll('a')].find((link) => link.hash === address.ofFolder(left));
  (cameFrom ?? crumbs.querySelector('[aria-current]')).focus();
}

// ---- The viewer
function openFile(shown) {
  const index = files.findIndex((file) => address.isOf(file, shown));
  if (index === -1) return showProblem(`There is no ${address.decoded(shown)} here.`);
  openedAt = index;
  return viewer.open(files, index);
}

function closeFile() {
  const index = openedAt;
  openedAt = -1;
  viewer.close();
  grid.focus(index);
}

// Shows what the address names.
async function navigate() {
  isLeaving = false;
  const {hash} = location;
  const target = address.parse(hash);
  if (target.folder !== folder) await openFolder(target);
  if (hash !== location.hash) return;
  if (target.shown && listing.files.length) openFile(target.shown);
  else if (openedAt !== -1) closeFile();
  const name = target.shown && openedAt !== -1 ? files[openedAt].name : target.path.at(-1)?.name;
  document.title = name ? `${name} – Photos` : 'Photos';
}

// Closing the viewer is going back, as long as it was opened on this page.
function leaveFile() {
  if (openedAt === -1) return;
  closeFile();
  if (history.state?.isViewer) {
    isLeaving = true;
    history.back();
  } else {
    history.replaceState(null, '', address.ofFolder(folder));
    navigate();
  }
}

function enterFile(index) {
  if (isLeaving) return addEventListener('popstate', () => enterFile(index), {once: true});
  history.pushState({isViewer: true}, '', address.ofFile(files[index]));
  return navigate();
}

function stepTo(index) {
  history.replaceState(history.state, '', address.ofFile(files[index]));
  navigate();
}

viewer.onActions({step: stepTo, close: leaveFile, tilePicture: grid.loadedPicture});

// ---- Input
byId('grid').addEventListener('click', (event) => {
  const index = grid.indexOf(event.target.closest('.tile'));
  if (index === -1 || isModified(event) || event.shiftKey) return;
  event.preventDefault();
  enterFile(index);
});

onChange(() => {
  scrollTo(0, 0);
  showMatching();
  if (needsDates() && !dates) readDates();
});
search.addEventListener('input', showMatching);
addEventListener('popstate', navigate);
addEventListener('hashchange', navigate);
navigate();
