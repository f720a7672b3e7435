// SPDX-License-Identifier: Apache-2.0
//
// Opens pages in a headless browser and keeps account of what must not happen there.

import fs from 'node:fs';
import puppeteer from 'puppeteer-core';

/** The browser's program; null where there is none. */
export function browserProgram() {
  const candidates = [process.env.TIDEWATCH_CHROMIUM, '/usr/bin/chromium', '/usr/bin/chromium-browser', '/usr/bin/google-chrome'];
  return candidates.find((name) => name && fs.existsSync(name)) ?? null;
}

export function launch() {
  return puppeteer.launch({
    executablePath: browserProgram(),
    headless: true,
    // Containers have no user namespaces to build a sandbox from, and no graphics card.
    args: ['--no-sandbox', '--use-angle=swiftshader', '--enable-unsafe-swiftshader', '--ignore-gpu-blocklist', '--force-color-profile=srgb'],
  });
}

/** Opens a file. `faults` collects errors, messages of the browser, and requests for anything but the file itself. */
export async function open(browser, file, { width = 1280, height = 800, ratio = 1, hash = '', touch = false, dark = false } = {}) {
  const page = await browser.newPage();
  await page.setViewport({ width, height, deviceScaleFactor: ratio, hasTouch: touch, isMobile: touch });
  await page.emulateMediaFeatures([
    { name: 'prefers-color-scheme', value: dark ? 'dark' : 'light' },
    { name: 'prefers-reduced-motion', value: 'reduce' },
  ]);
  const faults = [];
  const address = `file://${file}`;
  page.on('pageerror', (error) => faults.push(`error: ${error.message}`));
  page.on('console', (message) => {
    // The tests themselves read canvases back.
    if (message.text().includes('willReadFrequently')) return;
    if (['error', 'warn', 'assert'].includes(message.type())) faults.push(`${message.type()}: ${message.text()}`);
  });
  page.on('request', (request) => {
    if (request.url().split('#')[0] !== address && request.url() !== 'data:,') faults.push(`request: ${request.url()}`);
  });
  page.on('dialog', (dialog) => {
    faults.push(`dialog: ${dialog.message()}`);
    dialog.dismiss();
  });
  await page.goto(address + hash);
  await page.waitForFunction(() => typeof tidewatch === 'object' || document.getElementById('loading').childElementCount === 0, { timeout: 120_000 });
  await settle(page);
  return { page, faults };
}

/** Waits until the page has drawn what was asked for. */
export function settle(page) {
  return page.evaluate(
    () =>
      new Promise((done) => {
        // Two frames, and the one that follows a movement.
        setTimeout(() => requestAnimationFrame(() => requestAnimationFrame(() => done())), 260);
      }),
  );
}

/** What share of the picture's pixels differs from the background, and the mean colour of these. */
export function pixels(page) {
  return page.evaluate(() => {
    const canvas = tidewatch.picture();
    const { data } = canvas.getContext('2d').getImageData(0, 0, canvas.width, canvas.height);
    const back = [data[4 * (canvas.width - 3)], data[4 * (canvas.width - 3) + 1], data[4 * (canvas.width - 3) + 2]];
    const sum = [0, 0, 0];
    let drawn = 0;
    for (let at = 0; at < data.length; at += 4) {
      if (Math.abs(data[at] - back[0]) + Math.abs(data[at + 1] - back[1]) + Math.abs(data[at + 2] - back[2]) < 12) continue;
      ++drawn;
      for (let part = 0; part < 3; ++part) sum[part] += data[at + part];
    }
    return { share: drawn / (data.length / 4), mean: sum.map((value) => Math.round(value / Math.max(1, drawn))) };
  });
}
