// SPDX-License-Identifier: Apache-2.0

const alphabet = 'ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/';
const values = new Uint8Array(128).fill(255);
for (let i = 0; i < alphabet.length; ++i) values[alphabet.charCodeAt(i)] = i;

/**
 * Decodes a base64 text (RFC 4648, section 4, without line ends, with padding). Throws an Error for any other
 * text. The browser's atob would first create a second text of the same length.
 */
export function decodeBase64(text: string): Uint8Array<ArrayBuffer> {
  if (text.length % 4 !== 0) throw new Error('base64: the length is not a multiple of four');
  if (text.length === 0) return new Uint8Array(0);
  const padding = text.endsWith('==') ? 2 : text.endsWith('=') ? 1 : 0;
  const bytes = new Uint8Array((text.length / 4) * 3 - padding);
  const digit = (at: number): number => {
    const code = text.charCodeAt(at);
    const value = code < 128 ? values[code] : 255;
    if (value === 255) throw new Error(`base64: invalid character at ${at}`);
    return value;
  };
  const whole = padding > 0 ? text.length - 4 : text.length;
  let out = 0;
  for (let at = 0; at < whole; at += 4) {
    const word = (digit(at) << 18) | (digit(at + 1) << 12) | (digit(at + 2) << 6) | digit(at + 3);
    bytes[out++] = word >> 16;
    bytes[out++] = word >> 8;
    bytes[out++] = word;
  }
  if (padding > 0) {
    const word = (digit(whole) << 18) | (digit(whole + 1) << 12) | (padding === 1 ? digit(whole + 2) << 6 : 0);
    bytes[out++] = word >> 16;
    if (padding === 1) bytes[out] = word >> 8;
  }
  return bytes;
}
