"""The identifiers are those of the C header."""

import pathlib
import re

from pushpull import ComponentId

HEADER = pathlib.Path(__file__).parents[3] / "common/pushpull_data/inc/qo_component_ids.h"


def test_are_those_of_the_header():
    found = re.findall(r"^ *QO_CMP_?ID_(\w+) = (\w+),", HEADER.read_text(), re.MULTILINE)
    assert len(found) > 50
    assert [(name, int(value, 0)) for name, value in found] == [(one.name, one.value) for one in ComponentId]
