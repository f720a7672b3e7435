// SPDX-License-Identifier: Apache-2.0
import type { View } from '../scene/View.ts';

/** The state that a link to a view restores. Missing members leave the state unchanged. */
export interface LinkState {
  /** The target in coordinates of the survey. */
  view?: View;
  time?: number;
  color?: string;
  range?: [number, number];
  hiddenClasses?: number[];
  /** The layers that are switched on, by key. */
  layers?: string[];
  size?: number;
  stretch?: number;
  edl?: boolean;
}

/** A number with only the digits that are visible in a picture. */
const short = (value: number, digits: number): string => String(Number(value.toFixed(digits)));

/** The fragment of the URL, without "#". */
export function linkOf(state: LinkState): string {
  const values = new URLSearchParams();
  const { view } = state;
  if (view) {
    // Enough decimals for a thousandth of the picture.
    const digits = Math.min(12, Math.max(0, Math.ceil(3 - Math.log10(view.distance))));
    values.set('v', [...view.target.map((v) => short(v, digits)), short(view.distance, digits), short(view.azimuth, 1), short(view.elevation, 1)].join(','));
  }
  if (state.time !== undefined) values.set('t', String(state.time));
  if (state.color !== undefined) values.set('c', state.color);
  if (state.range) values.set('r', state.range.join(','));
  if (state.hiddenClasses && state.hiddenClasses.length > 0) values.set('x', state.hiddenClasses.join(','));
  for (const layer of state.layers ?? []) values.append('l', layer);
  if (state.size !== undefined) values.set('p', String(state.size));
  if (state.stretch !== undefined && state.stretch !== 0) values.set('z', String(state.stretch));
  if (state.edl !== undefined) values.set('e', state.edl ? '1' : '0');
  return values.toString();
}

/** Parses an untrusted fragment; invalid parts are ignored. */
export function parseLink(fragment: string): LinkState {
  const values = new URLSearchParams(fragment.replace(/^#/, ''));
  const numbers = (name: string, count?: number): number[] | null => {
    const text = values.get(name);
    if (text === null || text === '') return null;
    const list = text.split(',').map((part) => (part.trim() === '' ? NaN : Number(part)));
    return list.every(Number.isFinite) && (count === undefined || list.length === count) ? list : null;
  };
  const state: LinkState = {};
  const view = numbers('v', 6);
  if (view && view[3] > 0) {
    state.view = {
      target: [view[0], view[1], view[2]],
      distance: view[3],
      azimuth: ((view[4] % 360) + 360) % 360,
      elevation: Math.min(90, Math.max(-30, view[5])),
    };
  }
  const time = numbers('t', 1);
  if (time) state.time = time[0]!;
  const color = values.get('c');
  if (color !== null) state.color = color;
  const range = numbers('r', 2);
  if (range && range[0] < range[1]) state.range = [range[0], range[1]];
  const hidden = numbers('x');
  if (hidden) state.hiddenClasses = hidden.filter((code) => Number.isInteger(code) && code >= 0 && code <= 255);
  const layers = values.getAll('l');
  if (layers.length > 0) state.layers = layers;
  const size = numbers('p', 1);
  if (size && size[0] >= 1 && size[0] <= 10) state.size = size[0]!;
  const stretch = numbers('z', 1);
  if (stretch && Math.abs(stretch[0]) <= 100) state.stretch = stretch[0]!;
  const edl = values.get('e');
  if (edl !== null) state.edl = edl === '1';
  return state;
}
