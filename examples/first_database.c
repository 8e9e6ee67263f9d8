/* first_database: build a small CAN database in memory through the flat
 * interface, look things up in it, copy it, write the copy as a database
 * file, read the file back, and release everything.
 *
 *     first_database [FILE]      (FILE defaults to first_database.dbc; it is
 *                                 removed again at the end)
 *
 * Prints what it built and found; exits 0, or 1 when the file cannot be
 * written or read. */
#include <stdio.h>
#include <string.h>

#include <tavloms/tavloms.h>

static char* text(const char* s) {
    char* copy = (char*)TAVLO_MALLOC(strlen(s) + 1);
    if (copy != NULL) {
        strcpy(copy, s);
    }
    return copy;
}

static symblk* add_node(tavlo_root_t* db, const char* name, unsigned int position) {
    symblk* node = TAVLO_CREATE_SYMBOL();
    strncpy(node->name, name, TAVLO_NAME_SIZE - 1);
    CAN_INSERT_SYMBOL(&db->nodes, node, position);
    return node;
}

static sigblk* add_signal(msgblk* message, const char* name, unsigned short start,
                          unsigned short length, double factor, const char* unit,
                          unsigned int position) {
    sigblk* signal = TAVLO_CREATE_SIGBLK();
    strncpy(signal->name, name, TAVLO_NAME_SIZE - 1);
    signal->start_bit = start;
    signal->length = length;
    signal->factor = factor;
    strncpy(signal->unit, unit, TAVLO_NAME_SIZE - 1);
    CAN_INSERT_SIG(message, signal, position);
    message->signal_count = (unsigned short)(position + 1);
    return signal;
}

int main(int argc, char** argv) {
    const char* path = argc > 1 ? argv[1] : "first_database.dbc";
    tavlo_root_t db;
    tavlo_root_t copy;
    tavlo_root_t back;
    symblk* engine;
    symblk* dash;
    msgblk* message;
    sigblk* rpm;
    const msgblk* m;
    const sigblk* s;

    memset(&db, 0, sizeof db);
    db.version = text("1.0");
    db.comment = text("A first database, built in memory");

    engine = add_node(&db, "Engine", 0);
    dash = add_node(&db, "Dashboard", 1);

    message = TAVLO_CREATE_MSGBLK();
    strcpy(message->name, "EngineStatus");
    message->id = 0x123;
    message->dlc = 8;
    message->transmitter = engine;
    CAN_INSERT_MSG(&db.messages, message, 0);

    rpm = add_signal(message, "EngineSpeed", 0, 16, 0.25, "rpm", 0);
    rpm->maximum = 16383.75;
    rpm->receivers = TAVLO_CREATE_RX(dash);
    rpm->receiver_count = 1;
    add_signal(message, "CoolantTemp", 16, 8, 1.0, "degC", 1)->offset = -40.0;

    printf("Database \"%s\", version %s\n", db.comment, db.version);
    for (m = db.messages; m != NULL; m = m->next) {
        printf("  message %s (id 0x%X, %u bytes) sent by %s\n", m->name, m->id, m->dlc,
               m->transmitter != NULL ? m->transmitter->name : "nobody");
        for (s = m->signals; s != NULL; s = s->next) {
            printf("    signal %-12s bits %2u..%2u  physical = raw * %g + %g [%s]\n", s->name,
                   s->start_bit, s->start_bit + s->length - 1, s->factor, s->offset, s->unit);
        }
    }

    s = TAVLO_GET_SIGNAL(db.messages, 0x123, "CoolantTemp");
    printf("Found by identifier and name: %s, offset %g\n", s->name, TAVLO_GET_SIG_OFFSET((sigblk*)s));

    if (!TAVLO_COPY_DATABASE(&db, &copy)) {
        fprintf(stderr, "first_database: out of memory while copying\n");
        TAVLO_FREE_ROOT(&db);
        return 1;
    }
    TAVLO_FREE_ROOT(&db);
    m = TAVLO_GET_MESSAGE_NAME(copy.messages, "EngineStatus");
    printf("The copy stands on its own: %s is sent by its own %s\n", m->name,
           m->transmitter->name);

    /* Write the copy as a database file and read the file back. */
    if (TAVLO_WRITE(path, copy.nodes, copy.messages, copy.envvars, copy.bit_timings,
                    copy.attr_defs, copy.db_attrs, copy.categories, copy.filter, copy.comment,
                    copy.version, copy.sig_types, copy.value_tables) != 0) {
        fprintf(stderr, "first_database: cannot write %s\n", path);
        TAVLO_FREE_ROOT(&copy);
        return 1;
    }
    TAVLO_FREE_ROOT(&copy);
    memset(&back, 0, sizeof back);
    if (TAVLO_READ(path, &back.nodes, &back.messages, &back.envvars, &back.bit_timings,
                   &back.attr_defs, &back.db_attrs, &back.categories, &back.filter,
                   &back.comment, &back.version, &back.sig_types, &back.value_tables) != 0) {
        fprintf(stderr, "first_database: cannot read %s back\n", path);
        TAVLO_FREE_ROOT(&back);
        return 1;
    }
    s = TAVLO_GET_SIGNAL(back.messages, 0x123, "EngineSpeed");
    printf("Written to %s and read back: %s has %u receiver(s), unit %s\n", path, s->name,
           (unsigned)s->receiver_count, s->unit);
    TAVLO_FREE_ROOT(&back);
    remove(path);
    return 0;
}
