"""Checks the generated units and property lists against the constants of the build.

usage: check_packaging.py PACKAGING_FOLDER build_constants.h HELPER
"""

import plistlib
import re
import subprocess
import sys
import tempfile
from pathlib import Path

folder, header, helper = map(Path, sys.argv[1:])
constants = dict(re.findall(r'(\w+)(?:\[\])? = "?([^";]*)"?;', header.read_text()))
client, service, build = (constants[name] for name in ("ClientBundleIdentifier", "HelperServiceName", "BRHBuildNumber"))

information = plistlib.loads((folder / "macos/Info.plist").read_bytes())
authorized = information.pop("SMAuthorizedClients")
assert information == {
    "CFBundleIdentifier": service,
    "CFBundleName": "BrimoHelper",
    "CFBundleVersion": build,
    "CFBundleInfoDictionaryVersion": "6.0",
    "AssociatedBundleIdentifiers": client,
}, information
# The property list and the helper contain the same requirement.
assert len(authorized) == 1 and authorized[0].encode() in helper.read_bytes(), authorized

job = plistlib.loads((folder / "macos/launchd.plist").read_bytes())
assert job == {"Label": service, "MachServices": {service: True}, "AssociatedBundleIdentifiers": client}, job

if helper.read_bytes().startswith((b"\xcf\xfa\xed\xfe", b"\xca\xfe\xba\xbe")):  # Mach-O: 64-bit or universal
    # The executable contains both lists in sections. The list that is installed for launchd adds the path of the program.
    for section, name in (("__info_plist", "Info"), ("__launchd_plist", "launchd")):
        assert section.encode() in helper.read_bytes(), section
        assert (folder / f"macos/{name}.plist").read_bytes() in helper.read_bytes(), name
    daemon = plistlib.loads((folder / "macos/LaunchDaemon.plist").read_bytes())
    assert daemon == job | {"Program": f"/Library/PrivilegedHelperTools/{service}"}, daemon
    sys.exit()

units = {name: (folder / "systemd" / f"{service}.{name}").read_text() for name in ("socket", "service")}
for line in (f"ListenStream=/run/{service}.socket", "SocketMode=0666", "Accept=no", "PassCredentials=yes", "TriggerLimitIntervalSec=0"):
    assert line in units["socket"].splitlines(), line
for line in ("KillMode=process", "OOMPolicy=continue", "LimitNOFILE=4096", "WatchdogSec=120", "WatchdogSignal=SIGKILL", "StartLimitIntervalSec=0", f"After={service}.socket NetworkManager.service",
             f"StateDirectory={service}", "StateDirectoryMode=0700"):
    assert line in units["service"].splitlines(), line
# The folder in /run must outlive "stop".
assert re.search(r"^ExecStopPost=/.*/BrimoProxiesOff$", units["service"], re.MULTILINE) and "RuntimeDirectory" not in units["service"]
assert not re.search(r"PrivateTmp=(?!no)|ProtectHome=(?!no)", units["service"])

# systemd-analyze checks that the program of a unit exists, so it gets copies of the units that name this build's programs.
with tempfile.TemporaryDirectory() as copies:
    for name, text in units.items():
        text = re.sub(r"^(ExecStart|ExecStopPost)=.*/", rf"\1={helper.parent}/", text, flags=re.MULTILINE)
        Path(copies, f"{service}.{name}").write_text(text)
    result = subprocess.run(["systemd-analyze", "verify", "--man=no", *Path(copies).iterdir()], capture_output=True, text=True)
    complaints = [line for line in result.stderr.splitlines() if service in line]
    assert result.returncode == 0 and not complaints, result.stderr
