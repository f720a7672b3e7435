// SPDX-License-Identifier: Apache-2.0

/**
 * The description of a page's data; docs/view-page.md specifies the format, with the units and the encoding
 * of columns.
 */
export interface Manifest {
  format: 1;
  /** The heading of the page. */
  title: string;
  /** The program and its version. */
  program: string;
  /** The coordinate reference system; null if unknown. */
  system: string | null;
  /** The unit of coordinates, such as "m"; empty if unknown. */
  unit: string;
  files: { name: string; kind: string; notCarried: string[] }[];
  /** Notes on how the points were chosen; a sentence each. */
  notes: string[];
  /** The classes of the chosen points, ascending. */
  classes: ClassEntry[];
  /** Colour ramps by name, from low to high: "#rrggbb". */
  ramps: Record<string, string[]>;
  /** In ascending order of time. */
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
  /** Whether exporters would use it: the highest refinement that is the same in every direction. */
  isDefault: boolean;
  /** The number of points or places in the input. */
  of: number;
  pieces: PieceEntry[];
}

export type PieceEntry = PointsEntry | SurfaceEntry;

interface PieceBase {
  /** The id of the element that contains the columns. */
  data: string;
  /** The number of points or places in the page. */
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
  /** The name of the column of heights; if empty, all heights are 0. */
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
  /** The min and max value, as integers in units of 10^-decimals. */
  min: string;
  max: string;
  decimals: number;
  /** Bytes of an encoded difference; if 0, every value is `min`. */
  width: number;
  /** Whether some points have no value. */
  gaps: boolean;
}

export interface FloatColumnEntry extends ColumnBase {
  kind: 'float';
  /** 4 or 8 bytes. */
  width: 4 | 8;
}
