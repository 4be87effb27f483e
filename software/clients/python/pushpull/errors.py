"""What can go wrong."""


class PushpullError(Exception):
    """Base of all errors of this package."""


class InvalidArgument(PushpullError, ValueError):
    """A text or number that no request can carry."""


class ServiceNotReachable(PushpullError, ConnectionError):
    """The service does not run, or this user may not open its queue."""


class RequestNotSent(PushpullError, ConnectionError):
    """The service's queue stayed full, or the request is longer than its messages."""


class NoAnswer(PushpullError, TimeoutError):
    """The service did not answer in time, or its answer did not fit in a message of the receive queue."""


class NotFound(PushpullError, LookupError):
    """There is no such node."""


class NotAllowed(PushpullError, PermissionError):
    """Only the system controller's own components may delete."""


class NotRegistered(PushpullError):
    """The client is not open."""


class QueueTaken(PushpullError):
    """Another process has the receive queue of this name: an identifier is for one process."""


class QueueError(PushpullError, OSError):
    """The receive queue cannot be made or received from."""


class ServiceEnded(PushpullError, ConnectionError):
    """The service said that it ends; a new client is needed once it runs again."""
