// SPDX-License-Identifier: Apache-2.0
import type { Page } from '../data/loadPage.ts';
import { type Attribute, attributesOf, type Distribution, distributionOf } from '../scene/attributes.ts';
import type { Paint } from '../scene/paint.ts';
import { type Color, makeRamp, parseColor } from '../scene/ramp.ts';
import type { Stage } from '../scene/Stage.ts';
import { unitsPerPixel, type Vector, type View, viewOfBox } from '../scene/View.ts';
import { grouped, niceBelow, plain } from '../tools/niceNumber.ts';
import type { Picked } from '../tools/pick.ts';
import { Controls } from './Controls.ts';
import { byId, context2d, make, themeColor } from './dom.ts';
import { linkOf, parseLink } from './link.ts';
import { drawMarks, freshOverlay, type Marks } from './Overlay.ts';
import { drawTexts, type PictureTexts } from './picture.ts';
import { ProfilePanel } from './ProfilePanel.ts';
import { ScaleEditor } from './ScaleEditor.ts';
import { Survey } from './Survey.ts';

const playPace = 1100; // milliseconds a slice
const noAttributeColor: Record<string, Color> = { light: [150, 156, 162], dark: [168, 174, 180] };

type Tool = 'measure' | 'cut' | null;

/** Connects the controls of the page with the survey and the stage. */
export class App {
  readonly survey: Survey;
  private readonly attributes: Attribute[];
  private attribute: Attribute;
  private readonly distributions = new Map<string, Distribution | null>();
  private readonly ranges = new Map<string, [number, number]>();
  private readonly hiddenClasses = new Set<number>();
  private readonly controls: Controls;
  private readonly scaleEditor: ScaleEditor;
  private readonly profile = new ProfilePanel();
  private tool: Tool = null;
  private ends: Vector[] = []; // in coordinates of the survey
  private cutEnds: [Vector, Vector] | null = null;
  private picked: Picked | null = null;
  private player = 0;
  private linkTimer = 0;
  private stretch = 0;
  private readonly usualView: View;

  private readonly color = byId('color', HTMLSelectElement);
  private readonly time = byId('time', HTMLInputElement);
  private readonly size = byId('size', HTMLInputElement);
  private readonly stretchSlider = byId('stretch', HTMLInputElement);
  private readonly edl = byId('edl', HTMLInputElement);
  private readonly overlay = byId('overlay', HTMLCanvasElement);
  private readonly panel = byId('panel', HTMLElement);
  private readonly hint = byId('hint', HTMLParagraphElement);
  private readonly card = byId('card', HTMLDivElement);

  constructor(
    readonly page: Page,
    readonly stage: Stage,
  ) {
    this.survey = new Survey(page, stage);
    this.attributes = attributesOf(page);
    this.attribute = this.usualAttribute();
    this.controls = new Controls(stage);
    this.controls.limits = [this.survey.radius * 1e-6, this.survey.radius * 20];
    this.scaleEditor = new ScaleEditor(byId('scale', HTMLDivElement), (range) => {
      this.ranges.set(this.attribute.key, range);
      this.repaint();
    });
    this.stretch = this.usualStretch();
    this.stretchSlider.min = String(Math.min(-10, this.stretch - 10));
    stage.setExaggeration(10 ** (this.stretch / 10));
    stage.afterFrame = () => this.afterFrame();

    this.resize();
    this.usualView = this.wholeView(20, 38);
    stage.setView(this.usualView, false);
    this.buildTexts();
    this.buildColors();
    this.buildLayers();
    this.buildTimeline();
    this.buildTools();
    this.applyTheme();
    this.restore(location.hash);
    this.repaint();
    this.refresh();
    window.addEventListener('resize', () => this.resize());
    window.addEventListener('hashchange', () => {
      if (location.hash.slice(1) !== this.link()) {
        this.restore(location.hash);
        this.repaint();
        this.refresh();
      }
    });
  }

  // ---- view

  private usualAttribute(): Attribute {
    const wanted = this.attributes.find((attribute) => attribute.key === 'class' && this.page.manifest.classes.length > 2);
    return wanted ?? this.attributes[0];
  }

  /** Heights in another unit than the coordinates (metres and degrees) would form a needle, so the slider starts at a scale that fits. */
  private usualStretch(): number {
    const [x, y, z] = this.survey.extent;
    const plainExtent = Math.max(x, y);
    if (!(plainExtent > 0) || z <= 2 * plainExtent) return 0;
    return Math.max(-60, Math.round(10 * Math.log10((0.25 * plainExtent) / z)));
  }

  private wholeView(azimuth: number, elevation: number): View {
    const { extent } = this.survey;
    const { width, height, exaggeration } = this.stage;
    const isWide = width > 820;
    const margins = isWide ? { left: 74, right: 320, top: 84, bottom: 84 } : { left: 16, right: 16, top: 90, bottom: 120 };
    return viewOfBox([extent[0], extent[1], extent[2] * exaggeration], width, height, margins, azimuth, elevation);
  }

  /** The number of points drawn. */
  shown(): number {
    return this.survey.shownCount();
  }

  /** The position of a place of the survey in the window, in pixels; null if it is behind the viewer. */
  project(x: number, y: number, z: number): [number, number] | null {
    return this.stage.project(this.survey.toScene([x, y, z]));
  }

  private distribution(): Distribution | null {
    const { key, kind } = this.attribute;
    if (kind !== 'scale') return null;
    if (!this.distributions.has(key)) this.distributions.set(key, distributionOf(this.survey.pieces(), this.attribute));
    return this.distributions.get(key) ?? null;
  }

  private range(): [number, number] {
    const distribution = this.distribution();
    if (!distribution) return [0, 1];
    const chosen = this.ranges.get(this.attribute.key);
    if (chosen) return chosen;
    const isFew = this.attribute.key === 'return' || !(distribution.high > distribution.low);
    return isFew ? [distribution.min, distribution.max] : [distribution.low, distribution.high];
  }

  private ramp(): Uint8Array {
    return makeRamp(this.page.manifest.ramps[this.attribute.ramp] ?? ['#20304a', '#f4f0c8']);
  }

  private repaint(): void {
    const paint: Paint = {
      attribute: this.attribute,
      range: this.range(),
      ramp: this.ramp(),
      classColors: new Map(this.page.manifest.classes.map(({ code, color }) => [code, parseColor(color)])),
      hiddenClasses: new Set(this.hiddenClasses),
      plain: noAttributeColor[document.documentElement.dataset.theme ?? 'light'] ?? [150, 150, 150],
    };
    this.survey.setPaint(paint);
    this.describeShown();
    this.updateProfile();
    this.noteLink();
  }

  /** Updates all controls from the state. */
  private refresh(): void {
    this.color.value = this.attribute.key;
    byId('scale', HTMLDivElement).hidden = this.attribute.kind !== 'scale';
    this.scaleEditor.show(this.distribution(), this.range(), this.ramp());
    for (const box of document.querySelectorAll<HTMLInputElement>('#classes input')) box.checked = !this.hiddenClasses.has(Number(box.value));
    const here = new Set(this.survey.currentSlice?.layers.map((layer) => layer.key));
    for (const box of document.querySelectorAll<HTMLInputElement>('#layers input')) {
      box.checked = this.survey.layersOn.has(box.value);
      box.closest('label')?.classList.toggle('slice-absent', !here.has(box.value));
    }
    this.time.value = String(this.survey.slice);
    byId('time-text', HTMLOutputElement).value = `t = ${this.survey.currentSlice?.time ?? 0}`;
    this.time.setAttribute('aria-valuetext', `time ${this.survey.currentSlice?.time ?? 0}`);
    this.size.value = String(this.stage.pointSize);
    byId('size-text', HTMLOutputElement).value = `${this.stage.pointSize} px`;
    this.stretchSlider.value = String(this.stretch);
    const factor = 10 ** (this.stretch / 10);
    byId('stretch-text', HTMLOutputElement).value = this.stretch === 0 ? '× 1' : `× ${Number(factor.toPrecision(2))}`;
    this.edl.checked = this.stage.edl;
    this.stage.requestFrame();
  }

  // ---- texts

  private buildTexts(): void {
    const { manifest } = this.page;
    document.title = manifest.title;
    byId('heading', HTMLElement).querySelector('h1')!.textContent = manifest.title;
    const about = byId('about', HTMLDListElement);
    const row = (name: string, text: string): void => about.append(make('dt', '', name), make('dd', '', text));
    row('System', manifest.system ?? 'not stated');
    row('Unit', manifest.unit === '' ? 'that of the coordinates' : manifest.unit);
    for (const file of manifest.files) row('Input', `${file.name} (${file.kind})`);
    let chosen = 0;
    let all = 0;
    for (const slice of manifest.slices) {
      for (const layer of slice.layers) {
        all += layer.of;
        for (const piece of layer.pieces) chosen += piece.count;
      }
    }
    row('In the page', chosen === all ? `all ${grouped(all)} points` : `${grouped(chosen)} of ${grouped(all)} points`);
    for (const note of manifest.notes) about.append(make('dd', 'note', `${note.charAt(0).toUpperCase()}${note.slice(1)}.`));
    row('Made by', manifest.program);
  }

  private describeShown(): void {
    const layers = this.survey.shownLayers();
    const of = layers.reduce((sum, layer) => sum + layer.entry.of, 0);
    const inPage = layers.reduce((sum, layer) => sum + layer.pieces.reduce((count, piece) => count + piece.count, 0), 0);
    const shown = this.shown();
    const parts = [`${grouped(shown)} ${shown === 1 ? 'point' : 'points'} shown`];
    if (inPage < of) parts.push(`thinned from ${grouped(of)}`);
    byId('shown', HTMLParagraphElement).textContent = parts.join(', ');
  }

  // ---- colours

  private buildColors(): void {
    for (const attribute of this.attributes) {
      const option = make('option', '', attribute.label);
      option.value = attribute.key;
      this.color.append(option);
    }
    this.color.addEventListener('change', () => this.setColor(this.color.value));
    const host = byId('classes', HTMLDivElement);
    const { classes } = this.page.manifest;
    if (classes.length === 0) return;
    const counts = this.classCounts();
    const all = make('div', 'all');
    for (const [text, on] of [['All classes', true], ['None', false]] as const) {
      const button = make('button', '', text);
      button.type = 'button';
      button.addEventListener('click', () => {
        this.hiddenClasses.clear();
        if (!on) for (const { code } of classes) this.hiddenClasses.add(code);
        this.repaint();
        this.refresh();
      });
      all.append(button);
    }
    host.append(all);
    for (const { code, name, color } of classes) {
      const label = make('label', 'check');
      const box = make('input');
      box.type = 'checkbox';
      box.value = String(code);
      box.addEventListener('change', () => {
        if (box.checked) this.hiddenClasses.delete(code);
        else this.hiddenClasses.add(code);
        this.repaint();
      });
      const swatch = make('i', 'swatch');
      swatch.style.backgroundColor = color;
      const count = make('small', 'count', grouped(counts.get(code) ?? 0));
      label.append(box, swatch, make('span', '', `${code} ${name}`), count);
      host.append(label);
    }
  }

  private classCounts(): Map<number, number> {
    const counts = new Map<number, number>();
    for (const piece of this.survey.pieces()) {
      const column = piece.columns.find((candidate) => candidate.role === 'class');
      if (column) for (let i = 0; i < piece.count; ++i) counts.set(column.value(i), (counts.get(column.value(i)) ?? 0) + 1);
    }
    return counts;
  }

  setColor(key: string): void {
    const found = this.attributes.find((attribute) => attribute.key === key);
    if (!found) return;
    this.attribute = found;
    this.repaint();
    this.refresh();
  }

  // ---- layers

  private buildLayers(): void {
    const host = byId('layers', HTMLDivElement);
    const seen = new Set<string>();
    for (const slice of this.page.slices) {
      for (const layer of slice.layers) {
        if (seen.has(layer.key)) continue;
        seen.add(layer.key);
        const label = make('label', 'check');
        const box = make('input');
        box.type = 'checkbox';
        box.value = layer.key;
        box.addEventListener('change', () => {
          if (box.checked) this.survey.layersOn.add(layer.key);
          else this.survey.layersOn.delete(layer.key);
          this.repaint();
        });
        const text = make('span', '', layer.label);
        const count = layer.pieces.reduce((sum, piece) => sum + piece.count, 0);
        const isSurface = layer.pieces.some((piece) => piece.kind === 'surface');
        const { of } = layer.entry;
        text.append(make('small', '', `${isSurface ? 'surface' : 'points'}, ${count < of ? `${grouped(count)} of ` : ''}${grouped(of)}${isSurface ? ' places' : ''}`));
        label.append(box, text);
        host.append(label);
      }
    }
  }

  // ---- time

  private buildTimeline(): void {
    const { slices } = this.page;
    byId('timeline', HTMLDivElement).hidden = slices.length < 2;
    this.time.max = String(slices.length - 1);
    this.time.addEventListener('input', () => {
      this.stop();
      this.setSlice(Number(this.time.value));
    });
    byId('play', HTMLButtonElement).addEventListener('click', () => this.togglePlay());
  }

  setSlice(number: number): void {
    const count = this.page.slices.length;
    this.survey.slice = ((number % count) + count) % count;
    this.pick(null);
    this.repaint();
    this.refresh();
  }

  private togglePlay(): void {
    if (this.player !== 0) {
      this.stop();
      return;
    }
    if (this.page.slices.length < 2) return;
    byId('play', HTMLButtonElement).setAttribute('aria-pressed', 'true');
    this.player = window.setInterval(() => this.setSlice(this.survey.slice + 1), playPace);
    this.setSlice(this.survey.slice + 1);
  }

  private stop(): void {
    window.clearInterval(this.player);
    this.player = 0;
    byId('play', HTMLButtonElement).setAttribute('aria-pressed', 'false');
  }

  // ---- tools

  private buildTools(): void {
    const press = (id: string, action: () => void): void => byId(id, HTMLButtonElement).addEventListener('click', action);
    press('home', () => this.goHome());
    press('top', () => this.lookDown());
    press('closer', () => this.controls.zoomAt(0.7));
    press('farther', () => this.controls.zoomAt(1 / 0.7));
    press('measure', () => this.setTool(this.tool === 'measure' ? null : 'measure'));
    press('cut', () => this.setTool(this.tool === 'cut' ? null : 'cut'));
    press('save', () => this.savePicture());
    press('theme', () => this.toggleTheme());
    press('help', () => byId('keys', HTMLDialogElement).showModal());
    press('more', () => this.togglePanel());
    this.card.querySelector('.close')?.addEventListener('click', () => this.pick(null));
    this.size.addEventListener('input', () => this.setPointSize(Number(this.size.value)));
    this.stretchSlider.addEventListener('input', () => this.setStretch(Number(this.stretchSlider.value)));
    this.edl.addEventListener('change', () => {
      this.stage.edl = this.edl.checked;
      this.refresh();
      this.noteLink();
    });
    this.controls.onClick = (x, y) => this.click(x, y);
    this.controls.onDoubleClick = (x, y) => {
      // When measuring, two quick clicks are not a double click.
      if (this.tool !== null) {
        this.click(x, y);
        return;
      }
      const hit = this.survey.pick(x, y);
      if (!hit) return;
      const target = this.stretched(this.survey.toScene(this.survey.positionOf(hit)));
      this.controls.goTo({ ...this.stage.view, target, distance: this.stage.view.distance * 0.5 });
    };
    this.profile.onWidth = () => this.updateProfile();
    this.profile.onClose = () => this.setTool(null);
    window.addEventListener('keydown', (event) => this.key(event));
  }

  private stretched(place: Vector): Vector {
    return [place[0], place[1], place[2] * this.stage.exaggeration];
  }

  private goHome(): void {
    this.controls.goTo(this.wholeView(this.usualView.azimuth, this.usualView.elevation));
  }

  private lookDown(): void {
    this.controls.goTo({ ...this.stage.view, azimuth: 0, elevation: 90 });
  }

  private setPointSize(size: number): void {
    this.stage.pointSize = Math.min(10, Math.max(1, size));
    this.refresh();
    this.noteLink();
  }

  private setStretch(stretch: number): void {
    this.stretch = stretch;
    this.stage.setExaggeration(10 ** (stretch / 10));
    this.refresh();
    this.noteLink();
  }

  private togglePanel(): void {
    // Initially visible in wide windows, hidden in narrow ones.
    const isNarrow = window.matchMedia('(max-width: 820px)').matches;
    const open = isNarrow ? this.panel.classList.toggle('open') : !this.panel.classList.toggle('closed');
    byId('more', HTMLButtonElement).setAttribute('aria-expanded', String(open));
    if (open) this.scaleEditor.draw();
  }

  setTool(tool: Tool): void {
    this.tool = tool;
    this.ends = [];
    this.cutEnds = null;
    this.profile.close();
    this.pick(null);
    byId('measure', HTMLButtonElement).setAttribute('aria-pressed', String(tool === 'measure'));
    byId('cut', HTMLButtonElement).setAttribute('aria-pressed', String(tool === 'cut'));
    this.stage.canvas.classList.toggle('pointing', tool !== null);
    this.say(tool === 'measure' ? 'Click the two ends of the distance.' : tool === 'cut' ? 'Click the two ends of the cross-section.' : '');
    this.stage.requestFrame();
  }

  private say(text: string): void {
    this.hint.textContent = text;
    this.hint.hidden = text === '';
  }

  private click(x: number, y: number): void {
    const hit = this.survey.pick(x, y);
    if (this.tool === null) {
      this.pick(hit);
      return;
    }
    if (!hit) return;
    if (this.ends.length >= 2) this.ends = [];
    this.ends.push(this.survey.positionOf(hit));
    if (this.ends.length === 1) {
      this.say('Click the other end.');
    } else {
      this.say('');
      const [a, b] = this.ends as [Vector, Vector];
      if (this.tool === 'cut') {
        this.cutEnds = [a, b];
        this.profile.open(Math.hypot(b[0] - a[0], b[1] - a[1]) || 1, this.page.manifest.unit);
        this.updateProfile();
      } else {
        this.showMeasure(a, b);
      }
    }
    this.stage.requestFrame();
  }

  private length(value: number): string {
    const { unit } = this.page.manifest;
    return plain(value, Math.max(Math.abs(value) * 1e-6, 1e-3)) + (unit === '' ? '' : ` ${unit}`);
  }

  private showMeasure(a: Vector, b: Vector): void {
    const flat = Math.hypot(b[0] - a[0], b[1] - a[1]);
    const rise = b[2] - a[2];
    this.showCard('Distance', [
      ['Distance', this.length(Math.hypot(flat, rise))],
      ['On the map', this.length(flat)],
      ['Height difference', (rise > 0 ? '+' : '') + this.length(rise)],
      ['Slope', flat > 0 ? `${((Math.atan2(rise, flat) * 180) / Math.PI).toFixed(1)}°` : '–'],
    ]);
  }

  private updateProfile(): void {
    if (!this.cutEnds) return;
    const [a, b] = this.cutEnds;
    this.profile.show(this.survey.sections([a[0], a[1]], [b[0], b[1]], this.profile.half));
  }

  // ---- a point

  private pick(picked: Picked | null): void {
    this.picked = picked;
    if (picked) this.describe(picked);
    else this.card.hidden = true;
    this.stage.requestFrame();
  }

  private describe(picked: Picked): void {
    const { piece, index } = picked;
    const layer = this.survey.shownLayers().find((candidate) => candidate.pieces.includes(piece));
    const rows: [string, string, (string | undefined)?][] = [];
    if (piece.kind === 'points') {
      rows.push(['x', piece.x.text(index)], ['y', piece.y.text(index)], ['z', piece.z.text(index)]);
    } else {
      const [x, y] = this.survey.positionOf(picked);
      rows.push(['x', String(x)], ['y', String(y)]);
    }
    const colors = new Map(piece.columns.map((column) => [column.role, column]));
    const [red, green, blue] = [colors.get('red'), colors.get('green'), colors.get('blue')];
    for (const column of piece.columns) {
      if (column.role === 'x' || column.role === 'y' || column.role === 'z' || column.role === 'green' || column.role === 'blue') continue;
      if (column.role === 'red' && red && green && blue) {
        const values = [red, green, blue].map((part) => part.text(index));
        rows.push(['Colour (RGB)', values.join(', '), `rgb(${values.join(' ')})`]);
      } else if (column.role === 'class') {
        const known = this.page.manifest.classes.find(({ code }) => code === column.value(index));
        rows.push([column.name, `${column.text(index)}${known ? ` (${known.name})` : ''}`, known?.color]);
      } else {
        rows.push([column.name, column.text(index)]);
      }
    }
    this.showCard(layer ? `${layer.label}, time ${this.survey.currentSlice?.time ?? 0}` : '', rows);
  }

  private showCard(title: string, rows: [string, string, (string | undefined)?][]): void {
    this.card.querySelector('h2')!.textContent = title;
    const table = this.card.querySelector('table')!;
    table.replaceChildren();
    for (const [name, text, color] of rows) {
      const line = table.insertRow();
      line.insertCell().textContent = name;
      const cell = line.insertCell();
      if (color) {
        const swatch = make('i', 'swatch');
        swatch.style.backgroundColor = color;
        cell.append(swatch);
      }
      cell.append(text);
    }
    this.card.hidden = false;
  }

  // ---- each frame

  private marks(): Marks {
    const line = this.ends.map((end) => this.survey.toScene(end));
    let label = '';
    if (this.ends.length === 2) {
      const [a, b] = this.ends as [Vector, Vector];
      label = this.length(this.tool === 'cut' ? Math.hypot(b[0] - a[0], b[1] - a[1]) : Math.hypot(b[0] - a[0], b[1] - a[1], b[2] - a[2]));
    }
    return { picked: this.picked ? this.survey.toScene(this.survey.positionOf(this.picked)) : null, line, label };
  }

  private scaleBar(): { pixels: number; text: string } {
    const perPixel = unitsPerPixel(this.stage.view, this.stage.height);
    const length = niceBelow(perPixel * Math.min(150, this.stage.width / 3));
    const { unit } = this.page.manifest;
    return { pixels: length / perPixel, text: `${plain(length, length)} ${unit === '' ? 'units' : unit}` };
  }

  private afterFrame(): void {
    const { width, height } = this.stage;
    drawMarks(freshOverlay(this.overlay, width, height), this.marks(), (place) => this.stage.project(place));
    const bar = this.scaleBar();
    byId('bar-text', HTMLSpanElement).textContent = bar.text;
    document.getElementById('bar-line')!.style.width = `${bar.pixels}px`;
    document.getElementById('needle')!.setAttribute('transform', `rotate(${-this.stage.view.azimuth})`);
    this.noteLink();
  }

  private resize(): void {
    const ratio = Math.min(2, window.devicePixelRatio || 1);
    this.stage.resize(window.innerWidth, window.innerHeight, ratio);
    this.scaleEditorSoon();
  }

  private scaleEditorSoon(): void {
    requestAnimationFrame(() => this.scaleEditor.draw());
  }

  // ---- theme

  private toggleTheme(): void {
    const root = document.documentElement;
    root.dataset.theme = root.dataset.theme === 'dark' ? 'light' : 'dark';
    this.applyTheme();
    this.repaint();
  }

  private applyTheme(): void {
    this.stage.setBackground(themeColor('--ground'));
    this.scaleEditorSoon();
  }

  // ---- picture

  /** The picture as it is saved: the survey with title, legend, scale bar and north arrow. */
  picture(): HTMLCanvasElement {
    const { width, height } = this.stage;
    const canvas = make('canvas');
    const context = context2d(canvas, width, height);
    this.stage.drawNow();
    context.drawImage(this.stage.canvas, 0, 0, width, height);
    drawMarks(context, this.marks(), (place) => this.stage.project(place));
    drawTexts(context, width, height, this.pictureTexts());
    return canvas;
  }

  private pictureTexts(): PictureTexts {
    const { manifest } = this.page;
    let legend: PictureTexts['legend'] = null;
    if (this.attribute.kind === 'scale') {
      const [low, high] = this.range();
      const step = (high - low) / 1000 || 1;
      legend = { kind: 'scale', title: this.attribute.label, ramp: this.ramp(), low: plain(low, step), high: plain(high, step) };
    } else if (this.attribute.kind === 'class') {
      legend = {
        kind: 'colors',
        title: this.attribute.label,
        entries: manifest.classes.filter(({ code }) => !this.hiddenClasses.has(code)).map(({ code, name, color }) => ({ color, name: `${code} ${name}` })),
      };
    }
    const time = this.page.slices.length > 1 ? `time ${this.survey.currentSlice?.time ?? 0} · ` : '';
    return {
      title: manifest.title,
      subtitle: time + (byId('shown', HTMLParagraphElement).textContent),
      footer: `System: ${manifest.system ?? 'not stated'} · ${manifest.program}`,
      legend,
      bar: this.scaleBar(),
      azimuth: this.stage.view.azimuth,
    };
  }

  savePicture(): void {
    this.picture().toBlob((blob) => {
      if (!blob) return;
      const anchor = make('a');
      anchor.href = URL.createObjectURL(blob);
      anchor.download = `${this.page.manifest.title.replace(/[^\p{L}\p{N}._ -]+/gu, '_').slice(0, 80) || 'survey'}.png`;
      anchor.click();
      window.setTimeout(() => URL.revokeObjectURL(anchor.href), 10_000);
    }, 'image/png');
  }

  // ---- links

  /** The URL fragment that restores what is shown. */
  link(): string {
    const { view } = this.stage;
    const z = this.stage.exaggeration;
    const { origin } = this.survey;
    return linkOf({
      view: { ...view, target: [view.target[0] + origin[0], view.target[1] + origin[1], view.target[2] / z + origin[2]] },
      ...(this.page.slices.length > 1 && this.survey.currentSlice ? { time: this.survey.currentSlice.time } : {}),
      color: this.attribute.key,
      ...(this.ranges.has(this.attribute.key) ? { range: this.range() } : {}),
      hiddenClasses: [...this.hiddenClasses].sort((a, b) => a - b),
      layers: [...this.survey.layersOn],
      size: this.stage.pointSize,
      stretch: this.stretch,
      edl: this.stage.edl,
    });
  }

  /** Updates the address after a delay, since browsers limit the rate. */
  private noteLink(): void {
    window.clearTimeout(this.linkTimer);
    this.linkTimer = window.setTimeout(() => {
      const link = `#${this.link()}`;
      if (location.hash !== link) history.replaceState(null, '', link);
    }, 400);
  }

  private restore(fragment: string): void {
    const state = parseLink(fragment);
    if (state.stretch !== undefined) {
      this.stretch = state.stretch;
      this.stage.setExaggeration(10 ** (state.stretch / 10));
    }
    if (state.view) this.stage.setView({ ...state.view, target: this.stretched(this.survey.toScene(state.view.target)) }, false);
    const slice = this.page.slices.findIndex(({ time }) => time === state.time);
    if (slice >= 0) this.survey.slice = slice;
    this.attribute = this.attributes.find(({ key }) => key === state.color) ?? this.attribute;
    if (state.range) this.ranges.set(this.attribute.key, state.range);
    if (state.hiddenClasses) {
      this.hiddenClasses.clear();
      for (const code of state.hiddenClasses) this.hiddenClasses.add(code);
    }
    if (state.layers) {
      this.survey.layersOn.clear();
      for (const key of state.layers) this.survey.layersOn.add(key);
    }
    if (state.size !== undefined) this.stage.pointSize = state.size;
    if (state.edl !== undefined) this.stage.edl = state.edl;
  }

  // ---- keys

  private key(event: KeyboardEvent): void {
    if (event.ctrlKey || event.metaKey || event.altKey || byId('keys', HTMLDialogElement).open) return;
    const { target } = event;
    const isTyping = target instanceof HTMLSelectElement || (target instanceof HTMLInputElement && target.type !== 'checkbox');
    if (isTyping && event.key !== 'Escape') return;
    if (event.key === ' ' && (target instanceof HTMLButtonElement || target instanceof HTMLInputElement)) return;
    const turn = 5;
    const move = 40;
    const arrows: Partial<Record<string, [number, number]>> = { ArrowLeft: [-1, 0], ArrowRight: [1, 0], ArrowUp: [0, -1], ArrowDown: [0, 1] };
    const arrow = arrows[event.key];
    if (arrow) {
      event.preventDefault();
      if (event.shiftKey) this.controls.panBy(-arrow[0] * move, -arrow[1] * move);
      else this.controls.orbitBy(arrow[0] * turn, -arrow[1] * turn);
      return;
    }
    const actions: Partial<Record<string, () => void>> = {
      '+': () => this.controls.zoomAt(0.8),
      '=': () => this.controls.zoomAt(0.8),
      '-': () => this.controls.zoomAt(1.25),
      '0': () => this.goHome(),
      h: () => this.goHome(),
      t: () => this.lookDown(),
      n: () => this.controls.goTo({ ...this.stage.view, azimuth: 0 }),
      ' ': () => this.togglePlay(),
      ',': () => this.setSlice(this.survey.slice - 1),
      '.': () => this.setSlice(this.survey.slice + 1),
      c: () => this.setColor(this.attributes[(this.attributes.indexOf(this.attribute) + 1) % this.attributes.length].key),
      m: () => this.setTool(this.tool === 'measure' ? null : 'measure'),
      x: () => this.setTool(this.tool === 'cut' ? null : 'cut'),
      p: () => this.savePicture(),
      s: () => this.togglePanel(),
      d: () => this.toggleTheme(),
      e: () => this.edl.click(),
      '[': () => this.setPointSize(this.stage.pointSize - 0.5),
      ']': () => this.setPointSize(this.stage.pointSize + 0.5),
      '?': () => byId('keys', HTMLDialogElement).showModal(),
      Escape: () => this.setTool(null),
    };
    const action = actions[event.key.length === 1 ? event.key.toLowerCase() : event.key];
    if (!action) return;
    event.preventDefault();
    action();
  }
}
