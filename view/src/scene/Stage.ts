// SPDX-License-Identifier: Apache-2.0
import * as THREE from 'three';
import { edlFragment, edlVertex, pointFragment, pointVertex, surfaceFragment, surfaceVertex } from './shaders.ts';
import { basisOf, eyeOf, fieldOfView, type Vector, type View } from './View.ts';

/** An object that is drawn. */
export interface Drawn {
  object: THREE.Object3D;
  /** Sets the share (0 to 1) to draw, if the object supports it. */
  setShare?(share: number): void;
}

const slowFrame = 85; // milliseconds
const fastFrame = 30;
const restAfter = 180;
const leastShare = 0.02;

/** The share of the points to draw in the next frame of a movement, after a frame with `share` took `took` milliseconds. */
export function nextShare(share: number, took: number): number {
  if (took > slowFrame) return Math.max(leastShare, share * Math.max(0.2, (0.75 * slowFrame) / took));
  return took < fastFrame ? Math.min(1, share * 1.15) : share;
}

/**
 * Draws the scene into a canvas when something has changed. While the view moves and frames are slow, it
 * draws fewer points; once the view rests, all of them.
 */
export class Stage {
  readonly camera = new THREE.PerspectiveCamera(fieldOfView, 1, 1, 1000);
  /** Called after each frame. */
  afterFrame: () => void = () => undefined;

  readonly pointMaterial: THREE.RawShaderMaterial;
  readonly surfaceMaterial: THREE.RawShaderMaterial;

  private readonly renderer: THREE.WebGLRenderer;
  private readonly scene = new THREE.Scene();
  private readonly root = new THREE.Group();
  private readonly target: THREE.WebGLRenderTarget;
  private readonly edlScene = new THREE.Scene();
  private readonly edlMaterial: THREE.RawShaderMaterial;
  private readonly edlCamera = new THREE.OrthographicCamera(-1, 1, 1, -1, 0, 1);

  private drawn: Drawn[] = [];
  private view_: View = { target: [0, 0, 0], distance: 1, azimuth: 0, elevation: 45 };
  private sphere: { center: Vector; radius: number } = { center: [0, 0, 0], radius: 1 };
  private exaggeration_ = 1;
  private requested = false;
  private lastFrame = 0;
  private movedAt = -Infinity;
  private share = 1;
  private shareOfFrame = 1;
  private wasMoving = false;
  private moved = false;

  pointSize = 2;
  /** The distance between neighbouring points, in units of the scene: near points are drawn that large. */
  spacing = 0;
  edl = true;
  width = 1;
  height = 1;
  private ratio = 1;

  /** Throws an Error if the browser has no WebGL 2. */
  constructor(readonly canvas: HTMLCanvasElement) {
    THREE.ColorManagement.enabled = false;
    this.renderer = new THREE.WebGLRenderer({ canvas, antialias: false, alpha: false, powerPreference: 'high-performance' });
    this.renderer.outputColorSpace = THREE.LinearSRGBColorSpace; // no conversion of colours
    this.renderer.autoClear = true;
    this.scene.add(this.root);
    const uniforms = { size: { value: 2 }, perDistance: { value: 0 } };
    this.pointMaterial = new THREE.RawShaderMaterial({
      glslVersion: THREE.GLSL3,
      vertexShader: pointVertex,
      fragmentShader: pointFragment,
      uniforms,
    });
    this.surfaceMaterial = new THREE.RawShaderMaterial({
      glslVersion: THREE.GLSL3,
      vertexShader: surfaceVertex,
      fragmentShader: surfaceFragment,
      side: THREE.DoubleSide,
    });
    this.target = new THREE.WebGLRenderTarget(1, 1, { minFilter: THREE.NearestFilter, magFilter: THREE.NearestFilter });
    this.target.depthTexture = new THREE.DepthTexture(1, 1, THREE.UnsignedIntType);
    this.edlMaterial = new THREE.RawShaderMaterial({
      glslVersion: THREE.GLSL3,
      vertexShader: edlVertex,
      fragmentShader: edlFragment,
      uniforms: {
        colors: { value: this.target.texture },
        depths: { value: this.target.depthTexture },
        near: { value: 1 },
        far: { value: 2 },
        reach: { value: 1 },
      },
      depthTest: false,
      depthWrite: false,
    });
    const triangle = new THREE.BufferGeometry();
    triangle.setAttribute('position', new THREE.BufferAttribute(new Float32Array([-1, -1, 0, 3, -1, 0, -1, 3, 0]), 3));
    const screen = new THREE.Mesh(triangle, this.edlMaterial);
    screen.frustumCulled = false;
    this.edlScene.add(screen);
    this.camera.matrixAutoUpdate = false;
  }

  get view(): View {
    return this.view_;
  }

  /** Moves to a view; `moving` means that more movements may follow immediately. */
  setView(view: View, moving = true): void {
    this.view_ = view;
    this.requestFrame(moving);
  }

  get exaggeration(): number {
    return this.exaggeration_;
  }

  /** Exaggerates heights; the view keeps its target. */
  setExaggeration(factor: number): void {
    const { target } = this.view_;
    this.view_ = { ...this.view_, target: [target[0], target[1], (target[2] / this.exaggeration_) * factor] };
    this.exaggeration_ = factor;
    this.root.scale.set(1, 1, factor);
    this.requestFrame();
  }

  /** Sets the objects to draw, and the sphere around them (without exaggeration). */
  setDrawn(drawn: Drawn[], center: Vector, radius: number): void {
    this.drawn = drawn;
    this.sphere = { center, radius };
    this.root.clear();
    for (const { object } of drawn) this.root.add(object);
    this.requestFrame();
  }

  setBackground(color: string): void {
    this.renderer.setClearColor(new THREE.Color(color), 1);
    this.requestFrame();
  }

  resize(width: number, height: number, ratio: number): void {
    this.width = Math.max(1, width);
    this.height = Math.max(1, height);
    this.ratio = ratio;
    this.renderer.setPixelRatio(ratio);
    this.renderer.setSize(this.width, this.height, false);
    const size = this.renderer.getDrawingBufferSize(new THREE.Vector2());
    this.target.setSize(size.x, size.y);
    this.requestFrame();
  }

  requestFrame(moving = false): void {
    if (moving) {
      this.movedAt = performance.now();
      this.moved = true;
    }
    if (this.requested) return;
    this.requested = true;
    requestAnimationFrame(() => this.frame());
  }

  /** Draws all points immediately, so that the canvas can be copied in the same task. */
  drawNow(): void {
    this.share = 1;
    this.draw(1);
  }

  private frame(): void {
    this.requested = false;
    const now = performance.now();
    // A slow frame may come long after the movement that requested it.
    const moving = this.moved || now - this.movedAt < restAfter;
    this.moved = false;
    const took = now - this.lastFrame;
    this.lastFrame = now;
    // The time since a frame at rest is meaningless.
    if (moving && this.wasMoving) this.share = nextShare(this.share, took);
    this.wasMoving = moving;
    this.draw(moving ? this.share : 1);
    // Draw again when the view has come to rest.
    if (moving && this.share < 1) {
      window.setTimeout(() => {
        if (this.shareOfFrame < 1 && performance.now() - this.movedAt >= restAfter) this.requestFrame();
      }, restAfter + 20);
    }
    this.afterFrame();
  }

  private draw(share: number): void {
    this.shareOfFrame = share;
    for (const drawn of this.drawn) drawn.setShare?.(share);
    this.placeCamera();
    const { uniforms } = this.pointMaterial;
    // Fewer points are drawn larger, to keep the picture's brightness.
    const growth = Math.min(2, 1 / Math.sqrt(share));
    uniforms.size.value = this.pointSize * this.ratio * growth;
    const pixelsPerUnit = (this.height * this.ratio) / (2 * Math.tan((fieldOfView * Math.PI) / 360));
    uniforms.perDistance.value = this.spacing * pixelsPerUnit;
    if (this.edl) {
      const { uniforms: edl } = this.edlMaterial;
      edl.near.value = this.camera.near;
      edl.far.value = this.camera.far;
      edl.reach.value = Math.max(1, Math.round(this.ratio));
      this.renderer.setRenderTarget(this.target);
      this.renderer.render(this.scene, this.camera);
      this.renderer.setRenderTarget(null);
      this.renderer.render(this.edlScene, this.edlCamera);
    } else {
      this.renderer.setRenderTarget(null);
      this.renderer.render(this.scene, this.camera);
    }
  }

  private placeCamera(): void {
    const { right, up, forward } = basisOf(this.view_);
    const eye = eyeOf(this.view_);
    this.camera.matrix
      .makeBasis(new THREE.Vector3(...right), new THREE.Vector3(...up), new THREE.Vector3(...forward).negate())
      .setPosition(...eye);
    this.camera.updateMatrixWorld(true);
    const z = this.exaggeration_;
    const center: Vector = [this.sphere.center[0], this.sphere.center[1], this.sphere.center[2] * z];
    const radius = this.sphere.radius * Math.max(1, z);
    const away = Math.hypot(center[0] - eye[0], center[1] - eye[1], center[2] - eye[2]);
    this.camera.near = Math.max(this.view_.distance / 100, away - radius);
    this.camera.far = Math.max(this.camera.near * 2, away + radius);
    this.camera.aspect = this.width / this.height;
    this.camera.updateProjectionMatrix();
  }

  /** The matrix from places relative to `center` (in the scene, without exaggeration) to the picture, in three.js's order. */
  projection(center: Vector): Float64Array {
    this.placeCamera();
    const matrix = new THREE.Matrix4()
      .multiplyMatrices(this.camera.projectionMatrix, this.camera.matrixWorldInverse)
      .multiply(new THREE.Matrix4().makeScale(1, 1, this.exaggeration_))
      .multiply(new THREE.Matrix4().makeTranslation(...center));
    return Float64Array.from(matrix.elements);
  }

  /** The position of a place of the scene (without exaggeration) in the canvas, in pixels; null if it is behind the viewer. */
  project(place: Vector): [number, number] | null {
    const m = this.projection(place);
    const w = m[15];
    if (w <= 0) return null;
    return [((m[12] / w + 1) / 2) * this.width, ((1 - m[13] / w) / 2) * this.height];
  }

  /** The line of sight through a pixel of the canvas, in the scene without exaggeration. */
  ray(x: number, y: number): { from: Vector; direction: Vector } {
    const { right, up, forward } = basisOf(this.view_);
    const eye = eyeOf(this.view_);
    const half = Math.tan((fieldOfView * Math.PI) / 360);
    const a = ((2 * x) / this.width - 1) * half * (this.width / this.height);
    const b = (1 - (2 * y) / this.height) * half;
    const z = this.exaggeration_;
    const along = (part: 0 | 1 | 2): number => forward[part] + right[part] * a + up[part] * b;
    return { from: [eye[0], eye[1], eye[2] / z], direction: [along(0), along(1), along(2) / z] };
  }
}
