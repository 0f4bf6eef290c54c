#!/usr/bin/env python3
"""A second client and a second server of the multiport link, written from its page alone.

    link_peer.py page   PAGE                the worked examples of the page
    link_peer.py server PAGE LINK_PROBE     this server, our client in LINK_PROBE
    link_peer.py client PAGE MULTIPORTD     this client, our server
"""

import contextlib
import os
import queue
import re
import socket
import struct
import subprocess
import sys
import tempfile
import threading
import time
import unittest

HELLO, REQUEST, HEARTBEAT = 0x01, 0x02, 0x04
WELCOME, STATUS, EVENT, GOODBYE = 0x81, 0x82, 0x83, 0x85
KINDS = {HELLO, REQUEST, HEARTBEAT, WELCOME, STATUS, EVENT, GOODBYE}
OBSERVER, CONTROLLER = 0, 1
CLAIM, SET_LINE, SET_OUTPUT, BLINK_OUTPUT, SWITCHES, MOTOR_STATE = 10, 20, 30, 31, 49, 53
CAN, PAYMENT = 1, 3
LINE_OF_9_BITS = struct.pack(">HIBBB", 4000, 9600, 9, 0, 0)
PATIENCE = 5.0  # s


# -- the records of the page ----------------------------------------------------------------------

def record(kind, body=b""):
    assert len(body) + 3 <= 4096
    return struct.pack(">HB", len(body) + 1, kind) + body


def hello(role, version=1, word=b"VYMP"):
    return record(HELLO, word + bytes([version, role]))


def welcome(role, can_port, payment_port):
    return record(WELCOME, b"VYMP" + struct.pack(">BBHH", 1, role, can_port, payment_port))


def request(sequence, command, payload=b""):
    return record(REQUEST, struct.pack(">HB", sequence, command) + payload)


def status(sequence, command, result):
    return record(STATUS, struct.pack(">HBB", sequence, command, result))


def can_record(identifier, data):
    return struct.pack(">IB", identifier, len(data)) + data


def split_can(stream):
    """The frames of a stream that ends where a record ends."""
    frames = []
    while stream:
        identifier, size = struct.unpack_from(">IB", stream)
        assert size <= 8 and len(stream) >= 5 + size, stream.hex()
        frames.append((identifier, stream[5:5 + size]))
        stream = stream[5 + size:]
    return frames


class Closed(Exception):
    pass


class Peer:
    """One connection, with time-outs."""

    def __init__(self, connection):
        self.socket = connection
        self.socket.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        self.lock = threading.Lock()
        self.beats = 0

    def send(self, data):
        with self.lock:
            self.socket.sendall(data)

    def take(self, size, patience=PATIENCE):
        data = b""
        self.socket.settimeout(patience)
        while len(data) < size:
            more = self.socket.recv(size - len(data))
            if not more:
                raise Closed(f"after {data.hex()}")
            data += more
        return data

    def record(self, patience=PATIENCE):
        """Kind and body of the next record that is no heartbeat."""
        while True:
            (length,) = struct.unpack(">H", self.take(2, patience))
            assert 1 <= length <= 4094, length
            data = self.take(length)
            assert data[0] in KINDS, data.hex()
            if data[0] != HEARTBEAT:
                return data[0], data[1:]
            assert len(data) == 1
            self.beats += 1

    def is_closed(self, patience=PATIENCE):
        """Whether the other side ends the connection; what it sends before is skipped."""
        self.socket.settimeout(patience)
        try:
            while self.socket.recv(4096):
                pass
            return True
        except ConnectionError:
            return True
        except TimeoutError:
            return False

    def received(self, seconds):
        """What arrives in this time."""
        data = b""
        end = time.monotonic() + seconds
        with contextlib.suppress(TimeoutError):
            while (left := end - time.monotonic()) > 0:
                self.socket.settimeout(left)
                more = self.socket.recv(4096)
                if not more:
                    break
                data += more
        return data

    def beat(self):
        """Sends heartbeats until the connection ends or the returned event is set."""
        silence = threading.Event()

        def run():
            with contextlib.suppress(OSError):
                while not silence.wait(1.0):
                    self.send(record(HEARTBEAT))

        threading.Thread(target=run, daemon=True).start()
        return silence

    def close(self):
        self.socket.close()


# -- the page -------------------------------------------------------------------------------------

def examples(page):
    """The hexadecimal lines between ``` and ```: who sends, and what."""
    found, inside = [], False
    for line in open(page, encoding="utf-8"):
        if line.startswith("```"):
            inside = not inside
        elif inside:
            match = re.match(r"(?:(client|server|either)  )?((?:[0-9a-f]{2} ?)+)", line)
            found.append((match[1], bytes.fromhex(match[2])))
    return found


class PageTest(unittest.TestCase):
    page = None

    def test_every_example_is_what_the_text_says(self):
        self.assertEqual(examples(self.page), [
            (None, can_record(0x00254419, bytes([0x02, 0, 0x2A, 0, 0, 0x28]))),
            (None, bytes([1, 0x12, 0, 0x12])),
            ("client", hello(CONTROLLER)),
            ("server", welcome(CONTROLLER, 4001, 4000)),
            ("either", record(HEARTBEAT)),
            ("client", request(7, SET_OUTPUT, bytes([9, 1]))),
            ("server", status(7, SET_OUTPUT, 0)),
            ("client", request(8, SET_LINE, LINE_OF_9_BITS)),
            ("server", status(8, SET_LINE, 0)),
        ])


# -- this server, our client ----------------------------------------------------------------------

class Server:
    """Ports 0 to 2 are payment, CAN and control, as on the page."""

    def __init__(self):
        self.listeners = [socket.create_server(("127.0.0.1", 0)) for _ in range(3)]
        self.ports = [one.getsockname()[1] for one in self.listeners]
        self.requests = []

    def accept(self, number, patience=PATIENCE):
        self.listeners[number].settimeout(patience)
        return Peer(self.listeners[number].accept()[0])

    def greet(self):
        control = self.accept(2)
        kind, body = control.record()
        assert (kind, body) == (HELLO, b"VYMP\x01\x01"), body.hex()
        control.send(welcome(CONTROLLER, self.ports[1], self.ports[0]))
        return control

    def claimed(self, control):
        """Answers the claims of both lines: CAN's connection and payment's."""
        lines = {CAN: self.accept(1), PAYMENT: self.accept(0)}
        ports = {line: peer.socket.getpeername()[1] for line, peer in lines.items()}
        for _ in lines:
            sequence, command, payload = self.asked(control)
            line, port = struct.unpack(">BH", payload)
            assert command == CLAIM and ports.pop(line) == port
            control.send(status(sequence, CLAIM, 0))
        return lines[CAN], lines[PAYMENT]

    def asked(self, control):
        kind, body = control.record()
        assert kind == REQUEST, kind
        return (*struct.unpack(">HB", body[:3]), body[3:])

    def close(self):
        for one in self.listeners:
            one.close()


class Probe:
    def __init__(self, program, port):
        self.process = subprocess.Popen([program, f"127.0.0.1:{port}"], stdin=subprocess.PIPE,
                                        stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
        self.lines = queue.Queue()
        threading.Thread(target=self._read, daemon=True).start()

    def _read(self):
        for line in self.process.stdout:
            self.lines.put(line.strip())

    def says(self, *expected, patience=PATIENCE):
        """The next lines are these, in any order."""
        heard = [self.lines.get(timeout=patience) for _ in expected]
        assert sorted(heard) == sorted(expected), heard

    def hears(self, prefix, size):
        """So many bytes in lines that begin so."""
        data = b""
        while len(data) < size:
            line = self.lines.get(timeout=PATIENCE)
            assert line.startswith(prefix + " "), line
            data += bytes.fromhex(line.split()[1])
        return data

    def tell(self, line):
        self.process.stdin.write(line + "\n")
        self.process.stdin.flush()

    def end(self):
        self.process.stdin.close()
        self.process.wait(PATIENCE)
        self.process.stdout.close()
        return self.process.returncode


class ServerTest(unittest.TestCase):
    program = None

    def setUp(self):
        self.server = Server()
        self.addCleanup(self.server.close)
        self.probe = Probe(self.program, self.server.ports[2])
        self.addCleanup(lambda: self.assertEqual(self.probe.end(), 0))
        self.control = self.server.greet()
        self.addCleanup(lambda: self.control.close())
        self.silence = self.control.beat()
        self.can, self.payment = self.server.claimed(self.control)
        self.addCleanup(lambda: (self.can.close(), self.payment.close()))
        self.probe.says("server 1")
        self.probe.says("can 1", "payment 1")

    def test_lines_are_raw_both_ways(self):
        frame = can_record(0x00254419, bytes([0x02, 0, 0x2A, 0, 0, 0x28]))
        self.can.send(frame * 3)
        self.assertEqual(self.probe.hears("from-can", 33), frame * 3)
        self.probe.tell("can " + frame.hex())
        self.probe.says("written can 1")
        self.assertEqual(split_can(self.can.take(11)), [(0x00254419, frame[5:])])
        self.payment.send(bytes([0, 0x10, 1, 0x10]))
        self.assertEqual(self.probe.hears("from-4000", 4), bytes([0, 0x10, 1, 0x10]))
        self.probe.tell("payment 01120012")
        self.probe.says("written payment 4")
        self.assertEqual(self.payment.take(4), bytes([1, 0x12, 0, 0x12]))

    def test_requests_are_answered_in_their_order_and_events_come_before(self):
        for line in ("output 9", "blink 13", "serial 9", "switches", "motor 2"):
            self.probe.tell(line)
        asked = [self.server.asked(self.control) for _ in range(5)]
        self.assertEqual([one[1:] for one in asked],
                         [(SET_OUTPUT, b"\x09\x01"), (BLINK_OUTPUT, b"\x0d\x01"),
                          (SET_LINE, LINE_OF_9_BITS), (SWITCHES, b""), (MOTOR_STATE, b"\x02")])
        for number, (sequence, command, _) in enumerate(asked):
            if command == SWITCHES:
                self.control.send(record(EVENT, b"\x41\x00\x01"))
            if command == MOTOR_STATE:
                self.control.send(record(EVENT, b"\x43\x02\x05"))
            self.control.send(status(sequence, command, number))
        for line in ("status 30 0", "status 31 1", "status 20 2", "switches 0 1", "status 49 3",
                     "motor 2 5", "status 53 4"):
            self.probe.says(line)
        self.control.send(record(EVENT, b"\x07\x01") + record(EVENT, b"\x08\x00"))
        self.probe.says("upper 1")
        self.probe.says("lower 0")

    def test_after_a_goodbye_the_client_comes_back_and_sets_the_line_up_again(self):
        self.probe.tell("serial 9")
        sequence, command, payload = self.server.asked(self.control)
        self.control.send(status(sequence, command, 0))
        self.probe.says("status 20 0")
        self.control.send(record(GOODBYE, b"\x0athe server stops"))
        self.probe.says("can 0", "payment 0")
        self.probe.says("server 0")
        self.assertTrue(self.control.is_closed() and self.can.is_closed())
        self.probe.tell("can 00000000")
        self.probe.says("written can 0")
        self.control = self.server.greet()
        self.control.beat()
        self.can, self.payment = self.server.claimed(self.control)
        self.probe.says("server 1")
        sequence, command, payload = self.server.asked(self.control)
        self.assertEqual((command, payload), (SET_LINE, LINE_OF_9_BITS))
        self.control.send(status(sequence, command, 0))
        self.probe.says("can 1", "payment 1")
        self.probe.tell("can 0000000000")
        self.probe.says("written can 1")  # nothing was said of the setup
        self.assertEqual(self.can.take(5), bytes(5))

    def test_client_beats_and_leaves_a_server_that_does_not(self):
        self.control.socket.settimeout(0.1)
        self.silence.set()
        begin = time.monotonic()
        with self.assertRaises((Closed, ConnectionError)):
            self.control.record()
        self.assertLess(time.monotonic() - begin, 3.1)
        self.assertGreaterEqual(self.control.beats, 2)
        self.probe.says("can 0", "payment 0")
        self.probe.says("server 0")


# -- this client, our server ----------------------------------------------------------------------

class ClientTest(unittest.TestCase):
    program = None

    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.TemporaryDirectory()
        cls.server = subprocess.Popen(
            [cls.program, "--simulate", "--port-base", "0", "--print-ports"],
            env={**os.environ, "VY_SIM_CONSOLE": os.path.join(cls.folder.name, "console")},
            stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
        cls.ports = {}
        for _ in range(3):
            name, port = cls.server.stdout.readline().split()
            cls.ports[name] = int(port)

    @classmethod
    def tearDownClass(cls):
        cls.server.terminate()
        cls.server.stdout.close()
        assert cls.server.wait(PATIENCE) == 0, cls.server.returncode
        cls.folder.cleanup()

    def connect(self, name):
        peer = Peer(socket.create_connection(("127.0.0.1", self.ports[name]), PATIENCE))
        self.addCleanup(peer.close)
        return peer

    def greeted(self, role):
        control = self.connect("control")
        control.send(hello(role))
        self.assertEqual(control.record(), (WELCOME, b"VYMP" + struct.pack(
            ">BBHH", 1, role, self.ports["can"], self.ports["payment"])))
        self.addCleanup(control.beat().set)
        return control

    def controller(self):
        """There may be one; the last one's end may still be on its way."""
        end = time.monotonic() + PATIENCE
        while True:
            control = self.connect("control")
            control.send(hello(CONTROLLER))
            kind, body = control.record()
            if kind == WELCOME:
                self.addCleanup(control.beat().set)
                return control
            assert (kind, body[0]) == (GOODBYE, 3) and time.monotonic() < end, body
            control.close()
            time.sleep(0.05)

    def ask(self, control, sequence, command, payload=b"", patience=PATIENCE):
        control.send(request(sequence, command, payload))
        kind, body = control.record(patience)
        self.assertEqual(kind, STATUS)
        self.assertEqual(struct.unpack(">HB", body[:3]), (sequence, command))
        return body[3]

    def claim(self, control, name, line):
        data = self.connect(name)
        port = data.socket.getsockname()[1]
        self.assertEqual(self.ask(control, port, CLAIM, struct.pack(">BH", line, port)), 0)
        return data

    def goodbye(self, data, reason, patience=PATIENCE):
        control = self.connect("control")
        control.send(data)
        kind, body = control.record(patience)
        self.assertEqual((kind, body[0]), (GOODBYE, reason), body)
        body[1:].decode("utf-8")
        self.assertTrue(control.is_closed())

    def test_bad_records_are_answered_with_their_reasons(self):
        self.goodbye(hello(CONTROLLER, word=b"HTTP"), 1)
        self.goodbye(hello(CONTROLLER, version=2), 2)
        self.goodbye(b"\x00\x00", 5)
        self.goodbye(b"\x00\x01\x7f", 5)
        self.goodbye(b"\xff\xff", 6)
        self.goodbye(b"\x0f\xff", 6)

    def test_malformed_record_after_the_welcome_ends_the_connection(self):
        for bad in (record(REQUEST, b"\x00\x07"), record(HEARTBEAT, b"\x00"), b"\x00\x01\x7f"):
            control = self.greeted(OBSERVER)
            control.send(bad)
            kind, body = control.record()
            self.assertEqual((kind, body[0]), (GOODBYE, 5))
            self.assertTrue(control.is_closed())

    def test_client_without_a_hello_is_told_so_after_five_seconds(self):
        begin = time.monotonic()
        self.goodbye(b"", 7, patience=7.0)
        self.assertGreater(time.monotonic() - begin, 4.5)

    def test_one_controller_and_observers_beside_it(self):
        self.controller()
        self.goodbye(hello(CONTROLLER), 3)
        observer = self.greeted(OBSERVER)
        self.assertEqual(self.ask(observer, 1, SET_OUTPUT, b"\x09\x01"), 3)

    def test_requests_are_answered_with_their_statuses(self):
        control = self.controller()
        self.assertEqual(self.ask(control, 7, SET_OUTPUT, b"\x09\x01"), 0)
        self.assertEqual(self.ask(control, 0, BLINK_OUTPUT, b"\x09\x00"), 0)
        self.assertEqual(self.ask(control, 65535, SET_OUTPUT, b"\x09"), 2)
        self.assertEqual(self.ask(control, 9, SET_OUTPUT, b"\x09\x01\x00"), 2)
        self.assertEqual(self.ask(control, 8, 200), 4)
        self.assertEqual(self.ask(control, 8, SET_LINE, LINE_OF_9_BITS), 0)

    def test_many_requests_in_one_write_are_answered_in_their_order(self):
        control = self.controller()
        control.send(b"".join(request(n, SET_OUTPUT, bytes([n % 8, 1])) for n in range(500)))
        for number in range(500):
            self.assertEqual(control.record(), (STATUS, struct.pack(">HBB", number, SET_OUTPUT, 0)))

    def test_record_in_single_bytes_is_a_record(self):
        control = self.controller()
        for byte in request(7, SET_OUTPUT, b"\x09\x01"):
            control.send(bytes([byte]))
            time.sleep(0.005)
        self.assertEqual(control.record(), (STATUS, b"\x00\x07\x1e\x00"))

    def test_observer_of_can_sees_the_line_and_what_the_controller_writes(self):
        control = self.controller()
        data = self.claim(control, "can", CAN)
        observer = self.connect("can")
        time.sleep(0.1)  # it sees what comes from then on
        own = (0x00254419, bytes([0x02, 0, 0x2A, 0, 0, 0x28]))
        data.send(can_record(*own))
        observer.send(can_record(0x123, b""))  # thrown away
        seen = split_can(observer.received(0.5))
        told = split_can(data.received(0.1))  # boards speak before and behind, too
        self.assertEqual(seen.count(own), 1)
        self.assertNotIn(own, told)
        self.assertNotIn(0x123, [identifier for identifier, _ in seen + told])
        seen.remove(own)
        self.assertIn(seen, [told[at:at + len(seen)] for at in range(len(told) + 1)])

    def test_can_record_above_eight_bytes_ends_that_connection_alone(self):
        control = self.controller()
        data = self.claim(control, "can", CAN)
        data.send(struct.pack(">IB", 1, 9) + bytes(9))
        self.assertTrue(data.is_closed())
        self.assertEqual(self.ask(control, 1, SET_OUTPUT, b"\x01\x01"), 0)
        self.claim(control, "can", CAN)

    def test_payment_line_of_nine_bits_speaks_in_pairs(self):
        control = self.controller()
        data = self.claim(control, "payment", PAYMENT)
        observer = self.connect("payment")
        self.assertEqual(self.ask(control, 2, SET_LINE, LINE_OF_9_BITS), 0)
        poll = bytes([1, 0x12, 0, 0x12])
        data.send(poll)
        answer = data.received(0.4)
        self.assertGreater(len(answer), 0)
        self.assertEqual(len(answer) % 2, 0)
        self.assertLessEqual(set(answer[0::2]), {0, 1})
        self.assertEqual(observer.received(0.4), poll + answer)

    def test_claim_may_overtake_its_connection(self):
        control = self.controller()
        late = socket.socket()
        self.addCleanup(late.close)
        late.bind(("127.0.0.1", 0))
        port = late.getsockname()[1]
        control.send(request(1, CLAIM, struct.pack(">BH", CAN, port)))
        time.sleep(0.3)
        late.connect(("127.0.0.1", self.ports["can"]))
        self.assertEqual(control.record(), (STATUS, b"\x00\x01\x0a\x00"))

    def test_claim_of_a_connection_that_never_comes_fails_after_two_seconds(self):
        control = self.controller()
        unused = socket.socket()
        self.addCleanup(unused.close)
        unused.bind(("127.0.0.1", 0))
        begin = time.monotonic()
        payload = struct.pack(">BH", CAN, unused.getsockname()[1])
        self.assertEqual(self.ask(control, 1, CLAIM, payload), 6)
        self.assertTrue(1.8 < time.monotonic() - begin < 3.0)

    def test_silent_controller_is_left_and_its_data_connection_with_it(self):
        control = self.connect("control")
        control.send(hello(OBSERVER))
        self.assertEqual(control.record()[0], WELCOME)
        begin = time.monotonic()
        kind, body = control.record()  # counts heartbeats meanwhile
        self.assertEqual((kind, body[0]), (GOODBYE, 8))
        self.assertTrue(2.2 < time.monotonic() - begin < 3.2)
        self.assertGreaterEqual(control.beats, 2)

    def test_data_connection_ends_with_the_control_connection_that_claimed_it(self):
        control = self.controller()
        data = self.claim(control, "can", CAN)
        observer = self.connect("can")
        control.close()
        self.assertTrue(data.is_closed())
        self.assertFalse(observer.is_closed(0.2))

    def test_seventeenth_observer_of_a_line_is_refused(self):
        observers = [self.connect("payment") for _ in range(16)]
        time.sleep(0.1)
        self.assertTrue(self.connect("payment").is_closed())
        self.assertFalse(observers[0].is_closed(0.1) or observers[15].is_closed(0.1))


def main():
    if len(sys.argv) < 3 or sys.argv[1] not in ("page", "server", "client"):
        sys.exit(__doc__)
    PageTest.page = sys.argv[2]
    chosen = {"page": PageTest, "server": ServerTest, "client": ClientTest}[sys.argv[1]]
    if chosen is not PageTest:
        chosen.program = sys.argv[3]
    suite = unittest.defaultTestLoader.loadTestsFromTestCase(chosen)
    result = unittest.TextTestRunner(verbosity=2).run(suite)
    sys.exit(not result.wasSuccessful() or result.testsRun == 0)


if __name__ == "__main__":
    main()
