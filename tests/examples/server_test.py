#!/usr/bin/env python3
"""Tests the event server over real connections: server_test.py PROGRAMS [unittest arguments]

PROGRAMS is the folder of event_server, package_client and package_events.
"""
import contextlib
import os
import pathlib
import re
import signal
import socket
import subprocess
import sys
import tempfile
import threading
import time
import unittest

PROGRAMS = ""
OVERLONG = 1 << 20
TIMEOUT = 600
SYSTEM_BACKLOG = int(pathlib.Path("/proc/sys/net/core/somaxconn").read_text())


class Server:
    """Runs the program in its own folder. Log lines are counted over all rotated files."""

    def __init__(self, level="DEBUG", environment=None, **settings):
        self.folder = tempfile.TemporaryDirectory(prefix="vn-server-test-")
        self.log = self.folder.name + "/server.log"
        config = self.folder.name + "/server.conf"
        with open(config, "w") as file:
            file.write("[other]\nport = 1\n[server]\nport = 0\nlog level = %s\n" % level)
            file.write('log file = "%s"\n' % self.log)
            for key, value in settings.items():
                file.write("%s = %s\n" % (key.replace("_", " "), value))
        self.rotations = 0
        self.process = subprocess.Popen([PROGRAMS + "/event_server", config],
                                        stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True,
                                        env={**os.environ, **(environment or {})})
        self.port = int(re.fullmatch(r"port (\d+)\n", self.process.stdout.readline())[1])

    def rotate(self):
        self.rotations += 1
        os.rename(self.log, "%s.%d" % (self.log, self.rotations))
        self.process.send_signal(signal.SIGHUP)
        deadline = time.monotonic() + TIMEOUT
        while not os.path.exists(self.log):
            assert time.monotonic() < deadline, "the log was not reopened"
            time.sleep(0.005)

    def lines(self):
        names = ["%s.%d" % (self.log, n + 1) for n in range(self.rotations)] + [self.log]
        return [line for name in names for line in pathlib.Path(name).read_bytes().splitlines()]

    def count(self, level):
        mark = (" %-5s [" % level).encode()
        return sum(1 for line in self.lines() if line[23:32].startswith(mark))

    def stop(self, number=signal.SIGTERM):
        """Ends the server; returns its exit status and the report on its standard output."""
        self.process.send_signal(number)
        out, err = self.process.communicate(timeout=TIMEOUT)
        self.errors = err
        return self.process.returncode, out

    def close(self):
        if self.process.poll() is None:
            self.process.kill()
        self.process.communicate()
        self.folder.cleanup()


class Client:
    def __init__(self, server, receive_buffer=None):
        self.socket = socket.socket()
        if receive_buffer:
            self.socket.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, receive_buffer)
        self.socket.settimeout(TIMEOUT)
        self.socket.connect(("127.0.0.1", server.port))
        self.file = self.socket.makefile("rb")

    def send(self, data):
        self.socket.sendall(data)

    def end(self):
        self.socket.shutdown(socket.SHUT_WR)

    def line(self):
        return self.file.readline()

    def ask(self, data):
        self.send(data + b"\n")
        return self.line().decode().rstrip("\n")

    def rest(self, early=b""):
        return (early + self.file.read()).split(b"\n")[:-1]

    def fill(self, data):
        """Sends until the server reads no more."""
        self.socket.setblocking(False)
        try:
            while True:
                self.socket.send(data)
        except BlockingIOError:
            pass

    def close(self):
        self.file.close()
        self.socket.close()


def record(number, **more):
    fields = {"name": "p%d" % number, "version": "1.%d" % number, "size": number, "depends": "a, b"}
    fields.update(more)
    return "\t".join("%s=%s" % item for item in fields.items()).encode() + b"\n"


def event(number):
    mib = repr(number / 1024.0)
    mib = mib[1:] if mib.startswith("0.") and mib != "0.0" else mib
    mib = mib[:-2] if mib.endswith(".0") else mib
    return ('package("p%d","1.%d",%d,%s,false,["a","b"],{},optional(),"")'
            % (number, number, number, mib)).encode()


class ServerTest(unittest.TestCase):
    def serve(self, **settings):
        server = Server(**settings)
        self.addCleanup(server.close)
        return server

    def connect(self, server, receive_buffer=None):
        client = Client(server, receive_buffer)
        self.addCleanup(client.close)
        return client

    def assertStops(self, server, number=signal.SIGTERM):
        status, report = server.stop(number)
        self.assertEqual(status, 0, server.errors)
        self.assertEqual(server.errors, "")
        return report


class Answers(ServerTest):
    def test_events(self):
        client = self.connect(self.serve())
        for line, answer in [
            (b"name=x", 'package("x","",0,0,false,[],{},optional(),"")'),
            (b"name=x\r", 'package("x","",0,0,false,[],{},optional(),"")'),
            (b"size=0x400\tname=x\tversion=1:2~3\tessential=YES\thomepage=h",
             'package("x","1:2~3",1024,1,true,[],{},optional("h"),"")'),
            (b"name=x\tsize=512\tsize_mib=2.5e3", 'package("x","",512,2500,false,[],{},optional(),"")'),
            (b"name=x\tdepends= a (>= 1), b | c ,, d:any",
             'package("x","",0,0,false,["a","b | c","d:any"],{},optional(),"")'),
            (b"name=x\tZ=1\tA-b_c.9=\tq=\"",
             'package("x","",0,0,false,[],{"Z":"1","A-b_c.9":"","q":"\\""},optional(),"")'),
            (b"name=x\\ty\tdescription=a\\nb", 'package("x\\ty","",0,0,false,[],{},optional(),"a\\nb")'),
            (b"name=x\tdescription=a\\n\\\\\\t", 'package("x","",0,0,false,[],{},optional(),"a\\n\\\\\\t")'),
            ("name=\u00e9\U0001f600".encode(), 'package("\u00e9\U0001f600","",0,0,false,[],{},optional(),"")'),
        ]:
            self.assertEqual(client.ask(line), answer, line)

    def test_control_characters_come_back_escaped(self):
        """An escape sequence of a client must not reach another client's terminal or the log."""
        server = self.serve()
        client = self.connect(server)
        hostile = "\x1b]0;owned\x07\x01\x7f\u0080\u009b2J\u009f\u00a0"
        escaped = "\\u001b]0;owned\\u0007\\u0001\\u007f\\u0080\\u009b2J\\u009f\u00a0"
        for line, answer in [
            ("name=%s\thomepage=a\rb" % hostile,
             'package("%s","",0,0,false,[],{},optional("a\\rb"),"")' % escaped),
            ("name=x\tsize=%s" % hostile, 'error: size: not an integer: "%s"' % escaped),
            ("name=x\t%s=y" % hostile,
             "error: field 2: the key is not 1 to 64 of A-Z a-z 0-9 _ . -"),
            ("%s" % hostile, "error: field 1: not of the form key=value"),
        ]:
            self.assertEqual(client.ask(line.encode()), answer, line)
        self.assertStops(server)
        log = b"\n".join(server.lines()).decode()
        self.assertEqual(log.count(escaped), 2)
        self.assertNotRegex(log.replace("\n", ""), "[\0-\x1f\x7f-\x9f]")

    def test_errors_name_the_field_and_the_connection_goes_on(self):
        server = self.serve()
        client = self.connect(server)
        cases = [
            (b"", "field 1: not of the form key=value"),
            (b"name=x\tnothing", "field 2: not of the form key=value"),
            (b"name=x\t=1", "field 2: the key is not 1 to 64 of A-Z a-z 0-9 _ . -"),
            (b"name=x\t" + b"k" * 65 + b"=1", "field 2: the key is not 1 to 64 of A-Z a-z 0-9 _ . -"),
            (b"version=1", "name: missing"),
            (b"name=", 'name: empty: ""'),
            (b"name=x\tname=y", "name: given twice"),
            (b"name=x\tother=1\tother=1", "other: given twice"),
            (b"name=x\tsize=12a", 'size: not an integer: "12a"'),
            (b"name=x\tsize=", 'size: not an integer: ""'),
            (b"name=x\tsize=-1", 'size: negative: "-1"'),
            (b"name=x\tsize=9223372036854775808", 'size: too large: "9223372036854775808"'),
            (b"name=x\tsize_mib=1,5", 'size_mib: not a number: "1,5"'),
            (b"name=x\tsize_mib=inf", 'size_mib: not a number: "inf"'),
            (b"name=x\tsize_mib=nan", 'size_mib: not a number: "nan"'),
            (b"name=x\tsize_mib=" + b"1" * 401,
             'size_mib: too long for a number: "' + "1" * 40 + '"...'),
            (b"name=x\tessential=perhaps\\n", 'essential: neither true nor false: "perhaps\\n"'),
            (b"name=x\tdescription=a\\q", "description: a backslash that is not \\n, \\r, \\t or \\\\"),
            (b"name=x\tdescription=a\\", "description: a backslash that is not \\n, \\r, \\t or \\\\"),
            (b"name=x\tversion=\xff", "version: not UTF-8"),
            (b"name=x\tversion=\xc0\x80", "version: not UTF-8"),
            (b"name=x\tversion=1\x002", "version: holds a NUL byte"),
            (b"na\xffme=x", "field 1: the key is not 1 to 64 of A-Z a-z 0-9 _ . -"),
        ]
        for line, problem in cases:
            self.assertEqual(client.ask(line), "error: " + problem, line)
            self.assertIn("p1", client.ask(record(1).rstrip()))
        self.assertEqual(server.count("WARN"), len(cases))
        self.assertIn(b"Connection 1, line 1: field 1", b"\n".join(server.lines()))
        report = self.assertStops(server)
        self.assertIn("%d events, %d errors" % (len(cases), len(cases)), report)

    def test_overlong_lines(self):
        client = self.connect(self.serve())
        head = b"name=x\tdescription="
        for length, good in [(OVERLONG - 1, True), (OVERLONG, False), (OVERLONG + 1, False),
                             (3 * OVERLONG, False), (OVERLONG - 1, True)]:
            answer = client.ask(head + b"d" * (length - len(head)))
            self.assertEqual(answer.startswith('package("x"'), good, length)
            if not good:
                self.assertEqual(answer, "error: line: 1 MiB or longer")

    def test_an_overlong_line_without_end_is_answered_once(self):
        client = self.connect(self.serve())
        client.send(record(1) + b"x" * (2 * OVERLONG))
        self.assertEqual(client.line().rstrip(), event(1))
        self.assertEqual(client.line(), b"error: line: 1 MiB or longer\n")
        client.send(b"x" * OVERLONG + b"\n" + record(2))
        client.end()
        self.assertEqual(client.rest(), [event(2)])

    def test_half_line_at_close(self):
        server = self.serve()
        client = self.connect(server)
        client.send(record(1) + b"name=half")
        client.end()
        self.assertEqual(client.rest(),
                         [event(1), b"error: line: the connection ended inside it"])
        self.assertEqual(server.count("WARN"), 1)

    def test_byte_by_byte_and_all_at_once(self):
        client = self.connect(self.serve())
        for byte in record(7):
            client.send(bytes([byte]))
        self.assertEqual(client.line().rstrip(), event(7))
        client.send(b"".join(record(n) for n in range(2000)))
        client.end()
        self.assertEqual(client.rest(), [event(n) for n in range(2000)])

    def test_stats(self):
        client = self.connect(self.serve())
        client.ask(b"name=x")
        client.ask(b"size=x")
        # The server counts an event after it has sent the answer, so the counts can be late.
        deadline = time.monotonic() + TIMEOUT
        answer = ""
        while not answer.startswith("stats(1,1,") and time.monotonic() < deadline:
            answer = client.ask(b"stats")
        triple = r"\[\d+,\d+,\d+\]"
        self.assertRegex(answer, r'^stats\(1,1,\{"total":%s(,"[a-z]+":%s){7}\}\)$' % (triple, triple))


class Load(ServerTest):
    RECORDS = 1500
    CLIENTS = 6

    def test_nothing_is_lost(self):
        """Clients with good and bad lines, dead and stubborn clients, and rotation, at once."""
        server = self.serve(queue=64)
        stubborn = self.connect(server)  # sends but hardly reads
        early = b""
        stubborn.fill(record(1, description="d" * 2000) * 20)
        failures = []
        clients = [threading.Thread(target=self.exchange, args=(server, n, failures))
                   for n in range(self.CLIENTS)]
        for client in clients:
            client.start()
        read = time.monotonic()
        while any(client.is_alive() for client in clients):
            server.rotate()
            self.die(server)
            time.sleep(0.02)
            if time.monotonic() - read > 2:  # after ten seconds the server would drop it
                with contextlib.suppress(BlockingIOError):
                    early += stubborn.socket.recv(OVERLONG)
                read = time.monotonic()
        self.assertEqual(failures, [])
        # Now the stubborn client reads its answers.
        stubborn.socket.settimeout(TIMEOUT)
        stubborn.end()
        answers = stubborn.rest(early)
        good = [answer for answer in answers if answer.startswith(b"package(")]
        report = self.assertStops(server)
        self.assertGreaterEqual(server.rotations, 2)
        self.assertIn(answers[len(good):], ([], [b"error: line: the connection ended inside it"]))
        self.check_log(server, report, len(good))

    def exchange(self, server, number, failures):
        client = Client(server)
        lines, expected = [], []
        for n in range(self.RECORDS):
            bad = n % 10 == number
            lines.append(record(n, size="bad") if bad else record(n))
            expected.append(b'error: size: not an integer: "bad"' if bad else event(n))
        lines[700] = b"x" * OVERLONG + b"\n"
        expected[700] = b"error: line: 1 MiB or longer"
        sender = threading.Thread(target=lambda: (client.send(b"".join(lines)), client.end()))
        sender.start()
        answers = client.rest()
        sender.join()
        client.close()
        if answers != expected:
            failures.append("client %d: %d of %d answers, or wrong ones"
                            % (number, len(answers), len(expected)))

    def die(self, server):
        """A client that resets its connection in the middle of a line, with answers unread."""
        client = Client(server)
        client.send(b"size=dead\n" * 50 + b"name=half")
        client.socket.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, b"\1\0\0\0\0\0\0\0")
        client.close()

    def check_log(self, server, report, stubborn_good):
        dead = sum(1 for line in server.lines() if b'"dead"' in line)
        half = sum(1 for line in server.lines() if b"ended inside" in line)
        # Line 700 is too long. For client 0 it replaces a bad record, for the others a good one.
        bad = self.CLIENTS * self.RECORDS // 10 + self.CLIENTS - 1
        good = self.CLIENTS * self.RECORDS - bad
        events, errors = map(int, re.match(r"(\d+) events, (\d+) errors", report).groups())
        self.assertEqual(events, good + stubborn_good)
        self.assertEqual(server.count("DEBUG"), events)
        self.assertEqual(errors, bad + dead + half)
        named = sum(1 for line in server.lines()
                    if re.search(rb" WARN  \[\d+\] - Connection \d+, line ", line))
        self.assertEqual(named, errors)
        for line in server.lines():
            self.assertRegex(line, rb"^\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} [A-Z# ]{5} \[\d+\] - ")


class Stopping(ServerTest):
    def stop_with_work(self, number):
        server = self.serve(workers=1, queue=16)
        client = self.connect(server)
        sender = threading.Thread(target=self.send_quietly, args=(client,))
        sender.start()
        self.assertEqual(client.line().rstrip(), event(0))
        server.process.send_signal(number)
        answers = client.rest()
        sender.join()
        client.close()
        out, err = server.process.communicate(timeout=TIMEOUT)
        self.assertEqual((server.process.returncode, err), (0, ""))
        # The server answered every line that it read, in order, and did nothing else.
        self.assertEqual(answers, [event(n) for n in range(1, len(answers) + 1)])
        self.assertIn("%d events, 0 errors" % (len(answers) + 1), out)
        self.assertEqual(server.count("DEBUG"), len(answers) + 1)

    @staticmethod
    def send_quietly(client):
        try:
            client.send(b"".join(record(n) for n in range(20000)))
            client.end()
        except OSError:
            pass

    def test_sigterm(self):
        self.stop_with_work(signal.SIGTERM)

    def test_sigint(self):
        self.stop_with_work(signal.SIGINT)

    def test_idle_connections_do_not_hold_it_up(self):
        server = self.serve()
        idle = [self.connect(server) for _ in range(10)]
        self.assertEqual(idle[9].ask(record(3).rstrip()).encode(), event(3))
        for client in idle:
            threading.Thread(target=lambda c=client: (c.rest(), c.close())).start()
        report = self.assertStops(server)
        self.assertIn("1 events, 0 errors", report)

    def test_sighup_before_and_between(self):
        server = self.serve()
        client = self.connect(server)
        for n in range(20):
            server.rotate()
            self.assertEqual(client.ask(record(n).rstrip()).encode(), event(n))
        client.close()
        self.assertStops(server)
        self.assertEqual(server.count("DEBUG"), 20)


class Crowds(ServerTest):
    """Many clients that connect while the server is stopped."""

    def crowd(self, server, size):
        server.process.send_signal(signal.SIGSTOP)
        clients = [self.connect(server) for _ in range(size)]
        for client in clients:
            client.send(record(1))
            client.end()
        server.process.send_signal(signal.SIGCONT)
        return clients

    @unittest.skipUnless(SYSTEM_BACKLOG >= 500, "the system's backlog is %d" % SYSTEM_BACKLOG)
    def test_500_at_once_are_all_answered(self):
        server = self.serve(clients=600)
        for client in self.crowd(server, 500):
            self.assertEqual(client.rest(), [event(1)])
        self.assertIn("500 events, 0 errors", self.assertStops(server))

    def test_those_who_are_refused_are_all_told(self):
        server = self.serve(clients=2)
        answers = [client.rest() for client in self.crowd(server, 50)]
        refused = [b"error: server: too many connections"]
        self.assertGreaterEqual(answers.count([event(1)]), 2)
        self.assertEqual([one for one in answers if one not in ([event(1)], refused)], [])
        self.assertStops(server)


class IdleClients(ServerTest):
    def test_200_idle_connections_lock_nobody_out(self):
        server = self.serve(clients=200, idle_limit=1)
        idle = [self.connect(server) for _ in range(200)]
        deadline = time.monotonic() + TIMEOUT
        answer = "error:"
        while answer.startswith("error:"):
            self.assertLess(time.monotonic(), deadline)
            client = self.connect(server)
            answer = self.answer_of(client)
            client.close()
        self.assertEqual(answer.encode(), event(1))
        for client in idle:
            self.assertEqual(client.rest(), [])
        self.assertStops(server)
        self.assertIn(b"idle for 1 s", b"\n".join(server.lines()))

    @staticmethod
    def answer_of(client):
        """An error also when the server took the client for idle, on a busy machine."""
        try:
            return client.ask(record(1).rstrip()) or "error: closed"
        except OSError:
            return "error: closed"

    def test_half_a_line_at_a_time_is_idle(self):
        server = self.serve(idle_limit=1)
        answer = "error: closed"
        while answer == "error: closed":
            client = self.connect(server)
            answer = self.answer_of(client)
        self.assertEqual(answer.encode(), event(1))
        client.socket.settimeout(0.05)
        deadline = time.monotonic() + TIMEOUT
        ended = False
        while not ended:
            self.assertLess(time.monotonic(), deadline)
            try:
                client.send(b"x")
                ended = client.socket.recv(1) == b""
            except socket.timeout:
                pass
            except OSError:
                ended = True
        self.assertStops(server)

    def test_no_limit(self):
        server = self.serve(idle_limit=0)
        client = self.connect(server)
        time.sleep(1)
        self.assertEqual(client.ask(record(1).rstrip()).encode(), event(1))
        client.close()
        self.assertStops(server)
        self.assertIn(b"no idle limit", b"\n".join(server.lines()))


class ServiceManager(ServerTest):
    """Plays the service manager: NOTIFY_SOCKET names its datagram socket."""

    def told(self, address, name):
        with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as manager:
            manager.bind(address)
            manager.settimeout(TIMEOUT)
            server = self.serve(environment={"NOTIFY_SOCKET": name})
            self.assertEqual(manager.recv(100), b"READY=1")
            client = self.connect(server)
            self.assertEqual(client.ask(record(1).rstrip()).encode(), event(1))
            client.close()
            self.assertStops(server)
            self.assertEqual(manager.recv(100), b"STOPPING=1")

    def test_a_socket_in_the_file_system(self):
        with tempfile.TemporaryDirectory(prefix="vn-notify-") as folder:
            self.told(folder + "/socket", folder + "/socket")

    def test_an_abstract_socket(self):
        name = "vn-notify-%d" % os.getpid()
        self.told("\0" + name, "@" + name)

    def test_nobody_there(self):
        for name, problem in [("/no/such/socket", b"No such file or directory"),
                              ("elsewhere", b"not an address"), ("@" + "x" * 200, b"not an address")]:
            server = self.serve(environment={"NOTIFY_SOCKET": name})
            self.assertStops(server)
            self.assertIn(problem, b"\n".join(server.lines()))


class Limits(ServerTest):
    def test_too_many_connections(self):
        server = self.serve(clients=2)
        kept = [self.connect(server) for _ in range(2)]
        self.assertTrue(kept[1].ask(b"name=x").startswith("package("))
        self.assertEqual(self.connect(server).rest(), [b"error: server: too many connections"])
        self.assertTrue(kept[0].ask(b"name=x").startswith("package("))
        kept[1].end()
        self.assertEqual(kept[1].rest(), [])
        deadline = time.monotonic() + TIMEOUT
        answer = "error:"
        while answer.startswith("error:"):
            self.assertLess(time.monotonic(), deadline)
            try:
                answer = self.connect(server).ask(b"name=x")
            except OSError:
                pass

    def test_banner(self):
        server = self.serve(level="ERROR", workers=3)
        self.assertStops(server)
        log = b"\n".join(server.lines()).decode()
        for part in ["Processor: ", "Platform: ", "May use ", "3 workers, queue of 8192",
                     "200 clients, idle limit of 300 s", "log level ERROR", "Listening on port %d" % server.port, "Ended"]:
            self.assertIn(" ##### ", log)
            self.assertIn(part, log)


class Settings(unittest.TestCase):
    def refuse(self, entries, message):
        with tempfile.NamedTemporaryFile("w", suffix=".conf") as config:
            config.write("[server]\n" + entries)
            config.flush()
            run = subprocess.run([PROGRAMS + "/event_server", config.name], capture_output=True,
                                 text=True, timeout=TIMEOUT)
            self.assertEqual((run.returncode, run.stdout), (1, ""))
            self.assertEqual(run.stderr, "event_server: %s: [server] %s\n" % (config.name, message))

    def test_bad_settings(self):
        self.refuse("port = 65536\n", 'port: not a value for it: "65536"')
        self.refuse("workers = many\n", 'workers: not a value for it: "many"')
        self.refuse("log level = LOUD\n", 'log level: not a value for it: "LOUD"')
        self.refuse("log file\n", 'log file: not a value for it: ""')
        self.refuse("queue = 0\n", 'queue: not a value for it: "0"')
        self.refuse("idle limit = -1\n", 'idle limit: not a value for it: "-1"')
        self.refuse("colour = red\n", "colour: no such setting")

    def test_a_port_that_is_taken(self):
        with socket.socket() as other:
            other.bind(("0.0.0.0", 0))
            other.listen()
            port = other.getsockname()[1]
            with tempfile.NamedTemporaryFile("w", suffix=".conf") as config:
                config.write("[server]\nport = %d\n" % port)
                config.flush()
                run = subprocess.run([PROGRAMS + "/event_server", config.name], text=True,
                                     capture_output=True, timeout=TIMEOUT)
        self.assertEqual((run.returncode, run.stdout, run.stderr),
                         (1, "", "event_server: port %d: bind: Address already in use\n" % port))

    def test_no_such_file(self):
        run = subprocess.run([PROGRAMS + "/event_server", "/no/such/file"], capture_output=True,
                             text=True, timeout=TIMEOUT)
        self.assertEqual((run.returncode, run.stderr),
                         (1, "event_server: /no/such/file: cannot be read\n"))

    def test_usage(self):
        for program in ["event_server", "package_events"]:
            run = subprocess.run([PROGRAMS + "/" + program, "--help"], capture_output=True, text=True)
            self.assertEqual(run.returncode, 0)
            self.assertIn("Usage: " + program, run.stdout)


class Programs(ServerTest):
    STANZAS = ("Package: a\nVersion: 1\nInstalled-Size: 2048\nDepends: b (>= 1), c\n"
               "Description: first\n second\n .\n t\\\n\n"
               "Package: d\nEssential: yes\nHomepage: h\nOdd: \u00e9\n")
    EVENTS = ['package("a","1",2048,2,false,["b","c"],{},optional(),"first\\nsecond\\n.\\nt\\\\")',
              'package("d","",0,0,true,[],{"Odd":"\u00e9"},optional("h"),"")']

    def write(self, text):
        file = tempfile.NamedTemporaryFile("wb")
        self.addCleanup(file.close)
        file.write(text if isinstance(text, bytes) else text.encode())
        file.flush()
        return file.name

    def run_events(self, file):
        return subprocess.run([PROGRAMS + "/package_events", file], capture_output=True, text=True,
                              timeout=TIMEOUT)

    def test_package_events(self):
        run = self.run_events(self.write(self.STANZAS))
        self.assertEqual(run.returncode, 0, run.stderr)
        self.assertEqual(run.stdout.splitlines(), self.EVENTS)
        self.assertRegex(run.stderr, r"^2 events, \d+ bytes in [\d.]+ s: \d+ events/s, [\d.]+ MB/s\n$")

    def test_broken_files_print_nothing(self):
        good = "Package: a\n\n"
        for text, message in [(good + "what is this\n", 'line 3 is not of the form "Key: value"'),
                              (good + " continued\n", "line 3 continues no field"),
                              (good.encode() + b"Package: \xff\n", "line 3 is not UTF-8 text"),
                              (good + "Version: 1\n", "record 2: name: missing"),
                              (good + "Package: b\nInstalled-Size: x\n",
                               'record 2: size: not an integer: "x"')]:
            file = self.write(text)
            run = self.run_events(file)
            self.assertEqual((run.returncode, run.stdout), (1, ""))
            self.assertEqual(run.stderr, "package_events: %s: %s\n" % (file, message))
        for file, message in [("/no/such/file", "No such file or directory"), ("/tmp", "not a file")]:
            run = self.run_events(file)
            self.assertEqual((run.returncode, run.stdout), (1, ""))
            self.assertEqual(run.stderr, "package_events: %s: %s\n" % (file, message))

    def run_client(self, server, *arguments):
        return subprocess.run([PROGRAMS + "/package_client", "-p", str(server.port), *arguments],
                              capture_output=True, text=True, timeout=TIMEOUT)

    def test_package_client(self):
        server = self.serve()
        run = self.run_client(server, "-n", "5", self.write(self.STANZAS))
        self.assertEqual((run.returncode, run.stderr), (0, ""))
        self.assertEqual(run.stdout.splitlines()[:2], self.EVENTS)
        self.assertIn("2 records sent, 2 answered, 0 of them with an error", run.stdout)
        run = self.run_client(server, "-t", "3600", "-m", "3000", "-c", "3", self.write(self.STANZAS))
        self.assertEqual((run.returncode, run.stderr), (0, ""))
        self.assertIn(" answered, 0 of them with an error", run.stdout)

    def test_package_client_tells_of_errors(self):
        server = self.serve()
        run = self.run_client(server, self.write("Package: a\nInstalled-Size: x\n"))
        self.assertEqual(run.returncode, 1)
        self.assertIn('name=a: error: size: not an integer: "x"', run.stderr)
        run = self.run_client(server, "/no/such/file")
        self.assertEqual((run.returncode, run.stdout), (1, ""))
        self.assertIn("/no/such/file: No such file or directory", run.stderr)
        with socket.socket() as quiet:  # bound, so that no other program listens on the port
            quiet.bind(("127.0.0.1", 0))
            server.port = quiet.getsockname()[1]
            run = self.run_client(server, self.write(self.STANZAS))
        self.assertEqual(run.returncode, 1)
        self.assertIn("connection 1: Failed to connect to host.", run.stderr)


@unittest.skipUnless("VN_SERVER_PATIENCE" in os.environ, "run by a test of its own")
class Patience(ServerTest):
    """Waits for the library's time-outs: 10 seconds, or twice that after a partial send."""

    def test_idle_clients_stay_and_stubborn_ones_are_dropped(self):
        server = self.serve(level="INFO", idle_limit=0)
        idle, halfway = self.connect(server), self.connect(server)
        stubborn = self.connect(server, receive_buffer=4096)  # does not read its answers
        halfway.send(b"name=")
        start = time.monotonic()
        while not self.dropped(server):  # other clients are still served
            self.assertLess(time.monotonic() - start, TIMEOUT, "it was never dropped")
            with contextlib.suppress(ConnectionError):
                stubborn.fill(record(1, description="d" * 2000) * 20)
            client = self.connect(server)
            self.assertEqual(client.ask(record(2).rstrip()).encode(), event(2))
            client.close()
            time.sleep(0.1)
        self.assertGreater(time.monotonic() - start, 9)
        self.assertEqual(idle.ask(record(1).rstrip()).encode(), event(1))
        self.assertTrue(halfway.ask(b"x").startswith('package("x"'))
        idle.close()
        halfway.close()
        self.assertStops(server)

    @staticmethod
    def dropped(server):
        """By the library's time-out, or by the system's, which may be faster."""
        log = b"\n".join(server.lines())
        reasons = (b"Resource temporarily unavailable", b"Connection timed out")
        return (any(b"Connection 3: answers cannot be sent: " + reason in log for reason in reasons)
                and b"Connection 3: closed after" in log)


if __name__ == "__main__":
    PROGRAMS = os.path.abspath(sys.argv.pop(1))
    unittest.main()
