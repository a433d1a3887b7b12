"""The installed package against a scanner, in a network of its own:

    scripts/private_network.sh --with-scanner python3 bindings/python/tests/test_zvqrn.py

QUORIN_SCANNER names the scanner's program.
"""

import asyncio
import json
import logging
import os
import queue
import shutil
import signal
import subprocess
import sys
import tempfile
import textwrap
import threading
import time
import unittest
from pathlib import Path

import zvqrn
from zvqrn import Answer

SCANNER = os.environ["QUORIN_SCANNER"]
ADDRESS = os.environ["QUORIN_PRIVATE_ADDRESS"]
ACCEPTED, NOTHING_FOUND, REFUSED = 0, 3, 4


def begin_scanner(*arguments):
    command = [SCANNER, *arguments, "--json", "--to", ADDRESS]
    return subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)


def scan(*arguments):
    """A request, after the service has seen that the scanner before has gone: its verdict and text."""
    time.sleep(0.6)
    scanner = begin_scanner("push", *arguments)
    output = scanner.communicate(timeout=60)[0]
    return scanner.returncode, output


class Service(unittest.TestCase):
    def serve(self, on_request=lambda request: Answer.OK, **arguments):
        service = zvqrn.Service(on_request=on_request, **arguments)
        service.start()
        self.addCleanup(service.stop)
        return service

    def test_requests_and_data(self):
        requests = []

        def on_request(request):
            requests.append(request)
            if request.exchange is zvqrn.Exchange.START:
                with self.assertRaises(zvqrn.RequestClosed):  # the scanner uses its uid again
                    requests[0].send(b"for another request")
                threading.Timer(0.1, request.send, [bytearray(b"late\0r\xff")]).start()
                if len(requests) > 3:
                    with self.assertRaises(zvqrn.RequestClosed):
                        requests[1].send(b"an old one's")
            if request.exchange is zvqrn.Exchange.SINGLE:
                request.send(b"at once")
                for wrong, error in (("text", TypeError), (None, TypeError), (b"", ValueError)):
                    with self.assertRaises(error):
                        request.send(wrong)
            return Answer.OK

        service = self.serve(on_request)
        settings = {"image_format": "TIFF", "color": "Monochrome", "load_paper": "Double"}
        settings.update(paper_type="B5_Landscape", paper_width="7", paper_height="8", scan_x="9")
        options = [f"--{name.replace('_', '-')}={value}" for name, value in settings.items()]
        code, output = scan("--uid=one", "--ip=192.0.2.9", "--scan-y=999999999", *options)
        self.assertEqual(code, ACCEPTED, output)
        code, output = scan(
            "--uid=one", "--protocol=2", "--pair", "--hold=700", "--id=3", "--product=XS-300"
        )
        self.assertEqual(code, ACCEPTED, output)
        events = [json.loads(line) for line in output.splitlines()]
        data = [event["data"] for event in events if event["event"] == "data"]
        self.assertEqual(data, ["late\0r\xff"])

        single, start, end = requests
        self.assertEqual(
            single,
            zvqrn.SettingsRequest(
                "one", zvqrn.Exchange.SINGLE, "1.00", "Quorin XS-200", "192.0.2.9", None,
                zvqrn.ImageFormat.TIFF, zvqrn.ColorType.MONOCHROME, zvqrn.LoadPaper.DOUBLE,
                zvqrn.PaperType.B5_LANDSCAPE, 7, 8, 9, 999999999,
            ),
        )  # fmt: skip
        self.assertEqual(
            start,
            zvqrn.IdRequest(
                "one",
                zvqrn.Exchange.START,
                "2.00",
                "Quorin XS-300",
                "192.0.2.10",
                None,
                "XS-300",
                3,
            ),
        )
        self.assertIs(end.exchange, zvqrn.Exchange.END)
        for kept in requests:  # too long
            with self.assertRaises(zvqrn.RequestClosed):
                kept.send(b"too late")
        service.stop()
        with self.assertRaises(zvqrn.NotServing):
            start.send(b"too late")
        service.start()  # whose scanner has a START of the same name
        code, output = scan("--uid=one", "--protocol=2", "--pair", "--hold=300", "--id=3")
        self.assertEqual(code, ACCEPTED, output)
        self.assertNotIn("an old one's", output)

    def test_failing_callbacks_are_answered_and_told_of(self):
        def exit_now():
            sys.exit("gone")

        cases = {
            "raises": (lambda: 1 // 0, "ERROR", "ZeroDivisionError"),
            "ends the program": (exit_now, "ERROR", "SystemExit"),
            "no answer": (lambda: None, "ERROR", "not None"),
            "a truth": (lambda: True, "ERROR", "not True"),
            "no such answer": (lambda: 42, "ERROR", "42"),
            "a number": (lambda: 6, "PM_NOT_INSTALL", None),
            "busy": (lambda: Answer.BUSY, "2001", None),
        }
        act = []
        self.serve(lambda request: act[0]())
        for name, (function, word, message) in cases.items():
            with self.subTest(name):
                act[:] = [function]
                records = []
                handler = logging.Handler()
                handler.emit = lambda record, records=records: records.append(record)
                logger = logging.getLogger("zvqrn")
                logger.addHandler(handler)
                code, output = scan()
                logger.removeHandler(handler)
                self.assertEqual(code, REFUSED)
                self.assertIn(f'"{word}"', output)
                told = "".join(logging.Formatter().format(record) for record in records)
                self.assertIn(message or "", told)
                self.assertEqual(len(records), 1 if message else 0)

    def test_filter(self):
        peers = queue.Queue()
        words = iter([True, False, None])

        def accept_scanner(peer):
            peers.put(peer)
            return next(words)

        self.serve(accept_scanner=accept_scanner, name="FILTERED")
        logging.disable(logging.CRITICAL)
        self.addCleanup(logging.disable, logging.NOTSET)
        for wanted in (ACCEPTED, NOTHING_FOUND, NOTHING_FOUND):
            command = [SCANNER, "discover", "--json", "--product=XS-300", "--tags=a,b", "--count=1"]
            command += ["--from", os.environ["QUORIN_SCANNER_ADDRESS"]]
            command += [f"--timeout={20000 if wanted == ACCEPTED else 900}"]
            found = subprocess.run(command, stdout=-1, stderr=-1, text=True, check=False)
            self.assertEqual(found.returncode, wanted)
            self.assertEqual('"FILTERED"' in found.stdout, wanted == ACCEPTED)
            peer = zvqrn.Peer("Quorin XS-300", "service:Quorin-agent", "XS-300", "a,b")
            self.assertEqual(peers.get(timeout=20), peer)

    def test_stops_from_where_it_can(self):
        refused = []
        seen = threading.Event()

        def on_request(request):
            for call in (service.stop, service.start):
                try:
                    call()
                except zvqrn.InsideCallback as error:
                    refused.append(str(error))
            seen.set()
            time.sleep(1)  # the stop waits, and the scanner still gets its answer
            return Answer.OK

        service = self.serve(on_request)
        self.assertFalse(service.wait(0.05))
        scanner = begin_scanner("push")
        self.assertTrue(seen.wait(20))
        threading.Thread(target=service.stop).start()
        self.assertTrue(service.wait(20))
        self.assertEqual(scanner.wait(20), ACCEPTED)
        scanner.stdout.close()
        self.assertEqual([text.partition(" ")[0] for text in refused], ["stop()", "start()"])
        service.stop()  # nothing to do

    def test_one_service(self):
        service = self.serve()
        with self.assertRaises(zvqrn.AlreadyRunning):
            zvqrn.Service(on_request=print).start()
        code, output = python("zvqrn.Service(on_request=print).start()")
        self.assertNotEqual(code, 0)
        self.assertIn("StartFailed: the service did not start: TCP port 2968 is taken", output)
        self.assertEqual(scan()[0], ACCEPTED)
        service.stop()
        code, output = python(  # the child's end stops nothing of the parent's
            """
            with zvqrn.Service(on_request=print) as service:
                child = os.fork()
                if child == 0:
                    try:
                        zvqrn.Service(on_request=print).start()
                    except zvqrn.StartFailed:
                        sys.exit(7 if not service.serving and service.wait(0) else 8)
                print(os.waitpid(child, 0)[1], service.serving)
            """
        )
        self.assertEqual((code, output.splitlines()[-1]), (0, f"{7 << 8} True"))

    def test_names(self):
        service = zvqrn.Service(on_request=print, name="FIFTEEN-LETTERS")
        with self.assertRaises(zvqrn.NotServing):
            _ = service.name
        wrong = ("", "SIXTEEN-LETTERS-", "é" * 8, "A\0B", "\ud800")
        for name in wrong:
            with self.assertRaises(ValueError, msg=repr(name)):
                service.name = name
        with self.assertRaises(TypeError):
            zvqrn.Service(on_request=print, name=b"BYTES")
        with self.assertRaises(TypeError):
            zvqrn.Service(on_request=None)
        for name in ("FIFTEEN-LETTERS", "BÜRO"):
            with service:
                self.assertEqual(service.name, name)
                service.name = "BÜRO"  # which stays
                self.assertEqual(service.name, "BÜRO")

    def test_waits_for_an_address(self):
        code, output = python(
            """
            import queue
            run = lambda command: subprocess.run(command.split(), check=True)
            run("ip link set lo up")
            heard = queue.Queue()
            with zvqrn.Service(on_request=print, on_status=heard.put, name="LATER") as service:
                print(heard.get(timeout=20).code.name, service.serving)
                run("ip link add a0 type veth peer name a1")
                run("ip link set a1 up")
                run("ip address add 10.68.9.2/24 dev a0")
                run("ip link set a0 up")
                while heard.get(timeout=20).code is not zvqrn.StatusCode.RESTART:
                    pass
                print(service.serving, service.name)
            """,
            "unshare",
            "--net",
        )
        self.assertEqual((code, output), (0, "NO_NETWORK False\nTrue LATER\n"))

    def test_asyncio(self):
        seen = []

        async def on_request(request):
            if request.uid == "bad":
                raise ValueError("bad")
            with self.assertRaises(zvqrn.InsideCallback):
                await seen[0].stop()
            await asyncio.sleep(0.01)
            request.send(b"data")
            seen.append(threading.current_thread())
            return Answer.OK

        async def main():
            loop = asyncio.get_running_loop()
            async with zvqrn.AsyncService(on_request=on_request, name="ASYNC") as service:
                seen.append(service)
                self.assertEqual((service.name, service.serving), ("ASYNC", True))
                with self.assertLogs("zvqrn"):
                    verdicts = [
                        (await loop.run_in_executor(None, scan, f"--uid={uid}"))[0]
                        for uid in ("ok", "bad")
                    ]
                with self.assertRaises(asyncio.TimeoutError):  # and nothing ends
                    await asyncio.wait_for(service.wait(), 0.05)
                return verdicts, service.serving

        self.assertEqual(asyncio.run(main()), ([ACCEPTED, REFUSED], True))
        self.assertEqual(seen[1:], [threading.main_thread()])

        async def forgets_to_stop():
            called = asyncio.Event()

            async def never(request):
                called.set()
                await asyncio.sleep(3600)

            forgotten = zvqrn.AsyncService(on_request=never)
            await forgotten.start()
            scanner = begin_scanner("push")
            await asyncio.wait_for(called.wait(), 20)
            return forgotten, scanner

        loop = asyncio.new_event_loop()
        loop.set_exception_handler(lambda loop, context: None)  # of the task that is left behind
        with self.assertLogs("zvqrn"):
            forgotten, scanner = loop.run_until_complete(forgets_to_stop())
            loop.close()
            self.assertEqual(scanner.wait(20), REFUSED)
        scanner.stdout.close()
        asyncio.run(forgotten.stop())


PROLOGUE = """
import faulthandler, os, subprocess, sys, threading, time, zvqrn
zvqrn.load(utility=zvqrn.STAND_IN)
"""


def begin_python(program, *before):
    return subprocess.Popen(
        [*before, sys.executable, "-c", PROLOGUE + textwrap.dedent(program)],
        stdout=subprocess.PIPE,
        stderr=subprocess.STDOUT,
        text=True,
    )


def python(program, *before):
    """Runs a program with the library loaded; its exit code and output."""
    child = begin_python(program, *before)
    output = child.communicate(timeout=60)[0]
    return child.returncode, output


class EndOfProcess(unittest.TestCase):
    def test_while_it_serves(self):
        start = "service = zvqrn.Service(on_request=print)\nservice.start()\n"
        for program, wanted in (
            ("", 0),
            ("sys.exit(3)", 3),
            ("threading.Thread(target=time.sleep, args=[0.3]).start(); sys.exit(3)", 3),
            ("raise ValueError()", 1),
            ("os._exit(4)", 4),
            ("os.kill(os.getpid(), 15)", -15),
            ("del service; import gc; gc.collect()", 0),
        ):
            with self.subTest(program):
                code, output = python(start + program)
                self.assertEqual(code, wanted, output)
                self.assertEqual("ValueError" in output, "ValueError" in program)

    def test_with_a_request(self):
        # Ctrl-C, and more of them when the callback does not end.
        program = """
            def on_request(request):
                print("request", flush=True)
                time.sleep({seconds})
                return zvqrn.Answer.OK
            with zvqrn.Service(on_request=on_request) as service:
                print("serving", flush=True)
                service.{wait}()
            """
        for seconds, interrupts, code, verdict in (
            (1, 1, (-2, 130), ACCEPTED),
            (3600, 30, (130,), None),
        ):
            with self.subTest(seconds):
                child = begin_python(program.format(seconds=seconds, wait="wait"))
                self.assertEqual(child.stdout.readline(), "serving\n")
                scanner = begin_scanner("push")
                self.assertEqual(child.stdout.readline(), "request\n")
                while interrupts > 0 and child.poll() is None:
                    child.send_signal(signal.SIGINT)
                    interrupts -= 1
                    time.sleep(0.7)
                self.assertIn(child.wait(20), code)
                child.stdout.close()
                scanner.communicate(timeout=20)
                if verdict is not None:
                    self.assertEqual(scanner.returncode, verdict)


class Loading(unittest.TestCase):
    def test_what_is_wrong_with_the_library(self):
        package = Path(zvqrn.__file__).parent
        library = (package / "lib/libZVQRN.so").read_bytes()
        portable = bytearray(128)
        portable[:2], portable[60], portable[64:68], portable[68:70] = (
            b"MZ",
            64,
            b"PE\0\0",
            b"\x4c\x01",
        )
        with tempfile.TemporaryDirectory() as folder:
            for name, data, error, words in (
                ("missing.so", None, "LibraryMissing", "install the wheel"),
                ("no-library.so", b"text", "LibraryError", "cannot be loaded"),
                (
                    "32-bit.so",
                    library[:4] + b"\1" + library[5:],
                    "WrongLibrary",
                    "is for 32-bit Linux",
                ),
                ("ZVQRN.dll", portable, "WrongLibrary", "is for 32-bit Windows"),
            ):
                path = Path(folder) / name
                if data is not None:
                    path.write_bytes(data)
                for argument in ("library", "utility"):
                    with self.subTest(name, argument=argument):
                        if argument == "utility":
                            path = path.parent / "of" / "libDRAVLIB.so"
                            path.parent.mkdir(exist_ok=True)
                            if data is not None:
                                path.write_bytes(data)
                        try:
                            zvqrn._library._open(
                                *(
                                    (str(path), "")
                                    if argument == "library"
                                    else (str(package / "lib/libZVQRN.so"), str(path))
                                )
                            )
                        except zvqrn.LibraryError as caught:
                            self.assertEqual(type(caught).__name__, error)
                            self.assertIn(words, str(caught))
                            self.assertIn(str(path), str(caught))
                        else:
                            self.fail("it loaded")
        # A utility library whose library was not there is not kept for the next.
        before = Path("/proc/self/maps").read_text(encoding="utf-8").count("libDRAVLIB.so")
        with tempfile.TemporaryDirectory() as folder:
            utility = shutil.copy(zvqrn.STAND_IN, folder)
            with self.assertRaises(zvqrn.LibraryMissing):
                zvqrn._library._open(folder + "/missing.so", utility)
        after = Path("/proc/self/maps").read_text(encoding="utf-8").count("libDRAVLIB.so")
        self.assertEqual(before, after)
        with self.assertRaisesRegex(zvqrn.LibraryError, "by its name"):
            zvqrn._library._open(str(package / "lib/libZVQRN.so"), "/libother.so")
        zvqrn.load()  # once more is nothing
        with self.assertRaisesRegex(zvqrn.LibraryError, "already"):
            zvqrn.load("/elsewhere.so")

    def test_without_the_utility_library(self):
        child = subprocess.run(
            [sys.executable, "-c", "import zvqrn\nwith zvqrn.Service(on_request=print): pass"],
            stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False,
        )  # fmt: skip
        self.assertEqual(child.returncode, 0)
        self.assertIn("no libDRAVLIB.so was found", child.stdout)


if __name__ == "__main__":
    zvqrn.load(utility=zvqrn.STAND_IN)
    unittest.main(verbosity=2)
