// SPDX-License-Identifier: Apache-2.0
//
// Pages that the program makes, in a browser: the sample survey, and a real cloud where it is there.

import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import fs from 'node:fs';
import os from 'node:os';
import path from 'node:path';
import test, { after, before, describe } from 'node:test';
import { launch, open, pixels, settle } from './browser.mjs';

const program = process.env.TIDEWATCH_PROGRAM_PATH;
const cloud = path.join(process.env.TIDEWATCH_SHARED ?? process.env.TIDEWATCH_SHARED_DIR ?? '', 'data/autzen_trim.laz');

describe('pages of the program', { skip: program ? false : 'TIDEWATCH_PROGRAM_PATH is not set' }, () => {
  let browser;
  let folder;

  before(async () => {
    folder = fs.mkdtempSync(path.join(os.tmpdir(), 'tidewatch-page-'));
    browser = await launch();
  });
  after(async () => {
    await browser?.close();
    if (folder) fs.rmSync(folder, { recursive: true, force: true });
  });

  const run = (...args) => execFileSync(program, args, { cwd: folder, encoding: 'utf8', stdio: ['ignore', 'pipe', 'pipe'] });
  const text = (page, selector) => page.$eval(selector, (element) => element.textContent);
  const clickAt = async (page, ...place) => {
    const [left, top] = await page.evaluate((...at) => tidewatch.project(...at), ...place);
    await page.mouse.click(left, top);
    await settle(page);
  };
  /** A point that nothing hides, seen from above: its piece's index and the texts of its columns. */
  const highest = (page) =>
    page.evaluate(() => {
      const [piece] = tidewatch.survey.shownPieces();
      let best = 0;
      for (let i = 0; i < piece.count; ++i) if (piece.z.value(i) > piece.z.value(best)) best = i;
      return { place: [piece.x.value(best), piece.y.value(best), piece.z.value(best)], rows: piece.columns.map((column) => [column.name, column.text(best)]) };
    });

  test('the tide comes and goes in the sample survey', async () => {
    run('sample', '--points', '30000', '-o', 'tides.h5');
    run('view', 'tides.h5', '-o', 'tides.html');
    const { page, faults } = await open(browser, path.join(folder, 'tides.html'));
    assert.equal(await page.evaluate(() => tidewatch.shown()), 30000);
    assert.match(await text(page, '#classes'), /2 Ground.*6 Building.*9 Water/);
    const blue = [];
    for (const time of ['0', '3', '6']) {
      assert.equal(await text(page, '#time-text'), `t = ${time}`);
      const { share, mean } = await pixels(page);
      assert.ok(share > 0.1, `${share}`);
      blue.push(mean[2] - mean[0]);
      await page.keyboard.press('.');
      await settle(page);
    }
    assert.ok(blue[0] < blue[1] && blue[1] < blue[2], blue.join());
    // The elevation grid has a hole where nothing was surveyed.
    await page.click('#layers label:nth-child(2) input');
    await page.click('#layers label:nth-child(3) input');
    await page.select('#color', 'height');
    await settle(page);
    const [shown, places] = await page.evaluate(() => [tidewatch.shown(), tidewatch.survey.shownPieces().reduce((sum, piece) => sum + piece.count, 0)]);
    assert.ok(shown < places && shown > places * 0.8, `${shown} of ${places}`);
    await page.keyboard.press('t');
    await settle(page);
    await clickAt(page, 431600, 5921700, 2);
    assert.match(await text(page, '#card'), /elevation, time 0.*CellType1.*Height.*WaterDepth0/);
    assert.deepEqual(faults, []);
    await page.close();
  });

  test('a real cloud shows its points as its file has them', { skip: fs.existsSync(cloud) ? false : 'no shared data' }, async () => {
    run('view', cloud, '-o', 'cloud.html');
    const { page, faults } = await open(browser, path.join(folder, 'cloud.html'));
    assert.equal(await page.evaluate(() => tidewatch.shown()), 110000);
    const { share } = await pixels(page);
    assert.ok(share > 0.05 && share < 0.9, `${share}`);
    await page.keyboard.press('t');
    await settle(page);
    const { place, rows } = await highest(page);
    await clickAt(page, ...place);
    const card = Object.fromEntries(await page.$$eval('#card tr', (list) => list.map((row) => [...row.cells].map((cell) => cell.textContent))));
    const known = Object.fromEntries(rows);
    assert.deepEqual([card.x, card.y, card.z], [known.x, known.y, known.z]);
    // The header of the file states the highest z, in steps of a hundredth.
    assert.equal(card.z, '520.51');
    assert.match(card.x, /^\d{6}\.\d\d$/);
    assert.equal(card.Intensity, known.Intensity);
    assert.equal(card.GPSTime, known.GPSTime);
    const before = await page.evaluate(() => tidewatch.shown());
    await page.click('#classes input[value="2"]');
    await settle(page);
    assert.equal(before - (await page.evaluate(() => tidewatch.shown())), 26107);
    await page.keyboard.press('x');
    await clickAt(page, 636200, 849050, 430);
    await clickAt(page, 636900, 849050, 430);
    assert.equal(await page.$eval('#profile', (panel) => panel.hidden), false);
    assert.deepEqual(faults, []);
    await page.close();
  });
});
