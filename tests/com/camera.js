// The tour of camera.vbs as JScript has it: cscript //nologo camera.js ADDRESS
var failures = 0;

function check(what, actual, expected) {
  if (actual != expected) {
    WScript.Echo(what + " is " + actual + ", expected " + expected);
    failures++;
  }
}

function errorOf(call) {
  try {
    call();
  } catch (error) {
    return error;
  }
  return { number: 0, description: "no error" };
}

var drivers = new ActiveXObject("QVPTZ.PTZDrivers");
var list = [];
for (var entries = new Enumerator(drivers); !entries.atEnd(); entries.moveNext()) list.push(entries.item().Class);
check("entries listed", list.length, drivers.Count);
check("third class", list[2], "QVPTZ.Axis");
check("by position", drivers.Item(23).Name, "Pelco RS485 controller");

var camera = new ActiveXObject("QVPTZ.Axis");
var names = "";
for (var all = new Enumerator(camera); !all.atEnd(); all.moveNext()) names += all.item().Name;
check("options", names, "ZoomStep");
var choices = new VBArray(camera.Item("ZoomStep").Values).toArray();
check("range", choices.join(" to "), "0 to 10000");

var options = new ActiveXObject("QVPTZ.PropertyBag");
var error = errorOf(function () { camera.Connect(options.Contents); });
check("error number", error.number & 0xffff, 17003);
check("error text", error.description, "No address specified");
check("error number of null", errorOf(function () { camera.Connect(null); }).number & 0xffff, 13);
check("error number of undefined", errorOf(function () { camera.Connect(undefined); }).number & 0xffff, 13);

options.WriteProperty("Address", WScript.Arguments(0));
options.WriteProperty("Reset", true);
var contents = options.Contents;
check("Connect", camera.Connect(contents), true);
check("pan after a reset", camera.Pan, 0);
camera.Move(4);
check("pan after Move", camera.Pan, -5);
check("MoveBoth", camera.MoveBoth(1.5, -2.5), true);
check("pan", camera.Pan, -4);
check("tilt", camera.Tilt, -2);
check("Disconnect", camera.Disconnect(), true);
if (failures == 0) WScript.Echo("all done");
