"""A running Chromium follows the proxies. Not part of ctest, because it needs a download of 122 MB; see scripts/check."""

import http.server
import signal
import subprocess
import threading

from desktop import proxies_off
from harness import wait_until
from test_desktop_proxies import SUCCESS, NetworkTest

PAGE = b"<script>setInterval(() => fetch('/tick?' + Math.random()), 50)</script>"


class Server:
    """Answers all requests with the page, with or without a proxy, and counts them."""

    def __init__(self, test, port):
        self.requests = 0
        outer = self

        class Handler(http.server.BaseHTTPRequestHandler):
            def do_GET(self):
                outer.requests += 1
                self.send_response(200)
                self.send_header("Content-Type", "text/html")
                self.end_headers()
                self.wfile.write(PAGE)

            def log_message(self, *_):
                pass

        self.server = http.server.ThreadingHTTPServer(("127.0.0.1", port), Handler)
        threading.Thread(target=self.server.serve_forever, daemon=True).start()
        test.addCleanup(self.server.server_close)
        test.addCleanup(self.server.shutdown)


class Chromium(NetworkTest):
    def setUp(self):
        super().setUp()
        self.direct, self.proxy = Server(self, 8000), Server(self, 8080)
        self.browser = self.users[0].start(
            ["chromium", "--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
             "--disable-background-networking", "--disable-component-update", "--disable-sync", "--disable-dev-shm-usage",
             "--user-data-dir=/tmp/home-1000/chromium", "--host-resolver-rules=MAP page.example 127.0.0.1:8000",
             "--remote-debugging-port=9222", "http://page.example/"], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        self.wait_for_requests(self.direct, 60)

    def wait_for_requests(self, server, seconds=10):
        """Waits until this server has received three more requests."""
        before = server.requests
        wait_until(lambda: server.requests > before + 2, "Chromium sends requests there", seconds)

    def test_goes_through_the_proxy_as_long_as_it_is_set(self):
        for end in (lambda client: client.process.kill(),
                    lambda client: self.assertEqual(client.set_proxy({self.wired: {}}), SUCCESS),
                    lambda client: (self.helper.signal(signal.SIGKILL), self.helper.wait(), proxies_off())):
            client = self.switch_on(cleanup=False)
            self.wait_for_requests(self.proxy)
            end(client)
            self.wait_for_requests(self.direct)
            before = self.proxy.requests
            self.wait_for_requests(self.direct)
            self.assertEqual(self.proxy.requests, before, "no request comes late")
        self.start_helper()
