// The cases of RFC 6455 against a server that sends each text back, by a client that shares no code with it.
//
//   node conformance.js SOCKET LIMIT
//
// SOCKET is a unix socket, LIMIT the bytes that the server takes for a message. A line per case, "ok" or "FAILED", and
// the exit code tells whether one failed.
'use strict';
const WebSocket = require('ws');

const [socketPath, limitText] = process.argv.slice(2);
const limit = Number(limitText);
const CONTINUATION = 0, TEXT = 1, BINARY = 2, CLOSE = 8, PING = 9, PONG = 10;
const patience = 20000;

const bytes = (...values) => Buffer.from(values);

/// A frame as the client library writes it, with whatever flags.
function frame(opcode, payload = '', flags = {}) {
  const data = Buffer.from(payload);
  const mask = flags.mask !== false;
  return Buffer.concat(WebSocket.Sender.frame(data, { fin: true, mask, readOnly: true, opcode, ...flags }));
}

const close = (code, reason = '') => {
  const payload = Buffer.concat([Buffer.alloc(2), Buffer.from(reason)]);
  payload.writeUInt16BE(code);
  return frame(CLOSE, payload);
};

/// A connection, what came over it in its order, and the code that it ended with.
class Peer {
  static open() {
    const peer = new Peer();
    const socket = new WebSocket(`ws+unix://${socketPath}:/d2/jr`, { skipUTF8Validation: true });
    peer.socket = socket;
    peer.heard = [];
    peer.waiting = [];
    const tell = (what) => (peer.waiting.length ? peer.waiting.shift()(what) : peer.heard.push(what));
    socket.on('message', (data) => tell(`message ${data}`));
    socket.on('pong', (data) => tell(`pong ${data}`));
    socket.on('close', (code) => tell(`close ${code}`));
    socket.on('error', (error) => tell(`error ${error.message}`));
    return new Promise((resolve, reject) => {
      socket.on('open', () => resolve(peer));
      setTimeout(() => reject(new Error('no handshake')), patience).unref();
    });
  }
  say(...frames) {
    this.socket._socket.write(Buffer.concat(frames));
  }
  async sayByteByByte(...frames) {
    for (const byte of Buffer.concat(frames)) {
      await new Promise((resolve) => this.socket._socket.write(bytes(byte), resolve));
      await new Promise(setImmediate);
    }
  }
  hear() {
    if (this.heard.length) return Promise.resolve(this.heard.shift());
    return new Promise((resolve, reject) => {
      this.waiting.push(resolve);
      setTimeout(() => reject(new Error('nothing came')), patience).unref();
    });
  }
  async expect(...all) {
    for (const what of all) {
      const heard = await this.hear();
      if (![].concat(what).includes(heard)) {
        throw new Error(`expected ${String(what).slice(0, 60)}, heard ${heard.slice(0, 60)}`);
      }
    }
  }
}

const cases = [];
const add = (name, run) => cases.push({ name, run });
/// The frames get these answers.
const answers = (name, frames, ...expected) =>
  add(name, async (peer) => {
    peer.say(...frames);
    await peer.expect(...expected);
  });
/// The frames are refused with this code, however they are cut.
const refused = (name, frames, code) => {
  answers(name, frames, `close ${code}`);
  add(`${name}, byte by byte`, async (peer) => {
    await peer.sayByteByByte(...frames);
    await peer.expect(`close ${code}`);
  });
};
const hex = (text) => Buffer.from(text.replace(/ /g, ''), 'hex');

for (const length of [0, 1, 125, 126, 127, 65535, 65536, limit]) {
  const text = 'x'.repeat(length);
  answers(`text of ${length} bytes`, [frame(TEXT, text)], `message ${text}`);
}
answers('binary message', [frame(BINARY, 'abc')], 'message abc');
answers('hundred messages in one write', Array.from({ length: 100 }, (_, i) => frame(TEXT, `${i}`)),
        ...Array.from({ length: 100 }, (_, i) => `message ${i}`));
answers('characters of all lengths', [frame(TEXT, 'κόσμε \u{10ffff} \u0000 €')], 'message κόσμε \u{10ffff} \u0000 €');
add('messages byte by byte', async (peer) => {
  await peer.sayByteByByte(frame(TEXT, 'κόσμε'), frame(PING, 'p'), frame(TEXT, 'y'.repeat(300)));
  await peer.expect('message κόσμε', 'pong p', `message ${'y'.repeat(300)}`);
});

// Fragments.
const part = (payload, opcode = CONTINUATION) => frame(opcode, payload, { fin: false });
const last = (payload) => frame(CONTINUATION, payload);
answers('two fragments', [part('a', TEXT), last('b')], 'message ab');
answers('five fragments, some empty', [part('', TEXT), part('a'), part(''), part('b'), last('')], 'message ab');
answers('thousand fragments', [part('', TEXT), ...Array(1000).fill(part('z')), last('')], `message ${'z'.repeat(1000)}`);
answers('character cut by a fragment', [part(bytes(0xce), TEXT), last(bytes(0xba))], 'message κ');
answers('pings between fragments', [part('a', TEXT), frame(PING, '1'), part('b'), frame(PING, '2'), last('c')],
        'pong 1', 'pong 2', 'message abc');
answers('pong between fragments', [part('a', TEXT), frame(PONG, 'late'), last('b')], 'message ab');
refused('continuation of nothing', [last('x')], 1002);
refused('first fragment that is a continuation', [part('x'), last('y')], 1002);
refused('text inside of a text', [part('a', TEXT), frame(TEXT, 'b')], 1002);
add('continuation behind a whole message', async (peer) => {
  peer.say(part('a', TEXT), last('b'));
  await peer.expect('message ab');
  peer.say(last('x'));
  await peer.expect('close 1002');
});
refused('ping in fragments', [frame(PING, 'x', { fin: false })], 1002);
refused('close in fragments', [frame(CLOSE, bytes(3, 0xe8), { fin: false })], 1002);
answers('close between fragments', [part('a', TEXT), close(1000)], 'close 1000');

// Control frames.
answers('ping without payload', [frame(PING)], 'pong ');
answers('ping of 125 bytes', [frame(PING, 'p'.repeat(125))], `pong ${'p'.repeat(125)}`);
refused('ping of 126 bytes', [frame(PING, 'p'.repeat(126))], 1002);
refused('close of 126 bytes', [frame(CLOSE, Buffer.concat([bytes(3, 0xe8), Buffer.alloc(124, 'r')]))], 1002);
answers('pong that nobody asked for', [frame(PONG, 'x'), frame(TEXT, 'on')], 'message on');
add('pings one after the other', async (peer) => {
  for (let i = 0; i < 10; ++i) {
    peer.say(frame(PING, `${i}`));
    await peer.expect(`pong ${i}`);
  }
});

// The end.
answers('close without a code', [frame(CLOSE)], ['close 1005', 'close 1000']);
for (const code of [1000, 1001, 1002, 1003, 1007, 1008, 1009, 1010, 1011, 3000, 3999, 4000, 4999]) {
  answers(`close with ${code}`, [close(code)], `close ${code}`);
}
answers('close with a reason', [close(1000, 'r'.repeat(123))], 'close 1000');
answers('frames behind a close', [close(1000), frame(TEXT, 'late'), frame(PING, 'late')], 'close 1000');
for (const code of [0, 999, 1004, 1005, 1006, 1016, 1100, 2000, 2999]) {
  refused(`close with ${code}`, [close(code)], 1002);
}
refused('close with half a code', [frame(CLOSE, bytes(3))], 1002);
answers('close whose reason is no UTF-8', [close(1000, bytes(0xff))], ['close 1007', 'close 1002']);

// Bits and codes that mean nothing.
for (const bit of ['rsv1', 'rsv2', 'rsv3']) {
  const set = (buffer) => Buffer.concat([bytes(buffer[0] | { rsv1: 0x40, rsv2: 0x20, rsv3: 0x10 }[bit]), buffer.subarray(1)]);
  refused(`${bit} of a text`, [set(frame(TEXT, 'x'))], 1002);
  refused(`${bit} of a ping`, [set(frame(PING, 'x'))], 1002);
}
for (const opcode of [3, 4, 5, 6, 7, 11, 12, 13, 14, 15]) refused(`opcode ${opcode}`, [frame(opcode, 'x')], 1002);
refused('text without a mask', [frame(TEXT, 'x', { mask: false })], 1002);
refused('ping without a mask', [frame(PING, 'x', { mask: false })], 1002);
refused('16-bit length of a short frame', [hex('81 fe 0001 00000000 78')], 1002);
refused('64-bit length of a short frame', [hex('81 ff 0000000000000001 00000000 78')], 1002);

// What is no text.
for (const [name, text] of Object.entries({
  'a lone continuation byte': '80', 'an overlong slash': 'c0af', 'an overlong zero': 'e08080', 'a surrogate': 'eda080',
  'a code beyond the last': 'f4908080', 'a byte that never occurs': 'ff', 'a character without its end': 'e282',
})) {
  refused(`text with ${name}`, [frame(TEXT, hex(text))], 1007);
  refused(`fragments with ${name}`, [part('good', TEXT), last(hex(text))], 1007);
}

// Too much.
answers('message beyond the limit', [frame(TEXT, 'x'.repeat(limit + 1))], 'close 1009');
answers('fragments beyond the limit', [part('x'.repeat(limit), TEXT), last('y')], 'close 1009');
answers('length beyond all limits', [hex('81 ff 7fffffffffffffff 00000000 78')], 'close 1009');
answers('length whose highest bit is set', [hex('81 ff ffffffffffffffff 00000000 78')], ['close 1009', 'close 1002']);

async function main() {
  let failed = 0;
  for (const { name, run } of cases) {
    let peer;
    try {
      peer = await Peer.open();
      if (peer.socket.extensions !== '') throw new Error(`extensions ${peer.socket.extensions}`);
      await run(peer);
      console.log(`ok ${name}`);
    } catch (error) {
      ++failed;
      console.log(`FAILED ${name}: ${error.message}`);
    }
    if (peer) peer.socket.terminate();
  }
  console.log(`${cases.length} cases, ${failed} failed`);
  process.exit(failed ? 1 : 0);
}
main();
