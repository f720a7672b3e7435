// SPDX-License-Identifier: Apache-2.0
import assert from 'node:assert/strict';
import test from 'node:test';
import { inflateSync } from 'node:zlib';
import { type Column, decimalText, unpackColumn } from '../../src/data/Column.ts';
import type { ColumnEntry } from '../../src/data/manifest.ts';
import { packFloats, packIntegers } from '../support/pack.mjs';

function roundTrip({ entry, bytes }: { entry: ColumnEntry; bytes: Buffer }, count: number): Column {
  return unpackColumn(entry, count, bytes.length === 0 ? new Uint8Array(0) : new Uint8Array(inflateSync(bytes)));
}

test('whole numbers of every width come back', () => {
  for (const top of [0n, 1n, 127n, 255n, 256n, 65535n, 65536n, 2n ** 24n, 2n ** 32n - 1n, 2n ** 32n, 2n ** 40n, 2n ** 52n - 1n]) {
    const values = [0n, top, top / 2n, top, 0n, 0n, top - top / 3n];
    const column = roundTrip(packIntegers('n', values), values.length);
    assert.deepEqual(values.map((_, i) => column.text(i)), values.map(String), `range ${top}`);
  }
});

test('negative numbers and an offset beyond 53 bits are exact as text', () => {
  const values = [-(2n ** 60n), -(2n ** 60n) + 5n, -(2n ** 60n) + 1n];
  const column = roundTrip(packIntegers('n', values), 3);
  assert.deepEqual([0, 1, 2].map((i) => column.text(i)), values.map(String));
});

test('decimals are shown as the input has them', () => {
  const column = roundTrip(packIntegers('x', [63701224, 63701200, -5, 0], { decimals: 2 }), 4);
  assert.deepEqual([0, 1, 2, 3].map((i) => column.text(i)), ['637012.24', '637012.00', '-0.05', '0.00']);
  assert.equal(column.value(0), 637012.24);
  assert.equal(decimalText(-123456n, 3), '-123.456');
  assert.equal(decimalText(7n, 0), '7');
});

test('a point without a value has none', () => {
  const column = roundTrip(packIntegers('gaps', [5, null, 5, 9, null]), 5);
  assert.deepEqual([0, 1, 2, 3, 4].map((i) => column.text(i)), ['5', '–', '5', '9', '–']);
  assert.deepEqual([0, 1].map((i) => column.has(i)), [true, false]);
  assert.ok(Number.isNaN(column.value(1)));
  const none = roundTrip(packIntegers('none', [null, null]), 2);
  assert.deepEqual([none.text(0), none.has(1)], ['–', false]);
});

test('a column of equal values takes no bytes', () => {
  const packed = packIntegers('same', [7, 7, 7]);
  // The first difference counts from the least value.
  assert.equal(packed.bytes.length, 0);
  assert.equal(roundTrip(packed, 3).text(2), '7');
});

test('floating-point numbers come back bit for bit', () => {
  const doubles = [0, -0, 1 / 3, 1e300, -2.5e-310, Infinity, NaN, 637179.2200000001];
  const wide = roundTrip(packFloats('d', doubles, 8), doubles.length);
  assert.deepEqual(doubles.map((_, i) => wide.value(i)), doubles);
  assert.equal(wide.text(7), '637179.2200000001');
  assert.equal(wide.text(6), '–');
  const narrow = roundTrip(packFloats('f', [0.1, 16777216, 1e-45], 4), 3);
  assert.deepEqual([0, 1, 2].map((i) => narrow.text(i)), ['0.1', '16777216', '1e-45']);
});

test('bytes that do not fit the entry are refused', () => {
  const { entry } = packIntegers('short', [1, 2, 3]);
  assert.throws(() => unpackColumn(entry, 3, new Uint8Array(2)), /"short" has 2 bytes instead of 3/);
});

test('a range that doubles cannot tell apart is refused', () => {
  const { entry, bytes } = packIntegers('wide', [0n, 2n ** 52n]);
  assert.throws(() => roundTrip({ entry, bytes }, 2), /"wide" has a range/);
});
