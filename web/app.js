// Starts the console: signs in, shows the page that the address names, and tells how the connection stands.
import { tellActive } from './alarms.js';
import { isSignedIn, onRefused, signInByPassword, signInByToken, signOut, takeToken } from './api.js';
import { end, onConnection, resume } from './events.js';
import { current } from './newest.js';
import { link, onChange, start, state } from './state.js';
import { timebar } from './timebar.js';

const kPages = {
  overview: 'Overview',
  alarms: 'Alarms',
  processes: 'Processes',
  disks: 'Disks',
  network: 'Network',
  filesystems: 'File systems',
  groups: 'Groups',
  applications: 'Applications',
  sensors: 'Sensors',
  records: 'Records',
  agent: 'Agent',
};
const kConnection = {
  off: ['', ''],
  live: ['Live', ''],
  lost: ['Reconnecting', 'The connection is lost. The figures are as they were; they come back by themselves.'],
  gone: ['Agent gone', 'The agent does not answer the gate. The figures are as they were; they come back by themselves.'],
  missed: ['Live', 'Some figures were missed and can\'t be read back.'],
};

const kRetryPause = 3000;

const part = (id) => document.getElementById(id);
let leave = null;
let showing = 0;
let hostName = '';

function buildMenu() {
  const list = document.createElement('ul');
  for (const [page, text] of Object.entries(kPages)) {
    const item = document.createElement('li');
    const anchor = document.createElement('a');
    anchor.textContent = text;
    anchor.dataset.page = page;
    item.append(anchor);
    list.append(item);
  }
  part('menu').append(list);
  part('menu-button').addEventListener('click', () => fold(!part('menu').classList.contains('is-open')));
  part('menu').addEventListener('click', (event) => {
    if (event.target.closest('a')) fold(false);
  });
}

function fold(isOpen) {
  part('menu').classList.toggle('is-open', isOpen);
  part('menu-button').setAttribute('aria-expanded', String(isOpen));
}

/// The links keep the time that is shown.
function drawMenu() {
  for (const anchor of part('menu').querySelectorAll('a')) {
    anchor.href = link({ page: anchor.dataset.page, choice: {} });
    if (anchor.dataset.page === state.page) anchor.setAttribute('aria-current', 'page');
    else anchor.removeAttribute('aria-current');
  }
  part('alarms').href = link({ page: 'alarms', choice: {} });
}

async function show() {
  if (part('sign-in').open) return;
  const mine = ++showing;
  const name = Object.hasOwn(kPages, state.page) ? state.page : 'overview';
  leavePage();
  const main = part('main');
  main.dataset.page = name;
  document.title = `${kPages[name]}${hostName ? ` - ${hostName}` : ''}`;
  try {
    const page = await load(name, main, () => mine === showing);
    if (mine === showing) leave = page.show(main, { state }) ?? null;
  } catch (error) {
    if (mine === showing) tellFault(main, `This page can't be shown: ${error.message}`);
  }
}

/// A page's files come from the gate, which may be away. They are asked for again when it is back; a browser that keeps the
/// failure in mind has to load everything anew.
async function load(name, main, isWanted) {
  let isBack = false;
  for (;;) {
    try {
      return await import(`./page-${name}.js`);
    } catch (error) {
      if (!isWanted() || !(error instanceof TypeError)) throw error;
      main.replaceChildren();
      const note = tellFault(main, isBack ? 'The files of this page could not be loaded. ' : 'The gate does not answer. This page comes by itself when it does.');
      if (isBack) offerReload(note);
      isBack = await gateIsBack(isWanted);
      if (!isWanted()) throw error;
      main.replaceChildren();
    }
  }
}

function offerReload(note) {
  const button = document.createElement('button');
  button.type = 'button';
  button.textContent = 'Load again';
  button.addEventListener('click', () => location.reload());
  note.append(button);
}

/// True as soon as the gate answers; false if nobody waits for it any more.
async function gateIsBack(isWanted) {
  while (isWanted()) {
    await new Promise((done) => setTimeout(done, kRetryPause));
    if (document.hidden || !isWanted()) continue;
    const answer = await fetch('/-/healthy', { cache: 'no-store', credentials: 'omit' }).catch(() => null);
    if (answer?.ok) return true;
  }
  return false;
}

function leavePage() {
  leave?.();
  leave = null;
  part('main').replaceChildren();
}

function tellFault(main, text) {
  const note = document.createElement('p');
  note.className = 'note';
  note.textContent = text;
  note.setAttribute('role', 'status');
  main.append(note);
  return note;
}

function changed(now, before) {
  drawMenu();
  if (now.page === before.page && now.at === before.at) return;
  show();
  if (now.page !== before.page) {
    fold(false);
    scrollTo(0, 0);
    part('main').focus({ preventScroll: true });
  }
}

function headWith(name, system) {
  hostName = name;
  part('host').textContent = name || 'Console';
  part('system').textContent = system;
  const page = kPages[state.page] ?? kPages.overview;
  document.title = name ? `${page} - ${name}` : page;
}

/// The host's name heads every page, so that two tabs are not mixed up.
async function tellHost() {
  try {
    const [host] = (await current('HOST', { at: null, columns: ['Name', 'Distribution', 'Kernel'] })).rows;
    if (host && !part('sign-in').open) headWith(host.Name, [host.Distribution, host.Kernel].filter(Boolean).join(', '));
  } catch {
    // The page is of use without its heading.
  }
}

function tellConnection({ state: name, message }) {
  const [word, sentence] = kConnection[name];
  part('connection').textContent = word;
  part('connection').dataset.state = name;
  part('banner').textContent = message && name !== 'gone' ? `${sentence} (${message})` : sentence;
  part('banner').hidden = !sentence;
}

function askSignIn(error) {
  const dialog = part('sign-in');
  if (dialog.open) return;
  part('sign-in-why').textContent = error ? `The gate says: ${error.message}` : '';
  part('by-password').hidden = location.protocol !== 'https:';
  leavePage();
  end();
  headWith('', '');
  dialog.showModal();
}

function signedIn() {
  for (const form of [part('by-token'), part('by-password')]) form.reset();
  part('sign-in').close();
  tellHost();
  show();
  resume();
}

function listenToSignIn() {
  part('by-token').addEventListener('submit', (event) => {
    event.preventDefault();
    signInByToken(part('token').value.trim());
    signedIn();
  });
  part('by-password').addEventListener('submit', (event) => {
    event.preventDefault();
    signInByPassword(part('user').value, part('password').value);
    signedIn();
  });
  // Nothing can be shown without, so Esc does not take the panel away.
  part('sign-in').addEventListener('cancel', (event) => event.preventDefault());
  part('sign-out').addEventListener('click', () => {
    signOut();
    askSignIn(null);
  });
  part('skip').addEventListener('click', (event) => {
    // The hash is the page's state, so the link moves the focus alone.
    event.preventDefault();
    part('main').focus();
  });
}

takeToken();
// A token that is pasted into the address of an open console.
addEventListener('hashchange', () => {
  if (!/[#?&]token=/.test(location.hash)) return;
  takeToken();
  location.reload();
});
start();
buildMenu();
drawMenu();
listenToSignIn();
timebar(part('timebar'));
onChange(changed);
onConnection(tellConnection);
tellActive(part('alarms'));
onRefused(askSignIn);
if (isSignedIn()) signedIn();
else askSignIn(null);
