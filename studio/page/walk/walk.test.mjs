// A new user's way: place, wire, set, run, watch, save, and run the file from the command line. Pictures are taken on the
// way, for docs/studio.md and to be looked at.
import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import fs from 'node:fs';
import path from 'node:path';
import { test } from 'node:test';
import { drag, setField, still, walk } from './studio.mjs';

const { folder, open, picture, barriers, node, handle } = walk();

test('a new user draws, runs, watches and saves a graph', async () => {
  const { page, errors } = await open('first.graph');
  await picture(page, '1-empty');
  assert.deepEqual(await barriers(page), []);

  await page.getByRole('button', { name: 'Save as …' }).click();
  await page.getByRole('dialog').getByText(`${fs.realpathSync(folder)}/`).waitFor();
  await page.keyboard.press('Escape');

  const modules = page.getByRole('region', { name: 'Modules' });
  await modules.getByRole('searchbox').fill('gener');
  await modules.getByRole('button', { name: /^Generator/ }).click();
  await node(page, 'generator').waitFor();
  await setField(page, 'Frequency', '50');
  await setField(page, 'Duration', '2');
  for (const [query, name] of [['filter', 'filter'], ['stat', 'statistics']]) {
    await modules.getByRole('searchbox').fill(query);
    await modules.getByRole('button').first().click();
    await node(page, name).waitFor();
  }
  await modules.getByRole('searchbox').fill('');

  await still(handle(page, 'filter', 'Signal', 'target'));
  await drag(page, handle(page, 'generator', 'Signal', 'source'), handle(page, 'filter', 'Signal', 'target'));
  await page.locator('.svelte-flow__edge').first().waitFor({ state: 'attached' });
  // The other line by keys alone.
  await node(page, 'filter').focus();
  await page.keyboard.press('Enter');
  await page.getByLabel('Connect filter.Signal to').selectOption('statistics.Signal');
  await page.waitForFunction(() => document.querySelectorAll('.svelte-flow__edge').length === 2);
  await setField(page, 'Corner frequency', '1 kHz');
  await page.waitForFunction(() => document.querySelector('.cm-content')?.textContent.includes('corner=1 kHz'));
  await picture(page, '2-wired');
  assert.deepEqual(await barriers(page), []);

  await page.getByRole('button', { name: 'Show signal filter.Signal' }).click();
  await page.getByRole('button', { name: 'Run', exact: true }).click();
  await page.locator('article[aria-label="filter.Signal"] canvas').waitFor();
  await page.getByRole('button', { name: 'Run', exact: true }).waitFor();
  await picture(page, '3-watched');
  assert.deepEqual(await barriers(page), []);
  await page.getByRole('tab', { name: 'Report' }).click();
  await page.locator('section .verdict').getByText(/^complete/).waitFor();
  const rms = await page.getByRole('row', { name: /rms/ }).innerText();
  assert.match(rms, /0\.7071/);
  await picture(page, '4-report');
  assert.deepEqual(await barriers(page), []);

  await page.getByRole('button', { name: 'Save', exact: true }).click();
  await page.getByText('Saved.').waitFor();
  const text = fs.readFileSync(path.join(folder, 'first.graph'), 'utf8');
  assert.match(text, /\[filter\]\nmodule=Filter\ncorner=1 kHz\n/);
  assert.match(text, /generator\.Signal=filter\.Signal\nfilter\.Signal=statistics\.Signal\n/);
  const said = execFileSync(process.env.STUDIO_HOST, ['--language', 'en', 'run', 'first.graph'], { cwd: folder, encoding: 'utf8' });
  assert.match(said, /rms +0\.7071/);
  assert.deepEqual(errors, []);
});

test('the corner moves while the graph runs', async () => {
  fs.writeFileSync(
    path.join(folder, 'live.graph'),
    '[tone]\nmodule=Generator\nduration=1000\n[low]\nmodule=Filter\ncorner=5000\n[levels]\nmodule=Statistics\n[lines]\ntone.Signal=low.Signal\nlow.Signal=levels.Signal\n',
  );
  const { page, errors } = await open('live.graph');
  await node(page, 'low').click();
  await page.getByRole('button', { name: 'Show signal low.Signal' }).click();
  await page.getByRole('checkbox', { name: 'In real time' }).check();
  await page.getByRole('button', { name: 'Run', exact: true }).click();
  await page.locator('article canvas').waitFor();
  await setField(page, 'Corner frequency', '100 Hz');
  await page.getByText(/^low\.corner is 100 Hz from block \d+ on\./).waitFor();
  await picture(page, '7-live');
  assert.deepEqual(await barriers(page), []);
  await page.getByRole('button', { name: 'Stop', exact: true }).click();
  await page.getByRole('button', { name: 'Run', exact: true }).waitFor();
  await page.getByRole('tab', { name: 'Report' }).click();
  await page.locator('section .verdict').getByText(/^interrupted/).waitFor();
  assert.deepEqual(errors, []);
});

test('neither garbage nor frozen viewers disturb a run or those who watch it', async () => {
  fs.writeFileSync(
    path.join(folder, 'others.graph'),
    '[tone]\nmodule=Generator\nduration=1000\n[levels]\nmodule=Statistics\n[lines]\ntone.Signal=levels.Signal\n',
  );
  const { page, errors } = await open('others.graph');
  await node(page, 'tone').click();
  await page.getByRole('button', { name: 'Show signal tone.Signal' }).click();
  await page.getByRole('checkbox', { name: 'In real time' }).check();
  await page.getByRole('button', { name: 'Run', exact: true }).click();
  await page.locator('article canvas').waitFor();
  const answer = await page.evaluate(
    () =>
      new Promise((resolve) => {
        const pieces = ['{"do":"run"}', '{"do":"text","version":-1,"text":"x"}', '[[[[', '{"do":"stop","id":1e99}', '{"do":"watch","wishes":[{}]}',
          '{"do":"change","edits":[{"kind":"remove","names":["nobody"]}]}', '{"do":"set","name":"tone","text":"{{"}', '\u0000', '{"do":"got","number":9}'];
        const socket = new WebSocket(`ws://${location.host}/live`);
        socket.onopen = () => {
          for (let i = 0; i < 1000; ++i) socket.send(i % 10 === 9 ? new Uint8Array(100) : pieces[i % 9] ?? '');
          socket.send('{"do":"form","name":"tone","id":77}');
        };
        socket.onmessage = ({ data }) => typeof data === 'string' && data.includes('"answer":77') && resolve(JSON.parse(data).ok);
      }),
  );
  assert.equal(answer, true);
  const closed = await page.evaluate(
    () =>
      new Promise((resolve) => {
        let count = 0;
        for (let i = 0; i < 20; ++i) {
          const socket = new WebSocket(`ws://${location.host}/live`);
          socket.onopen = () => {
            socket.send('{"do":"hello","name":"frozen"}');
            socket.send('{"do":"watch","wishes":[{"trace":1,"port":"tone.Signal"}]}');
          };
          socket.onclose = () => ++count === 20 && resolve(count);
        }
      }),
  );
  assert.equal(closed, 20);
  const newest = () => page.locator('article .facts').innerText();
  const before = await newest();
  await page.waitForFunction((text) => document.querySelector('article .facts').innerText !== text, before);
  await page.getByText(/^running, /).waitFor();
  await page.getByRole('button', { name: 'Stop', exact: true }).click();
  await page.getByRole('button', { name: 'Run', exact: true }).waitFor();
  assert.deepEqual(errors, []);
});

test('the text and the drawing are one document', async () => {
  fs.writeFileSync(path.join(folder, 'text.graph'), '# mine\n[a]\nmodule=Generator\n\n[b]\nmodule=Statistics\n\n[lines]\na.Signal=b.Signal\n');
  const { page, errors } = await open('text.graph');
  await page.locator('.svelte-flow__edge').waitFor({ state: 'attached' });
  const text = page.getByRole('textbox', { name: 'Text of the graph' });
  await text.click();
  await page.keyboard.press('Control+End');
  await page.keyboard.type('a.Nothing=b.Signal 2\n[c]\nmodule=Genrator\n');
  await node(page, 'c').waitFor();
  await page.getByRole('tab', { name: /Problems/ }).click();
  await page.getByText("'a' has no output 'Nothing'").first().waitFor();
  await page.getByText(/Genrator/).first().waitFor();
  await picture(page, '5-problems');
  assert.deepEqual(await barriers(page), []);
  await page.getByRole('button', { name: /has no output/ }).click();
  await page.locator('.cm-activeLine', { hasText: 'a.Nothing' }).waitFor();
  // A line that does not fit is refused in the words of the check.
  await page.getByRole('button', { name: /Undo/ }).click();
  await page.waitForFunction(() => !document.querySelector('.cm-content')?.textContent.includes('Nothing'));
  await node(page, 'a').click();
  await page.getByRole('textbox', { name: 'Instance name', exact: true }).fill('b');
  await page.keyboard.press('Enter');
  await page.getByText("there is an instance 'b' already").waitFor();
  await page.getByRole('textbox', { name: 'Instance name', exact: true }).fill('tone');
  await page.keyboard.press('Enter');
  await page.waitForFunction(() => document.querySelector('.cm-content')?.textContent.includes('tone.Signal=b.Signal'));
  assert.match(await page.locator('.cm-content').innerText(), /^# mine/);
  // Another program writes the file.
  fs.writeFileSync(path.join(folder, 'text.graph'), '# theirs\n[x]\nmodule=Generator\n');
  await page.getByRole('button', { name: 'Save', exact: true }).click();
  await page.getByText('was changed by another program').waitFor();
  await picture(page, '5-outside');
  assert.match(fs.readFileSync(path.join(folder, 'text.graph'), 'utf8'), /^# theirs/);
  await page.getByRole('button', { name: 'Take theirs' }).click();
  await node(page, 'x').waitFor();
  await page.getByLabel('Language / Sprache').selectOption('de');
  await page.getByRole('button', { name: 'Speichern', exact: true }).waitFor();
  await page.getByRole('tab', { name: /Fehler/ }).click();
  await page.getByText(/hat keine Verbindungen/).waitFor();
  await picture(page, '6-german');
  assert.deepEqual(errors, []);
});

for (const width of [360, 800])
  test(`the page fits ${width} pixels`, async () => {
    fs.writeFileSync(
      path.join(folder, `w${width}.graph`),
      '[tone]\nmodule=Generator\nduration=1\n[spectrum]\nmodule=Spectrum\n[levels]\nmodule=Statistics\n[lines]\ntone.Signal=spectrum.Signal\ntone.Signal=levels.Signal\n',
    );
    const { page, errors } = await open(`w${width}.graph`, { viewport: { width, height: 780 }, colorScheme: width === 360 ? 'dark' : 'light' });
    await node(page, 'tone').waitFor();
    await picture(page, `${width}-drawing`);
    await node(page, 'tone').click();
    if (width === 360) await page.getByRole('tab', { name: 'Settings' }).click();
    await page.getByLabel('Frequency', { exact: true }).waitFor();
    await picture(page, `${width}-settings`);
    assert.deepEqual(await barriers(page), []);
    await page.getByRole('button', { name: 'Show signal tone.Signal' }).click();
    await page.getByRole('button', { name: 'Run', exact: true }).click();
    await page.locator('article canvas').waitFor();
    await picture(page, `${width}-signals`);
    assert.deepEqual(await barriers(page), []);
    const wider = await page.evaluate(() => document.documentElement.scrollWidth > window.innerWidth);
    assert.equal(wider, false);
    assert.deepEqual(errors, []);
  });
