/* tavloms/tavloms.h: the one header a client includes.
 *
 * Everything the library offers its clients: the records of a database, their
 * creation and release, the flat queries, deep copies, reading and writing
 * database files, the platform hooks, the module's own exports, the compiled
 * frame decoder, the log readers (whose functions are in the library
 * tavloms_logs) and, for C++, the exception of a failed read. Compiles as C99
 * and C++17. */
#ifndef TAVLOMS_TAVLOMS_H
#define TAVLOMS_TAVLOMS_H

#include "export.h"
#include "records.h"
#include "lifecycle.h"
#include "query.h"
#include "copy.h"
#include "dbfile.h"
#include "kept.h"
#include "load.h"
#include "platform.h"
#include "module.h"
#include "exception.h"
#include "manager.h"
#include "writemanager.h"
#include "convert.h"
#include "decoder.h"
#include "logs.h"

#endif /* TAVLOMS_TAVLOMS_H */
