// SPDX-License-Identifier: Apache-2.0
//
// What the page does, in a browser, on synthetic data.

import assert from 'node:assert/strict';
import fs from 'node:fs';
import os from 'node:os';
import path from 'node:path';
import test, { after, before, describe } from 'node:test';
import { makeTestPage } from '../../scripts/test-page.mjs';
import { hostileName } from '../support/syntheticSurvey.mjs';
import { browserProgram, launch, open, pixels, settle } from './browser.mjs';

const points = 20000;
const missing = browserProgram() === null ? 'no Chromium: scripts/setup.sh installs it' : false;

describe('the page', { skip: missing }, () => {
  let browser;
  let folder;
  let file;

  before(async () => {
    folder = fs.mkdtempSync(path.join(os.tmpdir(), 'tidewatch-page-'));
    file = path.join(folder, 'bay.html');
    fs.writeFileSync(file, await makeTestPage(points));
    browser = await launch();
  });
  after(async () => {
    await browser?.close();
    if (folder) fs.rmSync(folder, { recursive: true, force: true });
  });

  /** Runs a test in a page of its own, which must end without a fault. */
  const withPage = (name, options, body) =>
    test(name, async () => {
      const { page, faults } = await open(browser, file, options);
      try {
        await body(page);
        assert.deepEqual(faults, []);
      } finally {
        await page.close();
      }
    });
  const shown = (page) => page.evaluate(() => tidewatch.shown());
  const text = (page, selector) => page.$eval(selector, (element) => element.textContent);
  /** Clicks the place of the survey. */
  const clickAt = async (page, x, y, z) => {
    const [left, top] = await page.evaluate((...place) => tidewatch.project(...place), x, y, z);
    await page.mouse.click(left, top);
    await settle(page);
  };
  const key = async (page, name) => {
    await page.keyboard.press(name);
    await settle(page);
  };

  withPage('draws all points of the highest level of the first slice, without any request', {}, async (page) => {
    assert.equal(await shown(page), points);
    assert.match(await text(page, '#shown'), /20.000 points shown, thinned from 80.000/);
    const { share } = await pixels(page);
    assert.ok(share > 0.1 && share < 0.9, `${share} of the picture is drawn`);
  });

  withPage('shows hostile names as text', {}, async (page) => {
    assert.equal(await page.$$eval('img', (list) => list.length), 0);
    assert.equal(await page.title(), 'bay <script>alert(1)</script>');
    assert.ok((await text(page, '#layers')).includes(hostileName));
    assert.ok((await text(page, '#color')).includes('<b>Roughness</b>'));
  });

  withPage('goes from slice to slice by slider and keys', {}, async (page) => {
    const low = await pixels(page);
    await page.$eval('#time', (slider) => {
      slider.value = '2';
      slider.dispatchEvent(new Event('input', { bubbles: true }));
    });
    await settle(page);
    assert.equal(await text(page, '#time-text'), 't = 6');
    const high = await pixels(page);
    assert.notDeepEqual(high.mean, low.mean);
    // Classes are shown: at high tide there is more blue.
    assert.ok(high.mean[2] > low.mean[2], `${high.mean} after ${low.mean}`);
    await key(page, '.');
    assert.equal(await text(page, '#time-text'), 't = 0');
    await key(page, ',');
    assert.equal(await text(page, '#time-text'), 't = 6');
  });

  withPage('plays', {}, async (page) => {
    await page.click('#play');
    await page.waitForFunction(() => document.getElementById('time-text').textContent === 't = 6', { timeout: 8000 });
    await page.click('#play');
    assert.equal(await page.$eval('#play', (button) => button.getAttribute('aria-pressed')), 'false');
  });

  withPage('tells the exact coordinates and all attributes of a point', {}, async (page) => {
    await clickAt(page, 431250.123, 5921200.045, 30.007);
    const rows = Object.fromEntries(await page.$$eval('#card tr', (list) => list.map((row) => [...row.cells].map((cell) => cell.textContent))));
    assert.deepEqual(rows, {
      x: '431250.123',
      y: '5921200.045',
      z: '30.007',
      Classification: '200 (User Definable)',
      Intensity: '4711',
      ReturnNumber: rows.ReturnNumber,
      NumberOfReturns: rows.NumberOfReturns,
      GPSTime: '0.000000',
      'Colour (RGB)': rows['Colour (RGB)'],
      '<b>Roughness</b>': '0',
    });
    assert.match(rows.ReturnNumber, /^[12]$/);
    assert.match(rows['Colour (RGB)'], /^\d+, \d+, \d+$/);
    await page.click('#card .close');
    assert.equal(await page.$eval('#card', (card) => card.hidden), true);
  });

  withPage('switches classes off and on', {}, async (page) => {
    const counts = await page.$$eval('#classes label', (list) => list.map((label) => label.textContent));
    assert.deepEqual(counts.map((entry) => entry.replace(/[\d\s\u202f]+$/, '')), ['2 Ground', '5 High Vegetation', '9 Water', '200 User Definable']);
    const before = await shown(page);
    await page.click('#classes input[value="9"]');
    await settle(page);
    const without = await shown(page);
    assert.ok(without > 0 && without < before - 1000);
    const { mean } = await pixels(page);
    assert.ok(mean[0] > mean[2], `without water the picture is not blue: ${mean}`);
    await page.click('#classes .all button:nth-child(2)');
    assert.equal(await shown(page), 0);
    await page.click('#classes .all button:nth-child(1)');
    assert.equal(await shown(page), before);
  });

  withPage('switches refinement levels and surfaces', {}, async (page) => {
    const boxes = await page.$$eval('#layers input', (list) => list.map((box) => [box.value, box.checked]));
    assert.deepEqual(boxes.map(([, on]) => on), [false, true, false]);
    await page.click('#layers label:nth-child(1) input');
    assert.equal(await shown(page), points + points / 8);
    await page.click('#layers label:nth-child(1) input');
    await page.click('#layers label:nth-child(2) input');
    await page.click('#layers label:nth-child(3) input');
    await page.select('#color', 'height');
    await settle(page);
    const holes = await shown(page);
    assert.ok(holes < 126 * 101 && holes > 126 * 101 - 600);
    const { share } = await pixels(page);
    assert.ok(share > 0.1, `${share} of the picture is drawn`);
    // A place of the surface, and one in its hole.
    await key(page, 't');
    await clickAt(page, 431000 + 360, 5921000 + 80, -2.5);
    assert.match(await text(page, '#card'), /x431360y5921080Height-?\d+\.\d+WaterDepth/);
    await page.click('#card .close');
    await clickAt(page, 431000 + 160, 5921000 + 280, 1);
    assert.equal(await page.$eval('#card', (card) => card.hidden), true);
  });

  withPage('colours by every attribute', {}, async (page) => {
    const seen = new Set();
    for (const value of await page.$$eval('#color option', (list) => list.map((option) => option.value))) {
      await page.select('#color', value);
      await settle(page);
      const { share, mean } = await pixels(page);
      assert.ok(share > 0.1, `${value}: ${share}`);
      seen.add(mean.join());
    }
    assert.ok(seen.size >= 7, `${seen.size} different pictures`);
  });

  withPage('drags the range of the colours', {}, async (page) => {
    await page.select('#color', 'height');
    await settle(page);
    const before = await pixels(page);
    const grip = await (await page.$('#scale .grips button:nth-child(2)')).boundingBox();
    await page.mouse.move(grip.x + 7, grip.y + 7);
    await page.mouse.down();
    await page.mouse.move(grip.x - 100, grip.y + 7, { steps: 4 });
    await page.mouse.up();
    await settle(page);
    assert.notDeepEqual((await pixels(page)).mean, before.mean);
    const [low, high] = await page.$$eval('#scale .ends input', (list) => list.map((field) => Number(field.value)));
    assert.ok(low < high && high < 20, `${low} to ${high}`);
  });

  withPage('measures a distance and a height difference', {}, async (page) => {
    await key(page, 'm');
    const [left, top] = await page.evaluate(() => tidewatch.project(431250.123, 5921200.045, 30.007));
    await page.mouse.click(left, top);
    await page.mouse.click(left, top);
    assert.match(await text(page, '#card'), /Distance0\.000 m.*Height difference0\.000 m/);
    await key(page, 'Escape');
    await key(page, 'm');
    await clickAt(page, 431250.123, 5921200.045, 30.007);
    await clickAt(page, 431400, 5921330, 2);
    const [, rise] = /Height difference(-?\d+\.\d+) m/.exec(await text(page, '#card'));
    assert.ok(Number(rise) < -15 && Number(rise) > -40, rise);
  });

  withPage('cuts a section between two clicks', {}, async (page) => {
    await key(page, 't');
    await key(page, 'x');
    await clickAt(page, 431060, 5921010, 0);
    await clickAt(page, 431300, 5921380, 4);
    assert.equal(await page.$eval('#profile', (panel) => panel.hidden), false);
    const ink = () =>
      page.$eval('#profile-canvas', (canvas) => {
        const { data } = canvas.getContext('2d').getImageData(0, 0, canvas.width, canvas.height);
        let count = 0;
        for (let at = 3; at < data.length; at += 4) if (data[at] > 200) ++count;
        return count;
      });
    const narrow = await ink();
    assert.ok(narrow > 100, `${narrow} pixels`);
    await page.$eval('#profile-width', (slider) => {
      slider.value = '10';
      slider.dispatchEvent(new Event('input', { bubbles: true }));
    });
    await settle(page);
    assert.ok((await ink()) > 1.3 * narrow);
    await key(page, 'Escape');
    assert.equal(await page.$eval('#profile', (panel) => panel.hidden), true);
  });

  withPage('turns, moves and zooms by mouse and keys', {}, async (page) => {
    const view = () => page.evaluate(() => ({ ...tidewatch.stage.view }));
    const start = await view();
    const drag = async (button, dx, dy) => {
      await page.mouse.move(600, 400);
      await page.mouse.down({ button });
      await page.mouse.move(600 + dx, 400 + dy, { steps: 5 });
      await page.mouse.up({ button });
      await settle(page);
    };
    await drag('left', 100, 40);
    const turned = await view();
    assert.ok(turned.azimuth !== start.azimuth && turned.elevation > start.elevation && turned.distance === start.distance);
    await drag('right', 80, 0);
    assert.notDeepEqual((await view()).target, turned.target);
    await page.mouse.wheel({ deltaY: -300 });
    await settle(page);
    assert.ok((await view()).distance < turned.distance * 0.8);
    await key(page, 'ArrowRight');
    assert.equal(((await view()).azimuth - turned.azimuth + 360) % 360, 5);
    await key(page, '0');
    const home = await view();
    assert.ok(Math.abs(home.distance - start.distance) < 1e-6 * start.distance && home.azimuth === start.azimuth);
    // Turning by hand must not have been taken for a click.
    assert.equal(await page.$eval('#card', (card) => card.hidden), true);
  });

  withPage('shows scale bar and north arrow', {}, async (page) => {
    assert.match(await text(page, '#bar-text'), /^\d+ m$/);
    await key(page, 't');
    // Straight from above the bar can be checked against the ground.
    const { width, length } = await page.evaluate(() => ({
      width: document.getElementById('bar-line').getBoundingClientRect().width,
      length: parseFloat(document.getElementById('bar-text').textContent),
    }));
    const { target } = await page.evaluate(() => tidewatch.stage.view);
    const [a, b] = await page.evaluate(
      (x, y, z, span) => {
        const origin = tidewatch.survey.origin;
        return [tidewatch.project(origin[0] + x, origin[1] + y, origin[2] + z), tidewatch.project(origin[0] + x + span, origin[1] + y, origin[2] + z)];
      },
      ...target,
      length,
    );
    assert.ok(Math.abs(b[0] - a[0] - width) < 1.5, `${b[0] - a[0]} and ${width}`);
    assert.equal(await page.$eval('#needle', (needle) => needle.getAttribute('transform')), 'rotate(0)');
    await key(page, 'ArrowRight');
    assert.equal(await page.$eval('#needle', (needle) => needle.getAttribute('transform')), 'rotate(-5)');
  });

  withPage('saves a picture', {}, async (page) => {
    const downloads = fs.mkdtempSync(path.join(folder, 'downloads-'));
    const session = await page.createCDPSession();
    await session.send('Browser.setDownloadBehavior', { behavior: 'allow', downloadPath: downloads });
    await page.click('#save');
    let names = [];
    for (let tries = 0; tries < 100 && !names.some((name) => name.endsWith('.png')); ++tries) {
      await new Promise((done) => setTimeout(done, 100));
      names = fs.readdirSync(downloads);
    }
    assert.deepEqual(names, ['bay _script_alert_1_script_.png']);
    const bytes = fs.readFileSync(path.join(downloads, names[0]));
    assert.equal(bytes.toString('latin1', 1, 4), 'PNG');
    assert.deepEqual([bytes.readUInt32BE(16), bytes.readUInt32BE(20)], [1280, 800]);
    assert.ok(bytes.length > 20000);
  });

  test('a link restores the view', async () => {
    const first = await open(browser, file);
    await first.page.select('#color', 'intensity');
    await first.page.click('#classes input[value="5"]');
    await first.page.keyboard.press('.');
    await first.page.keyboard.press('ArrowLeft');
    await first.page.keyboard.press(']');
    await first.page.waitForFunction(() => location.hash.length > 10);
    await new Promise((done) => setTimeout(done, 700));
    const hash = await first.page.evaluate(() => location.hash);
    const state = (page) =>
      page.evaluate(() => ({
        color: document.getElementById('color').value,
        time: document.getElementById('time-text').textContent,
        shown: tidewatch.shown(),
        azimuth: tidewatch.stage.view.azimuth,
        size: tidewatch.stage.pointSize,
        off: [...document.querySelectorAll('#classes input')].filter((box) => !box.checked).map((box) => box.value),
      }));
    const second = await open(browser, file, { hash });
    assert.deepEqual(await state(second.page), await state(first.page));
    assert.deepEqual((await state(second.page)).off, ['5']);
    assert.deepEqual([...first.faults, ...second.faults], []);
    await first.page.close();
    await second.page.close();
  });

  withPage('knows light and dark', { dark: true }, async (page) => {
    const brightness = () =>
      page.evaluate(() => {
        const canvas = tidewatch.picture();
        return canvas.getContext('2d').getImageData(canvas.width - 3, 0, 1, 1).data[0];
      });
    assert.ok((await brightness()) < 60);
    await page.click('#theme');
    await settle(page);
    assert.ok((await brightness()) > 200);
  });

  withPage('shades edges, and not when told so', {}, async (page) => {
    await page.select('#color', 'plain');
    await settle(page);
    const shaded = await pixels(page);
    await key(page, 'e');
    const flat = await pixels(page);
    assert.ok(shaded.mean[0] < flat.mean[0] - 3, `${shaded.mean} and ${flat.mean}`);
  });

  withPage('is of use on a telephone', { width: 390, height: 780, ratio: 2, touch: true }, async (page) => {
    const overflow = await page.evaluate(() => document.documentElement.scrollWidth > window.innerWidth);
    assert.equal(overflow, false);
    assert.equal(await page.$eval('#panel', (panel) => getComputedStyle(panel).display), 'none');
    await page.tap('#more');
    assert.notEqual(await page.$eval('#panel', (panel) => getComputedStyle(panel).display), 'none');
    await page.tap('#more');
    const place = await page.evaluate(() => tidewatch.project(431250.123, 5921200.045, 30.007));
    await page.touchscreen.tap(...place);
    await settle(page);
    assert.match(await text(page, '#card'), /431250\.123/);
    const before = await page.evaluate(() => tidewatch.stage.view.azimuth);
    const touch = await page.touchscreen.touchStart(150, 300);
    await touch.move(220, 300);
    await touch.end();
    assert.notEqual(await page.evaluate(() => tidewatch.stage.view.azimuth), before);
  });

  test('a damaged page says what is wrong', async () => {
    const damaged = path.join(folder, 'damaged.html');
    fs.writeFileSync(damaged, fs.readFileSync(file, 'utf8').replace('"format":1', '"format":9'));
    const { page } = await open(browser, damaged);
    assert.match(await text(page, '#loading'), /format 9/);
    await page.close();
  });
});
