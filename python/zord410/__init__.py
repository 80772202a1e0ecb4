"""The data channel of the monitoring suite: providers send rows, consumers subscribe to them.

    with zord410.Provider("appl:DEMO,DMO; group:load; attr:load1,G,4,Load;", "web1") as provider:
        provider.send(load1=17)

    with zord410.subscribe("DEMO", "load") as rows:
        for row in rows:
            print(row["load1"])

Which DCH is asked, and how long answers are waited for, is in the environment: ZORA_DCH_ADDR,
ZORA_DCH_PORT, ZORA_DCH_TIMEOUT, read once per process, at the first request. ZOR0_STRICT_ANSWERS is then
set to Y, and ZORA_TRACE so that the library tells its errors but not of questions that this module asks
to see whether the DCH is there, unless they have a value.

Any thread may use everything here, several at once: the interpreter's lock is given up while a call
waits. Requests that the main thread makes run on a thread of their own, so that Ctrl-C ends its wait at
once; the request itself ends later. A process that was forked from one that has used the module cannot
use it: RuntimeError.

Texts are UTF-8; other bytes that come are what os.fsdecode makes of them. The logger "zord410" is told
when the DCH goes and comes back.
"""

from .actions import Action, action
from .catalogue import Application, applications
from .changes import StatusChange, StatusChanges, status_changes
from .errors import Error, NoAnswer, SettingsError, Status, StatusError, SubscriptionError
from .provider import Provider, Source
from .registration import Attribute, Registration, number, text
from .subscription import Subscription, subscribe
from .values import Row

__all__ = [
    "Action",
    "Application",
    "Attribute",
    "Error",
    "NoAnswer",
    "Provider",
    "Registration",
    "Row",
    "SettingsError",
    "Source",
    "Status",
    "StatusChange",
    "StatusChanges",
    "StatusError",
    "Subscription",
    "SubscriptionError",
    "action",
    "applications",
    "number",
    "status_changes",
    "subscribe",
    "text",
]
