#!/usr/bin/python3
"""Drives the page of quorin-scanner panel in a real browser: finds the PC, pushes requests of every
kind, looks at the diagram and the bytes, and tries what must not be let through.  Prints a line a case.

    scripts/check_panel.py FOLDER                the folder of the built tools
    scripts/check_panel.py FOLDER --screenshots  writes docs/images/panel-*.png
    scripts/check_panel.py FOLDER --measure      how long a click takes while 1,000 requests a second run

It runs in a network of its own (scripts/private_network.sh), with Debian's chromium.
"""

import contextlib
import http.client
import json
import multiprocessing
import os
import re
import signal
import socket
import struct
import subprocess
import sys
import tempfile
import threading
import time
import xml.etree.ElementTree
from pathlib import Path

HERE = Path(__file__).resolve().parent
PATIENCE = 30  # seconds, for what must come
HOSTILE_NAME = '<img src=x onerror="document.title=1"><script>document.title=2</script>\u202e\uffffCP'
HOSTILE_ADDRESS, HOSTILE_PORT = "10.68.0.9", 2969
# A picture of one point.
PICTURE = bytes.fromhex(
    "89504e470d0a1a0a0000000d4948445200000001000000010802000000907753de0000000c49444154789c63d8a3bd"
    "0b000355016ea2b7a4ee0000000049454e44ae426082"
)

if len(sys.argv) < 2 or not (Path(sys.argv[1]) / "quorin-scanner").exists():
    sys.exit("usage: scripts/check_panel.py FOLDER [--screenshots|--measure]")
if "QUORIN_PRIVATE_ADDRESS" not in os.environ:
    again = [str(HERE / "private_network.sh"), "--with-scanner", "/usr/bin/python3", __file__]
    os.execv(again[0], again + sys.argv[1:])

try:
    from selenium import webdriver
    from selenium.webdriver.chrome.service import Service
    from selenium.webdriver.common.by import By
    from selenium.webdriver.common.keys import Keys
except ImportError:
    sys.exit("python3-selenium is missing (scripts/install_packages.sh test)")

TOOLS = Path(sys.argv[1]).resolve()
ADDRESS = os.environ["QUORIN_PRIVATE_ADDRESS"]
WORK = tempfile.TemporaryDirectory()


def wait_for(what, condition):
    end = time.monotonic() + PATIENCE
    while time.monotonic() < end:
        value = condition()
        if value:
            return value
        time.sleep(0.05)
    raise AssertionError(f"never: {what}")


# ---- The other programs --------------------------------------------------------------------------


@contextlib.contextmanager
def program(name, *arguments):
    log = open(Path(WORK.name) / f"{name}.log", "w+b")
    # The address sanitiser keeps what has been freed, by default 256 MiB of it.
    options = os.environ.get("ASAN_OPTIONS", "") + ":quarantine_size_mb=16"
    environment = {**os.environ, "ASAN_OPTIONS": options}
    process = subprocess.Popen([TOOLS / name, *arguments], stdout=log, stderr=subprocess.STDOUT, env=environment)

    def said():
        assert process.poll() is None, f"{name} has ended: {Path(log.name).read_text()}"
        return Path(log.name).read_text(errors="replace")

    try:
        yield process, said
    finally:
        if process.poll() is None:
            process.send_signal(signal.SIGINT)
        process.wait(20)
        log.close()


def hostile_data(uid):
    return (
        "POST /PushScan HTTP/1.0\r\nContent-Length : 5\r\nx-protocol-name : Zorva Network Service Protocol\r\n"
        f"x-protocol-version : 1.00\r\nx-uid : {uid}\r\nx-parent-uid : <b>1</b>\r\n\r\n<b>ya"
    ).encode("latin-1")


def drain(connection):
    with contextlib.suppress(OSError):
        while connection.recv(1 << 20):
            pass


class HostilePc(threading.Thread):
    """Answers searches under a name of markup, and whoever connects with endless data."""

    def __init__(self):
        super().__init__(daemon=True)
        subprocess.run(["ip", "address", "add", f"{HOSTILE_ADDRESS}/24", "dev", "quorin0"], check=True)
        self.searches = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self.searches.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
        self.searches.bind(("239.255.255.253", 2968))
        group = socket.inet_aton("239.255.255.253") + socket.inet_aton(HOSTILE_ADDRESS)
        self.searches.setsockopt(socket.IPPROTO_IP, socket.IP_ADD_MEMBERSHIP, group)
        self.replies = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self.replies.bind((HOSTILE_ADDRESS, 0))
        for port, data in ((HOSTILE_PORT, hostile_data("1") * 50), (HOSTILE_PORT + 1, hostile_data("\xff" * 3700) * 50)):
            listening = socket.create_server((HOSTILE_ADDRESS, port))
            # Of its own, so that it never pauses.
            multiprocessing.Process(target=self.serve, args=(listening, data), daemon=True).start()

    def run(self):
        while True:
            search, sender = self.searches.recvfrom(2000)
            name = HOSTILE_NAME.replace("(", r"\(").replace(")", r"\)").replace(",", r"\,")
            text = f"(ClientName={name}),(IPAddress={HOSTILE_ADDRESS}),(EventPort={HOSTILE_PORT})"
            attributes = text.encode()
            body = b"\0\0" + struct.pack(">H", len(attributes)) + attributes + b"\0"
            head = search[10:12] + b"\0\x02en"
            length = struct.pack(">I", 10 + len(head) + len(body))[1:]
            message = b"\x02\x07" + length + b"\0\0\0\0\0" + head + body
            self.replies.sendto(message, (sender[0], 2968))

    def serve(self, listening, data):
        while True:
            connection, _ = listening.accept()
            with connection, contextlib.suppress(OSError):
                threading.Thread(target=drain, args=(connection,), daemon=True).start()
                while True:
                    connection.sendall(data)


# ---- The panel and its page ----------------------------------------------------------------------


class Panel:
    def __init__(self, said, pid):
        self.pid = pid
        address = wait_for("the panel's address", lambda: re.search(r"http://\S+", said()))[0]
        self.address = address
        self.port = int(address.split(":")[2].split("/")[0])
        self.token = address.split("token=")[1]

    def ask(self, path, method="GET", body=None, token=None, headers=None):
        connection = http.client.HTTPConnection("127.0.0.1", self.port, timeout=PATIENCE)
        token = self.token if token is None else token
        path += ("&" if "?" in path else "?") + f"token={token}" if token else ""
        connection.request(method, path, body, headers or {})
        answer = connection.getresponse()
        return answer.status, answer.read(), answer

    def state(self):
        return json.loads(self.ask("/api/state")[1])

    def post(self, deed, **members):
        return self.ask(f"/api/{deed}", "POST", json.dumps(members), headers={"Content-Type": "application/json"})

    def idle(self):
        wait_for("the scanners have done", lambda: all(
            not s["pc"] and s["left"] + s["waiting"] == 0 for s in self.state()["scanners"]))


def open_browser(downloads):
    options = webdriver.ChromeOptions()
    options.binary_location = "/usr/bin/chromium"
    for argument in ("--headless=new", "--disable-gpu", "--no-proxy-server", "--disable-dev-shm-usage",
                     "--disable-background-networking", "--disable-component-update", "--no-first-run",
                     "--window-size=1280,1400", f"--user-data-dir={WORK.name}/browser"):
        options.add_argument(argument)
    if os.geteuid() == 0:
        options.add_argument("--no-sandbox")
    options.add_experimental_option("prefs", {"download.default_directory": str(downloads)})
    options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
    os.environ["no_proxy"] = "*"
    return webdriver.Chrome(service=Service("/usr/bin/chromedriver"), options=options)


class Page:
    def __init__(self, browser, panel):
        self.browser, self.panel = browser, panel
        browser.get(panel.address)

    def find(self, selector):
        return self.browser.find_element(By.CSS_SELECTOR, selector)

    def run(self, script, *arguments):
        return self.browser.execute_script(script, *arguments)

    def rows(self):
        return self.run("return [...document.querySelectorAll('#sizer [role=button]')].map(row =>"
                        " [row.getAttribute('aria-label'), row.getAttribute('class')])")

    def wait_for_row(self, text, kind=""):
        return wait_for(f"a row '{text}'", lambda: next(
            (row for row in self.rows() if text in row[0] and kind in row[1]), None))

    def choose_pc(self, name):
        wait_for(f"the PC {name}", lambda: self.run(
            "for (const row of document.querySelectorAll('.pc'))"
            " if (row.querySelector('.name').textContent === arguments[0]) { row.querySelector('input').click();"
            " return true }", name))

    def choose(self, name, value):
        self.run("document.querySelector(`input[name=${arguments[0]}][value='${arguments[1]}']`).click()", name, value)

    def click(self, selector):
        wait_for(f"{selector} can be used", lambda: self.find(selector).is_enabled())
        self.find(selector).click()

    def show_row(self, text, kind=""):
        """Clicks the newest arrow of this kind whose account has this text."""
        self.wait_for_row(text, kind)
        self.run("const rows = [...document.querySelectorAll('#sizer [role=button]')].filter(row =>"
                 " row.getAttribute('aria-label').includes(arguments[0]) &&"
                 " row.getAttribute('class').includes(arguments[1]));"
                 " rows.pop().dispatchEvent(new MouseEvent('click', {bubbles: true}))", text, kind)

    def size(self, width, height):
        self.browser.execute_cdp_cmd("Emulation.setDeviceMetricsOverride", {
            "width": width, "height": height, "deviceScaleFactor": 1, "mobile": False})

    def dark(self, dark):
        self.browser.execute_cdp_cmd("Emulation.setEmulatedMedia", {
            "features": [{"name": "prefers-color-scheme", "value": "dark" if dark else "light"}]})


# ---- The cases -----------------------------------------------------------------------------------


def check_finding(page, _):
    page.choose_pc("OFFICE-PC")
    facts = page.find(".pc .facts").text
    assert f"IPAddress {ADDRESS}, EventPort 2968" in facts and "found" in facts, facts


def check_changes(page, _):
    """A PC that is gone and one that has another name look so."""
    gone, renamed, found = page.run(
        "const kept = search, pc = search.pcs[0];"
        "const shown = (change) => { search = {...kept, pcs: [{...pc, ...change}]}; showPcs();"
        " const row = pcRows.get(pc.from).whole; return `${row.className}: ${row.textContent}`; };"
        "const seen = [shown({gone: true, missed: 3}), shown({formerName: 'OLD-PC'}), shown({})];"
        "search = kept; showPcs(); return seen")
    assert gone.startswith("pc gone:") and "gone: 3 searches" in gone, gone
    assert renamed.startswith("pc:") and "was called OLD-PC" in renamed, renamed
    assert found.startswith("pc:") and "gone" not in found and "called" not in found, found


def check_words(page, _):
    """The page has all its words from the one table, which has all of them."""
    missing = page.run(
        "const script = [...document.scripts].pop().textContent;"
        "const found = (pattern, before) => [...script.matchAll(pattern)].map((match) => before + match[1]);"
        "const names = [...found(/\\bWORDS\\.(\\w+(?:\\.\\w+)?)/g, ''), ...found(/\\bwhat\\.(\\w+)/g, 'what.'),"
        " ...[...document.querySelectorAll('[data-word]')].map((place) => place.dataset.word),"
        " ...[...document.querySelectorAll('[data-placeholder]')].map((place) => place.dataset.placeholder),"
        " ...fixed.faults.map((fault) => `faults.${fault.name}`),"
        " ...[...fixed.settings, ...fixed.byId].map((part) => `elements.${part.name}`)];"
        "return names.filter((name) => !name.split('.').reduce((table, key) => table && table[key], WORDS))")
    assert not missing, missing
    html = (HERE.parent / "tools/scanner/panel/page/index.html").read_text()
    assert not re.sub(r"<[^>]*>|@\w+@|\s", "", html), "words beside the table"
    # Names from the network find nothing that the table does not have itself.
    found = page.run("return `${statusText('constructor')}${fieldMeaning({name: 'x', value: 'toString'})}`")
    assert found == "", found


def check_single(page, _):
    page.click("#scan")
    page.wait_for_row("Scanner 1: Answer: 0001 (accepted), OK (the host accepted", "answer")
    row = page.wait_for_row("Request: take a scan", "request")
    assert "bad" not in row[1], row


def check_pair_and_busy(page, panel):
    page.choose("exchange", "start")
    page.choose("protocol", "2")
    page.click("#scan")
    page.wait_for_row("START: a scan begins", "request")
    page.wait_for_row("Data from the host", "data")
    page.wait_for_row("Receipt for the data", "request")
    # The connection of scanner 1 is served; scanner 2 is told so.
    page.choose("scanner", "2")
    page.choose("exchange", "single")
    page.click("#scan")
    row = page.wait_for_row("Scanner 2: Request: take a scan. refused: Another connection is being served", "bad")
    assert "single answer" in row[0], row
    page.wait_for_row("Scanner 2: Answer: 2001 (busy", "answer bad")
    red, plain = page.run(
        "return ['.bad', '.answer:not(.bad)'].map((kind) =>"
        " getComputedStyle(document.querySelector(`#sizer ${kind} .arrow`)).stroke)")
    assert red != plain, red
    page.choose("scanner", "1")
    page.click("#end")
    page.wait_for_row("END: the scan is over", "request")
    panel.idle()
    row = page.wait_for_row("END: the scan is over", "request")
    assert "bad" not in row[1], row


def check_removal(page, panel):
    """A scanner that is removed in the middle of its START gives its connection back."""
    page.click("#add-scanner")
    wait_for("scanner 3", lambda: page.browser.find_elements(By.CSS_SELECTOR, "input[name=scanner][value='3']"))
    page.choose("scanner", "3")
    page.choose("exchange", "start")
    page.click("#scan")
    wait_for("its START is open", lambda: any(
        s["number"] == 3 and s["openStart"] for s in panel.state()["scanners"]))
    page.click("#remove-scanner")
    page.wait_for_row("Scanner 3: Connection closed by the scanner", "closed")
    page.choose("exchange", "single")
    last = panel.state()["messages"][-1]["number"]
    page.click("#scan")
    status = wait_for("an answer", lambda: [
        m["status"] for m in panel.state()["messages"] if m["number"] > last and m["kind"] == "answer"])
    assert status == ["0001"], status
    panel.idle()


def check_bytes(page, _):
    page.show_row("START: a scan begins", "request")
    wait_for("its bytes", lambda: "x-subevent" in page.find("#message").text)
    text = page.find("#message").text
    assert "0000  POST /PushScan HTTP/1.0" in text, text
    assert re.search(r"^00A5  x-subevent : START$", text, re.M), text
    assert "0000  50 4F 53 54 20" in text, text
    marked = page.run("return [...document.querySelectorAll('#message .marked')].map(m => m.textContent)")
    assert "XS-200" in marked and "1" in marked, marked
    page.show_row("5 bytes", "data")
    wait_for("the data", lambda: page.browser.find_elements(By.CSS_SELECTOR, "#data #save-data"))
    assert page.find("#data pre").text == "ready"


def check_picture(page, panel):
    for message in reversed(panel.state()["messages"]):
        if message["kind"] == "data" and f"{len(PICTURE)} bytes" in message["title"]:
            page.run("showMessage(arguments[0])", message["number"])
            break
    picture = wait_for("the picture", lambda: page.browser.find_elements(By.CSS_SELECTOR, "#data img"))[0]
    wait_for("it is drawn", lambda: page.run("return arguments[0].naturalWidth === 1", picture))
    page.find("#save-data").click()
    saved = Path(WORK.name) / "downloads" / f"data-{message['number']}.png"
    wait_for("the saved picture", lambda: saved.exists() and saved.read_bytes() == PICTURE)


def check_downloads(page, panel):
    downloads = Path(WORK.name) / "downloads"
    page.find("#save-svg").click()
    page.find("#save-capture").click()
    page.find("#save-json").click()
    names = ("exchange.svg", "exchange.pcap", "exchange.json")
    wait_for("the files", lambda: all((downloads / name).exists() for name in names))
    time.sleep(0.2)
    drawing = xml.etree.ElementTree.fromstring((downloads / names[0]).read_bytes())
    texts = [text.text or "" for text in drawing.iter("{http://www.w3.org/2000/svg}text")]
    assert any("busy" in text for text in texts) and "Scanner 2" in texts, texts
    red = [row for row in drawing.iter("{http://www.w3.org/2000/svg}g") if row.get("class", "").endswith(" bad")]
    style = drawing.find("{http://www.w3.org/2000/svg}style").text
    assert any("Another connection" in "".join(row.itertext()) for row in red) and ".bad .arrow{stroke:" in style, style
    explained = subprocess.run([TOOLS / "quorin-scanner", "explain", "--brief", downloads / names[1]],
                               stdout=subprocess.PIPE, text=True, check=False)
    assert "by the rule busy" in explained.stdout and "0 unexpected" in explained.stdout, explained
    exchange = json.loads((downloads / names[2]).read_text())
    start = next(m for m in exchange["messages"] if m["message"]["title"].startswith("START"))
    assert bytes.fromhex(start["bytes"]["hex"]).startswith(b"POST /PushScan HTTP/1.0\r\n"), start


def check_keyboard(page, panel):
    before = len(panel.state()["messages"])
    focused = lambda: page.run("return document.activeElement.id || document.activeElement.getAttribute('class')")
    def tab_to(what, back=False):
        for _ in range(60):
            page.browser.switch_to.active_element.send_keys(Keys.SHIFT + Keys.TAB if back else Keys.TAB)
            if str(focused()).split(" ")[0] == what:
                return
        raise AssertionError(f"the Tab key does not lead to {what}, but to {focused()}")
    page.run("document.activeElement.blur(); window.scrollTo(0, 0)")
    tab_to("scan")
    page.browser.switch_to.active_element.send_keys(Keys.ENTER)
    wait_for("the request", lambda: len(panel.state()["messages"]) > before + 2)
    panel.idle()
    tab_to("row")
    page.browser.switch_to.active_element.send_keys(Keys.END)
    page.browser.switch_to.active_element.send_keys(Keys.ARROW_UP)
    assert "answer" in focused(), focused()
    page.browser.switch_to.active_element.send_keys(Keys.ENTER)
    wait_for("its bytes", lambda: focused() == "bytes-title")
    assert "x-status" in page.find("#message").text


def check_faults(page, panel):
    wrong = []
    for fault in panel.state()["fixed"]["faults"]:
        last = panel.state()["messages"][-1]["number"]
        panel.post("push", scanner=1, to=ADDRESS, port=2968, protocol=1, exchange="single", times=1,
                   timeoutMs=1000 if "pause" in fault["name"] or "product" in fault["name"] else 400,
                   fault=fault["name"], stay=False)
        wait_for("it was sent", lambda: panel.state()["messages"][-1]["number"] > last)
        panel.idle()
        met = [m["rule"] for m in panel.state()["messages"] if m["number"] > last and m["kind"] == "request"]
        if not met or met[0] != fault["rule"]:
            wrong.append((fault["name"], fault["rule"], met))
    assert not wrong, wrong
    # The keyboard has left the newest; the page goes back to it when it is told to follow.
    page.run("const follow = document.getElementById('follow'); if (!follow.checked) follow.click()")
    page.wait_for_row("refused: Content-Length is missing", "bad")


def check_doctor(page, panel):
    page.run("document.querySelector('.pc button').click()")
    wait_for("the findings", lambda: "event port" in page.find("#pcs").text)
    assert "ok: drivers" in page.find("#pcs").text, page.find("#pcs").text


def check_refusals(_, panel):
    as_json = {"Content-Type": "application/json"}
    cases = [
        (200, {}),
        (403, {"token": ""}),
        (403, {"token": panel.token[:-1] + ("0" if panel.token[-1] != "0" else "1")}),
        (403, {"headers": {"Host": "example.com"}}),
        (403, {"headers": {"Host": f"example.com:{panel.port}"}}),
        (403, {"headers": {"Origin": "http://example.com"}}),
        (403, {"headers": {"Origin": "null"}}),
        (403, {"headers": {"Sec-Fetch-Site": "cross-site"}}),
        (403, {"method": "POST", "body": "{}", "headers": {**as_json, "Origin": "http://127.0.0.1:1"}}),
        (415, {"method": "POST", "body": "{}"}),
        (415, {"method": "POST", "body": "{}", "headers": {"Content-Type": "text/plain"}}),
        (405, {"method": "DELETE"}),
        (404, {"path": "/etc/passwd"}),
        (404, {"path": "/api/message?number=999999"}),
        (400, {"method": "POST", "body": "[]", "path": "/api/push", "headers": as_json}),
        (400, {"method": "POST", "body": '{"scanner":99}', "path": "/api/disconnect", "headers": as_json}),
        (413, {"method": "POST", "body": " " * 70000, "path": "/api/push", "headers": as_json}),
        (431, {"headers": {"X-Filling": "x" * 9000}}),
    ]
    wrong = []
    for status, how in cases:
        given = panel.ask(how.pop("path", "/"), **how)[0]
        if given != status:
            wrong.append((status, given, how))
    assert not wrong, wrong
    policy = panel.ask("/")[2].getheader("Content-Security-Policy")
    assert policy.startswith("default-src 'none'") and "unsafe" not in policy, policy
    with socket.socket() as other, contextlib.suppress(ConnectionRefusedError):
        other.connect((ADDRESS, panel.port))
        raise AssertionError("the page can be had from other machines")


def check_crowd(_, panel):
    """Connections that say nothing keep nobody out for longer than they may last."""
    crowd = [socket.create_connection(("127.0.0.1", panel.port)) for _ in range(100)]
    wait_for("an answer beside them", lambda: answers(panel))
    for one in crowd:
        one.close()


def answers(panel):
    with contextlib.suppress(OSError, http.client.HTTPException):
        return panel.ask("/")[0] == 200
    return False


def check_hostile(page, panel):
    hostile = HostilePc()
    hostile.start()
    shown = HOSTILE_NAME.replace("\u202e", r"\u{202E}").replace("\uffff", r"\u{FFFF}")
    page.choose_pc(shown)
    assert page.run("return document.title") == "Scanner panel"
    assert not page.browser.find_elements(By.CSS_SELECTOR, "#pcs img, #pcs script, #sizer b, #sizer img")
    page.choose("scanner", "1")
    page.click("#scan")
    wait_for("10,000 messages", lambda: len(panel.state()["messages"]) == 10000)
    wait_for("the end of its connection", lambda: any(
        "too many messages" in message["title"] for message in panel.state()["messages"]))
    wait_for("they are all drawn", lambda: page.find("#count").text.startswith(("10000", "99", "98")))
    # However many there are, only those that can be seen are elements.
    assert len(page.rows()) < 40, len(page.rows())
    # Its neighbour is served as ever.
    page.run("document.getElementById('follow').checked = true")
    page.choose_pc("OFFICE-PC")
    page.click("#scan")
    page.wait_for_row("OK (the host accepted", "answer")
    assert not page.browser.find_elements(By.CSS_SELECTOR, "#sizer b, #message b b")
    page.run("showMessage([...messages].reverse().find(m => m.kind === 'data').number)")
    wait_for("its data as text", lambda: any(
        "<b>ya" in text.text for text in page.browser.find_elements(By.CSS_SELECTOR, "#data pre")))
    # Its headers do not fill the memory, and its data does not keep a load from its end.
    panel.post("push", scanner=2, to=HOSTILE_ADDRESS, port=HOSTILE_PORT + 1, protocol=1, exchange="single", times=1,
               timeoutMs=20000)
    panel.idle()
    memory = int(re.search(r"VmHWM:\s+(\d+)", Path(f"/proc/{panel.pid}/status").read_text())[1]) // 1024
    assert memory < 600, f"{memory} MiB"
    panel.post("load", to=HOSTILE_ADDRESS, port=HOSTILE_PORT, protocol=1, perSecond=1, seconds=1)
    begun = time.monotonic()
    wait_for("the end of the load", lambda: not panel.state()["load"]["runs"])
    assert time.monotonic() - begun < 10, time.monotonic() - begun


def check_load(page, panel):
    page.choose_pc("OFFICE-PC")
    page.run("document.getElementById('per-second').value = 200; document.getElementById('for-seconds').value = 1")
    page.click("#start-load")
    wait_for("the load runs", lambda: panel.state()["load"]["perSecond"] == 200)
    wait_for("the load has run", lambda: not panel.state()["load"]["runs"])
    load = panel.state()["load"]
    count, plain = load["times"]["count"], load["plain"]["count"]
    assert 20 < count <= 201 and load["lost"] == 0 and 2 < plain <= 51, load
    assert load["answers"] == [{"status": "0001 OK", "count": count}], load
    for times in (load["times"], load["plain"]):
        assert sum(one["count"] for one in times["classes"]) == times["count"], times
        assert 0 < times["medianUs"] <= times["p99Us"] <= times["worstUs"], times
    text = wait_for("the figures", lambda: (lambda text: f"{count} answers" in text and text)(page.find("#figures").text))
    assert f"0001 (accepted), OK (the host accepted the request): {count}" in text, text
    bars = page.run("return ['pc-bar', 'plain-bar'].map((kind) => document.querySelectorAll(`#figures .${kind}`).length)")
    assert bars == [len(load["times"]["classes"]), len(load["plain"]["classes"])], bars


def check_narrow(page, _):
    page.size(360, 740)
    width = page.run("return document.documentElement.scrollWidth")
    assert width <= 360, width
    page.size(1280, 1400)


def check_silence(page, _):
    """The browser has had nothing to complain of: no blocked script or style, no error."""
    complaints = [entry["message"] for entry in page.browser.get_log("browser")
                  if "favicon" not in entry["message"] and entry["level"] == "SEVERE"]
    assert not complaints, complaints


CASES = [check_finding, check_changes, check_words, check_single, check_pair_and_busy, check_bytes,
         check_picture, check_downloads, check_removal, check_keyboard, check_faults, check_doctor, check_load,
         check_narrow, check_refusals, check_crowd, check_hostile, check_silence]


def run_cases(page, panel):
    failed = 0
    only = sys.argv[2:]
    for case in CASES:
        if only and case.__name__ not in only:
            continue
        name = case.__name__.removeprefix("check_").replace("_", "-")
        try:
            case(page, panel)
            print(f"passed  panel-{name}", flush=True)
        except Exception as error:  # whatever goes wrong is this case's failure
            failed += 1
            reason = (str(error).splitlines() or [""])[0]
            print(f"FAILED  panel-{name}: {type(error).__name__}: {reason}", flush=True)
    return failed


# ---- Screenshots and measurements ----------------------------------------------------------------


def take_screenshots(page, panel):
    folder = HERE.parent / "docs" / "images"
    folder.mkdir(exist_ok=True)

    def shoot(name, width, height, dark=False):
        page.size(width, height)
        page.dark(dark)
        time.sleep(0.6)
        (folder / f"panel-{name}.png").write_bytes(page.browser.get_screenshot_as_png())

    page.panel.post("search", product="")
    page.wait_for_row("Reply: this PC does", "reply")
    time.sleep(1.5)
    check_single(page, panel)
    panel.idle()
    check_pair_and_busy(page, panel)
    shoot("exchange", 1280, 900)
    page.show_row("Another connection is being served", "bad")
    wait_for("its bytes", lambda: "x-uid" in page.find("#message").text)
    page.run("document.getElementById('bytes').scrollIntoView()")
    shoot("bytes", 1280, 900)
    page.run("window.scrollTo(0, 0)")
    page.click("#start-load")
    time.sleep(4)
    page.run("document.getElementById('load').scrollIntoView()")
    shoot("load", 1280, 560)
    page.run("window.scrollTo(0, 0)")
    page.click("#stop-load")
    check_doctor(page, panel)
    shoot("dark", 1280, 900, True)
    shoot("narrow", 360, 740, False)
    print(f"written to {folder}")


def measure(page, panel):
    page.choose_pc("OFFICE-PC")
    panel.post("push", scanner=1, to=ADDRESS, port=2968, protocol=1, exchange="single", times=5000, timeoutMs=5000)
    wait_for("10,000 messages", lambda: len(panel.state()["messages"]) == 10000)
    panel.idle()
    times = {}

    def click(what, script):
        measured = [page.browser.execute_async_script(
            "const done = arguments[arguments.length - 1], begun = performance.now();"
            "const until = (ready) => { const look = () => ready() ? done(performance.now() - begun)"
            " : requestAnimationFrame(look); look(); };" + script) for _ in range(40)]
        measured.sort()
        times[what] = measured
        print(f"{what}: median {measured[20]:.1f} ms, worst {measured[-1]:.1f} ms", flush=True)

    def all_clicks(when):
        click(f"{when}, a click on an arrow until its bytes are there",
              "const rows = [...document.querySelectorAll('#sizer [data-number]')];"
              "const row = rows[Math.floor(Math.random() * rows.length)], old = document.querySelector('#message table');"
              "row.dispatchEvent(new MouseEvent('click', {bubbles: true}));"
              "until(() => document.querySelector('#message table') !== old || !document.querySelector('#message table'));")
        click(f"{when}, a scroll to anywhere until its rows are drawn",
              "document.getElementById('follow').checked = false; const at = Math.floor(Math.random() * 9000);"
              "document.getElementById('scroll').scrollTop = at * 48;"
              "until(() => rowsDrawn.has(messages[at + 3].number));")
        click(f"{when}, the button until the request is drawn",
              "document.getElementById('follow').checked = true;"
              "const last = Math.max(...byNumber.keys()); document.getElementById('scan').click();"
              "until(() => byNumber.has(last + 1));")

    print("With 10,000 messages:")
    all_clicks("at rest")
    page.choose("scanner", "2")
    panel.post("load", to=ADDRESS, port=2968, protocol=1, perSecond=1000, seconds=60)
    time.sleep(1)
    all_clicks("under load")
    load = panel.state()["load"]
    rate = load["times"]["count"] / load["elapsedMs"] * 1000
    print(f"the load meanwhile: {rate:.0f} answers a second, {load['answers']}")
    panel.post("stop-load")


def main():
    downloads = Path(WORK.name) / "downloads"
    downloads.mkdir()
    picture = Path(WORK.name) / "picture.png"
    picture.write_bytes(PICTURE)
    # The library and its drivers lie beside the host.
    host = ("quorin-host", "--name", "OFFICE-PC", "--send", "ready", "--send-file", str(picture))
    panel_options = ("panel", "--from", os.environ["QUORIN_SCANNER_ADDRESS"])
    with program(*host) as (_, host_said), program("quorin-scanner", *panel_options) as (process, said):
        wait_for("the host", lambda: "OFFICE-PC" in host_said())
        panel = Panel(said, process.pid)
        browser = open_browser(downloads)
        try:
            page = Page(browser, panel)
            failed = 0
            if "--screenshots" in sys.argv:
                take_screenshots(page, panel)
            elif "--measure" in sys.argv:
                measure(page, panel)
            else:
                failed = run_cases(page, panel)
        finally:
            browser.quit()
        process.send_signal(signal.SIGINT)
        code = process.wait(20)
        if code != 0:
            print(f"FAILED  panel-end: exit code {code}: {Path(WORK.name, 'quorin-scanner.log').read_text()}")
            failed += 1
        elif "--screenshots" not in sys.argv and "--measure" not in sys.argv:
            print("passed  panel-end")
    sys.exit(1 if failed else 0)


main()
