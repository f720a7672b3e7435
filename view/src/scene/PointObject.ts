// SPDX-License-Identifier: Apache-2.0
import * as THREE from 'three';
import type { PointsPiece } from '../data/loadPage.ts';
import type { Vector } from './View.ts';

const blockSize = 32768;

/**
 * The points of a piece as blocks of neighbours, each with coordinates relative to its centre, for which
 * single precision is sufficient anywhere in the world.
 *
 * Within a block, points are in an order of which every prefix is evenly distributed, so that drawing a
 * prefix thins the picture.
 */
export class PointObject {
  readonly object = new THREE.Group();
  readonly blocks: Block[] = [];
  /** Colours from paintPiece(), in the order of the piece. */
  readonly colors: Uint8Array;

  constructor(
    readonly piece: PointsPiece,
    origin: Vector,
    material: THREE.Material,
  ) {
    this.colors = new Uint8Array(4 * piece.count);
    for (let first = 0; first < piece.count; first += blockSize) {
      const block = new Block(piece, first, Math.min(blockSize, piece.count - first), origin, material);
      this.blocks.push(block);
      this.object.add(block.points);
    }
  }

  /** Uploads the colours to the GPU. */
  updateColors(): void {
    const words = new Uint32Array(this.colors.buffer);
    for (const block of this.blocks) block.setColors(words);
  }

  /** Sets the share (0 to 1) of the points to draw. */
  setShare(share: number): void {
    for (const block of this.blocks) block.points.geometry.setDrawRange(0, Math.ceil(block.count * share));
  }

  /** The number of visible points. */
  visibleCount(): number {
    let count = 0;
    for (let i = 3; i < this.colors.length; i += 4) if (this.colors[i] !== 0) ++count;
    return count;
  }

  dispose(): void {
    for (const block of this.blocks) block.points.geometry.dispose();
  }
}

/** Neighbouring points of a piece. */
export class Block {
  readonly points: THREE.Points;
  /** The centre of the block, in the scene. */
  readonly center: Vector;
  readonly radius: number;
  private readonly stride: number;
  private readonly colors: THREE.BufferAttribute;

  constructor(
    piece: PointsPiece,
    readonly first: number,
    readonly count: number,
    origin: Vector,
    material: THREE.Material,
  ) {
    this.stride = spreadingStride(count);
    const axes = [piece.x, piece.y, piece.z] as const;
    this.center = [0, 0, 0];
    const lows: number[] = [];
    const positions = new Float32Array(3 * count);
    let square = 0;
    axes.forEach((axis, part) => {
      let low = Infinity;
      let high = -Infinity;
      for (let i = 0; i < count; ++i) {
        const raw = axis.raw[first + i];
        if (raw < low) low = raw;
        if (raw > high) high = raw;
      }
      if (!(low <= high)) low = high = 0;
      const middle = (low + high) / 2;
      lows.push(middle);
      this.center[part] = middle * axis.scale + axis.offset - origin[part];
      square += ((high - low) * axis.scale) ** 2 / 4;
    });
    this.radius = Math.sqrt(square);
    for (let slot = 0; slot < count; ++slot) {
      const i = this.indexOf(slot);
      for (let part = 0; part < 3; ++part) positions[3 * slot + part] = (axes[part].raw[i] - lows[part]) * axes[part].scale;
    }
    const geometry = new THREE.BufferGeometry();
    geometry.setAttribute('position', new THREE.BufferAttribute(positions, 3));
    this.colors = new THREE.BufferAttribute(new Uint8Array(4 * count), 4, true);
    geometry.setAttribute('color', this.colors);
    geometry.boundingSphere = new THREE.Sphere(new THREE.Vector3(), this.radius);
    this.points = new THREE.Points(geometry, material);
    this.points.position.set(...this.center);
  }

  /** The index in the piece of the point at a place of the drawing order. */
  indexOf(slot: number): number {
    return this.first + ((slot * this.stride) % this.count);
  }

  /** The position of the point at a place of the drawing order, relative to the center. */
  get positions(): Float32Array {
    return this.points.geometry.getAttribute('position').array as Float32Array;
  }

  setColors(words: Uint32Array): void {
    const own = new Uint32Array(this.colors.array.buffer);
    for (let slot = 0; slot < this.count; ++slot) own[slot] = words[this.indexOf(slot)]!;
    this.colors.needsUpdate = true;
  }
}

/** A number near n / golden ratio that is coprime to n: its multiples visit all numbers, evenly distributed. */
export function spreadingStride(n: number): number {
  const divisor = (a: number, b: number): number => (b === 0 ? a : divisor(b, a % b));
  let stride = Math.max(1, Math.round(n * 0.6180339887));
  while (divisor(stride, n) !== 1) ++stride;
  return stride;
}
