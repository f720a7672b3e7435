// SPDX-License-Identifier: Apache-2.0
import js from '@eslint/js';
import tseslint from 'typescript-eslint';

// What a file says is text: nothing may turn it into markup.
const markup = ['innerHTML', 'outerHTML', 'insertAdjacentHTML', 'write', 'writeln'].map((property) => ({
  property,
  message: 'Text from files must stay text: use textContent.',
}));

export default tseslint.config(
  { ignores: ['node_modules/', 'dist/'] },
  js.configs.recommended,
  {
    files: ['**/*.ts'],
    extends: [...tseslint.configs.strictTypeChecked, ...tseslint.configs.stylisticTypeChecked],
    languageOptions: { parserOptions: { project: './tsconfig.json' } },
    rules: {
      'no-restricted-properties': ['error', ...markup],
      // Indexes of typed arrays are checked by the loops around them.
      '@typescript-eslint/no-non-null-assertion': 'off',
      '@typescript-eslint/restrict-template-expressions': ['error', { allowNumber: true }],
      '@typescript-eslint/no-confusing-void-expression': ['error', { ignoreArrowShorthand: true }],
      '@typescript-eslint/no-floating-promises': ['error', { allowForKnownSafeCalls: ['test'] }],
    },
  },
  {
    files: ['**/*.mjs'],
    languageOptions: {
      globals: Object.fromEntries(
        ['process', 'console', 'Buffer', 'URL', 'document', 'window', 'location', 'tidewatch', 'setTimeout', 'performance',
          'requestAnimationFrame', 'Event', 'getComputedStyle', 'history'].map((name) => [name, 'readonly']),
      ),
    },
  },
);
