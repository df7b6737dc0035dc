"""Runs the demo and checks the trace and the report that it writes.

usage: run_files_check.py STHAL FOLDER

Ends with status 77 where there is no virtual board. Where a browser is installed, the report is
also rendered, and its text checked as a reader sees it.
"""
import collections
import html.parser
import json
import pathlib
import shutil
import subprocess
import sys
import tempfile

NO_BOARD = 77
LANES = [
    "framework calls", "audio service", "callbacks", "HAL lock (derived)", "control thread",
    "capture stream", "client 1", "engine hotword", "engine ambient music",
    "engine ambient music break", "node: command", "node: model-data", "node: notification",
    "node: hotword audio",
]
HEADINGS = [
    "What was wrong", "What the microphones heard", "States over time", "Latency of each step",
    "Calls into the HAL", "The DSP's journal", "The HAL's dump at the end",
]
PHRASE = "hello <brindle> & cove"
VOID = {"meta", "br", "hr", "link", "img", "input"}


def run_demo(sthal, folder, name, *arguments):
    trace, report = folder / f"{name}.json", folder / f"{name}.html"
    run = subprocess.run(
        [sthal, "demo", "--speed", "8", "--out", folder / name, "--trace", trace,
         "--report", report, *arguments], stdout=subprocess.PIPE, text=True, check=False)
    if run.returncode == NO_BOARD:
        sys.exit(NO_BOARD)
    return run, trace, report


def check_slices(lane, slices):
    """Slices come in the order of time, and each lies beside or within the one before it."""
    ends = []
    latest = 0.0
    for event in slices:
        begin, end = event["ts"], event["ts"] + event["dur"]
        assert begin >= latest, f"{lane}: {event} is out of order"
        latest = begin
        while ends and ends[-1] <= begin + 1e-6:
            ends.pop()
        assert not ends or end <= ends[-1] + 2e-3, f"{lane}: {event} overlaps"
        ends.append(end)


def check_trace(path):
    trace = json.loads(path.read_text(encoding="utf-8"))
    lanes, slices = {}, collections.defaultdict(list)
    flows, counters = {}, collections.defaultdict(list)
    for event in trace["traceEvents"]:
        assert isinstance(event["name"], str), event
        assert event["ph"] in "MXistfC", event
        assert event["ts"] >= 0 and isinstance(event["pid"], int), event
        place = event["pid"], event["tid"]
        if event["ph"] == "M" and event["name"] == "thread_name":
            lanes[place] = event["args"]["name"]
        elif event["ph"] == "X":
            slices[place].append(event)
        elif event["ph"] in "stf":
            flows.setdefault(event["id"], {})[event["ph"]] = place, event["ts"]
        elif event["ph"] == "C":
            counters[event["name"]].append(event["args"]["frames"])
    missing = set(LANES) - set(lanes.values())
    assert not missing, f"no lanes {missing} among {sorted(lanes.values())}"
    for place, events in slices.items():
        check_slices(lanes[place], events)
    assert len(flows) == 1, flows
    for steps in flows.values():
        times = [steps[phase][1] for phase in "stf"]
        assert times == sorted(times), steps
        for phase, lane in zip("stf", ("node: notification", "callbacks", "capture stream")):
            place, time = steps[phase]
            assert lanes[place] == lane, steps
            assert any(event["ts"] == time for event in slices[place]), f"no slice at {steps}"
    assert max(counters["hotword audio ready"]) > 16000, "the DSP kept a second and more"
    assert "derived" in " ".join(trace["otherData"])


class Page(html.parser.HTMLParser):
    """The text of a page; fails on elements that are not closed and on anything from elsewhere."""

    def __init__(self):
        super().__init__()
        self.open, self.text = [], []

    def handle_starttag(self, tag, attrs):
        assert tag not in ("script", "iframe", "link", "img"), tag
        for name, value in attrs:
            assert name not in ("src", "href") and not name.startswith("on"), (name, value)
        if tag not in VOID:
            self.open.append(tag)

    def handle_endtag(self, tag):
        assert self.open and self.open.pop() == tag, f"</{tag}> closes another element"

    def handle_data(self, data):
        if "style" not in self.open:
            self.text.append(data)
        else:
            assert "url(" not in data and "@import" not in data


def text_of(source):
    page = Page()
    page.feed(source)
    assert not page.open, page.open
    return " ".join(" ".join(page.text).split())


def check_text(text, wanted):
    for part in wanted:
        assert part in text, f"'{part}' is not in the page:\n{text[:4000]}"


def rendered(path):
    """The page as a browser makes it of the file; None without one."""
    browser = shutil.which("chromium") or shutil.which("chromium-browser")
    if browser is None:
        return None
    with tempfile.TemporaryDirectory() as profile:
        return subprocess.run(
            [browser, "--headless", "--no-sandbox", "--disable-gpu", "--disable-quic",
             "--no-first-run", "--disable-background-networking", "--disable-component-update",
             "--disable-sync", f"--user-data-dir={profile}", "--dump-dom", path.as_uri()],
            stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True, check=True,
            timeout=120).stdout


def main():
    sthal, folder = sys.argv[1], pathlib.Path(sys.argv[2]).resolve()
    folder.mkdir(parents=True, exist_ok=True)

    run, trace, report = run_demo(sthal, folder, "detected", "--phrase", PHRASE)
    assert run.returncode == 0, run.stdout
    check_trace(trace)
    wanted = HEADINGS + [f'"{PHRASE}", spoken', "hotword detected", "captured", "OK: the event",
                         "caught up with live", "Nothing: no call failed", "command 227 hotword start"]
    check_text(text_of(report.read_text(encoding="utf-8")), wanted)
    if (dom := rendered(report)) is not None:
        check_text(text_of(dom), wanted)

    # The hotword as the first run spoke it, and a threshold that nothing reaches.
    run, trace, report = run_demo(
        sthal, folder, "missed", "--mic", folder / "detected" / "microphone.wav", "--hotword",
        folder / "detected" / "hotword.wav", "--threshold", "1.0")
    assert run.returncode == 3, run.stdout
    json.loads(trace.read_text(encoding="utf-8"))
    check_text(text_of(report.read_text(encoding="utf-8")),
               ["Below the model's threshold", "no event", "The DSP detected nothing"])


if __name__ == "__main__":
    main()
