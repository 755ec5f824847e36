// SPDX-License-Identifier: GPL-3.0-or-later
// Addresses after the page's own: '#/2024/day%201' is a folder, '#/2024/day%201?show=noon.jpg' the viewer on a photo of
// it. Their parts are encoded as in the URLs of the list.

const marker = '?show=';

export function decoded(url) {
  try {
    return decodeURIComponent(url);
  } catch {
    return url;  // not UTF-8
  }
}

// The folders in a path, each with its part of the URL and its name. None leads upwards, whatever was typed.
function foldersIn(path) {
  const parts = path.split('/').filter((part) => part).map((part) => part.replace(/[?#\\]/g, encodeURIComponent));
  return parts.map((url) => ({url, name: decoded(url)})).filter(({name}) => name !== '.' && name !== '..');
}

// The folder, its parent folders included, and the last part of a photo's URL; "" without one.
export function parse(hash) {
  const at = hash.indexOf(marker);
  const path = foldersIn(hash.slice(1, at === -1 ? hash.length : at));
  return {path, folder: path.map(({url}) => url).join('/'), shown: at === -1 ? '' : hash.slice(at + marker.length)};
}

// The last part of a file's URL, which names it in its folder.
export const keyOf = (file) => file.url.slice(file.url.lastIndexOf('/') + 1);

export const ofFolder = (url) => `#/${url}`;
export const ofFile = ({url}) => ofFolder(url.slice(0, Math.max(url.lastIndexOf('/'), 0))) + marker + keyOf({url});

export const isOf = (file, shown) => keyOf(file) === shown || file.name === decoded(shown);
