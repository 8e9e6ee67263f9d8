// tests/convert/test_module.cpp: a converter module for the converter tests.
// Its entries build a small database from the flat creation functions or
// write down what they were given, and keep count of their calls; further
// functions let a test see the records the last import made. Plain C-style
// code on purpose, so that nothing keeps the module loaded after the last
// handle on it is closed.
#include <cstdio>
#include <cstring>

#include "tavloms/convert.h"
#include "tavloms/lifecycle.h"

#define TEST_MODULE_API extern "C" __attribute__((visibility("default")))

namespace {

int gImportCalls = 0;
int gExportCalls = 0;

// The records the last successful import made.
symblk* gNode = nullptr;
msgblk* gMessage = nullptr;
attr_def* gAttrDefs = nullptr;
attr* gDbAttrs = nullptr;

char* Duplicate(const char* text) {
    const size_t size = std::strlen(text) + 1;
    char* copy = static_cast<char*>(TAVLO_MALLOC(size));
    if (copy != nullptr) {
        std::memcpy(copy, text, size);
    }
    return copy;
}

void SetName(char* field, const char* name) {
    size_t length = std::strlen(name);
    if (length > TAVLO_NAME_SIZE - 1) {
        length = TAVLO_NAME_SIZE - 1;
    }
    std::memcpy(field, name, length);
    field[length] = '\0';
}

// The first word of the source file names the node ("Node" when there is
// none), so a test sees which file the module was given.
void NodeName(const char* sourcePath, char* name) {
    SetName(name, "Node");
    FILE* in = std::fopen(sourcePath, "r");
    if (in == nullptr) {
        return;
    }
    char word[TAVLO_NAME_SIZE] = {0};
    if (std::fscanf(in, "%32s", word) == 1) {
        SetName(name, word);
    }
    std::fclose(in);
}

template <class T>
int Count(const T* head) {
    int n = 0;
    for (; head != nullptr; head = head->next) {
        ++n;
    }
    return n;
}

}  // namespace

// A node from the source file; message "Engine" (id 100, 8 bytes) sent by it
// with signal "Speed" (16 bits) received by it; the message attribute
// "CycleTime" (INT, 0..1000) with the value 100 on the message; the network
// attribute "BusType" (STRING) with the value "CAN".
TEST_MODULE_API int Import(const char* sourcePath, msgblk** messages, symblk** nodes,
                           env_var_blk** /*envvars*/, attr_def** attrDefs, attr** dbAttrs) {
    ++gImportCalls;
    symblk* node = TAVLO_CREATE_SYMBOL();
    NodeName(sourcePath, node->name);
    CAN_INSERT_SYMBOL(nodes, node, 0);

    attr_def* cycle = TAVLO_CREATE_ATTR_DEF();
    cycle->object_type = TAVLO_OBJ_MESSAGE;
    SetName(cycle->name, "CycleTime");
    cycle->value_type = TAVLO_ATTR_INT;
    tavlo_attr_value_t number;
    number.number = 0.0;
    cycle->minimum = number;
    cycle->maximum = 1000.0;
    cycle->default_value = number;
    attr_def* bus = TAVLO_CREATE_ATTR_DEF();
    bus->object_type = TAVLO_OBJ_NETWORK;
    SetName(bus->name, "BusType");
    bus->value_type = TAVLO_ATTR_STRING;
    tavlo_attr_value_t text;
    text.text = Duplicate("");
    bus->default_value = text;
    cycle->next = bus;
    *attrDefs = cycle;

    msgblk* message = TAVLO_CREATE_MSGBLK();
    SetName(message->name, "Engine");
    message->id = 100;
    message->dlc = 8;
    message->transmitter = node;
    sigblk* signal = TAVLO_CREATE_SIGBLK();
    SetName(signal->name, "Speed");
    signal->length = 16;
    signal->factor = 0.5;
    signal->receivers = TAVLO_CREATE_RX(node);
    signal->receiver_count = 1;
    CAN_INSERT_SIG(message, signal, 0);
    message->signal_count = 1;
    attr* cycleValue = static_cast<attr*>(TAVLO_MALLOC(sizeof(attr)));
    cycleValue->def = cycle;
    number.number = 100.0;
    cycleValue->value = number;
    message->attributes = cycleValue;
    CAN_INSERT_MSG(messages, message, 0);

    attr* busValue = static_cast<attr*>(TAVLO_MALLOC(sizeof(attr)));
    busValue->def = bus;
    text.text = Duplicate("CAN");
    busValue->value = text;
    *dbAttrs = busValue;

    gNode = node;
    gMessage = message;
    gAttrDefs = cycle;
    gDbAttrs = busValue;
    return 1;
}

// Makes a node, links it, thinks better of it and releases it again: fails
// leaving the lists as they were.
TEST_MODULE_API int ImportFails(const char* /*sourcePath*/, msgblk** /*messages*/,
                                symblk** nodes, env_var_blk** /*envvars*/,
                                attr_def** /*attrDefs*/, attr** /*dbAttrs*/) {
    ++gImportCalls;
    symblk* node = TAVLO_CREATE_SYMBOL();
    SetName(node->name, "Abandoned");
    CAN_INSERT_SYMBOL(nodes, node, 0);
    CAN_DELETE_SYMBOL(nodes, node);
    return 0;
}

// Writes one line per list, in the order the lists were passed: the list's
// name, the head's address, the number of records and their names.
TEST_MODULE_API int Export(const char* targetPath, msgblk* messages, symblk* nodes,
                           env_var_blk* envvars, attr_def* attrDefs, attr* dbAttrs) {
    ++gExportCalls;
    FILE* out = std::fopen(targetPath, "w");
    if (out == nullptr) {
        return 0;
    }
    std::fprintf(out, "messages %p %d", static_cast<void*>(messages), Count(messages));
    for (const msgblk* m = messages; m != nullptr; m = m->next) {
        std::fprintf(out, " %s", m->name);
    }
    std::fprintf(out, "\nnodes %p %d", static_cast<void*>(nodes), Count(nodes));
    for (const symblk* n = nodes; n != nullptr; n = n->next) {
        std::fprintf(out, " %s", n->name);
    }
    std::fprintf(out, "\nenvvars %p %d", static_cast<void*>(envvars), Count(envvars));
    for (const env_var_blk* e = envvars; e != nullptr; e = e->next) {
        std::fprintf(out, " %s", e->name);
    }
    std::fprintf(out, "\nattrDefs %p %d", static_cast<void*>(attrDefs), Count(attrDefs));
    for (const attr_def* d = attrDefs; d != nullptr; d = d->next) {
        std::fprintf(out, " %s", d->name);
    }
    std::fprintf(out, "\ndbAttrs %p %d", static_cast<void*>(dbAttrs), Count(dbAttrs));
    for (const attr* a = dbAttrs; a != nullptr; a = a->next) {
        const attr_def* def = a->def;
        std::fprintf(out, " %s", def != nullptr ? def->name : "?");
    }
    std::fprintf(out, "\n");
    return std::fclose(out) == 0 ? 1 : 0;
}

// Fails without writing anything.
TEST_MODULE_API int ExportFails(const char* /*targetPath*/, msgblk* /*messages*/,
                                symblk* /*nodes*/, env_var_blk* /*envvars*/,
                                attr_def* /*attrDefs*/, attr* /*dbAttrs*/) {
    ++gExportCalls;
    return 0;
}

// How often the import entries and the export entries were called since the
// module was loaded.
TEST_MODULE_API int ImportCalls() {
    return gImportCalls;
}

TEST_MODULE_API int ExportCalls() {
    return gExportCalls;
}

// The records the last successful import made (they may have been released
// since: compare the addresses, do not follow them).
TEST_MODULE_API void ImportedRecords(const void** node, const void** message,
                                     const void** attrDefs, const void** dbAttrs) {
    *node = gNode;
    *message = gMessage;
    *attrDefs = gAttrDefs;
    *dbAttrs = gDbAttrs;
}
