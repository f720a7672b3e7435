// SPDX-License-Identifier: Apache-2.0

/** The largest of 1, 2 and 5 times a power of ten that does not exceed a positive number. */
export function niceBelow(value: number): number {
  const power = 10 ** Math.floor(Math.log10(value));
  const lead = value / power;
  // A small tolerance, since 10^-3 is not exact in double precision.
  return (lead >= 5 - 1e-9 ? 5 : lead >= 2 - 1e-9 ? 2 : 1) * power;
}

/** Round values between two, about `count` of them. */
export function ticks(low: number, high: number, count: number): number[] {
  if (!(high > low)) return [low];
  const rough = (high - low) / Math.max(1, count);
  const below = niceBelow(rough);
  const step = below >= rough * 0.75 ? below : niceBelow(below * 2.5);
  const list: number[] = [];
  for (let k = Math.ceil(low / step - 1e-9); k * step <= high + step * 1e-9; ++k) list.push(k * step + 0); // no negative zero
  return list;
}

/** A number for display, with as many decimals as a step of that size needs. */
export function plain(value: number, step: number): string {
  const decimals = Math.min(12, Math.max(0, Math.ceil(-Math.log10(step) - 1e-9)));
  const text = value.toFixed(decimals);
  return Number(text) === 0 ? (0).toFixed(decimals) : text;
}

/** An integer in groups of three digits: "1 000 000", with non-breaking spaces. */
export function grouped(value: number): string {
  return String(value).replace(/\B(?=(\d{3})+$)/g, '\u202f');
}
