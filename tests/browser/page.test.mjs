// SPDX-License-Identifier: GPL-3.0-or-later
// The page as people see it: a real browser visits a running site, TAVITHUMB_URL, that serves the folder
// TAVITHUMB_PICTURES. Screenshots are stored in TAVITHUMB_ARTIFACTS.
import assert from 'node:assert/strict';
import {mkdirSync, readFileSync, readdirSync, rmSync, statSync, writeFileSync} from 'node:fs';
import {join} from 'node:path';
import {after, before, test} from 'node:test';
import axe from 'axe-core';
import {HtmlValidate} from 'html-validate';
import {chromium} from 'playwright-core';

const site = process.env.TAVITHUMB_URL;
const pictures = process.env.TAVITHUMB_PICTURES;
const artifacts = process.env.TAVITHUMB_ARTIFACTS;
const flags = ['--no-sandbox', '--disable-gpu', '--disable-quic', '--no-first-run', '--disable-background-networking',
  '--disable-component-update', '--disable-sync'];

let browser;
before(async () => { browser = await chromium.launch({executablePath: '/usr/bin/chromium', args: flags}); });
after(() => browser.close());

// ---- Visits

// A page that records all its requests and errors, except requests that the browser aborts on navigation.
async function newPage(t, options = {}) {
  const context = await browser.newContext({viewport: {width: 1280, height: 800}, ...options});
  t.after(() => context.close());
  const page = await context.newPage();
  page.asked = [];
  page.troubles = [];
  page.on('request', (request) => page.asked.push(request.url()));
  page.on('requestfailed', (request) => {
    const {errorText} = request.failure();
    if (errorText !== 'net::ERR_ABORTED') page.troubles.push(`${errorText} ${request.url()}`);
  });
  page.on('response', (response) => {
    if (response.status() >= 400) page.troubles.push(`${response.status()} ${response.url().slice(site.length)}`);
  });
  page.on('pageerror', (error) => page.troubles.push(String(error)));
  page.on('console', (message) => {
    const isKnown = message.text().startsWith('Failed to load resource');  // as a response or a failed request
    if (message.type() === 'error' && !isKnown) page.troubles.push(message.text());
  });
  return page;
}

async function visit(t, address, options) {
  const page = await newPage(t, options);
  await page.goto(site + address);
  return page;
}

// A visit to a folder of which only the list exists.
async function visitListed(t, listing) {
  const page = await newPage(t);
  await page.route(`${site}list/`, (route) => route.fulfill({json: {path: '', folders: [], ...listing}}));
  await page.goto(site);
  return page;
}

const tiles = (page) => page.locator('.tile');
const tile = (page, name) => page.locator('.tile', {has: page.getByText(name, {exact: true})});
const picture = (page) => page.locator('#stage img.large');
const folderNames = (page) => page.locator('.folders .name').allTextContents();

async function visitGrid(t, address = '', options = {}) {
  const page = await visit(t, address, options);
  await tiles(page).first().waitFor();
  return page;
}

async function visitViewer(t, name, options) {
  const page = await visitGrid(t, '', options);
  await tile(page, name).click();
  await loaded(picture(page));
  return page;
}

// The image, after it has loaded or failed.
async function loaded(image) {
  await image.scrollIntoViewIfNeeded();
  await image.evaluate(async (element) => {
    while (!element.currentSrc) await new Promise(requestAnimationFrame);  // until it is its turn
    if (element.complete) return;
    await new Promise((resolve) => {
      element.addEventListener('load', resolve);
      element.addEventListener('error', resolve);
    });
  });
  return image;
}

async function loadAll(page) {
  const images = page.locator('.tile img');
  for (let index = 0; index < await images.count(); ++index) await loaded(images.nth(index));
}

const shapeOf = (image) => image.evaluate(({naturalWidth, naturalHeight}) =>
  naturalWidth === naturalHeight ? 'nothing' : naturalWidth > naturalHeight ? 'wide' : 'high');

// The position of the picture's crimson rectangle: "bottom right" unless it has been rotated.
async function cornerOf(image) {
  await loaded(image);
  return image.evaluate((element) => {
    const canvas = Object.assign(document.createElement('canvas'), {width: 100, height: 100});
    const context = canvas.getContext('2d');
    context.drawImage(element, 0, 0, 100, 100);
    const isCrimson = (x, y) => {
      const [red, green, blue] = context.getImageData(x, y, 1, 1).data;
      return Math.abs(red - 220) < 30 && Math.abs(green - 20) < 30 && Math.abs(blue - 60) < 30;
    };
    const corners = {'top left': [25, 25], 'top right': [75, 25], 'bottom left': [25, 75], 'bottom right': [75, 75]};
    return Object.keys(corners).filter((corner) => isCrimson(...corners[corner])).join(', ');
  });
}

const focusedName = (page) => page.evaluate(() => document.activeElement.querySelector('.name')?.textContent);

// On a connection of its own: the server may close an idle one at the moment in which it would be used again.
const fetchAlone = (request, address, headers = {}) => request.get(address, {headers: {...headers, Connection: 'close'}});

const namesAsListed = readdirSync(pictures).filter((name) => statSync(join(pictures, name)).isFile())
  .sort((one, other) => Buffer.compare(Buffer.from(one), Buffer.from(other)));
const namesOfFiles = [...namesAsListed].sort(new Intl.Collator('en', {numeric: true}).compare);
const good = ['photo.jpg', 'turned.jpg', 'phone.heic', 'camera.raf', 'picture.png', 'picture.bmp', 'picture.tif',
  'moving.gif', 'film.mp4'];

// ---- The grid

test('a folder is a grid with a tile for each file, with their names unchanged', async (t) => {
  const page = await visitGrid(t);
  assert.deepEqual(await page.locator('.tile .name').allTextContents(), namesOfFiles);
  assert.deepEqual(await page.locator('.tile img').evaluateAll((images) => images.map((image) => image.alt)),
    namesOfFiles);
  assert.deepEqual(await folderNames(page), ['2024 été', 'odd ones']);
  assert.deepEqual(await page.locator('.folders .count').allTextContents(), ['1 file', '3 files']);
  assert.deepEqual(await page.locator('.folders img').evaluateAll((images) => images.map((image) => image.src)),
    [`${site}thumb/2024%20%C3%A9t%C3%A9/morning.jpg?size=small`, `${site}thumb/odd%20ones/another.jpg?size=small`]);
  assert.equal(await page.locator('#note').textContent(), `${namesOfFiles.length} files.`);
});

for (const name of good) {
  test(`the grid and the viewer show the pixels of ${name}`, async (t) => {
    const page = await visitGrid(t);
    const expected = name === 'turned.jpg' ? ['high', 'bottom left'] : ['wide', 'bottom right'];
    const inGrid = tile(page, name).locator('img');
    assert.deepEqual([await cornerOf(inGrid), await shapeOf(inGrid)].reverse(), expected);
    await tile(page, name).click();
    assert.deepEqual([await cornerOf(picture(page)), await shapeOf(picture(page))].reverse(), expected);
    assert.deepEqual(page.troubles, []);
  });
}

test('browsing a folder of valid files, nothing fails and nothing is loaded from another origin', async (t) => {
  const page = await visitGrid(t);
  await loadAll(page);
  await tiles(page).first().click();
  for (const name of namesOfFiles) {
    await loaded(picture(page));
    assert.equal(await page.locator('#title').textContent(), name);
    assert.notEqual(await shapeOf(picture(page)), 'nothing', name);
    await page.keyboard.press('ArrowRight');
  }
  assert.deepEqual(page.troubles, []);
  assert.deepEqual(page.asked.filter((url) => !url.startsWith(site)), []);
});

for (const [density, size] of [[1, 'medium'], [2, 'big']]) {
  test(`a tile takes the size ${size} on a screen of density ${density}`, async (t) => {
    const page = await visitGrid(t, '', {deviceScaleFactor: density});
    await loadAll(page);
    const thumbs = page.asked.filter((url) => url.includes('/thumb/'));
    const ofTiles = thumbs.filter((url) => !url.endsWith('?size=small'));  // covers of folders
    assert.deepEqual(ofTiles.map((url) => new URL(url).search), namesOfFiles.map(() => `?size=${size}`));
  });
}

for (const width of [1280, 390]) {
  test(`tiles stay where they are when their pictures come, ${width} pixels wide`, async (t) => {
    let release;
    const held = new Promise((resolve) => { release = resolve; });
    const page = await newPage(t, {viewport: {width, height: 800}});
    await page.route('**/thumb/**', async (route) => { await held; await route.continue(); });
    await page.goto(site);
    await tiles(page).first().waitFor();
    const boxes = () => tiles(page).evaluateAll((all) => all.map((element) => {
      const {x, y, width, height} = element.getBoundingClientRect();
      return [x, y + scrollY, width, height];
    }));
    const before = await boxes();
    release();
    await loadAll(page);
    assert.equal(before.length, namesOfFiles.length);
    assert.deepEqual(await boxes(), before);
  });
}

// ---- What cannot be shown

test('a damaged picture and a video without a picture have placeholders; the latter is not requested', async (t) => {
  const page = await visitGrid(t, '#/odd%20ones');
  assert.deepEqual(page.asked.filter((url) => url.includes('unseen') && !url.endsWith('?facts=1')), []);
  await tile(page, 'damaged.jpg').getByText('Cannot be shown').waitFor();
  await loaded(tile(page, 'another.jpg').locator('img'));
  assert.deepEqual(await page.locator('.tile').allInnerTexts(),
    ['another.jpg', 'Cannot be shown\ndamaged.jpg', 'Video\nunseen.iso']);
  await tile(page, 'unseen.iso').click();
  await page.locator('#stage').getByText('Video').waitFor();
  const damaged = '422 thumb/odd%20ones/damaged.jpg?size=medium';
  assert.deepEqual(page.troubles, [damaged, damaged]);  // the second tells why
});

test('pictures come as soon as a busy service or a lost connection allows', async (t) => {
  const page = await newPage(t);
  const times = {};
  const refuse = (name, ways) => page.route(`**/thumb/odd%20ones/${name}?size=*`, (route) => {
    (times[name] ??= []).push(Date.now());
    const way = ways.shift();
    return way === undefined ? route.continue() : way === 0 ? route.abort() : route.fulfill({status: way});
  });
  // The answers to the requests of the image, and of the question why it failed, in turn.
  await refuse('another.jpg', [503, 503, 0, 0, 504, 503]);
  await refuse('damaged.jpg', [503, 200]);
  await page.goto(`${site}#/odd%20ones`);
  await tile(page, 'damaged.jpg').getByText('Cannot be shown').waitFor();
  const image = tile(page, 'another.jpg').locator('img');
  await page.waitForFunction((element) => element.naturalWidth > 0, await image.elementHandle(), {timeout: 20000});
  const pauses = [1, 3, 5].map((index) => times['another.jpg'][index + 1] - times['another.jpg'][index]);
  assert.ok(pauses.every((pause, index) => pause >= 1000 * 2 ** index - 50), String(pauses));  // a timer may be early
  assert.equal(times['another.jpg'].length, 7);
  assert.equal(times['damaged.jpg'].length, 4);  // busy, there again, damaged, and why
});

test('a folder that does not exist shows an error line', async (t) => {
  const page = await visit(t, '#/nowhere');
  const error = page.getByRole('alert');
  await error.waitFor();
  assert.match(await error.textContent(), /^This folder cannot be shown \(there is nothing here\)\.$/);
  assert.equal(await tiles(page).count(), 0);
  assert.deepEqual(page.troubles, ['404 list/nowhere']);
});

for (const address of ['#/../../photo.jpg', '#/%2e%2E/photo.jpg', '#/./photo.jpg', '#//photo.jpg']) {
  test(`an address never leads out of the list: ${address}`, async (t) => {
    const page = await visit(t, address);
    await page.getByRole('alert').waitFor();
    assert.deepEqual(page.asked.filter((url) => url.includes('photo')), [`${site}list/photo.jpg`]);
  });
}

test('a folder with only folders is not reported as empty', async (t) => {
  const page = await visitListed(t, {files: [], folders: [{name: 'sub', url: 'sub'}], unreadable: 0});
  await page.getByRole('link', {name: 'sub'}).waitFor();
  assert.equal(await page.locator('#note').textContent(), '');
});

test('folders that cannot be read are counted', async (t) => {
  for (const [unreadable, line] of [[1, '1 folder cannot be read.'], [2, '2 folders cannot be read.']]) {
    const page = await visitListed(t, {files: [], unreadable});
    await page.getByText(`There are no photos here. ${line}`, {exact: true}).waitFor();
  }
});

test('why new thumbnails are not stored is said where there are photos', async (t) => {
  const reason = {not_stored: 'the disk is full', unreadable: 0};
  const line = 'New thumbnails of a photo here are not stored: the disk is full.';
  const photo = {name: 'a.jpg', url: 'a.jpg', kind: 'image', type: 'jpg', bytes: 1, modified: 1, original: true};
  for (const [files, note] of [[[photo], `1 file. ${line}`], [[], 'There are no photos here.']]) {
    const page = await visitListed(t, {files, ...reason});
    await page.getByText(note, {exact: true}).waitFor();
  }
});

// ---- Folders

test('folders open by their links, and Back returns to the one that was left', async (t) => {
  const page = await visitGrid(t);
  const crumbs = () => page.locator('.crumbs a').allTextContents();
  await page.getByRole('link', {name: '2024 été'}).click();
  await tile(page, 'morning.jpg').waitFor();
  assert.deepEqual(await crumbs(), ['All', '2024 été']);
  assert.equal(await page.title(), '2024 été – Photos');
  await page.getByRole('link', {name: 'day #1'}).click();
  await tile(page, 'noon.jpg').waitFor();
  assert.deepEqual(await crumbs(), ['All', '2024 été', 'day #1']);
  await page.reload();
  await tile(page, 'noon.jpg').waitFor();
  await page.goBack();
  await tile(page, 'morning.jpg').waitFor();
  await page.getByRole('link', {name: 'day #1'}).click();
  await tile(page, 'noon.jpg').waitFor();
  await page.goBack();
  await page.locator('.folders a:focus', {hasText: 'day #1'}).waitFor();
  await page.locator('.crumbs').getByText('All').click();
  await tile(page, 'photo.jpg').waitFor();
  assert.deepEqual(await crumbs(), ['All']);
  assert.deepEqual(page.troubles, []);
});

// ---- The viewer

for (const [name, ...looks] of [
  ['photo.jpg', ['bottom right', 'wide'], ['bottom left', 'high'], ['top left', 'wide'], ['top right', 'high']],
  ['turned.jpg', ['bottom left', 'high'], ['top left', 'wide'], ['top right', 'high'], ['bottom right', 'wide']],
  ['phone.heic', ['bottom right', 'wide'], ['bottom left', 'high'], ['top left', 'wide'], ['top right', 'high']],
  ['camera.raf', ['bottom right', 'wide'], ['bottom left', 'high'], ['top left', 'wide'], ['top right', 'high']],
  ['picture.png', ['bottom right', 'wide'], ['bottom left', 'high'], ['top left', 'wide'], ['top right', 'high']],
  ['moving.gif', ['bottom right', 'wide'], ['bottom left', 'high'], ['top left', 'wide'], ['top right', 'high']],
]) {
  test(`rotation turns ${name}, by keys and by buttons`, async (t) => {
    const page = await visitViewer(t, name);
    const turnings = [
      ['r', 1], ['Rotate right', 2], ['r', 3], ['r', 0], ['Shift+R', 3], ['Rotate left', 2], ['Shift+R', 1]];
    const seen = [[await cornerOf(picture(page)), await shapeOf(picture(page))]];
    for (const [turning] of turnings) {
      if (turning.startsWith('Rotate')) await page.getByRole('button', {name: turning}).click();
      else await page.keyboard.press(turning);
      seen.push([await cornerOf(picture(page)), await shapeOf(picture(page))]);
    }
    assert.deepEqual(seen, [looks[0], ...turnings.map(([, turns]) => looks[turns])]);
    assert.deepEqual(page.troubles, []);
  });
}

test('a video offers no rotation', async (t) => {
  const page = await visitViewer(t, 'film.mp4');
  assert.equal(await page.getByRole('button', {name: /^Rotate/}).count(), 0);
  const before = await picture(page).evaluate((image) => image.currentSrc);
  await page.keyboard.press('r');
  assert.equal(await picture(page).evaluate((image) => image.currentSrc), before);
});

test('everything can be done with the keyboard, and the focus returns to the tile', async (t) => {
  const page = await visitGrid(t);
  const columns = await page.locator('#grid').evaluate((grid) =>
    getComputedStyle(grid).gridTemplateColumns.split(' ').length);
  const press = async (...keys) => { for (const key of keys) await page.keyboard.press(key); };
  const title = () => page.locator('#title').textContent();
  const last = namesOfFiles.length - 1;

  await press('ArrowRight');
  assert.equal(await focusedName(page), '2024 été');
  await press('ArrowDown');
  for (const [key, index] of [['ArrowRight', 1], ['ArrowRight', 2], ['ArrowLeft', 1], ['ArrowDown', 1 + columns],
    ['ArrowUp', 1], ['End', last], ['ArrowRight', last]]) {
    await press(key);
    assert.equal(await focusedName(page), namesOfFiles[index], key);
  }
  await press('ArrowUp', 'Enter');
  const opened = last - columns;
  assert.equal(await title(), namesOfFiles[opened]);
  for (const [key, index] of [['ArrowRight', opened + 1], ['ArrowLeft', opened], ['Home', 0], ['ArrowLeft', 0],
    ['End', last], ['ArrowRight', last], ['ArrowLeft', last - 1]]) {
    await press(key);
    assert.equal(await title(), namesOfFiles[index], key);
  }
  await press('r');
  await loaded(picture(page));
  assert.match(await picture(page).evaluate((image) => image.currentSrc), /&rotate=1$/);
  await press('Escape');
  assert.equal(await page.locator('dialog').isVisible(), false);
  assert.equal(await focusedName(page), namesOfFiles.at(-2));
  await press('Enter');
  assert.equal(await title(), namesOfFiles.at(-2));
  assert.deepEqual(page.troubles, []);
});

for (const [name, expected] of [
  ['photo.jpg', {original: 'original/photo.jpg', query: '?size=large'}],
  ['#1 50% off? & more.jpg', {original: 'original/%231%2050%25%20off%3F%20%26%20more.jpg', query: '?size=large'}],
  ['moving.gif', {original: 'original/moving.gif', query: '?size=large&animate=1'}],
  ['phone.heic', {original: null, query: '?size=large'}],
]) {
  test(`the viewer shows ${name} large and links to the original that a browser can show`, async (t) => {
    const page = await visitViewer(t, name);
    const link = page.getByRole('link', {name: 'Original'});
    const original = await link.count() ? await link.getAttribute('href') : null;
    const query = new URL(await picture(page).evaluate((image) => image.currentSrc)).search;
    assert.deepEqual({original, query}, expected);
    if (original) assert.equal((await fetchAlone(page.request, site + original)).status(), 200);
  });
}

test('an animation plays in the viewer and is still in the grid', async (t) => {
  const page = await visitGrid(t);
  await loaded(tile(page, 'moving.gif').locator('img'));
  await tile(page, 'moving.gif').click();
  await loaded(picture(page));
  const typeOf = async (image) =>
    (await fetchAlone(page.request, await image.evaluate((element) => element.currentSrc))).headers()['content-type'];
  assert.equal(await typeOf(picture(page)), 'image/gif');
  assert.equal(await typeOf(tile(page, 'moving.gif').locator('img')), 'image/jpeg');
});

// ---- For everybody

for (const colorScheme of ['light', 'dark']) {
  test(`axe finds no violation in any view, ${colorScheme}`, async (t) => {
    const check = async (page, what) => {
      await page.evaluate(axe.source);
      const {violations, passes} = await page.evaluate(() => window.axe.run());
      assert.deepEqual(violations.map(({id, nodes}) => [id, nodes.map(({html}) => html)]), [], what);
      assert.ok(passes.some(({id}) => id === 'color-contrast'), what);
    };
    const page = await visitGrid(t, '', {colorScheme});
    await loadAll(page);
    await page.evaluate(() => scrollTo(0, 0));
    await check(page, 'grid');
    await page.screenshot({path: join(artifacts, `grid-${colorScheme}.png`)});
    await tile(page, 'photo.jpg').click();
    await loaded(picture(page));
    await check(page, 'viewer');
    await page.screenshot({path: join(artifacts, `viewer-${colorScheme}.png`)});
    const ground = await page.evaluate(() => getComputedStyle(document.body).backgroundColor.match(/\d+/g).map(Number));
    assert.equal(ground.every((part) => part > 127), colorScheme === 'light');

    const odd = await visitGrid(t, '#/odd%20ones', {colorScheme});
    await odd.getByText('Cannot be shown').waitFor();
    await check(odd, 'placeholders');
    const nowhere = await visit(t, '#/nowhere', {colorScheme});
    await nowhere.getByRole('alert').waitFor();
    await check(nowhere, 'error');
    const list = await visitGrid(t, 'list/', {colorScheme});
    await check(list, 'list');
  });
}

test('the page and the lists are valid HTML', async (t) => {
  const {request} = await newPage(t);
  const validator = new HtmlValidate({extends: ['html-validate:standard'], rules: {'require-sri': 'off'}});
  for (const address of ['', 'list/', 'list/odd%20ones', 'list/2024%20%C3%A9t%C3%A9']) {
    const text = await (await fetchAlone(request, site + address, {Accept: 'text/html'})).text();
    const {results} = await validator.validateString(text);
    assert.deepEqual(results.flatMap(({messages}) => messages.map(({line, message}) => [line, message])), [], address);
  }
});

test('without JavaScript, a picture that cannot be shown says so', async (t) => {
  const page = await visit(t, 'list/odd%20ones', {javaScriptEnabled: false});
  const saying = (name) => tile(page, name).evaluate((element) => {
    const image = element.querySelector('img');
    return image ? [image.naturalWidth > 0, getComputedStyle(image, '::after').content] : element.innerText;
  });
  await page.waitForLoadState('networkidle');
  assert.deepEqual(await saying('damaged.jpg'), [false, '"Cannot be shown"']);
  assert.equal(await saying('unseen.iso'), 'Video\nunseen.iso');
  await page.screenshot({path: join(artifacts, 'list.png')});
});

test('without JavaScript, a list with links and pictures replaces the page', async (t) => {
  const page = await visit(t, '', {javaScriptEnabled: false});
  await page.waitForURL(`${site}list/`);
  await page.locator('body.list').waitFor();
  assert.deepEqual(await page.locator('.tile .name').allTextContents(), namesAsListed);
  const images = await page.locator('.tile img').all();
  assert.equal(images.length, namesOfFiles.length);
  for (const image of images) {
    await image.scrollIntoViewIfNeeded();
    await page.waitForLoadState('networkidle');
    assert.notEqual(await shapeOf(image), 'nothing');
  }
  for (const link of await tiles(page).all()) {
    const address = new URL(await link.getAttribute('href'), page.url());
    const response = await fetchAlone(page.request, address.href);
    assert.equal(response.status(), 200, address.href);
    assert.match(response.headers()['content-type'], /^(image|video)\//, address.href);
  }
  await page.getByRole('link', {name: '2024 été'}).click();
  await page.getByRole('link', {name: 'day #1'}).click();
  assert.deepEqual(await page.locator('.crumbs a').allTextContents(), ['All', '2024 été', 'day #1']);
  assert.deepEqual(await page.locator('.tile .name').allTextContents(), ['noon.jpg']);
  await page.locator('.crumbs').getByText('2024 été').click();
  assert.deepEqual(await page.locator('.tile .name').allTextContents(), ['morning.jpg']);
  assert.deepEqual(page.troubles, []);
});

// ---- Addresses

test('a photo has an address: Back closes the viewer, a link opens it, a reload stays', async (t) => {
  const page = await visitGrid(t);
  const state = async () => [page.url().slice(site.length), await page.locator('dialog').isVisible(), await page.title()];
  await page.getByRole('link', {name: '2024 été'}).click();
  await tile(page, 'morning.jpg').click();
  await loaded(picture(page));
  const folder = ['#/2024%20%C3%A9t%C3%A9', false, '2024 été – Photos'];
  const opened = ['#/2024%20%C3%A9t%C3%A9?show=morning.jpg', true, 'morning.jpg – Photos'];
  assert.deepEqual(await state(), opened);
  await page.reload();
  await loaded(picture(page));
  assert.deepEqual(await state(), opened);
  await page.goBack();
  await page.waitForFunction(() => !document.querySelector('dialog').open);
  assert.deepEqual(await state(), folder);
  await page.goForward();
  await loaded(picture(page));
  assert.deepEqual(await state(), opened);

  const linked = await visit(t, opened[0]);
  await loaded(picture(linked));
  await linked.keyboard.press('Escape');
  await linked.waitForFunction(() => !location.hash.includes('show'));
  assert.equal(linked.url().slice(site.length), folder[0]);
  assert.equal(await focusedName(linked), 'morning.jpg');
  assert.deepEqual([page.troubles, linked.troubles], [[], []]);
});

test('Back leaves the viewer, however many photos it has shown, and a closed one stays closed', async (t) => {
  const page = await visitGrid(t);
  await tiles(page).first().click();
  for (let step = 0; step < 3; ++step) await page.keyboard.press('ArrowRight');
  await page.waitForFunction((name) => document.title.startsWith(name), namesOfFiles[3]);
  assert.equal(page.url(), `${site}#/?show=${encodeURIComponent(namesOfFiles[3])}`);
  await page.goBack();
  await page.waitForFunction(() => !document.querySelector('dialog').open);
  assert.equal(page.url(), site);
  assert.equal(await focusedName(page), namesOfFiles[3]);
  await page.keyboard.press('Enter');
  await page.keyboard.press('Escape');
  await page.waitForFunction(() => !location.hash.includes('show'));
  assert.equal(await page.locator('dialog').isVisible(), false);
});

test('an address of a photo that is gone says so', async (t) => {
  const page = await visit(t, '#/?show=gone%20%C3%A9.jpg');
  await page.getByRole('alert').waitFor();
  assert.equal(await page.getByRole('alert').textContent(), 'There is no gone é.jpg here.');
  assert.equal(await tiles(page).count(), namesOfFiles.length);
});

// ---- What the viewer does

const large = (name) => `${site}thumb/${encodeURIComponent(name)}?size=large`;
const untilAsked = (page, address) => page.waitForFunction((wanted) =>
  performance.getEntriesByType('resource').some(({name}) => name === wanted), address);

test('the viewer loads the next and the previous photo ahead, and asks for none twice', async (t) => {
  const page = await visitGrid(t);
  const middle = namesOfFiles.indexOf('phone.heic');
  await tiles(page).nth(middle).click();
  await loaded(picture(page));
  for (const by of [1, -1]) await untilAsked(page, large(namesOfFiles[middle + by]).replace('moving.gif?size=large', 'moving.gif?size=large&animate=1'));
  await page.waitForLoadState('networkidle');
  for (const key of ['ArrowRight', 'ArrowLeft', 'ArrowRight']) {
    await page.keyboard.press(key);
    assert.equal(await picture(page).evaluate((image) => image.complete && image.naturalWidth > 0), true, key);
  }
  await page.waitForLoadState('networkidle');
  const asked = page.asked.filter((url) => url.includes('size=large'));
  assert.deepEqual(asked, [...new Set(asked)]);
});

test('until the large picture comes, the viewer shows that of the tile', async (t) => {
  const page = await newPage(t);
  let release;
  const held = new Promise((resolve) => { release = resolve; });
  await page.route('**/thumb/photo.jpg?size=large', async (route) => { await held; await route.continue(); });
  await page.goto(site);
  await loaded(tile(page, 'photo.jpg').locator('img'));
  const ofTile = await tile(page, 'photo.jpg').locator('img').evaluate((image) => image.currentSrc);
  await tile(page, 'photo.jpg').click();
  const standIn = page.locator('#stage .stand-in');
  assert.equal(await cornerOf(standIn), 'bottom right');
  assert.equal(await standIn.evaluate((image) => image.currentSrc), ofTile);
  release();
  await standIn.waitFor({state: 'detached'});
  assert.equal(await cornerOf(picture(page)), 'bottom right');
  assert.deepEqual(page.asked.filter((url) => url === ofTile).length, 1);
});

test('rotation is remembered for the session, also by the picture that stands in', async (t) => {
  const page = await visitViewer(t, 'photo.jpg');
  await page.keyboard.press('r');
  assert.equal(await cornerOf(picture(page)), 'bottom left');
  await page.keyboard.press('ArrowRight');
  await page.keyboard.press('ArrowLeft');
  assert.equal(await cornerOf(picture(page)), 'bottom left');
  await page.route('**/thumb/photo.jpg?size=large&rotate=1', () => {});
  await page.reload();
  const standIn = page.locator('#stage .stand-in');
  await loaded(standIn);
  assert.equal(await standIn.evaluate((image) => getComputedStyle(image).rotate), '90deg');
  assert.deepEqual(...await standIn.evaluate((image) => {
    const {clientWidth, clientHeight} = image.parentNode;
    return [[image.offsetWidth, image.offsetHeight], [clientHeight, clientWidth]];
  }));
  const another = await visitViewer(t, 'photo.jpg');
  assert.equal(await cornerOf(picture(another)), 'bottom right');
});

const scaleOf = (page) => page.locator('#sheet').evaluate((sheet) =>
  new DOMMatrix(getComputedStyle(sheet).transform).a);

test('wheel, keys and a double click zoom, a drag moves, and what is zoomed becomes sharp', async (t) => {
  const page = await visitViewer(t, 'photo.jpg');
  const box = await page.locator('#stage').boundingBox();
  const middle = [box.x + box.width / 2, box.y + box.height / 2];
  await page.mouse.move(...middle);
  await page.mouse.wheel(0, -500);
  await page.waitForFunction(() => document.querySelector('#stage').classList.contains('zoomed'));
  assert.ok(Math.abs(await scaleOf(page) - Math.E) < 0.01);
  await page.waitForFunction((wanted) => document.querySelector('#stage img.large').src === wanted, `${site}original/photo.jpg`);
  const before = await picture(page).boundingBox();
  await page.mouse.down();
  await page.mouse.move(middle[0] - 100, middle[1] - 50, {steps: 5});
  await page.mouse.up();
  const after = await picture(page).boundingBox();
  assert.deepEqual([after.x - before.x, after.y - before.y].map(Math.round), [-100, -50]);
  await page.keyboard.press('0');
  assert.equal(await scaleOf(page), 1);
  await page.keyboard.press('+');
  assert.equal(await scaleOf(page), 1.5);
  await page.keyboard.press('-');
  assert.equal(await scaleOf(page), 1);
  await page.mouse.dblclick(...middle);
  assert.equal(await scaleOf(page), 3);
  assert.equal(await page.locator('#title').textContent(), 'photo.jpg');
  await page.keyboard.press('ArrowRight');
  assert.equal(await scaleOf(page), 1);
  assert.deepEqual(page.troubles, []);
});

// Fingers on a touch screen: each step is the list of their places.
async function touch(page, steps) {
  const client = await page.context().newCDPSession(page);
  const points = (places) => places.map(([x, y], id) => ({x, y, id}));
  await client.send('Input.dispatchTouchEvent', {type: 'touchStart', touchPoints: points(steps[0])});
  for (const places of steps.slice(1)) {
    await client.send('Input.dispatchTouchEvent', {type: 'touchMove', touchPoints: points(places)});
  }
  await client.send('Input.dispatchTouchEvent', {type: 'touchEnd', touchPoints: []});
}

const phone = {viewport: {width: 390, height: 844}, deviceScaleFactor: 3, hasTouch: true, isMobile: true};

test('on a phone, swipes show the next and the previous photo, and a pinch zooms', async (t) => {
  const page = await visitViewer(t, 'photo.jpg', phone);
  const index = namesOfFiles.indexOf('photo.jpg');
  const title = () => page.locator('#title').textContent();
  await touch(page, [[[300, 400]], [[250, 402]], [[150, 405]]]);
  assert.equal(await title(), namesOfFiles[index + 1]);
  await touch(page, [[[100, 400]], [[200, 400]], [[260, 400]]]);
  assert.equal(await title(), 'photo.jpg');
  await touch(page, [[[300, 300]], [[290, 400]], [[280, 550]]]);
  assert.equal(await title(), 'photo.jpg', 'a vertical drag does not count as a swipe');
  assert.equal(await page.locator('#sheet').evaluate((sheet) => sheet.style.transform), '');
  await touch(page, [[[180, 400], [220, 400]], [[160, 400], [240, 400]], [[120, 400], [280, 400]]]);
  assert.ok(Math.abs(await scaleOf(page) - 4) < 0.01, String(await scaleOf(page)));
  await touch(page, [[[300, 400]], [[200, 400]], [[100, 400]]]);
  assert.equal(await title(), 'photo.jpg', 'what is zoomed moves');
});

for (const [name, expected] of [
  ['photo.jpg', `filename="photo.jpg"; filename*=UTF-8''photo.jpg`],
  ['phone.heic', `filename="phone.heic"; filename*=UTF-8''phone.heic`],
  ['camera.raf', `filename="camera.raf"; filename*=UTF-8''camera.raf`],
  ['film.mp4', `filename="film.mp4"; filename*=UTF-8''film.mp4`],
  ['Zürich – 東京.jpg', `filename="Z_rich _ __.jpg"; filename*=UTF-8''Z%C3%BCrich%20%E2%80%93%20%E6%9D%B1%E4%BA%AC.jpg`],
]) {
  test(`the viewer downloads the original of ${name}`, async (t) => {
    const page = await visitGrid(t);
    await tile(page, name).click();
    const link = page.getByRole('link', {name: 'Download'});
    const response = await fetchAlone(page.request, site + await link.getAttribute('href'));
    assert.equal(response.headers()['content-disposition'], `attachment; ${expected}`);
    const [download] = await Promise.all([page.waitForEvent('download'), link.click()]);
    assert.equal(download.suggestedFilename(), name);
    assert.ok(readFileSync(await download.path()).equals(readFileSync(join(pictures, name))));
  });
}

// A film of a second, recorded by the browser.
async function recordFilm(page) {
  const bytes = await page.evaluate(async () => {
    const canvas = Object.assign(document.createElement('canvas'), {width: 64, height: 48});
    const context = canvas.getContext('2d');
    const recorder = new MediaRecorder(canvas.captureStream(25), {mimeType: 'video/webm'});
    const parts = [];
    recorder.addEventListener('dataavailable', ({data}) => parts.push(data));
    recorder.start();
    for (let frame = 0; frame < 25; ++frame) {
      context.fillStyle = `hsl(${frame * 10} 80% 50%)`;
      context.fillRect(0, 0, 64, 48);
      await new Promise((resolve) => setTimeout(resolve, 40));
    }
    await new Promise((resolve) => { recorder.addEventListener('stop', resolve); recorder.stop(); });
    return [...new Uint8Array(await new Blob(parts).arrayBuffer())];
  });
  return Buffer.from(bytes);
}

test('a video has a mark with its length', async (t) => {
  const folder = join(pictures, 'lengths');
  mkdirSync(folder);
  t.after(() => rmSync(folder, {recursive: true}));
  const header = Buffer.alloc(116);  // a box moov with a box mvhd: 83,000 thousandths of a second
  header.writeUInt32BE(116, 0), header.write('moov', 4), header.writeUInt32BE(108, 8), header.write('mvhd', 12);
  header.writeUInt32BE(1000, 28), header.writeUInt32BE(83000, 32);
  writeFileSync(join(folder, 'known.iso'), header);
  writeFileSync(join(folder, 'unknown.iso'), '');
  const page = await visitGrid(t, '#/lengths');
  await page.waitForFunction(() => document.querySelectorAll('.film[data-length]').length === 2);
  assert.deepEqual(await page.locator('.film').evaluateAll((films) => films.map((film) => film.dataset.length)), ['1:23', '']);
  await page.screenshot({path: join(artifacts, 'films.png')});
});

test('a video that the browser can play plays in the viewer', async (t) => {
  const folder = join(pictures, 'films');
  const page = await newPage(t);
  await page.goto('about:blank');
  mkdirSync(folder);
  t.after(() => rmSync(folder, {recursive: true}));
  writeFileSync(join(folder, 'film.webm'), await recordFilm(page));
  await page.goto(`${site}#/films?show=film.webm`);
  const video = page.locator('#stage video');
  await video.evaluate((element) => { element.muted = true; return element.play(); });
  await page.waitForFunction(() => document.querySelector('video').currentTime > 0.2);
  assert.deepEqual(await video.evaluate(({videoWidth, videoHeight}) => [videoWidth, videoHeight]), [64, 48]);
  assert.deepEqual(page.troubles, []);
});

test('the viewer tells what is known of a photo, and nothing else', async (t) => {
  const page = await visitViewer(t, 'turned.jpg');
  const rows = () => page.locator('#facts dt').evaluateAll((all) => Object.fromEntries(
    all.map((name) => [name.textContent, name.nextElementSibling.textContent])));
  const button = page.getByRole('button', {name: 'Information'});
  assert.deepEqual([await page.locator('#facts').isVisible(), await button.getAttribute('aria-expanded')], [false, 'false']);
  assert.deepEqual(page.asked.filter((url) => url.includes('turned.jpg?facts=1')), []);
  await button.click();
  await page.getByText('pixels').waitFor();
  const {Changed, File, ...others} = await rows();
  assert.ok(Changed);
  assert.match(File, /^JPG, [\d.]+ [KM]B$/);
  assert.deepEqual(others, {
    Taken: 'May 1, 2024 at 12:30 PM', Camera: 'NIKON D3100', Lens: '<b>50 mm</b>', Exposure: '1/60 s, f/1.8',
    Place: '48.89250, 2.23639', Size: '1000 × 1500 pixels',
  });
  await page.keyboard.press('Home');
  await page.getByText('900 × 600 pixels').waitFor();
  assert.deepEqual(Object.keys(await rows()), ['Size', 'File', 'Changed']);
  await page.keyboard.press('i');
  assert.equal(await page.locator('#facts').isVisible(), false);
  assert.deepEqual(page.troubles, []);
});

// ---- Order and search

const mixed = [['photo10.jpg', 3], ['photo2.jpg', 1], ['Photo1.jpg', 2], ['éclair.jpg', 4]].map(([name, modified]) => ({
  name, url: encodeURIComponent(name), kind: 'image', type: 'jpg', bytes: 1, modified, original: true}));
const shownNames = (page) => page.locator('.tile .name').allTextContents();

test('files are shown in the order that is chosen, which is remembered', async (t) => {
  const page = await visitListed(t, {files: mixed, unreadable: 0});
  await page.route(`${site}list/?dates=1&after=`, (route) => route.fulfill(
    {json: {taken: {'photo10.jpg': '1969-01-01T10:00:00', 'photo2.jpg': '1969-01-01T10:00:01'}, next: 'photo2.jpg'}}));
  await page.route(`${site}list/?dates=1&after=photo2.jpg`, (route) => route.fulfill(
    {json: {taken: {'Photo1.jpg': '1969-01-01T09:00:00'}, next: null}}));
  await tiles(page).first().waitFor();
  assert.deepEqual(await shownNames(page), ['éclair.jpg', 'Photo1.jpg', 'photo2.jpg', 'photo10.jpg']);
  for (const [order, expected] of [
    ['name', ['photo10.jpg', 'photo2.jpg', 'Photo1.jpg', 'éclair.jpg']],
    ['newest', ['éclair.jpg', 'photo10.jpg', 'Photo1.jpg', 'photo2.jpg']],
    ['taken', ['Photo1.jpg', 'photo10.jpg', 'photo2.jpg', 'éclair.jpg']],
  ]) {
    await page.getByLabel('Order').selectOption(order);
    await page.waitForFunction((first) => document.querySelector('.tile .name').textContent === first, expected[0]);
    assert.deepEqual(await shownNames(page), expected, order);
  }
  await page.reload();
  await page.waitForFunction(() => document.querySelector('.tile .name')?.textContent === 'Photo1.jpg');
  assert.deepEqual(await shownNames(page), ['Photo1.jpg', 'photo10.jpg', 'photo2.jpg', 'éclair.jpg']);
  assert.equal(await page.getByLabel('Order').inputValue(), 'taken');
});

test('the dates of a real folder give its order', async (t) => {
  const page = await visitGrid(t);
  await page.getByLabel('Order').selectOption('taken');
  await page.waitForFunction(() => document.querySelector('.tile .name').textContent === 'turned.jpg');
  assert.deepEqual(page.asked.filter((url) => url.includes('dates')), [`${site}list/?dates=1&after=`]);
  assert.deepEqual(page.troubles, []);
});

test('the search finds files and folders by parts of their names', async (t) => {
  const page = await visitGrid(t);
  const search = page.getByRole('searchbox', {name: 'Search by name'});
  for (const [words, files, foundFolders, note] of [
    ['PICT', ['picture.bmp', 'picture.png', 'picture.tif'], [], `3 of ${namesOfFiles.length} files.`],
    ['zurich', ['Zürich – 東京.jpg'], [], `1 of ${namesOfFiles.length} files.`],
    ['ete', [], ['2024 été'], `0 of ${namesOfFiles.length} files.`],
    ['jpg off', ['#1 50% off? & more.jpg'], [], `1 of ${namesOfFiles.length} files.`],
    ['', namesOfFiles, ['2024 été', 'odd ones'], `${namesOfFiles.length} files.`],
  ]) {
    await search.fill(words);
    assert.deepEqual([await shownNames(page), await folderNames(page), await page.locator('#note').textContent()],
      [files, foundFolders, note], words);
  }
  await search.fill('picture');
  await tiles(page).first().click();
  assert.equal(await page.locator('#place').textContent(), '1 of 3');
});

// ---- Ten thousand photos

const many = Array.from({length: 10000}, (_, index) => ({name: `${index}.jpg`, url: `${index}.jpg`, kind: 'image',
  type: 'jpg', bytes: 1, modified: 1, original: true}));
const tileNumber = (url) => Number(/thumb\/(\d+)\.jpg/.exec(url)[1]);

// A folder of ten thousand photos. `answer` answers the requests for their pictures.
async function visitMany(t, answer) {
  const page = await newPage(t);
  page.started = [];
  await page.route(`${site}list/`, (route) => route.fulfill({json: {path: '', folders: [], files: many, unreadable: 0}}));
  await page.route('**/thumb/**', (route) => {
    page.started.push(tileNumber(route.request().url()));
    return answer(route);
  });
  await page.goto(site);
  await tiles(page).first().waitFor();
  return page;
}

const withPhoto = (route) => route.fulfill({path: join(pictures, '2024 été', 'morning.jpg'), contentType: 'image/jpeg'});
const numbersInView = (page) => page.evaluate(() => [...document.querySelectorAll('.tile')].filter((tile) => {
  const {top, bottom} = tile.getBoundingClientRect();
  return bottom > 0 && top < innerHeight;
}).map((tile) => Number(tile.dataset.index)));

test('of ten thousand photos, at most 400 tiles are in the document, wherever one scrolls', async (t) => {
  const page = await visitMany(t, withPhoto);
  const height = await page.evaluate(() => document.documentElement.scrollHeight);
  for (const part of [0, 0.1, 0.5, 0.99, 1, 0.3]) {
    await page.evaluate((top) => scrollTo(0, top), Math.round(part * height));
    await page.evaluate(() => new Promise((resolve) => requestAnimationFrame(() => requestAnimationFrame(resolve))));
    const inView = await numbersInView(page);
    const inDocument = await tiles(page).evaluateAll((all) => all.map((tile) => Number(tile.dataset.index)));
    assert.ok(inDocument.length <= 400, `${inDocument.length} tiles`);
    assert.deepEqual(inDocument, [...inDocument].sort((one, other) => one - other));
    assert.equal(inView.length, inView.at(-1) - inView[0] + 1);
    const columns = await page.locator('#grid').evaluate((grid) => getComputedStyle(grid).gridTemplateColumns.split(' ').length);
    const left = await tiles(page).evaluateAll((all) => new Set(all.map((tile) => tile.getBoundingClientRect().left)).size);
    assert.equal(left, columns);
    const setSizes = await page.locator('#grid li').evaluateAll((all) =>
      all.map((item) => [item.getAttribute('aria-setsize'), item.getAttribute('aria-posinset')]));
    assert.deepEqual(setSizes, inDocument.map((index) => ['10000', String(index + 1)]));
  }
  await page.evaluate(() => scrollTo(0, 0));
  await page.setViewportSize({width: 1800, height: 6000});
  await page.waitForFunction(() => document.querySelectorAll('.tile').length > 200);
  assert.ok(await tiles(page).count() <= 400);
});

test('of ten thousand photos, the end and the focus are one key away', async (t) => {
  const page = await visitMany(t, withPhoto);
  for (const [key, name] of [['ArrowRight', '0.jpg'], ['End', '9999.jpg'], ['ArrowLeft', '9998.jpg'], ['Home', '0.jpg']]) {
    await page.keyboard.press(key);
    assert.equal(await focusedName(page), name);
  }
  await page.evaluate(() => scrollTo(0, 100000));
  await page.waitForFunction(() => Number(document.querySelectorAll('.tile')[1].dataset.index) > 100);
  assert.equal(await focusedName(page), '0.jpg', 'a tile out of view keeps the focus');
  await page.keyboard.press('End');
  await page.keyboard.press('Enter');
  assert.equal(await page.locator('#place').textContent(), '10000 of 10000');
  await page.keyboard.press('Home');
  await page.keyboard.press('Escape');
  assert.equal(await focusedName(page), '0.jpg');
});

async function until(condition, what) {
  for (let tries = 0; !condition(); ++tries) {
    assert.ok(tries < 200, what);
    await new Promise((resolve) => setTimeout(resolve, 25));
  }
}

// Requests of tiles that wait until they are answered one by one.
async function visitManyHeld(t) {
  const pending = [];
  const page = await visitMany(t, (route) => { pending.push(route); });
  page.aborted = [];
  page.on('requestfailed', (request) => {
    if (request.failure().errorText === 'net::ERR_ABORTED') page.aborted.push(tileNumber(request.url()));
  });
  page.answerNext = async (count) => {
    for (let answered = 0; answered < count; ++answered) {
      await until(() => pending.length > 0, 'one request after the other');
      await withPhoto(pending.shift());
    }
  };
  page.dropPending = () => pending.splice(0);
  await until(() => page.started.length >= 6, 'the first requests');
  return page;
}

const ascending = (numbers) => [...numbers].sort((one, other) => one - other);

test('tiles in view are asked for first, six at a time', async (t) => {
  const page = await visitManyHeld(t);
  assert.deepEqual(page.started, [0, 1, 2, 3, 4, 5]);
  const inView = await numbersInView(page);
  await page.answerNext(inView.length);
  await until(() => page.started.length >= inView.length + 6, 'those next to the view');
  assert.deepEqual(page.started.slice(0, inView.length), inView);
  assert.deepEqual(page.aborted, []);
});

test('requests of what was scrolled away are aborted', async (t) => {
  const page = await visitManyHeld(t);
  await page.evaluate(() => scrollTo(0, 200000));
  await until(() => page.aborted.length >= 6 && page.started.length >= 12, 'aborted');
  assert.deepEqual(ascending(page.aborted), [0, 1, 2, 3, 4, 5]);
  const inView = await numbersInView(page);
  assert.deepEqual(page.started.slice(6), inView.slice(0, 6));
});

test('a tile next to the view gives way to those in view, and comes later', async (t) => {
  const page = await visitManyHeld(t);
  const first = await numbersInView(page);
  await page.answerNext(first.length);
  await until(() => page.started.length >= first.length + 6, 'those next to the view');
  const next = page.started.slice(first.length);
  page.dropPending();
  const row = await tiles(page).first().evaluate((tile) => tile.getBoundingClientRect().height);
  await page.evaluate((by) => scrollBy(0, by), (first.length / 6 + 2) * row);
  await until(() => page.aborted.length >= 6, 'aborted');
  assert.deepEqual(ascending(page.aborted), next);
  const inDocument = await tiles(page).evaluateAll((all) => all.map((tile) => Number(tile.dataset.index)));
  assert.deepEqual(next.filter((index) => inDocument.includes(index)), next);
  const inView = await numbersInView(page);
  await page.answerNext(inView.length + 6);
  await until(() => next.every((index) => page.started.lastIndexOf(index) > first.length + 6), 'they come later');
});

// ---- Names, screens

test('names that are written from right to left keep their direction', async (t) => {
  const name = 'صورة 1.jpg';
  const page = await visitListed(t, {files: [{...mixed[0], name}], folders: [{name: 'תמונות', url: 'x', photos: 2}], unreadable: 0});
  const direction = (selector) => page.locator(selector).evaluate((element) => getComputedStyle(element).direction);
  assert.deepEqual([await direction('.tile .name'), await direction('.folders .name')], ['rtl', 'rtl']);
  await tiles(page).first().click();
  assert.deepEqual([await page.locator('#title').textContent(), await direction('#title')], [name, 'rtl']);
});

test('a phone shows three tiles in a row, of no more than medium size', async (t) => {
  const page = await visitGrid(t, '', phone);
  await loadAll(page);
  assert.equal(await page.locator('#grid').evaluate((grid) => getComputedStyle(grid).gridTemplateColumns.split(' ').length), 3);
  const sizes = new Set(page.asked.filter((url) => /thumb\/[^/]*$/.test(url)).map((url) => new URL(url).search));
  assert.deepEqual([...sizes], ['?size=medium']);
});

test('nothing moves by itself for those who want less motion', async (t) => {
  const page = await visitViewer(t, 'photo.jpg', {reducedMotion: 'reduce'});
  await page.keyboard.press('+');
  assert.deepEqual(await page.evaluate(() => document.getAnimations().length), 0);
});

test('inline scripts and styles, and those from other origins, are blocked', async (t) => {
  const page = await visitGrid(t);
  const refused = await page.evaluate(async () => {
    const directives = [];
    document.addEventListener('securitypolicyviolation', (event) => directives.push(event.effectiveDirective));
    const add = (tag, properties) => document.head.append(Object.assign(document.createElement(tag), properties));
    add('script', {textContent: 'window.wasRun = true'});
    add('style', {textContent: 'body { color: red }'});
    add('img', {src: 'data:image/gif;base64,R0lGODlhAQABAAAAACw='});
    await fetch('http://localhost:9/').catch(() => {});
    await new Promise((resolve) => setTimeout(resolve));
    return {directives: directives.sort(), wasRun: window.wasRun === true};
  });
  assert.deepEqual(refused,
    {directives: ['connect-src', 'img-src', 'script-src-elem', 'style-src-elem'], wasRun: false});
});
