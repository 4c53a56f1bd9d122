// camrelay console in headless Chromium against camrelay-unit on loopback:
// the page logs in, downloads, asks, uploads a picked file, previews two
// cameras and sends a typed string, and the unit's side shows each of them.
// Usage: node console_test.mjs CAMRELAY CAMRELAY_UNIT
// CAMRELAY_SCREENSHOT=file keeps a screenshot of the page at the end.
import { execFileSync } from 'node:child_process';
import fs from 'node:fs';
import path from 'node:path';
import assert from 'node:assert/strict';
import { createRequire } from 'node:module';
import { STEP_MS, Workspace, fail, freeUdpPort, request, waitFor } from './harness.mjs';

const require = createRequire(import.meta.url);
const here = path.dirname(new URL(import.meta.url).pathname);
const [camrelay, unitProgram] = process.argv.slice(2);
const chromiumPath = process.env.CAMRELAY_CHROMIUM || '/usr/bin/chromium';

if (!camrelay || !unitProgram) fail('usage: node console_test.mjs CAMRELAY CAMRELAY_UNIT');
if (!fs.existsSync(chromiumPath)) fail(`no Chromium at ${chromiumPath}: run scripts/install-deps`);
let chromium;
try {
  ({ chromium } = require(path.join(here, 'node_modules', 'playwright-core')));
} catch {
  fail(`playwright-core is not installed in ${here}: run scripts/install-deps`);
}

const workspace = new Workspace('camrelay-console-');
const work = workspace.dir;
let browser;
workspace.cleanups.push(async () => { if (browser) await browser.close(); });
const start = (...args) => workspace.start(...args);
const cleanUp = () => workspace.cleanUp();

function sqlite(db, query) {
  return execFileSync('sqlite3', [db, query], { encoding: 'utf8' }).trim();
}

const checks = [];
function check(name, body) { checks.push({ name, body }); }

// What a hostile unit keeps: names and contents that would be markup or
// script if the page ever took them for anything but text.
const evil = '<img src=x onerror="window.pwned=1">';
const trap = '<script>window.pwned=1;fetch("/api/run"+location.search,{method:"POST",' +
             'body:JSON.stringify({command:"erase-log"})})</script>';
function plantHostileFiles(unitDir) {
  fs.mkdirSync(path.join(unitDir, 'Snapshot'), { recursive: true });
  fs.writeFileSync(path.join(unitDir, 'Snapshot', `${evil}.jpg`), '\xff\xd8\xff\xe0', 'latin1');
  fs.writeFileSync(path.join(unitDir, 'Snapshot', 'x.html'), trap);
  fs.writeFileSync(path.join(unitDir, 'Snapshot', 'x.svg'), `<svg xmlns="http://www.w3.org/2000/svg">${trap}</svg>`);
}

try {
  const env = { XDG_CONFIG_HOME: path.join(work, 'config'), CAMRELAY_CODE: '123456' };
  plantHostileFiles(path.join(work, 'unit'));
  const unit = await start(unitProgram, ['--dir', path.join(work, 'unit'), '--udp', '--port', '0', '-v',
    '--delay', '20', '--exit-after', '300'], env, 'unit');
  const unitPort = unit.firstLine.match(/:(\d+)$/)[1];
  fs.mkdirSync(path.join(work, 'host'));
  // The unit given by name: the panel shows addresses, never the name.
  const consoleRun = await start(camrelay, ['--host', 'localhost', '--port', unitPort, '--udp',
    '--local-port', String(await freeUdpPort()), '--dir', path.join(work, 'host'), 'console'], env, 'console');
  const url = consoleRun.firstLine;
  assert.match(url, /^http:\/\/127\.0\.0\.1:\d+\/\?token=[0-9a-f]{64}$/);
  const base = url.replace(/\/\?token=.*/, '');
  const token = url.replace(/.*token=/, '');
  const unitLog = () => fs.readFileSync(unit.logFile, 'latin1');

  check('a request without the right token is refused and nothing acts', async () => {
    for (const target of ['/', '/?token=', `/?token=${'0'.repeat(64)}`, '/api/commands', '/api/tables',
                          `/api/table?name=Ingressi&token=${token.slice(1)}x`]) {
      assert.equal((await request(base + target)).status, 403, target);
    }
    const before = unitLog();
    const run = await request(`${base}/api/run?token=bad`, { method: 'POST', body: '{"command":"login"}' });
    assert.equal(run.status, 403);
    const socket = await request(`${base}/ws`, { headers: { Connection: 'Upgrade', Upgrade: 'websocket',
      'Sec-WebSocket-Version': '13', 'Sec-WebSocket-Key': 'dGhlIHNhbXBsZSBub25jZQ==' } });
    assert.equal(socket.status, 403);
    await new Promise((r) => setTimeout(r, 500));
    assert.equal(unitLog(), before, 'the unit heard something');
    assert.equal((await request(`${base}/api/commands?token=${token}`)).status, 200);
  });

  check('names from the page keep to their folder', async () => {
    for (const name of ['../VideoSentrova.db', '..%2FVideoSentrova.db', '/etc/passwd', '..']) {
      const media = await request(`${base}/api/media/file?folder=Snapshot&name=${name}&token=${token}`);
      assert.equal(media.status, 400, name);
    }
    assert.equal((await request(`${base}/api/media/file?folder=..&name=VideoSentrova.db&token=${token}`)).status, 400);
    const upload = await request(`${base}/api/firmware?name=..%2Fx.bin&token=${token}`, { method: 'POST', body: 'x' });
    assert.equal(upload.status, 400);
    const media = await request(`${base}/api/run?token=${token}`, { method: 'POST',
      body: JSON.stringify({ command: 'download-media', argument: '../x.jpg' }) });
    assert.equal(media.status, 400);
    assert.match(JSON.parse(media.body).error, /not a plain file name/);
  });

  browser = await chromium.launch({ executablePath: chromiumPath, headless: true,
    args: ['--no-sandbox', '--disable-gpu', '--disable-dev-shm-usage'] });
  const page = await browser.newPage({ viewport: { width: 1400, height: 1500 } });
  page.setDefaultTimeout(STEP_MS);
  const pageErrors = [];
  page.on('pageerror', (error) => pageErrors.push(error.message));
  // Anything the page's policy blocks is counted: the page itself must never
  // need it, and what a unit sends must never try it.
  await page.addInitScript(() => {
    window.violations = [];
    document.addEventListener('securitypolicyviolation',
      (e) => window.violations.push(`${e.violatedDirective} ${e.blockedURI}`));
  });
  await page.goto(url);
  const job = (command) => page.locator(`#jobs li[data-command="${command}"]`).first();
  const waitJob = async (command) => {
    await page.waitForSelector(`#jobs li[data-command="${command}"][data-status="done"], ` +
                               `#jobs li[data-command="${command}"][data-status="failed"]`);
    assert.equal(await job(command).getAttribute('data-status'), 'done', await job(command).innerText());
  };

  check('before anything happened the panel says "Non connesso" in red', async () => {
    await page.waitForSelector('#live.on');
    assert.equal(await page.textContent('#pct'), 'Stato connessione: Non connesso');
    assert.equal(await page.$eval('#pct', (n) => getComputedStyle(n).color), 'rgb(255, 0, 0)');
    assert.equal(await page.textContent('[data-field="LblTypeCon"]'), 'Tipo di connessione: UDP');
    assert.ok(await page.isVisible('#sendRow'), 'the send row shows on UDP');
    assert.equal(await page.textContent('[data-field="LblSendStr"]'), 'Invia una stringa al VideoSentrova:');
  });

  check('login: state 18 and "Connesso con 127.0.0.1" in green', async () => {
    await page.click('button[data-command="login"]');
    await waitJob('login');
    await page.waitForFunction(() => document.querySelector('#timeline').textContent.includes('18 cConnessioneOK'));
    await page.waitForFunction(() => document.querySelector('#pct').textContent ===
                                     'Stato connessione: Connesso con 127.0.0.1');
    assert.equal(await page.$eval('#pct', (n) => getComputedStyle(n).color), 'rgb(0, 128, 0)');
    for (const field of ['lblRemoteIp', 'lblRemoteIpOut']) {
      assert.equal(await page.textContent(`[data-field="${field}"]`), 'Indirizzo IP remoto: 127.0.0.1', field);
    }
    assert.equal(await page.textContent('[data-field="lblLocalIp"]'), 'Indirizzo IP locale: 127.0.0.1');
  });

  check('an upload from tables nothing has filled is refused', async () => {
    page.once('dialog', (dialog) => dialog.accept());
    await page.click('button[data-command="upload-prog"]');
    await page.waitForSelector('#jobs li[data-command="upload-prog"][data-status="failed"]');
    assert.match(await job('upload-prog').innerText(), /there is no database at .*download from the unit first/);
  });

  check('the programming downloaded shows as rows of its table', async () => {
    await page.click('button[data-command="download-prog"]');
    await waitJob('download-prog');
    await page.selectOption('#tableName', 'Ingressi');
    const expected = sqlite(path.join(work, 'unit', 'VideoSentrova.db'), 'SELECT count(*) FROM Ingressi');
    await page.waitForFunction((n) => document.querySelector('#tablePosition').textContent.endsWith(`of ${n}`), expected);
    assert.equal(await page.locator('#table tbody tr').count(), Number(expected));
    const first = sqlite(path.join(work, 'unit', 'VideoSentrova.db'), 'SELECT Descrizione FROM Ingressi LIMIT 1');
    assert.equal(await page.textContent('#table tbody tr:first-child td:nth-child(2)'), first);
    // Sorted by a click on a column, filtered by what is typed.
    await page.click('#table th:text-is("NumeroIngresso")');
    await page.click('#table th:text-is("NumeroIngresso")');
    await page.waitForSelector('#table th.sorted.desc');
    const highest = sqlite(path.join(work, 'unit', 'VideoSentrova.db'), 'SELECT max(NumeroIngresso) FROM Ingressi');
    await page.waitForFunction((n) => document.querySelector('#table tbody td').textContent === n, highest);
    await page.fill('#tableFilter', first);
    await page.waitForFunction(() => document.querySelector('#tablePosition').textContent === '1–1 of 1');
    await page.fill('#tableFilter', '');
    // The CSV export: a header and one line per row.
    const csv = await page.evaluate(async () => (await fetch(document.querySelector('#tableCsv').href)).text());
    const lines = csv.trim().split('\r\n');
    assert.equal(lines.length, Number(expected) + 1);
    assert.match(lines[0], /^NumeroIngresso,Descrizione,/);
  });

  check('a command string asked for shows its answer', async () => {
    await page.fill('input[data-argument="request-command"]', 'STATO?');
    await page.click('button[data-command="request-command"]');
    await waitJob('request-command');
    assert.match(await job('request-command').innerText(), /STATO:PRONTO/);
  });

  check('two clicks queue two requests; a third like the waiting one is refused', async () => {
    // The unit's answers are held a little, so the first download is still
    // running when the other clicks come.
    for (let i = 0; i < 3; ++i) await page.click('button[data-command="download-log"]');
    await page.waitForSelector('#jobs li[data-command="download-log"][data-status="refused"]');
    await page.waitForFunction(() => [...document.querySelectorAll('#jobs li[data-command="download-log"]')]
      .filter((li) => li.dataset.status === 'done').length === 2);
  });

  check('a firmware file picked on the page arrives byte for byte', async () => {
    const firmware = path.join(work, 'centrale-2.4.bin');
    fs.writeFileSync(firmware, Buffer.from(Array.from({ length: 150000 }, (_, i) => (i * 7919) % 256)));
    // Picked, then confirmed with its name and size, then sent.
    let asked = '';
    page.once('dialog', (dialog) => { asked = dialog.message(); dialog.accept(); });
    await page.setInputFiles('input[data-argument="upload-firmware"]', firmware);
    await waitFor('the question', () => asked);
    assert.match(asked, /centrale-2\.4\.bin \(150.000 bytes\)/);
    await waitJob('upload-firmware');
    assert.ok(fs.readFileSync(path.join(work, 'unit', 'Firmware', 'centrale-2.4.bin'))
      .equals(fs.readFileSync(firmware)), 'the unit holds other bytes');
  });

  check('a preview of two cameras shows two JPEG images', async () => {
    await page.check('input[data-camera="1"]');
    await page.check('input[data-camera="2"]');
    await page.fill('#previewImages', '2');
    await page.click('#previewStart');
    await waitJob('preview');
    const images = await page.$$eval('#images img', (all) => all.map((img) => ({
      alt: img.alt, jpeg: img.src.startsWith('data:image/jpeg;base64,/9j/'), width: img.naturalWidth })));
    assert.deepEqual(images.map((i) => i.alt).sort(), ['camera 1', 'camera 2']);
    for (const image of images) assert.ok(image.jpeg && image.width > 0, JSON.stringify(image));
  });

  check('a string typed in the send row arrives at the unit', async () => {
    await page.fill('#TxtSendStr', 'PROVA-RIGA-42');
    await page.click('#CmdSendStr');
    await waitFor('the unit to receive the typed string', () => unitLog().includes('<- PROVA-RIGA-42'));
  });

  check('erasing the log asks first, naming the unit; no means nothing is sent', async () => {
    let asked = '';
    page.once('dialog', (dialog) => { asked = dialog.message(); dialog.dismiss(); });
    await page.click('button[data-command="erase-log"]');
    await waitFor('the question', () => asked);
    assert.match(asked, new RegExp(`^Erase the event log on the unit (localhost|127\\.0\\.0\\.1):${unitPort}`));
    await new Promise((r) => setTimeout(r, 300));
    assert.equal(await page.locator('#jobs li[data-command="erase-log"]').count(), 0);
    page.once('dialog', (dialog) => dialog.accept());
    await page.click('button[data-command="erase-log"]');
    await waitJob('erase-log');
  });

  check('a hostile unit: names, answers and files with markup stay text and never run', async () => {
    // A command answer that echoes markup, asked with Enter in the field.
    await page.fill('input[data-argument="request-command"]', evil);
    await page.press('input[data-argument="request-command"]', 'Enter');
    await page.waitForFunction(() => [...document.querySelectorAll('#jobs li[data-command="request-command"]')]
      .filter((li) => li.dataset.status === 'done').length === 2);
    assert.ok((await job('request-command').innerText()).includes(`ECHO:${evil}`));
    const names = [`${evil}.jpg`, 'x.html', 'x.svg'];
    for (const [i, name] of names.entries()) {
      await page.fill('input[data-argument="download-media"]', name);
      await page.click('button[data-command="download-media"]');
      await page.waitForFunction((n) => document.querySelectorAll(
        '#jobs li[data-command="download-media"][data-status="done"]').length === n, i + 1);
    }
    await page.click('#mediaRefresh');
    await page.waitForFunction((name) => [...document.querySelectorAll('#media a')].some((a) => a.textContent === name),
                                `${evil}.jpg`);
    // Opened, the unit's page is a download, never a page of the console.
    const before = unitLog();
    for (const name of ['x.html', 'x.svg']) {
      const href = await page.getAttribute(`#media a:text-is("${name}")`, 'href');
      const other = await browser.newPage();
      const download = other.waitForEvent('download', { timeout: 5000 }).catch(() => null);
      await other.goto(new URL(href, url).href).catch(() => {});
      assert.ok(await download, `${name} opened as a page`);
      assert.equal(await other.evaluate(() => window.pwned), undefined, `${name} ran`);
      await other.close();
    }
    await new Promise((r) => setTimeout(r, 500));
    assert.ok(!unitLog().slice(before.length).includes('{}11{}'), 'a file of the unit erased the log');
    assert.equal(await page.evaluate(() => window.pwned), undefined, 'the unit\'s markup ran');
    assert.deepEqual(await page.evaluate(() => window.violations), []);
  });

  check('a camera the unit does not have ends the preview as failed, saying why', async () => {
    for (const camera of ['1', '2']) await page.uncheck(`input[data-camera="${camera}"]`);
    await page.check('input[data-camera="8"]');
    await page.click('#previewStart');
    await page.waitForSelector('#jobs li[data-command="preview"][data-status="failed"]');
    assert.match(await job('preview').innerText(), /camera 8: the unit answered "Reg Error"/);
  });

  check('the access code never reaches the page', async () => {
    const content = await page.content();
    assert.ok(!content.includes('123456'), 'the code is in the page');
    // Nor does its scrambled form, which the unit, and so anyone, can undo.
    const sent = await page.textContent('[data-field="txtTxData"]');
    assert.ok(/AA\{\}\d+\{\}\d\d\{\}\*{6}/.test(sent), 'no opening message in the TX box');
    assert.ok(!/AA\{\}\d+\{\}\d\d\{\}(?!\*{6})[^\r\n]{7,}/.test(sent), 'a scrambled code in the TX box');
  });

  check('when the console is gone the page says so and its controls wait', async () => {
    if (process.env.CAMRELAY_SCREENSHOT) {
      await page.setViewportSize({ width: 1280, height: 800 });
      await page.evaluate(() => window.scrollTo(0, 0));
      await page.screenshot({ path: process.env.CAMRELAY_SCREENSHOT });
    }
    consoleRun.child.kill('SIGTERM');
    await page.waitForFunction(() => document.querySelector('#live').textContent.includes('not running'));
    assert.ok(await page.isDisabled('button[data-command="login"]'));
  });

  for (const { name, body } of checks) {
    await body();
    console.log(`ok - ${name}`);
  }
  assert.deepEqual(pageErrors, [], 'the page raised errors');
  await cleanUp();
  console.log(`all ${checks.length} checks passed`);
} catch (error) {
  console.error(error.stack || error);
  workspace.dumpLogs(['console', 'unit']);
  await cleanUp();
  process.exit(1);
}
