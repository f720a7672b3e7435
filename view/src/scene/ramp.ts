// SPDX-License-Identifier: Apache-2.0

export type Color = [number, number, number];

/** "#rrggbb" as three numbers from 0 to 255; black for any other text. */
export function parseColor(text: string): Color {
  const match = /^#([0-9a-f]{2})([0-9a-f]{2})([0-9a-f]{2})$/i.exec(text);
  return match ? [parseInt(match[1], 16), parseInt(match[2], 16), parseInt(match[3], 16)] : [0, 0, 0];
}

/** 256 colours from low to high, three bytes each, interpolated between the given, equidistant colours. */
export function makeRamp(colors: readonly string[]): Uint8Array {
  const stops = (colors.length > 0 ? colors : ['#000000', '#ffffff']).map(parseColor);
  const ramp = new Uint8Array(3 * 256);
  for (let i = 0; i < 256; ++i) {
    const place = (i / 255) * (stops.length - 1);
    const first = Math.min(Math.floor(place), Math.max(stops.length - 2, 0));
    const a = stops[first];
    const b = stops[Math.min(first + 1, stops.length - 1)];
    for (let part = 0; part < 3; ++part) ramp[3 * i + part] = Math.round(a[part] + (b[part] - a[part]) * (place - first));
  }
  return ramp;
}
