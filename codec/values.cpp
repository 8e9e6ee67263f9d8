// codec/values.cpp: signal values in frame data as the manager offers them:
// raw values of integer, float and double signals, presence of multiplexed
// signals, raw and physical values, and values as text.
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>

#include "codec/bits.h"
#include "model/model.h"
#include "tavloms/manager.h"

namespace {

using tavlo::codec::kMaxImageBytes;

// Sign handling by field length 0..32: values above threshold[n] are
// negative; modulus[n] = 2^n taken modulo 2^32.
constexpr std::uint32_t Threshold(unsigned int n) {
    return n == 0 ? 0u : static_cast<std::uint32_t>((std::uint64_t{1} << (n - 1)) - 1);
}
constexpr std::uint32_t Modulus(unsigned int n) {
    return static_cast<std::uint32_t>(std::uint64_t{1} << n);
}

// Multiplexed signals whose mode signal is itself multiplexed are followed
// this many levels at most; a chain that loops is absent.
constexpr int kMaxModeDepth = 8;

bool IsMotorola(const sigblk& signal) {
    return (signal.flags & TAVLO_SIG_MOTOROLA) != 0;
}

bool IsSigned(const sigblk& signal) {
    return (signal.flags & TAVLO_SIG_SIGNED) != 0;
}

// The 32-bit raw value with the sign extended; 3 for a signed field longer
// than 32 bits (raw then holds its low 32 bits unextended).
inline unsigned int RawInteger(const unsigned char* data, const sigblk& signal,
                               std::uint32_t& raw) {
    const unsigned int flags = signal.flags;
    const unsigned int length = signal.length;
    const unsigned int startBit = signal.start_bit;
    const bool motorola = (flags & TAVLO_SIG_MOTOROLA) != 0;
    raw = tavlo::codec::ReadLow32(data, startBit, length, motorola);
    if ((flags & TAVLO_SIG_SIGNED) == 0) {
        return TAVLO_SIGNAL_OK;
    }
    if (length > 32) {
        return TAVLO_SIGNAL_TOO_LONG;
    }
    if (raw > Threshold(length)) {
        raw -= Modulus(length);
    }
    return TAVLO_SIGNAL_OK;
}

bool Present(const TavloManager& manager, const unsigned char* data, const sigblk& signal,
             const msgblk& message, int depth);

// The presence of a multiplexed signal: its message's mode signal holds its
// mode_value. Kept out of line, so that the common case of a signal that is
// not multiplexed costs one flag test.
#if defined(__GNUC__) || defined(__clang__)
__attribute__((noinline, cold))
#endif
bool PresentMultiplexed(const TavloManager& manager, const unsigned char* data,
                        const sigblk& signal, const msgblk& message, int depth) {
    const sigblk* mode = manager.TavloManager::GetModeSignal(message);
    if (mode == nullptr || depth >= kMaxModeDepth) {
        return false;
    }
    std::uint32_t modeValue = 0;
    if (RawInteger(data, *mode, modeValue) != TAVLO_SIGNAL_OK) {
        return false;
    }
    // A mode signal that is multiplexed itself must be present too.
    if (mode != &signal && !Present(manager, data, *mode, message, depth + 1)) {
        return false;
    }
    return modeValue == signal.mode_value;
}

inline bool Present(const TavloManager& manager, const unsigned char* data,
                    const sigblk& signal, const msgblk& message, int depth) {
    return (signal.flags & TAVLO_SIG_MULTIPLEXED) == 0 ||
           PresentMultiplexed(manager, data, signal, message, depth);
}

// The range rule: [0, 0] is no range.
unsigned int InRange(const sigblk& signal, double physical) {
    const double minimum = signal.minimum;
    const double maximum = signal.maximum;
    if (minimum == 0.0 && maximum == 0.0) {
        return TAVLO_SIGNAL_OK;
    }
    return physical > maximum || physical < minimum ? TAVLO_SIGNAL_OUT_OF_RANGE
                                                    : TAVLO_SIGNAL_OK;
}

// raw * factor + offset in extended precision, stored as a double.
double Physical(long double raw, const sigblk& signal) {
    const long double factor = signal.factor;
    const long double offset = signal.offset;
    return static_cast<double>(raw * factor + offset);
}

long double SignedOrNot(std::uint32_t raw, const sigblk& signal) {
    return IsSigned(signal) ? static_cast<long double>(static_cast<std::int32_t>(raw))
                            : static_cast<long double>(raw);
}

// Releases a block of the library's allocator.
struct ReleaseBlock {
    void operator()(unsigned char* block) const { TAVLO_MFREE(block); }
};

void LittleEndian(std::uint32_t value, unsigned char* image) {
    for (int i = 0; i < 4; ++i) {
        image[i] = static_cast<unsigned char>(value >> (8 * i));
    }
}

// A text made with printf, allocated to its exact length; null when memory
// runs out.
template <class... Args>
char* Printed(const char* format, Args... args) {
    const int length = std::snprintf(nullptr, 0, format, args...);
    if (length < 0) {
        return tavlo::model::DuplicateText("");
    }
    auto* text = static_cast<char*>(TAVLO_MALLOC(static_cast<std::size_t>(length) + 1));
    if (text != nullptr) {
        std::snprintf(text, static_cast<std::size_t>(length) + 1, format, args...);
    }
    return text;
}

}  // namespace

// ---- The bit layer --------------------------------------------------------------

unsigned int TavloManager::ExtractLong(const unsigned char* data, unsigned short startBit,
                                       unsigned short length, bool motorola) {
    return tavlo::codec::ReadLow32(data, startBit, length, motorola);
}

unsigned char* TavloManager::ExtractString(const unsigned char* data, unsigned short startBit,
                                           unsigned short length, bool motorola) {
    if (length >= 90) {
        return nullptr;
    }
    const std::size_t size = length <= 32 ? 5 : length <= 64 ? 9 : 13;
    auto* image = static_cast<unsigned char*>(TAVLO_MALLOC(size));
    if (image == nullptr) {
        return nullptr;
    }
    unsigned char field[kMaxImageBytes];
    tavlo::codec::ReadField(data, startBit, length, motorola, field);
    std::memcpy(image, field, size - 1);
    image[size - 1] = 0;
    return image;
}

void TavloManager::IncorporateValue(const unsigned char* value, unsigned short startBit,
                                    unsigned short length, bool motorola, unsigned char* data) {
    tavlo::codec::WriteField(value, (length + 7u) / 8u, startBit, length, motorola, data);
}

// ---- Raw values -------------------------------------------------------------------

namespace {

// Every case of the unsigned 32-bit raw read; the member below takes the
// common one itself and hands the rest here.
#if defined(__GNUC__) || defined(__clang__)
__attribute__((noinline))
#endif
unsigned int RawValueInEveryCase(const TavloManager& manager, const unsigned char* data,
                                 const sigblk& signal, const msgblk& message,
                                 unsigned int& raw) {
    std::uint32_t value = 0;
    const unsigned int result = RawInteger(data, signal, value);
    raw = value;
    if (result != TAVLO_SIGNAL_OK) {
        return result;
    }
    return Present(manager, data, signal, message, 0) ? TAVLO_SIGNAL_OK
                                                      : TAVLO_SIGNAL_NOT_PRESENT;
}

}  // namespace

unsigned int TavloManager::GetSignalRawValue(const unsigned char* data, const sigblk& signal,
                                             const msgblk& message, unsigned int& raw) const {
    // Decoding a frame calls this once per signal. A signal of 1 to 32 bits
    // in the first 8 bytes that is not multiplexed is read here without a
    // call; everything else goes the whole way.
    const unsigned int flags = signal.flags;
    const unsigned int length = signal.length;
    std::uint64_t aligned = 0;
    if ((flags & TAVLO_SIG_MULTIPLEXED) != 0 ||
        !tavlo::codec::AlignShortField(data, signal.start_bit, length,
                                       (flags & TAVLO_SIG_MOTOROLA) != 0, aligned)) {
        return RawValueInEveryCase(*this, data, signal, message, raw);
    }
    // The arithmetic shift extends the sign of a signed field.
    const std::uint32_t value =
        (flags & TAVLO_SIG_SIGNED) != 0
            ? static_cast<std::uint32_t>(static_cast<std::int64_t>(aligned) >> (64 - length))
            : static_cast<std::uint32_t>(aligned >> (64 - length));
    raw = value;
    return TAVLO_SIGNAL_OK;
}

unsigned int TavloManager::GetSignalRawValue(const unsigned char* data, const sigblk& signal,
                                             const msgblk& message, double& raw) const {
    const unsigned int valueType = signal.value_type;
    if (valueType == TAVLO_VALUE_FLOAT) {
        // 32 bits whatever the signal's own length says.
        const std::uint32_t bits =
            tavlo::codec::ReadLow32(data, signal.start_bit, 32, IsMotorola(signal));
        float single = 0;
        std::memcpy(&single, &bits, sizeof single);
        raw = single;
    } else if (valueType == TAVLO_VALUE_DOUBLE) {
        unsigned char image[kMaxImageBytes];
        tavlo::codec::ReadField(data, signal.start_bit, 64, IsMotorola(signal), image);
        std::memcpy(&raw, image, sizeof raw);
    } else {
        return TAVLO_SIGNAL_WRONG_TYPE;
    }
    return Present(*this, data, signal, message, 0) ? TAVLO_SIGNAL_OK
                                                    : TAVLO_SIGNAL_NOT_PRESENT;
}

unsigned int TavloManager::SetSignalRawValue(unsigned char* data, const sigblk& signal,
                                             const msgblk& message, unsigned int raw) const {
    const unsigned int length = signal.length;
    if (IsSigned(signal) && static_cast<std::int32_t>(raw) < 0 && length <= 32) {
        raw = Modulus(length) + raw;  // two's complement in length bits
    }
    unsigned char image[kMaxImageBytes] = {};
    LittleEndian(raw, image);
    tavlo::codec::WriteField(image, sizeof image, signal.start_bit, length, IsMotorola(signal),
                             data);
    // The bits are written before either check. Deliberate.
    if (length > 32) {
        return TAVLO_SIGNAL_TOO_LONG;
    }
    return Present(*this, data, signal, message, 0) ? TAVLO_SIGNAL_OK
                                                    : TAVLO_SIGNAL_NOT_PRESENT;
}

unsigned int TavloManager::SetSignalRawValue(unsigned char* data, const sigblk& signal,
                                             const msgblk& message, double raw) const {
    const unsigned int valueType = signal.value_type;
    unsigned char image[kMaxImageBytes] = {};
    unsigned int result = TAVLO_SIGNAL_OK;
    if (valueType == TAVLO_VALUE_DOUBLE) {
        std::memcpy(image, &raw, sizeof raw);
        tavlo::codec::WriteField(image, sizeof image, signal.start_bit, 64, IsMotorola(signal),
                                 data);
    } else if (valueType == TAVLO_VALUE_FLOAT) {
        const float single = static_cast<float>(raw);
        std::memcpy(image, &single, sizeof single);
        tavlo::codec::WriteField(image, sizeof image, signal.start_bit, 32, IsMotorola(signal),
                                 data);
    } else {
        std::memcpy(image, &raw, sizeof raw);
        tavlo::codec::WriteField(image, sizeof image, signal.start_bit, signal.length,
                                 IsMotorola(signal), data);
        return TAVLO_SIGNAL_WRONG_TYPE;
    }
    return Present(*this, data, signal, message, 0) ? result : TAVLO_SIGNAL_NOT_PRESENT;
}

unsigned int TavloManager::SetSignalRawValue(unsigned char* data, const sigblk& signal,
                                             const msgblk& message,
                                             const unsigned char* rawBytes) const {
    const unsigned int length = signal.length;
    tavlo::codec::WriteField(rawBytes, (length + 7u) / 8u, signal.start_bit, length,
                             IsMotorola(signal), data);
    return Present(*this, data, signal, message, 0) ? TAVLO_SIGNAL_OK
                                                    : TAVLO_SIGNAL_NOT_PRESENT;
}

bool TavloManager::CheckSignalModeValue(const unsigned char* data, const sigblk& signal,
                                        const msgblk& message) const {
    return Present(*this, data, signal, message, 0);
}

// ---- Raw and physical values ----------------------------------------------------------

unsigned int TavloManager::RawToPhysicalValue(unsigned int raw, const sigblk& signal,
                                              double& physical) const {
    physical = Physical(SignedOrNot(raw, signal), signal);
    return InRange(signal, physical);
}

unsigned int TavloManager::RawToPhysicalValue(double raw, const sigblk& signal,
                                              double& physical) const {
    const double factor = signal.factor;
    const double offset = signal.offset;
    physical = raw * factor + offset;
    return InRange(signal, physical);
}

unsigned int TavloManager::PhysicalToRawValue(double physical, const sigblk& signal,
                                              unsigned int& raw) const {
    const double offset = signal.offset;
    const double factor = signal.factor;
    // std::round rounds half away from zero exactly. Adding 0.5 and cutting
    // off the fraction does not: the addition itself rounds, so that the
    // double just below 0.5 gives 1, and an odd number above 2^52 the even
    // number above it.
    const double scaled = std::round((physical - offset) / factor);
    // The low 32 bits; values no 64-bit integer holds (and NaN) saturate
    // instead of being undefined.
    constexpr double kLimit = 9223372036854775808.0;  // 2^63
    if (!(scaled == scaled)) {
        raw = 0;
    } else if (scaled >= kLimit) {
        raw = 0xFFFFFFFFu;
    } else if (scaled <= -kLimit) {
        raw = 0x80000000u;
    } else {
        raw = static_cast<unsigned int>(static_cast<std::int64_t>(scaled));
    }
    return InRange(signal, physical);
}

unsigned int TavloManager::PhysicalToRawValue(double physical, const sigblk& signal,
                                              double& raw) const {
    const double offset = signal.offset;
    const double factor = signal.factor;
    raw = (physical - offset) / factor;
    return InRange(signal, physical);
}

unsigned int TavloManager::GetSignalValue(const unsigned char* data, const sigblk& signal,
                                          const msgblk& message, unsigned int& raw,
                                          double& physical) const {
    const unsigned int read = GetSignalRawValue(data, signal, message, raw);
    const unsigned int converted = RawToPhysicalValue(raw, signal, physical);
    return read != TAVLO_SIGNAL_OK ? read : converted;
}

unsigned int TavloManager::GetSignalValue(const unsigned char* data, const sigblk& signal,
                                          const msgblk& message, double& raw,
                                          double& physical) const {
    const unsigned int read = GetSignalRawValue(data, signal, message, raw);
    const unsigned int converted = RawToPhysicalValue(raw, signal, physical);
    return read != TAVLO_SIGNAL_OK ? read : converted;
}

unsigned int TavloManager::GetSignalPhysicalValue(const unsigned char* data,
                                                  const sigblk& signal, const msgblk& message,
                                                  double& physical) const {
    const unsigned int valueType = signal.value_type;
    if (valueType == TAVLO_VALUE_FLOAT || valueType == TAVLO_VALUE_DOUBLE) {
        double raw = 0;
        return GetSignalValue(data, signal, message, raw, physical);
    }
    unsigned int raw = 0;
    return GetSignalValue(data, signal, message, raw, physical);
}

unsigned int TavloManager::SetSignalPhysicalValue(unsigned char* data, const sigblk& signal,
                                                  const msgblk& message,
                                                  double physical) const {
    const unsigned int valueType = signal.value_type;
    unsigned int converted = TAVLO_SIGNAL_OK;
    unsigned int written = TAVLO_SIGNAL_OK;
    if (valueType == TAVLO_VALUE_FLOAT || valueType == TAVLO_VALUE_DOUBLE) {
        double raw = 0;
        converted = PhysicalToRawValue(physical, signal, raw);
        written = SetSignalRawValue(data, signal, message, raw);
    } else {
        unsigned int raw = 0;
        converted = PhysicalToRawValue(physical, signal, raw);
        written = SetSignalRawValue(data, signal, message, raw);
    }
    return written != TAVLO_SIGNAL_OK ? written : converted;
}

// ---- Values as text -----------------------------------------------------------------

unsigned int TavloManager::GetSignalValue(const unsigned char* data, const sigblk& signal,
                                          const msgblk& message, char*& text,
                                          TavloSigvalueFormat format,
                                          const char* formatString) const {
    text = nullptr;
    const unsigned int length = signal.length;
    // The field's image, released however this ends.
    std::unique_ptr<unsigned char, ReleaseBlock> image(
        ExtractString(data, signal.start_bit, signal.length, IsMotorola(signal)));
    if (image == nullptr) {
        return length >= 90 ? TAVLO_SIGNAL_NOT_EXTRACTED : TAVLO_SIGNAL_NO_MEMORY;
    }
    const unsigned char* bytes = image.get();
    if (static_cast<unsigned int>(format) > SigvalueBinary) {
        return TAVLO_SIGNAL_NOT_EXTRACTED;
    }
    const std::uint32_t word = static_cast<std::uint32_t>(bytes[0]) |
                               static_cast<std::uint32_t>(bytes[1]) << 8 |
                               static_cast<std::uint32_t>(bytes[2]) << 16 |
                               static_cast<std::uint32_t>(bytes[3]) << 24;
    // The word as the numeric formats see it: sign-extended when signed.
    std::uint32_t value = word;
    if (IsSigned(signal) && length <= 32 && value > Threshold(length)) {
        value -= Modulus(length);
    }
    const unsigned int byteCount = length == 0 ? 0 : (length - 1) / 8 + 1;
    double physical = 0;
    switch (format) {
        case SigvalueRawDec:
            text = Printed(formatString != nullptr ? formatString : "%d",
                           static_cast<int>(static_cast<std::int32_t>(value)));
            break;
        case SigvalueRawHex:
            text = Printed(formatString != nullptr ? formatString : "%x", word);
            break;
        case SigvaluePhys:
        case SigvaluePhysUnit: {
            const long double widened = IsSigned(signal) && length <= 32
                                            ? static_cast<long double>(static_cast<std::int32_t>(value))
                                            : static_cast<long double>(value);
            physical = Physical(widened, signal);
            if (format == SigvaluePhys) {
                text = Printed(formatString != nullptr ? formatString : "%lg", physical);
            } else {
                text = Printed(formatString != nullptr ? formatString : "%lg %s", physical,
                               signal.unit);
            }
            break;
        }
        case SigvalueBytesDec:
        case SigvalueBytesHex: {
            const bool decimal = format == SigvalueBytesDec;
            text = static_cast<char*>(TAVLO_MALLOC(byteCount * (decimal ? 4 : 3) + 1));
            if (text == nullptr) {
                break;
            }
            char* end = text;
            *end = '\0';
            for (unsigned int i = byteCount; i-- > 0;) {
                const bool first = i + 1 == byteCount;
                const char* pattern = decimal ? (first ? "%3d" : " %3d") : (first ? "%02X" : " %02X");
                end += std::sprintf(end, pattern, bytes[i]);
            }
            break;
        }
        case SigvalueDescription: {
            const char* description =
                GetValueDescription(signal, static_cast<long>(static_cast<std::int32_t>(word)));
            if (description == nullptr) {
                return TAVLO_SIGNAL_NOT_EXTRACTED;
            }
            text = tavlo::model::DuplicateText(description);
            break;
        }
        case SigvalueRawBytes:
            text = reinterpret_cast<char*>(image.release());  // the caller's now
            break;
        case SigvalueBinary:
            if (length > 96) {
                return TAVLO_SIGNAL_NOT_EXTRACTED;
            }
            text = static_cast<char*>(TAVLO_MALLOC(length + 1));
            if (text != nullptr) {
                for (unsigned int bit = 0; bit < length; ++bit) {
                    const unsigned int at = length - 1 - bit;
                    text[bit] = ((bytes[at / 8] >> (at % 8)) & 1u) != 0 ? '1' : '0';
                }
                text[length] = '\0';
            }
            break;
    }
    if (text == nullptr) {
        return TAVLO_SIGNAL_NO_MEMORY;
    }
    const bool numeric = format == SigvalueRawDec || format == SigvalueRawHex ||
                         format == SigvaluePhys || format == SigvaluePhysUnit;
    if (numeric && length > 32) {
        return TAVLO_SIGNAL_TOO_LONG;
    }
    if ((format == SigvaluePhys || format == SigvaluePhysUnit) &&
        InRange(signal, physical) != TAVLO_SIGNAL_OK) {
        return TAVLO_SIGNAL_OUT_OF_RANGE;
    }
    return Present(*this, data, signal, message, 0) ? TAVLO_SIGNAL_OK
                                                    : TAVLO_SIGNAL_NOT_PRESENT;
}
