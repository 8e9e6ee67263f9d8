"""Many logs decoded as tasks of a dask.distributed cluster.

    >>> from tavloms.dask import decode_logs
    >>> tables = decode_logs(["day1.blf", "day2.blf"], "vehicle.dbc",
    ...                      client=Client("tcp://scheduler:8786"))
    >>> tables["EngineData"]["EngineSpeed"].mean().compute()

Each log is one task; a worker loads the database once (by its path, which
must be readable there) and decodes its logs with Database.decode_log.
"""

import os

import tavloms

_databases = {}  # by path: each worker process loads a database once


def _database(path):
    database = _databases.get(path)
    if database is None:
        database = _databases[path] = tavloms.load(path)
    return database


def _decode(log, database_path, messages):
    return _database(database_path).decode_log(log, messages=messages)


def _table(tables, name, empty):
    return tables.get(name, empty)


_local = None  # the LocalCluster's client made for calls without one


def _local_client():
    global _local
    if _local is None or _local.status != "running":
        from dask.distributed import Client, LocalCluster
        _local = Client(LocalCluster(dashboard_address=":0"))
    return _local


def decode_logs(paths, database_path, client=None, messages=None):
    """Decodes the logs at paths on a dask.distributed cluster.

    Returns a dict of message name to dask.dataframe.DataFrame: the
    message's rows of every log, log after log, indexed by time with a
    column per signal, as Database.decode_log gives them. client is a
    dask.distributed Client (of a cluster started with `dask scheduler`
    and `dask worker`, say); without one, a LocalCluster of this machine is
    started (once, and kept for later calls and for computing the results).
    messages, when given, names the messages (by name or frame id) to keep.
    The logs are decoded as soon as this is called; the DataFrames gather
    what the tasks made.
    """
    import dask
    import dask.dataframe
    import numpy
    import pandas

    database_path = os.fspath(database_path)
    local = tavloms.load(database_path)
    chosen = local.messages if messages is None else [local.get_message(m) for m in messages]
    names = None if messages is None else [m.name for m in chosen]
    client = client if client is not None else _local_client()
    futures = client.compute([dask.delayed(_decode)(os.fspath(p), database_path, names) for p in paths])
    tables = {}
    for message in chosen:
        meta = pandas.DataFrame({s.name: numpy.array([], dtype=numpy.float64) for s in message.signals},
                                index=pandas.Index(numpy.array([], dtype=numpy.float64), name="time"))
        parts = [dask.delayed(_table)(future, message.name, meta) for future in futures]
        tables[message.name] = dask.dataframe.from_delayed(parts, meta=meta, verify_meta=False)
    return tables
