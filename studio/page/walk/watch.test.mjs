// All ways to look at signals.
import assert from 'node:assert/strict';
import fs from 'node:fs';
import path from 'node:path';
import { test } from 'node:test';
import { walk } from './studio.mjs';

const { folder, open, picture, barriers, node } = walk();

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
  await view.getByRole('checkbox', { name: 'Cursors' }).check();
  const second = view.getByRole('slider', { name: 'Cursor B' });
  await second.focus();
  const before = await view.getByRole('row', { name: /^Difference/ }).innerText();
  await page.keyboard.press('Shift+ArrowRight');
  await page.waitForFunction((text) => [...document.querySelectorAll('article tbody tr')].at(-1).innerText !== text, before);
  assert.match(await view.getByRole('row', { name: /^Difference/ }).innerText(), /^Difference\s+45 ms \(22\.2\d* Hz\)/);
  await picture(page, '8-cursors');
  assert.deepEqual(await barriers(page), []);

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
    if (mode !== 'texts') await view.getByText('newest sample at 4 s').waitFor();
    if (mode !== 'spectrum') await view.getByText(sign).first().waitFor();
    await picture(page, `8-${mode}`);
    assert.deepEqual(await barriers(page), []);
  }
  assert.deepEqual(errors, []);
});
