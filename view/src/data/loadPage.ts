// SPDX-License-Identifier: Apache-2.0
import { decodeBase64 } from './base64.ts';
import { type Column, unpackColumn } from './Column.ts';
import type { LayerEntry, Manifest, PieceEntry, SurfaceEntry } from './manifest.ts';

export interface PointsPiece {
  kind: 'points';
  count: number;
  columns: Column[];
  x: Column;
  y: Column;
  z: Column;
}

export interface SurfacePiece {
  kind: 'surface';
  count: number;
  columns: Column[];
  entry: SurfaceEntry;
  /** Null if all heights are 0. */
  height: Column | null;
  hole: Column | null;
}

export type Piece = PointsPiece | SurfacePiece;

export interface Layer {
  entry: LayerEntry;
  /** The same for the layers of a grid, dimension and refinement in all slices. */
  key: string;
  /** Shown to users. */
  label: string;
  pieces: Piece[];
}

export interface Slice {
  time: number;
  layers: Layer[];
}

export interface Page {
  manifest: Manifest;
  slices: Slice[];
}

/** Returns the text of the page's data element with an id; null if there is none. */
export type ElementText = (id: string) => string | null;

/**
 * Reads the data of a page. `told` is called with the share (0 to 1) that is done. Throws an Error for data
 * that does not conform to docs/view-page.md.
 */
export async function loadPage(elementText: ElementText, told: (share: number) => void): Promise<Page> {
  const text = elementText('manifest');
  if (text === null) throw new Error('the page holds no manifest');
  const manifest = JSON.parse(text) as Manifest;
  // The type declares 1, but the page may contain anything.
  if ((manifest.format as number) !== 1) throw new Error(`the page has the format ${manifest.format}, which is not supported`);
  const total = manifest.slices.flatMap((slice) => slice.layers.flatMap((layer) => layer.pieces)).length;
  let done = 0;
  const slices: Slice[] = [];
  for (const slice of manifest.slices) {
    const layers: Layer[] = [];
    for (const entry of slice.layers) {
      const pieces: Piece[] = [];
      for (const piece of entry.pieces) {
        pieces.push(await loadPiece(piece, elementText));
        told(++done / total);
      }
      layers.push({ entry, key: layerKey(entry), label: layerLabel(entry), pieces });
    }
    slices.push({ time: slice.time, layers });
  }
  return { manifest, slices };
}

function layerKey(entry: LayerEntry): string {
  return [entry.grid, entry.dimension, ...entry.refinement].join('/');
}

function layerLabel(entry: LayerEntry): string {
  const parts = [entry.grid];
  if (entry.dimension > 0) parts.push(`dimension ${entry.dimension}`);
  if (entry.refinement.length > 0) {
    const same = entry.refinement.every((level) => level === entry.refinement[0]);
    parts.push(`level ${same ? String(entry.refinement[0]) : entry.refinement.join(', ')}`);
  }
  return parts.join(' · ');
}

async function loadPiece(entry: PieceEntry, elementText: ElementText): Promise<Piece> {
  const text = elementText(entry.data);
  if (text === null) throw new Error(`the page contains no data "${entry.data}"`);
  const bytes = decodeBase64(text.trim());
  const columns: Column[] = [];
  let start = 0;
  for (const column of entry.columns) {
    const packed = bytes.subarray(start, start + column.bytes);
    start += column.bytes;
    const unpacked = column.bytes === 0 ? new Uint8Array(0) : await inflate(packed);
    columns.push(unpackColumn(column, entry.count, unpacked));
  }
  if (entry.kind === 'surface') {
    if (entry.extents[0] * entry.extents[1] !== entry.count) throw new Error('a surface has not as many places as it says');
    return {
      kind: 'surface',
      count: entry.count,
      columns: columns.filter((column) => column.role !== 'hole'),
      entry,
      height: columns.find((column) => column.name === entry.height && column.role !== 'hole') ?? null,
      hole: columns.find((column) => column.role === 'hole') ?? null,
    };
  }
  const axis = (role: string): Column => {
    const found = columns.find((column) => column.role === role);
    if (!found) throw new Error(`points have no ${role}`);
    return found;
  };
  return { kind: 'points', count: entry.count, columns, x: axis('x'), y: axis('y'), z: axis('z') };
}

async function inflate(bytes: Uint8Array<ArrayBuffer>): Promise<Uint8Array> {
  const stream = new Blob([bytes]).stream().pipeThrough(new DecompressionStream('deflate'));
  return new Uint8Array(await new Response(stream).arrayBuffer());
}
