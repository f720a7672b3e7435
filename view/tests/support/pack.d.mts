// SPDX-License-Identifier: Apache-2.0
import type { ColumnEntry, Manifest, Role } from '../../src/data/manifest.ts';

interface Packed {
  entry: ColumnEntry;
  bytes: Buffer;
}

export function packIntegers(name: string, values: (number | bigint | null)[], options?: { decimals?: number; role?: Role }): Packed;
export function packFloats(name: string, values: number[], width: 4 | 8, options?: { role?: Role }): Packed;
export function dataElements(manifest: Manifest, pieces: Record<string, string>): string;
