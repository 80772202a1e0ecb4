"""The C library: found, set up and declared. Nothing else in the package knows ctypes' types of it."""

from __future__ import annotations

import ctypes
import ctypes.util
import os
import socket
import threading
from ctypes import POINTER, c_char, c_char_p, c_int, c_short, c_void_p

from .errors import SettingsError

# The limits of zordchcl.h.
MAX_APPL_NAME = 20
MAX_ATTR_GROUP = 32
MAX_SOURCE_NAME = 32
WORK_BUFFER_SIZE = 4096

# Defaults for this process and its children, where the environment does not say otherwise. An answer
# counts for its own request or not at all; and the questions by which a silent DCH is noticed, whose
# answer is empty, are not told as errors: what matters of them is raised or logged.
_DEFAULT_ENVIRONMENT = {
    "ZOR0_STRICT_ANSWERS": "Y",
    "ZORA_TRACE": "0x80,*dc_getAppl*=0",
}

# Every function: its result, then its arguments. ZORA_Long is an int of 32 bits on every platform
# that has ctypes' c_int with as many.
_LONG = c_int
_FUNCTIONS: dict[str, tuple[object, list[object]]] = {
    "DCH_api_init": (None, []),
    "ZORA_GetIPCtype": (c_int, []),
    "dp_register": (c_int, [POINTER(_LONG), c_char_p]),
    "dp_online": (c_int, [POINTER(_LONG), POINTER(_LONG), c_char_p, c_char_p, c_char_p]),
    "dp_formatData": (c_int, [POINTER(_LONG), POINTER(c_void_p), POINTER(_LONG), c_char_p, c_char_p, _LONG, c_char]),
    "dp_data": (c_int, [POINTER(_LONG), _LONG, c_short, POINTER(c_void_p)]),
    "dp_offline": (c_int, [POINTER(_LONG), _LONG]),
    "dp_unregister": (c_int, [POINTER(_LONG), c_char_p]),
    "dc_waitOnDataInitialize": (c_void_p, [c_char_p, c_char_p]),
    "dc_waitOnData": (c_int, [c_void_p, c_char_p, c_short]),
    "dc_waitOnDataCancel": (c_int, [c_void_p]),
    "dc_waitOnDataDestroy": (c_int, [c_void_p]),
    "dc_waitForDPStatusInitialize": (c_void_p, []),
    "dc_waitForDPStatus": (c_void_p, [c_void_p]),
    "dc_waitForDPStatusDestroy": (c_int, [c_void_p]),
    "dc_getApplications": (c_int, [POINTER(_LONG), POINTER(c_void_p), c_char_p, c_short]),
    "dc_getApplAttributes": (c_int, [POINTER(_LONG), POINTER(c_void_p), c_char_p, c_short]),
    "dc_getApplHelp": (c_int, [POINTER(_LONG), POINTER(c_void_p), c_char_p, c_short]),
    "dc_provideAction": (c_int, [c_short, c_char_p, c_char_p, c_char_p, c_char_p, _LONG, c_char_p]),
    "dc_waitForActionResults": (_LONG, [_LONG]),
}

_lock = threading.Lock()
_loaded: ctypes.CDLL | None = None
_used_before_fork = False


def library() -> ctypes.CDLL:
    """The library, loaded and set up at the first call. Any thread.

    Raises SettingsError when it is not there, or when a setting would have it end the process; and
    RuntimeError in the child of a fork whose parent has used it: both would read from the same sockets.
    """
    global _loaded  # pylint: disable=global-statement
    if _used_before_fork:
        raise RuntimeError(
            "zord410 was used before this process was forked: start processes that use it"
            ' by other means, such as multiprocessing.set_start_method("spawn")'
        )
    with _lock:
        if _loaded is None:
            _loaded = _load()
        return _loaded


def _load() -> ctypes.CDLL:
    for name, value in _DEFAULT_ENVIRONMENT.items():
        os.environ.setdefault(name, value)
    _check_host()
    # The plain name comes first: the loader looks where LD_LIBRARY_PATH says, find_library does not
    # always.
    try:
        loaded = ctypes.CDLL("libzord410.so")
    except OSError as error:
        found = ctypes.util.find_library("zord410")
        if found is None:
            raise SettingsError(f"the library libzord410.so is not there: {error}") from error
        loaded = ctypes.CDLL(found)
    for name, (result, arguments) in _FUNCTIONS.items():
        function = getattr(loaded, name)
        function.restype, function.argtypes = result, arguments
    kind = loaded.ZORA_GetIPCtype()
    if kind != 1:
        raise SettingsError(f"ZORA_DCH_IPCTYPE is {kind}, but the DCH is reached over sockets only (1)")
    loaded.DCH_api_init()
    return loaded


def _check_host() -> None:
    """The library ends the process when it cannot resolve the host."""
    host = os.environ.get("ZORA_DCH_ADDR")
    if host is None:
        return
    try:
        if not host:
            raise OSError("it is empty")
        socket.getaddrinfo(host, None, socket.AF_INET)
    except (OSError, UnicodeError) as error:
        raise SettingsError(f"ZORA_DCH_ADDR names an unknown host: {host!r}: {error}") from error


def _after_fork() -> None:
    global _lock, _used_before_fork  # pylint: disable=global-statement
    _lock = threading.Lock()  # another thread may have held it
    _used_before_fork = _used_before_fork or _loaded is not None


os.register_at_fork(after_in_child=_after_fork)


# DCH_api_destroy is not called: it gives nothing back but three locks, and what else in the process
# uses the library could not use them any more.

libc = ctypes.CDLL(None)
libc.free.restype, libc.free.argtypes = None, [c_void_p]
