// SPDX-License-Identifier: Apache-2.0
import type { ColumnEntry, IntegerColumnEntry, Role } from './manifest.ts';

export type Numbers = Uint8Array | Uint16Array | Uint32Array | Float32Array | Float64Array;

/**
 * One attribute of the points of a piece.
 *
 * The value of point i is `raw[i] * scale + offset`, rounded, for drawing; text() is exact.
 */
export class Column {
  readonly raw: Numbers;
  readonly scale: number;
  readonly offset: number;

  constructor(
    private readonly entry: ColumnEntry,
    raw: Numbers,
  ) {
    this.raw = raw;
    if (entry.kind === 'integer') {
      this.scale = 1 / 10 ** entry.decimals;
      this.offset = (Number(entry.min) - (entry.gaps ? 1 : 0)) * this.scale;
    } else {
      this.scale = 1;
      this.offset = 0;
    }
  }

  get name(): string {
    return this.entry.name;
  }
  get role(): Role | undefined {
    return this.entry.role;
  }

  /** Whether the point has a value that is not NaN. */
  has(i: number): boolean {
    const raw = this.raw[i];
    return this.entry.kind === 'integer' ? !(this.entry.gaps && raw === 0) : !Number.isNaN(raw);
  }

  /** The nearest double to the value; NaN if there is none. */
  value(i: number): number {
    const entry = this.entry;
    const raw = this.raw[i];
    if (entry.kind === 'float') return raw;
    if (entry.gaps && raw === 0) return NaN;
    // The quotient of two exact numbers is rounded once, so it is the double nearest to the decimal text.
    return (Number(entry.min) + raw - (entry.gaps ? 1 : 0)) / 10 ** entry.decimals;
  }

  /** The exact value, with the decimals of the input; a dash if there is none. */
  text(i: number): string {
    if (!this.has(i)) return '–';
    const entry = this.entry;
    const raw = this.raw[i];
    if (entry.kind === 'float') return entry.width === 4 ? shortestFloat(raw) : String(raw);
    return decimalText(BigInt(entry.min) + BigInt(raw) - (entry.gaps ? 1n : 0n), entry.decimals);
  }
}

/** An integer in units of 10^-decimals as decimal text. */
export function decimalText(units: bigint, decimals: number): string {
  const digits = (units < 0n ? -units : units).toString().padStart(decimals + 1, '0');
  const whole = digits.slice(0, digits.length - decimals);
  const sign = units < 0n ? '-' : '';
  return decimals > 0 ? `${sign}${whole}.${digits.slice(-decimals)}` : `${sign}${whole}`;
}

/** The shortest text that reads back as the same single-precision number. */
function shortestFloat(value: number): string {
  if (!Number.isFinite(value)) return String(value);
  for (let digits = 1; digits <= 9; ++digits) {
    const text = Number(value.toPrecision(digits));
    if (Math.fround(text) === value) return String(text);
  }
  return String(value);
}

/** Decodes the byte planes and differences of a column. Throws an Error if the bytes do not match the entry. */
export function unpackColumn(entry: ColumnEntry, count: number, bytes: Uint8Array): Column {
  const expected = count * entry.width;
  if (bytes.length !== expected)
    throw new Error(`the column "${entry.name}" has ${bytes.length} bytes instead of ${expected}`);
  return new Column(entry, entry.kind === 'integer' ? unpackIntegers(entry, count, bytes) : unpackFloats(entry.width, count, bytes));
}

function unpackFloats(width: 4 | 8, count: number, bytes: Uint8Array): Numbers {
  const joined = new Uint8Array(count * width);
  for (let plane = 0; plane < width; ++plane) {
    for (let i = 0; i < count; ++i) joined[i * width + plane] = bytes[plane * count + i]!;
  }
  // Typed arrays have the byte order of the machine, and browsers run on little-endian ones only.
  return width === 4 ? new Float32Array(joined.buffer) : new Float64Array(joined.buffer);
}

function unpackIntegers(entry: IntegerColumnEntry, count: number, bytes: Uint8Array): Numbers {
  const largest = Number(BigInt(entry.max) - BigInt(entry.min)) + (entry.gaps ? 1 : 0);
  if (!(largest >= 0 && largest < 2 ** 52) || entry.width > 7)
    throw new Error(`the column "${entry.name}" has a range that is not supported`);
  const raw =
    largest < 2 ** 8
      ? new Uint8Array(count)
      : largest < 2 ** 16
        ? new Uint16Array(count)
        : largest < 2 ** 32
          ? new Uint32Array(count)
          : new Float64Array(count);
  const { width } = entry;
  let last = 0;
  if (width >= 1 && width <= 3) {
    const second = width > 1 ? count : 0;
    const third = width > 2 ? 2 * count : 0;
    for (let i = 0; i < count; ++i) {
      let code = bytes[i];
      if (second > 0) code |= bytes[second + i] << 8;
      if (third > 0) code |= bytes[third + i] << 16;
      last += (code >>> 1) ^ -(code & 1);
      raw[i] = last;
    }
  } else if (width > 3) {
    for (let i = 0; i < count; ++i) {
      let code = 0;
      for (let plane = width - 1; plane >= 0; --plane) code = code * 256 + bytes[plane * count + i];
      last += code % 2 === 0 ? code / 2 : -(code + 1) / 2;
      raw[i] = last;
    }
  }
  return raw;
}
