"""Runs the demo and scenarios, and checks the trace and the report that they write.

usage: run_files_check.py STHAL FOLDER

Ends with status 77 where there is no virtual board. Where a browser is installed, the report is
also rendered, and its text checked as a reader sees it.
"""
import collections
import html.parser
import json
import pathlib
import re
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
    "Calls into the HAL, and events", "The DSP's journal", "The HAL's dump at the end",
]
# Detections enough for percentiles, one of them by force; a second event that nobody started
# anew for, since the DSP had restarted; and a hotword that nobody listens to.
SCENARIO = """\
speed 16
load keyphrase hello say "hello brindle cove"
start hello io 13
say "hello brindle cove"
wait event model hello within 6 s
dsp crash
dsp online
say "hello brindle cove"
wait event model hello within 6 s
start hello io 13
force hello
wait event model hello within 6 s
start hello io 13
say "hello brindle cove"
wait event model hello within 6 s
stop hello
say "hello brindle cove"
wait heard
dump
"""
# The HAL delivers silence where it cannot read.
BROKEN_CAPTURE = """\
speed 8
load keyphrase hello say "hello brindle cove"
start hello io 13
say "hello brindle cove"
wait event model hello within 6 s
fault hotword_pcm read errno=EIO
capture start io 13 for 0.5 s
expect capture exact
"""
PHRASE = "hello <brindle> & cove"
VOID = {"meta", "br", "hr", "link", "img", "input"}


def run_sthal(sthal, folder, name, *arguments):
    trace, report = folder / f"{name}.json", folder / f"{name}.html"
    run = subprocess.run([sthal, *arguments, "--out", folder / name, "--trace", trace,
                          "--report", report], stdout=subprocess.PIPE, text=True, check=False)
    if run.returncode == NO_BOARD:
        sys.exit(NO_BOARD)
    return run, trace, report


def run_demo(sthal, folder, name, *arguments):
    return run_sthal(sthal, folder, name, "demo", "--speed", "8", *arguments)


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


def check_event(event):
    """An event has what its phase needs, by the format's description; none is left open."""
    assert event["ph"] in "MXistfC", event
    assert isinstance(event["name"], str) and event["name"], event
    assert isinstance(event["pid"], int) and isinstance(event["tid"], int), event
    assert event["ts"] >= 0, event
    if event["ph"] == "X":
        assert event["dur"] >= 0, event
    elif event["ph"] == "i":
        assert event["s"] == "t", event
    elif event["ph"] == "C":
        assert all(isinstance(value, int) for value in event["args"].values()), event
    elif event["ph"] in "stf":
        assert event["bp"] == "e" and event["cat"] and event["id"], event


def check_flows(flows, lanes, slices):
    """Each arrow begins at a record, goes through its callback and ends there or in its audio."""
    for steps in flows.values():
        phases = "".join(step[0] for step in steps)
        assert phases in ("stf", "sf"), steps
        assert [step[2] for step in steps] == sorted(step[2] for step in steps), steps
        for (_, place, time), lane in zip(
                steps, ("node: notification", "callbacks", "capture stream")):
            assert re.fullmatch(re.escape(lane) + r"( \d+)?", lanes[place]), steps
            inside = [one for one in slices[place]
                      if one["ts"] <= time <= one["ts"] + one["dur"]]
            assert inside, f"no slice at {steps}"


def read_trace(path):
    """Lanes, slices of each, arrows by id, and the samples of each counter."""
    trace = json.loads(path.read_text(encoding="utf-8"))
    lanes, slices = {}, collections.defaultdict(list)
    flows, counters = collections.defaultdict(list), collections.defaultdict(list)
    latest = collections.defaultdict(float)
    for event in trace["traceEvents"]:
        check_event(event)
        place = event["pid"], event["tid"]
        if event["ph"] == "M":
            if event["name"] == "thread_name":
                assert place not in lanes, event
                lanes[place] = event["args"]["name"]
            continue
        track = (event["name"], *place) if event["ph"] == "C" else place
        assert event["ts"] >= latest[track], f"{event} is out of order in its lane"
        latest[track] = event["ts"]
        if event["ph"] == "C":
            counters[event["name"]].append(event["args"]["frames"])
            continue
        assert place in lanes, f"{event} is in a lane without a name"
        if event["ph"] == "X":
            slices[place].append(event)
        elif event["ph"] in "stf":
            flows[event["id"]].append((event["ph"], place, event["ts"]))
    assert len(set(lanes.values())) == len(lanes), lanes
    for place, events in slices.items():
        check_slices(lanes[place], events)
    for steps in flows.values():
        steps.sort(key=lambda step: "stf".index(step[0]))
    check_flows(flows, lanes, slices)
    assert "derived" in " ".join(trace["otherData"])
    return lanes, flows, counters


def check_detected(path):
    lanes, flows, counters = read_trace(path)
    missing = set(LANES) - set(lanes.values())
    assert not missing, f"no lanes {missing} among {sorted(lanes.values())}"
    assert [len(steps) for steps in flows.values()] == [3], flows
    assert max(counters["hotword audio ready"]) > 16000, "the DSP kept a second and more"


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
    check_detected(trace)
    wanted = HEADINGS + [
        f'"{PHRASE}", spoken', "hotword detected", "captured", "OK: the event",
        "event: phrase event", "caught up with live", "Nothing: no call failed",
        "command 227 hotword start"]
    check_text(text_of(report.read_text(encoding="utf-8")), wanted)
    if (dom := rendered(report)) is not None:
        check_text(text_of(dom), wanted)

    # The hotword as the first run spoke it, and a threshold that nothing reaches.
    run, trace, report = run_demo(
        sthal, folder, "missed", "--mic", folder / "detected" / "microphone.wav", "--hotword",
        folder / "detected" / "hotword.wav", "--threshold", "1.0")
    assert run.returncode == 3, run.stdout
    read_trace(trace)
    check_text(text_of(report.read_text(encoding="utf-8")),
               ["Below the model's threshold", "no event", "The DSP detected nothing"])

    scenario = folder / "detections.sthal"
    scenario.write_text(SCENARIO, encoding="utf-8")
    run, trace, report = run_sthal(sthal, folder, "scenario", "run", scenario)
    assert run.returncode == 0, run.stdout
    _, flows, _ = read_trace(trace)
    assert [len(steps) for steps in flows.values()] == [2] * 4, flows
    check_text(text_of(report.read_text(encoding="utf-8")),
               ["detections.sthal held", "Over all detections", "90 %", "was not started",
                "stopRecognition had ended it", "crashes of the DSP", "Notes",
                "a second event without a new start, after a restart of the DSP"])
    assert "note: a second event without a new start" in run.stdout, run.stdout

    broken = folder / "broken_capture.sthal"
    broken.write_text(BROKEN_CAPTURE, encoding="utf-8")
    run, trace, report = run_sthal(sthal, folder, "broken_capture", "run", broken)
    assert run.returncode == 1, run.stdout
    lanes, flows, _ = read_trace(trace)
    assert "faults" in lanes.values(), lanes
    assert [len(steps) for steps in flows.values()] == [2], "silence is not the record's audio"
    text = text_of(report.read_text(encoding="utf-8"))
    check_text(text, ["silence instead of audio 0.000 s to 0.", "got no audio",
                      "hit by faults that the run set on purpose", "What was done At Step",
                      f"What was wrong {broken}:8: 'expect capture exact'"])
    assert not re.search(r"captured \d", text) and "Nothing:" not in text, text

    # A folder that is not there is said at once, not after the run.
    run = subprocess.run([sthal, "run", scenario, "--out", folder / "scenario", "--report",
                          folder / "none" / "report.html"], stdout=subprocess.PIPE,
                         stderr=subprocess.STDOUT, text=True, check=False)
    assert run.returncode == 2 and "cannot write" in run.stdout, run.stdout


if __name__ == "__main__":
    main()
