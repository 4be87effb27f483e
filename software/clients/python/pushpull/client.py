"""One component's way to the service."""

from __future__ import annotations

import ctypes
import itertools
import json
import os
import time
import weakref
from collections import deque
from types import TracebackType
from typing import Any, Mapping, Optional, Union

from . import _library
from .component_ids import ComponentId
from .errors import InvalidArgument, NoAnswer, NotFound, NotRegistered, ServiceEnded
from .notifications import Notification, Notifications

_ANSWER = "sender_id:"
_SERVICE_ENDS = "exit"
# Asked for to learn that the service has come this far: its answer is short, whatever was published.
_FENCE_POINTER = "/siblings/size"

_tags = itertools.count(1)


class Client:
    """A registered component with a receive queue of its own, which goes with it. Use it in a `with` statement, or
    close() it; at the latest, the end of the interpreter does. One thread at a time; a forked process leaves its
    parent's client alone.

    A pointer is a path of member names in the data tree, "/system/status"; below an array a segment is a position,
    "/devices/3".

    Requests are handled in the order in which they were made, and those that the service refuses are not answered: read
    the node again when it matters. A request waits for some 10 seconds at most while the service's queue stays full.

    :param component: who the client is; only one process at a time
    :param instance: the service's instance suffix, as given to it with -m
    :param queue: POSIX name of the receive queue; default: one for each instance and component
    :param messages: that the receive queue holds. The kernel charges messages x message_size bytes at once
    :param message_size: bytes of the longest text that can be received; a longer answer is lost. An unprivileged user
        is usually allowed 10 messages of 8192 bytes
    :param timeout: seconds to wait for an answer of the service; the attribute of this name may be changed
    :raises ServiceNotReachable: the service does not run, or may not be reached
    :raises QueueTaken: another process acts as this component
    :raises QueueError: the receive queue cannot be made
    :raises NoAnswer: the service does not answer, or another component is registered under this identifier
    """

    def __init__(
        self,
        component: Union[ComponentId, int] = ComponentId.DEMO,
        *,
        instance: str = "",
        queue: Optional[str] = None,
        messages: int = 10,
        message_size: int = 8192,
        timeout: float = 5.0,
    ) -> None:
        self._functions = _library.functions()
        self.timeout = timeout
        self._others: deque[Notification] = deque()  # came while an answer was waited for
        self._service_has_ended = False
        self._handle = ctypes.c_void_p()
        status = self._functions.open(component, _library.encoded(instance), ctypes.byref(self._handle))
        _library.check(status, "cannot reach the service")
        self._finalizer = weakref.finalize(self, _close, self._functions, self._handle, os.getpid())
        try:
            self._register(queue or f"/pushpull_python{instance}-{int(component)}", messages, message_size)
        except BaseException:
            self.close()
            raise

    def _register(self, queue: str, messages: int, message_size: int) -> None:
        status = self._functions.register(self._handle, _library.encoded(queue), messages, message_size)
        _library.check(status, f"cannot register with the receive queue {queue}")
        self.wait()

    def __enter__(self) -> Client:
        return self

    def __exit__(
        self,
        kind: Optional[type[BaseException]],
        error: Optional[BaseException],
        traceback: Optional[TracebackType],
    ) -> None:
        self.close()

    def close(self) -> None:
        """Takes the registration back, with all subscriptions, and removes the receive queue. May be called again."""
        self._finalizer()

    # ---- the data tree ----

    def get(self, pointer: str) -> Any:
        """Reads a node: a dict, list, str, int, float, bool or None.

        :param pointer: not "/"; of an array with "/size" behind it, the number of elements is read
        :raises NotFound: there is no such node
        :raises NoAnswer: none came in time, or it is longer than a message of the receive queue
        """
        segments = _segments(pointer)
        answer = self._ask(pointer)
        if not answer.startswith(pointer + ":"):
            return _node_at(json.loads(answer), segments)
        size = answer[len(pointer) + 1 :]
        if not size.isdecimal():
            raise NotFound(f"there is no node {pointer}")
        return int(size)

    def publish(self, value: Union[Mapping[str, Any], str]) -> None:
        """Merges an object into the tree, where this component may write.

        :param value: from the root of the tree, {"system": {"status": {"systemTemperature": 78}}}, or its JSON text
        """
        text = value if isinstance(value, str) else _as_json(value)
        self._request("publish", _library.encoded(text))

    def set(self, pointer: str, value: Any) -> None:
        """Publishes a value for the node at a pointer. An array's element is a dict.

        >>> client.set("/system/status/systemTemperature", 78)
        >>> client.set("/devices/3", {"name": "hall"})
        """
        self.publish(_inside(pointer, value))

    def delete(self, pointer: str) -> None:
        """Deletes a node.

        :raises NotAllowed: this is none of the system controller's own components
        """
        self._request("delete", _library.encoded(pointer))

    def clear(self, pointer: str) -> None:
        """Gives a node its default values back, or deletes it when it has none."""
        self._request("clear", _library.encoded(pointer))

    def save(self) -> None:
        """Has the tree saved now, instead of some seconds after the last change."""
        self._request("save")

    def pass_on(self, receiver: Union[ComponentId, int], text: str) -> None:
        """Has the service pass a text on to another registered component."""
        self._request("sync", receiver, _library.encoded(text))

    def wait(self) -> None:
        """Waits until the service has handled everything that was asked of it so far.

        :raises NoAnswer: it has not in time
        """
        tag = self._send_get(_FENCE_POINTER)
        self._collect(tag, tag)

    # ---- notifications ----

    def subscribe(
        self, *pointers: str, changes_only: bool = False, timeout: Optional[float] = None
    ) -> Notifications:
        """Asks to be told of every publish of other components that reaches these nodes or goes through them to one
        below.

        :param pointers: "/" for every publish
        :param changes_only: only of publishes that changed a value
        :param timeout: of the iterator, see notifications()
        """
        if not pointers:
            raise InvalidArgument("subscribe needs a pointer")
        self._request("subscribe", _library.encoded(";".join(pointers)), changes_only)
        return self.notifications(timeout)

    def unsubscribe(self, *pointers: str) -> None:
        """Ends the subscriptions of these nodes and of every node below them."""
        self._request("unsubscribe", _library.encoded(";".join(pointers)))

    def notifications(self, timeout: Optional[float] = None) -> Notifications:
        """Iterates over what this client is told, with `for` or `async for`.

        :param timeout: seconds without a notification after which the iteration ends; None: never
        """
        return Notifications(self, timeout)

    def next_notification(self, timeout: Optional[float] = None) -> Optional[Notification]:
        """The next notification; None when none came in time.

        :param timeout: seconds; None waits without a limit
        :raises ServiceEnded: the service ends
        """
        deadline = _deadline(timeout)
        while not self._others:
            text = self._receive(deadline)
            if text is None:
                return None
            if not text.startswith(_ANSWER):  # else an answer that came too late
                return Notification(text)
        return self._others.popleft()

    def fileno(self) -> int:
        """The descriptor of the receive queue, for select and the like: readable while a text waits in it. What was
        received while an answer was waited for no longer does: take notifications with a timeout of 0 first."""
        self._check_open()
        return int(self._functions.descriptor(self._handle))

    # ---- requests and answers ----

    def _check_open(self) -> None:
        if not self._finalizer.alive:
            raise NotRegistered("the client is closed")

    def _request(self, name: str, *arguments: Any) -> None:
        self._check_open()
        if self._service_has_ended:
            raise ServiceEnded("the service has ended")
        status = getattr(self._functions, name)(self._handle, *arguments)
        _library.check(status, f"cannot {name}")

    def _send_get(self, pointer: str) -> str:
        tag = f"python-{os.getpid()}-{next(_tags)}"
        self._request("get", _library.encoded(pointer), tag.encode(), False)
        return tag

    def _ask(self, pointer: str) -> str:
        tag = self._send_get(pointer)
        # Answers come in order: once this one is there, a missing one was not sent.
        answer = self._collect(tag, self._send_get(_FENCE_POINTER))
        if answer is None:
            raise NoAnswer(f"{pointer} was not answered: a longer message_size may be needed")
        return answer

    def _collect(self, tag: str, last_tag: str) -> Optional[str]:
        """Waits for the answer to last_tag. Gives back the one to tag."""
        answer = None
        deadline = _deadline(self.timeout)
        while True:
            text = self._receive(deadline)
            if text is None:
                raise NoAnswer(
                    "no answer from the service in time: it is busy or does not run, or another component is "
                    "registered under this identifier"
                )
            if not text.startswith(_ANSWER):
                self._others.append(Notification(text))
                continue
            of, _, body = text[len(_ANSWER) :].partition(";")
            if of == tag:
                answer = body
            if of == last_tag:
                return answer

    def _receive(self, deadline: Optional[float]) -> Optional[str]:
        """The next text; None at the deadline, a time of time.monotonic()."""
        self._check_open()
        if self._service_has_ended:
            raise ServiceEnded("the service has ended")
        text = ctypes.c_void_p()
        length = ctypes.c_size_t()
        status = _library.INTERRUPTED
        while status == _library.INTERRUPTED:  # Python's own signal handlers have run when the call returns
            left = None if deadline is None else max(0.0, deadline - time.monotonic())
            status = self._functions.receive(
                self._handle, _library.milliseconds(left), ctypes.byref(text), ctypes.byref(length)
            )
        if status == _library.TIMEOUT:
            return None
        _library.check(status, "cannot receive")
        received = ctypes.string_at(text.value or 0, length.value).decode("utf-8", "replace")
        if received == _SERVICE_ENDS:
            self._service_has_ended = True
            raise ServiceEnded("the service ends")
        return received


def _close(functions: Any, handle: ctypes.c_void_p, owner: int) -> None:
    if os.getpid() == owner:
        functions.close(handle)


def _deadline(timeout: Optional[float]) -> Optional[float]:
    return None if timeout is None else time.monotonic() + timeout


def _as_json(value: Any) -> str:
    try:
        return json.dumps(value, ensure_ascii=False, separators=(",", ":"), allow_nan=False)
    except (TypeError, ValueError) as error:
        raise InvalidArgument(f"a value cannot be written as JSON: {error}") from None


def _segments(pointer: str) -> list[str]:
    segments = pointer.split("/")
    if len(segments) < 2 or segments[0] != "" or "" in segments[1:] or ";" in pointer:
        raise InvalidArgument(f'"{pointer}" is no pointer to a node: /name/name')
    return segments[1:]


def _node_at(tree: Any, segments: list[str]) -> Any:
    """The node inside the objects of its path, as an answer has it. Of an array it has the addressed element alone."""
    for segment in segments:
        tree = tree[0] if isinstance(tree, list) else tree[segment]
    return tree


def _inside(pointer: str, value: Any) -> dict[str, Any]:
    """The value inside the objects of its path, and the arrays: a number in a pointer is the "id" of an element."""
    segments = _segments(pointer)
    if segments[0].isdecimal():
        raise InvalidArgument("the root of the tree is no array")
    for segment in reversed(segments[1:]):
        if not segment.isdecimal():
            value = {segment: value}
        elif isinstance(value, Mapping):
            value = [{"id": int(segment), **value}]
        else:
            raise InvalidArgument(f"the element {segment} of an array is an object")
    return {segments[0]: value}
