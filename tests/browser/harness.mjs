// What the console's tests share: programs started with their output kept,
// bounded waits, plain HTTP requests and a WebSocket reader, all on loopback.
import { spawn } from 'node:child_process';
import { once } from 'node:events';
import fs from 'node:fs';
import http from 'node:http';
import net from 'node:net';
import dgram from 'node:dgram';
import os from 'node:os';
import path from 'node:path';
import crypto from 'node:crypto';

export const STEP_MS = 20000;  // the longest any one step may take

export function fail(reason) {
  console.error(`FAIL: ${reason}`);
  process.exit(1);
}

export const sleep = (ms) => new Promise((r) => setTimeout(r, ms));

export async function waitFor(what, condition, ms = STEP_MS) {
  const end = Date.now() + ms;
  for (;;) {
    const value = await condition();
    if (value) return value;
    if (Date.now() > end) throw new Error(`timed out waiting for ${what}`);
    await sleep(50);
  }
}

// A scratch folder and the programs started in it, taken down together.
export class Workspace {
  constructor(prefix) {
    this.dir = fs.mkdtempSync(path.join(os.tmpdir(), prefix));
    this.children = [];
    this.cleanups = [];
  }

  // Starts a program and resolves with the first line of its standard output.
  async start(program, args, env, name, { shell } = {}) {
    const child = shell
      ? spawn('sh', ['-c', `${shell} && exec "$@"`, 'sh', program, ...args],
              { env: { ...process.env, ...env }, stdio: ['ignore', 'pipe', 'pipe'] })
      : spawn(program, args, { env: { ...process.env, ...env }, stdio: ['ignore', 'pipe', 'pipe'] });
    this.children.push(child);
    const logFile = path.join(this.dir, `${name}.log`);
    child.stderr.pipe(fs.createWriteStream(logFile));
    let out = '';
    child.stdout.on('data', (chunk) => { out += chunk; });
    await waitFor(`${name} to start`, () => out.includes('\n') || child.exitCode !== null);
    if (child.exitCode !== null) throw new Error(`${name} ended: ${fs.readFileSync(logFile, 'utf8')}`);
    return { child, firstLine: out.split('\n')[0], logFile, output: () => out };
  }

  async cleanUp() {
    for (const cleanup of this.cleanups) await cleanup().catch(() => {});
    for (const child of this.children) if (child.exitCode === null) child.kill('SIGTERM');
    fs.rmSync(this.dir, { recursive: true, force: true });
  }

  // The last lines of each program's log, for a failure report.
  dumpLogs(names) {
    for (const name of names) {
      const file = path.join(this.dir, `${name}.log`);
      if (fs.existsSync(file)) {
        console.error(`--- ${name} log (last lines)\n` +
                      fs.readFileSync(file, 'latin1').split('\n').slice(-30).join('\n'));
      }
    }
  }
}

export async function freeUdpPort() {
  const socket = dgram.createSocket('udp4');
  socket.bind(0, '127.0.0.1');
  await once(socket, 'listening');
  const { port } = socket.address();
  socket.close();
  return port;
}

// A plain HTTP request, for what the page itself never does.
export function request(url, { method = 'GET', body, headers = {} } = {}) {
  return new Promise((resolve, reject) => {
    const req = http.request(url, { method, headers, agent: false }, (res) => {
      const chunks = [];
      res.on('data', (chunk) => chunks.push(chunk));
      res.on('end', () => {
        const raw = Buffer.concat(chunks);
        resolve({ status: res.statusCode, headers: res.headers, body: raw.toString('utf8'), raw });
      });
    });
    req.on('error', reject);
    req.setTimeout(STEP_MS, () => req.destroy(new Error(`no answer from ${url}`)));
    req.end(body);
  });
}

// The most memory a process has held at once, in KiB.
export function peakKiB(pid) {
  const status = fs.readFileSync(`/proc/${pid}/status`, 'utf8');
  return Number(status.match(/VmHWM:\s+(\d+)/)[1]);
}

// A WebSocket client that reads every text message the server sends, or,
// with read: false, completes the handshake and then reads nothing at all.
export async function openSocket(base, token, { read = true } = {}) {
  const { hostname, port } = new URL(base);
  const socket = net.connect(Number(port), hostname);
  await once(socket, 'connect');
  const key = crypto.randomBytes(16).toString('base64');
  socket.write(`GET /ws?token=${token} HTTP/1.1\r\nHost: ${hostname}:${port}\r\nUpgrade: websocket\r\n` +
               `Connection: Upgrade\r\nSec-WebSocket-Version: 13\r\nSec-WebSocket-Key: ${key}\r\n\r\n`);
  const messages = [];
  const pieces = [];
  let buffer = Buffer.alloc(0);
  let upgraded = false;
  const client = { messages, socket, closed: false };
  socket.on('close', () => { client.closed = true; });
  socket.on('error', () => {});
  socket.on('data', (chunk) => {
    buffer = Buffer.concat([buffer, chunk]);
    if (!upgraded) {
      const end = buffer.indexOf('\r\n\r\n');
      if (end < 0) return;
      if (!buffer.subarray(0, end).toString().startsWith('HTTP/1.1 101')) throw new Error('no WebSocket');
      upgraded = true;
      buffer = buffer.subarray(end + 4);
      if (!read) socket.pause();
    }
    // Frames from a server are never masked.
    for (;;) {
      if (buffer.length < 2) return;
      let length = buffer[1] & 127, offset = 2;
      if (length === 126) { if (buffer.length < 4) return; length = buffer.readUInt16BE(2); offset = 4; }
      else if (length === 127) { if (buffer.length < 10) return; length = Number(buffer.readBigUInt64BE(2)); offset = 10; }
      if (buffer.length < offset + length) return;
      // A long message may come in fragments: a text frame, then
      // continuations, the last one marked final.
      const opcode = buffer[0] & 15, final = (buffer[0] & 128) !== 0;
      if (opcode === 1 || opcode === 0) {
        pieces.push(buffer.subarray(offset, offset + length));
        if (final) {
          messages.push(JSON.parse(Buffer.concat(pieces).toString('utf8')));
          pieces.length = 0;
        }
      }
      buffer = buffer.subarray(offset + length);
    }
  });
  await waitFor('the WebSocket handshake', () => upgraded);
  return client;
}
