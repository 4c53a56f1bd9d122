// camrelay console attacked over HTTP on loopback, as a hostile local program
// would: bodies sent before the token is checked, descriptors exhausted, a
// WebSocket that never reads, files whose names and contents are hostile, a
// logging-in page watched for the access code, --open watched through every
// process's command line.
// Usage: node http_test.mjs CAMRELAY CAMRELAY_UNIT
import fs from 'node:fs';
import net from 'node:net';
import path from 'node:path';
import assert from 'node:assert/strict';
import { Workspace, fail, freeUdpPort, openSocket, peakKiB, request, sleep, waitFor } from '../browser/harness.mjs';

const [camrelay, unitProgram] = process.argv.slice(2);
if (!camrelay || !unitProgram) fail('usage: node http_test.mjs CAMRELAY CAMRELAY_UNIT');

const work = new Workspace('camrelay-http-');
const env = { XDG_CONFIG_HOME: path.join(work.dir, 'config'), CAMRELAY_CODE: '123456' };
const hostDir = path.join(work.dir, 'host');
fs.mkdirSync(hostDir);

async function startConsole(name, extra = [], options = {}) {
  const run = await work.start(camrelay, ['--host', '127.0.0.1', '--port', unitPort, '--udp',
    '--local-port', String(await freeUdpPort()), '--dir', hostDir, 'console', ...extra],
  { ...env, ...(options.env || {}) }, name, options);
  const url = run.firstLine;
  return { ...run, url, base: url.replace(/\/\?token=.*/, ''), token: url.replace(/.*token=/, '') };
}

// Opens a connection and sends these bytes; resolves with what came back
// once the server answered and closed, or after `ms`.
function raw(base, head, { bodyBytes = 0, ms = 10000 } = {}) {
  const { hostname, port } = new URL(base);
  return new Promise((resolve) => {
    const socket = net.connect(Number(port), hostname);
    let answer = '';
    let sent = 0;
    const chunk = Buffer.alloc(1 << 20, 0x41);
    const done = () => { clearTimeout(timer); socket.destroy(); resolve({ answer, sent }); };
    const timer = setTimeout(done, ms);
    socket.on('data', (d) => { answer += d; });
    socket.on('close', done);
    socket.on('error', done);
    socket.on('connect', () => {
      socket.write(head);
      const pump = () => {
        while (sent < bodyBytes && !socket.destroyed) {
          sent += chunk.length;
          if (!socket.write(chunk)) return socket.once('drain', pump);
        }
      };
      pump();
    });
  });
}

const checks = [];
function check(name, body) { checks.push({ name, body }); }

let unit, consoleRun, unitPort;

check('the token and the route are checked on the headers, before any body is read', async () => {
  const { base, token, child } = consoleRun;
  const before = peakKiB(child.pid);
  const huge = 250 * 1024 * 1024;
  // Four clients announce 250 MiB without the token and send 32 MiB each.
  const answers = await Promise.all([0, 1, 2, 3].map(() => raw(base,
    `POST /api/run?token=bad HTTP/1.1\r\nHost: x\r\nContent-Length: ${huge}\r\n\r\n`, { bodyBytes: 32 << 20 })));
  for (const { answer } of answers) assert.match(answer, /^HTTP\/1\.1 403/);
  const grown = peakKiB(child.pid) - before;
  console.log(`  four 250 MiB bodies without the token: the console grew by ${grown} KiB`);
  assert.ok(grown < 16 * 1024, `the console grew by ${grown} KiB`);
  // With the token, each route takes only the body it needs.
  const tooBig = await raw(base, `POST /api/run?token=${token} HTTP/1.1\r\nHost: x\r\nContent-Length: ${1 << 20}\r\n\r\n`);
  assert.match(tooBig.answer, /^HTTP\/1\.1 413/);
  const chunked = await raw(base, `POST /api/send-row?token=${token} HTTP/1.1\r\nHost: x\r\n` +
                                  `Transfer-Encoding: chunked\r\n\r\n100000\r\n`, { bodyBytes: 2 << 20 });
  assert.match(chunked.answer, /^HTTP\/1\.1 413/);
  const firmware = await raw(base, `POST /api/firmware?name=big.bin&token=${token} HTTP/1.1\r\nHost: x\r\n` +
                                   `Content-Length: ${huge}\r\n\r\n`);
  assert.match(firmware.answer, /^HTTP\/1\.1 413/);
  const nowhere = await raw(base, `POST /api/nowhere?token=${token} HTTP/1.1\r\nHost: x\r\nContent-Length: 10\r\n\r\n`);
  assert.match(nowhere.answer, /^HTTP\/1\.1 404/);
  assert.equal((await request(`${base}/api/commands?token=${token}`)).status, 200);
});

check('files that arrived are never active content, and links lead nowhere', async () => {
  const { base, token } = consoleRun;
  const snapshots = path.join(hostDir, 'Snapshot');
  fs.mkdirSync(snapshots, { recursive: true });
  const script = '<script>fetch("/api/run"+location.search,{method:"POST",body:"{}"})</script>';
  const hostile = { 'x.html': script, 'x.svg': `<svg xmlns="http://www.w3.org/2000/svg">${script}</svg>`,
                    'x.js': 'alert(1)', 'x.jpg.html': script, 'a";filename=b.html': script,
                    'cam.JPG': '\xff\xd8\xff' };
  for (const [name, content] of Object.entries(hostile)) fs.writeFileSync(path.join(snapshots, name), content, 'latin1');
  fs.symlinkSync(path.join(hostDir, 'VideoSentrova.db'), path.join(snapshots, 'db.jpg'));
  fs.symlinkSync('/etc/passwd', path.join(snapshots, 'passwd.jpg'));
  const get = (name) => request(`${base}/api/media/file?folder=Snapshot&name=${encodeURIComponent(name)}&token=${token}`);
  for (const name of ['x.html', 'x.svg', 'x.js', 'x.jpg.html', 'a";filename=b.html']) {
    const answer = await get(name);
    assert.equal(answer.status, 200, name);
    assert.equal(answer.headers['content-type'], 'application/octet-stream', name);
    assert.match(answer.headers['content-disposition'], /^attachment; filename="[^"\r\n]*"; filename\*=UTF-8''/, name);
    assert.equal(answer.headers['x-content-type-options'], 'nosniff', name);
  }
  // A name cannot end the field it is quoted in, nor add one.
  assert.equal((await get('a";filename=b.html')).headers['content-disposition'],
               'attachment; filename="a__filename_b.html"; filename*=UTF-8\'\'a%22%3Bfilename%3Db.html');
  const jpeg = await get('cam.JPG');
  assert.equal(jpeg.headers['content-type'], 'image/jpeg');
  assert.equal(jpeg.headers['x-content-type-options'], 'nosniff');
  for (const name of ['db.jpg', 'passwd.jpg']) assert.equal((await get(name)).status, 404, name);
  const listed = JSON.parse((await request(`${base}/api/media?token=${token}`)).body).Snapshot.files.map((f) => f.name);
  assert.ok(!listed.includes('db.jpg') && !listed.includes('passwd.jpg'), listed.join(', '));
  // Every answer says what it is, the page included, and the page runs its
  // own script only.
  const page = await request(`${base}/?token=${token}`);
  assert.equal(page.headers['x-content-type-options'], 'nosniff');
  assert.match(page.headers['content-security-policy'], /script-src 'self'[;]/);
  assert.doesNotMatch(page.headers['content-security-policy'], /unsafe-inline|\*/);
  for (const target of ['/?token=bad', `/api/table?name=Nothing&token=${token}`])
    assert.equal((await request(base + target)).headers['x-content-type-options'], 'nosniff', target);
});

check('the access code never reaches the page, plain or scrambled, over many logins', async () => {
  const { base, token } = consoleRun;
  const socket = await openSocket(base, token);
  const logins = 40;
  for (let i = 0; i < logins; ++i) {
    const { id } = JSON.parse((await request(`${base}/api/run?token=${token}`, { method: 'POST',
      body: JSON.stringify({ command: 'login' }) })).body);
    await waitFor(`login ${i}`, () => socket.messages.some((m) => m.type === 'job' && m.id === id && m.status === 'done'));
  }
  await sleep(300);  // the panel's last update
  // The codes the unit received, unescaped from its log.
  const codes = fs.readFileSync(unit.logFile, 'latin1').split('\n')
    .filter((line) => line.startsWith('<- AA{}0{}00{}'))
    .map((line) => line.slice('<- AA{}0{}00{}'.length)
      .replace(/\\(x[0-9a-f]{2}|r|n|\\)/g, (_, e) => (e === 'r' ? '\r' : e === 'n' ? '\n' : e === '\\' ? '\\'
        : String.fromCharCode(parseInt(e.slice(1), 16)))));
  assert.ok(codes.length >= logins, `the unit logged ${codes.length} logins`);
  assert.ok(codes.some((c) => /[\r\n]/.test(c)), 'no scrambled code held a line break: try more logins');
  const decoder = new TextDecoder('windows-1252');
  const traffic = JSON.stringify(socket.messages);
  assert.ok(!traffic.includes('123456'), 'the plain code reached the page');
  for (const code of codes) {
    const text = decoder.decode(Buffer.from(code, 'latin1'));
    // Any eight bytes in a row of it would give away most of the code.
    for (let at = 0; at + 8 <= text.length; ++at) {
      const piece = text.slice(at, at + 8);
      assert.ok(!traffic.includes(JSON.stringify(piece).slice(1, -1)),
                `part of a scrambled code reached the page: ${JSON.stringify(piece)}`);
    }
  }
  socket.socket.destroy();
});

check('the player, the cancel and the record switch take only what they expect', async () => {
  const { base, token } = consoleRun;
  const post = async (route, body) => {
    const answer = await request(`${base}${route}?token=${token}`, { method: 'POST', body: JSON.stringify(body) });
    return { status: answer.status, error: JSON.parse(answer.body).error };
  };
  const before = fs.readFileSync(unit.logFile, 'latin1');
  // A seek or a quality becomes the text of a request: a number, and a sane one.
  for (const value of [-1, 1e300]) {
    assert.match((await post('/api/playback', { order: 'seek', value })).error, /value: a number from 0/, String(value));
  }
  assert.match((await post('/api/playback', { order: 'quality', value: 'NEXTFRAME:' })).error, /not the JSON expected/);
  assert.match((await post('/api/playback', { order: 'rewind' })).error, /unknown order 'rewind'/);
  assert.match((await post('/api/playback', { order: 'next' })).error, /no clip is open/);
  assert.match((await post('/api/cancel', { id: 99999 })).error, /that job is over/);
  assert.equal((await post('/api/cancel', { id: 'x' })).status, 400);
  assert.equal((await post('/api/record', { on: 'yes' })).status, 400);
  // A clip's name is checked as the command line checks it, before it is sent.
  assert.match((await post('/api/run', { command: 'playback', argument: 'PAUSE:.avi' })).error, /not a clip name/);
  await sleep(300);
  assert.equal(fs.readFileSync(unit.logFile, 'latin1'), before, 'the unit heard something');
});

check('a WebSocket that never reads costs the console a bounded amount of memory', async () => {
  const { base, token, child } = consoleRun;
  const stalled = await Promise.all([0, 1, 2, 3].map(() => openSocket(base, token, { read: false })));
  const before = peakKiB(child.pid);
  const { id } = JSON.parse((await request(`${base}/api/run?token=${token}`, { method: 'POST',
    body: JSON.stringify({ command: 'preview', argument: '1,2,3,4', images: 100000 }) })).body);
  assert.ok(id > 0);
  await sleep(8000);
  await request(`${base}/api/preview/stop?token=${token}`, { method: 'POST', body: '{}' });
  const peak = peakKiB(child.pid);
  console.log(`  4 WebSockets that never read, 8 s of preview: peak ${peak} KiB (${peak - before} KiB more)`);
  assert.ok(peak - before < 24 * 1024, `the console grew by ${peak - before} KiB`);
  for (const s of stalled) s.socket.destroy();
  await sleep(500);
  assert.equal((await request(`${base}/api/commands?token=${token}`)).status, 200);
});

check('two firmware files of the same name: each job sends its own', async () => {
  const { base, token } = consoleRun;
  const socket = await openSocket(base, token);
  const first = Buffer.alloc(20000, 1), second = Buffer.alloc(30000, 2);
  const ids = [];
  for (const content of [first, second]) {
    const answer = await request(`${base}/api/firmware?name=same.bin&token=${token}`, { method: 'POST', body: content });
    assert.equal(answer.status, 200, answer.body);
    ids.push(JSON.parse(answer.body).id);
  }
  const received = path.join(work.dir, 'unit', 'Firmware', 'same.bin');
  for (const id of ids) {
    const end = await waitFor(`firmware job ${id}`, () => socket.messages.find((m) => m.type === 'job' && m.id === id &&
                                                          !['queued', 'running'].includes(m.status)), 60000);
    assert.equal(end.status, 'done', JSON.stringify(end));
  }
  assert.ok(fs.readFileSync(received).equals(second), 'the unit holds other bytes than the second file');
  socket.socket.destroy();
});

check('--open hands the browser a private file: the token is on no command line', async () => {
  const bin = path.join(work.dir, 'bin'), seen = path.join(work.dir, 'seen');
  fs.mkdirSync(bin);
  fs.mkdirSync(seen);
  fs.writeFileSync(path.join(bin, 'xdg-open'), `#!/bin/sh
for p in /proc/[0-9]*; do tr '\\0' ' ' < "$p/cmdline" 2>/dev/null; echo; done > "${seen}/processes"
printf '%s\\n' "$@" > "${seen}/arguments"
cat "$1" > "${seen}/page"
stat -c %a "$1" "$(dirname "$1")" > "${seen}/modes"
`, { mode: 0o755 });
  const opened = await startConsole('opened', ['--open'], { env: { PATH: `${bin}:${process.env.PATH}` } });
  await waitFor('the opener to run', () => fs.existsSync(path.join(seen, 'modes')) &&
                                           fs.readFileSync(path.join(seen, 'modes'), 'utf8').split('\n').length > 2);
  const processes = fs.readFileSync(path.join(seen, 'processes'), 'utf8');
  assert.ok(processes.includes('xdg-open'), 'the opener did not see itself');
  assert.ok(!processes.includes(opened.token), 'the token is on a command line');
  assert.ok(!fs.readFileSync(path.join(seen, 'arguments'), 'utf8').includes(opened.token));
  assert.ok(fs.readFileSync(path.join(seen, 'page'), 'utf8').includes(opened.url), 'the page does not lead to the console');
  assert.deepEqual(fs.readFileSync(path.join(seen, 'modes'), 'utf8').trim().split('\n'), ['600', '700']);
  opened.child.kill('SIGTERM');
});

check('out of descriptors, the console keeps accepting once idle connections time out', async () => {
  const limited = await startConsole('limited', [], { shell: 'ulimit -n 64' });
  const idle = [];
  for (let i = 0; i < 60; ++i) {
    const socket = net.connect(Number(new URL(limited.base).port), '127.0.0.1');
    socket.on('error', () => {});
    idle.push(socket);
  }
  await sleep(1000);
  // The idle clients say nothing and never go: the server must let them go.
  const answer = await request(`${limited.base}/api/commands?token=${limited.token}`);
  assert.equal(answer.status, 200);
  for (const socket of idle) socket.destroy();
  await sleep(300);
  assert.equal((await request(`${limited.base}/api/commands?token=${limited.token}`)).status, 200);
  limited.child.kill('SIGTERM');
});

try {
  unit = await work.start(unitProgram, ['--dir', path.join(work.dir, 'unit'), '--udp', '--port', '0', '-v',
    '--exit-after', '300'], env, 'unit');
  unitPort = unit.firstLine.match(/:(\d+)$/)[1];
  consoleRun = await startConsole('console');
  for (const { name, body } of checks) {
    await body();
    console.log(`ok - ${name}`);
  }
  await work.cleanUp();
  console.log(`all ${checks.length} checks passed`);
} catch (error) {
  console.error(error.stack || error);
  work.dumpLogs(['console', 'unit', 'limited', 'opened']);
  await work.cleanUp();
  process.exit(1);
}
