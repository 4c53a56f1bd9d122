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
    '--delay', '20', '--exit-after', '300', '--slow-type', '02', '--slow-ms', '700'], env, 'unit');
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
    // The CSV export is what the table shows: its filter, its order.
    const csv = async () => (await page.evaluate(async () =>
      (await fetch(document.querySelector('#tableCsv').href)).text())).trim().split('\r\n');
    await page.fill('#tableFilter', first);
    await page.waitForFunction(() => document.querySelector('#tablePosition').textContent === '1–1 of 1');
    const filtered = await csv();
    assert.equal(filtered.length, 2, filtered.join('\n'));
    assert.ok(filtered[1].includes(first), filtered[1]);
    await page.fill('#tableFilter', '');
    await page.waitForFunction((n) => document.querySelector('#tablePosition').textContent.endsWith(`of ${n}`), expected);
    const lines = await csv();
    assert.equal(lines.length, Number(expected) + 1);
    assert.match(lines[0], /^NumeroIngresso,Descrizione,/);
    assert.equal(lines[1].split(',')[0], highest, 'the export is not sorted as the table');
  });

  check('a command string asked for shows its answer', async () => {
    await page.fill('input[data-argument="request-command"]', 'STATO?');
    await page.click('button[data-command="request-command"]');
    await waitJob('request-command');
    assert.match(await job('request-command').innerText(), /STATO:PRONTO/);
  });

  check('two clicks queue two requests; a third like the waiting one is refused', async () => {
    // The unit reads its programming slowly, so the first download is still
    // running when the other clicks come.
    for (let i = 0; i < 3; ++i) await page.click('button[data-command="download-prog"]');
    await page.waitForSelector('#jobs li[data-command="download-prog"][data-status="refused"]');
    await page.waitForFunction(() => [...document.querySelectorAll('#jobs li[data-command="download-prog"]')]
      .filter((li) => li.dataset.status === 'done').length === 3);
  });

  check('cancel: a waiting request is taken out, a running one abandoned, the rest kept', async () => {
    // The unit reads its programming slowly: the download is still running
    // when the cancels come.
    const asked = (code) => (unitLog().match(new RegExp(`<- AA\\{\\}0\\{\\}${code}\\{\\}`, 'g')) || []).length;
    const logBefore = asked('04');
    await page.click('button[data-command="download-prog"]');
    await page.click('button[data-command="download-log"]');
    await page.click('button[data-command="download-cam-events"]');
    await page.waitForSelector('#jobs li[data-command="download-cam-events"][data-status="queued"] button.cancel');
    await job('download-log').locator('button.cancel').click();
    await page.waitForSelector('#jobs li[data-command="download-log"][data-status="cancelled"]');
    assert.match(await job('download-log').innerText(),
                 /taken out of the queue before it was sent; 2 other requests stay queued/);
    await page.waitForFunction(() => /packets/.test(document.querySelector('#doing').textContent));
    await job('download-prog').locator('button.cancel').click();
    await page.waitForSelector('#jobs li[data-command="download-prog"][data-status="cancelled"]');
    assert.match(await job('download-prog').innerText(),
                 /abandoned while running after \d of 6 packets; 1 other request stays queued/);
    await waitJob('download-cam-events');
    assert.equal(asked('04'), logBefore, 'the log was asked for after all');
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

  check('the preview saves images only while recording; the file list pages', async () => {
    const snapshots = path.join(work, 'host', 'Snapshot');
    const saved = () => (fs.existsSync(snapshots) ? fs.readdirSync(snapshots) : [])
      .filter((n) => n.startsWith('preview-cam')).length;
    assert.equal(saved(), 0, 'watching saved images');
    await page.check('#record');
    for (const camera of ['1', '2']) await page.uncheck(`input[data-camera="${camera}"]`);
    await page.check('input[data-camera="3"]');
    await page.fill('#previewImages', '2');
    await page.click('#previewStart');
    await page.waitForFunction(() => [...document.querySelectorAll('#jobs li[data-command="preview"]')]
      .filter((li) => li.dataset.status === 'done').length === 2);
    assert.equal(saved(), 2);
    await page.uncheck('#record');
    await page.uncheck('input[data-camera="3"]');
    // Sixty more files than a page lists: the list moves a page at a time.
    for (let i = 0; i < 60; ++i) fs.writeFileSync(path.join(snapshots, `zz-${String(i).padStart(2, '0')}.jpg`), 'x');
    const total = fs.readdirSync(snapshots).length;
    await page.click('#mediaRefresh');
    const folder = '#media [data-folder="Snapshot"]';
    await page.waitForFunction(([f, n]) => document.querySelector(`${f} h4`).textContent.includes(` of ${n} `),
                               [folder, total]);
    assert.match(await page.textContent(`${folder} h4`), new RegExp(`1–50 of ${total} `));
    assert.equal(await page.locator(`${folder} li`).count(), 50);
    await page.click('button[data-page="Snapshot-next"]');
    await page.waitForFunction((f) => document.querySelector(`${f} h4`).textContent.includes('51–'), folder);
    assert.equal(await page.locator(`${folder} li`).count(), total - 50);
    assert.ok(await page.isVisible(`${folder} a:text-is("zz-59.jpg")`));
    await page.click('button[data-page="Snapshot-prev"]');
    await page.waitForFunction((f) => document.querySelector(`${f} h4`).textContent.includes('1–50'), folder);
    for (let i = 0; i < 60; ++i) fs.rmSync(path.join(snapshots, `zz-${String(i).padStart(2, '0')}.jpg`));
  });

  check('a clip on the unit: opened, stepped, sought, played, paused, closed', async () => {
    const clip = fs.readdirSync(path.join(work, 'unit', 'VideoAvi')).find((n) => n.endsWith('.avi'));
    const frame = () => page.getAttribute('#clipImage', 'src');
    const nextFrame = async (before) => {
      await page.waitForFunction((b) => !document.querySelector('#clipImage').hidden &&
                                        document.querySelector('#clipImage').src !== b, before);
      return frame();
    };
    await page.fill('#clipName', clip);
    await page.click('#clipOpen');
    const first = await nextFrame(null);
    assert.match(first, /^data:image\/jpeg;base64,\/9j\//);
    assert.equal(await page.textContent('#clipState'), `${clip} open`);
    await page.click('#clipControls [data-order="next"]');
    const second = await nextFrame(first);
    await page.click('#clipControls [data-order="previous"]');
    assert.equal(await nextFrame(second), first, 'a frame back is not the first frame');
    await page.fill('#clipSeek', '0.5');
    await page.click('#clipControls [data-order="seek"]');
    const sought = await nextFrame(first);
    assert.notEqual(sought, second);
    await waitFor('the seek at the unit', () => unitLog().includes('CurrentTimeFileVideo:0.5'));
    await page.fill('#clipQuality', '40');
    await page.click('#clipControls [data-order="quality"]');
    await waitFor('the quality at the unit', () => unitLog().includes('SetQualityImages:40'));
    // Played, it steps on frame by frame and stops at the clip's end.
    const stepsBefore = (unitLog().match(/NEXTFRAME:/g) || []).length;
    await page.click('#clipControls [data-order="play"]');
    await waitFor('the clip played to its end', () => (unitLog().match(/NEXTFRAME:/g) || []).length >= stepsBefore + 5);
    await page.click('#clipControls [data-order="pause"]');
    await waitFor('the pause at the unit', () => unitLog().includes('PAUSE:'));
    const snapshots = path.join(work, 'host', 'Snapshot');
    assert.ok(!fs.readdirSync(snapshots).some((n) => n.startsWith('playback-')), 'frames saved while not recording');
    await page.check('#record');
    const atPause = await frame();
    await page.click('#clipControls [data-order="previous"]');
    await nextFrame(atPause);
    await waitFor('the frame recorded', () => fs.readdirSync(snapshots).some((n) => n.startsWith('playback-')));
    await page.uncheck('#record');
    await page.click('#clipControls [data-order="close"]');
    await page.waitForSelector('#jobs li[data-command="playback"][data-status="done"]');
    assert.ok(unitLog().includes('CLOSE:'));
    assert.match(await page.textContent('#clipState'), /: done/);
  });

  check('a clip the unit does not have: "Reg Error", shown as such', async () => {
    await page.fill('#clipName', 'nosuch.avi');
    await page.click('#clipOpen');
    await page.waitForSelector('#jobs li[data-command="playback"][data-status="failed"]');
    assert.match(await page.textContent('#clipState'),
                 /nosuch\.avi: failed: the unit answered "Reg Error": it has no clip nosuch\.avi/);
  });

  check('a camera event links its snapshot and its clip: a click fetches the file', async () => {
    await page.selectOption('#tableName', 'CamEvents');
    await page.waitForSelector('#table a[data-fetch$=".jpg"]');
    assert.ok(await page.locator('#table button[data-play$=".avi"]').count() > 0, 'no clip to play');
    const name = await page.getAttribute('#table a[data-fetch$=".jpg"] >> nth=0', 'data-fetch');
    const fetched = page.locator(`#jobs li[data-command="download-media"]`);
    const before = await fetched.count();
    await page.click(`#table a[data-fetch="${name}"]`);
    await page.waitForFunction((n) => [...document.querySelectorAll('#jobs li[data-command="download-media"]')]
      .filter((li) => li.dataset.status === 'done').length > n, before);
    const arrived = path.join(work, 'host', 'Snapshot', name);
    await waitFor('the snapshot', () => fs.existsSync(arrived));
    assert.ok(fs.readFileSync(arrived).equals(fs.readFileSync(path.join(work, 'unit', 'Snapshot', name))));
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
    const fetched = () => page.locator('#jobs li[data-command="download-media"][data-status="done"]').count();
    const before = await fetched();
    for (const [i, name] of names.entries()) {
      await page.fill('input[data-argument="download-media"]', name);
      await page.click('button[data-command="download-media"]');
      await page.waitForFunction((n) => document.querySelectorAll(
        '#jobs li[data-command="download-media"][data-status="done"]').length === n, before + i + 1);
    }
    await page.click('#mediaRefresh');
    await page.waitForFunction((name) => [...document.querySelectorAll('#media a')].some((a) => a.textContent === name),
                                `${evil}.jpg`);
    // Opened, the unit's page is a download, never a page of the console.
    const heard = unitLog();
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
    assert.ok(!unitLog().slice(heard.length).includes('{}11{}'), 'a file of the unit erased the log');
    assert.equal(await page.evaluate(() => window.pwned), undefined, 'the unit\'s markup ran');
    assert.deepEqual(await page.evaluate(() => window.violations), []);
  });

  check('a camera the unit does not have ends the preview as failed, saying why', async () => {
    for (const camera of ['1', '2']) await page.uncheck(`input[data-camera="${camera}"]`);
    await page.check('input[data-camera="8"]');
    const before = unitLog().length;
    await page.click('#previewStart');
    await page.waitForSelector('#jobs li[data-command="preview"][data-status="failed"]');
    assert.match(await job('preview').innerText(), /camera 8: the unit answered "Reg Error"/);
    // The link does not go on asking for it.
    await new Promise((r) => setTimeout(r, 1000));
    assert.equal((unitLog().slice(before).match(/<- \{\}8\\r\\n/g) || []).length, 1, unitLog().slice(before));
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
      // The jobs, the preview and the player, where the work of the run shows.
      await page.evaluate(() => document.querySelector('#commands').scrollIntoView());
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
