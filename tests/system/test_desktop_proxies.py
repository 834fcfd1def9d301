"""The desktop proxies: running programs of two users follow "set-proxy" and every way in which its effect ends."""

import shutil
import signal

import desktop
from desktop import DATABASE, User, plain_words, proxies_off
from harness import Helper, run, wait_until
from network_manager import NetworkManager
from system_bus import SystemBus
from test_network_settings import FOLDER, SUCCESS, UNKNOWN, NetworkSettingsTest, http_proxy

ON, OFF = "http://127.0.0.1:8080", "direct://"
NONE = {"mode": "none"}


class DesktopTest(NetworkSettingsTest):
    def setUp(self):
        self.bus = SystemBus(self)
        desktop.install()
        self.addCleanup(run, "umount", "/etc/dconf")
        self.addCleanup(shutil.rmtree, desktop.FOLDER, ignore_errors=True)
        self.system_log = self.listen_to_the_system_log()
        super().setUp()
        self.users = [User(self, 1000), User(self, 1001)]

    def wait_for(self, proxies):
        for user in self.users:
            user.wait_for(proxies)

    def start_helper(self):
        self.helper.wait()
        self.helper = Helper()
        self.assert_serves()

    def wait_for_system_log(self, text):
        wait_until(lambda: any(text in line for line in self.system_log), f"the system log says {text}")


class NetworkTest(DesktopTest):
    def setUp(self):
        super().setUp()
        self.manager = NetworkManager(self)
        self.wired = self.manager.add_connection("Wired", "nm0", address="192.0.2.2/24,192.0.2.1")
        self.other = self.manager.add_connection("Other", "nm1", active=False, address="198.51.100.2/24,198.51.100.1")

    def switch_on(self, **options):
        client = self.client()
        self.assertEqual(client.set_proxy({self.wired: http_proxy(8080)}, **options), SUCCESS)
        self.wait_for(ON)
        return client


class OnANetwork(NetworkTest):
    def test_programs_follow_the_life_of_the_client(self):
        monitor = self.users[1].monitor("org.gnome.system.proxy", "mode")
        client = self.switch_on(cleanup=False)
        wait_until(lambda: monitor.read_text().endswith("mode: 'manual'\n"), "gsettings prints the change")
        self.assertEqual(plain_words(), {"mode": "manual", "http": "127.0.0.1:8080", "service": self.wired,
                                         "exceptions": ["*.local", "169.254.0.0/16"]})
        self.assertEqual(self.users[0].resolve("http://169.254.7.7/"), OFF)
        self.kill(client)
        self.wait_for(OFF)
        self.assertEqual(plain_words(), NONE)
        wait_until(lambda: monitor.read_text().endswith("mode: 'none'\n"), "gsettings prints the change")

    def test_the_command_line(self):
        self.assertEqual(self.brimo("set-proxy", "primary", "http=127.0.0.1:8080"), (0, "done\n", ""))
        self.wait_for(ON)
        self.assertIn(f"{self.wired}  nm0              Wired  (primary)\n", self.brimo("services")[1])
        places = self.brimo("proxies")[1]
        self.assertIn('desktops: {"mode":"manual","http":"127.0.0.1:8080",', places)
        self.assertIn("used by Chromium", places)
        self.assertIn(f"NetworkManager, Wired ({self.wired}): a PAC script\n  used by pacrunner", places)
        self.assertEqual(self.brimo("set-proxy", "primary", "off"), (0, "done\n", ""))
        self.wait_for(OFF)
        run("nmcli", "connection", "down", self.wired)
        self.assertEqual(self.brimo("set-proxy", "primary", "off"), (4, "", "Brimo: no service has the default route\n"))

    def test_programs_follow_the_life_of_the_helper(self):
        self.switch_on()
        self.brimo("stop")  # neither this nor the next start undoes anything
        proxies_off("exited", "0")
        self.start_helper()
        self.assertEqual(self.client().set_proxy({UNKNOWN: {}}), SUCCESS)
        self.wait_for(ON)
        self.helper.signal(signal.SIGKILL)
        self.helper.wait()
        proxies_off()
        self.wait_for(OFF)
        self.start_helper()  # this helper does not publish old entries of the store
        self.switch_on()
        self.helper.signal(signal.SIGKILL)
        self.start_helper()  # as if systemd had been unable to run BrimoProxiesOff
        self.wait_for(OFF)
        self.assertEqual(self.client().set_proxy({UNKNOWN: {}}), SUCCESS)
        self.assertEqual(plain_words(), NONE)
        self.switch_on(cleanup=False)
        self.helper.signal(signal.SIGTERM)
        self.wait_for(OFF)
        self.start_helper()
        self.assertEqual(self.manager.setting(self.wired, "proxy.method"), "none")
        self.assertEqual(plain_words(), NONE)

    def test_each_network_has_its_own(self):
        def make_primary(service):
            run("nmcli", "connection", "modify", service, "ipv4.route-metric", "1")
            run("nmcli", "connection", "up", service)
        self.switch_on()
        make_primary(self.other)
        self.wait_for(OFF)
        self.assertEqual(self.client().set_proxy({self.other: http_proxy(3)}), SUCCESS)
        self.wait_for("http://127.0.0.1:3")
        run("nmcli", "connection", "down", self.other)
        self.wait_for(ON)
        run("nmcli", "connection", "down", self.wired)
        self.wait_for(OFF)
        # A service that is no connection applies if there is no primary connection, or if no proxies have been set for the
        # primary connection, not even empty ones.
        self.assertEqual(self.client().set_proxy({"tunnel": http_proxy(4)}), SUCCESS)
        self.wait_for("http://127.0.0.1:4")
        make_primary(self.wired)
        self.wait_for(ON)
        self.assertEqual(self.client().set_proxy({self.wired: {}}), SUCCESS)
        self.wait_for(OFF)
        self.manager.stop()
        self.wait_for("http://127.0.0.1:4")
        self.manager.start()
        self.wait_for(OFF)

    def test_a_users_own_proxy_is_covered_and_comes_back(self):
        user = self.users[0]
        user.run("dbus-run-session", "--", "sh", "-c",
                 "gsettings set org.gnome.system.proxy.http host own.example; "
                 "gsettings set org.gnome.system.proxy.http port 3128; gsettings set org.gnome.system.proxy mode manual")
        own = user.dump()
        user = self.users[0] = User(self, 1000)
        user.wait_for("http://own.example:3128")
        client = self.switch_on(cleanup=False)
        self.assertEqual(user.run("gsettings", "writable", "org.gnome.system.proxy.http", "host"), "false")
        self.kill(client)
        user.wait_for("http://own.example:3128")
        self.assertEqual(user.run("gsettings", "writable", "org.gnome.system.proxy.http", "host"), "true")
        self.assertEqual(user.dump(), own)

    def test_all_keys_as_dconf_reads_them(self):
        client, user = self.client(), self.users[1]
        many = [f"{number}.{'x' * 200}" for number in range(400)]
        for exceptions in ([], [".a", "b ", "[::1]", "c.", "no host"], many):
            proxies = {"HTTPEnable": 1, "HTTPProxy": "::1", "HTTPPort": 65535, "SOCKSEnable": True, "SOCKSProxy": "s",
                       "SOCKSPort": 1, "HTTPSEnable": 1, "HTTPSProxy": "h", "HTTPSPort": 0, "ExceptionsList": exceptions,
                       "ExcludeSimpleHostnames": 1}
            client.set_proxy({self.wired: proxies})
            read = exceptions if exceptions[:1] != [".a"] else ["*.a", "b", "::1", "c"]
            self.assertEqual(user.dump(), {
                "": {"autoconfig-url": "''", "ignore-hosts": str(read + ["<local>"]), "mode": "'manual'",
                     "use-same-proxy": "false"},
                "http": {"host": "'[::1]'", "port": "65535"}, "https": {"host": "''", "port": "0"},
                "ftp": {"host": "''", "port": "0"}, "socks": {"host": "'s'", "port": "1"}})
        pac = {"ProxyAutoConfigEnable": 1, "ProxyAutoConfigURLString": "http://pac.example/"}
        self.assertEqual(client.set_proxy({self.wired: pac}), SUCCESS)
        self.assertEqual(user.dump()[""]["autoconfig-url"], "'http://pac.example/'")
        self.assertEqual(plain_words(), {"mode": "auto", "pac": "http://pac.example/", "service": self.wired})
        script = {"ProxyAutoConfigEnable": 1, "ProxyAutoConfigJavaScript": "function FindProxyForURL() {}"}
        self.assertEqual(client.set_proxy({self.wired: script}), SUCCESS)
        self.assertEqual((plain_words(), user.dump()), (NONE, {}))
        self.wait_for_system_log("an inline PAC script is only passed to NetworkManager")

    def test_no_failure_leaves_a_proxy(self):
        """When a client disconnects, the store, the folder in /run, NetworkManager or the bus is unavailable."""
        def full(folder):
            def spoil():
                run("mount", "-t", "tmpfs", "-o", "size=256k,mode=0755", "tmpfs", "/mnt")
                run("cp", "-a", f"{folder}/.", "/mnt")
                run("chmod", "--reference", folder, "/mnt")
                run("mount", "--move", "/mnt", folder)
            def fill():
                with (folder / "filler").open("wb", buffering=0) as filler:
                    self.assertRaises(OSError, lambda: [filler.write(bytes(4096)) for _ in range(100)])
            return spoil, fill, lambda: run("umount", "--lazy", folder)
        nothing = lambda: None
        store = FOLDER / "preferences.lock"
        ways = {
            "the store is full": full(FOLDER),
            "the store is not private": (nothing, lambda: store.chmod(0o606), lambda: store.chmod(0o600)),
            "/run is full": full(desktop.FOLDER),
            "the folder is gone": (nothing, lambda: shutil.rmtree(desktop.FOLDER), nothing),
            "NetworkManager hangs": (nothing, lambda: self.manager.process.send_signal(signal.SIGSTOP),
                                     lambda: self.manager.process.send_signal(signal.SIGCONT)),
        }
        self.switch_on()
        for name, (prepare, spoil, mend) in ways.items():
            with self.subTest(name):
                prepare()
                client = self.switch_on(cleanup=False)
                spoil()
                try:
                    client.process.kill()
                    self.wait_for(OFF)
                finally:
                    mend()
                self.client().set_proxy({UNKNOWN: {}})
                self.assertEqual(plain_words(), NONE, "a command for another service does not bring the proxy back")
                wait_until(lambda: self.client().set_proxy({self.wired: {}}, cleanup=True) == SUCCESS, "commands succeed again")
                self.assertEqual(plain_words(), NONE)
        self.wait_for_system_log("No space left on device")
        self.switch_on(cleanup=False)
        signature = DATABASE.open("rb")
        self.bus.process.kill()
        wait_until(lambda: plain_words() == NONE, "the proxy is off, because without a bus no network is known")
        self.assertEqual(signature.read(8), bytes(8), "programs must see that the old database is invalid")
        signature.close()


class WithoutNetworkManager(DesktopTest):
    def test_programs_notice_the_end_of_a_helper_that_dies_while_it_publishes(self):
        self.assertEqual(self.client().set_proxy({"a": http_proxy(8080)}), SUCCESS)
        self.wait_for(ON)
        # This is the state after the database is replaced, but before programs are notified.
        old = desktop.FOLDER / "dconf.old"
        old.hardlink_to(DATABASE)
        shutil.copy(DATABASE, desktop.FOLDER / "new")
        (desktop.FOLDER / "new").rename(DATABASE)
        self.helper.signal(signal.SIGKILL)
        self.helper.wait()
        proxies_off()
        self.wait_for(OFF)
        self.assertFalse(old.exists())
        self.start_helper()
