import { mount } from 'svelte';
import '@xyflow/svelte/dist/style.css';
import 'uplot/dist/uPlot.min.css';
import './app.css';
import { studio } from './lib/studio.svelte';
import App from './App.svelte';

// For measurements (bench/figures.mjs) and for the curious.
Object.assign(window, { studioPage: studio });

mount(App, { target: document.getElementById('app')! });
