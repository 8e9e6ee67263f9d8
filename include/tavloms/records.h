/* tavloms/records.h: the records a database is made of.
 *
 * A database in memory is a set of singly linked lists of plain records plus
 * two strings and a view filter. The records cross the module boundary by
 * pointer, so their layout is part of the interface: every record is
 * byte-packed, fields in exactly the order below, with the native pointer
 * width. Because fields are packed, never take the address of a field other
 * than a name array (copy it into a local instead).
 *
 * Records are created, linked and released only through lifecycle.h, with
 * memory from TAVLO_MALLOC/TAVLO_MFREE. Compiles as C99 and as C++. */
#ifndef TAVLOMS_RECORDS_H
#define TAVLOMS_RECORDS_H

#include "export.h"

/* A name holds at most 32 characters and a terminating zero; longer names are
 * cut to 32 when copied in. */
#define TAVLO_NAME_SIZE 33

/* Kinds of objects; the same numbers are stored in attr_def.object_type. */
typedef enum tavlo_obj_t {
    TAVLO_OBJ_NETWORK = 0,      /* the database itself */
    TAVLO_OBJ_NODE = 1,         /* "BU_" */
    TAVLO_OBJ_MESSAGE = 2,      /* "BO_" */
    TAVLO_OBJ_SIGNAL = 3,       /* "SG_" */
    TAVLO_OBJ_ENVVAR = 4,       /* "EV_" */
    TAVLO_OBJ_SIGTYPE = 5,      /* signal type, "BA_DEF_SGTYPE_" */
    TAVLO_OBJ_NODE_SIGNAL = 6,  /* node-signal relation (receiver), "BU_SG_REL_" */
    TAVLO_OBJ_NODE_MESSAGE = 7, /* node-message relation (transmitter), "BU_BO_REL_" */
    TAVLO_OBJ_NODE_ENVVAR = 8   /* node-environment variable relation, "BU_EV_REL_" */
} tavlo_obj_t;

/* attr_def.value_type */
#define TAVLO_ATTR_INT 0u
#define TAVLO_ATTR_FLOAT 1u
#define TAVLO_ATTR_STRING 2u
#define TAVLO_ATTR_ENUM 3u
#define TAVLO_ATTR_HEX 4u

/* sigblk.flags (bits 0 and 1 also in sigtype.flags); bits 4-7 stay zero. */
#define TAVLO_SIG_MOTOROLA 0x01u    /* big-endian, "@0"; clear = Intel, "@1" */
#define TAVLO_SIG_SIGNED 0x02u      /* signed raw value, "-" */
#define TAVLO_SIG_MODE 0x04u        /* the message's mode signal, " M" */
#define TAVLO_SIG_MULTIPLEXED 0x08u /* present only when mode == mode_value, " m" */

/* sigblk.value_type and sigtype.value_type */
#define TAVLO_VALUE_INTEGER 0u
#define TAVLO_VALUE_FLOAT 1u
#define TAVLO_VALUE_DOUBLE 2u

/* env_var_blk.type */
#define TAVLO_ENV_INTEGER 0u
#define TAVLO_ENV_FLOAT 1u
#define TAVLO_ENV_STRING 2u
#define TAVLO_ENV_DATA 3u

TAVLO_BEGIN_VISIBLE
#pragma pack(push, 1)

/* An 8-byte attribute value: an f64 for INT, FLOAT, HEX and ENUM (the
 * enumeration index), a string pointer for STRING. A value that is not found
 * reads as eight zero bytes. */
typedef union tavlo_attr_value_t {
    double number;
    char* text;
    unsigned char bytes[8];
} tavlo_attr_value_t;

typedef struct symblk symblk;
typedef struct msgblk msgblk;
typedef struct sigblk sigblk;
typedef struct env_var_blk env_var_blk;
typedef struct btlblk btlblk;
typedef struct attr_def attr_def;
typedef struct attr attr;
typedef struct cat cat;
typedef struct val val;
typedef struct valtable valtable;
typedef struct sigtype sigtype;
typedef struct siggroupblk siggroupblk;
typedef struct siglistblk siglistblk;
typedef struct secondlistblk secondlistblk;
typedef struct rxblk rxblk;
typedef struct filtercatblk filtercatblk;

/* A node (network participant, "BU_"). */
struct symblk {
    char name[TAVLO_NAME_SIZE];
    symblk* next;
    char* comment;    /* owned */
    attr* attributes; /* owned */
    cat* category;    /* reference, or null */
};

/* A message (frame, "BO_"). */
struct msgblk {
    char name[TAVLO_NAME_SIZE];
    unsigned int id;             /* as written in the file; no bit is interpreted */
    unsigned short dlc;          /* data length in bytes; created as 1 */
    unsigned short signal_count; /* created as 1; kept by the callers */
    symblk* transmitter;         /* reference, or null ("Corvan__XXX") */
    sigblk* signals;             /* owned, in file order */
    msgblk* next;
    char* comment;               /* owned */
    attr* attributes;            /* owned */
    cat* category;               /* reference, or null */
    siggroupblk* signal_groups;  /* owned */
    rxblk* transmitters;         /* owned: further transmitters ("BO_TX_BU_") */
};

/* A signal ("SG_"). */
struct sigblk {
    char name[TAVLO_NAME_SIZE];
    unsigned short start_bit;
    unsigned short length;       /* bits; created as 1 */
    unsigned char flags;         /* TAVLO_SIG_* */
    unsigned int mode_value;     /* multiplexer value of a multiplexed signal */
    double offset;               /* physical = raw * factor + offset */
    double factor;               /* created as 1.0 */
    char unit[TAVLO_NAME_SIZE];
    double minimum;
    double maximum;
    sigblk* next;
    unsigned short receiver_count;
    rxblk* receivers;            /* owned */
    char* comment;               /* owned */
    attr* attributes;            /* owned */
    val* value_descriptions;     /* owned ("VAL_") */
    sigtype* sig_type;           /* reference, or null ("SIG_TYPE_REF_") */
    unsigned int value_type;     /* TAVLO_VALUE_* ("SIG_VALTYPE_") */
};

/* An environment variable ("EV_"). */
struct env_var_blk {
    char name[TAVLO_NAME_SIZE];
    unsigned int type;           /* TAVLO_ENV_*; created as 0 */
    char unit[TAVLO_NAME_SIZE];
    double minimum;
    double maximum;
    double initial_value;
    unsigned int id;             /* the handle TAVLO_GET_EVBLK_H looks up */
    symblk* node;                /* reference, re-pointed by name on copy */
    unsigned short access_node_count;
    rxblk* access_nodes;         /* owned */
    unsigned int access_type;    /* access code */
    env_var_blk* next;
    char* comment;               /* owned */
    attr* attributes;            /* owned */
    cat* category;               /* reference, or null */
    val* value_descriptions;     /* owned */
    unsigned int data_length;    /* bytes of a data variable (type 3) */
};

/* A bit timing ("BS_"). */
struct btlblk {
    unsigned short baudrate;     /* the key of TAVLO_GET_BTLBLK */
    unsigned char btr1;
    unsigned char btr2;
    btlblk* next;
};

/* An attribute definition ("BA_DEF_"). */
struct attr_def {
    unsigned int object_type;         /* a tavlo_obj_t value */
    char name[TAVLO_NAME_SIZE];       /* the key of every attribute look-up */
    unsigned int value_type;          /* TAVLO_ATTR_* */
    tavlo_attr_value_t minimum;       /* INT, FLOAT, HEX: f64; ENUM: owned text of all
                                         enumeration texts joined by line feeds */
    double maximum;                   /* INT, FLOAT, HEX */
    tavlo_attr_value_t default_value; /* INT, FLOAT, HEX: f64; STRING, ENUM: owned text */
    attr_def* next;
};

/* An attribute value attached to an object. */
struct attr {
    attr_def* def;                    /* reference: says how to read value */
    tavlo_attr_value_t value;         /* STRING: owned text; others: f64 */
    attr* next;
};

/* A category ("CAT_DEF_"). */
struct cat {
    short value;                      /* second number of the definition */
    short number;                     /* the key categories are found by */
    char name[TAVLO_NAME_SIZE];
    cat* next;
};

/* A value description entry: a text for one raw value ("VAL_"). */
struct val {
    int value;
    char text[TAVLO_NAME_SIZE];
    val* next;
};

/* A named value table ("VAL_TABLE_"). */
struct valtable {
    char name[TAVLO_NAME_SIZE];
    val* value_descriptions;          /* owned */
    valtable* next;
};

/* A signal type ("SGTYPE_"). */
struct sigtype {
    char name[TAVLO_NAME_SIZE];
    unsigned short length;
    unsigned char flags;              /* byte order and sign bits as in sigblk */
    double offset;
    double factor;
    char unit[TAVLO_NAME_SIZE];
    double minimum;
    double maximum;
    double default_value;
    char* comment;                    /* owned */
    attr* attributes;                 /* owned */
    valtable* value_list;             /* reference, or null */
    sigtype* next;
    unsigned int value_type;          /* TAVLO_VALUE_* ("SIGTYPE_VALTYPE_") */
};

/* A signal group of a message ("SIG_GROUP_"). */
struct siggroupblk {
    char name[TAVLO_NAME_SIZE];
    siglistblk* signals;              /* owned: member signals in order */
    secondlistblk* second_list;       /* owned; content not used by the library */
    unsigned int repetitions;         /* created as 1 */
    char* comment;                    /* owned */
    msgblk* message;                  /* reference: the owning message */
    siggroupblk* next;
};

/* A member of a signal group. */
struct siglistblk {
    sigblk* signal;                   /* reference */
    siglistblk* next;
};

/* An entry of a signal group's second member list. */
struct secondlistblk {
    void* item;
    secondlistblk* next;
};

/* A node relation: signal receiver, message transmitter, environment variable
 * access node, and view filter node (where a null symbol stands for NONE). */
struct rxblk {
    rxblk* next;
    symblk* symbol;                   /* reference to the node */
    attr* attributes;                 /* owned: relation values ("BA_REL_") */
};

/* A view filter category entry; a null act stands for the NONE category.
 * Its link is last, unlike rxblk's: both layouts are kept as they are. */
struct filtercatblk {
    cat* act;
    filtercatblk* next;
};

/* The view filter, passed by value. */
typedef struct filter_t {
    filtercatblk* categories;
    rxblk* nodes;
    unsigned short number;
} filter_t;

#pragma pack(pop)

/* The twelve items of a database root, in the fixed order in which they are
 * passed to TAVLO_FREE and TAVLO_WRITE and filled by TAVLO_READ. A holder for
 * clients, not a record: it is laid out naturally, so the address of a list
 * head in it can be passed to CAN_INSERT_* and CAN_DELETE_*. */
typedef struct tavlo_root_t {
    symblk* nodes;
    msgblk* messages;
    env_var_blk* envvars;
    btlblk* bit_timings;
    attr_def* attr_defs;
    attr* db_attrs;         /* values of attributes of the database itself */
    cat* categories;
    filter_t filter;
    char* comment;          /* owned, or null */
    char* version;          /* owned */
    sigtype* sig_types;
    valtable* value_tables;
} tavlo_root_t;
TAVLO_END_VISIBLE

#endif /* TAVLOMS_RECORDS_H */
