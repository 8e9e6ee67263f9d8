// tests/support/sample_database.cpp: the sample database and record helpers.
#include "support/sample_database.h"

#include <cstring>

namespace tavlo::test {

namespace {

template <class T> T* AppendTail(T* list, T* record) {
    if (list == nullptr) {
        return record;
    }
    T* tail = list;
    while (tail->next != nullptr) {
        tail = tail->next;
    }
    tail->next = record;
    return list;
}

void SetName(char* field, const char* name) {
    std::strncpy(field, name, TAVLO_NAME_SIZE - 1);
}

template <class T> T* Named(T* record, const char* name) {
    SetName(record->name, name);
    return record;
}

attr_def* Define(attr_def*& defs, const char* name, tavlo_obj_t objectType, unsigned int valueType) {
    attr_def* def = Named(TAVLO_CREATE_ATTR_DEF(), name);
    def->object_type = objectType;
    def->value_type = valueType;
    defs = AppendTail(defs, def);
    return def;
}

attr_def* DefineNumber(attr_def*& defs, const char* name, tavlo_obj_t objectType,
                       unsigned int valueType, double minimum, double maximum, double dflt) {
    attr_def* def = Define(defs, name, objectType, valueType);
    def->minimum.number = minimum;
    def->maximum = maximum;
    def->default_value.number = dflt;
    return def;
}

attr_def* DefineText(attr_def*& defs, const char* name, tavlo_obj_t objectType, const char* dflt) {
    attr_def* def = Define(defs, name, objectType, TAVLO_ATTR_STRING);
    def->default_value.text = Text(dflt);
    return def;
}

sigblk* AddSignal(msgblk* message, const char* name, unsigned short startBit,
                  unsigned short length, unsigned char flags) {
    sigblk* signal = Named(TAVLO_CREATE_SIGBLK(), name);
    signal->start_bit = startBit;
    signal->length = length;
    signal->flags = flags;
    CAN_INSERT_SIG(message, signal, message->signal_count);  // which counts from 0 here
    ++message->signal_count;
    return signal;
}

}  // namespace

char* Text(const char* text) {
    const std::size_t size = std::strlen(text) + 1;
    char* copy = static_cast<char*>(TAVLO_MALLOC(size));
    std::memcpy(copy, text, size);
    return copy;
}

attr* AppendAttr(attr* list, attr_def* def, tavlo_attr_value_t value) {
    attr* entry = static_cast<attr*>(TAVLO_MALLOC(sizeof(attr)));
    entry->def = def;
    entry->value = value;
    return AppendTail(list, entry);
}

attr* AppendTextAttr(attr* list, attr_def* def, const char* text) {
    tavlo_attr_value_t value{};
    value.text = Text(text);
    return AppendAttr(list, def, value);
}

attr* AppendNumberAttr(attr* list, attr_def* def, double number) {
    tavlo_attr_value_t value{};
    value.number = number;
    return AppendAttr(list, def, value);
}

val* AppendValue(val* list, int value, const char* text) {
    val* entry = static_cast<val*>(TAVLO_MALLOC(sizeof(val)));
    entry->value = value;
    SetName(entry->text, text);
    return AppendTail(list, entry);
}

rxblk* AppendRelation(rxblk* list, symblk* node) {
    return AppendTail(list, TAVLO_CREATE_RX(node));
}

tavlo_root_t BuildSampleDatabase() {
    tavlo_root_t db{};
    db.comment = Text("sample network");
    db.version = Text("1.0");

    attr_def* defs = nullptr;
    attr_def* nodeLevel = DefineNumber(defs, "NodeLevel", TAVLO_OBJ_NODE, TAVLO_ATTR_INT, 0, 10, 3);
    attr_def* msgCycle = DefineNumber(defs, "MsgCycle", TAVLO_OBJ_MESSAGE, TAVLO_ATTR_FLOAT, 0, 1000, 100);
    attr_def* sigNote = DefineText(defs, "SigNote", TAVLO_OBJ_SIGNAL, "none");
    attr_def* busType = Define(defs, "BusType", TAVLO_OBJ_NETWORK, TAVLO_ATTR_ENUM);
    busType->minimum.text = Text("CAN\nFD\nLIN");
    busType->default_value.text = Text("CAN");
    attr_def* dbName = DefineText(defs, "DBName", TAVLO_OBJ_NETWORK, "");
    attr_def* envMask = DefineNumber(defs, "EnvMask", TAVLO_OBJ_ENVVAR, TAVLO_ATTR_HEX, 0, 65535, 15);
    attr_def* typeNote = DefineText(defs, "TypeNote", TAVLO_OBJ_SIGTYPE, "");
    attr_def* rxNote = DefineText(defs, "RxNote", TAVLO_OBJ_NODE_SIGNAL, "");
    attr_def* txPrio = DefineNumber(defs, "TxPrio", TAVLO_OBJ_NODE_MESSAGE, TAVLO_ATTR_INT, 0, 7, 0);
    attr_def* evAccess = DefineText(defs, "EvAccess", TAVLO_OBJ_NODE_ENVVAR, "rw");
    db.attr_defs = defs;
    db.db_attrs = AppendNumberAttr(db.db_attrs, busType, 1);
    db.db_attrs = AppendTextAttr(db.db_attrs, dbName, "BodyNet");

    cat* chassis = Named(TAVLO_CREATE_CATEGORY(), "Chassis");
    chassis->number = 1; chassis->value = 10;
    cat* misc = Named(TAVLO_CREATE_CATEGORY(), "Misc");
    misc->number = -1;
    db.categories = AppendTail(chassis, misc);

    valtable* gears = Named(TAVLO_CREATE_VALTABLE(), "Gears");
    gears->value_descriptions = AppendValue(AppendValue(AppendValue(nullptr, 0, "P"), 1, "R"), 2, "N");
    CAN_INSERT_VALTABLE(&db.value_tables, gears, 0);
    valtable* onOff = Named(TAVLO_CREATE_VALTABLE(), "OnOff");
    onOff->value_descriptions = AppendValue(AppendValue(nullptr, 0, "Off"), 1, "On");
    CAN_INSERT_VALTABLE(&db.value_tables, onOff, 1);

    sigtype* gearType = Named(TAVLO_CREATE_SIGTYPE(), "GearType");
    gearType->length = 3; gearType->flags = TAVLO_SIG_MOTOROLA | TAVLO_SIG_SIGNED;
    gearType->factor = 1.0; gearType->maximum = 7; gearType->default_value = 2;
    SetName(gearType->unit, "gear");
    gearType->comment = Text("gear selector");
    gearType->attributes = AppendTextAttr(nullptr, typeNote, "typed");
    gearType->value_list = gears; gearType->value_type = TAVLO_VALUE_FLOAT;
    CAN_INSERT_SIGTYPE(&db.sig_types, gearType, 0);

    symblk* engine = Named(TAVLO_CREATE_SYMBOL(), "Engine");
    engine->comment = Text("engine control unit");
    engine->attributes = AppendNumberAttr(nullptr, nodeLevel, 5);
    engine->category = chassis;
    symblk* dash = Named(TAVLO_CREATE_SYMBOL(), "Dash");
    symblk* gateway = Named(TAVLO_CREATE_SYMBOL(), "Gateway");
    gateway->category = misc;
    CAN_INSERT_SYMBOL(&db.nodes, engine, 0);
    CAN_INSERT_SYMBOL(&db.nodes, dash, 1);
    CAN_INSERT_SYMBOL(&db.nodes, gateway, 2);

    msgblk* engineData = Named(TAVLO_CREATE_MSGBLK(), "EngineData");
    engineData->id = 0x100; engineData->dlc = 8;
    engineData->signal_count = 0; engineData->transmitter = engine;
    engineData->comment = Text("engine state");
    engineData->attributes = AppendNumberAttr(nullptr, msgCycle, 20);
    engineData->category = chassis;
    sigblk* mode = AddSignal(engineData, "Mode", 0, 2, TAVLO_SIG_MODE);
    mode->receivers = AppendRelation(AppendRelation(nullptr, dash), gateway);
    mode->receiver_count = 2;
    mode->receivers->attributes = AppendTextAttr(nullptr, rxNote, "seen");
    sigblk* rpm = AddSignal(engineData, "Rpm", 8, 16, TAVLO_SIG_MULTIPLEXED);
    rpm->mode_value = 1; rpm->factor = 0.25;
    rpm->offset = -10; rpm->maximum = 16373.75; rpm->minimum = -10;
    SetName(rpm->unit, "rpm");
    rpm->comment = Text("engine speed");
    rpm->attributes = AppendTextAttr(nullptr, sigNote, "fast");
    rpm->value_descriptions = AppendValue(nullptr, 0, "Stopped");
    sigblk* gear = AddSignal(engineData, "Gear", 31, 3, TAVLO_SIG_MOTOROLA | TAVLO_SIG_SIGNED);
    gear->sig_type = gearType; gear->value_type = TAVLO_VALUE_DOUBLE;
    siggroupblk* group = Named(TAVLO_CREATE_SIGGROUP(engineData), "Drive");
    group->signals = AppendTail(TAVLO_CREATE_SIGLIST(mode), TAVLO_CREATE_SIGLIST(rpm));
    group->second_list = static_cast<secondlistblk*>(TAVLO_MALLOC(sizeof(secondlistblk)));
    group->comment = Text("drive train");
    engineData->signal_groups = group;
    engineData->transmitters = AppendTail(TAVLO_CREATE_TX(engine), TAVLO_CREATE_TX(gateway));
    engineData->transmitters->next->attributes = AppendNumberAttr(nullptr, txPrio, 3);
    CAN_INSERT_MSG(&db.messages, engineData, 0);

    msgblk* extended = Named(TAVLO_CREATE_MSGBLK(), "Diagnostics");
    extended->id = 0x80000123u; extended->signal_count = 0;
    CAN_INSERT_MSG(&db.messages, extended, 1);

    env_var_blk* speed = Named(TAVLO_CREATE_EVBLK(), "EvSpeed");
    speed->type = TAVLO_ENV_FLOAT;
    SetName(speed->unit, "km/h");
    speed->maximum = 250; speed->initial_value = 10;
    speed->id = 7; speed->node = dash;
    speed->access_nodes = AppendRelation(AppendRelation(nullptr, engine), dash);
    speed->access_nodes->attributes = AppendTextAttr(nullptr, evAccess, "r");
    speed->access_node_count = 2; speed->access_type = 3;
    speed->comment = Text("vehicle speed");
    speed->attributes = AppendNumberAttr(nullptr, envMask, 255);
    speed->category = chassis;
    speed->value_descriptions = AppendValue(nullptr, 0, "standing");
    env_var_blk* blob = Named(TAVLO_CREATE_EVBLK(), "EvBlob");
    blob->type = TAVLO_ENV_DATA; blob->id = 9; blob->data_length = 16;
    CAN_INSERT_EVBLK(&db.envvars, speed, 0);
    CAN_INSERT_EVBLK(&db.envvars, blob, 1);

    btlblk* fast = TAVLO_CREATE_BTLBLK();
    fast->baudrate = 500; fast->btr1 = 1; fast->btr2 = 2;
    btlblk* slow = TAVLO_CREATE_BTLBLK();
    slow->baudrate = 250;
    db.bit_timings = AppendTail(fast, slow);

    filtercatblk* filterCategory = static_cast<filtercatblk*>(TAVLO_MALLOC(sizeof(filtercatblk)));
    filterCategory->act = chassis;
    db.filter.categories = filterCategory;
    db.filter.nodes = static_cast<rxblk*>(TAVLO_MALLOC(sizeof(rxblk)));
    db.filter.nodes->symbol = engine; db.filter.number = 4;
    return db;
}

}  // namespace tavlo::test
