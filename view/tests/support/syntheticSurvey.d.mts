// SPDX-License-Identifier: Apache-2.0
import type { Manifest } from '../../src/data/manifest.ts';

export const hostileName: string;
export const corner: [number, number];
export function syntheticSurvey(points?: number): { manifest: Manifest; data: Record<string, string> };
