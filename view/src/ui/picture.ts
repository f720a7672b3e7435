// SPDX-License-Identifier: Apache-2.0
import { themeColor } from './dom.ts';

/** The annotations of a saved picture. */
export interface PictureTexts {
  title: string;
  subtitle: string;
  footer: string;
  /** The legend: a scale, or colours with names. */
  legend:
    | { kind: 'scale'; title: string; ramp: Uint8Array; low: string; high: string }
    | { kind: 'colors'; title: string; entries: { color: string; name: string }[] }
    | null;
  bar: { pixels: number; text: string };
  /** The compass direction of the view, in degrees. */
  azimuth: number;
}

/** Writes title, legend, scale bar and north arrow onto a picture, in CSS pixels. */
export function drawTexts(context: CanvasRenderingContext2D, width: number, height: number, texts: PictureTexts): void {
  const ink = themeColor('--ink');
  const ground = themeColor('--ground');
  context.textBaseline = 'alphabetic';
  const write = (text: string, x: number, y: number, font: string, align: CanvasTextAlign = 'left'): void => {
    context.font = `${font} system-ui, 'DejaVu Sans', sans-serif`;
    context.textAlign = align;
    context.lineJoin = 'round';
    context.strokeStyle = ground;
    context.lineWidth = 4;
    context.strokeText(text, x, y);
    context.fillStyle = ink;
    context.fillText(text, x, y);
  };
  write(texts.title, 16, 30, '650 18px');
  write(texts.subtitle, 16, 49, '13px');
  write(texts.footer, width - 16, height - 14, '11px', 'right');

  const { legend } = texts;
  if (legend?.kind === 'scale') {
    const left = width - 216;
    write(legend.title, left, 30, '650 13px');
    for (let i = 0; i < 200; ++i) {
      const at = 3 * Math.round((i / 199) * 255);
      context.fillStyle = `rgb(${legend.ramp[at]} ${legend.ramp[at + 1]} ${legend.ramp[at + 2]})`;
      context.fillRect(left + i, 38, 1.5, 12);
    }
    write(legend.low, left, 66, '12px');
    write(legend.high, left + 200, 66, '12px', 'right');
  } else if (legend?.kind === 'colors') {
    context.font = '12px system-ui, sans-serif';
    const widest = Math.max(100, ...legend.entries.map((entry) => context.measureText(entry.name).width));
    const left = width - 16 - widest - 20;
    write(legend.title, left, 30, '650 13px');
    legend.entries.forEach((entry, k) => {
      context.fillStyle = entry.color;
      context.fillRect(left, 40 + 19 * k, 12, 12);
      write(entry.name, left + 19, 50.5 + 19 * k, '12px');
    });
  }

  const bottom = height - 18;
  write(texts.bar.text, 20, bottom - 12, '600 12px');
  context.beginPath();
  context.moveTo(20, bottom - 6);
  context.lineTo(20, bottom);
  context.lineTo(20 + texts.bar.pixels, bottom);
  context.lineTo(20 + texts.bar.pixels, bottom - 6);
  context.strokeStyle = ground;
  context.lineWidth = 5;
  context.stroke();
  context.strokeStyle = ink;
  context.lineWidth = 2;
  context.stroke();

  context.save();
  context.translate(40, bottom - 66);
  context.rotate((-texts.azimuth * Math.PI) / 180);
  const arrow = (points: [number, number][], fill: string): void => {
    context.beginPath();
    points.forEach(([x, y], k) => (k === 0 ? context.moveTo(x, y) : context.lineTo(x, y)));
    context.closePath();
    context.fillStyle = fill;
    context.fill();
  };
  arrow([[0, -20], [7, 4], [0, 0], [-7, 4]], '#d3423a');
  arrow([[0, 16], [5, 4], [0, 0], [-5, 4]], ink);
  write('N', 0, -24, '700 12px', 'center');
  context.restore();
}
