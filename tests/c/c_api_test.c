/* The flat interface from C: build a small database, query it, copy it and
 * free both, then ask the module its own questions, through
 * <tavloms/tavloms.h> and nothing else. */
#include <stdio.h>
#include <string.h>

#include <tavloms/tavloms.h>

static int passed = 0;
static int failed = 0;

#define CHECK(condition) \
    ((condition) ? (void)++passed \
                 : (void)(++failed, fprintf(stderr, "%s:%d: failed: %s\n", __FILE__, __LINE__, #condition)))

static void build(tavlo_root_t* db) {
    symblk* engine = TAVLO_CREATE_SYMBOL();
    symblk* dash = TAVLO_CREATE_SYMBOL();
    msgblk* message = TAVLO_CREATE_MSGBLK();
    sigblk* speed = TAVLO_CREATE_SIGBLK();
    sigblk* mode = TAVLO_CREATE_SIGBLK();
    attr_def* def = TAVLO_CREATE_ATTR_DEF();
    attr* value = (attr*)TAVLO_MALLOC(sizeof(attr));
    val* description = (val*)TAVLO_MALLOC(sizeof(val));

    memset(db, 0, sizeof *db);
    db->comment = (char*)TAVLO_MALLOC(7);
    strcpy(db->comment, "from C");
    strcpy(engine->name, "Engine");
    strcpy(dash->name, "Dash");
    CAN_INSERT_SYMBOL(&db->nodes, dash, 0);
    CAN_INSERT_SYMBOL(&db->nodes, engine, 0);

    strcpy(def->name, "GenMsgCycleTime");
    def->object_type = TAVLO_OBJ_MESSAGE;
    def->value_type = TAVLO_ATTR_INT;
    def->default_value.number = 100;
    db->attr_defs = def;

    strcpy(message->name, "Vehicle");
    message->id = 0x80000400u;
    message->transmitter = engine;
    memset(value, 0, sizeof *value);
    value->def = def;
    value->value.number = 20;
    message->attributes = value;
    CAN_INSERT_MSG(&db->messages, message, 0);

    strcpy(speed->name, "Speed");
    speed->factor = 0.01;
    speed->receivers = TAVLO_CREATE_RX(dash);
    memset(description, 0, sizeof *description);
    strcpy(description->text, "Standing");
    speed->value_descriptions = description;
    mode->flags = TAVLO_SIG_MODE;
    CAN_INSERT_SIG(message, speed, 0);
    CAN_INSERT_SIG(message, mode, 1);
}

static void query(tavlo_root_t* db, const char* which) {
    tavlo_attr_value_t value;
    msgblk* message = TAVLO_GET_MESSAGE(db->messages, 0x80000400u);
    sigblk* speed = TAVLO_GET_SIGNAL(db->messages, 0x80000400u, "Speed");
    /* Stored in doubles first: a 32-bit build compares literals with excess
     * precision. */
    double factor = 0, expected = 0.01;
    char buffer[8];

    fprintf(stderr, "querying the %s\n", which);
    CHECK(message != NULL && TAVLO_GET_MESSAGE_NAME(db->messages, "Vehicle") == message);
    CHECK(message->transmitter == TAVLO_GET_SYMBOL_N(db->nodes, 1));
    CHECK(speed != NULL && speed->receivers->symbol == TAVLO_GET_SYMBOL_NAME(db->nodes, "Dash"));
    factor = TAVLO_GET_SIG_FACTOR(speed);
    CHECK(factor == expected);
    CHECK(TAVLO_GET_MODE_SIGNAL(db->messages, 0x80000400u) == TAVLO_GET_SIGNAL_OF_MSG_N(message, 2) &&
          TAVLO_GET_SIGNAL_N(db->messages, 0x80000400u, 1) == NULL);
    CHECK(strcmp(TAVLO_GET_SIG_ENUMSYMBOL(speed, 0), "Standing") == 0);
    CHECK(((tavlo_attr_value_t*)TAVLO_GET_MSG_ATTRVAL(&value, message, "GenMsgCycleTime"))->number == 20.0);
    CHECK(((tavlo_attr_value_t*)TAVLO_GET_ATTRDEFAULT(&value, db->attr_defs, "GenMsgCycleTime"))->number == 100.0);
    CHECK(TAVLO_GET_ATTRTYPE(db->attr_defs, "Missing") == 0xFFFFFFFFu);
    buffer[sizeof buffer - 1] = '\0';
    CHECK(TAVLO_GET_FILE_COMMENT(db->comment, buffer, (int)sizeof buffer) == 6 && strcmp(buffer, "from C") == 0);
}

static void module(void) {
    char qualified[] = "Net::Speed";
    const char* dbName = NULL;
    const char* objName = NULL;
    char fileName[4096];
    char version[32] = "";
    unsigned int number = TAVLO_REGISTER_WINDOW_MESSAGE(TAVLONOTIFICATIONMESSAGESTRING);

    CHECK(TAVLOSPLITQUALIFIEDNAME(qualified, &dbName, &objName) && objName != NULL);
    CHECK(strcmp(dbName, "Net") == 0 && strcmp(objName, "Speed") == 0);
    CHECK(TAVLOVERIFYDATABASENAME("Net_1") && !TAVLOVERIFYDATABASENAME("1Net"));
    CHECK(number >= 0xC000u && TAVLO_REGISTER_WINDOW_MESSAGE("tavlomessagenotification") == number);
    CHECK(strcmp(TAVLODATABASENAMEATTRIBUTE, "DBName") == 0 && TAVLONONEFILTERNODE()->next == NULL);
    CHECK(strcmp(TAVLONONEFILTERNODE()->name, "None") == 0);
    CHECK(strcmp(TAVLONONEFILTERCATEGORY()->name, "None") == 0 && strcmp(TAVLONONESUBSIGNAL()->name, "None") == 0);
    /* Linked as a shared library, the module is that library's file. */
    CHECK(TAVLOMSGETMODULEPARAMETERS(fileName, (int)sizeof fileName, version, (int)sizeof version, 250) == 1);
#if defined(_WIN32)
    CHECK(fileName[1] == ':' && strstr(fileName, "tavloms.dll") != NULL);
#else
    CHECK(fileName[0] == '/' && strstr(fileName, "libtavloms") != NULL);
#endif
    CHECK(strcmp(version, "Tavloms Version 2.53") == 0 && TAVLOMSGETMODULEPARAMETERS(NULL, 0, NULL, 0, 251) == 0);
}

/* A decoder compiled from records and kept statements, decoding and
 * encoding a frame whose Gear the Mode selects with 2 and 3. */
static void decoder(void) {
    tavlo_root_t db;
    msgblk* message = TAVLO_CREATE_MSGBLK();
    sigblk* speed = TAVLO_CREATE_SIGBLK();
    sigblk* mode = TAVLO_CREATE_SIGBLK();
    sigblk* gear = TAVLO_CREATE_SIGBLK();
    const tavlo_kept_t kept[3] = {{"SG_MUL_VAL_ 2147484672 Gear Mode 2-3;", 9},
                                  {"SG_MUL_VAL_ 2147484672 Nope Mode 1-1;", 10},
                                  {"BA_ \"Other\" 1;", 11}};
    const unsigned char selected[3] = {0x10, 0x27, 0x32};
    const unsigned char other[3] = {0x10, 0x27, 0x31};
    tavlo_dec_setting_t settings[2];
    tavlo_dec_value_t values[3];
    unsigned char frame[64];
    char error[128];
    const unsigned int* lines = NULL;
    size_t count = 0;
    tavlo_decoder_t* compiled;

    memset(&db, 0, sizeof db);
    strcpy(message->name, "Drive");
    message->id = 0x80000400u;
    message->dlc = 3;
    strcpy(speed->name, "Speed");
    speed->length = 16;
    speed->factor = 0.01;
    strcpy(mode->name, "Mode");
    mode->start_bit = 16;
    mode->length = 4;
    mode->flags = TAVLO_SIG_MODE;
    strcpy(gear->name, "Gear");
    gear->start_bit = 20;
    gear->length = 4;
    gear->flags = TAVLO_SIG_MULTIPLEXED;
    CAN_INSERT_SIG(message, speed, 0);
    CAN_INSERT_SIG(message, mode, 1);
    CAN_INSERT_SIG(message, gear, 2);
    CAN_INSERT_MSG(&db.messages, message, 0);
    compiled = tavlo_decoder_compile(&db, kept, 3);
    TAVLO_FREE_ROOT(&db); /* the decoder keeps what it needs */
    CHECK(compiled != NULL && tavlo_decoder_skipped(compiled, &lines) == 1 && lines[0] == 10);
    CHECK(tavlo_decoder_find_name(compiled, "Drive") == 0 && tavlo_decoder_find_signal(compiled, 0, "Gear") == 2);

    CHECK(tavlo_decoder_decode(compiled, 0x80000400u, selected, 3, values, 3, &count) == TAVLO_DEC_OK);
    CHECK(count == 3 && values[0].physical == 100.0 && values[2].signal == 2 && values[2].raw == 3);
    CHECK(tavlo_decoder_decode(compiled, 0x80000400u, other, 3, values, 3, &count) == TAVLO_DEC_OK && count == 2);
    CHECK(tavlo_decoder_decode(compiled, 0x400u, other, 3, values, 3, &count) == TAVLO_DEC_UNKNOWN_MESSAGE);

    memset(settings, 0, sizeof settings);
    settings[0].signal = "Gear";
    settings[0].how = TAVLO_DEC_SET_RAW;
    settings[0].raw = 3;
    settings[1].signal = "Speed";
    settings[1].how = TAVLO_DEC_SET_PHYSICAL;
    settings[1].physical = 100.0;
    CHECK(tavlo_decoder_encode(compiled, 0, settings, 2, frame, sizeof frame, &count, error, sizeof error) ==
          TAVLO_DEC_OK);
    CHECK(count == 3 && memcmp(frame, selected, 3) == 0);
    settings[0].how = TAVLO_DEC_SET_TEXT;
    settings[0].text = "Reverse";
    CHECK(tavlo_decoder_encode(compiled, 0, settings, 1, frame, sizeof frame, &count, error, sizeof error) ==
          TAVLO_DEC_NO_DESCRIPTION);
    CHECK(strcmp(error, "Gear=Reverse: neither a number nor a value description") == 0);
    tavlo_decoder_free(compiled);
}

int main(void) {
    tavlo_root_t db;
    tavlo_root_t copy;

    build(&db);
    query(&db, "original");
    CHECK(TAVLO_COPY_DATABASE(&db, &copy) == 1);
    TAVLO_FREE_ROOT(&db);
    query(&copy, "copy");
    TAVLO_FREE_ROOT(&copy);
    CHECK(copy.nodes == NULL);
    module();
    decoder();
    printf("%d passed, %d failed\n", passed, failed);
    return failed == 0 ? 0 : 1;
}
