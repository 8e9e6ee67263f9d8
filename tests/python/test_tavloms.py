# The Python package over the library: loading with diagnostics, what it
# tells of messages and signals, frames decoded (as the tavlo command decodes
# them) and encoded, and logs read into columns.
import csv
import os
import subprocess
import sys
from pathlib import Path

import numpy
import pytest

import tavloms

TESTS = Path(__file__).resolve().parent.parent
CORPUS = TESTS / "dbfile" / "corpus"
POWERTRAIN = TESTS / "manager" / "data" / "powertrain.dbc"
DATA = TESTS / "tools" / "data"


def test_powertrain_as_described():
    db = tavloms.load(POWERTRAIN)
    assert (db.version, db.comment, db.nodes) == ("PT 1.2", "Powertrain network", ["Engine", "Gateway", "Gearbox"])
    assert [(m.name, m.frame_id, m.is_extended, m.length) for m in db.messages] == [
        ("EngineData", 0x100, False, 8), ("GearData", 0x200, False, 2), ("ExtendedData", 0x300, True, 8)]
    engine = db.get_message(0x100)
    assert engine is db.get_message("EngineData") and engine.senders == ["Engine", "Gateway"]
    speed, temp, mux, oil = (engine.get_signal(n) for n in ("EngineSpeed", "EngineTemp", "Mux", "OilLevel"))
    assert (speed.start, speed.length, speed.factor, speed.maximum, speed.unit) == (0, 16, 0.25, 16383.75, "rpm")
    assert speed.receivers == ["Gateway", "Gearbox"] and speed.multiplexer_ids is None
    assert (temp.is_signed, temp.offset, temp.choices) == (True, -40, {0: "Cold", 1: "Warm", 2: "Hot"})
    assert mux.multiplexer and not oil.multiplexer
    assert (oil.multiplexer_ids, oil.multiplexer_signal) == ([1], "Mux")
    assert db.get_message("GearData").signals[0].byte_order == "big_endian"
    assert speed.byte_order == "little_endian"
    assert db.get_message(0x300, is_extended=True).name == "ExtendedData"
    for absent in (0x300, "Nothing", 0x12345):
        with pytest.raises(KeyError):
            db.get_message(absent)
    with pytest.raises(KeyError):
        engine.get_signal("Nothing")


def test_long_names_stand_for_the_short_ones():
    db = tavloms.load(DATA / "long_names.dbc")
    status = db.get_message("BatteryManagementSystemStatus_0123456789")
    assert status is db.get_message("BatteryManagementSystemStatus_0")
    assert [s.name for s in status.signals] == ["CellVoltageMaximumOfAllModules_InMillivolts", "Mode"]
    assert status.get_signal("CellVoltageMaximumOfAllModules_InMillivolts") is status.signals[0]
    values = {"CellVoltageMaximumOfAllModules_InMillivolts": 0.513, "Mode": "Charging"}
    assert db.decode(0x400, bytes.fromhex("01020100")) == values
    assert db.encode(status.name, values) == bytes.fromhex("01020100")


def test_multiplexer_values_extended_and_plain(tmp_path):
    value = tavloms.load(DATA / "mux_values.dbc").get_message("Frame").get_signal("Value")
    assert (value.multiplexer_ids, value.multiplexer_ranges, value.multiplexer_signal) == ([2, 4, 5], [(2, 2), (4, 5)], "Inner")
    # A multiplexed signal in a message without a multiplexer: never decoded, its value told all the same.
    (tmp_path / "alone.dbc").write_text('VERSION ""\nBU_: Ecu\nBO_ 256 Frame: 8 Ecu\n SG_ Alone m3 : 8|8@1+ (1,0) [0|0] "" Ecu\n'
                                        ' SG_ Plain : 0|8@1+ (1,0) [0|0] "" Ecu\n')
    db = tavloms.load(tmp_path / "alone.dbc", strict=True)
    assert [(s.multiplexer_ids, s.multiplexer_ranges) for s in db.messages[0].signals] == [([3], [(3, 3)]), (None, [])]
    assert db.decode(0x100, bytes(8)) == {"Plain": 0.0}


def test_attributes_with_their_defaults(tmp_path):
    (tmp_path / "attributes.dbc").write_text(
        'VERSION ""\nBU_: Ecu\nBO_ 256 Frame: 8 Ecu\n SG_ Level : 0|8@1+ (1,0) [0|0] "" Ecu\n'
        ' SG_ Mode : 8|8@1+ (1,0) [0|0] "" Ecu\nBO_ 512 Other: 8 Ecu\nBO_ 768 Third: 8 Ecu\n'
        'BA_DEF_ BO_ "Cycle" INT 0 10000;\nBA_DEF_ BO_ "Send" ENUM "Cyclic","OnEvent";\n'
        'BA_DEF_ SG_ "Scale" FLOAT 0 10;\nBA_DEF_ SG_ "Mask" HEX 0 255;\nBA_DEF_ "Bus" STRING;\n'
        'BA_DEF_DEF_ "Cycle" 100;\nBA_DEF_DEF_ "Send" "OnEvent";\nBA_DEF_DEF_ "Scale" 1.5;\n'
        'BA_DEF_DEF_ "Mask" 255;\nBA_DEF_DEF_ "Bus" "";\nBA_ "Bus" "CAN FD";\nBA_ "Cycle" BO_ 256 20;\n'
        'BA_ "Send" BO_ 256 0;\nBA_ "Send" BO_ 768 2;\nBA_ "Scale" SG_ 256 Mode 2;\nBA_ "Mask" SG_ 256 Mode 15;\n')
    db = tavloms.load(tmp_path / "attributes.dbc", strict=True)
    frame, other, third = db.messages
    assert db.attributes == {"Bus": "CAN FD"}
    assert frame.attributes == {"Cycle": 20, "Send": "Cyclic"} and other.attributes == {"Cycle": 100, "Send": "OnEvent"}
    assert third.attributes["Send"] == 2  # no text of that index: the index
    assert [s.attributes for s in frame.signals] == [{"Scale": 1.5, "Mask": 255}, {"Scale": 2.0, "Mask": 15}]
    assert [type(v) for v in frame.signals[1].attributes.values()] == [float, int]


def corpus_rows():
    with open(CORPUS / "EXPECTED.tsv", newline="") as table:
        return [(row["file"], row["outcome"]) for row in csv.DictReader(table, delimiter="\t")]


@pytest.mark.parametrize("name, outcome", corpus_rows())
def test_corpus_loads_strictly_as_expected(name, outcome):
    if outcome == "OK":
        assert all(d.severity == "warning" for d in tavloms.load(CORPUS / name, strict=True).diagnostics)
        return
    with pytest.raises(tavloms.LoadError) as raised:
        tavloms.load(CORPUS / name, strict=True)
    first = raised.value.diagnostics[0]
    assert first.severity == "error" and first.line > 0 and first.column > 0


def test_strict_load_fails_where_tolerant_load_warns():
    with pytest.raises(tavloms.LoadError) as raised:
        tavloms.load(DATA / "syntax_error.dbc", strict=True)
    (error,) = raised.value.diagnostics
    assert (error.severity, error.line, error.column, error.text) == ("error", 11, 2, "error: syntax")
    db = tavloms.load(DATA / "syntax_error.dbc")
    assert [(d.severity, d.line, d.column) for d in db.diagnostics] == [("warning", 11, 2)]
    assert [s.name for s in db.get_message("Status").signals] == ["Speed"]
    with pytest.raises(tavloms.LoadError):
        tavloms.load(DATA / "no_such_file.dbc")


@pytest.mark.parametrize("path, frame_id, data, options, values", [
    (POWERTRAIN, 0x100, "A00F022103000000", {}, {"EngineSpeed": 1000, "EngineTemp": "Hot", "Mux": 1,
     "OilLevel": 50, "StatusWithAVeryLongSignalNameAb1": 0, "StatusWithAVeryLongSignalNameAb2": 0}),
    (POWERTRAIN, 0x100, "A00F020003", {"decode_choices": False}, {"EngineSpeed": 1000, "EngineTemp": -38, "Mux": 0,
     "OilPressure": 48}),
    (POWERTRAIN, 0x100, "A00F020003", {"raw": True}, {"EngineSpeed": 4000, "EngineTemp": "Hot", "Mux": 0, "OilPressure": 48}),
    (DATA / "mux_values.dbc", 0x100, "010409", {}, {"Mux": 1, "Inner": 4, "Value": 9}),
    (DATA / "mux_values.dbc", 0x100, "010309", {}, {"Mux": 1, "Inner": 3}),
    (DATA / "wide_fd.dbc", 0x123, "FFFFFFFFFFFFFFFF", {"raw": True}, {"Counter": 2**64 - 1}),
    (DATA / "wide_fd.dbc", 0x124, "FFFFFFFFFFFFFFFE", {}, {"Offset": -2}),
    (DATA / "wide_fd.dbc", 0x200, "01" + "00" * 61 + "FEFF", {"is_extended": True}, {"First": 1, "Last": -1}),
])
def test_decode(path, frame_id, data, options, values):
    decoded = tavloms.load(path).decode(frame_id, bytes.fromhex(data), **options)
    assert decoded == values and list(decoded) == list(values)
    assert all(type(v) is (int if options.get("raw") else float) for v in decoded.values() if type(v) is not str)


def test_decode_takes_its_arguments_as_a_python_function_would():
    db = tavloms.load(POWERTRAIN)
    frame = bytes.fromhex("A00F020003")
    expected = db.decode(0x100, frame, True, True)
    assert db.decode(data=frame, raw=True, frame_id=0x100) == expected
    assert db.decode(0x100, list(frame), raw=1, decode_choices=True, is_extended=False) == expected
    for call, error, text in [
            (lambda: db.decode(0x100), TypeError, "missing required argument 'data'"),
            (lambda: db.decode(data=frame), TypeError, "missing required argument 'frame_id'"),
            (lambda: db.decode(0x100, frame, True, False, False), TypeError, "at most 4 positional"),
            (lambda: db.decode(0x100, frame, True, raw=False, decode_choices=True), TypeError,
             "multiple values for argument 'decode_choices'"),
            (lambda: db.decode(0x100, frame, extended=True), TypeError, "unexpected keyword argument 'extended'"),
            (lambda: db.decode("EngineData", frame), TypeError, "frame_id must be an int, not str"),
            (lambda: db.decode(0x100, 5), TypeError, "bytes"),
            (lambda: db.decode(0x100, frame, is_extended=True), KeyError, "0x100 \\(extended\\)")]:
        with pytest.raises(error, match=text):
            call()


@pytest.mark.skipif("TAVLO_COMMAND" not in os.environ, reason="the tavlo command is not built")
@pytest.mark.parametrize("path", [POWERTRAIN, TESTS.parent / "examples" / "vehicle.dbc", DATA / "wide_fd.dbc",
                                  CORPUS / "issue_184_extended_mux_cascaded.dbc",
                                  CORPUS / "issue_184_extended_mux_multiple_values.dbc", CORPUS / "fd_test.dbc"])
def test_decode_reads_frames_as_tavlo_decode(tmp_path, path):
    db = tavloms.load(path)
    random = numpy.random.default_rng(2026)
    frames = []  # (frame id, extended, data): of every message, some of small bytes to select multiplexed signals
    for message in db.messages:
        for k in range(8):
            data = bytes(random.integers(0, 4 if k % 2 else 256, message.length, dtype=numpy.uint8))
            frames.append((message.frame_id, message.is_extended, data))
    (tmp_path / "frames.log").write_text("".join(
        f"({t}.0) can0 {i:0{8 if x else 3}X}{'##0' if len(d) > 8 else '#'}{d.hex().upper()}\n"
        for t, (i, x, d) in enumerate(frames)))
    shown = subprocess.run([os.environ["TAVLO_COMMAND"], "decode", "-f", "csv", str(path), str(tmp_path / "frames.log")],
                           check=True, capture_output=True, text=True).stdout
    expected = [{} for _ in frames]
    for row in csv.DictReader(shown.splitlines()):
        raw = int(row["raw"]) if row["raw"].lstrip("-").isdigit() else pytest.approx(float(row["raw"]), rel=1e-9)
        expected[int(float(row["time"]))][row["signal"]] = (raw, pytest.approx(float(row["physical"]), rel=1e-9))
    assert all(expected)
    for (frame_id, extended, data), values in zip(frames, expected):
        decode = lambda **raw: db.decode(frame_id, data, False, is_extended=extended, **raw)
        raw, physical = decode(raw=True), decode()
        assert {name: (raw[name], physical[name]) for name in raw} == values
    for message in db.messages:  # encoding what a frame of small bytes decodes to, as tavlo encode does
        frame_id, extended, data = next(f for f in frames[1::2] if f[:2] == (message.frame_id, message.is_extended))
        values = db.decode(frame_id, data, False, is_extended=extended)
        shown = subprocess.run([os.environ["TAVLO_COMMAND"], "encode", str(path), message.name] +
                               [f"{name}={value!r}" for name, value in values.items()],
                               capture_output=True, text=True).stdout.strip()
        assert shown, message.name
        encoded = db.encode(message.name, values, check_range=False)
        assert (shown.split("##")[1][1:] if "##" in shown else shown.split("#")[1]) == encoded.hex().upper()
    tables = db.decode_log(tmp_path / "frames.log")
    for message in db.messages:
        rows = [t for t, (i, x, _) in enumerate(frames) if (i, x) == (message.frame_id, message.is_extended)]
        table = tables[message.name]
        assert list(table.index) == rows
        for t, (_, row) in zip(rows, table.iterrows()):
            assert {name: value for name, value in row.items() if not numpy.isnan(value)} == {
                name: pytest.approx(physical, rel=1e-9) for name, (_, physical) in expected[t].items()}


def test_encode_gives_back_what_decode_reads():
    db = tavloms.load(POWERTRAIN)
    values = {"EngineSpeed": 1000, "EngineTemp": "Hot", "Mux": 1, "OilLevel": 50}
    frame = db.encode("EngineData", values)
    assert frame == bytes.fromhex("A00F022103000000")
    assert db.decode(0x100, bytearray(frame)).items() >= values.items()
    assert db.encode(0x300, {"Counter": 7}, is_extended=True) == bytes.fromhex("0700000000000000")
    assert db.encode("EngineData", {"OilLevel": 150}, check_range=False) == bytes.fromhex("0000006109000000")
    for bad, reason in [({"OilLevel": 150}, "out of range"), ({"Nothing": 1}, "no signal Nothing"),
                        ({"EngineTemp": "Boiling"}, "neither a number nor a value description"),
                        ({"EngineSpeed": 70000}, "does not fit")]:
        with pytest.raises(ValueError, match=reason):
            db.encode("EngineData", bad)
    for frame_id, data in [(0x100, bytes(65)), (-1, b""), (0x20000000, b"")]:
        with pytest.raises(ValueError):
            db.decode(frame_id, data)


def test_64_bit_values_are_exact_both_ways():
    db = tavloms.load(DATA / "wide_fd.dbc")
    for name, value, frame in [("Wide", 2**64 - 1, "FFFFFFFFFFFFFFFF"), ("Wide", 578437695752307201, "0102030405060708"),
                               ("WideSigned", -2, "FFFFFFFFFFFFFFFE")]:
        signal = db.get_message(name).signals[0]
        assert db.encode(name, {signal.name: value}, raw=True) == bytes.fromhex(frame)
        assert db.decode(db.get_message(name).frame_id, bytes.fromhex(frame), raw=True) == {signal.name: value}
    assert len(db.encode("Fd", {"Last": -1})) == 64


def test_read_log_gives_columns(tmp_path):
    log = tmp_path / "bus.log"
    log.write_text("(1600000000.000100) can0 100#A00F022103000000\n"
                   "  vcan1  1FFFFFFF   [2]  05 00\n"
                   "(1600000000.000300) can1 123#R\n"
                   "not a frame\n"
                   "(1600000000.000500) can0 00000200##1" + "AB" * 12 + "\n")
    with pytest.warns(RuntimeWarning, match="bus.log:4: not a CAN frame"):
        frames = tavloms.read_log(log)
    assert frames["time"][0] == 1600000000.0001 and numpy.isnan(frames["time"][1])
    assert list(frames["channel"]) == ["can0", "vcan1", "can1", "can0"]
    assert frames["frame_id"].dtype == numpy.uint32 and list(frames["frame_id"]) == [0x100, 0x1FFFFFFF, 0x123, 0x200]
    assert list(frames["is_extended"]) == [False, True, False, True]
    assert list(frames["is_remote"]) == [False, False, True, False] and not frames["is_error"].any()
    assert list(frames["length"]) == [8, 2, 0, 12] and frames["data"].shape == (4, 64)
    assert bytes(frames["data"][3]) == b"\xab" * 12 + bytes(52) and bytes(frames["data"][1][:3]) == b"\x05\x00\x00"
    with pytest.raises(OSError):
        tavloms.read_log(tmp_path / "missing.log")


def test_read_log_reads_what_python_can_writes(tmp_path):
    pytest.importorskip("can")
    log = tmp_path / "frames.log"
    log.write_text("".join(f"(1600000000.{k:03}250) can0 {frame}\n" for k, frame in enumerate(
        ["100#A00F022103000000", "1FFFFFFF#0500", "7FF#", "00000200#0102030405060708", "001#FF"])))
    subprocess.run([sys.executable, str(TESTS / "logs" / "write_logs.py"), str(log), str(tmp_path)], check=True)
    expected = tavloms.read_log(log)
    for name in ("frames.asc", "frames.blf", "frames_plain.blf", "frames.trc"):
        frames = tavloms.read_log(tmp_path / name)
        for column in ("frame_id", "is_extended", "length", "data"):
            assert numpy.array_equal(frames[column], expected[column]), (name, column)
        times = frames["time"] - frames["time"][0]
        assert numpy.allclose(times, expected["time"] - expected["time"][0], atol=1e-5), name


def test_decode_log_into_tables_as_frame_by_frame(tmp_path):
    pandas = pytest.importorskip("pandas")
    can = pytest.importorskip("can")
    db = tavloms.load(POWERTRAIN)
    log = tmp_path / "bus.log"
    log.write_text("(1.0) can0 100#A00F022103000000\n(2.0) can0 200#0500\n(3.0) can0 100#A00F020003000000\n"
                   "(4.0) can0 100#R\n(5.0) can0 100#A00F\n(6.0) can0 00000300#0700000000000000\n")
    frames = tavloms.read_log(log)
    messages = [can.Message(timestamp=t, arbitration_id=int(i), is_extended_id=bool(x), is_remote_frame=bool(r),
                            data=bytes(d[:n])) for t, i, x, r, n, d in zip(frames["time"], frames["frame_id"],
                            frames["is_extended"], frames["is_remote"], frames["length"], frames["data"])]
    for source in (log, frames, messages):
        tables = db.decode_log(source)
        assert sorted(tables) == ["EngineData", "ExtendedData", "GearData"]
        for name, table in tables.items():
            message = db.get_message(name)
            rows = [k for k in range(len(frames["time"])) if frames["frame_id"][k] == message.frame_id
                    and not frames["is_remote"][k]]
            assert list(table.index) == [frames["time"][k] for k in rows]
            assert list(table.columns) == [s.name for s in message.signals]
            for k, (_, row) in zip(rows, table.iterrows()):
                expected = db.decode(message.frame_id, bytes(frames["data"][k][:frames["length"][k]]), False,
                                     is_extended=message.is_extended)
                assert {s: v for s, v in row.items() if not numpy.isnan(v)} == expected
    tables["EngineData"].columns.name = "signals"  # the next tables' columns are their own
    assert db.decode_log(log)["EngineData"].columns.name is None
    raw = db.decode_log(log, messages=["EngineData"], raw=True)
    assert list(raw) == ["EngineData"]
    assert raw["EngineData"]["EngineTemp"].dtype == "Int64" and raw["EngineData"]["OilLevel"].isna().tolist() == [False, True, True]
    assert raw["EngineData"]["EngineSpeed"].tolist() == [4000, 4000, 4000]


def test_type_stubs_name_what_the_package_has():
    import ast
    stubs = ast.parse((Path(tavloms.__file__).parent / "__init__.pyi").read_text())
    declared = {node.name: {item.name for item in node.body if isinstance(item, ast.FunctionDef)}
                for node in stubs.body if isinstance(node, (ast.ClassDef, ast.FunctionDef))}
    assert set(declared) == set(tavloms.__all__)
    for name, members in declared.items():
        public = {m for m in dir(getattr(tavloms, name)) if not m.startswith("_")}
        assert members - {"__init__"} == (public if name not in ("LoadError", "load", "read_log") else set()), name


@pytest.mark.skipif("TAVLO_COMMAND" not in os.environ, reason="the tavlo command is not built")
def test_module_decodes_as_tavlo_decode(tmp_path):
    from tavloms.__main__ import main
    log = tmp_path / "bus.log"
    log.write_text("(1600000000.000100) can0 100#A00F022103000000\n(1600000000.000200) vcan1 555#0102\n"
                   "(1600000000.000300) can0 100#R\n(1600000000.000400) can0 00000300#0700000000000000\n"
                   "(1600000000.000500) can0 100#FFFF7F0D09000000\n(1600000000.000600) can0 200#05\n")
    tavlo = subprocess.run([os.environ["TAVLO_COMMAND"], "decode", str(POWERTRAIN), str(log)],
                           check=True, capture_output=True, text=True).stdout
    module = subprocess.run([sys.executable, "-m", "tavloms", "decode", str(POWERTRAIN), str(log)],
                            check=True, capture_output=True, text=True).stdout
    assert module == tavlo and len(module.splitlines()) == 6
    assert main(["decode", str(POWERTRAIN), str(tmp_path / "missing.log")]) == 1


def test_logs_decoded_on_a_cluster_as_one_by_one(tmp_path):
    pandas = pytest.importorskip("pandas")
    distributed = pytest.importorskip("distributed")
    from tavloms.dask import decode_logs
    db = tavloms.load(POWERTRAIN)
    logs = []
    for k in range(4):
        logs.append(tmp_path / f"day{k}.log")
        logs[-1].write_text(f"({k}.1) can0 100#A00F02{k}103000000\n({k}.2) can0 200#0{k}\n({k}.3) can0 100#A00F020003000000\n")
    cluster = distributed.LocalCluster(n_workers=2, threads_per_worker=1, dashboard_address=":0")
    with cluster, distributed.Client(cluster) as client:
        tables = decode_logs(logs, POWERTRAIN, client=client)
        assert sorted(tables) == sorted(m.name for m in db.messages)
        for name, table in tables.items():
            parts = [one[name] for one in map(db.decode_log, logs) if name in one]
            expected = pandas.concat(parts) if parts else table.compute().iloc[:0]
            pandas.testing.assert_frame_equal(table.compute(), expected)
        assert list(decode_logs(logs[:1], POWERTRAIN, client=client, messages=[0x200])) == ["GearData"]
