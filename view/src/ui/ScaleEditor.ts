// SPDX-License-Identifier: Apache-2.0
import type { Distribution } from '../scene/attributes.ts';
import { context2d, make, themeColor } from './dom.ts';

/** The legend of a scale: a histogram of the values, the ramp, and its two ends, which can be dragged or typed. */
export class ScaleEditor {
  private readonly histogram = make('canvas', 'histogram');
  private readonly bar = make('canvas', 'ramp');
  private readonly grips = make('div', 'grips');
  private readonly handles = [make('button'), make('button')] as const;
  private readonly fields = [make('input'), make('input')] as const;
  private distribution: Distribution | null = null;
  private range: [number, number] = [0, 1];
  private ramp = new Uint8Array(768);

  constructor(
    private readonly host: HTMLElement,
    private readonly changed: (range: [number, number]) => void,
  ) {
    this.grips.append(...this.handles);
    const ends = make('div', 'ends');
    ends.append(...this.fields);
    host.append(this.histogram, this.bar, this.grips, ends);
    this.handles.forEach((handle, which) => {
      const name = which === 0 ? 'Lower end of the colours' : 'Upper end of the colours';
      handle.type = 'button';
      handle.setAttribute('role', 'slider');
      handle.setAttribute('aria-label', name);
      handle.addEventListener('pointerdown', (event) => {
        handle.setPointerCapture(event.pointerId);
        event.preventDefault();
        handle.focus();
      });
      handle.addEventListener('pointermove', (event) => {
        if (handle.hasPointerCapture(event.pointerId)) this.set(which, this.valueAt(event.clientX));
      });
      handle.addEventListener('keydown', (event) => {
        const step = event.key === 'ArrowLeft' ? -0.01 : event.key === 'ArrowRight' ? 0.01 : 0;
        if (step === 0 || !this.distribution) return;
        event.preventDefault();
        event.stopPropagation();
        this.set(which, this.range[which] + step * (this.distribution.max - this.distribution.min));
      });
      const field = this.fields[which];
      field.setAttribute('inputmode', 'decimal');
      field.setAttribute('aria-label', name);
      field.addEventListener('change', () => {
        const value = Number(field.value.replace(',', '.'));
        if (field.value.trim() !== '' && Number.isFinite(value)) this.set(which, value);
        else this.draw();
      });
    });
    this.grips.addEventListener('dblclick', () => {
      if (this.distribution) this.change([this.distribution.min, this.distribution.max]);
    });
  }

  show(distribution: Distribution | null, range: [number, number], ramp: Uint8Array): void {
    this.distribution = distribution;
    this.range = range;
    this.ramp = ramp.slice();
    this.host.hidden = distribution === null;
    this.draw();
  }

  private set(which: number, value: number): void {
    const range: [number, number] = [...this.range];
    range[which] = value;
    const least = ((this.distribution?.max ?? 1) - (this.distribution?.min ?? 0)) / 1000;
    if (range[1] - range[0] < least) range[which] = which === 0 ? range[1] - least : range[0] + least;
    this.change(range);
  }

  private change(range: [number, number]): void {
    this.range = range;
    this.draw();
    this.changed(range);
  }

  private valueAt(clientX: number): number {
    const box = this.grips.getBoundingClientRect();
    const { min, max } = this.distribution ?? { min: 0, max: 1 };
    return min + Math.min(1, Math.max(0, (clientX - box.left) / box.width)) * (max - min);
  }

  draw(): void {
    if (!this.distribution || this.host.clientWidth === 0) return;
    const { min, max, bins } = this.distribution;
    const span = max - min || 1;
    const [low, high] = this.range;
    const width = this.host.clientWidth;
    const tall = context2d(this.histogram, width, 42);
    let most = 1;
    for (const count of bins) most = Math.max(most, count);
    for (let bin = 0; bin < bins.length; ++bin) {
      const place = ((min + ((bin + 0.5) / bins.length) * span - low) / (high - low || 1)) * 255;
      const at = 3 * Math.round(Math.min(255, Math.max(0, place)));
      tall.fillStyle = `rgb(${this.ramp[at]} ${this.ramp[at + 1]} ${this.ramp[at + 2]})`;
      tall.globalAlpha = place < 0 || place > 255 ? 0.35 : 1;
      const height = bins[bin] === 0 ? 0 : 1 + 39 * Math.sqrt(bins[bin] / most);
      tall.fillRect((bin / bins.length) * width, 42 - height, width / bins.length + 0.5, height);
    }
    const flat = context2d(this.bar, width, 12);
    for (let x = 0; x < width; ++x) {
      const place = ((min + (x / width) * span - low) / (high - low || 1)) * 255;
      const at = 3 * Math.round(Math.min(255, Math.max(0, place)));
      flat.fillStyle = `rgb(${this.ramp[at]} ${this.ramp[at + 1]} ${this.ramp[at + 2]})`;
      flat.fillRect(x, 0, 1.5, 12);
    }
    flat.strokeStyle = themeColor('--line');
    this.handles.forEach((handle, which) => {
      const share = Math.min(1, Math.max(0, (this.range[which] - min) / span));
      handle.style.left = `${100 * share}%`;
      handle.setAttribute('aria-valuemin', String(min));
      handle.setAttribute('aria-valuemax', String(max));
      handle.setAttribute('aria-valuenow', String(this.range[which]));
      const digits = Math.min(9, Math.max(0, Math.ceil(2.5 - Math.log10(span))));
      const field = this.fields[which];
      field.value = String(Number(this.range[which].toFixed(digits)));
    });
  }
}
