"""Whole programs with the real service: the one in the document, and the example."""

import pathlib
import re
import subprocess
import sys

from pushpull import Client, ComponentId

ROOT = pathlib.Path(__file__).parents[4]
DOCUMENT = ROOT / "docs/clients.md"
STATUS_WATCH = ROOT / "examples/status_watch.py"
PATIENCE = 10  # seconds


def test_of_the_document_prints_what_the_document_says(service):
    text = DOCUMENT.read_text()
    program = re.search(r"```python\n(.*?)```\s*It prints `(.*?)`", text, re.DOTALL)
    done = subprocess.run(
        [sys.executable, "-c", program[1]], check=True, capture_output=True, text=True, timeout=PATIENCE
    )
    assert done.stdout == program[2] + "\n"


def test_status_watch_publishes_its_input_and_shows_what_others_publish(service):
    with Client(ComponentId.TCOMP) as other:
        notifications = other.subscribe("/system/status", timeout=PATIENCE)
        other.wait()
        command = [sys.executable, str(STATUS_WATCH)]
        with subprocess.Popen(command, stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True) as program:
            program.stdin.write("71.5\n")
            program.stdin.flush()
            assert next(notifications).value == {"system": {"status": {"systemTemperature": 71.5}}}
            other.set("/system/status/systemTemperature", 66)
            assert program.stdout.readline() == "{'system': {'status': {'systemTemperature': 66}}}\n"
            program.stdin.close()
            assert program.wait(PATIENCE) == 0
