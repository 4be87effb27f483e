"""Client of the push-pull data service.

    from pushpull import Client, ComponentId

    with Client(ComponentId.DEMO) as client:
        print(client.get("/system/status"))
        for notification in client.subscribe("/system/status", timeout=60):
            print(notification.value)

Needs the shared library libqo_pushpull_c. How a component behaves: docs/writing_components.md; this package:
docs/clients.md.
"""

from .client import Client
from .component_ids import ComponentId
from .errors import (
    InvalidArgument,
    NoAnswer,
    NotAllowed,
    NotFound,
    NotRegistered,
    PushpullError,
    QueueError,
    QueueTaken,
    RequestNotSent,
    ServiceEnded,
    ServiceNotReachable,
)
from .notifications import Notification, Notifications

__all__ = [
    "Client",
    "ComponentId",
    "InvalidArgument",
    "NoAnswer",
    "NotAllowed",
    "NotFound",
    "NotRegistered",
    "Notification",
    "Notifications",
    "PushpullError",
    "QueueError",
    "QueueTaken",
    "RequestNotSent",
    "ServiceEnded",
    "ServiceNotReachable",
]
