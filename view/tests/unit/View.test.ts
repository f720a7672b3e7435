// SPDX-License-Identifier: Apache-2.0
import assert from 'node:assert/strict';
import test from 'node:test';
import { basisOf, between, dot, eyeOf, orbit, pan, unitsPerPixel, type Vector, type View, viewOf, zoom } from '../../src/scene/View.ts';

const near = (a: number, b: number, tolerance = 1e-9): void => assert.ok(Math.abs(a - b) <= tolerance, `${a} is not ${b}`);
const view = (change: Partial<View> = {}): View => ({ target: [0, 0, 0], distance: 100, azimuth: 0, elevation: 45, ...change });

/** Where a place is in a picture, in pixels from its middle, to the right and up. */
function placeOf(v: View, place: Vector, height: number): [number, number] {
  const { right, up, forward } = basisOf(v);
  const eye = eyeOf(v);
  const from: Vector = [place[0] - eye[0], place[1] - eye[1], place[2] - eye[2]];
  const perUnit = v.distance / (dot(from, forward) * unitsPerPixel(v, height));
  return [dot(from, right) * perUnit, dot(from, up) * perUnit];
}

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
  const [x, y] = placeOf(down, [10, 5, 0], 500);
  assert.ok(x > 0 && y > 0);
  near(x / y, 2);
});

test('looking east, north is left', () => {
  assert.ok(placeOf(view({ azimuth: 90 }), [0, 10, 0], 500)[0] < 0);
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
    const [x, y] = placeOf(after, before.target, 600);
    near(x, 1, 0.02);
    near(y, 2, 0.05);
  }
});

test('zooming keeps what is under the pointer', () => {
  const before = view({ elevation: 90, azimuth: 20 });
  const place: Vector = [12, 7, 0];
  const [x, y] = placeOf(before, place, 400);
  const after = zoom(before, 0.5, x, y, 400, [1, 1000]);
  assert.equal(after.distance, 50);
  const [x2, y2] = placeOf(after, place, 400);
  near(x2, x, 1e-6);
  near(y2, y, 1e-6);
});

test('zooming ends at its limits without moving on', () => {
  const before = view({ distance: 10 });
  assert.deepEqual(zoom(before, 0.1, 30, 40, 400, [10, 1000]), before);
});

test('the whole view takes narrow pictures into account', () => {
  assert.ok(viewOf([0, 0, 0], 50, 0.5, 0, 40).distance > viewOf([0, 0, 0], 50, 2, 0, 40).distance);
});

test('a passage turns the short way', () => {
  near(between(view({ azimuth: 350 }), view({ azimuth: 10 }), 0.5).azimuth % 360, 0);
  near(between(view({ distance: 10 }), view({ distance: 1000 }), 0.5).distance, 100);
});
