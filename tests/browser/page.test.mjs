// SPDX-License-Identifier: GPL-3.0-or-later
// The page as people see it: a real browser visits a running site, TAVITHUMB_URL, that serves the folder
// TAVITHUMB_PICTURES. Screenshots are stored in TAVITHUMB_ARTIFACTS.
import assert from 'node:assert/strict';
import {readdirSync, statSync} from 'node:fs';
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
const picture = (page) => page.locator('#stage img');

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
  await image.evaluate((element) => element.complete || new Promise((resolve) => {
    element.addEventListener('load', resolve);
    element.addEventListener('error', resolve);
  }));
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

const namesOfFiles = readdirSync(pictures).filter((name) => statSync(join(pictures, name)).isFile())
  .sort((one, other) => Buffer.compare(Buffer.from(one), Buffer.from(other)));
const good = ['photo.jpg', 'turned.jpg', 'phone.heic', 'camera.raf', 'picture.png', 'picture.bmp', 'picture.tif',
  'moving.gif', 'film.mp4'];

// ---- The grid

test('a folder is a grid with a tile for each file, with their names unchanged', async (t) => {
  const page = await visitGrid(t);
  assert.deepEqual(await page.locator('.tile .name').allTextContents(), namesOfFiles);
  assert.deepEqual(await page.locator('.tile img').evaluateAll((images) => images.map((image) => image.alt)),
    namesOfFiles);
  assert.deepEqual(await page.locator('.folders a').allTextContents(), ['2024 été', 'odd ones']);
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
    assert.deepEqual(thumbs.map((url) => new URL(url).search), namesOfFiles.map(() => `?size=${size}`));
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

test('a damaged picture and a video without a screenshot have placeholders; the latter is not requested', async (t) => {
  const page = await visitGrid(t, '#/odd%20ones');
  await tile(page, 'damaged.jpg').getByText('Cannot be shown').waitFor();
  await loaded(tile(page, 'good.jpg').locator('img'));
  assert.deepEqual(await page.locator('.tile').allInnerTexts(),
    ['Cannot be shown\ndamaged.jpg', 'good.jpg', 'Video\nunseen.mp4']);
  await tile(page, 'unseen.mp4').click();
  await page.locator('#stage').getByText('Video').waitFor();
  const damaged = '422 thumb/odd%20ones/damaged.jpg?size=medium';
  assert.deepEqual(page.troubles, [damaged, damaged]);  // the second tells why
  assert.deepEqual(page.asked.filter((url) => url.includes('unseen')), []);
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
  await refuse('good.jpg', [503, 503, 0, 0, 504, 503]);
  await refuse('damaged.jpg', [503, 200]);
  await page.goto(`${site}#/odd%20ones`);
  await tile(page, 'damaged.jpg').getByText('Cannot be shown').waitFor();
  const image = tile(page, 'good.jpg').locator('img');
  await page.waitForFunction((element) => element.naturalWidth > 0, await image.elementHandle(), {timeout: 20000});
  const pauses = [1, 3, 5].map((index) => times['good.jpg'][index + 1] - times['good.jpg'][index]);
  assert.ok(pauses.every((pause, index) => pause >= 1000 * 2 ** index - 50), String(pauses));  // a timer may be early
  assert.equal(times['good.jpg'].length, 7);
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
  assert.equal(await page.evaluate(() => document.activeElement.textContent), '2024 été');
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
  const page = await visitViewer(t, 'moving.gif');
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
  assert.equal(await saying('unseen.mp4'), 'Video\nunseen.mp4');
  await page.screenshot({path: join(artifacts, 'list.png')});
});

test('without JavaScript, a list with links and pictures replaces the page', async (t) => {
  const page = await visit(t, '', {javaScriptEnabled: false});
  await page.waitForURL(`${site}list/`);
  await page.locator('body.list').waitFor();
  assert.deepEqual(await page.locator('.tile .name').allTextContents(), namesOfFiles);
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
    assert.match(response.headers()['content-type'], /^image\//, address.href);
  }
  await page.getByRole('link', {name: '2024 été'}).click();
  await page.getByRole('link', {name: 'day #1'}).click();
  assert.deepEqual(await page.locator('.crumbs a').allTextContents(), ['All', '2024 été', 'day #1']);
  assert.deepEqual(await page.locator('.tile .name').allTextContents(), ['noon.jpg']);
  await page.locator('.crumbs').getByText('2024 été').click();
  assert.deepEqual(await page.locator('.tile .name').allTextContents(), ['morning.jpg']);
  assert.deepEqual(page.troubles, []);
});

test('a folder of 5,000 pictures loads only the visible ones, and its end is one key away', async (t) => {
  const files = Array.from({length: 5000}, (_, index) => ({name: `${index}.jpg`, url: 'photo.jpg', kind: 'image',
    type: 'jpg', bytes: 1, modified: 1, original: true}));
  files.at(-1).url = 'picture.png';
  const page = await visitListed(t, {files, unreadable: 0});
  await tiles(page).last().waitFor({state: 'attached'});
  assert.equal(await tiles(page).count(), 5000);
  await loaded(tiles(page).first().locator('img'));
  const waiting = await page.locator('.tile img').evaluateAll(
    (images) => images.filter((image) => !image.complete).length);
  assert.ok(waiting > 4500, `${waiting} wait`);
  await page.keyboard.press('ArrowRight');
  await page.keyboard.press('End');
  assert.equal(await focusedName(page), '4999.jpg');
  assert.equal(await cornerOf(tiles(page).last().locator('img')), 'bottom right');
  await page.keyboard.press('Enter');
  assert.equal(await page.locator('#place').textContent(), '5000 of 5000');
  assert.deepEqual(page.troubles, []);
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
