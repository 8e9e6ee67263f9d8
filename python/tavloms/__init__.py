"""CAN bus network databases (.DBC files), frames and logs, over the tavloms library.

    >>> import tavloms
    >>> db = tavloms.load("powertrain.dbc")
    >>> db.decode(0x100, bytes.fromhex("A00F022103000000"))["EngineSpeed"]
    1000.0
    >>> frames = tavloms.read_log("drive.log")   # columns as numpy arrays
    >>> tables = db.decode_log("drive.log")      # {message name: pandas.DataFrame}
"""

import os

import numpy

from ._tavloms import Database, Diagnostic, Message, Signal
from . import _tavloms

__all__ = ["Database", "Diagnostic", "LoadError", "Message", "Signal", "load", "read_log"]

_EXTENDED = numpy.uint32(0x80000000)


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


def _frames_of(messages):
    """read_log's columns for an iterable of can.Message objects."""
    frames = list(messages)
    data = numpy.zeros((len(frames), 64), dtype=numpy.uint8)
    for row, frame in enumerate(frames):
        payload = bytes(frame.data or b"")[:64]
        data[row, :len(payload)] = numpy.frombuffer(payload, dtype=numpy.uint8)
    column = lambda get, dtype: numpy.array([get(f) for f in frames], dtype=dtype)
    return {
        "time": column(lambda f: f.timestamp, numpy.float64),
        "frame_id": column(lambda f: f.arbitration_id & 0x1FFFFFFF, numpy.uint32),
        "is_extended": column(lambda f: f.is_extended_id, bool),
        "is_remote": column(lambda f: f.is_remote_frame, bool),
        "is_error": column(lambda f: f.is_error_frame, bool),
        "length": column(lambda f: min(len(f.data or b""), 64), numpy.uint8),
        "data": data,
    }


def _raw_column(signal, raw, absent):
    """A signal's raw values as its kind reads them, absent ones missing."""
    import pandas

    if signal.is_float:
        numbers = (raw.view(numpy.float64) if signal.length == 64
                   else raw.astype(numpy.uint32).view(numpy.float32).astype(numpy.float64))
        return numpy.where(absent, numpy.nan, numbers)
    values = raw.view(numpy.int64) if signal.is_signed else raw
    return pandas.arrays.IntegerArray(values, absent)


def decode_log(self, source, messages=None, raw=False):
    """Decodes a whole log into one pandas.DataFrame per message, by name.

    source is a log's path (as read_log reads it), the dict read_log
    returns, or an iterable of can.Message objects. Each DataFrame is indexed
    by time and has a column per signal: physical values (float), or raw
    values with raw=True (integers, or the numbers of float signals); a
    signal a frame does not carry (multiplexed out, or beyond its length) is
    missing (NaN, or <NA>). messages, when given, names the messages (by
    name or frame id) to keep. Error and remote frames are left out. The
    frames are decoded into the columns by the library, without a Python
    object per frame and with the interpreter's lock released.
    """
    import pandas

    if isinstance(source, dict):
        columns = source
    elif isinstance(source, (str, bytes, os.PathLike)):
        columns = read_log(source)
    else:
        columns = _frames_of(source)
    keep = ~(numpy.asarray(columns["is_error"]) | numpy.asarray(columns["is_remote"]))
    every = bool(keep.all())  # then the columns are taken as they are, not copied

    def kept(name, dtype):
        values = numpy.asarray(columns[name], dtype=dtype)
        return numpy.ascontiguousarray(values if every else values[keep])

    ids = kept("frame_id", numpy.uint32) | numpy.where(kept("is_extended", bool), _EXTENDED,
                                                       numpy.uint32(0))
    decoded = _tavloms._decode_columns(self, kept("time", numpy.float64), ids,
                                       kept("length", numpy.uint8), kept("data", numpy.uint8),
                                       bool(raw))
    wanted = None
    if messages is not None:
        wanted = {self.get_message(m).name for m in messages}
    described = None
    # By message index: its name, signals and an Index of their names, made
    # once per database; each table gets a view of the Index, so that what a
    # user does to a table's columns stays with that table.
    kept_columns = self._cache.setdefault("columns", {})
    tables = {}
    for index, (times, physical, raws) in decoded.items():
        columns = kept_columns.get(index)
        if columns is None:
            if described is None:
                described = self.messages  # a list made anew at each reading
            signals = described[index].signals
            columns = kept_columns[index] = (described[index].name, signals, pandas.Index(
                [s.name for s in signals], dtype=object))
        name, signals, names = columns
        if wanted is not None and name not in wanted:
            continue
        time_index = pandas.Index(times, copy=False, name="time")
        if raw:
            absent = numpy.isnan(physical)
            data = {column: _raw_column(signal, raws[:, k], absent[:, k])
                    for k, (column, signal) in enumerate(zip(names, signals))}
            tables[name] = pandas.DataFrame(data, index=time_index, columns=names.view())
        else:
            tables[name] = pandas.DataFrame(physical, index=time_index, columns=names.view(),
                                            copy=False)
    return tables


Database.decode_log = decode_log
