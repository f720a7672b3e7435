// SPDX-License-Identifier: Apache-2.0
//
// Packs columns as docs/view-page.md has them: the counterpart of src/data/Column.ts, for tests.

import { deflateSync } from 'node:zlib';

/**
 * A column of whole numbers of 10^-decimals (Numbers or BigInts); null stands for a point without a value.
 * Gives its entry in the manifest and its packed bytes.
 */
export function packIntegers(name, values, { decimals = 0, role } = {}) {
  const there = values.filter((value) => value !== null).map(BigInt);
  const gaps = there.length < values.length;
  const min = there.reduce((a, b) => (b < a ? b : a), there[0] ?? 0n);
  const max = there.reduce((a, b) => (b > a ? b : a), there[0] ?? 0n);
  const codes = [];
  let last = 0n;
  let most = 0n;
  for (const value of values) {
    const raw = value === null ? 0n : BigInt(value) - min + (gaps ? 1n : 0n);
    const delta = raw - last;
    last = raw;
    const code = delta >= 0n ? 2n * delta : -2n * delta - 1n;
    if (code > most) most = code;
    codes.push(code);
  }
  let width = 0;
  while (most > 0n) {
    most >>= 8n;
    ++width;
  }
  const planes = Buffer.alloc(width * values.length);
  codes.forEach((code, i) => {
    for (let plane = 0; plane < width; ++plane) planes[plane * values.length + i] = Number((code >> BigInt(8 * plane)) & 255n);
  });
  const bytes = width === 0 ? Buffer.alloc(0) : deflateSync(planes);
  const entry = { name, ...(role ? { role } : {}), kind: 'integer', bytes: bytes.length, min: String(min), max: String(max), decimals, width, gaps };
  return { entry, bytes };
}

/** A column of floating-point numbers of 4 or 8 bytes. */
export function packFloats(name, values, width, { role } = {}) {
  const planes = Buffer.alloc(width * values.length);
  const one = Buffer.alloc(8);
  values.forEach((value, i) => {
    if (width === 4) one.writeFloatLE(value);
    else one.writeDoubleLE(value);
    for (let plane = 0; plane < width; ++plane) planes[plane * values.length + i] = one[plane];
  });
  const bytes = values.length === 0 ? Buffer.alloc(0) : deflateSync(planes);
  return { entry: { name, ...(role ? { role } : {}), kind: 'float', bytes: bytes.length, width }, bytes };
}

/** The data elements of a page: `pieces` are texts by id. */
export function dataElements(manifest, pieces) {
  const json = JSON.stringify(manifest).replace(/</g, '\\u003c');
  return [
    `<script type="application/json" id="manifest">${json}</script>`,
    ...Object.entries(pieces).map(([id, text]) => `<script type="application/octet-stream" id="${id}">${text}</script>`),
  ].join('\n');
}
