// The page of `nuveqcam view`: shows the camera's stream with its figures, and controls the camera.
//
// window.nuveqView holds figures for tests and for diagnosis; all count from the loading of the page:
//   packets     received packets
//   lastPacket  number of the packet that was received last, or null
//   missing     packets that are missing between received ones of the same connection
//   decoded     decoded pictures
//   drawn       pictures drawn on the canvas
//   lastDrawn   number of the packet whose picture is on the canvas, or null
//   skipped     frames that the server skipped because this page was slow
//   undecoded   frames that this page did not decode, because its decoder was too slow or failed
//   replaced    decoded pictures that were replaced by the next one before they could be drawn

const figures = {
  packets: 0,
  lastPacket: null,
  missing: 0,
  decoded: 0,
  drawn: 0,
  lastDrawn: null,
  skipped: 0,
  undecoded: 0,
  replaced: 0,
};
window.nuveqView = figures;

const byId = (id) => document.getElementById(id);
const sleep = (milliseconds) => new Promise((resolve) => { setTimeout(resolve, milliseconds); });

// Screen readers announce every change in a live region, so text is only set if it differs.
function setText(element, text) {
  if (element.textContent !== text) {
    element.textContent = text;
  }
}

// Shows an element with a text, or hides it if the text is empty.
function setMessage(element, text) {
  setText(element, text);
  element.hidden = text === '';
}

// Unlike a disabled button, it keeps the keyboard's focus.
function setEnabled(button, enabled) {
  button.setAttribute('aria-disabled', String(!enabled));
}

const isEnabled = (button) => button.getAttribute('aria-disabled') !== 'true';

function median(values) {
  const sorted = [...values].sort((a, b) => a - b);
  return sorted[Math.floor(sorted.length / 2)];
}

const plural = (count, noun) => `${count} ${noun}${count === 1 ? '' : 's'}`;

function sizeText(bytes) {
  return bytes < 1e6 ? `${(bytes / 1e3).toFixed(1)} kB` : `${(bytes / 1e6).toFixed(1)} MB`;
}

// ---- The stream ----------------------------------------------------------------------------------------------------

const HEADER_BYTES = 24;
const MAX_PAYLOAD_BYTES = 64 << 20;
const RecordKind = { PACKET: 1, STATE: 2 };
const KEY_FRAME_FLAG = 1;

function parseHeader(bytes) {
  const view = new DataView(bytes.buffer);
  const header = {
    length: view.getUint32(0, true),
    kind: view.getUint8(4),
    isKeyFrame: (view.getUint8(5) & KEY_FRAME_FLAG) !== 0,
    number: Number(view.getBigUint64(8, true)),
    time: Number(view.getBigUint64(16, true)) / 1000,  // milliseconds of the server's clock
  };
  if (header.length > MAX_PAYLOAD_BYTES) {
    throw new Error('a record is too long');
  }
  return header;
}

// Cuts the received bytes into records.
class RecordParser {
  #chunks = [];
  #available = 0;
  #header = null;  // of the record whose payload is incomplete

  * parse(chunk) {
    this.#chunks.push(chunk);
    this.#available += chunk.length;
    for (;;) {
      if (this.#header === null) {
        if (this.#available < HEADER_BYTES) {
          return;
        }
        this.#header = parseHeader(this.#take(HEADER_BYTES));
      }
      if (this.#available < this.#header.length) {
        return;
      }
      const record = { ...this.#header, payload: this.#take(this.#header.length) };
      this.#header = null;
      yield record;
    }
  }

  #take(length) {
    const bytes = new Uint8Array(length);
    for (let filled = 0; filled < length;) {
      const first = this.#chunks[0];
      const part = first.subarray(0, length - filled);
      bytes.set(part, filled);
      filled += part.length;
      if (part.length === first.length) {
        this.#chunks.shift();
      } else {
        this.#chunks[0] = first.subarray(part.length);
      }
    }
    this.#available -= length;
    return bytes;
  }
}

// Converts performance.now() to the server's clock. Both count the same system's time from different origins. A request
// for the time bounds the offset between them from both sides, a record from below. The fastest ones bound it closely.
// Bounds expire, since the clocks of two PCs, connected through SSH, drift.
class ServerClock {
  static #PERIOD_MS = 30000;
  static #UNBOUNDED = { min: -Infinity, max: Infinity };

  // Of the offset, in milliseconds: in this period and in the one before.
  #current = ServerClock.#UNBOUNDED;
  #previous = ServerClock.#UNBOUNDED;
  #periodEnd = 0;  // of performance.now()

  async measure() {
    const sent = performance.now();
    const response = await fetch('time');
    const received = performance.now();
    const time = Number(await response.text()) / 1000;
    if (!response.ok || !Number.isFinite(time)) {
      return;
    }
    if (received > this.#periodEnd) {
      this.#periodEnd = received + ServerClock.#PERIOD_MS;
      this.#previous = this.#current;
      this.#current = ServerClock.#UNBOUNDED;
    }
    const measured = { min: time - received, max: time - sent };
    this.#add(measured);
    const { min, max } = this.#bounds();
    if (min > max) {
      // One of the clocks stopped, for example while the PC slept.
      this.reset();
      this.#add(measured);
    }
  }

  // time: of the server's clock when it sent something, or earlier. received: performance.now() when it was received.
  noteReceived(time, received) {
    this.#add({ min: time - received, max: Infinity });
  }

  reset() {
    this.#current = ServerClock.#UNBOUNDED;
    this.#previous = ServerClock.#UNBOUNDED;
  }

  // In milliseconds; null before the first measurement.
  now() {
    const { min, max } = this.#bounds();
    return max === Infinity ? null : performance.now() + (min + max) / 2;
  }

  #add({ min, max }) {
    this.#current = { min: Math.max(this.#current.min, min), max: Math.min(this.#current.max, max) };
  }

  #bounds() {
    const [a, b] = [this.#current, this.#previous];
    return { min: Math.max(a.min, b.min), max: Math.min(a.max, b.max) };
  }
}

// ---- Decoding and drawing ------------------------------------------------------------------------------------------

// The sequence parameter set of an access unit in Annex B format, without the start code; null if there is none.
function findSps(data) {
  const isStartCode = (i) => data[i] === 0 && data[i + 1] === 0 && data[i + 2] === 1;
  for (let i = 0; i + 3 < data.length; ++i) {
    if (!isStartCode(i)) {
      continue;
    }
    const type = data[i + 3] & 0x1f;
    if (type >= 1 && type <= 5) {
      return null;  // Parameter sets precede the slices.
    }
    if (type === 7) {
      let end = i + 4;
      while (end < data.length && !isStartCode(end)) {
        ++end;
      }
      return data.slice(i + 3, end);
    }
  }
  return null;
}

// "avc1." and the profile, the constraint flags and the level.
function codecOf(sps) {
  return 'avc1.' + Array.from(sps.subarray(1, 4), (byte) => byte.toString(16).padStart(2, '0')).join('');
}

const isEqual = (a, b) => a.length === b.length && a.every((byte, i) => byte === b[i]);

// Why packets are left out until the next key frame.
const Wait = { NONE: 'none', FOR_STREAM: 'no key frame was received', SLOW: 'too slow', FAILED: 'decoder has failed' };

// Decodes packets and draws the newest picture.
//
// Pictures that were captured before the page was shown, which the server sends so that the decoder can start, are
// decoded but not drawn. While the tab is hidden, nothing is decoded: the packets since the last key frame are kept and
// decoded once the tab is visible again.
class Player {
  // The decoder is too slow if more packets than this are queued and one has waited longer than this. Packets are
  // then left out up to the next key frame.
  static #MAX_QUEUED_PACKETS = 15;
  static #MAX_WAIT_MS = 2000;
  // Bound of the packets that are kept for a hidden tab.
  static #MAX_GROUP_BYTES = 8 << 20;
  // Failures without a picture between them after which the browser's software decoder is requested, and after which
  // this page gives up decoding.
  static #FAILURES_OF_HARDWARE = 2;
  static #MAX_FAILURES = 4;

  #events;
  #canvas = byId('picture');
  #context = this.#canvas.getContext('2d', { alpha: false });
  #decoder = null;
  #sps = null;  // of the decoder's configuration
  #failures = 0;
  #prefersSoftware = false;
  #wait = Wait.FOR_STREAM;
  #pending = new Map();  // packets in the decoder by their number, in decoding order
  #lastKeyFrame = 0;  // its number
  #liveSince = 0;  // pictures from before this time of the server's clock are not drawn
  #newest = null;  // the decoded picture that will be drawn: frame and packet
  #drawRequest = null;
  #group = [];  // packets that were received while the tab is hidden
  #groupBytes = 0;

  // Frames that were not decoded because the decoder was too slow.
  slowFrames = 0;

  // events: onDraw(packet), onDecoderError(error), onUnusable()
  constructor(events) {
    this.#events = events;
    document.addEventListener('visibilitychange', () => this.#onVisibilityChange());
  }

  // A stream begins. time: of the server's clock.
  begin(time) {
    this.#closeDecoder();
    this.#discardGroup();
    this.#liveSince = time;
  }

  receive(packet) {
    if (document.hidden) {
      this.#keep(packet);
    } else {
      this.#decode(packet);
    }
  }

  // Nothing is decoded or drawn until the next key frame.
  stop() {
    this.#closeDecoder();
    this.#discardGroup();
    this.#discardNewest();
  }

  #onVisibilityChange() {
    if (document.hidden) {
      this.#discardNewest();
      return;
    }
    const group = this.#group;
    this.#discardGroup();
    this.#liveSince = group.at(-1)?.time ?? this.#liveSince;
    group.forEach((packet) => this.#decode(packet));
  }

  #keep(packet) {
    if (packet.isKeyFrame) {
      this.#discardGroup();
      this.#wait = Wait.NONE;
    }
    if (this.#wait !== Wait.NONE) {
      return;
    }
    this.#group.push(packet);
    this.#groupBytes += packet.payload.length;
    if (this.#groupBytes > Player.#MAX_GROUP_BYTES) {
      this.#discardGroup();
      this.#wait = Wait.FOR_STREAM;
    }
  }

  #discardGroup() {
    this.#group = [];
    this.#groupBytes = 0;
  }

  #decode(packet) {
    if (packet.isKeyFrame) {
      this.#wait = Wait.NONE;
    }
    if (this.#wait === Wait.NONE && this.#isFallingBehind()) {
      this.#wait = Wait.SLOW;
    }
    if (this.#wait !== Wait.NONE) {
      figures.undecoded += this.#wait === Wait.FOR_STREAM ? 0 : 1;
      this.slowFrames += this.#wait === Wait.SLOW ? 1 : 0;
      return;
    }
    if (packet.isKeyFrame) {
      this.#forgetPending(this.#lastKeyFrame - 1);
      this.#lastKeyFrame = packet.number;
    }
    this.#pending.set(packet.number, { time: packet.time, submitted: performance.now() });
    try {
      if (packet.isKeyFrame) {
        this.#configure(packet);
      }
      this.#decoder.decode(new EncodedVideoChunk({
        type: packet.isKeyFrame ? 'key' : 'delta',
        timestamp: packet.number,  // only identifies the picture
        data: packet.payload,
      }));
    } catch (error) {
      this.#onError(error);
    }
  }

  // Forgets the packets up to a number. A decoder may swallow packets, even all of them.
  #forgetPending(last) {
    for (const number of this.#pending.keys()) {
      if (number > last) {
        break;
      }
      this.#pending.delete(number);
    }
  }

  #isFallingBehind() {
    if (this.#decoder === null || this.#decoder.decodeQueueSize <= Player.#MAX_QUEUED_PACKETS) {
      return false;
    }
    const [oldest] = this.#pending.values();
    return oldest !== undefined && performance.now() - oldest.submitted > Player.#MAX_WAIT_MS;
  }

  #configure(packet) {
    const sps = findSps(packet.payload);
    if (this.#decoder !== null && (sps === null || isEqual(sps, this.#sps))) {
      return;
    }
    if (sps === null) {
      throw new Error('a key frame has no sequence parameter set');
    }
    if (this.#decoder === null) {
      const decoder = new VideoDecoder({
        output: (frame) => this.#onFrame(decoder, frame),
        error: (error) => decoder === this.#decoder && this.#onError(error),
      });
      this.#decoder = decoder;
    }
    this.#sps = sps;
    this.#decoder.configure({
      codec: codecOf(sps),
      optimizeForLatency: true,
      hardwareAcceleration: this.#prefersSoftware ? 'prefer-software' : 'no-preference',
      // The stream declares it, too, but not every decoder passes it on.
      colorSpace: { primaries: 'smpte170m', transfer: 'smpte170m', matrix: 'smpte170m', fullRange: false },
    });
  }

  #onError(error) {
    figures.undecoded += this.#pending.size;
    this.#closeDecoder();
    this.#wait = Wait.FAILED;
    ++this.#failures;
    this.#prefersSoftware ||= this.#failures >= Player.#FAILURES_OF_HARDWARE;
    if (this.#failures >= Player.#MAX_FAILURES) {
      this.#events.onUnusable();
    } else {
      this.#events.onDecoderError(error);
    }
  }

  #closeDecoder() {
    if (this.#decoder !== null && this.#decoder.state !== 'closed') {
      this.#decoder.close();
    }
    this.#decoder = null;
    this.#pending.clear();
    this.#wait = Wait.FOR_STREAM;
  }

  #onFrame(decoder, frame) {
    const number = frame.timestamp;
    const pending = this.#pending.get(number);
    if (decoder !== this.#decoder || pending === undefined) {
      frame.close();
      return;
    }
    ++figures.decoded;
    this.#failures = 0;
    const packet = { number, ...pending };
    this.#forgetPending(number);
    const isOld = packet.time < this.#liveSince && number !== figures.lastPacket;
    if (document.hidden || isOld) {
      frame.close();
      return;
    }
    if (this.#newest !== null) {
      this.#newest.frame.close();
      ++figures.replaced;
    }
    this.#newest = { frame, packet };
    this.#drawRequest ??= requestAnimationFrame(() => this.#draw());
  }

  #draw() {
    this.#drawRequest = null;
    const { frame, packet } = this.#newest;
    this.#newest = null;
    if (this.#canvas.width !== frame.displayWidth || this.#canvas.height !== frame.displayHeight) {
      this.#canvas.width = frame.displayWidth;
      this.#canvas.height = frame.displayHeight;
      byId('stage').style.setProperty('--ratio', frame.displayHeight / frame.displayWidth);
    }
    this.#context.drawImage(frame, 0, 0);
    frame.close();
    ++figures.drawn;
    figures.lastDrawn = packet.number;
    this.#events.onDraw(packet);
  }

  #discardNewest() {
    if (this.#newest !== null) {
      cancelAnimationFrame(this.#drawRequest);
      this.#drawRequest = null;
      this.#newest.frame.close();
      this.#newest = null;
    }
  }
}

// High profile, as the camera's streams have. The exact one is known only from a key frame.
const TYPICAL_CODEC = 'avc1.640028';

async function canDecode() {
  if (!('VideoDecoder' in window)) {
    return false;
  }
  try {
    return (await VideoDecoder.isConfigSupported({ codec: TYPICAL_CODEC, optimizeForLatency: true })).supported;
  } catch {
    return false;
  }
}

// ---- Figures -------------------------------------------------------------------------------------------------------

const PLOT_MS = 30000;
const BIT_RATE_MS = 5000;  // the interval between key frames, which are much larger than the other packets
const FRAME_RATE_MS = 2000;
const DELAY_MS = 1000;

class History {
  #packets = [];  // of the last 30 s: time, bytes, isKeyFrame
  #draws = [];  // of the last seconds: time of performance.now(), delay in milliseconds or null

  addPacket(packet) {
    this.#packets.push({ time: packet.time, bytes: packet.payload.length, isKeyFrame: packet.isKeyFrame });
    const firstKept = this.#packets.findIndex(({ time }) => time >= packet.time - PLOT_MS);
    this.#packets.splice(0, firstKept);
  }

  addDraw(delay) {
    const now = performance.now();
    this.#draws.push({ time: now, delay });
    const firstKept = this.#draws.findIndex(({ time }) => time >= now - FRAME_RATE_MS);
    this.#draws.splice(0, firstKept);
  }

  clear() {
    this.#packets = [];
    this.#draws = [];
  }

  // The packets of the last milliseconds before a time of the server's clock; null: before the last packet.
  packets(milliseconds, now) {
    const end = now ?? this.#packets.at(-1)?.time ?? 0;
    return this.#packets.filter(({ time }) => time > end - milliseconds);
  }

  // Drawn frames per second; null if too few were drawn.
  frameRate() {
    const begin = performance.now() - FRAME_RATE_MS;
    const times = this.#draws.map(({ time }) => time).filter((time) => time >= begin);
    return times.length < 2 ? null : (times.length - 1) * 1000 / (times.at(-1) - times[0]);
  }

  // In Mbit/s; null if no packet arrived.
  bitRate(now) {
    const packets = this.packets(BIT_RATE_MS, now);
    return packets.length === 0 ? null : packets.reduce((sum, { bytes }) => sum + bytes, 0) * 8 / BIT_RATE_MS / 1000;
  }

  // The median in milliseconds; null if it is unknown.
  delay() {
    const begin = performance.now() - DELAY_MS;
    const delays = this.#draws.filter(({ time, delay }) => time >= begin && delay !== null);
    return delays.length === 0 ? null : median(delays.map(({ delay }) => delay));
  }
}

class Plot {
  #canvas = byId('plot');
  #context = this.#canvas.getContext('2d');

  draw(packets, end) {
    const ratio = window.devicePixelRatio;
    const width = Math.round(this.#canvas.clientWidth * ratio);
    const height = Math.round(this.#canvas.clientHeight * ratio);
    if (this.#canvas.width !== width || this.#canvas.height !== height) {
      this.#canvas.width = width;
      this.#canvas.height = height;
    }
    const context = this.#context;
    const style = getComputedStyle(document.documentElement);
    const largest = Math.max(1, ...packets.map(({ bytes }) => bytes));
    const mark = 5 * ratio;  // half the width of a triangle, and its height
    context.clearRect(0, 0, width, height);
    for (const { time, bytes, isKeyFrame } of packets) {
      const x = width * (1 - (end - time) / PLOT_MS);
      const bar = Math.max(ratio, (height - 2 * mark) * bytes / largest);
      context.fillStyle = style.getPropertyValue(isKeyFrame ? '--key-frame' : '--plot');
      context.fillRect(x - ratio, height - bar, (isKeyFrame ? 2 : 1) * ratio, bar);
      if (isKeyFrame) {
        context.beginPath();
        context.moveTo(x - mark, height - bar - 1.6 * mark);
        context.lineTo(x + mark, height - bar - 1.6 * mark);
        context.lineTo(x, height - bar - 0.4 * mark);
        context.fill();
      }
    }
  }
}

function describePackets(packets) {
  if (packets.length === 0) {
    return 'No packets in the last 30 seconds.';
  }
  const keyFrames = packets.filter(({ isKeyFrame }) => isKeyFrame);
  const others = packets.filter(({ isKeyFrame }) => !isKeyFrame);
  const sizes = (list) => `median ${sizeText(median(list.map(({ bytes }) => bytes)))}, ` +
      `largest ${sizeText(Math.max(...list.map(({ bytes }) => bytes)))}`;
  return [`${plural(packets.length, 'packet')} in the last 30 seconds`,
    ...(keyFrames.length > 0 ? [`${plural(keyFrames.length, 'key frame')}: ${sizes(keyFrames)}`] : []),
    ...(others.length > 0 ? [`other packets: ${sizes(others)}`] : [])].join('; ') + '.';
}

// ---- Requests ------------------------------------------------------------------------------------------------------

// Of responses that the server sends before it knows what is requested.
const ERROR_TEXTS = {
  421: 'This is not the address of nuveqcam; open the address that it printed',
  431: 'The browser sends too much data with each request; delete the cookies of this address',
  503: 'Too many pages or programs are connected; close one',
};

// The server's explanation of a failed request.
async function errorText(response) {
  try {
    const { error } = JSON.parse(await response.text());
    if (error) {
      return error;
    }
  } catch {
    // Not JSON.
  }
  return ERROR_TEXTS[response.status] ??
      `The program refused the request (HTTP status ${response.status}); reload the page`;
}

async function request(path, options) {
  let response;
  try {
    response = await fetch(path, options);
  } catch {
    throw new Error('The program does not answer; check that nuveqcam still runs');
  }
  if (!response.ok) {
    throw new Error(await errorText(response));
  }
  return response;
}

function post(path, body) {
  return request(path, {
    method: 'POST',
    headers: { 'Content-Type': 'application/json', 'X-Nuveqcam': '1' },
    body: JSON.stringify(body),
  });
}

function download(link) {
  document.body.append(link);
  link.click();
  link.remove();
}

// "20260131-235959", local time
function timestamp(date = new Date()) {
  const pad = (number) => String(number).padStart(2, '0');
  return `${date.getFullYear()}${pad(date.getMonth() + 1)}${pad(date.getDate())}-` +
      `${pad(date.getHours())}${pad(date.getMinutes())}${pad(date.getSeconds())}`;
}

// ---- The page ------------------------------------------------------------------------------------------------------

const RECONNECT_MS = [250, 500, 1000, 2000];
// A state is sent every second, so a connection without data for this long is broken.
const SILENCE_MS = 10000;
const CLOCK_INTERVAL_MS = 10000;
const CLOCK_SAMPLES_AT_START = 5;
const FIGURES_INTERVAL_MS = 500;
const PLOT_INTERVAL_MS = 250;
const PLOT_TEXT_INTERVAL_MS = 2000;
const CALM_PLOT_INTERVAL_MS = 2000;  // for prefers-reduced-motion
const NOTICE_MS = 15000;
const FINDING_MS = 2500;
// A chosen size or rate is shown until the server's state has it, at most for this long.
const CHOICE_MS = 5000;
// An arrow key on a closed list chooses each option on the way, and each one would reopen the camera.
const CHOICE_DELAY_MS = 500;
// Browsers open six connections to a server. A stream occupies one, and the other requests need one, too.
const MAX_STREAMS = 4;
// A video that is later than the first plays faster; one that is later than the second continues at its end.
const VIDEO_DELAY_S = 3;
const MAX_VIDEO_DELAY_S = 10;
const VIDEO_CATCH_UP_RATE = 1.25;
const PROBLEM_ENDED = {
  title: 'nuveqcam has ended',
  text: 'Run "nuveqcam view" again and open the address that it prints. If nuveqcam still runs, and only the ' +
      'connection to it was lost, this page continues once it is there again.',
};
const PROBLEM_INTERRUPTED = { title: 'Connecting to nuveqcam', text: 'The connection was interrupted.' };
const PROBLEM_MOVED = {
  title: 'This address is no longer valid',
  text: 'nuveqcam was restarted with another address. Open the address that it printed.',
};
const PROBLEM_TABS = {
  title: 'Too many tabs show the camera',
  text: `${MAX_STREAMS} tabs of this browser show it already. Close one of them, and this tab will show it.`,
};
const PROBLEM_NO_H264 = {
  title: 'This browser cannot play H.264 video',
  text: 'Open this page in another browser, or the stream in another program: see below.',
};

const clock = new ServerClock();
const recent = new History();
const plot = new Plot();
const isMotionReduced = matchMedia('(prefers-reduced-motion: reduce)');

const page = {
  isConnected: false,
  problem: { title: 'Connecting to nuveqcam', text: '' },  // of the connection
  state: null,  // as the server sent it
  hasPicture: false,
  skippedBefore: 0,  // by the server, in earlier connections
  choice: null,  // of the user, until the state has it: width, height, fps, and expiry as of performance.now()
  isRecordingOwn: false,  // this page has started the recording and not stopped it
  isStopping: false,
  isRecordBusy: false,  // the program has not yet answered the user's last request
  cannotDecode: '',  // why the page shows stream.mp4; empty: it decodes packets
};

const player = new Player({
  onDraw(packet) {
    const now = clock.now();
    recent.addDraw(now === null ? null : now - packet.time);
    notePicture();
  },
  onDecoderError(error) {
    showForAWhile(byId('decoder-notice'),
        `The browser could not decode a packet (${error.message}). The picture continues at the next key frame.`);
  },
  onUnusable() {
    page.cannotDecode = 'The video decoder of this browser failed several times.';
    abortStream();
  },
});

function notePicture() {
  // Packets of a camera that has failed may follow its state.
  if (!page.hasPicture && page.state?.camera.phase !== 'failed') {
    page.hasPicture = true;
    render();
  }
}

const hidingTimers = new Map();  // by element

function showForAWhile(element, text) {
  setMessage(element, text);
  clearTimeout(hidingTimers.get(element));
  hidingTimers.set(element, setTimeout(() => setMessage(element, ''), NOTICE_MS));
}

// Runs an action of the user. Its result is shown for a while, its failure until the next action.
async function act(action) {
  setMessage(byId('action-error'), '');
  try {
    const notice = await action();
    if (notice) {
      showForAWhile(byId('action-notice'), notice);
    }
  } catch (error) {
    // The state may have told it already.
    setMessage(byId('action-error'), error.message === byId('recording-error').textContent ? '' : error.message);
  }
}

// ---- The connection ------------------------------------------------------------------------------------------------

let abortStream = () => {};

function disconnect(problem) {
  page.isConnected = false;
  page.problem = problem;
  page.hasPicture = false;
  player.stop();
  render();
}

function onPacket(packet, previous) {
  if (previous !== null && packet.number !== previous + 1) {
    figures.missing += Math.max(0, packet.number - previous - 1);
  }
  ++figures.packets;
  figures.lastPacket = packet.number;
  recent.addPacket(packet);
  player.receive(packet);
}

function onState(state) {
  const recording = page.state?.recording;
  page.state = state;
  figures.skipped = page.skippedBefore + state.skipped;
  if (state.camera.phase === 'failed' || state.camera.phase === 'closed') {
    player.stop();
    page.hasPicture = false;
  }
  if (recording !== undefined && recording.running !== state.recording.running) {
    setText(byId('recording-change'), `The recording has ${state.recording.running ? 'begun' : 'ended'}.`);
    if (!state.recording.running && page.isRecordingOwn && !page.isStopping) {
      page.isRecordingOwn = false;
      // Otherwise it has ended by itself, for example because the size has changed.
      if (!state.recording.stopped) {
        act(stopRecording);
      }
    }
  }
  render();
}

// Reads records until the connection ends. Calls onData with performance.now() whenever bytes arrive. Throws what the
// reader throws.
async function readStream(body, onData) {
  const reader = body.getReader();
  const parser = new RecordParser();
  let hasBegun = false;
  let previous = null;  // number of the previous packet
  try {
    for (;;) {
      const { done, value } = await reader.read();
      if (done) {
        return;
      }
      const received = performance.now();
      onData(received);
      for (const record of parser.parse(value)) {
        clock.noteReceived(record.time, received);
        if (record.kind === RecordKind.STATE) {
          if (!hasBegun) {
            hasBegun = true;
            player.begin(record.time);
          }
          onState(JSON.parse(new TextDecoder().decode(record.payload)));
        } else if (record.kind === RecordKind.PACKET) {
          onPacket(record, previous);
          previous = record.number;
        }
      }
    }
  } finally {
    reader.cancel().catch(() => {});
  }
}

// A response that has no stream or state.
class Refusal extends Error {
  constructor(problem, isFinal) {
    super(problem.title);
    this.problem = problem;
    this.isFinal = isFinal;  // there is no use in trying again
  }
}

// Throws Refusal, or what fetch throws.
async function connectTo(path, options) {
  const response = await fetch(path, options);
  if (response.status === 404) {
    throw new Refusal(PROBLEM_MOVED, true);
  }
  if (!response.ok) {
    throw new Refusal({ title: 'nuveqcam refused the connection', text: await errorText(response) }, false);
  }
  return response;
}

function startConnection() {
  page.skippedBefore = figures.skipped;
  clock.reset();
  recent.clear();
  page.isConnected = true;
  page.problem = null;
  measureClock(CLOCK_SAMPLES_AT_START);
  render();
}

// Plays the stream until it ends. Throws Refusal, or what fetch and the reader throw.
async function playStream(signal) {
  const response = await connectTo('stream', { signal });
  startConnection();
  let lastData = performance.now();
  const watchdog = setInterval(() => {
    if (performance.now() - lastData > SILENCE_MS) {
      abortStream();
    }
  }, SILENCE_MS / 10);
  try {
    await readStream(response.body, (time) => { lastData = time; });
  } finally {
    clearInterval(watchdog);
  }
}

// Shows stream.mp4 for a browser that cannot decode packets, until the connection fails. Throws Refusal, or what fetch
// throws.
async function playVideo(signal) {
  const video = byId('video');
  if (video.canPlayType(`video/mp4; codecs="${TYPICAL_CODEC}"`) === '') {
    throw new Refusal(PROBLEM_NO_H264, true);
  }
  onState(await (await connectTo('state', { signal })).json());
  startConnection();
  try {
    for (;;) {
      // The video ends when the size changes.
      if (!video.hasAttribute('src') || video.ended || video.error !== null) {
        page.hasPicture = false;
        video.src = 'stream.mp4';
        video.play().catch(() => {});  // the next round tries again
      }
      await sleep(1000);
      onState(await (await connectTo('state', { signal })).json());
      followVideo(video);
    }
  } finally {
    video.removeAttribute('src');
    video.load();
  }
}

// Keeps a video near its end, because its delay would otherwise grow with each interruption. A seek is the last resort:
// Firefox then waits for seconds of the video before it continues.
function followVideo(video) {
  const end = video.buffered.length === 0 ? 0 : video.buffered.end(video.buffered.length - 1);
  const delay = end - video.currentTime;
  if (delay > MAX_VIDEO_DELAY_S) {
    video.currentTime = end - VIDEO_DELAY_S;
  }
  video.playbackRate = delay > VIDEO_DELAY_S ? VIDEO_CATCH_UP_RATE : 1;
  figures.replaced = video.getVideoPlaybackQuality().droppedVideoFrames;
}

function watchVideoFrames() {
  const video = byId('video');
  const onFrame = () => {
    ++figures.drawn;
    recent.addDraw(null);
    notePicture();
    video.requestVideoFrameCallback?.(onFrame);
  };
  if ('requestVideoFrameCallback' in video) {
    video.requestVideoFrameCallback(onFrame);
  } else {
    video.addEventListener('timeupdate', notePicture);
  }
}

// Connects again whenever the connection ends, since nuveqcam may still run: the PC slept, or SSH was interrupted.
async function keepConnected() {
  for (let attempt = 0; ; ++attempt) {
    const controller = new AbortController();
    abortStream = () => controller.abort();
    try {
      await (page.cannotDecode === '' ? playStream : playVideo)(controller.signal);
    } catch (error) {
      if (error instanceof Refusal) {
        disconnect(error.problem);
        if (error.isFinal) {
          return;
        }
      } else if (!page.isConnected && attempt > 0) {
        disconnect(PROBLEM_ENDED);
      }
    }
    if (page.isConnected) {
      attempt = 0;
      disconnect(PROBLEM_INTERRUPTED);
    }
    await sleep(RECONNECT_MS[Math.min(attempt, RECONNECT_MS.length - 1)]);
  }
}

async function measureClock(count) {
  for (let i = 0; i < count && page.isConnected; ++i) {
    try {
      await clock.measure();
    } catch {
      return;  // The stream's failure will be reported.
    }
  }
}

// Waits until this page may open a stream.
async function acquireStream() {
  const acquire = (name) => new Promise((resolve, reject) => {
    navigator.locks.request(name, { ifAvailable: true }, (lock) => {
      resolve(lock !== null);
      // Held until the page is closed.
      return lock === null ? null : new Promise(() => {});
    }).catch(reject);
  });
  while (navigator.locks) {
    for (let i = 0; i < MAX_STREAMS; ++i) {
      if (await acquire(`stream ${i}`)) {
        return;
      }
    }
    disconnect(PROBLEM_TABS);
    await sleep(1000);
  }
}

// ---- Controls ------------------------------------------------------------------------------------------------------

const sizeValue = ({ width, height }) => `${width}x${height}`;
// The camera is requested with whole frames per second.
const rateValue = (rate) => String(Math.round(rate));

// options: pairs of value and text
function fillSelect(select, options, value) {
  const key = JSON.stringify(options);
  // Replacing the options would close an open list.
  if (select.dataset.options !== key) {
    select.dataset.options = key;
    select.replaceChildren(...options.map(([optionValue, text]) => new Option(text, optionValue)));
  }
  if (select.value !== value) {
    select.value = value;
  }
}

function renderFormat(camera, isUsable) {
  const [size, rate] = [byId('size'), byId('rate')];
  size.disabled = !isUsable || camera.sizes.length === 0;
  rate.disabled = !isUsable || camera.rates.length === 0;
  const { choice } = page;
  const hasChoice = choice !== null && camera.width === choice.width && camera.height === choice.height &&
      camera.fps === choice.fps;
  if (hasChoice || performance.now() > (choice?.expiry ?? 0)) {
    page.choice = null;
  }
  const { width, height, fps } = page.choice ?? camera;
  const sizeOption = (offered) => [sizeValue(offered), `${offered.width} × ${offered.height}`];
  const sizes = camera.sizes.map(sizeOption);
  const rates = camera.rates.map((offered) => [rateValue(offered), `${offered} frames/s`]);
  // The program's options may request others than the camera offers.
  if (width !== null && !sizes.some(([value]) => value === sizeValue({ width, height }))) {
    sizes.push(sizeOption({ width, height }));
  }
  if (fps !== null && !rates.some(([value]) => value === rateValue(fps))) {
    rates.push([rateValue(fps), `${fps} frames/s`]);
  }
  fillSelect(size, sizes, width === null ? '' : sizeValue({ width, height }));
  fillSelect(rate, rates, fps === null ? '' : rateValue(fps));
}

let formatTimer = null;

function changeFormat() {
  const [width, height] = byId('size').value.split('x').map(Number);
  const fps = Number(byId('rate').value);
  const choice = { width, height, fps, expiry: performance.now() + CHOICE_DELAY_MS + CHOICE_MS };
  page.choice = choice;
  clearTimeout(formatTimer);
  formatTimer = setTimeout(() => act(async () => {
    try {
      await post('camera', { width, height, fps });
    } catch (error) {
      if (page.choice === choice) {
        page.choice = null;
        render();
      }
      throw error;
    }
  }), CHOICE_DELAY_MS);
}

function toggleFullScreen() {
  return act(async () => {
    try {
      await (document.fullscreenElement ? document.exitFullscreen() : byId('stage').requestFullscreen());
    } catch {
      throw new Error('The browser did not allow full screen; try its own full-screen mode (F11)');
    }
  });
}

function takeSnapshot() {
  return act(async () => {
    const response = await request('snapshot.png');
    const link = document.createElement('a');
    link.download = `camera-${timestamp()}.png`;
    link.href = URL.createObjectURL(await response.blob());
    download(link);
    // The browser has begun to save it by then.
    setTimeout(() => URL.revokeObjectURL(link.href), 60000);
    return `Downloading ${link.download}.`;
  });
}

// Completes the recording and downloads it.
async function stopRecording() {
  page.isStopping = true;
  try {
    const { file, frames, seconds } = await (await post('record', { record: false })).json();
    const link = document.createElement('a');
    link.download = '';  // the server's response has the name
    link.href = file;
    download(link);
    return `Recorded ${plural(frames, 'frame')} in ${seconds.toFixed(1)} s.`;
  } finally {
    page.isRecordingOwn = false;
    page.isStopping = false;
  }
}

async function startRecording() {
  await post('record', { record: true });
  page.isRecordingOwn = true;
}

async function toggleRecording() {
  page.isRecordBusy = true;
  render();
  await act(page.state?.recording.running ? stopRecording : startRecording);
  page.isRecordBusy = false;
  render();
}

function renderRecording(recording, isUsable) {
  const button = byId('record');
  const isRunning = page.isConnected && (recording?.running ?? false);
  setEnabled(button, !page.isRecordBusy && (isUsable || isRunning));
  button.classList.toggle('running', isRunning);
  setText(button, isRunning ? 'Stop recording' : 'Record');
  setMessage(byId('recording-status'),
      isRunning ? `Recording: ${recording.seconds.toFixed(0)} s, ${plural(recording.frames, 'frame')}, ` +
          `${sizeText(recording.bytes)}` : '');
  const error = recording?.error ?? '';
  setMessage(byId('recording-error'), error);
  if (error !== '' && error === byId('action-error').textContent) {
    setMessage(byId('action-error'), '');
  }
  const hasFile = page.isConnected && recording !== undefined && !recording.running && recording.file !== null;
  byId('recording-link').hidden = !hasFile;
}

// ---- Rendering -----------------------------------------------------------------------------------------------------

// Why there is no picture, or no current one; null if there is.
function currentProblem() {
  if (page.problem !== null) {
    return page.problem;
  }
  const camera = page.state?.camera;
  if (camera === undefined) {
    return { title: 'Connecting to nuveqcam' };
  }
  if (camera.phase === 'failed') {
    const { error, conclusion, advice } = camera;
    return { title: 'The camera cannot be shown', text: error, reason: conclusion, advice };
  }
  if (camera.phase !== 'open') {
    return { title: 'Opening the camera' };
  }
  return page.hasPicture ? null : { title: 'Waiting for a picture' };
}

function renderProblem(problem) {
  const box = byId('problem');
  box.hidden = problem === null;
  box.classList.toggle('over-picture', page.hasPicture);
  setText(byId('problem-title'), problem?.title ?? '');
  setMessage(byId('problem-text'), problem?.text ?? '');
  setMessage(byId('problem-reason'), problem?.reason ?? '');
  const advice = problem?.advice ?? [];
  const list = byId('problem-advice');
  list.hidden = advice.length === 0;
  if (list.dataset.advice !== JSON.stringify(advice)) {
    list.dataset.advice = JSON.stringify(advice);
    list.replaceChildren(...advice.map((line) => {
      const item = document.createElement('li');
      item.textContent = line;
      return item;
    }));
  }
}

function renderCamera(camera) {
  const name = camera?.name || 'Camera';
  setText(byId('name'), name);
  // Otherwise it is part of the problem.
  setText(byId('conclusion'), page.isConnected && camera?.phase !== 'failed' ? camera?.conclusion ?? '' : '');
  if (document.title !== `${name} - nuveqcam`) {
    document.title = `${name} - nuveqcam`;
  }
  const isDecoding = page.cannotDecode === '';
  byId('picture').hidden = !page.hasPicture || !isDecoding;
  byId('video').hidden = !page.hasPicture || isDecoding;
}

// Which finding about the rate is the latest one, and since when.
const rateNotice = { key: '', since: 0 };

// What the program has found about the camera's rate. The notice is not updated with the rate, since a screen reader
// would announce it again each time, and not before the finding is steady: a rate near the limit would make it come and
// go.
function renderMeasured(camera, measured) {
  const { delivered, promised, findings } = measured ?? { delivered: null, promised: null, findings: [] };
  setText(byId('camera-rate'), delivered === null ? '-' : `${delivered.toFixed(1)} of ${promised}`);
  const notice = byId('findings');
  const key = JSON.stringify([camera?.width, camera?.height, promised, findings.map(({ finding }) => finding)]);
  if (rateNotice.key !== key) {
    Object.assign(rateNotice, { key, since: performance.now() });
  }
  const isSteady = delivered === null || performance.now() - rateNotice.since >= FINDING_MS;
  if (notice.dataset.key !== key && isSteady) {
    notice.dataset.key = key;
    setMessage(notice, findings.map(({ text, advice }) => `${text}; ${advice}.`).join(' '));
  }
}

// Everything but the figures.
function render() {
  const { state } = page;
  const camera = page.isConnected ? state?.camera : undefined;
  const isUsable = camera !== undefined && camera.phase === 'open';
  renderCamera(state?.camera);
  renderProblem(currentProblem());
  renderMeasured(camera, isUsable ? state.measured : undefined);
  setMessage(byId('camera-error'), isUsable ? camera.error : '');
  setMessage(byId('camera-notice'), isUsable ? camera.notice : '');
  if (state !== null) {
    // While the camera opens or has failed, another size may be chosen.
    renderFormat(state.camera, page.isConnected);
    setText(byId('version'), `nuveqcam ${state.version}`);
  }
  setEnabled(byId('snapshot'), isUsable);
  byId('plot-figure').hidden = page.cannotDecode !== '';
  renderRecording(state?.recording, isUsable);
  setMessage(byId('fallback-notice'), page.cannotDecode === '' ? '' :
    `${page.cannotDecode} The picture is therefore a video, which is a second or more late. A current version of ` +
      'Chromium, Chrome or Edge shows it without that delay.');
}

function renderFigures() {
  const isLive = page.isConnected && page.state?.camera.phase === 'open';
  const now = clock.now();
  const number = (value, digits, unit) => (isLive && value !== null ? value.toFixed(digits) + unit : '-');
  setText(byId('frame-rate'), number(recent.frameRate(), 1, ''));
  setText(byId('bit-rate'), number(recent.bitRate(now), 2, ' Mbit/s'));
  setText(byId('delay'), number(recent.delay(), 1, ' ms'));
  setText(byId('left-out'), String(figures.skipped + figures.undecoded + figures.replaced));
  setText(byId('viewers'), page.isConnected && page.state !== null ? String(page.state.viewers) : '-');
}

function drawPlot() {
  const now = clock.now();
  const packets = recent.packets(PLOT_MS, now);
  plot.draw(packets, now ?? packets.at(-1)?.time ?? 0);
}

function renderPlotText() {
  setText(byId('plot-text'), describePackets(recent.packets(PLOT_MS, clock.now())));
}

const slowness = { known: 0, before: 0 };  // frames: at the last look, and before the current notice

function noteSlowness() {
  const frames = figures.skipped + player.slowFrames;
  if (frames === slowness.known) {
    return;
  }
  if (byId('slow-notice').hidden) {
    slowness.before = slowness.known;
  }
  slowness.known = frames;
  showForAWhile(byId('slow-notice'),
      `This page was too slow and skipped ${plural(frames - slowness.before, 'frame')}.`);
}

// ---- Start ---------------------------------------------------------------------------------------------------------

const SHORTCUTS = { f: toggleFullScreen, s: takeSnapshot, r: toggleRecording };
const SHORTCUT_BUTTONS = { f: 'full-screen', s: 'snapshot', r: 'record' };

function onKey(event) {
  const key = event.key.toLowerCase();
  const isText = event.target.closest?.('select, input:not([type="checkbox"]), textarea');
  if (!byId('shortcuts').checked || isText || event.repeat || event.ctrlKey || event.altKey || event.metaKey ||
      !(key in SHORTCUTS) || !isEnabled(byId(SHORTCUT_BUTTONS[key]))) {
    return;
  }
  event.preventDefault();
  SHORTCUTS[key]();
}

function listen() {
  byId('size').addEventListener('change', changeFormat);
  byId('rate').addEventListener('change', changeFormat);
  for (const [key, id] of Object.entries(SHORTCUT_BUTTONS)) {
    byId(id).addEventListener('click', () => isEnabled(byId(id)) && SHORTCUTS[key]());
  }
  document.addEventListener('keydown', onKey);
  document.addEventListener('fullscreenchange', () => {
    setText(byId('full-screen'), document.fullscreenElement ? 'Exit full screen' : 'Full screen');
  });
}

// The figures of a hidden tab are not updated.
function repeatWhileVisible(interval, action) {
  setTimeout(() => {
    if (!document.hidden) {
      action();
    }
    repeatWhileVisible(interval, action);
  }, interval());
}

async function start() {
  const streams = { 'mp4-address': 'stream.mp4', 'player-address': 'stream.mp4', 'h264-address': 'stream.h264' };
  for (const [id, stream] of Object.entries(streams)) {
    setText(byId(id), new URL(stream, location.href).href);
  }
  listen();
  render();
  if (!await canDecode()) {
    page.cannotDecode = 'This browser cannot decode H.264 packets (WebCodecs).';
  }
  watchVideoFrames();
  repeatWhileVisible(() => FIGURES_INTERVAL_MS, () => {
    noteSlowness();
    renderFigures();
  });
  repeatWhileVisible(() => (isMotionReduced.matches ? CALM_PLOT_INTERVAL_MS : PLOT_INTERVAL_MS), drawPlot);
  repeatWhileVisible(() => PLOT_TEXT_INTERVAL_MS, renderPlotText);
  setInterval(() => measureClock(1), CLOCK_INTERVAL_MS);
  await acquireStream();
  keepConnected();
}

start();
