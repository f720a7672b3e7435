// SPDX-License-Identifier: Apache-2.0
//
// A small synthetic survey as the data of a page: a bay whose water rises and falls, in three time slices, each with a
// cloud at two refinement levels and an elevation grid with a hole. Names are as hostile as names can be.

import { packFloats, packIntegers } from './pack.mjs';

export const hostileName = '<img onerror=alert(1) src=x>';
export const corner = [431000, 5921000];

/** Numbers that look random and are the same everywhere. */
function counted(seed) {
  let state = seed >>> 0;
  return () => {
    state = (Math.imul(state, 1664525) + 1013904223) >>> 0;
    return state / 2 ** 32;
  };
}

function ground(x, y) {
  const dune = Math.max(0, y - 220) * 0.03 + 3 * Math.sin(x / 37) * Math.exp(-(((y - 300) / 60) ** 2));
  return -4 + y * 0.02 + dune + 0.4 * Math.sin(x / 11) * Math.cos(y / 17);
}

function cloudPiece(data, id, count, tide, slice) {
  const random = counted(17 + slice);
  const columns = { x: [], y: [], z: [], class: [], intensity: [], ret: [], returns: [], time: [], red: [], green: [], blue: [], extra: [] };
  const edge = Math.ceil(Math.sqrt(count));
  for (let i = 0; i < count; ++i) {
    const x = ((i % edge) / edge) * 500 + random();
    const y = (Math.floor(i / edge) / edge) * 400 + random();
    const bed = ground(x, y);
    const isWater = bed < tide;
    const isTree = !isWater && bed > 2.5 && random() < 0.25;
    const z = isWater ? tide + 0.05 * Math.sin(x) : bed + (isTree ? 6 * random() : 0);
    // The first point of each cloud is the one that tests look for.
    const isKnown = i === 0;
    columns.x.push(isKnown ? 431250123 : Math.round((corner[0] + x) * 1000));
    columns.y.push(isKnown ? 5921200045 : Math.round((corner[1] + y) * 1000));
    columns.z.push(isKnown ? 30007 : Math.round(z * 1000));
    columns.class.push(isKnown ? 200 : isWater ? 9 : isTree ? 5 : 2);
    columns.intensity.push(isKnown ? 4711 : Math.round((isWater ? 300 : 2000) * (0.6 + random() * 0.8)));
    columns.ret.push(isTree && random() < 0.5 ? 2 : 1);
    columns.returns.push(isTree ? 2 : 1);
    columns.time.push(BigInt(Math.round((slice * 10800 + i * 0.001) * 1e6)));
    const [r, g, b] = isWater ? [52, 84, 110] : isTree ? [60, 100, 48] : [190, 180, 140];
    columns.red.push(r);
    columns.green.push(g);
    columns.blue.push(b);
    columns.extra.push(i % 7 === 3 ? NaN : Math.fround(Math.sin(i / 1000)));
  }
  const packed = [
    packIntegers('x', columns.x, { decimals: 3, role: 'x' }),
    packIntegers('y', columns.y, { decimals: 3, role: 'y' }),
    packIntegers('z', columns.z, { decimals: 3, role: 'z' }),
    packIntegers('Classification', columns.class, { role: 'class' }),
    packIntegers('Intensity', columns.intensity, { role: 'intensity' }),
    packIntegers('ReturnNumber', columns.ret, { role: 'return' }),
    packIntegers('NumberOfReturns', columns.returns, { role: 'returns' }),
    packIntegers('GPSTime', columns.time, { decimals: 6, role: 'time' }),
    packIntegers('RGB red', columns.red, { role: 'red' }),
    packIntegers('RGB green', columns.green, { role: 'green' }),
    packIntegers('RGB blue', columns.blue, { role: 'blue' }),
    packFloats('<b>Roughness</b>', columns.extra, 4),
  ];
  data[id] = Buffer.concat(packed.map(({ bytes }) => bytes)).toString('base64');
  return { kind: 'points', data: id, count, columns: packed.map(({ entry }) => entry) };
}

function gridPiece(data, id, tide) {
  const [columns, rows] = [126, 101];
  const heights = [];
  const depths = [];
  const holes = [];
  for (let row = 0; row < rows; ++row) {
    for (let column = 0; column < columns; ++column) {
      const z = ground(column * 4, row * 4);
      heights.push(Math.fround(z));
      depths.push(Math.max(0, tide - z));
      holes.push(Math.hypot(column - 40, row - 70) < 12 ? 1 : 0);
    }
  }
  const packed = [packFloats('Height', heights, 4), packFloats('WaterDepth', depths, 8), packIntegers('hole', holes, { role: 'hole' })];
  data[id] = Buffer.concat(packed.map(({ bytes }) => bytes)).toString('base64');
  return {
    kind: 'surface',
    data: id,
    count: columns * rows,
    extents: [columns, rows],
    origin: [...corner],
    spacing: [4, 4],
    height: 'Height',
    columns: packed.map(({ entry }) => entry),
  };
}

/** A manifest and its data, with clouds of `points` points. */
export function syntheticSurvey(points = 20000) {
  const data = {};
  let number = 0;
  const nextId = () => `data-${number++}`;
  const slices = [-1.6, 0.1, 1.7].map((tide, slice) => ({
    time: 3 * slice,
    layers: [
      {
        grid: 'bay',
        origin: 'bay.h5',
        dimension: 0,
        refinement: [0, 0, 0],
        isDefault: false,
        of: Math.floor(points / 8),
        pieces: [cloudPiece(data, nextId(), Math.floor(points / 8), tide, slice)],
      },
      {
        grid: 'bay',
        origin: 'bay.h5',
        dimension: 0,
        refinement: [1, 1, 1],
        isDefault: true,
        of: 4 * points,
        pieces: [cloudPiece(data, nextId(), points, tide, slice)],
      },
      {
        grid: hostileName,
        origin: 'bay.h5',
        dimension: 0,
        refinement: [],
        isDefault: true,
        of: 126 * 101,
        pieces: [gridPiece(data, nextId(), tide)],
      },
    ],
  }));
  const manifest = {
    format: 1,
    title: 'bay <script>alert(1)</script>',
    program: 'tidewatch test',
    system: 'EPSG:25832 ETRS89 / UTM zone 32N',
    unit: 'm',
    files: [{ name: 'bay.h5', kind: 'bundle file', notCarried: [] }],
    notes: ['Points were chosen by cells over place.'],
    classes: [
      { code: 2, name: 'Ground', color: '#a0784f' },
      { code: 5, name: 'High Vegetation', color: '#2f7d32' },
      { code: 9, name: 'Water', color: '#2f7fc1' },
      { code: 200, name: 'User Definable', color: '#d23ca0' },
    ],
    ramps: {
      height: ['#22306e', '#2c7fb0', '#6cc3a5', '#e8e3a0', '#d59a54', '#8c4a2f', '#f5f0ee'],
      intensity: ['#0d0d0d', '#f7f7f7'],
      scalar: ['#1d1147', '#6a1f7a', '#b63679', '#f1605d', '#feae77', '#fcfdbf'],
      steps: ['#2c7fb8', '#f0a030', '#c83d5a'],
    },
    slices,
  };
  return { manifest, data };
}
