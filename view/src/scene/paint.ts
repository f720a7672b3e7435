// SPDX-License-Identifier: Apache-2.0
import type { Piece } from '../data/loadPage.ts';
import { type Attribute, colorColumnsOf, columnOf } from './attributes.ts';
import type { Color } from './ramp.ts';

/** How points are coloured. */
export interface Paint {
  attribute: Attribute;
  /** For scales: the values at the ends of the ramp. */
  range: [number, number];
  /** 256 colours, three bytes each. */
  ramp: Uint8Array;
  /** By class code. */
  classColors: Map<number, Color>;
  /** Hidden classes. */
  hiddenClasses: ReadonlySet<number>;
  /** The colour of points without a value. */
  plain: Color;
}

/**
 * Writes the colour of each point of a piece (4 bytes: red, green, blue, and 255, or 0 if the point is
 * hidden).
 */
export function paintPiece(piece: Piece, paint: Paint, out: Uint8Array): void {
  const { attribute, plain } = paint;
  const word = new Uint32Array(out.buffer, out.byteOffset, out.length / 4);
  const pack = (r: number, g: number, b: number): number => ((255 << 24) | (b << 16) | (g << 8) | r) >>> 0;
  const fallback = pack(...plain);
  const column = columnOf(piece, attribute);
  const rgb = attribute.kind === 'rgb' ? colorColumnsOf(piece) : null;
  if (rgb) {
    const [red, green, blue] = rgb;
    for (let i = 0; i < piece.count; ++i) word[i] = pack(red.raw[i] + red.offset, green.raw[i] + green.offset, blue.raw[i] + blue.offset);
  } else if (attribute.kind === 'class' && column) {
    const table = new Uint32Array(256).fill(fallback);
    for (const [code, color] of paint.classColors) table[code & 255] = pack(...color);
    for (let i = 0; i < piece.count; ++i) word[i] = table[column.value(i) & 255]!;
  } else if (attribute.kind === 'scale' && column) {
    const table = new Uint32Array(256);
    for (let i = 0; i < 256; ++i) table[i] = pack(paint.ramp[3 * i], paint.ramp[3 * i + 1], paint.ramp[3 * i + 2]);
    const [low, high] = paint.range;
    const perUnit = 255 / (high - low || 1);
    const factor = column.scale * perUnit;
    const shift = (column.offset - low) * perUnit + 0.5;
    const { raw } = column;
    for (let i = 0; i < piece.count; ++i) {
      const place = raw[i] * factor + shift;
      word[i] = place >= 0 ? table[place > 255 ? 255 : Math.trunc(place)] : column.has(i) ? table[0] : fallback;
    }
  } else {
    word.fill(fallback);
  }
  const classes = paint.hiddenClasses.size > 0 ? piece.columns.find((candidate) => candidate.role === 'class') : undefined;
  if (classes) {
    const hidden = new Uint8Array(256);
    for (const code of paint.hiddenClasses) hidden[code & 255] = 1;
    for (let i = 0; i < piece.count; ++i) if (hidden[classes.value(i) & 255] === 1) word[i] = 0;
  }
}
