// The page around the picture: keys, settings, figures, and what to do when something is missing.
import {Player, canPlay} from './player.js';

const at = id => document.getElementById(id);
const key = location.hash.slice(1);
const player = new Player(at('video'), key);

// ---- What is told across the picture.
const notices = new Map();
function notice(topic, text, remedy) {
  if (text) notices.set(topic, {text, remedy}); else notices.delete(topic);
  const [first] = notices.values();
  at('notice').hidden = !first;
  at('notice').textContent = first?.text ?? '';
  at('remedy').hidden = !first?.remedy;
  at('remedy').textContent = first?.remedy?.label ?? '';
  at('remedy').onclick = first?.remedy?.deed ?? null;
}

// ---- Commands.
async function command(text) {
  try {
    const answer = await fetch('command', {method: 'POST', body: text,
      headers: {'X-Key': key, 'Content-Type': 'text/plain'}});
    return answer.ok;
  } catch { return false; }
}

// Two rows of five on a phone: the keys that are pressed most in the first, within a thumb's reach.
const KEYS = [
  ['jump-back', '«', 'Jump back'], ['step-back', '‹', 'Step back'], ['play', '▶\ufe0e❚❚', 'Play or pause'],
  ['step-forward', '›', 'Step forward'], ['jump-forward', '»', 'Jump forward'],
  ['go-to-in', '⇤', 'To the in point'], ['shuttle-back', 'J', 'Shuttle back'],
  ['shuttle-stop', 'K', 'Stop'], ['shuttle-forward', 'L', 'Shuttle forward'],
  ['go-to-out', '⇥', 'To the out point'],
];
for (const [name, label, title] of KEYS) {
  const button = document.createElement('button');
  button.id = name;
  button.textContent = label;
  button.title = title;
  button.setAttribute('aria-label', title);
  if (name === 'play') button.className = 'play';
  button.onclick = () => command(name);
  at('transport').append(button);
}
const KEYBOARD = {' ': 'play', ArrowRight: 'step-forward', ArrowLeft: 'step-back', i: 'go-to-in',
  o: 'go-to-out', j: 'shuttle-back', k: 'shuttle-stop', l: 'shuttle-forward'};
addEventListener('keydown', event => {
  if (event.ctrlKey || event.altKey || event.metaKey || event.target.tagName === 'SELECT') return;
  let name = KEYBOARD[event.key.length === 1 ? event.key.toLowerCase() : event.key];
  if (!name) return;
  if (event.shiftKey) name = name.replace('step-', 'jump-');
  event.preventDefault();
  command(name);
});

// ---- Settings: what was set last, by whomever, stands in the lists. While the receiver adapts to
// the network, sizes and qualities are the most that it asks for.
const SETTINGS = {
  codec: [['codec=h264', 'H.264'], ['codec=hevc', 'HEVC']],
  size: [['size=0', 'full'], ['size=1080', '1080'], ['size=720', '720'], ['size=540', '540'],
    ['size=360', '360']],
  quality: [['bitrate', 'by bit rate'], ['quality=90', 'best'], ['quality=70', 'good'],
    ['quality=50', 'fair'], ['quality=30', 'small']],
  gop: [['gop=long', 'few'], ['gop=short', 'every 5th'], ['gop=intra', 'all']],
};
const ADAPTING = {
  ...SETTINGS,
  size: SETTINGS.size.map(([value, label]) => [value, label === 'full' ? label : `up to ${label}`]),
  quality: [['quality=80', 'by network'],
    ...SETTINGS.quality.slice(1).map(([value, label]) => [value, `up to ${label}`]),
    SETTINGS.quality[0]],
  gop: [['gop=auto', 'as needed'], ...SETTINGS.gop],
};
const HEVC = ['hvc1.1.6.L93.90', 'hvc1.1.6.L120.90'];
let choices;
function offer(lists) {
  if (choices === lists) return;
  choices = lists;
  for (const [id, list] of Object.entries(lists)) {
    at(id).replaceChildren(new Option('as it is', ''),  // nobody here has set it
      ...list.map(([value, label]) => new Option(label, value)));
    at(id).options[0].disabled = at(id).options[0].hidden = true;
    at(id).value = '';
    at(id).onchange = () => command(at(id).value);
  }
  if (!HEVC.some(canPlay)) at('codec').options[2].disabled = true;
}
offer(SETTINGS);

function showSettings(texts) {
  offer(news.adapts ? ADAPTING : SETTINGS);
  for (const [id, list] of Object.entries(choices)) {
    if (document.activeElement === at(id)) continue;
    const heads = list.map(([value]) => value.split('=')[0]);
    const text = texts.find(one => heads.includes(one.split('=')[0]));
    if (!text) continue;
    if (![...at(id).options].some(one => one.value === text)) {
      at(id).append(new Option(text.split('=')[1], text));
    }
    at(id).value = text;
  }
}

// ---- Figures. The news tell which time it is on the stream's line; the quickest of the last tell
// how far this clock is from it.
const offsets = [];
let delay = null, news = null, maySteer = false;
player.addEventListener('picture', ({detail}) => {
  notice('stream');
  if (offsets.length > 0) {
    delay = detail.presentationTime - Math.min(...offsets) - detail.mediaTime * 1e3;
  }
});
function showFigures() {
  const video = at('video');
  const codec = news?.settings.some(one => one === 'codec=hevc') ? 'HEVC' : 'H.264';
  at('f-picture').textContent = video.videoWidth
    ? `${video.videoWidth}×${video.videoHeight} ${codec}` : '–';
  if (!news) return;
  at('f-rate').textContent = `${news.mbit.toFixed(1)} Mbit/s, ${Math.round(news.pictures)}/s`;
  at('f-delay').textContent = delay === null || !news.playing ? '–' : `${Math.round(delay)} ms`;
  at('f-lost').textContent = `${news.lost.toFixed(1)} %`;
  at('f-viewers').textContent = news.viewers;
  at('f-encoder').textContent = news.encoder || '–';
  at('network').hidden = !news.adapts;
  at('f-network').textContent = at('f-network').title = news.network || '–';
}
function take(line) {
  if (!line) return;
  const said = JSON.parse(line);
  if ('steer' in said) {
    maySteer = said.steer;
    return;
  }
  news = said;
  if (news.now > 0) {
    offsets.push(performance.now() - news.now / 1e3);
    if (offsets.length > 20) offsets.shift();
  }
  const connected = !news.waiting;
  notice('host', connected ? '' : `No connection to the host: ${news.waiting}`);
  for (const element of document.querySelectorAll('#transport button, #settings select')) {
    element.disabled = !maySteer || !connected;
  }
  showSettings(news.settings);
  showFigures();
}
async function follow() {
  for (let wait = 0; ; wait = Math.min(2000, wait * 2 + 200)) {
    await new Promise(done => setTimeout(done, wait));
    const stop = new AbortController();
    let late = 0;
    const hold = () => { clearTimeout(late); late = setTimeout(() => stop.abort(), 5000); };
    try {
      hold();
      const answer = await fetch('events',
        {cache: 'no-store', signal: stop.signal, headers: {'X-Key': key}});
      if (answer.status === 403) { notice('receiver', 'The address has no valid key'); continue; }
      if (!answer.ok) throw Error(answer.status);
      notice('receiver');
      wait = 0;
      const reader = answer.body.pipeThrough(new TextDecoderStream()).getReader();
      for (let rest = '', part; !(part = await reader.read()).done;) {
        hold();
        const lines = (rest + part.value).split('\n');
        rest = lines.pop();
        lines.forEach(take);
      }
    } catch { /* told below */ }
    clearTimeout(late);
    offsets.length = 0;
    notice('receiver', 'No connection to the receiver');
  }
}

// ---- Sound, screen, and what the browser can't do.
at('sound').onclick = () => {
  player.setSound(!player.sound);
  at('sound').textContent = player.sound ? 'Sound: on' : 'Sound: off';
  at('sound').setAttribute('aria-pressed', player.sound);
  at('video').play().catch(() => {});
};
at('full').onclick = () => {
  if (document.fullscreenElement) document.exitFullscreen();
  else if (at('stage').requestFullscreen) at('stage').requestFullscreen().catch(() => {});
  else at('video').webkitEnterFullscreen?.();
};
player.addEventListener('lost', ({detail}) => {
  if (!notices.has('receiver')) notice('stream', detail);
});
player.addEventListener('answer', () => notice('codec'));
player.addEventListener('refused', () => notice('start', 'The browser waits for a tap',
  {label: 'Play', deed: () => at('video').play().then(() => notice('start')).catch(() => {})}));
at('video').addEventListener('playing', () => notice('start'));
let changedAt = -1e9;
player.addEventListener('unsupported', () => {
  const change = () => { changedAt = performance.now(); command('codec=h264'); };
  notice('codec', 'This browser can’t play HEVC',
    maySteer ? {label: 'Change to H.264', deed: change} : undefined);
  // Nobody else watches who would mind.
  if (maySteer && news?.viewers <= 1 && performance.now() - changedAt > 3000) change();
});

self.veldrift = {player, get delay() { return delay; }, get news() { return news; }};
if (!player.supported) {
  notice('browser', 'This browser can’t play live streams: it takes iOS 17.1, or another of the last years');
} else if (!key) {
  notice('receiver', 'The address lacks its key, which stands behind the #');
} else {
  notice('stream', 'Waiting for the stream');
  player.run();
}
if (key) follow();
