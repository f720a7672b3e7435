// SPDX-License-Identifier: Apache-2.0

/**
 * What a page says about its data; docs/view-page.md is the one statement of the format, with the units and the coding of
 * columns.
 */
export interface Manifest {
  format: 1;
  /** What the page shows, for its heading. */
  title: string;
  /** The program and its version. */
  program: string;
  /** The coordinate reference system; null where the inputs state none that is known. */
  system: string | null;
  /** The unit of coordinates, such as "m"; empty where it is not known. */
  unit: string;
  files: { name: string; kind: string; notCarried: string[] }[];
  /** What is to be said about how the points were chosen; a sentence each. */
  notes: string[];
  /** The classes that the chosen points have, ascending. */
  classes: ClassEntry[];
  /** Colours of scales, by the name of the scale, from low to high: "#rrggbb". */
  ramps: Record<string, string[]>;
  /** By time, ascending. */
  slices: SliceEntry[];
}

export interface ClassEntry {
  code: number;
  name: string;
  color: string;
}

export interface SliceEntry {
  time: number;
  layers: LayerEntry[];
}

/** A skeleton of a grid in one slice. */
export interface LayerEntry {
  grid: string;
  origin: string;
  dimension: number;
  refinement: number[];
  /** Whether exporters would take it: the highest refinement that is the same in every direction. */
  isDefault: boolean;
  /** Points or places in the input. */
  of: number;
  pieces: PieceEntry[];
}

export type PieceEntry = PointsEntry | SurfaceEntry;

interface PieceBase {
  /** The id of the element that holds the columns. */
  data: string;
  /** Points or places in the page. */
  count: number;
  columns: ColumnEntry[];
}

export interface PointsEntry extends PieceBase {
  kind: 'points';
}

/** Places on a lattice, x running fastest, y ascending. */
export interface SurfaceEntry extends PieceBase {
  kind: 'surface';
  extents: [number, number];
  origin: [number, number];
  spacing: [number, number];
  /** The name of the column that places lie at; empty: they lie at height 0. */
  height: string;
}

export type Role =
  | 'x'
  | 'y'
  | 'z'
  | 'class'
  | 'intensity'
  | 'return'
  | 'returns'
  | 'time'
  | 'red'
  | 'green'
  | 'blue'
  | 'hole';

export type ColumnEntry = IntegerColumnEntry | FloatColumnEntry;

interface ColumnBase {
  name: string;
  role?: Role;
  /** Bytes of the deflated column. */
  bytes: number;
}

export interface IntegerColumnEntry extends ColumnBase {
  kind: 'integer';
  /** The least and the largest value, as whole numbers of 10^-decimals. */
  min: string;
  max: string;
  decimals: number;
  /** Bytes of a coded difference; 0: every value is the least. */
  width: number;
  /** Whether some points have no value. */
  gaps: boolean;
}

export interface FloatColumnEntry extends ColumnBase {
  kind: 'float';
  /** 4 or 8 bytes. */
  width: 4 | 8;
}
