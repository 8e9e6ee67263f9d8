"""CAN bus network databases (.DBC files), frames and logs, over the tavloms library.

    >>> import tavloms
    >>> db = tavloms.load("powertrain.dbc")
    >>> db.decode(0x100, bytes.fromhex("A00F022103000000"))["EngineSpeed"]
    1000.0
    >>> frames = tavloms.read_log("drive.log")   # columns as numpy arrays
"""

import os

import numpy

from ._tavloms import Database, Diagnostic, Message, Signal
from . import _tavloms

__all__ = ["Database", "Diagnostic", "LoadError", "Message", "Signal", "load", "read_log"]


class LoadError(Exception):
    """A database file that could not be loaded; .diagnostics says why and where."""

    def __init__(self, message, diagnostics):
        super().__init__(message)
        #: list of Diagnostic: file, line, column, code, text, severity.
        self.diagnostics = diagnostics


def load(path, strict=False):
    """Loads a database file into a Database.

    Tolerant loading (the default) reports a faulty statement as a warning
    in Database.diagnostics, skips or repairs it and goes on; strict loading
    accepts only a file without faults. Raises LoadError when the file cannot
    be read or, strictly loaded, has a fault.
    """
    path = os.fspath(path)
    status, database, diagnostics = _tavloms._load(path, bool(strict))
    if database is None:
        errors = [d for d in diagnostics if d.severity == "error"] or diagnostics
        if status == _tavloms.LOAD_NOT_FOUND:
            reason = "cannot be read"
        else:
            first = errors[0] if errors else None
            reason = f"{first.line}:{first.column}: {first.text}" if first else "not loaded"
        raise LoadError(f"{path}: {reason}", diagnostics)
    return database


def read_log(path):
    """Reads a CAN log (candump, ASC, BLF or TRC, told by its content) into columns.

    Returns a dict of numpy arrays, one entry per frame: time (float64
    seconds, NaN where the log gives none), channel (str), frame_id (uint32,
    without the extended flag), is_extended, is_remote, is_error, is_fd
    (bool), length (uint8) and data (N x 64 uint8, zero past length). Bad
    lines are skipped with a RuntimeWarning; OSError when the log cannot be
    opened or read on.
    """
    columns = _tavloms._read_log(os.fspath(path))
    flags = columns["flags"]
    channels = numpy.array(columns["channels"] or [""], dtype=object)
    return {
        "time": columns["time"],
        "channel": channels[columns["channel_index"]],
        "frame_id": columns["id"] & numpy.uint32(0x7FFFFFFF),
        "is_extended": (flags & 0x01) != 0,
        "is_remote": (flags & 0x02) != 0,
        "is_error": (flags & 0x04) != 0,
        "is_fd": (flags & 0x08) != 0,
        "length": columns["length"],
        "data": columns["data"],
    }
