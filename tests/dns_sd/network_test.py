"""The advertiser on a real wire, seen by a browser that knows nothing of it (python3-zeroconf).

Run by in_namespaces.sh, on the phone's side; VD_DESK is the network namespace of the other side and
VD_BIN has the programs that run there.
"""
import datetime
import json
import os
import re
import subprocess
import sys
import tempfile
import threading
import time
import unittest

import zeroconf

TYPE = "_veldrift._tcp.local."
DESK, PHONE = "10.77.0.1", "10.77.0.2"
PATIENCE = 30  # seconds until something counts as missing; nothing takes so long


def on_desk(program, *arguments):
    return ["nsenter", "--net=" + os.environ["VD_DESK"],
            os.path.join(os.environ["VD_BIN"], program), *arguments]


def move_desk(old, new):
    for command, address in (("del", old), ("add", new)):
        subprocess.run(["nsenter", "--net=" + os.environ["VD_DESK"], "ip", "address", command,
                        address + "/24", "dev", "desk0"], check=True)


class Advertiser:
    """dns_sd_advertise on the desk."""

    def __init__(self, name, ident="the-id", port=47100, transmit=1):
        self.home = tempfile.TemporaryDirectory(prefix="veldrift-test-")
        self.process = subprocess.Popen(
            on_desk("dns_sd_advertise", self.home.name, ident, name, str(port), str(transmit)),
            stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)

    def ask(self, command):
        self.process.stdin.write(command + "\n")
        self.process.stdin.flush()
        return self.process.stdout.readline().split()

    def start(self):
        """When it was asked to, on the clock of time.monotonic()."""
        answer, nanos = self.ask("start")
        assert answer == "registered", answer
        return int(nanos) / 1e9

    def log(self):
        with open(self.home.name + "/local/Veldrift/plugin-x.log", encoding="utf-8") as log:
            return log.read()

    def close(self):
        self.process.stdin.close()
        code = self.process.wait(PATIENCE)
        self.process.stdout.close()
        self.home.cleanup()
        return code


class Browser(zeroconf.ServiceListener):
    """What is on the wire, with when it came and went."""

    def __init__(self):
        self.zeroconf = zeroconf.Zeroconf(interfaces=[PHONE], ip_version=zeroconf.IPVersion.V4Only)
        self.changed = threading.Condition()
        self.events = []  # (time, "+" or "-", label)
        self.browser = zeroconf.ServiceBrowser(self.zeroconf, TYPE, self)

    def note(self, kind, name):
        with self.changed:
            self.events.append((time.monotonic(), kind, name.removesuffix("." + TYPE)))
            self.changed.notify_all()

    def add_service(self, zc, type_, name):
        self.note("+", name)

    def remove_service(self, zc, type_, name):
        self.note("-", name)

    def update_service(self, zc, type_, name):
        pass

    def wait(self, kind, label, after=0.0):
        """When that happened first, at or after a time."""
        def find():
            return next((e[0] for e in self.events
                         if e[0] >= after and e[1] == kind and label in ("*", e[2])), None)
        with self.changed:
            if not self.changed.wait_for(find, PATIENCE):
                raise AssertionError(f"no {kind}{label} in {self.events}")
            return find()

    def labels(self):
        present = set()
        with self.changed:
            for _, kind, label in self.events:
                (present.add if kind == "+" else present.discard)(label)
        return present

    def resolve(self, label):
        return self.zeroconf.get_service_info(TYPE, f"{label}.{TYPE}", 5000)

    def told(self, label):
        """When it was last told to be there."""
        return max((record.created / 1000
                    for record in self.zeroconf.cache.entries_with_name(TYPE.lower())
                    if record.alias == f"{label}.{TYPE}" and record.ttl > 1), default=0)

    def publish(self, label, probe=True):
        """A service of the phone's side; its name is taken as it is."""
        info = zeroconf.ServiceInfo(TYPE, f"{label}.{TYPE}", port=9, server="phone.local.",
                                    addresses=[bytes([10, 77, 0, 2])])
        self.zeroconf.register_service(info, cooperating_responders=not probe)
        return info

    def forge_farewell(self, label):
        packet = zeroconf.DNSOutgoing(zeroconf.const._FLAGS_QR_RESPONSE | zeroconf.const._FLAGS_AA)
        packet.add_answer_at_time(
            zeroconf.DNSPointer(TYPE, zeroconf.const._TYPE_PTR, zeroconf.const._CLASS_IN, 0,
                                f"{label}.{TYPE}"), 0)
        self.zeroconf.send(packet)


def txt_entries(raw):
    entries = []
    while raw:
        entries.append(raw[1:1 + raw[0]].decode())
        raw = raw[1 + raw[0]:]
    return entries


class OnTheWire(unittest.TestCase):
    def setUp(self):
        self.browser = Browser()
        self.addCleanup(self.browser.zeroconf.close)

    def advertise(self, *arguments, **options):
        advertiser = Advertiser(*arguments, **options)
        self.addCleanup(lambda: self.assertEqual(advertiser.close(), 0))
        return advertiser

    def eventually(self, condition, what):
        end = time.monotonic() + PATIENCE
        while not condition():
            self.assertLess(time.monotonic(), end, what)
            time.sleep(0.05)

    def test_it_appears_with_what_a_phone_needs_and_disappears_when_stopped(self):
        advertiser = self.advertise("Étude.1 — Veldrift", ident="abc-x", port=47130)
        advertiser.start()
        self.browser.wait("+", "Étude.1 — Veldrift")
        info = self.browser.resolve("Étude.1 — Veldrift")
        self.assertEqual(info.port, 47130)
        self.assertEqual((info.priority, info.weight), (0, 0))
        self.assertEqual(info.server, "desk-pc.local.")
        self.assertEqual(info.parsed_addresses(), [DESK])
        self.assertEqual(txt_entries(info.text),
                         ["ver=4", "id=abc-x", "name=Étude.1 — Veldrift", "transmit=1"])
        asked = time.monotonic()
        self.assertEqual(advertiser.ask("stop"), ["stopped"])
        self.assertLess(self.browser.wait("-", "Étude.1 — Veldrift") - asked, 3)

    def test_a_name_that_is_cut_inside_a_character_is_still_text(self):
        name = "0123456789" * 3 + "012345678é and the rest"  # é is bytes 40 and 41
        advertiser = self.advertise(name)
        advertiser.start()
        label = "0123456789" * 3 + "012345678\N{REPLACEMENT CHARACTER}"
        self.browser.wait("+", label)
        self.assertIn("name=" + name, txt_entries(self.browser.resolve(label).text))

    def test_several_hosts_on_one_machine_stand_side_by_side(self):
        first = self.advertise("Desk — One", ident="i", port=47100, transmit=0)
        second = self.advertise("Desk — Two", ident="i-ae", port=47110)
        first.start()
        second.start()
        for label, port, ident, transmit in (("Desk — One", 47100, "i", "0"),
                                             ("Desk — Two", 47110, "i-ae", "1")):
            self.browser.wait("+", label)
            info = self.browser.resolve(label)
            self.assertEqual(info.port, port)
            self.assertEqual(info.properties[b"id"].decode(), ident)
            self.assertEqual(info.properties[b"transmit"].decode(), transmit)
            self.assertEqual(info.server, "desk-pc.local.")

    def test_a_name_that_is_taken_is_made_unique_and_kept(self):
        self.browser.publish("Studio")
        self.browser.wait("+", "Studio")
        advertiser = self.advertise("Studio")
        advertiser.start()
        self.eventually(lambda: len(self.browser.labels()) == 2, "ours under another name")
        ours = (self.browser.labels() - {"Studio"}).pop()
        self.assertEqual(self.browser.resolve(ours).port, 47100)
        self.assertEqual(self.browser.resolve("Studio").port, 9)
        time.sleep(4)  # enough results to believe that ours is missing, if its name weren't known
        self.assertNotIn("ABSENT", advertiser.log())

    def test_a_name_that_is_taken_later_is_given_up_for_another(self):
        advertiser = self.advertise("Studio")
        advertiser.start()
        self.browser.wait("+", "Studio")
        self.browser.publish("Studio", probe=False)
        self.eventually(lambda: len(self.browser.labels()) == 2, "ours under another name")
        ours = (self.browser.labels() - {"Studio"}).pop()
        self.assertEqual(self.browser.resolve(ours).port, 47100)

    def test_a_forged_farewell_is_answered(self):
        advertiser = self.advertise("Studio")
        advertiser.start()
        self.browser.wait("+", "Studio")
        time.sleep(1.5)  # a record isn't repeated within a second
        asked = time.monotonic()
        self.browser.forge_farewell("Studio")
        self.eventually(lambda: self.browser.told("Studio") > asked, "an answer")
        self.assertLess(self.browser.told("Studio") - asked, 1)
        self.assertIsNotNone(self.browser.resolve("Studio"))

    def test_a_lost_registration_comes_back(self):
        self.browser.publish("Other")
        advertiser = self.advertise("Studio")
        advertiser.start()
        self.browser.wait("+", "Studio")
        self.browser.wait("+", "Other")
        asked = time.monotonic()
        advertiser.ask("lose")
        gone = self.browser.wait("-", "Studio", asked)
        back = self.browser.wait("+", "Studio", gone)
        # A farewell holds for 1 s; two results in a row, 1 s apart; 1.5 s; a tick; and the probing.
        self.assertGreater(back - asked, 3)
        self.assertLess(back - asked, 8)
        self.assertEqual(advertiser.log().count("our instance ABSENT — arming re-publish"), 1)
        self.assertEqual(advertiser.log().count("re-publishing (register-only) id=the-id"), 1)
        time.sleep(4)
        self.assertEqual(advertiser.log().count("ABSENT"), 1, "it is seen again")

    def test_the_whole_plugin_is_found(self):
        with Host() as host:
            label = "Desk-PC — " + host.shown
            self.browser.wait("+", label)
            info = self.browser.resolve(label)
            self.assertEqual(info.port, 47130)
            self.assertRegex(info.properties[b"id"].decode(), r"^[0-9a-f-]{36}-x$")
        self.browser.wait("-", label)


class Phone(unittest.TestCase):
    """veldrift-phone on the phone's side, which finds the plug-in and has pictures of it."""

    def setUp(self):
        self.folder = tempfile.TemporaryDirectory(prefix="veldrift-test-")
        self.addCleanup(self.folder.cleanup)
        self.home = self.folder.name + "/home"

    def phone(self, *arguments):
        program = os.path.join(os.environ["VD_BIN"], "veldrift-phone")
        done = subprocess.run(
            [program, "--json", "--codec", "h264", "--seconds", "2", "--wait", str(PATIENCE),
             "--token-file", self.folder.name + "/token", *arguments],
            stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, timeout=4 * PATIENCE)
        self.assertEqual(done.returncode, 0, done.stderr)
        summary = json.loads(done.stdout)
        self.assertGreaterEqual(summary["decoder"]["decoded"], 1)
        return summary

    def test_it_lists_what_is_there_and_connects(self):
        with Host(home=self.home) as host:
            found = self.phone("--discover", "--code-from-log", host.log_file())["found"]
            self.assertEqual(len(found), 1)
            self.assertEqual(found[0]["name"], "Desk-PC — Unknown Host")
            self.assertEqual((found[0]["address"], found[0]["port"]), (DESK, 47130))
            self.assertEqual(found[0]["id"], host.install_id() + "-x")
            self.assertEqual(found[0]["version"], "4")
            self.assertIn(found[0]["transmit"], (True, False))

    def test_once_paired_by_uri_it_finds_the_host_at_another_address(self):
        with Host(home=self.home) as host:
            host.wait_for("advertising :")
            uri = f"veldrift://pair?v=3&id={host.install_id()}&name=Desk-PC"
            self.phone("--uri", uri, "--code-from-log", host.log_file())
        moved = "10.77.0.3"
        self.addCleanup(move_desk, moved, DESK)
        move_desk(DESK, moved)
        with Host(home=self.home) as host:
            found = self.phone("--uri", uri)["found"]
            self.assertEqual((found[0]["address"], found[0]["port"]), (moved, 47130))
            self.assertEqual(host.log().count("pair: trusted reconnect"), 1)
            self.assertEqual(host.log().count("pair: challenge="), 1)  # of the first time

    def test_while_it_runs_the_host_moves_to_another_address_and_is_found_there(self):
        moved, pictures = "10.77.0.4", self.folder.name + "/pictures"
        self.addCleanup(move_desk, moved, DESK)
        program = os.path.join(os.environ["VD_BIN"], "veldrift-phone")
        with Host(home=self.home) as host:
            host.wait_for("advertising :")
            phone = subprocess.Popen(
                [program, "--json", "--codec", "h264", "--wait", str(PATIENCE), "--seconds", "60",
                 "--discover", "--code-from-log", host.log_file(), "--snapshots", pictures,
                 "--snapshot-every", "0.2"],
                stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
            self.addCleanup(phone.wait)
            self.addCleanup(phone.kill)
            host.wait_for("pair: OK")
        self.assertIn("the connection was lost", phone.stderr.readline())
        move_desk(DESK, moved)
        with Host(home=self.home) as host:
            self.assertIn("connected again after", phone.stderr.readline())
            before, end = len(os.listdir(pictures)), time.monotonic() + PATIENCE
            while len(os.listdir(pictures)) == before:
                assert time.monotonic() < end, "no picture came after that"
                time.sleep(0.05)
            phone.send_signal(2)
            summary = json.loads(phone.communicate(timeout=PATIENCE)[0])
            self.assertEqual(host.log().count("pair: trusted reconnect"), 1)
        self.assertEqual(summary["session"]["lost_connections"], 1)


class Host:
    """veldrift-host with the module, on the desk."""

    shown = "Unknown Host"

    def __init__(self, home=None):
        self.own = None if home else tempfile.TemporaryDirectory(prefix="veldrift-test-")
        self.home = home or self.own.name

    def __enter__(self):
        self.process = subprocess.Popen(
            on_desk("veldrift-host", "--home", self.home, "--host", "unknown", "--size",
                    "320x240", "--seconds", "60"),
            stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        return self

    def __exit__(self, *_):
        self.process.send_signal(2)
        assert self.process.wait(PATIENCE) == 0
        if self.own:
            self.own.cleanup()

    def log_file(self):
        return f"{self.home}/local/Veldrift/plugin-x.log"

    def log(self):
        with open(self.log_file(), encoding="utf-8") as log:
            return log.read()

    def wait_for(self, text):
        end = time.monotonic() + PATIENCE
        while not os.path.exists(self.log_file()) or text not in self.log():
            assert time.monotonic() < end, text
            time.sleep(0.05)

    def install_id(self):
        with open(self.home + "/settings/Veldrift/install.json", encoding="utf-8") as identity:
            return json.load(identity)["id"]

    def listening_since(self):
        """When it started to listen, on the clock of time.time()."""
        with open(self.log_file(), encoding="utf-8") as log:
            stamp = re.search(r"\[(\S+ \S+) \S+\] StartListening", log.read())[1]
        return datetime.datetime.strptime(stamp, "%Y-%m-%d %H:%M:%S.%f").timestamp()


def cpu_seconds(pid):
    with open(f"/proc/{pid}/stat", encoding="ascii") as stat:
        user, system = stat.read().rpartition(")")[2].split()[11:13]
    return (int(user) + int(system)) / os.sysconf("SC_CLK_TCK")


def milliseconds(seconds):
    return " ".join(str(round(s * 1000)) for s in sorted(seconds))


def print_figures():
    seen, started, whole, returned = [], [], [], []
    for turn in range(5):
        browser = Browser()
        advertiser = Advertiser(f"Turn {turn}")
        asked = advertiser.start()
        started.append(time.monotonic() - asked)
        seen.append(browser.wait("+", f"Turn {turn}") - asked)
        browser.publish("Other")
        time.sleep(2)
        asked = time.monotonic()
        advertiser.ask("lose")
        gone = browser.wait("-", f"Turn {turn}", asked)
        returned.append(browser.wait("+", f"Turn {turn}", gone) - asked)
        advertiser.close()
        browser.zeroconf.close()
        browser = Browser()
        with Host() as host:
            at = browser.wait("+", "Desk-PC — " + host.shown)
            whole.append(at - time.monotonic() + time.time() - host.listening_since())
        browser.zeroconf.close()
    print("Start until it returned, in ms:", milliseconds(started))
    print("Start until an independent browser saw the service, in ms:", milliseconds(seen))
    print("the whole plug-in's StartListening until then, in ms:", milliseconds(whole))
    print("a lost registration until it was seen again, in ms:", milliseconds(returned))
    advertiser = Advertiser("Idle")
    advertiser.start()
    time.sleep(5)
    before = cpu_seconds(advertiser.process.pid)
    time.sleep(60)
    print(f"an idle advertiser's CPU time in 60 s, in ms: "
          f"{round((cpu_seconds(advertiser.process.pid) - before) * 1000)}")
    advertiser.close()


if __name__ == "__main__":
    if sys.argv.pop() == "figures":
        print_figures()
    else:
        unittest.main(verbosity=2)
