// SPDX-License-Identifier: Apache-2.0
//
// node scripts/build.mjs OUT.html [OUT.cpp]
//
// Makes the page without its data: one file, in which the line <!--data--> stands where the data elements belong. With
// OUT.cpp, the same as C++ source, for the program to hold.

import { createHash } from 'node:crypto';
import fs from 'node:fs';
import path from 'node:path';
import { fileURLToPath } from 'node:url';
import { build } from 'esbuild';

const root = path.dirname(path.dirname(fileURLToPath(import.meta.url)));
const read = (name) => fs.readFileSync(path.join(root, name), 'utf8');
export const dataMark = '<!--data-->';

/** The page as a text. */
export async function makeTemplate() {
  const bundle = async (name, options) => {
    const result = await build({ entryPoints: [path.join(root, name)], minify: true, write: false, charset: 'utf8', ...options });
    return result.outputFiles[0].text.trim();
  };
  // Browsers refuse modules in pages that are opened from disk.
  const script = await bundle('src/main.ts', { bundle: true, format: 'iife', target: 'es2022', legalComments: 'none' });
  const style = await bundle('src/page.css', {});
  if (/<\/(script|style)/i.test(script + style)) throw new Error('a script or style would end early');
  const hash = (text) => `'sha256-${createHash('sha256').update(text).digest('base64')}'`;
  // Only this script, this style and the empty icon; nothing from anywhere, nothing to anywhere.
  const policy =
    `default-src 'none'; script-src ${hash(script)}; style-src ${hash(style)}; img-src data:; ` +
    `base-uri 'none'; form-action 'none'`;
  const licence = read('node_modules/three/LICENSE');
  const values = {
    POLICY: policy,
    STYLE: style,
    SCRIPT: script,
    DATA: dataMark,
    LICENCE: escapeText(`three.js\n\n${licence.trim()}`),
  };
  const page = read('src/page.html').replace(/@([A-Z]+)@/g, (_, name) => values[name]);
  if (page.split(dataMark).length !== 2) throw new Error('the page has not one place for its data');
  return page;
}

function escapeText(text) {
  return text.replace(/&/g, '&amp;').replace(/</g, '&lt;').replace(/>/g, '&gt;');
}

/** C++ source that holds a text in pieces, since compilers limit the length of one literal. */
function cppSource(text) {
  const bytes = Buffer.from(text, 'utf8');
  const pieceLength = 12000;
  const pieces = [];
  for (let at = 0; at < bytes.length; at += pieceLength) {
    let literal = '';
    for (const byte of bytes.subarray(at, at + pieceLength)) {
      const plain = byte >= 0x20 && byte < 0x7f && byte !== 0x22 && byte !== 0x5c && byte !== 0x3f;
      literal += plain ? String.fromCharCode(byte) : `\\${byte.toString(8).padStart(3, '0')}`;
    }
    pieces.push(`    "${literal}"sv,`);
  }
  return `// Made by view/scripts/build.mjs.
#include "library/view/pageTemplate.hpp"

#include <array>
#include <string_view>

namespace Tidewatch {

using namespace std::string_view_literals;

namespace {

constexpr std::array<std::string_view, ${pieces.length}> pieces{
${pieces.join('\n')}
};

} // namespace

std::span<const std::string_view> pageTemplate() {
    return pieces;
}

} // namespace Tidewatch
`;
}

if (process.argv[1] && path.resolve(process.argv[1]) === fileURLToPath(import.meta.url)) {
  const [html, cpp] = process.argv.slice(2);
  if (!html) {
    console.error('Usage: node scripts/build.mjs OUT.html [OUT.cpp]');
    process.exit(2);
  }
  const page = await makeTemplate();
  fs.mkdirSync(path.dirname(path.resolve(html)), { recursive: true });
  fs.writeFileSync(html, page);
  if (cpp) fs.writeFileSync(cpp, cppSource(page));
}
