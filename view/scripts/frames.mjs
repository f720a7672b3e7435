// SPDX-License-Identifier: Apache-2.0
//
// node scripts/frames.mjs PAGE.html
//
// Prints how many frames a second a page draws in a headless browser, which draws in software: of all points, one frame after
// the other, and while the view is being turned, when a slow machine draws fewer points.

import path from 'node:path';
import { launch, open } from '../tests/browser/browser.mjs';

const [file] = process.argv.slice(2);
if (!file) {
  console.error('Usage: node scripts/frames.mjs PAGE.html');
  process.exit(2);
}
const width = 1280;
const height = 800;
const browser = await launch();
try {
  const { page, faults } = await open(browser, path.resolve(file), { width, height });
  const whole = await page.evaluate(() => {
    const { stage } = tidewatch;
    const gl = stage.renderer.getContext();
    const pixel = new Uint8Array(4);
    const draw = () => {
      stage.drawNow();
      // Waits until the picture is there.
      gl.readPixels(0, 0, 1, 1, gl.RGBA, gl.UNSIGNED_BYTE, pixel);
    };
    draw();
    const frames = 10;
    const begin = performance.now();
    for (let frame = 0; frame < frames; ++frame) draw();
    return (frames * 1000) / (performance.now() - begin);
  });
  await page.evaluate(() => {
    const { stage } = tidewatch;
    const after = stage.afterFrame;
    tidewatch.frames = 0;
    tidewatch.shares = 0;
    stage.afterFrame = () => {
      ++tidewatch.frames;
      tidewatch.shares += stage.shareOfFrame;
      after();
    };
  });
  await page.mouse.move(width / 2, height / 2);
  await page.mouse.down();
  const seconds = 10;
  const begin = Date.now();
  for (let step = 0; Date.now() - begin < seconds * 1000; ++step)
    await page.mouse.move(width / 2 + 300 * Math.sin(step / 20), height / 2 + 60 * Math.cos(step / 20));
  const { frames, shares } = await page.evaluate(() => ({ frames: tidewatch.frames, shares: tidewatch.shares }));
  await page.mouse.up();
  const took = (Date.now() - begin) / 1000;
  console.log(`all points: ${whole.toFixed(1)} frames a second`);
  console.log(
    `turning: ${(frames / took).toFixed(1)} frames a second, with ${Math.round((100 * shares) / Math.max(1, frames))} % of the points on average`,
  );
  if (faults.length > 0) throw new Error(faults.join('\n'));
} finally {
  await browser.close();
}
