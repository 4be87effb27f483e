"""What the service says unasked, and iterators over it."""

from __future__ import annotations

import asyncio
import json
import os
import time
from dataclasses import dataclass
from typing import TYPE_CHECKING, Any, Optional

if TYPE_CHECKING:
    from .client import Client

_DELETED = "NODE DELETED: "
_SYNC = "sync:"


@dataclass(frozen=True)
class Notification:
    """One text of the service. A publish is told as it was sent, whatever of it the tree took: read the node again
    when it matters."""

    text: str
    """The text as it came."""

    @property
    def value(self) -> Any:
        """What was published, or the node that was cleared, from the root of the tree; None when the text is no
        JSON."""
        try:
            return json.loads(self.text)
        except (ValueError, RecursionError):
            return None

    @property
    def deleted(self) -> Optional[str]:
        """The pointer of the node that was deleted, else None."""
        return self.text[len(_DELETED) :] if self.text.startswith(_DELETED) else None

    @property
    def passed_on(self) -> Optional[tuple[int, str]]:
        """Who sent a text by way of the service, and the text, else None."""
        if not self.text.startswith(_SYNC):
            return None
        sender, separator, text = self.text[len(_SYNC) :].partition(":")
        return (int(sender), text) if separator and sender.isdecimal() else None


class Notifications:
    """Iterates over what a client is told, with `for` and with `async for`. Ends when nothing came for as long as the
    timeout; raises ServiceEnded when the service ends. All iterators of a client take from the same notifications."""

    def __init__(self, client: Client, timeout: Optional[float]) -> None:
        self._client = client
        self._timeout = timeout  # seconds; None waits without a limit

    def __iter__(self) -> Notifications:
        return self

    def __next__(self) -> Notification:
        notification = self._client.next_notification(self._timeout)
        if notification is None:
            raise StopIteration
        return notification

    def __aiter__(self) -> Notifications:
        return self

    async def __anext__(self) -> Notification:
        deadline = None if self._timeout is None else time.monotonic() + self._timeout
        while True:
            notification = self._client.next_notification(0)
            if notification is not None:
                return notification
            left = None if deadline is None else deadline - time.monotonic()
            if left is not None and left <= 0:
                raise StopAsyncIteration
            await self._readable(left)

    async def _readable(self, timeout: Optional[float]) -> None:
        """Waits until the receive queue has something, or for the timeout."""
        loop = asyncio.get_running_loop()
        readable = asyncio.Event()
        # One of its own: a loop knows one reader for each, and another task may wait for the same client.
        descriptor = os.dup(self._client.fileno())
        loop.add_reader(descriptor, readable.set)
        try:
            await asyncio.wait_for(readable.wait(), timeout)
        except asyncio.TimeoutError:
            pass
        finally:
            loop.remove_reader(descriptor)
            os.close(descriptor)
