#!/usr/bin/env python3
"""ptzgate as ONVIF devices, as clients of theirs speak with it.

Usage: onvif_test.py PTZGATE PTZSIM PTZCTL"""

import base64
import datetime
import hashlib
import http.client
import itertools
import os
import re
import socket
import sys
import time
import unittest
import xml.etree.ElementTree as ElementTree
from urllib.parse import urlsplit

sys.dont_write_bytecode = True
from gate import DEADLINE, Gate, Simulator, wait_for  # noqa: E402

PTZGATE, PTZSIM, _ = (sys.argv.pop(1) for _ in range(3))
NAMESPACES = {"env": "http://www.w3.org/2003/05/soap-envelope", "tds": "http://www.onvif.org/ver10/device/wsdl",
              "trt": "http://www.onvif.org/ver10/media/wsdl", "tptz": "http://www.onvif.org/ver20/ptz/wsdl",
              "tt": "http://www.onvif.org/ver10/schema", "ter": "http://www.onvif.org/ver10/error"}
DECLARED = " ".join(f'xmlns:{prefix}="{uri}"' for prefix, uri in NAMESPACES.items())
WSS = "http://docs.oasis-open.org/wss/2004/01/oasis-200401-wss-"
PROFILE = "<tptz:ProfileToken>profile</tptz:ProfileToken>"
DRIVE = (f'<tptz:ContinuousMove>{PROFILE}<tptz:Velocity><tt:PanTilt x="0.5" y="0"/></tptz:Velocity>'
         "</tptz:ContinuousMove>")
SPACES = "http://www.onvif.org/ver10/tptz/PanTiltSpaces/"
DEGREES = f'space="{SPACES}SphericalPositionSpaceDegrees"'
TIME = "<tds:GetSystemDateAndTime/>"
MAKES = {"axis": "address", "pelco": "line", "secubest": "address", "vivotek": "address"}
USERS = """
[user.anna]
role = "administrator"
onvif_password = "secret"
[user.bert]
role = "operator"
onvif_password = "another"
[user.vera]
role = "viewer"
onvif_password = "third"
"""


def envelope(body, header=""):
    return (f'<?xml version="1.0" encoding="UTF-8"?><env:Envelope {DECLARED}><env:Header>{header}</env:Header>'
            f"<env:Body>{body}</env:Body></env:Envelope>")


def token(user, password, age=0, nonce=None):
    """A login of WS-Security in a message."""
    nonce = nonce or os.urandom(16)
    created = (datetime.datetime.now(datetime.timezone.utc) - datetime.timedelta(seconds=age)).strftime(
        "%Y-%m-%dT%H:%M:%S.%fZ")
    digest = hashlib.sha1(nonce + created.encode() + password.encode()).digest()
    return (f'<wsse:Security env:mustUnderstand="1" xmlns:wsse="{WSS}wssecurity-secext-1.0.xsd" '
            f'xmlns:wsu="{WSS}wssecurity-utility-1.0.xsd"><wsse:UsernameToken><wsse:Username>{user}</wsse:Username>'
            f'<wsse:Password Type="{WSS}username-token-profile-1.0#PasswordDigest">{base64.b64encode(digest).decode()}'
            f"</wsse:Password><wsse:Nonce>{base64.b64encode(nonce).decode()}</wsse:Nonce>"
            f"<wsu:Created>{created}</wsu:Created></wsse:UsernameToken></wsse:Security>")


class Device:
    """One of the gateway's cameras, and what speaks with it."""

    def __init__(self, gate, name, login=None):
        self.host, self.path, self.login = gate.host, f"/onvif/{name}/device_service", login

    def post(self, text, headers=None, path=None):
        connection = http.client.HTTPConnection(self.host, timeout=DEADLINE)
        connection.request("POST", path or self.path, text.encode() if isinstance(text, str) else text,
                           {"Content-Type": "application/soap+xml; charset=utf-8", **(headers or {})})
        reply = connection.getresponse()
        content = reply.read()
        connection.close()
        return reply, content

    def ask(self, body):
        """The element in the answer's body, which is no fault."""
        reply, content = self.post(envelope(body, token(*self.login) if self.login else ""))
        if reply.status != 200:
            raise AssertionError(f"{body}: {reply.status} {content.decode()}")
        return ElementTree.fromstring(content).find("env:Body", NAMESPACES)[0]

    def fault(self, body, header=None):
        """The status and the codes of a fault, the outermost first."""
        if header is None:
            header = token(*self.login) if self.login else ""
        return codes(*self.post(envelope(body, header)))

    def move(self, operation, vectors, more=""):
        what = {"Absolute": "Position", "Relative": "Translation", "Continuous": "Velocity"}[operation]
        return self.ask(f"<tptz:{operation}Move>{PROFILE}<tptz:{what}>{vectors}</tptz:{what}>{more}"
                        f"</tptz:{operation}Move>")

    def stop(self, more=""):
        self.ask(f"<tptz:Stop>{PROFILE}{more}</tptz:Stop>")

    def status(self):
        status = self.ask(f"<tptz:GetStatus>{PROFILE}</tptz:GetStatus>")
        at = status.find(".//tt:Position/tt:PanTilt", NAMESPACES)
        return (status.find(".//tt:MoveStatus/tt:PanTilt", NAMESPACES).text,
                None if at is None else (float(at.get("x")), float(at.get("y"))))

    def presets(self):
        answer = self.ask(f"<tptz:GetPresets>{PROFILE}</tptz:GetPresets>")
        return {one.get("token"): one.find("tt:Name", NAMESPACES).text for one in answer}


def codes(reply, content):
    values = ElementTree.fromstring(content).findall(".//env:Code//env:Value", NAMESPACES)
    return reply.status, *(value.text.split(":")[1] for value in values)


def text(element, path):
    return element.find(path, NAMESPACES).text


class Site(unittest.TestCase):
    """A gateway with cameras of several makes."""
    settings = ""

    @classmethod
    def setUpClass(cls):
        cls.simulators = {make: Simulator(PTZSIM, make) for make in MAKES}
        cls.gate = Gate(PTZGATE, {make: f'driver = "{make}"\n{key} = "{cls.simulators[make].address}"'
                                  for make, key in MAKES.items()}, cls.settings)

    @classmethod
    def tearDownClass(cls):
        cls.gate.end()
        for simulator in cls.simulators.values():
            simulator.end()

    def is_moving(self, make):
        return '"moving": true' in str(self.simulators[make].ask("state")).replace("'", '"').replace("True", "true")

    def rests(self, make):
        wait_for(lambda: not self.is_moving(make), f"{make} rests")


class Open(Site):
    settings = """[control]
longest_lease = "20s"
[picture.axis]
stream = "rtsp://127.0.0.1/axis"
snapshot = "http://127.0.0.1/axis.jpg"
width = 704
height = 576
[onvif.ports]
pelco = "127.0.0.1:0"
"""

    def setUp(self):
        for make in MAKES:
            wait_for(lambda: self.gate.camera(make)["connected"] or self.gate.ask(
                "POST", f"/api/v1/cameras/{make}/connect") and False, f"{make} is connected")

    def test_what_a_device_tells_of_itself(self):
        axis = Device(self.gate, "axis")
        base = f"http://{self.gate.host}/onvif/axis/"
        services = axis.ask("<tds:GetServices><tds:IncludeCapability>true</tds:IncludeCapability></tds:GetServices>")
        self.assertEqual([text(one, "tds:XAddr") for one in services],
                         [base + name for name in ("device_service", "media_service", "ptz_service")])
        own = axis.ask("<tptz:GetServiceCapabilities/>")[0].attrib
        self.assertEqual(services[2].find(".//tptz:Capabilities", NAMESPACES).attrib, own)
        capabilities = axis.ask("<tds:GetCapabilities><tds:Category>PTZ</tds:Category></tds:GetCapabilities>")
        self.assertEqual([one.text for one in capabilities.iter() if "XAddr" in one.tag], [base + "ptz_service"])
        now = datetime.datetime.now(datetime.timezone.utc)
        self.assertLessEqual(abs(int(text(axis.ask(TIME), ".//tt:UTCDateTime//tt:Year")) - now.year), 1)
        self.assertEqual(text(axis.ask("<tds:GetDeviceInformation/>"), "tds:Model"), "QVPTZ.Axis")
        self.assertNotEqual(*(text(Device(self.gate, make).ask("<tds:GetNetworkInterfaces/>"), ".//tt:HwAddress")
                              for make in ("axis", "pelco")))
        profile = axis.ask("<trt:GetProfiles/>")[0]
        self.assertEqual((profile.get("token"), text(profile, "tt:PTZConfiguration/tt:NodeToken"),
                          text(profile, ".//tt:Resolution/tt:Width")), ("profile", "node", "704"))
        uri = "<trt:Get{0}Uri><trt:ProfileToken>profile</trt:ProfileToken></trt:Get{0}Uri>".format
        self.assertEqual([text(axis.ask(uri(what)), ".//tt:Uri") for what in ("Stream", "Snapshot")],
                         ["rtsp://127.0.0.1/axis", "http://127.0.0.1/axis.jpg"])
        pelco = Device(self.gate, "pelco")
        self.assertEqual(pelco.fault(uri("Stream")), (500, "Receiver", "Action", "IncompleteConfiguration"))
        self.assertEqual(pelco.fault(uri("Snapshot")), (500, "Receiver", "ActionNotSupported"))

    def test_a_camera_is_at_a_port_of_its_own(self):
        own = urlsplit(self.gate.said("device")).netloc
        pelco = Device(self.gate, "pelco")
        pelco.host, pelco.path = own, "/onvif/device_service"
        self.assertEqual(text(pelco.ask("<tds:GetCapabilities/>"), ".//tt:PTZ/tt:XAddr"),
                         f"http://{own}/onvif/ptz_service")
        self.assertEqual(text(pelco.ask("<tds:GetDeviceInformation/>"), "tds:HardwareId"), "pelco")
        self.assertEqual(pelco.post(envelope(TIME), path="/onvif/axis/device_service")[0].status, 404)

    def test_spaces_are_what_the_camera_can(self):
        for make, spaces in (("axis", ("AbsolutePanTilt", "AbsoluteZoom", "RelativePanTilt", "ContinuousPanTilt")),
                             ("pelco", ("ContinuousPanTilt", "ContinuousZoom")),
                             ("secubest", ("ContinuousPanTilt",))):
            node = Device(self.gate, make).ask("<tptz:GetNode><tptz:NodeToken>node</tptz:NodeToken></tptz:GetNode>")
            offered = [one.tag.split("}")[1] for one in node.find(".//tt:SupportedPTZSpaces", NAMESPACES)]
            for space in spaces:
                with self.subTest(make, space=space):
                    self.assertTrue(any(name.startswith(space) for name in offered), offered)
        options = Device(self.gate, "axis").ask(
            "<tptz:GetConfigurationOptions><tptz:ConfigurationToken>ptz_configuration</tptz:ConfigurationToken>"
            "</tptz:GetConfigurationOptions>")
        self.assertEqual(text(options, ".//tt:PTZTimeout/tt:Max"), "PT20S")
        self.assertIn(SPACES + "SphericalTranslationSpaceDegrees",
                      [one.text for one in options.iter() if one.tag.endswith("URI")])

    def test_every_make_drives_and_stops(self):
        for make in MAKES:
            with self.subTest(make):
                device = Device(self.gate, make)
                # Some clients tell of every axis, whether there is such a one or not.
                device.move("Continuous", '<tt:PanTilt x="0.5" y="0"/><tt:Zoom x="0"/>',
                            "<tptz:Timeout>PT20S</tptz:Timeout>")
                wait_for(lambda: self.is_moving(make), f"{make} moves")
                self.assertEqual(device.status()[0], "MOVING")
                device.stop()
                self.rests(make)
                # Its time ends it where no client does.
                device.move("Continuous", '<tt:PanTilt x="-0.5" y="0"/>', "<tptz:Timeout>PT0.3S</tptz:Timeout>")
                self.rests(make)
                device.move("Continuous", '<tt:PanTilt x="1" y="0"/>')
                device.move("Continuous", '<tt:PanTilt x="0" y="0"/>')
                self.rests(make)

    def test_one_of_two_axes_stops_alone(self):
        axis = Device(self.gate, "axis")
        axis.move("Continuous", '<tt:PanTilt x="0.2" y="0"/>')
        axis.move("Continuous", '<tt:Zoom x="0.2"/>')
        axis.stop("<tptz:PanTilt>false</tptz:PanTilt><tptz:Zoom>true</tptz:Zoom>")
        self.assertEqual(axis.status()[0], "MOVING")
        axis.stop("<tptz:PanTilt>true</tptz:PanTilt><tptz:Zoom>false</tptz:Zoom>")
        self.rests("axis")

    def test_places_in_both_scales(self):
        axis = Device(self.gate, "axis")
        ranges = self.gate.camera("axis")["ranges"]
        for vector, pan, tilt in (('<tt:PanTilt x="0.25" y="0"/>', 0.25, 0),
                                  (f'<tt:PanTilt x="-30" y="9" {DEGREES}/>', None, 9)):
            axis.move("Absolute", vector)
            wait_for(lambda: axis.status()[0] == "IDLE", "axis arrives")
            head = self.simulators["axis"].ask("state")["heads"][0]
            expected = -30 if pan is None else ranges["pan"]["least"] + (pan + 1) / 2 * (
                ranges["pan"]["greatest"] - ranges["pan"]["least"])
            self.assertAlmostEqual(head["pan"], expected, delta=0.5)
            self.assertAlmostEqual(head["tilt"], tilt, delta=0.5)
        at = axis.status()[1]
        axis.move("Relative", '<tt:PanTilt x="0.1" y="0"/><tt:Zoom x="0"/>')
        wait_for(lambda: axis.status()[0] == "IDLE", "axis arrives")
        self.assertAlmostEqual(axis.status()[1][0] - at[0], 0.1, delta=0.01)
        # Where it was sent is not where it is.
        axis.move("Absolute", '<tt:PanTilt x="0.9" y="0"/>')
        axis.stop()
        self.assertLess(wait_for(lambda: axis.status()[1], "its place")[0], 0.8)

    def test_what_is_told_of_a_move_is_what_the_camera_took(self):
        pelco, axis = Device(self.gate, "pelco"), Device(self.gate, "axis")
        pelco.move("Relative", '<tt:PanTilt x="0.5" y="0"/>')
        wait_for(lambda: self.is_moving("pelco"), "pelco moves")
        pelco.stop()
        self.simulators["axis"].say("fault silent")
        self.assertEqual(axis.fault(f'<tptz:AbsoluteMove>{PROFILE}<tptz:Position><tt:PanTilt x="0.5" y="0"/>'
                                    "</tptz:Position></tptz:AbsoluteMove>"), (500, "Receiver", "Action"))
        self.simulators["axis"].say("clear")
        wait_for(lambda: self.gate.camera("axis")["link"] == "up", "axis is back")

    def test_presets_are_set_listed_gone_to_and_removed(self):
        for make in ("axis", "pelco", "vivotek"):
            with self.subTest(make):
                device = Device(self.gate, make)
                save = f"<tptz:SetPreset>{PROFILE}<tptz:PresetName>door &amp; yard</tptz:PresetName></tptz:SetPreset>"
                saved = device.ask(save)
                number = f"<tptz:PresetToken>{text(saved, 'tptz:PresetToken')}</tptz:PresetToken>"
                self.assertEqual(device.presets(), {text(saved, "tptz:PresetToken"): "door & yard"})
                self.assertEqual(device.fault(save), (400, "Sender", "InvalidArgVal", "PresetExist"))
                device.ask(f"<tptz:GotoPreset>{PROFILE}{number}</tptz:GotoPreset>")
                device.stop()
                device.ask(f"<tptz:RemovePreset>{PROFILE}{number}</tptz:RemovePreset>")
                self.assertEqual(device.presets(), {})

    def test_faults(self):
        axis, secubest = Device(self.gate, "axis"), Device(self.gate, "secubest")
        absolute = ("<tptz:AbsoluteMove>" + PROFILE + "<tptz:Position>{}</tptz:Position></tptz:AbsoluteMove>").format
        continuous = ("<tptz:ContinuousMove>" + PROFILE + '<tptz:Velocity><tt:PanTilt x="{}" y="0"/></tptz:Velocity>'
                      "<tptz:Timeout>{}</tptz:Timeout></tptz:ContinuousMove>").format
        sender, receiver = (400, "Sender", "InvalidArgVal"), (500, "Receiver")
        preset = ("<tptz:{0}>" + PROFILE + "<tptz:PresetToken>{1}</tptz:PresetToken></tptz:{0}>").format
        home = ("<tptz:{0}>" + PROFILE + "</tptz:{0}>").format
        before = self.simulators["axis"].ask("state")
        for device, body, expected in (
                (axis, absolute('<tt:PanTilt x="1.1" y="0"/>'), (*sender, "InvalidPosition")),
                (axis, absolute(f'<tt:PanTilt x="0" y="181" {DEGREES}/>'), (*sender, "InvalidPosition")),
                (axis, absolute('<tt:PanTilt x="NaN" y="0"/>'), sender),
                (axis, absolute('<tt:PanTilt x="+-1" y="0"/>'), sender),
                (axis, absolute('<tt:PanTilt x="1"/>'), (400, "Sender", "InvalidArgs")),
                (axis, absolute('<tt:PanTilt x="1" y="0"/><tt:PanTilt x="0" y="0"/>'), (400, "Sender", "InvalidArgs")),
                (axis, absolute('<tt:PanTilt x="0" y="0" space="elsewhere"/>'), (*sender, "SpaceNotSupported")),
                (axis, absolute(""), (*sender, "InvalidPosition")),
                (secubest, absolute('<tt:Zoom x="0.5"/>'), (*sender, "SpaceNotSupported")),
                (axis, continuous("1.5", "PT1S"), (*sender, "InvalidVelocity")),
                (axis, continuous("1", "PT21S"), (*sender, "TimeoutNotSupported")),
                (axis, continuous("1", "soon"), sender),
                (axis, absolute('<tt:PanTilt x="0" y="0"/>').replace("profile<", "other<"), (*sender, "NoProfile")),
                (axis, preset("GotoPreset", "x"), (*sender, "NoToken")),
                (axis, preset("RemovePreset", "7"), (*sender, "NoToken")),
                (axis, "<tptz:GetNode><tptz:NodeToken>x</tptz:NodeToken></tptz:GetNode>", (*sender, "NoEntity")),
                (secubest, preset("SetPreset", "1"), (*receiver, "ActionNotSupported")),
                (axis, home("SetHomePosition"), (*receiver, "Action", "CannotOverwriteHome")),
                (secubest, home("GotoHomePosition"), (*receiver, "Action", "NoHomePosition")),
                (axis, "<tds:GetCapabilities><tds:Category>Events</tds:Category></tds:GetCapabilities>",
                 (*receiver, "ActionNotSupported", "NoSuchService")),
                (axis, "<tptz:Dance/>", (*receiver, "ActionNotSupported"))):
            with self.subTest(body):
                self.assertEqual(device.fault(body), expected)
        self.assertEqual(self.simulators["axis"].ask("state"), before)

    def test_what_is_no_message_moves_nothing(self):
        axis = Device(self.gate, "axis")
        move = envelope(DRIVE)
        before = self.simulators["axis"].ask("state")
        for message, status in ((move[:-9], 400), ("", 400), ("<a/>", 400), (b"\xff\xfe\x00<", 400),
                                (move.replace("<env:Body>", "<env:Body>" + "<a>" * 500), 400),
                                (move.replace("?>", '?><!DOCTYPE a [<!ENTITY b SYSTEM "file:///etc/hosts">]>', 1), 400),
                                (move.replace("</env:Body>", "</env:Body><env:Body/>"), 400),
                                (re.sub(' xmlns:tptz="[^"]*"', "", move), 400),
                                (move.replace("2003/05/soap-envelope", "2001/12/soap"), 500),
                                (move.replace("</env:Header>", '<x env:mustUnderstand="1"/></env:Header>'), 500),
                                (move + " " * 70000, 413)):
            with self.subTest(message[:200]):
                self.assertEqual(axis.post(message)[0].status, status)
        self.assertEqual(axis.post(move, {"Origin": "http://elsewhere.example"})[0].status, 403)
        self.assertEqual(axis.post(move, path="/onvif/nobody/ptz_service")[0].status, 404)
        self.assertEqual(self.simulators["axis"].ask("state"), before)


class Guarded(Site):
    settings = USERS

    def test_nobody_is_let_in_but_by_a_fresh_digest(self):
        anna = Device(self.gate, "axis", ("anna", "secret"))
        self.assertEqual(anna.post(envelope(TIME))[0].status, 200)
        question = "<tptz:GetNodes/>"
        anna.ask(question)
        refused = (400, "Sender", "NotAuthorized")
        used = token("anna", "secret")
        self.assertEqual(anna.post(envelope(question, used))[0].status, 200)
        for header in (used, token("anna", "secret", age=400), token("anna", "secret", age=-400),
                       token("anna", "wrong"), token("nobody", ""),
                       token("anna", "secret").replace("#PasswordDigest", "#PasswordText"),
                       token("anna", "secret").replace("Nonce>", "Once>")):
            with self.subTest(header):
                self.assertEqual(anna.fault(question, header), refused)
        # What is not offered, and what is not there, is told to those who are known.
        self.assertEqual(anna.fault("<tptz:Dance/>", ""), (401, "Sender", "NotAuthorized"))

    def test_http_digests(self):
        anna = Device(self.gate, "axis")
        reply, _ = anna.post(envelope("<tptz:GetNodes/>"))
        self.assertEqual(reply.status, 401)
        challenges = [dict(re.findall(r'(\w+)="?([^",]+)', line)) for line in reply.headers.get_all("WWW-Authenticate")]
        self.assertEqual([one["algorithm"] for one in challenges], ["MD5", "SHA-256"])
        counts = itertools.count(1)

        def login(challenge, password="secret", count=None, nonce=None):
            new = hashlib.md5 if challenge["algorithm"] == "MD5" else hashlib.sha256
            nonce, nc = nonce or challenge["nonce"], f"{count or next(counts):08x}"
            first, second = (new(part.encode()).hexdigest() for part in
                             (f"anna:{challenge['realm']}:{password}", f"POST:{anna.path}"))
            response = new(f"{first}:{nonce}:{nc}:cafe:auth:{second}".encode()).hexdigest()
            line = (f'Digest username="anna", realm="{challenge["realm"]}", nonce="{nonce}", uri="{anna.path}", '
                    f'qop=auth, nc={nc}, cnonce="cafe", algorithm={challenge["algorithm"]}, response="{response}"')
            reply, _ = anna.post(envelope("<tptz:GetNodes/>"), {"Authorization": line})
            return reply.status, "stale=true" in str(reply.headers)

        for challenge in challenges:
            self.assertEqual(login(challenge), (200, False))
        self.assertEqual(login(challenges[0], count=1), (401, True))
        self.assertEqual(login(challenges[0], count=90), (200, False))
        self.assertEqual(login(challenges[0], count=60), (200, False))
        self.assertEqual(login(challenges[0], count=60), (401, True))
        self.assertEqual(login(challenges[0], password="wrong", count=91), (401, False))
        self.assertEqual(login(challenges[0], nonce="1-" + "0" * 64), (401, True))

    def test_a_role_says_who_may_do_what(self):
        anna, bert, vera = (Device(self.gate, "pelco", login) for login in
                            (("anna", "secret"), ("bert", "another"), ("vera", "third")))
        vera.status()
        self.assertEqual(vera.fault(DRIVE), (400, "Sender", "NotAuthorized"))
        self.assertEqual(bert.fault(f"<tptz:SetPreset>{PROFILE}</tptz:SetPreset>"), (400, "Sender", "NotAuthorized"))
        self.assertEqual(bert.fault("<tds:GetUsers/>"), (400, "Sender", "NotAuthorized"))
        levels = {text(one, "tt:Username"): text(one, "tt:UserLevel") for one in anna.ask("<tds:GetUsers/>")}
        self.assertEqual(levels, {"anna": "Administrator", "bert": "Operator", "vera": "User"})
        bert.ask(DRIVE)
        _, answer = anna.post(envelope(DRIVE, token("anna", "secret")))
        self.assertIn("held by bert at 127.0.0.1", answer.decode())
        anna.stop()
        self.rests("pelco")


class Found(Site):
    settings = "[onvif]\ndiscovery = true\n"

    def test_cameras_answer_those_who_look_for_them(self):
        probe = ('<e:Envelope xmlns:e="http://www.w3.org/2003/05/soap-envelope" '
                 'xmlns:w="http://schemas.xmlsoap.org/ws/2004/08/addressing" '
                 'xmlns:d="http://schemas.xmlsoap.org/ws/2005/04/discovery" '
                 'xmlns:dn="http://www.onvif.org/ver10/network/wsdl"><e:Header>'
                 "<w:MessageID>uuid:7</w:MessageID></e:Header><e:Body><d:Probe>"
                 "<d:Types>dn:NetworkVideoTransmitter</d:Types>{}</d:Probe></e:Body></e:Envelope>")

        def found(filters, count):
            """Addresses to answers; asked again where a datagram is lost, as whoever looks for cameras does."""
            answers = {}
            with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as asker:
                asker.setsockopt(socket.IPPROTO_IP, socket.IP_MULTICAST_IF, socket.inet_aton("127.0.0.1"))
                asker.bind(("127.0.0.1", 0))
                asker.settimeout(2)
                deadline = time.monotonic() + DEADLINE
                while len(answers) < count and time.monotonic() < deadline:
                    asker.sendto(b"<no probe", ("239.255.255.250", 3702))
                    asker.sendto(probe.format(filters).encode(), ("239.255.255.250", 3702))
                    try:
                        while len(answers) < count:
                            answer = asker.recv(65536).decode()
                            answers[re.search("XAddrs>(.*?)<", answer)[1]] = answer
                    except TimeoutError:
                        pass
            return answers

        at = {make: f"http://{self.gate.host}/onvif/{make}/device_service" for make in MAKES}
        answers = found("", len(MAKES))
        self.assertEqual(set(answers), set(at.values()))
        self.assertIn("RelatesTo>uuid:7<", answers[at["pelco"]])
        self.assertEqual(set(found("<d:Scopes>onvif://www.onvif.org/name/pelco</d:Scopes>", 1)), {at["pelco"]})


if __name__ == "__main__":
    unittest.main(verbosity=2)
