// SPDX-License-Identifier: Apache-2.0
//
// node scripts/unit-tests.mjs
//
// Bundles the tests of tests/unit, each to a file of its own in a temporary folder, and runs them.

import { spawnSync } from 'node:child_process';
import fs from 'node:fs';
import os from 'node:os';
import path from 'node:path';
import { fileURLToPath } from 'node:url';
import { build } from 'esbuild';

const root = path.dirname(path.dirname(fileURLToPath(import.meta.url)));
const folder = path.join(root, 'tests/unit');
const entryPoints = fs.readdirSync(folder).filter((name) => name.endsWith('.test.ts')).map((name) => path.join(folder, name));
const out = fs.mkdtempSync(path.join(os.tmpdir(), 'tidewatch-view-'));
try {
  await build({ entryPoints, outdir: out, bundle: true, platform: 'node', format: 'esm', target: 'node18', outExtension: { '.js': '.mjs' }, logLevel: 'error' });
  const files = entryPoints.map((name) => path.join(out, path.basename(name).replace(/\.ts$/, '.mjs')));
  const run = spawnSync(process.execPath, ['--test', ...files], { stdio: 'inherit' });
  process.exitCode = run.status ?? 1;
} finally {
  fs.rmSync(out, { recursive: true, force: true });
}
