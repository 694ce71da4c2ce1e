// The live picture: one endless answer after the other goes into a media source, and the element is
// kept at its newest end.
//
// An answer is one MP4 from its head on, beginning with a key frame. Whatever ends it (another
// codec or size, a pause, a viewer that was too slow, a receiver that is gone), the next begins anew.
const Source = self.ManagedMediaSource ?? self.MediaSource;

const HOLD = 0.2;            // seconds that a picture lasts if none follows
const LEAST_AHEAD = 0.02;    // how long before its time a picture must be there
const LEAST_AHEAD_SOUND = 0.15;
const MOST_AHEAD = 0.4;
// How fast it is tried again with less: a picture that comes late is hardly seen, a hole in the
// sound is heard.
const EASE_MS = 3000;
const EASE_SOUND_MS = 10000;
const LEAP = 0.5;            // further behind than that is caught up at once
const TOO_FAR = 1.5;
const PICTURE_BYTES = 64;    // less is no picture: the server says that it is there
const ANSWER_MS = 5000;      // so long a server may be silent
const STUCK_MS = 2000;       // so long pictures may come and none be shown

const sleep = ms => new Promise(done => setTimeout(done, ms));
const once = (target, name) => new Promise(done => target.addEventListener(name, done, {once: true}));

export const canPlay = codecs => !!Source?.isTypeSupported(`video/mp4; codecs="${codecs}"`);

export class Player extends EventTarget {
  // What can be told of it: pictures shown, waits, answers, new sources.
  shown = 0; waits = 0; answers = 0; sources = 0;
  mediaTime = 0;        // of the picture that is shown, and when it was
  shownAt = 0;
  ahead = 0; margin = 0;
  unsupported = '';     // what the stream is and this browser can't play
  sound = false;

  #video; #key; #media = null; #buffer = null; #type = ''; #stop = new AbortController();
  #arrivedAt = 0; #beganAt = 0; #rebuiltAt = 0; #behindAt = -1e9; #calmSince = 0; #leapt = 0;
  #fresh = true; #aheads = []; #newest = 0;

  constructor(video, key) {
    super();
    this.#video = video;
    this.#key = key;
    video.muted = true;
    video.disableRemotePlayback = true;  // else a managed source never opens
    video.addEventListener('waiting', () => this.#waited());
    video.requestVideoFrameCallback?.((now, frame) => this.#showed(now, frame));
    document.addEventListener('visibilitychange', () => document.hidden && this.#again('hidden'));
    setInterval(() => this.#steer(), 50);
    setInterval(() => this.#lookForStop(), 250);
  }

  get supported() { return !!Source; }

  setSound(on) {
    this.sound = on;
    this.#video.muted = !on;
    this.margin = 0;
    this.#media = null;  // another set of tracks
    this.#again('sound');
  }

  // For ever.
  async run() {
    for (let wait = 0; ;) {
      const began = performance.now();
      try {
        await this.#oneAnswer();
        wait = performance.now() - began < 1000 ? Math.min(1000, wait * 2 + 50) : 0;
      } catch (error) {
        if (error?.name === 'QuotaExceededError') this.#media = null;
        const ours = typeof error === 'string';
        wait = ours ? 0 : Math.min(2000, wait * 2 + 100);
        if (!ours) this.#tell('lost', String(error?.message ?? error));
      }
      await sleep(wait);
      while (document.hidden) await once(document, 'visibilitychange');
    }
  }

  #tell(name, detail) { this.dispatchEvent(new CustomEvent(name, {detail})); }
  #again(why) { this.#stop.abort(why); }

  async #oneAnswer() {
    const mine = this.#stop = new AbortController();
    const late = setTimeout(() => mine.abort('no answer'), ANSWER_MS);
    const response = await fetch(`live?sound=${+this.sound}`,
      {cache: 'no-store', signal: mine.signal, headers: {'X-Key': this.#key}})
      .finally(() => clearTimeout(late));
    if (!response.ok) {
      throw Error(response.status === 403 ? 'The address has no valid key'
        : response.status === 429 ? 'Too many are watching'
        : response.status === 503 ? 'Waiting for the stream' : `The receiver answers ${response.status}`);
    }
    const type = response.headers.get('Content-Type');
    this.unsupported = Source.isTypeSupported(type) ? '' : type;
    if (this.unsupported) {
      this.#tell('unsupported', type);
      mine.abort('unsupported');
      await sleep(500);
      return;
    }
    await this.#prepare(type);
    this.answers++;
    this.#fresh = true;
    this.#beganAt = this.#arrivedAt = performance.now();
    this.#tell('answer', type);
    const reader = response.body.getReader();
    for (let part; !(part = await this.#read(reader, mine)).done;) {
      await this.#append(part.value);
      if (this.#video.paused && !document.hidden) this.#video.play().catch(() => this.#tell('refused'));
    }
  }

  // A receiver that has gone without a word sends nothing, not even what means nothing.
  async #read(reader, mine) {
    const late = setTimeout(() => mine.abort('silent'), ANSWER_MS);
    try { return await reader.read(); } finally { clearTimeout(late); }
  }

  async #prepare(type) {
    const tracks = text => text.split(',').length;
    if (this.#video.error || this.#media?.readyState !== 'open' || tracks(type) !== tracks(this.#type)) {
      this.#media = null;
    }
    if (this.#media) {
      if (this.#buffer.updating) await once(this.#buffer, 'updateend');
      this.#buffer.abort();  // the answer before may have ended inside a box
      if (type !== this.#type) {
        if (this.#buffer.changeType) this.#buffer.changeType(type); else this.#media = null;
      }
    }
    if (!this.#media) await this.#open(type);
    this.#type = type;
    const ranges = this.#video.buffered;
    if (ranges.length > 3) {  // never inside a group: that takes it whole
      this.#buffer.remove(0, ranges.start(ranges.length - 1));
      await once(this.#buffer, 'updateend');
    }
  }

  async #open(type) {
    const media = new Source();
    const url = URL.createObjectURL(media);
    this.#video.src = url;
    await once(media, 'sourceopen');
    URL.revokeObjectURL(url);
    media.duration = Infinity;
    this.#buffer = media.addSourceBuffer(type);
    this.#media = media;
    this.sources++;
  }

  async #append(bytes) {
    const buffer = this.#buffer;
    buffer.appendBuffer(bytes);
    if (buffer.updating) await once(buffer, 'updateend');
    if (bytes.byteLength >= PICTURE_BYTES) this.#arrivedAt = performance.now();
  }

  // Keeps the element where the newest picture is just in time: faster or slower by what the closest
  // of the last arrivals had to spare.
  #steer() {
    const video = this.#video, ranges = video.buffered, last = ranges.length - 1;
    if (last < 0 || video.seeking) return;
    const start = ranges.start(last), end = ranges.end(last);
    const newest = Math.max(start, end - (this.sound ? 0 : HOLD));
    this.margin = Math.max(this.margin, this.sound ? LEAST_AHEAD_SOUND : LEAST_AHEAD);
    this.ahead = newest - video.currentTime;
    const now = performance.now();
    if (this.#fresh || video.currentTime < start || video.currentTime > end + TOO_FAR) {
      const lost = video.currentTime < start || video.currentTime > end;
      if (lost || this.ahead > LEAP) video.currentTime = Math.max(start, newest - this.margin - 0.05);
      this.#fresh = false;
      this.#aheads = [];
      this.#calmSince = this.#leapt = now;
      return;
    }
    if (this.ahead > TOO_FAR && now - this.#behindAt > 2000) {
      this.#behindAt = now;
      this.#again('behind');
      return;
    }
    if (this.ahead > LEAP && !this.sound) {
      video.playbackRate = 16;
      this.#aheads = [];
      this.#leapt = now;
      return;
    }
    if (newest !== this.#newest) {
      this.#newest = newest;
      this.#aheads.push(this.ahead);
      if (this.#aheads.length > 20) this.#aheads.shift();
    }
    const off = Math.min(...this.#aheads) - this.margin;
    video.playbackRate = this.#aheads.length === 0 || Math.abs(off) < 0.012 ? 1
      : 1 + Math.max(-0.05, Math.min(0.25, off));
    if (now - this.#calmSince > (this.sound ? EASE_SOUND_MS : EASE_MS)) {
      this.margin *= 0.85;
      this.#calmSince = now;
    }
  }

  #waited() {
    const now = performance.now();
    this.waits++;
    // The host stands still, or this page did, or jumps.
    if (now - this.#arrivedAt > 150 || this.#video.seeking || now - this.#leapt < 1000) return;
    if (now - this.#calmSince > 1500) this.margin = Math.min(MOST_AHEAD, this.margin * 1.5 + 0.01);
    this.#calmSince = now;
  }

  // Whatever it is that stands between pictures that come and pictures that show: a new source.
  #lookForStop() {
    const now = performance.now();
    const since = Math.max(this.shownAt, this.#rebuiltAt, this.#beganAt);
    if (document.hidden || now - this.#arrivedAt > 500 || now - since < STUCK_MS) return;
    if (!this.#video.requestVideoFrameCallback) return;
    this.#rebuiltAt = now;
    this.#media = null;
    this.#again('stuck');
  }

  #showed(now, frame) {
    this.shown++;
    this.shownAt = performance.now();
    this.mediaTime = frame.mediaTime;
    this.#tell('picture', frame);
    this.#video.requestVideoFrameCallback((next, after) => this.#showed(next, after));
  }
}
