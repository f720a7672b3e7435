// SPDX-License-Identifier: Apache-2.0

/** The element with that id. Throws an Error if there is none of that type. */
export function byId<T extends Element>(id: string, kind: new () => T): T {
  const element = document.getElementById(id);
  if (!(element instanceof kind)) throw new Error(`the page has no ${id}`);
  return element;
}

/** A new element with a class and a text. */
export function make<K extends keyof HTMLElementTagNameMap>(tag: K, className = '', text = ''): HTMLElementTagNameMap[K] {
  const element = document.createElement(tag);
  if (className !== '') element.className = className;
  if (text !== '') element.textContent = text;
  return element;
}

/** Resizes a canvas to its displayed size, and returns its context in CSS pixels. */
export function context2d(canvas: HTMLCanvasElement, width = canvas.clientWidth, height = canvas.clientHeight): CanvasRenderingContext2D {
  const ratio = window.devicePixelRatio || 1;
  canvas.width = Math.max(1, Math.round(width * ratio));
  canvas.height = Math.max(1, Math.round(height * ratio));
  const context = canvas.getContext('2d');
  if (!context) throw new Error('the browser cannot draw');
  context.setTransform(ratio, 0, 0, ratio, 0, 0);
  return context;
}

/** A colour of the theme, by the name of its variable in page.css. */
export function themeColor(name: string): string {
  return getComputedStyle(document.documentElement).getPropertyValue(name).trim();
}
