// SPDX-License-Identifier: Apache-2.0
import { plain, ticks } from '../tools/niceNumber.ts';
import type { Section } from '../tools/section.ts';
import { byId, context2d, themeColor } from './dom.ts';

/** A cross-section and the colours of its points from paintPiece(). */
export interface ColoredSection extends Section {
  colors: Uint8Array;
}

/** Shows a cross-section: heights over the distance along it. */
export class ProfilePanel {
  /** Called when half the width of the strip changes. */
  onWidth: (half: number) => void = () => undefined;
  onClose: () => void = () => undefined;
  half = 1;

  private readonly host = byId('profile', HTMLDivElement);
  private readonly canvas = byId('profile-canvas', HTMLCanvasElement);
  private readonly slider = byId('profile-width', HTMLInputElement);
  private readonly text = byId('profile-width-text', HTMLOutputElement);
  private sections: ColoredSection[] = [];
  private length = 1;
  private usualHalf = 1;
  private unit = '';

  constructor() {
    this.slider.addEventListener('input', () => {
      this.half = this.usualHalf * 10 ** (Number(this.slider.value) / 10);
      this.onWidth(this.half);
    });
    this.host.querySelector('.close')?.addEventListener('click', () => this.onClose());
    new ResizeObserver(() => this.draw()).observe(this.canvas);
  }

  /** Starts a section of a length, with a suitable width of the strip. */
  open(length: number, unit: string): void {
    this.length = length;
    this.unit = unit;
    this.usualHalf = this.half = length / 200;
    this.slider.value = '0';
    this.host.hidden = false;
  }

  close(): void {
    this.host.hidden = true;
  }

  show(sections: ColoredSection[]): void {
    this.sections = sections;
    this.text.value = `${plain(2 * this.half, this.half / 5)}${this.unit && ` ${this.unit}`}`;
    this.draw();
  }

  private draw(): void {
    if (this.host.hidden) return;
    const width = this.canvas.clientWidth;
    const height = this.canvas.clientHeight;
    if (width === 0 || height === 0) return;
    const context = context2d(this.canvas, width, height);
    const ink = themeColor('--ink');
    let low = Infinity;
    let high = -Infinity;
    for (const section of this.sections) {
      for (const value of section.height) {
        if (value < low) low = value;
        if (value > high) high = value;
      }
    }
    context.font = '11px system-ui, sans-serif';
    context.fillStyle = ink;
    if (!(low <= high)) {
      context.fillText('No points lie in this strip.', 8, height / 2);
      return;
    }
    const margin = (high - low) * 0.06 || 1;
    low -= margin;
    high += margin;
    const marks = ticks(low, high, height / 34);
    const step = marks.length > 1 ? marks[1] - marks[0] : 1;
    const left = 10 + Math.max(...marks.map((mark) => context.measureText(plain(mark, step)).width));
    const bottom = height - 18;
    const xOf = (along: number): number => left + (along / this.length) * (width - left - 12);
    const yOf = (value: number): number => 6 + ((high - value) / (high - low)) * (bottom - 6);
    context.strokeStyle = themeColor('--line');
    context.textBaseline = 'middle';
    context.textAlign = 'right';
    for (const mark of marks) {
      context.beginPath();
      context.moveTo(left, yOf(mark));
      context.lineTo(width - 12, yOf(mark));
      context.stroke();
      context.fillText(plain(mark, step), left - 5, yOf(mark));
    }
    const distances = ticks(0, this.length, width / 110);
    const stride = distances.length > 1 ? distances[1] - distances[0] : 1;
    context.textBaseline = 'alphabetic';
    context.textAlign = 'center';
    for (const mark of distances) context.fillText(plain(mark, stride), Math.min(xOf(mark), width - 16), height - 4);
    for (const section of this.sections) {
      const words = section.colors;
      for (let k = 0; k < section.index.length; ++k) {
        const at = 4 * section.index[k];
        context.fillStyle = `rgb(${words[at]} ${words[at + 1]} ${words[at + 2]})`;
        context.fillRect(xOf(section.along[k]) - 1, yOf(section.height[k]) - 1, 2, 2);
      }
    }
  }
}
