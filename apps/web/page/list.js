// SPDX-License-Identifier: GPL-3.0-or-later
// What the service answers about folders and files, and the addresses of pictures.

const widths = {small: 120, medium: 360, big: 640, large: 1280};

export const hasPicture = (file) => file.screenshot !== false;
export const thumb = (file, size, more = '') => `thumb/${file.url}?size=${size}${more}`;
export const original = (file) => `original/${file.url}`;
export const download = (file) => `${original(file)}?download=1`;

// The sources of an image from which a browser chooses by `sizes`, the width in which it is shown.
export function sources(file, names, sizes, more = '') {
  const srcset = names.map((name) => `${thumb(file, name, more)} ${widths[name]}w`).join(', ');
  return {sizes, srcset, src: thumb(file, names.at(-1), more)};
}

async function fetchJson(address) {
  const response = await fetch(address, {headers: {Accept: 'application/json'}});
  if (response.ok) return response.json();
  const hasReason = response.headers.get('Content-Type')?.startsWith('text/plain');
  throw new Error(hasReason ? (await response.text()).trim() : `status ${response.status}`);
}

export const fetchFolder = (url) => fetchJson(`list/${url}`);
export const fetchFacts = (file) => fetchJson(`${original(file)}?facts=1`);

// 83 seconds as 1:23.
const two = (number) => String(Math.floor(number)).padStart(2, '0');
export const clock = (time) => `${two(time / 3600)}:${two(time / 60 % 60)}:${two(time % 60)}`.replace(/^[0:]{1,4}/, '');
export const fetchLength = (file) => fetchFacts(file).then(({duration}) => (duration ? clock(duration) : ''), () => '');

// When the photos of a folder were taken, by the last part of their URLs. Each answer has those of a second's work.
export async function fetchDates(folder, isWanted) {
  const taken = {};
  let next = '';
  while (next !== null && isWanted()) {
    const part = await fetchJson(`list/${folder}?dates=1&after=${next}`);
    Object.assign(taken, part.taken);
    next = part.next;
  }
  return taken;
}
