"""Power assertions: inhibitors of a real logind, and failures of logind."""

import signal

from harness import DEADLINE, SERVICE, HelperTest, wait_until
from system_bus import SystemBus

DONE = (0, "done\n", "")
FAILED = r"[BRHMain] Failed to prevent system sleeping: {}"
RELEASED = "[BRHMain] Release IOPMAssertion"


class Power(HelperTest):
    def setUp(self):
        super().setUp()
        self.assert_serves()
        self.wait_for_log(r"\[BRHMain\] XPC connection closed")
        self.descriptors = self.helper.descriptors()

    def assert_no_descriptor_is_left(self, more=0):
        # One more descriptor is allowed: as soon as there is a bus, the helper connects to it to follow NetworkManager.
        wait_until(lambda: self.helper.descriptors() <= self.descriptors + 1 + more, "the other descriptors are closed")

    def prevent_sleep(self):
        self.assertEqual(self.brimo("prevent-sleep-temp"), DONE)

    def succeeds(self):
        before = len(self.failures())
        self.prevent_sleep()
        return len(self.failures()) == before

    def expected(self, commands):
        return sorted(("idle", f"{SERVICE}.{name}", "block", 0, self.helper.pid)
                      for name in ("idle", "network") for _ in range(commands))

    def failures(self):
        return [line for line in self.log() if "Failed" in line]

    def test_thirty_seconds_of_two_inhibitors_for_each_command(self):
        bus = SystemBus(self)
        bus.start_logind()
        self.prevent_sleep()
        self.assertEqual(bus.inhibitors(), self.expected(1))
        # They outlive the client and a restart of logind.
        bus.start_logind()
        self.assertEqual(bus.inhibitors(), self.expected(1))
        self.prevent_sleep()
        self.assertEqual(bus.inhibitors(), self.expected(2))

        wait_until(lambda: self.log().count(RELEASED) >= 4, "all are released", 30 + DEADLINE)
        wait_until(lambda: not bus.inhibitors(), "logind has no inhibitors")
        self.assertEqual(self.failures(), [])
        self.assert_no_descriptor_is_left()

    def test_a_hanging_logind_or_bus_is_not_waited_for(self):
        bus = SystemBus(self)
        bus.start_logind()
        for process in (bus.logind, bus.process):
            held = bus.inhibitors()
            process.send_signal(signal.SIGSTOP)
            self.prevent_sleep()
            self.assertEqual(self.failures()[-2:], [FAILED.format(110)] * 2)  # ETIMEDOUT
            self.assert_no_descriptor_is_left(more=len(held))
            process.send_signal(signal.SIGCONT)
            # After one timeout, the helper does not ask again for a while.
            before = len(self.failures())
            self.prevent_sleep()
            self.assertEqual(self.failures()[before:], [FAILED.format(110)] * 2)
            # logind has granted the inhibitors after the timeout and released them with the connection.
            wait_until(lambda: bus.inhibitors() == held, "those inhibitors are gone")
            wait_until(self.succeeds, "the helper asks again")
            wait_until(lambda: len(bus.inhibitors()) > len(held), "the new inhibitors are there")

    def test_the_number_of_inhibitors_is_limited(self):
        bus = SystemBus(self)
        bus.start_logind()
        script = """
connection = connect_greeted()
for _ in range(200):
    connection.sendall(frame(1, {"json": b'{"command":"prevent-sleep-temp"}'}))
    assert receive_frame(connection) == [1, {"json": b'{"result":"success"}'}]
"""
        self.assert_succeeds(self.genuine(script))
        self.assertEqual(len(bus.inhibitors()), 256)
        self.assertEqual(self.failures(), [FAILED.format(24)] * (400 - 256))  # EMFILE
