"""What a Client is told unasked, with `for` and with `async for`."""

import asyncio
import select
import signal

import pytest

from pushpull import Client, ComponentId, Notification, ServiceEnded

PATIENCE = 10  # seconds
STATUS = {"system": {"status": {"systemTemperature": 71}}}


@pytest.fixture
def client(service):
    with Client(ComponentId.DEMO) as opened:
        yield opened


@pytest.fixture
def other(service):
    with Client(ComponentId.HVAC_SYSCON_PUB) as opened:
        yield opened


def publish_temperatures(other, temperatures):
    for temperature in temperatures:
        other.set("/system/status/systemTemperature", temperature)
    other.wait()


def temperature(notification):
    return notification.value["system"]["status"]["systemTemperature"]


def test_come_in_order(client, other):
    notifications = client.subscribe("/system/status", timeout=PATIENCE)
    client.wait()
    publish_temperatures(other, [70, 71, 72])
    assert [temperature(next(notifications)) for _ in range(3)] == [70, 71, 72]


def test_end_when_none_comes_in_time(client, other):
    notifications = client.subscribe("/system/status", timeout=0)
    client.wait()
    publish_temperatures(other, [70, 71])
    assert [temperature(notification) for notification in notifications] == [70, 71]


def test_are_kept_while_an_answer_is_waited_for(client, other):
    client.subscribe("/system/status")
    client.wait()
    publish_temperatures(other, [70, 71])
    assert client.get("/system/status/systemTemperature") == 71
    assert [temperature(notification) for notification in client.notifications(0)] == [70, 71]


def test_are_of_changes_only_when_asked_so(client, other):
    publish_temperatures(other, [70])
    client.subscribe("/system/status", changes_only=True)
    client.wait()
    publish_temperatures(other, [70, 70, 71])
    assert [temperature(notification) for notification in client.notifications(0)] == [71]


def test_are_of_several_nodes(client, other):
    client.subscribe("/system/status", "/system/config")
    client.wait()
    other.publish(STATUS)
    other.publish({"system": {"config": {"name": "hall"}}})
    other.wait()
    assert [notification.value for notification in client.notifications(0)] == [
        STATUS,
        {"system": {"config": {"name": "hall"}}},
    ]


def test_stop_with_the_subscription(client, other):
    client.subscribe("/system/status")
    client.unsubscribe("/system/status")
    client.wait()
    publish_temperatures(other, [70])
    assert list(client.notifications(0)) == []


def test_tell_of_deleted_nodes(client, other):
    other.set("/devices/0/name", "hall")
    client.subscribe("/devices")
    client.wait()
    other.delete("/devices/0/name")
    notification = client.next_notification(PATIENCE)
    assert notification.deleted == "/devices/0/name"
    assert notification.value is None


def test_tell_of_texts_that_were_passed_on(client, other):
    other.pass_on(ComponentId.DEMO, "to: you")
    notification = client.next_notification(PATIENCE)
    assert notification.passed_on == (ComponentId.HVAC_SYSCON_PUB, "to: you")
    assert notification.deleted is None


def test_may_be_any_text():
    assert Notification("[" * 100000).value is None
    assert Notification("sync:nobody:text").passed_on is None
    assert Notification("sync:5").passed_on is None


def test_go_on_after_a_signal_that_python_handles(client, other):
    """The wait is taken up again, and ends by the notification that the handler brought about."""
    client.subscribe("/system/status")
    client.wait()
    before = signal.signal(signal.SIGALRM, lambda *_: publish_temperatures(other, [73]))
    try:
        signal.setitimer(signal.ITIMER_REAL, 0.02)
        assert temperature(client.next_notification(PATIENCE)) == 73
    finally:
        signal.signal(signal.SIGALRM, before)


def test_can_be_waited_for_beside_others(client, other):
    client.subscribe("/system/status")
    client.wait()
    assert select.select([client], [], [], 0)[0] == []
    publish_temperatures(other, [70])
    assert select.select([client], [], [], PATIENCE)[0] == [client]


# ---- asyncio ----


def test_come_to_a_coroutine(client, other):
    client.subscribe("/system/status")
    client.wait()

    async def watch():
        heard = []
        async for notification in client.notifications(PATIENCE):
            heard.append(temperature(notification))
            if len(heard) == 3:
                return heard

    async def play():
        watching = asyncio.create_task(watch())
        await asyncio.sleep(0)  # it waits for the first
        for value in (70, 71, 72):
            publish_temperatures(other, [value])
        return await watching

    assert asyncio.run(play()) == [70, 71, 72]


def test_end_for_a_coroutine_when_none_comes_in_time(client):
    async def watch():
        return [notification async for notification in client.notifications(0.02)]

    assert asyncio.run(watch()) == []


def test_are_shared_by_two_coroutines(client, other):
    client.subscribe("/system/status")
    client.wait()

    async def one():
        async for notification in client.notifications(PATIENCE):
            return temperature(notification)

    async def play():
        watching = [asyncio.create_task(one()) for _ in range(2)]
        await asyncio.sleep(0)
        publish_temperatures(other, [70, 71])
        return sorted(await asyncio.gather(*watching))

    assert asyncio.run(play()) == [70, 71]


def test_let_a_coroutine_be_cancelled(client, other):
    client.subscribe("/system/status")
    client.wait()

    async def play():
        waiting = asyncio.create_task(client.notifications().__anext__())
        await asyncio.sleep(0)
        waiting.cancel()
        await asyncio.wait([waiting])
        publish_temperatures(other, [70])
        return temperature(await client.notifications(PATIENCE).__anext__())

    assert asyncio.run(play()) == 70


def test_tell_a_coroutine_that_the_service_ends(service, client):
    async def play():
        waiting = asyncio.create_task(client.notifications(PATIENCE).__anext__())
        await asyncio.sleep(0)
        service.ask_to_exit(ComponentId.DEMO)
        assert (await waiting).text == "pushpull exiting"
        await client.notifications(PATIENCE).__anext__()

    with pytest.raises(ServiceEnded):
        asyncio.run(play())
