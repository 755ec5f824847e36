// SPDX-License-Identifier: GPL-3.0-or-later
// Run by script/bench --maker --peers: processor time of sharp for all sizes of a photo, in milliseconds. Each set of
// sizes is made in two documented ways; the faster one counts.
//   node peers.mjs FOLDER-WITH-NODE-MODULES PHOTO ROUNDS
import { createRequire } from 'node:module';

const [folder, photo, rounds] = process.argv.slice(2);
const sharp = createRequire(`${folder}/`)('sharp');
sharp.cache(false);
sharp.concurrency(1);

const within = (side) => [side, side, { fit: 'inside', withoutEnlargement: true }];

// One pipeline for each size: each scales while it decodes.
const fromFile = (sides) =>
  Promise.all(sides.map((side) => sharp(photo, { failOn: 'none' }).resize(...within(side)).jpeg({ quality: 80 }).toBuffer()));

// One decode for the largest size, the others from its pixels.
async function fromLargest(sides) {
  const { data, info } = await sharp(photo, { failOn: 'none' })
    .resize(...within(Math.max(...sides)))
    .raw()
    .toBuffer({ resolveWithObject: true });
  return Promise.all(sides.map((side) => sharp(data, { raw: info }).resize(...within(side)).jpeg({ quality: 80 }).toBuffer()));
}

async function milliseconds(make, sides) {
  const times = [];
  for (let i = -2; i < Number(rounds); i++) {
    const start = process.cpuUsage();
    await make(sides);
    const { user, system } = process.cpuUsage(start);
    if (i >= 0) times.push((user + system) / 1000);
  }
  return times.sort((a, b) => a - b)[Math.floor(times.length / 2)];
}

const result = {};
for (const [name, sides] of Object.entries({ three: [120, 360, 640], four: [120, 360, 640, 1280] })) {
  result[name] = Math.min(await milliseconds(fromFile, sides), await milliseconds(fromLargest, sides));
}
console.log(JSON.stringify(result));
