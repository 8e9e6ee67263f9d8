"""Writes the frames of a candump log as ASC, BLF and TRC logs with Debian's
python3-can, an outside writer for the log readers' tests:

    write_logs.py CANDUMP_LOG OUTPUT_DIR

frames.asc, frames.blf (zlib containers), frames_plain.blf (uncompressed
containers of 100 bytes, so that objects span containers) and frames.trc
(version 2.1, data frames only: its writer takes no others). Exit status 77,
with the reason, when python3-can cannot be imported."""
import os
import sys

try:
    import can
except ImportError as error:
    print(f"python3-can cannot be imported: {error}")
    sys.exit(77)


def main():
    source, folder = sys.argv[1], sys.argv[2]
    frames = list(can.CanutilsLogReader(source))
    writers = [
        can.ASCWriter(os.path.join(folder, "frames.asc")),
        can.BLFWriter(os.path.join(folder, "frames.blf")),
        can.BLFWriter(os.path.join(folder, "frames_plain.blf"), compression_level=0,
                      max_container_size=100),
        can.TRCWriter(os.path.join(folder, "frames.trc")),
    ]
    for writer in writers:
        for frame in frames:
            writer.on_message_received(frame)
        writer.stop()


if __name__ == "__main__":
    main()
