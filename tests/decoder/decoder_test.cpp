// tests/decoder/decoder_test.cpp: the compiled decoder against a bit-by-bit
// model of the layout, on the corpus' extended multiplexing, on 64-bit and
// FD frames, and its encoding failures.
#include <algorithm>
#include <cmath>
#include <cstring>
#include <random>
#include <string>

#include <gtest/gtest.h>

#include "support/read_database.h"
#include "tavloms/decoder.h"
#include "tavloms/lifecycle.h"
#include "tavloms/load.h"

namespace {

using tavlo::test::ReadDatabase;
using tavlo::test::ReadText;

// Bit b of a frame is bit b % 8 of byte b / 8. An Intel field runs up from
// its start bit; a Motorola field runs down from its most significant bit at
// the start bit, from bit 0 of a byte on to bit 7 of the next.
std::vector<unsigned int> FieldBits(unsigned int start, unsigned int length, bool motorola) {
    std::vector<unsigned int> bits(length);  // from the least significant
    unsigned int at = start;
    for (unsigned int i = 0; i < length; ++i) {
        bits[motorola ? length - 1 - i : i] = at;
        at = !motorola ? at + 1 : at % 8 == 0 ? at + 15 : at - 1;
    }
    return bits;
}

struct Root {
    tavlo_root_t root{};
    ~Root() { TAVLO_FREE_ROOT(&root); }
};

std::vector<unsigned char> Bytes(const std::string& hex) {
    std::vector<unsigned char> bytes;
    for (std::size_t i = 0; i + 1 < hex.size(); i += 2) {
        bytes.push_back(static_cast<unsigned char>(std::stoul(hex.substr(i, 2), nullptr, 16)));
    }
    return bytes;
}

// Decoding by identifier gives what decoding by message number gives (it
// has a quick way of its own for frames of at least 8 bytes).
void ExpectSameById(const tavlo::Decoder& decoder, unsigned int id,
                    const std::vector<tavlo_dec_value_t>& expected, const unsigned char* data,
                    std::size_t length) {
    std::vector<tavlo_dec_value_t> values(64, tavlo_dec_value_t{1, 2, 3});
    std::size_t count = 99;
    ASSERT_EQ(tavlo_decoder_decode(decoder.get(), id, data, length, values.data(), values.size(),
                                   &count),
              TAVLO_DEC_OK);
    ASSERT_EQ(count, expected.size());
    EXPECT_EQ(values[count].raw + values[count].signal, 4u) << "written beyond the values";
    for (std::size_t i = 0; i < count; ++i) {
        EXPECT_EQ(values[i].signal, expected[i].signal);
        EXPECT_EQ(values[i].raw, expected[i].raw);
        EXPECT_EQ(std::memcmp(&values[i].physical, &expected[i].physical, sizeof(double)), 0);
    }
}

// "name=value ..." of the signals present, in the message's order.
std::string Present(const tavlo::Decoder& decoder, unsigned int id, const std::string& hex) {
    const long m = decoder.FindId(id);
    if (m < 0) {
        return "unknown";
    }
    const std::vector<unsigned char> frame = Bytes(hex);
    ExpectSameById(decoder, id, decoder.Decode(m, frame.data(), frame.size()), frame.data(),
                   frame.size());
    std::string text;
    for (const tavlo_dec_value_t& value : decoder.Decode(m, frame.data(), frame.size())) {
        char number[32];
        std::snprintf(number, sizeof number, "%.10g", value.physical);
        text += (text.empty() ? "" : " ") + std::string(decoder.Message(m)->signals[value.signal].name) +
                "=" + number;
    }
    return text;
}

TEST(Decoder, MatchesTheBitModelForRandomLayouts) {
    const unsigned int seed = 20240611;
    std::printf("seed %u\n", seed);
    std::mt19937_64 random(seed);
    Root db;
    struct Field {
        unsigned int start, length;
        bool motorola, isSigned;
        double factor, offset;
        std::vector<unsigned int> bits;
    };
    const double kFactors[] = {0.5, 1, -0.25, 3, 1e-3};
    // Messages of one to nine fields; every other one has them all in the
    // first 8 bytes, the frames most decode by the quickest way.
    std::vector<std::vector<Field>> cases;
    for (unsigned int m = 0; m < 3000; ++m) {
        const bool classic = m % 2 == 1;
        const unsigned int limit = classic ? 64 : 512;
        msgblk* message = TAVLO_CREATE_MSGBLK();
        message->id = m;
        message->dlc = 64;
        std::vector<Field> fields(1 + random() % 9);
        for (std::size_t k = 0; k < fields.size(); ++k) {
            Field& c = fields[k];
            c.length = 1 + random() % (classic ? 56 : 64);
            c.motorola = random() % 2 == 1;
            c.isSigned = random() % 2 == 1;
            c.factor = kFactors[random() % 5];
            c.offset = static_cast<double>(random() % 7) - 3;
            do {
                c.start = random() % limit;
                c.bits = FieldBits(c.start, c.length, c.motorola);
            } while (*std::max_element(c.bits.begin(), c.bits.end()) >= limit);
            sigblk* signal = TAVLO_CREATE_SIGBLK();
            std::snprintf(signal->name, sizeof signal->name, "S%zu", k);
            signal->start_bit = static_cast<unsigned short>(c.start);
            signal->length = static_cast<unsigned short>(c.length);
            signal->flags = (c.motorola ? TAVLO_SIG_MOTOROLA : 0) | (c.isSigned ? TAVLO_SIG_SIGNED : 0);
            signal->factor = c.factor;
            signal->offset = c.offset;
            CAN_INSERT_SIG(message, signal, static_cast<unsigned int>(k));
        }
        CAN_INSERT_MSG(&db.root.messages, message, m);
        cases.push_back(fields);
    }
    const tavlo::Decoder decoder(db.root);
    for (unsigned int id = 0; id < cases.size(); ++id) {
        const auto m = static_cast<std::size_t>(decoder.FindId(id));
        unsigned int need = 0;
        for (const Field& c : cases[id]) {
            need = std::max(need, *std::max_element(c.bits.begin(), c.bits.end()) / 8 + 1);
        }
        std::vector<unsigned char> frame(need + random() % (65 - need));
        for (unsigned char& byte : frame) {
            byte = static_cast<unsigned char>(random());
        }
        const auto values = decoder.Decode(m, frame.data(), frame.size());
        ASSERT_EQ(values.size(), cases[id].size());
        ExpectSameById(decoder, id, values, frame.data(), frame.size());
        for (std::size_t k = 0; k < cases[id].size(); ++k) {
            const Field& c = cases[id][k];
            std::uint64_t expected = 0;
            for (unsigned int i = 0; i < c.length; ++i) {
                expected |= std::uint64_t{(frame[c.bits[i] / 8] >> (c.bits[i] % 8) & 1u)} << i;
            }
            if (c.isSigned && c.length < 64 && (expected >> (c.length - 1) & 1u) != 0) {
                expected |= ~std::uint64_t{0} << c.length;
            }
            SCOPED_TRACE("message " + std::to_string(id) + " start " + std::to_string(c.start) +
                         " length " + std::to_string(c.length) +
                         (c.motorola ? " Motorola" : " Intel") + (c.isSigned ? " signed" : ""));
            EXPECT_EQ(values[k].signal, k);
            EXPECT_EQ(values[k].raw, expected);
            const double number = c.isSigned ? static_cast<double>(static_cast<std::int64_t>(expected))
                                             : static_cast<double>(expected);
            EXPECT_EQ(values[k].physical, number * c.factor + c.offset);

            // Encoded back alone: its bits and no others.
            std::vector<unsigned char> encoded;
            std::string error;
            const std::string name = "S" + std::to_string(k);
            const tavlo_dec_setting_t raw{name.c_str(), TAVLO_DEC_SET_RAW, 0, expected, nullptr};
            ASSERT_EQ(decoder.Encode(m, {raw}, encoded, error), TAVLO_DEC_OK) << error;
            ASSERT_EQ(encoded.size(), 64u);
            unsigned int ones = 0;
            for (unsigned int b = 0; b < 512; ++b) {
                ones += encoded[b / 8] >> (b % 8) & 1u;
            }
            unsigned int fieldOnes = 0;
            for (unsigned int i = 0; i < c.length; ++i) {
                const unsigned int bit = encoded[c.bits[i] / 8] >> (c.bits[i] % 8) & 1u;
                fieldOnes += bit;
                ASSERT_EQ(bit, expected >> i & 1u) << "bit " << i;
            }
            EXPECT_EQ(ones, fieldOnes);
        }
        // A byte short of the farthest field: that one is absent.
        EXPECT_LT(decoder.Decode(m, frame.data(), need - 1).size(), cases[id].size());
    }
}

struct MuxCase {
    const char* file;
    unsigned int id;
    const char* frame;
    const char* present;
};

class ExtendedMultiplexing : public ::testing::TestWithParam<MuxCase> {};

// Expected values worked out from each file's SG_ and SG_MUL_VAL_ lines.
const MuxCase kMuxCases[] = {
    // MUX_A 0|8 selects muxed_A_1 (1) and muxed_A_2_MUX_B (2), which selects
    // muxed_B_0 16|8 (0) and muxed_B_1 24|8 (1); all signed.
    {"issue_184_extended_mux_cascaded.dbc", 2147483649u, "0201050700000000",
     "muxed_B_1=7 muxed_A_2_MUX_B=1 MUX_A=2"},
    {"issue_184_extended_mux_cascaded.dbc", 2147483649u, "0200FB0700000000",
     "muxed_B_0=-5 muxed_A_2_MUX_B=0 MUX_A=2"},
    // MUX_B's byte holds 0, but MUX_B itself is not selected.
    {"issue_184_extended_mux_cascaded.dbc", 2147483649u, "0100050700000000", "muxed_A_1=0 MUX_A=1"},
    {"issue_184_extended_mux_independent_multiplexors.dbc", 2147483650u, "0105020900000000",
     "muxed_B_2=9 MUX_B=2 muxed_A_1=5 MUX_A=1"},
    // muxed_0_3_4_5 for MUX 0 and 3-5; muxed_2 by the plain rule (m2).
    {"issue_184_extended_mux_multiple_values.dbc", 2147483649u, "042A000000000000",
     "muxed_0_3_4_5=42 MUX=4"},
    {"issue_184_extended_mux_multiple_values.dbc", 2147483649u, "062A000000000000", "MUX=6"},
    {"issue_184_extended_mux_multiple_values.dbc", 2147483649u, "02FF000000000000", "muxed_2=-1 MUX=2"},
    // Extended: S0 0|4 selects S1 4|4 (0) and S5 4|28 (1); S1 selects S4
    // 8|24 (2); S6 32|8 selects S8 40|8 (2).
    {"multiplex_2.dbc", 2348875518u, "20112233027F0000", "S8=127 S6=2 S4=3351057 S1=2 S0=0"},
    {"multiplex_2.dbc", 2348875518u, "F1FFFFFF00000000", "S6=0 S5=-1 S0=1"},
    // ExtendedTypes: S11 0|5 selects S9, an IEEE single at 24|32, with 5.
    {"multiplex_2.dbc", 2349072126u, "0500000000C03F00", "S9=1.5 S11=5"},
};

TEST_P(ExtendedMultiplexing, DecodesWhatTheMultiplexersSelect) {
    const MuxCase& c = GetParam();
    const std::string path = std::string(TAVLOMS_CORPUS_DIR) + "/" + c.file;
    tavlo::Loaded db(path.c_str(), TAVLO_LOAD_STRICT);
    ASSERT_TRUE(db.ok());
    const tavlo::Decoder decoder(db.root(), db.kept());
    EXPECT_EQ(tavlo_decoder_skipped(decoder.get(), nullptr), 0u);
    EXPECT_EQ(Present(decoder, c.id, c.frame), c.present);
}

INSTANTIATE_TEST_SUITE_P(Corpus, ExtendedMultiplexing, ::testing::ValuesIn(kMuxCases));

// Random multiplexed messages in the first 8 bytes, multiplexers cascading,
// some signals selected by one range and some by two: every frame decodes
// by identifier (the quick ways) as by message number (the general walk).
// Messages 0 to count - 1 of random layouts in the first 8 bytes: up to
// three multiplexers (at least one unless plainToo), each other signal
// selected by ranges of one of them (SG_MUL_VAL_ statements) or by none.
struct RandomNetwork {
    Root db;
    std::vector<std::string> statements;
    std::vector<tavlo_kept_t> kept;

    RandomNetwork(std::mt19937_64& random, unsigned int count, bool plainToo) {
        for (unsigned int m = 0; m < count; ++m) {
            AddMessage(random, m, plainToo ? random() % 4 : 1 + random() % 3);
        }
        for (const std::string& text : statements) {
            kept.push_back(tavlo_kept_t{text.c_str(), 1});
        }
    }

    void AddMessage(std::mt19937_64& random, unsigned int m, std::size_t muxes) {
        msgblk* message = TAVLO_CREATE_MSGBLK();
        message->id = m;
        message->dlc = 8;
        const std::size_t count = muxes + 1 + random() % 9;
        for (std::size_t k = 0; k < count; ++k) {
            const bool motorola = random() % 2 == 1;
            const auto length = static_cast<unsigned int>(k < muxes ? 2 + random() % 2 : 1 + random() % 20);
            std::vector<unsigned int> bits;
            unsigned int start = 0;
            do {
                start = static_cast<unsigned int>(random() % 64);
                bits = FieldBits(start, length, motorola);
            } while (*std::max_element(bits.begin(), bits.end()) >= 64);
            sigblk* signal = TAVLO_CREATE_SIGBLK();
            std::snprintf(signal->name, sizeof signal->name, "S%zu", k);
            signal->start_bit = static_cast<unsigned short>(start);
            signal->length = static_cast<unsigned short>(length);
            signal->flags = (motorola ? TAVLO_SIG_MOTOROLA : 0) |
                            (random() % 3 == 0 ? TAVLO_SIG_SIGNED : 0) |
                            (k < muxes ? TAVLO_SIG_MODE : 0);
            signal->factor = 0.5;
            signal->offset = 1;
            CAN_INSERT_SIG(message, signal, static_cast<unsigned int>(k));
            if (k == 0 || muxes == 0 || random() % 3 == 0) {
                continue;  // selected by none
            }
            const std::size_t mux = random() % std::min(k, muxes);
            const unsigned int low = random() % 4;
            std::string ranges = std::to_string(low) + "-" + std::to_string(low + random() % 3);
            if (random() % 5 == 0) {
                ranges += ",6-7";
            }
            statements.push_back("SG_MUL_VAL_ " + std::to_string(m) + " S" + std::to_string(k) + " S" +
                                 std::to_string(mux) + " " + ranges + ";");
        }
        CAN_INSERT_MSG(&db.root.messages, message, m);
    }
};

TEST(Decoder, MultiplexedFramesDecodeAlikeEitherWay) {
    std::mt19937_64 random(20261124);
    const RandomNetwork network(random, 400, false);
    const tavlo::Decoder decoder(network.db.root, network.kept);
    ASSERT_EQ(tavlo_decoder_skipped(decoder.get(), nullptr), 0u);
    std::size_t present = 0;
    std::size_t absent = 0;
    for (unsigned int id = 0; id < 400; ++id) {
        const auto m = static_cast<std::size_t>(decoder.FindId(id));
        for (int f = 0; f < 16; ++f) {
            std::vector<unsigned char> frame(f < 12 ? 8 : random() % 65);
            for (unsigned char& byte : frame) {
                byte = static_cast<unsigned char>(random() % 4 == 0 ? random() : random() % 4);
            }
            SCOPED_TRACE("message " + std::to_string(id) + " frame " + std::to_string(f));
            const auto values = decoder.Decode(m, frame.data(), frame.size());
            ExpectSameById(decoder, id, values, frame.data(), frame.size());
            present += values.size();
            absent += decoder.Message(m)->signal_count - values.size();
        }
    }
    for (unsigned int id = 400; id < 800; ++id) {
        const unsigned char frame[8] = {};
        tavlo_dec_value_t values[16];
        std::size_t count = 9;
        EXPECT_EQ(tavlo_decoder_decode(decoder.get(), id, frame, 8, values, 16, &count),
                  TAVLO_DEC_UNKNOWN_MESSAGE);
        EXPECT_EQ(count, 0u);
    }
    // Both kinds are common enough that a wrong gate shows.
    EXPECT_GT(present, 10000u);
    EXPECT_GT(absent, 10000u);
}

// Batch decoding into columns gives, message by message and in the frames'
// order, what decoding each frame gives; unknown identifiers are counted, an
// overlong frame and the rows beyond a column's capacity are left out. Small
// batches are decoded frame by frame, large ones in groups by message.
TEST(Decoder, ColumnsHoldWhatEachFrameDecodesTo) {
    std::mt19937_64 random(7);
    const RandomNetwork network(random, 400, true);
    const tavlo::Decoder decoder(network.db.root, network.kept);
    const std::size_t messages = tavlo_decoder_message_count(decoder.get());
    for (const std::size_t frames : {std::size_t{1000}, std::size_t{70000}}) {
        SCOPED_TRACE(std::to_string(frames) + " frames");
        std::vector<unsigned int> ids(frames);
        std::vector<unsigned char> lengths(frames);
        std::vector<unsigned char> data(64 * frames);
        std::vector<double> times(frames);
        for (std::size_t i = 0; i < frames; ++i) {
            ids[i] = static_cast<unsigned int>(random() % 410);  // 400 and on are unknown
            lengths[i] = static_cast<unsigned char>(random() % 4 != 0 ? 8 : random() % 65);
            times[i] = 0.5 * static_cast<double>(i);
            for (std::size_t b = 0; b < 64; ++b) {
                data[64 * i + b] = static_cast<unsigned char>(random() % 3 == 0 ? random() : b % 4);
            }
        }
        const bool overlong = frames < 5000;  // else one column is too small
        if (overlong) {
            lengths[frames / 2] = 65;
        }
        std::vector<std::size_t> rows(messages, 0);
        const std::size_t strangers = tavlo_decoder_count(decoder.get(), frames, ids.data(), rows.data());
        std::vector<std::vector<double>> physical(messages);
        std::vector<std::vector<std::uint64_t>> raw(messages);
        std::vector<std::vector<double*>> physicalOf(messages);
        std::vector<std::vector<std::uint64_t*>> rawOf(messages);
        std::vector<std::vector<double>> timesOf(messages);
        std::vector<tavlo_dec_columns_t> columns(messages);
        for (std::size_t m = 0; m < messages; ++m) {
            const std::size_t signals = decoder.Message(m)->signal_count;
            const std::size_t capacity = rows[m] - (m == 3 && !overlong ? 1 : 0);
            physical[m].assign(signals * capacity, -1.0);
            raw[m].assign(signals * capacity, 99);
            timesOf[m].assign(capacity, -1.0);
            for (std::size_t k = 0; k < signals; ++k) {
                physicalOf[m].push_back(physical[m].data() + k * capacity);
                rawOf[m].push_back(raw[m].data() + k * capacity);
            }
            columns[m] = tavlo_dec_columns_t{capacity, 0, timesOf[m].data(), physicalOf[m].data(),
                                             rawOf[m].data()};
        }
        std::size_t unknown = 0;
        EXPECT_EQ(tavlo_decoder_decode_columns(decoder.get(), frames, times.data(), ids.data(),
                                               lengths.data(), data.data(), 64, columns.data(),
                                               &unknown),
                  overlong ? TAVLO_DEC_BAD_ARGUMENT : TAVLO_DEC_NO_MEMORY);
        EXPECT_EQ(unknown, strangers);
        EXPECT_GT(unknown, 0u);
        std::vector<std::size_t> next(messages, 0);
        for (std::size_t i = 0; i < frames; ++i) {
            const long found = decoder.FindId(ids[i]);
            if (found < 0 || lengths[i] > 64) {
                continue;
            }
            const auto m = static_cast<std::size_t>(found);
            const tavlo_dec_columns_t& column = columns[m];
            if (next[m] == column.capacity) {
                EXPECT_EQ(column.rows, column.capacity);
                continue;
            }
            const std::size_t row = next[m]++;
            ASSERT_LT(row, column.rows);
            EXPECT_EQ(timesOf[m][row], times[i]);
            const std::size_t signals = decoder.Message(m)->signal_count;
            std::vector<double> expected(signals, std::nan(""));
            std::vector<std::uint64_t> expectedRaw(signals, 0);
            for (const tavlo_dec_value_t& value : decoder.Decode(m, &data[64 * i], lengths[i])) {
                expected[value.signal] = value.physical;
                expectedRaw[value.signal] = value.raw;
            }
            for (std::size_t k = 0; k < signals; ++k) {
                const double got = column.physical[k][row];
                ASSERT_TRUE(got == expected[k] || (std::isnan(got) && std::isnan(expected[k])))
                    << "frame " << i << " signal " << k << ": " << got << ", not " << expected[k];
                ASSERT_EQ(column.raw[k][row], expectedRaw[k]) << "frame " << i << " signal " << k;
            }
        }
        for (std::size_t m = 0; m < messages; ++m) {
            EXPECT_EQ(columns[m].rows, next[m]) << "message " << m;
        }
    }
}

const char kLayouts[] =
    "VERSION \"\"\nNS_ :\nBS_:\nBU_: N\n"
    "BO_ 1 Wide: 8 N\n SG_ Intel : 0|64@1+ (1,0) [0|0] \"\" N\n"
    " SG_ Moto : 7|64@0+ (1,0) [0|0] \"\" N\n"
    "BO_ 2 Negative: 8 N\n SG_ Whole : 0|64@1- (1,0) [0|0] \"\" N\n"
    "BO_ 2147483651 Fd: 64 N\n SG_ First : 0|8@1+ (1,0) [0|0] \"\" N\n"
    " SG_ Last : 504|8@1+ (1,0) [0|0] \"\" N\n"
    "BO_ 4 Modes: 2 N\n SG_ Mux M : 0|4@1+ (1,0) [0|0] \"\" N\n"
    " SG_ A m1 : 4|4@1+ (1,0) [0|10] \"\" N\n SG_ B m2 : 4|4@1+ (1,0) [0|0] \"\" N\n"
    " SG_ Far : 16|8@1+ (1,0) [0|0] \"\" N\n SG_ Level : 8|8@1- (0.5,0) [-10|10] \"\" N\n"
    "VAL_ 4 A 3 \"Three\" ;\n";

TEST(Decoder, SixtyFourBitsAndFdFrames) {
    Root db;
    ReadText(kLayouts, &db.root);
    const tavlo::Decoder decoder(db.root);
    const std::vector<unsigned char> counting = Bytes("0102030405060708");
    auto values = decoder.Decode(decoder.FindId(1), counting.data(), 8);
    ASSERT_EQ(values.size(), 2u);
    EXPECT_EQ(values[0].raw, 0x0807060504030201u);
    EXPECT_EQ(values[1].raw, 0x0102030405060708u);
    const std::vector<unsigned char> ones(8, 0xFF);
    values = decoder.Decode(decoder.FindId(1), ones.data(), 8);
    EXPECT_EQ(values[0].raw, 18446744073709551615u);
    values = decoder.Decode(decoder.FindId(2), ones.data(), 8);
    EXPECT_EQ(static_cast<std::int64_t>(values[0].raw), -1);
    EXPECT_EQ(values[0].physical, -1.0);

    std::vector<unsigned char> fd(64, 0);
    fd[0] = 0x11;
    fd[63] = 0xEE;
    const long m = decoder.FindId(2147483651u);
    EXPECT_EQ(Present(decoder, 2147483651u, "11"), "First=17");  // Last lies beyond 1 byte
    values = decoder.Decode(m, fd.data(), 64);
    ASSERT_EQ(values.size(), 2u);
    EXPECT_EQ(values[1].raw, 0xEEu);
    EXPECT_EQ(decoder.Decode(m, fd.data(), 63).size(), 1u);
    EXPECT_STREQ(decoder.Describe(decoder.FindId(4), 1, 3), "Three");
    EXPECT_EQ(decoder.Describe(decoder.FindId(4), 1, 4), nullptr);
}

struct EncodeCase {
    std::vector<tavlo_dec_setting_t> settings;
    int result;
    const char* frame;  // of a result that gives one
    const char* error;
};

TEST(Decoder, EncodesOrSaysWhyNot) {
    Root db;
    ReadText(kLayouts, &db.root);
    const tavlo::Decoder decoder(db.root);
    const auto text = [](const char* name, const char* value) {
        return tavlo_dec_setting_t{name, TAVLO_DEC_SET_TEXT, 0, 0, value};
    };
    const auto physical = [](const char* name, double value) {
        return tavlo_dec_setting_t{name, TAVLO_DEC_SET_PHYSICAL, value, 0, nullptr};
    };
    const EncodeCase cases[] = {
        {{text("A", "Three")}, TAVLO_DEC_OK, "3100", ""},  // Mux set to select A
        {{physical("Level", -1.25)}, TAVLO_DEC_OK, "00FD", ""},  // -2.5 away from zero
        {{text("A", "11")}, TAVLO_DEC_OUT_OF_RANGE, "B100", "A=11 is out of range [0 .. 10]"},
        {{text("Nope", "1")}, TAVLO_DEC_UNKNOWN_SIGNAL, "", "message Modes has no signal Nope"},
        {{text("A", "Four")}, TAVLO_DEC_NO_DESCRIPTION, "",
         "A=Four: neither a number nor a value description"},
        {{physical("A", 16)}, TAVLO_DEC_DOES_NOT_FIT, "", "A=16 does not fit in the signal's 4 bits"},
        {{physical("Mux", -1)}, TAVLO_DEC_DOES_NOT_FIT, "", "Mux=-1 does not fit in the signal's 4 bits"},
        {{physical("Level", 64)}, TAVLO_DEC_DOES_NOT_FIT, "",
         "Level=64 does not fit in the signal's 8 bits"},
        {{physical("A", 1), physical("B", 1)}, TAVLO_DEC_CONFLICT, "",
         "A and B need different values of Mux"},
        {{physical("Mux", 2), physical("A", 1)}, TAVLO_DEC_CONFLICT, "", "Mux=2 does not select A"},
        {{physical("Far", 1)}, TAVLO_DEC_DOES_NOT_FIT, "", "Far lies beyond the message's 2 bytes"},
    };
    const long m = decoder.FindName("Modes");
    for (const EncodeCase& c : cases) {
        std::vector<unsigned char> frame;
        std::string error;
        EXPECT_EQ(decoder.Encode(m, c.settings, frame, error), c.result) << c.error;
        EXPECT_EQ(error, c.error);
        std::vector<unsigned char> expected = Bytes(c.frame);
        if (c.frame[0] != '\0') {
            EXPECT_EQ(frame, expected) << c.error;
        }
    }
}

}  // namespace
