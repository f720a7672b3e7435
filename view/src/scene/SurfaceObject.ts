// SPDX-License-Identifier: Apache-2.0
import * as THREE from 'three';
import type { SurfacePiece } from '../data/loadPage.ts';
import type { Vector } from './View.ts';

const tileSize = 128; // places along an edge, so that indexes fit 16 bits

/** A lattice of heights as triangles, illuminated from the north-west; places without a height are holes. */
export class SurfaceObject {
  readonly object = new THREE.Group();
  /** Colours from paintPiece(), in the order of the piece. */
  readonly colors: Uint8Array;
  private readonly light: Uint8Array;
  private readonly tiles: { mesh: THREE.Mesh; colors: THREE.BufferAttribute; source: Uint32Array }[] = [];

  constructor(
    readonly piece: SurfacePiece,
    origin: Vector,
    material: THREE.Material,
  ) {
    this.colors = new Uint8Array(4 * piece.count);
    this.light = hillshade(piece);
    const [columns, rows] = piece.entry.extents;
    for (let row = 0; row + 1 < rows; row += tileSize) {
      for (let column = 0; column + 1 < columns; column += tileSize) this.addTile(column, row, origin, material);
    }
  }

  private addTile(firstColumn: number, firstRow: number, origin: Vector, material: THREE.Material): void {
    const { piece } = this;
    const { extents, spacing } = piece.entry;
    // Neighbouring tiles share a row or column.
    const width = Math.min(tileSize + 1, extents[0] - firstColumn);
    const height = Math.min(tileSize + 1, extents[1] - firstRow);
    const positions = new Float32Array(3 * width * height);
    const source = new Uint32Array(width * height);
    let low = Infinity;
    let high = -Infinity;
    for (let row = 0; row < height; ++row) {
      for (let column = 0; column < width; ++column) {
        const i = (firstRow + row) * extents[0] + firstColumn + column;
        source[row * width + column] = i;
        if (!isThere(piece, i)) continue;
        const z = heightOf(piece, i);
        low = Math.min(low, z);
        high = Math.max(high, z);
      }
    }
    if (low > high) return;
    const middle = (low + high) / 2;
    const halfX = ((width - 1) / 2) * spacing[0];
    const halfY = ((height - 1) / 2) * spacing[1];
    for (let at = 0; at < source.length; ++at) {
      const there = isThere(piece, source[at]);
      positions[3 * at] = (at % width) * spacing[0] - halfX;
      positions[3 * at + 1] = Math.floor(at / width) * spacing[1] - halfY;
      positions[3 * at + 2] = there ? heightOf(piece, source[at]) - middle : 0;
    }
    const indexes: number[] = [];
    for (let row = 0; row + 1 < height; ++row) {
      for (let column = 0; column + 1 < width; ++column) {
        for (const triangle of trianglesOf((i) => isThere(piece, source[i]), row * width + column, width)) indexes.push(...triangle);
      }
    }
    if (indexes.length === 0) return;
    const geometry = new THREE.BufferGeometry();
    geometry.setAttribute('position', new THREE.BufferAttribute(positions, 3));
    const colors = new THREE.BufferAttribute(new Uint8Array(4 * source.length), 4, true);
    geometry.setAttribute('color', colors);
    geometry.setIndex(new THREE.BufferAttribute(new Uint16Array(indexes), 1));
    geometry.boundingSphere = new THREE.Sphere(new THREE.Vector3(), Math.hypot(halfX, halfY, (high - low) / 2));
    const mesh = new THREE.Mesh(geometry, material);
    mesh.position.set(
      piece.entry.origin[0] + firstColumn * spacing[0] + halfX - origin[0],
      piece.entry.origin[1] + firstRow * spacing[1] + halfY - origin[1],
      middle - origin[2],
    );
    this.tiles.push({ mesh, colors, source });
    this.object.add(mesh);
  }

  updateColors(): void {
    for (const { colors, source } of this.tiles) {
      const own = colors.array as Uint8Array;
      for (let at = 0; at < source.length; ++at) {
        const i = source[at];
        const light = this.light[i] / 255;
        for (let part = 0; part < 3; ++part) own[4 * at + part] = Math.min(255, this.colors[4 * i + part] * light * 1.15);
        own[4 * at + 3] = 255;
      }
      colors.needsUpdate = true;
    }
  }

  dispose(): void {
    for (const { mesh } of this.tiles) mesh.geometry.dispose();
  }
}

/** Whether a place was surveyed. */
export function isThere(piece: SurfacePiece, i: number): boolean {
  return (piece.hole === null || piece.hole.raw[i] * piece.hole.scale + piece.hole.offset === 0) && (piece.height === null || (piece.height.has(i) && Number.isFinite(piece.height.value(i))));
}

export function heightOf(piece: SurfacePiece, i: number): number {
  return piece.height === null ? 0 : piece.height.raw[i] * piece.height.scale + piece.height.offset;
}

/** The triangles of the cell whose lower left place is `i`: two, one if a corner is missing, or none. */
export function trianglesOf(there: (i: number) => boolean, i: number, width: number): [number, number, number][] {
  const [a, b, c, d] = [i, i + 1, i + width, i + width + 1];
  const [hasA, hasB, hasC, hasD] = [there(a), there(b), there(c), there(d)];
  const triangles: [number, number, number][] = [];
  if (hasB && hasC) {
    if (hasA) triangles.push([a, b, c]);
    if (hasD) triangles.push([b, d, c]);
  } else if (hasA && hasD) {
    if (hasB) triangles.push([a, b, d]);
    if (hasC) triangles.push([a, d, c]);
  }
  return triangles;
}

/** The illumination of each place, 0 to 255, from the north-west at 45 degrees. Heights count double, since surveys are flat. */
export function hillshade(piece: SurfacePiece): Uint8Array {
  const [columns, rows] = piece.entry.extents;
  const [dx, dy] = piece.entry.spacing;
  const light = new Uint8Array(piece.count).fill(220);
  if (piece.height === null) return light;
  const slope = (i: number, before: number, after: number, step: number): number => {
    const a = before >= 0 && isThere(piece, before) ? before : i;
    const b = after >= 0 && isThere(piece, after) ? after : i;
    const steps = (a === i ? 0 : 1) + (b === i ? 0 : 1);
    return steps === 0 ? 0 : (2 * (heightOf(piece, b) - heightOf(piece, a))) / (steps * step);
  };
  for (let row = 0; row < rows; ++row) {
    for (let column = 0; column < columns; ++column) {
      const i = row * columns + column;
      if (!isThere(piece, i)) continue;
      const east = slope(i, column > 0 ? i - 1 : -1, column + 1 < columns ? i + 1 : -1, dx);
      const north = slope(i, row > 0 ? i - columns : -1, row + 1 < rows ? i + columns : -1, dy);
      const lit = (0.5 * east - 0.5 * north + Math.SQRT1_2) / Math.sqrt(1 + east * east + north * north);
      light[i] = Math.round(255 * (0.3 + 0.7 * Math.min(1, Math.max(0, lit))));
    }
  }
  return light;
}
