#!/usr/bin/env python3
"""Does what the documents tell their readers to do, in the place where each reader is, with nothing
but what `make package` has made, and compares what is printed with what they show.

    scripts/check_guides.py [DOCUMENT...]        by default all that are listed below

In a document a comment stands before each block of code, which its reader does not see (packages
have their documents without them):

    <!-- try: at PLACE -->          from here on the reader is in a new folder: `downloads` holds the
                                    packages, `linux` is the unpacked tar.gz, `x64` the unpacked zip
                                    (Windows; its steps are skipped without Wine, unless CI is set)
    <!-- try: unpack PLACE -->      what lies there is put beside what the reader has
    <!-- try: file NAME -->         the block is a file of that name
    <!-- try: file again NAME -->   so is the one before of that name (no block follows)
    <!-- try: run -->               the block's commands succeed
    <!-- try: start -->             the block's command is a host, which serves after a while
    <!-- try: end by Enter -->      the host gets that (or Ctrl-C) and ends well (no block follows)
    <!-- try: printed -->           the block is what the last commands printed
    <!-- try: host printed -->      ... what the host printed
    <!-- try: elsewhere: WHY -->    it is not tried here: WHY says what is not to be had, or what else
                                    tries it

A block without one fails, and so does a host that is not ended.  Numbers of nine digits and more are
of the moment, and a line of three dots is anything.  Pages in docs/hosts come to the first served
request in at most five commands, by a host of less than 30 lines; how long that took is printed.
Everything runs in a network of its own.
"""
import functools
import os
import pathlib
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import time

SCRIPTS = pathlib.Path(__file__).resolve().parent
TOP = SCRIPTS.parent
PACKAGES = TOP / "build" / "packages"
DOCUMENTS = ("README.md", "docs/host-guide.md", "docs/hosts/*.md", "docs/ask.md",
             "packaging/linux.md", "packaging/windows.md", "bindings/*/README.md")
WINE = [str(SCRIPTS / "under_wine.sh"), "x64"]
MOST_COMMANDS = 5
MOST_LINES = 30
PATIENCE = 90  # seconds, for whatever must come


class Broken(Exception):
    """What a reader would stumble over."""


def steps(text):
    """The document's comments with their blocks: (line, what, language, block or None)."""
    lines = text.splitlines()
    told, index = None, 0
    while index < len(lines):
        number, line = index + 1, lines[index]
        comment = re.fullmatch(r"<!-- try: (.*) -->", line.strip())
        fence = re.fullmatch(r"( *)```(\w*)", line)
        indented = re.match(r" {4}\S", line) and (told or not in_list(lines[:index]))
        if told and (comment or (line.strip() and not fence and not indented)):
            yield (*told, "", None)
            told = None
        index += 1
        if comment:
            told = (number, comment[1])
        elif fence:
            end = next(at for at in range(index, len(lines)) if lines[at].strip() == "```")
            block = "".join(inside.removeprefix(fence[1]) + "\n" for inside in lines[index:end])
            yield (*(told or (number, "")), fence[2], block)
            told, index = None, end + 1
        elif indented:
            # Commands, each with what it is for behind two spaces.
            while index < len(lines) and lines[index].startswith("    "):
                index += 1
            block = "".join(re.sub(r"(?<=\S)  .*", "", inside.strip()) + "\n"
                            for inside in lines[number - 1:index])
            yield (*(told or (number, "")), "", block)
            told = None
        elif re.match(r"\s*(<!--\s*try|```|~~~)", line):
            raise Broken(f"line {number} is read neither as a comment nor as the fence of a block")
    if told:
        yield (*told, "", None)


def in_list(before):
    """Whether an indented line goes on with an entry of a list."""
    for line in reversed(before):
        if line and not line.startswith(" "):
            return bool(re.match(r"([-*]|\d+\.) ", line))
    return False


def same(shown, printed):
    """Whether something was printed as it is shown."""
    def plain(text):
        return re.sub(r"\d{9,}", "N", text.replace("\r", "")).strip()
    parts = [re.escape(part) for part in re.split(r"(?m)^\.\.\.$", plain(shown))]
    return re.fullmatch("(?:.*)".join(parts), plain(printed), re.S) is not None


@functools.lru_cache()
def wine_missing():
    """Whether there is no Wine for 64-bit programs, and nobody insists on one."""
    if "CI" in os.environ:
        return False
    if not (SCRIPTS / "wine64_prefix.sh").exists():
        return True
    return subprocess.run([str(SCRIPTS / "wine64_prefix.sh")], stdout=subprocess.DEVNULL,
                          stderr=subprocess.DEVNULL, check=False).returncode != 0


def listens():
    """Whether a service has its port."""
    return bool(subprocess.run(["ss", "-Hltn", "sport = :2968"], check=True,
                               stdout=subprocess.PIPE).stdout)


class Reader:
    """Somebody who follows a document from its top to its end."""

    def __init__(self, work):
        self.work, self.files = work, {}
        self.place, self.folder, self.environment = None, None, {}
        self.printed = self.host = self.host_output = None
        self.commands, self.begun, self.served, self.first_host = 0, None, None, None
        self.tried = self.elsewhere = self.without_wine = 0

    def at(self, place):
        self.place = place
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix=place + "-", dir=self.work))
        self.environment = dict(os.environ)
        self.unpack(place)
        if self.begun is None:
            self.begun = time.monotonic()

    def unpack(self, place):
        if place == "downloads":
            for package in PACKAGES.iterdir():
                (self.folder / package.name).symlink_to(package)
        elif place == "linux":
            (archive,) = PACKAGES.glob("ZVQRN-*-linux-*.tar.gz")
            subprocess.run(["tar", "-xzf", archive, "--strip-components=1"], cwd=self.folder, check=True)
        elif place == "x64":
            (archive,) = PACKAGES.glob("ZVQRN-*-windows-x64.zip")
            shutil.unpack_archive(archive, self.folder)
            (self.folder,) = self.folder.iterdir()
        else:
            raise Broken(f"no place is called {place}")

    def command(self, language, block):
        """How to run a block: for Windows each line by its command interpreter."""
        if language != "bat":
            return ["bash", "-e", "-o", "pipefail", "-c", block]
        (line,) = block.splitlines()
        return [*WINE, "cmd.exe", "/c", line]

    def file(self, name, block):
        if self.first_host is None:
            self.first_host = block
        self.files[name] = block
        (self.folder / name).write_text(block, encoding="utf-8")

    def count(self, block):
        if self.served is None:
            self.commands += len([line for line in block.replace("\\\n", "").splitlines() if line])

    def run(self, language, block):
        self.count(block)
        if language != "bat":
            # The next block begins where this one ends.
            block += f'\npwd >"{self.work}/folder"; env -0 >"{self.work}/environment"\n'
        done = subprocess.run(self.command(language, block), cwd=self.folder, env=self.environment,
                              stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT, timeout=PATIENCE, encoding="utf-8", check=False)
        self.printed = done.stdout
        if done.returncode != 0:
            raise Broken(f"it ended with {done.returncode}:\n{done.stdout}")
        if language != "bat":
            self.folder = pathlib.Path((self.work / "folder").read_text(encoding="utf-8").strip())
            pairs = (self.work / "environment").read_text(encoding="utf-8").split("\0")
            self.environment = dict(pair.split("=", 1) for pair in pairs if pair)
        if self.host is not None and self.served is None:
            self.served = time.monotonic()

    def start(self, language, block):
        if self.host is not None:
            raise Broken("the host before has not been ended")
        self.count(block)
        if language != "bat":
            block = "exec " + block
        self.host_output = open(self.work / "host", "w+", encoding="utf-8")
        self.host = subprocess.Popen(self.command(language, block), cwd=self.folder,
                                     env=self.environment, stdin=subprocess.PIPE,
                                     stdout=self.host_output, stderr=subprocess.STDOUT)
        for _ in range(PATIENCE * 50):
            if listens():
                return
            if self.host.poll() is not None:
                break
            time.sleep(0.02)
        raise Broken("the host does not serve:\n" + self.host_said())

    def host_said(self):
        self.host_output.seek(0)
        return self.host_output.read()

    def end(self, how):
        if how == "Ctrl-C":
            self.host.send_signal(signal.SIGINT)
        elif how != "Enter":
            raise Broken(f"a host does not end by {how}")
        self.host.communicate(b"\n" if how == "Enter" else None, timeout=PATIENCE)
        # Wine hands no interrupt on to its program.
        well = -signal.SIGINT if self.place == "x64" and how == "Ctrl-C" else 0
        if self.host.returncode != well:
            raise Broken(f"the host ended with {self.host.returncode}:\n{self.host_said()}")
        self.host = None

    def compare(self, shown, printed):
        if not same(shown, printed):
            raise Broken("this was printed:\n" + printed)

    def follow(self, what, language, block):
        """One step of the document."""
        self.tried += 1
        word, _, rest = what.partition(" ")
        needs_block = not re.match(r"(at|unpack|end|file again) ", what)
        if needs_block != (block is not None):
            raise Broken("a comment that needs a block has none, or none is told how to be tried")
        if word == "elsewhere:" and rest:
            self.tried -= 1
            self.elsewhere += 1
        elif self.place == "x64" and word != "at" and wine_missing():
            self.tried -= 1
            self.without_wine += 1
        elif word == "at":
            self.at(rest)
        elif word == "unpack":
            self.unpack(rest)
        elif what.startswith("file again "):
            name = what.removeprefix("file again ")
            self.file(name, self.files[name])
        elif word == "file":
            self.file(rest, block)
        elif what == "run":
            self.run(language, block)
        elif what == "start":
            self.start(language, block)
        elif what.startswith("end by "):
            self.end(what.removeprefix("end by "))
        elif what == "printed":
            self.compare(block, self.printed)
        elif what == "host printed":
            self.compare(block, self.host_said())
        else:
            raise Broken("nothing says how this is tried")

    def leave(self):
        """Ends a host that is left over."""
        if self.host is not None and self.host.poll() is None:
            self.host.kill()
            self.host.wait()


def check(document):
    """Tries a document; prints what a count of tests reads, and gives whether it is right."""
    name = "guides-" + re.sub(r"[^a-z0-9]+", "-", str(document).lower().removesuffix(".md"))
    with tempfile.TemporaryDirectory(ignore_cleanup_errors=True) as work:
        reader = Reader(pathlib.Path(work))
        number = 0
        try:
            text = (TOP / document).read_text(encoding="utf-8")
            # As scripts/package.sh fills the readme in for x64.
            text = text.replace("@MINGW@", "x86_64-w64-mingw32")
            for number, what, language, block in steps(text):
                reader.follow(what, language, block)
            if reader.host is not None:
                raise Broken("the last host has not been ended")
            if "hosts/" in str(document) and not reader.served:
                raise Broken("no request was served")
            if "hosts/" in str(document) and reader.commands > MOST_COMMANDS:
                raise Broken(f"{reader.commands} commands to the first request")
            if "hosts/" in str(document) and reader.first_host.count("\n") >= MOST_LINES:
                raise Broken(f"the first host has {MOST_LINES} lines or more")
        except (Broken, subprocess.TimeoutExpired, OSError) as problem:
            print(f"FAILED  {name}: line {number}: {problem}")
            return False
        finally:
            reader.leave()
    line = f"passed  {name}: {reader.tried} steps, {reader.elsewhere} tried elsewhere"
    if reader.served is not None:
        line += f", first request after {reader.served - reader.begun:.1f} s, {reader.commands} commands"
    print(line, flush=True)
    if reader.without_wine:
        print(f"skipped  {name}: {reader.without_wine} steps, for want of Wine for x64")
    return True


def main():
    if os.environ.get("QUORIN_PRIVATE_ADDRESS") is None:
        network = str(SCRIPTS / "private_network.sh")
        os.execv(network, [network, "--with-scanner", sys.executable, *sys.argv])
    # What runs in the background ignores it, and so would the hosts.
    signal.signal(signal.SIGINT, signal.default_int_handler)
    documents = sys.argv[1:] or [
        str(path.relative_to(TOP)) for pattern in DOCUMENTS for path in sorted(TOP.glob(pattern))]
    return 0 if all([check(document) for document in documents]) else 1


if __name__ == "__main__":
    sys.exit(main())
