// python/_tavloms.cpp: the extension module behind the Python package
// tavloms. A database is loaded with tavlo_load, compiled into a decoder and
// described once into plain objects (the records are freed right after);
// frames are decoded and encoded by the decoder, logs read by tavloms_logs.
// Texts of the files are bytes in no known encoding: they cross into Python
// as UTF-8 with "surrogateescape", so that any byte comes back unchanged.
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdint>
#include <cstring>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include <tavloms/decoder.h>
#include <tavloms/lifecycle.h>
#include <tavloms/load.h>
#include <tavloms/logs.h>

namespace py = pybind11;

namespace {

constexpr std::uint32_t kExtendedBit = 0x80000000u;
// Ranges of multiplexer values are listed value by value up to this many.
constexpr std::uint64_t kMostListedValues = 65536;

py::str Str(const char* text) {
    if (text == nullptr) {
        text = "";
    }
    PyObject* decoded =
        PyUnicode_DecodeUTF8(text, static_cast<Py_ssize_t>(std::strlen(text)), "surrogateescape");
    if (decoded == nullptr) {
        throw py::error_already_set();
    }
    return py::reinterpret_steal<py::str>(decoded);
}

std::string Bytes(const py::handle& text) {
    PyObject* encoded = PyUnicode_AsEncodedString(text.ptr(), "utf-8", "surrogateescape");
    if (encoded == nullptr) {
        throw py::error_already_set();
    }
    return py::reinterpret_steal<py::bytes>(encoded);
}

std::optional<std::string> Comment(const char* text) {
    if (text == nullptr) {
        return std::nullopt;
    }
    return std::string(text);
}

// A number as a double; TypeError for anything else.
double Double(const py::handle& value) {
    const double number = PyFloat_AsDouble(value.ptr());
    if (number == -1.0 && PyErr_Occurred() != nullptr) {
        throw py::error_already_set();
    }
    return number;
}

// Names as a list of str.
py::list StrList(const std::vector<std::string>& names) {
    py::list list;
    for (const std::string& name : names) {
        list.append(Str(name.c_str()));
    }
    return list;
}

py::object OptionalStr(const std::optional<std::string>& text) {
    return text ? py::object(Str(text->c_str())) : py::object(py::none());
}

std::string Hex(std::uint32_t id) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%X", static_cast<unsigned int>(id));
    return text;
}

// The identifier as the records hold it (bit 31 for an extended one) of an
// identifier as a Python user gives it. Without is_extended, identifiers
// above 0x7FF are extended; one given with bit 31 set already is as well.
std::uint32_t RecordId(const py::int_& frameId, const py::object& isExtended) {
    const unsigned long long value = PyLong_AsUnsignedLongLong(frameId.ptr());
    if (PyErr_Occurred() != nullptr ||
        (value & ~static_cast<unsigned long long>(kExtendedBit)) > 0x1FFFFFFFull) {
        PyErr_Clear();
        throw py::value_error("frame_id " + std::string(py::repr(frameId)) +
                              " is not a CAN identifier");
    }
    const auto id = static_cast<std::uint32_t>(value);
    bool extended = (id & kExtendedBit) != 0 || id > 0x7FF;
    if (!isExtended.is_none()) {
        extended = (id & kExtendedBit) != 0 || isExtended.cast<bool>();
    }
    return extended ? (id | kExtendedBit) : id;
}

// An attribute's value as the file gives it (or its definition's default).
struct Attribute {
    std::string name;
    unsigned int type = TAVLO_ATTR_INT;  // TAVLO_ATTR_*
    double number = 0;                   // INT, HEX, FLOAT
    std::string text;                    // STRING, ENUM
};
using Attributes = std::vector<Attribute>;

// The i-th of an enumeration's texts, which the definition joins by line
// feeds, if it has one.
std::optional<std::string> EnumText(const attr_def& def, double index) {
    const char* all = def.minimum.text;
    if (all == nullptr || !(index >= 0) || index != std::floor(index)) {
        return std::nullopt;
    }
    auto wanted = static_cast<unsigned long>(index);
    for (const char* at = all;; ++at) {
        const char* end = std::strchr(at, '\n');
        if (wanted-- == 0) {
            return end != nullptr ? std::string(at, end) : std::string(at);
        }
        if (end == nullptr) {
            return std::nullopt;
        }
        at = end;
    }
}

// The attributes defined for objects of kind: the object's own value
// where given, else the definition's default, in the definitions' order.
Attributes AttributesOf(const tavlo_root_t& root, unsigned int kind, const attr* given) {
    Attributes attributes;
    for (const attr_def* def = root.attr_defs; def != nullptr; def = def->next) {
        if (def->object_type != kind) {
            continue;
        }
        const attr* value = given;
        while (value != nullptr && value->def != def) {
            value = value->next;
        }
        Attribute attribute;
        attribute.name = def->name;
        attribute.type = def->value_type;
        const bool textual = def->value_type == TAVLO_ATTR_STRING;
        if (value != nullptr) {
            if (textual) {
                attribute.text = value->value.text != nullptr ? value->value.text : "";
            } else if (def->value_type == TAVLO_ATTR_ENUM) {
                const std::optional<std::string> text = EnumText(*def, value->value.number);
                attribute.text = text.value_or(std::string());
                if (!text) {
                    attribute.type = TAVLO_ATTR_INT;  // an index beyond the texts: the number
                    attribute.number = value->value.number;
                }
            } else {
                attribute.number = value->value.number;
            }
        } else if (textual || def->value_type == TAVLO_ATTR_ENUM) {
            attribute.text = def->default_value.text != nullptr ? def->default_value.text : "";
        } else {
            attribute.number = def->default_value.number;
        }
        attributes.push_back(std::move(attribute));
    }
    return attributes;
}

// name -> int (INT, HEX), float (FLOAT) or str (STRING, ENUM: its text).
py::dict AttributeDict(const Attributes& attributes) {
    py::dict values;
    for (const Attribute& a : attributes) {
        py::object value;
        if (a.type == TAVLO_ATTR_STRING || a.type == TAVLO_ATTR_ENUM) {
            value = Str(a.text.c_str());
        } else if (a.type == TAVLO_ATTR_FLOAT || a.number != std::floor(a.number) ||
                   std::fabs(a.number) >= 9.2e18) {
            value = py::float_(a.number);
        } else {
            value = py::int_(static_cast<long long>(a.number));
        }
        values[Str(a.name.c_str())] = value;
    }
    return values;
}

struct Diagnostic {
    std::string file;
    unsigned int line = 0;
    unsigned int column = 0;
    unsigned int code = 0;
    std::string text;
    bool error = false;
};

struct Signal {
    std::string name;        // the full name
    py::object pyName;       // name as a str, made once (with the interpreter's lock held)
    std::string record_name; // the name the decoder knows
    unsigned int start = 0;
    unsigned int length = 0;
    bool big_endian = false;
    bool is_signed = false;
    int kind = TAVLO_DEC_UNSIGNED;
    double factor = 1;
    double offset = 0;
    double minimum = 0;
    double maximum = 0;
    std::string unit;
    std::vector<std::string> receivers;
    bool is_multiplexer = false;
    std::optional<std::string> multiplexer_signal;
    std::vector<tavlo_dec_range_t> ranges;
    std::map<std::int64_t, std::string> choices;
    std::optional<std::string> comment;
    Attributes attributes;

    bool is_float() const { return kind == TAVLO_DEC_FLOAT || kind == TAVLO_DEC_DOUBLE; }
};

struct Message {
    std::string name;
    std::uint32_t id = 0;  // bit 31 for an extended one
    std::size_t index = 0; // in the decoder
    unsigned int length = 0;
    std::vector<std::string> senders;
    std::vector<std::shared_ptr<Signal>> signals;
    std::optional<std::string> comment;
    Attributes attributes;
    std::unordered_map<std::string, std::size_t> byName;  // full and record names

    std::size_t SignalIndex(const std::string& wanted) const {
        const auto found = byName.find(wanted);
        if (found == byName.end()) {
            throw py::key_error("message " + name + " has no signal " + wanted);
        }
        return found->second;
    }
};

struct Database {
    std::string path;
    tavlo::Decoder decoder;
    std::vector<std::shared_ptr<Message>> messages;
    std::vector<std::string> nodes;
    std::vector<Diagnostic> diagnostics;
    std::string version;
    std::optional<std::string> comment;
    Attributes attributes;
    std::unordered_map<std::string, std::size_t> byName;  // full and record names
    // Made with the interpreter's lock held, as they are needed: the value
    // description texts as str, by the decoder's text, and a dict the
    // package keeps its own per-database things in.
    mutable std::unordered_map<const char*, py::object> texts;
    mutable py::object cache;
    // What decoding a frame needs of its signals, in one array by message
    // (message m's from firstDecoded[m] to firstDecoded[m + 1]), so that a
    // frame touches a few lines rather than an object per signal.
    struct Decoded {
        PyObject* name;  // the signal's pyName, which the signal keeps
        int kind;
    };
    std::vector<Decoded> decoded;
    std::vector<std::size_t> firstDecoded;

    // The decoder's index of the message of an identifier as the records
    // hold it; KeyError when there is none.
    std::size_t FindIndex(std::uint32_t id) const {
        const long index = decoder.FindId(id);
        if (index < 0) {
            throw py::key_error("no message with frame id " + Hex(id & ~kExtendedBit) +
                                ((id & kExtendedBit) != 0 ? " (extended)" : ""));
        }
        return static_cast<std::size_t>(index);
    }

    const Message& Find(const py::object& nameOrId, const py::object& isExtended) const {
        if (py::isinstance<py::str>(nameOrId)) {
            const std::string name = Bytes(nameOrId);
            const auto found = byName.find(name);
            if (found == byName.end()) {
                throw py::key_error("no message named " + name);
            }
            return *messages[found->second];
        }
        if (!py::isinstance<py::int_>(nameOrId)) {
            throw py::type_error("a message is given by its name (str) or frame id (int)");
        }
        return *messages[FindIndex(RecordId(nameOrId, isExtended))];
    }
};

std::string NodeName(const symblk* node) {
    return node != nullptr ? tavlo::FullName(TAVLO_OBJ_NODE, node) : std::string();
}

void AddOnce(std::vector<std::string>& names, const std::string& name) {
    if (!name.empty() && std::find(names.begin(), names.end(), name) == names.end()) {
        names.push_back(name);
    }
}

// The signals of message number index as the decoder compiled them, with
// what only the records hold (receivers, comments, full names).
std::shared_ptr<Message> Describe(const tavlo_root_t& root, const tavlo::Decoder& decoder,
                                  std::size_t index, const msgblk* record) {
    const tavlo_dec_message_t& compiled = *decoder.Message(index);
    auto message = std::make_shared<Message>();
    message->name = tavlo::FullName(TAVLO_OBJ_MESSAGE, record);
    message->id = compiled.id;
    message->index = index;
    message->length = compiled.length;
    message->comment = Comment(record->comment);
    message->attributes = AttributesOf(root, TAVLO_OBJ_MESSAGE, record->attributes);
    AddOnce(message->senders, NodeName(record->transmitter));
    for (const rxblk* tx = record->transmitters; tx != nullptr; tx = tx->next) {
        AddOnce(message->senders, NodeName(tx->symbol));
    }
    const sigblk* s = record->signals;
    for (std::size_t i = 0; i < compiled.signal_count && s != nullptr; ++i, s = s->next) {
        const tavlo_dec_signal_t& c = compiled.signals[i];
        auto signal = std::make_shared<Signal>();
        signal->name = tavlo::FullName(TAVLO_OBJ_SIGNAL, s);
        signal->record_name = c.name;
        signal->start = c.start_bit;
        signal->length = c.length;
        signal->big_endian = c.motorola != 0;
        const unsigned int flags = s->flags;
        signal->is_signed = (flags & TAVLO_SIG_SIGNED) != 0 || c.kind == TAVLO_DEC_SIGNED;
        signal->kind = c.kind;
        signal->factor = c.factor;
        signal->offset = c.offset;
        signal->minimum = c.minimum;
        signal->maximum = c.maximum;
        signal->unit = c.unit;
        for (const rxblk* rx = s->receivers; rx != nullptr; rx = rx->next) {
            AddOnce(signal->receivers, NodeName(rx->symbol));
        }
        signal->is_multiplexer = c.is_multiplexer != 0;
        if (c.multiplexer >= 0 && static_cast<std::size_t>(c.multiplexer) < compiled.signal_count) {
            signal->ranges.assign(c.ranges, c.ranges + c.range_count);
        } else if ((flags & TAVLO_SIG_MULTIPLEXED) != 0) {
            const std::uint64_t value = s->mode_value;
            signal->ranges.assign(1, tavlo_dec_range_t{value, value});
        }
        for (std::size_t d = 0; d < c.description_count; ++d) {
            signal->choices.emplace(c.descriptions[d].value, c.descriptions[d].text);
        }
        signal->comment = Comment(s->comment);
        signal->attributes = AttributesOf(root, TAVLO_OBJ_SIGNAL, s->attributes);
        message->byName.emplace(signal->record_name, i);
        message->signals.push_back(std::move(signal));
    }
    // Full names first: a record name never hides another signal's full name.
    for (std::size_t i = 0; i < message->signals.size(); ++i) {
        message->byName[message->signals[i]->name] = i;
        const tavlo_dec_signal_t& c = compiled.signals[i];
        if (c.multiplexer >= 0 && static_cast<std::size_t>(c.multiplexer) < message->signals.size()) {
            message->signals[i]->multiplexer_signal =
                message->signals[static_cast<std::size_t>(c.multiplexer)]->name;
        }
    }
    return message;
}

// tavlo_load: (status, database or None, diagnostics).
py::tuple Load(const std::string& path, bool strict) {
    auto db = std::make_shared<Database>();
    db->path = path;
    unsigned int status = TAVLO_LOAD_NOT_FOUND;
    {
        py::gil_scoped_release unlocked;  // nothing of Python's until the end of the block
        tavlo::Loaded loaded(path.c_str(), strict ? TAVLO_LOAD_STRICT : TAVLO_LOAD_TOLERANT);
        status = loaded.status();
        for (const tavlo_diagnostic_t& d : loaded.diagnostics()) {
            db->diagnostics.push_back(Diagnostic{path, d.line, d.column, d.code,
                                                 d.text != nullptr ? d.text : "",
                                                 d.severity == TAVLO_SEVERITY_ERROR});
        }
        if (loaded.ok()) {
            tavlo_root_t& root = loaded.root();
            db->decoder = tavlo::Decoder(root, loaded.kept());
            if (!db->decoder) {
                throw std::bad_alloc();
            }
            const char* version = root.version;
            db->version = version != nullptr ? version : "";
            db->comment = Comment(root.comment);
            db->attributes = AttributesOf(root, TAVLO_OBJ_NETWORK, root.db_attrs);
            for (const symblk* n = root.nodes; n != nullptr; n = n->next) {
                db->nodes.push_back(NodeName(n));
            }
            std::size_t index = 0;
            for (const msgblk* m = root.messages; m != nullptr; m = m->next, ++index) {
                db->messages.push_back(Describe(root, db->decoder, index, m));
                db->byName.emplace(m->name, index);
            }
            for (std::size_t i = 0; i < db->messages.size(); ++i) {
                db->byName[db->messages[i]->name] = i;
            }
        }
    }
    for (const std::shared_ptr<Message>& message : db->messages) {
        db->firstDecoded.push_back(db->decoded.size());
        for (const std::shared_ptr<Signal>& signal : message->signals) {
            signal->pyName = Str(signal->name.c_str());
            db->decoded.push_back(Database::Decoded{signal->pyName.ptr(), signal->kind});
        }
    }
    db->firstDecoded.push_back(db->decoded.size());
    py::list diagnostics;
    for (const Diagnostic& d : db->diagnostics) {
        diagnostics.append(py::cast(d));
    }
    return py::make_tuple(status, status == TAVLO_LOAD_OK ? py::cast(db) : py::none(),
                          diagnostics);
}

py::object RawValue(int kind, std::uint64_t raw) {
    switch (kind) {
    case TAVLO_DEC_SIGNED: return py::int_(static_cast<std::int64_t>(raw));
    case TAVLO_DEC_FLOAT: {
        const auto bits = static_cast<std::uint32_t>(raw);
        float value;
        std::memcpy(&value, &bits, sizeof value);
        return py::float_(value);
    }
    case TAVLO_DEC_DOUBLE: {
        double value;
        std::memcpy(&value, &raw, sizeof value);
        return py::float_(value);
    }
    default: return py::int_(raw);
    }
}

// The str of a value description text, made once per text.
PyObject* DescriptionText(const Database& db, const char* text) {
    py::object& made = db.texts[text];
    if (!made) {
        made = Str(text);
    }
    return made.ptr();
}

constexpr std::size_t kValuesOnStack = 64;

constexpr const char* kAttributesDoc =
    "The attributes defined for objects of its kind, by name: its own value where the file "
    "gives one, else the definition's default; int (INT, HEX), float (FLOAT) or str (STRING, "
    "and an ENUM's text).";

// Database.decode, called by the interpreter without an argument parser in
// between: a frame is decoded in well under a microsecond, so what the
// binding does per call is what counts.
PyObject* DecodeCall(PyObject* self, PyObject* const* args, Py_ssize_t given,
                     PyObject* keywordNames) {
    static const char* const kNames[] = {"frame_id", "data", "decode_choices", "raw",
                                         "is_extended"};
    constexpr Py_ssize_t kPositional = 4;  // is_extended is keyword-only
    try {
        PyObject* argument[5] = {nullptr, nullptr, nullptr, nullptr, nullptr};
        if (given > kPositional) {
            throw py::type_error("decode() takes at most 4 positional arguments (" +
                                 std::to_string(given) + " given)");
        }
        for (Py_ssize_t i = 0; i < given; ++i) {
            argument[i] = args[i];
        }
        const Py_ssize_t keywords = keywordNames != nullptr ? PyTuple_GET_SIZE(keywordNames) : 0;
        for (Py_ssize_t k = 0; k < keywords; ++k) {
            PyObject* name = PyTuple_GET_ITEM(keywordNames, k);
            std::size_t which = 0;
            while (which < 5 && PyUnicode_CompareWithASCIIString(name, kNames[which]) != 0) {
                ++which;
            }
            if (which == 5) {
                throw py::type_error("decode() got an unexpected keyword argument " +
                                     std::string(py::repr(name)));
            }
            if (argument[which] != nullptr) {
                throw py::type_error(std::string("decode() got multiple values for argument '") +
                                     kNames[which] + "'");
            }
            argument[which] = args[given + k];
        }
        for (std::size_t i = 0; i < 2; ++i) {
            if (argument[i] == nullptr) {
                throw py::type_error(std::string("decode() missing required argument '") +
                                     kNames[i] + "'");
            }
        }
        const auto truth = [](PyObject* flag, bool absent) {
            if (flag == nullptr) {
                return absent;
            }
            const int value = PyObject_IsTrue(flag);
            if (value < 0) {
                throw py::error_already_set();
            }
            return value != 0;
        };
        const bool decodeChoices = truth(argument[2], true);
        const bool raw = truth(argument[3], false);
        if (!PyLong_Check(argument[0])) {
            throw py::type_error("frame_id must be an int, not " +
                                 std::string(Py_TYPE(argument[0])->tp_name));
        }
        const Database& db = py::cast<const Database&>(py::handle(self));
        const std::uint32_t id =
            RecordId(py::reinterpret_borrow<py::int_>(argument[0]),
                     argument[4] != nullptr ? py::reinterpret_borrow<py::object>(argument[4])
                                            : py::object(py::none()));
        const std::size_t index = db.FindIndex(id);
        const Database::Decoded* signals = db.decoded.data() + db.firstDecoded[index];
        const std::size_t signalCount = db.firstDecoded[index + 1] - db.firstDecoded[index];
        py::object copied;  // the data as bytes when given as anything else
        PyObject* bytes = argument[1];
        if (!PyBytes_Check(bytes)) {
            copied = py::reinterpret_steal<py::object>(PyBytes_FromObject(bytes));
            if (!copied) {
                throw py::error_already_set();
            }
            bytes = copied.ptr();
        }
        const auto length = static_cast<std::size_t>(PyBytes_GET_SIZE(bytes));
        if (length > 64) {
            throw py::value_error("a frame holds at most 64 bytes, not " + std::to_string(length));
        }
        tavlo_dec_value_t onStack[kValuesOnStack];
        std::vector<tavlo_dec_value_t> onHeap;
        tavlo_dec_value_t* values = onStack;
        if (signalCount > kValuesOnStack) {
            onHeap.resize(signalCount);
            values = onHeap.data();
        }
        std::size_t count = 0;
        if (tavlo_decoder_decode(db.decoder.get(), id,
                                 reinterpret_cast<const unsigned char*>(PyBytes_AS_STRING(bytes)),
                                 length, values, std::max(signalCount, kValuesOnStack),
                                 &count) != TAVLO_DEC_OK) {
            throw std::runtime_error("the decoder refused a frame of " + Hex(id));
        }
        py::dict decoded;
        for (std::size_t i = 0; i < count; ++i) {
            const tavlo_dec_value_t& value = values[i];
            const Database::Decoded& signal = signals[value.signal];
            const char* text =
                decodeChoices ? db.decoder.Describe(index, value.signal, value.raw) : nullptr;
            py::object result;
            if (text != nullptr) {
                result = py::reinterpret_borrow<py::object>(DescriptionText(db, text));
            } else if (raw) {
                result = RawValue(signal.kind, value.raw);
            } else {
                result = py::reinterpret_steal<py::object>(PyFloat_FromDouble(value.physical));
                if (!result) {
                    throw py::error_already_set();
                }
            }
            if (PyDict_SetItem(decoded.ptr(), signal.name, result.ptr()) != 0) {
                throw py::error_already_set();
            }
        }
        return decoded.release().ptr();
    } catch (py::error_already_set& e) {
        e.restore();
    } catch (const py::builtin_exception& e) {
        e.set_error();
    } catch (const std::bad_alloc&) {
        PyErr_NoMemory();
    } catch (const std::exception& e) {
        PyErr_SetString(PyExc_RuntimeError, e.what());
    }
    return nullptr;
}

PyMethodDef decodeMethod = {
    "decode", reinterpret_cast<PyCFunction>(reinterpret_cast<void (*)()>(&DecodeCall)),
    METH_FASTCALL | METH_KEYWORDS,
    "decode($self, /, frame_id, data, decode_choices=True, raw=False, *, is_extended=None)\n"
    "--\n\n"
    "The values of the signals present in a frame (data: 0 to 64 bytes), by name: physical "
    "floats, or raw ints with raw=True (the number itself for float signals), or a value's "
    "description text with decode_choices. KeyError for an unknown frame id."};

// A raw value as tavlo_dec_value_t.raw holds it: two's complement for
// negative numbers, the IEEE bits of a float signal's number.
std::uint64_t RawSetting(const Signal& signal, const py::handle& value) {
    if (signal.kind == TAVLO_DEC_FLOAT) {
        const auto number = static_cast<float>(Double(value));
        std::uint32_t bits;
        std::memcpy(&bits, &number, sizeof bits);
        return bits;
    }
    if (signal.kind == TAVLO_DEC_DOUBLE) {
        const double number = Double(value);
        std::uint64_t bits;
        std::memcpy(&bits, &number, sizeof bits);
        return bits;
    }
    if (!py::isinstance<py::int_>(value)) {
        throw py::type_error("the raw value of " + signal.name + " must be an int");
    }
    int overflow = 0;
    const long long number = PyLong_AsLongLongAndOverflow(value.ptr(), &overflow);
    if (overflow == 0 && !(number == -1 && PyErr_Occurred() != nullptr)) {
        return static_cast<std::uint64_t>(number);
    }
    PyErr_Clear();
    const unsigned long long bits = overflow > 0 ? PyLong_AsUnsignedLongLong(value.ptr()) : 0;
    if (overflow < 0 || PyErr_Occurred() != nullptr) {
        PyErr_Clear();
        throw py::value_error(std::string(py::repr(value)) + " does not fit in 64 bits, the raw "
                              "value of " + signal.name);
    }
    return bits;
}

py::bytes Encode(const Database& db, const py::object& nameOrId, const py::object& values,
                 bool raw, bool checkRange, const py::object& isExtended) {
    const Message& message = db.Find(nameOrId, isExtended);
    const py::list items(values.attr("items")());
    std::vector<tavlo_dec_setting_t> settings;
    std::vector<std::string> texts;  // names and texts the settings point to
    texts.reserve(2 * items.size());
    for (const py::handle item : items) {
        const py::tuple pair = item.cast<py::tuple>();
        texts.push_back(Bytes(pair[0]));
        tavlo_dec_setting_t setting{};
        const auto found = message.byName.find(texts.back());
        const Signal* signal = nullptr;
        if (found != message.byName.end()) {
            signal = message.signals[found->second].get();
            texts.back() = signal->record_name;
        }
        setting.signal = texts.back().c_str();
        const py::handle value = pair[1];
        if (py::isinstance<py::str>(value)) {
            texts.push_back(Bytes(value));
            setting.how = TAVLO_DEC_SET_TEXT;
            setting.text = texts.back().c_str();
        } else if (raw && signal != nullptr) {
            setting.how = TAVLO_DEC_SET_RAW;
            setting.raw = RawSetting(*signal, value);
        } else {
            setting.how = TAVLO_DEC_SET_PHYSICAL;
            setting.physical = Double(value);
        }
        settings.push_back(setting);
    }
    std::vector<unsigned char> frame;
    std::string error;
    const int result = db.decoder.Encode(message.index, settings, frame, error);
    if (result != TAVLO_DEC_OK && (result != TAVLO_DEC_OUT_OF_RANGE || checkRange)) {
        throw py::value_error(error);
    }
    return py::bytes(reinterpret_cast<const char*>(frame.data()), frame.size());
}

template <class T>
py::array_t<T> Array(std::vector<T>&& values, std::vector<py::ssize_t> shape) {
    auto* owned = new std::vector<T>(std::move(values));
    py::capsule owner(owned, [](void* p) { delete static_cast<std::vector<T>*>(p); });
    return py::array_t<T>(shape, owned->data(), owner);
}

// The frames of a log as columns: time, channel (index into channels), id
// (bit 31 for extended ones), flags, length, data (64 bytes a frame).
py::dict ReadLog(const std::string& path) {
    tavlo_log_reader_t* opened = nullptr;
    const int open = tavlo_log_open(path.c_str(), TAVLO_LOG_DETECT, &opened);
    if (open == TAVLO_LOG_CANNOT_OPEN) {
        PyErr_SetFromErrnoWithFilename(PyExc_OSError, path.c_str());
        throw py::error_already_set();
    }
    if (opened == nullptr) {
        throw std::bad_alloc();
    }
    const std::unique_ptr<tavlo_log_reader_t, void (*)(tavlo_log_reader_t*)> reader(
        opened, tavlo_log_close);

    std::vector<double> times;
    std::vector<std::uint32_t> channelOf, ids, flags;
    std::vector<std::uint8_t> lengths, data;
    std::vector<std::string> channels;
    std::string firstBad, failed;
    unsigned long bad = 0;
    {
        py::gil_scoped_release unlocked;
        std::vector<tavlo_log_frame_t> block(1024);
        std::size_t last = 0;  // the channel of the frame before
        for (;;) {
            std::size_t count = 0;
            const int result = tavlo_log_read(reader.get(), block.data(), block.size(), &count);
            for (std::size_t i = 0; i < count; ++i) {
                const tavlo_log_frame_t& f = block[i];
                if (last >= channels.size() || channels[last] != f.channel) {
                    last = 0;
                    while (last < channels.size() && channels[last] != f.channel) {
                        ++last;
                    }
                    if (last == channels.size()) {
                        channels.emplace_back(f.channel);
                    }
                }
                times.push_back(f.has_time != 0 ? f.time : std::nan(""));
                channelOf.push_back(static_cast<std::uint32_t>(last));
                ids.push_back(f.id);
                flags.push_back(f.flags);
                lengths.push_back(static_cast<std::uint8_t>(f.length));
                data.insert(data.end(), f.data, f.data + sizeof f.data);
            }
            if (result == TAVLO_LOG_BAD_RECORD) {
                if (bad++ == 0) {
                    firstBad = path + ":" + std::to_string(tavlo_log_line(reader.get())) + ": " +
                               tavlo_log_error(reader.get());
                }
            } else if (result == TAVLO_LOG_READ_FAILED) {
                failed = path + ": " + tavlo_log_error(reader.get());
                break;
            } else if (result != TAVLO_LOG_OK) {
                break;
            }
        }
    }
    if (!failed.empty()) {
        PyErr_SetString(PyExc_OSError, failed.c_str());
        throw py::error_already_set();
    }
    if (bad != 0) {
        const std::string warning = std::to_string(bad) + " bad record(s) skipped, the first: " +
                                    firstBad;
        if (PyErr_WarnEx(PyExc_RuntimeWarning, warning.c_str(), 2) != 0) {
            throw py::error_already_set();
        }
    }
    const auto n = static_cast<py::ssize_t>(times.size());
    const py::list channelNames = StrList(channels);
    py::dict columns;
    columns["time"] = Array(std::move(times), {n});
    columns["channel_index"] = Array(std::move(channelOf), {n});
    columns["channels"] = channelNames;
    columns["id"] = Array(std::move(ids), {n});
    columns["flags"] = Array(std::move(flags), {n});
    columns["length"] = Array(std::move(lengths), {n});
    columns["data"] = Array(std::move(data), {n, 64});
    return columns;
}

// Frames decoded into columns by the batch decoder, straight into numpy
// arrays: {message index: (times, physical, raw or None)} for the messages
// with rows, physical (and raw) a rows x signals array in column order, so
// that each signal's column is one run of memory, as the decoder writes it
// and a DataFrame keeps it. ids carry bit 31 for extended ones; data is
// N x 64. Absent values are NaN in physical and 0 in raw.
py::dict DecodeColumns(const Database& db, const py::array_t<double, py::array::c_style>& times,
                       const py::array_t<std::uint32_t, py::array::c_style>& ids,
                       const py::array_t<std::uint8_t, py::array::c_style>& lengths,
                       const py::array_t<std::uint8_t, py::array::c_style>& data, bool withRaw) {
    const auto frames = static_cast<std::size_t>(ids.size());
    if (static_cast<std::size_t>(times.size()) != frames ||
        static_cast<std::size_t>(lengths.size()) != frames ||
        static_cast<std::size_t>(data.size()) != 64 * frames) {
        throw py::value_error("times, ids, lengths and data (N x 64) must have the same frames");
    }
    const tavlo_decoder_t* decoder = db.decoder.get();
    const std::size_t messages = db.messages.size();
    std::vector<std::size_t> rows(messages, 0);
    tavlo_decoder_count(decoder, frames, ids.data(), rows.data());
    std::vector<tavlo_dec_columns_t> columns(messages, tavlo_dec_columns_t{0, 0, nullptr, nullptr,
                                                                           nullptr});
    std::vector<std::vector<double*>> physical(messages);
    std::vector<std::vector<std::uint64_t*>> raw(messages);
    py::dict decoded;
    for (std::size_t m = 0; m < messages; ++m) {
        if (rows[m] == 0) {
            continue;  // no frames of it: nothing is written
        }
        const std::size_t signals = db.messages[m]->signals.size();
        const auto n = static_cast<py::ssize_t>(rows[m]);
        const std::vector<py::ssize_t> shape{n, static_cast<py::ssize_t>(signals)};
        const std::vector<py::ssize_t> doubleStrides{8, 8 * n};
        py::array_t<double> messageTimes(n);
        py::array_t<double> values(shape, doubleStrides);
        py::object raws = py::none();
        for (std::size_t s = 0; s < signals; ++s) {
            physical[m].push_back(values.mutable_data() + s * rows[m]);
        }
        if (withRaw) {
            py::array_t<std::uint64_t> rawValues(shape, doubleStrides);
            for (std::size_t s = 0; s < signals; ++s) {
                raw[m].push_back(rawValues.mutable_data() + s * rows[m]);
            }
            raws = rawValues;
        }
        columns[m].capacity = rows[m];
        columns[m].times = messageTimes.mutable_data();
        columns[m].physical = physical[m].data();
        columns[m].raw = withRaw ? raw[m].data() : nullptr;
        decoded[py::int_(m)] = py::make_tuple(messageTimes, values, raws);
    }
    int result = TAVLO_DEC_OK;
    {
        py::gil_scoped_release unlocked;
        result = tavlo_decoder_decode_columns(decoder, frames, times.data(), ids.data(),
                                              lengths.data(), data.data(), 64, columns.data(),
                                              nullptr);
    }
    if (result != TAVLO_DEC_OK) {
        throw py::value_error("a frame is longer than 64 bytes");
    }
    return decoded;
}

std::string Quoted(const std::string& text) {
    return py::repr(Str(text.c_str()));
}

std::string Number(double value) {
    return py::repr(py::float_(value));
}

py::object MultiplexerIds(const Signal& signal) {
    if (signal.ranges.empty()) {
        return py::none();
    }
    std::uint64_t total = 0;
    for (const tavlo_dec_range_t& range : signal.ranges) {
        total += range.high - range.low + 1;
        if (range.high - range.low >= kMostListedValues || total > kMostListedValues) {
            throw py::value_error("signal " + signal.name +
                                  " is selected by more values than are listed: see "
                                  "multiplexer_ranges");
        }
    }
    py::list ids;
    for (const tavlo_dec_range_t& range : signal.ranges) {
        for (std::uint64_t v = range.low;; ++v) {
            ids.append(py::int_(v));
            if (v == range.high) {
                break;
            }
        }
    }
    return ids;
}

}  // namespace

PYBIND11_MODULE(_tavloms, m) {
    m.doc() = "The extension module of tavloms: databases, frames and logs over the C++ library.";

    py::class_<Diagnostic>(m, "Diagnostic",
                           "A message of a load: where in which file, its code and text.")
        .def_readonly("file", &Diagnostic::file, "The file loaded.")
        .def_readonly("line", &Diagnostic::line, "Line, counted from 1 (0: not in the file).")
        .def_readonly("column", &Diagnostic::column,
                      "Column, counted from 1 (0: not in the file).")
        .def_readonly("code", &Diagnostic::code,
                      "The reader's message number, or 100 and above for tolerant loading's own.")
        .def_property_readonly(
            "text", [](const Diagnostic& d) { return Str(d.text.c_str()); }, "The message.")
        .def_property_readonly(
            "severity", [](const Diagnostic& d) { return d.error ? "error" : "warning"; },
            "\"error\" or \"warning\".")
        .def("__repr__", [](const Diagnostic& d) {
            return "<Diagnostic " + std::string(d.error ? "error" : "warning") + " " + d.file +
                   ":" + std::to_string(d.line) + ":" + std::to_string(d.column) + " [" +
                   std::to_string(d.code) + "] " + Quoted(d.text) + ">";
        });

    py::class_<Signal, std::shared_ptr<Signal>>(m, "Signal", "A signal of a message (read-only).")
        .def_property_readonly(
            "name", [](const Signal& s) { return s.pyName ? s.pyName : Str(s.name.c_str()); },
            "The full name (a long name attribute's, else the file's).")
        .def_readonly("start", &Signal::start,
                      "The start bit as in the file: little-endian signals' least, big-endian "
                      "signals' most significant bit.")
        .def_readonly("length", &Signal::length, "Bits (32 for float, 64 for double signals).")
        .def_property_readonly(
            "byte_order",
            [](const Signal& s) { return s.big_endian ? "big_endian" : "little_endian"; },
            "\"little_endian\" or \"big_endian\".")
        .def_readonly("is_signed", &Signal::is_signed, "Whether the raw value is signed.")
        .def_property_readonly("is_float", &Signal::is_float,
                               "Whether the raw value is an IEEE float or double.")
        .def_readonly("factor", &Signal::factor, "physical = raw * factor + offset")
        .def_readonly("offset", &Signal::offset, "physical = raw * factor + offset")
        .def_readonly("minimum", &Signal::minimum, "The least physical value.")
        .def_readonly("maximum", &Signal::maximum, "The greatest physical value.")
        .def_property_readonly(
            "unit", [](const Signal& s) { return Str(s.unit.c_str()); }, "The unit, or \"\".")
        .def_property_readonly(
            "receivers",
            [](const Signal& s) { return StrList(s.receivers); },
            "Names of the receiving nodes.")
        .def_readonly("multiplexer", &Signal::is_multiplexer,
                      "Whether it selects other signals of its message.")
        .def_property_readonly("multiplexer_ids", &MultiplexerIds,
                               "The values of its multiplexer that select it (extended "
                               "multiplexing included), or None when it is always present.")
        .def_property_readonly(
            "multiplexer_ranges",
            [](const Signal& s) {
                py::list ranges;
                for (const tavlo_dec_range_t& r : s.ranges) {
                    ranges.append(py::make_tuple(r.low, r.high));
                }
                return ranges;
            },
            "multiplexer_ids as (low, high) pairs; empty when it is always present.")
        .def_property_readonly(
            "multiplexer_signal",
            [](const Signal& s) { return OptionalStr(s.multiplexer_signal); },
            "The name of the signal that selects it, or None.")
        .def_property_readonly(
            "choices",
            [](const Signal& s) {
                py::dict choices;
                for (const auto& choice : s.choices) {
                    choices[py::int_(choice.first)] = Str(choice.second.c_str());
                }
                return choices;
            },
            "Value descriptions: raw value -> text.")
        .def_property_readonly(
            "comment", [](const Signal& s) { return OptionalStr(s.comment); },
            "The comment, or None.")
        .def_property_readonly("attributes", [](const Signal& s) { return AttributeDict(s.attributes); }, kAttributesDoc)
        .def("__repr__", [](const Signal& s) {
            return "<Signal " + Quoted(s.name) + " start=" + std::to_string(s.start) +
                   " length=" + std::to_string(s.length) +
                   (s.big_endian ? " big_endian" : " little_endian") +
                   (s.is_float() ? " float" : s.is_signed ? " signed" : " unsigned") +
                   " factor=" + Number(s.factor) + " offset=" + Number(s.offset) +
                   (s.unit.empty() ? "" : " unit=" + Quoted(s.unit)) + ">";
        });

    py::class_<Message, std::shared_ptr<Message>>(m, "Message",
                                                  "A message of a database (read-only).")
        .def_property_readonly(
            "name", [](const Message& msg) { return Str(msg.name.c_str()); },
            "The full name (a long name attribute's, else the file's).")
        .def_property_readonly(
            "frame_id", [](const Message& msg) { return msg.id & ~kExtendedBit; },
            "The identifier, without the extended flag.")
        .def_property_readonly(
            "is_extended", [](const Message& msg) { return (msg.id & kExtendedBit) != 0; },
            "Whether the identifier is a 29-bit one.")
        .def_readonly("length", &Message::length, "Bytes of its frames (at most 64).")
        .def_property_readonly(
            "senders",
            [](const Message& msg) { return StrList(msg.senders); },
            "Names of the transmitting nodes.")
        .def_readonly("signals", &Message::signals, "Its signals, in the file's order.")
        .def_property_readonly(
            "comment", [](const Message& msg) { return OptionalStr(msg.comment); },
            "The comment, or None.")
        .def_property_readonly("attributes", [](const Message& msg) { return AttributeDict(msg.attributes); }, kAttributesDoc)
        .def(
            "get_signal",
            [](const Message& msg, const py::str& name) {
                return msg.signals[msg.SignalIndex(Bytes(name))];
            },
            py::arg("name"), "The signal of that name (full or as in the file); KeyError if none.")
        .def("__repr__", [](const Message& msg) {
            return "<Message " + Quoted(msg.name) + " frame_id=" + Hex(msg.id & ~kExtendedBit) +
                   ((msg.id & kExtendedBit) != 0 ? " extended" : "") +
                   " length=" + std::to_string(msg.length) +
                   " signals=" + std::to_string(msg.signals.size()) + ">";
        });

    py::class_<Database, std::shared_ptr<Database>> database(
        m, "Database", "A loaded database file with its compiled decoder (read-only).");
    database
        .def_readonly("path", &Database::path, "The file it was loaded from.")
        .def_readonly("messages", &Database::messages, "Its messages, in the file's order.")
        .def_property_readonly(
            "nodes",
            [](const Database& db) { return StrList(db.nodes); },
            "Names of its nodes.")
        .def_property_readonly(
            "version", [](const Database& db) { return Str(db.version.c_str()); },
            "The VERSION text.")
        .def_property_readonly(
            "comment", [](const Database& db) { return OptionalStr(db.comment); },
            "The database's comment, or None.")
        .def_property_readonly("attributes", [](const Database& db) { return AttributeDict(db.attributes); }, kAttributesDoc)
        .def_property_readonly(
            "_cache",
            [](const Database& db) {
                if (!db.cache) {
                    db.cache = py::dict();
                }
                return db.cache;
            },
            "A dict for the package's own things kept per database.")
        .def_readonly("diagnostics", &Database::diagnostics,
                      "The warnings of the load (tolerant loading turns faults into warnings).")
        .def(
            "get_message",
            [](const Database& db, const py::object& nameOrId, const py::object& isExtended) {
                return db.messages[db.Find(nameOrId, isExtended).index];
            },
            py::arg("name_or_id"), py::kw_only(), py::arg("is_extended") = py::none(),
            "The message of that name or frame id; KeyError if none. Frame ids above 0x7FF are "
            "extended ones unless is_extended says otherwise.")
        .def("encode", &Encode, py::arg("name_or_id"), py::arg("values"), py::kw_only(),
             py::arg("raw") = false, py::arg("check_range") = true,
             py::arg("is_extended") = py::none(),
             "A frame of the message (bytes of its length) with the values given by signal "
             "name: numbers (physical, or raw with raw=True) or description texts. Signals not "
             "given are 0; multiplexers are set to select the signals given. ValueError with "
             "the reason when a value cannot be encoded or, with check_range, lies outside its "
             "signal's [minimum, maximum].")
        .def("__repr__", [](const Database& db) {
            return "<Database " + Quoted(db.path) + " messages=" +
                   std::to_string(db.messages.size()) +
                   " nodes=" + std::to_string(db.nodes.size()) + ">";
        });

    PyObject* decode =
        PyDescr_NewMethod(reinterpret_cast<PyTypeObject*>(database.ptr()), &decodeMethod);
    if (decode == nullptr) {
        throw py::error_already_set();
    }
    database.attr("decode") = py::reinterpret_steal<py::object>(decode);

    m.def("_load", &Load, py::arg("path"), py::arg("strict"),
          "tavlo_load: (status, Database or None, diagnostics).");
    m.def("_read_log", &ReadLog, py::arg("path"), "The frames of a log as columns.");
    m.def("_decode_columns", &DecodeColumns, py::arg("database"), py::arg("times"),
          py::arg("ids"), py::arg("lengths"), py::arg("data"), py::arg("raw"),
          "Frames decoded into columns per message index.");
    m.attr("LOAD_OK") = TAVLO_LOAD_OK;
    m.attr("LOAD_NOT_FOUND") = TAVLO_LOAD_NOT_FOUND;
}
