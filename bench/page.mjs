// SPDX-License-Identifier: GPL-3.0-or-later
// Run by bench/page: prints a table of what, figure, limit, whether it is met.
import {rmSync} from 'node:fs';
import {join} from 'node:path';
import {chromium} from 'playwright-core';

const site = process.env.TAVITHUMB_URL;
const phone = {viewport: {width: 390, height: 844}, deviceScaleFactor: 3, hasTouch: true, isMobile: true};
const line = {offline: false, latency: 20, downloadThroughput: 10e6 / 8, uploadThroughput: 10e6 / 8};
const browser = await chromium.launch({executablePath: '/usr/bin/chromium', args: ['--no-sandbox', '--disable-gpu']});
const median = (values) => [...values].sort((one, other) => one - other)[Math.floor(values.length / 2)];

// A page whose `received` counts the bytes from the network, headers included.
async function open(options, isSlow) {
  const page = await (await browser.newContext(options)).newPage();
  const client = await page.context().newCDPSession(page);
  await client.send('Network.enable');
  if (isSlow) await client.send('Network.emulateNetworkConditions', line);
  page.received = 0;
  client.on('Network.loadingFinished', ({encodedDataLength}) => { page.received += encodedDataLength; });
  return page;
}

// Milliseconds and bytes until all twelve photos are there.
async function viewCamera() {
  const page = await open(phone, true);
  const start = Date.now();
  await page.goto(`${site}#/camera`);
  await page.evaluate(() => new Promise((resolve) => {
    const check = () => {
      const images = [...document.querySelectorAll('.tile img')];
      if (images.length === 12 && images.every((image) => image.complete && image.naturalWidth > 0)) resolve();
    };
    document.addEventListener('load', check, true);
    check();
  }));
  const milliseconds = Date.now() - start;
  await page.waitForLoadState('networkidle');
  return {page, milliseconds, bytes: page.received};
}

// Milliseconds of each step through the viewer, a second after the one before.
async function stepThrough(page) {
  await page.locator('.tile').first().click();
  const steps = [];
  for (let step = 1; step < 12; ++step) {
    await page.waitForFunction(() => document.querySelector('#sheet img.large')?.naturalWidth > 0);
    await page.waitForTimeout(1000);
    const start = Date.now();
    await page.keyboard.press('ArrowRight');
    await page.waitForFunction((place) => document.querySelector('#place').textContent === place &&
      document.querySelector('#sheet img.large')?.naturalWidth > 0, `${step + 1} of 12`, {polling: 'raf'});
    steps.push(Date.now() - start);
  }
  return steps;
}

async function measureCamera() {
  const stored = join(process.env.TAVITHUMB_PICTURES, 'camera/.tavi_ea');
  const made = [];
  for (let round = 0; round < 3; ++round) {
    rmSync(stored, {recursive: true, force: true});
    const {page, milliseconds} = await viewCamera();
    made.push({milliseconds, steps: round ? [] : await stepThrough(page)});
    await page.context().close();
  }
  const views = [];
  for (let round = 0; round < 5; ++round) views.push(await viewCamera());
  const steps = await stepThrough(views[0].page);
  for (const {page} of views) await page.context().close();
  return {
    made: median(made.map(({milliseconds}) => milliseconds)), madeSteps: made[0].steps, steps,
    milliseconds: median(views.map(({milliseconds}) => milliseconds)), bytes: Math.max(...views.map(({bytes}) => bytes))};
}

// Milliseconds from the answer with the list to the frame after all tiles in view have their pictures' places, and to
// that in which all their pictures are there.
async function measureFirstTiles(page) {
  await page.goto(`${site}#/many`);
  return page.evaluate(async () => {
    const inView = () => [...document.querySelectorAll('.tile img')].filter((image) =>
      image.getBoundingClientRect().top < innerHeight);
    const nextFrame = () => new Promise((resolve) => { requestAnimationFrame(resolve); });
    while (inView().length === 0) await nextFrame();
    const tiles = performance.now();
    while (!inView().every((image) => image.complete && image.naturalWidth)) await nextFrame();
    const pictures = performance.now();
    const list = performance.getEntriesByType('resource').find(({name}) => name.endsWith('list/many')).responseEnd;
    return {tiles: tiles - list, pictures: pictures - list};
  });
}

// Scrolls for five seconds, and counts the frames and the tiles.
const scroll = (page) => page.evaluate(async () => {
  const start = performance.now();
  let frames = 0, tiles = 0, longest = 0, last = start;
  while (last < start + 5000) {
    scrollBy(0, 40);
    const now = await new Promise((resolve) => { requestAnimationFrame(() => resolve(performance.now())); });
    longest = Math.max(longest, now - last);
    last = now;
    frames += 1;
    tiles = Math.max(tiles, document.querySelectorAll('.tile').length);
  }
  return {rate: frames / (last - start) * 1000, count: tiles, longest};
});

async function measureMany() {
  const page = await open({viewport: {width: 1280, height: 800}}, false);
  const first = await measureFirstTiles(page);
  const scrolled = await scroll(page);
  const start = Date.now();
  await page.getByLabel('Order').selectOption('taken');
  await page.waitForFunction(() => !document.querySelector('#note').textContent.includes('dates'), null, {timeout: 120000});
  return {...first, ...scrolled, dates: Date.now() - start};
}

function row(what, figure, limit, isLeast = false) {
  const isMet = limit === undefined ? '-' : (isLeast ? figure >= limit : figure <= limit) ? 'yes' : 'NO';
  console.log(`${what.padEnd(64)} ${figure.toFixed(0).padStart(8)} ${String(limit ?? '-').padStart(8)}  ${isMet}`);
}

const many = await measureMany();
const camera = await measureCamera();
console.log(`${'what'.padEnd(64)} ${'figure'.padStart(8)} ${'limit'.padStart(8)}  met`);
row('twelve photos on a phone at 10 Mbit/s, thumbnails stored, ms', camera.milliseconds, 1500);
row('the same, thumbnails made now, ms', camera.made, 1500);
row('the same, bytes received', camera.bytes, 350000);
row('slowest step in the viewer, thumbnails stored, ms', Math.max(...camera.steps), 700);
row('the same, thumbnails made now, ms', Math.max(...camera.madeSteps), 700);
row('ten thousand photos: list to tiles in view, ms', many.tiles, 300);
row('list to pictures in view, ms', many.pictures);
row('tiles in the document while scrolling, at most', many.count, 400);
row('frames per second while scrolling', many.rate, 58, true);
row('longest frame, ms', many.longest);
row('reading the dates of all, ms', many.dates);
await browser.close();
