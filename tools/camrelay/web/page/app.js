// The console page: it shows what the server publishes on the WebSocket and
// turns clicks into requests. Every request carries the page's token.
'use strict';

const token = new URLSearchParams(location.search).get('token') || '';
const $ = (id) => document.getElementById(id);

function api(path, params = {}) {
  const query = new URLSearchParams({ ...params, token });
  return `${path}?${query}`;
}

async function post(path, body, params = {}) {
  const isFile = body instanceof Blob;
  const response = await fetch(api(path, params), {
    method: 'POST',
    headers: { 'Content-Type': isFile ? 'application/octet-stream' : 'application/json' },
    body: isFile ? body : JSON.stringify(body),
  });
  const answer = await response.json().catch(() => ({ error: `HTTP ${response.status}` }));
  if (!response.ok) throw new Error(answer.error || `HTTP ${response.status}`);
  return answer;
}

async function get(path, params) {
  const response = await fetch(api(path, params));
  const answer = await response.json();
  if (!response.ok) throw new Error(answer.error || `HTTP ${response.status}`);
  return answer;
}

function element(tag, attributes = {}, ...children) {
  const node = document.createElement(tag);
  for (const [key, value] of Object.entries(attributes)) {
    if (key === 'text') node.textContent = value;
    else if (key.startsWith('on')) node.addEventListener(key.slice(2), value);
    else node.setAttribute(key, value);
  }
  node.append(...children);
  return node;
}

// ---- The panel. -------------------------------------------------------------

const panel = {};

// The link passes colours with red in the low byte.
function cssColour(value) {
  const red = value & 255, green = (value >> 8) & 255, blue = (value >> 16) & 255;
  return `rgb(${red}, ${green}, ${blue})`;
}

function showBox(node, text) {
  const atBottom = node.scrollTop + node.clientHeight >= node.scrollHeight - 4;
  node.textContent = text.replace(/^\r\n/, '');
  if (atBottom) node.scrollTop = node.scrollHeight;
}

function applyPanel(fields) {
  Object.assign(panel, fields);
  for (const node of document.querySelectorAll('[data-field]')) {
    const name = node.dataset.field;
    if (!(name in fields)) continue;
    if (node.tagName === 'PRE') showBox(node, fields[name]);
    else node.textContent = fields[name];
  }
  if ('pctColour' in fields) $('pct').style.color = cssColour(fields.pctColour);
  if ('sendRowVisible' in fields) $('sendRow').hidden = !fields.sendRowVisible;
  if ('stato' in fields || 'statoName' in fields) $('stato').textContent = `${panel.stato} ${panel.statoName}`;
  if (['tentativi', 'tentativiMax', 'timeOutLungo', 'timeOutBreve'].some((k) => k in fields)) {
    $('timing').textContent = `Tentativi ${panel.tentativi} / ${panel.tentativiMax}; ` +
      `time-out ${panel.timeOutLungo} / ${panel.timeOutBreve} ms`;
  }
  if ('queue' in fields) {
    $('queue').replaceChildren(...fields.queue.map((r) =>
      element('li', { text: r.parametro ? `${r.tipo} ${r.parametro}` : r.tipo })));
  }
}

$('sendRow').addEventListener('submit', async (event) => {
  event.preventDefault();
  try {
    await post('/api/send-row', { text: $('TxtSendStr').value });
  } catch (error) {
    alert(error.message);
  }
});

// ---- Commands and their outcomes. --------------------------------------------

const jobs = new Map();

function showJob(job) {
  let item = jobs.get(job.id);
  if (!item) {
    item = element('li', { 'data-job': job.id });
    jobs.set(job.id, item);
    $('jobs').prepend(item);
  }
  item.className = job.status;
  item.dataset.command = job.command;
  item.dataset.status = job.status;
  const title = `${job.command}${job.argument ? ' ' + job.argument : ''}`;
  const parts = [element('b', { text: title }), ` — ${job.status}`];
  if (job.status === 'running' || job.status === 'queued') {
    const bar = element('progress', { max: 100 });
    if (job.progress >= 0) bar.value = job.progress;
    parts.push(' ', bar);
  }
  if (job.message) parts.push(`: ${job.message}`);
  // A job of the server's (a number) may be taken back while it waits or runs.
  if ((job.status === 'running' || job.status === 'queued') && typeof job.id === 'number') {
    parts.push(' ', element('button', { type: 'button', class: 'cancel', text: 'Cancel',
      onclick: () => post('/api/cancel', { id: job.id }).catch((error) => alert(error.message)) }));
  }
  item.replaceChildren(...parts);
  if (job.lines.length) item.append(element('pre', { class: 'lines', text: job.lines.join('\n') }));
  if (job.command === 'playback') showClip(job);
  if (job.status === 'done' && ['download-media', 'stream-image', 'preview', 'playback'].includes(job.command)) loadMedia();
  if (job.status === 'done' && job.command.startsWith('download-')) loadTable();
}

async function run(command, argument = '', extra = {}) {
  try {
    await post('/api/run', { command, argument, ...extra });
  } catch (error) {
    showJob({ id: `x${Date.now()}`, command, argument: '', status: 'failed', message: error.message,
              lines: [], progress: -1 });
  }
}

async function uploadFirmware(file) {
  try {
    await post('/api/firmware', file, { name: file.name });
  } catch (error) {
    showJob({ id: `x${Date.now()}`, command: 'upload-firmware', argument: file.name, status: 'failed',
              message: error.message, lines: [], progress: -1 });
  }
}

// ---- The unit, and what it is doing, at a glance. ---------------------------------

let unitLabel = 'the unit';

function showUnit(message) {
  unitLabel = `${message.host}:${message.port} (${message.transport})`;
  $('unitName').textContent = `— unit ${unitLabel}`;
  document.title = `CamRelay — ${unitLabel}`;
  if (document.activeElement?.closest('#connection')) return;  // the user is typing there
  $('unitHost').value = message.host;
  $('unitPort').value = message.port || '';
  $('unitTransport').value = message.transport;
  $('connectionState').textContent = message.connected ? 'connected' : 'not connected';
}

$('connection').addEventListener('submit', async (event) => {
  event.preventDefault();
  $('connectionState').textContent = 'connecting…';
  try {
    await post('/api/connect', { host: $('unitHost').value.trim(), port: Number($('unitPort').value) || 0,
                                 transport: $('unitTransport').value, code: $('unitCode').value });
    $('connectionState').textContent = 'connected';
  } catch (error) {
    $('connectionState').textContent = error.message;
  }
  // The code went to the console; the page keeps no copy.
  $('unitCode').value = '';
  document.activeElement?.blur();
});
$('disconnect').addEventListener('click', () => post('/api/disconnect', {}).catch(() => {}));

const figure = (n) => n.toLocaleString('fr-FR');  // 1 240: a thin space groups the thousands
let lastSample;

function showSummary(m) {
  let doing = m.doing;
  const counting = m.packetsExpected > 0 && m.doing !== 'Idle';
  if (counting) doing += `: ${figure(m.packetsDone)} of ${figure(m.packetsExpected)} packets`;
  if (m.waiting) doing += ` (${m.waiting} more waiting)`;
  $('doing').textContent = doing;
  $('progressRow').hidden = !counting;
  if (counting) {
    $('summaryProgress').value = Math.round((100 * m.packetsDone) / m.packetsExpected);
    const now = Date.now();
    let left = '';
    if (lastSample && lastSample.expected === m.packetsExpected && m.packetsDone > lastSample.done) {
      const rate = (m.packetsDone - lastSample.done) / (now - lastSample.time);
      left = `, about ${Math.ceil((m.packetsExpected - m.packetsDone) / rate / 1000)} s left`;
    }
    if (!lastSample || lastSample.expected !== m.packetsExpected) lastSample = { done: m.packetsDone, time: now, expected: m.packetsExpected };
    $('summaryCounts').textContent = `${Math.round((100 * m.packetsDone) / m.packetsExpected)} %${left}`;
  } else {
    lastSample = undefined;
  }
  const said = m.outcomeText ? ` — the unit said “${m.outcomeText}”` : '';
  $('lastOutcome').textContent = `Last request: ${m.outcome}${said}`;
  $('lastOutcome').className = m.outcomeKind;
}

// What changes the unit is done only once the user has seen which unit.
const changes = {
  'upload-prog': 'Upload the programming',
  'upload-prog-cam-events': 'Upload the camera-event programming',
  'erase-log': 'Erase the event log',
  'upload-wave': 'Upload the voice messages',
  'set-installer-code': 'Change the installer code',
  'set-user-code': 'Change the user code',
};

function confirmed(what) {
  return window.confirm(`${what} on the unit ${unitLabel}?`);
}

function pickFirmware(file) {
  if (confirmed(`Send the firmware file ${file.name} (${figure(file.size)} bytes)`)) uploadFirmware(file);
}

function commandRow(info) {
  const button = element('button', { type: 'button', title: info.help, 'data-command': info.name, text: info.name });
  if (info.name === 'upload-firmware') {
    const chooser = element('input', { type: 'file', 'data-argument': info.name, title: info.argumentHelp });
    button.addEventListener('click', () => {
      if (chooser.files.length) pickFirmware(chooser.files[0]);
      else chooser.click();
    });
    chooser.addEventListener('change', () => chooser.files.length && pickFirmware(chooser.files[0]));
    return element('div', { class: 'command' }, button, chooser);
  }
  if (info.name === 'preview' || info.name === 'playback') return null;  // their cards drive them
  const type = /code/.test(info.name) ? 'password' : 'text';
  const input = info.argument
    ? element('input', { type, placeholder: info.argument, title: info.argumentHelp, 'data-argument': info.name })
    : null;
  button.addEventListener('click', () => {
    if (changes[info.name] && !confirmed(changes[info.name])) return;
    run(info.name, input ? input.value : '');
  });
  // Enter in the argument field does what the button does.
  input?.addEventListener('keydown', (event) => {
    if (event.key === 'Enter') button.click();
  });
  return element('div', { class: 'command' }, button, ...(input ? [input] : []));
}

async function loadCommands() {
  const commands = await get('/api/commands');
  $('commandList').replaceChildren(...commands.map(commandRow).filter(Boolean));
}

// ---- Preview and files that arrived. -------------------------------------------

for (let camera = 1; camera <= 8; ++camera) {
  $('cameras').append(element('label', {},
    element('input', { type: 'checkbox', value: camera, 'data-camera': camera }), ` ${camera}`));
}

$('previewForm').addEventListener('submit', (event) => {
  event.preventDefault();
  const cameras = [...document.querySelectorAll('#cameras input:checked')].map((c) => c.value);
  if (!cameras.length) return alert('Choose at least one camera');
  $('images').replaceChildren();
  run('preview', cameras.join(','), { images: Number($('previewImages').value) || 10 });
});
$('previewStop').addEventListener('click', () => post('/api/preview/stop', {}));

$('record').addEventListener('change', () =>
  post('/api/record', { on: $('record').checked }).catch((error) => alert(error.message)));

function showImage(message) {
  if (message.source === 'playback') return showFrame(message);
  const key = message.source === 'preview' ? `camera ${message.camera}` : 'stream image';
  let figure = document.querySelector(`#images figure[data-key="${key}"]`);
  if (!figure) {
    figure = element('figure', { 'data-key': key }, element('img', { alt: key }), element('figcaption'));
    $('images').append(figure);
  }
  figure.querySelector('img').src = `data:image/jpeg;base64,${message.jpeg}`;
  figure.querySelector('figcaption').textContent = `${key}, ${message.time}`;
}

// Each folder is shown a page at a time: recording fills Snapshot/ fast.
const mediaPages = { Snapshot: 0, VideoAvi: 0 };
const mediaPage = 50;

function mediaFolder(folder, listing) {
  const { total, offset, files } = listing;
  const move = (by) => () => {
    mediaPages[folder] = Math.max(0, offset + by);
    loadMedia();
  };
  const pager = element('span', { class: 'pager' },
    element('button', { type: 'button', 'data-page': `${folder}-prev`, onclick: move(-mediaPage) }, '<'),
    ` ${total ? offset + 1 : 0}–${offset + files.length} of ${total} `,
    element('button', { type: 'button', 'data-page': `${folder}-next`, onclick: move(mediaPage) }, '>'));
  pager.querySelector('button').disabled = offset === 0;
  pager.querySelector('button:last-child').disabled = offset + files.length >= total;
  return element('div', { 'data-folder': folder },
    element('h4', {}, `${folder}/ `, pager),
    element('ul', {}, ...files.map((f) => element('li', {},
      element('a', { href: api('/api/media/file', { folder, name: f.name }), target: '_blank', text: f.name }),
      ` ${f.size} bytes `,
      element('a', { href: api('/api/media/file', { folder, name: f.name, download: 1 }), text: 'download' })))));
}

async function loadMedia() {
  const lists = [];
  for (const folder of Object.keys(mediaPages)) {
    const answer = await get('/api/media', { folder, offset: mediaPages[folder], limit: mediaPage });
    const listing = answer[folder];
    // Files went away since: back to the last page that has some.
    if (listing.offset > 0 && listing.offset >= listing.total) {
      mediaPages[folder] = Math.max(0, Math.floor((listing.total - 1) / mediaPage) * mediaPage);
      return loadMedia();
    }
    lists.push(mediaFolder(folder, listing));
  }
  $('media').replaceChildren(...lists);
}
$('mediaRefresh').addEventListener('click', loadMedia);

// ---- Playback of a clip recorded on the unit. -------------------------------------

function openClip(name) {
  $('clipName').value = name;
  $('clipImage').hidden = true;
  $('clipCaption').textContent = '';
  run('playback', name);
}

$('clipForm').addEventListener('submit', (event) => {
  event.preventDefault();
  if ($('clipName').value.trim()) openClip($('clipName').value.trim());
});

for (const button of document.querySelectorAll('#clipControls [data-order]')) {
  button.addEventListener('click', () => {
    const order = button.dataset.order;
    const value = order === 'seek' ? Number($('clipSeek').value) : order === 'quality' ? Number($('clipQuality').value) : 0;
    post('/api/playback', { order, value }).catch((error) => { $('clipState').textContent = error.message; });
  });
}

// Each frame as it arrives.
function showFrame(message) {
  $('clipImage').src = `data:image/jpeg;base64,${message.jpeg}`;
  $('clipImage').hidden = false;
  $('clipCaption').textContent = `frame of ${message.time}`;
}

function showClip(job) {
  const open = job.status === 'queued' || job.status === 'running';
  $('clipState').className = job.status;
  $('clipState').textContent = open ? `${job.argument} open` : `${job.argument}: ${job.status}${job.message ? ': ' + job.message : ''}`;
}

// ---- The database. -----------------------------------------------------------------

const table = { name: '', offset: 0, limit: 100, sort: '', desc: false, filter: '', total: 0 };

async function loadTable() {
  if (!table.name) return;
  const page = await get('/api/table', {
    name: table.name, offset: table.offset, limit: table.limit, sort: table.sort,
    desc: table.desc ? 1 : 0, filter: table.filter,
  });
  table.total = page.total;
  const head = element('tr', {}, ...page.columns.map((column) => {
    const th = element('th', { text: column });
    if (column === table.sort) th.className = table.desc ? 'sorted desc' : 'sorted';
    th.addEventListener('click', () => {
      table.desc = table.sort === column ? !table.desc : false;
      table.sort = column;
      table.offset = 0;
      loadTable();
    });
    return th;
  }));
  $('table').tHead.replaceChildren(head);
  $('table').tBodies[0].replaceChildren(...page.rows.map((row) => element('tr', {}, ...row.map(cell))));
  const last = Math.min(table.offset + page.rows.length, table.total);
  $('tablePosition').textContent = `${table.total ? table.offset + 1 : 0}–${last} of ${table.total}`;
  // The export is what the table shows: the same filter and order.
  $('tableCsv').href = api('/api/csv', { name: table.name, sort: table.sort, desc: table.desc ? 1 : 0,
                                         filter: table.filter });
}

// A snapshot or a clip an event names is fetched from the unit with a
// click; a clip can be played there instead.
const mediaName = /^[^\\/:]+\.(jpe?g|avi)$/i;

function cell(value) {
  if (value === null) return element('td', { class: 'null', text: 'Null' });
  if (!mediaName.test(value)) return element('td', { text: value });
  const fetchIt = element('a', { href: '#', 'data-fetch': value, title: 'Fetch this file from the unit', text: value,
                                 onclick: (event) => { event.preventDefault(); run('download-media', value); } });
  const td = element('td', {}, fetchIt);
  if (/\.avi$/i.test(value)) {
    td.append(' ', element('button', { type: 'button', 'data-play': value, title: 'Play it on the unit', text: 'Play',
                                       onclick: () => openClip(value) }));
  }
  return td;
}

async function loadTables() {
  const names = await get('/api/tables');
  $('tableName').replaceChildren(...names.map((n) => element('option', { value: n, text: n })));
  table.name = names[0];
  loadTable();
}

$('tableName').addEventListener('change', () => {
  Object.assign(table, { name: $('tableName').value, offset: 0, sort: '', desc: false });
  loadTable();
});
let filterTimer;
$('tableFilter').addEventListener('input', () => {
  clearTimeout(filterTimer);
  filterTimer = setTimeout(() => {
    Object.assign(table, { filter: $('tableFilter').value, offset: 0 });
    loadTable();
  }, 200);
});
$('tablePrev').addEventListener('click', () => {
  table.offset = Math.max(0, table.offset - table.limit);
  loadTable();
});
$('tableNext').addEventListener('click', () => {
  if (table.offset + table.limit < table.total) table.offset += table.limit;
  loadTable();
});

// ---- Timeline, diagnostics, and the live channel. --------------------------------------

function showState(message) {
  $('timeline').prepend(element('li', { text: `${message.time}  ${message.number} ${message.name}` }));
  while ($('timeline').children.length > 500) $('timeline').lastChild.remove();
}

let debugLines = 0;
function showDebug(message) {
  const box = $('debug');
  box.textContent += `${message.time} ${message.line}\n`;
  $('debugCount').textContent = ++debugLines;
  box.scrollTop = box.scrollHeight;
}

const handlers = { panel: (m) => applyPanel(m.fields), state: showState, debug: showDebug, job: showJob,
                   image: showImage, unit: showUnit, summary: showSummary,
                   record: (m) => { $('record').checked = m.on; } };

// While the console is gone nothing can be asked of it: the page says so and
// its controls wait until it is back.
function setOnline(online) {
  $('live').textContent = online ? 'live' : 'the console is not running: reconnecting…';
  $('live').className = online ? 'live on' : 'live off';
  document.body.classList.toggle('offline', !online);
  for (const control of document.querySelectorAll('main button, main input, main select, #connection input, #connection select, #connection button'))
    control.disabled = !online;
}

function connect() {
  const socket = new WebSocket(`${location.protocol === 'https:' ? 'wss' : 'ws'}://${location.host}${api('/ws')}`);
  socket.addEventListener('open', () => {
    // The console sends its history again: what the page showed is replaced.
    $('timeline').replaceChildren();
    $('debug').textContent = '';
    debugLines = 0;
    setOnline(true);
    loadCommands();
    loadTables();
    loadMedia();
  });
  socket.addEventListener('message', (event) => {
    const message = JSON.parse(event.data);
    handlers[message.type]?.(message);
  });
  socket.addEventListener('close', () => {
    setOnline(false);
    setTimeout(connect, 1000);
  });
}

connect();
