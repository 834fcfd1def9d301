"""The commands that the sandbox could hinder, sent to the sandboxed service."""

import json
import os
import shutil
from pathlib import Path

from lan import DHCPD_CONFIGURATION, INTERFACE, Lan, ip
from machine import CONTENTS, MEMBER, STRANGER, UNIT, MachineTest, connected, proxy_method, run, show, sign
from harness import read_line, wait_until

HOLDER = """
import socket, sys
holder = socket.socket(socket.AF_INET, socket.SOCK_DGRAM if sys.argv[1] == "udp" else socket.SOCK_STREAM)
holder.bind(("0.0.0.0", int(sys.argv[2])))
sys.argv[1] == "udp" or holder.listen()
print("held", flush=True)
sys.stdin.read()
"""


class Commands(MachineTest):
    def setUp(self):
        self.brimo = self.client()

    def hold(self, protocol, port, user):
        """Starts a process that holds a port, in a session of the user. Returns its PID."""
        command = ["python3", "-c", HOLDER, protocol, str(port)]
        process = self.start(user, *command)
        self.assertEqual(read_line(process), "held")
        return int(run("pgrep", "-nf", f"holder.* {protocol} {port}$"))

    def test_the_service_is_confined(self):
        self.ask(self.brimo, "version")
        status = Path(f"/proc/{show(UNIT, 'MainPID')}/status").read_text()
        self.assertRegex(status, r"NoNewPrivs:\t1\nSeccomp:\t2\n")

    def test_proxies_and_a_static_address(self):
        uuid = connected()
        self.assertIn(uuid, [service["id"] for service in self.ask(self.brimo, "services")["services"]])
        self.assertEqual(self.ask(self.brimo, "set-proxy Wired http=127.0.0.1:8080"), {"result": "success"})
        self.assertEqual(proxy_method(), "auto")
        self.assertEqual(self.ask(self.brimo, "set-proxy Wired off"), {"result": "success"})
        self.assertEqual(proxy_method(), "none")
        self.assertEqual(self.ask(self.brimo, "set-static-ip Wired 192.0.2.7 255.255.255.0 192.0.2.1"), {"result": "success"})
        wait_until(lambda: "192.0.2.7/24" in run("ip", "-4", "address", "show", "dev", "nm0"), "the address is there")
        run("nmcli", "connection", "delete", "Wired")
        run("ip", "link", "delete", "nm0")

    def test_whose_socket_it_is(self):
        for port, (protocol, user) in enumerate((("tcp", STRANGER), ("udp", MEMBER), ("udp", "root")), 5555):
            with self.subTest(protocol=protocol, user=user):
                pid = self.hold(protocol, port, user)
                owner = self.ask(self.brimo, f"process-lookup {protocol} 127.0.0.1:{port}")
                self.assertEqual(owner, {"pid": pid, "path": os.path.realpath("/usr/bin/python3")})

    def test_probes(self):
        lan = Lan(self)
        lan.add_dnsmasq("192.0.2.1")
        lan.add_dhcpd("192.0.2.2")
        lan.add_radvd("AdvLinkMTU 1400;")
        found = self.ask(self.brimo, f"dhcp-discover {INTERFACE}")
        self.assertEqual(sorted(found.get("serverAddresses", [])), ["192.0.2.1", "192.0.2.2"], (found, self.log()))
        self.assertIn("1400", json.dumps(self.ask(self.brimo, f"ra-detect {INTERFACE}")))

    def test_a_dhcp_server_replaces_the_holder_of_its_port_and_gives_a_lease(self):
        lan = Lan(self)
        ip("address", "add", "192.0.2.1/24", "dev", INTERFACE)
        holder = self.hold("udp", 67, "root")
        server = CONTENTS / "Applications/brimo-dhcpd"
        server.parent.mkdir(exist_ok=True)
        self.addCleanup(shutil.rmtree, server.parent)
        shutil.copy("/usr/sbin/dhcpd", server)
        sign(server, "com.example.brimo.dhcpd")
        # The files lie in a folder of the client's user that nobody else can enter.
        folder = Path(f"/home/{MEMBER}/dhcp")
        shutil.rmtree(folder, ignore_errors=True)
        folder.mkdir(mode=0o700)
        (folder / "conf").write_text(DHCPD_CONFIGURATION)
        for name in ("leases", "output"):
            (folder / name).touch()
        run("chown", "-R", f"{MEMBER}:{MEMBER}", folder)
        command = f"start-dhcpd {INTERFACE} dhcp/conf dhcp/leases dhcp/output dhcp/pid"
        reply = self.ask(self.brimo, command)
        self.assertEqual(reply.get("result"), "success", (reply, self.log()))
        wait_until(lambda: not Path(f"/proc/{holder}").exists(), "the process that held the port is killed")
        wait_until(lambda: "Server starting service." in (folder / "output").read_text(), "the server is ready")
        lan.add_dhclient()
        self.assertIn("lease 192.0.2.1", (folder / "leases").read_text())
        self.assertEqual(self.ask(self.brimo, "stop-dhcpd"), {"result": "success"})
        wait_until(lambda: not Path(f"/proc/{reply['pid']}").exists(), "the server ends")

    def test_an_idle_machine_is_kept_awake(self):
        self.assertEqual(self.ask(self.brimo, "prevent-sleep-temp"), {"result": "success"})
        inhibitors = json.loads(run("busctl", "--json=short", "call", "org.freedesktop.login1", "/org/freedesktop/login1",
                                    "org.freedesktop.login1.Manager", "ListInhibitors"))["data"][0]
        pid = int(show(UNIT, "MainPID"))
        self.assertEqual({(what, mode) for what, _, _, mode, _, who in inhibitors if who == pid}, {("idle", "block")})

    def test_the_processes_in_the_watchdog_file_are_killed(self):
        file = Path("/tmp/Brimo-External-Processes-Watchdog.json")
        pid = self.hold("tcp", 5556, STRANGER)
        file.write_text(json.dumps([[pid, os.path.realpath("/usr/bin/python3")]]))
        shutil.chown(file, STRANGER)
        self.ask(self.brimo, "version")
        self.end(self.brimo)
        wait_until(lambda: not Path(f"/proc/{pid}").exists() and not file.exists(), "it is killed")
