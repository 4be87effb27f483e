"""The functions of libqo_pushpull_c, and its statuses as exceptions."""

from __future__ import annotations

import ctypes
import os
from typing import Any, Optional

from . import errors

_LIBRARY = "libqo_pushpull_c.so.1"

OK = 0
TIMEOUT = 1
INTERRUPTED = 2

FOREVER = -1  # a timeout, in milliseconds
_LONGEST_MS = 2**31 - 1

# enum qo_pushpull_c_status
_ERRORS = {
    3: errors.InvalidArgument,
    4: errors.ServiceNotReachable,
    5: errors.RequestNotSent,
    6: errors.NotRegistered,
    7: errors.NotAllowed,
    8: errors.QueueTaken,
    9: errors.QueueError,
}
_NO_MEMORY = 10
_WITH_ERRNO = (errors.ServiceNotReachable, errors.QueueError)

_client = ctypes.c_void_p
_text = ctypes.c_char_p
_SIGNATURES: dict[str, tuple[Any, list[Any]]] = {
    "open": (ctypes.c_int32, [ctypes.c_int32, _text, ctypes.POINTER(_client)]),
    "close": (None, [_client]),
    "register": (ctypes.c_int32, [_client, _text, ctypes.c_int32, ctypes.c_int32]),
    "publish": (ctypes.c_int32, [_client, _text]),
    "get": (ctypes.c_int32, [_client, _text, _text, ctypes.c_bool]),
    "subscribe": (ctypes.c_int32, [_client, _text, ctypes.c_bool]),
    "unsubscribe": (ctypes.c_int32, [_client, _text]),
    "delete": (ctypes.c_int32, [_client, _text]),
    "clear": (ctypes.c_int32, [_client, _text]),
    "save": (ctypes.c_int32, [_client]),
    "sync": (ctypes.c_int32, [_client, ctypes.c_int32, _text]),
    "receive": (
        ctypes.c_int32,
        [_client, ctypes.c_int32, ctypes.POINTER(ctypes.c_void_p), ctypes.POINTER(ctypes.c_size_t)],
    ),
    "descriptor": (ctypes.c_int32, [_client]),
    "status_text": (_text, [ctypes.c_int32]),
    "version": (ctypes.c_uint32, []),
}


class _Functions:
    """The library's functions by their names without "qo_pushpull_c_"."""

    def __init__(self) -> None:
        library = ctypes.CDLL(_LIBRARY, use_errno=True)
        for name, (result, arguments) in _SIGNATURES.items():
            function = library["qo_pushpull_c_" + name]
            function.restype = result
            function.argtypes = arguments
            setattr(self, name, function)


_loaded: Any = None


def functions() -> Any:
    """Loads the library when it is first needed, so that the package can be imported without it."""
    global _loaded
    if _loaded is None:
        _loaded = _Functions()
    return _loaded


def encoded(text: str) -> bytes:
    """A text as the library takes it."""
    try:
        data = text.encode("utf-8")
    except UnicodeEncodeError as error:
        raise errors.InvalidArgument(f"a text cannot be sent: {error}") from None
    if b"\0" in data:
        raise errors.InvalidArgument("a text with a NUL inside cannot be sent")
    return data


def milliseconds(seconds: Optional[float]) -> int:
    """A timeout as the library takes it, rounded up; None waits without a limit."""
    if seconds is None:
        return FOREVER
    return min(max(0, -int(-seconds * 1000 // 1)), _LONGEST_MS)


def check(status: int, what: str) -> None:
    """Raises what a status stands for; `what` says what could not be done."""
    if status == OK:
        return
    error_number = ctypes.get_errno()
    if status == _NO_MEMORY:
        raise MemoryError(what)
    kind = _ERRORS.get(status, errors.PushpullError)
    text = f"{what}: {functions().status_text(status).decode()}"
    if kind in _WITH_ERRNO and error_number != 0:
        text += f" ({os.strerror(error_number)})"
    raise kind(text)
