// SPDX-License-Identifier: Apache-2.0
import assert from 'node:assert/strict';
import test from 'node:test';
import { decodeBase64 } from '../../src/data/base64.ts';

test('every length and every byte comes back', () => {
  for (let length = 0; length < 70; ++length) {
    const bytes = Buffer.from(Array.from({ length }, (_, i) => (i * 37 + length) & 255));
    assert.deepEqual(Buffer.from(decodeBase64(bytes.toString('base64'))), bytes);
  }
  const all = Buffer.from(Array.from({ length: 256 }, (_, i) => i));
  assert.deepEqual(Buffer.from(decodeBase64(all.toString('base64'))), all);
});

test('what is not base64 is refused', () => {
  for (const text of ['A', 'AAA', 'AA A', 'AAA\n', 'AA-_', 'AAé=', '=AAA']) assert.throws(() => decodeBase64(text), /base64/);
});
