"""A real NetworkManager for the system tests, the demonstration and the benchmark.

It manages only the interfaces "nm0" and "nm1", each one end of a veth pair."""

import json
import shutil
import subprocess
import uuid
from pathlib import Path

from harness import run, wait_until

PLACE = Path("/run/network_manager")
CONNECTIONS = PLACE / "connections"
INTERFACES = ("nm0", "nm1")

CONFIGURATION = f"""[main]
plugins=keyfile
no-auto-default=*
dns=none
rc-manager=unmanaged
hostname-mode=none
auth-polkit=root-only
[keyfile]
path={CONNECTIONS}
unmanaged-devices=*,except:interface-name:nm0,except:interface-name:nm1
[connectivity]
enabled=false
"""

CONNECTION = """[connection]
id={name}
uuid={uuid}
type=ethernet
autoconnect=false
interface-name={interface}
[ipv4]
{ipv4}
[ipv6]
method=disabled
"""


class NetworkManager:
    """NetworkManager on a running bus."""

    def __init__(self, test):
        self.test = test
        CONNECTIONS.mkdir(parents=True, exist_ok=True)
        Path("/run/NetworkManager").mkdir(exist_ok=True)
        Path("/var/lib/NetworkManager").mkdir(exist_ok=True)
        (PLACE / "manager.conf").write_text(CONFIGURATION)
        run("mount", "-o", "remount,bind,ro", "/sys")  # otherwise NetworkManager waits for udev
        for name in INTERFACES:
            run("ip", "link", "add", name, "type", "veth", "peer", "name", f"{name}-peer")
            run("ip", "link", "set", f"{name}-peer", "up")
            test.addCleanup(run, "ip", "link", "delete", name)
        test.addCleanup(shutil.rmtree, CONNECTIONS)
        self.process = None
        test.addCleanup(self.stop)
        self.start()

    def start(self):
        with (PLACE / "log").open("a") as log:
            self.process = subprocess.Popen(
                ["NetworkManager", "--debug", f"--config={PLACE}/manager.conf", f"--config-dir={PLACE}/none",
                 f"--system-config-dir={PLACE}/none", f"--intern-config={PLACE}/intern.conf",
                 f"--state-file={PLACE}/state", f"--pid-file={PLACE}/pid"], stdout=log, stderr=log)

        def is_ready():
            assert self.process.poll() is None, (PLACE / "log").read_text()
            return subprocess.run(["nmcli", "-t", "-f", "STARTUP", "general"], capture_output=True,
                                  text=True).stdout == "started\n"
        wait_until(is_ready, "NetworkManager is ready")

    def stop(self):
        if self.process:
            self.process.kill()
            self.process.wait()
        self.process = None

    def add_connections(self, count, interface, name="Idle", address=None):
        """Adds inactive connections, with an address if one is given. Returns their UUIDs."""
        ipv4 = f"method=manual\naddress1={address}" if address else "method=disabled"
        identifiers = [str(uuid.uuid4()) for _ in range(count)]
        files = [CONNECTIONS / f"{identifier}.nmconnection" for identifier in identifiers]
        for file, identifier in zip(files, identifiers):
            file.touch(mode=0o600)
            file.write_text(CONNECTION.format(name=name, uuid=identifier, interface=interface, ipv4=ipv4))
        run("nmcli", "connection", "load", *files)
        return identifiers

    def add_connection(self, name, interface, active=True, address=None):
        """Adds a connection and returns its UUID. If `active`, waits until it is active."""
        (identifier,) = self.add_connections(1, interface, name, address)
        if active:
            run("nmcli", "connection", "up", identifier)
        return identifier

    @staticmethod
    def file(identifier):
        """The path of the file that stores a connection."""
        lines = run("nmcli", "--escape", "no", "-g", "UUID,FILENAME", "connection", "show").splitlines()
        return dict(line.split(":", 1) for line in lines)[identifier]

    @staticmethod
    def setting(identifier, name):
        """A stored setting of a connection, for example "proxy.method"."""
        return run("nmcli", "--escape", "no", "-g", name, "connection", "show", identifier).rstrip("\n")

    @staticmethod
    def applied(interface):
        """The settings that are applied to an interface, as D-Bus reports them."""
        bus = "org.freedesktop.NetworkManager"
        def call(*arguments):
            return json.loads(run("busctl", "--json=short", "call", bus, *arguments))["data"]
        (device,) = call("/org/freedesktop/NetworkManager", bus, "GetDeviceByIpIface", "s", interface)
        return call(device, f"{bus}.Device", "GetAppliedConnection", "u", "0")[0]

    @staticmethod
    def active():
        """UUIDs of the active connections."""
        return run("nmcli", "-g", "UUID", "connection", "show", "--active").split()


def addresses(interface):
    """The IPv4 addresses of an interface."""
    (link,) = json.loads(run("ip", "-j", "-4", "address", "show", "dev", interface)) or [{"addr_info": []}]
    return [f"{entry['local']}/{entry['prefixlen']}" for entry in link.get("addr_info", [])]


def routers(interface):
    """The gateways of an interface's default routes."""
    return [route["gateway"] for route in json.loads(run("ip", "-j", "-4", "route", "show", "default", "dev", interface))]
