// Record layouts are part of the module's interface: byte-packed, fields in
// the documented order with the documented widths, pointers of the native
// width. Each table lists a record's fields in order with their widths; the
// offsets must follow one another without a gap and the record must end with
// its last field. The widths use sizeof(void*), so the same tables hold for
// 32-bit and 64-bit builds.
#include <cstddef>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tavloms/records.h"

namespace {

constexpr std::size_t P = sizeof(void*);

struct Field {
    const char* name;
    std::size_t offset;  // as compiled
    std::size_t width;   // as documented
};

struct Layout {
    const char* record;
    std::size_t size;  // as compiled
    std::vector<Field> fields;
};

#define FIELD(type, member, width) Field{#member, offsetof(type, member), width}

std::vector<Layout> Layouts() {
    return {
        {"symblk", sizeof(symblk),
         {FIELD(symblk, name, 33), FIELD(symblk, next, P), FIELD(symblk, comment, P),
          FIELD(symblk, attributes, P), FIELD(symblk, category, P)}},
        {"msgblk", sizeof(msgblk),
         {FIELD(msgblk, name, 33), FIELD(msgblk, id, 4), FIELD(msgblk, dlc, 2),
          FIELD(msgblk, signal_count, 2), FIELD(msgblk, transmitter, P),
          FIELD(msgblk, signals, P), FIELD(msgblk, next, P), FIELD(msgblk, comment, P),
          FIELD(msgblk, attributes, P), FIELD(msgblk, category, P),
          FIELD(msgblk, signal_groups, P), FIELD(msgblk, transmitters, P)}},
        {"sigblk", sizeof(sigblk),
         {FIELD(sigblk, name, 33), FIELD(sigblk, start_bit, 2), FIELD(sigblk, length, 2),
          FIELD(sigblk, flags, 1), FIELD(sigblk, mode_value, 4), FIELD(sigblk, offset, 8),
          FIELD(sigblk, factor, 8), FIELD(sigblk, unit, 33), FIELD(sigblk, minimum, 8),
          FIELD(sigblk, maximum, 8), FIELD(sigblk, next, P), FIELD(sigblk, receiver_count, 2),
          FIELD(sigblk, receivers, P), FIELD(sigblk, comment, P), FIELD(sigblk, attributes, P),
          FIELD(sigblk, value_descriptions, P), FIELD(sigblk, sig_type, P),
          FIELD(sigblk, value_type, 4)}},
        {"env_var_blk", sizeof(env_var_blk),
         {FIELD(env_var_blk, name, 33), FIELD(env_var_blk, type, 4), FIELD(env_var_blk, unit, 33),
          FIELD(env_var_blk, minimum, 8), FIELD(env_var_blk, maximum, 8),
          FIELD(env_var_blk, initial_value, 8), FIELD(env_var_blk, id, 4),
          FIELD(env_var_blk, node, P), FIELD(env_var_blk, access_node_count, 2),
          FIELD(env_var_blk, access_nodes, P), FIELD(env_var_blk, access_type, 4),
          FIELD(env_var_blk, next, P), FIELD(env_var_blk, comment, P),
          FIELD(env_var_blk, attributes, P), FIELD(env_var_blk, category, P),
          FIELD(env_var_blk, value_descriptions, P), FIELD(env_var_blk, data_length, 4)}},
        {"btlblk", sizeof(btlblk),
         {FIELD(btlblk, baudrate, 2), FIELD(btlblk, btr1, 1), FIELD(btlblk, btr2, 1),
          FIELD(btlblk, next, P)}},
        {"attr_def", sizeof(attr_def),
         {FIELD(attr_def, object_type, 4), FIELD(attr_def, name, 33),
          FIELD(attr_def, value_type, 4), FIELD(attr_def, minimum, 8),
          FIELD(attr_def, maximum, 8), FIELD(attr_def, default_value, 8),
          FIELD(attr_def, next, P)}},
        {"attr", sizeof(attr),
         {FIELD(attr, def, P), FIELD(attr, value, 8), FIELD(attr, next, P)}},
        {"cat", sizeof(cat),
         {FIELD(cat, value, 2), FIELD(cat, number, 2), FIELD(cat, name, 33),
          FIELD(cat, next, P)}},
        {"valtable", sizeof(valtable),
         {FIELD(valtable, name, 33), FIELD(valtable, value_descriptions, P),
          FIELD(valtable, next, P)}},
        {"val", sizeof(val),
         {FIELD(val, value, 4), FIELD(val, text, 33), FIELD(val, next, P)}},
        {"sigtype", sizeof(sigtype),
         {FIELD(sigtype, name, 33), FIELD(sigtype, length, 2), FIELD(sigtype, flags, 1),
          FIELD(sigtype, offset, 8), FIELD(sigtype, factor, 8), FIELD(sigtype, unit, 33),
          FIELD(sigtype, minimum, 8), FIELD(sigtype, maximum, 8),
          FIELD(sigtype, default_value, 8), FIELD(sigtype, comment, P),
          FIELD(sigtype, attributes, P), FIELD(sigtype, value_list, P), FIELD(sigtype, next, P),
          FIELD(sigtype, value_type, 4)}},
        {"siggroupblk", sizeof(siggroupblk),
         {FIELD(siggroupblk, name, 33), FIELD(siggroupblk, signals, P),
          FIELD(siggroupblk, second_list, P), FIELD(siggroupblk, repetitions, 4),
          FIELD(siggroupblk, comment, P), FIELD(siggroupblk, message, P),
          FIELD(siggroupblk, next, P)}},
        {"siglistblk", sizeof(siglistblk),
         {FIELD(siglistblk, signal, P), FIELD(siglistblk, next, P)}},
        {"secondlistblk", sizeof(secondlistblk),
         {FIELD(secondlistblk, item, P), FIELD(secondlistblk, next, P)}},
        {"rxblk", sizeof(rxblk),
         {FIELD(rxblk, next, P), FIELD(rxblk, symbol, P), FIELD(rxblk, attributes, P)}},
        {"filtercatblk", sizeof(filtercatblk),
         {FIELD(filtercatblk, act, P), FIELD(filtercatblk, next, P)}},
        {"filter_t", sizeof(filter_t),
         {FIELD(filter_t, categories, P), FIELD(filter_t, nodes, P),
          FIELD(filter_t, number, 2)}},
    };
}

#undef FIELD

TEST(RecordLayout, FieldsArePackedInDocumentedOrderAndWidth) {
    for (const Layout& layout : Layouts()) {
        std::size_t expected = 0;
        for (const Field& field : layout.fields) {
            EXPECT_EQ(field.offset, expected) << layout.record << "." << field.name;
            expected += field.width;
        }
        EXPECT_EQ(layout.size, expected) << "size of " << layout.record;
    }
}

TEST(RecordLayout, AttributeValueIsEightBytesAndEitherNumberOrText) {
    EXPECT_EQ(sizeof(tavlo_attr_value_t), 8u);
    tavlo_attr_value_t value{};
    for (unsigned char byte : value.bytes) {
        EXPECT_EQ(byte, 0);
    }
    EXPECT_EQ(value.number, 0.0);
    EXPECT_EQ(value.text, nullptr);
}

TEST(RecordLayout, ObjectKindsKeepTheirNumbers) {
    EXPECT_EQ(sizeof(tavlo_obj_t), 4u);
    const tavlo_obj_t kinds[] = {TAVLO_OBJ_NETWORK,     TAVLO_OBJ_NODE,         TAVLO_OBJ_MESSAGE,
                                 TAVLO_OBJ_SIGNAL,      TAVLO_OBJ_ENVVAR,       TAVLO_OBJ_SIGTYPE,
                                 TAVLO_OBJ_NODE_SIGNAL, TAVLO_OBJ_NODE_MESSAGE, TAVLO_OBJ_NODE_ENVVAR};
    for (int i = 0; i < 9; ++i) {
        EXPECT_EQ(static_cast<int>(kinds[i]), i);
    }
}

}  // namespace
