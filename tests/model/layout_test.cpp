// Record layouts are part of the module's interface: byte-packed, fields in
// the documented order with the documented widths, pointers of the native
// width (P, so that the same table holds for 32-bit and 64-bit builds). The
// offsets must follow one another without a gap and each record must end
// with its last field.
#include <cstddef>
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

#define F(type, member, width) Field{#type "." #member, offsetof(type, member), width}

TEST(RecordLayout, FieldsArePackedInDocumentedOrderAndWidth) {
    const std::vector<std::pair<std::size_t, std::vector<Field>>> records = {
        {sizeof(symblk), {F(symblk, name, 33), F(symblk, next, P), F(symblk, comment, P), F(symblk, attributes, P),
                          F(symblk, category, P)}},
        {sizeof(msgblk), {F(msgblk, name, 33), F(msgblk, id, 4), F(msgblk, dlc, 2), F(msgblk, signal_count, 2),
                          F(msgblk, transmitter, P), F(msgblk, signals, P), F(msgblk, next, P), F(msgblk, comment, P),
                          F(msgblk, attributes, P), F(msgblk, category, P), F(msgblk, signal_groups, P),
                          F(msgblk, transmitters, P)}},
        {sizeof(sigblk), {F(sigblk, name, 33), F(sigblk, start_bit, 2), F(sigblk, length, 2), F(sigblk, flags, 1),
                          F(sigblk, mode_value, 4), F(sigblk, offset, 8), F(sigblk, factor, 8), F(sigblk, unit, 33),
                          F(sigblk, minimum, 8), F(sigblk, maximum, 8), F(sigblk, next, P), F(sigblk, receiver_count, 2),
                          F(sigblk, receivers, P), F(sigblk, comment, P), F(sigblk, attributes, P),
                          F(sigblk, value_descriptions, P), F(sigblk, sig_type, P), F(sigblk, value_type, 4)}},
        {sizeof(env_var_blk), {F(env_var_blk, name, 33), F(env_var_blk, type, 4), F(env_var_blk, unit, 33),
                               F(env_var_blk, minimum, 8), F(env_var_blk, maximum, 8), F(env_var_blk, initial_value, 8),
                               F(env_var_blk, id, 4), F(env_var_blk, node, P), F(env_var_blk, access_node_count, 2),
                               F(env_var_blk, access_nodes, P), F(env_var_blk, access_type, 4), F(env_var_blk, next, P),
                               F(env_var_blk, comment, P), F(env_var_blk, attributes, P), F(env_var_blk, category, P),
                               F(env_var_blk, value_descriptions, P), F(env_var_blk, data_length, 4)}},
        {sizeof(btlblk), {F(btlblk, baudrate, 2), F(btlblk, btr1, 1), F(btlblk, btr2, 1), F(btlblk, next, P)}},
        {sizeof(attr_def), {F(attr_def, object_type, 4), F(attr_def, name, 33), F(attr_def, value_type, 4),
                            F(attr_def, minimum, 8), F(attr_def, maximum, 8), F(attr_def, default_value, 8),
                            F(attr_def, next, P)}},
        {sizeof(attr), {F(attr, def, P), F(attr, value, 8), F(attr, next, P)}},
        {sizeof(cat), {F(cat, value, 2), F(cat, number, 2), F(cat, name, 33), F(cat, next, P)}},
        {sizeof(valtable), {F(valtable, name, 33), F(valtable, value_descriptions, P), F(valtable, next, P)}},
        {sizeof(val), {F(val, value, 4), F(val, text, 33), F(val, next, P)}},
        {sizeof(sigtype), {F(sigtype, name, 33), F(sigtype, length, 2), F(sigtype, flags, 1), F(sigtype, offset, 8),
                           F(sigtype, factor, 8), F(sigtype, unit, 33), F(sigtype, minimum, 8), F(sigtype, maximum, 8),
                           F(sigtype, default_value, 8), F(sigtype, comment, P), F(sigtype, attributes, P),
                           F(sigtype, value_list, P), F(sigtype, next, P), F(sigtype, value_type, 4)}},
        {sizeof(siggroupblk), {F(siggroupblk, name, 33), F(siggroupblk, signals, P), F(siggroupblk, second_list, P),
                               F(siggroupblk, repetitions, 4), F(siggroupblk, comment, P), F(siggroupblk, message, P),
                               F(siggroupblk, next, P)}},
        {sizeof(siglistblk), {F(siglistblk, signal, P), F(siglistblk, next, P)}},
        {sizeof(secondlistblk), {F(secondlistblk, item, P), F(secondlistblk, next, P)}},
        {sizeof(rxblk), {F(rxblk, next, P), F(rxblk, symbol, P), F(rxblk, attributes, P)}},
        {sizeof(filtercatblk), {F(filtercatblk, act, P), F(filtercatblk, next, P)}},
        {sizeof(filter_t), {F(filter_t, categories, P), F(filter_t, nodes, P), F(filter_t, number, 2)}},
        {sizeof(tavlo_attr_value_t), {Field{"tavlo_attr_value_t", 0, 8}}},
    };
    for (const auto& [size, fields] : records) {
        std::size_t expected = 0;
        for (const Field& field : fields) {
            EXPECT_EQ(field.offset, expected) << field.name;
            expected += field.width;
        }
        EXPECT_EQ(size, expected) << "size of " << fields.front().name;
    }
}

#undef F

}  // namespace
