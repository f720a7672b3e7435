// SPDX-License-Identifier: Apache-2.0
import type { Column } from '../data/Column.ts';
import type { Page, Piece } from '../data/loadPage.ts';
import { isThere } from './SurfaceObject.ts';

/** An attribute by which points can be coloured. */
export interface Attribute {
  /** Unique; used in links. */
  key: string;
  label: string;
  kind: 'scale' | 'class' | 'rgb' | 'plain';
  /** The name of the ramp in the manifest. */
  ramp: string;
}

const heightKey = 'height';

/** The column of a piece with an attribute; null if it has none. */
export function columnOf(piece: Piece, attribute: Attribute): Column | null {
  if (attribute.key === heightKey) return piece.kind === 'points' ? piece.z : piece.height;
  if (attribute.kind === 'class') return piece.columns.find((column) => column.role === 'class') ?? null;
  if (attribute.kind !== 'scale') return null;
  return piece.columns.find((column) => attributeKey(column) === attribute.key) ?? null;
}

/** The three columns of colours; null if there are none. */
export function colorColumnsOf(piece: Piece): [Column, Column, Column] | null {
  const find = (role: string): Column | undefined => piece.columns.find((column) => column.role === role);
  const [red, green, blue] = [find('red'), find('green'), find('blue')];
  return red && green && blue ? [red, green, blue] : null;
}

function attributeKey(column: Column): string {
  // A field may have any name, which must not collide with the keys of our own attributes.
  return column.role === undefined || column.role === 'returns' ? `f:${column.name}` : column.role;
}

/** All attributes by which the pieces of a page can be coloured, the usual ones first. */
export function attributesOf(page: Page): Attribute[] {
  const pieces = page.slices.flatMap((slice) => slice.layers.flatMap((layer) => layer.pieces));
  const has = (role: string): boolean => pieces.some((piece) => piece.columns.some((column) => column.role === role));
  const attributes: Attribute[] = [{ key: heightKey, label: 'Height', kind: 'scale', ramp: 'height' }];
  if (has('class')) attributes.push({ key: 'class', label: 'Class', kind: 'class', ramp: '' });
  if (has('intensity')) attributes.push({ key: 'intensity', label: 'Intensity', kind: 'scale', ramp: 'intensity' });
  if (has('return')) attributes.push({ key: 'return', label: 'Return', kind: 'scale', ramp: 'steps' });
  if (has('red')) attributes.push({ key: 'rgb', label: 'Colour of the input (RGB)', kind: 'rgb', ramp: '' });
  if (has('time')) attributes.push({ key: 'time', label: 'GPS time', kind: 'scale', ramp: 'scalar' });
  const usual = new Set(['x', 'y', 'z', 'class', 'intensity', 'return', 'red', 'green', 'blue', 'time']);
  const seen = new Set<string>();
  for (const piece of pieces) {
    for (const column of piece.columns) {
      const key = attributeKey(column);
      if (usual.has(column.role ?? '') || seen.has(key) || column === (piece.kind === 'surface' ? piece.height : null)) continue;
      seen.add(key);
      attributes.push({ key, label: column.name, kind: 'scale', ramp: 'scalar' });
    }
  }
  attributes.push({ key: 'plain', label: 'One colour', kind: 'plain', ramp: '' });
  return attributes;
}

export interface Distribution {
  min: number;
  max: number;
  /** The range of all but the outermost 2 % of the values. */
  low: number;
  high: number;
  /** A histogram: the number of values in equal parts of [min, max]. */
  bins: Uint32Array;
}

/** The distribution of an attribute over all pieces; null if there are no values. */
export function distributionOf(pieces: Iterable<Piece>, attribute: Attribute, binCount = 96): Distribution | null {
  const columns: [Piece, Column][] = [];
  for (const piece of pieces) {
    const column = columnOf(piece, attribute);
    if (column) columns.push([piece, column]);
  }
  let min = Infinity;
  let max = -Infinity;
  forEachValue(columns, (value) => {
    if (value < min) min = value;
    if (value > max) max = value;
  });
  if (min > max) return null;
  const fine = new Uint32Array(4096);
  const bins = new Uint32Array(binCount);
  const span = max - min || 1;
  let count = 0;
  forEachValue(columns, (value) => {
    const share = (value - min) / span;
    ++fine[Math.min(fine.length - 1, Math.floor(share * fine.length))];
    ++bins[Math.min(binCount - 1, Math.floor(share * binCount))];
    ++count;
  });
  const quantile = (share: number, upper: boolean): number => {
    let left = share * count;
    for (let bin = 0; bin < fine.length; ++bin) {
      left -= fine[bin];
      if (left <= 0) return min + ((bin + (upper ? 1 : 0)) / fine.length) * span;
    }
    return max;
  };
  return { min, max, low: quantile(0.01, false), high: quantile(0.99, true), bins };
}

/** Values in the holes of surfaces are meaningless. */
function forEachValue(columns: [Piece, Column][], visit: (value: number) => void): void {
  for (const [piece, column] of columns) {
    const { raw, scale, offset } = column;
    for (let i = 0; i < raw.length; ++i) {
      if (!column.has(i) || (piece.kind === 'surface' && !isThere(piece, i))) continue;
      const value = raw[i] * scale + offset;
      if (Number.isFinite(value)) visit(value);
    }
  }
}
