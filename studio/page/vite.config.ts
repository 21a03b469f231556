import { svelte } from '@sveltejs/vite-plugin-svelte';
import { defineConfig } from 'vitest/config';

// The page is served by the program itself, under a policy that allows no inline scripts.
export default defineConfig({
  plugins: [svelte()],
  build: {
    outDir: process.env.STUDIO_PAGE_OUT ?? 'dist',
    emptyOutDir: true,
    target: ['chrome107', 'firefox104', 'safari16'],
    assetsInlineLimit: 0,
    modulePreload: { polyfill: false },
    chunkSizeWarningLimit: 1200,
  },
  test: { include: ['test/**/*.test.ts'], environment: 'node' },
});
