// SPDX-License-Identifier: Apache-2.0
import type { Stage } from '../scene/Stage.ts';
import { between, orbit, pan, type View, zoom } from '../scene/View.ts';

const clickSlack = 5; // pixels that a click may move
const doubleClick = 320; // milliseconds

/** Mouse, pen and touch input: turning, moving, zooming, and clicks for listeners. */
export class Controls {
  /** The min and max distance for zooming. */
  limits: [number, number] = [1e-6, 1e12];
  onClick: (x: number, y: number) => void = () => undefined;
  onDoubleClick: (x: number, y: number) => void = () => undefined;
  onHover: (x: number, y: number) => void = () => undefined;

  private readonly pointers = new Map<number, { x: number; y: number; button: number }>();
  private travelled = 0;
  private most = 0;
  private lastClick = { at: -Infinity, x: 0, y: 0 };
  private passage = 0;

  constructor(private readonly stage: Stage) {
    const { canvas } = stage;
    canvas.addEventListener('pointerdown', (event) => {
      canvas.setPointerCapture(event.pointerId);
      canvas.focus({ preventScroll: true });
      this.stopPassage();
      this.pointers.set(event.pointerId, { x: event.clientX, y: event.clientY, button: event.button });
      if (this.pointers.size === 1) this.travelled = this.most = 0;
      this.most = Math.max(this.most, this.pointers.size);
      canvas.classList.add('turning');
    });
    canvas.addEventListener('pointermove', (event) => this.move(event));
    const end = (event: PointerEvent): void => {
      const pointer = this.pointers.get(event.pointerId);
      this.pointers.delete(event.pointerId);
      if (this.pointers.size > 0) return;
      canvas.classList.remove('turning');
      if (pointer && event.type === 'pointerup' && this.travelled <= clickSlack && this.most === 1 && pointer.button === 0)
        this.click(event.clientX, event.clientY);
    };
    canvas.addEventListener('pointerup', end);
    canvas.addEventListener('pointercancel', end);
    canvas.addEventListener('contextmenu', (event) => event.preventDefault());
    canvas.addEventListener(
      'wheel',
      (event) => {
        event.preventDefault();
        // Converts lines and pages to pixels; a notch of a wheel has about 100.
        const pixels = event.deltaY * (event.deltaMode === 1 ? 33 : event.deltaMode === 2 ? 400 : 1) * (event.ctrlKey ? 4 : 1);
        this.zoomAt(Math.exp(Math.min(400, Math.max(-400, pixels)) * 0.0016), event.clientX, event.clientY);
      },
      { passive: false },
    );
  }

  private click(x: number, y: number): void {
    const now = performance.now();
    const again = now - this.lastClick.at < doubleClick && Math.hypot(x - this.lastClick.x, y - this.lastClick.y) < 3 * clickSlack;
    this.lastClick = { at: again ? -Infinity : now, x, y };
    if (again) this.onDoubleClick(x, y);
    else this.onClick(x, y);
  }

  private move(event: PointerEvent): void {
    const pointer = this.pointers.get(event.pointerId);
    if (!pointer) {
      this.onHover(event.clientX, event.clientY);
      return;
    }
    const right = event.clientX - pointer.x;
    const down = event.clientY - pointer.y;
    const { view, height } = this.stage;
    this.travelled += Math.hypot(right, down);
    if (this.pointers.size === 1) {
      pointer.x = event.clientX;
      pointer.y = event.clientY;
      if (this.travelled <= clickSlack) return;
      const isPan = pointer.button !== 0 || event.shiftKey || event.ctrlKey || event.metaKey;
      this.stage.setView(isPan ? pan(view, right, down, height) : orbit(view, right * 0.3, down * 0.3));
      return;
    }
    const other = [...this.pointers].find(([id]) => id !== event.pointerId)?.[1];
    if (!other) return;
    const before = Math.hypot(pointer.x - other.x, pointer.y - other.y);
    const turnBefore = Math.atan2(pointer.y - other.y, pointer.x - other.x);
    pointer.x = event.clientX;
    pointer.y = event.clientY;
    const after = Math.hypot(pointer.x - other.x, pointer.y - other.y);
    const turned = ((Math.atan2(pointer.y - other.y, pointer.x - other.x) - turnBefore) * 180) / Math.PI;
    // Each finger moves the midpoint by half its distance.
    this.stage.setView(orbit(pan(view, right / 2, down / 2, height), -(((turned + 540) % 360) - 180), 0));
    if (before > 0 && after > 0) this.zoomAt(before / after, (pointer.x + other.x) / 2, (pointer.y + other.y) / 2);
  }

  /** Zooms towards a place of the canvas, by default its centre. */
  zoomAt(factor: number, x = this.stage.width / 2, y = this.stage.height / 2): void {
    this.stopPassage();
    const { view, width, height } = this.stage;
    this.stage.setView(zoom(view, factor, x - width / 2, height / 2 - y, height, this.limits));
  }

  orbitBy(right: number, down: number): void {
    this.stopPassage();
    this.stage.setView(orbit(this.stage.view, right, down));
  }

  panBy(right: number, down: number): void {
    this.stopPassage();
    this.stage.setView(pan(this.stage.view, right, down, this.stage.height));
  }

  /** Goes to a view, smoothly unless the system is set to reduced motion. */
  goTo(view: View): void {
    this.stopPassage();
    if (window.matchMedia('(prefers-reduced-motion: reduce)').matches) {
      this.stage.setView(view, false);
      return;
    }
    const from = this.stage.view;
    const start = performance.now();
    const step = (): void => {
      const share = Math.min(1, (performance.now() - start) / 350);
      this.stage.setView(between(from, view, share * share * (3 - 2 * share)));
      this.passage = share < 1 ? requestAnimationFrame(step) : 0;
    };
    step();
  }

  private stopPassage(): void {
    if (this.passage !== 0) cancelAnimationFrame(this.passage);
    this.passage = 0;
  }
}
