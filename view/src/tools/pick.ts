// SPDX-License-Identifier: Apache-2.0
import type { Piece, SurfacePiece } from '../data/loadPage.ts';
import { heightOf, isThere, trianglesOf } from '../scene/SurfaceObject.ts';
import { dot, type Vector } from '../scene/View.ts';

/** The point or lattice place under the pointer. */
export interface Picked {
  piece: Piece;
  index: number;
}

/** Neighbouring points to search; structurally a Block of a PointObject. */
export interface PickBlock {
  readonly count: number;
  readonly center: Vector;
  readonly radius: number;
  readonly positions: Float32Array;
  indexOf(slot: number): number;
}

export interface Candidate {
  index: number;
  /** Distance from the pointer in pixels. */
  away: number;
  /** Distance from the viewer. */
  depth: number;
}

/**
 * The point within `radius` pixels of a place of the picture: of those that are not clearly occluded by
 * another one, the nearest to the pointer. `visible` returns whether the point at an index of the piece is
 * shown.
 */
export function pickPoint(
  blocks: Iterable<PickBlock>,
  projection: (center: Vector) => Float64Array,
  visible: (index: number) => boolean,
  picture: { width: number; height: number },
  x: number,
  y: number,
  radius: number,
): Candidate | null {
  const candidates: Candidate[] = [];
  const u = (2 * x) / picture.width - 1;
  const v = 1 - (2 * y) / picture.height;
  const perU = picture.width / 2;
  const perV = picture.height / 2;
  for (const block of blocks) {
    const m = projection(block.center);
    if (!mayHold(m, block.radius, u, v, radius / perU, radius / perV)) continue;
    const { positions } = block;
    for (let slot = 0; slot < block.count; ++slot) {
      const a = positions[3 * slot];
      const b = positions[3 * slot + 1];
      const c = positions[3 * slot + 2];
      const w = m[3] * a + m[7] * b + m[11] * c + m[15];
      if (w <= 0) continue;
      const right = ((m[0] * a + m[4] * b + m[8] * c + m[12]) / w - u) * perU;
      if (right > radius || right < -radius) continue;
      const up = ((m[1] * a + m[5] * b + m[9] * c + m[13]) / w - v) * perV;
      const away = Math.hypot(right, up);
      if (away > radius) continue;
      const index = block.indexOf(slot);
      if (visible(index)) candidates.push({ index, away, depth: w });
    }
  }
  return nearestInFront(candidates);
}

/** Whether a block's sphere may intersect the square around the pointer. */
function mayHold(m: Float64Array, radius: number, u: number, v: number, reachU: number, reachV: number): boolean {
  const w = m[15];
  const lengthOf = (row: number): number => Math.hypot(m[row], m[row + 4], m[row + 8]) * radius;
  const nearest = w - lengthOf(3);
  if (w + lengthOf(3) <= 0) return false;
  if (nearest <= 0) return true;
  const outside = (row: number, at: number, reach: number): boolean => {
    const spread = (lengthOf(row) + Math.abs(at) * lengthOf(3)) / nearest;
    return Math.abs(m[12 + row] / w - at) > spread + reach + Math.abs(m[12 + row] / w - at) * (lengthOf(3) / nearest);
  };
  return !outside(0, u, reachU) && !outside(1, v, reachV);
}

/** Of the candidates within 1 % of the distance of the foremost one, the nearest to the pointer. */
export function nearestInFront(candidates: readonly Candidate[]): Candidate | null {
  let front = Infinity;
  for (const { depth } of candidates) front = Math.min(front, depth);
  let best: Candidate | null = null;
  for (const candidate of candidates) {
    if (candidate.depth <= front * 1.01 && (best === null || candidate.away < best.away)) best = candidate;
  }
  return best;
}

/**
 * The intersection of a line of sight with a surface: the distance along the line (in lengths of `direction`)
 * and the nearest place of the lattice; null if there is none. Coordinates are relative to `origin`.
 */
export function pickSurface(piece: SurfacePiece, origin: Vector, from: Vector, direction: Vector): { index: number; along: number } | null {
  const [columns, rows] = piece.entry.extents;
  const [dx, dy] = piece.entry.spacing;
  // In steps of the lattice.
  const startX = (from[0] + origin[0] - piece.entry.origin[0]) / dx;
  const startY = (from[1] + origin[1] - piece.entry.origin[1]) / dy;
  const stepX = direction[0] / dx;
  const stepY = direction[1] / dy;
  let first = 0;
  let last = Infinity;
  const clip = (start: number, step: number, upper: number): void => {
    if (step === 0) {
      if (start < 0 || start > upper) last = -1;
      return;
    }
    const [a, b] = [-start / step, (upper - start) / step];
    first = Math.max(first, Math.min(a, b));
    last = Math.min(last, Math.max(a, b));
  };
  clip(startX, stepX, columns - 1);
  clip(startY, stepY, rows - 1);
  if (first > last) return null;
  const speed = Math.hypot(stepX, stepY);
  // Steps of half a cell; straight down, the whole line is in one cell.
  const pace = speed > 1e-9 ? 0.5 / speed : last - first;
  const place = (i: number): Vector => [
    piece.entry.origin[0] + (i % columns) * dx - origin[0],
    piece.entry.origin[1] + Math.floor(i / columns) * dy - origin[1],
    heightOf(piece, i) - origin[2],
  ];
  let lastCell = -1;
  for (let along = first; along <= last; along += Math.max(pace, 1e-12)) {
    const column = Math.min(columns - 2, Math.max(0, Math.floor(startX + along * stepX)));
    const row = Math.min(rows - 2, Math.max(0, Math.floor(startY + along * stepY)));
    const cell = row * columns + column;
    if (cell !== lastCell && columns > 1 && rows > 1) {
      lastCell = cell;
      let hit = Infinity;
      for (const corners of trianglesOf((i) => isThere(piece, i), cell, columns)) {
        hit = Math.min(hit, meet(from, direction, place(corners[0]), place(corners[1]), place(corners[2])) ?? Infinity);
      }
      if (hit < Infinity) {
        const nearest = (start: number, step: number, count: number): number => Math.min(count - 1, Math.max(0, Math.round(start + hit * step)));
        const index = nearest(startY, stepY, rows) * columns + nearest(startX, stepX, columns);
        if (isThere(piece, index)) return { index, along: hit };
        const corner = [cell, cell + 1, cell + columns, cell + columns + 1].find((i) => isThere(piece, i));
        return corner === undefined ? null : { index: corner, along: hit };
      }
    }
    if (pace <= 0 || !Number.isFinite(along + pace)) break;
  }
  return null;
}

/** The intersection of a line with a triangle (from the volumes of the tetrahedra that they form); null if there is none. */
function meet(from: Vector, direction: Vector, a: Vector, b: Vector, c: Vector): number | null {
  const minus = (p: Vector, q: Vector): Vector => [p[0] - q[0], p[1] - q[1], p[2] - q[2]];
  const cross = (p: Vector, q: Vector): Vector => [p[1] * q[2] - p[2] * q[1], p[2] * q[0] - p[0] * q[2], p[0] * q[1] - p[1] * q[0]];
  const ab = minus(b, a);
  const ac = minus(c, a);
  const side = cross(direction, ac);
  const volume = dot(ab, side);
  if (volume === 0) return null;
  const start = minus(from, a);
  const u = dot(start, side) / volume;
  const across = cross(start, ab);
  const v = dot(direction, across) / volume;
  const slack = 1e-9;
  if (u < -slack || v < -slack || u + v > 1 + slack) return null;
  const along = dot(ac, across) / volume;
  return along > 0 ? along : null;
}
