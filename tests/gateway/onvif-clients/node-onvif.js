// node node-onvif.js HOST PORT CAMERA USER PASSWORD; a line of standard input each lets it go on.
const { OnvifDevice } = require('node-onvif');
const lines = require('readline').createInterface({ input: process.stdin })[Symbol.asyncIterator]();
const [host, port, camera, user, pass] = process.argv.slice(2);

(async () => {
  const device = new OnvifDevice({ xaddr: `http://${host}:${port}/onvif/${camera}/device_service`, user, pass });
  const seen = async (what) => { console.log(what); await lines.next(); };
  console.log('device', JSON.stringify(await device.init()));
  console.log('stream', device.getUdpStreamUrl());
  const ptz = device.services.ptz;
  const ProfileToken = device.getCurrentProfile().token;
  const asked = async (name, more) => (await ptz[name]({ ProfileToken, ...more })).data;
  await device.ptzMove({ speed: { x: -0.5, y: 0, z: 0 }, timeout: 8 });
  await seen('driving');
  console.log('status', JSON.stringify(await asked('getStatus')));
  await device.ptzStop();
  await seen('stopped');
  const spaces = JSON.stringify((await ptz.getNodes()).data);
  const z = spaces.includes('AbsoluteZoom') ? 0.1 : 0;
  if (spaces.includes('AbsolutePanTiltPositionSpace'))
    await asked('absoluteMove', { Position: { x: 0.05, y: 0.1, z }, Speed: { x: 1, y: 1, z: 1 } });
  if (spaces.includes('RelativePanTiltTranslationSpace'))
    await asked('relativeMove', { Translation: { x: 0.02, y: 0, z: 0 } });
  await device.ptzStop();
  await seen('stopped');
  try {
    await asked('setPreset', { PresetName: 'node-onvif' });
    const [preset] = [(await asked('getPresets')).GetPresetsResponse.Preset].flat();
    const PresetToken = preset.$.token;
    await asked('gotoPreset', { PresetToken });
    await device.ptzStop();
    await asked('removePreset', { PresetToken });
    console.log('presets', PresetToken, JSON.stringify((await asked('getPresets')).GetPresetsResponse));
  } catch (error) {
    if (!error.message.includes('has no presets')) throw error;
    console.log(error.message);
  }
  process.exit(0);
})().catch((error) => { console.log('failed', error.message || error); process.exit(1); });
