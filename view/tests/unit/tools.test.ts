// SPDX-License-Identifier: Apache-2.0
import assert from 'node:assert/strict';
import test from 'node:test';
import { grouped, niceBelow, plain, ticks } from '../../src/tools/niceNumber.ts';
import { nearestInFront, type PickBlock, pickPoint } from '../../src/tools/pick.ts';
import { linkOf, type LinkState, parseLink } from '../../src/ui/link.ts';

test('round numbers are 1, 2 or 5 times a power of ten', () => {
  for (const [value, nice] of [[1, 1], [1.99, 1], [2, 2], [4.9, 2], [5, 5], [99, 50], [0.0011, 0.001], [730, 500]] as const)
    assert.ok(Math.abs(niceBelow(value) - nice) < 1e-12 * nice + 1e-15, `${value}`);
});

test('ticks lie between the ends', () => {
  assert.deepEqual(ticks(0, 10, 5), [0, 2, 4, 6, 8, 10]);
  assert.deepEqual(ticks(-1.6, 1.7, 4), [-1, 0, 1]);
  assert.deepEqual(ticks(5, 5, 4), [5]);
});

test('numbers have the decimals that their step needs', () => {
  assert.equal(plain(0.30000000000000004, 0.1), '0.3');
  assert.equal(plain(-0.0001, 0.1), '0.0');
  assert.equal(plain(1500, 500), '1500');
  assert.equal(grouped(1234567), '1\u202f234\u202f567');
  assert.equal(grouped(999), '999');
});

/** A block seen from straight above: one unit a pixel. */
function block(points: [number, number, number][]): PickBlock {
  return { count: points.length, center: [0, 0, 0], radius: 1000, positions: Float32Array.from(points.flat()), indexOf: (slot) => slot };
}
const picture = { width: 200, height: 100 };
// x / 100, y / 50, no depth in z; w = 100 - z: the viewer is 100 above.
const above = (): Float64Array => Float64Array.from([1, 0, 0, 0, 0, 2, 0, 0, 0, 0, 0, -1, 0, 0, 0, 100]);

test('the point under the pointer is picked', () => {
  const points = block([[0, 0, 0], [20, 10, 0], [-30, -40, 0]]);
  assert.equal(pickPoint([points], above, () => true, picture, 120, 40, 4)?.index, 1);
  assert.equal(pickPoint([points], above, () => true, picture, 70, 90, 4)?.index, 2);
  assert.equal(pickPoint([points], above, () => true, picture, 150, 90, 4), null);
});

test('a point in front hides the one behind it, unless it is switched off', () => {
  const points = block([[0, 0, 0], [0.5, 0, 50]]);
  assert.equal(pickPoint([points], above, () => true, picture, 100, 50, 4)?.index, 1);
  assert.equal(pickPoint([points], above, (index) => index !== 1, picture, 100, 50, 4)?.index, 0);
});

test('a point behind the viewer is not picked', () => {
  assert.equal(pickPoint([block([[0, 0, 150]])], above, () => true, picture, 100, 50, 4), null);
});

test('of points about as far away the nearest to the pointer counts', () => {
  assert.equal(nearestInFront([{ index: 1, away: 3, depth: 100 }, { index: 2, away: 1, depth: 100.5 }, { index: 3, away: 0, depth: 110 }])?.index, 2);
  assert.equal(nearestInFront([]), null);
});

test('a link restores what it was made of', () => {
  const state: LinkState = {
    view: { target: [431250.5, 5921200.2, 3], distance: 812.5, azimuth: 20.5, elevation: 38 },
    time: 2.5,
    color: 'f:<b>&=%',
    range: [-1.5, 3],
    hiddenClasses: [2, 9],
    layers: ['a,b&c=d/0', '<img>/0/1/1'],
    size: 2.5,
    stretch: -4,
    edl: false,
  };
  assert.deepEqual(parseLink('#' + linkOf(state)), state);
});

test('a link that says nonsense changes nothing', () => {
  assert.deepEqual(parseLink('#v=1,2,3&t=&r=5,1&x=1e9,-3,2.5&p=9000&z=NaN'), { hiddenClasses: [] });
  assert.deepEqual(parseLink(''), {});
  assert.deepEqual(parseLink('#v=1,2,3,-5,0,0'), {});
  assert.deepEqual(parseLink('#v=1,2,,5,0,0'), {});
});
