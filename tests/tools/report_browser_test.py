#!/usr/bin/env python3
"""The report for people in a real browser: loads without a message on the console, filters, unfolds, runs no script of
a file's name.

Usage: report_browser_test.py TAVRIK_SCAN SAMPLES_FOLDER
Ends with 77, which means skipped, when there is no chromium.
"""
import html.parser
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile

SKIPPED = 77
HOSTILE = "<img src=x onerror=alert(1)>.exe"


class Page(html.parser.HTMLParser):
    """The rows that are shown, and the elements within open rows."""

    def __init__(self, text):
        super().__init__()
        self.shown, self.hidden, self.elements = [], 0, []
        self.in_name = False
        self.feed(text)

    def handle_starttag(self, tag, attributes):
        attributes = dict(attributes)
        if tag == "details" and attributes.get("class") == "f":
            if "hidden" in attributes:
                self.hidden += 1
            else:
                self.shown.append("")
        self.in_name = tag == "span" and attributes.get("class") == "name" and "" in self.shown[-1:]
        self.elements.append(tag)

    def handle_data(self, data):
        if self.in_name:
            self.shown[-1] += data
            self.in_name = False


def load(browser, profile, page, address):
    # Its own profile and no service of its own: the page is all that it loads.
    ran = subprocess.run(
        [browser, "--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
         "--disable-background-networking", "--disable-component-update", "--disable-sync", "--enable-logging=stderr",
         f"--user-data-dir={profile}", "--virtual-time-budget=2000", "--dump-dom", page.as_uri() + address],
        capture_output=True, text=True, timeout=120, check=True)
    messages = re.findall(r".*:CONSOLE.*", ran.stderr)
    assert not messages, messages
    return Page(ran.stdout)


def main():
    scan, samples = sys.argv[1:]
    browser = shutil.which("chromium")
    if browser is None:
        print("skipped: chromium is not installed; ./run test installs it")
        return SKIPPED
    with tempfile.TemporaryDirectory() as folder:
        folder = pathlib.Path(folder)
        shutil.copytree(samples, folder / "samples")
        files = sorted((folder / "samples").iterdir())
        shutil.copy(files[0], folder / "samples" / HOSTILE)
        report = folder / "report.html"
        subprocess.run([scan, "-q", "-r", "--near", "--report", report, folder / "samples"], check=False,
                       stdout=subprocess.DEVNULL)
        count = len(files) + 1

        page = load(browser, folder / "profile", report, "")
        assert len(page.shown) == count and page.hidden == 0, (len(page.shown), page.hidden, count)
        assert "svg" not in page.elements, "details are made before they are asked for"
        page = load(browser, folder / "profile", report, "#q=entry42%20nullsoft&open")
        assert len(page.shown) == 1 and page.hidden == count - 1, (page.shown, page.hidden)
        assert page.shown[0].endswith("entry42-nullsoft-after-relocations.exe"), page.shown
        assert page.elements.count("svg") == 1 and "table" in page.elements, "the details are not there"
        page = load(browser, folder / "profile", report, "#q=%3Cimg&open")
        assert len(page.shown) == 1 and page.shown[0].endswith(HOSTILE), page.shown
        assert "img" not in page.elements, "a file's name has become markup"
    return 0


if __name__ == "__main__":
    sys.exit(main())
