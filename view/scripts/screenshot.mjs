// SPDX-License-Identifier: Apache-2.0
//
// node scripts/screenshot.mjs PAGE.html OUT.png
//
// A picture of a page of the sample survey, for the documentation: the middle slice.

import path from 'node:path';
import { launch, open, settle } from '../tests/browser/browser.mjs';

const [file, out] = process.argv.slice(2);
if (!out) {
  console.error('Usage: node scripts/screenshot.mjs PAGE.html OUT.png');
  process.exit(2);
}
const browser = await launch();
try {
  const { page, faults } = await open(browser, path.resolve(file), { width: 1000, height: 620 });
  await page.keyboard.press('.');
  await settle(page);
  await page.screenshot({ path: out });
  if (faults.length > 0) throw new Error(faults.join('\n'));
} finally {
  await browser.close();
}
