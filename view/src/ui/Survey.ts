// SPDX-License-Identifier: Apache-2.0
import type { Layer, Page, Piece, Slice } from '../data/loadPage.ts';
import { type Paint, paintPiece } from '../scene/paint.ts';
import { PointObject } from '../scene/PointObject.ts';
import type { Drawn, Stage } from '../scene/Stage.ts';
import { isThere, SurfaceObject } from '../scene/SurfaceObject.ts';
import type { Vector } from '../scene/View.ts';
import { type Candidate, type Picked, pickPoint, pickSurface } from '../tools/pick.ts';
import { type Place, sectionOf } from '../tools/section.ts';
import type { ColoredSection } from './ProfilePanel.ts';

type SceneObject = PointObject | SurfaceObject;

/** The part of a page that is drawn: the slice, the layers and their colours. */
export class Survey {
  /** The centre of the survey, in its coordinates: the origin of the scene. */
  readonly origin: Vector;
  readonly radius: number;
  readonly extent: Vector;
  /** The layers that are switched on, by key. */
  readonly layersOn: Set<string>;
  slice = 0;

  private readonly objects = new Map<Piece, SceneObject>();
  private readonly painted = new Map<SceneObject, Paint>();
  private paint: Paint | null = null;

  constructor(
    readonly page: Page,
    private readonly stage: Stage,
  ) {
    const low: Vector = [Infinity, Infinity, Infinity];
    const high: Vector = [-Infinity, -Infinity, -Infinity];
    for (const piece of this.pieces()) {
      const box = boxOf(piece);
      for (let axis = 0; axis < 3; ++axis) {
        low[axis] = Math.min(low[axis], box.low[axis]);
        high[axis] = Math.max(high[axis], box.high[axis]);
      }
    }
    const isEmpty = !(low[0] <= high[0]);
    this.origin = isEmpty ? [0, 0, 0] : [(low[0] + high[0]) / 2, (low[1] + high[1]) / 2, (low[2] + high[2]) / 2];
    this.extent = isEmpty ? [1, 1, 1] : [high[0] - low[0], high[1] - low[1], high[2] - low[2]];
    this.radius = Math.hypot(...this.extent) / 2 || 1;
    this.layersOn = new Set(usualLayers(page));
  }

  *pieces(): Generator<Piece> {
    for (const slice of this.page.slices) for (const layer of slice.layers) yield* layer.pieces;
  }

  get currentSlice(): Slice | undefined {
    return this.page.slices[this.slice];
  }

  /** The layers of the slice that are switched on. */
  shownLayers(): Layer[] {
    return (this.currentSlice?.layers ?? []).filter((layer) => this.layersOn.has(layer.key));
  }

  shownPieces(): Piece[] {
    return this.shownLayers().flatMap((layer) => layer.pieces);
  }

  /** The number of points and places drawn, without hidden classes. */
  shownCount(): number {
    let count = 0;
    for (const piece of this.shownPieces()) {
      const object = this.objects.get(piece);
      if (object instanceof PointObject) count += object.visibleCount();
      else if (piece.kind === 'surface') for (let i = 0; i < piece.count; ++i) if (isThere(piece, i)) ++count;
    }
    return count;
  }

  setPaint(paint: Paint): void {
    this.paint = paint;
    this.update();
  }

  /** Passes the objects to draw to the stage. Only these are painted. */
  update(): void {
    const drawn: Drawn[] = [];
    let points = 0;
    for (const piece of this.shownPieces()) {
      const object = this.objectOf(piece);
      if (this.paint && this.painted.get(object) !== this.paint) {
        paintPiece(piece, this.paint, object.colors);
        object.updateColors();
        this.painted.set(object, this.paint);
      }
      if (object instanceof PointObject) {
        points += piece.count;
        drawn.push({ object: object.object, setShare: (share) => object.setShare(share) });
      } else {
        drawn.push({ object: object.object });
      }
    }
    this.stage.spacing = points > 0 ? 1.4 * Math.sqrt((this.extent[0] * this.extent[1]) / points) : 0;
    this.stage.setDrawn(drawn, [0, 0, 0], this.radius);
  }

  private objectOf(piece: Piece): SceneObject {
    let object = this.objects.get(piece);
    if (!object) {
      object =
        piece.kind === 'points'
          ? new PointObject(piece, this.origin, this.stage.pointMaterial)
          : new SurfaceObject(piece, this.origin, this.stage.surfaceMaterial);
      this.objects.set(piece, object);
    }
    return object;
  }

  private isVisible(piece: Piece): (index: number) => boolean {
    const object = this.objects.get(piece);
    return object instanceof PointObject ? (index) => object.colors[4 * index + 3] !== 0 : () => true;
  }

  /** What is drawn at a pixel of the canvas. */
  pick(x: number, y: number): Picked | null {
    let best: (Candidate & Picked) | null = null;
    const ray = this.stage.ray(x, y);
    for (const piece of this.shownPieces()) {
      if (piece.kind !== 'surface') continue;
      const hit = pickSurface(piece, this.origin, ray.from, ray.direction);
      if (hit && (best === null || hit.along < best.depth)) best = { piece, index: hit.index, away: 0, depth: hit.along };
    }
    for (const radius of [4, 14]) {
      for (const piece of this.shownPieces()) {
        const object = this.objects.get(piece);
        if (!(object instanceof PointObject)) continue;
        const hit = pickPoint(object.blocks, (center) => this.stage.projection(center), this.isVisible(piece), this.stage, x, y, radius);
        // Prefer points, which lie on the surfaces computed from them.
        if (hit && (best === null || hit.depth < best.depth * 1.02)) best = { piece, ...hit };
      }
      if (best) break;
    }
    return best;
  }

  /** The position of a point, in coordinates of the survey. */
  positionOf({ piece, index }: Picked): Vector {
    if (piece.kind === 'points') return [piece.x.value(index), piece.y.value(index), piece.z.value(index)];
    const { origin, spacing, extents } = piece.entry;
    return [
      origin[0] + (index % extents[0]) * spacing[0],
      origin[1] + Math.floor(index / extents[0]) * spacing[1],
      piece.height === null ? 0 : piece.height.value(index),
    ];
  }

  toScene(place: Vector): Vector {
    return [place[0] - this.origin[0], place[1] - this.origin[1], place[2] - this.origin[2]];
  }

  /** The cross-sections of everything that is drawn. */
  sections(a: Place, b: Place, half: number): ColoredSection[] {
    return this.shownPieces().map((piece) => ({
      ...sectionOf(piece, a, b, half, this.isVisible(piece)),
      colors: this.objectOf(piece).colors,
    }));
  }
}

/** The layers shown initially: of each grid the one that exporters use; surfaces only if their slice has no points. */
function usualLayers(page: Page): string[] {
  const keys: string[] = [];
  for (const slice of page.slices) {
    const usual = slice.layers.filter((layer) => layer.entry.isDefault);
    const clouds = usual.filter((layer) => layer.pieces.some((piece) => piece.kind === 'points'));
    keys.push(...(clouds.length > 0 ? clouds : usual.length > 0 ? usual : slice.layers).map((layer) => layer.key));
  }
  return keys;
}

function boxOf(piece: Piece): { low: Vector; high: Vector } {
  const low: Vector = [Infinity, Infinity, Infinity];
  const high: Vector = [-Infinity, -Infinity, -Infinity];
  const take = (axis: 0 | 1 | 2, value: number): void => {
    if (!Number.isFinite(value)) return;
    low[axis] = Math.min(low[axis], value);
    high[axis] = Math.max(high[axis], value);
  };
  if (piece.kind === 'points') {
    for (const [axis, column] of [piece.x, piece.y, piece.z].entries()) {
      for (let i = 0; i < piece.count; ++i) take(axis as 0 | 1 | 2, column.raw[i] * column.scale + column.offset);
    }
  } else {
    const { origin, spacing, extents } = piece.entry;
    for (const axis of [0, 1] as const) {
      take(axis, origin[axis]);
      take(axis, origin[axis] + (extents[axis] - 1) * spacing[axis]);
    }
    for (let i = 0; i < piece.count; ++i) if (isThere(piece, i)) take(2, piece.height === null ? 0 : piece.height.value(i));
  }
  return { low, high };
}
