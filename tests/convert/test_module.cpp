// tests/convert/test_module.cpp: a converter module for the converter tests.
// Its entries build a small database or write down what they were given, and
// count their calls. Plain C-style code on purpose, so that nothing keeps the
// module loaded after the last handle on it is closed.
#include <cstdio>
#include <cstring>

#include "tavloms/convert.h"
#include "tavloms/lifecycle.h"

#define TEST_MODULE_API extern "C" __attribute__((visibility("default")))

namespace {

int gImportCalls = 0;
int gExportCalls = 0;

char* Copy(const char* text) {
    char* copy = static_cast<char*>(TAVLO_MALLOC(std::strlen(text) + 1));
    return std::strcpy(copy, text);
}

attr* Value(attr_def* def) {
    attr* value = static_cast<attr*>(TAVLO_MALLOC(sizeof(attr)));
    value->def = def;
    return value;
}

const char* Name(const attr* value) {
    const attr_def* def = value->def;
    return def != nullptr ? def->name : "?";
}

template <class T>
const char* Name(const T* record) {
    return record->name;
}

template <class T>
void List(FILE* out, const char* label, T* head) {
    int count = 0;
    for (const T* record = head; record != nullptr; record = record->next) {
        ++count;
    }
    std::fprintf(out, "%s %p %d", label, static_cast<void*>(head), count);
    for (const T* record = head; record != nullptr; record = record->next) {
        std::fprintf(out, " %s", Name(record));
    }
    std::fprintf(out, "\n");
}

}  // namespace

// A node from the source file; message "Engine" (id 100, 8 bytes) sent by it
// with signal "Speed" (16 bits) received by it; the message attribute
// "CycleTime" (INT, 0..1000) with the value 100 on the message; the network
// attribute "BusType" (STRING) with the value "CAN".
TEST_MODULE_API int Import(const char* sourcePath, msgblk** messages, symblk** nodes,
                           env_var_blk** /*envvars*/, attr_def** attrDefs, attr** dbAttrs) {
    ++gImportCalls;
    // The source's first word names the node, so a test sees which file the
    // module was given.
    symblk* node = TAVLO_CREATE_SYMBOL();
    std::strcpy(node->name, "Node");
    if (FILE* in = std::fopen(sourcePath, "r")) {
        std::fscanf(in, "%32s", node->name);
        std::fclose(in);
    }
    CAN_INSERT_SYMBOL(nodes, node, 0);

    attr_def* cycle = TAVLO_CREATE_ATTR_DEF();
    cycle->object_type = TAVLO_OBJ_MESSAGE;
    std::strcpy(cycle->name, "CycleTime");
    cycle->value_type = TAVLO_ATTR_INT;
    cycle->maximum = 1000.0;
    attr_def* bus = TAVLO_CREATE_ATTR_DEF();
    bus->object_type = TAVLO_OBJ_NETWORK;
    std::strcpy(bus->name, "BusType");
    bus->value_type = TAVLO_ATTR_STRING;
    bus->default_value.text = Copy("");
    cycle->next = bus;
    *attrDefs = cycle;

    msgblk* message = TAVLO_CREATE_MSGBLK();
    std::strcpy(message->name, "Engine");
    message->id = 100;
    message->dlc = 8;
    message->transmitter = node;
    sigblk* signal = TAVLO_CREATE_SIGBLK();
    std::strcpy(signal->name, "Speed");
    signal->length = 16;
    signal->factor = 0.5;
    signal->receivers = TAVLO_CREATE_RX(node);
    signal->receiver_count = 1;
    CAN_INSERT_SIG(message, signal, 0);
    message->signal_count = 1;
    message->attributes = Value(cycle);
    message->attributes->value.number = 100.0;
    CAN_INSERT_MSG(messages, message, 0);
    *dbAttrs = Value(bus);
    (*dbAttrs)->value.text = Copy("CAN");
    return 1;
}

// Fails without making anything.
TEST_MODULE_API int ImportFails(const char* /*sourcePath*/, msgblk** /*messages*/,
                                symblk** /*nodes*/, env_var_blk** /*envvars*/,
                                attr_def** /*attrDefs*/, attr** /*dbAttrs*/) {
    ++gImportCalls;
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
    List(out, "messages", messages);
    List(out, "nodes", nodes);
    List(out, "envvars", envvars);
    List(out, "attrDefs", attrDefs);
    List(out, "dbAttrs", dbAttrs);
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
