// SPDX-License-Identifier: Apache-2.0
//
// node tests/browser/run.mjs page|program
//
// Runs the browser tests of the page itself, or of pages that the program (TIDEWATCH_PROGRAM_PATH) makes.

import { spawnSync } from 'node:child_process';
import path from 'node:path';
import { fileURLToPath } from 'node:url';
import { browserProgram } from './browser.mjs';

const name = process.argv[2] ?? 'page';
if (browserProgram() === null) {
  console.log('SKIPPED: no Chromium: scripts/setup.sh installs it');
} else {
  const folder = path.dirname(fileURLToPath(import.meta.url));
  process.exitCode = spawnSync(process.execPath, ['--test', path.join(folder, `${name}.test.mjs`)], { stdio: 'inherit' }).status ?? 1;
}
