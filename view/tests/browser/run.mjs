// SPDX-License-Identifier: Apache-2.0
//
// node tests/browser/run.mjs

import { spawnSync } from 'node:child_process';
import path from 'node:path';
import { fileURLToPath } from 'node:url';

const folder = path.dirname(fileURLToPath(import.meta.url));
process.exitCode = spawnSync(process.execPath, ['--test', path.join(folder, 'page.test.mjs')], { stdio: 'inherit' }).status ?? 1;
