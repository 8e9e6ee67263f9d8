// decoder/encode.cpp: a frame encoded with a compiled decoder from physical
// values, raw values or texts, its multiplexers set to select what is given.
// Every failure is one result code and one line of text.
#include <cinttypes>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <string>
#include <vector>

#include "decoder/compiled.h"

namespace tavlo::decoder {
namespace {

class Encoder {
public:
    Encoder(const tavlo_decoder_t& d, std::size_t index, char* error, std::size_t errorSize)
        : d_(d),
          message_(d.messages[index]),
          plans_(d.plans.data() + d.code[index].firstPlan),
          error_(error),
          errorSize_(errorSize),
          value_(message_.signal_count, 0),
          set_(message_.signal_count, 0),
          given_(message_.signal_count) {}

    int Run(const tavlo_dec_setting_t* settings, std::size_t count, unsigned char* data) {
        std::vector<std::size_t> order;  // signals given, in the order given
        for (std::size_t i = 0; i < count; ++i) {
            long s = -1;
            const int result = Take(settings[i], s);
            if (result != TAVLO_DEC_OK) {
                return result;
            }
            order.push_back(static_cast<std::size_t>(s));
        }
        const int result = SelectMultiplexers(order);
        if (result != TAVLO_DEC_OK) {
            return result;
        }
        unsigned char padded[kPadded] = {};
        for (std::size_t s = 0; s < message_.signal_count; ++s) {
            if (set_[s] == 0) {
                continue;
            }
            if (plans_[s].need > message_.length) {
                return Fail(TAVLO_DEC_DOES_NOT_FIT, "%s lies beyond the message's %u bytes",
                            Name(s), message_.length);
            }
            Insert(plans_[s], value_[s] & plans_[s].Mask(), padded);
        }
        std::memcpy(data, padded, message_.length);
        return outOfRange_;
    }

private:
    const char* Name(std::size_t s) const { return message_.signals[s].name; }

    int Fail(int code, const char* format, ...) {
        if (error_ != nullptr && errorSize_ > 0) {
            std::va_list args;
            va_start(args, format);
            std::vsnprintf(error_, errorSize_, format, args);
            va_end(args);
        }
        return code;
    }

    // One setting into value_ and set_.
    int Take(const tavlo_dec_setting_t& setting, long& s) {
        if (setting.signal == nullptr ||
            (setting.how == TAVLO_DEC_SET_TEXT && setting.text == nullptr) ||
            setting.how < TAVLO_DEC_SET_PHYSICAL || setting.how > TAVLO_DEC_SET_TEXT) {
            return Fail(TAVLO_DEC_BAD_ARGUMENT, "a setting without a signal name or text");
        }
        s = tavlo_decoder_find_signal(&d_, static_cast<std::size_t>(&message_ - d_.messages.data()),
                                      setting.signal);
        if (s < 0) {
            return Fail(TAVLO_DEC_UNKNOWN_SIGNAL, "message %s has no signal %s", message_.name,
                        setting.signal);
        }
        const auto index = static_cast<std::size_t>(s);
        const Plan& plan = plans_[index];
        const tavlo_dec_signal_t& signal = message_.signals[index];
        std::string& given = given_[index];
        char number[64];
        if (setting.how == TAVLO_DEC_SET_RAW) {
            std::snprintf(number, sizeof number, plan.kind == TAVLO_DEC_SIGNED ? "%" PRId64 : "%" PRIu64,
                          setting.raw);
            given = number;
        } else if (setting.how == TAVLO_DEC_SET_PHYSICAL) {
            std::snprintf(number, sizeof number, "%.10g", setting.physical);
            given = number;
        } else {
            given = setting.text;
        }
        if (plan.need == kNever) {
            return Fail(TAVLO_DEC_DOES_NOT_FIT,
                        "%s cannot be encoded: it lies beyond 64 bytes or nothing can select it",
                        signal.name);
        }
        std::uint64_t raw = setting.raw;
        double physical = setting.physical;
        bool fromPhysical = setting.how == TAVLO_DEC_SET_PHYSICAL;
        if (setting.how == TAVLO_DEC_SET_TEXT) {
            const tavlo_dec_description_t* found = nullptr;
            for (std::size_t i = 0; i < signal.description_count && found == nullptr; ++i) {
                if (std::strcmp(signal.descriptions[i].text, setting.text) == 0) {
                    found = &signal.descriptions[i];
                }
            }
            if (found != nullptr) {
                raw = FromDescription(plan, found->value);
            } else {
                char* end = nullptr;
                physical = std::strtod(setting.text, &end);
                if (setting.text[0] == '\0' || end == nullptr || *end != '\0') {
                    return Fail(TAVLO_DEC_NO_DESCRIPTION,
                                "%s=%s: neither a number nor a value description", signal.name,
                                setting.text);
                }
                fromPhysical = true;
            }
        }
        if (fromPhysical && !ToRaw(plan, physical, raw)) {
            return Fail(TAVLO_DEC_DOES_NOT_FIT, "%s=%s does not fit in the signal's %u bits",
                        signal.name, given.c_str(), signal.length);
        }
        if (!Fits(plan, raw)) {
            return Fail(TAVLO_DEC_DOES_NOT_FIT, "%s=%s does not fit in the signal's %u bits",
                        signal.name, given.c_str(), signal.length);
        }
        if (!fromPhysical) {
            physical = RawNumber(plan, raw) * plan.factor + plan.offset;
        }
        // The range [minimum, maximum] holds where minimum < maximum; outside
        // it the value is encoded all the same and reported.
        if (signal.minimum < signal.maximum &&
            (physical < signal.minimum || physical > signal.maximum) &&
            outOfRange_ == TAVLO_DEC_OK) {
            outOfRange_ = Fail(TAVLO_DEC_OUT_OF_RANGE, "%s=%s is out of range [%.10g .. %.10g]",
                               signal.name, given.c_str(), signal.minimum, signal.maximum);
        }
        value_[index] = raw;
        set_[index] = 1;
        return TAVLO_DEC_OK;
    }

    static std::uint64_t FromDescription(const Plan& plan, std::int64_t value) {
        if (plan.kind == TAVLO_DEC_FLOAT) {
            const auto number = static_cast<float>(value);
            std::uint32_t bits;
            std::memcpy(&bits, &number, sizeof bits);
            return bits;
        }
        if (plan.kind == TAVLO_DEC_DOUBLE) {
            const auto number = static_cast<double>(value);
            std::uint64_t bits;
            std::memcpy(&bits, &number, sizeof bits);
            return bits;
        }
        return static_cast<std::uint64_t>(value);
    }

    // Whether raw (sign-extended for a signed signal) lies in the field.
    static bool Fits(const Plan& plan, std::uint64_t raw) {
        if (plan.kind == TAVLO_DEC_SIGNED) {
            const std::uint64_t top = raw & ~(plan.Mask() >> 1);
            return top == 0 || top == ~(plan.Mask() >> 1);
        }
        return (raw & ~plan.Mask()) == 0;
    }

    // Physical to raw: integers rounded half away from zero, floating-point
    // values as they are.
    static bool ToRaw(const Plan& plan, double physical, std::uint64_t& raw) {
        const double exact = (physical - plan.offset) / plan.factor;
        if (!std::isfinite(exact)) {
            return false;
        }
        if (plan.kind == TAVLO_DEC_FLOAT) {
            const auto number = static_cast<float>(exact);
            if (!std::isfinite(number)) {
                return false;
            }
            std::uint32_t bits;
            std::memcpy(&bits, &number, sizeof bits);
            raw = bits;
            return true;
        }
        if (plan.kind == TAVLO_DEC_DOUBLE) {
            std::memcpy(&raw, &exact, sizeof raw);
            return true;
        }
        const double rounded = std::trunc(exact < 0 ? exact - 0.5 : exact + 0.5);
        const int bits = plan.length;
        if (plan.kind == TAVLO_DEC_SIGNED) {
            const double half = std::ldexp(1.0, bits - 1);
            if (rounded < -half || rounded >= half) {
                return false;
            }
            raw = static_cast<std::uint64_t>(static_cast<std::int64_t>(rounded));
            return true;
        }
        if (rounded < 0 || rounded >= std::ldexp(1.0, bits)) {
            return false;
        }
        raw = static_cast<std::uint64_t>(rounded);
        return true;
    }

    bool Selects(std::size_t s, std::uint64_t value) const {
        const tavlo_dec_signal_t& signal = message_.signals[s];
        for (std::size_t r = 0; r < signal.range_count; ++r) {
            if (value >= signal.ranges[r].low && value <= signal.ranges[r].high) {
                return true;
            }
        }
        return false;
    }

    // Every multiplexer above a given signal, up through cascades, set to
    // the lowest value that selects all the signals below it that are
    // given, or checked where it is given itself.
    int SelectMultiplexers(const std::vector<std::size_t>& order) {
        struct Need {
            std::size_t multiplexer;
            std::size_t signal;
        };
        std::vector<Need> needs;
        for (std::size_t s : order) {
            while (plans_[s].selector != kNoSelector) {
                const auto multiplexer = static_cast<std::size_t>(message_.signals[s].multiplexer);
                needs.push_back({multiplexer, s});
                s = multiplexer;
            }
        }
        for (std::size_t k = 0; k < needs.size(); ++k) {
            const std::size_t multiplexer = needs[k].multiplexer;
            if (set_[multiplexer] != 0) {
                continue;
            }
            std::vector<std::uint64_t> candidates;
            for (const Need& need : needs) {
                if (need.multiplexer != multiplexer) {
                    continue;
                }
                const tavlo_dec_signal_t& signal = message_.signals[need.signal];
                for (std::size_t r = 0; r < signal.range_count; ++r) {
                    candidates.push_back(signal.ranges[r].low);
                }
            }
            bool chosen = false;
            std::uint64_t best = 0;
            for (const std::uint64_t candidate : candidates) {
                bool all = true;
                for (const Need& need : needs) {
                    all = all && (need.multiplexer != multiplexer || Selects(need.signal, candidate));
                }
                if (all && (!chosen || candidate < best)) {
                    best = candidate;
                    chosen = true;
                }
            }
            if (!chosen) {
                for (const Need& need : needs) {
                    if (need.multiplexer == multiplexer && need.signal != needs[k].signal) {
                        return Fail(TAVLO_DEC_CONFLICT, "%s and %s need different values of %s",
                                    Name(needs[k].signal), Name(need.signal), Name(multiplexer));
                    }
                }
                return Fail(TAVLO_DEC_CONFLICT, "no value of %s selects %s", Name(multiplexer),
                            Name(needs[k].signal));
            }
            if (!Fits(plans_[multiplexer], best)) {
                return Fail(TAVLO_DEC_DOES_NOT_FIT, "%s cannot take the value %" PRIu64
                            " that selects %s", Name(multiplexer), best, Name(needs[k].signal));
            }
            value_[multiplexer] = best;
            set_[multiplexer] = 2;  // chosen, not given
        }
        for (const Need& need : needs) {
            if (!Selects(need.signal, value_[need.multiplexer])) {
                return Fail(TAVLO_DEC_CONFLICT, "%s=%s does not select %s", Name(need.multiplexer),
                            given_[need.multiplexer].c_str(), Name(need.signal));
            }
        }
        return TAVLO_DEC_OK;
    }

    const tavlo_decoder_t& d_;
    const tavlo_dec_message_t& message_;
    const Plan* plans_;
    char* error_;
    std::size_t errorSize_;
    std::vector<std::uint64_t> value_;  // raw, sign-extended for signed signals
    std::vector<char> set_;             // 1: given, 2: a multiplexer chosen
    std::vector<std::string> given_;    // as given, for the messages
    int outOfRange_ = TAVLO_DEC_OK;
};

}  // namespace
}  // namespace tavlo::decoder

int tavlo_decoder_encode(const tavlo_decoder_t* decoder, size_t index,
                         const tavlo_dec_setting_t* settings, size_t count, unsigned char* data,
                         size_t capacity, size_t* length, char* error, size_t error_size) {
    if (error != nullptr && error_size > 0) {
        error[0] = '\0';
    }
    if (length != nullptr) {
        *length = 0;
    }
    if (decoder == nullptr || data == nullptr || (settings == nullptr && count != 0)) {
        if (error != nullptr && error_size > 0) {
            std::snprintf(error, error_size, "no decoder, frame buffer or settings");
        }
        return TAVLO_DEC_BAD_ARGUMENT;
    }
    if (index >= decoder->messages.size()) {
        if (error != nullptr && error_size > 0) {
            std::snprintf(error, error_size, "no message number %lu", static_cast<unsigned long>(index));
        }
        return TAVLO_DEC_UNKNOWN_MESSAGE;
    }
    const tavlo_dec_message_t& message = decoder->messages[index];
    if (capacity < message.length) {
        if (error != nullptr && error_size > 0) {
            std::snprintf(error, error_size, "%s needs %u bytes, the buffer holds %lu",
                          message.name, message.length, static_cast<unsigned long>(capacity));
        }
        return TAVLO_DEC_BAD_ARGUMENT;
    }
    try {
        const int result = tavlo::decoder::Encoder(*decoder, index, error, error_size)
                               .Run(settings, count, data);
        if ((result == TAVLO_DEC_OK || result == TAVLO_DEC_OUT_OF_RANGE) && length != nullptr) {
            *length = message.length;
        }
        return result;
    } catch (const std::bad_alloc&) {
        return TAVLO_DEC_NO_MEMORY;
    }
}
