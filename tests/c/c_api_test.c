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
    printf("%d passed, %d failed\n", passed, failed);
    return failed == 0 ? 0 : 1;
}
