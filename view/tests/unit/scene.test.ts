// SPDX-License-Identifier: Apache-2.0
import assert from 'node:assert/strict';
import test from 'node:test';
import { loadPage, type Page, type PointsPiece, type SurfacePiece } from '../../src/data/loadPage.ts';
import { attributesOf, columnOf, distributionOf } from '../../src/scene/attributes.ts';
import { type Paint, paintPiece } from '../../src/scene/paint.ts';
import { spreadingStride } from '../../src/scene/PointObject.ts';
import { makeRamp, parseColor } from '../../src/scene/ramp.ts';
import { nextShare } from '../../src/scene/Stage.ts';
import { hillshade, isThere, trianglesOf } from '../../src/scene/SurfaceObject.ts';
import { pickSurface } from '../../src/tools/pick.ts';
import { sectionOf } from '../../src/tools/section.ts';
import { corner, hostileName, syntheticSurvey } from '../support/syntheticSurvey.mjs';

async function load(points = 400): Promise<Page> {
  const { manifest, data } = syntheticSurvey(points);
  return loadPage((id) => (id === 'manifest' ? JSON.stringify(manifest) : (data[id] ?? null)), () => undefined);
}
const cloudOf = (page: Page): PointsPiece => page.slices[0].layers[1].pieces[0] as PointsPiece;
const surfaceOf = (page: Page): SurfacePiece => page.slices[0].layers[2].pieces[0] as SurfacePiece;

test('a page is read as it was written', async () => {
  const page = await load();
  assert.deepEqual(page.slices.map(({ time }) => time), [0, 3, 6]);
  const cloud = cloudOf(page);
  assert.equal(cloud.count, 400);
  assert.deepEqual([cloud.x.text(0), cloud.y.text(0), cloud.z.text(0)], ['431250.123', '5921200.045', '30.007']);
  assert.equal(page.slices[0].layers[2].label, hostileName);
  assert.equal(page.slices[0].layers[1].label, 'bay · level 1');
});

test('a page of another format, or without its data, is refused', async () => {
  const { manifest } = syntheticSurvey(50);
  await assert.rejects(loadPage(() => null, () => undefined), /no manifest/);
  await assert.rejects(loadPage(() => JSON.stringify({ ...manifest, format: 2 }), () => undefined), /format 2/);
  await assert.rejects(loadPage((id) => (id === 'manifest' ? JSON.stringify(manifest) : null), () => undefined), /no data "data-0"/);
});

test('attributes are those that are there, each once', async () => {
  const keys = attributesOf(await load()).map(({ key }) => key);
  assert.deepEqual(keys, ['height', 'class', 'intensity', 'return', 'rgb', 'time', 'f:NumberOfReturns', 'f:<b>Roughness</b>', 'f:WaterDepth', 'plain']);
});

test('a distribution leaves out what is not a number', async () => {
  const page = await load();
  const attribute = attributesOf(page).find(({ key }) => key === 'f:<b>Roughness</b>')!;
  const spread = distributionOf([cloudOf(page)], attribute)!;
  assert.ok(spread.min >= -1 && spread.max <= 1 && spread.low >= spread.min && spread.high <= spread.max + 1e-3);
  assert.equal(spread.bins.reduce((a, b) => a + b, 0), 400 - Math.floor((400 + 3) / 7));
  assert.equal(distributionOf([surfaceOf(page)], attribute), null);
});

test('what stands in the holes of a surface is not part of a distribution', async () => {
  const page = await load();
  const surface = surfaceOf(page);
  const raw = (surface.height!.raw as Float32Array);
  for (let i = 0; i < raw.length; ++i) if (!isThere(surface, i)) raw[i] = -9999;
  const spread = distributionOf([surface], attributesOf(page)[0])!;
  assert.ok(spread.min > -10, String(spread.min));
  assert.equal(spread.bins.reduce((a, b) => a + b, 0), Array.from({ length: surface.count }, (_, i) => isThere(surface, i)).filter(Boolean).length);
});

const paintOf = (page: Page, key: string, change: Partial<Paint> = {}): Paint => ({
  attribute: attributesOf(page).find((attribute) => attribute.key === key)!,
  range: [0, 10],
  ramp: makeRamp(['#000000', '#ff0000']),
  classColors: new Map([[9, [1, 2, 3]]]),
  hiddenClasses: new Set(),
  plain: [9, 9, 9],
  ...change,
});

test('heights become colours of the ramp, and what lies beyond its ends gets these', async () => {
  const page = await load();
  const cloud = cloudOf(page);
  const colors = new Uint8Array(4 * cloud.count);
  paintPiece(cloud, paintOf(page, 'height'), colors);
  for (let i = 0; i < cloud.count; ++i) {
    const expected = Math.min(255, Math.max(0, (cloud.z.value(i) / 10) * 255));
    assert.ok(Math.abs(colors[4 * i] - expected) <= 1, `${colors[4 * i]} for ${cloud.z.value(i)}`);
    assert.deepEqual([...colors.subarray(4 * i + 1, 4 * i + 4)], [0, 0, 255]);
  }
});

test('a class that is switched off disappears, whatever the colouring', async () => {
  const page = await load();
  const cloud = cloudOf(page);
  const column = cloud.columns.find(({ role }) => role === 'class')!;
  for (const key of ['height', 'class', 'rgb', 'plain']) {
    const colors = new Uint8Array(4 * cloud.count);
    paintPiece(cloud, paintOf(page, key, { hiddenClasses: new Set([9]) }), colors);
    for (let i = 0; i < cloud.count; ++i) assert.equal(colors[4 * i + 3], column.value(i) === 9 ? 0 : 255);
  }
});

test('classes and colours of the input are taken as they are', async () => {
  const page = await load();
  const cloud = cloudOf(page);
  const colors = new Uint8Array(4 * cloud.count);
  paintPiece(cloud, paintOf(page, 'class'), colors);
  const classes = cloud.columns.find(({ role }) => role === 'class')!;
  const water = [...Array(cloud.count).keys()].find((i) => classes.value(i) === 9)!;
  assert.deepEqual([...colors.subarray(4 * water, 4 * water + 3)], [1, 2, 3]);
  assert.deepEqual([...colors.subarray(0, 3)], [9, 9, 9]); // class 200, for which no colour was given
  paintPiece(cloud, paintOf(page, 'rgb'), colors);
  assert.deepEqual([...colors.subarray(4 * water, 4 * water + 3)], [52, 84, 110]);
});

test('what a piece has no values of is plain', async () => {
  const page = await load();
  const surface = surfaceOf(page);
  assert.equal(columnOf(surface, attributesOf(page)[2]), null);
  const colors = new Uint8Array(4 * surface.count);
  paintPiece(surface, paintOf(page, 'intensity'), colors);
  assert.deepEqual([...colors.subarray(0, 4)], [9, 9, 9, 255]);
});

test('the drawing order of a block visits every point once, each beginning evenly', () => {
  for (const n of [1, 2, 3, 10, 97, 1000, 32768]) {
    const stride = spreadingStride(n);
    const seen = new Set(Array.from({ length: n }, (_, slot) => (slot * stride) % n));
    assert.equal(seen.size, n);
  }
  const beginning = Array.from({ length: 100 }, (_, slot) => (slot * spreadingStride(32768)) % 32768).sort((a, b) => a - b);
  const gaps = beginning.slice(1).map((at, k) => at - beginning[k]);
  assert.ok(Math.max(...gaps) < 3 * (32768 / 100));
});

test('ramps pass through their colours', () => {
  const ramp = makeRamp(['#000000', '#0000ff', '#ffffff']);
  assert.deepEqual([...ramp.subarray(0, 3)], [0, 0, 0]);
  assert.deepEqual([...ramp.subarray(765)], [255, 255, 255]);
  assert.equal(makeRamp(['#102030'])[300], 16);
  assert.deepEqual(parseColor('url(evil)'), [0, 0, 0]);
});

test('a cell has two triangles, one where a corner is missing, and none where two are', () => {
  const missing = (...gone: number[]): number => trianglesOf((i) => !gone.includes(i), 0, 2).length;
  assert.equal(missing(), 2);
  for (const corner of [0, 1, 2, 3]) assert.equal(missing(corner), 1);
  for (const [a, b] of [[0, 1], [0, 2], [0, 3], [1, 2], [1, 3], [2, 3]] as const) assert.equal(missing(a, b), 0);
});

test('slopes towards the north-west are lighter than those away from it', async () => {
  const page = await load();
  const surface = surfaceOf(page);
  const tilted = (sign: number): number => {
    const height = surface.height!;
    const raw = Float32Array.from({ length: surface.count }, (_, i) => sign * ((i % 126) - Math.floor(i / 126)));
    const piece = { ...surface, hole: null, height: Object.assign(Object.create(Object.getPrototypeOf(height) as object) as typeof height, height, { raw }) };
    return hillshade(piece)[126 * 50 + 60];
  };
  assert.ok(tilted(1) > tilted(-1) + 60);
});

test('a line of sight meets the surface at the place that it points at, and passes through holes', async () => {
  const surface = surfaceOf(await load());
  const origin: [number, number, number] = [corner[0], corner[1], 0];
  const at = (column: number, row: number) => pickSurface(surface, origin, [column * 4 + 0.3, row * 4 - 0.2, 500], [0, 0, -1]);
  assert.equal(at(90, 20)?.index, 20 * 126 + 90);
  assert.ok(!isThere(surface, 70 * 126 + 40));
  assert.equal(at(40, 70), null);
  assert.equal(at(400, 70), null);
  // A slanted line that comes down on the same place.
  const z = surface.height!.value(20 * 126 + 90);
  const slanted = pickSurface(surface, origin, [360 - 300, 80, z + 100], [3, 0, -1]);
  assert.ok(slanted && Math.abs((slanted.index % 126) - 90) <= 1 && Math.floor(slanted.index / 126) === 20);
});

test('a cross-section holds what lies in its strip, in order of the distance', async () => {
  const page = await load(2000);
  const cloud = cloudOf(page);
  const [x0, y0] = corner;
  const section = sectionOf(cloud, [x0, y0 + 200], [x0 + 500, y0 + 200], 10, () => true);
  let expected = 0;
  for (let i = 0; i < cloud.count; ++i) {
    const [x, y] = [cloud.x.value(i), cloud.y.value(i)];
    if (x >= x0 && x <= x0 + 500 && Math.abs(y - y0 - 200) <= 10) ++expected;
  }
  assert.ok(expected > 50);
  assert.equal(section.index.length, expected);
  section.index.forEach((i, k) => {
    assert.ok(Math.abs(section.along[k] - (cloud.x.value(i) - x0)) < 1e-6);
    assert.equal(section.height[k], cloud.z.value(i));
  });
  assert.equal(sectionOf(cloud, [x0, y0], [x0, y0], 10, () => true).index.length, 0);
  assert.equal(sectionOf(surfaceOf(page), [x0, y0 + 200], [x0 + 500, y0 + 200], 1, () => true).index.length, 126);
});

test('slow frames lead to fewer points, fast ones to more, until they are of use', () => {
  // A machine that takes a microsecond a point and ten milliseconds besides.
  let share = 1;
  for (let frame = 0; frame < 12; ++frame) share = nextShare(share, 10 + 1000 * share);
  const took = 10 + 1000 * share;
  assert.ok(took > 30 && took < 100, String(took));
  assert.equal(nextShare(1, 5), 1);
  assert.ok(nextShare(0.02, 5000) >= 0.02);
});
