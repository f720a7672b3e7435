// SPDX-License-Identifier: Apache-2.0

export type Vector = [number, number, number];

export const fieldOfView = 45; // degrees, over the height of the picture

/** The position and direction of the camera, in coordinates of the scene. Angles are in degrees. */
export interface View {
  target: Vector;
  distance: number;
  /** The compass direction of the view: 0 is north, 90 east. */
  azimuth: number;
  /** The angle of the view below the horizon: 90 is straight down. */
  elevation: number;
}

/** The axes of the picture in coordinates of the scene, each of length 1. */
export interface Basis {
  right: Vector;
  up: Vector;
  forward: Vector;
}

const radians = (degrees: number): number => (degrees * Math.PI) / 180;

/** The axes for a view; defined also for straight down, unlike with a fixed "up" of the scene. */
export function basisOf(view: View): Basis {
  const a = radians(view.azimuth);
  const e = radians(view.elevation);
  return {
    right: [Math.cos(a), -Math.sin(a), 0],
    up: [Math.sin(a) * Math.sin(e), Math.cos(a) * Math.sin(e), Math.cos(e)],
    forward: [Math.sin(a) * Math.cos(e), Math.cos(a) * Math.cos(e), -Math.sin(e)],
  };
}

export function eyeOf(view: View): Vector {
  const { forward } = basisOf(view);
  return add(view.target, forward, -view.distance);
}

/** a + b * factor */
export function add(a: Vector, b: Vector, factor = 1): Vector {
  return [a[0] + b[0] * factor, a[1] + b[1] * factor, a[2] + b[2] * factor];
}

export function dot(a: Vector, b: Vector): number {
  return a[0] * b[0] + a[1] * b[1] + a[2] * b[2];
}

/** The length in the scene that a pixel covers at the target. */
export function unitsPerPixel(view: View, height: number): number {
  return (2 * view.distance * Math.tan(radians(fieldOfView / 2))) / height;
}

/** Turns around the target; angles in degrees. */
export function orbit(view: View, right: number, down: number): View {
  return {
    ...view,
    azimuth: (((view.azimuth + right) % 360) + 360) % 360,
    elevation: Math.min(90, Math.max(-30, view.elevation + down)),
  };
}

/**
 * Moves so that what is under the pointer stays there, in pixels of a picture of that height; flat views move
 * vertically, others along the ground.
 */
export function pan(view: View, right: number, down: number, height: number): View {
  const scale = unitsPerPixel(view, height);
  const { right: axis, up } = basisOf(view);
  let vertical = up;
  if (view.elevation > 20) {
    const a = radians(view.azimuth);
    // At a flat angle, a pixel is a longer distance along the ground.
    const stretch = 1 / Math.sin(radians(view.elevation));
    vertical = [Math.sin(a) * stretch, Math.cos(a) * stretch, 0];
  }
  return { ...view, target: add(add(view.target, axis, -right * scale), vertical, down * scale) };
}

/**
 * Zooms in (a factor below 1) or out, towards a place of the picture: its offset from the centre in pixels,
 * to the right and up.
 */
export function zoom(view: View, factor: number, right: number, up: number, height: number, limits: [number, number]): View {
  const distance = Math.min(limits[1], Math.max(limits[0], view.distance * factor));
  const before = unitsPerPixel(view, height);
  const after = unitsPerPixel({ ...view, distance }, height);
  const axes = basisOf(view);
  const shift = before - after;
  return { ...view, distance, target: add(add(view.target, axes.right, right * shift), axes.up, up * shift) };
}

/** A view of a sphere as a whole. `aspect` is the picture's width by its height. */
export function viewOf(center: Vector, radius: number, aspect: number, azimuth: number, elevation: number): View {
  const half = radians(fieldOfView / 2);
  const narrow = Math.min(half, Math.atan(Math.tan(half) * aspect));
  // Surveys are flat, so fitting their sphere would leave much of the picture empty.
  return { target: [...center], distance: (0.88 * radius) / Math.sin(narrow), azimuth, elevation };
}

/** The position of a place in a picture of that height, in pixels from the centre, to the right and up; far away if behind the viewer. */
export function placeIn(view: View, place: Vector, height: number): [number, number] {
  const { right, up, forward } = basisOf(view);
  const from = add(place, eyeOf(view), -1);
  const depth = Math.max(dot(from, forward), view.distance * 1e-3);
  const perUnit = view.distance / (depth * unitsPerPixel(view, height));
  return [dot(from, right) * perUnit, dot(from, up) * perUnit];
}

/** The margins of a picture that are covered, in pixels. */
export interface Margins {
  left: number;
  right: number;
  top: number;
  bottom: number;
}

/** A view in which a box around the origin of the scene fills the picture inside the margins. */
export function viewOfBox(extent: Vector, width: number, height: number, margins: Margins, azimuth: number, elevation: number): View {
  const corners: Vector[] = [];
  for (const x of [-0.5, 0.5]) for (const y of [-0.5, 0.5]) for (const z of [-0.5, 0.5]) corners.push([x * extent[0], y * extent[1], z * extent[2]]);
  const room = [Math.max(40, width - margins.left - margins.right), Math.max(40, height - margins.top - margins.bottom)];
  let view = viewOf([0, 0, 0], Math.hypot(...extent) / 2 || 1, width / height, azimuth, elevation);
  // Iterates, since the projected size depends on the distance and vice versa.
  for (let round = 0; round < 60; ++round) {
    const places = corners.map((corner) => placeIn(view, corner, height));
    const xs = places.map(([x]) => x);
    const ys = places.map(([, y]) => y);
    const middle = [(Math.min(...xs) + Math.max(...xs)) / 2, (Math.min(...ys) + Math.max(...ys)) / 2];
    const size = Math.max((Math.max(...xs) - Math.min(...xs)) / room[0], (Math.max(...ys) - Math.min(...ys)) / room[1]);
    const scale = unitsPerPixel(view, height);
    const { right, up } = basisOf(view);
    const wanted = [(margins.left - margins.right) / 2, (margins.bottom - margins.top) / 2];
    const target = add(add(view.target, right, (middle[0] - wanted[0]) * scale), up, (middle[1] - wanted[1]) * scale);
    view = { ...view, target, distance: size > 0 ? view.distance * size : view.distance };
  }
  return view;
}

/** Interpolates between two views, with share 0 to 1. Turns in the shorter direction. */
export function between(from: View, to: View, share: number): View {
  const mix = (a: number, b: number): number => a + (b - a) * share;
  const turn = ((((to.azimuth - from.azimuth) % 360) + 540) % 360) - 180;
  return {
    target: [mix(from.target[0], to.target[0]), mix(from.target[1], to.target[1]), mix(from.target[2], to.target[2])],
    distance: from.distance * (to.distance / from.distance) ** share,
    azimuth: (from.azimuth + turn * share + 360) % 360,
    elevation: mix(from.elevation, to.elevation),
  };
}
