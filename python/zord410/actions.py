"""Actions: programs that the DCH starts for a consumer."""

from __future__ import annotations

import random
from dataclasses import dataclass

from . import _requests
from ._calls import call
from .errors import Error, NoAnswer

_MAX_TEXT_BYTES = 4031
_NO_RESULT = -1


@dataclass(frozen=True)
class Action:
    """An action that was asked for. id: the number by which its result is known, to anybody."""

    id: int

    def wait(self) -> int:
        """Waits for the result, for at most ZORA_DCH_TIMEOUT seconds (30), and returns it: 0 to 255
        the program's exit status, 127 when it could not be started, 128 + N after signal N, 105 when
        it was not started, 106 when the DCH has no such action or the request did not reach it.

        Raises TimeoutError when no result came in time: wait again; and NoAnswer when the DCH is
        away.
        """
        result = call(lambda: _requests.action_result(self.id))
        if result != _NO_RESULT:
            return result
        if not call(_requests.pulse):
            raise NoAnswer("waiting for an action")
        raise TimeoutError(f"no result of action {self.id} came in time")


def action(
    name: str,
    *,
    node: str = "",
    subnode: str = "",
    owner: str = "",
    kind: int = 0,
    id: int | None = None,  # pylint: disable=redefined-builtin
    parameters: str | None = None,
) -> Action:
    """Asks the DCH for an action: one that its file of actions lists.

        result = zord410.action("restart", node="web1", owner="me").wait()

    kind: the action's type, a number that is passed on, -32768 to 32767
    id:   a number of your own, -2147483648 to 2147483647; else one that nobody is likely to have

    The texts have at most 4031 bytes together. There is no answer to the request: `Action.wait` tells
    what came of it. Raises ValueError for numbers and texts that cannot be sent, and Error when
    nothing could be sent.
    """
    if not -0x8000 <= kind <= 0x7FFF:
        raise ValueError(f"the kind {kind} is out of range, -32768 to 32767")
    number = random.SystemRandom().randint(1, 0x7FFFFFFF) if id is None else id
    if not -0x80000000 <= number <= 0x7FFFFFFF:
        raise ValueError(f"the id {number} is out of range, -2147483648 to 2147483647")
    texts = {"name": name, "node": node, "subnode": subnode, "owner": owner, "parameters": parameters or ""}
    for what, text in texts.items():
        if "\0" in text:
            raise ValueError(f"the {what} of the action holds a zero")
    size = sum(len(text.encode()) for text in texts.values())
    if size > _MAX_TEXT_BYTES:
        raise ValueError(f"the texts of the action have {size} bytes, and at most {_MAX_TEXT_BYTES} can be sent")
    if not call(lambda: _requests.start_action(kind, owner, node, subnode, name, number, parameters)):
        raise Error("the action could not be sent to the DCH")
    return Action(number)
