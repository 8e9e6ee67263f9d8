/* tavloms/module.h: the module's own exports. Its version question, database
 * names (qualified names split, names checked), the "None" records that view
 * filter iteration hands out, and the two texts clients share with the
 * library. Compiles as C99. */
#ifndef TAVLOMS_MODULE_H
#define TAVLOMS_MODULE_H

#include "records.h"

#ifndef __cplusplus
#  include <stdbool.h>
#endif

TAVLO_BEGIN_C

/* "TavloMessageNotification": the name under which the change notification
 * message is registered. Register the same name (TAVLO_REGISTER_WINDOW_MESSAGE
 * or RegisterWindowMessageA) to learn the message number. */
TAVLO_API extern const char TAVLONOTIFICATIONMESSAGESTRING[];

/* "DBName": the string attribute of a database that names it when it is
 * opened without an explicit name. */
TAVLO_API extern const char TAVLODATABASENAMEATTRIBUTE[];

/* Answers a client's version question. When moduleFileName is not null, the
 * module's full file name is written into it (at most moduleFileNameSize - 1
 * characters, terminated). When versionText is not null, "Tavloms Version
 * 2.53" is copied into it with at most versionTextSize - 1 characters; a cut
 * copy is not terminated, so the caller's buffer must end in a zero byte.
 * Returns 1 when callerVersion is 250 or less (the caller can use this
 * module), else 0. */
TAVLO_API int TAVLOMSGETMODULEPARAMETERS(char* moduleFileName, int moduleFileNameSize,
                                         char* versionText, int versionTextSize,
                                         int callerVersion);

/* Splits a qualified name "database::object" in place at its first "::":
 * the first colon becomes a zero, *dbName points to the text, *objName behind
 * the second colon, and the result is true. Without "::", *dbName is the
 * whole text, *objName is null and the result is false. Both out pointers
 * must be given. A text holding a single ':' that is not followed by another
 * ':' is never returned from (database names cannot hold ':'). */
TAVLO_API bool TAVLOSPLITQUALIFIEDNAME(char* qualifiedName, const char** dbName,
                                       const char** objName);

/* Whether a text is a valid database name: 1 to 32 characters, letters,
 * digits and '_', not beginning with a digit. */
TAVLO_API bool TAVLOVERIFYDATABASENAME(const char* name);

/* The "None" records: all fields zero except the name "None". They stand for
 * "no category" and "no node" in view filter iteration, belong to no
 * database and must not be changed or released. */
TAVLO_API cat* TAVLONONEFILTERCATEGORY(void);
TAVLO_API symblk* TAVLONONEFILTERNODE(void);
TAVLO_API sigblk* TAVLONONESUBSIGNAL(void);

TAVLO_END_C

#endif /* TAVLOMS_MODULE_H */
