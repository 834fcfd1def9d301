"""System proxies and static IPv4: the store, a real NetworkManager, and failures of both."""

import json
import shutil
import signal
import stat
import subprocess
from pathlib import Path

from gi.repository import Gio, GLib

import harness
from desktop import plain_words
from harness import BRIMO, SERVICE, TESTS, USER, Helper, HelperTest, read_line, wait_until
from network_manager import NetworkManager, addresses, routers, run
from system_bus import BUS, FakeBus, SystemBus

FOLDER = Path("/var/lib") / SERVICE
STORE = FOLDER / "preferences.json"
MANAGER, PROPERTIES = "org.freedesktop.NetworkManager", "org.freedesktop.DBus.Properties"
UNKNOWN = "00000000-0000-0000-0000-000000000000"
SUCCESS, FAILURE = {"result": "success"}, {"error": "failed to apply proxy settings"}


def http_proxy(port):
    return {"HTTPEnable": 1, "HTTPProxy": "127.0.0.1", "HTTPPort": port, "ExceptionsList": ["*.local", "169.254/16"]}


def stored():
    """Reads the services in the store."""
    return json.loads(STORE.read_text())["NetworkServices"]


class Client:
    """An admitted client that stays connected."""

    def __init__(self, test):
        self.process = test.start_program([BRIMO], stdin=subprocess.PIPE)

    def ask(self, **command):
        print("json", json.dumps(command), file=self.process.stdin, flush=True)
        return json.loads(read_line(self.process))

    def set_proxy(self, services, **options):
        return self.ask(command="set-proxy", payload=services, **options)


class NetworkSettingsTest(HelperTest):
    def setUp(self):
        self.addCleanup(shutil.rmtree, FOLDER, ignore_errors=True)  # after the helper's last clean-up has written to it
        super().setUp()

    def client(self):
        return Client(self)

    def kill(self, client):
        """Kills a client and waits until the helper has cleaned up after it."""
        line = "[BRHMain] XPC connection closed"
        before = self.log().count(line)
        client.process.kill()
        wait_until(lambda: self.log().count(line) > before, line)
        self.assert_serves()  # the helper serves only after the clean-up


class WithNetworkManager(NetworkSettingsTest):
    def setUp(self):
        super().setUp()
        self.bus = SystemBus(self)
        self.manager = NetworkManager(self)
        self.active = self.manager.add_connection("Wired", "nm0")
        self.idle = self.manager.add_connection("Idle one", "nm1", active=False)

    def method(self, service):
        return self.manager.setting(service, "proxy.method")

    def assert_proxied(self, service, port):
        self.assertEqual(self.method(service), "auto")
        self.assertIn(f'"PROXY 127.0.0.1:{port}"', self.manager.setting(service, "proxy.pac-script"))

    def wait_until_off(self, service):
        wait_until(lambda: self.method(service) == "none", "the proxy is off")

    def test_a_static_address_reaches_the_interface_and_leaves_the_rest_alone(self):
        run("nmcli", "connection", "modify", self.active, "ipv4.method", "manual", "ipv4.addresses", "198.51.100.1/16",
            "ipv4.never-default", "yes", "ipv4.dns", "198.51.100.53", "proxy.method", "auto", "proxy.pac-url",
            "http://own.example/")
        run("nmcli", "connection", "up", self.active)
        static = dict(command="set-static-ip", serviceID=self.active, mask="255.255.255.128", router="192.0.2.1")
        client = self.client()
        self.assertEqual(client.ask(address="192.0.2.7", **static), SUCCESS)
        wait_until(lambda: addresses("nm0") == ["192.0.2.7/25"], "the address is there")
        wait_until(lambda: routers("nm0") == ["192.0.2.1"], "the router is there")
        self.assertEqual(self.manager.setting(self.active, "ipv4.dns"), "198.51.100.53")
        self.assertEqual(self.manager.setting(self.active, "proxy.pac-url"), "http://own.example/")
        self.assertEqual(stored(), {self.active: {"IPv4": {"Addresses": ["192.0.2.7"], "ConfigMethod": "Manual",
                                                           "Router": "192.0.2.1", "SubnetMasks": ["255.255.255.128"]}}})
        # An invalid address is stored, but NetworkManager keeps its setting.
        self.assertEqual(client.ask(address="nonsense", **static), {"error": "failed to apply static IP configuration"})
        self.assertEqual(stored()[self.active]["IPv4"]["Addresses"], ["nonsense"])
        # Setting proxies does not restore an address that was changed later.
        run("nmcli", "connection", "modify", self.active, "ipv4.addresses", "192.0.2.99/24")
        self.assertEqual(client.set_proxy({self.active: http_proxy(1)}), SUCCESS)
        self.assertEqual(self.manager.setting(self.active, "ipv4.addresses"), "192.0.2.99/24")
        self.assertEqual(addresses("nm0"), ["192.0.2.7/25"], "an outside change that is not active must stay inactive")

    def test_routes_keep_their_attributes(self):
        run("nmcli", "connection", "modify", self.idle, "ipv4.method", "manual", "ipv4.addresses", "198.51.100.1/16",
            "ipv4.routes", "203.0.113.0/24 198.51.100.9 table=7 mtu=1400, 203.0.113.128/25 type=blackhole",
            "ipv6.method", "manual", "ipv6.addresses", "2001:db8::1/64", "ipv6.routes", "2001:db8:1::/48 2001:db8::9 table=7")
        def routes():
            return [self.manager.setting(self.idle, name) for name in ("ipv4.routes", "ipv6.routes", "ipv6.addresses")]
        before = routes()
        self.assertIn("table=7", before[1])
        client = self.client()
        self.assertEqual(client.set_proxy({self.idle: http_proxy(1)}), SUCCESS)
        self.assertEqual(routes(), before)
        self.assertEqual(client.ask(command="set-static-ip", serviceID=self.idle, address="192.0.2.7", mask="255.255.255.0",
                                    router="192.0.2.1"), SUCCESS)
        self.assertEqual(self.manager.setting(self.idle, "ipv4.addresses"), "192.0.2.7/24")
        self.assertEqual(routes(), before)

    def test_proxies_are_set_on_connections_and_in_use(self):
        client = self.client()
        pac = {"ProxyAutoConfigEnable": 1, "ProxyAutoConfigURLString": "http://pac.example/"}
        proxies = {self.active: http_proxy(8080), self.idle: pac}
        self.assertEqual(client.set_proxy(proxies), SUCCESS)
        self.assert_proxied(self.active, 8080)
        self.assertEqual(self.manager.setting(self.idle, "proxy.pac-url"), "http://pac.example/")
        self.assertIn("127.0.0.1:8080", self.manager.applied("nm0")["proxy"]["pac-script"]["data"])
        self.assertEqual(self.manager.active(), [self.active], "an idle connection must stay idle")
        self.assertEqual(stored(), {service: {"Proxies": entity} for service, entity in proxies.items()})
        self.assertEqual([stat.S_IMODE(path.stat().st_mode) for path in (FOLDER, STORE)], [0o700, 0o600])
        # They outlive a client that did not ask for a clean-up, and a restart of NetworkManager.
        self.kill(client)
        self.manager.stop()
        self.manager.start()
        self.assert_proxied(self.active, 8080)
        # With this many services, the helper reads NetworkManager's list instead of asking for each of them.
        off = {self.active: {}, self.idle: {}} | {str(number): {} for number in range(300)}
        self.assertEqual(self.client().set_proxy(off, cleanup=True), SUCCESS)
        self.assertEqual([self.method(self.active), self.method(self.idle)], ["none", "none"])
        self.assertEqual(stored(), {service: {"Proxies": {}} for service in off})

    def test_a_temporary_connection_stays_temporary(self):
        temporary = self.manager.add_temporary_connection("Passing", "nm1")
        file = self.manager.file(temporary)
        client = self.client()
        self.assertEqual(client.set_proxy({temporary: http_proxy(1)}), SUCCESS)
        self.assert_proxied(temporary, 1)
        self.assertEqual(self.manager.file(temporary), file)
        self.assertEqual(json.loads((FOLDER / "projected.json").read_text()), [temporary])
        run("nmcli", "connection", "delete", temporary)
        self.assertEqual(client.set_proxy({temporary: {}}), SUCCESS)
        self.assertEqual(json.loads((FOLDER / "projected.json").read_text()), [])

    def test_a_bad_entry_does_not_affect_the_others(self):
        before = self.helper.descriptors()
        client = self.client()
        bad = {"HTTPEnable": 1, "HTTPProxy": "a; DIRECT", "HTTPPort": 1}
        for number, entry in enumerate(({self.idle: bad}, {f"{self.idle}/": {}}, {self.idle: 1}), 8080):
            self.assertEqual(client.set_proxy(entry | {self.active: http_proxy(number)}), FAILURE)
            self.assert_proxied(self.active, number)
            self.assertEqual(self.method(self.idle), "none")
        odd = {UNKNOWN: bad, "": {}, "\0": {}, "\ufffe": {}}
        self.assertEqual(client.set_proxy(odd | {self.active: http_proxy(9)}, cleanup=False), SUCCESS,
                         "the store keeps services that are no connections")
        self.assertEqual(stored()[UNKNOWN], {"Proxies": bad})
        # An entry that does not fit into the store does not keep another service's proxy on.
        full = {self.active: {"Proxies": http_proxy(9)}, UNKNOWN: {"Proxies": {"x": "x" * ((16 << 20) - 500)}}}
        STORE.write_text(json.dumps({"NetworkServices": full}))
        self.assertEqual(client.set_proxy({"more": {"x": "x" * 500}, self.active: {}, "unknown": {}}), FAILURE)
        self.assertEqual(self.method(self.active), "none")
        self.assertEqual(stored(), full | {self.active: {"Proxies": {}}})
        self.assertEqual(client.set_proxy({self.active: http_proxy(9), UNKNOWN: {}}, cleanup=False), SUCCESS)
        # A path is not an ID, and leads to no other setting.
        self.assertEqual(client.set_proxy({f"{self.idle}/IPv4": {}}, cleanup=False), FAILURE)
        client.process.stdin.close()
        wait_until(lambda: self.helper.descriptors() <= before + 2, "only the log file and the bus have new descriptors")
        self.wait_until_off(self.active)
        self.assertNotIn("incomplete", str(self.log()))

    def test_the_doctor_finds_what_a_killed_helper_left(self):
        helper = Path("/usr/local/libexec/brimo/BrimoHelper")
        unit = Path(f"/usr/local/lib/systemd/system/{SERVICE}.socket")
        subprocess.run(["mount", "-t", "tmpfs", "-o", "mode=0755", "tmpfs", "/usr/local"], check=True)
        self.addCleanup(subprocess.run, ["umount", "/usr/local"], check=True)

        def remedies(user=0):
            code, out, err = self.brimo("--json", "doctor", user=user)
            findings = json.loads(out)["findings"]
            found = {(finding["subject"], finding["remedy"].rpartition(": ")[2]) for finding in findings if "remedy" in finding}
            self.assertEqual((code, err), (1 if found else 0, ""))
            return found, str(findings)

        self.assertEqual(remedies(user=USER)[0], {("service", "install the helper"), ("helper", "install the helper")})
        for file in (helper, unit):
            file.parent.mkdir(parents=True)
        shutil.copy(TESTS / "bin/BrimoHelperWithClientGroup", helper)
        unit.touch()
        self.assertEqual(remedies()[0], {("helper", "install both from the same build")})
        shutil.copy(TESTS / "bin/BrimoHelper", helper)
        found, text = remedies()
        self.assertEqual(found, set())
        self.assertIn("build 618", text)
        self.assertRegex(text, r"Brimo Development Root.*SHA-256 [0-9a-f]{64}")

        client = self.client()
        client.set_proxy({self.active: http_proxy(1)})
        self.assertEqual(remedies()[0], set())
        self.helper.signal(signal.SIGKILL)
        self.helper.wait()
        subprocess.run([TESTS / "bin/BrimoProxiesOff"], check=True)  # as systemd does
        self.helper = Helper()
        off = f"Brimo set-proxy {self.active} off --force"
        self.assertEqual(remedies(user=USER)[0], {("proxies", off)})
        self.assertEqual(remedies()[0], {("proxies", off), ("store", off)})
        self.assertEqual(self.brimo(*off.split()[1:]), (0, "done\n", ""))
        self.assertEqual(remedies()[0], set())
        Path(harness.ENDPOINT).unlink()
        self.assertEqual(remedies()[0], {("socket", f"systemctl enable --now {SERVICE}.socket"),
                                         ("connection", f"systemctl enable --now {SERVICE}.socket")})
        self.helper.signal(signal.SIGTERM)
        self.helper.wait()

    def test_a_clean_up_without_network_manager_is_tried_again(self):
        client = self.client()
        self.assertEqual(client.set_proxy({self.active: http_proxy(1)}, cleanup=False), SUCCESS)
        self.manager.stop()
        self.assertEqual(client.set_proxy({UNKNOWN: {}}), SUCCESS, "NetworkManager has never had this service")
        client.process.kill()
        self.wait_for_log(r"\[BRHMain\] Proxy settings cleanup was incomplete: NetworkManager is not running")
        self.manager.start()
        self.assert_proxied(self.active, 1)
        self.assert_serves()  # its client disconnects, too
        self.wait_until_off(self.active)
        self.assertEqual(stored()[self.active], {"Proxies": {}})

    def test_a_hanging_network_manager_or_bus_delays_the_helper_only_once(self):
        client = self.client()
        for process in (self.manager.process, self.bus.process):
            process.send_signal(signal.SIGSTOP)
            self.assertEqual(client.set_proxy({self.active: http_proxy(1), self.idle: http_proxy(1)}, cleanup=False), FAILURE)
            self.assert_serves()  # its client disconnects, and later clean-ups do not wait again
            self.wait_for_log(r"\[BRHMain\] Proxy settings cleanup was incomplete: NetworkManager did not answer a moment ago")
            process.send_signal(signal.SIGCONT)
            wait_until(lambda: client.set_proxy({self.active: http_proxy(2), self.idle: {}}) == SUCCESS, "the helper asks again")
            self.assert_proxied(self.active, 2)

    def test_the_command_line(self):
        self.assertEqual(self.brimo("services"), (0, f"{self.active}  nm0              Wired\n"
                                                     f"{self.idle}  -                Idle one\n", ""))
        self.assertEqual(self.brimo("set-static-ip", "Wired", "192.0.2.7", "255.255.255.0", "192.0.2.1"), (0, "done\n", ""))
        self.assertEqual(stored()[self.active]["IPv4"]["Addresses"], ["192.0.2.7"])
        code, out, err = self.brimo("set-proxy", "nm7", "off")
        self.assertEqual((code, out), (4, ""))
        self.assertRegex(err, "^Brimo: no service of this machine is called nm7; .+\n$")
        self.assertEqual(self.brimo("set-proxy", "nm7", "off", "--force"), (0, "done\n", ""))
        self.manager.add_connection("nm0", "nm1", active=False)  # an interface takes precedence over a name
        self.assertEqual(self.brimo("set-proxy", "nm0", "http=127.0.0.1:3"), (0, "done\n", ""))
        self.assert_proxied(self.active, 3)
        self.manager.add_connection("Idle one", "nm1", active=False)
        self.assertEqual(self.brimo("set-proxy", "Idle one", "off"), (
            2, "", 'Brimo: more than one service is called Idle one; "services" lists their IDs\n'))


class WithoutNetworkManager(NetworkSettingsTest):
    def test_a_bus_that_says_nothing_does_not_hold_up_the_end(self):
        self.end_helper()
        FakeBus.start(self, lambda message: ())
        self.helper = Helper()
        self.end_helper()

    def test_anybodys_signals_do_not_keep_the_primary_connection_away(self):
        values = {"PrimaryConnection": GLib.Variant("o", "/a"), "Uuid": GLib.Variant("s", "b")}
        signal = Gio.DBusMessage.new_signal(f"/{MANAGER.replace('.', '/')}", PROPERTIES, "PropertiesChanged")
        signal.set_body(GLib.Variant("(sa{sv}as)", (MANAGER, {}, [])))
        signal.set_sender(":1.2")

        def answers(message):
            if message.get_message_type() != Gio.DBusMessageType.METHOD_CALL:
                return
            reply = message.new_method_reply()
            if message.get_member() == "Hello":
                reply.set_body(GLib.Variant("(s)", (":1.1",)))
            elif message.get_interface() == PROPERTIES:
                yield signal
                reply.set_body(GLib.Variant("(v)", (values[message.get_body()[1]],)))
            elif message.get_member() != "AddMatch":
                reply = message.new_method_error_literal("org.freedesktop.DBus.Error.ServiceUnknown", "")
            yield reply
        FakeBus.start(self, answers)
        self.assertEqual(self.client().set_proxy({"a": http_proxy(1), "b": http_proxy(2)}), SUCCESS)
        wait_until(lambda: plain_words().get("service") == "b", "the primary connection is known")

    def test_the_store_alone_changes_and_the_system_log_says_so_once(self):
        self.end_helper()
        log = self.listen_to_the_system_log()
        self.helper = Helper()
        client = self.client()
        self.assertFalse(BUS.exists())
        self.assertEqual(client.set_proxy({UNKNOWN: http_proxy(1)}, cleanup=False), SUCCESS)
        self.assertEqual(self.brimo("set-proxy", "primary", "off")[0::2], (1, "Brimo: no system bus: No such file or directory\n"))
        SystemBus(self)
        self.assertEqual(client.ask(command="set-static-ip", serviceID="other", address="a", mask="b", router="c"), SUCCESS)
        self.assertEqual(stored(), {UNKNOWN: {"Proxies": http_proxy(1)}, "other": {"IPv4": {
            "Addresses": ["a"], "ConfigMethod": "Manual", "Router": "c", "SubnetMasks": ["b"]}}})
        client.process.kill()
        wait_until(lambda: stored()[UNKNOWN] == {"Proxies": {}}, "the clean-up is done")
        def count():
            return len([line for line in log if "Network preferences are only stored" in line])
        wait_until(count, "the system log has the line")
        self.assertEqual(count(), 1, log)
