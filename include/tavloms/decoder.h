/* tavloms/decoder.h: the compiled decoder, frames to signal values and back.
 *
 * A decoder is compiled once from a database's records (and the statements a
 * read kept as text, for extended multiplexing) and is immutable afterwards:
 * any number of threads may use one decoder at once. It handles what the
 * manager's codec does not: values of up to 64 bits, exact; frames of up to
 * 64 bytes (CAN FD); extended multiplexing ("SG_MUL_VAL_"), cascaded to any
 * depth. The records are not referred to after compilation: free them
 * whenever you like. Compiles as C99; C++ clients also get tavlo::Decoder at
 * the end of this header. */
#ifndef TAVLOMS_DECODER_H
#define TAVLOMS_DECODER_H

#include <stddef.h>
#include <stdint.h>

#include "export.h"
#include "kept.h"
#include "records.h"

TAVLO_BEGIN_C

/* Result codes of the decoder's functions. */
#define TAVLO_DEC_OK 0
#define TAVLO_DEC_UNKNOWN_MESSAGE 1 /* no message of that identifier, name or index */
#define TAVLO_DEC_UNKNOWN_SIGNAL 2  /* the message has no signal of that name */
#define TAVLO_DEC_NO_DESCRIPTION 3  /* a text that is neither a value description nor a number */
#define TAVLO_DEC_DOES_NOT_FIT 4    /* a value outside the signal's bit field, or a signal
                                       beyond the message's length */
#define TAVLO_DEC_CONFLICT 5        /* the values given need different values of a multiplexer */
#define TAVLO_DEC_OUT_OF_RANGE 6    /* a physical value outside [minimum, maximum]: the frame is
                                       encoded all the same */
#define TAVLO_DEC_BAD_ARGUMENT 7    /* a null pointer, a length above 64, a buffer too small */
#define TAVLO_DEC_NO_MEMORY 8

/* tavlo_dec_signal_t.kind: how the raw bits are read. */
#define TAVLO_DEC_UNSIGNED 0
#define TAVLO_DEC_SIGNED 1
#define TAVLO_DEC_FLOAT 2  /* IEEE single, 32 bits ("SIG_VALTYPE_ ... 1") */
#define TAVLO_DEC_DOUBLE 3 /* IEEE double, 64 bits ("SIG_VALTYPE_ ... 2") */

typedef struct tavlo_decoder_t tavlo_decoder_t;

/* Values of a multiplexer, low through high, that select a signal. */
typedef struct tavlo_dec_range_t {
    uint64_t low;
    uint64_t high;
} tavlo_dec_range_t;

/* A value description: the text of a raw value. */
typedef struct tavlo_dec_description_t {
    int64_t value;
    const char* text;
} tavlo_dec_description_t;

/* A signal as compiled. Every pointer lives as long as the decoder. */
typedef struct tavlo_dec_signal_t {
    const char* name;
    const char* unit;
    unsigned int start_bit;  /* as in the file: Intel the least, Motorola the most significant bit */
    unsigned int length;     /* bits, 1 to 64; 32 for FLOAT and 64 for DOUBLE signals */
    int motorola;            /* 1: big-endian ("@0"); 0: Intel ("@1") */
    int kind;                /* TAVLO_DEC_UNSIGNED ... TAVLO_DEC_DOUBLE */
    double factor;           /* physical = raw * factor + offset */
    double offset;
    double minimum;
    double maximum;
    unsigned int bytes_needed; /* a shorter frame does not carry it; above 64: never decoded */
    int is_multiplexer;      /* it selects other signals of its message */
    long multiplexer;        /* index of the signal that selects this one, or -1 */
    const tavlo_dec_range_t* ranges; /* values of the multiplexer that select it */
    size_t range_count;
    const tavlo_dec_description_t* descriptions; /* by increasing value */
    size_t description_count;
} tavlo_dec_signal_t;

/* A message as compiled. */
typedef struct tavlo_dec_message_t {
    const char* name;
    const char* sender;      /* its transmitter's name, "" when it has none */
    unsigned int id;         /* as the records hold it: bit 31 set for an extended one */
    unsigned int length;     /* bytes, at most 64 */
    const tavlo_dec_signal_t* signals; /* in the file's order */
    size_t signal_count;
} tavlo_dec_message_t;

/* The value of one signal present in a frame. */
typedef struct tavlo_dec_value_t {
    uint64_t raw;         /* UNSIGNED: the value; SIGNED: the value in two's complement
                             (cast to int64_t); FLOAT, DOUBLE: the IEEE bits */
    double physical;      /* raw * factor + offset, raw taken as the number it stands for */
    unsigned int signal;  /* the signal's index in its message */
} tavlo_dec_value_t;

/* Compiles a decoder from root's messages and the SG_MUL_VAL_ statements among
 * kept (count of them; kept may be NULL when count is 0). Statements of other
 * kinds are ignored; a SG_MUL_VAL_ that does not parse or names an unknown
 * message or signal is skipped (see tavlo_decoder_skipped). Messages keep the
 * records' order; of messages sharing an identifier, lookups find the first.
 * Returns NULL when root is NULL or memory runs out. Free with
 * tavlo_decoder_free. */
TAVLO_API tavlo_decoder_t* tavlo_decoder_compile(const tavlo_root_t* root, const tavlo_kept_t* kept,
                                                 size_t count);
TAVLO_API void tavlo_decoder_free(tavlo_decoder_t* decoder);

/* The lines of the kept statements compilation skipped; *lines (if lines is
 * not NULL) points to them, owned by the decoder. Returns their number. */
TAVLO_API size_t tavlo_decoder_skipped(const tavlo_decoder_t* decoder, const unsigned int** lines);

/* Introspection. A message by its index, 0 to tavlo_decoder_message_count() - 1
 * (NULL past the end); finding by identifier, by name or a signal of a message
 * by name returns the index, or -1. */
TAVLO_API size_t tavlo_decoder_message_count(const tavlo_decoder_t* decoder);
TAVLO_API const tavlo_dec_message_t* tavlo_decoder_message(const tavlo_decoder_t* decoder,
                                                           size_t index);
TAVLO_API long tavlo_decoder_find_id(const tavlo_decoder_t* decoder, unsigned int id);
TAVLO_API long tavlo_decoder_find_name(const tavlo_decoder_t* decoder, const char* name);
TAVLO_API long tavlo_decoder_find_signal(const tavlo_decoder_t* decoder, size_t message,
                                         const char* name);

/* Decodes a frame of the message with identifier id (or of message number
 * index): length bytes of data (0 to 64; nothing beyond is read). values
 * receives one entry per signal present, in the message's order, and
 * capacity must hold the message's signal_count. A signal the frame's length
 * does not reach is absent, as is a multiplexed one its multiplexer (itself
 * present) does not select. *count receives the number written.
 * TAVLO_DEC_OK, TAVLO_DEC_UNKNOWN_MESSAGE or TAVLO_DEC_BAD_ARGUMENT. */
TAVLO_API int tavlo_decoder_decode(const tavlo_decoder_t* decoder, unsigned int id,
                                   const unsigned char* data, size_t length,
                                   tavlo_dec_value_t* values, size_t capacity, size_t* count);
TAVLO_API int tavlo_decoder_decode_message(const tavlo_decoder_t* decoder, size_t index,
                                           const unsigned char* data, size_t length,
                                           tavlo_dec_value_t* values, size_t capacity,
                                           size_t* count);

/* The description text of a signal's raw value (as tavlo_dec_value_t.raw
 * holds it), or NULL. Texts are kept under 32-bit numbers: a value outside
 * 32 bits has none. */
TAVLO_API const char* tavlo_decoder_describe(const tavlo_decoder_t* decoder, size_t message,
                                             size_t signal, uint64_t raw);

/* tavlo_dec_setting_t.how */
#define TAVLO_DEC_SET_PHYSICAL 0 /* physical */
#define TAVLO_DEC_SET_RAW 1      /* raw, as tavlo_dec_value_t.raw holds it */
#define TAVLO_DEC_SET_TEXT 2     /* text: a value description, else a number (physical) */

/* A value to encode. */
typedef struct tavlo_dec_setting_t {
    const char* signal; /* the signal's name */
    int how;
    double physical;
    uint64_t raw;
    const char* text;
} tavlo_dec_setting_t;

/* Encodes a frame of message number index: the message's length in bytes
 * into data (capacity at least that; *length receives it), every signal
 * given set and every other bit 0, and the multiplexers of the given
 * signals, up through cascades, set to the lowest value that selects them
 * all (or checked, when given too). Physical values are rounded half away
 * from zero to raw ones.
 *
 * Returns TAVLO_DEC_OK, or the first failure with a one-line message in
 * error (error_size bytes, may be NULL): TAVLO_DEC_UNKNOWN_SIGNAL,
 * TAVLO_DEC_NO_DESCRIPTION, TAVLO_DEC_DOES_NOT_FIT, TAVLO_DEC_CONFLICT or
 * TAVLO_DEC_BAD_ARGUMENT, after which data holds no frame. A physical value
 * outside [minimum, maximum], where minimum < maximum, gives
 * TAVLO_DEC_OUT_OF_RANGE only when nothing else failed: that frame is
 * complete, the value encoded as given. */
TAVLO_API int tavlo_decoder_encode(const tavlo_decoder_t* decoder, size_t index,
                                   const tavlo_dec_setting_t* settings, size_t count,
                                   unsigned char* data, size_t capacity, size_t* length,
                                   char* error, size_t error_size);

/* Batch decoding into columns. Frame i has identifier ids[i], lengths[i]
 * bytes (at most stride and 64) at data + i * stride, and time times[i]
 * (times may be NULL). */

/* Caller-owned columns, one per message (index as the decoder's). Rows are
 * added from rows on, up to capacity; a column's arrays hold capacity
 * entries: times (or NULL), physical[s] and raw[s] for signal s (either array
 * of pointers, or any entry, NULL: not filled). Absent values are NaN in
 * physical and 0 in raw. */
typedef struct tavlo_dec_columns_t {
    size_t capacity;
    size_t rows;
    double* times;
    double** physical;
    uint64_t** raw;
} tavlo_dec_columns_t;

/* Adds up the frames of each message into rows (message_count entries, added
 * to); returns the number of frames of unknown identifiers. */
TAVLO_API size_t tavlo_decoder_count(const tavlo_decoder_t* decoder, size_t frames,
                                     const unsigned int* ids, size_t* rows);
/* Decodes the frames into columns (message_count entries). Frames of unknown
 * identifiers are skipped and counted in *unknown (may be NULL). Returns
 * TAVLO_DEC_OK; TAVLO_DEC_BAD_ARGUMENT (a frame longer than stride or 64: its
 * row is left out, the others are decoded) or TAVLO_DEC_NO_MEMORY (a column
 * was full: its further rows are left out). */
TAVLO_API int tavlo_decoder_decode_columns(const tavlo_decoder_t* decoder, size_t frames,
                                           const double* times, const unsigned int* ids,
                                           const unsigned char* lengths,
                                           const unsigned char* data, size_t stride,
                                           tavlo_dec_columns_t* columns, size_t* unknown);

/* Library-owned columns: a batch sized and filled by tavlo_dec_batch_decode,
 * read through the pointers below, which stay valid until the batch's next
 * decode or its release. The decoder must outlive the batch. */
typedef struct tavlo_dec_batch_t tavlo_dec_batch_t;
TAVLO_API tavlo_dec_batch_t* tavlo_dec_batch_new(const tavlo_decoder_t* decoder);
TAVLO_API void tavlo_dec_batch_free(tavlo_dec_batch_t* batch);
/* Replaces the batch's columns by those of these frames; as
 * tavlo_decoder_decode_columns. */
TAVLO_API int tavlo_dec_batch_decode(tavlo_dec_batch_t* batch, size_t frames, const double* times,
                                     const unsigned int* ids, const unsigned char* lengths,
                                     const unsigned char* data, size_t stride);
TAVLO_API size_t tavlo_dec_batch_rows(const tavlo_dec_batch_t* batch, size_t message);
TAVLO_API const double* tavlo_dec_batch_times(const tavlo_dec_batch_t* batch, size_t message);
TAVLO_API const double* tavlo_dec_batch_physical(const tavlo_dec_batch_t* batch, size_t message,
                                                 size_t signal);
TAVLO_API const uint64_t* tavlo_dec_batch_raw(const tavlo_dec_batch_t* batch, size_t message,
                                              size_t signal);

TAVLO_END_C

#ifdef __cplusplus
#include <string>
#include <utility>
#include <vector>

namespace tavlo {

/* The decoder for C++: owns its tavlo_decoder_t; moves, does not copy. */
class Decoder {
public:
    Decoder() = default;
    Decoder(const tavlo_root_t& root, const std::vector<tavlo_kept_t>& kept = {})
        : decoder_(tavlo_decoder_compile(&root, kept.data(), kept.size())) {}
    Decoder(Decoder&& other) noexcept : decoder_(other.decoder_) { other.decoder_ = nullptr; }
    Decoder& operator=(Decoder&& other) noexcept {
        std::swap(decoder_, other.decoder_);
        return *this;
    }
    Decoder(const Decoder&) = delete;
    Decoder& operator=(const Decoder&) = delete;
    ~Decoder() { tavlo_decoder_free(decoder_); }

    explicit operator bool() const { return decoder_ != nullptr; }
    const tavlo_decoder_t* get() const { return decoder_; }

    std::size_t MessageCount() const { return tavlo_decoder_message_count(decoder_); }
    const tavlo_dec_message_t* Message(std::size_t index) const {
        return tavlo_decoder_message(decoder_, index);
    }
    long FindId(unsigned int id) const { return tavlo_decoder_find_id(decoder_, id); }
    long FindName(const char* name) const { return tavlo_decoder_find_name(decoder_, name); }
    long FindSignal(std::size_t message, const char* name) const {
        return tavlo_decoder_find_signal(decoder_, message, name);
    }

    /* The signals present in a frame of message number index; empty also
     * when the index is not a message's. */
    std::vector<tavlo_dec_value_t> Decode(std::size_t index, const unsigned char* data,
                                          std::size_t length) const {
        const tavlo_dec_message_t* message = Message(index);
        std::vector<tavlo_dec_value_t> values(message != nullptr ? message->signal_count : 0);
        std::size_t count = 0;
        tavlo_decoder_decode_message(decoder_, index, data, length, values.data(), values.size(),
                                     &count);
        values.resize(count);
        return values;
    }
    const char* Describe(std::size_t message, std::size_t signal, std::uint64_t raw) const {
        return tavlo_decoder_describe(decoder_, message, signal, raw);
    }

    /* Encodes into frame (resized to the message's length); error receives
     * the one-line message of a result other than TAVLO_DEC_OK. */
    int Encode(std::size_t index, const std::vector<tavlo_dec_setting_t>& settings,
               std::vector<unsigned char>& frame, std::string& error) const {
        unsigned char data[64] = {0};
        char text[256] = {0};
        std::size_t length = 0;
        const int result = tavlo_decoder_encode(decoder_, index, settings.data(), settings.size(),
                                                data, sizeof data, &length, text, sizeof text);
        frame.assign(data, data + length);
        error = text;
        return result;
    }

private:
    tavlo_decoder_t* decoder_ = nullptr;
};

}  // namespace tavlo
#endif /* __cplusplus */

#endif /* TAVLOMS_DECODER_H */
