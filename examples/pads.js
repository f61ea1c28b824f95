// Lists the pads and prints where the pen is in 20 reports of the first one, laid out as emulator/virtual-pad.layout.
// npm install koffi && node pads.js
const koffi = require('koffi');
const { promisify } = require('util');

const library = koffi.load('libvxpadcom.so.0');
const OnReport = koffi.proto('void OnReport(void *user, uint pad, uint iface, void *data, uint length)');
const OnRemoved = koffi.proto('void OnRemoved(void *user, uint pad)');
const GetSerialNumber = library.func('int GetSerialNumber(uint pad, void *text, int size, _Out_ uint *length)');
// A thread of the library waits until the main thread has run its callback: what waits for it belongs elsewhere.
const inBackground = (prototype) => promisify(library.func(prototype).async);
const SetDataReceivingEnabled = inBackground('int SetDataReceivingEnabled(uint pad, uint iface, uint enabled)');
const Deinitialize = inBackground('int Deinitialize()');

function fail(why) {
  console.error(why);
  process.exit(1);
}

async function main() {
  library.func('int Initialize()')();
  const onRemoved = koffi.register((user, pad) => fail(`pad ${pad} was removed`), koffi.pointer(OnRemoved));
  library.func('int SetOnDeviceRemovedHandler(OnRemoved *callback, void *user)')(onRemoved, null);
  const count = library.func('int GetDeviceCount(_Out_ uint *unused)')([0]);
  for (let pad = 1, text = Buffer.alloc(512), size = [0]; pad <= count; ++pad) {
    if (GetSerialNumber(pad, text, 256, size) === 0) console.log(`${pad}: ${text.toString('utf16le', 0, 2 * size[0])}`);
  }
  if (count === 0) fail("no pad found: 'vxpadctl list' tells why");
  let left = 20;
  const onReport = koffi.register((user, pad, iface, data, length) => {
    const report = Buffer.from(koffi.decode(data, 'uint8_t', length));
    if (left-- > 0) console.log(`pad ${pad}: x ${report.readUInt16LE(2)}, y ${report.readUInt16LE(4)}`);
    if (left === 0) Deinitialize().then(() => process.exit());
  }, koffi.pointer(OnReport));
  library.func('int SetOnDataReceivedHandler(uint pad, uint iface, OnReport *call, void *user)')(1, 0, onReport, null);
  if ((await SetDataReceivingEnabled(1, 0, 1)) !== 0) fail('pad 1: receiving cannot be started');
  setTimeout(() => fail('pad 1: too few reports within 10 s'), 10000);
}
main();
