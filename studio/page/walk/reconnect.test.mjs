// Viewers that come, look and vanish without a word, and a browser that is killed: the run goes on and the server's
// memory stays. STUDIO_RECONNECTS=10000 node --test walk/reconnect.test.mjs is the long form.
import assert from 'node:assert/strict';
import { spawnSync } from 'node:child_process';
import { randomBytes } from 'node:crypto';
import fs from 'node:fs';
import net from 'node:net';
import path from 'node:path';
import { test } from 'node:test';
import { setTimeout as sleep } from 'node:timers/promises';
import { chromium } from 'playwright-core';
import { BROWSER, walk } from './studio.mjs';

const { folder, open, node } = walk();
const COUNT = Number(process.env.STUDIO_RECONNECTS ?? 600);

function frame(text) {
  const bytes = Buffer.from(text);
  const mask = randomBytes(4);
  const head = Buffer.from([0x81, 0x80 | bytes.length, ...mask]);
  return Buffer.concat([head, bytes.map((byte, index) => byte ^ mask[index % 4])]);
}

// Resolves when something has come; the socket is reset then. Every third one goes before it is greeted.
function visit(port, cookie, number) {
  return new Promise((resolve, reject) => {
    const socket = net.connect(port, '127.0.0.1');
    const host = `127.0.0.1:${port}`;
    socket.on('error', reject);
    socket.write(
      `GET /live HTTP/1.1\r\nHost: ${host}\r\nOrigin: http://${host}\r\nCookie: ${cookie}\r\nConnection: Upgrade\r\n` +
        'Upgrade: websocket\r\nSec-WebSocket-Version: 13\r\nSec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\n\r\n',
    );
    let greeted = false;
    socket.on('data', (bytes) => {
      if (greeted || number % 3 === 0) {
        socket.resetAndDestroy();
        return resolve();
      }
      assert.match(bytes.toString('latin1'), /^HTTP\/1.1 101/);
      greeted = true;
      socket.write(frame(`{"do":"hello","name":"visitor ${number}"}`));
      socket.write(frame('{"do":"watch","wishes":[{"trace":1,"port":"tone.Signal"}]}'));
    });
  });
}

// One that looks on: it confirms what it gets, or, frozen, nothing.
function look(port, cookie, number, isFrozen) {
  const socket = net.connect(port, '127.0.0.1');
  const host = `127.0.0.1:${port}`;
  socket.on('error', () => {}); // a frozen one is closed
  socket.write(
    `GET /live HTTP/1.1\r\nHost: ${host}\r\nOrigin: http://${host}\r\nCookie: ${cookie}\r\nConnection: Upgrade\r\n` +
      'Upgrade: websocket\r\nSec-WebSocket-Version: 13\r\nSec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\n\r\n',
  );
  const seen = { socket, frames: 0 };
  let greeted = false;
  socket.on('data', (bytes) => {
    if (!greeted) {
      greeted = true;
      socket.write(frame(`{"do":"hello","name":"looker ${number}"}`));
      socket.write(frame(`{"do":"watch","wishes":[{"trace":1,"port":"tone.Signal","seconds":0.${number + 1}}]}`));
    }
    for (const [, count] of bytes.toString('latin1').matchAll(/\{"frame":(\d+)/g)) {
      ++seen.frames;
      if (!isFrozen) socket.write(frame(`{"do":"got","number":${count}}`));
    }
  });
  return seen;
}

const residentKilobytes = (pid) => Number(/VmRSS:\s+(\d+)/.exec(fs.readFileSync(`/proc/${pid}/status`, 'utf8'))[1]);

test('viewers that vanish leave the run and the memory as they are', async () => {
  fs.writeFileSync(path.join(folder, 'stay.graph'), '[tone]\nmodule=Generator\nduration=100000\n[levels]\nmodule=Statistics\n[lines]\ntone.Signal=levels.Signal\n');
  const { studio, page } = await open('stay.graph');
  await page.getByRole('checkbox', { name: 'In real time' }).check();
  await page.getByRole('button', { name: 'Run', exact: true }).click();
  await page.getByText(/^running, /).waitFor();

  // Another browser looks on, and is killed.
  const other = await chromium.launchServer({ executablePath: BROWSER, headless: true });
  const second = await chromium.connect(other.wsEndpoint());
  const looking = await second.newPage();
  await looking.goto(studio.address);
  await looking.locator('.svelte-flow__node[data-id="tone"]').click();
  await looking.getByRole('button', { name: 'Show signal tone.Signal' }).click();
  await looking.locator('article canvas').waitFor();
  await other.kill();

  const port = Number(new URL(studio.address).port);
  const cookie = (await fetch(studio.address, { redirect: 'manual' })).headers.get('set-cookie').split(';')[0];
  const visitAll = async (from, to) => {
    for (let number = from; number < to; ++number) await visit(port, cookie, number);
    await sleep(500);
    return residentKilobytes(studio.child.pid);
  };
  const before = await visitAll(0, COUNT / 2);
  const after = await visitAll(COUNT / 2, COUNT);
  console.log(`# ${COUNT} connections: ${before} KB after the first half, ${after} KB in the end`);
  // The address sanitizer keeps what was freed.
  const isSanitized = fs.readFileSync(`/proc/${studio.child.pid}/maps`, 'utf8').includes('libasan');
  assert.ok(isSanitized || after - before < 4096, `${before} KB, then ${after} KB`);
  await page.getByText(/^running, /).waitFor();
  await node(page, 'tone').click();
  await page.getByRole('button', { name: 'Stop', exact: true }).click();
  await page.locator('section .verdict').getByText(/^interrupted/).waitFor();
});

test('the output of a run is the same with 0, 3 and 50 viewers, one of them frozen', async () => {
  const records = [];
  for (const viewers of [0, 3, 50]) {
    const name = `same${viewers}`;
    fs.writeFileSync(
      path.join(folder, `${name}.graph`),
      `[tone]\nmodule=Generator\nform=noise\nseed=7\nrate=20000\nstart=2026-03-01T12:00:00Z\nduration=3\n[record]\nmodule=XmlRecorder\nfile=${name}.xml\n[lines]\ntone.Signal=record.Signal\n`,
    );
    const { studio, page } = await open(`${name}.graph`);
    const port = Number(new URL(studio.address).port);
    const cookie = (await fetch(studio.address, { redirect: 'manual' })).headers.get('set-cookie').split(';')[0];
    const looking = Array.from({ length: viewers }, (_, number) => look(port, cookie, number, number === 1));
    await page.getByRole('checkbox', { name: 'In real time' }).check();
    await page.getByRole('button', { name: 'Run', exact: true }).click();
    await page.locator('section .verdict').getByText(/^complete/).waitFor();
    for (const { socket, frames } of looking) {
      assert.ok(frames > 0);
      socket.destroy();
    }
    records.push(fs.readFileSync(path.join(folder, `${name}.xml`)));
    await page.close();
    await studio.stop();
  }
  assert.ok(records[0].length > 100000);
  for (const record of records) assert.ok(record.equals(records[0]));
});

test('other addresses need a password that others cannot read, and encryption', () => {
  const start = (...args) =>
    spawnSync(process.env.STUDIO_PROGRAM, ['--language', 'en', '--page', process.env.STUDIO_PAGE, ...args, 'x.graph'], {
      cwd: folder,
      encoding: 'utf8',
      timeout: 30000,
    });
  fs.writeFileSync(path.join(folder, 'open'), 'a long password\n', { mode: 0o644 });
  fs.writeFileSync(path.join(folder, 'short'), 'short\n', { mode: 0o600 });
  fs.writeFileSync(path.join(folder, 'good'), 'a long password\n', { mode: 0o600 });
  for (const [args, reason] of [
    [[], /give --password-file, --certificate and --key/],
    [['--password-file', 'good'], /give --password-file, --certificate and --key/],
    [['--password-file', 'open', '--certificate', 'c', '--key', 'k'], /chmod 600/],
    [['--password-file', 'short', '--certificate', 'c', '--key', 'k'], /at least 12/],
    [['--password-file', 'good', '--certificate', 'c'], /both --certificate and --key/],
    [['--folder', 'nowhere', '--password-file', 'good', '--certificate', 'c', '--key', 'k'], /no folder 'nowhere'/],
  ]) {
    const { status, stderr } = start('--listen', '0.0.0.0', ...args);
    assert.equal(status, 2, args.join(' '));
    assert.match(stderr, reason);
  }
  for (const [args, reason] of [
    [['--listen', '0.0.0.0', '--password-file', 'good', '--certificate', 'none.pem', '--key', 'none.key'], /none\.pem/],
    [['--listen', '192.0.2.1', '--insecure'], /warning: whoever .*\n.* give another --port or none, and to --listen an address of this machine/],
  ]) {
    const { status, stderr } = start(...args);
    assert.equal(status, 1);
    assert.match(stderr, reason);
  }
});
