// logs/blf.cpp: Vector BLF logs, the binary form. All numbers are little
// endian. The log opens with a file header ("LOGG", its size at byte 4);
// then come objects, each with a base header
//   "LOBJ"  u16 header size  u16 header version  u32 object size  u32 type
// and padding to the next object. Objects of type 10 are containers whose
// data (u16 compression at 16: 0 none, 2 zlib; u32 size uncompressed at 24;
// data from 32) is itself a stream of objects, cut at container bounds
// regardless of where an object ends: the containers' data are joined
// before objects are cut from it. After the base header of a frame comes
// the v1 or v2 header (u32 flags at 16: 1 = time in 10 µs, 2 = in ns; u64
// time at 24), then the object's own fields from the header size on. Every
// length and offset of the log is checked before it is used: a broken or
// hostile log gives an error, never a read outside what was read.
#include <cstring>
#include <new>

#include <zlib.h>

#include "reader.h"

namespace tavlo::logs {
namespace {

// Object types (keep the names of the objects' own formats below).
constexpr std::uint32_t kCanMessage = 1;
constexpr std::uint32_t kLogContainer = 10;
constexpr std::uint32_t kCanErrorExt = 73;
constexpr std::uint32_t kCanMessage2 = 86;
constexpr std::uint32_t kCanFdMessage = 100;
constexpr std::uint32_t kCanFdMessage64 = 101;

constexpr std::size_t kBaseHeader = 16;
constexpr std::size_t kContainerHeader = 32;  // the base header and the container's fields
// Far above what writers make (containers of 128 KiB); a size beyond these
// is a broken log, not a reason to take the memory.
constexpr std::uint32_t kMostObject = 1u << 24;
constexpr std::uint32_t kMostContainer = 1u << 26;
constexpr std::uint32_t kMostFileHeader = 1u << 16;
// Padding between objects: writers put up to 3 bytes; up to 7 are passed over.
constexpr std::size_t kMostPadding = 7;

std::uint16_t U16(const unsigned char* at) {
    return static_cast<std::uint16_t>(at[0] | at[1] << 8);
}
std::uint32_t U32(const unsigned char* at) {
    return static_cast<std::uint32_t>(at[0]) | static_cast<std::uint32_t>(at[1]) << 8 |
           static_cast<std::uint32_t>(at[2]) << 16 | static_cast<std::uint32_t>(at[3]) << 24;
}
std::uint64_t U64(const unsigned char* at) {
    return U32(at) | static_cast<std::uint64_t>(U32(at + 4)) << 32;
}

bool IsSignature(const unsigned char* at) { return std::memcmp(at, "LOBJ", 4) == 0; }

// Where "LOBJ" starts among the first bytes, past padding; size when not.
std::size_t FindObject(const unsigned char* at, std::size_t size) {
    for (std::size_t skip = 0; skip <= kMostPadding && skip + 4 <= size; ++skip) {
        if (IsSignature(at + skip)) {
            return skip;
        }
    }
    return size;
}

// Where "LOBJ" starts anywhere in size bytes; size when nowhere.
std::size_t SearchObject(const unsigned char* at, std::size_t size) {
    for (std::size_t i = 0; i + 4 <= size; ++i) {
        if (at[i] == 'L' && IsSignature(at + i)) {
            return i;
        }
    }
    return size;
}

void SetChannelNumber(tavlo_log_frame_t& frame, unsigned int channel) {
    char text[12];
    std::size_t length = 0;
    do {
        text[sizeof text - 1 - length++] = static_cast<char>('0' + channel % 10);
        channel /= 10;
    } while (channel != 0);
    SetChannel(frame, std::string_view(text + sizeof text - length, length));
}

void SetId(tavlo_log_frame_t& frame, std::uint32_t id) {
    const bool extended = (id & 0x80000000u) != 0;
    frame.id = extended ? (id & 0x1FFFFFFFu) | 0x80000000u : id & 0x7FFu;
    frame.flags |= extended ? TAVLO_LOG_EXTENDED : 0u;
}

void SetData(tavlo_log_frame_t& frame, const unsigned char* data, std::size_t length) {
    frame.length = static_cast<unsigned int>(length);
    std::memcpy(frame.data, data, length);
}

enum class Parsed { kFrame, kSkipped, kBad };

// One object (its base header checked, size bytes of it present) into a
// frame; the reason in the reader's error when it is bad.
Parsed ParseObject(tavlo_log_reader_t& reader, const unsigned char* object, std::size_t size,
                   tavlo_log_frame_t& frame) {
    const std::uint32_t type = U32(object + 12);
    if (type != kCanMessage && type != kCanMessage2 && type != kCanErrorExt &&
        type != kCanFdMessage && type != kCanFdMessage64) {
        return Parsed::kSkipped;
    }
    const std::size_t headerSize = U16(object + 4);
    const unsigned int version = U16(object + 6);
    if ((version != 1 && version != 2) || headerSize < (version == 1 ? 32u : 40u) ||
        headerSize > size) {
        reader.Fail(TAVLO_LOG_BAD_RECORD, "object %lu: a header of %lu bytes, version %u",
                    reader.line, static_cast<unsigned long>(headerSize), version);
        return Parsed::kBad;
    }
    ClearFrame(frame);
    const std::uint32_t timeFlags = U32(object + 16);
    frame.time = static_cast<double>(U64(object + 24)) * (timeFlags == 1 ? 1e-5 : 1e-9);
    frame.has_time = 1;
    const unsigned char* body = object + headerSize;
    const std::size_t bodySize = size - headerSize;
    std::size_t need = 0;
    switch (type) {
        case kCanMessage:
        case kCanMessage2:  // u16 channel, u8 flags, u8 DLC, u32 id, 8 data bytes
            need = 16;
            if (bodySize >= need) {
                SetChannelNumber(frame, U16(body));
                SetId(frame, U32(body + 4));
                if ((body[2] & 0x80) != 0) {
                    frame.flags |= TAVLO_LOG_REMOTE;
                } else {
                    SetData(frame, body + 8, body[3] > 8 ? 8 : body[3]);
                }
            }
            break;
        case kCanErrorExt:  // u16 channel, u16 length, u32 flags, u8 ecc, u8 position, u8 DLC,
                            // u8, u32 frame length, u32 id, u16 extended flags, u16, 8 data
            need = 32;
            if (bodySize >= need) {
                SetChannelNumber(frame, U16(body));
                SetId(frame, U32(body + 16));
                frame.flags |= TAVLO_LOG_ERROR_FRAME;
                SetData(frame, body + 24, body[10] > 8 ? 8 : body[10]);
            }
            break;
        case kCanFdMessage:  // u16 channel, u8 flags, u8 DLC, u32 id, u32 frame length,
                             // u8 bit count, u8 FD flags, u8 valid bytes, 5 bytes, data
            need = 20;
            if (bodySize >= need) {
                const unsigned int valid = body[14] > 64 ? 64 : body[14];
                need += valid;
                if (bodySize < need) {
                    break;
                }
                SetChannelNumber(frame, U16(body));
                SetId(frame, U32(body + 4));
                const unsigned int fdFlags = body[13];
                if ((fdFlags & 1) != 0) {
                    frame.flags |= TAVLO_LOG_FD | ((fdFlags & 2) != 0 ? TAVLO_LOG_BRS : 0u) |
                                   ((fdFlags & 4) != 0 ? TAVLO_LOG_ESI : 0u);
                }
                if ((body[2] & 0x80) != 0) {
                    frame.flags |= TAVLO_LOG_REMOTE;
                } else {
                    SetData(frame, body + 20, valid);
                }
            }
            break;
        default:  // kCanFdMessage64: u8 channel, u8 DLC, u8 valid bytes, u8 tx count, u32 id,
                  // u32 frame length, u32 flags, 4 x u32 bit timings and offsets, u16 bit count,
                  // u8 direction, u8 extension offset, u32 CRC, data
            need = 40;
            if (bodySize >= need) {
                const unsigned int valid = body[2] > 64 ? 64 : body[2];
                need += valid;
                if (bodySize < need) {
                    break;
                }
                SetChannelNumber(frame, body[0]);
                SetId(frame, U32(body + 4));
                const std::uint32_t fdFlags = U32(body + 12);
                if ((fdFlags & 0x1000) != 0) {
                    frame.flags |= TAVLO_LOG_FD | ((fdFlags & 0x2000) != 0 ? TAVLO_LOG_BRS : 0u) |
                                   ((fdFlags & 0x4000) != 0 ? TAVLO_LOG_ESI : 0u);
                }
                if ((fdFlags & 0x10) != 0) {
                    frame.flags |= TAVLO_LOG_REMOTE;
                } else {
                    SetData(frame, body + 40, valid);
                }
            }
            break;
    }
    if (bodySize < need) {
        reader.Fail(TAVLO_LOG_BAD_RECORD, "object %lu of type %u: %lu bytes, %lu needed",
                    reader.line, static_cast<unsigned int>(type), static_cast<unsigned long>(size),
                    static_cast<unsigned long>(headerSize + need));
        return Parsed::kBad;
    }
    return Parsed::kFrame;
}

// zlib's inflate of one container's data onto the end of the inner bytes;
// false when the data are broken.
bool Inflate(tavlo_log_reader_t& reader, const unsigned char* data, std::size_t size,
             std::size_t uncompressed) {
    z_stream* stream = static_cast<z_stream*>(reader.blfStream);
    if (stream == nullptr) {
        stream = new (std::nothrow) z_stream();
        if (stream == nullptr || inflateInit(stream) != Z_OK) {
            delete stream;
            return false;
        }
        reader.blfStream = stream;
    } else if (inflateReset(stream) != Z_OK) {
        return false;
    }
    const std::size_t had = reader.blfInner.size();
    try {
        reader.blfInner.resize(had + uncompressed);
    } catch (const std::bad_alloc&) {
        return false;
    }
    stream->next_in = const_cast<unsigned char*>(data);
    stream->avail_in = static_cast<uInt>(size);
    stream->next_out = reader.blfInner.data() + had;
    stream->avail_out = static_cast<uInt>(uncompressed);
    const int result = inflate(stream, Z_FINISH);
    reader.blfInner.resize(had + (uncompressed - stream->avail_out));
    return result == Z_STREAM_END;
}

// Drops the inner bytes not yet cut into objects: after a broken container
// they cannot be told apart from what follows.
void DropInner(tavlo_log_reader_t& reader) {
    reader.blfInner.clear();
    reader.blfStart = 0;
}

// The next object of the containers' joined data: kFrame, kSkipped or kBad
// as parsed, or false when no whole object is left there.
bool InnerObject(tavlo_log_reader_t& reader, tavlo_log_frame_t& frame, Parsed& parsed) {
    const std::size_t left = reader.blfInner.size() - reader.blfStart;
    const unsigned char* at = reader.blfInner.data() + reader.blfStart;
    const std::size_t skip = FindObject(at, left);
    if (skip == left) {
        if (left < kMostPadding + 4) {
            return false;  // padding, or the start of an object in the next container
        }
        ++reader.line;
        reader.offset = reader.blfContainerOffset;
        reader.Fail(TAVLO_LOG_BAD_RECORD, "object %lu: no LOBJ signature in the container",
                    reader.line);
        DropInner(reader);
        parsed = Parsed::kBad;
        return true;
    }
    if (left - skip < kBaseHeader) {
        return false;
    }
    at += skip;
    const std::uint32_t size = U32(at + 8);
    if (size < kBaseHeader || size > kMostObject) {
        ++reader.line;
        reader.offset = reader.blfContainerOffset;
        reader.Fail(TAVLO_LOG_BAD_RECORD, "object %lu: a size of %lu bytes", reader.line,
                    static_cast<unsigned long>(size));
        DropInner(reader);
        parsed = Parsed::kBad;
        return true;
    }
    if (left - skip < size) {
        return false;
    }
    ++reader.line;
    reader.offset = reader.blfContainerOffset;
    reader.blfStart += skip + size;
    parsed = ParseObject(reader, at, size, frame);
    return true;
}

// Reads the file header; a code to return, or TAVLO_LOG_OK to go on.
int FileHeader(tavlo_log_reader_t& reader) {
    if (!reader.Need(8)) {
        return reader.end == reader.start && !reader.readFailed
                   ? TAVLO_LOG_END
                   : reader.Fail(TAVLO_LOG_READ_FAILED, "not a BLF log: %lu bytes",
                                 static_cast<unsigned long>(reader.end - reader.start));
    }
    const auto* at = reinterpret_cast<const unsigned char*>(reader.buffer.data() + reader.start);
    const std::uint32_t size = U32(at + 4);
    if (std::memcmp(at, "LOGG", 4) != 0 || size < 8 || size > kMostFileHeader) {
        return reader.Fail(TAVLO_LOG_READ_FAILED, "not a BLF log: no LOGG header");
    }
    if (!reader.Need(size)) {
        return reader.Fail(TAVLO_LOG_READ_FAILED, "truncated: a file header of %lu bytes",
                           static_cast<unsigned long>(size));
    }
    reader.start += size;
    reader.blfHeaderRead = true;
    return TAVLO_LOG_OK;
}

// The next object of the log itself: a container's data joined to the inner
// bytes, another object put there whole. A code to return, or TAVLO_LOG_OK
// to go on cutting the inner bytes.
int OuterObject(tavlo_log_reader_t& reader) {
    // The inner bytes already cut are dropped, so that they do not grow.
    reader.blfInner.erase(reader.blfInner.begin(),
                          reader.blfInner.begin() + static_cast<std::ptrdiff_t>(reader.blfStart));
    reader.blfStart = 0;
    reader.Need(kBaseHeader + kMostPadding);
    auto* at = reinterpret_cast<const unsigned char*>(reader.buffer.data() + reader.start);
    std::size_t left = reader.end - reader.start;
    const std::size_t skip = FindObject(at, left);
    if (skip == left || left - skip < kBaseHeader) {
        bool padding = left <= kMostPadding;
        for (std::size_t i = 0; i < left && padding; ++i) {
            padding = at[i] == 0;
        }
        if (padding && !reader.readFailed) {
            if (reader.blfInner.empty()) {
                return TAVLO_LOG_END;
            }
            return reader.Fail(TAVLO_LOG_READ_FAILED,
                               "truncated: the last object is cut off after %lu bytes",
                               static_cast<unsigned long>(reader.blfInner.size()));
        }
        if (skip < left) {
            return reader.Fail(TAVLO_LOG_READ_FAILED, "truncated at byte %llu",
                               static_cast<unsigned long long>(reader.bufferOffset + reader.end));
        }
        // Not an object: pass over bytes up to the next signature.
        const std::uint64_t from = reader.bufferOffset + reader.start;
        for (;;) {
            const std::size_t found = SearchObject(at, left);
            if (found < left) {
                reader.start += found;
                break;
            }
            reader.start += left > 3 ? left - 3 : 0;
            if (!reader.Need(kBaseHeader + kMostPadding) && reader.end - reader.start < 4) {
                reader.start = reader.end;
                break;
            }
            at = reinterpret_cast<const unsigned char*>(reader.buffer.data() + reader.start);
            left = reader.end - reader.start;
        }
        ++reader.line;
        reader.offset = from;
        return reader.Fail(TAVLO_LOG_BAD_RECORD, "no LOBJ object at byte %llu: %llu bytes skipped",
                           static_cast<unsigned long long>(from),
                           static_cast<unsigned long long>(reader.bufferOffset + reader.start -
                                                           from));
    }
    reader.start += skip;
    at += skip;
    const std::uint32_t size = U32(at + 8);
    const std::uint32_t type = U32(at + 12);
    const std::uint64_t offset = reader.bufferOffset + reader.start;
    const std::uint32_t most = type == kLogContainer ? kMostContainer : kMostObject;
    if (size < (type == kLogContainer ? kContainerHeader : kBaseHeader) || size > most) {
        reader.start += 4;  // the signature: look for the next one
        ++reader.line;
        reader.offset = offset;
        return reader.Fail(TAVLO_LOG_BAD_RECORD, "object at byte %llu: a size of %lu bytes",
                           static_cast<unsigned long long>(offset),
                           static_cast<unsigned long>(size));
    }
    if (!reader.Need(size)) {
        if (reader.readFailed) {
            return TAVLO_LOG_END;  // reported as a failed read
        }
        return reader.Fail(TAVLO_LOG_READ_FAILED,
                           "truncated: the object at byte %llu has %lu bytes, the log %llu",
                           static_cast<unsigned long long>(offset),
                           static_cast<unsigned long>(size),
                           static_cast<unsigned long long>(reader.bufferOffset + reader.end));
    }
    at = reinterpret_cast<const unsigned char*>(reader.buffer.data() + reader.start);
    reader.start += size;
    reader.blfContainerOffset = offset;
    if (type != kLogContainer) {  // an object outside containers, as older logs have
        reader.blfInner.insert(reader.blfInner.end(), at, at + size);
        return TAVLO_LOG_OK;
    }
    const unsigned int method = U16(at + 16);
    const std::uint32_t uncompressed = U32(at + 24);
    const unsigned char* data = at + kContainerHeader;
    const std::size_t dataSize = size - kContainerHeader;
    if (method == 0) {
        reader.blfInner.insert(reader.blfInner.end(), data, data + dataSize);
        return TAVLO_LOG_OK;
    }
    ++reader.line;
    reader.offset = offset;
    if (method != 2) {
        DropInner(reader);
        return reader.Fail(TAVLO_LOG_BAD_RECORD,
                           "the container at byte %llu: compression %u unknown",
                           static_cast<unsigned long long>(offset), method);
    }
    if (uncompressed > kMostContainer || !Inflate(reader, data, dataSize, uncompressed)) {
        DropInner(reader);
        return reader.Fail(TAVLO_LOG_BAD_RECORD,
                           "the container at byte %llu: broken compressed data",
                           static_cast<unsigned long long>(offset));
    }
    --reader.line;  // a good container is not counted as an object of its own
    return TAVLO_LOG_OK;
}

}  // namespace

int NextBlf(tavlo_log_reader_t& reader, tavlo_log_frame_t& frame) {
    if (!reader.blfHeaderRead) {
        const int result = FileHeader(reader);
        if (result != TAVLO_LOG_OK) {
            return result;
        }
    }
    for (;;) {
        Parsed parsed = Parsed::kSkipped;
        if (InnerObject(reader, frame, parsed)) {
            if (parsed == Parsed::kFrame) {
                return TAVLO_LOG_OK;
            }
            if (parsed == Parsed::kBad) {
                return TAVLO_LOG_BAD_RECORD;
            }
            ++reader.skipped;
            continue;
        }
        const int result = OuterObject(reader);
        if (result != TAVLO_LOG_OK) {
            return result;
        }
    }
}

void FreeBlf(tavlo_log_reader_t& reader) {
    if (reader.blfStream != nullptr) {
        z_stream* stream = static_cast<z_stream*>(reader.blfStream);
        inflateEnd(stream);
        delete stream;
        reader.blfStream = nullptr;
    }
}

}  // namespace tavlo::logs
