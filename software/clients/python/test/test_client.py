"""The data tree by way of a Client."""

import os
import pathlib
import signal
import subprocess
import sys
import textwrap

import pytest

from pushpull import (
    Client,
    ComponentId,
    InvalidArgument,
    NoAnswer,
    NotAllowed,
    NotFound,
    NotRegistered,
    PushpullError,
    QueueError,
    QueueTaken,
    ServiceEnded,
    ServiceNotReachable,
)

CONTROLLER = ComponentId.HVAC_SYSCON_PUB


@pytest.fixture
def client(service):
    with Client(CONTROLLER) as opened:
        yield opened


def queues():
    return set(os.listdir("/dev/mqueue"))


# ---- coming and going ----


def test_is_not_opened_without_a_service():
    with pytest.raises(ServiceNotReachable, match="cannot reach the service: .*No such file"):
        Client()


def test_leaves_no_queue_and_no_registration(service):
    with Client(CONTROLLER, queue="/first"):
        assert "first" in queues()
    assert queues() == {"pushpull"}
    with Client(CONTROLLER, queue="/second") as again:  # refused while the first queue is registered
        again.wait()


def test_goes_with_an_exception_too(service):
    with pytest.raises(KeyError):
        with Client(CONTROLLER):
            raise KeyError
    assert queues() == {"pushpull"}


def test_goes_with_the_interpreter(service):
    program = "from pushpull import Client; client = Client(); print(client.get('/system/status/systemTemperature'))"
    assert subprocess.run([sys.executable, "-c", program], check=True, capture_output=True).stdout
    assert queues() == {"pushpull"}


def test_stays_when_a_forked_process_ends(client):
    child = os.fork()
    if child == 0:
        client.close()
        os._exit(0)
    assert os.waitpid(child, 0)[1] == 0
    client.wait()


def test_takes_over_what_a_killed_process_left(service):
    program = textwrap.dedent(
        """
        import os, signal
        from pushpull import Client
        client = Client()
        client.subscribe("/system")
        client.wait()
        os.kill(os.getpid(), signal.SIGKILL)
        """
    )
    killed = subprocess.run([sys.executable, "-c", program], check=False)
    assert killed.returncode == -signal.SIGKILL
    with Client() as client:
        client.wait()


def test_is_not_opened_twice(client):
    with pytest.raises(QueueTaken):
        Client(CONTROLLER)
    client.wait()


def test_is_not_opened_beside_another_of_its_identifier(client):
    with pytest.raises(NoAnswer, match="another component is registered"):
        Client(CONTROLLER, queue="/another", timeout=0.2)
    assert "another" not in queues()


@pytest.mark.parametrize(
    ("arguments", "error"),
    [
        ({"queue": "no_slash"}, QueueError),
        ({"messages": 0}, InvalidArgument),
        ({"message_size": -1}, InvalidArgument),
        ({"component": ComponentId.RESERVED}, InvalidArgument),
        ({"instance": "a\0b"}, InvalidArgument),
    ],
)
def test_says_why_it_is_not_opened(service, arguments, error):
    with pytest.raises(error):
        Client(**arguments)
    assert queues() == {"pushpull"}


def test_does_nothing_once_closed(client):
    client.close()
    client.close()
    for operation in (client.save, client.wait, client.fileno, lambda: client.next_notification(0)):
        with pytest.raises(NotRegistered):
            operation()


# ---- reading and writing ----


def test_reads_what_it_published(client):
    client.publish({"system": {"status": {"systemTemperature": 78}}})
    assert client.get("/system/status/systemTemperature") == 78
    assert client.get("/system/status")["systemTemperature"] == 78


def test_publishes_texts(client):
    client.publish('{"system":{"config":{"name":"K\u00fchlraum \u2744"}}}')
    assert client.get("/system/config/name") == "K\u00fchlraum \u2744"


def test_sets_a_node(client):
    client.set("/system/config/name", 'a "quoted" name')
    assert client.get("/system/config/name") == 'a "quoted" name'


def test_reads_and_sets_elements_of_arrays(client):
    client.set("/devices/0", {"name": "hall"})
    assert client.get("/devices/0/name") == "hall"
    assert client.get("/devices/0")["id"] == 0
    assert client.get("/devices")[0]["name"] == "hall"
    assert client.get("/devices/size") == len(client.get("/devices"))


def test_finds_no_node_that_is_not_there(client):
    for pointer in ("/nothing", "/system/nothing/at/all", "/system/size", "/devices/4000"):
        with pytest.raises(NotFound, match=pointer):
            client.get(pointer)


def test_says_that_an_answer_was_not_received(service):
    with Client(CONTROLLER, message_size=256) as client:
        with pytest.raises(NoAnswer, match="message_size"):
            client.get("/system")


def test_says_that_the_service_does_not_answer(service):
    with Client(CONTROLLER) as client, service.frozen():
        client.timeout = 0.05
        with pytest.raises(NoAnswer, match="in time"):
            client.get("/version")


@pytest.mark.parametrize("pointer", ["", "/", "system", "/system/", "//system", "/system;/version", "/a\0b", "/\ud800"])
def test_refuses_what_is_no_pointer(client, pointer):
    with pytest.raises(InvalidArgument):
        client.get(pointer)


@pytest.mark.parametrize("value", [float("nan"), object(), {1, 2}])
def test_refuses_what_is_no_json(client, value):
    with pytest.raises(InvalidArgument):
        client.set("/system/config/name", value)


@pytest.mark.parametrize("pointer", ["/devices/0", "/0"])
def test_sets_no_element_that_is_no_object(client, pointer):
    with pytest.raises(InvalidArgument):
        client.set(pointer, 5)


def test_clears_to_the_default(client):
    before = client.get("/system/config/name")
    client.set("/system/config/name", "changed")
    client.clear("/system/config")
    assert client.get("/system/config/name") == before


def test_deletes_as_the_system_controller_only(client):
    client.set("/devices/0/name", "hall")
    client.delete("/devices/0/name")
    with pytest.raises(NotFound):
        client.get("/devices/0/name")
    with Client(ComponentId.DEMO) as other:
        with pytest.raises(NotAllowed):
            other.delete("/devices/0")


def test_saves_the_tree(client):
    client.set("/system/config/name", "by Python")
    client.save()
    client.wait()
    saved = [path.read_text() for path in pathlib.Path("/kivo/data").iterdir() if path.is_file()]
    assert any("by Python" in text for text in saved)


def test_is_told_that_the_service_ends(service, client):
    service.ask_to_exit(CONTROLLER)
    assert client.next_notification(5).text == "pushpull exiting"
    with pytest.raises(ServiceEnded):
        client.next_notification(5)
    with pytest.raises(ServiceEnded):
        client.get("/version")
    service.process.wait(10)
    client.close()
    assert f"pushpull_python-{CONTROLLER}" not in queues()


def test_errors_have_one_base():
    for error in (ServiceNotReachable, NoAnswer, NotFound, NotAllowed, QueueTaken, QueueError, InvalidArgument):
        assert issubclass(error, PushpullError)
