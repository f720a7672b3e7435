// SPDX-License-Identifier: Apache-2.0
import assert from 'node:assert/strict';
import test from 'node:test';
import { basisOf, between, dot, orbit, pan, placeIn, type Vector, type View, viewOfBox, zoom } from '../../src/scene/View.ts';

const near = (a: number, b: number, tolerance = 1e-9): void => assert.ok(Math.abs(a - b) <= tolerance, `${a} is not ${b}`);
const view = (change: Partial<View> = {}): View => ({ target: [0, 0, 0], distance: 100, azimuth: 0, elevation: 45, ...change });

test('the axes are perpendicular and of length 1, straight down too', () => {
  for (const azimuth of [0, 33, 90, 200, 359]) {
    for (const elevation of [-30, 0, 45, 89.9, 90]) {
      const { right, up, forward } = basisOf(view({ azimuth, elevation }));
      for (const axis of [right, up, forward]) near(dot(axis, axis), 1);
      near(dot(right, up), 0);
      near(dot(right, forward), 0);
      near(dot(up, forward), 0);
    }
  }
});

test('looking north from above, east is right and north is up', () => {
  const down = view({ elevation: 90 });
  const [x, y] = placeIn(down, [10, 5, 0], 500);
  assert.ok(x > 0 && y > 0);
  near(x / y, 2);
});

test('looking east, north is left', () => {
  assert.ok(placeIn(view({ azimuth: 90 }), [0, 10, 0], 500)[0] < 0);
});

test('turning stays within its limits', () => {
  assert.equal(orbit(view(), 0, 300).elevation, 90);
  assert.equal(orbit(view(), 0, -300).elevation, -30);
  assert.equal(orbit(view({ azimuth: 350 }), 20, 0).azimuth, 10);
  assert.equal(orbit(view(), -10, 0).azimuth, 350);
});

test('moving takes the target along with the pointer', () => {
  for (const elevation of [90, 50, 5]) {
    const before = view({ elevation, azimuth: 70 });
    const after = pan(before, 1, -2, 600);
    // The place that was in the middle has gone where the pointer went.
    const [x, y] = placeIn(after, before.target, 600);
    near(x, 1, 0.02);
    near(y, 2, 0.05);
  }
});

test('zooming keeps what is under the pointer', () => {
  const before = view({ elevation: 90, azimuth: 20 });
  const place: Vector = [12, 7, 0];
  const [x, y] = placeIn(before, place, 400);
  const after = zoom(before, 0.5, x, y, 400, [1, 1000]);
  assert.equal(after.distance, 50);
  const [x2, y2] = placeIn(after, place, 400);
  near(x2, x, 1e-6);
  near(y2, y, 1e-6);
});

test('zooming ends at its limits without moving on', () => {
  const before = view({ distance: 10 });
  assert.deepEqual(zoom(before, 0.1, 30, 40, 400, [10, 1000]), before);
});

test('a box fills what the margins leave of a picture', () => {
  for (const [width, height] of [[1400, 900], [390, 780]] as const) {
    for (const elevation of [20, 38, 90]) {
      const margins = { left: 20, right: 120, top: 60, bottom: 40 };
      const v = viewOfBox([500, 300, 40], width, height, margins, 25, elevation);
      const places = [-250, 250].flatMap((x) => [-150, 150].flatMap((y) => [-20, 20].map((z) => placeIn(v, [x, y, z], height))));
      const left = Math.min(...places.map(([x]) => x)) + width / 2 - margins.left;
      const right = width / 2 - margins.right - Math.max(...places.map(([x]) => x));
      const bottom = Math.min(...places.map(([, y]) => y)) + height / 2 - margins.bottom;
      const top = height / 2 - margins.top - Math.max(...places.map(([, y]) => y));
      near(left, right, 1);
      near(top, bottom, 1);
      near(Math.min(left, top), 0, 1);
    }
  }
});

test('a passage turns the short way', () => {
  near(between(view({ azimuth: 350 }), view({ azimuth: 10 }), 0.5).azimuth % 360, 0);
  near(between(view({ distance: 10 }), view({ distance: 1000 }), 0.5).distance, 100);
});
