"""python3 -m tavloms decode DB [LOG ...]: a log's frames printed decoded, a line each.

The lines are those `tavlo decode` prints: time, channel, identifier, the
message's name and each signal present as name=value, its unit and its
value description; unknown identifiers with their data, remote and error
frames marked. Times are written with six decimals.
"""

import argparse
import math
import sys

import tavloms


def _value(signal, physical, raw):
    """A value as tavlo writes it: an unscaled integer exactly, else 10 digits."""
    if not signal.is_float and signal.factor == 1 and signal.offset == 0:
        return str(raw)
    return format(physical, ".10g")


def _line(db, time, channel, frame_id, extended, remote, error, data):
    identifier = ("%08X" if extended else "%03X") % frame_id
    start = "%s %s %s " % ("-" if math.isnan(time) else "(%.6f)" % time, channel or "-", identifier)
    if error:
        return start + "error  " + data.hex().upper()
    try:
        message = db.get_message(frame_id, is_extended=extended)
    except KeyError:
        return start + "unknown  " + data.hex().upper()
    if remote:
        return start + message.name + "  remote"
    physical = db.decode(frame_id, data, False, is_extended=extended)
    raw = db.decode(frame_id, data, False, True, is_extended=extended)
    texts = db.decode(frame_id, data, True, is_extended=extended)
    parts = [message.name]
    for name, value in physical.items():
        signal = message.get_signal(name)
        part = "%s=%s" % (name, _value(signal, value, raw[name]))
        part += " " + signal.unit if signal.unit else ""
        part += ' "%s"' % texts[name] if isinstance(texts[name], str) else ""
        parts.append(part)
    return start + "  ".join(parts)


def main(argv=None):
    parser = argparse.ArgumentParser(prog="python3 -m tavloms", description=__doc__.splitlines()[0])
    commands = parser.add_subparsers(dest="command", required=True)
    decode = commands.add_parser("decode", help="print the frames of logs decoded")
    decode.add_argument("database", help="the database file (.dbc)")
    decode.add_argument("logs", nargs="+", help="candump, ASC, BLF or TRC logs")
    decode.add_argument("--strict", action="store_true", help="load the database strictly")
    arguments = parser.parse_args(argv)
    try:
        db = tavloms.load(arguments.database, strict=arguments.strict)
        for log in arguments.logs:
            frames = tavloms.read_log(log)
            for k in range(len(frames["time"])):
                data = bytes(frames["data"][k][:frames["length"][k]])
                print(_line(db, frames["time"][k], frames["channel"][k], int(frames["frame_id"][k]),
                            bool(frames["is_extended"][k]), bool(frames["is_remote"][k]),
                            bool(frames["is_error"][k]), data))
    except (tavloms.LoadError, OSError) as failure:
        print("python3 -m tavloms: %s" % failure, file=sys.stderr)
        return 1
    except BrokenPipeError:
        return 0
    return 0


if __name__ == "__main__":
    sys.exit(main())
