// SPDX-License-Identifier: Apache-2.0
import type { Piece } from '../data/loadPage.ts';
import { heightOf, isThere } from '../scene/SurfaceObject.ts';

/** A place on the ground. */
export type Place = [number, number];

/** The points of a cross-section: distances from its start, heights, and the index of each point in its piece. */
export interface Section {
  along: Float64Array;
  height: Float64Array;
  index: Uint32Array;
}

/** The points of a piece that lie within `half` of the line from `a` to `b`, as seen from above, and between its ends. */
export function sectionOf(piece: Piece, a: Place, b: Place, half: number, visible: (index: number) => boolean): Section {
  const length = Math.hypot(b[0] - a[0], b[1] - a[1]);
  const along: number[] = [];
  const height: number[] = [];
  const index: number[] = [];
  if (length > 0) {
    const ux = (b[0] - a[0]) / length;
    const uy = (b[1] - a[1]) / length;
    const take = (i: number, x: number, y: number, z: () => number): void => {
      const s = (x - a[0]) * ux + (y - a[1]) * uy;
      if (s < 0 || s > length || Math.abs((y - a[1]) * ux - (x - a[0]) * uy) > half || !visible(i)) return;
      along.push(s);
      height.push(z());
      index.push(i);
    };
    if (piece.kind === 'points') {
      const { x, y, z } = piece;
      for (let i = 0; i < piece.count; ++i)
        take(i, x.raw[i] * x.scale + x.offset, y.raw[i] * y.scale + y.offset, () => z.value(i));
    } else {
      const { origin, spacing, extents } = piece.entry;
      for (let i = 0; i < piece.count; ++i) {
        if (!isThere(piece, i)) continue;
        take(i, origin[0] + (i % extents[0]) * spacing[0], origin[1] + Math.floor(i / extents[0]) * spacing[1], () => heightOf(piece, i));
      }
    }
  }
  return { along: Float64Array.from(along), height: Float64Array.from(height), index: Uint32Array.from(index) };
}
