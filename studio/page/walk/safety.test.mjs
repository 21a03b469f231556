// Who may come in, what may be changed, and graphs and pages that mean harm.
import assert from 'node:assert/strict';
import { execFileSync, spawnSync } from 'node:child_process';
import fs from 'node:fs';
import path from 'node:path';
import { test } from 'node:test';
import { ask, drag, setField, still, walk } from './studio.mjs';

const { folder, open, barriers, node, handle } = walk();

const noCertificate = spawnSync('openssl', ['version']).status === 0 ? false : 'openssl is missing';

test('with a certificate and a password the page runs graphs over TLS', { skip: noCertificate }, async () => {
  execFileSync('openssl', ['req', '-x509', '-newkey', 'ec', '-pkeyopt', 'ec_paramgen_curve:prime256v1', '-nodes', '-days', '2', '-subj', '/CN=localhost', '-keyout', 'k.pem', '-out', 'c.pem'], { cwd: folder, stdio: 'ignore' });
  fs.writeFileSync(path.join(folder, 'secret'), 'a long password\n', { mode: 0o600 });
  fs.writeFileSync(path.join(folder, 'tls.graph'), '[tone]\nmodule=Generator\nduration=1\n[levels]\nmodule=Statistics\n[lines]\ntone.Signal=levels.Signal\n');
  const tls = ['--listen', '127.0.0.1', '--certificate', 'c.pem', '--key', 'k.pem', '--password-file', 'secret'];
  const options = { ignoreHTTPSErrors: true, httpCredentials: { username: 'me', password: 'a long password' } };
  const { studio, page, errors } = await open('tls.graph', options, ...tls);
  assert.match(studio.address, /^https:\/\/127\.0\.0\.1:\d+\/$/);
  await node(page, 'tone').click();
  await page.getByRole('button', { name: 'Show signal tone.Signal' }).click();
  await page.getByRole('button', { name: 'Run', exact: true }).click();
  await page.locator('article canvas').waitFor();
  // 'self' allows wss: here, and whoever lacks the password gets nothing, after a second.
  const stranger = await page.context().browser().newContext({ ignoreHTTPSErrors: true, httpCredentials: { username: 'me', password: 'a long passwort' } });
  assert.equal((await (await stranger.newPage()).goto(studio.address)).status(), 401);
  await stranger.close();
  // Chromium notes that the certificate is its own; nothing else.
  assert.deepEqual(errors.filter((text) => !/certificate/i.test(text)), []);
});

test('who only looks changes and starts nothing', async () => {
  const text = '[tone]\nmodule=Generator\nduration=1\n[levels]\nmodule=Statistics\n[lines]\ntone.Signal=levels.Signal\n';
  fs.writeFileSync(path.join(folder, 'seen.graph'), text);
  const { page, errors } = await open('seen.graph', {}, '--watch');
  await page.getByText('(view only)').waitFor();
  await node(page, 'tone').click();
  await page.getByLabel('Frequency', { exact: true }).waitFor();
  const enabled = await page.evaluate(() =>
    [...document.querySelectorAll('header button, header select, header input, section input:not([type=search]), section select')].filter((each) => !each.disabled).map((each) => each.outerHTML),
  );
  assert.deepEqual(enabled.filter((each) => !each.includes('realtime') && !each.includes('checkbox')), []);
  for (const command of [
    { do: 'run' }, { do: 'save', force: true }, { do: 'text', text: '', version: 1 }, { do: 'undo' }, { do: 'language', name: 'de' },
    { do: 'change', edits: [{ kind: 'remove', names: ['tone'] }] }, { do: 'set', name: 'tone', text: '{"set":{"frequency":"9"}}' },
    { do: 'keep', name: 'tone', other: 'x' }, { do: 'reload' }, { do: 'stop' }, { do: 'load', name: 'tone', other: 'x' }, { do: 'redo' },
  ])
    assert.equal((await ask(page, command)).ok, false, command.do);
  assert.equal((await ask(page, { do: 'try', name: 'tone.Signal', other: 'levels.Signal 2' })).ok, true);
  assert.equal(fs.readFileSync(path.join(folder, 'seen.graph'), 'utf8'), text);
  assert.deepEqual(errors, []);
});

test('nothing of a graph, a name or a file becomes markup', async () => {
  const evil = '<img src=x onerror=harmed=1>';
  fs.writeFileSync(
    path.join(folder, `${evil}.graph`),
    `# ${evil}\n[${evil}]\nmodule=Generator\nname=${evil}\nunit=${evil}\nduration=1\n[b]\nmodule=${evil}\n[c]\nmodule=Generator\nname=${evil}\nduration=1\n[levels]\nmodule=Statistics\n[lines]\nc.Signal=levels.Signal\nc.Signal=b.${evil}\n`,
  );
  fs.writeFileSync(path.join(folder, `${evil}.mcap`), '');
  const { page, errors } = await open(`${evil}.graph`);
  await node(page, evil).click();
  await page.getByRole('tab', { name: /Problems/ }).click();
  await page.getByRole('button', { name: /there is no module '<img/ }).waitFor();
  assert.deepEqual(await barriers(page), []);
  await node(page, 'b').click();
  await page.getByRole('button', { name: 'Delete', exact: true }).click();
  await node(page, 'b').waitFor({ state: 'detached' });
  await node(page, evil).click();
  await page.keyboard.press('Delete');
  await node(page, evil).waitFor({ state: 'detached' });
  await node(page, 'c').click();
  await page.getByRole('button', { name: 'Show signal c.Signal' }).click();
  await page.getByRole('button', { name: 'Run', exact: true }).click();
  await page.locator('article').getByText(evil).waitFor();
  await page.getByRole('tab', { name: 'Report' }).click();
  await page.getByRole('cell', { name: evil }).first().waitFor();
  assert.equal(await page.evaluate(() => document.images.length + (window.harmed ?? 0)), 0);
  assert.deepEqual(errors, []);
});

test('a wrong line says why while it is drawn; copies, moves and changes are taken back and made again', async () => {
  fs.writeFileSync(path.join(folder, 'wrong.graph'), '[tone]\nmodule=Generator\n[join]\nmodule=BusJoin\n[levels]\nmodule=Statistics\n[lines]\ntone.Signal=join.Signal\n');
  const { page, errors } = await open('wrong.graph');
  const input = handle(page, 'levels', 'Signal', 'target');
  await still(input);
  await drag(page, handle(page, 'join', 'Bus', 'source'), input, async () => {
    await page.locator('.reason').getByText(/another type/).waitFor();
    assert.deepEqual(await barriers(page), []);
  });
  await page.locator('.toast.error').getByText(/another type/).waitFor();
  assert.equal(await page.locator('.svelte-flow__edge').count(), 1);

  const text = page.locator('.cm-content');
  const edge = page.locator('.svelte-flow__edge');
  await node(page, 'tone').click();
  await node(page, 'join').click({ modifiers: ['ControlOrMeta'] });
  await page.getByRole('heading', { name: '2 modules' }).waitFor();
  await page.getByRole('button', { name: 'Duplicate' }).click();
  await text.getByText('tone 2.Signal=join 2.Signal').waitFor();
  await page.getByRole('button', { name: 'Undo' }).click();
  await node(page, 'join 2').waitFor({ state: 'detached' });
  await edge.focus();
  await page.keyboard.press('Enter');
  await page.getByRole('button', { name: 'Show signal tone.Signal' }).waitFor();
  await page.keyboard.press('Delete');
  await edge.waitFor({ state: 'detached' });
  await node(page, 'tone').click();
  await page.getByRole('button', { name: 'Duplicate' }).click();
  await text.getByText('[tone 2]').waitFor();
  await setField(page, 'Frequency', '3 kHz');
  await text.getByText('frequency=3 kHz').waitFor();
  await node(page, 'tone 2').focus();
  await page.keyboard.press('ArrowRight');
  const before = await text.innerText();
  for (const step of ['frequency=3 kHz', '[tone 2]', 'tone.Signal=join.Signal']) {
    const isThere = await text.getByText(step).count();
    while ((await text.getByText(step).count()) === isThere) {
      const was = await text.innerText();
      await page.getByRole('button', { name: 'Undo' }).click();
      await page.waitForFunction((old) => document.querySelector('.cm-content').innerText !== old, was);
    }
  }
  await edge.waitFor({ state: 'attached' });
  assert.equal(await page.getByRole('button', { name: 'Undo' }).isDisabled(), true);
  await node(page, 'tone').focus();
  while ((await text.innerText()) !== before) {
    const was = await text.innerText();
    await page.keyboard.press('Control+y');
    await page.waitForFunction((old) => document.querySelector('.cm-content').innerText !== old, was);
  }
  await page.getByRole('button', { name: 'Arrange' }).first().click();
  await text.getByText(/^levels=\d+,/).waitFor();
  assert.deepEqual(errors, []);
});

test('a page that is closed leaves its run alone, and who was too slow is told when it comes back', async () => {
  fs.writeFileSync(path.join(folder, 'on.graph'), '[tone]\nmodule=Generator\nduration=1000\n[levels]\nmodule=Statistics\n[lines]\ntone.Signal=levels.Signal\n');
  const { studio, page } = await open('on.graph');
  await page.getByRole('checkbox', { name: 'In real time' }).check();
  await page.getByRole('button', { name: 'Run', exact: true }).click();
  await page.getByText(/^running, /).waitFor();
  const context = page.context();
  await page.close();
  const next = await context.newPage();
  await next.goto(studio.address);
  await next.getByText(/^running, /).waitFor();
  const told = await next.evaluate(
    () =>
      new Promise((resolve) => {
        const connect = (watches) => {
          const socket = new WebSocket(`ws://${location.host}/live`);
          socket.onopen = () => {
            socket.send('{"do":"hello","name":"the slow one"}');
            if (watches) socket.send('{"do":"watch","wishes":[{"trace":1,"port":"tone.Signal"}]}');
          };
          if (watches) socket.onclose = () => connect(false);
          else socket.onmessage = ({ data }) => data.includes('"hello"') && resolve(JSON.parse(data).dropped);
        };
        connect(true);
      }),
  );
  assert.match(told, /slow|took/);
  // What is held stays while the run goes on.
  await node(next, 'tone').click();
  await next.getByRole('button', { name: 'Show signal tone.Signal' }).click();
  const view = next.locator('article');
  await view.getByText(/newest sample at/).waitFor();
  // A page that does nothing for long is disconnected, comes back, says why and goes on.
  await next.evaluate(() => {
    const { link } = window.studioPage;
    const before = link.socket;
    link.receive = (data) => {
      if (link.socket === before) return;
      delete link.receive;
      link.receive(data);
    };
  });
  await next.locator('.toast.error').getByText(/slow|took/).waitFor();
  await view.getByRole('checkbox', { name: 'Hold' }).check();
  const newest = async () => /at ([\d.]+) s/.exec(await view.innerText())[1];
  const goOn = async () => {
    const seconds = await next.locator('.state').innerText();
    await next.waitForFunction((was) => document.querySelector('.state').innerText !== was, seconds);
  };
  await goOn(); // what was painted before is said in words a moment later
  const held = await newest();
  await goOn();
  assert.equal(await newest(), held);
  await view.getByRole('checkbox', { name: 'Hold' }).uncheck();
  await next.waitForFunction((was) => !document.querySelector('article').innerText.includes(`at ${was} s`), held);
  await next.getByRole('button', { name: 'Stop', exact: true }).click();
  await next.getByRole('button', { name: 'Run', exact: true }).waitFor();
});
