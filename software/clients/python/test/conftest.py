"""The real service for each test, in the namespaces that qo_isolated makes."""

from __future__ import annotations

import contextlib
import ctypes
import json
import os
import pathlib
import shutil
import signal
import socket
import subprocess
from typing import Iterator

import pytest

_SERVICE_QUEUE = b"/pushpull"
_READY_SOCKET = "/var/volatile/ready"
_PATIENCE = 10  # seconds
_DATA = pathlib.Path("/kivo/data")

_libc = ctypes.CDLL(None, use_errno=True)


class _QueueAttributes(ctypes.Structure):
    _fields_ = [
        ("flags", ctypes.c_long),
        ("maxmsg", ctypes.c_long),
        ("msgsize", ctypes.c_long),
        ("curmsgs", ctypes.c_long),
        ("reserved", ctypes.c_long * 4),
    ]


class Service:
    """The service as a process. Started with its queue made before, as small as a user's quota demands."""

    def __init__(self, program: str) -> None:
        attributes = _QueueAttributes(maxmsg=2, msgsize=262144)
        queue = _libc.mq_open(_SERVICE_QUEUE, os.O_RDWR | os.O_CREAT, 0o660, ctypes.byref(attributes))
        assert queue >= 0, os.strerror(ctypes.get_errno())
        self._queue = queue
        with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as ready:
            ready.bind(_READY_SOCKET)
            ready.settimeout(_PATIENCE)
            self.process = subprocess.Popen([program], env={**os.environ, "NOTIFY_SOCKET": _READY_SOCKET})
            while b"READY=1" not in ready.recv(4096):
                pass

    @contextlib.contextmanager
    def frozen(self) -> Iterator[None]:
        """Meanwhile it takes no request."""
        self.process.send_signal(signal.SIGSTOP)
        yield
        self.process.send_signal(signal.SIGCONT)

    def ask_to_exit(self, component: int) -> None:
        text = json.dumps({"function": "exit", "arg": {"comp_id": component, "buffer": "true"}}).encode()
        assert _libc.mq_send(self._queue, text, len(text) + 1, 1) == 0, os.strerror(ctypes.get_errno())

    def close(self) -> None:
        self.process.kill()
        self.process.wait(_PATIENCE)
        os.close(self._queue)
        _libc.mq_unlink(_SERVICE_QUEUE)
        os.unlink(_READY_SOCKET)
        for entry in _DATA.iterdir():
            if entry.is_file():
                entry.unlink()
            elif entry.name != "logs":
                shutil.rmtree(entry)


def pytest_addoption(parser: pytest.Parser) -> None:
    parser.addoption("--service", required=True, help="the built program of the service")


@pytest.fixture(autouse=True)
def _isolated() -> None:
    if not os.path.ismount("/kivo"):
        pytest.skip("/kivo is the machine's own: run with qo_isolated, where namespaces are allowed")


@pytest.fixture
def service(_isolated: None, pytestconfig: pytest.Config) -> Iterator[Service]:
    running = Service(pytestconfig.getoption("--service"))
    yield running
    running.close()
