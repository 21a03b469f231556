// All ways to look at signals.
import assert from 'node:assert/strict';
import fs from 'node:fs';
import path from 'node:path';
import { test } from 'node:test';
import { walk } from './studio.mjs';

const { folder, open, picture, barriers, look, node } = walk();

test('signals are looked at together, measured, and in every form', async () => {
  fs.writeFileSync(
    path.join(folder, 'forms.graph'),
    '[chirp]\nmodule=Generator\nform=sweep\nfrequency=100\nend_frequency=8000\nrate=20000\nduration=4\nunit=V\n' +
      '[low]\nmodule=Filter\ncorner=2000\n[levels]\nmodule=Statistics\n[lines]\nchirp.Signal=low.Signal\nlow.Signal=levels.Signal\n',
  );
  const { page, errors } = await open('forms.graph');
  await node(page, 'chirp').click();
  await page.getByRole('button', { name: 'Show signal chirp.Signal' }).click();
  const view = page.locator('article');
  await view.getByLabel('Add a signal to chirp.Signal').selectOption('low.Signal');
  await page.getByRole('button', { name: 'Run', exact: true }).click();
  await view.locator('canvas').waitFor();
  await page.getByRole('button', { name: 'Run', exact: true }).waitFor();
  const border = page.getByRole('separator', { name: 'Height of the drawing' });
  await border.focus();
  for (let press = 0; press < 3; ++press) await page.keyboard.press('ArrowUp');
  assert.equal(await border.getAttribute('aria-valuenow'), '43');
  const edge = await border.boundingBox();
  await page.mouse.move(edge.x + 50, edge.y + edge.height / 2);
  await page.mouse.down();
  await page.mouse.move(edge.x + 50, edge.y - 1000, { steps: 3 });
  await page.mouse.up();
  assert.equal(await border.getAttribute('aria-valuenow'), '8');
  await border.dblclick();
  assert.equal(await border.getAttribute('aria-valuenow'), '58');
  await view.getByRole('checkbox', { name: 'Cursors' }).check();
  const second = view.getByRole('slider', { name: 'Cursor B' });
  await second.focus();
  const before = await view.getByRole('row', { name: /^Difference/ }).innerText();
  await page.keyboard.press('Shift+ArrowRight');
  await page.waitForFunction((text) => [...document.querySelectorAll('article tbody tr')].at(-1).innerText !== text, before);
  assert.match(await view.getByRole('row', { name: /^Difference/ }).innerText(), /^Difference\s+45 ms \(22\.2\d* Hz\)/);
  await look(page, '8-cursors');

  for (const [mode, sign] of [
    ['spectrum', 'kHz'],
    ['spectrogram', 'samples a column'],
    ['level', 'RMS'],
    ['values', '3.99995 s'],
    ['texts', 'No texts have come.'],
  ]) {
    await view.getByLabel('Show chirp.Signal').selectOption(mode);
    await page.getByRole('button', { name: 'Run', exact: true }).click();
    await page.getByRole('button', { name: 'Run', exact: true }).waitFor();
    if (mode !== 'texts') await view.getByText('newest sample at 4.00000 s').waitFor();
    if (mode !== 'spectrum') await view.getByText(sign).first().waitFor();
    await look(page, `8-${mode}`);
  }
  assert.deepEqual(errors, []);
});

test('files, presets and lists are chosen, kept and edited in the form', async () => {
  fs.mkdirSync(path.join(folder, 'sounds'));
  for (const name of ['b.mcap', 'a.mcap', 'notes.txt']) fs.writeFileSync(path.join(folder, 'sounds', name), '');
  fs.writeFileSync(
    path.join(folder, 'forms2.graph'),
    '[tone]\nmodule=Generator\nfrequency=60\n[old]\nmodule=Player\n[gains]\nmodule=Stages\nmode=stages\n[lines]\ntone.Signal=gains.Signal\n',
  );
  const { page, errors } = await open('forms2.graph', {}, '--module-path', `:${process.env.STUDIO_EXAMPLES}`);
  const text = page.locator('.cm-content');
  await node(page, 'old').click();
  await page.getByRole('button', { name: 'Choose: File' }).click();
  const dialog = page.getByRole('dialog');
  await dialog.getByRole('button', { name: 'sounds/' }).click();
  await dialog.getByRole('button', { name: 'b.mcap' }).waitFor();
  await picture(page, '9-files');
  assert.deepEqual(await barriers(page), []);
  assert.equal(await dialog.getByText('notes.txt').count(), 0);
  await dialog.getByRole('button', { name: 'a.mcap' }).click();
  await text.getByText('file=sounds/a.mcap').waitFor();

  await node(page, 'tone').click();
  await page.getByText('Presets', { exact: true }).click();
  await page.getByLabel('Name of the preset').fill('mains');
  await page.getByRole('button', { name: 'Keep settings' }).click();
  await page.getByText('The settings are kept as “mains”.').waitFor();
  const frequency = page.getByLabel('Frequency', { exact: true });
  await frequency.fill('1 kHz');
  await frequency.press('Enter');
  await text.getByText('frequency=1 kHz').waitFor();
  await page.getByRole('button', { name: 'Load the preset mains' }).click();
  await text.getByText('frequency=60').waitFor();

  await node(page, 'gains').click();
  await page.getByRole('button', { name: /^Add a row/ }).click();
  await page.getByLabel('gain 1').fill('2.5');
  await page.getByLabel('gain 1').press('Enter');
  await text.getByText(/stages=.*2\.5/).waitFor();
  await look(page, '9-list', 'Einstellungen');
  await page.getByRole('button', { name: 'Remove row 1' }).click();
  await text.getByText(/stages=.*2\.5/).waitFor({ state: 'detached' });
  // The same on a narrow page, in German.
  await page.setViewportSize({ width: 360, height: 780 });
  await page.getByLabel('Language / Sprache').selectOption('de');
  await page.getByRole('tab', { name: 'Zeichnung' }).click();
  await node(page, 'old').click();
  await page.getByRole('tab', { name: 'Einstellungen' }).click();
  await page.getByText('Vorlagen', { exact: true }).click();
  await page.getByText('Noch keine Vorlagen dieses Moduls.').waitFor();
  await picture(page, '9-presets-360');
  assert.deepEqual(await barriers(page), []);
  await page.getByRole('button', { name: 'Auswählen: Datei' }).click();
  await dialog.getByRole('button', { name: 'b.mcap' }).waitFor();
  await picture(page, '9-files-360');
  assert.deepEqual(await barriers(page), []);
  assert.deepEqual(errors, []);
});

test('a recording is looked at down to single samples while it is written', async () => {
  fs.writeFileSync(
    path.join(folder, 'record.graph'),
    '[tone]\nmodule=Generator\nrate=8000\nunit=V\nduration=1000\n[record]\nmodule=Recorder\nfile=r.mcap\n[lines]\ntone.Signal=record.Signal\n',
  );
  const { page, errors } = await open('record.graph');
  await node(page, 'record').click();
  await page.getByRole('checkbox', { name: 'In real time' }).check();
  await page.getByRole('button', { name: 'Run', exact: true }).click();
  await page.getByText(/^running, /).waitFor();
  await page.getByRole('button', { name: 'Look at the recording' }).click();
  const view = page.getByRole('article', { name: 'Recording record' });
  await view.getByText(/samples on disk, being written/).waitFor();
  const samples = async () => Number(/(\d+) samples on disk/.exec(await view.innerText())?.[1] ?? 0);
  const before = await samples();
  await page.waitForFunction((count) => Number(/(\d+) samples on disk/.exec(document.querySelector('article').innerText)?.[1]) > count, before);
  for (let step = 0; step < 20 && !(await view.getByText('single samples').isVisible()); ++step) {
    await view.getByRole('button', { name: 'Zoom in' }).click();
    await page.waitForTimeout(50);
  }
  await view.getByText('single samples').waitFor();
  await look(page, '8-recording');
  await page.getByRole('button', { name: 'Stop', exact: true }).click();
  await page.getByRole('button', { name: 'Run', exact: true }).waitFor();
  await view.getByRole('button', { name: 'All' }).click();
  await view.getByText(/\d samples on disk$/).waitFor();
  assert.deepEqual(errors, []);
});
