// Signal values as the manager reads and writes them: raw values of integer,
// float and double signals with their sign and length rules, presence of
// multiplexed signals, conversion between raw and physical values with the
// range rule, and the text formats of GetSignalValue.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <limits>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "codec/support.h"
#include "model/model.h"
#include "tavloms/tavloms.h"

namespace {

using tavlo::test::Hex;

using Frame = std::array<unsigned char, 16>;

Frame FrameOf(std::initializer_list<unsigned char> bytes, unsigned char fill = 0) {
    Frame frame;
    frame.fill(fill);
    std::size_t i = 0;
    for (unsigned char byte : bytes) {
        frame[i++] = byte;
    }
    return frame;
}

std::string Hex(const Frame& frame, std::size_t count = 8) {
    return Hex(frame.data(), count);
}

struct TextFree {
    void operator()(char* text) const { TAVLO_MFREE(text); }
};
using Text = std::unique_ptr<char, TextFree>;

struct ImageFree {
    void operator()(unsigned char* image) const { TAVLO_MFREE(image); }
};
using Image = std::unique_ptr<unsigned char, ImageFree>;

// The bytes of a float or double, least significant first.
template <class T>
std::vector<unsigned char> LittleEndianImage(T value) {
    std::uint64_t bits = 0;
    if constexpr (sizeof(T) == 4) {
        std::uint32_t narrow = 0;
        std::memcpy(&narrow, &value, 4);
        bits = narrow;
    } else {
        std::memcpy(&bits, &value, 8);
    }
    std::vector<unsigned char> image(sizeof(T));
    for (std::size_t i = 0; i < sizeof(T); ++i) {
        image[i] = static_cast<unsigned char>(bits >> (8 * i));
    }
    return image;
}

// A signal's layout and scaling, for the tables.
struct Layout {
    unsigned int flags;
    unsigned int startBit;
    unsigned int length;
    double factor = 1.0;
    double offset = 0.0;
    double minimum = 0.0;
    double maximum = 0.0;
    const char* unit = "";
    unsigned int valueType = TAVLO_VALUE_INTEGER;
};

void Apply(const Layout& layout, sigblk& signal) {
    signal.start_bit = static_cast<unsigned short>(layout.startBit);
    signal.length = static_cast<unsigned short>(layout.length);
    signal.flags = static_cast<unsigned char>(layout.flags);
    signal.factor = layout.factor;
    signal.offset = layout.offset;
    signal.minimum = layout.minimum;
    signal.maximum = layout.maximum;
    std::strncpy(signal.unit, layout.unit, sizeof signal.unit - 1);
    signal.value_type = layout.valueType;
}

sigblk SignalOf(const Layout& layout) {
    sigblk signal{};
    Apply(layout, signal);
    return signal;
}

// Value descriptions, released with the list.
class Descriptions {
public:
    Descriptions(std::initializer_list<std::pair<int, const char*>> entries) {
        val* last = nullptr;
        for (const auto& [value, text] : entries) {
            auto* entry = static_cast<val*>(TAVLO_MALLOC(sizeof(val)));
            entry->value = value;
            std::strncpy(entry->text, text, sizeof entry->text - 1);
            if (last == nullptr) {
                head_ = entry;
            } else {
                last->next = entry;
            }
            last = entry;
        }
    }
    ~Descriptions() {
        while (head_ != nullptr) {
            val* next = head_->next;
            TAVLO_MFREE(head_);
            head_ = next;
        }
    }
    Descriptions(const Descriptions&) = delete;
    Descriptions& operator=(const Descriptions&) = delete;
    val* Head() const { return head_; }

private:
    val* head_ = nullptr;
};

// A message made with the library's constructors; its signals in the order
// added. Released with everything in it.
class Message {
public:
    Message() : message_(TAVLO_CREATE_MSGBLK()) {}
    ~Message() {
        msgblk* head = message_;
        CAN_DELETE_MSG(&head, message_);
    }
    Message(const Message&) = delete;
    Message& operator=(const Message&) = delete;

    sigblk* Add(const char* name, const Layout& layout, unsigned int modeValue = 0) {
        sigblk* signal = TAVLO_CREATE_SIGBLK();
        std::strncpy(signal->name, name, sizeof signal->name - 1);
        Apply(layout, *signal);
        signal->mode_value = modeValue;
        CAN_INSERT_SIG(message_, signal, count_++);
        return signal;
    }
    const msgblk& Get() const { return *message_; }

private:
    msgblk* message_;
    unsigned int count_ = 0;
};

constexpr unsigned int kIntel = 0;
constexpr unsigned int kMotorola = TAVLO_SIG_MOTOROLA;
constexpr unsigned int kSigned = TAVLO_SIG_SIGNED;

class SignalValues : public ::testing::Test {
protected:
    TavloManager manager{static_cast<void*>(nullptr)};
    const msgblk noMessage{};  // for signals that are not multiplexed
};

// ---- Raw integer values -------------------------------------------------------------

struct RawReadCase {
    const char* what;
    Layout layout;
    Frame frame;
    std::uint32_t raw;
    unsigned int result;
};

TEST_F(SignalValues, IntegerRawRead) {
    const RawReadCase cases[] = {
        {"unsigned byte", {kIntel, 0, 8}, FrameOf({0xFF}), 255u, TAVLO_SIGNAL_OK},
        {"signed byte holding 0xFF", {kSigned, 0, 8}, FrameOf({0xFF}), 4294967295u,
         TAVLO_SIGNAL_OK},
        {"signed byte, positive", {kSigned, 0, 8}, FrameOf({0x7F}), 0x7Fu, TAVLO_SIGNAL_OK},
        {"signed nibble at bit 4", {kSigned, 4, 4}, FrameOf({0x8F}), 0xFFFFFFF8u,
         TAVLO_SIGNAL_OK},
        {"signed single bit", {kSigned, 3, 1}, FrameOf({0x08}), 0xFFFFFFFFu, TAVLO_SIGNAL_OK},
        {"signed, 32 bits", {kSigned, 0, 32}, FrameOf({0x00, 0x00, 0x00, 0x80}), 0x80000000u,
         TAVLO_SIGNAL_OK},
        {"signed Motorola, 12 bits", {kSigned | kMotorola, 7, 12}, FrameOf({0x80, 0x1F}),
         0xFFFFF801u, TAVLO_SIGNAL_OK},
        {"signed, 33 bits: the low 32 unextended", {kSigned, 0, 33},
         FrameOf({0x01, 0x00, 0x00, 0x80, 0x01}), 0x80000001u, TAVLO_SIGNAL_TOO_LONG},
        {"unsigned, 40 bits: the low 32", {kIntel, 0, 40},
         FrameOf({0x78, 0x56, 0x34, 0x12, 0xAB}), 0x12345678u, TAVLO_SIGNAL_OK},
    };
    for (const RawReadCase& c : cases) {
        SCOPED_TRACE(c.what);
        const sigblk signal = SignalOf(c.layout);
        unsigned int raw = 0xDEADBEEF;
        EXPECT_EQ(manager.GetSignalRawValue(c.frame.data(), signal, noMessage, raw), c.result);
        EXPECT_EQ(raw, c.raw);
    }
}

struct RawWriteCase {
    const char* what;
    Layout layout;
    Frame before;
    std::uint32_t raw;
    Frame after;
    unsigned int result;
};

TEST_F(SignalValues, IntegerRawWrite) {
    const RawWriteCase cases[] = {
        {"-1 into a signed nibble keeps the other nibble", {kSigned, 4, 4}, FrameOf({0x05}),
         0xFFFFFFFFu, FrameOf({0xF5}), TAVLO_SIGNAL_OK},
        {"-8 into a signed nibble", {kSigned, 0, 4}, FrameOf({0xA0}), 0xFFFFFFF8u,
         FrameOf({0xA8}), TAVLO_SIGNAL_OK},
        {"unsigned value cut to the length", {kIntel, 0, 8}, FrameOf({0x00, 0xEE}), 0x1FFu,
         FrameOf({0xFF, 0xEE}), TAVLO_SIGNAL_OK},
        {"signed Motorola, 12 bits", {kSigned | kMotorola, 7, 12}, FrameOf({0x00, 0x0F}),
         0xFFFFF801u, FrameOf({0x80, 0x1F}), TAVLO_SIGNAL_OK},
        {"40 bits: written, then 3", {kIntel, 0, 40}, FrameOf({}, 0xFF), 0x12345678u,
         FrameOf({0x78, 0x56, 0x34, 0x12, 0x00}, 0xFF), TAVLO_SIGNAL_TOO_LONG},
    };
    for (const RawWriteCase& c : cases) {
        SCOPED_TRACE(c.what);
        const sigblk signal = SignalOf(c.layout);
        Frame frame = c.before;
        EXPECT_EQ(manager.SetSignalRawValue(frame.data(), signal, noMessage, c.raw), c.result);
        EXPECT_EQ(Hex(frame, 16), Hex(c.after, 16));
    }
}

// The image form writes the low length bits of a little-endian image.
TEST_F(SignalValues, RawWriteFromImage) {
    const unsigned char image[] = {0xBC, 0xFA, 0xFF};
    const sigblk motorola = SignalOf({kMotorola, 7, 12});
    const sigblk intel = SignalOf({kIntel, 4, 12});
    Frame frame = FrameOf({});
    EXPECT_EQ(manager.SetSignalRawValue(frame.data(), motorola, noMessage, image), TAVLO_SIGNAL_OK);
    EXPECT_EQ(Hex(frame, 3), "AB C0 00");
    frame = FrameOf({}, 0xFF);
    EXPECT_EQ(manager.SetSignalRawValue(frame.data(), intel, noMessage, image), TAVLO_SIGNAL_OK);
    EXPECT_EQ(Hex(frame, 3), "CF AB FF");
}

// ---- Multiplexed signals ------------------------------------------------------------

// The message's first mode signal decides; a multiplexed signal is there when
// it holds the signal's mode_value. Reads and writes still happen when it is
// not, and say so with 5.
TEST_F(SignalValues, MultiplexedPresence) {
    Message message;
    sigblk* muxed = message.Add("Muxed", {TAVLO_SIG_MULTIPLEXED, 8, 8}, 3);
    sigblk* plain = message.Add("Plain", {kIntel, 16, 8});
    message.Add("Mode", {TAVLO_SIG_MODE, 0, 8});
    message.Add("LaterMode", {TAVLO_SIG_MODE, 24, 8});
    const msgblk& msg = message.Get();

    const Frame selected = FrameOf({3, 0x42, 0x10, 4});
    const Frame other = FrameOf({4, 0x42, 0x10, 3});  // only the later mode signal holds 3

    EXPECT_TRUE(manager.CheckSignalModeValue(selected.data(), *muxed, msg));
    EXPECT_FALSE(manager.CheckSignalModeValue(other.data(), *muxed, msg));
    EXPECT_TRUE(manager.CheckSignalModeValue(other.data(), *plain, msg));

    unsigned int raw = 0;
    EXPECT_EQ(manager.GetSignalRawValue(selected.data(), *muxed, msg, raw), TAVLO_SIGNAL_OK);
    EXPECT_EQ(raw, 0x42u);
    raw = 0;
    EXPECT_EQ(manager.GetSignalRawValue(other.data(), *muxed, msg, raw), TAVLO_SIGNAL_NOT_PRESENT);
    EXPECT_EQ(raw, 0x42u);
    EXPECT_EQ(manager.GetSignalRawValue(other.data(), *plain, msg, raw), TAVLO_SIGNAL_OK);
    EXPECT_EQ(raw, 0x10u);

    Frame frame = other;
    EXPECT_EQ(manager.SetSignalRawValue(frame.data(), *muxed, msg, 0x99u),
              TAVLO_SIGNAL_NOT_PRESENT);
    EXPECT_EQ(Hex(frame, 4), "04 99 10 03");
    frame = selected;
    EXPECT_EQ(manager.SetSignalRawValue(frame.data(), *muxed, msg, 0x99u), TAVLO_SIGNAL_OK);
    EXPECT_EQ(Hex(frame, 4), "03 99 10 04");

    double physical = 0;
    EXPECT_EQ(manager.GetSignalPhysicalValue(other.data(), *muxed, msg, physical),
              TAVLO_SIGNAL_NOT_PRESENT);
    EXPECT_DOUBLE_EQ(physical, 66.0);
    frame = other;
    EXPECT_EQ(manager.SetSignalPhysicalValue(frame.data(), *muxed, msg, 7.0),
              TAVLO_SIGNAL_NOT_PRESENT);
    EXPECT_EQ(Hex(frame, 4), "04 07 10 03");

    // Absence comes before the range.
    muxed->maximum = 100.0;
    frame = other;
    EXPECT_EQ(manager.SetSignalPhysicalValue(frame.data(), *muxed, msg, 200.0),
              TAVLO_SIGNAL_NOT_PRESENT);
    EXPECT_EQ(Hex(frame, 4), "04 C8 10 03");
    EXPECT_EQ(manager.GetSignalValue(frame.data(), *muxed, msg, raw, physical),
              TAVLO_SIGNAL_NOT_PRESENT);
    EXPECT_DOUBLE_EQ(physical, 200.0);
}

TEST_F(SignalValues, MultiplexedWithoutModeSignalIsAbsent) {
    Message message;
    sigblk* muxed = message.Add("Muxed", {TAVLO_SIG_MULTIPLEXED, 8, 8}, 0);
    const Frame frame = FrameOf({});
    EXPECT_FALSE(manager.CheckSignalModeValue(frame.data(), *muxed, message.Get()));
    unsigned int raw = 1;
    EXPECT_EQ(manager.GetSignalRawValue(frame.data(), *muxed, message.Get(), raw),
              TAVLO_SIGNAL_NOT_PRESENT);
    EXPECT_EQ(raw, 0u);
}

TEST_F(SignalValues, MultiplexedFloatSignal) {
    Message message;
    message.Add("Mode", {TAVLO_SIG_MODE, 0, 4});
    Layout layout{TAVLO_SIG_MULTIPLEXED, 8, 32};
    layout.valueType = TAVLO_VALUE_FLOAT;
    sigblk* muxed = message.Add("Muxed", layout, 2);
    Frame frame = FrameOf({0x01});
    EXPECT_EQ(manager.SetSignalRawValue(frame.data(), *muxed, message.Get(), 2.5),
              TAVLO_SIGNAL_NOT_PRESENT);
    double raw = 0;
    EXPECT_EQ(manager.GetSignalRawValue(frame.data(), *muxed, message.Get(), raw),
              TAVLO_SIGNAL_NOT_PRESENT);
    EXPECT_EQ(raw, 2.5);
    frame[0] = 0xF2;  // the mode signal is the low nibble only
    EXPECT_EQ(manager.GetSignalRawValue(frame.data(), *muxed, message.Get(), raw),
              TAVLO_SIGNAL_OK);
}

// ---- Float and double signals -------------------------------------------------------

TEST_F(SignalValues, FloatSignalReads) {
    Layout intelLayout{kIntel, 8, 32};
    intelLayout.valueType = TAVLO_VALUE_FLOAT;
    Layout motorolaLayout{kMotorola, 15, 32};
    motorolaLayout.valueType = TAVLO_VALUE_FLOAT;
    const sigblk intel = SignalOf(intelLayout);
    const sigblk motorola = SignalOf(motorolaLayout);
    // 1.5f is 0x3FC00000; both frames hold it from byte 1 on.
    const Frame little = FrameOf({0xEE, 0x00, 0x00, 0xC0, 0x3F, 0xEE});
    const Frame big = FrameOf({0xEE, 0x3F, 0xC0, 0x00, 0x00, 0xEE});

    unsigned int bits = 0;
    EXPECT_EQ(manager.GetSignalRawValue(little.data(), intel, noMessage, bits), TAVLO_SIGNAL_OK);
    EXPECT_EQ(bits, 0x3FC00000u);
    EXPECT_EQ(manager.GetSignalRawValue(big.data(), motorola, noMessage, bits), TAVLO_SIGNAL_OK);
    EXPECT_EQ(bits, 0x3FC00000u);

    double value = 0;
    EXPECT_EQ(manager.GetSignalRawValue(little.data(), intel, noMessage, value), TAVLO_SIGNAL_OK);
    EXPECT_EQ(value, 1.5);
    value = 0;
    EXPECT_EQ(manager.GetSignalRawValue(big.data(), motorola, noMessage, value), TAVLO_SIGNAL_OK);
    EXPECT_EQ(value, 1.5);

    const sigblk integer = SignalOf({kIntel, 8, 32});
    EXPECT_EQ(manager.GetSignalRawValue(little.data(), integer, noMessage, value),
              TAVLO_SIGNAL_WRONG_TYPE);
}

TEST_F(SignalValues, FloatSignalWrites) {
    for (const unsigned int order : {kIntel, kMotorola}) {
        SCOPED_TRACE(order == kMotorola ? "Motorola" : "Intel");
        Layout layout{order, order == kMotorola ? 15u : 8u, 32};
        layout.valueType = TAVLO_VALUE_FLOAT;
        const sigblk signal = SignalOf(layout);
        Frame frame = FrameOf({}, 0xEE);
        EXPECT_EQ(manager.SetSignalRawValue(frame.data(), signal, noMessage, -0.1),
                  TAVLO_SIGNAL_OK);
        std::vector<unsigned char> image = LittleEndianImage(-0.1f);
        if (order == kMotorola) {
            std::reverse(image.begin(), image.end());
        }
        EXPECT_EQ(Hex(frame, 6), "EE " + Hex(image.data(), 4) + " EE");
        double back = 0;
        EXPECT_EQ(manager.GetSignalRawValue(frame.data(), signal, noMessage, back),
                  TAVLO_SIGNAL_OK);
        EXPECT_EQ(back, static_cast<double>(-0.1f));
    }
}

// Double signals round trip in both byte orders, in the first 8 bytes and
// beyond, and lie in the frame as their 8 bytes in the signal's order.
TEST_F(SignalValues, DoubleSignalsRoundTrip) {
    const double values[] = {0.0,
                             -1.5,
                             3.141592653589793,
                             1e300,
                             -2.2250738585072014e-308,
                             std::numeric_limits<double>::denorm_min(),
                             -std::numeric_limits<double>::infinity()};
    const struct {
        unsigned int order;
        unsigned int startBit;
        std::size_t firstByte;
    } places[] = {{kIntel, 0, 0}, {kIntel, 64, 8}, {kMotorola, 7, 0}, {kMotorola, 71, 8}};
    for (const auto& place : places) {
        Layout layout{place.order, place.startBit, 64};
        layout.valueType = TAVLO_VALUE_DOUBLE;
        const sigblk signal = SignalOf(layout);
        for (double value : values) {
            SCOPED_TRACE(std::string(place.order == kMotorola ? "Motorola" : "Intel") +
                         " start " + std::to_string(place.startBit) + " value " +
                         std::to_string(value));
            Frame frame = FrameOf({}, 0xA5);
            EXPECT_EQ(manager.SetSignalRawValue(frame.data(), signal, noMessage, value),
                      TAVLO_SIGNAL_OK);
            std::vector<unsigned char> image = LittleEndianImage(value);
            if (place.order == kMotorola) {
                std::reverse(image.begin(), image.end());
            }
            EXPECT_EQ(Hex(frame.data() + place.firstByte, 8), Hex(image.data(), 8));
            EXPECT_EQ(frame[place.firstByte == 0 ? 8 : 7], 0xA5);
            double back = 0;
            EXPECT_EQ(manager.GetSignalRawValue(frame.data(), signal, noMessage, back),
                      TAVLO_SIGNAL_OK);
            EXPECT_EQ(back, value);
        }
    }
}

// A double handed to an integer signal: the field gets the low bits of the
// double's image, and the call says the type was wrong.
TEST_F(SignalValues, DoubleIntoIntegerSignal) {
    const std::uint64_t bits = 0x4000000000000ABCull;
    double value = 0;
    std::memcpy(&value, &bits, sizeof value);
    const sigblk signal = SignalOf({kIntel, 4, 12});
    Frame frame = FrameOf({}, 0xFF);
    EXPECT_EQ(manager.SetSignalRawValue(frame.data(), signal, noMessage, value),
              TAVLO_SIGNAL_WRONG_TYPE);
    EXPECT_EQ(Hex(frame, 3), "CF AB FF");
}

// ---- Raw and physical values --------------------------------------------------------

struct ToPhysicalCase {
    const char* what;
    Layout layout;
    std::uint32_t raw;
    double physical;
    unsigned int result;
};

TEST_F(SignalValues, RawToPhysical) {
    const ToPhysicalCase cases[] = {
        {"factor and offset", {kIntel, 0, 8, 0.5, -40.0}, 200, 60.0, TAVLO_SIGNAL_OK},
        {"signed: the raw as a signed 32-bit number", {kSigned, 0, 8}, 0xFFFFFFFFu, -1.0,
         TAVLO_SIGNAL_OK},
        {"unsigned: the raw as an unsigned number", {kIntel, 0, 32}, 0xFFFFFFFFu, 4294967295.0,
         TAVLO_SIGNAL_OK},
        {"signed, with factor and offset", {kSigned, 0, 16, 0.25, 100.0}, 0xFFFFFF9Cu, 75.0,
         TAVLO_SIGNAL_OK},
        {"[0, 0] is no range", {kIntel, 0, 32, 1000.0}, 0xFFFFFFFFu, 4294967295000.0,
         TAVLO_SIGNAL_OK},
        {"the upper limit is inside", {kIntel, 0, 8, 1.0, 0.0, 0.0, 100.0}, 100, 100.0,
         TAVLO_SIGNAL_OK},
        {"above the upper limit", {kIntel, 0, 16, 0.1, 0.0, 0.0, 100.0}, 1001, 100.1,
         TAVLO_SIGNAL_OUT_OF_RANGE},
        {"the lower limit is inside", {kIntel, 0, 8, 1.0, -10.0, -10.0, 10.0}, 0, -10.0,
         TAVLO_SIGNAL_OK},
        {"below the lower limit", {kSigned, 0, 8, 1.0, 0.0, -10.0, 10.0}, 0xFFFFFFF5u, -11.0,
         TAVLO_SIGNAL_OUT_OF_RANGE},
        {"a range with one zero limit is a range", {kIntel, 0, 8, 1.0, 0.0, -5.0, 0.0}, 1, 1.0,
         TAVLO_SIGNAL_OUT_OF_RANGE},
    };
    for (const ToPhysicalCase& c : cases) {
        SCOPED_TRACE(c.what);
        const sigblk signal = SignalOf(c.layout);
        double physical = 0;
        EXPECT_EQ(manager.RawToPhysicalValue(c.raw, signal, physical), c.result);
        EXPECT_DOUBLE_EQ(physical, c.physical);
        // The double form scales the value as it is.
        const double raw = (c.layout.flags & kSigned) != 0
                               ? static_cast<double>(static_cast<std::int32_t>(c.raw))
                               : static_cast<double>(c.raw);
        physical = 0;
        EXPECT_EQ(manager.RawToPhysicalValue(raw, signal, physical), c.result);
        EXPECT_DOUBLE_EQ(physical, c.physical);
    }
}

struct ToRawCase {
    const char* what;
    Layout layout;
    double physical;
    std::uint32_t raw;
    unsigned int result;
};

TEST_F(SignalValues, PhysicalToRaw) {
    const double justBelowHalf = std::nextafter(0.5, 0.0);
    const ToRawCase cases[] = {
        {"half rounds away from zero", {kIntel, 0, 8, 0.5}, 1.25, 3, TAVLO_SIGNAL_OK},
        {"negative half rounds away from zero", {kSigned, 0, 8, 0.5}, -1.25, 0xFFFFFFFDu,
         TAVLO_SIGNAL_OK},
        {"below half rounds down", {kIntel, 0, 8, 0.5}, 1.24, 2, TAVLO_SIGNAL_OK},
        {"above minus half rounds up", {kSigned, 0, 8, 0.5}, -1.24, 0xFFFFFFFEu, TAVLO_SIGNAL_OK},
        {"the offset comes off first", {kIntel, 0, 8, 0.5, -40.0}, 60.0, 200, TAVLO_SIGNAL_OK},
        {"just below one half is zero", {kIntel, 0, 8}, justBelowHalf, 0, TAVLO_SIGNAL_OK},
        {"just above minus one half is zero", {kSigned, 0, 8}, -justBelowHalf, 0,
         TAVLO_SIGNAL_OK},
        {"an odd whole number above 2^52 stays itself", {kIntel, 0, 32}, 4503599627370497.0, 1,
         TAVLO_SIGNAL_OK},
        {"the low 32 bits of a large result", {kIntel, 0, 32}, 4294967296.0 + 5.0, 5,
         TAVLO_SIGNAL_OK},
        {"the upper limit is inside", {kIntel, 0, 8, 1.0, 0.0, 0.0, 100.0}, 100.0, 100,
         TAVLO_SIGNAL_OK},
        {"out of range is converted all the same", {kIntel, 0, 8, 1.0, 0.0, 0.0, 100.0}, 100.1,
         100, TAVLO_SIGNAL_OUT_OF_RANGE},
        {"[0, 0] is no range", {kIntel, 0, 8}, 1e6, 1000000, TAVLO_SIGNAL_OK},
    };
    for (const ToRawCase& c : cases) {
        SCOPED_TRACE(c.what);
        const sigblk signal = SignalOf(c.layout);
        unsigned int raw = 0xDEADBEEF;
        EXPECT_EQ(manager.PhysicalToRawValue(c.physical, signal, raw), c.result);
        EXPECT_EQ(raw, c.raw);
    }
}

TEST_F(SignalValues, PhysicalToRawUnrounded) {
    const sigblk signal = SignalOf({kIntel, 0, 32, 0.5, -40.0, 0.0, 100.0});
    double raw = 0;
    EXPECT_EQ(manager.PhysicalToRawValue(61.3, signal, raw), TAVLO_SIGNAL_OK);
    EXPECT_DOUBLE_EQ(raw, 202.6);
    EXPECT_EQ(manager.PhysicalToRawValue(-50.0, signal, raw), TAVLO_SIGNAL_OUT_OF_RANGE);
    EXPECT_DOUBLE_EQ(raw, -20.0);
}

// Raw values of random signals through physical and back come out as they
// went in, whatever the scaling.
TEST_F(SignalValues, RawPhysicalRawRoundTrip) {
    const std::uint32_t seed = tavlo::test::CodecSeed(10);
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    const double factors[] = {1.0, 0.5, 0.1, 0.01, 0.125, 2.0, 1.0 / 3.0, 0.0625, 10.0};
    int failures = 0;
    constexpr int kCases = 20000;
    for (int n = 0; n < kCases; ++n) {
        Layout layout{std::uniform_int_distribution<int>(0, 1)(random) == 1 ? kSigned : kIntel, 0,
                      std::uniform_int_distribution<unsigned int>(1, 32)(random)};
        layout.factor = factors[std::uniform_int_distribution<std::size_t>(0, 8)(random)];
        layout.offset = std::uniform_int_distribution<int>(-1000, 1000)(random) / 4.0;
        const sigblk signal = SignalOf(layout);
        std::uint32_t raw = random();
        if (layout.length < 32) {
            raw &= (1u << layout.length) - 1;
            if ((layout.flags & kSigned) != 0 && (raw >> (layout.length - 1)) != 0) {
                raw |= ~((1u << layout.length) - 1);
            }
        }
        double physical = 0;
        unsigned int back = 0;
        manager.RawToPhysicalValue(raw, signal, physical);
        manager.PhysicalToRawValue(physical, signal, back);
        if (back != raw && ++failures <= 10) {
            ADD_FAILURE() << "raw " << raw << ((layout.flags & kSigned) != 0 ? " signed" : "")
                          << " length " << layout.length << " factor " << layout.factor
                          << " offset " << layout.offset << ": physical " << physical
                          << " gives " << back;
        }
    }
    EXPECT_EQ(failures, 0) << "of " << kCases << " cases";
}

TEST_F(SignalValues, GetPhysicalValue) {
    unsigned int raw = 0;
    double physical = 0;
    const Frame frame = FrameOf({200, 0xFF});

    const sigblk scaled = SignalOf({kIntel, 0, 8, 0.5, -40.0});
    EXPECT_EQ(manager.GetSignalValue(frame.data(), scaled, noMessage, raw, physical),
              TAVLO_SIGNAL_OK);
    EXPECT_EQ(raw, 200u);
    EXPECT_DOUBLE_EQ(physical, 60.0);
    physical = 0;
    EXPECT_EQ(manager.GetSignalPhysicalValue(frame.data(), scaled, noMessage, physical),
              TAVLO_SIGNAL_OK);
    EXPECT_DOUBLE_EQ(physical, 60.0);

    const sigblk signedByte = SignalOf({kSigned, 8, 8});
    EXPECT_EQ(manager.GetSignalPhysicalValue(frame.data(), signedByte, noMessage, physical),
              TAVLO_SIGNAL_OK);
    EXPECT_DOUBLE_EQ(physical, -1.0);

    // Out of range: 4, the value delivered.
    const sigblk limited = SignalOf({kIntel, 0, 8, 1.0, 0.0, 0.0, 100.0});
    EXPECT_EQ(manager.GetSignalValue(frame.data(), limited, noMessage, raw, physical),
              TAVLO_SIGNAL_OUT_OF_RANGE);
    EXPECT_DOUBLE_EQ(physical, 200.0);

    // The read's code comes before the conversion's.
    const sigblk tooLong = SignalOf({kSigned, 0, 33, 1.0, 0.0, 0.0, 1.0});
    EXPECT_EQ(manager.GetSignalValue(frame.data(), tooLong, noMessage, raw, physical),
              TAVLO_SIGNAL_TOO_LONG);

    Layout floatLayout{kIntel, 0, 32, 2.0, 1.0};
    floatLayout.valueType = TAVLO_VALUE_FLOAT;
    const sigblk floating = SignalOf(floatLayout);
    const Frame single = FrameOf({0x00, 0x00, 0xC0, 0x3F});  // 1.5f
    EXPECT_EQ(manager.GetSignalPhysicalValue(single.data(), floating, noMessage, physical),
              TAVLO_SIGNAL_OK);
    EXPECT_DOUBLE_EQ(physical, 4.0);
    double rawDouble = 0;
    EXPECT_EQ(manager.GetSignalValue(single.data(), floating, noMessage, rawDouble, physical),
              TAVLO_SIGNAL_OK);
    EXPECT_EQ(rawDouble, 1.5);

    Layout doubleLayout{kMotorola, 7, 64, 0.5, 0.0, -1.0, 1.0};
    doubleLayout.valueType = TAVLO_VALUE_DOUBLE;
    const sigblk wide = SignalOf(doubleLayout);
    const Frame big = FrameOf({0x40, 0x08, 0, 0, 0, 0, 0, 0});  // 3.0
    EXPECT_EQ(manager.GetSignalPhysicalValue(big.data(), wide, noMessage, physical),
              TAVLO_SIGNAL_OUT_OF_RANGE);
    EXPECT_DOUBLE_EQ(physical, 1.5);
}

TEST_F(SignalValues, SetPhysicalValue) {
    const struct {
        const char* what;
        Layout layout;
        double physical;
        const char* bytes;
        unsigned int result;
    } cases[] = {
        {"factor and offset", {kIntel, 8, 8, 0.5, -40.0}, 60.0, "EE C8 EE", TAVLO_SIGNAL_OK},
        {"signed, rounded away from zero", {kSigned, 8, 8, 0.5}, -1.25, "EE FD EE",
         TAVLO_SIGNAL_OK},
        {"out of range: written, then 4", {kIntel, 8, 8, 1.0, 0.0, 0.0, 100.0}, 100.1,
         "EE 64 EE", TAVLO_SIGNAL_OUT_OF_RANGE},
        {"Motorola nibble", {kMotorola, 11, 4, 2.0}, 10.0, "EE E5 EE", TAVLO_SIGNAL_OK},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        const sigblk signal = SignalOf(c.layout);
        Frame frame = FrameOf({}, 0xEE);
        EXPECT_EQ(manager.SetSignalPhysicalValue(frame.data(), signal, noMessage, c.physical),
                  c.result);
        EXPECT_EQ(Hex(frame, 3), c.bytes);
    }

    Layout floatLayout{kIntel, 0, 32, 2.0, 1.0};
    floatLayout.valueType = TAVLO_VALUE_FLOAT;
    const sigblk floating = SignalOf(floatLayout);
    Frame frame = FrameOf({});
    EXPECT_EQ(manager.SetSignalPhysicalValue(frame.data(), floating, noMessage, 4.0),
              TAVLO_SIGNAL_OK);
    EXPECT_EQ(Hex(frame, 4), Hex(LittleEndianImage(1.5f).data(), 4));
}

// ---- Values as text -----------------------------------------------------------------

struct TextCase {
    const char* what;
    Layout layout;
    Frame frame;
    TavloSigvalueFormat format;
    const char* formatString;
    const char* text;
    unsigned int result;
};

Layout Scaled(unsigned int flags, unsigned int startBit, unsigned int length, double factor,
              double offset, const char* unit, double minimum = 0.0, double maximum = 0.0) {
    Layout layout{flags, startBit, length, factor, offset, minimum, maximum, unit};
    return layout;
}

TEST_F(SignalValues, FormattedText) {
    const Layout signedByte{kSigned, 0, 8};
    const Layout twelveBits{kIntel, 0, 12};
    const Frame abc = FrameOf({0xBC, 0x0A});
    const Layout wide = Scaled(kIntel, 0, 40, 1.0, 0.0, "V");
    const Frame wideFrame = FrameOf({0x78, 0x56, 0x34, 0x12, 0xAB});
    const Layout limited = Scaled(kIntel, 0, 8, 1.0, 0.0, "V", 0.0, 100.0);
    const Frame twoHundred = FrameOf({200});
    const Layout speed = Scaled(kIntel, 0, 8, 0.5, 0.0, "km/h");
    const Frame speedFrame = FrameOf({25});

    const TextCase cases[] = {
        {"decimal, sign-extended", signedByte, FrameOf({0xFF}), SigvalueRawDec, nullptr, "-1",
         TAVLO_SIGNAL_OK},
        {"decimal, unsigned", {kIntel, 0, 8}, FrameOf({0xFF}), SigvalueRawDec, nullptr, "255",
         TAVLO_SIGNAL_OK},
        {"decimal, own format", signedByte, FrameOf({0xFF}), SigvalueRawDec, "%05d", "-0001",
         TAVLO_SIGNAL_OK},
        {"hexadecimal, the field's word", signedByte, FrameOf({0xFF}), SigvalueRawHex, nullptr,
         "ff", TAVLO_SIGNAL_OK},
        {"hexadecimal, own format", signedByte, FrameOf({0xFF}), SigvalueRawHex, "0x%08X",
         "0x000000FF", TAVLO_SIGNAL_OK},
        {"bytes in decimal", twelveBits, abc, SigvalueBytesDec, nullptr, " 10 188",
         TAVLO_SIGNAL_OK},
        {"bytes in hexadecimal", twelveBits, abc, SigvalueBytesHex, nullptr, "0A BC",
         TAVLO_SIGNAL_OK},
        {"bytes of a Motorola field", {kMotorola, 7, 16}, FrameOf({0x12, 0x34}),
         SigvalueBytesHex, nullptr, "12 34", TAVLO_SIGNAL_OK},
        {"one byte in decimal", {kIntel, 0, 8}, FrameOf({5}), SigvalueBytesDec, nullptr, "  5",
         TAVLO_SIGNAL_OK},
        {"physical", Scaled(kIntel, 0, 8, 0.5, -40.0, ""), twoHundred, SigvaluePhys, nullptr,
         "60", TAVLO_SIGNAL_OK},
        {"physical, own format", Scaled(kIntel, 0, 8, 0.5, -40.0, ""), twoHundred, SigvaluePhys,
         "%.2f", "60.00", TAVLO_SIGNAL_OK},
        {"physical, signed", signedByte, FrameOf({0xFF}), SigvaluePhys, nullptr, "-1",
         TAVLO_SIGNAL_OK},
        {"physical with unit", speed, speedFrame, SigvaluePhysUnit, nullptr, "12.5 km/h",
         TAVLO_SIGNAL_OK},
        {"physical with unit, own format", speed, speedFrame, SigvaluePhysUnit, "%g [%s]",
         "12.5 [km/h]", TAVLO_SIGNAL_OK},
        {"binary, one digit per bit", {kIntel, 0, 4}, FrameOf({0xF5}), SigvalueBinary, nullptr,
         "0101", TAVLO_SIGNAL_OK},
        {"binary, 12 bits", twelveBits, abc, SigvalueBinary, nullptr, "101010111100",
         TAVLO_SIGNAL_OK},
        {"binary, Motorola", {kMotorola, 1, 5}, FrameOf({0x02, 0x20}), SigvalueBinary, nullptr,
         "10001", TAVLO_SIGNAL_OK},
        // Longer than 32 bits: the numeric formats deliver the low word and 3.
        {"decimal, 33 bits", {kIntel, 0, 33}, FrameOf({0x01, 0x00, 0x00, 0x00, 0x01}),
         SigvalueRawDec, nullptr, "1", TAVLO_SIGNAL_TOO_LONG},
        {"decimal, 40 bits", wide, wideFrame, SigvalueRawDec, nullptr, "305419896",
         TAVLO_SIGNAL_TOO_LONG},
        {"hexadecimal, 40 bits", wide, wideFrame, SigvalueRawHex, nullptr, "12345678",
         TAVLO_SIGNAL_TOO_LONG},
        {"physical, 40 bits", wide, wideFrame, SigvaluePhys, nullptr, "3.0542e+08",
         TAVLO_SIGNAL_TOO_LONG},
        {"physical with unit, 40 bits", wide, wideFrame, SigvaluePhysUnit, nullptr,
         "3.0542e+08 V", TAVLO_SIGNAL_TOO_LONG},
        {"bytes in decimal, 40 bits", wide, wideFrame, SigvalueBytesDec, nullptr,
         "171  18  52  86 120", TAVLO_SIGNAL_OK},
        {"bytes in hexadecimal, 40 bits", wide, wideFrame, SigvalueBytesHex, nullptr,
         "AB 12 34 56 78", TAVLO_SIGNAL_OK},
        {"binary, 40 bits", wide, wideFrame, SigvalueBinary, nullptr,
         "1010101100010010001101000101011001111000", TAVLO_SIGNAL_OK},
        // Out of range matters to the physical formats only.
        {"physical, out of range", limited, twoHundred, SigvaluePhys, nullptr, "200",
         TAVLO_SIGNAL_OUT_OF_RANGE},
        {"physical with unit, out of range", limited, twoHundred, SigvaluePhysUnit, nullptr,
         "200 V", TAVLO_SIGNAL_OUT_OF_RANGE},
        {"decimal, out of range", limited, twoHundred, SigvalueRawDec, nullptr, "200",
         TAVLO_SIGNAL_OK},
        {"bytes, out of range", limited, twoHundred, SigvalueBytesHex, nullptr, "C8",
         TAVLO_SIGNAL_OK},
        // Nothing to make.
        {"unknown format", {kIntel, 0, 8}, FrameOf({1}), static_cast<TavloSigvalueFormat>(9),
         nullptr, nullptr, TAVLO_SIGNAL_NOT_EXTRACTED},
        {"90 bits", {kIntel, 0, 90}, FrameOf({1}), SigvalueRawDec, nullptr, nullptr,
         TAVLO_SIGNAL_NOT_EXTRACTED},
    };
    for (const TextCase& c : cases) {
        SCOPED_TRACE(c.what);
        const sigblk signal = SignalOf(c.layout);
        char untouched = 0;
        char* made = &untouched;  // the call must set it, also when it makes nothing
        const unsigned int result = manager.GetSignalValue(c.frame.data(), signal, noMessage, made,
                                                           c.format, c.formatString);
        if (made == &untouched) {
            ADD_FAILURE() << "text left as it was";
            continue;
        }
        Text text(made);
        EXPECT_EQ(result, c.result);
        if (c.text == nullptr) {
            EXPECT_EQ(made, nullptr);
        } else {
            ASSERT_NE(made, nullptr);
            EXPECT_STREQ(made, c.text);
        }
    }
}

// The raw byte image is the field's little-endian bytes, 5 of them up to
// 32 bits and 9 up to 64, the last zero.
TEST_F(SignalValues, FormattedRawBytes) {
    const struct {
        const char* what;
        Layout layout;
        Frame frame;
        const char* bytes;
    } cases[] = {
        {"12 bits", {kIntel, 0, 12}, FrameOf({0xBC, 0xFA}), "BC 0A 00 00 00"},
        {"Motorola, 16 bits", {kMotorola, 7, 16}, FrameOf({0x12, 0x34}), "34 12 00 00 00"},
        {"40 bits", {kIntel, 0, 40}, FrameOf({0x78, 0x56, 0x34, 0x12, 0xAB, 0xCD}),
         "78 56 34 12 AB 00 00 00 00"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        const sigblk signal = SignalOf(c.layout);
        char* made = nullptr;
        EXPECT_EQ(manager.GetSignalValue(c.frame.data(), signal, noMessage, made, SigvalueRawBytes,
                                         nullptr),
                  TAVLO_SIGNAL_OK);
        Text text(made);
        ASSERT_NE(made, nullptr);
        const std::size_t count = (std::strlen(c.bytes) + 1) / 3;  // "BC 0A ..."
        EXPECT_EQ(Hex(reinterpret_cast<const unsigned char*>(made), count), c.bytes);
    }
}

// The description of the raw value as GetSignalRawValue reads it; a value
// without one gives no text and 1.
TEST_F(SignalValues, FormattedDescription) {
    // The field's low 32-bit word is looked up as a signed number, without
    // the sign extension of a short signed field.
    Descriptions descriptions{{0, "Off"}, {1, "On"}, {-1, "Error"}, {3, "Both bits"}};
    const struct {
        const char* what;
        Layout layout;
        Frame frame;
        const char* text;
        unsigned int result;
    } cases[] = {
        {"unsigned", {kIntel, 2, 2}, FrameOf({0x04}), "On", TAVLO_SIGNAL_OK},
        {"unsigned without a description", {kIntel, 2, 2}, FrameOf({0x08}), nullptr,
         TAVLO_SIGNAL_NOT_EXTRACTED},
        {"signed, negative", {kSigned, 2, 2}, FrameOf({0x0C}), "Both bits", TAVLO_SIGNAL_OK},
        {"signed, positive", {kSigned, 2, 2}, FrameOf({0x04}), "On", TAVLO_SIGNAL_OK},
        {"Motorola", {kMotorola, 0, 2}, FrameOf({0x00, 0x80}), "On", TAVLO_SIGNAL_OK},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        sigblk signal = SignalOf(c.layout);
        signal.value_descriptions = descriptions.Head();
        char* made = nullptr;
        EXPECT_EQ(manager.GetSignalValue(c.frame.data(), signal, noMessage, made,
                                         SigvalueDescription, nullptr),
                  c.result);
        Text text(made);
        if (c.text == nullptr) {
            EXPECT_EQ(made, nullptr);
        } else {
            ASSERT_NE(made, nullptr);
            EXPECT_STREQ(made, c.text);
            // The same as the description of the field's bits.
            const unsigned int bits = TavloManager::ExtractLong(
                c.frame.data(), signal.start_bit, signal.length,
                (signal.flags & TAVLO_SIG_MOTOROLA) != 0);
            EXPECT_STREQ(manager.GetValueDescription(signal, static_cast<std::int32_t>(bits)),
                         c.text);
        }
    }
}

// An absent multiplexed signal gives 5 in every format, with the text made.
TEST_F(SignalValues, FormattedAbsentSignal) {
    Descriptions descriptions{{0x42, "Answer"}};
    Message message;
    message.Add("Mode", {TAVLO_SIG_MODE, 0, 8});
    sigblk* muxed =
        message.Add("Muxed", Scaled(TAVLO_SIG_MULTIPLEXED, 8, 8, 1.0, 0.0, "V", 0.0, 100.0), 1);
    muxed->value_descriptions = descriptions.Head();
    const Frame present = FrameOf({1, 0x42});
    const Frame absent = FrameOf({2, 0x42});
    for (int format = SigvalueRawDec; format <= SigvalueBinary; ++format) {
        SCOPED_TRACE("format " + std::to_string(format));
        const auto which = static_cast<TavloSigvalueFormat>(format);
        char* made = nullptr;
        EXPECT_EQ(manager.GetSignalValue(present.data(), *muxed, message.Get(), made, which,
                                         nullptr),
                  TAVLO_SIGNAL_OK);
        Text first(made);
        EXPECT_NE(made, nullptr);
        made = nullptr;
        EXPECT_EQ(manager.GetSignalValue(absent.data(), *muxed, message.Get(), made, which,
                                         nullptr),
                  TAVLO_SIGNAL_NOT_PRESENT);
        Text second(made);
        EXPECT_NE(made, nullptr);
    }
    muxed->value_descriptions = nullptr;
}

// Out of memory, for the image or for the text: 6, no text, nothing left
// allocated. The raw byte image needs one block only, being the text itself.
TEST_F(SignalValues, FormattedOutOfMemory) {
    Descriptions descriptions{{0x42, "Answer"}};
    sigblk signal = SignalOf(Scaled(kIntel, 0, 8, 1.0, 0.0, "V"));
    signal.value_descriptions = descriptions.Head();
    const Frame frame = FrameOf({0x42});
    for (int format = SigvalueRawDec; format <= SigvalueBinary; ++format) {
        for (long allowed = 0; allowed <= 1; ++allowed) {
            SCOPED_TRACE("format " + std::to_string(format) + ", allocations allowed " +
                         std::to_string(allowed));
            const bool enough = allowed == 1 && format == SigvalueRawBytes;
            const long before = tavlo::model::LiveAllocations();
            char* made = nullptr;
            tavlo::model::FailAllocationsAfter(allowed);
            const unsigned int result = manager.GetSignalValue(
                frame.data(), signal, noMessage, made, static_cast<TavloSigvalueFormat>(format),
                nullptr);
            tavlo::model::FailAllocationsAfter(-1);
            Text text(made);
            EXPECT_EQ(result, enough ? TAVLO_SIGNAL_OK : TAVLO_SIGNAL_NO_MEMORY);
            EXPECT_EQ(made != nullptr, enough);
            text.reset();
            EXPECT_EQ(tavlo::model::LiveAllocations(), before);
        }
    }
    tavlo::model::FailAllocationsAfter(0);
    Image image(TavloManager::ExtractString(frame.data(), 0, 8, false));
    tavlo::model::FailAllocationsAfter(-1);
    EXPECT_EQ(image, nullptr);
}

}  // namespace
