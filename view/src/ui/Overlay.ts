// SPDX-License-Identifier: Apache-2.0
import type { Vector } from '../scene/View.ts';
import { context2d, themeColor } from './dom.ts';

/** What is drawn over the picture, in coordinates of the scene. */
export interface Marks {
  picked: Vector | null;
  /** One or two ends of the measurement or cross-section. */
  line: Vector[];
  label: string;
}

/** Draws marks over a picture. `project` maps places to pixels. */
export function drawMarks(context: CanvasRenderingContext2D, marks: Marks, project: (place: Vector) => [number, number] | null): void {
  const accent = themeColor('--accent');
  const ground = themeColor('--ground');
  const ring = (place: Vector, radius: number): void => {
    const at = project(place);
    if (!at) return;
    context.beginPath();
    context.arc(at[0], at[1], radius, 0, 2 * Math.PI);
    context.strokeStyle = ground;
    context.lineWidth = 5;
    context.stroke();
    context.strokeStyle = accent;
    context.lineWidth = 2.5;
    context.stroke();
  };
  if (marks.picked) ring(marks.picked, 8);
  const ends = marks.line.map(project);
  const [a, b] = ends;
  if (a && b) {
    context.beginPath();
    context.moveTo(...a);
    context.lineTo(...b);
    context.strokeStyle = ground;
    context.lineWidth = 5;
    context.stroke();
    context.strokeStyle = accent;
    context.lineWidth = 2.5;
    context.stroke();
  }
  for (const end of marks.line) ring(end, 5);
  if (a && b && marks.label !== '') {
    context.font = '600 13px system-ui, sans-serif';
    context.textAlign = 'center';
    context.textBaseline = 'middle';
    const width = context.measureText(marks.label).width + 16;
    const [x, y] = [(a[0] + b[0]) / 2, (a[1] + b[1]) / 2 - 18];
    context.fillStyle = accent;
    context.beginPath();
    context.roundRect(x - width / 2, y - 12, width, 24, 6);
    context.fill();
    context.fillStyle = themeColor('--on-accent');
    context.fillText(marks.label, x, y + 0.5);
  }
}

/** Clears the canvas over the picture, and returns its context. */
export function freshOverlay(canvas: HTMLCanvasElement, width: number, height: number): CanvasRenderingContext2D {
  const context = context2d(canvas, width, height);
  context.clearRect(0, 0, width, height);
  return context;
}
