// SPDX-License-Identifier: Apache-2.0
import { loadPage } from './data/loadPage.ts';
import { Stage } from './scene/Stage.ts';
import { App } from './ui/App.ts';
import { byId } from './ui/dom.ts';

function fail(error: unknown): void {
  const loading = byId('loading', HTMLDivElement);
  loading.hidden = false;
  loading.textContent = error instanceof Error ? error.message : String(error);
}

async function start(): Promise<void> {
  const theme = window.matchMedia('(prefers-color-scheme: dark)').matches ? 'dark' : 'light';
  document.documentElement.dataset.theme = theme;
  let stage: Stage;
  try {
    stage = new Stage(byId('stage', HTMLCanvasElement));
  } catch {
    throw new Error('This browser cannot draw in three dimensions (WebGL 2 is switched off or missing).');
  }
  const progress = document.querySelector('#loading progress');
  const page = await loadPage(
    (id) => {
      const element = document.getElementById(id);
      const text = element?.textContent ?? null;
      // The text is not needed again; releasing it halves the memory.
      if (element && id !== 'manifest') element.textContent = '';
      return text;
    },
    (share) => {
      if (progress instanceof HTMLProgressElement) progress.value = share;
    },
  );
  const app = new App(page, stage);
  byId('loading', HTMLDivElement).hidden = true;
  // For tests, and for inspection in the browser's console.
  Object.defineProperty(window, 'tidewatch', { value: app });
}

start().catch(fail);
