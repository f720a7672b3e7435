// SPDX-License-Identifier: Apache-2.0

/** Points: those with alpha 0 are hidden. Near points are drawn as large as the distance between neighbours. */
export const pointVertex = `
precision highp float;
uniform mat4 modelViewMatrix;
uniform mat4 projectionMatrix;
uniform float size;
uniform float perDistance;
in vec3 position;
in vec4 color;
out vec3 shade;
void main() {
  if (color.a == 0.0) {
    gl_Position = vec4(2.0, 2.0, 2.0, 1.0);
    gl_PointSize = 0.0;
    return;
  }
  shade = color.rgb;
  gl_Position = projectionMatrix * (modelViewMatrix * vec4(position, 1.0));
  gl_PointSize = clamp(perDistance / gl_Position.w, size, max(size, 16.0));
}`;

export const pointFragment = `
precision mediump float;
in vec3 shade;
out vec4 pixel;
void main() {
  pixel = vec4(shade, 1.0);
}`;

export const surfaceVertex = `
precision highp float;
uniform mat4 modelViewMatrix;
uniform mat4 projectionMatrix;
in vec3 position;
in vec4 color;
out vec3 shade;
void main() {
  shade = color.rgb;
  gl_Position = projectionMatrix * (modelViewMatrix * vec4(position, 1.0));
}`;

export const surfaceFragment = pointFragment;

export const edlVertex = `
in vec3 position;
void main() {
  gl_Position = vec4(position, 1.0);
}`;

/**
 * Eye-dome lighting: a pixel is darker the nearer its neighbours are, by the logarithm of the distance, so
 * that edges are visible at any distance.
 */
export const edlFragment = `
precision highp float;
precision highp sampler2D;
uniform sampler2D colors;
uniform sampler2D depths;
uniform float near;
uniform float far;
uniform float reach;
out vec4 pixel;
float logarithm(float depth) {
  return log2(near * far / (far - depth * (far - near)));
}
float nearer(ivec2 at, float middle, ivec2 size) {
  float depth = texelFetch(depths, clamp(at, ivec2(0), size - 1), 0).r;
  return depth >= 1.0 ? 0.0 : max(0.0, middle - logarithm(depth));
}
void main() {
  ivec2 at = ivec2(gl_FragCoord.xy);
  ivec2 size = textureSize(depths, 0);
  vec3 color = texelFetch(colors, at, 0).rgb;
  float depth = texelFetch(depths, at, 0).r;
  if (depth < 1.0) {
    float middle = logarithm(depth);
    int r = int(reach);
    float sum = nearer(at + ivec2(r, 0), middle, size) + nearer(at - ivec2(r, 0), middle, size)
              + nearer(at + ivec2(0, r), middle, size) + nearer(at - ivec2(0, r), middle, size);
    color *= exp(-min(sum * 70.0, 2.2));
  }
  pixel = vec4(color, 1.0);
}`;
