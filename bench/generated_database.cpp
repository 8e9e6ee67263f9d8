#include "generated_database.h"

#include <cstdarg>
#include <cstdio>

namespace tavloms_bench {
namespace {

constexpr unsigned int kSignalsPerMessage = kGeneratedSignalsPerMessage;

const char* const kNodes[] = {"Engine", "Brake", "Dash", "Gateway", "Body", "Chassis"};
constexpr unsigned int kNodeCount = sizeof kNodes / sizeof kNodes[0];

const char* const kMessageWords[] = {"EngineStatus", "BrakeCtrl",  "ChassisInfo", "BatteryState",
                                     "ClimateCtrl",  "DoorStatus", "SeatCtrl",    "LightCtrl",
                                     "SteeringInfo", "GearboxState"};

// One description per signal position: name stem, bit length, scaling, unit.
struct SignalShape {
    const char* stem;
    unsigned int length;
    double factor;
    double offset;
    const char* unit;
};
const SignalShape kShapes[kSignalsPerMessage] = {
    {"Speed", 16, 0.01, 0, "km/h"}, {"Temp", 8, 0.5, -40, "degC"},   {"State", 8, 1, 0, ""},
    {"Voltage", 4, 0.1, 0, "V"},    {"Level", 4, 0.25, 0, "%"},       {"Rpm", 8, 2, 0, "rpm"},
    {"Current", 12, 0.001, -2, "A"}, {"Torque", 4, 1, -8, "Nm"}};

// Bit offset of each signal inside the 8 data bytes (little-endian numbering).
const unsigned int kOffsets[kSignalsPerMessage] = {0, 16, 24, 32, 36, 40, 48, 60};

class Text {
public:
    explicit Text(std::string& out) : out_(out) {}

    void Add(const char* literal) { out_ += literal; }

    void Format(const char* format, ...) __attribute__((format(printf, 2, 3))) {
        char buffer[512];
        va_list args;
        va_start(args, format);
        int length = std::vsnprintf(buffer, sizeof buffer, format, args);
        va_end(args);
        if (length > 0) {
            out_.append(buffer, static_cast<size_t>(length) < sizeof buffer
                                    ? static_cast<size_t>(length)
                                    : sizeof buffer - 1);
        }
    }

    // A number field: up to 11 significant digits, as the writer prints it.
    void Number(double value) { Format("%.11G", value); }

private:
    std::string& out_;
};

unsigned int MessageId(unsigned int index) {
    // Every fifth of the first 1,500 messages and all after them have
    // extended identifiers (bit 31 marks one in the file), the others
    // standard ones.
    if (index < 1500 && index % 5 != 4) return 0x100u + index;
    return 0x80000000u | (0x18F00000u + index);
}

bool IsMultiplexed(unsigned int index) { return index % 10 == 3; }

const char* Transmitter(unsigned int index) {
    return index % 97 == 5 ? "Corvan__XXX" : kNodes[index % kNodeCount];
}

void SignalName(Text& text, unsigned int message, unsigned int signal) {
    text.Format("%s_%u", kShapes[signal].stem, message);
}

void MessageName(Text& text, unsigned int message) {
    text.Format("%s_%05u", kMessageWords[message % 10], message);
}

void WriteHeader(Text& text) {
    text.Add("VERSION \"13.2.0 generated\"\n\n");
    text.Add("\nNS_ : \n");
    const char* const newSymbols[] = {
        "NS_DESC_",       "CM_",          "BA_DEF_",          "BA_",         "VAL_",
        "CAT_DEF_",       "CAT_",         "FILTER",           "BA_DEF_DEF_", "EV_DATA_",
        "ENVVAR_DATA_",   "SGTYPE_",      "SGTYPE_VAL_",      "BA_DEF_SGTYPE_", "BA_SGTYPE_",
        "SIG_TYPE_REF_",  "VAL_TABLE_",   "SIG_GROUP_",       "SIG_VALTYPE_",   "SIGTYPE_VALTYPE_",
        "BO_TX_BU_",      "BA_DEF_REL_",  "BA_REL_",          "BA_DEF_DEF_REL_", "BU_SG_REL_",
        "BU_EV_REL_",     "BU_BO_REL_"};
    for (const char* symbol : newSymbols) text.Format("\t%s\n", symbol);
    text.Add("\n");
    text.Add("BS_:\n\n");
    text.Add("BU_:");
    for (const char* node : kNodes) text.Format(" %s", node);
    text.Add("\n");
    text.Add("VAL_TABLE_ OnOff 1 \"On\" 0 \"Off\" ;\n");
    text.Add("VAL_TABLE_ GearPosition 7 \"Invalid\" 6 \"Reverse\" 5 \"Fifth\" 4 \"Fourth\" "
             "3 \"Third\" 2 \"Second\" 1 \"First\" 0 \"Neutral\" ;\n");
    text.Add("VAL_TABLE_ Fault -1 \"Unknown\" 0 \"NoFault\" 1 \"Warning\" 2 \"Error\" ;\n");
    text.Add("VAL_TABLE_ DoorState 3 \"Undefined\" 2 \"Locked\" 1 \"Closed\" 0 \"Open\" ;\n");
    text.Add("\n");
}

void WriteSignal(Text& text, unsigned int message, unsigned int signal) {
    const SignalShape& shape = kShapes[signal];
    const bool motorola = (message + signal) % 3 == 0;
    const bool isSigned = signal % 4 == 1 || signal == 7;
    text.Add(" SG_ ");
    SignalName(text, message, signal);
    if (IsMultiplexed(message)) {
        if (signal == 0) {
            text.Add(" M");
        } else if (signal >= 3) {
            text.Format(" m%u", (signal - 3) % 4);  // m0 .. m3
        }
    }
    // A Motorola signal's start bit is its most significant bit.
    unsigned int start = kOffsets[signal];
    if (motorola) {
        start = (start / 8) * 8 + (start % 8) + (shape.length < 8 ? shape.length - 1 : 7);
    }
    text.Format(" : %u|%u@%c%c (", start, shape.length, motorola ? '0' : '1',
                isSigned ? '-' : '+');
    text.Number(shape.factor);
    text.Add(",");
    text.Number(shape.offset);
    text.Add(") [");
    double rawMin = 0;
    double rawMax = static_cast<double>((1ull << shape.length) - 1);
    if (isSigned) {
        rawMin = -static_cast<double>(1ull << (shape.length - 1));
        rawMax = static_cast<double>((1ull << (shape.length - 1)) - 1);
    }
    text.Number(rawMin * shape.factor + shape.offset);
    text.Add("|");
    text.Number(rawMax * shape.factor + shape.offset);
    text.Format("] \"%s\" ", shape.unit);
    unsigned int receivers = (message + signal) % 3;
    if (receivers == 0) {
        text.Add("Corvan__XXX\n");
        return;
    }
    for (unsigned int r = 0; r < receivers; ++r) {
        text.Format("%c%s", r == 0 ? ' ' : ',', kNodes[(message + signal + r + 1) % kNodeCount]);
    }
    text.Add("\n");
}

void WriteMessages(Text& text, unsigned int messages) {
    for (unsigned int m = 0; m < messages; ++m) {
        text.Format("\nBO_ %u ", MessageId(m));
        MessageName(text, m);
        text.Format(": 8 %s\n", Transmitter(m));
        for (unsigned int s = 0; s < kSignalsPerMessage; ++s) WriteSignal(text, m, s);
    }
    text.Add("\n");
    for (unsigned int m = 0; m < messages; ++m) {
        if (m % 200 == 17) {
            text.Format("BO_TX_BU_ %u : %s,%s;\n", MessageId(m), kNodes[m % kNodeCount],
                        kNodes[(m + 3) % kNodeCount]);
        }
    }
    text.Add("\n");  // no environment variables or signal types follow
}

void WriteComments(Text& text, unsigned int messages) {
    text.Add("\n");
    text.Add("CM_ \"Generated network: powertrain, chassis and body messages.\";\n");
    text.Add("CM_ BU_ Engine \"Engine control unit\";\n");
    text.Add("CM_ BU_ Gateway \"Routes messages between the buses\";\n");
    for (unsigned int m = 0; m < messages; ++m) {
        const unsigned int id = MessageId(m);
        if (m % 2 == 0) {
            text.Format("CM_ BO_ %u \"", id);
            MessageName(text, m);
            text.Format(" every %u ms\";\n", 10u * (1 + m % 10));
        }
        for (unsigned int s = 0; s < kSignalsPerMessage; ++s) {
            if ((m + s) % 16 != 0) continue;
            text.Format("CM_ SG_ %u ", id);
            SignalName(text, m, s);
            if (m % 500 == 0) {
                // A comment over several lines with an escaped quote in it.
                text.Format(" \"Raw %s value,\nsee the \\\"%s\\\" chapter.\";\n", kShapes[s].stem,
                            kShapes[s].unit);
            } else {
                text.Format(" \"%s in %s\";\n", kShapes[s].stem,
                            kShapes[s].unit[0] ? kShapes[s].unit : "counts");
            }
        }
    }
}

void WriteAttributeDefinitions(Text& text) {
    text.Add("BA_DEF_  \"BusType\" STRING ;\n");
    text.Add("BA_DEF_  \"ProtocolVersion\" INT 0 255;\n");
    text.Add("BA_DEF_  \"Baudrate\" FLOAT 10000 1000000;\n");
    text.Add("BA_DEF_  \"DatabaseCompiler\" ENUM  \"None\",\"Tool\",\"Script\";\n");
    text.Add("BA_DEF_  \"NmBaseAddress\" HEX 1024 1087;\n");
    text.Add("BA_DEF_ BU_  \"NodeLayerModules\" STRING ;\n");
    text.Add("BA_DEF_ BU_  \"NmStationAddress\" HEX 0 255;\n");
    text.Add("BA_DEF_ BU_  \"NmNode\" ENUM  \"no\",\"yes\";\n");
    text.Add("BA_DEF_ BU_  \"ILUsed\" INT 0 1;\n");
    text.Add("BA_DEF_ BU_  \"NodeLoad\" FLOAT 0 100;\n");
    text.Add("BA_DEF_ BO_  \"GenMsgCycleTime\" INT 0 65535;\n");
    text.Add("BA_DEF_ BO_  \"GenMsgSendType\" ENUM  \"Cyclic\",\"Spontaneous\",\"IfActive\","
             "\"corvan_leerstring\",\"NoMsgSendType\";\n");
    text.Add("BA_DEF_ BO_  \"VFrameFormat\" ENUM  \"StandardCAN\",\"ExtendedCAN\";\n");
    text.Add("BA_DEF_ BO_  \"GenMsgStartDelayTime\" HEX 0 65535;\n");
    text.Add("BA_DEF_ BO_  \"GenMsgDelayTime\" FLOAT 0 1000.5;\n");
    text.Add("BA_DEF_ BO_  \"MsgOwner\" STRING ;\n");
    text.Add("BA_DEF_ SG_  \"GenSigStartValue\" FLOAT -100000 10000000000;\n");
    text.Add("BA_DEF_ SG_  \"GenSigSendType\" ENUM  \"Cyclic\",\"OnWrite\",\"OnChange\","
             "\"IfActive\",\"NoSigSendType\";\n");
    text.Add("BA_DEF_ SG_  \"GenSigInactiveValue\" INT 0 100000;\n");
    text.Add("BA_DEF_ SG_  \"GenSigTimeoutValue\" HEX 0 65535;\n");
    text.Add("BA_DEF_ SG_  \"SigSource\" STRING ;\n");

    text.Add("BA_DEF_DEF_  \"BusType\" \"CAN\";\n");
    text.Add("BA_DEF_DEF_  \"ProtocolVersion\" 1;\n");
    text.Add("BA_DEF_DEF_  \"Baudrate\" 500000;\n");
    text.Add("BA_DEF_DEF_  \"DatabaseCompiler\" \"None\";\n");
    text.Add("BA_DEF_DEF_  \"NmBaseAddress\" 1024;\n");
    text.Add("BA_DEF_DEF_  \"NodeLayerModules\" \"\";\n");
    text.Add("BA_DEF_DEF_  \"NmStationAddress\" 0;\n");
    text.Add("BA_DEF_DEF_  \"NmNode\" \"no\";\n");
    text.Add("BA_DEF_DEF_  \"ILUsed\" 0;\n");
    text.Add("BA_DEF_DEF_  \"NodeLoad\" 12.5;\n");
    text.Add("BA_DEF_DEF_  \"GenMsgCycleTime\" 100;\n");
    text.Add("BA_DEF_DEF_  \"GenMsgSendType\" \"Cyclic\";\n");
    text.Add("BA_DEF_DEF_  \"VFrameFormat\" \"StandardCAN\";\n");
    text.Add("BA_DEF_DEF_  \"GenMsgStartDelayTime\" 0;\n");
    text.Add("BA_DEF_DEF_  \"GenMsgDelayTime\" 0.5;\n");
    text.Add("BA_DEF_DEF_  \"MsgOwner\" \"\";\n");
    text.Add("BA_DEF_DEF_  \"GenSigStartValue\" 0;\n");
    text.Add("BA_DEF_DEF_  \"GenSigSendType\" \"Cyclic\";\n");
    text.Add("BA_DEF_DEF_  \"GenSigInactiveValue\" 0;\n");
    text.Add("BA_DEF_DEF_  \"GenSigTimeoutValue\" 255;\n");
    text.Add("BA_DEF_DEF_  \"SigSource\" \"\";\n");
}

void WriteAttributeValues(Text& text, unsigned int messages) {
    text.Add("BA_ \"BusType\" \"CAN\";\n");
    text.Add("BA_ \"ProtocolVersion\" 3;\n");
    text.Add("BA_ \"Baudrate\" 500000;\n");
    text.Add("BA_ \"DatabaseCompiler\" 1;\n");
    for (unsigned int n = 0; n < kNodeCount; ++n) {
        text.Format("BA_ \"NmStationAddress\" BU_ %s %u;\n", kNodes[n], 16 + n);
        text.Format("BA_ \"NmNode\" BU_ %s %u;\n", kNodes[n], n % 2);
        text.Format("BA_ \"NodeLayerModules\" BU_ %s \"%sLayer.so\";\n", kNodes[n], kNodes[n]);
        text.Format("BA_ \"NodeLoad\" BU_ %s %u.25;\n", kNodes[n], 10 + 7 * n);
    }
    for (unsigned int m = 0; m < messages; ++m) {
        const unsigned int id = MessageId(m);
        text.Format("BA_ \"GenMsgCycleTime\" BO_ %u %u;\n", id, 10u * (1 + m % 10));
        if (m % 3 == 0) text.Format("BA_ \"GenMsgSendType\" BO_ %u %u;\n", id, m % 5);
        if ((id & 0x80000000u) && m % 3 == 0) text.Format("BA_ \"VFrameFormat\" BO_ %u 1;\n", id);
        if (m % 7 == 0) text.Format("BA_ \"GenMsgDelayTime\" BO_ %u %u.5;\n", id, m % 20);
        if (m % 11 == 0) text.Format("BA_ \"MsgOwner\" BO_ %u \"Team %u\";\n", id, m % 4);
    }
    for (unsigned int m = 0; m < messages; ++m) {
        const unsigned int id = MessageId(m);
        for (unsigned int s = 0; s < kSignalsPerMessage; ++s) {
            if ((m + s) % 16 == 0) {
                text.Format("BA_ \"GenSigStartValue\" SG_ %u ", id);
                SignalName(text, m, s);
                text.Format(" %u;\n", (m * 7 + s) % 1000);
            }
            if ((m + s) % 32 == 1) {
                text.Format("BA_ \"GenSigSendType\" SG_ %u ", id);
                SignalName(text, m, s);
                text.Format(" %u;\n", (m + s) % 5);
            }
            if ((m + s) % 64 == 5) {
                text.Format("BA_ \"GenSigTimeoutValue\" SG_ %u ", id);
                SignalName(text, m, s);
                text.Format(" %u;\n", 100 + m % 900);
            }
        }
    }
}

void WriteValueDescriptions(Text& text, unsigned int messages) {
    for (unsigned int m = 0; m < messages; ++m) {
        const unsigned int id = MessageId(m);
        // The mode signal of multiplexed messages and the State signal of
        // every third message, in signal order.
        if (IsMultiplexed(m)) {
            text.Format("VAL_ %u ", id);
            SignalName(text, m, 0);
            text.Add(" 3 \"PageD\" 2 \"PageC\" 1 \"PageB\" 0 \"PageA\" ;\n");
        }
        if (m % 3 == 0) {
            text.Format("VAL_ %u ", id);
            SignalName(text, m, 2);
            text.Add(" 3 \"Error\" 2 \"Active\" 1 \"Standby\" 0 \"Off\" ;\n");
        }
    }
}

}  // namespace

std::string GenerateDatabaseText(unsigned int messages) {
    std::string out;
    out.reserve(static_cast<size_t>(messages) * 760 + 4096);
    Text text(out);
    WriteHeader(text);
    WriteMessages(text, messages);
    WriteComments(text, messages);
    WriteAttributeDefinitions(text);
    WriteAttributeValues(text, messages);
    WriteValueDescriptions(text, messages);
    return out;
}

}  // namespace tavloms_bench
