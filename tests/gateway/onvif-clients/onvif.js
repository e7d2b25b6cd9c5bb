// node onvif.js HOST PORT CAMERA USER PASSWORD; a line of standard input each lets it go on.
const { Cam } = require('onvif');
const lines = require('readline').createInterface({ input: process.stdin })[Symbol.asyncIterator]();
const [hostname, port, camera, username, password] = process.argv.slice(2);

const made = new Promise((resolve, reject) => {
  const cam = new Cam({ hostname, port, username, password, path: `/onvif/${camera}/device_service` },
    (error) => (error ? reject(error) : resolve(cam)));
});

made.then(async (cam) => {
  const call = (name, options) => new Promise((resolve, reject) => {
    const done = (error, value) => (error ? reject(new Error(`${name}: ${error.message}`)) : resolve(value));
    options === undefined ? cam[name](done) : cam[name](options, done);
  });
  const seen = async (what) => { console.log(what); await lines.next(); };
  console.log('device', JSON.stringify(await call('getDeviceInformation')));
  console.log('stream', (await call('getStreamUri', { protocol: 'RTSP' })).uri);
  console.log('snapshot', (await call('getSnapshotUri', {})).uri);
  const spaces = Object.values(await call('getNodes'))[0].supportedPTZSpaces;
  console.log('configurations', Object.keys(await call('getConfigurations')).length);
  await call('continuousMove', { x: 0.5, y: 0, zoom: 0, timeout: 8000 });
  await seen('driving');
  console.log('status', JSON.stringify(await call('getStatus', {})));
  await call('stop', { panTilt: true, zoom: true });
  await seen('stopped');
  if (spaces.absolutePanTiltPositionSpace) await call('absoluteMove', { x: 0.1, y: 0.1, onlySendPanTilt: true });
  if (spaces.relativePanTiltTranslationSpace) await call('relativeMove', { x: 0.02, y: 0 });
  await call('stop', {});
  await seen('stopped');
  if (spaces.absolutePanTiltPositionSpace) console.log('at', JSON.stringify((await call('getStatus', {})).position));
  try {
    await call('setPreset', { presetName: 'onvif' });
    const [token] = Object.values(await call('getPresets', {})).map((preset) => preset.$.token);
    await call('gotoPreset', { preset: token });
    await call('stop', {});
    await call('removePreset', { presetToken: token });
    console.log('presets', token, JSON.stringify(await call('getPresets', {})));
  } catch (error) {
    if (!error.message.includes('has no presets')) throw error;
    console.log(error.message);
  }
  process.exit(0);
}).catch((error) => { console.log('failed', error.message || error); process.exit(1); });
