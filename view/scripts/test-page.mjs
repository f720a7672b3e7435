// SPDX-License-Identifier: Apache-2.0
//
// node scripts/test-page.mjs OUT.html [POINTS]
//
// Makes a page of synthetic data, to work on the page without the program.

import fs from 'node:fs';
import path from 'node:path';
import { fileURLToPath } from 'node:url';
import { dataElements } from '../tests/support/pack.mjs';
import { syntheticSurvey } from '../tests/support/syntheticSurvey.mjs';
import { dataMark, makeTemplate } from './build.mjs';

/** A page of a synthetic survey with clouds of so many points. */
export async function makeTestPage(points) {
  const { manifest, data } = syntheticSurvey(points);
  const [before, after] = (await makeTemplate()).split(dataMark);
  return before + dataElements(manifest, data) + after;
}

if (process.argv[1] && path.resolve(process.argv[1]) === fileURLToPath(import.meta.url)) {
  const [out, points] = process.argv.slice(2);
  if (!out) {
    console.error('Usage: node scripts/test-page.mjs OUT.html [POINTS]');
    process.exit(2);
  }
  fs.writeFileSync(out, await makeTestPage(points ? Number(points) : undefined));
}
